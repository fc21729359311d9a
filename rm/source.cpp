// SPDX-License-Identifier: MIT
//
// Declared sources: enumerated, value and redefined ones.

#include "core/fail.h"
#include "core/scratch.h"
#include "extmem/tree.h"
#include "rm/layout.h"

namespace {

using vexil::kNoNode;

constexpr int kKeyFullReport = 310;

void report_duplicate(rm *context, const char *function, const char *label)
{
	context->builder.print_error("[VEXIL][RM][%s] duplicated timing %s\n", function, label);
}

/** The fewest bits that hold the codes 0 to @count. */
u32 field_width(u32 count)
{
	u32 width = 1;
	while ((u64{1} << width) <= count)
		++width;
	return width;
}

/** False when the key would become too long (logged), and once a handler exists. */
bool key_may_grow(rm *context, u32 bits, const char *function)
{
	if (context->has_handlers)
		return false;
	if (bits <= vexil::kMaxFieldBits && context->used_bits + bits <= vexil::kMaxKeyBits)
		return true;
	vexil::lib_fail(function, kKeyFullReport);
	return false;
}

/**
 * Grows the key by @bits and the value buffer by @slots. Where the context has buffers they are
 * made anew, zeroed: the old ones are too small for what may be set next. False and nothing changed
 * without memory.
 */
bool take_key(rm *context, u32 bits, u32 slots)
{
	const size_t all_bits = context->used_bits + bits;
	if (context->rmInd.keyBuffer || context->rmInd.resBuffer) {
		rm_individual made{};
		if (!vexil::make_buffers(context, all_bits, context->res_num + slots, &made))
			return false;
		vexil::free_buffers(context, &context->rmInd);
		context->rmInd.keyBuffer = made.keyBuffer;
		context->rmInd.resBuffer = made.resBuffer;
	}
	context->used_bits = all_bits;
	context->res_num += slots;
	return true;
}

/** A label's nodes: the holder, which nothing refers to yet, and the label below it. */
struct Label {
	node_d holder;
	node_d node;
	node_d property;
};

/** @field is null for redefined sources. False without room. */
bool new_label(rm *context, const char *text, const source_desc *field, Label *label)
{
	label->holder = extmem_request_node(&context->builder, EXTMEM_TAG_GENERAL);
	label->node = vexil::add_child(label->holder, EXTMEM_TAG_SOURCE_LABEL);
	if (field && !extmem_node_isvalid(vexil::add_record(
			     label->node, EXTMEM_TAG_SOURCE_DESCRIPTION, field, sizeof *field)))
		return false;
	label->property = vexil::add_property(label->node, text);
	return extmem_node_isvalid(label->property);
}

/** Makes a label findable; @entered: its name could be indexed. False only without memory. */
bool enter_label(rm *context, const char *text, const Label &label, bool *entered)
{
	if (!vexil::enter_name(&context->source_map, text, label.node.id))
		return false;
	*entered = ctrie_find(&context->source_map, text) == label.node.id;
	return true;
}

void link_label(rm *context, node_d holder)
{
	vexil::append_to_root(context->root, &context->root_tail_hint, holder);
}

/**
 * Makes a label findable, then part of the tree: an image with a label that cannot be indexed would
 * be refused for ever, so one whose name is refused stays out. False only without memory.
 */
bool publish(rm *context, const char *text, const Label &label, bool *published)
{
	if (!enter_label(context, text, label, published))
		return false;
	if (*published)
		link_label(context, label.holder);
	return true;
}

/** Room for "name:value" with the longest of the values. */
size_t longest_label(const char *name, char **values, u32 count)
{
	size_t longest = 0;
	for (u32 i = 0; i < count; ++i) {
		const size_t length = values[i] ? strlen(values[i]) : 0;
		longest = length > longest ? length : longest;
	}
	return strlen(name) + 1 + longest + 1;
}

void join_label(char *label, const char *name, const char *value)
{
	const size_t length = strlen(name);
	memcpy(label, name, length);
	label[length] = ':';
	memcpy(label + length + 1, value, strlen(value) + 1);
}

/** The ranges of one redefined value, below its label. False without room. */
bool add_conditions(rm *context, node_d label, const cJSON *definition)
{
	node_d last = vexil::kInvalidNode;
	for (const cJSON *condition : vexil::items(definition)) {
		const char *source = vexil::name_of(condition);
		range_desc range{};
		range.source_node = kNoNode;
		__rm_get_range(vexil::text_of(condition), &range);
		const int found = ctrie_find(&context->source_map, source);
		if (found != vexil::kNoValue)
			range.source_node = vexil::slot_node(context, static_cast<u16>(found));
		const node_d record = extmem_get_data(&context->builder, EXTMEM_TAG_RANGE_HOLDER, &range,
						      sizeof range);
		if (!extmem_node_isvalid(record))
			return false;
		const node_d redefine =
			extmem_request_node(&context->builder, EXTMEM_TAG_SOURCE_REDEFINE);
		if (!extmem_append_child(redefine, record))
			return false;
		if (range.source_node == kNoNode)
			vexil::add_pending(&context->unres_source, source, record.id);
		last = extmem_append_child_cond(label, last, redefine);
	}
	return true;
}

/** One value of a redefined source. False without room. */
bool add_redefined(rm *context, const char *text, const cJSON *definition)
{
	Label label;
	bool published = false;
	const size_t pending = context->unres_source.count;
	const bool made = new_label(context, text, nullptr, &label) &&
			  add_conditions(context, label.node, definition) &&
			  publish(context, text, label, &published);
	if (!published)
		context->unres_source.count = pending; // nobody will ask for what was made
	return made;
}

/** A value source with its field and its slot: all of it, or (false: no memory) nothing. */
bool add_value_source(rm *context, const char *name)
{
	constexpr u32 kWidth = 1;
	u64 slot = context->res_num;
	const source_desc field{.shift = static_cast<u16>(context->used_bits),
				.width = kWidth,
				.rank = 1,
				.zero = 0};
	Label label;
	if (!new_label(context, name, &field, &label))
		return false;
	const node_d slot_record =
		extmem_get_data(&context->builder, EXTMEM_TAG_SIZE_HOLDER, &slot, sizeof slot);
	bool entered = false;
	if (!extmem_append_next(label.property, slot_record) ||
	    !enter_label(context, name, label, &entered))
		return false;
	if (!take_key(context, kWidth, 1)) {
		if (entered)
			vexil::forget_name(&context->source_map, name);
		return false;
	}
	if (entered)
		link_label(context, label.holder);
	return true;
}

/** Labels of one enumerated source that are made, but not part of the tree. */
struct Labels {
	rm *context;
	const char *name;
	char **values;
	char *text;   // room for the longest label
	u16 *holders; // of those whose names are entered
	u32 entered;  // their number
	size_t first; // of the ids of their nodes
};

/** The label of value @i in the text; a value without text keeps the one before. */
const char *label_text(const Labels &labels, u32 i)
{
	if (labels.values[i])
		join_label(labels.text, labels.name, labels.values[i]);
	return labels.text;
}

/** Makes and enters the labels of @count values. False without memory: some may be entered then. */
bool enter_labels(Labels &labels, u32 count, u32 width, const char *function)
{
	rm *context = labels.context;
	for (u32 i = 0; i < count; ++i) {
		const char *text = label_text(labels, i);
		if (ctrie_find(&context->source_map, text) != vexil::kNoValue) {
			report_duplicate(context, function, text);
			continue;
		}
		const source_desc field{.shift = static_cast<u16>(context->used_bits),
					.width = static_cast<u16>(width),
					.rank = static_cast<u16>(i + 1),
					.zero = 0};
		Label label;
		bool entered = false;
		if (!new_label(context, text, &field, &label) ||
		    !enter_label(context, text, label, &entered))
			return false;
		if (entered)
			labels.holders[labels.entered++] = label.holder.id;
	}
	return true;
}

/**
 * Undoes enter_labels, so that the source can be declared again: labels that lie in two fields would
 * not replace each other.
 */
void forget_labels(const Labels &labels, u32 count)
{
	ctrie *names = &labels.context->source_map;
	labels.text[0] = '\0';
	for (u32 i = 0; i < count; ++i) {
		const char *text = label_text(labels, i);
		const int id = ctrie_find(names, text);
		if (id != vexil::kNoValue && static_cast<size_t>(id) >= labels.first)
			vexil::forget_name(names, text);
	}
}

/** The texts of an array; items that are none become null. Owned by the caller. */
char **collect_texts(rm *context, const cJSON *content, u32 *count)
{
	size_t items = 0;
	for (const cJSON *item = content->child; item; item = item->next)
		++items;
	auto **texts = static_cast<char **>(context->builder.allocate(items * sizeof(char *)));
	if (!texts)
		return nullptr;
	*count = 0;
	for (const cJSON *item : vexil::items(content))
		texts[(*count)++] = const_cast<char *>(vexil::text_of(item));
	return texts;
}

/** One member of the list: a source with its "content" and "define". */
bool insert_source(rm *context, const cJSON *source)
{
	enum { kDefine, kContent, kKeys };
	static constexpr const char *kNames[kKeys] = {"define", "content"};
	const cJSON *found[kKeys];
	vexil::find_members(source, kNames, found);
	const char *name = vexil::name_of(source);
	const cJSON *content = found[kContent];
	if (!content || !name)
		return true;
	if (!vexil::is_array(content))
		return rm_insert_source_null(context, name);
	if (!content->child)
		return true;

	u32 count = 0;
	char **values = collect_texts(context, content, &count);
	if (!values) {
		context->builder.print_error("[VEXIL][RM][%s] failed to allocate memory.\n",
					     "rm_insert_source_json");
		return false;
	}
	const bool declared =
		found[kDefine]
			? rm_insert_source_redefine(context, name, values, count,
						    const_cast<cJSON *>(found[kDefine]))
			: rm_insert_source(context, name, values, count);
	context->builder.deallocate(values);
	return declared;
}

} // namespace

