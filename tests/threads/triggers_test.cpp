// SPDX-License-Identifier: MIT
//
// Many triggers of eight handlers over one rule context. Every answer, its log included, is
// compared with that of a handler that was alone.
#include <array>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <random>

#include "tests/support/example.h"
#include "tests/support/rm_json.h"
#include "tests/support/rule_model.h"
#include "tests/threads/together.h"

namespace {

using namespace vexil_test;
using states::Handler;
using states::Ids;

constexpr u64 kFirstSeed = 815;
constexpr size_t kStates = 48; // of the sources, for each context
constexpr size_t kLists = 12;  // of rules, for each context

/** Those over a whole product's rules, which take long. */
size_t television_triggers()
{
	return wanted_triggers() / 40;
}

/** What a trigger answered. */
struct Answer {
	bool result;
	Ids settings, presets;
	std::string log;
};

/** What to state before a trigger, and what stating it answered. */
struct State {
	std::string filter;
	u64 number;
	bool result;
};

bool same_ids(const Ids &ids, const u16 *list, size_t count)
{
	return ids.size() == count && std::equal(ids.begin(), ids.end(), list);
}

/** A context with everything that can be asked of it, and the answers. */
struct Exam {
	Rules rules;
	std::vector<char> image; // under the context, when it was adopted
	std::vector<State> states;
	std::vector<std::optional<std::string>> lists;
	std::vector<std::vector<Answer>> answers; // by state and list

