// Helpers of the registry and environment storage tests: a registry root key of the running
// test, the plain registry and environment calls that check what a storage wrote, and storage
// calls with their out values checked and freed.
#pragma once

#include "XWQComBSTR.h"
#include "xcomobject.h"
#include "xsessiondatamng_h.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

using Pairs = std::vector<std::pair<std::wstring, std::wstring>>;

// "Software\WQSdmTest-<pid>-<test name><suffix>" below HKEY_CURRENT_USER: removed with everything
// below it when made (a leftover of an earlier run) and when the owner goes.
class TestRegistryRoot
{
public:
    explicit TestRegistryRoot(const std::wstring& suffix = std::wstring());
    ~TestRegistryRoot();
    TestRegistryRoot(const TestRegistryRoot&) = delete;
    TestRegistryRoot& operator=(const TestRegistryRoot&) = delete;

    // Relative to HKEY_CURRENT_USER.
    const std::wstring& Path() const { return m_path; }
    // Path() + "\" + key.
    std::wstring Below(const std::wstring& key) const { return m_path + L"\\" + key; }

private:
    std::wstring m_path;
};

// The plain registry and environment calls.
namespace Raw
{
std::optional<std::wstring> StringValue(HKEY hive, const std::wstring& path, const std::wstring& name,
                                        DWORD* type = nullptr);
bool KeyExists(HKEY hive, const std::wstring& path);
std::vector<std::wstring> SubKeyNames(HKEY hive, const std::wstring& path);
std::vector<std::wstring> ValueNames(HKEY hive, const std::wstring& path);
void CreateKey(HKEY hive, const std::wstring& path, DWORD options = REG_OPTION_NON_VOLATILE);
void SetString(HKEY hive, const std::wstring& path, const std::wstring& name, const std::wstring& value);
void SetDword(HKEY hive, const std::wstring& path, const std::wstring& name, DWORD value);
void DeleteTree(HKEY hive, const std::wstring& path);
// Whether the key was created volatile: a volatile key takes only volatile sub-keys (the
// probe key this tries to create is removed again).
bool IsVolatile(HKEY hive, const std::wstring& path);
std::optional<std::wstring> EnvironmentValue(const std::wstring& name);
// Removes every variable with "/" in its name, so that a test sees only the keys it made.
void RemoveKeyedVariables();
} // namespace Raw

// Gives a key an access list that lets everyone read it (ReadOnly) or do nothing (Nothing); its
// own access list comes back when the owner goes.
class RestrictedKeyAccess
{
public:
    enum class Grant
    {
        ReadOnly,
        Nothing
    };
    RestrictedKeyAccess(HKEY hive, std::wstring path, Grant grant);
    ~RestrictedKeyAccess();
    RestrictedKeyAccess(const RestrictedKeyAccess&) = delete;
    RestrictedKeyAccess& operator=(const RestrictedKeyAccess&) = delete;

private:
    HKEY m_hive;
    std::wstring m_path;
    std::vector<BYTE> m_original;
};

// Value records for StoreData that own their strings.
class PairRecords
{
public:
    explicit PairRecords(const Pairs& pairs);
    ULONG Count() const { return static_cast<ULONG>(m_records.size()); }
    tagSESSIONDATAVALUE* Data() { return m_records.data(); }

private:
    std::vector<XWQComBSTR> m_strings;
    std::vector<tagSESSIONDATAVALUE> m_records;
};

HRESULT StorePairs(IWQ_SessionDataStorage* storage, const wchar_t* key, const Pairs& pairs);

struct PairsResult
{
    HRESULT hr = E_UNEXPECTED;
    ULONG count = 0;
    bool listWritten = false; // the out array was set (else it still holds the marker)
    bool listNull = true;
    Pairs pairs;
};
// ReadData with the out values preset to markers; what comes back is freed.
PairsResult ReadPairs(IWQ_SessionDataStorage* storage, const wchar_t* key);

struct NamesResult
{
    HRESULT hr = E_UNEXPECTED;
    ULONG count = 0;
    bool listWritten = false;
    bool listNull = true;
    std::vector<std::wstring> names;
};
NamesResult ReadSubKeys(IWQ_SessionDataStorage* storage, const wchar_t* key, ULONG recursive);

struct KeyRecord
{
    std::wstring key;
    ULONG count = 0;
    bool listNull = true;
    Pairs pairs;
};
struct KeyRecordsResult
{
    HRESULT hr = E_UNEXPECTED;
    ULONG count = 0;
    bool listWritten = false; // the out array was set (else it still holds the marker)
    std::vector<KeyRecord> records;
};
KeyRecordsResult ReadAll(IWQ_SessionDataStorage* storage, const wchar_t* root);

// Whether one line of this process's log book holds every one of the texts.
bool LogHas(const std::vector<std::string>& texts);
std::string Utf8(const std::wstring& text);

// A cached (XSessionDataIO) or uncached (XSessionDataIONoCache) access layer over storage.
XComPtr<IWQ_SessionDataIO> NewLayer(bool cached, IWQ_SessionDataStorage* storage);
// A registry storage initialised below HKEY_CURRENT_USER\rootPath.
XComPtr<IWQ_SessionDataStorage> NewRegistryStorage(const std::wstring& rootPath);

// A new storage of class T, asked for interface I.
template <class T, class I = IWQ_SessionDataStorage>
XComPtr<I> NewStorage()
{
    XComPtr<I> storage;
    XCreateComObject<T>(nullptr, __uuidof(I), reinterpret_cast<void**>(storage.ReleaseAndGetAddressOf()));
    return storage;
}
