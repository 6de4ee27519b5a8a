// Demo client of WQSessionDataMng64.dll: a plain COM client that knows only the interfaces
// (xsessiondatamng_h.h) and the ProgIDs. It creates every class, binds the volatile category to
// the volatile storage through the cached IO layer and writes and reads a few values.
#include "democlient.h"
#include "xsessiondatamng_h.h"

#include <cstdio>
#include <oleauto.h>
#include <windows.h>

namespace
{
const wchar_t* const kProgIds[] = {
    L"WQSessionDataMng.WQSessionDataMng",      L"WQSessionDataMng.WQ_SessionDataIOCache",
    L"WQSessionDataMng.WQ_SessionDataIONoCache", L"WQSessionDataMng.WQ_SessionDataIOExDB",
    L"WQSessionDataMng.WQ_SessionDataStorageEnv", L"WQSessionDataMng.WQ_SessionDataStorageVolatile",
    L"WQSessionDataMng.WQ_SessionDataStorageReg", L"WQSessionDataMng.WQ_SessionDataStorageDb",
    L"WQSessionDataMng.SessionDataIOEx",
};

const SESSIONDATATYPE kVolatile = static_cast<SESSIONDATATYPE>(5);

int CreateEveryClass()
{
    std::printf("Creating every class by ProgID:\n");
    int failures = 0;
    for (const wchar_t* progId : kProgIds)
    {
        CLSID clsid;
        HRESULT hr = ::CLSIDFromProgID(progId, &clsid);
        Ptr<IUnknown> object;
        if (SUCCEEDED(hr))
            hr = ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, object.out());
        std::printf("  %-48ls %s (0x%08lX)\n", progId, SUCCEEDED(hr) ? "created" : "not available",
                    static_cast<unsigned long>(hr));
        failures += FAILED(hr);
    }
    return failures;
}

int UseVolatileCategory()
{
    std::printf("Volatile category through the cached IO layer:\n");
    Ptr<IWQ_SessionDataMng> manager;
    Ptr<IWQ_SessionDataStorage> storage;
    CLSID clsid;
    if (!Check("CLSIDFromProgID(manager)", ::CLSIDFromProgID(L"WQSessionDataMng.WQSessionDataMng", &clsid)) ||
        !Check("CoCreateInstance(manager)",
               ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IWQ_SessionDataMng, manager.out())) ||
        !Check("CLSIDFromProgID(volatile storage)",
               ::CLSIDFromProgID(L"WQSessionDataMng.WQ_SessionDataStorageVolatile", &clsid)) ||
        !Check("CoCreateInstance(volatile storage)",
               ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IWQ_SessionDataStorage, storage.out())) ||
        !Check("SetStorage(volatile, category 5, cached)", manager->SetStorage(storage.p, kVolatile, 1)))
        return 1;

    VARIANT value;
    ::VariantInit(&value);
    value.vt = VT_I4;
    value.lVal = 42;
    Bstr key(L"Demo/Session"), name(L"Counter");
    if (!Check("WriteData(Demo/Session, Counter, 42)", manager->WriteData(key, name, value, kVolatile)))
        return 1;

    VARIANT read;
    ::VariantInit(&read);
    if (!Check("GetData(..., VT_I4)", manager->GetData(key, name, VT_I4, &read, kVolatile)))
        return 1;
    std::printf("  read back: %ld (VT %u)\n", read.lVal, read.vt);
    ::VariantClear(&read);
    Check("GetDataVB(..., all categories)", manager->GetDataVB(key, name, static_cast<SESSIONDATATYPE>(0), &read));
    std::printf("  read back as text: %ls\n", read.vt == VT_BSTR ? read.bstrVal : L"<none>");
    ::VariantClear(&read);

    SDM_STORAGE_TYPE kind = static_cast<SDM_STORAGE_TYPE>(0);
    Check("GetStorageType", manager->GetStorageType(kVolatile, &kind));
    std::printf("  storage kind: %d (5 = volatile)\n", static_cast<int>(kind));

    Check("FlushCache", manager->FlushCache(kVolatile));
    const HRESULT gone = manager->GetData(key, name, VT_BSTR, &read, kVolatile);
    std::printf("  after FlushCache the value is %s (0x%08lX)\n", gone == S_FALSE ? "gone" : "still there",
                static_cast<unsigned long>(gone));
    ::VariantClear(&read);
    return gone == S_FALSE ? 0 : 1;
}
int UseRegistryCategory()
{
    std::printf("Global category in the registry (HKCU\\Software\\WQSessionDataMngDemo), uncached:\n");
    Ptr<IWQ_SessionDataMng> manager;
    Ptr<IWQ_SessionDataStorageReg> storage;
    CLSID clsid;
    const SESSIONDATATYPE global = static_cast<SESSIONDATATYPE>(1);
    if (!Check("CLSIDFromProgID(manager)", ::CLSIDFromProgID(L"WQSessionDataMng.WQSessionDataMng", &clsid)) ||
        !Check("CoCreateInstance(manager)",
               ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IWQ_SessionDataMng, manager.out())) ||
        !Check("CLSIDFromProgID(registry storage)",
               ::CLSIDFromProgID(L"WQSessionDataMng.WQ_SessionDataStorageReg", &clsid)) ||
        !Check("CoCreateInstance(registry storage)", ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IWQ_SessionDataStorageReg,
                                      storage.out())))
        return 1;
    // The hive is the plain number 1 (current user), not the published SDRK_CURRENT_USER value.
    Bstr root(L"Software\\WQSessionDataMngDemo");
    if (!Check("Initialize(1, Software\\WQSessionDataMngDemo, 0)",
               storage->Initialize(static_cast<SESSIONDATAREGKEY>(1), root, 0)) ||
        !Check("SetStorage(registry, category 1, uncached)", manager->SetStorage(storage.p, global, 0)))
        return 1;
    VARIANT value;
    ::VariantInit(&value);
    value.vt = VT_BSTR;
    value.bstrVal = ::SysAllocString(L"blue");
    Bstr key(L"Users/Demo/Window"), name(L"Color");
    const bool wrote = Check("WriteData(Users/Demo/Window, Color, blue)", manager->WriteData(key, name, value, global));
    ::VariantClear(&value);
    VARIANT read;
    ::VariantInit(&read);
    const bool readBack = wrote && Check("GetData(..., VT_BSTR)", manager->GetData(key, name, VT_BSTR, &read, global));
    if (readBack)
        std::printf("  read back: %ls\n", read.bstrVal);
    ::VariantClear(&read);
    SDM_STORAGE_TYPE kind = static_cast<SDM_STORAGE_TYPE>(0);
    Check("GetStorageType", manager->GetStorageType(global, &kind));
    std::printf("  storage kind: %d (2 = registry)\n", static_cast<int>(kind));
    ::RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\WQSessionDataMngDemo");
    return readBack ? 0 : 1;
}
} // namespace

int main()
{
    if (FAILED(::CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return 2;
    std::printf("WQSessionDataMng demo client\n");
    const int unavailable = CreateEveryClass();
    const int failedVolatile = UseVolatileCategory();
    const int failedRegistry = UseRegistryCategory();
    ::CoUninitialize();
    std::printf("%d class(es) not available yet; volatile category %s; registry category %s\n", unavailable,
                failedVolatile ? "FAILED" : "works", failedRegistry ? "FAILED" : "works");
    return failedVolatile + failedRegistry;
}
