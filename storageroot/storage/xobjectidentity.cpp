#include "xobjectidentity.h"

#include "xcomobject.h"
#include "xsdmreporter.h"

namespace
{
const XSdmReporter& Report()
{
    static const XSdmReporter report("xobjectidentity", GUID_NULL);
    return report;
}
const XWQComBSTR& FunctionName()
{
    return XSDM_FUNCTION_NAME(L"XObjectIdentity");
}

bool DisplayNameOf(IUnknown* object, std::wstring& identity)
{
    XComPtr<IMoniker> moniker;
    if (FAILED(object->QueryInterface(IID_IMoniker, reinterpret_cast<void**>(moniker.ReleaseAndGetAddressOf()))) ||
        !moniker)
        return false;
    XComPtr<IBindCtx> context;
    if (FAILED(::CreateBindCtx(0, context.ReleaseAndGetAddressOf())))
        return false;
    LPOLESTR name = nullptr;
    if (FAILED(moniker->GetDisplayName(context.Get(), nullptr, &name)) || !name)
        return false;
    identity = L"moniker:";
    identity += name;
    ::CoTaskMemFree(name);
    return true;
}

bool ClassIdOf(IUnknown* object, std::wstring& identity)
{
    XComPtr<IPersist> persist;
    if (FAILED(object->QueryInterface(IID_IPersist, reinterpret_cast<void**>(persist.ReleaseAndGetAddressOf()))) ||
        !persist)
        return false;
    CLSID clsid;
    if (FAILED(persist->GetClassID(&clsid)))
        return false;
    wchar_t text[40] = {};
    ::StringFromGUID2(clsid, text, 40);
    identity = L"class:";
    identity += text;
    return true;
}
} // namespace

std::wstring XObjectIdentity(IUnknown* object)
{
    Report().CheckPointerOrRaise(__LINE__, FunctionName(), object);
    std::wstring identity;
    if (DisplayNameOf(object, identity) || ClassIdOf(object, identity))
        return identity;
    Report().Raise(__LINE__, FunctionName(), E_INVALIDARG,
                   L"the object has no persistent identity: it is neither a moniker nor an IPersist object");
}
