#include "XWQComBSTR.h"

#include <comdef.h>
#include <cwctype>
#include <cwchar>
#include <memory>
#include <utility>

namespace
{
// Out of memory is raised as a COM error carrying E_OUTOFMEMORY; COM boundaries return it as is.
[[noreturn]] void ThrowOutOfMemory()
{
    throw _com_error(E_OUTOFMEMORY);
}

BSTR AllocOrThrow(const wchar_t* text, UINT length)
{
    BSTR result = ::SysAllocStringLen(text, length);
    if (!result)
        ThrowOutOfMemory();
    return result;
}

UINT SafeLen(const wchar_t* text)
{
    return text ? static_cast<UINT>(std::wcslen(text)) : 0u;
}
} // namespace

XWQComBSTR::XWQComBSTR(const wchar_t* text)
{
    if (text && *text)
        m_str = AllocOrThrow(text, SafeLen(text));
}

XWQComBSTR::XWQComBSTR(const wchar_t* text, UINT length)
{
    if (text && length)
        m_str = AllocOrThrow(text, length);
}

XWQComBSTR::XWQComBSTR(const char* text)
{
    if (!text || !*text)
        return;
    const int needed = ::MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
    if (needed <= 1)
        return;
    m_str = ::SysAllocStringLen(nullptr, static_cast<UINT>(needed - 1));
    if (!m_str)
        ThrowOutOfMemory();
    ::MultiByteToWideChar(CP_ACP, 0, text, -1, m_str, needed);
}

XWQComBSTR::XWQComBSTR(const std::wstring& text)
    : XWQComBSTR(text.c_str(), static_cast<UINT>(text.size()))
{
}

XWQComBSTR::XWQComBSTR(const XWQComBSTR& other)
    : XWQComBSTR(other.m_str, other.Length())
{
}

XWQComBSTR::XWQComBSTR(XWQComBSTR&& other) noexcept
    : m_str(std::exchange(other.m_str, nullptr))
{
}

XWQComBSTR::~XWQComBSTR()
{
    ::SysFreeString(m_str);
}

XWQComBSTR& XWQComBSTR::operator=(const XWQComBSTR& other)
{
    if (this != std::addressof(other))
    {
        XWQComBSTR copy(other);
        std::swap(m_str, copy.m_str);
    }
    return *this;
}

XWQComBSTR& XWQComBSTR::operator=(XWQComBSTR&& other) noexcept
{
    if (this != std::addressof(other))
    {
        ::SysFreeString(m_str);
        m_str = std::exchange(other.m_str, nullptr);
    }
    return *this;
}

XWQComBSTR& XWQComBSTR::operator=(const wchar_t* text)
{
    XWQComBSTR copy(text);
    std::swap(m_str, copy.m_str);
    return *this;
}

void XWQComBSTR::Attach(BSTR text) noexcept
{
    if (text != m_str)
        ::SysFreeString(m_str);
    m_str = text;
}

BSTR XWQComBSTR::Detach() noexcept
{
    return std::exchange(m_str, nullptr);
}

BSTR* XWQComBSTR::operator&() noexcept
{
    ::SysFreeString(m_str);
    m_str = nullptr;
    return &m_str;
}

UINT XWQComBSTR::Length() const noexcept
{
    return ::SysStringLen(m_str);
}

bool XWQComBSTR::IsEmpty() const noexcept
{
    return Length() == 0;
}

const wchar_t* XWQComBSTR::c_str() const noexcept
{
    return m_str ? m_str : L"";
}

XWQComBSTR& XWQComBSTR::ToLower()
{
    if (m_str)
        ::CharLowerBuffW(m_str, Length());
    return *this;
}

XWQComBSTR& XWQComBSTR::ToUpper()
{
    if (m_str)
        ::CharUpperBuffW(m_str, Length());
    return *this;
}

int XWQComBSTR::Find(const wchar_t* what, UINT start) const
{
    const std::wstring_view hay(c_str(), Length());
    const std::wstring_view needle(what ? what : L"");
    const size_t at = hay.find(needle, start);
    return at == std::wstring_view::npos ? -1 : static_cast<int>(at);
}

