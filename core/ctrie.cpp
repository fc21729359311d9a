// SPDX-License-Identifier: MIT

#include "core/ctrie.h"

#include "core/bytes.h"
#include "core/fail.h"
#include "core/number.h"

extern "C" {

constexpr u8 ctrie_char_remap[128] = {
	0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  // 0x00
	0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  // 0x10
	1,  0,  0,  2,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  3,  4,  // blank # . /
	5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 0,  0,  0,  0,  0,  // 0-9 :
	0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  // A-O are lower-cased first
	0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  16, 0,  0,  17, // backslash _
	0,  18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, // a-o
	33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 0,  0,  0,  0,  0,  // p-z
};
static_assert(ctrie_char_remap['z'] == CT_CH_z && ctrie_char_remap['_'] == CT_CH_UNDERLINE &&
	      ctrie_char_remap[':'] == CT_CH_COLON && ctrie_char_remap['\\'] == CT_CH_BACKSLASH &&
	      ctrie_char_remap['/'] == CT_CH_SLASH && ctrie_char_remap['#'] == CT_CH_NUMBER);

} // extern "C"

namespace {

using vexil::kNoValue;
using vexil::lib_fail;

constexpr size_t kCharCodes = sizeof ctrie_char_remap;
constexpr size_t kLargestOffset = 0xFFFFFFFFu; // nodes are built from 32-bit text offsets

/** What lookups ask of each character of a key, in one access. */
struct KeyChar {
	u8 lower;
	u8 slot; // child index after lower-casing; CT_CH_NV for what names cannot hold
};
struct KeyChars {
	KeyChar of[256];
	constexpr const KeyChar &operator[](char c) const { return of[static_cast<u8>(c)]; }
};

constexpr KeyChars make_key_chars()
{
	KeyChars table{};
	for (size_t code = 0; code < 256; ++code) {
		const u8 lower = vexil::lower(static_cast<char>(code));
		table.of[code].lower = lower;
		table.of[code].slot = lower < kCharCodes ? ctrie_char_remap[lower] : u8{CT_CH_NV};
	}
	return table;
}

constexpr KeyChars kKeyChars = make_key_chars();

/** Child slot of a character of the text buffer, where all letters are lower-case already. */
constexpr u8 slot_of(char c)
{
	const auto code = static_cast<u8>(c);
	return code < kCharCodes ? ctrie_char_remap[code] : u8{CT_CH_NV};
}

ctrie_node *new_node(ctrie *owner, size_t begin, size_t end, int value)
{
	auto *node = static_cast<ctrie_node *>(owner->allocate(sizeof(ctrie_node)));
	if (!node) {
		owner->err_code = CTRIE_NOMEM;
		return nullptr;
	}
	memset(node, 0, sizeof *node);
	node->begin = begin;
	node->end = end;
	node->owner = owner;
	node->value = value;
	return node;
}

bool reserve_text(ctrie *trie, size_t length)
{
	size_t needed;
	if (!vexil::add(trie->buf_used, length, &needed) || needed > kLargestOffset) {
		trie->err_code = CTRIE_NOMEM;
		return false;
	}
	if (needed < trie->buf_max)
		return true;
	const size_t capacity = vexil::grown_capacity(trie->buf_max, needed + 1);
	void *grown = capacity ? trie->reallocate(trie->buf, trie->buf_max, capacity) : nullptr;
	if (!grown) {
		trie->err_code = CTRIE_NOMEM;
		return false;
	}
	trie->buf = static_cast<char *>(grown);
	trie->buf_max = capacity;
	return true;
}

/** Takes the tail of @node's label, its children and its value into @tail, its new only child. */
void move_tail(ctrie_node *node, size_t pos, u8 slot, ctrie_node *tail)
{
	tail->begin = pos;
	tail->end = node->end;
	tail->value = node->value;
	memcpy(tail->child, node->child, sizeof tail->child);
	memset(node->child, 0, sizeof node->child);
	node->child[slot] = tail;
	node->end = pos;
	node->value = kNoValue;
}

} // namespace

namespace vexil {

void TrieCursor::feed(char c)
{
	if (!node_)
		return;
	const KeyChar key = kKeyChars[c];
	if (at_ < node_->end) {
		if (key.lower != static_cast<u8>(text_[at_]))
			node_ = nullptr;
		++at_;
		return;
	}
	// Slot 0 of every node is empty, so a foreign character ends here.
	node_ = node_->child[key.slot];
	if (node_)
		at_ = node_->begin + 1; // the slot has compared the first character
}

bool enter_name(ctrie *names, const char *name, int value)
{
	// The code of an earlier failure would look like this one's.
	const ctrie_err_code before = names->err_code;
	names->err_code = CTRIE_SUCCESS;
	const bool entered = ctrie_insert(names, name, value);
	const bool no_memory = names->err_code == CTRIE_NOMEM;
	if (names->err_code == CTRIE_SUCCESS)
		names->err_code = before;
	return entered || !no_memory;
}

void forget_name(ctrie *names, const char *name)
{
	TrieCursor cursor(*names);
	for (; *name != '\0'; ++name)
		cursor.feed(*name);
	if (cursor.value() != kNoValue)
		const_cast<ctrie_node *>(cursor.node_)->value = kNoValue;
}

} // namespace vexil

