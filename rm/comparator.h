// SPDX-License-Identifier: MIT
//
// Conditions of a case into its alternatives.
#pragma once

#include "core/json.h"
#include "rm/rm.h"

namespace vexil {

enum class Compiled {
	kDone,
	kRefused, // the document's fault, and logged: the case is left out
	kNoRoom,  // no memory or nodes: nothing after it would fare better
};

/**
 * Compiles @comparator into alternatives below @body, in the order in which they are tried. Without
 * success, what was made is reached from @body only.
 */
[[nodiscard]] Compiled compile_comparator(rm *context, const cJSON *comparator, node_d body);

} // namespace vexil
