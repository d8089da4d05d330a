// Tests of the configuration: changes by clients, the database, what a new process finds.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "platform/store/configuration/test_configuration.h"
#include "platform/store/server/test_served_store.h"

namespace {

using kvtree::Client;
using kvtree::Node;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const std::string kTraps = "/cfg/gl/snmp/enable/traps/";

class Configuration : public ServedStore {
 protected:
  std::string File() const { return directory.path() + "/configuration.db"; }
  Status Keep() const { return kvtree_keep_configuration(directory.path()); }
  // The process ends and another one begins.
  void Restart() {
    Stop();
    kvtree_stop_serving(manager);
    kvtree_reset();
    client.close();
    ASSERT_EQ(Keep(), kStatusOk);
    ASSERT_EQ(kvtree_serve(manager), kStatusOk);
  }
  Status Commit(KvConfigChange change) { return client.commit({std::move(change)}, "").status; }
  // "path=value" of all nodes.
  std::vector<std::string> Nodes(const std::string& path = "/") {
    std::vector<std::string> all;
    const kvtree::NodesResult result = client.nodes(path, 1000);
    EXPECT_EQ(result.status, kStatusOk);
    for (const Node& node : result.nodes) {
      all.push_back(node.path + "=" + Describe(node.value));
    }
    return all;
  }
  void Write(const std::string& octets) const { std::ofstream(File(), std::ios::binary) << octets; }
  std::string Read(const std::string& file) const {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  // Makes a database with another octet at this place of its header.
  void MakeDamaged(std::size_t place, char octet) const {
    ASSERT_EQ(Keep(), kStatusOk);
    kvtree_reset();
    std::string octets = Read(File());
    ASSERT_NE(octets.at(place), octet);
    octets[place] = octet;
    Write(octets);
  }
  // A file with these contents is left unchanged next to a new one that works.
  void ExpectSetAside() {
    const std::string contents = Read(File());
    ::testing::internal::CaptureStderr();
    ASSERT_EQ(Keep(), kStatusOk);
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr(File() + ".unusable.1"));
    EXPECT_EQ(Read(File() + ".unusable.1"), contents);
    StartAndConnect();
    EXPECT_THAT(Nodes(), IsEmpty());
    EXPECT_EQ(Commit({"/cfg/a", NumberValue(1)}), kStatusOk);
    Restart();
    StartAndConnect();
    EXPECT_THAT(Nodes(), ElementsAre("/cfg/a=#1"));
  }
};

TEST_F(Configuration, DatabaseWhoseFormatCanOnlyBeReadIsSetAside) {
  constexpr std::size_t kWriteVersionAt = 18;
  MakeDamaged(kWriteVersionAt, 3);
  ExpectSetAside();
}

TEST_F(Configuration, DatabaseWithASchemaOfAnUnknownFormatIsSetAside) {
  constexpr std::size_t kSchemaFormatAt = 47;
  MakeDamaged(kSchemaFormatAt, 5);
  ExpectSetAside();
}

TEST_F(Configuration, NodesAreListedInOrderBelowAPath) {
  StartAndConnect();
  ASSERT_EQ(Commit({"/cfg/b", NumberValue(-5)}), kStatusOk);
  ASSERT_EQ(Commit(SetTo("/cfg/a/y", "")), kStatusOk);
  ASSERT_EQ(Commit(SetTo("/cfg/a/x", "text")), kStatusOk);
  EXPECT_THAT(Nodes(), ElementsAre("/cfg/a/x=text", "/cfg/a/y=", "/cfg/b=#-5"));
  EXPECT_THAT(Nodes("/cfg/a/"), ElementsAre("/cfg/a/x=text", "/cfg/a/y="));
  EXPECT_THAT(Nodes("/cfg/c"), IsEmpty());
  EXPECT_EQ(client.nodes("cfg", 1).status, kStatusUnknownPath);
}

TEST_F(Configuration, LongListsContinueAfterTheLastNode) {
  StartAndConnect();
  for (const char* path : {"/cfg/a", "/cfg/b", "/cfg/c"})
    ASSERT_EQ(Commit({path, NumberValue(1)}), kStatusOk);
  const kvtree::NodesResult first = client.nodes("/cfg/", 2);
  ASSERT_EQ(first.nodes.size(), 2U);
  const kvtree::NodesResult rest = client.nodes("/cfg/", 2, first.nodes[1].path);
  ASSERT_EQ(rest.nodes.size(), 1U);
  EXPECT_EQ(rest.nodes[0].path, "/cfg/c");
  EXPECT_THAT(client.nodes("/cfg/", 2, "/cfg/c").nodes, IsEmpty());
}

TEST_F(Configuration, OutlivesTheProcessAndIsReplayed) {
  ASSERT_EQ(Keep(), kStatusOk);
  StartAndConnect();
  ASSERT_EQ(Commit(SetTo(kTraps + "vrf-up", "on")), kStatusOk);
  ASSERT_EQ(Commit({kTraps + "time", NumberValue(INT64_MIN)}), kStatusOk);
  ASSERT_EQ(Commit(SetTo(kTraps + "deleted", "x")), kStatusOk);
  ASSERT_EQ(Commit(Withdraw(kTraps + "deleted")), kStatusOk);
  ASSERT_EQ(Commit(SetTo(kTraps + "vrf-up", "octets \xff%/")), kStatusOk);
  Restart();
  Subscribe(kTraps.c_str(), kKvEventCreated | kKvEventSet);
  EXPECT_THAT(TakeReceived(), ElementsAre("time 3 ", "vrf-up 3 octets \xff%/"));
  StartAndConnect();
  EXPECT_THAT(Nodes(),
              ElementsAre(kTraps + "time=#" + std::to_string(INT64_MIN), kTraps + "vrf-up=octets \xff%/"));
}

TEST_F(Configuration, NodesOfTheProcessItselfAreNotStored) {
  ASSERT_EQ(Keep(), kStatusOk);
  ASSERT_EQ(SetText("/cfg/own", "x"), kStatusOk);
  Restart();
  StartAndConnect();
  EXPECT_THAT(Nodes(), IsEmpty());
}

struct Unusable {
  const char* name;
  void (*make)(const std::string& file);  // of the file of a complete database
};

class UnusableDatabase : public Configuration, public ::testing::WithParamInterface<Unusable> {};

TEST_P(UnusableDatabase, IsSetAside) {
  ASSERT_EQ(Keep(), kStatusOk);
  kvtree::store().node_store.reset();
  GetParam().make(File());
  ExpectSetAside();
}

INSTANTIATE_TEST_SUITE_P(
    Files, UnusableDatabase,
    ::testing::Values(Unusable{"NotADatabase",
                               [](const std::string& file) { std::ofstream(file) << "the only copy"; }},
                      Unusable{"Truncated",
                               [](const std::string& file) {
                                 std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2);
                               }},
                      Unusable{"Damaged",
                               [](const std::string& file) {
                                 std::fstream octets(file, std::ios::in | std::ios::out | std::ios::binary);
                                 octets.seekp(4096) << std::string(200, '\x55');
                               }},
                      Unusable{"Foreign",
                               [](const std::string& file) {
                                 std::filesystem::remove(file);
                                 ExecuteOn(file, "CREATE TABLE other(x)");
                               }}),
    [](const auto& each) { return each.param.name; });

