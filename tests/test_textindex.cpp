// XTextIndex: the flat exact-text hash index under the IO layers' tables.
#include "xtextindex.h"

#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <random>
#include <string>

namespace
{
using Index = XTextIndex<int>;

const int* FindIn(const Index& index, const std::wstring& text)
{
    return index.Find(text, Index::HashOf(text), [](const int&) { return nullptr; });
}
} // namespace

TEST(TextIndex, FindsWhatWasInsertedAndNothingElse)
{
    std::deque<std::wstring> texts;
    Index index;
    for (int i = 0; i < 100; ++i)
    {
        texts.push_back(L"name" + std::to_wstring(i));
        index.Insert(texts.back(), Index::HashOf(texts.back()), i, nullptr);
    }
    for (int i = 0; i < 100; ++i)
    {
        const int* found = FindIn(index, L"name" + std::to_wstring(i));
        ASSERT_NE(nullptr, found);
        EXPECT_EQ(i, *found);
    }
    EXPECT_EQ(nullptr, FindIn(index, L"name100"));
    EXPECT_EQ(nullptr, FindIn(index, L"Name1"));
    EXPECT_EQ(nullptr, FindIn(index, L""));
}

TEST(TextIndex, RandomInsertsAndErasesAgreeWithAMap)
{
    // Many erases inside long probe runs exercise the backward shift; growth re-places all.
    std::deque<std::wstring> texts;
    for (int i = 0; i < 3000; ++i)
        texts.push_back(std::to_wstring(i * 7919 % 3001));
    std::map<std::wstring, int> reference;
    Index index;
    std::mt19937 random(7);
    for (int step = 0; step < 20000; ++step)
    {
        const std::wstring& text = texts[random() % texts.size()];
        const uint32_t hash = Index::HashOf(text);
        if (reference.count(text))
        {
            index.Erase(text, hash);
            reference.erase(text);
        }
        else
        {
            index.Insert(text, hash, step, nullptr);
            reference[text] = step;
        }
        if (step % 1000 == 0)
        {
            for (const std::wstring& probe : texts)
            {
                const int* found = FindIn(index, probe);
                const auto expected = reference.find(probe);
                ASSERT_EQ(expected != reference.end(), found != nullptr) << step;
                if (found)
                {
                    ASSERT_EQ(expected->second, *found);
                }
            }
        }
    }
}

TEST(TextIndex, HintsAreKeptAndAnEmptyIndexFindsNothing)
{
    Index index;
    EXPECT_EQ(nullptr, FindIn(index, L"a"));
    index.Erase(L"a", Index::HashOf(L"a"));
    const std::wstring a = L"a";
    int target = 0;
    index.Insert(a, Index::HashOf(a), 1, nullptr);
    index.SetHint(a, Index::HashOf(a), &target);
    const void* prefetched = nullptr;
    EXPECT_NE(nullptr, index.Find(a, Index::HashOf(a), [&](const int&) {
        prefetched = &target;
        return prefetched;
    }));
    EXPECT_EQ(&target, prefetched);
    const void* hint = nullptr;
    EXPECT_NE(nullptr, index.Find(a, Index::HashOf(a), [](const int&) { return nullptr; }, &hint));
    EXPECT_EQ(&target, hint);
    index.SetHint(a, Index::HashOf(a), nullptr);
    EXPECT_NE(nullptr, index.Find(a, Index::HashOf(a), [](const int&) { return nullptr; }, &hint));
    EXPECT_EQ(nullptr, hint);
    index.Clear();
    EXPECT_EQ(nullptr, FindIn(index, a));
}

TEST(TextIndex, HashNeverMarksAnEmptySlot)
{
    for (int i = 0; i < 10000; ++i)
        ASSERT_NE(0u, Index::HashOf(std::to_wstring(i)));
}
