// SPDX-License-Identifier: MIT
//
// What is in a rule image: sources and rules as plain records, in the order of the image.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "rules.h"

namespace vexil_tool {

inline constexpr u64 kNoSlot = ~u64{0};

/** A range of a value source's numbers. */
struct RangeInfo {
	u16 record;    // that holds it
	u16 slot_node; // names the value source; VEXIL_NO_ID when it is unresolved
	u64 slot;      // of the value source; kNoSlot when it cannot be read
	u64 first;
	u64 last;

	[[nodiscard]] bool same_as(const RangeInfo &other) const
	{
		return slot == other.slot && first == other.first && last == other.last;
	}
};

enum class SourceKind { kValues, kNumber, kRanges };
[[nodiscard]] const char *source_kind_name(SourceKind kind);

/** "source:value", or the bare name of a value source. */
struct LabelInfo {
	u16 id;
	std::string text;
	std::string value;             // empty for value sources
	source_desc field;             // its code is the rank; zero for redefined values
	std::vector<RangeInfo> ranges; // of a redefined value
};

struct SourceInfo {
	std::string name;
	SourceKind kind;
	source_desc field; // of the first label
	u64 slot;          // of a value source; kNoSlot for others
	std::vector<LabelInfo> labels;
};

/** One pattern of a case: every word of the key must match, and every range hold. */
struct AlternativeInfo {
	std::vector<u64> value; // words
	std::vector<u64> mask;
	std::vector<RangeInfo> ranges;
};

struct OutcomeInfo {
	int tag; // value, preset or node holder
	u16 record;
	std::vector<u16> ids;
};

struct CaseInfo {
	std::vector<AlternativeInfo> alternatives;
	std::vector<OutcomeInfo> outcomes;
};

struct RuleInfo {
	u16 id;
	std::string name;
	vexil_version version;
	std::vector<CaseInfo> cases;
	/** It cannot be asked for: merging has left its name to another rule. Others lead to it. */
	bool hidden;

	[[nodiscard]] size_t alternatives() const;
	/** Ids of the rules that it leads to, each once, in the order of its cases. */
	[[nodiscard]] std::vector<u16> children() const;
};

/** Copies everything: good without the rules. */
class RuleCatalogue {
public:
	explicit RuleCatalogue(const Rules &rules);

	std::vector<SourceInfo> sources;
	std::vector<RuleInfo> rules;
	size_t key_bits = 0;
	size_t slots = 0;
	/** The tree leads to the same nodes again and again; the walk was cut short. */
	bool damaged = false;

	[[nodiscard]] size_t key_words() const { return (key_bits + 63) / 64; }
	/** The rule at a node, or null. */
	[[nodiscard]] const RuleInfo *rule(u16 id) const;
	/** Its name, or something to call the node. */
	[[nodiscard]] std::string rule_name(u16 id) const;
	/** The source with this value slot, or null. */
	[[nodiscard]] const SourceInfo *source_of_slot(u64 slot) const;
	[[nodiscard]] std::vector<std::string> rule_names() const;
	/**
	 * Circles in which rules lead to each other, whatever the conditions are: at least one
	 * where there is any. Each ends with the rule that it begins with.
	 * @from: rules from which they can be reached
	 */
	[[nodiscard]] std::vector<std::vector<u16>> circles(const std::vector<u16> &from) const;
	/** "A -> B -> A". */
	[[nodiscard]] std::string path_text(const std::vector<u16> &path) const;

private:
	std::map<u16, size_t> rules_by_id_;
	std::map<u64, size_t> sources_by_slot_;
};

} // namespace vexil_tool
