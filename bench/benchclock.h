// The benchmarks' clock: QueryPerformanceCounter in nanoseconds.
#pragma once

#include <windows.h>

inline double NowNs()
{
    static const double ticksPerNs = [] {
        LARGE_INTEGER frequency;
        ::QueryPerformanceFrequency(&frequency);
        return static_cast<double>(frequency.QuadPart) / 1e9;
    }();
    LARGE_INTEGER counter;
    ::QueryPerformanceCounter(&counter);
    return static_cast<double>(counter.QuadPart) / ticksPerNs;
}
