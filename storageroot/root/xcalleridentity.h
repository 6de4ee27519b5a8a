// The user a call on the storage root is made for, as the text form of a SID: during a call
// from another process the client's (its token, through the call's security context), with no
// call context (the root used in process) the process's own user. A client cannot choose it;
// tests replace where it comes from (XSetCallerIdentitySource), nothing else does.
#pragma once

#include <string>

// The calling user's SID; raises E_ACCESSDENIED when a call's client cannot be identified.
std::wstring XCallerSid();

// Test seam: the source of the caller's SID (null restores the platform's).
using XCallerIdentitySource = std::wstring (*)();
void XSetCallerIdentitySource(XCallerIdentitySource source) noexcept;
