// The SQL storage on each engine (SQLite, PostgreSQL): what it keeps, how keys compare and list,
// deletion of subtrees, keys with wildcard characters, and the values the registry could not hold.
#include "sqltesthelpers.h"
#include "testenv.h"
#include "xcomtypes.h"
#include "xsessiondatastoragesql.h"

#include <gtest/gtest.h>

namespace
{
class SqlStorageTest : public ::testing::TestWithParam<SqlEngine>
{
protected:
    void SetUp() override
    {
        storage = NewSqlStorage(database.Connection());
        ASSERT_TRUE(storage);
    }
    IWQ_SessionDataStorage* Plain() { return storage.Get(); }
    std::vector<std::wstring> SubKeys(const wchar_t* key, ULONG recursive)
    {
        return ReadSubKeys(Plain(), key, recursive).names;
    }

    TestSqlDatabase database{GetParam()};
    XComPtr<IWQ_SessionDataStorageEx> storage;
};
} // namespace

INSTANTIATE_TEST_SUITE_P(Engines, SqlStorageTest, AllSqlEngines(), SqlEngineName);

TEST_P(SqlStorageTest, AStoredListIsReadBackSortedByName)
{
    ASSERT_EQ(S_OK, StorePairs(Plain(), L"Users/A", {{L"width", L"1280"}, {L"height", L"600"}, {L"Zoom", L"2"}}));
    const PairsResult read = ReadPairs(Plain(), L"Users/A");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ((Pairs{{L"Zoom", L"2"}, {L"height", L"600"}, {L"width", L"1280"}}), read.pairs);
}

TEST_P(SqlStorageTest, NothingThereIsSFalseWithACountOfZero)
{
    const PairsResult read = ReadPairs(Plain(), L"missing");
    EXPECT_EQ(S_FALSE, read.hr);
    EXPECT_EQ(0u, read.count);
    EXPECT_EQ(S_FALSE, ReadSubKeys(Plain(), L"missing", 0).hr);
    EXPECT_EQ(S_FALSE, storage->DeleteKey(XWQComBSTR(L"missing")));
    EXPECT_EQ(S_FALSE, StorePairs(Plain(), L"k", {}));
}

TEST_P(SqlStorageTest, ALaterWriteReplacesAValueAndTheLaterOfTwoEqualNamesWins)
{
    ASSERT_EQ(S_OK, StorePairs(Plain(), L"k", {{L"n", L"1"}, {L"m", L"keep"}}));
    ASSERT_EQ(S_OK, StorePairs(Plain(), L"k", {{L"n", L"first"}, {L"n", L"second"}}));
    EXPECT_EQ((Pairs{{L"m", L"keep"}, {L"n", L"second"}}), ReadPairs(Plain(), L"k").pairs);
}

TEST_P(SqlStorageTest, KeysCompareWithEitherSeparatorAndWithoutRegardToCase)
{
    ASSERT_EQ(S_OK, StorePairs(Plain(), L"Suite/App/Users\\A", {{L"v", L"1"}}));
    EXPECT_EQ((Pairs{{L"v", L"1"}}), ReadPairs(Plain(), L"suite/app/users/a").pairs);
    EXPECT_EQ((Pairs{{L"v", L"1"}}), ReadPairs(Plain(), L"SUITE\\APP\\USERS\\A\\").pairs);
    // Listed in the spelling that first made each key.
    EXPECT_EQ((std::vector<std::wstring>{L"Suite/App/Users", L"Suite/App/Users/A"}), SubKeys(L"suite\\app", 1));
    EXPECT_EQ(S_OK, storage->DeleteKey(XWQComBSTR(L"SUITE/app/users/a")));
    EXPECT_EQ(S_FALSE, ReadPairs(Plain(), L"Suite/App/Users/A").hr);
}

