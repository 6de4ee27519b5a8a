// Per-user isolation through the storage root: two users of one database never see each other's
// per-user data; keys without the prefix are shared; nobody names another user's keys.
#include "roottesthelpers.h"
#include "iotesthelpers.h"
#include "sqltesthelpers.h"
#include "testenv.h"

#include <gtest/gtest.h>

namespace
{
const wchar_t kAlice[] = L"S-1-5-21-1000";
const wchar_t kBob[] = L"S-1-5-21-2000";

class RootUsersTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        root = NewRootObject(file.Connection());
        ASSERT_TRUE(root);
    }
    void WriteAs(const wchar_t* user, const wchar_t* key, const wchar_t* name, const wchar_t* value)
    {
        CallerIs caller(user);
        ASSERT_EQ(S_OK, Write(root.Get(), key, name, value));
    }
    ReadResult ReadAs(const wchar_t* user, const wchar_t* key, const wchar_t* name)
    {
        CallerIs caller(user);
        return Read(root.Get(), key, name);
    }

    TestDatabaseFile file;
    XComPtr<IWQ_SessionDataIOEx> root;
};
} // namespace

TEST_F(RootUsersTest, EachUserReadsOnlyItsOwnPerUserValue)
{
    WriteAs(kAlice, L"<[HKCU]>/Suite/App", L"theme", L"dark");
    WriteAs(kBob, L"<[HKCU]>/Suite/App", L"theme", L"light");
    EXPECT_EQ(L"dark", ReadAs(kAlice, L"<[hkcu]>/suite/app", L"theme").value);
    EXPECT_EQ(L"light", ReadAs(kBob, L"<[hkcu]>/suite/app", L"theme").value);
    WriteAs(kAlice, L"<[HKCU]>/Suite/Only", L"n", L"a");
    EXPECT_EQ(S_FALSE, ReadAs(kBob, L"<[HKCU]>/Suite/Only", L"n").hr);
    RawSqlite raw(file.Path());
    EXPECT_EQ((std::vector<std::string>{"<[user:S-1-5-21-1000]>/Suite/App|dark", "<[user:S-1-5-21-2000]>/Suite/App|light"}),
              raw.Rows("SELECT k.key_text, v.value FROM sdm_values v JOIN sdm_keys k USING (scope, key_norm) "
                       "WHERE v.name = 'theme' ORDER BY k.key_text"));
}

TEST_F(RootUsersTest, KeysWithoutThePrefixAreShared)
{
    WriteAs(kAlice, L"Suite/Shared", L"n", L"from alice");
    EXPECT_EQ(L"from alice", ReadAs(kBob, L"suite/shared", L"n").value);
}

TEST_F(RootUsersTest, ListingsShowTheCallerItsOwnKeysUnderThePrefix)
{
    WriteAs(kAlice, L"<[HKCU]>/S/x", L"n", L"1");
    WriteAs(kBob, L"<[HKCU]>/S/y", L"n", L"2");
    WriteAs(kBob, L"Top", L"n", L"3");
    CallerIs caller(kAlice);
    EXPECT_EQ((std::vector<std::wstring>{L"<[HKCU]>/S/x"}), SubKeysOf(root.Get(), L"<[HKCU]>/S", 1));
    // The whole database lists the caller's own prefix once and shared keys; Bob's keys never.
    EXPECT_EQ((std::vector<std::wstring>{L"<[HKCU]>", L"<[HKCU]>/S", L"<[HKCU]>/S/x", L"Top"}),
              SubKeysOf(root.Get(), L"", 1));
    EXPECT_EQ((std::vector<std::wstring>{L"<[HKCU]>/S/x|n=1"}), AllDataOf(root.Get(), L"<[HKCU]>/S"));
}

TEST_F(RootUsersTest, DeletingAPerUserKeyDeletesOnlyTheCallersSubtree)
{
    WriteAs(kAlice, L"<[HKCU]>/S/x", L"n", L"1");
    WriteAs(kBob, L"<[HKCU]>/S/x", L"n", L"2");
    {
        CallerIs caller(kAlice);
        EXPECT_EQ(S_OK, root->DeleteKey(XWQComBSTR(L"<[HKCU]>\\S")));
    }
    EXPECT_EQ(S_FALSE, ReadAs(kAlice, L"<[HKCU]>/S/x", L"n").hr);
    EXPECT_EQ(L"2", ReadAs(kBob, L"<[HKCU]>/S/x", L"n").value);
}

TEST_F(RootUsersTest, ObjectDataUnderThePrefixIsPerUserToo)
{
    XComPtr<IMoniker> moniker;
    ASSERT_EQ(S_OK, ::CreateItemMoniker(L"!", L"Window1", moniker.ReleaseAndGetAddressOf()));
    {
        CallerIs caller(kAlice);
        ASSERT_EQ(S_OK, root->WriteObjectData(moniker.Get(), XWQComBSTR(L"<[HKCU]>/W"), XWQComBSTR(L"Left"),
                                              XWQComBSTR(L"10")));
    }
    CallerIs caller(kBob);
    BSTR value = nullptr;
    EXPECT_EQ(S_FALSE, root->GetObjectData(moniker.Get(), XWQComBSTR(L"<[HKCU]>/W"), XWQComBSTR(L"Left"), &value));
    EXPECT_EQ(nullptr, value);
    EXPECT_TRUE(SubKeysOf(root.Get(), L"", 1).empty());
}

TEST_F(RootUsersTest, KeysThatNameAUserAreRefusedAndNothingIsWritten)
{
    WriteAs(kBob, L"<[HKCU]>/Secret", L"pin", L"1234");
    CallerIs caller(kAlice);
    for (const wchar_t* key : {L"<[user:S-1-5-21-2000]>/Secret", L"<[USER:s-1-5-21-2000]>\\Secret", L"/<[user:x]>",
                               L"<[user:"})
    {
        EXPECT_EQ(E_ACCESSDENIED, Write(root.Get(), key, L"pin", L"0000")) << Utf8(key);
        const ErrorInfoText info = TakeErrorInfo();
        EXPECT_TRUE(info.present);
        EXPECT_NE(std::wstring::npos, info.description.find(L"reserved")) << Utf8(info.description);
        EXPECT_EQ(E_ACCESSDENIED, Read(root.Get(), key, L"pin").hr) << Utf8(key);
        EXPECT_EQ(E_ACCESSDENIED, root->DeleteKey(XWQComBSTR(key))) << Utf8(key);
    }
    EXPECT_EQ(L"1234", ReadAs(kBob, L"<[HKCU]>/Secret", L"pin").value);
    RawSqlite raw(file.Path());
    EXPECT_EQ(std::vector<std::string>{"1"}, raw.Rows("SELECT count(*) FROM sdm_values"));
}
