// SPDX-License-Identifier: MIT
//
// Images from files. The one place that opens them.
#pragma once

#include <string>
#include <vector>

#include "console.h"
#include "map.h"
#include "rules.h"

namespace vexil_tool {

enum class ImageKind : u16 { kMap = 1, kRules = 2 };

/** An image in memory of our own, with the figures of its head. */
struct ImageFile {
	std::string path;
	std::vector<char> bytes;
	extmem_buffer_header header;
	ImageKind kind;
	u32 node_bytes_used;
	u32 node_bytes_max;
	u32 data_bytes_used;
	u32 data_bytes_max;

	[[nodiscard]] size_t nodes() const { return node_bytes_used / sizeof(extmem_node); }
};

/**
 * Reads an image of either kind. Refuses what is no image, of another version, truncated or
 * contradicts itself.
 */
[[nodiscard]] ImageFile read_image(const std::string &path, Console &console);

/**
 * A map over an image, in address form when @table has rows. An image of another kind is refused;
 * one whose names could not all be indexed is warned about.
 */
[[nodiscard]] Map open_map(ImageFile image, std::vector<ST_PQ_REG_INFO> table, Console &console);

/** Rules over an image. An image of another kind, or one that the library refuses, is refused. */
[[nodiscard]] Rules open_rules(ImageFile image);

/** read_image and open_map. */
[[nodiscard]] Map open_map(const std::string &path, Console &console);

} // namespace vexil_tool
