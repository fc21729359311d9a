// SPDX-License-Identifier: MIT
//
// The platform of fuzzers: blocks of exactly their size, so that address checks see every overrun,
// refusals on demand, and a log whose texts are put together, so that every argument is read.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/platform.h"
#include "tests/fuzz/fuzz.h"

namespace vexil_fuzz {
namespace {

constexpr std::size_t kLogKept = 65536;

std::size_t live;
std::size_t calls;
std::size_t refused_calls;
std::size_t refuse_from;
std::size_t refuse_to;
std::size_t logged;

std::string &log_text()
{
	static auto *const text = new std::string; // no order of destruction
	return *text;
}

/** Formats of reports, each once. */
std::vector<const char *> &formats()
{
	static auto *const all = new std::vector<const char *>;
	return *all;
}

} // namespace

void require(bool holds, const char *what)
{
	if (holds)
		return;
	std::fprintf(stderr, "fuzz: %s\n", what);
	std::abort();
}

std::size_t live_blocks()
{
	return live;
}

std::size_t allocations()
{
	return calls;
}

void refuse(std::size_t nth, bool all_later)
{
	refused_calls = 0;
	refuse_from = nth == 0 ? 0 : calls + nth;
	refuse_to = nth == 0 ? 0 : all_later ? ~std::size_t{0} : refuse_from;
}

bool refused()
{
	return refused_calls != 0;
}

std::string take_log()
{
	formats().clear();
	return std::exchange(log_text(), {});
}

bool was_logged(const char *part)
{
	return std::any_of(formats().begin(), formats().end(), [part](const char *format) {
		return std::strstr(format, part) != nullptr;
	});
}

std::size_t messages()
{
	return logged;
}

} // namespace vexil_fuzz

extern "C" {

void *kvmalloc_node(size_t size, unsigned int, int)
{
	using namespace vexil_fuzz;
	++calls;
	if (refuse_from != 0 && calls >= refuse_from && calls <= refuse_to) {
		++refused_calls;
		return nullptr;
	}
	void *block = std::malloc(size ? size : 1);
	require(block != nullptr, "out of memory");
	std::memset(block, 0xA5, size); // fresh memory is not zero
	++live;
	return block;
}

void kvfree(const void *addr)
{
	if (!addr)
		return;
	--vexil_fuzz::live;
	std::free(const_cast<void *>(addr));
}

int _printk(const char *fmt, ...)
{
	using namespace vexil_fuzz;
	char text[256];
	va_list arguments;
	va_start(arguments, fmt);
	const int length = vsnprintf(text, sizeof text, fmt, arguments);
	va_end(arguments);
	require(length >= 0, "a message that cannot be put together");
	++logged;
	auto &known = formats();
	if (fmt[0] == '[' && std::find(known.begin(), known.end(), fmt) == known.end())
		known.push_back(fmt);
	if (log_text().size() >= kLogKept)
		return length;
	if (static_cast<std::size_t>(length) < sizeof text) {
		log_text().append(text, static_cast<std::size_t>(length));
		return length;
	}
	std::string whole(static_cast<std::size_t>(length) + 1, '\0');
	va_start(arguments, fmt);
	vsnprintf(whole.data(), whole.size(), fmt, arguments);
	va_end(arguments);
	whole.pop_back();
	log_text() += whole;
	return length;
}

} // extern "C"
