#include "xstoragedelegatortask.h"

#include "XStructuredExceptionGuard.h"
#include "xstoragerootregistration.h"
#include "xdelegatorreport.h"
#include "xsetranslator.h"

namespace
{

const wchar_t kClosed[] = L"the asynchronous storage delegator has been closed";
const wchar_t kRootNotSet[] = L"storage root instance for async call not set";
const wchar_t kCallFailed[] = L"async call on session data storage root failed";
const wchar_t kFlushFailed[] = L"flushing the asynchronous storage call pipe returned an error";

const XWQComBSTR& PipeName()
{
    return XSDM_FUNCTION_NAME(L"XAsyncStorageDelegator::PipeStorageRootCall");
}
const XWQComBSTR& ContainerName()
{
    return XSDM_FUNCTION_NAME(L"XStorageDelegatorTask::GetSessionDataIOCallContainer");
}
const XWQComBSTR& ExecuteName()
{
    return XSDM_FUNCTION_NAME(L"XStorageDelegatorTask::Execute");
}
const XWQComBSTR& ProceedName()
{
    return XSDM_FUNCTION_NAME(L"XStorageDelegatorTask::ProceedStorageCallPipe");
}
const XWQComBSTR& FlushName()
{
    return XSDM_FUNCTION_NAME(L"XAsyncStorageDelegator::FlushStorageCallPipe");
}


// The worker's membership of the multithreaded apartment, for the worker's lifetime.
class XWorkerApartment
{
public:
    XWorkerApartment()
    {
        const HRESULT hr = ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        if (FAILED(hr))
            XDelegatorReport().Raise(__LINE__, ExecuteName(), hr, L"CoInitializeEx failed");
    }
    ~XWorkerApartment() { ::CoUninitialize(); }
    XWorkerApartment(const XWorkerApartment&) = delete;
    XWorkerApartment& operator=(const XWorkerApartment&) = delete;
};
} // namespace

// ---------------------------------------------------------------------------------------------
// The pipe.

void XStorageDelegatorTask::XStorageRootCallContainer::Append(PendingCall call)
{
    m_calls.push_back(std::move(call));
}

void XStorageDelegatorTask::XStorageRootCallContainer::BindRoot(XComPtr<IWQ_SessionDataIOEx> root)
{
    auto policy = std::make_unique<Policy>(&m_handler);
    policy->RegisterInvocation(WQComFunctor::XSmartPtrFun<XComPtr<IWQ_SessionDataIOEx>>(root));
    m_policy = std::move(policy);
    m_root = std::move(root);
}

void XStorageDelegatorTask::XStorageRootCallContainer::ReleaseRoot() noexcept
{
    m_policy.reset();
    m_root.Reset();
}

// ---------------------------------------------------------------------------------------------
// The task.

XStorageDelegatorTask::XStorageDelegatorTask(long interval, const XStorageRootRegistration& registration)
    : XThreadedTask<XStorageRootRegistration>(-1), m_registration(registration), m_storageRootSet(false),
      m_interval(interval)
{
    XThreadSync::CreateEventAutoReset(m_proceedEvent, false);
    XThreadSync::CreateEvent(m_passDoneEvent, false);
}

XStorageDelegatorTask::~XStorageDelegatorTask()
{
    m_proceedEvent.Reset();
    m_passDoneEvent.Reset();
}

void XStorageDelegatorTask::SetInterval(long seconds) noexcept
{
    ::InterlockedExchange(&m_interval, seconds);
}

long XStorageDelegatorTask::Interval() const noexcept
{
    return ::InterlockedCompareExchange(const_cast<volatile LONG*>(&m_interval), 0, 0);
}

bool XStorageDelegatorTask::IsPending() const noexcept
{
    if (::InterlockedCompareExchange(const_cast<volatile LONG*>(&m_pendingFlags), 0, 0) != 0)
        return true;
    // Calls already moved out of the pipe count until the worker has run them.
    return m_done.load() < m_piped.load();
}

XStorageDelegatorTask::XStorageRootCallContainer& XStorageDelegatorTask::GetSessionDataIOCallContainer()
{
    {
        XCritProxyPtr<XStorageRootCallContainer> pipe(m_container);
        if (pipe)
            return *pipe.Get();
    }
    // The first call: a root must be bound. The check fetches from the table outside the pipe's
    // lock (the fetch may need the root's apartment to answer) and keeps nothing: the worker
    // fetches its own pointer.
    if (!m_registration.Fetch())
        XDelegatorReport().Raise(__LINE__, ContainerName(), E_POINTER, kRootNotSet);
    XCritProxyPtr<XStorageRootCallContainer> pipe(m_container);
    if (!pipe)
        pipe.Reset(std::make_unique<XStorageRootCallContainer>(m_handler));
    // The container stays until the task is destroyed, so its address outlives the lock.
    return *pipe.Get();
}

