#include "xsqlconnect.h"

#include "xsqlerror.h"
#include "xsqliteconnection.h"
#include "xsqlschema.h"

#include <algorithm>
#include <cwchar>

namespace
{
const wchar_t kSqliteScheme[] = L"sqlite:";

bool StartsWith(const std::wstring& text, const wchar_t* prefix)
{
    return _wcsnicmp(text.c_str(), prefix, std::wcslen(prefix)) == 0;
}

bool IsWholeNumber(const std::wstring& text)
{
    return !text.empty() && text.size() < 10 && text.find_first_not_of(L"0123456789") == std::wstring::npos;
}

// The options after '?' ("name=value" joined by '&'), which no Windows path contains.
XSqliteOptions SqliteOptions(const std::wstring& query)
{
    XSqliteOptions options;
    size_t start = 0;
    while (start < query.size())
    {
        const size_t end = std::min(query.find(L'&', start), query.size());
        const std::wstring option = query.substr(start, end - start);
        const size_t equals = option.find(L'=');
        const std::wstring name = option.substr(0, equals);
        const std::wstring value = equals == std::wstring::npos ? std::wstring() : option.substr(equals + 1);
        if (_wcsicmp(name.c_str(), L"synchronous") == 0 && _wcsicmp(value.c_str(), L"full") == 0)
            options.synchronousFull = true;
        else if (_wcsicmp(name.c_str(), L"synchronous") == 0 && _wcsicmp(value.c_str(), L"normal") == 0)
            options.synchronousFull = false;
        else if (_wcsicmp(name.c_str(), L"busy_timeout") == 0 && IsWholeNumber(value))
            options.busyTimeoutMs = static_cast<int>(std::wcstol(value.c_str(), nullptr, 10));
        else
            XSqlError::Raise(L"XSqlConnect", E_INVALIDARG,
                             XWQComBSTR((L"unknown option in the connection text: " + option).c_str()));
        start = end + 1;
    }
    return options;
}
} // namespace

std::unique_ptr<XSqlConnection> XSqlConnect(const std::wstring& connection)
{
    std::unique_ptr<XSqlConnection> opened;
    if (StartsWith(connection, kSqliteScheme))
    {
        const std::wstring rest = connection.substr(std::wcslen(kSqliteScheme));
        const size_t query = rest.find(L'?');
        const std::wstring path = rest.substr(0, query);
        if (path.empty())
            XSqlError::Raise(L"XSqlConnect", E_INVALIDARG, XWQComBSTR(L"the connection text names no database file"));
        opened = std::make_unique<XSqliteConnection>(
            path, query == std::wstring::npos ? XSqliteOptions() : SqliteOptions(rest.substr(query + 1)));
    }
    else
    {
        XSqlError::Raise(L"XSqlConnect", E_INVALIDARG,
                         XWQComBSTR((L"unknown connection scheme (expected \"sqlite:\"): " + connection).c_str()));
    }
    XSqlSchema::Prepare(*opened);
    return opened;
}
