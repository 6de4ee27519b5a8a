// ReadAllData of the registry and the environment storage: the root key's values (lower-cased
// name), then every sub-key in walk order, gathered through the storage's own COM methods.
#include "registrystoragetest.h"
#include "xsessiondatastorageenv.h"

namespace
{
// A registry storage that records the COM reads that ReadAllData makes on it.
class RecordingRegistryStorage : public XSessionDataStorageReg
{
public:
    STDMETHODIMP ReadData(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppValueList) override
    {
        calls.push_back(L"ReadData(" + std::wstring(bstrKeyName ? bstrKeyName : L"") + L")");
        return XSessionDataStorageReg::ReadData(bstrKeyName, pulCount, ppValueList);
    }
    STDMETHODIMP GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList) override
    {
        calls.push_back(L"GetSubKeys(" + std::wstring(bstrKeyName ? bstrKeyName : L"") + L"," +
                        std::to_wstring(ulRecursive) + L")");
        return XSessionDataStorageReg::GetSubKeys(bstrKeyName, ulRecursive, pulCount, ppKeyNameList);
    }
    using XSessionDataStorageReg::GetSubKeys;
    using XSessionDataStorageReg::ReadData;
    std::vector<std::wstring> calls;
};
} // namespace

TEST_F(RegistryStorageTest, ReadAllDataListsTheRootAndEverySubKeyInWalkOrder)
{
    Raw::SetString(HKEY_CURRENT_USER, root.Below(L"App"), L"top", L"T");
    Raw::SetString(HKEY_CURRENT_USER, root.Below(L"App"), L"other", L"O");
    Raw::SetString(HKEY_CURRENT_USER, root.Below(L"App\\A"), L"inner", L"I");
    Raw::CreateKey(HKEY_CURRENT_USER, root.Below(L"App\\A\\Empty"));
    Raw::SetString(HKEY_CURRENT_USER, root.Below(L"App\\B"), L"b", L"2");
    ASSERT_EQ(S_OK, Init());

    const KeyRecordsResult all = ReadAll(Base(), L"App");
    EXPECT_EQ(S_OK, all.hr);
    ASSERT_EQ(4u, all.count);
    ASSERT_EQ(4u, all.records.size());
    EXPECT_EQ(L"app", all.records[0].key); // the root's own record is named in lower case
    EXPECT_EQ((Pairs{{L"other", L"O"}, {L"top", L"T"}}), all.records[0].pairs);
    EXPECT_EQ(L"App/A", all.records[1].key);
    EXPECT_EQ((Pairs{{L"inner", L"I"}}), all.records[1].pairs);
    EXPECT_EQ(L"App/A/Empty", all.records[2].key); // a sub-key without values is listed, empty
    EXPECT_EQ(0u, all.records[2].count);
    EXPECT_TRUE(all.records[2].listNull);
    EXPECT_EQ(L"App/B", all.records[3].key);
    EXPECT_EQ((Pairs{{L"b", L"2"}}), all.records[3].pairs);
}

TEST_F(RegistryStorageTest, ReadAllDataLeavesOutARootWithoutValues)
{
    Raw::SetString(HKEY_CURRENT_USER, root.Below(L"Bare\\Child"), L"v", L"1");
    ASSERT_EQ(S_OK, Init());
    const KeyRecordsResult all = ReadAll(Base(), L"Bare");
    EXPECT_EQ(S_OK, all.hr);
    ASSERT_EQ(1u, all.records.size());
    EXPECT_EQ(L"Bare/Child", all.records[0].key);
}

TEST_F(RegistryStorageTest, ReadAllDataOfAMissingRootAnswersSFalseAndLeavesTheList)
{
    ASSERT_EQ(S_OK, Init());
    const KeyRecordsResult all = ReadAll(Base(), L"missing");
    EXPECT_EQ(S_FALSE, all.hr);
    EXPECT_EQ(0u, all.count);
    EXPECT_FALSE(all.listWritten);
}

TEST_F(RegistryStorageTest, ReadAllDataOfTheEmptyKeyReadsTheWholeStorage)
{
    Raw::SetString(HKEY_CURRENT_USER, root.Path(), L"r", L"0");
    Raw::SetString(HKEY_CURRENT_USER, root.Below(L"K"), L"k", L"1");
    ASSERT_EQ(S_OK, Init());
    const KeyRecordsResult all = ReadAll(Base(), nullptr);
    EXPECT_EQ(S_OK, all.hr);
    ASSERT_EQ(2u, all.records.size());
    EXPECT_EQ(L"", all.records[0].key);
    EXPECT_EQ((Pairs{{L"r", L"0"}}), all.records[0].pairs);
    EXPECT_EQ(L"K", all.records[1].key);
}

