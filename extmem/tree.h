// SPDX-License-Identifier: MIT
//
// Growing the tree. Each call requests one node and links it; with an invalid @to it requests
// nothing, so a group of nodes stops at its first failure, and only its last result needs a look.
// Nothing can be reached before the group's holder is linked, so there is nothing to undo.
#pragma once

#include "extmem/extmem.h"

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

/**
 * Appends a holder to a root's list without walking it from its head.
 * @tail_hint: the owner's note of a child near or at the end of that list; 0 when there is none
 */
void append_to_root(node_d root, u16 *tail_hint, node_d holder);

} // namespace vexil
