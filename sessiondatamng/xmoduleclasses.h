// The classes of WQSessionDataMng64.dll: its object map, in registration and lookup order.
#pragma once

#include "xobjectmap.h"

const XObjectMap& XModuleObjectMap();
