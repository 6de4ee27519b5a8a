// The module's object map: every class it serves, in registration and lookup order, with what
// registration writes for it and how an instance is made.
#pragma once

#include <windows.h>
#include <objbase.h>

struct XObjectMapEntry
{
    const CLSID* clsid;
    // Name part of the ProgIDs: "WQSessionDataMng." + name (+ ".1" for the versioned one).
    const wchar_t* progIdName;
    // Description on the ProgID keys and on the class GUID key (they differ for one class).
    const wchar_t* progIdDescription;
    const wchar_t* classDescription;
    bool programmable;
    // Creates an instance, alone (outer null) or aggregated; null while the class is not built.
    HRESULT (*create)(IUnknown* outer, REFIID iid, void** ppv);
};

const XObjectMapEntry* XObjectMapBegin();
const XObjectMapEntry* XObjectMapEnd();
const XObjectMapEntry* XObjectMapFind(REFCLSID clsid);
