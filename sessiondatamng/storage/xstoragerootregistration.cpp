#include "xstoragerootregistration.h"

#include "xdelegatorreport.h"
#include "xsessiondataioexdb.h"

#include <objbase.h>

namespace
{
const XWQComBSTR& RegisterInGITName()
{
    return XSDM_FUNCTION_NAME(L"XAsyncStorageDelegator::RegisterInGIT");
}
const XWQComBSTR& GetStorageRootFromGITName()
{
    return XSDM_FUNCTION_NAME(L"XAsyncStorageDelegator::GetStorageRootFromGIT");
}
} // namespace

XStorageRootRegistration::XStorageRootRegistration() = default;

XStorageRootRegistration::~XStorageRootRegistration()
{
    Revoke();
    XCritProxy<IGlobalInterfaceTable*> git(m_git);
    if (*git)
        (*git)->Release();
    *git = nullptr;
}

bool XStorageRootRegistration::IsProxy(IUnknown* object) noexcept
{
    // Every proxy of the standard marshaler offers the client's security settings.
    IClientSecurity* security = nullptr;
    if (!object || FAILED(object->QueryInterface(IID_IClientSecurity, reinterpret_cast<void**>(&security))) ||
        !security)
        return false;
    security->Release();
    return true;
}

XComPtr<IWQ_SessionDataIOEx> XStorageRootRegistration::ForRegistration(IWQ_SessionDataIOEx* root)
{
    if (!IsProxy(root))
        return XComPtr<IWQ_SessionDataIOEx>(root);
    XComPtr<IWQ_SessionDataIOExDB> forwarder;
    const HRESULT created = XCreateComObject<XSessionDataIOExDB>(
        nullptr, IID_IWQ_SessionDataIOExDB, reinterpret_cast<void**>(forwarder.ReleaseAndGetAddressOf()));
    if (FAILED(created))
        XDelegatorReport().Raise(__LINE__, RegisterInGITName(), created, L"creating the forwarder of a proxy root failed");
    forwarder->SetRoot(root);
    return XComPtr<IWQ_SessionDataIOEx>(forwarder.Get());
}

void XStorageRootRegistration::Register(IWQ_SessionDataIOEx* root)
{
    XComPtr<IGlobalInterfaceTable> table;
    {
        XCritProxy<IGlobalInterfaceTable*> git(m_git);
        if (!*git)
        {
            const HRESULT hr = ::CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr, CLSCTX_INPROC_SERVER,
                                                  IID_IGlobalInterfaceTable, reinterpret_cast<void**>(&*git));
            if (FAILED(hr))
            {
                *git = nullptr;
                XDelegatorReport().Raise(__LINE__, RegisterInGITName(), hr, L"CoCreateInstance IID_IGlobalInterfaceTable failed",
                               XWQEXCEP::EXCEP_COM);
            }
        }
        XDelegatorReport().CheckPointerOrRaise(__LINE__, RegisterInGITName(), *git);
        table = *git;
    }
    // Registered outside the lock: marshalling the root may call into its apartment.
    const XComPtr<IWQ_SessionDataIOEx> registered = ForRegistration(root);
    DWORD newCookie = 0;
    const HRESULT hr = table->RegisterInterfaceInGlobal(registered.Get(), IID_IWQ_SessionDataIOEx, &newCookie);
    if (FAILED(hr))
        XDelegatorReport().Raise(__LINE__, RegisterInGITName(), hr, L"RegisterInterfaceInGlobal IWQ_SessionDataIOEx failed",
                       XWQEXCEP::EXCEP_COM);
    XCritProxy<unsigned long> cookie(m_cookie);
    *cookie = newCookie;
}

void XStorageRootRegistration::Revoke() noexcept
{
    try
    {
        XCritProxy<unsigned long> cookie(m_cookie);
        if (*cookie == 0)
            return;
        XCritReadProxy<IGlobalInterfaceTable*> git(m_git);
        if (*git)
            (*git)->RevokeInterfaceFromGlobal(*cookie);
        *cookie = 0;
    }
    catch (...)
    {
        // Only the guarded data's own lock could fail; the registration is left as it was.
    }
}

bool XStorageRootRegistration::IsRegistered() const
{
    XCritReadProxy<unsigned long> cookie(m_cookie);
    return *cookie > 0;
}

XComPtr<IWQ_SessionDataIOEx> XStorageRootRegistration::Fetch() const
{
    XComPtr<IGlobalInterfaceTable> table;
    DWORD registered = 0;
    {
        XCritReadProxy<IGlobalInterfaceTable*> git(m_git);
        XCritReadProxy<unsigned long> cookie(m_cookie);
        table = *git;
        registered = *cookie;
    }
    XComPtr<IWQ_SessionDataIOEx> root;
    if (!table || registered == 0)
        return root;
    const HRESULT hr = table->GetInterfaceFromGlobal(registered, IID_IWQ_SessionDataIOEx,
                                                     reinterpret_cast<void**>(root.ReleaseAndGetAddressOf()));
    if (FAILED(hr))
        XDelegatorReport().Raise(__LINE__, GetStorageRootFromGITName(), hr, L"GetInterfaceFromGlobal IWQ_SessionDataIOEx failed",
                       XWQEXCEP::EXCEP_COM);
    return root;
}
