// SPDX-License-Identifier: MIT

#include "core/json.h"

#include "core/number.h"

// The record with valuelong where the library's own has a double: as large as that one, so a
// program that mixes both headers would read wrong numbers without a warning.
static_assert(sizeof(cJSON) == 64);
static_assert(__builtin_offsetof(cJSON, next) == 0);
static_assert(__builtin_offsetof(cJSON, prev) == 8);
static_assert(__builtin_offsetof(cJSON, child) == 16);
static_assert(__builtin_offsetof(cJSON, type) == 24);
static_assert(__builtin_offsetof(cJSON, valuestring) == 32);
static_assert(__builtin_offsetof(cJSON, valueint) == 40);
static_assert(__builtin_offsetof(cJSON, valuelong) == 48);
static_assert(__builtin_offsetof(cJSON, string) == 56);

namespace vexil {

namespace {

// Most members differ from a key in their first character, or are spelled exactly like it.
bool same_name(const char *a, const char *b)
{
	while (*a == *b || lower(*a) == lower(*b)) {
		if (*a == '\0')
			return true;
		++a;
		++b;
	}
	return false;
}

} // namespace

void find_members(const cJSON *object, const char *const *keys, const cJSON **found, size_t count)
{
	for (size_t i = 0; i < count; ++i)
		found[i] = nullptr;

	size_t missing = count;
	size_t candidate = 0; // the key after the last one met: usually the next member's
	for (const cJSON *item : items(object)) {
		if (missing == 0)
			return;
		if (!item->string)
			continue;
		for (size_t tried = 0; tried < count; ++tried) {
			const size_t key = candidate;
			candidate = candidate + 1 < count ? candidate + 1 : 0;
			if (!found[key] && same_name(keys[key], item->string)) {
				found[key] = item;
				--missing;
				break;
			}
		}
	}
}

const cJSON *member(const cJSON *object, const char *key)
{
	if (!key)
		return nullptr;
	for (const cJSON *item : items(object)) {
		if (item->string && same_name(key, item->string))
			return item;
	}
	return nullptr;
}

} // namespace vexil

extern "C" {

void *vexil_json_parse(const char *str)
{
	if (!str)
		return nullptr;
	return cJSON_ParseWithLengthOpts(str, strlen(str) + 1, nullptr, false);
}

void vexil_json_delete(void *json)
{
	cJSON_Delete(static_cast<cJSON *>(json));
}

} // extern "C"
