// Class objects of a COM server: one per entry of its object map, living as long as their owner
// (a module's class objects as long as the module).
#pragma once

#include "xobjectmap.h"

#include <vector>

class XClassFactory final : public IClassFactory
{
public:
    explicit XClassFactory(const XObjectMapEntry& entry) noexcept : m_entry(entry) {}

    // Class objects are held by their owner: their references do not keep the server alive;
    // LockServer does.
    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** ppv) override;
    STDMETHODIMP LockServer(BOOL lock) override;

    const XObjectMapEntry& Entry() const noexcept { return m_entry; }

private:
    const XObjectMapEntry& m_entry;
};

// The class objects of one object map.
class XClassObjects
{
public:
    explicit XClassObjects(const XObjectMap& map);
    XClassObjects(const XClassObjects&) = delete;
    XClassObjects& operator=(const XClassObjects&) = delete;

    // Hands out the class object of the entry for clsid; CLASS_E_CLASSNOTAVAILABLE for any
    // other class and for an entry whose class is not built.
    HRESULT Get(REFCLSID clsid, REFIID iid, void** ppv);
    std::vector<XClassFactory>& Factories() noexcept { return m_factories; }

private:
    const XObjectMap& m_map;
    std::vector<XClassFactory> m_factories;
};
