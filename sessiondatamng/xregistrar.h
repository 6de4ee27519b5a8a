// Registration of the module's classes and type library under HKEY_CLASSES_ROOT.
//
// For each class of the object map:
//   <ProgID>.1                       = description, \CLSID = {clsid}
//   <ProgID>                         = description, \CLSID = {clsid}, \CurVer = <ProgID>.1
//   CLSID\{clsid}                    = class description (the key is replaced whole)
//       \ProgID                      = <ProgID>.1
//       \VersionIndependentProgID    = <ProgID>
//       \InprocServer32              = module path, ThreadingModel = "Both"
//       \TypeLib                     = {type library}
//       \Programmable                (only for the classes marked so)
// Unregistration removes the ProgID keys and each class GUID key whole; CLSID itself stays.
#pragma once

#include <windows.h>
#include <string>

HRESULT XRegisterClasses(const wchar_t* modulePath);
HRESULT XUnregisterClasses();
HRESULT XRegisterTypeLibrary(const wchar_t* modulePath);
HRESULT XUnregisterTypeLibrary();
// Full path of a loaded module.
std::wstring XModulePath(HMODULE module);