TEST_F(RegistryStorageTest, ReadAllDataWorksThroughTheStoragesOwnReadDataAndGetSubKeys)
{
    Raw::SetString(HKEY_CURRENT_USER, root.Below(L"Root\\Sub"), L"v", L"1");
    XComPtr<IWQ_SessionDataStorageReg> recorded;
    ASSERT_EQ(S_OK, XComObject<RecordingRegistryStorage>::Create(
                        IID_IWQ_SessionDataStorageReg, reinterpret_cast<void**>(recorded.ReleaseAndGetAddressOf())));
    auto* object = static_cast<RecordingRegistryStorage*>(static_cast<XSessionDataStorageReg*>(recorded.Get()));
    ASSERT_EQ(S_OK, recorded->Initialize(Hive(kCurrentUser), XWQComBSTR(root.Path().c_str()), 0));
    EXPECT_EQ(S_OK, ReadAll(recorded.Get(), L"Root").hr);
    EXPECT_EQ((std::vector<std::wstring>{L"ReadData(root)", L"GetSubKeys(Root,1)", L"ReadData(Root/Sub)"}),
              object->calls);
}

TEST_F(RegistryStorageTest, ReadAllDataChecksItsPointersUnderTheSharedLocationName)
{
    ASSERT_EQ(S_OK, Init());
    ULONG count = 7;
    tagKEY_SESSIONDATAVALUE* records = nullptr;
    EXPECT_EQ(E_POINTER, storage->ReadAllData(nullptr, nullptr, &records));
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataStorageReg, TakeErrorInfo().guid));
    EXPECT_TRUE(LogHas({"XSessionDataStorageEnv::ReadAllData", "xsessiondatastoragereg:", "hr=0x80004003"}));
    EXPECT_EQ(E_POINTER, storage->ReadAllData(nullptr, &count, nullptr));
    EXPECT_EQ(7u, count);
}

class EnvironmentReadAllTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        Raw::RemoveKeyedVariables();
        ClearLogBook();
    }
    static void Set(const wchar_t* name, const wchar_t* value) { ASSERT_TRUE(::SetEnvironmentVariableW(name, value)); }
};

TEST_F(EnvironmentReadAllTest, ARootWithValuesButNoSubKeysIsHandedOutAlthoughTheAnswerIsSFalse)
{
    // No variable has "/" in its name: the empty key has values but no sub-keys.
    Set(L"WQSDMFLAT", L"1");
    const XComPtr<IWQ_SessionDataStorage> storage = NewStorage<XSessionDataStorageEnv>();
    const KeyRecordsResult all = ReadAll(storage.Get(), L"");
    EXPECT_EQ(S_FALSE, all.hr);
    ASSERT_TRUE(all.listWritten);
    ASSERT_EQ(1u, all.count);
    EXPECT_EQ(L"", all.records[0].key);
    bool flat = false;
    for (const auto& pair : all.records[0].pairs)
        flat = flat || (pair.first == L"WQSDMFLAT" && pair.second == L"1");
    EXPECT_TRUE(flat);
}

TEST_F(EnvironmentReadAllTest, AMissingRootAnswersSFalseAndLeavesTheList)
{
    const XComPtr<IWQ_SessionDataStorage> storage = NewStorage<XSessionDataStorageEnv>();
    const KeyRecordsResult all = ReadAll(storage.Get(), L"no/such/root");
    EXPECT_EQ(S_FALSE, all.hr);
    EXPECT_EQ(0u, all.count);
    EXPECT_FALSE(all.listWritten);
}

TEST_F(EnvironmentReadAllTest, ReadAllDataOfAKeyListsItsValuesAndTheParentPathsBelowIt)
{
    Set(L"RA/X", L"1");
    Set(L"RA/S/Y", L"2");
    Set(L"RA/S/T/Z", L"3");
    const XComPtr<IWQ_SessionDataStorage> storage = NewStorage<XSessionDataStorageEnv>();
    const KeyRecordsResult all = ReadAll(storage.Get(), L"Ra");
    EXPECT_EQ(S_OK, all.hr);
    // RA is the parent path of RA/X and so also one of the sub-keys the storage lists: it is
    // not read a second time.
    ASSERT_EQ(3u, all.records.size());
    EXPECT_EQ(L"ra", all.records[0].key);
    EXPECT_EQ((Pairs{{L"X", L"1"}}), all.records[0].pairs);
    EXPECT_EQ(L"RA/S", all.records[1].key);
    EXPECT_EQ((Pairs{{L"Y", L"2"}}), all.records[1].pairs);
    EXPECT_EQ(L"RA/S/T", all.records[2].key);
    EXPECT_EQ((Pairs{{L"Z", L"3"}}), all.records[2].pairs);
}

TEST_F(EnvironmentReadAllTest, ReadAllDataChecksItsPointersUnderTheSharedLocationName)
{
    const XComPtr<IWQ_SessionDataStorage> storage = NewStorage<XSessionDataStorageEnv>();
    tagKEY_SESSIONDATAVALUE* records = nullptr;
    EXPECT_EQ(E_POINTER, storage->ReadAllData(nullptr, nullptr, &records));
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataStorageEnv, TakeErrorInfo().guid));
    EXPECT_TRUE(LogHas({"XSessionDataStorageEnv::ReadAllData", "xsessiondatastorageenv:", "hr=0x80004003"}));
}
