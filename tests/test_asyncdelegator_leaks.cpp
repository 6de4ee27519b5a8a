// Piping and flushing many calls leaves no COM allocation behind.
#include "delegatortesthelpers.h"
#include "mallocspy.h"

#include <gtest/gtest.h>

using namespace DelegatorTest;

namespace
{
using AsyncDelegatorLeaks = MtaDelegatorTest;
}

TEST_F(AsyncDelegatorLeaks, PipingAndFlushingManyCallsLeavesNothing)
{
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    for (int round = 0; round < 5; ++round)
    {
        for (int i = 0; i < 200; ++i)
        {
            PipeWrite(*delegator, L"key/" + std::to_wstring(i), L"name", L"value " + std::to_wstring(round));
            PipeDelete(*delegator, L"key/" + std::to_wstring(i));
        }
        delegator->FlushStorageCallPipe();
    }
    EXPECT_EQ(2000u, root->CallCount());
    EXPECT_EQ(0u, spy.Outstanding());
}

TEST_F(AsyncDelegatorLeaks, CallsRunAtTerminateLeaveNothing)
{
    {
        // Warm-up: the process-wide names of Terminate's reports are made on first use.
        XAsyncStorageDelegator other;
        other.SetWriteInterval(120);
        other.Terminate();
    }
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    for (int i = 0; i < 100; ++i)
        PipeWrite(*delegator, L"key", L"name", std::to_wstring(i));
    EXPECT_EQ(S_OK, delegator->Terminate());
    EXPECT_EQ(100u, root->CallCount());
    EXPECT_EQ(0u, spy.Outstanding());
}
