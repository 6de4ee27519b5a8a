// Embedded NUL characters. A key or a value name with one is refused with E_INVALIDARG and error
// info before anything is read or written: by the manager, by every access layer and by every
// storage. A value with one is kept whole where the storage can hold it (the cache of a volatile
// category, a database root) and refused where it cannot (registry, environment), never cut
// short at the NUL.
#include "recordingroot.h"
#include "storagetesthelpers.h"
#include "testenv.h"
#include "xcomtypes.h"
#include "xsessiondataio.h"
#include "xsessiondataioex.h"
#include "xsessiondataioexdb.h"
#include "xsessiondataionocache.h"
#include "xsessiondatamng.h"
#include "xsessiondatastoragedb.h"
#include "xsessiondatastorageenv.h"
#include "xsessiondatastoragereg.h"
#include "xsessiondatastoragevolatile.h"

#include <gtest/gtest.h>

#include <functional>

namespace
{
const SESSIONDATATYPE kCategory = static_cast<SESSIONDATATYPE>(3);

// A BSTR with an embedded NUL: text, a NUL, then "zz".
XWQComBSTR WithNul(const std::wstring& text)
{
    const std::wstring whole = text + std::wstring(1, L'\0') + L"zz";
    return XWQComBSTR(whole.data(), static_cast<UINT>(whole.size()));
}

std::wstring Whole(BSTR text)
{
    return text ? std::wstring(text, ::SysStringLen(text)) : std::wstring();
}

bool RefusedForANul(HRESULT hr)
{
    const ErrorInfoText info = TakeErrorInfo();
    return hr == E_INVALIDARG && info.description.find(L"NUL") != std::wstring::npos;
}

enum class Back
{
    Volatile,
    Registry,
    Environment,
};

struct Setup
{
    Back back;
    bool cached;
    const char* name;
};

void PrintTo(const Setup& setup, std::ostream* out)
{
    *out << setup.name;
}

// A manager with category 3 bound to one storage through a cached or an uncached layer.
class EmbeddedNulTest : public ::testing::TestWithParam<Setup>
{
protected:
    void SetUp() override
    {
        Raw::RemoveKeyedVariables();
        ASSERT_EQ(S_OK, XCreateComObject<XSessionDataMng>(nullptr, IID_IWQ_SessionDataMng,
                                                          reinterpret_cast<void**>(mng.ReleaseAndGetAddressOf())));
        XComPtr<IWQ_SessionDataStorage> storage;
        switch (GetParam().back)
        {
        case Back::Volatile:
            storage = NewStorage<XSessionDataStorageVolatile>();
            break;
        case Back::Registry:
            storage = NewRegistryStorage(root.Path());
            break;
        case Back::Environment:
            storage = NewStorage<XSessionDataStorageEnv>();
            break;
        }
        ASSERT_EQ(S_OK, mng->SetStorageIO(NewLayer(GetParam().cached, storage.Get()).Get(), kCategory));
    }
    void TearDown() override { Raw::RemoveKeyedVariables(); }

    HRESULT Write(const XWQComBSTR& key, const XWQComBSTR& name, const XWQComBSTR& value)
    {
        XVariant v;
        v.Get().vt = VT_BSTR;
        v.Get().bstrVal = value.Copy();
        return mng->WriteData(key, name, v.Get(), kCategory);
    }
    // The value as the storage gives it back (the layer's table emptied first); "<none>" when
    // there is none.
    std::wstring Read(const XWQComBSTR& key, const XWQComBSTR& name)
    {
        EXPECT_EQ(S_OK, mng->FlushCache(kCategory));
        XVariant v;
        const HRESULT hr = mng->GetData(key, name, VT_BSTR, &v, kCategory);
        return hr == S_OK ? Whole(v.Get().bstrVal) : std::wstring(L"<none>");
    }
    bool KeepsNulInValues() const { return GetParam().back == Back::Volatile; }

    TestRegistryRoot root;
    XComPtr<IWQ_SessionDataMng> mng;
};
} // namespace

