// XSessionDataIOBase: what the uncached (XSessionDataIONoCache) and the cached (XSessionDataIO)
// access layers have in common: one bound storage and its kind, one key table (the uncached
// layer's scratch table, the cached layer's cache), one reentrant lock held for the whole of
// every call (storage calls included), the helpers that move value lists between the table and
// the storage, and the IWQ_SessionDataIO operations that both layers carry out alike.
#pragma once

#include "xcomobject.h"
#include "xsdmreporter.h"
#include "xsessiondatamng_h.h"
#include "xsessiondatavalues.h"
#include "xstoragekind.h"
#include "XThreadBasedCritSect.h"

#include <string>
#include <utility>

class XSessionDataIOBase : public IWQ_SessionDataIO, public ISupportErrorInfo
{
public:
    virtual ~XSessionDataIOBase() = default;
    XSessionDataIOBase(const XSessionDataIOBase&) = delete;
    XSessionDataIOBase& operator=(const XSessionDataIOBase&) = delete;

    HRESULT InternalQueryInterface(REFIID iid, void** ppv);

    // ISupportErrorInfo
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID iid) override;

    // IWQ_SessionDataIO: the operations that both layers share.
    // Binds the first non-null storage for good and classifies it; S_OK once a storage is bound,
    // E_INVALIDARG before. A later storage is ignored.
    STDMETHODIMP SetStorage(IWQ_SessionDataStorage* piSessionDataStorage) override;
    // Forwarded to the storage; S_OK without one (the out value is then not written).
    STDMETHODIMP FlushAsyncStorage() override;
    STDMETHODIMP GetLastErrorAsyncExecution(HRESULT* phrAsyncResult) override;
    // This object's own GetAllData (through the interface), its result freed; GetAllData's result.
    STDMETHODIMP UploadCache(BSTR bstrKeyName) override;
    // The storage kind number 0 to 5 (not the SDM_STORAGE_TYPE member); no pointer check.
    STDMETHODIMP GetStorageType(SDM_STORAGE_TYPE* pStorageType) override;

