// The per-user database category end to end: the client's manager, the module's cached extended
// IO over its database storage (asynchronous, user profile, under a root key) and a root object
// of the server in another process, activated by ProgID, over an SQLite file. A second client
// process reads what the first wrote; the file holds the rows.
#include "iotesthelpers.h"
#include "rootservertest.h"
#include "sqltesthelpers.h"
#include "testenv.h"
#include "xcomtypes.h"

#include <gtest/gtest.h>

namespace
{
const wchar_t kChildConnection[] = L"WQSDM_ROOT_CHILD";

// Runs this test program's reader case in a child process over connection; its exit code.
DWORD RunChildReader(const std::wstring& connection)
{
    wchar_t exe[MAX_PATH];
    ::GetModuleFileNameW(nullptr, exe, MAX_PATH);
    ::SetEnvironmentVariableW(kChildConnection, connection.c_str());
    const DWORD code = RunAndWait(L"\"" + std::wstring(exe) + L"\" --gtest_filter=RootEndToEnd.ChildProcessReader");
    ::SetEnvironmentVariableW(kChildConnection, nullptr);
    return code;
}

const std::wstring kBigValue(1 << 20, L'x');
} // namespace

TEST(RootEndToEnd, AValueWrittenInOneProcessIsReadInAnother)
{
    TestDatabaseFile file;
    {
        const XComPtr<IWQ_SessionDataIOEx> root = ActivateRoot(file.Connection());
        ASSERT_TRUE(root);
        UserDatabaseCategory category(root, L"Suite\\App", 5);
        ASSERT_EQ(S_OK, category.setup);
        ASSERT_EQ(S_OK, WriteUserText(category.manager.Get(), L"Window", L"Left", L"10"));
        ASSERT_EQ(S_OK, WriteUserText(category.manager.Get(), L"Window\\Toolbar", L"Visible", L"yes"));
        ASSERT_EQ(S_OK, WriteUserText(category.manager.Get(), L"Big", L"value", kBigValue));
        EXPECT_EQ(S_OK, category.manager->FlushAsyncStorage(kUserDatabase));
        HRESULT async = E_FAIL;
        EXPECT_EQ(S_OK, category.manager->GetLastErrorAsyncExecution(kUserDatabase, &async));
        EXPECT_EQ(S_OK, async);
    }
    EXPECT_EQ(0u, RunChildReader(file.Connection()));
    RawSqlite raw(file.Path());
    std::wstring sid = ProcessUserSid();
    ::CharLowerBuffW(sid.data(), static_cast<DWORD>(sid.size()));
    const std::string user = "<[user:" + Utf8(sid) + "]>";
    // The cached layers store under lower-cased keys and names.
    EXPECT_EQ((std::vector<std::string>{user + "/suite/app/window|left|10", user + "/suite/app/window/toolbar|visible|yes"}),
              raw.Rows("SELECT k.key_text, v.name, v.value FROM sdm_values v JOIN sdm_keys k USING (scope, key_norm) "
                       "WHERE v.name <> 'value' ORDER BY k.key_norm"));
    EXPECT_EQ(std::vector<std::string>{"1048576"}, raw.Rows("SELECT length(value) FROM sdm_values WHERE name = 'value'"));
    EXPECT_EQ(std::vector<std::string>{"ok"}, raw.Rows("PRAGMA integrity_check"));
}

// Run by AValueWrittenInOneProcessIsReadInAnother in a child process; does nothing on its own
// (and is not registered with ctest).
TEST(RootEndToEnd, ChildProcessReader)
{
    wchar_t connection[MAX_PATH + 64] = {};
    if (!::GetEnvironmentVariableW(kChildConnection, connection, MAX_PATH + 64))
        GTEST_SKIP() << "only meaningful as a child of AValueWrittenInOneProcessIsReadInAnother";
    const XComPtr<IWQ_SessionDataIOEx> root = ActivateRoot(connection);
    ASSERT_TRUE(root);
    UserDatabaseCategory category(root, L"Suite\\App", 0);
    ASSERT_EQ(S_OK, category.setup);
    HRESULT hr = E_FAIL;
    EXPECT_EQ(L"10", ReadUserText(category.manager.Get(), L"Window", L"Left", &hr));
    EXPECT_EQ(S_OK, hr);
    EXPECT_EQ(L"yes", ReadUserText(category.manager.Get(), L"window\\toolbar", L"visible", &hr));
    EXPECT_EQ(kBigValue, ReadUserText(category.manager.Get(), L"Big", L"value", &hr));
    XBstrArray names;
    ASSERT_EQ(S_OK, category.manager->GetSubKeys(XWQComBSTR(L""), 1, names.CountAddress(), names.ItemsAddress(),
                                                 kUserDatabase));
    std::vector<std::wstring> listed;
    for (ULONG i = 0; i < names.Count(); ++i)
        listed.emplace_back(names[i]);
    EXPECT_EQ((std::vector<std::wstring>{L"big", L"window", L"window/toolbar"}), listed);
}

// Run by tests/host/root_file_check.sh, which then opens the file with the host's sqlite3: the
// per-user category written through a server that has ended when this returns (and is not
// registered with ctest on its own).
TEST(RootEndToEnd, ChildProcessWriterForTheHostCheck)
{
    wchar_t path[MAX_PATH] = {};
    if (!::GetEnvironmentVariableW(L"WQSDM_HOST_CHECK_DB", path, MAX_PATH))
        GTEST_SKIP() << "run by tests/host/root_file_check.sh";
    XComPtr<IWQ_SessionDataIOEx> root = ActivateRoot(std::wstring(L"sqlite:") + path);
    ASSERT_TRUE(root);
    const WatchedProcess server(ServerProcessOf(root));
    {
        UserDatabaseCategory category(root, L"Suite\\App", 5);
        ASSERT_EQ(S_OK, category.setup);
        ASSERT_EQ(S_OK, WriteUserText(category.manager.Get(), L"Window", L"Left", L"10"));
        ASSERT_EQ(S_OK, WriteUserText(category.manager.Get(), L"Window\\Toolbar", L"Visible", L"yes"));
        ASSERT_EQ(S_OK, category.manager->FlushAsyncStorage(kUserDatabase));
    }
    root.Reset();
    EXPECT_TRUE(server.EndsWithin(20000));
}