TEST_P(EmbeddedNulTest, AKeyWithANulIsRefusedAndTheKeyBeforeTheNulKeepsItsValue)
{
    ASSERT_EQ(S_OK, Write(XWQComBSTR(L"p/n"), XWQComBSTR(L"v"), XWQComBSTR(L"old")));
    EXPECT_TRUE(RefusedForANul(Write(WithNul(L"p/n"), XWQComBSTR(L"v"), XWQComBSTR(L"new"))));
    if (GetParam().back != Back::Volatile || GetParam().cached)
    {
        XVariant v;
        ASSERT_EQ(S_OK, mng->GetData(XWQComBSTR(L"p/n"), XWQComBSTR(L"v"), VT_BSTR, &v, kCategory));
        EXPECT_EQ(L"old", Whole(v.Get().bstrVal));
    }
    if (GetParam().back != Back::Volatile)
    {
        EXPECT_EQ(L"old", Read(XWQComBSTR(L"p/n"), XWQComBSTR(L"v")));
    }
}

TEST_P(EmbeddedNulTest, AValueNameWithANulIsRefusedAndTheNameBeforeTheNulKeepsItsValue)
{
    ASSERT_EQ(S_OK, Write(XWQComBSTR(L"p"), XWQComBSTR(L"n"), XWQComBSTR(L"old")));
    EXPECT_TRUE(RefusedForANul(Write(XWQComBSTR(L"p"), WithNul(L"n"), XWQComBSTR(L"new"))));
    if (GetParam().back != Back::Volatile)
    {
        EXPECT_EQ(L"old", Read(XWQComBSTR(L"p"), XWQComBSTR(L"n")));
    }
}

TEST_P(EmbeddedNulTest, AListWithANulInOneNameWritesNothing)
{
    const XWQComBSTR good(L"a");
    const XWQComBSTR bad = WithNul(L"b");
    const XWQComBSTR one(L"1");
    tagSESSIONDATAVALUE records[] = {{good, one}, {bad, one}};
    EXPECT_TRUE(RefusedForANul(mng->WriteStringList(XWQComBSTR(L"p"), 2, records, kCategory)));
    XVariant v;
    EXPECT_EQ(S_FALSE, mng->GetData(XWQComBSTR(L"p"), good, VT_BSTR, &v, kCategory));
}

TEST_P(EmbeddedNulTest, ReadsAndListingsOfANameWithANulAreRefused)
{
    ASSERT_EQ(S_OK, Write(XWQComBSTR(L"p/n"), XWQComBSTR(L"v"), XWQComBSTR(L"old")));
    XVariant v;
    EXPECT_TRUE(RefusedForANul(mng->GetData(WithNul(L"p/n"), XWQComBSTR(L"v"), VT_BSTR, &v, kCategory)));
    EXPECT_TRUE(RefusedForANul(mng->GetData(XWQComBSTR(L"p/n"), WithNul(L"v"), VT_BSTR, &v, kCategory)));
    EXPECT_EQ(VT_EMPTY, v.Get().vt);
    XValueArray list;
    EXPECT_TRUE(RefusedForANul(mng->GetStringList(WithNul(L"p/n"), list.CountAddress(), list.ItemsAddress(), kCategory)));
    XBstrArray names;
    EXPECT_TRUE(RefusedForANul(mng->GetSubKeys(WithNul(L"p"), 1, names.CountAddress(), names.ItemsAddress(), kCategory)));
    EXPECT_TRUE(RefusedForANul(mng->DeleteKey(WithNul(L"p"), kCategory)));
    EXPECT_TRUE(RefusedForANul(
        mng->TransferDataFromTo(kCategory, static_cast<SESSIONDATATYPE>(4), WithNul(L"p"), XWQComBSTR(L"q"))));
}

TEST_P(EmbeddedNulTest, AValueWithANulIsKeptWholeOrRefusedNeverCut)
{
    ASSERT_EQ(S_OK, Write(XWQComBSTR(L"p"), XWQComBSTR(L"v"), XWQComBSTR(L"old")));
    const HRESULT hr = Write(XWQComBSTR(L"p"), XWQComBSTR(L"v"), WithNul(L"a"));
    if (KeepsNulInValues())
    {
        EXPECT_EQ(S_OK, hr);
        XVariant v;
        ASSERT_EQ(S_OK, mng->GetData(XWQComBSTR(L"p"), XWQComBSTR(L"v"), VT_BSTR, &v, kCategory));
        EXPECT_EQ(Whole(WithNul(L"a")), Whole(v.Get().bstrVal));
    }
    else
    {
        EXPECT_TRUE(RefusedForANul(hr));
        EXPECT_EQ(L"old", Read(XWQComBSTR(L"p"), XWQComBSTR(L"v")));
    }
}

