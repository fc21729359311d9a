// SPDX-License-Identifier: MIT
//
// The library's log lines, kept for the command that caused them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "console.h"

namespace vexil_tool {

/** Receives the library's log while it lives. One at a time. */
class LibraryLog {
public:
	LibraryLog();
	~LibraryLog();
	LibraryLog(const LibraryLog &) = delete;
	LibraryLog &operator=(const LibraryLog &) = delete;

	/** The lines since the last call, without their newlines. */
	[[nodiscard]] std::vector<std::string> take();
	/** take(), each line as a warning about @where. */
	void warn_all(Console &console, const std::string &where);

private:
	static void receive(const char *text, size_t length, void *context);

	std::vector<std::string> lines_;
	bool open_ = false; // the last line's newline has not come yet
};

/** Writes a dump to standard output while it lives, names in it escaped. */
class LogToOutput {
public:
	LogToOutput();
	~LogToOutput();
	LogToOutput(const LogToOutput &) = delete;
	LogToOutput &operator=(const LogToOutput &) = delete;

	/** False once the library has given up a dump. */
	[[nodiscard]] bool complete() const { return complete_; }

private:
	static void receive(const char *text, size_t length, void *context);

	bool complete_ = true;
};

/** A log line without the brackets that say where in the library it comes from. */
[[nodiscard]] std::string_view message_of(std::string_view line);

/** A line of the name index about a character that it refuses; it does not say in which name. */
[[nodiscard]] bool is_name_complaint(std::string_view line);

} // namespace vexil_tool
