// Test doubles of the threading tests: a lock traits class that counts (and can re-enter the
// critical section between unlocking and erasing), a scheduler traits class that starts real
// threads and can keep them alive after their task ended, a task with a scripted body, an
// IDispatch object that records the threads calling it, and a scripted connection handler.
#pragma once

#include "XBasicCritSection.h"
#include "XThreadedTask.h"
#include "xcomobject.h"

#include <atomic>
#include <functional>
#include <oaidl.h>
#include <string>
#include <vector>

// Lines of this test process's log book that contain the text.
size_t LogLinesWith(const std::string& text);
std::string NarrowText(const std::wstring& text);

// ---------------------------------------------------------------------------------------------
struct CountingLockTraits
{
    using LockType = XCriticalSectionEx;

    static std::atomic<int> readLocks;
    static std::atomic<int> writeLocks;
    static std::atomic<int> readUnlocks;
    static std::atomic<int> writeUnlocks;
    // Runs once, right after the next unlock of the underlying lock (then it is cleared).
    static std::function<void()> afterUnlock;

    static void Reset();
    static void Lock(LockType& lock, XLockRefKind kind) noexcept;
    static void Unlock(LockType& lock, XLockRefKind kind) noexcept;
};

using CountingCritSection = XBasicRefCountCritSection<CountingLockTraits>;

// ---------------------------------------------------------------------------------------------
struct TestSchedulerTraits
{
    static std::atomic<int> starts;
    // While set (not signalled), every thread waits on it after its task entry returned.
    static HANDLE lingerEvent;
    // A handle of the last thread started.
    static XHandle lastThread;

    static void Reset();
    static XHandle StartThread(XThreadEntry entry, void* argument, int priority);
};

// ---------------------------------------------------------------------------------------------
struct TaskOwner
{
    std::atomic<int> runs{0};
};

template <class Traits = XThreadedTaskTraits::XThreadSchedulerTraits<XDelegatorThreadScheduler>>
class ScriptedTask : public XThreadedTask<TaskOwner, Traits>
{
public:
    using Body = std::function<unsigned long(TaskOwner*, ScriptedTask&)>;

    ScriptedTask(long priority, Body body) : XThreadedTask<TaskOwner, Traits>(priority), m_body(std::move(body)) {}
    ~ScriptedTask() override
    {
        try
        {
            this->Stop();
        }
        catch (...)
        {
        }
    }

protected:
    unsigned long Execute(TaskOwner* owner) override
    {
        if (owner)
            ++owner->runs;
        return m_body(owner, *this);
    }

private:
    Body m_body;
};

// Runs until Stop asks it to end (testing the flag at each iteration, as a body must).
template <class Task>
unsigned long RunUntilStopRequested(TaskOwner*, Task& task)
{
    while (!task.IsStopRequested())
        ::Sleep(1);
    return 0;
}

// Polls the task's status until it is stopped (true) or about ten seconds passed (false).
template <class Task>
bool WaitUntilStopped(const Task& task)
{
    for (int i = 0; i < 10000; ++i)
    {
        if (task.Status() == psStopped)
            return true;
        ::Sleep(1);
    }
    return false;
}

// ---------------------------------------------------------------------------------------------
// IDispatch object whose GetTypeInfoCount records the calling thread.
class ThreadRecordingDispatch : public IDispatch
{
public:
    virtual ~ThreadRecordingDispatch() = default;
    static ThreadRecordingDispatch* Create();  // reference count 1
    HRESULT InternalQueryInterface(REFIID iid, void** ppv);

    std::atomic<DWORD> lastCallerThread{0};
    std::atomic<int> calls{0};

    STDMETHODIMP GetTypeInfoCount(UINT* count) override;
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override
    {
        return E_NOTIMPL;
    }
};

// ---------------------------------------------------------------------------------------------
// Connection handler: answers true (repeat) repeatsLeft times; otherwise treats a failure of the
// RPC facility, or RPC_S_SERVER_UNAVAILABLE, without COM error information as a broken
// connection (hr becomes kLatchedFailure); a failure with error information leaves it intact.
struct ScriptedConnHandler
{
    static constexpr HRESULT kLatchedFailure = static_cast<HRESULT>(0x80040851);

    int repeatsLeft = 0;
    std::vector<HRESULT> seen;
    std::vector<void*> contexts;

    bool VerifyConnection(HRESULT& hr, bool& connectionFault, void* context);
};
