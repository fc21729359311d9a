// SPDX-License-Identifier: MIT
//
// Whole scenarios with an allocation failing at every point: nothing crashes, nothing leaks, a call
// says false or leaves something that works, and what was there before is still right.
//
// The television and its customer take more than 20000 allocations and milliseconds a run: failing
// each of them would take minutes. Instead every allocation of each single step fails in turn on a
// small product (the television's register lists, the customer's own IPs and one of every kind), and
// a strided sample with a seeded offset of the allocations of the whole: build both products, export,
// adopt, merge, export, adopt, load.
#include "tests/support/example.h"
#include "tests/support/sweep.h"

#include <climits>
#include <random>

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

class AllocationSweep : public testing::Test {
protected:
	static void SetUpTestSuite()
	{
		television();
		customer();
	}
	void TearDown() override { take_log(); } // messages are no part of what is asked here
};

Json parse(const std::string &text)
{
	return Json(static_cast<cJSON *>(vexil_json_parse(text.c_str())));
}

/** Every kind of block, of group and of setting, with names of the customer's product. */
constexpr char kEveryKind[] = R"({
  "VexilVersion": { "#version": { "MajorVersion": 2, "MinorVersion": 2, "Revision": 1 } },
  "PqFuncGroups": { "Folder": { "#version": { "MajorVersion": 2, "MinorVersion": 0, "Revision": 4 },
    "EveryKind": { "settings": {
      "Kind_Blocks": { "1.PQlevel": "SYNC", "group": { "All": {
        "hwreg": { "GRB_EN": 1, "GRB_FMT": "0x2" },
        "swreg": { "SW_UI_TINT": -3 },
        "lut": { "gamma_lut": "gamma_native_65.bin" },
        "alg": { "entry": "overdrive_60hz.bin" },
        "hwaddr": { "0x3006F060": 7 },
        "cus_swreg": { "CUS_WB_SLOT": 1 } } } },
      "Kind_Common": { "commonReg": true, "group": [
        { "One": { "hwreg": [ { "GRB_EN": 1 }, { "GRB_FMT": 0 } ] } },
        { "Two": { "hwreg": [ { "GRB_FMT": 1 }, { "GRB_EN": 1 } ] } } ] },
      "Kind_Preset": { "1.PresetRegs": "TABLE", "group": {
        "One": { "hwreg": { "GRB_EN": 0 } }, "Two": { "swreg": { "SW_UI_TINT": 2 } } } } } } } } })";

/** The customer's lists and files with two documents: its own IPs, and every kind of block. */
const Example &small()
{
	static const Example example = [] {
		Example result = customer();
		const ExampleText own_ips = result.groups.back();
		result.ips.clear();
		result.groups.clear();
		result.add_groups(own_ips);
		result.add_groups({"every kind", kEveryKind});
		return result;
	}();
	return example;
}

// ---- single steps, every allocation ----

TEST_F(AllocationSweep, ParsingADocument)
{
	for (const std::string *text :
	     {&television().software[0].text, &television().customer[0].text,
	      &small().groups[0].text, &small().groups[1].text}) {
		every_allocation([&](Mode mode, size_t nth) {
			Json document;
			const Outcome outcome = attempt(mode, nth, [&] {
				document = parse(*text);
				return document != nullptr;
			});
			EXPECT_EQ(outcome.done, !outcome.refused);
			return outcome.refused;
		});
	}
}

struct List {
	const std::string *text;
	ListReader read;
	ctrie pim::*names;
	const std::map<std::string, u32> *positions;
};

/** How many of a list's names the map does not know; those that it knows have their position. */
size_t missing_names(const pim *map, const List &list)
{
	size_t missing = 0;
	for (const auto &[name, position] : *list.positions) {
		const int found = ctrie_find(&(map->*list.names), name.c_str());
		if (found == INT_MIN)
			++missing;
		else
			EXPECT_EQ(static_cast<u32>(found), position) << name;
	}
	return missing;
}

