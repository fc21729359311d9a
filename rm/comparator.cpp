// SPDX-License-Identifier: MIT

#include "rm/comparator.h"

#include "core/fail.h"
#include "core/scratch.h"
#include "extmem/tree.h"
#include "rm/key.h"

namespace {

using vexil::Compiled;
using vexil::kNoNode;

constexpr size_t kMaxMembers = 128;
constexpr size_t kMaxConditions = 32; // of either kind in one alternative

/** One member of a comparator, and the item that the present alternative takes of it. */
struct Digit {
	const cJSON *member;
	const cJSON *item; // of an array; the member itself otherwise
};

/** The range conditions of one alternative, of one kind. */
struct Conditions {
	range_desc *range; // kMaxConditions
	u16 *origin;       // for redefinitions: the record that each was copied from
	size_t count;
};

/** A comparator being compiled. */
struct Comparator {
	rm *context;
	node_d body;
	node_d last_alternative;
	Digit *digits;
	size_t num_digits;
	char *label; // room for the longest label
	u64 *key;    // words of value, then words of mask
	size_t words;
	Conditions values;        // on value sources
	Conditions redefinitions; // of redefined sources
};

bool report_unparsable(rm *context)
{
	context->builder.print_error("[VEXIL][RM][%s] Error parsing %s\n", "__rm_get_rulemap",
				     "comparator");
	return false;
}

/** Items of an array value; 1 for anything else. */
size_t num_items(const cJSON *member)
{
	if (!vexil::is_array(member))
		return 1;
	size_t items = 0;
	for (const cJSON *item = member->child; item; item = item->next)
		++items;
	return items;
}

size_t text_length(const cJSON *item)
{
	const char *text = vexil::text_of(item);
	return text ? strlen(text) : 0;
}

/** What compiling a comparator needs to know beforehand. */
struct Extent {
	size_t members;
	size_t label_bytes; // of the longest "source:value", NUL included
	u16 alternatives;
};

/**
 * The number of alternatives is a signed 16-bit product at every step, as images built earlier have
 * it: 256 x 256 is none.
 */
Extent measure(const cJSON *comparator)
{
	Extent extent{0, 1, 1};
	for (const cJSON *member : vexil::items(comparator)) {
		++extent.members;
		extent.alternatives = static_cast<u16>(extent.alternatives * num_items(member));
		size_t longest = text_length(member);
		for (const cJSON *item : vexil::items(member)) {
			const size_t length = text_length(item);
			longest = length > longest ? length : longest;
		}
		const char *name = vexil::name_of(member);
		const size_t bytes = (name ? strlen(name) : 0) + 1 + longest + 1;
		extent.label_bytes = bytes > extent.label_bytes ? bytes : extent.label_bytes;
	}
	return extent;
}

/** The first item of every member. */
void first_digits(Comparator &comparator, const cJSON *json)
{
	comparator.num_digits = 0;
	for (const cJSON *member : vexil::items(json)) {
		const cJSON *item = vexil::is_array(member) ? member->child : member;
		comparator.digits[comparator.num_digits++] = {member, item};
	}
}

/** The next alternative: the last member's item moves on, carries go towards the first member. */
void advance(Comparator &comparator)
{
	for (size_t i = comparator.num_digits; i-- > 0;) {
		Digit &digit = comparator.digits[i];
		if (!vexil::is_array(digit.member))
			continue;
		digit.item = digit.item->next;
		if (digit.item)
			return;
		digit.item = digit.member->child;
	}
}

bool add_condition(rm *context, Conditions &conditions, const range_desc &range, u16 origin)
{
	if (conditions.count == kMaxConditions)
		return report_unparsable(context);
	conditions.origin[conditions.count] = origin;
	conditions.range[conditions.count++] = range;
	return true;
}

/** The ranges that a redefined label stands for. */
bool add_redefinition(Comparator &comparator, node_d label)
{
	vexil::WalkBudget budget(comparator.context->builder);
	for (const node_d redefine : vexil::Children(label, budget)) {
		const node_d holder = vexil::child_of(redefine);
		const vexil::Bytes record = vexil::payload(holder);
		if (extmem_fetch_tag(holder) != EXTMEM_TAG_RANGE_HOLDER ||
		    record.size() < sizeof(range_desc))
			return report_unparsable(comparator.context);
		const auto range = vexil::load<range_desc>(record.data());
		if (!add_condition(comparator.context, comparator.redefinitions, range, holder.id))
			return false;
	}
	return !budget.spent() || report_unparsable(comparator.context);
}

bool report_unknown(Comparator &comparator, const char *label)
{
	comparator.context->builder.print_error("[VEXIL][RM][%s] Cannot find source: %s\n",
						"__rm_get_rule", vexil::shown(label));
	return false;
}

/** "source:value" in the comparator's buffer; null when either is missing. */
const char *join_label(Comparator &comparator, const char *source, const char *value)
{
	if (!source || !value)
		return nullptr;
	const size_t length = strlen(source);
	memcpy(comparator.label, source, length);
	comparator.label[length] = ':';
	memcpy(comparator.label + length + 1, value, strlen(value) + 1);
	return comparator.label;
}

/** One condition of the present alternative, into its key or its ranges. */
bool add_digit(Comparator &comparator, const Digit &digit)
{
	rm *context = comparator.context;
	const char *source = vexil::name_of(digit.member);
	const char *value = vexil::text_of(digit.item);
	const char *text = source;
	int id = ctrie_find(&context->source_map, source);
	if (id != vexil::kNoValue) {
		const u16 slot = vexil::slot_node(context, static_cast<u16>(id));
		if (slot != kNoNode) {
			range_desc range{};
			__rm_get_range(value, &range);
			range.source_node = slot;
			return add_condition(context, comparator.values, range, kNoNode);
		}
	} else {
		if (value)
			text = join_label(comparator, source, value);
		id = value ? ctrie_find(&context->source_map, text) : vexil::kNoValue;
		if (id == vexil::kNoValue)
			return report_unknown(comparator, text);
	}
	const node_d label = extmem_create_node_d(&context->builder, static_cast<u16>(id));
	if (extmem_fetch_tag(vexil::child_of(label)) == EXTMEM_TAG_SOURCE_REDEFINE)
		return add_redefinition(comparator, label);
	source_desc field;
	if (!vexil::read_field(label, comparator.words, &field))
		return report_unknown(comparator, text);
	vexil::set_field(comparator.key, comparator.key + comparator.words, field);
	return true;
}

/** The name that a redefinition's unresolved range waits for; null when it was dropped. */
const char *pending_name(const rm *context, u16 origin)
{
	for (size_t i = 0; i < context->unres_source.count; ++i) {
		if (context->unres_source.items[i].id == origin)
			return context->unres_source.items[i].itemname;
	}
	return nullptr;
}

/** Key-range nodes behind @last for each condition. Invalid without room. */
node_d store_conditions(rm *context, node_d last, const Conditions &conditions)
{
	for (size_t i = 0; i < conditions.count; ++i) {
		const range_desc &range = conditions.range[i];
		last = vexil::add_next(last, EXTMEM_TAG_KEY_RANGE);
		const node_d record =
			vexil::add_record(last, EXTMEM_TAG_RANGE_HOLDER, &range, sizeof range);
		if (!extmem_node_isvalid(record))
			return vexil::kInvalidNode;
		const char *name = range.source_node == kNoNode
					   ? pending_name(context, conditions.origin[i])
					   : nullptr;
		if (name)
			vexil::add_pending(&context->unres_source, name, record.id);
	}
	return last;
}

/** The present alternative, at the end of the body's list. False without room. */
bool store_alternative(Comparator &comparator)
{
	rm *context = comparator.context;
	const node_d alternative = extmem_request_node(&context->builder, EXTMEM_TAG_GENERAL);
	const node_d description = vexil::add_child(alternative, EXTMEM_TAG_KEY_DESCRIPTION);
	const node_d key = vexil::add_record(description, EXTMEM_TAG_KEY_HOLDER, comparator.key,
					     vexil::key_bytes(comparator.words));
	if (!extmem_node_isvalid(key))
		return false;
	const node_d last = store_conditions(context, description, comparator.values);
	if (!extmem_node_isvalid(store_conditions(context, last, comparator.redefinitions)))
		return false;
	comparator.last_alternative = extmem_append_child_cond(
		comparator.body, comparator.last_alternative, alternative);
	return true;
}

/** A frame of its own, so that none grows beyond 512 bytes. */
[[gnu::noinline]] Compiled compile_alternative(Comparator &comparator)
{
	memset(comparator.key, 0, vexil::key_bytes(comparator.words));
	comparator.values.count = 0;
	comparator.redefinitions.count = 0;
	for (size_t i = 0; i < comparator.num_digits; ++i) {
		if (!add_digit(comparator, comparator.digits[i]))
			return Compiled::kRefused;
	}
	return store_alternative(comparator) ? Compiled::kDone : Compiled::kNoRoom;
}

} // namespace

