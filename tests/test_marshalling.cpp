// The interfaces marshal across apartments: objects live in a message-pumping single-threaded
// apartment, are registered in the Global Interface Table and are called from the test's
// multithreaded apartment through proxies.
#include "mallocspy.h"
#include "moduletest.h"
#include "staapartment.h"
#include "xcomtypes.h"

#include <gtest/gtest.h>
#include <thread>

namespace
{
// A storage that answers fixed data, so record, key and nested key arrays cross the proxy.
class FixedStorage : public IWQ_SessionDataStorage
{
public:
    HRESULT InternalQueryInterface(REFIID iid, void** ppv)
    {
        return XQueryInterfaces<IWQ_SessionDataStorage>(this, iid, ppv);
    }
    virtual ~FixedStorage() = default;
    STDMETHODIMP StoreData(BSTR key, ULONG count, tagSESSIONDATAVALUE* list) override
    {
        stored = count;
        lastKey = key ? key : L"";
        lastName = count && list[0].bstrValueName ? list[0].bstrValueName : L"";
        return S_OK;
    }
    STDMETHODIMP ReadData(BSTR, ULONG* count, tagSESSIONDATAVALUE** list) override
    {
        *count = 2;
        *list = Records(2, L"r");
        return S_OK;
    }
    STDMETHODIMP GetSubKeys(BSTR key, ULONG, ULONG* count, BSTR** names) override
    {
        *count = 3;
        *names = static_cast<BSTR*>(::CoTaskMemAlloc(3 * sizeof(BSTR)));
        for (int i = 0; i < 3; ++i)
            (*names)[i] = ::SysAllocString((std::wstring(key) + L"/sub" + std::to_wstring(i)).c_str());
        return S_OK;
    }
    STDMETHODIMP ReadAllData(BSTR, ULONG* count, tagKEY_SESSIONDATAVALUE** list) override
    {
        *count = 2;
        *list = static_cast<tagKEY_SESSIONDATAVALUE*>(::CoTaskMemAlloc(2 * sizeof(tagKEY_SESSIONDATAVALUE)));
        for (ULONG i = 0; i < 2; ++i)
        {
            (*list)[i].bstrKeyName = ::SysAllocString((L"key" + std::to_wstring(i)).c_str());
            (*list)[i].ulCount = i + 1;
            (*list)[i].pSessionDataValue = Records(i + 1, L"k" + std::to_wstring(i));
        }
        return S_OK;
    }
    STDMETHODIMP FlushAsyncStorage() override { return S_OK; }
    STDMETHODIMP GetLastErrorAsyncExecution(HRESULT* result) override
    {
        *result = E_ACCESSDENIED;
        return S_OK;
    }

    ULONG stored = 0;
    std::wstring lastKey, lastName;

private:
    static tagSESSIONDATAVALUE* Records(ULONG n, const std::wstring& prefix)
    {
        auto* records = static_cast<tagSESSIONDATAVALUE*>(::CoTaskMemAlloc(n * sizeof(tagSESSIONDATAVALUE)));
        for (ULONG i = 0; i < n; ++i)
        {
            records[i].bstrValueName = ::SysAllocString((prefix + L"name" + std::to_wstring(i)).c_str());
            records[i].bstrValue = ::SysAllocString((prefix + L"value" + std::to_wstring(i)).c_str());
        }
        return records;
    }
};

// Runs a single-threaded apartment that creates the objects, registers them in the GIT and
// pumps messages until told to stop.
class StaHost
{
public:
    StaHost()
    {
        m_ready = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
        m_stop = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
        m_thread = std::thread([this] { Run(); });
        ::WaitForSingleObject(m_ready, 30000);
    }
    ~StaHost()
    {
        ::SetEvent(m_stop);
        m_thread.join();
        ::CloseHandle(m_ready);
        ::CloseHandle(m_stop);
    }
    DWORD managerCookie = 0, storageCookie = 0;
    HRESULT setup = E_FAIL;
    DWORD staThread = 0;
    FixedStorage* storage = nullptr;

private:
    void Run()
    {
        ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        staThread = ::GetCurrentThreadId();
        XComPtr<IGlobalInterfaceTable> git;
        XComPtr<IWQ_SessionDataMng> manager;
        XComPtr<IWQ_SessionDataStorage> volatileStorage;
        XComPtr<IWQ_SessionDataStorage> fixed;
        setup = ::CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr, CLSCTX_INPROC_SERVER,
                                   IID_IGlobalInterfaceTable, reinterpret_cast<void**>(git.ReleaseAndGetAddressOf()));
        if (SUCCEEDED(setup))
            setup = ::CoCreateInstance(CLSID_WQ_SessionDataMng, nullptr, CLSCTX_INPROC_SERVER, IID_IWQ_SessionDataMng,
                                       reinterpret_cast<void**>(manager.ReleaseAndGetAddressOf()));
        if (SUCCEEDED(setup))
            setup = ::CoCreateInstance(CLSID_WQ_SessionDataStorageVolatile, nullptr, CLSCTX_INPROC_SERVER,
                                       IID_IWQ_SessionDataStorage,
                                       reinterpret_cast<void**>(volatileStorage.ReleaseAndGetAddressOf()));
        if (SUCCEEDED(setup))
        {
            storage = new XComObject<FixedStorage>();
            fixed = storage;
            setup = manager->SetStorage(volatileStorage.Get(), static_cast<SESSIONDATATYPE>(5), 1);
        }
        if (SUCCEEDED(setup))
            setup = manager->SetStorage(fixed.Get(), static_cast<SESSIONDATATYPE>(2), 0);
        if (SUCCEEDED(setup))
            setup = git->RegisterInterfaceInGlobal(manager.Get(), IID_IWQ_SessionDataMng, &managerCookie);
        if (SUCCEEDED(setup))
            setup = git->RegisterInterfaceInGlobal(fixed.Get(), IID_IWQ_SessionDataStorage, &storageCookie);
        ::SetEvent(m_ready);
        PumpMessagesUntil(m_stop);
        if (git)
        {
            git->RevokeInterfaceFromGlobal(managerCookie);
            git->RevokeInterfaceFromGlobal(storageCookie);
        }
        fixed.Reset();
        volatileStorage.Reset();
        manager.Reset();
        git.Reset();
        ::CoUninitialize();
    }

