// SPDX-License-Identifier: MIT
//
// Interval texts.
#include "tests/support/rm_json.h"

namespace {

using namespace vexil_test;

constexpr u64 kMost = ~u64{0};

struct Interval {
	const char *text;
	u64 min;
	u64 max;
};

range_desc parsed(const std::string &text)
{
	range_desc range;
	std::memset(&range, 0xEE, sizeof range); // both bounds start at 0, whatever stood there
	range.source_node = 7;
	__rm_get_range(text.c_str(), &range);
	return range;
}

TEST(RmRange, TextsGiveInclusiveBounds)
{
	const Interval table[] = {
		{"[3,10]", 3, 10},
		{"[3, 10)", 3, 9},
		{"(3,10]", 4, 10},
		{"(3,10)", 4, 9},
		{"(0,0x10]", 1, 16},
		{"[0x0A,0XfF]", 10, 255},
		{"[010,020]", 8, 16}, // octal
		{"[+3,+10]", 3, 10},
		{"[5,5]", 5, 5},
		{"(5,5)", 6, 4}, // nothing satisfies it
		{"[10,3]", 10, 3},
		{"[0,0]", 0, 0},
		{"[0,0)", 0, 0}, // 0 stays 0
		{"[0,1)", 0, 0},
		{"[4294967296,18446744073709551615]", 4294967296, kMost},
		{"[0,18446744073709551615)", 0, kMost - 1},
		{"(18446744073709551614,18446744073709551615]", kMost, kMost},
	};
	for (const Interval &row : table) {
		const range_desc range = parsed(row.text);
		EXPECT_EQ(range.minData, row.min) << row.text;
		EXPECT_EQ(range.maxData, row.max) << row.text;
		EXPECT_EQ(range.source_node, 7) << row.text;
	}
}

TEST(RmRange, BlanksAreIgnoredEverywhere)
{
	const range_desc range = parsed("  [ 1 2 ,  3 4 )  ");
	EXPECT_EQ(range.minData, 12u);
	EXPECT_EQ(range.maxData, 33u);
}

TEST(RmRange, BoundsThatDoNotParseAreZero)
{
	const Interval table[] = {
		{"[x,10]", 0, 10},
		{"(x,10]", 1, 10}, // an exclusive bound still moves
		{"[,10]", 0, 10},
		{"(,10]", 1, 10},
		{"[3,x]", 3, 0},
		{"[3,x)", 3, 0},
		{"[3,]", 3, 0},
		{"[3,)", 3, 0},
		{"[-3,10]", 0, 10},
		{"[3,-1]", 3, 0},
		{"[1.5,2.5]", 0, 0},
		{"[0x,0x]", 0, 0},
		{"[09,1]", 0, 1},
		{"[18446744073709551616,18446744073709551616]", 0, 0},
		{"[3\t,10]", 0, 10}, // a tab is no blank
		{"[a3,b4]", 0, 0},
	};
	for (const Interval &row : table) {
		const range_desc range = parsed(row.text);
		EXPECT_EQ(range.minData, row.min) << row.text;
		EXPECT_EQ(range.maxData, row.max) << row.text;
	}
}

TEST(RmRange, TextsWithoutEndsLeaveBoundsAtZero)
{
	const Interval table[] = {
		{"", 0, 0}, {"7", 0, 0}, {"[7", 0, 0}, {"[7,", 7, 0}, {"[7,8", 7, 0}, {"(", 0, 0},
	};
	for (const Interval &row : table) {
		const range_desc range = parsed(row.text);
		EXPECT_EQ(range.minData, row.min) << row.text;
		EXPECT_EQ(range.maxData, row.max) << row.text;
	}
}

TEST(RmRange, BoundsHoldUpTo127Characters)
{
	const std::string longest = std::string(126, '0') + "7"; // 127 characters, octal
	const range_desc kept = parsed("[" + longest + "," + longest + "]");
	EXPECT_EQ(kept.minData, 7u);
	EXPECT_EQ(kept.maxData, 7u);

	const std::string longer = "0" + longest;
	const range_desc dropped = parsed("[" + longer + "," + longer + "]");
	EXPECT_EQ(dropped.minData, 0u);
	EXPECT_EQ(dropped.maxData, 0u);

	// Each bound has its own 127 characters, and blanks do not count.
	const range_desc after = parsed("[" + longer + ", " + longest + "  ]");
	EXPECT_EQ(after.minData, 0u);
	EXPECT_EQ(after.maxData, 7u);
	EXPECT_EQ(parsed("(" + longer + ",9]").minData, 1u);
	EXPECT_EQ(parsed("[" + std::string(5000, '1') + ",9]").maxData, 9u);
}

TEST(RmRange, NullsDoNothing)
{
	range_desc range{};
	range.minData = 5;
	range.maxData = 6;
	__rm_get_range(nullptr, &range);
	EXPECT_EQ(range.minData, 5u);
	EXPECT_EQ(range.maxData, 6u);
	__rm_get_range("[1,2]", nullptr);
	EXPECT_EQ(take_log(), "");
}

} // namespace
