// SPDX-License-Identifier: MIT
//
// Input files, read whole.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vexil_tool {

inline constexpr size_t kLargestFile = size_t{512} << 20; // bytes

/**
 * The bytes of a regular file. Refuses folders, pipes, devices, files that are empty or larger than
 * kLargestFile, and what cannot be read, each with its own cause.
 */
[[nodiscard]] std::vector<char> read_file(const std::string &path);

} // namespace vexil_tool
