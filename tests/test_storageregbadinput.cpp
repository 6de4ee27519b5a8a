// Requests the registry cannot hold are refused with a clear result before anything is written;
// names of any characters and large values go through; nothing lands outside the root key.
#include "registrystoragetest.h"

namespace
{
std::wstring Repeat(wchar_t c, size_t count)
{
    return std::wstring(count, c);
}

// "d0/d1/.../d<levels-1>" with the given separator.
std::wstring DeepKey(int levels, const wchar_t* separator)
{
    std::wstring key;
    for (int i = 0; i < levels; ++i)
    {
        if (i)
            key += separator;
        key += L"d" + std::to_wstring(i);
    }
    return key;
}
} // namespace

TEST_F(RegistryStorageTest, AKeyNameLongerThan255CharactersIsRefusedAndNothingIsWritten)
{
    ASSERT_EQ(S_OK, Init());
    SetMarkerErrorInfo(L"marker");
    EXPECT_EQ(E_INVALIDARG, StorePairs(Base(), (L"ok/" + Repeat(L'k', 256)).c_str(), {{L"v", L"1"}}));
    const ErrorInfoText info = TakeErrorInfo();
    EXPECT_EQ(L"XSessionDataStorageReg::StoreData -> Key name longer than 255 characters", info.description);
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataStorageReg, info.guid));
    EXPECT_TRUE(Raw::SubKeyNames(HKEY_CURRENT_USER, root.Path()).empty());
}

TEST_F(RegistryStorageTest, AKeyNameOf255CharactersIsStored)
{
    ASSERT_EQ(S_OK, Init());
    const std::wstring name = Repeat(L'k', 255);
    ASSERT_EQ(S_OK, StorePairs(Base(), name.c_str(), {{L"v", L"1"}}));
    EXPECT_EQ(L"1", Raw::StringValue(HKEY_CURRENT_USER, root.Below(name), L"v"));
    EXPECT_EQ(std::vector<std::wstring>{name}, ReadSubKeys(Base(), L"", 1).names);
}

TEST_F(RegistryStorageTest, AValueNameLongerThan16383CharactersIsRefusedAndNothingIsWritten)
{
    ASSERT_EQ(S_OK, Init());
    EXPECT_EQ(E_INVALIDARG, StorePairs(Base(), L"k", {{L"a", L"first"}, {Repeat(L'v', 16384), L"long"}}));
    EXPECT_EQ(L"XSessionDataStorageReg::StoreData -> Value name longer than 16383 characters",
              TakeErrorInfo().description);
    EXPECT_FALSE(Raw::KeyExists(HKEY_CURRENT_USER, root.Below(L"k")));
    EXPECT_EQ(E_INVALIDARG, StorePairs(Base(), L"", {{L"a", L"first"}, {Repeat(L'v', 16384), L"long"}}));
    EXPECT_TRUE(Raw::ValueNames(HKEY_CURRENT_USER, root.Path()).empty());
}

TEST_F(RegistryStorageTest, AValueNameOf16383CharactersIsStoredAndReadBack)
{
    ASSERT_EQ(S_OK, Init());
    const std::wstring name = Repeat(L'v', 16383);
    ASSERT_EQ(S_OK, StorePairs(Base(), L"k", {{name, L"long name"}}));
    EXPECT_EQ(L"long name", Raw::StringValue(HKEY_CURRENT_USER, root.Below(L"k"), name));
    EXPECT_EQ((Pairs{{name, L"long name"}}), ReadPairs(Base(), L"k").pairs);
}

TEST_F(RegistryStorageTest, AValueOfAMegabyteIsStoredAndReadBack)
{
    ASSERT_EQ(S_OK, Init());
    std::wstring big(1024 * 1024, L'x');
    for (size_t i = 0; i < big.size(); i += 1000)
        big[i] = static_cast<wchar_t>(L'a' + (i / 1000) % 26);
    ASSERT_EQ(S_OK, StorePairs(Base(), L"big", {{L"value", big}}));
    EXPECT_EQ(big, Raw::StringValue(HKEY_CURRENT_USER, root.Below(L"big"), L"value"));
    const PairsResult read = ReadPairs(Base(), L"big");
    ASSERT_EQ(S_OK, read.hr);
    ASSERT_EQ(1u, read.pairs.size());
    EXPECT_TRUE(read.pairs[0].second == big);
}

