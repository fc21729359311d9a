// SPDX-License-Identifier: MIT
//
// Export, and a sub map over a base map.

#include "extmem/tree.h"
#include "pim/layout.h"

namespace {

using vexil::kInvalidNode;
using vexil::WalkBudget;

void inherit(pim *map, const pim *base)
{
	map->total_version = base->total_version;
	map->hwreg_json_version = base->hwreg_json_version;
	map->swreg_json_version = base->swreg_json_version;
	map->cus_swreg_json_version = base->cus_swreg_json_version;
	memcpy(map->cus_version, base->cus_version, sizeof map->cus_version);
	map->alg_fn = base->alg_fn;
}

/** The base's node of the same kind and name; invalid when there is none. */
node_d namesake(pim *map, const pim *base, node_d node, WalkBudget &budget)
{
	const ctrie &names =
		extmem_fetch_tag(node) == EXTMEM_TAG_FILE ? base->file_map : base->ip_map;
	const int id = ctrie_find(&names, vexil::name_of(node, budget));
	if (id == vexil::kNoValue)
		return kInvalidNode;
	return extmem_create_node_d(&map->builder, static_cast<u16>(id));
}

/** Everything below @node takes the place of what is below @replaced. */
void replace_content(node_d replaced, node_d node)
{
	extmem_node record = extmem_fetch_node(replaced);
	record.u.link.childId = extmem_fetch_node(node).u.link.childId;
	extmem_set_node(&replaced, record);
}

/** Links or merges each of the sub's holders into the root's list. False for a damaged sub. */
bool overlay(pim *map, const pim *base, node_d sub_root)
{
	WalkBudget budget(map->builder);
	return vexil::take_holders(map->root, &map->root_tail_hint, sub_root, budget, [&](node_d node) {
		const int tag = extmem_fetch_tag(node);
		if (tag != EXTMEM_TAG_FILE && tag != EXTMEM_TAG_IP)
			return false;
		const node_d replaced = namesake(map, base, node, budget);
		if (!extmem_node_isvalid(replaced))
			return true;
		replace_content(replaced, node);
		return false;
	});
}

} // namespace

extern "C" {

size_t pim_get_export_size(pim *pPim)
{
	return pPim ? extmem_builder_get_export_size(&pPim->builder) : 0;
}

size_t pim_export(pim *pPim, char *buf)
{
	if (!pPim)
		return 0;
	extmem_buffer_header &header = pPim->builder.header;
	vexil::fill_header(&header, vexil::kPimImageKind, pPim->total_version, pPim->cus_version);
	header.hw_json_version = pPim->hwreg_json_version;
	header.sw_json_version = pPim->swreg_json_version;
	header.cus_sw_json_version = pPim->cus_swreg_json_version;
	return extmem_builder_export(&pPim->builder, buf);
}

bool pim_merge(pim *pPim, pim *pPim_base, pim *pPim_sub)
{
	if (!pPim || !pPim_base || !pPim_sub ||
	    !vexil::merge_target_usable(&pPim->builder, &pPim_base->builder, &pPim_sub->builder))
		return false;
	pPim->max_node_index = extmem_request_max_node_id(&pPim_base->builder);
	inherit(pPim, pPim_base);
	if (!vexil::merge_stores(&pPim->builder, &pPim_base->builder, &pPim_sub->builder))
		return false;
	const auto sub_root = static_cast<u16>(pPim->max_node_index + 1);
	return overlay(pPim, pPim_base, extmem_create_node_d(&pPim->builder, sub_root)) &&
	       vexil::scan_root(pPim);
}

} // extern "C"
