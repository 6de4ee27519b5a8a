// The storage-root server out of process: activated by its ProgID, one server for every client
// (multiple use), ending a few seconds after its last object; its configuration interface and
// error info cross the process boundary; per-user keys belong to the client's user.
#include "iotesthelpers.h"
#include "rootservertest.h"
#include "roottesthelpers.h"
#include "sqltesthelpers.h"
#include "testenv.h"

#include <gtest/gtest.h>

TEST(RootServer, AnActivationByProgIdRunsInTheServerProcess)
{
    TestDatabaseFile file;
    HRESULT hr = E_FAIL;
    const XComPtr<IWQ_SessionDataIOEx> root = ActivateRoot(file.Connection(), &hr);
    ASSERT_TRUE(root) << std::hex << hr;
    const DWORD server = ServerProcessOf(root);
    EXPECT_NE(0u, server);
    EXPECT_NE(::GetCurrentProcessId(), server);
    ASSERT_EQ(S_OK, Write(root.Get(), L"Suite/App", L"Theme", L"dark"));
    EXPECT_EQ(L"dark", Read(root.Get(), L"suite/app", L"theme").value);
    RawSqlite raw(file.Path());
    EXPECT_EQ(std::vector<std::string>{"theme|dark"}, raw.Rows("SELECT name, value FROM sdm_values"));
}

TEST(RootServer, OneServerServesEveryClientFromOneCache)
{
    TestDatabaseFile file;
    const XComPtr<IWQ_SessionDataIOEx> first = ActivateRoot(file.Connection());
    const XComPtr<IWQ_SessionDataIOEx> second = ActivateRoot(file.Connection());
    ASSERT_TRUE(first && second);
    EXPECT_EQ(ServerProcessOf(first), ServerProcessOf(second));
    EXPECT_TRUE(ReadsFromOneCache(first.Get(), second.Get(), file.Path()));
}

TEST(RootServer, TheServerEndsAFewSecondsAfterItsLastObjectIsReleased)
{
    TestDatabaseFile file;
    XComPtr<IWQ_SessionDataIOEx> root = ActivateRoot(file.Connection());
    ASSERT_TRUE(root);
    const WatchedProcess server(ServerProcessOf(root));
    ASSERT_TRUE(server.Valid());
    // Alive while an object is held, however long.
    EXPECT_FALSE(server.EndsWithin(4500));
    EXPECT_EQ(S_OK, Write(root.Get(), L"k", L"n", L"v"));
    root.Reset();
    EXPECT_TRUE(server.EndsWithin(20000));
    // The data outlives it; the next activation starts a new server.
    const XComPtr<IWQ_SessionDataIOEx> again = ActivateRoot(file.Connection());
    ASSERT_TRUE(again);
    EXPECT_EQ(L"v", Read(again.Get(), L"k", L"n").value);
}

// The HRESULTs cross the process boundary. Error info crosses where the platform carries it:
// Wine's channel sends none, Windows does, and then it must be the server's text.
TEST(RootServer, ConfigurationAndFailuresCrossTheProcessBoundary)
{
    TestDatabaseFile file;
    const XComPtr<IWQ_SessionDataIOEx> root = ActivateRoot(file.Connection());
    ASSERT_TRUE(root);
    const XComPtr<IWQ_SessionDataRootConfig> config = RootConfigOf(root);
    ASSERT_TRUE(config);
    BSTR connection = nullptr;
    ASSERT_EQ(S_OK, config->GetConnection(&connection));
    EXPECT_EQ(L"sqlite:" + file.Path() + L"?synchronous=normal&busy_timeout=5000", std::wstring(connection));
    ::SysFreeString(connection);
    // Each answer is checked at once: the next call replaces the thread's error info.
    const auto expectFailure = [](HRESULT hr, HRESULT expected, const wchar_t* says) {
        EXPECT_EQ(expected, hr);
        const ErrorInfoText info = TakeErrorInfo();
        if (info.present)
        {
            EXPECT_NE(std::wstring::npos, info.description.find(says)) << Utf8(info.description);
        }
    };
    expectFailure(config->Open(XWQComBSTR(L"mysql:server=x")), E_INVALIDARG, L"unknown connection scheme");
    expectFailure(Write(root.Get(), L"<[user:S-1-5-18]>/x", L"n", L"v"), E_ACCESSDENIED, L"reserved");
    expectFailure(root->SetStorage(nullptr), E_NOTIMPL, L"Open");
    // The failed Open left the root on its database.
    EXPECT_EQ(S_OK, Write(root.Get(), L"k", L"n", L"v"));
}

TEST(RootServer, PerUserKeysBelongToTheClientsUser)
{
    TestDatabaseFile file;
    const XComPtr<IWQ_SessionDataIOEx> root = ActivateRoot(file.Connection());
    ASSERT_TRUE(root);
    ASSERT_EQ(S_OK, Write(root.Get(), L"<[HKCU]>/Suite/App", L"n", L"mine"));
    const std::wstring sid = ProcessUserSid();
    ASSERT_FALSE(sid.empty());
    RawSqlite raw(file.Path());
    EXPECT_EQ(std::vector<std::string>{"<[user:" + Utf8(sid) + "]>/Suite/App"},
              raw.Rows("SELECT key_text FROM sdm_keys WHERE key_norm LIKE '%/suite/app'"));
    HRESULT hr = E_FAIL;
    EXPECT_EQ((std::vector<std::wstring>{L"<[HKCU]>/Suite", L"<[HKCU]>/Suite/App"}),
              SubKeysOf(root.Get(), L"<[HKCU]>", 1, &hr));
    EXPECT_EQ(S_OK, hr);
}

TEST(RootServer, InProcessActivationByProgIdUsesTheDll)
{
    TestDatabaseFile file;
    HRESULT hr = E_FAIL;
    const XComPtr<IWQ_SessionDataIOEx> root = ActivateRoot(file.Connection(), &hr, CLSCTX_INPROC_SERVER);
    ASSERT_TRUE(root) << std::hex << hr;
    EXPECT_EQ(::GetCurrentProcessId(), ServerProcessOf(root));
    EXPECT_EQ(S_OK, Write(root.Get(), L"k", L"n", L"v"));
    EXPECT_EQ(L"v", Read(root.Get(), L"k", L"n").value);
}
