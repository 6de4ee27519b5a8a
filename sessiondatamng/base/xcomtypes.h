// RAII owners for the memory that crosses the module's interfaces: VARIANTs and the
// CoTaskMemAlloc arrays of value records, key records and BSTRs (each string freed with
// SysFreeString, then the array with CoTaskMemFree).
#pragma once

#include "xsessiondatamng_h.h"
#include <oleauto.h>
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
