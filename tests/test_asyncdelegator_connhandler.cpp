// Classification of failed storage-root calls: the RPC-class test and VerifyConnection.
#include "testenv.h"
#include "threadingdoubles.h"
#include "xstoragerootconnhandler.h"

#include <gtest/gtest.h>

namespace
{
HRESULT Hr(unsigned long value)
{
    return static_cast<HRESULT>(value);
}

// An HRESULT of severity failure with the facility and code given.
HRESULT Failure(unsigned facility, unsigned code)
{
    return Hr(0x80000000ul | (static_cast<unsigned long>(facility) << 16) | code);
}

const char kMemoryMessage[] = "memory allocation error while invoking an interface call on the session data storage root";
const char kRpcMessage[] = "RPC connection error while invoking an interface call on the session data storage root";
const char kTimeoutMessage[] = "timeout while invoking an COM interface call on the ServerPool connection";

struct Verdict
{
    bool repeat;
    HRESULT hr;
    bool fault;
};

class ConnHandler : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ClearLogBook();
        ::SetErrorInfo(0, nullptr);
    }
    // Runs VerifyConnection after a call that answered hr (and left error info where given).
    Verdict Verify(HRESULT hr, const wchar_t* errorInfo = nullptr)
    {
        ::SetErrorInfo(0, nullptr);
        if (errorInfo)
            SetMarkerErrorInfo(errorInfo);
        bool fault = !errorInfo;  // a value the handler must overwrite
        const bool repeat = handler.VerifyConnection(hr, fault, nullptr);
        return Verdict{repeat, hr, fault};
    }

    XStorageRootConnHandler handler;
};
} // namespace

TEST(RpcClassError, SuccessCodesAreNot)
{
    EXPECT_FALSE(XStorageRootConnHandler::IsRpcClassError(S_OK));
    EXPECT_FALSE(XStorageRootConnHandler::IsRpcClassError(S_FALSE));
    EXPECT_FALSE(XStorageRootConnHandler::IsRpcClassError(Hr(0x000706BA)));
}

TEST(RpcClassError, InvalidArgumentIsNotButCode87UnderOtherFacilitiesIs)
{
    EXPECT_FALSE(XStorageRootConnHandler::IsRpcClassError(E_INVALIDARG));
    EXPECT_TRUE(XStorageRootConnHandler::IsRpcClassError(Failure(0, 87)));
    EXPECT_TRUE(XStorageRootConnHandler::IsRpcClassError(Failure(8, 87)));
}

TEST(RpcClassError, EveryCodeOfTheRpcFacilityIs)
{
    for (unsigned code : {0u, 1u, 0x108u, 0x4005u, 0xFFFFu})
        EXPECT_TRUE(XStorageRootConnHandler::IsRpcClassError(Failure(FACILITY_RPC, code))) << code;
}

TEST(RpcClassError, NoCodeOfTheInterfaceFacilityIs)
{
    for (unsigned code : {5u, 87u, 1722u, 1700u, 0x851u, 0x867u})
        EXPECT_FALSE(XStorageRootConnHandler::IsRpcClassError(Failure(FACILITY_ITF, code))) << code;
}

TEST(RpcClassError, ListedCodesAre)
{
    for (unsigned code : {5u, 14u, 87u, 122u, 164u, 997u, 1130u, 1338u, 1722u, 1726u, 1727u, 1898u, 1900u})
    {
        if (code != 87)  // 0x80070057 is E_INVALIDARG itself
        {
            EXPECT_TRUE(XStorageRootConnHandler::IsRpcClassError(Failure(FACILITY_WIN32, code))) << code;
        }
        EXPECT_TRUE(XStorageRootConnHandler::IsRpcClassError(Failure(0, code))) << code;
        EXPECT_TRUE(XStorageRootConnHandler::IsRpcClassError(Failure(FACILITY_WINDOWS, code))) << code;
    }
}

TEST(RpcClassError, NeighboursOfListedCodesAreNot)
{
    for (unsigned code : {4u, 6u, 13u, 15u, 86u, 88u, 121u, 123u, 163u, 165u, 996u, 998u, 1129u, 1131u, 1337u,
                          1339u, 1897u, 1899u, 1901u, 0x4005u})
        EXPECT_FALSE(XStorageRootConnHandler::IsRpcClassError(Failure(FACILITY_WIN32, code))) << code;
}

TEST(RpcClassError, RangeBoundaries)
{
    const struct
    {
        unsigned code;
        bool rpc;
    } table[] = {{1699, false}, {1700, true}, {1745, true}, {1791, true}, {1792, false},
                 {1816, false}, {1817, true}, {1832, true}, {1833, false},
                 {1912, false}, {1913, true}, {1918, true}, {1919, false}};
    for (const auto& row : table)
        EXPECT_EQ(row.rpc, XStorageRootConnHandler::IsRpcClassError(Failure(FACILITY_WIN32, row.code))) << row.code;
}

