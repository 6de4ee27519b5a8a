// The all-categories behaviour of key 0: reads, list merges, flushes and saves.
#include "managerfixture.h"

TEST_F(ManagerTest, GetDataWithKeyZeroTakesTheFirstCategoryFromFiveDown)
{
    Bind(1)->SetValue(L"k", L"v", L"one");
    Bind(5)->SetValue(L"k", L"v", L"five");
    XVariant value;
    EXPECT_EQ(S_OK, mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), VT_BSTR, &value, Cat(0)));
    EXPECT_STREQ(L"five", value.Get().bstrVal);
}

TEST_F(ManagerTest, GetDataWithKeyZeroSkipsAnExtendedIOThatIsNoUserProfileIO)
{
    Bind(1)->SetValue(L"k", L"v", L"one");
    RecordingIO* five = Bind(5, true);
    five->SetValue(L"k", L"v", L"five");
    XVariant value;
    EXPECT_EQ(S_OK, mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), VT_BSTR, &value, Cat(0)));
    EXPECT_STREQ(L"one", value.Get().bstrVal);
    EXPECT_EQ(0u, five->CountCalls("GetData"));
    five->SetUserProfile(1);
    EXPECT_EQ(S_OK, mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), VT_BSTR, &value, Cat(0)));
    EXPECT_STREQ(L"five", value.Get().bstrVal);
}

TEST_F(ManagerTest, GetDataWithKeyZeroSkipsAnExtendedIOWhoseProfileQueryFails)
{
    RecordingIO* four = Bind(4, true);
    four->SetValue(L"k", L"v", L"four");
    four->SetUserProfile(1, E_FAIL);
    Bind(2)->SetValue(L"k", L"v", L"two");
    XVariant value;
    EXPECT_EQ(S_OK, mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), VT_BSTR, &value, Cat(0)));
    EXPECT_STREQ(L"two", value.Get().bstrVal);
}

TEST_F(ManagerTest, GetDataWithKeyZeroStopsAtTheFirstFailure)
{
    Bind(5)->SetResult("GetData", E_ACCESSDENIED);
    RecordingIO* three = Bind(3);
    three->SetValue(L"k", L"v", L"three");
    XVariant value;
    EXPECT_EQ(E_ACCESSDENIED, mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), VT_BSTR, &value, Cat(0)));
    EXPECT_EQ(0u, three->CountCalls("GetData"));
    EXPECT_EQ(VT_EMPTY, value.Get().vt);
}

TEST_F(ManagerTest, GetDataWithKeyZeroAndNothingFoundIsSFalse)
{
    Bind(3);
    Bind(6)->SetValue(L"k", L"v", L"six is never walked");
    XVariant value;
    EXPECT_EQ(S_FALSE, mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), VT_BSTR, &value, Cat(0)));
}

TEST_F(ManagerTest, GetStringListWithKeyZeroKeepsTheFirstCategoryOfANameWhateverItsCase)
{
    RecordingIO* four = Bind(4);
    four->SetValue(L"k", L"Name", L"four");
    four->SetValue(L"k", L"only4", L"x");
    RecordingIO* two = Bind(2);
    two->SetValue(L"k", L"NAME", L"two");
    two->SetValue(L"k", L"only2", L"y");
    XValueArray list;
    ASSERT_EQ(S_OK, mng->GetStringList(XWQComBSTR(L"k"), list.CountAddress(), list.ItemsAddress(), Cat(0)));
    ASSERT_EQ(3u, list.Count());
    std::map<std::wstring, std::wstring> got;
    for (ULONG i = 0; i < list.Count(); ++i)
        got[list[i].bstrValueName] = list[i].bstrValue;
    EXPECT_EQ(L"four", got[L"Name"]);
    EXPECT_EQ(0u, got.count(L"NAME"));
    EXPECT_EQ(L"x", got[L"only4"]);
    EXPECT_EQ(L"y", got[L"only2"]);
}

