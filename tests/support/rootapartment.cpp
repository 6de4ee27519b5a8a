#include "rootapartment.h"

RootApartment::RootApartment() : m_storage(RecordingStorage::Create(RecordingStorage::Pose::Extended))
{
    m_apartment = std::make_unique<StaApartment>(
        [this](XComPtr<IUnknown>& object) {
            XComPtr<IWQ_SessionDataIOEx> root;
            HRESULT hr = ::CoCreateInstance(CLSID_WQ_SessionDataIOEx, nullptr, CLSCTX_INPROC_SERVER,
                                            IID_IWQ_SessionDataIOEx,
                                            reinterpret_cast<void**>(root.ReleaseAndGetAddressOf()));
            if (SUCCEEDED(hr))
                hr = root->SetStorage(m_storage->Storage());
            m_rawRoot = root.Get();
            object = XComPtr<IUnknown>(root.Get());
            return hr;
        },
        IID_IWQ_SessionDataIOEx);
}

RootApartment::~RootApartment()
{
    m_apartment.reset();  // the root goes with its apartment, before its storage
    m_storage->Storage()->Release();
}
