// XSessionDataStorageReg: binding to a hive and a root key, and the data calls checked against
// the plain registry API.
#include "registrystoragetest.h"

namespace
{
// A registry storage whose recursive sub-key walk is counted.
class CountingRegistryStorage : public XSessionDataStorageReg
{
public:
    using XSessionDataStorageReg::GetSubKeys;
    HRESULT GetSubKeys(const XWQComBSTR& key, ULONG recursive, XStorageKeyNames& names) override
    {
        visited.push_back(key.ToWString());
        return XSessionDataStorageReg::GetSubKeys(key, recursive, names);
    }
    std::vector<std::wstring> visited;
};
} // namespace

// --- Initialize ---------------------------------------------------------------------------

TEST_F(RegistryStorageTest, InitializeWithThePublishedLocalMachineValueFailsWithEFail)
{
    EXPECT_EQ(E_FAIL, storage->Initialize(static_cast<SESSIONDATAREGKEY>(0x8C000000), XWQComBSTR(L"Software"), 0));
    EXPECT_EQ(kNotInitialized, ReadPairs(Base(), L"").hr);
}

TEST_F(RegistryStorageTest, InitializeWithZeroOpensBelowLocalMachine)
{
    ASSERT_EQ(S_OK, storage->Initialize(Hive(kLocalMachine), XWQComBSTR(L"Software"), 0));
    const NamesResult names = ReadSubKeys(Base(), L"", 0);
    EXPECT_EQ(S_OK, names.hr);
    EXPECT_FALSE(names.names.empty());
    EXPECT_EQ(Raw::SubKeyNames(HKEY_LOCAL_MACHINE, L"Software"), names.names);
}

TEST_F(RegistryStorageTest, InitializeWithThePublishedCurrentUserValueFailsAndCreatesNothing)
{
    EXPECT_EQ(E_FAIL,
              storage->Initialize(static_cast<SESSIONDATAREGKEY>(0x8C000001), XWQComBSTR(root.Path().c_str()), 0));
    EXPECT_FALSE(Raw::KeyExists(HKEY_CURRENT_USER, root.Path()));
    EXPECT_TRUE(ReadLogBook().empty());
}

TEST_F(RegistryStorageTest, InitializeWithOneOpensBelowTheCurrentUser)
{
    ASSERT_EQ(S_OK, Init());
    EXPECT_TRUE(Raw::KeyExists(HKEY_CURRENT_USER, root.Path()));
    ASSERT_EQ(S_OK, StorePairs(Base(), L"", {{L"where", L"hkcu"}}));
    EXPECT_EQ(L"hkcu", Raw::StringValue(HKEY_CURRENT_USER, root.Path(), L"where"));
}

TEST_F(RegistryStorageTest, HiveNumbersTwoToFourSelectClassesRootUsersAndCurrentConfig)
{
    const struct
    {
        LONG number;
        HKEY hive;
        const wchar_t* key;
    } hives[] = {{2, HKEY_CLASSES_ROOT, L"CLSID"}, {3, HKEY_USERS, L".DEFAULT"}, {4, HKEY_CURRENT_CONFIG, L"Software"}};
    for (const auto& h : hives)
    {
        SCOPED_TRACE(h.number);
        ASSERT_EQ(S_OK, storage->Initialize(Hive(h.number), XWQComBSTR(h.key), 0));
        const NamesResult names = ReadSubKeys(Base(), L"", 0);
        EXPECT_EQ(S_OK, names.hr);
        EXPECT_FALSE(names.names.empty());
        EXPECT_EQ(Raw::SubKeyNames(h.hive, h.key), names.names);
    }
}

TEST_F(RegistryStorageTest, InitializeWithAnyOtherHiveNumberFailsWithoutMessage)
{
    for (LONG number : {-1L, 5L, static_cast<LONG>(0x8C000004)})
    {
        EXPECT_EQ(E_FAIL, storage->Initialize(Hive(number), XWQComBSTR(root.Path().c_str()), 0));
    }
    EXPECT_FALSE(Raw::KeyExists(HKEY_CURRENT_USER, root.Path()));
    EXPECT_TRUE(ReadLogBook().empty());
}

