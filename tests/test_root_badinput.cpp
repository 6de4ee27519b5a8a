// Bad and awkward input through the server in another process: every key, name and value a
// client may send comes back exactly or is refused with the same answer as in process, and
// nothing that was stored is lost; a file another process holds locked is a clear failure after
// the busy timeout, never a hang.
#include "iotesthelpers.h"
#include "rootservertest.h"
#include "roottesthelpers.h"
#include "sqltesthelpers.h"
#include "testenv.h"
#include "xsqlerror.h"

#include <gtest/gtest.h>

namespace
{
std::wstring Deep(int levels)
{
    std::wstring key;
    for (int level = 0; level < levels; ++level)
        key += (level ? L"\\" : L"") + std::wstring(L"\U0001F511") + std::to_wstring(level);
    return key;
}

HRESULT WriteText(IWQ_SessionDataIOEx* root, const std::wstring& key, const std::wstring& name,
                  const std::wstring& value)
{
    return root->WriteData(XWQComBSTR(key.c_str(), static_cast<UINT>(key.size())),
                           XWQComBSTR(name.c_str(), static_cast<UINT>(name.size())),
                           XWQComBSTR(value.c_str(), static_cast<UINT>(value.size())));
}

std::wstring ReadText(IWQ_SessionDataIOEx* root, const std::wstring& key, const std::wstring& name, HRESULT* hr)
{
    BSTR value = nullptr;
    *hr = root->GetData(XWQComBSTR(key.c_str(), static_cast<UINT>(key.size())),
                        XWQComBSTR(name.c_str(), static_cast<UINT>(name.size())), &value);
    std::wstring out(value ? value : L"", ::SysStringLen(value));
    ::SysFreeString(value);
    return out;
}
} // namespace

TEST(RootBadInput, AwkwardKeysNamesAndValuesComeBackExactlyOrAreRefusedAsInProcess)
{
    TestDatabaseFile remoteFile;
    TestDatabaseFile localFile(L"-local");
    const XComPtr<IWQ_SessionDataIOEx> remote = ActivateRoot(remoteFile.Connection());
    const XComPtr<IWQ_SessionDataIOEx> local = NewRootObject(localFile.Connection());
    ASSERT_TRUE(remote && local);
    const std::wstring nul(L"a\0b", 3);
    const struct
    {
        std::wstring key;
        std::wstring name;
        std::wstring value;
    } cases[] = {
        {L"Suite/%", L"n", L"percent"},
        {L"Suite/_", L"n", L"underscore"},
        {L"Suite/'\"", L"n", L"quotes"},
        {L"Suite\\Back\\Slash", L"n", L"separators"},
        {L"Suite/\U0001F600", L"\U0001F600", L"\U0001F600"},
        {Deep(300), L"n", L"300 levels"},
        {L"Suite/Nul", L"n", nul},
        {std::wstring(L"Suite/K\0ey", 10), L"n", L"nul in a key"},
        {L"Suite/Name", std::wstring(L"n\0m", 3), L"nul in a name"},
        {L"", L"n", L"empty key"},
        {L"Suite/Empty", L"", L""},
        {L"Suite/Big", L"one", std::wstring(1 << 20, L'm')},
        {L"Suite/Big", L"sixteen", std::wstring(16 << 20, L's')},
    };
    for (const auto& c : cases)
    {
        const HRESULT expected = WriteText(local.Get(), c.key, c.name, c.value);
        EXPECT_EQ(expected, WriteText(remote.Get(), c.key, c.name, c.value)) << Utf8(c.value.substr(0, 20));
        ::SetErrorInfo(0, nullptr);
        if (FAILED(expected))
            continue;
        HRESULT localHr = E_FAIL;
        HRESULT remoteHr = E_FAIL;
        const std::wstring inProcess = ReadText(local.Get(), c.key, c.name, &localHr);
        const bool same = ReadText(remote.Get(), c.key, c.name, &remoteHr) == inProcess;
        EXPECT_TRUE(same) << Utf8(c.value.substr(0, 20));
        EXPECT_EQ(localHr, remoteHr) << Utf8(c.value.substr(0, 20));
        // What was stored is read back whole (an empty name reads as no value in both).
        if (localHr == S_OK)
        {
            EXPECT_TRUE(inProcess == c.value) << Utf8(c.value.substr(0, 20));
        }
    }
    // Null strings answer as in process.
    const XWQComBSTR key(L"Suite/Null");
    EXPECT_EQ(local->WriteData(nullptr, key, key), remote->WriteData(nullptr, key, key));
    EXPECT_EQ(local->WriteData(key, nullptr, key), remote->WriteData(key, nullptr, key));
    EXPECT_EQ(local->WriteData(key, key, nullptr), remote->WriteData(key, key, nullptr));
    // Nothing stored earlier was lost on the way.
    HRESULT hr = E_FAIL;
    EXPECT_EQ(L"percent", ReadText(remote.Get(), L"suite/%", L"n", &hr));
    EXPECT_EQ(L"300 levels", ReadText(remote.Get(), Deep(300), L"n", &hr));
}

TEST(RootBadInput, AFileLockedByAnotherProcessFailsAfterTheBusyTimeoutAndLosesNothing)
{
    TestDatabaseFile file;
    const XComPtr<IWQ_SessionDataIOEx> root = ActivateRoot(file.Connection(L"?busy_timeout=300"));
    ASSERT_TRUE(root);
    ASSERT_EQ(S_OK, Write(root.Get(), L"k", L"before", L"kept"));
    RawSqlite other(file.Path());
    ASSERT_TRUE(other.Execute("BEGIN IMMEDIATE; INSERT INTO sdm_meta VALUES ('held', 'by another');"));
    EXPECT_EQ(XSqlError::kBusy, Write(root.Get(), L"k", L"during", L"v"));
    ::SetErrorInfo(0, nullptr);
    ASSERT_TRUE(other.Execute("ROLLBACK;"));
    EXPECT_EQ(S_OK, Write(root.Get(), L"k", L"after", L"v"));
    EXPECT_EQ(L"kept", Read(root.Get(), L"k", L"before").value);
    RawSqlite raw(file.Path());
    EXPECT_EQ((std::vector<std::string>{"after", "before"}), raw.Rows("SELECT name FROM sdm_values ORDER BY name"));
}
