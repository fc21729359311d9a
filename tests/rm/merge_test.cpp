// SPDX-License-Identifier: MIT
//
// Export of a context, and the rules of a sub image over those of a base image.
#include <climits>

#include "tests/support/rm_images.h"
#include "tests/support/rm_json.h"

namespace {

using namespace vexil_test;

constexpr std::size_t kMaxNodes = 65535;
constexpr u16 kMaxIndex = 999; // of the base's map: the sub's ids move by 1000

using RmExport = RmTest;

/** A base and a sub context, and a third that receives the result in @rules. */
class RmMerge : public RmTest {
protected:
	void SetUp() override
	{
		RmTest::SetUp();
		ASSERT_TRUE(base.init());
		ASSERT_TRUE(sub.init());
		map->max_node_index = kMaxIndex;
		for (const int id : {10, 11, 12, 20, 21, 22, 30})
			setting("s" + std::to_string(id), id);
		preset("p40", 40);
		preset("p41", 41);
	}
	/** The sources that both share: A in bits 0 and 1, L in bit 2. */
	static std::string sources()
	{
		return enumerated("A", {"x", "y"}) + ", " + value_source("L");
	}

	void fill(Rules &to, const std::string &groups, const std::string &more_sources = "")
	{
		ASSERT_TRUE(vexil_test::declare(to.get(), sources() + more_sources));
		ASSERT_TRUE(add_rules(to.get(), map.get(), groups));
		rm_finish(to.get()); // false with references that stay unknown
	}
	bool merge() { return rm_merge(rules.get(), base.get(), sub.get(), map.get()); }

	/** Names of the root's children in order: labels, "rule NAME", "bits", "slots". */
	Lines listed()
	{
		Lines names;
		for (node_d at = extmem_get_child(rule_node_at(rules.get(), 0));
		     extmem_node_isvalid(at) && names.size() < 100; at = extmem_get_next(at)) {
			const node_d held = extmem_get_child(at);
			const int tag = extmem_fetch_tag(held);
			if (tag == EXTMEM_TAG_RULE_USEDBITS || tag == EXTMEM_TAG_RES_NUM) {
				names.push_back(tag == EXTMEM_TAG_RES_NUM ? "slots" : "bits");
				continue;
			}
			const std::string text = node(extmem_get_child(extmem_get_next(held)).id);
			const std::size_t quote = text.find('\'');
			names.push_back((tag == EXTMEM_TAG_RULE ? "rule " : "") +
					text.substr(quote + 1, text.size() - quote - 2));
		}
		return names;
	}

