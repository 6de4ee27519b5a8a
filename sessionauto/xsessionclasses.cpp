#include "xsessionclasses.h"

#include "xcomobject.h"
#include "xregistrar.h"
#include "xsessionobject.h"

namespace
{
HRESULT CreateSession(IUnknown* outer, REFIID iid, void** ppv)
{
    return XCreateComObject<XSessionObject>(outer, iid, ppv);
}

// ProgIDs "WQSessionDataMng.Session" and "WQSessionDataMng.Session.1".
const XObjectMapEntry kEntries[] = {
    {&CLSID_WQ_SessionDataSession, L"Session", L"WQ Session Data Session Class", L"WQ Session Data Session Class", true,
     &CreateSession},
};
} // namespace

const XObjectMap& XSessionObjectMap()
{
    static const XObjectMap map{kEntries, kEntries + sizeof(kEntries) / sizeof(kEntries[0])};
    return map;
}

HRESULT XRegisterSessionClasses(const wchar_t* dllPath)
{
    HRESULT hr = XRegisterTypeLibrary(dllPath);
    if (SUCCEEDED(hr))
        hr = XRegisterClasses(XSessionObjectMap(), dllPath, XServerKind::InProcess, LIBID_WQSessionDataAutoLib);
    return hr;
}

HRESULT XUnregisterSessionClasses()
{
    const HRESULT classes = XUnregisterClasses(XSessionObjectMap());
    const HRESULT library = XUnregisterTypeLibrary(LIBID_WQSessionDataAutoLib);
    return FAILED(classes) ? classes : library;
}
