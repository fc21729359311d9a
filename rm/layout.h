// SPDX-License-Identifier: MIT
//
// Shape of a rule image's tree. "a > b" is first child, "a , b" next sibling, * repeats; every
// holder, case, body and alternative is a GENERAL node.
//
//   root (GENERAL, id 0)
//     > holder * > SOURCE_LABEL , PROPERTY > "source:value" [ , SIZE_HOLDER (u64 slot) ]
//         SOURCE_LABEL > SOURCE_DESCRIPTION (source_desc)
//                      | SOURCE_REDEFINE * > RANGE_HOLDER (range_desc)
//     > holder * > RULE , PROPERTY > "name" , VERSION > VERSION_HOLDER (8 bytes)
//         RULE > case * > body > alternative * > KEY_DESCRIPTION , KEY_RANGE * > RANGE_HOLDER
//                    body , outcome * > VALUE_HOLDER | PRESET_HOLDER (u16 ids) | NODE_HOLDER (u16)
//                KEY_DESCRIPTION > KEY_HOLDER (W words of value, W words of mask)
//     > holder > RULE_USEDBITS (u32)
//     > holder > RES_NUM (u32)
#pragma once

#include "core/bytes.h"
#include "core/json.h"
#include "extmem/children.h"
#include "rm/rm.h"

namespace vexil {

/** Bits that fields may take: what their 16-bit places can say. */
inline constexpr size_t kMaxKeyBits = 65536;
inline constexpr size_t kMaxSlots = 65535;
/** Widest field of a source: its codes have 16 bits. */
inline constexpr u32 kMaxFieldBits = 16;

inline constexpr size_t kBitsPerWord = 64;

/** Words of a key of @bits. */
[[nodiscard]] constexpr size_t key_words(size_t bits)
{
	return bits / kBitsPerWord + (bits % kBitsPerWord != 0);
}

/** Bytes of a key and its mask, in buffers and in key records. */
[[nodiscard]] constexpr size_t key_bytes(size_t words)
{
	return 2 * words * sizeof(u64);
}

/** Makes new key and value buffers, zeroed, for the present counts; false without memory. */
[[nodiscard]] bool make_buffers(rm *context, size_t bits, size_t slots, rm_individual *state);
/** Gives both buffers back. */
void free_buffers(rm *context, rm_individual *state);

/** Messages of the scan that differ between adoption and merging. */
struct ScanReport {
	const char *function;
	const char *refused; // log format: function, name
};
/** Indexes rules and labels below the root, and makes the buffers that its records ask for. */
[[nodiscard]] bool scan_root(rm *context, const ScanReport &report);

/** Node of a source's value slot, kNoNode for sources without one. */
[[nodiscard]] u16 slot_node(rm *context, u16 label);

/** A pending item for @name; dropped when the list is full. */
void add_pending(unres_item_list *list, const char *name, u16 id);
/** Tries every pending range; those that cannot be resolved stay. */
void resolve_ranges(rm *context);
/** Writes the node id of a record that waits for it. False when the record cannot take it. */
bool patch_node_id(rm *context, u16 record, u16 id);

} // namespace vexil
