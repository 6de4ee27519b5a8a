// Where an error is reported: source unit, line, module name and function name, plus the GUID
// that the COM error info carries (the reporting interface; GUID_NULL when none is known).
#pragma once

#include "XWQComBSTR.h"
#include <string>

class WQErrorLocation
{
public:
    WQErrorLocation(const char* sourceUnit, unsigned long line, const XWQComBSTR& module,
                    const XWQComBSTR& function, const GUID& guid = GUID_NULL)
        : m_sourceUnit(sourceUnit ? sourceUnit : ""), m_line(line), m_module(module), m_function(function),
          m_guid(guid)
    {
    }

    const std::string& SourceUnit() const noexcept { return m_sourceUnit; }
    unsigned long Line() const noexcept { return m_line; }
    const XWQComBSTR& Module() const noexcept { return m_module; }
    const XWQComBSTR& Function() const noexcept { return m_function; }
    const GUID& Guid() const noexcept { return m_guid; }

private:
    std::string m_sourceUnit;
    unsigned long m_line;
    XWQComBSTR m_module;
    XWQComBSTR m_function;
    GUID m_guid;
};
