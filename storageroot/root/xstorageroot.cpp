#include "xstorageroot.h"

#include "xcomtypes.h"
#include "xrootconnection.h"
#include "xsdmreporter.h"
#include "xuserkeys.h"

namespace
{
// Takes over an array that a call handed out, shows the caller its names (XUserKeys::ToClient)
// and hands the array back through the same out-parameters.
template <class Array, class Item>
void ShowToClient(ULONG* count, Item** items)
{
    if (!count || !items || !*items)
        return;
    Array array;
    *array.CountAddress() = *count;
    *array.ItemsAddress() = *items;
    *items = nullptr;
    *count = 0;
    XUserKeys::ToClient(array);
    array.Release(count, items);
}
} // namespace

HRESULT XStorageRoot::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IWQ_SessionDataIOEx, IWQ_SessionDataIO, IWQ_SessionDataRootConfig, ISupportErrorInfo>(
        this, iid, ppv);
}

STDMETHODIMP XStorageRoot::InterfaceSupportsErrorInfo(REFIID iid)
{
    return ::IsEqualIID(iid, IID_IWQ_SessionDataIOEx) || ::IsEqualIID(iid, IID_IWQ_SessionDataIO) ||
                   ::IsEqualIID(iid, IID_IWQ_SessionDataRootConfig)
               ? S_OK
               : S_FALSE;
}

const XSdmReporter& XStorageRoot::Report()
{
    static const XSdmReporter report("xstorageroot", CLSID_WQ_SessionDataStorageRoot);
    return report;
}

std::shared_ptr<XRootDatabase> XStorageRoot::Database()
{
    std::lock_guard<std::mutex> guard(m_lock);
    if (!m_database)
        m_database = XRootDatabase::Open(XDefaultRootConnection());
    return m_database;
}

template <class Call>
HRESULT XStorageRoot::OnDatabase(unsigned long line, const XWQComBSTR& function, Call&& call)
{
    return Report().Run(line, function, [&]() -> HRESULT {
        const std::shared_ptr<XRootDatabase> database = Database();
        return call(database->IO());
    });
}

template <class Call>
HRESULT XStorageRoot::OnKey(unsigned long line, const XWQComBSTR& function, BSTR key, Call&& call)
{
    return OnDatabase(line, function, [&](IWQ_SessionDataIOEx* io) -> HRESULT {
        XWQComBSTR mapped;
        return call(io, XUserKeys::ToStorage(key, mapped));
    });
}

STDMETHODIMP XStorageRoot::SetStorage(IWQ_SessionDataStorage*)
{
    return Report().Refuse(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::SetStorage"), E_NOTIMPL,
                           L"the storage root keeps its own storage: choose its database with "
                           L"IWQ_SessionDataRootConfig::Open");
}

STDMETHODIMP XStorageRoot::WriteData(BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue)
{
    return OnKey(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::WriteData"), bstrKeyName,
                 [&](IWQ_SessionDataIOEx* io, BSTR key) { return io->WriteData(key, bstrValueName, bstrValue); });
}

STDMETHODIMP XStorageRoot::GetData(BSTR bstrKeyName, BSTR bstrValueName, BSTR* pbstrValue)
{
    return OnKey(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::GetData"), bstrKeyName,
                 [&](IWQ_SessionDataIOEx* io, BSTR key) { return io->GetData(key, bstrValueName, pbstrValue); });
}

STDMETHODIMP XStorageRoot::GetStringList(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppSessionDataList)
{
    return OnKey(
        __LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::GetStringList"), bstrKeyName,
        [&](IWQ_SessionDataIOEx* io, BSTR key) { return io->GetStringList(key, pulCount, ppSessionDataList); });
}

STDMETHODIMP XStorageRoot::WriteStringList(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pSessionDataList)
{
    return OnKey(
        __LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::WriteStringList"), bstrKeyName,
        [&](IWQ_SessionDataIOEx* io, BSTR key) { return io->WriteStringList(key, ulCount, pSessionDataList); });
}

