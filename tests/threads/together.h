// SPDX-License-Identifier: MIT
//
// Eight threads that begin together, and how much they have to do.
#pragma once

#include <gtest/gtest.h>

#include <barrier>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace vexil_test {

inline constexpr size_t kThreads = 8;

/** Triggers of all threads in all: VEXIL_THREAD_TRIGGERS, or what every test run can afford. */
inline size_t wanted_triggers()
{
	constexpr size_t kShort = 200'000;
	const char *text = std::getenv("VEXIL_THREAD_TRIGGERS");
	return text ? std::stoul(text) : kShort;
}

/** How often what takes longer than a trigger is done in each thread. */
inline size_t wanted_rounds()
{
	return 3 + wanted_triggers() / 200'000;
}

/** Runs @work(0) to @work(7), each in a thread of its own, all beginning together. */
template <typename Work>
void together(Work work)
{
	std::barrier start(static_cast<std::ptrdiff_t>(kThreads));
	std::vector<std::thread> threads;
	for (size_t i = 0; i < kThreads; ++i) {
		threads.emplace_back([&, i] {
			start.arrive_and_wait();
			work(i);
		});
	}
	for (std::thread &thread : threads)
		thread.join();
}

} // namespace vexil_test
