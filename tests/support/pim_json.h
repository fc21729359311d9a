// SPDX-License-Identifier: MIT
//
// Maps built from documents, and what tests read back from them: the nodes of a store as text, the
// blocks that a load delivers as text.
//
// Documents are written with ' for ", so that they can stand in C++ source as they are.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/json.h"
#include "pim/pim.h"
#include "tests/support/pim_images.h"
#include "tests/support/platform.h"

namespace vexil_test {

struct DeleteJson {
	void operator()(cJSON *document) const { vexil_json_delete(document); }
};
using Json = std::unique_ptr<cJSON, DeleteJson>;

/** Parses a text in which ' stands for "; null when it does not parse. */
inline Json json(std::string text)
{
	std::replace(text.begin(), text.end(), '\'', '"');
	return Json(static_cast<cJSON *>(vexil_json_parse(text.c_str())));
}

/** A function-group document around the members of "PqFuncGroups". */
inline std::string groups(const std::string &objects)
{
	return "{'PqFuncGroups': {" + objects + "}}";
}

/** One setting "S" of one IP "A", around the setting's members. */
inline std::string setting(const std::string &members)
{
	return groups("'A': {'settings': {'S': {" + members + "}}}");
}

/** One configuration "S#M" around the members of its object. */
inline std::string config(const std::string &sections)
{
	return setting("'group': {'M': {" + sections + "}}");
}

/** pim_insert of a text; false, with the test failed, when it does not parse. */
inline bool insert(pim *map, const std::string &text)
{
	const Json document = json(text);
	EXPECT_TRUE(document) << text;
	return document && pim_insert(map, document.get());
}

// ---- reading a store ----

inline u32 u32_at(const char *bytes, size_t offset)
{
	u32 value;
	std::memcpy(&value, bytes + offset, sizeof(value));
	return value;
}

inline u16 u16_at(const char *bytes, size_t offset)
{
	u16 value;
	std::memcpy(&value, bytes + offset, sizeof(value));
	return value;
}

inline size_t node_count(const pim *map)
{
	return map->builder.node_buffer.buf_used / 16;
}

inline node_d node_at(pim *map, size_t id)
{
	return node_d{static_cast<u16>(id), &map->builder};
}

inline std::string tag_text(int tag)
{
	switch (tag) {
	case 1: return "GENERAL";
	case 17: return "IP";
	case 18: return "IP_SETTING";
	case 19: return "IP_CONFIG";
	case 20: return "PRESET_CONFIG";
	case 21: return "COMMON_CONFIG";
	case 22: return "PROPERTY";
	case 26: return "FILE";
	case 27: return "FUNCTION_DATA";
	case 28: return "ALGORITHM_DATA";
	case 31: return "PQLEVEL";
	case 32: return "VERSION";
	case 34: return "DATA";
	case 35: return "STRING";
	case 36: return "REGISTER";
	case 37: return "VREGISTER";
	case 45: return "ADDR";
	case 46: return "RIU";
	case 47: return "LEVEL";
	case 48: return "ADDR_IND";
	case 49: return "ADDR_PI";
	case 50: return "ADDR_L1";
	case 51: return "ADDR_L2";
	case 52: return "ADDR_L3";
	case 54: return "VERSION_HOLDER";
	case 55: return "CUS_VREGISTER";
	case 57: return "SYNC";
	default: return "tag" + std::to_string(tag);
	}
}

inline bool holds_registers(int tag)
{
	return tag == 36 || tag == 37 || tag == 45 || tag == 46 || (tag >= 48 && tag <= 52) ||
	       tag == 55 || tag == 57;
}

/**
 * "{1=7 2=8}", "{1=7 2=8} +3" with three empty pairs behind those that are counted; says so when
 * the record's length does not go with its count.
 */
inline std::string registers_text(const char *data, size_t length)
{
	if (length < 8)
		return "{short list of " + std::to_string(length) + " bytes}";
	const size_t count = u32_at(data, 0);
	if (u32_at(data, 4) != 0)
		return "{padding " + std::to_string(u32_at(data, 4)) + "}";
	const size_t held = 8 + 8 * count;
	const bool empty_tail =
		length >= held && (length - held) % 8 == 0 &&
		std::all_of(data + held, data + length, [](char c) { return c == 0; });
	if (!empty_tail)
		return "{" + std::to_string(count) + " pairs in " + std::to_string(length) +
		       " bytes}";
	std::string text = "{";
	for (size_t i = 0; i < count; ++i)
		text += (i ? " " : "") + std::to_string(u32_at(data, 8 + 8 * i)) + "=" +
			std::to_string(u32_at(data, 12 + 8 * i));
	return text + (length > held ? "} +" + std::to_string((length - held) / 8) : "}");
}

/** The scratch list of a common group, exactly as large, on the heap so that an overrun is seen. */
class CommonList {
public:
	CommonList() : words_(new u32[2 + 2 * 500]()) {}
	CommonList(const Pairs &pairs) : CommonList()
	{
		for (const func_pair &pair : pairs)
			get()->fn_tbl[get()->fn_num++] = pair;
	}
	reg_func *get() { return reinterpret_cast<reg_func *>(words_.get()); }
	[[nodiscard]] std::string text() const
	{
		return registers_text(reinterpret_cast<const char *>(words_.get()),
				      8 + 8 * size_t{words_[0]});
	}

private:
	std::unique_ptr<u32[]> words_;
};

/** A record that must be text with one NUL, at its end. */
inline std::string string_text(const char *data, size_t length)
{
	if (length == 0 || std::memchr(data, 0, length) != data + length - 1)
		return "<no text in " + std::to_string(length) + " bytes>";
	return "'" + std::string(data) + "'";
}

inline std::string payload_text(int tag, const char *data, size_t length)
{
	if (!data)
		return "<none>";
	if (holds_registers(tag))
		return registers_text(data, length);
	if (tag == 35)
		return string_text(data, length);
	if (tag == 47 && length == 4)
		return std::to_string(u32_at(data, 0));
	if (tag == 54 && length == 8)
		return std::to_string(u16_at(data, 0)) + "." + std::to_string(u16_at(data, 2)) +
		       "." + std::to_string(u32_at(data, 4));
	return "[" + std::string(data, length) + "]";
}

/** "2 IP c7 n3": id, tag, first child, next sibling; for a data holder id, tag and record. */
inline std::string node_text(const pim *map, size_t id)
{
	const auto *bytes = reinterpret_cast<const char *>(map->builder.node_buffer.buf) + 16 * id;
	const int tag = static_cast<u8>(bytes[2]);
	std::string text = std::to_string(id) + " " + tag_text(tag);
	if (u16_at(bytes, 0) != id)
		text += " stored id " + std::to_string(u16_at(bytes, 0));
	if (tag < EXTMEM_TAG_DATA_TYPE_BEGIN) {
		if (u16_at(bytes, 3) != 0xFFFF)
			text += " c" + std::to_string(u16_at(bytes, 3));
		if (u16_at(bytes, 5) != 0xFFFF)
			text += " n" + std::to_string(u16_at(bytes, 5));
		return text;
	}
	const size_t size = u32_at(bytes, 3);
	const size_t offset = u32_at(bytes, 7);
	const extmem_buffer_ctx &data = map->builder.data_buffer;
	const bool inside = offset <= data.buf_used && size <= data.buf_used - offset;
	return text + " " +
	       payload_text(tag,
			    inside ? reinterpret_cast<const char *>(data.buf) + offset : nullptr,
			    size);
}

using Lines = std::vector<std::string>;

/** The nodes of a map from @first on. */
inline Lines nodes(const pim *map, size_t first = 0)
{
	Lines lines;
	for (size_t id = first; id < node_count(map); ++id)
		lines.push_back(node_text(map, id));
	return lines;
}

/** The bytes of both buffers, capacities included. */
inline std::string store_bytes(const pim *map)
{
	const auto bytes = [](const extmem_buffer_ctx &buffer) {
		return std::to_string(buffer.buf_used) + "/" + std::to_string(buffer.buf_max) +
		       ":" +
		       std::string(reinterpret_cast<const char *>(buffer.buf), buffer.buf_max);
	};
	return bytes(map->builder.node_buffer) + bytes(map->builder.data_buffer);
}

// ---- deliveries ----

/** What algorithm handlers received: they are given no context. */
inline Lines &algorithm_log()
{
	static Lines lines;
	return lines;
}

/** A vexil_callback; @ctx is a Lines. */
inline bool record_block(int tag, const char *data, u32 length, void *ctx)
{
	static_cast<Lines *>(ctx)->push_back(tag_text(tag) + " " + payload_text(tag, data, length));
	return false; // results are ignored
}

/** A lookup-table handler; @ctx is a Lines. Each @kNumber is a function of its own. */
template <int kNumber>
bool record_table(int tag, const char *data, u32 length, void *ctx)
{
	static_cast<Lines *>(ctx)->push_back("table" + std::to_string(kNumber) + " " +
					     tag_text(tag) + " " + payload_text(tag, data, length));
	return false;
}

/** An algorithm handler. */
inline bool record_algorithm(int tag, const char *data, u32 length, const char *entry,
			     u32 entry_length)
{
	algorithm_log().push_back("algorithm " + tag_text(tag) + " " +
				  payload_text(tag, data, length) + " " +
				  string_text(entry, entry_length));
	return false;
}

/** Blocks that a configuration delivers, algorithm files at the end. */
inline Lines load(pim *map, u16 id)
{
	Lines lines;
	algorithm_log().clear();
	pim_load_setting(map, id, false, record_block, &lines);
	lines.insert(lines.end(), algorithm_log().begin(), algorithm_log().end());
	return lines;
}

/** The same by label, plain configurations before presets. */
inline Lines load(pim *map, const std::string &label)
{
	Lines lines;
	algorithm_log().clear();
	pim_load_setting_by_name(map, label.c_str(), record_block, &lines);
	lines.insert(lines.end(), algorithm_log().begin(), algorithm_log().end());
	return lines;
}

// ---- images ----

/** An exported map. */
inline ImageBytes image_of(pim *map)
{
	std::vector<char> bytes(pim_get_export_size(map));
	EXPECT_EQ(pim_export(map, bytes.data()), bytes.size());
	return ImageBytes(std::move(bytes));
}

// ---- fixture ----

/** An empty map, and the demand that every message was expected. */
class PimTest : public testing::Test {
protected:
	void SetUp() override { ASSERT_TRUE(map.init()); }
	void TearDown() override { EXPECT_EQ(take_log(), "") << "a message that nobody expected"; }

