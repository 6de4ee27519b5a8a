// Test double of a storage root: an IWQ_SessionDataIOEx that records WriteStringList and
// DeleteKey (key, values, calling thread) and can be scripted to fail a call on a given key,
// with or without COM error information, or to hold every call until the test releases it.
#pragma once

#include "sessiondataioexnotimpl.h"
#include "xcomobject.h"

#include <map>
#include <mutex>
#include <string>
#include <vector>

class FakeStorageRoot : public SessionDataIOExNotImpl
{
public:
    struct Call
    {
        std::wstring text;  // "W key name=value,name=value" or "D key"
        DWORD thread;
    };

    FakeStorageRoot();
    virtual ~FakeStorageRoot();
    // Creates one (reference count 1).
    static FakeStorageRoot* Create();
    HRESULT InternalQueryInterface(REFIID iid, void** ppv);

    // The call on this key answers hr; with errorInfo, it also sets COM error information with
    // that description.
    void FailKey(const std::wstring& key, HRESULT hr, const wchar_t* errorInfo = nullptr);
    // The call on this key raises a structured exception (code kRaisedCode) after recording.
    static constexpr DWORD kRaisedCode = 0xE0441001;
    void RaiseOnKey(const std::wstring& key);
    // While held, every recorded call signals Entered() and then waits until Resume().
    void Hold();
    void Resume();
    HANDLE Entered() const { return m_entered; }
    // Signalled whenever the number of recorded calls reaches the awaited count.
    void AwaitCalls(size_t count);
    HANDLE CallsReached() const { return m_reached; }

    std::vector<Call> Calls() const;
    void ClearCalls();
    std::vector<std::wstring> Texts() const;
    size_t CallCount() const;

    // The two calls that the asynchronous delegator makes; the rest answer E_NOTIMPL.
    STDMETHODIMP WriteStringList(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pSessionDataList) override;
    STDMETHODIMP DeleteKey(BSTR bstrKeyName) override;

private:
    struct Failure
    {
        HRESULT hr;
        std::wstring errorInfo;
    };
    HRESULT Record(const std::wstring& key, std::wstring text);

    mutable std::mutex m_mutex;
    std::vector<Call> m_calls;
    std::map<std::wstring, Failure> m_failures;
    std::wstring m_raiseKey;
    size_t m_awaited = 0;
    HANDLE m_entered;
    HANDLE m_released;
    HANDLE m_reached;
    bool m_held = false;
};
