// SPDX-License-Identifier: MIT

#include "tests/kernel/checking/faults.h"

#include "platform/platform.h"

namespace {

constexpr size_t kSmall = 40;                // from the slab allocator
constexpr size_t kMapped = (8 << 20) + 40;   // more than that can give: mapped page by page
constexpr unsigned int kGfpKernel = VEXIL_GFP_KERNEL;
constexpr int kNumaNoNode = -1;

u8 table[kSmall];

u8 *block(size_t size)
{
	return static_cast<u8 *>(kvmalloc_node(size, kGfpKernel, kNumaNoNode));
}

/** A value that the compiler knows nothing of. */
template <typename T>
T opaque(T value)
{
	asm volatile("" : "+r"(value));
	return value;
}

void touch(u8 *byte)
{
	*static_cast<volatile u8 *>(byte) = 1;
}

} // namespace

extern "C" {

// Everything that the faults below do, within bounds.
void fault_none(void)
{
	u8 *bytes = block(kSmall);
	if (!bytes)
		return;
	memset(bytes, 0, kSmall);
	touch(bytes + opaque(kSmall - 1));
	kvfree(bytes);
	_printk("all within bounds\n");
}

void fault_heap_overrun(void)
{
	u8 *bytes = block(kSmall);
	if (!bytes)
		return;
	touch(bytes + opaque(kSmall));
	kvfree(bytes);
}

void fault_mapped_overrun(void)
{
	u8 *bytes = block(kMapped);
	if (!bytes)
		return;
	touch(bytes + opaque(kMapped));
	kvfree(bytes);
}

void fault_stack_overrun(void)
{
	u8 bytes[kSmall];
	memset(opaque(&bytes[0]), 0, sizeof bytes);
	touch(opaque(&bytes[0]) + opaque(kSmall));
}

void fault_global_overrun(void)
{
	touch(opaque(&table[0]) + opaque(kSmall));
}

void fault_use_after_free(void)
{
	u8 *bytes = block(kSmall);
	kvfree(bytes);
	if (bytes)
		touch(opaque(bytes));
}

void fault_index(void)
{
	table[opaque(kSmall)] = 1;
}

void fault_shift(void)
{
	_printk("1 << 64 is %llu\n", 1ull << opaque(64));
}

void fault_bool(void)
{
	const u8 two = 2;
	const bool truth = *reinterpret_cast<const bool *>(opaque(&two));
	_printk("2 is %d\n", truth ? 1 : 0);
}

void fault_misaligned(void)
{
	*reinterpret_cast<volatile u32 *>(opaque(&table[0]) + opaque(1)) = 0;
}

void fault_leak(void)
{
	opaque(block(kSmall));
}

void fault_mapped_leak(void)
{
	opaque(block(kMapped));
}

// Called with allocations refused; says how many.
void fault_starve(void)
{
	constexpr int kTries = 50;
	int small = 0;
	int large = 0;
	for (int i = 0; i < kTries; ++i) {
		u8 *bytes = block(kSmall);
		small += !bytes;
		kvfree(bytes);
		bytes = block(kMapped);
		large += !bytes;
		kvfree(bytes);
	}
	_printk("refused %d small blocks and %d large ones of %d\n", small, large, kTries);
}

} // extern "C"
