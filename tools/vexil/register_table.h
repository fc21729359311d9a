// SPDX-License-Identifier: MIT
//
// The register table of a product: where each hardware register lives.
#pragma once

#include <string>
#include <vector>

#include <vexil/reg_info.h>

#include "console.h"

namespace vexil_tool {

/** One field, by its position in the table. */
struct RegisterField {
	std::string name; // may be empty
	u32 domain;       // 0 to 15
	u32 address;      // 27 bits
	u32 lowest_bit;   // 0 to 15
	u32 width;        // bits, 1 to 16
	bool valid;
};

class RegisterTable {
public:
	/**
	 * Reads an array of {"name", "domain", "addr", "lsb", "width"} in position order; null
	 * stands for a position without a register. Anything out of range is refused.
	 */
	static RegisterTable read(const std::string &path, Console &console);

	[[nodiscard]] bool empty() const { return fields_.empty(); }
	/** The field at a position, or null. */
	[[nodiscard]] const RegisterField *field(u32 position) const;
	/** Names of the fields of one register that @mask touches, lowest bit first. */
	[[nodiscard]] std::vector<std::string> names_at(u32 domain, u32 address, u32 mask) const;
	/** As maps take it. */
	[[nodiscard]] std::vector<ST_PQ_REG_INFO> rows() const;

private:
	std::vector<RegisterField> fields_;
	std::vector<u32> by_address_; // positions of valid fields, by domain, address and bit
};

/** Short name of a time domain, or null for numbers that are none. */
[[nodiscard]] const char *domain_name(u32 domain);

} // namespace vexil_tool
