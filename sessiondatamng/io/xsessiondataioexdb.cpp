#include "xsessiondataioexdb.h"

// The line numbers below are those that clients have always seen in this layer's connection
// errors; they are part of its error reports, not of this file.

template <class Call>
HRESULT XSessionDataIOExDB::Forward(unsigned long line, const XWQComBSTR& function, Call&& call)
{
    IWQ_SessionDataIOEx* root = m_root.Get();
    return root ? call(root) : NoConnection(line, function);
}

template <class Check, class Call>
HRESULT XSessionDataIOExDB::ForwardChecked(unsigned long line, const XWQComBSTR& function, Check&& check, Call&& call)
{
    // Names are checked before the root is asked; only the report could throw (memory).
    static const XSdmReporter report("xsessiondataioexdb", CLSID_WQ_SessionDataIOExDB);
    const HRESULT checked = report.Run(line, function, [&]() -> HRESULT {
        XNameCheck names = report.Names(line, function);
        check(names);
        return names.Result();
    });
    return FAILED(checked) ? checked : Forward(line, function, std::forward<Call>(call));
}

HRESULT XSessionDataIOExDB::NoConnection(unsigned long line, const XWQComBSTR& function) noexcept
{
    try
    {
        static const XWQComBSTR source(L"Session data manager: XSessionDataIOExDB");
        static const XWQComBSTR message(L"No connection to object storage root object.");
        return XWQError::SetComError(source, function, line, message, E_POINTER);
    }
    catch (...)
    {
        // Only the report could fail (memory); the call fails all the same.
        return E_POINTER;
    }
}

HRESULT XSessionDataIOExDB::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IWQ_SessionDataIOExDB, IWQ_SessionDataIOEx, IWQ_SessionDataIO, ISupportErrorInfo>(
        this, iid, ppv);
}

STDMETHODIMP XSessionDataIOExDB::InterfaceSupportsErrorInfo(REFIID iid)
{
    return ::IsEqualIID(iid, IID_IWQ_SessionDataIOExDB) || ::IsEqualIID(iid, IID_IWQ_SessionDataIOEx) ||
                   ::IsEqualIID(iid, IID_IWQ_SessionDataIO)
               ? S_OK
               : S_FALSE;
}

STDMETHODIMP XSessionDataIOExDB::SetStorage(IWQ_SessionDataStorage*)
{
    return E_NOTIMPL;
}

STDMETHODIMP XSessionDataIOExDB::WriteData(BSTR bstrKeyName, BSTR bstrValueName, BSTR bstrValue)
{
    return ForwardChecked(83, XSDM_FUNCTION_NAME(L"XSessionDataIOExDB::WriteData"), [&](XNameCheck& n) { n.Key(bstrKeyName).ValueName(bstrValueName); },
                   [&](IWQ_SessionDataIOEx* root) { return root->WriteData(bstrKeyName, bstrValueName, bstrValue); });
}

STDMETHODIMP XSessionDataIOExDB::GetData(BSTR bstrKeyName, BSTR bstrValueName, BSTR* pbstrValue)
{
    return ForwardChecked(95, XSDM_FUNCTION_NAME(L"XSessionDataIOExDB::GetData"), [&](XNameCheck& n) { n.Key(bstrKeyName).ValueName(bstrValueName); },
                   [&](IWQ_SessionDataIOEx* root) { return root->GetData(bstrKeyName, bstrValueName, pbstrValue); });
}

STDMETHODIMP XSessionDataIOExDB::GetStringList(BSTR bstrKeyName, ULONG* pulCount,
                                               tagSESSIONDATAVALUE** ppSessionDataList)
{
    return ForwardChecked(69, XSDM_FUNCTION_NAME(L"XSessionDataIOExDB::GetStringList"), [&](XNameCheck& n) { n.Key(bstrKeyName); }, [&](IWQ_SessionDataIOEx* root) {
        return root->GetStringList(bstrKeyName, pulCount, ppSessionDataList);
    });
}

