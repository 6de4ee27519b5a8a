// GetDataEncrypt: values stored encrypted are decrypted on read; others come back as stored.
#include "managerfixture.h"
#include "XSimpleCrypt.h"

TEST_F(ManagerTest, GetDataEncryptDecryptsAProtectedValue)
{
    long error = 0;
    const std::wstring stored = EncryptOneStringAndEncode2String(symDPAPI, false, L"s3cret", error);
    ASSERT_EQ(0, error);
    Bind(2)->SetValue(L"Db", L"Password", stored);
    XVariant value;
    EXPECT_EQ(S_OK, mng->GetDataEncrypt(XWQComBSTR(L"Db"), XWQComBSTR(L"Password"), VT_BSTR, &value, Cat(2)));
    EXPECT_STREQ(L"s3cret", value.Get().bstrVal);
    EXPECT_TRUE(ReadLogBook().empty());
}

TEST_F(ManagerTest, GetDataEncryptConvertsTheDecryptedText)
{
    long error = 0;
    Bind(2)->SetValue(L"Db", L"Port", EncryptOneStringAndEncode2String(symDPAPI, false, L"1521", error));
    XVariant value;
    EXPECT_EQ(S_OK, mng->GetDataEncrypt(XWQComBSTR(L"Db"), XWQComBSTR(L"Port"), VT_I4, &value, Cat(2)));
    EXPECT_EQ(VT_I4, value.Get().vt);
    EXPECT_EQ(1521, value.Get().lVal);
}

TEST_F(ManagerTest, GetDataEncryptReturnsUndecryptableTextAsStoredAndLogsOnce)
{
    Bind(2)->SetValue(L"Db", L"User", L"not encrypted");
    ClearLogBook();
    XVariant value;
    EXPECT_EQ(S_OK, mng->GetDataEncrypt(XWQComBSTR(L"Db"), XWQComBSTR(L"User"), VT_BSTR, &value, Cat(2)));
    EXPECT_STREQ(L"not encrypted", value.Get().bstrVal);
    const std::vector<std::string> lines = ReadLogBook();
    ASSERT_EQ(1u, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find("XSessionDataMngImpl::GetDataEncrypt"));
    EXPECT_NE(std::string::npos, lines[0].find("DecryptOnlyOneStringAndDecode2String failed to decrypt Db\\User"));
    EXPECT_NE(std::string::npos, lines[0].find("WQSessionDataMng"));
}

TEST_F(ManagerTest, GetDataEncryptWithKeyZeroWalksLikeGetData)
{
    long error = 0;
    Bind(1)->SetValue(L"k", L"v", EncryptOneStringAndEncode2String(symDPAPI, false, L"one", error));
    XVariant value;
    EXPECT_EQ(S_OK, mng->GetDataEncrypt(XWQComBSTR(L"k"), XWQComBSTR(L"v"), VT_BSTR, &value, Cat(0)));
    EXPECT_STREQ(L"one", value.Get().bstrVal);
    EXPECT_EQ(S_FALSE, mng->GetDataEncrypt(XWQComBSTR(L"k"), XWQComBSTR(L"missing"), VT_BSTR, &value, Cat(0)));
    EXPECT_TRUE(ReadLogBook().empty());
}
