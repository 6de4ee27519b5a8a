#include "xsessiondataioex.h"

#include <algorithm>
#include <vector>

namespace
{
} // namespace

XSessionDataIOEx::XSessionDataIOEx() noexcept : m_innerIO(static_cast<IWQ_SessionDataIOEx*>(this)) {}

HRESULT XSessionDataIOEx::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IWQ_SessionDataIOEx, IWQ_SessionDataIO, ISupportErrorInfo>(this, iid, ppv);
}

STDMETHODIMP XSessionDataIOEx::InterfaceSupportsErrorInfo(REFIID iid)
{
    return ::IsEqualIID(iid, IID_IWQ_SessionDataIOEx) || ::IsEqualIID(iid, IID_IWQ_SessionDataIO) ? S_OK : S_FALSE;
}

const XSdmReporter& XSessionDataIOEx::Report()
{
    static const XSdmReporter report("xsessiondataioex", CLSID_WQ_SessionDataIOEx);
    return report;
}

HRESULT XSessionDataIOEx::CheckStorage(unsigned long line, const XWQComBSTR& function) const
{
    if (m_storageEx)
        return S_OK;
    return Report().Refuse(line, function, E_POINTER, L"storage instance not set");
}

STDMETHODIMP XSessionDataIOEx::SetStorage(IWQ_SessionDataStorage* piSessionDataStorage)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIOEx::SetStorage");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT bound = m_innerIO.SetStorage(piSessionDataStorage);
        if (FAILED(bound))
            return bound;
        XComPtr<IWQ_SessionDataStorage> storage(piSessionDataStorage);
        XComPtr<IWQ_SessionDataStorageEx> storageEx;
        if (storage)
            storage.As(storageEx);
        m_storageEx = storageEx;
        if (!storage)
            return Report().Refuse(__LINE__, function, E_INVALIDARG, L"storage is NULL");
        if (!storageEx)
            return Report().Refuse(__LINE__, function, E_INVALIDARG, L"storage does not implement IWQ_SessionDataStorageEx");
        m_storageKind = XClassifyStorage(piSessionDataStorage);
        if (m_storageKind == XSTORAGE_DATABASE)
        {
            XComPtr<IWQ_SessionDataStorageDb> database;
            long userProfile = 0;
            if (SUCCEEDED(storage.As(database)) && database->IsUserProfileStorage(&userProfile) == S_OK &&
                userProfile != 0)
                static_cast<IWQ_SessionDataIOEx*>(this)->SetUserProfileIO();
        }
        return bound;
    });
}

STDMETHODIMP XSessionDataIOEx::WriteData(BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue)
{
    return m_innerIO.WriteData(bstrKeyName, bstrValueName, bstrValue);
}

STDMETHODIMP XSessionDataIOEx::GetData(BSTR bstrKeyName, BSTR bstrValueName, BSTR* pbstrValue)
{
    return m_innerIO.GetData(bstrKeyName, bstrValueName, pbstrValue);
}

STDMETHODIMP XSessionDataIOEx::GetStringList(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppSessionDataList)
{
    return m_innerIO.GetStringList(bstrKeyName, pulCount, ppSessionDataList);
}

STDMETHODIMP XSessionDataIOEx::WriteStringList(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pSessionDataList)
{
    return m_innerIO.WriteStringList(bstrKeyName, ulCount, pSessionDataList);
}

STDMETHODIMP XSessionDataIOEx::GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList)
{
    return m_innerIO.GetSubKeys(bstrKeyName, ulRecursive, pulCount, ppKeyNameList);
}

STDMETHODIMP XSessionDataIOEx::SaveData(BSTR, BSTR)
{
    return S_OK;
}

STDMETHODIMP XSessionDataIOEx::FlushCache(SESSIONDATATYPE dataType)
{
    return m_innerIO.FlushCache(dataType);
}

