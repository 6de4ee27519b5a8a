// Recursive walks over sub-keys never descend into a key they are already in: the key walk
// itself, and TransferDataFromTo over an IO object that lists a key as its own sub-key or an
// ancestor, or a chain deeper than a walk goes.
#include "managerfixture.h"
#include "xkeywalk.h"

#include <algorithm>

TEST(KeyWalk, KeysCompareWithEitherSeparatorWithoutTrailingSeparatorAndRegardlessOfCase)
{
    const struct
    {
        const wchar_t* key;
        const wchar_t* canonical;
    } cases[] = {
        {L"", L""}, {L"A", L"a"}, {L"Users\\Alice", L"users/alice"}, {L"users/alice/", L"users/alice"},
        {L"USERS\\ALICE\\\\", L"users/alice"}, {L"/", L""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.canonical, XKeyWalk::Canonical(c.key));
}

TEST(KeyWalk, AWalkIsInTheKeysItEnteredUntilItLeavesThem)
{
    XKeyWalk walk;
    EXPECT_FALSE(walk.IsIn(L"a"));
    {
        const XKeyWalk::Step top = walk.Enter(L"A");
        {
            const XKeyWalk::Step below = walk.Enter(L"A/B");
            EXPECT_TRUE(walk.IsIn(L"a"));
            EXPECT_TRUE(walk.IsIn(L"a\\b\\"));
            EXPECT_FALSE(walk.IsIn(L"a/b/c"));
        }
        EXPECT_FALSE(walk.IsIn(L"A/B"));
        EXPECT_TRUE(walk.IsIn(L"A"));
    }
    EXPECT_FALSE(walk.IsIn(L"A"));
}

TEST_F(ManagerTest, TransferDoesNotDescendIntoAKeyListedAsItsOwnSubKey)
{
    RecordingIO* from = Bind(4);
    RecordingIO* to = Bind(2);
    from->SetValue(L"Src", L"top", L"T");
    from->SetSubKeys(L"Src", {L"Src", L"src/", L"Src/Child"});
    from->SetValue(L"Src/Child", L"inner", L"I");
    from->SetSubKeys(L"Src/Child", {L"Src/Child"});
    EXPECT_EQ(S_OK, mng->TransferDataFromTo(Cat(4), Cat(2), XWQComBSTR(L"Src"), XWQComBSTR(L"Dst")));
    auto values = to->Values();
    EXPECT_EQ(L"T", values[L"Dst"][L"top"]);
    EXPECT_EQ(L"I", values[L"Src/Child"][L"inner"]);
    EXPECT_EQ(2u, from->CountCalls("GetSubKeys"));
}

TEST_F(ManagerTest, TransferDoesNotDescendIntoAnAncestorListedAsASubKey)
{
    RecordingIO* from = Bind(4);
    RecordingIO* to = Bind(2);
    from->SetSubKeys(L"A", {L"A/B"});
    from->SetSubKeys(L"A/B", {L"A/B/C"});
    from->SetSubKeys(L"A/B/C", {L"a", L"A\\B"});
    from->SetValue(L"A/B/C", L"v", L"1");
    from->SetValue(L"A", L"v", L"0");
    EXPECT_EQ(S_OK, mng->TransferDataFromTo(Cat(4), Cat(2), XWQComBSTR(L"A"), XWQComBSTR(L"Copy")));
    EXPECT_EQ(3u, from->CountCalls("GetSubKeys"));
    EXPECT_EQ(L"1", to->Values()[L"A/B/C"][L"v"]);
    EXPECT_EQ(L"0", to->Values()[L"Copy"][L"v"]);
}

TEST_F(ManagerTest, TransferStopsDescendingPastTheDeepestLevelAWalkGoesAndLogsIt)
{
    RecordingIO* from = Bind(4);
    RecordingIO* to = Bind(2);
    // A chain of keys 600 levels deep, each holding a value.
    std::wstring key = L"k";
    std::vector<std::wstring> chain{key};
    for (int level = 1; level <= 600; ++level)
    {
        const std::wstring child = key + L"/k";
        from->SetSubKeys(key, {child});
        from->SetValue(key, L"level", std::to_wstring(level - 1));
        key = child;
        chain.push_back(key);
    }
    ClearLogBook();
    EXPECT_EQ(S_OK, mng->TransferDataFromTo(Cat(4), Cat(2), XWQComBSTR(L"k"), XWQComBSTR(L"k")));
    auto values = to->Values();
    EXPECT_EQ(L"512", values[chain[XKeyWalk::kMaxDepth]][L"level"]);
    EXPECT_EQ(0u, values.count(chain[XKeyWalk::kMaxDepth + 1]));
    const std::vector<std::string> log = ReadLogBook();
    EXPECT_TRUE(std::any_of(log.begin(), log.end(), [](const std::string& line) {
        return line.find("does not descend more than 512 levels") != std::string::npos;
    }));
}
