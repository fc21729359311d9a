// SPDX-License-Identifier: MIT
//
// Output that appears whole or not at all.
#pragma once

#include <string>
#include <vector>

namespace vexil_tool {

struct Output {
	std::string path;
	std::vector<char> bytes;
};

inline constexpr size_t kMostOutputs = 2;

/**
 * Puts the bytes of each output into its path: all are written to files beside them and synced,
 * then renamed over them. Whatever fails before, and when the command is interrupted, the files
 * beside them are removed and older ones stay as they were. A link is followed; a device or pipe is
 * written to directly.
 */
void write_outputs(const std::vector<Output> &outputs);

/** True for a path that is written to directly. */
[[nodiscard]] bool is_device(const std::string &path);

/** The rule image that belongs to a PIM image: its path with the suffix .rule. */
[[nodiscard]] std::string rules_beside(const std::string &path);

} // namespace vexil_tool
