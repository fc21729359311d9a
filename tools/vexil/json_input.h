// SPDX-License-Identifier: MIT
//
// JSON documents from files, with the place of what is wrong in them.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "console.h"
#include "core/json.h"
#include "library.h"

namespace vexil_tool {

struct DeleteJson {
	void operator()(cJSON *root) const { library().fp_CB_vexil_json_delete(root); }
};
using Json = std::unique_ptr<cJSON, DeleteJson>;

/** What a document must be. */
enum class Root { kObject, kArray };

/**
 * Reads and parses a file. A file that is no such document is refused with FILE:LINE:COLUMN and the
 * cause; text after the document is warned about.
 */
[[nodiscard]] Json read_json(const std::string &path, Root root, Console &console);

/** Where a byte stands; both count from 1, columns in characters. */
struct Place {
	size_t line;
	size_t column;
};
[[nodiscard]] Place place_of(std::string_view text, size_t offset);

/** What is wrong with a text that does not parse, and at which byte. */
struct Fault {
	size_t offset;
	std::string cause;
};

/** @stopped: the byte at which the parser gave up. */
[[nodiscard]] Fault explain_fault(std::string_view text, size_t stopped);

} // namespace vexil_tool