void XStorageDelegatorTask::Pipe(std::unique_ptr<Operation> functor, BSTR key, unsigned long flags)
{
    if (IsStopRequested())
        XDelegatorReport().Raise(__LINE__, PipeName(), E_FAIL, kClosed);
    if (!functor)  // the location is made only for the report: piping is on the caller's hot path
        XDelegatorReport().CheckPointerOrRaise(__LINE__, PipeName(), nullptr);

    // The key is copied before the pipe's lock is taken; once the pipe exists, piping takes its
    // lock once and nothing else.
    PendingCall call{std::move(functor), WQComFunctor::XHeldBstr(key)};
    {
        XCritProxyPtr<XStorageRootCallContainer> pipe(m_container);
        if (pipe)
        {
            AppendLocked(*pipe.Get(), std::move(call), flags);
            return;
        }
    }
    XStorageRootCallContainer& container = GetSessionDataIOCallContainer();
    XCritProxyPtr<XStorageRootCallContainer> pipe(m_container);
    AppendLocked(container, std::move(call), flags);
}

void XStorageDelegatorTask::AppendLocked(XStorageRootCallContainer& container, PendingCall call,
                                         unsigned long flags)
{
    container.Append(std::move(call));
    // Marked under the pipe's lock, so a pass that moves the calls out also clears exactly their
    // flags. A call piped without flag bits still counts as pending.
    ::InterlockedOr(&m_pendingFlags, static_cast<LONG>(flags ? flags : 1));
    m_piped.fetch_add(1);
}

void XStorageDelegatorTask::Flush()
{
    if (!IsPending())
    {
        ReportRetained(__LINE__);
        return;
    }

    XSmartCritSection<XRefCountCritSection>::WriteRef flushing(m_flushLock);
    const std::uint64_t target = m_piped.load();
    for (;;)
    {
        // Reset before testing: a pass that ends after the test signals the event again.
        XThreadSync::ResetEvent(m_passDoneEvent.Get());
        if (m_done.load() >= target)
            break;
        SetProceedEvent();
        const ProceedStatus status = Status();
        if (status != psStarted)
            break;  // no worker to wait for (never started, or stopped)
        bool finished = false;
        while (!XThreadSync::WaitForEvent(m_passDoneEvent.Get(), 100))
        {
            // Each step also looks whether the calls have run meanwhile, so a signal that was
            // missed costs one step at most.
            if (Status() == psStopped || m_done.load() >= target)
            {
                finished = true;
                break;
            }
        }
        if (finished)
            break;
        // A pass ended; it may have been one that began before these calls were piped.
    }
    ReportRetained(__LINE__);
}

void XStorageDelegatorTask::OnStorageRootSet()
{
    // Only the connection's retained HRESULT starts afresh. The logged failure stays: calls piped
    // before the new root that never reached a root must still be reported by the next flush.
    m_handler.ResetRetained();
    {
        XCritProxy<bool> rootSet(m_storageRootSet);
        *rootSet = true;
    }
    SetProceedEvent();
}

void XStorageDelegatorTask::SetProceedEvent()
{
    XThreadSync::SetEvent(m_proceedEvent.Get());
}

HRESULT XStorageDelegatorTask::RetainedError() const
{
    const HRESULT retained = m_handler.Retained();
    if (FAILED(retained))
        return retained;
    XCritReadProxy<XWrappedWQException> last(m_lastFailure);
    if (last->HasException() && FAILED(last->Result()))
        return last->Result();
    return S_OK;
}

void XStorageDelegatorTask::ReportRetained(unsigned long line) const
{
    const HRESULT retained = RetainedError();
    if (FAILED(retained))
        XDelegatorReport().Raise(line, FlushName(), retained, kFlushFailed);
}

// ---------------------------------------------------------------------------------------------
// The worker.

