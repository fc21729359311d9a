// SPDX-License-Identifier: MIT
//
// Versions of single named parts.

#include "core/bytes.h"
#include "extmem/children.h"

namespace vexil {

bool find_version(node_d root, int tag, const char *name, vexil_version *version)
{
	if (!extmem_node_isvalid(root))
		return false;
	WalkBudget budget(*root.owner);
	for (const node_d holder : Children(root, budget)) {
		const node_d node = child_of(holder);
		if (extmem_fetch_tag(node) != tag)
			continue;
		const node_d property = next_of(node);
		const node_d name_holder = child_of(property);
		if (!budget.spend_bytes(payload(name_holder).size()))
			return false;
		const char *found = text_of(name_holder);
		if (!found || strcmp(found, name) != 0)
			continue;
		const Bytes record = payload(child_of(next_of(property)));
		if (record.size() < sizeof *version)
			return false;
		*version = load<vexil_version>(record.data());
		return true;
	}
	return false;
}

} // namespace vexil