TEST_F(RegistryStorageTest, InitializeWithEmptyOrNullRootKeyFailsWithoutMessage)
{
    EXPECT_EQ(E_FAIL, storage->Initialize(Hive(kCurrentUser), nullptr, 0));
    EXPECT_EQ(E_FAIL, storage->Initialize(Hive(kCurrentUser), XWQComBSTR(L""), 0));
    EXPECT_TRUE(ReadLogBook().empty());
    EXPECT_EQ(kNotInitialized, ReadPairs(Base(), L"").hr);
}

TEST_F(RegistryStorageTest, InitializeCreatesAMissingRootKey)
{
    ASSERT_FALSE(Raw::KeyExists(HKEY_CURRENT_USER, root.Path()));
    ASSERT_EQ(S_OK, Init());
    EXPECT_TRUE(Raw::KeyExists(HKEY_CURRENT_USER, root.Path()));
    EXPECT_FALSE(Raw::IsVolatile(HKEY_CURRENT_USER, root.Path()));
}

TEST_F(RegistryStorageTest, InitializeOpensAnExistingRootKeyWithWriteAccess)
{
    Raw::SetString(HKEY_CURRENT_USER, root.Path(), L"old", L"1");
    ASSERT_EQ(S_OK, Init());
    EXPECT_EQ(S_OK, StorePairs(Base(), L"", {{L"new", L"2"}}));
    EXPECT_EQ(L"1", Raw::StringValue(HKEY_CURRENT_USER, root.Path(), L"old"));
    EXPECT_EQ(L"2", Raw::StringValue(HKEY_CURRENT_USER, root.Path(), L"new"));
}

TEST_F(RegistryStorageTest, InitializeFallsBackToReadAccessAndWritesThenFailWithSetValueFailed)
{
    Raw::SetString(HKEY_CURRENT_USER, root.Path(), L"old", L"1");
    RestrictedKeyAccess readOnly(HKEY_CURRENT_USER, root.Path(), RestrictedKeyAccess::Grant::ReadOnly);
    ASSERT_EQ(S_OK, Init());
    const PairsResult read = ReadPairs(Base(), L"");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ((Pairs{{L"old", L"1"}}), read.pairs);

    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), StorePairs(Base(), L"", {{L"new", L"2"}}));
    // Logged at the method's location, with the step that failed before the system's text.
    EXPECT_TRUE(LogHas({"\tXSessionDataStorageReg::StoreData\txsessiondatastoragereg:",
                        "XSessionDataStorageReg::StoreData -> Set value failed: system error 5"}));
    EXPECT_EQ(std::nullopt, Raw::StringValue(HKEY_CURRENT_USER, root.Path(), L"new"));
}

TEST_F(RegistryStorageTest, InitializeFailingAllThreeWaysReportsTheCreationError)
{
    Raw::CreateKey(HKEY_CURRENT_USER, root.Path());
    {
        RestrictedKeyAccess noAccess(HKEY_CURRENT_USER, root.Path(), RestrictedKeyAccess::Grant::Nothing);
        SetMarkerErrorInfo(L"marker");
        EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), Init());
    }
    // The log book keeps each entry on one line: the message's line breaks and tabs read as blanks.
    EXPECT_TRUE(LogHas({"XSessionDataStorageReg::Initialize ->    1) Failed to open registry key with write access   "
                        "2) Failed to open registry key with read access   3) Failed to create registry key",
                        "hr=0x80070005"}));
    const ErrorInfoText info = TakeErrorInfo();
    EXPECT_TRUE(info.present);
    EXPECT_EQ(L"WQSessionDataMng", info.source);
    EXPECT_EQ(kNotInitialized, ReadPairs(Base(), L"").hr);
}

TEST_F(RegistryStorageTest, RepeatedInitializeBindsTheNewRootKey)
{
    TestRegistryRoot second(L"-second");
    const std::wstring other = second.Path();
    ASSERT_EQ(S_OK, Init());
    ASSERT_EQ(S_OK, storage->Initialize(Hive(kCurrentUser), XWQComBSTR(other.c_str()), 0));
    EXPECT_EQ(S_OK, StorePairs(Base(), L"k", {{L"v", L"1"}}));
    EXPECT_EQ(L"1", Raw::StringValue(HKEY_CURRENT_USER, other + L"\\k", L"v"));
    EXPECT_FALSE(Raw::KeyExists(HKEY_CURRENT_USER, root.Below(L"k")));
}

