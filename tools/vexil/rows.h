// SPDX-License-Identifier: MIT
//
// Register pairs, ready to be shown, and tables of texts.
#pragma once

#include <string>
#include <vector>

#include "map.h"
#include "register_names.h"

namespace vexil_tool {

inline constexpr u32 kAddressBits = 27;
inline constexpr u32 kAddressMask = (1u << kAddressBits) - 1;

/** The pairs of a delivered list; the library has checked that they are there. */
[[nodiscard]] std::vector<func_pair> pairs_of(const Delivered &block);

/** One pair, ready to be shown. */
struct Row {
	func_pair pair;
	std::string name;
	u32 domain;  // address form, and hardware positions that the table knows
	u32 address; // the same
	u32 mask;    // the same
};

[[nodiscard]] Row read_row(Form form, const func_pair &pair, const RegisterNames &names);

[[nodiscard]] std::string domain_text(u32 domain);

/** Software and customer values may be negative. */
[[nodiscard]] std::string decimal(Form form, u32 value);

/** Domain, address and mask of a row; nothing when they are unknown. */
[[nodiscard]] std::vector<std::string> location(const Row &row);

struct Column {
	const char *title;
	bool numbers; // stand to the right
};

/**
 * Columns as wide as what stands in them; those that stay empty are left out.
 * @most: lines; what is left out is counted in a last line
 */
void print_columns(const std::vector<Column> &columns,
		   const std::vector<std::vector<std::string>> &lines, size_t most = ~size_t{0});

} // namespace vexil_tool
