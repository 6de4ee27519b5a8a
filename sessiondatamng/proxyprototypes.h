/* Forced into the generated proxy/stub source: the MinGW headers declare these rpcrt4 exports for
   C++ only, while the proxy code is C. */
#pragma once
#include <windows.h>
#include <unknwn.h>

HRESULT STDMETHODCALLTYPE IUnknown_QueryInterface_Proxy(IUnknown* This, REFIID riid, void** ppvObject);
ULONG STDMETHODCALLTYPE IUnknown_AddRef_Proxy(IUnknown* This);
ULONG STDMETHODCALLTYPE IUnknown_Release_Proxy(IUnknown* This);
