#include "xsessiondatamngimpl.h"

#include "xcomtypes.h"
#include "xkeywalk.h"
#include "xsdmreporter.h"
#include "xvalueconversion.h"
#include "XSimpleCrypt.h"

#include <cwchar>
#include <string>
#include <vector>

namespace
{
const char kUnit[] = "xsessiondatamngimpl";

// The all-categories walk visits these keys, in this order, and only these.
constexpr LONG kWalkOrder[] = {5, 4, 3, 2, 1};

// IOs are created through the class registry in any context the registration offers.
constexpr DWORD kCreateContext = CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER;

XSessionDataMngImpl* volatile g_core = nullptr;

XSessionDataMngImpl* DefaultFactory()
{
    return new (std::nothrow) XSessionDataMngImpl();
}

XSessionDataMngImpl::Factory volatile g_factory = nullptr;

// Scoped hold of the table guard: exclusive for writers, shared for the unlocked readers.
template <bool Exclusive>
class XTableGuard
{
public:
    explicit XTableGuard(SRWLOCK& lock) noexcept : m_lock(lock)
    {
        if (Exclusive)
            ::AcquireSRWLockExclusive(&m_lock);
        else
            ::AcquireSRWLockShared(&m_lock);
    }
    ~XTableGuard()
    {
        if (Exclusive)
            ::ReleaseSRWLockExclusive(&m_lock);
        else
            ::ReleaseSRWLockShared(&m_lock);
    }
    XTableGuard(const XTableGuard&) = delete;
    XTableGuard& operator=(const XTableGuard&) = delete;

private:
    SRWLOCK& m_lock;
};
using XTableWriteGuard = XTableGuard<true>;
using XTableReadGuard = XTableGuard<false>;

// Accumulated pairs of an all-categories list merge.
using PairMap = std::map<std::wstring, std::wstring>;

// Takes the pairs of one category into the accumulated list: all of them when the list was
// empty, else only names not yet present (compared without regard to case), so the first
// category met in the walk wins.
void MergeInto(PairMap& accumulated, const PairMap& category)
{
    const bool takeAll = accumulated.empty();
    for (const auto& pair : category)
    {
        bool present = false;
        if (!takeAll)
            for (const auto& have : accumulated)
                if (_wcsicmp(have.first.c_str(), pair.first.c_str()) == 0)
                {
                    present = true;
                    break;
                }
        if (!present)
            accumulated.emplace(pair.first, pair.second);
    }
}

PairMap PairsOf(const XValueArray& list)
{
    PairMap pairs;
    for (ULONG i = 0; i < list.Count(); ++i)
    {
        const BSTR name = list[i].bstrValueName;
        const BSTR value = list[i].bstrValue;
        pairs[std::wstring(name ? name : L"", ::SysStringLen(name))] =
            std::wstring(value ? value : L"", ::SysStringLen(value));
    }
    return pairs;
}

// Hands an accumulated list to the caller as a CoTaskMemAlloc array of fresh BSTRs.
HRESULT HandOut(const PairMap& pairs, ULONG* count, tagSESSIONDATAVALUE** list)
{
    if (pairs.empty())
        return S_FALSE;
    const ULONG size = static_cast<ULONG>(pairs.size());
    XValueArray records = XValueArrayOf(
        pairs, size, [](const PairMap::value_type& pair) { return std::wstring_view(pair.first); },
        [](const PairMap::value_type& pair) { return std::wstring_view(pair.second); });
    if (count)
        *count = size;
    if (list)
    {
        ULONG handed = 0;
        records.Release(&handed, list);
    }
    return S_OK;
}

std::wstring_view KeyText(const wchar_t* key) noexcept
{
    return key ? std::wstring_view(key) : std::wstring_view();
}

bool IsPrefixNoCase(const wchar_t* a, const wchar_t* b)
{
    const wchar_t* first = a ? a : L"";
    return _wcsnicmp(first, b ? b : L"", std::wcslen(first)) == 0;
}
} // namespace

XSessionDataMngImpl* XSessionDataMngImpl::GetInstance()
{
    if (XSessionDataMngImpl* core = g_core)
        return core;
    const Factory factory = g_factory;
    XSessionDataMngImpl* fresh = factory ? factory() : DefaultFactory();
    if (!fresh)
        return nullptr;
    void* previous = ::InterlockedCompareExchangePointer(reinterpret_cast<void* volatile*>(&g_core), fresh, nullptr);
    if (previous)
    {
        delete fresh;  // another thread published its core first
        return static_cast<XSessionDataMngImpl*>(previous);
    }
    return fresh;
}

