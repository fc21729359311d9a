// SPDX-License-Identifier: MIT
//
// The platform that tests run on: counts and keeps every block, refuses those it is told to refuse,
// and keeps the log. Number conversions are the host platform's own.
//
// Every test starts with an empty log and no refusals, and fails when a block outlives it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vexil_test {

/** Blocks that are allocated now. */
std::size_t live_blocks();

/** Calls of kvmalloc_node since the test began, refused ones included. */
std::size_t allocations();

/** Arguments of the last call of kvmalloc_node. */
struct Request {
	std::size_t size;
	unsigned int flags;
	int node;
};
Request last_request();

/** Refuses allocations while it lives. */
class Refuse {
public:
	/** The @nth call from now (1 is the next one) fails, later ones succeed. */
	static Refuse only(std::size_t nth);
	/** The @nth call from now and all that follow fail. */
	static Refuse from(std::size_t nth);
	~Refuse();
	Refuse(const Refuse &) = delete;
	Refuse &operator=(const Refuse &) = delete;

	/** True when a call was refused since then. */
	bool happened() const;

private:
	Refuse(std::size_t nth, bool all_later);
	std::size_t refused_before_;
};

/** The log text since the test began, or since the last call; forgets it. */
std::string take_log();

/** The same, cut into lines without their newlines. */
std::vector<std::string> take_log_lines();

} // namespace vexil_test
