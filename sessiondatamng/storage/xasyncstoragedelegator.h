// XAsyncStorageDelegator: hands calls on a storage root (IWQ_SessionDataIOEx of another server)
// to a worker thread, which runs them in piping order after the write interval or at once on a
// flush. The root never crosses threads as a raw pointer: SetStorageRoot registers it in the
// Global Interface Table (XStorageRootRegistration) and the worker fetches its own pointer from
// there (and releases it on its own thread); a piping thread that builds the call pipe fetches
// one only to check that a root is registered. Calls run one way: the delegator drives its task,
// and the task reaches only the registration, never the delegator.
//
// A piped call that fails is logged and retained; later calls still run; the next flush or
// GetLastErrorAsyncExecution reports the failure, and every one after it: binding a root again
// clears only the latched connection, never the report of a call that did not arrive. Terminate runs what is pending, then stops the
// worker, and never throws. Every other operation reports failures by throwing the error
// library's exception (source unit "xasyncstoragedelegator").
#pragma once

#include "wqcomfunctor.h"
#include "xcomobject.h"
#include "xsessiondatamng_h.h"
#include "xstoragerootregistration.h"

#include <memory>

class XStorageDelegatorTask;

class XAsyncStorageDelegator
{
public:
    // A captured call on the storage root, as the pipe keeps it (owns copies of its arguments).
    using Operation = WQComFunctor::XOpFunBase<IWQ_SessionDataIOEx>;

    XAsyncStorageDelegator();
    // Stops a worker that is still running (as Terminate), then closes the task.
    ~XAsyncStorageDelegator();
    XAsyncStorageDelegator(const XAsyncStorageDelegator&) = delete;
    XAsyncStorageDelegator& operator=(const XAsyncStorageDelegator&) = delete;

    // Binds the delegator to a storage root (called on the thread that owns root). A root that
    // was bound before is flushed (when the worker runs) and revoked from the table first.
    void SetStorageRoot(IWQ_SessionDataIOEx* root);
    // Sets the worker's interval in seconds (<= 0: 20; 1 or 2: 3; above 120: 120) and starts the
    // worker if it has not been started.
    void SetWriteInterval(long seconds);
    // The interval in force, in seconds.
    long WriteInterval() const noexcept;
    // Queues one call; key is the key the call was piped under; flags are ORed into the
    // pending flags (non-zero means something is pending).
    void PipeStorageRootCall(std::unique_ptr<Operation> functor, BSTR key, unsigned long flags);
    // Runs every pending call now and waits until the worker has; reports a retained failure.
    void FlushStorageCallPipe();
    // The retained failure of a piped call; S_OK where none.
    void GetLastErrorAsyncExecution(HRESULT* result);
    // Wakes the worker.
    void SetProceedEvent();
    // Flushes and stops the worker; the flush's failure is the result. Harmless when repeated.
    HRESULT Terminate() noexcept;

    // Diagnostics: the number of passes over the pipe that the worker has completed.
    unsigned long long CompletedPasses() const noexcept;
    // The interval that SetWriteInterval makes of a requested number of seconds.
    static long ClampWriteInterval(long seconds) noexcept;

private:
    // The root in the Global Interface Table; the task fetches the worker's pointer from it.
    // Declared before the task, which refers to it: it outlives the task.
    XStorageRootRegistration m_registration;
    std::unique_ptr<XStorageDelegatorTask> m_task;
    // Serialises SetStorageRoot (in the .cpp file).
    struct State;
    std::unique_ptr<State> m_state;
};
