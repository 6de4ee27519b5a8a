// XSessionDataStorageDb in asynchronous write mode: writes under a root key are piped to the
// worker and reach the root later, on the worker's thread; reads of key lists run them first.
#include "storagedbtest.h"

#include "xcomtypes.h"

#include <thread>

namespace
{
// Long enough that the worker never wakes by itself during a test.
const LONG kLongInterval = 120;
const DWORD kGenerous = 20000;
// A failure of a piped call that is not a connection failure (which would close the
// connection to the root for later calls).
const HRESULT kRootRefused = MAKE_HRESULT(SEVERITY_ERROR, FACILITY_ITF, 0x0201);

class StorageDbAsyncTest : public StorageDbTest
{
protected:
    // SetRoot, SetRootKey (when not null), SetAsyncWriteMode.
    void BindAsync(const wchar_t* rootKey, LONG interval = kLongInterval)
    {
        Bind(rootKey);
        ASSERT_EQ(S_OK, storage->SetAsyncWriteMode(interval));
    }
    HRESULT Store(const wchar_t* key, const Pairs& pairs)
    {
        PairRecords records(pairs);
        return storage->StoreData(XWQComBSTR(key), records.Count(), records.Data());
    }
};

// A caller's value list, allocated as a caller of StoreData would.
tagSESSIONDATAVALUE* CallerList(const wchar_t* name, const wchar_t* value)
{
    auto* list = static_cast<tagSESSIONDATAVALUE*>(::CoTaskMemAlloc(sizeof(tagSESSIONDATAVALUE)));
    list->bstrValueName = ::SysAllocString(name);
    list->bstrValue = ::SysAllocString(value);
    return list;
}

// Overwrites and frees a caller's string, so that anyone still using it would see other text.
void Scrap(BSTR text)
{
    for (UINT c = 0; c < ::SysStringLen(text); ++c)
        text[c] = L'#';
    ::SysFreeString(text);
}
} // namespace

TEST_F(StorageDbAsyncTest, StoreDataReturnsBeforeTheRootSeesTheWrite)
{
    BindAsync(L"app");
    root->Hold("WriteStringList");
    EXPECT_EQ(S_OK, Store(L"k", {{L"n", L"v"}}));
    EXPECT_TRUE(Calls().empty());
    root->Open();
    EXPECT_EQ(S_OK, storage->FlushAsyncStorage());
    EXPECT_EQ(std::vector<std::string>{"WriteStringList(app/k|1|n=v)"}, Calls());
}

TEST_F(StorageDbAsyncTest, PipedWritesRunOnTheWorkerThread)
{
    BindAsync(L"app");
    EXPECT_EQ(S_OK, Store(L"k", {{L"n", L"v"}}));
    ASSERT_EQ(S_OK, storage->FlushAsyncStorage());
    const std::vector<DWORD> threads = root->CallThreads();
    ASSERT_EQ(1u, threads.size());
    EXPECT_NE(::GetCurrentThreadId(), threads[0]);
}

TEST_F(StorageDbAsyncTest, DeleteKeyReturnsBeforeTheRootSeesIt)
{
    BindAsync(L"app");
    root->Hold("DeleteKey");
    EXPECT_EQ(S_OK, storage->DeleteKey(XWQComBSTR(L"k")));
    EXPECT_TRUE(Calls().empty());
    root->Open();
    EXPECT_EQ(S_OK, storage->FlushAsyncStorage());
    EXPECT_EQ(std::vector<std::string>{"DeleteKey(app/k)"}, Calls());
}

TEST_F(StorageDbAsyncTest, PipedCallsRunInTheOrderOfPiping)
{
    BindAsync(L"app");
    Store(L"a", {{L"n", L"1"}});
    storage->DeleteKey(XWQComBSTR(L"b"));
    Store(L"a", {{L"n", L"2"}});
    ASSERT_EQ(S_OK, storage->FlushAsyncStorage());
    EXPECT_EQ((std::vector<std::string>{"WriteStringList(app/a|1|n=1)", "DeleteKey(app/b)",
                                        "WriteStringList(app/a|1|n=2)"}),
              Calls());
}

TEST_F(StorageDbAsyncTest, WithoutRootKeyWritesAreSynchronousAndKeysUnchanged)
{
    BindAsync(nullptr);
    EXPECT_EQ(S_OK, Store(L"k\\x", {{L"n", L"v"}}));
    EXPECT_EQ(S_OK, storage->DeleteKey(XWQComBSTR(L"k\\x")));
    EXPECT_EQ((std::vector<std::string>{"WriteStringList(k\\x|1|n=v)", "DeleteKey(k\\x)"}), Calls());
    const std::vector<DWORD> threads = root->CallThreads();
    ASSERT_EQ(2u, threads.size());
    EXPECT_EQ(::GetCurrentThreadId(), threads[0]);
    EXPECT_EQ(::GetCurrentThreadId(), threads[1]);
}

