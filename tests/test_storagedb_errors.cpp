// XSessionDataStorageDb: calls without a root, null pointers, and the reports they make.
#include "storagedbtest.h"

#include "xcomtypes.h"

namespace
{
const char kNoRoot[] = "DB storage root instance not set";
const wchar_t kNoRootW[] = L"DB storage root instance not set";

// The error info of the last call: the no-root report at the method's location.
void ExpectNoRootReport(const char* function)
{
    const ErrorInfoText info = TakeErrorInfo();
    EXPECT_TRUE(info.present);
    EXPECT_EQ(kNoRootW, info.description);
    EXPECT_EQ(L"WQSessionDataMng", info.source);
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataStorageDb, info.guid));
    EXPECT_TRUE(LogHas({function, "xsessiondatastoragedb", kNoRoot})) << function;
}
} // namespace

TEST_F(StorageDbTest, StoreDataWithoutRootReportsRootNotSet)
{
    PairRecords records(Pairs{{L"n", L"v"}});
    EXPECT_EQ(E_POINTER, storage->StoreData(XWQComBSTR(L"k"), records.Count(), records.Data()));
    ExpectNoRootReport("XSessionDataStorageDb::StoreData");
}

TEST_F(StorageDbTest, ReadDataWithoutRootReportsRootNotSet)
{
    EXPECT_EQ(E_POINTER, ReadPairs(Base(), L"k").hr);
    ExpectNoRootReport("XSessionDataStorageDb::ReadData");
}

TEST_F(StorageDbTest, GetSubKeysWithoutRootReportsRootNotSet)
{
    EXPECT_EQ(E_POINTER, ReadSubKeys(Base(), L"k", 0).hr);
    ExpectNoRootReport("XSessionDataStorageDb::GetSubKeys");
}

TEST_F(StorageDbTest, ReadAllDataWithoutRootReportsRootNotSet)
{
    EXPECT_EQ(E_POINTER, ReadAll(Base(), L"k").hr);
    ExpectNoRootReport("XSessionDataStorageDb::ReadAllData");
}

TEST_F(StorageDbTest, DeleteKeyWithoutRootReportsRootNotSet)
{
    EXPECT_EQ(E_POINTER, storage->DeleteKey(XWQComBSTR(L"k")));
    ExpectNoRootReport("XSessionDataStorageDb::DeleteKey");
}

TEST_F(StorageDbTest, ObjectOperationsWithoutRootReportRootNotSet)
{
    PairRecords records(Pairs{{L"n", L"v"}});
    EXPECT_EQ(E_POINTER, storage->StoreObjectData(nullptr, XWQComBSTR(L"k"), records.Count(), records.Data()));
    ExpectNoRootReport("XSessionDataStorageDb::StoreObjectData");
    XValueArray list;
    EXPECT_EQ(E_POINTER, storage->ReadObjectData(nullptr, XWQComBSTR(L"k"), list.CountAddress(), list.ItemsAddress()));
    ExpectNoRootReport("XSessionDataStorageDb::ReadObjectData");
    XBstrArray names;
    EXPECT_EQ(E_POINTER,
              storage->GetObjectSubKeys(nullptr, XWQComBSTR(L"k"), 0, names.CountAddress(), names.ItemsAddress()));
    ExpectNoRootReport("XSessionDataStorageDb::GetObjectSubKeys");
    EXPECT_EQ(E_POINTER, storage->DeleteObjectKey(nullptr, XWQComBSTR(L"k")));
    ExpectNoRootReport("XSessionDataStorageDb::DeleteObjectKey");
}

TEST_F(StorageDbTest, SetRootWithNullIsAPointerFailureAndKeepsNoRoot)
{
    SetMarkerErrorInfo(L"marker");
    EXPECT_EQ(E_POINTER, storage->SetRoot(nullptr));
    const ErrorInfoText info = TakeErrorInfo();
    EXPECT_NE(L"marker", info.description);
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataStorageDb, info.guid));
    EXPECT_EQ(E_POINTER, ReadPairs(Base(), L"k").hr);
    EXPECT_EQ(kNoRootW, TakeErrorInfo().description);
}

TEST_F(StorageDbTest, SetRootWithNullAfterARootKeepsTheFirstRoot)
{
    Bind(L"app");
    EXPECT_EQ(E_POINTER, storage->SetRoot(nullptr));
    EXPECT_EQ("GetStringList(app/k)", KeySentFor(Base(), root.Get(), L"k"));
}

TEST_F(StorageDbTest, SetRootAgainSendsLaterCallsToTheNewRoot)
{
    Bind(L"app");
    RootRef second;
    ASSERT_EQ(S_OK, storage->SetRoot(second->Root()));
    ReadPairs(Base(), L"k");
    EXPECT_TRUE(Calls().empty());
    EXPECT_EQ(std::vector<std::string>{"GetStringList(app/k)"}, second->Calls());
}

TEST_F(StorageDbTest, NullOutPointersOfReadsArePointerFailuresWithoutARootCall)
{
    Bind(L"app");
    ULONG count = 0;
    tagSESSIONDATAVALUE* list = nullptr;
    BSTR* names = nullptr;
    tagKEY_SESSIONDATAVALUE* records = nullptr;
    EXPECT_EQ(E_POINTER, storage->ReadData(XWQComBSTR(L"k"), nullptr, &list));
    EXPECT_EQ(E_POINTER, storage->ReadData(XWQComBSTR(L"k"), &count, nullptr));
    EXPECT_EQ(E_POINTER, storage->GetSubKeys(XWQComBSTR(L"k"), 0, nullptr, &names));
    EXPECT_EQ(E_POINTER, storage->GetSubKeys(XWQComBSTR(L"k"), 0, &count, nullptr));
    EXPECT_EQ(E_POINTER, storage->ReadAllData(XWQComBSTR(L"k"), nullptr, &records));
    EXPECT_EQ(E_POINTER, storage->ReadAllData(XWQComBSTR(L"k"), &count, nullptr));
    EXPECT_EQ(E_POINTER, storage->ReadObjectData(nullptr, XWQComBSTR(L"k"), nullptr, &list));
    EXPECT_EQ(E_POINTER, storage->GetObjectSubKeys(nullptr, XWQComBSTR(L"k"), 0, &count, nullptr));
    EXPECT_TRUE(Calls().empty());
}

TEST_F(StorageDbTest, ANullOutPointerIsReportedAtTheMethodsLocation)
{
    Bind(L"app");
    EXPECT_EQ(E_POINTER, storage->ReadData(XWQComBSTR(L"k"), nullptr, nullptr));
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataStorageDb, TakeErrorInfo().guid));
    EXPECT_TRUE(LogHas({"XSessionDataStorageDb::ReadData", "xsessiondatastoragedb"}));
}

TEST_F(StorageDbTest, GetLastErrorAsyncExecutionWithANullPointerIsAPointerFailure)
{
    EXPECT_EQ(E_POINTER, storage->GetLastErrorAsyncExecution(nullptr));
    EXPECT_TRUE(LogHas({"XSessionDataStorageDb::GetLastErrorAsyncExecution", "xsessiondatastoragedb"}));
}

TEST_F(StorageDbTest, ARootFailureIsPassedBackAsItIsWithoutAReportOfItsOwn)
{
    Bind(L"app");
    root->SetResult("GetStringList", E_ACCESSDENIED);
    ClearLogBook();
    EXPECT_EQ(E_ACCESSDENIED, ReadPairs(Base(), L"k").hr);
    EXPECT_TRUE(ReadLogBook().empty());
}
