// XSessionDataStorageDb: the value array that the cached IO layer hands over to a user-profile
// storage is freed exactly once, and nothing that crosses the storage is left behind.
#include "storagedbtest.h"

#include "mallocspy.h"
#include "xcomtypes.h"
#include "xsessiondataio.h"
#include "xsessiondataionocache.h"
#include "xsessiondatavalues.h"
#include "xstoredarrayhandover.h"

namespace
{
const HRESULT kRootRefused = MAKE_HRESULT(SEVERITY_ERROR, FACILITY_ITF, 0x0201);

// An array as the IO layers make it for StoreData (module array new, fresh strings).
tagSESSIONDATAVALUE* LayerArray(const wchar_t* name, const wchar_t* value)
{
    auto* records = new tagSESSIONDATAVALUE[1];
    records[0].bstrValueName = ::SysAllocString(name);
    records[0].bstrValue = ::SysAllocString(value);
    return records;
}

class StorageDbOwnershipTest : public StorageDbTest
{
protected:
    // A user-profile storage under the root key "app" (asynchronous when asked), with a cached
    // IO layer over it.
    void BindUserProfile(bool async)
    {
        ASSERT_EQ(S_OK, storage->SetRoot(root->Root()));
        ASSERT_EQ(S_OK, storage->SetUserProfileStorage());
        ASSERT_EQ(S_OK, storage->SetRootKey(XWQComBSTR(L"app")));
        if (async)
        {
            ASSERT_EQ(S_OK, storage->SetAsyncWriteMode(120));
        }
        ASSERT_EQ(S_OK, XComObject<XSessionDataIO>::Create(IID_IWQ_SessionDataIO,
                                                           reinterpret_cast<void**>(io.ReleaseAndGetAddressOf())));
        ASSERT_EQ(S_OK, io->SetStorage(Base()));
    }
    HRESULT WriteThroughLayer(const wchar_t* key, const wchar_t* name, const wchar_t* value)
    {
        return io->WriteData(XWQComBSTR(key), XWQComBSTR(name), XWQComBSTR(value));
    }
    // Makes what the calls create once per process (function names, the worker's logger).
    void WarmUp()
    {
        WriteThroughLayer(L"warm", L"up", L"1");
        storage->FlushAsyncStorage();
        io->FlushCache(SDT_allData);
        root->ClearCalls();
    }

    // StoreData answers expected and leaves the array to its caller: its strings stay alive
    // until the caller frees them.
    void ExpectTheCallerKeepsTheArray(HRESULT expected)
    {
        tagSESSIONDATAVALUE* warm = LayerArray(L"n", L"v");
        storage->StoreData(XWQComBSTR(L"warm"), 1, warm);
        XDeleteValueArray(warm, 1);
        TakeErrorInfo();
        ScopedMallocSpy spy;
        ASSERT_TRUE(spy.Registered());
        tagSESSIONDATAVALUE* records = LayerArray(L"name", L"value");
        EXPECT_EQ(expected, storage->StoreData(XWQComBSTR(L"k"), 1, records));
        TakeErrorInfo();
        EXPECT_EQ(2u, spy.Outstanding());
        XDeleteValueArray(records, 1);
        EXPECT_EQ(0u, spy.Outstanding());
        EXPECT_EQ(0u, spy.Refreed());
    }

    // StoreData of records offered for hand-over, as the cached IO layer calls it.
    HRESULT StoreHandedOver(const wchar_t* key, tagSESSIONDATAVALUE* records)
    {
        const XStoredArrayHandover offer(records, true);
        return storage->StoreData(XWQComBSTR(key), 1, records);
    }

    XComPtr<IWQ_SessionDataIO> io;
};
} // namespace

TEST_F(StorageDbOwnershipTest, AUserProfileStorageFreesTheArrayOfASuccessfulStore)
{
    Bind(L"app");
    ASSERT_EQ(S_OK, storage->SetUserProfileStorage());
    StoreHandedOver(L"warm", LayerArray(L"n", L"v"));
    root->ClearCalls();
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    tagSESSIONDATAVALUE* records = LayerArray(L"name", L"value");
    ASSERT_EQ(2u, spy.Outstanding());
    EXPECT_EQ(S_OK, StoreHandedOver(L"k", records));
    EXPECT_EQ(0u, spy.Outstanding());
    EXPECT_EQ(0u, spy.Refreed());
    EXPECT_EQ(std::vector<std::string>{"WriteStringList(app/k|1|name=value)"}, Calls());
}

