// SPDX-License-Identifier: MIT
//
// Span<T>: pointer and length that travel together. Borrows; owns nothing.
#pragma once

#include <vexil/types.h>

namespace vexil {

template <typename T>
class Span {
public:
	constexpr Span() = default;
	constexpr Span(T *data, size_t size) : data_(data), size_(data ? size : 0) {}
	template <size_t N>
	constexpr Span(T (&array)[N]) : data_(array), size_(N) {}

	[[nodiscard]] constexpr T *data() const { return data_; }
	[[nodiscard]] constexpr size_t size() const { return size_; }
	[[nodiscard]] constexpr bool empty() const { return size_ == 0; }
	[[nodiscard]] constexpr T *begin() const { return data_; }
	[[nodiscard]] constexpr T *end() const { return data_ + size_; }
	constexpr explicit operator bool() const { return data_ != nullptr; }

private:
	T *data_ = nullptr;
	size_t size_ = 0;
};

/** Bytes of an image, at any alignment. */
using Bytes = Span<u8>;

} // namespace vexil
