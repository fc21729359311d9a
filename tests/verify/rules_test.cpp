// SPDX-License-Identifier: MIT
//
// The tree of a rule image: one defect each, and the exact answer.
#include "tests/support/verify.h"

namespace {

using namespace vexil_test;

class VerifyRules : public testing::Test {
protected:
	void TearDown() override { EXPECT_EQ(take_log(), ""); }

	[[nodiscard]] Fault fault() const { return fault_of(plan); }
	static Fault misplaced(u16 node, u16 other)
	{
		return {VEXIL_IMAGE_MISPLACED, field_at(node, kTagField), node, other};
	}
	static Fault missing(u16 node, std::size_t link)
	{
		return {VEXIL_IMAGE_MISSING_NODE, field_at(node, link), node, kNoId};
	}
	static Fault shared(u16 node, u16 other, std::size_t link)
	{
		return {VEXIL_IMAGE_NODE_SHARED, field_at(other, link), node, other};
	}
	static Fault wrong_size(u16 node, u16 other = kNoId)
	{
		return {VEXIL_IMAGE_RECORD_SIZE, field_at(node, kSizeField), node, other};
	}
	[[nodiscard]] Fault in_record(vexil_image_code code, u16 node, u32 at = 0,
				      u16 other = kNoId) const
	{
		return {code, static_cast<u32>(plan.write().record_at(node)) + at, node, other};
	}
	/** The same image with another value in a record. */
	template <typename T>
	Fault with(u16 record, const T &value, std::size_t at = 0)
	{
		ImageBytes image = plan.write();
		image.put(image.record_at(record) + at, value);
		return fault_of(image);
	}
	/** Makes the record of @node shorter or, into the padding behind it, longer. */
	void resize(u16 node, u32 size) { plan.record(node, size, plan.record_offset(node)); }
	[[nodiscard]] u16 holder_of(u16 node) const
	{
		const ImageBytes image = plan.write();
		for (u16 id = 0; id < plan.nodes(); ++id) {
			if (image.tag(id) == EXTMEM_TAG_GENERAL && image.child(id) == node)
				return id;
		}
		return kNoId;
	}

