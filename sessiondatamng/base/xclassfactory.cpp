#include "xclassfactory.h"

#include "xcomobject.h"

STDMETHODIMP XClassFactory::QueryInterface(REFIID iid, void** ppv)
{
    if (!ppv)
        return E_POINTER;
    if (::IsEqualIID(iid, IID_IUnknown) || ::IsEqualIID(iid, IID_IClassFactory))
    {
        *ppv = static_cast<IClassFactory*>(this);
        return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP XClassFactory::CreateInstance(IUnknown* outer, REFIID iid, void** ppv)
{
    if (!ppv)
        return E_POINTER;
    *ppv = nullptr;
    if (!m_entry.create)
        return CLASS_E_CLASSNOTAVAILABLE;
    return m_entry.create(outer, iid, ppv);
}

STDMETHODIMP XClassFactory::LockServer(BOOL lock)
{
    if (lock)
        XComModule::Lock();
    else
        XComModule::Unlock();
    return S_OK;
}

XClassObjects::XClassObjects(const XObjectMap& map) : m_map(map)
{
    for (const XObjectMapEntry* entry = map.begin; entry != map.end; ++entry)
        m_factories.emplace_back(*entry);
}

HRESULT XClassObjects::Get(REFCLSID clsid, REFIID iid, void** ppv)
{
    if (!ppv)
        return E_POINTER;
    *ppv = nullptr;
    const XObjectMapEntry* entry = m_map.Find(clsid);
    if (!entry || !entry->create)
        return CLASS_E_CLASSNOTAVAILABLE;
    return m_factories[static_cast<size_t>(entry - m_map.begin)].QueryInterface(iid, ppv);
}
