// Marshalling across processes: a local-server test host (another process, activated by COM
// through its LocalServer32 registration) serves the module's manager and a cached IO layer;
// calls of every shape reach it through the module's proxy/stub.
#include "localserver/localserverhost.h"
#include "moduletest.h"
#include "xcomtypes.h"

#include <gtest/gtest.h>

namespace
{
std::wstring HostPath()
{
    return BinaryPath(L"wq_localserver_host.exe");
}

// Registers the host (HKEY_CLASSES_ROOT\CLSID, where Wine looks for servers) for the test's
// lifetime, and stops the host at the end.
class LocalServerRegistration
{
public:
    LocalServerRegistration()
    {
        m_key = L"CLSID\\" + GuidText(CLSID_WQTestLocalServerHost);
        HKEY key = nullptr;
        const std::wstring server = m_key + L"\\LocalServer32";
        const std::wstring events = L"Local\\WQSdmLocalServerHost." + std::to_wstring(::GetCurrentProcessId());
        const std::wstring path = L"\"" + HostPath() + L"\" " + events;
        m_ok = ::RegCreateKeyExW(HKEY_CLASSES_ROOT, server.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr) ==
                   ERROR_SUCCESS &&
               ::RegSetValueExW(key, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(path.c_str()),
                                static_cast<DWORD>((path.size() + 1) * sizeof(wchar_t))) == ERROR_SUCCESS;
        if (key)
            ::RegCloseKey(key);
        m_stop = ::CreateEventW(nullptr, TRUE, FALSE, (events + L".stop").c_str());
        m_done = ::CreateEventW(nullptr, TRUE, FALSE, (events + L".done").c_str());
        m_rootGone = ::CreateEventW(nullptr, TRUE, FALSE, (events + L".rootgone").c_str());
    }
    ~LocalServerRegistration()
    {
        // A host that was started ends; wait until its class object is gone.
        ::SetEvent(m_stop);
        if (m_started)
            ::WaitForSingleObject(m_done, 30000);
        ::CloseHandle(m_stop);
        ::CloseHandle(m_done);
        ::CloseHandle(m_rootGone);
        ::RegDeleteTreeW(HKEY_CLASSES_ROOT, m_key.c_str());
        ::RegDeleteTreeW(HKEY_CURRENT_USER, WQ_LOCALSERVER_APP_KEY);
    }
    bool Ok() const { return m_ok; }
    void HostStarted() { m_started = true; }
    // Set by the host when a storage root it handed out is destroyed.
    HANDLE RootGone() const { return m_rootGone; }

private:
    std::wstring m_key;
    bool m_ok = false;
    HANDLE m_stop = nullptr;
    HANDLE m_done = nullptr;
    HANDLE m_rootGone = nullptr;
    bool m_started = false;
};

template <class I>
HRESULT CreateInHost(XComPtr<I>& out)
{
    return ::CoCreateInstance(CLSID_WQTestLocalServerHost, nullptr, CLSCTX_LOCAL_SERVER, __uuidof(I),
                              reinterpret_cast<void**>(out.ReleaseAndGetAddressOf()));
}

const SESSIONDATATYPE kVolatile = static_cast<SESSIONDATATYPE>(5);
const SESSIONDATATYPE kRegistry = static_cast<SESSIONDATATYPE>(2);
} // namespace

