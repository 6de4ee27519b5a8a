// Name order in the IO layers: lists and stored value arrays come out in locale collation
// order, and names that collation calls equal are one value.
#include "iotesthelpers.h"
#include "xsessiondataio.h"
#include "xsessiondataionocache.h"

#include <gtest/gtest.h>

#include <algorithm>

using Calls = std::vector<std::string>;

namespace
{
// "f" and U+00E9, "a-c" and "ab": collation and code points order them differently.
const std::vector<std::string> kCollationOrder = {"ab=1", "ac=2", "a-c=3", "e=4", "?=5", "f=6"};
} // namespace

TEST(IOCollation, CachedListComesOutInCollationOrder)
{
    StorageRef storage;
    storage->SetRecords(L"k", {{L"f", L"6"}, {L"\u00e9", L"5"}, {L"a-c", L"3"}, {L"e", L"4"}, {L"ac", L"2"},
                               {L"ab", L"1"}});
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIO>(storage.Get());
    const ListResult list = List(io.Get(), L"k");
    EXPECT_EQ(S_OK, list.hr);
    EXPECT_EQ(kCollationOrder, list.records);
    std::vector<std::string> byCodePoint = {"ab", "ac", "a-c", "e", "\xe9", "f"};
    EXPECT_FALSE(std::is_sorted(byCodePoint.begin(), byCodePoint.end()));
}

TEST(IOCollation, UncachedStoreArrayComesOutInCollationOrder)
{
    StorageRef storage;
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIONoCache>(storage.Get());
    ValueRecords records{{L"f", L"6"}, {L"\u00e9", L"5"}, {L"a-c", L"3"}, {L"e", L"4"}, {L"ac", L"2"}, {L"ab", L"1"}};
    EXPECT_EQ(S_OK, io->WriteStringList(XWQComBSTR(L"k"), records.Count(), records.Data()));
    EXPECT_EQ((Calls{"StoreData(k|6|ab=1;ac=2;a-c=3;e=4;?=5;f=6)"}), storage->Calls());
}

TEST(IOCollation, CollationEqualNamesAreOneCachedValue)
{
    StorageRef storage;
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIO>(storage.Get());
    ASSERT_EQ(S_OK, io->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"ss"), XWQComBSTR(L"first")));
    // U+00DF is collation-equal to "ss": the same entry answers and is overwritten.
    const ReadResult read = Read(io.Get(), L"k", L"\u00df");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ(L"first", read.value);
    ASSERT_EQ(S_OK, io->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"\u00df"), XWQComBSTR(L"second")));
    const ListResult list = List(io.Get(), L"k");
    EXPECT_EQ((std::vector<std::string>{"ss=second"}), list.records);
    // Both spellings read the overwritten value.
    EXPECT_EQ(L"second", Read(io.Get(), L"k", L"ss").value);
    EXPECT_EQ(L"second", Read(io.Get(), L"k", L"\u00df").value);
    EXPECT_EQ(0u, storage->CountCalls("ReadData"));
}

TEST(IOCollation, CollationEqualKeysAreOneCachedKey)
{
    StorageRef storage;
    XComPtr<IWQ_SessionDataIO> io = NewIO<XSessionDataIO>(storage.Get());
    ASSERT_EQ(S_OK, io->WriteData(XWQComBSTR(L"caf\u00e9"), XWQComBSTR(L"n"), XWQComBSTR(L"v")));
    const ReadResult read = Read(io.Get(), L"cafe\u0301", L"n");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ(L"v", read.value);
    EXPECT_EQ(0u, storage->CountCalls("ReadData"));
}