	Rules base;
	Rules sub;
};

using RmMergeIds = RmMerge;
using RmMergeNames = RmMerge;
using RmMergeRefused = RmMerge;
using RmMergeMemory = RmMerge;

// ---- export ----

TEST_F(RmExport, SizeIsThatOfBothBuffersAndTheFixedParts)
{
	EXPECT_EQ(rm_get_export_size(nullptr), 0u);
	EXPECT_EQ(rm_get_export_size(rules.get()), 1024u + 1024 + 104);
	while (rule_node_count(rules.get()) < 65)
		extmem_request_node(&rules->builder, EXTMEM_TAG_UNSPECIFIED);
	EXPECT_EQ(rm_get_export_size(rules.get()), 2048u + 1024 + 104);
	extmem_request_data(&rules->builder, 2000);
	EXPECT_EQ(rm_get_export_size(rules.get()), 2048u + 2048 + 104);
}

TEST_F(RmExport, WritesTheHeaderFromTheContext)
{
	rules->total_version = {2, 1, 0x10000};
	rules->rl_json_version = {3, 4, 5};
	std::memcpy(rules->cus_version, "panel lot C", 11);
	extmem_buffer_header &own = rules->builder.header;
	own.hw_json_version = {1, 1, 1};
	own.sw_json_version = {1, 1, 1};
	own.codeVersion = {7, 7, 7};
	own.binType = 1;
	own.binSize = 1;

	const extmem_buffer_header header = image_of(rules.get()).header();
	EXPECT_EQ(header.total_version, (vexil_version{2, 1, 0x10000}));
	EXPECT_EQ(header.rl_json_version, (vexil_version{3, 4, 5}));
	EXPECT_EQ(header.hw_json_version, (vexil_version{0, 0, 0}));
	EXPECT_EQ(header.sw_json_version, (vexil_version{0, 0, 0}));
	EXPECT_EQ(std::string(header.cus_version, 32), "panel lot C" + std::string(21, '\0'));
	EXPECT_EQ(header.codeVersion, (vexil_version{2, 2, 2}));
	EXPECT_EQ(header.binType, 2);
	EXPECT_EQ(header.binSize, 2152u);
}

TEST_F(RmExport, FreshContextIsExactlyTheseBytes)
{
	const ImageBytes image = image_of(rules.get());
	std::string expected(2152, '\0');
	expected[72] = 2; // codeVersion 2.2.2
	expected[74] = 2;
	expected[76] = 2;
	expected[80] = 2; // binType
	expected[84] = 0x68; // binSize 2152
	expected[85] = 0x08;
	expected[88] = 16;      // nodes used
	expected[93] = 4;       // of 1024
	expected[96 + 2] = 1;   // the root
	for (int i = 3; i < 7; ++i)
		expected[96 + i] = '\xFF';
	expected[96 + 1024 + 5] = 4; // no data of 1024
	EXPECT_EQ(std::string(image.bytes().begin(), image.bytes().end()), expected);
}

TEST_F(RmExport, BuffersAreWrittenWithTheirCapacity)
{
	ASSERT_TRUE(declare(enumerated("A", numbered("v", 20))));
	const ImageBytes image = image_of(rules.get());
	EXPECT_EQ(image.nodes_used(), 101u * 16);
	EXPECT_EQ(image.node_capacity(), 2048u);
	EXPECT_EQ(image.data_used(), rules->builder.data_buffer.buf_used);
	EXPECT_EQ(image.data_capacity(), rules->builder.data_buffer.buf_max);
	EXPECT_EQ(image.size(), 104 + image.node_capacity() + image.data_capacity());
	EXPECT_EQ(image.header().binSize, image.size());
}

TEST_F(RmExport, NullContextOrBufferWritesNothing)
{
	char byte = 7;
	EXPECT_EQ(rm_export(nullptr, &byte), 0u);
	EXPECT_EQ(rm_export(nullptr, nullptr), 0u);
	EXPECT_EQ(byte, 7);
	EXPECT_EQ(rm_export(rules.get(), nullptr), 0u);
	EXPECT_EQ(rules->builder.err_code, EXTMEM_NOMEM);
}

TEST_F(RmExport, AdoptedContextExportsItsImage)
{
	ASSERT_TRUE(declare(enumerated("A", numbered("v", 30)) + ", " + value_source("L") +
			    ", 'S': {'content': ['d'], 'define': {'d': {'L': '[1,2]'}}}"));
	map->total_version = {2, 2, 5};
	ASSERT_TRUE(add(rule("R", {rule_case("'A': ['v1', 'v29'], 'S': 'd'", "", "'R'")})));
	ASSERT_TRUE(rm_finish(rules.get()));
	ImageBytes first = image_of(rules.get());
	const std::vector<char> bytes = first.bytes();
	Rules again;
	ASSERT_TRUE(adopt(again, first));
	ImageBytes second = image_of(again.get());
	EXPECT_EQ(second.bytes(), bytes);
	EXPECT_EQ(first.bytes(), bytes);
	Rules third;
	ASSERT_TRUE(adopt(third, second));
	EXPECT_EQ(image_of(third.get()).bytes(), bytes);
}

// ---- nodes and ids ----

TEST_F(RmMergeIds, NodesOfTheSubFollowThoseOfTheBase)
{
	ASSERT_TRUE(add_rules(base.get(), map.get(), rule("B", {rule_case("", "'s10'")})));
	ASSERT_TRUE(rm_finish(base.get()));
	ASSERT_TRUE(add_rules(sub.get(), map.get(),
			      rule("S", {rule_case("", "'s20', 's21', 'p40'", "'S'")})));
	ASSERT_TRUE(rm_finish(sub.get()));
	ASSERT_EQ(rule_node_count(base.get()), 18u);
	ASSERT_TRUE(merge());
	const Lines expected = {
		"0 GENERAL c1",
		"1 GENERAL c2 n14",
		"2 RULE c7 n3",
		"3 PROPERTY c4 n5",
		"4 STRING 'B'",
		"5 VERSION c6",
		"6 VERSION_HOLDER 0.0.0",
		"7 GENERAL c8",
		"8 GENERAL c9 n12",
		"9 GENERAL c10",
		"10 KEY_DESC c11",
		"11 KEY <none>",
		"12 GENERAL c13",
		"13 VALUES [10]",
		"14 GENERAL c15 n16",
		"15 USEDBITS 0",
		"16 GENERAL c17 n19", // the base's last child leads to the sub's first rule
		"17 RES_NUM 0",
		"18 GENERAL c19", // the sub's root, which nothing reaches
		"19 GENERAL c20",
		"20 RULE c25 n21",
		"21 PROPERTY c22 n23",
		"22 STRING 'S'",
		"23 VERSION c24",
		"24 VERSION_HOLDER 0.0.0",
		"25 GENERAL c26",
		"26 GENERAL c27 n30",
		"27 GENERAL c28",
		"28 KEY_DESC c29",
		"29 KEY <none>",
		"30 GENERAL c31 n32",
		"31 VALUES [1020 1021]",
		"32 GENERAL c33 n34",
		"33 PRESETS [1040]",
		"34 GENERAL c35",
		"35 NODE [20]",
		"36 GENERAL c37 n38",
		"37 USEDBITS 0",
		"38 GENERAL c39",
		"39 RES_NUM 0",
	};
	EXPECT_EQ(rule_nodes(rules.get()), expected);
	EXPECT_EQ(rule_id("B"), 2);
	EXPECT_EQ(rule_id("S"), 20);
}

TEST_F(RmMergeIds, IdsMoveByTheMapsHighestNodeAndOne)
{
	for (const u16 index : {u16{0}, u16{1}, u16{4242}, u16{65000}}) {
		ASSERT_TRUE(rules.init());
		ASSERT_TRUE(base.init());
		ASSERT_TRUE(sub.init());
		map->max_node_index = index;
		fill(base, rule("B", {rule_case("", "'s10', 'p40'")}));
		fill(sub, rule("S", {rule_case("", "'s20', 'p41'")}));
		ASSERT_TRUE(merge());
		EXPECT_EQ(records(EXTMEM_TAG_VALUE_HOLDER),
			  (Lines{"[10]", "[" + std::to_string(20 + index + 1) + "]"}));
		EXPECT_EQ(records(EXTMEM_TAG_PRESET_HOLDER),
			  (Lines{"[40]", "[" + std::to_string(41 + index + 1) + "]"}));
	}
}

TEST_F(RmMergeIds, NoIdStaysNoId)
{
	setting("none", 0xFFFF);
	preset("none preset", 0xFFFF);
	fill(base, rule("B"));
	fill(sub, rule("S", {rule_case("", "'s20', 'none', 's21', 'none preset'", "'Missing'")}));
	ASSERT_TRUE(merge());
	EXPECT_EQ(records(EXTMEM_TAG_VALUE_HOLDER), Lines{"[1020 65535 1021]"});
	EXPECT_EQ(records(EXTMEM_TAG_PRESET_HOLDER), Lines{"[65535]"});
	EXPECT_EQ(records(EXTMEM_TAG_NODE_HOLDER), Lines{"[65535]"});
}

TEST_F(RmMergeIds, RangesOfTheSubReadTheSlotOfTheSub)
{
	const std::string redefined =
		", 'S': {'content': ['a', 'b'], 'define': {"
		"'a': {'L': '[3,4]', 'Missing': '[5,6]'}, 'b': {'L': '[7,8]'}}}";
	fill(base, rule("B", {rule_case("'L': '[1,2]'", "'s10'")}));
	fill(sub, rule("S", {rule_case("'S': 'b', 'L': '[1,9]'", "'s20'")}), redefined);
	const u16 count = static_cast<u16>(rule_node_count(base.get()));
	const Lines own = rule_records(sub.get(), EXTMEM_TAG_RANGE_HOLDER);
	ASSERT_EQ(own, (Lines{"node 16 3..4", "node 65535 5..6", "node 16 7..8", "node 16 1..9",
			      "node 16 7..8"}));
	ASSERT_TRUE(merge());
	const std::string slot = "node " + std::to_string(16 + count);
	EXPECT_EQ(records(EXTMEM_TAG_RANGE_HOLDER),
		  (Lines{"node 16 1..2", slot + " 3..4", "node 65535 5..6", slot + " 7..8",
			 slot + " 1..9", slot + " 7..8"}));
	EXPECT_EQ(selected(rules.get(), "L:1"), Ids{10});
	EXPECT_EQ(selected(rules.get(), "L:7"), Ids{1020});
}

TEST_F(RmMergeIds, KeysSlotsAndBoundsDoNotMove)
{
	fill(base, rule("B"));
	fill(sub, rule("S", {rule_case("'A': 'y', 'L': '[20,30]'", "'s20'")}));
	const Lines keys = rule_records(sub.get(), EXTMEM_TAG_KEY_HOLDER);
	ASSERT_TRUE(merge());
	EXPECT_EQ(records(EXTMEM_TAG_KEY_HOLDER), keys);
	EXPECT_EQ(records(EXTMEM_TAG_SIZE_HOLDER), (Lines{"0", "0"}));
	EXPECT_EQ(records(EXTMEM_TAG_SOURCE_DESCRIPTION),
		  (Lines{"shift 0 width 2 rank 1", "shift 0 width 2 rank 2",
			 "shift 2 width 1 rank 1", "shift 0 width 2 rank 1",
			 "shift 0 width 2 rank 2", "shift 2 width 1 rank 1"}));
}

// ---- names ----

TEST_F(RmMergeNames, NewRulesFollowTheBasesChildren)
{
	fill(base, rule("B1", {rule_case("", "'s10'")}) + ", " + rule("B2"));
	fill(sub,
	     rule("S1", {rule_case("", "'s20'")}) + ", " + rule("S2", {rule_case("", "'s21'")}));
	ASSERT_TRUE(merge());
	EXPECT_EQ(listed(), (Lines{"A:x", "A:y", "L", "rule B1", "rule B2", "bits", "slots",
				   "rule S1", "rule S2"}));
	EXPECT_EQ(selected(rules.get(), ""), (Ids{10, 1020, 1021}));
	for (const char *name : {"A:x", "A:y", "L"})
		EXPECT_EQ(label(name), ctrie_find(&base->source_map, name)) << name;
	vexil_version version{7, 7, 7};
	EXPECT_TRUE(rm_get_rm_version(rules.get(), &version, "S2"));
}

TEST_F(RmMergeNames, BaseWinsForARuleOfBoth)
{
	fill(base, rule("R", {rule_case("", "'s10'")}));
	fill(sub, rule("S1", {rule_case("", "'s20'")}) + ", " +
			  rule("r", {rule_case("", "'s21'")}) + ", " +
			  rule("S2", {rule_case("", "'s22'")}));
	ASSERT_TRUE(merge());
	EXPECT_EQ(listed(),
		  (Lines{"A:x", "A:y", "L", "rule R", "bits", "slots", "rule S1", "rule S2"}));
	EXPECT_EQ(rule_id("r"), ctrie_find(&base->rulename_map, "R"));
	EXPECT_EQ(selected(rules.get(), ""), (Ids{10, 1020, 1022}));
}

TEST_F(RmMergeNames, EverythingTwiceLeavesTheBase)
{
	const std::string groups = rule("R", {rule_case("'A': 'x'", "'s10'")}) + ", " + rule("T");
	fill(base, groups);
	fill(sub, groups);
	ASSERT_TRUE(merge());
	EXPECT_EQ(listed(), (Lines{"A:x", "A:y", "L", "rule R", "rule T", "bits", "slots"}));
	EXPECT_EQ(rule_node_count(rules.get()), 2 * rule_node_count(base.get()));
	EXPECT_EQ(selected(rules.get(), "A:x"), Ids{10});
}

TEST_F(RmMergeNames, ContextOverItselfIsItself)
{
	fill(base, rule("R", {rule_case("'A': 'x'", "'s10'")}));
	const std::string before = store_bytes(base.get());
	ASSERT_TRUE(rm_merge(rules.get(), base.get(), base.get(), map.get()));
	EXPECT_EQ(listed(), (Lines{"A:x", "A:y", "L", "rule R", "bits", "slots"}));
	EXPECT_EQ(selected(rules.get(), "A:x"), Ids{10});
	EXPECT_EQ(store_bytes(base.get()), before);
}

TEST_F(RmMergeNames, RulesOfTheSubKeepItsOwnDefinitionOfADuplicate)
{
	fill(base, rule("R", {rule_case("", "'s10'")}));
	fill(sub, rule("R", {rule_case("", "'s20'", "'Deep'")}) + ", " +
			  rule("Deep", {rule_case("", "'s22'")}) + ", " +
			  rule("S", {rule_case("", "'s21'", "'R'")}));
	ASSERT_TRUE(merge());
	EXPECT_EQ(selected(rules.get(), "", "S"), (Ids{1021, 1020, 1022}));
	EXPECT_EQ(selected(rules.get(), "", "R"), Ids{10});
	// The unlinked definition survives export and adoption.
	ImageBytes image = image_of(rules.get());
	Rules again;
	ASSERT_TRUE(adopt(again, image));
	EXPECT_EQ(selected(again.get(), "", "S"), (Ids{1021, 1020, 1022}));
	EXPECT_EQ(selected(again.get(), ""), (Ids{10, 1022, 1021, 1020, 1022}));
}

TEST_F(RmMergeNames, NewLabelsOfTheSubAreLinked)
{
	fill(base, rule("B"), ", 'T': {'content': ['p'], 'define': {'p': {'L': '[1,2]'}}}");
	fill(sub, rule("S"), ", 'T': {'content': ['p', 'q'], 'define': {'p': {'L': '[5,6]'}, "
			     "'q': {'L': '[7,8]'}}}");
	ASSERT_TRUE(merge());
	EXPECT_EQ(listed(), (Lines{"A:x", "A:y", "L", "T:p", "rule B", "bits", "slots", "T:q",
				   "rule S"}));
	EXPECT_EQ(label("T:p"), ctrie_find(&base->source_map, "T:p"));
	EXPECT_EQ(label("T:q"), ctrie_find(&sub->source_map, "T:q") +
					static_cast<int>(rule_node_count(base.get())));
}

TEST_F(RmMergeNames, BaseWithoutChildrenGetsTheSubs)
{
	ASSERT_TRUE(add_rules(sub.get(), map.get(), rule("S")));
	ASSERT_TRUE(merge());
	EXPECT_EQ(listed(), Lines{"rule S"});
	EXPECT_EQ(node(0), "0 GENERAL c2");
	EXPECT_EQ(rule_id("S"), 3);
}

TEST_F(RmMergeNames, SubWithoutChildrenLeavesTheBase)
{
	fill(base, rule("B", {rule_case("", "'s10'")}));
	const std::size_t count = rule_node_count(base.get());
	ASSERT_TRUE(merge());
	EXPECT_EQ(rule_node_count(rules.get()), count + 1);
	EXPECT_EQ(listed(), (Lines{"A:x", "A:y", "L", "rule B", "bits", "slots"}));
	EXPECT_EQ(selected(rules.get(), ""), Ids{10});
}

// ---- what the result says of itself ----

TEST_F(RmMerge, CountsComeFromTheBase)
{
	fill(base, rule("B"));
	fill(sub, rule("S"),
	     ", " + enumerated("More", numbered("v", 100)) + ", " + value_source("M"));
	ASSERT_TRUE(merge());
	EXPECT_EQ(rules->used_bits, 3u);
	EXPECT_EQ(rules->res_num, 1u);
	ASSERT_NE(rules->rmInd.keyBuffer, nullptr);
	ASSERT_NE(rules->rmInd.resBuffer, nullptr);
	EXPECT_EQ(rules->rmInd.keyBuffer[0], 0u);
	EXPECT_EQ(rules->rmInd.keyBuffer[1], 0u);
	EXPECT_EQ(rules->rmInd.resBuffer[0], 0u);
	// Fields beyond the base's key are refused, not written.
	ASSERT_NE(label("M"), INT_MIN);
	EXPECT_FALSE(rm_set(rules.get(), "M:1", 0));
	take_log();
}

TEST_F(RmMerge, VersionsComeFromBoth)
{
	fill(base, rule("B"));
	fill(sub, rule("S"));
	base->total_version = {1, 1, 1};
	base->rl_json_version = {2, 2, 2};
	std::memcpy(base->cus_version, "base", 5);
	sub->total_version = {3, 3, 3};
	sub->rl_json_version = {4, 4, 4};
	std::memcpy(sub->cus_version, "sub\0hidden", 11);
	ASSERT_TRUE(merge());
	EXPECT_EQ(rules->total_version, (vexil_version{3, 3, 3}));
	EXPECT_EQ(rules->rl_json_version, (vexil_version{2, 2, 2}));
	EXPECT_EQ(std::string(rules->cus_version, 32),
		  std::string("sub\0hidden", 10) + std::string(22, '\0')); // all 32 bytes
	EXPECT_FALSE(rules->bCusVerReady); // as it was

	ASSERT_TRUE(rules.init());
	rules->bCusVerReady = true;
	ASSERT_TRUE(merge());
	EXPECT_TRUE(rules->bCusVerReady);
}

TEST_F(RmMerge, ResultIsReadyForEvaluationAndHandlers)
{
	fill(base, rule("B", {rule_case("'A': 'x'", "'s10'"), rule_case("'A': 'y'", "'s11'")}));
	fill(sub, rule("S", {rule_case("'A': 'y', 'L': '[5,6]'", "'s20', 'p40'", "'B2'")}) + ", " +
			  rule("B2", {rule_case("'A': 'y'", "'s30'")}));
	ASSERT_TRUE(merge());
	EXPECT_EQ(selected(rules.get(), "A:x;L:5"), Ids{10});
	EXPECT_EQ(selected(rules.get(), "A:y;L:5"), (Ids{11, 1020, 1030, 1030}));
	EXPECT_EQ(presets_of(rules.get()), Ids{1040});
	rm_handler *handler = nullptr;
	EXPECT_TRUE(rm_create_handler(rules.get(), &handler));
	EXPECT_TRUE(rm_handler_set(handler, "A:y;L:6", 0));
	EXPECT_TRUE(rm_handler_trigger(handler, "S"));
	EXPECT_EQ(rm_handler_get_num_result(handler), 2u);
	rm_handler_destroy(&handler);
}

TEST_F(RmMerge, BaseAndSubStayAsTheyWere)
{
	fill(base, rule("B", {rule_case("'L': '[1,2]'", "'s10', 'p40'", "'B'")}));
	fill(sub, rule("S", {rule_case("'L': '[1,2]'", "'s20', 'p41'", "'S'")}) + ", " + rule("B"));
	const std::string base_bytes = store_bytes(base.get());
	const std::string sub_bytes = store_bytes(sub.get());
	ASSERT_TRUE(merge());
	EXPECT_EQ(store_bytes(base.get()), base_bytes);
	EXPECT_EQ(store_bytes(sub.get()), sub_bytes);
	EXPECT_EQ(selected(base.get(), "L:1", "S"), Ids{});
	take_log(); // "S" is nobody there
	// They can be merged again, and destroyed before the result.
	const std::string merged = store_bytes(rules.get());
	ASSERT_TRUE(rules.init());
	ASSERT_TRUE(merge());
	EXPECT_EQ(store_bytes(rules.get()), merged);
	rm_destroy(base.out());
	rm_destroy(sub.out());
	EXPECT_TRUE(rm_set(rules.get(), "L:1", 0));
	EXPECT_TRUE(rm_clear(rules.get()));
}

TEST_F(RmMerge, AdoptedImagesAreMergedAndNotWritten)
{
	fill(base, rule("B", {rule_case("'A': 'x'", "'s10'")}));
	fill(sub, rule("S", {rule_case("'A': 'x', 'L': '[1,2]'", "'s20'", "'B'")}) + ", " +
			  rule("B", {rule_case("'A': 'x'", "'s21'")}));
	ImageBytes base_image = image_of(base.get());
	ImageBytes sub_image = image_of(sub.get());
	const std::vector<char> base_bytes = base_image.bytes();
	const std::vector<char> sub_bytes = sub_image.bytes();
	ASSERT_TRUE(merge());
	const std::string built = store_bytes(rules.get());

	ASSERT_TRUE(adopt(base, base_image) && adopt(sub, sub_image));
	ASSERT_TRUE(rules.init());
	ASSERT_TRUE(merge());
	EXPECT_EQ(store_bytes(rules.get()), built);
	EXPECT_EQ(base_image.bytes(), base_bytes);
	EXPECT_EQ(sub_image.bytes(), sub_bytes);
	EXPECT_EQ(selected(rules.get(), "A:x;L:2"), (Ids{10, 1020, 1021}));
}

TEST_F(RmMerge, RulesCanBeAddedAfterwards)
{
	fill(base, rule("B", {rule_case("'A': 'x'", "'s10'")}));
	fill(sub, rule("S", {rule_case("'A': 'x'", "'s20'")}));
	ASSERT_TRUE(merge());
	ASSERT_TRUE(add(rule("New", {rule_case("'A': 'x'", "'s30'", "'S'")})));
	EXPECT_EQ(selected(rules.get(), "A:x"), (Ids{10, 1020, 30, 1020}));
	EXPECT_EQ(listed().back(), "rule New");
}

TEST_F(RmMerge, ResultCanBeMergedAgain)
{
	fill(base, rule("B", {rule_case("", "'s10'")}));
	fill(sub, rule("S", {rule_case("", "'s20'")}));
	Rules both;
	ASSERT_TRUE(both.init());
	ASSERT_TRUE(rm_merge(both.get(), base.get(), sub.get(), map.get()));
	Rules third;
	ASSERT_TRUE(third.init());
	fill(third, rule("T", {rule_case("", "'s30'")}));
	ASSERT_TRUE(rm_merge(rules.get(), both.get(), third.get(), map.get()));
	EXPECT_EQ(selected(rules.get(), ""), (Ids{10, 1020, 1030}));
	// And the other way round: a merged sub's ids move once more.
	ASSERT_TRUE(rules.init());
	ASSERT_TRUE(rm_merge(rules.get(), third.get(), both.get(), map.get()));
	EXPECT_EQ(selected(rules.get(), ""), (Ids{30, 1010, 2020}));
}

// ---- refused ----

TEST_F(RmMergeRefused, NullsAreFalse)
{
	EXPECT_FALSE(rm_merge(nullptr, base.get(), sub.get(), map.get()));
	EXPECT_FALSE(rm_merge(rules.get(), nullptr, sub.get(), map.get()));
	EXPECT_FALSE(rm_merge(rules.get(), base.get(), nullptr, map.get()));
	EXPECT_FALSE(rm_merge(rules.get(), base.get(), sub.get(), nullptr));
	EXPECT_EQ(rules->builder.err_code, EXTMEM_SUCCESS);
	EXPECT_EQ(nodes(), Lines{"0 GENERAL"});
}

TEST_F(RmMergeRefused, TargetThatIsBaseOrSub)
{
	fill(base, rule("B"));
	const std::string before = store_bytes(base.get());
	EXPECT_FALSE(rm_merge(base.get(), base.get(), sub.get(), map.get()));
	EXPECT_EQ(base->builder.err_code, EXTMEM_INTERNAL_ERROR);
	EXPECT_FALSE(rm_merge(sub.get(), base.get(), sub.get(), map.get()));
	EXPECT_EQ(sub->builder.err_code, EXTMEM_INTERNAL_ERROR);
	EXPECT_EQ(store_bytes(base.get()), before);
	EXPECT_EQ(rule_node_count(sub.get()), 1u);
}

TEST_F(RmMergeRefused, TargetInUse)
{
	fill(base, rule("B"));
	fill(sub, rule("S"));
	ASSERT_TRUE(declare(enumerated("Q", {"x"})));
	const std::string before = store_bytes(rules.get());
	EXPECT_FALSE(merge());
	EXPECT_EQ(rules->builder.err_code, EXTMEM_INTERNAL_ERROR);
	EXPECT_EQ(store_bytes(rules.get()), before);
	EXPECT_EQ(rules->used_bits, 1u); // nothing was taken over

	ImageBytes image = RuleImage().write();
	const std::vector<char> bytes = image.bytes();
	Rules in_place;
	ASSERT_TRUE(adopt(in_place, image));
	EXPECT_FALSE(rm_merge(in_place.get(), base.get(), sub.get(), map.get()));
	EXPECT_EQ(in_place->builder.err_code, EXTMEM_INTERNAL_ERROR);
	EXPECT_EQ(image.bytes(), bytes);
}

TEST_F(RmMergeRefused, MovedSettingOrPresetIdBeyondTheLastNode)
{
	const struct {
		int setting;
		int preset;
		bool merged;
	} table[] = {{64534, 1, true}, {64535, 1, false}, {65534, 1, false},
		     {1, 64534, true}, {1, 64535, false}};
	for (const auto &row : table) {
		ASSERT_TRUE(rules.init());
		ASSERT_TRUE(base.init());
		ASSERT_TRUE(sub.init());
		ASSERT_TRUE(map.init());
		map->max_node_index = kMaxIndex;
		setting("s", row.setting);
		preset("p", row.preset);
		fill(base, rule("B"));
		fill(sub, rule("S", {rule_case("", "'s', 'p'")}));
		sub->total_version = {3, 3, 3};
		const std::string before = store_bytes(sub.get());
		EXPECT_EQ(merge(), row.merged) << row.setting << " " << row.preset;
		EXPECT_EQ(store_bytes(sub.get()), before);
		if (row.merged)
			continue;
		EXPECT_EQ(nodes(), Lines{"0 GENERAL"});
		EXPECT_EQ(rules->used_bits, 0u);
		EXPECT_EQ(rules->total_version, (vexil_version{0, 0, 0}));
		EXPECT_EQ(rules->rmInd.keyBuffer, nullptr);
	}
}

TEST_F(RmMergeRefused, MovedNodeIdBeyondTheLastNode)
{
	fill(base, rule("B"));
	RuleImage plan;
	const u16 body = plan.add_case(plan.rule("S"));
	plan.outcome(body, EXTMEM_TAG_NODE_HOLDER, {65530}); // damaged: no such node
	ImageBytes image = plan.write();
	ASSERT_TRUE(adopt(sub, image));
	EXPECT_FALSE(merge());
	EXPECT_EQ(nodes(), Lines{"0 GENERAL"});

	RuleImage ranged;
	const u16 label = ranged.redefined("T:a");
	ranged.redefinition(label, {65510, {}, 1, 2});
	ImageBytes second = ranged.write();
	ASSERT_TRUE(adopt(sub, second));
	EXPECT_FALSE(merge());
	EXPECT_EQ(nodes(), Lines{"0 GENERAL"});
}

TEST_F(RmMergeRefused, MoreNodesThanIds)
{
	fill(base, rule("B", {rule_case("", "'s10'")}));
	fill(sub, rule("S", {rule_case("", "'s20'")}));
	while (rule_node_count(base.get()) < 40000)
		extmem_request_node(&base->builder, EXTMEM_TAG_UNSPECIFIED);
	while (rule_node_count(sub.get()) < kMaxNodes - 40000)
		extmem_request_node(&sub->builder, EXTMEM_TAG_UNSPECIFIED);
	ASSERT_TRUE(merge()); // 65535 are just enough
	EXPECT_EQ(selected(rules.get(), ""), (Ids{10, 1020}));

	extmem_request_node(&sub->builder, EXTMEM_TAG_UNSPECIFIED);
	ASSERT_TRUE(rules.init());
	const std::string before = store_bytes(sub.get());
	EXPECT_FALSE(merge());
	EXPECT_EQ(rules->builder.err_code, EXTMEM_OUT_OF_RANGE);
	EXPECT_EQ(store_bytes(sub.get()), before);
	EXPECT_EQ(nodes(), Lines{"0 GENERAL"});
}

TEST_F(RmMergeRefused, NewNameThatTheSubHasTwiceIsReported)
{
	fill(base, rule("B"));
	RuleImage plan;
	const u16 other = plan.rule("Other");
	plan.rule("Twice");
	const u16 text = plan.child(plan.next(other));
	ImageBytes image = plan.write();
	ASSERT_TRUE(adopt(sub, image));
	const char same[] = "Twice";
	std::memcpy(image.data() + image.record_at(text), same, sizeof same); // behind its back
	EXPECT_FALSE(merge());
	EXPECT_EQ(take_log(), "[VEXIL][RM][rm_merge] ctrie_insert failed = Twice\n");
}

TEST_F(RmMergeRefused, CyclicRootChainOfTheSub)
{
	fill(base, rule("B"));
	RuleImage plan;
	plan.rule("S");
	const u16 empty = plan.add(EXTMEM_TAG_GENERAL);
	plan.append(0, empty);
	ImageBytes image = plan.write();
	ASSERT_TRUE(adopt(sub, image));
	image.put(ImageBytes::node_at(empty) + 5, empty); // behind its back
	const std::string before = store_bytes(base.get());
	EXPECT_FALSE(merge());
	EXPECT_EQ(store_bytes(base.get()), before);
	take_log();
}

// ---- without memory ----

TEST_F(RmMergeMemory, EveryRefusalLeavesBaseAndSubAsTheyWere)
{
	fill(base, rule("B", {rule_case("'A': 'x'", "'s10'")}));
	fill(sub, rule("S", {rule_case("'A': 'x', 'L': '[1,2]'", "'s20'", "'B'")}) + ", " +
			  rule("B", {rule_case("'A': 'x'", "'s21'")}));
	const std::string base_bytes = store_bytes(base.get());
	const std::string sub_bytes = store_bytes(sub.get());
	for (std::size_t nth = 1;; ++nth) {
		ASSERT_LT(nth, 100u);
		ASSERT_TRUE(rules.init());
		bool merged;
		bool refused;
		{
			const Refuse one = Refuse::only(nth);
			merged = merge();
			refused = one.happened();
		}
		EXPECT_EQ(merged, !refused) << nth;
		EXPECT_EQ(store_bytes(base.get()), base_bytes) << nth;
		EXPECT_EQ(store_bytes(sub.get()), sub_bytes) << nth;
		EXPECT_EQ(selected(base.get(), "A:x"), Ids{10}) << nth;
		EXPECT_EQ(selected(sub.get(), "A:x;L:2"), (Ids{20, 21, 21})) << nth;
		if (!refused) {
			EXPECT_GT(nth, 5u);
			EXPECT_EQ(take_log(), "");
			EXPECT_EQ(selected(rules.get(), "A:x;L:2"), (Ids{10, 1020, 1021}));
			break;
		}
		take_log();
	}
}

TEST_F(RmMergeMemory, NameThatCannotBeIndexedIsReported)
{
	fill(base, rule("B"));
	// Nodes, copy, data, then the first name's trie node.
	for (std::size_t nth = 1; nth < 20; ++nth) {
		ASSERT_TRUE(rules.init());
		const Refuse one = Refuse::only(nth);
		merge();
		const Lines log = take_log_lines();
		if (log.empty())
			continue;
		EXPECT_EQ(log.back(), "[VEXIL][RM][rm_merge] ctrie_insert failed = A:x");
		return;
	}
	FAIL() << "no refusal reached the names";
}

TEST_F(RmMerge, CountThatADamagedSubOverwritesIsNotTakenOver)
{
	RuleImage base_plan, sub_plan;
	base_plan.source("A:x", {0, 2, 1, 0});
	const u16 bits = base_plan.used_bits(2);
	base_plan.res_num(0);
	// Ids that the merge moves, in a record that the sum of both offsets puts over the base's count.
	const u16 ids = sub_plan.outcome(sub_plan.add_case(sub_plan.rule("R")), EXTMEM_TAG_VALUE_HOLDER,
					 {1, 2});
	const auto base_bytes = static_cast<u32>(base_plan.data_bytes());
	sub_plan.record(ids, sizeof(u32), base_plan.record_offset(bits) - base_bytes);
	ImageBytes base_image = base_plan.write(), sub_image = sub_plan.write();
	ASSERT_TRUE(adopt(base, base_image));
	ASSERT_TRUE(adopt(sub, sub_image));
	map->max_node_index = 0xF000;
	EXPECT_FALSE(merge());
	EXPECT_EQ(rules->used_bits, 2u);
	rm_handler *handler = nullptr;
	EXPECT_TRUE(rm_create_handler(rules.get(), &handler));
	EXPECT_TRUE(rm_handler_destroy(&handler));
}

} // namespace