namespace vexil {

u16 slot_node(rm *context, u16 label)
{
	return extmem_find_next(extmem_create_node_d(&context->builder, label),
				EXTMEM_TAG_SIZE_HOLDER)
		.id;
}

void add_pending(unres_item_list *list, const char *name, u16 id)
{
	if (list->count >= kMaxPending)
		return;
	unres_item &item = list->items[list->count++];
	memset(item.itemname, 0, sizeof item.itemname);
	for (size_t i = 0; name && i < kItemNameBytes - 1 && name[i] != '\0'; ++i)
		item.itemname[i] = name[i];
	item.id = id;
}

bool patch_node_id(rm *context, u16 record, u16 id)
{
	const Bytes bytes = payload(extmem_create_node_d(&context->builder, record));
	if (bytes.size() < sizeof id)
		return false;
	store(bytes.data(), id);
	return true;
}

void resolve_ranges(rm *context)
{
	unres_item_list &pending = context->unres_source;
	for (size_t i = pending.count; i-- > 0;) {
		const int label = ctrie_find(&context->source_map, pending.items[i].itemname);
		if (label == kNoValue)
			continue;
		const u16 slot = slot_node(context, static_cast<u16>(label));
		if (slot == kNoNode || !patch_node_id(context, pending.items[i].id, slot))
			continue; // a name without a value slot stays, so that finishing reports it
		--pending.count;
		memmove(&pending.items[i], &pending.items[i + 1],
			(pending.count - i) * sizeof pending.items[0]);
	}
}

} // namespace vexil

