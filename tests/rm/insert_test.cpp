// SPDX-License-Identifier: MIT
//
// The rule-group document: groups, cases, outcomes, rules that are not known yet. Conditions are
// tested in comparator_test.cpp.
#include <climits>

#include "tests/support/rm_images.h"
#include "tests/support/rm_json.h"

namespace {

using namespace vexil_test;

constexpr std::size_t kMostPending = 64;

const std::string kParsing = "[VEXIL][RM][__rm_get_rulemap] Error parsing ";
const std::string kCannotFind = "[VEXIL][RM][__rm_get_rulemap] Cannot find ";
const std::string kNoLabel = "[VEXIL][PIM][__rm_get_setting] Cannot find label: ";
const std::string kMismatch = "[VEXIL][RM][__rm_get_setting] allocated setting size mismatched.";
const std::string kInvalidName = "[VEXIL][RM][__rm_get_children] Invalid rulename.\n";

class RmInsert : public RmTest {
protected:
	void SetUp() override
	{
		RmTest::SetUp();
		setting("soft", 100);
		setting("sharp", 101);
		preset("dark", 300);
		preset("light", 301);
	}
	/** Cases that hang below a rule. */
	std::size_t cases(const std::string &name)
	{
		std::size_t count = 0;
		const node_d rule = rule_node_at(rules.get(), static_cast<u16>(rule_id(name)));
		for (node_d at = extmem_get_child(rule); extmem_node_isvalid(at) && count < 100000;
		     at = extmem_get_next(at))
			++count;
		return count;
	}
	Lines children() { return records(EXTMEM_TAG_NODE_HOLDER); }
	std::string id_of(const std::string &name)
	{
		return "[" + std::to_string(rule_id(name)) + "]";
	}
};

using RmInsertCase = RmInsert;
using RmInsertSettings = RmInsert;
using RmInsertChildren = RmInsert;
using RmInsertVersion = RmInsert;
using RmInsertMemory = RmInsert;

// ---- groups ----

TEST_F(RmInsert, GroupIsATreeWithNameVersionAndCases)
{
	ASSERT_TRUE(declare(enumerated("A", {"x"}))); // nodes 1 to 5
	ASSERT_TRUE(add("'R': {'#version': {'MajorVersion': 2, 'MinorVersion': 1, 'Revision': 7}, "
			"'rules': [" +
			rule_case("'A': 'x'", "'sharp', 'dark', 'soft', 'light'", "'R', 'R'") +
			", " + rule_case("") + "]}"));
	const Lines expected = {
		"6 GENERAL c7",
		"7 RULE c12 n8",
		"8 PROPERTY c9 n10",
		"9 STRING 'R'",
		"10 VERSION c11",
		"11 VERSION_HOLDER 2.1.7",
		"12 GENERAL c13 n25",       // first case
		"13 GENERAL c14 n17",       // its body
		"14 GENERAL c15",           // alternative
		"15 KEY_DESC c16",
		"16 KEY [1 | 1]",
		"17 GENERAL c18 n19",       // outcomes
		"18 VALUES [101 100]",
		"19 GENERAL c20 n21",
		"20 PRESETS [300 301]",
		"21 GENERAL c22 n23",
		"22 NODE [7]",
		"23 GENERAL c24",
		"24 NODE [7]",
		"25 GENERAL c26",           // second case
		"26 GENERAL c27",
		"27 GENERAL c28",
		"28 KEY_DESC c29",
		"29 KEY [0 | 0]",
	};
	EXPECT_EQ(nodes(6), expected);
	EXPECT_EQ(node(1), "1 GENERAL c2 n6");
	EXPECT_EQ(rule_id("R"), 7);
	EXPECT_EQ(rule_id("r"), 7);
}

TEST_F(RmInsert, RecordsAreLittleEndianBytes)
{
	setting("big", 0x1234);
	ASSERT_TRUE(add("'R': {'#version': {'MajorVersion': 2, 'MinorVersion': 2, "
			"'Revision': 305419896}, 'rules': [" +
			rule_case("", "'big', 'soft', 'dark'", "'R'") + "]}"));
	const ImageBytes image = image_of(rules.get());
	EXPECT_EQ(image.record(6), std::string("\x02\0\x02\0\x78\x56\x34\x12", 8));
	EXPECT_EQ(image.tag(11), EXTMEM_TAG_KEY_HOLDER);
	EXPECT_EQ(image.record(13), std::string("\x34\x12\x64\x00", 4));
	EXPECT_EQ(image.record(15), std::string("\x2C\x01", 2));
	EXPECT_EQ(image.record(17), std::string("\x02\x00", 2));
}

TEST_F(RmInsert, GroupsFollowEachOtherBelowTheRoot)
{
	ASSERT_TRUE(add(rule("First") + ", " + rule("Second")));
	ASSERT_TRUE(add(rule("Third")));
	EXPECT_EQ(nodes(),
		  (Lines{"0 GENERAL c1", "1 GENERAL c2 n7", "2 RULE n3", "3 PROPERTY c4 n5",
			 "4 STRING 'First'", "5 VERSION c6", "6 VERSION_HOLDER 0.0.0",
			 "7 GENERAL c8 n13", "8 RULE n9", "9 PROPERTY c10 n11",
			 "10 STRING 'Second'", "11 VERSION c12", "12 VERSION_HOLDER 0.0.0",
			 "13 GENERAL c14", "14 RULE n15", "15 PROPERTY c16 n17",
			 "16 STRING 'Third'", "17 VERSION c18", "18 VERSION_HOLDER 0.0.0"}));
}

TEST_F(RmInsert, WithoutGroupsNothingIsInserted)
{
	EXPECT_TRUE(insert_groups(rules.get(), map.get(), "{'PqRuleLists': {}}"));
	EXPECT_TRUE(insert_groups(rules.get(), map.get(), "{'PqRuleGroups': {}}"));
	EXPECT_TRUE(add("'R': {}"));
	EXPECT_TRUE(add("'R': {'#version': {'MajorVersion': 2}}"));
	EXPECT_EQ(rule_node_count(rules.get()), 1u);
}

TEST_F(RmInsert, MemberNamesIgnoreLetterCase)
{
	ASSERT_TRUE(insert_groups(rules.get(), map.get(),
				  "{'pqrulegroups': {'R': {'#Version': {'majorVERSION': 2}, "
				  "'RULES': [{'Comparator': {}, 'SETTINGS': ['SOFT'], "
				  "'Children': ['r']}]}}}"));
	EXPECT_EQ(records(EXTMEM_TAG_VALUE_HOLDER), Lines{"[100]"});
	EXPECT_EQ(children(), Lines{"[2]"});
	EXPECT_EQ(node(6), "6 VERSION_HOLDER 2.0.0");
}

TEST_F(RmInsert, NullsAreFalse)
{
	const Json document = json(rule_groups(rule("R")));
	map->total_version = {2, 1, 0};
	EXPECT_FALSE(rm_insert(nullptr, document.get(), map.get()));
	EXPECT_FALSE(rm_insert(rules.get(), nullptr, map.get()));
	EXPECT_FALSE(rm_insert(rules.get(), document.get(), nullptr));
	EXPECT_FALSE(rules->bCusVerReady);
	EXPECT_EQ(rule_node_count(rules.get()), 1u);
}

TEST_F(RmInsert, ArrayMembersHaveNoNamesAndAreSkipped)
{
	EXPECT_TRUE(insert_groups(rules.get(), map.get(), "{'PqRuleGroups': [{'rules': []}, 5]}"));
	EXPECT_TRUE(insert_groups(rules.get(), map.get(), "{'PqRuleGroups': 'text'}"));
	EXPECT_TRUE(insert_groups(rules.get(), map.get(), "[5]"));
	EXPECT_EQ(rule_node_count(rules.get()), 1u);
}

TEST_F(RmInsert, SettingsAreThoseThatTheMapWasBuiltWith)
{
	ASSERT_TRUE(pim_insert_regmap(map.get(), "R0", 0));
	ASSERT_TRUE(vexil_test::insert(map.get(), vexil_test::config("'hwreg': {'R0': 5}")));
	const u16 id = pim_query_setting_id(map.get(), "S#M");
	ASSERT_NE(id, 0xFFFF);
	ASSERT_TRUE(add(rule("R", {rule_case("", "'S#M', 's#m'")})));
	EXPECT_EQ(records(EXTMEM_TAG_VALUE_HOLDER),
		  Lines{"[" + std::to_string(id) + " " + std::to_string(id) + "]"});
}

TEST_F(RmInsert, MapIsOnlyRead)
{
	const std::string before = store_bytes(map.get());
	ASSERT_TRUE(add(rule("R", {rule_case("", "'soft', 'dark'")})));
	EXPECT_EQ(store_bytes(map.get()), before);
	EXPECT_EQ(ctrie_find(&map->ipname_map, "soft"), 100);
}

TEST_F(RmInsert, SecondGroupOfANameIsNotLinked)
{
	ASSERT_TRUE(add(rule("R", {rule_case("", "'soft'")})));
	EXPECT_TRUE(add(rule("r", {rule_case("", "'sharp'"), rule_case("", "'none'")})));
	EXPECT_EQ(take_log(),
		  kNoLabel + "none\n" + kMismatch); // its cases are compiled all the same
	EXPECT_EQ(rule_id("R"), 2);
	EXPECT_EQ(node(1), "1 GENERAL c2"); // no next
	ASSERT_TRUE(rm_finish(rules.get()));
	EXPECT_EQ(selected(rules.get(), ""), Ids{100});
	ImageBytes image = image_of(rules.get());
	Rules again;
	EXPECT_TRUE(adopt(again, image));
}

TEST_F(RmInsert, NameThatCannotBeIndexedIsNotLinked)
{
	EXPECT_TRUE(add(rule("a$") + ", " + rule("b")));
	EXPECT_EQ(take_log(), "[ctrie_insert][176]insert wrong string member = 36\n");
	EXPECT_EQ(node(0), "0 GENERAL c7");
	EXPECT_EQ(rule_id("b"), 8);
	ImageBytes image = image_of(rules.get());
	Rules again;
	EXPECT_TRUE(adopt(again, image));
}

// ---- versions ----

TEST_F(RmInsertVersion, GroupOfAnotherVersionIsSkippedSilently)
{
	const struct {
		const char *version;
		bool accepted;
	} table[] = {
		{"{'MajorVersion': 2}", true},
		{"{'MajorVersion': 2, 'MinorVersion': 2, 'Revision': 77}", true},
		{"{'MajorVersion': 2, 'MinorVersion': 3}", false},
		{"{'MajorVersion': 1}", false},
		{"{'MajorVersion': 3}", false},
		{"{}", false},
		{"5", false},
		{"'2.2'", false},
		{"{'JsonVersionFormat': '2.2'}", true},
		{"{'JsonVersionFormat': '2.10'}", false},
		{"{'JsonVersionFormat': '3.0', 'MajorVersion': 2}", false},
	};
	for (const auto &row : table) {
		ASSERT_TRUE(rules.init());
		EXPECT_TRUE(add("'R': {'#version': " + std::string(row.version) +
				", 'rules': [{'nonsense': 1}]}, " + rule("S")));
		EXPECT_EQ(take_log(), row.accepted ? kParsing + "comparator\n" : "") << row.version;
		EXPECT_EQ(rule_id("R") != INT_MIN, row.accepted) << row.version;
		EXPECT_EQ(rule_id("S"), row.accepted ? 8 : 2) << row.version;
	}
}

TEST_F(RmInsertVersion, VersionOfOneGroupIsNotTheNextOnes)
{
	ASSERT_TRUE(add("'R': {'#version': {'MajorVersion': 2, 'MinorVersion': 2, 'Revision': 5}, "
			"'rules': []}, 'S': {'#version': {'MajorVersion': 2}, 'rules': []}, " +
			rule("T")));
	EXPECT_EQ(records(EXTMEM_TAG_VERSION_HOLDER), (Lines{"2.2.5", "2.0.0", "0.0.0"}));
}

TEST_F(RmInsertVersion, FirstInsertionTakesTheMapsVersions)
{
	map->total_version = {2, 1, 0x12345};
	std::memset(map->cus_version, 0, sizeof map->cus_version);
	std::memcpy(map->cus_version, "panel lot C", 11);
	EXPECT_TRUE(insert_groups(rules.get(), map.get(), "{}")); // even without groups
	EXPECT_TRUE(rules->bCusVerReady);
	EXPECT_EQ(rules->total_version, (vexil_version{2, 1, 0x12345}));
	EXPECT_EQ(std::string(rules->cus_version, 32), "panel lot C" + std::string(21, '\0'));

	map->total_version = {9, 9, 9};
	map->cus_version[0] = 'X';
	EXPECT_TRUE(add(rule("R")));
	EXPECT_EQ(rules->total_version, (vexil_version{2, 1, 0x12345}));
	EXPECT_STREQ(rules->cus_version, "panel lot C");
}

TEST_F(RmInsertVersion, AdoptedContextKeepsItsOwn)
{
	RuleImage plan;
	plan.header.total_version = {1, 1, 1};
	std::memcpy(plan.header.cus_version, "image", 5);
	ImageBytes image = plan.write();
	Rules adopted;
	ASSERT_TRUE(adopt(adopted, image));
	map->total_version = {2, 2, 2};
	EXPECT_TRUE(insert_groups(adopted.get(), map.get(), "{}"));
	EXPECT_EQ(adopted->total_version, (vexil_version{1, 1, 1}));
	EXPECT_STREQ(adopted->cus_version, "image");
}

// ---- cases ----

TEST_F(RmInsertCase, ComparatorMustBeAnObject)
{
	for (const char *text : {"{}", "{'settings': ['soft'], 'children': []}",
				 "{'comparator': [], 'settings': ['soft'], 'children': []}",
				 "{'comparator': 'x', 'settings': [], 'children': []}",
				 "{'comparator': null}", "5", "'text'", "[]"}) {
		ASSERT_TRUE(rules.init());
		EXPECT_TRUE(add(rule("R", {text, rule_case("", "'sharp'")})));
		EXPECT_EQ(take_log(), kParsing + "comparator\n") << text;
		EXPECT_EQ(cases("R"), 1u) << text;
		EXPECT_EQ(records(EXTMEM_TAG_VALUE_HOLDER), Lines{"[101]"}) << text;
		EXPECT_EQ(node(2), "2 RULE c7 n3") << text; // it requested no node
	}
}

TEST_F(RmInsertCase, MissingListsAreReportedAndLeftOut)
{
	const struct {
		const char *text;
		std::string log;
		std::size_t outcomes;
	} table[] = {
		{"{'comparator': {}}", kCannotFind + "settings\n" + kCannotFind + "children\n", 0},
		{"{'comparator': {}, 'settings': ['soft']}", kCannotFind + "children\n", 1},
		{"{'comparator': {}, 'children': ['R']}", kCannotFind + "settings\n", 1},
		{"{'comparator': {}, 'settings': 'soft', 'children': ['R']}",
		 kParsing + "settings\n", 1},
		{"{'comparator': {}, 'settings': ['soft'], 'children': {}}",
		 kParsing + "children\n", 1},
		{"{'comparator': {}, 'settings': 1, 'children': 'R'}",
		 kParsing + "settings\n" + kParsing + "children\n", 0},
		{"{'comparator': {}, 'settings': [], 'children': []}", "", 0},
	};
	for (const auto &row : table) {
		ASSERT_TRUE(rules.init());
		EXPECT_TRUE(add(rule("R", {row.text})));
		EXPECT_EQ(take_log(), row.log) << row.text;
		EXPECT_EQ(cases("R"), 1u) << row.text;
		EXPECT_EQ(records(EXTMEM_TAG_VALUE_HOLDER).size() + children().size(), row.outcomes)
			<< row.text;
		EXPECT_EQ(rule_node_count(rules.get()), 12u + 2 * row.outcomes) << row.text;
	}
}

TEST_F(RmInsertCase, FailedCaseIsNotLinkedAndTheOthersKeepTheirOrder)
{
	EXPECT_TRUE(
		add(rule("R", {rule_case("", "'none'"), rule_case("", "'soft'"),
			       rule_case("'unknown': 'x'", "'sharp'"), rule_case("", "'dark'")})));
	EXPECT_EQ(take_log(), kNoLabel + "none\n" + kMismatch +
				      "[VEXIL][RM][__rm_get_rule] Cannot find source: unknown:x\n");
	EXPECT_EQ(cases("R"), 2u);
	ASSERT_TRUE(rm_finish(rules.get()));
	EXPECT_EQ(selected(rules.get(), ""), Ids{100}); // the first that is whole
	EXPECT_EQ(presets_of(rules.get()), Ids{});
}

// ---- settings and presets ----

TEST_F(RmInsertSettings, NameOfBothIsASetting)
{
	preset("soft", 999);
	ASSERT_TRUE(add(rule("R", {rule_case("", "'soft'")})));
	EXPECT_EQ(records(EXTMEM_TAG_VALUE_HOLDER), Lines{"[100]"});
	EXPECT_EQ(records(EXTMEM_TAG_PRESET_HOLDER), Lines{});
}

TEST_F(RmInsertSettings, IdsAreTheLow16Bits)
{
	setting("wide", 0x12345);
	setting("negative", -2);
	preset("wide preset", 0x70001);
	ASSERT_TRUE(add(rule("R", {rule_case("", "'wide', 'negative', 'wide preset'")})));
	EXPECT_EQ(records(EXTMEM_TAG_VALUE_HOLDER), Lines{"[9029 65534]"}); // 0x2345
	EXPECT_EQ(records(EXTMEM_TAG_PRESET_HOLDER), Lines{"[1]"});
}

TEST_F(RmInsertSettings, PresetsAloneGiveNoSettingHolder)
{
	ASSERT_TRUE(add(rule("R", {rule_case("", "'light', 'dark'")})));
	EXPECT_EQ(nodes(8), (Lines{"8 GENERAL c9 n12", "9 GENERAL c10", "10 KEY_DESC c11",
				   "11 KEY <none>", "12 GENERAL c13", "13 PRESETS [301 300]"}));
}

TEST_F(RmInsertSettings, RepeatedNamesStayRepeated)
{
	ASSERT_TRUE(add(rule("R", {rule_case("", "'soft', 'SOFT', 'dark', 'soft', 'dark'")})));
	EXPECT_EQ(records(EXTMEM_TAG_VALUE_HOLDER), Lines{"[100 100 100]"});
	EXPECT_EQ(records(EXTMEM_TAG_PRESET_HOLDER), Lines{"[300 300]"});
}

TEST_F(RmInsertSettings, EveryUnknownNameIsReportedThenTheMismatchOnce)
{
	EXPECT_TRUE(add(rule("R", {rule_case("", "'no1', 'soft', 'no2'")})));
	EXPECT_EQ(take_log(), kNoLabel + "no1\n" + kNoLabel + "no2\n" + kMismatch);
	EXPECT_EQ(cases("R"), 0u);
}

TEST_F(RmInsertSettings, ItemsThatAreNoTextsAreAMismatch)
{
	for (const char *items : {"5", "'soft', null", "'0x10'", "{}", "['soft']"}) {
		ASSERT_TRUE(rules.init());
		EXPECT_TRUE(add(rule("R", {rule_case("", items)})));
		EXPECT_EQ(take_log(), kMismatch) << items;
		EXPECT_EQ(cases("R"), 0u) << items;
	}
}

TEST_F(RmInsertSettings, ManySettingsAreOneRecord)
{
	std::vector<std::string> names = numbered("s", 1000);
	for (std::size_t i = 0; i < names.size(); ++i)
		setting(names[i], static_cast<int>(1000 + i));
	ASSERT_TRUE(add(rule("R", {rule_case("", quoted(names))})));
	ASSERT_TRUE(rm_finish(rules.get()));
	Ids expected;
	for (u16 i = 0; i < 1000; ++i)
		expected.push_back(static_cast<u16>(1000 + i));
	EXPECT_EQ(selected(rules.get(), ""), expected);
}

// ---- children ----

TEST_F(RmInsertChildren, KnownRulesAreNamedByTheirNode)
{
	ASSERT_TRUE(add(rule("A") + ", " + rule("B")));
	ASSERT_TRUE(add(rule("C", {rule_case("", "", "'b', 'A', 'C', 'B'")})));
	EXPECT_EQ(children(), (Lines{id_of("B"), id_of("A"), id_of("C"), id_of("B")}));
	EXPECT_EQ(rules->unres_rule.count, 0u);
}

TEST_F(RmInsertChildren, UnknownRuleWaits)
{
	ASSERT_TRUE(add(rule("R", {rule_case("", "", "'Later'")})));
	EXPECT_EQ(children(), Lines{"[65535]"});
	ASSERT_EQ(rules->unres_rule.count, 1u);
	EXPECT_STREQ(rules->unres_rule.items[0].itemname, "Later");
	EXPECT_EQ(rules->unres_rule.items[0].id, 13);

	ASSERT_TRUE(add(rule("LATER")));
	EXPECT_EQ(rules->unres_rule.count, 0u);
	EXPECT_EQ(children(), Lines{id_of("Later")});
}

TEST_F(RmInsertChildren, RuleDefinedLaterInTheSameDocumentResolves)
{
	ASSERT_TRUE(add(rule("R", {rule_case("", "", "'Later'")}) + ", " + rule("Later")));
	EXPECT_EQ(rules->unres_rule.count, 0u);
	EXPECT_EQ(children(), Lines{id_of("Later")});
}

TEST_F(RmInsertChildren, PendingRulesResolveFromTheLastDownToOneStillUnknown)
{
	ASSERT_TRUE(add(rule("R", {rule_case("", "", "'A', 'B', 'C', 'B', 'B'")})));
	ASSERT_EQ(rules->unres_rule.count, 5u);
	ASSERT_TRUE(add(rule("B")));
	ASSERT_EQ(rules->unres_rule.count, 3u); // both last ones; C hides the other
	EXPECT_STREQ(rules->unres_rule.items[1].itemname, "B");
	EXPECT_STREQ(rules->unres_rule.items[2].itemname, "C");
	EXPECT_EQ(children(),
		  (Lines{"[65535]", "[65535]", "[65535]", id_of("B"), id_of("B")}));
	ASSERT_TRUE(add(rule("A")));
	EXPECT_EQ(rules->unres_rule.count, 3u); // C still hides both
	ASSERT_TRUE(add(rule("C")));
	EXPECT_EQ(rules->unres_rule.count, 0u);
	EXPECT_EQ(children(),
		  (Lines{id_of("A"), id_of("B"), id_of("C"), id_of("B"), id_of("B")}));
}

TEST_F(RmInsertChildren, GroupThatIsSkippedResolvesNothing)
{
	ASSERT_TRUE(add(rule("R", {rule_case("", "", "'Late'")})));
	EXPECT_TRUE(add("'Late': {'#version': {'MajorVersion': 9}, 'rules': []}"));
	EXPECT_EQ(rules->unres_rule.count, 1u);
	EXPECT_FALSE(rm_finish(rules.get()));
}

TEST_F(RmInsertChildren, SixtyFourWaitAndFurtherOnesAreDroppedSilently)
{
	const std::vector<std::string> names = numbered("later", kMostPending + 1);
	ASSERT_TRUE(add(rule("R", {rule_case("", "", quoted(names))})));
	EXPECT_EQ(take_log(), "");
	ASSERT_EQ(rules->unres_rule.count, kMostPending);
	EXPECT_STREQ(rules->unres_rule.items[0].itemname, "later0");
	EXPECT_STREQ(rules->unres_rule.items[63].itemname, "later63");
	EXPECT_EQ(children().size(), 65u); // the reference is there

	std::string groups;
	for (const std::string &name : names)
		groups += (groups.empty() ? "" : ", ") + rule(name);
	ASSERT_TRUE(add(groups));
	EXPECT_EQ(rules->unres_rule.count, 0u);
	EXPECT_EQ(children()[0], id_of("later0"));
	EXPECT_EQ(children()[63], id_of("later63"));
	EXPECT_EQ(children()[64], "[65535]"); // and stays nobody's
	EXPECT_TRUE(rm_finish(rules.get()));
}

TEST_F(RmInsertChildren, NamesOfPendingItemsAreCutAfter127Characters)
{
	const std::string longest(127, 'a');
	const std::string longer(128, 'b');
	ASSERT_TRUE(add(rule("R", {rule_case("", "", "'" + longer + "', '" + longest + "'")})));
	ASSERT_EQ(rules->unres_rule.count, 2u);
	EXPECT_EQ(rules->unres_rule.items[0].itemname, std::string(127, 'b'));
	EXPECT_EQ(rules->unres_rule.items[1].itemname, longest);
	ASSERT_TRUE(add(rule(longest) + ", " + rule(longer)));
	EXPECT_EQ(rules->unres_rule.count, 1u); // the cut name is nobody's
	EXPECT_EQ(children(), (Lines{"[65535]", id_of(longest)}));
	ASSERT_TRUE(add(rule(std::string(127, 'b')))); // until somebody has it
	EXPECT_EQ(rules->unres_rule.count, 0u);
	EXPECT_EQ(children(), (Lines{id_of(std::string(127, 'b')), id_of(longest)}));
}

TEST_F(RmInsertChildren, ItemsThatAreNoTextsAreReportedAndSkipped)
{
	EXPECT_TRUE(add(rule("R", {rule_case("", "'soft'", "5, 'R', null, {}, '0x10'")})));
	EXPECT_EQ(take_log(), kInvalidName + kInvalidName + kInvalidName + kInvalidName);
	EXPECT_EQ(cases("R"), 1u);
	EXPECT_EQ(children(), Lines{"[2]"});
	EXPECT_EQ(records(EXTMEM_TAG_VALUE_HOLDER), Lines{"[100]"});
}

// ---- limits and memory ----

TEST_F(RmInsertMemory, FullStoreEndsInsertionAndWhatWasThereWorks)
{
	ASSERT_TRUE(add(rule("R", {rule_case("", "'soft'")})));
	ASSERT_TRUE(rm_finish(rules.get()));
	while (extmem_node_isvalid(
		extmem_request_node(&rules->builder, EXTMEM_TAG_UNSPECIFIED))) {
	}
	EXPECT_TRUE(add(rule("S", {rule_case("", "'sharp'")}) + ", " + rule("T")));
	EXPECT_EQ(rule_id("S"), INT_MIN);
	EXPECT_EQ(rule_id("T"), INT_MIN);
	EXPECT_EQ(selected(rules.get(), ""), Ids{100});
	ImageBytes image = image_of(rules.get());
	Rules again;
	EXPECT_TRUE(adopt(again, image));
	take_log();
}

TEST_F(RmInsertMemory, CaseThatDoesNotFitIsNotLinked)
{
	// One, two, three ... nodes are left when the group is inserted.
	for (std::size_t room = 1; room <= 20; ++room) {
		ASSERT_TRUE(rules.init());
		ASSERT_TRUE(add(rule("R", {rule_case("", "'soft'")})));
		ASSERT_TRUE(rm_finish(rules.get()));
		while (rule_node_count(rules.get()) < 65535 - room)
			extmem_request_node(&rules->builder, EXTMEM_TAG_UNSPECIFIED);
		EXPECT_TRUE(add(rule("S", {rule_case("", "'sharp', 'dark'", "'R'")})));
		take_log();
		// 6 for the group, 5 for case and pattern, 6 for three outcomes
		EXPECT_EQ(rule_id("S") != INT_MIN, room >= 6) << room;
		if (room >= 6) {
			EXPECT_EQ(cases("S"), room >= 17 ? 1u : 0u) << room;
		}
		EXPECT_EQ(selected(rules.get(), "", "R"), Ids{100}) << room;
	}
}

TEST_F(RmInsertMemory, EveryRefusalLeavesWholeCasesOrNone)
{
	const Json document = json(rule_groups(
		rule("New", {rule_case("'A': ['x', 'y'], 'L': '[1,5]', 'S': 's'", "'soft', 'dark'",
				       "'Old', 'Later_with_a_name_that_is_not_short'"),
			     rule_case("'A': 'z'", "'sharp', 'light'")}) +
		", " +
		rule("Later_with_a_name_that_is_not_short", {rule_case("'A': 'z'", "'sharp'")})));
	for (std::size_t nth = 1;; ++nth) {
		ASSERT_LT(nth, 500u);
		ASSERT_TRUE(rules.init());
		ASSERT_TRUE(declare(enumerated("A", {"x", "y", "z"}) + ", " + value_source("L") +
				    ", 'S': {'content': ['s'], 'define': {'s': {'L': '[2,9]'}}}"));
		ASSERT_TRUE(add(rule("Old", {rule_case("'A': 'x'", "'sharp'")})));
		// Buffers that are nearly full have to grow on the way.
		while (rule_node_count(rules.get()) < 62)
			extmem_request_node(&rules->builder, EXTMEM_TAG_UNSPECIFIED);
		while (rules->builder.data_buffer.buf_used < 1000)
			extmem_request_data(&rules->builder, 8);
		bool refused;
		{
			const Refuse one = Refuse::only(nth);
			EXPECT_TRUE(rm_insert(rules.get(), document.get(), map.get())) << nth;
			refused = one.happened();
		}
		take_log();
		rm_finish(rules.get()); // false is right when the later rule is not there
		ASSERT_NE(rules->rmInd.keyBuffer, nullptr);
		EXPECT_EQ(selected(rules.get(), "A:x;L:5", "Old"), Ids{101}) << nth;
		if (rule_id("New") != INT_MIN) {
			EXPECT_TRUE(rm_clear(rules.get()));
			EXPECT_TRUE(rm_set(rules.get(), "A:x;L:5", 0));
			rm_trigger(rules.get(), "New"); // false when it leads to a missing rule
			const Ids found = results_of(rules.get());
			if (!found.empty()) {
				EXPECT_EQ(found, (Ids{100, 101})) << nth;
				EXPECT_EQ(presets_of(rules.get()), Ids{300}) << nth;
			}
			const Ids second = selected(rules.get(), "A:z", "New");
			EXPECT_TRUE(second == Ids{101} || second.empty()) << nth;
		}
		take_log();
		ImageBytes image = image_of(rules.get());
		Rules again;
		EXPECT_TRUE(adopt(again, image)) << nth;
		if (!refused) {
			EXPECT_GT(nth, 15u);
			EXPECT_TRUE(rm_finish(rules.get()));
			EXPECT_EQ(cases("New"), 2u);
			break;
		}
	}
}

// A hook that refuses the first block of 32 ranges.
constexpr std::size_t kRangeBlock = 768;
bool range_block_refused;

void *refuse_ranges_once(size_t size)
{
	if (size == kRangeBlock && !range_block_refused) {
		range_block_refused = true;
		return nullptr;
	}
	return ALLOC(size);
}

TEST_F(RmInsertMemory, WithoutRoomForRangesTheGroupEnds)
{
	rules->builder.allocate = refuse_ranges_once;
	range_block_refused = false;
	EXPECT_TRUE(add(rule("R", {rule_case("", "'soft'"), rule_case("", "'sharp'")}) + ", " +
			rule("S", {rule_case("", "'sharp'")})));
	EXPECT_TRUE(range_block_refused);
	EXPECT_NE(rule_id("R"), INT_MIN);
	EXPECT_EQ(cases("R"), 0u);
	EXPECT_EQ(cases("S"), 1u); // the next group is another matter
	take_log();
}

} // namespace
