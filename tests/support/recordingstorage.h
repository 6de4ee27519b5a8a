// Test double: a storage that records every call with its arguments and answers from a script.
// It poses as one kind of storage by answering only that kind's interface: a database storage
// (IWQ_SessionDataStorageEx and IWQ_SessionDataStorageDb, with a scripted IsUserProfileStorage),
// a registry, an environment or a volatile storage, or a plain IWQ_SessionDataStorage.
//
// As a user-profile database storage (IsUserProfileStorage answering a non-zero flag with
// success) it takes over the array of every StoreData call that succeeds, as the cached IO layer
// expects of such a storage, and frees it itself (FreeKeptArrays, or at destruction).
#pragma once

#include "xcomobject.h"
#include "xsessiondatamng_h.h"

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

class RecordingStorage : public IWQ_SessionDataStorageDb,
                         public IWQ_SessionDataStorageReg,
                         public IWQ_SessionDataStorageEnv,
                         public IWQ_SessionDataStorageVolatile
{
public:
    enum class Pose
    {
        Plain,
        Database,
        Registry,
        Environment,
        Volatile,
        Extended,  // IWQ_SessionDataStorageEx only (no database interface)
    };
    using Pairs = std::vector<std::pair<std::wstring, std::wstring>>;

    // Creates one (reference count 1).
    static RecordingStorage* Create(Pose pose = Pose::Plain);
    virtual ~RecordingStorage();
    HRESULT InternalQueryInterface(REFIID iid, void** ppv);
    IWQ_SessionDataStorage* Storage() { return static_cast<IWQ_SessionDataStorageDb*>(this); }
    // Answers the interfaces of another kind as well.
    void AlsoPoseAs(Pose pose);
    // Answers IWQ_SessionDataStorageEx (as an extended storage) only count more times.
    void LimitExtendedAnswers(int count);

    // Script. ReadData of a key (exact text) set here answers S_OK with its pairs in this order
    // (an empty list: S_OK with a count of 0); other keys answer S_FALSE with a count of 0.
    void SetRecords(const std::wstring& key, Pairs pairs);
    // ReadAllData answers S_OK with these records once set (else S_FALSE, count 0).
    void SetAllData(std::vector<std::pair<std::wstring, Pairs>> records);
    void SetSubKeys(const std::wstring& key, std::vector<std::wstring> subKeys);
    // ReadObjectData of a key (exact text) answers S_OK with these pairs in this order; other
    // keys answer S_FALSE with a count of 0. GetObjectSubKeys answers from SetSubKeys.
    void SetObjectRecords(const std::wstring& key, Pairs pairs);
    // The object pointers that the object operations received, in call order.
    std::vector<IUnknown*> Objects() const;
    // Forces a method's result (by name); the method then hands out nothing.
    void SetResult(const std::string& method, HRESULT hr);
    void ClearResult(const std::string& method);
    void SetUserProfile(LONG flag, HRESULT hr = S_OK);
    // Whether a user-profile database pose takes over stored arrays (default: yes). Off, it
    // leaves them to the caller, as for a layer that must free them in any case.
    void SetKeepsArrays(bool keeps);
    void SetAsyncError(HRESULT hr);

    // Record: "Method(arg|arg|...)", with value lists as "name=value;name=value".
    std::vector<std::string> Calls() const;
    size_t CountCalls(const std::string& prefix) const;
    void ClearCalls();
    // Arrays taken over from StoreData calls (still alive).
    size_t KeptArrays() const;
    void FreeKeptArrays();

    // IWQ_SessionDataStorage
    STDMETHODIMP StoreData(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pValueList) override;
    STDMETHODIMP ReadData(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppValueList) override;
    STDMETHODIMP GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList) override;
    STDMETHODIMP ReadAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                             tagKEY_SESSIONDATAVALUE** ppKeySessionDataList) override;
    STDMETHODIMP FlushAsyncStorage() override;
    STDMETHODIMP GetLastErrorAsyncExecution(HRESULT* phrAsyncResult) override;
    // IWQ_SessionDataStorageEx
    STDMETHODIMP StoreObjectData(IUnknown* piObject, BSTR bstrKeyName, ULONG ulCount,
                                 tagSESSIONDATAVALUE* pValueList) override;
    STDMETHODIMP ReadObjectData(IUnknown* piObject, BSTR bstrKeyName, ULONG* pulCount,
                                tagSESSIONDATAVALUE** ppValueList) override;
    STDMETHODIMP GetObjectSubKeys(IUnknown* piObject, BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount,
                                  BSTR** ppKeyNameList) override;
    STDMETHODIMP DeleteObjectKey(IUnknown* piObject, BSTR bstrKeyName) override;
    STDMETHODIMP DeleteKey(BSTR bstrKeyName) override;
    // IWQ_SessionDataStorageDb
    STDMETHODIMP SetRoot(IWQ_SessionDataIOEx* pSDMObjectStorageRoot) override;
    STDMETHODIMP SetRootKey(BSTR bstrRootKey) override;
    STDMETHODIMP SetUserProfileStorage() override;
    STDMETHODIMP IsUserProfileStorage(LONG* pbUserProfile) override;
    STDMETHODIMP SetAsyncWriteMode(LONG lAsyncWriteInterval) override;
    // IWQ_SessionDataStorageReg
    STDMETHODIMP Initialize(SESSIONDATAREGKEY keyType, BSTR bstrAppRootKey, ULONG ulVolatileKey) override;

protected:
    RecordingStorage() = default;

private:
    void Record(const std::string& call);
    void RecordObject(IUnknown* object);
    // The scripted pairs of key in table, or false.
    bool Scripted(const std::map<std::wstring, Pairs>& table, BSTR key, Pairs& pairs) const;
    // The sub-key list of key as a CoTaskMemAlloc array; S_FALSE (count 0) when none is scripted.
    HRESULT AnswerSubKeys(BSTR key, ULONG* pulCount, BSTR** ppKeyNameList) const;
    // The forced result of method, or fallback.
    bool Forced(const std::string& method, HRESULT& hr) const;
    bool TakesArrays() const;
    bool Poses(Pose pose) const;
    bool TakeExtendedAnswer();

    std::set<Pose> m_poses;
    int m_extendedAnswers = -1;  // -1: no limit
    mutable std::mutex m_mutex;
    std::vector<std::string> m_calls;
    std::map<std::string, HRESULT> m_results;
    std::map<std::wstring, Pairs> m_records;
    std::map<std::wstring, Pairs> m_objectRecords;
    std::vector<IUnknown*> m_objects;
    bool m_hasAllData = false;
    std::vector<std::pair<std::wstring, Pairs>> m_allData;
    std::map<std::wstring, std::vector<std::wstring>> m_subKeys;
    LONG m_userProfile = 0;
    HRESULT m_userProfileResult = S_OK;
    bool m_keepsArrays = true;
    bool m_hasAsyncError = false;
    HRESULT m_asyncError = S_OK;
    std::vector<std::pair<tagSESSIONDATAVALUE*, ULONG>> m_kept;
};