void XSessionDataMngImpl::SetFactory(Factory factory) noexcept
{
    g_factory = factory;
}

XSessionDataMngImpl::XSessionDataMngImpl()
{
    ::InitializeSRWLock(&m_tableGuard);
}

XSessionDataMngImpl::~XSessionDataMngImpl()
{
    ReleaseAll();
}

XSessionDataMngImpl::IOPtr XSessionDataMngImpl::Find(LONG dataType) const
{
    const auto it = m_bindings.find(dataType);
    return it == m_bindings.end() ? IOPtr() : it->second;
}

XSessionDataMngImpl::IOPtr XSessionDataMngImpl::FindUnlocked(LONG dataType) const
{
    XTableReadGuard guard(m_tableGuard);
    const auto it = m_bindings.find(dataType);
    return it == m_bindings.end() ? IOPtr() : it->second;
}

XSessionDataMngImpl::IOExPtr XSessionDataMngImpl::AsEx(const IOPtr& io)
{
    IOExPtr ex;
    if (io)
        io.As(ex);
    return ex;
}

XSessionDataMngImpl::IOPtr XSessionDataMngImpl::Exchange(LONG dataType, IOPtr io)
{
    XTableWriteGuard guard(m_tableGuard);
    IOPtr& entry = m_bindings[dataType];
    std::swap(entry, io);
    return io;
}

void XSessionDataMngImpl::ReleaseAll()
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    std::map<LONG, IOPtr> released;
    {
        XTableWriteGuard guard(m_tableGuard);
        released.swap(m_bindings);
    }
    // Released in key order, outside the table guard: a Release may call back into COM.
    for (auto& entry : released)
        entry.second.Reset();
}

HRESULT XSessionDataMngImpl::SetStorage(IWQ_SessionDataStorage* storage, LONG dataType, LONG cacheStorage)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    if (dataType == 0 || !storage)
        return S_FALSE;

    // The old binding is gone from here on, whatever follows.
    Exchange(dataType, IOPtr()).Reset();

    CLSID ioClass = CLSID_WQ_SessionDataIONoCache;
    if (cacheStorage == 1)
    {
        IWQ_SessionDataStorageEx* ex = nullptr;
        const bool extended = SUCCEEDED(storage->QueryInterface(IID_IWQ_SessionDataStorageEx,
                                                                reinterpret_cast<void**>(&ex))) && ex;
        if (ex)
            ex->Release();
        ioClass = extended ? CLSID_WQ_SessionDataIOEx : CLSID_WQ_SessionDataIOCache;
    }

    IOPtr io;
    const HRESULT created = ::CoCreateInstance(ioClass, nullptr, kCreateContext, IID_IWQ_SessionDataIO,
                                               reinterpret_cast<void**>(io.ReleaseAndGetAddressOf()));
    if (FAILED(created))
        return created;
    if (!io)
        return E_NOINTERFACE;
    const HRESULT bound = io->SetStorage(storage);
    if (bound != S_OK)
        return bound;
    Exchange(dataType, io);
    return S_OK;
}

HRESULT XSessionDataMngImpl::SetStorageIO(IWQ_SessionDataIO* io, LONG dataType)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    if (dataType == 0 || !io)
        return S_FALSE;
    // The new object is referenced before the old one is released: rebinding the same one is safe.
    IOPtr fresh(io);
    Exchange(dataType, fresh).Reset();
    return S_OK;
}

HRESULT XSessionDataMngImpl::IsInit(LONG dataType)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    if (dataType == 0)
        return S_FALSE;
    return Find(dataType) ? S_OK : S_FALSE;
}

HRESULT XSessionDataMngImpl::GetSubKeys(BSTR keyName, ULONG recursive, ULONG* count, BSTR** subKeys, LONG dataType)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    const IOPtr io = Find(dataType);
    return io ? io->GetSubKeys(keyName, recursive, count, subKeys) : S_FALSE;
}

HRESULT XSessionDataMngImpl::GetObjectSubKeys(IUnknown* object, BSTR keyName, ULONG recursive, ULONG* count,
                                              BSTR** subKeys, LONG dataType)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    const IOExPtr ex = AsEx(Find(dataType));
    return ex ? ex->GetObjectSubKeys(object, keyName, recursive, count, subKeys) : S_FALSE;
}

