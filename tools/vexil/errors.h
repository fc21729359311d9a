// SPDX-License-Identifier: MIT
//
// How commands end, and the one line that says why.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace vexil_tool {

enum class Exit {
	kDone = 0,
	kRefused = 1,     // a file, document, image or label
	kUsage = 2,       // the command line
	kCannotWrite = 3, // the output
};

/** Ends the command; main prints the text behind "vexil: ". */
class Failure : public std::runtime_error {
public:
	Failure(Exit exit, const std::string &text) : std::runtime_error(text), exit_(exit) {}
	[[nodiscard]] Exit exit() const { return exit_; }

private:
	Exit exit_;
};

/** Input that cannot be used: @where is a file, or FILE:LINE:COLUMN. */
[[noreturn]] inline void refuse(const std::string &where, const std::string &cause)
{
	throw Failure(Exit::kRefused, where + ": " + cause);
}

/** A name of whatever length as messages quote it: its beginning, and "..." for the rest. */
[[nodiscard]] inline std::string shortened(std::string_view name, size_t most = 64)
{
	if (name.size() <= most)
		return std::string(name);
	size_t end = most;
	while (end > 0 && (name[end] & 0xC0) == 0x80) // not within a character
		--end;
	return std::string(name.substr(0, end)) + "...";
}

[[noreturn]] inline void refuse_usage(const std::string &cause)
{
	throw Failure(Exit::kUsage, cause);
}

} // namespace vexil_tool
