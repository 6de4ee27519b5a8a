// The SQL storage when the database cannot do what it is asked: a file another process holds
// locked (the busy timeout, then a clear error, never a hang), a full disk (the list rolls back,
// nothing half-written), a read-only file; and two processes writing one file at once.
#include "sqltesthelpers.h"
#include "testenv.h"
#include "xsessiondatastoragesql.h"
#include "xsqlerror.h"
#include "xsqliteconnection.h"
#include "xsqlschema.h"

#include <gtest/gtest.h>

namespace
{
// A storage over a connection that the test sets up itself.
XComPtr<IWQ_SessionDataStorageEx> StorageOver(std::unique_ptr<XSqliteConnection> connection)
{
    XSqlSchema::Prepare(*connection);
    return XSessionDataStorageSql::Create(std::move(connection));
}
} // namespace

TEST(SqlStorageFaults, AFileLockedByAnotherWriterWaitsForTheBusyTimeoutThenFailsClearly)
{
    TestDatabaseFile file;
    const XComPtr<IWQ_SessionDataStorageEx> storage = NewSqlStorage(file.Connection(L"?busy_timeout=300"));
    ASSERT_TRUE(storage);
    RawSqlite other(file.Path());
    ASSERT_TRUE(other.Execute("BEGIN IMMEDIATE; INSERT INTO sdm_meta VALUES ('held', 'by another');"));

    const DWORD start = ::GetTickCount();
    EXPECT_EQ(XSqlError::kBusy, StorePairs(storage.Get(), L"k", {{L"n", L"v"}}));
    const DWORD waited = ::GetTickCount() - start;
    EXPECT_GE(waited, 250u);
    EXPECT_LT(waited, 5000u);
    EXPECT_NE(std::wstring::npos, TakeErrorInfo().description.find(L"SQLite"));

    ASSERT_TRUE(other.Execute("ROLLBACK;"));
    EXPECT_EQ(S_OK, StorePairs(storage.Get(), L"k", {{L"n", L"v"}}));
}

TEST(SqlStorageFaults, AFullDiskRollsTheListBackAndWritesNothing)
{
    TestDatabaseFile file;
    auto connection = std::make_unique<XSqliteConnection>(file.Path(), XSqliteOptions());
    XSqliteConnection& raw = *connection;
    const XComPtr<IWQ_SessionDataStorageEx> storage = StorageOver(std::move(connection));
    // The file may grow by a few pages only: a megabyte does not fit.
    raw.Execute("PRAGMA max_page_count = 24");
    EXPECT_EQ(XSqlError::kFull,
              StorePairs(storage.Get(), L"list", {{L"small", L"fits"}, {L"big", std::wstring(1024 * 1024, L'x')}}));
    EXPECT_EQ(S_FALSE, ReadPairs(storage.Get(), L"list").hr);
    EXPECT_EQ(S_FALSE, ReadSubKeys(storage.Get(), L"list", 0).hr);
    EXPECT_EQ(S_OK, StorePairs(storage.Get(), L"list", {{L"small", L"fits"}}));
}

TEST(SqlStorageFaults, ADatabaseThatCannotBeWrittenIsAClearErrorAndStaysAsItWas)
{
    TestDatabaseFile file;
    auto connection = std::make_unique<XSqliteConnection>(file.Path(), XSqliteOptions());
    XSqliteConnection& raw = *connection;
    const XComPtr<IWQ_SessionDataStorageEx> storage = StorageOver(std::move(connection));
    ASSERT_EQ(S_OK, StorePairs(storage.Get(), L"k", {{L"n", L"before"}}));
    // What a read-only file or medium does to every write (the tests run as a user whom file
    // attributes do not stop).
    raw.Execute("PRAGMA query_only = 1");
    EXPECT_EQ(XSqlError::kReadOnly, StorePairs(storage.Get(), L"k", {{L"n", L"after"}, {L"m", L"new"}}));
    EXPECT_NE(std::wstring::npos, TakeErrorInfo().description.find(L"SQLite"));
    EXPECT_EQ((Pairs{{L"n", L"before"}}), ReadPairs(storage.Get(), L"k").pairs);
}

TEST(SqlStorageFaults, TwoProcessesWritingOneFileAtOnceLoseNothing)
{
    TestDatabaseFile file;
    const XComPtr<IWQ_SessionDataStorageEx> storage = NewSqlStorage(file.Connection());
    ASSERT_TRUE(storage);
    wchar_t exe[MAX_PATH];
    ::GetModuleFileNameW(nullptr, exe, MAX_PATH);
    std::wstring command = L"\"" + std::wstring(exe) + L"\" --gtest_filter=SqlStorageFaults.ChildProcessWriter";
    ::SetEnvironmentVariableW(L"WQSDM_SQL_CHILD", file.Connection().c_str());
    STARTUPINFOW si{};
    si.cb = sizeof si;
    PROCESS_INFORMATION pi{};
    ASSERT_TRUE(::CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi));
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(S_OK, StorePairs(storage.Get(), L"parent", {{L"n" + std::to_wstring(i), L"p"}}));
    EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(pi.hProcess, 60000));
    DWORD code = 1;
    ::GetExitCodeProcess(pi.hProcess, &code);
    ::CloseHandle(pi.hThread);
    ::CloseHandle(pi.hProcess);
    EXPECT_EQ(0u, code);
    EXPECT_EQ(100u, ReadPairs(storage.Get(), L"parent").pairs.size());
    EXPECT_EQ(100u, ReadPairs(storage.Get(), L"child").pairs.size());
}

// Helper run by TwoProcessesWritingOneFileAtOnceLoseNothing in a child process; does nothing on
// its own (and is not registered with ctest).
TEST(SqlStorageFaults, ChildProcessWriter)
{
    wchar_t connection[MAX_PATH + 16] = {};
    if (!::GetEnvironmentVariableW(L"WQSDM_SQL_CHILD", connection, MAX_PATH + 16))
        GTEST_SKIP() << "only meaningful as a child of TwoProcessesWritingOneFileAtOnceLoseNothing";
    const XComPtr<IWQ_SessionDataStorageEx> storage = NewSqlStorage(connection);
    ASSERT_TRUE(storage);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(S_OK, StorePairs(storage.Get(), L"child", {{L"n" + std::to_wstring(i), L"c"}}));
}
