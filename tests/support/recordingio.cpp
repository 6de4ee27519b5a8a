#include "recordingio.h"

#include <sstream>

std::string Narrow(const wchar_t* text)
{
    if (!text)
        return "<null>";
    std::string out;
    for (const wchar_t* p = text; *p; ++p)
        out += (*p < 128) ? static_cast<char>(*p) : '?';
    return out;
}

std::string NarrowBstr(BSTR text)
{
    if (!text)
        return "<null>";
    std::string out;
    for (UINT i = 0; i < ::SysStringLen(text); ++i)
        out += text[i] == L'\0' ? std::string("\\0") : std::string(1, text[i] < 128 ? static_cast<char>(text[i]) : '?');
    return out;
}

namespace
{
std::wstring W(const wchar_t* text)
{
    return text ? std::wstring(text) : std::wstring();
}

std::string Records(ULONG count, const tagSESSIONDATAVALUE* list)
{
    std::string out;
    for (ULONG i = 0; list && i < count; ++i)
        out += (i ? ";" : "") + Narrow(list[i].bstrValueName) + "=" + Narrow(list[i].bstrValue);
    return out;
}
} // namespace

RecordingIO* RecordingIO::Create(bool extended)
{
    auto* io = new XComObject<RecordingIO>();
    io->extended = extended;
    io->AddRef();
    return io;
}

HRESULT RecordingIO::InternalQueryInterface(REFIID iid, void** ppv)
{
    if (!extended && ::IsEqualIID(iid, IID_IWQ_SessionDataIOEx))
    {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    return XQueryInterfaces<IWQ_SessionDataIOEx, IWQ_SessionDataIO>(this, iid, ppv);
}

void RecordingIO::SetResult(const std::string& method, HRESULT hr)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_results[method] = hr;
}

void RecordingIO::SetValue(const std::wstring& key, const std::wstring& name, const std::wstring& value)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_values[key][name] = value;
}

void RecordingIO::SetSubKeys(const std::wstring& key, std::vector<std::wstring> subKeys)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_subKeys[key] = std::move(subKeys);
}

void RecordingIO::SetUserProfile(LONG flag, HRESULT hr)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_userProfile = flag;
    m_userProfileResult = hr;
}

std::vector<std::string> RecordingIO::Calls() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls;
}

size_t RecordingIO::CountCalls(const std::string& prefix) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    size_t n = 0;
    for (const auto& call : m_calls)
        if (call.compare(0, prefix.size(), prefix) == 0)
            ++n;
    return n;
}

std::map<std::wstring, std::map<std::wstring, std::wstring>> RecordingIO::Values() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_values;
}

LONG RecordingIO::References()
{
    AddRef();
    return static_cast<LONG>(Release());
}

void RecordingIO::Record(const std::string& call)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.push_back(call);
}

HRESULT RecordingIO::Scripted(const std::string& method, HRESULT fallback) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto it = m_results.find(method);
    return it == m_results.end() ? fallback : it->second;
}

HRESULT RecordingIO::ListOf(const std::wstring& key, ULONG* count, tagSESSIONDATAVALUE** list)
{
    std::map<std::wstring, std::wstring> values;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_values.find(key);
        if (it == m_values.end() || it->second.empty())
            return S_FALSE;
        values = it->second;
    }
    auto* records = static_cast<tagSESSIONDATAVALUE*>(::CoTaskMemAlloc(values.size() * sizeof(tagSESSIONDATAVALUE)));
    ULONG i = 0;
    for (const auto& pair : values)
    {
        records[i].bstrValueName = ::SysAllocString(pair.first.c_str());
        records[i].bstrValue = ::SysAllocString(pair.second.c_str());
        ++i;
    }
    *count = i;
    *list = records;
    return S_OK;
}

STDMETHODIMP RecordingIO::SetStorage(IWQ_SessionDataStorage* storage)
{
    Record(std::string("SetStorage(") + (storage ? "storage" : "null") + ")");
    return Scripted("SetStorage", S_OK);
}