extern "C" {

bool ctrie_init(ctrie *pTrie)
{
	if (!pTrie)
		return false;
	*pTrie = ctrie{.allocate = ALLOC,
		       .deallocate = DEALLOC,
		       .reallocate = REALLOC,
		       .root = nullptr,
		       .buf = nullptr,
		       .buf_used = 0,
		       .buf_max = 0,
		       .err_code = CTRIE_SUCCESS};
	pTrie->root = new_node(pTrie, 0, 0, kNoValue);
	if (!pTrie->root)
		return false;
	pTrie->buf = static_cast<char *>(pTrie->allocate(vexil::kInitialCapacity));
	if (!pTrie->buf) {
		pTrie->err_code = CTRIE_NOMEM;
		pTrie->deallocate(pTrie->root);
		pTrie->root = nullptr;
		return false;
	}
	pTrie->buf_max = vexil::kInitialCapacity;
	return true;
}

bool ctrie_insert(ctrie *pTrie, const char *str, int value)
{
	constexpr int kInvalidCharReport = 176;
	if (!pTrie || !str)
		return false;
	if (!pTrie->buf || !pTrie->root) {
		pTrie->err_code = CTRIE_INTERNAL_ERROR;
		return false;
	}
	size_t length = 0;
	for (; str[length] != '\0'; ++length) {
		if (kKeyChars[str[length]].slot == CT_CH_NV) {
			pTrie->err_code = CTRIE_INVALID_CHAR;
			_printk("[%s][%d]insert wrong string member = %d\n", "ctrie_insert",
				kInvalidCharReport, static_cast<unsigned char>(str[length]));
			return false;
		}
	}
	if (length == 0) {
		pTrie->err_code = CTRIE_OUT_OF_RANGE;
		return false;
	}
	if (!reserve_text(pTrie, length))
		return false;

	// The text stays even if the key turns out to be a duplicate.
	const size_t begin = pTrie->buf_used;
	for (size_t i = 0; i < length; ++i)
		pTrie->buf[begin + i] = static_cast<char>(kKeyChars[str[i]].lower);
	pTrie->buf_used += length;
	return __ctrie_insert_string(pTrie->root, static_cast<u32>(begin),
				     static_cast<u32>(pTrie->buf_used), value);
}

bool __ctrie_insert_string(ctrie_node *node, u32 begin, u32 end, int value)
{
	constexpr int kNullNodeReport = 399;
	constexpr int kBadCharBelowReport = 478;
	constexpr int kBadCharAtSplitReport = 513;
	if (!node) {
		lib_fail("__ctrie_insert_string", kNullNodeReport);
		return false;
	}
	ctrie *trie = node->owner;
	const char *text = trie->buf;
	size_t i = begin;
	for (;;) {
		size_t j = node->begin;
		while (i < end && j < node->end && text[i] == text[j]) {
			++i;
			++j;
		}
		const bool label_left = j < node->end;

		if (i >= end) {
			if (label_left) {
				if (!__ctrie_split_node(node, static_cast<u32>(j)))
					return false;
			} else if (node->value != kNoValue) {
				trie->err_code = CTRIE_DUPLICATED_STRING;
				return false;
			}
			node->value = value;
			return true;
		}

		const u8 slot = slot_of(text[i]);
		if (slot == CT_CH_NV) {
			lib_fail("__ctrie_insert_string",
				 label_left ? kBadCharAtSplitReport : kBadCharBelowReport);
			return false;
		}
		if (!label_left && node->child[slot]) {
			node = node->child[slot];
			continue;
		}
		// Both new nodes are taken before the tree changes.
		ctrie_node *leaf = new_node(trie, i, end, value);
		if (!leaf)
			return false;
		if (label_left && !__ctrie_split_node(node, static_cast<u32>(j))) {
			trie->deallocate(leaf);
			return false;
		}
		node->child[slot] = leaf;
		return true;
	}
}

bool __ctrie_split_node(ctrie_node *node, u32 pos)
{
	constexpr int kBadCharReport = 360;
	if (!node)
		return false;
	ctrie *trie = node->owner;
	if (pos <= node->begin || pos >= node->end) {
		_printk("%zu not in range (%zu, %zu)\n", static_cast<size_t>(pos), node->begin,
			node->end);
		trie->err_code = CTRIE_OUT_OF_RANGE;
		return false;
	}
	const u8 slot = slot_of(trie->buf[pos]);
	if (slot == CT_CH_NV) {
		lib_fail("__ctrie_split_node", kBadCharReport);
		return false;
	}
	ctrie_node *tail = new_node(trie, pos, node->end, kNoValue);
	if (!tail)
		return false;
	move_tail(node, pos, slot, tail);
	return true;
}

int ctrie_find(const ctrie *pTrie, const char *str)
{
	if (!pTrie || !str)
		return kNoValue;
	vexil::TrieCursor cursor(*pTrie);
	for (const char *key = str; *key != '\0'; ++key)
		cursor.feed(*key);
	return cursor.value();
}

void ctrie_destroy(ctrie *pTrie)
{
	if (!pTrie || !pTrie->buf)
		return;
	__ctrie_delete_node(pTrie->root);
	pTrie->deallocate(pTrie->buf);
	pTrie->root = nullptr;
	pTrie->buf = nullptr;
	pTrie->buf_used = 0;
	pTrie->buf_max = 0;
}

void __ctrie_delete_node(ctrie_node *node)
{
	// Keys choose the depth, so no recursion: slot 0 leads back to the parent, and `begin` counts
	// the slots that are done.
	ctrie_node *parent = nullptr;
	if (node)
		node->begin = CT_CH_NV;
	while (node) {
		node->child[CT_CH_NV] = parent;
		ctrie_node *below = nullptr;
		while (!below && ++node->begin < CT_CH_IDX_MAX)
			below = node->child[node->begin];
		if (below) {
			parent = node;
			node = below;
			node->begin = CT_CH_NV;
			continue;
		}
		ctrie_node *done = node;
		node = parent;
		parent = node ? node->child[CT_CH_NV] : nullptr;
		done->owner->deallocate(done);
	}
}

} // extern "C"
