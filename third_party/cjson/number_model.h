/* SPDX-License-Identifier: MIT */
/*
 * What the changed cJSON.c calls for its numbers, beside cJSON_SetNumberHelper, which its own
 * header declares. Written in core/json_number.cpp.
 */
#ifndef CJSON_NUMBER_MODEL_H
#define CJSON_NUMBER_MODEL_H

#include "cJSON.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * json_number_parse - read the number that a text starts with
 * @item:   becomes a number; left alone on failure
 * @text:   need not end with a NUL
 * @length: characters of @text that may be read
 *
 * Return: characters taken, 1 to 63; 0 when they are no number of 64 bits.
 */
__attribute__((visibility("hidden")))
size_t json_number_parse(cJSON *item, const unsigned char *text, size_t length);

/**
 * json_number_read_string - let a string value such as "0x1f" be a number
 * @item: a string item; it becomes a number and keeps its text, or stays as it is
 */
__attribute__((visibility("hidden")))
void json_number_read_string(cJSON *item);

#ifdef __cplusplus
}
#endif

#endif /* CJSON_NUMBER_MODEL_H */
