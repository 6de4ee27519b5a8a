// Entry points of WQSessionDataMng64.dll. The proxy/stub code of the interfaces is merged into
// the module: requests for CLSIDs the object map does not own go to its Prx* entry points.
#include "xclassfactory.h"
#include "xcomobject.h"
#include "xmoduleclasses.h"
#include "xregistrar.h"
#include "xsessiondatamng_h.h"
#include "xsessiondatamngapp.h"

extern "C" {
extern HINSTANCE hProxyDll;  // defined by the generated dlldata.c
HRESULT STDAPICALLTYPE PrxDllGetClassObject(REFCLSID clsid, REFIID iid, void** ppv);
HRESULT STDAPICALLTYPE PrxDllCanUnloadNow(void);
HRESULT STDAPICALLTYPE PrxDllRegisterServer(void);
HRESULT STDAPICALLTYPE PrxDllUnregisterServer(void);
}

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH)
    {
        hProxyDll = instance;  // the proxy registration writes this module's path
        ::DisableThreadLibraryCalls(instance);
        return XTheApp().InitInstance(instance) ? TRUE : FALSE;
    }
    return TRUE;
}

namespace
{
// The module's class objects, as long as the module is loaded.
XClassObjects& ClassObjects()
{
    static XClassObjects objects(XModuleObjectMap());
    return objects;
}
} // namespace

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** ppv)
{
    const HRESULT hr = ClassObjects().Get(clsid, iid, ppv);
    if (hr != CLASS_E_CLASSNOTAVAILABLE)
        return hr;
    return PrxDllGetClassObject(clsid, iid, ppv);
}

STDAPI DllCanUnloadNow()
{
    if (XComModule::LockCount() != 0)
        return S_FALSE;
    return PrxDllCanUnloadNow();
}

STDAPI DllRegisterServer()
{
    const std::wstring path = XModulePath(XTheApp().Instance());
    HRESULT hr = XRegisterTypeLibrary(path.c_str());
    if (SUCCEEDED(hr))
        hr = XRegisterClasses(XModuleObjectMap(), path.c_str(), XServerKind::InProcess, LIBID_XSESSIONDATAMNGLib);
    if (SUCCEEDED(hr))
        hr = PrxDllRegisterServer();
    return hr;
}

STDAPI DllUnregisterServer()
{
    HRESULT hr = XUnregisterClasses(XModuleObjectMap());
    const HRESULT library = XUnregisterTypeLibrary(LIBID_XSESSIONDATAMNGLib);
    const HRESULT proxies = PrxDllUnregisterServer();
    if (SUCCEEDED(hr))
        hr = FAILED(library) ? library : proxies;
    return hr;
}
