// The boundary of a COM method: what each kind of exception becomes, the error info it leaves
// and the log book entry it writes.
#include "testenv.h"
#include "xsdmerror.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace
{
const GUID kGuid = {0x11111111, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}};

template <class Body>
HRESULT RunBoundary(Body&& body)
{
    return XSdmBoundary("xsessiondataio", 321, XSDM_FUNCTION_NAME(L"XSessionDataIO::Probe"), kGuid, body);
}

bool LogHas(const std::string& a, const std::string& b = std::string())
{
    for (const std::string& line : ReadLogBook())
        if (line.find(a) != std::string::npos && line.find(b) != std::string::npos)
            return true;
    return false;
}
} // namespace

TEST(ErrorBoundary, NormalEndReturnsTheBodysResult)
{
    EXPECT_EQ(S_FALSE, RunBoundary([] { return S_FALSE; }));
    EXPECT_EQ(S_OK, RunBoundary([] { return S_OK; }));
    EXPECT_TRUE(ReadLogBook().empty());
}

TEST(ErrorBoundary, ComErrorReturnsItsResultAndLeavesErrorInfoAlone)
{
    SetMarkerErrorInfo(L"left alone");
    EXPECT_EQ(E_FAIL, RunBoundary([]() -> HRESULT { throw _com_error(E_FAIL); }));
    const ErrorInfoText info = TakeErrorInfo();
    ASSERT_TRUE(info.present);
    EXPECT_EQ(L"left alone", info.description);
    EXPECT_TRUE(ReadLogBook().empty());
}

TEST(ErrorBoundary, BadAllocGivesTheStdExceptionResultWithSeverityEight)
{
    const HRESULT hr = RunBoundary([]() -> HRESULT { throw std::bad_alloc(); });
    EXPECT_EQ(XWQError::ResultOf(std::bad_alloc()), hr);
    EXPECT_EQ(E_OUTOFMEMORY, hr);
    const ErrorInfoText info = TakeErrorInfo();
    ASSERT_TRUE(info.present);
    EXPECT_EQ(L"WQSessionDataMng", info.source);
    EXPECT_TRUE(::IsEqualGUID(kGuid, info.guid));
    EXPECT_NE(std::wstring::npos, info.description.find(L"bad_alloc"));
    EXPECT_TRUE(LogHas("sev=8", "hr=0x8007000E"));
    EXPECT_TRUE(LogHas("XSessionDataIO::Probe", "xsessiondataio:321"));
}

TEST(ErrorBoundary, OtherStdExceptionsGiveEFailWithTheirText)
{
    EXPECT_EQ(E_FAIL, RunBoundary([]() -> HRESULT { throw std::runtime_error("disk on fire"); }));
    const ErrorInfoText info = TakeErrorInfo();
    EXPECT_EQ(L"disk on fire", info.description);
    EXPECT_TRUE(LogHas("hr=0x80004005", "disk on fire"));
}

TEST(ErrorBoundary, WrappedExceptionGivesItsOwnResultAndMessage)
{
    const HRESULT hr = RunBoundary([]() -> HRESULT {
        XSdmThrow(XSdmLocation("xsessiondatastoragereg", 77, XSDM_FUNCTION_NAME(L"XSessionDataStorageReg::Probe")),
                  0x8004080D, XWQComBSTR(L"storage not initialized"));
    });
    EXPECT_EQ(static_cast<HRESULT>(0x8004080D), hr);
    const ErrorInfoText info = TakeErrorInfo();
    EXPECT_EQ(L"storage not initialized", info.description);
    EXPECT_TRUE(::IsEqualGUID(kGuid, info.guid));
    EXPECT_TRUE(LogHas("xsessiondatastoragereg:77", "hr=0x8004080D"));
}

TEST(ErrorBoundary, UnknownExceptionsGiveEUnexpected)
{
    EXPECT_EQ(E_UNEXPECTED, RunBoundary([]() -> HRESULT { throw 42; }));
    const ErrorInfoText info = TakeErrorInfo();
    ASSERT_TRUE(info.present);
    EXPECT_NE(std::wstring::npos, info.description.find(L"unknown exception"));
    EXPECT_TRUE(LogHas("hr=0x8000FFFF", "XSessionDataIO::Probe"));
}

TEST(ErrorBoundary, NullRequiredPointerYieldsTheCheckPtrResult)
{
    const WQErrorLocation where = XSdmLocation("xsessiondatamng", 5, XSDM_FUNCTION_NAME(L"XSessionDataMng::Probe"));
    int value = 0;
    EXPECT_EQ(S_OK, XWQError::CheckPtr(where, &value, XWQComBSTR()));
    EXPECT_FALSE(TakeErrorInfo().present);
    EXPECT_EQ(E_POINTER, XWQError::CheckPtr(where, nullptr, XWQComBSTR()));
    EXPECT_TRUE(TakeErrorInfo().present);
    EXPECT_EQ(E_POINTER, RunBoundary([&]() -> HRESULT {
                  XWQError::CheckPtr_ThrowExcep(where, nullptr, XWQComBSTR(L"list is NULL"));
                  return S_OK;
              }));
    EXPECT_EQ(L"list is NULL", TakeErrorInfo().description);
}

TEST(ErrorBoundary, FunctionNamesAreMadeOncePerProcess)
{
    const XWQComBSTR& first = XSDM_FUNCTION_NAME(L"XSessionDataMng::Once");
    const XWQComBSTR* address = nullptr;
    for (int i = 0; i < 2; ++i)
    {
        const XWQComBSTR& name = [] () -> const XWQComBSTR& { return XSDM_FUNCTION_NAME(L"XSessionDataMng::Same"); }();
        if (address)
        {
            EXPECT_EQ(address, &name);
        }
        address = &name;
    }
    EXPECT_TRUE(first == L"XSessionDataMng::Once");
    EXPECT_TRUE(XSdmModuleName() == L"WQSessionDataMng");
    EXPECT_TRUE(XSdmRawModuleName() == L"WQSessionDataMng");
}
