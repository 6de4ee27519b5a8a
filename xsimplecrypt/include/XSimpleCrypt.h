// String encryption of the product: the text is protected with the Data Protection API and
// carried as Base64 of the protected blob.
//
// enSymAlgorithm selects the scheme; 1 (symDPAPI) is the only one offered. The flag chooses the
// scope: false protects for the current user, true for the local machine. Plain text is UTF-16.
// Any failure returns an empty string and a non-zero error code (a Win32 error code, or
// ERROR_INVALID_PARAMETER for an unknown selector or empty input).
#pragma once

#include <string>

enum enSymAlgorithm
{
    symDPAPI = 1
};

std::wstring DecryptOnlyOneStringAndDecode2String(enSymAlgorithm algorithm, bool machineScope,
                                                  const std::wstring& text, long& errorCode);
std::wstring EncryptOneStringAndEncode2String(enSymAlgorithm algorithm, bool machineScope,
                                              const std::wstring& text, long& errorCode);
