// The name order of the IO layers' tables: VarBstrCmp(LOCALE_USER_DEFAULT, 0) order, served by
// sort keys and an exact-text index.
#include "xcollatedmap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace
{
HRESULT VarCompare(const std::wstring& a, const std::wstring& b)
{
    XWQComBSTR left(a.data(), static_cast<UINT>(a.size()));
    XWQComBSTR right(b.data(), static_cast<UINT>(b.size()));
    return ::VarBstrCmp(left, right, LOCALE_USER_DEFAULT, 0);
}

HRESULT KeyCompare(const std::wstring& a, const std::wstring& b)
{
    const std::string left = XCollationKey(a);
    const std::string right = XCollationKey(b);
    return left < right ? VARCMP_LT : (left == right ? VARCMP_EQ : VARCMP_GT);
}

std::vector<std::wstring> Names(const XCollatedMap<int>& map)
{
    std::vector<std::wstring> names;
    for (const auto& entry : map)
        names.push_back(entry.name.ToWString());
    return names;
}

std::wstring WithNul(const wchar_t* before, const wchar_t* after)
{
    std::wstring text(before);
    text.push_back(L'\0');
    return text + after;
}

// Texts that collation treats unlike code points: case, accents precomposed and combined,
// ignorable characters, ligatures, punctuation, digits, other scripts, surrogates, NULs.
std::vector<std::wstring> TrickyTexts()
{
    std::vector<std::wstring> texts = {
        L"",       L"a",          L"A",       L"b",          L"ab",      L"a-c",    L"ac",    L"a'c",
        L"co-op",  L"coop",       L"e",       L"\u00e9",     L"e\u0301", L"E\u0301", L"f",    L"a\u00ad",
        L"\u00ad", L"a\u200b",    L"\u00e4",  L"z",          L"ae",      L"\u00e6", L"ss",    L"\u00df",
        L"1",      L"10",         L"2",       L"_x",         L"x_",      L"x",      L"a b",   L"ab ",
        L"a/b",    L"a/c",        L"a\\b",    L"\uff41",     L"\u0410",  L"\u4e00", L"Name",  L"name",
        L"NAME",   L"users/a",    L"Users/A", L"users\\a",
    };
    texts.push_back(std::wstring{wchar_t(0xd83d), wchar_t(0xde00)});
    texts.push_back(std::wstring(1, wchar_t(0xd800)));
    texts.push_back(WithNul(L"a", L"b"));
    texts.push_back(WithNul(L"", L"q"));
    texts.push_back(WithNul(L"", L"a"));
    texts.push_back(std::wstring(1, L'\0'));
    return texts;
}
} // namespace

TEST(CollationKey, OrdersEveryPairAsVarBstrCmp)
{
    const std::vector<std::wstring> texts = TrickyTexts();
    for (const std::wstring& a : texts)
    {
        for (const std::wstring& b : texts)
            ASSERT_EQ(VarCompare(a, b), KeyCompare(a, b)) << "pair " << testing::PrintToString(a) << " / "
                                                          << testing::PrintToString(b);
    }
}

TEST(CollationKey, EmptyTextSortsFirstAndTextsWithLeadingNulNext)
{
    // Under Wine, VarBstrCmp puts "" before everything, and a text beginning with U+0000 before
    // every other non-empty text, although CompareStringW ignores the NUL.
    EXPECT_EQ(VARCMP_LT, VarCompare(L"", WithNul(L"", L"q")));
    EXPECT_EQ(VARCMP_LT, VarCompare(WithNul(L"", L"q"), L"\u00ad"));
    EXPECT_EQ(VARCMP_LT, VarCompare(WithNul(L"", L"z"), L"a"));
    EXPECT_EQ(VARCMP_LT, KeyCompare(L"", WithNul(L"", L"q")));
    EXPECT_EQ(VARCMP_LT, KeyCompare(WithNul(L"", L"q"), L"\u00ad"));
    EXPECT_EQ(VARCMP_LT, KeyCompare(WithNul(L"", L"z"), L"a"));
}

TEST(CollationKey, LongTextsAreComparedToTheirEnd)
{
    const std::wstring stem(400, L'x');
    EXPECT_EQ(VARCMP_LT, KeyCompare(stem + L"a", stem + L"b"));
    EXPECT_EQ(VARCMP_EQ, KeyCompare(stem + L"\u00df", stem + L"ss"));
    EXPECT_EQ(VarCompare(stem + L"\u00e9", stem + L"f"), KeyCompare(stem + L"\u00e9", stem + L"f"));
}

