// SPDX-License-Identifier: MIT
//
// What the checks of an image share: its bytes, the nodes reached so far, the fault.
#pragma once

#include <vexil/verify.h>

#include "core/bytes.h"
#include "core/span.h"
#include "extmem/layout.h"
#include "extmem/reader.h"

namespace vexil {

/** A node's two links, by where they stand. */
enum class Link : size_t { kChild = kChildAt, kNext = kNextAt };

/** Where the parts of an image lie, once its head has been found sound. */
struct ImageParts {
	const u8 *image;
	size_t slots; // nodes, of those that ids can name
	size_t data_at;
	size_t data_used; // bytes
};

/** One bit a node. */
class NodeBits {
public:
	explicit NodeBits(u8 *bits) : bits_(bits) {}

	[[nodiscard]] static constexpr size_t bytes(size_t nodes) { return (nodes + 7) / 8; }
	[[nodiscard]] bool has(u16 id) const { return (bits_[id / 8] >> id % 8 & 1) != 0; }
	void set(u16 id) { bits_[id / 8] = static_cast<u8>(bits_[id / 8] | 1 << id % 8); }
	void clear(u16 id) { bits_[id / 8] = static_cast<u8>(bits_[id / 8] & ~(1 << id % 8)); }

private:
	u8 *bits_;
};

/** The fault of a check that has none yet. */
[[nodiscard]] bool report_fault(vexil_image_fault *fault, vexil_image_code code, size_t offset,
				u16 node = kNoNode, u16 other = kNoNode);

/**
 * A walk down the tree. Every step checks where it leads and notes that the node was reached; no
 * node is reached twice, so walks end. False everywhere means that the fault has been reported.
 *
 * Requires: each node is sound by itself; links lead to nodes, records lie in the data.
 */
class ImageWalk {
public:
	ImageWalk(const ImageParts &parts, u8 *reached, vexil_image_fault *fault)
	    : parts_(parts), reached_(reached), fault_(fault)
	{
	}

	// ---- reading ----

	[[nodiscard]] size_t slots() const { return parts_.slots; }
	[[nodiscard]] int tag(u16 id) const { return node(id).tag(); }
	[[nodiscard]] u16 follow(u16 of, Link link) const
	{
		return load<u16>(at(of) + static_cast<size_t>(link));
	}
	/** Only for nodes with links. */
	[[nodiscard]] u16 child(u16 of) const { return follow(of, Link::kChild); }
	[[nodiscard]] u16 next(u16 of) const { return follow(of, Link::kNext); }
	/** The record of a data holder; empty without one. */
	[[nodiscard]] Span<const u8> record(u16 holder) const
	{
		const u32 size = node(holder).size();
		if (size == kMaxU32)
			return {};
		return {parts_.image + record_at(holder), size};
	}
	/** A value of a record that is long enough. */
	template <typename T>
	[[nodiscard]] T value(u16 holder, size_t offset = 0) const
	{
		return load<T>(record(holder).data() + offset);
	}
	[[nodiscard]] NodeBits &reached() { return reached_; }

	// ---- where things stand in the buffer ----

	[[nodiscard]] static size_t node_at(u16 id, size_t field = 0)
	{
		return kNodesAt + size_t{id} * kNodeBytes + field;
	}
	[[nodiscard]] static size_t link_at(u16 of, Link link)
	{
		return node_at(of, static_cast<size_t>(link));
	}
	[[nodiscard]] size_t record_at(u16 holder) const
	{
		return parts_.data_at + load<u32>(at(holder) + kOffsetAt);
	}

	// ---- steps ----

	bool fail(vexil_image_code code, size_t offset, u16 node, u16 other = kNoNode)
	{
		return report_fault(fault_, code, offset, node, other);
	}
	/** A fault in a record, @offset bytes behind its start. */
	bool fail_in(u16 holder, vexil_image_code code, size_t offset = 0, u16 other = kNoNode)
	{
		return fail(code, record_at(holder) + offset, holder, other);
	}
	/** What @link leads to is not what must be there. */
	bool misplaced(u16 of, Link link);
	/** There must be a node of @tag, not reached before. Null for a @to that nobody needs. */
	bool enter(u16 of, Link link, int tag, u16 *to);
	/** There must be nothing. */
	bool ends(u16 of, Link link);
	/** There must be a data holder with a record of @size bytes. */
	bool enter_record(u16 of, Link link, int tag, size_t size, u16 *to);
	/** There must be a text. */
	bool enter_text(u16 of, Link link, u16 *to = nullptr);
	/** Behind the node, its property with its name. */
	bool enter_name(u16 node, u16 *property);
	/** The same, the name being one that adoption must be able to index. */
	bool enter_indexed_name(u16 node, u16 *property);
	/** Behind a property, a version, which is the last sibling. */
	bool enter_version(u16 property);

	/** @each(id) for every node of the chain that begins at @link; all must be of @tag. */
	template <typename Each>
	bool chain(u16 of, Link link, int tag, Each each)
	{
		for (; follow(of, link) != kNoNode; link = Link::kNext) {
			u16 id;
			if (!enter(of, link, tag, &id) || !each(id))
				return false;
			of = id;
		}
		return true;
	}

private:
	[[nodiscard]] const u8 *at(u16 id) const { return parts_.image + node_at(id); }
	[[nodiscard]] NodeWord node(u16 id) const { return NodeWord(at(id)); }

	const ImageParts &parts_;
	NodeBits reached_;
	vexil_image_fault *fault_;
};

/** The tree of a map. */
[[nodiscard]] bool verify_map(ImageWalk &walk);

/** The tree of a rule image, and the rules that nothing but other rules leads to. */
[[nodiscard]] bool verify_rules(ImageWalk &walk);

/**
 * No rule leads back to itself. Requires: verify_rules was true; afterwards nothing is known of
 * what was reached.
 */
[[nodiscard]] bool verify_rings(ImageWalk &walk);

} // namespace vexil
