/* SPDX-License-Identifier: MIT */
/*
 * Examining an image before it is adopted.
 *
 * Global functions of the module. They take no lock, keep nothing, and write nothing but the fault.
 */
#ifndef VEXIL_VERIFY_H
#define VEXIL_VERIFY_H

#include <vexil/callbacks.h>

VEXIL_BEGIN_C

/**
 * vexil_image_code - what is wrong with an image
 *
 * In groups: the call, the head and its figures, single nodes and records, the tree of both kinds,
 * the tree of a map, the tree of a rule image. The first fault that is found is reported, and what
 * is wrong in the head is found before what is wrong in the nodes.
 */
typedef enum vexil_image_code {
	VEXIL_IMAGE_SOUND = 0,
	VEXIL_IMAGE_NO_MEMORY = 1, /* nothing was found wrong; the call can be repeated */
	VEXIL_IMAGE_TOO_SHORT = 2, /* no buffer, or one too short for a head and its figures */

	VEXIL_IMAGE_UNKNOWN_KIND = 3,    /* neither a map nor rules */
	VEXIL_IMAGE_UNKNOWN_VERSION = 4, /* written by code that is not 2.0 to 2.2 */
	VEXIL_IMAGE_NODE_FIGURES = 5,    /* no room, more nodes in use than that, or no whole number */
	VEXIL_IMAGE_DATA_FIGURES = 6,    /* the same of the data, in steps of 8 bytes */
	VEXIL_IMAGE_TRUNCATED = 7,       /* the buffer ends before the image does */
	VEXIL_IMAGE_SIZE = 8,            /* the head says another size than the figures add up to */
	VEXIL_IMAGE_NO_ROOT = 9,
	VEXIL_IMAGE_TOO_MANY_NODES = 10, /* a node that no id can name */

	VEXIL_IMAGE_NODE_ID = 11,          /* a node stores another id than its place */
	VEXIL_IMAGE_NODE_TAG = 12,         /* a tag that nothing has */
	VEXIL_IMAGE_LINK = 13,             /* a link out of the nodes */
	VEXIL_IMAGE_RECORD_BOUNDS = 14,    /* a record outside of the data in use */
	VEXIL_IMAGE_RECORD_ALIGNMENT = 15, /* a record at no multiple of 8 */
	VEXIL_IMAGE_RECORD_ORDER = 16,     /* a record before the end of an earlier node's */

	VEXIL_IMAGE_NODE_SHARED = 17, /* a node that is reached twice: two links to it, or a circle */
	VEXIL_IMAGE_MISPLACED = 18,   /* a node where none of its tag, or none at all, can be */
	VEXIL_IMAGE_MISSING_NODE = 19, /* a link that must lead to a node, and does not */
	VEXIL_IMAGE_RECORD_SIZE = 20, /* a record of another size than its kind has */
	VEXIL_IMAGE_STRING = 21,      /* a text without an end */
	VEXIL_IMAGE_NAME = 22, /* a name that cannot be indexed, where adoption demands that it can */

	VEXIL_IMAGE_LEVEL = 23,         /* a setting's level that is none */
	VEXIL_IMAGE_REGISTER_LIST = 24, /* a register list whose count does not go with its length */

	VEXIL_IMAGE_COUNT = 25,          /* more key bits or value slots than there can be */
	VEXIL_IMAGE_COUNT_REPEATED = 26, /* a second record of the key bits, or of the value slots */
	VEXIL_IMAGE_FIELD = 27,          /* a source's field that does not fit the key, or its code the field */
	VEXIL_IMAGE_KEY_SIZE = 28,       /* a key record of another size than the key, or than others */
	VEXIL_IMAGE_SLOT = 29,           /* a value slot that the image does not have */
	VEXIL_IMAGE_RANGE = 30,          /* a range over a node that is no value slot */
	VEXIL_IMAGE_OUTCOME = 31,        /* an outcome without a node's id */
	VEXIL_IMAGE_CHILD_RULE = 32,     /* an outcome that leads to no rule */
	VEXIL_IMAGE_RULE_RING = 33,      /* rules that lead back to themselves; nothing else is wrong */

	VEXIL_IMAGE_CODES = 34
} vexil_image_code;

/**
 * vexil_image_fault - what is wrong, and where
 * @code:   a vexil_image_code
 * @offset: of the first byte that is wrong, from the start of the buffer; of a node that should be
 *          there, the link to it
 * @node:   id of the node that is wrong; VEXIL_NO_ID when the fault is in none
 * @other:  the other node that the fault is about: the one that leads to @node; the one that a link
 *          (which may be no node), a range, a child rule or a ring names; of keys and counts, the
 *          record before. Else VEXIL_NO_ID
 */
typedef struct vexil_image_fault {
	vexil_image_code code;
	u32 offset;
	u16 node;
	u16 other;
} vexil_image_fault;

/**
 * vexil_image_verify - examine a whole image, a map or rules, before it is adopted
 * @buf:   the image; only read. Nobody may change it during the call, or between it and adoption
 * @size:  bytes of the buffer, which may be longer than the image
 * @fault: receives what is wrong, all fields, also when nothing is; NULL is allowed
 *
 * Looked at: the head; sizes against the buffer; every node, its links and its record; both trees
 * from the root down, by their grammar, each node once (the members of a preset setting share the
 * text of their table); rules that only other rules lead to; texts, register lists, key records,
 * fields, slots, outcomes; circles of rules. Nodes that nothing leads to stay behind failed
 * insertions and merges: they must be sound, not placed.
 *
 * Not looked at: names that occur twice, which adoption refuses or passes over by itself; whether
 * files, handlers and ids of another image exist.
 *
 * VEXIL_IMAGE_RULE_RING comes last: such an image is sound otherwise, documents can produce it, and
 * evaluation answers a rule that leads back to itself with false.
 *
 * What adoption writes into an image is sound again. What is inserted into an adopted one is sound
 * once it has been exported: the figures of the old image do not know of it.
 *
 * Time: linear in the image, however deep rules lead. Memory: one bit per node, given back before
 * the call returns; it may sleep. No recursion.
 *
 * Return: true when nothing is wrong.
 */
VEXIL_MUST_CHECK bool vexil_image_verify(const void *buf, u32 size, vexil_image_fault *fault);

/** vexil_image_code_text - a code in words, without a newline. Constant; also for unknown codes. */
const char *vexil_image_code_text(u32 code);

VEXIL_END_C

#endif /* VEXIL_VERIFY_H */
