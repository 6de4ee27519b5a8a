#include "soakrooted.h"

#include <windows.h>

void SoakRooted::Settle(IWQ_SessionDataMng* manager)
{
    const int generation = m_generation.load();
    if (generation == 0)
        return;
    if (m_hooks.retiring)
        m_hooks.retiring();
    // A flush waits for every call piped so far, so the retained error read after it is the
    // storage's last word.
    manager->FlushAsyncStorage(Type());
    HRESULT retained = S_OK;
    manager->GetLastErrorAsyncExecution(Type(), &retained);
    if (FAILED(retained))
        Report(generation, retained);
}

HRESULT SoakRooted::Rebind(IWQ_SessionDataMng* manager)
{
    Settle(manager);
    HRESULT hr = E_FAIL;
    // A root server killed while the storage took it (or one that answers no more) is left
    // behind, and a new one is made.
    for (int attempt = 0; attempt < 10; ++attempt)
    {
        const XComPtr<IWQ_SessionDataStorage> storage = m_make(hr);
        if (storage)
        {
            hr = manager->SetStorage(storage.Get(), Type(), 1);
            if (hr == S_OK)
                break;
        }
        if (m_hooks.unreachable)
            m_hooks.unreachable();
        ::Sleep(200);
    }
    m_broken = hr != S_OK;
    if (hr != S_OK)
        return FAILED(hr) ? hr : E_FAIL;
    ++m_rebindings;
    const int next = ++m_generation;
    if (m_hooks.bound)
        m_hooks.bound(next);
    return S_OK;
}

HRESULT SoakRooted::Replace(IWQ_SessionDataMng* manager, int seen)
{
    std::unique_lock<SoakGate> gate(m_gate);
    return m_generation.load() == seen || m_broken.load() ? Rebind(manager) : S_OK;
}

bool SoakRooted::Report(int generation, HRESULT hr)
{
    std::lock_guard<std::mutex> lock(m_reportsMutex);
    return m_reports.emplace(generation, hr).second;
}

std::map<int, HRESULT> SoakRooted::Reports() const
{
    std::lock_guard<std::mutex> lock(m_reportsMutex);
    return m_reports;
}
