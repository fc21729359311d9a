// SPDX-License-Identifier: MIT
//
// Bytes of an image, N and D being the capacities of the node and data buffers:
//
//        0  88  extmem_buffer_header
//       88   8  ExtmemBufferCompact of the nodes
//       96   N  nodes, 16 bytes each, then zeros up to the capacity
//     96+N   8  ExtmemBufferCompact of the data
//    104+N   D  records at multiples of 8, then zeros up to the capacity
//
// The zero tails are written on purpose: a store adopted in place has the capacity of the one that
// was exported.
#pragma once

#include "extmem/extmem.h"

VEXIL_BEGIN_C

/** A buffer's figures, as they stand in an image. */
struct extmem_buffer_ctx_compact {
	u32 buf_used;
	u32 buf_max;
};
static_assert(sizeof(extmem_buffer_ctx_compact) == 8);

VEXIL_END_C

namespace vexil {

inline constexpr size_t kHeaderBytes = sizeof(extmem_buffer_header);
inline constexpr size_t kCompactBytes = sizeof(extmem_buffer_ctx_compact);
inline constexpr size_t kNodesAt = kHeaderBytes + kCompactBytes; // 96
/** What an image holds beside the two capacities. */
inline constexpr size_t kImageOverhead = kNodesAt + kCompactBytes; // 104
static_assert(kNodesAt == 96 && kImageOverhead == 104);

/** Where nodes keep what is written one field at a time. */
inline constexpr size_t kTagAt = 2;
inline constexpr size_t kChildAt = 3;
inline constexpr size_t kNextAt = 5;
inline constexpr size_t kSizeAt = 3;
inline constexpr size_t kOffsetAt = 7;

inline constexpr size_t kRecordAlignment = 8;

inline constexpr u32 kMaxU32 = 0xFFFFFFFFu;

} // namespace vexil
