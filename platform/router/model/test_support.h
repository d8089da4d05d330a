// A router model with one recording observer of each rank, for the model's own tests.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/router/model/router_test_support.h"

namespace router {

// Writes one line for each notification.
class Listener : public Observer {
 public:
  Listener(std::string name, std::vector<std::string>* lines) : name_(std::move(name)), lines_(lines) {}
  void vrf_created(const Vrf& vrf) override { Say("created " + vrf.name); }
  void vrf_changed(const Vrf&, const Vrf& now) override { Say("changed " + now.name); }
  void vrf_deleted(const Vrf& vrf) override { Say("deleted " + vrf.name); }
  void vrf_referenced(const std::string& name) override { Say("referenced " + name); }
  void vrf_unreferenced(const std::string& name) override { Say("unreferenced " + name); }
  void interface_added(const Interface& now) override { Say("added " + now.name + " in " + now.vrf); }
  void interface_changed(const Interface& before, const Interface& now) override {
    Say("changed " + before.name + " to " + now.name + (now.up ? " up" : " down"));
  }
  void interface_moved(const Interface& now, const std::string& from) override {
    Say("moved " + now.name + " from " + from + " to " + now.vrf);
  }
  void interface_removed(const Interface& last) override { Say("removed " + last.name + " in " + last.vrf); }

 private:
  void Say(const std::string& what) { lines_->push_back(name_ + ": " + what); }
  std::string name_;
  std::vector<std::string>* lines_;
};

class RouterModel : public RouterTest {
 protected:
  RouterModel() {  // registered in another order than that of the ranks
    router_.observe(ObserverRank::kOther, &other_);
    router_.observe(ObserverRank::kRecords, &records_);
    router_.observe(ObserverRank::kMembership, &members_);
  }

  std::vector<std::string> Lines() { return std::exchange(lines_, {}); }  // since the last call

  std::vector<std::string> lines_;
  Listener records_{"records", &lines_};
  Listener members_{"members", &lines_};
  Listener other_{"other", &lines_};
};

}  // namespace router
