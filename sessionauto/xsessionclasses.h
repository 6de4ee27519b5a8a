// The automation DLL's classes: its object map and their registration (with the type library,
// which also marshals the dual interfaces).
#pragma once

#include "xobjectmap.h"

const XObjectMap& XSessionObjectMap();
HRESULT XRegisterSessionClasses(const wchar_t* dllPath);
HRESULT XUnregisterSessionClasses();
