// XSessionDataIO (coclass WQ_SessionDataIOCache): the cached access layer. It keeps every key it
// reads, with its values, until FlushCache, and remembers which values the storage does not
// have, so that a second read of a missing value costs no storage call. Writes go through to
// the storage at once (a read cache with write-through, not a write-back buffer).
//
// XSessionDataIOImpl is the same layer inside another object, which holds it by value.
#pragma once

#include "xsessiondataiobase.h"

#include <string>
#include <unordered_set>

class XSessionDataIO : public XSessionDataIOBase
{
public:
    XSessionDataIO() noexcept;

    static const CLSID& ObjectClsid() { return CLSID_WQ_SessionDataIOCache; }

    // IWQ_SessionDataIO (the rest is shared with the uncached layer, see XSessionDataIOBase)
    STDMETHODIMP WriteData(BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue) override;
    STDMETHODIMP GetData(BSTR bstrKeyName, BSTR bstrValueName, BSTR* pbstrValue) override;
    STDMETHODIMP GetStringList(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppSessionDataList) override;
    STDMETHODIMP WriteStringList(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pSessionDataList) override;
    STDMETHODIMP GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList) override;
    STDMETHODIMP SaveData(BSTR bstrKeyName, BSTR bstrValueName) override;
    STDMETHODIMP FlushCache(SESSIONDATATYPE dataType) override;
    STDMETHODIMP GetAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                            tagKEY_SESSIONDATAVALUE** ppKeySessionDataList) override;

protected:
    // The marker of a value the storage lacks: lower-cased key, "/", lower-cased value name.
    static std::wstring MissingMarker(std::wstring_view lowerKey, std::wstring_view lowerValueName);

    // As the shared PutValue; a value put is no longer marked missing.
    HRESULT PutValue(BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue) override;
    // The write-through step of WriteData and WriteStringList (not on the interface): with a
    // value name, stores that cached value under the key as given (a stored empty value then
    // leaves the cache, so that the next read asks the storage); without one, stores the dirty
    // values of the key, or of every key when the key is empty too. S_FALSE when there is
    // nothing cached to store.
    HRESULT SaveValues(BSTR bstrKeyName, BSTR bstrValueName);
    // A user-profile database storage keeps the array of a StoreData call that succeeded: it
    // queues it for asynchronous writing.
    bool StorageKeepsStoredArray() override;
    // GetAllData replaces a key: its bare name leaves the missing markers (it never matches
    // one, so a value once marked missing stays marked; kept as it stands).
    void OnKeyMerged(std::wstring_view lowerKey) override;

    // The cache is m_table (key -> values). Markers of values the storage lacks:
    std::unordered_set<std::wstring> m_missingValues;
};

// The cached layer inside another object that holds it by value (the extended layer). It
// overrides none of the IWQ_SessionDataIO operations. Its IUnknown is the holder's (outer), or,
// without a holder, answers its own interfaces and leaves the lifetime to its owner. The
// helpers and tables are open to the holder.
class XSessionDataIOImpl : public XSessionDataIO
{
public:
    explicit XSessionDataIOImpl(IUnknown* outer = nullptr) noexcept : m_outer(outer) {}

    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    using XSessionDataIOBase::Guard;
    using XSessionDataIOBase::ReadList;
    using XSessionDataIOBase::StoreList;
    using XSessionDataIOBase::TableFromList;
    using XSessionDataIO::MissingMarker;
    using XSessionDataIO::PutValue;
    using XSessionDataIO::SaveValues;
    using XSessionDataIOBase::m_lock;
    using XSessionDataIOBase::m_storage;
    using XSessionDataIOBase::m_table;
    using XSessionDataIO::m_missingValues;

private:
    IUnknown* m_outer;  // not counted: the holder owns this object
};
