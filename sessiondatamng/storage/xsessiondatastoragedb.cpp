#include "xsessiondatastoragedb.h"

#include "wqcomfunctor.h"
#include "xcomtypes.h"
#include "xsdmreporter.h"
#include "xsessiondatavalues.h"
#include "xstoredarrayhandover.h"

#include <cwchar>
#include <new>
#include <utility>

namespace
{
const char kUnit[] = "xsessiondatastoragedb";

// What a key of a user-profile storage begins with.
const wchar_t kUserProfilePrefix[] = L"<[HKCU]>/";
const UINT kUserProfilePrefixLength = sizeof(kUserProfilePrefix) / sizeof(kUserProfilePrefix[0]) - 1;

// The pending-flag bits of the two kinds of piped calls.
const unsigned long kPipedWrite = 0x1;
const unsigned long kPipedDelete = 0x2;

using WriteStringListCall = WQComFunctor::XFunP3<IWQ_SessionDataIOEx, &IWQ_SessionDataIO::WriteStringList, BSTR,
                                                 ULONG, tagSESSIONDATAVALUE*>;
using DeleteKeyCall = WQComFunctor::XFunP1<IWQ_SessionDataIOEx, &IWQ_SessionDataIOEx::DeleteKey, BSTR>;

const XSdmReporter& Report()
{
    static const XSdmReporter report(kUnit, XSessionDataStorageDb::ObjectClsid());
    return report;
}

// Both out pointers of a read, checked by the pointer check and cleared.
template <class T>
HRESULT CheckOut(unsigned long line, const XWQComBSTR& function, ULONG* count, T** items)
{
    if (!count || !items)
        return Report().CheckPointer(line, function, nullptr);
    *count = 0;
    *items = nullptr;
    return S_OK;
}

// The root's answer: its array goes to the caller on S_OK and is freed otherwise.
template <class Array, class T>
HRESULT HandOut(HRESULT hr, Array& array, ULONG* count, T** items) noexcept
{
    if (hr == S_OK)
        array.Release(count, items);
    return hr;
}

// A name handed back by the root that is shorter than the root key.
HRESULT NotBelonging(unsigned long line, const XWQComBSTR& function)
{
    return Report().Refuse(line, function, E_FAIL,
                           L"the SDM keyname retrieved from database does not belong to the requested root key");
}

// The refusal of a query over the whole database.
HRESULT WholeDatabaseQuery(unsigned long line, const XWQComBSTR& function)
{
    return Report().Refuse(line, function, E_INVALIDARG, L"root key is empty - for DB query the root key must be set");
}
} // namespace

XSessionDataStorageDb::~XSessionDataStorageDb()
{
    if (!Async())
        return;
    // Terminate runs what is pending; a failure of that has nobody left to return to, so it
    // goes to the log book under this storage's name.
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageDb::~XSessionDataStorageDb");
    Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT hr = m_delegator.Terminate();
        if (FAILED(hr))
            XWQError::WriteErrorToLogBook(Report().Where(__LINE__, function), hr, XWQEXCEP::SEV_ERROR,
                                          XWQComBSTR(L"pending asynchronous writes failed"), false, 0);
        return hr;
    });
}

IWQ_SessionDataIOEx* XSessionDataStorageDb::CheckedRoot(unsigned long line, const XWQComBSTR& function) const
{
    // The location and message are made only for a report: a bound storage pays nothing.
    if (IWQ_SessionDataIOEx* root = m_storageRoot.Get())
        return root;
    Report().CheckPointerOrRaise(line, function, nullptr, L"DB storage root instance not set");
    return nullptr;
}

BSTR XSessionDataStorageDb::RootSideKey(BSTR key, XWQComBSTR& full) const
{
    if (m_rootKey.IsEmpty())
        return key;
    // One allocation for the joined key: writes pay for it on every call.
    const std::wstring_view tail = XTextOf(key);
    const UINT rootLength = m_rootKey.Length();
    BSTR joined = ::SysAllocStringLen(nullptr, rootLength + static_cast<UINT>(tail.size()));
    if (!joined)
        XSdmRaiseOutOfMemory();
    std::wmemcpy(joined, m_rootKey.c_str(), rootLength);
    std::wmemcpy(joined + rootLength, tail.data(), tail.size());
    full.Attach(joined);
    return full;
}

bool XSessionDataStorageDb::Async() const noexcept
{
    return m_asyncWrite == 1;
}

