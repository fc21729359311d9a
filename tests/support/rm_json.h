// SPDX-License-Identifier: MIT
//
// Rule contexts built from documents, and what tests read back from them: the nodes of a store as
// text, its bytes, its image.
//
// Documents are written with ' for ", so that they can stand in C++ source as they are:
//
//	rules.init();
//	declare(rules.get(), "'Input': {'content': ['HDMI', 'DTV']}, 'Luma': {'content': {}}");
//	add_name(map->ipname_map, "bright", 100);
//	add_rules(rules.get(), map.get(),
//		  rule("R", {rule_case("'Input': 'HDMI', 'Luma': '[3,10)'", "'bright'")}));
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "rm/rm.h"
#include "tests/support/pim_images.h"
#include "tests/support/pim_json.h"
#include "tests/support/platform.h"

namespace vexil_test {

/** A rule context that is destroyed with its scope. */
class Rules {
public:
	Rules() = default;
	~Rules() { rm_destroy(&rules_); }
	Rules(const Rules &) = delete;
	Rules &operator=(const Rules &) = delete;

	/** A new empty context; null without memory. */
	rm *init()
	{
		rm_destroy(&rules_);
		rm_init(&rules_, nullptr, 0);
		return rules_;
	}
	/** For calls that store a context or take one away. */
	rm **out() { return &rules_; }
	[[nodiscard]] rm *get() const { return rules_; }
	rm *operator->() const { return rules_; }

private:
	rm *rules_ = nullptr;
};

// ---- documents ----

/** A rule-list document around the members of "PqRuleLists". */
inline std::string rule_lists(const std::string &sources)
{
	return "{'PqRuleLists': {" + sources + "}}";
}

/** A rule-group document around the members of "PqRuleGroups". */
inline std::string rule_groups(const std::string &groups)
{
	return "{'PqRuleGroups': {" + groups + "}}";
}

/** One case; @settings and @children are the items of their arrays. */
inline std::string rule_case(const std::string &comparator, const std::string &settings = "",
			     const std::string &children = "")
{
	return "{'comparator': {" + comparator + "}, 'settings': [" + settings +
	       "], 'children': [" + children + "]}";
}

/** One member of "PqRuleGroups" without a version. */
inline std::string rule(const std::string &name, const std::vector<std::string> &cases = {})
{
	std::string text = "'" + name + "': {'rules': [";
	for (std::size_t i = 0; i < cases.size(); ++i)
		text += (i ? ", " : "") + cases[i];
	return text + "]}";
}

/** "'A', 'B'" of the names, for arrays. */
inline std::string quoted(const std::vector<std::string> &names)
{
	std::string text;
	for (const std::string &name : names)
		text += (text.empty() ? "'" : ", '") + name + "'";
	return text;
}

/** @count texts: @stem with 0, 1, 2 ... behind it. */
inline std::vector<std::string> numbered(const std::string &stem, std::size_t count)
{
	std::vector<std::string> names;
	for (std::size_t i = 0; i < count; ++i)
		names.push_back(stem + std::to_string(i));
	return names;
}

/** An enumerated source of the list. */
inline std::string enumerated(const std::string &name, const std::vector<std::string> &values)
{
	return "'" + name + "': {'content': [" + quoted(values) + "]}";
}

/** A value source of the list. */
inline std::string value_source(const std::string &name)
{
	return "'" + name + "': {'content': {}}";
}

/** rm_insert_source_json of a whole text; false, with the test failed, when it does not parse. */
inline bool insert_lists(rm *rules, const std::string &text)
{
	const Json document = json(text);
	EXPECT_TRUE(document) << text;
	return document && rm_insert_source_json(rules, document.get());
}

/** rm_insert of a whole text; false, with the test failed, when it does not parse. */
inline bool insert_groups(rm *rules, const pim *map, const std::string &text)
{
	const Json document = json(text);
	EXPECT_TRUE(document) << text;
	return document && rm_insert(rules, document.get(), map);
}

/** Declares the members of one "PqRuleLists". */
inline bool declare(rm *rules, const std::string &sources)
{
	return insert_lists(rules, rule_lists(sources));
}

/** Inserts the members of one "PqRuleGroups". */
inline bool add_rules(rm *rules, const pim *map, const std::string &groups)
{
	return insert_groups(rules, map, rule_groups(groups));
}

/** Gives a map's index a setting or preset without the nodes behind it: rules only need its id. */
inline void add_name(ctrie &names, const std::string &name, int id)
{
	ASSERT_TRUE(ctrie_insert(&names, name.c_str(), id)) << name;
}

// ---- reading a store ----

inline std::size_t rule_node_count(const rm *rules)
{
	return rules->builder.node_buffer.buf_used / kImageNodeBytes;
}

inline node_d rule_node_at(rm *rules, std::size_t id)
{
	return node_d{static_cast<u16>(id), &rules->builder};
}

inline std::string rule_tag_text(int tag)
{
	switch (tag) {
	case 23: return "RULE";
	case 24: return "LABEL";
	case 25: return "REDEFINE";
	case 29: return "KEY_DESC";
	case 30: return "KEY_RANGE";
	case 38: return "SOURCE";
	case 39: return "KEY";
	case 40: return "VALUES";
	case 41: return "NODE";
	case 42: return "USEDBITS";
	case 43: return "SLOT";
	case 44: return "RANGE";
	case 53: return "PRESETS";
	case 56: return "RES_NUM";
	default: return tag_text(tag);
	}
}

template <typename T>
T value_at(const char *bytes, std::size_t offset)
{
	T value;
	std::memcpy(&value, bytes + offset, sizeof value);
	return value;
}

inline std::string hex(u64 value)
{
	char text[17];
	std::snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(value));
	return text;
}

