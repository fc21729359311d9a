// SPDX-License-Identifier: MIT
//
// Text to number by the kernel's rules.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>

#include "platform/platform.h"

namespace {

constexpr unsigned long long kUntouched = 0x5A5A5A5A5A5A5A5A;

struct Unsigned {
	const char *text;
	unsigned int base;
	int error;
	unsigned long long value;
};

void expect_unsigned(const Unsigned &row)
{
	unsigned long long value = kUntouched;
	EXPECT_EQ(kstrtoull(row.text, row.base, &value), row.error)
		<< '"' << row.text << "\" in base " << row.base;
	EXPECT_EQ(value, row.error ? kUntouched : row.value)
		<< '"' << row.text << "\" in base " << row.base;
}

TEST(Kstrtoull, DecimalDigits)
{
	for (const Unsigned &row : {
		     Unsigned{"0", 10, 0, 0},
		     {"7", 10, 0, 7},
		     {"0123456789", 10, 0, 123456789},
		     {"000", 10, 0, 0},
		     {"a", 10, -EINVAL, 0},
		     {"1a", 10, -EINVAL, 0},
		     {"1.0", 10, -EINVAL, 0},
		     {"1e3", 10, -EINVAL, 0},
	     })
		expect_unsigned(row);
}

TEST(Kstrtoull, DigitsOfEachBase)
{
	const char digits[] = "0123456789abcdef";
	for (unsigned int base = 2; base <= 16; ++base) {
		for (unsigned int digit = 0; digit < 16; ++digit) {
			const char text[] = {'1', digits[digit], '\0'};
			expect_unsigned({text, base, digit < base ? 0 : -EINVAL, base + digit});
		}
	}
}

TEST(Kstrtoull, LettersInEitherCase)
{
	for (const Unsigned &row : {
		     Unsigned{"abcdef", 16, 0, 0xABCDEF},
		     {"ABCDEF", 16, 0, 0xABCDEF},
		     {"aBcDeF", 16, 0, 0xABCDEF},
		     {"g", 16, -EINVAL, 0},
		     {"G", 16, -EINVAL, 0},
		     {"`", 16, -EINVAL, 0},
		     {"@", 16, -EINVAL, 0},
		     {"/", 16, -EINVAL, 0},
		     {":", 16, -EINVAL, 0},
	     })
		expect_unsigned(row);
}

TEST(Kstrtoull, HexadecimalPrefix)
{
	for (const Unsigned &row : {
		     Unsigned{"0x1f", 16, 0, 31},
		     {"0X1f", 16, 0, 31},
		     {"1f", 16, 0, 31},
		     {"0x", 16, -EINVAL, 0},
		     {"0xg", 16, -EINVAL, 0},
		     {"0x0x1", 16, -EINVAL, 0},
		     {"x1", 16, -EINVAL, 0},
		     {"0", 16, 0, 0},
		     {"0x1f", 10, -EINVAL, 0},
		     {"0x1f", 8, -EINVAL, 0},
		     {"0x+1", 16, -EINVAL, 0},
	     })
		expect_unsigned(row);
}

TEST(Kstrtoull, BaseZeroFindsTheBase)
{
	for (const Unsigned &row : {
		     Unsigned{"31", 0, 0, 31},
		     {"0x1f", 0, 0, 31},
		     {"0X1F", 0, 0, 31},
		     {"037", 0, 0, 31},
		     {"0", 0, 0, 0},
		     {"00", 0, 0, 0},
		     {"01", 0, 0, 1},
		     {"0x0", 0, 0, 0},
		     {"08", 0, -EINVAL, 0},
		     {"0a", 0, -EINVAL, 0},
		     {"1f", 0, -EINVAL, 0},
		     {"0x", 0, -EINVAL, 0}, // octal 0, and a rest
		     {"0xg", 0, -EINVAL, 0},
		     {"0x\n", 0, -EINVAL, 0},
		     {"0\n", 0, 0, 0},
		     {"9", 0, 0, 9},
	     })
		expect_unsigned(row);
}

TEST(Kstrtoull, OneLeadingPlus)
{
	for (const Unsigned &row : {
		     Unsigned{"+5", 10, 0, 5},
		     {"+0x1f", 0, 0, 31},
		     {"+037", 0, 0, 31},
		     {"+", 10, -EINVAL, 0},
		     {"+", 0, -EINVAL, 0},
		     {"++5", 10, -EINVAL, 0},
		     {"+-5", 10, -EINVAL, 0},
		     {"5+", 10, -EINVAL, 0},
	     })
		expect_unsigned(row);
}

TEST(Kstrtoull, NoSign)
{
	for (const Unsigned &row : {
		     Unsigned{"-1", 10, -EINVAL, 0},
		     {"-0", 10, -EINVAL, 0},
		     {"-", 10, -EINVAL, 0},
		     {"-+1", 10, -EINVAL, 0},
	     })
		expect_unsigned(row);
}

TEST(Kstrtoull, OneTrailingNewline)
{
	for (const Unsigned &row : {
		     Unsigned{"42\n", 10, 0, 42},
		     {"42\n", 0, 0, 42},
		     {"0x2a\n", 16, 0, 42},
		     {"+42\n", 10, 0, 42},
		     {"42\n\n", 10, -EINVAL, 0},
		     {"42\n ", 10, -EINVAL, 0},
		     {"42\r\n", 10, -EINVAL, 0},
		     {"\n", 10, -EINVAL, 0},
		     {"+\n", 10, -EINVAL, 0},
		     {"4\n2", 10, -EINVAL, 0},
	     })
		expect_unsigned(row);
}

TEST(Kstrtoull, NothingElseAround)
{
	for (const Unsigned &row : {
		     Unsigned{"", 10, -EINVAL, 0},
		     {"", 0, -EINVAL, 0},
		     {"", 16, -EINVAL, 0},
		     {" 42", 10, -EINVAL, 0},
		     {"42 ", 10, -EINVAL, 0},
		     {"\t42", 10, -EINVAL, 0},
		     {"\n42", 10, -EINVAL, 0},
		     {"42,", 10, -EINVAL, 0},
		     {"\xFF", 10, -EINVAL, 0},
		     {"1\x80", 10, -EINVAL, 0},
	     })
		expect_unsigned(row);
}

TEST(Kstrtoull, SixtyFourBitsAndNoMore)
{
	for (const Unsigned &row : {
		     Unsigned{"18446744073709551615", 10, 0, ULLONG_MAX},
		     {"+18446744073709551615\n", 10, 0, ULLONG_MAX},
		     {"0018446744073709551615", 10, 0, ULLONG_MAX},
		     {"18446744073709551616", 10, -ERANGE, 0},
		     {"18446744073709551620", 10, -ERANGE, 0},
		     {"184467440737095516150", 10, -ERANGE, 0},
		     {"99999999999999999999999999", 10, -ERANGE, 0},
		     {"0xffffffffffffffff", 0, 0, ULLONG_MAX},
		     {"0x0ffffffffffffffff", 0, 0, ULLONG_MAX},
		     {"0x10000000000000000", 0, -ERANGE, 0},
		     {"01777777777777777777777", 0, 0, ULLONG_MAX},
		     {"02000000000000000000000", 0, -ERANGE, 0},
		     {"1111111111111111111111111111111111111111111111111111111111111111", 2, 0, ULLONG_MAX},
		     {"10000000000000000000000000000000000000000000000000000000000000000", 2, -ERANGE, 0},
	     })
		expect_unsigned(row);
}

TEST(Kstrtoull, OverflowIsNoticedBeforeARest)
{
	expect_unsigned({"18446744073709551616x", 10, -ERANGE, 0});
	expect_unsigned({"18446744073709551615x", 10, -EINVAL, 0});
}

struct Signed {
	const char *text;
	unsigned int base;
	int error;
	long long value;
};

void expect_signed(const Signed &row)
{
	constexpr auto kUntouchedSigned = static_cast<long long>(kUntouched);
	long long value = kUntouchedSigned;
	EXPECT_EQ(kstrtoll(row.text, row.base, &value), row.error)
		<< '"' << row.text << "\" in base " << row.base;
	EXPECT_EQ(value, row.error ? kUntouchedSigned : row.value)
		<< '"' << row.text << "\" in base " << row.base;
}

TEST(Kstrtoll, OneSign)
{
	for (const Signed &row : {
		     Signed{"5", 10, 0, 5},
		     {"+5", 10, 0, 5},
		     {"-5", 10, 0, -5},
		     {"-0", 10, 0, 0},
		     {"-5\n", 10, 0, -5},
		     {"-0x10", 0, 0, -16},
		     {"-0x10", 16, 0, -16},
		     {"-10", 16, 0, -16},
		     {"-010", 0, 0, -8},
		     {"-10", 0, 0, -10},
		     {"0x1F", 0, 0, 31},
		     {"-", 10, -EINVAL, 0},
		     {"--5", 10, -EINVAL, 0},
		     {"-+5", 10, -EINVAL, 0},
		     {"+-5", 10, -EINVAL, 0},
		     {"++5", 10, -EINVAL, 0},
		     {"- 5", 10, -EINVAL, 0},
		     {" -5", 10, -EINVAL, 0},
		     {"5-", 10, -EINVAL, 0},
		     {"-\n", 10, -EINVAL, 0},
		     {"-0x", 0, -EINVAL, 0},
		     {"-08", 0, -EINVAL, 0},
		     {"", 0, -EINVAL, 0},
		     {"\n", 0, -EINVAL, 0},
	     })
		expect_signed(row);
}

TEST(Kstrtoll, SixtyThreeBitsAndTheSmallestNumber)
{
	for (const Signed &row : {
		     Signed{"9223372036854775807", 10, 0, LLONG_MAX},
		     {"9223372036854775808", 10, -ERANGE, 0},
		     {"-9223372036854775807", 10, 0, -LLONG_MAX},
		     {"-9223372036854775808", 10, 0, LLONG_MIN},
		     {"-9223372036854775809", 10, -ERANGE, 0},
		     {"18446744073709551615", 10, -ERANGE, 0},
		     {"-18446744073709551615", 10, -ERANGE, 0},
		     {"18446744073709551616", 10, -ERANGE, 0},
		     {"-18446744073709551616", 10, -ERANGE, 0},
		     {"0x7fffffffffffffff", 0, 0, LLONG_MAX},
		     {"0x8000000000000000", 0, -ERANGE, 0},
		     {"-0x8000000000000000", 0, 0, LLONG_MIN},
		     {"-0x8000000000000001", 0, -ERANGE, 0},
		     {"-9223372036854775808\n", 10, 0, LLONG_MIN},
		     {"-9223372036854775808x", 10, -EINVAL, 0},
	     })
		expect_signed(row);
}

} // namespace
