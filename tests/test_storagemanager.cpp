// The registry and the environment storage under the manager, through the cached and the
// uncached access layer: written values land in the registry or the environment and come back.
#include "storagetesthelpers.h"
#include "testenv.h"
#include "xcomtypes.h"
#include "xsessiondataio.h"
#include "xsessiondataionocache.h"
#include "xsessiondatamng.h"
#include "xsessiondatastorageenv.h"
#include "xsessiondatastoragereg.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace
{
const SESSIONDATATYPE kCategory = static_cast<SESSIONDATATYPE>(4);

enum class Back
{
    Registry,
    Environment
};

struct Setup
{
    Back back;
    bool cached;
    const char* name;
};

// Names the parameter in test listings.
void PrintTo(const Setup& setup, std::ostream* out)
{
    *out << setup.name;
}

std::wstring Lower(std::wstring text)
{
    if (!text.empty())
        ::CharLowerBuffW(&text[0], static_cast<DWORD>(text.size()));
    return text;
}

class StorageUnderManagerTest : public ::testing::TestWithParam<Setup>
{
protected:
    void SetUp() override
    {
        Raw::RemoveKeyedVariables();
        ClearLogBook();
        ASSERT_EQ(S_OK, XCreateComObject<XSessionDataMng>(nullptr, IID_IWQ_SessionDataMng,
                                                          reinterpret_cast<void**>(mng.ReleaseAndGetAddressOf())));
        storage =
            GetParam().back == Back::Registry ? NewRegistryStorage(root.Path()) : NewStorage<XSessionDataStorageEnv>();
        ASSERT_TRUE(storage);
        io = NewLayer(GetParam().cached, storage.Get());
        ASSERT_TRUE(io);
        ASSERT_EQ(S_OK, mng->SetStorageIO(io.Get(), kCategory));
    }
    void TearDown() override
    {
        io.Reset();
        storage.Reset();
        mng.Reset();
    }

    bool Registry() const { return GetParam().back == Back::Registry; }

    HRESULT Write(const wchar_t* key, const wchar_t* name, const wchar_t* text)
    {
        XVariant value;
        value.Get().vt = VT_BSTR;
        value.Get().bstrVal = ::SysAllocString(text);
        return mng->WriteData(XWQComBSTR(key), XWQComBSTR(name), value.Get(), kCategory);
    }
    std::optional<std::wstring> Read(const wchar_t* key, const wchar_t* name)
    {
        XVariant value;
        if (mng->GetData(XWQComBSTR(key), XWQComBSTR(name), VT_BSTR, &value, kCategory) != S_OK ||
            value.Get().vt != VT_BSTR)
            return std::nullopt;
        return std::wstring(value.Get().bstrVal ? value.Get().bstrVal : L"");
    }
    // What the storage itself holds, read with the plain registry or environment calls.
    std::optional<std::wstring> Stored(const std::wstring& key, const std::wstring& name)
    {
        if (Registry())
        {
            std::wstring path = key;
            std::replace(path.begin(), path.end(), L'/', L'\\');
            return Raw::StringValue(HKEY_CURRENT_USER, root.Below(path), name);
        }
        return Raw::EnvironmentValue(key + L"/" + name);
    }
    void Preset(const std::wstring& key, const std::wstring& name, const std::wstring& value)
    {
        if (Registry())
        {
            std::wstring path = key;
            std::replace(path.begin(), path.end(), L'/', L'\\');
            Raw::SetString(HKEY_CURRENT_USER, root.Below(path), name, value);
        }
        else
        {
            ASSERT_TRUE(::SetEnvironmentVariableW((key + L"/" + name).c_str(), value.c_str()));
        }
    }

    TestRegistryRoot root;
    XComPtr<IWQ_SessionDataMng> mng;
    XComPtr<IWQ_SessionDataStorage> storage;
    XComPtr<IWQ_SessionDataIO> io;
};
} // namespace

TEST_P(StorageUnderManagerTest, WrittenValuesLandInTheStorageAndComeBack)
{
    ASSERT_EQ(S_OK, Write(L"Session/Data", L"User", L"alice"));
    ASSERT_EQ(S_OK, Write(L"Session/Data", L"Theme", L"dark"));
    EXPECT_EQ(L"alice", Stored(L"SESSION/DATA", L"USER"));
    EXPECT_EQ(L"dark", Stored(L"SESSION/DATA", L"THEME"));
    EXPECT_EQ(L"alice", Read(L"session/data", L"USER"));
    EXPECT_EQ(L"dark", Read(L"Session\\Data", L"theme"));
}

TEST_P(StorageUnderManagerTest, ValuesAlreadyInTheStorageAreRead)
{
    Preset(L"PRE/SET", L"NAME", L"there");
    EXPECT_EQ(L"there", Read(L"pre/set", L"name"));
}

