// SPDX-License-Identifier: MIT
//
// Log lines that more than one folder prints.
#pragma once

#include "platform/platform.h"

namespace vexil {

/** Reports an internal failure; the number is part of the message, not a source line. */
inline void lib_fail(const char *function, int number)
{
	_printk("[%s][%d]vexil lib fail!!\n", function, number);
}

/** A text as log lines show it: missing ones as the kernel would print them. */
[[nodiscard]] inline const char *shown(const char *text)
{
	return text ? text : "(null)";
}

} // namespace vexil
