// SPDX-License-Identifier: MIT
//
// Export and adoption of images.

#include "core/bytes.h"
#include "core/version.h"
#include "extmem/internal.h"

namespace {

using Compact = extmem_buffer_ctx_compact;

bool plausible(const Compact &figures)
{
	return figures.buf_used <= figures.buf_max && figures.buf_max != 0;
}

/** Writes a buffer's figures and its whole capacity; returns the byte behind them. */
u8 *write_buffer(u8 *to, const extmem_buffer_ctx &buffer)
{
	vexil::store(to, Compact{static_cast<u32>(buffer.buf_used), static_cast<u32>(buffer.buf_max)});
	to += vexil::kCompactBytes;
	if (buffer.buf)
		memcpy(to, buffer.buf, buffer.buf_max);
	return to + buffer.buf_max;
}

/** What an image says of its buffers, once its sizes have been found consistent. */
struct ImageFigures {
	Compact nodes;
	Compact data;
};

/**
 * Reads and checks the figures. The capacities that the store held before take part in the test:
 * a store is either fresh, with none, or must not shrink by being adopted again.
 */
bool read_figures(extmem_builder *store, const u8 *image, u64 size, ImageFigures *figures)
{
	if (size < vexil::kNodesAt)
		return false;
	figures->nodes = vexil::load<Compact>(image + vexil::kHeaderBytes);
	if (!plausible(figures->nodes) || vexil::kNodesAt + store->node_buffer.buf_max > size) {
		store->err_code = EXTMEM_INTERNAL_ERROR;
		return false;
	}
	const u64 data_at = u64{vexil::kImageOverhead} + figures->nodes.buf_max;
	if (data_at > size)
		return false;
	figures->data = vexil::load<Compact>(image + data_at - vexil::kCompactBytes);
	if (!plausible(figures->data) || data_at + store->data_buffer.buf_max > size) {
		store->err_code = EXTMEM_INTERNAL_ERROR;
		return false;
	}
	return true;
}

} // namespace

namespace vexil {

void release_buffers(extmem_builder *store)
{
	if (store->malloc_flag) {
		store->deallocate(store->node_buffer.buf);
		store->deallocate(store->data_buffer.buf);
	}
	store->node_buffer = {};
	store->data_buffer = {};
}

bool adopt_image(extmem_builder *store, u8 *image, size_t size)
{
	set_default_hooks(store);
	ImageFigures figures;
	const bool has_header = size >= kHeaderBytes;
	if (has_header)
		store->header = load<extmem_buffer_header>(image);
	const bool sound = has_header && read_figures(store, image, size, &figures);
	release_buffers(store); // what the store owned before: failed or not, it is given up
	if (!sound)
		return false;
	store->node_buffer = {image + kNodesAt, figures.nodes.buf_used, figures.nodes.buf_max};
	store->data_buffer = {image + kImageOverhead + figures.nodes.buf_max, figures.data.buf_used,
			      figures.data.buf_max};
	store->malloc_flag = false;
	store->err_code = EXTMEM_SUCCESS;
	return true;
}

void clamp_data(extmem_builder *store, u32 size)
{
	extmem_buffer_ctx &data = store->data_buffer;
	const size_t there = size - (kImageOverhead + store->node_buffer.buf_max);
	if (data.buf_max > there)
		data.buf_max = there;
	if (data.buf_used > data.buf_max)
		data.buf_used = data.buf_max;
}

bool is_image_of(const extmem_buffer_header *header, u16 kind)
{
	return header && header->binType == kind && supported(header->codeVersion);
}

void fill_header(extmem_buffer_header *header, u16 kind, const vexil_version &total_version,
		 const char (&cus_version)[kCusVersionBytes])
{
	const u16 chip = header->chipID;
	*header = {};
	header->total_version = total_version;
	memcpy(header->cus_version, cus_version, sizeof header->cus_version);
	header->codeVersion = kCodeVersion;
	header->binType = kind;
	header->chipID = chip;
}

} // namespace vexil

extern "C" {

size_t extmem_builder_get_export_size(extmem_builder *pBuilder)
{
	if (!pBuilder)
		return 0;
	return pBuilder->node_buffer.buf_max + pBuilder->data_buffer.buf_max + vexil::kImageOverhead;
}

size_t extmem_builder_export(extmem_builder *pBuilder, char *buf)
{
	if (!pBuilder)
		return 0;
	if (!buf) {
		pBuilder->err_code = EXTMEM_NOMEM;
		return 0;
	}
	const size_t total = extmem_builder_get_export_size(pBuilder);
	if (total > vexil::kMaxU32) {
		pBuilder->err_code = EXTMEM_INTERNAL_ERROR;
		return 0;
	}
	pBuilder->header.binSize = static_cast<u32>(total);
	auto *const image = reinterpret_cast<u8 *>(buf);
	vexil::store(image, pBuilder->header);
	u8 *end = write_buffer(image + vexil::kHeaderBytes, pBuilder->node_buffer);
	end = write_buffer(end, pBuilder->data_buffer);
	if (static_cast<size_t>(end - image) != total) {
		pBuilder->err_code = EXTMEM_INTERNAL_ERROR;
		return 0;
	}
	return total;
}

} // extern "C"
