// SPDX-License-Identifier: MIT
//
// The way of a driver through the table, from the customer's rule documents to merged rules and
// what they select, with allocations failing: nothing crashes or leaks, a call says false or leaves
// something that works, and rules that were there before answer as before.
#include "module/pubif.h"
#include "tests/support/example.h"
#include "tests/support/rm_json.h"
#include "tests/support/sweep.h"

namespace {

using namespace vexil_test;

const _PUBIF_VEXIL &table()
{
	return vexil::kPublicInterface;
}

constexpr const char *kState = "Site:Shop;AmbientLux:400;Demo:Motion;Luma:430;UserColorTemp:Warm2";
constexpr const char *kRule = "ShopStage";

/** What the rules select. */
struct Selection {
	std::vector<u16> settings;
	std::vector<u16> presets;

	bool operator==(const Selection &) const = default;
};

/** A document that is deleted with its scope. */
class Document {
public:
	explicit Document(const std::string &text)
	    : json_(table().fp_CB_vexil_json_parse(text.c_str()))
	{
	}
	~Document() { table().fp_CB_vexil_json_delete(json_); }
	Document(const Document &) = delete;
	Document &operator=(const Document &) = delete;

	[[nodiscard]] void *get() const { return json_; }

private:
	void *json_;
};

/** A context of the table that is destroyed with its scope. */
class RuleContext {
public:
	RuleContext() = default;
	~RuleContext() { table().fp_CB_vexil_rm_destroy(&rules); }
	RuleContext(const RuleContext &) = delete;
	RuleContext &operator=(const RuleContext &) = delete;

	void *rules = nullptr;
};

/** Sets the state and triggers; false when a call says so. */
bool select(void *rules, Selection *selection)
{
	void *handler = nullptr;
	const _PUBIF_VEXIL &vexil = table();
	bool done = vexil.fp_CB_vexil_rm_create_handler(rules, &handler) &&
		    vexil.fp_CB_vexil_rm_handler_set(handler, kState, 0) &&
		    vexil.fp_CB_vexil_rm_handler_trigger(handler, kRule);
	if (done) {
		u16 *ids = nullptr;
		size_t count = vexil.fp_CB_vexil_rm_handler_get_result(handler, &ids);
		selection->settings.assign(ids, ids + count);
		count = vexil.fp_CB_vexil_rm_handler_get_preset(handler, &ids);
		selection->presets.assign(ids, ids + count);
	}
	vexil.fp_CB_vexil_rm_handler_destroy(&handler);
	return done;
}

bool export_rules(void *rules, std::vector<char> *image)
{
	image->resize(table().fp_CB_vexil_rm_get_export_size(rules));
	return table().fp_CB_vexil_rm_export(rules, image->data()) == image->size();
}

/** Maps and texts; all of it there before anything fails. */
struct Setting {
	Setting()
	{
		const Example customer("customer");
		EXPECT_TRUE(sub_map.init() && prepare_example(sub_map.get(), customer));
		EXPECT_EQ(insert_groups(sub_map.get(), customer), customer.groups.size());
		EXPECT_TRUE(base_map.init() &&
			    insert(base_map.get(), groups("'Ip': {'settings': {}}")));
		EXPECT_TRUE(merged_map.init() &&
			    pim_merge(merged_map.get(), base_map.get(), sub_map.get()));
		const std::filesystem::path folder = std::filesystem::path(VEXIL_EXAMPLES);
		sources = read_bytes(folder / "tv/sources/sources.json");
		rules = read_bytes(folder / "customer/rules/shop.json");

		RuleContext base;
		const Document source_document(sources);
		const Document rule_document(R"({"PqRuleGroups": {"Base": {"rules": []}}})");
		EXPECT_TRUE(table().fp_CB_vexil_rm_init(&base.rules, nullptr, 0));
		EXPECT_TRUE(table().fp_CB_vexil_rm_insert_source_json(base.rules,
								      source_document.get()));
		EXPECT_TRUE(table().fp_CB_vexil_rm_insert(base.rules, rule_document.get(),
							  base_map.get()));
		EXPECT_TRUE(table().fp_CB_vexil_rm_finish(base.rules));
		EXPECT_TRUE(export_rules(base.rules, &base_image));
	}

	Map base_map, sub_map, merged_map;
	std::string sources, rules;
	std::vector<char> base_image;
};

/** Documents to rules, to an image, adopted, merged with the base's, and asked after each step. */
class RuleScenario {
public:
	explicit RuleScenario(Setting &setting) : setting_(setting), base_bytes_(setting.base_image)
	{
	}

	/** Stops at the first step that says false. */
	bool run()
	{
		const _PUBIF_VEXIL &vexil = table();
		return compile() && ask(built, &by_built) &&
		       export_rules(built.rules, &built_bytes_) &&
		       vexil.fp_CB_vexil_rm_init(&adopted.rules, built_bytes_.data(),
						 static_cast<u32>(built_bytes_.size())) &&
		       ask(adopted, &by_adopted) &&
		       vexil.fp_CB_vexil_rm_init(&base.rules, base_bytes_.data(),
						 static_cast<u32>(base_bytes_.size())) &&
		       vexil.fp_CB_vexil_rm_init(&merged.rules, nullptr, 0) &&
		       vexil.fp_CB_vexil_rm_merge(merged.rules, base.rules, adopted.rules,
						  setting_.merged_map.get()) &&
		       ask(merged, &by_merged);
	}

	/** By which the sub's ids move in the merged map. */
	[[nodiscard]] u16 shift() const
	{
		return static_cast<u16>(setting_.base_map->builder.node_buffer.buf_used /
					sizeof(extmem_node));
	}