STDMETHODIMP XSessionDataIOExDB::WriteStringList(BSTR bstrKeyName, ULONG ulCount,
                                                 tagSESSIONDATAVALUE* pSessionDataList)
{
    return ForwardChecked(57, XSDM_FUNCTION_NAME(L"XSessionDataIOExDB::WriteStringList"), [&](XNameCheck& n) { n.Key(bstrKeyName).Records(ulCount, pSessionDataList); }, [&](IWQ_SessionDataIOEx* root) {
        return root->WriteStringList(bstrKeyName, ulCount, pSessionDataList);
    });
}

STDMETHODIMP XSessionDataIOExDB::GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount,
                                            BSTR** ppKeyNameList)
{
    return ForwardChecked(107, XSDM_FUNCTION_NAME(L"XSessionDataIOExDB::GetSubKeys"), [&](XNameCheck& n) { n.Key(bstrKeyName); }, [&](IWQ_SessionDataIOEx* root) {
        return root->GetSubKeys(bstrKeyName, ulRecursive, pulCount, ppKeyNameList);
    });
}

STDMETHODIMP XSessionDataIOExDB::SaveData(BSTR, BSTR)
{
    return S_OK;
}

STDMETHODIMP XSessionDataIOExDB::FlushCache(SESSIONDATATYPE dataType)
{
    return Forward(128, XSDM_FUNCTION_NAME(L"XSessionDataIOExDB::FlushCache"),
                   [&](IWQ_SessionDataIOEx* root) { return root->FlushCache(dataType); });
}

STDMETHODIMP XSessionDataIOExDB::FlushAsyncStorage()
{
    return Forward(141, XSDM_FUNCTION_NAME(L"XSessionDataIOExDB::FlushAsyncStorage"),
                   [&](IWQ_SessionDataIOEx* root) { return root->FlushAsyncStorage(); });
}

STDMETHODIMP XSessionDataIOExDB::GetLastErrorAsyncExecution(HRESULT* phrAsyncResult)
{
    return Forward(155, XSDM_FUNCTION_NAME(L"XSessionDataIOExDB::GetLastErrorAsyncExecution"),
                   [&](IWQ_SessionDataIOEx* root) { return root->GetLastErrorAsyncExecution(phrAsyncResult); });
}

STDMETHODIMP XSessionDataIOExDB::UploadCache(BSTR bstrKeyName)
{
    return ForwardChecked(174, XSDM_FUNCTION_NAME(L"XSessionDataIOExDB::UploadCache"), [&](XNameCheck& n) { n.Key(bstrKeyName); },
                   [&](IWQ_SessionDataIOEx* root) { return root->UploadCache(bstrKeyName); });
}

STDMETHODIMP XSessionDataIOExDB::GetAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                                            tagKEY_SESSIONDATAVALUE** ppKeySessionDataList)
{
    return ForwardChecked(186, XSDM_FUNCTION_NAME(L"XSessionDataIOExDB::GetAllData"), [&](XNameCheck& n) { n.Key(bstrRootKeyName); }, [&](IWQ_SessionDataIOEx* root) {
        return root->GetAllData(bstrRootKeyName, pulCount, ppKeySessionDataList);
    });
}

STDMETHODIMP XSessionDataIOExDB::GetStorageType(SDM_STORAGE_TYPE* pStorageType)
{
    return Forward(44, XSDM_FUNCTION_NAME(L"XSessionDataIOExDB::GetStorageType"),
                   [&](IWQ_SessionDataIOEx* root) { return root->GetStorageType(pStorageType); });
}

STDMETHODIMP XSessionDataIOExDB::WriteObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName,
                                                 BSTR bstrValue)
{
    return ForwardChecked(196, XSDM_FUNCTION_NAME(L"XSessionDataIOExDB::WriteObjectData"), [&](XNameCheck& n) { n.Key(bstrKeyName).ValueName(bstrValueName); }, [&](IWQ_SessionDataIOEx* root) {
        return root->WriteObjectData(piObject, bstrKeyName, bstrValueName, bstrValue);
    });
}

