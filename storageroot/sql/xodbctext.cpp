#include "xodbctext.h"

#include "xsqlerror.h"

#include <cwchar>

namespace
{
const wchar_t kMasked[] = L"***";

struct Parsed
{
    std::vector<XOdbcText::Attribute> attributes;
    const wchar_t* fault = nullptr;  // what is wrong, or null
};

std::wstring Trimmed(const std::wstring& text)
{
    const size_t first = text.find_first_not_of(L" \t");
    if (first == std::wstring::npos)
        return std::wstring();
    return text.substr(first, text.find_last_not_of(L" \t") - first + 1);
}

Parsed ParseText(const std::wstring& text)
{
    Parsed parsed;
    size_t at = 0;
    while (at < text.size())
    {
        const size_t equals = text.find(L'=', at);
        const size_t semicolon = text.find(L';', at);
        if (equals == std::wstring::npos || (semicolon != std::wstring::npos && semicolon < equals))
        {
            const std::wstring rest = Trimmed(text.substr(at, semicolon == std::wstring::npos ? std::wstring::npos
                                                                                              : semicolon - at));
            if (!rest.empty())
            {
                parsed.fault = L"an attribute has no '='";
                return parsed;
            }
            at = semicolon == std::wstring::npos ? text.size() : semicolon + 1;
            continue;
        }
        XOdbcText::Attribute attribute{Trimmed(text.substr(at, equals - at)), std::wstring()};
        size_t end = equals + 1;
        while (end < text.size() && text[end] == L' ')
            ++end;
        if (end < text.size() && text[end] == L'{')
        {
            // A braced value runs to the first '}' that is not doubled.
            size_t close = end + 1;
            for (;; close += 2)
            {
                close = text.find(L'}', close);
                if (close == std::wstring::npos || close + 1 >= text.size() || text[close + 1] != L'}')
                    break;
            }
            if (close == std::wstring::npos)
            {
                parsed.fault = L"a value's '{' is not closed";
                return parsed;
            }
            end = close + 1;
        }
        const size_t next = text.find(L';', end);
        attribute.value = Trimmed(text.substr(equals + 1, next == std::wstring::npos ? std::wstring::npos
                                                                                     : next - equals - 1));
        if (attribute.key.empty())
        {
            parsed.fault = L"an attribute has no name";
            return parsed;
        }
        parsed.attributes.push_back(std::move(attribute));
        at = next == std::wstring::npos ? text.size() : next + 1;
    }
    return parsed;
}
} // namespace

std::vector<XOdbcText::Attribute> XOdbcText::Parse(const std::wstring& text)
{
    Parsed parsed = ParseText(text);
    if (parsed.fault)
        XSqlError::Raise(L"XOdbcText::Parse", E_INVALIDARG,
                         XWQComBSTR((std::wstring(L"malformed ODBC connection text: ") + parsed.fault).c_str()));
    return std::move(parsed.attributes);
}

std::wstring XOdbcText::Join(const std::vector<Attribute>& attributes)
{
    std::wstring text;
    for (const Attribute& attribute : attributes)
        text += attribute.key + L"=" + attribute.value + L";";
    return text;
}

bool XOdbcText::IsKey(const std::wstring& key, const wchar_t* name) noexcept
{
    return _wcsicmp(key.c_str(), name) == 0;
}

bool XOdbcText::IsPassword(const std::wstring& key) noexcept
{
    return IsKey(key, L"PWD") || IsKey(key, L"PASSWORD");
}

std::wstring XOdbcText::Redacted(const std::wstring& text)
{
    Parsed parsed = ParseText(text);
    if (parsed.fault)
    {
        // Keep only what comes before anything that may be a value.
        const size_t cut = text.find_first_of(L";=");
        return (cut == std::wstring::npos ? text : text.substr(0, cut)) + L"=" + kMasked;
    }
    for (Attribute& attribute : parsed.attributes)
        if (IsPassword(attribute.key))
            attribute.value = kMasked;
    return Join(parsed.attributes);
}
