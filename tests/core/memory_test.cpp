// SPDX-License-Identifier: MIT
#include "core/memory.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <string>

#include "tests/support/platform.h"

namespace {

using vexil_test::allocations;
using vexil_test::last_request;
using vexil_test::live_blocks;
using vexil_test::Refuse;

constexpr unsigned int kGfpKernel = 0xcc0;
constexpr int kAnyNode = -1;

// Read before main: no test can have deposited anything yet.
const struct AtLoad {
	AtLoad()
	{
		std::memset(&record, 0xA5, sizeof record);
		answered = vexil_mem_status(&record);
	}
	vexil_mem_info record;
	bool answered;
} at_load;

char *alloc_text(const char *text)
{
	auto *block = static_cast<char *>(ALLOC(std::strlen(text) + 1));
	if (block)
		std::strcpy(block, text);
	return block;
}

std::string first(const void *block, size_t size)
{
	return {static_cast<const char *>(block), size};
}

// ---- the allocation triple ----

TEST(Alloc, AsksForSleepingKernelMemoryOnAnyNode)
{
	void *block = ALLOC(4008);
	ASSERT_NE(block, nullptr);
	EXPECT_EQ(allocations(), 1u);
	EXPECT_EQ(last_request().size, 4008u);
	EXPECT_EQ(last_request().flags, kGfpKernel);
	EXPECT_EQ(last_request().node, kAnyNode);
	DEALLOC(block);
	EXPECT_EQ(live_blocks(), 0u);
}

TEST(Alloc, IsNullWhenTheKernelHasNoMemory)
{
	const Refuse refuse = Refuse::only(1);
	EXPECT_EQ(ALLOC(16), nullptr);
	EXPECT_TRUE(refuse.happened());
}

TEST(Alloc, AnEmptyBlockIsABlock)
{
	void *block = ALLOC(0);
	EXPECT_NE(block, nullptr);
	EXPECT_EQ(live_blocks(), 1u);
	DEALLOC(block);
}

TEST(Alloc, LargestSizeReachesTheKernel)
{
	const Refuse refuse = Refuse::only(1);
	EXPECT_EQ(ALLOC(INT_MAX), nullptr);
	EXPECT_TRUE(refuse.happened());
	EXPECT_EQ(last_request().size, size_t{INT_MAX});
}

TEST(Alloc, SizesAboveIntMaxNeverReachTheKernel)
{
	for (const size_t size : {size_t{INT_MAX} + 1, size_t{1} << 32, SIZE_MAX}) {
		EXPECT_EQ(ALLOC(size), nullptr) << size;
		EXPECT_EQ(allocations(), 0u) << size;
	}
}

TEST(Dealloc, FreesTheBlock)
{
	void *kept = ALLOC(8);
	void *freed = ALLOC(8);
	EXPECT_EQ(live_blocks(), 2u);
	DEALLOC(freed);
	EXPECT_EQ(live_blocks(), 1u);
	DEALLOC(kept);
	EXPECT_EQ(live_blocks(), 0u);
}

TEST(Dealloc, TakesNull)
{
	DEALLOC(nullptr);
	EXPECT_EQ(live_blocks(), 0u);
}

TEST(Realloc, ToALargerSizeKeepsTheOldBytesAndFreesTheOldBlock)
{
	void *block = REALLOC(alloc_text("abcdefg"), 8, 64);
	ASSERT_NE(block, nullptr);
	EXPECT_EQ(first(block, 8), std::string("abcdefg\0", 8));
	EXPECT_EQ(last_request().size, 64u);
	EXPECT_EQ(last_request().flags, kGfpKernel);
	EXPECT_EQ(last_request().node, kAnyNode);
	EXPECT_EQ(live_blocks(), 1u);
	DEALLOC(block);
}

TEST(Realloc, LeavesTheTailAsTheAllocatorGaveIt)
{
	void *block = REALLOC(alloc_text("abc"), 4, 8);
	ASSERT_NE(block, nullptr);
	EXPECT_EQ(first(block, 8), std::string("abc\0\xA5\xA5\xA5\xA5", 8));
	DEALLOC(block);
}

TEST(Realloc, ToASmallerSizeKeepsTheFirstBytes)
{
	void *block = REALLOC(alloc_text("abcdefg"), 8, 3);
	ASSERT_NE(block, nullptr);
	EXPECT_EQ(first(block, 3), "abc");
	EXPECT_EQ(last_request().size, 3u);
	EXPECT_EQ(live_blocks(), 1u);
	DEALLOC(block);
}

TEST(Realloc, CopiesOnlyTheBytesSaidToBeInUse)
{
	void *block = REALLOC(alloc_text("abcdefg"), 2, 4);
	ASSERT_NE(block, nullptr);
	EXPECT_EQ(first(block, 4), "ab\xA5\xA5");
	DEALLOC(block);
}

TEST(Realloc, ToTheSameSizeStillMovesTheBlock)
{
	char *old = alloc_text("abcdefg");
	void *block = REALLOC(old, 8, 8);
	ASSERT_NE(block, nullptr);
	EXPECT_EQ(allocations(), 2u);
	EXPECT_EQ(first(block, 8), std::string("abcdefg\0", 8));
	EXPECT_EQ(live_blocks(), 1u);
	DEALLOC(block);
}

TEST(Realloc, OfNullIsAnAllocation)
{
	void *block = REALLOC(nullptr, 0, 24);
	ASSERT_NE(block, nullptr);
	EXPECT_EQ(last_request().size, 24u);
	EXPECT_EQ(live_blocks(), 1u);
	DEALLOC(block);
}

TEST(Realloc, OfNullCopiesNothingWhateverTheOldSize)
{
	void *block = REALLOC(nullptr, 24, 24);
	ASSERT_NE(block, nullptr);
	EXPECT_EQ(first(block, 24), std::string(24, '\xA5'));
	DEALLOC(block);
}

TEST(Realloc, WithoutMemoryLeavesTheBlockWithItsOwner)
{
	char *block = alloc_text("abcdefg");
	{
		const Refuse refuse = Refuse::only(1);
		EXPECT_EQ(REALLOC(block, 8, 64), nullptr);
		EXPECT_TRUE(refuse.happened());
	}
	EXPECT_STREQ(block, "abcdefg");
	EXPECT_EQ(live_blocks(), 1u);
	DEALLOC(block);
}

TEST(Realloc, ToAnImpossibleSizeLeavesTheBlockWithItsOwner)
{
	char *block = alloc_text("abcdefg");
	EXPECT_EQ(REALLOC(block, 8, SIZE_MAX), nullptr);
	EXPECT_STREQ(block, "abcdefg");
	EXPECT_EQ(live_blocks(), 1u);
	DEALLOC(block);
}

// ---- growth by doubling ----

TEST(GrownCapacity, IsTheFirstDoublingThatSuffices)
{
	struct {
		size_t capacity, needed, grown;
	} const rows[] = {
		{1024, 0, 1024},
		{1024, 1024, 1024},
		{1024, 1025, 2048},
		{1024, 2048, 2048},
		{1024, 5000, 8192},
		{24, 25, 48},
		{1, size_t{1} << 40, size_t{1} << 40},
	};
	for (const auto &row : rows)
		EXPECT_EQ(vexil::grown_capacity(row.capacity, row.needed), row.grown)
			<< row.capacity << " for " << row.needed;
}

TEST(GrownCapacity, IsZeroFromNothing)
{
	EXPECT_EQ(vexil::grown_capacity(0, 1), 0u);
	EXPECT_EQ(vexil::grown_capacity(0, SIZE_MAX), 0u);
}

TEST(GrownCapacity, IsZeroWhereDoublingWouldWrap)
{
	constexpr size_t kHalf = SIZE_MAX / 2 + 1;
	EXPECT_EQ(vexil::grown_capacity(1024, kHalf), kHalf);
	EXPECT_EQ(vexil::grown_capacity(1024, kHalf + 1), 0u);
	EXPECT_EQ(vexil::grown_capacity(kHalf, SIZE_MAX), 0u);
	EXPECT_EQ(vexil::grown_capacity(3, SIZE_MAX), 0u);
}

// ---- the memory-status record ----

vexil_mem_info some_record()
{
	return {.base_addr = 0x1122334455667788,
		.base_ptr = 2,
		.buf_max = 3,
		.ctrie_offset = 4,
		.ctrie_used = 5,
		.pim_offset = 6,
		.pim_used = 7,
		.rm_offset = 8,
		.rm_used = 9};
}

TEST(MemStatus, IsZeroBeforeAnyInit)
{
	const vexil_mem_info zero{};
	EXPECT_TRUE(at_load.answered);
	EXPECT_EQ(std::memcmp(&at_load.record, &zero, sizeof zero), 0);
}

TEST(MemStatus, GivesBackWhatWasDeposited)
{
	vexil_mem_info deposited = some_record();
	ASSERT_TRUE(vexil_mem_init(&deposited));
	vexil_mem_info read{};
	EXPECT_TRUE(vexil_mem_status(&read));
	EXPECT_EQ(read.base_addr, 0x1122334455667788u);
	EXPECT_EQ(read.base_ptr, 2u);
	EXPECT_EQ(read.buf_max, 3u);
	EXPECT_EQ(read.ctrie_offset, 4u);
	EXPECT_EQ(read.ctrie_used, 5u);
	EXPECT_EQ(read.pim_offset, 6u);
	EXPECT_EQ(read.pim_used, 7u);
	EXPECT_EQ(read.rm_offset, 8u);
	EXPECT_EQ(read.rm_used, 9u);
}

TEST(MemStatus, HoldsACopy)
{
	vexil_mem_info deposited = some_record();
	ASSERT_TRUE(vexil_mem_init(&deposited));
	deposited.pim_used = 700;
	vexil_mem_info read{};
	ASSERT_TRUE(vexil_mem_status(&read));
	EXPECT_EQ(read.pim_used, 7u);
	read.rm_used = 900;
	ASSERT_TRUE(vexil_mem_status(&read));
	EXPECT_EQ(read.rm_used, 9u);
}

TEST(MemStatus, LaterInitReplacesTheRecord)
{
	vexil_mem_info record = some_record();
	ASSERT_TRUE(vexil_mem_init(&record));
	record = {};
	record.buf_max = 42;
	ASSERT_TRUE(vexil_mem_init(&record));
	vexil_mem_info read = some_record();
	ASSERT_TRUE(vexil_mem_status(&read));
	EXPECT_EQ(std::memcmp(&read, &record, sizeof read), 0);
}

TEST(MemStatus, NullGivesFalseAndChangesNothing)
{
	vexil_mem_info record = some_record();
	ASSERT_TRUE(vexil_mem_init(&record));
	EXPECT_FALSE(vexil_mem_init(nullptr));
	EXPECT_FALSE(vexil_mem_status(nullptr));
	vexil_mem_info read{};
	ASSERT_TRUE(vexil_mem_status(&read));
	EXPECT_EQ(std::memcmp(&read, &record, sizeof read), 0);
}

TEST(MemStatus, IsAllBookKeeping)
{
	vexil_mem_info record = some_record();
	EXPECT_TRUE(vexil_mem_init(&record));
	EXPECT_TRUE(vexil_mem_status(&record));
	EXPECT_TRUE(vexil_mem_alloc());
	EXPECT_EQ(allocations(), 0u);
	EXPECT_EQ(vexil_test::take_log(), "");
}

TEST(MemInfo, HasTheLayoutOfItsCallers)
{
	EXPECT_EQ(sizeof(vexil_mem_info), 72u);
	EXPECT_EQ(offsetof(vexil_mem_info, base_addr), 0u);
	EXPECT_EQ(offsetof(vexil_mem_info, base_ptr), 8u);
	EXPECT_EQ(offsetof(vexil_mem_info, buf_max), 16u);
	EXPECT_EQ(offsetof(vexil_mem_info, ctrie_offset), 24u);
	EXPECT_EQ(offsetof(vexil_mem_info, ctrie_used), 32u);
	EXPECT_EQ(offsetof(vexil_mem_info, pim_offset), 40u);
	EXPECT_EQ(offsetof(vexil_mem_info, pim_used), 48u);
	EXPECT_EQ(offsetof(vexil_mem_info, rm_offset), 56u);
	EXPECT_EQ(offsetof(vexil_mem_info, rm_used), 64u);
}

} // namespace
