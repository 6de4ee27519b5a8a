// XThreadedTask: states, Start, Stop, termination, priority and the body's result.
#include "XThreadedTask.h"
#include "testenv.h"
#include "threadingdoubles.h"
#include "xsdmerror.h"

#include <gtest/gtest.h>
#include <new>
#include <thread>

namespace
{
using RealTask = ScriptedTask<>;
using TestTask = ScriptedTask<TestSchedulerTraits>;

class ThreadedTask : public ::testing::Test
{
protected:
    void SetUp() override
    {
        TestSchedulerTraits::Reset();
        ClearLogBook();
    }
    void TearDown() override { TestSchedulerTraits::Reset(); }
};

// Runs a task with the given priority whose body records its thread's priority.
int PriorityOfTaskThread(long priority, const RealTask* prototype = nullptr)
{
    std::atomic<int> seen{-100};
    RealTask task(priority, [&](TaskOwner*, RealTask&) -> unsigned long {
        seen = ::GetThreadPriority(::GetCurrentThread());
        return 0;
    });
    if (prototype)
        task.CopyPrototype(*prototype);
    TaskOwner owner;
    task.Start(&owner);
    task.Stop();
    return seen;
}
} // namespace

TEST_F(ThreadedTask, RunsTheBodyOnItsOwnThreadWithItsOwner)
{
    std::atomic<DWORD> bodyThread{0};
    std::atomic<TaskOwner*> bodyOwner{nullptr};
    RealTask task(-1, [&](TaskOwner* owner, RealTask&) -> unsigned long {
        bodyThread = ::GetCurrentThreadId();
        bodyOwner = owner;
        return 0;
    });
    EXPECT_EQ(psNotStarted, task.Status());
    TaskOwner owner;
    task.Start(&owner);
    EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(task.StartEvent(), 10000));
    task.Stop();
    EXPECT_EQ(psStopped, task.Status());
    EXPECT_NE(0u, bodyThread.load());
    EXPECT_NE(::GetCurrentThreadId(), bodyThread.load());
    EXPECT_EQ(&owner, bodyOwner.load());
    EXPECT_EQ(1, owner.runs.load());
}

TEST_F(ThreadedTask, StopBeforeStartReturnsAtOnce)
{
    TestTask task(-1, [](TaskOwner*, TestTask&) -> unsigned long { return 0; });
    task.Stop();
    EXPECT_EQ(psNotStarted, task.Status());
    EXPECT_FALSE(task.IsStopRequested());
    EXPECT_EQ(0, TestSchedulerTraits::starts.load());
}

TEST_F(ThreadedTask, StopAsksTheBodyToEndAndWaitsForIt)
{
    TestTask task(-1, &RunUntilStopRequested<TestTask>);
    TaskOwner owner;
    task.Start(&owner);
    EXPECT_EQ(psStarted, task.Status());
    task.Stop();
    EXPECT_TRUE(task.IsStopRequested());
    EXPECT_EQ(psStopped, task.Status());
    DWORD exitCode = STILL_ACTIVE;
    ASSERT_TRUE(::GetExitCodeThread(TestSchedulerTraits::lastThread.Get(), &exitCode));
    EXPECT_EQ(0u, exitCode);  // the thread has ended
}

TEST_F(ThreadedTask, StopTwiceTheSecondCallOnlyWaitsForTermination)
{
    TestTask task(-1, &RunUntilStopRequested<TestTask>);
    TaskOwner owner;
    task.Start(&owner);
    task.Stop();
    task.Stop();
    EXPECT_EQ(psStopped, task.Status());
    EXPECT_EQ(1, TestSchedulerTraits::starts.load());
    EXPECT_EQ(1, owner.runs.load());
}

TEST_F(ThreadedTask, StopOfAStoppedTaskWaitsForTheThreadWithoutRequestingStop)
{
    XHandle linger(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    TestSchedulerTraits::lingerEvent = linger.Get();
    TestTask task(-1, [](TaskOwner*, TestTask&) -> unsigned long { return 0; });
    TaskOwner owner;
    task.Start(&owner);
    ASSERT_TRUE(WaitUntilStopped(task));  // the body has returned; its thread lingers

    XHandle stopReturned(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::thread stopper([&] {
        task.Stop();
        ::SetEvent(stopReturned.Get());
    });
    EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), ::WaitForSingleObject(stopReturned.Get(), 200));
    EXPECT_FALSE(task.IsStopRequested());
    ::SetEvent(linger.Get());
    EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(stopReturned.Get(), 10000));
    stopper.join();
    EXPECT_FALSE(task.IsStopRequested());
}

