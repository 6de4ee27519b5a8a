// The module's classes through COM: creation by ProgID and CLSID, alone and aggregated, the
// unload check, and the IO class that SetStorage binds.
#include "moduletest.h"
#include "xcomtypes.h"

#include <gtest/gtest.h>

namespace
{
struct Built
{
    const wchar_t* progId;
    const IID* iid;
};

// The classes whose implementation the module carries.
const Built kBuilt[] = {
    {L"WQSessionDataMng.WQSessionDataMng", &IID_IWQ_SessionDataMng},
    {L"WQSessionDataMng.WQ_SessionDataIOCache", &IID_IWQ_SessionDataIO},
    {L"WQSessionDataMng.WQ_SessionDataIONoCache", &IID_IWQ_SessionDataIO},
    {L"WQSessionDataMng.WQ_SessionDataStorageVolatile", &IID_IWQ_SessionDataStorageVolatile},
    {L"WQSessionDataMng.WQ_SessionDataStorageEnv", &IID_IWQ_SessionDataStorageEnv},
    {L"WQSessionDataMng.WQ_SessionDataStorageReg", &IID_IWQ_SessionDataStorageReg},
    {L"WQSessionDataMng.WQ_SessionDataStorageDb", &IID_IWQ_SessionDataStorageDb},
    {L"WQSessionDataMng.SessionDataIOEx", &IID_IWQ_SessionDataIOEx},
    {L"WQSessionDataMng.WQ_SessionDataIOExDB", &IID_IWQ_SessionDataIOExDB},
};

// An outer object that aggregates one inner object.
class Outer : public IUnknown
{
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override
    {
        if (::IsEqualIID(iid, IID_IUnknown))
        {
            *ppv = static_cast<IUnknown*>(this);
            AddRef();
            return S_OK;
        }
        return inner ? inner->QueryInterface(iid, ppv) : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(::InterlockedIncrement(&refs)); }
    STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(::InterlockedDecrement(&refs)); }
    IUnknown* inner = nullptr;
    LONG refs = 1;
};

using DllCanUnloadNowFn = HRESULT(STDAPICALLTYPE*)();

HRESULT ModuleCanUnloadNow()
{
    HMODULE module = ::GetModuleHandleW(L"WQSessionDataMng64.dll");
    if (!module)
        return E_FAIL;
    auto fn = reinterpret_cast<DllCanUnloadNowFn>(reinterpret_cast<void*>(::GetProcAddress(module, "DllCanUnloadNow")));
    return fn ? fn() : E_FAIL;
}

template <class I>
XComPtr<I> Create(const wchar_t* progId)
{
    CLSID clsid;
    XComPtr<I> out;
    EXPECT_EQ(S_OK, ::CLSIDFromProgID(progId, &clsid));
    EXPECT_EQ(S_OK, ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, __uuidof(I),
                                       reinterpret_cast<void**>(out.ReleaseAndGetAddressOf())));
    return out;
}
} // namespace

TEST(ModuleClasses, EveryBuiltClassIsCreatedByProgIdAndByClsid)
{
    for (const Built& c : kBuilt)
    {
        SCOPED_TRACE(Narrow(c.progId));
        CLSID clsid;
        ASSERT_EQ(S_OK, ::CLSIDFromProgID(c.progId, &clsid));
        XComPtr<IUnknown> byClsid;
        ASSERT_EQ(S_OK, ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, *c.iid,
                                           reinterpret_cast<void**>(byClsid.ReleaseAndGetAddressOf())));
        XComPtr<ISupportErrorInfo> support;
        ASSERT_EQ(S_OK, byClsid.As(support));
        EXPECT_EQ(S_OK, support->InterfaceSupportsErrorInfo(*c.iid));
        XComPtr<IUnknown> byVersioned;
        ASSERT_EQ(S_OK, ::CLSIDFromProgID((std::wstring(c.progId) + L".1").c_str(), &clsid));
        EXPECT_EQ(S_OK, ::CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IID_IUnknown,
                                           reinterpret_cast<void**>(byVersioned.ReleaseAndGetAddressOf())));
    }
}

TEST(ModuleClasses, EveryBuiltClassCanBeAggregated)
{
    for (const Built& c : kBuilt)
    {
        SCOPED_TRACE(Narrow(c.progId));
        CLSID clsid;
        ASSERT_EQ(S_OK, ::CLSIDFromProgID(c.progId, &clsid));
        Outer outer;
        ASSERT_EQ(S_OK, ::CoCreateInstance(clsid, &outer, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                           reinterpret_cast<void**>(&outer.inner)));
        IUnknown* viaOuter = nullptr;
        ASSERT_EQ(S_OK, outer.QueryInterface(*c.iid, reinterpret_cast<void**>(&viaOuter)));
        EXPECT_EQ(2, outer.refs);  // the inner object's interfaces count on the outer object
        IUnknown* identity = nullptr;
        ASSERT_EQ(S_OK, viaOuter->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity)));
        EXPECT_EQ(static_cast<IUnknown*>(&outer), identity);
        identity->Release();
        viaOuter->Release();
        EXPECT_EQ(1, outer.refs);
        EXPECT_EQ(0u, outer.inner->Release());
        // Asking an aggregate for anything but IUnknown is refused.
        IUnknown* wrong = nullptr;
        EXPECT_EQ(CLASS_E_NOAGGREGATION, ::CoCreateInstance(clsid, &outer, CLSCTX_INPROC_SERVER, *c.iid,
                                                            reinterpret_cast<void**>(&wrong)));
    }
}