STDMETHODIMP XStorageRoot::GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList)
{
    return OnKey(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::GetSubKeys"), bstrKeyName,
                 [&](IWQ_SessionDataIOEx* io, BSTR key) {
                     const HRESULT hr = io->GetSubKeys(key, ulRecursive, pulCount, ppKeyNameList);
                     if (SUCCEEDED(hr))
                         ShowToClient<XBstrArray>(pulCount, ppKeyNameList);
                     return hr;
                 });
}

STDMETHODIMP XStorageRoot::SaveData(BSTR bstrKeyName, BSTR bstrValueName)
{
    return OnKey(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::SaveData"), bstrKeyName,
                 [&](IWQ_SessionDataIOEx* io, BSTR key) { return io->SaveData(key, bstrValueName); });
}

STDMETHODIMP XStorageRoot::FlushCache(SESSIONDATATYPE dataType)
{
    return OnDatabase(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::FlushCache"),
                      [&](IWQ_SessionDataIOEx* io) { return io->FlushCache(dataType); });
}

STDMETHODIMP XStorageRoot::FlushAsyncStorage()
{
    return OnDatabase(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::FlushAsyncStorage"),
                      [&](IWQ_SessionDataIOEx* io) { return io->FlushAsyncStorage(); });
}

STDMETHODIMP XStorageRoot::GetLastErrorAsyncExecution(HRESULT* phrAsyncResult)
{
    return OnDatabase(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::GetLastErrorAsyncExecution"),
                      [&](IWQ_SessionDataIOEx* io) { return io->GetLastErrorAsyncExecution(phrAsyncResult); });
}

STDMETHODIMP XStorageRoot::UploadCache(BSTR bstrKeyName)
{
    return OnKey(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::UploadCache"), bstrKeyName,
                 [&](IWQ_SessionDataIOEx* io, BSTR key) { return io->UploadCache(key); });
}

STDMETHODIMP XStorageRoot::GetAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                                      tagKEY_SESSIONDATAVALUE** ppKeySessionDataList)
{
    return OnKey(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::GetAllData"), bstrRootKeyName,
                 [&](IWQ_SessionDataIOEx* io, BSTR key) {
                     const HRESULT hr = io->GetAllData(key, pulCount, ppKeySessionDataList);
                     if (SUCCEEDED(hr))
                         ShowToClient<XKeyValueArray>(pulCount, ppKeySessionDataList);
                     return hr;
                 });
}

STDMETHODIMP XStorageRoot::GetStorageType(SDM_STORAGE_TYPE* pStorageType)
{
    return OnDatabase(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::GetStorageType"),
                      [&](IWQ_SessionDataIOEx* io) { return io->GetStorageType(pStorageType); });
}

STDMETHODIMP XStorageRoot::WriteObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue)
{
    return OnKey(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::WriteObjectData"), bstrKeyName,
                 [&](IWQ_SessionDataIOEx* io, BSTR key) {
                     return io->WriteObjectData(piObject, key, bstrValueName, bstrValue);
                 });
}

STDMETHODIMP XStorageRoot::GetObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName, BSTR* pbstrValue)
{
    return OnKey(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::GetObjectData"), bstrKeyName,
                 [&](IWQ_SessionDataIOEx* io, BSTR key) {
                     return io->GetObjectData(piObject, key, bstrValueName, pbstrValue);
                 });
}

STDMETHODIMP XStorageRoot::GetObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG* pulCount,
                                               tagSESSIONDATAVALUE** ppSessionDataList)
{
    return OnKey(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::GetObjectStringList"), bstrKeyName,
                 [&](IWQ_SessionDataIOEx* io, BSTR key) {
                     return io->GetObjectStringList(piObject, key, pulCount, ppSessionDataList);
                 });
}

STDMETHODIMP XStorageRoot::WriteObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG ulCount,
                                                 tagSESSIONDATAVALUE* pSessionDataList)
{
    return OnKey(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::WriteObjectStringList"), bstrKeyName,
                 [&](IWQ_SessionDataIOEx* io, BSTR key) {
                     return io->WriteObjectStringList(piObject, key, ulCount, pSessionDataList);
                 });
}

