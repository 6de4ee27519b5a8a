// XWQComBSTR: owning wrapper of an automation string (BSTR).
// A null BSTR and an empty text behave alike everywhere in this class.
#pragma once

#include <windows.h>
#include <oleauto.h>
#include <string>
#include <string_view>

class XWQComBSTR
{
public:
    XWQComBSTR() noexcept = default;
    XWQComBSTR(const wchar_t* text);                 // copies; null gives an empty string
    XWQComBSTR(const wchar_t* text, UINT length);    // copies length characters
    XWQComBSTR(const char* text);                    // narrow text, converted from the ANSI code page
    XWQComBSTR(const std::wstring& text);
    XWQComBSTR(const XWQComBSTR& other);
    XWQComBSTR(XWQComBSTR&& other) noexcept;
    ~XWQComBSTR();

    XWQComBSTR& operator=(const XWQComBSTR& other);
    XWQComBSTR& operator=(XWQComBSTR&& other) noexcept;
    XWQComBSTR& operator=(const wchar_t* text);

    // Takes ownership of an existing BSTR / gives ownership away.
    void Attach(BSTR text) noexcept;
    BSTR Detach() noexcept;
    // Frees the held string and returns the address for an [out] BSTR parameter.
    BSTR* operator&() noexcept;

    UINT Length() const noexcept;
    bool IsEmpty() const noexcept;
    // Never null: an empty wrapper yields L"".
    const wchar_t* c_str() const noexcept;
    operator BSTR() const noexcept { return m_str; }

    XWQComBSTR& ToLower();
    XWQComBSTR& ToUpper();
    // Index of the first occurrence at or after start, or -1.
    int Find(const wchar_t* what, UINT start = 0) const;
    int Find(wchar_t what, UINT start = 0) const;
    // Replaces every occurrence of what by with; returns how many were replaced.
    int Replace(const wchar_t* what, const wchar_t* with);
    // Up to count characters from start (count -1: to the end).
    XWQComBSTR Mid(UINT start, int count = -1) const;
    XWQComBSTR& Append(const wchar_t* text);
    XWQComBSTR& Append(const wchar_t* text, UINT length);
    XWQComBSTR& Append(const XWQComBSTR& text);
    XWQComBSTR& operator+=(const XWQComBSTR& text) { return Append(text); }
    XWQComBSTR& operator+=(const wchar_t* text) { return Append(text); }

    // A new BSTR with the same text, owned by the caller (null only when the string is empty
    // and allocation is not needed is never the case: an empty string yields an empty BSTR).
    BSTR Copy() const;
    // The same for a BSTR that no wrapper holds (null is the empty text).
    static BSTR CopyOf(BSTR text);
    // A wrapper of a copy of the whole of a BSTR, embedded NUL characters included (the
    // constructor from const wchar_t* stops at the first NUL).
    static XWQComBSTR FromBstr(BSTR text);
    std::wstring ToWString() const { return std::wstring(c_str(), Length()); }

    // Ordinal comparison of the texts (<0, 0, >0).
    int Compare(const XWQComBSTR& other) const noexcept;
    int CompareNoCase(const wchar_t* other) const noexcept;

private:
    BSTR m_str = nullptr;
};

XWQComBSTR operator+(const XWQComBSTR& a, const XWQComBSTR& b);
XWQComBSTR operator+(const XWQComBSTR& a, const wchar_t* b);
XWQComBSTR operator+(const wchar_t* a, const XWQComBSTR& b);
bool operator==(const XWQComBSTR& a, const XWQComBSTR& b) noexcept;
bool operator!=(const XWQComBSTR& a, const XWQComBSTR& b) noexcept;
bool operator<(const XWQComBSTR& a, const XWQComBSTR& b) noexcept;
bool operator==(const XWQComBSTR& a, const wchar_t* b) noexcept;
