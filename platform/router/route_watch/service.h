// The service: what is watched, and when it is compared. Only for this folder.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/core/evm/evm.h"
#include "platform/router/route_watch/state_file.h"
#include "platform/router/route_watch/stored_states.h"
#include "platform/router/route_watch/watched_vrf.h"
#include "platform/store/server/followed_nodes.h"
#include "platform/store/tree/kvtree.h"

namespace route_watch {

class Service final : public router::Observer {
 public:
  Service(router::Router* model, EventManager* manager, const std::string& file, HasRead has_read);
  ~Service() override;
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  // The status of binding, registering or following.
  [[nodiscard]] Status start();
  void write_states();  // waits for the disk
  void set_low(const std::string& vrf, std::size_t family, const Pair& low_and_hold);
  void set_thresholds(const std::string& vrf, std::size_t family, const Pair& maximum_and_mid);
  void watch_prefix(const std::string& vrf, const router::Address& prefix, bool is_wanted);

  const router::Router& model() const { return *model_; }
  // The first one after this name; null if there is none.
  const WatchedVrf* after(const std::string& vrf) const;
  void for_each(const std::function<void(const WatchedVrf&)>& visit) const;

  void vrf_created(const router::Vrf& vrf) override { mark_changed(vrf.name); }
  void vrf_changed(const router::Vrf& /*before*/, const router::Vrf& now) override { mark_changed(now.name); }
  void vrf_deleted(const router::Vrf& vrf) override { mark_changed(vrf.name); }
  void routes_changed(router::RouteTableId table) override;

 private:
  using Names = std::set<std::string, router::ShorterFirst>;

  StoredStates states() const;
  void add_prefix(const std::string& vrf, const router::Address& prefix);
  void remove_prefix(const std::string& vrf, const router::Address& prefix);
  void watch_waiting();
  WatchedVrf* change(const std::string& vrf);
  void end_change(const std::string& vrf);
  void mark_changed(const std::string& vrf);
  void mark(const std::string& vrf);
  void link_tables(const std::string& vrf);
  void unlink_tables(const std::string& vrf);
  void check_at(std::uint64_t time);
  void check();
  bool compare_next(std::uint64_t now);
  void check_later(const std::string& vrf, std::uint64_t due);

  router::Router* model_;
  EventManager* manager_;
  KvConnection* connection_ = nullptr;
  FollowedNodes configuration_;
  std::map<std::string, WatchedVrf, router::ShorterFirst> watched_;
  std::map<std::string, std::vector<router::RouteTableId>, router::ShorterFirst> tables_of_vrf_;
  std::map<router::RouteTableId, Names> vrfs_of_table_;  // watched ones
  Names marked_;                                         // to be compared in the next pass
  Names pass_;                                           // those that the current pass has yet to compare
  std::map<std::string, std::uint64_t> due_of_;          // of tables that are below their mark
  std::set<std::pair<std::uint64_t, std::string>> due_order_;  // the same
  std::size_t prefixes_ = 0;                                   // that are watched
  struct Waiting {
    std::string vrf;
    router::Address prefix;
  };
  std::map<std::uint64_t, Waiting> waiting_;  // beyond the limit, in the order of their configuration
  std::uint64_t last_place_ = 0;
  std::unique_ptr<StateFile> file_;  // may be null
  StoredStates stored_;              // of an earlier process, for what is configured while this starts
  HasRead has_read_;
  EventTimerId timer_ = 0;
  std::uint64_t timer_at_ = 0;    // clock_monotonic()
  std::uint64_t checked_at_ = 0;  // likewise; the end of the last pass
};

// Answers with the service's VRFs; null: it ends.
[[nodiscard]] Status provide(Service* service, EventManager* manager, KvConnection** connection);

}  // namespace route_watch
