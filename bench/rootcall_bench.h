// The storage-root server across processes: a root call against a bare cross-process call, and
// the database storage's asynchronous writes drained to the server.
#pragma once

// Needs the module and the server registered. program is this benchmark's own path: it also
// serves the do-nothing object of the bare call, as a child process (RunNothingHost).
void RunRootCallBenchmarks(const wchar_t* program);
// The child's side: serves the do-nothing object until the stop event is set.
int RunNothingHost(const wchar_t* readyEvent, const wchar_t* stopEvent);
