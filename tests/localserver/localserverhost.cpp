// Local-server test host: registers a class object for CLSID_WQTestLocalServerHost and serves
// the module's objects from this process until told to stop, so a test in another process can
// call them through the module's proxy/stub.
#include "localserverhost.h"

#include "sessiondataioexnotimpl.h"
#include "xcomobject.h"
#include "xsessiondatamng_h.h"

#include <string>

namespace
{
// Set when a root that this host handed out is destroyed.
HANDLE g_rootGone = nullptr;

// A storage root that takes every piped call; its end is announced, so that a client can tell
// whether every reference to it was released.
class LifetimeRoot : public SessionDataIOExNotImpl
{
public:
    ~LifetimeRoot() override
    {
        if (g_rootGone)
            ::SetEvent(g_rootGone);
    }
    HRESULT InternalQueryInterface(REFIID iid, void** ppv)
    {
        return XQueryInterfaces<IWQ_SessionDataIOEx, IWQ_SessionDataIO>(this, iid, ppv);
    }
    STDMETHODIMP WriteStringList(BSTR, ULONG, tagSESSIONDATAVALUE*) override { return S_OK; }
    STDMETHODIMP DeleteKey(BSTR) override { return S_OK; }
};

class HostFactory : public IClassFactory
{
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        if (!::IsEqualIID(iid, IID_IUnknown) && !::IsEqualIID(iid, IID_IClassFactory))
            return E_NOINTERFACE;
        *ppv = static_cast<IClassFactory*>(this);
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP LockServer(BOOL) override { return S_OK; }

    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        if (outer)
            return CLASS_E_NOAGGREGATION;
        if (::IsEqualIID(iid, IID_IWQ_SessionDataMng))
            return NewManager(ppv);
        if (::IsEqualIID(iid, IID_IWQ_SessionDataIO))
            return NewRegistryIO(ppv);
        if (::IsEqualIID(iid, IID_IWQ_SessionDataIOEx))
            return XComObject<LifetimeRoot>::Create(iid, ppv);
        return E_NOINTERFACE;
    }

private:
    static HRESULT NewManager(void** ppv)
    {
        XComPtr<IWQ_SessionDataMng> manager;
        XComPtr<IWQ_SessionDataStorage> volatileStorage;
        HRESULT hr = ::CoCreateInstance(CLSID_WQ_SessionDataMng, nullptr, CLSCTX_INPROC_SERVER, IID_IWQ_SessionDataMng,
                                        reinterpret_cast<void**>(manager.ReleaseAndGetAddressOf()));
        if (SUCCEEDED(hr))
            hr = ::CoCreateInstance(CLSID_WQ_SessionDataStorageVolatile, nullptr, CLSCTX_INPROC_SERVER,
                                    IID_IWQ_SessionDataStorage,
                                    reinterpret_cast<void**>(volatileStorage.ReleaseAndGetAddressOf()));
        if (SUCCEEDED(hr))
            hr = manager->SetStorage(volatileStorage.Get(), static_cast<SESSIONDATATYPE>(5), 1);
        XComPtr<IWQ_SessionDataStorage> registry;
        if (SUCCEEDED(hr))
            hr = NewRegistryStorage(registry);
        if (SUCCEEDED(hr))
            hr = manager->SetStorage(registry.Get(), static_cast<SESSIONDATATYPE>(2), 0);
        if (SUCCEEDED(hr))
            *ppv = manager.Detach();
        return hr;
    }

    static HRESULT NewRegistryStorage(XComPtr<IWQ_SessionDataStorage>& storage)
    {
        XComPtr<IWQ_SessionDataStorageReg> registry;
        HRESULT hr = ::CoCreateInstance(CLSID_WQ_SessionDataStorageReg, nullptr, CLSCTX_INPROC_SERVER,
                                        IID_IWQ_SessionDataStorageReg,
                                        reinterpret_cast<void**>(registry.ReleaseAndGetAddressOf()));
        if (SUCCEEDED(hr))
        {
            BSTR appKey = ::SysAllocString(WQ_LOCALSERVER_APP_KEY);
            hr = registry->Initialize(static_cast<SESSIONDATAREGKEY>(1), appKey, 0);
            ::SysFreeString(appKey);
        }
        if (SUCCEEDED(hr))
            storage = XComPtr<IWQ_SessionDataStorage>(registry.Get());
        return hr;
    }

    static HRESULT NewRegistryIO(void** ppv)
    {
        XComPtr<IWQ_SessionDataStorage> storage;
        XComPtr<IWQ_SessionDataIO> io;
        HRESULT hr = NewRegistryStorage(storage);
        if (SUCCEEDED(hr))
            hr = ::CoCreateInstance(CLSID_WQ_SessionDataIOCache, nullptr, CLSCTX_INPROC_SERVER, IID_IWQ_SessionDataIO,
                                    reinterpret_cast<void**>(io.ReleaseAndGetAddressOf()));
        if (SUCCEEDED(hr))
            hr = io->SetStorage(storage.Get());
        if (SUCCEEDED(hr))
            *ppv = io.Detach();
        return hr;
    }
};
} // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc < 2 || FAILED(::CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return 1;
    const std::wstring events = argv[1];
    HANDLE stop = ::CreateEventW(nullptr, TRUE, FALSE, (events + L".stop").c_str());
    HANDLE done = ::CreateEventW(nullptr, TRUE, FALSE, (events + L".done").c_str());
    g_rootGone = ::CreateEventW(nullptr, TRUE, FALSE, (events + L".rootgone").c_str());
    static HostFactory factory;
    DWORD cookie = 0;
    const HRESULT registered = ::CoRegisterClassObject(CLSID_WQTestLocalServerHost, &factory, CLSCTX_LOCAL_SERVER,
                                                       REGCLS_MULTIPLEUSE, &cookie);
    if (SUCCEEDED(registered) && stop)
        ::WaitForSingleObject(stop, 120000);
    if (SUCCEEDED(registered))
        ::CoRevokeClassObject(cookie);
    if (done)
    {
        ::SetEvent(done);
        ::CloseHandle(done);
    }
    if (stop)
        ::CloseHandle(stop);
    if (g_rootGone)
        ::CloseHandle(g_rootGone);
    ::CoUninitialize();
    return SUCCEEDED(registered) ? 0 : 2;
}
