// SPDX-License-Identifier: MIT
//
// Shape of a map's tree. "a > b" is first child, "a , b" next sibling, * repeats; every holder is a
// GENERAL node; "label" and the like are STRING_HOLDER items with their NUL.
//
//   root (GENERAL, id 0)
//     > holder * > IP , PROPERTY > "name"  , VERSION > VERSION_HOLDER (8 bytes)
//         IP > holder * > IP_SETTING , PROPERTY > "name" , PQLEVEL > PQLEVEL_HOLDER (4 bytes)
//             IP_SETTING > holder * > configuration , PROPERTY > "setting#member" [ , "table" ]
//                 configuration > holder * > block
//     > holder * > FILE , PROPERTY > "name"
//         FILE > DATA
//
// A configuration is an IP_CONFIG, an IP_PRESET_REG_CONFIG (whose property is followed by the name
// of its register table, one item shared by all members of the setting) or an
// IP_COMMON_REG_CONFIG. A block is a register list (reg_func), or FUNCTION_DATA or ALGORITHM_DATA:
// > "file" , "handler label or entry name".
#pragma once

#include "core/bytes.h"
#include "extmem/children.h"
#include "pim/pim.h"

namespace vexil {

inline constexpr size_t kRegListHeader = sizeof(reg_func);

/** Bytes of a register list of @pairs. */
[[nodiscard]] constexpr size_t reg_list_bytes(size_t pairs)
{
	return kRegListHeader + pairs * sizeof(func_pair);
}

/** Pairs that a register list says it holds; the record must have room for the count. */
[[nodiscard]] inline u32 pair_count(Bytes list)
{
	return load<u32>(list.data());
}

/** True when the record holds the header and all the pairs that it announces. */
[[nodiscard]] inline bool holds_its_pairs(Bytes list)
{
	return list.size() >= kRegListHeader &&
	       pair_count(list) <= (list.size() - kRegListHeader) / sizeof(func_pair);
}

[[nodiscard]] inline bool is_hardware_level_tag(int tag)
{
	return tag >= EXTMEM_TAG_REGISTER_ADDR_IND_SETTINGS &&
	       tag <= EXTMEM_TAG_REGISTER_ADDR_L3_SETTINGS;
}

/** Indexes every IP and file below the root. False when one could not be. */
[[nodiscard]] bool scan_root(pim *map);

/** The blocks of @config, in order, within a walk over more of the tree. */
u32 load_node(pim *map, node_d config, u32 budget, vexil_callback fn, void *context, WalkBudget &walk);

/** The node of an id that a caller gave; reports and is invalid when it is not in the map. */
[[nodiscard]] node_d checked_node(pim *map, u16 node_id, const char *function);

} // namespace vexil
