#include "xrootclasses.h"

#include "xcomobject.h"
#include "xstorageroot.h"

namespace
{
HRESULT CreateRoot(IUnknown* outer, REFIID iid, void** ppv)
{
    return XCreateComObject<XStorageRoot>(outer, iid, ppv);
}

const XObjectMapEntry kEntries[] = {
    {&CLSID_WQ_SessionDataStorageRoot, L"WQ_SessionDataStorageRoot", L"WQ Session Data Storage Root Class",
     L"WQ Session Data Storage Root Class", false, &CreateRoot},
};
} // namespace

const XObjectMap& XRootObjectMap()
{
    static const XObjectMap map{kEntries, kEntries + sizeof(kEntries) / sizeof(kEntries[0])};
    return map;
}

XServerPaths XRootServerPaths(const std::wstring& folder)
{
    const auto existing = [&](const wchar_t* name) {
        const std::wstring path = folder + name;
        return ::GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES ? std::wstring() : path;
    };
    return {existing(L"WQSessionDataRoot64.dll"), existing(L"WQSessionDataRoot64.exe")};
}

std::wstring XFolderOf(const std::wstring& path)
{
    const size_t slash = path.find_last_of(L"\\/");
    return slash == std::wstring::npos ? std::wstring() : path.substr(0, slash + 1);
}

HRESULT XRegisterStorageRoot(const XServerPaths& servers, const wchar_t* typeLibraryPath)
{
    HRESULT hr = XRegisterTypeLibrary(typeLibraryPath);
    if (SUCCEEDED(hr))
        hr = XRegisterClasses(XRootObjectMap(), servers, LIBID_XSTORAGEROOTLib);
    return hr;
}

HRESULT XUnregisterStorageRoot()
{
    const HRESULT classes = XUnregisterClasses(XRootObjectMap());
    const HRESULT library = XUnregisterTypeLibrary(LIBID_XSTORAGEROOTLib);
    return FAILED(classes) ? classes : library;
}
