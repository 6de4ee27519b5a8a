#include "xsessiondatamng.h"

#include "xcomtypes.h"
#include "xsdmreporter.h"
#include "xsessiondatamngimpl.h"

namespace
{
volatile LONG g_liveManagers = 0;

const XSdmReporter& Report()
{
    static const XSdmReporter report("xsessiondatamng", IID_IWQ_SessionDataMng);
    return report;
}

// Runs call on the core. A core that cannot be created is reported through CheckPtr at the
// method's location; whatever the core's code throws (out of memory while copying strings)
// becomes an HRESULT here instead of crossing the COM boundary.
template <class Call, class Check = void (*)(XNameCheck&)>
HRESULT OnCore(unsigned long line, const XWQComBSTR& function, Call&& call,
               Check&& check = [](XNameCheck&) {}) noexcept
{
    return Report().Run(line, function, [&]() -> HRESULT {
        XNameCheck names = Report().Names(line, function);
        check(names);
        if (FAILED(names.Result()))
            return names.Result();
        XSessionDataMngImpl* core = XSessionDataMngImpl::GetInstance();
        if (!core)
            return Report().CheckPointer(line, function, core);
        return call(*core);
    });
}

LONG Key(SESSIONDATATYPE dataType)
{
    return static_cast<LONG>(dataType);
}

// The manager converts its own copy of an incoming value, never the caller's.
HRESULT CopyValue(const VARIANT& in, XVariant& copy)
{
    return FAILED(::VariantCopy(&copy, const_cast<VARIANT*>(&in))) ? E_INVALIDARG : S_OK;
}
} // namespace

// Forwards one method to the core; the call expression names the core "core".
#define XSDM_MNG_CALL(method, ...)                                                                                   \
    OnCore(__LINE__, XSDM_FUNCTION_NAME(L"XSessionDataMng::" method),                                             \
           [&](XSessionDataMngImpl& core) -> HRESULT { return __VA_ARGS__; })

// The same after the check of the keys and names the method is given (the check expression
// names the checker "names"): a name with an embedded NUL never reaches the core.
#define XSDM_MNG_CHECKED_CALL(method, check, ...)                                                                    \
    OnCore(__LINE__, XSDM_FUNCTION_NAME(L"XSessionDataMng::" method),                                             \
           [&](XSessionDataMngImpl& core) -> HRESULT { return __VA_ARGS__; },                                       \
           [&](XNameCheck& names) { check; })

XSessionDataMng::XSessionDataMng()
{
    ::InterlockedIncrement(&g_liveManagers);
}

XSessionDataMng::~XSessionDataMng()
{
    if (::InterlockedDecrement(&g_liveManagers) == 0)
        Terminate();
}

LONG XSessionDataMng::LiveObjects()
{
    return ::InterlockedCompareExchange(&g_liveManagers, 0, 0);
}

HRESULT XSessionDataMng::Terminate()
{
    // Unlike the interface methods, Terminate makes its function name on each call.
    const XWQComBSTR function(L"XSessionDataMng::Terminate");
    return OnCore(__LINE__, function, [](XSessionDataMngImpl& core) { return core.Terminate(); });
}

HRESULT XSessionDataMng::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IWQ_SessionDataMng, ISupportErrorInfo>(this, iid, ppv);
}

STDMETHODIMP XSessionDataMng::InterfaceSupportsErrorInfo(REFIID iid)
{
    return ::IsEqualIID(iid, IID_IWQ_SessionDataMng) ? S_OK : S_FALSE;
}

STDMETHODIMP XSessionDataMng::SetStorage(IWQ_SessionDataStorage* piSessionDataStorage, SESSIONDATATYPE dataType,
                                         LONG bCacheStorage)
{
    return XSDM_MNG_CALL("SetStorage", core.SetStorage(piSessionDataStorage, Key(dataType), bCacheStorage));
}

STDMETHODIMP XSessionDataMng::SetStorageIO(IWQ_SessionDataIO* piSessionDataIO, SESSIONDATATYPE dataType)
{
    return XSDM_MNG_CALL("SetStorageIO", core.SetStorageIO(piSessionDataIO, Key(dataType)));
}

STDMETHODIMP XSessionDataMng::GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppSubKeyList,
                                         SESSIONDATATYPE dataType)
{
    return XSDM_MNG_CHECKED_CALL("GetSubKeys", names.Key(bstrKeyName),
                         core.GetSubKeys(bstrKeyName, ulRecursive, pulCount, ppSubKeyList, Key(dataType)));
}