TEST_P(SqlStorageTest, StoringCreatesTheKeyAndEveryKeyAboveItAsTheRegistryDoes)
{
    ASSERT_EQ(S_OK, StorePairs(Plain(), L"a/b/c", {{L"v", L"1"}}));
    EXPECT_EQ(std::vector<std::wstring>{L"a"}, SubKeys(L"", 0));
    EXPECT_EQ(std::vector<std::wstring>{L"a/b"}, SubKeys(L"a", 0));
    const NamesResult leaf = ReadSubKeys(Plain(), L"a/b/c", 0);
    EXPECT_EQ(S_OK, leaf.hr);
    EXPECT_EQ(0u, leaf.count);
    EXPECT_EQ(S_FALSE, ReadPairs(Plain(), L"a/b").hr);
}

TEST_P(SqlStorageTest, RecursiveListingIsDepthFirstPreOrderWithSiblingsByName)
{
    for (const wchar_t* key : {L"b", L"a-x", L"a/b", L"a/a/z", L"a", L"a/b/c", L"c/d"})
        ASSERT_EQ(S_OK, StorePairs(Plain(), key, {{L"v", L"1"}}));
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"a/a", L"a/a/z", L"a/b", L"a/b/c", L"a-x", L"b", L"c", L"c/d"}),
              SubKeys(L"", 1));
    EXPECT_EQ((std::vector<std::wstring>{L"a/a", L"a/a/z", L"a/b", L"a/b/c"}), SubKeys(L"a", 1));
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"a-x", L"b", L"c"}), SubKeys(L"", 0));
}

TEST_P(SqlStorageTest, DeleteKeyRemovesTheKeyWithItsWholeSubtreeAndNothingElse)
{
    for (const wchar_t* key : {L"a", L"a/b", L"a/b/c", L"ab", L"a-b", L"b"})
        ASSERT_EQ(S_OK, StorePairs(Plain(), key, {{L"v", key}}));
    EXPECT_EQ(S_OK, storage->DeleteKey(XWQComBSTR(L"a")));
    for (const wchar_t* gone : {L"a", L"a/b", L"a/b/c"})
        EXPECT_EQ(S_FALSE, ReadPairs(Plain(), gone).hr) << Utf8(gone);
    for (const wchar_t* kept : {L"ab", L"a-b", L"b"})
        EXPECT_EQ((Pairs{{L"v", kept}}), ReadPairs(Plain(), kept).pairs) << Utf8(kept);
    EXPECT_EQ((std::vector<std::wstring>{L"a-b", L"ab", L"b"}), SubKeys(L"", 1));
}

TEST_P(SqlStorageTest, TheRootKeyCannotBeDeleted)
{
    ASSERT_EQ(S_OK, StorePairs(Plain(), L"k", {{L"v", L"1"}}));
    EXPECT_EQ(E_INVALIDARG, storage->DeleteKey(XWQComBSTR(L"")));
    EXPECT_EQ(L"the root key cannot be deleted", TakeErrorInfo().description);
    EXPECT_EQ(E_INVALIDARG, storage->DeleteKey(XWQComBSTR(L"/")));
    EXPECT_EQ(S_OK, ReadPairs(Plain(), L"k").hr);
}

TEST_P(SqlStorageTest, WildcardCharactersInKeysNeverWidenAListingOrADeletion)
{
    const std::vector<std::wstring> keys = {L"a%", L"a_", L"a\\b", L"ab", L"a'q", L"a\"q", L"a%/x", L"a_/y", L"aa/z"};
    for (const std::wstring& key : keys)
        ASSERT_EQ(S_OK, StorePairs(Plain(), key.c_str(), {{L"v", key}}));
    EXPECT_EQ(std::vector<std::wstring>{L"a%/x"}, SubKeys(L"a%", 1));
    EXPECT_EQ(std::vector<std::wstring>{L"a_/y"}, SubKeys(L"a_", 1));
    EXPECT_EQ(S_OK, storage->DeleteKey(XWQComBSTR(L"a_")));
    EXPECT_EQ(S_OK, storage->DeleteKey(XWQComBSTR(L"a%")));
    for (const wchar_t* kept : {L"ab", L"a'q", L"a\"q", L"aa/z"})
        EXPECT_EQ((Pairs{{L"v", kept}}), ReadPairs(Plain(), kept).pairs) << Utf8(kept);
    // "a\\b" is the key b below a.
    EXPECT_EQ((Pairs{{L"v", L"a\\b"}}), ReadPairs(Plain(), L"a/b").pairs);
}

