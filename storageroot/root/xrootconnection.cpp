#include "xrootconnection.h"

#include "xsdmreporter.h"

#include <shlobj.h>
#include <windows.h>

#include <vector>

namespace
{
const wchar_t kSettingsKey[] = L"Software\\WQSessionDataMng\\StorageRoot";
const wchar_t kConnectionValue[] = L"Connection";

const XSdmReporter& Report()
{
    static const XSdmReporter report("xrootconnection", GUID_NULL);
    return report;
}
const XWQComBSTR& FunctionName()
{
    return XSDM_FUNCTION_NAME(L"XDefaultRootConnection");
}

std::wstring Expanded(const std::wstring& text)
{
    const DWORD size = ::ExpandEnvironmentStringsW(text.c_str(), nullptr, 0);
    std::vector<wchar_t> expanded(size ? size : 1);
    if (size == 0 || ::ExpandEnvironmentStringsW(text.c_str(), expanded.data(), size) == 0)
        Report().RaiseSystem(__LINE__, FunctionName(), ::GetLastError(),
                             L"the configured connection cannot be expanded");
    return expanded.data();
}

// The configured text; empty when none is set.
std::wstring Configured()
{
    DWORD type = 0;
    DWORD bytes = 0;
    LONG error = ::RegGetValueW(HKEY_CURRENT_USER, kSettingsKey, kConnectionValue,
                                RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND, &type, nullptr, &bytes);
    if (error == ERROR_FILE_NOT_FOUND)
        return std::wstring();
    std::vector<wchar_t> text(bytes / sizeof(wchar_t) + 1);
    if (error == ERROR_SUCCESS)
        error = ::RegGetValueW(HKEY_CURRENT_USER, kSettingsKey, kConnectionValue,
                               RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND, &type, text.data(), &bytes);
    if (error != ERROR_SUCCESS)
        Report().RaiseSystem(__LINE__, FunctionName(), static_cast<DWORD>(error),
                             L"the configured connection (HKCU\\Software\\WQSessionDataMng\\StorageRoot "
                             L"\"Connection\") cannot be read");
    return type == REG_EXPAND_SZ ? Expanded(text.data()) : std::wstring(text.data());
}

std::wstring DefaultFile()
{
    wchar_t localAppData[MAX_PATH] = {};
    const HRESULT hr = ::SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA | CSIDL_FLAG_CREATE, nullptr,
                                          SHGFP_TYPE_CURRENT, localAppData);
    if (FAILED(hr))
        Report().Raise(__LINE__, FunctionName(), hr, L"the local application data folder cannot be found");
    const std::wstring folder = std::wstring(localAppData) + L"\\WQSessionDataMng";
    if (!::CreateDirectoryW(folder.c_str(), nullptr) && ::GetLastError() != ERROR_ALREADY_EXISTS)
        Report().RaiseSystem(__LINE__, FunctionName(), ::GetLastError(),
                             XWQComBSTR((L"the database folder cannot be created: " + folder).c_str()));
    return folder + L"\\sessiondata.db";
}
} // namespace

std::wstring XDefaultRootConnection()
{
    const std::wstring configured = Configured();
    return configured.empty() ? L"sqlite:" + DefaultFile() : configured;
}
