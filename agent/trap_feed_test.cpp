// Traps on their way from the daemon to the master agent, while each of the three processes ends.
#include "agent/trap_feed.h"

#include <gmock/gmock.h>

#include <filesystem>

#include "agent/sub_agent_test_support.h"

namespace {

using agent_test::kTrapLimit;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class TrapFeedTest : public agent_test::SubAgentTest {
 protected:
  void Come() {
    daemon_.Start(5);
    RunUntilRegistered();
  }
  // The daemon's process answers in its own time: waits for it, bounded by the time-outs of the calls.
  void RunUntilRegistered() {
    for (int i = 0; i < 50 && !sub_agent_.registered(); ++i) {
      Pass(1000);
      Run();
    }
    ASSERT_TRUE(sub_agent_.registered());
    Run();
  }
  // Runs until so many Notifies have come; more would come too.
  void Expect(std::size_t count) {
    for (int i = 0; i < 500 && notifies_.size() < count; ++i) {
      sub_agent_.run_once(-1, 10);
      Run();
    }
    Run();
    EXPECT_EQ(notifies_.size(), count);
  }
  // The traps' numbers of current routes, which identify them.
  std::vector<unsigned long> Numbers() const {
    std::vector<unsigned long> numbers;
    for (const std::string& text : notifies_) {
      const std::string name = "1.3.6.1.2.1.10.166.11.1.3.1.1.3.3.82.69.68=";
      const std::size_t at = text.find(name);
      numbers.push_back(at == std::string::npos ? 0 : std::stoul(text.substr(at + name.size())));
    }
    return numbers;
  }
  static std::vector<unsigned long> Range(unsigned long first, unsigned long last) {
    std::vector<unsigned long> all;
    for (unsigned long i = first; i <= last; ++i) all.push_back(i);
    return all;
  }
  // Takes the subscription of the sub-agent over.
  void SubscribeAs(kvtree::Client* other) {
    ASSERT_EQ(other->connect(), kStatusOk);
    ASSERT_EQ(other->subscribe("/oper/mpls_vpn/gl/", "snmp").status, kStatusOk);
  }
  void AnswerAll(agentx::Error error = agentx::Error::kNone) {
    for (const agentx::Header& header : std::exchange(unanswered_, {})) Answer(header, error);
  }
};

TEST_F(TrapFeedTest, TrapBecomesANotificationWithItsObjects) {
  Come();
  daemon_.RaiseTraps(0, "RED", 7);
  Expect(1);
  EXPECT_EQ(notifies_[0],
            "1.3.6.1.6.3.1.1.4.1.0=1.3.6.1.2.1.10.166.11.0.1 "
            "1.3.6.1.2.1.10.166.11.1.2.1.1.5.3.82.69.68.7=1 1.3.6.1.2.1.10.166.11.1.2.2.1.6.3.82.69.68=1");
}

TEST_F(TrapFeedTest, TrapsRaisedBeforeTheSubAgentStartedAreSentInOrder) {
  daemon_.Start(5);
  daemon_.RaiseTraps(2, "RED", 0, kTrapLimit);
  RunUntilRegistered();
  Expect(kTrapLimit);
  EXPECT_EQ(Numbers(), Range(1, kTrapLimit));
}

TEST_F(TrapFeedTest, NotifiesUnderWayAreBounded) {
  answers_notifies_ = false;
  Come();
  daemon_.RaiseTraps(2, "RED", 0, 50);
  Expect(agentx::Session::kMaxNotifies);
  answers_notifies_ = true;
  AnswerAll();
  Expect(50);
  EXPECT_EQ(Numbers(), Range(1, 50));
}

TEST_F(TrapFeedTest, NothingIsAcknowledgedBeforeTheMasterAnswered) {
  answers_notifies_ = false;
  Come();
  daemon_.RaiseTraps(2, "RED", 0, 3);
  Expect(3);
  // Another subscriber of this name is given what the daemon still keeps.
  kvtree::Client other(daemon_.socket(), std::chrono::milliseconds(5000));
  SubscribeAs(&other);
  EXPECT_EQ(other.next_notification(std::chrono::milliseconds(5000)).sequence, 1U);
}

TEST_F(TrapFeedTest, AnsweredTrapsAreAcknowledged) {
  Come();
  daemon_.RaiseTraps(2, "RED", 0, 3);
  Expect(3);
  kvtree::Client other(daemon_.socket(), std::chrono::milliseconds(5000));
  SubscribeAs(&other);
  EXPECT_EQ(other.next_notification(std::chrono::milliseconds(1)).status, kStatusTimedOut);
}

TEST_F(TrapFeedTest, UnansweredTrapsAreSentAgainToTheNextMasterInOrder) {
  answers_notifies_ = false;
  Come();
  daemon_.RaiseTraps(2, "RED", 0, 20);
  Expect(agentx::Session::kMaxNotifies);
  for (int i = 0; i < 3; ++i) Answer(unanswered_[static_cast<std::size_t>(i)], agentx::Error::kNone);
  Run();
  HangUp();
  notifies_.clear();
  unanswered_.clear();
  answers_notifies_ = true;
  Run();
  ASSERT_FALSE(sub_agent_.registered());
  RunUntilRegistered();
  Expect(17);
  EXPECT_EQ(Numbers(), Range(4, 20));
}

TEST_F(TrapFeedTest, TrapsWaitWhileTheMasterIsAway) {
  Come();
  HangUp();
  Run();
  daemon_.RaiseTraps(2, "RED", 0, 5);
  Run();
  EXPECT_THAT(notifies_, IsEmpty());
  RunUntilRegistered();
  Expect(5);
  EXPECT_EQ(Numbers(), Range(1, 5));
}

TEST_F(TrapFeedTest, LossIsCountedAndLogged) {
  daemon_.Start(5);
  daemon_.RaiseTraps(2, "RED", 0, kTrapLimit + 7);
  testing::internal::CaptureStderr();
  RunUntilRegistered();
  Expect(kTrapLimit);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("traps: 7 lost because the queue of the daemon was full, 7 since the start\n"));
  EXPECT_EQ(Numbers(), Range(8, kTrapLimit + 7));
}

