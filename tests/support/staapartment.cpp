#include "staapartment.h"

namespace
{
const UINT kRunMessage = WM_APP + 17;

struct Work
{
    const std::function<void()>* body;
    HANDLE done;
};
} // namespace

XComPtr<IGlobalInterfaceTable> GlobalInterfaceTable()
{
    XComPtr<IGlobalInterfaceTable> git;
    ::CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr, CLSCTX_INPROC_SERVER, IID_IGlobalInterfaceTable,
                       reinterpret_cast<void**>(git.ReleaseAndGetAddressOf()));
    return git;
}

void PumpMessagesUntil(HANDLE event)
{
    for (;;)
    {
        if (::MsgWaitForMultipleObjects(1, &event, FALSE, INFINITE, QS_ALLINPUT) == WAIT_OBJECT_0)
            return;
        MSG msg;
        while (::PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE))
        {
            if (msg.hwnd == nullptr && msg.message == kRunMessage)
            {
                Work* work = reinterpret_cast<Work*>(msg.lParam);
                (*work->body)();
                ::SetEvent(work->done);
                continue;
            }
            ::DispatchMessageW(&msg);
        }
    }
}

StaApartment::StaApartment(std::function<HRESULT(XComPtr<IUnknown>& object)> make, REFIID iid)
    : m_iid(iid), m_ready(::CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_stop(::CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
    m_thread = std::thread([this, make] { Main(make); });
    ::WaitForSingleObject(m_ready, 60000);
}

StaApartment::~StaApartment()
{
    ::SetEvent(m_stop);
    m_thread.join();
    ::CloseHandle(m_ready);
    ::CloseHandle(m_stop);
}

void StaApartment::FetchForThisThread(REFIID iid, void** ppv) const
{
    *ppv = nullptr;
    if (XComPtr<IGlobalInterfaceTable> git = GlobalInterfaceTable())
        git->GetInterfaceFromGlobal(m_cookie, iid, ppv);
}

void StaApartment::Run(const std::function<void()>& work)
{
    Work item{&work, ::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    if (::PostThreadMessageW(m_threadId, kRunMessage, 0, reinterpret_cast<LPARAM>(&item)))
        ::WaitForSingleObject(item.done, INFINITE);
    ::CloseHandle(item.done);
}

void StaApartment::Main(const std::function<HRESULT(XComPtr<IUnknown>&)>& make)
{
    m_setup = ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    m_threadId = ::GetCurrentThreadId();
    MSG msg;
    ::PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE);  // the thread's message queue
    {
        XComPtr<IUnknown> object;
        XComPtr<IGlobalInterfaceTable> git;
        if (SUCCEEDED(m_setup))
            m_setup = make(object);
        XComPtr<IUnknown> asked;  // the object's pointer of the interface it is registered under
        if (SUCCEEDED(m_setup))
            m_setup = object->QueryInterface(m_iid, reinterpret_cast<void**>(asked.ReleaseAndGetAddressOf()));
        if (SUCCEEDED(m_setup))
        {
            git = GlobalInterfaceTable();
            m_setup = git ? git->RegisterInterfaceInGlobal(asked.Get(), m_iid, &m_cookie) : E_FAIL;
        }
        ::SetEvent(m_ready);
        PumpMessagesUntil(m_stop);
        if (git && m_cookie)
            git->RevokeInterfaceFromGlobal(m_cookie);
    }
    ::CoUninitialize();
}
