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

/** One condition of an alternative, beside what is set. */
struct Condition {
	std::string source;
	bool is_number; // a range of a value source; otherwise one value of an enumerated source
	bool holds;
	bool is_set;

	std::string wanted_value;
	std::string present_value; // empty unless set

	u64 first; // wanted
	u64 last;
	u64 number;                            // present; counts as 0 when it is not set
	std::vector<std::string> wanted_names; // "Scene:Dark": redefined values that say this range
	std::vector<std::string> present_names; // values of the same sources that hold now
};

/** "HDMI1", "24 to 219 (Scene:Dark)". */
[[nodiscard]] std::string wanted_text(const Condition &condition);
/** "812", "not set, which counts as 0". */
[[nodiscard]] std::string number_text(const Condition &condition);
/** "HDMI2", "not set", "812 (Scene:Bright)". */
[[nodiscard]] std::string present_text(const Condition &condition);

/** Why a case does not match: the first source at which its last alternatives fail. */
struct Failing {
	std::string source; // empty for a case without alternatives
	/** What each of those alternatives wants of it: all of one entry, any of the entries. */
	std::vector<std::vector<Condition>> wanted;
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
	/** Bits of the key, and the source whose labels stand for their codes. */
	struct Field {
		const SourceInfo *source;
		source_desc bits;
	};

	[[nodiscard]] Condition field(const Field &field, u64 wanted) const;
	[[nodiscard]] Condition range(const RangeInfo &range, const AlternativeInfo &of) const;
	[[nodiscard]] bool holds(const RangeInfo &range) const;
	[[nodiscard]] bool holds(const LabelInfo &redefined) const;

	const RuleCatalogue &catalogue_;
	State state_;
	std::vector<Field> fields_; // by first bit
};

/** "24 to 219", "640 or more", "5". */
[[nodiscard]] std::string interval_text(u64 first, u64 last);

} // namespace vexil_tool
