// SPDX-License-Identifier: MIT
//
// Walks over the tree that always end, and reads that look before they trust.
#pragma once

#include "core/span.h"
#include "platform/platform.h"
#include "extmem/extmem.h"

namespace vexil {

/** True for a node that has links. */
[[nodiscard]] inline bool is_tree_node(node_d node)
{
	const int tag = extmem_fetch_tag(node);
	return tag >= 0 && tag < EXTMEM_TAG_DATA_TYPE_BEGIN;
}

/** The first child, or the invalid node; data holders have none. */
[[nodiscard]] inline node_d child_of(node_d node)
{
	if (!is_tree_node(node))
		return kInvalidNode;
	const node_d child = extmem_get_child(node);
	return extmem_node_isvalid(child) ? child : kInvalidNode;
}

/** The next sibling, or the invalid node; data holders have none. */
[[nodiscard]] inline node_d next_of(node_d node)
{
	if (!is_tree_node(node))
		return kInvalidNode;
	const node_d next = extmem_get_next(node);
	return extmem_node_isvalid(next) ? next : kInvalidNode;
}

/** Slots in the store, whatever they hold. */
[[nodiscard]] inline size_t node_slots(const extmem_builder &store)
{
	return store.node_buffer.buf_used / kNodeBytes;
}

/**
 * How many nodes, and bytes of their records, one scan, merge or query may still visit. A damaged
 * image can share chains and records so that nested walks meet the same ones again and again; sound
 * ones need less than a third of this.
 */
class WalkBudget {
public:
	explicit WalkBudget(const extmem_builder &store)
	    : nodes_(8 * node_slots(store) + 64), bytes_(8 * store.data_buffer.buf_used + 64)
	{
	}

	[[nodiscard]] bool spend() { return take(&nodes_, 1); }
	[[nodiscard]] bool spend_bytes(size_t bytes) { return take(&bytes_, bytes); }
	/** Ends every walk over the store: a chain was found that does not end. */
	void exhaust() { spent_ = true; }
	/** True once more was asked for than there was; every walk over the store has ended then. */
	[[nodiscard]] bool spent() const { return spent_; }

private:
	bool take(size_t *left, size_t amount)
	{
		spent_ = spent_ || amount > *left;
		if (!spent_)
			*left -= amount;
		return !spent_;
	}

	size_t nodes_;
	size_t bytes_;
	bool spent_ = false;
};

/** extmem_find_next within a budget. */
[[nodiscard]] inline node_d find_next(node_d node, int tag, WalkBudget &budget)
{
	do {
		node = budget.spend() ? next_of(node) : kInvalidNode;
	} while (node.id != kNoNode && extmem_fetch_tag(node) != tag);
	return node;
}

/**
 * The children of a node, for range-for. Stops at an id outside the store, when the budget is spent,
 * and after as many steps as the store has nodes, so a cycle in a damaged image costs time, never a
 * hang. A node's next is read after the loop's body: relink only nodes that are behind.
 */
class Children {
public:
	Children(node_d parent, WalkBudget &budget) : first_(child_of(parent)), budget_(&budget) {}

	class iterator {
	public:
		iterator(node_d node, WalkBudget *budget)
		    : node_(node), steps_left_(node.owner ? node_slots(*node.owner) : 0), budget_(budget)
		{
			check();
		}
		node_d operator*() const { return node_; }
		iterator &operator++()
		{
			node_ = next_of(node_);
			check();
			return *this;
		}
		bool operator!=(const iterator &other) const { return node_.id != other.node_.id; }

	private:
		void check()
		{
			if (node_.id == kNoNode)
				return;
			if (steps_left_ == 0)
				budget_->exhaust();
			else
				--steps_left_;
			if (!budget_->spend())
				node_ = kInvalidNode;
		}

		node_d node_;
		size_t steps_left_;
		WalkBudget *budget_;
	};

	[[nodiscard]] iterator begin() const { return {first_, budget_}; }
	[[nodiscard]] iterator end() const { return {kInvalidNode, budget_}; }

private:
	node_d first_;
	WalkBudget *budget_;
};

/** The record of a data holder; empty for anything else. */
[[nodiscard]] inline Bytes payload(node_d node)
{
	if (extmem_fetch_tag(node) < EXTMEM_TAG_DATA_TYPE_BEGIN)
		return {};
	const data_d record = extmem_copy_from_node(node);
	return {static_cast<u8 *>(extmem_fetch_data(record)), record.size};
}

/** The text of a string holder; null unless a NUL ends it inside its record. */
[[nodiscard]] inline const char *text_of(node_d node)
{
	if (extmem_fetch_tag(node) != EXTMEM_TAG_STRING_HOLDER)
		return nullptr;
	const Bytes record = payload(node);
	return record && memchr(record.data(), '\0', record.size())
		       ? reinterpret_cast<const char *>(record.data())
		       : nullptr;
}

/** The name of a node: the string under the first property among its following siblings. */
[[nodiscard]] inline const char *name_of(node_d node, WalkBudget &budget)
{
	const node_d holder = child_of(find_next(node, EXTMEM_TAG_PROPERTY, budget));
	return budget.spend_bytes(payload(holder).size()) ? text_of(holder) : nullptr;
}

/**
 * The version behind the property of the first node of @tag below the root that is named exactly
 * @name. False when there is none, or when its record cannot be read.
 */
[[nodiscard]] bool find_version(node_d root, int tag, const char *name, vexil_version *version);

} // namespace vexil
