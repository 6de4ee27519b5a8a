// TransferDataFromTo: copying a key with its sub-keys between categories.
#include "managerfixture.h"

TEST_F(ManagerTest, TransferWithinOneCategoryIntoAKeyThatBeginsWithTheSourceIsRefused)
{
    RecordingIO* io = Bind(3);
    io->SetValue(L"Users/A", L"v", L"1");
    EXPECT_EQ(S_FALSE, mng->TransferDataFromTo(Cat(3), Cat(3), XWQComBSTR(L"Users/A"), XWQComBSTR(L"users/a/Copy")));
    EXPECT_EQ(S_FALSE, mng->TransferDataFromTo(Cat(3), Cat(3), XWQComBSTR(L"USERS/A/b"), XWQComBSTR(L"users/a")));
    EXPECT_TRUE(io->Calls().empty());
}

TEST_F(ManagerTest, TransferWithinOneCategoryToASeparateKeyCopies)
{
    RecordingIO* io = Bind(3);
    io->SetValue(L"Users/A", L"v", L"1");
    EXPECT_EQ(S_OK, mng->TransferDataFromTo(Cat(3), Cat(3), XWQComBSTR(L"Users/A"), XWQComBSTR(L"Users/B")));
    EXPECT_EQ(L"1", io->Values()[L"Users/B"][L"v"]);
}

TEST_F(ManagerTest, TransferBetweenCategoriesMovesTopValuesAndKeepsSubKeyPaths)
{
    RecordingIO* from = Bind(4);
    RecordingIO* to = Bind(2);
    from->SetValue(L"Src", L"top", L"T");
    from->SetSubKeys(L"Src", {L"Src/Child"});
    from->SetValue(L"Src/Child", L"inner", L"I");
    from->SetSubKeys(L"Src/Child", {});
    EXPECT_EQ(S_OK, mng->TransferDataFromTo(Cat(4), Cat(2), XWQComBSTR(L"Src"), XWQComBSTR(L"Dst")));
    auto values = to->Values();
    EXPECT_EQ(L"T", values[L"Dst"][L"top"]);
    EXPECT_EQ(L"I", values[L"Src/Child"][L"inner"]);
    EXPECT_EQ(0u, values.count(L"Dst/Child"));
    // Nothing is deleted in the source.
    EXPECT_EQ(L"T", from->Values()[L"Src"][L"top"]);
    const std::vector<std::string> expected = {"GetSubKeys(Src,0)", "GetSubKeys(Src/Child,0)",
                                               "GetStringList(Src/Child)", "GetStringList(Src)"};
    EXPECT_EQ(expected, from->Calls());
}

TEST_F(ManagerTest, TransferCopiesNothingWhenTheSubKeysCannotBeListed)
{
    RecordingIO* from = Bind(4);
    RecordingIO* to = Bind(2);
    from->SetValue(L"Src", L"top", L"T");
    from->SetResult("GetSubKeys", S_FALSE);
    EXPECT_EQ(S_FALSE, mng->TransferDataFromTo(Cat(4), Cat(2), XWQComBSTR(L"Src"), XWQComBSTR(L"Dst")));
    EXPECT_TRUE(to->Calls().empty());
}

TEST_F(ManagerTest, TransferNeedsBothCategoriesBoundAndNonZero)
{
    RecordingIO* from = Bind(4);
    EXPECT_EQ(S_FALSE, mng->TransferDataFromTo(Cat(4), Cat(2), XWQComBSTR(L"a"), XWQComBSTR(L"b")));
    EXPECT_EQ(S_FALSE, mng->TransferDataFromTo(Cat(0), Cat(4), XWQComBSTR(L"a"), XWQComBSTR(L"b")));
    EXPECT_TRUE(from->Calls().empty());
}

TEST_F(ManagerTest, TransferReturnsTheTargetsWriteResult)
{
    RecordingIO* from = Bind(4);
    RecordingIO* to = Bind(2);
    from->SetValue(L"Src", L"v", L"1");
    to->SetResult("WriteStringList", E_ACCESSDENIED);
    EXPECT_EQ(E_ACCESSDENIED, mng->TransferDataFromTo(Cat(4), Cat(2), XWQComBSTR(L"Src"), XWQComBSTR(L"Dst")));
}
