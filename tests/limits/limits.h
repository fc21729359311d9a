// SPDX-License-Identifier: MIT
//
// Maps and rules at their limits: built from documents, then made a product of: exported, examined
// and adopted. What works at a limit works in both.
#pragma once

#include <concepts>

#include "tests/support/rm_states.h"
#include "tests/support/verify.h"

namespace vexil_test {

inline constexpr size_t kMostNodeIds = 65535;

/** @count items around their number, with commas between them. */
template <std::invocable<size_t> Item>
std::string listed(size_t count, Item item)
{
	std::string text;
	for (size_t i = 0; i < count; ++i)
		text += (i ? ", " : "") + item(i);
	return text;
}

/** The same with "#" for the number. */
inline std::string listed(size_t count, const std::string &form)
{
	return listed(count, [&](size_t i) {
		std::string item;
		for (const char c : form)
			item += c == '#' ? std::to_string(i) : std::string(1, c);
		return item;
	});
}

/** A map as it was built, and the same as an adopted image. */
class LimitTest : public testing::Test {
protected:
	void SetUp() override
	{
		ASSERT_TRUE(map.init());
		ASSERT_TRUE(rules.init());
	}
	void TearDown() override { EXPECT_EQ(take_log(), "") << "a message that nobody expected"; }

	bool insert(const std::string &text) { return vexil_test::insert(map.get(), text); }
	bool declare(const std::string &sources)
	{
		return vexil_test::declare(rules.get(), sources);
	}
	bool add(const std::string &groups)
	{
		return vexil_test::add_rules(rules.get(), map.get(), groups);
	}
	/** Begins again with nothing. */
	void fresh()
	{
		run_map.init();
		run_rules.init();
		ASSERT_TRUE(map.init());
		ASSERT_TRUE(rules.init());
	}
	/** Hardware registers R0, R1, ... at positions 0, 1, ... */
	void add_registers(size_t count)
	{
		for (size_t i = 0; i < count; ++i)
			ASSERT_TRUE(pim_insert_regmap(map.get(), ("R" + std::to_string(i)).c_str(),
						      static_cast<u32>(i)));
	}
	/** Settings "S#0", "S#1", ..., for rules to select. */
	void add_settings(size_t count)
	{
		add_registers(1);
		ASSERT_TRUE(insert(
			setting("'group': {" + listed(count, "'#': {'hwreg': {'R0': #}}") + "}")));
	}

	/** The map as a product has it. */
	bool ship_map(RegisterTable registers = {})
	{
		pim_destroy(run_map.out());
		map_image = image_of(map.get());
		table = std::move(registers);
		EXPECT_EQ(fault_of(map_image), kSound);
		return adopt(run_map, map_image, table);
	}
	/** Both as a product has them. */
	bool ship()
	{
		rm_destroy(run_rules.out());
		rules_image = image_of(rules.get());
		EXPECT_EQ(fault_of(rules_image), kSound);
		return ship_map() && adopt(run_rules, rules_image);
	}
	/** Blocks of a label, from the map as built and as adopted alike. */
	Lines loaded(const std::string &label)
	{
		const Lines built = load(map.get(), label);
		EXPECT_EQ(load(run_map.get(), label), built) << label;
		return built;
	}
	/** What a handler of @context finds, as labels of @names. */
	static Lines found(rm *context, pim *names, const std::string &filter, const char *list,
			   u64 number = 0)
	{
		const states::Handler handler(context);
		EXPECT_TRUE(rm_handler_set(handler, filter.c_str(), number)) << filter;
		EXPECT_TRUE(rm_handler_trigger(handler, list)) << filter;
		Lines labels;
		for (const u16 id : states::settings_of(handler)) {
			char *label = nullptr;
			pim_get_setting(names, id, &label);
			labels.emplace_back(label ? label : "(none)");
		}
		return labels;
	}
	/** The same from the rules as built and as adopted; they must agree. */
	Lines selected(const std::string &filter, const char *list = nullptr, u64 number = 0)
	{
		const Lines built = found(rules.get(), map.get(), filter, list, number);
		EXPECT_EQ(found(run_rules.get(), run_map.get(), filter, list, number), built)
			<< filter;
		return built;
	}

	Map map;
	Rules rules;
	RegisterTable table;
	ImageBytes map_image, rules_image;
	Map run_map;
	Rules run_rules;
};

} // namespace vexil_test
