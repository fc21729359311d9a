// SPDX-License-Identifier: MIT
//
// What a product adds to an image: names for the numbers in register lists, and where hardware
// registers live.
#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "console.h"
#include "register_lists.h"
#include "register_table.h"

namespace vexil_tool {

/** Where names come from; everything may be left out. */
struct NameSources {
	std::string product; // manifest or folder
	std::vector<std::string> hardware, software, customer;
	std::string register_info; // instead of the product's
	bool address_form = false; // maps are adopted with the register table
	std::string command;       // whose options these are
};

/** --product, --hw, --sw, --cus and --reginfo. */
void add_name_options(CLI::App &command, NameSources &names);
/** --address; after add_name_options. */
void add_address_option(CLI::App &command, NameSources &names);

/** How the words of a register list are to be read. */
enum class Form { kHardware, kSoftware, kCustomer, kAddress };

/** The form of a list that arrives with this tag. */
[[nodiscard]] Form form_of(int tag);

class RegisterNames {
public:
	/** Refuses address form without a table. */
	RegisterNames(const NameSources &sources, Console &console);

	[[nodiscard]] const RegisterTable &table() const { return table_; }
	/** The table that maps are adopted with: none unless address form was asked for. */
	[[nodiscard]] std::vector<ST_PQ_REG_INFO> adopted_rows() const;
	/** What a position or number stands for, or nothing. */
	[[nodiscard]] std::string name(Form form, u32 number) const;

private:
	RegisterLists lists_;
	RegisterTable table_;
	bool address_form_;
};

} // namespace vexil_tool
