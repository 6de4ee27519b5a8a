#include "soakworker.h"

#include "XWQComBSTR.h"
#include "soakfaultroot.h"
#include "xcomtypes.h"

#include <cstdio>
#include <mutex>

namespace
{
const int kRooted[] = {kSoakDatabase, kSoakFaulty};
const int kEveryCategory[] = {5, 4, 3, 1, kSoakDatabase, kSoakFaulty};

void Pump()
{
    MSG message;
    while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
    {
        ::TranslateMessage(&message);
        ::DispatchMessageW(&message);
    }
}

bool IsRooted(int category)
{
    return category == kSoakDatabase || category == kSoakFaulty;
}

HRESULT WriteText(IWQ_SessionDataMng* manager, int thread, int category, int key, int name, const std::wstring& text)
{
    XVariant value;
    value.Get().vt = VT_BSTR;
    value.Get().bstrVal = ::SysAllocString(text.c_str());
    return manager->WriteData(XWQComBSTR(SoakKey(thread, key).c_str()), XWQComBSTR(SoakName(name).c_str()), value.Get(),
                              SoakCat(category));
}

// A thread that stops here for good: the watchdog's own test.
__attribute__((noinline)) void SoakDeliberateHang()
{
    HANDLE never = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ::WaitForSingleObject(never, INFINITE);
}
} // namespace

HRESULT SoakReplay(IWQ_SessionDataMng* manager, int thread, const SoakValues& model, int category)
{
    HRESULT result = S_OK;
    for (int key = 0; key < kSoakKeys; ++key)
    {
        HRESULT hr = manager->DeleteKey(XWQComBSTR(SoakKey(thread, key).c_str()), SoakCat(category));
        for (int name = 0; name < kSoakNames && SUCCEEDED(hr); ++name)
        {
            const auto known = model.find(std::make_tuple(category, key, name));
            if (known != model.end())
                hr = WriteText(manager, thread, category, key, name, known->second);
        }
        if (FAILED(hr))
            result = hr;
    }
    return result;
}

void SoakWorker::Run()
{
    ::CoInitializeEx(nullptr, m_sta ? COINIT_APARTMENTTHREADED : COINIT_MULTITHREADED);
    const DWORD start = ::GetTickCount();
    try
    {
        m_manager = XCtlCreate<IWQ_SessionDataMng>(L"WQSessionDataMng.WQSessionDataMng");
        while (!m_world.stop.load())
        {
            if (m_hangAfter && m_index == 0 && ::GetTickCount() - start > m_hangAfter)
                SoakDeliberateHang();
            try
            {
                Step();
            }
            catch (const XCtlFailure& failure)
            {
                Fail(failure.Result(), failure.what());
            }
            m_progress.fetch_add(1);
            if (m_sta)
                Pump();
        }
    }
    catch (const XCtlFailure& failure)
    {
        Fail(failure.Result(), failure.what());
    }
    m_manager.Reset();
    ::CoUninitialize();
}

void SoakWorker::Fail(HRESULT hr, const char* what)
{
    if (FAILED(hr))
    {
        m_world.totals.failures.fetch_add(1);
        std::fprintf(stderr, "thread %d: %s failed: 0x%08lX\n", m_index, what, static_cast<unsigned long>(hr));
    }
}

void SoakWorker::Step()
{
    std::shared_lock<SoakGate> bindings(m_world.bindings);
    if (m_volatileGeneration != m_world.volatileGeneration.load())
    {
        m_volatileGeneration = m_world.volatileGeneration.load();
        for (auto it = m_model.begin(); it != m_model.end();)
            it = std::get<0>(it->first) == 5 ? m_model.erase(it) : std::next(it);
    }
    const int category = m_sta ? kSoakPlain[Pick(4)] : kEveryCategory[Pick(6)];
    const int roll = Pick(100);
    m_world.totals.operations.fetch_add(1);
    if (roll < 38)
        Write(category);
    else if (roll < 68)
        Read(category);
    else if (roll < 78)
        List(category);
    else if (roll < 81)
        RebindPlain();
    else if (roll < 84)
        SubKeys(category);
    else if (roll < 88)
        m_sta ? Read(category) : Walk();
    else if (roll < 91)
        Transfer();
    else if (roll < 96)
        Flush(m_sta ? kSoakPlain[1 + Pick(2)] : kRooted[Pick(2)]);
    else
        m_sta ? Write(category) : Delete(kRooted[Pick(2)]);
}