TEST_F(RegistryStorageTest, FailedRepeatedInitializeLeavesTheStorageUninitialized)
{
    ASSERT_EQ(S_OK, Init());
    EXPECT_EQ(E_FAIL, storage->Initialize(Hive(7), XWQComBSTR(root.Path().c_str()), 0));
    EXPECT_EQ(kNotInitialized, ReadPairs(Base(), L"").hr);
}

// --- Uninitialised storage ----------------------------------------------------------------

TEST_F(RegistryStorageTest, EveryDataCallOnAnUninitializedStorageAnswers8004080D)
{
    const struct
    {
        const char* function;
        HRESULT hr;
    } calls[] = {
        {"XSessionDataStorageReg::StoreData", StorePairs(Base(), L"k", {{L"v", L"1"}})},
        {"XSessionDataStorageReg::ReadData", ReadPairs(Base(), L"k").hr},
        {"XSessionDataStorageReg::GetSubKeys", ReadSubKeys(Base(), L"k", 1).hr},
        {"XSessionDataStorageReg::ReadAllData", ReadAll(Base(), L"k").hr},
    };
    for (const auto& call : calls)
    {
        SCOPED_TRACE(call.function);
        EXPECT_EQ(kNotInitialized, call.hr);
        EXPECT_TRUE(LogHas({call.function, "hr=0x8004080D", "The Initialization has failed."}));
    }
    SetMarkerErrorInfo(L"marker");
    EXPECT_EQ(kNotInitialized, ReadSubKeys(Base(), L"", 0).hr);
    const ErrorInfoText info = TakeErrorInfo();
    EXPECT_EQ(L"The Initialization has failed.", info.description);
    EXPECT_EQ(L"WQSessionDataMng", info.source);
}

TEST_F(RegistryStorageTest, UninitializedCallsWriteNoOutValues)
{
    const PairsResult read = ReadPairs(Base(), L"k");
    EXPECT_FALSE(read.listWritten);
    const NamesResult names = ReadSubKeys(Base(), L"k", 0);
    EXPECT_FALSE(names.listWritten);
    const KeyRecordsResult all = ReadAll(Base(), L"k");
    EXPECT_FALSE(all.listWritten);
}

TEST_F(RegistryStorageTest, AsyncCallsAnswerSOkWithoutWritingTheResult)
{
    EXPECT_EQ(S_OK, storage->FlushAsyncStorage());
    HRESULT async = E_ABORT;
    EXPECT_EQ(S_OK, storage->GetLastErrorAsyncExecution(&async));
    EXPECT_EQ(E_ABORT, async);
    ASSERT_EQ(S_OK, Init());
    EXPECT_EQ(S_OK, storage->FlushAsyncStorage());
    EXPECT_EQ(S_OK, storage->GetLastErrorAsyncExecution(&async));
    EXPECT_EQ(E_ABORT, async);
}

TEST_F(RegistryStorageTest, InternalOperationsOnAnUninitializedStorageReportTheirOwnTexts)
{
    auto* object = static_cast<XSessionDataStorageReg*>(storage.Get());

    XStoragePairs pairs;
    pairs[XWQComBSTR(L"v")] = XWQComBSTR(L"1");
    EXPECT_EQ(kNotInitialized, object->StoreData(XWQComBSTR(L"k"), pairs));
    ErrorInfoText info = TakeErrorInfo();
    EXPECT_EQ(L"The Initialization has failed", info.description);
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataStorageReg, info.guid));
    EXPECT_TRUE(LogHas({"XSessionDataStorageReg::StoreData", "xsessiondatastoragereg:"}));

    XStoragePairs read;
    EXPECT_EQ(kNotInitialized, object->ReadData(XWQComBSTR(L"k"), read));
    EXPECT_EQ(L"The Initialization has failed", TakeErrorInfo().description);

    XStorageKeyNames names;
    EXPECT_EQ(kNotInitialized, object->GetSubKeys(XWQComBSTR(L"k"), 0, names));
    EXPECT_EQ(L"The Initialization has failed.", TakeErrorInfo().description);
}

