#include "soakfaultroot.h"

#include "xcomtypes.h"

#include <set>

namespace
{
// What a failing call answers: mostly E_FAIL, else one of the codes of a lost connection.
const HRESULT kFaults[] = {E_FAIL, E_FAIL, E_FAIL, RPC_E_DISCONNECTED, HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE),
                           HRESULT_FROM_WIN32(RPC_S_CALL_FAILED)};
const unsigned kFaultPercent = 10;
const unsigned kSlowPercent = 1;
} // namespace

SoakFaultRoot* SoakFaultRoot::Create(unsigned seed)
{
    SoakFaultRoot* root = new XComObject<SoakFaultRoot>();
    root->m_random.seed(seed);
    root->AddRef();
    return root;
}

bool SoakFaultRoot::IsFault(HRESULT hr)
{
    for (const HRESULT fault : kFaults)
        if (hr == fault)
            return true;
    return false;
}

HRESULT SoakFaultRoot::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IWQ_SessionDataIOEx, IWQ_SessionDataIO>(this, iid, ppv);
}

void SoakFaultRoot::Quiet()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_quiet = true;
}

int SoakFaultRoot::NextEpoch()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_quiet = false;
    return ++m_epoch;
}

HRESULT SoakFaultRoot::WriteFaultOf(int epoch) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_writeFaults.find(epoch);
    return found == m_writeFaults.end() ? S_OK : found->second;
}

std::map<int, HRESULT> SoakFaultRoot::WriteFaults() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_writeFaults;
}

SoakFaultRoot::Counts SoakFaultRoot::Totals() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_counts;
}

HRESULT SoakFaultRoot::Decide(bool write)
{
    ++m_counts.calls;
    if (m_random() % 100 < kSlowPercent)
    {
        // Slow, not blocked: the calls of the other threads queue behind this one in the apartment.
        ++m_counts.slow;
        ::Sleep(10 + m_random() % 90);
    }
    if (m_quiet || m_random() % 100 >= kFaultPercent)
        return S_OK;
    const HRESULT fault = kFaults[m_random() % (sizeof(kFaults) / sizeof(kFaults[0]))];
    if (!write)
    {
        ++m_counts.readFaults;
        return fault;
    }
    if (m_writeFaults.count(m_epoch))
        return S_OK;
    m_writeFaults[m_epoch] = fault;
    ++m_counts.writeFaults;
    return fault;
}

STDMETHODIMP SoakFaultRoot::WriteStringList(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pSessionDataList)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const HRESULT hr = Decide(true);
    if (FAILED(hr))
        return hr;
    if (ulCount && !pSessionDataList)
        return E_POINTER;
    auto& values = m_store[XLowered(XBstrView(bstrKeyName))];
    for (ULONG i = 0; i < ulCount; ++i)
        values[XLowered(XBstrView(pSessionDataList[i].bstrValueName))] = XBstrView(pSessionDataList[i].bstrValue);
    return S_OK;
}

STDMETHODIMP SoakFaultRoot::DeleteKey(BSTR bstrKeyName)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const HRESULT hr = Decide(true);
    if (FAILED(hr))
        return hr;
    // The key and its subtree.
    const std::wstring key = XLowered(XBstrView(bstrKeyName));
    for (auto it = m_store.begin(); it != m_store.end();)
        if (it->first == key || it->first.compare(0, key.size() + 1, key + L"/") == 0)
            it = m_store.erase(it);
        else
            ++it;
    return S_OK;
}

STDMETHODIMP SoakFaultRoot::GetStringList(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppSessionDataList)
{
    if (!pulCount || !ppSessionDataList)
        return E_POINTER;
    std::lock_guard<std::mutex> lock(m_mutex);
    const HRESULT hr = Decide(false);
    if (FAILED(hr))
        return hr;
    const auto found = m_store.find(XLowered(XBstrView(bstrKeyName)));
    if (found == m_store.end() || found->second.empty())
        return S_FALSE;
    XValueArray list = XValueArrayOf(
        found->second, static_cast<ULONG>(found->second.size()), [](const auto& pair) { return std::wstring_view(pair.first); },
        [](const auto& pair) { return std::wstring_view(pair.second); });
    list.Release(pulCount, ppSessionDataList);
    return S_OK;
}

STDMETHODIMP SoakFaultRoot::GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList)
{
    if (!pulCount || !ppKeyNameList)
        return E_POINTER;
    std::lock_guard<std::mutex> lock(m_mutex);
    const HRESULT hr = Decide(false);
    if (FAILED(hr))
        return hr;
    // Full key names below the key: its children, or with ulRecursive every key down the tree.
    const std::wstring prefix = XLowered(XBstrView(bstrKeyName)) + L"/";
    std::set<std::wstring> names;
    for (const auto& [key, values] : m_store)
    {
        if (values.empty() || key.compare(0, prefix.size(), prefix) != 0)
            continue;
        for (size_t slash = key.find(L'/', prefix.size()); ulRecursive && slash != std::wstring::npos;
             slash = key.find(L'/', slash + 1))
            names.insert(key.substr(0, slash));
        const size_t first = key.find(L'/', prefix.size());
        names.insert(ulRecursive || first == std::wstring::npos ? key : key.substr(0, first));
    }
    XBstrArray list = XBstrArrayOf(names, static_cast<ULONG>(names.size()),
                                   [](const std::wstring& name) { return std::wstring_view(name); });
    list.Release(pulCount, ppKeyNameList);
    return S_OK;
}
