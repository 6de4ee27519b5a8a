// XThreadSync: events, and the wait that keeps dispatching window messages.
#include "XThreadSync.h"
#include "testenv.h"
#include "threadingdoubles.h"

#include <gtest/gtest.h>
#include <thread>

namespace
{
// A handle value that names no object of this process.
HANDLE NoSuchHandle()
{
    return reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(0x7FFF0));
}

template <class Call>
XWrappedWQException ReportOf(Call call)
{
    try
    {
        call();
    }
    catch (const XWrappedWQException& report)
    {
        return report;
    }
    return XWrappedWQException();
}

HANDLE g_timerEvent = nullptr;

void CALLBACK SignalFromTimer(HWND, UINT, UINT_PTR, DWORD)
{
    ::SetEvent(g_timerEvent);
}
} // namespace

TEST(XThreadSync, AutoResetEventReleasesOneWait)
{
    XHandle event;
    XThreadSync::CreateEventAutoReset(event, true);
    ASSERT_TRUE(event);
    EXPECT_TRUE(XThreadSync::WaitForEvent(event.Get(), 0));
    EXPECT_FALSE(XThreadSync::WaitForEvent(event.Get(), 0));
    XThreadSync::SetEvent(event.Get());
    EXPECT_TRUE(XThreadSync::WaitForEvent(event.Get(), 0));
}

TEST(XThreadSync, ManualResetEventStaysSignalledUntilReset)
{
    XHandle event;
    XThreadSync::CreateEvent(event, false);
    ASSERT_TRUE(event);
    EXPECT_FALSE(XThreadSync::WaitForEvent(event.Get(), 0));
    XThreadSync::SetEvent(event.Get());
    EXPECT_TRUE(XThreadSync::WaitForEvent(event.Get(), 0));
    EXPECT_TRUE(XThreadSync::WaitForEvent(event.Get(), 0));
    XThreadSync::ResetEvent(event.Get());
    EXPECT_FALSE(XThreadSync::WaitForEvent(event.Get(), 0));
}

TEST(XThreadSync, SetEventWithNullHandleReportsWaitHandleIsNull)
{
    const XWrappedWQException report = ReportOf([] { XThreadSync::SetEvent(nullptr); });
    ASSERT_TRUE(report.HasException());
    EXPECT_EQ(E_POINTER, report.Result());
    EXPECT_EQ(L"wait handle is NULL", report->Message().ToWString());
    EXPECT_EQ(L"XThreadSync::SetEvent", report->Location().Function().ToWString());
    EXPECT_EQ("XThreadSync", report->Location().SourceUnit());
}

TEST(XThreadSync, ResetEventReportsUnderTheNameOfSetEvent)
{
    const XWrappedWQException nullReport = ReportOf([] { XThreadSync::ResetEvent(nullptr); });
    ASSERT_TRUE(nullReport.HasException());
    EXPECT_EQ(L"wait handle is NULL", nullReport->Message().ToWString());
    EXPECT_EQ(L"XThreadSync::SetEvent", nullReport->Location().Function().ToWString());

    const XWrappedWQException failReport = ReportOf([] { XThreadSync::ResetEvent(NoSuchHandle()); });
    ASSERT_TRUE(failReport.HasException());
    EXPECT_TRUE(FAILED(failReport.Result()));
    EXPECT_EQ(L"wait for signaled event failed", failReport->Message().ToWString());
    EXPECT_EQ(L"XThreadSync::SetEvent", failReport->Location().Function().ToWString());
}

TEST(XThreadSync, FailingSetEventReportsWaitForSignaledEventFailed)
{
    const XWrappedWQException report = ReportOf([] { XThreadSync::SetEvent(NoSuchHandle()); });
    ASSERT_TRUE(report.HasException());
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE), report.Result());
    EXPECT_EQ(L"wait for signaled event failed", report->Message().ToWString());
}