TEST_F(AllocationSweep, InsertingARegisterList)
{
	const List lists[] = {
		{&television().hardware[0].text, pim_insert_regmap_json, &pim::regname_to_func,
		 &television().hardware_names},
		{&television().software[0].text, pim_insert_vregmap_json, &pim::vregname_to_func,
		 &television().software_names},
		{&television().customer[0].text, pim_insert_cus_vregmap_json,
		 &pim::cus_vregname_to_func, &television().customer_names},
	};
	for (const List &list : lists) {
		const Json document = parse(*list.text);
		ASSERT_TRUE(document);
		every_allocation([&](Mode mode, size_t nth) {
			Map map;
			EXPECT_TRUE(map.init());
			const Outcome outcome = attempt(
				mode, nth, [&] { return list.read(map.get(), document.get()); });
			EXPECT_TRUE(outcome.done); // a name that cannot be had is left out
			const size_t missing = missing_names(map.get(), list);
			if (mode == Mode::kOne) {
				EXPECT_EQ(missing, outcome.refused ? 1u : 0u);
			}
			// Once there is memory again, the same list adds what is missing.
			EXPECT_TRUE(list.read(map.get(), document.get()));
			EXPECT_EQ(missing_names(map.get(), list), 0u);
			return outcome.refused;
		});
	}
}

TEST_F(AllocationSweep, InsertingFilesAndHandlers)
{
	const std::string bytes(3000, 'x');
	every_allocation([&](Mode mode, size_t nth) {
		Map map;
		EXPECT_TRUE(map.init());
		EXPECT_TRUE(pim_insert_file(map.get(), "before", "old", 3));
		bool handler = false;
		bool file = false;
		const Outcome outcome = attempt(mode, nth, [&] {
			handler = pim_insert_handler(map.get(), "table", record_table<0>);
			file = pim_insert_file(map.get(), "file", bytes.data(),
					       static_cast<u32>(bytes.size()));
			return handler && file;
		});
		EXPECT_EQ(outcome.done, !outcome.refused);
		// Each can be had once there is memory again.
		if (!handler) {
			EXPECT_TRUE(pim_insert_handler(map.get(), "table", record_table<0>));
		}
		if (!file) {
			EXPECT_TRUE(pim_insert_file(map.get(), "file", bytes.data(),
						    static_cast<u32>(bytes.size())));
		}
		EXPECT_TRUE(insert(map.get(),
				   config("'lut': [{'table': 'before'}, {'table': 'file'}]")));
		EXPECT_EQ(load(map.get(), std::string("S#M")),
			  (Lines{"table0 DATA [old]", "table0 DATA [" + bytes + "]"}));
		return outcome.refused;
	});
}

/** A map with lists, files, handlers and one setting "S#M"; the groups of small() are to come. */
bool prepare_small(Map &map)
{
	return map.init() && prepare_example(map.get(), small()) &&
	       insert(map.get(), config("'hwreg': {'GRB_EN': 1}"));
}

Lines first_setting()
{
	return {"REGISTER {" + std::to_string(small().hardware_names.at("grb_en")) + "=1}"};
}

/** Loads whatever there is: what is delivered does not matter, only that it ends well. */
void load_every_node(pim *map)
{
	for (size_t id = 0; id < node_count(map); ++id)
		load(map, static_cast<u16>(id));
}

/** What the map knows of small() is right; with @all, it knows everything. */
void expect_found_labels(pim *map, Form form, bool all)
{
	expect_example_labels(map, small(), form, all ? small().groups.size() : 0);
}

TEST_F(AllocationSweep, InsertingFunctionGroups)
{
	ASSERT_EQ(small().groups.size(), 2u);
	ASSERT_GE(small().ips.size(), 6u);
	const Json documents[] = {parse(small().groups[0].text), parse(small().groups[1].text)};
	ASSERT_TRUE(documents[0] && documents[1]);
	every_allocation([&](Mode mode, size_t nth) {
		Map map;
		EXPECT_TRUE(prepare_small(map));
		size_t complete = 0;
		const auto go_on = [&] {
			while (complete < 2 && pim_insert(map.get(), documents[complete].get()))
				++complete;
			return complete == 2;
		};
		const Outcome outcome = attempt(mode, nth, go_on);
		EXPECT_EQ(outcome.done, !outcome.refused);
		EXPECT_EQ(load(map.get(), std::string("S#M")), first_setting());
		expect_example_labels(map.get(), small(), Form::kBuilt, complete);
		// Once there is memory again, what is missing can be added.
		EXPECT_TRUE(go_on());
		expect_example_labels(map.get(), small(), Form::kBuilt, 2);
		return outcome.refused;
	});
}

