// SPDX-License-Identifier: MIT
//
// Rules as the library evaluates them against the simple evaluator, over documents and calls at
// random.
#include "tests/support/rule_model.h"

namespace {

using namespace vexil_test;
using namespace vexil_test::model;
using states::Handler;
using states::Rules;

constexpr u64 kFirstSeed = 812001;
constexpr int kDocuments = 2000;
constexpr int kCalls = 60;

/** An evaluation state of the library: a context's own, or a handler's. */
class Subject {
public:
	Subject(const char *name, rm *rules) : name_(name), rules_(rules) {}
	Subject(const char *name, rm_handler *handler) : name_(name), handler_(handler) {}

	[[nodiscard]] bool make(const Call &call)
	{
		const char *names = call.names ? call.names->c_str() : nullptr;
		const char *filter = call.filter.c_str();
		switch (call.kind) {
		case Call::kSet:
			return handler_ ? rm_handler_set(handler_, filter, call.number)
					: rm_set(rules_, filter, call.number);
		case Call::kClear:
			return handler_ ? rm_handler_clear(handler_) : rm_clear(rules_);
		case Call::kTrigger:
			return handler_ ? rm_handler_trigger(handler_, names)
					: rm_trigger(rules_, names);
		case Call::kFind:
			return rm_find(rules_, filter, names);
		}
		return false;
	}
	[[nodiscard]] Ids settings() const
	{
		return handler_ ? states::settings_of(handler_) : states::settings_of(rules_);
	}
	[[nodiscard]] Ids presets() const
	{
		return handler_ ? states::presets_of(handler_) : states::presets_of(rules_);
	}
	[[nodiscard]] const char *name() const { return name_; }

private:
	const char *name_;
	rm *rules_ = nullptr;
	rm_handler *handler_ = nullptr;
};

bool make(Model &model, const Call &call)
{
	switch (call.kind) {
	case Call::kSet:
		return model.set(call.filter, call.number);
	case Call::kClear:
		model.clear();
		return true;
	case Call::kTrigger:
		return model.trigger(call.names);
	case Call::kFind:
		return model.find(call.filter, call.names);
	}
	return false;
}

/** How much was compared, so that a generator gone dull is noticed. */
struct Tally {
	size_t results = 0, found = 0, presets = 0, nothing = 0, failed = 0, refused = 0, wide_keys = 0;
};

class RulesModel : public testing::Test {
protected:
	void SetUp() override
	{
		ASSERT_TRUE(map.init());
		states::add_names(map.get());
	}

	/** True when all subjects agree with the model about @call. */
	bool agree(Model &model, std::vector<Subject> &subjects, const Call &call)
	{
		const bool expected = make(model, call);
		const bool has_result = call.kind == Call::kTrigger || call.kind == Call::kFind;
		for (Subject &subject : subjects) {
			const bool result = subject.make(call);
			EXPECT_EQ(result, expected) << subject.name() << ": " << call.text();
			EXPECT_EQ(subject.settings(), model.settings)
				<< subject.name() << ": " << call.text();
			EXPECT_EQ(subject.presets(), model.presets)
				<< subject.name() << ": " << call.text();
			if (HasFailure())
				return false;
		}
		tally.results += has_result;
		tally.found += has_result && !model.settings.empty();
		tally.presets += has_result && !model.presets.empty();
		tally.nothing += has_result && model.settings.empty() && model.presets.empty();
		tally.failed += has_result && !expected;
		tally.refused += !has_result && !expected;
		take_log();
		return true;
	}
	void compare(u64 seed)
	{
		SCOPED_TRACE("seed " + std::to_string(seed));
		Generator generator(seed);
		Rules built, adopted;
		ASSERT_TRUE(rm_init(built.out(), nullptr, 0));
		ASSERT_NO_FATAL_FAILURE(model::build(generator, map.get(), built));
		std::vector<char> image(rm_get_export_size(built));
		ASSERT_EQ(rm_export(built, image.data()), image.size());
		ASSERT_TRUE(rm_init(adopted.out(), image.data(), static_cast<u32>(image.size())));
		tally.wide_keys += built->used_bits > 64;

		Handler handler(built), handler_of_adopted(adopted);
		Model model(generator.document);
		std::vector<Subject> subjects{
			{"context", built.get()},
			{"handler", static_cast<rm_handler *>(handler)},
			{"adopted", adopted.get()},
			{"its handler", static_cast<rm_handler *>(handler_of_adopted)}};
		for (int i = 0; i < kCalls; ++i) {
			if (!agree(model, subjects, generator.call(false))) {
				ADD_FAILURE() << generator.sources_json << "\n" << generator.rules_json;
				return;
			}
		}
		std::vector<Subject> contexts{subjects[0], subjects[2]};
		for (int i = 0; i < kCalls / 4; ++i) {
			if (!agree(model, contexts, generator.call(true))) {
				ADD_FAILURE() << generator.sources_json << "\n" << generator.rules_json;
				return;
			}
		}
	}

	Map map;
	Tally tally;
};

TEST_F(RulesModel, AgreesOnEveryResultOfRandomRules)
{
	for (u64 seed = kFirstSeed; seed < kFirstSeed + kDocuments && !HasFailure(); ++seed)
		compare(seed);
	// Of everything enough to mean something.
	EXPECT_GT(tally.results, 8000u);
	EXPECT_GT(tally.found, 3000u);
	EXPECT_GT(tally.presets, 1500u);
	EXPECT_GT(tally.nothing, 1000u);
	EXPECT_GT(tally.failed, 100u);
	EXPECT_GT(tally.refused, 50u);
	EXPECT_GT(tally.wide_keys, 30u);
}

} // namespace
