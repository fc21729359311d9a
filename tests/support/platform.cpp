// SPDX-License-Identifier: MIT

#include "tests/support/platform.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <sstream>
#include <unordered_map>
#include <utility>

#include "platform/platform.h"

namespace vexil_test {
namespace {

constexpr std::size_t kNever = ~std::size_t{0};

struct Memory {
	std::mutex lock;
	std::unordered_map<const void *, Request> live;
	std::size_t calls = 0;
	std::size_t refused = 0;
	std::size_t refuse_from = kNever; // call numbers, counted from 1
	std::size_t refuse_to = 0;
	Request last{};
};

struct Log {
	std::mutex lock;
	std::string text;
};

Memory &memory()
{
	static auto *const instance = new Memory; // reachable for ever: no order of destruction
	return *instance;
}

Log &log()
{
	static auto *const instance = new Log;
	return *instance;
}

class Watch : public testing::EmptyTestEventListener {
	void OnTestStart(const testing::TestInfo &) override
	{
		std::lock_guard hold(memory().lock);
		memory().calls = 0;
		memory().refused = 0;
		memory().refuse_from = kNever;
		take_log();
	}
	void OnTestEnd(const testing::TestInfo &) override
	{
		std::lock_guard hold(memory().lock);
		for (const auto &[block, request] : memory().live)
			ADD_FAILURE() << "a block of " << request.size << " bytes outlives the test";
		for (const auto &[block, request] : memory().live)
			std::free(const_cast<void *>(block));
		memory().live.clear();
	}
};

} // namespace

std::size_t live_blocks()
{
	std::lock_guard hold(memory().lock);
	return memory().live.size();
}

std::size_t allocations()
{
	std::lock_guard hold(memory().lock);
	return memory().calls;
}

Request last_request()
{
	std::lock_guard hold(memory().lock);
	return memory().last;
}

Refuse::Refuse(std::size_t nth, bool all_later)
{
	std::lock_guard hold(memory().lock);
	refused_before_ = memory().refused;
	memory().refuse_from = memory().calls + nth;
	memory().refuse_to = all_later ? kNever : memory().refuse_from;
}

Refuse Refuse::only(std::size_t nth)
{
	return {nth, false};
}

Refuse Refuse::from(std::size_t nth)
{
	return {nth, true};
}

Refuse::~Refuse()
{
	std::lock_guard hold(memory().lock);
	memory().refuse_from = kNever;
}

bool Refuse::happened() const
{
	std::lock_guard hold(memory().lock);
	return memory().refused > refused_before_;
}

std::string take_log()
{
	std::lock_guard hold(log().lock);
	return std::exchange(log().text, {});
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

void *kvmalloc_node(size_t size, unsigned int flags, int node)
{
	using vexil_test::memory;
	std::lock_guard hold(memory().lock);
	memory().last = {size, flags, node};
	const std::size_t call = ++memory().calls;
	if (call >= memory().refuse_from && call <= memory().refuse_to) {
		++memory().refused;
		return nullptr;
	}
	void *block = std::malloc(size ? size : 1);
	if (block) {
		std::memset(block, 0xA5, size); // fresh memory is not zero
		memory().live[block] = {size, flags, node};
	}
	return block;
}

void kvfree(const void *addr)
{
	using vexil_test::memory;
	if (!addr)
		return;
	std::lock_guard hold(memory().lock);
	if (memory().live.erase(addr) == 0) {
		ADD_FAILURE() << "a block is freed that is not allocated";
		return;
	}
	std::free(const_cast<void *>(addr));
}

int _printk(const char *fmt, ...)
{
	va_list arguments;
	va_start(arguments, fmt);
	char *text = nullptr;
	const int length = vasprintf(&text, fmt, arguments);
	va_end(arguments);
	if (length < 0)
		return length;
	std::lock_guard hold(vexil_test::log().lock);
	vexil_test::log().text.append(text, static_cast<std::size_t>(length));
	std::free(text);
	return length;
}

} // extern "C"

int main(int argc, char **argv)
{
	testing::InitGoogleTest(&argc, argv);
	testing::UnitTest::GetInstance()->listeners().Append(new vexil_test::Watch);
	return RUN_ALL_TESTS();
}
