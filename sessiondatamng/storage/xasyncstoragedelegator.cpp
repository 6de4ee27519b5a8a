#include "xasyncstoragedelegator.h"

#include "xdelegatorreport.h"
#include "xstoragedelegatortask.h"

#include <objbase.h>

namespace
{

// The interval the delegator's task starts with, in seconds.
constexpr long kDefaultInterval = 20;
constexpr long kShortestInterval = 3;
constexpr long kLongestInterval = 120;

const XWQComBSTR& SetStorageRootName()
{
    return XSDM_FUNCTION_NAME(L"XAsyncStorageDelegator::SetStorageRoot");
}
const XWQComBSTR& GetLastErrorName()
{
    return XSDM_FUNCTION_NAME(L"XAsyncStorageDelegator::GetLastErrorAsyncExecution");
}
const XWQComBSTR& TerminateName()
{
    return XSDM_FUNCTION_NAME(L"XAsyncStorageDelegator::Terminate");
}

} // namespace

struct XAsyncStorageDelegator::State
{
    XRefCountCritSection rootLock;  // serialises SetStorageRoot
};

XAsyncStorageDelegator::XAsyncStorageDelegator()
    : m_task(std::make_unique<XStorageDelegatorTask>(kDefaultInterval, m_registration)),
      m_state(std::make_unique<State>())
{
}

XAsyncStorageDelegator::~XAsyncStorageDelegator()
{
    // The registration, destroyed after the task, revokes the root.
    Terminate();
}

long XAsyncStorageDelegator::ClampWriteInterval(long seconds) noexcept
{
    if (seconds <= 0)
        return kDefaultInterval;
    if (seconds < kShortestInterval)
        return kShortestInterval;
    if (seconds > kLongestInterval)
        return kLongestInterval;
    return seconds;
}

void XAsyncStorageDelegator::SetStorageRoot(IWQ_SessionDataIOEx* root)
{
    XDelegatorReport().CheckPointerOrRaise(__LINE__, SetStorageRootName(), root);
    XSmartCritSection<XRefCountCritSection>::WriteRef binding(m_state->rootLock);

    // Calls piped for the old root run on the old root; a failure of that is reported, but
    // does not stop the binding.
    XDelegatorReport().Run(__LINE__, SetStorageRootName(), [this] {
        if (m_registration.IsRegistered())
        {
            if (m_task->Status() != psNotStarted)
                FlushStorageCallPipe();
            m_registration.Revoke();
        }
        return S_OK;
    });

    m_registration.Register(root);
    m_task->OnStorageRootSet();
}

void XAsyncStorageDelegator::SetWriteInterval(long seconds)
{
    m_task->SetInterval(ClampWriteInterval(seconds));
    if (m_task->Status() == psNotStarted)
        m_task->Start(&m_registration);
}

long XAsyncStorageDelegator::WriteInterval() const noexcept
{
    return m_task->Interval();
}

unsigned long long XAsyncStorageDelegator::CompletedPasses() const noexcept
{
    return m_task->CompletedPasses();
}

void XAsyncStorageDelegator::PipeStorageRootCall(std::unique_ptr<Operation> functor, BSTR key, unsigned long flags)
{
    m_task->Pipe(std::move(functor), key, flags);
}

void XAsyncStorageDelegator::FlushStorageCallPipe()
{
    m_task->Flush();
}

void XAsyncStorageDelegator::GetLastErrorAsyncExecution(HRESULT* result)
{
    XDelegatorReport().CheckPointerOrRaise(__LINE__, GetLastErrorName(), result);
    *result = m_task->RetainedError();
}

void XAsyncStorageDelegator::SetProceedEvent()
{
    m_task->SetProceedEvent();
}

HRESULT XAsyncStorageDelegator::Terminate() noexcept
{
    // Closing first: later piping is refused, and the worker leaves its loop after the pass
    // that the flush triggers.
    XDelegatorReport().Run(__LINE__, TerminateName(), [this] {
        if (m_task->Status() == psStarted)
            m_task->RequestStop();
        return S_OK;
    });
    const HRESULT flushed = XDelegatorReport().Run(__LINE__, TerminateName(), [this] {
        FlushStorageCallPipe();
        return S_OK;
    });
    XDelegatorReport().Run(__LINE__, TerminateName(), [this] {
        SetProceedEvent();
        m_task->Stop();
        return S_OK;
    });
    return flushed;
}
