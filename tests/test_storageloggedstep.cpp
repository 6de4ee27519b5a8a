// XLoggedStep: a storage step whose exceptions are logged and answered with S_FALSE, leaving the
// caller's error info alone.
#include "testenv.h"
#include "xstorageloggedstep.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace
{
const char kUnit[] = "xsessiondatastoragereg";

template <class Step>
HRESULT RunStep(Step&& step)
{
    return XLoggedStep(kUnit, 321, XSDM_FUNCTION_NAME(L"XSessionDataStorageReg::Initialize"),
                       CLSID_WQ_SessionDataStorageReg, std::forward<Step>(step));
}

bool Logged(const char* text)
{
    for (const std::string& line : ReadLogBook())
        if (line.find(text) != std::string::npos &&
            line.find("XSessionDataStorageReg::Initialize") != std::string::npos)
            return true;
    return false;
}

class LoggedStepTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ClearLogBook();
        SetMarkerErrorInfo(L"marker");
    }
    void TearDown() override { EXPECT_EQ(L"marker", TakeErrorInfo().description); }
};
} // namespace

TEST_F(LoggedStepTest, AStepThatEndsNormallyGivesItsOwnAnswer)
{
    EXPECT_EQ(S_OK, RunStep([]() -> HRESULT { return S_OK; }));
    EXPECT_EQ(E_ACCESSDENIED, RunStep([]() -> HRESULT { return E_ACCESSDENIED; }));
    EXPECT_TRUE(ReadLogBook().empty());
}

TEST_F(LoggedStepTest, AComErrorIsLoggedAndAnsweredWithSFalse)
{
    EXPECT_EQ(S_FALSE, RunStep([]() -> HRESULT { throw _com_error(E_OUTOFMEMORY); }));
    EXPECT_TRUE(Logged("hr=0x8007000E"));
}

TEST_F(LoggedStepTest, AModuleExceptionIsLoggedAndAnsweredWithSFalse)
{
    EXPECT_EQ(S_FALSE, RunStep([]() -> HRESULT {
                  XSdmThrow(XSdmLocation(kUnit, 1, XSDM_FUNCTION_NAME(L"XSessionDataStorageReg::Initialize")), E_ABORT,
                            XWQComBSTR(L"raised inside"));
              }));
    EXPECT_TRUE(Logged("raised inside"));
}

TEST_F(LoggedStepTest, AStandardExceptionIsLoggedAndAnsweredWithSFalse)
{
    EXPECT_EQ(S_FALSE, RunStep([]() -> HRESULT { throw std::runtime_error("standard failure"); }));
    EXPECT_TRUE(Logged("standard failure"));
}

TEST_F(LoggedStepTest, AnythingElseIsLoggedAndAnsweredWithSFalse)
{
    EXPECT_EQ(S_FALSE, RunStep([]() -> HRESULT { throw 42; }));
    EXPECT_TRUE(Logged("unknown exception"));
}
