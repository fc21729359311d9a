// SPDX-License-Identifier: MIT
//
// Common lists: a reg_func with room for 500 pairs.
#pragma once

#include "pim/pim.h"

namespace vexil {

inline constexpr u32 kMaxCommonPairs = 500;
inline constexpr size_t kCommonListBytes = sizeof(reg_func) + kMaxCommonPairs * sizeof(func_pair);
static_assert(kCommonListBytes == 4008);

enum class Narrowed {
	kSomeLeft,
	kNothingLeft, // no register is common any more
	kNoMemory,    // the list is as it was
};

/**
 * Keeps the pairs of @common that @member has too, in the member's order; a list without pairs takes
 * all of the member's. Never more than 500.
 */
[[nodiscard]] Narrowed narrow_common(pim *map, const cJSON *member, reg_func *common);

/** True when the list holds the same register with the same value. */
[[nodiscard]] bool contains(const reg_func *list, func_pair pair);

} // namespace vexil
