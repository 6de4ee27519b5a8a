// XSessionDataIONoCache: the uncached access layer over a recording storage.
#include "iotesthelpers.h"
#include "xcomtypes.h"
#include "xsessiondataionocache.h"

#include <gtest/gtest.h>

using Pose = RecordingStorage::Pose;
using Calls = std::vector<std::string>;

namespace
{
class NoCacheTest : public ::testing::Test
{
protected:
    StorageRef storage;
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIONoCache>(storage.Get());
};
} // namespace

// --- writes ---

TEST_F(NoCacheTest, WriteDataWithEmptyValueNameReturnsSFalseAndCallsNoStorage)
{
    EXPECT_EQ(S_FALSE, Write(io.Get(), L"k", L"", L"v"));
    EXPECT_EQ(S_FALSE, io->WriteData(XWQComBSTR(L"k"), nullptr, XWQComBSTR(L"v")));
    EXPECT_TRUE(storage->Calls().empty());
}

TEST_F(NoCacheTest, WriteDataStoresUnderKeyAsGivenWithLowerCasedValueName)
{
    EXPECT_EQ(S_OK, Write(io.Get(), L"Users\\A", L"Name", L"Value"));
    EXPECT_EQ((Calls{"StoreData(Users\\A|1|name=Value)"}), storage->Calls());
}

TEST_F(NoCacheTest, WriteDataReturnsStoreFailure)
{
    storage->SetResult("StoreData", E_ACCESSDENIED);
    EXPECT_EQ(E_ACCESSDENIED, Write(io.Get(), L"k", L"n", L"v"));
}

TEST_F(NoCacheTest, WriteStringListWithCountZeroReturnsSFalse)
{
    ValueRecords records{{L"a", L"1"}};
    EXPECT_EQ(S_FALSE, io->WriteStringList(XWQComBSTR(L"k"), 0, records.Data()));
    EXPECT_TRUE(storage->Calls().empty());
}

TEST_F(NoCacheTest, WriteStringListWithEmptyNameInSecondRecordStoresNothing)
{
    ValueRecords records{{L"a", L"1"}, {L"", L"2"}, {L"c", L"3"}};
    EXPECT_EQ(S_FALSE, io->WriteStringList(XWQComBSTR(L"k"), records.Count(), records.Data()));
    EXPECT_TRUE(storage->Calls().empty());
    // The record put before the bad one does not linger in the working table either.
    EXPECT_EQ(S_OK, io->SaveData(XWQComBSTR(L"k"), nullptr));
    EXPECT_TRUE(storage->Calls().empty());
}

TEST_F(NoCacheTest, WriteStringListStoresAllRecordsInOneCallUnderLowerCasedKey)
{
    ValueRecords records{{L"A", L"1"}, {L"b", L"2"}};
    EXPECT_EQ(S_OK, io->WriteStringList(XWQComBSTR(L"K"), records.Count(), records.Data()));
    EXPECT_EQ((Calls{"StoreData(k|2|a=1;b=2)"}), storage->Calls());
}

TEST_F(NoCacheTest, WriteStringListReturnsStoreFailure)
{
    storage->SetResult("StoreData", E_FAIL);
    ValueRecords records{{L"a", L"1"}};
    EXPECT_EQ(E_FAIL, io->WriteStringList(XWQComBSTR(L"k"), records.Count(), records.Data()));
}

// --- reads ---

TEST_F(NoCacheTest, GetDataReadsKeyLowerCasedAndFindsNameInAnyCase)
{
    storage->SetRecords(L"users/a", {{L"Name", L"v"}});
    const ReadResult read = Read(io.Get(), L"Users/A", L"NAME");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ(L"v", read.value);
    EXPECT_EQ((Calls{"ReadData(users/a)"}), storage->Calls());
}

TEST_F(NoCacheTest, GetDataOfMissingValueReturnsSFalseAndLeavesOutValue)
{
    storage->SetRecords(L"k", {{L"a", L"1"}});
    const ReadResult read = Read(io.Get(), L"k", L"b");
    EXPECT_EQ(S_FALSE, read.hr);
    EXPECT_FALSE(read.written);
}

