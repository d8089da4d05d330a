// For the data store's tests: the store with a provider, served by a thread of its own, and a client of it.
#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/store/client/client.h"
#include "platform/store/server/protocol.h"
#include "platform/store/server/store.h"
#include "platform/store/server/test_store.h"
#include "platform/store/tree/actions.h"

inline const std::string kSubtree = "/oper/mpls_vpn/gl/";

inline std::string Text(const kvtree::Octets& octets) {
  return {octets.begin(), octets.end()};
}

inline Status fixed_action(const KvActionContext& context, const std::vector<std::string>& words,
                           std::string* text, void*) {
  *text = std::string(context.may_change ? "may:" : "may not:") + words.back();
  return words.back() == "fail" ? kStatusAccess : kStatusOk;
}

inline Status long_action(const KvActionContext&, const std::vector<std::string>&, std::string* text, void*) {
  text->assign(kvtree::kMaxAnswer, 'x');
  return kStatusOk;
}

// Ends in its third step.
inline Status stepping_action(const KvActionContext& context, const std::vector<std::string>&,
                              std::string* text, void*) {
  auto* const steps = std::any_cast<int>(&context.steps->state);
  const int step = steps == nullptr ? 1 : *steps + 1;
  context.steps->state = step;
  *text = "step " + std::to_string(step);
  return step < 3 ? kStatusUnfinished : kStatusOk;
}

// Actions that have not ended yet. Belongs to the store's thread.
inline std::vector<KvActionEnd> open_actions;

inline Status open_action(const KvActionContext& context, const std::vector<std::string>& words, std::string*,
                          void*) {
  open_actions.push_back(context.end);
  if (words.back() == "now") context.end(kStatusExists, "ended within the call");
  return kStatusInProgress;
}

// The store, served by a thread of its own, so that blocking clients can be used.
class ServedStore : public StoreTest {
 protected:
  ServedStore() {
    Provide();
    EXPECT_EQ(kvtree_register_action("act", fixed_action, nullptr), kStatusOk);
    EXPECT_EQ(kvtree_register_action("long", long_action, nullptr), kStatusOk);
    EXPECT_EQ(kvtree_register_action("open", open_action, nullptr), kStatusOk);
    EXPECT_EQ(kvtree_register_action("stepping", stepping_action, nullptr), kStatusOk);
    EXPECT_EQ(kvtree_serve(manager), kStatusOk);
  }
  ~ServedStore() override {
    Stop();
    kvtree_stop_serving(manager);
    open_actions.clear();
  }
  void Start() {
    stopping = false;
    thread = std::thread([this] {
      std::array<unsigned char, 1024> buffer;
      EventContext context{manager, buffer.data(), buffer.size(), 0};
      while (!stopping) {
        if (event_wait(&context) == 0) event_dispatch(&context);
      }
    });
  }
  void Stop() {
    if (!thread.joinable()) return;
    event_post(manager, [this] { stopping = true; });
    thread.join();
  }
  // Runs the loop on this thread while a client asks on another: the number of iterations.
  unsigned IterationsOf(const std::function<void()>& ask) {
    std::atomic<bool> is_answered{false};
    std::thread asking([&] {
      ask();
      is_answered = true;
    });
    unsigned iterations = 0;
    std::array<unsigned char, 1024> buffer;
    while (!is_answered) {
      EventContext context{manager, buffer.data(), buffer.size(), 0};
      if (event_wait_for(&context, 0) == 0) {
        ++iterations;
        event_dispatch(&context);
      } else {
        std::this_thread::yield();
      }
    }
    asking.join();
    return iterations;
  }
  // Runs a function on the store's thread, after what was posted before.
  void OnStore(std::function<void()> function) { event_post(manager, std::move(function)); }
  void StartAndConnect() {
    Start();
    ASSERT_EQ(client.connect(), kStatusOk);
  }

  kvtree::Client client{kvtree::Client::default_socket(), std::chrono::milliseconds(5000)};
  std::thread thread;
  bool stopping = false;
};
