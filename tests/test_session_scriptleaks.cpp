// No task memory left behind by calls from a script: the VBScript engine, hosted in this process,
// runs 1,000 and then 10,000 rounds of SetValue, GetValue and Values on the session (the BSTR cache
// off, every task allocation counted by a spy); what is still held afterwards must not grow with
// the number of rounds.
#include "mallocspy.h"
#include "scripthost.h"
#include "xctlsession.h"

#include <gtest/gtest.h>

#include <string>

namespace
{
std::wstring Rounds(int rounds)
{
    return L"For i = 1 To " + std::to_wstring(rounds) +
           L"\n"
           L"  s.SetValue \"Leaks/K\", \"n\" & (i Mod 50), \"value \" & i, \"volatile\"\n"
           L"  x = s.GetValue(\"Leaks/K\", \"n\" & (i Mod 50))\n"
           L"  c = s.Values(\"Leaks/K\", \"volatile\").Count\n"
           L"Next\n"
           L"If c <> 50 Then Err.Raise 1000\n";
}
} // namespace

TEST(SessionScriptLeaks, TenThousandCallsFromVBScriptLeaveNoTaskMemoryBehind)
{
    const XComPtr<IDispatch> session = XCtlCreate<IDispatch>(L"WQSessionDataMng.Session");
    ASSERT_EQ(0, RunVbScript(session.Get(), L"s.Bind \"volatile\", \"volatile\"\n" + Rounds(100)));
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    ASSERT_EQ(0, RunVbScript(session.Get(), Rounds(1000)));
    const size_t afterThousand = spy.Outstanding();
    ASSERT_EQ(0, RunVbScript(session.Get(), Rounds(10000)));
    const size_t afterTenThousand = spy.Outstanding();
    std::printf("task blocks held: %zu after 1,000 rounds, %zu after 10,000 more\n", afterThousand, afterTenThousand);
    EXPECT_EQ(afterThousand, afterTenThousand) << "blocks held grew with the calls";
    EXPECT_LE(afterTenThousand, 64u);
    EXPECT_EQ(0u, spy.Refreed());
}