/** "[1 0 | 3 0]": the value words, then the mask words of a key. */
inline std::string key_text(const char *data, std::size_t length)
{
	if (length % 16 != 0)
		return "<key of " + std::to_string(length) + " bytes>";
	std::string text = "[";
	for (std::size_t i = 0; i < length / 8; ++i)
		text += (i == 0 ? "" : i == length / 16 ? " | " : " ") +
			hex(value_at<u64>(data, 8 * i));
	return text + "]";
}

inline std::string rule_payload_text(int tag, const char *data, std::size_t length)
{
	if (!data)
		return "<none>";
	const bool counts = tag == EXTMEM_TAG_RULE_USEDBITS || tag == EXTMEM_TAG_RES_NUM;
	if (tag == EXTMEM_TAG_SOURCE_DESCRIPTION && length == 8) {
		const auto zero = value_at<u16>(data, 6);
		return "shift " + std::to_string(value_at<u16>(data, 0)) + " width " +
		       std::to_string(value_at<u16>(data, 2)) + " rank " +
		       std::to_string(value_at<u16>(data, 4)) +
		       (zero ? " zero " + std::to_string(zero) : "");
	}
	if (tag == EXTMEM_TAG_KEY_HOLDER)
		return key_text(data, length);
	if ((tag == EXTMEM_TAG_VALUE_HOLDER || tag == EXTMEM_TAG_PRESET_HOLDER ||
	     tag == EXTMEM_TAG_NODE_HOLDER) &&
	    length % 2 == 0) {
		std::string text = "[";
		for (std::size_t i = 0; i < length; i += 2)
			text += (i ? " " : "") + std::to_string(value_at<u16>(data, i));
		return text + "]";
	}
	if (counts && length == 4)
		return std::to_string(value_at<u32>(data, 0));
	if (tag == EXTMEM_TAG_SIZE_HOLDER && length == 8)
		return std::to_string(value_at<u64>(data, 0));
	if (tag == EXTMEM_TAG_RANGE_HOLDER && length == 24) {
		const bool padded = value_at<u16>(data, 2) == 0 && value_at<u32>(data, 4) == 0;
		return "node " + std::to_string(value_at<u16>(data, 0)) +
		       (padded ? "" : " padding not zero") + " " +
		       std::to_string(value_at<u64>(data, 8)) + ".." +
		       std::to_string(value_at<u64>(data, 16));
	}
	if (tag == EXTMEM_TAG_STRING_HOLDER || tag == EXTMEM_TAG_VERSION_HOLDER)
		return payload_text(tag, data, length);
	return "<" + std::to_string(length) + " bytes>";
}

