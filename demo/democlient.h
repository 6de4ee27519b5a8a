// What the demo clients share: plain COM client helpers (owners of an interface pointer, a BSTR
// and a VARIANT, a class created by ProgID) and a line per call with its HRESULT.
#pragma once

#include <windows.h>

#include <cstdio>
#include <oleauto.h>

inline bool Check(const char* what, HRESULT hr)
{
    std::printf("  %-44s -> 0x%08lX\n", what, static_cast<unsigned long>(hr));
    return SUCCEEDED(hr);
}

template <class I>
struct Ptr
{
    I* p = nullptr;
    Ptr() = default;
    Ptr(const Ptr&) = delete;
    Ptr& operator=(const Ptr&) = delete;
    ~Ptr()
    {
        if (p)
            p->Release();
    }
    I* operator->() const { return p; }
    void** out() { return reinterpret_cast<void**>(&p); }
};

struct Bstr
{
    BSTR s;
    explicit Bstr(const wchar_t* text) : s(::SysAllocString(text)) {}
    Bstr(const Bstr&) = delete;
    Bstr& operator=(const Bstr&) = delete;
    ~Bstr() { ::SysFreeString(s); }
    operator BSTR() const { return s; }
};

struct Variant
{
    VARIANT v;
    Variant() { ::VariantInit(&v); }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
    ~Variant() { ::VariantClear(&v); }
};

// Creates the class registered under progId in a context, as interface iid.
inline HRESULT CreateByProgId(const wchar_t* progId, DWORD context, REFIID iid, void** ppv)
{
    CLSID clsid;
    const HRESULT hr = ::CLSIDFromProgID(progId, &clsid);
    return FAILED(hr) ? hr : ::CoCreateInstance(clsid, nullptr, context, iid, ppv);
}
