// SPDX-License-Identifier: MIT
//
// Numbers as source filters and range texts write them.
#pragma once

#include <string>

#include <vexil/types.h>

namespace vexil_tool {

/**
 * Decimal, hexadecimal behind "0x", octal behind "0", by the library's rules; but the library takes
 * everything else for 0, and here it is false.
 */
[[nodiscard]] bool read_number(const std::string &text, u64 *number);

} // namespace vexil_tool
