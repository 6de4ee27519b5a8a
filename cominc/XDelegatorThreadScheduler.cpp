#include "XDelegatorThreadScheduler.h"

#include "xsdmreporter.h"

#include <atomic>
#include <cstdlib>
#include <memory>
#include <process.h>

namespace
{
const XSdmReporter& Report()
{
    static const XSdmReporter report("XDelegatorThreadScheduler", GUID_NULL);
    return report;
}

// The thread parameter: the entry and its argument, allocated by StartThread, freed by RunThreadTask.
struct XThreadTaskParam
{
    XThreadEntry entry;
    void* argument;
};

std::atomic<XDelegatorThreadScheduler*> g_instance{nullptr};
std::atomic<bool> g_destroyed{false};

const XWQComBSTR& StartThreadName()
{
    return XSDM_FUNCTION_NAME(L"XDelegatorThreadScheduler::StartThread");
}

const XWQComBSTR& RunThreadTaskName()
{
    return XSDM_FUNCTION_NAME(L"XDelegatorThreadScheduler::RunThreadTask");
}

[[noreturn]] void ReportSystem(unsigned long line, DWORD error, const wchar_t* message)
{
    Report().RaiseSystem(line, StartThreadName(), error, message);
}

// Ends a thread that was created suspended and never ran (no code of its own has run, so no
// state is left behind); used when starting it cannot be completed.
void AbandonSuspendedThread(HANDLE thread) noexcept
{
    ::TerminateThread(thread, 0xFFFFFFFF);
    ::WaitForSingleObject(thread, INFINITE);
}

void LogEscaped(unsigned long line) noexcept
{
    try
    {
        throw;
    }
    catch (const XWrappedWQException& exception)
    {
        XWQError::WriteErrorToLogBook(exception, true, 0);
    }
    catch (const std::exception& exception)
    {
        try
        {
            XWQError::WriteErrorToLogBook(Report().Where(line, RunThreadTaskName()), exception,
                                          XWQEXCEP::SEV_ERROR, XWQComBSTR());
        }
        catch (...)
        {
        }
    }
    catch (...)
    {
        try
        {
            XWQError::WriteUnknownErrorToLogBook(Report().Where(line, RunThreadTaskName()), XWQComBSTR());
        }
        catch (...)
        {
        }
    }
}
} // namespace

XDelegatorThreadScheduler& XDelegatorThreadScheduler::Instance()
{
    if (XDelegatorThreadScheduler* existing = g_instance.load(std::memory_order_acquire))
        return *existing;
    if (g_destroyed.load(std::memory_order_acquire))
        Report().Raise(__LINE__, XSDM_FUNCTION_NAME(L"XDelegatorThreadScheduler::Instance"), E_FAIL,
                       L"XDelegatorThreadScheduler already destructed");
    std::unique_ptr<XDelegatorThreadScheduler> created(new XDelegatorThreadScheduler());
    XDelegatorThreadScheduler* expected = nullptr;
    if (g_instance.compare_exchange_strong(expected, created.get(), std::memory_order_acq_rel))
    {
        std::atexit(&XDelegatorThreadScheduler::DestroyInstance);
        return *created.release();
    }
    // Another thread published its instance first: drop ours (errors of that are swallowed).
    try
    {
        created.reset();
    }
    catch (...)
    {
    }
    return *expected;
}

void XDelegatorThreadScheduler::DestroyInstance() noexcept
{
    g_destroyed.store(true, std::memory_order_release);
    delete g_instance.exchange(nullptr, std::memory_order_acq_rel);
}

XDelegatorThreadScheduler::~XDelegatorThreadScheduler()
{
    XCritProxy<std::vector<HANDLE>> threads(m_threads);
    for (HANDLE thread : *threads)
        ::CloseHandle(thread);
    threads->clear();
}

XHandle XDelegatorThreadScheduler::StartThread(XThreadEntry entry, void* argument, int priority)
{
    auto parameter = std::make_unique<XThreadTaskParam>(XThreadTaskParam{entry, argument});
    unsigned threadId = 0;
    XHandle thread(reinterpret_cast<HANDLE>(
        ::_beginthreadex(nullptr, 0, &XDelegatorThreadScheduler::RunThreadTask, parameter.get(), CREATE_SUSPENDED,
                         &threadId)));
    if (!thread)
        ReportSystem(__LINE__, ::GetLastError(), L"_beginthreadex failed");

    if (priority >= 0 && !::SetThreadPriority(thread.Get(), priority))
    {
        const DWORD error = ::GetLastError();
        AbandonSuspendedThread(thread.Get());
        ReportSystem(__LINE__, error, L"SetThreadPriority failed.");
    }

    HANDLE duplicate = nullptr;
    if (!::DuplicateHandle(::GetCurrentProcess(), thread.Get(), ::GetCurrentProcess(), &duplicate, 0, FALSE,
                           DUPLICATE_SAME_ACCESS))
    {
        const DWORD error = ::GetLastError();
        AbandonSuspendedThread(thread.Get());
        ReportSystem(__LINE__, error, L"DuplicateHandle failed");
    }
    XHandle callerHandle(duplicate);

    const DWORD previousSuspendCount = ::ResumeThread(thread.Get());
    if (previousSuspendCount > 1)  // unsigned: the failure value (DWORD)-1 counts too
    {
        const DWORD error = ::GetLastError();
        AbandonSuspendedThread(thread.Get());
        ReportSystem(__LINE__, error, L"after resuming the thread it still remains suspended.");
    }
    parameter.release();  // the running thread frees it

    KeepThread(std::move(thread));
    return callerHandle;
}

void XDelegatorThreadScheduler::KeepThread(XHandle thread)
{
    XCritProxy<std::vector<HANDLE>> threads(m_threads);
    std::vector<HANDLE>& kept = *threads;
    for (auto it = kept.begin(); it != kept.end();)
    {
        if (::WaitForSingleObject(*it, 0) == WAIT_OBJECT_0)
        {
            ::CloseHandle(*it);
            it = kept.erase(it);
        }
        else
        {
            ++it;
        }
    }
    kept.push_back(thread.Get());
    thread.Release();
}

unsigned __stdcall XDelegatorThreadScheduler::RunThreadTask(void* parameter)
{
    try
    {
        if (!parameter)
            Report().Raise(__LINE__, RunThreadTaskName(), E_INVALIDARG,
                           L"thread param == NULL - cannot run thread task routine");
        const std::unique_ptr<XThreadTaskParam> owned(static_cast<XThreadTaskParam*>(parameter));
        return owned->entry(owned->argument);
    }
    catch (...)
    {
        LogEscaped(__LINE__);
    }
    return 0xFFFFFFFF;
}
