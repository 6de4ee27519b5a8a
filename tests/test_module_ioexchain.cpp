// The database layer as deployed: manager -> database IO layer -> storage root, the root being
// an extended IO layer over a recording storage that lives in a single-threaded apartment of
// its own. The root is registered in the Global Interface Table there and fetched here, in the
// multithreaded apartment, so every forwarded call crosses the proxy/stub.
#include "iotesthelpers.h"
#include "mallocspy.h"
#include "rootapartment.h"
#include "moduletest.h"
#include "xcomtypes.h"

#include <gtest/gtest.h>

namespace
{
const SESSIONDATATYPE kCategory = static_cast<SESSIONDATATYPE>(2);

// The manager with the category bound to a database layer over the root's proxy.
struct DeployedChain
{
    explicit DeployedChain(const RootApartment& apartment)
    {
        root = apartment.RootForThisThread();
        manager = CreateByProgId<IWQ_SessionDataMng>(L"WQSessionDataMng.WQSessionDataMng");
        io = CreateByProgId<IWQ_SessionDataIOExDB>(L"WQSessionDataMng.WQ_SessionDataIOExDB");
        if (root && manager && io && SUCCEEDED(io->SetRoot(root.Get())))
            bound = manager->SetStorageIO(io.Get(), kCategory);
    }
    XComPtr<IWQ_SessionDataIOEx> root;
    XComPtr<IWQ_SessionDataMng> manager;
    XComPtr<IWQ_SessionDataIOExDB> io;
    HRESULT bound = E_FAIL;
};

HRESULT WriteText(IWQ_SessionDataMng* manager, const wchar_t* key, const wchar_t* name, const wchar_t* text)
{
    XVariant value;
    value.Get().vt = VT_BSTR;
    value.Get().bstrVal = ::SysAllocString(text);
    return manager->WriteData(XWQComBSTR(key), XWQComBSTR(name), value.Get(), kCategory);
}

std::wstring ReadText(IWQ_SessionDataMng* manager, const wchar_t* key, const wchar_t* name, HRESULT* hr = nullptr)
{
    XVariant value;
    const HRESULT result = manager->GetData(XWQComBSTR(key), XWQComBSTR(name), VT_BSTR, &value.Get(), kCategory);
    if (hr)
        *hr = result;
    return value.Get().vt == VT_BSTR && value.Get().bstrVal ? value.Get().bstrVal : L"";
}

void ChainCycle(IWQ_SessionDataMng* manager)
{
    WriteText(manager, L"App\\Win", L"Left", L"10");
    ReadText(manager, L"app\\win", L"left");
    ReadText(manager, L"app\\win", L"missing");
    XValueArray list;
    manager->GetStringList(XWQComBSTR(L"app\\win"), list.CountAddress(), list.ItemsAddress(), kCategory);
    list.Reset();
    XBstrArray names;
    manager->GetSubKeys(XWQComBSTR(L"app"), 1, names.CountAddress(), names.ItemsAddress(), kCategory);
    names.Reset();
    manager->DeleteKey(XWQComBSTR(L"App\\Win"), kCategory);
    manager->FlushCache(kCategory);
}
} // namespace

