// Conversion between the stored text and the typed values (VARIANT) of the manager's boundary.
#pragma once

#include <windows.h>
#include <oleauto.h>

// Converts text to varType with VariantChangeType (flags 0) and hands the result to *out
// (cleared first). Returns the conversion's failure, E_POINTER for a null out, or S_OK; on any
// result but S_OK *out is untouched. Raises the module's out-of-memory exception if the text cannot be copied.
HRESULT XTextToVariant(const wchar_t* text, UINT length, VARTYPE varType, VARIANT* out);

// Converts value in place to VT_BSTR (flags 0). E_INVALIDARG if it cannot be converted.
HRESULT XVariantToText(VARIANT& value);
