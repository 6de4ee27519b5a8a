#include "xsessiondatastorageenv.h"

#include "xcomtypes.h"
#include "xsdmreporter.h"
#include "xsessiondatastoragereadall.h"

#include <algorithm>
#include <cwchar>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace
{
const char kUnit[] = "xsessiondatastorageenv";

// The longest name or value a variable can have: 32,767 characters with the terminating zero.
// The platform does not refuse longer ones everywhere (some cut them short); they are refused
// here before anything is set.
constexpr size_t kMaxVariableText = 32766;

const XWQComBSTR& StoreDataName()
{
    return XSDM_FUNCTION_NAME(L"XSessionDataStorageEnv::StoreData");
}
const XWQComBSTR& ReadDataName()
{
    return XSDM_FUNCTION_NAME(L"XSessionDataStorageEnv::ReadData");
}
const XWQComBSTR& GetSubKeysName()
{
    return XSDM_FUNCTION_NAME(L"XSessionDataStorageEnv::GetSubKeys");
}
const XWQComBSTR& GetListOfEnvValuesName()
{
    return XSDM_FUNCTION_NAME(L"XSessionDataStorageEnv::GetListOfEnvValues");
}

const XSdmReporter& Report()
{
    static const XSdmReporter report(kUnit, XSessionDataStorageEnv::ObjectClsid());
    return report;
}

// The process environment block, released when the owner goes; a failed release is logged.
class EnvironmentBlock
{
public:
    EnvironmentBlock() noexcept : m_block(::GetEnvironmentStringsW()) {}
    ~EnvironmentBlock()
    {
        if (m_block && !::FreeEnvironmentStringsW(m_block))
            LogFailedRelease();
    }
    EnvironmentBlock(const EnvironmentBlock&) = delete;
    EnvironmentBlock& operator=(const EnvironmentBlock&) = delete;

    const wchar_t* Get() const noexcept { return m_block; }

private:
    static void LogFailedRelease() noexcept
    {
        try
        {
            XWQError::WriteLineToErrorLogBook(Report().Where(__LINE__, GetListOfEnvValuesName()), XWQEXCEP::SEV_ERROR,
                                              XWQComBSTR(L"FreeEnvironmentStrings failed."), XWQComBSTR());
        }
        catch (...)
        {
            // Only the log line is lost.
        }
    }

    wchar_t* m_block;
};

bool IsBlank(wchar_t c) noexcept
{
    return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n' || c == L'\v' || c == L'\f';
}

std::wstring_view Trimmed(std::wstring_view text) noexcept
{
    while (!text.empty() && IsBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

// text with every "\\" turned into "/".
std::wstring Slashed(const XWQComBSTR& text)
{
    std::wstring result = text.ToWString();
    std::replace(result.begin(), result.end(), L'\\', L'/');
    return result;
}

// Whether the first length characters of name equal lowerKey, compared in lower case.
bool BeginsWithKey(const std::wstring& name, const std::wstring& lowerKey)
{
    return name.size() >= lowerKey.size() && XLowered(name.substr(0, lowerKey.size())) == lowerKey;
}

XWQComBSTR Text(std::wstring_view text)
{
    return XWQComBSTR(text.data(), static_cast<UINT>(text.size()));
}
} // namespace

HRESULT XSessionDataStorageEnv::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IWQ_SessionDataStorageEnv, IWQ_SessionDataStorage, ISupportErrorInfo>(this, iid, ppv);
}

STDMETHODIMP XSessionDataStorageEnv::InterfaceSupportsErrorInfo(REFIID iid)
{
    const bool own = ::IsEqualIID(iid, IID_IWQ_SessionDataStorageEnv) || ::IsEqualIID(iid, IID_IWQ_SessionDataStorage);
    return own ? S_OK : S_FALSE;
}

STDMETHODIMP XSessionDataStorageEnv::StoreData(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pValueList)
{
    const XWQComBSTR& function = StoreDataName();
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        if (ulCount > 0 && !pValueList)
            return Report().CheckPointer(__LINE__, function, pValueList);
        const HRESULT named = Report().Names(__LINE__, function).List(bstrKeyName, ulCount, pValueList, L"environment").Result();
        if (FAILED(named))
            return named;
        return StoreData(XWQComBSTR(bstrKeyName), XPairsFromRecords(ulCount, pValueList));
    });
}

STDMETHODIMP XSessionDataStorageEnv::ReadData(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppValueList)
{
    const XWQComBSTR& function = ReadDataName();
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
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

STDMETHODIMP XSessionDataStorageEnv::GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount,
                                                BSTR** ppKeyNameList)
{
    const XWQComBSTR& function = GetSubKeysName();
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
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

STDMETHODIMP XSessionDataStorageEnv::ReadAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                                                 tagKEY_SESSIONDATAVALUE** ppKeySessionDataList)
{
    return XReadAllStorageData(this, Report(), bstrRootKeyName, pulCount, ppKeySessionDataList);
}

STDMETHODIMP XSessionDataStorageEnv::FlushAsyncStorage()
{
    return S_OK;
}

STDMETHODIMP XSessionDataStorageEnv::GetLastErrorAsyncExecution(HRESULT* phrAsyncResult)
{
    return S_OK;
}

