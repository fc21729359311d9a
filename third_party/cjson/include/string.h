/* SPDX-License-Identifier: MIT */
#ifndef VEXIL_CJSON_STRING_H
#define VEXIL_CJSON_STRING_H

#include <stddef.h>

void *memcpy(void *to, const void *from, size_t size);
void *memset(void *to, int byte, size_t size);
size_t strlen(const char *text);
int strcmp(const char *a, const char *b);
int strncmp(const char *a, const char *b, size_t size);
char *strcpy(char *to, const char *from);

#endif
