// SPDX-License-Identifier: MIT
//
// Rules to evaluate: contexts built from documents, whose settings and presets have ids that the
// test chooses, and rule images put together node by node, sound or damaged.
//
// Documents are written with ' for ", as in pim_json.h. The setting named "s7" has the id 1007, the
// preset "p7" the id 2007.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "core/json.h"
#include "rm/rm.h"
#include "tests/support/pim_json.h"
#include "tests/support/platform.h"
#include "tests/support/rm_ids.h"

namespace vexil_test::states {

using Words = std::vector<u64>;

/** A rule context that is destroyed with its scope. */
class Rules {
public:
	Rules() = default;
	~Rules() { rm_destroy(&rules_); }
	Rules(const Rules &) = delete;
	Rules &operator=(const Rules &) = delete;

	rm **out() { return &rules_; }
	[[nodiscard]] rm *get() const { return rules_; }
	rm *operator->() const { return rules_; }
	operator rm *() const { return rules_; }

private:
	rm *rules_ = nullptr;
};

/** A handler that is destroyed with its scope. */
class Handler {
public:
	Handler() = default;
	explicit Handler(rm *rules) { EXPECT_TRUE(rm_create_handler(rules, &handler_)); }
	~Handler() { rm_handler_destroy(&handler_); }
	Handler(const Handler &) = delete;
	Handler &operator=(const Handler &) = delete;

	rm_handler **out() { return &handler_; }
	rm_handler *operator->() const { return handler_; }
	operator rm_handler *() const { return handler_; }

private:
	rm_handler *handler_ = nullptr;
};

/** The names "s0" to "s199" and "p0" to "p199" in a map that has no such nodes. */
inline void add_names(pim *map, int count = kNamesInMap)
{
	for (int i = 0; i < count; ++i) {
		ASSERT_TRUE(ctrie_insert(&map->ipname_map, ("s" + std::to_string(i)).c_str(),
					 kSettingIds + i));
		ASSERT_TRUE(ctrie_insert(&map->preset_map, ("p" + std::to_string(i)).c_str(),
					 kPresetIds + i));
	}
}

inline bool insert_sources(rm *rules, const std::string &members)
{
	const Json document = json("{'PqRuleLists': {" + members + "}}");
	EXPECT_TRUE(document) << members;
	return document && rm_insert_source_json(rules, document.get());
}

inline bool insert_rules(rm *rules, pim *map, const std::string &members)
{
	const Json document = json("{'PqRuleGroups': {" + members + "}}");
	EXPECT_TRUE(document) << members;
	return document && rm_insert(rules, document.get(), map);
}

inline Ids ids_of(size_t count, const u16 *list)
{
	return count ? Ids(list, list + count) : Ids{};
}
inline Ids settings_of(rm *rules)
{
	u16 *list = nullptr;
	const size_t count = rm_get_result(rules, &list);
	return ids_of(count, list);
}
inline Ids presets_of(rm *rules)
{
	u16 *list = nullptr;
	const size_t count = rm_get_preset(rules, &list);
	return ids_of(count, list);
}
inline Ids settings_of(rm_handler *handler)
{
	u16 *list = nullptr;
	const size_t count = rm_handler_get_result(handler, &list);
	return ids_of(count, list);
}
inline Ids presets_of(rm_handler *handler)
{
	u16 *list = nullptr;
	const size_t count = rm_handler_get_preset(handler, &list);
	return ids_of(count, list);
}

inline size_t key_words_of(const rm *rules)
{
	return (rules->used_bits + 63) / 64;
}
/** The key's words, or with @mask those of the sources that are set. */
inline Words key_of(const rm *rules, const rm_individual &state, bool mask = false)
{
	const size_t words = key_words_of(rules);
	const u64 *first = state.keyBuffer + (mask ? words : 0);
	return {first, first + words};
}
inline Words numbers_of(const rm *rules, const rm_individual &state)
{
	return {state.resBuffer, state.resBuffer + rules->res_num};
}

/** A case: "'comparator': {...}, 'settings': [...], 'children': [...]" from ' lists. */
inline std::string one_case(const std::string &comparator, const std::string &settings = "",
			    const std::string &children = "")
{
	return "{'comparator': {" + comparator + "}, 'settings': [" + settings + "], 'children': [" +
	       children + "]}";
}
/** A rule group around its cases. */
inline std::string rule(const std::string &name, const std::string &cases)
{
	return "'" + name + "': {'rules': [" + cases + "]}";
}
/** A rule whose only case always matches. */
inline std::string always(const std::string &name, const std::string &settings,
			  const std::string &children = "")
{
	return rule(name, one_case("", settings, children));
}

inline u16 rule_id(const rm *rules, const char *name)
{
	return static_cast<u16>(ctrie_find(&rules->rulename_map, name));
}

inline std::string rule_failed(const std::string &function, u16 id)
{
	return "[VEXIL][RM][" + function + "] Error while searching rule node " + std::to_string(id) +
	       "\n";
}
inline std::string unknown_rule(const std::string &function, const std::string &name)
{
	return "[VEXIL][RM][" + function + "] Invalid rule " + name + "\n";
}
inline std::string bad_child(u16 holder)
{
	return "[VEXIL][RM][__rm_find_setting] Internal error, invalid NODEID at [" +
	       std::to_string(holder) + "]\n";
}
inline const std::string kBadLength = "[VEXIL][RM][__rm_find_setting] Data length check failed.";
inline const std::string kNoNumbers = "[VEXIL][RM][__rm_build_key] resBuffer us NULL \n";

/** A finished context built from documents, and the demand that every message was expected. */
class RulesTest : public testing::Test {
protected:
	void SetUp() override
	{
		ASSERT_TRUE(map.init());
		add_names(map.get());
		ASSERT_TRUE(rm_init(rules.out(), nullptr, 0));
	}
	void TearDown() override { EXPECT_EQ(take_log(), "") << "a message that nobody expected"; }

