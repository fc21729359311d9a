/* SPDX-License-Identifier: MIT */
/*
 * Fixed-width types and small records shared by every public header.
 *
 * Plain C11, usable from a kernel driver, and C++20.
 */
#ifndef VEXIL_TYPES_H
#define VEXIL_TYPES_H

#if defined(__KERNEL__) && !defined(__cplusplus)
#include <linux/types.h>
#else
#include <stdbool.h>
#include <stddef.h>
typedef unsigned char u8;
typedef unsigned short u16;
typedef unsigned int u32;
typedef unsigned long long u64;
typedef signed char s8;
typedef short s16;
typedef int s32;
typedef long long s64;
#endif

/* Around every declaration of the binary interface: C names, visible outside. */
#if defined(__cplusplus)
#define VEXIL_BEGIN_C _Pragma("GCC visibility push(default)") extern "C" {
#define VEXIL_END_C                                                                                \
	}                                                                                          \
	_Pragma("GCC visibility pop")
#else
#define VEXIL_BEGIN_C _Pragma("GCC visibility push(default)")
#define VEXIL_END_C _Pragma("GCC visibility pop")
#endif

/** Marks results that a caller must look at. */
#if defined(__cplusplus)
#define VEXIL_MUST_CHECK [[nodiscard]]
#else
#define VEXIL_MUST_CHECK __attribute__((warn_unused_result))
#endif

/**
 * vexil_version - version of a document, an image or one IP block
 *
 * Eight bytes, little-endian, stored as it stands in image headers and version records.
 */
typedef struct vexil_version {
	u16 u16MajorNumber;
	u16 u16MinorNumber;
	u32 u32Revision;
} vexil_version;

#endif /* VEXIL_TYPES_H */
