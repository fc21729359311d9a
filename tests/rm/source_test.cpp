// SPDX-License-Identifier: MIT
//
// Declared sources: enumerated, value and redefined ones, and the rule-list document around them.
#include <climits>

#include "tests/support/rm_images.h"
#include "tests/support/rm_json.h"

namespace {

using namespace vexil_test;

constexpr std::size_t kMostPending = 64;
constexpr std::size_t kMostKeyBits = 65536;

const std::string kDuplicate = "[VEXIL][RM][rm_insert_source] duplicated timing ";
const std::string kDuplicateValue = "[VEXIL][RM][rm_insert_source_null] duplicated timing ";
const std::string kDuplicateRedefined = "[VEXIL][RM][rm_insert_source_redefine] duplicated timing ";

class RmSource : public RmTest {
protected:
	/** rm_insert_source of texts; "<null>" stands for a null. */
	bool insert(const std::string &name, std::vector<std::string> values)
	{
		std::vector<char *> texts;
		for (std::string &value : values)
			texts.push_back(value == "<null>" ? nullptr : value.data());
		return rm_insert_source(rules.get(), name.c_str(), texts.data(),
					static_cast<u32>(texts.size()));
	}
	bool has_handler()
	{
		rm_handler *handler = nullptr;
		const bool made = rm_create_handler(rules.get(), &handler);
		return rm_handler_destroy(&handler) && made;
	}
};

using RmSourceJson = RmSource;
using RmSourceRedefine = RmSource;
using RmSourceNull = RmSource;
using RmSourceMemory = RmSource;

// ---- enumerated sources ----

TEST_F(RmSource, EnumeratedSourceIsOneTreePerValue)
{
	ASSERT_TRUE(insert("Input", {"HDMI", "DTV"}));
	const Lines expected = {
		"0 GENERAL c1",
		"1 GENERAL c2 n6",
		"2 LABEL c3 n4",
		"3 SOURCE shift 0 width 2 rank 1",
		"4 PROPERTY c5",
		"5 STRING 'Input:HDMI'",
		"6 GENERAL c7",
		"7 LABEL c8 n9",
		"8 SOURCE shift 0 width 2 rank 2",
		"9 PROPERTY c10",
		"10 STRING 'Input:DTV'",
	};
	EXPECT_EQ(nodes(), expected);
	EXPECT_EQ(label("Input:HDMI"), 2);
	EXPECT_EQ(label("INPUT:dtv"), 7);
	EXPECT_EQ(label("Input"), INT_MIN);
	EXPECT_EQ(rules->used_bits, 2u);
	EXPECT_EQ(rules->res_num, 0u);
}

TEST_F(RmSource, DescriptionIsEightLittleEndianBytes)
{
	ASSERT_TRUE(insert("Pad", numbered("p", 300)));
	ASSERT_TRUE(insert("Input", {"A", "B", "C"}));
	const ImageBytes image = image_of(rules.get());
	const auto id = static_cast<u16>(label("Input:C"));
	EXPECT_EQ(image.record(image.child(id)), std::string("\x09\0\x02\0\x03\0\0\0", 8));
}

TEST_F(RmSource, WidthIsTheFewestBitsForCodesUpToTheCount)
{
	const struct {
		std::size_t values;
		std::size_t width;
	} table[] = {{1, 1}, {2, 2}, {3, 2}, {4, 3}, {7, 3}, {8, 4}, {15, 4}, {16, 5}, {31, 5},
		     {32, 6}, {127, 7}, {128, 8}, {255, 8}, {256, 9}};
	for (const auto &row : table) {
		ASSERT_TRUE(rules.init());
		ASSERT_TRUE(insert("S", numbered("v", row.values)));
		EXPECT_EQ(rules->used_bits, row.width) << row.values;
		const Lines fields = records(EXTMEM_TAG_SOURCE_DESCRIPTION);
		ASSERT_EQ(fields.size(), row.values);
		for (std::size_t i = 0; i < fields.size(); ++i)
			EXPECT_EQ(fields[i], "shift 0 width " + std::to_string(row.width) +
						     " rank " + std::to_string(i + 1));
	}
}

TEST_F(RmSource, WithoutValuesOneBitIsTaken)
{
	char *none[1] = {nullptr};
	ASSERT_TRUE(rm_insert_source(rules.get(), "S", none, 0));
	EXPECT_EQ(rules->used_bits, 1u);
	EXPECT_EQ(rule_node_count(rules.get()), 1u);
}

TEST_F(RmSource, FieldsFollowEachOtherInOrderOfDeclaration)
{
	ASSERT_TRUE(insert("A", numbered("a", 3)));
	ASSERT_TRUE(rm_insert_source_null(rules.get(), "B"));
	ASSERT_TRUE(insert("C", numbered("c", 4)));
	ASSERT_TRUE(insert("D", numbered("d", 1)));
	EXPECT_EQ(rules->used_bits, 7u);
	EXPECT_EQ(node(3), "3 SOURCE shift 0 width 2 rank 1");
	const Lines fields = records(EXTMEM_TAG_SOURCE_DESCRIPTION);
	ASSERT_EQ(fields.size(), 9u);
	EXPECT_EQ(fields[3], "shift 2 width 1 rank 1");
	EXPECT_EQ(fields[4], "shift 3 width 3 rank 1");
	EXPECT_EQ(fields[8], "shift 6 width 1 rank 1");
}

TEST_F(RmSource, DeclaredTwiceEveryLabelIsADuplicateAndTheBitsAreTaken)
{
	ASSERT_TRUE(insert("Input", {"A", "B", "C"}));
	const std::size_t before = rule_node_count(rules.get());
	EXPECT_TRUE(insert("input", {"a", "B", "C"}));
	EXPECT_EQ(take_log(), kDuplicate + "input:a\n" + kDuplicate + "input:B\n" + kDuplicate +
				      "input:C\n");
	EXPECT_EQ(rules->used_bits, 4u);
	EXPECT_EQ(rule_node_count(rules.get()), before);
}

TEST_F(RmSource, NewValuesOfASourceDeclaredBeforeUseTheNewField)
{
	ASSERT_TRUE(insert("Input", {"A"}));
	EXPECT_TRUE(insert("Input", {"A", "B"}));
	EXPECT_EQ(take_log(), kDuplicate + "Input:A\n");
	EXPECT_EQ(rules->used_bits, 3u);
	EXPECT_EQ(records(EXTMEM_TAG_SOURCE_DESCRIPTION),
		  (Lines{"shift 0 width 1 rank 1", "shift 1 width 2 rank 2"}));
}

TEST_F(RmSource, ValueTwiceInOneListKeepsItsFirstCode)
{
	EXPECT_TRUE(insert("S", {"A", "A", "B"}));
	EXPECT_EQ(take_log(), kDuplicate + "S:A\n");
	EXPECT_EQ(records(EXTMEM_TAG_SOURCE_DESCRIPTION),
		  (Lines{"shift 0 width 2 rank 1", "shift 0 width 2 rank 3"}));
}

TEST_F(RmSource, NullValueRepeatsTheLabelBefore)
{
	EXPECT_TRUE(insert("S", {"A", "<null>", "B"}));
	EXPECT_EQ(take_log(), kDuplicate + "S:A\n");
	EXPECT_EQ(rules->used_bits, 2u);
	EXPECT_EQ(records(EXTMEM_TAG_SOURCE_DESCRIPTION),
		  (Lines{"shift 0 width 2 rank 1", "shift 0 width 2 rank 3"}));
}

TEST_F(RmSource, NullFirstValueHasAnEmptyLabelThatNothingHolds)
{
	EXPECT_TRUE(insert("S", {"<null>", "B"}));
	EXPECT_EQ(rules->used_bits, 2u);
	EXPECT_NE(label("S:B"), INT_MIN);
	EXPECT_EQ(label(""), INT_MIN);
	// Only what has a name can be adopted again.
	ImageBytes image = image_of(rules.get());
	Rules again;
	EXPECT_TRUE(adopt(again, image));
	EXPECT_EQ(ctrie_find(&again->source_map, "S:B"), label("S:B"));
	take_log();
}

TEST_F(RmSource, LabelThatCannotBeIndexedIsNotLinked)
{
	EXPECT_TRUE(insert("S", {"A", "B$", "C"}));
	EXPECT_EQ(take_log(), "[ctrie_insert][176]insert wrong string member = 36\n");
	EXPECT_EQ(rules->used_bits, 2u);
	EXPECT_EQ(label("S:B$"), INT_MIN);
	EXPECT_EQ(records(EXTMEM_TAG_SOURCE_DESCRIPTION).size(), 3u); // unreachable, yet there
	EXPECT_EQ(node(1), "1 GENERAL c2 n11");
	EXPECT_EQ(node(11), "11 GENERAL c12");

	ImageBytes image = image_of(rules.get());
	Rules again;
	EXPECT_TRUE(adopt(again, image));
}

TEST_F(RmSource, NullsDoNothing)
{
	char value[] = "A";
	char *values[] = {value};
	EXPECT_FALSE(rm_insert_source(nullptr, "S", values, 1));
	EXPECT_FALSE(rm_insert_source(rules.get(), nullptr, values, 1));
	EXPECT_FALSE(rm_insert_source(rules.get(), "S", nullptr, 1));
	EXPECT_FALSE(rm_insert_source_null(nullptr, "S"));
	EXPECT_FALSE(rm_insert_source_null(rules.get(), nullptr));
	const Json define = json("{'A': {'x': '[1,2]'}}");
	EXPECT_FALSE(rm_insert_source_redefine(nullptr, "S", values, 1, define.get()));
	EXPECT_FALSE(rm_insert_source_redefine(rules.get(), nullptr, values, 1, define.get()));
	EXPECT_FALSE(rm_insert_source_redefine(rules.get(), "S", nullptr, 1, define.get()));
	EXPECT_FALSE(rm_insert_source_redefine(rules.get(), "S", values, 1, nullptr));
	EXPECT_FALSE(rm_insert_source_json(nullptr, define.get()));
	EXPECT_FALSE(rm_insert_source_json(rules.get(), nullptr));
	EXPECT_EQ(rules->used_bits, 0u);
	EXPECT_EQ(rule_node_count(rules.get()), 1u);
}

// ---- value sources ----

TEST_F(RmSourceNull, TreeEndsWithTheSlot)
{
	ASSERT_TRUE(rm_insert_source_null(rules.get(), "Luma"));
	ASSERT_TRUE(rm_insert_source_null(rules.get(), "Chroma"));
	const Lines expected = {
		"0 GENERAL c1",
		"1 GENERAL c2 n7",
		"2 LABEL c3 n4",
		"3 SOURCE shift 0 width 1 rank 1",
		"4 PROPERTY c5 n6",
		"5 STRING 'Luma'",
		"6 SLOT 0",
		"7 GENERAL c8",
		"8 LABEL c9 n10",
		"9 SOURCE shift 1 width 1 rank 1",
		"10 PROPERTY c11 n12",
		"11 STRING 'Chroma'",
		"12 SLOT 1",
	};
	EXPECT_EQ(nodes(), expected);
	EXPECT_EQ(label("Luma"), 2);
	EXPECT_EQ(label("CHROMA"), 8);
	EXPECT_EQ(rules->used_bits, 2u);
	EXPECT_EQ(rules->res_num, 2u);
}

TEST_F(RmSourceNull, DuplicateTakesItsBitAndNoSlot)
{
	ASSERT_TRUE(rm_insert_source_null(rules.get(), "Luma"));
	EXPECT_TRUE(rm_insert_source_null(rules.get(), "LUMA"));
	EXPECT_EQ(take_log(), kDuplicateValue + "LUMA\n");
	EXPECT_EQ(rules->used_bits, 2u);
	EXPECT_EQ(rules->res_num, 1u);
	EXPECT_EQ(rule_node_count(rules.get()), 7u);
	ASSERT_TRUE(rm_insert_source_null(rules.get(), "Chroma"));
	EXPECT_EQ(node(9), "9 SOURCE shift 2 width 1 rank 1");
	EXPECT_EQ(node(12), "12 SLOT 1");
}

TEST_F(RmSourceNull, NameThatCannotBeIndexedIsNotLinked)
{
	EXPECT_TRUE(declare("'L$': {'content': 1}, 'M': {'content': 1}"));
	EXPECT_EQ(take_log(), "[ctrie_insert][176]insert wrong string member = 36\n");
	EXPECT_EQ(node(0), "0 GENERAL c7");
	EXPECT_EQ(label("L$"), INT_MIN);
	EXPECT_EQ(label("M"), 8);
}

// ---- redefined sources ----

TEST_F(RmSourceRedefine, RangesHangBelowTheLabel)
{
	ASSERT_TRUE(declare("'Luma': {'content': {}}, 'Chroma': {'content': {}}, "
			    "'Scene': {'content': ['dark', 'bright'], 'define': {"
			    "'dark': {'Luma': '[0,100)', 'Chroma': '(5,0x10]'}, "
			    "'bright': {'Luma': '[100,255]'}}}"));
	const Lines expected = {
		"13 GENERAL c14 n21",
		"14 LABEL c18 n15",
		"15 PROPERTY c16",
		"16 STRING 'Scene:dark'",
		"17 RANGE node 6 0..99",
		"18 REDEFINE c17 n20",
		"19 RANGE node 12 6..16",
		"20 REDEFINE c19",
		"21 GENERAL c22",
		"22 LABEL c26 n23",
		"23 PROPERTY c24",
		"24 STRING 'Scene:bright'",
		"25 RANGE node 6 100..255",
		"26 REDEFINE c25",
	};
	EXPECT_EQ(nodes(13), expected);
	EXPECT_EQ(node(7), "7 GENERAL c8 n13");
	EXPECT_EQ(label("Scene:dark"), 14);
	EXPECT_EQ(label("Scene:bright"), 22);
	EXPECT_EQ(rules->used_bits, 2u); // of Luma and Chroma
	EXPECT_EQ(rules->res_num, 2u);
	EXPECT_EQ(rules->unres_source.count, 0u);
}

TEST_F(RmSourceRedefine, RangeIsTwentyFourBytes)
{
	ASSERT_TRUE(
		declare("'Luma': {'content': {}}, 'S': {'content': ['a'], "
			"'define': {'a': {'Luma': '[0x0102030405060708,0xFFFFFFFFFFFFFFFF]'}}}"));
	const ImageBytes image = image_of(rules.get());
	EXPECT_EQ(image.record(11), std::string("\x06\0\0\0\0\0\0\0"
						"\x08\x07\x06\x05\x04\x03\x02\x01"
						"\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF",
						24));
}

TEST_F(RmSourceRedefine, ValueWithoutADefinitionHasNoLabel)
{
	ASSERT_TRUE(declare("'Luma': {'content': {}}, 'S': {'content': ['a', 'b'], "
			    "'define': {'B': {'Luma': '[1,2]'}, 'c': {'Luma': '[3,4]'}}}"));
	EXPECT_EQ(label("S:a"), INT_MIN);
	EXPECT_EQ(label("S:c"), INT_MIN);
	EXPECT_EQ(label("S:b"), 8); // defined under "B": letter case does not matter
	EXPECT_EQ(rule_node_count(rules.get()), 13u);
}

TEST_F(RmSourceRedefine, DefinitionWithoutConditionsIsALabelAlone)
{
	ASSERT_TRUE(declare("'S': {'content': ['a'], 'define': {'a': {}}}"));
	EXPECT_EQ(nodes(1),
		  (Lines{"1 GENERAL c2", "2 LABEL n3", "3 PROPERTY c4", "4 STRING 'S:a'"}));
}

TEST_F(RmSourceRedefine, DuplicateIsLoggedAndSkipped)
{
	EXPECT_TRUE(declare("'S': {'content': ['a', 'A', 'b'], "
			    "'define': {'a': {'x': '[1,2]'}, 'b': {}}}"));
	EXPECT_EQ(take_log(), kDuplicateRedefined + "S:A\n");
	EXPECT_EQ(rules->unres_source.count, 1u);
	EXPECT_NE(label("S:b"), INT_MIN);
	EXPECT_EQ(rules->used_bits, 0u);
}

TEST_F(RmSourceRedefine, LabelThatCannotBeIndexedLeavesNothingPending)
{
	EXPECT_TRUE(declare("'S': {'content': ['a$'], 'define': {'a$': {'x': '[1,2]'}}}"));
	EXPECT_EQ(take_log(), "[ctrie_insert][176]insert wrong string member = 36\n");
	EXPECT_EQ(node(0), "0 GENERAL");
	EXPECT_EQ(rules->unres_source.count, 0u);
}

TEST_F(RmSourceRedefine, NumberValuesAreSkipped)
{
	EXPECT_TRUE(declare("'S': {'content': [1, 'a'], 'define': {'1': {}, 'a': {}}}"));
	EXPECT_EQ(label("S:1"), INT_MIN);
	EXPECT_NE(label("S:a"), INT_MIN);
}

TEST_F(RmSourceRedefine, UnknownSourceWaitsUntilItIsDeclared)
{
	ASSERT_TRUE(declare("'S': {'content': ['a'], 'define': {'a': {'Luma': '[3,4]'}}}"));
	ASSERT_EQ(rules->unres_source.count, 1u);
	EXPECT_STREQ(rules->unres_source.items[0].itemname, "Luma");
	EXPECT_EQ(rules->unres_source.items[0].id, 5);
	EXPECT_EQ(node(5), "5 RANGE node 65535 3..4");

	ASSERT_TRUE(declare(value_source("LUMA")));
	EXPECT_EQ(rules->unres_source.count, 0u);
	EXPECT_EQ(node(5), "5 RANGE node 12 3..4");
	EXPECT_EQ(node(12), "12 SLOT 0");
}

TEST_F(RmSourceRedefine, SourceDeclaredLaterInTheSameDocumentIsFound)
{
	ASSERT_TRUE(declare("'S': {'content': ['a'], 'define': {'a': {'Luma': '[3,4]'}}}, " +
			    value_source("Luma")));
	EXPECT_EQ(rules->unres_source.count, 0u);
	EXPECT_EQ(node(5), "5 RANGE node 12 3..4");
}

TEST_F(RmSourceRedefine, ResolvedItemsLeaveTheOthersInOrder)
{
	ASSERT_TRUE(
		declare("'S': {'content': ['a'], 'define': {'a': {"
			"'u': '[1,1]', 'v': '[2,2]', 'w': '[3,3]', 'v': '[4,4]', 'x': '[5,5]'}}}"));
	ASSERT_EQ(rules->unres_source.count, 5u);
	ASSERT_TRUE(declare(value_source("v")));
	ASSERT_EQ(rules->unres_source.count, 3u);
	std::vector<std::string> names;
	std::vector<u16> ids;
	for (std::size_t i = 0; i < 3; ++i) {
		names.emplace_back(rules->unres_source.items[i].itemname);
		ids.push_back(rules->unres_source.items[i].id);
	}
	EXPECT_EQ(names, (std::vector<std::string>{"u", "w", "x"}));
	EXPECT_EQ(ids, (std::vector<u16>{5, 9, 13}));
	EXPECT_EQ(records(EXTMEM_TAG_RANGE_HOLDER),
		  (Lines{"node 65535 1..1", "node 20 2..2", "node 65535 3..3", "node 20 4..4",
			 "node 65535 5..5"}));
}

TEST_F(RmSourceRedefine, SixtyFourWaitAndFurtherOnesAreDroppedSilently)
{
	std::string conditions;
	for (const std::string &name : numbered("x", kMostPending + 1))
		conditions += (conditions.empty() ? "'" : ", '") + name + "': '[1,2]'";
	ASSERT_TRUE(declare("'S': {'content': ['a'], 'define': {'a': {" + conditions + "}}}"));
	EXPECT_EQ(take_log(), "");
	ASSERT_EQ(rules->unres_source.count, kMostPending);
	EXPECT_STREQ(rules->unres_source.items[0].itemname, "x0");
	EXPECT_STREQ(rules->unres_source.items[63].itemname, "x63");

	std::string sources;
	for (const std::string &name : numbered("x", kMostPending + 1))
		sources += (sources.empty() ? "" : ", ") + value_source(name);
	ASSERT_TRUE(declare(sources));
	EXPECT_EQ(rules->unres_source.count, 0u);
	const Lines ranges = records(EXTMEM_TAG_RANGE_HOLDER);
	ASSERT_EQ(ranges.size(), 65u);
	EXPECT_NE(ranges[63], "node 65535 1..2");
	EXPECT_EQ(ranges[64], "node 65535 1..2"); // dropped: stays so
	EXPECT_TRUE(rm_finish(rules.get()));      // and is silent there too
}

TEST_F(RmSourceRedefine, NamesOfPendingItemsAreCutAfter127Characters)
{
	const std::string longest(127, 'n');
	const std::string longer(128, 'm');
	ASSERT_TRUE(declare("'S': {'content': ['a'], 'define': {'a': {'" + longest +
			    "': '[1,1]', '" + longer + "': '[2,2]'}}}"));
	ASSERT_EQ(rules->unres_source.count, 2u);
	EXPECT_EQ(rules->unres_source.items[0].itemname, longest);
	EXPECT_EQ(rules->unres_source.items[1].itemname, std::string(127, 'm'));

	ASSERT_TRUE(declare(value_source(longest) + ", " + value_source(longer)));
	EXPECT_EQ(rules->unres_source.count, 1u); // the cut name is nobody's
	EXPECT_FALSE(rm_finish(rules.get()));
	ASSERT_TRUE(declare(value_source(std::string(127, 'm')))); // until somebody has it
	EXPECT_EQ(rules->unres_source.count, 0u);
	EXPECT_TRUE(rm_finish(rules.get()));
}

TEST_F(RmSourceRedefine, NameWithoutAValueSlotStaysPending)
{
	ASSERT_TRUE(declare("'S': {'content': ['a'], 'define': {'a': {'E:x': '[1,2]'}}}, " +
			    enumerated("E", {"x"})));
	EXPECT_EQ(rules->unres_source.count, 1u);
	EXPECT_EQ(records(EXTMEM_TAG_RANGE_HOLDER), Lines{"node 65535 1..2"});
	EXPECT_FALSE(rm_finish(rules.get()));
}

TEST_F(RmSourceRedefine, RangeThatIsNoTextIsZeroToZero)
{
	ASSERT_TRUE(declare("'L': {'content': {}}, 'S': {'content': ['a'], "
			    "'define': {'a': {'L': 5}}}"));
	EXPECT_EQ(records(EXTMEM_TAG_RANGE_HOLDER), Lines{"node 6 0..0"});
}

// ---- the document ----

TEST_F(RmSourceJson, WithoutARuleListNothingIsDone)
{
	EXPECT_TRUE(insert_lists(rules.get(), "{'PqRuleGroups': {}}"));
	EXPECT_TRUE(insert_lists(rules.get(), "[1, 2]"));
	EXPECT_EQ(rule_node_count(rules.get()), 1u);
}

TEST_F(RmSourceJson, MemberNamesIgnoreLetterCase)
{
	EXPECT_TRUE(insert_lists(rules.get(),
				 "{'pqrulelists': {'#VERSION': {'majorversion': 2, "
				 "'minorversion': 1, 'revision': 7}, 'S': {'CONTENT': ['a'], "
				 "'DEFINE': {'a': {}}}, 'T': {'Content': ['b']}}}"));
	EXPECT_EQ(rules->rl_json_version, (vexil_version{2, 1, 7}));
	EXPECT_EQ(node(2), "2 LABEL n3");
	EXPECT_EQ(label("T:b"), 6);
	EXPECT_EQ(rules->used_bits, 1u);
}

TEST_F(RmSourceJson, ContentDecidesTheKindOfSource)
{
	ASSERT_TRUE(declare("'none': {'define': {}}, 'empty': {'content': []}, "
			    "'list': {'content': ['a', 'b']}, 'text': {'content': 'x'}, "
			    "'object': {'content': {'a': 1}}, 'number': {'content': 3}, "
			    "'null': {'content': null}, 'true': {'content': true}"));
	EXPECT_EQ(label("none"), INT_MIN);
	EXPECT_EQ(label("empty"), INT_MIN);
	EXPECT_EQ(label("list"), INT_MIN);
	EXPECT_NE(label("list:b"), INT_MIN);
	for (const char *name : {"text", "object", "number", "null", "true"})
		EXPECT_NE(label(name), INT_MIN) << name;
	EXPECT_EQ(rules->used_bits, 7u);
	EXPECT_EQ(rules->res_num, 5u);
}

TEST_F(RmSourceJson, ItemsThatAreNumbersRepeatTheLabelBefore)
{
	EXPECT_TRUE(declare("'S': {'content': ['a', '0x10', 5, 'b']}"));
	EXPECT_EQ(take_log(), kDuplicate + "S:a\n" + kDuplicate + "S:a\n");
	EXPECT_EQ(rules->used_bits, 3u);
	EXPECT_EQ(records(EXTMEM_TAG_SOURCE_DESCRIPTION),
		  (Lines{"shift 0 width 3 rank 1", "shift 0 width 3 rank 4"}));
}

TEST_F(RmSourceJson, VersionFromTwoZeroToTwoTwoIsAccepted)
{
	const struct {
		const char *version;
		vexil_version read;
		bool accepted;
	} table[] = {
		{"{'MajorVersion': 2, 'MinorVersion': 0}", {2, 0, 0}, true},
		{"{'MajorVersion': 2, 'MinorVersion': 2, 'Revision': 9}", {2, 2, 9}, true},
		{"{'MajorVersion': 2, 'MinorVersion': 3}", {2, 3, 0}, false},
		{"{'MajorVersion': 3, 'MinorVersion': 0}", {3, 0, 0}, false},
		{"{'MajorVersion': 1, 'MinorVersion': 2}", {1, 2, 0}, false},
		{"{'MinorVersion': 2}", {0, 2, 0}, false},
		{"{'JsonVersionFormat': '2.1'}", {2, 1, 0}, true},
		{"{'JsonVersionFormat': ' 2 . 0 2 '}", {2, 2, 0}, true},
		{"{'JsonVersionFormat': '2.10'}", {2, 16, 0}, false},
		{"{'JsonVersionFormat': '2'}", {0, 2, 0}, false},
		{"{'JsonVersionFormat': '2.z'}", {2, 0, 0}, true},
		{"{'JsonVersionFormat': '2.1', 'MajorVersion': 5, 'Revision': '1F'}",
		 {2, 1, 31},
		 true},
		{"{'JsonVersionFormat': 5, 'MajorVersion': 2, 'MinorVersion': 1}", {2, 1, 0}, true},
		{"{'MajorVersion': '2', 'MinorVersion': 1}", {0, 1, 0}, false},
		{"{'JsonVersionFormat': '2.0', 'Revision': 'zz'}", {2, 0, 0}, true},
		{"{}", {0, 0, 0}, false},
		{"2", {0, 0, 0}, false},
		{"null", {0, 0, 0}, false},
	};
	for (const auto &row : table) {
		ASSERT_TRUE(rules.init());
		EXPECT_EQ(declare("'#version': " + std::string(row.version) + ", " +
				  enumerated("S", {"a"})),
			  row.accepted)
			<< row.version;
		EXPECT_EQ(rules->rl_json_version, row.read) << row.version;
		EXPECT_EQ(rules->used_bits, row.accepted ? 1u : 0u) << row.version;
		EXPECT_EQ(rule_node_count(rules.get()), row.accepted ? 6u : 1u) << row.version;
	}
}

TEST_F(RmSourceJson, DocumentWithoutAVersionIsAccepted)
{
	EXPECT_TRUE(declare(enumerated("S", {"a"})));
	EXPECT_EQ(rules->rl_json_version, (vexil_version{0, 0, 0}));
	EXPECT_EQ(label("S:a"), 2);
}

TEST_F(RmSourceJson, VersionMembersThatAreMissingKeepWhatWasRead)
{
	EXPECT_TRUE(declare("'#version': {'MajorVersion': 2, 'MinorVersion': 2, 'Revision': 9}"));
	EXPECT_TRUE(declare("'#version': {'MinorVersion': 1}"));
	EXPECT_EQ(rules->rl_json_version, (vexil_version{2, 1, 9}));
	// The text form gives both.
	EXPECT_FALSE(declare("'#version': {'JsonVersionFormat': '1'}"));
	EXPECT_EQ(rules->rl_json_version, (vexil_version{0, 1, 9}));
}

TEST_F(RmSourceJson, VersionCountsWhereverItStands)
{
	EXPECT_FALSE(declare(enumerated("S", {"a"}) + ", '#version': {'MajorVersion': 9}"));
	EXPECT_EQ(rule_node_count(rules.get()), 1u);
}

TEST_F(RmSourceJson, SecondDocumentGoesOnWhereTheFirstEnded)
{
	ASSERT_TRUE(declare(enumerated("A", {"x", "y"})));
	ASSERT_TRUE(declare(enumerated("B", {"x"})));
	EXPECT_EQ(node(6), "6 GENERAL c7 n11");
	EXPECT_EQ(node(13), "13 SOURCE shift 2 width 1 rank 1");
	EXPECT_EQ(rules->used_bits, 3u);
}

TEST_F(RmSourceJson, ArrayMembersHaveNoNamesAndAreSkipped)
{
	EXPECT_TRUE(insert_lists(rules.get(),
				 "{'PqRuleLists': [{'content': ['a']}, {'content': {}}]}"));
	EXPECT_EQ(rule_node_count(rules.get()), 1u);
	EXPECT_EQ(rules->used_bits, 0u);
}

TEST_F(RmSourceJson, ArrayOfValuesThatCannotBeHadIsReported)
{
	const Json document = json(rule_lists(enumerated("S", {"a", "b"})));
	const Refuse first = Refuse::only(1);
	EXPECT_FALSE(rm_insert_source_json(rules.get(), document.get()));
	EXPECT_EQ(take_log(), "[VEXIL][RM][rm_insert_source_json] failed to allocate memory.\n");
	EXPECT_EQ(rules->used_bits, 0u);
	EXPECT_EQ(rule_node_count(rules.get()), 1u);
}

// ---- the length of the key ----

TEST_F(RmSource, KeyEndsAt65536Bits)
{
	rules->used_bits = kMostKeyBits - 2;
	EXPECT_FALSE(insert("S", numbered("v", 4)));
	const Lines log = take_log_lines();
	ASSERT_EQ(log.size(), 1u);
	EXPECT_EQ(log[0].rfind("[rm_insert_source][", 0), 0u) << log[0];
	EXPECT_NE(log[0].find("]vexil lib fail!!"), std::string::npos) << log[0];
	EXPECT_EQ(rules->used_bits, kMostKeyBits - 2);
	EXPECT_EQ(rule_node_count(rules.get()), 1u);

	EXPECT_TRUE(insert("S", numbered("v", 3)));
	EXPECT_EQ(rules->used_bits, kMostKeyBits);
	EXPECT_EQ(node(3), "3 SOURCE shift 65534 width 2 rank 1");

	EXPECT_FALSE(rm_insert_source_null(rules.get(), "L"));
	const Lines refused = take_log_lines();
	ASSERT_EQ(refused.size(), 1u);
	EXPECT_EQ(refused[0].rfind("[rm_insert_source_null][", 0), 0u) << refused[0];
	EXPECT_EQ(rules->used_bits, kMostKeyBits);
	EXPECT_EQ(rules->res_num, 0u);
	EXPECT_EQ(label("L"), INT_MIN);
}

TEST_F(RmSource, FullKeyEndsTheDocument)
{
	rules->used_bits = kMostKeyBits;
	EXPECT_FALSE(
		declare(enumerated("S", {"a"}) + ", 'R': {'content': ['b'], 'define': {'b': {}}}"));
	EXPECT_EQ(take_log_lines().size(), 1u);
	EXPECT_EQ(label("R:b"), INT_MIN);
}

// ---- declaring while buffers or handlers exist ----

TEST_F(RmSource, DeclaringAfterFinishMakesBuffersThatFit)
{
	ASSERT_TRUE(declare(enumerated("A", numbered("a", 15)) + ", " + value_source("L")));
	ASSERT_TRUE(rm_finish(rules.get()));
	ASSERT_TRUE(rm_set(rules.get(), "A:a0;L:7", 0));
	EXPECT_EQ(rules->rmInd.keyBuffer[0], 0x11u);

	// 5 bits of one word become 66 of two; 1 slot becomes 62.
	for (const std::string &name : numbered("M", 61))
		ASSERT_TRUE(rm_insert_source_null(rules.get(), name.c_str()));
	ASSERT_EQ(rules->used_bits, 66u);
	for (std::size_t i = 0; i < 4; ++i)
		EXPECT_EQ(rules->rmInd.keyBuffer[i], 0u) << i;
	for (std::size_t i = 0; i < 62; ++i)
		EXPECT_EQ(rules->rmInd.resBuffer[i], 0u) << i;
	EXPECT_TRUE(rm_set(rules.get(), "M60:3", 0));
	EXPECT_EQ(rules->rmInd.keyBuffer[1], 2u);
	EXPECT_EQ(rules->rmInd.keyBuffer[3], 2u);
	EXPECT_EQ(rules->rmInd.resBuffer[61], 3u);
	EXPECT_TRUE(rm_clear(rules.get()));
}

TEST_F(RmSource, DuplicateAfterFinishMakesTheKeyLongerToo)
{
	ASSERT_TRUE(declare(enumerated("A", numbered("a", 15))));
	for (const std::string &name : numbered("M", 60))
		ASSERT_TRUE(rm_insert_source_null(rules.get(), name.c_str()));
	ASSERT_TRUE(rm_finish(rules.get()));
	EXPECT_TRUE(rm_insert_source_null(rules.get(), "M0"));
	EXPECT_EQ(take_log(), kDuplicateValue + "M0\n");
	EXPECT_EQ(rules->used_bits, 65u);
	EXPECT_EQ(rules->res_num, 60u);
	EXPECT_TRUE(rm_clear(rules.get())); // 32 bytes of key
	EXPECT_EQ(rules->rmInd.keyBuffer[3], 0u);
}

TEST_F(RmSource, MoreValuesThanNodesIsFalse)
{
	EXPECT_FALSE(insert("A", numbered("a", 14000)));
	EXPECT_EQ(rules->used_bits, 0u);
	EXPECT_EQ(label("A:a0"), INT_MIN); // a source is there with all of its labels, or not at all
	EXPECT_EQ(label("A:a13105"), INT_MIN);
	EXPECT_FALSE(extmem_node_isvalid(extmem_get_child(rules->root)));
	ImageBytes image = image_of(rules.get());
	Rules again;
	EXPECT_TRUE(adopt(again, image));
}

TEST_F(RmSource, DeclaringOnAnAdoptedImageNeedsRoomInIt)
{
	ASSERT_TRUE(declare(enumerated("A", {"x"})));
	ASSERT_TRUE(rm_finish(rules.get()));
	ImageBytes image = image_of(rules.get());
	Rules adopted;
	ASSERT_TRUE(adopt(adopted, image));
	EXPECT_TRUE(
		vexil_test::declare(adopted.get(), enumerated("B", {"y"}))); // fits the zero tail
	EXPECT_EQ(adopted->used_bits, 2u);
	EXPECT_FALSE(vexil_test::declare(adopted.get(), enumerated("C", numbered("c", 40))));
	EXPECT_TRUE(rm_set(adopted.get(), "A:x;B:y", 0));
}

TEST_F(RmSource, NothingIsDeclaredOnceAHandlerExisted)
{
	ASSERT_TRUE(declare(enumerated("A", {"x"})));
	ASSERT_TRUE(rm_finish(rules.get()));
	ASSERT_TRUE(has_handler());
	const std::string before = store_bytes(rules.get());
	EXPECT_FALSE(insert("B", {"y"}));
	EXPECT_FALSE(rm_insert_source_null(rules.get(), "L"));
	EXPECT_FALSE(declare(enumerated("B", {"y"})));
	char value[] = "a";
	char *values[] = {value};
	const Json define = json("{'a': {'L': '[1,2]'}}");
	EXPECT_FALSE(rm_insert_source_redefine(rules.get(), "R", values, 1, define.get()));
	EXPECT_EQ(store_bytes(rules.get()), before);
	EXPECT_EQ(rules->used_bits, 1u);
	EXPECT_EQ(rules->res_num, 0u);
	EXPECT_TRUE(add(rule("R", {rule_case("'A': 'x'")}))); // rules are no declarations
	EXPECT_NE(rule_id("R"), INT_MIN);
}

// ---- without memory ----

TEST_F(RmSourceMemory, EveryRefusalLeavesWhatWasThereUsable)
{
	const Json document = json(
		rule_lists(enumerated("New", numbered("a_value_with_a_long_name_", 40)) + ", " +
			   value_source("Level") +
			   ", 'Scene': {'content': ['p', 'q'], 'define': {'p': {'Level': '[1,5]'}, "
			   "'q': {'Unknown': '[2,3]'}}}"));
	bool refused = true;
	std::size_t nth = 0;
	while (refused) {
		ASSERT_LT(++nth, 2000u);
		ASSERT_TRUE(rules.init());
		ASSERT_TRUE(declare(enumerated("Old", {"x", "y"})));
		setting("s", 5);
		ASSERT_TRUE(add(rule("R", {rule_case("'Old': 'y'", "'s'")})));
		ASSERT_TRUE(rm_finish(rules.get()));
		{
			const Refuse one = Refuse::only(nth);
			const bool done = rm_insert_source_json(rules.get(), document.get());
			refused = one.happened();
			EXPECT_TRUE(done || refused);
		}
		EXPECT_EQ(selected(rules.get(), "Old:y", "R"), Ids{5}) << nth;
		EXPECT_GE(rules->used_bits, 2u);
		take_log();
		ASSERT_TRUE(map.init());
		// What is linked can be adopted.
		ImageBytes image = image_of(rules.get());
		Rules again;
		EXPECT_TRUE(adopt(again, image)) << nth;
	}
	EXPECT_GT(nth, 10u);
	EXPECT_EQ(rules->unres_source.count, 1u);
}

TEST_F(RmSourceMemory, RefusedSourceCanBeDeclaredAgainAsForTheFirstTime)
{
	const Json enumeration = json(rule_lists(enumerated("S", {"a", "b", "c"})));
	const Json number = json(rule_lists(value_source("S")));
	for (const Json *document : {&enumeration, &number}) {
		bool refused = true;
		std::size_t nth = 0;
		while (refused) {
			ASSERT_LT(++nth, 100u);
			ASSERT_TRUE(rules.init());
			ASSERT_TRUE(map.init());
			ASSERT_TRUE(declare(enumerated("Old", {"x", "y"})));
			setting("s", 5);
			ASSERT_TRUE(add(rule("R", {rule_case("'Old': 'y'", "'s'")})));
			ASSERT_TRUE(rm_finish(rules.get()));
			ASSERT_TRUE(rm_set(rules.get(), "Old:y", 0));
			bool done;
			{
				const Refuse one = Refuse::only(nth);
				done = rm_insert_source_json(rules.get(), document->get());
				refused = one.happened();
			}
			ASSERT_EQ(done, !refused);
			if (refused) {
				EXPECT_EQ(rules->used_bits, 2u);
				EXPECT_EQ(rules->res_num, 0u);
				for (const char *text : {"S", "S:a", "S:b", "S:c"})
					EXPECT_EQ(label(text), INT_MIN) << text;
				// What was stated is not forgotten.
				EXPECT_TRUE(rm_trigger(rules.get(), "R"));
				EXPECT_EQ(results_of(rules.get()), Ids{5});
				EXPECT_TRUE(rm_insert_source_json(rules.get(), document->get()));
			}
			take_log();
			EXPECT_EQ(rules->used_bits, document == &enumeration ? 4u : 3u);
			EXPECT_EQ(rules->res_num, document == &enumeration ? 0u : 1u);
		}
		EXPECT_GT(nth, 3u);
	}
}

TEST_F(RmSourceMemory, LabelsOfASourceThatWasRefusedReplaceEachOther)
{
	const Json document = json(rule_lists(enumerated("S", {"a", "b", "c"})));
	bool refused = true;
	for (std::size_t nth = 1; refused; ++nth) {
		ASSERT_LT(nth, 100u);
		ASSERT_TRUE(rules.init());
		ASSERT_TRUE(map.init());
		{
			const Refuse one = Refuse::only(nth);
			const bool done = rm_insert_source_json(rules.get(), document.get());
			refused = one.happened();
			ASSERT_EQ(done, !refused);
		}
		if (refused) {
			ASSERT_TRUE(rm_insert_source_json(rules.get(), document.get()));
		}
		take_log();
		setting("s", 5);
		ASSERT_TRUE(add(rule("A", {rule_case("'S': 'a'", "'s'")}) + ", " +
				rule("C", {rule_case("'S': 'c'", "'s'")})));
		ASSERT_TRUE(rm_finish(rules.get()));
		ASSERT_TRUE(rm_set(rules.get(), "S:a", 0));
		ASSERT_TRUE(rm_set(rules.get(), "S:c", 0));
		EXPECT_TRUE(rm_trigger(rules.get(), "A"));
		EXPECT_EQ(results_of(rules.get()), Ids{}) << nth;
		EXPECT_TRUE(rm_trigger(rules.get(), "C"));
		EXPECT_EQ(results_of(rules.get()), Ids{5}) << nth;
	}
}

// The three below: what is refused last, when a source that is there already makes the key longer.
TEST_F(RmSourceMemory, RepeatedNumberWithoutMemoryTakesNoBit)
{
	ASSERT_TRUE(declare(value_source("N")));
	ASSERT_TRUE(rm_finish(rules.get()));
	const Json again = json(rule_lists(value_source("N")));
	bool done;
	{
		const Refuse all = Refuse::from(1);
		done = rm_insert_source_json(rules.get(), again.get());
		EXPECT_TRUE(all.happened());
	}
	EXPECT_FALSE(done);
	EXPECT_EQ(rules->used_bits, 1u);
	EXPECT_EQ(rules->res_num, 1u);
	EXPECT_TRUE(rm_insert_source_json(rules.get(), again.get()));
	EXPECT_EQ(rules->used_bits, 2u);
	take_log();
}

TEST_F(RmSourceMemory, NumberWhoseNameCannotBeIndexedIsRefusedWithoutMemoryToo)
{
	ASSERT_TRUE(declare(value_source("Old")));
	ASSERT_TRUE(rm_finish(rules.get()));
	const Json document = json(rule_lists(value_source("N-1")));
	bool refused = true;
	for (std::size_t nth = 1; refused; ++nth) {
		ASSERT_LT(nth, 100u);
		const std::size_t bits = rules->used_bits;
		bool done;
		{
			const Refuse one = Refuse::only(nth);
			done = rm_insert_source_json(rules.get(), document.get());
			refused = one.happened();
		}
		EXPECT_EQ(done, !refused) << nth;
		EXPECT_EQ(rules->used_bits, refused ? bits : bits + 1) << nth;
		take_log();
	}
}

TEST_F(RmSourceMemory, RefusedSourceLeavesTheLabelsThatWereThere)
{
	ASSERT_TRUE(declare(enumerated("S", {"a"})));
	const int there = label("S:a");
	const Json document = json(rule_lists(enumerated("S", {"a", "b"})));
	bool refused = true;
	for (std::size_t nth = 1; refused; ++nth) {
		ASSERT_LT(nth, 100u);
		{
			const Refuse one = Refuse::only(nth);
			const bool done = rm_insert_source_json(rules.get(), document.get());
			refused = one.happened();
			EXPECT_EQ(done, !refused);
		}
		EXPECT_EQ(label("S:a"), there);
		EXPECT_EQ(label("S:b") == INT_MIN, refused) << nth;
		take_log();
	}
}

} // namespace
