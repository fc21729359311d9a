// SPDX-License-Identifier: MIT
//
// Sealing a context that was built; versions, and the dump.

#include "extmem/tree.h"
#include "rm/layout.h"

namespace {

using vexil::child_of;
using vexil::next_of;

/** Tries every pending rule reference; those that are still unknown stay, in their order. */
void resolve_rules(rm *context)
{
	unres_item_list &pending = context->unres_rule;
	size_t kept = 0;
	for (size_t i = 0; i < pending.count; ++i) {
		const int rule = ctrie_find(&context->rulename_map, pending.items[i].itemname);
		if (rule != vexil::kNoValue &&
		    vexil::patch_node_id(context, pending.items[i].id, static_cast<u16>(rule)))
			continue;
		if (kept != i)
			pending.items[kept] = pending.items[i];
		++kept;
	}
	pending.count = kept;
}

/** The first record of a kind below the root; invalid when there is none. */
node_d find_record(rm *context, int tag)
{
	vexil::WalkBudget budget(context->builder);
	for (const node_d holder : vexil::Children(context->root, budget)) {
		const node_d record = child_of(holder);
		if (extmem_fetch_tag(record) == tag)
			return record;
	}
	return vexil::kInvalidNode;
}

/** Writes a count below the root, over the one of an earlier call. False without room. */
bool record_count(rm *context, extmem_tag tag, size_t count)
{
	u32 value = static_cast<u32>(count);
	data_d known = extmem_copy_from_node(find_record(context, tag));
	if (extmem_set_data(&known, &value, sizeof value))
		return true;
	const node_d holder = extmem_request_node(&context->builder, EXTMEM_TAG_GENERAL);
	if (!extmem_node_isvalid(vexil::add_record(holder, tag, &value, sizeof value)))
		return false;
	vexil::append_to_root(context->root, &context->root_tail_hint, holder);
	return true;
}

bool copy_version(const rm *context, vexil_version rm::*version, vexil_version *to)
{
	if (!context || !to)
		return false;
	*to = context->*version;
	return true;
}

} // namespace

extern "C" {

bool rm_finish(rm *pRm)
{
	if (!pRm)
		return false;
	resolve_rules(pRm);
	vexil::resolve_ranges(pRm);
	rm_individual made{};
	if (!vexil::make_buffers(pRm, pRm->used_bits, pRm->res_num, &made))
		return false;
	vexil::free_buffers(pRm, &pRm->rmInd);
	pRm->rmInd.keyBuffer = made.keyBuffer;
	pRm->rmInd.resBuffer = made.resBuffer;
	return record_count(pRm, EXTMEM_TAG_RULE_USEDBITS, pRm->used_bits) &&
	       record_count(pRm, EXTMEM_TAG_RES_NUM, pRm->res_num) &&
	       pRm->unres_rule.count == 0 && pRm->unres_source.count == 0;
}

bool rm_get_version(rm *pRm, vexil_version *ver_in)
{
	return copy_version(pRm, &rm::total_version, ver_in);
}

bool rm_get_rl_version(rm *pRm, vexil_version *ver_in)
{
	return copy_version(pRm, &rm::rl_json_version, ver_in);
}

bool rm_get_cus_version(rm *pRm, char **ver_cus)
{
	if (!pRm || !ver_cus)
		return false;
	*ver_cus = pRm->cus_version;
	return true;
}

bool rm_get_rm_version(rm *pRm, vexil_version *ver_in, const char *ruleName)
{
	if (!pRm || !ver_in || !ruleName)
		return false;
	return vexil::find_version(pRm->root, EXTMEM_TAG_RULE, ruleName, ver_in);
}

void rm_print(rm *pRm)
{
	if (pRm)
		extmem_print(&pRm->builder, pRm->root, 0);
}

} // extern "C"
