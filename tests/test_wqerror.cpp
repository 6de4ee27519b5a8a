// The error library's operations: results, error info and log entries.
#include "testenv.h"
#include "XWQError.h"
#include "XWQExcepRefLogger.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace
{
const XWQComBSTR kModule(L"WQSessionDataMng");

WQErrorLocation Where(unsigned long line = 10)
{
    return WQErrorLocation("stdafx", line, kModule, XWQComBSTR(L"XTest::Run"));
}

size_t LogLinesWith(const std::string& text)
{
    size_t n = 0;
    for (const std::string& line : ReadLogBook())
        if (line.find(text) != std::string::npos)
            ++n;
    return n;
}
} // namespace

TEST(XWQError, SystemAndAppErrorsReturnTheGivenResultWithBothTexts)
{
    EXPECT_EQ(E_INVALIDARG, XWQError::SetComSystemError(Where(), E_INVALIDARG, XWQComBSTR(L"storage is NULL"),
                                                        XWQComBSTR(L"detail")));
    EXPECT_EQ(L"storage is NULL: detail", TakeErrorInfo().description);
    EXPECT_EQ(static_cast<HRESULT>(0x8004080D),
              XWQError::SetComAppError(Where(), 0x8004080D, XWQComBSTR(L"not initialized"), XWQComBSTR()));
    EXPECT_EQ(L"not initialized", TakeErrorInfo().description);
    EXPECT_EQ(1u, LogLinesWith("storage is NULL: detail"));
}

TEST(XWQError, ModuleFunctionLineFormCarriesTheGivenResult)
{
    EXPECT_EQ(E_POINTER, XWQError::SetComError(XWQComBSTR(L"Session data manager: XSessionDataIOExDB"),
                                               XWQComBSTR(L"XSessionDataIOExDB::GetData"), 88,
                                               XWQComBSTR(L"not connected"), E_POINTER));
    const ErrorInfoText info = TakeErrorInfo();
    EXPECT_EQ(L"Session data manager: XSessionDataIOExDB", info.source);
    EXPECT_EQ(L"not connected", info.description);
    EXPECT_EQ(1u, LogLinesWith("XSessionDataIOExDB::GetData"));
}

TEST(XWQError, HandleApiErrorMapsTheSystemCode)
{
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND),
              XWQError::HandleAPIError(kModule, XWQComBSTR(L"XTest::Api"), 3, ERROR_FILE_NOT_FOUND, true));
    EXPECT_NE(std::wstring::npos, TakeErrorInfo().description.find(L"system error 2"));
    EXPECT_EQ(E_FAIL, XWQError::HandleAPIError(kModule, XWQComBSTR(L"XTest::Api"), 3, 0, false));
    EXPECT_FALSE(TakeErrorInfo().present);
}

TEST(XWQError, HandleStandardErrorIsNonZeroOnlyForFailures)
{
    EXPECT_EQ(0, XWQError::HandleStandardError(kModule, XWQComBSTR(L"XSessionDataMngApp::InitInstance()"), 1,
                                               XWQComBSTR(L"fine"), S_OK, true));
    EXPECT_NE(0, XWQError::HandleStandardError(kModule, XWQComBSTR(L"XSessionDataMngApp::InitInstance()"), 1,
                                               XWQComBSTR(L"Initialization failed!"), 0x8004080D, true));
    EXPECT_EQ(L"Initialization failed!", TakeErrorInfo().description);
    EXPECT_EQ(1u, LogLinesWith("Initialization failed!"));
}

TEST(XWQError, LogOnlyOperationsLeaveErrorInfoAlone)
{
    SetMarkerErrorInfo(L"marker");
    XWQError::WriteErrorToLogBook(Where(1), E_FAIL, XWQEXCEP::SEV_ERROR, XWQComBSTR(L"entry one"), false, 0);
    XWQError::WriteAPIErrorToLogBook(kModule, XWQComBSTR(L"XTest::Api"), 2, XWQComBSTR(L"entry two"), 5);
    XWQError::WriteAPIErrorToLogBook(Where(3), XWQEXCEP::SEV_WARNING, XWQComBSTR(L"entry three"), 6);
    XWQError::WriteUnknownErrorToLogBook(Where(4), XWQComBSTR(L"entry four"));
    XWQError::WriteLineToErrorLogBook(Where(5), XWQEXCEP::SEV_INFO, XWQComBSTR(L"entry five"), XWQComBSTR(L"more"));
    XWQError::WriteErrorToLogBook(Where(6), std::runtime_error("six"), XWQEXCEP::SEV_ERROR, XWQComBSTR(L"entry"));
    EXPECT_EQ(L"marker", TakeErrorInfo().description);
    EXPECT_EQ(1u, LogLinesWith("entry one"));
    EXPECT_EQ(1u, LogLinesWith("entry two (error code 5)"));
    EXPECT_EQ(1u, LogLinesWith("sev=4"));
    EXPECT_EQ(1u, LogLinesWith("entry four"));
    EXPECT_EQ(1u, LogLinesWith("entry five: more"));
    EXPECT_EQ(1u, LogLinesWith("entry: six"));
    EXPECT_EQ(6u, ReadLogBook().size());
}

