// The five entry points of an in-process server that serves one object map, for the DLLs beside
// the module (the storage root's, the automation object's): DllMain keeps the DLL's handle, the
// class objects live as long as the DLL, DllCanUnloadNow follows the module's lock count, and
// registration calls the given functions, the first with the DLL's own path.
//   XDEFINE_INPROC_SERVER(objectMapFunction, registerFunction, unregisterFunction)
// registerFunction: HRESULT(const std::wstring& dllPath); unregisterFunction: HRESULT().
#pragma once

#include "xclassfactory.h"
#include "xcomobject.h"
#include "xregistrar.h"

#include <string>

#define XDEFINE_INPROC_SERVER(objectMapFunction, registerFunction, unregisterFunction)                                \
    namespace                                                                                                          \
    {                                                                                                                  \
    HINSTANCE g_inprocInstance = nullptr;                                                                              \
    XClassObjects& InprocClassObjects()                                                                                \
    {                                                                                                                  \
        static XClassObjects objects(objectMapFunction());                                                             \
        return objects;                                                                                                \
    }                                                                                                                  \
    }                                                                                                                  \
    BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID)                                                      \
    {                                                                                                                  \
        if (reason == DLL_PROCESS_ATTACH)                                                                              \
        {                                                                                                              \
            g_inprocInstance = instance;                                                                               \
            ::DisableThreadLibraryCalls(instance);                                                                     \
        }                                                                                                              \
        return TRUE;                                                                                                   \
    }                                                                                                                  \
    STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** ppv)                                                   \
    {                                                                                                                  \
        return InprocClassObjects().Get(clsid, iid, ppv);                                                              \
    }                                                                                                                  \
    STDAPI DllCanUnloadNow()                                                                                           \
    {                                                                                                                  \
        return XComModule::LockCount() == 0 ? S_OK : S_FALSE;                                                          \
    }                                                                                                                  \
    STDAPI DllRegisterServer()                                                                                         \
    {                                                                                                                  \
        return registerFunction(XModulePath(g_inprocInstance));                                                        \
    }                                                                                                                  \
    STDAPI DllUnregisterServer()                                                                                       \
    {                                                                                                                  \
        return unregisterFunction();                                                                                   \
    }
