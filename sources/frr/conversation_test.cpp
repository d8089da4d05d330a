#include "sources/frr/conversation.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/files/temporary_directory.h"
#include "sources/frr/fake_suite_test_support.h"

namespace {

using frr::Answer;
using frr::Conversation;
using testing::HasSubstr;

constexpr std::uint64_t kPollInterval = 20 * kNanosecondsPerMillisecond;
constexpr auto kBound = std::chrono::seconds(20);

class ConversationTest : public ::testing::Test {
 protected:
  ConversationTest() {
    manager = event_manager_create("/dev/mpls/vpn/main", 0);
    suite.Configure("bgpd", "router bgp 65000 vrf red\nexit\n");
    Open({});
  }
  ~ConversationTest() override {
    conversation.reset();
    event_manager_destroy(manager);
    fault_disarm_all();
  }
  void Open(const Conversation::Limits& limits) {
    conversation = std::make_unique<Conversation>(suite.shell(), "bgpd", limits);
  }
  Status Ask(const std::vector<std::string>& commands = {}) {
    received.reset();
    const auto on_answer = [this](Answer answer) {
      EXPECT_FALSE(received.has_value()) << "two answers";
      received = std::move(answer);
    };
    return conversation->ask(manager, on_answer, commands);
  }
  Answer Await() {
    const auto deadline = std::chrono::steady_clock::now() + kBound;
    while (!received && std::chrono::steady_clock::now() < deadline)
      event_run_pending(manager, kPollInterval);
    EXPECT_TRUE(received.has_value()) << "no answer";
    return received ? std::move(*received) : Answer();
  }
  Answer AskAndAwait() {
    EXPECT_EQ(Ask(), kStatusOk);
    return Await();
  }

  FakeSuite suite;
  EventManager* manager = nullptr;
  std::optional<Answer> received;
  std::unique_ptr<Conversation> conversation;
};

TEST_F(ConversationTest, AnswerHasTheRunningConfiguration) {
  const Answer answer = AskAndAwait();
  EXPECT_TRUE(answer.whole) << answer.reason;
  EXPECT_THAT(answer.configuration, HasSubstr("router bgp 65000 vrf red\nexit\n"));
}

TEST_F(ConversationTest, FurtherCommandsAreShownWithTheConfiguration) {
  suite.Show("show vrfs json", "{\"red\": {}}\n");
  ASSERT_EQ(Ask({"show vrfs json", "show nothing"}), kStatusOk);
  const Answer answer = Await();
  ASSERT_TRUE(answer.whole) << answer.reason;
  EXPECT_THAT(answer.configuration, HasSubstr("router bgp 65000 vrf red\nexit\n"));
  EXPECT_THAT(answer.shown, testing::ElementsAre(HasSubstr("{\"red\": {}}"), HasSubstr("Unknown command")));
  EXPECT_THAT(AskAndAwait().shown, testing::IsEmpty());
}

TEST_F(ConversationTest, ShellRunsOnBetweenQuestions) {
  EXPECT_TRUE(AskAndAwait().first);
  suite.Configure("bgpd", "router bgp 65000 vrf blue\nexit\n");
  const Answer second = AskAndAwait();
  EXPECT_FALSE(second.first);
  EXPECT_THAT(second.configuration, HasSubstr("vrf blue"));
  EXPECT_EQ(suite.Started("bgpd"), 1U);
}

TEST_F(ConversationTest, LargeConfigurationIsComplete) {
  std::string large;
  while (large.size() < 1'000'000)
    large += "router bgp 65000 vrf v" + std::to_string(large.size()) + "\nexit\n";
  suite.Configure("bgpd", large);
  EXPECT_THAT(AskAndAwait().configuration, HasSubstr(large));
}

TEST_F(ConversationTest, AnswerIsNeverDeliveredFromInsideTheQuestion) {
  ASSERT_EQ(Ask(), kStatusOk);
  EXPECT_FALSE(received.has_value());
}

TEST_F(ConversationTest, SecondQuestionWaitsForTheAnswer) {
  ASSERT_EQ(Ask(), kStatusOk);
  EXPECT_EQ(conversation->ask(manager, [](const Answer&) { ADD_FAILURE(); }), kStatusExists);
  EXPECT_TRUE(Await().whole);
}

TEST_F(ConversationTest, ShellThatIsMissingOrNotExecutableIsAnError) {
  const std::map<std::string, int> errors{{"/nowhere/vtysh", ENOENT}, {"sources", EACCES}};
  for (const auto& [shell, error] : errors) {
    conversation =
        std::make_unique<Conversation>(std::vector<std::string>{shell}, "bgpd", Conversation::Limits{});
    EXPECT_EQ(Ask(), static_cast<Status>(error)) << shell;
  }
}

TEST_F(ConversationTest, AbsentProgramEndsTheShellAndIsAskedAgain) {
  suite.Become("bgpd", "absent");
  const Answer answer = AskAndAwait();
  EXPECT_FALSE(answer.whole);
  EXPECT_THAT(answer.reason, HasSubstr("failed to connect to any daemons"));
  suite.Become("bgpd", "ok");
  EXPECT_TRUE(AskAndAwait().whole);
  EXPECT_EQ(suite.Started("bgpd"), 2U);
}

TEST_F(ConversationTest, ProgramThatTheSuiteDoesNotHaveIsUnknown) {
  suite.Become("bgpd", "unknown");
  const Answer answer = AskAndAwait();
  EXPECT_FALSE(answer.whole);
  EXPECT_TRUE(answer.unknown);
  suite.Become("bgpd", "absent");
  EXPECT_FALSE(AskAndAwait().unknown) << "not running is not unknown";
}

// Waits until a child has ended, and does not reap it.
void await_end_of_a_child() {
  siginfo_t ended{};
  EXPECT_EQ(waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT), 0);
}