HRESULT XSessionDataMngImpl::SaveData(LONG dataType, BSTR keyName, BSTR valueName)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    HRESULT result = S_FALSE;
    if (dataType == 0)
    {
        // The walk runs only while the result is S_OK, and it starts at S_FALSE: with key 0
        // nothing is saved. Kept so, since clients depend on it.
        for (LONG key : kWalkOrder)
        {
            if (result != S_OK)
                break;
            if (const IOPtr io = Find(key))
                result = io->SaveData(keyName, valueName);
        }
        return result;
    }
    const IOPtr io = Find(dataType);
    return io ? io->SaveData(keyName, valueName) : S_FALSE;
}

HRESULT XSessionDataMngImpl::TransferDataFromTo(LONG dataTypeFrom, LONG dataTypeTo, BSTR keyNameFrom,
                                                BSTR keyNameTo)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    XKeyWalk walk;
    return TransferKey(dataTypeFrom, dataTypeTo, keyNameFrom, keyNameTo, walk);
}

HRESULT XSessionDataMngImpl::TransferKey(LONG dataTypeFrom, LONG dataTypeTo, BSTR keyNameFrom, BSTR keyNameTo,
                                         XKeyWalk& walk)
{
    if (dataTypeFrom == 0 || dataTypeTo == 0)
        return S_FALSE;
    const IOPtr from = Find(dataTypeFrom);
    const IOPtr to = Find(dataTypeTo);
    if (!from || !to)
        return S_FALSE;
    // Within one category a copy must not run into itself.
    if (dataTypeFrom == dataTypeTo &&
        (IsPrefixNoCase(keyNameFrom, keyNameTo) || IsPrefixNoCase(keyNameTo, keyNameFrom)))
        return S_FALSE;

    XBstrArray subKeys;
    if (from->GetSubKeys(keyNameFrom, 0, subKeys.CountAddress(), subKeys.ItemsAddress()) != S_OK)
        return S_FALSE;
    // Sub-keys keep their own paths in the target category; only the top key's values move
    // from keyNameFrom to keyNameTo. A sub-key that names a key the walk is already in (a
    // storage may list a key as its own sub-key) is not entered again.
    {
        const XKeyWalk::Step step = walk.Enter(KeyText(keyNameFrom));
        for (ULONG i = 0; i < subKeys.Count(); ++i)
        {
            if (walk.IsIn(KeyText(subKeys[i])))
                continue;
            if (walk.AtMaxDepth())
            {
                LogWalkTooDeep(subKeys[i]);
                continue;
            }
            TransferKey(dataTypeFrom, dataTypeTo, subKeys[i], subKeys[i], walk);
        }
    }
    subKeys.Reset();

    XValueArray values;
    if (from->GetStringList(keyNameFrom, values.CountAddress(), values.ItemsAddress()) != S_OK)
        return S_FALSE;
    return to->WriteStringList(keyNameTo, values.Count(), values.Items());
}

void XSessionDataMngImpl::LogWalkTooDeep(BSTR keyName)
{
    XWQComBSTR message(L"TransferDataFromTo does not descend more than 512 levels; not copied: ");
    message.Append(keyName);
    XWQError::WriteLineToErrorLogBook(
        XSdmLocation(kUnit, __LINE__, XSDM_FUNCTION_NAME(L"XSessionDataMngImpl::TransferDataFromTo")),
        XWQEXCEP::SEV_ERROR, message, XWQComBSTR());
}

HRESULT XSessionDataMngImpl::ReadText(BSTR keyName, BSTR valueName, LONG dataType, BSTR* text)
{
    if (dataType != 0)
    {
        const IOPtr io = Find(dataType);
        return io ? io->GetData(keyName, valueName, text) : S_FALSE;
    }
    HRESULT result = S_FALSE;
    for (LONG key : kWalkOrder)
    {
        if (result != S_FALSE)
            break;
        const IOPtr io = Find(key);
        if (!io)
            continue;
        if (const IOExPtr ex = AsEx(io))
        {
            // An extended IO answers the all-categories read only as a user-profile IO.
            LONG userProfile = 0;
            if (ex->IsUserProfileIO(&userProfile) != S_OK || userProfile == 0)
                continue;
        }
        result = io->GetData(keyName, valueName, text);
    }
    return result;
}

