#include "xcomtypes.h"

#include "xsdmreporter.h"

#include <cstring>

void* XAllocZeroedCoTaskMem(size_t bytes)
{
    void* memory = ::CoTaskMemAlloc(bytes);
    if (!memory)
        XSdmRaiseOutOfMemory();
    std::memset(memory, 0, bytes);
    return memory;
}

BSTR XNewBstr(const wchar_t* text, size_t length)
{
    BSTR copy = ::SysAllocStringLen(text, static_cast<UINT>(length));
    if (!copy)
        XSdmRaiseOutOfMemory();
    return copy;
}

std::wstring XLowered(std::wstring_view text)
{
    std::wstring lowered(text);
    if (!lowered.empty())
        ::CharLowerBuffW(&lowered[0], static_cast<DWORD>(lowered.size()));
    return lowered;
}

void XFreeValueRecords(tagSESSIONDATAVALUE* records, ULONG count) noexcept
{
    if (!records)
        return;
    for (ULONG i = 0; i < count; ++i)
    {
        ::SysFreeString(records[i].bstrValueName);
        ::SysFreeString(records[i].bstrValue);
        records[i].bstrValueName = nullptr;
        records[i].bstrValue = nullptr;
    }
}

void XFreeValueArray(tagSESSIONDATAVALUE* records, ULONG count) noexcept
{
    XFreeValueRecords(records, count);
    ::CoTaskMemFree(records);
}

void XFreeBstrArray(BSTR* names, ULONG count) noexcept
{
    if (!names)
        return;
    for (ULONG i = 0; i < count; ++i)
        ::SysFreeString(names[i]);
    ::CoTaskMemFree(names);
}

void XFreeKeyValueArray(tagKEY_SESSIONDATAVALUE* records, ULONG count) noexcept
{
    if (!records)
        return;
    for (ULONG i = 0; i < count; ++i)
    {
        ::SysFreeString(records[i].bstrKeyName);
        XFreeValueArray(records[i].pSessionDataValue, records[i].ulCount);
    }
    ::CoTaskMemFree(records);
}