STDMETHODIMP XSessionDataIOEx::FlushAsyncStorage()
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIOEx::FlushAsyncStorage");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT hr = CheckStorage(__LINE__, function);
        return FAILED(hr) ? hr : m_storageEx->FlushAsyncStorage();
    });
}

STDMETHODIMP XSessionDataIOEx::GetLastErrorAsyncExecution(HRESULT* phrAsyncResult)
{
    // Reported under the flush's name, as clients have always seen it.
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIOEx::FlushAsyncStorage");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT hr = CheckStorage(__LINE__, function);
        return FAILED(hr) ? hr : m_storageEx->GetLastErrorAsyncExecution(phrAsyncResult);
    });
}

STDMETHODIMP XSessionDataIOEx::UploadCache(BSTR bstrKeyName)
{
    return m_innerIO.UploadCache(bstrKeyName);
}

STDMETHODIMP XSessionDataIOEx::GetAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                                          tagKEY_SESSIONDATAVALUE** ppKeySessionDataList)
{
    return m_innerIO.GetAllData(bstrRootKeyName, pulCount, ppKeySessionDataList);
}

STDMETHODIMP XSessionDataIOEx::GetStorageType(SDM_STORAGE_TYPE* pStorageType)
{
    *pStorageType = static_cast<SDM_STORAGE_TYPE>(m_storageKind);
    return S_OK;
}

STDMETHODIMP XSessionDataIOEx::WriteObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName,
                                               BSTR bstrValue)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIOEx::WriteObjectData");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).ValueName(bstrValueName).Result();
        if (FAILED(named))
            return named;
        const HRESULT hr = CheckStorage(__LINE__, function);
        if (FAILED(hr))
            return hr;
        // The caller's strings go as they are: no copy, no lower-casing.
        tagSESSIONDATAVALUE record{bstrValueName, bstrValue};
        return m_storageEx->StoreObjectData(piObject, bstrKeyName, 1, &record);
    });
}

STDMETHODIMP XSessionDataIOEx::GetObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName,
                                             BSTR* pbstrValue)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIOEx::GetObjectData");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).ValueName(bstrValueName).Result();
        if (FAILED(named))
            return named;
        HRESULT hr = Report().CheckPointer(__LINE__, function, pbstrValue);
        if (SUCCEEDED(hr))
            hr = CheckStorage(__LINE__, function);
        if (FAILED(hr))
            return hr;
        ULONG count = 0;
        tagSESSIONDATAVALUE* records = nullptr;
        hr = m_storageEx->ReadObjectData(piObject, bstrKeyName, &count, &records);
        if (hr != S_OK)
            return hr;
        // The storage hands out lower-cased names; a record whose name equals the lower-cased
        // value name answers. The walk runs from the back, so the front-most match wins; a
        // value handed out for a later match is left to the caller's pointer and not freed.
        XWQComBSTR wanted(bstrValueName);
        wanted.ToLower();
        hr = S_FALSE;
        for (ULONG i = count; records && i-- > 0;)
        {
            if (::VarBstrCmp(records[i].bstrValueName, static_cast<BSTR>(wanted), LOCALE_USER_DEFAULT, 0) == VARCMP_EQ)
            {
                *pbstrValue = records[i].bstrValue;
                hr = S_OK;
            }
            else
            {
                ::SysFreeString(records[i].bstrValue);
            }
            ::SysFreeString(records[i].bstrValueName);
        }
        ::CoTaskMemFree(records);
        return hr;
    });
}

STDMETHODIMP XSessionDataIOEx::GetObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG* pulCount,
                                                   tagSESSIONDATAVALUE** ppSessionDataList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIOEx::GetObjectStringList");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        if (FAILED(named))
            return named;
        HRESULT hr = Report().CheckPointer(__LINE__, function, pulCount);
        if (SUCCEEDED(hr))
            hr = Report().CheckPointer(__LINE__, function, ppSessionDataList);
        if (SUCCEEDED(hr))
            hr = CheckStorage(__LINE__, function);
        return FAILED(hr) ? hr : m_storageEx->ReadObjectData(piObject, bstrKeyName, pulCount, ppSessionDataList);
    });
}

