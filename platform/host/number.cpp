// SPDX-License-Identifier: MIT
//
// Text to number by the kernel's rules. The C library's conversions skip blanks, take "-1" for
// unsigned and stop at the first foreign character; the kernel's do none of that.

#include <cerrno>
#include <climits>

#include "platform/platform.h"

namespace {

constexpr unsigned int kNoDigit = ~0u;

unsigned int digit(char c)
{
	if (c >= '0' && c <= '9')
		return static_cast<unsigned int>(c - '0');
	if (c >= 'a' && c <= 'f')
		return static_cast<unsigned int>(c - 'a') + 10;
	if (c >= 'A' && c <= 'F')
		return static_cast<unsigned int>(c - 'A') + 10;
	return kNoDigit;
}

bool is_x(char c)
{
	return c == 'x' || c == 'X';
}

/** Finds out the base where it is 0 and steps over a hexadecimal prefix. */
const char *skip_prefix(const char *s, unsigned int *base)
{
	if (*base == 0) {
		if (s[0] != '0')
			*base = 10;
		else
			*base = is_x(s[1]) && digit(s[2]) != kNoDigit ? 16 : 8;
	}
	return *base == 16 && s[0] == '0' && is_x(s[1]) ? s + 2 : s;
}

/** Digits to the end of the text, which one newline may precede. */
int convert(const char *s, unsigned int base, unsigned long long *res)
{
	s = skip_prefix(s, &base);
	unsigned long long value = 0;
	bool overflow = false;
	const char *const first = s;
	for (; digit(*s) < base; ++s) {
		overflow |= __builtin_mul_overflow(value, base, &value);
		overflow |= __builtin_add_overflow(value, digit(*s), &value);
	}
	if (overflow)
		return -ERANGE;
	if (s == first)
		return -EINVAL;
	if (*s == '\n')
		++s;
	if (*s != '\0')
		return -EINVAL;
	*res = value;
	return 0;
}

} // namespace

extern "C" {

int kstrtoull(const char *s, unsigned int base, unsigned long long *res)
{
	return convert(*s == '+' ? s + 1 : s, base, res);
}

int kstrtoll(const char *s, unsigned int base, long long *res)
{
	const bool negative = *s == '-';
	unsigned long long magnitude = 0;
	const int error = negative ? convert(s + 1, base, &magnitude)
				   : kstrtoull(s, base, &magnitude);
	if (error)
		return error;
	const auto largest = static_cast<unsigned long long>(LLONG_MAX);
	if (magnitude > largest + (negative ? 1 : 0))
		return -ERANGE;
	*res = static_cast<long long>(negative ? 0 - magnitude : magnitude);
	return 0;
}

} // extern "C"
