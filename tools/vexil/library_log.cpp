// SPDX-License-Identifier: MIT

#include "library_log.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "platform/host/host.h"
#include "text.h"

namespace vexil_tool {

namespace {

/** How the report begins with which the library gives up a dump. */
constexpr std::string_view kDumpReport = "[extmem_print][";

/** Text that terminals show as it stands; most pieces of a dump are such. */
bool is_plain(std::string_view text)
{
	return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c < 0x7F; });
}

} // namespace

LibraryLog::LibraryLog()
{
	vexil_host_set_log_sink(receive, this);
}

LibraryLog::~LibraryLog()
{
	vexil_host_set_log_sink(nullptr, nullptr);
}

void LibraryLog::receive(const char *text, size_t length, void *context)
{
	auto *log = static_cast<LibraryLog *>(context);
	std::string_view piece(text, length);
	const bool ends = piece.ends_with('\n');
	if (ends)
		piece.remove_suffix(1);
	// A few messages have no newline; the next one then begins with its own bracket.
	if (log->open_ && !piece.starts_with('['))
		log->lines_.back() += piece;
	else
		log->lines_.emplace_back(piece);
	log->open_ = !ends;
}

std::vector<std::string> LibraryLog::take()
{
	open_ = false;
	return std::exchange(lines_, {});
}

void LibraryLog::warn_all(Console &console, const std::string &where)
{
	for (const std::string &line : take())
		console.warn(where, line);
}

LogToOutput::LogToOutput()
{
	vexil_host_set_log_sink(receive, this);
}

void LogToOutput::receive(const char *text, size_t length, void *context)
{
	std::string_view piece(text, length);
	if (piece.starts_with(kDumpReport)) {
		static_cast<LogToOutput *>(context)->complete_ = false;
		return;
	}
	// Only the last newline is the library's own: others stand in names.
	const bool ends = piece.ends_with('\n');
	if (ends)
		piece.remove_suffix(1);
	if (is_plain(piece)) {
		std::fwrite(piece.data(), 1, piece.size(), stdout);
	} else {
		const std::string escaped = printable(piece);
		std::fwrite(escaped.data(), 1, escaped.size(), stdout);
	}
	if (ends)
		std::fputc('\n', stdout);
}

LogToOutput::~LogToOutput()
{
	vexil_host_set_log_sink(nullptr, nullptr);
}

std::string_view message_of(std::string_view line)
{
	while (line.starts_with('[')) {
		const size_t end = line.find(']');
		if (end == std::string_view::npos)
			break;
		line.remove_prefix(end + 1);
	}
	while (line.starts_with(' '))
		line.remove_prefix(1);
	return line;
}

bool is_name_complaint(std::string_view line)
{
	return line.find("insert wrong string member") != std::string_view::npos;
}

} // namespace vexil_tool
