// Profiles: which storage each category of an application is bound to.
//   The default profile of --app NAME binds the five categories 1 to 5:
//     global   registry:HKLM\Software\NAME\Global        (shared by every user of the machine)
//     userdb   db:NAME;user;async=5                      (per user, in the storage root's
//                                                         default database, written on the
//                                                         storage's worker, flushed by the tool)
//     machine  registry:HKLM\Software\NAME\Machine
//     user     registry:HKCU\Software\NAME
//     volatile volatile                                  (lives as long as the process: a shell)
//   all of them cached; user1..user3 are not bound.
//   A profile file (JSON) binds any category to any storage target, over the default profile:
//     {"format": "sdmctl-profile", "version": 1, "app": "Suite",
//      "bindings": {"user1": "env", "user": "registry:HKCU\\Software\\Suite;cache=no"}}
//   --bind CATEGORY=STORAGE does the same on the command line, last.
#pragma once

#include "xctlcategory.h"
#include "xctlstoragetarget.h"

#include <map>
#include <string>

struct XCtlProfile
{
    std::string app;
    // By category number.
    std::map<int, std::pair<XCtlCategory, XCtlStorageTarget>> bindings;
};

XCtlProfile XCtlDefaultProfile(const std::string& app);
// Applies a profile file over profile; XCtlUsageError for a missing file, malformed JSON, an
// unknown category, a bad storage target or a newer format.
void XCtlLoadProfile(const std::string& path, XCtlProfile& profile);
// Applies "CATEGORY=STORAGE".
void XCtlApplyBind(const std::string& binding, XCtlProfile& profile);
