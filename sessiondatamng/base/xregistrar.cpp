#include "xregistrar.h"

#include "xcomobject.h"

#include <oleauto.h>
#include <vector>

namespace
{
class XRegKey
{
public:
    XRegKey() = default;
    ~XRegKey()
    {
        if (m_key)
            ::RegCloseKey(m_key);
    }
    XRegKey(const XRegKey&) = delete;
    XRegKey& operator=(const XRegKey&) = delete;
    HKEY* Address() { return &m_key; }
    HKEY Get() const { return m_key; }

private:
    HKEY m_key = nullptr;
};

std::wstring GuidText(const GUID& guid)
{
    wchar_t text[40] = {};
    ::StringFromGUID2(guid, text, 40);
    return text;
}

// Creates HKCR\path and sets one string value (null name: the default value).
HRESULT SetString(const std::wstring& path, const wchar_t* name, const std::wstring& value)
{
    XRegKey key;
    LONG error = ::RegCreateKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                   KEY_WRITE, nullptr, key.Address(), nullptr);
    if (error != ERROR_SUCCESS)
        return HRESULT_FROM_WIN32(error);
    error = ::RegSetValueExW(key.Get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                             static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
    return error == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(error);
}

HRESULT CreateEmptyKey(const std::wstring& path)
{
    XRegKey key;
    const LONG error = ::RegCreateKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                         KEY_WRITE, nullptr, key.Address(), nullptr);
    return error == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(error);
}

// Removes HKCR\path with everything below it; a key that is not there is fine.
HRESULT DeleteTree(const std::wstring& path)
{
    const LONG error = ::RegDeleteTreeW(HKEY_CLASSES_ROOT, path.c_str());
    if (error == ERROR_SUCCESS || error == ERROR_FILE_NOT_FOUND)
        return S_OK;
    return HRESULT_FROM_WIN32(error);
}

#define XREG_TRY(expression)                                                                                         \
    do                                                                                                               \
    {                                                                                                                \
        const HRESULT hr_ = (expression);                                                                            \
        if (FAILED(hr_))                                                                                             \
            return hr_;                                                                                              \
    } while (false)

HRESULT RegisterEntry(const XObjectMapEntry& entry, const XServerPaths& servers, const GUID& typeLibrary)
{
    const std::wstring clsid = GuidText(*entry.clsid);
    const std::wstring progId = std::wstring(L"WQSessionDataMng.") + entry.progIdName;
    const std::wstring versioned = progId + L".1";

    XREG_TRY(SetString(versioned, nullptr, entry.progIdDescription));
    XREG_TRY(SetString(versioned + L"\\CLSID", nullptr, clsid));
    XREG_TRY(SetString(progId, nullptr, entry.progIdDescription));
    XREG_TRY(SetString(progId + L"\\CLSID", nullptr, clsid));
    XREG_TRY(SetString(progId + L"\\CurVer", nullptr, versioned));

    const std::wstring classKey = L"CLSID\\" + clsid;
    XREG_TRY(DeleteTree(classKey));
    XREG_TRY(SetString(classKey, nullptr, entry.classDescription));
    XREG_TRY(SetString(classKey + L"\\ProgID", nullptr, versioned));
    XREG_TRY(SetString(classKey + L"\\VersionIndependentProgID", nullptr, progId));
    if (!servers.inProcess.empty())
    {
        XREG_TRY(SetString(classKey + L"\\InprocServer32", nullptr, servers.inProcess));
        XREG_TRY(SetString(classKey + L"\\InprocServer32", L"ThreadingModel", L"Both"));
    }
    // Quoted: COM runs the value as a command line, and a path may hold spaces.
    if (!servers.local.empty())
        XREG_TRY(SetString(classKey + L"\\LocalServer32", nullptr, L"\"" + servers.local + L"\""));
    XREG_TRY(SetString(classKey + L"\\TypeLib", nullptr, GuidText(typeLibrary)));
    if (entry.programmable)
        XREG_TRY(CreateEmptyKey(classKey + L"\\Programmable"));
    return S_OK;
}

HRESULT UnregisterEntry(const XObjectMapEntry& entry)
{
    const std::wstring progId = std::wstring(L"WQSessionDataMng.") + entry.progIdName;
    XREG_TRY(DeleteTree(L"CLSID\\" + GuidText(*entry.clsid)));
    XREG_TRY(DeleteTree(progId + L".1"));
    XREG_TRY(DeleteTree(progId));
    return S_OK;
}
} // namespace

std::wstring XModulePath(HMODULE module)
{
    std::vector<wchar_t> buffer(MAX_PATH);
    for (;;)
    {
        const DWORD length = ::GetModuleFileNameW(module, buffer.data(), static_cast<DWORD>(buffer.size()));
        if (length == 0)
            return std::wstring();
        if (length < buffer.size())
            return std::wstring(buffer.data(), length);
        buffer.resize(buffer.size() * 2);
    }
}

HRESULT XRegisterClasses(const XObjectMap& map, const wchar_t* serverPath, XServerKind kind, const GUID& typeLibrary)
{
    XServerPaths servers;
    (kind == XServerKind::InProcess ? servers.inProcess : servers.local) = serverPath;
    return XRegisterClasses(map, servers, typeLibrary);
}

HRESULT XRegisterClasses(const XObjectMap& map, const XServerPaths& servers, const GUID& typeLibrary)
{
    for (const XObjectMapEntry* entry = map.begin; entry != map.end; ++entry)
        XREG_TRY(RegisterEntry(*entry, servers, typeLibrary));
    return S_OK;
}

HRESULT XUnregisterClasses(const XObjectMap& map)
{
    for (const XObjectMapEntry* entry = map.begin; entry != map.end; ++entry)
        XREG_TRY(UnregisterEntry(*entry));
    return S_OK;
}

HRESULT XRegisterTypeLibrary(const wchar_t* path)
{
    ITypeLib* library = nullptr;
    XREG_TRY(::LoadTypeLibEx(path, REGKIND_NONE, &library));
    const HRESULT hr = ::RegisterTypeLib(library, const_cast<LPOLESTR>(path), nullptr);
    library->Release();
    return hr;
}

HRESULT XUnregisterTypeLibrary(const GUID& typeLibrary)
{
    // Not registered is not a failure of unregistration (the platform may answer E_INVALIDARG).
    XRegKey registered;
    if (::RegOpenKeyExW(HKEY_CLASSES_ROOT, (L"TypeLib\\" + GuidText(typeLibrary) + L"\\1.0").c_str(), 0, KEY_READ,
                        registered.Address()) != ERROR_SUCCESS)
        return S_OK;
    const HRESULT hr = ::UnRegisterTypeLib(typeLibrary, 1, 0, LOCALE_NEUTRAL, SYS_WIN64);
    // Not registered is not a failure of unregistration.
    return hr == TYPE_E_REGISTRYACCESS || hr == TYPE_E_CANTLOADLIBRARY ? S_OK : hr;
}
