// XSessionDataIO: the cached access layer over a recording storage.
#include "iotesthelpers.h"
#include "xcomtypes.h"
#include "xsessiondataio.h"

#include <gtest/gtest.h>

using Calls = std::vector<std::string>;

namespace
{
class CacheTest : public ::testing::Test
{
protected:
    StorageRef storage;
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIO>(storage.Get());
};
} // namespace

// --- the memory of missing values ---

TEST_F(CacheTest, TwoReadsOfMissingValueCallReadDataOnce)
{
    storage->SetRecords(L"k", {{L"other", L"1"}});
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"missing").hr);
    const ReadResult second = Read(io.Get(), L"K", L"MISSING");
    EXPECT_EQ(S_FALSE, second.hr);
    EXPECT_FALSE(second.written);
    EXPECT_EQ((Calls{"ReadData(k)"}), storage->Calls());
}

TEST_F(CacheTest, WriteOfMissingValueMakesNextReadAnswerFromCache)
{
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"n").hr);
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"n").hr);
    ASSERT_EQ(S_OK, Write(io.Get(), L"k", L"n", L"v"));
    const ReadResult read = Read(io.Get(), L"k", L"n");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ(L"v", read.value);
    EXPECT_EQ(1u, storage->CountCalls("ReadData"));
}

TEST_F(CacheTest, MissingValueOfCachedKeyIsReadOnceToo)
{
    storage->SetRecords(L"k", {{L"a", L"1"}});
    EXPECT_EQ(S_OK, Read(io.Get(), L"k", L"a").hr);
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"b").hr);
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"b").hr);
    EXPECT_EQ(2u, storage->CountCalls("ReadData"));
}

// --- reads ---

TEST_F(CacheTest, ReadKeyIsCachedWithAllItsValues)
{
    storage->SetRecords(L"users/a", {{L"Name", L"v"}, {L"other", L"o"}});
    EXPECT_EQ(L"v", Read(io.Get(), L"Users/A", L"name").value);
    EXPECT_EQ(L"o", Read(io.Get(), L"users/a", L"OTHER").value);
    EXPECT_EQ((Calls{"ReadData(users/a)"}), storage->Calls());
}

TEST_F(CacheTest, CachedKeyGainsStorageNamesLowerCased)
{
    storage->SetRecords(L"k", {{L"Name", L"v"}});
    ASSERT_EQ(S_OK, Write(io.Get(), L"k", L"other", L"x"));
    const ReadResult read = Read(io.Get(), L"k", L"NAME");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ(L"v", read.value);
    // The written value keeps its cached entry; the storage's name is now cached too.
    EXPECT_EQ(L"x", Read(io.Get(), L"k", L"other").value);
    EXPECT_EQ(L"v", Read(io.Get(), L"k", L"name").value);
    EXPECT_EQ(1u, storage->CountCalls("ReadData"));
}

TEST_F(CacheTest, CachedValueWinsOverStorageValueOfSameName)
{
    storage->SetRecords(L"k", {{L"a", L"stored"}, {L"b", L"2"}});
    storage->SetResult("StoreData", E_FAIL);
    ASSERT_EQ(E_FAIL, Write(io.Get(), L"k", L"a", L"dirty"));
    EXPECT_EQ(L"2", Read(io.Get(), L"k", L"b").value);
    EXPECT_EQ(L"dirty", Read(io.Get(), L"k", L"a").value);
}

TEST_F(CacheTest, ReadFailureIsReturnedAndNothingIsRemembered)
{
    storage->SetResult("ReadData", E_ACCESSDENIED);
    const ReadResult failed = Read(io.Get(), L"k", L"n");
    EXPECT_EQ(E_ACCESSDENIED, failed.hr);
    EXPECT_FALSE(failed.written);
    storage->ClearResult("ReadData");
    storage->SetRecords(L"k", {{L"n", L"v"}});
    EXPECT_EQ(L"v", Read(io.Get(), L"k", L"n").value);
    EXPECT_EQ(2u, storage->CountCalls("ReadData"));
}

