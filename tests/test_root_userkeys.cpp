// Per-user keys of the storage root: the user-profile prefix becomes the caller's own name on
// the way in, and back on the way out; other users' names are never shown.
#include "roottesthelpers.h"
#include "storagetesthelpers.h"
#include "xcomtypes.h"
#include "xuserkeys.h"

#include <gtest/gtest.h>

namespace
{
std::wstring Stored(const wchar_t* key, bool* same = nullptr)
{
    XWQComBSTR in(key);
    XWQComBSTR mapped;
    const BSTR out = XUserKeys::ToStorage(in, mapped);
    if (same)
        *same = out == static_cast<BSTR>(in);
    return std::wstring(out ? out : L"", ::SysStringLen(out));
}

XBstrArray NamesOf(const std::vector<std::wstring>& names)
{
    XBstrArray array = XNewCoTaskArray<XBstrArray>(static_cast<ULONG>(names.size()));
    for (ULONG i = 0; i < names.size(); ++i)
        array[i] = XNewBstr(names[i].data(), names[i].size());
    return array;
}

std::vector<std::wstring> Texts(const XBstrArray& array)
{
    std::vector<std::wstring> out;
    for (ULONG i = 0; i < array.Count(); ++i)
        out.emplace_back(array[i], ::SysStringLen(array[i]));
    return out;
}
} // namespace

TEST(RootUserKeys, TheUserProfilePrefixBecomesTheCallersName)
{
    CallerIs caller(L"S-1-5-21-7");
    const struct
    {
        const wchar_t* key;
        const wchar_t* stored;
    } cases[] = {
        {L"<[HKCU]>/Suite/App", L"<[user:S-1-5-21-7]>/Suite/App"},
        {L"<[hkcu]>\\Suite\\App", L"<[user:S-1-5-21-7]>\\Suite\\App"},
        {L"<[HKCU]>", L"<[user:S-1-5-21-7]>"},
        {L"/<[HKCU]>/a", L"<[user:S-1-5-21-7]>/a"},
        {L"\\\\<[HKCU]>", L"<[user:S-1-5-21-7]>"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.stored, Stored(c.key)) << Utf8(c.key);
}

TEST(RootUserKeys, OtherKeysPassUnchangedAndUncopied)
{
    CallerIs caller(L"S-1-5-21-7");
    for (const wchar_t* key : {L"Suite/App", L"<[HKCU]>x/a", L"a/<[HKCU]>/b", L"", L"<[HKCU", L"HKCU"})
    {
        bool same = false;
        EXPECT_EQ(key, Stored(key, &same)) << Utf8(key);
        EXPECT_TRUE(same) << Utf8(key);
    }
    XWQComBSTR mapped;
    EXPECT_EQ(nullptr, XUserKeys::ToStorage(nullptr, mapped));
}

TEST(RootUserKeys, ListingsShowTheCallersOwnNamesAsThePrefixAndHideOtherUsers)
{
    CallerIs caller(L"S-1-5-21-7");
    XBstrArray names = NamesOf({L"<[user:S-1-5-21-7]>/a", L"<[user:S-1-5-21-9]>/b", L"shared/c",
                                L"<[user:S-1-5-21-7]>", L"<[user:S-1-5-21-77]>/d"});
    XUserKeys::ToClient(names);
    EXPECT_EQ((std::vector<std::wstring>{L"<[HKCU]>/a", L"shared/c", L"<[HKCU]>"}), Texts(names));
}

TEST(RootUserKeys, KeyRecordsOfOtherUsersAreLeftOutWithTheirValues)
{
    CallerIs caller(L"S-1-5-21-7");
    XKeyValueArray records = XNewCoTaskArray<XKeyValueArray>(2);
    const std::wstring names[] = {L"<[user:S-1-5-21-9]>/x", L"<[user:S-1-5-21-7]>/y"};
    for (ULONG i = 0; i < 2; ++i)
    {
        records[i].bstrKeyName = XNewBstr(names[i].data(), names[i].size());
        XValueArray values = XNewCoTaskArray<XValueArray>(1);
        values[0].bstrValueName = XNewBstr(L"n", 1);
        values[0].bstrValue = XNewBstr(L"v", 1);
        values.Release(&records[i].ulCount, &records[i].pSessionDataValue);
    }
    XUserKeys::ToClient(records);
    ASSERT_EQ(1u, records.Count());
    EXPECT_STREQ(L"<[HKCU]>/y", records[0].bstrKeyName);
    EXPECT_EQ(1u, records[0].ulCount);
}