TEST_P(SqlStorageTest, ValuesOfAnySizeAndCharacterComeBackExactly)
{
    std::wstring megabyte(1024 * 1024, L'x');
    std::wstring sixteen(16 * 1024 * 1024, L'y');
    const std::wstring emoji = L"\U0001F600 \u05E9\u05DC\u05D5\u05DD";
    const std::wstring quotes = L"a \"quoted\" \\back\\slash, {brace} 'single' %_";
    ASSERT_EQ(S_OK, StorePairs(Plain(), L"big", {{L"one", megabyte}, {L"sixteen", sixteen}}));
    ASSERT_EQ(S_OK, StorePairs(Plain(), L"odd", {{L"emoji", emoji}, {L"empty", L""}, {L"quotes", quotes}}));
    XValueArray read;
    ASSERT_EQ(S_OK, storage->ReadData(XWQComBSTR(L"big"), read.CountAddress(), read.ItemsAddress()));
    ASSERT_EQ(2u, read.Count());
    EXPECT_TRUE(std::wstring(read[0].bstrValue, ::SysStringLen(read[0].bstrValue)) == megabyte);
    EXPECT_TRUE(std::wstring(read[1].bstrValue, ::SysStringLen(read[1].bstrValue)) == sixteen);
    EXPECT_EQ((Pairs{{L"emoji", emoji}, {L"empty", L""}, {L"quotes", quotes}}), ReadPairs(Plain(), L"odd").pairs);
}

// SQLite keeps a NUL inside a value; PostgreSQL text cannot hold one, so the list is refused
// whole, with a message that names the value, and nothing of it is written.
TEST_P(SqlStorageTest, AValueWithANulIsKeptWhereTheEngineCanHoldItAndRefusedWholeWhereNot)
{
    const std::wstring withNul(L"a\0b", 3);
    ASSERT_EQ(S_OK, StorePairs(Plain(), L"odd", {{L"other", L"old"}}));
    const HRESULT hr = StorePairs(Plain(), L"odd", {{L"nul", withNul}, {L"other", L"new"}});
    if (GetParam() == SqlEngine::Sqlite)
    {
        ASSERT_EQ(S_OK, hr);
        XValueArray odd;
        ASSERT_EQ(S_OK, storage->ReadData(XWQComBSTR(L"odd"), odd.CountAddress(), odd.ItemsAddress()));
        ASSERT_EQ(2u, odd.Count());
        EXPECT_EQ(withNul, std::wstring(odd[0].bstrValue, ::SysStringLen(odd[0].bstrValue)));
        return;
    }
    EXPECT_EQ(E_INVALIDARG, hr);
    const std::wstring message = TakeErrorInfo().description;
    EXPECT_NE(std::wstring::npos, message.find(L"\"nul\"")) << Utf8(message.c_str());
    EXPECT_NE(std::wstring::npos, message.find(L"PostgreSQL")) << Utf8(message.c_str());
    EXPECT_EQ((Pairs{{L"other", L"old"}}), ReadPairs(Plain(), L"odd").pairs);
}

TEST_P(SqlStorageTest, AKeyOf300LevelsWithEmojiIsStoredListedAndDeleted)
{
    std::wstring key;
    for (int level = 0; level < 300; ++level)
        key += (level ? L"/" : L"") + std::wstring(L"\U0001F511") + std::to_wstring(level);
    ASSERT_EQ(S_OK, StorePairs(Plain(), key.c_str(), {{L"v", L"deep"}}));
    EXPECT_EQ((Pairs{{L"v", L"deep"}}), ReadPairs(Plain(), key.c_str()).pairs);
    EXPECT_EQ(300u, SubKeys(L"", 1).size());
    EXPECT_EQ(S_OK, storage->DeleteKey(XWQComBSTR(L"\U0001F5110")));
    EXPECT_TRUE(SubKeys(L"", 1).empty());
}

