// SPDX-License-Identifier: MIT
//
// Texts for people: names from files made harmless for terminals, numbers, similar names.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <vexil/types.h>

namespace vexil_tool {

/**
 * @text with everything escaped that could move a cursor, change a terminal's state or reorder what
 * is read: control characters, broken UTF-8 (\x1b, \n), line and direction marks (\u{202E}). Other
 * text stays as it is.
 */
[[nodiscard]] std::string printable(std::string_view text);

/** 65535 as "65,535". */
[[nodiscard]] std::string grouped(u64 number);

/** "1 node", "2 nodes". */
[[nodiscard]] std::string counted(u64 number, std::string_view one, std::string_view many = {});

/** The texts with ", " between them. */
[[nodiscard]] std::string joined(const std::vector<std::string> &texts);

/** A-Z to a-z, as the library's names compare. */
[[nodiscard]] std::string lowered(std::string_view text);

/** The first character of @name that names cannot hold, escaped, or nothing. */
[[nodiscard]] std::string foreign_character(std::string_view name);

/**
 * Names among @known that @wanted may have been meant to be, best first, at most @most. Names that
 * begin with it come first.
 */
[[nodiscard]] std::vector<std::string> similar_names(std::string_view wanted,
						     const std::vector<std::string> &known,
						     size_t most = 3);

/** Complaints that get a hint: looking for one takes time. */
inline constexpr size_t kMostHints = 50;

/** "; similar: 'a', 'b'", or nothing. */
[[nodiscard]] std::string similar_hint(std::string_view wanted,
				       const std::vector<std::string> &known);

/**
 * What "source:value" may have been meant to be, among labels like it: values of its source when
 * there is one of that name.
 */
[[nodiscard]] std::string label_hint(std::string_view label, const std::vector<std::string> &known);

/** CRC-32 as zip and Ethernet use it. */
[[nodiscard]] u32 crc32(const char *data, size_t size);

} // namespace vexil_tool
