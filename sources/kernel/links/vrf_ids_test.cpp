// Tests of the ids of VRFs over restarts of the daemon.
#include "sources/kernel/links/vrf_ids.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>
#include <string>
#include <vector>

#include "platform/core/base/fault.h"
#include "platform/core/chkpt/chkpt.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/core/files/temporary_directory.h"
#include "sources/kernel/links/reconciler.h"
#include "sources/kernel/test_support.h"

namespace kernel {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class VrfIdsTest : public ::testing::Test {
 protected:
  struct Run {
    explicit Run(const std::string& file) : reconciler(&model, file) {}
    router::Router model;
    Reconciler reconciler;
  };

  VrfIdsTest() { Restart(); }
  void Restart() {
    run_ = std::make_unique<Run>(file_);
    Mirror found;
    found.replace(std::exchange(mirror_, {}));
    mirror_ = std::move(found);
    Settle();
  }
  void Settle() { run_->reconciler.run(mirror_, mirror_.take_changes()); }

  // The daemon does not see it before Settle() or Restart().
  void AddUnseen(const std::string& name, std::uint32_t index, std::uint32_t table) {
    mirror_.apply(LinkSeen{VrfLink(name, index, table)});
  }
  void Add(const std::string& name, std::uint32_t index, std::uint32_t table) {
    AddUnseen(name, index, table);
    Settle();
  }
  void DeleteUnseen(std::uint32_t index) { mirror_.apply(LinkRemoved{index}); }
  std::string File() const {
    std::ifstream file(file_);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::vector<std::uint32_t> Ids(const std::vector<std::string>& names) const {
    std::vector<std::uint32_t> ids;
    for (const std::string& name : names) {
      const router::Vrf* vrf = run_->model.find_vrf(name);
      ids.push_back(vrf == nullptr ? 0 : vrf->id);
    }
    return ids;
  }

  TemporaryDirectory folder_;
  std::string file_ = folder_.path() + "/vrf_ids";
  Mirror mirror_;
  std::unique_ptr<Run> run_;
};

TEST_F(VrfIdsTest, VrfsOfOneTableKeepTheirIdsWithAnyIndexes) {
  Add("red", 9, 10);
  Add("low", 2, 10);
  Add("high", 30, 10);
  ASSERT_THAT(Ids({"red", "low", "high"}), ElementsAre(10, 0x8000000a, 0x8000000b));
  Restart();
  EXPECT_THAT(Ids({"red", "low", "high"}), ElementsAre(10, 0x8000000a, 0x8000000b));
  Restart();
  EXPECT_THAT(Ids({"red", "low", "high"}), ElementsAre(10, 0x8000000a, 0x8000000b));
}

TEST_F(VrfIdsTest, SecondVrfKeepsItsIdWhenTheFirstIsDeletedBeforeTheRestart) {
  Add("red", 2, 10);
  Add("dup", 9, 10);
  DeleteUnseen(2);
  Settle();
  Restart();
  EXPECT_THAT(Ids({"dup"}), ElementsAre(0x8000000a));
}

TEST_F(VrfIdsTest, SecondVrfKeepsItsIdWhenTheFirstIsDeletedMeanwhile) {
  Add("red", 2, 10);
  Add("dup", 9, 10);
  DeleteUnseen(2);
  Restart();
  EXPECT_THAT(Ids({"dup"}), ElementsAre(0x8000000a));
}

TEST_F(VrfIdsTest, VrfThatReusesATableDoesNotGetTheIdOfTheFormerOne) {
  Add("red", 2, 10);
  DeleteUnseen(2);
  AddUnseen("new", 2, 10);
  Restart();
  EXPECT_THAT(Ids({"new"}), ElementsAre(0x8000000a));
}

TEST_F(VrfIdsTest, VrfOfTheSameNameWithAnotherTableDoesNotGetTheIdOfTheFormerOne) {
  Add("red", 2, 10);
  DeleteUnseen(2);
  AddUnseen("red", 2, 20);
  AddUnseen("new", 3, 10);
  Restart();
  EXPECT_THAT(Ids({"red", "new"}), ElementsAre(20, 0x8000000a));
}

TEST_F(VrfIdsTest, IdOfAVrfThatIsNotFoundIsFreeAfterTheStart) {
  Add("red", 2, 10);
  DeleteUnseen(2);
  Restart();
  Add("new", 3, 10);
  EXPECT_THAT(Ids({"new"}), ElementsAre(10));
}

// The record of a configured VRF outlives it, and so do the checkpoint's records under its id.
TEST_F(VrfIdsTest, ConfiguredVrfCreatedAgainWithAnotherTableKeepsItsId) {
  Add("red", 2, 10);
  ASSERT_EQ(run_->model.reference_vrf("red"), kStatusOk);
  DeleteUnseen(2);
  Add("red", 3, 20);
  Add("new", 4, 10);
  EXPECT_THAT(Ids({"red", "new"}), ElementsAre(10, 0x8000000a));
}

TEST_F(VrfIdsTest, IdOfAConfiguredVrfThatWasDeletedIsNotGivenToAnother) {
  Add("red", 2, 10);
  ASSERT_EQ(run_->model.reference_vrf("red"), kStatusOk);
  DeleteUnseen(2);
  Add("new", 4, 10);
  EXPECT_THAT(Ids({"new"}), ElementsAre(0x8000000a));
  Add("red", 3, 20);
  EXPECT_THAT(Ids({"red"}), ElementsAre(10));
}

TEST_F(VrfIdsTest, IdOfAConfiguredVrfThatWasDeletedIsNotGivenToAnotherThatWasCreatedMeanwhile) {
  Add("red", 2, 10);
  ASSERT_EQ(run_->model.reference_vrf("red"), kStatusOk);
  DeleteUnseen(2);
  Settle();
  AddUnseen("new", 4, 10);
  Restart();
  EXPECT_THAT(Ids({"new"}), ElementsAre(0x8000000a));
}

TEST_F(VrfIdsTest, IdOfADeletedVrfIsFreeWhenItIsNoLongerConfigured) {
  Add("red", 2, 10);
  ASSERT_EQ(run_->model.reference_vrf("red"), kStatusOk);
  DeleteUnseen(2);
  Settle();
  ASSERT_EQ(run_->model.unreference_vrf("red"), kStatusOk);
  Add("new", 4, 10);
  EXPECT_THAT(Ids({"new"}), ElementsAre(10));
}

TEST_F(VrfIdsTest, WithoutTheFileTheLowerIndexHasTheTable) {
  Add("red", 9, 10);
  Add("low", 2, 10);
  std::ofstream(file_, std::ios::trunc) << "no id\n0 10 low\n7\n";
  testing::internal::CaptureStderr();
  Restart();
  EXPECT_EQ(
      testing::internal::GetCapturedStderr(),
      "kernel: " + file_ + ": ignored damaged lines: 3; VRFs that share a table may exchange their times\n");
  EXPECT_THAT(Ids({"red", "low"}), ElementsAre(0x8000000a, 10));
}

TEST_F(VrfIdsTest, FileOfTheFormerReleaseIsRead) {
  Add("red", 9, 10);
  Add("low", 2, 10);
  std::ofstream(file_, std::ios::trunc) << "# mpls_vpn_mib VRF ids: id, table, name\n77 10 red\n10 10 low\n";
  Restart();
  EXPECT_THAT(Ids({"red", "low"}), ElementsAre(77, 10));
}

TEST_F(VrfIdsTest, FlippedBitCostsNoVrfItsId) {
  Add("red", 2, 10);
  Add("blue", 3, 11);
  const std::string whole = File();
  for (std::size_t bit = 0; bit < 8 * whole.size(); ++bit) {
    std::string damaged = whole;
    damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << (bit % 8)));
    std::ofstream(file_, std::ios::trunc) << damaged;
    testing::internal::CaptureStderr();
    Restart();
    const std::string log = testing::internal::GetCapturedStderr();
    ASSERT_THAT(Ids({"red", "blue"}), ElementsAre(10, 11)) << damaged;
    ASSERT_THAT(log, HasSubstr(file_ + ": ignored damaged lines: ")) << damaged;
  }
}

