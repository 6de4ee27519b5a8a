#include "recordingstorage.h"

#include "recordingio.h"  // Narrow
#include "xsessiondatavalues.h"
#include "xstoredarrayhandover.h"

#include <cstring>

namespace
{
std::string ValueList(ULONG count, const tagSESSIONDATAVALUE* list)
{
    std::string out;
    for (ULONG i = 0; list && i < count; ++i)
        out += (i ? ";" : "") + Narrow(list[i].bstrValueName) + "=" + Narrow(list[i].bstrValue);
    return out;
}

std::wstring Text(const wchar_t* text)
{
    return text ? std::wstring(text) : std::wstring();
}

// A CoTaskMemAlloc array of value records with fresh BSTRs, as storages hand them out.
tagSESSIONDATAVALUE* NewValueRecords(const RecordingStorage::Pairs& pairs)
{
    if (pairs.empty())
        return nullptr;
    auto* records = static_cast<tagSESSIONDATAVALUE*>(::CoTaskMemAlloc(pairs.size() * sizeof(tagSESSIONDATAVALUE)));
    for (size_t i = 0; i < pairs.size(); ++i)
    {
        records[i].bstrValueName = ::SysAllocString(pairs[i].first.c_str());
        records[i].bstrValue = ::SysAllocString(pairs[i].second.c_str());
    }
    return records;
}
} // namespace

RecordingStorage* RecordingStorage::Create(Pose pose)
{
    auto* storage = new XComObject<RecordingStorage>();
    storage->m_poses.insert(pose);
    storage->Storage()->AddRef();
    return storage;
}

RecordingStorage::~RecordingStorage()
{
    FreeKeptArrays();
}

HRESULT RecordingStorage::InternalQueryInterface(REFIID iid, void** ppv)
{
    if (!ppv)
        return E_POINTER;
    *ppv = nullptr;
    IUnknown* answer = nullptr;
    if (::IsEqualIID(iid, IID_IUnknown) || ::IsEqualIID(iid, IID_IWQ_SessionDataStorage))
        answer = Storage();
    else if (Poses(Pose::Database) &&
             (::IsEqualIID(iid, IID_IWQ_SessionDataStorageEx) || ::IsEqualIID(iid, IID_IWQ_SessionDataStorageDb)))
        answer = static_cast<IWQ_SessionDataStorageDb*>(this);
    else if (Poses(Pose::Extended) && ::IsEqualIID(iid, IID_IWQ_SessionDataStorageEx) && TakeExtendedAnswer())
        answer = static_cast<IWQ_SessionDataStorageDb*>(this);
    else if (Poses(Pose::Registry) && ::IsEqualIID(iid, IID_IWQ_SessionDataStorageReg))
        answer = static_cast<IWQ_SessionDataStorageReg*>(this);
    else if (Poses(Pose::Environment) && ::IsEqualIID(iid, IID_IWQ_SessionDataStorageEnv))
        answer = static_cast<IWQ_SessionDataStorageEnv*>(this);
    else if (Poses(Pose::Volatile) && ::IsEqualIID(iid, IID_IWQ_SessionDataStorageVolatile))
        answer = static_cast<IWQ_SessionDataStorageVolatile*>(this);
    if (!answer)
        return E_NOINTERFACE;
    answer->AddRef();
    *ppv = answer;
    return S_OK;
}

void RecordingStorage::AlsoPoseAs(Pose pose)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_poses.insert(pose);
}

void RecordingStorage::LimitExtendedAnswers(int count)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_extendedAnswers = count;
}

bool RecordingStorage::TakeExtendedAnswer()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_extendedAnswers == 0)
        return false;
    if (m_extendedAnswers > 0)
        --m_extendedAnswers;
    return true;
}

bool RecordingStorage::Poses(Pose pose) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_poses.count(pose) != 0;
}

void RecordingStorage::SetRecords(const std::wstring& key, Pairs pairs)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_records[key] = std::move(pairs);
}

void RecordingStorage::SetAllData(std::vector<std::pair<std::wstring, Pairs>> records)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_hasAllData = true;
    m_allData = std::move(records);
}

void RecordingStorage::SetSubKeys(const std::wstring& key, std::vector<std::wstring> subKeys)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_subKeys[key] = std::move(subKeys);
}

void RecordingStorage::SetObjectRecords(const std::wstring& key, Pairs pairs)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_objectRecords[key] = std::move(pairs);
}

std::vector<IUnknown*> RecordingStorage::Objects() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_objects;
}

void RecordingStorage::RecordObject(IUnknown* object)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_objects.push_back(object);
}

bool RecordingStorage::Scripted(const std::map<std::wstring, Pairs>& table, BSTR key, Pairs& pairs) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = table.find(Text(key));
    if (found == table.end())
        return false;
    pairs = found->second;
    return true;
}

