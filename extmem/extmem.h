// SPDX-License-Identifier: MIT
//
// extmem: a tree of small nodes and a heap of data records in two flat buffers.
//
// Nodes are addressed by index and records by byte offset, so the same bytes work in memory and as
// an image, with no pointers to fix. A node below tag 33 has a first child and a next sibling; from
// tag 33 on it is a data holder: it refers to one record and has neither. A data holder can stand
// last in a sibling chain, never before another node, because its size shares the bytes of the
// link.
//
// A store is owning (made empty; its buffers grow by doubling) or in place (adopted from an image;
// it never grows or frees that memory, but may write into it: the image must be writable and
// private).
//
// Ids and descriptors stay good as long as the store. Payload pointers die at the next request for
// a node or for data.
//
// Three voices: the returned value says whether, err_code says why (set on failure; only a node
// request, init and destroy reset it), the log line says where.
//
// Threads: none inside. One caller at a time.
#pragma once

#include <vexil/tags.h>

#include "core/memory.h"

VEXIL_BEGIN_C

typedef struct extmem_builder extmem_builder;

enum extmem_err_code {
	EXTMEM_SUCCESS = 0,
	EXTMEM_BAD_PTR = 1,        // a buffer or record that the call needs is missing
	EXTMEM_NOMEM = 2,          // a buffer could not be had, or grown
	EXTMEM_OUT_OF_RANGE = 3,   // node ids, or 32-bit offsets, are used up
	EXTMEM_INTERNAL_ERROR = 4, // sizes that contradict each other, stores that may not be merged
};

/** Head of every image. Little-endian, no padding. */
struct extmem_buffer_header {
	vexil_version total_version;
	vexil_version rl_json_version;
	vexil_version hw_json_version;
	vexil_version sw_json_version;
	vexil_version cus_sw_json_version;
	char cus_version[32];
	vexil_version codeVersion; // of the code that wrote the image
	u16 binType;
	u16 chipID;
	u32 binSize; // bytes of the whole image
};

struct extmem_buffer_ctx {
	u8 *buf;
	size_t buf_used; // bytes; never more than buf_max after a successful request
	size_t buf_max;  // bytes; those beyond buf_used are zero
};

