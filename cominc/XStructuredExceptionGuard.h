// Structured (processor or system) exceptions turned into C++ exceptions on the threads that ask
// for it.
//
// A thread installs a translator for a scope (XScopedSeTranslator); a structured exception
// raised while the thread runs a body through XRunWithSeTranslation then arrives, in the code
// that called XRunWithSeTranslation, as the C++ exception that the translator throws.
//
// With MSVC this is _set_se_translator: the translator runs at the fault and the C++ exception
// unwinds every frame (compile with /EHa).
//
// With MinGW-w64 GCC on x64, _set_se_translator is exported by the C runtime but never consulted
// (GCC's exception handling does not go through the runtime's C++ frame handler), so this module
// puts a structured-exception filter frame around the body instead. The filter calls the
// translator, keeps what it throws, and lets the system unwind to the frame, where the kept
// exception is thrown again. The difference to MSVC: frames between the fault and
// XRunWithSeTranslation are abandoned without running their destructors (GCC runs no cleanups
// for a foreign exception), so locks or memory held by those frames stay taken. The fault is
// logged by the translator and ends the body in an orderly way instead of ending the process.
//
// With clang for MinGW-w64 the frame is clang's own structured-exception scope (__try/__except,
// which it compiles with -fms-extensions), with the same filter and the same difference to MSVC.
//
// Threads without a translator are not affected: the filter passes the exception on, as if the
// frame were not there. With other compilers the body runs without the filter frame.
#pragma once

#include <windows.h>

using XSeTranslator = void (*)(unsigned int code, EXCEPTION_POINTERS* pointers);

// Installs a translator for the calling thread for the object's lifetime (the previous one is
// restored afterwards).
class XScopedSeTranslator
{
public:
    explicit XScopedSeTranslator(XSeTranslator translator) noexcept;
    ~XScopedSeTranslator();
    XScopedSeTranslator(const XScopedSeTranslator&) = delete;
    XScopedSeTranslator& operator=(const XScopedSeTranslator&) = delete;

private:
    XSeTranslator m_previous;
};

// Runs body(argument) and returns its result; see above for structured exceptions.
unsigned long XRunWithSeTranslation(unsigned long (*body)(void* argument), void* argument);