TEST_F(VrfIdsTest, FailedWriteIsRetriedByALaterRun) {
  Add("red", 9, 10);
  {
    const ScopedFault fault("replace_file", ENOSPC, 1, 0);
    Add("low", 2, 10);
  }
  Settle();
  Restart();
  EXPECT_THAT(Ids({"red", "low"}), ElementsAre(10, 0x8000000a));
}

// With an open checkpoint.
class VrfIdsBeforeCommits : public VrfIdsTest {
 protected:
  VrfIdsBeforeCommits() : manager_(event_manager_create("/dev/mpls/vpn/main", 0)) {
    ChkptApplication application{};
    chkpt_application_init(&application, 1, "test");
    EXPECT_EQ(chkpt_init(&application, manager_), kStatusOk);
    ChkptTableDescriptor descriptor{};
    chkpt_table_init(&descriptor, 1, 1, 0, 1, 0);
    bool had_contents = false;
    EXPECT_EQ(chkpt_register(&descriptor, 1, &table_, &had_contents), kStatusOk);
  }
  ~VrfIdsBeforeCommits() override {
    run_.reset();
    chkpt_end();
    event_manager_destroy(manager_);
  }
  // The checkpoint has a record, on the disk.
  void Commit(std::uint32_t key) {
    std::uint64_t object_id = 0;
    ASSERT_EQ(chkpt_create(table_, &key, sizeof key, &object_id), kStatusOk);
    ASSERT_EQ(chkpt_flush(), kStatusOk);
  }

