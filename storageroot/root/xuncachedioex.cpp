#include "xuncachedioex.h"

#include "xcomtypes.h"
#include "xsdmreporter.h"
#include "xsessiondataioex.h"

#include <algorithm>
#include <map>
#include <vector>

namespace
{
template <class Layer, class Interface>
XComPtr<Interface> Bound(REFIID iid, IWQ_SessionDataStorageEx* storage)
{
    static const XSdmReporter report("xuncachedioex", GUID_NULL);
    XComPtr<Interface> layer;
    HRESULT hr = XComObject<Layer>::Create(iid, reinterpret_cast<void**>(layer.ReleaseAndGetAddressOf()));
    if (hr == E_OUTOFMEMORY)
        XSdmRaiseOutOfMemory();
    if (SUCCEEDED(hr))
        hr = layer->SetStorage(storage);
    if (FAILED(hr))
        report.Raise(__LINE__, XSDM_FUNCTION_NAME(L"XUncachedIOEx::Create"), hr,
                     L"the uncached IO layer cannot be bound to the database");
    return layer;
}
} // namespace

XComPtr<IWQ_SessionDataIOEx> XUncachedIOEx::Create(IWQ_SessionDataStorageEx* storage)
{
    XComPtr<IWQ_SessionDataIOEx> extended =
        Bound<XSessionDataIOEx, IWQ_SessionDataIOEx>(IID_IWQ_SessionDataIOEx, storage);
    auto* layer = new XComObject<XUncachedIOEx>();
    XComPtr<IWQ_SessionDataIOEx> result(layer);
    layer->m_storage = XComPtr<IWQ_SessionDataStorageEx>(storage);
    layer->m_extended = std::move(extended);
    return result;
}

const XSdmReporter& XUncachedIOEx::Report()
{
    static const XSdmReporter report("xuncachedioex", GUID_NULL);
    return report;
}

HRESULT XUncachedIOEx::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IWQ_SessionDataIOEx, IWQ_SessionDataIO>(this, iid, ppv);
}

STDMETHODIMP XUncachedIOEx::SetStorage(IWQ_SessionDataStorage*)
{
    // Bound once, when it is made.
    return S_OK;
}

HRESULT XUncachedIOEx::Store(BSTR key, ULONG count, const tagSESSIONDATAVALUE* records)
{
    // Lower-cased names, the later of two equal names winning, as the cached layer stores them.
    std::map<std::wstring, std::wstring_view> named;
    for (ULONG i = 0; i < count; ++i)
        named[XLowered(XBstrView(records[i].bstrValueName))] = XBstrView(records[i].bstrValue);
    named.erase(std::wstring());
    if (named.empty())
        return S_FALSE;
    XValueArray list = XValueArrayOf(
        named, static_cast<ULONG>(named.size()), [](const auto& pair) { return std::wstring_view(pair.first); },
        [](const auto& pair) { return pair.second; });
    return m_storage->StoreData(key, list.Count(), &list[0]);
}

STDMETHODIMP XUncachedIOEx::WriteData(BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XUncachedIOEx::WriteData");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).ValueName(bstrValueName).Result();
        if (FAILED(named))
            return named;
        tagSESSIONDATAVALUE record{bstrValueName, bstrValue};
        return Store(bstrKeyName, 1, &record);
    });
}

STDMETHODIMP XUncachedIOEx::WriteStringList(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pSessionDataList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XUncachedIOEx::WriteStringList");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named =
            Report().Names(__LINE__, function).List(bstrKeyName, ulCount, pSessionDataList, nullptr).Result();
        if (FAILED(named))
            return named;
        return ulCount == 0 ? S_FALSE : Store(bstrKeyName, ulCount, pSessionDataList);
    });
}

STDMETHODIMP XUncachedIOEx::GetData(BSTR bstrKeyName, BSTR bstrValueName, BSTR* pbstrValue)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XUncachedIOEx::GetData");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        if (::SysStringLen(bstrValueName) == 0)
            return S_FALSE;
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).ValueName(bstrValueName).Result();
        if (FAILED(named))
            return named;
        Report().CheckPointerOrRaise(__LINE__, function, pbstrValue);
        XValueArray read;
        const HRESULT hr = m_storage->ReadData(bstrKeyName, read.CountAddress(), read.ItemsAddress());
        if (hr != S_OK)
            return hr;
        const std::wstring wanted = XLowered(XBstrView(bstrValueName));
        for (ULONG i = 0; i < read.Count(); ++i)
            if (XLowered(XBstrView(read[i].bstrValueName)) == wanted)
            {
                const std::wstring_view value = XBstrView(read[i].bstrValue);
                *pbstrValue = XNewBstr(value.data(), value.size());
                return S_OK;
            }
        return S_FALSE;
    });
}

