// XStorageDelegatorTask: the worker of the asynchronous storage delegator and its call pipe.
//
// Piping threads append captured calls to the pipe (XStorageRootCallContainer); the worker
// thread, in the multithreaded apartment, wakes after the write interval or when the proceed
// event is set, moves all pending calls out and runs them in piping order on its own pointer to
// the storage root (fetched from the Global Interface Table on the worker thread) through the
// proxy policy with XStorageRootConnHandler. After every pass it sets the pass-done event, on
// which a flush waits.
//
// Nothing is waited on or fetched while the pipe's lock is held, so a single-threaded apartment
// that hosts the root and pipes at the same time is never blocked by the worker.
#pragma once

#include "WQComProxy.h"
#include "XThreadedTask.h"
#include "XWQExcepRefLogger.h"
#include "xcomobject.h"
#include "xstoragerootconnhandler.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

class XStorageRootRegistration;

// The task's owner is the root's registration: the worker fetches its pointer to the root there.
class XStorageDelegatorTask : public XThreadedTask<XStorageRootRegistration>
{
public:
    using Operation = WQComFunctor::XOpFunBase<IWQ_SessionDataIOEx>;
    using Policy = WQComProxy::XComProxyPolicy<IWQ_SessionDataIOEx, XStorageRootConnHandler>;

    // The pipe: the pending calls in piping order and the storage root they run on. The root
    // and its proxy policy belong to the worker thread (only the worker sets, uses and releases
    // them); the list is guarded by the container pointer's lock.
    class XStorageRootCallContainer
    {
    public:
        struct PendingCall
        {
            std::unique_ptr<Operation> functor;
            WQComFunctor::XHeldBstr key;  // the key the call was piped under
        };

        explicit XStorageRootCallContainer(XStorageRootConnHandler& handler) noexcept : m_handler(handler) {}

        void Append(PendingCall call);
        std::vector<PendingCall> TakeCalls() noexcept { return std::move(m_calls); }
        bool Empty() const noexcept { return m_calls.empty(); }

        // Worker thread only.
        bool HasRoot() const noexcept { return static_cast<bool>(m_root); }
        // Binds a new root (owned reference) with a fresh connection: a latched failure of the
        // previous root does not carry over.
        void BindRoot(XComPtr<IWQ_SessionDataIOEx> root);
        void ReleaseRoot() noexcept;
        Policy& Connection() noexcept { return *m_policy; }

    private:
        XStorageRootConnHandler& m_handler;
        std::vector<PendingCall> m_calls;
        XComPtr<IWQ_SessionDataIOEx> m_root;
        std::unique_ptr<Policy> m_policy;
    };
    using PendingCall = XStorageRootCallContainer::PendingCall;

    // interval: seconds, stored as given (0 waits without timeout); registration holds the root
    // and outlives the task.
    XStorageDelegatorTask(long interval, const XStorageRootRegistration& registration);
    ~XStorageDelegatorTask() override;

    void SetInterval(long seconds) noexcept;
    long Interval() const noexcept;

    // Queues a call; a pipe that does not exist yet needs a registered root.
    void Pipe(std::unique_ptr<Operation> functor, BSTR key, unsigned long flags);
    // Runs every pending call now and waits until the worker has; reports a retained failure.
    void Flush();
    // A new storage root was bound: the connection's retained HRESULT is cleared (the logged
    // failure of a piped call is kept) and the worker takes the new root, with a fresh
    // connection, on its own thread at its next pass.
    void OnStorageRootSet();
    void SetProceedEvent();
    HRESULT RetainedError() const;

    unsigned long long CompletedPasses() const noexcept { return m_passes.load(); }
    // Something was piped that has not yet been run.
    bool IsPending() const noexcept;

protected:
    unsigned long Execute(XStorageRootRegistration* registration) override;

private:
    // The pipe, made on first use once a storage root is bound ("storage root instance for async
    // call not set" otherwise). It stays until the task is destroyed.
    XStorageRootCallContainer& GetSessionDataIOCallContainer();
    // Appends a call and marks it pending; the caller holds the pipe's lock.
    void AppendLocked(XStorageRootCallContainer& container, PendingCall call, unsigned long flags);
    void ProceedStorageCallPipe(XWQExcepRefLogger& logger);
    // The worker's root for this pass: bound anew after OnStorageRootSet or when none is bound.
    void RefreshRoot(XStorageRootCallContainer& container);
    void LogFailure(XWQExcepRefLogger& logger, const XWrappedWQException& failure);
    void ReportRetained(unsigned long line) const;
    void ReleaseWorkerRoot() noexcept;
    // One pass, counted, then the pass-done event.
    void Pass(XWQExcepRefLogger& logger);

    // Fields in reverse order of destruction (the events are closed first, in the destructor).
    const XStorageRootRegistration& m_registration;
    XCritData<bool> m_storageRootSet;
    XStorageRootConnHandler m_handler;  // holds the retained HRESULT
    XCritData<XWrappedWQException> m_lastFailure;
    XCritDataPtr<XStorageRootCallContainer> m_container;
    XRefCountCritSection m_flushLock;
    volatile LONG m_interval;
    volatile LONG m_pendingFlags = 0;
    // Calls appended to the pipe and calls run (or dropped) by the worker, over the task's life:
    // a flush waits until the second has reached the value of the first at its start.
    std::atomic<std::uint64_t> m_piped{0};
    std::atomic<std::uint64_t> m_done{0};
    std::atomic<unsigned long long> m_passes{0};
    XHandle m_proceedEvent;
    XHandle m_passDoneEvent;
};
