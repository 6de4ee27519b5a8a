#include "processresources.h"

#include <windows.h>
#include <winternl.h>

#include <vector>

namespace
{
// SystemHandleInformation (16): one record per handle of every process.
struct HandleRecord
{
    ULONG processId;
    UCHAR objectType;
    UCHAR flags;
    USHORT handle;
    PVOID object;
    ACCESS_MASK access;
};

struct HandleTable
{
    ULONG count;
    HandleRecord records[1];
};

using QuerySystemInformation = NTSTATUS(NTAPI*)(ULONG, PVOID, ULONG, PULONG);
} // namespace

size_t OwnHandleCount()
{
    static const auto query = reinterpret_cast<QuerySystemInformation>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
    if (!query)
        return 0;
    std::vector<unsigned char> buffer(1 << 20);
    for (int attempt = 0; attempt < 8; ++attempt)
    {
        ULONG needed = 0;
        const NTSTATUS status = query(16, buffer.data(), static_cast<ULONG>(buffer.size()), &needed);
        if (status == static_cast<NTSTATUS>(0xC0000004L))  // STATUS_INFO_LENGTH_MISMATCH
        {
            buffer.resize(std::max<size_t>(buffer.size() * 2, needed + 65536));
            continue;
        }
        if (status < 0)
            return 0;
        const auto* table = reinterpret_cast<const HandleTable*>(buffer.data());
        const ULONG self = ::GetCurrentProcessId();
        size_t count = 0;
        for (ULONG i = 0; i < table->count; ++i)
            count += table->records[i].processId == self ? 1 : 0;
        return count;
    }
    return 0;
}

size_t OwnHeapBytes()
{
    std::vector<HANDLE> heaps(64);
    DWORD count = ::GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data());
    if (count > heaps.size())
    {
        heaps.resize(count);
        count = ::GetProcessHeaps(count, heaps.data());
    }
    size_t bytes = 0;
    for (DWORD i = 0; i < count && i < heaps.size(); ++i)
    {
        if (!::HeapLock(heaps[i]))
            continue;
        PROCESS_HEAP_ENTRY entry{};
        while (::HeapWalk(heaps[i], &entry))
            if (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY)
                bytes += entry.cbData;
        ::HeapUnlock(heaps[i]);
    }
    return bytes;
}
