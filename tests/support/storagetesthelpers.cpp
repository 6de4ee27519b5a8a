#include "storagetesthelpers.h"

#include "testenv.h"
#include "xcomtypes.h"
#include "xsessiondataio.h"
#include "xsessiondataionocache.h"
#include "xsessiondatastoragereg.h"

#include <gtest/gtest.h>
#include <sddl.h>

#include <cstdint>
#include <cwchar>

namespace
{
// Recognisable out values: a call that does not write them leaves these.
tagSESSIONDATAVALUE* const kUnwrittenList = reinterpret_cast<tagSESSIONDATAVALUE*>(static_cast<uintptr_t>(0x5A5A5A50));
BSTR* const kUnwrittenNames = reinterpret_cast<BSTR*>(static_cast<uintptr_t>(0x5A5A5A60));
tagKEY_SESSIONDATAVALUE* const kUnwrittenRecords =
    reinterpret_cast<tagKEY_SESSIONDATAVALUE*>(static_cast<uintptr_t>(0x5A5A5A70));
const ULONG kUnwrittenCount = 0xA5A5A5A5u;

std::wstring TestName()
{
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = info ? std::string(info->test_suite_name()) + "." + info->name() : "outside";
    if (name.size() > 120)
        name.resize(120);
    return Widen(name);
}

class OpenKey
{
public:
    OpenKey(HKEY hive, const std::wstring& path, REGSAM access)
        : m_result(::RegOpenKeyExW(hive, path.c_str(), 0, access, &m_key))
    {
    }
    ~OpenKey()
    {
        if (m_result == ERROR_SUCCESS)
            ::RegCloseKey(m_key);
    }
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;
    bool Ok() const { return m_result == ERROR_SUCCESS; }
    HKEY Get() const { return m_key; }

private:
    HKEY m_key = nullptr;
    LONG m_result;
};

std::wstring Text(BSTR text)
{
    return text ? std::wstring(text, ::SysStringLen(text)) : std::wstring();
}

Pairs PairsOf(const tagSESSIONDATAVALUE* records, ULONG count)
{
    Pairs pairs;
    for (ULONG i = 0; records && i < count; ++i)
        pairs.emplace_back(Text(records[i].bstrValueName), Text(records[i].bstrValue));
    return pairs;
}
} // namespace

TestRegistryRoot::TestRegistryRoot(const std::wstring& suffix)
    : m_path(L"Software\\WQSdmTest-" + std::to_wstring(::GetCurrentProcessId()) + L"-" + TestName() + suffix)
{
    Raw::DeleteTree(HKEY_CURRENT_USER, m_path);
}

TestRegistryRoot::~TestRegistryRoot()
{
    Raw::DeleteTree(HKEY_CURRENT_USER, m_path);
}

namespace Raw
{
std::optional<std::wstring> StringValue(HKEY hive, const std::wstring& path, const std::wstring& name, DWORD* type)
{
    OpenKey key(hive, path, KEY_READ | KEY_WOW64_64KEY);
    if (!key.Ok())
        return std::nullopt;
    DWORD bytes = 0;
    DWORD valueType = 0;
    if (::RegQueryValueExW(key.Get(), name.c_str(), nullptr, &valueType, nullptr, &bytes) != ERROR_SUCCESS)
        return std::nullopt;
    std::vector<wchar_t> data(bytes / sizeof(wchar_t) + 2, L'\0');
    if (::RegQueryValueExW(key.Get(), name.c_str(), nullptr, &valueType, reinterpret_cast<BYTE*>(data.data()),
                           &bytes) != ERROR_SUCCESS)
        return std::nullopt;
    if (type)
        *type = valueType;
    return std::wstring(data.data());
}

bool KeyExists(HKEY hive, const std::wstring& path)
{
    return OpenKey(hive, path, KEY_READ | KEY_WOW64_64KEY).Ok();
}

std::vector<std::wstring> SubKeyNames(HKEY hive, const std::wstring& path)
{
    std::vector<std::wstring> names;
    OpenKey key(hive, path, KEY_READ | KEY_WOW64_64KEY);
    if (!key.Ok())
        return names;
    wchar_t name[256];
    for (DWORD i = 0;; ++i)
    {
        DWORD length = 256;
        if (::RegEnumKeyExW(key.Get(), i, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        names.emplace_back(name, length);
    }
    return names;
}

std::vector<std::wstring> ValueNames(HKEY hive, const std::wstring& path)
{
    std::vector<std::wstring> names;
    OpenKey key(hive, path, KEY_READ | KEY_WOW64_64KEY);
    if (!key.Ok())
        return names;
    std::vector<wchar_t> name(16384);
    for (DWORD i = 0;; ++i)
    {
        DWORD length = static_cast<DWORD>(name.size());
        if (::RegEnumValueW(key.Get(), i, name.data(), &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        names.emplace_back(name.data(), length);
    }
    return names;
}

void CreateKey(HKEY hive, const std::wstring& path, DWORD options)
{
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS,
              ::RegCreateKeyExW(hive, path.c_str(), 0, nullptr, options, KEY_ALL_ACCESS, nullptr, &key, nullptr));
    ::RegCloseKey(key);
}

void SetString(HKEY hive, const std::wstring& path, const std::wstring& name, const std::wstring& value)
{
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS,
              ::RegCreateKeyExW(hive, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr));
    EXPECT_EQ(ERROR_SUCCESS,
              ::RegSetValueExW(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                               static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t))));
    ::RegCloseKey(key);
}

void SetDword(HKEY hive, const std::wstring& path, const std::wstring& name, DWORD value)
{
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS,
              ::RegCreateKeyExW(hive, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr));
    EXPECT_EQ(ERROR_SUCCESS,
              ::RegSetValueExW(key, name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value));
    ::RegCloseKey(key);
}