HRESULT XSessionDataMngImpl::GetData(BSTR keyName, BSTR valueName, VARTYPE varType, VARIANT* value, LONG dataType)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    XWQComBSTR text;
    const HRESULT result = ReadText(keyName, valueName, dataType, &text);
    if (result != S_OK)
        return result;
    return XTextToVariant(text.c_str(), text.Length(), varType, value);
}

HRESULT XSessionDataMngImpl::GetDataEncrypt(BSTR keyName, BSTR valueName, VARTYPE varType, VARIANT* value,
                                            LONG dataType)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    XWQComBSTR text;
    const HRESULT result = ReadText(keyName, valueName, dataType, &text);
    if (result != S_OK)
        return result;

    long errorCode = 0;
    const std::wstring plain = DecryptOnlyOneStringAndDecode2String(symDPAPI, false, text.ToWString(), errorCode);
    if (plain.empty())
    {
        // A value that cannot be decrypted is returned as stored; only the log tells of it.
        XWQComBSTR message(L"DecryptOnlyOneStringAndDecode2String failed to decrypt ");
        message.Append(keyName).Append(L"\\").Append(valueName);
        XWQError::WriteAPIErrorToLogBook(XSdmRawModuleName(),
                                         XSDM_FUNCTION_NAME(L"XSessionDataMngImpl::GetDataEncrypt"), __LINE__,
                                         message, errorCode);
        return XTextToVariant(text.c_str(), text.Length(), varType, value);
    }
    return XTextToVariant(plain.c_str(), static_cast<UINT>(plain.size()), varType, value);
}

HRESULT XSessionDataMngImpl::WriteData(BSTR keyName, BSTR valueName, VARIANT& value, LONG dataType)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    // Converted before the lookup: a bad value is E_INVALIDARG even for an unbound category.
    const HRESULT converted = XVariantToText(value);
    if (FAILED(converted))
        return converted;
    const IOPtr io = Find(dataType);
    return io ? io->WriteData(keyName, valueName, value.bstrVal) : S_FALSE;
}

HRESULT XSessionDataMngImpl::GetStringList(BSTR keyName, ULONG* count, tagSESSIONDATAVALUE** list, LONG dataType)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    if (dataType != 0)
    {
        const IOPtr io = Find(dataType);
        return io ? io->GetStringList(keyName, count, list) : S_FALSE;
    }
    PairMap accumulated;
    for (LONG key : kWalkOrder)
    {
        const IOPtr io = Find(key);
        if (!io)
            continue;
        XValueArray got;
        if (io->GetStringList(keyName, got.CountAddress(), got.ItemsAddress()) == S_OK)
            MergeInto(accumulated, PairsOf(got));
    }
    return HandOut(accumulated, count, list);
}

HRESULT XSessionDataMngImpl::WriteStringList(BSTR keyName, ULONG count, tagSESSIONDATAVALUE* list, LONG dataType)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    const IOPtr io = Find(dataType);
    return io ? io->WriteStringList(keyName, count, list) : S_FALSE;
}

HRESULT XSessionDataMngImpl::GetObjectData(IUnknown* object, BSTR keyName, BSTR valueName, VARTYPE varType,
                                           VARIANT* value, LONG dataType)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    if (dataType == 0)
        return S_FALSE;
    const IOExPtr ex = AsEx(Find(dataType));
    if (!ex)
        return S_FALSE;
    XWQComBSTR text;
    const HRESULT result = ex->GetObjectData(object, keyName, valueName, &text);
    if (result != S_OK)
        return result;
    return XTextToVariant(text.c_str(), text.Length(), varType, value);
}

HRESULT XSessionDataMngImpl::WriteObjectData(IUnknown* object, BSTR keyName, BSTR valueName, VARIANT& value,
                                             LONG dataType)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    const HRESULT converted = XVariantToText(value);
    if (FAILED(converted))
        return converted;
    const IOExPtr ex = AsEx(Find(dataType));
    return ex ? ex->WriteObjectData(object, keyName, valueName, value.bstrVal) : S_FALSE;
}

