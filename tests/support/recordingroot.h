// Test double: a storage root (IWQ_SessionDataIOEx of "another server") that records every call
// with its arguments and the calling thread, and answers from a script. Calls may come from any
// thread (the asynchronous worker too); waiting for a number of calls is possible.
//
// Created free-threaded by default (it aggregates the free-threaded marshaler), so the Global
// Interface Table hands out the object itself and no proxy/stub is needed; created without, it
// is marshalled through the module's proxy/stub like a real root of another apartment.
#pragma once

#include "recordingio.h"
#include "xcomobject.h"
#include "xsessiondatamng_h.h"

#include <condition_variable>
#include <map>
#include <set>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

class RecordingRoot : public IWQ_SessionDataIOEx
{
public:
    using Pairs = std::vector<std::pair<std::wstring, std::wstring>>;

    // Creates one (reference count 1).
    static RecordingRoot* Create(bool freeThreaded = true);
    virtual ~RecordingRoot();
    HRESULT InternalQueryInterface(REFIID iid, void** ppv);
    IWQ_SessionDataIOEx* Root() { return this; }

    // Script. GetStringList / GetObjectStringList of a key (exact text) set here answer S_OK
    // with these pairs; GetSubKeys / GetObjectSubKeys answer S_OK with the names; GetAllData
    // answers S_OK with the records once set. Anything else answers S_FALSE with a count of 0.
    void SetList(const std::wstring& key, Pairs pairs);
    void SetSubKeys(const std::wstring& key, std::vector<std::wstring> names);
    void SetAllData(std::vector<std::pair<std::wstring, Pairs>> records);
    // Forces a method's result (by name); the method then hands out nothing.
    void SetResult(const std::string& method, HRESULT hr);
    // While a method is held, its calls wait (at most kHoldLimit) until Open before they are
    // recorded and answer: a caller that waits for such a call cannot return before Open.
    void Hold(const std::string& method);
    void Open();
    static const DWORD kHoldLimit = 10000;

    // Record (of finished calls): "Method(arg|arg|...)", value lists as "name=value;name=value", a null string as
    // "<null>", an object as "obj".
    std::vector<std::string> Calls() const;
    std::vector<DWORD> CallThreads() const;
    std::vector<IUnknown*> Objects() const;
    void ClearCalls();
    // Waits until at least count calls are recorded; false on time-out.
    bool WaitForCalls(size_t count, DWORD milliseconds) const;
    LONG References();

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

protected:
    RecordingRoot() = default;

private:
    void Record(const std::string& call, IUnknown* object = nullptr);
    bool Forced(const std::string& method, HRESULT& hr) const;
    // The scripted answer of key in table (made by make), the forced result, or S_FALSE.
    template <class Table, class T, class Make>
    HRESULT Answer(const std::string& method, BSTR key, const Table& table, ULONG* count, T** items, Make&& make);
    HRESULT AnswerList(const std::string& method, BSTR key, ULONG* count, tagSESSIONDATAVALUE** list);
    HRESULT AnswerNames(const std::string& method, BSTR key, ULONG* count, BSTR** names);

    IUnknown* m_marshaler = nullptr;
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_called;
    std::vector<std::string> m_calls;
    std::vector<DWORD> m_threads;
    std::vector<IUnknown*> m_objects;
    std::map<std::string, HRESULT> m_results;
    std::set<std::string> m_held;
    std::condition_variable m_opened;
    std::map<std::wstring, Pairs> m_lists;
    std::map<std::wstring, std::vector<std::wstring>> m_subKeys;
    bool m_hasAllData = false;
    std::vector<std::pair<std::wstring, Pairs>> m_allData;
};

// "name=value;name=value" of a value list.
std::string RootPairsText(ULONG count, const tagSESSIONDATAVALUE* list);