	static const char *text(const std::optional<std::string> &list)
	{
		return list ? list->c_str() : nullptr;
	}
	/** Asks everything of one handler, alone. */
	void answer()
	{
		Handler handler(rules.get());
		for (State &state : states) {
			EXPECT_TRUE(rm_handler_clear(handler));
			state.result = rm_handler_set(handler, state.filter.c_str(), state.number);
			take_log();
			answers.emplace_back();
			for (const auto &list : lists) {
				const bool result = rm_handler_trigger(handler, text(list));
				answers.back().push_back({result, states::settings_of(handler),
							  states::presets_of(handler), take_log()});
			}
		}
	}
	/** The context over its own image. */
	void adopt_own_image()
	{
		image.resize(rm_get_export_size(rules.get()));
		ASSERT_EQ(rm_export(rules.get(), image.data()), image.size());
		ASSERT_TRUE(rm_destroy(rules.out()));
		ASSERT_TRUE(rm_init(rules.out(), image.data(), static_cast<u32>(image.size())));
	}
	[[nodiscard]] size_t found() const
	{
		size_t count = 0;
		for (const auto &row : answers) {
			for (const Answer &each : row)
				count += !each.settings.empty();
		}
		return count;
	}
};

/** What one thread has seen. */
struct Seen {
	size_t triggers = 0, compared = 0, different = 0, found = 0;
};

/**
 * @triggers answers of @exam, through a handler that is destroyed while others work. Each @thread
 * goes through states and lists in an order of its own.
 */
void take(const Exam &exam, rm_handler *handler, size_t thread, size_t triggers, Seen &seen)
{
	std::mt19937_64 random(thread + 1);
	while (triggers > 0) {
		const size_t chosen = random() % exam.states.size();
		const State &state = exam.states[chosen];
		const bool cleared = rm_handler_clear(handler);
		const bool stated = rm_handler_set(handler, state.filter.c_str(), state.number);
		take_log();
		seen.different += !cleared || stated != state.result;
		const size_t first = random() % exam.lists.size();
		for (size_t i = 0; i < exam.lists.size() && triggers > 0; ++i, --triggers) {
			const size_t list = (first + i) % exam.lists.size();
			const Answer &expected = exam.answers[chosen][list];
			const bool result =
				rm_handler_trigger(handler, Exam::text(exam.lists[list]));
			u16 *settings = nullptr, *presets = nullptr;
			const size_t num_settings = rm_handler_get_result(handler, &settings);
			const size_t num_presets = rm_handler_get_preset(handler, &presets);
			++seen.triggers;
			++seen.compared;
			seen.found += num_settings > 0;
			seen.different += result != expected.result ||
					  !same_ids(expected.settings, settings, num_settings) ||
					  !same_ids(expected.presets, presets, num_presets) ||
					  take_log() != expected.log;
		}
	}
	rm_handler_destroy(&handler);
}

/** Eight handlers, @triggers in all, over each of the contexts in turn. */
void examine(const std::vector<std::unique_ptr<Exam>> &exams, size_t triggers)
{
	Seen sum;
	for (const auto &exam : exams) {
		const std::vector<char> before = exam->image;
		std::array<rm_handler *, kThreads> handlers{};
		for (rm_handler *&handler : handlers)
			ASSERT_TRUE(rm_create_handler(exam->rules.get(), &handler));
		std::array<Seen, kThreads> seen;
		together([&](size_t i) {
			Seen own; // no line of memory is shared while threads count
			take(*exam, handlers[i], i, triggers / exams.size() / kThreads, own);
			seen[i] = own;
		});
		for (const Seen &each : seen) {
			sum.triggers += each.triggers;
			sum.compared += each.compared;
			sum.different += each.different;
			sum.found += each.found;
		}
		EXPECT_EQ(exam->image, before);
	}
	EXPECT_EQ(sum.triggers, sum.compared);
	EXPECT_EQ(sum.different, 0u);
	EXPECT_GE(sum.triggers, triggers - exams.size() * kThreads);
	EXPECT_GT(sum.found, sum.triggers / 20);
	std::printf(
		"%zu triggers of %zu handlers over %zu contexts, %zu answers compared, %zu with "
		"settings, %zu different\n",
		sum.triggers, kThreads, exams.size(), sum.compared, sum.found, sum.different);
}

TEST(ManyTriggers, OverRandomRules)
{
	constexpr size_t kContexts = 6;
	Map map;
	ASSERT_TRUE(map.init());
	states::add_names(map.get());
	std::vector<std::unique_ptr<Exam>> exams;
	for (u64 seed = kFirstSeed; exams.size() < kContexts; ++seed) {
		model::Generator generator(seed);
		auto exam = std::make_unique<Exam>();
		ASSERT_TRUE(exam->rules.init());
		ASSERT_NO_FATAL_FAILURE(model::build(generator, map.get(), exam->rules.get()));
		while (exam->states.size() < kStates || exam->lists.size() < kLists) {
			const model::Call call = generator.call(false);
			if (call.kind == model::Call::kSet && exam->states.size() < kStates)
				exam->states.push_back({call.filter, call.number, false});
			if (call.kind == model::Call::kTrigger && exam->lists.size() < kLists)
				exam->lists.push_back(call.names);
		}
		if (exams.size() % 2) {
			ASSERT_NO_FATAL_FAILURE(exam->adopt_own_image());
		}
		exam->answer();
		if (exam->found() < kStates) // documents that select next to nothing
			continue;
		exams.push_back(std::move(exam));
	}
	examine(exams, wanted_triggers() - television_triggers());
}

/** Blocks as they are delivered, put together. */
bool add_block(int tag, const char *data, u32 length, void *to)
{
	*static_cast<std::string *>(to) += std::to_string(tag) + ":" + std::string(data, length);
	return true;
}

/** What the map delivers for the ids of an answer. */
std::string delivered(pim *map, const Ids &ids)
{
	std::string blocks;
	for (const u16 id : ids) {
		char *label = nullptr;
		pim_get_setting(map, id, &label);
		blocks += label;
		pim_load_setting(map, id, false, add_block, &blocks);
	}
	return blocks;
}

bool drop_file(int, const char *, u32, const char *, u32)
{
	return true;
}

/** The television's own sources and rules, states as a viewer might have them. */
class TelevisionTriggers : public testing::Test {
protected:
	void SetUp() override
	{
		ASSERT_TRUE(build_example(map, television));
		for (const std::string &label : television.handlers)
			ASSERT_TRUE(pim_insert_handler(map.get(), label.c_str(), add_block));
		ASSERT_TRUE(pim_insert_alg_handler(map.get(), drop_file));
		ASSERT_TRUE(exam->rules.init());
		const ExampleJson sources = read("sources", rm_insert_source_json);
		for (const ExampleJson &document : sources) {
			for (const auto &[name, source] : document["PqRuleLists"].items())
				add_source(name, source);
		}
		const auto insert = [this](rm *context, cJSON *root) {
			return rm_insert(context, root, map.get());
		};
		std::vector<std::string> rules;
		for (const ExampleJson &document : read("rules", insert)) {
			for (const auto &[name, group] : document["PqRuleGroups"].items())
				rules.push_back(name);
		}
		ASSERT_TRUE(rm_finish(exam->rules.get()));
		exam->adopt_own_image();
		ask(rules);
		exam->answer();
		EXPECT_EQ(take_log(), "");
	}
	/** The documents of a folder, inserted. */
	template <typename Insert>
	ExampleJson read(const char *folder, Insert insert)
	{
		std::vector<std::filesystem::path> paths;
		for (const auto &entry : std::filesystem::directory_iterator(
			     std::filesystem::path(VEXIL_EXAMPLES) / "tv" / folder))
			paths.push_back(entry.path());
		std::sort(paths.begin(), paths.end());
		ExampleJson documents = ExampleJson::array();
		for (const auto &path : paths) {
			const std::string text = read_bytes(path);
			const Json document(static_cast<cJSON *>(vexil_json_parse(text.c_str())));
			EXPECT_TRUE(document && insert(exam->rules.get(), document.get())) << path;
			documents.push_back(ExampleJson::parse(text));
		}
		return documents;
	}
	void add_source(const std::string &name, const ExampleJson &source)
	{
		if (!source.contains("content") || source.contains("define"))
			return;
		std::vector<std::string> statements;
		if (source["content"].is_array()) {
			for (const ExampleJson &value : source["content"])
				statements.push_back(name + ":" + value.get<std::string>());
		} else {
			for (const int number : {0, 1, 5, 20, 50, 100, 250, 1000, 4000})
				statements.push_back(name + ":" + std::to_string(number));
		}
		choices.push_back(statements);
	}
	/** Most sources stated in each state; lists of a few rules, and two that go through nearly
	 * all. */
	void ask(const std::vector<std::string> &rules)
	{
		std::mt19937_64 random(kFirstSeed);
		for (size_t i = 0; i < kStates; ++i) {
			State state{"", 0, false};
			for (const auto &statements : choices) {
				if (random() % 8)
					state.filter +=
						statements[random() % statements.size()] + ";";
			}
			exam->states.push_back(state);
		}
		while (exam->lists.size() < kLists - 2) {
			std::string list;
			for (size_t names_left = 1 + random() % 3; names_left > 0; --names_left)
				list += rules[random() % rules.size()] + ";";
			exam->lists.emplace_back(list);
		}
		exam->lists.emplace_back("-" + rules[0] + ";" + rules[1]);
		exam->lists.emplace_back(std::nullopt);
	}

