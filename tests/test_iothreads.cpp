// Concurrent callers on one IO object: each call holds the object's lock for its whole run, so
// every caller sees its own writes and no call sees a half-made table.
#include "iotesthelpers.h"
#include "xcomtypes.h"
#include "xsessiondataio.h"
#include "xsessiondataionocache.h"
#include "xsessiondatastoragevolatile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace
{
const int kThreads = 4;
const auto kRunFor = std::chrono::milliseconds(700);

// Runs body(thread index, round) on kThreads threads in the multithreaded apartment until the
// time is up; returns the number of failed expectations counted by the bodies.
template <class Body>
int Hammer(Body body)
{
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    const auto end = std::chrono::steady_clock::now() + kRunFor;
    for (int t = 0; t < kThreads; ++t)
    {
        threads.emplace_back([&, t] {
            ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            for (int round = 0; std::chrono::steady_clock::now() < end; ++round)
                failures += body(t, round);
            ::CoUninitialize();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    return failures.load();
}

XComPtr<IWQ_SessionDataStorage> NewVolatileStorage()
{
    XComPtr<IWQ_SessionDataStorage> storage;
    XCreateComObject<XSessionDataStorageVolatile>(nullptr, IID_IWQ_SessionDataStorage,
                                                  reinterpret_cast<void**>(storage.ReleaseAndGetAddressOf()));
    return storage;
}
} // namespace

TEST(IOThreads, CachedLayerKeepsEveryThreadsWrites)
{
    XComPtr<IWQ_SessionDataStorage> storage = NewVolatileStorage();
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIO>(storage.Get());
    std::vector<int> rounds(kThreads, 0);
    const int failures = Hammer([&](int t, int round) {
        const std::wstring key = L"thread" + std::to_wstring(t);
        const std::wstring name = L"v" + std::to_wstring(round % 50);
        const std::wstring value = std::to_wstring(round);
        int failed = 0;
        failed += io->WriteData(XWQComBSTR(key), XWQComBSTR(name), XWQComBSTR(value)) != S_OK;
        const ReadResult read = Read(io.Get(), key.c_str(), name.c_str());
        failed += read.hr != S_OK || read.value != value;
        failed += Read(io.Get(), key.c_str(), L"never written").hr != S_FALSE;
        const ListResult list = List(io.Get(), key.c_str());
        failed += list.hr != S_OK || list.count != static_cast<ULONG>(std::min(round + 1, 50));
        XKeyValueArray all;
        io->GetAllData(XWQComBSTR(L""), all.CountAddress(), all.ItemsAddress());
        rounds[t] = round + 1;
        return failed;
    });
    EXPECT_EQ(0, failures);
    for (int t = 0; t < kThreads; ++t)
    {
        EXPECT_GT(rounds[t], 0);
        const ListResult list = List(io.Get(), (L"thread" + std::to_wstring(t)).c_str());
        EXPECT_EQ(static_cast<ULONG>(std::min(rounds[t], 50)), list.count);
    }
}

TEST(IOThreads, CachedLayerFlushedConcurrentlyNeverAnswersAWrongValue)
{
    XComPtr<IWQ_SessionDataStorage> storage = NewVolatileStorage();
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIO>(storage.Get());
    const int failures = Hammer([&](int t, int round) {
        if (t == 0)
            return io->FlushCache(SDT_volatileData) != S_OK ? 1 : 0;
        const std::wstring key = L"thread" + std::to_wstring(t);
        const std::wstring value = std::to_wstring(round);
        int failed = io->WriteData(XWQComBSTR(key), XWQComBSTR(L"n"), XWQComBSTR(value)) != S_OK;
        const ReadResult read = Read(io.Get(), key.c_str(), L"n");
        // A flush between the write and the read empties the cache; anything else is this value.
        failed += read.hr == S_OK ? read.value != value : read.hr != S_FALSE;
        return failed;
    });
    EXPECT_EQ(0, failures);
}

TEST(IOThreads, UncachedLayerServesConcurrentReadersAndWriters)
{
    StorageRef storage;
    storage->SetRecords(L"shared", {{L"a", L"1"}, {L"b", L"2"}});
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIONoCache>(storage.Get());
    const int failures = Hammer([&](int t, int round) {
        int failed = 0;
        const ReadResult read = Read(io.Get(), L"Shared", L"B");
        failed += read.hr != S_OK || read.value != L"2";
        const ListResult list = List(io.Get(), L"shared");
        failed += list.hr != S_OK || list.records != std::vector<std::string>{"a=1", "b=2"};
        const std::wstring key = L"thread" + std::to_wstring(t);
        failed += io->WriteData(XWQComBSTR(key), XWQComBSTR(L"n"), XWQComBSTR(std::to_wstring(round))) != S_OK;
        return failed;
    });
    EXPECT_EQ(0, failures);
    EXPECT_GT(storage->CountCalls("StoreData(thread0|1|n="), 0u);
}
