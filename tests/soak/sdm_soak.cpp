// The soak: many threads (in the multithreaded apartment and in message-pumping single-threaded
// apartments) doing random operations through the manager on categories bound to every kind of
// storage, against a model of what must be true; a watchdog ends a run that stops making progress.
//   sdm_soak.exe [--seconds N] [--threads N] [--seed N]
// Categories: 5 volatile (cached), 4 registry (cached), 3 registry (uncached), 1 environment
// (cached), 2 the database storage in asynchronous user-profile mode over the root server in
// another process (its own SQLite file).
// Each thread works on keys of its own, so the model of a thread is exact: for the cached and
// uncached categories, a read answers the last value whose write returned S_OK; for the database,
// every value written before a flush that returned S_OK is in the database at the end. The run
// ends with a check of every key of every thread, and fails (exit 1) on any lost or invented value
// or failed call; exit 2 when the watchdog fired.
#include "XWQComBSTR.h"
#include "xcomtypes.h"
#include "xctlsession.h"

#include <windows.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <random>
#include <set>
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
};

const int kKeys = 6;
const int kNames = 4;
const int kCategories[] = {5, 4, 3, 1, 2};

struct Totals
{
    std::atomic<long long> operations{0};
    std::atomic<long long> failures{0};
    std::atomic<long long> wrongReads{0};
    std::atomic<long long> flushes{0};
    std::atomic<long long> rebindings{0};
};

SESSIONDATATYPE Cat(int number)
{
    return static_cast<SESSIONDATATYPE>(number);
}

std::wstring Key(int thread, int key)
{
    return L"Soak/T" + std::to_wstring(thread) + L"/K" + std::to_wstring(key);
}

std::wstring Name(int name)
{
    return L"n" + std::to_wstring(name);
}

// What a thread knows must be true: per (category, key, name) the last value written with S_OK
// ("" for a value deleted), and for the database what the last successful flush acknowledged.
struct Model
{
    std::map<std::tuple<int, int, int>, std::wstring> written;
    std::map<std::tuple<int, int, int>, std::wstring> acknowledged;
};

class Worker
{
public:
    Worker(int index, bool sta, unsigned seed, Totals& totals, const std::atomic<bool>& stop, XCtlSession& session)
        : m_index(index), m_sta(sta), m_random(seed + static_cast<unsigned>(index) * 7919u), m_totals(totals),
          m_stop(stop), m_session(session)
    {
    }
    void Run()
    {
        ::CoInitializeEx(nullptr, m_sta ? COINIT_APARTMENTTHREADED : COINIT_MULTITHREADED);
        {
            XComPtr<IWQ_SessionDataMng> manager = XCtlCreate<IWQ_SessionDataMng>(L"WQSessionDataMng.WQSessionDataMng");
            while (!m_stop.load())
            {
                Step(manager.Get());
                m_progress.fetch_add(1);
                if (m_sta)
                    Pump();
            }
            // What this thread wrote to the database reaches it before the check.
            if (manager->FlushAsyncStorage(Cat(2)) == S_OK)
                m_model.acknowledged = Database(m_model.written);
        }
        ::CoUninitialize();
    }
    long long Progress() const { return m_progress.load(); }
    const Model& Final() const { return m_model; }
    int Index() const { return m_index; }

private:
    static std::map<std::tuple<int, int, int>, std::wstring> Database(
        const std::map<std::tuple<int, int, int>, std::wstring>& written)
    {
        std::map<std::tuple<int, int, int>, std::wstring> database;
        for (const auto& [slot, value] : written)
            if (std::get<0>(slot) == 2)
                database[slot] = value;
        return database;
    }
    static void Pump()
    {
        MSG message;
        while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
        {
            ::TranslateMessage(&message);
            ::DispatchMessageW(&message);
        }
    }
    int Pick(int n) { return static_cast<int>(m_random() % static_cast<unsigned>(n)); }
    void Fail(HRESULT hr, const char* what)
    {
        if (FAILED(hr))
        {
            m_totals.failures.fetch_add(1);
            std::fprintf(stderr, "thread %d: %s failed: 0x%08lX\n", m_index, what, static_cast<unsigned long>(hr));
        }
    }

