// The file source on an event loop: loads, reacts to changes of the file, and serves the action "router".
#include "sources/file/file_source.h"

#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/store/tree/actions.h"
#include "sources/file/watched_router_test_support.h"

namespace {

using ::testing::HasSubstr;

TEST_F(WatchedRouter, RdsInTheModelAreAttributedToTheRouterFile) {
  EXPECT_EQ(router_->rd_owner(), kConfigOwnerFile);
}

TEST_F(WatchedRouter, MissingFileIsAnError) {
  EXPECT_EQ(Load(), kStatusNoSuchRow);
  EXPECT_EQ(error_, path_ + ": No such file or directory");
}

TEST_F(WatchedRouter, FolderInThePlaceOfTheFileIsAnError) {
  std::filesystem::create_directory(path_);
  EXPECT_EQ(Load(), kStatusInvalid);
  EXPECT_EQ(error_, path_ + ": it is a directory, not a regular file");
}

TEST_F(WatchedRouter, FifoInThePlaceOfTheFileHoldsUpNeitherLoadNorWatch) {
  StartWith(kRed);
  ASSERT_EQ(mkfifo((path_ + ".fifo").c_str(), 0600), 0);
  std::filesystem::rename(path_ + ".fifo", path_);
  testing::internal::CaptureStderr();
  EXPECT_TRUE(event_run_pending(manager_, kEventBound));
  EXPECT_TRUE(ReadEnds());
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            path_ + ": it is a FIFO, not a regular file (nothing was changed)\n");
  EXPECT_EQ(Load(), kStatusInvalid);
  Replace(kBlue);
  EXPECT_TRUE(Appears("blue"));
}

TEST_F(WatchedRouter, FileBeyondTheBoundIsRefused) {
  Write("vrfs: []\n");
  std::filesystem::resize_file(path_, (64U << 20) + 1);
  EXPECT_EQ(Load(), kStatusMessageTooLarge);
}

TEST_F(WatchedRouter, InvalidFileIsReportedWithThePositionAndChangesNothing) {
  LoadWell(kRed);
  Write("vrfs:\n  - {name: blue, id: 20}\n  - {name: green, id: x}\n");
  EXPECT_EQ(Load(), kStatusInvalid);
  EXPECT_EQ(error_, path_ + ":3:23: a VRF's id is a number from 2 to 4294967295, not \"x\"");
  EXPECT_TRUE(Has("red"));
  EXPECT_FALSE(Has("blue"));
}

TEST_F(WatchedRouter, FactsHaveTheErrorOfAnInvalidFileUntilItIsLoaded) {
  StartWith(kRed);
  const std::uint64_t loaded = source_->facts().at(0).last_answer;
  EXPECT_NE(loaded, 0U);
  EXPECT_TRUE(source_->facts()[0].is_up);
  Replace("vrfs: [{name: green, id: x}]\n");
  EXPECT_TRUE(event_run_pending(manager_, kEventBound));
  EXPECT_TRUE(ReadEnds());
  const process_status::SourceFact invalid = source_->facts().at(0);
  EXPECT_EQ(invalid.name, "file");
  EXPECT_FALSE(invalid.is_up);
  EXPECT_EQ(invalid.problem, path_ + ":1:26: a VRF's id is a number from 2 to 4294967295, not \"x\"");
  EXPECT_EQ(invalid.last_answer, loaded);
  Replace(kBlue);
  EXPECT_TRUE(Appears("blue"));
  EXPECT_TRUE(ReadEnds());
  EXPECT_TRUE(source_->facts().at(0).is_up);
  EXPECT_EQ(source_->facts()[0].problem, "");
}

TEST_F(WatchedRouter, FailedLoadIsReported) {
  Write(kRed);
  const ScopedFault fault("file_source_load", kStatusIo);
  EXPECT_EQ(Load(), kStatusIo);
  EXPECT_EQ(error_, path_ + ": Input/output error");
}

TEST_F(WatchedRouter, ChangeThatTheModelRefusesIsReported) {
  Write(kRed);
  const ScopedFault fault("router_create_vrf", kStatusNoMemory);
  EXPECT_EQ(Load(), kStatusNoMemory);
  EXPECT_EQ(error_, path_ + ": cannot create VRF red: Cannot allocate memory");
}