/** "2 LABEL c3 n4": id, tag, first child, next sibling; for a data holder id, tag and record. */
inline std::string rule_node_text(const rm *rules, std::size_t id)
{
	const auto *bytes = reinterpret_cast<const char *>(rules->builder.node_buffer.buf) +
			    kImageNodeBytes * id;
	const int tag = static_cast<u8>(bytes[2]);
	std::string text = std::to_string(id) + " " + rule_tag_text(tag);
	if (u16_at(bytes, 0) != id)
		text += " stored id " + std::to_string(u16_at(bytes, 0));
	if (tag < EXTMEM_TAG_DATA_TYPE_BEGIN) {
		if (u16_at(bytes, 3) != kNoId)
			text += " c" + std::to_string(u16_at(bytes, 3));
		if (u16_at(bytes, 5) != kNoId)
			text += " n" + std::to_string(u16_at(bytes, 5));
		return text;
	}
	const std::size_t size = u32_at(bytes, 3);
	const std::size_t offset = u32_at(bytes, 7);
	const extmem_buffer_ctx &data = rules->builder.data_buffer;
	const bool inside = offset <= data.buf_used && size <= data.buf_used - offset;
	return text + " " +
	       rule_payload_text(
		       tag, inside ? reinterpret_cast<const char *>(data.buf) + offset : nullptr,
		       size);
}

/** The nodes of a context from @first on. */
inline Lines rule_nodes(const rm *rules, std::size_t first = 0)
{
	Lines lines;
	for (std::size_t id = first; id < rule_node_count(rules); ++id)
		lines.push_back(rule_node_text(rules, id));
	return lines;
}

/** The record texts of all nodes of one tag, in the order of their ids. */
inline Lines rule_records(const rm *rules, int tag)
{
	const std::string head = " " + rule_tag_text(tag) + " ";
	Lines records;
	for (const std::string &line : rule_nodes(rules)) {
		const std::size_t at = line.find(head);
		if (at != std::string::npos && at == line.find(' '))
			records.push_back(line.substr(at + head.size()));
	}
	return records;
}

/** The bytes of both buffers, capacities included. */
inline std::string store_bytes(const rm *rules)
{
	const auto bytes = [](const extmem_buffer_ctx &buffer) {
		return std::to_string(buffer.buf_used) + "/" + std::to_string(buffer.buf_max) +
		       ":" +
		       std::string(reinterpret_cast<const char *>(buffer.buf), buffer.buf_max);
	};
	return bytes(rules->builder.node_buffer) + bytes(rules->builder.data_buffer);
}

/** An exported context. */
inline ImageBytes image_of(rm *rules)
{
	std::vector<char> bytes(rm_get_export_size(rules));
	EXPECT_EQ(rm_export(rules, bytes.data()), bytes.size());
	return ImageBytes(std::move(bytes));
}

// ---- evaluating ----

using Ids = std::vector<u16>;

inline Ids results_of(rm *rules)
{
	u16 *ids = nullptr;
	const std::size_t count = rm_get_result(rules, &ids);
	return {ids, ids + count};
}

inline Ids presets_of(rm *rules)
{
	u16 *ids = nullptr;
	const std::size_t count = rm_get_preset(rules, &ids);
	return {ids, ids + count};
}

/** Setting ids of @names (null: all rules) with the sources of @filter set from nothing. */
inline Ids selected(rm *rules, const char *filter, const char *names = nullptr)
{
	EXPECT_TRUE(rm_clear(rules));
	EXPECT_TRUE(rm_set(rules, filter, 0)) << filter;
	EXPECT_TRUE(rm_trigger(rules, names)) << filter;
	return results_of(rules);
}

// ---- fixture ----

/** An empty context and an empty map, and the demand that every message was expected. */
class RmTest : public testing::Test {
protected:
	void SetUp() override
	{
		ASSERT_TRUE(rules.init());
		ASSERT_TRUE(map.init());
	}
	void TearDown() override { EXPECT_EQ(take_log(), "") << "a message that nobody expected"; }

	bool declare(const std::string &sources)
	{
		return vexil_test::declare(rules.get(), sources);
	}
	bool add(const std::string &groups)
	{
		return vexil_test::add_rules(rules.get(), map.get(), groups);
	}
	void setting(const std::string &name, int id) { add_name(map->ipname_map, name, id); }
	void preset(const std::string &name, int id) { add_name(map->preset_map, name, id); }

	[[nodiscard]] int label(const std::string &text) const
	{
		return ctrie_find(&rules->source_map, text.c_str());
	}
	[[nodiscard]] int rule_id(const std::string &name) const
	{
		return ctrie_find(&rules->rulename_map, name.c_str());
	}
	[[nodiscard]] std::string node(std::size_t id) const
	{
		return rule_node_text(rules.get(), id);
	}
	[[nodiscard]] Lines nodes(std::size_t first = 0) const
	{
		return rule_nodes(rules.get(), first);
	}
	[[nodiscard]] Lines records(int tag) const { return rule_records(rules.get(), tag); }

	Map map;
	Rules rules;
};

} // namespace vexil_test
