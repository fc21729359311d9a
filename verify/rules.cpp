// SPDX-License-Identifier: MIT
//
// The tree of a rule image: rm/layout.h draws it.

#include "rm/layout.h"
#include "verify/walk.h"

namespace {

using vexil::ImageWalk;
using vexil::kNoNode;
using vexil::Link;

constexpr u16 kRoot = 0;

/** What the records below the root say, and what is said without them. */
struct Counts {
	size_t bits = vexil::kMaxKeyBits;
	size_t slots = vexil::kMaxSlots;
	bool has_bits = false; // without, the first key record tells how long all are
	size_t key_bytes = 0;
	u16 key_holder = kNoNode; // of the first key
};

class RuleWalk {
public:
	explicit RuleWalk(ImageWalk &walk) : walk_(walk) {}

	bool read_counts();
	bool check_root();
	bool check_unlinked();
	bool check_references();

private:
	bool read_count(u16 record, size_t limit, u16 *known, size_t *count);
	bool check_entry(u16 holder);
	bool check_label(u16 holder);
	bool check_field(u16 record);
	bool check_slot(u16 record);
	bool check_range(u16 condition);
	bool check_rule(u16 holder);
	bool check_content(u16 rule, u16 property);
	bool check_case(u16 holder);
	bool check_alternative(u16 alternative);
	bool check_key(u16 description);
	bool check_outcome(u16 outcome);
	bool check_ids(u16 outcome, int tag);
	[[nodiscard]] bool is_whole(u16 rule) const;

	int child_tag(u16 of) const
	{
		const u16 id = walk_.child(of);
		return id == kNoNode ? int{EXTMEM_TAG_INVALID} : walk_.tag(id);
	}
	bool wrong_size(u16 holder)
	{
		return walk_.fail(VEXIL_IMAGE_RECORD_SIZE,
				  ImageWalk::node_at(holder, vexil::kSizeAt), holder);
	}