TEST_F(AllocationSweep, AdoptingAnImage)
{
	Map built;
	ASSERT_TRUE(prepare_small(built));
	ASSERT_EQ(insert_groups(built.get(), small()), 2u);
	const ImageBytes original = image_of(built.get());
	for (const RegisterTable &table : {RegisterTable{}, television().table}) {
		const Form form = table.empty() ? Form::kScanned : Form::kAddressed;
		every_allocation([&](Mode mode, size_t nth) {
			ImageBytes image = original;
			Map map;
			const Outcome outcome =
				attempt(mode, nth, [&] { return adopt(map, image, table); });
			EXPECT_TRUE(outcome.done || outcome.refused);
			if (outcome.done) { // a label may be missing, never wrong
				EXPECT_TRUE(register_handlers(map.get(), small()));
				expect_found_labels(map.get(), form, !outcome.refused);
			} else if (map.get()) { // a file may be missing
				load_every_node(map.get());
			}
			pim_destroy(map.out());
			// The image is as good as before for the next attempt.
			EXPECT_TRUE(adopt(map, image, table));
			EXPECT_TRUE(register_handlers(map.get(), small()));
			expect_found_labels(map.get(), form, true);
			return outcome.refused;
		});
	}
}

TEST_F(AllocationSweep, MergingExportingAndLoading)
{
	Map base;
	Map sub;
	ASSERT_TRUE(prepare_small(base));
	ASSERT_TRUE(prepare_small(sub));
	ASSERT_EQ(insert_groups(sub.get(), small()), 2u);
	const std::string base_bytes = store_bytes(base.get());
	const std::string sub_bytes = store_bytes(sub.get());
	every_allocation([&](Mode mode, size_t nth) {
		Map map;
		bool merged = false;
		const Outcome outcome = attempt(mode, nth, [&] {
			if (!map.init())
				return false;
			merged = pim_merge(map.get(), base.get(), sub.get());
			// Neither exporting nor loading allocates.
			const size_t before = allocations();
			std::vector<char> image(pim_get_export_size(map.get()));
			EXPECT_EQ(pim_export(map.get(), image.data()), image.size());
			load(map.get(), std::string("S#M"));
			EXPECT_EQ(allocations(), before);
			return merged;
		});
		EXPECT_TRUE(outcome.done || outcome.refused);
		EXPECT_EQ(store_bytes(base.get()), base_bytes);
		EXPECT_EQ(store_bytes(sub.get()), sub_bytes);
		if (merged) {
			EXPECT_TRUE(register_handlers(map.get(), small()));
			expect_found_labels(map.get(), Form::kScanned, !outcome.refused);
		}
		return outcome.refused;
	});
}

// ---- the whole, a sample ----

/** Everything from texts to a merged map that a television runs on. */
class WholeScenario {
public:
	/** Stops at the first step that says false. */
	bool run()
	{
		return build(base, television(), base_groups) &&
		       build(sub, customer(), sub_groups) && save(base, &base_image) &&
		       save(sub, &sub_image) &&
		       adopt_map(adopted_base, base_image, television().table) &&
		       adopt_map(adopted_sub, sub_image, customer().table) && merge() &&
		       save(merged, &merged_image) &&
		       adopt_map(adopted, merged_image, television().table);
	}

	/**
	 * Whatever there is at the end delivers what the files say. With @all, everything is there:
	 * without memory for it a name may be left out.
	 */
	void expect_right(bool all) const
	{
		const Example &shop = merged_example();
		const auto check = [&](const Map &map, const Example &example, Form form,
				       size_t complete) {
			if (map.get() && register_handlers(map.get(), television()))
				expect_example_labels(map.get(), example, form, all ? complete : 0);
		};
		check(base, television(), Form::kBuilt, base_groups);
		check(sub, customer(), Form::kBuilt, sub_groups);
		check(adopted_base, television(), Form::kAddressed, television().groups.size());
		check(adopted_sub, customer(), Form::kAddressed, customer().groups.size());
		if (is_merged)
			check(merged, shop, Form::kAddressed, ~size_t{0});
		check(adopted, shop, Form::kAddressed, ~size_t{0});
	}

