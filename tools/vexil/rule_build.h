// SPDX-License-Identifier: MIT
//
// Sources and rules compiled into a rule image, and what is wrong with their documents: the
// library's complaints with the rule and case that they are about, and what it passes over without
// a word.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "console.h"
#include "json_input.h"
#include "library_log.h"
#include "map.h"
#include "rule_catalogue.h"
#include "rules.h"

namespace vexil_tool {

class RuleBuild {
public:
	/** @labels: of the map's configurations, for hints. */
	RuleBuild(Console &console, LibraryLog &log, const Map &map,
		  std::vector<std::string> labels);

	void sources(const cJSON *document, const std::string &path);
	void rules(const cJSON *document, const std::string &path);
	/** Ends the building: complains about names that are still unknown. */
	void finish();
	[[nodiscard]] std::vector<char> image();
	[[nodiscard]] size_t nodes_used() const { return rules_.nodes_used(); }

private:
	/** Where a rule is defined, and by how many cases. */
	struct Definition {
		std::string path;
		size_t cases;
	};

	void check_source(const cJSON *source, const std::string &path);
	void check_labels(const std::string &where, const cJSON *source, const cJSON *content,
			  const std::string &path);
	void check_define(const std::string &where, const cJSON *define, const cJSON *content,
			  const std::string &path);
	void check_name(const std::string &what, const std::string &name, const std::string &path);
	[[nodiscard]] bool is_declared_twice(const std::string &label) const;
	void check_range(const std::string &what, const cJSON *text, const std::string &path);
	/** False when the library passes over the group. */
	bool check_group(const cJSON *group, const std::string &path);
	void check_case(const std::string &where, const cJSON *entry, const std::string &path);
	[[nodiscard]] bool is_value_source(const std::string &name) const;
	/** Ranges that a redefined label stands for; 0 for other labels. */
	[[nodiscard]] size_t ranges_behind(const std::string &label) const;
	/** Which limit a comparator exceeds, or nothing. */
	[[nodiscard]] std::string excess_of(const cJSON *comparator) const;
	void insert_group(const cJSON *group, const std::string &path);
	/** The document of a rule of the image. */
	[[nodiscard]] const std::string &path_of(const RuleInfo &rule) const;
	void report_pending(const RuleCatalogue &catalogue);
	void report_circles(const RuleCatalogue &catalogue);
	void report_dropped(const RuleCatalogue &catalogue);
	void check_room(const std::string &path) const;

	Console &console_;
	LibraryLog &log_;
	const Map &map_;
	std::vector<std::string> labels_;
	Rules rules_;
	std::vector<std::string> source_labels_;        // declared so far
	std::map<std::string, std::string> sources_;    // documents by source name in lower case
	std::map<std::string, Definition> definitions_; // by rule name in lower case
	std::string last_path_;
};

} // namespace vexil_tool
