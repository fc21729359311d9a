// SPDX-License-Identifier: MIT

#include "extmem/tree.h"

namespace {

/** @link joins @to and @node; invalid when either is. */
node_d linked(node_d to, node_d node, bool (*link)(const node_d, const node_d))
{
	return link(to, node) ? node : vexil::kInvalidNode;
}

} // namespace

namespace vexil {

node_d add_child(node_d to, extmem_tag tag)
{
	if (!extmem_node_isvalid(to))
		return kInvalidNode;
	return linked(to, extmem_request_node(to.owner, tag), extmem_append_child);
}

node_d add_next(node_d to, extmem_tag tag)
{
	if (!extmem_node_isvalid(to))
		return kInvalidNode;
	return linked(to, extmem_request_node(to.owner, tag), extmem_append_next);
}

node_d add_record(node_d to, extmem_tag tag, const void *data, size_t size)
{
	if (!extmem_node_isvalid(to) || size > 0xFFFFFFFFu)
		return kInvalidNode;
	const node_d record =
		extmem_get_data(to.owner, tag, const_cast<void *>(data), static_cast<u32>(size));
	return linked(to, record, extmem_append_child);
}

node_d add_text(node_d to, const char *text)
{
	return text ? add_record(to, EXTMEM_TAG_STRING_HOLDER, text, strlen(text) + 1)
		    : kInvalidNode;
}

node_d new_text(extmem_builder *store, const char *text)
{
	if (!text)
		return kInvalidNode;
	return extmem_get_data(store, EXTMEM_TAG_STRING_HOLDER, const_cast<char *>(text),
			       static_cast<u32>(strlen(text) + 1));
}

node_d add_property(node_d to, const char *name)
{
	const node_d property = add_next(to, EXTMEM_TAG_PROPERTY);
	return extmem_node_isvalid(add_text(property, name)) ? property : kInvalidNode;
}

NamedNode new_named_node(extmem_builder *store, extmem_tag tag, const char *name,
			 const vexil_version &version)
{
	NamedNode made{extmem_request_node(store, EXTMEM_TAG_GENERAL), kInvalidNode};
	const node_d node = add_child(made.holder, tag);
	const node_d property = add_property(node, name);
	const node_d version_node = add_next(property, EXTMEM_TAG_VERSION);
	const node_d record =
		add_record(version_node, EXTMEM_TAG_VERSION_HOLDER, &version, sizeof version);
	if (extmem_node_isvalid(record))
		made.node = node;
	return made;
}

void append_to_root(node_d root, u16 *tail_hint, node_d holder)
{
	const node_d first = child_of(root);
	const node_d hint = extmem_create_node_d(root.owner, *tail_hint);
	const bool hinted = *tail_hint != 0 && extmem_node_isvalid(first);
	const node_d tail = extmem_find_tail(hinted ? hint : first);
	*tail_hint = extmem_append_child_cond(root, tail, holder).id;
}

} // namespace vexil