TEST_F(StorageDbAsyncTest, WithoutRootKeyTheRootsFailureOfAWriteIsReturnedAtOnce)
{
    BindAsync(nullptr);
    root->SetResult("WriteStringList", E_ACCESSDENIED);
    EXPECT_EQ(E_ACCESSDENIED, Store(L"k", {{L"n", L"v"}}));
}

TEST_F(StorageDbAsyncTest, ObjectWritesStaySynchronous)
{
    BindAsync(L"app");
    PairRecords records(Pairs{{L"n", L"v"}});
    EXPECT_EQ(S_OK, storage->StoreObjectData(nullptr, XWQComBSTR(L"k"), records.Count(), records.Data()));
    EXPECT_EQ(S_OK, storage->DeleteObjectKey(nullptr, XWQComBSTR(L"k")));
    EXPECT_EQ((std::vector<std::string>{"WriteObjectStringList(obj|app/k|1|n=v)", "DeleteObjectKey(obj|app/k)"}),
              Calls());
}

TEST_F(StorageDbAsyncTest, GetSubKeysRunsPendingWritesFirst)
{
    BindAsync(L"app");
    Store(L"k/new", {{L"n", L"v"}});
    root->SetSubKeys(L"app/k", {L"app/k/new"});
    const NamesResult names = ReadSubKeys(Base(), L"k", 0);
    EXPECT_EQ(S_OK, names.hr);
    EXPECT_EQ(std::vector<std::wstring>{L"k/new"}, names.names);
    EXPECT_EQ((std::vector<std::string>{"WriteStringList(app/k/new|1|n=v)", "GetSubKeys(app/k|0)"}), Calls());
}

TEST_F(StorageDbAsyncTest, ReadAllDataRunsPendingWritesFirst)
{
    BindAsync(L"app");
    Store(L"k", {{L"n", L"v"}});
    const KeyRecordsResult all = ReadAll(Base(), L"k");
    EXPECT_EQ(S_FALSE, all.hr);
    EXPECT_EQ((std::vector<std::string>{"WriteStringList(app/k|1|n=v)", "GetAllData(app/k)"}), Calls());
}

TEST_F(StorageDbAsyncTest, ReadDataDoesNotWaitForPendingWrites)
{
    BindAsync(L"app");
    root->Hold("WriteStringList");
    Store(L"k", {{L"n", L"v"}});
    EXPECT_EQ(S_FALSE, ReadPairs(Base(), L"k").hr);
    EXPECT_EQ(std::vector<std::string>{"GetStringList(app/k)"}, Calls());
    root->Open();
    ASSERT_EQ(S_OK, storage->FlushAsyncStorage());
    EXPECT_EQ(2u, Calls().size());
}

TEST_F(StorageDbAsyncTest, TheCallerMayFreeItsKeyAndArrayAtOnceAfterStoreData)
{
    BindAsync(L"app");
    BSTR key = ::SysAllocString(L"key");
    tagSESSIONDATAVALUE* list = CallerList(L"name", L"value");
    ASSERT_EQ(S_OK, storage->StoreData(key, 1, list));
    Scrap(list->bstrValueName);
    Scrap(list->bstrValue);
    ::CoTaskMemFree(list);
    Scrap(key);
    ASSERT_EQ(S_OK, storage->FlushAsyncStorage());
    EXPECT_EQ(std::vector<std::string>{"WriteStringList(app/key|1|name=value)"}, Calls());
}

TEST_F(StorageDbAsyncTest, ReleasingTheStorageRunsThePendingCalls)
{
    BindAsync(L"app");
    Store(L"k", {{L"n", L"v"}});
    storage->DeleteKey(XWQComBSTR(L"gone"));
    storage.Reset();
    EXPECT_EQ((std::vector<std::string>{"WriteStringList(app/k|1|n=v)", "DeleteKey(app/gone)"}), Calls());
}

TEST_F(StorageDbAsyncTest, ReleasingTheStorageReleasesItsRoot)
{
    const LONG before = root->References();
    BindAsync(L"app");
    Store(L"k", {{L"n", L"v"}});
    storage.Reset();
    EXPECT_EQ(before, root->References());
}

TEST_F(StorageDbAsyncTest, TheWorkerRunsPendingWritesAfterTheIntervalWithoutAFlush)
{
    BindAsync(L"app", 3);
    Store(L"warm", {{L"n", L"v"}});
    ASSERT_EQ(S_OK, storage->FlushAsyncStorage());
    root->ClearCalls();
    Store(L"k", {{L"n", L"v"}});
    EXPECT_TRUE(root->WaitForCalls(1, kGenerous));
    EXPECT_EQ(std::vector<std::string>{"WriteStringList(app/k|1|n=v)"}, Calls());
}

