// Leak checks of the IO layers: write/read/list/flush/upload cycles, failures included, leave
// no COM task memory or BSTR behind.
#include "iotesthelpers.h"
#include "mallocspy.h"
#include "xcomtypes.h"
#include "xsessiondataio.h"
#include "xsessiondataionocache.h"
#include "xsessiondatastoragevolatile.h"

#include <gtest/gtest.h>

namespace
{
void Cycle(IWQ_SessionDataIO* io, RecordingStorage* storage)
{
    const XWQComBSTR key(L"Users\\A");
    io->WriteData(key, XWQComBSTR(L"Name"), XWQComBSTR(L"value"));
    io->WriteData(key, XWQComBSTR(L"empty"), XWQComBSTR(L""));
    Read(io, L"users\\a", L"name");
    Read(io, L"k", L"a");
    Read(io, L"k", L"missing");
    Read(io, L"k", L"missing");
    List(io, L"k");
    List(io, L"users\\a");
    ValueRecords records{{L"x", L"1"}, {L"Y", L"2"}};
    io->WriteStringList(XWQComBSTR(L"list"), records.Count(), records.Data());
    ValueRecords bad{{L"x", L"1"}, {L"", L"2"}};
    io->WriteStringList(XWQComBSTR(L"list"), bad.Count(), bad.Data());
    XBstrArray names;
    io->GetSubKeys(XWQComBSTR(L"k"), 1, names.CountAddress(), names.ItemsAddress());
    names.Reset();
    XKeyValueArray all;
    io->GetAllData(XWQComBSTR(L""), all.CountAddress(), all.ItemsAddress());
    all.Reset();
    io->UploadCache(XWQComBSTR(L""));
    io->SaveData(nullptr, nullptr);
    if (storage)
    {
        // The failure paths: failed store, failed read, failed flush.
        storage->SetResult("StoreData", E_FAIL);
        io->WriteData(key, XWQComBSTR(L"n2"), XWQComBSTR(L"v2"));
        io->WriteStringList(XWQComBSTR(L"list"), records.Count(), records.Data());
        storage->ClearResult("StoreData");
        storage->SetResult("ReadData", E_FAIL);
        Read(io, L"other", L"n");
        List(io, L"other");
        storage->ClearResult("ReadData");
        storage->SetResult("FlushAsyncStorage", E_FAIL);
        io->FlushCache(SDT_allData);
        storage->ClearResult("FlushAsyncStorage");
    }
    io->FlushCache(SDT_allData);
}

void ScriptStorage(RecordingStorage* storage)
{
    storage->SetRecords(L"k", {{L"A", L"1"}, {L"a", L"2"}, {L"b", L"3"}});
    storage->SetRecords(L"users\\a", {{L"Name", L"v"}, {L"Other", L"o"}});
    storage->SetSubKeys(L"k", {L"k/x", L"k/y"});
    storage->SetAllData({{L"Users\\A", {{L"Name", L"v"}}}, {L"k", {{L"a", L"1"}}}, {L"empty", {}}});
}

template <class Layer>
void ExpectNoLeakOverRecordingStorage()
{
    StorageRef storage;
    ScriptStorage(storage.operator->());
    XComPtr<IWQ_SessionDataIO> io = NewIO<Layer>(storage.Get());
    Cycle(io.Get(), storage.operator->());  // once-per-process names are made here
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    for (int i = 0; i < 3; ++i)
        Cycle(io.Get(), storage.operator->());
    EXPECT_EQ(0u, spy.Outstanding());
}

template <class Layer>
void ExpectNoLeakOverVolatileStorage()
{
    XComPtr<IWQ_SessionDataStorage> storage;
    ASSERT_EQ(S_OK, XCreateComObject<XSessionDataStorageVolatile>(
                        nullptr, IID_IWQ_SessionDataStorage, reinterpret_cast<void**>(storage.ReleaseAndGetAddressOf())));
    XComPtr<IWQ_SessionDataIO> io = NewIO<Layer>(storage.Get());
    Cycle(io.Get(), nullptr);
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    for (int i = 0; i < 3; ++i)
        Cycle(io.Get(), nullptr);
    EXPECT_EQ(0u, spy.Outstanding());
}
} // namespace

TEST(IOLeaks, CachedLayerCyclesOverRecordingStorageLeaveNothing)
{
    ExpectNoLeakOverRecordingStorage<XSessionDataIO>();
}

TEST(IOLeaks, UncachedLayerCyclesOverRecordingStorageLeaveNothing)
{
    ExpectNoLeakOverRecordingStorage<XSessionDataIONoCache>();
}

TEST(IOLeaks, CachedLayerCyclesOverVolatileStorageLeaveNothing)
{
    ExpectNoLeakOverVolatileStorage<XSessionDataIO>();
}

TEST(IOLeaks, UncachedLayerCyclesOverVolatileStorageLeaveNothing)
{
    ExpectNoLeakOverVolatileStorage<XSessionDataIONoCache>();
}

TEST(IOLeaks, DestroyingACachedLayerFreesItsCache)
{
    StorageRef storage;
    ScriptStorage(storage.operator->());
    XComPtr<IWQ_SessionDataIO> warm = NewIO<XSessionDataIO>(storage.Get());
    Cycle(warm.Get(), storage.operator->());
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    {
        XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIO>(storage.Get());
        io->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), XWQComBSTR(L"v"));
        io->UploadCache(XWQComBSTR(L""));
        Read(io.Get(), L"k", L"missing");
        EXPECT_GT(spy.Outstanding(), 0u);
    }
    EXPECT_EQ(0u, spy.Outstanding());
}
