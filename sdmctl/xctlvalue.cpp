#include "xctlvalue.h"

#include "xctlfailure.h"

#include <oleauto.h>

namespace
{
struct TypeName
{
    const char* name;
    VARTYPE type;
};

const TypeName kTypes[] = {
    {"string", VT_BSTR}, {"bstr", VT_BSTR}, {"i1", VT_I1},   {"i2", VT_I2},     {"i4", VT_I4},
    {"i8", VT_I8},       {"ui1", VT_UI1},   {"ui2", VT_UI2}, {"ui4", VT_UI4},   {"ui8", VT_UI8},
    {"int", VT_INT},     {"uint", VT_UINT}, {"r4", VT_R4},   {"r8", VT_R8},     {"bool", VT_BOOL},
    {"date", VT_DATE},   {"cy", VT_CY},     {"decimal", VT_DECIMAL},
};
} // namespace

VARTYPE XCtlParseType(const std::string& name)
{
    for (const TypeName& known : kTypes)
        if (name == known.name)
            return known.type;
    std::string names;
    for (const std::string& known : XCtlTypeNames())
        names += (names.empty() ? "" : ", ") + known;
    throw XCtlUsageError("unknown type '" + name + "' (" + names + ")");
}

const char* XCtlTypeName(VARTYPE type)
{
    for (const TypeName& known : kTypes)
        if (known.type == type)
            return known.name;
    return "?";
}

std::vector<std::string> XCtlTypeNames()
{
    std::vector<std::string> names;
    for (const TypeName& known : kTypes)
        if (std::string(known.name) != "bstr")
            names.push_back(known.name);
    return names;
}

void XCtlValueOf(const std::string& text, VARTYPE type, XVariant& value)
{
    XVariant source;
    const std::wstring wide = XCtlWide(text);
    source.Get().vt = VT_BSTR;
    source.Get().bstrVal = ::SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
    if (type == VT_BSTR)
    {
        ::VariantCopy(&value.Get(), &source.Get());
        return;
    }
    const HRESULT hr = ::VariantChangeTypeEx(&value.Get(), &source.Get(), LOCALE_INVARIANT, 0, type);
    if (FAILED(hr))
        throw XCtlUsageError("'" + text + "' is not a value of type " + XCtlTypeName(type));
}

std::string XCtlTextOf(const VARIANT& value)
{
    if (value.vt == VT_BSTR)
        return value.bstrVal ? XCtlUtf8(std::wstring(value.bstrVal, ::SysStringLen(value.bstrVal))) : std::string();
    XVariant text;
    const HRESULT hr = ::VariantChangeTypeEx(&text.Get(), const_cast<VARIANT*>(&value), LOCALE_INVARIANT,
                                             VARIANT_ALPHABOOL, VT_BSTR);
    XCtlCheck(hr, "the value cannot be shown as text");
    return XCtlUtf8(std::wstring(text.Get().bstrVal, ::SysStringLen(text.Get().bstrVal)));
}

bool XCtlIsNumeric(VARTYPE type) noexcept
{
    switch (type)
    {
    case VT_I1: case VT_I2: case VT_I4: case VT_I8: case VT_UI1: case VT_UI2: case VT_UI4: case VT_UI8:
    case VT_INT: case VT_UINT: case VT_R4: case VT_R8: case VT_BOOL:
        return true;
    default:
        return false;
    }
}
