// SPDX-License-Identifier: MIT
//
// What the files of this folder share.
#pragma once

#include "extmem/layout.h"

namespace vexil {

/** Fills in the kernel's allocator and log. */
void set_default_hooks(extmem_builder *store);

/** Makes @store an owning store without nodes; its old fields are not read. */
[[nodiscard]] bool init_empty(extmem_builder *store);

/** Makes @store stand over the image of @size bytes at @image. */
[[nodiscard]] bool adopt_image(extmem_builder *store, u8 *image, size_t size);

/** Frees the buffers that the store owns, forgets others. */
void release_buffers(extmem_builder *store);

/**
 * Makes room for @needed bytes in all; also called when they fit exactly. False without memory
 * (EXTMEM_NOMEM) and for in-place stores, the buffer being as it was.
 */
[[nodiscard]] bool grow_buffer(extmem_builder *store, extmem_buffer_ctx *buffer, size_t needed);

} // namespace vexil
