// Object data in the SQL storage: kept under the object's persistent identity (a moniker's
// display name, else an IPersist class id), apart from plain data and from other objects' data;
// an object with neither identity is refused.
#include "sqltesthelpers.h"
#include "testenv.h"
#include "xcomtypes.h"

#include <gtest/gtest.h>

namespace
{
// An object that offers IPersist with a given class id, or nothing at all.
class PersistObject : public IPersist
{
public:
    explicit PersistObject(const CLSID& clsid, bool persist = true) : m_clsid(clsid), m_persist(persist) {}
    virtual ~PersistObject() = default;
    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override
    {
        *ppv = nullptr;
        if (::IsEqualIID(iid, IID_IUnknown) || (m_persist && ::IsEqualIID(iid, IID_IPersist)))
        {
            *ppv = static_cast<IPersist*>(this);
            return S_OK;
        }
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP GetClassID(CLSID* clsid) override
    {
        *clsid = m_clsid;
        return S_OK;
    }

private:
    CLSID m_clsid;
    bool m_persist;
};

const CLSID kFirst = {0x11111111, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}};
const CLSID kSecond = {0x11111111, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x56}};

class SqlStorageObjectTest : public ::testing::TestWithParam<SqlEngine>
{
protected:
    void SetUp() override
    {
        storage = NewSqlStorage(database.Connection());
        ASSERT_TRUE(storage);
    }
    HRESULT StoreObject(IUnknown* object, const wchar_t* key, const Pairs& pairs)
    {
        PairRecords records(pairs);
        return storage->StoreObjectData(object, XWQComBSTR(key), records.Count(), records.Data());
    }
    Pairs ReadObject(IUnknown* object, const wchar_t* key, HRESULT* hr = nullptr)
    {
        XValueArray read;
        const HRESULT result = storage->ReadObjectData(object, XWQComBSTR(key), read.CountAddress(), read.ItemsAddress());
        if (hr)
            *hr = result;
        Pairs pairs;
        for (ULONG i = 0; i < read.Count(); ++i)
            pairs.emplace_back(read[i].bstrValueName, read[i].bstrValue);
        return pairs;
    }

    TestSqlDatabase database{GetParam()};
    XComPtr<IWQ_SessionDataStorageEx> storage;
    PersistObject first{kFirst};
    PersistObject second{kSecond};
};
} // namespace

INSTANTIATE_TEST_SUITE_P(Engines, SqlStorageObjectTest, AllSqlEngines(), SqlEngineName);

TEST_P(SqlStorageObjectTest, ObjectDataIsKeptApartFromPlainDataAndFromOtherObjects)
{
    ASSERT_EQ(S_OK, StorePairs(storage.Get(), L"k", {{L"v", L"plain"}}));
    ASSERT_EQ(S_OK, StoreObject(&first, L"k", {{L"v", L"first"}}));
    ASSERT_EQ(S_OK, StoreObject(&second, L"k", {{L"v", L"second"}}));
    EXPECT_EQ((Pairs{{L"v", L"plain"}}), ReadPairs(storage.Get(), L"k").pairs);
    EXPECT_EQ((Pairs{{L"v", L"first"}}), ReadObject(&first, L"k"));
    EXPECT_EQ((Pairs{{L"v", L"second"}}), ReadObject(&second, L"k"));
    // Another object of the same class has the same identity.
    PersistObject sameClass(kFirst);
    EXPECT_EQ((Pairs{{L"v", L"first"}}), ReadObject(&sameClass, L"K"));
}

TEST_P(SqlStorageObjectTest, ObjectValueNamesAreKeptAndReturnedLowerCased)
{
    ASSERT_EQ(S_OK, StoreObject(&first, L"k", {{L"Width", L"1"}}));
    EXPECT_EQ((Pairs{{L"width", L"1"}}), ReadObject(&first, L"k"));
}

TEST_P(SqlStorageObjectTest, AMonikerIsKnownByItsDisplayName)
{
    XComPtr<IMoniker> moniker;
    ASSERT_EQ(S_OK, ::CreateItemMoniker(L"!", L"SessionItem", moniker.ReleaseAndGetAddressOf()));
    ASSERT_EQ(S_OK, StoreObject(moniker.Get(), L"k", {{L"v", L"by name"}}));
    XComPtr<IMoniker> again;
    ASSERT_EQ(S_OK, ::CreateItemMoniker(L"!", L"SessionItem", again.ReleaseAndGetAddressOf()));
    EXPECT_EQ((Pairs{{L"v", L"by name"}}), ReadObject(again.Get(), L"k"));
    XComPtr<IMoniker> other;
    ASSERT_EQ(S_OK, ::CreateItemMoniker(L"!", L"OtherItem", other.ReleaseAndGetAddressOf()));
    HRESULT hr = S_OK;
    EXPECT_TRUE(ReadObject(other.Get(), L"k", &hr).empty());
    EXPECT_EQ(S_FALSE, hr);
}

TEST_P(SqlStorageObjectTest, AnObjectWithoutIdentityIsRefusedWithAMessageThatSaysSo)
{
    PersistObject anonymous(kFirst, false);
    EXPECT_EQ(E_INVALIDARG, StoreObject(&anonymous, L"k", {{L"v", L"x"}}));
    EXPECT_NE(std::wstring::npos, TakeErrorInfo().description.find(L"neither a moniker nor an IPersist object"));
    EXPECT_EQ(E_POINTER, StoreObject(nullptr, L"k", {{L"v", L"x"}}));
}

TEST_P(SqlStorageObjectTest, ObjectKeysListAndDeleteWithinTheObjectsData)
{
    ASSERT_EQ(S_OK, StoreObject(&first, L"a/b", {{L"v", L"1"}}));
    ASSERT_EQ(S_OK, StorePairs(storage.Get(), L"a/c", {{L"v", L"plain"}}));
    XBstrArray names;
    ASSERT_EQ(S_OK, storage->GetObjectSubKeys(&first, XWQComBSTR(L"a"), 1, names.CountAddress(), names.ItemsAddress()));
    ASSERT_EQ(1u, names.Count());
    EXPECT_STREQ(L"a/b", names[0]);
    EXPECT_EQ(S_OK, storage->DeleteObjectKey(&first, XWQComBSTR(L"a")));
    HRESULT hr = S_OK;
    ReadObject(&first, L"a/b", &hr);
    EXPECT_EQ(S_FALSE, hr);
    EXPECT_EQ((Pairs{{L"v", L"plain"}}), ReadPairs(storage.Get(), L"a/c").pairs);
}