TEST_F(CacheTest, EmptyValueNameReadsSFalseWithoutStorageCall)
{
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"").hr);
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", nullptr).hr);
    EXPECT_TRUE(storage->Calls().empty());
}

// --- writes ---

TEST_F(CacheTest, WritingEmptyValueDropsItFromCacheSoNextReadAsksStorage)
{
    ASSERT_EQ(S_OK, Write(io.Get(), L"k", L"n", L""));
    EXPECT_EQ((Calls{"StoreData(k|1|n=)"}), storage->Calls());
    storage->SetRecords(L"k", {{L"n", L"from storage"}});
    const ReadResult read = Read(io.Get(), L"k", L"n");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ(L"from storage", read.value);
    EXPECT_EQ(1u, storage->CountCalls("ReadData"));
}

TEST_F(CacheTest, WritingNonEmptyValueKeepsItCached)
{
    ASSERT_EQ(S_OK, Write(io.Get(), L"k", L"n", L"v"));
    EXPECT_EQ(L"v", Read(io.Get(), L"k", L"n").value);
    EXPECT_EQ(0u, storage->CountCalls("ReadData"));
}

TEST_F(CacheTest, EmptyValueThatFailedToStoreStaysCached)
{
    storage->SetResult("StoreData", E_FAIL);
    ASSERT_EQ(E_FAIL, Write(io.Get(), L"k", L"n", L""));
    const ReadResult read = Read(io.Get(), L"k", L"n");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ(L"", read.value);
    EXPECT_EQ(0u, storage->CountCalls("ReadData"));
}

TEST_F(CacheTest, WriteDataThenGetStringListYieldsOnlyTheWrittenValue)
{
    storage->SetRecords(L"k", {{L"a", L"1"}, {L"b", L"2"}});
    ASSERT_EQ(S_OK, Write(io.Get(), L"K", L"C", L"3"));
    const ListResult list = List(io.Get(), L"k");
    EXPECT_EQ(S_OK, list.hr);
    EXPECT_EQ(1u, list.count);
    EXPECT_EQ((std::vector<std::string>{"c=3"}), list.records);
    EXPECT_EQ(0u, storage->CountCalls("ReadData"));
}

TEST_F(CacheTest, WriteDataStoresUnderKeyAsGivenWithLowerCasedValueName)
{
    EXPECT_EQ(S_OK, Write(io.Get(), L"Users\\A", L"Name", L"V"));
    EXPECT_EQ((Calls{"StoreData(Users\\A|1|name=V)"}), storage->Calls());
}

TEST_F(CacheTest, WriteDataWithEmptyValueNameReturnsSFalseAndCallsNoStorage)
{
    EXPECT_EQ(S_FALSE, Write(io.Get(), L"k", L"", L"v"));
    EXPECT_TRUE(storage->Calls().empty());
}

TEST_F(CacheTest, WriteDataReturnsStoreFailureAndValueStaysCached)
{
    storage->SetResult("StoreData", E_ACCESSDENIED);
    EXPECT_EQ(E_ACCESSDENIED, Write(io.Get(), L"k", L"n", L"v"));
    EXPECT_EQ(L"v", Read(io.Get(), L"k", L"n").value);
}

TEST_F(CacheTest, WriteStringListReturnsSOkEvenWhenStoreDataFails)
{
    storage->SetResult("StoreData", E_FAIL);
    ValueRecords records{{L"a", L"1"}, {L"b", L"2"}};
    EXPECT_EQ(S_OK, io->WriteStringList(XWQComBSTR(L"k"), records.Count(), records.Data()));
    EXPECT_EQ(1u, storage->CountCalls("StoreData"));
    EXPECT_EQ(L"2", Read(io.Get(), L"k", L"b").value);
}

