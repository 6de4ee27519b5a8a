// XSessionDataStorageReg (coclass WQ_SessionDataStorageReg): keeps session data in the registry
// below one application root key. A session data key is a registry key below that root ("/" or
// "\\" between names, the empty key is the root itself), a value name a registry value name, a
// value the string data of that registry value (REG_SZ on write; read as text whatever its type).
//
// Initialize binds the storage to a hive, chosen by the plain numbers 0 to 4 (not the published
// SESSIONDATAREGKEY values), and an application root key; until then every data call answers
// 0x8004080D. No lock of its own: registry handles may be used from any thread.
#pragma once

#include "xcomobject.h"
#include "xregistrykey.h"
#include "xsessiondatamng_h.h"
#include "xstoragepairs.h"

class XSessionDataStorageReg : public IWQ_SessionDataStorageReg, public ISupportErrorInfo
{
public:
    XSessionDataStorageReg() = default;
    virtual ~XSessionDataStorageReg() = default;
    XSessionDataStorageReg(const XSessionDataStorageReg&) = delete;
    XSessionDataStorageReg& operator=(const XSessionDataStorageReg&) = delete;

    HRESULT InternalQueryInterface(REFIID iid, void** ppv);
    static const CLSID& ObjectClsid() { return CLSID_WQ_SessionDataStorageReg; }

    // ISupportErrorInfo
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID iid) override;

    // IWQ_SessionDataStorage. Each data method answers 0x8004080D while the storage is not
    // initialised. Result arrays are filled only on S_OK; other answers give 0 and null.
    STDMETHODIMP StoreData(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pValueList) override;
    STDMETHODIMP ReadData(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppValueList) override;
    STDMETHODIMP GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList) override;
    STDMETHODIMP ReadAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                             tagKEY_SESSIONDATAVALUE** ppKeySessionDataList) override;
    // No asynchronous work: S_OK, nothing done, *phrAsyncResult not written.
    STDMETHODIMP FlushAsyncStorage() override;
    STDMETHODIMP GetLastErrorAsyncExecution(HRESULT* phrAsyncResult) override;

    // IWQ_SessionDataStorageReg. Closes any previous root key, then opens the root key with read
    // and write access, else with read access, else creates it (volatile when ulVolatileKey is
    // non-zero; the option then stays for every key this object creates).
    STDMETHODIMP Initialize(SESSIONDATAREGKEY keyType, BSTR bstrAppRootKey, ULONG ulVolatileKey) override;

    // Internal operations on the program's own containers, wrapped by the COM methods; their
    // order in the virtual table is fixed. The recursive walk of GetSubKeys calls GetSubKeys
    // through its slot.
    //
    // Appends the sub-key names of key (full paths from the root, "/" separators); with
    // recursive 1 each name is followed by its descendants (depth-first pre-order). S_OK for an
    // existing key, S_FALSE for a missing one.
    virtual HRESULT GetSubKeys(const XWQComBSTR& key, ULONG recursive, XStorageKeyNames& names);
    // Enters every value of key into pairs, as text. S_OK when at least one was read, S_FALSE
    // for a missing key or one without values.
    virtual HRESULT ReadData(const XWQComBSTR& key, XStoragePairs& pairs);
    // Writes pairs (in map order) as REG_SZ values under key, creating the key when needed;
    // other values of the key stay. S_FALSE for no pairs; the first failure ends the writing.
    virtual HRESULT StoreData(const XWQComBSTR& key, const XStoragePairs& pairs);

private:
    // The COM methods' answer on an uninitialised storage.
    HRESULT NotInitialized(unsigned long line, const XWQComBSTR& function) const;

    // The predefined root handle chosen by Initialize; null while not initialised.
    HKEY m_hive = nullptr;
    // The application root key; empty while not initialised.
    XRegistryKey m_appKey;
    // Creation option of every key this object creates: REG_OPTION_NON_VOLATILE, or
    // REG_OPTION_VOLATILE once Initialize created a root key on request for a volatile one.
    DWORD m_volatileOption = REG_OPTION_NON_VOLATILE;
    // Levels of the application root key below its hive: keys below it may add the rest of
    // the registry's tree depth.
    UINT m_rootLevels = 0;
};
