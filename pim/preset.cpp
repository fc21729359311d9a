// SPDX-License-Identifier: MIT
//
// Presets, common registers and labels of an image.

#include "pim/layout.h"

namespace {

using vexil::child_of;
using vexil::Children;
using vexil::kNoNode;
using vexil::next_of;
using vexil::WalkBudget;

u16 query_id(const ctrie &labels, const char *name)
{
	const int id = ctrie_find(&labels, name);
	return id >= 0 && id < kNoNode ? static_cast<u16>(id) : kNoNode;
}

} // namespace

extern "C" {

u16 pim_query_setting_id(const pim *pPim, const char *name)
{
	return pPim ? query_id(pPim->ipname_map, name) : kNoNode;
}

u16 pim_query_preset_id(const pim *pPim, const char *name)
{
	return pPim ? query_id(pPim->preset_map, name) : kNoNode;
}

void pim_load_preset(pim *pPim, u16 *pnid_array, size_t nid_num, const char *funcName,
		     vexil_callback fn, void *pCtx)
{
	if (!pPim || !pnid_array || !funcName || !fn)
		return;
	for (size_t i = 0; i < nid_num; ++i) {
		const node_d config = vexil::checked_node(pPim, pnid_array[i], "pim_load_preset");
		if (!extmem_node_isvalid(config))
			return;
		const char *table = vexil::text_of(next_of(next_of(config)));
		if (table && strcmp(table, funcName) == 0)
			__pim_load_node(pPim, config, VEXIL_LOAD_UNLIMITED, fn, pCtx);
	}
}

void pim_load_common_reg_setting(pim *pPim, vexil_callback fn, void *pCtx)
{
	if (!pPim || !fn)
		return;
	WalkBudget budget(pPim->builder);
	for (const node_d ip_holder : Children(pPim->root, budget)) {
		const node_d ip = child_of(ip_holder);
		if (extmem_fetch_tag(ip) != EXTMEM_TAG_IP)
			continue;
		for (const node_d setting_holder : Children(ip, budget)) {
			const node_d setting = child_of(setting_holder);
			if (extmem_fetch_tag(setting) != EXTMEM_TAG_IP_SETTING)
				continue;
			for (const node_d holder : Children(setting, budget)) {
				const node_d config = child_of(holder);
				if (extmem_fetch_tag(config) == EXTMEM_TAG_IP_COMMON_REG_CONFIG)
					vexil::load_node(pPim, config, VEXIL_LOAD_UNLIMITED, fn, pCtx, budget);
			}
		}
	}
}

void pim_get_setting(pim *pPim, u16 node_id, char **out)
{
	if (!pPim || !out)
		return;
	const node_d property = next_of(vexil::checked_node(pPim, node_id, "pim_get_setting"));
	if (extmem_fetch_tag(property) == EXTMEM_TAG_PROPERTY)
		*out = const_cast<char *>(vexil::text_of(child_of(property)));
}

} // extern "C"
