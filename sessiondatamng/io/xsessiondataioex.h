// XSessionDataIOEx (coclass WQ_SessionDataIOEx): the cached access layer for storages that
// offer IWQ_SessionDataStorageEx. The plain IWQ_SessionDataIO operations are served by a cached
// layer held inside this object; the object operations (values that belong to a client's
// object, passed on unchanged and uncounted) and key deletion go to the storage's extended
// interface. Deleting a key also makes the cache forget it. A user-profile database storage
// makes this a user-profile IO, which the manager consults for per-user data.
//
// This layer takes no lock of its own: the plain operations are serialised by the inner
// layer's lock, the object operations rely on the storage's locking.
#pragma once

#include "xsessiondataio.h"

class XSessionDataIOEx : public IWQ_SessionDataIOEx, public ISupportErrorInfo
{
public:
    XSessionDataIOEx() noexcept;
    virtual ~XSessionDataIOEx() = default;
    XSessionDataIOEx(const XSessionDataIOEx&) = delete;
    XSessionDataIOEx& operator=(const XSessionDataIOEx&) = delete;

    HRESULT InternalQueryInterface(REFIID iid, void** ppv);
    static const CLSID& ObjectClsid() { return CLSID_WQ_SessionDataIOEx; }

    // ISupportErrorInfo
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID iid) override;

    // IWQ_SessionDataIO: served by the inner cached layer, except where noted.
    // Binds the inner layer, then takes the storage's extended interface (E_INVALIDARG when the
    // storage has none; the inner layer stays bound) and its kind; a user-profile database
    // storage switches this object's user-profile flag on.
    STDMETHODIMP SetStorage(IWQ_SessionDataStorage* piSessionDataStorage) override;
    STDMETHODIMP WriteData(BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue) override;
    STDMETHODIMP GetData(BSTR bstrKeyName, BSTR bstrValueName, BSTR* pbstrValue) override;
    STDMETHODIMP GetStringList(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppSessionDataList) override;
    STDMETHODIMP WriteStringList(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pSessionDataList) override;
    STDMETHODIMP GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList) override;
    // Does nothing: writes reach the storage when they are made.
    STDMETHODIMP SaveData(BSTR bstrKeyName, BSTR bstrValueName) override;
    STDMETHODIMP FlushCache(SESSIONDATATYPE dataType) override;
    // Straight to the storage's extended interface, bypassing the inner layer.
    STDMETHODIMP FlushAsyncStorage() override;
    STDMETHODIMP GetLastErrorAsyncExecution(HRESULT* phrAsyncResult) override;
    STDMETHODIMP UploadCache(BSTR bstrKeyName) override;
    STDMETHODIMP GetAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                            tagKEY_SESSIONDATAVALUE** ppKeySessionDataList) override;
    // This object's storage kind (0 to 5), set by SetStorage.
    STDMETHODIMP GetStorageType(SDM_STORAGE_TYPE* pStorageType) override;

    // IWQ_SessionDataIOEx
    STDMETHODIMP WriteObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue) override;
    // The value of the record named by the lower-cased value name; S_FALSE (and the out value
    // untouched) when the storage's list has none.
    STDMETHODIMP GetObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName, BSTR* pbstrValue) override;
    STDMETHODIMP GetObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG* pulCount,
                                     tagSESSIONDATAVALUE** ppSessionDataList) override;
    STDMETHODIMP WriteObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG ulCount,
                                       tagSESSIONDATAVALUE* pSessionDataList) override;
    STDMETHODIMP GetObjectSubKeys(IUnknown* piObject, BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount,
                                  BSTR** ppKeyNameList) override;
    STDMETHODIMP DeleteObjectKey(IUnknown* piObject, BSTR bstrKeyName) override;
    // Makes the cache forget every key and missing-value marker that begins with the key (with
    // "/" for "\" and lower-cased; a plain prefix test, so a/b also forgets a/bc), then deletes
    // the key through the storage.
    STDMETHODIMP DeleteKey(BSTR bstrKeyName) override;
    STDMETHODIMP SetUserProfileIO() override;
    STDMETHODIMP IsUserProfileIO(long* pbUserProfile) override;

private:
    // Where this layer reports, and its boundary.
    static const XSdmReporter& Report();
    // S_OK when storageEx is set; else "storage instance not set" (E_POINTER) reported at the
    // location of function.
    HRESULT CheckStorage(unsigned long line, const XWQComBSTR& function) const;
    // Removes from the inner layer's cache the keys and markers that begin with the key.
    void ForgetKey(BSTR bstrKeyName);

    XSessionDataIOImpl m_innerIO;
    XComPtr<IWQ_SessionDataStorageEx> m_storageEx;
    volatile LONG m_userProfile = 0;
    ULONG m_storageKind = XSTORAGE_NONE;
};
