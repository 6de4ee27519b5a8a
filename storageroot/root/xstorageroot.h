// XStorageRoot (coclass WQ_SessionDataStorageRoot): the storage root that the module's database
// storage and database IO layer talk to. A thin object per client in front of a database that
// the process serves (XRootDatabase: the module's cached extended IO layer over the SQL
// storage), so a value behaves through the root as it does through that layer in process.
//
// Keys under the user-profile prefix "<[HKCU]>" belong to the calling user: they are mapped to
// the user's own keys on the way in and back on every name handed out (XUserKeys). The database
// is the configured default (XDefaultRootConnection) until the client opens another through
// IWQ_SessionDataRootConfig; it is opened at the first call that needs it.
#pragma once

#include "XWQComBSTR.h"
#include "xcomobject.h"
#include "xrootdatabase.h"
#include "xsessiondatamng_h.h"
#include "xstorageroot_h.h"

#include <memory>
#include <mutex>

class XSdmReporter;

class XStorageRoot : public IWQ_SessionDataIOEx, public IWQ_SessionDataRootConfig, public ISupportErrorInfo
{
public:
    XStorageRoot() = default;
    virtual ~XStorageRoot() = default;
    XStorageRoot(const XStorageRoot&) = delete;
    XStorageRoot& operator=(const XStorageRoot&) = delete;

    HRESULT InternalQueryInterface(REFIID iid, void** ppv);
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID iid) override;

    // IWQ_SessionDataIO
    // Refused (E_NOTIMPL): the root keeps its own storage; a client chooses the database with Open.
    STDMETHODIMP SetStorage(IWQ_SessionDataStorage* piSessionDataStorage) override;
    STDMETHODIMP WriteData(BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue) override;
    STDMETHODIMP GetData(BSTR bstrKeyName, BSTR bstrValueName, BSTR* pbstrValue) override;
    STDMETHODIMP GetStringList(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppSessionDataList) override;
    STDMETHODIMP WriteStringList(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pSessionDataList) override;
    STDMETHODIMP GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList) override;
    STDMETHODIMP SaveData(BSTR bstrKeyName, BSTR bstrValueName) override;
    // The cache is shared by every root object on the database: flushing it is for all of them.
    STDMETHODIMP FlushCache(SESSIONDATATYPE dataType) override;
    STDMETHODIMP FlushAsyncStorage() override;
    STDMETHODIMP GetLastErrorAsyncExecution(HRESULT* phrAsyncResult) override;
    STDMETHODIMP UploadCache(BSTR bstrKeyName) override;
    STDMETHODIMP GetAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                            tagKEY_SESSIONDATAVALUE** ppKeySessionDataList) override;
    STDMETHODIMP GetStorageType(SDM_STORAGE_TYPE* pStorageType) override;

    // IWQ_SessionDataIOEx
    STDMETHODIMP WriteObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue) override;
    STDMETHODIMP GetObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName, BSTR* pbstrValue) override;
    STDMETHODIMP GetObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG* pulCount,
                                     tagSESSIONDATAVALUE** ppSessionDataList) override;
    STDMETHODIMP WriteObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG ulCount,
                                       tagSESSIONDATAVALUE* pSessionDataList) override;
    STDMETHODIMP GetObjectSubKeys(IUnknown* piObject, BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount,
                                  BSTR** ppKeyNameList) override;
    STDMETHODIMP DeleteObjectKey(IUnknown* piObject, BSTR bstrKeyName) override;
    STDMETHODIMP DeleteKey(BSTR bstrKeyName) override;
    // This root object's own flag: the shared layer behind it is not changed.
    STDMETHODIMP SetUserProfileIO() override;
    STDMETHODIMP IsUserProfileIO(long* pbUserProfile) override;

    // IWQ_SessionDataRootConfig
    // Switches this root object to the database that the connection text names.
    STDMETHODIMP Open(BSTR bstrConnection) override;
    // The connection text (canonical form) of the database this root object uses.
    STDMETHODIMP GetConnection(BSTR* pbstrConnection) override;
    STDMETHODIMP GetServerProcessId(LONG* plProcessId) override;
    // Makes the connection text the default of the user the server runs as (XSetDefaultRootConnection:
    // an ODBC password kept encrypted for the user, apart from the text); an empty text goes back
    // to the SQLite file. Root objects that already use a database keep it.
    STDMETHODIMP SetDefaultConnection(BSTR bstrConnection) override;
    // That default connection text, any password masked.
    STDMETHODIMP GetDefaultConnection(BSTR* pbstrConnection) override;

private:
    static const XSdmReporter& Report();
    // The database in use, opened on first need; held by the caller for its call, so an Open on
    // another thread cannot close it underneath.
    std::shared_ptr<XRootDatabase> Database();
    // Runs call(io, key as stored) at the boundary of function.
    template <class Call>
    HRESULT OnKey(unsigned long line, const XWQComBSTR& function, BSTR key, Call&& call);
    // Runs call(io) at the boundary of function.
    template <class Call>
    HRESULT OnDatabase(unsigned long line, const XWQComBSTR& function, Call&& call);

    std::mutex m_lock;
    std::shared_ptr<XRootDatabase> m_database;
    volatile LONG m_userProfile = 0;
};
