#include "xcomobject.h"

namespace
{
volatile LONG g_moduleLocks = 0;
}

void XComModule::Lock() noexcept
{
    ::InterlockedIncrement(&g_moduleLocks);
}

void XComModule::Unlock() noexcept
{
    ::InterlockedDecrement(&g_moduleLocks);
}

LONG XComModule::LockCount() noexcept
{
    return ::InterlockedCompareExchange(&g_moduleLocks, 0, 0);
}
