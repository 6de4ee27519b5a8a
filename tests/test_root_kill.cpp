// The server killed in the middle of a stream of writes: the client's calls fail fast, nothing
// hangs, its database storage ends; a new server serves every value whose write the old one
// had acknowledged, from a file that is intact.
//
// Two cases, run one after the other by tests/host/root_kill.sh, each in a Wine server session
// of its own: after a kill, Wine's activation service keeps the dead server's class object, and
// every later activation of the class in that session fails. The cases share a folder (named by
// WQSDM_KILL_DIR): the database file and the list of acknowledged writes.
#include "iotesthelpers.h"
#include "rootservertest.h"
#include "sqltesthelpers.h"
#include "testenv.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

namespace
{
const wchar_t kFolderVariable[] = L"WQSDM_KILL_DIR";
const int kFlushedWrites = 200;
const int kStreamWrites = 5000;

std::wstring Name(const wchar_t* prefix, int i)
{
    return prefix + std::to_wstring(i);
}

// The shared folder; empty when the cases run on their own (they then skip).
std::wstring Folder()
{
    wchar_t folder[MAX_PATH] = {};
    return ::GetEnvironmentVariableW(kFolderVariable, folder, MAX_PATH) ? folder : L"";
}

std::wstring Connection(const std::wstring& folder)
{
    return L"sqlite:" + folder + L"\\kill.db";
}

// The acknowledged writes, one index per line.
void SaveAcknowledged(const std::wstring& folder, const std::vector<int>& indexes)
{
    FILE* file = _wfopen((folder + L"\\acknowledged.txt").c_str(), L"w");
    ASSERT_TRUE(file);
    for (int i : indexes)
        fprintf(file, "%d\n", i);
    fclose(file);
}

std::vector<int> LoadAcknowledged(const std::wstring& folder)
{
    std::vector<int> indexes;
    FILE* file = _wfopen((folder + L"\\acknowledged.txt").c_str(), L"r");
    if (!file)
        return indexes;
    int i = 0;
    while (fscanf(file, "%d", &i) == 1)
        indexes.push_back(i);
    fclose(file);
    return indexes;
}

// Synchronous writes straight to a root object until one fails: the indexes it acknowledged.
class AcknowledgedWriter
{
public:
    explicit AcknowledgedWriter(const std::wstring& connection) : m_connection(connection) {}
    void Start()
    {
        m_thread = std::thread([this] { Run(); });
    }
    std::vector<int> Join()
    {
        m_thread.join();
        return m_acknowledged;
    }
    int Count() const { return m_count.load(); }

private:
    void Run()
    {
        ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        {
            const XComPtr<IWQ_SessionDataIOEx> root = ActivateRoot(m_connection);
            for (int i = 0; root && i < kStreamWrites; ++i)
            {
                if (Write(root.Get(), L"Direct", Name(L"n", i).c_str(), L"acknowledged") != S_OK)
                    break;
                m_acknowledged.push_back(i);
                ++m_count;
            }
        }
        ::CoUninitialize();
    }

    std::wstring m_connection;
    std::thread m_thread;
    std::vector<int> m_acknowledged;
    std::atomic<int> m_count{0};
};
} // namespace

TEST(RootKill, KillTheServerInAStreamOfWrites)
{
    const std::wstring folder = Folder();
    if (folder.empty())
        GTEST_SKIP() << "run by tests/host/root_kill.sh";
    HRESULT hr = E_FAIL;
    const XComPtr<IWQ_SessionDataIOEx> root = ActivateRoot(Connection(folder), &hr);
    ASSERT_TRUE(root) << std::hex << hr;
    const WatchedProcess server(ServerProcessOf(root), SYNCHRONIZE | PROCESS_TERMINATE);
    ASSERT_TRUE(server.Valid());
    AcknowledgedWriter direct(Connection(folder));
    {
        UserDatabaseCategory category(root, L"Suite\\App", 1);
        ASSERT_EQ(S_OK, category.setup);
        for (int i = 0; i < kFlushedWrites; ++i)
            ASSERT_EQ(S_OK, WriteUserText(category.manager.Get(), L"Flushed", Name(L"n", i).c_str(), L"v"));
        // Acknowledged: the flush returns when every piped write has been committed.
        ASSERT_EQ(S_OK, category.manager->FlushAsyncStorage(kUserDatabase));

        direct.Start();
        HRESULT streamed = S_OK;
        for (int i = 0; i < kStreamWrites && SUCCEEDED(streamed); ++i)
        {
            streamed = WriteUserText(category.manager.Get(), L"Stream", Name(L"n", i).c_str(), L"v");
            if (i == 500)
            {
                while (direct.Count() < 50)
                    ::Sleep(10);
                ASSERT_TRUE(::TerminateProcess(server.Handle(), 9));
                ASSERT_TRUE(server.EndsWithin(30000));
            }
        }
        // The pipe's latched connection fault is reported at the flush.
        EXPECT_TRUE(FAILED(category.manager->FlushAsyncStorage(kUserDatabase)));
        HRESULT async = S_OK;
        EXPECT_EQ(S_OK, category.manager->GetLastErrorAsyncExecution(kUserDatabase, &async));
        EXPECT_TRUE(FAILED(async)) << std::hex << async;
        // Later calls through the dead root fail at once.
        EXPECT_TRUE(FAILED(Write(root.Get(), L"After", L"n", L"v")));
    }  // the storage's worker stops here: this returns
    const std::vector<int> acknowledged = direct.Join();
    EXPECT_FALSE(acknowledged.empty());
    SaveAcknowledged(folder, acknowledged);
}

TEST(RootKill, ANewServerServesWhatWasAcknowledged)
{
    const std::wstring folder = Folder();
    if (folder.empty())
        GTEST_SKIP() << "run by tests/host/root_kill.sh";
    const std::vector<int> acknowledged = LoadAcknowledged(folder);
    ASSERT_FALSE(acknowledged.empty());
    HRESULT hr = E_FAIL;
    XComPtr<IWQ_SessionDataIOEx> fresh = ActivateRoot(Connection(folder), &hr);
    ASSERT_TRUE(fresh) << std::hex << hr;
    const WatchedProcess server(ServerProcessOf(fresh));
    {
        UserDatabaseCategory reader(fresh, L"Suite\\App", 0);
        ASSERT_EQ(S_OK, reader.setup);
        int missing = 0;
        for (int i = 0; i < kFlushedWrites; ++i)
            missing += ReadUserText(reader.manager.Get(), L"Flushed", Name(L"n", i).c_str()) == L"v" ? 0 : 1;
        for (int i : acknowledged)
            missing += Read(fresh.Get(), L"Direct", Name(L"n", i).c_str()).value == L"acknowledged" ? 0 : 1;
        EXPECT_EQ(0, missing) << "of " << kFlushedWrites + acknowledged.size();
        std::printf("new server: %d of %d acknowledged values served\n",
                    static_cast<int>(kFlushedWrites + acknowledged.size()) - missing,
                    static_cast<int>(kFlushedWrites + acknowledged.size()));
    }
    RawSqlite raw(folder + L"\\kill.db");
    EXPECT_EQ(std::vector<std::string>{"ok"}, raw.Rows("PRAGMA integrity_check"));
    // The server closes the file when it ends: the host's own check follows.
    fresh.Reset();
    EXPECT_TRUE(server.EndsWithin(20000));
}