// A start without it would forget the configuration, and the newer release would find another file.
TEST_F(Configuration, DatabaseOfANewerVersionIsRefusedAndLeftAlone) {
  ASSERT_EQ(Keep(), kStatusOk);
  kvtree::store().node_store.reset();
  ExecuteOn(File(), "PRAGMA user_version = 7");
  const std::string contents = Read(File());
  for (int start = 0; start < 2; ++start) {
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(Keep(), static_cast<Status>(ENOTSUP));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "configuration: " + File() +
                  " cannot be opened: it is of version 7 and this release reads versions up to 6; start the "
                  "release that wrote it, or move the file away\n");
    EXPECT_EQ(Read(File()), contents);
    EXPECT_FALSE(std::filesystem::exists(File() + ".unusable.1"));
  }
  ExecuteOn(File(), "PRAGMA user_version = 6");
  EXPECT_EQ(Keep(), kStatusOk);
}

// SQLite determines the size of a file that another library wrote itself and corrects the header when it
// begins to write.
std::string with_wrong_page_count(std::string database) {
  constexpr std::size_t kChangeCounterAt = 27;
  constexpr std::size_t kPageCountAt = 31;
  ++database[kChangeCounterAt];
  ++database[kPageCountAt];
  return database;
}

TEST_F(Configuration, DatabaseOfANewerVersionWithAWrongPageCountIsLeftAlone) {
  ASSERT_EQ(Keep(), kStatusOk);
  kvtree::store().node_store.reset();
  ExecuteOn(File(), "PRAGMA user_version = 7");
  const std::string contents = with_wrong_page_count(Read(File()));
  Write(contents);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(Keep(), static_cast<Status>(ENOTSUP));
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("it is of version 7"));
  EXPECT_TRUE(Read(File()) == contents);
}

