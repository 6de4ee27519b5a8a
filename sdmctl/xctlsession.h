// XCtlSession: the manager of one sdmctl process (a command, or a whole shell) and the categories
// its profile binds, each bound on first use: storages and the storage root are created by
// ProgID (the root out of process), as any client creates them.
#pragma once

#include "xcomobject.h"
#include "xctlfailure.h"
#include "xctlprofile.h"
#include "xsessiondatamng_h.h"
#include "xstorageroot_h.h"

#include <map>
#include <set>
#include <string>

class XCtlSession
{
public:
    explicit XCtlSession(XCtlProfile profile);
    XCtlSession(const XCtlSession&) = delete;
    XCtlSession& operator=(const XCtlSession&) = delete;

    const XCtlProfile& Profile() const noexcept { return m_profile; }
    IWQ_SessionDataMng* Manager();
    // Binds a category on first use. "all" binds every category it reads across that the
    // profile binds; a category the profile does not bind is a usage error.
    void Ensure(const XCtlCategory& category);
    bool IsBound(const XCtlCategory& category) const { return m_bound.count(category.number) != 0; }
    // Flushes the asynchronous storages bound so far; a failure (a write that did not reach the
    // database) is raised as XCtlFailure.
    void FlushAsync();
    // A root object (out of process) for its configuration interface.
    XComPtr<IWQ_SessionDataRootConfig> RootConfig();
    // A new storage where the target says (not bound), for a client that binds or rebinds itself.
    XComPtr<IWQ_SessionDataStorage> NewStorage(const XCtlStorageTarget& where);

private:
    XComPtr<IWQ_SessionDataIOEx> Root(const std::wstring& connection);

    XCtlProfile m_profile;
    XComPtr<IWQ_SessionDataMng> m_manager;
    std::set<int> m_bound;
    std::set<int> m_async;
    std::map<std::wstring, XComPtr<IWQ_SessionDataIOEx>> m_roots;
};

// An object created by ProgID in a context, as interface I; XCtlFailure when it cannot be.
template <class I>
XComPtr<I> XCtlCreate(const wchar_t* progId, DWORD context = CLSCTX_INPROC_SERVER)
{
    CLSID clsid;
    XComPtr<I> object;
    HRESULT hr = ::CLSIDFromProgID(progId, &clsid);
    if (SUCCEEDED(hr))
        hr = ::CoCreateInstance(clsid, nullptr, context, __uuidof(I), reinterpret_cast<void**>(object.ReleaseAndGetAddressOf()));
    XCtlCheck(hr, "cannot create " + XCtlUtf8(progId) + " (is it registered?)");
    return object;
}
