// sdmctl dump and load of 100,000 values (1,000 keys of 100) through the per-user database
// category (asynchronous, over the out-of-process root on an SQLite file), side by side with the
// same manager calls made from C++ in this process:
//   load: sdmctl load of a JSON dump, against WriteStringList per key and a flush;
//   dump: sdmctl dump to a file, against GetSubKeys and GetStringList per key.
// The tool's figures have its start-up (the process, binding the category, activating the server)
// taken out: the time of a command that only binds the category is measured in the same round and
// subtracted, and given on its own. Medians of 3 rounds, the two sides alternating.
#include "ctl_bench.h"

#include "benchclock.h"
#include "benchresults.h"
#include "XWQComBSTR.h"
#include "xcomtypes.h"
#include "xctldump.h"
#include "xctlfailure.h"
#include "xctlsession.h"

#include <nlohmann/json.hpp>

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace
{
const int kValuesPerKey = 100;
const int kRounds = 3;

// 1,000 keys of 100 values; 20 in quick mode.
int Keys()
{
    return BenchResults::Instance().Quick() ? 20 : 1000;
}

std::wstring TempPath(const wchar_t* name)
{
    wchar_t folder[MAX_PATH] = {};
    ::GetTempPathW(MAX_PATH, folder);
    return std::wstring(folder) + name;
}

// Runs a command line, its output to a file (or nowhere); its exit code.
DWORD Run(std::wstring command, const std::wstring& output = L"NUL")
{
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    const HANDLE out = ::CreateFileW(output.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit, CREATE_ALWAYS,
                                     FILE_ATTRIBUTE_NORMAL, nullptr);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = out;
    startup.hStdError = out;
    PROCESS_INFORMATION process{};
    DWORD code = 0xFFFFFFFF;
    if (::CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, nullptr, &startup,
                         &process))
    {
        ::WaitForSingleObject(process.hProcess, INFINITE);
        ::GetExitCodeProcess(process.hProcess, &code);
        ::CloseHandle(process.hProcess);
        ::CloseHandle(process.hThread);
    }
    ::CloseHandle(out);
    return code;
}

std::string Dump(const std::string& root)
{
    nlohmann::json keys = nlohmann::json::array();
    for (int k = 0; k < Keys(); ++k)
    {
        nlohmann::json values = nlohmann::json::object();
        for (int v = 0; v < kValuesPerKey; ++v)
            values["value" + std::to_string(v)] = "the text of value " + std::to_string(k) + "." + std::to_string(v);
        keys.push_back({{"key", root + "/K" + std::to_string(k)}, {"values", values}});
    }
    return nlohmann::json{{"format", "sdmctl-dump"}, {"version", 1}, {"category", "userdb"}, {"keys", keys}}.dump();
}

void WriteFileText(const std::wstring& path, const std::string& text)
{
    const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD written = 0;
    ::WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    ::CloseHandle(file);
}

// The manager's side: the keys' values written, one list per key, then flushed.
double LoadInProcess(XCtlSession& session, const std::vector<XCtlKeyValues>& tree)
{
    const XCtlCategory userdb = XCtlParseCategory("userdb");
    const double start = NowNs();
    for (const XCtlKeyValues& entry : tree)
    {
        std::vector<XWQComBSTR> strings;
        std::vector<tagSESSIONDATAVALUE> records;
        strings.reserve(entry.values.size() * 2);
        for (const auto& [name, value] : entry.values)
        {
            strings.emplace_back(name.c_str());
            strings.emplace_back(value.c_str());
            records.push_back({strings[strings.size() - 2], strings.back()});
        }
        session.Manager()->WriteStringList(XWQComBSTR(entry.key.c_str()), static_cast<ULONG>(records.size()),
                                           records.data(), userdb.type);
    }
    session.FlushAsync();
    return (NowNs() - start) / 1e9;
}

double DumpInProcess(XCtlSession& session, const std::wstring& root, size_t* values)
{
    // From the database, as the tool (a new process) reads it: not from this process's cache.
    session.Manager()->FlushCache(XCtlParseCategory("userdb").type);
    const double start = NowNs();
    const std::vector<XCtlKeyValues> tree = XCtlReadTree(session.Manager(), XCtlParseCategory("userdb").type, root);
    const double seconds = (NowNs() - start) / 1e9;
    *values = 0;
    for (const XCtlKeyValues& entry : tree)
        *values += entry.values.size();
    return seconds;
}
} // namespace

