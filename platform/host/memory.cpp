// SPDX-License-Identifier: MIT

#include <cstdlib>

#include "platform/platform.h"

extern "C" {

void *kvmalloc_node(size_t size, unsigned int, int)
{
	return std::malloc(size ? size : 1); // as in the kernel, an empty block is a block
}

void kvfree(const void *addr)
{
	std::free(const_cast<void *>(addr));
}

} // extern "C"
