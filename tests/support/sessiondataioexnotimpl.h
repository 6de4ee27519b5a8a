// Base of test doubles (and benchmark doubles) of a storage root: every method of
// IWQ_SessionDataIOEx answers E_NOTIMPL; a double overrides what it needs. IUnknown is left to
// the XComObject shell.
#pragma once

#include "xsessiondatamng_h.h"

class SessionDataIOExNotImpl : public IWQ_SessionDataIOEx
{
public:
    virtual ~SessionDataIOExNotImpl() = default;

    // IWQ_SessionDataIO
    STDMETHODIMP SetStorage(IWQ_SessionDataStorage*) override { return E_NOTIMPL; }
    STDMETHODIMP WriteData(BSTR, BSTR, BSTR) override { return E_NOTIMPL; }
    STDMETHODIMP GetData(BSTR, BSTR, BSTR*) override { return E_NOTIMPL; }
    STDMETHODIMP GetStringList(BSTR, ULONG*, tagSESSIONDATAVALUE**) override { return E_NOTIMPL; }
    STDMETHODIMP WriteStringList(BSTR, ULONG, tagSESSIONDATAVALUE*) override { return E_NOTIMPL; }
    STDMETHODIMP GetSubKeys(BSTR, ULONG, ULONG*, BSTR**) override { return E_NOTIMPL; }
    STDMETHODIMP SaveData(BSTR, BSTR) override { return E_NOTIMPL; }
    STDMETHODIMP FlushCache(SESSIONDATATYPE) override { return E_NOTIMPL; }
    STDMETHODIMP FlushAsyncStorage() override { return E_NOTIMPL; }
    STDMETHODIMP GetLastErrorAsyncExecution(HRESULT*) override { return E_NOTIMPL; }
    STDMETHODIMP UploadCache(BSTR) override { return E_NOTIMPL; }
    STDMETHODIMP GetAllData(BSTR, ULONG*, tagKEY_SESSIONDATAVALUE**) override { return E_NOTIMPL; }
    STDMETHODIMP GetStorageType(SDM_STORAGE_TYPE*) override { return E_NOTIMPL; }
    // IWQ_SessionDataIOEx
    STDMETHODIMP WriteObjectData(IUnknown*, BSTR, BSTR, BSTR) override { return E_NOTIMPL; }
    STDMETHODIMP GetObjectData(IUnknown*, BSTR, BSTR, BSTR*) override { return E_NOTIMPL; }
    STDMETHODIMP GetObjectStringList(IUnknown*, BSTR, ULONG*, tagSESSIONDATAVALUE**) override { return E_NOTIMPL; }
    STDMETHODIMP WriteObjectStringList(IUnknown*, BSTR, ULONG, tagSESSIONDATAVALUE*) override { return E_NOTIMPL; }
    STDMETHODIMP GetObjectSubKeys(IUnknown*, BSTR, ULONG, ULONG*, BSTR**) override { return E_NOTIMPL; }
    STDMETHODIMP DeleteObjectKey(IUnknown*, BSTR) override { return E_NOTIMPL; }
    STDMETHODIMP DeleteKey(BSTR) override { return E_NOTIMPL; }
    STDMETHODIMP SetUserProfileIO() override { return E_NOTIMPL; }
    STDMETHODIMP IsUserProfileIO(LONG*) override { return E_NOTIMPL; }
};
