// The process-wide scheduler that starts the threads of threaded tasks.
//
// Threads are started suspended with _beginthreadex, given their priority (only a priority of 0
// or more is set; a negative one leaves the system's default), resumed, and kept by the scheduler.
//
// Handles: the scheduler keeps the handle that _beginthreadex returned for every thread it
// started. Each StartThread first closes the kept handles of threads that have ended meanwhile;
// the rest are closed when the scheduler is destroyed at process end (without waiting for the
// threads). The caller of StartThread gets a handle of its own to the new thread (a duplicate),
// which it closes itself: a threaded task uses it as its termination handle, so that the
// scheduler's bookkeeping never closes a handle that a task still waits on.
//
// The instance is made on first use, published with an atomic compare-and-exchange, and
// destroyed at process end (registered with atexit); after that, Instance() reports
// "XDelegatorThreadScheduler already destructed" and no thread can be started.
#pragma once

#include "XBasicCritSection.h"
#include "XThreadSync.h"

#include <vector>

// Entry of a thread started by the scheduler: called with its argument, returns the thread's result.
using XThreadEntry = unsigned (*)(void* argument);

class XDelegatorThreadScheduler
{
public:
    static XDelegatorThreadScheduler& Instance();

    // Starts entry(argument) on a new thread; returns a handle of that thread owned by the caller.
    XHandle StartThread(XThreadEntry entry, void* argument, int priority);

    // The thread procedure given to the runtime: runs the entry of the thread parameter and
    // frees the parameter. A null parameter is reported (E_INVALIDARG) and, like any exception
    // that escapes, written to the log book; the result is then 0xFFFFFFFF.
    static unsigned __stdcall RunThreadTask(void* parameter);

    ~XDelegatorThreadScheduler();
    XDelegatorThreadScheduler(const XDelegatorThreadScheduler&) = delete;
    XDelegatorThreadScheduler& operator=(const XDelegatorThreadScheduler&) = delete;

private:
    XDelegatorThreadScheduler() = default;
    static void DestroyInstance() noexcept;
    // Keeps a started thread's handle; closes those of threads that have ended.
    void KeepThread(XHandle thread);

    XCritData<std::vector<HANDLE>> m_threads;
};