	static const Example &merged_example()
	{
		static const Example example = television().merged(customer());
		return example;
	}

private:
	/** Lists drop the names for which there is no memory; nobody should go on without them. */
	static bool lost_registers(const Map &map, const Example &example)
	{
		return missing_names(map.get(), {nullptr, nullptr, &pim::regname_to_func,
						 &example.hardware_names}) ||
		       missing_names(map.get(), {nullptr, nullptr, &pim::vregname_to_func,
						 &example.software_names}) ||
		       missing_names(map.get(), {nullptr, nullptr, &pim::cus_vregname_to_func,
						 &example.customer_names});
	}
	static bool build(Map &map, const Example &example, size_t &groups)
	{
		if (!map.init() || !prepare_example(map.get(), example) ||
		    lost_registers(map, example))
			return false;
		groups = insert_groups(map.get(), example);
		return groups == example.groups.size() && pim_finish(map.get());
	}
	static bool save(const Map &map, ImageBytes *image)
	{
		std::vector<char> bytes(pim_get_export_size(map.get()));
		const bool saved = pim_export(map.get(), bytes.data()) == bytes.size();
		*image = ImageBytes(std::move(bytes));
		return saved;
	}
	static bool adopt_map(Map &map, ImageBytes &image, const RegisterTable &table)
	{
		if (adopt(map, image, table))
			return register_handlers(map.get(), television());
		if (map.get())
			load_every_node(map.get());
		pim_destroy(map.out());
		return false;
	}
	bool merge()
	{
		is_merged = merged.init() &&
			    pim_merge(merged.get(), adopted_base.get(), adopted_sub.get()) &&
			    register_handlers(merged.get(), television());
		return is_merged;
	}

	ImageBytes base_image, sub_image, merged_image; // outlive the maps over them
	Map base, sub, adopted_base, adopted_sub, merged, adopted;
	size_t base_groups = 0, sub_groups = 0;
	bool is_merged = false;
};

TEST_F(AllocationSweep, WholeScenarioSampled)
{
	constexpr size_t kSamples = 200; // for each mode
	constexpr u32 kSeed = 7041;
	SCOPED_TRACE("seed " + std::to_string(kSeed));
	std::mt19937 random(kSeed);

	const size_t blocks = live_blocks();
	const size_t before = allocations();
	{
		WholeScenario scenario;
		ASSERT_TRUE(scenario.run());
		scenario.expect_right(true);
	}
	const size_t total = allocations() - before;
	ASSERT_GT(total, 10000u);
	ASSERT_EQ(live_blocks(), blocks);

	for (const Mode mode : {Mode::kOne, Mode::kAllLater}) {
		const size_t stride = total / kSamples;
		for (size_t nth = 1 + random() % stride; nth <= total; nth += stride) {
			SCOPED_TRACE((mode == Mode::kOne ? "allocation " : "allocations from ") +
				     std::to_string(nth) + " of " + std::to_string(total));
			{
				WholeScenario scenario;
				const Outcome outcome =
					attempt(mode, nth, [&] { return scenario.run(); });
				ASSERT_TRUE(outcome.refused);
				scenario.expect_right(false);
			}
			take_log();
			ASSERT_EQ(live_blocks(), blocks);
			ASSERT_FALSE(HasFailure());
		}
	}
}

TEST_F(AllocationSweep, WholeScenarioWithoutAnyMemory)
{
	WholeScenario scenario;
	const Outcome outcome = attempt(Mode::kAllLater, 1, [&] { return scenario.run(); });
	EXPECT_FALSE(outcome.done);
	EXPECT_TRUE(outcome.refused);
	EXPECT_EQ(live_blocks(), 0u);
}

} // namespace
