#include "xstoredarrayhandover.h"

namespace
{
thread_local XStoredArrayHandover* t_offered = nullptr;
} // namespace

XStoredArrayHandover::XStoredArrayHandover(const tagSESSIONDATAVALUE* records, bool offered) noexcept
    : m_records(records), m_offered(offered), m_outer(t_offered)
{
    if (m_offered)
        t_offered = this;
}

XStoredArrayHandover::~XStoredArrayHandover()
{
    if (m_offered)
        t_offered = m_outer;
}

bool XStoredArrayHandover::KeepOffered(const tagSESSIONDATAVALUE* records) noexcept
{
    XStoredArrayHandover* offer = t_offered;
    if (!records || !offer || offer->m_records != records || offer->m_kept)
        return false;
    offer->m_kept = true;
    return true;
}
