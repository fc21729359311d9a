// SPDX-License-Identifier: MIT
//
// Pending<T>: a stack for walks whose depth an input decides.
#pragma once

#include "core/bytes.h"
#include "core/memory.h"

namespace vexil {

/**
 * Last in, first out. The first N items stand in the object, more on the heap of @owner's hooks.
 * push() is false when that memory could not be had; nothing is lost then.
 */
template <typename T, size_t N = 16>
class Pending {
public:
	template <typename Owner>
	explicit Pending(const Owner &owner)
	    : deallocate_(owner.deallocate), reallocate_(owner.reallocate)
	{
	}
	~Pending()
	{
		if (heap_)
			deallocate_(heap_);
	}
	Pending(const Pending &) = delete;
	Pending &operator=(const Pending &) = delete;

	[[nodiscard]] bool push(const T &item)
	{
		if (count_ == capacity_ && !grow())
			return false;
		items()[count_++] = item;
		return true;
	}
	[[nodiscard]] bool empty() const { return count_ == 0; }
	[[nodiscard]] size_t size() const { return count_; }
	T &top() { return items()[count_ - 1]; }
	T pop() { return items()[--count_]; }

	/** True when @is holds for an item. */
	template <typename Is>
	[[nodiscard]] bool contains(Is is)
	{
		for (size_t i = 0; i < count_; ++i) {
			if (is(items()[i]))
				return true;
		}
		return false;
	}

private:
	T *items() { return heap_ ? heap_ : in_place_; }
	bool grow()
	{
		const size_t capacity = capacity_ * 2;
		auto *grown = static_cast<T *>(reallocate_(heap_, count_ * sizeof(T), capacity * sizeof(T)));
		if (!grown)
			return false;
		if (!heap_)
			memcpy(grown, in_place_, sizeof in_place_);
		heap_ = grown;
		capacity_ = capacity;
		return true;
	}

	DeallocateFn deallocate_;
	ReallocateFn reallocate_;
	T *heap_ = nullptr;
	size_t count_ = 0;
	size_t capacity_ = N;
	T in_place_[N];
};

} // namespace vexil
