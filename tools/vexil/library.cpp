// SPDX-License-Identifier: MIT

#include "library.h"

#include "errors.h"
#include "platform/host/host.h"

namespace vexil_tool {

const _PUBIF_VEXIL &library()
{
	static const _PUBIF_VEXIL *const table = [] {
		init_module();
		return vexil_host_table();
	}();
	if (!table)
		throw Failure(Exit::kRefused, "the library did not register its table");
	return *table;
}

} // namespace vexil_tool
