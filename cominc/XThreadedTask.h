// A task that runs one method of an owner on a thread of its own.
//
// States (ProceedStatus, kept as guarded data): not started -> (Start) started -> (the body
// returns, SetTaskStopped) stopped. Stopped is final: Start on a stopped task does nothing.
// Stop asks the body to end (the stop-requested flag, which the body tests at each iteration of
// its loop), waits for the completion event and then for the thread's end. Every wait dispatches
// window messages, so a single-threaded apartment that stops a task keeps serving COM calls.
//
// The thread is started through ThreadSchedulerTraits (by default the process-wide
// XDelegatorThreadScheduler). The termination handle is the task's own handle of its thread,
// returned by the scheduler's StartThread; the task closes it when it is destroyed.
// CopyPrototype copies the priority only: events, status, owner and thread belong to each task.
//
// An owner of a task stops it (Stop) before destroying it; the destructor only closes handles.
// Failures are raised as the error library's exceptions (source unit "XThreadedTask").
#pragma once

#include "XBasicCritSection.h"
#include "XDelegatorThreadScheduler.h"
#include "XStructuredExceptionGuard.h"
#include "XThreadSync.h"
#include "xsdmerror.h"

enum ProceedStatus
{
    psNotStarted = 0,
    psStarted = 1,
    psStopped = 2
};

namespace XThreadedTaskTraits
{
template <class Scheduler>
struct XThreadSchedulerTraits
{
    static XHandle StartThread(XThreadEntry entry, void* argument, int priority)
    {
        return Scheduler::Instance().StartThread(entry, argument, priority);
    }
};
} // namespace XThreadedTaskTraits

// Reports and escaped-exception handling shared by all task instances.
namespace XThreadedTaskReport
{
[[noreturn]] void Fail(unsigned long line, const XWQComBSTR& function, HRESULT hr, const wchar_t* message);
// As Fail, with the HRESULT of a system error code.
[[noreturn]] void FailSystem(unsigned long line, const XWQComBSTR& function, DWORD error, const wchar_t* message);
// Logs the exception in flight (call inside a catch block) and returns the thread result for it:
// the carried HRESULT, the library's HRESULT of a standard exception, or E_UNEXPECTED.
unsigned long ResultOfEscaped() noexcept;
void LogStartError(const XWrappedWQException& error) noexcept;
} // namespace XThreadedTaskReport

template <class Owner, class ThreadSchedulerTraits = XThreadedTaskTraits::XThreadSchedulerTraits<XDelegatorThreadScheduler>>
class XThreadedTask
{
public:
    // priority: the thread priority; a negative value leaves the system's default.
    explicit XThreadedTask(long priority) : m_priority(priority), m_status(psNotStarted)
    {
        XThreadSync::CreateEvent(m_startEvent, false);
    }
    virtual ~XThreadedTask() = default;
    XThreadedTask(const XThreadedTask&) = delete;
    XThreadedTask& operator=(const XThreadedTask&) = delete;

    // Starts the thread for owner; only a task that was never started starts.
    void Start(Owner* owner)
    {
        XCritProxy<ProceedStatus> status(m_status);
        if (*status != psNotStarted)
            return;
        m_owner = owner;
        m_completionEvent.Reset();
        XThreadSync::CreateEvent(m_completionEvent, false);
        m_terminationHandle = ThreadSchedulerTraits::StartThread(&XThreadedTask::ThreadEntry, this, m_priority);
        *status = psStarted;
    }

    // Asks the body to end and waits until the thread has ended. Nothing to do for a task that
    // was never started; a stopped task is only waited for.
    void Stop()
    {
        HANDLE completion = nullptr;
        {
            XCritReadProxy<ProceedStatus> status(m_status);
            if (*status == psNotStarted)
                return;
            if (*status == psStarted)
            {
                completion = m_completionEvent.Get();
                if (!completion)
                    XThreadedTaskReport::Fail(__LINE__, XSDM_FUNCTION_NAME(L"XThreadedTask::Stop"), E_FAIL,
                                              L"no task completion event created");
            }
        }
        if (completion)
        {
            RequestStop();
            if (!XThreadSync::WaitForEvent(completion, INFINITE))
                XThreadedTaskReport::Fail(__LINE__, XSDM_FUNCTION_NAME(L"XThreadedTask::Stop"), E_FAIL,
                                          L"wait event timeout");
        }
        WaitForTermination();
    }

