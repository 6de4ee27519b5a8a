#include "managerfixture.h"

void ManagerTest::SetUp()
{
    ASSERT_EQ(S_OK, XCreateComObject<XSessionDataMng>(nullptr, IID_IWQ_SessionDataMng,
                                                      reinterpret_cast<void**>(mng.ReleaseAndGetAddressOf())));
}

void ManagerTest::TearDown()
{
    mng.Reset();
    ios.clear();
}

RecordingIO* ManagerTest::Bind(LONG key, bool extended)
{
    RecordingIO* io = RecordingIO::Create(extended);
    EXPECT_EQ(S_OK, mng->SetStorageIO(io, Cat(key)));
    XComPtr<RecordingIO> held;
    held.Attach(io);
    ios.push_back(held);
    return io;
}

void SetBstr(XVariant& v, const wchar_t* text)
{
    ::VariantClear(&v);
    v.Get().vt = VT_BSTR;
    v.Get().bstrVal = ::SysAllocString(text);
}