TEST_F(RegistryStorageTest, AKeyOf32LevelsIsStoredListedAndRead)
{
    ASSERT_EQ(S_OK, Init());
    const std::wstring key = DeepKey(32, L"/");
    ASSERT_EQ(S_OK, StorePairs(Base(), key.c_str(), {{L"v", L"deep"}}));
    EXPECT_EQ(L"deep", Raw::StringValue(HKEY_CURRENT_USER, root.Below(DeepKey(32, L"\\")), L"v"));
    EXPECT_EQ((Pairs{{L"v", L"deep"}}), ReadPairs(Base(), DeepKey(32, L"\\").c_str()).pairs);
    const NamesResult names = ReadSubKeys(Base(), L"", 1);
    ASSERT_EQ(32u, names.names.size());
    EXPECT_EQ(L"d0", names.names.front());
    EXPECT_EQ(key, names.names.back());
}

TEST_F(RegistryStorageTest, AKeyDeeperThanOneRegistryCallCreatesIsStoredListedAndRead)
{
    ASSERT_EQ(S_OK, Init());
    const std::wstring key = DeepKey(300, L"/");
    ASSERT_EQ(S_OK, StorePairs(Base(), key.c_str(), {{L"v", L"deeper"}}));
    EXPECT_EQ(L"deeper", Raw::StringValue(HKEY_CURRENT_USER, root.Below(DeepKey(300, L"\\")), L"v"));
    EXPECT_EQ((Pairs{{L"v", L"deeper"}}), ReadPairs(Base(), key.c_str()).pairs);
    const NamesResult names = ReadSubKeys(Base(), L"", 1);
    ASSERT_EQ(300u, names.names.size());
    EXPECT_EQ(key, names.names.back());
}

TEST_F(RegistryStorageTest, AKeyThatWouldMakeTheTreeDeeperThan512LevelsIsRefusedAndNothingIsCreated)
{
    ASSERT_EQ(S_OK, Init());
    // The root key of the test is two levels below the hive (Software\<name>).
    EXPECT_EQ(S_OK, StorePairs(Base(), DeepKey(510, L"/").c_str(), {{L"v", L"1"}}));
    Raw::DeleteTree(HKEY_CURRENT_USER, root.Below(L"d0"));
    EXPECT_EQ(E_INVALIDARG, StorePairs(Base(), DeepKey(511, L"/").c_str(), {{L"v", L"1"}}));
    EXPECT_EQ(L"XSessionDataStorageReg::StoreData -> Key path deeper than 512 levels", TakeErrorInfo().description);
    EXPECT_TRUE(Raw::SubKeyNames(HKEY_CURRENT_USER, root.Path()).empty());
}

TEST_F(RegistryStorageTest, EmptyNamesBetweenSeparatorsDoNotCountAsLevels)
{
    ASSERT_EQ(S_OK, Init());
    ASSERT_EQ(S_OK, StorePairs(Base(), L"a//b", {{L"v", L"1"}}));
    EXPECT_EQ(L"1", Raw::StringValue(HKEY_CURRENT_USER, root.Below(L"a\\b"), L"v"));
}

TEST_F(RegistryStorageTest, RootKeysPastTheRegistryLimitsAreRefusedByInitialize)
{
    EXPECT_EQ(E_INVALIDARG, storage->Initialize(Hive(kCurrentUser),
                                                XWQComBSTR((root.Path() + L"\\" + Repeat(L'r', 256)).c_str()), 0));
    EXPECT_EQ(L"XSessionDataStorageReg::Initialize -> Key name longer than 255 characters",
              TakeErrorInfo().description);
    EXPECT_EQ(E_INVALIDARG, storage->Initialize(Hive(kCurrentUser),
                                                XWQComBSTR((root.Path() + L"\\" + DeepKey(511, L"\\")).c_str()), 0));
    EXPECT_EQ(L"XSessionDataStorageReg::Initialize -> Key path deeper than 512 levels", TakeErrorInfo().description);
    EXPECT_FALSE(Raw::KeyExists(HKEY_CURRENT_USER, root.Path()));
    EXPECT_EQ(kNotInitialized, ReadPairs(Base(), L"").hr);
}

