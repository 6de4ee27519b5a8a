// The IO layers' pointer checks: E_POINTER with error info (GUID = the class identity, which
// is WQ_SessionDataIOCache for both layers) and a log book entry at the named location.
#include "iotesthelpers.h"
#include "testenv.h"
#include "xcomtypes.h"
#include "xsessiondataio.h"
#include "xsessiondataionocache.h"

#include <gtest/gtest.h>

#include <functional>

namespace
{
// Runs call, expects E_POINTER with readable error info and a log line naming the location.
void ExpectPointerError(const std::function<HRESULT()>& call, const char* function, const char* unit)
{
    ClearLogBook();
    SetMarkerErrorInfo(L"marker");
    EXPECT_EQ(E_POINTER, call());
    const ErrorInfoText info = TakeErrorInfo();
    ASSERT_TRUE(info.present);
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataIOCache, info.guid));
    EXPECT_NE(L"marker", info.description);
    EXPECT_FALSE(info.description.empty());
    EXPECT_EQ(L"WQSessionDataMng", info.source);
    bool logged = false;
    for (const std::string& line : ReadLogBook())
        logged = logged || (line.find(function) != std::string::npos && line.find(unit) != std::string::npos);
    EXPECT_TRUE(logged) << function << " in " << unit;
}

class IOErrorsTest : public ::testing::Test
{
protected:
    StorageRef storage;
    XComPtr<IWQ_SessionDataIO> cached = NewIO<XSessionDataIO>(storage.Get());
    XComPtr<IWQ_SessionDataIO> uncached = NewIO<XSessionDataIONoCache>(storage.Get());
    ULONG count = 0;
    tagSESSIONDATAVALUE* list = nullptr;
    tagKEY_SESSIONDATAVALUE* all = nullptr;
    BSTR* names = nullptr;
    XWQComBSTR key{L"k"};
};
} // namespace

TEST_F(IOErrorsTest, CachedGetDataWithNullOutString)
{
    ExpectPointerError([&] { return cached->GetData(key, key, nullptr); }, "XSessionDataIO::GetData",
                       "xsessiondataio");
}

TEST_F(IOErrorsTest, CachedGetStringListWithNullCountOrList)
{
    ExpectPointerError([&] { return cached->GetStringList(key, nullptr, &list); }, "XSessionDataIO::GetStringList",
                       "xsessiondataio");
    ExpectPointerError([&] { return cached->GetStringList(key, &count, nullptr); }, "XSessionDataIO::GetStringList",
                       "xsessiondataio");
    EXPECT_TRUE(storage->Calls().empty());
}

TEST_F(IOErrorsTest, CachedGetSubKeysWithNullCountOrList)
{
    ExpectPointerError([&] { return cached->GetSubKeys(key, 0, nullptr, &names); }, "XSessionDataIO::GetSubKeys",
                       "xsessiondataio");
    ExpectPointerError([&] { return cached->GetSubKeys(key, 0, &count, nullptr); }, "XSessionDataIO::GetSubKeys",
                       "xsessiondataio");
    EXPECT_TRUE(storage->Calls().empty());
}

TEST_F(IOErrorsTest, CachedGetAllDataWithNullCountOrList)
{
    ExpectPointerError([&] { return cached->GetAllData(key, nullptr, &all); }, "XSessionDataIO::GetAllData",
                       "xsessiondataio");
    ExpectPointerError([&] { return cached->GetAllData(key, &count, nullptr); }, "XSessionDataIO::GetAllData",
                       "xsessiondataio");
    EXPECT_TRUE(storage->Calls().empty());
}

TEST_F(IOErrorsTest, UncachedGetStringListWithNullCountOrList)
{
    ExpectPointerError([&] { return uncached->GetStringList(key, nullptr, &list); },
                       "XSessionDataIONoCache::GetStringList", "xsessiondataionocache");
    ExpectPointerError([&] { return uncached->GetStringList(key, &count, nullptr); },
                       "XSessionDataIONoCache::GetStringList", "xsessiondataionocache");
}

TEST_F(IOErrorsTest, UncachedGetSubKeysWithNullCountOrList)
{
    ExpectPointerError([&] { return uncached->GetSubKeys(key, 0, nullptr, &names); },
                       "XSessionDataIONoCache::GetSubKeys", "xsessiondataionocache");
    ExpectPointerError([&] { return uncached->GetSubKeys(key, 0, &count, nullptr); },
                       "XSessionDataIONoCache::GetSubKeys", "xsessiondataionocache");
}

TEST_F(IOErrorsTest, UncachedGetAllDataReportsUnderTheCachedClassName)
{
    ExpectPointerError([&] { return uncached->GetAllData(key, nullptr, &all); }, "XSessionDataIO::GetAllData",
                       "xsessiondataionocache");
    ExpectPointerError([&] { return uncached->GetAllData(key, &count, nullptr); }, "XSessionDataIO::GetAllData",
                       "xsessiondataionocache");
    // The check comes before the flush.
    EXPECT_EQ(0u, storage->CountCalls("FlushAsyncStorage"));
}

TEST(IOErrors, UnboundLayersAnswerSFalseBeforeCheckingPointers)
{
    for (const XComPtr<IWQ_SessionDataIO>& io : {NewIO<XSessionDataIO>(), NewIO<XSessionDataIONoCache>()})
    {
        ::SetErrorInfo(0, nullptr);
        EXPECT_EQ(S_FALSE, io->GetSubKeys(XWQComBSTR(L"k"), 0, nullptr, nullptr));
        EXPECT_EQ(S_FALSE, io->GetAllData(XWQComBSTR(L"k"), nullptr, nullptr));
        EXPECT_FALSE(TakeErrorInfo().present);
    }
}

TEST(IOErrors, SupportErrorInfoForTheIOInterfaceOnly)
{
    for (const XComPtr<IWQ_SessionDataIO>& io : {NewIO<XSessionDataIO>(), NewIO<XSessionDataIONoCache>()})
    {
        XComPtr<ISupportErrorInfo> support;
        ASSERT_EQ(S_OK, io.As(support));
        EXPECT_EQ(S_OK, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataIO));
        EXPECT_EQ(S_FALSE, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataMng));
    }
}

TEST(IOErrors, StorageFailuresPassUnchangedWithoutErrorInfo)
{
    StorageRef storage;
    storage->SetResult("ReadData", E_ACCESSDENIED);
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIO>(storage.Get());
    ::SetErrorInfo(0, nullptr);
    EXPECT_EQ(E_ACCESSDENIED, Read(io.Get(), L"k", L"n").hr);
    EXPECT_FALSE(TakeErrorInfo().present);
}

TEST(IOErrors, ClassIdentityOfBothLayersIsTheCachedClass)
{
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataIOCache, XSessionDataIO::ObjectClsid()));
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataIOCache, XSessionDataIONoCache::ObjectClsid()));
}
