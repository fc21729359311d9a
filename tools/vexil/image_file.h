// SPDX-License-Identifier: MIT
//
// Images from files. The one place that opens them.
#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <vexil/verify.h>

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

/** How images are opened. */
struct ImageOptions {
	bool no_verify = false;
};

/** --no-verify */
void add_image_options(CLI::App &command, ImageOptions &options);

/** What the library says of an image, and where: "a node is reached twice (node 7 ...)". */
[[nodiscard]] std::string fault_text(const vexil_image_fault &fault);

/**
 * Reads an image of either kind. Refuses what is no image, of another version, truncated or, unless
 * @options say otherwise, does not verify. Rules that lead back to themselves are noted only: under
 * conditions that exclude each other they never do.
 */
[[nodiscard]] ImageFile read_image(const std::string &path, const ImageOptions &options,
				   Console &console);

/**
 * A map over an image, in address form when @table has rows. An image of another kind is refused;
 * one whose names could not all be indexed is warned about.
 */
[[nodiscard]] Map open_map(ImageFile image, std::vector<ST_PQ_REG_INFO> table, Console &console);

/** Rules over an image. An image of another kind, or one that the library refuses, is refused. */
[[nodiscard]] Rules open_rules(ImageFile image);

/** read_image and open_map. */
[[nodiscard]] Map open_map(const std::string &path, const ImageOptions &options, Console &console);

} // namespace vexil_tool
