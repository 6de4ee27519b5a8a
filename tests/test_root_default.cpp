// The database a root object uses when its client opens none: the connection in the registry
// value HKCU\Software\WQSessionDataMng\StorageRoot "Connection", else the SQLite file in the
// user's local application data folder.
#include "roottesthelpers.h"
#include "iotesthelpers.h"
#include "sqltesthelpers.h"
#include "testenv.h"

#include <gtest/gtest.h>

namespace
{
const wchar_t kSettings[] = L"Software\\WQSessionDataMng\\StorageRoot";

// Sets the "Connection" value for the scope (of a type), and removes it at the end.
class ConfiguredConnection
{
public:
    ConfiguredConnection(const std::wstring& text, DWORD type)
    {
        m_ok = ::RegSetKeyValueW(HKEY_CURRENT_USER, kSettings, L"Connection", type, text.c_str(),
                                 static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))) == ERROR_SUCCESS;
    }
    ~ConfiguredConnection() { ::RegDeleteKeyValueW(HKEY_CURRENT_USER, kSettings, L"Connection"); }
    bool Ok() const { return m_ok; }

private:
    bool m_ok = false;
};

std::wstring ConnectionOf(const XComPtr<IWQ_SessionDataIOEx>& root)
{
    BSTR text = nullptr;
    EXPECT_EQ(S_OK, ConfigOf(root)->GetConnection(&text));
    std::wstring out(text ? text : L"");
    ::SysFreeString(text);
    return out;
}

bool EndsWith(const std::wstring& text, const std::wstring& end)
{
    return text.size() >= end.size() && _wcsicmp(text.c_str() + text.size() - end.size(), end.c_str()) == 0;
}
} // namespace

// One case for all three: every case of this process reads the same registry value.
TEST(RootDefaultDatabase, TheConfiguredConnectionElseTheFileInLocalAppData)
{
    TestDatabaseFile file;
    {
        ConfiguredConnection configured(file.Connection(), REG_SZ);
        ASSERT_TRUE(configured.Ok());
        const XComPtr<IWQ_SessionDataIOEx> root = NewRootObject();
        ASSERT_TRUE(root);
        ASSERT_EQ(S_OK, Write(root.Get(), L"k", L"n", L"configured"));
        EXPECT_EQ(L"sqlite:" + file.Path() + L"?synchronous=normal&busy_timeout=5000", ConnectionOf(root));
        RawSqlite raw(file.Path());
        EXPECT_EQ(std::vector<std::string>{"configured"}, raw.Rows("SELECT value FROM sdm_values"));
    }
    {
        // Expanded: the file named through the environment.
        wchar_t folder[MAX_PATH] = {};
        ::GetTempPathW(MAX_PATH, folder);
        ::SetEnvironmentVariableW(L"WQSDM_TEST_DB", file.Path().c_str());
        ConfiguredConnection configured(L"sqlite:%WQSDM_TEST_DB%?synchronous=full", REG_EXPAND_SZ);
        ASSERT_TRUE(configured.Ok());
        const XComPtr<IWQ_SessionDataIOEx> root = NewRootObject();
        ASSERT_TRUE(root);
        EXPECT_EQ(L"sqlite:" + file.Path() + L"?synchronous=full&busy_timeout=5000", ConnectionOf(root));
    }
    {
        ConfiguredConnection configured(L"nosuch:thing", REG_SZ);
        const XComPtr<IWQ_SessionDataIOEx> root = NewRootObject();
        ASSERT_TRUE(root);
        EXPECT_EQ(E_INVALIDARG, Write(root.Get(), L"k", L"n", L"v"));
        EXPECT_NE(std::wstring::npos, TakeErrorInfo().description.find(L"unknown connection scheme"));
    }
    const XComPtr<IWQ_SessionDataIOEx> root = NewRootObject();
    ASSERT_TRUE(root);
    const std::wstring connection = ConnectionOf(root);
    EXPECT_TRUE(EndsWith(connection, L"\\WQSessionDataMng\\sessiondata.db?synchronous=normal&busy_timeout=5000"))
        << Utf8(connection);
    const std::wstring path = connection.substr(7, connection.find(L'?') - 7);
    EXPECT_NE(INVALID_FILE_ATTRIBUTES, ::GetFileAttributesW(path.c_str())) << Utf8(path);
}
