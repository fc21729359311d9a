// SPDX-License-Identifier: MIT
//
// Growing the tree. Each call requests one node and links it; with an invalid @to it requests
// nothing, so a group of nodes stops at its first failure, and only its last result needs a look.
// Nothing can be reached before the group's holder is linked, so there is nothing to undo.
#pragma once

#include "extmem/children.h"

namespace vexil {

/** A new first child of @to. */
[[nodiscard]] node_d add_child(node_d to, extmem_tag tag);

/** A new next sibling of @to. */
[[nodiscard]] node_d add_next(node_d to, extmem_tag tag);

/** A record as the first child of @to. */
[[nodiscard]] node_d add_record(node_d to, extmem_tag tag, const void *data, size_t size);

/** A string item as the first child of @to; invalid for a NULL @text. */
[[nodiscard]] node_d add_text(node_d to, const char *text);

/** A string item that is not linked yet; invalid for a NULL @text. */
[[nodiscard]] node_d new_text(extmem_builder *store, const char *text);

/** A property with @name as the next sibling of @to; invalid also when the name failed. */
[[nodiscard]] node_d add_property(node_d to, const char *name);

/** A node with its name and version behind it, below a holder that nothing refers to yet. */
struct NamedNode {
	node_d holder;
	node_d node; // invalid when the group could not be completed
};
[[nodiscard]] NamedNode new_named_node(extmem_builder *store, extmem_tag tag, const char *name,
				       const vexil_version &version);

/**
 * Appends a holder to a root's list without walking it from its head.
 * @tail_hint: the owner's note of a child near or at the end of that list; 0 when there is none
 */
void append_to_root(node_d root, u16 *tail_hint, node_d holder);

/**
 * Moves the holders of another list of the same store to the end of a root's list: those for whose
 * node @wanted is true, in order. The other list is of no further use. False when it does not end.
 */
template <typename Wanted>
[[nodiscard]] bool take_holders(node_d root, u16 *tail_hint, node_d other, WalkBudget &budget,
				Wanted wanted)
{
	node_d last = extmem_find_tail(child_of(root));
	node_d following;
	for (node_d holder = child_of(other); extmem_node_isvalid(holder); holder = following) {
		if (!budget.spend())
			return false;
		following = next_of(holder); // read before the holder is linked anew
		if (wanted(child_of(holder)))
			last = extmem_append_child_cond(root, last, holder);
	}
	extmem_break_next(last);
	*tail_hint = extmem_node_isvalid(last) ? last.id : u16{0};
	return true;
}

} // namespace vexil
