// Data categories by name or number, as the command line and the profiles write them:
//   global (1), userdb (2), machine (3), user (4), volatile (5), user1..user3 (1000..1002),
//   all (0: the manager reads and lists across volatile, user, machine, userdb, global).
#pragma once

#include "xsessiondatamng_h.h"

#include <string>
#include <vector>

struct XCtlCategory
{
    const char* name;
    SESSIONDATATYPE type;
    int number;
};

// The category a text names; XCtlUsageError for anything else.
XCtlCategory XCtlParseCategory(const std::string& text);
// The categories that can be bound (all but "all"), in number order.
const std::vector<XCtlCategory>& XCtlBindableCategories();
// The categories "all" reads across, in the manager's order.
const std::vector<XCtlCategory>& XCtlMergeOrder();
const char* XCtlCategoryName(SESSIONDATATYPE type);
