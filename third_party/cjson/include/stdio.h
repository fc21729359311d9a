/* SPDX-License-Identifier: MIT */
#ifndef VEXIL_CJSON_STDIO_H
#define VEXIL_CJSON_STDIO_H

__attribute__((format(printf, 2, 3))) int sprintf(char *to, const char *format, ...);

#endif
