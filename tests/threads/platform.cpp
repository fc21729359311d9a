// SPDX-License-Identifier: MIT
//
// The platform that threads run on. No lock, and each thread's log is its own: what orders threads
// would hide from the thread checks what the library forgot to order.

#include "tests/support/platform.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <utility>

#include "platform/platform.h"

namespace {

constexpr auto kUnordered = std::memory_order_relaxed;

std::atomic<std::size_t> live{0};
std::atomic<std::size_t> calls{0};

std::string &log()
{
	thread_local std::string text;
	return text;
}

class Watch : public testing::EmptyTestEventListener {
	void OnTestStart(const testing::TestInfo &) override { log().clear(); }
	void OnTestEnd(const testing::TestInfo &) override
	{
		EXPECT_EQ(live.exchange(0, kUnordered), 0u) << "blocks outlive the test";
	}
};

} // namespace

namespace vexil_test {

std::size_t live_blocks()
{
	return live.load(kUnordered);
}

std::size_t allocations()
{
	return calls.load(kUnordered);
}

std::string take_log()
{
	return std::exchange(log(), {});
}

std::vector<std::string> take_log_lines()
{
	std::istringstream text(take_log());
	std::vector<std::string> lines;
	for (std::string line; std::getline(text, line);)
		lines.push_back(line);
	return lines;
}

} // namespace vexil_test

extern "C" {

void *kvmalloc_node(size_t size, unsigned int, int)
{
	calls.fetch_add(1, kUnordered);
	void *block = std::malloc(size ? size : 1);
	if (block) {
		std::memset(block, 0xA5, size); // fresh memory is not zero
		live.fetch_add(1, kUnordered);
	}
	return block;
}

void kvfree(const void *addr)
{
	if (!addr)
		return;
	live.fetch_sub(1, kUnordered);
	std::free(const_cast<void *>(addr));
}

int _printk(const char *fmt, ...)
{
	char line[512];
	va_list arguments;
	va_start(arguments, fmt);
	const int length = std::vsnprintf(line, sizeof line, fmt, arguments);
	va_end(arguments);
	if (length >= 0)
		log().append(line); // cut where a line is longer, for every thread alike
	return length;
}

} // extern "C"

int main(int argc, char **argv)
{
	testing::InitGoogleTest(&argc, argv);
	testing::UnitTest::GetInstance()->listeners().Append(new Watch);
	return RUN_ALL_TESTS();
}
