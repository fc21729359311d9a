// SPDX-License-Identifier: MIT
//
// What a person at the terminal sees beside a command's result: warnings and a progress line, both
// on standard error.
#pragma once

#include <chrono>
#include <string>

namespace vexil_tool {

class Console {
public:
	/** @mark: what stands before the text of a warning; empty where warnings end in a refusal.
	 */
	explicit Console(std::string mark = "warning: ");
	~Console();
	Console(const Console &) = delete;
	Console &operator=(const Console &) = delete;

	/** "vexil: WHERE: warning: TEXT", or with another mark; both are escaped. */
	void warn(const std::string &where, const std::string &text);
	/** The same with "note: "; not counted: nothing is wrong with the documents as such. */
	void note(const std::string &where, const std::string &text);
	/** Warnings so far. */
	[[nodiscard]] size_t warnings() const { return warnings_; }

	/**
	 * Shows how far a long command is. Nothing unless standard error is a terminal, and nothing
	 * in the first moments.
	 */
	void progress(size_t done, size_t all, const std::string &what);
	/** Removes the progress line. */
	void clear_progress();

private:
	const std::string mark_;
	const bool terminal_;
	const std::chrono::steady_clock::time_point begin_;
	bool shown_ = false;
	size_t warnings_ = 0;
};

/** Writes what is left of standard output. Throws when it could not be written. */
void finish_output();

} // namespace vexil_tool
