// Lifetime of bindings: Terminate, the last manager object, SetInvalid and Validate.
#include "managerfixture.h"

TEST_F(ManagerTest, DestroyingTheLastManagerReleasesAllBindings)
{
    RecordingIO* io = Bind(2);
    Bind(5);
    const LONG held = io->References();
    EXPECT_EQ(1, XSessionDataMng::LiveObjects());
    mng.Reset();
    EXPECT_EQ(0, XSessionDataMng::LiveObjects());
    EXPECT_EQ(held - 1, io->References());
    ASSERT_EQ(S_OK, XCreateComObject<XSessionDataMng>(nullptr, IID_IWQ_SessionDataMng,
                                                      reinterpret_cast<void**>(mng.ReleaseAndGetAddressOf())));
    for (LONG key = 1; key <= 5; ++key)
        EXPECT_EQ(S_FALSE, mng->IsInit(Cat(key)));
}

TEST_F(ManagerTest, BindingsSurviveWhileAnotherManagerLives)
{
    Bind(2);
    XComPtr<IWQ_SessionDataMng> second;
    ASSERT_EQ(S_OK, XCreateComObject<XSessionDataMng>(nullptr, IID_IWQ_SessionDataMng,
                                                      reinterpret_cast<void**>(second.ReleaseAndGetAddressOf())));
    mng.Reset();
    EXPECT_EQ(S_OK, second->IsInit(Cat(2)));
    mng = second;
}

TEST_F(ManagerTest, TerminateReleasesAllBindings)
{
    RecordingIO* io = Bind(1);
    const LONG held = io->References();
    EXPECT_EQ(S_OK, XSessionDataMng::Terminate());
    EXPECT_EQ(held - 1, io->References());
    EXPECT_EQ(S_FALSE, mng->IsInit(Cat(1)));
}

TEST_F(ManagerTest, AnInvalidManagerKeepsServingUntilValidate)
{
    RecordingIO* io = Bind(3);
    io->SetValue(L"k", L"v", L"x");
    EXPECT_EQ(S_OK, mng->Validate());
    EXPECT_EQ(S_OK, mng->IsInit(Cat(3)));
    EXPECT_EQ(S_OK, mng->SetInvalid());
    XVariant value;
    EXPECT_EQ(S_OK, mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), VT_BSTR, &value, Cat(3)));
    EXPECT_EQ(S_OK, mng->IsInit(Cat(3)));
    EXPECT_EQ(S_OK, mng->Validate());
    EXPECT_EQ(S_FALSE, mng->IsInit(Cat(3)));
}

TEST_F(ManagerTest, ValidateKeepsReleasingBindingsMadeAfterSetInvalid)
{
    EXPECT_EQ(S_OK, mng->SetInvalid());
    EXPECT_EQ(S_OK, mng->Validate());
    RecordingIO* io = Bind(4);
    const LONG held = io->References();
    EXPECT_EQ(S_OK, mng->IsInit(Cat(4)));
    EXPECT_EQ(S_OK, mng->Validate());
    EXPECT_EQ(S_FALSE, mng->IsInit(Cat(4)));
    EXPECT_EQ(held - 1, io->References());
}
