// The module's structured-exception translator. A thread that installs it (with
// XScopedSeTranslator, as the asynchronous delegator's worker does) gets a processor or system
// exception as the error library's exception, reported under the source unit "stdafx" and the
// function "XSessionDataMng::TranslateCException": the manager class offers it under that name,
// and the threading code reaches it here, below the manager.
#pragma once

#include <windows.h>

void XSdmTranslateStructuredException(unsigned int code, EXCEPTION_POINTERS* pointers);
