// XSessionDataStorageSql: a storage (IWQ_SessionDataStorageEx) that keeps session data in an SQL
// database through one connection (XSqlConnection: SQLite, or another engine with its dialect).
//
// It behaves as the module's extended IO layer expects of a storage:
//   - keys compared as the registry does (either separator, without regard to case: XSqlKey),
//     listed in the spelling that first created them; storing a value creates its key and
//     every key above it, as a registry key does;
//   - value names as the layer hands them; pairs returned sorted by name (ordinal); S_FALSE
//     where there is nothing;
//   - one transaction per StoreData: a list is written whole or not at all;
//   - GetSubKeys flat or recursive in depth-first pre-order, as the registry storage lists;
//   - DeleteKey removes a key with its whole subtree (the root key itself cannot be deleted);
//   - object data kept under the object's persistent identity (XObjectIdentity), apart from the
//     plain data of the same key; object value names are kept and returned lower-cased, as the
//     extended layer looks them up.
// Every call holds the storage's lock; statements are prepared once and kept by the connection.
// A call whose connection was lost (a database server that restarted) or whose work the server
// failed to break a deadlock runs once more after the connection recovers (XSqlConnection::
// Recover): every call's work can run twice, since a write sets the same rows again.
#pragma once

#include "xcomobject.h"
#include "xsessiondatamng_h.h"
#include "xsqlconnection.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

// {6E1B6D43-2B2F-4C77-9E35-4B7B1C0E8A21}: the class identity in the error info it reports.
static const CLSID CLSID_WQ_SessionDataStorageSql = {
    0x6e1b6d43, 0x2b2f, 0x4c77, {0x9e, 0x35, 0x4b, 0x7b, 0x1c, 0x0e, 0x8a, 0x21}};

class XSessionDataStorageSql : public IWQ_SessionDataStorageEx, public ISupportErrorInfo
{
public:
    XSessionDataStorageSql() = default;
    virtual ~XSessionDataStorageSql() = default;
    XSessionDataStorageSql(const XSessionDataStorageSql&) = delete;
    XSessionDataStorageSql& operator=(const XSessionDataStorageSql&) = delete;

    // A new storage over connection (made with XSqlConnect), as IWQ_SessionDataStorageEx.
    static XComPtr<IWQ_SessionDataStorageEx> Create(std::unique_ptr<XSqlConnection> connection);

    HRESULT InternalQueryInterface(REFIID iid, void** ppv);
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID iid) override;

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

private:
    using Pair = std::pair<std::wstring, std::wstring>;

    // The scope of plain data and of an object's data.
    static std::wstring PlainScope() { return std::wstring(); }
    static std::wstring ObjectScope(IUnknown* object);

    HRESULT Store(const std::wstring& scope, BSTR key, ULONG count, const tagSESSIONDATAVALUE* records,
                  bool lowerNames);
    HRESULT Read(const std::wstring& scope, BSTR key, ULONG* count, tagSESSIONDATAVALUE** records);
    HRESULT SubKeys(const std::wstring& scope, BSTR key, ULONG recursive, ULONG* count, BSTR** names);
    HRESULT Delete(const std::wstring& scope, BSTR key);
    bool KeyExists(const std::wstring& scope, const std::wstring& norm);
    // Runs work under the storage's lock, once more when the connection recovers from its failure.
    template <class Work>
    auto Attempt(Work&& work) -> decltype(work())
    {
        std::lock_guard<std::mutex> lock(m_lock);
        try
        {
            return work();
        }
        catch (...)
        {
            if (!m_connection->Recover())
                throw;
        }
        return work();
    }

    std::mutex m_lock;
    std::unique_ptr<XSqlConnection> m_connection;
};
