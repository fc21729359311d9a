/* SPDX-License-Identifier: MIT */
#ifndef VEXIL_CJSON_STDLIB_H
#define VEXIL_CJSON_STDLIB_H

#include <stddef.h>

void *ALLOC(size_t size);
void DEALLOC(void *ptr);
void *REALLOC(void *ptr, size_t old_sz, size_t new_sz);

/* The names by which the library presets its hooks. reallocate takes the old size, too. */
#define malloc ALLOC
#define free DEALLOC
#define realloc REALLOC

#endif
