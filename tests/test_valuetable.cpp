// The IO layers' value table: a hit is answered from the index's record of the value's text, so
// that record must follow every change of the value.
#include "xsessiondatavalues.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

namespace
{
// The text a hinted lookup answers for name, or "<none>" when the name has no entry.
std::wstring HintedText(const XValueTable& table, const std::wstring& name)
{
    const void* hint = reinterpret_cast<const void*>(1);
    if (!table.FindHinted(name, hint))
        return hint == nullptr ? L"<none>" : L"<hint left unset>";
    const BSTR text = static_cast<BSTR>(const_cast<void*>(hint));
    return std::wstring(text ? text : L"", ::SysStringLen(text));
}

XValueEntry Entry(const wchar_t* text, bool dirty = false)
{
    return XValueEntry(XWQComBSTR(text), dirty);
}
} // namespace

// Only the table replaces an entry's text: code outside it cannot assign an entry, so the
// record of the text beside the index cannot fall behind.
static_assert(!std::is_assignable<XValueEntry&, XValueEntry&&>::value, "entries are replaced by the table only");
static_assert(!std::is_assignable<XValueEntry&, const XValueEntry&>::value, "entries are replaced by the table only");

TEST(ValueTable, HintedLookupAnswersTheTextOfTheLastPut)
{
    XValueTable table;
    table.Put(L"n", Entry(L"first"));
    EXPECT_EQ(L"first", HintedText(table, L"n"));
    // Texts of other lengths, so that a stale record would show.
    table.Put(L"n", Entry(L"a much longer second text"));
    EXPECT_EQ(L"a much longer second text", HintedText(table, L"n"));
    table.Put(L"n", Entry(L""));
    EXPECT_EQ(L"", HintedText(table, L"n"));
    table.Put(L"n", Entry(L"third", true));
    EXPECT_EQ(L"third", HintedText(table, L"n"));
    EXPECT_TRUE(table.Find(L"n")->value.dirty);
}

TEST(ValueTable, HintedLookupOfAnEntryCreatedWithoutValueAnswersTheEmptyText)
{
    XValueTable table;
    table.Get(L"n");
    const void* hint = &table;
    EXPECT_TRUE(table.FindHinted(L"n", hint));
    EXPECT_EQ(nullptr, hint);  // a null BSTR: the empty text
}

TEST(ValueTable, HintedLookupOfAMissingOrErasedNameFindsNothing)
{
    XValueTable table;
    EXPECT_EQ(L"<none>", HintedText(table, L"n"));
    table.Put(L"n", Entry(L"v"));
    table.Put(L"m", Entry(L"w"));
    EXPECT_TRUE(table.Erase(L"n"));
    EXPECT_EQ(L"<none>", HintedText(table, L"n"));
    EXPECT_EQ(L"w", HintedText(table, L"m"));
    table.Clear();
    EXPECT_EQ(L"<none>", HintedText(table, L"m"));
}

TEST(ValueTable, HintedLookupUnderACollationEqualSpellingAnswersTheEntrysText)
{
    XValueTable table;
    table.Put(L"ss", Entry(L"first"));
    EXPECT_EQ(L"first", HintedText(table, L"\u00df"));
    // Put under the other spelling replaces the one entry; both spellings read the new text.
    table.Put(L"\u00df", Entry(L"second"));
    EXPECT_EQ(1u, table.Size());
    EXPECT_EQ(L"second", HintedText(table, L"ss"));
    EXPECT_EQ(L"second", HintedText(table, L"\u00df"));
}

TEST(ValueTable, HintedLookupAgreesWithTheEntriesAfterManyChanges)
{
    XValueTable table;
    std::vector<std::wstring> expected(500);
    for (int round = 0; round < 4; ++round)
    {
        for (size_t i = 0; i < expected.size(); ++i)
        {
            if ((i + round) % 7 == 0)
            {
                table.Erase(L"name" + std::to_wstring(i));
                expected[i].clear();
                continue;
            }
            expected[i] = std::wstring(round + 1, L'x') + std::to_wstring(i * (round + 3));
            table.Put(L"name" + std::to_wstring(i), Entry(expected[i].c_str()));
        }
        for (size_t i = 0; i < expected.size(); ++i)
        {
            const std::wstring name = L"name" + std::to_wstring(i);
            ASSERT_EQ(expected[i].empty() ? L"<none>" : expected[i], HintedText(table, name)) << round << " " << i;
            if (!expected[i].empty())
            {
                ASSERT_EQ(expected[i], table.Find(name)->value.Text().ToWString());
            }
        }
    }
}

TEST(ValueTable, MovedTableStillAnswersHintedLookups)
{
    XValueTable table;
    table.Put(L"n", Entry(L"v"));
    XValueTable moved(std::move(table));
    EXPECT_EQ(L"v", HintedText(moved, L"n"));
    moved.Put(L"n", Entry(L"w"));
    EXPECT_EQ(L"w", HintedText(moved, L"n"));
}

TEST(FoundValue, CopyIsANewBstrOfTheWholeText)
{
    XWQComBSTR text(L"a\0b", 3);
    const XFoundValue found{true, text};
    BSTR copy = found.Copy();
    ASSERT_NE(nullptr, copy);
    EXPECT_NE(static_cast<BSTR>(text), copy);
    EXPECT_EQ(std::wstring(L"a\0b", 3), std::wstring(copy, ::SysStringLen(copy)));
    ::SysFreeString(copy);
}

TEST(FoundValue, CopyOfTheEmptyTextIsAnEmptyBstrNotNull)
{
    const XFoundValue found{true, nullptr};
    BSTR copy = found.Copy();
    ASSERT_NE(nullptr, copy);
    EXPECT_EQ(0u, ::SysStringLen(copy));
    ::SysFreeString(copy);
}