TEST(RpcClassError, FacilityIsBitsSixteenToTwentyEight)
{
    // Facility 0x1001: not the RPC facility although its low bits are 1.
    EXPECT_FALSE(XStorageRootConnHandler::IsRpcClassError(Failure(0x1001, 0)));
    // Facility 0x1004: not the interface facility; the listed code counts.
    EXPECT_TRUE(XStorageRootConnHandler::IsRpcClassError(Failure(0x1004, 1722)));
}

TEST_F(ConnHandler, OutOfMemoryWithoutErrorInfoSetsTheMemoryErrorAndNeverLatches)
{
    const Verdict verdict = Verify(E_OUTOFMEMORY);
    EXPECT_FALSE(verdict.repeat);
    EXPECT_EQ(E_OUTOFMEMORY, verdict.hr);
    EXPECT_FALSE(verdict.fault);
    EXPECT_EQ(Widen(kMemoryMessage), TakeErrorInfo().description);
    EXPECT_EQ(1u, LogLinesWith(kMemoryMessage));
    EXPECT_EQ(1u, LogLinesWith("XStorageRootConnHandler::VerifyConnection"));
}

TEST_F(ConnHandler, OutOfMemoryWithErrorInfoKeepsItWithoutLogging)
{
    const Verdict verdict = Verify(E_OUTOFMEMORY, L"callee ran out");
    EXPECT_FALSE(verdict.repeat);
    EXPECT_EQ(E_OUTOFMEMORY, verdict.hr);
    EXPECT_FALSE(verdict.fault);
    EXPECT_EQ(L"callee ran out", TakeErrorInfo().description);
    EXPECT_EQ(0u, LogLinesWith(kMemoryMessage));
    EXPECT_TRUE(ReadLogBook().empty());
}

TEST_F(ConnHandler, RpcFailureWithoutErrorInfoBecomesTheLatchedConnectionError)
{
    const Verdict verdict = Verify(HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE));
    EXPECT_FALSE(verdict.repeat);
    EXPECT_EQ(Hr(0x80040851), verdict.hr);
    EXPECT_TRUE(verdict.fault);
    EXPECT_EQ(Widen(kRpcMessage), TakeErrorInfo().description);
    EXPECT_EQ(1u, LogLinesWith(kRpcMessage));
}

TEST_F(ConnHandler, RpcFailureWithErrorInfoIsTakenOverAndDoesNotLatch)
{
    const HRESULT unavailable = HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE);
    const Verdict verdict = Verify(unavailable, L"server said no");
    EXPECT_EQ(unavailable, verdict.hr);
    EXPECT_FALSE(verdict.fault);
    EXPECT_EQ(L"server said no", TakeErrorInfo().description);
    EXPECT_TRUE(ReadLogBook().empty());
}

TEST_F(ConnHandler, RpcFacilityFailureWithoutErrorInfoLatches)
{
    const Verdict verdict = Verify(RPC_E_DISCONNECTED);
    EXPECT_EQ(Hr(0x80040851), verdict.hr);
    EXPECT_TRUE(verdict.fault);
}

TEST_F(ConnHandler, ServerPoolTimeoutWithoutErrorInfoLatchesUnchanged)
{
    const Verdict verdict = Verify(Hr(0x80040867));
    EXPECT_FALSE(verdict.repeat);
    EXPECT_EQ(Hr(0x80040867), verdict.hr);
    EXPECT_TRUE(verdict.fault);
    EXPECT_EQ(Widen(kTimeoutMessage), TakeErrorInfo().description);
    EXPECT_EQ(1u, LogLinesWith(kTimeoutMessage));
}

TEST_F(ConnHandler, ServerPoolTimeoutWithErrorInfoIsTakenOverAndDoesNotLatch)
{
    const Verdict verdict = Verify(Hr(0x80040867), L"pool busy");
    EXPECT_EQ(Hr(0x80040867), verdict.hr);
    EXPECT_FALSE(verdict.fault);
    EXPECT_EQ(L"pool busy", TakeErrorInfo().description);
    EXPECT_EQ(0u, LogLinesWith(kTimeoutMessage));
}

TEST_F(ConnHandler, OtherFailuresNeitherLatchNorSetErrorInfo)
{
    for (HRESULT hr : {E_FAIL, E_INVALIDARG, E_NOTIMPL, Failure(FACILITY_ITF, 1722)})
    {
        const Verdict verdict = Verify(hr);
        EXPECT_FALSE(verdict.repeat);
        EXPECT_EQ(hr, verdict.hr);
        EXPECT_FALSE(verdict.fault);
        EXPECT_FALSE(TakeErrorInfo().present);
    }
    EXPECT_TRUE(ReadLogBook().empty());
}

TEST_F(ConnHandler, RetainsTheFirstFailureAsTheCallAnsweredIt)
{
    EXPECT_EQ(S_OK, handler.Retained());
    Verify(HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE));
    Verify(E_FAIL);
    EXPECT_EQ(HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE), handler.Retained());
    handler.ResetRetained();
    EXPECT_EQ(S_OK, handler.Retained());
    Verify(E_ACCESSDENIED);
    EXPECT_EQ(E_ACCESSDENIED, handler.Retained());
}

TEST_F(ConnHandler, SuccessIsNotRetained)
{
    Verify(S_FALSE);
    EXPECT_EQ(S_OK, handler.Retained());
}
