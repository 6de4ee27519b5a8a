#include "xkeywalk.h"

#include <windows.h>

#include <algorithm>

std::wstring XKeyWalk::Canonical(std::wstring_view key)
{
    std::wstring canonical(key);
    std::replace(canonical.begin(), canonical.end(), L'\\', L'/');
    while (!canonical.empty() && canonical.back() == L'/')
        canonical.pop_back();
    if (!canonical.empty())
        ::CharLowerBuffW(&canonical[0], static_cast<DWORD>(canonical.size()));
    return canonical;
}

bool XKeyWalk::IsIn(std::wstring_view key) const
{
    const std::wstring canonical = Canonical(key);
    return std::find(m_path.begin(), m_path.end(), canonical) != m_path.end();
}

XKeyWalk::Step XKeyWalk::Enter(std::wstring_view key)
{
    m_path.push_back(Canonical(key));
    return Step(*this);
}
