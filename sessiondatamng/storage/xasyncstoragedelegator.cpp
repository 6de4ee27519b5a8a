#include "xasyncstoragedelegator.h"

#include "xsdmerror.h"
#include "xstoragedelegatortask.h"
#include "xstoragerootregistration.h"

#include <objbase.h>

namespace
{
const char kUnit[] = "xasyncstoragedelegator";

// The interval the delegator's task starts with, in seconds.
constexpr long kDefaultInterval = 20;
constexpr long kShortestInterval = 3;
constexpr long kLongestInterval = 120;

const XWQComBSTR& SetStorageRootName()
{
    return XSDM_FUNCTION_NAME(L"XAsyncStorageDelegator::SetStorageRoot");
}
const XWQComBSTR& RegisterInGITName()
{
    return XSDM_FUNCTION_NAME(L"XAsyncStorageDelegator::RegisterInGIT");
}
const XWQComBSTR& GetStorageRootFromGITName()
{
    return XSDM_FUNCTION_NAME(L"XAsyncStorageDelegator::GetStorageRootFromGIT");
}
const XWQComBSTR& GetLastErrorName()
{
    return XSDM_FUNCTION_NAME(L"XAsyncStorageDelegator::GetLastErrorAsyncExecution");
}
const XWQComBSTR& TerminateName()
{
    return XSDM_FUNCTION_NAME(L"XAsyncStorageDelegator::Terminate");
}
const XWQComBSTR& DestructorName()
{
    return XSDM_FUNCTION_NAME(L"XAsyncStorageDelegator::~XAsyncStorageDelegator");
}

WQErrorLocation Where(unsigned long line, const XWQComBSTR& function)
{
    return XSdmLocation(kUnit, line, function);
}
} // namespace

struct XAsyncStorageDelegator::State
{
    XCritData<IGlobalInterfaceTable*> git{nullptr};  // owned reference, kept once created
    XCritData<unsigned long> cookie{0ul};            // 0: no root registered
    XRefCountCritSection rootLock;                   // serialises SetStorageRoot
};

XAsyncStorageDelegator::XAsyncStorageDelegator()
    : m_task(std::make_unique<XStorageDelegatorTask>(kDefaultInterval)), m_state(std::make_unique<State>())
{
}

XAsyncStorageDelegator::~XAsyncStorageDelegator()
{
    Terminate();
    XSdmBoundary(kUnit, __LINE__, DestructorName(), GUID_NULL, [this] {
        RevokeFromGIT();
        XCritProxy<IGlobalInterfaceTable*> git(m_state->git);
        if (*git)
            (*git)->Release();
        *git = nullptr;
        return S_OK;
    });
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
    XWQError::CheckPtr_ThrowExcep(Where(__LINE__, SetStorageRootName()), root, XWQComBSTR());
    XSmartCritSection<XRefCountCritSection>::WriteRef binding(m_state->rootLock);

    // Calls piped for the old root run on the old root; a failure of that is reported, but
    // does not stop the binding.
    XSdmBoundary(kUnit, __LINE__, SetStorageRootName(), GUID_NULL, [this] {
        bool registered = false;
        {
            XCritReadProxy<unsigned long> cookie(m_state->cookie);
            registered = *cookie > 0;
        }
        if (registered)
        {
            if (m_task->Status() != psNotStarted)
                FlushStorageCallPipe();
            RevokeFromGIT();
        }
        return S_OK;
    });

    RegisterInGIT(root);
    m_task->OnStorageRootSet();
}

