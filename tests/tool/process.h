// SPDX-License-Identifier: MIT
//
// A program run to its end: what it printed, and how it ended.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vexil_test {

struct ProcessResult {
	int exit_code = -1; // -1 unless it ended by itself
	int signal = 0;     // that ended it
	bool timed_out = false;
	std::string out;
	std::string err;
};

struct ProcessSetup {
	std::string folder;             // to run in; empty: this one
	bool error_is_terminal = false; // standard error is a terminal of its own
	size_t largest_file = 0;        // bytes that it may write to one file; 0: no limit
	std::string output_to;          // a file instead of the pipe for standard output
	/** Called with the process id once it runs. */
	std::function<void(int)> started;
};

/** Runs a program; one that takes more than four minutes is killed. */
ProcessResult run_process(const std::vector<std::string> &command, const ProcessSetup &setup = {});

} // namespace vexil_test