TEST_F(StorageDbOwnershipTest, AUserProfileStorageLeavesTheArrayOfAFailedStoreToTheCaller)
{
    Bind(L"app");
    ASSERT_EQ(S_OK, storage->SetUserProfileStorage());
    root->SetResult("WriteStringList", kRootRefused);
    ExpectTheCallerKeepsTheArray(kRootRefused);
}

TEST_F(StorageDbOwnershipTest, AUserProfileStorageWithoutRootLeavesTheArrayToTheCaller)
{
    ASSERT_EQ(S_OK, storage->SetUserProfileStorage());
    ExpectTheCallerKeepsTheArray(E_POINTER);
}

TEST_F(StorageDbOwnershipTest, AUserProfileStorageLeavesAnArrayThatWasNotHandedOverToTheCaller)
{
    // Another client, a proxy's stub or the uncached layer: the array is still the caller's.
    Bind(L"app");
    ASSERT_EQ(S_OK, storage->SetUserProfileStorage());
    ExpectTheCallerKeepsTheArray(S_OK);
}

TEST_F(StorageDbOwnershipTest, TheUncachedLayerOverAUserProfileStorageFreesItsArrayOnce)
{
    Bind(L"app");
    ASSERT_EQ(S_OK, storage->SetUserProfileStorage());
    XComPtr<IWQ_SessionDataIO> uncached;
    ASSERT_EQ(S_OK, XComObject<XSessionDataIONoCache>::Create(IID_IWQ_SessionDataIO,
                                                              reinterpret_cast<void**>(uncached.ReleaseAndGetAddressOf())));
    ASSERT_EQ(S_OK, uncached->SetStorage(Base()));
    uncached->WriteData(XWQComBSTR(L"warm"), XWQComBSTR(L"n"), XWQComBSTR(L"v"));
    root->ClearCalls();
    {
        ScopedMallocSpy spy;
        ASSERT_TRUE(spy.Registered());
        EXPECT_EQ(S_OK, uncached->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"name"), XWQComBSTR(L"value")));
        uncached->FlushCache(SDT_allData);  // empties the layer's working table
        EXPECT_EQ(0u, spy.Outstanding());
        EXPECT_EQ(0u, spy.Refreed());
    }
    EXPECT_EQ(std::vector<std::string>{"WriteStringList(app/k|1|name=value)"}, Calls());
}

TEST_F(StorageDbOwnershipTest, AStorageThatIsNotUserProfileLeavesEveryArrayToTheCaller)
{
    Bind(L"app");
    ExpectTheCallerKeepsTheArray(S_OK);
}

TEST_F(StorageDbOwnershipTest, AnAsynchronousUserProfileStorageFreesTheArrayOnceThePipeHoldsItsCopy)
{
    Bind(L"app");
    ASSERT_EQ(S_OK, storage->SetUserProfileStorage());
    ASSERT_EQ(S_OK, storage->SetAsyncWriteMode(120));
    StoreHandedOver(L"warm", LayerArray(L"n", L"v"));
    storage->FlushAsyncStorage();
    root->ClearCalls();
    root->Hold("WriteStringList");
    {
        ScopedMallocSpy spy;
        ASSERT_TRUE(spy.Registered());
        tagSESSIONDATAVALUE* records = LayerArray(L"name", L"value");
        EXPECT_EQ(S_OK, StoreHandedOver(L"k", records));
        // The caller's strings are gone; the pipe's copies (the call's key and values, the key
        // the call was piped under), made on this thread, wait for the worker. Only this
        // thread's blocks are counted: the worker thread's own activity is not this case's.
        EXPECT_EQ(4u, spy.OutstandingFromThisThread());
        root->Open();
        EXPECT_EQ(S_OK, storage->FlushAsyncStorage());
        EXPECT_EQ(0u, spy.OutstandingFromThisThread());
        EXPECT_EQ(0u, spy.Refreed());
    }
    EXPECT_EQ(std::vector<std::string>{"WriteStringList(app/k|1|name=value)"}, Calls());
}

TEST_F(StorageDbOwnershipTest, WritesThroughTheCachedLayerLeaveNothingBehind)
{
    BindUserProfile(false);
    WarmUp();
    {
        ScopedMallocSpy spy;
        ASSERT_TRUE(spy.Registered());
        for (int round = 0; round < 10; ++round)
            EXPECT_EQ(S_OK, WriteThroughLayer(L"k", L"name", (L"v" + std::to_wstring(round)).c_str()));
        io->FlushCache(SDT_allData);
        EXPECT_EQ(0u, spy.Outstanding());
        EXPECT_EQ(0u, spy.Refreed());
    }
    EXPECT_EQ(10u, Calls().size());
    EXPECT_EQ("WriteStringList(<[HKCU]>/app/k|1|name=v9)", LastCall());
}

