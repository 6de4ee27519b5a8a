// XSessionDataMng (coclass WQ_SessionDataMng): the manager object clients talk to. It keeps no
// data itself; every method forwards to the process-wide core, so all manager objects of a
// process share one binding table. When the last manager object goes, all bindings are released.
#pragma once

#include "xcomobject.h"
#include "xsessiondatamng_h.h"

class XSessionDataMngImpl;

class XSessionDataMng : public IWQ_SessionDataMng, public ISupportErrorInfo
{
public:
    XSessionDataMng();
    virtual ~XSessionDataMng();

    HRESULT InternalQueryInterface(REFIID iid, void** ppv);
    static const CLSID& ObjectClsid() { return CLSID_WQ_SessionDataMng; }
    // Number of manager objects alive in the process.
    static LONG LiveObjects();
    // Releases every binding of the core (also done when the last manager object is destroyed).
    static HRESULT Terminate();
    // Structured-exception translator of the module's own threads: turns a processor or system
    // exception into a thrown, logged XWrappedWQException (defined in stdafx.cpp). Threads install
    // it with XScopedSeTranslator (cominc/XStructuredExceptionGuard.h).
    static void TranslateCException(unsigned int code, EXCEPTION_POINTERS* pointers);

    // ISupportErrorInfo
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID iid) override;

    // IWQ_SessionDataMng
    STDMETHODIMP SetStorage(IWQ_SessionDataStorage* piSessionDataStorage, SESSIONDATATYPE dataType,
                            LONG bCacheStorage) override;
    STDMETHODIMP SetStorageIO(IWQ_SessionDataIO* piSessionDataIO, SESSIONDATATYPE dataType) override;
    STDMETHODIMP GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppSubKeyList,
                            SESSIONDATATYPE dataType) override;
    STDMETHODIMP GetObjectSubKeys(IUnknown* piObject, BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount,
                                  BSTR** ppSubKeyList, SESSIONDATATYPE dataType) override;
    STDMETHODIMP SaveData(SESSIONDATATYPE dataType, BSTR bstrKeyName, BSTR bstrValueName) override;
    STDMETHODIMP TransferDataFromTo(SESSIONDATATYPE dataTypeForm, SESSIONDATATYPE dataTypeTo, BSTR bstrKeyNameFrom,
                                    BSTR bstrKeyNameTo) override;
    STDMETHODIMP GetData(BSTR bstrKeyName, BSTR bstrValueName, unsigned short varType, VARIANT* pVariantValue,
                         SESSIONDATATYPE dataType) override;
    STDMETHODIMP GetDataEncrypt(BSTR bstrKeyName, BSTR bstrValueName, unsigned short varType,
                                VARIANT* pVariantValue, SESSIONDATATYPE dataType) override;
    STDMETHODIMP WriteData(BSTR bstrKeyName, BSTR bstrValueName, VARIANT VariantValue,
                           SESSIONDATATYPE dataType) override;
    STDMETHODIMP GetStringList(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppSessionDataList,
                               SESSIONDATATYPE dataType) override;
    STDMETHODIMP WriteStringList(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pSessionDataList,
                                 SESSIONDATATYPE dataType) override;
    STDMETHODIMP GetObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName, unsigned short varType,
                               VARIANT* pVariantValue, SESSIONDATATYPE dataType) override;
    STDMETHODIMP WriteObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName, VARIANT VariantValue,
                                 SESSIONDATATYPE dataType) override;
    STDMETHODIMP GetObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG* pulCount,
                                     tagSESSIONDATAVALUE** ppSessionDataList, SESSIONDATATYPE dataType) override;
    STDMETHODIMP WriteObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG ulCount,
                                       tagSESSIONDATAVALUE* pSessionDataList, SESSIONDATATYPE dataType) override;
    STDMETHODIMP IsInit(SESSIONDATATYPE dataType) override;
    STDMETHODIMP DeleteObjectKey(IUnknown* piObject, BSTR bstrKeyName, SESSIONDATATYPE dataType) override;
    STDMETHODIMP DeleteKey(BSTR bstrKeyName, SESSIONDATATYPE dataType) override;
    STDMETHODIMP GetDataVB(BSTR bstrKeyName, BSTR bstrValueName, SESSIONDATATYPE dataType,
                           VARIANT* pVariantValue) override;
    STDMETHODIMP GetObjectDataVB(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName,
                                 SESSIONDATATYPE dataType, VARIANT* pVariantValue) override;
    STDMETHODIMP FlushCache(SESSIONDATATYPE dataType) override;
    STDMETHODIMP FlushAsyncStorage(SESSIONDATATYPE dataType) override;
    STDMETHODIMP GetLastErrorAsyncExecution(SESSIONDATATYPE dataType, HRESULT* phrAsyncResult) override;
    STDMETHODIMP UploadCache(BSTR bstrKeyName, SESSIONDATATYPE dataType) override;
    STDMETHODIMP GetStorageType(SESSIONDATATYPE dataType, SDM_STORAGE_TYPE* pStorageType) override;
    STDMETHODIMP SetInvalid() override;
    STDMETHODIMP Validate() override;
};
