// Typed values at the manager's boundary: VARIANT to stored text on writes, text to VARIANT on
// reads, with the conversion's own results.
#include "managerfixture.h"

#include <cmath>

namespace
{
class ManagerValueTest : public ManagerTest
{
protected:
    void SetUp() override
    {
        ManagerTest::SetUp();
        io = Bind(3);
    }

    // Writes value and returns the HRESULT and the text the IO object received.
    HRESULT Write(const VARIANT& value, std::wstring* text = nullptr)
    {
        const HRESULT hr = mng->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), value, Cat(3));
        if (text)
            *text = io->Values()[L"k"][L"v"];
        return hr;
    }

    HRESULT Read(const wchar_t* stored, VARTYPE type, XVariant& out)
    {
        io->SetValue(L"k", L"v", stored);
        return mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), type, &out, Cat(3));
    }

    RecordingIO* io = nullptr;
};
} // namespace

TEST_F(ManagerValueTest, WritesBstrAsItIs)
{
    XVariant v;
    SetBstr(v, L"plain text");
    std::wstring text;
    EXPECT_EQ(S_OK, Write(v.Get(), &text));
    EXPECT_EQ(L"plain text", text);
}

TEST_F(ManagerValueTest, WritesIntegersAsDecimalText)
{
    XVariant v;
    v.Get().vt = VT_I2;
    v.Get().iVal = -7;
    std::wstring text;
    EXPECT_EQ(S_OK, Write(v.Get(), &text));
    EXPECT_EQ(L"-7", text);
    v.Get().vt = VT_I4;
    v.Get().lVal = 123456;
    EXPECT_EQ(S_OK, Write(v.Get(), &text));
    EXPECT_EQ(L"123456", text);
    v.Get().vt = VT_UI4;
    v.Get().ulVal = 4000000000u;
    EXPECT_EQ(S_OK, Write(v.Get(), &text));
    EXPECT_EQ(L"4000000000", text);
}

TEST_F(ManagerValueTest, WritesDoubleAndCurrencyInTheLocaleFormat)
{
    XVariant v;
    v.Get().vt = VT_R8;
    v.Get().dblVal = 2.5;
    std::wstring text;
    EXPECT_EQ(S_OK, Write(v.Get(), &text));
    EXPECT_EQ(L"2.5", text);
    v.Get().vt = VT_CY;
    v.Get().cyVal.int64 = 15000;  // 1.5
    EXPECT_EQ(S_OK, Write(v.Get(), &text));
    EXPECT_EQ(L"1.5", text);
}

TEST_F(ManagerValueTest, WritesBooleanAsNumericTextWithoutAlphaFlag)
{
    XVariant v;
    v.Get().vt = VT_BOOL;
    v.Get().boolVal = VARIANT_TRUE;
    std::wstring text;
    EXPECT_EQ(S_OK, Write(v.Get(), &text));
    EXPECT_EQ(L"-1", text);
    v.Get().boolVal = VARIANT_FALSE;
    EXPECT_EQ(S_OK, Write(v.Get(), &text));
    EXPECT_EQ(L"0", text);
}

TEST_F(ManagerValueTest, WritesDateAsTextThatReadsBackAsTheSameDate)
{
    XVariant v;
    v.Get().vt = VT_DATE;
    v.Get().date = 45000.5;  // 15 March 2023, 12:00
    std::wstring text;
    EXPECT_EQ(S_OK, Write(v.Get(), &text));
    EXPECT_FALSE(text.empty());
    XVariant back;
    EXPECT_EQ(S_OK, Read(text.c_str(), VT_DATE, back));
    EXPECT_EQ(VT_DATE, back.Get().vt);
    EXPECT_DOUBLE_EQ(45000.5, back.Get().date);
}

TEST_F(ManagerValueTest, WritesEmptyAsEmptyString)
{
    XVariant v;
    std::wstring text = L"not written";
    EXPECT_EQ(S_OK, Write(v.Get(), &text));
    EXPECT_EQ(L"", text);
    EXPECT_EQ(1u, io->CountCalls("WriteData(k,v,)"));
}

TEST_F(ManagerValueTest, NullUnknownAndArrayValuesAreInvalidArguments)
{
    XVariant null;
    null.Get().vt = VT_NULL;
    EXPECT_EQ(E_INVALIDARG, Write(null.Get()));

    XVariant unknown;
    unknown.Get().vt = VT_UNKNOWN;
    unknown.Get().punkVal = static_cast<IUnknown*>(static_cast<IWQ_SessionDataIO*>(RecordingIO::Create()));
    EXPECT_EQ(E_INVALIDARG, Write(unknown.Get()));

    XVariant array;
    SAFEARRAYBOUND bound{3, 0};
    array.Get().vt = VT_ARRAY | VT_I4;
    array.Get().parray = ::SafeArrayCreate(VT_I4, 1, &bound);
    EXPECT_EQ(E_INVALIDARG, Write(array.Get()));
    EXPECT_EQ(0u, io->CountCalls("WriteData"));
}

TEST_F(ManagerValueTest, BadValueIsInvalidArgumentEvenForAnUnboundCategory)
{
    XVariant null;
    null.Get().vt = VT_NULL;
    EXPECT_EQ(E_INVALIDARG, mng->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), null.Get(), Cat(9)));
    EXPECT_EQ(E_INVALIDARG, mng->WriteObjectData(nullptr, XWQComBSTR(L"k"), XWQComBSTR(L"v"), null.Get(), Cat(9)));
    XVariant good;
    SetBstr(good, L"x");
    EXPECT_EQ(S_FALSE, mng->WriteData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), good.Get(), Cat(9)));
}