STDMETHODIMP XSessionDataMng::GetObjectSubKeys(IUnknown* piObject, BSTR bstrKeyName, ULONG ulRecursive,
                                               ULONG* pulCount, BSTR** ppSubKeyList, SESSIONDATATYPE dataType)
{
    return XSDM_MNG_CHECKED_CALL("GetObjectSubKeys", names.Key(bstrKeyName), core.GetObjectSubKeys(piObject, bstrKeyName, ulRecursive, pulCount,
                                                                   ppSubKeyList, Key(dataType)));
}

STDMETHODIMP XSessionDataMng::SaveData(SESSIONDATATYPE dataType, BSTR bstrKeyName, BSTR bstrValueName)
{
    return XSDM_MNG_CHECKED_CALL("SaveData", names.Key(bstrKeyName).ValueName(bstrValueName), core.SaveData(Key(dataType), bstrKeyName, bstrValueName));
}

STDMETHODIMP XSessionDataMng::TransferDataFromTo(SESSIONDATATYPE dataTypeForm, SESSIONDATATYPE dataTypeTo,
                                                 BSTR bstrKeyNameFrom, BSTR bstrKeyNameTo)
{
    return XSDM_MNG_CHECKED_CALL("TransferDataFromTo", names.Key(bstrKeyNameFrom).Key(bstrKeyNameTo), core.TransferDataFromTo(Key(dataTypeForm), Key(dataTypeTo),
                                                                       bstrKeyNameFrom, bstrKeyNameTo));
}

STDMETHODIMP XSessionDataMng::GetData(BSTR bstrKeyName, BSTR bstrValueName, unsigned short varType,
                                      VARIANT* pVariantValue, SESSIONDATATYPE dataType)
{
    return XSDM_MNG_CHECKED_CALL("GetData", names.Key(bstrKeyName).ValueName(bstrValueName), core.GetData(bstrKeyName, bstrValueName, varType, pVariantValue, Key(dataType)));
}

STDMETHODIMP XSessionDataMng::GetDataEncrypt(BSTR bstrKeyName, BSTR bstrValueName, unsigned short varType,
                                             VARIANT* pVariantValue, SESSIONDATATYPE dataType)
{
    return XSDM_MNG_CHECKED_CALL("GetDataEncrypt", names.Key(bstrKeyName).ValueName(bstrValueName),
                         core.GetDataEncrypt(bstrKeyName, bstrValueName, varType, pVariantValue, Key(dataType)));
}

STDMETHODIMP XSessionDataMng::WriteData(BSTR bstrKeyName, BSTR bstrValueName, VARIANT VariantValue,
                                        SESSIONDATATYPE dataType)
{
    return XSDM_MNG_CHECKED_CALL("WriteData", names.Key(bstrKeyName).ValueName(bstrValueName), [&] {
        XVariant copy;
        const HRESULT copied = CopyValue(VariantValue, copy);
        return FAILED(copied) ? copied : core.WriteData(bstrKeyName, bstrValueName, copy.Get(), Key(dataType));
    }());
}

STDMETHODIMP XSessionDataMng::GetStringList(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppSessionDataList,
                                            SESSIONDATATYPE dataType)
{
    return XSDM_MNG_CHECKED_CALL("GetStringList", names.Key(bstrKeyName), core.GetStringList(bstrKeyName, pulCount, ppSessionDataList, Key(dataType)));
}

STDMETHODIMP XSessionDataMng::WriteStringList(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pSessionDataList,
                                              SESSIONDATATYPE dataType)
{
    return XSDM_MNG_CHECKED_CALL("WriteStringList", names.Key(bstrKeyName).Records(ulCount, pSessionDataList),
                         core.WriteStringList(bstrKeyName, ulCount, pSessionDataList, Key(dataType)));
}

STDMETHODIMP XSessionDataMng::GetObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName,
                                            unsigned short varType, VARIANT* pVariantValue, SESSIONDATATYPE dataType)
{
    return XSDM_MNG_CHECKED_CALL("GetObjectData", names.Key(bstrKeyName).ValueName(bstrValueName), core.GetObjectData(piObject, bstrKeyName, bstrValueName, varType,
                                                             pVariantValue, Key(dataType)));
}

STDMETHODIMP XSessionDataMng::WriteObjectData(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName,
                                              VARIANT VariantValue, SESSIONDATATYPE dataType)
{
    return XSDM_MNG_CHECKED_CALL("WriteObjectData", names.Key(bstrKeyName).ValueName(bstrValueName), [&] {
        XVariant copy;
        const HRESULT copied = CopyValue(VariantValue, copy);
        return FAILED(copied) ? copied
                              : core.WriteObjectData(piObject, bstrKeyName, bstrValueName, copy.Get(), Key(dataType));
    }());
}