TEST_F(ConversationTest, ShellThatEndedBeforeTheQuestionStatesItsReason) {
  const TemporaryDirectory folder;
  const std::string flag = folder.path() + "/end";
  const std::string script =
      "while read -r line; do case $line in mpls-vpn-mib-*-end) break;; esac; done\n"
      "printf '%s%s\\n' \"$1\" \"$line\"\n"
      "while [ ! -e \"$2\" ]; do sleep 0.01; done\n"
      "echo 'Error: no daemons match name bgpd!'\n";
  conversation =
      std::make_unique<Conversation>(std::vector<std::string>{"/bin/sh", "-c", script, "shell", kWhole, flag},
                                     "bgpd", Conversation::Limits{});
  ASSERT_TRUE(AskAndAwait().whole);
  std::ofstream(flag).close();
  await_end_of_a_child();
  const Answer answer = AskAndAwait();
  EXPECT_TRUE(answer.unknown) << answer.reason;
}

TEST_F(ConversationTest, EndedProgramIsNotAnEmptyConfiguration) {
  ASSERT_TRUE(AskAndAwait().whole);
  suite.Become("bgpd", "ended");
  EXPECT_FALSE(AskAndAwait().whole);
}

TEST_F(ConversationTest, ReconnectedShellIsReplaced) {
  ASSERT_TRUE(AskAndAwait().whole);
  suite.Become("bgpd", "reconnected");
  EXPECT_FALSE(AskAndAwait().whole);
  suite.Become("bgpd", "ok");
  const Answer answer = AskAndAwait();
  EXPECT_TRUE(answer.whole);
  EXPECT_TRUE(answer.first);
  EXPECT_EQ(suite.Started("bgpd"), 2U);
}

TEST_F(ConversationTest, IncompleteAnswersAreRefused) {
  for (const char* state : {"ending", "garbage", "cut"}) {
    suite.Become("bgpd", state);
    const Answer answer = AskAndAwait();
    EXPECT_FALSE(answer.whole) << state;
    EXPECT_NE(answer.reason, "") << state;
  }
}

// On a busy machine the start of a shell alone may take longer than the timeout: with a fixed timeout it
// would never answer.
TEST_F(ConversationTest, TimeoutDoublesAfterEachTimeout) {
  ManualClock clock(kNanosecondsPerSecond);
  const auto times_out_after = [&](std::uint64_t nanoseconds) {
    suite.Become("bgpd", "silent");
    EXPECT_EQ(Ask(), kStatusOk);
    clock.advance(nanoseconds - 1);
    event_run_pending(manager);
    EXPECT_FALSE(received.has_value()) << nanoseconds;
    clock.advance(1);
    EXPECT_EQ(Await().reason, "no answer in time");
  };
  const Conversation::Limits limits;
  for (std::uint64_t patience = limits.patience; patience < limits.longest_patience; patience *= 2) {
    times_out_after(patience);
  }
  for (int i = 0; i < 2; ++i) times_out_after(limits.longest_patience);
  suite.Become("bgpd", "ok");
  EXPECT_TRUE(AskAndAwait().whole);
  times_out_after(limits.patience);
}

