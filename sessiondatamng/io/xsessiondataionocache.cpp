#include "xsessiondataionocache.h"

namespace
{
const char kUnit[] = "xsessiondataionocache";

// Empties the working table when a call ends, however it ends.
class EmptiedOnExit
{
public:
    explicit EmptiedOnExit(XKeyTable& table) noexcept : m_table(table) {}
    ~EmptiedOnExit() { m_table.Clear(); }
    EmptiedOnExit(const EmptiedOnExit&) = delete;
    EmptiedOnExit& operator=(const EmptiedOnExit&) = delete;

private:
    XKeyTable& m_table;
};
} // namespace

XSessionDataIONoCache::XSessionDataIONoCache() noexcept : XSessionDataIOBase(kUnit, ObjectClsid()) {}

STDMETHODIMP XSessionDataIONoCache::WriteData(BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIONoCache::WriteData");
    return m_report.Run(__LINE__, function, [&]() -> HRESULT {
        Guard guard(*this, __LINE__);
        const HRESULT checked =
            m_report.Names(__LINE__, function).Key(bstrKeyName).ValueName(bstrValueName).Value(bstrValue, NulRefusingHolder()).Result();
        if (FAILED(checked))
            return checked;
        const HRESULT put = PutValue(bstrKeyName, bstrValueName, bstrValue);
        if (put != S_OK)
            return put;
        // Stored at once; the entry stays in the table, clean.
        return SaveData(bstrKeyName, bstrValueName);
    });
}

STDMETHODIMP XSessionDataIONoCache::GetData(BSTR bstrKeyName, BSTR bstrValueName, BSTR* pbstrValue)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIONoCache::GetData");
    return m_report.Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT checked = m_report.Names(__LINE__, function).Key(bstrKeyName).ValueName(bstrValueName).Result();
        if (FAILED(checked))
            return checked;
        Guard guard(*this, __LINE__);
        if (XIsEmptyName(bstrValueName))
            return S_FALSE;
        EmptiedOnExit emptied(m_table);
        // A key already in the table (after a write) gains the storage's names as the storage
        // spelt them, not lower-cased: a name stored with capitals is then not found, although
        // the same read finds it when the key was not in the table. This asymmetry is kept.
        XValueList read;
        XFoundValue answer;
        const HRESULT hr = FindOrReadValue(XLowerName(bstrKeyName), XLowerName(bstrValueName), false, read, answer);
        if (FAILED(hr))
            return hr;
        if (!answer.found)
            return S_FALSE;
        *pbstrValue = answer.Copy();
        return S_OK;
    });
}

STDMETHODIMP XSessionDataIONoCache::GetStringList(BSTR bstrKeyName, ULONG* pulCount,
                                                  tagSESSIONDATAVALUE** ppSessionDataList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIONoCache::GetStringList");
    return m_report.Run(__LINE__, function, [&]() -> HRESULT {
        HRESULT hr = m_report.Names(__LINE__, function).Key(bstrKeyName).Result();
        if (SUCCEEDED(hr))
            hr = m_report.CheckPointer(__LINE__, function, pulCount);
        if (SUCCEEDED(hr))
            hr = m_report.CheckPointer(__LINE__, function, ppSessionDataList);
        if (FAILED(hr))
            return hr;
        Guard guard(*this, __LINE__);
        EmptiedOnExit emptied(m_table);
        *pulCount = 0;
        // Nothing handed out is S_FALSE here, a failed storage read included.
        ListKeyValues(XLowerName(bstrKeyName), pulCount, ppSessionDataList);
        return *pulCount > 0 ? S_OK : S_FALSE;
    });
}

STDMETHODIMP XSessionDataIONoCache::WriteStringList(BSTR bstrKeyName, ULONG ulCount,
                                                    tagSESSIONDATAVALUE* pSessionDataList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIONoCache::WriteStringList");
    return m_report.Run(__LINE__, function, [&]() -> HRESULT {
        Guard guard(*this, __LINE__);
        const HRESULT checked =
            m_report.Names(__LINE__, function).List(bstrKeyName, ulCount, pSessionDataList, NulRefusingHolder()).Result();
        if (FAILED(checked))
            return checked;
        EmptiedOnExit emptied(m_table);
        if (ulCount == 0)
            return S_FALSE;
        const HRESULT put = PutValues(bstrKeyName, ulCount, pSessionDataList);
        if (put != S_OK)
            return put;
        // All dirty values of the key in one StoreData call.
        return SaveData(bstrKeyName, nullptr);
    });
}

STDMETHODIMP XSessionDataIONoCache::GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount,
                                               BSTR** ppKeyNameList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIONoCache::GetSubKeys");
    return m_report.Run(__LINE__, function, [&]() -> HRESULT {
        return ForwardSubKeys(__LINE__, function, bstrKeyName, ulRecursive, pulCount, ppKeyNameList);
    });
}

STDMETHODIMP XSessionDataIONoCache::SaveData(BSTR bstrKeyName, BSTR bstrValueName)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataIONoCache::SaveData");
    return m_report.Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT checked = m_report.Names(__LINE__, function).Key(bstrKeyName).ValueName(bstrValueName).Result();
        if (FAILED(checked))
            return checked;
        Guard guard(*this, __LINE__);
        const XLowerName key(bstrKeyName);
        XKeyTable::Entry* cached = m_table.Find(key);

        if (!XIsEmptyName(bstrValueName))
        {
            // One value, stored whether dirty or not, under the key as the caller spelt it; a
            // value not in the table is nothing to store.
            XValueTable::Entry* value = nullptr;
            const HRESULT hr = StoreOneValue(bstrKeyName, cached, XLowerName(bstrValueName), value);
            if (!value)
                return S_OK;
            if (SUCCEEDED(hr))
                value->value.dirty = false;
            return hr;
        }

        if (!XIsEmptyName(bstrKeyName))
        {
            // The key's dirty values, under the key as the table holds it.
            if (!cached)
                return S_OK;
            const XValueList dirty = DirtyValues(cached->value);
            return dirty.Empty() ? S_OK : StoreDirtyValues(*cached, dirty);
        }

        // Every key's dirty values, key by key, up to the first result other than S_OK.
        HRESULT hr = S_OK;
        for (XKeyTable::Entry& entry : m_table)
        {
            if (hr != S_OK)
                break;
            hr = StoreDirtyValues(entry, DirtyValues(entry.value));
        }
        return hr;
    });
}

STDMETHODIMP XSessionDataIONoCache::FlushCache(SESSIONDATATYPE dataType)
{
    // Dirty entries are dropped unstored; dataType is not looked at.
    Guard guard(*this, __LINE__);
    m_table.Clear();
    return S_OK;
}

STDMETHODIMP XSessionDataIONoCache::GetAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                                               tagKEY_SESSIONDATAVALUE** ppKeySessionDataList)
{
    // Pending asynchronous writes are flushed first, so that the read sees them.
    return ReadAllData(__LINE__, true, bstrRootKeyName, pulCount, ppKeySessionDataList);
}
