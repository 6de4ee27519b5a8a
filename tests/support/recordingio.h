// Test double: an IO object that records every call with its arguments and answers from a
// scripted data set. With `extended` false it answers only IWQ_SessionDataIO, like the plain
// IO layers; with true also IWQ_SessionDataIOEx.
#pragma once

#include "xcomobject.h"
#include "xsessiondatamng_h.h"

#include <map>
#include <mutex>
#include <string>
#include <vector>

class RecordingIO : public IWQ_SessionDataIOEx
{
public:
    RecordingIO() = default;
    virtual ~RecordingIO() = default;

    // Creates one (reference count 1).
    static RecordingIO* Create(bool extended = false);
    HRESULT InternalQueryInterface(REFIID iid, void** ppv);

    // Script: results by method name (default S_OK when data answers, S_FALSE when not).
    void SetResult(const std::string& method, HRESULT hr);
    void SetValue(const std::wstring& key, const std::wstring& name, const std::wstring& value);
    void SetSubKeys(const std::wstring& key, std::vector<std::wstring> subKeys);
    void SetUserProfile(LONG flag, HRESULT hr = S_OK);
    void SetStorageType(SDM_STORAGE_TYPE type) { m_storageType = type; }

    // Record.
    std::vector<std::string> Calls() const;
    size_t CountCalls(const std::string& prefix) const;
    // Written values: key -> name -> value, in the order of the writes.
    std::map<std::wstring, std::map<std::wstring, std::wstring>> Values() const;
    LONG References();

    bool extended = false;

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
    void Record(const std::string& call);
    HRESULT Scripted(const std::string& method, HRESULT fallback) const;
    HRESULT ListOf(const std::wstring& key, ULONG* count, tagSESSIONDATAVALUE** list);

    mutable std::mutex m_mutex;
    std::vector<std::string> m_calls;
    std::map<std::string, HRESULT> m_results;
    std::map<std::wstring, std::map<std::wstring, std::wstring>> m_values;
    std::map<std::wstring, std::vector<std::wstring>> m_subKeys;
    LONG m_userProfile = 0;
    HRESULT m_userProfileResult = S_OK;
    SDM_STORAGE_TYPE m_storageType = static_cast<SDM_STORAGE_TYPE>(5);
};

// Narrow text of a string for call records ("<null>" for a null string), up to its first NUL.
std::string Narrow(const wchar_t* text);
// The same for the whole of a BSTR: an embedded NUL character shows as "\0".
std::string NarrowBstr(BSTR text);
