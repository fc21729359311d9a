// SPDX-License-Identifier: MIT
//
// Map: a PIM and what it stands on. The one place that calls the
// library's services for maps.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pim/pim.h"

namespace vexil_tool {

/** One block as a callback received it. */
struct Delivered {
	enum class Kind { kRegisters, kTable, kAlgorithm };
	Kind kind;
	int tag;
	std::string_view data; // inside the map
	std::string name;      // handler label of a table, entry name of an algorithm file
};

/** What one loading call delivered. */
struct Load {
	std::vector<Delivered> blocks;
	u32 remaining = VEXIL_LOAD_UNLIMITED; // budget; negative as s32 when it ended at a block
	/** The map is damaged: it delivers the same bytes again and again. The rest was dropped. */
	bool endless = false;
};

inline constexpr size_t kMostNodes = vexil::kMaxNodes;
/** Labels whose tables one map can send apart. */
inline constexpr size_t kMostHandlers = vexil::kMaxHandlers;

class Map {
public:
	/** An empty map. */
	Map();
	/**
	 * A map over an image, in the image's own bytes.
	 * @table: with rows, hardware lists are rewritten into address form
	 * @complete: false when names of the image could not be indexed
	 * Return: nothing when the library refuses the image.
	 */
	static std::optional<Map> adopt(std::vector<char> image, std::vector<ST_PQ_REG_INFO> table,
					bool *complete);
	/**
	 * @base with @sub over it.
	 * @error: why there is none: the library's code; EXTMEM_SUCCESS when names of the result
	 * could not be indexed
	 */
	static std::optional<Map> merge(const Map &base, const Map &sub, extmem_err_code *error);

	Map(Map &&other) noexcept;
	Map &operator=(Map &&other) = delete;
	~Map();

	// Building.
	bool insert_hardware(const cJSON *document);
	bool insert_software(const cJSON *document);
	bool insert_customer(const cJSON *document);
	bool insert_handler(const std::string &label);
	bool insert_file(const std::string &name, const std::vector<char> &bytes);
	bool insert_groups(const cJSON *document);
	/** Drops what only building needs. */
	void finish();
	/** The image; empty when it could not be written. */
	[[nodiscard]] std::vector<char> exported();

	// Asking.
	[[nodiscard]] u16 setting_id(const std::string &label) const;
	[[nodiscard]] u16 preset_id(const std::string &label) const;
	/** Id of an IP, VEXIL_NO_ID when there is none of that name. */
	[[nodiscard]] u16 ip_id(const std::string &name) const;
	/** Whether a node is a configuration that rules may select, in or out of the tree. */
	[[nodiscard]] bool is_setting(u16 id) const;
	[[nodiscard]] bool is_preset(u16 id) const;
	/** Label of a configuration, or nothing. */
	[[nodiscard]] std::string label(u16 id) const;
	/** Bytes of nodes and data in use. */
	[[nodiscard]] size_t nodes_used() const;
	[[nodiscard]] size_t bytes_used() const;
	[[nodiscard]] extmem_err_code store_error() const { return record_->builder.err_code; }
	[[nodiscard]] vexil_version version() const { return record_->total_version; }
	[[nodiscard]] std::string customer_text() const;
	/** For walks over the tree. */
	[[nodiscard]] pim *record() const { return record_; }
	/** The tree through the library's log. */
	void print() const;

	// Loading.
	/** Makes tables of these labels arrive, kMostHandlers at most, and algorithm files. */
	void receive_tables(const std::vector<std::string> &labels);
	[[nodiscard]] Load load(u16 id, u32 budget);
	/** By name only to have the library say that there is no such label. */
	void load_unknown(const std::string &label);
	[[nodiscard]] Load load_preset(u16 id, const std::string &table);
	[[nodiscard]] Load load_common();

private:
	explicit Map(pim *record) : record_(record) {}

	std::vector<char> image_;           // empty unless adopted
	std::vector<ST_PQ_REG_INFO> table_; // what the record refers to
	std::vector<std::string> labels_;   // of handlers, by their place
	pim *record_ = nullptr;
};

} // namespace vexil_tool