namespace vexil {

Compiled compile_comparator(rm *context, const cJSON *json, node_d body)
{
	const Extent extent = measure(json);
	if (extent.members > kMaxMembers) {
		report_unparsable(context);
		return Compiled::kRefused;
	}
	const size_t words = key_words(context->used_bits);
	const extmem_builder &store = context->builder;
	const Scratch<Digit> digits(store, kMaxMembers);
	const Scratch<char> label(store, extent.label_bytes);
	const Scratch<u64> key(store, 2 * words + 1); // at least one word, so that null means no memory
	const Scratch<range_desc> values(store, kMaxConditions);
	const Scratch<range_desc> redefinitions(store, kMaxConditions);
	const Scratch<u16> origins(store, 2 * kMaxConditions);
	if (!digits || !label || !key || !values || !redefinitions || !origins)
		return Compiled::kNoRoom;
	Comparator comparator{.context = context,
			      .body = body,
			      .last_alternative = kInvalidNode,
			      .digits = digits.get(),
			      .num_digits = 0,
			      .label = label.get(),
			      .key = key.get(),
			      .words = words,
			      .values = {values.get(), origins.get(), 0},
			      .redefinitions = {redefinitions.get(), origins.get() + kMaxConditions, 0}};
	first_digits(comparator, json);
	const auto alternatives = static_cast<s16>(extent.alternatives);
	for (s16 i = 0; i < alternatives; ++i) {
		const Compiled result = compile_alternative(comparator);
		if (result != Compiled::kDone)
			return result;
		advance(comparator);
	}
	return Compiled::kDone;
}

} // namespace vexil
