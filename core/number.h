// SPDX-License-Identifier: MIT
//
// Text to number, and letter case, by the kernel's rules.
#pragma once

#include <vexil/mem.h>

#include "platform/platform.h"

namespace vexil {

inline constexpr int kHexadecimal = 16;

/** A-Z to a-z; every other byte as it is, Latin-1 letters included. */
[[nodiscard]] constexpr unsigned char lower(char c)
{
	const auto code = static_cast<unsigned char>(c);
	return code >= 'A' && code <= 'Z' ? static_cast<unsigned char>(code + ('a' - 'A')) : code;
}

/** The hexadecimal number that @text is, 0 when it is none or NULL. */
[[nodiscard]] inline u64 hexadecimal(const char *text)
{
	u64 value = 0;
	vexil_strtoull(text, &value, kHexadecimal);
	return value;
}

} // namespace vexil
