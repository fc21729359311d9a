// SPDX-License-Identifier: MIT
//
// The allocation triple that every store, trie and JSON document uses, and the rule by which
// their buffers grow.
#pragma once

#include <vexil/mem.h>

#include "platform/platform.h"

VEXIL_BEGIN_C

/**
 * ALLOC - a block of @size bytes from the kernel allocator
 *
 * May sleep; not zeroed. Return: NULL on failure, and for sizes above INT_MAX, which the kernel
 * would answer with a backtrace. A size of 0 gives a block that can be freed.
 */
[[nodiscard]] void *ALLOC(size_t size);

/** DEALLOC - give a block back; NULL is allowed. */
void DEALLOC(void *ptr);

/**
 * REALLOC - move a block to one of another size
 * @ptr:    may be NULL: then a plain allocation
 * @old_sz: bytes of @ptr in use
 * @new_sz: size wanted; what lies beyond @old_sz is not zeroed
 *
 * Return: the new block, the old one being freed; NULL on failure, @ptr staying as it was.
 */
[[nodiscard]] void *REALLOC(void *ptr, size_t old_sz, size_t new_sz);

VEXIL_END_C

namespace vexil {

using AllocateFn = void *(*)(size_t);
using DeallocateFn = void (*)(void *);
using ReallocateFn = void *(*)(void *, size_t, size_t);

/** First size that text buffers and stores start with, in bytes. */
inline constexpr size_t kInitialCapacity = 1024;

/**
 * The first of capacity, 2 x capacity, 4 x capacity ... that is at least @needed.
 * Return: 0 when there is none (capacity 0, or the doubling would wrap).
 */
[[nodiscard]] constexpr size_t grown_capacity(size_t capacity, size_t needed)
{
	while (capacity < needed) {
		if (capacity == 0 || capacity > __SIZE_MAX__ / 2)
			return 0;
		capacity *= 2;
	}
	return capacity;
}

} // namespace vexil
