// Who frees what between the IO layers and their storages: the array that the cached layer
// hands to a user-profile database storage, and the arrays that storages hand out.
#include "iotesthelpers.h"
#include "mallocspy.h"
#include "xsessiondataio.h"
#include "xsessiondataionocache.h"

#include <gtest/gtest.h>

using Pose = RecordingStorage::Pose;

namespace
{
// Warms up what the calls create once per process (function names), so the spy counts only
// what one call leaves behind.
void WarmUp(IWQ_SessionDataIO* io)
{
    io->WriteData(XWQComBSTR(L"warm"), XWQComBSTR(L"up"), XWQComBSTR(L"1"));
    Read(io, L"warm", L"up");
    List(io, L"warm");
    io->UploadCache(XWQComBSTR(L"warm"));
    io->FlushCache(SDT_allData);
}
} // namespace

TEST(IOOwnership, UserProfileDatabaseStorageKeepsTheArrayOfASuccessfulStore)
{
    StorageRef storage(Pose::Database);
    storage->SetUserProfile(1);
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIO>(storage.Get());
    WarmUp(io.Get());
    storage->FreeKeptArrays();
    storage->ClearCalls();
    {
        ScopedMallocSpy spy;
        ASSERT_TRUE(spy.Registered());
        EXPECT_EQ(S_OK, io->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), XWQComBSTR(L"v")));
        EXPECT_EQ(1u, storage->KeptArrays());
        EXPECT_EQ(1u, storage->CountCalls("IsUserProfileStorage"));
        // The array's two strings are alive until the storage frees them.
        const size_t withArray = spy.Outstanding();
        storage->FreeKeptArrays();
        EXPECT_EQ(withArray - 2, spy.Outstanding());
        io->FlushCache(SDT_allData);
        EXPECT_EQ(0u, spy.Outstanding());
    }
}

TEST(IOOwnership, ArrayOfAFailedStoreIsFreedByTheLayer)
{
    StorageRef storage(Pose::Database);
    storage->SetUserProfile(1);
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIO>(storage.Get());
    WarmUp(io.Get());
    storage->FreeKeptArrays();
    storage->SetResult("StoreData", E_FAIL);
    {
        ScopedMallocSpy spy;
        ASSERT_TRUE(spy.Registered());
        EXPECT_EQ(E_FAIL, io->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), XWQComBSTR(L"v")));
        EXPECT_EQ(0u, storage->KeptArrays());
        io->FlushCache(SDT_allData);
        EXPECT_EQ(0u, spy.Outstanding());
    }
}

TEST(IOOwnership, ArrayThatAUserProfileStorageDidNotTakeIsFreedByTheLayer)
{
    // A user-profile storage that left the array (as one reached through a proxy does: its
    // stub never sees the layer's offer) gets nothing taken away from its caller.
    StorageRef storage(Pose::Database);
    storage->SetUserProfile(1);
    storage->SetKeepsArrays(false);
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIO>(storage.Get());
    WarmUp(io.Get());
    {
        ScopedMallocSpy spy;
        ASSERT_TRUE(spy.Registered());
        EXPECT_EQ(S_OK, io->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), XWQComBSTR(L"v")));
        EXPECT_EQ(0u, storage->KeptArrays());
        io->FlushCache(SDT_allData);
        EXPECT_EQ(0u, spy.Outstanding());
        EXPECT_EQ(0u, spy.Refreed());
    }
}

TEST(IOOwnership, ArrayGivenToADatabaseStorageThatIsNotUserProfileIsFreedByTheLayer)
{
    StorageRef storage(Pose::Database);
    storage->SetUserProfile(0);
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIO>(storage.Get());
    WarmUp(io.Get());
    {
        ScopedMallocSpy spy;
        ASSERT_TRUE(spy.Registered());
        EXPECT_EQ(S_OK, io->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), XWQComBSTR(L"v")));
        io->FlushCache(SDT_allData);
        EXPECT_EQ(0u, spy.Outstanding());
    }
}

TEST(IOOwnership, FailedIsUserProfileStorageCountsAsNotUserProfile)
{
    StorageRef storage(Pose::Database);
    storage->SetUserProfile(1, E_FAIL);  // the flag is written, but the call fails
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIO>(storage.Get());
    WarmUp(io.Get());
    {
        ScopedMallocSpy spy;
        ASSERT_TRUE(spy.Registered());
        EXPECT_EQ(S_OK, io->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), XWQComBSTR(L"v")));
        EXPECT_EQ(0u, storage->KeptArrays());
        io->FlushCache(SDT_allData);
        EXPECT_EQ(0u, spy.Outstanding());
    }
}

TEST(IOOwnership, UncachedLayerAlwaysFreesItsArray)
{
    // Even over a user-profile storage that takes the arrays the cached layer hands over: the
    // uncached layer offers none, so the storage takes none.
    StorageRef storage(Pose::Database);
    storage->SetUserProfile(1);
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIONoCache>(storage.Get());
    WarmUp(io.Get());
    storage->ClearCalls();
    {
        ScopedMallocSpy spy;
        ASSERT_TRUE(spy.Registered());
        EXPECT_EQ(S_OK, io->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), XWQComBSTR(L"v")));
        EXPECT_EQ(0u, storage->CountCalls("IsUserProfileStorage"));
        EXPECT_EQ(0u, storage->KeptArrays());
        io->FlushCache(SDT_allData);
        EXPECT_EQ(0u, spy.Outstanding());
        EXPECT_EQ(0u, spy.Refreed());
    }
}

template <class Layer>
class UploadOwnershipTest : public ::testing::Test
{
};
using Layers = ::testing::Types<XSessionDataIONoCache, XSessionDataIO>;
TYPED_TEST_SUITE(UploadOwnershipTest, Layers);

TYPED_TEST(UploadOwnershipTest, UploadCacheFreesGetAllDataResultWithCoTaskMemFree)
{
    StorageRef storage;
    storage->SetAllData({{L"a", {{L"x", L"1"}, {L"y", L"2"}}}, {L"b", {{L"z", L"3"}}}, {L"c", {}}});
    XComPtr<IWQ_SessionDataIO> io = NewIO<TypeParam>(storage.Get());
    WarmUp(io.Get());
    {
        ScopedMallocSpy spy;
        ASSERT_TRUE(spy.Registered());
        EXPECT_EQ(S_OK, io->UploadCache(XWQComBSTR(L"root")));
        // What is left is the table's copies; emptying the table leaves nothing.
        io->FlushCache(SDT_allData);
        EXPECT_EQ(0u, spy.Outstanding());
    }
}

TYPED_TEST(UploadOwnershipTest, ReadListFreesTheStoragesArray)
{
    StorageRef storage;
    storage->SetRecords(L"k", {{L"a", L"1"}, {L"b", L"2"}});
    XComPtr<IWQ_SessionDataIO> io = NewIO<TypeParam>(storage.Get());
    WarmUp(io.Get());
    {
        ScopedMallocSpy spy;
        ASSERT_TRUE(spy.Registered());
        EXPECT_EQ(L"2", Read(io.Get(), L"k", L"b").value);
        io->FlushCache(SDT_allData);
        EXPECT_EQ(0u, spy.Outstanding());
    }
}