// --- Data ---------------------------------------------------------------------------------

TEST_F(RegistryStorageTest, StoreDataWritesRegSzValuesWithTheirTerminatingZero)
{
    ASSERT_EQ(S_OK, Init());
    ASSERT_EQ(S_OK, StorePairs(Base(), L"App/Settings", {{L"Theme", L"dark"}, {L"Size", L"12"}}));
    DWORD type = 0;
    EXPECT_EQ(L"dark", Raw::StringValue(HKEY_CURRENT_USER, root.Below(L"App\\Settings"), L"Theme", &type));
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), type);
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS,
              ::RegOpenKeyExW(HKEY_CURRENT_USER, root.Below(L"App\\Settings").c_str(), 0, KEY_READ, &key));
    DWORD bytes = 0;
    EXPECT_EQ(ERROR_SUCCESS, ::RegQueryValueExW(key, L"Theme", nullptr, nullptr, nullptr, &bytes));
    EXPECT_EQ(2u * 4u + 2u, bytes);
    ::RegCloseKey(key);
    EXPECT_EQ(L"12", Raw::StringValue(HKEY_CURRENT_USER, root.Below(L"App\\Settings"), L"Size"));
}

TEST_F(RegistryStorageTest, StoreDataLeavesValuesThatAreNotInTheList)
{
    Raw::SetString(HKEY_CURRENT_USER, root.Below(L"k"), L"other", L"kept");
    ASSERT_EQ(S_OK, Init());
    ASSERT_EQ(S_OK, StorePairs(Base(), L"k", {{L"mine", L"1"}}));
    EXPECT_EQ(L"kept", Raw::StringValue(HKEY_CURRENT_USER, root.Below(L"k"), L"other"));
    EXPECT_EQ(L"1", Raw::StringValue(HKEY_CURRENT_USER, root.Below(L"k"), L"mine"));
}

TEST_F(RegistryStorageTest, StoreDataOfTwoEqualNamesKeepsTheLaterOne)
{
    ASSERT_EQ(S_OK, Init());
    ASSERT_EQ(S_OK, StorePairs(Base(), L"k", {{L"b", L"first"}, {L"a", L"x"}, {L"b", L"second"}}));
    EXPECT_EQ(L"second", Raw::StringValue(HKEY_CURRENT_USER, root.Below(L"k"), L"b"));
    EXPECT_EQ(L"x", Raw::StringValue(HKEY_CURRENT_USER, root.Below(L"k"), L"a"));
}

TEST_F(RegistryStorageTest, StoreDataWithoutPairsAnswersSFalseAndCreatesNoKey)
{
    ASSERT_EQ(S_OK, Init());
    EXPECT_EQ(S_FALSE, StorePairs(Base(), L"new", {}));
    EXPECT_FALSE(Raw::KeyExists(HKEY_CURRENT_USER, root.Below(L"new")));
}

TEST_F(RegistryStorageTest, NullAndEmptyKeysMeanTheRootKey)
{
    ASSERT_EQ(S_OK, Init());
    ASSERT_EQ(S_OK, StorePairs(Base(), nullptr, {{L"n", L"null key"}}));
    ASSERT_EQ(S_OK, StorePairs(Base(), L"", {{L"e", L"empty key"}}));
    EXPECT_EQ(L"null key", Raw::StringValue(HKEY_CURRENT_USER, root.Path(), L"n"));
    EXPECT_EQ(L"empty key", Raw::StringValue(HKEY_CURRENT_USER, root.Path(), L"e"));
    EXPECT_TRUE(Raw::SubKeyNames(HKEY_CURRENT_USER, root.Path()).empty());
    const Pairs expected{{L"e", L"empty key"}, {L"n", L"null key"}};
    EXPECT_EQ(expected, ReadPairs(Base(), nullptr).pairs);
    EXPECT_EQ(expected, ReadPairs(Base(), L"").pairs);
}

