// The soak: many threads (in the multithreaded apartment and in message-pumping single-threaded
// apartments) doing random operations through the manager on categories bound to every kind of
// storage, against a model of what must be true, while storage roots fail under them.
//   sdm_soak.exe [--seconds N] [--threads N] [--seed N] [--kill-every SECONDS] [--validate-every SECONDS]
//                [--watchdog SECONDS] [--hang-after SECONDS]
// Categories: 5 volatile (cached), 4 registry (cached), 3 registry (uncached), 1 environment
// (cached); 2 the database storage in asynchronous user-profile mode over the real storage root
// in another process (its own SQLite file), which the soak kills every --kill-every seconds and
// starts again; 1000 the same storage over a root in a single-threaded apartment of this process
// that fails about one call in ten (E_FAIL and RPC codes) and answers some slowly.
// Every --validate-every seconds (default 7) SetInvalid and Validate release every binding, and
// all are made again.
// Each thread works on keys of its own, so the model of a thread is exact: a read answers the last
// value whose write returned S_OK. After a database storage reported a lost write it is replaced,
// and the threads write their models into the new one. At the end every database storage is
// flushed until nothing is lost, and every key of every thread is read back and compared.
// Also checked: every write failure the fault-injecting root injected was reported once (by the
// storage it happened in, with its HRESULT) and no other was; no thread stops making progress (a
// watchdog prints every thread's stack and ends the run with exit code 2 after --watchdog seconds,
// default 60). Exit 0 when all holds, 1 otherwise. --hang-after stops one thread for good (the
// watchdog's own test).
// (--root-host CONNECTION is the root server's host process, started by the soak itself.)
#include "XWQComBSTR.h"
#include "soakfaultroot.h"
#include "soakstacks.h"
#include "soakworker.h"
#include "staapartment.h"
#include "xcomtypes.h"