TEST(CollatedMap, IteratesInCollationOrderNotCodePointOrder)
{
    XCollatedMap<int> map;
    for (const wchar_t* name : {L"f", L"\u00e9", L"a-c", L"e", L"ac", L"ab"})
        map.Put(name, 0);
    const std::vector<std::wstring> expected = {L"ab", L"ac", L"a-c", L"e", L"\u00e9", L"f"};
    EXPECT_EQ(expected, Names(map));

    std::vector<std::wstring> byCodePoint = expected;
    std::sort(byCodePoint.begin(), byCodePoint.end());
    EXPECT_NE(expected, byCodePoint);  // the example does tell the two orders apart
}

TEST(CollatedMap, OrderMatchesSortingWithVarBstrCmp)
{
    XCollatedMap<int> map;
    std::vector<std::wstring> texts = TrickyTexts();
    for (const std::wstring& text : texts)
        map.Get(text);
    // One text of each collation-equal group stays: the first inserted.
    std::vector<std::wstring> expected;
    for (const std::wstring& text : texts)
    {
        const bool seen = std::any_of(expected.begin(), expected.end(),
                                      [&](const std::wstring& kept) { return VarCompare(kept, text) == VARCMP_EQ; });
        if (!seen)
            expected.push_back(text);
    }
    std::stable_sort(expected.begin(), expected.end(),
                     [](const std::wstring& a, const std::wstring& b) { return VarCompare(a, b) == VARCMP_LT; });
    EXPECT_EQ(expected, Names(map));
}

TEST(CollatedMap, CollationEqualNamesAreOneEntryKeepingTheFirstSpelling)
{
    // Wine's VarBstrCmp calls these pairs equal though their texts differ.
    EXPECT_EQ(VARCMP_EQ, VarCompare(L"ss", L"\u00df"));
    EXPECT_EQ(VARCMP_EQ, VarCompare(L"\u00e9", L"e\u0301"));
    EXPECT_EQ(VARCMP_EQ, VarCompare(L"a", L"a\u00ad"));

    XCollatedMap<int> map;
    map.Put(L"ss", 1);
    ASSERT_NE(nullptr, map.Find(L"\u00df"));
    EXPECT_EQ(1, *map.FindValue(L"\u00df"));
    map.Put(L"\u00df", 2);
    ASSERT_EQ(1u, map.Size());
    EXPECT_EQ(L"ss", map.Find(L"\u00df")->name.ToWString());
    EXPECT_EQ(2, *map.FindValue(L"ss"));
    EXPECT_TRUE(map.Erase(L"\u00df"));
    EXPECT_TRUE(map.Empty());
    EXPECT_EQ(nullptr, map.Find(L"ss"));
}

TEST(CollatedMap, NamesDifferingInCaseAreTwoEntries)
{
    XCollatedMap<int> map;
    map.Put(L"name", 1);
    map.Put(L"Name", 2);
    EXPECT_EQ(2u, map.Size());
    EXPECT_EQ(1, *map.FindValue(L"name"));
    EXPECT_EQ(2, *map.FindValue(L"Name"));
    EXPECT_EQ(nullptr, map.Find(L"NAME"));
}

TEST(CollatedMap, EmptyNameIsAnEntryOfItsOwn)
{
    XCollatedMap<int> map;
    map.Put(L"a", 1);
    map.Put(L"", 2);
    EXPECT_EQ(2, *map.FindValue(L""));
    EXPECT_EQ((std::vector<std::wstring>{L"", L"a"}), Names(map));
}

TEST(CollatedMap, MovedMapStillFindsItsEntries)
{
    XCollatedMap<int> map;
    map.Put(L"a", 1);
    map.Put(L"b", 2);
    XCollatedMap<int> moved(std::move(map));
    EXPECT_EQ(2, *moved.FindValue(L"b"));
    XCollatedMap<int> assigned;
    assigned.Put(L"z", 9);
    assigned = std::move(moved);
    EXPECT_EQ(1, *assigned.FindValue(L"a"));
    EXPECT_EQ(nullptr, assigned.Find(L"z"));
    EXPECT_TRUE(assigned.Erase(L"a"));
    EXPECT_EQ(1u, assigned.Size());
}

TEST(CollatedMap, EraseOfUnknownNameChangesNothing)
{
    XCollatedMap<int> map;
    map.Put(L"a", 1);
    EXPECT_FALSE(map.Erase(L"b"));
    EXPECT_EQ(1u, map.Size());
    map.Clear();
    EXPECT_TRUE(map.Empty());
    EXPECT_EQ(nullptr, map.Find(L"a"));
}
