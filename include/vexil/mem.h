/* SPDX-License-Identifier: MIT */
/*
 * The memory-status record, number conversion and the JSON entry points.
 *
 * These are global functions of the module. None of them takes a lock.
 */
#ifndef VEXIL_MEM_H
#define VEXIL_MEM_H

#include <vexil/types.h>

VEXIL_BEGIN_C

/**
 * vexil_mem_info - a caller's description of its memory region
 *
 * Kept and handed back, never interpreted: all memory comes from the kernel allocator.
 * Offsets and sizes are in bytes.
 */
typedef struct vexil_mem_info {
	u64 base_addr;       /* address of the region */
	u64 base_ptr;        /* second reference to the same region */
	size_t buf_max;      /* size of the region */
	size_t ctrie_offset; /* part given to name tries */
	size_t ctrie_used;
	size_t pim_offset; /* part given to PIM images */
	size_t pim_used;
	size_t rm_offset; /* part given to rule images */
	size_t rm_used;
} vexil_mem_info;

/**
 * vexil_mem_init - deposit the record
 * @pMemInfo: copied; the caller keeps it
 *
 * Return: true; false for NULL. Calls: once at start-up; a reader that runs beside it may see a
 * mixture of old and new fields.
 */
bool vexil_mem_init(vexil_mem_info *pMemInfo);

/**
 * vexil_mem_status - read the record back
 * @pMemInfo: filled; all zero before the first vexil_mem_init
 *
 * Return: true; false for NULL.
 */
bool vexil_mem_status(vexil_mem_info *pMemInfo);

/** vexil_mem_alloc - does nothing. Return: true. */
bool vexil_mem_alloc(void);

/**
 * vexil_strtoull - text to number by the kernel's rules
 * @str:       NUL-terminated; an optional leading '+' and one trailing newline are accepted
 * @u64Output: the number, or 0 when the text is not one
 * @base:      2 to 16, or 0 to detect: "0x" and a hexadecimal digit, a leading 0 (octal), decimal
 *
 * With a NULL argument nothing happens. A converted 0 and a failure look alike.
 */
void vexil_strtoull(const char *str, u64 *u64Output, int base);

/**
 * vexil_json_parse - parse a JSON text
 * @str: NUL-terminated. Numbers are integers: decimal, octal with a leading 0, hexadecimal with
 *       0x; strings that begin with "0x" and are hexadecimal count as numbers. At most 48 levels
 *       of nesting. Text after the root value is not looked at.
 *
 * Return: the document, owned by the caller and freed with vexil_json_delete; NULL when the text
 * is NULL or does not parse, or without memory.
 */
void *vexil_json_parse(const char *str);

/** vexil_json_delete - free a document. NULL is allowed. */
void vexil_json_delete(void *json);

VEXIL_END_C

#endif /* VEXIL_MEM_H */