TEST_F(RegistryStorageTest, ReadDataReturnsThePairsSortedOrdinallyByName)
{
    Raw::SetString(HKEY_CURRENT_USER, root.Below(L"k"), L"zeta", L"3");
    Raw::SetString(HKEY_CURRENT_USER, root.Below(L"k"), L"b", L"2");
    Raw::SetString(HKEY_CURRENT_USER, root.Below(L"k"), L"C", L"1");
    ASSERT_EQ(S_OK, Init());
    const PairsResult read = ReadPairs(Base(), L"k");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ(3u, read.count);
    EXPECT_EQ((Pairs{{L"C", L"1"}, {L"b", L"2"}, {L"zeta", L"3"}}), read.pairs);
}

TEST_F(RegistryStorageTest, ReadDataOfAMissingKeyAnswersSFalseWithoutMessage)
{
    ASSERT_EQ(S_OK, Init());
    SetMarkerErrorInfo(L"marker");
    const PairsResult read = ReadPairs(Base(), L"missing/key");
    EXPECT_EQ(S_FALSE, read.hr);
    EXPECT_EQ(0u, read.count);
    EXPECT_TRUE(read.listNull);
    EXPECT_EQ(L"marker", TakeErrorInfo().description);
    EXPECT_TRUE(ReadLogBook().empty());
}

TEST_F(RegistryStorageTest, ReadDataOfAKeyWithoutValuesAnswersSFalse)
{
    Raw::CreateKey(HKEY_CURRENT_USER, root.Below(L"empty"));
    ASSERT_EQ(S_OK, Init());
    const PairsResult read = ReadPairs(Base(), L"empty");
    EXPECT_EQ(S_FALSE, read.hr);
    EXPECT_EQ(0u, read.count);
    EXPECT_TRUE(read.listNull);
}

TEST_F(RegistryStorageTest, GetSubKeysOfAnExistingKeyWithoutSubKeysAnswersSOkAndCountZero)
{
    Raw::SetString(HKEY_CURRENT_USER, root.Below(L"leaf"), L"v", L"1");
    ASSERT_EQ(S_OK, Init());
    const NamesResult names = ReadSubKeys(Base(), L"leaf", 1);
    EXPECT_EQ(S_OK, names.hr);
    EXPECT_EQ(0u, names.count);
    EXPECT_TRUE(names.listNull);
}

TEST_F(RegistryStorageTest, GetSubKeysOfAMissingKeyAnswersSFalseWithoutMessage)
{
    ASSERT_EQ(S_OK, Init());
    SetMarkerErrorInfo(L"marker");
    const NamesResult names = ReadSubKeys(Base(), L"missing", 1);
    EXPECT_EQ(S_FALSE, names.hr);
    EXPECT_EQ(0u, names.count);
    EXPECT_TRUE(names.listNull);
    EXPECT_EQ(L"marker", TakeErrorInfo().description);
    EXPECT_TRUE(ReadLogBook().empty());
}

TEST_F(RegistryStorageTest, SlashAndBackslashAddressTheSameKeyAndNamesComeBackWithSlashes)
{
    ASSERT_EQ(S_OK, Init());
    ASSERT_EQ(S_OK, StorePairs(Base(), L"a/b", {{L"x", L"1"}}));
    ASSERT_EQ(S_OK, StorePairs(Base(), L"a\\b", {{L"y", L"2"}}));
    EXPECT_EQ(L"1", Raw::StringValue(HKEY_CURRENT_USER, root.Below(L"a\\b"), L"x"));
    EXPECT_EQ(L"2", Raw::StringValue(HKEY_CURRENT_USER, root.Below(L"a\\b"), L"y"));
    EXPECT_EQ(std::vector<std::wstring>{L"b"}, Raw::SubKeyNames(HKEY_CURRENT_USER, root.Below(L"a")));
    const Pairs both{{L"x", L"1"}, {L"y", L"2"}};
    EXPECT_EQ(both, ReadPairs(Base(), L"a/b").pairs);
    EXPECT_EQ(both, ReadPairs(Base(), L"a\\b").pairs);

    ASSERT_EQ(S_OK, StorePairs(Base(), L"a\\b\\c", {{L"z", L"3"}}));
    const std::vector<std::wstring> expected{L"a/b/c"};
    EXPECT_EQ(expected, ReadSubKeys(Base(), L"a\\b", 0).names);
    EXPECT_EQ(expected, ReadSubKeys(Base(), L"a/b/", 0).names);
    EXPECT_EQ(expected, ReadSubKeys(Base(), L"a\\b\\", 0).names);
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"a/b", L"a/b/c"}), ReadSubKeys(Base(), L"", 1).names);
}