TEST_F(ManagerValueTest, TheCallersValueIsNotChanged)
{
    XVariant v;
    v.Get().vt = VT_I4;
    v.Get().lVal = 5;
    EXPECT_EQ(S_OK, Write(v.Get()));
    EXPECT_EQ(VT_I4, v.Get().vt);
    EXPECT_EQ(5, v.Get().lVal);
}

TEST_F(ManagerValueTest, ReadsTextAsBstrUnchanged)
{
    XVariant out;
    EXPECT_EQ(S_OK, Read(L"  Mixed Text ", VT_BSTR, out));
    EXPECT_EQ(VT_BSTR, out.Get().vt);
    EXPECT_STREQ(L"  Mixed Text ", out.Get().bstrVal);
}

TEST_F(ManagerValueTest, ReadsNumbersIntoTheRequestedType)
{
    XVariant i2, i4, ui4, r8, cy;
    EXPECT_EQ(S_OK, Read(L"-12", VT_I2, i2));
    EXPECT_EQ(VT_I2, i2.Get().vt);
    EXPECT_EQ(-12, i2.Get().iVal);
    EXPECT_EQ(S_OK, Read(L"70000", VT_I4, i4));
    EXPECT_EQ(70000, i4.Get().lVal);
    EXPECT_EQ(S_OK, Read(L"4000000000", VT_UI4, ui4));
    EXPECT_EQ(4000000000u, ui4.Get().ulVal);
    EXPECT_EQ(S_OK, Read(L"2.25", VT_R8, r8));
    EXPECT_DOUBLE_EQ(2.25, r8.Get().dblVal);
    EXPECT_EQ(S_OK, Read(L"1.5", VT_CY, cy));
    EXPECT_EQ(15000, cy.Get().cyVal.int64);
}

TEST_F(ManagerValueTest, ReadsBooleans)
{
    XVariant t, f, word;
    EXPECT_EQ(S_OK, Read(L"-1", VT_BOOL, t));
    EXPECT_EQ(VARIANT_TRUE, t.Get().boolVal);
    EXPECT_EQ(S_OK, Read(L"0", VT_BOOL, f));
    EXPECT_EQ(VARIANT_FALSE, f.Get().boolVal);
    EXPECT_EQ(S_OK, Read(L"True", VT_BOOL, word));
    EXPECT_EQ(VARIANT_TRUE, word.Get().boolVal);
}

TEST_F(ManagerValueTest, ReadConversionFailuresReturnTheConversionsResult)
{
    XVariant out;
    out.Get().vt = VT_I4;
    out.Get().lVal = 99;
    EXPECT_EQ(DISP_E_TYPEMISMATCH, Read(L"abc", VT_I4, out));
    EXPECT_EQ(DISP_E_OVERFLOW, Read(L"70000", VT_I2, out));
    EXPECT_EQ(DISP_E_TYPEMISMATCH, Read(L"abc", VT_DATE, out));
    // On failure the caller's VARIANT is not touched.
    EXPECT_EQ(VT_I4, out.Get().vt);
    EXPECT_EQ(99, out.Get().lVal);
}

TEST_F(ManagerValueTest, ReadIntoEmptyNullUnknownAndArrayTypes)
{
    XVariant empty, null, unknown, array;
    EXPECT_EQ(S_OK, Read(L"x", VT_EMPTY, empty));
    EXPECT_EQ(VT_EMPTY, empty.Get().vt);
    EXPECT_EQ(S_OK, Read(L"x", VT_NULL, null));
    EXPECT_EQ(VT_NULL, null.Get().vt);
    EXPECT_EQ(DISP_E_TYPEMISMATCH, Read(L"x", VT_UNKNOWN, unknown));
    EXPECT_EQ(VT_EMPTY, unknown.Get().vt);
    EXPECT_EQ(DISP_E_TYPEMISMATCH, Read(L"x", VT_ARRAY | VT_I4, array));
    EXPECT_EQ(VT_EMPTY, array.Get().vt);
}

TEST_F(ManagerValueTest, ReadIntoANullVariantIsEPointer)
{
    io->SetValue(L"k", L"v", L"5");
    EXPECT_EQ(E_POINTER, mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), VT_I4, nullptr, Cat(3)));
}

TEST_F(ManagerValueTest, ReadClearsThePreviousContentOfTheOutput)
{
    {
        XVariant warmUp;
        EXPECT_EQ(S_OK, Read(L"7", VT_I4, warmUp));
    }
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    {
        XVariant out;
        SetBstr(out, L"previous content that must be freed");
        EXPECT_EQ(S_OK, Read(L"7", VT_I4, out));
        EXPECT_EQ(VT_I4, out.Get().vt);
        EXPECT_EQ(7, out.Get().lVal);
    }
    EXPECT_EQ(0u, spy.Outstanding());
}

TEST_F(ManagerValueTest, GetDataVBAlwaysAnswersText)
{
    XVariant out;
    io->SetValue(L"k", L"v", L"42");
    EXPECT_EQ(S_OK, mng->GetDataVB(XWQComBSTR(L"k"), XWQComBSTR(L"v"), Cat(3), &out));
    EXPECT_EQ(VT_BSTR, out.Get().vt);
    EXPECT_STREQ(L"42", out.Get().bstrVal);
}
