// XSessionDataIONoCache (coclass WQ_SessionDataIONoCache): the uncached access layer. Every read
// and write goes through to the storage at once. Its key table is scratch space: emptied at the
// end of every read call and by FlushCache, while written values are stored as they are written.
//
// Its class identity, as it reports it (the GUID of its error info), is that of the cached
// layer, WQ_SessionDataIOCache; the class is registered under WQ_SessionDataIONoCache.
#pragma once

#include "xsessiondataiobase.h"

class XSessionDataIONoCache : public XSessionDataIOBase
{
public:
    XSessionDataIONoCache() noexcept;

    static const CLSID& ObjectClsid() { return CLSID_WQ_SessionDataIOCache; }

    // IWQ_SessionDataIO (the rest is shared with the cached layer, see XSessionDataIOBase)
    STDMETHODIMP WriteData(BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue) override;
    STDMETHODIMP GetData(BSTR bstrKeyName, BSTR bstrValueName, BSTR* pbstrValue) override;
    STDMETHODIMP GetStringList(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppSessionDataList) override;
    STDMETHODIMP WriteStringList(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pSessionDataList) override;
    STDMETHODIMP GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList) override;
    STDMETHODIMP SaveData(BSTR bstrKeyName, BSTR bstrValueName) override;
    STDMETHODIMP FlushCache(SESSIONDATATYPE dataType) override;
    STDMETHODIMP GetAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                            tagKEY_SESSIONDATAVALUE** ppKeySessionDataList) override;
};
