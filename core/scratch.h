// SPDX-License-Identifier: MIT
//
// Scratch<T>: a zeroed block that is freed with its scope.
#pragma once

#include "core/memory.h"

namespace vexil {

/**
 * Owns @count zeroed T taken from the hooks of a store or a trie. Ask it before use: it is false
 * when the memory could not be had, or none was wanted.
 */
template <typename T>
class Scratch {
public:
	template <typename Owner>
	Scratch(const Owner &owner, size_t count) : deallocate_(owner.deallocate)
	{
		size_t size = 0;
		if (count == 0 || __builtin_mul_overflow(count, sizeof(T), &size))
			return;
		block_ = static_cast<T *>(owner.allocate(size));
		if (block_)
			memset(block_, 0, size);
	}
	~Scratch()
	{
		if (block_)
			deallocate_(block_);
	}
	Scratch(const Scratch &) = delete;
	Scratch &operator=(const Scratch &) = delete;

	explicit operator bool() const { return block_ != nullptr; }
	[[nodiscard]] T *get() const { return block_; }
	T *operator->() const { return block_; }
	T &operator[](size_t index) const { return block_[index]; }

private:
	DeallocateFn deallocate_;
	T *block_ = nullptr;
};

} // namespace vexil