bool XSessionDataStorageDb::UserProfile() const noexcept
{
    return m_userProfile == 1;
}

bool XSessionDataStorageDb::StripRootKey(BSTR& name) const
{
    const UINT length = ::SysStringLen(name);
    if (!name || length == 0)
        return true;
    const UINT cut = m_rootKey.Length();
    if (length < cut)
        return false;
    BSTR rest = ::SysAllocStringLen(name + cut, length - cut);
    if (!rest)
        XSdmRaiseOutOfMemory();
    ::SysFreeString(std::exchange(name, rest));
    return true;
}

template <class Now, class MakeOp>
HRESULT XSessionDataStorageDb::Write(unsigned long line, const XWQComBSTR& function, BSTR key, unsigned long flags,
                                     Now&& now, MakeOp&& makeOp)
{
    IWQ_SessionDataIOEx* root = CheckedRoot(line, function);
    if (m_rootKey.IsEmpty())
        return now(root, key);
    XWQComBSTR fullKey;
    RootSideKey(key, fullKey);
    if (!Async())
        return now(root, static_cast<BSTR>(fullKey));
    // The captured call holds copies of the key and of the values: the caller may free its own
    // at once.
    m_delegator.PipeStorageRootCall(makeOp(static_cast<BSTR>(fullKey)), fullKey, flags);
    return S_OK;
}

template <class Array, class T, class Call>
HRESULT XSessionDataStorageDb::Read(unsigned long line, const XWQComBSTR& function, ULONG* count, T** items,
                                    Call&& call)
{
    const HRESULT checked = CheckOut(line, function, count, items);
    if (checked != S_OK)
        return checked;
    IWQ_SessionDataIOEx* root = CheckedRoot(line, function);
    Array array;
    return HandOut(call(root, array), array, count, items);
}

template <class Array, class NameOf>
HRESULT XSessionDataStorageDb::StripAll(unsigned long line, const XWQComBSTR& function, HRESULT hr, Array& array,
                                        NameOf&& nameOf) const
{
    if (hr != S_OK)
        return hr;
    for (ULONG i = 0; i < array.Count(); ++i)
    {
        if (!StripRootKey(nameOf(array[i])))
            return NotBelonging(line, function);
    }
    return hr;
}

HRESULT XSessionDataStorageDb::FlushWhenAsync()
{
    return Async() ? FlushAsyncStorage() : S_OK;
}

HRESULT XSessionDataStorageDb::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IWQ_SessionDataStorageDb, IWQ_SessionDataStorageEx, IWQ_SessionDataStorage,
                            ISupportErrorInfo>(this, iid, ppv);
}

STDMETHODIMP XSessionDataStorageDb::InterfaceSupportsErrorInfo(REFIID iid)
{
    const bool own = ::IsEqualIID(iid, IID_IWQ_SessionDataStorageDb) ||
                     ::IsEqualIID(iid, IID_IWQ_SessionDataStorageEx) || ::IsEqualIID(iid, IID_IWQ_SessionDataStorage);
    return own ? S_OK : S_FALSE;
}

STDMETHODIMP XSessionDataStorageDb::StoreData(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pValueList)
{
    // A user-profile storage keeps the array of a store that succeeds when the cached IO layer
    // handed it over (XStoredArrayHandover), and frees it: the piped call holds copies.
    const bool keepsArrays = UserProfile();
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageDb::StoreData");
    const HRESULT hr = Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).Records(ulCount, pValueList).Result();
        if (FAILED(named))
            return named;
        return Write(
            __LINE__, function, bstrKeyName, kPipedWrite,
            [&](IWQ_SessionDataIOEx* root, BSTR key) { return root->WriteStringList(key, ulCount, pValueList); },
            [&](BSTR key) { return WQComFunctor::MakeOpFun(WriteStringListCall(key, ulCount, pValueList)); });
    });
    if (keepsArrays && SUCCEEDED(hr) && XStoredArrayHandover::KeepOffered(pValueList))
        XDeleteValueArray(pValueList, ulCount);
    return hr;
}

STDMETHODIMP XSessionDataStorageDb::DeleteKey(BSTR bstrKeyName)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageDb::DeleteKey");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        if (FAILED(named))
            return named;
        return Write(
            __LINE__, function, bstrKeyName, kPipedDelete,
            [&](IWQ_SessionDataIOEx* root, BSTR key) { return root->DeleteKey(key); },
            [&](BSTR key) { return WQComFunctor::MakeOpFun(DeleteKeyCall(key)); });
    });
}

