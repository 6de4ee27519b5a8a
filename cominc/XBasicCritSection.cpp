#include "XBasicCritSection.h"

#include "xsdmreporter.h"

namespace XBasicCritSectionReport
{
const wchar_t* const kWriteOnReadRefused = L"unable to add a write lock reference to a read lock";
const wchar_t* const kNotLocked =
    L"trying to unlock the critical section without having it locked for the running thread";
const wchar_t* const kAlreadyUnlocked =
    L"trying to unlock the critical section being already unlocked for the running thread before";
const wchar_t* const kEntryNotRemoved =
    L"critical section reference count entry found for a thread expected to be removed";

void RefuseWriteOnRead()
{
    static const XSdmReporter report("XBasicCritSection", GUID_NULL);
    report.Raise(__LINE__, XSDM_FUNCTION_NAME(L"XBasicRefCountCritSection::AddLockRef"), E_FAIL, kWriteOnReadRefused);
}

void LogReleaseFault(const wchar_t* message) noexcept
{
    try
    {
        const XWrappedWQException fault = XWQExceptionFactory::Create(
            XWQEXCEP::EXCEP_SYSTEM,
            XSdmLocation("XBasicCritSection", __LINE__, XSDM_FUNCTION_NAME(L"XBasicRefCountCritSection::ReleaseLockRef")),
            E_FAIL, XWQEXCEP::SEV_ERROR, 0, XWQComBSTR(message), XWQComBSTR(), 0);
        XWQError::WriteErrorToLogBook(fault, true, 0);
    }
    catch (...)
    {
        // Release runs in destructors: nothing may escape, not even a failed report.
    }
}
} // namespace XBasicCritSectionReport
