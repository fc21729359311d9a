/* SPDX-License-Identifier: MIT */
#ifndef VEXIL_CJSON_LIMITS_H
#define VEXIL_CJSON_LIMITS_H

#undef INT_MAX
#undef INT_MIN
#define INT_MAX __INT_MAX__
#define INT_MIN (-__INT_MAX__ - 1)

#endif