STDMETHODIMP RecordingIO::WriteData(BSTR key, BSTR name, BSTR value)
{
    Record("WriteData(" + Narrow(key) + "," + Narrow(name) + "," + Narrow(value) + ")");
    const HRESULT hr = Scripted("WriteData", S_OK);
    if (hr == S_OK)
        SetValue(W(key), W(name), W(value));
    return hr;
}

STDMETHODIMP RecordingIO::GetData(BSTR key, BSTR name, BSTR* value)
{
    Record("GetData(" + Narrow(key) + "," + Narrow(name) + ")");
    std::wstring found;
    bool has = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto k = m_values.find(W(key));
        if (k != m_values.end())
        {
            const auto v = k->second.find(W(name));
            if (v != k->second.end())
            {
                has = true;
                found = v->second;
            }
        }
    }
    const HRESULT hr = Scripted("GetData", has ? S_OK : S_FALSE);
    if (hr == S_OK && value)
        *value = ::SysAllocString(found.c_str());
    return hr;
}

STDMETHODIMP RecordingIO::GetStringList(BSTR key, ULONG* count, tagSESSIONDATAVALUE** list)
{
    Record("GetStringList(" + Narrow(key) + ")");
    const HRESULT scripted = Scripted("GetStringList", S_OK);
    if (scripted != S_OK)
        return scripted;
    return ListOf(W(key), count, list);
}

STDMETHODIMP RecordingIO::WriteStringList(BSTR key, ULONG count, tagSESSIONDATAVALUE* list)
{
    Record("WriteStringList(" + Narrow(key) + "," + std::to_string(count) + "," + Records(count, list) + ")");
    const HRESULT hr = Scripted("WriteStringList", S_OK);
    if (hr == S_OK)
        for (ULONG i = 0; i < count; ++i)
            SetValue(W(key), W(list[i].bstrValueName), W(list[i].bstrValue));
    return hr;
}

STDMETHODIMP RecordingIO::GetSubKeys(BSTR key, ULONG recursive, ULONG* count, BSTR** names)
{
    Record("GetSubKeys(" + Narrow(key) + "," + std::to_string(recursive) + ")");
    const HRESULT scripted = Scripted("GetSubKeys", S_OK);
    if (scripted != S_OK)
        return scripted;
    std::vector<std::wstring> subKeys;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_subKeys.find(W(key));
        if (it != m_subKeys.end())
            subKeys = it->second;
    }
    *count = static_cast<ULONG>(subKeys.size());
    *names = static_cast<BSTR*>(::CoTaskMemAlloc((subKeys.size() + 1) * sizeof(BSTR)));
    for (size_t i = 0; i < subKeys.size(); ++i)
        (*names)[i] = ::SysAllocString(subKeys[i].c_str());
    return S_OK;
}

STDMETHODIMP RecordingIO::SaveData(BSTR key, BSTR name)
{
    Record("SaveData(" + Narrow(key) + "," + Narrow(name) + ")");
    return Scripted("SaveData", S_OK);
}

STDMETHODIMP RecordingIO::FlushCache(SESSIONDATATYPE dataType)
{
    Record("FlushCache(" + std::to_string(static_cast<LONG>(dataType)) + ")");
    return Scripted("FlushCache", S_OK);
}

STDMETHODIMP RecordingIO::FlushAsyncStorage()
{
    Record("FlushAsyncStorage()");
    return Scripted("FlushAsyncStorage", S_OK);
}

STDMETHODIMP RecordingIO::GetLastErrorAsyncExecution(HRESULT* result)
{
    Record("GetLastErrorAsyncExecution()");
    if (result)
        *result = Scripted("AsyncResult", S_OK);
    return Scripted("GetLastErrorAsyncExecution", S_OK);
}

STDMETHODIMP RecordingIO::UploadCache(BSTR key)
{
    Record("UploadCache(" + Narrow(key) + ")");
    return Scripted("UploadCache", S_OK);
}

