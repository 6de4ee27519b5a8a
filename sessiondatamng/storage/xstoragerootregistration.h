// What the asynchronous storage delegator registers in the Global Interface Table for a storage
// root.
//
// The table marshals what it is given for good (table-strong). For a proxy, that marshal takes
// one more reference on the object in the other apartment or process, and revoking the
// registration cannot give it back: the platform's release of marshal data does not reach an
// object of another process (Wine answers 0x8001011D, RPC_E_INVALID_OBJREF, whichever thread
// revokes) and the reference stays, so the root's server never learns that its last client
// left. A proxy is therefore registered through a database IO layer of the calling apartment
// (XSessionDataIOExDB, which forwards every call to its root): it is marshalled by this
// apartment's own stub, the revoke releases it, and with it the proxy and the root's reference.
// Calls from other apartments then run on the apartment that registered the root, as calls on
// the proxy it holds must.
#pragma once

#include "xcomobject.h"
#include "xsessiondatamng_h.h"

// Whether object is a proxy of an object of another apartment or process.
bool XIsProxy(IUnknown* object) noexcept;
// root itself, or for a proxy a database IO layer of this apartment that forwards to it.
XComPtr<IWQ_SessionDataIOEx> XRootForRegistration(IWQ_SessionDataIOEx* root);