template <class Op>
HRESULT SoakWorker::OnRooted(int category, const char* what, Op op)
{
    SoakRooted& rooted = m_world.Rooted(category);
    // A rebinding that failed left the category as it was (perhaps unbound): bind it first.
    if (rooted.Broken())
        Fail(rooted.Replace(Mng(), rooted.Generation()), "rebinding after a failed rebinding");
    std::shared_lock<SoakGate> gate(rooted.Gate());
    const int generation = rooted.Generation();
    if (m_generation[category] != generation)
    {
        // A new storage: what was piped to the old one may not have arrived.
        m_generation[category] = generation;
        Fail(SoakReplay(Mng(), m_index, m_model, category), "replay");
        for (int key = 0; key < kSoakKeys; ++key)
            m_deleted[category].insert(key);
        m_world.totals.replays.fetch_add(1);
    }
    const HRESULT hr = op();
    if (SUCCEEDED(hr))
        return hr;
    HRESULT retained = S_OK;
    Mng()->GetLastErrorAsyncExecution(SoakCat(category), &retained);
    gate.unlock();
    Explain(category, generation, hr, retained, what);
    return hr;
}

void SoakWorker::Explain(int category, int generation, HRESULT hr, HRESULT retained, const char* what)
{
    SoakRooted& rooted = m_world.Rooted(category);
    if (FAILED(retained))
    {
        // The storage lost a write: it reports that for good, so it is replaced.
        rooted.Report(generation, retained);
        Fail(rooted.Replace(Mng(), generation), "rebinding after a failure");
        return;
    }
    if (category == kSoakDatabase)
    {
        // The root server was killed: the storage that used it is replaced (by this thread, or
        // already by another).
        if (rooted.Generation() != generation || m_world.host.Ended(3000))
        {
            m_world.totals.failuresAfterKills.fetch_add(1);
            Fail(rooted.Replace(Mng(), generation), "rebinding after a kill");
            return;
        }
    }
    else if (SoakFaultRoot::IsFault(hr))
    {
        m_world.totals.readFaultsSeen.fetch_add(1);
        return;
    }
    std::fprintf(stderr, "thread %d: category %d, generation %d:\n", m_index, category, generation);
    Fail(hr, what);
}

void SoakWorker::Note(int category, int key, const std::wstring& what)
{
    m_history.push_back(std::to_wstring(category) + L"/K" + std::to_wstring(key) + L": " + what);
    if (m_history.size() > 200)
        m_history.pop_front();
}

void SoakWorker::Write(int category)
{
    const int key = Pick(kSoakKeys);
    const int name = Pick(kSoakNames);
    const std::wstring text = L"v" + std::to_wstring(m_random() % 100000);
    const auto write = [&] { return WriteText(Mng(), m_index, category, key, name, text); };
    const HRESULT hr = IsRooted(category) ? OnRooted(category, "WriteData", write) : write();
    Note(category, key, L"write n" + std::to_wstring(name) + L"=" + text + L" -> " + std::to_wstring(hr));
    if (!IsRooted(category))
        Fail(hr, "WriteData");
    if (hr == S_OK)
        m_model[std::make_tuple(category, key, name)] = text;
}

