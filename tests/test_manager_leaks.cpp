// Nothing the manager allocates on its list and merge paths is left behind.
#include "managerfixture.h"


TEST_F(ManagerTest, ListMergeAndReadPathsLeakNothing)
{
    RecordingIO* five = Bind(5);
    RecordingIO* three = Bind(3, true);
    three->SetUserProfile(1);
    RecordingIO* one = Bind(1);
    for (int i = 0; i < 20; ++i)
    {
        five->SetValue(L"k", L"n" + std::to_wstring(i), L"five");
        one->SetValue(L"k", L"N" + std::to_wstring(i), L"one");
        one->SetValue(L"k", L"only" + std::to_wstring(i), L"one");
    }
    one->SetSubKeys(L"k", {});
    five->SetValue(L"k", L"r", L"written again each round");
    auto round = [&] {
        XValueArray merged;
        ASSERT_EQ(S_OK, mng->GetStringList(XWQComBSTR(L"k"), merged.CountAddress(), merged.ItemsAddress(), Cat(0)));
        EXPECT_EQ(41u, merged.Count());
        XValueArray single;
        ASSERT_EQ(S_OK, mng->GetStringList(XWQComBSTR(L"k"), single.CountAddress(), single.ItemsAddress(), Cat(1)));
        XVariant value;
        ASSERT_EQ(S_OK, mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"N3"), VT_BSTR, &value, Cat(0)));
        EXPECT_STREQ(L"one", value.Get().bstrVal);
        XVariant number;
        number.Get().vt = VT_R8;
        number.Get().dblVal = 1.25;
        ASSERT_EQ(S_OK, mng->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"r"), number.Get(), Cat(5)));
        ASSERT_EQ(S_OK, mng->TransferDataFromTo(Cat(1), Cat(3), XWQComBSTR(L"k"), XWQComBSTR(L"copy")));
        XVariant bad;
        EXPECT_EQ(DISP_E_TYPEMISMATCH, mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"n1"), VT_I4, &bad, Cat(5)));
    };
    // The first round runs without the spy: it makes the process-wide function-name strings.
    round();
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    for (int i = 0; i < 4; ++i)
        round();
    EXPECT_EQ(0u, spy.Outstanding());
}
