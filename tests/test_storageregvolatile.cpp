// Volatile root keys of the registry storage: made volatile only when Initialize creates them on
// request, and then every key the storage creates below them is volatile as well.
#include "registrystoragetest.h"

TEST_F(RegistryStorageTest, AMissingRootKeyIsCreatedVolatileWhenAsked)
{
    ASSERT_EQ(S_OK, Init(1));
    EXPECT_TRUE(Raw::KeyExists(HKEY_CURRENT_USER, root.Path()));
    EXPECT_TRUE(Raw::IsVolatile(HKEY_CURRENT_USER, root.Path()));
}

TEST_F(RegistryStorageTest, AnyNonZeroVolatileFlagAsksForAVolatileRootKey)
{
    ASSERT_EQ(S_OK, Init(7));
    EXPECT_TRUE(Raw::IsVolatile(HKEY_CURRENT_USER, root.Path()));
}

TEST_F(RegistryStorageTest, AMissingRootKeyIsCreatedNonVolatileWithoutTheFlag)
{
    ASSERT_EQ(S_OK, Init(0));
    EXPECT_FALSE(Raw::IsVolatile(HKEY_CURRENT_USER, root.Path()));
}

TEST_F(RegistryStorageTest, KeysCreatedBelowAVolatileRootKeyAreVolatile)
{
    ASSERT_EQ(S_OK, Init(1));
    ASSERT_EQ(S_OK, StorePairs(Base(), L"a/b", {{L"v", L"1"}}));
    EXPECT_EQ(L"1", Raw::StringValue(HKEY_CURRENT_USER, root.Below(L"a\\b"), L"v"));
    EXPECT_TRUE(Raw::IsVolatile(HKEY_CURRENT_USER, root.Below(L"a")));
    EXPECT_TRUE(Raw::IsVolatile(HKEY_CURRENT_USER, root.Below(L"a\\b")));
}

TEST_F(RegistryStorageTest, AnExistingRootKeyStaysNonVolatileAndSoDoItsNewKeys)
{
    Raw::CreateKey(HKEY_CURRENT_USER, root.Path());
    ASSERT_EQ(S_OK, Init(1));
    EXPECT_FALSE(Raw::IsVolatile(HKEY_CURRENT_USER, root.Path()));
    ASSERT_EQ(S_OK, StorePairs(Base(), L"a", {{L"v", L"1"}}));
    EXPECT_FALSE(Raw::IsVolatile(HKEY_CURRENT_USER, root.Below(L"a")));
}

TEST_F(RegistryStorageTest, TheVolatileOptionOutlivesALaterInitialize)
{
    ASSERT_EQ(S_OK, Init(1));
    TestRegistryRoot second(L"-second");
    Raw::CreateKey(HKEY_CURRENT_USER, second.Path());
    // The second root exists and is not volatile, but the option chosen for the first one stays.
    ASSERT_EQ(S_OK, storage->Initialize(Hive(kCurrentUser), XWQComBSTR(second.Path().c_str()), 0));
    ASSERT_EQ(S_OK, StorePairs(Base(), L"s", {{L"v", L"1"}}));
    EXPECT_FALSE(Raw::IsVolatile(HKEY_CURRENT_USER, second.Path()));
    EXPECT_TRUE(Raw::IsVolatile(HKEY_CURRENT_USER, second.Below(L"s")));
}
