// A thread in a single-threaded apartment that pumps messages and hosts a FakeStorageRoot. The
// root is registered in the Global Interface Table, so other threads call it through a proxy
// and every call runs on this thread. Work can be run on the thread as well (Run), as a client
// in that apartment would do it.
#pragma once

#include "fakestorageroot.h"
#include "staapartment.h"

#include <functional>

class StaThread
{
public:
    StaThread();
    StaThread(const StaThread&) = delete;
    StaThread& operator=(const StaThread&) = delete;

    // S_OK when the apartment, the root and its registration were made.
    HRESULT Setup() const { return m_apartment.Setup(); }
    DWORD ThreadId() const { return m_apartment.ThreadId(); }
    // The object itself, for scripting and inspection (never call it from another apartment).
    FakeStorageRoot& Root() const { return *m_root; }
    // A pointer to the root for the calling thread: a proxy outside this apartment.
    XComPtr<IWQ_SessionDataIOEx> RootForThisThread() const { return m_apartment.ForThisThread<IWQ_SessionDataIOEx>(); }
    // Runs work on the apartment's thread and waits for it.
    void Run(const std::function<void(IWQ_SessionDataIOEx* root)>& work);

private:
    FakeStorageRoot* m_root = nullptr;
    IWQ_SessionDataIOEx* m_rootInterface = nullptr;  // the apartment's own pointer
    StaApartment m_apartment;
};
