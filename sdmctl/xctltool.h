// XCtlTool: sdmctl's commands on one session. Run takes one command line (without the program's
// name), prints what the command gives, and returns the exit code (XCtlExit); the shell runs
// every line it reads through the same tool, so its categories stay bound (and the volatile one
// keeps its values) for as long as the shell runs.
#pragma once

#include "xctlsession.h"

#include <memory>
#include <string>
#include <vector>

class XCtlTool
{
public:
    // The command line of the program (for the shell: the options every line starts from).
    explicit XCtlTool(std::vector<std::string> globalArguments = {});
    int Run(const std::vector<std::string>& arguments);
    // The shell: reads lines until "exit", end of input or Ctrl+Z; "history" lists the lines.
    int Shell();

private:
    struct Globals
    {
        std::string app = "Default";
        std::string profile;
        std::vector<std::string> binds;
        bool json = false;
    };
    XCtlSession& Session(const Globals& globals);

    std::vector<std::string> m_globalArguments;
    std::unique_ptr<XCtlSession> m_session;
    bool m_inShell = false;
};
