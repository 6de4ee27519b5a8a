// The application object's start-up: it creates the manager's core, and refuses the load with
// "Initialization failed!" (0x8004080D) when it cannot.
#include "testenv.h"
#include "xsessiondatamngapp.h"
#include "xsessiondatamngimpl.h"

#include <gtest/gtest.h>

namespace
{
XSessionDataMngImpl* FailingFactory()
{
    return nullptr;
}
} // namespace

TEST(XSessionDataMngApp, RefusesTheLoadWhenTheCoreCannotBeMade)
{
    XSessionDataMngImpl::SetFactory(FailingFactory);
    XSessionDataMngApp app;
    EXPECT_FALSE(app.InitInstance(::GetModuleHandleW(nullptr)));
    const ErrorInfoText info = TakeErrorInfo();
    ASSERT_TRUE(info.present);
    EXPECT_EQ(L"Initialization failed!", info.description);
    bool logged = false;
    for (const std::string& line : ReadLogBook())
        logged |= line.find("XSessionDataMngApp::InitInstance()") != std::string::npos &&
                  line.find("hr=0x8004080D") != std::string::npos &&
                  line.find("Initialization failed!") != std::string::npos;
    EXPECT_TRUE(logged);

    XSessionDataMngImpl::SetFactory(nullptr);
    EXPECT_TRUE(app.InitInstance(::GetModuleHandleW(nullptr)));
    EXPECT_NE(nullptr, XSessionDataMngImpl::GetInstance());
    EXPECT_EQ(::GetModuleHandleW(nullptr), app.Instance());
}
