#include "xsessiondataiobase.h"

#include "xcomtypes.h"
#include "xstoredarrayhandover.h"

#include <comdef.h>
#include <cstring>

HRESULT XSessionDataIOBase::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IWQ_SessionDataIO, ISupportErrorInfo>(this, iid, ppv);
}

STDMETHODIMP XSessionDataIOBase::InterfaceSupportsErrorInfo(REFIID iid)
{
    return ::IsEqualIID(iid, IID_IWQ_SessionDataIO) ? S_OK : S_FALSE;
}

STDMETHODIMP XSessionDataIOBase::SetStorage(IWQ_SessionDataStorage* piSessionDataStorage)
{
    Guard guard(*this, __LINE__);
    if (piSessionDataStorage && !m_storage)
    {
        m_storage = XComPtr<IWQ_SessionDataStorage>(piSessionDataStorage);
        m_storageKind = XClassifyStorage(piSessionDataStorage);
    }
    return m_storage ? S_OK : E_INVALIDARG;
}

STDMETHODIMP XSessionDataIOBase::FlushAsyncStorage()
{
    Guard guard(*this, __LINE__);
    return m_storage ? m_storage->FlushAsyncStorage() : S_OK;
}

STDMETHODIMP XSessionDataIOBase::GetLastErrorAsyncExecution(HRESULT* phrAsyncResult)
{
    Guard guard(*this, __LINE__);
    return m_storage ? m_storage->GetLastErrorAsyncExecution(phrAsyncResult) : S_OK;
}

STDMETHODIMP XSessionDataIOBase::UploadCache(BSTR bstrKeyName)
{
    // Checked by GetAllData, where the layer's own name is reported.
    Guard guard(*this, __LINE__);
    // The storages hand out their pair arrays from CoTaskMemAlloc: all of it is freed with that
    // allocator's counterpart.
    XKeyValueArray all;
    return GetAllData(bstrKeyName, all.CountAddress(), all.ItemsAddress());
}

STDMETHODIMP XSessionDataIOBase::GetStorageType(SDM_STORAGE_TYPE* pStorageType)
{
    Guard guard(*this, __LINE__);
    *pStorageType = static_cast<SDM_STORAGE_TYPE>(m_storageKind);
    return S_OK;
}

HRESULT XSessionDataIOBase::PutValue(BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue)
{
    Guard guard(*this, __LINE__);
    if (XIsEmptyName(bstrValueName))
        return S_FALSE;
    XValueTable& values = m_table.Get(XLowerName(bstrKeyName)).value;
    values.Put(XLowerName(bstrValueName), XValueEntry{XWQComBSTR::FromBstr(bstrValue), true});
    return S_OK;
}

HRESULT XSessionDataIOBase::PutValues(BSTR bstrKeyName, ULONG ulCount, const tagSESSIONDATAVALUE* pSessionDataList)
{
    Guard guard(*this, __LINE__);
    for (ULONG i = 0; i < ulCount; ++i)
    {
        const HRESULT put = PutValue(bstrKeyName, pSessionDataList[i].bstrValueName, pSessionDataList[i].bstrValue);
        if (put != S_OK)
            return put;
    }
    return S_OK;
}

HRESULT XSessionDataIOBase::ReadList(BSTR bstrKeyName, XValueList& list, ULONG* records)
{
    Guard guard(*this, __LINE__);
    if (records)
        *records = 0;
    if (!m_storage)
        return S_FALSE;
    list.Clear();
    XValueArray read;
    const HRESULT hr = m_storage->ReadData(bstrKeyName, read.CountAddress(), read.ItemsAddress());
    if (hr != S_OK)
        return hr;
    for (ULONG i = 0; i < read.Count(); ++i)
        list.Put(XTextOf(read[i].bstrValueName), XWQComBSTR::FromBstr(read[i].bstrValue));
    if (records)
        *records = read.Count();
    return hr;
}

XValueTable XSessionDataIOBase::TableFromList(const XValueList& list)
{
    XValueTable table;
    for (const XValueList::Entry& entry : list)
        table.Put(XLowerName(entry.name), XValueEntry{entry.value, false});
    return table;
}

HRESULT XSessionDataIOBase::StoreList(BSTR bstrKeyName, const XValueList& list)
{
    Guard guard(*this, __LINE__);
    if (!m_storage)
        return S_FALSE;
    if (list.Empty())
        return S_OK;
    XStoredValueArray array(list);
    if (!array.Get())
        return S_FALSE;
    // A user-profile database storage keeps the array of a store that succeeds; any other
    // storage leaves it to this layer (XStoredArrayHandover).
    const XStoredArrayHandover offer(array.Get(), StorageKeepsStoredArray());
    const HRESULT hr = m_storage->StoreData(bstrKeyName, array.Count(), array.Get());
    if (SUCCEEDED(hr) && offer.Kept())
        array.Release();  // the storage owns the array and its strings from now on
    return hr;
}

HRESULT XSessionDataIOBase::StoreOneValue(BSTR bstrKeyName, XKeyTable::Entry* key, std::wstring_view valueName,
                                          XValueTable::Entry*& stored)
{
    Guard guard(*this, __LINE__);
    stored = key ? key->value.Find(valueName) : nullptr;
    if (!stored)
        return S_FALSE;
    XValueList one;
    one.Put(valueName, stored->value.Text());
    return StoreList(bstrKeyName, one);
}

XValueList XSessionDataIOBase::DirtyValues(const XValueTable& table)
{
    XValueList dirty;
    for (const XValueTable::Entry& entry : table)
    {
        if (entry.value.dirty)
            dirty.Put(XTextOf(entry.name), entry.value.Text());
    }
    return dirty;
}