int XWQComBSTR::Find(wchar_t what, UINT start) const
{
    const std::wstring_view hay(c_str(), Length());
    const size_t at = hay.find(what, start);
    return at == std::wstring_view::npos ? -1 : static_cast<int>(at);
}

int XWQComBSTR::Replace(const wchar_t* what, const wchar_t* with)
{
    const UINT whatLen = SafeLen(what);
    if (whatLen == 0 || IsEmpty())
        return 0;
    std::wstring text(c_str(), Length());
    const std::wstring replacement(with ? with : L"");
    int count = 0;
    for (size_t at = text.find(what, 0, whatLen); at != std::wstring::npos;
         at = text.find(what, at + replacement.size(), whatLen))
    {
        text.replace(at, whatLen, replacement);
        ++count;
    }
    if (count)
        *this = XWQComBSTR(text);
    return count;
}

XWQComBSTR XWQComBSTR::Mid(UINT start, int count) const
{
    const UINT length = Length();
    if (start >= length)
        return XWQComBSTR();
    UINT take = length - start;
    if (count >= 0 && static_cast<UINT>(count) < take)
        take = static_cast<UINT>(count);
    return XWQComBSTR(m_str + start, take);
}

XWQComBSTR& XWQComBSTR::Append(const wchar_t* text, UINT length)
{
    if (!text || length == 0)
        return *this;
    const UINT old = Length();
    BSTR joined = ::SysAllocStringLen(nullptr, old + length);
    if (!joined)
        ThrowOutOfMemory();
    if (old)
        std::wmemcpy(joined, m_str, old);
    std::wmemcpy(joined + old, text, length);
    joined[old + length] = L'\0';
    ::SysFreeString(m_str);
    m_str = joined;
    return *this;
}

XWQComBSTR& XWQComBSTR::Append(const wchar_t* text)
{
    return Append(text, SafeLen(text));
}

XWQComBSTR& XWQComBSTR::Append(const XWQComBSTR& text)
{
    if (std::addressof(text) == this)
    {
        const XWQComBSTR copy(text);
        return Append(copy.m_str, copy.Length());
    }
    return Append(text.m_str, text.Length());
}

BSTR XWQComBSTR::Copy() const
{
    return CopyOf(m_str);
}

BSTR XWQComBSTR::CopyOf(BSTR text)
{
    return AllocOrThrow(text ? text : L"", ::SysStringLen(text));
}

XWQComBSTR XWQComBSTR::FromBstr(BSTR text)
{
    XWQComBSTR copy;
    copy.Attach(CopyOf(text));
    return copy;
}

int XWQComBSTR::Compare(const XWQComBSTR& other) const noexcept
{
    return std::wstring_view(c_str(), Length()).compare(std::wstring_view(other.c_str(), other.Length()));
}

int XWQComBSTR::CompareNoCase(const wchar_t* other) const noexcept
{
    return _wcsicmp(c_str(), other ? other : L"");
}

XWQComBSTR operator+(const XWQComBSTR& a, const XWQComBSTR& b)
{
    XWQComBSTR result(a);
    result.Append(b);
    return result;
}

XWQComBSTR operator+(const XWQComBSTR& a, const wchar_t* b)
{
    XWQComBSTR result(a);
    result.Append(b);
    return result;
}

XWQComBSTR operator+(const wchar_t* a, const XWQComBSTR& b)
{
    XWQComBSTR result(a);
    result.Append(b);
    return result;
}

bool operator==(const XWQComBSTR& a, const XWQComBSTR& b) noexcept
{
    return a.Compare(b) == 0;
}

bool operator!=(const XWQComBSTR& a, const XWQComBSTR& b) noexcept
{
    return a.Compare(b) != 0;
}

bool operator<(const XWQComBSTR& a, const XWQComBSTR& b) noexcept
{
    return a.Compare(b) < 0;
}

bool operator==(const XWQComBSTR& a, const wchar_t* b) noexcept
{
    return std::wstring_view(a.c_str(), a.Length()) == std::wstring_view(b ? b : L"");
}
