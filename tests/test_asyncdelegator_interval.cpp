// The write interval of the asynchronous storage delegator: clamping, and the first
// SetWriteInterval starting the worker.
#include "delegatortesthelpers.h"
#include "fakestorageroot.h"

#include <gtest/gtest.h>
#include <climits>

using namespace DelegatorTest;

TEST(AsyncDelegatorInterval, IsTwentySecondsBeforeItIsSet)
{
    XAsyncStorageDelegator delegator;
    EXPECT_EQ(20, delegator.WriteInterval());
}

TEST(AsyncDelegatorInterval, ZeroOrLessGivesTwentySeconds)
{
    XAsyncStorageDelegator delegator;
    for (long requested : {0L, -1L, -120L, LONG_MIN})
    {
        delegator.SetWriteInterval(requested);
        EXPECT_EQ(20, delegator.WriteInterval()) << requested;
    }
}

TEST(AsyncDelegatorInterval, OneAndTwoGiveThree)
{
    XAsyncStorageDelegator delegator;
    delegator.SetWriteInterval(1);
    EXPECT_EQ(3, delegator.WriteInterval());
    delegator.SetWriteInterval(2);
    EXPECT_EQ(3, delegator.WriteInterval());
}

TEST(AsyncDelegatorInterval, ThreeToOneHundredTwentyAreKept)
{
    XAsyncStorageDelegator delegator;
    for (long requested : {3L, 4L, 20L, 119L, 120L})
    {
        delegator.SetWriteInterval(requested);
        EXPECT_EQ(requested, delegator.WriteInterval());
    }
}

TEST(AsyncDelegatorInterval, AboveOneHundredTwentyGivesOneHundredTwenty)
{
    XAsyncStorageDelegator delegator;
    for (long requested : {121L, 1000L, LONG_MAX})
    {
        delegator.SetWriteInterval(requested);
        EXPECT_EQ(120, delegator.WriteInterval()) << requested;
    }
}

TEST(AsyncDelegatorInterval, ClampMatchesTheSetter)
{
    EXPECT_EQ(20, XAsyncStorageDelegator::ClampWriteInterval(0));
    EXPECT_EQ(3, XAsyncStorageDelegator::ClampWriteInterval(2));
    EXPECT_EQ(3, XAsyncStorageDelegator::ClampWriteInterval(3));
    EXPECT_EQ(120, XAsyncStorageDelegator::ClampWriteInterval(121));
}

TEST(AsyncDelegatorInterval, WorkerRunsNothingBeforeTheFirstSetWriteInterval)
{
    XComPtr<FakeStorageRoot> root;
    root.Attach(FakeStorageRoot::Create());
    XAsyncStorageDelegator delegator;
    delegator.SetStorageRoot(root.Get());
    PipeWrite(delegator, L"a", L"n", L"1");

    delegator.FlushStorageCallPipe();  // no worker: returns without waiting
    EXPECT_EQ(0u, root->CallCount());
    EXPECT_EQ(0u, delegator.CompletedPasses());

    delegator.SetWriteInterval(120);
    delegator.FlushStorageCallPipe();
    EXPECT_EQ(std::vector<std::wstring>{L"W a n=1"}, root->Texts());
}
