// SPDX-License-Identifier: MIT
//
// What rules must select, worked out from a product's documents with plain maps and strings.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/tool/model.h"

namespace vexil_test {

/** Rules and results of one evaluation. */
struct Selection {
	std::vector<std::string> labels;                     // in the order of selection
	std::vector<std::pair<std::string, size_t>> matched; // rule and case, 0 for none, in order
};

class RuleModel {
public:
	explicit RuleModel(const std::string &folder);

	/** Evaluates a rule, and those that it leads to, for a source filter; appends. */
	void evaluate(const std::string &filter, const std::string &rule,
		      Selection &selection) const;
	[[nodiscard]] const std::vector<std::string> &rules() const { return order_; }

	Json sources; // by name, as in the document

private:
	struct Values {
		std::map<std::string, std::string> named;
		std::map<std::string, uint64_t> numbers;
	};

	[[nodiscard]] Values read(const std::string &filter) const;
	[[nodiscard]] bool holds(const Values &values, const std::string &source,
				 const Json &wanted) const;
	void evaluate(const Values &values, const std::string &rule, Selection &selection) const;

	std::map<std::string, Json> rules_;
	std::vector<std::string> order_;
};

/** A register after a sequence of deliveries. */
struct ExpectedRegister {
	uint32_t value;
	std::string writer;

	bool operator==(const ExpectedRegister &) const = default;
};

/** By tag of the delivered list, then by number. */
using ExpectedRegisters = std::map<int, std::map<uint32_t, ExpectedRegister>>;

/** What the settings of a selection, then its presets, leave in the registers. */
ExpectedRegisters registers_of(const std::vector<std::string> &labels, const Model &model);

extern const std::string kFilm;
extern const std::string kComposite;
extern const std::string kGaming;

} // namespace vexil_test
