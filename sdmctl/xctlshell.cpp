// The shell: sdmctl's commands at a prompt, in one process. Lines are split as a shell splits
// them (blanks between words, "..." and '...' keep blanks, \ escapes in "..."). On a console the
// platform's line editing gives the arrow keys their history; "history" lists the lines.
#include "xctlfile.h"
#include "xctltool.h"

#include <windows.h>

namespace
{
// The words of a line; false when a quote is not closed.
bool Words(const std::string& line, std::vector<std::string>& words)
{
    words.clear();
    std::string word;
    bool inWord = false;
    for (size_t i = 0; i < line.size(); ++i)
    {
        const char c = line[i];
        if (c == ' ' || c == '\t')
        {
            if (inWord)
                words.push_back(word);
            word.clear();
            inWord = false;
            continue;
        }
        inWord = true;
        if (c != '"' && c != '\'')
        {
            word += c;
            continue;
        }
        const size_t close = line.find(c, i + 1);
        if (close == std::string::npos)
            return false;
        for (size_t j = i + 1; j < close; ++j)
        {
            if (c == '"' && line[j] == '\\' && j + 1 < close)
                ++j;
            word += line[j];
        }
        i = close;
    }
    if (inWord)
        words.push_back(word);
    return true;
}

// One line of input (UTF-8, without its end); false at the end of input.
bool ReadLine(std::string& line)
{
    line.clear();
    const HANDLE input = ::GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    if (::GetConsoleMode(input, &mode))
    {
        wchar_t buffer[4096];
        DWORD read = 0;
        std::wstring wide;
        while (::ReadConsoleW(input, buffer, 4096, &read, nullptr) && read > 0)
        {
            wide.append(buffer, read);
            if (wide.back() == L'\n')
                break;
        }
        if (wide.empty())
            return false;
        while (!wide.empty() && (wide.back() == L'\n' || wide.back() == L'\r'))
            wide.pop_back();
        // Ctrl+Z on a line of its own ends the input, as at a Windows prompt.
        if (wide == L"\x1a")
            return false;
        line = XCtlUtf8(wide);
        return true;
    }
    char c = 0;
    DWORD read = 0;
    bool any = false;
    while (::ReadFile(input, &c, 1, &read, nullptr) && read == 1)
    {
        any = true;
        if (c == '\n')
            break;
        if (c != '\r')
            line += c;
    }
    return any;
}
} // namespace

int XCtlTool::Shell()
{
    m_inShell = true;
    std::vector<std::string> history;
    int last = kExitOk;
    XCtlWrite("sdmctl shell: the commands without \"sdmctl\"; \"history\", \"help\", \"exit\"\n");
    for (;;)
    {
        XCtlWrite("sdmctl> ");
        std::string line;
        if (!ReadLine(line))
        {
            XCtlWrite("\n");
            break;
        }
        std::vector<std::string> words;
        if (!Words(line, words))
        {
            XCtlWrite("sdmctl: a quote is not closed\n", false);
            last = kExitUsage;
            continue;
        }
        if (words.empty())
            continue;
        if (words[0] == "exit" || words[0] == "quit")
            break;
        history.push_back(line);
        if (words[0] == "history")
        {
            for (size_t i = 0; i < history.size(); ++i)
                XCtlWrite(std::to_string(i + 1) + "  " + history[i] + "\n");
            continue;
        }
        if (words[0] == "help")
            words[0] = "--help";
        last = Run(words);
        if (last == kExitNothing)
            XCtlWrite("(nothing there)\n");
    }
    // What the shell wrote asynchronously reaches the database before it ends.
    if (m_session)
    {
        try
        {
            m_session->FlushAsync();
        }
        catch (const std::exception& e)
        {
            XCtlWrite(std::string("sdmctl: ") + e.what() + "\n", false);
            return kExitFailure;
        }
    }
    return last == kExitFailure ? kExitFailure : kExitOk;
}
