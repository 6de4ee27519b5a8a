#include "xuncachedioex.h"

#include "xsdmreporter.h"
#include "xsessiondataioex.h"
#include "xsessiondataionocache.h"

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
    XComPtr<IWQ_SessionDataIO> plain = Bound<XSessionDataIONoCache, IWQ_SessionDataIO>(IID_IWQ_SessionDataIO, storage);
    XComPtr<IWQ_SessionDataIOEx> extended =
        Bound<XSessionDataIOEx, IWQ_SessionDataIOEx>(IID_IWQ_SessionDataIOEx, storage);
    auto* layer = new XComObject<XUncachedIOEx>();
    XComPtr<IWQ_SessionDataIOEx> result(layer);
    layer->m_plain = std::move(plain);
    layer->m_extended = std::move(extended);
    return result;
}

HRESULT XUncachedIOEx::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IWQ_SessionDataIOEx, IWQ_SessionDataIO>(this, iid, ppv);
}

STDMETHODIMP XUncachedIOEx::SetStorage(IWQ_SessionDataStorage* piSessionDataStorage)
{
    const HRESULT hr = m_plain->SetStorage(piSessionDataStorage);
    return FAILED(hr) ? hr : m_extended->SetStorage(piSessionDataStorage);
}
STDMETHODIMP XUncachedIOEx::WriteData(BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue)
{
    return m_plain->WriteData(bstrKeyName, bstrValueName, bstrValue);
}
STDMETHODIMP XUncachedIOEx::GetData(BSTR bstrKeyName, BSTR bstrValueName, BSTR* pbstrValue)
{
    return m_plain->GetData(bstrKeyName, bstrValueName, pbstrValue);
}
STDMETHODIMP XUncachedIOEx::GetStringList(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppSessionDataList)
{
    return m_plain->GetStringList(bstrKeyName, pulCount, ppSessionDataList);
}
STDMETHODIMP XUncachedIOEx::WriteStringList(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pSessionDataList)
{
    return m_plain->WriteStringList(bstrKeyName, ulCount, pSessionDataList);
}
STDMETHODIMP XUncachedIOEx::GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList)
{
    return m_plain->GetSubKeys(bstrKeyName, ulRecursive, pulCount, ppKeyNameList);
}
STDMETHODIMP XUncachedIOEx::SaveData(BSTR bstrKeyName, BSTR bstrValueName)
{
    return m_plain->SaveData(bstrKeyName, bstrValueName);
}
STDMETHODIMP XUncachedIOEx::FlushCache(SESSIONDATATYPE dataType)
{
    return m_plain->FlushCache(dataType);
}
STDMETHODIMP XUncachedIOEx::FlushAsyncStorage()
{
    return m_extended->FlushAsyncStorage();
}
STDMETHODIMP XUncachedIOEx::GetLastErrorAsyncExecution(HRESULT* phrAsyncResult)
{
    return m_extended->GetLastErrorAsyncExecution(phrAsyncResult);
}
STDMETHODIMP XUncachedIOEx::UploadCache(BSTR bstrKeyName)
{
    return m_plain->UploadCache(bstrKeyName);
}
STDMETHODIMP XUncachedIOEx::GetAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                                       tagKEY_SESSIONDATAVALUE** ppKeySessionDataList)
{
    return m_plain->GetAllData(bstrRootKeyName, pulCount, ppKeySessionDataList);
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
