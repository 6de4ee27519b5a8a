// One thread of the soak: random operations through its own manager object, in the
// multithreaded apartment or in a single-threaded apartment that pumps messages, on keys of its
// own, against its model of what must be true.
// The database categories are used from the multithreaded apartment only: a database storage
// holds the root's proxy of the apartment that bound it, and a call from a single-threaded
// apartment answers RPC_E_WRONG_THREAD (0x8001010E).
#pragma once

#include "soakworld.h"

#include <deque>
#include <map>
#include <random>
#include <set>

class SoakWorker
{
public:
    SoakWorker(int index, bool sta, unsigned seed, SoakWorld& world, DWORD hangAfterMilliseconds)
        : m_index(index), m_sta(sta), m_random(seed + static_cast<unsigned>(index) * 7919u), m_world(world),
          m_hangAfter(hangAfterMilliseconds)
    {
    }
    void Run();
    long long Progress() const { return m_progress.load(); }
    const SoakValues& Model() const { return m_model; }
    int Index() const { return m_index; }
    // The generation of a database category that the thread last wrote its model into.
    int GenerationOf(int category) const
    {
        const auto found = m_generation.find(category);
        return found == m_generation.end() ? 0 : found->second;
    }
    // The volatile category's binding that the model's values of it belong to.
    int VolatileGeneration() const { return m_volatileGeneration; }

private:
    int Pick(int n) { return static_cast<int>(m_random() % static_cast<unsigned>(n)); }
    void Fail(HRESULT hr, const char* what);
    IWQ_SessionDataMng* Mng() const { return m_manager.Get(); }

    void Step();
    // The thread's last operations, printed with a wrong read.
    void Note(int category, int key, const std::wstring& what);
    void Write(int category);
    void Read(int category);
    void List(int category);
    void SubKeys(int category);
    void Walk();
    void Transfer();
    void RebindPlain();
    void Flush(int category);
    void Delete(int category);
    // Runs op on a database category (replaying the model first into a new storage) and, when it
    // fails, finds out why: a failure the storage retained (the storage is replaced), a killed root
    // server (likewise), a read the fault-injecting root failed; anything else is a failure.
    template <class Op>
    HRESULT OnRooted(int category, const char* what, Op op);
    void Explain(int category, int generation, HRESULT hr, HRESULT retained, const char* what);

    int m_index;
    bool m_sta;
    std::mt19937 m_random;
    SoakWorld& m_world;
    DWORD m_hangAfter;
    XComPtr<IWQ_SessionDataMng> m_manager;
    std::atomic<long long> m_progress{0};
    SoakValues m_model;
    std::map<int, int> m_generation;         // per database category, the generation last replayed into
    std::map<int, std::set<int>> m_deleted;  // per database category, keys deleted since its last flush
    int m_volatileGeneration = 0;
    std::deque<std::wstring> m_history;
};

// The values of a thread's model in a category written again into it: each key deleted, then its
// values written (what follows the deletion in the pipe).
HRESULT SoakReplay(IWQ_SessionDataMng* manager, int thread, const SoakValues& model, int category);
