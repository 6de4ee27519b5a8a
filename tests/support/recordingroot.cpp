#include "recordingroot.h"

#include <chrono>

std::string RootPairsText(ULONG count, const tagSESSIONDATAVALUE* list)
{
    std::string out;
    for (ULONG i = 0; list && i < count; ++i)
        out += (i ? ";" : "") + NarrowBstr(list[i].bstrValueName) + "=" + NarrowBstr(list[i].bstrValue);
    return out;
}

namespace
{
std::wstring W(const wchar_t* text)
{
    return text ? std::wstring(text) : std::wstring();
}

tagSESSIONDATAVALUE* NewList(const RecordingRoot::Pairs& pairs)
{
    auto* list = static_cast<tagSESSIONDATAVALUE*>(::CoTaskMemAlloc(pairs.size() * sizeof(tagSESSIONDATAVALUE)));
    for (size_t i = 0; i < pairs.size(); ++i)
    {
        list[i].bstrValueName = ::SysAllocString(pairs[i].first.c_str());
        list[i].bstrValue = ::SysAllocString(pairs[i].second.c_str());
    }
    return list;
}
} // namespace

RecordingRoot* RecordingRoot::Create(bool freeThreaded)
{
    auto* root = new XComObject<RecordingRoot>();
    root->AddRef();
    if (freeThreaded)
        ::CoCreateFreeThreadedMarshaler(static_cast<IUnknown*>(static_cast<IWQ_SessionDataIOEx*>(root)),
                                        &root->m_marshaler);
    return root;
}

RecordingRoot::~RecordingRoot()
{
    if (m_marshaler)
        m_marshaler->Release();
}

HRESULT RecordingRoot::InternalQueryInterface(REFIID iid, void** ppv)
{
    if (m_marshaler && ::IsEqualIID(iid, IID_IMarshal))
        return m_marshaler->QueryInterface(iid, ppv);
    return XQueryInterfaces<IWQ_SessionDataIOEx, IWQ_SessionDataIO>(this, iid, ppv);
}

void RecordingRoot::SetList(const std::wstring& key, Pairs pairs)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lists[key] = std::move(pairs);
}

void RecordingRoot::SetSubKeys(const std::wstring& key, std::vector<std::wstring> names)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_subKeys[key] = std::move(names);
}

void RecordingRoot::SetAllData(std::vector<std::pair<std::wstring, Pairs>> records)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_hasAllData = true;
    m_allData = std::move(records);
}

void RecordingRoot::SetResult(const std::string& method, HRESULT hr)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_results[method] = hr;
}

void RecordingRoot::Hold(const std::string& method)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_held.insert(method);
}

void RecordingRoot::Open()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_held.clear();
    }
    m_opened.notify_all();
}

std::vector<std::string> RecordingRoot::Calls() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls;
}

std::vector<DWORD> RecordingRoot::CallThreads() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_threads;
}

std::vector<IUnknown*> RecordingRoot::Objects() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_objects;
}

void RecordingRoot::ClearCalls()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.clear();
    m_threads.clear();
    m_objects.clear();
}

bool RecordingRoot::WaitForCalls(size_t count, DWORD milliseconds) const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_called.wait_for(lock, std::chrono::milliseconds(milliseconds), [&] { return m_calls.size() >= count; });
}

LONG RecordingRoot::References()
{
    AddRef();
    return static_cast<LONG>(Release());
}

void RecordingRoot::Record(const std::string& call, IUnknown* object)
{
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        const std::string method = call.substr(0, call.find('('));
        m_opened.wait_for(lock, std::chrono::milliseconds(kHoldLimit), [&] { return m_held.count(method) == 0; });
        m_calls.push_back(call);
        m_threads.push_back(::GetCurrentThreadId());
        if (object)
            m_objects.push_back(object);
    }
    m_called.notify_all();
}

bool RecordingRoot::Forced(const std::string& method, HRESULT& hr) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_results.find(method);
    if (found == m_results.end())
        return false;
    hr = found->second;
    return true;
}

