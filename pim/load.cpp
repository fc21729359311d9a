// SPDX-License-Identifier: MIT
//
// Blocks of a configuration to callbacks, within a budget. Nothing here allocates or writes.

#include "core/fail.h"
#include "pim/layout.h"

namespace {

using vexil::Bytes;
using vexil::child_of;
using vexil::next_of;

/** One loading call: who receives, and what may still be delivered. */
struct Delivery {
	pim *map;
	vexil_callback fn;
	void *context;
	u32 budget; // register pairs; negative as s32 once a block did not fit
	vexil::WalkBudget &walk;
};

bool report(const Delivery &to, const char *format, const char *name)
{
	to.map->builder.print_error(format, "__pim_load_node", name);
	return false;
}

bool report_no_data(const Delivery &to)
{
	to.map->builder.print_error(
		"[VEXIL][PIM][%s] Internal error. Failed to fetch data.\n", "__pim_load_node");
	return false;
}

// Each deliverer below is false when loading ends at its block.

bool deliver_list(Delivery &to, node_d block, int tag, bool charged)
{
	const Bytes list = vexil::payload(block);
	if (!vexil::holds_its_pairs(list))
		return report_no_data(to);
	if (charged && to.budget != VEXIL_LOAD_UNLIMITED) {
		const s64 left = s64{static_cast<s32>(to.budget)} - vexil::pair_count(list);
		to.budget = static_cast<u32>(left);
		if (left < 0)
			return false;
	}
	to.fn(tag, reinterpret_cast<const char *>(list.data()), static_cast<u32>(list.size()),
	      to.context);
	return true;
}

bool deliver_charged(Delivery &to, node_d block, int tag)
{
	return deliver_list(to, block, tag, true);
}

bool deliver_free(Delivery &to, node_d block, int tag)
{
	return deliver_list(to, block, tag, false);
}

/** A file and the name that a block gives it. */
struct Binding {
	const char *name; // handler label, or entry name
	int tag;
	Bytes file;
};

/** A text that a block refers to; null also when a damaged image has had enough of them read. */
const char *block_text(Delivery &to, node_d holder)
{
	return to.walk.spend_bytes(vexil::payload(holder).size()) ? vexil::text_of(holder) : nullptr;
}

/** False, and logged, when the block's names, its file or the file's data are missing. */
bool read_binding(Delivery &to, node_d block, Binding *binding)
{
	const char *file_name = block_text(to, child_of(block));
	binding->name = block_text(to, next_of(block));
	if (!file_name || !binding->name)
		return report_no_data(to);
	const int id = ctrie_find(&to.map->file_map, file_name);
	if (id == vexil::kNoValue)
		return report(to, "[VEXIL][PIM][%s] Cannot find file %s\n", file_name);
	const node_d data =
		child_of(extmem_create_node_d(&to.map->builder, static_cast<u16>(id)));
	binding->tag = extmem_fetch_tag(data);
	binding->file = vexil::payload(data);
	if (binding->file)
		return true;
	to.map->builder.print_error("[VEXIL][PIM][%s] Failed to fetch data from node: %d. \n",
				    "__pim_load_node", id);
	return false;
}

bool deliver_table(Delivery &to, node_d block, int)
{
	Binding binding;
	if (!read_binding(to, block, &binding))
		return false;
	const int place = ctrie_find(&to.map->fn_map, binding.name);
	const bool known = place >= 0 && static_cast<size_t>(place) < to.map->fn_list_num;
	const vexil_callback handler = known ? to.map->fn_list[place] : nullptr;
	if (!handler)
		return report(to, "[VEXIL][PIM][%s] Cannot find handler for %s\n", binding.name);
	handler(binding.tag, reinterpret_cast<const char *>(binding.file.data()),
		static_cast<u32>(binding.file.size()), to.context);
	return true;
}

bool deliver_algorithm(Delivery &to, node_d block, int)
{
	Binding binding;
	if (!read_binding(to, block, &binding))
		return false;
	if (!to.map->alg_fn)
		return report(to, "[VEXIL][PIM][%s] Cannot find algorithm handler for %s\n",
			      binding.name);
	to.map->alg_fn(binding.tag, reinterpret_cast<const char *>(binding.file.data()),
		       static_cast<u32>(binding.file.size()), binding.name,
		       static_cast<u32>(strlen(binding.name) + 1));
	return true;
}

/** What a block's tag means for delivery. Other tags are passed over. */
struct Route {
	int tag;
	bool (*deliver)(Delivery &to, node_d block, int tag);
};
constexpr Route kRoutes[] = {
	{EXTMEM_TAG_REGISTER_SETTINGS, deliver_charged},
	{EXTMEM_TAG_REGISTER_ADDR_SETTINGS, deliver_charged},
	{EXTMEM_TAG_REGISTER_ADDR_IND_SETTINGS, deliver_charged},
	{EXTMEM_TAG_REGISTER_ADDR_PI_SETTINGS, deliver_charged},
	{EXTMEM_TAG_REGISTER_ADDR_L1_SETTINGS, deliver_charged},
	{EXTMEM_TAG_REGISTER_ADDR_L2_SETTINGS, deliver_charged},
	{EXTMEM_TAG_REGISTER_ADDR_L3_SETTINGS, deliver_charged},
	{EXTMEM_TAG_REGISTER_SYNC_SETTINGS, deliver_charged},
	{EXTMEM_TAG_VREGISTER_SETTINGS, deliver_free},
	{EXTMEM_TAG_REGISTER_RIU_SETTINGS, deliver_free},
	{EXTMEM_TAG_CUS_VREGISTER_SETTINGS, deliver_free},
	{EXTMEM_TAG_FUNCTION_DATA, deliver_table},
	{EXTMEM_TAG_ALGORITHM_DATA, deliver_algorithm},
};

bool deliver(Delivery &to, node_d block)
{
	const int tag = extmem_fetch_tag(block);
	for (const Route &route : kRoutes) {
		if (route.tag == tag)
			return route.deliver(to, block, tag);
	}
	return true;
}

} // namespace

