// SPDX-License-Identifier: MIT

#include "core/number.h"

extern "C" void vexil_strtoull(const char *str, u64 *u64Output, int base)
{
	if (!str || !u64Output)
		return;
	if (kstrtoull(str, static_cast<unsigned int>(base), u64Output) != 0)
		*u64Output = 0;
}
