/* SPDX-License-Identifier: MIT */
/*
 * Faults on purpose, in C++ as the library is: what the checking kernel must notice.
 */
#ifndef VEXIL_FAULTS_H
#define VEXIL_FAULTS_H

/* Name of the fault, which is that of its function without "fault_". */
#define VEXIL_FAULTS(FAULT) \
	FAULT(none) \
	FAULT(heap_overrun) \
	FAULT(mapped_overrun) \
	FAULT(stack_overrun) \
	FAULT(global_overrun) \
	FAULT(use_after_free) \
	FAULT(index) \
	FAULT(shift) \
	FAULT(bool) \
	FAULT(misaligned) \
	FAULT(leak) \
	FAULT(mapped_leak) \
	FAULT(starve)

#ifdef __cplusplus
extern "C" {
#endif

#define VEXIL_FAULT_FUNCTION(name) void fault_##name(void);
VEXIL_FAULTS(VEXIL_FAULT_FUNCTION)
#undef VEXIL_FAULT_FUNCTION

#ifdef __cplusplus
}
#endif

#endif /* VEXIL_FAULTS_H */
