// Leak check for the COM task allocator: an IMallocSpy that tracks every live block. BSTRs are
// counted too because the BSTR cache is switched off while the spy is registered.
#pragma once

#include <windows.h>
#include <objidl.h>
#include <map>
#include <mutex>
#include <set>

class MallocSpy final : public IMallocSpy
{
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }

    STDMETHODIMP_(SIZE_T) PreAlloc(SIZE_T cbRequest) override { return cbRequest; }
    STDMETHODIMP_(void*) PostAlloc(void* pActual) override;
    STDMETHODIMP_(void*) PreFree(void* pRequest, BOOL fSpyed) override;
    STDMETHODIMP_(void) PostFree(BOOL) override {}
    STDMETHODIMP_(SIZE_T) PreRealloc(void* pRequest, SIZE_T cbRequest, void** ppNewRequest, BOOL fSpyed) override;
    STDMETHODIMP_(void*) PostRealloc(void* pActual, BOOL fSpyed) override;
    STDMETHODIMP_(void*) PreGetSize(void* pRequest, BOOL fSpyed) override;
    STDMETHODIMP_(SIZE_T) PostGetSize(SIZE_T cbActual, BOOL) override { return cbActual; }
    STDMETHODIMP_(void*) PreDidAlloc(void* pRequest, BOOL) override { return pRequest; }
    STDMETHODIMP_(int) PostDidAlloc(void*, BOOL, int fActual) override { return fActual; }
    STDMETHODIMP_(void) PreHeapMinimize() override {}
    STDMETHODIMP_(void) PostHeapMinimize() override {}

    size_t Outstanding() const;
    // The live blocks that the thread threadId allocated.
    size_t OutstandingFrom(DWORD threadId) const;
    // Frees of blocks that this spy saw allocated and already freed (a double free; such a free
    // is not passed on to the heap), and size queries of such blocks (SysFreeString asks for the
    // size first and leaves a block alone that the allocator does not know any more).
    size_t Refreed() const;

private:
    mutable std::mutex m_mutex;
    std::map<void*, DWORD> m_live;  // live block -> the thread that allocated it
    std::set<void*> m_freed;  // freed while tracked, and not handed out again since
    size_t m_refreed = 0;
};

// Registers a spy for its lifetime (with the BSTR cache off) and tells how many blocks that were
// allocated meanwhile are still live. Process-lifetime strings made on first use (function names)
// count too: run the code under test once before the spy is registered.
class ScopedMallocSpy
{
public:
    ScopedMallocSpy();
    ~ScopedMallocSpy();
    bool Registered() const { return m_registered; }
    size_t Outstanding() const { return m_spy->Outstanding(); }
    // The live blocks that the calling thread allocated (blocks of other threads of the process,
    // such as a worker's or the platform's own, left out).
    size_t OutstandingFromThisThread() const { return m_spy->OutstandingFrom(::GetCurrentThreadId()); }
    size_t Refreed() const { return m_spy->Refreed(); }

private:
    // COM keeps a spy registered while blocks it tracked are still live; such a spy must
    // outlive this scope, so it is only deleted once revoked.
    MallocSpy* m_spy;
    bool m_registered = false;
};
