#include "xstoragerootregistration.h"

#include "xsessiondataioexdb.h"

#include <comdef.h>

bool XIsProxy(IUnknown* object) noexcept
{
    // Every proxy of the standard marshaler offers the client's security settings.
    IClientSecurity* security = nullptr;
    if (!object || FAILED(object->QueryInterface(IID_IClientSecurity, reinterpret_cast<void**>(&security))) ||
        !security)
        return false;
    security->Release();
    return true;
}

XComPtr<IWQ_SessionDataIOEx> XRootForRegistration(IWQ_SessionDataIOEx* root)
{
    if (!XIsProxy(root))
        return XComPtr<IWQ_SessionDataIOEx>(root);
    XComPtr<IWQ_SessionDataIOExDB> forwarder;
    const HRESULT created = XCreateComObject<XSessionDataIOExDB>(
        nullptr, IID_IWQ_SessionDataIOExDB, reinterpret_cast<void**>(forwarder.ReleaseAndGetAddressOf()));
    if (FAILED(created))
        throw _com_error(created);
    forwarder->SetRoot(root);
    return XComPtr<IWQ_SessionDataIOEx>(forwarder.Get());
}
