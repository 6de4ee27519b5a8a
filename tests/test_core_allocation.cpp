// A core that cannot be allocated is reported by every manager method through the pointer check.
// Runs in a process of its own, before any core exists.
#include "testenv.h"
#include "xsessiondatamng.h"
#include "xsessiondatamngimpl.h"

#include <gtest/gtest.h>

namespace
{
XSessionDataMngImpl* FailingFactory()
{
    return nullptr;
}
} // namespace

TEST(ManagerCore, AllocationFailureIsReportedWithEPointerAndErrorInfo)
{
    XSessionDataMngImpl::SetFactory(FailingFactory);
    XComPtr<IWQ_SessionDataMng> mng;
    ASSERT_EQ(S_OK, XCreateComObject<XSessionDataMng>(nullptr, IID_IWQ_SessionDataMng,
                                                      reinterpret_cast<void**>(mng.ReleaseAndGetAddressOf())));
    EXPECT_EQ(E_POINTER, mng->IsInit(static_cast<SESSIONDATATYPE>(1)));
    const ErrorInfoText info = TakeErrorInfo();
    ASSERT_TRUE(info.present);
    EXPECT_EQ(L"WQSessionDataMng", info.source);
    EXPECT_TRUE(::IsEqualGUID(IID_IWQ_SessionDataMng, info.guid));
    bool logged = false;
    for (const std::string& line : ReadLogBook())
        logged |= line.find("XSessionDataMng::IsInit") != std::string::npos &&
                  line.find("xsessiondatamng:") != std::string::npos;
    EXPECT_TRUE(logged);
    EXPECT_EQ(E_POINTER, mng->FlushCache(static_cast<SESSIONDATATYPE>(0)));

    XSessionDataMngImpl::SetFactory(nullptr);
    EXPECT_EQ(S_FALSE, mng->IsInit(static_cast<SESSIONDATATYPE>(1)));
    mng.Reset();
}
