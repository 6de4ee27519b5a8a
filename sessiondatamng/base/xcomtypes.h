// RAII owners for the memory that crosses the module's interfaces: VARIANTs and the
// CoTaskMemAlloc arrays of value records, key records and BSTRs (each string freed with
// SysFreeString, then the array with CoTaskMemFree).
#pragma once

#include "xsessiondatamng_h.h"
#include <oleauto.h>

#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

class XVariant
{
public:
    XVariant() noexcept { ::VariantInit(&m_v); }
    ~XVariant() { ::VariantClear(&m_v); }
    XVariant(const XVariant&) = delete;
    XVariant& operator=(const XVariant&) = delete;

    VARIANT* operator&() noexcept { return &m_v; }
    VARIANT& Get() noexcept { return m_v; }
    const VARIANT& Get() const noexcept { return m_v; }
    // Gives the content away; the owner is left VT_EMPTY.
    VARIANT Detach() noexcept
    {
        VARIANT out = m_v;
        ::VariantInit(&m_v);
        return out;
    }

private:
    VARIANT m_v;
};

// Frees the strings of count value records (not the array).
void XFreeValueRecords(tagSESSIONDATAVALUE* records, ULONG count) noexcept;
// Frees the strings of count value records and the array (CoTaskMemFree).
void XFreeValueArray(tagSESSIONDATAVALUE* records, ULONG count) noexcept;
// Frees count BSTRs and the array (CoTaskMemFree).
void XFreeBstrArray(BSTR* names, ULONG count) noexcept;
// Frees count key records: key name, each pair's strings, each pair array, then the array.
void XFreeKeyValueArray(tagKEY_SESSIONDATAVALUE* records, ULONG count) noexcept;

// Owner of a returned CoTaskMemAlloc array with its count; frees with the matching function.
template <class T, void (*Free)(T*, ULONG) noexcept>
class XCoTaskArray
{
public:
    XCoTaskArray() noexcept = default;
    XCoTaskArray(const XCoTaskArray&) = delete;
    XCoTaskArray& operator=(const XCoTaskArray&) = delete;
    XCoTaskArray(XCoTaskArray&& other) noexcept
        : m_count(std::exchange(other.m_count, 0)), m_items(std::exchange(other.m_items, nullptr))
    {
    }
    XCoTaskArray& operator=(XCoTaskArray&& other) noexcept
    {
        if (this != &other)
        {
            Reset();
            m_count = std::exchange(other.m_count, 0);
            m_items = std::exchange(other.m_items, nullptr);
        }
        return *this;
    }
    ~XCoTaskArray() { Reset(); }

    void Reset() noexcept
    {
        if (m_items)
            Free(m_items, m_count);
        m_items = nullptr;
        m_count = 0;
    }
    // Out-parameter addresses for a call that fills the array.
    ULONG* CountAddress() noexcept { return &m_count; }
    T** ItemsAddress() noexcept { return &m_items; }
    ULONG Count() const noexcept { return m_items ? m_count : 0; }
    T* Items() const noexcept { return m_items; }
    T& operator[](ULONG i) const noexcept { return m_items[i]; }
    void Release(ULONG* count, T** items) noexcept
    {
        *count = m_count;
        *items = std::exchange(m_items, nullptr);
        m_count = 0;
    }

private:
    ULONG m_count = 0;
    T* m_items = nullptr;
};

using XValueArray = XCoTaskArray<tagSESSIONDATAVALUE, XFreeValueArray>;
using XBstrArray = XCoTaskArray<BSTR, XFreeBstrArray>;
using XKeyValueArray = XCoTaskArray<tagKEY_SESSIONDATAVALUE, XFreeKeyValueArray>;

// The one way arrays for a caller are made: count zeroed items from CoTaskMemAlloc, owned (with
// every string put in them) by the returned owner until it hands them out with Release. A
// failed allocation raises the module's out-of-memory exception.
void* XAllocZeroedCoTaskMem(size_t bytes);
template <class Array>
Array XNewCoTaskArray(ULONG count)
{
    using Item = std::remove_reference_t<decltype(std::declval<Array&>()[0])>;
    Array array;
    if (count > 0)
    {
        *array.ItemsAddress() = static_cast<Item*>(XAllocZeroedCoTaskMem(count * sizeof(Item)));
        *array.CountAddress() = count;
    }
    return array;
}
// A new BSTR of length characters of text (embedded NULs kept); raises out of memory.
BSTR XNewBstr(const wchar_t* text, size_t length);
// The text of a BSTR with its length (embedded NULs kept); empty for a null BSTR.
inline std::wstring_view XBstrView(BSTR text) noexcept
{
    return text ? std::wstring_view(text, ::SysStringLen(text)) : std::wstring_view();
}
// A lower-cased copy, as XWQComBSTR::ToLower lower-cases (CharLowerBuffW).
std::wstring XLowered(std::wstring_view text);
// Value records of count pairs taken from a range in its order, each name and value a new
// BSTR: nameOf and valueOf give a pair's texts as std::wstring_view.
template <class Range, class NameOf, class ValueOf>
XValueArray XValueArrayOf(const Range& pairs, ULONG count, NameOf&& nameOf, ValueOf&& valueOf)
{
    XValueArray array = XNewCoTaskArray<XValueArray>(count);
    ULONG i = 0;
    for (const auto& pair : pairs)
    {
        if (i == count)
            break;
        const std::wstring_view name = nameOf(pair);
        const std::wstring_view value = valueOf(pair);
        array[i].bstrValueName = XNewBstr(name.data(), name.size());
        array[i].bstrValue = XNewBstr(value.data(), value.size());
        ++i;
    }
    return array;
}
// Names taken from a range in its order, each a new BSTR: nameOf gives a name's text.
template <class Range, class NameOf>
XBstrArray XBstrArrayOf(const Range& names, ULONG count, NameOf&& nameOf)
{
    XBstrArray array = XNewCoTaskArray<XBstrArray>(count);
    ULONG i = 0;
    for (const auto& name : names)
    {
        if (i == count)
            break;
        const std::wstring_view text = nameOf(name);
        array[i++] = XNewBstr(text.data(), text.size());
    }
    return array;
}
