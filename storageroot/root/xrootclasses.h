// The storage-root server's classes: its object map, shared by the program that serves them
// out of process and the DLL that serves them in process, and their registration.
#pragma once

#include "xobjectmap.h"
#include "xregistrar.h"

const XObjectMap& XRootObjectMap();

// The servers of the classes found in folder: the program (WQSessionDataRoot64.exe) and the
// DLL (WQSessionDataRoot64.dll), each only when its file is there.
XServerPaths XRootServerPaths(const std::wstring& folder);
// The folder of a path ("" for a bare file name).
std::wstring XFolderOf(const std::wstring& path);

// Registers the classes (with both servers whose paths are given) and the type library that
// the file at typeLibraryPath carries.
HRESULT XRegisterStorageRoot(const XServerPaths& servers, const wchar_t* typeLibraryPath);
// Removes what registration wrote: the classes' keys, their ProgIDs and the type library.
HRESULT XUnregisterStorageRoot();