TEST(LocalServer, ManagerCallsOfEveryShapeCrossProcesses)
{
    LocalServerRegistration registration;
    ASSERT_TRUE(registration.Ok());
    XComPtr<IWQ_SessionDataMng> manager;
    ASSERT_EQ(S_OK, CreateInHost(manager));
    registration.HostStarted();
    XComPtr<IMarshal> proxy;
    EXPECT_EQ(S_OK, manager.As(proxy));  // a proxy of the standard marshaller, not the object

    XVariant in;
    in.Get().vt = VT_R8;
    in.Get().dblVal = 2.5;
    EXPECT_EQ(S_OK, manager->WriteData(XWQComBSTR(L"Users/A"), XWQComBSTR(L"Ratio"), in.Get(), kVolatile));
    XVariant out;
    EXPECT_EQ(S_OK, manager->GetData(XWQComBSTR(L"Users/A"), XWQComBSTR(L"Ratio"), VT_R8, &out.Get(), kVolatile));
    EXPECT_EQ(VT_R8, out.Get().vt);
    EXPECT_DOUBLE_EQ(2.5, out.Get().dblVal);

    tagSESSIONDATAVALUE records[2] = {{::SysAllocString(L"b"), ::SysAllocString(L"2")},
                                      {::SysAllocString(L"c"), ::SysAllocString(L"3")}};
    EXPECT_EQ(S_OK, manager->WriteStringList(XWQComBSTR(L"Users/A"), 2, records, kVolatile));
    XFreeValueRecords(records, 2);
    XValueArray list;
    ASSERT_EQ(S_OK, manager->GetStringList(XWQComBSTR(L"Users/A"), list.CountAddress(), list.ItemsAddress(), kVolatile));
    ASSERT_EQ(3u, list.Count());
    EXPECT_STREQ(L"b", list[0].bstrValueName);
    EXPECT_STREQ(L"3", list[1].bstrValue);
    EXPECT_STREQ(L"ratio", list[2].bstrValueName);

    // The registry category: written in the host, listed as key arrays here.
    EXPECT_EQ(S_OK, manager->WriteData(XWQComBSTR(L"Root\\Sub1"), XWQComBSTR(L"n"), in.Get(), kRegistry));
    EXPECT_EQ(S_OK, manager->WriteData(XWQComBSTR(L"Root\\Sub2"), XWQComBSTR(L"n"), in.Get(), kRegistry));
    XBstrArray keys;
    ASSERT_EQ(S_OK, manager->GetSubKeys(XWQComBSTR(L"Root"), 1, keys.CountAddress(), keys.ItemsAddress(), kRegistry));
    EXPECT_EQ(2u, keys.Count());

    SDM_STORAGE_TYPE kind = static_cast<SDM_STORAGE_TYPE>(0);
    EXPECT_EQ(S_OK, manager->GetStorageType(kVolatile, &kind));
    EXPECT_EQ(5, static_cast<int>(kind));
    XVariant bad;
    bad.Get().vt = VT_NULL;
    EXPECT_EQ(E_INVALIDARG, manager->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), bad.Get(), kVolatile));
}

TEST(LocalServer, NestedKeyArraysCrossProcesses)
{
    LocalServerRegistration registration;
    ASSERT_TRUE(registration.Ok());
    XComPtr<IWQ_SessionDataIO> io;
    ASSERT_EQ(S_OK, CreateInHost(io));
    registration.HostStarted();
    ASSERT_EQ(S_OK, io->WriteData(XWQComBSTR(L"All\\One"), XWQComBSTR(L"a"), XWQComBSTR(L"1")));
    ASSERT_EQ(S_OK, io->WriteData(XWQComBSTR(L"All\\Two"), XWQComBSTR(L"b"), XWQComBSTR(L"2")));
    XKeyValueArray all;
    ASSERT_EQ(S_OK, io->GetAllData(XWQComBSTR(L"All"), all.CountAddress(), all.ItemsAddress()));
    ASSERT_EQ(2u, all.Count());
    std::wstring seen;
    for (ULONG i = 0; i < all.Count(); ++i)
    {
        ASSERT_EQ(1u, all[i].ulCount);
        seen += std::wstring(all[i].pSessionDataValue[0].bstrValueName) + L"=" + all[i].pSessionDataValue[0].bstrValue +
                L";";
    }
    EXPECT_NE(std::wstring::npos, seen.find(L"a=1;"));
    EXPECT_NE(std::wstring::npos, seen.find(L"b=2;"));
}

TEST(LocalServer, ReleasingTheDatabaseStorageReleasesItsRootInAnotherProcess)
{
    LocalServerRegistration registration;
    ASSERT_TRUE(registration.Ok());
    XComPtr<IWQ_SessionDataIOEx> root;
    ASSERT_EQ(S_OK, CreateInHost(root));
    registration.HostStarted();
    {
        XComPtr<IWQ_SessionDataStorageDb> storage;
        ASSERT_EQ(S_OK, ::CoCreateInstance(CLSID_WQ_SessionDataStorageDb, nullptr, CLSCTX_INPROC_SERVER,
                                           IID_IWQ_SessionDataStorageDb,
                                           reinterpret_cast<void**>(storage.ReleaseAndGetAddressOf())));
        ASSERT_EQ(S_OK, storage->SetRoot(root.Get()));
        ASSERT_EQ(S_OK, storage->SetRootKey(XWQComBSTR(L"Suite\\App")));
        ASSERT_EQ(S_OK, storage->SetAsyncWriteMode(120));
        tagSESSIONDATAVALUE record{::SysAllocString(L"n"), ::SysAllocString(L"v")};
        EXPECT_EQ(S_OK, storage->StoreData(XWQComBSTR(L"k"), 1, &record));
        XFreeValueRecords(&record, 1);
        EXPECT_EQ(S_OK, storage->FlushAsyncStorage());
    }
    root.Reset();
    // The client holds nothing of the root any more: its server sees the last reference go.
    EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(registration.RootGone(), 10000));
}