void SoakWorker::Read(int category)
{
    const int key = Pick(kSoakKeys);
    const int name = Pick(kSoakNames);
    XVariant value;
    const auto read = [&] {
        return Mng()->GetData(XWQComBSTR(SoakKey(m_index, key).c_str()), XWQComBSTR(SoakName(name).c_str()), VT_BSTR,
                              &value.Get(), SoakCat(category));
    };
    const HRESULT hr = IsRooted(category) ? OnRooted(category, "GetData", read) : read();
    if (!IsRooted(category))
        Fail(hr, "GetData");
    // A deleted database key is gone from the cache at once but from the database only when the
    // piped deletion runs: until the next flush (and the emptying of the cache after it), a read
    // may still find its values.
    if (FAILED(hr) || (IsRooted(category) && m_deleted[category].count(key)))
        return;
    const auto known = m_model.find(std::make_tuple(category, key, name));
    const std::wstring expected = known == m_model.end() ? L"" : known->second;
    const std::wstring read_ = hr == S_OK && value.Get().bstrVal ? value.Get().bstrVal : L"";
    if (read_ != expected)
    {
        m_world.totals.wrongReads.fetch_add(1);
        std::fprintf(stderr, "thread %d: category %d %ls %ls read '%ls', expected '%ls'\n", m_index, category,
                     SoakKey(m_index, key).c_str(), SoakName(name).c_str(), read_.c_str(), expected.c_str());
        for (const std::wstring& line : m_history)
            std::fprintf(stderr, "   %ls\n", line.c_str());
    }
}

void SoakWorker::List(int category)
{
    const XWQComBSTR key(SoakKey(m_index, Pick(kSoakKeys)).c_str());
    const auto list = [&] {
        XValueArray values;
        return Mng()->GetStringList(key, values.CountAddress(), values.ItemsAddress(), SoakCat(category));
    };
    const HRESULT hr = IsRooted(category) ? OnRooted(category, "GetStringList", list) : list();
    if (!IsRooted(category))
        Fail(hr, "GetStringList");
}

void SoakWorker::SubKeys(int category)
{
    const XWQComBSTR parent((L"Soak/T" + std::to_wstring(m_index)).c_str());
    const ULONG recursive = Pick(2);
    const auto subKeys = [&] {
        XBstrArray keys;
        return Mng()->GetSubKeys(parent, recursive, keys.CountAddress(), keys.ItemsAddress(), SoakCat(category));
    };
    const HRESULT hr = IsRooted(category) ? OnRooted(category, "GetSubKeys", subKeys) : subKeys();
    if (!IsRooted(category))
        Fail(hr, "GetSubKeys");
}

void SoakWorker::Walk()
{
    // The walks and merges over every category (the database category among them, so under its
    // gate: a failure there is explained as any other of that category).
    m_world.totals.walks.fetch_add(1);
    const XWQComBSTR key(SoakKey(m_index, Pick(kSoakKeys)).c_str());
    const XWQComBSTR name(SoakName(Pick(kSoakNames)).c_str());
    OnRooted(kSoakDatabase, "GetData (all)", [&] {
        XVariant value;
        return Mng()->GetData(key, name, VT_BSTR, &value.Get(), SoakCat(0));
    });
    OnRooted(kSoakDatabase, "GetStringList (all)", [&] {
        XValueArray list;
        return Mng()->GetStringList(key, list.CountAddress(), list.ItemsAddress(), SoakCat(0));
    });
}

