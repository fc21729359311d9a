// SPDX-License-Identifier: MIT

#include "numbers.h"

#include <charconv>

namespace vexil_tool {

bool read_number(const std::string &text, u64 *number)
{
	const char *begin = text.data();
	const char *const end = begin + text.size();
	if (begin != end && *begin == '+')
		++begin;
	int base = 10;
	if (end - begin > 2 && begin[0] == '0' && (begin[1] == 'x' || begin[1] == 'X')) {
		base = 16;
		begin += 2;
	} else if (end - begin > 1 && begin[0] == '0') {
		base = 8;
	}
	const auto [stopped, error] = std::from_chars(begin, end, *number, base);
	return error == std::errc() && stopped == end && begin != end;
}

} // namespace vexil_tool