HRESULT XSessionDataMngImpl::GetObjectStringList(IUnknown* object, BSTR keyName, ULONG* count,
                                                 tagSESSIONDATAVALUE** list, LONG dataType)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    if (dataType != 0)
    {
        const IOExPtr ex = AsEx(Find(dataType));
        return ex ? ex->GetObjectStringList(object, keyName, count, list) : S_FALSE;
    }
    PairMap accumulated;
    for (LONG key : kWalkOrder)
    {
        const IOExPtr ex = AsEx(Find(key));
        if (!ex)
            continue;
        XValueArray got;
        if (ex->GetObjectStringList(object, keyName, got.CountAddress(), got.ItemsAddress()) == S_OK)
            MergeInto(accumulated, PairsOf(got));
    }
    return HandOut(accumulated, count, list);
}

HRESULT XSessionDataMngImpl::WriteObjectStringList(IUnknown* object, BSTR keyName, ULONG count,
                                                   tagSESSIONDATAVALUE* list, LONG dataType)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    const IOExPtr ex = AsEx(Find(dataType));
    return ex ? ex->WriteObjectStringList(object, keyName, count, list) : S_FALSE;
}

HRESULT XSessionDataMngImpl::DeleteObjectKey(IUnknown* object, BSTR keyName, LONG dataType)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    const IOExPtr ex = AsEx(Find(dataType));
    return ex ? ex->DeleteObjectKey(object, keyName) : S_FALSE;
}

HRESULT XSessionDataMngImpl::DeleteKey(BSTR keyName, LONG dataType)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    const IOExPtr ex = AsEx(Find(dataType));
    return ex ? ex->DeleteKey(keyName) : S_FALSE;
}

HRESULT XSessionDataMngImpl::FlushCache(LONG dataType)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    if (dataType != 0)
    {
        const IOPtr io = Find(dataType);
        return io ? io->FlushCache(static_cast<SESSIONDATATYPE>(dataType)) : S_OK;
    }
    // Every bound category is flushed; the last failure is the answer.
    HRESULT remembered = S_OK;
    for (LONG key : kWalkOrder)
        if (const IOPtr io = Find(key))
        {
            const HRESULT hr = io->FlushCache(static_cast<SESSIONDATATYPE>(0));
            if (hr != S_OK)
                remembered = hr;
        }
    return remembered;
}

HRESULT XSessionDataMngImpl::FlushAsyncStorage(LONG dataType)
{
    XSmartThreadBasedCritSectPtr lock(m_lock, kUnit, __LINE__);
    lock.Lock();
    if (dataType != 0)
    {
        const IOPtr io = Find(dataType);
        return io ? io->FlushAsyncStorage() : S_OK;
    }
    HRESULT remembered = S_OK;
    for (LONG key : kWalkOrder)
        if (const IOPtr io = Find(key))
        {
            const HRESULT hr = io->FlushAsyncStorage();
            if (hr != S_OK)
                remembered = hr;
        }
    return remembered;
}

HRESULT XSessionDataMngImpl::GetLastErrorAsyncExecution(LONG dataType, HRESULT* asyncResult)
{
    if (!asyncResult)
    {
        static const XSdmReporter report(kUnit, IID_IWQ_SessionDataMng);
        return report.CheckPointer(__LINE__, XSDM_FUNCTION_NAME(L"XSessionDataMngImpl::GetLastErrorAsyncExecution"),
                                   asyncResult);
    }
    *asyncResult = S_OK;
    if (dataType == 0)
        return S_FALSE;
    const IOPtr io = FindUnlocked(dataType);
    return io ? io->GetLastErrorAsyncExecution(asyncResult) : S_FALSE;
}

HRESULT XSessionDataMngImpl::UploadCache(BSTR keyName, LONG dataType)
{
    if (dataType == 0)
        return S_FALSE;
    const IOPtr io = FindUnlocked(dataType);
    return io ? io->UploadCache(keyName) : S_FALSE;
}

HRESULT XSessionDataMngImpl::GetStorageType(LONG dataType, SDM_STORAGE_TYPE* storageType)
{
    if (dataType == 0)
        return S_FALSE;
    const IOPtr io = FindUnlocked(dataType);
    return io ? io->GetStorageType(storageType) : S_FALSE;
}

HRESULT XSessionDataMngImpl::SetInvalid()
{
    ::InterlockedExchange(&m_invalid, 1);
    return S_OK;
}

HRESULT XSessionDataMngImpl::Validate()
{
    // The flag is never cleared: once invalid, every Validate releases what was bound since.
    if (::InterlockedCompareExchange(&m_invalid, 0, 0) != 0)
        ReleaseAll();
    return S_OK;
}

HRESULT XSessionDataMngImpl::Terminate()
{
    ReleaseAll();
    return S_OK;
}
