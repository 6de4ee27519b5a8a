#include "xdelegatorreport.h"

const XSdmReporter& XDelegatorReport()
{
    static const XSdmReporter report("xasyncstoragedelegator", GUID_NULL);
    return report;
}