TEST_F(StorageDbOwnershipTest, AsynchronousWritesThroughTheCachedLayerLeaveNothingBehind)
{
    BindUserProfile(true);
    WarmUp();
    {
        ScopedMallocSpy spy;
        ASSERT_TRUE(spy.Registered());
        for (int round = 0; round < 10; ++round)
            EXPECT_EQ(S_OK, WriteThroughLayer(L"k", L"name", (L"v" + std::to_wstring(round)).c_str()));
        EXPECT_EQ(S_OK, storage->FlushAsyncStorage());
        io->FlushCache(SDT_allData);
        EXPECT_EQ(0u, spy.Outstanding());
        EXPECT_EQ(0u, spy.Refreed());
    }
    EXPECT_EQ(10u, Calls().size());
    EXPECT_EQ("WriteStringList(<[HKCU]>/app/k|1|name=v9)", LastCall());
}

TEST_F(StorageDbOwnershipTest, FailedWritesThroughTheCachedLayerLeaveNothingBehind)
{
    BindUserProfile(false);
    root->SetResult("WriteStringList", kRootRefused);
    WarmUp();
    {
        ScopedMallocSpy spy;
        ASSERT_TRUE(spy.Registered());
        for (int round = 0; round < 10; ++round)
            EXPECT_EQ(kRootRefused, WriteThroughLayer(L"k", L"name", L"v"));
        TakeErrorInfo();
        io->FlushCache(SDT_allData);
        EXPECT_EQ(0u, spy.Outstanding());
        EXPECT_EQ(0u, spy.Refreed());
    }
}

TEST_F(StorageDbOwnershipTest, ReadsListingsAndReadAllLeaveNothingBehind)
{
    Bind(L"app");
    root->SetList(L"app/k", {{L"a", L"1"}, {L"b", L"2"}});
    root->SetSubKeys(L"app/k", {L"app/k/x", L"app/k/y"});
    root->SetSubKeys(L"app/short", {L"app/k/x", L"no"});
    root->SetAllData({{L"app/k", {{L"a", L"1"}}}, {L"app/k/x", {{L"b", L"2"}}}});
    XComPtr<IUnknown> object;
    const auto cycle = [&]() {
        ReadPairs(Base(), L"k");
        ReadPairs(Base(), L"missing");
        ReadSubKeys(Base(), L"k", 1);
        ReadSubKeys(Base(), L"short", 0);  // refused: a name shorter than the root key
        ReadAll(Base(), L"k");
        XValueArray list;
        storage->ReadObjectData(nullptr, XWQComBSTR(L"k"), list.CountAddress(), list.ItemsAddress());
        XBstrArray names;
        storage->GetObjectSubKeys(nullptr, XWQComBSTR(L"k"), 0, names.CountAddress(), names.ItemsAddress());
        TakeErrorInfo();
    };
    cycle();
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    for (int round = 0; round < 10; ++round)
        cycle();
    EXPECT_EQ(0u, spy.Outstanding());
    EXPECT_EQ(0u, spy.Refreed());
}

TEST_F(StorageDbOwnershipTest, RefusedCallsLeaveNothingBehind)
{
    const auto refused = [&]() {
        PairRecords records(Pairs{{L"n", L"v"}});
        storage->StoreData(XWQComBSTR(L"k"), records.Count(), records.Data());
        ReadPairs(Base(), L"k");
        ReadSubKeys(Base(), L"k", 0);
        ReadAll(Base(), L"k");
        storage->DeleteKey(XWQComBSTR(L"k"));
        storage->SetRoot(nullptr);
        TakeErrorInfo();
    };
    refused();
    {
        ScopedMallocSpy spy;
        ASSERT_TRUE(spy.Registered());
        for (int round = 0; round < 10; ++round)
            refused();
        EXPECT_EQ(0u, spy.Outstanding());
        EXPECT_EQ(0u, spy.Refreed());
    }
    Bind(nullptr);
    ReadAll(Base(), L"");  // the whole database: refused
    TakeErrorInfo();
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    for (int round = 0; round < 10; ++round)
        ReadAll(Base(), L"");
    TakeErrorInfo();
    EXPECT_EQ(0u, spy.Outstanding());
    EXPECT_EQ(0u, spy.Refreed());
}
