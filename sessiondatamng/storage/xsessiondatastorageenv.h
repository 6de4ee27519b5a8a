// XSessionDataStorageEnv (coclass WQ_SessionDataStorageEnv): keeps session data in the
// environment variables of the running process. The value name under key k is the variable
// "k/name" ("\\" in the key turned into "/"), written in upper case and matched without regard
// to case; a value directly under the empty key is a variable without "/" in its name.
//
// Reads answer from a copy of the environment taken at the first read and kept for the
// object's life: variables written afterwards, by this object too, are not seen by it.
// No lock: callers share one object per thread or serialise their calls.
#pragma once

#include "xcomobject.h"
#include "xsessiondatamng_h.h"
#include "xstoragepairs.h"

class XSessionDataStorageEnv : public IWQ_SessionDataStorageEnv, public ISupportErrorInfo
{
public:
    XSessionDataStorageEnv() = default;
    virtual ~XSessionDataStorageEnv() = default;
    XSessionDataStorageEnv(const XSessionDataStorageEnv&) = delete;
    XSessionDataStorageEnv& operator=(const XSessionDataStorageEnv&) = delete;

    HRESULT InternalQueryInterface(REFIID iid, void** ppv);
    static const CLSID& ObjectClsid() { return CLSID_WQ_SessionDataStorageEnv; }

    // ISupportErrorInfo
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID iid) override;

    // IWQ_SessionDataStorage. Result arrays are filled only on S_OK; other answers give 0 and null.
    STDMETHODIMP StoreData(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pValueList) override;
    STDMETHODIMP ReadData(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppValueList) override;
    STDMETHODIMP GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList) override;
    STDMETHODIMP ReadAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                             tagKEY_SESSIONDATAVALUE** ppKeySessionDataList) override;
    // No asynchronous work: S_OK, nothing done, *phrAsyncResult not written.
    STDMETHODIMP FlushAsyncStorage() override;
    STDMETHODIMP GetLastErrorAsyncExecution(HRESULT* phrAsyncResult) override;

    // Internal operations on the program's own containers, wrapped by the COM methods; their
    // order in the virtual table is fixed. The reads fill the environment copy through the
    // GetListOfEnvValues slot.
    //
    // Enters the values directly under key into pairs, named as the variables spell them.
    // S_OK when there was one, else S_FALSE (or the failed fill's answer).
    virtual HRESULT ReadData(const XWQComBSTR& key, XStoragePairs& pairs);
    // Sets one variable per pair, in map order; a failure is reported and the next pair is set
    // all the same. S_FALSE for no pairs. The environment copy is not touched.
    virtual HRESULT StoreData(const XWQComBSTR& key, const XStoragePairs& pairs);
    // Enters every variable of the process environment into variables (names and values
    // trimmed; entries without "=" or with an empty name skipped). S_OK when it holds any.
    virtual HRESULT GetListOfEnvValues(XStoragePairs& variables);
    // The parent paths of the variables below key, without duplicates (regardless of case),
    // sorted ordinally; without recursive 1 only those one level below key. S_FALSE for none.
    virtual HRESULT GetSubKeys(const XWQComBSTR& key, ULONG recursive, XStorageKeyNames& names);

private:
    // Fills the environment copy when it is empty; S_OK when it holds variables.
    HRESULT EnsureEnvCache();

    // Variable name -> value, taken from the environment at the first read.
    XStoragePairs m_envCache;
};
