// XSessionDataStorageDb (coclass WQ_SessionDataStorageDb): keeps session data in a database that
// it never touches itself. Every call goes to a storage root, an IWQ_SessionDataIOEx of another
// server that owns the database, with the root key in front of the caller's key:
//
//   StoreData -> WriteStringList        ReadData        -> GetStringList
//   GetSubKeys -> GetSubKeys            ReadAllData     -> GetAllData
//   StoreObjectData -> WriteObjectStringList, ReadObjectData -> GetObjectStringList,
//   GetObjectSubKeys, DeleteObjectKey, DeleteKey -> the root's operation of the same name.
//
// The root key ("/" separators, always ending in "/", with "<[HKCU]>/" in front when the
// storage was a user-profile storage when the key was set) is cut off again from the key
// names that GetSubKeys and ReadAllData hand back.
//
// In asynchronous write mode, StoreData and DeleteKey (once a root key is set) are piped to a
// worker (XAsyncStorageDelegator) and return at once; GetSubKeys and ReadAllData run the pending
// calls first. Failures of piped calls surface on the next FlushAsyncStorage.
//
// A user-profile storage takes over the value array of every StoreData call that succeeds (the
// cached IO layer leaves it to such a storage) and frees it with XDeleteValueArray. Whoever
// stores into a user-profile storage must therefore hand it such arrays (module array new,
// fresh strings) and not free them after success, as the cached IO layer does.
#pragma once

#include "xasyncstoragedelegator.h"
#include "xcomobject.h"
#include "xsessiondatamng_h.h"
#include "XWQComBSTR.h"

class XSessionDataStorageDb : public IWQ_SessionDataStorageDb, public ISupportErrorInfo
{
public:
    XSessionDataStorageDb() = default;
    // In asynchronous mode runs what is pending and stops the worker first; then the delegator
    // goes, and only then the reference to the root.
    virtual ~XSessionDataStorageDb();
    XSessionDataStorageDb(const XSessionDataStorageDb&) = delete;
    XSessionDataStorageDb& operator=(const XSessionDataStorageDb&) = delete;

    HRESULT InternalQueryInterface(REFIID iid, void** ppv);
    static const CLSID& ObjectClsid() { return CLSID_WQ_SessionDataStorageDb; }

    // ISupportErrorInfo
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID iid) override;

    // IWQ_SessionDataStorage. Out arrays are filled only on S_OK (else 0 and null).
    STDMETHODIMP StoreData(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pValueList) override;
    STDMETHODIMP ReadData(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppValueList) override;
    STDMETHODIMP GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList) override;
    STDMETHODIMP ReadAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                             tagKEY_SESSIONDATAVALUE** ppKeySessionDataList) override;
    STDMETHODIMP FlushAsyncStorage() override;
    STDMETHODIMP GetLastErrorAsyncExecution(HRESULT* phrAsyncResult) override;

    // IWQ_SessionDataStorageEx: always synchronous.
    STDMETHODIMP StoreObjectData(IUnknown* piObject, BSTR bstrKeyName, ULONG ulCount,
                                 tagSESSIONDATAVALUE* pValueList) override;
    STDMETHODIMP ReadObjectData(IUnknown* piObject, BSTR bstrKeyName, ULONG* pulCount,
                                tagSESSIONDATAVALUE** ppValueList) override;
    STDMETHODIMP GetObjectSubKeys(IUnknown* piObject, BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount,
                                  BSTR** ppKeyNameList) override;
    STDMETHODIMP DeleteObjectKey(IUnknown* piObject, BSTR bstrKeyName) override;
    STDMETHODIMP DeleteKey(BSTR bstrKeyName) override;

    // IWQ_SessionDataStorageDb. Expected order: SetRoot, (SetUserProfileStorage), SetRootKey,
    // (SetAsyncWriteMode), then data calls.
    STDMETHODIMP SetRoot(IWQ_SessionDataIOEx* pSDMObjectStorageRoot) override;
    STDMETHODIMP SetRootKey(BSTR bstrRootKey) override;
    STDMETHODIMP SetUserProfileStorage() override;
    STDMETHODIMP IsUserProfileStorage(LONG* pbUserProfile) override;
    STDMETHODIMP SetAsyncWriteMode(LONG lAsyncWriteInterval) override;

private:
    // The root, or a report of "DB storage root instance not set" (thrown).
    IWQ_SessionDataIOEx* CheckedRoot(unsigned long line, const XWQComBSTR& function) const;
    // The key as the root knows it: key itself while no root key is set (returned as passed),
    // else the root key followed by key (made in full, which owns it).
    BSTR RootSideKey(BSTR key, XWQComBSTR& full) const;
    bool Async() const noexcept;
    bool UserProfile() const noexcept;
    // Cuts the root key off names handed back by the root (null and empty names stay).
    // false for a name shorter than the root key.
    bool StripRootKey(BSTR& name) const;
    // On S_OK from the root (hr), cuts the root key off every name (nameOf(element) is the
    // name's BSTR); a name shorter than the root key makes the "does not belong" report.
    template <class Array, class NameOf>
    HRESULT StripAll(unsigned long line, const XWQComBSTR& function, HRESULT hr, Array& array, NameOf&& nameOf) const;
    // A read: checks and clears both out pointers, needs the root, lets call(root, array) fill
    // an Array and hands it out on S_OK (frees it otherwise).
    template <class Array, class T, class Call>
    HRESULT Read(unsigned long line, const XWQComBSTR& function, ULONG* count, T** items, Call&& call);
    // In asynchronous mode, runs the pending writes (this object's FlushAsyncStorage).
    HRESULT FlushWhenAsync();
    // A write: on the root now with the key unchanged (no root key), piped to the delegator
    // with the full key (asynchronous mode), or on the root now with the full key.
    // now(root, key) makes the call; makeOp(fullKey) captures it for the pipe.
    template <class Now, class MakeOp>
    HRESULT Write(unsigned long line, const XWQComBSTR& function, BSTR key, unsigned long flags, Now&& now,
                  MakeOp&& makeOp);

    // Fields in this order: the delegator goes before the root key and the root.
    XComPtr<IWQ_SessionDataIOEx> m_storageRoot;
    XWQComBSTR m_rootKey;
    volatile LONG m_userProfile = 0;
    volatile LONG m_asyncWrite = 0;
    XAsyncStorageDelegator m_delegator;
};
