// XSessionDataIOExDB (coclass WQ_SessionDataIOExDB): the database access layer. It has no
// storage and no cache: every data operation goes to the object storage root, an
// IWQ_SessionDataIOEx of another server (typically an extended IO layer in another process or
// apartment that owns the database storage), with the same arguments, and its answer comes
// back unchanged. Without a root every forwarded operation fails with one fixed connection
// error. The layer takes no lock: callers must not replace the root while calls are under way.
#pragma once

#include "xcomobject.h"
#include "xsdmreporter.h"
#include "xsessiondatamng_h.h"

class XSessionDataIOExDB : public IWQ_SessionDataIOExDB, public ISupportErrorInfo
{
public:
    XSessionDataIOExDB() = default;
    virtual ~XSessionDataIOExDB() = default;
    XSessionDataIOExDB(const XSessionDataIOExDB&) = delete;
    XSessionDataIOExDB& operator=(const XSessionDataIOExDB&) = delete;

    HRESULT InternalQueryInterface(REFIID iid, void** ppv);
    static const CLSID& ObjectClsid() { return CLSID_WQ_SessionDataIOExDB; }

    // ISupportErrorInfo
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID iid) override;

    // IWQ_SessionDataIO. A storage is never bound here (E_NOTIMPL); SaveData does nothing.
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
    // The root's own storage kind.
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
    // This layer's own flag; the root's is not consulted.
    STDMETHODIMP SetUserProfileIO() override;
    STDMETHODIMP IsUserProfileIO(long* pbUserProfile) override;

    // IWQ_SessionDataIOExDB: replaces the root (null disconnects).
    STDMETHODIMP SetRoot(IWQ_SessionDataIOEx* pSDMObjectStorageRoot) override;

private:
    // call(root) when a root is set; else the connection error reported for function at line.
    template <class Call>
    HRESULT Forward(unsigned long line, const XWQComBSTR& function, Call&& call);
    // Forward once check(XNameCheck&) has passed the keys and names; else the check's failure.
    template <class Check, class Call>
    HRESULT ForwardChecked(unsigned long line, const XWQComBSTR& function, Check&& check, Call&& call);
    static HRESULT NoConnection(unsigned long line, const XWQComBSTR& function) noexcept;

    XComPtr<IWQ_SessionDataIOEx> m_root;
    volatile LONG m_userProfile = 0;
};
