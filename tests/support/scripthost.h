// A host of the VBScript engine in this process, for tests and benchmarks of the automation
// object: runs script text with one object as the named item "s" and counts the script's errors.
#pragma once

#include <oaidl.h>

#include <string>

// The number of script errors (-1: no engine).
int RunVbScript(IDispatch* object, const std::wstring& text);