struct extmem_builder {
	vexil::AllocateFn allocate;
	vexil::DeallocateFn deallocate;
	vexil::ReallocateFn reallocate;
	// printf-like; `print` takes dumps and plain notes, `print_error` error messages
	int (*print)(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
	int (*print_error)(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
	extmem_buffer_header header;
	extmem_buffer_ctx node_buffer;
	extmem_buffer_ctx data_buffer;
	bool malloc_flag; // the buffers are ours to grow and free
	extmem_err_code err_code;
};

/** A node. Invalid when id is 0xFFFF or owner is null; what lies outside the store is invalid too. */
typedef struct node_d {
	u16 id;
	extmem_builder *owner;
} node_d;

/** A data record. All zero: none. */
typedef struct data_d {
	size_t offset; // in the data buffer, bytes
	size_t size;   // as requested, not rounded, bytes
	extmem_builder *owner;
} data_d;

/** The 16 bytes of a node, as they stand in buffers and images. */
struct [[gnu::packed]] extmem_node {
	u16 id; // its own index
	u8 tag;
	// The longer one first: empty braces set the first one to zero, and need not touch more.
	union {
		struct [[gnu::packed]] {
			u32 size;
			u32 offset;
		} data; // tags of 33 and more
		struct [[gnu::packed]] {
			u16 childId;
			u16 nextId;
		} link; // tags below 33
	} u;
	u8 unused[5];
};
typedef struct extmem_node extmem_node;

static_assert(sizeof(extmem_buffer_header) == 88 && alignof(extmem_buffer_header) == 4);
static_assert(__builtin_offsetof(extmem_buffer_header, cus_version) == 40);
static_assert(__builtin_offsetof(extmem_buffer_header, codeVersion) == 72);
static_assert(__builtin_offsetof(extmem_buffer_header, binType) == 80);
static_assert(__builtin_offsetof(extmem_buffer_header, binSize) == 84);
static_assert(sizeof(extmem_buffer_ctx) == 24 && sizeof(extmem_builder) == 184);
static_assert(__builtin_offsetof(extmem_builder, header) == 40);
static_assert(__builtin_offsetof(extmem_builder, node_buffer) == 128);
static_assert(__builtin_offsetof(extmem_builder, data_buffer) == 152);
static_assert(__builtin_offsetof(extmem_builder, malloc_flag) == 176);
static_assert(__builtin_offsetof(extmem_builder, err_code) == 180);
static_assert(sizeof(node_d) == 16 && sizeof(data_d) == 24);
static_assert(sizeof(extmem_node) == 16 && __builtin_offsetof(extmem_node, u) == 3);

/** Tag names of the tree dump, by tag; "???" for tags that it does not name. */
extern const char *const extmem_tag_name[59];

// ---- the store ----

/**
 * extmem_builder_init - an empty store, or one over an image
 * @pBuilder: for an empty store any contents; for an image zero-filled or initialised before (a
 *            store that owned buffers gives them up on success and frees them on failure)
 * @buf:      image, adopted where it lies, or NULL. The caller keeps it alive and to itself.
 * @size:     its size in bytes, or 0
 *
 * With a NULL @buf or a @size of 0: two zeroed buffers of 1024 bytes, no node yet.
 *
 * Return: false for NULL; without memory (EXTMEM_NOMEM); for a short image (no code); for one whose
 * sizes contradict each other (EXTMEM_INTERNAL_ERROR). Both buffers are empty then. Versions and
 * kind of the image are the caller's to check.
 */
bool extmem_builder_init(extmem_builder *pBuilder, char *buf, u32 size);

/** extmem_builder_destroy - free or forget the buffers. Return: false for NULL only. */
bool extmem_builder_destroy(extmem_builder *pBuilder);

/**
 * extmem_request_node - a new node at the end of the store
 *
 * Its id is its index; it has no child and no next sibling.
 *
 * Return: the invalid node without a store, a buffer (EXTMEM_BAD_PTR) or memory (EXTMEM_NOMEM; also
 * for an image without room), and when 65535 nodes exist (EXTMEM_OUT_OF_RANGE; the 16 bytes stay
 * counted).
 */
node_d extmem_request_node(extmem_builder *pBuilder, const extmem_tag tag);

/**
 * extmem_request_data - a zeroed record at the end of the data buffer
 * @size: bytes; 8-byte steps are reserved
 *
 * Return: the all-zero descriptor for NULL, without a buffer (EXTMEM_BAD_PTR) or memory
 * (EXTMEM_NOMEM).
 */
data_d extmem_request_data(extmem_builder *pBuilder, u32 size);

/**
 * extmem_get_data - a node with a copy of @data as its record
 * @data: @size bytes; may lie in this store's own data buffer
 * @size: 0 gives a node without a record
 *
 * Return: the invalid node when the node or the record could not be had, or for NULL @data with a
 * size. A node that got no record stays unused in the store.
 */
node_d extmem_get_data(extmem_builder *pBuilder, extmem_tag tag, void *data, u32 size);

/**
 * __extmem_buffer_request - room for @size more bytes (rounded up to 8) in one of the two buffers
 *
 * Return: where they start, or NULL without memory (EXTMEM_NOMEM, nothing changed) or a buffer
 * (EXTMEM_BAD_PTR).
 */
void *__extmem_buffer_request(extmem_builder *pBuilder, extmem_buffer_ctx *buffer, size_t size);

// ---- descriptors ----

/** {id, pBuilder}, unchecked. */
node_d extmem_create_node_d(extmem_builder *pBuilder, const u16 id);
/** True when the node lies in its store; every call below does nothing for one that does not. */
bool extmem_node_isvalid(const node_d node);
/** True when the record is not empty and lies in the used data. */
bool extmem_data_isvalid(const data_d data);

// ---- nodes ----

/** The 16 bytes of a node; all zero when invalid. */
extmem_node extmem_fetch_node(const node_d node);
extmem_node extmem_fetch_node_by_id(extmem_builder *pBuilder, const u16 id);
/** Overwrites the whole node. */
bool extmem_set_node(const node_d *node, const extmem_node value);
/** The tag byte, 0 to 255, or -1. */
int extmem_fetch_tag(const node_d cur_node);
/** Writes the low byte of @tag. */
bool extmem_set_tag(const node_d cur_node, const extmem_tag tag);
/** The id stored in the node, or 0xFFFF. */
u16 extmem_fetch_id(const node_d cur_node);
/** Id of the last node, 0xFFFF for an empty store or (EXTMEM_BAD_PTR) without one. */
u16 extmem_request_max_node_id(extmem_builder *pBuilder);
/** Bytes of data in use; 0 (EXTMEM_BAD_PTR) without a data buffer. */
size_t extmem_request_data_buf_used(extmem_builder *pBuilder);

// ---- links ----

/** Makes @next the next sibling, whatever stood there. */
bool extmem_append_next(const node_d cur_node, const node_d next);
/** Makes @child the first child, whatever stood there. */
bool extmem_append_child(const node_d cur_node, const node_d child);
/**
 * extmem_append_child_cond - append to a child list at constant cost
 * @prevChild: what the previous call returned; the invalid node at first
 *
 * Return: @newChild, or @prevChild unchanged when the parent or the new child is invalid.
 */
node_d extmem_append_child_cond(node_d parent, node_d prevChild, node_d newChild);
/** Ends the sibling chain at this node. */
bool extmem_break_next(const node_d cur_node);
/** The link as it stands, {0xFFFF, NULL} for an invalid node. Data holders have no links: do not ask. */
node_d extmem_get_next(const node_d cur_node);
node_d extmem_get_child(const node_d cur_node);
/** The last sibling from @node on; @node itself when it is the last, or invalid. */
node_d extmem_find_tail(node_d node);
/** The first sibling after @node that has @tag, or the invalid node. */
node_d extmem_find_next(node_d node, int tag);

// ---- data ----

/** The record's bytes, or NULL when it is empty or not inside the used data. */
void *extmem_fetch_data(const data_d data);
/** Its length in bytes, or 0. */
size_t extmem_fetch_datalen(const data_d data);
/**
 * Copies @len bytes to the start of the record. A shorter @len shortens the descriptor, not the
 * node that refers to the record. False, and nothing changed, when @len is too long.
 */
bool extmem_set_data(data_d *data, void *src, size_t len);
/** Makes @node refer to a valid record; its tag is not looked at. False beyond 32 bits (logged). */
bool extmem_copy_to_node(const node_d node, const data_d data);
/** The reference of a node with a tag of 16 or more, unchecked; all zero for others. */
data_d extmem_copy_from_node(const node_d node);

// ---- images ----

/** Bytes that an export writes: both capacities and 104; 0 for NULL. */
size_t extmem_builder_get_export_size(extmem_builder *pBuilder);
/**
 * extmem_builder_export - write the image
 * @buf: extmem_builder_get_export_size() bytes
 *
 * Return: the bytes written, binSize in the image and in the store's header; 0 for NULL, without
 * @buf (EXTMEM_NOMEM), or beyond 4 GiB (EXTMEM_INTERNAL_ERROR).
 */
size_t extmem_builder_export(extmem_builder *pBuilder, char *buf);

/**
 * extmem_merge_buffer - the nodes and data of two stores in a third
 * @pBuilder: owning, with at most one node and no data; its header is not touched
 * @builder1: its ids and offsets stay
 * @builder2: renumbered in place (ids by the nodes, offsets by the data of @builder1) and of no
 *            further use
 *
 * Return: false with the reason in @pBuilder: EXTMEM_BAD_PTR for missing stores and buffers,
 * EXTMEM_INTERNAL_ERROR for stores that are the same or a target in use, EXTMEM_OUT_OF_RANGE when
 * the sum has more than 65535 nodes or 4 GiB of data (nothing is renumbered in these cases);
 * EXTMEM_NOMEM (@builder2 is renumbered).
 */
bool extmem_merge_buffer(extmem_builder *pBuilder, extmem_builder *builder1,
			 extmem_builder *builder2);

/**
 * extmem_print - dump @node, all below it and its following siblings
 * @depth: how many "---" stand before the first line
 *
 * Ends early, with a report, when the image is damaged so that nodes are reached again and again.
 */
void extmem_print(extmem_builder *pBuilder, node_d node, int depth);

VEXIL_END_C

namespace vexil {

inline constexpr u16 kNoNode = 0xFFFF;
inline constexpr node_d kInvalidNode{kNoNode, nullptr};
inline constexpr size_t kNodeBytes = sizeof(extmem_node);
/** Ids are 0 to 65534. */
inline constexpr size_t kMaxNodes = 0xFFFF;

/**
 * After adoption of an image of @size bytes: an image may declare more data than the caller's buffer
 * holds; what is not there is no data.
 */
void clamp_data(extmem_builder *store, u32 size);

/** Kinds of images, as headers name them. */
inline constexpr u16 kPimImageKind = 1;
inline constexpr u16 kRuleImageKind = 2;

/** True for the header of an image of @kind that this code can read. */
[[nodiscard]] bool is_image_of(const extmem_buffer_header *header, u16 kind);

/** What every exported header says; versions of single documents are 0.0.0. */
void fill_header(extmem_buffer_header *header, u16 kind, const vexil_version &total_version,
		 const char (&cus_version)[32]);

/** extmem_merge_buffer that renumbers a copy: @sub stays as it is. */
[[nodiscard]] bool merge_stores(extmem_builder *target, extmem_builder *base,
				const extmem_builder *sub);

/** True when a merge may go into @target; otherwise the reason is recorded there. */
[[nodiscard]] bool merge_target_usable(extmem_builder *target, const extmem_builder *base,
				       const extmem_builder *sub);

} // namespace vexil
