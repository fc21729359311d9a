// SPDX-License-Identifier: MIT
//
// Walk: rules as one state evaluates them: which case matches, what it selects, where it leads.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "conditions.h"
#include "rule_catalogue.h"

namespace vexil_tool {

/** What becomes of a rule in this state: the same wherever it is led to. */
struct Answer {
	const RuleInfo *rule;
	const CaseInfo *matched;     // null for none
	size_t number;               // of the matched case, from 1; otherwise the number of cases
	std::vector<Failing> failed; // of the cases before it
	std::vector<Condition> conditions; // of the alternative that matched

	enum class Progress { kOnPath, kDone } progress;
	std::vector<u16> settings; // with those of the rules that it leads to
	std::vector<u16> presets;
};

/** A rule that was evaluated, in the order of evaluation. */
struct Entry {
	const Answer *answer;
	size_t depth;
	bool repeated; // it, and what it leads to, stands above
};

inline constexpr const char *kTooManyRules = "it leads to more rules than can be evaluated at once";

class Walk {
public:
	/** @wanted: rules in the order of evaluation. Ends with the rule at which evaluation ends.
	 */
	Walk(const RuleCatalogue &catalogue, const rm_individual &state,
	     const std::vector<u16> &wanted);

	[[nodiscard]] const std::vector<Entry> &entries() const { return entries_; }
	/** Ids in the order in which evaluation selects them. */
	[[nodiscard]] const std::vector<u16> &settings() const { return settings_; }
	[[nodiscard]] const std::vector<u16> &presets() const { return presets_; }
	/** Why it ended before the end: "it leads in a circle: A -> B -> A"; otherwise nothing. */
	[[nodiscard]] const std::string &stopped() const { return stopped_; }

private:
	struct Step {
		Answer *answer;
		size_t outcome; // the next one to act on
	};

	void walk(u16 id);
	void enter(u16 id);
	void leave();
	/** Where ids go that are selected now. */
	[[nodiscard]] std::vector<u16> &settings_now();
	[[nodiscard]] std::vector<u16> &presets_now();
	void add(std::vector<u16> &to, const std::vector<u16> &ids);
	[[nodiscard]] Answer answer(const RuleInfo &rule) const;
	[[nodiscard]] std::string circle(u16 id) const;

	const RuleCatalogue &catalogue_;
	Conditions conditions_;
	std::map<u16, Answer> answers_;
	std::vector<Step> path_;
	std::vector<Entry> entries_;
	std::vector<u16> settings_;
	std::vector<u16> presets_;
	std::string stopped_;
};

} // namespace vexil_tool
