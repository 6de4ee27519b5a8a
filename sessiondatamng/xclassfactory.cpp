#include "xclassfactory.h"

#include "xcomobject.h"

#include <vector>

namespace
{
class XClassFactory final : public IClassFactory
{
public:
    explicit XClassFactory(const XObjectMapEntry& entry) : m_entry(entry) {}

    // Class objects are static: their references do not keep the module loaded; LockServer does.
    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override
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
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }

    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        if (!m_entry.create)
            return CLASS_E_CLASSNOTAVAILABLE;
        return m_entry.create(outer, iid, ppv);
    }

    STDMETHODIMP LockServer(BOOL lock) override
    {
        if (lock)
            XComModule::Lock();
        else
            XComModule::Unlock();
        return S_OK;
    }

private:
    const XObjectMapEntry& m_entry;
};

std::vector<XClassFactory>& Factories()
{
    static std::vector<XClassFactory> factories = [] {
        std::vector<XClassFactory> made;
        for (const XObjectMapEntry* entry = XObjectMapBegin(); entry != XObjectMapEnd(); ++entry)
            made.emplace_back(*entry);
        return made;
    }();
    return factories;
}
} // namespace

HRESULT XGetClassObject(REFCLSID clsid, REFIID iid, void** ppv)
{
    if (!ppv)
        return E_POINTER;
    *ppv = nullptr;
    const XObjectMapEntry* entry = XObjectMapFind(clsid);
    if (!entry || !entry->create)
        return CLASS_E_CLASSNOTAVAILABLE;
    return Factories()[static_cast<size_t>(entry - XObjectMapBegin())].QueryInterface(iid, ppv);
}
