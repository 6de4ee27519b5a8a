// Class objects of the module: one per object-map entry, living as long as the module.
#pragma once

#include "xobjectmap.h"

// Hands out the class object of the entry for clsid; CLASS_E_CLASSNOTAVAILABLE for others.
HRESULT XGetClassObject(REFCLSID clsid, REFIID iid, void** ppv);