    HANDLE m_ready, m_stop;
    std::thread m_thread;
};

template <class I>
XComPtr<I> FromGit(DWORD cookie)
{
    XComPtr<IGlobalInterfaceTable> git = GlobalInterfaceTable();
    XComPtr<I> out;
    EXPECT_TRUE(git);
    EXPECT_EQ(S_OK, git->GetInterfaceFromGlobal(cookie, __uuidof(I), reinterpret_cast<void**>(out.ReleaseAndGetAddressOf())));
    return out;
}
} // namespace

TEST(Marshalling, ManagerCallsOfEveryShapeCrossApartments)
{
    StaHost host;
    ASSERT_EQ(S_OK, host.setup);
    XComPtr<IWQ_SessionDataMng> manager = FromGit<IWQ_SessionDataMng>(host.managerCookie);
    ASSERT_TRUE(manager);
    const SESSIONDATATYPE volatileCategory = static_cast<SESSIONDATATYPE>(5);

    // The proxy is not the object: calls really cross to the apartment's thread.
    XComPtr<IUnknown> proxyManager;
    ASSERT_EQ(S_OK, manager.As(proxyManager));
    XComPtr<IMarshal> standardMarshal;
    EXPECT_EQ(S_OK, proxyManager.As(standardMarshal));

    XVariant in;
    in.Get().vt = VT_R8;
    in.Get().dblVal = 2.5;
    EXPECT_EQ(S_OK, manager->WriteData(XWQComBSTR(L"Users/A"), XWQComBSTR(L"Ratio"), in.Get(), volatileCategory));
    XVariant out;
    EXPECT_EQ(S_OK, manager->GetData(XWQComBSTR(L"Users/A"), XWQComBSTR(L"Ratio"), VT_R8, &out, volatileCategory));
    EXPECT_EQ(VT_R8, out.Get().vt);
    EXPECT_DOUBLE_EQ(2.5, out.Get().dblVal);
    XVariant text;
    EXPECT_EQ(S_OK, manager->GetDataVB(XWQComBSTR(L"Users/A"), XWQComBSTR(L"Ratio"), volatileCategory, &text));
    EXPECT_STREQ(L"2.5", text.Get().bstrVal);

    tagSESSIONDATAVALUE records[2] = {{::SysAllocString(L"b"), ::SysAllocString(L"2")},
                                      {::SysAllocString(L"c"), ::SysAllocString(L"3")}};
    EXPECT_EQ(S_OK, manager->WriteStringList(XWQComBSTR(L"Users/A"), 2, records, volatileCategory));
    XFreeValueRecords(records, 2);
    XValueArray list;
    ASSERT_EQ(S_OK, manager->GetStringList(XWQComBSTR(L"Users/A"), list.CountAddress(), list.ItemsAddress(),
                                           volatileCategory));
    ASSERT_EQ(3u, list.Count());
    EXPECT_STREQ(L"b", list[0].bstrValueName);
    EXPECT_STREQ(L"3", list[1].bstrValue);
    EXPECT_STREQ(L"ratio", list[2].bstrValueName);

    XBstrArray keys;
    ASSERT_EQ(S_OK, manager->GetSubKeys(XWQComBSTR(L"Root"), 1, keys.CountAddress(), keys.ItemsAddress(),
                                        static_cast<SESSIONDATATYPE>(2)));
    ASSERT_EQ(3u, keys.Count());
    EXPECT_STREQ(L"Root/sub2", keys[2]);

    HRESULT async = S_OK;
    EXPECT_EQ(S_OK, manager->GetLastErrorAsyncExecution(static_cast<SESSIONDATATYPE>(2), &async));
    EXPECT_EQ(E_ACCESSDENIED, async);
    SDM_STORAGE_TYPE kind = static_cast<SDM_STORAGE_TYPE>(0);
    EXPECT_EQ(S_OK, manager->GetStorageType(volatileCategory, &kind));
    EXPECT_EQ(5, static_cast<int>(kind));

    // Failures cross too; a null [out] pointer is refused by the proxy itself.
    EXPECT_EQ(HRESULT_FROM_WIN32(RPC_X_NULL_REF_POINTER), manager->GetLastErrorAsyncExecution(volatileCategory, nullptr));
    XVariant bad;
    bad.Get().vt = VT_NULL;
    EXPECT_EQ(E_INVALIDARG, manager->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), bad.Get(), volatileCategory));
}

