// SPDX-License-Identifier: MIT
//
// Name indexes rebuilt from a store, after adoption and merging.

#include "pim/regmerge.h"

namespace {

using vexil::Children;
using vexil::WalkBudget;

bool scan_file(pim *map, node_d file, WalkBudget &budget)
{
	return ctrie_insert(&map->file_map, vexil::name_of(file, budget), file.id);
}

u32 level_of(node_d setting, WalkBudget &budget)
{
	const node_d holder =
		vexil::child_of(vexil::find_next(setting, EXTMEM_TAG_PQLEVEL, budget));
	const vexil::Bytes level = vexil::payload(holder);
	return level.size() >= sizeof(u32) ? vexil::load<u32>(level.data()) : u32{E_PQLV_DEFAULT};
}

/** The trie that a configuration's label goes into; null for nodes that are no configuration. */
ctrie *labels_for(pim *map, int tag)
{
	switch (tag) {
	case EXTMEM_TAG_IP_CONFIG:
	case EXTMEM_TAG_IP_COMMON_REG_CONFIG:
		return &map->ipname_map;
	case EXTMEM_TAG_IP_PRESET_REG_CONFIG:
		return &map->preset_map;
	default:
		return nullptr;
	}
}

void scan_setting(pim *map, node_d setting, WalkBudget &budget)
{
	vexil::RegMerge merge(map, level_of(setting, budget), budget);
	for (const node_d holder : Children(setting, budget)) {
		const node_d config = vexil::child_of(holder);
		ctrie *labels = labels_for(map, extmem_fetch_tag(config));
		if (!labels)
			continue;
		// A repeated label keeps its first configuration.
		ctrie_insert(labels, vexil::name_of(config, budget), config.id);
		merge.config(config);
	}
}

bool scan_ip(pim *map, node_d ip, WalkBudget &budget)
{
	// A repeated IP name keeps its first IP.
	ctrie_insert(&map->ip_map, vexil::name_of(ip, budget), ip.id);
	for (const node_d holder : Children(ip, budget))
		scan_setting(map, vexil::child_of(holder), budget);
	return !budget.spent();
}

} // namespace

namespace vexil {

bool scan_root(pim *map)
{
	WalkBudget budget(map->builder);
	bool complete = true;
	for (const node_d holder : Children(map->root, budget)) {
		const node_d node = child_of(holder);
		switch (extmem_fetch_tag(node)) {
		case EXTMEM_TAG_FILE:
			complete &= scan_file(map, node, budget);
			break;
		case EXTMEM_TAG_IP:
			complete &= scan_ip(map, node, budget);
			break;
		default:
			break;
		}
	}
	return complete && !budget.spent();
}

} // namespace vexil

extern "C" {

bool __pim_scan_ipname(pim *pPim, node_d ip_noded)
{
	if (!pPim || !extmem_node_isvalid(ip_noded))
		return false;
	WalkBudget budget(*ip_noded.owner);
	return scan_ip(pPim, ip_noded, budget);
}

bool __pim_scan_file(pim *pPim, node_d file_noded)
{
	if (!pPim || !extmem_node_isvalid(file_noded))
		return false;
	WalkBudget budget(*file_noded.owner);
	return scan_file(pPim, file_noded, budget);
}

} // extern "C"
