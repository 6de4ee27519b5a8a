// XStorageRootRegistration: the asynchronous delegator's storage root in the Global Interface
// Table. The thread that sets the root registers it; the worker and the piping threads fetch
// their own pointer from the table, so that a root never crosses threads as a raw pointer.
//
// A proxy is registered through a forwarder. The table marshals what it is given for good
// (table-strong); for a proxy that takes one more reference on the object of the other apartment
// or process, and revoking the registration cannot give it back: the platform's release of
// marshal data does not reach an object of another process (Wine answers 0x8001011D,
// RPC_E_INVALID_OBJREF, whichever thread revokes), so the root's server would never learn that
// its last client left. The forwarder, a database IO layer of the registering apartment
// (XSessionDataIOExDB forwards every call to its root), is marshalled by this apartment's own
// stub: the revoke releases it, and with it the proxy and the root's reference. Calls from other
// apartments then run on the registering apartment, as calls on the proxy it holds must.
//
// Failures are reported under the delegator's names (source unit "xasyncstoragedelegator").
#pragma once

#include "XBasicCritSection.h"
#include "xcomobject.h"
#include "xsessiondatamng_h.h"

class XStorageRootRegistration
{
public:
    XStorageRootRegistration();
    // Revokes the root and releases the table.
    ~XStorageRootRegistration();
    XStorageRootRegistration(const XStorageRootRegistration&) = delete;
    XStorageRootRegistration& operator=(const XStorageRootRegistration&) = delete;

    // Registers root (creating the table on first use); a proxy through a forwarder.
    void Register(IWQ_SessionDataIOEx* root);
    // Revokes the registered root, if any.
    void Revoke() noexcept;
    bool IsRegistered() const;
    // The calling thread's own pointer to the registered root; empty when none is registered.
    XComPtr<IWQ_SessionDataIOEx> Fetch() const;

    // Whether object is a proxy of an object of another apartment or process.
    static bool IsProxy(IUnknown* object) noexcept;
    // What is registered for root: root itself, or for a proxy a forwarder of this apartment.
    static XComPtr<IWQ_SessionDataIOEx> ForRegistration(IWQ_SessionDataIOEx* root);

private:
    XCritData<IGlobalInterfaceTable*> m_git{nullptr};  // owned reference, kept once created
    XCritData<unsigned long> m_cookie{0ul};            // 0: no root registered
};