HRESULT XSessionDataIOBase::StoreDirtyValues(XKeyTable::Entry& key, const XValueList& dirty)
{
    Guard guard(*this, __LINE__);
    const HRESULT hr = StoreList(key.name, dirty);
    if (SUCCEEDED(hr))
    {
        for (XValueTable::Entry& entry : key.value)
            entry.value.dirty = false;
    }
    return hr;
}

tagSESSIONDATAVALUE* XSessionDataIOBase::NewListFromTable(const XValueTable& table, ULONG count)
{
    // Records past the table's size stay null.
    XValueArray list = XValueArrayOf(
        table, count, [](const XValueTable::Entry& entry) { return XTextOf(entry.name); },
        [](const XValueTable::Entry& entry) { return XTextOf(entry.value.Text()); });
    ULONG filled = 0;
    tagSESSIONDATAVALUE* out = nullptr;
    list.Release(&filled, &out);
    return out;
}

HRESULT XSessionDataIOBase::FindOrReadValue(std::wstring_view key, std::wstring_view valueName,
                                            bool lowerStorageNames, XValueList& read, XFoundValue& answer)
{
    Guard guard(*this, __LINE__);
    answer = XFoundValue();
    XKeyTable::Entry* cached = m_table.Find(key);
    if (cached)
    {
        answer = XFindValue(cached->value, valueName);
        if (answer.found)
            return S_OK;
    }

    const HRESULT hr = ReadList(XBstrOf(key), read);
    if (FAILED(hr))
        return hr;
    if (!cached)
    {
        cached = &m_table.Put(key, TableFromList(read));
        answer = XFindValue(cached->value, valueName);
        return S_OK;
    }
    // Names already in the table keep their (possibly dirty) entries.
    for (const XValueList::Entry& entry : read)
    {
        const std::wstring name = lowerStorageNames ? XLowerName(entry.name).String() : entry.name.ToWString();
        if (!cached->value.Contains(name))
            cached->value.Put(name, XValueEntry{entry.value, false});
        if (name == valueName)
            answer = XFoundValue{true, entry.value};
    }
    return S_OK;
}

HRESULT XSessionDataIOBase::ListKeyValues(std::wstring_view key, ULONG* pulCount,
                                          tagSESSIONDATAVALUE** ppSessionDataList)
{
    Guard guard(*this, __LINE__);
    HRESULT hr = S_FALSE;
    ULONG count = 0;
    XKeyTable::Entry* cached = m_table.Find(key);
    if (cached)
    {
        count = static_cast<ULONG>(cached->value.Size());
    }
    else
    {
        XValueList read;
        hr = ReadList(XBstrOf(key), read, &count);
        if (FAILED(hr))
            return hr;
        cached = &m_table.Put(key, TableFromList(read));
    }
    if (count == 0)
        return hr;
    // The storage's record count can exceed the table's size when the storage returned names
    // that differ only in case; the records past the table stay null.
    *ppSessionDataList = NewListFromTable(cached->value, count);
    *pulCount = count;
    return S_OK;
}

HRESULT XSessionDataIOBase::ForwardSubKeys(unsigned long line, const XWQComBSTR& function, BSTR bstrKeyName,
                                           ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList)
{
    Guard guard(*this, __LINE__);
    HRESULT hr = m_report.Names(line, function).Key(bstrKeyName).Result();
    if (FAILED(hr) || !m_storage)
        return FAILED(hr) ? hr : S_FALSE;
    hr = m_report.CheckPointer(line, function, pulCount);
    if (SUCCEEDED(hr))
        hr = m_report.CheckPointer(line, function, ppKeyNameList);
    if (FAILED(hr))
        return hr;
    return m_storage->GetSubKeys(bstrKeyName, ulRecursive, pulCount, ppKeyNameList);
}

HRESULT XSessionDataIOBase::ReadAllData(unsigned long line, bool flushFirst, BSTR bstrRootKeyName, ULONG* pulCount,
                                        tagKEY_SESSIONDATAVALUE** ppKeySessionDataList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIO::GetAllData");
    return m_report.Run(line, function, [&]() -> HRESULT {
        Guard guard(*this, __LINE__);
        HRESULT hr = m_report.Names(line, function).Key(bstrRootKeyName).Result();
        if (FAILED(hr) || !m_storage)
            return FAILED(hr) ? hr : S_FALSE;
        hr = m_report.CheckPointer(line, function, pulCount);
        if (SUCCEEDED(hr))
            hr = m_report.CheckPointer(line, function, ppKeySessionDataList);
        if (FAILED(hr))
            return hr;
        if (flushFirst)
        {
            hr = FlushAsyncStorage();
            if (FAILED(hr))
                return hr;
        }
        hr = m_storage->ReadAllData(bstrRootKeyName, pulCount, ppKeySessionDataList);
        if (hr == S_OK)
            MergeAllData(*ppKeySessionDataList, *pulCount);
        return hr;
    });
}

void XSessionDataIOBase::MergeAllData(const tagKEY_SESSIONDATAVALUE* records, ULONG count)
{
    if (!records)
        return;
    for (ULONG i = 0; i < count; ++i)
    {
        const tagKEY_SESSIONDATAVALUE& record = records[i];
        const XLowerName key(record.bstrKeyName);
        m_table.Erase(key);
        OnKeyMerged(key);
        for (ULONG j = 0; record.pSessionDataValue && j < record.ulCount; ++j)
        {
            const tagSESSIONDATAVALUE& pair = record.pSessionDataValue[j];
            m_table.Get(key).value.Put(XLowerName(pair.bstrValueName),
                                       XValueEntry{XWQComBSTR::FromBstr(pair.bstrValue), false});
        }
    }
}
