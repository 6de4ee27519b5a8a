#include "xsessiondatastoragereg.h"

#include "xsdmreporter.h"
#include "xsessiondatastoragereadall.h"
#include "xstorageloggedstep.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace
{
const char kUnit[] = "xsessiondatastoragereg";

// The module's answer for a call on a storage that is not initialised.
constexpr HRESULT kNotInitialized = static_cast<HRESULT>(0x8004080D);

// Access rights: reads see the 64-bit view; writes of values ask for read control, query, set,
// create sub-key, enumerate and notify (0x2001F), without a view flag.
constexpr REGSAM kReadAccess = KEY_READ | KEY_WOW64_64KEY;
constexpr REGSAM kReadWriteAccess = kReadAccess | KEY_WRITE;
constexpr REGSAM kStoreAccess = 0x2001F;

// The registry's own limits: a name of 255 characters, a value name of 16,383, a tree 512
// levels deep counted from the hive. One registry call creates at most 32 levels (Windows
// refuses more; Wine does not): deeper keys are created in steps of that many.
constexpr UINT kMaxKeyNameLength = 255;
constexpr UINT kMaxValueNameLength = 16383;
constexpr UINT kMaxTreeDepth = 512;
constexpr UINT kMaxLevelsPerCall = 32;

// The report of an Initialize that could neither open nor create the root key.
const wchar_t kInitializeFailed[] = L"XSessionDataStorageReg::Initialize -> "
                                    L"\n\t\t1) Failed to open registry key with write access"
                                    L"\n\t\t2) Failed to open registry key with read access"
                                    L"\n\t\t3) Failed to create registry key";

const XWQComBSTR& InitializeName()
{
    return XSDM_FUNCTION_NAME(L"XSessionDataStorageReg::Initialize");
}
const XWQComBSTR& StoreDataName()
{
    return XSDM_FUNCTION_NAME(L"XSessionDataStorageReg::StoreData");
}
const XWQComBSTR& ReadDataName()
{
    return XSDM_FUNCTION_NAME(L"XSessionDataStorageReg::ReadData");
}
const XWQComBSTR& GetSubKeysName()
{
    return XSDM_FUNCTION_NAME(L"XSessionDataStorageReg::GetSubKeys");
}
const XWQComBSTR& ReadAllDataName()
{
    return XSDM_FUNCTION_NAME(L"XSessionDataStorageReg::ReadAllData");
}

const XSdmReporter& Report()
{
    static const XSdmReporter report(kUnit, XSessionDataStorageReg::ObjectClsid());
    return report;
}

// A failed registry call, reported through the API-error path at function's location, with the
// message that says which step failed; the answer is the HRESULT of the registry's error code.
HRESULT ApiError(unsigned long line, const XWQComBSTR& function, const wchar_t* message, LONG code)
{
    return XWQError::HandleAPIError(Report().Where(line, function), static_cast<DWORD>(code), XWQComBSTR(message),
                                    true);
}

// The names of a registry path ("\\" separators); empty names between separators are no level.
std::vector<std::wstring_view> Levels(const XWQComBSTR& path)
{
    std::vector<std::wstring_view> levels;
    const std::wstring_view text(path.c_str(), path.Length());
    size_t start = 0;
    while (start <= text.size())
    {
        const size_t end = std::min(text.find(L'\\', start), text.size());
        if (end > start)
            levels.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return levels;
}

// Why a registry path cannot be held (a name too long, more levels than maxLevels), or null.
const wchar_t* PathProblem(const std::vector<std::wstring_view>& levels, UINT maxLevels, const wchar_t* tooLong,
                           const wchar_t* tooDeep)
{
    for (const std::wstring_view level : levels)
    {
        if (level.size() > kMaxKeyNameLength)
            return tooLong;
    }
    return levels.size() > maxLevels ? tooDeep : nullptr;
}

// Creates (or opens) the key of path (whose names are levels) below parent. A path that one
// registry call may create goes to the registry as it is, in one call; a deeper one in calls of
// at most kMaxLevelsPerCall levels each, the last call's key being the result.
LONG CreateKeyPath(HKEY parent, const XWQComBSTR& path, const std::vector<std::wstring_view>& levels, DWORD options,
                   REGSAM access, XRegistryKey& key)
{
    if (levels.size() <= kMaxLevelsPerCall || path.c_str()[0] == L'\\')
        return ::RegCreateKeyExW(parent, path.c_str(), 0, const_cast<LPWSTR>(L""), options, access, nullptr,
                                 key.ReleaseAndGetAddressOf(), nullptr);
    XRegistryKey reached;
    HKEY at = parent;
    for (size_t first = 0; first < levels.size(); first += kMaxLevelsPerCall)
    {
        std::wstring step;
        for (size_t i = first; i < std::min(levels.size(), first + kMaxLevelsPerCall); ++i)
            step.append(step.empty() ? L"" : L"\\").append(levels[i]);
        XRegistryKey next;
        const LONG result = ::RegCreateKeyExW(at, step.c_str(), 0, const_cast<LPWSTR>(L""), options, access, nullptr,
                                              next.ReleaseAndGetAddressOf(), nullptr);
        if (result != ERROR_SUCCESS)
            return result;
        reached = std::move(next);
        at = reached.Get();
    }
    key = std::move(reached);
    return ERROR_SUCCESS;
}

// key with every "/" turned into "\\", as the registry calls want it.
XWQComBSTR RegistryPath(const XWQComBSTR& key)
{
    XWQComBSTR path(key);
    path.Replace(L"/", L"\\");
    return path;
}

// The predefined hive for the ordinal position of its SESSIONDATAREGKEY member; null for any
// other number (the published member values included).
HKEY HiveOf(LONG keyType) noexcept
{
    switch (keyType)
    {
    case 0:
        return HKEY_LOCAL_MACHINE;
    case 1:
        return HKEY_CURRENT_USER;
    case 2:
        return HKEY_CLASSES_ROOT;
    case 3:
        return HKEY_USERS;
    case 4:
        return HKEY_CURRENT_CONFIG;
    default:
        return nullptr;
    }
}

// Opens key below parent for reading; a null key (empty path) is parent itself.
LONG OpenForReading(HKEY parent, const XWQComBSTR& key, XRegistryKey& opened, HKEY& source)
{
    source = parent;
    if (key.IsEmpty())
        return ERROR_SUCCESS;
    const LONG result =
        ::RegOpenKeyExW(parent, RegistryPath(key).c_str(), 0, kReadAccess, opened.ReleaseAndGetAddressOf());
    if (result == ERROR_SUCCESS)
        source = opened.Get();
    return result;
}
} // namespace

HRESULT XSessionDataStorageReg::NotInitialized(unsigned long line, const XWQComBSTR& function) const
{
    return XWQError::SetComError(XSdmRawModuleName(), function, line, XWQComBSTR(L"The Initialization has failed."),
                                 kNotInitialized);
}

HRESULT XSessionDataStorageReg::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IWQ_SessionDataStorageReg, IWQ_SessionDataStorage, ISupportErrorInfo>(this, iid, ppv);
}