TEST_P(EmbeddedNulTest, AListWithANulInOneValueIsKeptWholeOrWritesNothing)
{
    const XWQComBSTR a(L"a"), b(L"b"), plain(L"1");
    const XWQComBSTR withNul = WithNul(L"2");
    tagSESSIONDATAVALUE records[] = {{a, plain}, {b, withNul}};
    const HRESULT hr = mng->WriteStringList(XWQComBSTR(L"p"), 2, records, kCategory);
    if (KeepsNulInValues())
    {
        EXPECT_EQ(S_OK, hr);
        if (GetParam().cached)
        {
            XVariant v;
            ASSERT_EQ(S_OK, mng->GetData(XWQComBSTR(L"p"), b, VT_BSTR, &v, kCategory));
            EXPECT_EQ(Whole(withNul), Whole(v.Get().bstrVal));
        }
    }
    else
    {
        EXPECT_TRUE(RefusedForANul(hr));
        EXPECT_EQ(L"<none>", Read(XWQComBSTR(L"p"), a));
    }
}

INSTANTIATE_TEST_SUITE_P(Storages, EmbeddedNulTest,
                         ::testing::Values(Setup{Back::Volatile, true, "VolatileCached"},
                                           Setup{Back::Volatile, false, "VolatileUncached"},
                                           Setup{Back::Registry, true, "RegistryCached"},
                                           Setup{Back::Registry, false, "RegistryUncached"},
                                           Setup{Back::Environment, true, "EnvironmentCached"},
                                           Setup{Back::Environment, false, "EnvironmentUncached"}),
                         [](const ::testing::TestParamInfo<Setup>& info) { return std::string(info.param.name); });

TEST(EmbeddedNulDatabase, AValueWithANulReachesTheRootWholeAndANameWithOneNeverReachesIt)
{
    RecordingRoot* root = RecordingRoot::Create();
    XComPtr<IWQ_SessionDataStorageDb> db = NewStorage<XSessionDataStorageDb, IWQ_SessionDataStorageDb>();
    ASSERT_EQ(S_OK, db->SetRoot(root->Root()));
    ASSERT_EQ(S_OK, db->SetRootKey(XWQComBSTR(L"app")));
    XComPtr<IWQ_SessionDataIOEx> io;
    ASSERT_EQ(S_OK, XCreateComObject<XSessionDataIOEx>(nullptr, IID_IWQ_SessionDataIOEx,
                                                       reinterpret_cast<void**>(io.ReleaseAndGetAddressOf())));
    ASSERT_EQ(S_OK, io->SetStorage(db.Get()));

    EXPECT_EQ(S_OK, io->WriteData(XWQComBSTR(L"p"), XWQComBSTR(L"v"), WithNul(L"a")));
    EXPECT_TRUE(RefusedForANul(io->WriteData(WithNul(L"p"), XWQComBSTR(L"v"), XWQComBSTR(L"x"))));
    EXPECT_TRUE(RefusedForANul(io->WriteObjectData(nullptr, XWQComBSTR(L"p"), WithNul(L"v"), XWQComBSTR(L"x"))));
    EXPECT_EQ(std::vector<std::string>{"WriteStringList(app/p|1|v=a\\0zz)"}, root->Calls());
    io.Reset();
    db.Reset();
    root->Release();
}

