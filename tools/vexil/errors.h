// SPDX-License-Identifier: MIT
//
// How commands end, and the one line that says why.
#pragma once

#include <stdexcept>
#include <string>

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

[[noreturn]] inline void refuse_usage(const std::string &cause)
{
	throw Failure(Exit::kUsage, cause);
}

} // namespace vexil_tool
