// SPDX-License-Identifier: MIT
//
// rm: rules that turn source values into setting and preset ids.
//
// A source is an input of the rules: an input type, a timing, a measured number. Declaring one hands
// out a field of bits in the key: an enumerated source with n values gets the fewest bits that hold
// the codes 0 to n, where 0 is "not set"; a value source gets one bit and a slot in the value
// buffer for its number. A redefined source has values that stand for ranges of value sources; it
// gets neither.
//
// A rule is a list of cases. A case has alternatives, each a pattern over the key (a value and a mask
// of the bits that matter) and ranges over value slots, and outcomes: setting ids, preset ids and
// further rules. Stating the sources fills a key; evaluating a rule compares it with each
// alternative, word by word: (key & mask) == value. The first case that matches decides; later ones
// are not looked at. That is fast because names were resolved when the rules were compiled: a case
// costs a few words and no look-up.
//
// An evaluation state is an rm_individual: key, value buffer and result lists. A context has one of
// its own; handlers add others, so that several callers can evaluate one context at once.
//
// States: a context is built (sources first, then rules, then rm_finish), or adopted from an image,
// or merged; the last two can be evaluated at once, the first after rm_finish. Declaring a source
// later is possible until a handler exists; rules compiled before may then fail their length check.
//
// Threads: evaluation only reads the context; handlers of one context may run at the same time.
// Everything else, the context's own state included, is for one caller at a time.
#pragma once

#include <vexil/rm.h>

#include "core/ctrie.h"
#include "core/version.h"
#include "extmem/extmem.h"
#include "pim/pim.h"

namespace vexil {

inline constexpr size_t kMaxPending = 64;
inline constexpr size_t kItemNameBytes = 128; // NUL included

} // namespace vexil

VEXIL_BEGIN_C

/** Ids found, in the order found. */
typedef struct rm_result {
	size_t num_result; // in use
	size_t max_result; // allocated; 0 exactly when there is no list
	u16 *result_list;
} rm_result;

/** One evaluation state. */
typedef struct rm_indvidual {
	rm_result result; // setting ids
	rm_result preset; // preset ids
	u64 *keyBuffer;   // the key's words, then as many words of mask: fields that are set
	u64 *resBuffer;   // the last number of each value source
} rm_individual;

/** A name that was not known yet, and the record that waits for its node id. */
typedef struct unres_unres_item {
	char itemname[vexil::kItemNameBytes]; // cut after 127 characters
	u16 id;
} unres_item;

typedef struct unres_unres_item_list {
	size_t count;
	unres_item items[vexil::kMaxPending]; // what does not fit is dropped
} unres_item_list;

struct rm {
	extmem_builder builder;
	node_d root;
	ctrie source_map;   // source label to its node
	ctrie rulename_map; // rule name to its node
	rm_individual rmInd;
	size_t used_bits; // key bits handed out
	size_t res_num;   // value slots handed out
	unres_item_list unres_rule;
	unres_item_list unres_source;
	vexil_version total_version;
	vexil_version rl_json_version;
	bool bCusVerReady; // total_version and cus_version have been taken over
	char cus_version[vexil::kCusVersionBytes];

	// Our own, in the record's padding.
	bool has_handlers; // sticky: the key may no longer grow
	u16 root_tail_hint; // a child of the root near or at the end of its list; 0 when none is known
};

struct rm_handler {
	rm_individual rmInd;
	rm *pRm; // not owned
};

/** Payload of a source's description: its field of the key, and the code of this label. */
typedef struct source_desc {
	u16 shift; // first bit
	u16 width; // bits
	u16 rank;  // value index + 1; 1 for a value source
	u16 zero;
} source_desc;

/** Payload of a range condition; both bounds belong to it. */
typedef struct range_desc {
	u16 source_node; // node whose record is the value slot compared; 0xFFFF unresolved
	u16 zero[3];
	u64 minData;
	u64 maxData;
} range_desc;

static_assert(sizeof(rm_result) == 24 && sizeof(rm_individual) == 64);
static_assert(sizeof(unres_item) == 130 && sizeof(unres_item_list) == 8328);
static_assert(__builtin_offsetof(rm, root) == 184 && __builtin_offsetof(rm, source_map) == 200);
static_assert(__builtin_offsetof(rm, rulename_map) == 264 && __builtin_offsetof(rm, rmInd) == 328);
static_assert(__builtin_offsetof(rm, used_bits) == 392 && __builtin_offsetof(rm, res_num) == 400);
static_assert(__builtin_offsetof(rm, unres_rule) == 408);
static_assert(__builtin_offsetof(rm, unres_source) == 8736);
static_assert(__builtin_offsetof(rm, total_version) == 17064);
static_assert(__builtin_offsetof(rm, rl_json_version) == 17072);
static_assert(__builtin_offsetof(rm, bCusVerReady) == 17080);
static_assert(__builtin_offsetof(rm, cus_version) == 17081 && sizeof(rm) == 17120);
static_assert(sizeof(rm_handler) == 72 && __builtin_offsetof(rm_handler, pRm) == 64);
static_assert(sizeof(source_desc) == 8 && __builtin_offsetof(source_desc, rank) == 4);
static_assert(sizeof(range_desc) == 24 && __builtin_offsetof(range_desc, maxData) == 16);

// ---- steps of the calls ----

/**
 * rm_insert_source - an enumerated source
 * @values: @count texts; a NULL one repeats the label before it, and is reported as a duplicate
 *
 * Labels that exist are logged and skipped; the field's bits are taken all the same. Return: false
 * for NULLs, once a handler exists, when the key would pass 65536 bits (logged), and without memory or
 * nodes; nothing is declared then.
 */
bool rm_insert_source(rm *pRm, const char *name, char **values, u32 count);
/** The same, each value standing for the ranges that @define_node gives it; no bits are taken. */
bool rm_insert_source_redefine(rm *pRm, const char *name, char **values, u32 count,
			       cJSON *define_node);
/** A value source: one bit, one slot. A name that exists still takes its bit. */
bool rm_insert_source_null(rm *pRm, const char *name);
/**
 * __rm_get_range - an interval text: "[3, 10)" is 3 to 9, "(0,0x10]" is 1 to 16
 *
 * Bounds that do not parse are 0. Blanks do not matter. Nothing happens for NULLs.
 */
void __rm_get_range(const char *text, range_desc *stuRange);
/** __rm_get_version - a version object, without a note. */
void __rm_get_version(cJSON *ver_node, vexil_version *ver_in);
/** The worker of rm_set and rm_handler_set. */
bool __rm_build_key(rm *pRm, rm_individual *pRmInd, const char *source_filter, u64 source_value);
/** Evaluates one rule, and those that it leads to, into @pRmInd's lists. */
bool __rm_find_setting(rm *pRm, rm_individual *pRmInd, node_d rule_rootd);

VEXIL_END_C
