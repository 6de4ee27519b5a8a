// XSessionDataStorageDb: the root key in front of every key, its separators and the
// user-profile prefix.
#include "storagedbtest.h"

TEST_F(StorageDbTest, RootKeyWithBackslashesBecomesSlashSeparatedWithATrailingSlash)
{
    Bind(L"a\\b");
    EXPECT_EQ("GetStringList(a/b/k)", KeySentFor(Base(), root.Get(), L"k"));
}

TEST_F(StorageDbTest, UserProfileStorageBeforeSetRootKeyPutsThePrefixInFront)
{
    ASSERT_EQ(S_OK, storage->SetRoot(root->Root()));
    ASSERT_EQ(S_OK, storage->SetUserProfileStorage());
    ASSERT_EQ(S_OK, storage->SetRootKey(XWQComBSTR(L"a\\b")));
    EXPECT_EQ("GetStringList(<[HKCU]>/a/b/k)", KeySentFor(Base(), root.Get(), L"k"));
}

TEST_F(StorageDbTest, UserProfileStorageAfterSetRootKeyLeavesTheRootKeyAsItWas)
{
    Bind(L"a\\b");
    ASSERT_EQ(S_OK, storage->SetUserProfileStorage());
    EXPECT_EQ("GetStringList(a/b/k)", KeySentFor(Base(), root.Get(), L"k"));
}

TEST_F(StorageDbTest, ARootKeyEndingInASlashStillGetsOneMore)
{
    Bind(L"a/b/");
    EXPECT_EQ("GetStringList(a/b//k)", KeySentFor(Base(), root.Get(), L"k"));
}

TEST_F(StorageDbTest, KeysAreJoinedToTheRootKeyWithoutAnotherSeparatorAndKeepTheirCase)
{
    Bind(L"Root");
    EXPECT_EQ("GetStringList(Root/Users\\Alice)", KeySentFor(Base(), root.Get(), L"Users\\Alice"));
    EXPECT_EQ("GetStringList(Root/)", KeySentFor(Base(), root.Get(), L""));
}

TEST_F(StorageDbTest, AnEmptyRootKeyLeavesKeysUnchanged)
{
    Bind(L"");
    EXPECT_EQ("GetStringList(k\\x)", KeySentFor(Base(), root.Get(), L"k\\x"));
}

TEST_F(StorageDbTest, ANullRootKeyLeavesKeysUnchanged)
{
    ASSERT_EQ(S_OK, storage->SetRoot(root->Root()));
    ASSERT_EQ(S_OK, storage->SetRootKey(nullptr));
    EXPECT_EQ("GetStringList(k)", KeySentFor(Base(), root.Get(), L"k"));
}

TEST_F(StorageDbTest, AnEmptyRootKeyOfAUserProfileStorageIsThePrefixAlone)
{
    ASSERT_EQ(S_OK, storage->SetRoot(root->Root()));
    ASSERT_EQ(S_OK, storage->SetUserProfileStorage());
    ASSERT_EQ(S_OK, storage->SetRootKey(XWQComBSTR(L"")));
    EXPECT_EQ("GetStringList(<[HKCU]>/k)", KeySentFor(Base(), root.Get(), L"k"));
}

TEST_F(StorageDbTest, WithoutSetRootKeyKeysPassUnchanged)
{
    Bind(nullptr);
    EXPECT_EQ("GetStringList(Users/Alice)", KeySentFor(Base(), root.Get(), L"Users/Alice"));
}

TEST_F(StorageDbTest, SetRootKeyAgainReplacesTheRootKey)
{
    Bind(L"first");
    ASSERT_EQ(S_OK, storage->SetRootKey(XWQComBSTR(L"second")));
    EXPECT_EQ("GetStringList(second/k)", KeySentFor(Base(), root.Get(), L"k"));
}

TEST_F(StorageDbTest, SetRootKeyBeforeSetRootIsKept)
{
    ASSERT_EQ(S_OK, storage->SetRootKey(XWQComBSTR(L"early")));
    ASSERT_EQ(S_OK, storage->SetRoot(root->Root()));
    EXPECT_EQ("GetStringList(early/k)", KeySentFor(Base(), root.Get(), L"k"));
}

TEST_F(StorageDbTest, IsUserProfileStorageAnswersZeroUntilSetUserProfileStorage)
{
    LONG flag = 7;
    EXPECT_EQ(S_OK, storage->IsUserProfileStorage(&flag));
    EXPECT_EQ(0, flag);
    EXPECT_EQ(S_OK, storage->SetUserProfileStorage());
    EXPECT_EQ(S_OK, storage->IsUserProfileStorage(&flag));
    EXPECT_EQ(1, flag);
    EXPECT_EQ(S_OK, storage->SetUserProfileStorage());
    EXPECT_EQ(S_OK, storage->IsUserProfileStorage(&flag));
    EXPECT_EQ(1, flag);
    EXPECT_TRUE(Calls().empty());
}
