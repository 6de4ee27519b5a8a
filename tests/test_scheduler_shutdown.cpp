// The scheduler is destroyed at process end; afterwards Instance() reports it and no thread can
// be started. Its own executable: the check runs at exit, after the scheduler's destruction,
// and fails the process when the scheduler is still reachable.
#include "XDelegatorThreadScheduler.h"

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>

namespace
{
void CheckSchedulerIsGone()
{
    try
    {
        XDelegatorThreadScheduler::Instance();
        std::fprintf(stderr, "the scheduler was still available after its destruction\n");
    }
    catch (const XWrappedWQException& report)
    {
        if (report.HasException() && report->Message() == L"XDelegatorThreadScheduler already destructed")
            return;
        std::fprintf(stderr, "unexpected report after the scheduler's destruction\n");
    }
    std::fflush(stderr);
    std::_Exit(3);
}

unsigned Answer(void*)
{
    return 7;
}
} // namespace

TEST(XDelegatorThreadSchedulerShutdown, SchedulerIsDestroyedAtProcessEndAndStartsNothingAfterwards)
{
    // Registered before the scheduler's first use, so it runs after the scheduler's destruction.
    ASSERT_EQ(0, std::atexit(&CheckSchedulerIsGone));
    XHandle thread = XDelegatorThreadScheduler::Instance().StartThread(&Answer, nullptr, -1);
    ASSERT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(thread.Get(), 10000));
    DWORD exitCode = 0;
    ASSERT_TRUE(::GetExitCodeThread(thread.Get(), &exitCode));
    EXPECT_EQ(7u, exitCode);
}
