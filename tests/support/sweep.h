// SPDX-License-Identifier: MIT
//
// Sweeps: a step is repeated with the first allocation refused, then with the second, and so on
// until nothing is refused any more; then the same with all that follow refused, too.
//
// How often something was refused is said at the end of the program, and in each test's properties.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>

#include "tests/support/platform.h"

namespace vexil_test {

enum class Mode { kOne, kAllLater };

inline Refuse refuse(Mode mode, std::size_t nth)
{
	return mode == Mode::kOne ? Refuse::only(nth) : Refuse::from(nth);
}

/** Attempts in which something was refused. */
struct Tally {
	std::size_t in_test = 0;
	std::size_t in_all = 0;

	void count()
	{
		++in_test;
		++in_all;
	}
};

inline Tally &tally()
{
	static Tally instance;
	return instance;
}

/** Says what was counted. */
class TallyReport : public testing::EmptyTestEventListener {
	void OnTestStart(const testing::TestInfo &) override { tally().in_test = 0; }
	void OnTestEnd(const testing::TestInfo &) override
	{
		if (tally().in_test > 0)
			testing::Test::RecordProperty("refusals",
						      static_cast<int>(tally().in_test));
	}
	void OnTestProgramEnd(const testing::UnitTest &) override
	{
		if (tally().in_all > 0)
			std::printf("allocations refused: %zu\n", tally().in_all);
	}
};

inline const bool tally_is_reported = [] {
	testing::UnitTest::GetInstance()->listeners().Append(new TallyReport);
	return true;
}();

/** How a step went with an allocation refused in it. */
struct Outcome {
	bool done;
	bool refused;
};

/** @step with the @nth allocation from now refused. */
inline Outcome attempt(Mode mode, std::size_t nth, const std::function<bool()> &step)
{
	const Refuse refusal = refuse(mode, nth);
	const bool done = step();
	const bool refused = refusal.happened();
	if (refused)
		tally().count();
	return {done, refused};
}

/**
 * Runs @once with the first allocation refused, then with the second, until nothing is refused any
 * more; it gets the mode and the number, and says whether something was refused. It must leave as
 * many blocks as it found.
 */
inline void every_allocation(const std::function<bool(Mode, std::size_t)> &once)
{
	constexpr std::size_t kEndless = 100000;
	for (const Mode mode : {Mode::kOne, Mode::kAllLater}) {
		std::size_t nth = 1;
		bool refused = true;
		for (; refused; ++nth) {
			SCOPED_TRACE((mode == Mode::kOne ? "allocation " : "allocations from ") +
				     std::to_string(nth));
			const std::size_t blocks = live_blocks();
			refused = once(mode, nth);
			ASSERT_EQ(live_blocks(), blocks);
			ASSERT_FALSE(testing::Test::HasFailure());
			ASSERT_LT(nth, kEndless);
		}
		ASSERT_GT(nth, 2u) << "the step allocates nothing";
	}
}

} // namespace vexil_test
