// The values that the IO layers keep: value tables (value name -> value and dirty flag), key
// tables (key name -> value table) and plain name/value lists, all ordered by locale collation
// (XCollatedMap); the lower-casing of names; the arrays of value records handed to storages.
#pragma once

#include "xcollatedmap.h"
#include "xsessiondatamng_h.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>

// A value table's entry. Its text is replaced only by the table itself (XCollatedMap::Put
// assigns whole entries), which records the text's address beside its index: a hit is then
// answered from the index without reading the entry. So the text has no setter and the
// assignment is the table's alone.
class XValueEntry
{
public:
    XValueEntry() = default;
    XValueEntry(XWQComBSTR text, bool isDirty) : dirty(isDirty), m_text(std::move(text)) {}
    XValueEntry(XValueEntry&&) = default;

    const XWQComBSTR& Text() const noexcept { return m_text; }

    bool dirty = false;  // written here and not yet stored

private:
    template <class>
    friend class XCollatedMap;
    XValueEntry& operator=(XValueEntry&&) = default;

    XWQComBSTR m_text;
};

// A lookup in a value table goes on to read the value's text, which only the table's Put
// replaces: the recorded hint is exact.
template <>
struct XCollatedHint<XValueEntry>
{
    static const void* Of(const XValueEntry& entry) noexcept { return static_cast<BSTR>(entry.Text()); }
};

using XValueTable = XCollatedMap<XValueEntry>;  // value name -> entry
using XKeyTable = XCollatedMap<XValueTable>;    // key name -> its values
using XValueList = XCollatedMap<XWQComBSTR>;    // value name -> value, as read or to be stored

// What a value lookup found: whether there is a value and its text, a BSTR that the table or a
// list read from the storage keeps (not owned; null is the empty text).
struct XFoundValue
{
    bool found = false;
    BSTR text = nullptr;

    // A new BSTR of the text (an empty one for the empty text), the caller's to free.
    BSTR Copy() const { return XWQComBSTR::CopyOf(text); }
};
// The value of name in table, answered from the table's index (the entry is not read) when the
// name is spelt as stored.
XFoundValue XFindValue(const XValueTable& table, std::wstring_view name);

// The text of an incoming string as XWQComBSTR copies it: up to the first NUL; null is empty.
std::wstring_view XTextOf(const wchar_t* text) noexcept;
inline std::wstring_view XTextOf(const XWQComBSTR& text) noexcept
{
    return {text.c_str(), text.Length()};
}
inline XWQComBSTR XBstrOf(std::wstring_view text)
{
    return XWQComBSTR(text.data(), static_cast<UINT>(text.size()));
}
// An incoming name lower-cased as XWQComBSTR::ToLower does (CharLowerBuffW). ASCII text, the
// common case, is mapped here directly (A-Z to a-z, the same mapping, without the call); names
// of up to kInline characters stay in the object, so a lookup costs no allocation.
class XLowerName
{
public:
    explicit XLowerName(const wchar_t* text);
    explicit XLowerName(const XWQComBSTR& text) : XLowerName(text.c_str()) {}
    XLowerName(const XLowerName&) = delete;
    XLowerName& operator=(const XLowerName&) = delete;

    std::wstring_view View() const noexcept
    {
        return m_size <= kInline ? std::wstring_view(m_inline, m_size) : std::wstring_view(m_long);
    }
    operator std::wstring_view() const noexcept { return View(); }
    std::wstring String() const { return std::wstring(View()); }

private:
    static const size_t kInline = 64;
    size_t m_size = 0;
    wchar_t m_inline[kInline];
    std::wstring m_long;
};
// True for a null or empty name (the layers ignore values with such a name).
inline bool XIsEmptyName(const wchar_t* text) noexcept
{
    return !text || !*text;
}

// Frees the strings of count records, then the array with the module's array delete. For the
// arrays made by XStoredValueArray (and handed to a storage that took them over).
void XDeleteValueArray(tagSESSIONDATAVALUE* records, ULONG count) noexcept;

// An array of value records made with the module's array new, filled with fresh BSTR copies
// of a list's entries in list order, as the IO layers pass it to StoreData. It is freed with
// XDeleteValueArray unless Release() gave it away.
class XStoredValueArray
{
public:
    // Null Get() when the array could not be allocated; a failing string copy throws.
    explicit XStoredValueArray(const XValueList& list);
    ~XStoredValueArray() { XDeleteValueArray(m_records, m_count); }
    XStoredValueArray(const XStoredValueArray&) = delete;
    XStoredValueArray& operator=(const XStoredValueArray&) = delete;

    tagSESSIONDATAVALUE* Get() const noexcept { return m_records; }
    ULONG Count() const noexcept { return m_count; }
    tagSESSIONDATAVALUE* Release() noexcept;

private:
    ULONG m_count = 0;
    tagSESSIONDATAVALUE* m_records = nullptr;
};