void RunCtlBenchmarks(const wchar_t* program)
{
    std::printf("\nsdmctl dump and load of %d values (%d keys) through the per-user database category, against the "
                "same manager calls from C++ in one process, median of %d rounds\n",
                Keys() * kValuesPerKey, Keys(), kRounds);
    std::wstring tool = program;
    tool = tool.substr(0, tool.find_last_of(L'\\') + 1) + L"sdmctl.exe";
    const std::wstring database = TempPath(L"wqsdm-bench-ctl.db");
    for (const wchar_t* suffix : {L"", L"-wal", L"-shm"})
        ::DeleteFileW((database + suffix).c_str());
    const std::string bind = "userdb=db:Bench;user;async=5;connection={sqlite:" + XCtlUtf8(database) + "}";
    const std::wstring base = L"\"" + tool + L"\" --app Bench --bind \"" + XCtlWide(bind) + L"\" ";
    XCtlProfile profile = XCtlDefaultProfile("Bench");
    XCtlApplyBind(bind, profile);
    XCtlSession session(profile);
    session.Ensure(XCtlParseCategory("userdb"));

    std::vector<double> startup, toolLoad, ownLoad, toolDump, ownDump;
    size_t dumpedValues = 0;
    for (int round = 0; round < BenchResults::Instance().Rounds(kRounds); ++round)
    {
        const std::string toolRoot = "ToolRound" + std::to_string(round);
        const std::string ownRoot = "OwnRound" + std::to_string(round);
        const std::wstring file = TempPath(L"wqsdm-bench-ctl.json");
        WriteFileText(file, Dump(toolRoot));
        std::string ignored;
        const std::vector<XCtlKeyValues> tree = XCtlParseDump(Dump(ownRoot), "dump", &ignored);

        double start = NowNs();
        Run(base + L"get Nothing there -c userdb");
        const double boot = (NowNs() - start) / 1e9;
        start = NowNs();
        const DWORD loaded = Run(base + L"load \"" + file + L"\"");
        toolLoad.push_back((NowNs() - start) / 1e9 - boot);
        ownLoad.push_back(LoadInProcess(session, tree));
        // The keys the tool loaded: never in this process's cache; read here first, then by the tool.
        ownDump.push_back(DumpInProcess(session, XCtlWide(toolRoot), &dumpedValues));
        start = NowNs();
        const DWORD dumped = Run(base + L"dump " + XCtlWide(toolRoot) + L" -c userdb", TempPath(L"wqsdm-bench-ctl.out"));
        toolDump.push_back((NowNs() - start) / 1e9 - boot);
        startup.push_back(boot);
        if (loaded != 0 || dumped != 0)
            std::printf("warning: sdmctl load answered %lu, dump %lu\n", loaded, dumped);
    }
    const double values = Keys() * kValuesPerKey;
    BenchResults& results = BenchResults::Instance();
    const nlohmann::json params = {{"keys", Keys()}, {"values", values}};
    results.AddRatio("ctl", "load", "sdmctl load of a JSON dump (start-up taken out)", "s", toolLoad,
                     "WriteStringList per key and a flush, from C++ in one process", ownLoad, params, 1.5);
    results.AddRatio("ctl", "dump", "sdmctl dump to a file (start-up taken out)", "s", toolDump,
                     "GetSubKeys and GetStringList per key, from C++ in one process", ownDump, params, 1.5);
    results.AddValue("ctl", "startup", "sdmctl start-up: the process, binding the category, activating the server", "s",
                     startup);
    std::printf("  sdmctl start-up (process, binding, server):  %8.2f s\n", BenchMedian(startup));
    std::printf("  load, sdmctl:   %8.2f s  %9.0f values/s\n", BenchMedian(toolLoad), values / BenchMedian(toolLoad));
    std::printf("  load, C++:      %8.2f s  %9.0f values/s   ratio %.2f (target <= 1.5)\n", BenchMedian(ownLoad),
                values / BenchMedian(ownLoad), BenchMedian(toolLoad) / BenchMedian(ownLoad));
    std::printf("  dump, sdmctl:   %8.2f s  %9.0f values/s\n", BenchMedian(toolDump), values / BenchMedian(toolDump));
    std::printf("  dump, C++:      %8.2f s  %9.0f values/s   ratio %.2f (target <= 1.5)\n", BenchMedian(ownDump),
                values / BenchMedian(ownDump), BenchMedian(toolDump) / BenchMedian(ownDump));
    if (dumpedValues != static_cast<size_t>(values))
        std::printf("warning: the C++ dump read %zu values\n", dumpedValues);
}