unsigned long XStorageDelegatorTask::Execute(XStorageRootRegistration* registration)
{
    XScopedSeTranslator translator(&XSdmTranslateStructuredException);
    try
    {
        XDelegatorReport().CheckPointerOrRaise(__LINE__, ExecuteName(), registration);
        XWorkerApartment apartment;
        // The worker's root is released on this thread, while it is still in the apartment.
        struct RootRelease
        {
            XStorageDelegatorTask& task;
            ~RootRelease() { task.ReleaseWorkerRoot(); }
        } rootRelease{*this};
        XWQExcepRefLogger logger(100);

        while (!IsStopRequested())
        {
            const long interval = Interval();
            XThreadSync::WaitForEvent(m_proceedEvent.Get(),
                                      interval <= 0 ? INFINITE : static_cast<DWORD>(interval) * 1000u);
            Pass(logger);
        }
        // Calls piped while the last pass ran, before piping was closed.
        Pass(logger);
        return 0;
    }
    catch (const XWrappedWQException& failure)
    {
        XWQError::WriteErrorToLogBook(failure, true, 0);
        XCritProxy<XWrappedWQException> last(m_lastFailure);
        *last = failure;
    }
    catch (const std::exception& failure)
    {
        XWQError::WriteErrorToLogBook(XDelegatorReport().Where(__LINE__, ExecuteName()), failure, XWQEXCEP::SEV_ERROR, XWQComBSTR());
    }
    catch (...)
    {
        XWQError::WriteUnknownErrorToLogBook(XDelegatorReport().Where(__LINE__, ExecuteName()), XWQComBSTR());
    }
    // No flusher is left waiting for a worker that has ended.
    ::SetEvent(m_passDoneEvent.Get());
    return 0;
}

void XStorageDelegatorTask::Pass(XWQExcepRefLogger& logger)
{
    ProceedStorageCallPipe(logger);
    m_passes.fetch_add(1);
    XThreadSync::SetEvent(m_passDoneEvent.Get());
}

void XStorageDelegatorTask::ProceedStorageCallPipe(XWQExcepRefLogger& logger)
{
    std::vector<XStorageRootCallContainer::PendingCall> calls;
    XStorageRootCallContainer* container = nullptr;
    {
        XCritProxyPtr<XStorageRootCallContainer> pipe(m_container);
        if (!pipe || pipe->Empty())
            return;
        calls = pipe->TakeCalls();
        ::InterlockedExchange(&m_pendingFlags, 0);
        container = pipe.Get();
    }

    // The calls count as done once they have run and their captured arguments are freed.
    struct Done
    {
        std::vector<XStorageRootCallContainer::PendingCall>& calls;
        std::atomic<std::uint64_t>& done;
        std::uint64_t count;
        ~Done()
        {
            calls.clear();
            done.fetch_add(count);
        }
    } doneGuard{calls, m_done, calls.size()};

    try
    {
        RefreshRoot(*container);
    }
    catch (const XWrappedWQException& failure)
    {
        // Without a root the calls cannot run: they are dropped and the failure is retained.
        LogFailure(logger, failure);
        return;
    }

    for (auto& call : calls)
    {
        // Error information found after the call must be the call's own.
        ::SetErrorInfo(0, nullptr);
        const HRESULT hr = container->Connection().DoRemoteCall(*call.functor, nullptr);
        if (FAILED(hr))
            LogFailure(logger, XWQExceptionFactory::Create(XWQEXCEP::EXCEP_APPLICATION, XDelegatorReport().Where(__LINE__, ProceedName()),
                                                           hr, XWQEXCEP::SEV_ERROR, 0, XWQComBSTR(kCallFailed),
                                                           XWQComBSTR(), 0));
        call.functor.reset();
    }
}

void XStorageDelegatorTask::RefreshRoot(XStorageRootCallContainer& container)
{
    bool rootSet = false;
    {
        XCritProxy<bool> flag(m_storageRootSet);
        rootSet = *flag;
        *flag = false;
    }
    if (!rootSet && container.HasRoot())
        return;
    container.ReleaseRoot();
    XComPtr<IWQ_SessionDataIOEx> root = m_registration.Fetch();
    if (!root)
        XDelegatorReport().Raise(__LINE__, ContainerName(), E_POINTER, kRootNotSet);
    container.BindRoot(std::move(root));
}

void XStorageDelegatorTask::LogFailure(XWQExcepRefLogger& logger, const XWrappedWQException& failure)
{
    logger.Add(failure);
    XCritProxy<XWrappedWQException> last(m_lastFailure);
    *last = failure;
}

void XStorageDelegatorTask::ReleaseWorkerRoot() noexcept
{
    try
    {
        XCritProxyPtr<XStorageRootCallContainer> pipe(m_container);
        if (pipe)
            pipe->ReleaseRoot();
    }
    catch (...)
    {
    }
}
