// XStorageRootForwarder: an object of the calling apartment that stands for a storage root
// reached through a proxy, and forwards every call to it.
//
// The asynchronous storage delegator registers its root in the Global Interface Table, which
// marshals what it is given for good (table-strong). For a proxy, that marshal takes one more
// reference on the object in the other apartment or process, and revoking the registration
// cannot give it back: the platform's release of marshal data does not reach an object of
// another process (Wine answers 0x8001011D, RPC_E_INVALID_OBJREF) and leaves the reference in
// place, so the root's server never learns that its last client left. A forwarder is marshalled
// by this apartment's own stub instead: the revoke releases it, and with it the proxy and the
// root's reference.
//
// It answers only the storage root's interfaces (not IMarshal, so the standard marshaling of its
// own apartment applies), and it is not free-threaded: calls from other apartments run on the
// apartment that made it, as calls on the proxy it holds must.
#pragma once

#include "xcomobject.h"
#include "xsessiondatamng_h.h"

class XStorageRootForwarder : public IWQ_SessionDataIOEx
{
public:
    // The object to register for root: a new forwarder when root is a proxy, else root itself.
    static XComPtr<IWQ_SessionDataIOEx> ForRegistration(IWQ_SessionDataIOEx* root);
    // Whether object is a proxy of an object of another apartment or process.
    static bool IsProxy(IUnknown* object) noexcept;

    XStorageRootForwarder() = default;
    virtual ~XStorageRootForwarder() = default;
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
    STDMETHODIMP IsUserProfileIO(LONG* pbUserProfile) override;

private:
    XComPtr<IWQ_SessionDataIOEx> m_root;
};
