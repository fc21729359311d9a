// SPDX-License-Identifier: MIT
//
// Words for the numbers in images.
#pragma once

#include <string>

#include <vexil/types.h>

namespace vexil_tool {

/** Name of a tag as in vexil/tags.h, without its prefix; "TAG_n" for unassigned ones. */
[[nodiscard]] std::string tag_name(int tag);

/** The word that documents use for a PQ level, "default" and "preset" for those without one. */
[[nodiscard]] std::string level_name(u32 level);

/** "2.2.117". */
[[nodiscard]] std::string version_text(const vexil_version &version);

} // namespace vexil_tool
