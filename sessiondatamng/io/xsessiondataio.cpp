#include "xsessiondataio.h"

namespace
{
const char kUnit[] = "xsessiondataio";
} // namespace

XSessionDataIO::XSessionDataIO() noexcept : XSessionDataIOBase(kUnit, ObjectClsid()) {}

std::wstring XSessionDataIO::MissingMarker(std::wstring_view lowerKey, std::wstring_view lowerValueName)
{
    std::wstring marker;
    marker.reserve(lowerKey.size() + 1 + lowerValueName.size());
    return marker.append(lowerKey).append(1, L'/').append(lowerValueName);
}

HRESULT XSessionDataIO::PutValue(BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue)
{
    Guard guard(*this, __LINE__);
    const HRESULT hr = XSessionDataIOBase::PutValue(bstrKeyName, bstrValueName, bstrValue);
    if (hr == S_OK && !m_missingValues.empty())
        m_missingValues.erase(MissingMarker(XLowerName(bstrKeyName), XLowerName(bstrValueName)));
    return hr;
}

STDMETHODIMP XSessionDataIO::WriteData(BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIO::WriteData");
    return m_report.Run(__LINE__, function, [&]() -> HRESULT {
        Guard guard(*this, __LINE__);
        const HRESULT checked =
            m_report.Names(__LINE__, function).Key(bstrKeyName).ValueName(bstrValueName).Value(bstrValue, NulRefusingHolder()).Result();
        if (FAILED(checked))
            return checked;
        const HRESULT put = PutValue(bstrKeyName, bstrValueName, bstrValue);
        return put != S_OK ? put : SaveValues(bstrKeyName, bstrValueName);
    });
}

STDMETHODIMP XSessionDataIO::GetData(BSTR bstrKeyName, BSTR bstrValueName, BSTR* pbstrValue)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIO::GetData");
    return m_report.Run(__LINE__, function, [&]() -> HRESULT {
        HRESULT checked = m_report.Names(__LINE__, function).Key(bstrKeyName).ValueName(bstrValueName).Result();
        if (SUCCEEDED(checked))
            checked = m_report.CheckPointer(__LINE__, function, pbstrValue);
        if (FAILED(checked))
            return checked;
        Guard guard(*this, __LINE__);
        if (XIsEmptyName(bstrValueName))
            return S_FALSE;
        const XLowerName key(bstrKeyName);
        const XLowerName valueName(bstrValueName);
        // A value the storage was asked for and did not have costs no second storage call.
        if (!m_missingValues.empty() && m_missingValues.count(MissingMarker(key, valueName)) != 0)
            return S_FALSE;

        XValueList read;
        XFoundValue answer;
        const HRESULT hr = FindOrReadValue(key, valueName, true, read, answer);
        if (FAILED(hr))
            return hr;
        if (!answer.found)
        {
            m_missingValues.insert(MissingMarker(key, valueName));
            return S_FALSE;
        }
        *pbstrValue = answer.Copy();
        return S_OK;
    });
}

STDMETHODIMP XSessionDataIO::GetStringList(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppSessionDataList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIO::GetStringList");
    return m_report.Run(__LINE__, function, [&]() -> HRESULT {
        HRESULT hr = m_report.Names(__LINE__, function).Key(bstrKeyName).Result();
        if (SUCCEEDED(hr))
            hr = m_report.CheckPointer(__LINE__, function, pulCount);
        if (SUCCEEDED(hr))
            hr = m_report.CheckPointer(__LINE__, function, ppSessionDataList);
        if (FAILED(hr))
            return hr;
        Guard guard(*this, __LINE__);
        *pulCount = 0;
        // A cached key answers from the cache alone, which may hold only the part of the key
        // written or read so far.
        return ListKeyValues(XLowerName(bstrKeyName), pulCount, ppSessionDataList);
    });
}

STDMETHODIMP XSessionDataIO::WriteStringList(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pSessionDataList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIO::WriteStringList");
    return m_report.Run(__LINE__, function, [&]() -> HRESULT {
        Guard guard(*this, __LINE__);
        const HRESULT checked =
            m_report.Names(__LINE__, function).List(bstrKeyName, ulCount, pSessionDataList, NulRefusingHolder()).Result();
        if (FAILED(checked))
            return checked;
        if (ulCount == 0)
            return S_FALSE;
        const HRESULT put = PutValues(bstrKeyName, ulCount, pSessionDataList);
        if (put != S_OK)
            return put;
        // The save's result is ignored (kept as it stands): a failed store shows only as
        // values that stay dirty in the cache.
        SaveValues(bstrKeyName, nullptr);
        return S_OK;
    });
}