// Every class refuses a key with a NUL itself, whoever calls it.
TEST(EmbeddedNulEveryClass, EachLayerAndStorageRefusesAKeyWithANul)
{
    const TestRegistryRoot registryRoot;
    RecordingRoot* recordingRoot = RecordingRoot::Create();
    const XWQComBSTR bad = WithNul(L"k");
    const XWQComBSTR name(L"n");

    const XComPtr<IWQ_SessionDataStorage> registry = NewRegistryStorage(registryRoot.Path());
    const XComPtr<IWQ_SessionDataStorage> environment = NewStorage<XSessionDataStorageEnv>();
    const XComPtr<IWQ_SessionDataStorageDb> database = NewStorage<XSessionDataStorageDb, IWQ_SessionDataStorageDb>();
    database->SetRoot(recordingRoot->Root());
    XComPtr<IWQ_SessionDataIOExDB> databaseLayer;
    XCreateComObject<XSessionDataIOExDB>(nullptr, IID_IWQ_SessionDataIOExDB,
                                         reinterpret_cast<void**>(databaseLayer.ReleaseAndGetAddressOf()));
    databaseLayer->SetRoot(recordingRoot->Root());
    XComPtr<IWQ_SessionDataIOEx> extended;
    XCreateComObject<XSessionDataIOEx>(nullptr, IID_IWQ_SessionDataIOEx,
                                       reinterpret_cast<void**>(extended.ReleaseAndGetAddressOf()));
    extended->SetStorage(database.Get());
    const XComPtr<IWQ_SessionDataIO> cached = NewLayer(true, registry.Get());
    const XComPtr<IWQ_SessionDataIO> uncached = NewLayer(false, environment.Get());

    PairRecords records(Pairs{{L"n", L"v"}});
    const auto store = [&](IWQ_SessionDataStorage* storage) {
        return storage->StoreData(bad, records.Count(), records.Data());
    };
    const auto read = [&](IWQ_SessionDataStorage* storage) {
        XValueArray list;
        return storage->ReadData(bad, list.CountAddress(), list.ItemsAddress());
    };
    const auto subKeys = [&](IWQ_SessionDataStorage* storage) {
        XBstrArray names;
        return storage->GetSubKeys(bad, 1, names.CountAddress(), names.ItemsAddress());
    };
    const auto readAll = [&](IWQ_SessionDataStorage* storage) {
        XKeyValueArray all;
        return storage->ReadAllData(bad, all.CountAddress(), all.ItemsAddress());
    };
    const std::vector<std::pair<const char*, std::function<HRESULT()>>> calls = {
        {"registry StoreData", [&] { return store(registry.Get()); }},
        {"registry ReadData", [&] { return read(registry.Get()); }},
        {"registry GetSubKeys", [&] { return subKeys(registry.Get()); }},
        {"registry ReadAllData", [&] { return readAll(registry.Get()); }},
        {"environment StoreData", [&] { return store(environment.Get()); }},
        {"environment ReadData", [&] { return read(environment.Get()); }},
        {"environment GetSubKeys", [&] { return subKeys(environment.Get()); }},
        {"database StoreData", [&] { return store(database.Get()); }},
        {"database ReadData", [&] { return read(database.Get()); }},
        {"database GetSubKeys", [&] { return subKeys(database.Get()); }},
        {"database DeleteKey", [&] { return database->DeleteKey(bad); }},
        {"database SetRootKey", [&] { return database->SetRootKey(bad); }},
        {"cached layer WriteData", [&] { return cached->WriteData(bad, name, name); }},
        {"cached layer UploadCache", [&] { return cached->UploadCache(bad); }},
        {"uncached layer SaveData", [&] { return uncached->SaveData(bad, name); }},
        {"extended layer DeleteKey", [&] { return extended->DeleteKey(bad); }},
        {"database layer WriteData", [&] { return databaseLayer->WriteData(bad, name, name); }},
        {"database layer GetAllData",
         [&] {
             XKeyValueArray all;
             return databaseLayer->GetAllData(bad, all.CountAddress(), all.ItemsAddress());
         }},
    };
    for (const auto& call : calls)
        EXPECT_TRUE(RefusedForANul(call.second())) << call.first;
    EXPECT_TRUE(recordingRoot->Calls().empty());
    recordingRoot->Release();
}

TEST_P(EmbeddedNulTest, ANullListWithACountIsAPointerFailureNotACrash)
{
    EXPECT_EQ(E_POINTER, mng->WriteStringList(XWQComBSTR(L"p"), 2, nullptr, kCategory));
}