STDMETHODIMP XSessionDataMng::GetObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG* pulCount,
                                                  tagSESSIONDATAVALUE** ppSessionDataList, SESSIONDATATYPE dataType)
{
    return XSDM_MNG_CHECKED_CALL("GetObjectStringList", names.Key(bstrKeyName), core.GetObjectStringList(piObject, bstrKeyName, pulCount,
                                                                         ppSessionDataList, Key(dataType)));
}

STDMETHODIMP XSessionDataMng::WriteObjectStringList(IUnknown* piObject, BSTR bstrKeyName, ULONG ulCount,
                                                    tagSESSIONDATAVALUE* pSessionDataList, SESSIONDATATYPE dataType)
{
    return XSDM_MNG_CHECKED_CALL("WriteObjectStringList", names.Key(bstrKeyName).Records(ulCount, pSessionDataList), core.WriteObjectStringList(piObject, bstrKeyName, ulCount,
                                                                             pSessionDataList, Key(dataType)));
}

STDMETHODIMP XSessionDataMng::IsInit(SESSIONDATATYPE dataType)
{
    return XSDM_MNG_CALL("IsInit", core.IsInit(Key(dataType)));
}

STDMETHODIMP XSessionDataMng::DeleteObjectKey(IUnknown* piObject, BSTR bstrKeyName, SESSIONDATATYPE dataType)
{
    return XSDM_MNG_CHECKED_CALL("DeleteObjectKey", names.Key(bstrKeyName), core.DeleteObjectKey(piObject, bstrKeyName, Key(dataType)));
}

STDMETHODIMP XSessionDataMng::DeleteKey(BSTR bstrKeyName, SESSIONDATATYPE dataType)
{
    return XSDM_MNG_CHECKED_CALL("DeleteKey", names.Key(bstrKeyName), core.DeleteKey(bstrKeyName, Key(dataType)));
}

// The VB forms go through the object's own interface, so the same routing and reporting apply.
STDMETHODIMP XSessionDataMng::GetDataVB(BSTR bstrKeyName, BSTR bstrValueName, SESSIONDATATYPE dataType,
                                        VARIANT* pVariantValue)
{
    return GetData(bstrKeyName, bstrValueName, VT_BSTR, pVariantValue, dataType);
}

STDMETHODIMP XSessionDataMng::GetObjectDataVB(IUnknown* piObject, BSTR bstrKeyName, BSTR bstrValueName,
                                              SESSIONDATATYPE dataType, VARIANT* pVariantValue)
{
    return GetObjectData(piObject, bstrKeyName, bstrValueName, VT_BSTR, pVariantValue, dataType);
}

STDMETHODIMP XSessionDataMng::FlushCache(SESSIONDATATYPE dataType)
{
    return XSDM_MNG_CALL("FlushCache", core.FlushCache(Key(dataType)));
}

STDMETHODIMP XSessionDataMng::FlushAsyncStorage(SESSIONDATATYPE dataType)
{
    return XSDM_MNG_CALL("FlushAsyncStorage", core.FlushAsyncStorage(Key(dataType)));
}

STDMETHODIMP XSessionDataMng::GetLastErrorAsyncExecution(SESSIONDATATYPE dataType, HRESULT* phrAsyncResult)
{
    return XSDM_MNG_CALL("GetLastErrorAsyncExecution", core.GetLastErrorAsyncExecution(Key(dataType), phrAsyncResult));
}

STDMETHODIMP XSessionDataMng::UploadCache(BSTR bstrKeyName, SESSIONDATATYPE dataType)
{
    return XSDM_MNG_CHECKED_CALL("UploadCache", names.Key(bstrKeyName), core.UploadCache(bstrKeyName, Key(dataType)));
}

STDMETHODIMP XSessionDataMng::GetStorageType(SESSIONDATATYPE dataType, SDM_STORAGE_TYPE* pStorageType)
{
    return XSDM_MNG_CALL("GetStorageType", core.GetStorageType(Key(dataType), pStorageType));
}

STDMETHODIMP XSessionDataMng::SetInvalid()
{
    return XSDM_MNG_CALL("SetInvalid", core.SetInvalid());
}

STDMETHODIMP XSessionDataMng::Validate()
{
    return XSDM_MNG_CALL("Validate", core.Validate());
}
