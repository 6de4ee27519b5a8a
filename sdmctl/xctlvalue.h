// Value types by name (--type) and the conversions between a command line's text and the
// VARIANTs the manager takes and gives: string (bstr), i1, i2, i4, i8, ui1, ui2, ui4, ui8, int,
// uint, r4, r8, bool, date, cy, decimal. Text is read and written in the invariant locale
// (a '.' for decimals, ISO-like dates), so scripts see the same on every machine.
#pragma once

#include "xcomtypes.h"

#include <oaidl.h>

#include <string>
#include <vector>

VARTYPE XCtlParseType(const std::string& name);
const char* XCtlTypeName(VARTYPE type);
std::vector<std::string> XCtlTypeNames();

// text (UTF-8) as a value of type; XCtlUsageError when it is not one.
void XCtlValueOf(const std::string& text, VARTYPE type, XVariant& value);
// A value as text (UTF-8).
std::string XCtlTextOf(const VARIANT& value);
// Whether a value's type is a number or a boolean (written bare in JSON).
bool XCtlIsNumeric(VARTYPE type) noexcept;
