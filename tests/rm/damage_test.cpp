// SPDX-License-Identifier: MIT
//
// Contexts at their ends: stores without room for one more node, references that lost their record,
// documents that name nothing, images that share records, searches that are given up at each place
// where they count.

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "rm/layout.h"
#include "tests/support/rm_images.h"
#include "tests/support/rm_states.h"

namespace {

using namespace vexil_test;
namespace states = vexil_test::states;

constexpr const char *kRefused =
	"[VEXIL][RM][__rm_find_setting] Internal error, invalid NODEID at [";

/** Lets a store have @nodes more nodes and no more while it lives. */
class NodeRoom {
public:
	NodeRoom(extmem_builder &store, size_t nodes) : store_(store), before_(store)
	{
		// A buffer that is full to its last byte has been made anew before.
		store.node_buffer.buf_max =
			store.node_buffer.buf_used + nodes * kImageNodeBytes + 1;
		store.reallocate = [](void *, size_t, size_t) -> void * { return nullptr; };
	}
	~NodeRoom()
	{
		store_.node_buffer.buf_max = before_.node_buffer.buf_max;
		store_.reallocate = before_.reallocate;
	}

private:
	extmem_builder &store_;
	extmem_builder before_;
};

/** The number in a line that refuses a node; -1 for any other line. */
long refused_node(const std::string &line)
{
	return line.rfind(kRefused, 0) == 0 ? std::stol(line.substr(std::string(kRefused).size()))
					    : -1;
}

// ---- declarations ----

using RmDeclaration = RmTest;

TEST_F(RmDeclaration, EachLackOfRoomIsToldAndAnotherTrySucceeds)
{
	const struct {
		const char *source;
		const char *label;
		size_t nodes; // until the label can be found
	} cases[] = {
		{"'Input': {'content': ['HDMI']}", "Input:HDMI", 5},
		{"'Luma': {'content': 0}", "Luma", 6},
		{"'Scene': {'define': {'Dark': {'Luma': '[0, 9]'}}, 'content': ['Dark']}",
		 "Scene:Dark", 6},
	};
	for (const auto &row : cases) {
		for (size_t room = 0; room <= row.nodes; ++room) {
			ASSERT_TRUE(rules.init());
			const size_t bits = rules->used_bits;
			{
				const NodeRoom most(rules->builder, room);
				EXPECT_EQ(declare(row.source), room >= row.nodes)
					<< row.source << room;
			}
			EXPECT_EQ(label(row.label) != vexil::kNoValue, room >= row.nodes)
				<< row.source << room;
			if (room >= row.nodes)
				continue;
			EXPECT_EQ(rules->used_bits, bits);
			EXPECT_EQ(rules->res_num, 0u);
			EXPECT_EQ(rules->unres_source.count, 0u);
			EXPECT_TRUE(declare(row.source));
			EXPECT_NE(label(row.label), vexil::kNoValue);
		}
	}
}

TEST_F(RmDeclaration, CodesOfMoreThan16BitsAreRefused)
{
	std::vector<char *> values(65536, nullptr);
	EXPECT_FALSE(rm_insert_source(rules.get(), "Input", values.data(), 65536));
	EXPECT_EQ(take_log(), "[rm_insert_source][310]vexil lib fail!!\n");
	EXPECT_EQ(rules->used_bits, 0u);
}

TEST_F(RmDeclaration, ContextThatHasNumbersOnlyGetsAKey)
{
	RuleImage plan;
	plan.value_source("Luma", {0, 1, 1, 0}, 0);
	plan.res_num(1);
	ImageBytes image = plan.write();
	ASSERT_TRUE(adopt(rules, image));
	ASSERT_EQ(rules->rmInd.keyBuffer, nullptr);
	ASSERT_NE(rules->rmInd.resBuffer, nullptr);
	EXPECT_TRUE(declare(value_source("Chroma")));
	EXPECT_EQ(rules->used_bits, 1u);
	EXPECT_EQ(rules->res_num, 2u);
	EXPECT_TRUE(rm_set(rules.get(), "Chroma", 7));
	EXPECT_EQ(rules->rmInd.resBuffer[1], 7u);
	EXPECT_EQ(rules->rmInd.keyBuffer[0], 1u);
}

TEST_F(RmDeclaration, ConditionWithoutANameWaitsForNone)
{
	EXPECT_TRUE(declare("'Scene': {'define': {'Dark': ['[0, 9]']}, 'content': ['Dark']}"));
	ASSERT_EQ(rules->unres_source.count, 1u);
	EXPECT_STREQ(rules->unres_source.items[0].itemname, "");
	EXPECT_FALSE(rm_finish(rules.get()));
	EXPECT_EQ(rules->unres_source.count, 1u);
}

// ---- groups ----

using RmGroup = RmTest;

TEST_F(RmGroup, RulesThatAreNoArrayAreARuleWithoutCases)
{
	EXPECT_TRUE(add("'R': {'rules': {'comparator': {}}}"));
	ASSERT_NE(rule_id("R"), vexil::kNoValue);
	EXPECT_EQ(vexil::child_of(rule_node_at(rules.get(), static_cast<size_t>(rule_id("R")))).id,
		  kNoId);
}

TEST_F(RmGroup, MemberOfAComparatorWithoutANameFailsTheCase)
{
	const Json document =
		json(rule_groups("'R': {'rules': [" + rule_case("'Input': 'HDMI'") + "]}"));
	cJSON *const group = vexil::items(document->child).begin().operator*()->child;
	cJSON *const comparator = const_cast<cJSON *>(vexil::member(group->child, "comparator"));
	ASSERT_NE(comparator, nullptr);
	char *const name = std::exchange(comparator->child->string, nullptr);
	EXPECT_TRUE(rm_insert(rules.get(), document.get(), map.get()));
	EXPECT_EQ(take_log(), "[VEXIL][RM][__rm_get_rule] Cannot find source: (null)\n");
	EXPECT_EQ(vexil::child_of(rule_node_at(rules.get(), static_cast<size_t>(rule_id("R")))).id,
		  kNoId);
	comparator->child->string = name;
}

TEST_F(RmGroup, RangeWhoseNameWasDroppedStaysUnknown)
{
	// One more than can wait: the last has no name to hand on to a rule.
	std::string ranges;
	for (int i = 0; i < 65; ++i)
		ranges += (i ? ", 'v" : "'v") + std::to_string(i) + "': {'Luma': '[1, 2]'}";
	ASSERT_TRUE(declare("'Scene': {'define': {" + ranges + "}, 'content': [" +
			    quoted(numbered("v", 65)) + "]}"));
	ASSERT_EQ(rules->unres_source.count, 64u);
	rules->unres_source.count = 10;
	EXPECT_TRUE(add(rule("R", {rule_case("'Scene': 'v64'"), rule_case("'Scene': 'v9'")})));
	EXPECT_EQ(rules->unres_source.count, 11u); // of v9 alone
	EXPECT_STREQ(rules->unres_source.items[10].itemname, "Luma");
}

TEST_F(RmGroup, RedefinitionOfAnotherKindFailsTheCase)
{
	RuleImage plan;
	const u16 label = plan.redefined("S:a");
	const u16 record = plan.redefinition(label, {kNoId, {}, 1, 2});
	plan.tag(record, EXTMEM_TAG_VALUE_HOLDER);
	plan.used_bits(0);
	ImageBytes image = plan.write();
	ASSERT_TRUE(adopt(rules, image));
	EXPECT_TRUE(add(rule("R", {rule_case("'S': 'a'")})));
	EXPECT_EQ(take_log(), "[VEXIL][RM][__rm_get_rulemap] Error parsing comparator\n");
}

/** Blocks of a store with a fence behind each, which must stand when the block is given back. */
class Fences {
public:
	explicit Fences(extmem_builder &store) : store_(store), before_(store)
	{
		sizes().clear();
		store.allocate = allocate;
		store.deallocate = deallocate;
	}
	~Fences()
	{
		EXPECT_TRUE(sizes().empty()) << "a block was not given back";
		store_.allocate = before_.allocate;
		store_.deallocate = before_.deallocate;
	}

private:
	static constexpr u8 kFence = 0xA5;
	static constexpr size_t kFenceBytes = 16;

