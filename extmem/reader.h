// SPDX-License-Identifier: MIT
//
// Reader: nodes and records of a store that does not change, for walks that run often. The checks
// are those of the store's own calls, made here without a call for each.
#pragma once

#include "core/bytes.h"
#include "extmem/children.h"
#include "extmem/layout.h"

namespace vexil {

/** A node's first eight bytes in one word: all but the end of a data holder's offset. */
class NodeWord {
public:
	explicit NodeWord(const u8 *node) : bits_(load<u64>(node)) {}

	[[nodiscard]] int tag() const { return static_cast<u8>(bits_ >> (8 * kTagAt)); }
	[[nodiscard]] bool has_links() const { return tag() < EXTMEM_TAG_DATA_TYPE_BEGIN; }
	/** As they stand: they may lead outside. Only for nodes that have links. */
	[[nodiscard]] u16 child() const { return static_cast<u16>(bits_ >> (8 * kChildAt)); }
	[[nodiscard]] u16 next() const { return static_cast<u16>(bits_ >> (8 * kNextAt)); }
	/** True for a data holder of @tag whose record is said to have @size bytes. */
	[[nodiscard]] bool is_record(int tag, u64 size) const
	{
		constexpr unsigned kBehindSize = 64 - 8 * (kSizeAt + sizeof(u32));
		return bits_ << kBehindSize >> (kBehindSize + 8 * kTagAt) ==
		       (size << 8 | static_cast<u8>(tag));
	}
	/** Only for data holders. */
	[[nodiscard]] u32 size() const { return static_cast<u32>(bits_ >> (8 * kSizeAt)); }

private:
	u64 bits_;
};

/** Good until the store changes. */
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
	/** Requires: holds(id). */
	[[nodiscard]] NodeWord node(u16 id) const { return NodeWord(at(id)); }

	/** The tag of a node that the store holds; EXTMEM_TAG_INVALID for others. */
	[[nodiscard]] int tag(u16 id) const
	{
		return holds(id) ? node(id).tag() : int{EXTMEM_TAG_INVALID};
	}
	/** Links of a node; kNoNode where there are none and where they lead outside. */
	[[nodiscard]] u16 child(u16 id) const { return holds(id) ? child(node(id)) : kNoNode; }
	[[nodiscard]] u16 next(u16 id) const { return holds(id) ? next(node(id)) : kNoNode; }
	[[nodiscard]] u16 child(NodeWord word) const
	{
		return word.has_links() && holds(word.child()) ? word.child() : kNoNode;
	}
	[[nodiscard]] u16 next(NodeWord word) const
	{
		return word.has_links() && holds(word.next()) ? word.next() : kNoNode;
	}

	/** The record of a data holder; empty for anything else. */
	[[nodiscard]] Bytes record(u16 id) const
	{
		if (tag(id) < EXTMEM_TAG_DATA_TYPE_BEGIN)
			return {};
		const u32 size = node(id).size();
		return size != 0 && offset(id) < offsets_for(size) ? Bytes{bytes_at(offset(id)), size}
								   : Bytes{};
	}
	/** Records of @size bytes lie in the used data when their offset is smaller than this. */
	[[nodiscard]] size_t offsets_for(size_t size) const
	{
		return size <= used_ ? used_ - size + 1 : 0;
	}
	/** Requires: holds(id), and that it is a data holder. */
	[[nodiscard]] u32 offset(u16 id) const { return load<u32>(at(id) + kOffsetAt); }
	/** Requires: the offset of a record that lies in the used data. */
	[[nodiscard]] u8 *bytes_at(size_t offset) const { return data_ + offset; }

private:
	[[nodiscard]] u8 *at(u16 id) const { return nodes_ + size_t{id} * kNodeBytes; }

	u8 *nodes_;
	size_t slots_;
	u8 *data_;
	size_t used_;
};

} // namespace vexil
