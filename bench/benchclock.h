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

// Nanoseconds per call of body over calls calls.
template <class Body>
double BenchNsPerCall(size_t calls, Body body)
{
    const double start = NowNs();
    for (size_t i = 0; i < calls; ++i)
        body();
    return (NowNs() - start) / static_cast<double>(calls);
}

// A round of a side-by-side measurement: microseconds per call of body over calls calls.
template <class Body>
auto BenchUsPerCallRound(size_t calls, Body body)
{
    return [calls, body] { return BenchNsPerCall(calls, body) / 1000; };
}