void SoakWorker::Transfer()
{
    // From the uncached registry category to the cached one: values of the source key land under
    // the target key. Which ones depends on the source's layer: an uncached layer answers a list
    // from what its last writes left in its working table, when they left anything (kept on
    // purpose), so any part of the key may be copied. The target is read back: each name holds
    // either its value from before or the source's value; anything else is wrong.
    const int from = Pick(kSoakKeys);
    const int to = Pick(kSoakKeys);
    const HRESULT hr = Mng()->TransferDataFromTo(SoakCat(3), SoakCat(4), XWQComBSTR(SoakKey(m_index, from).c_str()),
                                                 XWQComBSTR(SoakKey(m_index, to).c_str()));
    Fail(hr, "TransferDataFromTo");
    if (hr != S_OK)
        return;
    m_world.totals.transfers.fetch_add(1);
    Note(4, to, L"transfer from K" + std::to_wstring(from));
    for (int name = 0; name < kSoakNames; ++name)
    {
        const auto source = m_model.find(std::make_tuple(3, from, name));
        if (source == m_model.end())
            continue;
        const auto slot = std::make_tuple(4, to, name);
        const auto before = m_model.find(slot);
        XVariant value;
        const HRESULT read = Mng()->GetData(XWQComBSTR(SoakKey(m_index, to).c_str()), XWQComBSTR(SoakName(name).c_str()),
                                            VT_BSTR, &value.Get(), SoakCat(4));
        Fail(read, "GetData after a transfer");
        const std::wstring now = read == S_OK && value.Get().bstrVal ? value.Get().bstrVal : L"";
        if (now == source->second)
            m_model[slot] = source->second;
        else if (now != (before == m_model.end() ? L"" : before->second))
        {
            m_world.totals.wrongReads.fetch_add(1);
            std::fprintf(stderr, "thread %d: transfer K%d to K%d: n%d is '%ls', neither the value before nor '%ls'\n",
                         m_index, from, to, name, now.c_str(), source->second.c_str());
        }
    }
}

void SoakWorker::RebindPlain()
{
    // A category whose storage keeps its values (the registry, the environment) bound to a new
    // storage of the same place, by the manager's SetStorage or with an IO object of the client's
    // own (SetStorageIO): nothing written is lost.
    static const int kRebindable[] = {4, 3, 1};
    const int category = kRebindable[Pick(3)];
    if (Pick(2) == 0)
        Fail(m_world.BindPlain(Mng(), category), "SetStorage");
    else
    {
        const XCtlStorageTarget& where = m_world.session.Profile().bindings.at(category).second;
        const XComPtr<IWQ_SessionDataStorage> storage = m_world.session.NewStorage(where);
        const XComPtr<IWQ_SessionDataIO> io = XCtlCreate<IWQ_SessionDataIO>(
            where.cached ? L"WQSessionDataMng.WQ_SessionDataIOCache" : L"WQSessionDataMng.WQ_SessionDataIONoCache");
        Fail(io->SetStorage(storage.Get()), "IO SetStorage");
        Fail(Mng()->SetStorageIO(io.Get(), SoakCat(category)), "SetStorageIO");
    }
    m_world.totals.rebindings.fetch_add(1);
    Note(category, -1, L"rebound");
}

void SoakWorker::Flush(int category)
{
    if (!IsRooted(category))
    {
        Note(category, -1, L"flush cache");
        // The cache of a registry category. (Not the environment's: an environment storage keeps
        // the copy of the environment it read first, so after its layer's cache is emptied it
        // answers what it read then, on purpose.)
        Fail(Mng()->FlushCache(SoakCat(category)), "FlushCache");
        return;
    }
    m_world.totals.flushes.fetch_add(1);
    OnRooted(category, "FlushAsyncStorage", [&] {
        const HRESULT hr = Mng()->FlushAsyncStorage(SoakCat(category));
        if (hr == S_OK)
        {
            // A read between a deletion and the flush may have cached the deleted values again:
            // with every piped call run, the cache is emptied (kept on purpose).
            m_deleted[category].clear();
            return Mng()->FlushCache(SoakCat(category));
        }
        return hr;
    });
}

void SoakWorker::Delete(int category)
{
    const int key = Pick(kSoakKeys);
    const HRESULT hr = OnRooted(category, "DeleteKey", [&] {
        return Mng()->DeleteKey(XWQComBSTR(SoakKey(m_index, key).c_str()), SoakCat(category));
    });
    if (hr != S_OK)
        return;
    m_world.totals.deletions.fetch_add(1);
    for (int name = 0; name < kSoakNames; ++name)
        m_model.erase(std::make_tuple(category, key, name));
    m_deleted[category].insert(key);
}
