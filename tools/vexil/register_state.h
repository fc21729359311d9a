// SPDX-License-Identifier: MIT
//
// Registers after a sequence of deliveries: each with its last value and who wrote it last.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "map.h"
#include "register_names.h"
#include "rows.h"

namespace vexil_tool {

/** A register and its last writers. */
struct WrittenRegister {
	Row row;
	/** Labels whose bits stand; one, except for words that several wrote parts of. */
	std::vector<std::string> writers;
	size_t writes;
};

class RegisterState {
public:
	explicit RegisterState(const RegisterNames &names) : names_(names) {}

	/** One delivered register list. */
	void write(const Delivered &block, const std::string &label);

	/** Registers of a form by number, or by domain and address. */
	[[nodiscard]] std::vector<WrittenRegister> registers(Form form) const;
	[[nodiscard]] size_t count() const { return words_.size() + numbers_.size(); }

private:
	struct Written {
		u32 value;
		u32 mask;          // of words: bits that were written
		size_t writer[16]; // of words, for each bit
		size_t last;       // writer, by place in labels_
		size_t writes;
	};

	const RegisterNames &names_;
	std::vector<std::string> labels_;
	std::map<u32, Written> words_; // by domain and address
	std::map<std::pair<Form, u32>, Written> numbers_;
};

} // namespace vexil_tool
