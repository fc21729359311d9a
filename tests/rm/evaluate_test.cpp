// SPDX-License-Identifier: MIT
//
// Source filters into keys and numbers, rules into ids, lists of rules, damaged images.
#include "tests/support/rm_states.h"

#include <algorithm>

namespace {

using namespace vexil_test;
using namespace vexil_test::states;

using RmSet = RulesTest;
using RmFind = RulesTest;
using RmClear = RulesTest;
using RmEvaluate = RulesTest;
using RmChildren = RulesTest;
using RmTrigger = RulesTest;
using RmRuleList = RulesTest;
using RmSetDamage = HandRulesTest;
using RmEvaluateDamage = HandRulesTest;

constexpr size_t kLongestToken = 127;
constexpr size_t kMostListed = 128;

std::string quoted(const std::string &name)
{
	return "'" + name + "'";
}

// ---- keys ----

TEST_F(RmSet, PutsTheCodeOfALabelIntoItsField)
{
	build(kSources, "");
	ASSERT_EQ(rules->used_bits, 7u);
	EXPECT_TRUE(set("Input:DTV"));
	EXPECT_EQ(key(), Words{2});
	EXPECT_EQ(mask(), Words{3});
	EXPECT_TRUE(set("Timing:480i"));
	EXPECT_EQ(key(), Words{2 | 4 << 2});
	EXPECT_EQ(mask(), Words{3 | 7 << 2});
	EXPECT_EQ(numbers(), (Words{0, 0}));
}

TEST_F(RmSet, ValueSourceTakesItsBitAndTheNumberGiven)
{
	build(kSources, "");
	EXPECT_TRUE(set("Chroma", 0x123456789ABCDEF0));
	EXPECT_EQ(key(), Words{1 << 6});
	EXPECT_EQ(mask(), Words{1 << 6});
	EXPECT_EQ(numbers(), (Words{0, 0x123456789ABCDEF0}));
}

TEST_F(RmSet, FirstLabelHasCodeOne)
{
	build(kSources, "");
	EXPECT_TRUE(set("Input:HDMI;Timing:2160p;Luma"));
	EXPECT_EQ(key(), Words{1 | 1 << 2 | 1 << 5});
}

TEST_F(RmSet, OverwritesTheFieldAndLeavesOthersAlone)
{
	build(kSources, "");
	EXPECT_TRUE(set("Input:CVBS;Timing:720p"));
	EXPECT_TRUE(set("Input:HDMI"));
	EXPECT_EQ(key(), Words{1 | 3 << 2});
	EXPECT_TRUE(set("Timing:1080p;Timing:480i"));
	EXPECT_EQ(key(), Words{1 | 4 << 2});
	EXPECT_EQ(mask(), Words{0x1F});
}

TEST_F(RmSet, LetterCaseAndBlanksDoNotMatter)
{
	build(kSources, "");
	EXPECT_TRUE(set("  iN pUt : d T v ;  TIMING:2160P "));
	EXPECT_EQ(key(), Words{2 | 1 << 2});
}

TEST_F(RmSet, LabelWithABlankCannotBeSet)
{
	build("'Game Mode': {'content': ['On']}", "");
	EXPECT_TRUE(set("Game Mode:On"));
	EXPECT_EQ(key(), Words{0});
	EXPECT_EQ(mask(), Words{0});
}

TEST_F(RmSet, EmptyTokensSayNothing)
{
	build(kSources, "");
	for (const char *filter : {"", ";", " ; ;; ", "   "}) {
		EXPECT_TRUE(set(filter)) << filter;
		EXPECT_EQ(mask(), Words{0}) << filter;
	}
	EXPECT_TRUE(set(";;Input:DTV;;Luma:4;"));
	EXPECT_EQ(key(), Words{2 | 1 << 5});
}

TEST_F(RmSet, UnknownNamesArePassedOver)
{
	build(kSources, "");
	EXPECT_TRUE(set("Nothing;Nothing:7;Input;Input:SCART;In-put:DTV;Timing:720p"));
	EXPECT_EQ(key(), Words{3 << 2});
	EXPECT_EQ(mask(), Words{7 << 2});
}

TEST_F(RmSet, NumbersAreReadAsTheKernelReadsThem)
{
	build(kSources, "");
	const struct {
		const char *text;
		u64 number;
	} cases[] = {
		{"Luma:12", 12},
		{"Luma:0x1F", 31},
		{"Luma:0X1f", 31},
		{"Luma:010", 8},
		{"Luma:+7", 7},
		{"Luma:1 2", 12},
		{"Luma:9\n", 9},
		{"Luma:18446744073709551615", 0xFFFFFFFFFFFFFFFF},
		{"Luma:18446744073709551616", 0},
		{"Luma:-1", 0},
		{"Luma:", 0},
		{"Luma:abc", 0},
		{"Luma:12abc", 0},
		{"Luma:1:2", 0},
		{"Luma:08", 0},
	};
	for (const auto &row : cases) {
		ASSERT_TRUE(set("Luma", 99));
		EXPECT_TRUE(set(row.text, 55)) << row.text;
		EXPECT_EQ(numbers(), (Words{row.number, 0})) << row.text;
		EXPECT_EQ(key(), Words{1 << 5}) << row.text;
	}
}

TEST_F(RmSet, NumberInATokenCountsForTheTokensThatFollow)
{
	build(kSources, "");
	EXPECT_TRUE(set("Luma:12;Chroma", 5));
	EXPECT_EQ(numbers(), (Words{12, 12}));
	EXPECT_TRUE(set("Luma;Chroma:9", 5));
	EXPECT_EQ(numbers(), (Words{5, 9}));
	EXPECT_TRUE(set("Luma:12;Chroma:0;Luma", 5));
	EXPECT_EQ(numbers(), (Words{0, 0}));
}

TEST_F(RmSet, NumberOfAnUnknownNameCountsToo)
{
	build(kSources, "");
	EXPECT_TRUE(set("Nothing:21;Luma", 5));
	EXPECT_EQ(numbers(), (Words{21, 0}));
	EXPECT_TRUE(set("Input:SCART;Luma", 5)); // no label, so its text is taken for a number
	EXPECT_EQ(numbers(), (Words{0, 0}));
}

TEST_F(RmSet, LabelThatLooksLikeANumberIsALabel)
{
	build("'Depth': {'content': ['8', '12']}, 'Luma': {'content': 'number'}", "");
	EXPECT_TRUE(set("Depth:12;Luma", 5));
	EXPECT_EQ(key(), Words{2 | 1 << 2});
	EXPECT_EQ(numbers(), Words{5});
}

TEST_F(RmSet, NumberOfAnEnumeratedSourceIsNotKept)
{
	build(kSources, "");
	EXPECT_TRUE(set("Input:DTV", 77));
	EXPECT_EQ(numbers(), (Words{0, 0}));
}

TEST_F(RmSet, TokenOf127CharactersIsLookedUp)
{
	const std::string name(kLongestToken - 2, 'n');
	build("'" + name + "': {'content': ['v']}", "");
	EXPECT_TRUE(set(name + ":v"));
	EXPECT_EQ(key(), Words{1});
}

TEST_F(RmSet, TokenOf128CharactersEndsTheCall)
{
	const std::string name(kLongestToken - 1, 'n');
	build("'Input': {'content': ['DTV', 'CVBS']}, '" + name + "': {'content': ['v']}", "");
	EXPECT_FALSE(set("Input:DTV;" + name + ":v;Input:CVBS"));
	EXPECT_EQ(key(), Words{1}); // what stood before is set, what follows is not
	EXPECT_EQ(mask(), Words{3});
}

TEST_F(RmSet, BlanksDoNotCountForTheLengthOfAToken)
{
	build(kSources, "");
	EXPECT_TRUE(set(std::string(300, ' ') + "Input:" + std::string(300, ' ') + "DTV"));
	EXPECT_EQ(key(), Words{2});
	EXPECT_TRUE(set(std::string(kLongestToken, 'x')));
	EXPECT_FALSE(set(std::string(kLongestToken + 1, 'x')));
}

TEST_F(RmSet, RedefinedLabelEndsTheCall)
{
	build(kSources, "");
	EXPECT_FALSE(set("Input:DTV;Bright:Low;Timing:720p"));
	EXPECT_EQ(key(), Words{2});
	EXPECT_EQ(mask(), Words{3});
}

TEST_F(RmSet, FieldRunsIntoTheNextWord)
{
	std::string sources;
	for (int i = 0; i < 31; ++i) // 62 bits
		sources += "'S" + std::to_string(i) + "': {'content': ['a', 'b', 'c']}, ";
	build(sources + "'Wide': {'content': ['1', '2', '3', '4', '5', '6', '7']}, "
			"'After': {'content': ['x']}",
	      "");
	ASSERT_EQ(rules->used_bits, 66u);
	EXPECT_TRUE(set("Wide:5"));
	EXPECT_EQ(key(), (Words{u64{1} << 62, 1}));
	EXPECT_EQ(mask(), (Words{u64{3} << 62, 1}));
	EXPECT_TRUE(set("After:x;S30:c"));
	EXPECT_EQ(key(), (Words{u64{1} << 62 | u64{3} << 60, 1 | 1 << 1}));
	EXPECT_TRUE(set("Wide:2"));
	EXPECT_EQ(key(), (Words{u64{2} << 62 | u64{3} << 60, 1 << 1}));
	EXPECT_TRUE(set("Wide:7"));
	EXPECT_EQ(key(), (Words{u64{3} << 62 | u64{3} << 60, 1 | 1 << 1}));
	EXPECT_EQ(mask(), (Words{u64{0xF} << 60, 3}));
}

TEST_F(RmSet, FieldsThatMeetAtAWordsEndDoNotTouch)
{
	std::string sources;
	for (int i = 0; i < 32; ++i) // 64 bits
		sources += "'S" + std::to_string(i) + "': {'content': ['a', 'b', 'c']}, ";
	build(sources + "'Next': {'content': ['x', 'y']}", "");
	EXPECT_TRUE(set("S31:c"));
	EXPECT_EQ(key(), (Words{u64{3} << 62, 0}));
	EXPECT_EQ(mask(), (Words{u64{3} << 62, 0}));
	EXPECT_TRUE(set("Next:y"));
	EXPECT_EQ(key(), (Words{u64{3} << 62, 2}));
	EXPECT_EQ(mask(), (Words{u64{3} << 62, 3}));
}

TEST_F(RmSet, LastFieldOfAFullWordStaysInTheBuffer)
{
	std::string sources;
	for (int i = 0; i < 32; ++i)
		sources += (i ? ", 'S" : "'S") + std::to_string(i) + "': {'content': ['a', 'b', 'c']}";
	build(sources, "");
	ASSERT_EQ(rules->used_bits, 64u);
	EXPECT_TRUE(set("S31:b"));
	EXPECT_EQ(key(), Words{u64{2} << 62});
}

TEST_F(RmSet, RefusesNullsAndContextsWithoutBuffers)
{
	EXPECT_FALSE(rm_set(nullptr, "Input:DTV", 0));
	EXPECT_FALSE(set("Input:DTV")); // not finished
	EXPECT_FALSE(__rm_build_key(rules, &rules->rmInd, "Input:DTV", 0));
	build(kSources, "");
	EXPECT_FALSE(rm_set(rules, nullptr, 0));
	EXPECT_FALSE(__rm_build_key(nullptr, &rules->rmInd, "Input:DTV", 0));
	EXPECT_FALSE(__rm_build_key(rules, nullptr, "Input:DTV", 0));
	EXPECT_FALSE(__rm_build_key(rules, &rules->rmInd, nullptr, 0));
	EXPECT_EQ(mask(), Words{0});
}

TEST_F(RmSet, BuildsTheKeyOfTheStateThatIsGiven)
{
	build(kSources, "");
	Handler handler(rules);
	EXPECT_TRUE(__rm_build_key(rules, &handler->rmInd, "Input:DTV;Luma", 3));
	EXPECT_EQ(key_of(rules, handler->rmInd), Words{2 | 1 << 5});
	EXPECT_EQ(numbers_of(rules, handler->rmInd), (Words{3, 0}));
	EXPECT_EQ(mask(), Words{0});
}

TEST_F(RmSetDamage, ValueSourceWithoutANumberBuffer)
{
	plan.used_bits(2);
	plan.label("Luma", plan.field(0, 1, 1), plan.slot(0));
	plan.label("Input:DTV", plan.field(1, 1, 1));
	adopt();
	EXPECT_FALSE(rm_set(rules, "Input:DTV;Luma", 5));
	EXPECT_EQ(take_log(), kNoNumbers);
	EXPECT_EQ(key_of(rules, rules->rmInd), Words{2});
}

TEST_F(RmSetDamage, SlotBeyondTheNumberBuffer)
{
	plan.used_bits(2);
	plan.res_num(2);
	plan.label("Last", plan.field(0, 1, 1), plan.slot(1));
	plan.label("Beyond", plan.field(1, 1, 1), plan.slot(2));
	plan.label("Far", plan.field(1, 1, 1), plan.slot(~u64{0}));
	adopt();
	EXPECT_TRUE(rm_set(rules, "Last", 5));
	for (const char *name : {"Beyond", "Far"}) {
		EXPECT_FALSE(rm_set(rules, name, 5));
		EXPECT_EQ(take_log(), kNoNumbers) << name;
	}
	EXPECT_EQ(numbers_of(rules, rules->rmInd), (Words{0, 5}));
}

TEST_F(RmSetDamage, SlotRecordThatIsShortOrEmpty)
{
	plan.used_bits(2);
	plan.res_num(2);
	const u32 half = 0;
	plan.label("Short", plan.field(0, 1, 1),
		   plan.record(EXTMEM_TAG_SIZE_HOLDER, &half, sizeof half));
	plan.label("Empty", plan.field(1, 1, 1), plan.record(EXTMEM_TAG_SIZE_HOLDER, nullptr, 0));
	adopt();
	for (const char *name : {"Short", "Empty"}) {
		EXPECT_FALSE(rm_set(rules, name, 5));
		EXPECT_EQ(take_log(), kNoNumbers) << name;
	}
}

TEST_F(RmSetDamage, FieldsOutsideTheKeyOrOfNoWidth)
{
	plan.used_bits(100); // 128 bits in two words
	plan.label("good:widest", plan.field(112, 16, 0xFFFF));
	plan.label("good:straddling", plan.field(60, 16, 0xABCD));
	plan.label("bad:none", plan.field(0, 0, 0));
	plan.label("bad:wide", plan.field(0, 17, 1));
	plan.label("bad:vast", plan.field(0, 0xFFFF, 1));
	plan.label("bad:behind", plan.field(128, 1, 1));
	plan.label("bad:over", plan.field(113, 16, 1));
	plan.label("bad:far", plan.field(0xFFFF, 1, 1));
	adopt();
	EXPECT_TRUE(rm_set(rules, "good:straddling;good:widest", 0));
	EXPECT_EQ(key_of(rules, rules->rmInd), (Words{u64{0xD} << 60, u64{0xFFFF} << 48 | 0xABC}));
	EXPECT_EQ(key_of(rules, rules->rmInd, true), (Words{u64{0xF} << 60, u64{0xFFFF} << 48 | 0xFFF}));
	EXPECT_TRUE(rm_clear(rules) == false); // no number buffer, but the key is empty again
	for (const char *name :
	     {"bad:none", "bad:wide", "bad:vast", "bad:behind", "bad:over", "bad:far"}) {
		EXPECT_FALSE(rm_set(rules, name, 0)) << name;
		EXPECT_EQ(key_of(rules, rules->rmInd, true), (Words{0, 0})) << name;
	}
}

TEST_F(RmSetDamage, DescriptionsThatAreShortMissingOrOfAnotherKind)
{
	plan.used_bits(8);
	plan.label("x:short", plan.record(EXTMEM_TAG_SOURCE_DESCRIPTION, Ids{0, 1, 1}));
	plan.label("x:empty", plan.record(EXTMEM_TAG_SOURCE_DESCRIPTION, nullptr, 0));
	plan.label("x:missing", HandRules::none());
	plan.label("x:other", plan.record(EXTMEM_TAG_DATA, Ids{0, 1, 1, 0}));
	plan.label("x:node", plan.node(EXTMEM_TAG_GENERAL));
	adopt();
	for (const char *name : {"x:short", "x:empty", "x:missing", "x:other", "x:node"}) {
		EXPECT_FALSE(rm_set(rules, name, 0)) << name;
		EXPECT_EQ(key_of(rules, rules->rmInd, true), Words{0}) << name;
	}
}

TEST_F(RmSetDamage, ImageWithoutUsedBitsHasNoKey)
{
	plan.res_num(1);
	plan.label("Luma", plan.field(0, 1, 1), plan.slot(0));
	plan.rule("A", {plan.one_case({plan.alternative(plan.key({}))}, {plan.settings({1})})});
	adopt();
	EXPECT_FALSE(rm_set(rules, "Luma", 5));
	EXPECT_FALSE(rm_set(rules, "", 5));
	EXPECT_FALSE(rm_clear(rules));
	EXPECT_FALSE(rm_find(rules, "", "A"));
	EXPECT_EQ(take_log(), "");
	EXPECT_FALSE(trigger());
	EXPECT_EQ(take_log(), rule_failed("rm_trigger", rule_id(rules, "A")));
	EXPECT_EQ(settings(), Ids{});
}

TEST_F(RmSetDamage, RepeatedCountsReplaceTheBuffers)
{
	plan.used_bits(64);
	plan.used_bits(200);
	plan.res_num(1);
	plan.res_num(3);
	plan.label("x:last", plan.field(240, 16, 0xFFFF));
	plan.label("Luma", plan.field(0, 1, 1), plan.slot(2));
	adopt();
	EXPECT_TRUE(rm_set(rules, "x:last;Luma:9", 0));
	EXPECT_EQ(key_of(rules, rules->rmInd), (Words{1, 0, 0, u64{0xFFFF} << 48}));
	EXPECT_EQ(numbers_of(rules, rules->rmInd), (Words{0, 0, 9}));
}

// ---- clear ----

TEST_F(RmClear, ForgetsKeyMaskAndNumbers)
{
	build(kSources, "");
	ASSERT_TRUE(set("Input:DTV;Luma:7;Chroma:8"));
	EXPECT_TRUE(rm_clear(rules));
	EXPECT_EQ(key(), Words{0});
	EXPECT_EQ(mask(), Words{0});
	EXPECT_EQ(numbers(), (Words{0, 0}));
}

TEST_F(RmClear, KeepsTheLists)
{
	build(kSources, always("A", "'s1', 'p1'"));
	ASSERT_TRUE(trigger());
	EXPECT_TRUE(rm_clear(rules));
	EXPECT_EQ(settings(), Ids{1001});
	EXPECT_EQ(presets(), Ids{2001});
}

TEST_F(RmClear, NeedsBothBuffersAndAContext)
{
	EXPECT_FALSE(rm_clear(nullptr));
	EXPECT_FALSE(rm_clear(rules));
}

TEST_F(RmSetDamage, ClearEmptiesTheKeyAlsoWithoutNumbers)
{
	plan.used_bits(8);
	plan.label("x:y", plan.field(0, 8, 0x55));
	adopt();
	ASSERT_TRUE(rm_set(rules, "x:y", 0));
	EXPECT_FALSE(rm_clear(rules));
	EXPECT_EQ(key_of(rules, rules->rmInd), Words{0});
	EXPECT_EQ(key_of(rules, rules->rmInd, true), Words{0});
}

// ---- one rule ----

TEST_F(RmEvaluate, WithoutSourcesOnlyCasesWithoutConditionsMatch)
{
	build(kSources, rule("A", one_case("'Input': 'HDMI'", "'s1'")) + ", " + always("B", "'s2'"));
	EXPECT_TRUE(trigger());
	EXPECT_EQ(settings(), Ids{1002});
}

TEST_F(RmEvaluate, FirstMatchingCaseWins)
{
	build(kSources,
	      rule("A", one_case("'Input': 'HDMI', 'Timing': '720p'", "'s1'") + ", " +
				one_case("'Input': 'HDMI'", "'s2', 'p2'") + ", " +
				one_case("'Timing': '720p'", "'s3'") + ", " + one_case("", "'s4'")));
	const struct {
		const char *filter;
		Ids settings, presets;
	} cases[] = {
		{"Input:HDMI;Timing:720p", {1001}, {}},
		{"Timing:480i", {1002}, {2002}},
		{"Input:DTV", {1004}, {}},
		{"Timing:720p", {1003}, {}},
	};
	for (const auto &row : cases) {
		ASSERT_TRUE(set(row.filter));
		EXPECT_TRUE(trigger("A"));
		EXPECT_EQ(settings(), row.settings) << row.filter;
		EXPECT_EQ(presets(), row.presets) << row.filter;
	}
}

TEST_F(RmEvaluate, AnyAlternativeMakesACaseMatch)
{
	build(kSources,
	      rule("A", one_case("'Input': ['HDMI', 'CVBS'], 'Timing': ['2160p', '480i']", "'s1'")));
	int matched = 0;
	for (const char *input : {"HDMI", "DTV", "CVBS"}) {
		for (const char *timing : {"2160p", "1080p", "720p", "480i"}) {
			ASSERT_TRUE(set(std::string("Input:") + input + ";Timing:" + timing));
			EXPECT_TRUE(trigger());
			const bool expected =
				input != std::string("DTV") &&
				(timing == std::string("2160p") || timing == std::string("480i"));
			EXPECT_EQ(settings(), expected ? Ids{1001} : Ids{}) << input << timing;
			matched += expected;
		}
	}
	EXPECT_EQ(matched, 4);
}

TEST_F(RmEvaluate, ComparesFieldsThatRunIntoTheNextWord)
{
	std::string sources;
	for (int i = 0; i < 31; ++i)
		sources += "'S" + std::to_string(i) + "': {'content': ['a', 'b', 'c']}, ";
	build(sources + "'Wide': {'content': ['1', '2', '3', '4', '5', '6', '7']}",
	      rule("A", one_case("'Wide': '5'", "'s5'") + ", " + one_case("'Wide': '1'", "'s1'") + ", " +
				one_case("'Wide': '4', 'S30': 'b'", "'s4'")));
	const struct {
		const char *filter;
		Ids settings;
	} cases[] = {
		{"Wide:5", {1005}}, {"Wide:1", {1001}}, {"Wide:4", {}},
		{"S30:b", {1004}},  {"Wide:6", {}},     {"Wide:7", {}},
	};
	for (const auto &row : cases) {
		ASSERT_TRUE(set(row.filter));
		EXPECT_TRUE(trigger());
		EXPECT_EQ(settings(), row.settings) << row.filter;
	}
}

TEST_F(RmEvaluate, RangeBoundsBelongToTheRange)
{
	build(kSources, rule("A", one_case("'Luma': '[10, 20]'", "'s1'") + ", " +
					  one_case("'Luma': '(30, 40)'", "'s2'") + ", " +
					  one_case("'Luma': '(50, 50)'", "'s3'") + ", " +
					  one_case("'Luma': '[0x100, 0xFFFFFFFFFFFFFFFF]'", "'s4'")));
	const struct {
		u64 number;
		Ids settings;
	} cases[] = {
		{9, {}},      {10, {1001}}, {20, {1001}}, {21, {}},      {30, {}},          {31, {1002}},
		{39, {1002}}, {40, {}},     {50, {}},     {256, {1004}}, {~u64{0}, {1004}}, {255, {}},
	};
	for (const auto &row : cases) {
		ASSERT_TRUE(set("Luma", row.number));
		EXPECT_TRUE(trigger());
		EXPECT_EQ(settings(), row.settings) << row.number;
	}
}

TEST_F(RmEvaluate, ValueSourceThatIsNotSetComparesAsZero)
{
	build(kSources, rule("A", one_case("'Luma': '[1, 9]'", "'s1'") + ", " +
					  one_case("'Luma': '[0, 9]', 'Chroma': '[0, 0]'", "'s2'")));
	EXPECT_TRUE(trigger());
	EXPECT_EQ(settings(), Ids{1002});
	EXPECT_TRUE(set("Chroma:1"));
	EXPECT_TRUE(trigger());
	EXPECT_EQ(settings(), Ids{});
}

TEST_F(RmEvaluate, RedefinedLabelStandsForItsRanges)
{
	build(kSources, rule("A", one_case("'Bright': 'Low', 'Input': 'DTV'", "'s1'") + ", " +
					  one_case("'Bright': 'High'", "'s2'")));
	const struct {
		const char *filter;
		Ids settings;
	} cases[] = {
		{"Luma:99", {}},    {"Input:DTV", {1001}},
		{"Luma:100", {}},   {"Chroma:8", {1002}},
		{"Chroma:7", {}},   {"Chroma:19", {1002}},
		{"Chroma:20", {}},  {"Luma:0;Chroma:8", {1001}},
		{"Luma:65536", {}}, {"Luma:65535", {1002}},
	};
	for (const auto &row : cases) {
		ASSERT_TRUE(set(row.filter));
		EXPECT_TRUE(trigger());
		// The number of Luma is also Chroma's only where the filter says so.
		EXPECT_EQ(settings(), row.settings) << row.filter;
	}
}

TEST_F(RmEvaluate, OutcomesComeInTheirOrder)
{
	build(kSources, always("A", "'s3', 'p2', 's1', 's3', 'p9', 'p2'"));
	EXPECT_TRUE(trigger());
	EXPECT_EQ(settings(), (Ids{1003, 1001, 1003}));
	EXPECT_EQ(presets(), (Ids{2002, 2009, 2002}));
}

TEST_F(RmEvaluate, FindSettingAppendsToTheListsOfTheStateGiven)
{
	build(kSources, always("A", "'s1', 'p1'") + ", " + always("B", "'s2'"));
	Handler handler(rules);
	const auto node = [&](u16 id) { return extmem_create_node_d(&rules->builder, id); };
	EXPECT_TRUE(__rm_find_setting(rules, &handler->rmInd, node(id("A"))));
	EXPECT_TRUE(__rm_find_setting(rules, &handler->rmInd, node(id("B"))));
	EXPECT_TRUE(__rm_find_setting(rules, &handler->rmInd, node(id("A"))));
	EXPECT_EQ(settings_of(handler), (Ids{1001, 1002, 1001}));
	EXPECT_EQ(presets_of(handler), (Ids{2001, 2001}));
	EXPECT_EQ(settings(), Ids{});
	EXPECT_FALSE(__rm_find_setting(nullptr, &handler->rmInd, node(id("A"))));
	EXPECT_FALSE(__rm_find_setting(rules, nullptr, node(id("A"))));
	EXPECT_FALSE(__rm_find_setting(rules, &handler->rmInd, node(kNoId)));
}

TEST_F(RmEvaluate, KeyWithoutBitsMatchesAlways)
{
	build("", always("A", "'s1'"));
	ASSERT_EQ(rules->used_bits, 0u);
	EXPECT_TRUE(set("anything:1"));
	EXPECT_TRUE(rm_clear(rules));
	EXPECT_TRUE(trigger());
	EXPECT_EQ(settings(), Ids{1001});
}

TEST_F(RmEvaluate, RuleOlderThanItsSourcesIsRefused)
{
	ASSERT_TRUE(insert_rules(rules, map.get(), always("Old", "'s1'")));
	ASSERT_TRUE(insert_sources(rules, kSources));
	ASSERT_TRUE(insert_rules(rules, map.get(), always("New", "'s2'")));
	ASSERT_TRUE(rm_finish(rules));
	EXPECT_TRUE(trigger("New"));
	EXPECT_EQ(settings(), Ids{1002});
	EXPECT_FALSE(trigger("New;Old"));
	EXPECT_EQ(take_log(), kBadLength + rule_failed("rm_trigger", id("Old")));
	EXPECT_EQ(settings(), Ids{1002}); // what was found before stays
}

TEST_F(RmEvaluateDamage, KeyRecordsOfAnotherLength)
{
	plan.used_bits(65); // two words
	for (const size_t words : {0, 1, 2, 3, 5, 6})
		plan.rule("K" + std::to_string(words),
			  {plan.one_case({plan.alternative(plan.key(Words(words)))},
					 {plan.settings({1})})});
	plan.rule("Good", {plan.one_case({any(2)}, {plan.settings({7})})});
	adopt();
	for (const char *name : {"K0", "K1", "K2", "K3", "K5", "K6"}) {
		EXPECT_FALSE(trigger(name));
		EXPECT_EQ(take_log(), kBadLength + rule_failed("rm_trigger", rule_id(rules, name)))
			<< name;
		EXPECT_EQ(settings(), Ids{}) << name;
	}
	EXPECT_TRUE(trigger("Good"));
	EXPECT_EQ(settings(), Ids{7});
}

TEST_F(RmEvaluateDamage, KeyRecordWhereThereAreNoKeyBits)
{
	plan.used_bits(0);
	plan.rule("Empty", {plan.one_case({plan.alternative(plan.key({}))}, {plan.settings({5})})});
	plan.rule("Long", {plan.one_case({plan.alternative(plan.key({0, 0}))}, {plan.settings({6})})});
	adopt();
	EXPECT_TRUE(trigger("Empty"));
	EXPECT_EQ(settings(), Ids{5});
	EXPECT_FALSE(trigger("Long"));
	EXPECT_EQ(take_log(), kBadLength + rule_failed("rm_trigger", rule_id(rules, "Long")));
}

TEST_F(RmEvaluateDamage, BadKeyEndsTheTriggerEvenBehindCasesThatDoNotMatch)
{
	plan.used_bits(8);
	const node_d no_match = plan.alternative(plan.key({1, 1}));
	const node_d bad = plan.alternative(plan.key({0, 0, 0}));
	plan.rule("A", {plan.one_case({no_match, bad}, {plan.settings({1})}),
			plan.one_case({any()}, {plan.settings({2})})});
	plan.rule("B", {plan.one_case({any()}, {plan.settings({3})})});
	adopt();
	EXPECT_FALSE(trigger());
	EXPECT_EQ(take_log(), kBadLength + rule_failed("rm_trigger", rule_id(rules, "A")));
	EXPECT_EQ(settings(), Ids{}); // neither the next case nor the next rule
}

TEST_F(RmEvaluateDamage, BadKeyBehindTheMatchIsNotLookedAt)
{
	plan.used_bits(8);
	const node_d bad = plan.alternative(plan.key({0, 0, 0}));
	plan.rule("A", {plan.one_case({any(), bad}, {plan.settings({1})}),
			plan.one_case({bad}, {plan.settings({2})})});
	adopt();
	EXPECT_TRUE(trigger());
	EXPECT_EQ(settings(), Ids{1});
}

TEST_F(RmEvaluateDamage, KeyOfAnotherKindOrMissing)
{
	plan.used_bits(8);
	const Words zeroes(2);
	plan.rule("Tag", {plan.one_case({plan.alternative(plan.key(zeroes, EXTMEM_TAG_DATA))}, {})});
	plan.rule("Node", {plan.one_case({plan.alternative(plan.node(EXTMEM_TAG_GENERAL))}, {})});
	plan.rule("None", {plan.one_case({plan.alternative(HandRules::none())}, {})});
	plan.rule("Bare", {plan.one_case({plan.node(EXTMEM_TAG_GENERAL)}, {})});
	adopt();
	for (const char *name : {"Tag", "Node", "None", "Bare"}) {
		EXPECT_FALSE(trigger(name));
		EXPECT_EQ(take_log(), rule_failed("rm_trigger", rule_id(rules, name))) << name;
	}
}

TEST_F(RmEvaluateDamage, CaseWithoutAlternativesNeverMatches)
{
	plan.used_bits(8);
	plan.rule("A", {plan.one_case({}, {plan.settings({1})}), plan.node(EXTMEM_TAG_GENERAL),
			plan.one_case({any()}, {plan.settings({2})})});
	plan.rule("NoCases", {});
	adopt();
	EXPECT_TRUE(trigger());
	EXPECT_EQ(settings(), Ids{2});
}

TEST_F(RmEvaluateDamage, UnreadableRangesFailOnlyWhereTheKeyMatched)
{
	plan.used_bits(8);
	plan.res_num(1);
	const u16 slot = plan.slot(0).id;
	const u16 beyond = plan.slot(1).id;
	const u16 other = plan.node(EXTMEM_TAG_GENERAL).id;
	const std::vector<node_d> bad = {
		plan.range(kNoId, 0, 9),
		plan.range(0xFFFE, 0, 9),
		plan.range(beyond, 0, 9),
		plan.range(other, 0, 9),
		plan.node(EXTMEM_TAG_KEY_RANGE, plan.record(EXTMEM_TAG_RANGE_HOLDER, Words{slot, 0})),
		plan.node(EXTMEM_TAG_KEY_RANGE, plan.record(EXTMEM_TAG_RANGE_HOLDER, nullptr, 0)),
		plan.node(EXTMEM_TAG_KEY_RANGE),
	};
	int number = 0;
	for (const node_d &range : bad) {
		plan.rule("Match" + std::to_string(number),
			  {plan.one_case({plan.alternative(plan.key({0, 0}), {range})},
					 {plan.settings({1})})});
		plan.rule("Other" + std::to_string(number++),
			  {plan.one_case({plan.alternative(plan.key({1, 1}), {range})},
					 {plan.settings({1})})});
	}
	adopt();
	for (int i = 0; i < number; ++i) {
		const std::string match = "Match" + std::to_string(i);
		EXPECT_FALSE(trigger(match.c_str()));
		EXPECT_EQ(take_log(), rule_failed("rm_trigger", rule_id(rules, match.c_str()))) << match;
		EXPECT_TRUE(trigger(("Other" + std::to_string(i)).c_str()));
		EXPECT_EQ(settings(), Ids{});
	}
}

TEST_F(RmEvaluateDamage, UnreadableRangeBehindOneThatFailsIsNotReached)
{
	plan.used_bits(8);
	plan.res_num(1);
	const u16 slot = plan.slot(0).id;
	plan.rule("A", {plan.one_case({plan.alternative(plan.key({0, 0}), {plan.range(slot, 5, 9),
									   plan.range(kNoId, 0, 9)})},
				      {plan.settings({1})}),
			plan.one_case({any()}, {plan.settings({2})})});
	adopt();
	EXPECT_TRUE(trigger());
	EXPECT_EQ(settings(), Ids{2});
}

TEST_F(RmEvaluateDamage, OutcomesOfUnknownKindAreReportedAndPassed)
{
	plan.used_bits(8);
	plan.rule("A",
		  {plan.one_case({any()}, {plan.settings({1}), plan.outcome(36, {9}),
					   plan.node(EXTMEM_TAG_GENERAL),
					   plan.node(EXTMEM_TAG_GENERAL, plan.node(EXTMEM_TAG_RULE)),
					   plan.presets({2}), plan.settings({3})})});
	adopt();
	EXPECT_TRUE(trigger());
	EXPECT_EQ(take_log_lines(), (Lines{"[VEXIL][RM][__rm_find_setting] Invalid tag tag36",
					   "[VEXIL][RM][__rm_find_setting] Invalid tag tag-1",
					   "[VEXIL][RM][__rm_find_setting] Invalid tag tag23"}));
	EXPECT_EQ(settings(), (Ids{1, 3}));
	EXPECT_EQ(presets(), Ids{2});
}

TEST_F(RmEvaluateDamage, ListsWithoutIdsAndWithHalfAnId)
{
	plan.used_bits(8);
	const u8 bytes[] = {7, 0, 8};
	plan.rule("A", {plan.one_case({any()}, {plan.settings({}), plan.presets({}),
						plan.node(EXTMEM_TAG_GENERAL,
							  plan.record(EXTMEM_TAG_VALUE_HOLDER, bytes,
								      sizeof bytes))})});
	adopt();
	EXPECT_TRUE(trigger());
	EXPECT_EQ(settings(), Ids{7});
	EXPECT_EQ(presets(), Ids{});
}

TEST_F(RmEvaluateDamage, CyclicCasesEnd)
{
	plan.used_bits(8);
	const node_d first = plan.one_case({plan.alternative(plan.key({1, 1}))}, {plan.settings({1})});
	const node_d second = plan.one_case({plan.alternative(plan.key({2, 2}))}, {plan.settings({2})});
	const u16 id = plan.rule("A", {first, second});
	extmem_append_next(second, first);
	adopt();
	EXPECT_FALSE(trigger());
	const Lines lines = take_log_lines();
	ASSERT_EQ(lines.size(), 2u);
	EXPECT_EQ(
		lines[0].rfind("[VEXIL][RM][__rm_find_setting] Internal error, invalid NODEID at [", 0),
		0u);
	EXPECT_EQ(lines[1] + "\n", rule_failed("rm_trigger", id));
}

TEST_F(RmEvaluateDamage, CyclicOutcomesEnd)
{
	plan.used_bits(8);
	const node_d outcome = plan.presets({});
	const u16 id = plan.rule("A", {plan.one_case({any()}, {outcome})});
	extmem_append_next(outcome, outcome);
	adopt();
	EXPECT_FALSE(trigger());
	const Lines lines = take_log_lines();
	ASSERT_EQ(lines.size(), 2u);
	EXPECT_EQ(lines[0] + "\n", bad_child(outcome.id));
	EXPECT_EQ(lines[1] + "\n", rule_failed("rm_trigger", id));
}

// ---- child rules ----

TEST_F(RmChildren, AppendTheirOutcomesInTheOrderGiven)
{
	build(kSources, always("A", "'s1', 'p1'", "'B', 'C', 'B'") + ", " +
				always("B", "'s2', 'p2'", "'D'") + ", " + always("C", "'s3'") + ", " +
				always("D", "'p4', 's4'"));
	EXPECT_TRUE(trigger("A"));
	EXPECT_EQ(settings(), (Ids{1001, 1002, 1004, 1003, 1002, 1004}));
	EXPECT_EQ(presets(), (Ids{2001, 2002, 2004, 2002, 2004}));
}

TEST_F(RmChildren, FollowTheirOwnCasesUnderTheSameKey)
{
	build(kSources, rule("A", one_case("'Input': 'DTV'", "'s1'", "'B'")) + ", " +
				rule("B", one_case("'Timing': '720p'", "'s2'") + ", " +
						  one_case("'Input': 'DTV'", "'s3'")));
	ASSERT_TRUE(set("Input:DTV"));
	EXPECT_TRUE(trigger("A"));
	EXPECT_EQ(settings(), (Ids{1001, 1003}));
	ASSERT_TRUE(set("Timing:720p"));
	EXPECT_TRUE(trigger("A"));
	EXPECT_EQ(settings(), (Ids{1001, 1002}));
}

TEST_F(RmChildren, ChildWithoutAMatchIsNoFailure)
{
	build(kSources, always("A", "'s1'", "'B', 'C'") + ", " +
				rule("B", one_case("'Input': 'DTV'", "'s2'")) + ", " +
				always("C", "'s3'"));
	EXPECT_TRUE(trigger("A"));
	EXPECT_EQ(settings(), (Ids{1001, 1003}));
}

/** The holder of the @nth (from 0) child of a rule's first case, which names no settings. */
u16 holder_of(rm *rules, const char *rule_name, int nth = 0)
{
	extmem_builder *store = &rules->builder;
	const node_d rule_node = extmem_create_node_d(store, rule_id(rules, rule_name));
	node_d outcome = extmem_get_next(extmem_get_child(extmem_get_child(rule_node)));
	for (; nth > 0; --nth)
		outcome = extmem_get_next(outcome);
	return extmem_get_child(outcome).id;
}

TEST_F(RmChildren, UndefinedChildFailsOnlyWhenItsCaseMatches)
{
	ASSERT_TRUE(insert_sources(rules, kSources));
	ASSERT_TRUE(insert_rules(
		rules, map.get(),
		rule("A", one_case("'Input': 'DTV'", "", "'Missing'") + ", " + one_case("", "'s2'"))));
	ASSERT_FALSE(rm_finish(rules)); // reports the dangling name; the rules work
	EXPECT_TRUE(trigger());
	EXPECT_EQ(settings(), Ids{1002});
	ASSERT_TRUE(set("Input:DTV"));
	EXPECT_FALSE(trigger());
	EXPECT_EQ(take_log(), bad_child(holder_of(rules, "A")) + rule_failed("rm_trigger", id("A")));
}

TEST_F(RmChildren, FailureEndsTheRulesAbove)
{
	ASSERT_TRUE(insert_rules(rules, map.get(),
				 always("B", "", "'Missing'") + ", " +
					 always("A", "'s1'", "'C', 'B', 'C'") + ", " +
					 always("C", "'s3'")));
	ASSERT_FALSE(rm_finish(rules));
	EXPECT_FALSE(trigger("A;C"));
	EXPECT_EQ(take_log(), bad_child(holder_of(rules, "B")) + rule_failed("rm_trigger", id("A")));
	EXPECT_EQ(settings(), (Ids{1001, 1003})); // found before the failure
}

TEST_F(RmChildren, RuleThatNamesItselfIsRefused)
{
	build("", always("A", "", "'A'"));
	EXPECT_FALSE(trigger());
	EXPECT_EQ(take_log(), bad_child(holder_of(rules, "A")) + rule_failed("rm_trigger", id("A")));
}

TEST_F(RmChildren, RulesThatNameEachOtherAreRefused)
{
	build("", always("A", "'s1'", "'B'") + ", " + always("B", "", "'A'"));
	EXPECT_FALSE(trigger("A"));
	EXPECT_EQ(take_log(), bad_child(holder_of(rules, "B")) + rule_failed("rm_trigger", id("A")));
	EXPECT_EQ(settings(), Ids{1001});
	EXPECT_FALSE(trigger("B"));
	const Lines lines = take_log_lines();
	ASSERT_EQ(lines.size(), 2u);
	EXPECT_EQ(lines[1] + "\n", rule_failed("rm_trigger", id("B")));
	EXPECT_FALSE(rm_find(rules, "", "B"));
	EXPECT_EQ(take_log_lines().size(), 1u);
}

TEST_F(RmChildren, CycleBehindACaseThatDoesNotMatchIsNoFailure)
{
	build(kSources, rule("A", one_case("'Input': 'DTV'", "", "'A'") + ", " + one_case("", "'s1'")));
	EXPECT_TRUE(trigger());
	EXPECT_EQ(settings(), Ids{1001});
	ASSERT_TRUE(set("Input:DTV"));
	EXPECT_FALSE(trigger());
	take_log();
}

TEST_F(RmChildren, RuleMayBeReachedOnTwoWays)
{
	build("", always("Top", "'s1'", "'L', 'R'") + ", " + always("L", "'s2'", "'End'") + ", " +
			  always("R", "'s3'", "'End'") + ", " + always("End", "'s4'"));
	EXPECT_TRUE(trigger("Top"));
	EXPECT_EQ(settings(), (Ids{1001, 1002, 1004, 1003, 1004}));
}

std::string ladder(int depth)
{
	std::string text;
	for (int i = 0; i < depth; ++i) {
		const std::string next = quoted("L" + std::to_string(i + 1));
		text += always("L" + std::to_string(i), "", next + ", " + next) + ", ";
	}
	return text + always("L" + std::to_string(depth), "'s1'");
}

TEST_F(RmChildren, ShortLadderIsClimbedOnEveryWay)
{
	build("", ladder(10));
	EXPECT_TRUE(trigger("L0"));
	EXPECT_EQ(settings(), Ids(1024, 1001));
}

TEST_F(RmChildren, LongLadderIsGivenUp)
{
	std::string text = ladder(30); // 2^30 ways
	text.replace(text.rfind("'s1'"), 4, "");
	build("", text);
	EXPECT_FALSE(trigger("L0"));
	const Lines lines = take_log_lines();
	ASSERT_EQ(lines.size(), 2u);
	EXPECT_EQ(
		lines[0].rfind("[VEXIL][RM][__rm_find_setting] Internal error, invalid NODEID at [", 0),
		0u);
	EXPECT_EQ(lines[1] + "\n", rule_failed("rm_trigger", id("L0")));
	// The next one begins afresh.
	EXPECT_TRUE(trigger("L25"));
	EXPECT_EQ(settings(), Ids{});
}

TEST_F(RmChildren, BoundIsOnTheWholeTrigger)
{
	std::string text = ladder(16); // far below the bound once, far above it 128 times
	text.replace(text.rfind("'s1'"), 4, "");
	build("", text);
	std::string names = "L0";
	for (size_t i = 1; i < kMostListed; ++i)
		names += ";L0";
	EXPECT_TRUE(trigger("L0"));
	EXPECT_FALSE(trigger(names.c_str()));
	EXPECT_EQ(take_log_lines().size(), 2u);
	EXPECT_TRUE(trigger("L0"));
}

std::string chain_of_rules(int length)
{
	std::string text;
	for (int i = 0; i < length; ++i)
		text += always("C" + std::to_string(i), quoted("s" + std::to_string(i)),
			       quoted("C" + std::to_string(i + 1))) +
			", ";
	return text + always("C" + std::to_string(length), "");
}

TEST_F(RmChildren, LongChainsAreFollowedToTheirEnd)
{
	constexpr int kLength = 150; // far more than a path holds in place
	build("", chain_of_rules(kLength));
	EXPECT_TRUE(trigger("C0"));
	Ids expected(kLength);
	for (int i = 0; i < kLength; ++i)
		expected[static_cast<size_t>(i)] = static_cast<u16>(1000 + i);
	EXPECT_EQ(settings(), expected);
}

TEST_F(RmChildren, LongChainWithoutMemoryFailsAndLosesNothing)
{
	build("", chain_of_rules(40));
	ASSERT_TRUE(trigger("C0"));
	ASSERT_EQ(settings().size(), 40u);
	const size_t blocks = live_blocks();
	{
		const Refuse none = Refuse::from(1);
		EXPECT_FALSE(trigger("C0"));
		EXPECT_TRUE(none.happened());
	}
	EXPECT_EQ(live_blocks(), blocks);
	const Lines lines = take_log_lines();
	ASSERT_FALSE(lines.empty());
	EXPECT_EQ(lines.back() + "\n", rule_failed("rm_trigger", id("C0")));
	EXPECT_TRUE(trigger("C0"));
	EXPECT_EQ(settings().size(), 40u);
}

TEST_F(RmEvaluateDamage, ChildRecordsThatNameNoNode)
{
	plan.used_bits(8);
	const u8 half = 1;
	const node_d outcomes[] = {
		plan.child_rule(kNoId),
		plan.child_rule(0xFFFE),
		plan.outcome(EXTMEM_TAG_NODE_HOLDER, {}),
		plan.node(EXTMEM_TAG_GENERAL, plan.record(EXTMEM_TAG_NODE_HOLDER, &half, 1)),
	};
	std::vector<u16> holders;
	for (size_t i = 0; i < std::size(outcomes); ++i) {
		plan.rule("R" + std::to_string(i),
			  {plan.one_case({any()}, {plan.settings({1}), outcomes[i]})});
		holders.push_back(extmem_get_child(outcomes[i]).id);
	}
	adopt();
	for (size_t i = 0; i < std::size(outcomes); ++i) {
		const std::string name = "R" + std::to_string(i);
		EXPECT_FALSE(trigger(name.c_str()));
		EXPECT_EQ(take_log(), bad_child(holders[i]) +
					      rule_failed("rm_trigger", rule_id(rules, name.c_str())))
			<< name;
		EXPECT_EQ(settings(), Ids{1}) << name;
	}
}

// ---- triggers ----

TEST_F(RmTrigger, WithoutNamesEvaluatesEveryRuleInImageOrder)
{
	build(kSources,
	      always("B", "'s2'") + ", " + always("A", "'s1', 'p1'") + ", " + always("C", "'s3'"));
	EXPECT_TRUE(trigger());
	EXPECT_EQ(settings(), (Ids{1002, 1001, 1003}));
	EXPECT_EQ(presets(), Ids{2001});
	EXPECT_EQ(rm_get_num_result(rules), 3u);
}

TEST_F(RmTrigger, EmptiesTheListsAndKeepsTheirMemory)
{
	build(kSources, always("A", "'s1', 'p1'"));
	ASSERT_TRUE(trigger());
	const u16 *list = rules->rmInd.result.result_list;
	EXPECT_TRUE(trigger());
	EXPECT_EQ(settings(), Ids{1001});
	EXPECT_EQ(presets(), Ids{2001});
	EXPECT_TRUE(trigger(""));
	EXPECT_EQ(settings(), Ids{});
	EXPECT_EQ(presets(), Ids{});
	EXPECT_EQ(rules->rmInd.result.result_list, list);
	EXPECT_EQ(rules->rmInd.result.max_result, 16u);
	EXPECT_EQ(rules->rmInd.preset.max_result, 16u);
}

TEST_F(RmTrigger, StopsAtTheFirstRuleThatFails)
{
	ASSERT_TRUE(insert_rules(rules, map.get(),
				 always("A", "'s1'") + ", " + always("B", "'s2', 'p2'", "'Missing'") +
					 ", " + always("C", "'s3'")));
	ASSERT_FALSE(rm_finish(rules));
	for (const char *names : {static_cast<const char *>(nullptr), "A;B;C", "-", "-X"}) {
		EXPECT_FALSE(trigger(names));
		EXPECT_EQ(settings(), (Ids{1001, 1002}));
		EXPECT_EQ(presets(), Ids{2002});
		const Lines lines = take_log_lines();
		ASSERT_GE(lines.size(), 2u);
		EXPECT_EQ(lines.back() + "\n", rule_failed("rm_trigger", id("B")));
	}
}

TEST_F(RmTrigger, AnswersNullsWithFalseAndNothing)
{
	u16 *list = nullptr;
	EXPECT_FALSE(rm_trigger(nullptr, nullptr));
	EXPECT_FALSE(rm_trigger(nullptr, "A"));
	EXPECT_EQ(rm_get_result(nullptr, &list), 0u);
	EXPECT_EQ(rm_get_preset(nullptr, &list), 0u);
	EXPECT_EQ(rm_get_num_result(nullptr), 0u);
	build(kSources, always("A", "'s1', 'p1'"));
	ASSERT_TRUE(trigger());
	EXPECT_EQ(rm_get_result(rules, nullptr), 0u);
	EXPECT_EQ(rm_get_preset(rules, nullptr), 0u);
}

TEST_F(RmTrigger, WithoutAKeyBufferFails)
{
	ASSERT_TRUE(insert_rules(rules, map.get(), always("A", "'s1'")));
	EXPECT_FALSE(trigger()); // not finished
	EXPECT_EQ(take_log(), rule_failed("rm_trigger", id("A")));
	EXPECT_EQ(settings(), Ids{});
}

TEST_F(RmTrigger, AllocatesNothingOnceTheListsHaveGrown)
{
	build(kSources, always("A", "'s1', 's2', 'p1'", "'B'") + ", " +
				rule("B", one_case("'Input': 'DTV', 'Luma': '[1,5]'", "'s3'")));
	Handler handler(rules);
	ASSERT_TRUE(trigger());
	ASSERT_TRUE(rm_handler_trigger(handler, nullptr));
	const size_t before = allocations();
	EXPECT_TRUE(set("Input:DTV;Luma:3"));
	EXPECT_TRUE(trigger());
	EXPECT_TRUE(trigger("A;B"));
	EXPECT_TRUE(trigger("-A"));
	EXPECT_TRUE(rm_find(rules, "Input:HDMI", "A"));
	EXPECT_TRUE(rm_handler_set(handler, "Input:DTV;Luma:3", 0));
	EXPECT_TRUE(rm_handler_trigger(handler, "B"));
	EXPECT_EQ(settings_of(handler), Ids{1003});
	EXPECT_TRUE(rm_handler_clear(handler));
	EXPECT_EQ(allocations(), before);
}

TEST_F(RmEvaluateDamage, RootEntriesThatAreNoRulesArePassed)
{
	plan.used_bits(8);
	plan.entry(plan.node(EXTMEM_TAG_IP));
	plan.entry(HandRules::none());
	plan.rule("A", {plan.one_case({any()}, {plan.settings({1})})});
	adopt();
	EXPECT_TRUE(trigger());
	EXPECT_EQ(settings(), Ids{1});
}

// ---- lists of rules ----

class RmRuleNames : public RulesTest {
protected:
	void SetUp() override
	{
		RulesTest::SetUp();
		build(kSources,
		      always("A", "'s1'") + ", " + always("B", "'s2'") + ", " + always("Cc", "'s3'"));
	}
	Ids triggered(const char *names)
	{
		EXPECT_TRUE(trigger(names)) << names;
		return settings();
	}
};

TEST_F(RmRuleNames, AreEvaluatedInTheOrderGiven)
{
	EXPECT_EQ(triggered("B"), Ids{1002});
	EXPECT_EQ(triggered("Cc;A"), (Ids{1003, 1001}));
	EXPECT_EQ(triggered("A;B;A"), (Ids{1001, 1002, 1001}));
}

TEST_F(RmRuleNames, LetterCaseBlanksAndEmptyNamesDoNotMatter)
{
	EXPECT_EQ(triggered(" c C ;; a ;"), (Ids{1003, 1001}));
	EXPECT_EQ(triggered(""), Ids{});
	EXPECT_EQ(triggered(" ; "), Ids{});
}

TEST_F(RmRuleNames, DashAnywhereExcludesThemAll)
{
	for (const char *names : {"-A;B", "A;-B", "A;B-", "A-;B", "B;-;A", " - b ; a", "--A;--B"})
		EXPECT_EQ(triggered(names), Ids{1003}) << names;
	EXPECT_EQ(triggered("C-c"), (Ids{1001, 1002})); // the dash itself is dropped
}

TEST_F(RmRuleNames, DashAloneExcludesNothing)
{
	EXPECT_EQ(triggered("-"), (Ids{1001, 1002, 1003}));
	EXPECT_EQ(triggered(" ;-; "), (Ids{1001, 1002, 1003}));
}

TEST_F(RmRuleNames, ExcludedRulesComeInImageOrder)
{
	EXPECT_EQ(triggered("-B"), (Ids{1001, 1003}));
	EXPECT_EQ(triggered("-Cc;A;B"), Ids{});
}

TEST_F(RmRuleNames, UnknownOnesAreReportedAndPassed)
{
	EXPECT_EQ(triggered("A;Nothing;B"), (Ids{1001, 1002}));
	EXPECT_EQ(take_log(), unknown_rule("rm_trigger", "Nothing"));
	EXPECT_EQ(triggered("A;Not here;-;Nor here"), (Ids{1002, 1003}));
	EXPECT_EQ(take_log(),
		  unknown_rule("rm_trigger", "Nothere") + unknown_rule("rm_trigger", "Norhere"));
	EXPECT_EQ(triggered("A+B"), Ids{}); // no name has such a character
	EXPECT_EQ(take_log(), unknown_rule("rm_trigger", "A+B"));
}

TEST_F(RmRuleNames, EntryThatNamesNoNodeIsDroppedSilently)
{
	ASSERT_TRUE(ctrie_insert(&rules->rulename_map, "ghost", 0xFFFF));
	EXPECT_EQ(triggered("A;ghost;B"), (Ids{1001, 1002}));
	EXPECT_EQ(triggered("-ghost"), (Ids{1001, 1002, 1003}));
	EXPECT_FALSE(rm_find(rules, "", "ghost"));
	EXPECT_EQ(take_log(), unknown_rule("rm_find", "ghost"));
}

TEST_F(RmRuleList, NamesMayBeLong)
{
	const std::string name(400, 'n');
	build(kSources, always(name, "'s1'") + ", " + always("B", "'s2'"));
	EXPECT_TRUE(trigger((name + ";B").c_str()));
	EXPECT_EQ(settings(), (Ids{1001, 1002}));
	EXPECT_TRUE(trigger(("B;" + name + "x").c_str()));
	EXPECT_EQ(take_log(), unknown_rule("rm_trigger", name + "x"));
	EXPECT_EQ(settings(), Ids{1002});
}

TEST_F(RmRuleList, RuleWithABlankInItsNameIsFoundOnlyWhole)
{
	build(kSources, always("Two words", "'s1'"));
	EXPECT_TRUE(trigger("Two words"));
	EXPECT_EQ(take_log(), unknown_rule("rm_trigger", "Twowords"));
	EXPECT_EQ(settings(), Ids{});
	EXPECT_TRUE(rm_find(rules, "", "two WORDS"));
	EXPECT_EQ(settings(), Ids{1001});
}

TEST_F(RmRuleList, NamesBeyondThe128thAreDropped)
{
	std::string groups, names;
	for (size_t i = 0; i < kMostListed + 2; ++i) {
		const std::string number = std::to_string(i);
		groups += (i ? ", " : "") + always("R" + number, quoted("s" + number));
		names += (i ? ";R" : "R") + number;
	}
	build("", groups);
	Ids first(kMostListed);
	for (size_t i = 0; i < kMostListed; ++i)
		first[i] = static_cast<u16>(1000 + i);
	EXPECT_TRUE(trigger(names.c_str()));
	EXPECT_EQ(settings(), first);
	EXPECT_TRUE(trigger((names + "-").c_str()));
	EXPECT_EQ(settings(), (Ids{1128, 1129}));
	EXPECT_TRUE(trigger(names.substr(0, names.find(";R128")).c_str()));
	EXPECT_EQ(settings(), first);
}

// ---- one-shot ----

TEST_F(RmFind, SetsAndEvaluatesOneRule)
{
	build(kSources,
	      rule("A", one_case("'Input': 'DTV'", "'s1', 'p1'")) + ", " + always("B", "'s2'"));
	EXPECT_TRUE(rm_find(rules, "Input:DTV", "a"));
	EXPECT_EQ(settings(), Ids{1001});
	EXPECT_EQ(presets(), Ids{2001});
	EXPECT_TRUE(rm_find(rules, "Input:HDMI", "A"));
	EXPECT_EQ(settings(), Ids{});
	EXPECT_EQ(presets(), Ids{});
}

TEST_F(RmFind, AddsToWhatWasSetBefore)
{
	build(kSources, rule("A", one_case("'Input': 'DTV', 'Timing': '720p'", "'s1'")));
	ASSERT_TRUE(set("Timing:720p"));
	EXPECT_TRUE(rm_find(rules, "Input:DTV", "A"));
	EXPECT_EQ(settings(), Ids{1001});
	EXPECT_EQ(key(), Words{2 | 3 << 2});
}

TEST_F(RmFind, NumberIsZeroUnlessTheFilterGivesOne)
{
	build(kSources, always("A", "'s1'"));
	ASSERT_TRUE(set("Luma:5;Chroma:6"));
	EXPECT_TRUE(rm_find(rules, "Luma", "A"));
	EXPECT_EQ(numbers(), (Words{0, 6}));
	EXPECT_TRUE(rm_find(rules, "Luma:8", "A"));
	EXPECT_EQ(numbers(), (Words{8, 6}));
}

TEST_F(RmFind, WithoutANameEvaluatesEveryRule)
{
	build(kSources, always("B", "'s2'") + ", " + rule("A", one_case("'Input': 'DTV'", "'s1'")));
	EXPECT_TRUE(rm_find(rules, "Input:DTV", nullptr));
	EXPECT_EQ(settings(), (Ids{1002, 1001}));
}

TEST_F(RmFind, NameIsNoList)
{
	build(kSources, always("A", "'s1'") + ", " + always("B", "'s2'"));
	for (const char *name : {"A;B", "-A", "Nothing", "", " A"}) {
		EXPECT_FALSE(rm_find(rules, "Input:DTV", name));
		EXPECT_EQ(take_log(), unknown_rule("rm_find", name));
		EXPECT_EQ(settings(), Ids{});
	}
	EXPECT_EQ(mask(), Words{0}); // unknown names set nothing
}

TEST_F(RmFind, FailsSilentlyWithItsFilter)
{
	build(kSources, always("A", "'s1'"));
	EXPECT_FALSE(rm_find(rules, "Bright:Low", "A"));
	EXPECT_FALSE(rm_find(rules, std::string(128, 'x').c_str(), "A"));
	EXPECT_FALSE(rm_find(rules, "Bright:Low", nullptr));
	EXPECT_EQ(settings(), Ids{});
}

TEST_F(RmFind, DoesNotNameTheRuleThatFails)
{
	ASSERT_TRUE(insert_rules(rules, map.get(), always("B", "'s1', 'p1'", "'Missing'")));
	ASSERT_FALSE(rm_finish(rules));
	for (const char *name : {static_cast<const char *>(nullptr), "B"}) {
		EXPECT_FALSE(rm_find(rules, "", name));
		EXPECT_EQ(settings(), Ids{1001});
		const Lines lines = take_log_lines();
		ASSERT_EQ(lines.size(), 1u);
		EXPECT_EQ(
			lines[0].rfind(
				"[VEXIL][RM][__rm_find_setting] Internal error, invalid NODEID at [", 0),
			0u);
	}
}

TEST_F(RmFind, RefusesNullsAndKeepsTheListsThen)
{
	EXPECT_FALSE(rm_find(nullptr, "Input:DTV", "A"));
	build(kSources, always("A", "'s1', 'p1'"));
	ASSERT_TRUE(trigger());
	EXPECT_FALSE(rm_find(rules, nullptr, "A"));
	EXPECT_EQ(settings(), Ids{1001});
	EXPECT_FALSE(rm_find(rules, "", "unknown"));
	EXPECT_EQ(take_log(), unknown_rule("rm_find", "unknown"));
	EXPECT_EQ(settings(), Ids{}); // emptied before the name is looked up
	EXPECT_EQ(presets(), Ids{});
}

TEST_F(RmFind, NeedsAKeyBuffer)
{
	ASSERT_TRUE(insert_rules(rules, map.get(), always("A", "'s1'")));
	EXPECT_FALSE(rm_find(rules, "", "A"));
	EXPECT_FALSE(rm_find(rules, "", nullptr));
	EXPECT_EQ(settings(), Ids{});
}

} // namespace
