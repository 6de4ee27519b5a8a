// The commands of sdmctl, registered on a CLI11 application: each keeps its options, and Execute
// runs the one the command line chose, turning what it throws into the exit code and a line on
// stderr (usage errors with the usage line).
#pragma once

#include "xctlsession.h"

#include <functional>
#include <map>
#include <string>

namespace CLI
{
class App;
class Option;
} // namespace CLI

class XCtlCommands
{
public:
    using SessionOf = std::function<XCtlSession&()>;
    XCtlCommands(CLI::App& app, SessionOf session, const bool& json);
    int Execute(CLI::App& app);

private:
    // The options of every command (only the chosen command's are read).
    struct Options
    {
        std::string key, name, value, toKey, category, to, type = "string", format = "json", file, text;
        bool decrypt = false, encrypt = false, follow = false, recursive = false;
        int lines = 20;
    };

    int Get();
    int Set();
    int List();
    int Keys(bool recursive);
    int Dump();
    int Load();
    int Copy();
    int Delete();
    int Flush();
    int Status();
    int Log();
    int Root();

    void Print(const std::string& text) const;

    SessionOf m_session;
    const bool& m_json;
    Options m_options;
    std::map<std::string, std::function<int()>> m_handlers;
    CLI::Option* m_rootSet = nullptr;
    // The category of each command when -c is left out (none for load: the dump's own).
    std::map<std::string, std::string> m_defaultCategory;
};
