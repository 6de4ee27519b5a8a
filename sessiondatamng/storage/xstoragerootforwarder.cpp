#include "xstoragerootforwarder.h"

XComPtr<IWQ_SessionDataIOEx> XStorageRootForwarder::ForRegistration(IWQ_SessionDataIOEx* root)
{
    if (!IsProxy(root))
        return XComPtr<IWQ_SessionDataIOEx>(root);
    auto* forwarder = new XComObject<XStorageRootForwarder>();
    forwarder->m_root = XComPtr<IWQ_SessionDataIOEx>(root);
    return XComPtr<IWQ_SessionDataIOEx>(forwarder);
}

bool XStorageRootForwarder::IsProxy(IUnknown* object) noexcept
{
    // Every proxy of the standard marshaler offers the client's security settings.
    IClientSecurity* security = nullptr;
    if (!object || FAILED(object->QueryInterface(IID_IClientSecurity, reinterpret_cast<void**>(&security))) ||
        !security)
        return false;
    security->Release();
    return true;
}

HRESULT XStorageRootForwarder::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IWQ_SessionDataIOEx, IWQ_SessionDataIO>(this, iid, ppv);
}

STDMETHODIMP XStorageRootForwarder::SetStorage(IWQ_SessionDataStorage* piSessionDataStorage)
{
    return m_root->SetStorage(piSessionDataStorage);
}

STDMETHODIMP XStorageRootForwarder::WriteData(BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue)
{
    return m_root->WriteData(bstrKeyName, bstrValueName, bstrValue);
}

STDMETHODIMP XStorageRootForwarder::GetData(BSTR bstrKeyName, BSTR bstrValueName, BSTR* pbstrValue)
{
    return m_root->GetData(bstrKeyName, bstrValueName, pbstrValue);
}

STDMETHODIMP XStorageRootForwarder::GetStringList(BSTR bstrKeyName, ULONG* pulCount,
                                                  tagSESSIONDATAVALUE** ppSessionDataList)
{
    return m_root->GetStringList(bstrKeyName, pulCount, ppSessionDataList);
}

STDMETHODIMP XStorageRootForwarder::WriteStringList(BSTR bstrKeyName, ULONG ulCount,
                                                    tagSESSIONDATAVALUE* pSessionDataList)
{
    return m_root->WriteStringList(bstrKeyName, ulCount, pSessionDataList);
}

STDMETHODIMP XStorageRootForwarder::GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount,
                                               BSTR** ppKeyNameList)
{
    return m_root->GetSubKeys(bstrKeyName, ulRecursive, pulCount, ppKeyNameList);
}

STDMETHODIMP XStorageRootForwarder::SaveData(BSTR bstrKeyName, BSTR bstrValueName)
{
    return m_root->SaveData(bstrKeyName, bstrValueName);
}

STDMETHODIMP XStorageRootForwarder::FlushCache(SESSIONDATATYPE dataType)
{
    return m_root->FlushCache(dataType);
}

STDMETHODIMP XStorageRootForwarder::FlushAsyncStorage()
{
    return m_root->FlushAsyncStorage();
}

STDMETHODIMP XStorageRootForwarder::GetLastErrorAsyncExecution(HRESULT* phrAsyncResult)
{
    return m_root->GetLastErrorAsyncExecution(phrAsyncResult);
}

STDMETHODIMP XStorageRootForwarder::UploadCache(BSTR bstrKeyName)
{
    return m_root->UploadCache(bstrKeyName);
}

STDMETHODIMP XStorageRootForwarder::GetAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                                               tagKEY_SESSIONDATAVALUE** ppKeySessionDataList)
{
    return m_root->GetAllData(bstrRootKeyName, pulCount, ppKeySessionDataList);
}

STDMETHODIMP XStorageRootForwarder::GetStorageType(SDM_STORAGE_TYPE* pStorageType)
{
    return m_root->GetStorageType(pStorageType);
}

STDMETHODIMP XStorageRootForwarder::WriteObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName,
                                                    BSTR bstrValue)
{
    return m_root->WriteObjectData(piObject, bstrKeyName, bstrValueName, bstrValue);
}

STDMETHODIMP XStorageRootForwarder::GetObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName,
                                                  BSTR* pbstrValue)
{
    return m_root->GetObjectData(piObject, bstrKeyName, bstrValueName, pbstrValue);
}

STDMETHODIMP XStorageRootForwarder::GetObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG* pulCount,
                                                        tagSESSIONDATAVALUE** ppSessionDataList)
{
    return m_root->GetObjectStringList(piObject, bstrKeyName, pulCount, ppSessionDataList);
}

STDMETHODIMP XStorageRootForwarder::WriteObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG ulCount,
                                                          tagSESSIONDATAVALUE* pSessionDataList)
{
    return m_root->WriteObjectStringList(piObject, bstrKeyName, ulCount, pSessionDataList);
}

STDMETHODIMP XStorageRootForwarder::GetObjectSubKeys(IUnknown* piObject, BSTR bstrKeyName, ULONG ulRecursive,
                                                     ULONG* pulCount, BSTR** ppKeyNameList)
{
    return m_root->GetObjectSubKeys(piObject, bstrKeyName, ulRecursive, pulCount, ppKeyNameList);
}

STDMETHODIMP XStorageRootForwarder::DeleteObjectKey(IUnknown* piObject, BSTR bstrKeyName)
{
    return m_root->DeleteObjectKey(piObject, bstrKeyName);
}

STDMETHODIMP XStorageRootForwarder::DeleteKey(BSTR bstrKeyName)
{
    return m_root->DeleteKey(bstrKeyName);
}

STDMETHODIMP XStorageRootForwarder::SetUserProfileIO()
{
    return m_root->SetUserProfileIO();
}

STDMETHODIMP XStorageRootForwarder::IsUserProfileIO(LONG* pbUserProfile)
{
    return m_root->IsUserProfileIO(pbUserProfile);
}
