// The SQL storage's schema: made in a new file, migrated from an older version, refused in a
// foreign, newer or corrupt file; connection texts it does not know.
#include "sqltesthelpers.h"
#include "testenv.h"
#include "xsqlerror.h"
#include "xsqliteconnection.h"

#include <gtest/gtest.h>

TEST(SqlStorageSchema, ANewFileGetsTheCurrentSchema)
{
    TestDatabaseFile file;
    ASSERT_TRUE(NewSqlStorage(file.Connection()));
    RawSqlite raw(file.Path());
    EXPECT_EQ(std::vector<std::string>{"2"}, raw.Rows("PRAGMA user_version"));
    EXPECT_EQ((std::vector<std::string>{"sdm_keys", "sdm_meta", "sdm_values"}),
              raw.Rows("SELECT name FROM sqlite_schema WHERE type = 'table' ORDER BY name"));
    // Every query of the storage has its index: the primary keys and the parent index.
    EXPECT_EQ(std::vector<std::string>{"sdm_keys_parent"},
              raw.Rows("SELECT name FROM sqlite_schema WHERE type = 'index' AND sql IS NOT NULL"));
}

TEST(SqlStorageSchema, AFileOfTheFirstVersionIsMigratedAndKeepsItsData)
{
    TestDatabaseFile file;
    {
        RawSqlite raw(file.Path());
        ASSERT_TRUE(raw.Execute(
            "CREATE TABLE sdm_keys (scope TEXT NOT NULL, key_norm TEXT NOT NULL, key_text TEXT NOT NULL, "
            "parent_norm TEXT NOT NULL, PRIMARY KEY (scope, key_norm)) WITHOUT ROWID;"
            "CREATE INDEX sdm_keys_parent ON sdm_keys (scope, parent_norm);"
            "CREATE TABLE sdm_values (scope TEXT NOT NULL, key_norm TEXT NOT NULL, name TEXT NOT NULL, "
            "value TEXT NOT NULL, PRIMARY KEY (scope, key_norm, name)) WITHOUT ROWID;"
            "INSERT INTO sdm_keys VALUES ('', 'old', 'Old', '');"
            "INSERT INTO sdm_values VALUES ('', 'old', 'n', 'kept');"
            "PRAGMA user_version = 1;"))
            << raw.Error();
    }
    const XComPtr<IWQ_SessionDataStorageEx> storage = NewSqlStorage(file.Connection());
    ASSERT_TRUE(storage);
    EXPECT_EQ((Pairs{{L"n", L"kept"}}), ReadPairs(storage.Get(), L"old").pairs);
    RawSqlite raw(file.Path());
    EXPECT_EQ(std::vector<std::string>{"2"}, raw.Rows("PRAGMA user_version"));
    EXPECT_EQ(std::vector<std::string>{"format|WQSessionDataMng session data"}, raw.Rows("SELECT * FROM sdm_meta"));
}

TEST(SqlStorageSchema, ADatabaseOfSomethingElseIsRefusedAndLeftAsItWas)
{
    TestDatabaseFile file;
    {
        RawSqlite raw(file.Path());
        ASSERT_TRUE(raw.Execute("CREATE TABLE customers (id INTEGER, name TEXT); INSERT INTO customers VALUES (1, 'x');"));
    }
    std::wstring message;
    EXPECT_EQ(XSqlError::kForeign, OpenFails(file.Connection(), &message));
    EXPECT_NE(std::wstring::npos, message.find(L"not a session data database")) << Utf8(message);
    RawSqlite raw(file.Path());
    EXPECT_EQ(std::vector<std::string>{"customers"}, raw.Rows("SELECT name FROM sqlite_schema WHERE type = 'table'"));
}

TEST(SqlStorageSchema, ANewerSchemaIsRefused)
{
    TestDatabaseFile file;
    {
        RawSqlite raw(file.Path());
        ASSERT_TRUE(raw.Execute("PRAGMA user_version = 99;"));
    }
    std::wstring message;
    EXPECT_EQ(XSqlError::kForeign, OpenFails(file.Connection(), &message));
    EXPECT_NE(std::wstring::npos, message.find(L"newer")) << Utf8(message);
}

TEST(SqlStorageSchema, ACorruptFileIsAClearErrorNotACrash)
{
    TestDatabaseFile file;
    ASSERT_TRUE(WriteGarbageFile(file.Path()));
    std::wstring message;
    EXPECT_EQ(XSqlError::kCorrupt, OpenFails(file.Connection(), &message));
    EXPECT_NE(std::wstring::npos, message.find(L"SQLite")) << Utf8(message);
}

TEST(SqlStorageSchema, ConnectionTextsItDoesNotKnowAreInvalidArguments)
{
    const struct
    {
        std::wstring connection;
        const wchar_t* says;
    } cases[] = {
        // Cut at the NUL, the text would name the file "C:\\a" (or another server).
        {std::wstring(L"sqlite:C:\\a\0.db", 15), L"holds a NUL character"},
        {std::wstring(L"odbc:DSN=x\0y", 12), L"holds a NUL character"},
        {L"mysql:server=x", L"unknown connection scheme"},
        {L"", L"unknown connection scheme"},
        {L"sqlite:", L"names no database file"},
        {L"sqlite:C:\\x.db?cache=huge", L"unknown option"},
        {L"sqlite:C:\\x.db?busy_timeout=soon", L"busy_timeout"},
    };
    for (const auto& c : cases)
    {
        std::wstring message;
        EXPECT_EQ(E_INVALIDARG, OpenFails(c.connection, &message)) << Utf8(c.connection);
        EXPECT_NE(std::wstring::npos, message.find(c.says)) << Utf8(message);
    }
}

TEST(SqlStorageSchema, SynchronousIsNormalByDefaultAndFullOnRequest)
{
    TestDatabaseFile file;
    for (const auto& setting : {std::make_pair(false, L"1"), std::make_pair(true, L"2")})
    {
        XSqliteOptions options;
        options.synchronousFull = setting.first;
        XSqliteConnection connection(file.Path(), options);
        XSqlUse synchronous(connection.Statement("PRAGMA synchronous"));
        ASSERT_TRUE(synchronous->Step());
        EXPECT_EQ(setting.second, std::wstring(synchronous->ColumnText(0)));
    }
}