TEST_F(ManagerTest, GetStringListWithKeyZeroSkipsFailingCategoriesAndEmptyGivesSFalse)
{
    Bind(5)->SetResult("GetStringList", E_FAIL);
    Bind(3)->SetValue(L"k", L"a", L"1");
    XValueArray list;
    ASSERT_EQ(S_OK, mng->GetStringList(XWQComBSTR(L"k"), list.CountAddress(), list.ItemsAddress(), Cat(0)));
    EXPECT_EQ(1u, list.Count());
    ULONG count = 42;
    tagSESSIONDATAVALUE* untouched = reinterpret_cast<tagSESSIONDATAVALUE*>(0x1234);
    EXPECT_EQ(S_FALSE, mng->GetStringList(XWQComBSTR(L"other"), &count, &untouched, Cat(0)));
    EXPECT_EQ(42u, count);
    EXPECT_EQ(reinterpret_cast<tagSESSIONDATAVALUE*>(0x1234), untouched);
}

TEST_F(ManagerTest, GetObjectStringListWithKeyZeroMergesOnlyExtendedBindings)
{
    RecordingIO* plain = Bind(5);
    RecordingIO* three = Bind(3, true);
    XVariant value;
    SetBstr(value, L"3");
    ASSERT_EQ(S_OK, mng->WriteObjectData(plain, XWQComBSTR(L"k"), XWQComBSTR(L"a"), value.Get(), Cat(3)));
    XValueArray list;
    ASSERT_EQ(S_OK, mng->GetObjectStringList(plain, XWQComBSTR(L"k"), list.CountAddress(), list.ItemsAddress(), Cat(0)));
    ASSERT_EQ(1u, list.Count());
    EXPECT_STREQ(L"a", list[0].bstrValueName);
    EXPECT_STREQ(L"3", list[0].bstrValue);
    EXPECT_TRUE(plain->Calls().empty());
    EXPECT_EQ(1u, three->CountCalls("GetObjectStringList(obj,k)"));
}

TEST_F(ManagerTest, SaveDataWithKeyZeroSavesNothing)
{
    std::vector<RecordingIO*> bound;
    for (LONG key = 1; key <= 5; ++key)
        bound.push_back(Bind(key));
    EXPECT_EQ(S_FALSE, mng->SaveData(Cat(0), XWQComBSTR(L"k"), XWQComBSTR(L"v")));
    for (RecordingIO* io : bound)
        EXPECT_TRUE(io->Calls().empty());
}

TEST_F(ManagerTest, FlushCacheWithKeyZeroFlushesEveryCategoryAndKeepsTheLastFailure)
{
    RecordingIO* five = Bind(5);
    RecordingIO* four = Bind(4);
    RecordingIO* two = Bind(2);
    RecordingIO* eight = Bind(8);
    five->SetResult("FlushCache", E_ACCESSDENIED);
    two->SetResult("FlushCache", E_OUTOFMEMORY);
    EXPECT_EQ(E_OUTOFMEMORY, mng->FlushCache(Cat(0)));
    EXPECT_EQ(1u, five->CountCalls("FlushCache(0)"));
    EXPECT_EQ(1u, four->CountCalls("FlushCache(0)"));
    EXPECT_EQ(1u, two->CountCalls("FlushCache(0)"));
    EXPECT_TRUE(eight->Calls().empty());
    two->SetResult("FlushCache", S_OK);
    EXPECT_EQ(E_ACCESSDENIED, mng->FlushCache(Cat(0)));
    five->SetResult("FlushCache", S_OK);
    EXPECT_EQ(S_OK, mng->FlushCache(Cat(0)));
    EXPECT_EQ(S_OK, mng->FlushCache(Cat(4)));
    EXPECT_EQ(1u, four->CountCalls("FlushCache(4)"));
}

TEST_F(ManagerTest, FlushAsyncStorageWithKeyZeroFlushesEveryCategoryAndKeepsTheLastFailure)
{
    RecordingIO* three = Bind(3);
    RecordingIO* one = Bind(1);
    three->SetResult("FlushAsyncStorage", S_FALSE);
    EXPECT_EQ(S_FALSE, mng->FlushAsyncStorage(Cat(0)));
    one->SetResult("FlushAsyncStorage", E_FAIL);
    EXPECT_EQ(E_FAIL, mng->FlushAsyncStorage(Cat(0)));
    EXPECT_EQ(2u, three->CountCalls("FlushAsyncStorage"));
    EXPECT_EQ(2u, one->CountCalls("FlushAsyncStorage"));
}

TEST_F(ManagerTest, FlushesWithNothingBoundSucceed)
{
    EXPECT_EQ(S_OK, mng->FlushCache(Cat(0)));
    EXPECT_EQ(S_OK, mng->FlushAsyncStorage(Cat(0)));
}