STDMETHODIMP XSessionDataStorageReg::InterfaceSupportsErrorInfo(REFIID iid)
{
    const bool own = ::IsEqualIID(iid, IID_IWQ_SessionDataStorageReg) || ::IsEqualIID(iid, IID_IWQ_SessionDataStorage);
    return own ? S_OK : S_FALSE;
}

STDMETHODIMP XSessionDataStorageReg::Initialize(SESSIONDATAREGKEY keyType, BSTR bstrAppRootKey, ULONG ulVolatileKey)
{
    const XWQComBSTR& function = InitializeName();
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        m_appKey.Reset();
        m_hive = nullptr;

        const HRESULT named = Report().Names(__LINE__, function).Key(bstrAppRootKey).Result();
        if (FAILED(named))
            return named;
        HKEY hive = HiveOf(static_cast<LONG>(keyType));
        const XWQComBSTR root(bstrAppRootKey);
        if (!hive || root.IsEmpty())
            return E_FAIL;
        const std::vector<std::wstring_view> rootLevels = Levels(root);
        if (const wchar_t* problem =
                PathProblem(rootLevels, kMaxTreeDepth,
                            L"XSessionDataStorageReg::Initialize -> Key name longer than 255 characters",
                            L"XSessionDataStorageReg::Initialize -> Key path deeper than 512 levels"))
            return Report().Refuse(__LINE__, function, E_INVALIDARG, problem);

        XRegistryKey appKey;
        LONG result = ::RegOpenKeyExW(hive, root.c_str(), 0, kReadWriteAccess, appKey.ReleaseAndGetAddressOf());
        if (result != ERROR_SUCCESS)
            result = ::RegOpenKeyExW(hive, root.c_str(), 0, kReadAccess, appKey.ReleaseAndGetAddressOf());
        if (result != ERROR_SUCCESS)
        {
            if (ulVolatileKey != 0)
                m_volatileOption = REG_OPTION_VOLATILE;
            const HRESULT step = XLoggedStep(kUnit, __LINE__, function, ObjectClsid(), [&]() -> HRESULT {
                result = CreateKeyPath(hive, root, rootLevels, m_volatileOption, kReadWriteAccess, appKey);
                return S_OK;
            });
            if (step != S_OK)
                return step;
            if (result != ERROR_SUCCESS)
                return ApiError(__LINE__, InitializeName(), kInitializeFailed, result);
        }
        m_hive = hive;
        m_appKey = std::move(appKey);
        m_rootLevels = static_cast<UINT>(rootLevels.size());
        return S_OK;
    });
}

