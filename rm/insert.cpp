// SPDX-License-Identifier: MIT
//
// The rule-group document: groups, cases, outcomes, names that are not known yet.

#include "core/fail.h"
#include "core/scratch.h"
#include "extmem/tree.h"
#include "rm/comparator.h"
#include "rm/layout.h"

namespace {

using vexil::Compiled;
using vexil::kInvalidNode;
using vexil::kNoNode;
using vexil::kNoValue;

constexpr const char *kErrorParsing = "[VEXIL][RM][%s] Error parsing %s\n";
constexpr const char *kCannotFind = "[VEXIL][RM][%s] Cannot find %s\n";

/** A case being compiled: where its outcomes hang. */
struct Case {
	rm *context;
	const pim *map;
	node_d last; // body, then each outcome
};

void report(rm *context, const char *format, const char *member)
{
	context->builder.print_error(format, "__rm_get_rulemap", member);
}

/** The rule image carries the versions of the first map that it was built against. */
void inherit_versions(rm *context, const pim *map)
{
	if (context->bCusVerReady)
		return;
	context->total_version = map->total_version;
	memcpy(context->cus_version, map->cus_version, sizeof context->cus_version);
	context->bCusVerReady = true;
}

/** Appends an outcome with a record of ids. False without room. */
bool add_outcome(Case &target, extmem_tag tag, const u16 *ids, size_t count, u16 *record_id)
{
	const node_d outcome = vexil::add_next(target.last, EXTMEM_TAG_GENERAL);
	const node_d record = vexil::add_record(outcome, tag, ids, count * sizeof *ids);
	if (!extmem_node_isvalid(record))
		return false;
	target.last = outcome;
	if (record_id)
		*record_id = record.id;
	return true;
}

/** Settings and presets that the case selects; refused when one is unknown. */
Compiled add_settings(Case &target, const cJSON *settings)
{
	rm *context = target.context;
	size_t count = 0;
	for (const cJSON *item = settings->child; item; item = item->next)
		++count;
	if (count == 0)
		return Compiled::kDone;
	const vexil::Scratch<u16> ids(context->builder, 2 * count);
	if (!ids)
		return Compiled::kNoRoom;
	u16 *const setting_ids = ids.get();
	u16 *const preset_ids = ids.get() + count;
	size_t num_settings = 0;
	size_t num_presets = 0;
	for (const cJSON *item : vexil::items(settings)) {
		const char *name = vexil::text_of(item);
		if (!name)
			continue;
		const int setting = ctrie_find(&target.map->ipname_map, name);
		const int preset = ctrie_find(&target.map->preset_map, name);
		if (setting != kNoValue)
			setting_ids[num_settings++] = static_cast<u16>(setting);
		else if (preset != kNoValue)
			preset_ids[num_presets++] = static_cast<u16>(preset);
		else
			context->builder.print_error("[VEXIL][PIM][%s] Cannot find label: %s\n",
						     "__rm_get_setting", name);
	}
	if (num_settings + num_presets != count) {
		context->builder.print_error("[VEXIL][RM][%s] allocated setting size mismatched.",
					     "__rm_get_setting");
		return Compiled::kRefused;
	}
	const bool stored =
		(num_settings == 0 ||
		 add_outcome(target, EXTMEM_TAG_VALUE_HOLDER, setting_ids, num_settings, nullptr)) &&
		(num_presets == 0 ||
		 add_outcome(target, EXTMEM_TAG_PRESET_HOLDER, preset_ids, num_presets, nullptr));
	return stored ? Compiled::kDone : Compiled::kNoRoom;
}

/** Rules that the case leads to; those that come later wait for their id. */
Compiled add_children(Case &target, const cJSON *children)
{
	rm *context = target.context;
	for (const cJSON *item : vexil::items(children)) {
		const char *name = vexil::text_of(item);
		if (!name) {
			context->builder.print_error("[VEXIL][RM][%s] Invalid rulename.\n",
						     "__rm_get_children");
			continue;
		}
		const int rule = ctrie_find(&context->rulename_map, name);
		const u16 id = rule != kNoValue ? static_cast<u16>(rule) : kNoNode;
		u16 record = kNoNode;
		if (!add_outcome(target, EXTMEM_TAG_NODE_HOLDER, &id, 1, &record))
			return Compiled::kNoRoom;
		if (rule == kNoValue)
			vexil::add_pending(&context->unres_rule, name, record);
	}
	return Compiled::kDone;
}

/** An optional list of a case through @add. A list of another kind is reported and left out. */
Compiled add_list(Case &target, const cJSON *list, const char *key,
		  Compiled (*add)(Case &target, const cJSON *list))
{
	if (!list || !vexil::is_array(list)) {
		report(target.context, list ? kErrorParsing : kCannotFind, key);
		return Compiled::kDone;
	}
	return add(target, list);
}

/** One case, not linked yet. */
Compiled compile_case(rm *context, const pim *map, const cJSON *json, node_d *made)
{
	enum { kComparator, kSettings, kChildren, kKeys };
	static constexpr const char *kNames[kKeys] = {"comparator", "settings", "children"};
	const cJSON *found[kKeys];
	vexil::find_members(json, kNames, found);
	if (!vexil::is_object(found[kComparator])) {
		report(context, kErrorParsing, kNames[kComparator]);
		return Compiled::kRefused;
	}
	*made = extmem_request_node(&context->builder, EXTMEM_TAG_GENERAL);
	const node_d body = vexil::add_child(*made, EXTMEM_TAG_GENERAL);
	if (!extmem_node_isvalid(body))
		return Compiled::kNoRoom;
	Compiled result = vexil::compile_comparator(context, found[kComparator], body);
	Case target{context, map, body};
	if (result == Compiled::kDone)
		result = add_list(target, found[kSettings], kNames[kSettings], add_settings);
	if (result == Compiled::kDone)
		result = add_list(target, found[kChildren], kNames[kChildren], add_children);
	return result;
}

/** Cases below the rule. One that fails is left out: half of it would hide those after it. */
void add_cases(rm *context, const pim *map, const cJSON *cases, node_d rule)
{
	node_d last = kInvalidNode;
	for (const cJSON *json : vexil::items(cases)) {
		const size_t rules_pending = context->unres_rule.count;
		const size_t ranges_pending = context->unres_source.count;
		node_d node = kInvalidNode;
		const Compiled result = compile_case(context, map, json, &node);
		if (result == Compiled::kDone) {
			last = extmem_append_child_cond(rule, last, node);
			continue;
		}
		context->unres_rule.count = rules_pending;
		context->unres_source.count = ranges_pending;
		if (result == Compiled::kNoRoom)
			return; // a later case would answer in the place of the one that is missing
	}
}

/** Children that were named before they existed: from the last one down to one still unknown. */
void resolve_children(rm *context)
{
	unres_item_list &pending = context->unres_rule;
	while (pending.count > 0) {
		const unres_item &item = pending.items[pending.count - 1];
		const int rule = ctrie_find(&context->rulename_map, item.itemname);
		if (rule == kNoValue)
			return;
		vexil::patch_node_id(context, item.id, static_cast<u16>(rule));
		--pending.count;
	}
}

void insert_group(rm *context, const pim *map, const cJSON *group)
{
	enum { kVersion, kRules, kKeys };
	static constexpr const char *kNames[kKeys] = {"#version", "rules"};
	const cJSON *found[kKeys];
	vexil::find_members(group, kNames, found);
	vexil_version version{};
	if (found[kVersion]) {
		__rm_get_version(const_cast<cJSON *>(found[kVersion]), &version);
		if (!vexil::supported(version))
			return;
	}
	const char *name = vexil::name_of(group);
	if (!found[kRules] || !name)
		return;

	const vexil::NamedNode rule =
		vexil::new_named_node(&context->builder, EXTMEM_TAG_RULE, name, version);
	if (!extmem_node_isvalid(rule.node))
		return;
	// The name first: an image with a rule that cannot be indexed would be refused for ever.
	if (!vexil::enter_name(&context->rulename_map, name, rule.node.id))
		return;
	if (ctrie_find(&context->rulename_map, name) == rule.node.id)
		vexil::append_to_root(context->root, &context->root_tail_hint, rule.holder);
	resolve_children(context);
	if (vexil::is_array(found[kRules]))
		add_cases(context, map, found[kRules], rule.node);
}

} // namespace

extern "C" bool rm_insert(rm *pRm, cJSON *root, const pim *pPim)
{
	if (!pRm || !root || !pPim)
		return false;
	inherit_versions(pRm, pPim);
	for (const cJSON *group : vexil::items(vexil::member(root, "PqRuleGroups")))
		insert_group(pRm, pPim, group);
	return true;
}
