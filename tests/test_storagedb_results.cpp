// XSessionDataStorageDb: the root key is cut off the key names that the root hands back; names
// that cannot hold it are refused, and a query over the whole database is never made.
#include "storagedbtest.h"

namespace
{
const char kNotBelonging[] = "the SDM keyname retrieved from database does not belong to the requested root key";
const wchar_t kNotBelongingW[] =
    L"the SDM keyname retrieved from database does not belong to the requested root key";
const wchar_t kWholeDatabase[] = L"root key is empty - for DB query the root key must be set";
} // namespace

TEST_F(StorageDbTest, GetSubKeysCutsTheRootKeyOffEveryName)
{
    Bind(L"app");
    root->SetSubKeys(L"app/k", {L"app/k/one", L"app/k/one/two"});
    const NamesResult names = ReadSubKeys(Base(), L"k", 1);
    EXPECT_EQ(S_OK, names.hr);
    EXPECT_EQ((std::vector<std::wstring>{L"k/one", L"k/one/two"}), names.names);
}

TEST_F(StorageDbTest, GetSubKeysCutsTheUserProfilePrefixWithTheRootKey)
{
    ASSERT_EQ(S_OK, storage->SetRoot(root->Root()));
    ASSERT_EQ(S_OK, storage->SetUserProfileStorage());
    ASSERT_EQ(S_OK, storage->SetRootKey(XWQComBSTR(L"app")));
    root->SetSubKeys(L"<[HKCU]>/app/", {L"<[HKCU]>/app/a", L"<[HKCU]>/app/b"});
    const NamesResult names = ReadSubKeys(Base(), L"", 0);
    EXPECT_EQ(S_OK, names.hr);
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"b"}), names.names);
}

TEST_F(StorageDbTest, GetSubKeysComparesOnlyTheLengthAndKeepsEmptyNames)
{
    Bind(L"app");
    root->SetSubKeys(L"app/", {L"xyz/sub", L"", L"abcd"});
    const NamesResult names = ReadSubKeys(Base(), L"", 0);
    EXPECT_EQ(S_OK, names.hr);
    EXPECT_EQ((std::vector<std::wstring>{L"sub", L"", L""}), names.names);
}

TEST_F(StorageDbTest, GetSubKeysWithoutRootKeyHandsBackTheNamesAsTheRootGaveThem)
{
    Bind(nullptr);
    root->SetSubKeys(L"k", {L"k/a", L"x"});
    const NamesResult names = ReadSubKeys(Base(), L"k", 0);
    EXPECT_EQ(S_OK, names.hr);
    EXPECT_EQ((std::vector<std::wstring>{L"k/a", L"x"}), names.names);
}

TEST_F(StorageDbTest, ASubKeyNameShorterThanTheRootKeyFailsWithDoesNotBelong)
{
    Bind(L"application");
    root->SetSubKeys(L"application/", {L"application/ok", L"short"});
    SetMarkerErrorInfo(L"marker");
    const NamesResult names = ReadSubKeys(Base(), L"", 0);
    EXPECT_EQ(E_FAIL, names.hr);
    EXPECT_EQ(0u, names.count);
    EXPECT_TRUE(names.listNull);
    const ErrorInfoText info = TakeErrorInfo();
    EXPECT_EQ(kNotBelongingW, info.description);
    EXPECT_EQ(L"WQSessionDataMng", info.source);
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataStorageDb, info.guid));
    EXPECT_TRUE(LogHas({"XSessionDataStorageDb::GetSubKeys", "xsessiondatastoragedb", kNotBelonging}));
}

TEST_F(StorageDbTest, ReadAllDataCutsTheRootKeyOffEveryRecordsKeyName)
{
    Bind(L"app");
    root->SetAllData({{L"app/k", {{L"a", L"1"}}}, {L"app/k/sub", {{L"b", L"2"}, {L"c", L"3"}}}});
    const KeyRecordsResult all = ReadAll(Base(), L"k");
    EXPECT_EQ(S_OK, all.hr);
    ASSERT_EQ(2u, all.records.size());
    EXPECT_EQ(L"k", all.records[0].key);
    EXPECT_EQ((Pairs{{L"a", L"1"}}), all.records[0].pairs);
    EXPECT_EQ(L"k/sub", all.records[1].key);
    EXPECT_EQ((Pairs{{L"b", L"2"}, {L"c", L"3"}}), all.records[1].pairs);
}