TEST(XWQError, NoLogFormSetsErrorInfoWithoutAnEntry)
{
    const XWrappedWQException e = XWQExceptionFactory::Create(XWQEXCEP::EXCEP_APPLICATION, Where(), E_ABORT,
                                                              XWQEXCEP::SEV_ERROR, 0, XWQComBSTR(L"quiet"),
                                                              XWQComBSTR(), 0);
    EXPECT_EQ(E_ABORT, XWQError::SetComErrorNoLog(e));
    EXPECT_EQ(L"quiet", TakeErrorInfo().description);
    EXPECT_TRUE(ReadLogBook().empty());
}

TEST(XWQError, ExceptionFactoriesCarryResultAndText)
{
    const XWrappedWQException std = XWQError::CreateExcep(std::bad_alloc(), Where(), XWQEXCEP::SEV_ERROR, XWQComBSTR());
    ASSERT_TRUE(std.HasException());
    EXPECT_EQ(E_OUTOFMEMORY, std.Result());
    const XWrappedWQException unknown = XWQError::CreateUnknownExcep(Where(), XWQComBSTR(L"in worker"));
    EXPECT_EQ(E_UNEXPECTED, unknown.Result());
    EXPECT_TRUE(unknown->Message() == L"unknown exception: in worker");
    XWrappedWQException copy = unknown;
    EXPECT_EQ(unknown.Get(), copy.Get());
    EXPECT_FALSE(XWrappedWQException().HasException());
}

TEST(XWQError, DoThrowExceptionThrowsTheWrappedException)
{
    try
    {
        XWQExceptionFactory::DoThrowException(XWQEXCEP::EXCEP_SYSTEM, Where(99), E_HANDLE, XWQEXCEP::SEV_ERROR, 7,
                                              XWQComBSTR(L"msg"), XWQComBSTR(L"det"), 3);
        FAIL() << "no exception";
    }
    catch (const XWrappedWQException& e)
    {
        ASSERT_TRUE(e.HasException());
        EXPECT_EQ(E_HANDLE, e->Result());
        EXPECT_EQ(7, e->SecondCode());
        EXPECT_EQ(3, e->Number());
        EXPECT_EQ(99u, e->Location().Line());
        EXPECT_TRUE(e->FullText() == L"msg: det");
    }
}

TEST(XWQError, TranslateCExceptionThrowsAStructuredException)
{
    EXCEPTION_RECORD record{};
    record.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
    EXCEPTION_POINTERS pointers{&record, nullptr};
    try
    {
        XWQError::TranslateCException(Where(), EXCEPTION_ACCESS_VIOLATION, &pointers, true);
    }
    catch (const XWrappedWQException& e)
    {
        EXPECT_EQ(XWQEXCEP::EXCEP_STRUCTURED, e->Type());
        EXPECT_EQ(HRESULT_FROM_NT(EXCEPTION_ACCESS_VIOLATION), e.Result());
    }
    EXPECT_EQ(1u, LogLinesWith("structured exception 0xC0000005"));
}

TEST(XWQExcepRefLogger, KeepsTheNewestUpToItsCapacity)
{
    XWQExcepRefLogger logger(3);
    for (long i = 0; i < 5; ++i)
        logger.Add(XWQExceptionFactory::Create(XWQEXCEP::EXCEP_APPLICATION, Where(), E_FAIL, XWQEXCEP::SEV_ERROR, 0,
                                               XWQComBSTR(L"e"), XWQComBSTR(), i));
    EXPECT_EQ(3u, logger.Count());
    EXPECT_EQ(5u, logger.TotalAdded());
    EXPECT_EQ(2, logger.At(0)->Number());
    EXPECT_EQ(4, logger.Last()->Number());
    EXPECT_FALSE(logger.At(3).HasException());
    EXPECT_EQ(5u, ReadLogBook().size());
    logger.Clear();
    EXPECT_EQ(0u, logger.Count());
    EXPECT_FALSE(logger.Last().HasException());
}