TEST_F(ThreadedTask, StartOnAStoppedTaskLeavesItStoppedAndStartsNoThread)
{
    TestTask task(-1, [](TaskOwner*, TestTask&) -> unsigned long { return 0; });
    TaskOwner owner;
    task.Start(&owner);
    task.Stop();
    ASSERT_EQ(psStopped, task.Status());
    task.Start(&owner);
    EXPECT_EQ(psStopped, task.Status());
    EXPECT_EQ(1, TestSchedulerTraits::starts.load());
    EXPECT_EQ(1, owner.runs.load());
}

TEST_F(ThreadedTask, StartOnAStartedTaskStartsNoSecondThread)
{
    TestTask task(-1, &RunUntilStopRequested<TestTask>);
    TaskOwner owner;
    task.Start(&owner);
    task.Start(&owner);
    task.Stop();
    EXPECT_EQ(1, TestSchedulerTraits::starts.load());
    EXPECT_EQ(1, owner.runs.load());
}

TEST_F(ThreadedTask, NegativePriorityNeverCallsSetThreadPriority)
{
    // SetThreadPriority(thread, -1) would give THREAD_PRIORITY_BELOW_NORMAL; the default is NORMAL.
    EXPECT_EQ(THREAD_PRIORITY_NORMAL, PriorityOfTaskThread(-1));
    EXPECT_EQ(THREAD_PRIORITY_NORMAL, PriorityOfTaskThread(-2));
}

TEST_F(ThreadedTask, PriorityOfZeroOrMoreIsGivenToTheThread)
{
    EXPECT_EQ(THREAD_PRIORITY_ABOVE_NORMAL, PriorityOfTaskThread(THREAD_PRIORITY_ABOVE_NORMAL));
    EXPECT_EQ(THREAD_PRIORITY_NORMAL, PriorityOfTaskThread(THREAD_PRIORITY_NORMAL));
}

TEST_F(ThreadedTask, CopyPrototypeCopiesThePriority)
{
    RealTask prototype(THREAD_PRIORITY_HIGHEST, [](TaskOwner*, RealTask&) -> unsigned long { return 0; });
    EXPECT_EQ(THREAD_PRIORITY_HIGHEST, PriorityOfTaskThread(-1, &prototype));
    EXPECT_EQ(psNotStarted, prototype.Status());
}

TEST_F(ThreadedTask, ExceptionOfTheBodyBecomesTheThreadResultAndTheTaskStops)
{
    TestTask task(-1, [](TaskOwner*, TestTask&) -> unsigned long {
        XSdmThrow(XSdmLocation("test", 1, XWQComBSTR(L"Test::Body")), E_ACCESSDENIED, L"body failed");
    });
    TaskOwner owner;
    task.Start(&owner);
    task.Stop();
    EXPECT_EQ(psStopped, task.Status());
    DWORD exitCode = 0;
    ASSERT_TRUE(::GetExitCodeThread(TestSchedulerTraits::lastThread.Get(), &exitCode));
    EXPECT_EQ(static_cast<DWORD>(E_ACCESSDENIED), exitCode);
    EXPECT_EQ(1u, LogLinesWith("body failed"));
}

TEST_F(ThreadedTask, ExecuteTurnsEveryEscapingExceptionIntoItsResult)
{
    RealTask standard(-1, [](TaskOwner*, RealTask&) -> unsigned long { throw std::bad_alloc(); });
    RealTask unknown(-1, [](TaskOwner*, RealTask&) -> unsigned long { throw 7; });
    RealTask normal(-1, [](TaskOwner*, RealTask&) -> unsigned long { return 42; });
    TaskOwner owner;
    EXPECT_EQ(static_cast<unsigned long>(E_OUTOFMEMORY), standard._Execute(&owner));
    EXPECT_EQ(static_cast<unsigned long>(E_UNEXPECTED), unknown._Execute(&owner));
    EXPECT_EQ(42ul, normal._Execute(&owner));
    EXPECT_EQ(1u, LogLinesWith("unknown exception"));
    EXPECT_EQ(2u, LogLinesWith("XThreadedTask::_Execute"));
    // Not started through Start: _Execute leaves the status alone.
    EXPECT_EQ(psNotStarted, normal.Status());
}

TEST_F(ThreadedTask, SetTaskStoppedOnATaskNeverStartedChangesNothing)
{
    TestTask task(-1, [](TaskOwner*, TestTask&) -> unsigned long { return 0; });
    task.SetTaskStopped();
    EXPECT_EQ(psNotStarted, task.Status());
    task.WaitForTermination();  // no thread: nothing to wait for
}
