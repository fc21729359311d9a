// SPDX-License-Identifier: MIT
//
// Rules: a rule context and what it stands on; Evaluation: one state over it. The one place that
// calls the library's services for rules.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "map.h"
#include "rm/rm.h"

namespace vexil_tool {

/** A name that waits for its definition, and the record that it would be written into. */
struct PendingName {
	std::string name;
	u16 record;
};

class Rules {
public:
	/** Empty rules. */
	Rules();
	/** Rules over an image, in the image's own bytes; nothing when the library refuses it. */
	static std::optional<Rules> adopt(std::vector<char> image);
	/**
	 * The rules of two images for the map that their maps were merged into.
	 * @error: why there are none: the library's code; EXTMEM_SUCCESS when names of the result
	 * could not be indexed
	 */
	static std::optional<Rules> merge(const Rules &base, const Rules &sub, const Map &map,
					  extmem_err_code *error);

	Rules(Rules &&other) noexcept;
	Rules &operator=(Rules &&other) = delete;
	~Rules();

	// Building.
	bool insert_sources(const cJSON *document);
	void insert_rules(const cJSON *document, const Map &map);
	/** False while names are pending, and when there is no room. */
	bool finish();
	[[nodiscard]] std::vector<PendingName> pending_rules() const;
	[[nodiscard]] std::vector<PendingName> pending_sources() const;
	/** The image; empty when it could not be written. */
	[[nodiscard]] std::vector<char> exported();

	// Asking.
	/** Id of a source label, or of a rule; VEXIL_NO_ID when there is none of that name. */
	[[nodiscard]] u16 label_id(const std::string &label) const;
	[[nodiscard]] u16 rule_id(const std::string &name) const;
	[[nodiscard]] size_t nodes_used() const;
	[[nodiscard]] extmem_err_code store_error() const { return record_->builder.err_code; }
	[[nodiscard]] vexil_version list_version() const { return record_->rl_json_version; }
	/** Version and customer text of the map that the rules were built for. */
	[[nodiscard]] vexil_version map_version() const { return record_->total_version; }
	[[nodiscard]] std::string map_customer_text() const;
	/**
	 * Whether these are the rules of two images. They carry the sub's version, their map the
	 * base's. Merging keeps what the sub's root led to, so its counts are there as well.
	 */
	[[nodiscard]] bool are_merged() const;
	/** For walks over the tree. */
	[[nodiscard]] rm *record() const { return record_; }
	/** The tree through the library's log. */
	void print() const;

private:
	explicit Rules(rm *record) : record_(record) {}

	std::vector<char> image_; // empty unless adopted
	rm *record_ = nullptr;
};

/** Must not outlive its rules. */
class Evaluation {
public:
	explicit Evaluation(const Rules &rules);
	~Evaluation();
	Evaluation(const Evaluation &) = delete;
	Evaluation &operator=(const Evaluation &) = delete;

	bool set(const std::string &filter);
	/** @rules: a list of names as the library takes it; null for every rule. */
	bool trigger(const std::string *rules);
	[[nodiscard]] std::vector<u16> settings() const;
	[[nodiscard]] std::vector<u16> presets() const;
	/** The key and the numbers as they stand. */
	[[nodiscard]] const rm_individual &state() const { return handler_->rmInd; }

private:
	rm_handler *handler_ = nullptr;
};

} // namespace vexil_tool