protected:
    // unit: the source unit named in lock diagnostics and error locations; classId: the GUID
    // of the error info that this object reports.
    XSessionDataIOBase(const char* unit, const CLSID& classId) noexcept : m_report(unit, classId) {}

    // Holds the object's lock for a scope (reentrant on the same thread).
    class Guard
    {
    public:
        Guard(XSessionDataIOBase& io, unsigned long line) noexcept : m_guard(io.m_lock, io.m_report.Unit(), line)
        {
            m_guard.Lock();
        }

    private:
        XSmartThreadBasedCritSectPtr m_guard;
    };

    // The bound storage's name where it cannot hold a value with a NUL character inside
    // (registry, environment); null where it can (or none is bound).
    const wchar_t* NulRefusingHolder() const noexcept { return XStorageRefusesNulValues(m_storageKind); }

    // Puts (value, dirty) under the lower-cased key and value name; S_FALSE for an empty value
    // name (nothing changes), else S_OK.
    virtual HRESULT PutValue(BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue);
    // PutValue for each record in order, up to the first result other than S_OK, which is
    // returned; S_OK when all were put.
    HRESULT PutValues(BSTR bstrKeyName, ULONG ulCount, const tagSESSIONDATAVALUE* pSessionDataList);
    // Reads a key's pairs from the storage into list (names as the storage spelt them). S_FALSE
    // without a storage; else the storage's result. records receives how many records the
    // storage returned (which may be more than list holds).
    HRESULT ReadList(BSTR bstrKeyName, XValueList& list, ULONG* records = nullptr);
    // A value table of all entries of list, names lower-cased, all clean.
    static XValueTable TableFromList(const XValueList& list);
    // Stores list with one StoreData call (an array made with the module's array new, BSTR
    // copies in list order). S_FALSE without a storage or when the array cannot be allocated;
    // S_OK for an empty list (no call); else the storage's result.
    HRESULT StoreList(BSTR bstrKeyName, const XValueList& list);
    // Whether the storage keeps the array of a StoreData call that succeeded (then this layer
    // must not free it). The uncached layer always frees it.
    virtual bool StorageKeepsStoredArray() { return false; }

    // SaveData's one-value case: stores the value of valueName (lower-cased) that key (an entry
    // of the table, or null) holds, whether dirty or not, as a one-entry list under the key as
    // the caller spelt it (bstrKeyName). stored receives that value's entry, null when the key
    // or the value is not in the table (nothing is stored then, and the result is S_FALSE).
    // Otherwise StoreList's result; the entry is left as it was.
    HRESULT StoreOneValue(BSTR bstrKeyName, XKeyTable::Entry* key, std::wstring_view valueName,
                          XValueTable::Entry*& stored);
    // The dirty entries of a value table, as a list to store.
    static XValueList DirtyValues(const XValueTable& table);
    // Stores dirty (a key's dirty values) under the key's name as the table holds it; on
    // success every value of the key is clean. StoreList's result.
    HRESULT StoreDirtyValues(XKeyTable::Entry& key, const XValueList& dirty);
    // A CoTaskMemAlloc array of count records, filled from the table in order with new BSTRs of
    // name and value; records past the table's size stay null. The caller owns it.
    static tagSESSIONDATAVALUE* NewListFromTable(const XValueTable& table, ULONG count);

    // GetData's lookup (lower-cased key and value name). A key in the table answers from it; a
    // key not in it is read from the storage (ReadList) and its table made from the list. A key
    // in the table without the value is read again and gains the names it lacks, spelt as the
    // storage spelt them or lower-cased (lowerStorageNames); a storage name equal to valueName
    // then answers. answer's text is kept by the table or by read. A failed read's result is
    // returned; otherwise S_OK.
    HRESULT FindOrReadValue(std::wstring_view key, std::wstring_view valueName, bool lowerStorageNames,
                            XValueList& read, XFoundValue& answer);
    // GetStringList's work: a key not in the table is read from the storage (a failed read's
    // result is returned) and its table made from the list; the count is the table's size for a
    // key that was in the table, else the storage's record count. With a count above 0 the
    // list is handed out (S_OK). Otherwise: S_FALSE for a key that was in the table, else the
    // read's result.
    HRESULT ListKeyValues(std::wstring_view key, ULONG* pulCount, tagSESSIONDATAVALUE** ppSessionDataList);

    // GetSubKeys of both layers: S_FALSE without a storage, the pointer checks at the given
    // location, then the storage's answer handed on as it is.
    HRESULT ForwardSubKeys(unsigned long line, const XWQComBSTR& function, BSTR bstrKeyName, ULONG ulRecursive,
                           ULONG* pulCount, BSTR** ppKeyNameList);
    // GetAllData of both layers (the location is "XSessionDataIO::GetAllData" in either): the
    // storage's ReadAllData, handed to the caller, merged into the table on S_OK. With
    // flushFirst, this object's FlushAsyncStorage runs first and a failure ends the call.
    HRESULT ReadAllData(unsigned long line, bool flushFirst, BSTR bstrRootKeyName, ULONG* pulCount,
                        tagKEY_SESSIONDATAVALUE** ppKeySessionDataList);
    // Called by the merge of ReadAllData for each record's lower-cased key, before its pairs are
    // put in the table.
    virtual void OnKeyMerged(std::wstring_view lowerKey) {}

    XComPtr<IWQ_SessionDataStorage> m_storage;
    ULONG m_storageKind = XSTORAGE_NONE;
    // Key name -> value table; names lower-cased (the one exception is described in the uncached
    // layer's GetData). The uncached layer's working table, the cached layer's cache.
    XKeyTable m_table;
    XThreadBasedCritSect m_lock;

    // Where this layer reports (its source unit and class identity), and its boundary.
    const XSdmReporter m_report;

private:
    void MergeAllData(const tagKEY_SESSIONDATAVALUE* records, ULONG count);
};