  TestRunDirectory directory_;
  EventManager* manager_;
  ChkptTable* table_ = nullptr;
};

TEST_F(VrfIdsBeforeCommits, AreNotWrittenByTheCaller) {
  const std::string before = File();
  Add("red", 9, 10);
  EXPECT_EQ(File(), before);
  Commit(1);
  EXPECT_THAT(File(), HasSubstr("10 10 red"));
}

TEST_F(VrfIdsBeforeCommits, NeedNoOtherChange) {
  Add("red", 9, 10);
  ASSERT_EQ(chkpt_flush(), kStatusOk);
  EXPECT_THAT(File(), HasSubstr("10 10 red"));
}

TEST_F(VrfIdsBeforeCommits, AreWrittenBeforeACommitWithinTheCreationOfManyVrfs) {
  AddUnseen("red", 9, 10);
  AddUnseen("low", 11, 10);
  run_->reconciler.begin(mirror_, mirror_.take_changes());
  while (run_->model.find_vrf("low") == nullptr) run_->reconciler.step(1);
  ASSERT_FALSE(run_->reconciler.is_done());
  Commit(1);
  EXPECT_THAT(File(), HasSubstr("10 10 red"));
  EXPECT_THAT(File(), HasSubstr("2147483658 10 low"));
  while (!run_->reconciler.is_done()) run_->reconciler.step(1);
}

TEST_F(VrfIdsBeforeCommits, FailedWriteIsRetriedByALaterRun) {
  {
    const ScopedFault fault("replace_file", ENOSPC, 1, 0);
    testing::internal::CaptureStderr();
    Add("red", 9, 10);
    Commit(1);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("vrf_ids: No space left on device"));
  }
  Settle();
  Commit(2);
  EXPECT_THAT(File(), HasSubstr("10 10 red"));
}

TEST_F(VrfIdsBeforeCommits, AreWrittenWhenTheSourceEndsFirst) {
  Add("red", 9, 10);
  run_.reset();
  EXPECT_THAT(File(), HasSubstr("10 10 red"));
}

TEST_F(VrfIdsTest, FileThatCannotBeReadIsLogged) {
  ASSERT_EQ(mkfifo((file_ + ".fifo").c_str(), 0600), 0);
  testing::internal::CaptureStderr();
  const VrfIds ids(file_ + ".fifo");
  EXPECT_EQ(
      testing::internal::GetCapturedStderr(),
      "kernel: " + file_ +
          ".fifo: it is a FIFO, not a regular file; VRFs that share a table may exchange their times\n");
}

}  // namespace
}  // namespace kernel
