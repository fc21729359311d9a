// SPDX-License-Identifier: MIT
//
// What threads may do at once: handlers of one context, contexts of their own, one preset document.
// Each thread's answers are those of the same calls made alone.
#include <array>
#include <climits>

#include <vexil/presetdb.h>

#include "tests/support/rule_model.h"
#include "tests/threads/together.h"

namespace {

using namespace vexil_test;
using namespace vexil_test::states;
using model::Call;
using model::Generator;

constexpr size_t kDocuments = 6;
constexpr size_t kCalls = 150;
constexpr u64 kFirstSeed = 4711;

/** What a call answered. */
struct Answer {
	bool result;
	Ids settings, presets;

	bool operator==(const Answer &) const = default;
};
using Answers = std::vector<Answer>;

void PrintTo(const Answer &answer, std::ostream *to)
{
	*to << answer.result << " " << testing::PrintToString(answer.settings) << " "
	    << testing::PrintToString(answer.presets);
}

Answer make(rm_handler *handler, const Call &call)
{
	Answer answer{};
	const char *names = call.names ? call.names->c_str() : nullptr;
	if (call.kind == Call::kSet)
		answer.result = rm_handler_set(handler, call.filter.c_str(), call.number);
	else if (call.kind == Call::kClear)
		answer.result = rm_handler_clear(handler);
	else
		answer.result = rm_handler_trigger(handler, names);
	answer.settings = settings_of(handler);
	answer.presets = presets_of(handler);
	return answer;
}

Answers make_all(rm_handler *handler, const std::vector<Call> &calls)
{
	Answers answers;
	for (const Call &call : calls)
		answers.push_back(make(handler, call));
	return answers;
}

class Threads : public testing::Test {
protected:
	void SetUp() override
	{
		ASSERT_TRUE(map.init());
		add_names(map.get());
	}

	Map map;
};

TEST_F(Threads, HandlersOfOneContextDoNotDisturbEachOther)
{
	size_t found = 0;
	for (u64 seed = kFirstSeed; seed < kFirstSeed + kDocuments; ++seed) {
		SCOPED_TRACE("seed " + std::to_string(seed));
		Generator generator(seed);
		Rules rules;
		ASSERT_TRUE(rm_init(rules.out(), nullptr, 0));
		ASSERT_NO_FATAL_FAILURE(model::build(generator, map.get(), rules));

		std::array<std::vector<Call>, kThreads> calls;
		std::array<Answers, kThreads> alone, beside;
		std::array<Handler, kThreads> handlers;
		for (size_t i = 0; i < kThreads; ++i) {
			for (size_t n = 0; n < kCalls; ++n)
				calls[i].push_back(generator.call(false));
			Handler handler(rules);
			alone[i] = make_all(handler, calls[i]);
			ASSERT_TRUE(rm_create_handler(rules, handlers[i].out()));
			for (const Answer &answer : alone[i])
				found += !answer.settings.empty();
		}
		together([&](size_t i) { beside[i] = make_all(handlers[i], calls[i]); });
		for (size_t i = 0; i < kThreads; ++i)
			EXPECT_EQ(beside[i], alone[i]) << "thread " << i;
	}
	EXPECT_GT(found, 500u);
	take_log();
}

TEST_F(Threads, HandlersOfAnAdoptedImageOnlyReadIt)
{
	Generator generator(kFirstSeed);
	Rules built, rules;
	ASSERT_TRUE(rm_init(built.out(), nullptr, 0));
	ASSERT_NO_FATAL_FAILURE(model::build(generator, map.get(), built));
	std::vector<char> image(rm_get_export_size(built));
	ASSERT_EQ(rm_export(built, image.data()), image.size());
	ASSERT_TRUE(rm_init(rules.out(), image.data(), static_cast<u32>(image.size())));
	const std::vector<char> before = image;

	std::vector<Call> calls;
	for (size_t n = 0; n < kCalls; ++n)
		calls.push_back(generator.call(false));
	std::array<Handler, kThreads> handlers;
	std::array<Answers, kThreads> answers;
	for (Handler &handler : handlers)
		ASSERT_TRUE(rm_create_handler(rules, handler.out()));
	together([&](size_t i) { answers[i] = make_all(handlers[i], calls); });
	Handler last(rules);
	const Answers alone = make_all(last, calls);
	for (const Answers &each : answers)
		EXPECT_EQ(each, alone);
	EXPECT_EQ(image, before);
	take_log();
}

TEST_F(Threads, ContextsOfTheirOwnAreBuiltAndEvaluatedAtOnce)
{
	const auto work = [](u64 seed) {
		Answers answers;
		Generator generator(seed);
		Map names;
		Rules rules;
		if (!names.init() || !rm_init(rules.out(), nullptr, 0))
			return answers;
		for (int i = 0; i < kNamesInMap; ++i) {
			ctrie_insert(&names->ipname_map, ("s" + std::to_string(i)).c_str(),
				     kSettingIds + i);
			ctrie_insert(&names->preset_map, ("p" + std::to_string(i)).c_str(),
				     kPresetIds + i);
		}
		const Json sources = json("{'PqRuleLists': {" + generator.sources_json + "}}");
		const Json groups = json("{'PqRuleGroups': {" + generator.rules_json + "}}");
		if (!rm_insert_source_json(rules, sources.get()) ||
		    !rm_insert(rules, groups.get(), names.get()))
			return answers;
		rm_finish(rules);
		rm_handler *handler = nullptr;
		if (!rm_create_handler(rules, &handler))
			return answers;
		for (size_t n = 0; n < kCalls; ++n)
			answers.push_back(make(handler, generator.call(false)));
		rm_handler_destroy(&handler);
		return answers;
	};
	std::array<Answers, kThreads> alone, beside;
	for (size_t i = 0; i < kThreads; ++i)
		alone[i] = work(kFirstSeed + i);
	together([&](size_t i) { beside[i] = work(kFirstSeed + i); });
	for (size_t i = 0; i < kThreads; ++i) {
		EXPECT_EQ(beside[i].size(), kCalls);
		EXPECT_EQ(beside[i], alone[i]) << "seed " << kFirstSeed + i;
	}
	take_log();
}

TEST_F(Threads, OnePresetDocumentIsReadByAll)
{
	const Json document =
		json("{'Preset_PQ_Value': {'Input': {'Range': 'Limited', 'ColorSpace': 'BT2020', "
		     "'Dataformat': 'YUV'}, 'Colortuning': {'Hue': 7}}}");
	std::array<graphic_presetdb_info, kThreads> read{};
	std::array<bool, kThreads> done{};
	std::array<size_t, kThreads> lines{};
	together([&](size_t i) {
		for (int n = 0; n < 50; ++n)
			done[i] = graphic_presetdb_parse(document.get(), &read[i]);
		lines[i] = take_log_lines().size();
	});
	for (size_t i = 0; i < kThreads; ++i) {
		EXPECT_EQ(lines[i], 50u * 18); // 2 of Colortuning, 2 for each of 8 groups
		EXPECT_TRUE(done[i]);
		EXPECT_EQ(read[i].input.colorspace, COLORSPACE_BT2020);
		EXPECT_EQ(read[i].input.range, RANGE_LIMIT);
		EXPECT_EQ(read[i].output.range, RANGE_FULL);
		EXPECT_EQ(read[i].hue, 7);
		EXPECT_EQ(read[i].sat, 128);
	}
}

} // namespace
