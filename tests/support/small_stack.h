// SPDX-License-Identifier: MIT
//
// Runs code on a stack that recursion over deep input overflows, as it would a kernel's.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstddef>

namespace vexil_test {

/** Enough for instrumented builds and the C library; a small part of the default. */
constexpr std::size_t kSmallStackBytes = 128 * 1024;

template <typename Work>
void on_small_stack(Work work)
{
	pthread_attr_t attributes;
	pthread_t thread;
	ASSERT_EQ(pthread_attr_init(&attributes), 0);
	ASSERT_EQ(pthread_attr_setstacksize(&attributes, kSmallStackBytes), 0);
	const auto run = [](void *argument) -> void * {
		(*static_cast<Work *>(argument))();
		return nullptr;
	};
	ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
	ASSERT_EQ(pthread_join(thread, nullptr), 0);
	pthread_attr_destroy(&attributes);
}

} // namespace vexil_test