STDMETHODIMP XSessionDataStorageReg::StoreData(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pValueList)
{
    const XWQComBSTR& function = StoreDataName();
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        if (!m_appKey)
            return NotInitialized(__LINE__, function);
        if (ulCount > 0 && !pValueList)
            return Report().CheckPointer(__LINE__, function, pValueList);
        const HRESULT named = Report().Names(__LINE__, function).List(bstrKeyName, ulCount, pValueList, L"registry").Result();
        if (FAILED(named))
            return named;
        return StoreData(XWQComBSTR(bstrKeyName), XPairsFromRecords(ulCount, pValueList));
    });
}

STDMETHODIMP XSessionDataStorageReg::ReadData(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppValueList)
{
    const XWQComBSTR& function = ReadDataName();
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        if (!m_appKey)
            return NotInitialized(__LINE__, function);
        if (!pulCount || !ppValueList)
            return Report().CheckPointer(__LINE__, function, nullptr);
        *pulCount = 0;
        *ppValueList = nullptr;
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        if (FAILED(named))
            return named;
        XStoragePairs pairs;
        const HRESULT hr = ReadData(XWQComBSTR(bstrKeyName), pairs);
        if (hr == S_OK)
            XHandOutPairs(pairs, pulCount, ppValueList);
        return hr;
    });
}

STDMETHODIMP XSessionDataStorageReg::GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount,
                                                BSTR** ppKeyNameList)
{
    const XWQComBSTR& function = GetSubKeysName();
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        if (!m_appKey)
            return NotInitialized(__LINE__, function);
        if (!pulCount || !ppKeyNameList)
            return Report().CheckPointer(__LINE__, function, nullptr);
        *pulCount = 0;
        *ppKeyNameList = nullptr;
        const HRESULT named = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        if (FAILED(named))
            return named;
        XStorageKeyNames names;
        const HRESULT hr = GetSubKeys(XWQComBSTR(bstrKeyName), ulRecursive, names);
        if (hr == S_OK)
            XHandOutKeyNames(names, pulCount, ppKeyNameList);
        return hr;
    });
}

STDMETHODIMP XSessionDataStorageReg::ReadAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                                                 tagKEY_SESSIONDATAVALUE** ppKeySessionDataList)
{
    if (!m_appKey)
    {
        const XWQComBSTR& function = ReadAllDataName();
        return Report().Run(__LINE__, function, [&]() -> HRESULT { return NotInitialized(__LINE__, function); });
    }
    return XReadAllStorageData(this, Report(), bstrRootKeyName, pulCount, ppKeySessionDataList);
}