	const Example television{"tv"};
	Map map;
	std::unique_ptr<Exam> exam = std::make_unique<Exam>();
	std::vector<std::vector<std::string>> choices;
};

TEST_F(TelevisionTriggers, OverItsRules)
{
	ASSERT_GT(exam->found(), kStates * 4);
	std::vector<std::unique_ptr<Exam>> exams;
	exams.push_back(std::move(exam));
	examine(exams, television_triggers());
}

TEST_F(TelevisionTriggers, OneLockForTheMapAndOneForEachHandlerIsEnough)
{
	constexpr size_t kHandlers = 3; // fewer than threads
	std::vector<std::vector<std::string>> expected;
	for (const auto &row : exam->answers) {
		expected.emplace_back();
		for (const Answer &answer : row)
			expected.back().push_back(delivered(map.get(), answer.settings));
	}
	take_log();

	struct Locked {
		std::mutex lock;
		rm_handler *handler = nullptr;
	};
	std::array<Locked, kHandlers> handlers;
	std::mutex map_lock;
	for (Locked &each : handlers)
		ASSERT_TRUE(rm_create_handler(exam->rules.get(), &each.handler));
	std::array<size_t, kThreads> different{}, loads{};
	const size_t frames = television_triggers() / 4 / kThreads;
	together([&](size_t thread) {
		std::mt19937_64 random(thread);
		for (size_t frame = 0; frame < frames; ++frame) {
			const size_t state = random() % exam->states.size();
			const size_t list = random() % exam->lists.size();
			const Answer &answer = exam->answers[state][list];
			Ids ids;
			{
				Locked &mine = handlers[random() % kHandlers];
				const std::lock_guard hold(mine.lock);
				rm_handler_clear(mine.handler);
				rm_handler_set(mine.handler, exam->states[state].filter.c_str(), 0);
				rm_handler_trigger(mine.handler, Exam::text(exam->lists[list]));
				ids = states::settings_of(mine.handler);
			}
			different[thread] += ids != answer.settings;
			if (frame % 8)
				continue;
			const std::lock_guard hold(map_lock);
			different[thread] += delivered(map.get(), ids) != expected[state][list];
			++loads[thread];
		}
	});
	for (size_t i = 0; i < kThreads; ++i) {
		EXPECT_EQ(different[i], 0u);
		EXPECT_EQ(loads[i], (frames + 7) / 8);
	}
	for (Locked &each : handlers)
		rm_handler_destroy(&each.handler);
}

TEST_F(TelevisionTriggers, BesideLoadingFromTheMap)
{
	const Ids &ids = exam->answers[0].back().settings; // of every rule
	ASSERT_FALSE(ids.empty());
	const std::string expected = delivered(map.get(), ids);
	std::array<rm_handler *, kThreads> handlers{};
	for (rm_handler *&handler : handlers)
		ASSERT_TRUE(rm_create_handler(exam->rules.get(), &handler));
	std::array<Seen, kThreads> seen;
	std::string first_wrong;
	together([&](size_t i) {
		Seen own;
		take(*exam, handlers[i], i, i ? television_triggers() / 2 / kThreads : 1, own);
		for (size_t n = 0; i == 0 && n < wanted_rounds() * 5;
		     ++n) { // one thread has the map
			const std::string now = delivered(map.get(), ids);
			if (now != expected && first_wrong.empty())
				first_wrong = now;
		}
		seen[i] = own;
	});
	EXPECT_EQ(first_wrong, "");
	for (const Seen &each : seen)
		EXPECT_EQ(each.different, 0u);
	take_log();
}

} // namespace