#include <windows.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace
{
struct Options
{
    int seconds = 60;
    int threads = 8;
    unsigned seed = 20261124;
    int killEvery = 10;
    int validateEvery = 7;
    int watchdog = 60;
    int hangAfter = 0;
    std::wstring rootHost;
};

Options Parse(int argc, char** argv)
{
    Options options;
    for (int i = 1; i + 1 < argc; i += 2)
    {
        const char* value = argv[i + 1];
        if (std::strcmp(argv[i], "--seconds") == 0)
            options.seconds = std::atoi(value);
        else if (std::strcmp(argv[i], "--threads") == 0)
            options.threads = std::atoi(value);
        else if (std::strcmp(argv[i], "--seed") == 0)
            options.seed = static_cast<unsigned>(std::strtoul(value, nullptr, 10));
        else if (std::strcmp(argv[i], "--kill-every") == 0)
            options.killEvery = std::atoi(value);
        else if (std::strcmp(argv[i], "--validate-every") == 0)
            options.validateEvery = std::atoi(value);
        else if (std::strcmp(argv[i], "--watchdog") == 0)
            options.watchdog = std::atoi(value);
        else if (std::strcmp(argv[i], "--hang-after") == 0)
            options.hangAfter = std::atoi(value);
        else if (std::strcmp(argv[i], "--root-host") == 0)
            options.rootHost = XCtlWide(value);
    }
    return options;
}

// A database storage in asynchronous user-profile mode over a root.
XComPtr<IWQ_SessionDataStorage> DatabaseStorage(const XComPtr<IWQ_SessionDataIOEx>& root, const std::wstring& rootKey,
                                                HRESULT& hr)
{
    XComPtr<IWQ_SessionDataStorageDb> storage;
    if (!root)
        return XComPtr<IWQ_SessionDataStorage>();
    try
    {
        storage = XCtlCreate<IWQ_SessionDataStorageDb>(L"WQSessionDataMng.WQ_SessionDataStorageDb");
        XCtlCheck(storage->SetRoot(root.Get()), "SetRoot");
        XCtlCheck(storage->SetUserProfileStorage(), "SetUserProfileStorage");
        XCtlCheck(storage->SetRootKey(XWQComBSTR(rootKey.c_str())), "SetRootKey");
        XCtlCheck(storage->SetAsyncWriteMode(3), "SetAsyncWriteMode");
    }
    catch (const XCtlFailure& failure)
    {
        hr = failure.Result();
        return XComPtr<IWQ_SessionDataStorage>();
    }
    hr = S_OK;
    return XComPtr<IWQ_SessionDataStorage>(storage.Get());
}

// Every database storage flushed until it reports nothing lost; after a report the storage is
// replaced and every thread's model written into the new one.
long long SettleAtTheEnd(IWQ_SessionDataMng* manager, SoakRooted& rooted,
                         const std::vector<std::unique_ptr<SoakWorker>>& workers)
{
    long long failures = 0;
    std::unique_lock<SoakGate> gate(rooted.Gate());
    // A thread that did not use the category since its last new storage writes its model now.
    for (const auto& worker : workers)
        if (worker->GenerationOf(rooted.Number()) != rooted.Generation() &&
            FAILED(SoakReplay(manager, worker->Index(), worker->Model(), rooted.Number())))
            ++failures;
    for (int attempt = 0;; ++attempt)
    {
        const int generation = rooted.Generation();
        rooted.Settle(manager);
        if (rooted.Reports().count(generation) == 0)
            return failures;
        if (attempt == 10)
        {
            std::fprintf(stderr, "category %d: still losing writes after %d new storages\n", rooted.Number(), attempt);
            return failures + 1;
        }
        if (FAILED(rooted.Rebind(manager)))
            ++failures;
        for (const auto& worker : workers)
            if (FAILED(SoakReplay(manager, worker->Index(), worker->Model(), rooted.Number())))
                ++failures;
    }
}

// Every slot of every thread read back; the database categories from the database (their caches
// emptied first).
long long Check(IWQ_SessionDataMng* manager, const std::vector<std::unique_ptr<SoakWorker>>& workers, int volatileGeneration)
{
    manager->FlushCache(SoakCat(kSoakDatabase));
    manager->FlushCache(SoakCat(kSoakFaulty));
    long long wrong = 0;
    for (const auto& worker : workers)
        for (const int category : {5, 4, 3, 1, kSoakDatabase, kSoakFaulty})
            for (int key = 0; key < kSoakKeys; ++key)
                for (int name = 0; name < kSoakNames; ++name)
                {
                    const auto known = worker->Model().find(std::make_tuple(category, key, name));
                    // A volatile value the thread wrote before a rebinding it has not seen is gone.
                    const bool gone = category == 5 && worker->VolatileGeneration() != volatileGeneration;
                    const std::wstring expected = known == worker->Model().end() || gone ? L"" : known->second;
                    XVariant value;
                    const HRESULT hr = manager->GetData(XWQComBSTR(SoakKey(worker->Index(), key).c_str()),
                                                        XWQComBSTR(SoakName(name).c_str()), VT_BSTR, &value.Get(),
                                                        SoakCat(category));
                    const std::wstring read = hr == S_OK && value.Get().bstrVal ? value.Get().bstrVal : L"";
                    if (read != expected)
                    {
                        ++wrong;
                        std::fprintf(stderr, "check: thread %d category %d K%d n%d: '%ls' (0x%08lX), expected '%ls'\n",
                                     worker->Index(), category, key, name, read.c_str(), static_cast<unsigned long>(hr),
                                     expected.c_str());
                    }
                }
    return wrong;
}

// Every write failure injected reported once, by the storage it happened in, with its HRESULT
// (an RPC code that came without error info may be reported as the module's own connection
// error); no failure reported that was not injected.
long long CheckFaultReports(const std::map<int, HRESULT>& injected, const std::map<int, HRESULT>& reported)
{
    long long wrong = 0;
    for (const auto& [epoch, hr] : injected)
    {
        const auto found = reported.find(epoch);
        if (found == reported.end() || (found->second != hr && found->second != static_cast<HRESULT>(0x80040851)))
        {
            ++wrong;
            std::fprintf(stderr, "fault in storage %d: injected 0x%08lX, reported 0x%08lX\n", epoch,
                         static_cast<unsigned long>(hr),
                         static_cast<unsigned long>(found == reported.end() ? S_OK : found->second));
        }
    }
    for (const auto& [generation, hr] : reported)
        if (!injected.count(generation))
        {
            ++wrong;
            std::fprintf(stderr, "storage %d reported 0x%08lX, but no fault was injected there\n", generation,
                         static_cast<unsigned long>(hr));
        }
    return wrong;
}

// Waits until the run's time is up; kills the root server now and then, and now and then releases
// every binding and makes them again; ends the process with every thread's stack when a thread
// stops making progress. The number of kills.
int Watch(const Options& options, const std::vector<std::unique_ptr<SoakWorker>>& workers, SoakWorld& world,
          IWQ_SessionDataMng* manager, long long& failures)
{
    const DWORD start = ::GetTickCount();
    DWORD lastKill = start;
    DWORD lastValidation = start;
    int kills = 0;
    std::vector<long long> seen(workers.size(), -1);
    std::vector<DWORD> since(workers.size(), start);
    while (::GetTickCount() - start < static_cast<DWORD>(options.seconds) * 1000)
    {
        ::Sleep(250);
        const DWORD now = ::GetTickCount();
        if (options.killEvery > 0 && now - lastKill >= static_cast<DWORD>(options.killEvery) * 1000)
        {
            lastKill = now;
            if (world.host.Kill())
                ++kills;
        }
        if (options.validateEvery > 0 && now - lastValidation >= static_cast<DWORD>(options.validateEvery) * 1000)
        {
            failures += world.ReleaseAndBindAll(manager);
            lastValidation = ::GetTickCount();
        }
        for (size_t i = 0; i < workers.size(); ++i)
        {
            const long long progress = workers[i]->Progress();
            if (progress != seen[i])
            {
                seen[i] = progress;
                since[i] = now;
            }
            else if (now - since[i] > static_cast<DWORD>(options.watchdog) * 1000)
            {
                std::fprintf(stderr, "watchdog: thread %zu made no progress for %d s; the stacks of every thread:\n", i,
                             options.watchdog);
                const int threads = SoakDumpThreadStacks(stderr);
                std::fprintf(stderr, "watchdog: %d threads\n", threads);
                std::fflush(stderr);
                ::TerminateProcess(::GetCurrentProcess(), 2);
            }
        }
    }
    return kills;
}

void RemoveDatabase(const std::wstring& database)
{
    for (int attempt = 0; attempt < 60 && ::GetFileAttributesW(database.c_str()) != INVALID_FILE_ATTRIBUTES; ++attempt)
    {
        for (const wchar_t* suffix : {L"", L"-wal", L"-shm"})
            ::DeleteFileW((database + suffix).c_str());
        ::Sleep(100);
    }
}
} // namespace

