// SPDX-License-Identifier: MIT
//
// The integer number model of JSON documents: what takes the place of the library's own
// conversions, which need floating point.

#include "core/number.h"
#include "platform/platform.h"
#include "third_party/cjson/number_model.h"

namespace {

constexpr size_t kLongestNumber = 63; // characters; a longer run is cut here
constexpr unsigned int kDetectBase = 0;

// Signs, digits of all bases and the x of the prefix; what of it makes a number, kstrtoll decides.
constexpr bool belongs_to_number(unsigned char c)
{
	const unsigned char letter = c | 0x20;
	return (c >= '0' && c <= '9') || (letter >= 'a' && letter <= 'f') || letter == 'x' ||
	       c == '+' || c == '-';
}

void become_number(cJSON *item, long long value)
{
	item->type = cJSON_Number;
	cJSON_SetNumberHelper(item, value);
}

} // namespace

extern "C" {

size_t json_number_parse(cJSON *item, const unsigned char *text, size_t length)
{
	char token[kLongestNumber + 1];
	size_t used = 0;
	while (used < length && used < kLongestNumber && belongs_to_number(text[used])) {
		token[used] = static_cast<char>(text[used]);
		++used;
	}
	token[used] = '\0';

	long long value = 0;
	if (kstrtoll(token, kDetectBase, &value) != 0)
		return 0;
	become_number(item, value);
	return used;
}

void json_number_read_string(cJSON *item)
{
	const char *text = item->valuestring;
	long long value = 0;
	// An upper-case prefix stays text: documents tell the two apart.
	if (text[0] == '0' && text[1] == 'x' && kstrtoll(text, vexil::kHexadecimal, &value) == 0)
		become_number(item, value);
}

long long cJSON_SetNumberHelper(cJSON *object, long long number)
{
	constexpr long long kMost = __INT_MAX__;
	constexpr long long kLeast = -kMost - 1;
	object->valuelong = number;
	if (number > kMost)
		object->valueint = static_cast<int>(kMost);
	else if (number < kLeast)
		object->valueint = static_cast<int>(kLeast);
	else
		object->valueint = static_cast<int>(number);
	return number;
}

} // extern "C"