TEST_F(RegistryStorageTest, ARegDwordValueIsReturnedAsTheCharactersItsBytesForm)
{
    Raw::SetDword(HKEY_CURRENT_USER, root.Below(L"k"), L"number", 0x00420041); // bytes 41 00 42 00: "AB"
    ASSERT_EQ(S_OK, Init());
    const PairsResult read = ReadPairs(Base(), L"k");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ((Pairs{{L"number", L"AB"}}), read.pairs);
}

TEST_F(RegistryStorageTest, ValuesOfOtherTypesAreReadAsText)
{
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, ::RegCreateKeyExW(HKEY_CURRENT_USER, root.Below(L"k").c_str(), 0, nullptr, 0,
                                               KEY_ALL_ACCESS, nullptr, &key, nullptr));
    const wchar_t multi[] = L"one\0two\0";
    ::RegSetValueExW(key, L"multi", 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(multi), sizeof multi);
    const wchar_t expand[] = L"%TEMP%\\x";
    ::RegSetValueExW(key, L"expand", 0, REG_EXPAND_SZ, reinterpret_cast<const BYTE*>(expand), sizeof expand);
    const BYTE odd[] = {'h', 0, 'i', 0, '!'}; // no terminating zero, odd length
    ::RegSetValueExW(key, L"binary", 0, REG_BINARY, odd, sizeof odd);
    ::RegSetValueExW(key, L"none", 0, REG_BINARY, nullptr, 0);
    ::RegCloseKey(key);
    ASSERT_EQ(S_OK, Init());
    const PairsResult read = ReadPairs(Base(), L"k");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ((Pairs{{L"binary", L"hi!"}, {L"expand", L"%TEMP%\\x"}, {L"multi", L"one"}, {L"none", L""}}), read.pairs);
}

TEST_F(RegistryStorageTest, RecursiveSubKeysComeInDepthFirstPreOrder)
{
    for (const wchar_t* key : {L"a\\b\\c", L"a\\d", L"e"})
        Raw::CreateKey(HKEY_CURRENT_USER, root.Below(key));
    ASSERT_EQ(S_OK, Init());
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"a/b", L"a/b/c", L"a/d", L"e"}), ReadSubKeys(Base(), L"", 1).names);
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"e"}), ReadSubKeys(Base(), L"", 0).names);
    // Only 1 asks for the walk.
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"e"}), ReadSubKeys(Base(), L"", 2).names);
    EXPECT_EQ((std::vector<std::wstring>{L"a/b", L"a/b/c", L"a/d"}), ReadSubKeys(Base(), L"a", 1).names);
}

TEST_F(RegistryStorageTest, TheRecursiveWalkCallsGetSubKeysThroughItsSlot)
{
    for (const wchar_t* key : {L"a\\b", L"c"})
        Raw::CreateKey(HKEY_CURRENT_USER, root.Below(key));
    XComPtr<IWQ_SessionDataStorageReg> counted;
    ASSERT_EQ(S_OK, XComObject<CountingRegistryStorage>::Create(
                        IID_IWQ_SessionDataStorageReg, reinterpret_cast<void**>(counted.ReleaseAndGetAddressOf())));
    auto* object = static_cast<CountingRegistryStorage*>(static_cast<XSessionDataStorageReg*>(counted.Get()));
    ASSERT_EQ(S_OK, counted->Initialize(Hive(kCurrentUser), XWQComBSTR(root.Path().c_str()), 0));
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"a/b", L"c"}), ReadSubKeys(counted.Get(), L"", 1).names);
    EXPECT_EQ((std::vector<std::wstring>{L"", L"a", L"a/b", L"c"}), object->visited);
}

