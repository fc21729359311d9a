// SPDX-License-Identifier: MIT
//
// Fields of a key.
#pragma once

#include "rm/layout.h"

namespace vexil {

/**
 * Reads the field of a plain label. False for labels without one (redefined sources) and for fields
 * that are too wide or lie outside a key of @words.
 */
[[nodiscard]] inline bool read_field(node_d label, size_t words, source_desc *field)
{
	const node_d holder = child_of(label);
	const Bytes record = payload(holder);
	if (extmem_fetch_tag(holder) != EXTMEM_TAG_SOURCE_DESCRIPTION ||
	    record.size() < sizeof *field)
		return false;
	*field = load<source_desc>(record.data());
	return field->width >= 1 && field->width <= kMaxFieldBits &&
	       size_t{field->shift} + field->width <= words * kBitsPerWord;
}

/** Puts @bits, and the mask that they belong to, into one word. */
inline void put_bits(u64 *value, u64 *mask, u64 field_mask, u64 bits)
{
	*mask |= field_mask;
	*value = (*value & ~field_mask) | bits;
}

/**
 * Sets a field: its code in @value, all its bits in @mask. What stood in it before is gone. Fields
 * may run into the next word.
 */
inline void set_field(u64 *value, u64 *mask, const source_desc &field)
{
	const size_t word = field.shift / kBitsPerWord;
	const unsigned bit = field.shift % kBitsPerWord;
	const u64 bits = (u64{1} << field.width) - 1;
	const u64 code = field.rank;
	put_bits(&value[word], &mask[word], bits << bit, code << bit);
	if ((size_t{field.shift} + field.width - 1) / kBitsPerWord > word) {
		const unsigned stored = kBitsPerWord - bit; // fewer than the width, so bit > 0
		put_bits(&value[word + 1], &mask[word + 1], bits >> stored, code >> stored);
	}
}

} // namespace vexil