	RuleContext built, adopted, base, merged;
	Selection by_built, by_adopted, by_merged;
	int asked = 0; // contexts that have answered

private:
	bool ask(const RuleContext &context, Selection *selection)
	{
		const bool answered = select(context.rules, selection);
		asked += answered;
		return answered;
	}
	bool compile()
	{
		const _PUBIF_VEXIL &vexil = table();
		const Document sources(setting_.sources);
		const Document rules(setting_.rules);
		return vexil.fp_CB_vexil_rm_init(&built.rules, nullptr, 0) &&
		       vexil.fp_CB_vexil_rm_insert_source_json(built.rules, sources.get()) &&
		       vexil.fp_CB_vexil_rm_insert(built.rules, rules.get(),
						   setting_.sub_map.get()) &&
		       vexil.fp_CB_vexil_rm_finish(built.rules);
	}

	Setting &setting_;
	std::vector<char> base_bytes_; // adopted in place
	std::vector<char> built_bytes_;
};

class RuleSweep : public testing::Test {
protected:
	void TearDown() override { take_log(); } // messages are no part of what is asked here

	/** @samples of the allocations of a whole scenario fail, one at a time or from there on. */
	void sweep(bool all_later, size_t samples)
	{
		Setting setting;
		const size_t blocks = live_blocks();
		const size_t before = allocations();
		size_t total = 0;
		Selection reference;
		{
			RuleScenario scenario(setting);
			ASSERT_TRUE(scenario.run());
			total = allocations() - before;
			reference = scenario.by_built;
			expect_right(scenario, reference);
			EXPECT_EQ(scenario.by_merged, moved(reference, scenario.shift()));
		}
		ASSERT_GT(reference.settings.size(), 5u);
		ASSERT_GT(reference.presets.size(), 0u);
		ASSERT_GT(total, samples);
		for (size_t sample = 0; sample < samples; ++sample) {
			const size_t nth = 1 + sample * total / samples;
			SCOPED_TRACE("allocation " + std::to_string(nth) + " of " +
				     std::to_string(total));
			{
				RuleScenario scenario(setting);
				{
					const Refuse refusal =
						all_later ? Refuse::from(nth) : Refuse::only(nth);
					scenario.run();
					ASSERT_TRUE(refusal.happened());
					tally().count();
				}
				expect_right(scenario, reference);
			}
			take_log();
			ASSERT_EQ(live_blocks(), blocks);
			ASSERT_FALSE(HasFailure());
		}
	}

	/** @some in the same order as in @all, which may have more. */
	static bool is_part(const std::vector<u16> &some, const std::vector<u16> &all)
	{
		size_t at = 0;
		for (const u16 id : all)
			at += at < some.size() && some[at] == id;
		return at == some.size();
	}

	static Selection moved(Selection selection, u16 by)
	{
		for (std::vector<u16> *ids : {&selection.settings, &selection.presets}) {
			for (u16 &id : *ids)
				id = static_cast<u16>(id + by);
		}
		return selection;
	}

	static bool is_part(const Selection &some, const Selection &all)
	{
		return is_part(some.settings, all.settings) && is_part(some.presets, all.presets);
	}

	/**
	 * A rule ends with the case for which there was no memory, and a list that cannot grow
	 * begins anew: such calls may select less, and nothing else. Asked again, every context
	 * that answered selects what was compiled.
	 */
	static void expect_right(const RuleScenario &scenario, const Selection &reference)
	{
		Selection built, again;
		if (scenario.asked > 0) {
			EXPECT_TRUE(select(scenario.built.rules, &built));
			EXPECT_TRUE(is_part(built, reference));
			EXPECT_TRUE(is_part(scenario.by_built, built));
		}
		if (scenario.asked > 1) {
			EXPECT_TRUE(is_part(scenario.by_adopted, built));
			EXPECT_TRUE(select(scenario.adopted.rules, &again));
			EXPECT_EQ(again, built);
		}
		if (scenario.asked > 2) {
			const Selection merged = moved(built, scenario.shift());
			EXPECT_TRUE(is_part(scenario.by_merged, merged));
			EXPECT_TRUE(select(scenario.merged.rules, &again));
			EXPECT_EQ(again, merged);
		}
	}
};

TEST_F(RuleSweep, WholeScenarioWithOneAllocationFailing)
{
	sweep(false, 1000);
}

TEST_F(RuleSweep, WholeScenarioWithoutMemoryFromSomePointOn)
{
	sweep(true, 1000);
}

TEST_F(RuleSweep, EveryAllocationOfAdoptingAndAsking)
{
	Setting setting;
	RuleScenario whole(setting);
	ASSERT_TRUE(whole.run());
	std::vector<char> image;
	ASSERT_TRUE(export_rules(whole.built.rules, &image));
	const size_t blocks = live_blocks();
	bool refused = true;
	for (size_t nth = 1; refused; ++nth) {
		SCOPED_TRACE("allocation " + std::to_string(nth));
		ASSERT_LT(nth, 10000u);
		{
			std::vector<char> bytes = image;
			RuleContext adopted;
			Selection selection;
			bool done = false;
			{
				const Refuse refusal = Refuse::only(nth);
				done = table().fp_CB_vexil_rm_init(
					       &adopted.rules, bytes.data(),
					       static_cast<u32>(bytes.size())) &&
				       select(adopted.rules, &selection);
				refused = refusal.happened();
				if (refused)
					tally().count();
			}
			EXPECT_TRUE(done || refused);
			if (done && !refused) {
				EXPECT_EQ(selection, whole.by_built);
			}
			// Nothing is left over that the next attempt would trip over.
			if (adopted.rules && select(adopted.rules, &selection) && !refused) {
				EXPECT_EQ(selection, whole.by_built);
			}
		}
		ASSERT_EQ(live_blocks(), blocks);
		ASSERT_FALSE(HasFailure());
	}
}

} // namespace
