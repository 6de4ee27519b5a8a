// Module-wide definitions of the session data manager that belong to no single class: the
// structured-exception translator XSessionDataMng::TranslateCException (source unit "stdafx").
#pragma once

#include "xsessiondatamng.h"
