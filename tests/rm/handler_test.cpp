// SPDX-License-Identifier: MIT
//
// Handlers: states of their own over one context.
#include "tests/support/rm_states.h"

namespace {

using namespace vexil_test;
using namespace vexil_test::states;

using RmHandler = RulesTest;
using RmHandlerTrigger = RulesTest;
using RmHandlerFind = RulesTest;
using RmHandlerDestroy = RulesTest;
using RmHandlerImage = HandRulesTest;

const std::string kRules = rule("A", one_case("'Input': 'DTV'", "'s1', 'p1'") + ", " +
					     one_case("'Input': 'HDMI', 'Luma': '[5, 9]'", "'s2'") +
					     ", " + one_case("", "'s3'")) +
			   ", " + rule("B", one_case("'Timing': '720p'", "'s4', 'p4'"));

Words key_of_handler(const rm_handler *handler, bool mask = false)
{
	return key_of(handler->pRm, handler->rmInd, mask);
}

// ---- creation ----

TEST_F(RmHandler, BeginsEmptyOverItsContext)
{
	build(kSources, kRules);
	ASSERT_TRUE(set("Input:DTV;Luma:7"));
	Handler handler;
	ASSERT_TRUE(rm_create_handler(rules, handler.out()));
	EXPECT_EQ(handler->pRm, rules.get());
	EXPECT_EQ(key_of_handler(handler), Words{0});
	EXPECT_EQ(key_of_handler(handler, true), Words{0});
	EXPECT_EQ(numbers_of(rules, handler->rmInd), (Words{0, 0}));
	for (const rm_result *list : {&handler->rmInd.result, &handler->rmInd.preset}) {
		EXPECT_EQ(list->num_result, 0u);
		EXPECT_EQ(list->max_result, 0u);
		EXPECT_EQ(list->result_list, nullptr);
	}
	EXPECT_NE(handler->rmInd.keyBuffer, rules->rmInd.keyBuffer);
	EXPECT_NE(handler->rmInd.resBuffer, rules->rmInd.resBuffer);
}

TEST_F(RmHandler, TakesThreeBlocksAndGivesThemBack)
{
	build(kSources, kRules);
	const size_t blocks = live_blocks();
	{
		Handler handler(rules);
		EXPECT_EQ(live_blocks(), blocks + 3); // record, key, numbers
		ASSERT_TRUE(rm_handler_trigger(handler, nullptr));
		ASSERT_TRUE(rm_handler_set(handler, "Input:DTV", 0));
		ASSERT_TRUE(rm_handler_trigger(handler, nullptr));
		EXPECT_EQ(live_blocks(), blocks + 5); // and both lists
	}
	EXPECT_EQ(live_blocks(), blocks);
}

TEST_F(RmHandler, IsNotMadeWithoutMemory)
{
	build(kSources, kRules);
	const size_t blocks = live_blocks();
	for (size_t nth = 1; nth <= 3; ++nth) {
		rm_handler *handler = nullptr;
		const Refuse one = Refuse::only(nth);
		EXPECT_FALSE(rm_create_handler(rules, &handler)) << nth;
		EXPECT_TRUE(one.happened()) << nth;
		EXPECT_EQ(handler, nullptr) << nth;
		EXPECT_EQ(live_blocks(), blocks) << nth;
	}
}

TEST_F(RmHandler, RefusesNulls)
{
	build(kSources, kRules);
	rm_handler *handler = nullptr;
	u16 *list = nullptr;
	EXPECT_FALSE(rm_create_handler(nullptr, &handler));
	EXPECT_FALSE(rm_create_handler(rules, nullptr));
	EXPECT_FALSE(rm_handler_set(nullptr, "Input:DTV", 0));
	EXPECT_FALSE(rm_handler_trigger(nullptr, nullptr));
	EXPECT_FALSE(rm_handler_find(nullptr, "Input:DTV", "A"));
	EXPECT_FALSE(rm_handler_clear(nullptr));
	EXPECT_EQ(rm_handler_get_result(nullptr, &list), 0u);
	EXPECT_EQ(rm_handler_get_preset(nullptr, &list), 0u);
	EXPECT_EQ(rm_handler_get_num_result(nullptr), 0u);
	EXPECT_EQ(list, nullptr);

	Handler good(rules);
	EXPECT_FALSE(rm_handler_set(good, nullptr, 0));
	EXPECT_FALSE(rm_handler_find(good, nullptr, "A"));
	ASSERT_TRUE(rm_handler_trigger(good, nullptr));
	EXPECT_EQ(rm_handler_get_result(good, nullptr), 0u);
	EXPECT_EQ(rm_handler_get_preset(good, nullptr), 0u);
}

TEST_F(RmHandler, WithoutItsContextAnswersFalse)
{
	build(kSources, kRules);
	Handler handler(rules);
	handler->pRm = nullptr;
	EXPECT_FALSE(rm_handler_set(handler, "Input:DTV", 0));
	EXPECT_FALSE(rm_handler_trigger(handler, nullptr));
	EXPECT_FALSE(rm_handler_find(handler, "", nullptr));
	EXPECT_FALSE(rm_handler_clear(handler));
}

TEST_F(RmHandler, OverAContextWithoutSourcesYieldsCasesWithoutConditions)
{
	build("", always("A", "'s1', 'p1'"));
	ASSERT_EQ(rules->used_bits, 0u);
	Handler handler(rules);
	ASSERT_NE(handler->rmInd.keyBuffer, nullptr);
	ASSERT_NE(handler->rmInd.resBuffer, nullptr);
	EXPECT_TRUE(rm_handler_set(handler, "Input:DTV;Luma:7", 3));
	EXPECT_TRUE(rm_handler_trigger(handler, nullptr));
	EXPECT_EQ(settings_of(handler), Ids{1001});
	EXPECT_EQ(presets_of(handler), Ids{2001});
	EXPECT_TRUE(rm_handler_clear(handler));
}

TEST_F(RmHandler, FreezesTheSourcesOfItsContext)
{
	build(kSources, kRules);
	{
		Handler handler(rules);
	}
	const size_t bits = rules->used_bits;
	EXPECT_FALSE(insert_sources(rules, "'More': {'content': ['x']}")); // also when it is gone again
	EXPECT_FALSE(insert_sources(rules, "'More': {'content': 'number'}"));
	EXPECT_EQ(rules->used_bits, bits);
	EXPECT_EQ(rules->res_num, 2u);
}

// ---- evaluation ----

TEST_F(RmHandlerTrigger, HandlersDoNotSeeEachOtherNorTheContext)
{
	build(kSources, kRules);
	Handler one(rules), two(rules);
	ASSERT_TRUE(rm_handler_set(one, "Input:DTV", 0));
	ASSERT_TRUE(rm_handler_set(two, "Input:HDMI;Timing:720p;Luma", 5));
	ASSERT_TRUE(set("Input:HDMI;Luma:4"));
	EXPECT_TRUE(rm_handler_trigger(one, nullptr));
	EXPECT_TRUE(rm_handler_trigger(two, nullptr));
	EXPECT_TRUE(trigger());
	EXPECT_EQ(settings_of(one), Ids{1001});
	EXPECT_EQ(presets_of(one), Ids{2001});
	EXPECT_EQ(settings_of(two), (Ids{1002, 1004}));
	EXPECT_EQ(presets_of(two), Ids{2004});
	EXPECT_EQ(settings(), Ids{1003});
	EXPECT_EQ(rm_handler_get_num_result(one), 1u);
	EXPECT_EQ(rm_handler_get_num_result(two), 2u);
	EXPECT_TRUE(rm_handler_trigger(two, "B"));
	EXPECT_EQ(settings_of(two), Ids{1004});
	EXPECT_EQ(settings_of(one), Ids{1001});
}

TEST_F(RmHandlerTrigger, SetFollowsTheRulesOfTheContextsOwn)
{
	build(kSources, kRules);
	Handler handler(rules);
	EXPECT_TRUE(rm_handler_set(handler, " input:d t v ; Nothing:9; Luma ; Chroma:3", 5));
	EXPECT_EQ(key_of_handler(handler), Words{2 | 1 << 5 | 1 << 6});
	EXPECT_EQ(numbers_of(rules, handler->rmInd), (Words{9, 3}));
	EXPECT_FALSE(rm_handler_set(handler, "Bright:Low", 0));
	EXPECT_FALSE(rm_handler_set(handler, std::string(128, 'x').c_str(), 0));
	EXPECT_EQ(mask(), Words{0}); // the context's own
}

TEST_F(RmHandlerTrigger, TakesLists)
{
	build(kSources, always("A", "'s1'") + ", " + always("B", "'s2'") + ", " + always("C", "'s3'"));
	Handler handler(rules);
	EXPECT_TRUE(rm_handler_trigger(handler, " c; a"));
	EXPECT_EQ(settings_of(handler), (Ids{1003, 1001}));
	EXPECT_TRUE(rm_handler_trigger(handler, "B;-"));
	EXPECT_EQ(settings_of(handler), (Ids{1001, 1003}));
	EXPECT_TRUE(rm_handler_trigger(handler, ""));
	EXPECT_EQ(settings_of(handler), Ids{});
}

TEST_F(RmHandlerTrigger, ReportsUnderItsOwnName)
{
	ASSERT_TRUE(insert_rules(rules, map.get(),
				 always("A", "'s1'") + ", " + always("B", "'s2'", "'Missing'")));
	ASSERT_FALSE(rm_finish(rules));
	Handler handler(rules);
	EXPECT_TRUE(rm_handler_trigger(handler, "Nothing;A"));
	EXPECT_EQ(take_log(), unknown_rule("rm_handler_trigger", "Nothing"));
	EXPECT_EQ(settings_of(handler), Ids{1001});
	for (const char *names : {static_cast<const char *>(nullptr), "A;B", "-X"}) {
		EXPECT_FALSE(rm_handler_trigger(handler, names));
		const Lines lines = take_log_lines();
		ASSERT_GE(lines.size(), 2u);
		EXPECT_EQ(lines.back() + "\n", rule_failed("rm_handler_trigger", id("B")));
		EXPECT_EQ(settings_of(handler), (Ids{1001, 1002}));
	}
}

TEST_F(RmHandlerTrigger, ClearForgetsTheHandlersSourcesOnly)
{
	build(kSources, kRules);
	Handler handler(rules), other(rules);
	for (rm_handler *each : {static_cast<rm_handler *>(handler), static_cast<rm_handler *>(other)})
		ASSERT_TRUE(rm_handler_set(each, "Input:DTV;Luma:7", 0));
	ASSERT_TRUE(set("Input:DTV;Luma:7"));
	ASSERT_TRUE(rm_handler_trigger(handler, "A"));
	EXPECT_TRUE(rm_handler_clear(handler));
	EXPECT_EQ(key_of_handler(handler), Words{0});
	EXPECT_EQ(key_of_handler(handler, true), Words{0});
	EXPECT_EQ(numbers_of(rules, handler->rmInd), (Words{0, 0}));
	EXPECT_EQ(settings_of(handler), Ids{1001}); // lists stay
	EXPECT_EQ(key_of_handler(other), Words{2 | 1 << 5});
	EXPECT_EQ(key(), Words{2 | 1 << 5});
	EXPECT_TRUE(rm_clear(rules));
	EXPECT_EQ(key_of_handler(other), Words{2 | 1 << 5});
}

TEST_F(RmHandlerTrigger, ClearNeedsBothBuffers)
{
	build(kSources, kRules);
	Handler handler(rules);
	ASSERT_TRUE(rm_handler_set(handler, "Input:DTV", 0));
	u64 *numbers = std::exchange(handler->rmInd.resBuffer, nullptr);
	EXPECT_FALSE(rm_handler_clear(handler));
	EXPECT_EQ(key_of_handler(handler), Words{0}); // emptied all the same
	handler->rmInd.resBuffer = numbers;
	u64 *key_words = std::exchange(handler->rmInd.keyBuffer, nullptr);
	EXPECT_FALSE(rm_handler_clear(handler));
	handler->rmInd.keyBuffer = key_words;
	EXPECT_TRUE(rm_handler_clear(handler));
}

TEST_F(RmHandlerImage, HandlerOverAnImageWithoutUsedBits)
{
	plan.rule("A", {plan.one_case({plan.alternative(plan.key({}))}, {plan.settings({1})})});
	plan.rule("B", {plan.one_case({any()}, {plan.settings({2})})});
	adopt();
	Handler handler(rules);
	EXPECT_TRUE(rm_handler_trigger(handler, "A"));
	EXPECT_EQ(settings_of(handler), Ids{1});
	EXPECT_FALSE(rm_handler_trigger(handler, "B"));
	EXPECT_EQ(take_log(), kBadLength + rule_failed("rm_handler_trigger", rule_id(rules, "B")));
}

TEST_F(RmHandlerImage, HandlerOverAnAdoptedImage)
{
	plan.used_bits(8);
	plan.res_num(1);
	plan.label("x:y", plan.field(3, 2, 2));
	plan.rule("A",
		  {plan.one_case({plan.alternative(plan.key({2 << 3, 3 << 3}))}, {plan.settings({1})})});
	adopt();
	Handler handler(rules);
	EXPECT_TRUE(rm_handler_trigger(handler, nullptr));
	EXPECT_EQ(settings_of(handler), Ids{});
	EXPECT_TRUE(rm_handler_set(handler, "X:Y", 0));
	EXPECT_TRUE(rm_handler_trigger(handler, nullptr));
	EXPECT_EQ(settings_of(handler), Ids{1});
}

// ---- one-shot ----

TEST_F(RmHandlerFind, UsesTheContextsKeyAndLists)
{
	build(kSources, kRules);
	Handler handler(rules);
	ASSERT_TRUE(rm_handler_set(handler, "Input:HDMI;Luma:7", 0));
	ASSERT_TRUE(rm_handler_trigger(handler, nullptr));
	ASSERT_EQ(settings_of(handler), Ids{1002});
	const Words before = key_of_handler(handler);

	EXPECT_TRUE(rm_handler_find(handler, "Input:DTV;Luma", "a"));
	EXPECT_EQ(settings_of(handler), Ids{}); // its own counts are emptied
	EXPECT_EQ(presets_of(handler), Ids{});
	EXPECT_EQ(settings(), Ids{1001}); // the context's lists are filled
	EXPECT_EQ(presets(), Ids{2001});
	EXPECT_EQ(key_of_handler(handler), before);
	EXPECT_EQ(numbers_of(rules, handler->rmInd), (Words{7, 0}));
	EXPECT_EQ(key(), Words{2 | 1 << 5});
	EXPECT_EQ(numbers(), (Words{0, 0}));
}

TEST_F(RmHandlerFind, AddsToTheContextsLists)
{
	build(kSources, kRules);
	Handler handler(rules);
	ASSERT_TRUE(set("Timing:720p"));
	ASSERT_TRUE(trigger("B"));
	EXPECT_TRUE(rm_handler_find(handler, "Input:DTV", "A"));
	EXPECT_EQ(settings(), (Ids{1004, 1001}));
	EXPECT_EQ(presets(), (Ids{2004, 2001}));
	EXPECT_TRUE(rm_handler_find(handler, "", nullptr));
	EXPECT_EQ(settings(), (Ids{1004, 1001, 1001, 1004}));
}

TEST_F(RmHandlerFind, EmptiesBothOfTheHandlersCounts)
{
	build(kSources, kRules);
	Handler handler(rules);
	ASSERT_TRUE(rm_handler_set(handler, "Input:DTV", 0));
	ASSERT_TRUE(rm_handler_trigger(handler, nullptr));
	ASSERT_EQ(presets_of(handler).size(), 1u);
	EXPECT_FALSE(rm_handler_find(handler, "", "Nothing"));
	EXPECT_EQ(take_log(), unknown_rule("rm_handler_find", "Nothing"));
	EXPECT_EQ(settings_of(handler), Ids{});
	EXPECT_EQ(presets_of(handler), Ids{});
	EXPECT_EQ(handler->rmInd.result.max_result, 16u);
}

TEST_F(RmHandlerFind, NamesTheRuleThatFails)
{
	ASSERT_TRUE(insert_rules(rules, map.get(),
				 always("A", "'s1'") + ", " + always("B", "'s2'", "'Missing'")));
	ASSERT_FALSE(rm_finish(rules));
	Handler handler(rules);
	for (const char *name : {static_cast<const char *>(nullptr), "b"}) {
		EXPECT_FALSE(rm_handler_find(handler, "", name));
		const Lines lines = take_log_lines();
		ASSERT_EQ(lines.size(), 2u);
		EXPECT_EQ(lines[1] + "\n", rule_failed("rm_handler_find", id("B")));
	}
	EXPECT_EQ(settings(), (Ids{1001, 1002, 1002}));
}

TEST_F(RmHandlerFind, FailsWithItsFilterAndWithoutTheContextsKey)
{
	build(kSources, kRules);
	Handler handler(rules);
	EXPECT_FALSE(rm_handler_find(handler, "Bright:Low", "A"));
	u64 *key_words = std::exchange(rules->rmInd.keyBuffer, nullptr);
	EXPECT_FALSE(rm_handler_find(handler, "", "A"));
	rules->rmInd.keyBuffer = key_words;
	EXPECT_EQ(settings(), Ids{});
}

// ---- end ----

TEST_F(RmHandlerDestroy, ClearsTheCallersPointer)
{
	build(kSources, kRules);
	rm_handler *handler = nullptr;
	EXPECT_FALSE(rm_handler_destroy(nullptr));
	EXPECT_FALSE(rm_handler_destroy(&handler));
	ASSERT_TRUE(rm_create_handler(rules, &handler));
	EXPECT_TRUE(rm_handler_destroy(&handler));
	EXPECT_EQ(handler, nullptr);
	EXPECT_FALSE(rm_handler_destroy(&handler));
}

TEST_F(RmHandlerDestroy, IsSafeWhenTheContextIsGone)
{
	build(kSources, kRules);
	Handler handler(rules);
	ASSERT_TRUE(rm_handler_set(handler, "Input:DTV", 0));
	ASSERT_TRUE(rm_handler_trigger(handler, nullptr));
	ASSERT_TRUE(rm_destroy(rules.out()));
	EXPECT_TRUE(rm_handler_destroy(handler.out()));
}

TEST_F(RmHandlerDestroy, LeavesTheContextAlone)
{
	build(kSources, kRules);
	ASSERT_TRUE(set("Input:DTV"));
	ASSERT_TRUE(trigger());
	{
		Handler handler(rules);
		ASSERT_TRUE(rm_handler_trigger(handler, nullptr));
	}
	EXPECT_EQ(settings(), Ids{1001});
	EXPECT_TRUE(trigger());
	EXPECT_EQ(settings(), Ids{1001});
}

} // namespace
