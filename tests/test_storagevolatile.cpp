// XSessionDataStorageVolatile: a storage that keeps nothing and answers every call.
#include "iotesthelpers.h"
#include "xcomtypes.h"
#include "xsessiondataio.h"
#include "xsessiondataionocache.h"
#include "xsessiondatastoragevolatile.h"

#include <gtest/gtest.h>

namespace
{
tagSESSIONDATAVALUE* const kPresetList = reinterpret_cast<tagSESSIONDATAVALUE*>(static_cast<uintptr_t>(0x1230));

class VolatileTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(S_OK, XCreateComObject<XSessionDataStorageVolatile>(
                            nullptr, IID_IWQ_SessionDataStorage, reinterpret_cast<void**>(storage.ReleaseAndGetAddressOf())));
    }
    XComPtr<IWQ_SessionDataStorage> storage;
};
} // namespace

TEST_F(VolatileTest, StoreDataThenReadDataOfTheSameKeyYieldsSFalseAndCountZero)
{
    ValueRecords records{{L"n", L"v"}};
    EXPECT_EQ(S_OK, storage->StoreData(XWQComBSTR(L"k"), records.Count(), records.Data()));
    ULONG count = 99;
    tagSESSIONDATAVALUE* list = kPresetList;
    EXPECT_EQ(S_FALSE, storage->ReadData(XWQComBSTR(L"k"), &count, &list));
    EXPECT_EQ(0u, count);
    EXPECT_EQ(kPresetList, list);  // left as the caller passed it
}

TEST_F(VolatileTest, GetLastErrorAsyncExecutionLeavesPresetResult)
{
    HRESULT async = E_ABORT;
    EXPECT_EQ(S_OK, storage->GetLastErrorAsyncExecution(&async));
    EXPECT_EQ(E_ABORT, async);
}

TEST_F(VolatileTest, GetSubKeysAndReadAllDataYieldSFalseAndLeaveLists)
{
    ULONG count = 5;
    BSTR* names = reinterpret_cast<BSTR*>(static_cast<uintptr_t>(0x4560));
    EXPECT_EQ(S_FALSE, storage->GetSubKeys(XWQComBSTR(L"k"), 1, &count, &names));
    EXPECT_EQ(0u, count);
    EXPECT_EQ(reinterpret_cast<BSTR*>(static_cast<uintptr_t>(0x4560)), names);
    count = 5;
    tagKEY_SESSIONDATAVALUE* all = reinterpret_cast<tagKEY_SESSIONDATAVALUE*>(static_cast<uintptr_t>(0x7890));
    EXPECT_EQ(S_FALSE, storage->ReadAllData(nullptr, &count, &all));
    EXPECT_EQ(0u, count);
    EXPECT_EQ(reinterpret_cast<tagKEY_SESSIONDATAVALUE*>(static_cast<uintptr_t>(0x7890)), all);
}

TEST_F(VolatileTest, AcceptsNullKeysAndListsAndAnyCount)
{
    EXPECT_EQ(S_OK, storage->StoreData(nullptr, 1000, nullptr));
    EXPECT_EQ(S_OK, storage->FlushAsyncStorage());
    ULONG count = 1;
    tagSESSIONDATAVALUE* list = nullptr;
    EXPECT_EQ(S_FALSE, storage->ReadData(nullptr, &count, &list));
    EXPECT_EQ(nullptr, list);
}

TEST_F(VolatileTest, AnswersItsOwnInterfacesOnly)
{
    XComPtr<IWQ_SessionDataStorageVolatile> asVolatile;
    EXPECT_EQ(S_OK, storage.As(asVolatile));
    XComPtr<ISupportErrorInfo> support;
    ASSERT_EQ(S_OK, storage.As(support));
    EXPECT_EQ(S_OK, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataStorageVolatile));
    XComPtr<IWQ_SessionDataStorageReg> asRegistry;
    EXPECT_EQ(E_NOINTERFACE, storage.As(asRegistry));
    XComPtr<IWQ_SessionDataStorageEnv> asEnvironment;
    EXPECT_EQ(E_NOINTERFACE, storage.As(asEnvironment));
    XComPtr<IWQ_SessionDataStorageEx> asExtended;
    EXPECT_EQ(E_NOINTERFACE, storage.As(asExtended));
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataStorageVolatile, XSessionDataStorageVolatile::ObjectClsid()));
}

TEST(VolatileAggregation, AggregatedStorageAnswersThroughItsOuterObject)
{
    // The outer object here is a recording storage; the aggregate's inner unknown answers the
    // volatile interface, whose IUnknown is the outer's.
    StorageRef outer;
    XComPtr<IUnknown> inner;
    ASSERT_EQ(S_OK, XCreateComObject<XSessionDataStorageVolatile>(
                        outer.Get(), IID_IUnknown, reinterpret_cast<void**>(inner.ReleaseAndGetAddressOf())));
    XComPtr<IWQ_SessionDataStorageVolatile> asVolatile;
    ASSERT_EQ(S_OK, inner.As(asVolatile));
    ULONG count = 3;
    tagSESSIONDATAVALUE* list = nullptr;
    EXPECT_EQ(S_FALSE, asVolatile->ReadData(XWQComBSTR(L"k"), &count, &list));
    XComPtr<IWQ_SessionDataStorage> throughOuter;
    ASSERT_EQ(S_OK, asVolatile.As(throughOuter));
    EXPECT_EQ(outer.Get(), throughOuter.Get());
    EXPECT_NE(S_OK, XCreateComObject<XSessionDataStorageVolatile>(
                        outer.Get(), IID_IWQ_SessionDataStorage, reinterpret_cast<void**>(throughOuter.ReleaseAndGetAddressOf())));
}

TEST_F(VolatileTest, CachedLayerKeepsWrittenValuesUntilCacheFlush)
{
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIO>(storage.Get());
    ASSERT_EQ(S_OK, io->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), XWQComBSTR(L"v")));
    const ReadResult read = Read(io.Get(), L"k", L"n");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ(L"v", read.value);
    EXPECT_EQ(S_OK, io->FlushCache(SDT_volatileData));
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"n").hr);
}

TEST_F(VolatileTest, UncachedLayerKeepsNothing)
{
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIONoCache>(storage.Get());
    ASSERT_EQ(S_OK, io->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), XWQComBSTR(L"v")));
    // The write left its (clean) entry in the working table; the first read empties it.
    EXPECT_EQ(S_OK, Read(io.Get(), L"k", L"n").hr);
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"n").hr);
}
