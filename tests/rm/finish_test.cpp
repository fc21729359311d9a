// SPDX-License-Identifier: MIT
//
// Sealing a context, its end, its dump and its versions.
#include <climits>

#include "tests/support/rm_images.h"
#include "tests/support/rm_json.h"

namespace {

using namespace vexil_test;

using RmFinish = RmTest;
using RmDestroy = RmTest;
using RmPrint = RmTest;
using RmVersion = RmTest;

// ---- finish ----

TEST_F(RmFinish, CountsOfAnEmptyContextAreZero)
{
	ASSERT_TRUE(rm_finish(rules.get()));
	EXPECT_EQ(nodes(), (Lines{"0 GENERAL c1", "1 GENERAL c2 n3", "2 USEDBITS 0", "3 GENERAL c4",
				  "4 RES_NUM 0"}));
	EXPECT_NE(rules->rmInd.keyBuffer, nullptr);
	EXPECT_NE(rules->rmInd.resBuffer, nullptr);
	EXPECT_TRUE(rm_clear(rules.get()));
	EXPECT_TRUE(rm_trigger(rules.get(), nullptr));
}

TEST_F(RmFinish, CountsFollowWhatWasInserted)
{
	ASSERT_TRUE(declare(enumerated("A", numbered("a", 15)) + ", " + value_source("L") + ", " +
			    value_source("M")));
	const std::size_t first = rule_node_count(rules.get());
	ASSERT_TRUE(rm_finish(rules.get()));
	const std::string id = std::to_string(first);
	EXPECT_EQ(nodes(first), (Lines{id + " GENERAL c" + std::to_string(first + 1) + " n" +
					       std::to_string(first + 2),
				       std::to_string(first + 1) + " USEDBITS 6",
				       std::to_string(first + 2) + " GENERAL c" +
					       std::to_string(first + 3),
				       std::to_string(first + 3) + " RES_NUM 2"}));
	EXPECT_EQ(node(first - 6), std::to_string(first - 6) + " GENERAL c" +
					   std::to_string(first - 5) + " n" + id);
	const ImageBytes image = image_of(rules.get());
	EXPECT_EQ(image.record(static_cast<u16>(first + 1)), std::string("\6\0\0\0", 4));
	EXPECT_EQ(image.record(static_cast<u16>(first + 3)), std::string("\2\0\0\0", 4));
}

TEST_F(RmFinish, BuffersAreZeroedAndHaveAWordPerStarted64Bits)
{
	for (const std::size_t bits : {1u, 63u, 64u, 65u, 128u, 129u}) {
		ASSERT_TRUE(rules.init());
		rules->used_bits = bits;
		ASSERT_TRUE(rm_finish(rules.get()));
		for (std::size_t i = 0; i < 2 * ((bits + 63) / 64); ++i)
			EXPECT_EQ(rules->rmInd.keyBuffer[i], 0u) << bits;
	}
}

TEST_F(RmFinish, AgainRewritesTheRecordsOfBefore)
{
	ASSERT_TRUE(declare(enumerated("A", {"x"})));
	ASSERT_TRUE(rm_finish(rules.get()));
	ASSERT_TRUE(rm_set(rules.get(), "A:x", 0));
	ASSERT_TRUE(declare(value_source("L") + ", " + enumerated("B", numbered("b", 4))));
	const std::size_t count = rule_node_count(rules.get());
	const std::size_t data = rules->builder.data_buffer.buf_used;
	ASSERT_TRUE(rm_finish(rules.get()));
	EXPECT_EQ(rule_node_count(rules.get()), count);
	EXPECT_EQ(rules->builder.data_buffer.buf_used, data);
	EXPECT_EQ(records(EXTMEM_TAG_RULE_USEDBITS), Lines{"5"});
	EXPECT_EQ(records(EXTMEM_TAG_RES_NUM), Lines{"1"});
	EXPECT_EQ(rules->rmInd.keyBuffer[0], 0u);
	EXPECT_EQ(rules->rmInd.keyBuffer[1], 0u);
	EXPECT_EQ(rules->rmInd.resBuffer[0], 0u);
}

TEST_F(RmFinish, UndefinedChildIsReportedAndTheContextWorks)
{
	setting("s", 100);
	setting("t", 200);
	ASSERT_TRUE(declare(enumerated("A", {"x", "y"})));
	ASSERT_TRUE(add(rule("R", {rule_case("'A': 'x'", "'s'", "'Missing'"),
				   rule_case("'A': 'y'", "'t'")})));
	EXPECT_FALSE(rm_finish(rules.get()));
	EXPECT_EQ(records(EXTMEM_TAG_NODE_HOLDER), Lines{"[65535]"});
	EXPECT_EQ(records(EXTMEM_TAG_RULE_USEDBITS), Lines{"2"});
	EXPECT_EQ(selected(rules.get(), "A:y"), Ids{200});
	// Only the case that leads there fails.
	ASSERT_TRUE(rm_set(rules.get(), "A:x", 0));
	EXPECT_FALSE(rm_trigger(rules.get(), "R"));
	EXPECT_EQ(results_of(rules.get()), Ids{100});
	const Lines log = take_log_lines();
	ASSERT_EQ(log.size(), 2u);
	EXPECT_EQ(log[0].rfind("[VEXIL][RM][__rm_find_setting] Internal error, invalid NODEID at [",
			       0),
		  0u);
	EXPECT_EQ(log[1], "[VEXIL][RM][rm_trigger] Error while searching rule node " +
				  std::to_string(rule_id("R")));
}

TEST_F(RmFinish, AfterFalseTheMissingRuleCanStillCome)
{
	setting("s", 100);
	ASSERT_TRUE(add(rule("R", {rule_case("", "", "'Child'")})));
	EXPECT_FALSE(rm_finish(rules.get()));
	EXPECT_FALSE(rm_finish(rules.get()));
	ASSERT_TRUE(add(rule("Child", {rule_case("", "'s'")})));
	EXPECT_TRUE(rm_finish(rules.get()));
	EXPECT_EQ(records(EXTMEM_TAG_RULE_USEDBITS), Lines{"0"});
	EXPECT_EQ(records(EXTMEM_TAG_RES_NUM), Lines{"0"});
	EXPECT_TRUE(rm_trigger(rules.get(), "R"));
	EXPECT_EQ(results_of(rules.get()), Ids{100});
}

TEST_F(RmFinish, EveryPendingRuleIsTriedOnceMore)
{
	setting("s", 100);
	// Late is known when Never still hides it on top of the pending names.
	ASSERT_TRUE(add(rule("R", {rule_case("", "", "'Late', 'Never'")}) + ", " +
			rule("Late", {rule_case("", "'s'")})));
	ASSERT_EQ(rules->unres_rule.count, 2u);
	EXPECT_FALSE(rm_finish(rules.get()));
	ASSERT_EQ(rules->unres_rule.count, 1u);
	EXPECT_STREQ(rules->unres_rule.items[0].itemname, "Never");
	EXPECT_EQ(records(EXTMEM_TAG_NODE_HOLDER),
		  (Lines{"[" + std::to_string(rule_id("Late")) + "]", "[65535]"}));
	ASSERT_TRUE(add(rule("Never")));
	EXPECT_EQ(rules->unres_rule.count, 0u);
	EXPECT_TRUE(rm_finish(rules.get()));
}

TEST_F(RmFinish, PendingRangesAreTriedOnceMore)
{
	ASSERT_TRUE(declare("'S': {'content': ['a'], 'define': {'a': {'L': '[1,2]'}}}"));
	ASSERT_TRUE(rm_insert_source_null(rules.get(), "L")); // by itself it resolves nothing
	ASSERT_EQ(rules->unres_source.count, 1u);
	EXPECT_TRUE(rm_finish(rules.get()));
	EXPECT_EQ(rules->unres_source.count, 0u);
	EXPECT_EQ(node(5), "5 RANGE node 12 1..2");
}

TEST_F(RmFinish, UnknownRangeSourceIsReported)
{
	ASSERT_TRUE(declare("'S': {'content': ['a'], 'define': {'a': {'L': '[1,2]'}}}"));
	EXPECT_FALSE(rm_finish(rules.get()));
	EXPECT_EQ(rules->unres_source.count, 1u);
	EXPECT_NE(rules->rmInd.keyBuffer, nullptr);
	ASSERT_TRUE(declare(value_source("L")));
	EXPECT_TRUE(rm_finish(rules.get()));
}

TEST_F(RmFinish, EveryRefusalLeavesAContextThatCanBeFinishedLater)
{
	for (std::size_t nth = 1;; ++nth) {
		ASSERT_LT(nth, 20u);
		ASSERT_TRUE(rules.init());
		ASSERT_TRUE(map.init());
		setting("s", 100);
		ASSERT_TRUE(declare(enumerated("A", {"x"})));
		ASSERT_TRUE(add(rule("R", {rule_case("'A': 'x'", "'s'")})));
		// The counts need room of their own, so that growing can fail too.
		while (rule_node_count(rules.get()) < 62)
			extmem_request_node(&rules->builder, EXTMEM_TAG_UNSPECIFIED);
		while (rules->builder.data_buffer.buf_used < 1016)
			extmem_request_data(&rules->builder, 8);
		bool refused;
		{
			const Refuse one = Refuse::only(nth);
			const bool done = rm_finish(rules.get());
			refused = one.happened();
			EXPECT_EQ(done, !refused) << nth;
		}
		EXPECT_TRUE(rm_finish(rules.get())) << nth;
		EXPECT_EQ(records(EXTMEM_TAG_RULE_USEDBITS).back(), "1") << nth;
		EXPECT_EQ(selected(rules.get(), "A:x"), Ids{100}) << nth;
		ImageBytes image = image_of(rules.get());
		Rules again;
		EXPECT_TRUE(adopt(again, image)) << nth;
		EXPECT_EQ(selected(again.get(), "A:x"), Ids{100}) << nth;
		if (!refused) {
			EXPECT_GT(nth, 3u);
			break;
		}
	}
}

TEST_F(RmFinish, NullIsFalse)
{
	EXPECT_FALSE(rm_finish(nullptr));
}

// ---- destroy ----

TEST_F(RmDestroy, GivesEverythingBackAndClearsThePointer)
{
	rm_destroy(rules.out());
	const std::size_t others = live_blocks(); // of the map
	ASSERT_TRUE(rules.init());
	setting("s", 100);
	preset("p", 200);
	ASSERT_TRUE(declare(enumerated("A", numbered("a", 100)) + ", " + value_source("L")));
	ASSERT_TRUE(add(rule("R", {rule_case("", "'s', 'p'")})));
	const std::size_t with_names = live_blocks();
	ASSERT_TRUE(rm_finish(rules.get()));
	ASSERT_TRUE(rm_trigger(rules.get(), nullptr));
	ASSERT_EQ(live_blocks(), with_names + 4); // two buffers and two lists
	EXPECT_TRUE(rm_destroy(rules.out()));
	EXPECT_EQ(rules.get(), nullptr);
	ASSERT_TRUE(map.init());
	EXPECT_EQ(live_blocks(), others);
}

TEST_F(RmDestroy, NullIsFalse)
{
	rm *none = nullptr;
	EXPECT_FALSE(rm_destroy(nullptr));
	EXPECT_FALSE(rm_destroy(&none));
	EXPECT_EQ(none, nullptr);
	EXPECT_TRUE(rm_destroy(rules.out()));
	EXPECT_FALSE(rm_destroy(rules.out()));
}

TEST_F(RmDestroy, LeavesACallersImageUntouched)
{
	ASSERT_TRUE(declare(enumerated("A", {"x"})));
	ASSERT_TRUE(rm_finish(rules.get()));
	ImageBytes image = image_of(rules.get());
	const std::vector<char> before = image.bytes();
	Rules adopted;
	ASSERT_TRUE(adopt(adopted, image));
	EXPECT_TRUE(rm_destroy(adopted.out()));
	EXPECT_EQ(image.bytes(), before);
	EXPECT_TRUE(adopt(adopted, image)); // and it can be adopted again
}

// ---- the dump ----

TEST_F(RmPrint, DumpsTheTreeFromTheRoot)
{
	setting("s", 100);
	setting("t", 101);
	ASSERT_TRUE(declare(enumerated("A", {"x"}) + ", " + value_source("L")));
	ASSERT_TRUE(add(rule("R", {rule_case("'A': 'x', 'L': '[3,16]'", "'s', 't'", "'R'")})));
	ASSERT_TRUE(rm_finish(rules.get()));
	rm_print(rules.get());
	EXPECT_EQ(take_log(), "[0] tag=GENERAL\n"
			      "---[1] tag=GENERAL\n"
			      "------[2] tag=SOURCE\n"
			      "---------[3] Data tag=SOURCE\n"
			      "------[4] tag=PROPERTY\n"
			      "---------PROP:A:x\n"
			      "---[6] tag=GENERAL\n"
			      "------[7] tag=SOURCE\n"
			      "---------[8] Data tag=SOURCE\n"
			      "------[9] tag=PROPERTY\n"
			      "---------PROP:L\n"
			      "------SIZE:0\n"
			      "---[12] tag=GENERAL\n"
			      "------[13] tag=RULE\n"
			      "---------[18] tag=GENERAL\n"
			      "------------[19] tag=GENERAL\n"
			      "---------------[20] tag=GENERAL\n"
			      "------------------[21] tag=KEY DESC\n"
			      "---------------------SourceMask(sz=16):[0x1 0x1 ]\n"
			      "------------------[23] tag=KEY RANGE\n"
			      "---------------------RANGE INFO(sz=24):[0xb 0x3 0x10 ]\n"
			      "------------[25] tag=GENERAL\n"
			      "---------------Values:[ID=100 ID=101 ]\n"
			      "------------[27] tag=GENERAL\n"
			      "---------------NODEID:13\n"
			      "------[14] tag=PROPERTY\n"
			      "---------PROP:R\n"
			      "------[16] tag=???\n"
			      "---------[17] Data tag=???\n"
			      "---[29] tag=GENERAL\n"
			      "------[30] Data tag=USEDBITS\n"
			      "---[31] tag=GENERAL\n"
			      "------[32] Data tag=???\n");
}

TEST_F(RmPrint, NothingForNull)
{
	rm_print(nullptr);
	EXPECT_EQ(take_log(), "");
}

// ---- versions ----

TEST_F(RmVersion, QueriesGiveWhatTheContextHolds)
{
	rules->total_version = {1, 2, 3};
	rules->rl_json_version = {4, 5, 6};
	vexil_version version{};
	EXPECT_TRUE(rm_get_version(rules.get(), &version));
	EXPECT_EQ(version, (vexil_version{1, 2, 3}));
	EXPECT_TRUE(rm_get_rl_version(rules.get(), &version));
	EXPECT_EQ(version, (vexil_version{4, 5, 6}));
	char *text = nullptr;
	EXPECT_FALSE(rules->bCusVerReady);
	EXPECT_TRUE(rm_get_cus_version(rules.get(), &text));
	EXPECT_EQ(text, rules->cus_version); // not a copy
}

TEST_F(RmVersion, NullsAreFalse)
{
	vexil_version version{7, 7, 7};
	char *text = nullptr;
	EXPECT_FALSE(rm_get_version(nullptr, &version));
	EXPECT_FALSE(rm_get_version(rules.get(), nullptr));
	EXPECT_FALSE(rm_get_rl_version(nullptr, &version));
	EXPECT_FALSE(rm_get_rl_version(rules.get(), nullptr));
	EXPECT_FALSE(rm_get_cus_version(nullptr, &text));
	EXPECT_FALSE(rm_get_cus_version(rules.get(), nullptr));
	EXPECT_FALSE(rm_get_rm_version(nullptr, &version, "R"));
	EXPECT_FALSE(rm_get_rm_version(rules.get(), nullptr, "R"));
	EXPECT_FALSE(rm_get_rm_version(rules.get(), &version, nullptr));
	EXPECT_EQ(version, (vexil_version{7, 7, 7}));
	EXPECT_EQ(text, nullptr);
}

TEST_F(RmVersion, GroupIsFoundByItsExactName)
{
	ASSERT_TRUE(declare(enumerated("Rule", {"x"})));
	ASSERT_TRUE(add("'First': {'#version': {'MajorVersion': 2, 'MinorVersion': 1, "
			"'Revision': 70000}, 'rules': []}, "
			"'Second': {'rules': []}, "
			"'Third': {'#version': {'JsonVersionFormat': '2.2', 'Revision': 'fF'}, "
			"'rules': []}"));
	ASSERT_TRUE(rm_finish(rules.get()));
	vexil_version version{7, 7, 7};
	EXPECT_TRUE(rm_get_rm_version(rules.get(), &version, "First"));
	EXPECT_EQ(version, (vexil_version{2, 1, 70000}));
	EXPECT_TRUE(rm_get_rm_version(rules.get(), &version, "Second"));
	EXPECT_EQ(version, (vexil_version{0, 0, 0}));
	EXPECT_TRUE(rm_get_rm_version(rules.get(), &version, "Third"));
	EXPECT_EQ(version, (vexil_version{2, 2, 255}));
	for (const char *name : {"first", "FIRST", "Firs", "First ", "", "Rule:x", "Fourth"})
		EXPECT_FALSE(rm_get_rm_version(rules.get(), &version, name)) << name;
	EXPECT_EQ(version, (vexil_version{2, 2, 255}));
	EXPECT_TRUE(rm_trigger(rules.get(), "first")); // the index ignores letter case
}

TEST_F(RmVersion, DamagedGroupsHaveNoVersion)
{
	const struct {
		const char *what;
		void (*damage)(RuleImage &plan, u16 rule);
	} table[] = {
		{"no_version_node",
		 [](RuleImage &plan, u16 rule) { plan.next(plan.next(rule), kNoId); }},
		{"version_without_record",
		 [](RuleImage &plan, u16 rule) {
			 plan.child(plan.next(plan.next(rule)), kNoId);
		 }},
		{"version_record_outside",
		 [](RuleImage &plan, u16 rule) {
			 plan.record(plan.child(plan.next(plan.next(rule))), 8, 0x10000);
		 }},
		{"version_record_short",
		 [](RuleImage &plan, u16 rule) {
			 const u16 record = plan.child(plan.next(plan.next(rule)));
			 plan.record(record, 7, plan.record_offset(record));
		 }},
	};
	for (const auto &row : table) {
		SCOPED_TRACE(row.what);
		RuleImage plan;
		plan.append(0, plan.add(EXTMEM_TAG_GENERAL)); // a holder without a child is passed
		row.damage(plan, plan.rule("R"));
		plan.rule("S", {2, 1, 5});
		ImageBytes image = plan.write();
		Rules adopted;
		ASSERT_TRUE(adopt(adopted, image));
		vexil_version version{7, 7, 7};
		EXPECT_FALSE(rm_get_rm_version(adopted.get(), &version, "R"));
		EXPECT_EQ(version, (vexil_version{7, 7, 7}));
		EXPECT_TRUE(rm_get_rm_version(adopted.get(), &version, "S"));
		EXPECT_EQ(version, (vexil_version{2, 1, 5}));
	}
}

TEST_F(RmVersion, CyclicRootChainEndsTheQuery)
{
	RuleImage plan;
	plan.rule("R");
	ImageBytes image = plan.write();
	Rules adopted;
	ASSERT_TRUE(adopt(adopted, image));
	const u16 holder = plan.child(0);
	image.put(ImageBytes::node_at(holder) + 5, holder); // damaged behind the context's back
	vexil_version version{};
	EXPECT_FALSE(rm_get_rm_version(adopted.get(), &version, "Other"));
}

} // namespace
