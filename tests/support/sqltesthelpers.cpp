#include "sqltesthelpers.h"

#include "pgtesthelpers.h"
#include "testenv.h"

#include "xsdmreporter.h"
#include "xsessiondatastoragesql.h"
#include "xsqlconnect.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace
{
std::wstring TestName()
{
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = info ? std::string(info->test_suite_name()) + "-" + info->name() : "none";
    for (char& c : name)
        if (c == '/')
            c = '-';
    return std::wstring(name.begin(), name.end());
}
} // namespace

TestDatabaseFile::TestDatabaseFile(const std::wstring& suffix)
{
    wchar_t folder[MAX_PATH];
    ::GetTempPathW(MAX_PATH, folder);
    m_path = std::wstring(folder) + L"wqsdm-" + std::to_wstring(::GetCurrentProcessId()) + L"-" + TestName() + suffix +
             L".db";
    Remove();
}

TestDatabaseFile::~TestDatabaseFile()
{
    Remove();
}

void TestDatabaseFile::Remove() const
{
    for (const wchar_t* ending : {L"", L"-wal", L"-shm", L"-journal"})
    {
        const std::wstring file = m_path + ending;
        ::SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
        ::DeleteFileW(file.c_str());
    }
}

RawSqlite::RawSqlite(const std::wstring& path)
{
    ::sqlite3_open16(path.c_str(), &m_db);
    ::sqlite3_busy_timeout(m_db, 5000);
}

RawSqlite::~RawSqlite()
{
    ::sqlite3_close(m_db);
}

bool RawSqlite::Execute(const std::string& sql)
{
    char* message = nullptr;
    const int code = ::sqlite3_exec(m_db, sql.c_str(), nullptr, nullptr, &message);
    m_error = message ? message : "";
    ::sqlite3_free(message);
    return code == SQLITE_OK;
}

std::vector<std::string> RawSqlite::Rows(const std::string& sql)
{
    std::vector<std::string> rows;
    sqlite3_stmt* statement = nullptr;
    if (::sqlite3_prepare_v2(m_db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK)
    {
        m_error = ::sqlite3_errmsg(m_db);
        return rows;
    }
    while (::sqlite3_step(statement) == SQLITE_ROW)
    {
        std::string row;
        for (int column = 0; column < ::sqlite3_column_count(statement); ++column)
        {
            if (column)
                row += "|";
            const unsigned char* text = ::sqlite3_column_text(statement, column);
            row += text ? reinterpret_cast<const char*>(text) : "<null>";
        }
        rows.push_back(row);
    }
    ::sqlite3_finalize(statement);
    return rows;
}

XComPtr<IWQ_SessionDataStorageEx> NewSqlStorage(const std::wstring& connection, HRESULT* hr)
{
    XComPtr<IWQ_SessionDataStorageEx> storage;
    static const XSdmReporter report("test", GUID_NULL);
    const HRESULT opened = report.Run(__LINE__, XWQComBSTR(L"NewSqlStorage"), [&]() -> HRESULT {
        storage = XSessionDataStorageSql::Create(XSqlConnect(connection));
        return S_OK;
    });
    if (hr)
        *hr = opened;
    return storage;
}

bool WriteGarbageFile(const std::wstring& path)
{
    HANDLE file = ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    const std::string text(8192, 'G');
    DWORD written = 0;
    const BOOL wrote = ::WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    ::CloseHandle(file);
    return wrote && written == text.size();
}

std::string SqlEngineName(const ::testing::TestParamInfo<SqlEngine>& info)
{
    return info.param == SqlEngine::Sqlite ? "SQLite" : "PostgreSQL";
}

TestSqlDatabase::TestSqlDatabase(SqlEngine engine) : m_engine(engine)
{
    if (engine == SqlEngine::Sqlite)
        m_file = std::make_unique<TestDatabaseFile>();
    else
        m_schema = std::make_unique<PgTestSchema>();
}

TestSqlDatabase::~TestSqlDatabase() = default;

std::wstring TestSqlDatabase::Connection() const
{
    return m_file ? m_file->Connection() : m_schema->Connection();
}

bool TestSqlDatabase::Execute(const std::string& sql)
{
    if (m_schema)
        return m_schema->Raw().Execute(sql);
    if (!m_sqlite)
        m_sqlite = std::make_unique<RawSqlite>(m_file->Path());
    return m_sqlite->Execute(sql);
}

std::vector<std::string> TestSqlDatabase::Rows(const std::string& sql)
{
    if (m_schema)
        return m_schema->Raw().Rows(sql);
    if (!m_sqlite)
        m_sqlite = std::make_unique<RawSqlite>(m_file->Path());
    return m_sqlite->Rows(sql);
}

std::string TestSqlDatabase::Error() const
{
    return m_schema ? m_schema->Raw().Error() : m_sqlite ? m_sqlite->Error() : std::string();
}

HRESULT OpenFails(const std::wstring& connection, std::wstring* message)
{
    HRESULT hr = S_OK;
    const XComPtr<IWQ_SessionDataStorageEx> storage = NewSqlStorage(connection, &hr);
    if (message)
        *message = TakeErrorInfo().description;
    EXPECT_FALSE(storage);
    return hr;
}
