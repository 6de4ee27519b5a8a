// The database restarted in the middle of a stream of asynchronous writes through the root
// server: every write acknowledged (by a flush that succeeded) before the stop is in the database
// after it, the failures in between are reported by the flush and by GetLastErrorAsyncExecution,
// a synchronous call while the database is down fails within a bounded time, and the stream goes
// on in the same client, on a new database storage over the same root, once the database is back
// (the server connects again by itself).
//
// Run by tests/host/pg_restart.sh, which gives the case a PostgreSQL cluster of its own (WQ_TEST_PG)
// and a folder (WQSDM_RESTART_DIR) for the handshake: the client writes "streaming" once writes
// are acknowledged; the script stops the cluster, writes "stopped", starts it again and writes
// "restarted".
#include "iotesthelpers.h"
#include "pgtesthelpers.h"
#include "rootservertest.h"
#include "storagetesthelpers.h"
#include "testenv.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <set>

namespace
{
const wchar_t kFolderVariable[] = L"WQSDM_RESTART_DIR";
const int kFlushEvery = 20;
const int kAcknowledgedAfterRestart = 200;

std::wstring Folder()
{
    wchar_t folder[MAX_PATH] = {};
    return ::GetEnvironmentVariableW(kFolderVariable, folder, MAX_PATH) ? folder : L"";
}

bool Exists(const std::wstring& file)
{
    return ::GetFileAttributesW(file.c_str()) != INVALID_FILE_ATTRIBUTES;
}

void Touch(const std::wstring& file)
{
    FILE* made = _wfopen(file.c_str(), L"w");
    if (made)
        std::fclose(made);
}
} // namespace

TEST(RootRestart, AStreamOfAsynchronousWritesSurvivesADatabaseRestart)
{
    const std::wstring folder = Folder();
    if (folder.empty())
        GTEST_SKIP() << "run by tests/host/pg_restart.sh";
    PgTestSchema schema;
    HRESULT hr = E_FAIL;
    const XComPtr<IWQ_SessionDataIOEx> root = ActivateRoot(schema.Connection(), &hr);
    ASSERT_TRUE(root) << std::hex << hr;
    auto category = std::make_unique<UserDatabaseCategory>(root, L"Suite\\App", 3);
    ASSERT_EQ(S_OK, category->setup);

    std::set<int> acknowledged;
    std::vector<int> unacknowledged;  // written since the last flush that succeeded
    int failedFlushes = 0, reportedFailures = 0, newStorages = 0, afterRestart = 0;
    bool restarted = false, measured = false;
    HRESULT downRead = S_OK;
    double downReadSeconds = 0;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; afterRestart < kAcknowledgedAfterRestart; ++i)
    {
        ASSERT_LT(std::chrono::steady_clock::now() - start, std::chrono::minutes(3)) << "the stream never resumed";
        ASSERT_EQ(S_OK, WriteUserText(category->manager.Get(), L"Stream", (L"n" + std::to_wstring(i)).c_str(), L"v"));
        unacknowledged.push_back(i);
        if (unacknowledged.size() < kFlushEvery)
            continue;
        if (category->manager->FlushAsyncStorage(kUserDatabase) == S_OK)
        {
            acknowledged.insert(unacknowledged.begin(), unacknowledged.end());
            afterRestart += restarted ? static_cast<int>(unacknowledged.size()) : 0;
            unacknowledged.clear();
            if (acknowledged.size() >= 200)
                Touch(folder + L"\\streaming");
        }
        else
        {
            ++failedFlushes;
            HRESULT async = S_OK;
            EXPECT_EQ(S_OK, category->manager->GetLastErrorAsyncExecution(kUserDatabase, &async));
            reportedFailures += FAILED(async) ? 1 : 0;
            // The storage reports its failure for good: go on with a new one over the same root,
            // and write again what no flush acknowledged (writing a value twice sets it twice).
            category = std::make_unique<UserDatabaseCategory>(root, L"Suite\\App", 3);
            ASSERT_EQ(S_OK, category->setup);
            ++newStorages;
            for (const int again : unacknowledged)
                ASSERT_EQ(S_OK, WriteUserText(category->manager.Get(), L"Stream",
                                              (L"n" + std::to_wstring(again)).c_str(), L"v"));
            ::Sleep(200);
        }
        if (!measured && Exists(folder + L"\\stopped") && !Exists(folder + L"\\restarted"))
        {
            const auto before = std::chrono::steady_clock::now();
            downRead = Read(root.Get(), L"Direct", L"n").hr;
            downReadSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - before).count();
            measured = true;
        }
        restarted = restarted || Exists(folder + L"\\restarted");
    }
    category.reset();

    RawOdbc after(schema.OdbcText());
    ASSERT_TRUE(after.Connected()) << after.Error();
    std::set<std::string> stored;
    for (const std::string& name : after.Rows("SELECT name FROM sdm_values WHERE key_norm LIKE '%/suite/app/stream'"))
        stored.insert(name);
    int missing = 0;
    for (const int i : acknowledged)
        missing += stored.count("n" + std::to_string(i)) ? 0 : 1;
    std::printf("%zu writes acknowledged, %d missing after the restart; %d flushes failed (%d reported by "
                "GetLastErrorAsyncExecution), %d new storages; a read while the database was down: %08lx after %.2f s\n",
                acknowledged.size(), missing, failedFlushes, reportedFailures, newStorages,
                static_cast<unsigned long>(downRead), downReadSeconds);
    EXPECT_EQ(0, missing);
    EXPECT_GE(failedFlushes, 1);
    EXPECT_EQ(failedFlushes, reportedFailures);
    EXPECT_TRUE(measured);
    EXPECT_TRUE(FAILED(downRead));
    EXPECT_LT(downReadSeconds, 15.0);
}
