#include "XWQLogBook.h"

#include <shlobj.h>
#include <cstdio>
#include <cwchar>
#include <vector>

namespace
{
constexpr ULONGLONG kDefaultMaxBytes = 1024 * 1024;

std::wstring EnvironmentValue(const wchar_t* name)
{
    const DWORD needed = ::GetEnvironmentVariableW(name, nullptr, 0);
    if (needed == 0)
        return std::wstring();
    std::vector<wchar_t> buffer(needed);
    const DWORD got = ::GetEnvironmentVariableW(name, buffer.data(), needed);
    return got && got < needed ? std::wstring(buffer.data(), got) : std::wstring();
}

std::string ToUtf8(const std::wstring& text)
{
    if (text.empty())
        return std::string();
    const int needed = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0,
                                             nullptr, nullptr);
    std::string result(static_cast<size_t>(needed), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &result[0], needed, nullptr,
                          nullptr);
    return result;
}

// Entries stay on one line: line breaks and tabs inside texts become spaces.
std::string OneLine(std::string text)
{
    for (char& c : text)
        if (c == '\r' || c == '\n' || c == '\t')
            c = ' ';
    return text;
}

ULONGLONG MaxBytes()
{
    const std::wstring text = EnvironmentValue(L"WQSDM_LOGBOOK_MAXBYTES");
    if (text.empty())
        return kDefaultMaxBytes;
    const ULONGLONG value = std::wcstoull(text.c_str(), nullptr, 10);
    return value ? value : kDefaultMaxBytes;
}

void EnsureFolder(const std::wstring& filePath)
{
    const size_t slash = filePath.find_last_of(L"\\/");
    if (slash == std::wstring::npos)
        return;
    const std::wstring folder = filePath.substr(0, slash);
    if (!folder.empty())
        ::SHCreateDirectoryExW(nullptr, folder.c_str(), nullptr);
}

// One named mutex per log file, so processes that share the file take turns at rotation and
// appending.
std::wstring MutexName(const std::wstring& path)
{
    unsigned long hash = 5381;
    for (wchar_t c : path)
        hash = hash * 33u + static_cast<unsigned long>(::towlower(c));
    wchar_t name[64];
    std::swprintf(name, 64, L"Local\\WQSessionDataMng.LogBook.%08lx", hash);
    return name;
}

class NamedMutexGuard
{
public:
    explicit NamedMutexGuard(const std::wstring& name) : m_handle(::CreateMutexW(nullptr, FALSE, name.c_str()))
    {
        if (m_handle)
        {
            const DWORD wait = ::WaitForSingleObject(m_handle, 5000);
            m_owned = wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED;
        }
    }
    ~NamedMutexGuard()
    {
        if (m_owned)
            ::ReleaseMutex(m_handle);
        if (m_handle)
            ::CloseHandle(m_handle);
    }
    NamedMutexGuard(const NamedMutexGuard&) = delete;
    NamedMutexGuard& operator=(const NamedMutexGuard&) = delete;

private:
    HANDLE m_handle;
    bool m_owned = false;
};

void RotateIfNeeded(const std::wstring& path, ULONGLONG incoming)
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data))
        return;
    const ULONGLONG size = (static_cast<ULONGLONG>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    if (size + incoming <= MaxBytes())
        return;
    const std::wstring rotated = path + L".1";
    ::MoveFileExW(path.c_str(), rotated.c_str(), MOVEFILE_REPLACE_EXISTING);
}
} // namespace

std::wstring XWQLogBook::Path()
{
    std::wstring path = EnvironmentValue(L"WQSDM_LOGBOOK");
    if (!path.empty())
        return path;
    wchar_t folder[MAX_PATH] = {};
    if (FAILED(::SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA | CSIDL_FLAG_CREATE, nullptr, 0, folder)))
        ::GetTempPathW(MAX_PATH, folder);
    path = folder;
    if (!path.empty() && path.back() != L'\\')
        path += L'\\';
    return path + L"WQSessionDataMng\\WQSessionDataMng.log";
}

std::string XWQLogBook::FormatLine(const XWQLogEntry& entry, const SYSTEMTIME& utc, DWORD pid, DWORD tid)
{
    char head[160];
    std::snprintf(head, sizeof head, "%04u-%02u-%02uT%02u:%02u:%02u.%03uZ\tpid=%lu\ttid=%lu\tsev=%d\t",
                  utc.wYear, utc.wMonth, utc.wDay, utc.wHour, utc.wMinute, utc.wSecond, utc.wMilliseconds,
                  static_cast<unsigned long>(pid), static_cast<unsigned long>(tid), entry.severity);
    char where[64];
    std::snprintf(where, sizeof where, ":%lu\thr=0x%08lX\t", entry.line,
                  static_cast<unsigned long>(static_cast<ULONG>(entry.hr)));
    std::string line(head);
    line += OneLine(ToUtf8(entry.module)) + '\t';
    line += OneLine(ToUtf8(entry.function)) + '\t';
    line += OneLine(entry.sourceUnit) + where;
    line += OneLine(ToUtf8(entry.message));
    return line;
}

void XWQLogBook::Write(const XWQLogEntry& entry) noexcept
{
    try
    {
        SYSTEMTIME utc;
        ::GetSystemTime(&utc);
        const std::string line =
            FormatLine(entry, utc, ::GetCurrentProcessId(), ::GetCurrentThreadId()) + "\r\n";
        const std::wstring path = Path();
        EnsureFolder(path);

        NamedMutexGuard guard(MutexName(path));
        RotateIfNeeded(path, line.size());
        HANDLE file = ::CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file == INVALID_HANDLE_VALUE)
            return;
        DWORD written = 0;
        ::WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
        ::CloseHandle(file);
    }
    catch (...)
    {
        // Logging must never turn a report into a second failure.
    }
}