    void Step(IWQ_SessionDataMng* manager)
    {
        // The database category is used from the multithreaded apartment only: its storage holds
        // the root's proxy of the apartment that bound it, and a call from a single-threaded
        // apartment answers RPC_E_WRONG_THREAD (0x8001010E).
        const int category = kCategories[Pick(m_sta ? 4 : 5)];
        const int key = Pick(kKeys);
        const int name = Pick(kNames);
        const XWQComBSTR keyText(Key(m_index, key).c_str());
        const XWQComBSTR nameText(Name(name).c_str());
        const auto slot = std::make_tuple(category, key, name);
        const int roll = m_sta ? Pick(90) : Pick(100);
        m_totals.operations.fetch_add(1);
        if (roll < 40)
        {
            const std::wstring text = L"v" + std::to_wstring(m_random() % 100000);
            XVariant value;
            value.Get().vt = VT_BSTR;
            value.Get().bstrVal = ::SysAllocString(text.c_str());
            const HRESULT hr = manager->WriteData(keyText, nameText, value.Get(), Cat(category));
            Fail(hr, "WriteData");
            if (hr == S_OK)
                m_model.written[slot] = text;
        }
        else if (roll < 75)
        {
            XVariant value;
            const HRESULT hr = manager->GetData(keyText, nameText, VT_BSTR, &value.Get(), Cat(category));
            Fail(hr, "GetData");
            const auto known = m_model.written.find(slot);
            const std::wstring expected = known == m_model.written.end() ? L"" : known->second;
            const std::wstring read = hr == S_OK && value.Get().bstrVal ? value.Get().bstrVal : L"";
            // A deleted database key is gone from the cache at once but from the database only
            // when the piped deletion runs: until the next flush (and the emptying of the cache
            // after it), a read may still find its values.
            const bool settled = category != 2 || m_deletedSinceFlush.count(key) == 0;
            if (SUCCEEDED(hr) && settled && read != expected)
            {
                m_totals.wrongReads.fetch_add(1);
                std::fprintf(stderr, "thread %d: category %d %ls %ls read '%ls', expected '%ls'\n", m_index, category,
                             Key(m_index, key).c_str(), Name(name).c_str(), read.c_str(), expected.c_str());
            }
        }
        else if (roll < 85)
        {
            XValueArray list;
            Fail(manager->GetStringList(keyText, list.CountAddress(), list.ItemsAddress(), Cat(category)),
                 "GetStringList");
        }
        else if (roll < 87)
        {
            // Rebinding a category whose storage keeps its values (the registry, the environment)
            // to a new storage of the same place: nothing written is lost.
            static const int kRebindable[] = {4, 3, 1};
            const int rebound = kRebindable[Pick(3)];
            const XCtlStorageTarget& where = m_session.Profile().bindings.at(rebound).second;
            const XComPtr<IWQ_SessionDataStorage> storage = m_session.NewStorage(where);
            Fail(manager->SetStorage(storage.Get(), Cat(rebound), where.cached ? 1 : -1), "SetStorage");
            m_totals.rebindings.fetch_add(1);
        }
        else if (roll < 90)
        {
            XBstrArray keys;
            const XWQComBSTR parent((L"Soak/T" + std::to_wstring(m_index)).c_str());
            Fail(manager->GetSubKeys(parent, Pick(2), keys.CountAddress(), keys.ItemsAddress(), Cat(category)),
                 "GetSubKeys");
        }
        else if (roll < 94 && !m_sta)
        {
            // The walks and merges over every category.
            XVariant value;
            Fail(manager->GetData(keyText, nameText, VT_BSTR, &value.Get(), Cat(0)), "GetData (all)");
            XValueArray list;
            Fail(manager->GetStringList(keyText, list.CountAddress(), list.ItemsAddress(), Cat(0)), "GetStringList (all)");
        }
        else if (roll < 97)
        {
            const HRESULT hr = manager->FlushAsyncStorage(Cat(2));
            Fail(hr, "FlushAsyncStorage");
            m_totals.flushes.fetch_add(1);
            if (hr == S_OK)
            {
                m_model.acknowledged = Database(m_model.written);
                // A read between a deletion and the flush may have cached the deleted values
                // again: with every piped call run, the cache is emptied (kept on purpose).
                Fail(manager->FlushCache(Cat(2)), "FlushCache");
                m_deletedSinceFlush.clear();
            }
        }
        else
        {
            // Deletion (the database category is the one with an extended layer).
            const HRESULT hr = manager->DeleteKey(keyText, Cat(2));
            Fail(hr, "DeleteKey");
            if (hr == S_OK)
            {
                for (int n = 0; n < kNames; ++n)
                    m_model.written.erase(std::make_tuple(2, key, n));
                m_deletedSinceFlush.insert(key);
            }
        }
    }

    int m_index;
    bool m_sta;
    std::mt19937 m_random;
    Totals& m_totals;
    const std::atomic<bool>& m_stop;
    XCtlSession& m_session;
    std::atomic<long long> m_progress{0};
    Model m_model;
    std::set<int> m_deletedSinceFlush;
};

Options Parse(int argc, char** argv)
{
    Options options;
    for (int i = 1; i + 1 < argc; i += 2)
    {
        if (std::strcmp(argv[i], "--seconds") == 0)
            options.seconds = std::atoi(argv[i + 1]);
        else if (std::strcmp(argv[i], "--threads") == 0)
            options.threads = std::atoi(argv[i + 1]);
        else if (std::strcmp(argv[i], "--seed") == 0)
            options.seed = static_cast<unsigned>(std::strtoul(argv[i + 1], nullptr, 10));
    }
    return options;
}

