/* SPDX-License-Identifier: MIT */
/* For cJSON.c alone, which is compiled without any C library: what it needs under this name. */
#ifndef VEXIL_CJSON_STDDEF_H
#define VEXIL_CJSON_STDDEF_H

typedef __SIZE_TYPE__ size_t;

#undef NULL
#define NULL ((void *)0)

#endif