HRESULT RecordingStorage::AnswerSubKeys(BSTR key, ULONG* pulCount, BSTR** ppKeyNameList) const
{
    std::vector<std::wstring> subKeys;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_subKeys.find(Text(key));
        if (found == m_subKeys.end() || found->second.empty())
        {
            *pulCount = 0;
            return S_FALSE;
        }
        subKeys = found->second;
    }
    auto* names = static_cast<BSTR*>(::CoTaskMemAlloc(subKeys.size() * sizeof(BSTR)));
    for (size_t i = 0; i < subKeys.size(); ++i)
        names[i] = ::SysAllocString(subKeys[i].c_str());
    *ppKeyNameList = names;
    *pulCount = static_cast<ULONG>(subKeys.size());
    return S_OK;
}

void RecordingStorage::SetResult(const std::string& method, HRESULT hr)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_results[method] = hr;
}

void RecordingStorage::SetUserProfile(LONG flag, HRESULT hr)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_userProfile = flag;
    m_userProfileResult = hr;
}

void RecordingStorage::ClearResult(const std::string& method)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_results.erase(method);
}

void RecordingStorage::SetKeepsArrays(bool keeps)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_keepsArrays = keeps;
}

void RecordingStorage::SetAsyncError(HRESULT hr)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_hasAsyncError = true;
    m_asyncError = hr;
}

std::vector<std::string> RecordingStorage::Calls() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls;
}

size_t RecordingStorage::CountCalls(const std::string& prefix) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    size_t count = 0;
    for (const std::string& call : m_calls)
        count += call.compare(0, prefix.size(), prefix) == 0 ? 1 : 0;
    return count;
}

void RecordingStorage::ClearCalls()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.clear();
}

size_t RecordingStorage::KeptArrays() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_kept.size();
}

void RecordingStorage::FreeKeptArrays()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& kept : m_kept)
        XDeleteValueArray(kept.first, kept.second);
    m_kept.clear();
}

void RecordingStorage::Record(const std::string& call)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.push_back(call);
}

bool RecordingStorage::Forced(const std::string& method, HRESULT& hr) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_results.find(method);
    if (found == m_results.end())
        return false;
    hr = found->second;
    return true;
}

bool RecordingStorage::TakesArrays() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_poses.count(Pose::Database) != 0 && m_keepsArrays && m_userProfile != 0 && SUCCEEDED(m_userProfileResult);
}

STDMETHODIMP RecordingStorage::StoreData(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pValueList)
{
    Record("StoreData(" + Narrow(bstrKeyName) + "|" + std::to_string(ulCount) + "|" +
           ValueList(ulCount, pValueList) + ")");
    HRESULT hr = S_OK;
    Forced("StoreData", hr);
    if (SUCCEEDED(hr) && TakesArrays() && XStoredArrayHandover::KeepOffered(pValueList))
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_kept.emplace_back(pValueList, ulCount);
    }
    return hr;
}

STDMETHODIMP RecordingStorage::ReadData(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppValueList)
{
    Record("ReadData(" + Narrow(bstrKeyName) + ")");
    HRESULT hr = S_OK;
    if (Forced("ReadData", hr))
        return hr;
    Pairs pairs;
    if (!Scripted(m_records, bstrKeyName, pairs))
    {
        *pulCount = 0;
        return S_FALSE;
    }
    *ppValueList = NewValueRecords(pairs);
    *pulCount = static_cast<ULONG>(pairs.size());
    return S_OK;
}

STDMETHODIMP RecordingStorage::GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList)
{
    Record("GetSubKeys(" + Narrow(bstrKeyName) + "|" + std::to_string(ulRecursive) + ")");
    HRESULT hr = S_OK;
    if (Forced("GetSubKeys", hr))
        return hr;
    return AnswerSubKeys(bstrKeyName, pulCount, ppKeyNameList);
}

STDMETHODIMP RecordingStorage::ReadAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                                           tagKEY_SESSIONDATAVALUE** ppKeySessionDataList)
{
    Record("ReadAllData(" + Narrow(bstrRootKeyName) + ")");
    HRESULT hr = S_OK;
    if (Forced("ReadAllData", hr))
        return hr;
    std::vector<std::pair<std::wstring, Pairs>> all;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_hasAllData)
        {
            *pulCount = 0;
            return S_FALSE;
        }
        all = m_allData;
    }
    tagKEY_SESSIONDATAVALUE* records = nullptr;
    if (!all.empty())
    {
        records = static_cast<tagKEY_SESSIONDATAVALUE*>(::CoTaskMemAlloc(all.size() * sizeof(tagKEY_SESSIONDATAVALUE)));
        for (size_t i = 0; i < all.size(); ++i)
        {
            records[i].bstrKeyName = ::SysAllocString(all[i].first.c_str());
            records[i].ulCount = static_cast<ULONG>(all[i].second.size());
            records[i].pSessionDataValue = NewValueRecords(all[i].second);
        }
    }
    *ppKeySessionDataList = records;
    *pulCount = static_cast<ULONG>(all.size());
    return S_OK;
}

