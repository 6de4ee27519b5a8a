// Piping calls and flushing them: order, exactly-once delivery, the root check, the worker's
// thread, and the cheap flush when nothing is pending.
#include "delegatortesthelpers.h"
#include "testenv.h"
#include "threadingdoubles.h"

#include <gtest/gtest.h>
#include <thread>

using namespace DelegatorTest;

namespace
{
using AsyncDelegatorPipe = MtaDelegatorTest;
}

TEST_F(AsyncDelegatorPipe, FlushRunsPipedCallsInPipingOrder)
{
    PipeWrite(*delegator, L"a", L"x", L"1");
    PipeDelete(*delegator, L"b");
    PipeWrite(*delegator, L"a", L"x", L"2");
    delegator->FlushStorageCallPipe();
    EXPECT_EQ((std::vector<std::wstring>{L"W a x=1", L"D b", L"W a x=2"}), root->Texts());
    EXPECT_EQ(S_OK, Retained(*delegator));
}

TEST_F(AsyncDelegatorPipe, ThousandCallsFromSeveralThreadsArriveOncePerThreadInPipingOrder)
{
    const int threads = 4;
    const int perThread = 250;
    std::vector<std::thread> pipers;
    for (int t = 0; t < threads; ++t)
        pipers.emplace_back([&, t] {
            ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            for (int i = 0; i < perThread; ++i)
            {
                const std::wstring key = L"t" + std::to_wstring(t) + L"/" + std::to_wstring(i);
                if (i % 3 == 2)
                    PipeDelete(*delegator, key);
                else
                    PipeWrite(*delegator, key, L"v", std::to_wstring(i));
            }
            ::CoUninitialize();
        });
    for (auto& piper : pipers)
        piper.join();
    delegator->FlushStorageCallPipe();

    const std::vector<std::wstring> texts = root->Texts();
    ASSERT_EQ(static_cast<size_t>(threads * perThread), texts.size());
    std::vector<int> next(threads, 0);
    for (const std::wstring& text : texts)
    {
        // "W t<t>/<i> v=<i>" or "D t<t>/<i>"
        const size_t slash = text.find(L'/');
        const int t = std::stoi(text.substr(3, slash - 3));
        const int i = std::stoi(text.substr(slash + 1));
        ASSERT_EQ(next[t], i) << "thread " << t;
        const std::wstring key = L"t" + std::to_wstring(t) + L"/" + std::to_wstring(i);
        EXPECT_EQ(i % 3 == 2 ? L"D " + key : L"W " + key + L" v=" + std::to_wstring(i), text);
        ++next[t];
    }
    for (int t = 0; t < threads; ++t)
        EXPECT_EQ(perThread, next[t]);
}

TEST_F(AsyncDelegatorPipe, CallsOfAnMtaRootRunOnTheWorkerThread)
{
    for (int i = 0; i < 3; ++i)
        PipeWrite(*delegator, L"k", L"n", std::to_wstring(i));
    delegator->FlushStorageCallPipe();
    const auto calls = root->Calls();
    ASSERT_EQ(3u, calls.size());
    EXPECT_NE(::GetCurrentThreadId(), calls[0].thread);
    EXPECT_EQ(calls[0].thread, calls[1].thread);
    EXPECT_EQ(calls[0].thread, calls[2].thread);
}

TEST_F(AsyncDelegatorPipe, SetProceedEventRunsPendingCallsWithoutAFlush)
{
    root->AwaitCalls(2);
    PipeWrite(*delegator, L"a", L"n", L"1");
    PipeDelete(*delegator, L"a");
    delegator->SetProceedEvent();
    ASSERT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(root->CallsReached(), 30000));
    EXPECT_EQ((std::vector<std::wstring>{L"W a n=1", L"D a"}), root->Texts());
}

