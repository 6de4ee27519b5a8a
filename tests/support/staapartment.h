// A thread in a single-threaded apartment of its own that pumps messages, hosting one object:
// the object is made on the thread, registered in the Global Interface Table and released on
// the thread when the apartment ends. Other threads reach it through the table (a proxy outside
// the apartment) and can run work on the apartment's thread.
#pragma once

#include "xcomobject.h"

#include <functional>
#include <thread>

class StaApartment
{
public:
    // make runs on the apartment's thread and returns the object to register under iid.
    StaApartment(std::function<HRESULT(XComPtr<IUnknown>& object)> make, REFIID iid);
    ~StaApartment();
    StaApartment(const StaApartment&) = delete;
    StaApartment& operator=(const StaApartment&) = delete;

    // S_OK when the apartment, the object and its registration were made.
    HRESULT Setup() const { return m_setup; }
    DWORD ThreadId() const { return m_threadId; }
    // The object for the calling thread: a proxy outside the apartment.
    template <class I>
    XComPtr<I> ForThisThread() const
    {
        XComPtr<I> object;
        FetchForThisThread(__uuidof(I), reinterpret_cast<void**>(object.ReleaseAndGetAddressOf()));
        return object;
    }
    // Runs work on the apartment's thread and waits for it.
    void Run(const std::function<void()>& work);

private:
    void Main(const std::function<HRESULT(XComPtr<IUnknown>&)>& make);
    void FetchForThisThread(REFIID iid, void** ppv) const;

    IID m_iid;
    HANDLE m_ready;
    HANDLE m_stop;
    HRESULT m_setup = E_FAIL;
    DWORD m_threadId = 0;
    DWORD m_cookie = 0;
    std::thread m_thread;
};

// The process's Global Interface Table.
XComPtr<IGlobalInterfaceTable> GlobalInterfaceTable();
// Dispatches the calling thread's messages until event is signalled.
void PumpMessagesUntil(HANDLE event);
