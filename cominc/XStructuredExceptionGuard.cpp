#include "XStructuredExceptionGuard.h"

#include <exception>

#if defined(_MSC_VER)

#include <eh.h>

XScopedSeTranslator::XScopedSeTranslator(XSeTranslator translator) noexcept
    : m_previous(reinterpret_cast<XSeTranslator>(::_set_se_translator(reinterpret_cast<_se_translator_function>(translator))))
{
}

XScopedSeTranslator::~XScopedSeTranslator()
{
    ::_set_se_translator(reinterpret_cast<_se_translator_function>(m_previous));
}

unsigned long XRunWithSeTranslation(unsigned long (*body)(void*), void* argument)
{
    return body(argument);
}

#else

namespace
{
thread_local XSeTranslator t_translator = nullptr;
}

XScopedSeTranslator::XScopedSeTranslator(XSeTranslator translator) noexcept : m_previous(t_translator)
{
    t_translator = translator;
}

XScopedSeTranslator::~XScopedSeTranslator()
{
    t_translator = m_previous;
}

#if defined(__MINGW32__) && defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))

namespace
{
thread_local std::exception_ptr t_translated;

// The C++ exceptions of the MinGW runtime travel as structured exceptions with these codes;
// they are not faults.
bool IsGccException(DWORD code) noexcept
{
    return (code & 0x20FFFFFFu) == 0x20474343u;  // 'GCC' with the user-defined bit, any kind
}
} // namespace

// The filter of the guard frame: calls the translator, keeps what it throws and has the frame
// take the exception; anything else goes on as it was.
extern "C" __attribute__((used)) LONG XSdmStructuredExceptionFilter(EXCEPTION_POINTERS* pointers, void*)
{
    const XSeTranslator translator = t_translator;
    if (!translator || !pointers || !pointers->ExceptionRecord || IsGccException(pointers->ExceptionRecord->ExceptionCode))
        return EXCEPTION_CONTINUE_SEARCH;
    try
    {
        translator(pointers->ExceptionRecord->ExceptionCode, pointers);
    }
    catch (...)
    {
        t_translated = std::current_exception();
        return EXCEPTION_EXECUTE_HANDLER;
    }
    return EXCEPTION_CONTINUE_SEARCH;  // the translator declined: the exception goes on as it was
}

namespace
{
#if defined(__clang__)
// clang compiles structured-exception scopes itself (__try/__except, with -fms-extensions): the
// body runs in one, in a function without C++ objects, and a fault the filter takes ends up
// after it.
__attribute__((noinline)) bool CallInGuardFrame(unsigned long (*body)(void*), void* argument, unsigned long* result)
{
    __try
    {
        *result = body(argument);
    }
    __except (XSdmStructuredExceptionFilter(GetExceptionInformation(), nullptr))
    {
        return true;
    }
    return false;
}
#else
// Calls body(argument) inside a frame whose scope entry sends structured exceptions to the filter
// above; when the filter takes one, the system unwinds to the label after the call and the
// function returns true. The function has no C++ cleanups, so the frame has no other handler.
__attribute__((noinline, noclone)) bool CallInGuardFrame(unsigned long (*body)(void*), void* argument,
                                                         unsigned long* result)
{
    volatile bool faulted = true;
    __asm__ __volatile__("\t.Lxsdm_seh_begin:\n"
                         "\t.seh_handler __C_specific_handler, @except\n"
                         "\t.seh_handlerdata\n"
                         "\t.long 1\n"
                         "\t.rva .Lxsdm_seh_begin, .Lxsdm_seh_end, XSdmStructuredExceptionFilter, .Lxsdm_seh_end\n"
                         "\t.text\n" ::: "memory");
    *result = body(argument);
    faulted = false;
    __asm__ __volatile__("\tnop\n"
                         "\t.Lxsdm_seh_end:\n"
                         "\tnop\n" ::: "memory");
    return faulted;
}
#endif
} // namespace

unsigned long XRunWithSeTranslation(unsigned long (*body)(void*), void* argument)
{
    unsigned long result = 0;
    if (CallInGuardFrame(body, argument, &result))
    {
        std::exception_ptr translated = t_translated;
        t_translated = nullptr;
        if (translated)
            std::rethrow_exception(translated);
    }
    return result;
}

#else

unsigned long XRunWithSeTranslation(unsigned long (*body)(void*), void* argument)
{
    return body(argument);
}

#endif
#endif