// Every slot of every thread read back from a fresh manager (the caches of this process still
// answer for the cached categories; the database category is read after a flush of the cache).
long long Check(const std::vector<std::unique_ptr<Worker>>& workers)
{
    XComPtr<IWQ_SessionDataMng> manager = XCtlCreate<IWQ_SessionDataMng>(L"WQSessionDataMng.WQSessionDataMng");
    manager->FlushCache(Cat(2));
    long long wrong = 0;
    for (const auto& worker : workers)
        for (const int category : kCategories)
            for (int key = 0; key < kKeys; ++key)
                for (int name = 0; name < kNames; ++name)
                {
                    const auto slot = std::make_tuple(category, key, name);
                    const auto& model = category == 2 ? worker->Final().acknowledged : worker->Final().written;
                    const auto known = model.find(slot);
                    XVariant value;
                    const HRESULT hr = manager->GetData(XWQComBSTR(Key(worker->Index(), key).c_str()),
                                                        XWQComBSTR(Name(name).c_str()), VT_BSTR, &value.Get(),
                                                        Cat(category));
                    const std::wstring read = hr == S_OK && value.Get().bstrVal ? value.Get().bstrVal : L"";
                    const std::wstring expected = known == model.end() ? L"" : known->second;
                    if (read != expected)
                    {
                        ++wrong;
                        std::fprintf(stderr, "check: thread %d category %d K%d n%d: '%ls', expected '%ls'\n",
                                     worker->Index(), category, key, name, read.c_str(), expected.c_str());
                    }
                }
    return wrong;
}
} // namespace

int main(int argc, char** argv)
{
    const Options options = Parse(argc, argv);
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const std::string app = "SoakTest-" + std::to_string(::GetCurrentProcessId());
    wchar_t folder[MAX_PATH] = {};
    ::GetTempPathW(MAX_PATH, folder);
    const std::wstring database = std::wstring(folder) + XCtlWide(app) + L".db";
    int result = 0;
    {
        XCtlProfile profile = XCtlDefaultProfile(app);
        profile.bindings.clear();
        XCtlApplyBind("volatile=volatile", profile);
        XCtlApplyBind("user=registry:HKCU\\Software\\" + app + "\\Cached", profile);
        XCtlApplyBind("machine=registry:HKCU\\Software\\" + app + "\\Uncached;cache=no", profile);
        XCtlApplyBind("global=env", profile);
        XCtlApplyBind("userdb=db:" + app + ";user;async=3;connection={sqlite:" + XCtlUtf8(database) + "}", profile);
        XCtlSession session(profile);
        for (const int category : kCategories)
            session.Ensure(XCtlParseCategory(std::to_string(category)));

        Totals totals;
        std::atomic<bool> stop{false};
        std::vector<std::unique_ptr<Worker>> workers;
        for (int i = 0; i < options.threads; ++i)
            workers.push_back(std::make_unique<Worker>(i, i % 2 == 1, options.seed, totals, stop, session));
        std::vector<std::thread> threads;
        for (auto& worker : workers)
            threads.emplace_back([&worker] { worker->Run(); });

        // The watchdog: every thread must make progress within 60 seconds.
        const DWORD start = ::GetTickCount();
        std::vector<long long> seen(workers.size(), -1);
        std::vector<DWORD> since(workers.size(), start);
        bool hung = false;
        while (!hung && ::GetTickCount() - start < static_cast<DWORD>(options.seconds) * 1000)
        {
            ::Sleep(500);
            for (size_t i = 0; i < workers.size(); ++i)
            {
                const long long now = workers[i]->Progress();
                if (now != seen[i])
                {
                    seen[i] = now;
                    since[i] = ::GetTickCount();
                }
                else if (::GetTickCount() - since[i] > 60000)
                {
                    std::fprintf(stderr, "watchdog: thread %zu made no progress for 60 s\n", i);
                    hung = true;
                }
            }
        }
        if (hung)
        {
            std::fflush(stderr);
            ::TerminateProcess(::GetCurrentProcess(), 2);
        }
        stop = true;
        for (std::thread& thread : threads)
            thread.join();
        const double seconds = (::GetTickCount() - start) / 1000.0;
        const long long wrong = Check(workers);
        std::printf("soak: %d threads (%d in single-threaded apartments), %.0f s, %lld operations (%.0f/s), "
                    "%lld flushes, %lld rebindings, %lld failed calls, %lld wrong reads during the run, %lld lost or invented values "
                    "at the end\n",
                    options.threads, options.threads / 2, seconds, totals.operations.load(),
                    totals.operations.load() / seconds, totals.flushes.load(), totals.rebindings.load(),
                    totals.failures.load(),
                    totals.wrongReads.load(), wrong);
        result = totals.failures.load() == 0 && totals.wrongReads.load() == 0 && wrong == 0 ? 0 : 1;
    }
    ::RegDeleteTreeW(HKEY_CURRENT_USER, (L"Software\\" + XCtlWide(app)).c_str());
    ::CoUninitialize();
    for (int attempt = 0; attempt < 60 && ::GetFileAttributesW(database.c_str()) != INVALID_FILE_ATTRIBUTES; ++attempt)
    {
        for (const wchar_t* suffix : {L"", L"-wal", L"-shm"})
            ::DeleteFileW((database + suffix).c_str());
        ::Sleep(100);
    }
    return result;
}