	static std::map<void *, size_t> &sizes()
	{
		static std::map<void *, size_t> all;
		return all;
	}
	static void *allocate(size_t size)
	{
		void *block = ALLOC(size + kFenceBytes);
		if (block) {
			std::memset(static_cast<u8 *>(block) + size, kFence, kFenceBytes);
			sizes()[block] = size;
		}
		return block;
	}
	static void deallocate(void *block)
	{
		const auto known = sizes().find(block);
		if (known != sizes().end()) {
			const u8 *fence = static_cast<const u8 *>(block) + known->second;
			EXPECT_EQ(std::vector<u8>(fence, fence + kFenceBytes),
				  std::vector<u8>(kFenceBytes, kFence))
				<< "behind a block of " << known->second << " bytes";
			sizes().erase(known);
		}
		DEALLOC(block);
	}

	extmem_builder &store_;
	extmem_builder before_;
};

TEST_F(RmGroup, WorkingMemoryOfACaseIsNotOverrun)
{
	const std::string name(40, 'n');
	const std::string value(90, 'v');
	ASSERT_TRUE(declare(enumerated(name, {value, "w"}) + ", " + value_source("Luma")));
	setting("S#a", 1);
	preset("S#p", 2);
	const Json document = json(rule_groups(
		rule("R", {rule_case("'" + name + "': ['" + value + "', 'w'], 'Luma': '[1, 2]'",
				     "'S#a', 'S#p'", "'R'")})));
	{
		const Fences fences(rules->builder);
		EXPECT_TRUE(rm_insert(rules.get(), document.get(), map.get()));
	}
	EXPECT_EQ(records(EXTMEM_TAG_KEY_HOLDER).size(), 2u);
}

/** Lets one growth of a store fail, the next one. */
class OneGrowthFails {
public:
	explicit OneGrowthFails(extmem_builder &store) : store_(store)
	{
		left() = 1;
		store.reallocate = [](void *block, size_t old_size, size_t size) -> void * {
			return left() > 0 && left()-- > 0 ? nullptr
							  : REALLOC(block, old_size, size);
		};
	}
	~OneGrowthFails() { store_.reallocate = REALLOC; }
	[[nodiscard]] bool happened() const { return left() == 0; }

private:
	static int &left()
	{
		static int count;
		return count;
	}
	extmem_builder &store_;
};

TEST_F(RmGroup, CaseIsThereWholeOrNotAtAllWhereverItsDataFindsNoRoom)
{
	constexpr size_t kDataOfARule = 160;
	const Json document = json(
		rule_groups(rule("R", {rule_case("'Input': 'a', 'Luma': '[1, 2]'", "'S#a'")})));
	size_t refused = 0;
	size_t missing = 0;
	for (size_t room = 0; room < kDataOfARule; room += 8) {
		ASSERT_TRUE(rules.init());
		ASSERT_TRUE(declare(enumerated("Input", {"a"}) + ", " + value_source("Luma")));
		if (room == 0)
			setting("S#a", 1);
		// The store's data is nearly full.
		extmem_buffer_ctx &data = rules->builder.data_buffer;
		ASSERT_LT(data.buf_used, data.buf_max - room);
		ASSERT_TRUE(extmem_data_isvalid(extmem_request_data(
			&rules->builder,
			static_cast<u32>(data.buf_max - room - data.buf_used - 8))));
		{
			const OneGrowthFails failure(rules->builder);
			EXPECT_TRUE(rm_insert(rules.get(), document.get(), map.get()));
			refused += failure.happened();
		}
		if (rule_id("R") == vexil::kNoValue) {
			++missing;
			continue;
		}
		const node_d body = vexil::child_of(vexil::child_of(
			rule_node_at(rules.get(), static_cast<size_t>(rule_id("R")))));
		if (body.id == kNoId) {
			++missing;
			continue;
		}
		const node_d alternative = vexil::child_of(body);
		ASSERT_NE(alternative.id, kNoId)
			<< room << ": it would match everything, or nothing";
		EXPECT_NE(vexil::payload(vexil::child_of(vexil::child_of(alternative))).size(), 0u)
			<< room;
		const node_d range = vexil::next_of(vexil::child_of(alternative));
		EXPECT_NE(vexil::payload(vexil::child_of(range)).size(), 0u) << room;
		EXPECT_NE(vexil::payload(vexil::child_of(vexil::next_of(body))).size(), 0u) << room;
	}
	take_log();
	EXPECT_GT(refused, 5u);
	EXPECT_EQ(missing, refused);
}

// ---- references that wait ----

TEST_F(RmGroup, ReferencesWithoutTheirRecordStayPending)
{
	ASSERT_TRUE(declare(value_source("Luma")));
	ASSERT_TRUE(add(rule("R")));
	const u16 root = 0; // holds no record
	vexil::add_pending(&rules->unres_rule, "R", root);
	vexil::add_pending(&rules->unres_source, "Luma", root);
	EXPECT_FALSE(rm_finish(rules.get()));
	EXPECT_EQ(rules->unres_rule.count, 1u);
	EXPECT_EQ(rules->unres_source.count, 1u);
	EXPECT_EQ(node(root).substr(0, 9), "0 GENERAL");
	rules->unres_rule.count = 0;
	rules->unres_source.count = 0;
	EXPECT_TRUE(rm_finish(rules.get()));
}

// ---- merging ----

TEST_F(RmGroup, MergeOfRulesThatShareARecordTooOftenIsRefused)
{
	RuleImage plan;
	const u16 body = plan.add_case(plan.rule("R"));
	const u16 record = plan.outcome(body, EXTMEM_TAG_VALUE_HOLDER, std::vector<u16>(200, 1));
	for (int i = 0; i < 40; ++i) {
		const u16 again = plan.add(EXTMEM_TAG_VALUE_HOLDER);
		plan.record(again, plan.record_size(record), plan.record_offset(record));
		plan.outcome_node(body, again);
	}
	ImageBytes image = plan.write();
	Rules sub;
	ASSERT_TRUE(adopt(sub, image));
	Rules target;
	ASSERT_TRUE(target.init());
	EXPECT_FALSE(rm_merge(target.get(), rules.get(), sub.get(), map.get()));
	EXPECT_EQ(target->builder.err_code, EXTMEM_OUT_OF_RANGE);
	EXPECT_EQ(rule_node_count(target.get()), 1u);
}

// ---- evaluation ----

using RmGivenUp = states::HandRulesTest;
using RmUnknown = states::RulesTest;

TEST_F(RmUnknown, RuleIsReportedWithoutItsNameWhenThereIsNoMemoryForIt)
{
	build("", states::always("A", ""));
	{
		const auto refusal = Refuse::from(1);
		EXPECT_TRUE(trigger("Nowhere;A"));
		EXPECT_TRUE(refusal.happened());
	}
	EXPECT_EQ(take_log(), states::unknown_rule("rm_trigger", "(null)"));
}

TEST_F(RmUnknown, NothingIsEvaluatedForNothing)
{
	build("", states::always("A", "'s1'"));
	const node_d rule{id("A"), &rules->builder};
	rm *const context = rules;
	EXPECT_FALSE(__rm_find_setting(nullptr, &context->rmInd, rule));
	EXPECT_FALSE(__rm_find_setting(context, nullptr, rule));
	EXPECT_FALSE(__rm_find_setting(context, &context->rmInd, {rule.id, nullptr}));
	EXPECT_EQ(settings(), states::Ids{});
	EXPECT_TRUE(__rm_find_setting(context, &context->rmInd, rule));
	EXPECT_EQ(settings(), states::Ids{1001});
}

TEST_F(RmGivenUp, KeyRecordOutsideTheDataIsNoKey)
{
	RuleImage plan;
	const u16 body = plan.add_case(plan.rule("R"));
	const u16 key = plan.child(plan.alternative(body, {0}, {0}));
	plan.used_bits(1);
	plan.record(key, plan.record_size(key), static_cast<u32>(plan.data_bytes()) - 8);
	ImageBytes image = plan.write();
	ASSERT_TRUE(rm_init(rules.out(), image.data(), image.size()));
	EXPECT_FALSE(trigger());
	const Lines lines = take_log_lines();
	ASSERT_EQ(lines.size(), 1u);
	EXPECT_EQ(lines[0].rfind(states::kBadLength, 0), 0u);
}

TEST_F(RmGivenUp, RecordAtTheVeryEndOfTheDataIsRead)
{
	RuleImage plan;
	plan.used_bits(1);
	const u16 body = plan.add_case(plan.rule("R"));
	plan.outcome(body, EXTMEM_TAG_VALUE_HOLDER, {7});
	const u16 key = plan.child(plan.alternative(body, {0}, {0}));
	ASSERT_EQ(plan.record_offset(key) + plan.record_size(key), plan.data_bytes());
	ImageBytes image = plan.write();
	ASSERT_TRUE(rm_init(rules.out(), image.data(), image.size()));
	EXPECT_TRUE(trigger());
	EXPECT_EQ(settings(), states::Ids{7});
}

TEST_F(RmGivenUp, LinkOutOfTheNodesIsTheEndOfTheOutcomes)
{
	RuleImage plan;
	plan.used_bits(1);
	const u16 body = plan.add_case(plan.rule("R"));
	plan.alternative(body, {0}, {0});
	plan.outcome(body, EXTMEM_TAG_VALUE_HOLDER, {7});
	plan.next(plan.next(body), static_cast<u16>(plan.nodes()));
	ImageBytes image = plan.write();
	ASSERT_TRUE(rm_init(rules.out(), image.data(), image.size()));
	EXPECT_TRUE(trigger());
	EXPECT_EQ(settings(), states::Ids{7});
}

/** Rules that lead to each other twice over: @leaf is evaluated 2^depth times. */
u16 add_ladder(states::HandRules &plan, u16 leaf, int depth)
{
	u16 below = leaf;
	for (int i = 0; i < depth; ++i) {
		const node_d any = plan.alternative(plan.key({}));
		below = plan.rule(
			"L" + std::to_string(i),
			{plan.one_case({any}, {plan.child_rule(below), plan.child_rule(below)})});
	}
	return below;
}

/** @count outcomes around one record. */
std::vector<node_d> outcomes(states::HandRules &plan, size_t count, int tag, const states::Ids &ids)
{
	const node_d record = plan.record(tag, ids);
	std::vector<node_d> nodes;
	for (size_t i = 0; i < count; ++i)
		nodes.push_back(plan.node(EXTMEM_TAG_GENERAL, record));
	return nodes;
}

TEST_F(RmGivenUp, AmongTheOutcomesOfOneRule)
{
	constexpr size_t kOutcomes = 30000;
	plan.used_bits(0);
	const auto nodes = outcomes(plan, kOutcomes, EXTMEM_TAG_VALUE_HOLDER, {});
	const u16 leaf = plan.rule("R", {plan.one_case({any(0)}, nodes)});
	const u16 top = add_ladder(plan, leaf, 10);
	adopt();
	EXPECT_TRUE(trigger("R"));
	EXPECT_FALSE(trigger("L9"));
	const Lines lines = take_log_lines();
	ASSERT_EQ(lines.size(), 2u);
	EXPECT_GE(refused_node(lines[0]), nodes.front().id);
	EXPECT_LE(refused_node(lines[0]), nodes.back().id);
	EXPECT_EQ(lines[1] + "\n", states::rule_failed("rm_trigger", top));
	EXPECT_EQ(settings(), states::Ids{});
}

TEST_F(RmGivenUp, AtTheIdsOfAPreset)
{
	plan.used_bits(0);
	const states::Ids many(20000, 1);
	const node_d outcome = plan.outcome(EXTMEM_TAG_PRESET_HOLDER, many);
	const node_d record = {extmem_get_child(outcome).id, nullptr};
	const u16 leaf = plan.rule("R", {plan.one_case({any(0)}, {outcome})});
	const u16 top = add_ladder(plan, leaf, 14);
	adopt();
	EXPECT_FALSE(trigger("L13"));
	EXPECT_EQ(take_log_lines(),
		  (Lines{kRefused + std::to_string(record.id) + "]",
			 "[VEXIL][RM][rm_trigger] Error while searching rule node " +
				 std::to_string(top)}));
	// What was found before stays.
	EXPECT_GT(presets().size(), many.size());
	EXPECT_EQ(presets().size() % many.size(), 0u);
}

TEST_F(RmGivenUp, BetweenTheEntriesOfTheRoot)
{
	// The first rule takes all visits but some thousands; the empty entries behind it take
	// those.
	constexpr size_t kOutcomes = 16345;
	constexpr size_t kEntries = 45000;
	plan.used_bits(0);
	const auto unlinked = [&](const std::vector<node_d> &nodes) {
		return plan.node(EXTMEM_TAG_RULE, plan.one_case({any(0)}, nodes)).id;
	};
	const auto twice = [&](u16 rule) {
		return std::vector<node_d>{plan.child_rule(rule), plan.child_rule(rule)};
	};
	u16 below = unlinked(outcomes(plan, kOutcomes, EXTMEM_TAG_VALUE_HOLDER, {}));
	for (int i = 0; i < 9; ++i)
		below = unlinked(twice(below));
	const u16 top = plan.rule("Top", {plan.one_case({any(0)}, twice(below))});
	for (size_t i = 0; i < kEntries; ++i)
		plan.entry(states::HandRules::none());
	adopt();
	EXPECT_TRUE(trigger("Top"));
	EXPECT_FALSE(trigger());
	const Lines lines = take_log_lines();
	ASSERT_EQ(lines.size(), 1u);
	EXPECT_GT(refused_node(lines[0]), top);
}

} // namespace
