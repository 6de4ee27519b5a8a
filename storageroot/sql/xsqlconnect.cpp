#include "xsqlconnect.h"

#include "xsqlerror.h"
#include "xsqliteconnection.h"
#include "xsqlschema.h"

#include <algorithm>
#include <cwchar>
#include <vector>

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

[[noreturn]] void Refuse(const std::wstring& message)
{
    XSqlError::Raise(L"XSqlConnect", E_INVALIDARG, XWQComBSTR(message.c_str()));
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
            Refuse(L"unknown option in the connection text: " + option);
        start = end + 1;
    }
    return options;
}

std::wstring FullPath(const std::wstring& path)
{
    const DWORD size = ::GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    std::vector<wchar_t> full(size ? size : 1);
    if (size == 0 || ::GetFullPathNameW(path.c_str(), size, full.data(), nullptr) == 0)
        Refuse(L"the connection text names no valid file path: " + path);
    return full.data();
}

struct SqliteTarget
{
    std::wstring path;
    XSqliteOptions options;
};

// The file and options that a connection text names; unknown schemes are refused.
SqliteTarget TargetOf(const std::wstring& connection)
{
    if (!StartsWith(connection, kSqliteScheme))
        Refuse(L"unknown connection scheme (expected \"sqlite:\"): " + connection);
    const std::wstring rest = connection.substr(std::wcslen(kSqliteScheme));
    const size_t query = rest.find(L'?');
    const std::wstring path = rest.substr(0, query);
    if (path.empty())
        Refuse(L"the connection text names no database file");
    return {FullPath(path), query == std::wstring::npos ? XSqliteOptions() : SqliteOptions(rest.substr(query + 1))};
}
} // namespace

XSqlParsedConnection XSqlParseConnection(const std::wstring& connection)
{
    const SqliteTarget target = TargetOf(connection);
    std::wstring lower = target.path;
    ::CharLowerBuffW(lower.data(), static_cast<DWORD>(lower.size()));
    return {kSqliteScheme + lower,
            kSqliteScheme + target.path + L"?synchronous=" + (target.options.synchronousFull ? L"full" : L"normal") +
                L"&busy_timeout=" + std::to_wstring(target.options.busyTimeoutMs)};
}

std::unique_ptr<XSqlConnection> XSqlConnect(const std::wstring& connection)
{
    const SqliteTarget target = TargetOf(connection);
    std::unique_ptr<XSqlConnection> opened = std::make_unique<XSqliteConnection>(target.path, target.options);
    XSqlSchema::Prepare(*opened);
    return opened;
}
