// String encryption: round trip through DPAPI and Base64, and the failures.
#include "XSimpleCrypt.h"

#include <gtest/gtest.h>
#include <windows.h>

TEST(XSimpleCrypt, RoundTripForTheCurrentUser)
{
    long error = -1;
    const std::wstring text = L"P\u00e4ssw\u00f6rd with spaces";
    const std::wstring sealed = EncryptOneStringAndEncode2String(symDPAPI, false, text, error);
    ASSERT_EQ(0, error);
    EXPECT_NE(text, sealed);
    EXPECT_EQ(std::wstring::npos, sealed.find(L"\n"));
    error = -1;
    EXPECT_EQ(text, DecryptOnlyOneStringAndDecode2String(symDPAPI, false, sealed, error));
    EXPECT_EQ(0, error);
}

TEST(XSimpleCrypt, RoundTripForTheMachine)
{
    long error = -1;
    const std::wstring sealed = EncryptOneStringAndEncode2String(symDPAPI, true, L"machine", error);
    ASSERT_EQ(0, error);
    EXPECT_EQ(L"machine", DecryptOnlyOneStringAndDecode2String(symDPAPI, true, sealed, error));
}

TEST(XSimpleCrypt, PlainTextCannotBeDecrypted)
{
    long error = 0;
    EXPECT_TRUE(DecryptOnlyOneStringAndDecode2String(symDPAPI, false, L"not encrypted", error).empty());
    EXPECT_NE(0, error);
}

TEST(XSimpleCrypt, ValidBase64ThatIsNoBlobCannotBeDecrypted)
{
    long error = 0;
    EXPECT_TRUE(DecryptOnlyOneStringAndDecode2String(symDPAPI, false, L"aGVsbG8gd29ybGQ=", error).empty());
    EXPECT_NE(0, error);
}

TEST(XSimpleCrypt, EmptyInputAndUnknownSelectorFail)
{
    long error = 0;
    EXPECT_TRUE(DecryptOnlyOneStringAndDecode2String(symDPAPI, false, L"", error).empty());
    EXPECT_EQ(ERROR_INVALID_PARAMETER, error);
    error = 0;
    EXPECT_TRUE(EncryptOneStringAndEncode2String(static_cast<enSymAlgorithm>(7), false, L"x", error).empty());
    EXPECT_EQ(ERROR_INVALID_PARAMETER, error);
}

TEST(XSimpleCrypt, TamperedTextFails)
{
    long error = 0;
    std::wstring sealed = EncryptOneStringAndEncode2String(symDPAPI, false, L"value", error);
    ASSERT_GT(sealed.size(), 40u);
    sealed[30] = sealed[30] == L'A' ? L'B' : L'A';
    EXPECT_TRUE(DecryptOnlyOneStringAndDecode2String(symDPAPI, false, sealed, error).empty());
    EXPECT_NE(0, error);
}