TEST_F(RegistryStorageTest, ARootKeyDeeperThanOneRegistryCallCreatesIsCreatedByInitialize)
{
    const std::wstring deepRoot = root.Path() + L"\\" + DeepKey(40, L"\\");
    ASSERT_EQ(S_OK, storage->Initialize(Hive(kCurrentUser), XWQComBSTR(deepRoot.c_str()), 0));
    ASSERT_EQ(S_OK, StorePairs(Base(), L"k", {{L"v", L"1"}}));
    EXPECT_EQ(L"1", Raw::StringValue(HKEY_CURRENT_USER, deepRoot + L"\\k", L"v"));
}

TEST_F(RegistryStorageTest, NamesWithSpacesAndNonAsciiCharactersGoThrough)
{
    ASSERT_EQ(S_OK, Init());
    const std::wstring key = L"Mein Schl\u00fcssel/\u041a\u043b\u044e\u0447 1/\u65e5\u672c";
    const std::wstring name = L"Gr\u00f6\u00dfe x";
    const std::wstring value = L" \u5024 \u00fc ";
    ASSERT_EQ(S_OK, StorePairs(Base(), key.c_str(), {{name, value}}));
    EXPECT_EQ(value,
              Raw::StringValue(HKEY_CURRENT_USER,
                               root.Below(L"Mein Schl\u00fcssel\\\u041a\u043b\u044e\u0447 1\\\u65e5\u672c"), name));
    EXPECT_EQ((Pairs{{name, value}}), ReadPairs(Base(), key.c_str()).pairs);
    EXPECT_EQ(
        (std::vector<std::wstring>{L"Mein Schl\u00fcssel", L"Mein Schl\u00fcssel/\u041a\u043b\u044e\u0447 1", key}),
        ReadSubKeys(Base(), L"", 1).names);
}

TEST_F(RegistryStorageTest, AKeyBeginningWithASeparatorFailsAndWritesNothingOutsideTheRoot)
{
    ASSERT_EQ(S_OK, Init());
    const std::vector<std::wstring> before = Raw::SubKeyNames(HKEY_CURRENT_USER, L"");
    const HRESULT hr = StorePairs(Base(), L"/Escape", {{L"v", L"1"}});
    EXPECT_TRUE(FAILED(hr));
    EXPECT_TRUE(LogHas({"XSessionDataStorageReg::StoreData -> Open registry key with write access failed"}));
    EXPECT_FALSE(Raw::KeyExists(HKEY_CURRENT_USER, L"Escape"));
    EXPECT_EQ(before, Raw::SubKeyNames(HKEY_CURRENT_USER, L""));
    EXPECT_TRUE(Raw::SubKeyNames(HKEY_CURRENT_USER, root.Path()).empty());
}

TEST_F(RegistryStorageTest, ParentNamesInAKeyStayInsideTheRoot)
{
    ASSERT_EQ(S_OK, Init());
    ASSERT_EQ(S_OK, StorePairs(Base(), L"../Escape", {{L"v", L"1"}}));
    EXPECT_FALSE(Raw::KeyExists(HKEY_CURRENT_USER, L"Software\\Escape"));
    EXPECT_EQ(std::vector<std::wstring>{L".."}, Raw::SubKeyNames(HKEY_CURRENT_USER, root.Path()));
    EXPECT_EQ(L"1", Raw::StringValue(HKEY_CURRENT_USER, root.Below(L"..\\Escape"), L"v"));
}

TEST_F(RegistryStorageTest, AnEmptyValueNameIsTheKeysDefaultValue)
{
    ASSERT_EQ(S_OK, Init());
    ASSERT_EQ(S_OK, StorePairs(Base(), L"k", {{L"", L"default"}}));
    EXPECT_EQ(L"default", Raw::StringValue(HKEY_CURRENT_USER, root.Below(L"k"), L""));
    EXPECT_EQ((Pairs{{L"", L"default"}}), ReadPairs(Base(), L"k").pairs);
}
