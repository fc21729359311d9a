// SPDX-License-Identifier: MIT
#include "core/number.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "tests/support/platform.h"

namespace {

constexpr u64 kUntouched = 0x5A5A5A5A5A5A5A5A;

u64 converted(const char *text, int base)
{
	u64 value = kUntouched;
	vexil_strtoull(text, &value, base);
	return value;
}

TEST(Strtoull, ReadsWholeTextsInTheBaseAskedFor)
{
	struct {
		const char *text;
		int base;
		u64 value;
	} const rows[] = {
		{"0x1f", 16, 31},
		{"0X1F", 16, 31},
		{"1f", 16, 31},
		{"0x1f", 0, 31},
		{"037", 0, 31},
		{"31", 0, 31},
		{"31", 10, 31},
		{"+31", 10, 31},
		{"+0x1f", 0, 31},
		{"37", 8, 31},
		{"11111", 2, 31},
		{"010", 10, 10},
		{"010", 0, 8},
		{"0", 0, 0},
		{"00", 0, 0},
		{"42\n", 10, 42},
		{"0x2a\n", 0, 42},
		{"18446744073709551615", 10, UINT64_MAX},
		{"0xFFFFFFFFFFFFFFFF", 16, UINT64_MAX},
	};
	for (const auto &row : rows)
		EXPECT_EQ(converted(row.text, row.base), row.value)
			<< '"' << row.text << "\" in base " << row.base;
}

TEST(Strtoull, GivesZeroForWhatIsNoNumber)
{
	struct {
		const char *text;
		int base;
	} const rows[] = {
		{"", 10},     {"", 0},       {"\n", 10},   {"+", 10},    {"-1", 10},
		{"++1", 10},  {" 42", 10},   {"42 ", 10},  {"4 2", 10},  {"12abc", 10},
		{"12abc", 0}, {"0x1f", 10},  {"0x", 0},    {"0x", 16},   {"0xg", 16},
		{"08", 0},    {"42\n\n", 10}, {"42\r\n", 10}, {"\n42", 10}, {"1.5", 10},
		{"18446744073709551616", 10}, {"0x10000000000000000", 16},
	};
	for (const auto &row : rows)
		EXPECT_EQ(converted(row.text, row.base), 0u)
			<< '"' << row.text << "\" in base " << row.base;
}

TEST(Strtoull, WithoutTextLeavesTheOutputAlone)
{
	EXPECT_EQ(converted(nullptr, 10), kUntouched);
}

TEST(Strtoull, WithoutOutputDoesNothing)
{
	vexil_strtoull("42", nullptr, 10);
	vexil_strtoull(nullptr, nullptr, 10);
	EXPECT_EQ(vexil_test::allocations(), 0u);
	EXPECT_EQ(vexil_test::take_log(), "");
}

TEST(Hexadecimal, ReadsDigitsWithOrWithoutPrefix)
{
	EXPECT_EQ(vexil::hexadecimal("10"), 16u);
	EXPECT_EQ(vexil::hexadecimal("0x10"), 16u);
	EXPECT_EQ(vexil::hexadecimal("aB"), 171u);
}

TEST(Hexadecimal, IsZeroForAnythingElse)
{
	for (const char *text : {"", "g", "0x", "1 ", "-1"})
		EXPECT_EQ(vexil::hexadecimal(text), 0u) << '"' << text << '"';
	EXPECT_EQ(vexil::hexadecimal(nullptr), 0u);
}

TEST(Lower, ChangesTheLettersAToZOnly)
{
	for (int code = 0; code < 256; ++code) {
		const int expected = code >= 65 && code <= 90 ? code + 32 : code;
		EXPECT_EQ(vexil::lower(static_cast<char>(code)), expected) << "code " << code;
	}
}

} // namespace
