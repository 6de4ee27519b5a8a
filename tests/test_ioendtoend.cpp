// A manager call travels manager -> IO layer -> volatile storage and back.
#include "iotesthelpers.h"
#include "testenv.h"
#include "xcomtypes.h"
#include "xsessiondataio.h"
#include "xsessiondataionocache.h"
#include "xsessiondatamng.h"
#include "xsessiondatastoragevolatile.h"

#include <gtest/gtest.h>

namespace
{
const SESSIONDATATYPE kVolatile = static_cast<SESSIONDATATYPE>(5);

template <class Layer>
class EndToEndTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(S_OK, XCreateComObject<XSessionDataMng>(nullptr, IID_IWQ_SessionDataMng,
                                                          reinterpret_cast<void**>(mng.ReleaseAndGetAddressOf())));
        ASSERT_EQ(S_OK, XCreateComObject<XSessionDataStorageVolatile>(
                            nullptr, IID_IWQ_SessionDataStorage, reinterpret_cast<void**>(storage.ReleaseAndGetAddressOf())));
        io = NewIO<Layer>(storage.Get());
        ASSERT_EQ(S_OK, mng->SetStorageIO(io.Get(), kVolatile));
    }
    void TearDown() override
    {
        io.Reset();
        storage.Reset();
        mng.Reset();
    }

    HRESULT Write(const wchar_t* name, const wchar_t* text)
    {
        XVariant value;
        value.Get().vt = VT_BSTR;
        value.Get().bstrVal = ::SysAllocString(text);
        return mng->WriteData(XWQComBSTR(L"Session\\Data"), XWQComBSTR(name), value.Get(), kVolatile);
    }
    HRESULT ReadText(const wchar_t* name, std::wstring& text)
    {
        XVariant value;
        const HRESULT hr = mng->GetData(XWQComBSTR(L"session\\data"), XWQComBSTR(name), VT_BSTR, &value, kVolatile);
        if (hr == S_OK && value.Get().vt == VT_BSTR)
            text = value.Get().bstrVal ? value.Get().bstrVal : L"";
        return hr;
    }
    ListResult ListAll()
    {
        ListResult result;
        XValueArray list;
        result.hr = mng->GetStringList(XWQComBSTR(L"Session\\Data"), list.CountAddress(), list.ItemsAddress(), kVolatile);
        result.count = list.Count();
        for (ULONG i = 0; i < list.Count(); ++i)
            result.records.push_back(RecordText(list[i]));
        return result;
    }

    XComPtr<IWQ_SessionDataMng> mng;
    XComPtr<IWQ_SessionDataStorage> storage;
    XComPtr<IWQ_SessionDataIO> io;
};

using CachedEndToEnd = EndToEndTest<XSessionDataIO>;
using UncachedEndToEnd = EndToEndTest<XSessionDataIONoCache>;
} // namespace

TEST_F(CachedEndToEnd, WriteReadListFlushReadAgain)
{
    ASSERT_EQ(S_OK, Write(L"User", L"alice"));
    ASSERT_EQ(S_OK, Write(L"Theme", L"dark"));
    std::wstring text;
    EXPECT_EQ(S_OK, ReadText(L"USER", text));
    EXPECT_EQ(L"alice", text);
    const ListResult list = ListAll();
    EXPECT_EQ(S_OK, list.hr);
    EXPECT_EQ((std::vector<std::string>{"theme=dark", "user=alice"}), list.records);
    EXPECT_EQ(S_OK, mng->FlushCache(kVolatile));
    text.clear();
    EXPECT_EQ(S_FALSE, ReadText(L"User", text));
    EXPECT_TRUE(text.empty());
}

TEST_F(CachedEndToEnd, StorageTypeIsFive)
{
    SDM_STORAGE_TYPE type = SDM_STORAGE_NOT_INITIALIZED;
    EXPECT_EQ(S_OK, mng->GetStorageType(kVolatile, &type));
    EXPECT_EQ(5, static_cast<LONG>(type));
}

TEST_F(CachedEndToEnd, TypedValueComesBackConverted)
{
    XVariant number;
    number.Get().vt = VT_I4;
    number.Get().lVal = 42;
    ASSERT_EQ(S_OK, mng->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), number.Get(), kVolatile));
    XVariant read;
    EXPECT_EQ(S_OK, mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), VT_I4, &read, kVolatile));
    EXPECT_EQ(VT_I4, read.Get().vt);
    EXPECT_EQ(42, read.Get().lVal);
}

TEST_F(UncachedEndToEnd, WriteReadListFlushReadAgainKeepsNothing)
{
    ASSERT_EQ(S_OK, Write(L"User", L"alice"));
    ASSERT_EQ(S_OK, Write(L"Theme", L"dark"));
    // The writes' (stored, clean) entries are still in the working table: the first read
    // answers from it and empties it; the storage kept nothing for the next one.
    std::wstring text;
    EXPECT_EQ(S_OK, ReadText(L"User", text));
    EXPECT_EQ(L"alice", text);
    text.clear();
    EXPECT_EQ(S_FALSE, ReadText(L"Theme", text));
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(S_FALSE, ListAll().hr);
    EXPECT_EQ(S_OK, mng->FlushCache(kVolatile));
    EXPECT_EQ(S_FALSE, ReadText(L"User", text));
    EXPECT_TRUE(text.empty());
}

TEST_F(UncachedEndToEnd, StorageTypeIsFive)
{
    SDM_STORAGE_TYPE type = SDM_STORAGE_NOT_INITIALIZED;
    EXPECT_EQ(S_OK, mng->GetStorageType(kVolatile, &type));
    EXPECT_EQ(5, static_cast<LONG>(type));
}
