// SPDX-License-Identifier: MIT
//
// Evaluation on any state: the context's own, or a handler's.
#pragma once

#include "rm/rm.h"

namespace vexil {

/** rm_trigger on @state; messages name @function. */
[[nodiscard]] bool trigger(rm *context, rm_individual *state, const char *rule_name,
			   const char *function);

/** How the one-shot reports. */
struct FindReport {
	const char *function;
	bool failed_rules; // whether rules that cannot be evaluated are logged
};
/** Sets and evaluates in the context's own state; only @emptied's lists start anew. */
[[nodiscard]] bool find(rm *context, rm_individual *emptied, const char *source_filter,
			const char *rule_name, const FindReport &report);

/** Zeroes both buffers; false when one is missing. */
[[nodiscard]] bool clear(const rm *context, rm_individual *state);

/** A list and its length. */
size_t get_list(const rm_result &list, u16 **out);

} // namespace vexil
