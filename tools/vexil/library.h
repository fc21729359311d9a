// SPDX-License-Identifier: MIT
//
// The library, reached as a driver reaches it: through the table that it registers when it loads.
#pragma once

#include <vexil/pubif.h>

namespace vexil_tool {

/** The table; the first call loads the library. */
[[nodiscard]] const _PUBIF_VEXIL &library();

/** Whether the library reads documents of this version: 2.0 to 2.2. */
[[nodiscard]] constexpr bool is_supported(const vexil_version &version)
{
	return version.u16MajorNumber == 2 && version.u16MinorNumber <= 2;
}

/** The library reads documents only; its signatures are older than that promise. */
[[nodiscard]] inline cJSON *unlocked(const cJSON *document)
{
	return const_cast<cJSON *>(document);
}

} // namespace vexil_tool