	ImageWalk &walk_;
	Counts counts_;
};

/** @known: the record of this kind that was found before, kNoNode at first */
bool RuleWalk::read_count(u16 record, size_t limit, u16 *known, size_t *count)
{
	if (record == *known)
		return true; // by a chain that runs in a circle: found when its nodes are entered
	if (walk_.record(record).size() != sizeof(u32))
		return wrong_size(record);
	if (*known != kNoNode)
		return walk_.fail_in(record, VEXIL_IMAGE_COUNT_REPEATED, 0, *known);
	*known = record;
	*count = walk_.value<u32>(record);
	return *count <= limit || walk_.fail_in(record, VEXIL_IMAGE_COUNT);
}

/**
 * The counts stand at the end of the list, but everything is measured by them: they are looked for
 * first. What leads to them is checked later.
 */
bool RuleWalk::read_counts()
{
	u16 bits_record = kNoNode;
	u16 slots_record = kNoNode;
	u16 holder = walk_.child(kRoot);
	for (size_t left = walk_.slots(); holder != kNoNode && left > 0; --left) {
		const int tag = walk_.tag(holder);
		if (tag >= EXTMEM_TAG_DATA_TYPE_BEGIN)
			break;
		const u16 record = walk_.child(holder);
		const int kind = child_tag(holder);
		if (kind == EXTMEM_TAG_RULE_USEDBITS &&
		    !read_count(record, vexil::kMaxKeyBits, &bits_record, &counts_.bits))
			return false;
		if (kind == EXTMEM_TAG_RES_NUM &&
		    !read_count(record, vexil::kMaxSlots, &slots_record, &counts_.slots))
			return false;
		holder = walk_.next(holder);
	}
	counts_.has_bits = bits_record != kNoNode;
	if (counts_.has_bits)
		counts_.key_bytes = vexil::key_bytes(vexil::key_words(counts_.bits));
	return true;
}

bool RuleWalk::check_root()
{
	return walk_.chain(kRoot, Link::kChild, EXTMEM_TAG_GENERAL,
			   [&](u16 holder) { return check_entry(holder); });
}

bool RuleWalk::check_entry(u16 holder)
{
	u16 record;
	switch (child_tag(holder)) {
	case EXTMEM_TAG_SOURCE_LABEL:
		return check_label(holder);
	case EXTMEM_TAG_RULE:
		return check_rule(holder);
	case EXTMEM_TAG_RULE_USEDBITS:
		return walk_.enter(holder, Link::kChild, EXTMEM_TAG_RULE_USEDBITS, &record);
	case EXTMEM_TAG_RES_NUM:
		return walk_.enter(holder, Link::kChild, EXTMEM_TAG_RES_NUM, &record);
	default:
		return walk_.misplaced(holder, Link::kChild);
	}
}

// ---- labels ----

bool RuleWalk::check_field(u16 record)
{
	const auto field = walk_.value<source_desc>(record);
	const size_t key_bits = vexil::key_words(counts_.bits) * vexil::kBitsPerWord;
	const bool fits = field.width >= 1 && field.width <= vexil::kMaxFieldBits &&
			  size_t{field.shift} + field.width <= key_bits;
	const bool coded = field.rank >= 1 && field.rank < u32{1} << (field.width & 31);
	return (fits && coded) || walk_.fail_in(record, VEXIL_IMAGE_FIELD);
}

bool RuleWalk::check_slot(u16 record)
{
	if (walk_.record(record).size() != sizeof(u64))
		return wrong_size(record);
	return walk_.value<u64>(record) < counts_.slots || walk_.fail_in(record, VEXIL_IMAGE_SLOT);
}

/** The range of a redefinition or of an alternative. */
bool RuleWalk::check_range(u16 condition)
{
	u16 record;
	return walk_.enter_record(condition, Link::kChild, EXTMEM_TAG_RANGE_HOLDER,
				  sizeof(range_desc), &record);
}

bool RuleWalk::check_label(u16 holder)
{
	u16 label;
	u16 property;
	u16 field;
	if (!walk_.enter(holder, Link::kChild, EXTMEM_TAG_SOURCE_LABEL, &label) ||
	    !walk_.enter_indexed_name(label, &property))
		return false;
	if (child_tag(label) != EXTMEM_TAG_SOURCE_DESCRIPTION) {
		// A redefined label: what it stands for, which may be nothing.
		return walk_.ends(property, Link::kNext) &&
		       walk_.chain(label, Link::kChild, EXTMEM_TAG_SOURCE_REDEFINE,
				   [&](u16 redefine) { return check_range(redefine); });
	}
	if (!walk_.enter_record(label, Link::kChild, EXTMEM_TAG_SOURCE_DESCRIPTION,
				sizeof(source_desc), &field) ||
	    !check_field(field))
		return false;
	u16 slot;
	return walk_.next(property) == kNoNode ||
	       (walk_.enter(property, Link::kNext, EXTMEM_TAG_SIZE_HOLDER, &slot) &&
		check_slot(slot));
}

// ---- rules ----

bool RuleWalk::check_key(u16 description)
{
	u16 holder;
	if (!walk_.enter(description, Link::kChild, EXTMEM_TAG_KEY_HOLDER, &holder))
		return false;
	const size_t bytes = walk_.record(holder).size();
	if (!counts_.has_bits && counts_.key_holder == kNoNode) {
		counts_.key_holder = holder;
		counts_.key_bytes = bytes;
	}
	const bool whole = bytes % vexil::key_bytes(1) == 0 &&
			   bytes <= vexil::key_bytes(vexil::key_words(vexil::kMaxKeyBits));
	return (bytes == counts_.key_bytes && whole) ||
	       walk_.fail(VEXIL_IMAGE_KEY_SIZE, ImageWalk::node_at(holder, vexil::kSizeAt), holder,
			  counts_.key_holder);
}

bool RuleWalk::check_alternative(u16 alternative)
{
	u16 description;
	return walk_.enter(alternative, Link::kChild, EXTMEM_TAG_KEY_DESCRIPTION, &description) &&
	       check_key(description) &&
	       walk_.chain(description, Link::kNext, EXTMEM_TAG_KEY_RANGE,
			   [&](u16 condition) { return check_range(condition); });
}

/** One or more ids of a map, none of them missing. */
bool RuleWalk::check_ids(u16 outcome, int tag)
{
	u16 holder;
	if (!walk_.enter(outcome, Link::kChild, tag, &holder))
		return false;
	const size_t size = walk_.record(holder).size();
	if (size == 0 || size % sizeof(u16) != 0)
		return wrong_size(holder);
	for (size_t at = 0; at < size; at += sizeof(u16)) {
		if (walk_.value<u16>(holder, at) == kNoNode)
			return walk_.fail_in(holder, VEXIL_IMAGE_OUTCOME, at);
	}
	return true;
}

bool RuleWalk::check_outcome(u16 outcome)
{
	const int tag = child_tag(outcome);
	u16 holder;
	switch (tag) {
	case EXTMEM_TAG_VALUE_HOLDER:
	case EXTMEM_TAG_PRESET_HOLDER:
		return check_ids(outcome, tag);
	case EXTMEM_TAG_NODE_HOLDER:
		return walk_.enter_record(outcome, Link::kChild, tag, sizeof(u16), &holder);
	default:
		return walk_.misplaced(outcome, Link::kChild);
	}
}

bool RuleWalk::check_case(u16 holder)
{
	u16 body;
	return walk_.enter(holder, Link::kChild, EXTMEM_TAG_GENERAL, &body) &&
	       walk_.chain(body, Link::kChild, EXTMEM_TAG_GENERAL,
			   [&](u16 alternative) { return check_alternative(alternative); }) &&
	       walk_.chain(body, Link::kNext, EXTMEM_TAG_GENERAL,
			   [&](u16 outcome) { return check_outcome(outcome); });
}

/** A rule's version and cases; @property is that of its name. */
bool RuleWalk::check_content(u16 rule, u16 property)
{
	return walk_.enter_version(property) &&
	       walk_.chain(rule, Link::kChild, EXTMEM_TAG_GENERAL,
			   [&](u16 holder) { return check_case(holder); });
}

bool RuleWalk::check_rule(u16 holder)
{
	u16 rule;
	u16 property;
	return walk_.enter(holder, Link::kChild, EXTMEM_TAG_RULE, &rule) &&
	       walk_.enter_indexed_name(rule, &property) && check_content(rule, property);
}

/** True for a rule that was made to its end: one that other rules may lead to. */
bool RuleWalk::is_whole(u16 rule) const
{
	const u16 property = walk_.next(rule);
	if (property == kNoNode || walk_.tag(property) != EXTMEM_TAG_PROPERTY)
		return false;
	const u16 version = walk_.next(property);
	return version != kNoNode && walk_.tag(version) == EXTMEM_TAG_VERSION &&
	       child_tag(property) == EXTMEM_TAG_STRING_HOLDER &&
	       child_tag(version) == EXTMEM_TAG_VERSION_HOLDER;
}

/**
 * Rules below no root: a merged image keeps those of its second part that the first one's took the
 * place of, since other rules of the second part lead to them. Those whose name was refused stay,
 * too.
 */
bool RuleWalk::check_unlinked()
{
	for (size_t i = 0; i < walk_.slots(); ++i) {
		const auto id = static_cast<u16>(i);
		if (walk_.tag(id) != EXTMEM_TAG_RULE || walk_.reached().has(id) || !is_whole(id))
			continue;
		walk_.reached().set(id);
		u16 property;
		if (!walk_.enter_name(id, &property) || !check_content(id, property))
			return false;
	}
	return true;
}

// ---- what records name ----

/** Ids in records, once it is known which rules are sound. */
bool RuleWalk::check_references()
{
	for (size_t i = 0; i < walk_.slots(); ++i) {
		const auto id = static_cast<u16>(i);
		const int tag = walk_.tag(id);
		if ((tag != EXTMEM_TAG_NODE_HOLDER && tag != EXTMEM_TAG_RANGE_HOLDER) ||
		    !walk_.reached().has(id))
			continue;
		const auto named = walk_.value<u16>(id);
		if (named == kNoNode)
			continue; // never defined: refused when it is reached
		const bool there = named < walk_.slots();
		if (tag == EXTMEM_TAG_NODE_HOLDER) {
			if (!there || walk_.tag(named) != EXTMEM_TAG_RULE ||
			    !walk_.reached().has(named))
				return walk_.fail_in(id, VEXIL_IMAGE_CHILD_RULE, 0, named);
			continue;
		}
		if (!there || walk_.tag(named) != EXTMEM_TAG_SIZE_HOLDER)
			return walk_.fail_in(id, VEXIL_IMAGE_RANGE, 0, named);
		if (!check_slot(named)) // that of a label which a merge left out, too
			return false;
	}
	return true;
}

} // namespace

namespace vexil {

bool verify_rules(ImageWalk &walk)
{
	RuleWalk rules(walk);
	return rules.read_counts() && rules.check_root() && rules.check_unlinked() &&
	       rules.check_references();
}

} // namespace vexil
