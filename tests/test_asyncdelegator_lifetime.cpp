// Lifetime of the delegator: pending calls run before the worker ends, piping after Terminate
// is refused, Terminate twice is harmless, and a flush never waits for a stopped worker.
#include "delegatortesthelpers.h"
#include "testenv.h"
#include "threadingdoubles.h"

#include <gtest/gtest.h>

using namespace DelegatorTest;

namespace
{
using AsyncDelegatorLifetime = MtaDelegatorTest;
const wchar_t kClosed[] = L"the asynchronous storage delegator has been closed";

ULONGLONG Millis()
{
    return ::GetTickCount64();
}
} // namespace

TEST_F(AsyncDelegatorLifetime, DestroyingTheDelegatorRunsPendingCalls)
{
    for (int i = 0; i < 5; ++i)
        PipeWrite(*delegator, L"k" + std::to_wstring(i), L"n", L"v");
    delegator.reset();
    EXPECT_EQ((std::vector<std::wstring>{L"W k0 n=v", L"W k1 n=v", L"W k2 n=v", L"W k3 n=v", L"W k4 n=v"}),
              root->Texts());
}

TEST_F(AsyncDelegatorLifetime, TerminateRunsPendingCallsAndReturnsSOk)
{
    PipeWrite(*delegator, L"a", L"n", L"1");
    PipeDelete(*delegator, L"a");
    EXPECT_EQ(S_OK, delegator->Terminate());
    EXPECT_EQ((std::vector<std::wstring>{L"W a n=1", L"D a"}), root->Texts());
}

TEST_F(AsyncDelegatorLifetime, TerminateReturnsTheFlushFailureWithoutThrowing)
{
    root->FailKey(L"a", E_ACCESSDENIED, L"no");
    PipeDelete(*delegator, L"a");
    EXPECT_EQ(E_ACCESSDENIED, delegator->Terminate());
    EXPECT_EQ(1u, root->CallCount());
}

TEST_F(AsyncDelegatorLifetime, PipingAfterTerminateIsRefused)
{
    ASSERT_EQ(S_OK, delegator->Terminate());
    const Failure failure = FailureOf([&] { PipeWrite(*delegator, L"late", L"n", L"1"); });
    EXPECT_TRUE(FAILED(failure.hr));
    EXPECT_EQ(kClosed, failure.message);
    delegator.reset();
    EXPECT_EQ(0u, root->CallCount());
}

TEST_F(AsyncDelegatorLifetime, TerminateTwiceDoesNothingTheSecondTime)
{
    PipeDelete(*delegator, L"a");
    ASSERT_EQ(S_OK, delegator->Terminate());
    const unsigned long long passes = delegator->CompletedPasses();
    EXPECT_EQ(S_OK, delegator->Terminate());
    EXPECT_EQ(passes, delegator->CompletedPasses());
    EXPECT_EQ(1u, root->CallCount());
    EXPECT_EQ(kClosed, FailureOf([&] { PipeDelete(*delegator, L"b"); }).message);
}

TEST_F(AsyncDelegatorLifetime, FlushAfterTerminateDoesNotWait)
{
    ASSERT_EQ(S_OK, delegator->Terminate());
    const ULONGLONG start = Millis();
    EXPECT_NO_THROW(delegator->FlushStorageCallPipe());
    EXPECT_LT(Millis() - start, 1000u);
}

TEST_F(AsyncDelegatorLifetime, FlushLeavesWhenTheWorkerStopsWithCallsStillPending)
{
    // The root raises a structured exception on the worker thread: the worker ends there, and
    // the calls it had taken never count as run.
    root->RaiseOnKey(L"boom");
    PipeDelete(*delegator, L"boom");
    PipeDelete(*delegator, L"never");
    EXPECT_NO_THROW(delegator->FlushStorageCallPipe());  // returns although the calls never ran
    EXPECT_EQ(std::vector<std::wstring>{L"D boom"}, root->Texts());

    // The worker is stopped: a further flush with calls pending does not wait.
    PipeDelete(*delegator, L"after");
    const ULONGLONG start = Millis();
    EXPECT_NO_THROW(delegator->FlushStorageCallPipe());
    EXPECT_LT(Millis() - start, 1000u);
    EXPECT_EQ(S_OK, delegator->Terminate());
    EXPECT_EQ(1u, root->CallCount());
}

TEST(AsyncDelegatorLifetimeUnstarted, TerminateWithoutWorkerReturnsSOk)
{
    XAsyncStorageDelegator delegator;
    EXPECT_EQ(S_OK, delegator.Terminate());
    EXPECT_EQ(S_OK, delegator.Terminate());
}