TEST_F(StorageDbAsyncTest, AFailingPipedCallSurfacesOnTheNextFlush)
{
    BindAsync(L"app");
    root->SetResult("WriteStringList", kRootRefused);
    EXPECT_EQ(S_OK, Store(L"k", {{L"n", L"v"}}));
    EXPECT_EQ(S_OK, storage->DeleteKey(XWQComBSTR(L"later")));
    EXPECT_EQ(kRootRefused, storage->FlushAsyncStorage());
    const ErrorInfoText info = TakeErrorInfo();
    const wchar_t flushFailed[] = L"flushing the asynchronous storage call pipe returned an error";
    EXPECT_NE(std::wstring::npos, info.description.find(flushFailed)) << Utf8(info.description);
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataStorageDb, info.guid));
    // The later call still ran.
    EXPECT_EQ((std::vector<std::string>{"WriteStringList(app/k|1|n=v)", "DeleteKey(app/later)"}), Calls());
    HRESULT retained = S_OK;
    EXPECT_EQ(S_OK, storage->GetLastErrorAsyncExecution(&retained));
    EXPECT_EQ(kRootRefused, retained);
    EXPECT_EQ(kRootRefused, storage->FlushAsyncStorage());
}

TEST_F(StorageDbAsyncTest, ARetainedFailureStopsGetSubKeysBeforeTheRootIsAsked)
{
    BindAsync(L"app");
    root->SetResult("DeleteKey", kRootRefused);
    storage->DeleteKey(XWQComBSTR(L"k"));
    ASSERT_EQ(kRootRefused, storage->FlushAsyncStorage());
    root->ClearCalls();
    EXPECT_EQ(kRootRefused, ReadSubKeys(Base(), L"k", 0).hr);
    EXPECT_EQ(kRootRefused, ReadAll(Base(), L"k").hr);
    EXPECT_TRUE(Calls().empty());
}

TEST_F(StorageDbAsyncTest, GetLastErrorAsyncExecutionWithoutFailureYieldsSOk)
{
    BindAsync(L"app");
    Store(L"k", {{L"n", L"v"}});
    ASSERT_EQ(S_OK, storage->FlushAsyncStorage());
    HRESULT retained = E_UNEXPECTED;
    EXPECT_EQ(S_OK, storage->GetLastErrorAsyncExecution(&retained));
    EXPECT_EQ(S_OK, retained);
}

TEST_F(StorageDbAsyncTest, AsynchronousModeBeforeARootStillReportsRootNotSet)
{
    ASSERT_EQ(S_OK, storage->SetAsyncWriteMode(kLongInterval));
    ASSERT_EQ(S_OK, storage->SetRootKey(XWQComBSTR(L"app")));
    EXPECT_EQ(E_POINTER, Store(L"k", {{L"n", L"v"}}));
    EXPECT_EQ(L"DB storage root instance not set", TakeErrorInfo().description);
}

TEST_F(StorageDbAsyncTest, AsynchronousModeStaysOnWhenSetAgain)
{
    BindAsync(L"app");
    ASSERT_EQ(S_OK, storage->SetAsyncWriteMode(0));
    Store(L"k", {{L"n", L"v"}});
    EXPECT_TRUE(Calls().empty());
    ASSERT_EQ(S_OK, storage->FlushAsyncStorage());
    EXPECT_EQ(1u, Calls().size());
}

TEST_F(StorageDbAsyncTest, AFailureOfTheWritesRunAtReleaseIsLoggedUnderTheStorage)
{
    BindAsync(L"app");
    root->SetResult("WriteStringList", kRootRefused);
    Store(L"k", {{L"n", L"v"}});
    storage.Reset();
    EXPECT_EQ(std::vector<std::string>{"WriteStringList(app/k|1|n=v)"}, Calls());
    EXPECT_TRUE(LogHas({"XSessionDataStorageDb::~XSessionDataStorageDb", "xsessiondatastoragedb",
                        "pending asynchronous writes failed"}));
}

TEST_F(StorageDbAsyncTest, WritesPipedFromSeveralThreadsAllRunInEachThreadsOrder)
{
    BindAsync(L"app");
    const int threads = 4;
    const int writes = 25;
    std::vector<std::thread> writers;
    for (int t = 0; t < threads; ++t)
    {
        writers.emplace_back([&, t] {
            ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            for (int i = 0; i < writes; ++i)
            {
                const std::wstring key = L"t" + std::to_wstring(t);
                EXPECT_EQ(S_OK, Store(key.c_str(), {{L"n", std::to_wstring(i)}}));
            }
            ::CoUninitialize();
        });
    }
    for (std::thread& writer : writers)
        writer.join();
    ASSERT_EQ(S_OK, storage->FlushAsyncStorage());
    const std::vector<std::string> calls = Calls();
    ASSERT_EQ(static_cast<size_t>(threads * writes), calls.size());
    for (int t = 0; t < threads; ++t)
    {
        int next = 0;
        const std::string prefix = "WriteStringList(app/t" + std::to_string(t) + "|1|n=";
        for (const std::string& call : calls)
        {
            if (call.compare(0, prefix.size(), prefix) == 0)
            {
                EXPECT_EQ(prefix + std::to_string(next) + ")", call);
                ++next;
            }
        }
        EXPECT_EQ(writes, next);
    }
}
