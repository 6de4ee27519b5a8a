// What the threads of the soak share: the session with its bindings, the two categories over
// failing roots, the gate of the whole binding table, and the totals.
#pragma once

#include "soakgate.h"
#include "soakrooted.h"
#include "soakroothost.h"
#include "xctlsession.h"

#include <atomic>
#include <map>
#include <string>
#include <tuple>

// The categories: 5 volatile, 4 registry (cached), 3 registry (uncached), 1 environment; 2 the
// database over the real root in another process; 1000 the database over the fault-injecting root.
const int kSoakPlain[] = {5, 4, 3, 1};
const int kSoakDatabase = 2;
const int kSoakFaulty = 1000;
const int kSoakKeys = 6;
const int kSoakNames = 4;

inline SESSIONDATATYPE SoakCat(int number)
{
    return static_cast<SESSIONDATATYPE>(number);
}
inline std::wstring SoakKey(int thread, int key)
{
    return L"Soak/T" + std::to_wstring(thread) + L"/K" + std::to_wstring(key);
}
inline std::wstring SoakName(int name)
{
    return L"n" + std::to_wstring(name);
}

// (category, key, name) to the last value written with S_OK; a deleted value has no entry.
using SoakSlot = std::tuple<int, int, int>;
using SoakValues = std::map<SoakSlot, std::wstring>;

struct SoakTotals
{
    std::atomic<long long> operations{0};
    std::atomic<long long> failures{0};
    std::atomic<long long> wrongReads{0};
    std::atomic<long long> flushes{0};
    std::atomic<long long> rebindings{0};
    std::atomic<long long> transfers{0};
    std::atomic<long long> validations{0};
    std::atomic<long long> deletions{0};
    std::atomic<long long> walks{0};
    std::atomic<long long> readFaultsSeen{0};
    std::atomic<long long> failuresAfterKills{0};
    std::atomic<long long> replays{0};
};

struct SoakWorld
{
    SoakWorld(XCtlSession& session, SoakRooted& database, SoakRooted& faulty, SoakRootHost& host)
        : session(session), database(database), faulty(faulty), host(host)
    {
    }
    SoakRooted& Rooted(int number) { return number == kSoakDatabase ? database : faulty; }
    // Binds a plain category to a new storage of its place (nothing of a volatile one survives).
    HRESULT BindPlain(IWQ_SessionDataMng* manager, int number);
    // SetInvalid, then Validate: every binding released; then all made again (from the
    // multithreaded apartment, which may bind the database categories). The volatile category's
    // values are gone with its binding; the database categories get new storages, into which
    // every thread writes its model again. The number of calls that failed.
    long long ReleaseAndBindAll(IWQ_SessionDataMng* manager);

    XCtlSession& session;
    SoakRooted& database;
    SoakRooted& faulty;
    SoakRootHost& host;
    // Shared by every operation, exclusive while every binding is released and made again.
    SoakGate bindings;
    // Counts up whenever the volatile category lost its values (a new binding of it).
    std::atomic<int> volatileGeneration{0};
    SoakTotals totals;
    std::atomic<bool> stop{false};
};