	/** Sources and rules, sealed. */
	void build(const std::string &sources, const std::string &groups)
	{
		ASSERT_TRUE(insert_sources(rules, sources));
		ASSERT_TRUE(insert_rules(rules, map.get(), groups));
		ASSERT_TRUE(rm_finish(rules));
		ASSERT_EQ(take_log(), "");
	}
	bool set(const std::string &filter, u64 number = 0)
	{
		return rm_set(rules, filter.c_str(), number);
	}
	bool trigger(const char *names = nullptr) { return rm_trigger(rules, names); }
	[[nodiscard]] Ids settings() const { return settings_of(rules.get()); }
	[[nodiscard]] Ids presets() const { return presets_of(rules.get()); }
	[[nodiscard]] Words key() const { return key_of(rules, rules->rmInd); }
	[[nodiscard]] Words mask() const { return key_of(rules, rules->rmInd, true); }
	[[nodiscard]] Words numbers() const { return numbers_of(rules, rules->rmInd); }
	[[nodiscard]] u16 id(const char *name) const { return rule_id(rules, name); }

	Map map;
	Rules rules;
};

/** Input takes bits 0-1, Timing 2-4, Luma 5 and slot 0, Chroma 6 and slot 1; Bright is redefined. */
inline const std::string kSources =
	"'Input': {'content': ['HDMI', 'DTV', 'CVBS']}, "
	"'Timing': {'content': ['2160p', '1080p', '720p', '480i']}, "
	"'Luma': {'content': 'number'}, 'Chroma': {'content': 'number'}, "
	"'Bright': {'define': {'Low': {'Luma': '[0, 99]'}, 'High': {'Luma': '[100, 0xFFFF]', "
	"'Chroma': '(7, 20)'}}, 'content': ['Low', 'High']}";

/**
 * A rule image put together node by node. A rule that is to be damaged is built damaged: nothing
 * here checks anything.
 *
 *	HandRules plan;
 *	plan.used_bits(8);
 *	const u16 rule = plan.rule("A", {plan.one_case({plan.alternative(plan.key({1, 3}))},
 *						      {plan.settings({7})})});
 *	plan.adopt(rules);
 */
class HandRules {
public:
	HandRules() { EXPECT_TRUE(rm_init(plan_.out(), nullptr, 0)); }

	node_d node(int tag, node_d child = none())
	{
		const node_d made = extmem_request_node(store(), static_cast<extmem_tag>(tag));
		if (child.id != kNoId)
			extmem_append_child(made, child);
		return made;
	}
	node_d record(int tag, const void *bytes, size_t size)
	{
		return extmem_get_data(store(), static_cast<extmem_tag>(tag), const_cast<void *>(bytes),
				       static_cast<u32>(size));
	}
	template <typename T>
	node_d record(int tag, const std::vector<T> &values)
	{
		return record(tag, values.data(), values.size() * sizeof(T));
	}
	/** Links siblings; the first of them. */
	static node_d chain(const std::vector<node_d> &nodes)
	{
		for (size_t i = 1; i < nodes.size(); ++i)
			extmem_append_next(nodes[i - 1], nodes[i]);
		return nodes.empty() ? none() : nodes[0];
	}
	static node_d none() { return {kNoId, nullptr}; }