TEST(ModuleClasses, ModuleCannotUnloadWhileAManagerLives)
{
    XComPtr<IWQ_SessionDataMng> manager = Create<IWQ_SessionDataMng>(L"WQSessionDataMng.WQSessionDataMng");
    ASSERT_TRUE(manager);
    EXPECT_EQ(S_FALSE, ModuleCanUnloadNow());
    manager.Reset();
    EXPECT_EQ(S_OK, ModuleCanUnloadNow());

    CLSID clsid;
    ASSERT_EQ(S_OK, ::CLSIDFromProgID(L"WQSessionDataMng.WQSessionDataMng", &clsid));
    XComPtr<IClassFactory> factory;
    ASSERT_EQ(S_OK, ::CoGetClassObject(clsid, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory,
                                       reinterpret_cast<void**>(factory.ReleaseAndGetAddressOf())));
    EXPECT_EQ(S_OK, factory->LockServer(TRUE));
    EXPECT_EQ(S_FALSE, ModuleCanUnloadNow());
    EXPECT_EQ(S_OK, factory->LockServer(FALSE));
    EXPECT_EQ(S_OK, ModuleCanUnloadNow());
}

TEST(ModuleClasses, UnknownClassIsNotAvailable)
{
    HMODULE module = ::LoadLibraryW(ModulePath().c_str());
    ASSERT_NE(nullptr, module);
    using GetClassObjectFn = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
    auto fn = reinterpret_cast<GetClassObjectFn>(reinterpret_cast<void*>(::GetProcAddress(module, "DllGetClassObject")));
    ASSERT_NE(nullptr, fn);
    void* object = nullptr;
    EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, fn(GUID_NULL,
                                            IID_IClassFactory, &object));
    ::FreeLibrary(module);
}

namespace
{
// Tells which IO class a category got over the volatile storage, by behaviour: the cached layer
// answers a written value on every read, the uncached one once (from its working table) and then
// no more.
std::string BoundLayer(IWQ_SessionDataMng* manager, SESSIONDATATYPE category)
{
    XVariant value;
    value.Get().vt = VT_BSTR;
    value.Get().bstrVal = ::SysAllocString(L"x");
    XWQComBSTR key(L"k"), name(L"v");
    if (manager->WriteData(key, name, value.Get(), category) != S_OK)
        return "unbound";
    XVariant first, second;
    const HRESULT a = manager->GetData(key, name, VT_BSTR, &first, category);
    const HRESULT b = manager->GetData(key, name, VT_BSTR, &second, category);
    if (a == S_OK && b == S_OK)
        return "cached";
    if (a == S_OK && b == S_FALSE)
        return "uncached";
    return "other";
}
} // namespace

TEST(ModuleClasses, SetStorageBindsTheCachedLayerOnlyForExactlyOne)
{
    XComPtr<IWQ_SessionDataMng> manager = Create<IWQ_SessionDataMng>(L"WQSessionDataMng.WQSessionDataMng");
    XComPtr<IWQ_SessionDataStorage> storage =
        Create<IWQ_SessionDataStorage>(L"WQSessionDataMng.WQ_SessionDataStorageVolatile");
    ASSERT_TRUE(manager && storage);
    const struct
    {
        LONG cache;
        const char* layer;
    } cases[] = {{1, "cached"}, {-1, "uncached"}, {0, "uncached"}, {2, "uncached"}};
    LONG category = 1;
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.cache);
        const SESSIONDATATYPE cat = static_cast<SESSIONDATATYPE>(category++);
        ASSERT_EQ(S_OK, manager->SetStorage(storage.Get(), cat, c.cache));
        SDM_STORAGE_TYPE kind = static_cast<SDM_STORAGE_TYPE>(0);
        EXPECT_EQ(S_OK, manager->GetStorageType(cat, &kind));
        EXPECT_EQ(5, static_cast<int>(kind));
        EXPECT_EQ(c.layer, BoundLayer(manager.Get(), cat));
        // Neither plain layer is an extended IO: DeleteKey finds no IWQ_SessionDataIOEx.
        EXPECT_EQ(S_FALSE, manager->DeleteKey(XWQComBSTR(L"k"), cat));
    }
}

TEST(ModuleClasses, SetStorageRebindingReleasesTheOldLayer)
{
    XComPtr<IWQ_SessionDataMng> manager = Create<IWQ_SessionDataMng>(L"WQSessionDataMng.WQSessionDataMng");
    XComPtr<IWQ_SessionDataStorage> storage =
        Create<IWQ_SessionDataStorage>(L"WQSessionDataMng.WQ_SessionDataStorageVolatile");
    const SESSIONDATATYPE cat = static_cast<SESSIONDATATYPE>(3);
    ASSERT_EQ(S_OK, manager->SetStorage(storage.Get(), cat, 1));
    EXPECT_EQ("cached", BoundLayer(manager.Get(), cat));
    ASSERT_EQ(S_OK, manager->SetStorage(storage.Get(), cat, 0));
    EXPECT_EQ("uncached", BoundLayer(manager.Get(), cat));
    // The storage is held once by the bound layer only: the old layer released its reference.
    storage->AddRef();
    EXPECT_EQ(2u, storage->Release());
}
