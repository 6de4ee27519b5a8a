// XUncachedIOEx: the extended access layer without a cache, for a database that servers on other
// machines write too (a networked engine): nothing tells a server of another server's writes, so
// a value kept by a server could be stale. Every call reaches the storage, and nothing is kept
// between calls (not even the written values that the module's uncached layer keeps until its
// next read, which would answer a read after another server's write with the old value).
//
// The plain operations behave as the cached layer's answers look to a client: value names are
// lower-cased on the way in (so two spellings of a name are one value, as in the registry) and
// come back lower-cased, lists sorted as that layer sorts them. The object operations, key
// deletion and the user-profile flag go to the module's extended layer, which passes them to the
// storage uncached.
#pragma once

#include "xcomobject.h"
#include "xsessiondatamng_h.h"

class XUncachedIOEx : public IWQ_SessionDataIOEx
{
public:
    XUncachedIOEx() = default;
    virtual ~XUncachedIOEx() = default;
    XUncachedIOEx(const XUncachedIOEx&) = delete;
    XUncachedIOEx& operator=(const XUncachedIOEx&) = delete;

    // A new layer over storage; raises what binding it fails with.
    static XComPtr<IWQ_SessionDataIOEx> Create(IWQ_SessionDataStorageEx* storage);

    HRESULT InternalQueryInterface(REFIID iid, void** ppv);

    // IWQ_SessionDataIO
    STDMETHODIMP SetStorage(IWQ_SessionDataStorage* piSessionDataStorage) override;
    STDMETHODIMP WriteData(BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue) override;
    STDMETHODIMP GetData(BSTR bstrKeyName, BSTR bstrValueName, BSTR* pbstrValue) override;
    STDMETHODIMP GetStringList(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppSessionDataList) override;
    STDMETHODIMP WriteStringList(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pSessionDataList) override;
    STDMETHODIMP GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList) override;
    STDMETHODIMP SaveData(BSTR bstrKeyName, BSTR bstrValueName) override;
    STDMETHODIMP FlushCache(SESSIONDATATYPE dataType) override;
    STDMETHODIMP FlushAsyncStorage() override;
    STDMETHODIMP GetLastErrorAsyncExecution(HRESULT* phrAsyncResult) override;
    STDMETHODIMP UploadCache(BSTR bstrKeyName) override;
    STDMETHODIMP GetAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                            tagKEY_SESSIONDATAVALUE** ppKeySessionDataList) override;
    STDMETHODIMP GetStorageType(SDM_STORAGE_TYPE* pStorageType) override;

    // IWQ_SessionDataIOEx
    STDMETHODIMP WriteObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue) override;
    STDMETHODIMP GetObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName, BSTR* pbstrValue) override;
    STDMETHODIMP GetObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG* pulCount,
                                     tagSESSIONDATAVALUE** ppSessionDataList) override;
    STDMETHODIMP WriteObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG ulCount,
                                       tagSESSIONDATAVALUE* pSessionDataList) override;
    STDMETHODIMP GetObjectSubKeys(IUnknown* piObject, BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount,
                                  BSTR** ppKeyNameList) override;
    STDMETHODIMP DeleteObjectKey(IUnknown* piObject, BSTR bstrKeyName) override;
    STDMETHODIMP DeleteKey(BSTR bstrKeyName) override;
    STDMETHODIMP SetUserProfileIO() override;
    STDMETHODIMP IsUserProfileIO(long* pbUserProfile) override;

private:
    static const class XSdmReporter& Report();
    HRESULT Store(BSTR key, ULONG count, const tagSESSIONDATAVALUE* records);

    XComPtr<IWQ_SessionDataStorageEx> m_storage;
    XComPtr<IWQ_SessionDataIOEx> m_extended;
};
