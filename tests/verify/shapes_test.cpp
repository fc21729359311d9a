// SPDX-License-Identifier: MIT
//
// Shapes that builders seldom make: nodes that two others lead to, rules that were given up, keys
// without end, long ways from rule to rule.
#include "tests/support/verify.h"

namespace {

using namespace vexil_test;

TEST(VerifyShared, OneFileBelowTwoHolders)
{
	SmallMap map;
	const u16 again = map.plan.add(EXTMEM_TAG_GENERAL);
	map.plan.child(again, map.file);
	map.plan.append(0, again);
	EXPECT_EQ(fault_of(map.plan),
		  (Fault{VEXIL_IMAGE_NODE_SHARED, field_at(again, kChildField), map.file, again}));
}

TEST(VerifyShared, OneNameOfTwoRulesThatNothingLeadsTo)
{
	SmallRules rules;
	RuleImage &plan = rules.plan;
	u16 left_out[2];
	for (u16 &rule : left_out) {
		rule = plan.add(EXTMEM_TAG_RULE);
		const u16 property = plan.name(rule, "Left");
		const u16 version = plan.add(EXTMEM_TAG_VERSION);
		plan.child(version,
			   plan.add_value(EXTMEM_TAG_VERSION_HOLDER, vexil_version{2, 0, 0}));
		plan.next(property, version);
	}
	EXPECT_EQ(fault_of(plan), kSound);
	plan.next(left_out[1], plan.next(left_out[0]));
	EXPECT_EQ(fault_of(plan), (Fault{VEXIL_IMAGE_NODE_SHARED, field_at(left_out[1], kNextField),
					 plan.next(left_out[0]), left_out[1]}));
}

TEST(VerifyUnlinked, RuleThatWasGivenUpIsNoRule)
{
	SmallRules rules;
	RuleImage &plan = rules.plan;
	const u16 half = plan.add(EXTMEM_TAG_RULE);
	EXPECT_EQ(fault_of(plan), kSound);
	plan.next(half, plan.add(EXTMEM_TAG_GENERAL));
	EXPECT_EQ(fault_of(plan), kSound);
	const u16 property = plan.name(half, "Half");
	EXPECT_EQ(fault_of(plan), kSound);
	plan.next(property, plan.add(EXTMEM_TAG_GENERAL));
	EXPECT_EQ(fault_of(plan), kSound);
	plan.next(property, plan.add(EXTMEM_TAG_VERSION));
	EXPECT_EQ(fault_of(plan), kSound);
	plan.child(plan.next(property), plan.add_value(EXTMEM_TAG_VERSION_HOLDER, vexil_version{}));
	EXPECT_EQ(fault_of(plan), kSound);
	const u16 text = plan.child(property);
	plan.child(property, kNoId);
	EXPECT_EQ(fault_of(plan), kSound);
	plan.child(property, text);
	plan.child(half, plan.add(EXTMEM_TAG_PROPERTY)); // now it is whole, and its case is none
	EXPECT_EQ(fault_of(plan),
		  (Fault{VEXIL_IMAGE_MISPLACED, field_at(plan.child(half), kTagField),
			 plan.child(half), half}));
}

TEST(VerifyKeys, LongerThanAnyKey)
{
	constexpr size_t kMostWords = 65536 / 64;
	for (const size_t words : {kMostWords, kMostWords + 1}) {
		RuleImage plan;
		const u16 body = plan.add_case(plan.rule("R"));
		const std::vector<u64> zeros(words, 0);
		const u16 key = plan.child(plan.alternative(body, zeros, zeros));
		EXPECT_EQ(fault_of(plan), words == kMostWords
						  ? kSound
						  : (Fault{VEXIL_IMAGE_KEY_SIZE,
							   field_at(key, kSizeField), key, key}))
			<< words;
	}
}

/** Rules in a row; every second one also leads to the last, so that the search comes back to it. */
TEST(VerifyWays, BackThroughRulesThatLeadOn)
{
	constexpr size_t kRules = 3000;
	RuleImage plan;
	std::vector<u16> bodies;
	std::vector<u16> rules;
	for (size_t i = 0; i < kRules; ++i) {
		rules.push_back(plan.rule("R" + std::to_string(i)));
		bodies.push_back(plan.add_case(rules.back()));
		plan.alternative(bodies.back(), {0}, {0});
	}
	for (size_t i = 0; i + 1 < kRules; ++i) {
		plan.outcome(bodies[i], EXTMEM_TAG_NODE_HOLDER, {rules[i + 1]});
		if (i % 2 == 0)
			plan.outcome(bodies[i], EXTMEM_TAG_NODE_HOLDER, {rules.back()});
	}
	EXPECT_EQ(fault_of(plan), kSound);
	const u16 ring = plan.outcome(bodies.back(), EXTMEM_TAG_NODE_HOLDER, {rules[1]});
	const Fault fault = fault_of(plan);
	EXPECT_EQ(fault.code, VEXIL_IMAGE_RULE_RING);
	EXPECT_EQ(fault.node, ring);
	EXPECT_EQ(fault.other, rules[1]);
}

/** The longest ways that fit an image, where the search begins to tell its way again. */
TEST(VerifyWays, BackOverLongLists)
{
	constexpr size_t kRules = 52;
	constexpr size_t kFirstLong = 24;
	constexpr size_t kLong = 1100; // outcomes before those that lead on
	RuleImage plan;
	std::vector<u16> rules;
	std::vector<u16> bodies;
	for (size_t i = 0; i < kRules; ++i) {
		rules.push_back(plan.rule("R" + std::to_string(i)));
		bodies.push_back(plan.add_case(rules.back()));
		plan.alternative(bodies.back(), {0}, {0});
	}
	for (size_t i = 0; i + 1 < kRules; ++i) {
		u16 last = bodies[i];
		const auto outcome = [&](int tag, u16 id) {
			const u16 node = plan.add(EXTMEM_TAG_GENERAL);
			plan.child(node, plan.add_value(tag, id));
			plan.next(last, node);
			last = node;
		};
		for (size_t j = 0; i >= kFirstLong && j < kLong; ++j)
			outcome(EXTMEM_TAG_VALUE_HOLDER, 1);
		outcome(EXTMEM_TAG_NODE_HOLDER, rules[i + 1]);
		outcome(EXTMEM_TAG_NODE_HOLDER, rules.back());
	}
	ASSERT_LT(plan.nodes(), 65535u);
	EXPECT_EQ(fault_of(plan), kSound);
	const u16 ring = plan.outcome(bodies.back(), EXTMEM_TAG_NODE_HOLDER, {rules[30]});
	const Fault fault = fault_of(plan);
	EXPECT_EQ(fault.code, VEXIL_IMAGE_RULE_RING);
	EXPECT_EQ(fault.node, ring);
	EXPECT_EQ(fault.other, rules[30]);
}

} // namespace
