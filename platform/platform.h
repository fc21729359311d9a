// SPDX-License-Identifier: MIT
//
// Everything that the library takes from outside, by need. The kernel supplies these functions to
// the module, platform/host to programs, and the tests their own.
#pragma once

#include <stddef.h>

#if __STDC_HOSTED__
#include <string.h>
#endif

#include <vexil/types.h>

extern "C" {

// Memory. May sleep; blocks are not zeroed; NULL on failure. kvfree accepts NULL.
void *kvmalloc_node(size_t size, unsigned int flags, int node);
void kvfree(const void *addr);

// Conversion of a whole text (one trailing newline allowed). 0 on success, else a negative errno
// and the result untouched. Base 0 detects 0x, octal and decimal.
int kstrtoull(const char *s, unsigned int base, unsigned long long *res);
int kstrtoll(const char *s, unsigned int base, long long *res);

// Log lines, printf-like. A line may be put together from several calls.
[[gnu::format(printf, 1, 2)]] int _printk(const char *fmt, ...);

#if !__STDC_HOSTED__
// Bytes and strings; programs that read this header take their C library's own declarations.
void *memcpy(void *to, const void *from, size_t size);
void *memmove(void *to, const void *from, size_t size);
void *memset(void *to, int byte, size_t size);
int memcmp(const void *a, const void *b, size_t size);
void *memchr(const void *bytes, int byte, size_t size);
size_t strlen(const char *text);
int strcmp(const char *a, const char *b);
#endif

} // extern "C"