TEST_F(TrapFeedTest, LostConnectionToTheDaemonNeitherLosesNorRepeats) {
  answers_notifies_ = false;
  Come();
  daemon_.RaiseTraps(2, "RED", 0, 3);
  Expect(3);
  {
    // Taking the subscription over and leaving again ends the sub-agent's connection, not the daemon.
    kvtree::Client other(daemon_.socket(), std::chrono::milliseconds(5000));
    SubscribeAs(&other);
  }
  Run();
  daemon_.RaiseTraps(2, "RED", 0, 1);
  Pass(1000);
  Run();
  Expect(4);
  EXPECT_THAT(Numbers(), ElementsAre(1, 2, 3, 1));
}

TEST_F(TrapFeedTest, TrapsOfADaemonThatEndedAreNotForgotten) {
  Come();
  HangUp();
  Run();
  daemon_.RaiseTraps(2, "RED", 0, 3);
  for (int i = 0; i < 10; ++i) sub_agent_.run_once(-1, 10);  // they come here
  daemon_.Kill();
  Run();
  daemon_.Start(5);
  Pass(1000);
  daemon_.RaiseTraps(3, "RED", 0, 2);
  RunUntilRegistered();
  Expect(5);
  EXPECT_EQ(Numbers(), (std::vector<unsigned long>{1, 2, 3, 1, 2}));
}

// A full disk loses acknowledgements, more of them than the daemon sends before it waits for some.
TEST_F(TrapFeedTest, TrapsThatTheDaemonForgotToBeDoneNeitherRepeatNorBlockOthers) {
  daemon_.StoreTraps();
  Come();
  HangUp();
  Run();
  daemon_.RaiseTraps(2, "RED", 0, 150);
  const std::string former = daemon_.trap_file() + ".former";
  std::filesystem::copy_file(daemon_.trap_file(), former);
  RunUntilRegistered();
  Expect(150);
  daemon_.Kill();
  std::filesystem::rename(former, daemon_.trap_file());
  Run();
  daemon_.Start(5);
  Pass(1000);
  daemon_.RaiseTraps(3, "RED", 0, 2);
  RunUntilRegistered();
  Expect(152);
  std::vector<unsigned long> numbers = Range(1, 150);
  numbers.insert(numbers.end(), {1, 2});
  EXPECT_EQ(Numbers(), numbers);
}

TEST_F(TrapFeedTest, RefusedAndUnreadableTrapsDoNotHoldUpTheOthers) {
  notify_error_ = agentx::Error::kProcessingError;
  Come();
  testing::internal::CaptureStderr();
  daemon_.RaiseTraps(2, "RED", 0, 1);
  Expect(1);
  notify_error_ = agentx::Error::kNone;
  daemon_.RaiseNonsense();
  daemon_.RaiseTraps(2, "RED", 0, 2);
  Expect(3);
  EXPECT_THAT(Numbers(), ElementsAre(1, 1, 2));
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_THAT(log, HasSubstr("traps: the master agent refused one: processingError\n"));
  EXPECT_THAT(log, HasSubstr("traps: cannot send one: "));
}

TEST_F(TrapFeedTest, MasterThatDoesNotKnowTheSessionIsOpenedAgain) {
  notify_error_ = agentx::Error::kNotOpen;
  Come();
  daemon_.RaiseTraps(2, "RED", 0, 1);
  Expect(1);
  EXPECT_FALSE(sub_agent_.registered());
  notify_error_ = agentx::Error::kNone;
  notifies_.clear();
  RunUntilRegistered();
  Expect(1);
  EXPECT_THAT(Numbers(), ElementsAre(1));
}

TEST_F(TrapFeedTest, MasterThatNeverAnswersIsDisconnected) {
  answers_notifies_ = false;
  Come();
  daemon_.RaiseTraps(2, "RED", 0, 1);
  Expect(1);
  Pass(30'000);
  Run();
  EXPECT_FALSE(sub_agent_.registered());
}

TEST_F(TrapFeedTest, NothingIsSubscribedBeforeTheMasterAcceptedTheRegistration) {
  daemon_.Start(5, true);
  Run();
  HangUp();
  kvtree::Client other(daemon_.socket(), std::chrono::milliseconds(5000));
  ASSERT_EQ(other.connect(), kStatusOk);
  agent::SubAgentOptions options = Options();
  options.connect_master = [] {
    errno = ECONNREFUSED;
    return -1;
  };
  agent::SubAgent refused(options);
  ASSERT_EQ(other.subscribe("/oper/mpls_vpn/gl/", "snmp").status, kStatusOk);
  for (int i = 0; i < 5; ++i) {
    Pass(1000);
    refused.run_once(-1, 0);
  }
  EXPECT_EQ(other.next_notification(std::chrono::milliseconds(1)).status, kStatusTimedOut)
      << "it was taken away";
}

}  // namespace
