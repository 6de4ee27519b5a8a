// A category of the soak bound to the database storage in asynchronous user-profile mode over a
// storage root that fails (a killed root server, a root that injects faults).
// A failure retained by an asynchronous storage stays for the storage's life, so the way out is a
// new storage: the category is rebound, its generation counts up, and every thread writes what
// its model holds again before it goes on (what was piped to the old storage may be lost).
// The gate orders this: every operation on the category holds it shared, a rebinding exclusively.
// Each generation's failure, as the flush or GetLastErrorAsyncExecution first reported it, is kept
// for the check at the end.
#pragma once

#include "soakgate.h"
#include "xcomobject.h"
#include "xsessiondatamng_h.h"

#include <atomic>
#include <functional>
#include <map>
#include <mutex>

class SoakRooted
{
public:
    using Maker = std::function<XComPtr<IWQ_SessionDataStorage>(HRESULT& hr)>;
    struct Hooks
    {
        std::function<void()> retiring;          // before the old storage is settled and released
        std::function<void(int generation)> bound;  // after the new storage is bound
        std::function<void()> unreachable;          // after a new storage could not be made or bound
    };

    SoakRooted(int number, Maker make, Hooks hooks) : m_number(number), m_make(std::move(make)), m_hooks(std::move(hooks)) {}

    int Number() const noexcept { return m_number; }
    SESSIONDATATYPE Type() const noexcept { return static_cast<SESSIONDATATYPE>(m_number); }
    SoakGate& Gate() noexcept { return m_gate; }
    int Generation() const noexcept { return m_generation.load(); }

    // With the gate held exclusively: the storage's pipe run to its end, and its failure (if any)
    // reported for the generation.
    void Settle(IWQ_SessionDataMng* manager);
    // With the gate held exclusively: settled, then a new storage bound. S_OK, or why no storage
    // could be bound.
    HRESULT Rebind(IWQ_SessionDataMng* manager);
    // Takes the gate and rebinds, unless the generation is no longer the one seen failing (and
    // the last rebinding did not fail).
    HRESULT Replace(IWQ_SessionDataMng* manager, int seen);
    // Whether the last rebinding failed: the category may be left unbound, and the next
    // operation on it rebinds first.
    bool Broken() const noexcept { return m_broken.load(); }
    // A failure reported for a generation; true the first time.
    bool Report(int generation, HRESULT hr);
    std::map<int, HRESULT> Reports() const;
    long long Rebindings() const noexcept { return m_rebindings.load(); }

private:
    int m_number;
    Maker m_make;
    Hooks m_hooks;
    SoakGate m_gate;
    std::atomic<int> m_generation{0};
    std::atomic<long long> m_rebindings{0};
    std::atomic<bool> m_broken{false};
    mutable std::mutex m_reportsMutex;
    std::map<int, HRESULT> m_reports;
};