STDMETHODIMP XSessionDataIOEx::WriteObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG ulCount,
                                                     tagSESSIONDATAVALUE* pSessionDataList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIOEx::WriteObjectStringList");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).Records(ulCount, pSessionDataList).Result();
        if (FAILED(named))
            return named;
        const HRESULT hr = CheckStorage(__LINE__, function);
        return FAILED(hr) ? hr : m_storageEx->StoreObjectData(piObject, bstrKeyName, ulCount, pSessionDataList);
    });
}

STDMETHODIMP XSessionDataIOEx::GetObjectSubKeys(IUnknown* piObject, BSTR bstrKeyName, ULONG ulRecursive,
                                                ULONG* pulCount, BSTR** ppKeyNameList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIOEx::GetObjectSubKeys");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        if (FAILED(named))
            return named;
        HRESULT hr = Report().CheckPointer(__LINE__, function, pulCount);
        if (SUCCEEDED(hr))
            hr = Report().CheckPointer(__LINE__, function, ppKeyNameList);
        if (SUCCEEDED(hr))
            hr = CheckStorage(__LINE__, function);
        return FAILED(hr) ? hr
                          : m_storageEx->GetObjectSubKeys(piObject, bstrKeyName, ulRecursive, pulCount, ppKeyNameList);
    });
}

STDMETHODIMP XSessionDataIOEx::DeleteObjectKey(IUnknown* piObject, BSTR bstrKeyName)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIOEx::DeleteObjectKey");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        if (FAILED(named))
            return named;
        const HRESULT hr = CheckStorage(__LINE__, function);
        return FAILED(hr) ? hr : m_storageEx->DeleteObjectKey(piObject, bstrKeyName);
    });
}

STDMETHODIMP XSessionDataIOEx::DeleteKey(BSTR bstrKeyName)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIOEx::DeleteKey");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        if (FAILED(named))
            return named;
        const HRESULT hr = CheckStorage(__LINE__, function);
        if (FAILED(hr))
            return hr;
        ForgetKey(bstrKeyName);
        return m_storageEx->DeleteKey(bstrKeyName);
    });
}

void XSessionDataIOEx::ForgetKey(BSTR bstrKeyName)
{
    if (XIsEmptyName(bstrKeyName))
        return;
    std::wstring slashed(XTextOf(bstrKeyName));
    std::replace(slashed.begin(), slashed.end(), L'\\', L'/');
    const std::wstring prefix = XLowerName(slashed.c_str()).String();
    const auto beginsWithPrefix = [&prefix](std::wstring_view text) {
        return text.size() >= prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
    };

    XSessionDataIOImpl::Guard guard(m_innerIO, __LINE__);
    for (auto marker = m_innerIO.m_missingValues.begin(); marker != m_innerIO.m_missingValues.end();)
        marker = beginsWithPrefix(*marker) ? m_innerIO.m_missingValues.erase(marker) : std::next(marker);

    std::vector<std::wstring> forgotten;
    for (const auto& key : m_innerIO.m_table)
        if (static_cast<BSTR>(key.name) && beginsWithPrefix(XTextOf(key.name)))
            forgotten.emplace_back(XTextOf(key.name));
    for (const std::wstring& key : forgotten)
        m_innerIO.m_table.Erase(key);
}

STDMETHODIMP XSessionDataIOEx::SetUserProfileIO()
{
    ::InterlockedExchange(&m_userProfile, 1);
    return S_OK;
}

STDMETHODIMP XSessionDataIOEx::IsUserProfileIO(long* pbUserProfile)
{
    *pbUserProfile = m_userProfile == 1 ? 1 : 0;
    return S_OK;
}
