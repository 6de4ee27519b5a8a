#include "mallocspy.h"

#include <oleauto.h>

extern "C" void WINAPI SetOaNoCache(void);  // exported by oleaut32, not declared by the headers

STDMETHODIMP MallocSpy::QueryInterface(REFIID iid, void** ppv)
{
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IMallocSpy))
    {
        *ppv = static_cast<IMallocSpy*>(this);
        return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(void*) MallocSpy::PostAlloc(void* pActual)
{
    if (pActual)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_live[pActual] = ::GetCurrentThreadId();
        m_freed.erase(pActual);
    }
    return pActual;
}

STDMETHODIMP_(void*) MallocSpy::PreFree(void* pRequest, BOOL fSpyed)
{
    if (pRequest)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (fSpyed && m_live.erase(pRequest))
        {
            m_freed.insert(pRequest);
        }
        else if (m_freed.count(pRequest))
        {
            // Counted, and not passed on: the heap never sees the second free.
            ++m_refreed;
            return nullptr;
        }
    }
    return pRequest;
}

STDMETHODIMP_(SIZE_T) MallocSpy::PreRealloc(void* pRequest, SIZE_T cbRequest, void** ppNewRequest, BOOL fSpyed)
{
    if (pRequest && fSpyed)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_live.erase(pRequest);
    }
    *ppNewRequest = pRequest;
    return cbRequest;
}

STDMETHODIMP_(void*) MallocSpy::PostRealloc(void* pActual, BOOL)
{
    return PostAlloc(pActual);
}

STDMETHODIMP_(void*) MallocSpy::PreGetSize(void* pRequest, BOOL)
{
    if (pRequest)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_freed.count(pRequest))
            ++m_refreed;
    }
    return pRequest;
}

size_t MallocSpy::Refreed() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_refreed;
}

size_t MallocSpy::OutstandingFrom(DWORD threadId) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    size_t count = 0;
    for (const auto& block : m_live)
        count += block.second == threadId ? 1 : 0;
    return count;
}

size_t MallocSpy::Outstanding() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_live.size();
}

ScopedMallocSpy::ScopedMallocSpy() : m_spy(new MallocSpy())
{
    SetOaNoCache();
    m_registered = SUCCEEDED(::CoRegisterMallocSpy(m_spy));
}

ScopedMallocSpy::~ScopedMallocSpy()
{
    if (!m_registered || SUCCEEDED(::CoRevokeMallocSpy()))
        delete m_spy;
}
