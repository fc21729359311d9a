// SPDX-License-Identifier: MIT
//
// Data records. extmem_fetch_data is the one place that turns an offset into a pointer.

#include "core/bytes.h"
#include "core/fail.h"
#include "extmem/layout.h"

namespace {

constexpr u8 kTagsWithData = 16; // from this tag on, a node's reference may be read

/** True for a record that is not empty and lies in the first @limit bytes of its store. */
bool inside(const data_d &data, size_t extmem_buffer_ctx::*limit)
{
	if (!data.owner || data.size == 0)
		return false;
	const extmem_buffer_ctx &buffer = data.owner->data_buffer;
	return buffer.buf && vexil::fits(data.offset, data.size, buffer.*limit);
}

} // namespace

extern "C" {

bool extmem_data_isvalid(const data_d data)
{
	return inside(data, &extmem_buffer_ctx::buf_used);
}

void *extmem_fetch_data(const data_d data)
{
	if (!inside(data, &extmem_buffer_ctx::buf_used) ||
	    !inside(data, &extmem_buffer_ctx::buf_max))
		return nullptr;
	return data.owner->data_buffer.buf + data.offset;
}

size_t extmem_fetch_datalen(const data_d data)
{
	return extmem_data_isvalid(data) ? data.size : 0;
}

bool extmem_set_data(data_d *data, void *src, size_t len)
{
	if (!data || !src || len > data->size)
		return false;
	void *record = extmem_fetch_data(*data);
	if (!record)
		return false;
	memmove(record, src, len); // the source may be a record of the same store
	data->size = len;
	return true;
}

bool extmem_copy_to_node(const node_d node, const data_d data)
{
	constexpr int kTooLargeReport = 448;
	if (!extmem_node_isvalid(node) || !extmem_data_isvalid(data))
		return false;
	if (data.size > vexil::kMaxU32 || data.offset > vexil::kMaxU32) {
		vexil::lib_fail("extmem_copy_to_node", kTooLargeReport);
		return false;
	}
	extmem_node record = extmem_fetch_node(node);
	record.u.data.size = static_cast<u32>(data.size);
	record.u.data.offset = static_cast<u32>(data.offset);
	return extmem_set_node(&node, record);
}

data_d extmem_copy_from_node(const node_d node)
{
	if (extmem_fetch_tag(node) < kTagsWithData)
		return {};
	const extmem_node record = extmem_fetch_node(node);
	return {record.u.data.offset, record.u.data.size, node.owner};
}

size_t extmem_request_data_buf_used(extmem_builder *pBuilder)
{
	if (!pBuilder)
		return 0;
	if (!pBuilder->data_buffer.buf) {
		pBuilder->err_code = EXTMEM_BAD_PTR;
		return 0;
	}
	return pBuilder->data_buffer.buf_used;
}

} // extern "C"