	SmallRules rules;
	RuleImage &plan = rules.plan;
};

// ---- the root, names, sharing ----

TEST_F(VerifyRules, MapTreeUnderARulesHead)
{
	SmallMap map;
	map.plan.header.binType = 2;
	EXPECT_EQ(fault_of(map.plan), misplaced(map.ip, map.parent(map.ip)));
}

TEST_F(VerifyRules, HolderOfNothing)
{
	const u16 holder = holder_of(rules.leaf);
	plan.child(holder, kNoId);
	EXPECT_EQ(fault(), missing(holder, kChildField));
}

TEST_F(VerifyRules, CyclicSiblings)
{
	const u16 last = holder_of(rules.slots);
	plan.next(last, holder_of(rules.hdmi));
	EXPECT_EQ(fault(), shared(holder_of(rules.hdmi), last, kNextField));
}

TEST_F(VerifyRules, CyclicSiblingsAroundTheCounts)
{
	const u16 last = holder_of(rules.slots);
	plan.next(last, holder_of(rules.bits));
	EXPECT_EQ(fault(), shared(holder_of(rules.bits), last, kNextField));
}

TEST_F(VerifyRules, RuleNameThatCannotBeIndexed)
{
	const u16 rule = plan.rule("what?");
	EXPECT_EQ(fault(), in_record(VEXIL_IMAGE_NAME, rules.text(rule)));
}

TEST_F(VerifyRules, LabelThatCannotBeIndexed)
{
	const u16 label = plan.redefined("");
	EXPECT_EQ(fault(), in_record(VEXIL_IMAGE_NAME, rules.text(label)));
}

TEST_F(VerifyRules, RuleWithoutAVersion)
{
	const u16 property = plan.next(rules.rule);
	plan.next(property, kNoId);
	EXPECT_EQ(fault(), missing(property, kNextField));
}

// ---- counts ----

TEST_F(VerifyRules, ImagesThatWereNotFinishedHaveNoCounts)
{
	RuleImage early;
	early.value_source("Luma", {70, 1, 1, 0}, 65534);
	const u16 body = early.add_case(early.rule("R"));
	early.alternative(body, {1, 2}, {3, 4});
	early.alternative(body, {5, 6}, {7, 8});
	EXPECT_EQ(fault_of(early), kSound);
}

TEST_F(VerifyRules, MoreKeyBitsThanThereCanBe)
{
	EXPECT_EQ(with(rules.bits, u32{65537}), in_record(VEXIL_IMAGE_COUNT, rules.bits));
}

TEST_F(VerifyRules, MoreSlotsThanThereCanBe)
{
	EXPECT_EQ(with(rules.slots, u32{65536}), in_record(VEXIL_IMAGE_COUNT, rules.slots));
	EXPECT_EQ(with(rules.slots, u32{65535}), kSound);
}

TEST_F(VerifyRules, KeyBitsTwice)
{
	const u16 again = plan.used_bits(3);
	EXPECT_EQ(fault(), in_record(VEXIL_IMAGE_COUNT_REPEATED, again, 0, rules.bits));
}

TEST_F(VerifyRules, SlotsTwice)
{
	const u16 again = plan.res_num(1);
	EXPECT_EQ(fault(), in_record(VEXIL_IMAGE_COUNT_REPEATED, again, 0, rules.slots));
}

TEST_F(VerifyRules, ShortCount)
{
	resize(rules.bits, 3);
	EXPECT_EQ(fault(), wrong_size(rules.bits));
}

TEST_F(VerifyRules, CountWithoutARecord)
{
	const u16 record = plan.add(EXTMEM_TAG_RES_NUM);
	plan.hold(0, record);
	EXPECT_EQ(fault(), wrong_size(record));
}

// ---- labels ----

TEST_F(VerifyRules, LongField)
{
	const u16 field = plan.add_record(EXTMEM_TAG_SOURCE_DESCRIPTION, std::string(9, '\0'));
	plan.child(rules.hdmi, field);
	EXPECT_EQ(fault(), wrong_size(field, rules.hdmi));
}

TEST_F(VerifyRules, FieldsThatDoNotFit)
{
	const u16 field = plan.child(rules.hdmi);
	const Fault refused = in_record(VEXIL_IMAGE_FIELD, field);
	EXPECT_EQ(with(field, source_desc{0, 0, 1, 0}), refused); // no bits
	EXPECT_EQ(with(field, source_desc{0, 17, 1, 0}), refused);
	EXPECT_EQ(with(field, source_desc{0, 65535, 1, 0}), refused);
	EXPECT_EQ(with(field, source_desc{48, 16, 1, 0}), kSound); // the last of the key's word
	EXPECT_EQ(with(field, source_desc{49, 16, 1, 0}), refused);
	EXPECT_EQ(with(field, source_desc{65535, 1, 1, 0}), refused);
}

TEST_F(VerifyRules, CodesThatDoNotFit)
{
	const u16 field = plan.child(rules.hdmi);
	const Fault refused = in_record(VEXIL_IMAGE_FIELD, field);
	EXPECT_EQ(with(field, source_desc{0, 2, 0, 0}), refused); // "not set" is no value
	EXPECT_EQ(with(field, source_desc{0, 2, 3, 0}), kSound);
	EXPECT_EQ(with(field, source_desc{0, 2, 4, 0}), refused);
	EXPECT_EQ(with(field, source_desc{0, 16, 65535, 0}), kSound);
}

TEST_F(VerifyRules, FieldOfAnImageWithoutAKey)
{
	RuleImage keyless;
	const u16 label = keyless.source("A:B", {0, 1, 1, 0});
	keyless.used_bits(0);
	EXPECT_EQ(fault_of(keyless),
		  (Fault{VEXIL_IMAGE_FIELD,
			 static_cast<u32>(keyless.write().record_at(keyless.child(label))),
			 keyless.child(label), kNoId}));
}

TEST_F(VerifyRules, SlotBeyondTheLast)
{
	EXPECT_EQ(with(rules.slot, u64{1}), in_record(VEXIL_IMAGE_SLOT, rules.slot));
	EXPECT_EQ(with(rules.slot, ~u64{0}), in_record(VEXIL_IMAGE_SLOT, rules.slot));
}

TEST_F(VerifyRules, ShortSlot)
{
	resize(rules.slot, 4);
	EXPECT_EQ(fault(), wrong_size(rules.slot));
}

TEST_F(VerifyRules, SomethingElseInThePlaceOfASlot)
{
	plan.tag(rules.slot, EXTMEM_TAG_DATA);
	EXPECT_EQ(fault(), misplaced(rules.slot, plan.next(rules.luma)));
}

TEST_F(VerifyRules, SlotOfARedefinedLabel)
{
	const u16 slot = plan.add_value(EXTMEM_TAG_SIZE_HOLDER, u64{0});
	plan.next(plan.next(rules.unset), slot);
	EXPECT_EQ(fault(), misplaced(slot, plan.next(rules.unset)));
}

TEST_F(VerifyRules, LabelOverSomethingElse)
{
	const u16 odd = plan.add(EXTMEM_TAG_GENERAL);
	plan.child(rules.unset, odd);
	EXPECT_EQ(fault(), misplaced(odd, rules.unset));
}

TEST_F(VerifyRules, RedefinitionWithoutARange)
{
	const u16 redefine = plan.child(rules.dark);
	plan.child(redefine, kNoId);
	EXPECT_EQ(fault(), missing(redefine, kChildField));
}

TEST_F(VerifyRules, ShortRange)
{
	resize(rules.dark_range, 16);
	EXPECT_EQ(fault(), wrong_size(rules.dark_range, plan.child(rules.dark)));
}

TEST_F(VerifyRules, RangeOverANodeThatIsNoSlot)
{
	EXPECT_EQ(with(rules.dark_range, rules.luma),
		  in_record(VEXIL_IMAGE_RANGE, rules.dark_range, 0, rules.luma));
	const auto outside = static_cast<u16>(plan.nodes());
	EXPECT_EQ(with(rules.range, outside),
		  in_record(VEXIL_IMAGE_RANGE, rules.range, 0, outside));
}

TEST_F(VerifyRules, RangeOverASourceThatNeverCame)
{
	EXPECT_EQ(with(rules.dark_range, kNoId), kSound);
	EXPECT_EQ(with(rules.range, kNoId), kSound);
}

TEST_F(VerifyRules, RangeOverASlotThatNothingElseLeadsTo)
{
	// What a merge leaves of a label that both parts declare.
	const u16 spare = plan.add_value(EXTMEM_TAG_SIZE_HOLDER, u64{0});
	EXPECT_EQ(with(rules.range, spare), kSound);
	const u16 beyond = plan.add_value(EXTMEM_TAG_SIZE_HOLDER, u64{1});
	EXPECT_EQ(with(rules.range, beyond), in_record(VEXIL_IMAGE_SLOT, beyond));
	const u16 bare = plan.add(EXTMEM_TAG_SIZE_HOLDER);
	EXPECT_EQ(with(rules.range, bare), wrong_size(bare));
}

// ---- cases ----

TEST_F(VerifyRules, CaseWithoutABody)
{
	const u16 holder = plan.add(EXTMEM_TAG_GENERAL);
	plan.append(rules.rule, holder);
	EXPECT_EQ(fault(), missing(holder, kChildField));
}

TEST_F(VerifyRules, CaseOfAnotherTag)
{
	plan.tag(plan.child(rules.rule), EXTMEM_TAG_RULE);
	EXPECT_EQ(fault(), misplaced(plan.child(rules.rule), rules.rule));
}

TEST_F(VerifyRules, CaseWithoutAlternatives)
{
	plan.add_case(rules.rule);
	EXPECT_EQ(fault(), kSound);
}

TEST_F(VerifyRules, AlternativeWithoutAPattern)
{
	const u16 alternative = plan.add(EXTMEM_TAG_GENERAL);
	plan.append(rules.body, alternative);
	EXPECT_EQ(fault(), missing(alternative, kChildField));
}

TEST_F(VerifyRules, AlternativesThatShareAPattern)
{
	const u16 alternative = plan.hold(rules.body, rules.key);
	EXPECT_EQ(fault(), shared(rules.key, alternative, kChildField));
}

TEST_F(VerifyRules, PatternWithoutAKey)
{
	plan.child(rules.key, kNoId);
	EXPECT_EQ(fault(), missing(rules.key, kChildField));
}

TEST_F(VerifyRules, KeysOfAnotherSize)
{
	const u16 wide = plan.alternative(rules.second, {1, 2}, {3, 4});
	const u16 record = plan.child(wide);
	EXPECT_EQ(fault(),
		  (Fault{VEXIL_IMAGE_KEY_SIZE, field_at(record, kSizeField), record, kNoId}));
}

TEST_F(VerifyRules, KeyWithoutARecord)
{
	const u16 record = plan.add(EXTMEM_TAG_KEY_HOLDER);
	plan.child(rules.key, record);
	EXPECT_EQ(fault(),
		  (Fault{VEXIL_IMAGE_KEY_SIZE, field_at(record, kSizeField), record, kNoId}));
}

TEST_F(VerifyRules, KeysOfAnImageWithoutSourcesHaveNoRecords)
{
	RuleImage keyless;
	const u16 body = keyless.add_case(keyless.rule("R"));
	const u16 key = keyless.child(keyless.alternative(body, {}, {}));
	keyless.record(key, 0xFFFFFFFF, 0); // as a request without bytes leaves it
	EXPECT_EQ(fault_of(keyless), kSound);
	keyless.used_bits(0);
	EXPECT_EQ(fault_of(keyless), kSound);
}

TEST_F(VerifyRules, KeysOfTwoSizesWithoutACount)
{
	RuleImage early;
	const u16 body = early.add_case(early.rule("R"));
	const u16 first = early.child(early.alternative(body, {1}, {2}));
	const u16 second = early.child(early.alternative(body, {1, 2}, {3, 4}));
	EXPECT_EQ(fault_of(early),
		  (Fault{VEXIL_IMAGE_KEY_SIZE, field_at(second, kSizeField), second, first}));
}

TEST_F(VerifyRules, KeyOfNoWholeWords)
{
	RuleImage early;
	const u16 body = early.add_case(early.rule("R"));
	const u16 key = early.child(early.alternative(body, {1}, {2}));
	early.record(key, 12, early.record_offset(key));
	EXPECT_EQ(fault_of(early),
		  (Fault{VEXIL_IMAGE_KEY_SIZE, field_at(key, kSizeField), key, key}));
}

TEST_F(VerifyRules, ConditionWithoutARange)
{
	const u16 condition = plan.next(rules.key);
	plan.child(condition, kNoId);
	EXPECT_EQ(fault(), missing(condition, kChildField));
}

TEST_F(VerifyRules, SomethingElseBehindThePattern)
{
	const u16 odd = plan.add(EXTMEM_TAG_GENERAL);
	plan.next(rules.second_key, odd);
	EXPECT_EQ(fault(), misplaced(odd, rules.second_key));
}

// ---- outcomes ----

TEST_F(VerifyRules, OutcomeOfNothing)
{
	const u16 outcome = plan.outcome_node(rules.body, kNoId);
	EXPECT_EQ(fault(), missing(outcome, kChildField));
}

TEST_F(VerifyRules, OutcomeOfAnotherKind)
{
	plan.tag(rules.values, EXTMEM_TAG_DATA);
	EXPECT_EQ(fault(), misplaced(rules.values, holder_of(rules.values)));
}

TEST_F(VerifyRules, OutcomeOfHalfAnId)
{
	resize(rules.presets, 3);
	EXPECT_EQ(fault(), wrong_size(rules.presets));
}

TEST_F(VerifyRules, OutcomeWithoutARecord)
{
	const u16 record = plan.add(EXTMEM_TAG_VALUE_HOLDER);
	plan.outcome_node(rules.second, record);
	EXPECT_EQ(fault(), wrong_size(record));
}

TEST_F(VerifyRules, OutcomeOfNoId)
{
	EXPECT_EQ(with(rules.values, kNoId, 2), in_record(VEXIL_IMAGE_OUTCOME, rules.values, 2));
	EXPECT_EQ(with(rules.presets, kNoId), in_record(VEXIL_IMAGE_OUTCOME, rules.presets));
	EXPECT_EQ(with(rules.presets, u16{0xFFFE}), kSound);
}

TEST_F(VerifyRules, ChildThatIsNoRule)
{
	EXPECT_EQ(with(rules.child, rules.body),
		  in_record(VEXIL_IMAGE_CHILD_RULE, rules.child, 0, rules.body));
	const auto outside = static_cast<u16>(plan.nodes());
	EXPECT_EQ(with(rules.child, outside),
		  in_record(VEXIL_IMAGE_CHILD_RULE, rules.child, 0, outside));
}

TEST_F(VerifyRules, LongChild)
{
	resize(rules.child, 4);
	EXPECT_EQ(fault(), wrong_size(rules.child, holder_of(rules.child)));
}

// ---- rules that only others lead to ----

/** A rule that is not below the root. */
u16 unlinked_rule(RuleImage &plan, const std::string &name)
{
	const u16 node = plan.add(EXTMEM_TAG_RULE);
	const u16 property = plan.name(node, name);
	const u16 version = plan.add(EXTMEM_TAG_VERSION);
	plan.child(version, plan.add_value(EXTMEM_TAG_VERSION_HOLDER, vexil_version{2, 0, 0}));
	plan.next(property, version);
	return node;
}

TEST_F(VerifyRules, ChildThatIsNotBelowTheRoot)
{
	const u16 hidden = unlinked_rule(plan, "Picture");
	plan.alternative(plan.add_case(hidden), {0}, {0});
	EXPECT_EQ(with(rules.child, hidden), kSound);
}

TEST_F(VerifyRules, DamageInARuleThatIsNotBelowTheRoot)
{
	const u16 hidden = unlinked_rule(plan, "Picture");
	const u16 holder = plan.add(EXTMEM_TAG_GENERAL);
	plan.append(hidden, holder);
	EXPECT_EQ(fault(), missing(holder, kChildField));
}

TEST_F(VerifyRules, RuleThatIsNotBelowTheRootSharesNothing)
{
	const u16 hidden = unlinked_rule(plan, "Picture");
	plan.child(hidden, plan.child(rules.rule));
	EXPECT_EQ(fault(), shared(plan.child(rules.rule), hidden, kChildField));
}

TEST_F(VerifyRules, RuleThatWasNotMadeToItsEnd)
{
	for (int parts = 0; parts < 4; ++parts) {
		SmallRules other;
		const u16 half = other.plan.add(EXTMEM_TAG_RULE);
		if (parts > 0)
			other.plan.next(half, other.plan.add(EXTMEM_TAG_PROPERTY));
		if (parts > 1)
			other.plan.child(other.plan.next(half), other.plan.add_text("Half"));
		if (parts > 2)
			other.plan.next(other.plan.next(half), other.plan.add(EXTMEM_TAG_VERSION));
		EXPECT_EQ(fault_of(other.plan), kSound) << parts;
		ImageBytes image = other.plan.write();
		image.put(image.record_at(other.child), half);
		EXPECT_EQ(fault_of(image), (Fault{VEXIL_IMAGE_CHILD_RULE,
						  static_cast<u32>(image.record_at(other.child)),
						  other.child, half}))
			<< parts;
	}
}

} // namespace
