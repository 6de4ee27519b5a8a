// The class that the local-server test host serves: a test-only CLSID whose class object hands
// out, in the host's process, a session data manager (IWQ_SessionDataMng, with the volatile
// category 5 cached and the registry category 2 uncached), a cached IO layer over a registry
// storage (IWQ_SessionDataIO) or a storage root that accepts every write and delete
// (IWQ_SessionDataIOEx) and sets the event "<name>.rootgone" when it is destroyed.
//
// The host's command line names a pair of events: it stops when "<name>.stop" is set and sets
// "<name>.done" once its class object is revoked, so that the next activation starts a new host.
#pragma once

#include <windows.h>

// {5F0C2B1E-8D55-4A37-9E0B-3C1F7A2D9B61}
static const CLSID CLSID_WQTestLocalServerHost = {
    0x5f0c2b1e, 0x8d55, 0x4a37, {0x9e, 0x0b, 0x3c, 0x1f, 0x7a, 0x2d, 0x9b, 0x61}};

// Registry key (HKEY_CURRENT_USER) under which the host's registry storage keeps its values.
#define WQ_LOCALSERVER_APP_KEY L"Software\\WQSdmLocalServerTest"
