// SPDX-License-Identifier: MIT
//
// What the catalogues of both kinds of image read of a node.
#pragma once

#include <string>

#include "core/bytes.h"
#include "extmem/children.h"

namespace vexil_tool {

/** A node's name, or nothing. */
[[nodiscard]] inline std::string node_name(node_d node, vexil::WalkBudget &budget)
{
	const char *text = vexil::name_of(node, budget);
	return text ? text : "";
}

/** The version beside a node; zero when it has none. */
[[nodiscard]] inline vexil_version node_version(node_d node, vexil::WalkBudget &budget)
{
	const node_d version = vexil::find_next(node, EXTMEM_TAG_VERSION, budget);
	const vexil::Bytes value = vexil::payload(vexil::child_of(version));
	return value.size() >= sizeof(vexil_version) ? vexil::load<vexil_version>(value.data())
						     : vexil_version{};
}

} // namespace vexil_tool
