// SPDX-License-Identifier: MIT
//
// ctrie: short names to ints, letter case ignored.
//
// A radix tree over 43 characters: blank # . / 0-9 : backslash _ a-z. Keys are kept lower-cased,
// back to back, in one buffer owned by the trie. A node holds offsets into it, never pointers, so
// growing the buffer invalidates no node. Every child's label is non-empty and starts with the
// character of its slot.
//
// Threads: ctrie_find only reads; any number of callers may run it at once. Every other call needs
// the trie for itself.
#pragma once

#include "core/memory.h"

VEXIL_BEGIN_C

typedef struct ctrie ctrie;
typedef struct ctrie_node ctrie_node;

enum ctrie_char_child_idx {
	CT_CH_NV = 0, // not a character of names
	CT_CH_SPACE = 1,
	CT_CH_NUMBER = 2, // '#'
	CT_CH_DOT = 3,
	CT_CH_SLASH = 4,
	CT_CH_0,
	CT_CH_1,
	CT_CH_2,
	CT_CH_3,
	CT_CH_4,
	CT_CH_5,
	CT_CH_6,
	CT_CH_7,
	CT_CH_8,
	CT_CH_9,
	CT_CH_COLON = 15,
	CT_CH_BACKSLASH = 16,
	CT_CH_UNDERLINE = 17,
	CT_CH_a = 18,
	CT_CH_b,
	CT_CH_c,
	CT_CH_d,
	CT_CH_e,
	CT_CH_f,
	CT_CH_g,
	CT_CH_h,
	CT_CH_i,
	CT_CH_j,
	CT_CH_k,
	CT_CH_l,
	CT_CH_m,
	CT_CH_n,
	CT_CH_o,
	CT_CH_p,
	CT_CH_q,
	CT_CH_r,
	CT_CH_s,
	CT_CH_t,
	CT_CH_u,
	CT_CH_v,
	CT_CH_w,
	CT_CH_x,
	CT_CH_y,
	CT_CH_z = 43,
	CT_CH_IDX_MAX = 44
};

/** Why the last failing call failed; set on failure, never reset. */
enum ctrie_err_code {
	CTRIE_SUCCESS = 0,
	/* The caller's request; no name is added or changed. */
	CTRIE_DUPLICATED_STRING = 3, // the key has a value already, and keeps it
	CTRIE_OUT_OF_RANGE = 5,      // an empty key, or a split outside a label
	CTRIE_INVALID_CHAR = 7,      // a character that names cannot hold
	/* The machine's fault: the call can be repeated. */
	CTRIE_NOMEM = 2, // the text buffer or a node could not be had
	/* Ours, or a trie that was destroyed. */
	CTRIE_INTERNAL_ERROR = 6,
	/* For callers; never recorded here. */
	CTRIE_BAD_PTR = 1,
	CTRIE_NOT_FOUND = 4,
};

struct ctrie {
	vexil::AllocateFn allocate;
	vexil::DeallocateFn deallocate;
	vexil::ReallocateFn reallocate;
	ctrie_node *root; // its label is empty
	char *buf;        // every inserted key, lower-cased, without NULs
	size_t buf_used;
	size_t buf_max;
	ctrie_err_code err_code;
};

struct ctrie_node {
	size_t begin; // label: [begin, end) of the owner's buffer
	size_t end;
	ctrie *owner;
	ctrie_node *child[CT_CH_IDX_MAX]; // by ctrie_char_child_idx; slot 0 is never used by keys
	int value;                        // INT_MIN: none
};

static_assert(sizeof(ctrie) == 64 && __builtin_offsetof(ctrie, err_code) == 56);
static_assert(sizeof(ctrie_node) == 384 && __builtin_offsetof(ctrie_node, value) == 376);

/** Character code to child index; 0 for what names cannot hold, upper case among it. */
extern const u8 ctrie_char_remap[128];

/**
 * ctrie_init - an empty trie
 * @pTrie: any contents; every field is set
 *
 * Return: false without memory (CTRIE_NOMEM; nothing stays allocated) or for NULL.
 */
[[nodiscard]] bool ctrie_init(ctrie *pTrie);

/**
 * ctrie_insert - add a name
 * @str:   1 or more characters of the alphabet, in any letter case; copied
 * @value: anything but INT_MIN, which stores no value
 *
 * Return: false for NULLs (nothing recorded), an empty name (CTRIE_OUT_OF_RANGE), a foreign
 * character (CTRIE_INVALID_CHAR, logged), a name that has a value (CTRIE_DUPLICATED_STRING), no
 * memory (CTRIE_NOMEM) and a destroyed trie (CTRIE_INTERNAL_ERROR). The values of other names
 * never change.
 */
bool ctrie_insert(ctrie *pTrie, const char *str, int value);

/** ctrie_find - the value of a name, INT_MIN when it is unknown. Allocates nothing. */
[[nodiscard]] int ctrie_find(const ctrie *pTrie, const char *str);

/** ctrie_destroy - free everything; the record itself stays the caller's. */
void ctrie_destroy(ctrie *pTrie);

/** ctrie_print - dump the tree to the kernel log, one node a line. */
void ctrie_print(ctrie *pTrie);

/** Enter the key [begin, end) of the owner's buffer below @node. */
bool __ctrie_insert_string(ctrie_node *node, u32 begin, u32 end, int value);
/** Cut a node's label at @pos: the tail, children and value move to a new only child. */
bool __ctrie_split_node(ctrie_node *node, u32 pos);
/** Print @node and all below it, the first line after @depth times "---". */
void __ctrie_print_node(const ctrie_node *node, int depth);
/** Free @node and all below it, children first. NULL is allowed. */
void __ctrie_delete_node(ctrie_node *node);

VEXIL_END_C

namespace vexil {

/** Value of a name that is not there. */
inline constexpr int kNoValue = -__INT_MAX__ - 1;

/**
 * A lookup fed one character at a time, for names that stand inside a longer text. Reads the trie
 * only, and allocates nothing.
 */
class TrieCursor {
public:
	explicit TrieCursor(const ctrie &names)
	    : text_(names.buf), node_(names.buf ? names.root : nullptr), at_(0)
	{
	}
	void feed(char c);
	/** The value of the name fed so far, kNoValue when it is unknown. */
	[[nodiscard]] int value() const
	{
		return node_ && at_ == node_->end ? node_->value : kNoValue;
	}

private:
	friend void forget_name(ctrie *names, const char *name);
	const char *text_;
	const ctrie_node *node_; // null once no name begins like this
	size_t at_;              // in the text, the next character of the node's label
};

/**
 * ctrie_insert where only memory matters: true also when the name is taken or refused, and goes
 * without the new value. False when there was no memory for it.
 */
[[nodiscard]] bool enter_name(ctrie *names, const char *name, int value);

/** Takes the value from a name that an unfinished step has entered; the name can be entered again. */
void forget_name(ctrie *names, const char *name);

} // namespace vexil