	/** The words of value, then those of mask. */
	node_d key(const Words &words, int tag = EXTMEM_TAG_KEY_HOLDER) { return record(tag, words); }
	node_d range(u16 slot_node, u64 least, u64 most)
	{
		const range_desc range{slot_node, {}, least, most};
		return node(EXTMEM_TAG_KEY_RANGE, record(EXTMEM_TAG_RANGE_HOLDER, &range, sizeof range));
	}
	node_d alternative(node_d key_record, const std::vector<node_d> &ranges = {})
	{
		std::vector<node_d> nodes{node(EXTMEM_TAG_KEY_DESCRIPTION, key_record)};
		nodes.insert(nodes.end(), ranges.begin(), ranges.end());
		return node(EXTMEM_TAG_GENERAL, chain(nodes));
	}
	node_d one_case(const std::vector<node_d> &alternatives, const std::vector<node_d> &outcomes)
	{
		std::vector<node_d> nodes{node(EXTMEM_TAG_GENERAL, chain(alternatives))};
		nodes.insert(nodes.end(), outcomes.begin(), outcomes.end());
		return node(EXTMEM_TAG_GENERAL, chain(nodes));
	}
	node_d outcome(int tag, const Ids &ids) { return node(EXTMEM_TAG_GENERAL, record(tag, ids)); }
	node_d settings(const Ids &ids) { return outcome(EXTMEM_TAG_VALUE_HOLDER, ids); }
	node_d presets(const Ids &ids) { return outcome(EXTMEM_TAG_PRESET_HOLDER, ids); }
	node_d child_rule(u16 id) { return outcome(EXTMEM_TAG_NODE_HOLDER, {id}); }

	/** Appends to the root; the id of the entry's first node. */
	u16 entry(node_d first)
	{
		const node_d holder = node(EXTMEM_TAG_GENERAL, first);
		if (last_entry_.id == kNoId)
			extmem_append_child(plan_->root, holder);
		else
			extmem_append_next(last_entry_, holder);
		last_entry_ = holder;
		return first.id;
	}
	node_d property(const std::string &name)
	{
		return node(EXTMEM_TAG_PROPERTY,
			    record(EXTMEM_TAG_STRING_HOLDER, name.c_str(), name.size() + 1));
	}
	u16 rule(const std::string &name, const std::vector<node_d> &cases)
	{
		const node_d made = node(EXTMEM_TAG_RULE, chain(cases));
		const vexil_version version{};
		return entry(chain({made, property(name),
				    node(EXTMEM_TAG_VERSION,
					 record(EXTMEM_TAG_VERSION_HOLDER, &version, sizeof version))}));
	}
	/** A label around its first child. @slot: record of the slot, or none. */
	u16 label(const std::string &name, node_d child, node_d slot = none())
	{
		std::vector<node_d> nodes{node(EXTMEM_TAG_SOURCE_LABEL, child), property(name)};
		if (slot.id != kNoId)
			nodes.push_back(slot);
		return entry(chain(nodes));
	}
	node_d field(u16 shift, u16 width, u16 rank)
	{
		return record(EXTMEM_TAG_SOURCE_DESCRIPTION, Ids{shift, width, rank, 0});
	}
	node_d slot(u64 index) { return record(EXTMEM_TAG_SIZE_HOLDER, Words{index}); }
	void used_bits(u32 bits) { entry(record(EXTMEM_TAG_RULE_USEDBITS, &bits, sizeof bits)); }
	void res_num(u32 slots) { entry(record(EXTMEM_TAG_RES_NUM, &slots, sizeof slots)); }

	/** A context over the image of all this; the image lives as long as the plan. */
	void adopt(Rules &rules)
	{
		image_.resize(rm_get_export_size(plan_));
		ASSERT_EQ(rm_export(plan_, image_.data()), image_.size());
		rm_destroy(rules.out());
		ASSERT_TRUE(rm_init(rules.out(), image_.data(), static_cast<u32>(image_.size())));
	}

private:
	extmem_builder *store() { return &plan_->builder; }

	Rules plan_;
	node_d last_entry_ = none();
	std::vector<char> image_;
};

/** A plan, and the context over it. The plan outlives the context. */
class HandRulesTest : public testing::Test {
protected:
	void TearDown() override { EXPECT_EQ(take_log(), "") << "a message that nobody expected"; }

	void adopt() { plan.adopt(rules); }
	/** An alternative that matches every key of @words. */
	node_d any(size_t words = 1) { return plan.alternative(plan.key(Words(2 * words))); }
	bool trigger(const char *names = nullptr) { return rm_trigger(rules, names); }
	[[nodiscard]] Ids settings() const { return settings_of(rules.get()); }
	[[nodiscard]] Ids presets() const { return presets_of(rules.get()); }

	HandRules plan;
	Rules rules;
};

} // namespace vexil_test::states
