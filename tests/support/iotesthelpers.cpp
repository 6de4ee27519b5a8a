#include "iotesthelpers.h"

#include "recordingio.h"  // Narrow
#include "xcomtypes.h"

namespace
{
// Recognisable out values: a call that does not write them leaves these.
BSTR const kUnwrittenText = reinterpret_cast<BSTR>(static_cast<uintptr_t>(0x5A5A5A50));
tagSESSIONDATAVALUE* const kUnwrittenList = reinterpret_cast<tagSESSIONDATAVALUE*>(static_cast<uintptr_t>(0x5A5A5A50));
const ULONG kUnwrittenCount = 0xA5A5A5A5u;
} // namespace

HRESULT Write(IWQ_SessionDataIO* io, const wchar_t* key, const wchar_t* name, const wchar_t* value)
{
    return io->WriteData(XWQComBSTR(key), XWQComBSTR(name), XWQComBSTR(value));
}

HRESULT ReadAll(IWQ_SessionDataIO* io, const wchar_t* root)
{
    XKeyValueArray all;
    return io->GetAllData(XWQComBSTR(root), all.CountAddress(), all.ItemsAddress());
}

ReadResult Read(IWQ_SessionDataIO* io, const wchar_t* key, const wchar_t* name)
{
    ReadResult result;
    BSTR value = kUnwrittenText;
    result.hr = io->GetData(XWQComBSTR(key), XWQComBSTR(name), &value);
    if (value != kUnwrittenText)
    {
        result.written = true;
        result.value = value ? value : L"";
        ::SysFreeString(value);
    }
    return result;
}

ListResult List(IWQ_SessionDataIO* io, const wchar_t* key)
{
    ListResult result;
    ULONG count = kUnwrittenCount;
    tagSESSIONDATAVALUE* list = kUnwrittenList;
    result.hr = io->GetStringList(XWQComBSTR(key), &count, &list);
    result.count = count;
    if (list != kUnwrittenList)
    {
        result.listWritten = true;
        for (ULONG i = 0; list && i < count; ++i)
            result.records.push_back(RecordText(list[i]));
        XFreeValueArray(list, count);
    }
    return result;
}

ValueRecords::ValueRecords(std::initializer_list<std::pair<const wchar_t*, const wchar_t*>> pairs)
{
    m_strings.reserve(pairs.size() * 2);
    for (const auto& pair : pairs)
    {
        m_strings.emplace_back(pair.first);
        m_strings.emplace_back(pair.second);
    }
    for (size_t i = 0; i < m_strings.size(); i += 2)
        m_records.push_back(tagSESSIONDATAVALUE{m_strings[i], m_strings[i + 1]});
}

std::string RecordText(const tagSESSIONDATAVALUE& record)
{
    return Narrow(record.bstrValueName) + "=" + Narrow(record.bstrValue);
}

std::vector<std::wstring> SubKeysOf(IWQ_SessionDataIO* io, const wchar_t* key, ULONG recursive, HRESULT* hr)
{
    XBstrArray names;
    const HRESULT result = io->GetSubKeys(XWQComBSTR(key), recursive, names.CountAddress(), names.ItemsAddress());
    if (hr)
        *hr = result;
    std::vector<std::wstring> out;
    for (ULONG i = 0; i < names.Count(); ++i)
        out.emplace_back(names[i], ::SysStringLen(names[i]));
    return out;
}

std::vector<std::wstring> AllDataOf(IWQ_SessionDataIO* io, const wchar_t* key, HRESULT* hr)
{
    XKeyValueArray records;
    const HRESULT result = io->GetAllData(XWQComBSTR(key), records.CountAddress(), records.ItemsAddress());
    if (hr)
        *hr = result;
    std::vector<std::wstring> out;
    for (ULONG i = 0; i < records.Count(); ++i)
    {
        const tagKEY_SESSIONDATAVALUE& record = records[i];
        for (ULONG j = 0; j < record.ulCount; ++j)
            out.push_back(std::wstring(record.bstrKeyName, ::SysStringLen(record.bstrKeyName)) + L"|" +
                          std::wstring(record.pSessionDataValue[j].bstrValueName) + L"=" +
                          std::wstring(record.pSessionDataValue[j].bstrValue));
    }
    return out;
}
