#include "xrootconnection.h"

#include "XSimpleCrypt.h"
#include "xodbctext.h"
#include "xsdmreporter.h"
#include "xsqlconnect.h"

#include <shlobj.h>
#include <windows.h>

#include <vector>

namespace
{
const wchar_t kConnectionValue[] = L"Connection";
const wchar_t kPasswordValue[] = L"Password";
const wchar_t kOdbcScheme[] = L"odbc:";

const XSdmReporter& Report()
{
    static const XSdmReporter report("xrootconnection", GUID_NULL);
    return report;
}
const XWQComBSTR& FunctionName()
{
    return XSDM_FUNCTION_NAME(L"XDefaultRootConnection");
}

bool IsOdbc(const std::wstring& connection)
{
    return _wcsnicmp(connection.c_str(), kOdbcScheme, std::wcslen(kOdbcScheme)) == 0;
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

// A text value of the settings key, expanded when it is REG_EXPAND_SZ; empty when it is not set.
std::wstring Setting(const wchar_t* settingsKey, const wchar_t* name)
{
    DWORD type = 0;
    DWORD bytes = 0;
    LONG error = ::RegGetValueW(HKEY_CURRENT_USER, settingsKey, name,
                                RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND, &type, nullptr, &bytes);
    if (error == ERROR_FILE_NOT_FOUND)
        return std::wstring();
    std::vector<wchar_t> text(bytes / sizeof(wchar_t) + 1);
    if (error == ERROR_SUCCESS)
        error = ::RegGetValueW(HKEY_CURRENT_USER, settingsKey, name,
                               RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND, &type, text.data(), &bytes);
    if (error != ERROR_SUCCESS)
        Report().RaiseSystem(__LINE__, FunctionName(), static_cast<DWORD>(error),
                             XWQComBSTR((L"the configured connection (HKCU\\" + std::wstring(settingsKey) + L" \"" +
                                         name + L"\") cannot be read")
                                            .c_str()));
    return type == REG_EXPAND_SZ ? Expanded(text.data()) : std::wstring(text.data());
}

// The password kept apart, decrypted; empty when none is kept.
std::wstring KeptPassword(const wchar_t* settingsKey)
{
    const std::wstring kept = Setting(settingsKey, kPasswordValue);
    if (kept.empty())
        return kept;
    long error = 0;
    std::wstring password = DecryptOnlyOneStringAndDecode2String(symDPAPI, false, kept, error);
    if (error != 0)
        Report().RaiseSystem(__LINE__, FunctionName(), static_cast<DWORD>(error),
                             L"the password kept for the configured connection cannot be decrypted (it was kept by "
                             L"another user or on another machine): set the connection again");
    return password;
}

// A value as an ODBC text writes it: in braces when it holds a character that would end it.
std::wstring OdbcValue(const std::wstring& value)
{
    if (value.find_first_of(L";{}= ") == std::wstring::npos && !value.empty())
        return value;
    std::wstring braced = L"{";
    for (const wchar_t c : value)
    {
        braced += c;
        if (c == L'}')
            braced += L'}';
    }
    return braced + L"}";
}

// The value of a braced ODBC value without its braces.
std::wstring Unbraced(const std::wstring& value)
{
    if (value.size() < 2 || value.front() != L'{' || value.back() != L'}')
        return value;
    std::wstring plain;
    for (size_t i = 1; i + 1 < value.size(); ++i)
    {
        plain += value[i];
        if (value[i] == L'}' && value[i + 1] == L'}')
            ++i;
    }
    return plain;
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

void Check(const XWQComBSTR& function, LONG error, const wchar_t* what)
{
    if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND)
        Report().RaiseSystem(__LINE__, function, static_cast<DWORD>(error), what);
}
} // namespace

std::wstring XDefaultRootConnection(const wchar_t* settingsKey)
{
    std::wstring configured = Setting(settingsKey, kConnectionValue);
    if (configured.empty())
        return L"sqlite:" + DefaultFile();
    if (!IsOdbc(configured))
        return configured;
    const std::wstring password = KeptPassword(settingsKey);
    if (password.empty())
        return configured;
    if (!configured.empty() && configured.back() != L';')
        configured += L';';
    return configured + L"Pwd=" + OdbcValue(password) + L";";
}

std::wstring XShownDefaultRootConnection(const wchar_t* settingsKey)
{
    return XSqlParseConnection(XDefaultRootConnection(settingsKey)).shown;
}

void XSetDefaultRootConnection(const std::wstring& connection, const wchar_t* settingsKey)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSetDefaultRootConnection");
    std::wstring kept = connection;
    std::wstring password;
    if (!connection.empty())
    {
        XSqlParseConnection(connection);  // refuses what cannot work before anything changes
        if (IsOdbc(connection))
        {
            std::vector<XOdbcText::Attribute> attributes =
                XOdbcText::Parse(connection.substr(std::wcslen(kOdbcScheme)));
            std::vector<XOdbcText::Attribute> rest;
            for (const XOdbcText::Attribute& attribute : attributes)
            {
                if (XOdbcText::IsPassword(attribute.key))
                    password = Unbraced(attribute.value);
                else
                    rest.push_back(attribute);
            }
            kept = kOdbcScheme + XOdbcText::Join(rest);
        }
    }
    std::wstring encrypted;
    if (!password.empty())
    {
        long error = 0;
        encrypted = EncryptOneStringAndEncode2String(symDPAPI, false, password, error);
        ::SecureZeroMemory(password.data(), password.size() * sizeof(wchar_t));
        if (error != 0)
            Report().RaiseSystem(__LINE__, function, static_cast<DWORD>(error),
                                 L"the connection's password cannot be encrypted for the user");
    }
    if (kept.empty())
    {
        Check(function, ::RegDeleteKeyValueW(HKEY_CURRENT_USER, settingsKey, kConnectionValue),
              L"the configured connection cannot be removed");
        Check(function, ::RegDeleteKeyValueW(HKEY_CURRENT_USER, settingsKey, kPasswordValue),
              L"the configured connection's password cannot be removed");
        return;
    }
    // The password first: a connection text is never left with the password of another.
    Check(function,
          encrypted.empty() ? ::RegDeleteKeyValueW(HKEY_CURRENT_USER, settingsKey, kPasswordValue)
                            : ::RegSetKeyValueW(HKEY_CURRENT_USER, settingsKey, kPasswordValue, REG_SZ,
                                                encrypted.c_str(),
                                                static_cast<DWORD>((encrypted.size() + 1) * sizeof(wchar_t))),
          L"the configured connection's password cannot be kept");
    Check(function,
          ::RegSetKeyValueW(HKEY_CURRENT_USER, settingsKey, kConnectionValue, REG_SZ, kept.c_str(),
                            static_cast<DWORD>((kept.size() + 1) * sizeof(wchar_t))),
          L"the configured connection cannot be kept");
}