extern "C" {

bool rm_insert_source(rm *pRm, const char *name, char **values, u32 count)
{
	constexpr const char *kFunction = "rm_insert_source";
	if (!pRm || !name || !values)
		return false;
	const vexil::Scratch<char> text(pRm->builder, longest_label(name, values, count));
	const u32 width = field_width(count);
	if (!text || !key_may_grow(pRm, width, kFunction))
		return false;
	const vexil::Scratch<u16> holders(pRm->builder, size_t{count} + 1); // never none
	if (!holders)
		return false;
	Labels labels{.context = pRm,
		      .name = name,
		      .values = values,
		      .text = text.get(),
		      .holders = holders.get(),
		      .entered = 0,
		      .first = vexil::node_slots(pRm->builder)};
	if (!enter_labels(labels, count, width, kFunction) || !take_key(pRm, width, 0)) {
		forget_labels(labels, count);
		return false;
	}
	for (u32 i = 0; i < labels.entered; ++i)
		link_label(pRm, extmem_create_node_d(&pRm->builder, labels.holders[i]));
	return true;
}

bool rm_insert_source_redefine(rm *pRm, const char *name, char **values, u32 count,
			       cJSON *define_node)
{
	if (!pRm || !name || !values || !define_node || pRm->has_handlers)
		return false;
	const vexil::Scratch<char> text(pRm->builder, longest_label(name, values, count));
	if (!text)
		return false;
	for (u32 i = 0; i < count; ++i) {
		const cJSON *definition = vexil::member(define_node, values[i]);
		if (!definition)
			continue;
		join_label(text.get(), name, values[i]);
		if (ctrie_find(&pRm->source_map, text.get()) != vexil::kNoValue) {
			report_duplicate(pRm, "rm_insert_source_redefine", text.get());
			continue;
		}
		if (!add_redefined(pRm, text.get(), definition))
			return false;
	}
	return true;
}

bool rm_insert_source_null(rm *pRm, const char *name)
{
	constexpr const char *kFunction = "rm_insert_source_null";
	constexpr u32 kWidth = 1;
	if (!pRm || !name)
		return false;
	if (!key_may_grow(pRm, kWidth, kFunction))
		return false;
	if (ctrie_find(&pRm->source_map, name) == vexil::kNoValue)
		return add_value_source(pRm, name);
	if (!take_key(pRm, kWidth, 0))
		return false;
	// A duplicate still takes its bit: images built earlier count on the numbering.
	report_duplicate(pRm, kFunction, name);
	return true;
}

bool rm_insert_source_json(rm *pRm, cJSON *root)
{
	if (!pRm || !root)
		return false;
	const cJSON *list = vexil::member(root, "PqRuleLists");
	if (!list)
		return true;
	if (pRm->has_handlers)
		return false;
	const cJSON *version = vexil::member(list, "#version");
	if (version) {
		__rm_get_version(const_cast<cJSON *>(version), &pRm->rl_json_version);
		if (!vexil::supported(pRm->rl_json_version))
			return false;
	}
	for (const cJSON *source : vexil::items(list)) {
		if (!insert_source(pRm, source))
			return false;
	}
	vexil::resolve_ranges(pRm);
	return true;
}

void __rm_get_version(cJSON *ver_node, vexil_version *ver_in)
{
	__pim_get_version(ver_node, ver_in, nullptr);
}

} // extern "C"
