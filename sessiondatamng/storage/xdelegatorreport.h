// Where the classes of the asynchronous storage delegator (the delegator, its task, the root's
// registration and the connection handler) report: the source unit "xasyncstoragedelegator",
// without a class identity.
#pragma once

#include "xsdmreporter.h"

const XSdmReporter& XDelegatorReport();
