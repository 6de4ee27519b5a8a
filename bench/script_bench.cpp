// A GetValue from VBScript through the automation object (WQSessionDataMng.Session, registered;
// the VBScript engine hosted in this process, so no process start is counted) against the same
// read from C++ through the manager (GetData as VT_BSTR on the same category), side by side in
// the same rounds. The script's loop itself is measured apart (the same loop with an empty body)
// and taken out.
#include "script_bench.h"

#include "XWQComBSTR.h"
#include "benchclock.h"
#include "benchresults.h"
#include "scripthost.h"
#include "xcomtypes.h"
#include "xctlsession.h"

#include <cstdio>
#include <string>

namespace
{
const SESSIONDATATYPE kVolatile = static_cast<SESSIONDATATYPE>(5);

// Nanoseconds per round of a VBScript loop of calls rounds.
double ScriptNs(IDispatch* session, const std::wstring& body, int calls)
{
    const std::wstring text = L"For i = 1 To " + std::to_wstring(calls) + L"\n" + body + L"\nNext\n";
    const double start = NowNs();
    if (RunVbScript(session, text) != 0)
        std::printf("warning: the script failed\n");
    return (NowNs() - start) / calls;
}
} // namespace

void RunScriptBenchmarks()
{
    XComPtr<IDispatch> session;
    XComPtr<IWQ_SessionDataMng> manager;
    try
    {
        session = XCtlCreate<IDispatch>(L"WQSessionDataMng.Session");
        manager = XCtlCreate<IWQ_SessionDataMng>(L"WQSessionDataMng.WQSessionDataMng");
    }
    catch (const XCtlFailure&)
    {
        std::printf("\nscript: skipped (WQSessionDataSession64.dll is not registered)\n");
        return;
    }
    RunVbScript(session.Get(), L"s.Bind \"volatile\", \"volatile\"\ns.SetValue \"Bench/Script\", \"Width\", 1280, \"volatile\"\n");
    BenchResults& results = BenchResults::Instance();
    const int calls = results.Quick() ? 2000 : 20000;
    const BenchPair pair = BenchAlternate(
        results.Rounds(7),
        [&] {
            return ScriptNs(session.Get(), L"  x = s.GetValue(\"Bench/Script\", \"Width\", \"volatile\")", calls) -
                   ScriptNs(session.Get(), L"  x = i", calls);
        },
        [&] {
            const XWQComBSTR key(L"Bench/Script");
            return BenchNsPerCall(static_cast<size_t>(calls), [&] {
                XVariant value;
                manager->GetData(key, XWQComBSTR(L"Width"), VT_BSTR, &value.Get(), kVolatile);
            });
        });
    results.AddRatio("script", "getvalue", "GetValue from VBScript through the automation object", "ns", pair,
                     "the same read from C++ through the manager (GetData)");
    std::printf("\nGetValue from VBScript: %.0f ns, from C++ through the manager: %.0f ns (%.1f times)\n",
                pair.Component(), pair.Floor(), pair.Component() / pair.Floor());
}
