#include "xsessiondatastoragevolatile.h"

HRESULT XSessionDataStorageVolatile::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IWQ_SessionDataStorageVolatile, IWQ_SessionDataStorage, ISupportErrorInfo>(this, iid,
                                                                                                        ppv);
}

STDMETHODIMP XSessionDataStorageVolatile::InterfaceSupportsErrorInfo(REFIID iid)
{
    return ::IsEqualIID(iid, IID_IWQ_SessionDataStorageVolatile) || ::IsEqualIID(iid, IID_IWQ_SessionDataStorage)
               ? S_OK
               : S_FALSE;
}

STDMETHODIMP XSessionDataStorageVolatile::StoreData(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pValueList)
{
    // The values are discarded.
    return S_OK;
}

STDMETHODIMP XSessionDataStorageVolatile::ReadData(BSTR bstrKeyName, ULONG* pulCount,
                                                   tagSESSIONDATAVALUE** ppValueList)
{
    *pulCount = 0;
    return S_FALSE;
}

STDMETHODIMP XSessionDataStorageVolatile::GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount,
                                                     BSTR** ppKeyNameList)
{
    *pulCount = 0;
    return S_FALSE;
}

STDMETHODIMP XSessionDataStorageVolatile::ReadAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                                                      tagKEY_SESSIONDATAVALUE** ppKeySessionDataList)
{
    *pulCount = 0;
    return S_FALSE;
}

STDMETHODIMP XSessionDataStorageVolatile::FlushAsyncStorage()
{
    // There is never pending work.
    return S_OK;
}

STDMETHODIMP XSessionDataStorageVolatile::GetLastErrorAsyncExecution(HRESULT* phrAsyncResult)
{
    // Nothing ever fails here; the caller's value stays as it was.
    return S_OK;
}