template <class Table, class T, class Make>
HRESULT RecordingRoot::Answer(const std::string& method, BSTR key, const Table& table, ULONG* count, T** items,
                              Make&& make)
{
    HRESULT hr = S_OK;
    if (Forced(method, hr))
        return hr;
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = table.find(W(key));
    if (found == table.end())
    {
        *count = 0;
        return S_FALSE;
    }
    *count = static_cast<ULONG>(found->second.size());
    *items = make(found->second);
    return S_OK;
}

HRESULT RecordingRoot::AnswerList(const std::string& method, BSTR key, ULONG* count, tagSESSIONDATAVALUE** list)
{
    return Answer(method, key, m_lists, count, list, NewList);
}

HRESULT RecordingRoot::AnswerNames(const std::string& method, BSTR key, ULONG* count, BSTR** names)
{
    return Answer(method, key, m_subKeys, count, names, [](const std::vector<std::wstring>& source) {
        auto* out = static_cast<BSTR*>(::CoTaskMemAlloc(source.size() * sizeof(BSTR)));
        for (size_t i = 0; i < source.size(); ++i)
            out[i] = ::SysAllocString(source[i].c_str());
        return out;
    });
}

STDMETHODIMP RecordingRoot::SetStorage(IWQ_SessionDataStorage*)
{
    Record("SetStorage()");
    return E_NOTIMPL;
}

STDMETHODIMP RecordingRoot::WriteData(BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue)
{
    Record("WriteData(" + Narrow(bstrKeyName) + "|" + Narrow(bstrValueName) + "|" + Narrow(bstrValue) + ")");
    HRESULT hr = S_OK;
    return Forced("WriteData", hr) ? hr : S_OK;
}

STDMETHODIMP RecordingRoot::GetData(BSTR bstrKeyName, BSTR bstrValueName, BSTR* pbstrValue)
{
    Record("GetData(" + Narrow(bstrKeyName) + "|" + Narrow(bstrValueName) + ")");
    HRESULT hr = S_OK;
    return Forced("GetData", hr) ? hr : S_FALSE;
}

STDMETHODIMP RecordingRoot::GetStringList(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppSessionDataList)
{
    Record("GetStringList(" + Narrow(bstrKeyName) + ")");
    return AnswerList("GetStringList", bstrKeyName, pulCount, ppSessionDataList);
}

STDMETHODIMP RecordingRoot::WriteStringList(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pSessionDataList)
{
    Record("WriteStringList(" + Narrow(bstrKeyName) + "|" + std::to_string(ulCount) + "|" +
           RootPairsText(ulCount, pSessionDataList) + ")");
    HRESULT hr = S_OK;
    return Forced("WriteStringList", hr) ? hr : S_OK;
}

STDMETHODIMP RecordingRoot::GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList)
{
    Record("GetSubKeys(" + Narrow(bstrKeyName) + "|" + std::to_string(ulRecursive) + ")");
    return AnswerNames("GetSubKeys", bstrKeyName, pulCount, ppKeyNameList);
}

STDMETHODIMP RecordingRoot::SaveData(BSTR bstrKeyName, BSTR bstrValueName)
{
    Record("SaveData(" + Narrow(bstrKeyName) + "|" + Narrow(bstrValueName) + ")");
    return S_OK;
}

STDMETHODIMP RecordingRoot::FlushCache(SESSIONDATATYPE dataType)
{
    Record("FlushCache(" + std::to_string(static_cast<long>(dataType)) + ")");
    return S_OK;
}

STDMETHODIMP RecordingRoot::FlushAsyncStorage()
{
    Record("FlushAsyncStorage()");
    return S_OK;
}

STDMETHODIMP RecordingRoot::GetLastErrorAsyncExecution(HRESULT* phrAsyncResult)
{
    Record("GetLastErrorAsyncExecution()");
    return S_OK;
}

STDMETHODIMP RecordingRoot::UploadCache(BSTR bstrKeyName)
{
    Record("UploadCache(" + Narrow(bstrKeyName) + ")");
    return S_OK;
}