	bool insert(const std::string &text) { return vexil_test::insert(map.get(), text); }

	/** Hardware registers R0, R1, ... at positions 0, 1, ... */
	void add_registers(u32 count)
	{
		for (u32 i = 0; i < count; ++i)
			ASSERT_TRUE(
				pim_insert_regmap(map.get(), ("R" + std::to_string(i)).c_str(), i));
	}
	void add_file(const std::string &name, const std::string &bytes)
	{
		ASSERT_TRUE(pim_insert_file(map.get(), name.c_str(), bytes.data(),
					    static_cast<u32>(bytes.size())));
	}

	/** A map over an image, which the fixture keeps, instead of the one that is there. */
	bool adopt_image(ImageBytes bytes, RegisterTable registers = {})
	{
		pim_destroy(map.out());
		image = std::move(bytes);
		table = std::move(registers);
		return adopt(map, image, table);
	}

	[[nodiscard]] u16 setting_id(const std::string &label) const
	{
		return pim_query_setting_id(map.get(), label.c_str());
	}
	[[nodiscard]] u16 preset_id(const std::string &label) const
	{
		return pim_query_preset_id(map.get(), label.c_str());
	}
	Lines loaded(const std::string &label) { return load(map.get(), label); }
	[[nodiscard]] std::string node(size_t id) const { return node_text(map.get(), id); }

	ImageBytes image; // of an adopted map
	RegisterTable table;
	Map map;
};

inline std::string failed_to_convert(const std::string &setting)
{
	return "[VEXIL][PIM][__pim_find_ip] Failed to convert " + setting + " into ipconfig.";
}

} // namespace vexil_test