void DeleteTree(HKEY hive, const std::wstring& path)
{
    ::RegDeleteTreeW(hive, path.c_str());
    ::RegDeleteKeyW(hive, path.c_str());
}

bool IsVolatile(HKEY hive, const std::wstring& path)
{
    const std::wstring probe = path + L"\\NonVolatileProbe";
    HKEY key = nullptr;
    const LONG result = ::RegCreateKeyExW(hive, probe.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                                          nullptr, &key, nullptr);
    if (result == ERROR_SUCCESS)
    {
        ::RegCloseKey(key);
        ::RegDeleteKeyW(hive, probe.c_str());
        return false;
    }
    EXPECT_EQ(ERROR_CHILD_MUST_BE_VOLATILE, result);
    return result == ERROR_CHILD_MUST_BE_VOLATILE;
}

std::optional<std::wstring> EnvironmentValue(const std::wstring& name)
{
    ::SetLastError(ERROR_SUCCESS);
    const DWORD needed = ::GetEnvironmentVariableW(name.c_str(), nullptr, 0);
    if (needed == 0)
    {
        if (::GetLastError() == ERROR_ENVVAR_NOT_FOUND)
            return std::nullopt;
        return std::wstring();
    }
    std::vector<wchar_t> buffer(needed + 1, L'\0');
    const DWORD got = ::GetEnvironmentVariableW(name.c_str(), buffer.data(), needed + 1);
    return std::wstring(buffer.data(), got);
}
void RemoveKeyedVariables()
{
    std::vector<std::wstring> names;
    wchar_t* block = ::GetEnvironmentStringsW();
    for (const wchar_t* entry = block; entry && *entry; entry += std::wcslen(entry) + 1)
    {
        const std::wstring text(entry);
        const size_t equals = text.find(L'=', 1);
        if (equals != std::wstring::npos && text.substr(0, equals).find(L'/') != std::wstring::npos)
            names.push_back(text.substr(0, equals));
    }
    ::FreeEnvironmentStringsW(block);
    for (const std::wstring& name : names)
        ::SetEnvironmentVariableW(name.c_str(), nullptr);
}
} // namespace Raw

RestrictedKeyAccess::RestrictedKeyAccess(HKEY hive, std::wstring path, Grant grant)
    : m_hive(hive), m_path(std::move(path))
{
    OpenKey key(m_hive, m_path, READ_CONTROL | WRITE_DAC);
    EXPECT_TRUE(key.Ok());
    DWORD size = 0;
    ::RegGetKeySecurity(key.Get(), DACL_SECURITY_INFORMATION, nullptr, &size);
    m_original.resize(size);
    EXPECT_EQ(ERROR_SUCCESS, ::RegGetKeySecurity(key.Get(), DACL_SECURITY_INFORMATION, m_original.data(), &size));

    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const wchar_t* sddl = grant == Grant::ReadOnly ? L"D:P(A;;KR;;;WD)" : L"D:P";
    EXPECT_TRUE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1, &descriptor, nullptr));
    if (!descriptor)
        return;
    EXPECT_EQ(ERROR_SUCCESS, ::RegSetKeySecurity(key.Get(), DACL_SECURITY_INFORMATION, descriptor));
    ::LocalFree(descriptor);
}

RestrictedKeyAccess::~RestrictedKeyAccess()
{
    OpenKey key(m_hive, m_path, WRITE_DAC);
    if (key.Ok() && !m_original.empty())
        ::RegSetKeySecurity(key.Get(), DACL_SECURITY_INFORMATION, m_original.data());
}

