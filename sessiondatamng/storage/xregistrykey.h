// XRegistryKey: owner of one open registry key handle, closed when the owner goes.
#pragma once

#include <windows.h>
#include <utility>

class XRegistryKey
{
public:
    XRegistryKey() noexcept = default;
    ~XRegistryKey() { Reset(); }
    XRegistryKey(XRegistryKey&& other) noexcept : m_key(std::exchange(other.m_key, nullptr)) {}
    XRegistryKey& operator=(XRegistryKey&& other) noexcept
    {
        if (this != &other)
        {
            Reset();
            m_key = std::exchange(other.m_key, nullptr);
        }
        return *this;
    }
    XRegistryKey(const XRegistryKey&) = delete;
    XRegistryKey& operator=(const XRegistryKey&) = delete;

    void Reset() noexcept
    {
        if (HKEY old = std::exchange(m_key, nullptr))
            ::RegCloseKey(old);
    }
    // Closes the held key and gives the address for a call that opens one.
    HKEY* ReleaseAndGetAddressOf() noexcept
    {
        Reset();
        return &m_key;
    }
    HKEY Get() const noexcept { return m_key; }
    explicit operator bool() const noexcept { return m_key != nullptr; }

private:
    HKEY m_key = nullptr;
};