STDMETHODIMP XUncachedIOEx::GetStringList(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppSessionDataList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XUncachedIOEx::GetStringList");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        Report().CheckPointerOrRaise(__LINE__, function, pulCount);
        Report().CheckPointerOrRaise(__LINE__, function, ppSessionDataList);
        *pulCount = 0;
        *ppSessionDataList = nullptr;
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        if (FAILED(named))
            return named;
        XValueArray read;
        const HRESULT hr = m_storage->ReadData(bstrKeyName, read.CountAddress(), read.ItemsAddress());
        if (FAILED(hr))
            return hr;
        if (hr != S_OK || read.Count() == 0)
            return S_FALSE;
        // Lower-cased and in the cached layer's order (VarBstrCmp, the user's locale).
        std::vector<std::pair<XWQComBSTR, std::wstring_view>> pairs;
        for (ULONG i = 0; i < read.Count(); ++i)
        {
            XWQComBSTR name(read[i].bstrValueName);
            name.ToLower();
            pairs.emplace_back(std::move(name), XBstrView(read[i].bstrValue));
        }
        std::stable_sort(pairs.begin(), pairs.end(), [](const auto& a, const auto& b) {
            return ::VarBstrCmp(static_cast<BSTR>(a.first), static_cast<BSTR>(b.first), LOCALE_USER_DEFAULT, 0) ==
                   VARCMP_LT;
        });
        XValueArray list = XValueArrayOf(
            pairs, static_cast<ULONG>(pairs.size()),
            [](const auto& pair) { return std::wstring_view(pair.first.c_str(), pair.first.Length()); },
            [](const auto& pair) { return pair.second; });
        list.Release(pulCount, ppSessionDataList);
        return S_OK;
    });
}

STDMETHODIMP XUncachedIOEx::GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList)
{
    return m_storage->GetSubKeys(bstrKeyName, ulRecursive, pulCount, ppKeyNameList);
}
STDMETHODIMP XUncachedIOEx::SaveData(BSTR, BSTR)
{
    // Every write has reached the storage when it returns.
    return S_OK;
}
STDMETHODIMP XUncachedIOEx::FlushCache(SESSIONDATATYPE)
{
    return S_OK;
}
STDMETHODIMP XUncachedIOEx::FlushAsyncStorage()
{
    return m_storage->FlushAsyncStorage();
}
STDMETHODIMP XUncachedIOEx::GetLastErrorAsyncExecution(HRESULT* phrAsyncResult)
{
    return m_storage->GetLastErrorAsyncExecution(phrAsyncResult);
}
STDMETHODIMP XUncachedIOEx::UploadCache(BSTR)
{
    // Nothing is kept: there is nothing to load.
    return S_OK;
}
STDMETHODIMP XUncachedIOEx::GetAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                                       tagKEY_SESSIONDATAVALUE** ppKeySessionDataList)
{
    return m_storage->ReadAllData(bstrRootKeyName, pulCount, ppKeySessionDataList);
}
STDMETHODIMP XUncachedIOEx::GetStorageType(SDM_STORAGE_TYPE* pStorageType)
{
    return m_extended->GetStorageType(pStorageType);
}
STDMETHODIMP XUncachedIOEx::WriteObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue)
{
    return m_extended->WriteObjectData(piObject, bstrKeyName, bstrValueName, bstrValue);
}
STDMETHODIMP XUncachedIOEx::GetObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName,
                                          BSTR* pbstrValue)
{
    return m_extended->GetObjectData(piObject, bstrKeyName, bstrValueName, pbstrValue);
}
STDMETHODIMP XUncachedIOEx::GetObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG* pulCount,
                                                tagSESSIONDATAVALUE** ppSessionDataList)
{
    return m_extended->GetObjectStringList(piObject, bstrKeyName, pulCount, ppSessionDataList);
}
STDMETHODIMP XUncachedIOEx::WriteObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG ulCount,
                                                  tagSESSIONDATAVALUE* pSessionDataList)
{
    return m_extended->WriteObjectStringList(piObject, bstrKeyName, ulCount, pSessionDataList);
}
STDMETHODIMP XUncachedIOEx::GetObjectSubKeys(IUnknown* piObject, BSTR bstrKeyName, ULONG ulRecursive,
                                             ULONG* pulCount, BSTR** ppKeyNameList)
{
    return m_extended->GetObjectSubKeys(piObject, bstrKeyName, ulRecursive, pulCount, ppKeyNameList);
}
STDMETHODIMP XUncachedIOEx::DeleteObjectKey(IUnknown* piObject, BSTR bstrKeyName)
{
    return m_extended->DeleteObjectKey(piObject, bstrKeyName);
}
STDMETHODIMP XUncachedIOEx::DeleteKey(BSTR bstrKeyName)
{
    return m_extended->DeleteKey(bstrKeyName);
}
STDMETHODIMP XUncachedIOEx::SetUserProfileIO()
{
    return m_extended->SetUserProfileIO();
}
STDMETHODIMP XUncachedIOEx::IsUserProfileIO(long* pbUserProfile)
{
    return m_extended->IsUserProfileIO(pbUserProfile);
}