STDMETHODIMP XSessionDataStorageDb::ReadData(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppValueList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageDb::ReadData");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        if (FAILED(named))
            return named;
        // Pending asynchronous writes are not run first: a read may not see them yet.
        return Read<XValueArray>(__LINE__, function, pulCount, ppValueList,
                                 [&](IWQ_SessionDataIOEx* root, XValueArray& list) {
                                     XWQComBSTR full;
                                     return root->GetStringList(RootSideKey(bstrKeyName, full), list.CountAddress(),
                                                                list.ItemsAddress());
                                 });
    });
}

STDMETHODIMP XSessionDataStorageDb::GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount,
                                               BSTR** ppKeyNameList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageDb::GetSubKeys");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        if (FAILED(named))
            return named;
        return Read<XBstrArray>(__LINE__, function, pulCount, ppKeyNameList,
                                [&](IWQ_SessionDataIOEx* root, XBstrArray& names) -> HRESULT {
                                    if (m_rootKey.IsEmpty())
                                        return root->GetSubKeys(bstrKeyName, ulRecursive, names.CountAddress(),
                                                                names.ItemsAddress());
                                    const HRESULT flushed = FlushWhenAsync();
                                    if (FAILED(flushed))
                                        return flushed;
                                    XWQComBSTR full;
                                    const HRESULT hr = root->GetSubKeys(RootSideKey(bstrKeyName, full), ulRecursive,
                                                                        names.CountAddress(), names.ItemsAddress());
                                    return StripAll(__LINE__, function, hr, names,
                                                    [](BSTR& name) -> BSTR& { return name; });
                                });
    });
}

STDMETHODIMP XSessionDataStorageDb::ReadAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                                                tagKEY_SESSIONDATAVALUE** ppKeySessionDataList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageDb::ReadAllData");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrRootKeyName).Result();
        if (FAILED(named))
            return named;
        return Read<XKeyValueArray>(
            __LINE__, function, pulCount, ppKeySessionDataList,
            [&](IWQ_SessionDataIOEx* root, XKeyValueArray& records) -> HRESULT {
                // A query over the whole database is never made.
                if (m_rootKey.IsEmpty())
                {
                    if (XWQComBSTR(bstrRootKeyName).IsEmpty())
                        return WholeDatabaseQuery(__LINE__, function);
                    return root->GetAllData(bstrRootKeyName, records.CountAddress(), records.ItemsAddress());
                }
                XWQComBSTR fullKey;
                RootSideKey(bstrRootKeyName, fullKey);
                if (UserProfile() && fullKey.Length() <= kUserProfilePrefixLength)
                    return WholeDatabaseQuery(__LINE__, function);
                const HRESULT flushed = FlushWhenAsync();
                if (FAILED(flushed))
                    return flushed;
                const HRESULT hr = root->GetAllData(fullKey, records.CountAddress(), records.ItemsAddress());
                return StripAll(__LINE__, function, hr, records,
                                [](tagKEY_SESSIONDATAVALUE& record) -> BSTR& { return record.bstrKeyName; });
            });
    });
}

STDMETHODIMP XSessionDataStorageDb::FlushAsyncStorage()
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageDb::FlushAsyncStorage");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        if (!Async())
            return S_OK;
        HRESULT retained = S_OK;
        m_delegator.GetLastErrorAsyncExecution(&retained);
        if (FAILED(retained))
            return retained;
        m_delegator.FlushStorageCallPipe();
        return S_OK;
    });
}

STDMETHODIMP XSessionDataStorageDb::GetLastErrorAsyncExecution(HRESULT* phrAsyncResult)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageDb::GetLastErrorAsyncExecution");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        if (!phrAsyncResult)
            return Report().CheckPointer(__LINE__, function, phrAsyncResult);
        if (!Async())
            *phrAsyncResult = S_OK;
        else
            m_delegator.GetLastErrorAsyncExecution(phrAsyncResult);
        return S_OK;
    });
}