STDMETHODIMP XSessionDataStorageReg::FlushAsyncStorage()
{
    return S_OK;
}

STDMETHODIMP XSessionDataStorageReg::GetLastErrorAsyncExecution(HRESULT* phrAsyncResult)
{
    return S_OK;
}

HRESULT XSessionDataStorageReg::GetSubKeys(const XWQComBSTR& key, ULONG recursive, XStorageKeyNames& names)
{
    if (!m_appKey)
        return XWQError::SetComError(XSdmRawModuleName(), GetSubKeysName(), __LINE__,
                                     XWQComBSTR(L"The Initialization has failed."), kNotInitialized);

    // Names handed back are prefix + sub-key name: the key with "/" separators and one "/" at its end.
    XWQComBSTR prefix;
    if (!key.IsEmpty())
    {
        prefix = key;
        prefix.Replace(L"\\", L"/");
        if (prefix.c_str()[prefix.Length() - 1] != L'/')
            prefix.Append(L"/");
    }

    XRegistryKey opened;
    HKEY source = nullptr;
    const LONG open = OpenForReading(m_appKey.Get(), key, opened, source);
    if (open == ERROR_FILE_NOT_FOUND)
        return S_FALSE;
    if (open != ERROR_SUCCESS)
        return ApiError(__LINE__, GetSubKeysName(),
                        L"XSessionDataStorageReg::GetSubKeys -> Open registry key with read only access failed", open);

    DWORD subKeyCount = 0;
    DWORD longestName = 0;
    const LONG info = ::RegQueryInfoKeyW(source, nullptr, nullptr, nullptr, &subKeyCount, &longestName, nullptr,
                                         nullptr, nullptr, nullptr, nullptr, nullptr);
    if (info != ERROR_SUCCESS)
        return ApiError(__LINE__, GetSubKeysName(), L"XSessionDataStorageReg::GetSubKeys -> Query registry info failed", info);
    if (subKeyCount == 0)
        return S_OK;

    std::vector<wchar_t> name(longestName + 2);
    for (DWORD index = 0;; ++index)
    {
        DWORD length = static_cast<DWORD>(name.size());
        const LONG found = ::RegEnumKeyExW(source, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr);
        if (found == ERROR_NO_MORE_ITEMS)
            break;
        if (found != ERROR_SUCCESS)
            // The message names ReadData although the walk is GetSubKeys'; it is the program's own text.
            return ApiError(__LINE__, GetSubKeysName(), L"XSessionDataStorageReg::ReadData -> Enumerate registry keys failed.", found);
        names.push_back(prefix + XWQComBSTR(name.data(), length));
        if (recursive == 1)
        {
            // Through the slot, with the name just entered: a key comes before its descendants.
            const XWQComBSTR child = names.back();
            const HRESULT nested = GetSubKeys(child, 1, names);
            if (FAILED(nested))
                return nested;
        }
    }
    return S_OK;
}

