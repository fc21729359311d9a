// SPDX-License-Identifier: MIT
//
// Rule images written by hand: sound ones by shape, damaged ones by whatever is to be wrong.
//
//	RuleImage plan;
//	plan.source("Input:HDMI", {0, 2, 1, 0});
//	const u16 luma = plan.value_source("Luma", {2, 1, 1, 0}, 0);
//	const u16 rule = plan.rule("R");
//	const u16 body = plan.add_case(rule);
//	const u16 key = plan.alternative(body, {1}, {3});
//	plan.condition(key, {luma, {}, 3, 9});
//	plan.outcome(body, EXTMEM_TAG_VALUE_HOLDER, {100});
//	plan.used_bits(3);
//	plan.res_num(1);
//	ImageBytes image = plan.write();
//	EXPECT_TRUE(adopt(rules, image));
#pragma once

#include <string>
#include <vector>

#include "rm/rm.h"
#include "tests/support/pim_images.h"
#include "tests/support/rm_json.h"

namespace vexil_test {

class RuleImage : public PimImage {
public:
	RuleImage() { header.binType = 2; }

	/** An enumerated label. Returns the label's node. */
	u16 source(const std::string &label, const source_desc &field)
	{
		const u16 node = add(EXTMEM_TAG_SOURCE_LABEL);
		child(node, add_value(EXTMEM_TAG_SOURCE_DESCRIPTION, field));
		name(node, label);
		hold(0, node);
		return node;
	}
	/** A value source. Returns the record of its slot, which ranges name. */
	u16 value_source(const std::string &label, const source_desc &field, u64 slot)
	{
		const u16 node = source(label, field);
		const u16 record = add_value(EXTMEM_TAG_SIZE_HOLDER, slot);
		next(next(node), record);
		return record;
	}
	/** A redefined label without conditions. */
	u16 redefined(const std::string &label)
	{
		const u16 node = add(EXTMEM_TAG_SOURCE_LABEL);
		name(node, label);
		hold(0, node);
		return node;
	}
	/** A range of a redefined label. Returns the record. */
	u16 redefinition(u16 label, const range_desc &range)
	{
		const u16 node = add(EXTMEM_TAG_SOURCE_REDEFINE);
		const u16 record = add_value(EXTMEM_TAG_RANGE_HOLDER, range);
		child(node, record);
		append(label, node);
		return record;
	}

	/** A rule without cases. Returns the rule's node. */
	u16 rule(const std::string &label, vexil_version version = {2, 0, 0})
	{
		const u16 node = add(EXTMEM_TAG_RULE);
		const u16 property = name(node, label);
		const u16 versions = add(EXTMEM_TAG_VERSION);
		child(versions, add_value(EXTMEM_TAG_VERSION_HOLDER, version));
		next(property, versions);
		hold(0, node);
		return node;
	}
	/** A case without alternatives. Returns its body. */
	u16 add_case(u16 rule)
	{
		const u16 body = add(EXTMEM_TAG_GENERAL);
		hold(rule, body);
		return body;
	}
	/** A pattern; as many mask words as value words. Returns the key's node, for conditions. */
	u16 alternative(u16 body, std::vector<u64> value, const std::vector<u64> &mask)
	{
		value.insert(value.end(), mask.begin(), mask.end());
		const u16 description = add(EXTMEM_TAG_KEY_DESCRIPTION);
		child(description,
		      add_record(EXTMEM_TAG_KEY_HOLDER,
				 {reinterpret_cast<const char *>(value.data()), value.size() * 8}));
		hold(body, description);
		return description;
	}
	/** A range beside a pattern. Returns the record. */
	u16 condition(u16 description, const range_desc &range)
	{
		const u16 node = add(EXTMEM_TAG_KEY_RANGE);
		const u16 record = add_value(EXTMEM_TAG_RANGE_HOLDER, range);
		child(node, record);
		u16 last = description;
		while (next(last) != kNoId)
			last = next(last);
		next(last, node);
		return record;
	}
	/** An outcome with ids. Returns the record. */
	u16 outcome(u16 body, int tag, const std::vector<u16> &ids)
	{
		const u16 record = add_record(
			tag, {reinterpret_cast<const char *>(ids.data()), ids.size() * 2});
		outcome_node(body, record);
		return record;
	}
	/** An outcome around any node, kNoId for an empty one. Returns the outcome. */
	u16 outcome_node(u16 body, u16 held)
	{
		const u16 node = add(EXTMEM_TAG_GENERAL);
		child(node, held);
		u16 last = body;
		while (next(last) != kNoId)
			last = next(last);
		next(last, node);
		return node;
	}

	/** The key's size. Returns the record. */
	u16 used_bits(u32 bits) { return count(EXTMEM_TAG_RULE_USEDBITS, bits); }
	/** The number of value slots. Returns the record. */
	u16 res_num(u32 slots) { return count(EXTMEM_TAG_RES_NUM, slots); }

private:
	u16 count(int tag, u32 number)
	{
		const u16 record = add_value(tag, number);
		hold(0, record);
		return record;
	}
};

/** rm_init over an image, instead of the context that is there. */
inline bool adopt(Rules &rules, ImageBytes &image)
{
	rm_destroy(rules.out());
	return rm_init(rules.out(), image.data(), image.size());
}

} // namespace vexil_test
