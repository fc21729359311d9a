// SPDX-License-Identifier: MIT
//
// Handle: an open file descriptor, closed with its scope.
#pragma once

#include <unistd.h>

namespace vexil_tool {

class Handle {
public:
	explicit Handle(int number) : number_(number) {}
	~Handle() { close(); }
	Handle(const Handle &) = delete;
	Handle &operator=(const Handle &) = delete;

	explicit operator bool() const { return number_ >= 0; }
	[[nodiscard]] int get() const { return number_; }
	/** Closes it now. Return: close's own, 0 when it was closed before. */
	int close()
	{
		const int number = number_;
		number_ = -1;
		return number >= 0 ? ::close(number) : 0;
	}

private:
	int number_;
};

} // namespace vexil_tool
