// SPDX-License-Identifier: MIT
//
// Reader: nodes and records of a store that does not change, for walks that run often. The checks
// are those of the store's own calls, made here without a call for each.
#pragma once

#include "core/bytes.h"
#include "extmem/children.h"
#include "extmem/layout.h"

namespace vexil {

/** Ids that it hands out lie in the store, or are kNoNode. Good until the store changes. */
class Reader {
public:
	explicit Reader(const extmem_builder &store)
	    : nodes_(store.node_buffer.buf), slots_(nodes_ ? node_slots(store) : 0),
	      data_(store.data_buffer.buf), used_(data_ ? store.data_buffer.buf_used : 0)
	{
		if (slots_ > kMaxNodes)
			slots_ = kMaxNodes;
	}

	[[nodiscard]] bool holds(u16 id) const { return id < slots_; }
	/** The tag of a node that the store holds; EXTMEM_TAG_INVALID for others. */
	[[nodiscard]] int tag(u16 id) const
	{
		return holds(id) ? int{at(id)[kTagAt]} : int{EXTMEM_TAG_INVALID};
	}
	[[nodiscard]] u16 child(u16 id) const { return link(id, kChildAt); }
	[[nodiscard]] u16 next(u16 id) const { return link(id, kNextAt); }
	/** The record of a data holder; empty for anything else. */
	[[nodiscard]] Bytes record(u16 id) const
	{
		if (tag(id) < EXTMEM_TAG_DATA_TYPE_BEGIN)
			return {};
		const auto size = load<u32>(at(id) + kSizeAt);
		const auto offset = load<u32>(at(id) + kOffsetAt);
		return size != 0 && fits(offset, size, used_) ? Bytes{data_ + offset, size} : Bytes{};
	}

private:
	[[nodiscard]] u8 *at(u16 id) const { return nodes_ + size_t{id} * kNodeBytes; }
	[[nodiscard]] u16 link(u16 id, size_t field) const
	{
		if (!holds(id) || at(id)[kTagAt] >= EXTMEM_TAG_DATA_TYPE_BEGIN)
			return kNoNode;
		const auto target = load<u16>(at(id) + field);
		return holds(target) ? target : kNoNode;
	}

	u8 *nodes_;
	size_t slots_;
	u8 *data_;
	size_t used_;
};

} // namespace vexil