TEST_F(CacheTest, WriteStringListStoresDirtyValuesOfKeyInOneCall)
{
    ValueRecords records{{L"B", L"2"}, {L"A", L"1"}};
    EXPECT_EQ(S_OK, io->WriteStringList(XWQComBSTR(L"K"), records.Count(), records.Data()));
    EXPECT_EQ((Calls{"StoreData(k|2|a=1;b=2)"}), storage->Calls());
}

TEST_F(CacheTest, WriteStringListWithCountZeroReturnsSFalse)
{
    ValueRecords records{{L"a", L"1"}};
    EXPECT_EQ(S_FALSE, io->WriteStringList(XWQComBSTR(L"k"), 0, records.Data()));
    EXPECT_TRUE(storage->Calls().empty());
}

TEST_F(CacheTest, WriteStringListStopsAtEmptyNameKeepingEarlierRecordsDirty)
{
    ValueRecords bad{{L"a", L"1"}, {L"", L"2"}, {L"c", L"3"}};
    EXPECT_EQ(S_FALSE, io->WriteStringList(XWQComBSTR(L"k"), bad.Count(), bad.Data()));
    EXPECT_TRUE(storage->Calls().empty());
    EXPECT_EQ(L"1", Read(io.Get(), L"k", L"a").value);
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"c").hr);
    storage->ClearCalls();
    ValueRecords good{{L"d", L"4"}};
    EXPECT_EQ(S_OK, io->WriteStringList(XWQComBSTR(L"k"), good.Count(), good.Data()));
    EXPECT_EQ((Calls{"StoreData(k|2|a=1;d=4)"}), storage->Calls());
}

TEST_F(CacheTest, ValueLeftDirtyByFailedStoreIsStoredWithNextListWrite)
{
    storage->SetResult("StoreData", E_FAIL);
    ASSERT_EQ(E_FAIL, Write(io.Get(), L"k", L"a", L"1"));
    storage->ClearResult("StoreData");
    storage->ClearCalls();
    ValueRecords records{{L"b", L"2"}};
    EXPECT_EQ(S_OK, io->WriteStringList(XWQComBSTR(L"k"), records.Count(), records.Data()));
    EXPECT_EQ((Calls{"StoreData(k|2|a=1;b=2)"}), storage->Calls());
}

TEST_F(CacheTest, SaveDataReturnsSOkAndMakesNoStorageCall)
{
    storage->SetResult("StoreData", E_FAIL);
    ASSERT_EQ(E_FAIL, Write(io.Get(), L"k", L"n", L"v"));
    storage->ClearCalls();
    EXPECT_EQ(S_OK, io->SaveData(XWQComBSTR(L"k"), XWQComBSTR(L"n")));
    EXPECT_EQ(S_OK, io->SaveData(nullptr, nullptr));
    EXPECT_TRUE(storage->Calls().empty());
}

// --- lists ---

TEST_F(CacheTest, GetStringListOfKeyReadAsEmptyReturnsSOkWithCountZero)
{
    storage->SetRecords(L"k", {});
    const ListResult list = List(io.Get(), L"k");
    EXPECT_EQ(S_OK, list.hr);
    EXPECT_EQ(0u, list.count);
    EXPECT_FALSE(list.listWritten);
}

TEST_F(CacheTest, GetStringListOfCachedKeyWithEmptyTableReturnsSFalse)
{
    storage->SetRecords(L"k", {});
    ASSERT_EQ(S_OK, List(io.Get(), L"k").hr);
    const ListResult list = List(io.Get(), L"k");
    EXPECT_EQ(S_FALSE, list.hr);
    EXPECT_EQ(0u, list.count);
    EXPECT_EQ(1u, storage->CountCalls("ReadData"));
}

TEST_F(CacheTest, GetStringListOfKeyUnknownToStorageReturnsItsSFalse)
{
    const ListResult list = List(io.Get(), L"k");
    EXPECT_EQ(S_FALSE, list.hr);
    EXPECT_EQ(0u, list.count);
}

