// WQSessionDataSession64.dll: the automation object over the manager, for script hosts.
#include "xclassfactory.h"
#include "xcomobject.h"
#include "xregistrar.h"
#include "xsessionclasses.h"

namespace
{
HINSTANCE g_instance = nullptr;

XClassObjects& ClassObjects()
{
    static XClassObjects objects(XSessionObjectMap());
    return objects;
}
} // namespace

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH)
    {
        g_instance = instance;
        ::DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** ppv)
{
    return ClassObjects().Get(clsid, iid, ppv);
}

STDAPI DllCanUnloadNow()
{
    return XComModule::LockCount() == 0 ? S_OK : S_FALSE;
}

STDAPI DllRegisterServer()
{
    return XRegisterSessionClasses(XModulePath(g_instance).c_str());
}

STDAPI DllUnregisterServer()
{
    return XUnregisterSessionClasses();
}
