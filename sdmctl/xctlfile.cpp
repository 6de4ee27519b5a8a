#include "xctlfile.h"

#include "xctlfailure.h"

#include <windows.h>

std::string XCtlReadFile(const std::string& path)
{
    const HANDLE file = ::CreateFileW(XCtlWide(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        throw XCtlUsageError("cannot read " + path + ": " + XCtlFailure::Describe(HRESULT_FROM_WIN32(::GetLastError()),
                                                                                "the file cannot be opened"));
    std::string bytes;
    char buffer[65536];
    DWORD read = 0;
    while (::ReadFile(file, buffer, sizeof buffer, &read, nullptr) && read > 0)
        bytes.append(buffer, read);
    ::CloseHandle(file);
    return bytes;
}

bool XCtlIsConsole(bool out)
{
    DWORD mode = 0;
    return ::GetConsoleMode(::GetStdHandle(out ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE), &mode) != 0;
}

void XCtlWrite(const std::string& text, bool out)
{
    const HANDLE handle = ::GetStdHandle(out ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
    DWORD written = 0;
    if (XCtlIsConsole(out))
    {
        const std::wstring wide = XCtlWide(text);
        ::WriteConsoleW(handle, wide.data(), static_cast<DWORD>(wide.size()), &written, nullptr);
        return;
    }
    size_t at = 0;
    while (at < text.size() &&
           ::WriteFile(handle, text.data() + at, static_cast<DWORD>(text.size() - at), &written, nullptr) && written)
        at += written;
}