TEST_F(WatchedRouter, FileWrittenInPlaceIsLoadedAgain) {
  StartWith(kRed);
  Write(kBlue);
  EXPECT_TRUE(Appears("blue"));
  EXPECT_FALSE(Has("red"));
}

TEST_F(WatchedRouter, ReplacedFileIsLoadedAgainAndAgain) {
  StartWith(kRed);
  Replace(kBlue);
  EXPECT_TRUE(Appears("blue"));
  Replace(kRed);
  EXPECT_TRUE(Appears("red"));
}

TEST_F(WatchedRouter, FileThatIsBeingWrittenIsNotLoaded) {
  StartWith(kRed);
  {
    std::ofstream half(path_);
    half << "vrfs: []\n" << std::flush;
    event_run_pending(manager_);
    EXPECT_TRUE(Has("red"));
    half << "generate: {vrfs: 1, interfaces_per_vrf: 0}\n";
  }
  EXPECT_TRUE(Appears("customer-00001"));
}

TEST_F(WatchedRouter, OtherFilesOfTheFolderAreIgnored) {
  StartWith(kRed);
  router::Vrf added;
  added.name = "added";
  added.id = 99;
  ASSERT_EQ(router_->create_vrf(added), kStatusOk);
  std::ofstream(folder_ + "/etc/router.yaml.swp") << kBlue;
  event_run_pending(manager_);
  EXPECT_FALSE(source_->is_reading());
  EXPECT_TRUE(Has("added")) << "a load would remove it";
}

TEST_F(WatchedRouter, RemovedFileChangesNothing) {
  StartWith(kRed);
  std::filesystem::remove(path_);
  event_run_pending(manager_);
  EXPECT_FALSE(source_->is_reading());
  EXPECT_TRUE(Has("red"));
}

TEST_F(WatchedRouter, ErrorInAChangedFileIsLoggedAndChangesNothing) {
  StartWith(kRed);
  testing::internal::CaptureStderr();
  Write("vrfs: [{name: red}]\n");
  EXPECT_TRUE(event_run_pending(manager_, kEventBound));  // the change is noticed, possibly already read
  EXPECT_TRUE(ReadEnds());
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr(path_ + ":1:8: the VRF \"red\" needs an id or a table (nothing was changed)"));
  EXPECT_TRUE(Has("red"));
}

TEST_F(WatchedRouter, LoopRunsWhileTheFileIsRead) {
  StartWith(kRed);
  ReadBlueSlowly();
  bool ran = false;
  event_post(manager_, [&ran] { ran = true; });
  EXPECT_TRUE(event_run_pending(manager_, kEventBound));
  EXPECT_TRUE(ran);
  EXPECT_TRUE(Has("red"));
  slow_.Deliver();
  EXPECT_TRUE(Appears("blue"));
}

TEST_F(WatchedRouter, ChangeDuringAReadReplacesItsResult) {
  StartWith(kRed);
  ReadBlueSlowly();
  Replace("vrfs: [{name: green, id: 30}]\n");
  EXPECT_TRUE(event_run_pending(manager_, kEventBound));
  slow_.Deliver();
  while (!Has("green")) {
    ASSERT_TRUE(event_run_pending(manager_, kEventBound));
    EXPECT_FALSE(Has("blue"));
  }
}

TEST_F(WatchedRouter, ReadIsDroppedWhenALoadIsNewer) {
  StartWith(kRed);
  ReadBlueSlowly();
  Replace("vrfs: [{name: green, id: 30}]\n");
  ASSERT_EQ(Load(), kStatusOk) << error_;  // before the change is noticed
  slow_.Deliver();
  Replace("vrfs: [{name: white, id: 40}]\n");
  while (!Has("white")) {
    ASSERT_TRUE(event_run_pending(manager_, kEventBound));
    EXPECT_FALSE(Has("blue"));
  }
}

TEST_F(LargeRouter, ChangedFileIsAppliedInStepsBetweenOtherWork) {
  BeginLargeChange();
  unsigned iterations = 0;
  for (; router_->interface_count() < kInterfaces; ++iterations) ASSERT_TRUE(run_once(manager_));
  EXPECT_GE(iterations, 30U);
  EXPECT_TRUE(ReadEnds());
  EXPECT_EQ(router_->vrf_count(), 1000U);
}

TEST_F(LargeRouter, FileThatChangesWhileItIsAppliedIsAppliedNext) {
  BeginLargeChange();
  Replace(kBlue);
  ExpectBlueAlone();
}

