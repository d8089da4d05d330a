// What a power cut leaves on the simulated disk.
#include "tests/power/simulated_disk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

namespace power {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Gt;
using ::testing::SizeIs;

const std::string kOld(2 * kSector, 'o');
const std::string kNew(2 * kSector, 'n');
const std::string kHalf = std::string(kSector, 'o') + std::string(kSector, 'n');
const std::string kOtherHalf = std::string(kSector, 'n') + std::string(kSector, 'o');
const std::string kLost = "lost";

// What is found of the file "a" after a cut at the end of what `program` does, with many seeds.
template <typename Program>
std::set<std::string> FoundAfter(Program program) {
  std::set<std::string> found;
  for (Random::result_type seed = 0; seed < 300; ++seed) {
    SimulatedDisk disk(seed);
    program(&disk);
    const SimulatedDisk::Image image = disk.return_power();
    found.insert(image.contains("a") ? image.at("a") : kLost);
  }
  return found;
}

SimulatedDisk::File MakeSynchronized(SimulatedDisk* disk) {
  SimulatedDisk::File file = 0;
  EXPECT_TRUE(disk->open("a", &file) && disk->write(file, 0, kOld));
  EXPECT_TRUE(disk->synchronize(file) && disk->synchronize_directory());
  return file;
}

TEST(SimulatedDisk, SynchronizedWritesAreFound) {
  EXPECT_THAT(FoundAfter([](SimulatedDisk* disk) {
                const SimulatedDisk::File file = MakeSynchronized(disk);
                EXPECT_TRUE(disk->write(file, 0, kNew) && disk->synchronize(file));
              }),
              ::testing::ElementsAre(kNew));
}

TEST(SimulatedDisk, OtherWritesAreFoundWhollyPartlyOrNot) {
  EXPECT_THAT(
      FoundAfter([](SimulatedDisk* disk) { EXPECT_TRUE(disk->write(MakeSynchronized(disk), 0, kNew)); }),
      ::testing::UnorderedElementsAre(kOld, kNew, kHalf, kOtherHalf));
}

TEST(SimulatedDisk, LaterWriteMayBeFoundWithoutAnEarlierOne) {
  EXPECT_THAT(FoundAfter([](SimulatedDisk* disk) {
                const SimulatedDisk::File file = MakeSynchronized(disk);
                EXPECT_TRUE(disk->write(file, 0, kNew.substr(kSector)) &&
                            disk->write(file, kSector, kNew.substr(kSector)));
              }),
              AllOf(Contains(kHalf), Contains(kOtherHalf)));
}

TEST(SimulatedDisk, SizeMayBeOldOrNewWhateverIsWritten) {
  const std::set<std::string> found = FoundAfter(
      [](SimulatedDisk* disk) { EXPECT_TRUE(disk->write(MakeSynchronized(disk), kOld.size(), kNew)); });
  EXPECT_THAT(found, AllOf(Contains(kOld), Contains(kOld + kNew),
                           Contains(kOld + std::string(kNew.size(), '\0')), SizeIs(Gt(8U))));
}

TEST(SimulatedDisk, TruncationMayBeUndone) {
  EXPECT_THAT(
      FoundAfter([](SimulatedDisk* disk) { EXPECT_TRUE(disk->truncate(MakeSynchronized(disk), kSector)); }),
      AllOf(Contains(kOld), Contains(kOld.substr(kSector))));
}

TEST(SimulatedDisk, EntryOfTheDirectoryIsSafeOnceThatIsSynchronized) {
  const auto make = [](SimulatedDisk* disk) {
    SimulatedDisk::File file = 0;
    EXPECT_TRUE(disk->open("a", &file) && disk->write(file, 0, kNew) && disk->synchronize(file));
  };
  EXPECT_THAT(FoundAfter(make), ::testing::UnorderedElementsAre(kLost, kNew));
  EXPECT_THAT(FoundAfter([&](SimulatedDisk* disk) {
                make(disk);
                EXPECT_TRUE(disk->synchronize_directory());
              }),
              ::testing::ElementsAre(kNew));
}

TEST(SimulatedDisk, RemovedFileMayReturn) {
  EXPECT_THAT(FoundAfter([](SimulatedDisk* disk) {
                MakeSynchronized(disk);
                EXPECT_TRUE(disk->remove("a"));
              }),
              ::testing::UnorderedElementsAre(kLost, kOld));
}

TEST(SimulatedDisk, FileHasOneOfItsNamesAfterARename) {
  std::set<std::size_t> files;
  EXPECT_THAT(FoundAfter([&](SimulatedDisk* disk) {
                MakeSynchronized(disk);
                EXPECT_TRUE(disk->rename("a", "b"));
                files.insert(SimulatedDisk(*disk).return_power().size());
              }),
              ::testing::UnorderedElementsAre(kLost, kOld));
  EXPECT_THAT(files, ::testing::ElementsAre(1U));
}

TEST(SimulatedDisk, OperationsFailFromTheCutUntilPowerReturns) {
  SimulatedDisk disk(1);
  const SimulatedDisk::File file = MakeSynchronized(&disk);
  disk.cut_power_at(2);
  EXPECT_TRUE(disk.write(file, 0, kNew));
  EXPECT_FALSE(disk.synchronize(file));
  EXPECT_FALSE(disk.has_power());
  EXPECT_FALSE(disk.write(file, 0, kNew));
  static_cast<void>(disk.return_power());
  SimulatedDisk::File again = 0;
  EXPECT_TRUE(disk.has_power() && disk.open("a", &again) && disk.write(again, 0, kNew));
}

// So nothing is left to chance at the next cut that an earlier one has decided.
TEST(SimulatedDisk, WhatIsFoundStays) {
  SimulatedDisk disk(2);
  EXPECT_TRUE(disk.write(MakeSynchronized(&disk), 0, kNew));
  const SimulatedDisk::Image image = disk.return_power();
  for (int cut = 0; cut < 20; ++cut) EXPECT_EQ(disk.return_power(), image);
}

TEST(SimulatedDisk, IgnoredSynchronizationSavesNothing) {
  EXPECT_THAT(FoundAfter([](SimulatedDisk* disk) {
                disk->ignore_synchronization();
                MakeSynchronized(disk);
              }),
              Contains(kLost));
}

}  // namespace
}  // namespace power