HRESULT XSessionDataStorageEnv::EnsureEnvCache()
{
    return m_envCache.empty() ? GetListOfEnvValues(m_envCache) : S_OK;
}

HRESULT XSessionDataStorageEnv::ReadData(const XWQComBSTR& key, XStoragePairs& pairs)
{
    const HRESULT filled = EnsureEnvCache();
    if (filled != S_OK)
        return filled;

    const std::wstring lowerKey = XLowered(Slashed(key));
    const size_t length = lowerKey.size();
    ULONG found = 0;
    for (const auto& variable : m_envCache)
    {
        const std::wstring name = Slashed(variable.first);
        if (!BeginsWithKey(name, lowerKey))
            continue;
        std::wstring_view valueName(name);
        if (length > 0)
        {
            // Directly under the key: the name's last "/" stands right after the key.
            if (name.rfind(L'/') != length)
                continue;
            valueName.remove_prefix(length + 1);
        }
        else if (name.find(L'/') != std::wstring::npos)
        {
            continue;
        }
        pairs[Text(valueName)] = variable.second;
        ++found;
    }
    return found > 0 ? S_OK : S_FALSE;
}

HRESULT XSessionDataStorageEnv::StoreData(const XWQComBSTR& key, const XStoragePairs& pairs)
{
    const XWQComBSTR& function = StoreDataName();
    if (pairs.empty())
        return S_FALSE;

    XWQComBSTR prefix(key);
    prefix.Replace(L"\\", L"/");
    if (!prefix.IsEmpty() && prefix.c_str()[prefix.Length() - 1] != L'/')
        prefix.Append(L"/");

    for (const auto& pair : pairs)
    {
        if (prefix.Length() + pair.first.Length() > kMaxVariableText)
            return Report().Refuse(__LINE__, function, E_INVALIDARG,
                                   L"XSessionDataStorageEnv::StoreData -> Variable name longer than 32766 characters");
        if (pair.second.Length() > kMaxVariableText)
            return Report().Refuse(__LINE__, function, E_INVALIDARG,
                                   L"XSessionDataStorageEnv::StoreData -> Value longer than 32766 characters");
    }

    HRESULT hr = S_OK;
    for (const auto& pair : pairs)
    {
        XWQComBSTR name = prefix + pair.first;
        name.ToUpper();
        if (!::SetEnvironmentVariableW(name.c_str(), pair.second.c_str()))
            // The registry wording is the program's own text.
            hr = XWQError::HandleAPIError(
                Report().Where(__LINE__, function), 0,
                XWQComBSTR(L"XSessionDataStorageEnv::StoreData -> Open registry key with write access failed"), true);
    }
    return hr;
}

HRESULT XSessionDataStorageEnv::GetListOfEnvValues(XStoragePairs& variables)
{
    const EnvironmentBlock block;
    if (!block.Get())
        return Report().Refuse(__LINE__, GetListOfEnvValuesName(), E_FAIL, L"GetEnvironmentStrings failed.");

    // Entries end with a zero character, the block with an empty entry.
    for (const wchar_t* entry = block.Get(); *entry; entry += std::wcslen(entry) + 1)
    {
        const std::wstring_view text(entry);
        const size_t equals = text.find(L'=');
        if (equals == std::wstring_view::npos)
            continue;
        const std::wstring_view name = Trimmed(text.substr(0, equals));
        if (name.empty())
            continue; // the per-drive entries ("=C:=C:\...") among them
        variables[Text(name)] = Text(Trimmed(text.substr(equals + 1)));
    }
    return variables.empty() ? S_FALSE : S_OK;
}

HRESULT XSessionDataStorageEnv::GetSubKeys(const XWQComBSTR& key, ULONG recursive, XStorageKeyNames& names)
{
    const HRESULT filled = EnsureEnvCache();
    if (filled != S_OK)
        return filled;

    const std::wstring lowerKey = XLowered(Slashed(key));
    const size_t length = lowerKey.size();
    std::set<std::wstring> listed; // lower-cased, for the comparison regardless of case
    XStorageKeyNames found;
    for (const auto& variable : m_envCache)
    {
        const std::wstring name = Slashed(variable.first);
        if (length > 0 && !BeginsWithKey(name, lowerKey))
            continue;
        const size_t lastSlash = name.rfind(L'/');
        if (lastSlash == std::wstring::npos || lastSlash == 0)
            continue; // no parent path
        const std::wstring candidate = name.substr(0, lastSlash);
        if (listed.count(XLowered(candidate)) != 0)
            continue;
        if (recursive != 1)
        {
            // One level below the key only: nothing after the key and its separator may hold one.
            const std::wstring_view below =
                candidate.size() > length + 1 ? std::wstring_view(candidate).substr(length + 1) : std::wstring_view();
            if (below.find_first_of(L"\\/") != std::wstring_view::npos)
                continue;
        }
        listed.insert(XLowered(candidate));
        found.push_back(Text(candidate));
    }
    std::sort(found.begin(), found.end());
    if (found.empty())
        return S_FALSE;
    names.insert(names.end(), std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
    return S_OK;
}