TEST_F(NoCacheTest, GetDataWithEmptyValueNameReturnsSFalseWithoutStorageCall)
{
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"").hr);
    EXPECT_TRUE(storage->Calls().empty());
}

TEST_F(NoCacheTest, GetDataReturnsReadFailure)
{
    storage->SetResult("ReadData", E_ACCESSDENIED);
    const ReadResult read = Read(io.Get(), L"k", L"n");
    EXPECT_EQ(E_ACCESSDENIED, read.hr);
    EXPECT_FALSE(read.written);
}

TEST_F(NoCacheTest, EveryGetDataReadsTheStorageAgain)
{
    storage->SetRecords(L"k", {{L"n", L"v"}});
    EXPECT_EQ(S_OK, Read(io.Get(), L"k", L"n").hr);
    EXPECT_EQ(S_OK, Read(io.Get(), L"k", L"n").hr);
    EXPECT_EQ(2u, storage->CountCalls("ReadData"));
}

TEST_F(NoCacheTest, GetDataAnswersWrittenValueFromTableOnceThenTableIsEmpty)
{
    ASSERT_EQ(S_OK, Write(io.Get(), L"k", L"n", L"written"));
    const ReadResult first = Read(io.Get(), L"k", L"n");
    EXPECT_EQ(S_OK, first.hr);
    EXPECT_EQ(L"written", first.value);
    EXPECT_EQ(0u, storage->CountCalls("ReadData"));
    // The read emptied the working table: the storage (which kept nothing) is asked now.
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"n").hr);
    EXPECT_EQ(1u, storage->CountCalls("ReadData"));
}

TEST_F(NoCacheTest, GetDataKeepsStorageSpellingWhenKeyIsAlreadyInTable)
{
    storage->SetRecords(L"k", {{L"Name", L"v"}});
    // Key not in the working table: the storage's names are lower-cased, the value is found.
    EXPECT_EQ(S_OK, Read(io.Get(), L"k", L"name").hr);
    // Key in the table after a write: the storage's names keep their capitals and do not match.
    ASSERT_EQ(S_OK, Write(io.Get(), L"k", L"other", L"x"));
    const ReadResult read = Read(io.Get(), L"k", L"name");
    EXPECT_EQ(S_FALSE, read.hr);
    EXPECT_FALSE(read.written);
    EXPECT_EQ(2u, storage->CountCalls("ReadData"));
}

TEST_F(NoCacheTest, GetDataWithKeyInTableFindsLowerCaseStorageName)
{
    storage->SetRecords(L"k", {{L"name", L"v"}});
    ASSERT_EQ(S_OK, Write(io.Get(), L"k", L"other", L"x"));
    const ReadResult read = Read(io.Get(), L"k", L"Name");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ(L"v", read.value);
}

TEST_F(NoCacheTest, GetStringListOfUnknownKeyReturnsSFalseAndLeavesList)
{
    const ListResult list = List(io.Get(), L"unknown");
    EXPECT_EQ(S_FALSE, list.hr);
    EXPECT_EQ(0u, list.count);
    EXPECT_FALSE(list.listWritten);
}

TEST_F(NoCacheTest, GetStringListWhoseReadFailsReturnsSFalseAndLeavesList)
{
    storage->SetResult("ReadData", E_FAIL);
    const ListResult list = List(io.Get(), L"k");
    EXPECT_EQ(S_FALSE, list.hr);
    EXPECT_EQ(0u, list.count);
    EXPECT_FALSE(list.listWritten);
}

TEST_F(NoCacheTest, GetStringListOfKeyReadAsEmptyReturnsSFalse)
{
    storage->SetRecords(L"k", {});
    const ListResult list = List(io.Get(), L"k");
    EXPECT_EQ(S_FALSE, list.hr);
    EXPECT_EQ(0u, list.count);
}

