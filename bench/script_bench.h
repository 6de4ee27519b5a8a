// A GetValue of the automation object from VBScript (the engine hosted in this process) against
// the same read from C++ through the manager.
#pragma once

void RunScriptBenchmarks();
