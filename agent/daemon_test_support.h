// A data store in a process of its own, serving scalars and `rows` interfaces of the VRF "RED" on a socket in
// a directory of its own: the daemon of a sub-agent under test. It can be killed, stopped and started again.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/core/files/temporary_directory.h"

namespace agent_test {

inline constexpr std::uint32_t kTrapLimit = 200;  // traps retained for a sub-agent that is away

class DaemonProcess {
 public:
  DaemonProcess() = default;
  ~DaemonProcess();
  DaemonProcess(const DaemonProcess&) = delete;
  DaemonProcess& operator=(const DaemonProcess&) = delete;

  // Returns when it serves. With `provider` false it answers, but has nothing registered.
  void Start(std::uint32_t rows, bool provider = true);
  void Kill();
  void Hang();  // stops it without ending it
  void GoOn();
  // So many traps of this type, whose numbers of current routes count from 1.
  void RaiseTraps(std::uint32_t type, const std::string& vrf, std::uint32_t index, std::uint32_t count = 1);
  void RaiseNonsense();  // a notification that is not a trap
  // From the next start on unacknowledged traps outlive the process, in this file.
  void StoreTraps() { trap_file_ = directory_.path() + "/traps"; }
  const std::string& trap_file() const { return trap_file_; }
  const std::string& socket() const { return socket_; }

 private:
  void Do(const std::vector<std::string>& words);

  const TemporaryDirectory directory_;
  const std::string socket_ = directory_.path() + "/dev.mpls.vpn.main";
  std::string trap_file_;  // empty: none
  pid_t pid_ = -1;
};

}  // namespace agent_test