TEST_F(AsyncDelegatorPipe, FlushWithNothingPendingDoesNotWakeTheWorker)
{
    const unsigned long long passes = delegator->CompletedPasses();
    for (int i = 0; i < 20; ++i)
        delegator->FlushStorageCallPipe();
    // One call and one flush make exactly one more pass, unless an empty flush had woken the
    // worker as well.
    PipeWrite(*delegator, L"sentinel", L"n", L"1");
    delegator->FlushStorageCallPipe();
    EXPECT_EQ(passes + 1, delegator->CompletedPasses());
    EXPECT_EQ(1u, root->CallCount());
}

TEST_F(AsyncDelegatorPipe, FlushWithNothingPendingReportsARetainedFailure)
{
    root->FailKey(L"bad", E_ACCESSDENIED, L"denied by the root");
    PipeWrite(*delegator, L"bad", L"n", L"1");
    EXPECT_EQ(E_ACCESSDENIED, FailureOf([&] { delegator->FlushStorageCallPipe(); }).hr);

    const unsigned long long passes = delegator->CompletedPasses();
    const Failure again = FailureOf([&] { delegator->FlushStorageCallPipe(); });
    EXPECT_EQ(E_ACCESSDENIED, again.hr);
    EXPECT_EQ(L"flushing the asynchronous storage call pipe returned an error", again.message);
    EXPECT_EQ(passes, delegator->CompletedPasses());
}

TEST(AsyncDelegatorPipeWithoutRoot, PipingIsRefusedWithEPointer)
{
    XAsyncStorageDelegator delegator;
    delegator.SetWriteInterval(120);
    const Failure failure = FailureOf([&] { PipeWrite(delegator, L"a", L"n", L"1"); });
    EXPECT_EQ(E_POINTER, failure.hr);
    EXPECT_EQ(L"storage root instance for async call not set", failure.message);
    EXPECT_NO_THROW(delegator.FlushStorageCallPipe());  // nothing was queued
}

TEST(AsyncDelegatorPipeWithoutRoot, NullFunctorIsRefused)
{
    XComPtr<FakeStorageRoot> root;
    root.Attach(FakeStorageRoot::Create());
    XAsyncStorageDelegator delegator;
    delegator.SetStorageRoot(root.Get());
    XWQComBSTR key(L"k");
    EXPECT_EQ(E_POINTER, FailureOf([&] { delegator.PipeStorageRootCall(nullptr, key, 1); }).hr);
}

TEST(AsyncDelegatorPipeWithoutRoot, GetLastErrorChecksItsPointer)
{
    XAsyncStorageDelegator delegator;
    EXPECT_EQ(E_POINTER, FailureOf([&] { delegator.GetLastErrorAsyncExecution(nullptr); }).hr);
    EXPECT_EQ(S_OK, Retained(delegator));
}

TEST_F(AsyncDelegatorPipe, EachOfConcurrentFlushesReturnsOnlyAfterItsOwnCallsRan)
{
    const int threads = 4;
    const int perThread = 60;
    std::vector<std::thread> pipers;
    std::vector<int> misses(threads, 0);
    for (int t = 0; t < threads; ++t)
        pipers.emplace_back([&, t] {
            ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            const std::wstring prefix = L"D c" + std::to_wstring(t) + L"/";
            for (int i = 0; i < perThread; ++i)
            {
                PipeDelete(*delegator, L"c" + std::to_wstring(t) + L"/" + std::to_wstring(i));
                if (i % 5 != 4)
                    continue;
                delegator->FlushStorageCallPipe();
                int reached = 0;
                for (const std::wstring& text : root->Texts())
                    reached += text.compare(0, prefix.size(), prefix) == 0;
                misses[t] += reached != i + 1;
            }
            ::CoUninitialize();
        });
    for (auto& piper : pipers)
        piper.join();
    for (int t = 0; t < threads; ++t)
        EXPECT_EQ(0, misses[t]) << "thread " << t;
    EXPECT_EQ(static_cast<size_t>(threads * perThread), root->CallCount());
}
