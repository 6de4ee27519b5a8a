#include "statthread.h"

StaThread::StaThread()
    : m_apartment(
          [this](XComPtr<IUnknown>& object) {
              m_root = FakeStorageRoot::Create();
              XComPtr<IWQ_SessionDataIOEx> root;
              root.Attach(m_root);
              m_rootInterface = root.Get();
              object = XComPtr<IUnknown>(root.Get());
              return S_OK;
          },
          IID_IWQ_SessionDataIOEx)
{
}

void StaThread::Run(const std::function<void(IWQ_SessionDataIOEx*)>& work)
{
    m_apartment.Run([this, &work] { work(m_rootInterface); });
}
