// Failed piped calls: later calls still run, the failure is retained and reported by the next
// flush; a broken connection latches and later calls fail fast.
#include "delegatortesthelpers.h"
#include "xstoragerootconnhandler.h"
#include "testenv.h"
#include "threadingdoubles.h"

#include <gtest/gtest.h>

using namespace DelegatorTest;

namespace
{
using AsyncDelegatorFailures = MtaDelegatorTest;
const HRESULT kUnavailable = HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE);
const char kCallFailed[] = "async call on session data storage root failed";
const wchar_t kFlushFailed[] = L"flushing the asynchronous storage call pipe returned an error";
} // namespace

TEST_F(AsyncDelegatorFailures, SecondOfThreeFailsFirstAndThirdRunAndTheNextFlushReports)
{
    root->FailKey(L"b", E_FAIL, L"the root refused b");
    PipeWrite(*delegator, L"a", L"n", L"1");
    PipeWrite(*delegator, L"b", L"n", L"2");
    PipeWrite(*delegator, L"c", L"n", L"3");

    const Failure failure = FailureOf([&] { delegator->FlushStorageCallPipe(); });
    EXPECT_EQ(E_FAIL, failure.hr);
    EXPECT_EQ(kFlushFailed, failure.message);
    EXPECT_EQ((std::vector<std::wstring>{L"W a n=1", L"W b n=2", L"W c n=3"}), root->Texts());
    EXPECT_EQ(E_FAIL, Retained(*delegator));
    EXPECT_EQ(1u, LogLinesWith(kCallFailed));
}

TEST_F(AsyncDelegatorFailures, RetainedFailureIsNotResetByReading)
{
    root->FailKey(L"b", E_FAIL, L"no");
    PipeDelete(*delegator, L"b");
    EXPECT_EQ(E_FAIL, FailureOf([&] { delegator->FlushStorageCallPipe(); }).hr);
    EXPECT_EQ(E_FAIL, Retained(*delegator));
    EXPECT_EQ(E_FAIL, Retained(*delegator));
    EXPECT_EQ(E_FAIL, FailureOf([&] { delegator->FlushStorageCallPipe(); }).hr);
}

TEST_F(AsyncDelegatorFailures, FailedCallDoesNotCloseTheDelegator)
{
    root->FailKey(L"b", E_FAIL, L"no");
    PipeDelete(*delegator, L"b");
    FailureOf([&] { delegator->FlushStorageCallPipe(); });
    root->ClearCalls();
    PipeDelete(*delegator, L"c");
    FailureOf([&] { delegator->FlushStorageCallPipe(); });
    EXPECT_EQ(std::vector<std::wstring>{L"D c"}, root->Texts());
}

TEST_F(AsyncDelegatorFailures, RpcFailureWithoutErrorInfoLatchesAndLaterCallsFailFast)
{
    root->FailKey(L"b", kUnavailable);
    PipeWrite(*delegator, L"a", L"n", L"1");
    PipeWrite(*delegator, L"b", L"n", L"2");
    PipeWrite(*delegator, L"c", L"n", L"3");
    PipeDelete(*delegator, L"d");

    const Failure failure = FailureOf([&] { delegator->FlushStorageCallPipe(); });
    EXPECT_EQ(kUnavailable, failure.hr);  // the failure as the call answered it
    // c and d never reached the root.
    EXPECT_EQ((std::vector<std::wstring>{L"W a n=1", L"W b n=2"}), root->Texts());
    EXPECT_EQ(1u, LogLinesWith("RPC connection error while invoking an interface call on the session data storage root"));
    EXPECT_EQ(3u, LogLinesWith(kCallFailed));
    // The handler's report and the three failed calls.
    EXPECT_EQ(4u, LogLinesWith("0x80040851"));

    PipeWrite(*delegator, L"e", L"n", L"5");
    FailureOf([&] { delegator->FlushStorageCallPipe(); });
    EXPECT_EQ(2u, root->CallCount());
}

TEST_F(AsyncDelegatorFailures, FailureWithErrorInfoOfAnRpcCodeDoesNotLatch)
{
    root->FailKey(L"b", kUnavailable, L"the root explains");
    PipeDelete(*delegator, L"b");
    PipeDelete(*delegator, L"c");
    EXPECT_EQ(kUnavailable, FailureOf([&] { delegator->FlushStorageCallPipe(); }).hr);
    EXPECT_EQ((std::vector<std::wstring>{L"D b", L"D c"}), root->Texts());
}

TEST_F(AsyncDelegatorFailures, NewStorageRootClearsTheLatchButKeepsTheLoggedFailure)
{
    root->FailKey(L"b", kUnavailable);
    PipeDelete(*delegator, L"b");
    FailureOf([&] { delegator->FlushStorageCallPipe(); });
    ASSERT_EQ(kUnavailable, Retained(*delegator));

    XComPtr<FakeStorageRoot> second;
    second.Attach(FakeStorageRoot::Create());
    delegator->SetStorageRoot(second.Get());
    // The connection's own HRESULT starts afresh; the failed call is still reported.
    EXPECT_EQ(XStorageRootConnHandler::kRpcConnectionError, Retained(*delegator));
    PipeDelete(*delegator, L"c");
    EXPECT_EQ(XStorageRootConnHandler::kRpcConnectionError,
              FailureOf([&] { delegator->FlushStorageCallPipe(); }).hr);
    // The new root is reached: the latch did not carry over.
    EXPECT_EQ(std::vector<std::wstring>{L"D c"}, second->Texts());
}

TEST_F(AsyncDelegatorFailures, CallsFailedFastOnALatchedConnectionAreReportedAfterANewRoot)
{
    root->FailKey(L"a", kUnavailable);
    PipeDelete(*delegator, L"a");
    FailureOf([&] { delegator->FlushStorageCallPipe(); });
    // Piped after the connection broke: it fails before it reaches the root.
    PipeDelete(*delegator, L"b");

    XComPtr<FakeStorageRoot> second;
    second.Attach(FakeStorageRoot::Create());
    delegator->SetStorageRoot(second.Get());
    EXPECT_EQ(std::vector<std::wstring>{L"D a"}, root->Texts());
    EXPECT_TRUE(second->Texts().empty());
    EXPECT_TRUE(FAILED(Retained(*delegator)));
    EXPECT_TRUE(FAILED(FailureOf([&] { delegator->FlushStorageCallPipe(); }).hr));
}
