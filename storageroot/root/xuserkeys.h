// Per-user keys of the storage root. A key whose first name is the user-profile prefix
// "<[HKCU]>" belongs to the calling user: before it reaches the cache or the database, that
// name becomes the user's own, "<[user:<SID>]>", and every name the root hands back turns it
// into "<[HKCU]>" again (the database storage cuts its root key off returned names by length,
// so the client must see its own spelling). Keys without the prefix are shared by all users. A
// key that names a user itself ("<[user:...") is refused: nobody reaches another user's data.
// Listings show the caller its own names only: other users' keys are left out.
// Names compare without regard to case, as the SQL storage compares keys.
#pragma once

#include "XWQComBSTR.h"
#include "xcomtypes.h"

#include <string>

namespace XUserKeys
{
// Whether key begins with the user-profile prefix.
bool IsUserProfileKey(const wchar_t* key) noexcept;
// The key as the cache and the database keep it: for a user-profile key the prefix replaced by
// the caller's name (XCallerSid), held by mapped; any other key itself, unchanged (null too).
// E_ACCESSDENIED (raised) for a key that names a user.
BSTR ToStorage(BSTR key, XWQComBSTR& mapped);
// Names handed back by the storage, as the caller may see them: its own user name turned into
// the prefix, other users' names left out (the array shrinks; their strings are freed).
void ToClient(XBstrArray& names);
void ToClient(XKeyValueArray& records);
} // namespace XUserKeys
