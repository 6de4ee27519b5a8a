// Helpers of the sdmctl tests: the program run as a user runs it (a child process with its own
// stdin, stdout and stderr, and its exit code), under an application name of the test's own,
// whose keys are removed when the test ends.
#pragma once

#include <string>
#include <vector>

struct ToolRun
{
    int exitCode = -1;
    std::string out;  // UTF-8, as the program wrote it
    std::string err;
};

// Runs sdmctl.exe (beside the test program) with arguments (UTF-8) and input on its stdin.
ToolRun RunTool(const std::vector<std::string>& arguments, const std::string& input = std::string());
// The same for a program that runs until it is ended: ended after milliseconds (exit code -1).
ToolRun RunToolFor(const std::vector<std::string>& arguments, unsigned milliseconds);

// An application of the running test: its name, the options that bind its categories (userdb in a
// database file of its own, not the user's default), and its registry keys and file removed
// at the end.
class ToolApp
{
public:
    ToolApp();
    ~ToolApp();
    ToolApp(const ToolApp&) = delete;
    ToolApp& operator=(const ToolApp&) = delete;

    const std::string& Name() const { return m_name; }
    // "--app NAME --bind userdb=..." followed by arguments.
    ToolRun Run(std::vector<std::string> arguments, const std::string& input = std::string()) const;
    // A file path of the test (UTF-8), removed at the end.
    std::string File(const std::string& suffix);

private:
    std::string m_name;
    std::wstring m_database;
    std::vector<std::wstring> m_files;
};

// The names of the sub-keys of HKCU\Software and HKLM\Software that are not test applications'
// (to see that nothing was written outside them).
std::vector<std::string> OtherSoftwareKeys();
