#include "xctlfailure.h"

#include <oleauto.h>

#include <cstdio>

std::string XCtlUtf8(const std::wstring& text)
{
    if (text.empty())
        return std::string();
    const int size =
        ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(size), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), utf8.data(), size, nullptr, nullptr);
    return utf8;
}

std::wstring XCtlWide(const std::string& text)
{
    if (text.empty())
        return std::wstring();
    const int size = ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring wide(static_cast<size_t>(size), L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(), size);
    return wide;
}

std::string XCtlFailure::Describe(HRESULT hr, const std::string& what)
{
    char code[16];
    std::snprintf(code, sizeof code, "0x%08lX", static_cast<unsigned long>(hr));
    std::string line = what + ": error " + code;
    wchar_t* system = nullptr;
    if (::FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                         nullptr, static_cast<DWORD>(hr), 0, reinterpret_cast<wchar_t*>(&system), 0, nullptr) &&
        system)
    {
        std::wstring text(system);
        ::LocalFree(system);
        while (!text.empty() && (text.back() == L'\n' || text.back() == L'\r' || text.back() == L' ' ||
                                 text.back() == L'.'))
            text.pop_back();
        line += ": " + XCtlUtf8(text);
    }
    IErrorInfo* info = nullptr;
    if (::GetErrorInfo(0, &info) == S_OK && info)
    {
        BSTR description = nullptr;
        if (SUCCEEDED(info->GetDescription(&description)) && description && ::SysStringLen(description) > 0)
            line += " (" + XCtlUtf8(std::wstring(description, ::SysStringLen(description))) + ")";
        ::SysFreeString(description);
        info->Release();
    }
    return line;
}

HRESULT XCtlCheck(HRESULT hr, const std::string& what)
{
    if (FAILED(hr))
        throw XCtlFailure(hr, what);
    return hr;
}
