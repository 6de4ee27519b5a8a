// The benchmarks, each measured against its floor in the same run:
//   sdm_bench.exe [GROUP] [--quick] [--json FILE]
// GROUP: cached (the cached hit, memory per value, threads), platform (uncached registry and
// environment against the platform calls), async, environment, sql, root,
// engines, ctl, script (the automation object from VBScript); all of them without one. --quick: a few rounds and small sizes (for CI).
// --json: the figures as JSON, for the report (scripts/bench.sh).
#include "asyncstorage_bench.h"
#include "benchresults.h"
#include "cachedhit_bench.h"
#include "environment_bench.h"
#include "ctl_bench.h"
#include "engines_bench.h"
#include "platform_bench.h"
#include "rootcall_bench.h"
#include "script_bench.h"
#include "sqlstorage_bench.h"

#include <windows.h>

#include <cstdio>
#include <cstring>
#include <string>

int main(int argc, char** argv)
{
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    std::string only;
    std::string json;
    for (int i = 1; i < argc; ++i)
    {
        const std::string arg = argv[i];
        if (arg == "--quick")
            BenchResults::Instance().SetQuick(true);
        else if (arg == "--json" && i + 1 < argc)
            json = argv[++i];
        else if (only.empty())
            only = arg;
    }
    // "nothing-host <ready> <stop>": the do-nothing object of the root benchmark, as its child.
    if (only == "nothing-host" && argc > 3)
    {
        const int result = RunNothingHost(std::wstring(argv[2], argv[2] + std::strlen(argv[2])).c_str(),
                                          std::wstring(argv[3], argv[3] + std::strlen(argv[3])).c_str());
        ::CoUninitialize();
        return result;
    }
    wchar_t program[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, program, MAX_PATH);
    const bool all = only.empty() || only == "all";
    if (all || only == "cached")
        RunCachedHitBenchmarks();
    if (all || only == "platform")
        RunPlatformBenchmarks();
    if (all || only == "async")
        RunAsyncStorageBenchmarks();
    if (all || only == "environment")
        RunEnvironmentBenchmarks();
    if (all || only == "sql")
        RunSqlStorageBenchmarks();
    if (all || only == "root")
        RunRootCallBenchmarks(program);
    if (all || only == "engines")
        RunEngineBenchmarks();
    if (all || only == "ctl")
        RunCtlBenchmarks(program);
    if (all || only == "script")
        RunScriptBenchmarks();
    int result = 0;
    if (!json.empty() && !BenchResults::Instance().Write(json))
    {
        std::fprintf(stderr, "sdm_bench: cannot write %s\n", json.c_str());
        result = 1;
    }
    ::CoUninitialize();
    return result;
}
