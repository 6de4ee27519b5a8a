#include "XWQComBSTR.h"

#include <comdef.h>
#include <gtest/gtest.h>

TEST(XWQComBSTR, NullAndEmptyBehaveAlike)
{
    XWQComBSTR none;
    XWQComBSTR empty(L"");
    XWQComBSTR fromNull(static_cast<const wchar_t*>(nullptr));
    EXPECT_TRUE(none.IsEmpty());
    EXPECT_TRUE(empty.IsEmpty());
    EXPECT_TRUE(fromNull.IsEmpty());
    EXPECT_EQ(0u, none.Length());
    EXPECT_TRUE(none == empty);
    EXPECT_STREQ(L"", none.c_str());
    BSTR copy = none.Copy();
    ASSERT_NE(nullptr, copy);
    EXPECT_EQ(0u, ::SysStringLen(copy));
    ::SysFreeString(copy);
}

TEST(XWQComBSTR, ConstructsFromNarrowAndWideText)
{
    XWQComBSTR narrow("Users/Alice");
    XWQComBSTR wide(L"Users/Alice");
    EXPECT_TRUE(narrow == wide);
    EXPECT_EQ(11u, narrow.Length());
}

TEST(XWQComBSTR, ToLowerAndToUpperChangeInPlace)
{
    XWQComBSTR text(L"Users\\MixedCase ÄÖ");
    text.ToLower();
    EXPECT_TRUE(text == L"users\\mixedcase äö");
    text.ToUpper();
    EXPECT_TRUE(text == L"USERS\\MIXEDCASE ÄÖ");
}

TEST(XWQComBSTR, FindReportsPositionOrMinusOne)
{
    XWQComBSTR text(L"a/b/c");
    EXPECT_EQ(1, text.Find(L"/"));
    EXPECT_EQ(3, text.Find(L"/", 2));
    EXPECT_EQ(-1, text.Find(L"x"));
    EXPECT_EQ(3, text.Find(L'/', 2));
    EXPECT_EQ(-1, XWQComBSTR().Find(L"a"));
}

TEST(XWQComBSTR, ReplaceCountsEveryOccurrence)
{
    XWQComBSTR text(L"a\\b\\c");
    EXPECT_EQ(2, text.Replace(L"\\", L"/"));
    EXPECT_TRUE(text == L"a/b/c");
    EXPECT_EQ(0, text.Replace(L"\\", L"/"));
    XWQComBSTR grow(L"aa");
    EXPECT_EQ(2, grow.Replace(L"a", L"aa"));
    EXPECT_TRUE(grow == L"aaaa");
}

TEST(XWQComBSTR, MidClampsToTheText)
{
    XWQComBSTR text(L"abcdef");
    EXPECT_TRUE(text.Mid(2, 3) == L"cde");
    EXPECT_TRUE(text.Mid(4) == L"ef");
    EXPECT_TRUE(text.Mid(4, 100) == L"ef");
    EXPECT_TRUE(text.Mid(10).IsEmpty());
}

TEST(XWQComBSTR, AppendAndConcatenation)
{
    XWQComBSTR text(L"key");
    text.Append(L"/").Append(XWQComBSTR(L"value"));
    EXPECT_TRUE(text == L"key/value");
    text.Append(text);
    EXPECT_TRUE(text == L"key/valuekey/value");
    EXPECT_TRUE(XWQComBSTR(L"a") + L"b" == L"ab");
    EXPECT_TRUE(L"a" + XWQComBSTR(L"b") == L"ab");
    EXPECT_TRUE(XWQComBSTR(L"a") + XWQComBSTR() == L"a");
}

TEST(XWQComBSTR, ComparisonIsOrdinal)
{
    EXPECT_TRUE(XWQComBSTR(L"B") < XWQComBSTR(L"a"));
    EXPECT_FALSE(XWQComBSTR(L"a") == XWQComBSTR(L"A"));
    EXPECT_EQ(0, XWQComBSTR(L"a").CompareNoCase(L"A"));
    EXPECT_TRUE(XWQComBSTR(L"a") != XWQComBSTR(L"b"));
}

TEST(XWQComBSTR, CopyGivesAnIndependentString)
{
    XWQComBSTR text(L"abc");
    BSTR copy = text.Copy();
    ASSERT_NE(static_cast<BSTR>(text), copy);
    EXPECT_STREQ(L"abc", copy);
    EXPECT_EQ(3u, ::SysStringLen(copy));
    ::SysFreeString(copy);
}

TEST(XWQComBSTR, EmbeddedNullsKeepTheirLength)
{
    const wchar_t raw[] = {L'a', L'\0', L'b'};
    XWQComBSTR text(raw, 3);
    EXPECT_EQ(3u, text.Length());
    XWQComBSTR copy(text);
    EXPECT_EQ(3u, copy.Length());
    EXPECT_TRUE(copy == text);
}

TEST(XWQComBSTR, AttachDetachAndOutAddress)
{
    XWQComBSTR text;
    text.Attach(::SysAllocString(L"owned"));
    EXPECT_TRUE(text == L"owned");
    BSTR raw = text.Detach();
    EXPECT_TRUE(text.IsEmpty());
    ::SysFreeString(raw);
    XWQComBSTR out(L"old");
    BSTR* address = &out;
    EXPECT_EQ(nullptr, *address);
    *address = ::SysAllocString(L"new");
    EXPECT_TRUE(out == L"new");
}
