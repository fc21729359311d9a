// SPDX-License-Identifier: MIT

#include "core/memory.h"

namespace {

// The kernel's GFP_KERNEL. The module build passes the value of the kernel that it builds for.
#ifndef VEXIL_GFP_KERNEL
#define VEXIL_GFP_KERNEL 0xcc0u
#endif
constexpr unsigned int kGfpKernel = VEXIL_GFP_KERNEL;
constexpr int kNumaNoNode = -1;
constexpr size_t kLargestBlock = __INT_MAX__;

constinit vexil_mem_info mem_info{};

} // namespace

extern "C" {

void *ALLOC(size_t size)
{
	if (size > kLargestBlock)
		return nullptr;
	return kvmalloc_node(size, kGfpKernel, kNumaNoNode);
}

void DEALLOC(void *ptr)
{
	kvfree(ptr);
}

void *REALLOC(void *ptr, size_t old_sz, size_t new_sz)
{
	void *moved = ALLOC(new_sz);
	if (!moved || !ptr)
		return moved;
	memcpy(moved, ptr, old_sz < new_sz ? old_sz : new_sz);
	DEALLOC(ptr);
	return moved;
}

bool vexil_mem_init(vexil_mem_info *pMemInfo)
{
	if (!pMemInfo)
		return false;
	mem_info = *pMemInfo;
	return true;
}

bool vexil_mem_status(vexil_mem_info *pMemInfo)
{
	if (!pMemInfo)
		return false;
	*pMemInfo = mem_info;
	return true;
}

bool vexil_mem_alloc(void)
{
	return true;
}

} // extern "C"