TEST_F(NoCacheTest, GetStringListListsLowerCasedNamesInCollationOrder)
{
    storage->SetRecords(L"k", {{L"B", L"2"}, {L"a", L"1"}});
    const ListResult list = List(io.Get(), L"K");
    EXPECT_EQ(S_OK, list.hr);
    EXPECT_EQ(2u, list.count);
    EXPECT_EQ((std::vector<std::string>{"a=1", "b=2"}), list.records);
    EXPECT_EQ((Calls{"ReadData(k)"}), storage->Calls());
}

TEST_F(NoCacheTest, NamesDifferingOnlyInCaseAreOneEntryWhileCountIsTheStoragesCount)
{
    storage->SetRecords(L"k", {{L"Name", L"upper"}, {L"name", L"lower"}});
    // The read list is in collation order; its later name overwrites the earlier in the table.
    const bool upperSortsLast = ::VarBstrCmp(XWQComBSTR(L"name"), XWQComBSTR(L"Name"), LOCALE_USER_DEFAULT, 0) ==
                                static_cast<HRESULT>(VARCMP_LT);
    const ListResult list = List(io.Get(), L"k");
    EXPECT_EQ(S_OK, list.hr);
    EXPECT_EQ(2u, list.count);
    ASSERT_EQ(2u, list.records.size());
    EXPECT_EQ(upperSortsLast ? "name=upper" : "name=lower", list.records[0]);
    EXPECT_EQ("<null>=<null>", list.records[1]);  // past the table's one entry: not filled
}

TEST_F(NoCacheTest, GetStringListAfterWriteListsTheWorkingTable)
{
    storage->SetRecords(L"k", {{L"a", L"1"}, {L"b", L"2"}});
    ASSERT_EQ(S_OK, Write(io.Get(), L"k", L"c", L"3"));
    const ListResult list = List(io.Get(), L"k");
    EXPECT_EQ(S_OK, list.hr);
    EXPECT_EQ((std::vector<std::string>{"c=3"}), list.records);
    EXPECT_EQ(0u, storage->CountCalls("ReadData"));
}

// --- SaveData ---

TEST_F(NoCacheTest, SaveDataOfValueNotInTableReturnsSOkWithoutStoring)
{
    EXPECT_EQ(S_OK, io->SaveData(XWQComBSTR(L"k"), XWQComBSTR(L"n")));
    EXPECT_EQ(S_OK, io->SaveData(XWQComBSTR(L"k"), nullptr));
    EXPECT_EQ(S_OK, io->SaveData(nullptr, nullptr));
    EXPECT_TRUE(storage->Calls().empty());
}

TEST_F(NoCacheTest, SaveDataOfValueStoresItEvenWhenClean)
{
    ASSERT_EQ(S_OK, Write(io.Get(), L"K", L"N", L"v"));
    storage->ClearCalls();
    EXPECT_EQ(S_OK, io->SaveData(XWQComBSTR(L"K"), XWQComBSTR(L"N")));
    EXPECT_EQ((Calls{"StoreData(K|1|n=v)"}), storage->Calls());
}

TEST_F(NoCacheTest, SaveDataOfKeyStoresValuesLeftDirtyByFailedStore)
{
    storage->SetResult("StoreData", E_FAIL);
    ASSERT_EQ(E_FAIL, Write(io.Get(), L"K", L"b", L"2"));
    ASSERT_EQ(E_FAIL, Write(io.Get(), L"K", L"a", L"1"));
    storage->ClearResult("StoreData");
    storage->ClearCalls();
    EXPECT_EQ(S_OK, io->SaveData(XWQComBSTR(L"K"), nullptr));
    EXPECT_EQ((Calls{"StoreData(k|2|a=1;b=2)"}), storage->Calls());
    // Now clean: nothing more to store.
    storage->ClearCalls();
    EXPECT_EQ(S_OK, io->SaveData(XWQComBSTR(L"K"), nullptr));
    EXPECT_TRUE(storage->Calls().empty());
}

TEST_F(NoCacheTest, SaveDataWithoutNamesStoresDirtyValuesOfEveryKey)
{
    storage->SetResult("StoreData", E_FAIL);
    ASSERT_EQ(E_FAIL, Write(io.Get(), L"K2", L"b", L"2"));
    ASSERT_EQ(E_FAIL, Write(io.Get(), L"K1", L"a", L"1"));
    storage->ClearResult("StoreData");
    storage->ClearCalls();
    EXPECT_EQ(S_OK, io->SaveData(nullptr, nullptr));
    EXPECT_EQ((Calls{"StoreData(k1|1|a=1)", "StoreData(k2|1|b=2)"}), storage->Calls());
}