    // Waits (dispatching messages) until the thread has ended; nothing to wait for without a thread.
    void WaitForTermination()
    {
        if (!m_terminationHandle)
            return;
        if (!XThreadSync::WaitForEvent(m_terminationHandle.Get(), INFINITE))
            XThreadedTaskReport::Fail(__LINE__, XSDM_FUNCTION_NAME(L"XThreadedTask::WaitForTermination"), E_FAIL,
                                      L"wait event timeout");
    }

    // Marks a started task stopped and signals its completion event.
    void SetTaskStopped()
    {
        XCritProxy<ProceedStatus> status(m_status);
        if (*status == psNotStarted || *status == psStopped)
            return;
        if (!m_completionEvent)
            XThreadSync::CreateEvent(m_completionEvent, false);
        *status = psStopped;
        if (!::SetEvent(m_completionEvent.Get()))
        {
            const DWORD error = ::GetLastError();
            XThreadedTaskReport::FailSystem(__LINE__, XSDM_FUNCTION_NAME(L"XThreadedTask::SetTaskStopped"), error,
                                            L"SetEvent failed");
        }
    }

    void CopyPrototype(const XThreadedTask& prototype) noexcept { m_priority = prototype.m_priority; }

    // The thread's entry for the task: signals the start event, runs the body, and marks the
    // task stopped. Nothing escapes: an exception becomes the thread's result (and is logged).
    unsigned long _Execute(Owner* owner)
    {
        try
        {
            if (!m_startEvent)
                XThreadedTaskReport::Fail(__LINE__, XSDM_FUNCTION_NAME(L"XThreadedTask::_Execute"), E_FAIL,
                                          L"task start event not created");
            if (!::SetEvent(m_startEvent.Get()))
            {
                const DWORD error = ::GetLastError();
                XThreadedTaskReport::FailSystem(__LINE__, XSDM_FUNCTION_NAME(L"XThreadedTask::_Execute"), error,
                                                L"SetEvent failed");
            }
        }
        catch (const XWrappedWQException& error)
        {
            OnStartError(error);
        }

        unsigned long result = 0;
        try
        {
            BodyCall call{this, owner};
            result = XRunWithSeTranslation(&XThreadedTask::RunBody, &call);
        }
        catch (...)
        {
            result = XThreadedTaskReport::ResultOfEscaped();
        }
        try
        {
            SetTaskStopped();
        }
        catch (...)
        {
            XThreadedTaskReport::ResultOfEscaped();
        }
        return result;
    }

    ProceedStatus Status() const
    {
        XCritReadProxy<ProceedStatus> status(m_status);
        return *status;
    }
    bool IsStopRequested() const noexcept { return ::InterlockedCompareExchange(&m_stopRequested, 0, 0) != 0; }
    // Sets the stop-requested flag (atomic exchange); Stop does this before it waits.
    void RequestStop() noexcept { ::InterlockedExchange(&m_stopRequested, 1); }
    // Signalled once the thread has begun to run the task.
    HANDLE StartEvent() const noexcept { return m_startEvent.Get(); }

protected:
    // The error hook: receives an error that arose while the thread was starting the task.
    virtual void OnStartError(const XWrappedWQException& error) { XThreadedTaskReport::LogStartError(error); }
    // The body, run on the task's thread; it tests IsStopRequested() at each iteration of its loop.
    virtual unsigned long Execute(Owner* owner) = 0;
    // A lock for the task's own use.
    XRefCountCritSection& TaskLock() noexcept { return m_taskLock; }

private:
    struct BodyCall
    {
        XThreadedTask* task;
        Owner* owner;
    };
    static unsigned long RunBody(void* call)
    {
        BodyCall* body = static_cast<BodyCall*>(call);
        return body->task->Execute(body->owner);
    }
    static unsigned ThreadEntry(void* task)
    {
        XThreadedTask* self = static_cast<XThreadedTask*>(task);
        return static_cast<unsigned>(self->_Execute(self->m_owner));
    }

    Owner* m_owner = nullptr;
    mutable volatile LONG m_stopRequested = 0;
    XHandle m_startEvent;
    XHandle m_completionEvent;
    XHandle m_terminationHandle;
    long m_priority;
    XCritData<ProceedStatus> m_status;
    XRefCountCritSection m_taskLock;
};
