#include "xsqlconnect.h"

#include "xodbcconnection.h"
#include "xodbctext.h"
#include "xsqlerror.h"
#include "xsqliteconnection.h"
#include "xsqlschema.h"

#include <algorithm>
#include <cwchar>
#include <vector>

namespace
{
const wchar_t kSqliteScheme[] = L"sqlite:";
const wchar_t kOdbcScheme[] = L"odbc:";

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

bool IsOdbc(const std::wstring& connection)
{
    return StartsWith(connection, kOdbcScheme);
}

// The ODBC text of an "odbc:" connection, checked: it parses and names a driver or a source.
std::wstring OdbcTextOf(const std::wstring& connection)
{
    const std::wstring text = connection.substr(std::wcslen(kOdbcScheme));
    bool named = false;
    for (const XOdbcText::Attribute& attribute : XOdbcText::Parse(text))
        named = named || XOdbcText::IsKey(attribute.key, L"DRIVER") || XOdbcText::IsKey(attribute.key, L"DSN") ||
                XOdbcText::IsKey(attribute.key, L"FILEDSN");
    if (!named)
        Refuse(L"the ODBC connection text names no driver or data source (Driver={...} or DSN=...): " +
               XOdbcText::Redacted(text));
    return text;
}

// A NUL inside the text would cut it short at the driver (and name another file or server).
void RefuseNul(const std::wstring& connection)
{
    if (connection.find(L'\0') != std::wstring::npos)
        Refuse(L"the connection text holds a NUL character");
}

// The file and options that a connection text names; unknown schemes are refused.
SqliteTarget TargetOf(const std::wstring& connection)
{
    if (!StartsWith(connection, kSqliteScheme))
        Refuse(L"unknown connection scheme (expected \"sqlite:\" or \"odbc:\"): " +
               connection.substr(0, connection.find(L':')));
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
    RefuseNul(connection);
    if (IsOdbc(connection))
    {
        // Another spelling of the same ODBC text is another connection: nothing is cached for a
        // networked database, so two connections to it serve one data set.
        const std::wstring text = OdbcTextOf(connection);
        return {kOdbcScheme + text, kOdbcScheme + text, kOdbcScheme + XOdbcText::Redacted(text)};
    }
    const SqliteTarget target = TargetOf(connection);
    std::wstring lower = target.path;
    ::CharLowerBuffW(lower.data(), static_cast<DWORD>(lower.size()));
    std::wstring canonical = kSqliteScheme + target.path +
                             L"?synchronous=" + (target.options.synchronousFull ? L"full" : L"normal") +
                             L"&busy_timeout=" + std::to_wstring(target.options.busyTimeoutMs);
    return {kSqliteScheme + lower, canonical, canonical};
}

std::unique_ptr<XSqlConnection> XSqlConnect(const std::wstring& connection)
{
    RefuseNul(connection);
    std::unique_ptr<XSqlConnection> opened;
    if (IsOdbc(connection))
    {
        opened = std::make_unique<XOdbcConnection>(OdbcTextOf(connection));
    }
    else
    {
        const SqliteTarget target = TargetOf(connection);
        opened = std::make_unique<XSqliteConnection>(target.path, target.options);
    }
    XSqlSchema::Prepare(*opened);
    return opened;
}
