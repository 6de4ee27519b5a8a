// XStoredArrayHandover: who frees the value array of a StoreData call, between the cached IO
// layer and a user-profile database storage.
//
// The rule: the cached layer leaves the array of a store that succeeds to a user-profile
// database storage, which takes it over (it queues such arrays for its asynchronous writes and
// frees them itself); in every other case the layer frees its array. The storage takes an array
// only when it is the one the layer offered on the same thread for that very call, i.e. when the
// layer called it directly, in-process. An array that reached the storage any other way
// (through a proxy and its stub, from the uncached layer, from any other client) is never taken:
// its caller still owns it, so no array is freed twice or used after its caller freed it.
//
//   the layer:    XStoredArrayHandover offer(array, storageKeepsArrays);
//                 hr = storage->StoreData(key, count, array);
//                 if (SUCCEEDED(hr) && offer.Kept()) ...the array is the storage's now
//   the storage:  if (SUCCEEDED(hr) && XStoredArrayHandover::KeepOffered(records)) ...it is ours
#pragma once

#include "xsessiondatamng_h.h"

class XStoredArrayHandover
{
public:
    // Offers records on this thread for the length of one StoreData call; an offer that is not
    // made (offered false) leaves the array to the caller whatever the storage does.
    XStoredArrayHandover(const tagSESSIONDATAVALUE* records, bool offered) noexcept;
    ~XStoredArrayHandover();
    XStoredArrayHandover(const XStoredArrayHandover&) = delete;
    XStoredArrayHandover& operator=(const XStoredArrayHandover&) = delete;

    // Whether the storage kept the array during the call.
    bool Kept() const noexcept { return m_kept; }
    // Called by a storage that keeps arrays, after a store that succeeded: true (and records
    // are the storage's from now on) when they are the array offered on this thread.
    static bool KeepOffered(const tagSESSIONDATAVALUE* records) noexcept;

private:
    const tagSESSIONDATAVALUE* m_records;
    bool m_offered;
    bool m_kept = false;
    XStoredArrayHandover* m_outer;  // an offer of an enclosing call on this thread
};