TEST_F(RegistryStorageTest, KeysKeepTheirCaseAsTheRegistryDoes)
{
    ASSERT_EQ(S_OK, Init());
    ASSERT_EQ(S_OK, StorePairs(Base(), L"MixedCase/Key", {{L"Name", L"v"}}));
    EXPECT_EQ(std::vector<std::wstring>{L"MixedCase"}, Raw::SubKeyNames(HKEY_CURRENT_USER, root.Path()));
    EXPECT_EQ((Pairs{{L"Name", L"v"}}), ReadPairs(Base(), L"mixedcase/KEY").pairs);
    EXPECT_EQ(std::vector<std::wstring>{L"mixedcase/Key"}, ReadSubKeys(Base(), L"mixedcase", 0).names);
}

TEST_F(RegistryStorageTest, ReadFailuresOtherThanAMissingKeyAreReported)
{
    Raw::SetString(HKEY_CURRENT_USER, root.Below(L"closed"), L"v", L"1");
    Raw::CreateKey(HKEY_CURRENT_USER, root.Below(L"closed\\sub"));
    ASSERT_EQ(S_OK, Init());
    RestrictedKeyAccess noAccess(HKEY_CURRENT_USER, root.Below(L"closed"), RestrictedKeyAccess::Grant::Nothing);

    const PairsResult read = ReadPairs(Base(), L"closed");
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), read.hr);
    EXPECT_EQ(0u, read.count);
    EXPECT_TRUE(LogHas({"XSessionDataStorageReg::ReadData -> Open registry key with read only access failed"}));

    const NamesResult names = ReadSubKeys(Base(), L"closed", 1);
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), names.hr);
    EXPECT_EQ(0u, names.count);
    EXPECT_TRUE(LogHas({"XSessionDataStorageReg::GetSubKeys -> Open registry key with read only access failed"}));

    // The walk ends at the key it cannot open and answers its failure.
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), ReadSubKeys(Base(), L"", 1).hr);
}

TEST_F(RegistryStorageTest, NullOutPointersAreAnsweredWithEPointer)
{
    ASSERT_EQ(S_OK, Init());
    tagSESSIONDATAVALUE* list = nullptr;
    ULONG count = 0;
    EXPECT_EQ(E_POINTER, storage->ReadData(nullptr, nullptr, &list));
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataStorageReg, TakeErrorInfo().guid));
    EXPECT_EQ(E_POINTER, storage->ReadData(nullptr, &count, nullptr));
    BSTR* names = nullptr;
    EXPECT_EQ(E_POINTER, storage->GetSubKeys(nullptr, 0, nullptr, &names));
    EXPECT_EQ(E_POINTER, storage->GetSubKeys(nullptr, 0, &count, nullptr));
    EXPECT_EQ(E_POINTER, storage->StoreData(XWQComBSTR(L"k"), 2, nullptr));
    EXPECT_FALSE(Raw::KeyExists(HKEY_CURRENT_USER, root.Below(L"k")));
    EXPECT_EQ(S_FALSE, storage->StoreData(XWQComBSTR(L"k"), 0, nullptr));
}

TEST_F(RegistryStorageTest, AnswersItsOwnInterfacesAndSupportsErrorInfo)
{
    XComPtr<IWQ_SessionDataStorage> plain;
    EXPECT_EQ(S_OK, storage.As(plain));
    XComPtr<ISupportErrorInfo> support;
    ASSERT_EQ(S_OK, storage.As(support));
    EXPECT_EQ(S_OK, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataStorageReg));
    EXPECT_EQ(S_OK, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataStorage));
    EXPECT_EQ(S_FALSE, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataStorageEnv));
    XComPtr<IWQ_SessionDataStorageEnv> env;
    EXPECT_EQ(E_NOINTERFACE, storage.As(env));
    XComPtr<IWQ_SessionDataStorageEx> ex;
    EXPECT_EQ(E_NOINTERFACE, storage.As(ex));
    EXPECT_TRUE(::IsEqualCLSID(CLSID_WQ_SessionDataStorageReg, XSessionDataStorageReg::ObjectClsid()));
}
