// SPDX-License-Identifier: MIT
//
// A context's beginning: empty, or over an image; sound and damaged ones.
#include <climits>
#include <cstddef>

#include "tests/support/rm_images.h"
#include "tests/support/rm_json.h"

namespace {

using namespace vexil_test;

// ---- records ----

static_assert(sizeof(rm) == 17120 && sizeof(rm_handler) == 72 && offsetof(rm_handler, pRm) == 64);
static_assert(offsetof(rm, builder) == 0 && offsetof(rm, root) == 184);
static_assert(offsetof(rm, source_map) == 200 && offsetof(rm, rulename_map) == 264);
static_assert(offsetof(rm, rmInd) == 328 && offsetof(rm, used_bits) == 392);
static_assert(offsetof(rm, res_num) == 400 && offsetof(rm, unres_rule) == 408);
static_assert(offsetof(rm, unres_source) == 8736 && offsetof(rm, total_version) == 17064);
static_assert(offsetof(rm, rl_json_version) == 17072 && offsetof(rm, bCusVerReady) == 17080);
static_assert(offsetof(rm, cus_version) == 17081 && sizeof(rm::cus_version) == 32);
static_assert(sizeof(rm_individual) == 64 && offsetof(rm_individual, result) == 0);
static_assert(offsetof(rm_individual, preset) == 24 && offsetof(rm_individual, keyBuffer) == 48);
static_assert(offsetof(rm_individual, resBuffer) == 56);
static_assert(sizeof(rm_result) == 24 && offsetof(rm_result, num_result) == 0);
static_assert(offsetof(rm_result, max_result) == 8 && offsetof(rm_result, result_list) == 16);
static_assert(sizeof(unres_item) == 130 && offsetof(unres_item, id) == 128);
static_assert(sizeof(unres_item_list) == 8328 && offsetof(unres_item_list, items) == 8);
static_assert(sizeof(source_desc) == 8 && offsetof(source_desc, shift) == 0);
static_assert(offsetof(source_desc, width) == 2 && offsetof(source_desc, rank) == 4);
static_assert(sizeof(range_desc) == 24 && offsetof(range_desc, source_node) == 0);
static_assert(offsetof(range_desc, minData) == 8 && offsetof(range_desc, maxData) == 16);

// ---- helpers ----

// The record, and a root node and a text buffer for each of the two tries.
constexpr std::size_t kBlocksOfAdopted = 5;
constexpr std::size_t kBlocksOfEmpty = kBlocksOfAdopted + 2; // nodes and data
constexpr std::size_t kMostKeyBits = 65536;
constexpr std::size_t kMostSlots = 65535;

const std::string kNoRoot = "[rm_init][185]vexil lib fail!!\n";

std::string wrong_string(const std::string &name)
{
	return "[VEXIL][RM][rm_init] wrong string = " + name + "\n";
}

// Stands for a context of the caller's that a failing call must not touch.
rm *somebodys_rules()
{
	static rm rules;
	return &rules;
}

// rm_init that must fail: nothing is stored, and nothing stays allocated.
void expect_no_rules(ImageBytes image, const std::string &log = "")
{
	rm *rules = somebodys_rules();
	EXPECT_FALSE(rm_init(&rules, image.data(), image.size()));
	EXPECT_EQ(rules, somebodys_rules());
	EXPECT_EQ(live_blocks(), 0u);
	EXPECT_EQ(take_log(), log);
}

void expect_no_rules(const RuleImage &plan, const std::string &log = "")
{
	expect_no_rules(plan.write(), log);
}

/** Input:A and Input:B in bits 0 and 1, Luma in bit 2; rule R selects 100 or 200. */
struct Everything : RuleImage {
	u16 input_a = source("Input:A", {0, 2, 1, 0});
	u16 input_b = source("Input:B", {0, 2, 2, 0});
	u16 luma = value_source("Luma", {2, 1, 1, 0}, 0);
	u16 rule_r = rule("R", {2, 1, 7});
	u16 body = add_case(rule_r);
	u16 key = alternative(body, {1}, {3});
	u16 range = condition(key, {luma, {}, 3, 9});
	u16 values = outcome(body, EXTMEM_TAG_VALUE_HOLDER, {100});
	u16 body_b = add_case(rule_r);
	u16 key_b = alternative(body_b, {2}, {3});
	u16 values_b = outcome(body_b, EXTMEM_TAG_VALUE_HOLDER, {200});
	u16 presets_b = outcome(body_b, EXTMEM_TAG_PRESET_HOLDER, {300, 301});
	u16 bits = used_bits(3);
	u16 slots = res_num(1);
};

class RmInit : public testing::Test {
protected:
	void TearDown() override { EXPECT_EQ(take_log(), "") << "a message that nobody expected"; }