namespace vexil {

node_d checked_node(pim *map, u16 node_id, const char *function)
{
	const node_d node = extmem_create_node_d(&map->builder, node_id);
	if (extmem_node_isvalid(node))
		return node;
	map->builder.print_error("[VEXIL][PIM][%s] Invalid node id: %u\n", function,
				 unsigned{node_id});
	return kInvalidNode;
}

u32 load_node(pim *map, node_d config, u32 budget, vexil_callback fn, void *context, WalkBudget &walk)
{
	Delivery to{map, fn, context, budget, walk};
	for (const node_d holder : Children(config, walk)) {
		if (!deliver(to, child_of(holder)))
			break;
	}
	return to.budget;
}

} // namespace vexil

extern "C" {

u32 __pim_load_node(pim *pPim, node_d config, u32 mLoadSizeRemain, vexil_callback fn, void *pCtx)
{
	if (!pPim || !fn || !extmem_node_isvalid(config))
		return mLoadSizeRemain;
	vexil::WalkBudget walk(*config.owner);
	return vexil::load_node(pPim, config, mLoadSizeRemain, fn, pCtx, walk);
}

void pim_load_setting(pim *pPim, u16 node_id, bool bCheckCommon, vexil_callback fn, void *pCtx)
{
	static_cast<void>(bCheckCommon);
	if (!pPim || !fn)
		return;
	const node_d config = vexil::checked_node(pPim, node_id, "pim_load_setting");
	__pim_load_node(pPim, config, VEXIL_LOAD_UNLIMITED, fn, pCtx);
}

u32 pim_load_setting_count(pim *pPim, u16 node_id, u32 mLoadSizeRemain, vexil_callback fn,
			   void *pCtx)
{
	if (!pPim || !fn)
		return mLoadSizeRemain;
	const node_d config = vexil::checked_node(pPim, node_id, "pim_load_setting_count");
	return __pim_load_node(pPim, config, mLoadSizeRemain, fn, pCtx);
}

void pim_load_setting_by_name(pim *pPim, const char *name, vexil_callback fn, void *pCtx)
{
	if (!pPim || !name || !fn)
		return;
	int id = ctrie_find(&pPim->ipname_map, name);
	if (id == vexil::kNoValue)
		id = ctrie_find(&pPim->preset_map, name);
	if (id == vexil::kNoValue) {
		pPim->builder.print_error("[VEXIL][PIM][%s] Cannot find label: %s\n",
					  "pim_load_setting_by_name", name);
		return;
	}
	const bool is_id = id >= 0 && id < vexil::kNoNode;
	const node_d config = extmem_create_node_d(&pPim->builder,
						   is_id ? static_cast<u16>(id) : vexil::kNoNode);
	if (!extmem_node_isvalid(config)) {
		pPim->builder.print_error("[VEXIL][PIM][%s] Cannot find target node: %d.\n",
					  "pim_load_setting_by_name", id);
		return;
	}
	__pim_load_node(pPim, config, VEXIL_LOAD_UNLIMITED, fn, pCtx);
}

} // extern "C"