STDMETHODIMP XSessionDataStorageDb::StoreObjectData(IUnknown* piObject, BSTR bstrKeyName, ULONG ulCount,
                                                    tagSESSIONDATAVALUE* pValueList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageDb::StoreObjectData");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).Records(ulCount, pValueList).Result();
        if (FAILED(named))
            return named;
        IWQ_SessionDataIOEx* root = CheckedRoot(__LINE__, function);
        XWQComBSTR full;
        return root->WriteObjectStringList(piObject, RootSideKey(bstrKeyName, full), ulCount, pValueList);
    });
}

STDMETHODIMP XSessionDataStorageDb::ReadObjectData(IUnknown* piObject, BSTR bstrKeyName, ULONG* pulCount,
                                                   tagSESSIONDATAVALUE** ppValueList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageDb::ReadObjectData");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        if (FAILED(named))
            return named;
        return Read<XValueArray>(__LINE__, function, pulCount, ppValueList,
                                 [&](IWQ_SessionDataIOEx* root, XValueArray& list) {
                                     XWQComBSTR full;
                                     return root->GetObjectStringList(piObject, RootSideKey(bstrKeyName, full),
                                                                      list.CountAddress(), list.ItemsAddress());
                                 });
    });
}

STDMETHODIMP XSessionDataStorageDb::GetObjectSubKeys(IUnknown* piObject, BSTR bstrKeyName, ULONG ulRecursive,
                                                     ULONG* pulCount, BSTR** ppKeyNameList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageDb::GetObjectSubKeys");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        if (FAILED(named))
            return named;
        // Object sub-key names come back as the root gives them.
        return Read<XBstrArray>(__LINE__, function, pulCount, ppKeyNameList,
                                [&](IWQ_SessionDataIOEx* root, XBstrArray& names) {
                                    XWQComBSTR full;
                                    return root->GetObjectSubKeys(piObject, RootSideKey(bstrKeyName, full),
                                                                  ulRecursive, names.CountAddress(),
                                                                  names.ItemsAddress());
                                });
    });
}

STDMETHODIMP XSessionDataStorageDb::DeleteObjectKey(IUnknown* piObject, BSTR bstrKeyName)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageDb::DeleteObjectKey");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        if (FAILED(named))
            return named;
        IWQ_SessionDataIOEx* root = CheckedRoot(__LINE__, function);
        XWQComBSTR full;
        return root->DeleteObjectKey(piObject, RootSideKey(bstrKeyName, full));
    });
}

STDMETHODIMP XSessionDataStorageDb::SetRoot(IWQ_SessionDataIOEx* pSDMObjectStorageRoot)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageDb::SetRoot");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        if (!pSDMObjectStorageRoot)
            return Report().CheckPointer(__LINE__, function, pSDMObjectStorageRoot);
        m_storageRoot = XComPtr<IWQ_SessionDataIOEx>(pSDMObjectStorageRoot);
        // The worker reaches the root through the global interface table.
        m_delegator.SetStorageRoot(pSDMObjectStorageRoot);
        return S_OK;
    });
}

STDMETHODIMP XSessionDataStorageDb::SetRootKey(BSTR bstrRootKey)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageDb::SetRootKey");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrRootKey).Result();
        if (FAILED(named))
            return named;
        XWQComBSTR key(bstrRootKey);
        if (!key.IsEmpty())
        {
            if (key.Replace(L"\\", L"/") < 0)
                return Report().Refuse(__LINE__, function, E_FAIL, L"replacing key separators failed");
            // Searched from the key's end, a separator is never found: one is always appended.
            if (key.Find(L"/", key.Length()) < 0)
                key.Append(L"/");
        }
        m_rootKey = UserProfile() ? XWQComBSTR(kUserProfilePrefix) + key : key;
        return S_OK;
    });
}

STDMETHODIMP XSessionDataStorageDb::SetUserProfileStorage()
{
    // A root key set before keeps its form.
    ::InterlockedExchange(&m_userProfile, 1);
    return S_OK;
}

STDMETHODIMP XSessionDataStorageDb::IsUserProfileStorage(LONG* pbUserProfile)
{
    *pbUserProfile = UserProfile() ? 1 : 0;
    return S_OK;
}

STDMETHODIMP XSessionDataStorageDb::SetAsyncWriteMode(LONG lAsyncWriteInterval)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageDb::SetAsyncWriteMode");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        ::InterlockedExchange(&m_asyncWrite, 1);
        m_delegator.SetWriteInterval(lAsyncWriteInterval);
        return S_OK;
    });
}
