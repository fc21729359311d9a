// SPDX-License-Identifier: MIT
//
// Life of a store, and the growth of its buffers.

#include "core/bytes.h"
#include "core/fail.h"
#include "extmem/internal.h"

namespace vexil {

bool grow_buffer(extmem_builder *store, extmem_buffer_ctx *buffer, size_t needed)
{
	if (needed < buffer->buf_max)
		return true;
	// Image memory is never handed to the allocator; what fits its zero tail may be used up.
	if (!store->malloc_flag && needed == buffer->buf_max)
		return true;
	const size_t capacity =
		store->malloc_flag ? grown_capacity(buffer->buf_max, needed) : size_t{0};
	void *grown = capacity ? store->reallocate(buffer->buf, buffer->buf_max, capacity) : nullptr;
	if (!grown) {
		store->err_code = EXTMEM_NOMEM;
		return false;
	}
	buffer->buf = static_cast<u8 *>(grown);
	memset(buffer->buf + buffer->buf_max, 0, capacity - buffer->buf_max);
	buffer->buf_max = capacity;
	return true;
}

void set_default_hooks(extmem_builder *store)
{
	store->allocate = ALLOC;
	store->deallocate = DEALLOC;
	store->reallocate = REALLOC;
	store->print = _printk;
	store->print_error = _printk;
}

bool init_empty(extmem_builder *store)
{
	// The record may hold anything; what is left of it would end up in an exported header.
	memset(store, 0, sizeof *store);
	set_default_hooks(store);
	store->malloc_flag = true;
	auto *nodes = static_cast<u8 *>(store->allocate(kInitialCapacity));
	auto *data = nodes ? static_cast<u8 *>(store->allocate(kInitialCapacity)) : nullptr;
	if (!data) {
		store->deallocate(nodes);
		store->err_code = EXTMEM_NOMEM;
		return false;
	}
	memset(nodes, 0, kInitialCapacity);
	memset(data, 0, kInitialCapacity);
	store->node_buffer = {nodes, 0, kInitialCapacity};
	store->data_buffer = {data, 0, kInitialCapacity};
	return true;
}

} // namespace vexil

extern "C" {

bool extmem_builder_init(extmem_builder *pBuilder, char *buf, u32 size)
{
	if (!pBuilder)
		return false;
	return buf && size ? vexil::adopt_image(pBuilder, reinterpret_cast<u8 *>(buf), size)
			   : vexil::init_empty(pBuilder);
}

bool extmem_builder_destroy(extmem_builder *pBuilder)
{
	if (!pBuilder)
		return false;
	vexil::release_buffers(pBuilder);
	pBuilder->err_code = EXTMEM_SUCCESS;
	return true;
}

node_d extmem_request_node(extmem_builder *pBuilder, const extmem_tag tag)
{
	constexpr int kMisalignedReport = 254;
	if (!pBuilder)
		return vexil::kInvalidNode;
	extmem_buffer_ctx &nodes = pBuilder->node_buffer;
	if (!nodes.buf) {
		pBuilder->err_code = EXTMEM_BAD_PTR;
		return vexil::kInvalidNode;
	}
	const size_t slot = nodes.buf_used;
	const size_t needed = slot + vexil::kNodeBytes;
	if (!vexil::grow_buffer(pBuilder, &nodes, needed))
		return vexil::kInvalidNode;
	// A slot that cannot become a node stays counted.
	nodes.buf_used = needed;
	if (slot % vexil::kNodeBytes != 0) {
		vexil::lib_fail("extmem_request_node", kMisalignedReport);
		return vexil::kInvalidNode;
	}
	if (slot >= vexil::kMaxNodes * vexil::kNodeBytes) {
		pBuilder->err_code = EXTMEM_OUT_OF_RANGE;
		return vexil::kInvalidNode;
	}
	extmem_node node{};
	node.id = static_cast<u16>(slot / vexil::kNodeBytes);
	node.tag = static_cast<u8>(tag);
	node.u.link.childId = vexil::kNoNode;
	node.u.link.nextId = vexil::kNoNode;
	vexil::store(nodes.buf + slot, node);
	pBuilder->err_code = EXTMEM_SUCCESS;
	return {static_cast<u16>(slot / vexil::kNodeBytes), pBuilder};
}

void *__extmem_buffer_request(extmem_builder *pBuilder, extmem_buffer_ctx *buffer, size_t size)
{
	if (!pBuilder || !buffer)
		return nullptr;
	if (!buffer->buf) {
		pBuilder->err_code = EXTMEM_BAD_PTR;
		return nullptr;
	}
	size_t rounded;
	size_t needed;
	if (!vexil::add(size, vexil::kRecordAlignment - 1, &rounded)) {
		pBuilder->err_code = EXTMEM_NOMEM;
		return nullptr;
	}
	rounded &= ~(vexil::kRecordAlignment - 1);
	if (!vexil::add(buffer->buf_used, rounded, &needed)) {
		pBuilder->err_code = EXTMEM_NOMEM;
		return nullptr;
	}
	if (!vexil::grow_buffer(pBuilder, buffer, needed))
		return nullptr;
	u8 *room = buffer->buf + buffer->buf_used;
	if (!pBuilder->malloc_flag)
		memset(room, 0, rounded); // whatever the tail of an image holds
	buffer->buf_used = needed;
	return room;
}

data_d extmem_request_data(extmem_builder *pBuilder, u32 size)
{
	if (!pBuilder)
		return {};
	const size_t offset = pBuilder->data_buffer.buf_used;
	if (!__extmem_buffer_request(pBuilder, &pBuilder->data_buffer, size))
		return {};
	return {offset, size, pBuilder};
}

node_d extmem_get_data(extmem_builder *pBuilder, extmem_tag tag, void *data, u32 size)
{
	if (!data && size > 0)
		return vexil::kInvalidNode;
	const node_d node = extmem_request_node(pBuilder, tag);
	if (size == 0 || !extmem_node_isvalid(node))
		return node;

	// Growth moves the data buffer, and with it a source that lies inside.
	const extmem_buffer_ctx &buffer = pBuilder->data_buffer;
	const auto source = reinterpret_cast<__UINTPTR_TYPE__>(data);
	const auto start = reinterpret_cast<__UINTPTR_TYPE__>(buffer.buf);
	const bool inside = source >= start && source - start < buffer.buf_max;

	data_d record = extmem_request_data(pBuilder, size);
	if (inside)
		data = buffer.buf + (source - start);
	if (!extmem_set_data(&record, data, size) || !extmem_copy_to_node(node, record))
		return vexil::kInvalidNode;
	return node;
}

} // extern "C"