TEST_F(ConversationTest, AnswerThatIsTooLargeIsDropped) {
  Conversation::Limits limits;
  limits.answer_size = 100'000;
  Open(limits);
  suite.Become("bgpd", "flood");
  EXPECT_EQ(AskAndAwait().reason, "its answer is too large");
}

TEST_F(ConversationTest, EndedShellsAreReaped) {
  suite.Become("bgpd", "absent");
  AskAndAwait();
  suite.Become("bgpd", "silent");
  ASSERT_EQ(Ask(), kStatusOk);
  conversation.reset();
  errno = 0;
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(ConversationTest, EndedConversationDropsThePendingAnswer) {
  ASSERT_EQ(Ask(), kStatusOk);
  conversation->end();
  event_run_pending(manager, kPollInterval);
  EXPECT_FALSE(received.has_value());
  EXPECT_TRUE(AskAndAwait().whole);
}

TEST_F(ConversationTest, QuestionHasItsFaultPoint) {
  const ScopedFault fault("frr_conversation_ask", kStatusIo);
  EXPECT_EQ(Ask(), kStatusIo);
}

TEST_F(ConversationTest, ShellThatCannotBeWatchedIsEnded) {
  {
    const ScopedFault fault("event_fd_add", kStatusNoMemory);
    EXPECT_EQ(Ask(), kStatusNoMemory);
  }
  EXPECT_TRUE(AskAndAwait().whole);
}

// A shell that records its input, and answers whatever the marks are.
class RecordedShell : public ConversationTest {
 protected:
  // The lines of its input that begin with "mpls-vpn-mib-".
  std::vector<std::string> Marks() const {
    std::ifstream file(folder.path() + "/input");
    std::vector<std::string> marks;
    for (std::string line; std::getline(file, line);) {
      if (line.starts_with("mpls-vpn-mib-")) marks.push_back(line);
    }
    return marks;
  }
  void OpenScript(const std::string& script) {
    conversation = std::make_unique<Conversation>(
        std::vector<std::string>{"/bin/sh", "-c", script, "shell", kWhole, folder.path()}, "bgpd",
        Conversation::Limits{});
  }
  const TemporaryDirectory folder;
};

// Configuration, such as a description, must not be able to contain the mark.
TEST_F(RecordedShell, EachQuestionHasMarksThatCannotBePredicted) {
  OpenScript(
      "while read -r line; do printf '%s\\n' \"$line\" >> \"$2/input\"; case $line in mpls-vpn-mib-*-end) "
      "printf "
      "'%s%s\\n' \"$1\" \"$line\";; esac; done");
  for (int question = 0; question < 3; ++question) AskAndAwait();
  const std::vector<std::string> marks = Marks();
  ASSERT_EQ(marks.size(), 3U);
  for (const std::string& mark : marks) {
    EXPECT_THAT(mark, testing::MatchesRegex("mpls-vpn-mib-[0-9a-f]+-end"));
    EXPECT_EQ(mark.size(), std::string("mpls-vpn-mib--end").size() + 32) << mark;
  }
  EXPECT_EQ(std::set<std::string>(marks.begin(), marks.end()).size(), 3U);
}

TEST_F(RecordedShell, InheritsStandardDescriptorsOnly) {
  const int leak = open("/dev/null", O_RDONLY);  // without O_CLOEXEC, as a library may
  ASSERT_GE(leak, 3);
  OpenScript("(ls /proc/$$/fd > \"$2/fds\"); mv \"$2/fds\" \"$2/input\"; cat > /dev/null");
  ASSERT_EQ(Ask(), kStatusOk);
  const auto deadline = std::chrono::steady_clock::now() + kBound;
  std::string listed;
  while (listed.empty() && std::chrono::steady_clock::now() < deadline) {
    event_run_pending(manager, kPollInterval);
    std::ifstream file(folder.path() + "/input");
    listed.assign(std::istreambuf_iterator<char>(file), {});
  }
  close(leak);
  EXPECT_EQ(listed, "0\n1\n2\n");
}

TEST_F(ConversationTest, BufferOfAFloodIsReleased) {
  Conversation::Limits limits;
  limits.answer_size = 4'000'000;
  Open(limits);
  suite.Become("bgpd", "flood");
  EXPECT_EQ(AskAndAwait().reason, "its answer is too large");
  EXPECT_LT(conversation->buffered(), 1000U);
}

}  // namespace
