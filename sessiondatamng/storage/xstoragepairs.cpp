#include "xstoragepairs.h"

#include "xcomtypes.h"


XStoragePairs XPairsFromRecords(ULONG count, const tagSESSIONDATAVALUE* records)
{
    XStoragePairs pairs;
    for (ULONG i = 0; i < count; ++i)
        pairs[XWQComBSTR(records[i].bstrValueName)] = XWQComBSTR(records[i].bstrValue);
    return pairs;
}

void XHandOutPairs(const XStoragePairs& pairs, ULONG* count, tagSESSIONDATAVALUE** records)
{
    *count = 0;
    *records = nullptr;
    const auto textOf = [](const XWQComBSTR& text) { return std::wstring_view(text.c_str(), text.Length()); };
    XValueArray out = XValueArrayOf(
        pairs, static_cast<ULONG>(pairs.size()), [&](const XStoragePairs::value_type& pair) { return textOf(pair.first); },
        [&](const XStoragePairs::value_type& pair) { return textOf(pair.second); });
    out.Release(count, records);
}

void XHandOutKeyNames(const XStorageKeyNames& names, ULONG* count, BSTR** list)
{
    *count = 0;
    *list = nullptr;
    XBstrArray out = XBstrArrayOf(names, static_cast<ULONG>(names.size()),
                                  [](const XWQComBSTR& name) { return std::wstring_view(name.c_str(), name.Length()); });
    out.Release(count, list);
}
