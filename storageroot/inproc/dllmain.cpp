// WQSessionDataRoot64.dll: the storage root in process. Registration writes the same as the
// server program's /RegServer (both servers found beside this DLL).
#include "xclassfactory.h"
#include "xcomobject.h"
#include "xrootclasses.h"

#include <string>

namespace
{
HINSTANCE g_instance = nullptr;

XClassObjects& ClassObjects()
{
    static XClassObjects objects(XRootObjectMap());
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
    const std::wstring path = XModulePath(g_instance);
    return XRegisterStorageRoot(XRootServerPaths(XFolderOf(path)), path.c_str());
}

STDAPI DllUnregisterServer()
{
    return XUnregisterStorageRoot();
}
