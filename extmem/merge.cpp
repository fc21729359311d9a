// SPDX-License-Identifier: MIT
//
// Joining two stores: the second is renumbered, then both are copied one behind the other.

#include "core/bytes.h"
#include "core/scratch.h"
#include "extmem/children.h"
#include "extmem/internal.h"

namespace {

bool has_buffers(const extmem_builder *store)
{
	return store && store->node_buffer.buf && store->data_buffer.buf;
}

void shift_link(u8 *field, u16 nodes)
{
	const auto link = vexil::load<u16>(field);
	if (link != vexil::kNoNode)
		vexil::store(field, static_cast<u16>(link + nodes));
}

/** Moves every id of @store up by @nodes and every data offset by @bytes. */
void renumber(extmem_builder *store, u16 nodes, u32 bytes)
{
	u8 *node = store->node_buffer.buf;
	for (size_t left = vexil::node_slots(*store); left > 0; --left, node += vexil::kNodeBytes) {
		if (vexil::load<u16>(node) == vexil::kNoNode)
			continue;
		shift_link(node, nodes);
		if (node[vexil::kTagAt] < EXTMEM_TAG_DATA_TYPE_BEGIN) {
			shift_link(node + vexil::kChildAt, nodes);
			shift_link(node + vexil::kNextAt, nodes);
		} else {
			u8 *offset = node + vexil::kOffsetAt;
			vexil::store(offset, vexil::load<u32>(offset) + bytes);
		}
	}
}

/** Both parts at the start of @to, one behind the other. */
void join(u8 *to, const u8 *first, size_t first_bytes, const u8 *second, size_t second_bytes)
{
	memcpy(to, first, first_bytes);
	memcpy(to + first_bytes, second, second_bytes);
}

} // namespace

namespace vexil {

bool merge_target_usable(extmem_builder *target, const extmem_builder *base,
			 const extmem_builder *sub)
{
	if (target == base || target == sub || !target->malloc_flag || node_slots(*target) > 1 ||
	    target->data_buffer.buf_used != 0) {
		target->err_code = EXTMEM_INTERNAL_ERROR;
		return false;
	}
	return true;
}

bool merge_stores(extmem_builder *target, extmem_builder *base, const extmem_builder *sub)
{
	extmem_builder shadow = *sub;
	extmem_buffer_ctx &nodes = shadow.node_buffer;
	const Scratch<u8> copy(*target, nodes.buf ? nodes.buf_used : 0);
	if (nodes.buf && nodes.buf_used > 0) {
		if (!copy) {
			target->err_code = EXTMEM_NOMEM;
			return false;
		}
		memcpy(copy.get(), nodes.buf, nodes.buf_used);
		nodes.buf = copy.get();
	}
	return extmem_merge_buffer(target, base, &shadow);
}

} // namespace vexil

extern "C" {

bool extmem_merge_buffer(extmem_builder *pBuilder, extmem_builder *builder1,
			 extmem_builder *builder2)
{
	if (!pBuilder)
		return false;
	if (!has_buffers(pBuilder) || !has_buffers(builder1) || !has_buffers(builder2)) {
		pBuilder->err_code = EXTMEM_BAD_PTR;
		return false;
	}
	if (!vexil::merge_target_usable(pBuilder, builder1, builder2))
		return false;
	if (builder1 == builder2) {
		pBuilder->err_code = EXTMEM_INTERNAL_ERROR;
		return false;
	}
	const size_t nodes1 = vexil::node_slots(*builder1);
	const size_t nodes2 = vexil::node_slots(*builder2);
	const size_t bytes1 = builder1->data_buffer.buf_used;
	const size_t bytes2 = builder2->data_buffer.buf_used;
	if (nodes1 + nodes2 > vexil::kMaxNodes || bytes1 > vexil::kMaxU32 ||
	    bytes2 > vexil::kMaxU32 - bytes1) {
		pBuilder->err_code = EXTMEM_OUT_OF_RANGE;
		return false;
	}

	renumber(builder2, static_cast<u16>(nodes1), static_cast<u32>(bytes1));

	extmem_buffer_ctx &nodes = pBuilder->node_buffer;
	const size_t own_node = nodes.buf_used; // the target's root gives way to the base's
	const size_t node_bytes1 = nodes1 * vexil::kNodeBytes;
	const size_t node_bytes2 = nodes2 * vexil::kNodeBytes;
	if (!__extmem_buffer_request(pBuilder, &nodes, node_bytes1 + node_bytes2))
		return false;
	memset(nodes.buf, 0, own_node);
	join(nodes.buf, builder1->node_buffer.buf, node_bytes1, builder2->node_buffer.buf,
	     node_bytes2);
	nodes.buf_used = node_bytes1 + node_bytes2;

	extmem_buffer_ctx &data = pBuilder->data_buffer;
	if (!__extmem_buffer_request(pBuilder, &data, bytes1 + bytes2)) {
		builder1->err_code = EXTMEM_NOMEM;
		return false;
	}
	join(data.buf, builder1->data_buffer.buf, bytes1, builder2->data_buffer.buf, bytes2);
	return true;
}

} // extern "C"