TEST_F(NoCacheTest, SaveDataWithoutNamesStopsAtFirstFailure)
{
    storage->SetResult("StoreData", E_FAIL);
    ASSERT_EQ(E_FAIL, Write(io.Get(), L"K2", L"b", L"2"));
    ASSERT_EQ(E_FAIL, Write(io.Get(), L"K1", L"a", L"1"));
    storage->ClearCalls();
    EXPECT_EQ(E_FAIL, io->SaveData(nullptr, nullptr));
    EXPECT_EQ((Calls{"StoreData(k1|1|a=1)"}), storage->Calls());
}

TEST_F(NoCacheTest, FlushCacheDropsDirtyValuesUnstored)
{
    storage->SetResult("StoreData", E_FAIL);
    ASSERT_EQ(E_FAIL, Write(io.Get(), L"k", L"a", L"1"));
    storage->ClearResult("StoreData");
    EXPECT_EQ(S_OK, io->FlushCache(static_cast<SESSIONDATATYPE>(12345)));
    storage->ClearCalls();
    EXPECT_EQ(S_OK, io->SaveData(XWQComBSTR(L"k"), nullptr));
    EXPECT_TRUE(storage->Calls().empty());
}

// --- GetAllData, UploadCache ---

TEST_F(NoCacheTest, GetDataAfterGetAllDataAnswersFromTableThenReadsAgain)
{
    storage->SetAllData({{L"Root/K", {{L"N", L"v"}}}});
    ASSERT_EQ(S_OK, ReadAll(io.Get(), L"Root"));
    const ReadResult first = Read(io.Get(), L"root/k", L"n");
    EXPECT_EQ(S_OK, first.hr);
    EXPECT_EQ(L"v", first.value);
    EXPECT_EQ(0u, storage->CountCalls("ReadData"));
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"root/k", L"n").hr);
    EXPECT_EQ(1u, storage->CountCalls("ReadData"));
}

TEST_F(NoCacheTest, GetAllDataFlushesStorageFirstAndHandsOnItsArrays)
{
    storage->SetAllData({{L"a", {{L"x", L"1"}, {L"y", L"2"}}}, {L"b", {}}});
    XKeyValueArray all;
    EXPECT_EQ(S_OK, io->GetAllData(XWQComBSTR(L"root"), all.CountAddress(), all.ItemsAddress()));
    ASSERT_EQ(2u, all.Count());
    EXPECT_STREQ(L"a", all[0].bstrKeyName);
    EXPECT_EQ(2u, all[0].ulCount);
    EXPECT_STREQ(L"x", all[0].pSessionDataValue[0].bstrValueName);
    EXPECT_EQ((Calls{"FlushAsyncStorage()", "ReadAllData(root)"}), storage->Calls());
}

TEST_F(NoCacheTest, GetAllDataReturnsFlushFailureWithoutReading)
{
    storage->SetResult("FlushAsyncStorage", E_ABORT);
    EXPECT_EQ(E_ABORT, ReadAll(io.Get(), L"root"));
    EXPECT_EQ(0u, storage->CountCalls("ReadAllData"));
}

TEST_F(NoCacheTest, UploadCacheReturnsGetAllDataResultAndFillsTable)
{
    storage->SetAllData({{L"k", {{L"n", L"v"}}}});
    EXPECT_EQ(S_OK, io->UploadCache(XWQComBSTR(L"k")));
    EXPECT_EQ(L"v", Read(io.Get(), L"k", L"n").value);
    EXPECT_EQ(0u, storage->CountCalls("ReadData"));
}

TEST_F(NoCacheTest, UploadCacheReturnsReadAllDataFailure)
{
    storage->SetResult("ReadAllData", E_ACCESSDENIED);
    EXPECT_EQ(E_ACCESSDENIED, io->UploadCache(XWQComBSTR(L"k")));
}

