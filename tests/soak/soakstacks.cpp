#include "soakstacks.h"

#include <windows.h>

#include <dbghelp.h>
#include <tlhelp32.h>

#include <cstring>
#include <string>

namespace
{
const int kMaxFrames = 48;

// "module+0xoffset" (and " name" when the symbol is known) for an address.
std::string Describe(DWORD64 address, bool symbols)
{
    HMODULE module = nullptr;
    char text[MAX_PATH + 128] = "?";
    if (::GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                             reinterpret_cast<LPCSTR>(address), &module))
    {
        char path[MAX_PATH] = {};
        ::GetModuleFileNameA(module, path, MAX_PATH);
        const char* name = std::strrchr(path, '\\');
        const DWORD64 offset = address - reinterpret_cast<DWORD64>(module);
        // Also the address at the module's preferred base, which addr2line takes.
        const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(module);
        const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS64*>(reinterpret_cast<const BYTE*>(module) + dos->e_lfanew);
        std::snprintf(text, sizeof(text), "%s+0x%llx (0x%llx)", name ? name + 1 : path,
                      static_cast<unsigned long long>(offset),
                      static_cast<unsigned long long>(nt->OptionalHeader.ImageBase + offset));
    }
    std::string line = text;
    if (symbols)
    {
        alignas(SYMBOL_INFO) char buffer[sizeof(SYMBOL_INFO) + 256] = {};
        auto* symbol = reinterpret_cast<SYMBOL_INFO*>(buffer);
        symbol->SizeOfStruct = sizeof(SYMBOL_INFO);
        symbol->MaxNameLen = 255;
        DWORD64 displacement = 0;
        if (::SymFromAddr(::GetCurrentProcess(), address, &displacement, symbol))
            line += std::string(" ") + symbol->Name;
    }
    return line;
}

void DumpThread(std::FILE* out, DWORD id, HANDLE thread, bool symbols)
{
    CONTEXT context = {};
    context.ContextFlags = CONTEXT_FULL;
    if (!::GetThreadContext(thread, &context))
    {
        std::fprintf(out, "  (no context: %lu)\n", ::GetLastError());
        return;
    }
    for (int frame = 0; frame < kMaxFrames && context.Rip; ++frame)
    {
        std::fprintf(out, "  #%-2d %s\n", frame, Describe(context.Rip, symbols).c_str());
        DWORD64 imageBase = 0;
        PRUNTIME_FUNCTION function = ::RtlLookupFunctionEntry(context.Rip, &imageBase, nullptr);
        if (!function)
        {
            // A leaf function (only the innermost frame can be one): the return address is on
            // top of the stack. Further out, no unwind data means the walk cannot go on.
            if (frame > 0 || !context.Rsp)
                break;
            context.Rip = *reinterpret_cast<DWORD64*>(context.Rsp);
            context.Rsp += 8;
            continue;
        }
        PVOID handlerData = nullptr;
        DWORD64 establisher = 0;
        ::RtlVirtualUnwind(UNW_FLAG_NHANDLER, imageBase, context.Rip, function, &context, &handlerData, &establisher,
                           nullptr);
    }
    (void)id;
}
} // namespace

int SoakDumpThreadStacks(std::FILE* out)
{
    const bool symbols = ::SymInitialize(::GetCurrentProcess(), nullptr, TRUE) != FALSE;
    HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE)
        return 0;
    int threads = 0;
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    for (BOOL more = ::Thread32First(snapshot, &entry); more; more = ::Thread32Next(snapshot, &entry))
    {
        if (entry.th32OwnerProcessID != ::GetCurrentProcessId() || entry.th32ThreadID == ::GetCurrentThreadId())
            continue;
        HANDLE thread = ::OpenThread(THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT | THREAD_QUERY_INFORMATION, FALSE,
                                     entry.th32ThreadID);
        if (!thread)
            continue;
        std::fprintf(out, "stack of thread %lu:\n", entry.th32ThreadID);
        if (::SuspendThread(thread) != static_cast<DWORD>(-1))
        {
            DumpThread(out, entry.th32ThreadID, thread, symbols);
            ::ResumeThread(thread);
        }
        ::CloseHandle(thread);
        ++threads;
    }
    ::CloseHandle(snapshot);
    if (symbols)
        ::SymCleanup(::GetCurrentProcess());
    std::fflush(out);
    return threads;
}
