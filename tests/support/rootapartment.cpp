#include "rootapartment.h"

RootApartment::RootApartment()
{
    m_ready = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    m_stop = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    m_thread = std::thread([this] { Main(); });
    ::WaitForSingleObject(m_ready, 30000);
}

RootApartment::~RootApartment()
{
    ::SetEvent(m_stop);
    m_thread.join();
    ::CloseHandle(m_ready);
    ::CloseHandle(m_stop);
}

XComPtr<IWQ_SessionDataIOEx> RootApartment::RootForThisThread() const
{
    XComPtr<IGlobalInterfaceTable> git;
    XComPtr<IWQ_SessionDataIOEx> root;
    if (SUCCEEDED(::CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr, CLSCTX_INPROC_SERVER,
                                     IID_IGlobalInterfaceTable, reinterpret_cast<void**>(git.ReleaseAndGetAddressOf()))))
        git->GetInterfaceFromGlobal(m_cookie, IID_IWQ_SessionDataIOEx,
                                    reinterpret_cast<void**>(root.ReleaseAndGetAddressOf()));
    return root;
}

void RootApartment::Main()
{
    ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    {
        XComPtr<IGlobalInterfaceTable> git;
        XComPtr<IWQ_SessionDataIOEx> root;
        StorageRef storage(RecordingStorage::Pose::Extended);
        m_storage = storage.operator->();
        m_setup = ::CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr, CLSCTX_INPROC_SERVER,
                                     IID_IGlobalInterfaceTable, reinterpret_cast<void**>(git.ReleaseAndGetAddressOf()));
        if (SUCCEEDED(m_setup))
            m_setup = ::CoCreateInstance(CLSID_WQ_SessionDataIOEx, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IWQ_SessionDataIOEx, reinterpret_cast<void**>(root.ReleaseAndGetAddressOf()));
        if (SUCCEEDED(m_setup))
            m_setup = root->SetStorage(storage.Get());
        if (SUCCEEDED(m_setup))
            m_setup = git->RegisterInterfaceInGlobal(root.Get(), IID_IWQ_SessionDataIOEx, &m_cookie);
        m_rawRoot = root.Get();
        ::SetEvent(m_ready);
        for (;;)
        {
            const DWORD wait = ::MsgWaitForMultipleObjects(1, &m_stop, FALSE, INFINITE, QS_ALLINPUT);
            if (wait == WAIT_OBJECT_0)
                break;
            MSG msg;
            while (::PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE))
                ::DispatchMessageW(&msg);
        }
        if (git && m_cookie)
            git->RevokeInterfaceFromGlobal(m_cookie);
    }
    ::CoUninitialize();
}
