// SPDX-License-Identifier: MIT
//
// Images as the library itself makes them, in every way that it has, verify.
#include <functional>

#include "tests/support/example.h"
#include "tests/support/rm_json.h"
#include "tests/support/rule_model.h"
#include "tests/support/verify.h"

namespace {

using namespace vexil_test;

const Example &television()
{
	static const Example example("tv");
	return example;
}

const Example &customer()
{
	static const Example example("customer");
	return example;
}

std::string example_text(const std::string &path)
{
	return read_bytes(std::filesystem::path(VEXIL_EXAMPLES) / path);
}

bool feed_rules(rm *rules, const pim *map, const std::string &text)
{
	const Json document(static_cast<cJSON *>(vexil_json_parse(text.c_str())));
	return document && rm_insert_source_json(rules, document.get()) &&
	       rm_insert(rules, document.get(), map);
}

class Producers : public testing::Test {
protected:
	void TearDown() override { take_log(); } // messages are no part of what is asked here
};

class MapProducers : public Producers {
protected:
	/** The image, and the bytes that adoption leaves of it. */
	static void expect_sound(pim *built, const RegisterTable &table)
	{
		const ImageBytes image = image_of(built);
		EXPECT_EQ(fault_of(image), kSound);
		for (const bool addressed : {false, true}) {
			SCOPED_TRACE(addressed ? "in address form" : "scanned");
			ImageBytes bytes = image;
			Map map;
			ASSERT_TRUE(adopt(map, bytes, addressed ? table : RegisterTable{}));
			EXPECT_EQ(fault_of(bytes), kSound);
			EXPECT_EQ(fault_of(image_of(map.get())), kSound);
			// What is inserted then takes the room behind the nodes and the data.
			pim_insert_file(map.get(), "late.bin", "late", 4);
			EXPECT_EQ(fault_of(image_of(map.get())), kSound);
		}
	}
};

TEST_F(MapProducers, EmptyMap)
{
	Map map;
	ASSERT_TRUE(map.init());
	expect_sound(map.get(), television().table);
}

TEST_F(MapProducers, ExamplesAsBuiltAndAdopted)
{
	for (const Example *example : {&television(), &customer()}) {
		Map map;
		ASSERT_TRUE(build_example(map, *example));
		expect_sound(map.get(), television().table);
		ASSERT_TRUE(pim_finish(map.get()));
		EXPECT_EQ(fault_of(image_of(map.get())), kSound);
	}
}

TEST_F(MapProducers, MergedExamples)
{
	Map base, sub;
	ASSERT_TRUE(build_example(base, television()));
	ASSERT_TRUE(build_example(sub, customer()));
	for (const bool addressed : {false, true}) {
		Map map;
		const RegisterTable &table = television().table;
		ASSERT_TRUE(pim_init(map.out(), nullptr, 0, addressed ? table.data() : nullptr,
				     addressed ? table.size() : 0));
		ASSERT_TRUE(pim_merge(map.get(), base.get(), sub.get()));
		expect_sound(map.get(), table);
		Map again, empty;
		ASSERT_TRUE(again.init() && empty.init());
		ASSERT_TRUE(pim_merge(again.get(), map.get(), sub.get()));
		expect_sound(again.get(), table);
		ASSERT_TRUE(again.init());
		ASSERT_TRUE(pim_merge(again.get(), empty.get(), map.get()));
		expect_sound(again.get(), table);
	}
}

TEST_F(MapProducers, MergedWithANodeThatGotNoRecord)
{
	Map base, sub, merged;
	ASSERT_TRUE(base.init() && sub.init() && merged.init());
	ASSERT_TRUE(pim_insert_file(base.get(), "a.bin", "bytes", 5));
	std::string large(4000, 'x');
	{
		const Refuse refusal = Refuse::from(1);
		EXPECT_EQ(extmem_get_data(&sub->builder, EXTMEM_TAG_DATA, large.data(), 4000).id,
			  kNoId);
		ASSERT_TRUE(refusal.happened());
	}
	const ImageBytes image = image_of(sub.get());
	ASSERT_EQ(image.record_size(1), 0xFFFFFFFFu);
	EXPECT_EQ(fault_of(image), kSound);
	// The merge moves every offset, also that of the record that is none.
	ASSERT_TRUE(pim_merge(merged.get(), base.get(), sub.get()));
	expect_sound(merged.get(), television().table);
}

TEST_F(MapProducers, DocumentsThatFailHalfWay)
{
	const std::string good = "'Good': {'group': {'M': {'hwreg': {'R0': 1}}}}";
	const std::string long_name(250, 'n');
	for (const std::string &text : {
		     groups("'A': {'settings': {" + good + ", '" + long_name +
			    "': {'group': {'LongMember': {}}}}}"),
		     groups("'A': {'settings': {" + good +
			    ", 'B': {'commonReg': true, 'group': {'M': {}, 'M2': {}}}}}"),
		     groups("'A': {'#version': {'MajorVersion': 9}, 'settings': {}}"),
		     groups("'A': {'settings': {" + good +
			    "}}, 'B': {'#version': {'MajorVersion': 9}}"),
		     groups("'caf\xC3\xA9!': {'settings': {" + good + "}}"),
		     groups("'A': {'settings': {'P': {'1.PresetRegs': 'T', 'group': {'M': {}, 'N!': {'hwreg': {'R1': 1}}}}}}"),
		     groups("'A': {'settings': {'P': {'1.PresetRegs': 'T'}}}"),
		     groups("'A': {'settings': [[1]]}"),
	     }) {
		SCOPED_TRACE(text.substr(0, 100));
		Map map;
		ASSERT_TRUE(map.init());
		ASSERT_TRUE(pim_insert_regmap(map.get(), "R0", 0));
		ASSERT_TRUE(pim_insert_regmap(map.get(), "R1", 1));
		EXPECT_FALSE(pim_insert_file(map.get(), "no name!", "x", 1));
		insert(map.get(), text);
		expect_sound(map.get(), {reg(1, 2, 0, 4), reg(2, 3, 0, 4)});
		insert(map.get(), groups("'Z': {'settings': {" + good + "}}"));
		expect_sound(map.get(), {reg(1, 2, 0, 4), reg(2, 3, 0, 4)});
	}
}

TEST_F(MapProducers, RegistersThatTheTableRefuses)
{
	Map map;
	ASSERT_TRUE(map.init());
	for (u32 i = 0; i < 4; ++i)
		ASSERT_TRUE(pim_insert_regmap(map.get(), ("R" + std::to_string(i)).c_str(), i));
	for (const char *level : {"IND", "PI", "L1", "L2", "L3", "SYNC", "?"})
		ASSERT_TRUE(insert(
			map.get(),
			groups("'" + std::string(level + (*level == '?')) +
			       "ip': {'settings': {'S" + (*level == '?' ? "D" : level) +
			       "': {'1.PQlevel': '" + level +
			       "', 'group': {'M': {'hwreg': {'R3': 1, 'R1': 1, 'R0': 2, 'R2': 3}}}}}}")));
	expect_sound(map.get(),
		     {reg(1, 7, 0, 4), reg(1, 7, 4, 4), reg(0, 0, 0, 4, false), reg(0, 0, 0, 4)});
}

TEST_F(MapProducers, MoreNodesThanIds)
{
	Map map;
	ASSERT_TRUE(map.init());
	// Eight nodes an IP; the last ones fail.
	bool inserted = true;
	for (int i = 0; inserted || i % 100 != 0; ++i)
		inserted = insert(map.get(),
				  groups("'ip" + std::to_string(i) + "': {'settings': {}}")) &&
			   inserted;
	EXPECT_GT(map->builder.node_buffer.buf_used / 16, 65535u);
	EXPECT_EQ(fault_of(image_of(map.get())), kSound);
}

/** @build with each of its allocations failing in turn, then with all from there on; see @check. */
void each_failing_allocation(const std::function<void()> &build, const std::function<void()> &check)
{
	for (const bool all_later : {false, true}) {
		bool refused = true;
		for (std::size_t nth = 1; refused; ++nth) {
			SCOPED_TRACE("allocation " + std::to_string(nth));
			{
				const Refuse refusal =
					all_later ? Refuse::from(nth) : Refuse::only(nth);
				build();
				refused = refusal.happened();
			}
			check();
			take_log();
			ASSERT_FALSE(testing::Test::HasFailure());
			ASSERT_LT(nth, 20000u);
		}
	}
}

TEST_F(MapProducers, MapsOfWhichAnAllocationFailed)
{
	const Example &example = customer();
	std::size_t images = 0;
	Map map;
	each_failing_allocation(
		[&] {
			if (!map.init())
				return;
			prepare_example(map.get(), example);
			// The first document that fails does not stop the others.
			for (const ExampleText &text : example.groups)
				feed(map.get(), text.text, pim_insert);
		},
		[&] {
			if (!map.get())
				return;
			++images;
			const ImageBytes image = image_of(map.get());
			ASSERT_EQ(fault_of(image), kSound);
		});
	EXPECT_GT(images, 1000u);
}

class RuleProducers : public Producers {
protected:
	static void expect_code(rm *built, vexil_image_code code)
	{
		const ImageBytes image = image_of(built);
		EXPECT_EQ(fault_of(image).code, code);
		ImageBytes bytes = image;
		Rules rules;
		ASSERT_TRUE(adopt(rules, bytes));
		EXPECT_EQ(bytes.bytes(), image.bytes());
		EXPECT_EQ(fault_of(image_of(rules.get())).code, code);
	}
};

TEST_F(RuleProducers, EmptyAndUnfinishedRules)
{
	Map map;
	Rules rules;
	ASSERT_TRUE(map.init() && rules.init());
	expect_code(rules.get(), VEXIL_IMAGE_SOUND);
	ASSERT_TRUE(add_rules(rules.get(), map.get(), rule("R", {rule_case("")})));
	expect_code(rules.get(), VEXIL_IMAGE_SOUND);
	ASSERT_TRUE(rm_finish(rules.get()));
	expect_code(rules.get(), VEXIL_IMAGE_SOUND);
	ASSERT_TRUE(rm_finish(rules.get()));
	expect_code(rules.get(), VEXIL_IMAGE_SOUND);
}

TEST_F(RuleProducers, ExampleAsBuiltAdoptedAndMerged)
{
	Map base_map, sub_map, merged_map;
	ASSERT_TRUE(build_example(base_map, television()));
	ASSERT_TRUE(build_example(sub_map, customer()));
	ASSERT_TRUE(merged_map.init());
	ASSERT_TRUE(pim_merge(merged_map.get(), base_map.get(), sub_map.get()));
	Rules base, sub, merged;
	ASSERT_TRUE(base.init() && sub.init() && merged.init());
	const std::string sources = example_text("tv/sources/sources.json");
	for (rm *rules : {base.get(), sub.get()})
		ASSERT_TRUE(feed_rules(rules, base_map.get(), sources));
	std::filesystem::path folder = std::filesystem::path(VEXIL_EXAMPLES) / "tv/rules";
	for (const auto &entry : std::filesystem::directory_iterator(folder))
		ASSERT_TRUE(feed_rules(base.get(), base_map.get(), read_bytes(entry.path())));
	ASSERT_TRUE(feed_rules(sub.get(), sub_map.get(), example_text("customer/rules/shop.json")));
	expect_code(base.get(), VEXIL_IMAGE_SOUND);
	rm_finish(base.get());
	rm_finish(sub.get());
	expect_code(base.get(), VEXIL_IMAGE_SOUND);
	expect_code(sub.get(), VEXIL_IMAGE_SOUND);
	ASSERT_TRUE(rm_merge(merged.get(), base.get(), sub.get(), merged_map.get()));
	expect_code(merged.get(), VEXIL_IMAGE_SOUND);
}

TEST_F(RuleProducers, SubRulesThatTheBaseReplacesAreStillLedTo)
{
	Map map;
	Rules base, sub, merged;
	ASSERT_TRUE(map.init() && base.init() && sub.init() && merged.init());
	add_name(map->ipname_map, "a", 10);
	const std::string sources =
		enumerated("Input", {"HDMI", "DTV"}) + ", " + value_source("Luma");
	const std::string redefined =
		"'Scene': {'content': ['Dark'], 'define': {'Dark': {'Luma': '[0,10]'}}}";
	for (rm *rules : {base.get(), sub.get()}) {
		ASSERT_TRUE(declare(rules, sources + ", " + redefined));
		ASSERT_TRUE(add_rules(rules, map.get(),
				      rule("Leaf", {rule_case("'Scene': 'Dark'", "'a'")})));
	}
	ASSERT_TRUE(add_rules(sub.get(), map.get(),
			      rule("New", {rule_case("'Input': 'DTV'", "", "'Leaf'")})));
	ASSERT_TRUE(rm_finish(base.get()) && rm_finish(sub.get()));
	ASSERT_TRUE(rm_merge(merged.get(), base.get(), sub.get(), map.get()));
	expect_code(merged.get(), VEXIL_IMAGE_SOUND);
}

TEST_F(RuleProducers, MergedRulesWithoutSources)
{
	// Their key records are empty: merging moves where those of the second part would be.
	Map map;
	Rules base, sub, merged;
	ASSERT_TRUE(map.init() && base.init() && sub.init() && merged.init());
	add_name(map->ipname_map, "a", 10);
	ASSERT_TRUE(add_rules(base.get(), map.get(), rule("R", {rule_case("", "'a'")})));
	ASSERT_TRUE(add_rules(sub.get(), map.get(), rule("S", {rule_case("", "'a'")})));
	ASSERT_TRUE(rm_finish(base.get()) && rm_finish(sub.get()));
	ASSERT_TRUE(rm_merge(merged.get(), base.get(), sub.get(), map.get()));
	expect_code(merged.get(), VEXIL_IMAGE_SOUND);
}

TEST_F(RuleProducers, DocumentsAtRandom)
{
	std::size_t sound = 0, rings = 0;
	for (unsigned seed = 90001; seed < 90401; ++seed) {
		SCOPED_TRACE(seed);
		const model::Generator generator(seed);
		Map map;
		Rules rules;
		ASSERT_TRUE(map.init() && rules.init());
		states::add_names(map.get());
		model::build(generator, map.get(), rules.get());
		const Fault fault = fault_of(image_of(rules.get()));
		sound += fault.code == VEXIL_IMAGE_SOUND;
		rings += fault.code == VEXIL_IMAGE_RULE_RING;
		EXPECT_TRUE(fault == kSound || fault.code == VEXIL_IMAGE_RULE_RING)
			<< testing::PrintToString(fault);
		expect_code(rules.get(), fault.code);
		Rules merged, second;
		ASSERT_TRUE(merged.init() && second.init());
		model::build(generator, map.get(), second.get());
		ASSERT_TRUE(rm_merge(merged.get(), rules.get(), second.get(), map.get()));
		expect_code(merged.get(), fault.code);
	}
	EXPECT_EQ(sound + rings, 400u);
	EXPECT_GT(sound, 150u);
	EXPECT_GT(rings, 100u);
}

TEST_F(RuleProducers, RingOfRules)
{
	Map map;
	Rules rules;
	ASSERT_TRUE(map.init() && rules.init());
	ASSERT_TRUE(declare(rules.get(), enumerated("Input", {"HDMI", "DTV"})));
	// It never runs in a circle: the conditions exclude each other.
	ASSERT_TRUE(add_rules(rules.get(), map.get(),
			      rule("A", {rule_case("'Input': 'HDMI'", "", "'B'")}) + ", " +
				      rule("B", {rule_case("'Input': 'DTV'", "", "'A'")})));
	ASSERT_TRUE(rm_finish(rules.get()));
	expect_code(rules.get(), VEXIL_IMAGE_RULE_RING);
	EXPECT_TRUE(rm_trigger(rules.get(), nullptr));
}

/** Sources of every kind, cases that are refused, names that are. */
constexpr const char *kSources =
	"'Input': {'content': ['HDMI', 'DTV', 'HDMI', 'bad?']}, 'Luma': {'content': {}}, "
	"'Luma ': {'content': {}}, 'bad!': {'content': {}}, "
	"'Scene': {'content': ['Dark', 'Odd', 'no?'], 'define': {'Dark': {'Luma': '[0,10]'}, "
	"'Odd': {'Later': '[1,2]', 'Input': '(3,4)'}, 'no?': {}}}";

std::string every_rule()
{
	return rule("Leaf", {rule_case("'Scene': 'Dark'", "'a'")}) + ", " +
	       rule("Picture",
		    {rule_case("'Input': ['HDMI', 'DTV'], 'Luma': ['[3,10)', '(0,1)']", "'a', 'p'",
			       "'Leaf', 'Missing'"),
		     rule_case("'Scene': 'Odd'", "'a'"), rule_case("'Input': 'None'", "'a'"),
		     rule_case("'Input': 'HDMI'", "'unknown'"), "{'settings': []}",
		     rule_case("'Input': []", "'a'")}) +
	       ", " + rule("Leaf", {rule_case("", "'a'")}) + ", " +
	       rule("bad?", {rule_case("", "'a'")}) +
	       ", 'Old': {'#version': {'MajorVersion': 1}, 'rules': []}";
}

TEST_F(RuleProducers, DocumentsThatAreRefusedInParts)
{
	Map map;
	Rules rules;
	ASSERT_TRUE(map.init() && rules.init());
	add_name(map->ipname_map, "a", 10);
	add_name(map->preset_map, "p", 20);
	declare(rules.get(), kSources);
	ASSERT_TRUE(add_rules(rules.get(), map.get(), every_rule()));
	EXPECT_FALSE(rm_finish(rules.get()));
	expect_code(rules.get(), VEXIL_IMAGE_SOUND);
}

TEST_F(RuleProducers, RulesOfWhichAnAllocationFailed)
{
	std::size_t images = 0;
	Map map;
	ASSERT_TRUE(map.init());
	add_name(map->ipname_map, "a", 10);
	add_name(map->preset_map, "p", 20);
	Rules rules;
	const Json sources = json(rule_lists(kSources));
	const Json groups = json(rule_groups(every_rule()));
	each_failing_allocation(
		[&] {
			if (!rules.init())
				return;
			rm_insert_source_json(rules.get(), sources.get());
			rm_insert(rules.get(), groups.get(), map.get());
			rm_finish(rules.get());
		},
		[&] {
			if (!rules.get())
				return;
			++images;
			ASSERT_EQ(fault_of(image_of(rules.get())), kSound);
		});
	EXPECT_GT(images, 100u);
}

} // namespace