TEST(DatabaseChain, CallsCrossTheApartmentToTheRoot)
{
    RootApartment apartment;
    ASSERT_EQ(S_OK, apartment.Setup());
    DeployedChain chain(apartment);
    ASSERT_TRUE(chain.root);
    EXPECT_NE(apartment.RawRoot(), chain.root.Get());  // a proxy, not the object
    ASSERT_EQ(S_OK, chain.bound);

    ASSERT_EQ(S_OK, WriteText(chain.manager.Get(), L"App\\Win", L"Left", L"10"));
    EXPECT_EQ(1u, apartment.Storage().CountCalls("StoreData(App\\Win|1|left=10)"));
    HRESULT hr = E_FAIL;
    EXPECT_EQ(L"10", ReadText(chain.manager.Get(), L"app\\win", L"left", &hr));
    EXPECT_EQ(S_OK, hr);
    EXPECT_EQ(L"", ReadText(chain.manager.Get(), L"app\\win", L"missing", &hr));
    EXPECT_EQ(S_FALSE, hr);

    XValueArray list;
    EXPECT_EQ(S_OK, chain.manager->GetStringList(XWQComBSTR(L"app\\win"), list.CountAddress(), list.ItemsAddress(),
                                                 kCategory));
    ASSERT_EQ(1u, list.Count());
    EXPECT_EQ("left=10", RecordText(list.Items()[0]));

    apartment.Storage().SetSubKeys(L"app", {L"app/win", L"app/doc"});
    XBstrArray names;
    EXPECT_EQ(S_OK, chain.manager->GetSubKeys(XWQComBSTR(L"app"), 1, names.CountAddress(), names.ItemsAddress(),
                                              kCategory));
    ASSERT_EQ(2u, names.Count());
    EXPECT_STREQ(L"app/doc", names.Items()[1]);

    SDM_STORAGE_TYPE kind = static_cast<SDM_STORAGE_TYPE>(0);
    EXPECT_EQ(S_OK, chain.manager->GetStorageType(kCategory, &kind));
    EXPECT_EQ(1, static_cast<int>(kind));  // the root's own kind

    EXPECT_EQ(S_OK, chain.manager->DeleteKey(XWQComBSTR(L"App\\Win"), kCategory));
    EXPECT_EQ(1u, apartment.Storage().CountCalls("DeleteKey(App\\Win)"));
    // The root's cache forgot the key: the next read asks its storage.
    EXPECT_EQ(L"", ReadText(chain.manager.Get(), L"app/win", L"left", &hr));
    EXPECT_EQ(1u, apartment.Storage().CountCalls("ReadData(app/win)"));
}

TEST(DatabaseChain, ObjectDataCrossesTheApartment)
{
    RootApartment apartment;
    ASSERT_EQ(S_OK, apartment.Setup());
    apartment.Storage().SetObjectRecords(L"doc", {{L"title", L"report"}});
    DeployedChain chain(apartment);
    ASSERT_EQ(S_OK, chain.bound);
    XVariant value;
    value.Get().vt = VT_BSTR;
    value.Get().bstrVal = ::SysAllocString(L"v");
    EXPECT_EQ(S_OK, chain.manager->WriteObjectData(nullptr, XWQComBSTR(L"doc"), XWQComBSTR(L"Title"), value.Get(),
                                                   kCategory));
    EXPECT_EQ(1u, apartment.Storage().CountCalls("StoreObjectData(doc|Title=v)"));
    XVariant read;
    EXPECT_EQ(S_OK, chain.manager->GetObjectData(nullptr, XWQComBSTR(L"doc"), XWQComBSTR(L"title"), VT_BSTR,
                                                 &read.Get(), kCategory));
    ASSERT_EQ(VT_BSTR, read.Get().vt);
    EXPECT_STREQ(L"report", read.Get().bstrVal);
    EXPECT_EQ(S_OK, chain.manager->DeleteObjectKey(nullptr, XWQComBSTR(L"doc"), kCategory));
    EXPECT_EQ(1u, apartment.Storage().CountCalls("DeleteObjectKey(doc)"));
}

TEST(DatabaseChain, ALostRootIsReportedAndNothingLeaks)
{
    RootApartment apartment;
    ASSERT_EQ(S_OK, apartment.Setup());
    DeployedChain chain(apartment);
    ASSERT_EQ(S_OK, chain.bound);
    ChainCycle(chain.manager.Get());  // once-per-process strings and proxies are made here
    {
        ScopedMallocSpy spy;
        ASSERT_TRUE(spy.Registered());
        // Reads only: Wine's stubs keep a block per [in] record array across apartments. The
        // first call after the spy is registered leaves one block of Wine's own behind (the
        // count does not grow with the number of calls), so the check is for growth.
        const auto round = [&chain] {
            ReadText(chain.manager.Get(), L"app\\win", L"left");
            XValueArray list;
            chain.manager->GetStringList(XWQComBSTR(L"app\\win"), list.CountAddress(), list.ItemsAddress(),
                                         kCategory);
        };
        round();
        const size_t baseline = spy.Outstanding();
        EXPECT_LE(baseline, 1u);
        for (int i = 0; i < 10; ++i)
            round();
        EXPECT_EQ(baseline, spy.Outstanding());
    }
    ASSERT_EQ(S_OK, chain.io->SetRoot(nullptr));
    HRESULT hr = S_OK;
    ReadText(chain.manager.Get(), L"k", L"n", &hr);
    EXPECT_EQ(E_POINTER, hr);
}
