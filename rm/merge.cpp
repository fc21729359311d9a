// SPDX-License-Identifier: MIT
//
// Export, and the rules of two images in one.

#include "extmem/tree.h"
#include "rm/layout.h"

namespace {

using vexil::Bytes;
using vexil::kNoNode;
using vexil::WalkBudget;

constexpr vexil::ScanReport kMergeReport = {"rm_merge",
					    "[VEXIL][RM][%s] ctrie_insert failed = %s\n"};

/** How far the ids in the sub's payloads move. */
struct Shift {
	u32 nodes; // of this image
	u32 map;   // of the map: settings and presets
};

/** What the ids of a record refer to, 0 for records without ids; and how many of its u16 are ids. */
u32 shift_for(int tag, const Shift &shift, size_t bytes, size_t *num_ids)
{
	const size_t words = bytes / sizeof(u16);
	switch (tag) {
	case EXTMEM_TAG_NODE_HOLDER:
	case EXTMEM_TAG_RANGE_HOLDER: // its source_node stands first
		*num_ids = words < 1 ? words : 1;
		return shift.nodes;
	case EXTMEM_TAG_VALUE_HOLDER:
	case EXTMEM_TAG_PRESET_HOLDER:
		*num_ids = words;
		return shift.map;
	default:
		*num_ids = 0;
		return 0;
	}
}

/**
 * Calls @act(place, moved id) for each id in the records of nodes [first, end); none is 0xFFFF. False
 * at the first false, and when records are shared as no sound image shares them.
 */
template <typename Act>
bool each_moved_id(extmem_builder *store, size_t first, size_t end, const Shift &shift, Act act)
{
	WalkBudget budget(*store); // a damaged image may have many holders share one record
	for (size_t id = first; id < end; ++id) {
		const node_d node = extmem_create_node_d(store, static_cast<u16>(id));
		const Bytes record = vexil::payload(node);
		size_t num_ids;
		if (!budget.spend_bytes(record.size()))
			return false;
		const u32 by = shift_for(extmem_fetch_tag(node), shift, record.size(), &num_ids);
		for (size_t i = 0; i < num_ids; ++i) {
			u8 *place = record.data() + i * sizeof(u16);
			const auto old = vexil::load<u16>(place);
			if (old != kNoNode && !act(place, old + by))
				return false;
		}
	}
	return true;
}

/** Links the sub's rules and labels whose names are new; the base's win otherwise. */
bool link_new(rm *context, const rm *base, node_d sub_root)
{
	WalkBudget budget(context->builder);
	return vexil::take_holders(
		context->root, &context->root_tail_hint, sub_root, budget, [&](node_d node) {
			const int tag = extmem_fetch_tag(node);
			if (tag != EXTMEM_TAG_RULE && tag != EXTMEM_TAG_SOURCE_LABEL)
				return false; // the base's counts stand
			const ctrie &names =
				tag == EXTMEM_TAG_RULE ? base->rulename_map : base->source_map;
			return ctrie_find(&names, vexil::name_of(node, budget)) == vexil::kNoValue;
		});
}

void inherit(rm *context, const rm *base, const rm *sub)
{
	context->used_bits = base->used_bits;
	context->res_num = base->res_num;
	context->total_version = sub->total_version;
	context->rl_json_version = base->rl_json_version;
	memcpy(context->cus_version, sub->cus_version, sizeof context->cus_version);
}

} // namespace

extern "C" {

size_t rm_get_export_size(rm *pRm)
{
	return pRm ? extmem_builder_get_export_size(&pRm->builder) : 0;
}

size_t rm_export(rm *pRm, char *buf)
{
	if (!pRm)
		return 0;
	extmem_buffer_header &header = pRm->builder.header;
	vexil::fill_header(&header, vexil::kRuleImageKind, pRm->total_version, pRm->cus_version);
	header.rl_json_version = pRm->rl_json_version;
	return extmem_builder_export(&pRm->builder, buf);
}

bool rm_merge(rm *pRm, rm *pRm_base, rm *pRm_sub, const pim *pPim)
{
	if (!pRm || !pRm_base || !pRm_sub || !pPim)
		return false;
	extmem_builder *store = &pRm->builder;
	if (!vexil::merge_target_usable(store, &pRm_base->builder, &pRm_sub->builder))
		return false;
	if (pRm->has_handlers) { // their buffers have the size of the key as it is
		store->err_code = EXTMEM_INTERNAL_ERROR;
		return false;
	}
	const size_t base_nodes = vexil::node_slots(pRm_base->builder);
	const size_t sub_nodes = vexil::node_slots(pRm_sub->builder);
	const Shift shift{static_cast<u32>(base_nodes), u32{pPim->max_node_index} + 1};
	if (!each_moved_id(&pRm_sub->builder, 0, sub_nodes, shift,
			   [](u8 *, u32 moved) { return moved < kNoNode; })) {
		store->err_code = EXTMEM_OUT_OF_RANGE;
		return false;
	}
	inherit(pRm, pRm_base, pRm_sub);
	if (!vexil::merge_stores(store, &pRm_base->builder, &pRm_sub->builder))
		return false;
	const auto move = [](u8 *place, u32 moved) {
		vexil::store(place, static_cast<u16>(moved));
		return true;
	};
	if (!each_moved_id(store, base_nodes, base_nodes + sub_nodes, shift, move))
		return false;
	vexil::free_buffers(pRm, &pRm->rmInd);
	const auto sub_root = static_cast<u16>(base_nodes);
	return link_new(pRm, pRm_base, extmem_create_node_d(store, sub_root)) &&
	       vexil::scan_root(pRm, kMergeReport);
}

} // extern "C"