TEST(Marshalling, NestedKeyArraysCrossApartments)
{
    StaHost host;
    ASSERT_EQ(S_OK, host.setup);
    XComPtr<IWQ_SessionDataStorage> storage = FromGit<IWQ_SessionDataStorage>(host.storageCookie);
    ASSERT_TRUE(storage);
    XKeyValueArray all;
    ASSERT_EQ(S_OK, storage->ReadAllData(XWQComBSTR(L""), all.CountAddress(), all.ItemsAddress()));
    ASSERT_EQ(2u, all.Count());
    EXPECT_STREQ(L"key1", all[1].bstrKeyName);
    ASSERT_EQ(2u, all[1].ulCount);
    EXPECT_STREQ(L"k1name1", all[1].pSessionDataValue[1].bstrValueName);
    EXPECT_STREQ(L"k1value1", all[1].pSessionDataValue[1].bstrValue);
    XValueArray read;
    ASSERT_EQ(S_OK, storage->ReadData(XWQComBSTR(L"x"), read.CountAddress(), read.ItemsAddress()));
    EXPECT_EQ(2u, read.Count());
    tagSESSIONDATAVALUE one = {::SysAllocString(L"n"), ::SysAllocString(L"v")};
    EXPECT_EQ(S_OK, storage->StoreData(XWQComBSTR(L"K"), 1, &one));
    XFreeValueRecords(&one, 1);
    EXPECT_EQ(1u, host.storage->stored);
    EXPECT_EQ(L"n", host.storage->lastName);
}

TEST(Marshalling, RepeatedCrossApartmentCallsLeakNothing)
{
    StaHost host;
    ASSERT_EQ(S_OK, host.setup);
    XComPtr<IWQ_SessionDataStorage> storage = FromGit<IWQ_SessionDataStorage>(host.storageCookie);
    XComPtr<IWQ_SessionDataMng> manager = FromGit<IWQ_SessionDataMng>(host.managerCookie);
    auto round = [&] {
        XKeyValueArray all;
        ASSERT_EQ(S_OK, storage->ReadAllData(XWQComBSTR(L""), all.CountAddress(), all.ItemsAddress()));
        XBstrArray keys;
        ASSERT_EQ(S_OK, manager->GetSubKeys(XWQComBSTR(L"Root"), 1, keys.CountAddress(), keys.ItemsAddress(),
                                            static_cast<SESSIONDATATYPE>(2)));
        XValueArray list;
        ASSERT_EQ(S_OK, manager->GetStringList(XWQComBSTR(L"k"), list.CountAddress(), list.ItemsAddress(),
                                               static_cast<SESSIONDATATYPE>(5)));
    };
    // Writes stay out of the count: Wine's stubs keep one block per call for an [in] VARIANT or
    // [in] record array on the server side, while the same writes in-process free everything.
    tagSESSIONDATAVALUE record = {::SysAllocString(L"v"), ::SysAllocString(L"7")};
    ASSERT_EQ(S_OK, manager->WriteStringList(XWQComBSTR(L"k"), 1, &record, static_cast<SESSIONDATATYPE>(5)));
    XFreeValueRecords(&record, 1);
    round();
    round();
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    for (int i = 0; i < 10; ++i)
        round();
    EXPECT_EQ(0u, spy.Outstanding());
}
