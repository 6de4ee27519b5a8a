#include "statthread.h"

namespace
{
const UINT kRunMessage = WM_APP + 17;

struct Work
{
    const std::function<void(IWQ_SessionDataIOEx*)>* body;
    HANDLE done;
};

XComPtr<IGlobalInterfaceTable> Git()
{
    XComPtr<IGlobalInterfaceTable> git;
    ::CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr, CLSCTX_INPROC_SERVER, IID_IGlobalInterfaceTable,
                       reinterpret_cast<void**>(git.ReleaseAndGetAddressOf()));
    return git;
}
} // namespace

StaThread::StaThread()
    : m_ready(::CreateEventW(nullptr, TRUE, FALSE, nullptr)), m_stop(::CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
    m_thread = std::thread([this] { Main(); });
    ::WaitForSingleObject(m_ready, 60000);
}

StaThread::~StaThread()
{
    ::SetEvent(m_stop);
    m_thread.join();
    ::CloseHandle(m_ready);
    ::CloseHandle(m_stop);
}

XComPtr<IWQ_SessionDataIOEx> StaThread::RootForThisThread() const
{
    XComPtr<IWQ_SessionDataIOEx> root;
    if (XComPtr<IGlobalInterfaceTable> git = Git())
        git->GetInterfaceFromGlobal(m_cookie, IID_IWQ_SessionDataIOEx, reinterpret_cast<void**>(root.ReleaseAndGetAddressOf()));
    return root;
}

void StaThread::Run(const std::function<void(IWQ_SessionDataIOEx*)>& work)
{
    Work item{&work, ::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    if (::PostThreadMessageW(m_threadId, kRunMessage, 0, reinterpret_cast<LPARAM>(&item)))
        ::WaitForSingleObject(item.done, INFINITE);
    ::CloseHandle(item.done);
}

void StaThread::Main()
{
    m_setup = ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    m_threadId = ::GetCurrentThreadId();
    MSG msg;
    ::PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE);  // the thread's message queue
    XComPtr<IWQ_SessionDataIOEx> root;
    XComPtr<IGlobalInterfaceTable> git;
    if (SUCCEEDED(m_setup))
    {
        m_root = FakeStorageRoot::Create();
        root.Attach(m_root);
        git = Git();
        m_setup = git ? git->RegisterInterfaceInGlobal(root.Get(), IID_IWQ_SessionDataIOEx, &m_cookie) : E_FAIL;
    }
    ::SetEvent(m_ready);
    for (;;)
    {
        const DWORD wait = ::MsgWaitForMultipleObjects(1, &m_stop, FALSE, INFINITE, QS_ALLINPUT);
        if (wait == WAIT_OBJECT_0)
            break;
        while (::PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE))
        {
            if (msg.hwnd == nullptr && msg.message == kRunMessage)
            {
                Work* work = reinterpret_cast<Work*>(msg.lParam);
                (*work->body)(root.Get());
                ::SetEvent(work->done);
                continue;
            }
            ::DispatchMessageW(&msg);
        }
    }
    if (git && m_cookie)
        git->RevokeInterfaceFromGlobal(m_cookie);
    git.Reset();
    root.Reset();
    ::CoUninitialize();
}
