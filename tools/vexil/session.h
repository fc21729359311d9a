// SPDX-License-Identifier: MIT
//
// A map, its rules, and one evaluation of them: what 'run' and 'explain' have in common. Names that
// the library would pass over are refused, with what they may have been meant to be.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "catalogue.h"
#include "console.h"
#include "image_file.h"
#include "library_log.h"
#include "map.h"
#include "rule_catalogue.h"
#include "rules.h"

namespace vexil_tool {

struct StateOptions {
	std::string map;
	std::string rules;
	std::vector<std::string> sets;   // source filters
	std::vector<std::string> wanted; // rule lists; none for every rule
	std::string command;             // whose options these are
	ImageOptions opening;
};

/** PIM, RULE, --set and --rule. */
void add_state_options(CLI::App &command, StateOptions &options);

/**
 * Refuses rules that are damaged, or select what is not in the map; warns when they say that they
 * were built for another one. Paths are for messages.
 */
void check_fit(const Rules &rules, const RuleCatalogue &catalogue, const std::string &rules_path,
	       const Map &map, const std::string &map_path, Console &console);

class Session {
public:
	/** Opens both images, which must fit. */
	Session(const StateOptions &options, std::vector<ST_PQ_REG_INFO> table, Console &console);

	/** Sets the sources, and finds the rules that are asked for; what is not known is refused.
	 */
	void set();
	/** Evaluates the rules; what stops that is refused. */
	void trigger();

	[[nodiscard]] Map &map() { return map_; }
	[[nodiscard]] const Catalogue &content() const { return content_; }
	[[nodiscard]] const RuleCatalogue &rules() const { return catalogue_; }
	/** The key and the numbers as they were set. */
	[[nodiscard]] const rm_individual &state() const { return evaluation_->state(); }
	/** The rules that were asked for, in the order of evaluation. */
	[[nodiscard]] const std::vector<u16> &wanted() const { return wanted_; }
	/** Ids, in the order in which they were selected. */
	[[nodiscard]] const std::vector<u16> &settings() const { return settings_; }
	[[nodiscard]] const std::vector<u16> &presets() const { return presets_; }
	/** Label of a configuration, also of one that merging has replaced. */
	[[nodiscard]] std::string label(u16 id) const { return map_.label(id); }
	/** Lines of the library since the last call. */
	[[nodiscard]] std::vector<std::string> take_log() { return log_.take(); }

private:
	void check_statement(const std::string &token) const;
	void find_wanted();
	[[nodiscard]] std::string why_it_ended(u16 rule) const;
	[[noreturn]] void refuse_evaluation();

	const StateOptions &options_;
	Console &console_;
	Map map_;
	Catalogue content_;
	Rules rules_;
	RuleCatalogue catalogue_;
	LibraryLog log_;
	std::unique_ptr<Evaluation> evaluation_;
	std::string rule_list_; // as the library takes it
	std::vector<u16> wanted_;
	std::vector<u16> settings_;
	std::vector<u16> presets_;
};

} // namespace vexil_tool