	bool adopt_plan(const RuleImage &plan)
	{
		rm_destroy(rules.out());
		image = plan.write();
		return adopt(rules, image);
	}

	ImageBytes image;
	Rules rules;
};

using RmInitImage = RmInit;
using RmInitDamaged = RmInit;
using RmInitMemory = RmInit;

// ---- an empty context ----

TEST_F(RmInit, EmptyContextHoldsTheRootAlone)
{
	ASSERT_TRUE(rm_init(rules.out(), nullptr, 0));
	EXPECT_EQ(rule_nodes(rules.get()), Lines{"0 GENERAL"});
	EXPECT_EQ(rules->root.id, 0);
	EXPECT_EQ(rules->root.owner, &rules->builder);
	EXPECT_EQ(rules->builder.node_buffer.buf_max, 1024u);
	EXPECT_EQ(rules->builder.data_buffer.buf_used, 0u);
	EXPECT_EQ(rules->builder.data_buffer.buf_max, 1024u);
	EXPECT_TRUE(rules->builder.malloc_flag);
	EXPECT_EQ(rules->builder.allocate, &ALLOC);
	EXPECT_EQ(rules->builder.deallocate, &DEALLOC);
	EXPECT_EQ(rules->builder.reallocate, &REALLOC);
	EXPECT_EQ(rules->builder.err_code, EXTMEM_SUCCESS);
	EXPECT_EQ(live_blocks(), kBlocksOfEmpty);
}

TEST_F(RmInit, EmptyContextHasNoBuffersYet)
{
	ASSERT_TRUE(rm_init(rules.out(), nullptr, 0));
	EXPECT_EQ(rules->rmInd.keyBuffer, nullptr);
	EXPECT_EQ(rules->rmInd.resBuffer, nullptr);
	EXPECT_FALSE(rm_set(rules.get(), "A", 0));
	EXPECT_FALSE(rm_clear(rules.get()));
}

TEST_F(RmInit, EverythingElseOfAnEmptyContextIsZero)
{
	ASSERT_TRUE(rm_init(rules.out(), nullptr, 0));
	const vexil_version none{};
	EXPECT_EQ(rules->total_version, none);
	EXPECT_EQ(rules->rl_json_version, none);
	EXPECT_FALSE(rules->bCusVerReady);
	EXPECT_EQ(std::string(rules->cus_version, 32), std::string(32, '\0'));
	EXPECT_EQ(rules->used_bits, 0u);
	EXPECT_EQ(rules->res_num, 0u);
	EXPECT_EQ(rules->unres_rule.count, 0u);
	EXPECT_EQ(rules->unres_source.count, 0u);
	for (const rm_result *list : {&rules->rmInd.result, &rules->rmInd.preset}) {
		EXPECT_EQ(list->num_result, 0u);
		EXPECT_EQ(list->max_result, 0u);
		EXPECT_EQ(list->result_list, nullptr);
	}
	const extmem_buffer_header no_header{};
	EXPECT_EQ(std::memcmp(&rules->builder.header, &no_header, sizeof no_header), 0);
}

TEST_F(RmInit, TriesHaveHooksAndABufferOf1024)
{
	ASSERT_TRUE(rm_init(rules.out(), nullptr, 0));
	for (const ctrie *names : {&rules->source_map, &rules->rulename_map}) {
		EXPECT_EQ(names->allocate, &ALLOC);
		EXPECT_EQ(names->deallocate, &DEALLOC);
		EXPECT_EQ(names->reallocate, &REALLOC);
		EXPECT_EQ(names->buf_max, 1024u);
		EXPECT_EQ(names->buf_used, 0u);
	}
}

TEST_F(RmInit, BufferOrSizeAloneGivesAnEmptyContext)
{
	char not_an_image[1] = {};
	ASSERT_TRUE(rm_init(rules.out(), not_an_image, 0));
	EXPECT_TRUE(rules->builder.malloc_flag);
	rm_destroy(rules.out());
	ASSERT_TRUE(rm_init(rules.out(), nullptr, 4096));
	EXPECT_TRUE(rules->builder.malloc_flag);
	EXPECT_EQ(rule_node_count(rules.get()), 1u);
}

TEST_F(RmInit, NowhereToStoreTheContextIsFalse)
{
	EXPECT_FALSE(rm_init(nullptr, nullptr, 0));
	EXPECT_EQ(allocations(), 0u);
}

// ---- an image ----

TEST_F(RmInitImage, WhatAContextExportsIsAdoptedWithTheSameBytes)
{
	Map map;
	ASSERT_TRUE(map.init());
	add_name(map->ipname_map, "soft", 100);
	add_name(map->preset_map, "dark", 300);
	map->total_version = {2, 2, 9};
	std::memcpy(map->cus_version, "lot C", 5);
	Rules built;
	ASSERT_TRUE(built.init());
	ASSERT_TRUE(declare(built.get(), "'#version': {'MajorVersion': 2, 'Revision': 5}, " +
						 enumerated("Input", {"A", "B"}) + ", " +
						 value_source("Luma")));
	ASSERT_TRUE(add_rules(built.get(), map.get(),
			      rule("R", {rule_case("'Input': ['A', 'B'], 'Luma': '[3,9]'",
						   "'soft', 'dark'")})));
	ASSERT_TRUE(rm_finish(built.get()));
	image = image_of(built.get());
	const std::vector<char> before = image.bytes();

	ASSERT_TRUE(adopt(rules, image));
	EXPECT_EQ(rule_nodes(rules.get()), rule_nodes(built.get()));
	EXPECT_EQ(store_bytes(rules.get()), store_bytes(built.get()));
	EXPECT_FALSE(rules->builder.malloc_flag);
	EXPECT_EQ(rules->root.id, 0);
	EXPECT_EQ(rules->used_bits, 3u);
	EXPECT_EQ(rules->res_num, 1u);
	EXPECT_EQ(rules->total_version, (vexil_version{2, 2, 9}));
	EXPECT_EQ(rules->rl_json_version, (vexil_version{2, 0, 5}));
	EXPECT_STREQ(rules->cus_version, "lot C");
	EXPECT_TRUE(rules->bCusVerReady);
	for (const char *name : {"Input:A", "Input:B", "Luma"})
		EXPECT_EQ(ctrie_find(&rules->source_map, name),
			  ctrie_find(&built->source_map, name));
	EXPECT_EQ(ctrie_find(&rules->rulename_map, "R"), ctrie_find(&built->rulename_map, "R"));
	EXPECT_EQ(selected(rules.get(), "Input:B;Luma:9"), Ids{100});
	EXPECT_EQ(presets_of(rules.get()), Ids{300});

	EXPECT_EQ(image_of(rules.get()).bytes(), before);
	EXPECT_EQ(image.bytes(), before); // evaluation writes nothing
	ASSERT_TRUE(rm_destroy(rules.out()));
	EXPECT_EQ(image.bytes(), before);
}

TEST_F(RmInitImage, HandMadeImageIsIndexedAndEvaluated)
{
	const Everything plan;
	ASSERT_TRUE(adopt_plan(plan));
	EXPECT_EQ(ctrie_find(&rules->source_map, "Input:A"), plan.input_a);
	EXPECT_EQ(ctrie_find(&rules->source_map, "INPUT:B"), plan.input_b);
	EXPECT_EQ(ctrie_find(&rules->rulename_map, "r"), plan.rule_r);
	EXPECT_EQ(rules->used_bits, 3u);
	EXPECT_EQ(rules->res_num, 1u);
	EXPECT_EQ(selected(rules.get(), "Input:A;Luma:3"), Ids{100});
	EXPECT_EQ(selected(rules.get(), "Input:A;Luma:10"), Ids{});
	EXPECT_EQ(selected(rules.get(), "Input:B"), Ids{200});
	EXPECT_EQ(presets_of(rules.get()), (Ids{300, 301}));
}

TEST_F(RmInitImage, BuffersAreZeroedAndAsLargeAsTheRecordsSay)
{
	const struct {
		u32 bits;
		std::size_t key_bytes;
	} table[] = {
		{0, 0}, {1, 16}, {64, 16}, {65, 32}, {128, 32}, {129, 48}, {kMostKeyBits, 16384}};
	for (const auto &row : table) {
		RuleImage plan;
		plan.used_bits(row.bits);
		ASSERT_TRUE(adopt_plan(plan)) << row.bits;
		EXPECT_EQ(last_request().size, row.key_bytes) << row.bits;
		ASSERT_NE(rules->rmInd.keyBuffer, nullptr);
		for (std::size_t i = 0; i < row.key_bytes / 8; ++i)
			ASSERT_EQ(rules->rmInd.keyBuffer[i], 0u) << row.bits;
		EXPECT_EQ(rules->rmInd.resBuffer, nullptr);
	}
	for (const u32 slots : {0u, 1u, 3u, static_cast<u32>(kMostSlots)}) {
		RuleImage plan;
		plan.res_num(slots);
		ASSERT_TRUE(adopt_plan(plan)) << slots;
		EXPECT_EQ(last_request().size, slots * std::size_t{8});
		ASSERT_NE(rules->rmInd.resBuffer, nullptr);
		for (std::size_t i = 0; i < slots; ++i)
			ASSERT_EQ(rules->rmInd.resBuffer[i], 0u) << slots;
		EXPECT_EQ(rules->rmInd.keyBuffer, nullptr);
	}
}

TEST_F(RmInitImage, WithoutRecordsThereAreNoBuffersAndNoEvaluation)
{
	RuleImage plan;
	plan.source("Input:A", {0, 1, 1, 0});
	const u16 rule = plan.rule("R");
	plan.alternative(plan.add_case(rule), {}, {});
	ASSERT_TRUE(adopt_plan(plan));
	EXPECT_EQ(rules->rmInd.keyBuffer, nullptr);
	EXPECT_EQ(rules->used_bits, 0u);
	EXPECT_FALSE(rm_set(rules.get(), "Input:A", 0));
	EXPECT_FALSE(rm_clear(rules.get()));
	EXPECT_EQ(live_blocks(), kBlocksOfAdopted + 2); // a trie node for each name
}

TEST_F(RmInitImage, OtherChildrenOfTheRootAreSkipped)
{
	Everything plan;
	const u16 empty = plan.add(EXTMEM_TAG_GENERAL);
	plan.append(0, empty);
	for (const int tag :
	     {0, 1, 17, 22, 25, 29, 32, 35, 40, 41, 43, 44, 53, 55, 57, 58, 200, 255})
		plan.hold(0, tag < 33 ? plan.add(tag) : plan.add_record(tag, "12345678"));
	const u16 last = plan.rule("Last");
	ASSERT_TRUE(adopt_plan(plan));
	EXPECT_EQ(ctrie_find(&rules->rulename_map, "Last"), last);
	EXPECT_EQ(rules->used_bits, 3u);
}

TEST_F(RmInitImage, CustomerTextAlwaysEnds)
{
	Everything plan;
	std::memset(plan.header.cus_version, 'v', sizeof plan.header.cus_version);
	plan.header.total_version = {1, 2, 3};
	plan.header.rl_json_version = {4, 5, 6};
	ASSERT_TRUE(adopt_plan(plan));
	EXPECT_EQ(std::string(rules->cus_version), std::string(31, 'v'));
	EXPECT_EQ(rules->total_version, (vexil_version{1, 2, 3}));
	EXPECT_EQ(rules->rl_json_version, (vexil_version{4, 5, 6}));
	EXPECT_TRUE(rules->bCusVerReady);
}

TEST_F(RmInitImage, OnlyRuleImagesOfVersionTwoZeroToTwoTwoAreAdopted)
{
	const struct {
		u16 kind;
		vexil_version code;
		bool adopted;
	} table[] = {
		{2, {2, 0, 0}, true},  {2, {2, 1, 99}, true}, {2, {2, 2, 2}, true},
		{2, {2, 3, 0}, false}, {2, {3, 0, 0}, false}, {2, {1, 2, 0}, false},
		{2, {0, 0, 0}, false}, {1, {2, 2, 2}, false}, {0, {2, 2, 2}, false},
		{3, {2, 2, 2}, false}, {0x0102, {2, 2, 2}, false},
	};
	for (const auto &row : table) {
		Everything plan;
		plan.header.binType = row.kind;
		plan.header.codeVersion = row.code;
		if (row.adopted) {
			EXPECT_TRUE(adopt_plan(plan)) << row.code.u16MinorNumber;
			rm_destroy(rules.out());
		} else {
			expect_no_rules(plan);
		}
	}
}

TEST_F(RmInitImage, BinSizeIsNotLookedAt)
{
	image = Everything().write();
	image.put<u32>(84, 1);
	EXPECT_TRUE(adopt(rules, image));
}

TEST_F(RmInitImage, AdoptedImageMayLieAtAnyAddress)
{
	const Everything plan;
	const ImageBytes aligned = plan.write();
	std::vector<char> moved(aligned.size() + 1);
	std::copy(aligned.bytes().begin(), aligned.bytes().end(), moved.begin() + 1);
	ASSERT_TRUE(rm_init(rules.out(), moved.data() + 1, aligned.size()));
	EXPECT_EQ(selected(rules.get(), "Input:A;Luma:9"), Ids{100});
}

// ---- damaged images ----

TEST_F(RmInitDamaged, ShortImagesAreRefused)
{
	for (const std::size_t size : {1u, 87u, 88u, 95u, 96u, 103u, 1024u + 103}) {
		ImageBytes cut = Everything().write();
		cut.resize(size);
		expect_no_rules(std::move(cut));
	}
}

TEST_F(RmInitDamaged, ContradictoryBufferSizesAreRefused)
{
	const struct {
		const char *what;
		std::size_t at;
		u32 value;
	} table[] = {
		{"nodes used beyond capacity", 88, 2000},
		{"no node capacity", 92, 0},
		{"node capacity beyond the image", 92, 0x7FFFFFF0},
		{"node capacity that wraps", 92, 0xFFFFFFF0},
		{"data used beyond capacity", 96 + 1024, 2000},
		{"no data capacity", 96 + 1024 + 4, 0},
	};
	for (const auto &row : table) {
		SCOPED_TRACE(row.what);
		ImageBytes bad = Everything().write();
		ASSERT_EQ(bad.node_capacity(), 1024u);
		bad.put(row.at, row.value);
		expect_no_rules(std::move(bad));
	}
}

TEST_F(RmInitDamaged, DataDeclaredBeyondTheImageIsNoData)
{
	Everything plan;
	image = plan.write();
	const u32 real = image.data_capacity();
	image.put<u32>(image.data_at() - 8, 0x7FFFFFF0);
	image.put<u32>(image.data_at() - 4, 0x7FFFFFFF);
	const u32 beyond = real + 8;
	image.put(ImageBytes::node_at(plan.values) + 7, beyond);
	ASSERT_TRUE(adopt(rules, image));
	EXPECT_LE(rules->builder.data_buffer.buf_max, real);
	EXPECT_LE(rules->builder.data_buffer.buf_used, real);
	EXPECT_EQ(selected(rules.get(), "Input:B"), Ids{200});
	EXPECT_EQ(selected(rules.get(), "Input:A;Luma:5"), Ids{}); // its record is not there
	EXPECT_EQ(rm_get_export_size(rules.get()), image.size());
	take_log();
}

TEST_F(RmInitDamaged, KeyLongerThanFieldsCanSayIsRefused)
{
	for (const u32 bits : {65537u, 0x80000000u, 0xFFFFFFFFu}) {
		RuleImage plan;
		plan.used_bits(bits);
		expect_no_rules(plan);
	}
}

TEST_F(RmInitDamaged, MoreSlotsThanSourcesCanExistAreRefused)
{
	for (const u32 slots : {65536u, 0x80000000u, 0xFFFFFFFFu}) {
		RuleImage plan;
		plan.res_num(slots);
		expect_no_rules(plan);
	}
}

TEST_F(RmInitDamaged, RepeatedCountRecordsKeepNoOldBuffer)
{
	Everything plan;
	for (u32 i = 0; i < 20; ++i) {
		plan.used_bits(64 * i + 3);
		plan.res_num(i + 1);
	}
	ASSERT_TRUE(adopt_plan(plan));
	EXPECT_EQ(rules->used_bits, 64u * 19 + 3); // the last counts
	EXPECT_EQ(rules->res_num, 20u);
	EXPECT_TRUE(rm_clear(rules.get()));
	rules->rmInd.keyBuffer[39] = 1; // 20 words of key, 20 of mask
	rules->rmInd.resBuffer[19] = 1;
}

TEST_F(RmInitDamaged, RepeatedCountRecordThatIsTooLargeIsRefused)
{
	Everything plan;
	plan.used_bits(65537);
	expect_no_rules(plan);
}

TEST_F(RmInitDamaged, CountRecordWithoutItsBytesIsRefused)
{
	for (const int tag : {EXTMEM_TAG_RULE_USEDBITS, EXTMEM_TAG_RES_NUM}) {
		RuleImage three_bytes;
		three_bytes.hold(0, three_bytes.add_record(tag, "abc"));
		expect_no_rules(three_bytes);
		RuleImage outside;
		const u16 record = outside.add_record(tag, std::string("\1\0\0\0", 4));
		outside.record(record, 4, 4096);
		outside.hold(0, record);
		expect_no_rules(outside);
	}
}

TEST_F(RmInitDamaged, RepeatedNamesAreRefused)
{
	Everything rule_twice;
	rule_twice.rule("r");
	expect_no_rules(rule_twice, wrong_string("r"));
	Everything label_twice;
	label_twice.source("INPUT:B", {3, 1, 1, 0});
	expect_no_rules(label_twice, wrong_string("INPUT:B"));
}

TEST_F(RmInitDamaged, NamesThatCannotBeIndexedAreRefused)
{
	Everything foreign;
	foreign.rule("a$b");
	expect_no_rules(foreign, "[ctrie_insert][176]insert wrong string member = 36\n" +
					 wrong_string("a$b"));
	Everything empty;
	empty.source("", {0, 1, 1, 0});
	expect_no_rules(empty, wrong_string(""));
}

TEST_F(RmInitDamaged, NamesThatAreNoTextAreRefused)
{
	const struct {
		const char *what;
		void (*damage)(Everything &plan);
	} table[] = {
		{"label_without_nul",
		 [](Everything &plan) {
			 const u16 text = plan.child(plan.next(plan.input_b));
			 plan.record(text, plan.record_size(text) - 1, plan.record_offset(text));
		 }},
		{"rule_name_beyond_the_data",
		 [](Everything &plan) {
			 const u16 text = plan.child(plan.next(plan.rule_r));
			 plan.record(text, 2, 0x10000);
		 }},
		{"rule_name_that_wraps",
		 [](Everything &plan) {
			 const u16 text = plan.child(plan.next(plan.rule_r));
			 plan.record(text, 0xFFFFFFFF, 8);
		 }},
		{"property_without_a_string",
		 [](Everything &plan) { plan.child(plan.next(plan.input_b), kNoId); }},
		{"property_child_beyond_the_nodes",
		 [](Everything &plan) { plan.child(plan.next(plan.rule_r), 5000); }},
		{"rule_without_a_property",
		 [](Everything &plan) { plan.next(plan.rule_r, kNoId); }},
	};
	for (const auto &row : table) {
		SCOPED_TRACE(row.what);
		Everything plan;
		row.damage(plan);
		expect_no_rules(plan, wrong_string("(null)"));
	}
}

TEST_F(RmInitDamaged, CyclicRootChainIsRefused)
{
	Everything plan;
	const u16 empty = plan.add(EXTMEM_TAG_GENERAL);
	plan.append(0, empty);
	plan.next(empty, empty);
	expect_no_rules(plan);

	// Back to the first holder: its label comes a second time.
	Everything back;
	const u16 last = back.add(EXTMEM_TAG_GENERAL);
	back.append(0, last);
	back.next(last, back.child(0));
	expect_no_rules(back, wrong_string("Input:A"));
}

TEST_F(RmInitDamaged, CyclicNameChainsAreRefused)
{
	Everything plan;
	// The label is its own sibling, so there is no property to find.
	plan.next(plan.input_b, plan.input_b);
	expect_no_rules(plan, wrong_string("(null)"));
}

TEST_F(RmInitDamaged, RootChainBeyondTheNodesEndsThere)
{
	Everything plan;
	const u16 last = plan.add(EXTMEM_TAG_GENERAL);
	plan.append(0, last);
	plan.next(last, 60000);
	ASSERT_TRUE(adopt_plan(plan));
	EXPECT_EQ(selected(rules.get(), "Input:B"), Ids{200});
}

TEST_F(RmInitDamaged, FieldOutsideTheKeyCannotBeSet)
{
	const source_desc table[] = {
		{62, 3, 1, 0},    {64, 1, 1, 0},     {65535, 16, 1, 0}, {0, 17, 1, 0},
		{0, 0, 1, 0},     {0, 65535, 1, 0},  {0xFFFF, 1, 1, 0}, {48, 17, 1, 0},
	};
	for (const source_desc &field : table) {
		RuleImage plan;
		plan.source("A", field);
		plan.source("B", {61, 3, 5, 0}); // ends with the key
		plan.used_bits(64);
		plan.res_num(0);
		ASSERT_TRUE(adopt_plan(plan));
		EXPECT_FALSE(rm_set(rules.get(), "A", 0)) << field.shift << "+" << field.width;
		EXPECT_EQ(rules->rmInd.keyBuffer[0], 0u);
		EXPECT_EQ(rules->rmInd.keyBuffer[1], 0u);
		EXPECT_TRUE(rm_set(rules.get(), "B", 0));
		EXPECT_EQ(rules->rmInd.keyBuffer[0], u64{5} << 61);
		EXPECT_EQ(rules->rmInd.keyBuffer[1], u64{7} << 61);
	}
}

TEST_F(RmInitDamaged, SlotOutsideTheValueBufferCannotBeSet)
{
	for (const u64 slot : {u64{1}, u64{0x100000000}, ~u64{0}, u64{1} << 61}) {
		RuleImage plan;
		plan.value_source("L", {0, 1, 1, 0}, slot);
		plan.used_bits(1);
		plan.res_num(1);
		ASSERT_TRUE(adopt_plan(plan));
		EXPECT_FALSE(rm_set(rules.get(), "L:7", 0));
		EXPECT_EQ(rules->rmInd.resBuffer[0], 0u);
		take_log();
	}
}

// ---- without memory ----

TEST_F(RmInitMemory, EveryRefusalOfAnEmptyContextGivesEverythingBack)
{
	for (std::size_t nth = 1; nth <= kBlocksOfEmpty; ++nth) {
		const Refuse one = Refuse::only(nth);
		rm *context = somebodys_rules();
		EXPECT_FALSE(rm_init(&context, nullptr, 0)) << nth;
		EXPECT_TRUE(one.happened()) << nth;
		EXPECT_EQ(context, somebodys_rules());
		EXPECT_EQ(live_blocks(), 0u) << nth;
		EXPECT_EQ(take_log(), nth > kBlocksOfAdopted ? kNoRoot : "") << nth;
	}
	const Refuse beyond = Refuse::only(kBlocksOfEmpty + 1);
	EXPECT_TRUE(rm_init(rules.out(), nullptr, 0));
	EXPECT_FALSE(beyond.happened());
}

TEST_F(RmInitMemory, FirstBlockIsTheRecord)
{
	const Refuse all = Refuse::from(1);
	EXPECT_FALSE(rm_init(rules.out(), nullptr, 0));
	EXPECT_EQ(last_request().size, 17120u);
	EXPECT_EQ(allocations(), 1u);
}

TEST_F(RmInitMemory, EveryRefusalOfAnImageGivesEverythingBackAndLeavesIt)
{
	image = Everything().write();
	const std::vector<char> before = image.bytes();
	for (std::size_t nth = 1;; ++nth) {
		ASSERT_LT(nth, 100u);
		const Refuse one = Refuse::only(nth);
		rm *context = somebodys_rules();
		const bool made = rm_init(&context, image.data(), image.size());
		if (!one.happened()) {
			ASSERT_TRUE(made);
			EXPECT_GT(nth, kBlocksOfAdopted + 2);
			rm_destroy(&context);
			break;
		}
		EXPECT_FALSE(made) << nth;
		EXPECT_EQ(context, somebodys_rules()) << nth;
		EXPECT_EQ(live_blocks(), 0u) << nth;
		EXPECT_EQ(image.bytes(), before) << nth;
		const Lines log = take_log_lines();
		// A name that cannot be indexed is reported behind the trie's own line.
		if (!log.empty()) {
			EXPECT_EQ(log.back().rfind("[VEXIL][RM][rm_init] wrong string = ", 0), 0u)
				<< log.back();
		}
	}
}

} // namespace
