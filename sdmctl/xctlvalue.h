// Value types by name (--type) and the conversions between a command line's text and the
// VARIANTs the manager takes and gives: string (bstr), i1, i2, i4, i8, ui1, ui2, ui4, ui8, int,
// uint, r4, r8, bool, date, cy, decimal. Text is read and written in the invariant locale
// (a '.' for decimals, ISO-like dates), so scripts see the same on every machine.
#pragma once

#include <oaidl.h>

#include <string>
#include <vector>

VARTYPE XCtlParseType(const std::string& name);
const char* XCtlTypeName(VARTYPE type);
std::vector<std::string> XCtlTypeNames();

// A VARIANT that owns its content.
class XCtlVariant
{
public:
    XCtlVariant() noexcept { ::VariantInit(&m_value); }
    ~XCtlVariant() { ::VariantClear(&m_value); }
    XCtlVariant(const XCtlVariant&) = delete;
    XCtlVariant& operator=(const XCtlVariant&) = delete;
    VARIANT& Get() noexcept { return m_value; }
    const VARIANT& Get() const noexcept { return m_value; }

private:
    VARIANT m_value;
};

// text (UTF-8) as a value of type; XCtlUsageError when it is not one.
void XCtlValueOf(const std::string& text, VARTYPE type, XCtlVariant& value);
// A value as text (UTF-8).
std::string XCtlTextOf(const VARIANT& value);
// Whether a value's type is a number or a boolean (written bare in JSON).
bool XCtlIsNumeric(VARTYPE type) noexcept;
