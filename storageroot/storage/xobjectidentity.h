// The persistent identity by which the SQL storage keeps an object's data apart: the display
// name of a moniker, else the class id of an IPersist object ("{...}"). An object with neither
// has no identity that survives it, and its data is refused with E_INVALIDARG. The identity is
// part of the key: object data never mixes with plain data, nor with another object's data.
#pragma once

#include <objbase.h>

#include <string>

// The identity of object; raises E_POINTER for none and E_INVALIDARG for an object without one.
std::wstring XObjectIdentity(IUnknown* object);