TEST_F(CacheTest, GetStringListReturnsReadFailureWithCountZero)
{
    storage->SetResult("ReadData", E_ACCESSDENIED);
    const ListResult list = List(io.Get(), L"k");
    EXPECT_EQ(E_ACCESSDENIED, list.hr);
    EXPECT_EQ(0u, list.count);
    EXPECT_FALSE(list.listWritten);
}

TEST_F(CacheTest, GetStringListReadsOnceThenAnswersFromCache)
{
    storage->SetRecords(L"k", {{L"B", L"2"}, {L"a", L"1"}});
    const ListResult first = List(io.Get(), L"K");
    EXPECT_EQ(S_OK, first.hr);
    EXPECT_EQ((std::vector<std::string>{"a=1", "b=2"}), first.records);
    const ListResult second = List(io.Get(), L"k");
    EXPECT_EQ(first.records, second.records);
    EXPECT_EQ((Calls{"ReadData(k)"}), storage->Calls());
}

// --- FlushCache ---

TEST_F(CacheTest, FlushCacheEmptiesCacheAndMissingMarkers)
{
    ASSERT_EQ(S_OK, Write(io.Get(), L"k", L"n", L"v"));
    ASSERT_EQ(S_FALSE, Read(io.Get(), L"k", L"missing").hr);
    storage->ClearCalls();
    EXPECT_EQ(S_OK, io->FlushCache(SDT_volatileData));
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"n").hr);
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"missing").hr);
    // Both reads asked the storage again: the value and the marker were gone.
    EXPECT_EQ((Calls{"FlushAsyncStorage()", "ReadData(k)", "ReadData(k)"}), storage->Calls());
}

TEST_F(CacheTest, FlushCacheReturnsFlushFailureAndCachedValuesStay)
{
    ASSERT_EQ(S_OK, Write(io.Get(), L"k", L"n", L"v"));
    storage->SetResult("FlushAsyncStorage", E_ABORT);
    EXPECT_EQ(E_ABORT, io->FlushCache(SDT_volatileData));
    EXPECT_EQ(L"v", Read(io.Get(), L"k", L"n").value);
    EXPECT_EQ(0u, storage->CountCalls("ReadData"));
}

// --- GetAllData, UploadCache ---

TEST_F(CacheTest, GetAllDataDoesNotFlushFirst)
{
    storage->SetAllData({{L"k", {{L"n", L"v"}}}});
    EXPECT_EQ(S_OK, ReadAll(io.Get(), L"root"));
    EXPECT_EQ((Calls{"ReadAllData(root)"}), storage->Calls());
}

TEST_F(CacheTest, GetAllDataReplacesCachedKeyButMissingMarkersStay)
{
    ASSERT_EQ(S_OK, Write(io.Get(), L"K", L"old", L"o"));
    ASSERT_EQ(S_FALSE, Read(io.Get(), L"k", L"x").hr);
    storage->SetAllData({{L"K", {{L"X", L"1"}, {L"Y", L"2"}}}});
    ASSERT_EQ(S_OK, ReadAll(io.Get(), L""));
    storage->ClearCalls();
    EXPECT_EQ(L"2", Read(io.Get(), L"k", L"y").value);
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"x").hr);  // still marked missing
    EXPECT_TRUE(storage->Calls().empty());
    // The key was replaced: the written value is gone from the cache.
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"old").hr);
    EXPECT_EQ(1u, storage->CountCalls("ReadData"));
}

TEST_F(CacheTest, EveryOverwriteIsWhatTheNextReadAnswers)
{
    // A hit is answered from the cache's index: it must follow every change of the value, by a
    // write, by a list write and by the merge of GetAllData.
    for (int i = 0; i < 20; ++i)
    {
        const std::wstring text = std::wstring(i % 5, L'x') + std::to_wstring(i);
        ASSERT_EQ(S_OK, Write(io.Get(), L"k", L"n", text.c_str()));
        ASSERT_EQ(text, Read(io.Get(), L"k", L"n").value);
    }
    const XWQComBSTR name(L"N");
    const XWQComBSTR value(L"from a list");
    tagSESSIONDATAVALUE record{name, value};
    ASSERT_EQ(S_OK, io->WriteStringList(XWQComBSTR(L"k"), 1, &record));
    EXPECT_EQ(L"from a list", Read(io.Get(), L"k", L"n").value);
    storage->SetAllData({{L"k", {{L"n", L"merged"}}}});
    ASSERT_EQ(S_OK, ReadAll(io.Get(), L""));
    EXPECT_EQ(L"merged", Read(io.Get(), L"k", L"n").value);
    EXPECT_EQ(0u, storage->CountCalls("ReadData"));
}