void XAsyncStorageDelegator::RegisterInGIT(IWQ_SessionDataIOEx* root)
{
    XComPtr<IGlobalInterfaceTable> table;
    {
        XCritProxy<IGlobalInterfaceTable*> git(m_state->git);
        if (!*git)
        {
            const HRESULT hr = ::CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr, CLSCTX_INPROC_SERVER,
                                                  IID_IGlobalInterfaceTable, reinterpret_cast<void**>(&*git));
            if (FAILED(hr))
            {
                *git = nullptr;
                XSdmThrow(Where(__LINE__, RegisterInGITName()), hr, L"CoCreateInstance IID_IGlobalInterfaceTable failed",
                          XWQEXCEP::EXCEP_COM);
            }
        }
        XWQError::CheckPtr_ThrowExcep(Where(__LINE__, RegisterInGITName()), *git, XWQComBSTR());
        table = *git;
    }
    // Registered outside the lock: marshalling the root may call into its apartment. A proxy is
    // registered through a forwarder of this apartment, whose registration the revoke can undo.
    const XComPtr<IWQ_SessionDataIOEx> registered = XRootForRegistration(root);
    DWORD newCookie = 0;
    const HRESULT hr = table->RegisterInterfaceInGlobal(registered.Get(), IID_IWQ_SessionDataIOEx, &newCookie);
    if (FAILED(hr))
        XSdmThrow(Where(__LINE__, RegisterInGITName()), hr, L"RegisterInterfaceInGlobal IWQ_SessionDataIOEx failed",
                  XWQEXCEP::EXCEP_COM);
    XCritProxy<unsigned long> cookie(m_state->cookie);
    *cookie = newCookie;
}

void XAsyncStorageDelegator::RevokeFromGIT()
{
    XCritProxy<unsigned long> cookie(m_state->cookie);
    if (*cookie == 0)
        return;
    XCritReadProxy<IGlobalInterfaceTable*> git(m_state->git);
    if (*git)
        (*git)->RevokeInterfaceFromGlobal(*cookie);
    *cookie = 0;
}

XComPtr<IWQ_SessionDataIOEx> XAsyncStorageDelegator::GetStorageRootFromGIT()
{
    XComPtr<IGlobalInterfaceTable> table;
    DWORD registered = 0;
    {
        XCritReadProxy<IGlobalInterfaceTable*> git(m_state->git);
        XCritReadProxy<unsigned long> cookie(m_state->cookie);
        table = *git;
        registered = *cookie;
    }
    XComPtr<IWQ_SessionDataIOEx> root;
    if (!table || registered == 0)
        return root;
    const HRESULT hr = table->GetInterfaceFromGlobal(registered, IID_IWQ_SessionDataIOEx,
                                                     reinterpret_cast<void**>(root.ReleaseAndGetAddressOf()));
    if (FAILED(hr))
        XSdmThrow(Where(__LINE__, GetStorageRootFromGITName()), hr, L"GetInterfaceFromGlobal IWQ_SessionDataIOEx failed",
                  XWQEXCEP::EXCEP_COM);
    return root;
}

void XAsyncStorageDelegator::SetWriteInterval(long seconds)
{
    m_task->SetInterval(ClampWriteInterval(seconds));
    if (m_task->Status() == psNotStarted)
        m_task->Start(this);
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
    m_task->Pipe(*this, std::move(functor), key, flags);
}

void XAsyncStorageDelegator::FlushStorageCallPipe()
{
    m_task->Flush();
}

void XAsyncStorageDelegator::GetLastErrorAsyncExecution(HRESULT* result)
{
    XWQError::CheckPtr_ThrowExcep(Where(__LINE__, GetLastErrorName()), result, XWQComBSTR());
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
    XSdmBoundary(kUnit, __LINE__, TerminateName(), GUID_NULL, [this] {
        if (m_task->Status() == psStarted)
            m_task->RequestStop();
        return S_OK;
    });
    const HRESULT flushed = XSdmBoundary(kUnit, __LINE__, TerminateName(), GUID_NULL, [this] {
        FlushStorageCallPipe();
        return S_OK;
    });
    XSdmBoundary(kUnit, __LINE__, TerminateName(), GUID_NULL, [this] {
        SetProceedEvent();
        m_task->Stop();
        return S_OK;
    });
    return flushed;
}
