// A single-threaded apartment of its own (a thread that pumps messages) that owns a storage
// root: an extended IO layer of the registered module over a recording storage that poses as an
// extended storage. The root is registered in the Global Interface Table, so other threads call
// it through the proxy/stub and every call runs on the apartment's thread.
#pragma once

#include "iotesthelpers.h"
#include "staapartment.h"

#include <memory>

class RootApartment
{
public:
    RootApartment();
    ~RootApartment();
    RootApartment(const RootApartment&) = delete;
    RootApartment& operator=(const RootApartment&) = delete;

    // S_OK when the apartment, the root, its storage binding and its registration were made.
    HRESULT Setup() const { return m_apartment->Setup(); }
    // The root's storage, for scripting and inspection (it locks for itself).
    RecordingStorage& Storage() const { return *m_storage; }
    // The root object itself (never to be called from another apartment).
    IWQ_SessionDataIOEx* RawRoot() const { return m_rawRoot; }
    // A pointer to the root for the calling thread: a proxy outside the apartment.
    XComPtr<IWQ_SessionDataIOEx> RootForThisThread() const { return m_apartment->ForThisThread<IWQ_SessionDataIOEx>(); }

private:
    RecordingStorage* m_storage;
    IWQ_SessionDataIOEx* m_rawRoot = nullptr;
    std::unique_ptr<StaApartment> m_apartment;
};
