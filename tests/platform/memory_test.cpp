// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "platform/platform.h"

namespace {

constexpr unsigned int kGfpKernel = 0xcc0;
constexpr int kAnyNode = -1;

TEST(HostMemory, BlocksAreWritableAndApart)
{
	auto *first = static_cast<unsigned char *>(kvmalloc_node(100, kGfpKernel, kAnyNode));
	auto *second = static_cast<unsigned char *>(kvmalloc_node(100, kGfpKernel, kAnyNode));
	ASSERT_NE(first, nullptr);
	ASSERT_NE(second, nullptr);
	std::memset(first, 1, 100);
	std::memset(second, 2, 100);
	for (int i = 0; i < 100; ++i) {
		ASSERT_EQ(first[i], 1);
		ASSERT_EQ(second[i], 2);
	}
	kvfree(first);
	kvfree(second);
}

TEST(HostMemory, BlocksAreAlignedForEveryRecord)
{
	for (size_t size = sizeof(void *); size <= 64; ++size) {
		void *block = kvmalloc_node(size, kGfpKernel, kAnyNode);
		ASSERT_NE(block, nullptr) << size;
		EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignof(void *), 0u) << size;
		kvfree(block);
	}
}

TEST(HostMemory, AnEmptyBlockIsABlockOfItsOwn)
{
	void *first = kvmalloc_node(0, kGfpKernel, kAnyNode);
	void *second = kvmalloc_node(0, kGfpKernel, kAnyNode);
	EXPECT_NE(first, nullptr);
	EXPECT_NE(second, nullptr);
	EXPECT_NE(first, second);
	kvfree(first);
	kvfree(second);
}

TEST(HostMemory, NullIsFreedWithoutEffect)
{
	kvfree(nullptr);
	kvfree(nullptr);
	void *block = kvmalloc_node(8, kGfpKernel, kAnyNode);
	EXPECT_NE(block, nullptr);
	kvfree(block);
}

} // namespace
