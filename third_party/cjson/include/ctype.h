/* SPDX-License-Identifier: MIT */
#ifndef VEXIL_CJSON_CTYPE_H
#define VEXIL_CJSON_CTYPE_H

/* Member names are compared as ASCII everywhere; the kernel's table would fold Latin-1 as well. */
static inline int tolower(int c)
{
	return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c;
}

#endif
