// SPDX-License-Identifier: MIT
//
// The library, reached as a driver reaches it: through the table that it registers when it loads.
#pragma once

#include <vexil/pubif.h>

namespace vexil_tool {

/** The table; the first call loads the library. */
[[nodiscard]] const _PUBIF_VEXIL &library();

} // namespace vexil_tool
