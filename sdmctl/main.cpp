// sdmctl.exe: look at and change session data in every category from the command line.
#include "xctlfailure.h"
#include "xctlfile.h"
#include "xctltool.h"

#include <windows.h>

#include <shellapi.h>

int wmain()
{
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    int count = 0;
    wchar_t** arguments = ::CommandLineToArgvW(::GetCommandLineW(), &count);
    std::vector<std::string> words;
    for (int i = 1; arguments && i < count; ++i)
        words.push_back(XCtlUtf8(arguments[i]));
    ::LocalFree(arguments);
    int result = kExitFailure;
    try
    {
        XCtlTool tool;
        result = tool.Run(words);
    }
    catch (const std::exception& e)
    {
        XCtlWrite(std::string("sdmctl: ") + e.what() + "\n", false);
    }
    catch (...)
    {
        XCtlWrite("sdmctl: an unexpected failure\n", false);
    }
    ::CoUninitialize();
    return result;
}