// --- binding and forwarding ---

TEST(NoCacheBinding, SetStorageNullOnUnboundObjectReturnsInvalidArg)
{
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIONoCache>();
    EXPECT_EQ(E_INVALIDARG, io->SetStorage(nullptr));
}

TEST(NoCacheBinding, SetStorageNullOnBoundObjectReturnsSOk)
{
    StorageRef storage;
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIONoCache>(storage.Get());
    EXPECT_EQ(S_OK, io->SetStorage(nullptr));
}

TEST(NoCacheBinding, SecondStorageIsIgnored)
{
    StorageRef first;
    StorageRef second;
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIONoCache>(first.Get());
    EXPECT_EQ(S_OK, io->SetStorage(second.Get()));
    EXPECT_EQ(S_OK, Write(io.Get(), L"k", L"n", L"v"));
    EXPECT_EQ(1u, first->CountCalls("StoreData"));
    EXPECT_TRUE(second->Calls().empty());
}

TEST(NoCacheBinding, GetStorageTypeOverRegistryStorageIsTwo)
{
    StorageRef storage(Pose::Registry);
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIONoCache>(storage.Get());
    SDM_STORAGE_TYPE type = SDM_STORAGE_NOT_INITIALIZED;
    EXPECT_EQ(S_OK, io->GetStorageType(&type));
    EXPECT_EQ(2, static_cast<LONG>(type));
}

TEST(NoCacheBinding, GetStorageTypeOfUnboundObjectIsZero)
{
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIONoCache>();
    SDM_STORAGE_TYPE type = SDM_STORAGE_VOLATILE;
    EXPECT_EQ(S_OK, io->GetStorageType(&type));
    EXPECT_EQ(0, static_cast<LONG>(type));
}

TEST(NoCacheBinding, UnboundObjectAnswersReadsAndWritesWithSFalse)
{
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIONoCache>();
    EXPECT_EQ(S_FALSE, Write(io.Get(), L"k", L"n", L"v"));
    // The written value went into the working table all the same; the read empties it.
    EXPECT_EQ(S_OK, Read(io.Get(), L"k", L"n").hr);
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"n").hr);
    EXPECT_EQ(S_FALSE, List(io.Get(), L"k").hr);
    EXPECT_EQ(S_FALSE, ReadAll(io.Get(), L""));
    ULONG count = 7;
    BSTR* names = nullptr;
    EXPECT_EQ(S_FALSE, io->GetSubKeys(XWQComBSTR(L"k"), 1, &count, &names));
    EXPECT_EQ(7u, count);
    EXPECT_EQ(S_OK, io->FlushCache(SDT_allData));
    EXPECT_EQ(S_OK, io->FlushAsyncStorage());
    HRESULT async = E_ABORT;
    EXPECT_EQ(S_OK, io->GetLastErrorAsyncExecution(&async));
    EXPECT_EQ(E_ABORT, async);
}

TEST_F(NoCacheTest, GetSubKeysPassesKeyUnchangedAndHandsOnStorageArray)
{
    storage->SetSubKeys(L"Users\\A", {L"users/a/x", L"users/a/y"});
    XBstrArray names;
    EXPECT_EQ(S_OK, io->GetSubKeys(XWQComBSTR(L"Users\\A"), 1, names.CountAddress(), names.ItemsAddress()));
    ASSERT_EQ(2u, names.Count());
    EXPECT_STREQ(L"users/a/y", names[1]);
    EXPECT_EQ((Calls{"GetSubKeys(Users\\A|1)"}), storage->Calls());
}

TEST_F(NoCacheTest, AsyncOperationsAreForwardedToStorage)
{
    storage->SetResult("FlushAsyncStorage", E_ABORT);
    EXPECT_EQ(E_ABORT, io->FlushAsyncStorage());
    storage->SetAsyncError(E_OUTOFMEMORY);
    HRESULT async = S_OK;
    EXPECT_EQ(S_OK, io->GetLastErrorAsyncExecution(&async));
    EXPECT_EQ(E_OUTOFMEMORY, async);
}