TEST_P(SqlStorageTest, KeysAndNamesWithANulAreRefusedBeforeAnythingIsWritten)
{
    ASSERT_EQ(S_OK, StorePairs(Plain(), L"p/n", {{L"v", L"old"}}));
    const std::wstring withNul(L"p/n\0zz", 6);
    PairRecords records(Pairs{{L"v", L"new"}});
    EXPECT_EQ(E_INVALIDARG,
              storage->StoreData(XWQComBSTR(withNul.c_str(), static_cast<UINT>(withNul.size())), records.Count(),
                                 records.Data()));
    EXPECT_EQ((Pairs{{L"v", L"old"}}), ReadPairs(Plain(), L"p/n").pairs);
}

TEST_P(SqlStorageTest, ReadAllDataGivesTheKeyAndEveryKeyBelowInPreOrder)
{
    ASSERT_EQ(S_OK, StorePairs(Plain(), L"Root", {{L"a", L"1"}}));
    ASSERT_EQ(S_OK, StorePairs(Plain(), L"Root/Child/Leaf", {{L"b", L"2"}}));
    const KeyRecordsResult all = ReadAll(Plain(), L"Root");
    EXPECT_EQ(S_OK, all.hr);
    ASSERT_EQ(3u, all.records.size());
    EXPECT_EQ(L"root", all.records[0].key);
    EXPECT_EQ((Pairs{{L"a", L"1"}}), all.records[0].pairs);
    EXPECT_EQ(L"Root/Child", all.records[1].key);
    EXPECT_EQ(0u, all.records[1].count);
    EXPECT_EQ(L"Root/Child/Leaf", all.records[2].key);
    EXPECT_EQ((Pairs{{L"b", L"2"}}), all.records[2].pairs);
}

TEST_P(SqlStorageTest, NullOutPointersArePointerFailures)
{
    tagSESSIONDATAVALUE* list = nullptr;
    ULONG count = 0;
    EXPECT_EQ(E_POINTER, storage->ReadData(XWQComBSTR(L"k"), nullptr, &list));
    EXPECT_EQ(E_POINTER, storage->ReadData(XWQComBSTR(L"k"), &count, nullptr));
    EXPECT_EQ(E_POINTER, storage->StoreData(XWQComBSTR(L"k"), 2, nullptr));
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataStorageSql, TakeErrorInfo().guid));
}

TEST_P(SqlStorageTest, ValuesSurviveTheStorageAndAreInTheDatabaseForAnyReader)
{
    ASSERT_EQ(S_OK, StorePairs(Plain(), L"Kept/Key", {{L"name", L"value"}}));
    storage.Reset();
    EXPECT_EQ(std::vector<std::string>{"|kept/key|name|value"},
              database.Rows("SELECT scope, key_norm, name, value FROM sdm_values"))
        << database.Error();
    EXPECT_EQ((std::vector<std::string>{"|kept|Kept|", "|kept/key|Kept/Key|kept"}),
              database.Rows("SELECT scope, key_norm, key_text, parent_norm FROM sdm_keys ORDER BY key_norm"));
}

TEST(SqlStorageSqlite, TheFileIsInWalModeAndIntact)
{
    TestDatabaseFile file;
    ASSERT_EQ(S_OK, StorePairs(NewSqlStorage(file.Connection()).Get(), L"Kept/Key", {{L"name", L"value"}}));
    RawSqlite raw(file.Path());
    EXPECT_EQ(std::vector<std::string>{"ok"}, raw.Rows("PRAGMA integrity_check"));
    EXPECT_EQ(std::vector<std::string>{"wal"}, raw.Rows("PRAGMA journal_mode"));
}