TEST_F(StorageDbTest, AReadAllDataKeyNameShorterThanTheRootKeyFailsWithDoesNotBelong)
{
    Bind(L"application");
    root->SetAllData({{L"application/k", {{L"a", L"1"}}}, {L"app", {{L"b", L"2"}}}});
    const KeyRecordsResult all = ReadAll(Base(), L"k");
    EXPECT_EQ(E_FAIL, all.hr);
    EXPECT_TRUE(all.records.empty());
    const ErrorInfoText info = TakeErrorInfo();
    EXPECT_EQ(kNotBelongingW, info.description);
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataStorageDb, info.guid));
    EXPECT_TRUE(LogHas({"XSessionDataStorageDb::ReadAllData", "xsessiondatastoragedb", kNotBelonging}));
}

TEST_F(StorageDbTest, ReadAllDataWithoutRootKeyPassesANamedKeyAndItsAnswerUnchanged)
{
    Bind(nullptr);
    root->SetAllData({{L"k", {{L"a", L"1"}}}});
    const KeyRecordsResult all = ReadAll(Base(), L"k");
    EXPECT_EQ(S_OK, all.hr);
    ASSERT_EQ(1u, all.records.size());
    EXPECT_EQ(L"k", all.records[0].key);
    EXPECT_EQ(std::vector<std::string>{"GetAllData(k)"}, Calls());
}

TEST_F(StorageDbTest, ReadAllDataOfTheWholeDatabaseWithoutRootKeyIsRefused)
{
    Bind(nullptr);
    SetMarkerErrorInfo(L"marker");
    const KeyRecordsResult all = ReadAll(Base(), L"");
    EXPECT_EQ(E_INVALIDARG, all.hr);
    EXPECT_TRUE(all.records.empty());
    EXPECT_TRUE(Calls().empty());
    const ErrorInfoText info = TakeErrorInfo();
    EXPECT_EQ(kWholeDatabase, info.description);
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataStorageDb, info.guid));
    EXPECT_TRUE(LogHas({"XSessionDataStorageDb::ReadAllData", "xsessiondatastoragedb", Utf8(kWholeDatabase)}));
}

TEST_F(StorageDbTest, ReadAllDataOfTheWholeUserProfileIsRefused)
{
    ASSERT_EQ(S_OK, storage->SetRoot(root->Root()));
    ASSERT_EQ(S_OK, storage->SetUserProfileStorage());
    ASSERT_EQ(S_OK, storage->SetRootKey(XWQComBSTR(L"")));
    const KeyRecordsResult all = ReadAll(Base(), L"");
    EXPECT_EQ(E_INVALIDARG, all.hr);
    EXPECT_TRUE(Calls().empty());
    EXPECT_EQ(kWholeDatabase, TakeErrorInfo().description);
}

TEST_F(StorageDbTest, ReadAllDataBelowTheUserProfilePrefixGoesToTheRoot)
{
    ASSERT_EQ(S_OK, storage->SetRoot(root->Root()));
    ASSERT_EQ(S_OK, storage->SetUserProfileStorage());
    ASSERT_EQ(S_OK, storage->SetRootKey(XWQComBSTR(L"")));
    root->SetAllData({{L"<[HKCU]>/k", {{L"a", L"1"}}}});
    const KeyRecordsResult all = ReadAll(Base(), L"k");
    EXPECT_EQ(S_OK, all.hr);
    ASSERT_EQ(1u, all.records.size());
    EXPECT_EQ(L"k", all.records[0].key);
    EXPECT_EQ(std::vector<std::string>{"GetAllData(<[HKCU]>/k)"}, Calls());
}

TEST_F(StorageDbTest, ReadAllDataUnderARootKeyWithAnEmptyKeyGoesToTheRoot)
{
    Bind(L"app");
    const KeyRecordsResult all = ReadAll(Base(), L"");
    EXPECT_EQ(S_FALSE, all.hr);
    EXPECT_EQ(std::vector<std::string>{"GetAllData(app/)"}, Calls());
}
