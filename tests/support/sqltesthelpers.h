// Helpers of the SQL storage tests: a database file of the running test (removed with its
// journal files), a raw SQLite connection to look at what the storage wrote, and storages over
// a connection text.
#pragma once

#include "storagetesthelpers.h"
#include "xcomobject.h"
#include "xsessiondatamng_h.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

class PgTestSchema;

struct sqlite3;

// "<temp>\wqsdm-<pid>-<test name><suffix>.db"; removed (with -wal and -shm) when made and when
// the owner goes.
class TestDatabaseFile
{
public:
    explicit TestDatabaseFile(const std::wstring& suffix = std::wstring());
    ~TestDatabaseFile();
    TestDatabaseFile(const TestDatabaseFile&) = delete;
    TestDatabaseFile& operator=(const TestDatabaseFile&) = delete;

    const std::wstring& Path() const { return m_path; }
    std::wstring Connection(const std::wstring& options = std::wstring()) const
    {
        return L"sqlite:" + m_path + options;
    }
    void Remove() const;

private:
    std::wstring m_path;
};

// Writes 8 KiB of garbage (no database) at path; whether it could.
bool WriteGarbageFile(const std::wstring& path);

// A raw SQLite connection for looking at and preparing files (UTF-8 SQL).
class RawSqlite
{
public:
    explicit RawSqlite(const std::wstring& path);
    ~RawSqlite();
    RawSqlite(const RawSqlite&) = delete;
    RawSqlite& operator=(const RawSqlite&) = delete;

    // Runs sql; false (with the message in Error()) on failure.
    bool Execute(const std::string& sql);
    // The rows of a query, each column as text ("<null>" for NULL), columns joined by "|".
    std::vector<std::string> Rows(const std::string& sql);
    std::string Error() const { return m_error; }
    sqlite3* Handle() const { return m_db; }

private:
    sqlite3* m_db = nullptr;
    std::string m_error;
};

// A SQL storage over the database that connection names (XSqlConnect); null, with the failure in
// *hr, when it cannot be opened.
XComPtr<IWQ_SessionDataStorageEx> NewSqlStorage(const std::wstring& connection, HRESULT* hr = nullptr);
// Expects opening a storage on connection to fail: the HRESULT, the error info's text in *message.
HRESULT OpenFails(const std::wstring& connection, std::wstring* message = nullptr);
// The storage as its base interface.
inline IWQ_SessionDataStorage* Base(const XComPtr<IWQ_SessionDataStorageEx>& storage)
{
    return storage.Get();
}

// The engines behind the SQL storage; a test of the storage's behaviour runs on each.
enum class SqlEngine
{
    Sqlite,
    Postgres
};
inline auto AllSqlEngines()
{
    return ::testing::Values(SqlEngine::Sqlite, SqlEngine::Postgres);
}
// "SQLite" or "PostgreSQL": the suffix of a parameterised test's name.
std::string SqlEngineName(const ::testing::TestParamInfo<SqlEngine>& info);

// A database of the running test on an engine: a file of its own for SQLite, a schema of its
// own in the test cluster's database for PostgreSQL; gone with the owner.
class TestSqlDatabase
{
public:
    explicit TestSqlDatabase(SqlEngine engine);
    ~TestSqlDatabase();
    TestSqlDatabase(const TestSqlDatabase&) = delete;
    TestSqlDatabase& operator=(const TestSqlDatabase&) = delete;

    SqlEngine Engine() const { return m_engine; }
    std::wstring Connection() const;
    // Raw SQL on the database, as RawSqlite and RawOdbc run it.
    bool Execute(const std::string& sql);
    std::vector<std::string> Rows(const std::string& sql);
    std::string Error() const;

private:
    SqlEngine m_engine;
    std::unique_ptr<TestDatabaseFile> m_file;
    std::unique_ptr<RawSqlite> m_sqlite;
    std::unique_ptr<PgTestSchema> m_schema;
};
