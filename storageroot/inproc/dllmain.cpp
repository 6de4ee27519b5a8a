// WQSessionDataRoot64.dll: the storage root in process. Registration writes the same as the
// server program's /RegServer (both servers found beside this DLL).
#include "xinprocentry.h"
#include "xrootclasses.h"

namespace
{
HRESULT RegisterRoot(const std::wstring& path)
{
    return XRegisterStorageRoot(XRootServerPaths(XFolderOf(path)), path.c_str());
}
} // namespace

XDEFINE_INPROC_SERVER(XRootObjectMap, RegisterRoot, XUnregisterStorageRoot)
