#include "xctltool.h"

#include "xctlcommands.h"
#include "xctlfile.h"

#include <CLI/CLI.hpp>

#include <sstream>

XCtlTool::XCtlTool(std::vector<std::string> globalArguments) : m_globalArguments(std::move(globalArguments)) {}

XCtlSession& XCtlTool::Session(const Globals& globals)
{
    if (!m_session)
    {
        XCtlProfile profile = XCtlDefaultProfile(globals.app);
        if (!globals.profile.empty())
            XCtlLoadProfile(globals.profile, profile);
        for (const std::string& bind : globals.binds)
            XCtlApplyBind(bind, profile);
        m_session = std::make_unique<XCtlSession>(std::move(profile));
    }
    return *m_session;
}

int XCtlTool::Run(const std::vector<std::string>& arguments)
{
    CLI::App app("sdmctl: look at and change session data in every category", "sdmctl");
    app.require_subcommand(1);
    // The global options may also follow the command (sdmctl get K N --json).
    app.fallthrough();
    Globals globals;
    app.add_option("--app", globals.app, "the application whose default profile binds the categories")
        ->capture_default_str();
    app.add_option("--profile", globals.profile, "a profile file (JSON) that binds categories to storages");
    app.add_option("--bind", globals.binds, "CATEGORY=STORAGE: binds a category to a storage (repeatable)");
    app.add_flag("--json", globals.json, "output as JSON");

    XCtlCommands commands(app, [this, &globals]() -> XCtlSession& { return Session(globals); }, globals.json);
    if (!m_inShell)
        app.add_subcommand("shell", "the commands at a prompt, in one process")->callback([] {});

    std::vector<std::string> all = m_globalArguments;
    all.insert(all.end(), arguments.begin(), arguments.end());
    // The first word that is not an option (or an option's value) names the command.
    for (size_t i = 0; i < all.size(); ++i)
    {
        if (all[i] == "--app" || all[i] == "--profile" || all[i] == "--bind")
        {
            ++i;
            continue;
        }
        if (all[i].empty() || all[i][0] == '-')
            continue;
        bool known = all[i] == "shell";
        try
        {
            known = known || app.get_subcommand_ptr(all[i]) != nullptr;
        }
        catch (const CLI::Error&)
        {
        }
        if (!known)
        {
            XCtlWrite("sdmctl: unknown command '" + all[i] + "' (sdmctl --help lists them)\n", false);
            XCtlWrite("usage: sdmctl [--app NAME] [--profile FILE] [--bind CAT=STORAGE] [--json] COMMAND ...\n", false);
            return kExitUsage;
        }
        break;
    }
    std::vector<const char*> argv{"sdmctl"};
    for (const std::string& argument : all)
        argv.push_back(argument.c_str());
    try
    {
        app.parse(static_cast<int>(argv.size()), argv.data());
    }
    catch (const CLI::ParseError& e)
    {
        std::ostringstream out, err;
        const int code = app.exit(e, out, err);
        XCtlWrite(out.str(), true);
        XCtlWrite(err.str(), false);
        if (code != 0)
            XCtlWrite("usage: sdmctl [--app NAME] [--profile FILE] [--bind CAT=STORAGE] [--json] COMMAND ... "
                      "(sdmctl --help)\n",
                      false);
        return code == 0 ? kExitOk : kExitUsage;
    }
    if (!m_inShell && app.got_subcommand("shell"))
    {
        m_globalArguments = all;
        m_globalArguments.erase(std::find(m_globalArguments.begin(), m_globalArguments.end(), "shell"),
                                m_globalArguments.end());
        return Shell();
    }
    return commands.Execute(app);
}