TEST_F(CacheTest, UploadCacheFillsCacheWithTheTreeUnderKey)
{
    storage->SetAllData({{L"root/a", {{L"n", L"1"}}}, {L"root/b", {{L"n", L"2"}}}});
    EXPECT_EQ(S_OK, io->UploadCache(XWQComBSTR(L"root")));
    EXPECT_EQ(L"1", Read(io.Get(), L"root/a", L"n").value);
    EXPECT_EQ(L"2", Read(io.Get(), L"root/b", L"n").value);
    EXPECT_EQ((Calls{"ReadAllData(root)"}), storage->Calls());
}

TEST_F(CacheTest, UploadCacheReturnsSFalseWhenStorageHasNothing)
{
    EXPECT_EQ(S_FALSE, io->UploadCache(XWQComBSTR(L"root")));
}

// --- binding and forwarding ---

TEST(CacheBinding, SetStorageBindsOnceAndReportsInvalidArgWhileUnbound)
{
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIO>();
    EXPECT_EQ(E_INVALIDARG, io->SetStorage(nullptr));
    StorageRef first;
    StorageRef second;
    EXPECT_EQ(S_OK, io->SetStorage(first.Get()));
    EXPECT_EQ(S_OK, io->SetStorage(nullptr));
    EXPECT_EQ(S_OK, io->SetStorage(second.Get()));
    EXPECT_EQ(S_OK, Write(io.Get(), L"k", L"n", L"v"));
    EXPECT_EQ(1u, first->CountCalls("StoreData"));
    EXPECT_TRUE(second->Calls().empty());
}

TEST(CacheBinding, UnboundObjectKeepsWrittenValuesAndAnswersSFalseForTheStorage)
{
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIO>();
    EXPECT_EQ(S_FALSE, Write(io.Get(), L"k", L"n", L"v"));
    EXPECT_EQ(L"v", Read(io.Get(), L"k", L"n").value);
    EXPECT_EQ(S_FALSE, ReadAll(io.Get(), L""));
    EXPECT_EQ(S_OK, io->FlushCache(SDT_allData));
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"n").hr);
    HRESULT async = E_ABORT;
    EXPECT_EQ(S_OK, io->GetLastErrorAsyncExecution(&async));
    EXPECT_EQ(E_ABORT, async);
}

TEST_F(CacheTest, GetSubKeysPassesKeyUnchangedWithoutUsingCache)
{
    storage->SetSubKeys(L"Users\\A", {L"users/a/x"});
    XBstrArray names;
    EXPECT_EQ(S_OK, io->GetSubKeys(XWQComBSTR(L"Users\\A"), 0, names.CountAddress(), names.ItemsAddress()));
    ASSERT_EQ(1u, names.Count());
    EXPECT_STREQ(L"users/a/x", names[0]);
    EXPECT_EQ((Calls{"GetSubKeys(Users\\A|0)"}), storage->Calls());
}

TEST_F(CacheTest, AsyncOperationsAreForwardedToStorage)
{
    storage->SetAsyncError(E_OUTOFMEMORY);
    HRESULT async = S_OK;
    EXPECT_EQ(S_OK, io->GetLastErrorAsyncExecution(&async));
    EXPECT_EQ(E_OUTOFMEMORY, async);
    storage->SetResult("FlushAsyncStorage", E_ABORT);
    EXPECT_EQ(E_ABORT, io->FlushAsyncStorage());
}
