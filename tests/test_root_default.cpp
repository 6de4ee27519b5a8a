// The database a root object uses when its client opens none: the connection in the registry
// value HKCU\Software\WQSessionDataMng\StorageRoot "Connection", else the SQLite file in the
// user's local application data folder.
#include "roottesthelpers.h"
#include "iotesthelpers.h"
#include "sqltesthelpers.h"
#include "testenv.h"
#include "xrootconnection.h"
#include "xsdmerror.h"

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

namespace
{
// A settings key of the running process, removed at the end.
class TestSettingsKey
{
public:
    TestSettingsKey() : m_key(L"Software\\WQSessionDataMng\\Test-" + std::to_wstring(::GetCurrentProcessId())) {}
    ~TestSettingsKey() { ::RegDeleteTreeW(HKEY_CURRENT_USER, m_key.c_str()); }
    const wchar_t* Key() const { return m_key.c_str(); }
    std::wstring Value(const wchar_t* name) const
    {
        wchar_t text[4096] = {};
        DWORD bytes = sizeof text;
        return ::RegGetValueW(HKEY_CURRENT_USER, m_key.c_str(), name, RRF_RT_REG_SZ, nullptr, text, &bytes) ==
                       ERROR_SUCCESS
                   ? std::wstring(text)
                   : std::wstring(L"<none>");
    }

private:
    std::wstring m_key;
};
} // namespace

TEST(RootDefaultDatabase, AnOdbcPasswordIsKeptEncryptedForTheUserAndNeverInTheText)
{
    TestSettingsKey settings;
    const std::wstring secret = L"se;cr}et";
    XSetDefaultRootConnection(L"odbc:Driver={PostgreSQL Unicode};Server=db.example;Uid=sdm;Pwd={se;cr}}et};",
                              settings.Key());
    EXPECT_EQ(L"odbc:Driver={PostgreSQL Unicode};Server=db.example;Uid=sdm;", settings.Value(L"Connection"));
    const std::wstring kept = settings.Value(L"Password");
    EXPECT_NE(L"<none>", kept);
    EXPECT_EQ(std::wstring::npos, kept.find(L"cr}et"));
    // The text handed to the database has the password back, braced as ODBC needs it.
    EXPECT_EQ(L"odbc:Driver={PostgreSQL Unicode};Server=db.example;Uid=sdm;Pwd={se;cr}}et};",
              XDefaultRootConnection(settings.Key()));
    EXPECT_EQ(L"odbc:Driver={PostgreSQL Unicode};Server=db.example;Uid=sdm;Pwd=***;",
              XShownDefaultRootConnection(settings.Key()));
    // Another connection without a password drops the kept one.
    XSetDefaultRootConnection(L"odbc:DSN=sessiondata;", settings.Key());
    EXPECT_EQ(L"<none>", settings.Value(L"Password"));
    EXPECT_EQ(L"odbc:DSN=sessiondata;", XDefaultRootConnection(settings.Key()));
    // A text that cannot work changes nothing.
    EXPECT_ANY_THROW(XSetDefaultRootConnection(L"odbc:Driver={PostgreSQL Unicode;Pwd=x", settings.Key()));
    EXPECT_EQ(L"odbc:DSN=sessiondata;", settings.Value(L"Connection"));
    // An empty text goes back to the file.
    XSetDefaultRootConnection(L"", settings.Key());
    EXPECT_EQ(L"<none>", settings.Value(L"Connection"));
    EXPECT_TRUE(EndsWith(XDefaultRootConnection(settings.Key()), L"\\WQSessionDataMng\\sessiondata.db"));
}

TEST(RootDefaultDatabase, APasswordKeptByAnotherUserIsAClearErrorNotAWrongLogin)
{
    TestSettingsKey settings;
    XSetDefaultRootConnection(L"odbc:DSN=sessiondata;Pwd=x;", settings.Key());
    const std::wstring garbage = L"AQAAANCMnd8BFdERjHoAwE/Cl+sBAAAA";
    ASSERT_EQ(ERROR_SUCCESS, ::RegSetKeyValueW(HKEY_CURRENT_USER, settings.Key(), L"Password", REG_SZ, garbage.c_str(),
                                               static_cast<DWORD>((garbage.size() + 1) * sizeof(wchar_t))));
    const HRESULT hr = XSdmBoundary("test", __LINE__, XWQComBSTR(L"test"), GUID_NULL, [&]() -> HRESULT {
        XDefaultRootConnection(settings.Key());
        return S_OK;
    });
    EXPECT_TRUE(FAILED(hr));
    EXPECT_NE(std::wstring::npos, TakeErrorInfo().description.find(L"cannot be decrypted"));
}
