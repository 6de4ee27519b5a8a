#include "sdmctltest.h"

#include "moduletest.h"
#include "xctlfailure.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <thread>

namespace
{
std::string Narrow(const std::wstring& text)
{
    std::string narrow;
    for (const wchar_t c : text)
        narrow += static_cast<char>(c);
    return narrow;
}

// A command-line word quoted as CommandLineToArgvW reads it back.
std::wstring Quoted(const std::wstring& word)
{
    if (!word.empty() && word.find_first_of(L" \t\"") == std::wstring::npos)
        return word;
    std::wstring quoted = L"\"";
    size_t backslashes = 0;
    for (const wchar_t c : word)
    {
        if (c == L'\\')
        {
            ++backslashes;
            continue;
        }
        quoted.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
        backslashes = 0;
        quoted += c;
    }
    quoted.append(backslashes * 2, L'\\');
    return quoted + L"\"";
}

void Drain(HANDLE pipe, std::string& into)
{
    char buffer[65536];
    DWORD read = 0;
    while (::ReadFile(pipe, buffer, sizeof buffer, &read, nullptr) && read > 0)
        into.append(buffer, read);
}

std::vector<std::string> SubKeys(HKEY hive)
{
    std::vector<std::string> names;
    HKEY software = nullptr;
    if (::RegOpenKeyExW(hive, L"Software", 0, KEY_READ, &software) != ERROR_SUCCESS)
        return names;
    wchar_t name[256];
    for (DWORD i = 0;; ++i)
    {
        DWORD length = 256;
        if (::RegEnumKeyExW(software, i, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        if (std::wstring(name).rfind(L"SdmctlTest", 0) != 0)
            names.push_back(Narrow(name));
    }
    ::RegCloseKey(software);
    return names;
}
} // namespace

// Runs the program; ends it after milliseconds when end is set.
static ToolRun RunToolWithin(const std::vector<std::string>& arguments, const std::string& input,
                             unsigned milliseconds, bool end);

ToolRun RunTool(const std::vector<std::string>& arguments, const std::string& input)
{
    return RunToolWithin(arguments, input, 300000, false);
}

ToolRun RunToolFor(const std::vector<std::string>& arguments, unsigned milliseconds)
{
    return RunToolWithin(arguments, std::string(), milliseconds, true);
}

static ToolRun RunToolWithin(const std::vector<std::string>& arguments, const std::string& input,
                             unsigned milliseconds, bool end)
{
    ToolRun run;
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    HANDLE inRead = nullptr, inWrite = nullptr, outRead = nullptr, outWrite = nullptr, errRead = nullptr,
           errWrite = nullptr;
    ::CreatePipe(&inRead, &inWrite, &inherit, 0);
    ::CreatePipe(&outRead, &outWrite, &inherit, 0);
    ::CreatePipe(&errRead, &errWrite, &inherit, 0);
    for (HANDLE ours : {inWrite, outRead, errRead})
        ::SetHandleInformation(ours, HANDLE_FLAG_INHERIT, 0);
    std::wstring command = Quoted(BinaryPath(L"sdmctl.exe"));
    for (const std::string& argument : arguments)
        command += L" " + Quoted(XCtlWide(argument));
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = inRead;
    startup.hStdOutput = outWrite;
    startup.hStdError = errWrite;
    PROCESS_INFORMATION process{};
    const BOOL started = ::CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                                          nullptr, &startup, &process);
    for (HANDLE theirs : {inRead, outWrite, errWrite})
        ::CloseHandle(theirs);
    if (started)
    {
        std::thread out([&] { Drain(outRead, run.out); });
        std::thread err([&] { Drain(errRead, run.err); });
        DWORD written = 0;
        if (!input.empty())
            ::WriteFile(inWrite, input.data(), static_cast<DWORD>(input.size()), &written, nullptr);
        ::CloseHandle(inWrite);
        inWrite = nullptr;
        if (::WaitForSingleObject(process.hProcess, milliseconds) != WAIT_OBJECT_0 && end)
            ::TerminateProcess(process.hProcess, static_cast<UINT>(-1));
        ::WaitForSingleObject(process.hProcess, 30000);
        DWORD code = 0;
        ::GetExitCodeProcess(process.hProcess, &code);
        run.exitCode = static_cast<int>(code);
        out.join();
        err.join();
        ::CloseHandle(process.hProcess);
        ::CloseHandle(process.hThread);
    }
    for (HANDLE ours : {inWrite, outRead, errRead})
        if (ours)
            ::CloseHandle(ours);
    EXPECT_TRUE(started) << "sdmctl.exe could not be started";
    return run;
}

ToolApp::ToolApp()
{
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    m_name = "SdmctlTest-" + std::to_string(::GetCurrentProcessId()) + "-" + (info ? info->name() : "none");
    wchar_t folder[MAX_PATH] = {};
    ::GetTempPathW(MAX_PATH, folder);
    m_database = std::wstring(folder) + XCtlWide(m_name) + L".db";
    for (const wchar_t* suffix : {L"", L"-wal", L"-shm"})
        m_files.push_back(m_database + suffix);
}

ToolApp::~ToolApp()
{
    const std::wstring key = L"Software\\" + XCtlWide(m_name);
    ::RegDeleteTreeW(HKEY_CURRENT_USER, key.c_str());
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, key.c_str());
    // The server closes the file when its last root object is released (about 3 s later).
    for (int attempt = 0; attempt < 50 && ::GetFileAttributesW(m_database.c_str()) != INVALID_FILE_ATTRIBUTES; ++attempt)
    {
        for (const std::wstring& file : m_files)
            ::DeleteFileW(file.c_str());
        ::Sleep(100);
    }
    for (const std::wstring& file : m_files)
        ::DeleteFileW(file.c_str());
}

ToolRun ToolApp::Run(std::vector<std::string> arguments, const std::string& input) const
{
    std::string database;
    for (const wchar_t c : m_database)
        database += static_cast<char>(c);
    std::vector<std::string> all = {"--app", m_name, "--bind",
                                    "userdb=db:" + m_name + ";user;async=5;connection={sqlite:" + database + "}"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return RunTool(all, input);
}

std::string ToolApp::File(const std::string& suffix)
{
    wchar_t folder[MAX_PATH] = {};
    ::GetTempPathW(MAX_PATH, folder);
    const std::wstring path = std::wstring(folder) + XCtlWide(m_name + suffix);
    m_files.push_back(path);
    return Narrow(path);
}

std::vector<std::string> OtherSoftwareKeys()
{
    std::vector<std::string> keys = SubKeys(HKEY_CURRENT_USER);
    for (const std::string& key : SubKeys(HKEY_LOCAL_MACHINE))
        keys.push_back("HKLM\\" + key);
    std::sort(keys.begin(), keys.end());
    return keys;
}
