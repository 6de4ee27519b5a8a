#include "xsqlkey.h"

#include "xcomtypes.h"

#include <windows.h>

namespace
{
std::wstring ParentOf(const std::wstring& norm)
{
    const size_t slash = norm.rfind(L'/');
    return slash == std::wstring::npos ? std::wstring() : norm.substr(0, slash);
}
} // namespace

XSqlKey XSqlKeyOf(std::wstring_view key)
{
    XSqlKey result;
    size_t start = 0;
    while (start <= key.size())
    {
        size_t end = key.find_first_of(L"/\\", start);
        if (end == std::wstring_view::npos)
            end = key.size();
        if (end > start)
        {
            if (!result.text.empty())
                result.text += L'/';
            result.text.append(key.substr(start, end - start));
        }
        start = end + 1;
    }
    result.norm = XLowered(result.text);
    result.parent = ParentOf(result.norm);
    return result;
}

std::vector<XSqlKey> XSqlKey::Lineage() const
{
    std::vector<XSqlKey> lineage;
    for (size_t end = text.find(L'/'); ; end = text.find(L'/', end + 1))
    {
        lineage.push_back(XSqlKeyOf(std::wstring_view(text).substr(0, end)));
        if (end == std::wstring::npos)
            break;
    }
    if (text.empty())
        lineage.clear();
    return lineage;
}

bool XSqlPreOrderLess(std::wstring_view a, std::wstring_view b) noexcept
{
    const size_t common = std::min(a.size(), b.size());
    for (size_t i = 0; i < common; ++i)
    {
        if (a[i] == b[i])
            continue;
        if (a[i] == L'/')
            return true;
        if (b[i] == L'/')
            return false;
        return a[i] < b[i];
    }
    return a.size() < b.size();
}
