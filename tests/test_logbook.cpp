// The log book file: format, location override, rotation and concurrent appends.
#include "testenv.h"
#include "XWQLogBook.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace
{
XWQLogEntry Entry(const std::wstring& message)
{
    XWQLogEntry e;
    e.severity = 8;
    e.module = L"WQSessionDataMng";
    e.function = L"XSessionDataMng::GetData";
    e.sourceUnit = "xsessiondatamng";
    e.line = 123;
    e.hr = E_POINTER;
    e.message = message;
    return e;
}
} // namespace

TEST(XWQLogBook, FormatHasEveryField)
{
    SYSTEMTIME t{};
    t.wYear = 2026;
    t.wMonth = 11;
    t.wDay = 22;
    t.wHour = 7;
    t.wMinute = 40;
    t.wSecond = 1;
    t.wMilliseconds = 5;
    EXPECT_EQ("2026-11-22T07:40:01.005Z\tpid=12\ttid=34\tsev=8\tWQSessionDataMng\tXSessionDataMng::GetData\t"
              "xsessiondatamng:123\thr=0x80004003\tline one  line two",
              XWQLogBook::FormatLine(Entry(L"line one\r\nline two"), t, 12, 34));
}

TEST(XWQLogBook, PathComesFromTheEnvironment)
{
    EXPECT_EQ(TestLogBookPath(), XWQLogBook::Path());
    XWQLogBook::Write(Entry(L"hello"));
    const auto lines = ReadLogBook();
    ASSERT_EQ(1u, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find("\thello"));
    EXPECT_NE(std::string::npos, lines[0].find("pid=" + std::to_string(::GetCurrentProcessId())));
}

TEST(XWQLogBook, DefaultPathIsBelowLocalAppData)
{
    ::SetEnvironmentVariableW(L"WQSDM_LOGBOOK", nullptr);
    const std::wstring path = XWQLogBook::Path();
    ::SetEnvironmentVariableW(L"WQSDM_LOGBOOK", TestLogBookPath().c_str());
    EXPECT_NE(std::wstring::npos, path.find(L"\\WQSessionDataMng\\WQSessionDataMng.log"));
}

TEST(XWQLogBook, NonAsciiTextIsWrittenAsUtf8)
{
    XWQLogBook::Write(Entry(L"Schl\u00fcssel"));
    const auto lines = ReadLogBook();
    ASSERT_EQ(1u, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find("Schl\xc3\xbc" "ssel"));
}

TEST(XWQLogBook, RotatesIntoOneOlderFileWhenFull)
{
    ::SetEnvironmentVariableW(L"WQSDM_LOGBOOK_MAXBYTES", L"2000");
    for (int i = 0; i < 40; ++i)
        XWQLogBook::Write(Entry(L"entry " + std::to_wstring(i)));
    ::SetEnvironmentVariableW(L"WQSDM_LOGBOOK_MAXBYTES", nullptr);
    WIN32_FILE_ATTRIBUTE_DATA current{}, rotated{};
    ASSERT_TRUE(::GetFileAttributesExW(TestLogBookPath().c_str(), GetFileExInfoStandard, &current));
    ASSERT_TRUE(::GetFileAttributesExW((TestLogBookPath() + L".1").c_str(), GetFileExInfoStandard, &rotated));
    EXPECT_LE(current.nFileSizeLow, 2000u);
    EXPECT_LE(rotated.nFileSizeLow, 2000u);
    const auto lines = ReadLogBook();
    ASSERT_FALSE(lines.empty());
    EXPECT_NE(std::string::npos, lines.back().find("entry 39"));
}

TEST(XWQLogBook, ConcurrentWritersLoseNoLine)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 50; ++i)
                XWQLogBook::Write(Entry(L"t" + std::to_wstring(t) + L"-" + std::to_wstring(i)));
        });
    for (auto& thread : threads)
        thread.join();
    const auto lines = ReadLogBook();
    EXPECT_EQ(200u, lines.size());
    for (const auto& line : lines)
        EXPECT_EQ(0u, line.find("20")) << line;
}

TEST(XWQLogBook, ConcurrentProcessesLoseNoLine)
{
    // Two child processes (this test executable) append at the same time as this one.
    wchar_t exe[MAX_PATH];
    ::GetModuleFileNameW(nullptr, exe, MAX_PATH);
    std::vector<PROCESS_INFORMATION> children;
    for (int i = 0; i < 2; ++i)
    {
        std::wstring command = L"\"" + std::wstring(exe) + L"\" --gtest_filter=XWQLogBook.ChildProcessWriter";
        STARTUPINFOW si{};
        si.cb = sizeof si;
        PROCESS_INFORMATION pi{};
        ::SetEnvironmentVariableW(L"WQSDM_LOGBOOK_CHILD", TestLogBookPath().c_str());
        ASSERT_TRUE(::CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi));
        children.push_back(pi);
    }
    for (int i = 0; i < 50; ++i)
        XWQLogBook::Write(Entry(L"parent " + std::to_wstring(i)));
    for (auto& pi : children)
    {
        EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(pi.hProcess, 60000));
        ::CloseHandle(pi.hThread);
        ::CloseHandle(pi.hProcess);
    }
    size_t child = 0, parent = 0;
    for (const auto& line : ReadLogBook())
    {
        child += line.find("\tchild ") != std::string::npos;
        parent += line.find("\tparent ") != std::string::npos;
    }
    EXPECT_EQ(100u, child);
    EXPECT_EQ(50u, parent);
}

// Helper run by ConcurrentProcessesLoseNoLine in child processes; does nothing on its own (and
// is not registered with ctest).
TEST(XWQLogBook, ChildProcessWriter)
{
    wchar_t path[MAX_PATH] = {};
    if (!::GetEnvironmentVariableW(L"WQSDM_LOGBOOK_CHILD", path, MAX_PATH))
        GTEST_SKIP() << "only meaningful as a child of ConcurrentProcessesLoseNoLine";
    ::SetEnvironmentVariableW(L"WQSDM_LOGBOOK", path);
    for (int i = 0; i < 50; ++i)
        XWQLogBook::Write(Entry(L"child " + std::to_wstring(i)));
}
