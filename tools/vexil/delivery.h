// SPDX-License-Identifier: MIT
//
// Delivered blocks, shown as text and as JSON.
#pragma once

#include "catalogue.h"
#include "json_output.h"
#include "map.h"
#include "register_names.h"
#include "rows.h"

namespace vexil_tool {

/** Prints a block as an indented table; of a file, its name, size and first bytes. */
void print_block(const Delivered &block, const RegisterNames &names, const Catalogue &catalogue);

/** One pair of a register list. */
[[nodiscard]] OutputJson pair_json(Form form, const Row &row);

[[nodiscard]] OutputJson block_json(const Delivered &block, const RegisterNames &names,
				    const Catalogue &catalogue);

} // namespace vexil_tool