STDMETHODIMP RecordingStorage::FlushAsyncStorage()
{
    Record("FlushAsyncStorage()");
    HRESULT hr = S_OK;
    Forced("FlushAsyncStorage", hr);
    return hr;
}

STDMETHODIMP RecordingStorage::GetLastErrorAsyncExecution(HRESULT* phrAsyncResult)
{
    Record("GetLastErrorAsyncExecution()");
    HRESULT hr = S_OK;
    if (Forced("GetLastErrorAsyncExecution", hr))
        return hr;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_hasAsyncError)
        *phrAsyncResult = m_asyncError;
    return S_OK;
}

STDMETHODIMP RecordingStorage::StoreObjectData(IUnknown* piObject, BSTR bstrKeyName, ULONG ulCount,
                                               tagSESSIONDATAVALUE* pValueList)
{
    Record("StoreObjectData(" + Narrow(bstrKeyName) + "|" + ValueList(ulCount, pValueList) + ")");
    RecordObject(piObject);
    HRESULT hr = S_OK;
    Forced("StoreObjectData", hr);
    return hr;
}

STDMETHODIMP RecordingStorage::ReadObjectData(IUnknown* piObject, BSTR bstrKeyName, ULONG* pulCount,
                                              tagSESSIONDATAVALUE** ppValueList)
{
    Record("ReadObjectData(" + Narrow(bstrKeyName) + ")");
    RecordObject(piObject);
    HRESULT hr = S_OK;
    if (Forced("ReadObjectData", hr))
        return hr;
    Pairs pairs;
    if (!Scripted(m_objectRecords, bstrKeyName, pairs))
    {
        *pulCount = 0;
        return S_FALSE;
    }
    *ppValueList = NewValueRecords(pairs);
    *pulCount = static_cast<ULONG>(pairs.size());
    return S_OK;
}

STDMETHODIMP RecordingStorage::GetObjectSubKeys(IUnknown* piObject, BSTR bstrKeyName, ULONG ulRecursive,
                                                ULONG* pulCount, BSTR** ppKeyNameList)
{
    Record("GetObjectSubKeys(" + Narrow(bstrKeyName) + "|" + std::to_string(ulRecursive) + ")");
    RecordObject(piObject);
    HRESULT hr = S_OK;
    if (Forced("GetObjectSubKeys", hr))
        return hr;
    return AnswerSubKeys(bstrKeyName, pulCount, ppKeyNameList);
}

STDMETHODIMP RecordingStorage::DeleteObjectKey(IUnknown* piObject, BSTR bstrKeyName)
{
    Record("DeleteObjectKey(" + Narrow(bstrKeyName) + ")");
    RecordObject(piObject);
    HRESULT hr = S_OK;
    Forced("DeleteObjectKey", hr);
    return hr;
}

STDMETHODIMP RecordingStorage::DeleteKey(BSTR bstrKeyName)
{
    Record("DeleteKey(" + Narrow(bstrKeyName) + ")");
    HRESULT hr = S_OK;
    Forced("DeleteKey", hr);
    return hr;
}

STDMETHODIMP RecordingStorage::SetRoot(IWQ_SessionDataIOEx* pSDMObjectStorageRoot)
{
    Record("SetRoot()");
    return S_OK;
}

STDMETHODIMP RecordingStorage::SetRootKey(BSTR bstrRootKey)
{
    Record("SetRootKey(" + Narrow(bstrRootKey) + ")");
    return S_OK;
}

STDMETHODIMP RecordingStorage::SetUserProfileStorage()
{
    Record("SetUserProfileStorage()");
    SetUserProfile(1);
    return S_OK;
}

STDMETHODIMP RecordingStorage::IsUserProfileStorage(LONG* pbUserProfile)
{
    Record("IsUserProfileStorage()");
    // The flag is written even with a failure: a caller must not believe it then.
    std::lock_guard<std::mutex> lock(m_mutex);
    *pbUserProfile = m_userProfile;
    return m_userProfileResult;
}

STDMETHODIMP RecordingStorage::SetAsyncWriteMode(LONG lAsyncWriteInterval)
{
    Record("SetAsyncWriteMode(" + std::to_string(lAsyncWriteInterval) + ")");
    return S_OK;
}

STDMETHODIMP RecordingStorage::Initialize(SESSIONDATAREGKEY keyType, BSTR bstrAppRootKey, ULONG ulVolatileKey)
{
    Record("Initialize(" + std::to_string(static_cast<long>(keyType)) + "|" + Narrow(bstrAppRootKey) + ")");
    return S_OK;
}
