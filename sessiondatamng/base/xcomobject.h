// Minimal COM object support for the module's classes: reference counting, interface lookup,
// aggregation and the module's lock count (live objects plus server locks).
//
// An implementation class T derives from its interfaces, leaves IUnknown abstract and provides
//     HRESULT InternalQueryInterface(REFIID iid, void** ppv);
// usually through XQueryInterfaces<I1, I2, ...>(this, iid, ppv). The outer shells below supply
// IUnknown: XComObject<T> for a standalone object, XComAggObject<T> for an aggregated one.
#pragma once

#include <windows.h>
#include <objbase.h>
#include <new>
#include <utility>

class XComModule
{
public:
    static void Lock() noexcept;
    static void Unlock() noexcept;
    static LONG LockCount() noexcept;
};

namespace xcom_detail
{
template <class T, class I, class... Rest>
bool Matches(T* object, REFIID iid, void** ppv) noexcept
{
    if (::IsEqualIID(iid, __uuidof(I)))
    {
        *ppv = static_cast<I*>(object);
        return true;
    }
    if constexpr (sizeof...(Rest) > 0)
        return Matches<T, Rest...>(object, iid, ppv);
    else
        return false;
}
} // namespace xcom_detail

// Answers IUnknown with the first interface, and each listed interface; AddRefs the result.
template <class First, class... Rest, class T>
HRESULT XQueryInterfaces(T* object, REFIID iid, void** ppv) noexcept
{
    if (!ppv)
        return E_POINTER;
    *ppv = nullptr;
    if (::IsEqualIID(iid, IID_IUnknown))
        *ppv = static_cast<IUnknown*>(static_cast<First*>(object));
    else if (!xcom_detail::Matches<T, First, Rest...>(object, iid, ppv))
        return E_NOINTERFACE;
    static_cast<IUnknown*>(*ppv)->AddRef();
    return S_OK;
}

// Standalone object: owns its reference count.
template <class T>
class XComObject final : public T
{
public:
    template <class... Args>
    explicit XComObject(Args&&... args) : T(std::forward<Args>(args)...)
    {
        XComModule::Lock();
    }
    ~XComObject() override { XComModule::Unlock(); }

    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override { return this->InternalQueryInterface(iid, ppv); }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(::InterlockedIncrement(&m_refs)); }
    STDMETHODIMP_(ULONG) Release() override
    {
        const LONG refs = ::InterlockedDecrement(&m_refs);
        if (refs == 0)
            delete this;
        return static_cast<ULONG>(refs);
    }

    // Creates an object and returns the requested interface (the object dies if that fails).
    static HRESULT Create(REFIID iid, void** ppv)
    {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        XComObject* object = new (std::nothrow) XComObject();
        if (!object)
            return E_OUTOFMEMORY;
        object->AddRef();
        const HRESULT hr = object->QueryInterface(iid, ppv);
        object->Release();
        return hr;
    }

private:
    volatile LONG m_refs = 0;
};

// The implementation inside an aggregate: its IUnknown delegates to the outer object.
template <class T>
class XComContainedObject final : public T
{
public:
    explicit XComContainedObject(IUnknown* outer) : m_outer(outer) {}
    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override { return m_outer->QueryInterface(iid, ppv); }
    STDMETHODIMP_(ULONG) AddRef() override { return m_outer->AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return m_outer->Release(); }

private:
    IUnknown* m_outer;  // not counted: the outer object owns the aggregate
};

// Aggregated object: its own IUnknown is the non-delegating unknown handed to the outer object.
template <class T>
class XComAggObject final : public IUnknown
{
public:
    explicit XComAggObject(IUnknown* outer) : m_contained(outer) { XComModule::Lock(); }
    ~XComAggObject() { XComModule::Unlock(); }

    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        if (::IsEqualIID(iid, IID_IUnknown))
        {
            *ppv = static_cast<IUnknown*>(this);
            AddRef();
            return S_OK;
        }
        return m_contained.InternalQueryInterface(iid, ppv);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(::InterlockedIncrement(&m_refs)); }
    STDMETHODIMP_(ULONG) Release() override
    {
        const LONG refs = ::InterlockedDecrement(&m_refs);
        if (refs == 0)
            delete this;
        return static_cast<ULONG>(refs);
    }

    // Creates an aggregated object; only IUnknown may be asked for, as COM requires.
    static HRESULT Create(IUnknown* outer, REFIID iid, void** ppv)
    {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        if (!outer || !::IsEqualIID(iid, IID_IUnknown))
            return CLASS_E_NOAGGREGATION;
        XComAggObject* object = new (std::nothrow) XComAggObject(outer);
        if (!object)
            return E_OUTOFMEMORY;
        object->AddRef();
        const HRESULT hr = object->QueryInterface(iid, ppv);
        object->Release();
        return hr;
    }

    T& Inner() noexcept { return m_contained; }

private:
    volatile LONG m_refs = 0;
    XComContainedObject<T> m_contained;
};

// Creates a T standalone (outer null) or aggregated.
template <class T>
HRESULT XCreateComObject(IUnknown* outer, REFIID iid, void** ppv)
{
    return outer ? XComAggObject<T>::Create(outer, iid, ppv) : XComObject<T>::Create(iid, ppv);
}

// Owning interface pointer.
template <class I>
class XComPtr
{
public:
    XComPtr() noexcept = default;
    XComPtr(I* p) noexcept : m_p(p)
    {
        if (m_p)
            m_p->AddRef();
    }
    XComPtr(const XComPtr& other) noexcept : XComPtr(other.m_p) {}
    XComPtr(XComPtr&& other) noexcept : m_p(std::exchange(other.m_p, nullptr)) {}
    ~XComPtr() { Reset(); }
    XComPtr& operator=(XComPtr other) noexcept
    {
        std::swap(m_p, other.m_p);
        return *this;
    }

    void Reset() noexcept
    {
        if (I* old = std::exchange(m_p, nullptr))
            old->Release();
    }
    void Attach(I* p) noexcept
    {
        Reset();
        m_p = p;
    }
    I* Detach() noexcept { return std::exchange(m_p, nullptr); }
    I** ReleaseAndGetAddressOf() noexcept
    {
        Reset();
        return &m_p;
    }
    I* Get() const noexcept { return m_p; }
    I* operator->() const noexcept { return m_p; }
    explicit operator bool() const noexcept { return m_p != nullptr; }

    // QueryInterface into another smart pointer; an empty pointer answers E_POINTER.
    template <class J>
    HRESULT As(XComPtr<J>& out) const noexcept
    {
        if (!m_p)
            return E_POINTER;
        return m_p->QueryInterface(__uuidof(J), reinterpret_cast<void**>(out.ReleaseAndGetAddressOf()));
    }

private:
    I* m_p = nullptr;
};