STDMETHODIMP XStorageRoot::GetObjectSubKeys(IUnknown* piObject, BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount,
                                            BSTR** ppKeyNameList)
{
    return OnKey(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::GetObjectSubKeys"), bstrKeyName,
                 [&](IWQ_SessionDataIOEx* io, BSTR key) {
                     const HRESULT hr = io->GetObjectSubKeys(piObject, key, ulRecursive, pulCount, ppKeyNameList);
                     if (SUCCEEDED(hr))
                         ShowToClient<XBstrArray>(pulCount, ppKeyNameList);
                     return hr;
                 });
}

STDMETHODIMP XStorageRoot::DeleteObjectKey(IUnknown* piObject, BSTR bstrKeyName)
{
    return OnKey(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::DeleteObjectKey"), bstrKeyName,
                 [&](IWQ_SessionDataIOEx* io, BSTR key) { return io->DeleteObjectKey(piObject, key); });
}

STDMETHODIMP XStorageRoot::DeleteKey(BSTR bstrKeyName)
{
    return OnKey(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::DeleteKey"), bstrKeyName,
                 [&](IWQ_SessionDataIOEx* io, BSTR key) { return io->DeleteKey(key); });
}

STDMETHODIMP XStorageRoot::SetUserProfileIO()
{
    ::InterlockedExchange(&m_userProfile, 1);
    return S_OK;
}

STDMETHODIMP XStorageRoot::IsUserProfileIO(long* pbUserProfile)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XStorageRoot::IsUserProfileIO");
    const HRESULT checked = Report().CheckPointer(__LINE__, function, pbUserProfile);
    if (SUCCEEDED(checked))
        *pbUserProfile = m_userProfile;
    return checked;
}

STDMETHODIMP XStorageRoot::Open(BSTR bstrConnection)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XStorageRoot::Open");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        if (::SysStringLen(bstrConnection) == 0)
            return Report().Refuse(__LINE__, function, E_INVALIDARG, L"the connection text is empty");
        std::shared_ptr<XRootDatabase> opened =
            XRootDatabase::Open(std::wstring(bstrConnection, ::SysStringLen(bstrConnection)));
        std::lock_guard<std::mutex> guard(m_lock);
        m_database.swap(opened);
        return S_OK;
    });
}

STDMETHODIMP XStorageRoot::GetConnection(BSTR* pbstrConnection)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XStorageRoot::GetConnection");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        Report().CheckPointerOrRaise(__LINE__, function, pbstrConnection);
        const std::shared_ptr<XRootDatabase> database = Database();
        const std::wstring& connection = database->Connection();
        *pbstrConnection = XNewBstr(connection.data(), connection.size());
        return S_OK;
    });
}

STDMETHODIMP XStorageRoot::SetDefaultConnection(BSTR bstrConnection)
{
    return Report().Run(__LINE__, XSDM_FUNCTION_NAME(L"XStorageRoot::SetDefaultConnection"), [&]() -> HRESULT {
        XSetDefaultRootConnection(std::wstring(bstrConnection ? bstrConnection : L"", ::SysStringLen(bstrConnection)));
        return S_OK;
    });
}

STDMETHODIMP XStorageRoot::GetDefaultConnection(BSTR* pbstrConnection)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XStorageRoot::GetDefaultConnection");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        Report().CheckPointerOrRaise(__LINE__, function, pbstrConnection);
        const std::wstring connection = XShownDefaultRootConnection();
        *pbstrConnection = XNewBstr(connection.data(), connection.size());
        return S_OK;
    });
}

STDMETHODIMP XStorageRoot::GetServerProcessId(LONG* plProcessId)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XStorageRoot::GetServerProcessId");
    const HRESULT checked = Report().CheckPointer(__LINE__, function, plProcessId);
    if (SUCCEEDED(checked))
        *plProcessId = static_cast<LONG>(::GetCurrentProcessId());
    return checked;
}
