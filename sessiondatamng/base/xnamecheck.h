// XNameCheck: the check every interface method of the module runs on the keys, value names and
// values it is given, before anything is read or written.
//
// Every layer below handles keys and value names as zero-terminated text, so a name with an
// embedded NUL character ("p/n\0zz") would address another key or value ("p/n") and clobber it:
// such names are refused with E_INVALIDARG. A value with an embedded NUL is kept whole where the
// storage can hold it; a storage that cannot (the registry, the environment) refuses it the same
// way instead of cutting it short.
//
// The first failure is reported through the error contract (error info and log book) at the
// caller's location; the checks after it are skipped.
#pragma once

#include "xsdmerror.h"
#include "xsessiondatamng_h.h"

// Whether text holds a NUL character before its end (a null BSTR holds none).
bool XHasEmbeddedNul(BSTR text) noexcept;

class XNameCheck
{
public:
    XNameCheck(const char* unit, unsigned long line, const XWQComBSTR& function, const GUID& guid) noexcept
        : m_unit(unit), m_line(line), m_function(function), m_guid(guid)
    {
    }

    XNameCheck& Key(BSTR key);
    XNameCheck& ValueName(BSTR name);
    // The value names of count records; a null array with a count above 0 is E_POINTER.
    XNameCheck& Records(ULONG count, const tagSESSIONDATAVALUE* records);
    // A value for a storage that cannot hold a NUL character inside a value; holder names that
    // storage in the message ("registry", "environment"). Null holder: every value is kept.
    XNameCheck& Value(BSTR value, const wchar_t* holder);
    // The values of count records, as Value.
    XNameCheck& Values(ULONG count, const tagSESSIONDATAVALUE* records, const wchar_t* holder);
    // A list to be written under key: Key, Records and Values.
    XNameCheck& List(BSTR key, ULONG count, const tagSESSIONDATAVALUE* records, const wchar_t* holder)
    {
        return Key(key).Records(count, records).Values(count, records, holder);
    }

    // S_OK, or the first failure (already reported).
    HRESULT Result() const noexcept { return m_result; }

private:
    void Refuse(HRESULT hr, const wchar_t* message);

    const char* m_unit;
    unsigned long m_line;
    const XWQComBSTR& m_function;
    const GUID& m_guid;
    HRESULT m_result = S_OK;
};
