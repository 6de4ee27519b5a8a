#include "xsessiondatamngapp.h"

#include "xsdmerror.h"
#include "xsessiondatamngimpl.h"

namespace
{
// Module-specific failure code of start-up (also used by the registry storage).
constexpr HRESULT kInitializationFailed = static_cast<HRESULT>(0x8004080D);
} // namespace

bool XSessionDataMngApp::InitInstance(HINSTANCE instance)
{
    m_instance = instance;
    if (!XSessionDataMngImpl::GetInstance())
    {
        if (XWQError::HandleStandardError(XSdmModuleName(), XWQComBSTR(L"XSessionDataMngApp::InitInstance()"),
                                          __LINE__, XWQComBSTR(L"Initialization failed!"), kInitializationFailed,
                                          true) != 0)
            return false;
    }
    return true;
}

XSessionDataMngApp& XTheApp()
{
    static XSessionDataMngApp app;
    return app;
}