HRESULT XSessionDataStorageReg::ReadData(const XWQComBSTR& key, XStoragePairs& pairs)
{
    if (!m_appKey)
        return XWQError::SetComError(XSdmRawModuleName(), ReadDataName(), __LINE__,
                                     XWQComBSTR(L"The Initialization has failed"), kNotInitialized);

    XRegistryKey opened;
    HKEY source = nullptr;
    const LONG open = OpenForReading(m_appKey.Get(), key, opened, source);
    if (open == ERROR_FILE_NOT_FOUND)
        return S_FALSE;
    if (open != ERROR_SUCCESS)
        return ApiError(__LINE__, ReadDataName(), L"XSessionDataStorageReg::ReadData -> Open registry key with read only access failed",
                        open);

    DWORD valueCount = 0;
    DWORD longestName = 0;
    const LONG info = ::RegQueryInfoKeyW(source, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &valueCount,
                                         &longestName, nullptr, nullptr, nullptr);
    if (info != ERROR_SUCCESS)
        return ApiError(__LINE__, ReadDataName(), L"XSessionDataStorageReg::ReadData -> Query registry info failed", info);

    std::vector<wchar_t> name(longestName + 1);
    ULONG read = 0;
    for (DWORD index = 0; index < valueCount; ++index)
    {
        DWORD nameLength = static_cast<DWORD>(name.size());
        DWORD type = 0;
        DWORD dataSize = 0;
        const LONG found = ::RegEnumValueW(source, index, name.data(), &nameLength, nullptr, &type, nullptr, &dataSize);
        if (found == ERROR_NO_MORE_ITEMS)
            break;
        if (found != ERROR_SUCCESS)
            return ApiError(__LINE__, ReadDataName(), L"XSessionDataStorageReg::ReadData -> Enumerate registry values failed.", found);

        // Data size plus one characters, and one more that always stays zero: whatever the
        // value's type, its bytes are taken as a zero-terminated wide string.
        std::vector<wchar_t> data(static_cast<size_t>(dataSize) + 2, L'\0');
        DWORD bytes = (dataSize + 1) * sizeof(wchar_t);
        const LONG queried =
            ::RegQueryValueExW(source, name.data(), nullptr, &type, reinterpret_cast<BYTE*>(data.data()), &bytes);
        if (queried != ERROR_SUCCESS)
            return ApiError(__LINE__, ReadDataName(), L"XSessionDataStorageReg::ReadData -> Query value failed.", queried);
        pairs[XWQComBSTR(name.data(), nameLength)] = XWQComBSTR(data.data());
        ++read;
    }
    return read > 0 ? S_OK : S_FALSE;
}

HRESULT XSessionDataStorageReg::StoreData(const XWQComBSTR& key, const XStoragePairs& pairs)
{
    const XWQComBSTR& function = StoreDataName();
    if (!m_appKey)
        return Report().Refuse(__LINE__, function, kNotInitialized, L"The Initialization has failed");
    if (pairs.empty())
        return S_FALSE;

    // Requests past the registry's limits are refused before anything is written.
    for (const auto& pair : pairs)
    {
        if (pair.first.Length() > kMaxValueNameLength)
            return Report().Refuse(__LINE__, function, E_INVALIDARG,
                                   L"XSessionDataStorageReg::StoreData -> Value name longer than 16383 characters");
    }

    XRegistryKey created;
    HKEY target = m_appKey.Get();
    if (!key.IsEmpty())
    {
        const XWQComBSTR path = RegistryPath(key);
        const std::vector<std::wstring_view> levels = Levels(path);
        if (const wchar_t* problem =
                PathProblem(levels, kMaxTreeDepth - std::min(m_rootLevels, kMaxTreeDepth),
                            L"XSessionDataStorageReg::StoreData -> Key name longer than 255 characters",
                            L"XSessionDataStorageReg::StoreData -> Key path deeper than 512 levels"))
            return Report().Refuse(__LINE__, function, E_INVALIDARG, problem);

        LONG result = ERROR_SUCCESS;
        const HRESULT step = XLoggedStep(kUnit, __LINE__, function, ObjectClsid(), [&]() -> HRESULT {
            result = CreateKeyPath(m_appKey.Get(), path, levels, m_volatileOption, kStoreAccess, created);
            return S_OK;
        });
        if (step != S_OK)
            return step;
        if (result != ERROR_SUCCESS)
            return ApiError(__LINE__, StoreDataName(),
                            L"XSessionDataStorageReg::StoreData -> Open registry key with write access failed", result);
        target = created.Get();
    }

    for (const auto& pair : pairs)
    {
        const DWORD bytes = (pair.second.Length() + 1) * sizeof(wchar_t);
        const LONG set = ::RegSetValueExW(target, pair.first.c_str(), 0, REG_SZ,
                                          reinterpret_cast<const BYTE*>(pair.second.c_str()), bytes);
        if (set != ERROR_SUCCESS)
            return ApiError(__LINE__, StoreDataName(), L"XSessionDataStorageReg::StoreData -> Set value failed", set);
    }
    return S_OK;
}
