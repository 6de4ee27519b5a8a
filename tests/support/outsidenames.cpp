#include "outsidenames.h"

#include <windows.h>

#include <cwchar>

std::set<std::wstring> OutsideNames()
{
    std::set<std::wstring> names;
    HKEY software = nullptr;
    if (::RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, &software) == ERROR_SUCCESS)
    {
        wchar_t name[256];
        for (DWORD i = 0;; ++i)
        {
            DWORD length = 256;
            if (::RegEnumKeyExW(software, i, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
                break;
            names.insert(L"HKCU\\Software\\" + std::wstring(name));
        }
        ::RegCloseKey(software);
    }
    wchar_t* block = ::GetEnvironmentStringsW();
    for (const wchar_t* entry = block; *entry; entry += std::wcslen(entry) + 1)
    {
        const std::wstring text(entry);
        names.insert(L"env " + text.substr(0, text.find(L'=', 1)));
    }
    ::FreeEnvironmentStringsW(block);
    return names;
}

std::set<std::wstring> AddedOutside(const std::set<std::wstring>& before, const std::set<std::wstring>& now,
                                    std::initializer_list<std::wstring> own)
{
    std::set<std::wstring> added;
    for (const std::wstring& name : now)
    {
        if (before.count(name))
            continue;
        bool mine = false;
        for (const std::wstring& prefix : own)
            mine = mine || name.rfind(prefix, 0) == 0;
        if (!mine)
            added.insert(name);
    }
    return added;
}
