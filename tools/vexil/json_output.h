// SPDX-License-Identifier: MIT
//
// JSON on standard output: members in the order in which they were added, ASCII only. Bytes that
// are not UTF-8 become U+FFFD.
#pragma once

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace vexil_tool {

using OutputJson = nlohmann::ordered_json;

inline void print(const OutputJson &output)
{
	constexpr int kIndent = 2;
	constexpr bool kAsciiOnly = true;
	fmt::print("{}\n",
		   output.dump(kIndent, ' ', kAsciiOnly, OutputJson::error_handler_t::replace));
}

} // namespace vexil_tool
