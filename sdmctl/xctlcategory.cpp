#include "xctlcategory.h"

#include "xctlfailure.h"

#include <cstring>

namespace
{
// The manager keys its categories by the plain numbers (its all-categories walk visits 5 to 1),
// not by the type library's enumeration values (0x8C000000 upwards): the plain numbers are passed.
constexpr SESSIONDATATYPE Plain(int number)
{
    return static_cast<SESSIONDATATYPE>(number);
}

const XCtlCategory kAll{"all", Plain(0), 0};

const std::vector<XCtlCategory>& Bindable()
{
    static const std::vector<XCtlCategory> categories = {
        {"global", Plain(1), 1},     {"userdb", Plain(2), 2},     {"machine", Plain(3), 3},
        {"user", Plain(4), 4},       {"volatile", Plain(5), 5},   {"user1", Plain(1000), 1000},
        {"user2", Plain(1001), 1001}, {"user3", Plain(1002), 1002}};
    return categories;
}
} // namespace

XCtlCategory XCtlParseCategory(const std::string& text)
{
    if (text == kAll.name || text == "0")
        return kAll;
    for (const XCtlCategory& category : Bindable())
        if (text == category.name || text == std::to_string(category.number))
            return category;
    throw XCtlUsageError("unknown category '" + text +
                         "' (global, userdb, machine, user, volatile, user1, user2, user3, all, or 0-5, 1000-1002)");
}

const std::vector<XCtlCategory>& XCtlBindableCategories()
{
    return Bindable();
}

const std::vector<XCtlCategory>& XCtlMergeOrder()
{
    static const std::vector<XCtlCategory> order = {Bindable()[4], Bindable()[3], Bindable()[2], Bindable()[1],
                                                    Bindable()[0]};
    return order;
}

const char* XCtlCategoryName(SESSIONDATATYPE type)
{
    if (type == kAll.type)
        return kAll.name;
    for (const XCtlCategory& category : Bindable())
        if (category.type == type)
            return category.name;
    return "?";
}
