#include "fakestorageroot.h"

#include "testenv.h"

FakeStorageRoot::FakeStorageRoot()
    : m_entered(::CreateEventW(nullptr, FALSE, FALSE, nullptr)),
      m_released(::CreateEventW(nullptr, TRUE, FALSE, nullptr)), m_reached(::CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
}

FakeStorageRoot::~FakeStorageRoot()
{
    ::CloseHandle(m_entered);
    ::CloseHandle(m_released);
    ::CloseHandle(m_reached);
}

FakeStorageRoot* FakeStorageRoot::Create()
{
    FakeStorageRoot* root = new XComObject<FakeStorageRoot>();
    root->AddRef();
    return root;
}

HRESULT FakeStorageRoot::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IWQ_SessionDataIOEx, IWQ_SessionDataIO>(this, iid, ppv);
}

void FakeStorageRoot::FailKey(const std::wstring& key, HRESULT hr, const wchar_t* errorInfo)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_failures[key] = Failure{hr, errorInfo ? errorInfo : L""};
}

void FakeStorageRoot::RaiseOnKey(const std::wstring& key)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_raiseKey = key;
}

void FakeStorageRoot::Hold()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_held = true;
    ::ResetEvent(m_released);
}

void FakeStorageRoot::Resume()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_held = false;
    ::SetEvent(m_released);
}

void FakeStorageRoot::AwaitCalls(size_t count)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_awaited = count;
    if (m_calls.size() >= count)
        ::SetEvent(m_reached);
    else
        ::ResetEvent(m_reached);
}

std::vector<FakeStorageRoot::Call> FakeStorageRoot::Calls() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls;
}

void FakeStorageRoot::ClearCalls()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.clear();
}

std::vector<std::wstring> FakeStorageRoot::Texts() const
{
    std::vector<std::wstring> texts;
    for (const Call& call : Calls())
        texts.push_back(call.text);
    return texts;
}

size_t FakeStorageRoot::CallCount() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls.size();
}

STDMETHODIMP FakeStorageRoot::WriteStringList(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pSessionDataList)
{
    std::wstring key = bstrKeyName ? bstrKeyName : L"";
    std::wstring text = L"W " + key;
    for (ULONG i = 0; i < ulCount && pSessionDataList; ++i)
    {
        text += i ? L"," : L" ";
        text += pSessionDataList[i].bstrValueName ? pSessionDataList[i].bstrValueName : L"";
        text += L"=";
        text += pSessionDataList[i].bstrValue ? pSessionDataList[i].bstrValue : L"";
    }
    return Record(key, text);
}

STDMETHODIMP FakeStorageRoot::DeleteKey(BSTR bstrKeyName)
{
    std::wstring key = bstrKeyName ? bstrKeyName : L"";
    return Record(key, L"D " + key);
}

HRESULT FakeStorageRoot::Record(const std::wstring& key, std::wstring text)
{
    bool held = false;
    bool raise = false;
    Failure failure{S_OK, L""};
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.push_back(Call{std::move(text), ::GetCurrentThreadId()});
        if (m_awaited && m_calls.size() >= m_awaited)
            ::SetEvent(m_reached);
        held = m_held;
        raise = !m_raiseKey.empty() && key == m_raiseKey;
        const auto scripted = m_failures.find(key);
        if (scripted != m_failures.end())
            failure = scripted->second;
    }
    if (held)
    {
        ::SetEvent(m_entered);
        ::WaitForSingleObject(m_released, INFINITE);
    }
    if (raise)
        ::RaiseException(kRaisedCode, 0, 0, nullptr);
    if (!failure.errorInfo.empty())
        SetMarkerErrorInfo(failure.errorInfo.c_str());
    return failure.hr;
}
