// WQSessionDataSession64.dll: the automation object over the manager, for script hosts.
#include "xinprocentry.h"
#include "xsessionclasses.h"

namespace
{
HRESULT RegisterSession(const std::wstring& path)
{
    return XRegisterSessionClasses(path.c_str());
}
} // namespace

XDEFINE_INPROC_SERVER(XSessionObjectMap, RegisterSession, XUnregisterSessionClasses)
