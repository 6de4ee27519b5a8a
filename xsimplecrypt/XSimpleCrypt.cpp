#include "XSimpleCrypt.h"

#include <windows.h>
#include <wincrypt.h>
#include <memory>
#include <vector>

namespace
{
struct LocalFreeDeleter
{
    void operator()(void* p) const noexcept { ::LocalFree(p); }
};
using LocalBuffer = std::unique_ptr<BYTE, LocalFreeDeleter>;

DWORD ScopeFlags(bool machineScope)
{
    return CRYPTPROTECT_UI_FORBIDDEN | (machineScope ? CRYPTPROTECT_LOCAL_MACHINE : 0);
}

long LastErrorOr(long fallback)
{
    const DWORD error = ::GetLastError();
    return error ? static_cast<long>(error) : fallback;
}
} // namespace

std::wstring DecryptOnlyOneStringAndDecode2String(enSymAlgorithm algorithm, bool machineScope,
                                                  const std::wstring& text, long& errorCode)
{
    errorCode = 0;
    if (algorithm != symDPAPI || text.empty())
    {
        errorCode = ERROR_INVALID_PARAMETER;
        return std::wstring();
    }
    DWORD size = 0;
    if (!::CryptStringToBinaryW(text.c_str(), static_cast<DWORD>(text.size()), CRYPT_STRING_BASE64, nullptr, &size,
                                nullptr, nullptr) || size == 0)
    {
        errorCode = LastErrorOr(ERROR_INVALID_DATA);
        return std::wstring();
    }
    std::vector<BYTE> blob(size);
    if (!::CryptStringToBinaryW(text.c_str(), static_cast<DWORD>(text.size()), CRYPT_STRING_BASE64, blob.data(),
                                &size, nullptr, nullptr))
    {
        errorCode = LastErrorOr(ERROR_INVALID_DATA);
        return std::wstring();
    }
    DATA_BLOB in{size, blob.data()};
    DATA_BLOB out{};
    if (!::CryptUnprotectData(&in, nullptr, nullptr, nullptr, nullptr, ScopeFlags(machineScope), &out))
    {
        errorCode = LastErrorOr(ERROR_INVALID_DATA);
        return std::wstring();
    }
    LocalBuffer owned(out.pbData);
    if (out.cbData % sizeof(wchar_t) != 0)
    {
        errorCode = ERROR_INVALID_DATA;
        return std::wstring();
    }
    std::wstring plain(reinterpret_cast<const wchar_t*>(out.pbData), out.cbData / sizeof(wchar_t));
    if (plain.empty())
        errorCode = ERROR_INVALID_DATA;
    return plain;
}

std::wstring EncryptOneStringAndEncode2String(enSymAlgorithm algorithm, bool machineScope,
                                              const std::wstring& text, long& errorCode)
{
    errorCode = 0;
    if (algorithm != symDPAPI || text.empty())
    {
        errorCode = ERROR_INVALID_PARAMETER;
        return std::wstring();
    }
    DATA_BLOB in{static_cast<DWORD>(text.size() * sizeof(wchar_t)),
                 reinterpret_cast<BYTE*>(const_cast<wchar_t*>(text.data()))};
    DATA_BLOB out{};
    if (!::CryptProtectData(&in, L"WQSessionDataMng", nullptr, nullptr, nullptr, ScopeFlags(machineScope), &out))
    {
        errorCode = LastErrorOr(ERROR_INVALID_DATA);
        return std::wstring();
    }
    LocalBuffer owned(out.pbData);
    DWORD chars = 0;
    const DWORD format = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;
    if (!::CryptBinaryToStringW(out.pbData, out.cbData, format, nullptr, &chars) || chars == 0)
    {
        errorCode = LastErrorOr(ERROR_INVALID_DATA);
        return std::wstring();
    }
    std::vector<wchar_t> encoded(chars);
    if (!::CryptBinaryToStringW(out.pbData, out.cbData, format, encoded.data(), &chars))
    {
        errorCode = LastErrorOr(ERROR_INVALID_DATA);
        return std::wstring();
    }
    return std::wstring(encoded.data(), chars);
}
