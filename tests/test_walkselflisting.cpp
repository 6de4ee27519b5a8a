// Storages that list a key among its own sub-keys: the environment storage does for a key with
// variables directly under it, and a storage double does for any key. TransferDataFromTo out of
// such a category (cached and uncached) ends and copies every value once; ReadAllData reads each
// key once.
#include "recordingstorage.h"
#include "storagetesthelpers.h"
#include "testenv.h"
#include "xcomtypes.h"
#include "xsessiondataio.h"
#include "xsessiondataionocache.h"
#include "xsessiondatamng.h"
#include "xsessiondatastorageenv.h"
#include "xsessiondatastoragereadall.h"
#include "xsessiondatastoragevolatile.h"

#include <gtest/gtest.h>

namespace
{
const SESSIONDATATYPE kEnvironment = static_cast<SESSIONDATATYPE>(4);
const SESSIONDATATYPE kVolatile = static_cast<SESSIONDATATYPE>(5);

std::wstring Text(const XVariant& value)
{
    const VARIANT& v = value.Get();
    return v.vt == VT_BSTR && v.bstrVal ? std::wstring(v.bstrVal) : std::wstring(L"<none>");
}

class EnvironmentTransferTest : public ::testing::TestWithParam<bool>
{
protected:
    void SetUp() override
    {
        Raw::RemoveKeyedVariables();
        ASSERT_EQ(S_OK, XCreateComObject<XSessionDataMng>(nullptr, IID_IWQ_SessionDataMng,
                                                          reinterpret_cast<void**>(mng.ReleaseAndGetAddressOf())));
        ASSERT_EQ(S_OK, mng->SetStorageIO(NewLayer(GetParam(), NewStorage<XSessionDataStorageEnv>().Get()).Get(),
                                          kEnvironment));
        ASSERT_EQ(S_OK,
                  mng->SetStorageIO(NewLayer(true, NewStorage<XSessionDataStorageVolatile>().Get()).Get(), kVolatile));
    }
    void TearDown() override { Raw::RemoveKeyedVariables(); }

    std::wstring Read(const wchar_t* key, const wchar_t* name)
    {
        XVariant value;
        mng->GetData(XWQComBSTR(key), XWQComBSTR(name), VT_BSTR, &value.Get(), kVolatile);
        return Text(value);
    }

    XComPtr<IWQ_SessionDataMng> mng;
};
} // namespace

TEST_P(EnvironmentTransferTest, TransferOutOfAKeyWithVariablesDirectlyUnderItEndsAndCopiesEveryValue)
{
    ASSERT_TRUE(::SetEnvironmentVariableW(L"SUITE/APP/WIDTH", L"1280"));
    ASSERT_TRUE(::SetEnvironmentVariableW(L"SUITE/APP/PANE/HEIGHT", L"600"));
    EXPECT_EQ(S_OK, mng->TransferDataFromTo(kEnvironment, kVolatile, XWQComBSTR(L"Suite/App"), XWQComBSTR(L"Copy")));
    EXPECT_EQ(L"1280", Read(L"Copy", L"width"));
    EXPECT_EQ(L"600", Read(L"SUITE/APP/PANE", L"height"));
}

INSTANTIATE_TEST_SUITE_P(Layers, EnvironmentTransferTest, ::testing::Values(true, false),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return std::string(info.param ? "Cached" : "Uncached");
                         });

TEST(ReadAllSelfListing, AStorageThatListsTheRootAndAKeyTwiceHasEachReadOnce)
{
    RecordingStorage* storage = RecordingStorage::Create();
    XComPtr<IWQ_SessionDataStorage> owner;
    owner.Attach(storage->Storage());
    storage->SetRecords(L"root", {{L"a", L"1"}});
    storage->SetRecords(L"root/child", {{L"b", L"2"}});
    storage->SetSubKeys(L"Root", {L"Root", L"root/child", L"ROOT\\CHILD", L"root/"});

    XKeyValueArray records;
    ASSERT_EQ(S_OK, XReadAllStorageData(storage->Storage(), XSdmReporter("test", GUID_NULL), XWQComBSTR(L"Root"),
                                        records.CountAddress(), records.ItemsAddress()));
    ASSERT_EQ(2u, records.Count());
    EXPECT_STREQ(L"root", records[0].bstrKeyName);
    EXPECT_STREQ(L"root/child", records[1].bstrKeyName);
    EXPECT_EQ(2u, storage->CountCalls("ReadData"));
}