STDMETHODIMP XSessionDataIO::GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIO::GetSubKeys");
    return m_report.Run(__LINE__, function, [&]() -> HRESULT {
        return ForwardSubKeys(__LINE__, function, bstrKeyName, ulRecursive, pulCount, ppKeyNameList);
    });
}

STDMETHODIMP XSessionDataIO::SaveData(BSTR bstrKeyName, BSTR bstrValueName)
{
    // Every write has already been stored.
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIO::SaveData");
    return m_report.Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT checked = m_report.Names(__LINE__, function).Key(bstrKeyName).ValueName(bstrValueName).Result();
        return FAILED(checked) ? checked : S_OK;
    });
}

STDMETHODIMP XSessionDataIO::FlushCache(SESSIONDATATYPE dataType)
{
    // dataType is not looked at. A failed flush of the storage keeps the cache.
    Guard guard(*this, __LINE__);
    const HRESULT flushed = FlushAsyncStorage();
    if (FAILED(flushed))
        return flushed;
    m_table.Clear();
    m_missingValues.clear();
    return S_OK;
}

STDMETHODIMP XSessionDataIO::GetAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                                        tagKEY_SESSIONDATAVALUE** ppKeySessionDataList)
{
    // Unlike the uncached layer, no FlushAsyncStorage first.
    return ReadAllData(__LINE__, false, bstrRootKeyName, pulCount, ppKeySessionDataList);
}

HRESULT XSessionDataIO::SaveValues(BSTR bstrKeyName, BSTR bstrValueName)
{
    Guard guard(*this, __LINE__);
    XKeyTable::Entry* cached = m_table.Find(XLowerName(bstrKeyName).View());

    if (XIsEmptyName(bstrValueName))
    {
        if (XIsEmptyName(bstrKeyName))
        {
            // The dirty values of every cached key, key by key, while the stores answer S_OK.
            HRESULT hr = S_OK;
            for (XKeyTable::Entry& key : m_table)
            {
                if (hr != S_OK)
                    break;
                const XValueList dirty = DirtyValues(key.value);
                if (!dirty.Empty())
                    hr = StoreDirtyValues(key, dirty);
            }
            return hr;
        }
        if (!cached)
            return S_FALSE;
        const XValueList dirty = DirtyValues(cached->value);
        return dirty.Empty() ? S_FALSE : StoreDirtyValues(*cached, dirty);
    }

    // One value, under the key as the caller spelt it.
    const XLowerName valueName(bstrValueName);
    XValueTable::Entry* value = nullptr;
    const HRESULT hr = StoreOneValue(bstrKeyName, cached, valueName, value);
    if (!value || FAILED(hr))
        return hr;
    BSTR empty = nullptr;  // a null BSTR is the empty string
    if (::VarBstrCmp(value->value.Text(), empty, LOCALE_USER_DEFAULT, 0) == static_cast<HRESULT>(VARCMP_EQ))
        cached->value.Erase(valueName);  // the next read asks the storage again
    else
        value->value.dirty = false;
    return hr;
}

bool XSessionDataIO::StorageKeepsStoredArray()
{
    XComPtr<IWQ_SessionDataStorageDb> database;
    if (FAILED(m_storage.As(database)) || !database)
        return false;
    LONG userProfile = 0;
    if (FAILED(database->IsUserProfileStorage(&userProfile)))
        userProfile = 0;
    return userProfile != 0;
}

void XSessionDataIO::OnKeyMerged(std::wstring_view lowerKey)
{
    m_missingValues.erase(std::wstring(lowerKey));
}

STDMETHODIMP XSessionDataIOImpl::QueryInterface(REFIID iid, void** ppv)
{
    return m_outer ? m_outer->QueryInterface(iid, ppv) : InternalQueryInterface(iid, ppv);
}

STDMETHODIMP_(ULONG) XSessionDataIOImpl::AddRef()
{
    return m_outer ? m_outer->AddRef() : 1;
}

STDMETHODIMP_(ULONG) XSessionDataIOImpl::Release()
{
    return m_outer ? m_outer->Release() : 1;
}
