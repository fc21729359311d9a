// SPDX-License-Identifier: MIT
//
// Conditions of a case, compiled into alternatives: key patterns and ranges.
#include <climits>

#include "tests/support/rm_images.h"
#include "tests/support/rm_json.h"

namespace {

using namespace vexil_test;

constexpr std::size_t kMostMembers = 128;
constexpr std::size_t kMostConditions = 32;
constexpr std::size_t kMostPending = 64;

const std::string kUnknown = "[VEXIL][RM][__rm_get_rule] Cannot find source: ";
const std::string kUnparsable = "[VEXIL][RM][__rm_get_rulemap] Error parsing comparator\n";

class RmComparator : public RmTest {
protected:
	/** A rule "R" with one case without outcomes. */
	bool compare(const std::string &comparator)
	{
		return add(rule("R", {rule_case(comparator)}));
	}
	/** The same, starting with no rules: the sources stay. */
	void fresh(const std::string &sources)
	{
		ASSERT_TRUE(rules.init());
		ASSERT_TRUE(declare(sources));
	}
	/** True when the one case of "R" hangs below it. */
	bool linked()
	{
		const node_d rule = rule_node_at(rules.get(), static_cast<u16>(rule_id("R")));
		return extmem_node_isvalid(extmem_get_child(rule));
	}
	/** Alternatives of the one case, as its list has them. */
	std::vector<node_d> alternatives()
	{
		const node_d rule = rule_node_at(rules.get(), static_cast<u16>(rule_id("R")));
		const node_d body = extmem_get_child(extmem_get_child(rule));
		std::vector<node_d> found;
		for (node_d at = extmem_get_child(body);
		     extmem_node_isvalid(at) && found.size() < 70000; at = extmem_get_next(at))
			found.push_back(at);
		return found;
	}
	Lines keys() { return records(EXTMEM_TAG_KEY_HOLDER); }
	Lines ranges() { return records(EXTMEM_TAG_RANGE_HOLDER); }
};

using RmComparatorKey = RmComparator;
using RmComparatorRange = RmComparator;
using RmComparatorProduct = RmComparator;
using RmComparatorLimit = RmComparator;
using RmComparatorPending = RmComparator;

std::string repeated(const std::string &member, std::size_t times)
{
	std::string text;
	for (std::size_t i = 0; i < times; ++i)
		text += (i ? ", " : "") + member;
	return text;
}

// ---- labels and keys ----

TEST_F(RmComparatorKey, EmptyComparatorMatchesEverything)
{
	ASSERT_TRUE(declare(enumerated("A", {"x"})));
	ASSERT_TRUE(compare(""));
	EXPECT_EQ(keys(), Lines{"[0 | 0]"});
	EXPECT_EQ(alternatives().size(), 1u);
}

TEST_F(RmComparatorKey, WithoutSourcesTheKeyHasNoData)
{
	ASSERT_TRUE(compare(""));
	EXPECT_EQ(node(11), "11 KEY <none>");
	const ImageBytes image = image_of(rules.get());
	EXPECT_EQ(image.record_size(11), 0xFFFFFFFFu); // the links that it was made with
	EXPECT_EQ(image.record_offset(11), 0u);
	ASSERT_TRUE(rm_finish(rules.get()));
	EXPECT_TRUE(rm_trigger(rules.get(), "R"));
}

TEST_F(RmComparatorKey, TextRequiresTheLabelOfSourceAndText)
{
	ASSERT_TRUE(declare(enumerated("A", {"x", "y", "z"}) + ", " + enumerated("B", {"p"})));
	ASSERT_TRUE(compare("'A': 'y'"));
	EXPECT_EQ(keys(), Lines{"[2 | 3]"});
	ASSERT_TRUE(add(rule("S", {rule_case("'b': 'P', 'a': 'Z'")})));
	EXPECT_EQ(keys().back(), "[7 | 7]");
}

TEST_F(RmComparatorKey, MemberThatIsALabelItselfIsRequired)
{
	ASSERT_TRUE(declare(enumerated("A", {"x", "y"})));
	for (const char *value : {"'anything'", "5", "null", "{}", "true"}) {
		fresh(enumerated("A", {"x", "y"}));
		ASSERT_TRUE(compare("'A:Y': " + std::string(value)));
		EXPECT_EQ(keys(), Lines{"[2 | 3]"}) << value;
	}
}

TEST_F(RmComparatorKey, EachItemOfAnArrayIsAnAlternative)
{
	ASSERT_TRUE(declare(enumerated("A", {"x", "y", "z"})));
	ASSERT_TRUE(compare("'A': ['z', 'x']"));
	EXPECT_EQ(keys(), (Lines{"[3 | 3]", "[1 | 3]"}));
	EXPECT_EQ(alternatives().size(), 2u);
}

TEST_F(RmComparatorKey, LastMemberVariesFastest)
{
	ASSERT_TRUE(declare(enumerated("A", {"x", "y"}) + ", " + enumerated("B", {"p", "q", "r"})));
	ASSERT_TRUE(compare("'A': ['x', 'y'], 'B': ['p', 'q', 'r']"));
	// A in bits 0 and 1, B in bits 2 and 3.
	EXPECT_EQ(keys(),
		  (Lines{"[5 | f]", "[9 | f]", "[d | f]", "[6 | f]", "[a | f]", "[e | f]"}));
	const std::vector<node_d> list = alternatives();
	ASSERT_EQ(list.size(), 6u);
	for (std::size_t i = 0; i + 1 < list.size(); ++i)
		EXPECT_EQ(list[i].id + 3, list[i + 1].id); // alternative, key node, record
}

TEST_F(RmComparatorKey, SingleValuesBetweenArraysStayInEveryAlternative)
{
	ASSERT_TRUE(declare(enumerated("A", {"x", "y"}) + ", " + enumerated("B", {"p"}) + ", " +
			    enumerated("C", {"k", "l"})));
	ASSERT_TRUE(compare("'A': ['x', 'y'], 'B': 'p', 'C': ['k', 'l'], 'B': ['p']"));
	EXPECT_EQ(keys(), (Lines{"[d | 1f]", "[15 | 1f]", "[e | 1f]", "[16 | 1f]"}));
}

TEST_F(RmComparatorKey, SecondMemberOfOneFieldReplacesTheFirst)
{
	ASSERT_TRUE(declare(enumerated("A", {"x", "y", "z"})));
	ASSERT_TRUE(compare("'A': 'z', 'A:x': ''"));
	EXPECT_EQ(keys(), Lines{"[1 | 3]"});
}

TEST_F(RmComparatorKey, FieldsRunIntoTheNextWord)
{
	const struct {
		std::size_t shift;
		std::size_t values; // the last of them is required
		const char *key;
	} table[] = {
		{60, 15, "[f000000000000000 0 | f000000000000000 0]"},
		{61, 4, "[8000000000000000 0 | e000000000000000 0]"},
		{62, 3, "[c000000000000000 0 | c000000000000000 0]"},
		{62, 4, "[0 1 | c000000000000000 1]"},
		{62, 5, "[4000000000000000 1 | c000000000000000 1]"},
		{62, 7, "[c000000000000000 1 | c000000000000000 1]"},
		{63, 1, "[8000000000000000 0 | 8000000000000000 0]"},
		{63, 2, "[0 1 | 8000000000000000 1]"},
		{63, 3, "[8000000000000000 1 | 8000000000000000 1]"},
		{63, 16, "[0 8 | 8000000000000000 f]"},
		{64, 1, "[0 1 | 0 1]"},
		{64, 3, "[0 3 | 0 3]"},
		{127, 1, "[0 8000000000000000 | 0 8000000000000000]"},
		{127, 2, "[0 0 1 | 0 8000000000000000 1]"},
		{127, 7, "[0 8000000000000000 3 | 0 8000000000000000 3]"},
	};
	for (const auto &row : table) {
		SCOPED_TRACE(std::to_string(row.values) + " values at " +
			     std::to_string(row.shift));
		ASSERT_TRUE(rules.init());
		rules->used_bits = row.shift; // as sources before it would leave it
		const std::vector<std::string> values = numbered("v", row.values);
		ASSERT_TRUE(declare(enumerated("A", values)));
		if (rules->used_bits <= 64)
			rules->used_bits = 65; // two words throughout
		ASSERT_TRUE(compare("'A': '" + values.back() + "'"));
		EXPECT_EQ(keys(), Lines{row.key});

		// The same field as evaluation sets it.
		ASSERT_TRUE(rm_finish(rules.get()));
		ASSERT_TRUE(rm_set(rules.get(), ("A:" + values.back()).c_str(), 0));
		const std::size_t words = (rules->used_bits + 63) / 64;
		EXPECT_EQ(key_text(reinterpret_cast<const char *>(rules->rmInd.keyBuffer),
				   16 * words),
			  row.key);
	}
}

TEST_F(RmComparatorKey, FieldsKeepTheirNeighboursAcrossWords)
{
	ASSERT_TRUE(rules.init());
	rules->used_bits = 60;
	ASSERT_TRUE(declare(enumerated("A", {"a", "b", "c"}) + ", " +
			    enumerated("B", numbered("v", 7)) + ", " +
			    enumerated("C", {"k", "l", "m"})));
	ASSERT_TRUE(
		compare("'A': 'a', 'C': 'm', 'B': 'v5'")); // codes 1, 3 and 6 = 10|1 from bit 62
	EXPECT_EQ(keys(), Lines{"[9000000000000000 7 | f000000000000000 7]"});
}

TEST_F(RmComparatorKey, WordsFollowTheKeyAtTheTimeOfCompiling)
{
	ASSERT_TRUE(declare(enumerated("A", {"x"})));
	ASSERT_TRUE(compare("'A': 'x'"));
	for (int i = 0; i < 64; ++i)
		ASSERT_TRUE(rm_insert_source_null(rules.get(), ("L" + std::to_string(i)).c_str()));
	ASSERT_TRUE(add(rule("S", {rule_case("'A': 'x'")})));
	EXPECT_EQ(keys(), (Lines{"[1 | 1]", "[1 0 | 1 0]"}));
	// The older rule no longer fits the key.
	ASSERT_TRUE(rm_finish(rules.get()));
	EXPECT_TRUE(rm_trigger(rules.get(), "S"));
	EXPECT_FALSE(rm_trigger(rules.get(), "R"));
	EXPECT_EQ(take_log(), "[VEXIL][RM][__rm_find_setting] Data length check failed."
			      "[VEXIL][RM][rm_trigger] Error while searching rule node " +
				      std::to_string(rule_id("R")) + "\n");
}

// ---- unknown labels ----

TEST_F(RmComparator, UnknownLabelFailsTheCase)
{
	const struct {
		const char *comparator;
		const char *label;
	} table[] = {
		{"'A': 'nothing'", "A:nothing"},
		{"'B': 'x'", "B:x"},
		{"'A': ['x', 'nothing', 'y']", "A:nothing"},
		{"'A': 'x', 'C': ['k']", "C:k"},
		{"'A:none': 'x'", "A:none:x"},
		{"'A': ''", "A:"},
		{"'A$': 'x'", "A$:x"},
	};
	for (const auto &row : table) {
		fresh(enumerated("A", {"x", "y"}));
		EXPECT_TRUE(compare(row.comparator));
		EXPECT_EQ(take_log(), kUnknown + row.label + "\n") << row.comparator;
		EXPECT_FALSE(linked()) << row.comparator;
	}
}

TEST_F(RmComparator, ValueThatIsNoTextNamesNoLabel)
{
	for (const char *value : {"5", "null", "{}", "true", "'0x10'", "[5]", "[['x']]"}) {
		fresh(enumerated("A", {"x", "0x10"}));
		take_log();
		EXPECT_TRUE(compare("'A': " + std::string(value)));
		const Lines log = take_log_lines();
		ASSERT_EQ(log.size(), 1u) << value;
		EXPECT_EQ(log[0].rfind(kUnknown, 0), 0u) << log[0];
		EXPECT_FALSE(linked()) << value;
	}
}

// ---- ranges ----

TEST_F(RmComparatorRange, ValueSourceAddsARangeAndNoKeyBit)
{
	ASSERT_TRUE(declare(enumerated("A", {"x"}) + ", " + value_source("L")));
	ASSERT_TRUE(compare("'l': '(3,0x10)', 'A': 'x'"));
	const Lines expected = {
		"18 GENERAL c19",
		"19 GENERAL c20",
		"20 GENERAL c21",
		"21 KEY_DESC c22 n23",
		"22 KEY [1 | 1]",
		"23 KEY_RANGE c24",
		"24 RANGE node 11 4..15",
	};
	EXPECT_EQ(nodes(18), expected);
	EXPECT_EQ(node(11), "11 SLOT 0");
	const ImageBytes image = image_of(rules.get());
	EXPECT_EQ(image.record(24), std::string("\x0B\0\0\0\0\0\0\0"
						"\4\0\0\0\0\0\0\0"
						"\x0F\0\0\0\0\0\0\0",
						24));
}

TEST_F(RmComparatorRange, ConditionsOfOneAlternativeFollowEachOther)
{
	ASSERT_TRUE(declare(value_source("L") + ", " + value_source("M")));
	ASSERT_TRUE(compare("'M': '[5,6]', 'L': '[1,2]', 'M': '[7,8]'"));
	EXPECT_EQ(ranges(), (Lines{"node 12 5..6", "node 6 1..2", "node 12 7..8"}));
	EXPECT_EQ(node(22), "22 KEY_DESC c23 n24");
	EXPECT_EQ(node(24), "24 KEY_RANGE c25 n26");
	EXPECT_EQ(node(26), "26 KEY_RANGE c27 n28");
	EXPECT_EQ(node(28), "28 KEY_RANGE c29");
}

TEST_F(RmComparatorRange, EveryAlternativeHasItsOwn)
{
	ASSERT_TRUE(declare(enumerated("A", {"x", "y"}) + ", " + value_source("L")));
	ASSERT_TRUE(compare("'L': '[1,2]', 'A': ['x', 'y']"));
	EXPECT_EQ(ranges(), (Lines{"node 16 1..2", "node 16 1..2"}));
	EXPECT_EQ(keys(), (Lines{"[1 | 3]", "[2 | 3]"}));
}

TEST_F(RmComparatorRange, TextThatIsNoRangeIsZeroToZero)
{
	ASSERT_TRUE(declare(value_source("L")));
	ASSERT_TRUE(compare("'L': 'nonsense'"));
	EXPECT_EQ(ranges(), Lines{"node 6 0..0"});
}

TEST_F(RmComparatorRange, RedefinedLabelAddsItsRangesInsteadOfKeyBits)
{
	ASSERT_TRUE(declare(value_source("L") + ", " + value_source("M") +
			    ", 'S': {'content': ['dark', 'wide'], 'define': {"
			    "'dark': {'L': '[0,9]', 'M': '(5,7]'}, 'wide': {'M': '[1,2]'}}}"));
	ASSERT_TRUE(compare("'S': 'dark'"));
	EXPECT_EQ(keys(), Lines{"[0 | 0]"});
	const Lines all = ranges();
	ASSERT_EQ(all.size(), 5u); // three of the source, two of the rule
	EXPECT_EQ(all[3], "node 6 0..9");
	EXPECT_EQ(all[4], "node 12 6..7");
	EXPECT_EQ(rules->unres_source.count, 0u);
}

TEST_F(RmComparatorRange, RedefinedLabelCanBeTheMemberItself)
{
	ASSERT_TRUE(declare(value_source("L") +
			    ", 'S': {'content': ['dark'], 'define': {'dark': {'L': '[0,9]'}}}"));
	ASSERT_TRUE(compare("'S:dark': ''"));
	EXPECT_EQ(ranges(), (Lines{"node 6 0..9", "node 6 0..9"}));
}

TEST_F(RmComparatorRange, ItemsOfARedefinedSourceAreAlternatives)
{
	ASSERT_TRUE(declare(value_source("L") + ", 'S': {'content': ['a', 'b'], 'define': {"
						"'a': {'L': '[1,1]'}, 'b': {'L': '[2,2]'}}}"));
	ASSERT_TRUE(compare("'S': ['b', 'a']"));
	const Lines all = ranges();
	ASSERT_EQ(all.size(), 4u);
	EXPECT_EQ(all[2], "node 6 2..2");
	EXPECT_EQ(all[3], "node 6 1..1");
	EXPECT_EQ(keys(), (Lines{"[0 | 0]", "[0 | 0]"}));
}

TEST_F(RmComparatorRange, BothKindsDecideTogether)
{
	setting("s", 100);
	ASSERT_TRUE(declare(enumerated("A", {"x", "y"}) + ", " + value_source("L") +
			    ", 'S': {'content': ['mid'], 'define': {'mid': {'L': '[3,6]'}}}"));
	ASSERT_TRUE(add(rule("R", {rule_case("'S': 'mid', 'L': '[5,9]', 'A': 'y'", "'s'")})));
	ASSERT_TRUE(rm_finish(rules.get()));
	for (u64 luma = 0; luma < 12; ++luma) {
		const std::string number = std::to_string(luma);
		EXPECT_EQ(selected(rules.get(), ("A:y;L:" + number).c_str()),
			  luma == 5 || luma == 6 ? Ids{100} : Ids{})
			<< luma;
		EXPECT_EQ(selected(rules.get(), ("A:x;L:" + number).c_str()), Ids{}) << luma;
	}
}

// ---- pending ranges ----

TEST_F(RmComparatorPending, UnresolvedRangeOfARedefinitionWaitsInTheRuleToo)
{
	ASSERT_TRUE(declare("'S': {'content': ['a'], 'define': {'a': {'L': '[1,2]'}}}"));
	ASSERT_EQ(rules->unres_source.count, 1u);
	ASSERT_TRUE(compare("'S': 'a'"));
	ASSERT_EQ(rules->unres_source.count, 2u);
	EXPECT_STREQ(rules->unres_source.items[1].itemname, "L");
	EXPECT_EQ(rules->unres_source.items[1].id, 19);
	EXPECT_EQ(ranges(), (Lines{"node 65535 1..2", "node 65535 1..2"}));
	EXPECT_FALSE(rm_finish(rules.get()));

	ASSERT_TRUE(declare(value_source("L")));
	EXPECT_EQ(rules->unres_source.count, 0u);
	const std::string slot =
		"node " +
		std::to_string(extmem_find_next(
				       rule_node_at(rules.get(), static_cast<u16>(label("L"))),
				       EXTMEM_TAG_SIZE_HOLDER)
				       .id);
	EXPECT_EQ(ranges(), (Lines{slot + " 1..2", slot + " 1..2"}));
	EXPECT_TRUE(rm_finish(rules.get()));
}

TEST_F(RmComparatorPending, EachRangeKeepsTheNameOfItsOwnRecord)
{
	ASSERT_TRUE(declare("'S': {'content': ['a', 'b'], 'define': {"
			    "'a': {'L': '[1,1]', 'M': '[2,2]'}, 'b': {'M': '[3,3]'}}}"));
	ASSERT_TRUE(compare("'S': ['b', 'a']"));
	ASSERT_EQ(rules->unres_source.count, 6u);
	EXPECT_STREQ(rules->unres_source.items[3].itemname, "M");
	EXPECT_STREQ(rules->unres_source.items[4].itemname, "L");
	EXPECT_STREQ(rules->unres_source.items[5].itemname, "M");
}

TEST_F(RmComparatorPending, SixtyFiveRangesAreTooManyToWait)
{
	ASSERT_TRUE(declare("'S': {'content': ['a'], 'define': {'a': {'L': '[1,2]'}}}, " +
			    enumerated("A", numbered("v", kMostPending))));
	ASSERT_TRUE(compare("'S': 'a', 'A': [" + quoted(numbered("v", kMostPending)) + "]"));
	EXPECT_EQ(take_log(), "");
	EXPECT_EQ(rules->unres_source.count, kMostPending);
	ASSERT_TRUE(declare(value_source("L")));
	const Lines all = ranges();
	ASSERT_EQ(all.size(), kMostPending + 1);
	EXPECT_NE(all[kMostPending - 1], "node 65535 1..2");
	EXPECT_EQ(all[kMostPending], "node 65535 1..2");
	EXPECT_TRUE(rm_finish(rules.get()));
}

// ---- sources of a damaged image ----

TEST_F(RmComparator, FieldOutsideTheKeyFailsTheCase)
{
	for (const source_desc &field : {source_desc{62, 3, 1, 0}, source_desc{64, 1, 1, 0},
					 source_desc{0, 0, 1, 0}, source_desc{0, 17, 1, 0},
					 source_desc{65535, 65535, 1, 0}}) {
		RuleImage plan;
		plan.source("A:x", field);
		plan.used_bits(64);
		ImageBytes image = plan.write();
		ASSERT_TRUE(adopt(rules, image));
		EXPECT_TRUE(compare("'A': 'x'"));
		EXPECT_NE(rule_id("R"), INT_MIN); // it fits the zero tail
		EXPECT_FALSE(linked()) << field.shift << "+" << field.width;
		EXPECT_EQ(keys(), Lines{});
		take_log();
	}
}

TEST_F(RmComparator, CyclicRedefinitionEnds)
{
	RuleImage plan;
	const u16 label = plan.redefined("S:a");
	plan.redefinition(label, {kNoId, {}, 1, 2});
	plan.next(plan.child(label), plan.child(label));
	plan.used_bits(0);
	ImageBytes image = plan.write();
	ASSERT_TRUE(adopt(rules, image));
	EXPECT_TRUE(compare("'S': 'a'"));
	EXPECT_LE(ranges().size(), 1 + kMostConditions); // whether they were kept or refused
	take_log();
}

TEST_F(RmComparator, RedefinitionWithoutAReadableRangeFailsTheCase)
{
	RuleImage plan;
	const u16 label = plan.redefined("S:a");
	const u16 record = plan.redefinition(label, {kNoId, {}, 1, 2});
	plan.record(record, 23, plan.record_offset(record));
	plan.used_bits(0);
	ImageBytes image = plan.write();
	ASSERT_TRUE(adopt(rules, image));
	EXPECT_TRUE(compare("'S': 'a'"));
	EXPECT_FALSE(linked());
	take_log();
}

// ---- the number of alternatives ----

TEST_F(RmComparatorProduct, EmptyArrayCompilesNone)
{
	ASSERT_TRUE(declare(enumerated("A", {"x"}) + ", " + enumerated("B", {"p", "q"})));
	ASSERT_TRUE(compare("'B': ['p', 'q'], 'A': []"));
	EXPECT_TRUE(linked()); // a case that never matches
	EXPECT_EQ(alternatives().size(), 0u);
	EXPECT_EQ(keys(), Lines{});
}

TEST_F(RmComparatorProduct, IsASigned16BitNumberAtEveryStep)
{
	const struct {
		std::vector<std::size_t> items;
		std::size_t compiled;
	} table[] = {
		{{1, 1, 1}, 1},      {{2, 3, 4}, 24},  {{256, 256}, 0}, // 65536
		{{200, 200}, 0},                                        // -25536
		{{181, 182}, 0},                                        // -32594
		{{256, 128}, 0},                                        // -32768
		{{255, 257}, 0},                                        // -1
		{{256, 257}, 256},                                      // 65792
		{{256, 256, 3}, 0},  {{256, 128, 2}, 0},
		{{200, 200, 2}, 14464},                                 // 80000
	};
	for (const auto &row : table) {
		ASSERT_TRUE(rules.init());
		std::string sources;
		std::string comparator;
		for (std::size_t i = 0; i < row.items.size(); ++i) {
			// The same label again and again, so that few nodes are spent on sources.
			const std::string name = "S" + std::to_string(i);
			const std::string separator = i ? ", " : "";
			sources += separator + enumerated(name, {"x"});
			comparator += separator + "'" + name + "': [" +
				      repeated("'x'", row.items[i]) + "]";
		}
		ASSERT_TRUE(declare(sources));
		ASSERT_TRUE(compare(comparator));
		EXPECT_TRUE(linked());
		EXPECT_EQ(alternatives().size(), row.compiled)
			<< row.items[0] << " x " << row.items[1];
	}
}

TEST_F(RmComparatorProduct, OverflowCompilesTheFirstOfThem)
{
	ASSERT_TRUE(declare(enumerated("A", {"a", "b"}) + ", " + enumerated("B", {"p", "q"})));
	// 256 of 65792: the first A with every B but the last.
	ASSERT_TRUE(compare("'A': ['a', " + repeated("'b'", 255) + "], 'B': [" +
			    repeated("'p'", 255) + ", 'q', 'p']"));
	const Lines all = keys();
	ASSERT_EQ(all.size(), 256u);
	for (std::size_t i = 0; i < 255; ++i)
		EXPECT_EQ(all[i], "[5 | f]") << i;
	EXPECT_EQ(all[255], "[9 | f]");
}

TEST_F(RmComparatorProduct, MoreAlternativesThanNodesAreACaseThatFails)
{
	setting("s", 100);
	ASSERT_TRUE(declare(enumerated("A", {"a"}) + ", " + enumerated("B", {"p"})));
	ASSERT_TRUE(add(rule("First", {rule_case("'A': 'a'", "'s'")})));
	ASSERT_TRUE(rm_finish(rules.get()));
	// 90000 is 24464 of them, three nodes each.
	EXPECT_TRUE(compare("'A': [" + repeated("'a'", 300) + "], 'B': [" + repeated("'p'", 300) +
			    "]"));
	EXPECT_FALSE(linked());
	EXPECT_GT(rule_node_count(rules.get()), 65000u);
	EXPECT_EQ(selected(rules.get(), "A:a"), Ids{100});
}

// ---- limits ----

TEST_F(RmComparatorLimit, MembersUpTo128)
{
	fresh(enumerated("A", {"x"}));
	ASSERT_TRUE(compare(repeated("'A': 'x'", kMostMembers)));
	EXPECT_TRUE(linked());
	EXPECT_EQ(keys(), Lines{"[1 | 1]"});

	fresh(enumerated("A", {"x"}));
	EXPECT_TRUE(compare(repeated("'A': 'x'", kMostMembers + 1)));
	EXPECT_EQ(take_log(), kUnparsable);
	EXPECT_FALSE(linked());
	EXPECT_EQ(keys(), Lines{});
}

TEST_F(RmComparatorLimit, ConditionsOnValueSourcesUpTo32)
{
	fresh(value_source("L"));
	ASSERT_TRUE(compare(repeated("'L': '[1,2]'", kMostConditions)));
	EXPECT_TRUE(linked());
	EXPECT_EQ(ranges(), Lines(kMostConditions, "node 6 1..2"));

	fresh(value_source("L"));
	EXPECT_TRUE(compare(repeated("'L': '[1,2]'", kMostConditions + 1)));
	EXPECT_EQ(take_log(), kUnparsable);
	EXPECT_FALSE(linked());
}

TEST_F(RmComparatorLimit, ConditionsOfRedefinitionsUpTo32)
{
	const std::string sources = value_source("L") + ", 'S': {'content': ['all', 'one'], "
							"'define': {'all': {" +
				    repeated("'L': '[1,2]'", kMostConditions) +
				    "}, 'one': {'L': '[3,4]'}}}";
	fresh(sources);
	ASSERT_TRUE(compare("'S': 'all'"));
	EXPECT_TRUE(linked());
	EXPECT_EQ(ranges().size(), 2 * kMostConditions + 1);

	fresh(sources);
	EXPECT_TRUE(compare("'S': 'all', 'S:one': ''"));
	EXPECT_EQ(take_log(), kUnparsable);
	EXPECT_FALSE(linked());
}

TEST_F(RmComparatorLimit, BothKindsHaveTheirOwn32)
{
	fresh(value_source("L") + ", 'S': {'content': ['all'], 'define': {'all': {" +
	      repeated("'L': '[1,2]'", kMostConditions) + "}}}");
	ASSERT_TRUE(compare("'S': 'all', " + repeated("'L': '[5,6]'", kMostConditions)));
	EXPECT_TRUE(linked());
	const Lines all = ranges();
	ASSERT_EQ(all.size(), 3 * kMostConditions);
	EXPECT_EQ(std::count(all.begin(), all.end(), "node 6 5..6"),
		  static_cast<std::ptrdiff_t>(kMostConditions));
}

TEST_F(RmComparatorLimit, ConditionsAreCountedPerAlternative)
{
	fresh(value_source("L") + ", " + enumerated("A", {"x", "y"}));
	ASSERT_TRUE(compare(repeated("'L': '[1,2]'", kMostConditions) + ", 'A': ['x', 'y']"));
	EXPECT_TRUE(linked());
	EXPECT_EQ(ranges().size(), 2 * kMostConditions);
}

TEST_F(RmComparatorLimit, LaterAlternativeWithTooManyFailsTheCase)
{
	fresh(value_source("L") + ", 'S': {'content': ['few', 'many'], 'define': {"
				  "'few': {'L': '[1,2]'}, 'many': {" +
	      repeated("'L': '[1,2]'", kMostConditions) +
	      "}}}, 'T': {'content': ['one'], 'define': {'one': {'L': '[1,2]'}}}");
	EXPECT_TRUE(compare("'T': 'one', 'S': ['few', 'many']"));
	EXPECT_EQ(take_log(), kUnparsable);
	EXPECT_FALSE(linked());
	EXPECT_EQ(keys(), Lines{"[0 | 0]"}); // of the first, which nothing reaches
}

TEST_F(RmComparatorLimit, LongLabelsAreCompared)
{
	const std::string name(300, 'n');
	const std::string value(400, 'v');
	fresh(enumerated(name, {"x", value}));
	ASSERT_TRUE(compare("'" + name + "': '" + value + "'"));
	EXPECT_EQ(keys(), Lines{"[2 | 3]"});
}

} // namespace