PairRecords::PairRecords(const Pairs& pairs)
{
    m_strings.reserve(pairs.size() * 2);
    for (const auto& pair : pairs)
    {
        m_strings.emplace_back(pair.first);
        m_strings.emplace_back(pair.second);
    }
    for (size_t i = 0; i < m_strings.size(); i += 2)
        m_records.push_back(tagSESSIONDATAVALUE{m_strings[i], m_strings[i + 1]});
}

HRESULT StorePairs(IWQ_SessionDataStorage* storage, const wchar_t* key, const Pairs& pairs)
{
    PairRecords records(pairs);
    const XWQComBSTR keyName(key);
    return storage->StoreData(key ? static_cast<BSTR>(keyName) : nullptr, records.Count(),
                              records.Count() ? records.Data() : nullptr);
}

PairsResult ReadPairs(IWQ_SessionDataStorage* storage, const wchar_t* key)
{
    PairsResult result;
    ULONG count = kUnwrittenCount;
    tagSESSIONDATAVALUE* list = kUnwrittenList;
    const XWQComBSTR keyName(key);
    result.hr = storage->ReadData(key ? static_cast<BSTR>(keyName) : nullptr, &count, &list);
    result.count = count;
    if (list == kUnwrittenList)
        return result;
    result.listWritten = true;
    result.listNull = list == nullptr;
    result.pairs = PairsOf(list, count);
    XFreeValueArray(list, count);
    return result;
}

NamesResult ReadSubKeys(IWQ_SessionDataStorage* storage, const wchar_t* key, ULONG recursive)
{
    NamesResult result;
    ULONG count = kUnwrittenCount;
    BSTR* names = kUnwrittenNames;
    const XWQComBSTR keyName(key);
    result.hr = storage->GetSubKeys(key ? static_cast<BSTR>(keyName) : nullptr, recursive, &count, &names);
    result.count = count;
    if (names == kUnwrittenNames)
        return result;
    result.listWritten = true;
    result.listNull = names == nullptr;
    for (ULONG i = 0; names && i < count; ++i)
        result.names.push_back(Text(names[i]));
    XFreeBstrArray(names, count);
    return result;
}

KeyRecordsResult ReadAll(IWQ_SessionDataStorage* storage, const wchar_t* root)
{
    KeyRecordsResult result;
    ULONG count = kUnwrittenCount;
    tagKEY_SESSIONDATAVALUE* records = kUnwrittenRecords;
    const XWQComBSTR rootName(root);
    result.hr = storage->ReadAllData(root ? static_cast<BSTR>(rootName) : nullptr, &count, &records);
    result.count = count;
    if (records == kUnwrittenRecords)
        return result;
    result.listWritten = true;
    for (ULONG i = 0; records && i < count; ++i)
    {
        KeyRecord record;
        record.key = Text(records[i].bstrKeyName);
        record.count = records[i].ulCount;
        record.listNull = records[i].pSessionDataValue == nullptr;
        record.pairs = PairsOf(records[i].pSessionDataValue, records[i].ulCount);
        result.records.push_back(record);
    }
    XFreeKeyValueArray(records, count);
    return result;
}

bool LogHas(const std::vector<std::string>& texts)
{
    for (const std::string& line : ReadLogBook())
    {
        bool all = true;
        for (const std::string& text : texts)
            all = all && line.find(text) != std::string::npos;
        if (all)
            return true;
    }
    return false;
}

std::string Utf8(const std::wstring& text)
{
    if (text.empty())
        return std::string();
    const int needed =
        ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
    std::string out(static_cast<size_t>(needed), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &out[0], needed, nullptr, nullptr);
    return out;
}

XComPtr<IWQ_SessionDataIO> NewLayer(bool cached, IWQ_SessionDataStorage* storage)
{
    XComPtr<IWQ_SessionDataIO> io;
    const HRESULT created =
        cached ? XCreateComObject<XSessionDataIO>(nullptr, IID_IWQ_SessionDataIO,
                                                  reinterpret_cast<void**>(io.ReleaseAndGetAddressOf()))
               : XCreateComObject<XSessionDataIONoCache>(nullptr, IID_IWQ_SessionDataIO,
                                                         reinterpret_cast<void**>(io.ReleaseAndGetAddressOf()));
    EXPECT_EQ(S_OK, created);
    if (io)
    {
        EXPECT_EQ(S_OK, io->SetStorage(storage));
    }
    return io;
}

XComPtr<IWQ_SessionDataStorage> NewRegistryStorage(const std::wstring& rootPath)
{
    const XComPtr<IWQ_SessionDataStorageReg> reg = NewStorage<XSessionDataStorageReg, IWQ_SessionDataStorageReg>();
    EXPECT_EQ(S_OK, reg->Initialize(static_cast<SESSIONDATAREGKEY>(1), XWQComBSTR(rootPath.c_str()), 0));
    XComPtr<IWQ_SessionDataStorage> storage;
    reg.As(storage);
    return storage;
}
