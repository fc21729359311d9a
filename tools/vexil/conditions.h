// SPDX-License-Identifier: MIT
//
// Conditions: what an alternative of a case wants of each source, in words, and whether it is so.
#pragma once

#include <string>
#include <vector>

#include "rule_catalogue.h"

namespace vexil_tool {

/** What was set: the key with its mask, and the numbers. */
struct State {
	std::vector<u64> key;
	std::vector<u64> mask;
	std::vector<u64> numbers; // by slot

	State(const rm_individual &individual, const RuleCatalogue &catalogue);
};

/** One condition of an alternative. */
struct Condition {
	std::string source;
	std::string wanted;  // "HDMI1", "24 to 219", "Dark (Luma 24 to 219)"
	std::string present; // "HDMI2", "812", "Bright (Luma 812)", "not set"
	bool holds;
};

/** Why a case does not match: the first source at which its last alternatives fail. */
struct Failing {
	std::string source;
	std::string present;
	std::vector<std::string>
		wanted; // any of them would do; empty for a case without alternatives
};

/** Looks at alternatives with one state. */
class Conditions {
public:
	Conditions(const RuleCatalogue &catalogue, const rm_individual &individual);

	/** As evaluation compares: every word of the key, every range. */
	[[nodiscard]] bool matches(const AlternativeInfo &alternative) const;
	/** In the order in which they are compared. */
	[[nodiscard]] std::vector<Condition> of(const AlternativeInfo &alternative) const;
	/** Of a case without a matching alternative. */
	[[nodiscard]] Failing why_not(const CaseInfo &entry) const;

private:
	[[nodiscard]] Condition field(const SourceInfo &source, u64 wanted) const;
	[[nodiscard]] Condition range(const RangeInfo &range) const;
	[[nodiscard]] bool holds(const RangeInfo &range) const;
	[[nodiscard]] std::string number_text(const SourceInfo &source) const;
	/** A redefined value that stands for the ranges from @at on, or null. */
	[[nodiscard]] const LabelInfo *redefinition(const std::vector<RangeInfo> &ranges, size_t at,
						    const SourceInfo **source) const;
	[[nodiscard]] Condition redefined(const SourceInfo &source, const LabelInfo &label) const;

	const RuleCatalogue &catalogue_;
	State state_;
	std::vector<const SourceInfo *>
		fields_; // enumerated sources and value sources, by first bit
};

/** "24 to 219", "640 or more", "5". */
[[nodiscard]] std::string interval_text(u64 first, u64 last);

} // namespace vexil_tool
