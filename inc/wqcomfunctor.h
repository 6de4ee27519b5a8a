// Interface calls captured as functors, to be run later (possibly on another thread).
//
// A functor holds the interface method to call and copies of the argument values; it is given
// the interface pointer to call on only when it runs (SetInterface). Automation strings and
// value-record arrays are deep-copied when the functor is made, so a captured call never uses
// memory that its caller has freed meanwhile. The interface pointer is not counted by the functor:
// whoever binds it keeps the object alive for the call.
//
//   XFunP1<I, &I::Method, A1>            a method with one argument
//   XFunP3<I, &I::Method, A1, A2, A3>    a method with three arguments
//   XOpFun<F>                            owns a functor F as an XOpFunBase<I>, the form a call
//                                        pipe stores: op(&pInterface) binds, then calls
//   XSmartPtrFun<SmartPtr>               runs an XOpFunBase on the interface held by a smart
//                                        pointer (the invocation a proxy policy registers)
// Failures are raised as the error library's exceptions (source unit "wqcomfunctor").
#pragma once

#include "xsessiondatamng_h.h"

#include <windows.h>
#include <oleauto.h>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace WQComFunctor
{
namespace report
{
// Pointer check of the target of a call ("interface pointer is NULL").
void CheckTarget(const void* target, const wchar_t* function);
// "call handler is not valid".
[[noreturn]] void InvalidCallHandler();
// Out of memory while copying an argument.
[[noreturn]] void OutOfMemory();
} // namespace report

// ---------------------------------------------------------------------------------------------
// Owned copies of arguments.

// An automation string owned by a functor: a copy of the same length (embedded nulls kept);
// a null string stays null.
class XHeldBstr
{
public:
    explicit XHeldBstr(BSTR text) : m_text(Copy(text)) {}
    XHeldBstr(const XHeldBstr& other) : m_text(Copy(other.m_text)) {}
    XHeldBstr(XHeldBstr&& other) noexcept : m_text(std::exchange(other.m_text, nullptr)) {}
    XHeldBstr& operator=(XHeldBstr other) noexcept
    {
        std::swap(m_text, other.m_text);
        return *this;
    }
    ~XHeldBstr() { ::SysFreeString(m_text); }

    BSTR Get() const noexcept { return m_text; }
    BSTR Detach() noexcept { return std::exchange(m_text, nullptr); }

private:
    static BSTR Copy(BSTR text)
    {
        if (!text)
            return nullptr;
        BSTR copy = ::SysAllocStringLen(text, ::SysStringLen(text));
        if (!copy)
            report::OutOfMemory();
        return copy;
    }

    BSTR m_text;
};

// A value-record array owned by a functor: every name and value copied. The records hold the
// copies themselves (one block for the records, one string per name and value), so capturing a
// short list costs few allocations.
class XHeldValueArray
{
public:
    XHeldValueArray(const tagSESSIONDATAVALUE* records, ULONG count) : m_null(records == nullptr)
    {
        if (records)
            CopyFrom(records, count);
    }
    XHeldValueArray(const XHeldValueArray& other) : m_null(other.m_null)
    {
        CopyFrom(other.m_records.data(), static_cast<ULONG>(other.m_records.size()));
    }
    XHeldValueArray(XHeldValueArray&& other) noexcept : m_null(other.m_null), m_records(std::move(other.m_records)) {}
    XHeldValueArray& operator=(const XHeldValueArray&) = delete;
    XHeldValueArray& operator=(XHeldValueArray&&) = delete;
    ~XHeldValueArray() { FreeStrings(); }

    // The records to pass; null when the captured array was null.
    tagSESSIONDATAVALUE* Get() noexcept
    {
        if (m_null)
            return nullptr;
        return m_records.empty() ? &m_empty : m_records.data();
    }

private:
    void CopyFrom(const tagSESSIONDATAVALUE* records, ULONG count)
    {
        m_records.reserve(count);
        try
        {
            for (ULONG i = 0; i < count; ++i)
            {
                // Each record is in the vector before its strings are made, so a failing copy
                // leaves nothing that the cleanup below does not free.
                m_records.push_back(tagSESSIONDATAVALUE{nullptr, nullptr});
                m_records.back().bstrValueName = XHeldBstr(records[i].bstrValueName).Detach();
                m_records.back().bstrValue = XHeldBstr(records[i].bstrValue).Detach();
            }
        }
        catch (...)
        {
            FreeStrings();
            throw;
        }
    }
    void FreeStrings() noexcept
    {
        for (tagSESSIONDATAVALUE& record : m_records)
        {
            ::SysFreeString(record.bstrValueName);
            ::SysFreeString(record.bstrValue);
        }
        m_records.clear();
    }

    bool m_null;
    std::vector<tagSESSIONDATAVALUE> m_records;
    tagSESSIONDATAVALUE m_empty{nullptr, nullptr};
};

// How a functor keeps an argument: plain values as they are, strings and record arrays as
// owned copies. A record array takes its length from the argument before it.
template <class A>
class XHeldArg
{
public:
    explicit XHeldArg(A value) : m_value(value) {}
    A Get() const noexcept { return m_value; }

private:
    A m_value;
};

template <>
class XHeldArg<BSTR>
{
public:
    explicit XHeldArg(BSTR value) : m_value(value) {}
    BSTR Get() const noexcept { return m_value.Get(); }

private:
    XHeldBstr m_value;
};

template <>
class XHeldArg<tagSESSIONDATAVALUE*>
{
public:
    XHeldArg(tagSESSIONDATAVALUE* records, ULONG count) : m_value(records, count) {}
    tagSESSIONDATAVALUE* Get() noexcept { return m_value.Get(); }

private:
    XHeldValueArray m_value;
};

// ---------------------------------------------------------------------------------------------
// Interface reference and call.

// The interface reference of a functor.
template <class I>
class XComInterfaceRefWrapper
{
public:
    class XComRefI
    {
    public:
        void Set(I* pointer) noexcept { m_pointer = pointer; }
        // The pointer, checked: a null one is reported by the pointer check.
        I* GetChecked() const
        {
            report::CheckTarget(m_pointer, L"XComInterfaceRefWrapper::XComRefI::GetChecked");
            return m_pointer;
        }

    private:
        I* m_pointer = nullptr;
    };

    XComRefI& Ref() noexcept { return m_ref; }
    const XComRefI& Ref() const noexcept { return m_ref; }

private:
    XComRefI m_ref;
};

// The word after the function address in a method pointer: the adjustment of the object pointer
// that the call would need. A method of a COM interface needs none; any other value means the
// method pointer does not belong to a plain interface.
template <class Method>
std::uintptr_t XSecondHandlerWord(Method method) noexcept
{
    if constexpr (sizeof(Method) >= 2 * sizeof(std::uintptr_t))
    {
        std::uintptr_t words[sizeof(Method) / sizeof(std::uintptr_t)];
        std::memcpy(words, &method, sizeof words);
        return words[1];
    }
    else
    {
        return 0;
    }
}

template <class I>
class XComFunctorImplBase
{
public:
    using Interface = I;

protected:
    XComInterfaceRefWrapper<I> m_interface;
};

template <class I>
class XComFunImpl : public XComFunctorImplBase<I>
{
public:
    // The binder: stores the pointer that the next call runs on.
    void SetInterface(I** ppInterface) noexcept { this->m_interface.Ref().Set(ppInterface ? *ppInterface : nullptr); }

protected:
    template <class Method, class... Args>
    static HRESULT funCallImpl(const typename XComInterfaceRefWrapper<I>::XComRefI& target,
                               std::uintptr_t secondHandlerWord, Method method, Args... args)
    {
        I* pointer = target.GetChecked();
        if (secondHandlerWord != 0)
            report::InvalidCallHandler();
        return (pointer->*method)(args...);
    }
};

template <class I, auto Method, class A1>
class XFunP1 : public XComFunImpl<I>
{
public:
    explicit XFunP1(A1 a1) : m_a1(a1) {}

    HRESULT operator()() { return this->funCallImpl(this->m_interface.Ref(), XSecondHandlerWord(Method), Method, m_a1.Get()); }

private:
    XHeldArg<A1> m_a1;
};

template <class I, auto Method, class A1, class A2, class A3>
class XFunP3 : public XComFunImpl<I>
{
public:
    XFunP3(A1 a1, A2 a2, A3 a3) : m_a1(a1), m_a2(a2), m_a3(MakeHeld3(a3, a2)) {}

    HRESULT operator()()
    {
        return this->funCallImpl(this->m_interface.Ref(), XSecondHandlerWord(Method), Method, m_a1.Get(), m_a2.Get(),
                                 m_a3.Get());
    }

private:
    static XHeldArg<A3> MakeHeld3(A3 a3, A2 a2)
    {
        if constexpr (std::is_constructible_v<XHeldArg<A3>, A3, A2>)
            return XHeldArg<A3>(a3, a2);
        else
            return XHeldArg<A3>(a3);
    }

    XHeldArg<A1> m_a1;
    XHeldArg<A2> m_a2;
    XHeldArg<A3> m_a3;
};

// ---------------------------------------------------------------------------------------------
// Operations, as a pipe stores them.

template <class I>
class XOpFunBase
{
public:
    virtual ~XOpFunBase() = default;
    // Hands the functor its interface pointer, then calls it.
    virtual HRESULT operator()(I** ppInterface) = 0;
};

template <class F, auto Call = &F::operator(), auto Bind = &F::SetInterface>
class XOpFun final : public XOpFunBase<typename F::Interface>
{
public:
    explicit XOpFun(F functor) : m_functor(std::move(functor)) {}

    HRESULT operator()(typename F::Interface** ppInterface) override
    {
        (m_functor.*Bind)(ppInterface);
        return (m_functor.*Call)();
    }

private:
    F m_functor;
};

template <class F>
std::unique_ptr<XOpFunBase<typename F::Interface>> MakeOpFun(F functor)
{
    return std::make_unique<XOpFun<F>>(std::move(functor));
}

// Runs operations on the interface held by a smart pointer (anything with Get()).
template <class SmartPtr>
class XSmartPtrFun
{
public:
    explicit XSmartPtrFun(SmartPtr target) : m_target(std::move(target)) {}

    template <class I>
    HRESULT operator()(XOpFunBase<I>& operation) const
    {
        I* target = m_target.Get();
        report::CheckTarget(target, L"XSmartPtrFun::operator()");
        return operation(&target);
    }

private:
    SmartPtr m_target;
};
} // namespace WQComFunctor