int main(int argc, char** argv)
{
    const Options options = Parse(argc, argv);
    if (!options.rootHost.empty())
        return SoakRootHost::HostMain(options.rootHost);
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const std::string app = "SoakTest-" + std::to_string(::GetCurrentProcessId());
    wchar_t folder[MAX_PATH] = {};
    ::GetTempPathW(MAX_PATH, folder);
    const std::wstring database = std::wstring(folder) + XCtlWide(app) + L".db";
    int result = 0;
    try
    {
        XCtlProfile profile = XCtlDefaultProfile(app);
        profile.bindings.clear();
        XCtlApplyBind("volatile=volatile", profile);
        XCtlApplyBind("user=registry:HKCU\\Software\\" + app + "\\Cached", profile);
        XCtlApplyBind("machine=registry:HKCU\\Software\\" + app + "\\Uncached;cache=no", profile);
        XCtlApplyBind("global=env", profile);
        XCtlSession session(profile);

        // The fault-injecting root in a single-threaded apartment of its own.
        SoakFaultRoot* faultRoot = nullptr;
        StaApartment faultApartment(
            [&](XComPtr<IUnknown>& object) {
                faultRoot = SoakFaultRoot::Create(options.seed);
                object.Attach(static_cast<IWQ_SessionDataIOEx*>(faultRoot));
                return S_OK;
            },
            __uuidof(IWQ_SessionDataIOEx));
        XCtlCheck(faultApartment.Setup(), "the fault-injecting root's apartment");
        SoakRootHost host(L"sqlite:" + database);
        const std::wstring rootKey = XCtlWide(app);
        SoakRooted databaseCategory(
            kSoakDatabase, [&](HRESULT& hr) { return DatabaseStorage(host.Root(hr), rootKey, hr); },
            {nullptr, nullptr, [&] { host.Kill(); }});
        long long epochMismatches = 0;
        SoakRooted faultyCategory(
            kSoakFaulty,
            [&](HRESULT& hr) {
                return DatabaseStorage(faultApartment.ForThisThread<IWQ_SessionDataIOEx>(), rootKey, hr);
            },
            {[&] { faultRoot->Quiet(); },
             [&](int generation) {
                 if (faultRoot->NextEpoch() != generation)
                     ++epochMismatches;
             },
             nullptr});
        SoakWorld world(session, databaseCategory, faultyCategory, host);

        XComPtr<IWQ_SessionDataMng> manager = XCtlCreate<IWQ_SessionDataMng>(L"WQSessionDataMng.WQSessionDataMng");
        for (const int category : kSoakPlain)
            XCtlCheck(world.BindPlain(manager.Get(), category), "binding a category");
        XCtlCheck(databaseCategory.Rebind(manager.Get()), "binding the database category");
        XCtlCheck(faultyCategory.Rebind(manager.Get()), "binding the fault-injecting category");

        std::vector<std::unique_ptr<SoakWorker>> workers;
        for (int i = 0; i < options.threads; ++i)
            workers.push_back(std::make_unique<SoakWorker>(i, i % 2 == 1, options.seed, world,
                                                           static_cast<DWORD>(options.hangAfter) * 1000));
        std::vector<std::thread> threads;
        for (auto& worker : workers)
            threads.emplace_back([&worker] { worker->Run(); });
        const DWORD start = ::GetTickCount();
        long long validationFailures = 0;
        const int kills = Watch(options, workers, world, manager.Get(), validationFailures);
        world.stop = true;
        for (std::thread& thread : threads)
            thread.join();
        const double seconds = (::GetTickCount() - start) / 1000.0;

        // The end: no more faults; what is left in the pipes reaches the roots.
        faultRoot->Quiet();
        long long failures = world.totals.failures.load() + validationFailures;
        failures += SettleAtTheEnd(manager.Get(), databaseCategory, workers);
        failures += SettleAtTheEnd(manager.Get(), faultyCategory, workers);
        const long long wrong = Check(manager.Get(), workers, world.volatileGeneration.load());
        const long long misreported = CheckFaultReports(faultRoot->WriteFaults(), faultyCategory.Reports());
        const SoakFaultRoot::Counts faults = faultRoot->Totals();
        const SoakTotals& totals = world.totals;
        std::printf("soak: %d threads (%d in single-threaded apartments), %.0f s, %lld operations (%.0f/s)\n",
                    options.threads, options.threads / 2, seconds, totals.operations.load(),
                    totals.operations.load() / seconds);
        std::printf("soak: %lld flushes, %lld deletions, %lld transfers, %lld walks, %lld rebindings, %lld validations, "
                    "%lld replays\n",
                    totals.flushes.load(), totals.deletions.load(), totals.transfers.load(), totals.walks.load(),
                    totals.rebindings.load(), totals.validations.load(), totals.replays.load());
        std::printf("soak: root server killed %d times, started %d times, %lld calls failed after kills, %zu lost "
                    "writes reported, %lld database storages\n",
                    kills, host.Starts(), totals.failuresAfterKills.load(), databaseCategory.Reports().size(),
                    databaseCategory.Rebindings());
        std::printf("soak: fault-injecting root: %lld calls, %lld slow, %lld read faults (%lld seen by callers), %lld "
                    "write faults, %zu reported, %lld misreported, %lld storages\n",
                    faults.calls, faults.slow, faults.readFaults, totals.readFaultsSeen.load(), faults.writeFaults,
                    faultyCategory.Reports().size(), misreported, faultyCategory.Rebindings());
        std::printf("soak: %lld failed calls, %lld wrong reads during the run, %lld lost or invented values at the end\n",
                    failures, totals.wrongReads.load(), wrong);
        result = failures == 0 && totals.wrongReads.load() == 0 && wrong == 0 && misreported == 0 &&
                         epochMismatches == 0
                     ? 0
                     : 1;
        // The storages go with the bindings (released by Validate after SetInvalid), before the
        // roots they use.
        manager->SetInvalid();
        manager->Validate();
    }
    catch (const XCtlFailure& failure)
    {
        std::fprintf(stderr, "soak: %s\n", failure.what());
        result = 1;
    }
    ::RegDeleteTreeW(HKEY_CURRENT_USER, (L"Software\\" + XCtlWide(app)).c_str());
    ::CoUninitialize();
    RemoveDatabase(database);
    return result;
}
