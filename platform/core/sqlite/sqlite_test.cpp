// Statements, statuses of result codes, and files that are set aside.
#include "platform/core/sqlite/sqlite.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <set>

#include "platform/core/files/temporary_directory.h"
#include "platform/core/sqlite/database_file.h"

namespace sqlite {
namespace {

class SqliteTest : public ::testing::Test {
 protected:
  ~SqliteTest() override { busy_timeout = std::chrono::milliseconds(5000); }
  void Open(const std::string& file = ":memory:") { ASSERT_EQ(open(file, &connection), SQLITE_OK); }
  void Write(const std::string& suffix, const std::string& text) const {
    std::ofstream(path + suffix) << text;
  }
  TemporaryDirectory directory;
  std::string path = directory.path() + "/a.db";
  Connection connection;
};

TEST_F(SqliteTest, ValuesAreReadBack) {
  Open();
  ASSERT_EQ(run(connection.get(), "CREATE TABLE t(a, b, c, d)"), SQLITE_OK);
  Statement put(connection.get(), "INSERT INTO t VALUES (?, ?, ?, ?)");
  put.bind(1, INT64_MIN);
  put.bind_text(2, {});
  put.bind_octets(3, std::string_view("\0x", 2));
  put.bind_null(4);
  ASSERT_EQ(put.finish(), SQLITE_OK);
  Statement get(connection.get(), "SELECT a, b, c, d FROM t");
  ASSERT_EQ(get.step(), SQLITE_ROW);
  EXPECT_EQ(get.integer(0), INT64_MIN);
  EXPECT_EQ(get.type(1), SQLITE_TEXT);
  EXPECT_EQ(get.text(1), "");
  EXPECT_TRUE(get.is_blob(2));
  EXPECT_EQ(get.octets(2), std::string("\0x", 2));
  EXPECT_EQ(get.blob(2).size(), 2U);
  EXPECT_EQ(get.type(3), SQLITE_NULL);
  EXPECT_EQ(get.step(), SQLITE_DONE);
}

TEST_F(SqliteTest, EmptyOctetsAreABlob) {
  Open();
  Statement type(connection.get(), "SELECT typeof(?), typeof(?)");
  type.bind_octets(1, std::string_view());
  type.bind_octets(2, std::span<const std::uint8_t>());
  ASSERT_EQ(type.step(), SQLITE_ROW);
  EXPECT_EQ(type.text(0), "blob");
  EXPECT_EQ(type.text(1), "blob");
}

TEST_F(SqliteTest, StatementThatCannotBePreparedFails) {
  Open();
  Statement statement;
  EXPECT_EQ(primary(statement.prepare(connection.get(), "SELECT x FROM missing")), SQLITE_ERROR);
  EXPECT_FALSE(statement);
  statement.bind(1, 5);
  EXPECT_EQ(statement.step(), SQLITE_MISUSE);
}

TEST_F(SqliteTest, CodesBecomeTheSystemsErrors) {
  EXPECT_EQ(status_of(nullptr, SQLITE_OK), kStatusOk);
  EXPECT_EQ(status_of(nullptr, SQLITE_FULL), static_cast<Status>(ENOSPC));
  EXPECT_EQ(status_of(nullptr, SQLITE_BUSY_SNAPSHOT), static_cast<Status>(EBUSY));
  EXPECT_EQ(status_of(nullptr, SQLITE_CORRUPT), kStatusIo);
  const int code = open(directory.path() + "/missing/a.db", &connection);
  EXPECT_EQ(primary(code), SQLITE_CANTOPEN);
  EXPECT_EQ(status_of(connection.get(), code), static_cast<Status>(ENOENT));
}

TEST_F(SqliteTest, ReasonIsThatOfTheSystemIfItIsKnown) {
  const int code = open(directory.path() + "/missing/a.db", &connection);
  EXPECT_EQ(reason_of(connection.get(), code), "No such file or directory");
  EXPECT_EQ(reason_of(nullptr, SQLITE_FULL), "No space left on device");
  EXPECT_EQ(reason_of(nullptr, SQLITE_NOTADB), "file is not a database");
  Open();
  const int failed = run(connection.get(), "DROP TABLE t");
  EXPECT_EQ(reason_of(connection.get(), failed), "no such table: t");
}

TEST_F(SqliteTest, SecondWriterIsBusy) {
  Open(path);
  Connection other;
  busy_timeout = std::chrono::milliseconds(1);
  ASSERT_EQ(open(path, &other), SQLITE_OK);
  ASSERT_EQ(run(connection.get(), "CREATE TABLE t(a); BEGIN IMMEDIATE"), SQLITE_OK);
  const int code = run(other.get(), "BEGIN IMMEDIATE");
  EXPECT_EQ(status_of(other.get(), code), static_cast<Status>(EBUSY));
}

TEST_F(SqliteTest, LockOfAnotherProcessIsWaitedFor) {
  Open(path);
  Statement timeout(connection.get(), "PRAGMA busy_timeout");
  ASSERT_EQ(timeout.step(), SQLITE_ROW);
  EXPECT_EQ(timeout.integer(0), busy_timeout.count());
}

TEST_F(SqliteTest, LockedDatabaseCannotBeReadUntilItIsClosed) {
  Open(path);
  ASSERT_EQ(run(connection.get(), "CREATE TABLE t(a)"), SQLITE_OK);
  ASSERT_EQ(lock_for_this_process(connection.get()), SQLITE_OK);
  busy_timeout = std::chrono::milliseconds(1);
  Connection other;
  ASSERT_EQ(open(path, &other), SQLITE_OK);
  EXPECT_EQ(primary(run(other.get(), "SELECT * FROM t")), SQLITE_BUSY);
  ASSERT_EQ(run(connection.get(), "INSERT INTO t VALUES (1)"), SQLITE_OK);
  connection.reset();
  EXPECT_EQ(run(other.get(), "SELECT * FROM t"), SQLITE_OK);
}

TEST_F(SqliteTest, FilesArePrivate) {
  Open(path);
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  connection.reset();
  Write("-wal", "");
  for (const char* suffix : {"", "-wal"}) ASSERT_EQ(chmod((path + suffix).c_str(), 0666), 0);
  Open(path);
  for (const char* suffix : {"", "-wal"}) {
    ASSERT_EQ(stat((path + suffix).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U) << suffix;
  }
}

TEST_F(SqliteTest, SymbolicLinkIsNotFollowed) {
  ASSERT_EQ(symlink((directory.path() + "/precious").c_str(), path.c_str()), 0);
  EXPECT_EQ(open(path, &connection), SQLITE_PERM);
  EXPECT_EQ(status_of(nullptr, SQLITE_PERM), kStatusAccess);
  EXPECT_EQ(file_size(directory.path() + "/precious"), -1);
}

TEST_F(SqliteTest, IdentityOfANewFileIsBlank) {
  Open(path);
  Identity identity;
  ASSERT_EQ(read_identity(connection.get(), &identity), SQLITE_OK);
  EXPECT_TRUE(identity.is_blank());
  ASSERT_EQ(run(connection.get(), "PRAGMA application_id = 7; PRAGMA user_version = 8; CREATE TABLE t(a)"),
            SQLITE_OK);
  ASSERT_EQ(read_identity(connection.get(), &identity), SQLITE_OK);
  EXPECT_EQ(identity.application, 7);
  EXPECT_EQ(identity.version, 8);
  EXPECT_EQ(identity.objects, 1);
}

TEST_F(SqliteTest, ForeignFileHasNoIdentity) {
  Write("", std::string(5000, 'x'));
  Open(path);
  Identity identity;
  EXPECT_EQ(read_identity(connection.get(), &identity), SQLITE_NOTADB);
}

TEST_F(SqliteTest, OverwrittenPageIsFoundByTheCheck) {
  Open(path);
  ASSERT_EQ(
      run(connection.get(), "CREATE TABLE t(a TEXT); CREATE INDEX i ON t(a); INSERT INTO t VALUES ('x')"),
      SQLITE_OK);
  std::string damage = "none";
  ASSERT_EQ(check_contents(connection.get(), &damage), SQLITE_OK);
  EXPECT_EQ(damage, "");
  connection.reset();
  std::FILE* file = std::fopen(path.c_str(), "r+");
  ASSERT_NE(file, nullptr);
  std::fseek(file, 2 * 4096, SEEK_SET);  // the index
  std::fputs("\xee\xee\xee\xee\xee\xee\xee\xee", file);
  std::fclose(file);
  Open(path);
  const int code = check_contents(connection.get(), &damage);
  EXPECT_TRUE(code == SQLITE_CORRUPT || !damage.empty()) << code;
}

TEST_F(SqliteTest, UnusableFileIsSetAsideWithItsCompanions) {
  Write("", "database");
  Write("-journal", "journal");
  Write("-wal", "log");
  EXPECT_EQ(set_aside(path), path + ".unusable.1");
  for (const char* suffix : {"", "-journal", "-wal"}) {
    EXPECT_EQ(file_size(path + suffix), -1) << suffix;
    EXPECT_GT(file_size(path + ".unusable.1" + suffix), 0) << suffix;
  }
}

TEST_F(SqliteTest, NameThatIsInUseIsNotOverwritten) {
  Write(".unusable.1", "earlier");
  Write(".unusable.2-wal", "log of an earlier one");
  Write("", "database");
  EXPECT_EQ(set_aside(path), path + ".unusable.3");
  EXPECT_EQ(file_size(path + ".unusable.1"), 7);
}

TEST_F(SqliteTest, FileThatCannotBeRenamedIsAnError) {
  path = directory.path() + "/" + std::string(250, 'a');
  Write("", "database");
  EXPECT_EQ(set_aside(path), "");
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(file_size(path), 8);
}

// --- Checksums of rows

class RowChecksumTest : public SqliteTest {
 protected:
  RowChecksumTest() { Open(); }
  std::int64_t Checksum(const std::string& arguments) const {
    std::int64_t value = 0;
    EXPECT_EQ(read_integer(connection.get(), ("SELECT row_checksum(" + arguments + ")").c_str(), &value),
              SQLITE_OK);
    return value;
  }
};

// Files have them.
TEST_F(RowChecksumTest, ChecksumOfARowNeverChanges) {
  EXPECT_EQ(Checksum("5, 'text', x'0102030405060708090a', NULL, 1.5"), 2972232368017378973);
}

TEST_F(RowChecksumTest, DifferentRowsDiffer) {
  const std::set<std::int64_t> checksums{
      Checksum(""),         Checksum("NULL"),     Checksum("0"),       Checksum("'0'"),   Checksum("x'30'"),
      Checksum("0.0"),      Checksum("''"),       Checksum("x''"),     Checksum("x'00'"), Checksum("x'0000'"),
      Checksum("'a', 'b'"), Checksum("'ab', ''"), Checksum("'b', 'a'")};
  EXPECT_EQ(checksums.size(), 13U);
}

TEST_F(RowChecksumTest, EveryBitMatters) {
  const std::string octets = "octets of more than one word";
  std::set<std::int64_t> checksums;
  Statement query(connection.get(), "SELECT row_checksum(?)");
  for (std::size_t bit = 0; bit < octets.size() * 8; ++bit) {
    std::string flipped = octets;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
    query.reset();
    query.bind_octets(1, flipped);
    ASSERT_EQ(query.step(), SQLITE_ROW);
    checksums.insert(query.integer(0));
  }
  EXPECT_EQ(checksums.size(), octets.size() * 8);
}

}  // namespace
}  // namespace sqlite