STDMETHODIMP XSessionDataIOExDB::GetObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName,
                                               BSTR* pbstrValue)
{
    return ForwardChecked(206, XSDM_FUNCTION_NAME(L"XSessionDataIOExDB::GetObjectData"), [&](XNameCheck& n) { n.Key(bstrKeyName).ValueName(bstrValueName); }, [&](IWQ_SessionDataIOEx* root) {
        return root->GetObjectData(piObject, bstrKeyName, bstrValueName, pbstrValue);
    });
}

STDMETHODIMP XSessionDataIOExDB::GetObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG* pulCount,
                                                     tagSESSIONDATAVALUE** ppSessionDataList)
{
    return ForwardChecked(216, XSDM_FUNCTION_NAME(L"XSessionDataIOExDB::GetObjectStringList"), [&](XNameCheck& n) { n.Key(bstrKeyName); },
                   [&](IWQ_SessionDataIOEx* root) {
                       return root->GetObjectStringList(piObject, bstrKeyName, pulCount, ppSessionDataList);
                   });
}

STDMETHODIMP XSessionDataIOExDB::WriteObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG ulCount,
                                                       tagSESSIONDATAVALUE* pSessionDataList)
{
    return ForwardChecked(226, XSDM_FUNCTION_NAME(L"XSessionDataIOExDB::WriteObjectStringList"), [&](XNameCheck& n) { n.Key(bstrKeyName).Records(ulCount, pSessionDataList); },
                   [&](IWQ_SessionDataIOEx* root) {
                       return root->WriteObjectStringList(piObject, bstrKeyName, ulCount, pSessionDataList);
                   });
}

STDMETHODIMP XSessionDataIOExDB::GetObjectSubKeys(IUnknown* piObject, BSTR bstrKeyName, ULONG ulRecursive,
                                                  ULONG* pulCount, BSTR** ppKeyNameList)
{
    return ForwardChecked(236, XSDM_FUNCTION_NAME(L"XSessionDataIOExDB::GetObjectSubKeys"), [&](XNameCheck& n) { n.Key(bstrKeyName); }, [&](IWQ_SessionDataIOEx* root) {
        return root->GetObjectSubKeys(piObject, bstrKeyName, ulRecursive, pulCount, ppKeyNameList);
    });
}

STDMETHODIMP XSessionDataIOExDB::DeleteObjectKey(IUnknown* piObject, BSTR bstrKeyName)
{
    return ForwardChecked(246, XSDM_FUNCTION_NAME(L"XSessionDataIOExDB::DeleteObjectKey"), [&](XNameCheck& n) { n.Key(bstrKeyName); },
                   [&](IWQ_SessionDataIOEx* root) { return root->DeleteObjectKey(piObject, bstrKeyName); });
}

STDMETHODIMP XSessionDataIOExDB::DeleteKey(BSTR bstrKeyName)
{
    return ForwardChecked(256, XSDM_FUNCTION_NAME(L"XSessionDataIOExDB::DeleteKey"), [&](XNameCheck& n) { n.Key(bstrKeyName); },
                   [&](IWQ_SessionDataIOEx* root) { return root->DeleteKey(bstrKeyName); });
}

STDMETHODIMP XSessionDataIOExDB::SetUserProfileIO()
{
    ::InterlockedExchange(&m_userProfile, 1);
    return S_OK;
}

STDMETHODIMP XSessionDataIOExDB::IsUserProfileIO(long* pbUserProfile)
{
    *pbUserProfile = m_userProfile == 1 ? 1 : 0;
    return S_OK;
}

STDMETHODIMP XSessionDataIOExDB::SetRoot(IWQ_SessionDataIOEx* pSDMObjectStorageRoot)
{
    m_root = XComPtr<IWQ_SessionDataIOEx>(pSDMObjectStorageRoot);
    return S_OK;
}
