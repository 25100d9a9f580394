#include "ServiceFixture.h"
#include "Sqlite.h"

#include <filesystem>
#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace packagesearch {
namespace {

using testing::HasSubstr;

// The service on a database file that others can get at.
class DatabaseTroubleTest : public ServiceTest {
protected:
    DatabaseTroubleTest() : m_file(m_folder / "packages.db"), m_database(m_file) {
        LoadPackages(SAMPLE_STATUS_FILE, m_database);
    }

    Instance& StartOnTheFile() { return Start(OptionsWithLongTimeouts(), {}, &m_database); }

    std::filesystem::path m_file;
    PackageDatabase m_database;
};

TEST_F(DatabaseTroubleTest, ADatabaseFileIsOpenedAsItIs) {
    const PackageDatabase again(m_file);

    EXPECT_TRUE(again.IsFilled());
    EXPECT_EQ(again.GetWordSearch(), BestWordSearch());
    EXPECT_FALSE(PackageDatabase(m_folder / "new.db").IsFilled());
}

TEST_F(DatabaseTroubleTest, WordsAreFoundInADatabaseWithoutAnIndexOfThem) {
    {
        sqlite::Connection connection(m_file.string(), sqlite::OpenMode::Create);
        connection.Execute("DROP TABLE words");
    }

    const PackageDatabase again(m_file);

    EXPECT_EQ(again.GetWordSearch(), WordSearch::Like);
}

TEST_F(DatabaseTroubleTest, ALockedDatabaseIsA503UntilTheLockIsGone) {
    const Instance& instance = StartOnTheFile();
    sqlite::Connection other(m_file.string(), sqlite::OpenMode::Create);
    other.Execute("BEGIN EXCLUSIVE");

    const httplib::Result locked = Ask(instance, "/queries/sections");
    other.Execute("ROLLBACK");

    EXPECT_EQ(Verdict(locked), "503 database-locked");
    EXPECT_EQ(locked->get_header_value("Retry-After"), "1");
    EXPECT_EQ(Verdict(Ask(instance, "/queries/largest?argument=1")), "200");
    const LoggedTrees log = EndAndRead();
    ExpectWholeLog(log);
    const LoggedActivity& request = RequestFor(log, "GET /queries/sections");
    EXPECT_EQ(request.result, "exception");
    EXPECT_THAT(request.details, HasSubstr("type=packagesearch::sqlite::SqliteError"));
    EXPECT_THAT(request.details, HasSubstr("database is locked"));
    EXPECT_THAT(request.body, HasSubstr("sqlite-code=5"));
    EXPECT_THAT(request.body, HasSubstr("status=503"));
    EXPECT_EQ(RequestFor(log, "GET /queries/largest").result, "ok");
}

TEST_F(DatabaseTroubleTest, ACorruptDatabaseIsA500AndTheServiceGoesOn) {
    const Instance& instance = StartOnTheFile();
    ASSERT_EQ(Verdict(Ask(instance, "/queries/sections")), "200");
    std::fstream(m_file, std::ios::in | std::ios::out | std::ios::binary)
        << std::string(std::filesystem::file_size(m_file), '#');

    EXPECT_EQ(Verdict(Ask(instance, "/queries/largest?argument=1")), "500 database");

    EXPECT_EQ(Verdict(Ask(instance, "/health")), "200");
    const LoggedTrees log = EndAndRead();
    ExpectWholeLog(log);
    const LoggedActivity& request = RequestFor(log, "GET /queries/largest");
    EXPECT_EQ(request.result, "exception");
    EXPECT_THAT(request.details, HasSubstr("msg="));
    EXPECT_THAT(request.body, HasSubstr("sqlite-code=26"));
}

}  // namespace
}  // namespace packagesearch
