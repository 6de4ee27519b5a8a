// Leak checks of the extended and database layers: object writes, reads and deletes, and key
// deletion, leave no COM task memory or BSTR behind (one deliberate exception is pinned down).
#include "iotesthelpers.h"
#include "mallocspy.h"
#include "xcomtypes.h"
#include "xsessiondataioex.h"
#include "xsessiondataioexdb.h"

#include <gtest/gtest.h>

namespace
{
void ObjectCycle(IWQ_SessionDataIOEx* io, IUnknown* object)
{
    const XWQComBSTR key(L"Win\\Main");
    io->WriteObjectData(object, key, XWQComBSTR(L"Left"), XWQComBSTR(L"10"));
    ValueRecords records{{L"a", L"1"}, {L"b", L"2"}};
    io->WriteObjectStringList(object, key, records.Count(), records.Data());
    BSTR value = nullptr;
    if (io->GetObjectData(object, key, XWQComBSTR(L"left"), &value) == S_OK)
        ::SysFreeString(value);
    io->GetObjectData(object, key, XWQComBSTR(L"missing"), &value);
    XValueArray list;
    io->GetObjectStringList(object, key, list.CountAddress(), list.ItemsAddress());
    list.Reset();
    XBstrArray names;
    io->GetObjectSubKeys(object, key, 1, names.CountAddress(), names.ItemsAddress());
    names.Reset();
    io->DeleteObjectKey(object, key);
    // Key deletion with a populated cache.
    Write(io, L"win/main", L"n", L"v");
    Read(io, L"win/main", L"missing");
    io->DeleteKey(XWQComBSTR(L"WIN\\main"));
    Read(io, L"win/main", L"n");
    io->FlushCache(static_cast<SESSIONDATATYPE>(0));
}

void ScriptStorage(RecordingStorage* storage)
{
    storage->SetObjectRecords(L"Win\\Main", {{L"left", L"10"}, {L"top", L"20"}});
    storage->SetSubKeys(L"Win\\Main", {L"Win\\Main\\a", L"Win\\Main\\b"});
}
} // namespace

TEST(ExtendedLeaks, ObjectAndDeleteCyclesLeaveNothing)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    ScriptStorage(storage.operator->());
    XComPtr<IWQ_SessionDataIOEx> io = NewObject<XSessionDataIOEx, IWQ_SessionDataIOEx>();
    io->SetStorage(storage.Get());
    StorageRef object;
    ObjectCycle(io.Get(), object.Get());  // once-per-process names are made here
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    for (int i = 0; i < 3; ++i)
        ObjectCycle(io.Get(), object.Get());
    EXPECT_EQ(0u, spy.Outstanding());
}

TEST(ExtendedLeaks, ForwardedCyclesThroughTheDatabaseLayerLeaveNothing)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    ScriptStorage(storage.operator->());
    XComPtr<IWQ_SessionDataIOEx> root = NewObject<XSessionDataIOEx, IWQ_SessionDataIOEx>();
    root->SetStorage(storage.Get());
    XComPtr<IWQ_SessionDataIOExDB> io = NewObject<XSessionDataIOExDB, IWQ_SessionDataIOExDB>();
    io->SetRoot(root.Get());
    StorageRef object;
    ObjectCycle(io.Get(), object.Get());
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    for (int i = 0; i < 3; ++i)
        ObjectCycle(io.Get(), object.Get());
    EXPECT_EQ(0u, spy.Outstanding());
}

TEST(ExtendedLeaks, UnboundAndUnconnectedFailuresLeaveNothing)
{
    XComPtr<IWQ_SessionDataIOEx> unbound = NewObject<XSessionDataIOEx, IWQ_SessionDataIOEx>();
    XComPtr<IWQ_SessionDataIOExDB> unconnected = NewObject<XSessionDataIOExDB, IWQ_SessionDataIOExDB>();
    ObjectCycle(unbound.Get(), nullptr);
    ObjectCycle(unconnected.Get(), nullptr);
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    for (int i = 0; i < 3; ++i)
    {
        ObjectCycle(unbound.Get(), nullptr);
        ObjectCycle(unconnected.Get(), nullptr);
    }
    ::SetErrorInfo(0, nullptr);
    EXPECT_EQ(0u, spy.Outstanding());
}

TEST(ExtendedLeaks, GetObjectDataWithTwoMatchesLeavesTheLaterValueUnfreed)
{
    // Kept as it stands: the walk from the back hands out the later match first and then
    // overwrites it with the front one, without freeing it.
    StorageRef storage(RecordingStorage::Pose::Extended);
    storage->SetObjectRecords(L"k", {{L"n", L"front"}, {L"n", L"back"}});
    XComPtr<IWQ_SessionDataIOEx> io = NewObject<XSessionDataIOEx, IWQ_SessionDataIOEx>();
    io->SetStorage(storage.Get());
    BSTR value = nullptr;
    io->GetObjectData(nullptr, XWQComBSTR(L"k"), XWQComBSTR(L"n"), &value);
    ::SysFreeString(value);
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    value = nullptr;
    EXPECT_EQ(S_OK, io->GetObjectData(nullptr, XWQComBSTR(L"k"), XWQComBSTR(L"n"), &value));
    EXPECT_STREQ(L"front", value);
    ::SysFreeString(value);
    EXPECT_EQ(1u, spy.Outstanding());
}
