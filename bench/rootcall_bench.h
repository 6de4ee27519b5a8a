// The storage-root server across processes: a root call against a bare cross-process call, and
// the database storage's asynchronous writes drained to the server.
#pragma once

#include <vector>

#include "xcomobject.h"
#include "xsessiondatamng_h.h"

#include <string>

// Needs the module and the server registered. program is this benchmark's own path: it also
// serves the do-nothing object of the bare call, as a child process (RunNothingHost).
void RunRootCallBenchmarks(const wchar_t* program);
// The child's side: serves the do-nothing object until the stop event is set.
int RunNothingHost(const wchar_t* readyEvent, const wchar_t* stopEvent);

// A root object activated by ProgID in a context and opened on connection; null when that fails.
XComPtr<IWQ_SessionDataIOEx> ActivateBenchRoot(const std::wstring& connection, DWORD context = CLSCTX_LOCAL_SERVER);

// The database storage's asynchronous writes drained to a root: 1,000 one-value StoreData calls
// piped, then FlushAsyncStorage, which returns when every piped write is committed (median of 5
// rounds after a warm-up).
struct DrainFigures
{
    std::vector<double> pipeUs;   // per piped call, on the caller's thread, per round
    std::vector<double> flushMs;  // the flush of 1,000 writes, per round
    std::vector<double> rates;    // writes per second, per round
    std::vector<double> directRates;  // the same writes made on the root directly, per second
    size_t failures = 0;
};
DrainFigures MeasureDrain(IWQ_SessionDataIOEx* root, const wchar_t* rootKey);
