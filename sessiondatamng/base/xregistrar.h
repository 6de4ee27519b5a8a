// Registration of a COM server's classes and type library under HKEY_CLASSES_ROOT.
//
// For each class of the object map:
//   <ProgID>.1                       = description, \CLSID = {clsid}
//   <ProgID>                         = description, \CLSID = {clsid}, \CurVer = <ProgID>.1
//   CLSID\{clsid}                    = class description (the key is replaced whole)
//       \ProgID                      = <ProgID>.1
//       \VersionIndependentProgID    = <ProgID>
//       \InprocServer32              = module path, ThreadingModel = "Both" (an in-process server)
//       \LocalServer32               = program path (a local server)
//       \TypeLib                     = {type library}
//       \Programmable                (only for the classes marked so)
// Unregistration removes the ProgID keys and each class GUID key whole; CLSID itself stays.
#pragma once

#include "xobjectmap.h"

#include <string>

enum class XServerKind
{
    InProcess,  // a DLL: InprocServer32 with ThreadingModel "Both"
    Local,      // a program: LocalServer32
};

// The servers of a class: a DLL, a program, or both (an empty path: none of that kind).
struct XServerPaths
{
    std::wstring inProcess;
    std::wstring local;
};

HRESULT XRegisterClasses(const XObjectMap& map, const wchar_t* serverPath, XServerKind kind, const GUID& typeLibrary);
HRESULT XRegisterClasses(const XObjectMap& map, const XServerPaths& servers, const GUID& typeLibrary);
HRESULT XUnregisterClasses(const XObjectMap& map);
// Registers the type library that the file at path carries as its resource.
HRESULT XRegisterTypeLibrary(const wchar_t* path);
HRESULT XUnregisterTypeLibrary(const GUID& typeLibrary);
// Full path of a loaded module.
std::wstring XModulePath(HMODULE module);
