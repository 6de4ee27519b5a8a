// A storage root for the soak that fails on purpose: an IWQ_SessionDataIOEx over an in-memory
// store (the "database" of the category it serves) that fails about one call in ten, with E_FAIL
// or an RPC code, and answers some calls slowly.
// Reads (GetStringList, GetSubKeys) fail freely: the caller sees the failure at once. Writes
// (WriteStringList, DeleteKey) are the calls the asynchronous delegator pipes: their failure
// reaches the client only through a later flush or GetLastErrorAsyncExecution, which report the
// first failure of a storage for the storage's whole life. So the root fails at most one write per
// epoch: the soak starts an epoch with each new storage, and checks at the end that every epoch
// with an injected write failure was reported, with that HRESULT, and no other.
// A failed call changes nothing in the store.
#pragma once

#include "sessiondataioexnotimpl.h"
#include "xcomobject.h"

#include <atomic>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <vector>

class SoakFaultRoot : public SessionDataIOExNotImpl
{
public:
    struct Counts
    {
        long long calls = 0;
        long long slow = 0;
        long long readFaults = 0;
        long long writeFaults = 0;
    };

    static SoakFaultRoot* Create(unsigned seed);
    // Whether an HRESULT is one that this root answers for a fault.
    static bool IsFault(HRESULT hr);
    HRESULT InternalQueryInterface(REFIID iid, void** ppv);

    // Quiet: no fault until the next epoch (while a storage is being replaced, whose last writes
    // could otherwise fail with no one left to report them).
    void Quiet();
    // A new epoch (with a new storage); returns its number. Ends quiet.
    int NextEpoch();
    // The write failure injected in an epoch (S_OK if none).
    HRESULT WriteFaultOf(int epoch) const;
    std::map<int, HRESULT> WriteFaults() const;
    Counts Totals() const;

    STDMETHODIMP WriteStringList(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pSessionDataList) override;
    STDMETHODIMP DeleteKey(BSTR bstrKeyName) override;
    STDMETHODIMP GetStringList(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppSessionDataList) override;
    STDMETHODIMP GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount, BSTR** ppKeyNameList) override;

private:
    // The fault (or S_OK) for a call, after a slow answer now and then; with the lock held.
    HRESULT Decide(bool write);

    mutable std::mutex m_mutex;
    std::mt19937 m_random{1};
    int m_epoch = 0;
    bool m_quiet = false;
    std::map<int, HRESULT> m_writeFaults;
    Counts m_counts;
    std::map<std::wstring, std::map<std::wstring, std::wstring>> m_store;
};
