// The storage root served out of process: the class objects registered for the multithreaded
// apartment, several clients on each (REGCLS_MULTIPLEUSE), until the server has been idle (no
// object, no server lock) for the idle time. Then it stops taking activations and, unless one
// arrived in between, ends; an activation that arrived keeps it serving.
#pragma once

#include "xobjectmap.h"

namespace XLocalServer
{
// Serves the classes of map on the calling thread, which has joined the multithreaded
// apartment; returns when the server ends (S_OK) or its class objects cannot be registered.
HRESULT Serve(const XObjectMap& map, DWORD idleMilliseconds);
} // namespace XLocalServer
