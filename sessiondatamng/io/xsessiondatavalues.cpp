#include "xsessiondatavalues.h"

#include "xcomtypes.h"

#include <algorithm>
#include <cwchar>
#include <new>
#include <utility>

std::wstring_view XTextOf(const wchar_t* text) noexcept
{
    return text ? std::wstring_view(text, std::wcslen(text)) : std::wstring_view();
}

XLowerName::XLowerName(const wchar_t* text)
{
    const std::wstring_view source = XTextOf(text);
    m_size = source.size();
    wchar_t* out = m_inline;
    if (m_size > kInline)
    {
        m_long.assign(source);
        out = &m_long[0];
    }
    bool ascii = true;
    for (size_t i = 0; i < m_size; ++i)
    {
        const wchar_t c = source[i];
        ascii = ascii && c < 0x80;
        out[i] = (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c + (L'a' - L'A')) : c;
    }
    if (!ascii)
    {
        std::copy(source.begin(), source.end(), out);
        ::CharLowerBuffW(out, static_cast<DWORD>(m_size));
    }
}

XFoundValue XFindValue(const XValueTable& table, std::wstring_view name)
{
    const void* hint = nullptr;
    if (!table.FindHinted(name, hint))
        return XFoundValue();
    // A value entry's hint is its text (XCollatedHint<XValueEntry>).
    return XFoundValue{true, static_cast<BSTR>(const_cast<void*>(hint))};
}

void XDeleteValueArray(tagSESSIONDATAVALUE* records, ULONG count) noexcept
{
    XFreeValueRecords(records, count);  // null records free nothing
    delete[] records;
}

XStoredValueArray::XStoredValueArray(const XValueList& list)
{
    const ULONG count = static_cast<ULONG>(list.Size());
    // Value-initialised: records not yet filled hold null strings, which free as nothing.
    m_records = new (std::nothrow) tagSESSIONDATAVALUE[count]();
    if (!m_records)
        return;
    m_count = count;
    try
    {
        ULONG i = 0;
        for (const XValueList::Entry& entry : list)
        {
            m_records[i].bstrValueName = entry.name.Copy();
            m_records[i].bstrValue = entry.value.Copy();
            ++i;
        }
    }
    catch (...)
    {
        XDeleteValueArray(Release(), count);
        throw;
    }
}

tagSESSIONDATAVALUE* XStoredValueArray::Release() noexcept
{
    m_count = 0;
    return std::exchange(m_records, nullptr);
}
