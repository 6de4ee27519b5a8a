#include "xstoragepairs.h"

#include "xcomtypes.h"

#include <comdef.h>

namespace
{
// A zeroed CoTaskMemAlloc array of count items, owned by out until handed on.
template <class Owner, class T>
void Allocate(Owner& out, size_t count)
{
    T* items = static_cast<T*>(::CoTaskMemAlloc(count * sizeof(T)));
    if (!items)
        throw _com_error(E_OUTOFMEMORY);
    ZeroMemory(items, count * sizeof(T));
    *out.ItemsAddress() = items;
    *out.CountAddress() = static_cast<ULONG>(count);
}

BSTR CopyOf(const XWQComBSTR& text)
{
    BSTR copy = text.Copy();
    if (!copy)
        throw _com_error(E_OUTOFMEMORY);
    return copy;
}
} // namespace

XStoragePairs XPairsFromRecords(ULONG count, const tagSESSIONDATAVALUE* records)
{
    XStoragePairs pairs;
    for (ULONG i = 0; i < count; ++i)
        pairs[XWQComBSTR(records[i].bstrValueName)] = XWQComBSTR(records[i].bstrValue);
    return pairs;
}

void XHandOutPairs(const XStoragePairs& pairs, ULONG* count, tagSESSIONDATAVALUE** records)
{
    if (pairs.empty())
    {
        *count = 0;
        *records = nullptr;
        return;
    }
    XValueArray out;
    Allocate<XValueArray, tagSESSIONDATAVALUE>(out, pairs.size());
    ULONG i = 0;
    for (const auto& pair : pairs)
    {
        out[i].bstrValueName = CopyOf(pair.first);
        out[i].bstrValue = CopyOf(pair.second);
        ++i;
    }
    out.Release(count, records);
}

void XHandOutKeyNames(const XStorageKeyNames& names, ULONG* count, BSTR** list)
{
    if (names.empty())
    {
        *count = 0;
        *list = nullptr;
        return;
    }
    XBstrArray out;
    Allocate<XBstrArray, BSTR>(out, names.size());
    for (size_t i = 0; i < names.size(); ++i)
        out[static_cast<ULONG>(i)] = CopyOf(names[i]);
    out.Release(count, list);
}
