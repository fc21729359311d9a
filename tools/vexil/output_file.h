// SPDX-License-Identifier: MIT
//
// Output that appears whole or not at all.
#pragma once

#include <string>
#include <vector>

namespace vexil_tool {

/**
 * Puts @bytes into @path: written to a file beside it, synced, then renamed over it. Whatever
 * fails, and when the command is interrupted, the file beside it is removed and an older @path
 * stays as it was. A link is followed; a device or pipe is written to directly.
 */
void write_output(const std::string &path, const std::vector<char> &bytes);

} // namespace vexil_tool
