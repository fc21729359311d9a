// SPDX-License-Identifier: MIT
//
// Conditions of a case into its alternatives.
#pragma once

#include "core/json.h"
#include "rm/rm.h"

namespace vexil {

/**
 * Compiles @comparator into alternatives below @body, in the order in which they are tried.
 *
 * Return: false when the case cannot be compiled (logged) or there is no room; what was made is
 * reached from @body only.
 */
[[nodiscard]] bool compile_comparator(rm *context, const cJSON *comparator, node_d body);

} // namespace vexil
