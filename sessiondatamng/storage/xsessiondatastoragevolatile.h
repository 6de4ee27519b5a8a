// XSessionDataStorageVolatile (coclass WQ_SessionDataStorageVolatile): the storage behind
// session-only data. It keeps and persists nothing: whatever a cached IO layer holds is all
// there is of such data. Every call answers at once (writes S_OK, reads S_FALSE with a count
// of 0), touches no out value other than the counts, and never fails. Stateless, so any
// number of threads may call it; aggregatable.
#pragma once

#include "xcomobject.h"
#include "xsessiondatamng_h.h"

class XSessionDataStorageVolatile : public IWQ_SessionDataStorageVolatile, public ISupportErrorInfo
{
public:
    XSessionDataStorageVolatile() = default;
    virtual ~XSessionDataStorageVolatile() = default;

    HRESULT InternalQueryInterface(REFIID iid, void** ppv);
    static const CLSID& ObjectClsid() { return CLSID_WQ_SessionDataStorageVolatile; }

    // ISupportErrorInfo
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID iid) override;

    // IWQ_SessionDataStorage. The list pointers of the reads are left as the caller passed them:
    // callers look at the count first.
    STDMETHODIMP StoreData(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pValueList) override;
    STDMETHODIMP ReadData(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppValueList) override;
    STDMETHODIMP GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList) override;
    STDMETHODIMP ReadAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                             tagKEY_SESSIONDATAVALUE** ppKeySessionDataList) override;
    STDMETHODIMP FlushAsyncStorage() override;
    STDMETHODIMP GetLastErrorAsyncExecution(HRESULT* phrAsyncResult) override;
};