TEST_P(StorageUnderManagerTest, AKeysValuesAreListed)
{
    Preset(L"LIST/KEY", L"A", L"1");
    Preset(L"LIST/KEY", L"B", L"2");
    XValueArray list;
    ASSERT_EQ(S_OK, mng->GetStringList(XWQComBSTR(L"list/key"), list.CountAddress(), list.ItemsAddress(), kCategory));
    std::vector<std::pair<std::wstring, std::wstring>> pairs;
    for (ULONG i = 0; i < list.Count(); ++i)
        pairs.emplace_back(Lower(list[i].bstrValueName), list[i].bstrValue);
    std::sort(pairs.begin(), pairs.end());
    EXPECT_EQ((Pairs{{L"a", L"1"}, {L"b", L"2"}}), pairs);
}

TEST_P(StorageUnderManagerTest, SubKeysAreListedWithSlashes)
{
    ASSERT_EQ(S_OK, Write(L"Tree/One", L"v", L"1"));
    ASSERT_EQ(S_OK, Write(L"Tree/Two/Deep", L"v", L"2"));
    XBstrArray names;
    ASSERT_EQ(S_OK, mng->GetSubKeys(XWQComBSTR(L"Tree"), 0, names.CountAddress(), names.ItemsAddress(), kCategory));
    std::vector<std::wstring> lowered;
    for (ULONG i = 0; i < names.Count(); ++i)
        lowered.push_back(Lower(names[i]));
    std::sort(lowered.begin(), lowered.end());
    // The environment knows only parent paths of variables: Tree/Two holds none of its own.
    const std::vector<std::wstring> expected =
        Registry() ? std::vector<std::wstring>{L"tree/one", L"tree/two"} : std::vector<std::wstring>{L"tree/one"};
    EXPECT_EQ(expected, lowered);
}

TEST_P(StorageUnderManagerTest, GetAllDataHandsOutTheKeyTree)
{
    Preset(L"ALL", L"TOP", L"t");
    Preset(L"ALL/CHILD", L"INNER", L"i");
    XKeyValueArray all;
    ASSERT_EQ(S_OK, io->GetAllData(XWQComBSTR(L"all"), all.CountAddress(), all.ItemsAddress()));
    std::vector<std::wstring> keys;
    for (ULONG i = 0; i < all.Count(); ++i)
        keys.push_back(Lower(all[i].bstrKeyName));
    EXPECT_EQ(L"all", keys.front());
    EXPECT_NE(keys.end(), std::find(keys.begin(), keys.end(), L"all/child"));
}

TEST_P(StorageUnderManagerTest, TheStorageTypeIsTheKindNumber)
{
    SDM_STORAGE_TYPE type = SDM_STORAGE_NOT_INITIALIZED;
    ASSERT_EQ(S_OK, mng->GetStorageType(kCategory, &type));
    EXPECT_EQ(Registry() ? 2 : 4, static_cast<LONG>(type));
}

INSTANTIATE_TEST_SUITE_P(Storages, StorageUnderManagerTest,
                         ::testing::Values(Setup{Back::Registry, true, "RegistryCached"},
                                           Setup{Back::Registry, false, "RegistryUncached"},
                                           Setup{Back::Environment, true, "EnvironmentCached"},
                                           Setup{Back::Environment, false, "EnvironmentUncached"}),
                         [](const ::testing::TestParamInfo<Setup>& info) { return std::string(info.param.name); });

TEST(StorageTransfer, TransferDataFromToCopiesARegistryTreeToAnotherCategory)
{
    const TestRegistryRoot from(L"-from");
    const TestRegistryRoot to(L"-to");
    Raw::SetString(HKEY_CURRENT_USER, from.Below(L"Src"), L"top", L"T");
    Raw::SetString(HKEY_CURRENT_USER, from.Below(L"Src\\Child"), L"inner", L"I");
    Raw::CreateKey(HKEY_CURRENT_USER, to.Path());

    XComPtr<IWQ_SessionDataMng> mng;
    ASSERT_EQ(S_OK, XCreateComObject<XSessionDataMng>(nullptr, IID_IWQ_SessionDataMng,
                                                      reinterpret_cast<void**>(mng.ReleaseAndGetAddressOf())));
    const XComPtr<IWQ_SessionDataIO> source = NewLayer(false, NewRegistryStorage(from.Path()).Get());
    const XComPtr<IWQ_SessionDataIO> target = NewLayer(true, NewRegistryStorage(to.Path()).Get());
    const SESSIONDATATYPE fromCategory = static_cast<SESSIONDATATYPE>(2);
    const SESSIONDATATYPE toCategory = static_cast<SESSIONDATATYPE>(3);
    ASSERT_EQ(S_OK, mng->SetStorageIO(source.Get(), fromCategory));
    ASSERT_EQ(S_OK, mng->SetStorageIO(target.Get(), toCategory));

    EXPECT_EQ(S_OK, mng->TransferDataFromTo(fromCategory, toCategory, XWQComBSTR(L"Src"), XWQComBSTR(L"Dst")));
    EXPECT_EQ(L"T", Raw::StringValue(HKEY_CURRENT_USER, to.Below(L"Dst"), L"top"));
    EXPECT_EQ(L"I", Raw::StringValue(HKEY_CURRENT_USER, to.Below(L"Src\\Child"), L"inner"));
    // Nothing moves out of the source.
    EXPECT_EQ(L"T", Raw::StringValue(HKEY_CURRENT_USER, from.Below(L"Src"), L"top"));
}
