// A thread in a single-threaded apartment that pumps messages and hosts a FakeStorageRoot. The
// root is registered in the Global Interface Table, so other threads call it through a proxy
// and every call runs on this thread. Work can be run on the thread as well (Run), as a client
// in that apartment would do it.
#pragma once

#include "fakestorageroot.h"

#include <functional>
#include <thread>

class StaThread
{
public:
    StaThread();
    ~StaThread();
    StaThread(const StaThread&) = delete;
    StaThread& operator=(const StaThread&) = delete;

    // S_OK when the apartment, the root and its registration were made.
    HRESULT Setup() const { return m_setup; }
    DWORD ThreadId() const { return m_threadId; }
    // The object itself, for scripting and inspection (never call it from another apartment).
    FakeStorageRoot& Root() const { return *m_root; }
    // A pointer to the root for the calling thread: a proxy outside this apartment.
    XComPtr<IWQ_SessionDataIOEx> RootForThisThread() const;
    // Runs work on the apartment's thread and waits for it.
    void Run(const std::function<void(IWQ_SessionDataIOEx* root)>& work);

private:
    void Main();

    HANDLE m_ready;
    HANDLE m_stop;
    HRESULT m_setup = E_FAIL;
    DWORD m_threadId = 0;
    DWORD m_cookie = 0;
    FakeStorageRoot* m_root = nullptr;
    std::thread m_thread;
};
