// Leak and handle checks per storage kind: 10,000 cycles of writes, reads and lists through the
// manager on a category bound to each kind of storage (volatile, registry cached and uncached,
// environment, the database storage in asynchronous user-profile mode over the root server in
// another process). Growth per cycle must be zero: the task memory still held by blocks made
// during the cycles (an IMallocSpy, the BSTR cache off) stays bounded by what the caches keep,
// the process's handles do not grow, and its heap bytes grow by less than a byte per cycle over
// the second half of the cycles (the first half pays for what is made once).
// What the platform itself keeps over the same number of raw calls is measured beside it.
#include "mallocspy.h"
#include "processresources.h"
#include "XWQComBSTR.h"
#include "xcomtypes.h"
#include "xctlsession.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>

namespace
{
const int kWarmUp = 1000;
const int kCycles = 10000;

struct Growth
{
    long long handles = 0;    // over the second half of the cycles
    long long heapBytes = 0;  // over the second half: what the first half made once is left out
    size_t taskBlocks = 0;    // task-memory blocks made during the cycles and still held
};

// Runs cycle kWarmUp times, then kCycles times measuring handles and heap bytes at the half and
// at the end, then kCycles times more under the malloc spy.
Growth Measure(const std::function<void(int)>& cycle)
{
    int i = 0;
    for (; i < kWarmUp; ++i)
        cycle(i);
    for (; i < kWarmUp + kCycles / 2; ++i)
        cycle(i);
    const size_t handles = OwnHandleCount();
    const size_t heap = OwnHeapBytes();
    for (; i < kWarmUp + kCycles; ++i)
        cycle(i);
    Growth growth;
    growth.handles = static_cast<long long>(OwnHandleCount()) - static_cast<long long>(handles);
    growth.heapBytes = static_cast<long long>(OwnHeapBytes()) - static_cast<long long>(heap);
    EXPECT_GT(handles, 0u) << "the process's handles could not be counted";
    ScopedMallocSpy spy;
    EXPECT_TRUE(spy.Registered());
    for (; i < kWarmUp + 2 * kCycles; ++i)
        cycle(i);
    growth.taskBlocks = spy.Outstanding();
    return growth;
}

void Report(const char* kind, const Growth& growth)
{
    std::printf("%-28s per cycle: handles %+.4f, heap %+.3f bytes; task blocks still held after %d cycles: %zu\n",
                kind, static_cast<double>(growth.handles) / (kCycles / 2),
                static_cast<double>(growth.heapBytes) / (kCycles / 2), kCycles, growth.taskBlocks);
}

// No growth: the caches keep what they keep (ten keys), nothing more per cycle.
void ExpectNoGrowth(const Growth& growth)
{
    EXPECT_LE(growth.taskBlocks, 64u);
    EXPECT_LE(growth.handles, 0);
    EXPECT_LT(growth.heapBytes, kCycles / 2);  // less than a byte per cycle
}

// A category of a manager bound by a storage target, and one cycle on it: a write, a read, a list,
// over ten keys (so the caches stay the same size).
class Bound
{
public:
    explicit Bound(const std::string& where)
        : m_session(Profile(where)), m_category(XCtlParseCategory("user1"))
    {
        m_session.Ensure(m_category);
    }
    void Cycle(int i)
    {
        const XWQComBSTR key((L"Leaks/K" + std::to_wstring(i % 10)).c_str());
        const XWQComBSTR name(L"n");
        XVariant value;
        value.Get().vt = VT_BSTR;
        value.Get().bstrVal = ::SysAllocString((L"value " + std::to_wstring(i)).c_str());
        EXPECT_EQ(S_OK, m_session.Manager()->WriteData(key, name, value.Get(), m_category.type));
        XVariant read;
        EXPECT_EQ(S_OK, m_session.Manager()->GetData(key, name, VT_BSTR, &read.Get(), m_category.type));
        XValueArray list;
        m_session.Manager()->GetStringList(key, list.CountAddress(), list.ItemsAddress(), m_category.type);
    }
    void Flush() { m_session.FlushAsync(); }

private:
    static XCtlProfile Profile(const std::string& where)
    {
        XCtlProfile profile = XCtlDefaultProfile("LeakTest");
        XCtlApplyBind("user1=" + where, profile);
        return profile;
    }

    XCtlSession m_session;
    XCtlCategory m_category;
};

std::string TestKey()
{
    return "LeakTest-" + std::to_string(::GetCurrentProcessId());
}

class RemovedAtTheEnd
{
public:
    ~RemovedAtTheEnd() { ::RegDeleteTreeW(HKEY_CURRENT_USER, (L"Software\\" + XCtlWide(TestKey())).c_str()); }
};
} // namespace

TEST(LeaksPerStorageKind, VolatileGrowsByNothingPerCycle)
{
    Bound bound("volatile");
    const Growth growth = Measure([&](int i) { bound.Cycle(i); });
    Report("volatile", growth);
    ExpectNoGrowth(growth);
}

TEST(LeaksPerStorageKind, RegistryCachedAndUncachedGrowByNothingPerCycle)
{
    RemovedAtTheEnd removed;
    for (const char* cache : {"yes", "no"})
    {
        Bound bound("registry:HKCU\\Software\\" + TestKey() + ";cache=" + cache);
        const Growth growth = Measure([&](int i) { bound.Cycle(i); });
        Report(cache == std::string("yes") ? "registry, cached" : "registry, uncached", growth);
        ExpectNoGrowth(growth);
    }
    // The platform's own share: the same number of raw registry writes and reads.
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, ::RegCreateKeyExW(HKEY_CURRENT_USER, (L"Software\\" + XCtlWide(TestKey()) + L"\\Raw").c_str(),
                                               0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr));
    const Growth platform = Measure([&](int i) {
        const std::wstring text = L"value " + std::to_wstring(i);
        ::RegSetValueExW(key, L"n", 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                         static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
        wchar_t back[64];
        DWORD bytes = sizeof back;
        ::RegQueryValueExW(key, L"n", nullptr, nullptr, reinterpret_cast<BYTE*>(back), &bytes);
    });
    ::RegCloseKey(key);
    Report("raw registry calls (Wine)", platform);
}

TEST(LeaksPerStorageKind, EnvironmentGrowsByNothingPerCycle)
{
    Bound bound("env");
    const Growth growth = Measure([&](int i) { bound.Cycle(i); });
    Report("environment", growth);
    ExpectNoGrowth(growth);
}

TEST(LeaksPerStorageKind, TheAsynchronousDatabaseOverTheRootServerGrowsByNothingPerCycle)
{
    wchar_t folder[MAX_PATH] = {};
    ::GetTempPathW(MAX_PATH, folder);
    const std::wstring file = std::wstring(folder) + XCtlWide(TestKey()) + L".db";
    struct RemovedFile
    {
        std::wstring path;
        ~RemovedFile()
        {
            // The server closes the file about 3 s after its last root object goes.
            for (int attempt = 0; attempt < 60 && ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; ++attempt)
            {
                for (const wchar_t* suffix : {L"", L"-wal", L"-shm"})
                    ::DeleteFileW((path + suffix).c_str());
                ::Sleep(100);
            }
        }
    } removed{file};
    Bound bound("db:" + TestKey() + ";user;async=5;connection={sqlite:" + XCtlUtf8(file) + "}");
    const Growth growth = Measure([&](int i) {
        bound.Cycle(i);
        if (i % 100 == 99)
            bound.Flush();
    });
    Report("database, asynchronous", growth);
    ExpectNoGrowth(growth);
}