STDMETHODIMP RecordingRoot::GetAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                                       tagKEY_SESSIONDATAVALUE** ppKeySessionDataList)
{
    Record("GetAllData(" + Narrow(bstrRootKeyName) + ")");
    HRESULT hr = S_OK;
    if (Forced("GetAllData", hr))
        return hr;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_hasAllData)
    {
        *pulCount = 0;
        return S_FALSE;
    }
    *pulCount = static_cast<ULONG>(m_allData.size());
    *ppKeySessionDataList =
        static_cast<tagKEY_SESSIONDATAVALUE*>(::CoTaskMemAlloc(m_allData.size() * sizeof(tagKEY_SESSIONDATAVALUE)));
    for (size_t i = 0; i < m_allData.size(); ++i)
    {
        tagKEY_SESSIONDATAVALUE& record = (*ppKeySessionDataList)[i];
        record.bstrKeyName = ::SysAllocString(m_allData[i].first.c_str());
        record.ulCount = static_cast<ULONG>(m_allData[i].second.size());
        record.pSessionDataValue = NewList(m_allData[i].second);
    }
    return S_OK;
}

STDMETHODIMP RecordingRoot::GetStorageType(SDM_STORAGE_TYPE* pStorageType)
{
    Record("GetStorageType()");
    *pStorageType = static_cast<SDM_STORAGE_TYPE>(3);
    return S_OK;
}

STDMETHODIMP RecordingRoot::WriteObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue)
{
    Record("WriteObjectData(obj|" + Narrow(bstrKeyName) + "|" + Narrow(bstrValueName) + "|" + Narrow(bstrValue) + ")",
           piObject);
    return S_OK;
}

STDMETHODIMP RecordingRoot::GetObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName, BSTR*)
{
    Record("GetObjectData(obj|" + Narrow(bstrKeyName) + "|" + Narrow(bstrValueName) + ")", piObject);
    return S_FALSE;
}

STDMETHODIMP RecordingRoot::GetObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG* pulCount,
                                                tagSESSIONDATAVALUE** ppSessionDataList)
{
    Record("GetObjectStringList(obj|" + Narrow(bstrKeyName) + ")", piObject);
    return AnswerList("GetObjectStringList", bstrKeyName, pulCount, ppSessionDataList);
}

STDMETHODIMP RecordingRoot::WriteObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG ulCount,
                                                  tagSESSIONDATAVALUE* pSessionDataList)
{
    Record("WriteObjectStringList(obj|" + Narrow(bstrKeyName) + "|" + std::to_string(ulCount) + "|" +
               RootPairsText(ulCount, pSessionDataList) + ")",
           piObject);
    HRESULT hr = S_OK;
    return Forced("WriteObjectStringList", hr) ? hr : S_OK;
}

STDMETHODIMP RecordingRoot::GetObjectSubKeys(IUnknown* piObject, BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount,
                                             BSTR** ppKeyNameList)
{
    Record("GetObjectSubKeys(obj|" + Narrow(bstrKeyName) + "|" + std::to_string(ulRecursive) + ")", piObject);
    return AnswerNames("GetObjectSubKeys", bstrKeyName, pulCount, ppKeyNameList);
}

STDMETHODIMP RecordingRoot::DeleteObjectKey(IUnknown* piObject, BSTR bstrKeyName)
{
    Record("DeleteObjectKey(obj|" + Narrow(bstrKeyName) + ")", piObject);
    HRESULT hr = S_OK;
    return Forced("DeleteObjectKey", hr) ? hr : S_OK;
}

STDMETHODIMP RecordingRoot::DeleteKey(BSTR bstrKeyName)
{
    Record("DeleteKey(" + Narrow(bstrKeyName) + ")");
    HRESULT hr = S_OK;
    return Forced("DeleteKey", hr) ? hr : S_OK;
}

STDMETHODIMP RecordingRoot::SetUserProfileIO()
{
    Record("SetUserProfileIO()");
    return S_OK;
}

STDMETHODIMP RecordingRoot::IsUserProfileIO(LONG* pbUserProfile)
{
    Record("IsUserProfileIO()");
    *pbUserProfile = 0;
    return S_OK;
}