TEST(XThreadSync, WaitWithNullHandleReportsWaitHandleIsNull)
{
    const XWrappedWQException report = ReportOf([] { XThreadSync::WaitForEvent(nullptr, 0); });
    ASSERT_TRUE(report.HasException());
    EXPECT_EQ(L"wait handle is NULL", report->Message().ToWString());
    EXPECT_EQ(L"XThreadSync::WaitForEvent", report->Location().Function().ToWString());
}

TEST(XThreadSync, FailedWaitReportsWaitForSignaledEventFailed)
{
    const XWrappedWQException report = ReportOf([] { XThreadSync::WaitForEvent(NoSuchHandle(), 10); });
    ASSERT_TRUE(report.HasException());
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE), report.Result());
    EXPECT_EQ(L"wait for signaled event failed", report->Message().ToWString());
}

TEST(XThreadSync, FiniteWaitThatTimesOutReturnsFalseAndReportsNothing)
{
    ClearLogBook();
    XHandle event;
    XThreadSync::CreateEvent(event, false);
    bool signalled = true;
    EXPECT_NO_THROW(signalled = XThreadSync::WaitForEvent(event.Get(), 20));
    EXPECT_FALSE(signalled);
    EXPECT_TRUE(ReadLogBook().empty());
    EXPECT_FALSE(TakeErrorInfo().present);
    EXPECT_EQ(XThreadSync::WaitStep::timedOut, XThreadSync::EvaluateWaitResult(WAIT_TIMEOUT, 20, 0));
}

TEST(XThreadSync, InfiniteWaitThatTimesOutReportsIt)
{
    const XWrappedWQException report =
        ReportOf([] { XThreadSync::EvaluateWaitResult(WAIT_TIMEOUT, INFINITE, 0); });
    ASSERT_TRUE(report.HasException());
    EXPECT_EQ(L"infinite wait event unexpectedly timed out", report->Message().ToWString());
    EXPECT_EQ(L"XThreadSync::WaitForEvent", report->Location().Function().ToWString());
}

TEST(XThreadSync, WaitResultsOtherThanMessageTimeoutAndFailureMeanSignalled)
{
    EXPECT_EQ(XThreadSync::WaitStep::signalled, XThreadSync::EvaluateWaitResult(WAIT_OBJECT_0, INFINITE, 0));
    EXPECT_EQ(XThreadSync::WaitStep::signalled, XThreadSync::EvaluateWaitResult(WAIT_ABANDONED_0, 5, 0));
    EXPECT_EQ(XThreadSync::WaitStep::messageArrived, XThreadSync::EvaluateWaitResult(WAIT_OBJECT_0 + 1, 5, 0));
}

TEST(XThreadSync, WaitDispatchesWindowMessages)
{
    // The timer's callback runs only when its WM_TIMER is dispatched, and it sets the event
    // that the wait waits for.
    XHandle event;
    XThreadSync::CreateEvent(event, false);
    g_timerEvent = event.Get();
    const UINT_PTR timer = ::SetTimer(nullptr, 0, 10, &SignalFromTimer);
    ASSERT_NE(0u, timer);
    const bool signalled = XThreadSync::WaitForEvent(event.Get(), 10000);
    ::KillTimer(nullptr, timer);
    g_timerEvent = nullptr;
    EXPECT_TRUE(signalled);
}

TEST(XThreadSync, EveryMessageRestartsTheFullTimeout)
{
    MSG message;
    ::PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE);  // this thread's message queue exists now
    const DWORD waiter = ::GetCurrentThreadId();
    XHandle never;
    XThreadSync::CreateEvent(never, false);

    const DWORD timeout = 150;
    std::thread poster([waiter] {
        for (int i = 0; i < 6; ++i)
        {
            ::Sleep(60);
            ::PostThreadMessageW(waiter, WM_APP, 0, 0);
        }
    });
    const ULONGLONG begin = ::GetTickCount64();
    const bool signalled = XThreadSync::WaitForEvent(never.Get(), timeout);
    const ULONGLONG elapsed = ::GetTickCount64() - begin;
    poster.join();
    EXPECT_FALSE(signalled);
    // Six messages 60 ms apart each restart the 150 ms: the wait lasts well past twice its timeout.
    EXPECT_GE(elapsed, 2u * timeout);
}
