// SPDX-License-Identifier: MIT
//
// Nodes and their links. Buffers and images may lie at any address: every field goes through
// load and store.

#include "core/bytes.h"
#include "extmem/children.h"
#include "extmem/layout.h"

namespace {

using vexil::kInvalidNode;
using vexil::kNodeBytes;
using vexil::kNoNode;

/** Where the node stands, or null when it does not lie wholly in its store. */
u8 *bytes_of(node_d node)
{
	if (!node.owner || node.id == kNoNode)
		return nullptr;
	const extmem_buffer_ctx &nodes = node.owner->node_buffer;
	const size_t at = size_t{node.id} * kNodeBytes;
	return nodes.buf && at + kNodeBytes <= nodes.buf_used ? nodes.buf + at : nullptr;
}

bool set_link(node_d node, size_t field, node_d target)
{
	u8 *bytes = bytes_of(node);
	if (!bytes || !bytes_of(target))
		return false;
	vexil::store(bytes + field, target.id);
	return true;
}

node_d get_link(node_d node, size_t field)
{
	const u8 *bytes = bytes_of(node);
	return bytes ? node_d{vexil::load<u16>(bytes + field), node.owner} : kInvalidNode;
}

} // namespace

extern "C" {

node_d extmem_create_node_d(extmem_builder *pBuilder, const u16 id)
{
	return {id, pBuilder};
}

bool extmem_node_isvalid(const node_d node)
{
	return bytes_of(node) != nullptr;
}

extmem_node extmem_fetch_node(const node_d node)
{
	const u8 *bytes = bytes_of(node);
	return bytes ? vexil::load<extmem_node>(bytes) : extmem_node{};
}

extmem_node extmem_fetch_node_by_id(extmem_builder *pBuilder, const u16 id)
{
	return extmem_fetch_node({id, pBuilder});
}

bool extmem_set_node(const node_d *node, const extmem_node value)
{
	u8 *bytes = node ? bytes_of(*node) : nullptr;
	if (!bytes)
		return false;
	vexil::store(bytes, value);
	return true;
}

int extmem_fetch_tag(const node_d cur_node)
{
	const u8 *bytes = bytes_of(cur_node);
	return bytes ? int{bytes[vexil::kTagAt]} : int{EXTMEM_TAG_INVALID};
}

bool extmem_set_tag(const node_d cur_node, const extmem_tag tag)
{
	u8 *bytes = bytes_of(cur_node);
	if (!bytes)
		return false;
	bytes[vexil::kTagAt] = static_cast<u8>(tag);
	return true;
}

u16 extmem_fetch_id(const node_d cur_node)
{
	const u8 *bytes = bytes_of(cur_node);
	return bytes ? vexil::load<u16>(bytes) : kNoNode;
}

u16 extmem_request_max_node_id(extmem_builder *pBuilder)
{
	if (!pBuilder)
		return kNoNode;
	if (!pBuilder->node_buffer.buf) {
		pBuilder->err_code = EXTMEM_BAD_PTR;
		return kNoNode;
	}
	return static_cast<u16>(vexil::node_slots(*pBuilder) - 1);
}

bool extmem_append_next(const node_d cur_node, const node_d next)
{
	return set_link(cur_node, vexil::kNextAt, next);
}

bool extmem_append_child(const node_d cur_node, const node_d child)
{
	return set_link(cur_node, vexil::kChildAt, child);
}

node_d extmem_append_child_cond(node_d parent, node_d prevChild, node_d newChild)
{
	if (!bytes_of(parent) || !bytes_of(newChild))
		return prevChild;
	if (!set_link(prevChild, vexil::kNextAt, newChild))
		set_link(parent, vexil::kChildAt, newChild);
	return newChild;
}

bool extmem_break_next(const node_d cur_node)
{
	u8 *bytes = bytes_of(cur_node);
	if (!bytes)
		return false;
	vexil::store(bytes + vexil::kNextAt, kNoNode);
	return true;
}

node_d extmem_get_next(const node_d cur_node)
{
	return get_link(cur_node, vexil::kNextAt);
}

node_d extmem_get_child(const node_d cur_node)
{
	return get_link(cur_node, vexil::kChildAt);
}

node_d extmem_find_tail(node_d node)
{
	if (!bytes_of(node))
		return node;
	for (size_t steps = vexil::node_slots(*node.owner); steps > 0; --steps) {
		const node_d next = vexil::next_of(node);
		if (next.id == kNoNode)
			break;
		node = next;
	}
	return node;
}

node_d extmem_find_next(node_d node, int tag)
{
	if (!bytes_of(node))
		return kInvalidNode;
	for (size_t steps = vexil::node_slots(*node.owner); steps > 0; --steps) {
		node = vexil::next_of(node);
		if (node.id == kNoNode || extmem_fetch_tag(node) == tag)
			return node;
	}
	return kInvalidNode;
}

} // extern "C"
