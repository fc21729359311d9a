/* SPDX-License-Identifier: MIT */
/*
 * Callbacks through which settings reach the caller.
 */
#ifndef VEXIL_CALLBACKS_H
#define VEXIL_CALLBACKS_H

#include <vexil/tags.h>

/**
 * vexil_callback - receives one register block, or one lookup table
 * @tag:    extmem_tag of the block (a register-block tag, or EXTMEM_TAG_DATA for a lookup table)
 * @data:   the payload inside the image (reg_func for register blocks, the file's bytes for a
 *          lookup table); valid during the call, at any alignment
 * @length: its length in bytes
 * @pCtx:   the pointer given to the loading function, untouched
 *
 * Return: ignored.
 *
 * Must not change the map it is called from.
 */
typedef bool (*vexil_callback)(int tag, const char *data, u32 length, void *pCtx);

/**
 * vexil_alg_callback - receives one algorithm file
 * @tag:          extmem_tag of the file's data (EXTMEM_TAG_DATA)
 * @data:         the file's bytes inside the image; valid during the call
 * @length:       their number
 * @entry:        name of the entry that refers to the file, NUL-terminated
 * @entry_length: its length in bytes, NUL included
 *
 * Return: ignored.
 */
typedef bool (*vexil_alg_callback)(int tag, const char *data, u32 length, const char *entry,
				   u32 entry_length);
typedef vexil_alg_callback alg_callback;

/** Register budget that stands for "no limit"; it is never decreased. */
#define VEXIL_LOAD_UNLIMITED 0xFFFFFFu

/** Setting or preset id that stands for "none". */
#define VEXIL_NO_ID 0xFFFFu

#endif /* VEXIL_CALLBACKS_H */