TEST_F(Configuration, ForeignDatabaseWithAWrongPageCountIsSetAsideUnchanged) {
  ExecuteOn(File(), "CREATE TABLE other(x)");
  Write(with_wrong_page_count(Read(File())));
  ExpectSetAside();
}

// Otherwise no commit could be written, or the notifications of its nodes would not be in order.
TEST_F(Configuration, ImplausibleSequenceOfCommitsIsCorrected) {
  for (const char* sequence : {"9223372036854775807", "8796093022208", "-1", "'text'", "NULL"}) {
    std::filesystem::remove(File());
    ASSERT_EQ(Keep(), kStatusOk);
    ASSERT_EQ(kvtree_config_commit("user", {SetTo("/cfg/a", "x")}, ""), kStatusOk);
    kvtree_reset();
    ExecuteOn(File(), std::string("UPDATE sqlite_sequence SET seq = ") + sequence);
    ::testing::internal::CaptureStderr();
    ASSERT_EQ(Keep(), kStatusOk);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "configuration: " + File() + " has an invalid sequence of commits: it continues at 1001\n");
    std::string id;
    std::string error;
    EXPECT_EQ(kvtree_config_commit("user", {SetTo("/cfg/b", "x")}, "", &id, &error), kStatusOk) << error;
    EXPECT_EQ(id, "1002");
    kvtree_reset();
  }
  ASSERT_EQ(Keep(), kStatusOk);
}

// Every page once: only the first ones, which say where everything else is, may cost all.
TEST_F(Configuration, DamagedPageCostsOnlyWhatItHas) {
  ASSERT_EQ(Keep(), kStatusOk);
  std::vector<KvConfigChange> changes;
  for (int i = 1000; i < 3000; ++i) changes.push_back(SetTo("/cfg/many/" + std::to_string(i), "x"));
  kvtree_stop_serving(manager);
  ASSERT_EQ(kvtree_config_commit("user", changes, ""), kStatusOk);
  kvtree::fold_all();
  kvtree_reset();
  constexpr std::size_t kPage = 4096;
  const std::string good = Read(File());
  std::size_t nearly_all = 0;
  ::testing::internal::CaptureStderr();
  for (std::size_t page = 1; page < good.size() / kPage; ++page) {
    std::string bad = good;
    bad.replace(page * kPage, kPage, std::string(kPage, '\x55'));
    Write(bad);
    ASSERT_EQ(Keep(), kStatusOk) << page;
    if (kvtree::store().configuration.size() > 1700) ++nearly_all;
    kvtree_reset();
    ASSERT_EQ(Keep(), kStatusOk) << page;
    kvtree_reset();
  }
  const std::string log = ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(
      log, HasSubstr(File() + " is damaged and is stored as " + File() + ".unusable.1; starting with the"));
  EXPECT_GE(nearly_all + 6, good.size() / kPage);
  ASSERT_EQ(kvtree_serve(manager), kStatusOk);
}

TEST_F(Configuration, SalvageThatAFormerProcessDidNotFinishIsFinished) {
  ASSERT_EQ(Keep(), kStatusOk);
  ASSERT_EQ(kvtree_config_commit("user", {SetTo("/cfg/a", "x")}, ""), kStatusOk);
  kvtree_reset();
  std::filesystem::rename(File(), File() + ".salvaged");
  ASSERT_EQ(Keep(), kStatusOk);
  StartAndConnect();
  EXPECT_THAT(Nodes(), ElementsAre("/cfg/a=x"));
}

TEST_F(Configuration, DatabaseThatIsLockedIsBusy) {
  ASSERT_EQ(Keep(), kStatusOk);
  kvtree::store().node_store.reset();
  sqlite::Connection other;
  ASSERT_EQ(sqlite::open(File(), &other), SQLITE_OK);
  ASSERT_EQ(sqlite::lock_for_this_process(other.get()), SQLITE_OK);
  sqlite::busy_timeout = std::chrono::milliseconds(1);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(Keep(), static_cast<Status>(EBUSY));
  sqlite::busy_timeout = std::chrono::milliseconds(5000);
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              HasSubstr(File() + " cannot be opened: another process has it locked"));
}

TEST_F(Configuration, MissingDirectoryIsAFailure) {
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(kvtree_keep_configuration(directory.path() + "/nowhere"), kStatusNoSuchRow);
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              HasSubstr("configuration.db cannot be opened: No such file or directory"));
  for (const char* point : {"kvtree_keep_configuration", "configuration_open", "configuration_read"}) {
    fault_arm(point, kStatusAccess);
    EXPECT_EQ(Keep(), kStatusAccess) << point;
  }
  EXPECT_EQ(Keep(), kStatusOk);
  EXPECT_EQ(Keep(), kStatusExists);
}

}  // namespace
