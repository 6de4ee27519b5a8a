// The manager class offers the module's structured-exception translator under its own name.
#include "XWQException.h"
#include "testenv.h"
#include "xsessiondatamng.h"

#include <gtest/gtest.h>

TEST(ManagerTranslator, TheManagersTranslatorRaisesTheModulesExceptionUnderItsName)
{
    EXCEPTION_RECORD record{};
    record.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
    CONTEXT context{};
    EXCEPTION_POINTERS pointers{&record, &context};
    bool raised = false;
    try
    {
        XSessionDataMng::TranslateCException(EXCEPTION_ACCESS_VIOLATION, &pointers);
    }
    catch (const XWrappedWQException& translated)
    {
        raised = true;
        EXPECT_EQ(HRESULT_FROM_NT(EXCEPTION_ACCESS_VIOLATION), translated.Result());
        EXPECT_EQ("stdafx", translated->Location().SourceUnit());
        EXPECT_EQ(L"XSessionDataMng::TranslateCException", translated->Location().Function().ToWString());
    }
    EXPECT_TRUE(raised);
}