STDMETHODIMP RecordingIO::GetAllData(BSTR key, ULONG*, tagKEY_SESSIONDATAVALUE**)
{
    Record("GetAllData(" + Narrow(key) + ")");
    return Scripted("GetAllData", S_FALSE);
}

STDMETHODIMP RecordingIO::GetStorageType(SDM_STORAGE_TYPE* type)
{
    Record("GetStorageType()");
    if (type)
        *type = m_storageType;
    return Scripted("GetStorageType", S_OK);
}

STDMETHODIMP RecordingIO::WriteObjectData(IUnknown* object, BSTR key, BSTR name, BSTR value)
{
    Record(std::string("WriteObjectData(") + (object ? "obj" : "null") + "," + Narrow(key) + "," + Narrow(name) +
           "," + Narrow(value) + ")");
    const HRESULT hr = Scripted("WriteObjectData", S_OK);
    if (hr == S_OK)
        SetValue(L"obj:" + W(key), W(name), W(value));
    return hr;
}

STDMETHODIMP RecordingIO::GetObjectData(IUnknown* object, BSTR key, BSTR name, BSTR* value)
{
    Record(std::string("GetObjectData(") + (object ? "obj" : "null") + "," + Narrow(key) + "," + Narrow(name) + ")");
    std::wstring found;
    bool has = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto k = m_values.find(L"obj:" + W(key));
        if (k != m_values.end())
        {
            const auto v = k->second.find(W(name));
            if (v != k->second.end())
            {
                has = true;
                found = v->second;
            }
        }
    }
    const HRESULT hr = Scripted("GetObjectData", has ? S_OK : S_FALSE);
    if (hr == S_OK && value)
        *value = ::SysAllocString(found.c_str());
    return hr;
}

STDMETHODIMP RecordingIO::GetObjectStringList(IUnknown* object, BSTR key, ULONG* count, tagSESSIONDATAVALUE** list)
{
    Record(std::string("GetObjectStringList(") + (object ? "obj" : "null") + "," + Narrow(key) + ")");
    const HRESULT scripted = Scripted("GetObjectStringList", S_OK);
    if (scripted != S_OK)
        return scripted;
    return ListOf(L"obj:" + W(key), count, list);
}

STDMETHODIMP RecordingIO::WriteObjectStringList(IUnknown* object, BSTR key, ULONG count, tagSESSIONDATAVALUE* list)
{
    Record(std::string("WriteObjectStringList(") + (object ? "obj" : "null") + "," + Narrow(key) + "," +
           std::to_string(count) + "," + Records(count, list) + ")");
    return Scripted("WriteObjectStringList", S_OK);
}

STDMETHODIMP RecordingIO::GetObjectSubKeys(IUnknown* object, BSTR key, ULONG recursive, ULONG*, BSTR**)
{
    Record(std::string("GetObjectSubKeys(") + (object ? "obj" : "null") + "," + Narrow(key) + "," +
           std::to_string(recursive) + ")");
    return Scripted("GetObjectSubKeys", S_FALSE);
}

STDMETHODIMP RecordingIO::DeleteObjectKey(IUnknown* object, BSTR key)
{
    Record(std::string("DeleteObjectKey(") + (object ? "obj" : "null") + "," + Narrow(key) + ")");
    return Scripted("DeleteObjectKey", S_OK);
}

STDMETHODIMP RecordingIO::DeleteKey(BSTR key)
{
    Record("DeleteKey(" + Narrow(key) + ")");
    return Scripted("DeleteKey", S_OK);
}

STDMETHODIMP RecordingIO::SetUserProfileIO()
{
    Record("SetUserProfileIO()");
    std::lock_guard<std::mutex> lock(m_mutex);
    m_userProfile = 1;
    return S_OK;
}

STDMETHODIMP RecordingIO::IsUserProfileIO(LONG* flag)
{
    Record("IsUserProfileIO()");
    std::lock_guard<std::mutex> lock(m_mutex);
    if (flag)
        *flag = m_userProfile;
    return m_userProfileResult;
}
