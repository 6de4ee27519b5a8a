// The module's structured-exception translator and the guard that carries a translated fault to
// the code that ran the body.
#include "XStructuredExceptionGuard.h"
#include "XThreadedTask.h"
#include "xsetranslator.h"
#include "testenv.h"
#include "threadingdoubles.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace
{
unsigned long WriteThroughNull(void*)
{
    volatile int* volatile target = nullptr;
    *target = 1;
    return 1;
}

unsigned long RaiseCustom(void*)
{
    ::RaiseException(0xE0001234u, 0, 0, nullptr);
    return 1;
}

unsigned long Answer(void*)
{
    return 42;
}

unsigned long ThrowStandard(void*)
{
    throw std::runtime_error("plain C++");
}

void ThrowMarker(unsigned int, EXCEPTION_POINTERS*)
{
    throw 17;
}

template <class Run>
XWrappedWQException TranslatedBy(Run run)
{
    try
    {
        run();
    }
    catch (const XWrappedWQException& translated)
    {
        return translated;
    }
    return XWrappedWQException();
}

class StructuredExceptions : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ClearLogBook();
        TestSchedulerTraits::Reset();
    }
    void TearDown() override { TestSchedulerTraits::Reset(); }
};
} // namespace

TEST_F(StructuredExceptions, AccessViolationArrivesAsTheModulesLoggedException)
{
    XScopedSeTranslator translator(&XSdmTranslateStructuredException);
    const XWrappedWQException translated = TranslatedBy([] { XRunWithSeTranslation(&WriteThroughNull, nullptr); });
    ASSERT_TRUE(translated.HasException());
    EXPECT_EQ(HRESULT_FROM_NT(EXCEPTION_ACCESS_VIOLATION), translated.Result());
    EXPECT_EQ("stdafx", translated->Location().SourceUnit());
    EXPECT_EQ(L"XSessionDataMng::TranslateCException", translated->Location().Function().ToWString());
    EXPECT_EQ(L"WQSessionDataMng", translated->Location().Module().ToWString());
    EXPECT_EQ(1u, LogLinesWith("structured exception 0xC0000005"));
    EXPECT_EQ(1u, LogLinesWith("XSessionDataMng::TranslateCException"));
}

TEST_F(StructuredExceptions, RaisedCodeIsCarriedThrough)
{
    XScopedSeTranslator translator(&XSdmTranslateStructuredException);
    const XWrappedWQException translated = TranslatedBy([] { XRunWithSeTranslation(&RaiseCustom, nullptr); });
    ASSERT_TRUE(translated.HasException());
    EXPECT_EQ(static_cast<long>(0xE0001234u), translated->SecondCode());
}

TEST_F(StructuredExceptions, BodyWithoutFaultReturnsItsResult)
{
    XScopedSeTranslator translator(&XSdmTranslateStructuredException);
    EXPECT_EQ(42ul, XRunWithSeTranslation(&Answer, nullptr));
    EXPECT_TRUE(ReadLogBook().empty());
}

TEST_F(StructuredExceptions, CppExceptionsOfTheBodyPassUnchanged)
{
    XScopedSeTranslator translator(&XSdmTranslateStructuredException);
    EXPECT_THROW(XRunWithSeTranslation(&ThrowStandard, nullptr), std::runtime_error);
    EXPECT_TRUE(ReadLogBook().empty());
}

TEST_F(StructuredExceptions, ScopeRestoresThePreviousTranslator)
{
    XScopedSeTranslator outer(&XSdmTranslateStructuredException);
    {
        XScopedSeTranslator inner(&ThrowMarker);
        EXPECT_THROW(XRunWithSeTranslation(&WriteThroughNull, nullptr), int);
    }
    EXPECT_THROW(XRunWithSeTranslation(&WriteThroughNull, nullptr), XWrappedWQException);
}

TEST_F(StructuredExceptions, TaskWhoseBodyFaultsIsLoggedAndStops)
{
    using Task = ScriptedTask<TestSchedulerTraits>;
    Task task(-1, [](TaskOwner*, Task&) -> unsigned long {
        XScopedSeTranslator translator(&XSdmTranslateStructuredException);
        return WriteThroughNull(nullptr);
    });
    TaskOwner owner;
    task.Start(&owner);
    task.Stop();
    EXPECT_EQ(psStopped, task.Status());
    DWORD exitCode = 0;
    ASSERT_TRUE(::GetExitCodeThread(TestSchedulerTraits::lastThread.Get(), &exitCode));
    EXPECT_EQ(static_cast<DWORD>(HRESULT_FROM_NT(EXCEPTION_ACCESS_VIOLATION)), exitCode);
    EXPECT_LE(1u, LogLinesWith("structured exception 0xC0000005"));
}
