// For tests of power cuts: lives of a program, each with the files that the power cut of the one before left.
//
//   MPLS_TEST_POWER_CUTS   cuts of each test (200)
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <set>
#include <string>

#include "platform/core/evm/evm.h"
#include "platform/core/evm/test_run_directory.h"
#include "tests/power/power_vfs.h"
#include "tests/power/simulated_disk.h"
#include "tests/random_rounds.h"

namespace power {

inline constexpr std::size_t kPage = 4096;

// The simulated disk alone has to synchronize: its files are in memory where that is possible.
class DirectoryInMemory {
 public:
  DirectoryInMemory() {
    if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
    directory_.emplace();
  }
  const std::string& path() const { return directory_.value().path(); }

 private:
  std::optional<TestRunDirectory> directory_;
};

class PowerTest : public ::testing::Test, protected RandomRounds {
 protected:
  PowerTest() : disk(seed), manager(event_manager_create("/dev/mpls/vpn/main", 0)) {}
  ~PowerTest() override { event_manager_destroy(manager); }

  static std::size_t Cuts() { return number_of_environment("MPLS_TEST_POWER_CUTS", 200); }

  // The program starts with the files in `state`, works, and ends.
  virtual void Live() = 0;
  virtual void ForgetAll() = 0;  // the disk is empty again

  // Stops at the first violation. Sometimes the next life has an empty disk, so that the first start is cut,
  // too.
  void RunLives(std::size_t cuts) {
    PrintSeed();
    ::testing::internal::CaptureStderr();  // each cut is logged
    for (lives = 0; lives < cuts && violation.empty(); ++lives) {
      if (lives > 0 && OneOf(100)) StartWithNothing();
      NextState();
      disk.cut_power_at(OneOf(8) ? 1 + Below(4000) : 1 + Below(150));
      Live();
      operations += disk.operations();
      if (disk.has_power()) ++idle_cuts;
    }
    PrintEndOfLog(::testing::internal::GetCapturedStderr());
    std::cout << operations << " operations, " << acknowledged_changes << " acknowledged changes, "
              << completed << " unacknowledged ones complete, " << absent << " absent, " << cut_starts
              << " starts cut, " << idle_cuts << " cuts while idle\n";
  }
  // Of a run that found a violation.
  void PrintEndOfLog(const std::string& log) const {
    if (violation.empty()) return;
    std::cout << violation << ", and the end of the log is:\n"
              << log.substr(log.size() - std::min<std::size_t>(log.size(), 1000));
  }
  // The files in a directory of their own.
  void UseImage(const SimulatedDisk::Image& image) {
    if (!state.empty()) std::filesystem::remove_all(state);
    state = directory.path() + "/" + std::to_string(++states);
    std::filesystem::create_directory(state);
    for (const auto& [name, octets] : image) std::ofstream(state + "/" + name, std::ios::binary) << octets;
  }
  // --- A damaged database

  // Opens the files of the disk and returns a text of what is found, "" if the start fails.
  virtual std::string Find() = 0;

  // A damaged database is set aside, and what can be read in it is in a new one. A power cut anywhere
  // meanwhile changes nothing of that, and the damaged file is always there.
  void CutSalvages(const std::string& database, std::size_t cuts) {
    PrintSeed();
    ::testing::internal::CaptureStderr();
    for (lives = 0; lives < cuts && violation.empty();) {
      const SimulatedDisk::Image damaged = MakeDamaged(database);
      const std::string expected = FindAfterCuts(damaged, 0);
      operations = disk.operations();
      const std::string aside = ReadFile(state + "/" + database + ".unusable.1");
      if (aside.empty()) continue;  // the log has the page, or nothing uses it
      const bool first = lives == 0;
      for (int trial = 0; trial < 10 && violation.empty(); ++trial, ++lives)
        CheckSalvage(damaged, expected, aside, 1 + Below(2), 0);
      // Every operation of one salvage, several times because what is found after a cut is random.
      for (std::uint64_t trial = 0; first && trial < 5 * operations && violation.empty(); ++trial)
        CheckSalvage(damaged, expected, aside, 1, 1 + trial % operations);
    }
    PrintEndOfLog(::testing::internal::GetCapturedStderr());
  }
  void CheckSalvage(const SimulatedDisk::Image& damaged, const std::string& expected,
                    const std::string& aside, std::uint64_t cuts, std::uint64_t operation) {
    const std::string found = FindAfterCuts(damaged, cuts, operation);
    if (found != expected) Violate("found " + found + "instead of " + expected);
    CheckPresent(aside);
  }
  SimulatedDisk::Image MakeDamaged(const std::string& database) {
    ForgetAll();
    disk.load({});
    for (std::uint64_t left = 1 + Below(4); left > 0; --left) {
      NextState();
      if (left == 1) disk.cut_power_at(20 + Below(200));
      Live();
    }
    SimulatedDisk::Image image = disk.return_power();
    std::string& octets = image[database];
    if (octets.empty()) return MakeDamaged(database);
    const std::size_t page = Below(octets.size() / kPage + 1) * kPage;
    octets.replace(page, kPage / 2, std::string(kPage / 2, '\x55'));
    return image;
  }
  // Cuts the power at that operation, or at a random one.
  std::string FindAfterCuts(const SimulatedDisk::Image& image, std::uint64_t cuts,
                            std::uint64_t operation = 0) {
    disk.load(image);
    UseImage(image);
    for (; cuts > 0; --cuts) {
      disk.cut_power_at(operation > 0 ? operation : 1 + Below(operations));
      static_cast<void>(Find());
      UseImage(disk.return_power());
    }
    return Find();
  }
  static std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  void CheckPresent(const std::string& octets) {
    for (const auto& file : std::filesystem::directory_iterator(state)) {
      if (ReadFile(file.path()) == octets) return;
    }
    Violate("the damaged file is lost");
  }

  void Violate(const std::string& what) {
    if (violation.empty()) violation = "life " + std::to_string(lives) + ": " + what;
  }
  // Whether the start failed for lack of power, or a violation.
  bool IsCut(bool started) {
    if (disk.has_power() && !started) Violate("a start fails");
    if (!disk.has_power()) ++cut_starts;
    return !started || !disk.has_power();
  }
  void CheckFiles(const std::set<std::string>& names) {
    for (const auto& file : std::filesystem::directory_iterator(state)) {
      if (!names.contains(file.path().filename())) Violate("there is a file " + file.path().string());
    }
  }
  void WorkInSteps(std::uint64_t steps) const {
    std::array<unsigned char, 1024> buffer;
    EventContext context{manager, buffer.data(), buffer.size(), 0};
    for (; steps > 0 && event_wait_for(&context, 0) == 0; --steps) event_dispatch(&context);
  }

  SimulatedDisk disk;
  PowerVfs vfs{&disk};
  DirectoryInMemory directory;
  EventManager* manager = nullptr;
  std::string state;
  std::string violation;
  std::size_t states = 0;
  std::size_t lives = 0;
  std::size_t operations = 0;
  std::size_t acknowledged_changes = 0;
  std::size_t completed = 0;
  std::size_t absent = 0;
  std::size_t cut_starts = 0;
  std::size_t idle_cuts = 0;

 private:
  void StartWithNothing() {
    disk.load({});
    ForgetAll();
  }
  void NextState() { UseImage(disk.return_power()); }
};

}  // namespace power
