// SPDX-License-Identifier: MIT

#include "console.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include <fmt/format.h>
#include <unistd.h>

#include "errors.h"
#include "text.h"

namespace vexil_tool {

namespace {

constexpr size_t kLongestText = 600;                       // names in documents may have any length
constexpr auto kPatience = std::chrono::milliseconds(300); // shorter commands show no progress

} // namespace

Console::Console(std::string mark)
    : mark_(std::move(mark)), terminal_(isatty(STDERR_FILENO) == 1),
      begin_(std::chrono::steady_clock::now())
{
}

Console::~Console()
{
	clear_progress();
}

void Console::warn(const std::string &where, const std::string &text)
{
	clear_progress();
	fmt::print(stderr, "vexil: {}: {}{}\n", printable(where), mark_,
		   printable(shortened(text, kLongestText)));
	++warnings_;
}

void Console::note(const std::string &where, const std::string &text)
{
	clear_progress();
	fmt::print(stderr, "vexil: {}: note: {}\n", printable(where), printable(text));
}

void Console::progress(size_t done, size_t all, const std::string &what)
{
	constexpr size_t kWidest = 60; // characters of @what, so that the line never wraps
	if (!terminal_ || std::chrono::steady_clock::now() - begin_ < kPatience)
		return;
	std::string shown = printable(what);
	if (shown.size() > kWidest)
		shown = "..." + shown.substr(shown.size() - kWidest);
	fmt::print(stderr, "\r\x1b[K[{}/{}] {}", done, all, shown);
	std::fflush(stderr);
	shown_ = true;
}

void Console::clear_progress()
{
	if (!shown_)
		return;
	fmt::print(stderr, "\r\x1b[K");
	std::fflush(stderr);
	shown_ = false;
}

void finish_output()
{
	errno = 0;
	if (std::fflush(stdout) == 0 && !std::ferror(stdout))
		return;
	const int error = errno;
	throw Failure(Exit::kCannotWrite,
		      fmt::format("standard output: {}",
				  error ? std::strerror(error) : "cannot be written"));
}

} // namespace vexil_tool