TEST_F(LargeRouter, LoadWhileAFileIsAppliedReplacesTheRest) {
  BeginLargeChange();
  LoadWell(kBlue);
  EXPECT_FALSE(source_->is_reading());
  ExpectBlueAlone();
}

TEST_F(LargeRouter, RefusedStepEndsTheApplicationAndTheNextOneContinues) {
  BeginLargeChange();
  {
    const ScopedFault fault("reconcile", kStatusNoMemory);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(ReadEnds());
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr(": Cannot allocate memory (it is tried again)"));
    EXPECT_LT(router_->interface_count(), kInterfaces);
  }
  Replace(kBlue);
  ExpectBlueAlone();
}

TEST_F(LargeRouter, SourceMayBeDestroyedWhileAFileIsApplied) {
  BeginLargeChange();
  const std::size_t vrfs = router_->vrf_count();
  source_.reset();
  event_run_pending(manager_);
  EXPECT_EQ(router_->vrf_count(), vrfs);
}

TEST_F(WatchedRouter, ForgottenReadIsNotRepeated) {
  manager_ = event_manager_create(kMainManager, 0);
  router_file::BackgroundReader reader(
      manager_, path_, [](const router_file::Reading&) { ADD_FAILURE(); }, slow_.Function());
  Write(kRed);
  slow_.HoldNext();
  reader.start();
  slow_.AwaitRead();
  reader.start();
  reader.forget();
  slow_.Deliver();
  EXPECT_TRUE(event_run_pending(manager_, kEventBound));  // the first read ends
  EXPECT_FALSE(reader.is_reading());
}

TEST_F(WatchedRouter, DestroyedSourceWaitsForItsRead) {
  StartWith(kRed);
  ReadBlueSlowly();
  std::thread ending([this] { source_.reset(); });
  slow_.Deliver();
  ending.join();
  event_run_pending(manager_);
  EXPECT_FALSE(Has("blue"));
}

TEST_F(WatchedRouter, ChangeThatNoThreadCanReadIsLoggedAndTheNextOneIsRead) {
  StartWith(kRed);
  testing::internal::CaptureStderr();
  {
    const ScopedFault fault("file_reader_thread", kStatusNoMemory);
    Replace(kBlue);
    EXPECT_TRUE(event_run_pending(manager_, kEventBound));
  }
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(path_ + ": no thread to read it: "));
  EXPECT_FALSE(source_->is_reading());
  EXPECT_TRUE(Has("red"));
  Replace(kBlue);
  EXPECT_TRUE(Appears("blue"));
}

TEST_F(WatchedRouter, RemovedFolderIsLogged) {
  StartWith(kRed);
  testing::internal::CaptureStderr();
  std::filesystem::remove_all(folder_ + "/etc");
  EXPECT_TRUE(event_run_pending(manager_, kEventBound));
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("changes of router.yaml are not noticed any more"));
  EXPECT_TRUE(Has("red"));
}

TEST_F(WatchedRouter, FailedStartCanBeRepeated) {
  Write(kRed);
  manager_ = event_manager_create(kMainManager, 0);
  ASSERT_NE(manager_, nullptr);
  for (const char* operation :
       {"file_source_start", "folder_watch_start", "event_fd_add", "kvtree_register_action"}) {
    const ScopedFault fault(operation, kStatusIo);
    EXPECT_EQ(source_->start(manager_), kStatusIo) << operation;
  }
  EXPECT_EQ(source_->start(manager_), kStatusOk);
  EXPECT_EQ(source_->start(manager_), kStatusExists);
}

TEST_F(WatchedRouter, FolderThatCannotBeWatchedIsAnError) {
  manager_ = event_manager_create(kMainManager, 0);
  ASSERT_NE(manager_, nullptr);
  FileSource nowhere(router_.get(), folder_ + "/nowhere/router.yaml");
  EXPECT_EQ(nowhere.start(manager_), kStatusNoSuchRow);
}

TEST_F(WatchedRouter, ActionEndsWithTheSource) {
  StartWith(kRed);
  source_.reset();
  const KvAction another = [](const KvActionContext&, const std::vector<std::string>&, std::string*, void*) {
    return kStatusOk;
  };
  EXPECT_EQ(kvtree_register_action("router", another, nullptr), kStatusOk);
}

}  // namespace
