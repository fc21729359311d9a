// SPDX-License-Identifier: MIT
//
// Values at any alignment, and sizes that cannot wrap.
#pragma once

#include "platform/platform.h"

namespace vexil {

/** Reads a T that may stand at any address. */
template <typename T>
[[nodiscard]] inline T load(const void *from)
{
	T value;
	__builtin_memcpy(&value, from, sizeof value);
	return value;
}

/** Writes a T to any address. */
template <typename T>
inline void store(void *to, T value)
{
	__builtin_memcpy(to, &value, sizeof value);
}

/** True when [offset, offset + size) lies inside [0, limit); never wraps. */
[[nodiscard]] constexpr bool fits(size_t offset, size_t size, size_t limit)
{
	return offset <= limit && size <= limit - offset;
}

/** a + b, or false when the sum wraps. */
[[nodiscard]] constexpr bool add(size_t a, size_t b, size_t *sum)
{
	return !__builtin_add_overflow(a, b, sum);
}

} // namespace vexil
