// SPDX-License-Identifier: MIT
/*
 * Images that no library wrote: good ones with one fault each, then every link and record of them
 * damaged in turn, then whole images of nothing sensible. All must be refused or survived, in a
 * time that their size explains.
 *
 * What the library logs about them must stay printable, so texts are cut and unended here, but no
 * other bytes are made to look like texts.
 */
#include "story.h"

/* ---- the layout ---- */

#define NODE_USED_AT 88
#define NODE_MAX_AT 92
#define NODES_AT 96
#define NODE_SIZE 16
#define NODE_TAG 2
#define NODE_CHILD 3
#define NODE_NEXT 5
#define NODE_LENGTH 3 /* of a record */
#define NODE_OFFSET 7
#define KIND_AT 80
#define NONE 0xFFFFu

static char *node_at(char *image, u32 id)
{
	return image + NODES_AT + NODE_SIZE * id;
}

static u32 tag_of(char *image, u32 id)
{
	return word_at(node_at(image, id) + NODE_TAG, 1);
}

static bool is_record(char *image, u32 id)
{
	return tag_of(image, id) >= EXTMEM_TAG_DATA_TYPE_BEGIN;
}

static char *data_at(char *image)
{
	return image + NODES_AT + word_at(image + NODE_MAX_AT, 4);
}

static char *record_of(char *image, u32 id)
{
	return data_at(image) + 8 + word_at(node_at(image, id) + NODE_OFFSET, 4);
}

/** The @nth node with that tag, from 0; NONE when there are not so many. */
static u32 find_tag(char *image, u32 tag, u32 nth)
{
	u32 id;

	for (id = 0; id < nodes_in(image); id++) {
		if (tag_of(image, id) == tag && nth-- == 0)
			return id;
	}
	return NONE;
}

/* ---- one fault each ---- */

/** What is changed: a place in the header, or in the node or record of the nth node with a tag. */
enum place { HEADER, DATA_HEADER, LINK, RECORD };

struct fault {
	const char *what;
	enum place place;
	u32 tag, nth;
	u32 at;
	unsigned int width;
	u32 value; /* SELF, PARENT: ids that are known only then */
	bool refused;
};

#define SELF 0xF0000001u
#define LAST_NODE 0xF0000002u

#define HEAD(what, at, value, refused)                    \
	{                                                 \
		what, HEADER, 0, 0, at, 4, value, refused \
	}
#define DATA_HEAD(what, at, value, refused)                    \
	{                                                      \
		what, DATA_HEADER, 0, 0, at, 4, value, refused \
	}
#define NODE(what, tag, nth, at, value)                                \
	{                                                              \
		what, LINK, EXTMEM_TAG_##tag, nth, at, 2, value, false \
	}
#define TAG(what, tag, nth, value)                                           \
	{                                                                    \
		what, LINK, EXTMEM_TAG_##tag, nth, NODE_TAG, 1, value, false \
	}
#define LENGTH(what, tag, nth, value)                                           \
	{                                                                       \
		what, LINK, EXTMEM_TAG_##tag, nth, NODE_LENGTH, 4, value, false \
	}
#define OFFSET(what, tag, nth, value)                                           \
	{                                                                       \
		what, LINK, EXTMEM_TAG_##tag, nth, NODE_OFFSET, 4, value, false \
	}
#define BYTES(what, tag, nth, at, width, value)                              \
	{                                                                    \
		what, RECORD, EXTMEM_TAG_##tag, nth, at, width, value, false \
	}

static const struct fault shared_faults[] = {
	HEAD("no room for nodes", NODE_MAX_AT, 0, true),
	HEAD("more nodes than room", NODE_USED_AT, 0x7FFFFFF0, true),
	HEAD("room for nodes behind the image", NODE_MAX_AT, 0x00100000, true),
	HEAD("room for nodes that wraps", NODE_MAX_AT, 0xFFFFFFFF, true),
	HEAD("room for nodes that wraps with the header", NODE_MAX_AT, 0xFFFFFFF0 - 96, true),
	HEAD("a node and a half", NODE_USED_AT, 24, false),
	HEAD("the root alone", NODE_USED_AT, 16, false),
	HEAD("another size in the header", 84, 7, false),
	DATA_HEAD("no data in use", 0, 0, false),
	DATA_HEAD("no room for data", 4, 0, true),
	DATA_HEAD("more data than room", 0, 0xFFFFFFFF, true),
	DATA_HEAD("room for data behind the image", 4, 0x7FFFFFFF, false),
	DATA_HEAD("room for data that wraps", 4, 0xFFFFFFFF, false),
	DATA_HEAD("data in use: 13 bytes", 0, 13, false),
	NODE("the root leads to itself", GENERAL, 0, NODE_CHILD, SELF),
	NODE("the root has a sibling", GENERAL, 0, NODE_NEXT, 1),
	NODE("the root has no children", GENERAL, 0, NODE_CHILD, NONE),
	NODE("the root leads nowhere", GENERAL, 0, NODE_CHILD, 0xFFFE),
	TAG("the root is a record", GENERAL, 0, EXTMEM_TAG_STRING_HOLDER),
	NODE("a ring of one holder", GENERAL, 1, NODE_NEXT, SELF),
	NODE("a ring through the root", GENERAL, 1, NODE_NEXT, 0),
	NODE("a holder holds the root", GENERAL, 1, NODE_CHILD, 0),
	NODE("a holder holds itself", GENERAL, 2, NODE_CHILD, SELF),
	NODE("a holder leads behind the nodes", GENERAL, 1, NODE_NEXT, LAST_NODE),
	NODE("a holder holds what is behind the nodes", GENERAL, 1, NODE_CHILD, 0xFFF0),
	NODE("a node under another number", GENERAL, 3, 0, 7),
	NODE("a name's node leads to itself", PROPERTY, 0, NODE_CHILD, SELF),
	NODE("a name's node follows itself", PROPERTY, 0, NODE_NEXT, SELF),
	NODE("no name", PROPERTY, 1, NODE_CHILD, NONE),
	TAG("a name's node of another kind", PROPERTY, 0, EXTMEM_TAG_UNSPECIFIED),
	LENGTH("an empty text", STRING_HOLDER, 0, 0),
	LENGTH("a text without end", STRING_HOLDER, 0, 1),
	LENGTH("a text without end, again", STRING_HOLDER, 3, 2),
	LENGTH("a text longer than the data", STRING_HOLDER, 1, 0x7FFFFFFF),
	LENGTH("a text whose end wraps", STRING_HOLDER, 1, 0xFFFFFFFF),
	OFFSET("a text behind the data", STRING_HOLDER, 2, 0x00FFFFF8),
	OFFSET("a text whose place wraps", STRING_HOLDER, 2, 0xFFFFFFF8),
	BYTES("a text with a star", STRING_HOLDER, 0, 0, 1, '*'),
	BYTES("an empty text of some length", STRING_HOLDER, 1, 0, 1, 0),
	LENGTH("a version cut short", VERSION_HOLDER, 0, 4),
	LENGTH("a version without record", VERSION_HOLDER, 0, 0xFFFFFFFF),
};

static const struct fault map_faults[] = {
	HEAD("no nodes in use", NODE_USED_AT, 0, true),
	HEAD("half a node", NODE_USED_AT, 8, true),
	NODE("an IP under itself", IP, 0, NODE_CHILD, SELF),
	NODE("an IP after itself", IP, 1, NODE_NEXT, SELF),
	NODE("an IP without name", IP, 1, NODE_NEXT, NONE),
	TAG("an IP that is a file", IP, 1, EXTMEM_TAG_FILE),
	TAG("an IP that is a rule", IP, 1, EXTMEM_TAG_RULE),
	NODE("a setting under itself", IP_SETTING, 0, NODE_CHILD, SELF),
	NODE("a setting without what follows", IP_SETTING, 0, NODE_NEXT, NONE),
	TAG("a setting that is a configuration", IP_SETTING, 0, EXTMEM_TAG_IP_CONFIG),
	NODE("a configuration under itself", IP_CONFIG, 0, NODE_CHILD, SELF),
	NODE("a configuration without blocks", IP_CONFIG, 1, NODE_CHILD, NONE),
	NODE("a configuration whose block is a configuration", IP_CONFIG, 1, NODE_CHILD, 1),
	NODE("a configuration after itself", IP_CONFIG, 1, NODE_NEXT, SELF),
	TAG("a configuration that is a preset", IP_CONFIG, 0, EXTMEM_TAG_IP_PRESET_REG_CONFIG),
	TAG("a configuration that is common", IP_CONFIG, 1, EXTMEM_TAG_IP_COMMON_REG_CONFIG),
	NODE("a preset without table", IP_PRESET_REG_CONFIG, 0, NODE_NEXT, NONE),
	NODE("a preset under the root", IP_PRESET_REG_CONFIG, 0, NODE_CHILD, 0),
	LENGTH("a register list without count", REGISTER_SETTINGS, 0, 4),
	LENGTH("a register list with half a pair", REGISTER_SETTINGS, 0, 12),
	LENGTH("a register list of no length", REGISTER_SETTINGS, 0, 0),
	OFFSET("a register list behind the data", REGISTER_SETTINGS, 0, 0x00FFFFF8),
	OFFSET("a register list at an odd place", REGISTER_SETTINGS, 1, 3),
	BYTES("a register list that counts none", REGISTER_SETTINGS, 0, 0, 4, 0),
	BYTES("a register list that counts one more", REGISTER_SETTINGS, 1, 0, 4, 3),
	BYTES("a register list that counts 2^29", REGISTER_SETTINGS, 0, 0, 4, 0x20000000),
	BYTES("a register list that counts 2^32 - 1", REGISTER_SETTINGS, 0, 0, 4, 0xFFFFFFFF),
	BYTES("a register far away", REGISTER_SETTINGS, 0, 8, 4, 0xFFFFFFFF),
	BYTES("a register in domain 31", REGISTER_SETTINGS, 2, 8, 4, 0xF8000001),
	BYTES("software registers that count 2^31", VREGISTER_SETTINGS, 0, 0, 4, 0x80000000),
	LENGTH("software registers cut short", VREGISTER_SETTINGS, 0, 7),
	BYTES("customer registers that count 2^32 - 1", CUS_VREGISTER_SETTINGS, 0, 0, 4,
	      0xFFFFFFFF),
	BYTES("common registers that count 2^32 - 1", REGISTER_RIU_SETTINGS, 0, 0, 4, 0xFFFFFFFF),
	BYTES("raw registers that count 2^32 - 1", REGISTER_ADDR_SETTINGS, 0, 0, 4, 0xFFFFFFFF),
	BYTES("a raw register in domain 31", REGISTER_ADDR_SETTINGS, 0, 8, 4, 0xFFFFFFFF),
	TAG("a register list of level L3", REGISTER_SETTINGS, 1,
	    EXTMEM_TAG_REGISTER_ADDR_L3_SETTINGS),
	TAG("a register list for synchronisation", REGISTER_SETTINGS, 0,
	    EXTMEM_TAG_REGISTER_SYNC_SETTINGS),
	TAG("a register list of no kind", REGISTER_SETTINGS, 0, 255),
	BYTES("level 99", PQLEVEL_HOLDER, 0, 0, 4, 99),
	BYTES("level 2^32 - 1", PQLEVEL_HOLDER, 1, 0, 4, 0xFFFFFFFF),
	BYTES("a level that is synchronised", PQLEVEL_HOLDER, 0, 0, 4, 7),
	LENGTH("a level of one byte", PQLEVEL_HOLDER, 0, 1),
	NODE("a table's file unnamed", FUNCTION_DATA, 0, NODE_CHILD, NONE),
	NODE("a table's handler unnamed", FUNCTION_DATA, 0, NODE_NEXT, NONE),
	NODE("a table that names itself", FUNCTION_DATA, 0, NODE_CHILD, SELF),
	NODE("an algorithm's entry unnamed", ALGORITHM_DATA, 0, NODE_NEXT, NONE),
	NODE("an algorithm's file unnamed", ALGORITHM_DATA, 0, NODE_CHILD, NONE),
	NODE("a file without bytes", FILE, 0, NODE_CHILD, NONE),
	NODE("a file that is its own bytes", FILE, 1, NODE_CHILD, SELF),
	NODE("a file without name", FILE, 0, NODE_NEXT, NONE),
	LENGTH("a file longer than the data", DATA, 0, 0x00FFFFFF),
	LENGTH("a file of no length", DATA, 1, 0),
	OFFSET("a file behind the data", DATA, 0, 0xFFFFFFFF),
};

static const struct fault rule_faults[] = {
	/* Rules without a root: nothing to evaluate. */
	HEAD("no nodes in use", NODE_USED_AT, 0, false),
	HEAD("half a node", NODE_USED_AT, 8, false),
	BYTES("a key of no bits", RULE_USEDBITS, 0, 0, 4, 0),
	BYTES("a key of one bit", RULE_USEDBITS, 0, 0, 4, 1),
	BYTES("a key of 65 bits", RULE_USEDBITS, 0, 0, 4, 65),
	BYTES("a key of 65536 bits", RULE_USEDBITS, 0, 0, 4, 65536),
	{"a key of 65537 bits", RECORD, EXTMEM_TAG_RULE_USEDBITS, 0, 0, 4, 65537, true},
	{"a key of 2^32 - 1 bits", RECORD, EXTMEM_TAG_RULE_USEDBITS, 0, 0, 4, 0xFFFFFFFF, true},
	LENGTH("a key's width cut short", RULE_USEDBITS, 0, 3),
	LENGTH("a key's width without record", RULE_USEDBITS, 0, 0xFFFFFFFF),
	TAG("no key's width", RULE_USEDBITS, 0, EXTMEM_TAG_UNSPECIFIED),
	TAG("a key's width twice", RES_NUM, 0, EXTMEM_TAG_RULE_USEDBITS),
	BYTES("no value slots", RES_NUM, 0, 0, 4, 0),
	BYTES("65535 value slots", RES_NUM, 0, 0, 4, 65535),
	{"65536 value slots", RECORD, EXTMEM_TAG_RES_NUM, 0, 0, 4, 65536, true},
	{"2^32 - 1 value slots", RECORD, EXTMEM_TAG_RES_NUM, 0, 0, 4, 0xFFFFFFFF, true},
	TAG("no number of slots", RES_NUM, 0, EXTMEM_TAG_UNSPECIFIED),
	TAG("a number of slots twice", RULE_USEDBITS, 0, EXTMEM_TAG_RES_NUM),
	BYTES("a field at bit 65535", SOURCE_DESCRIPTION, 0, 0, 2, 0xFFFF),
	BYTES("a field of 65535 bits", SOURCE_DESCRIPTION, 1, 2, 2, 0xFFFF),
	BYTES("a field of no bits", SOURCE_DESCRIPTION, 2, 2, 2, 0),
	BYTES("a field of 64 bits", SOURCE_DESCRIPTION, 2, 2, 2, 64),
	BYTES("a field of 17 bits", SOURCE_DESCRIPTION, 2, 2, 2, 17),
	BYTES("a field that ends at the key's end", SOURCE_DESCRIPTION, 2, 0, 2, 62),
	BYTES("a field that ends behind the key", SOURCE_DESCRIPTION, 2, 0, 2, 63),
	BYTES("a code wider than its field", SOURCE_DESCRIPTION, 2, 4, 2, 0xFFFF),
	LENGTH("a field cut short", SOURCE_DESCRIPTION, 2, 5),
	LENGTH("a field without record", SOURCE_DESCRIPTION, 2, 0xFFFFFFFF),
	TAG("a field of another kind", SOURCE_DESCRIPTION, 2, EXTMEM_TAG_DATA),
	BYTES("a slot behind the last", SIZE_HOLDER, 0, 0, 4, 2),
	BYTES("a slot of 2^63", SIZE_HOLDER, 0, 7, 1, 0x80),
	BYTES("a slot of 2^32 - 1", SIZE_HOLDER, 1, 0, 4, 0xFFFFFFFF),
	LENGTH("a slot cut short", SIZE_HOLDER, 0, 4),
	TAG("a slot of another kind", SIZE_HOLDER, 0, EXTMEM_TAG_DATA),
	LENGTH("a key cut short", KEY_HOLDER, 0, 8),
	LENGTH("a key too long", KEY_HOLDER, 1, 64),
	LENGTH("a key without record", KEY_HOLDER, 2, 0xFFFFFFFF),
	TAG("a key of another kind", KEY_HOLDER, 0, EXTMEM_TAG_DATA),
	BYTES("a key that wants what its mask hides", KEY_HOLDER, 0, 7, 1, 0xFF),
	BYTES("a range of nothing", RANGE_HOLDER, 0, 0, 2, NONE),
	BYTES("a range of the root", RANGE_HOLDER, 1, 0, 2, 0),
	BYTES("a range behind the nodes", RANGE_HOLDER, 2, 0, 2, 0xFFFE),
	LENGTH("a range cut short", RANGE_HOLDER, 3, 16),
	NODE("a range follows itself", KEY_RANGE, 0, NODE_NEXT, SELF),
	NODE("a range under itself", KEY_RANGE, 1, NODE_CHILD, SELF),
	BYTES("a child that is the root", NODE_HOLDER, 0, 0, 2, 0),
	BYTES("a child behind the nodes", NODE_HOLDER, 1, 0, 2, 0xFFFE),
	BYTES("a child that is nothing", NODE_HOLDER, 1, 0, 2, NONE),
	LENGTH("a child of one byte", NODE_HOLDER, 0, 1),
	LENGTH("settings of one and a half ids", VALUE_HOLDER, 0, 3),
	LENGTH("settings without record", VALUE_HOLDER, 1, 0xFFFFFFFF),
	LENGTH("presets behind the data", PRESET_HOLDER, 0, 0x10000),
	TAG("an outcome of no kind", VALUE_HOLDER, 0, EXTMEM_TAG_UNUSED_BEGIN),
	TAG("an outcome that is a rule", VALUE_HOLDER, 0, EXTMEM_TAG_RULE),
	NODE("a rule under itself", RULE, 0, NODE_CHILD, SELF),
	NODE("a rule without cases", RULE, 0, NODE_CHILD, NONE),
	NODE("a rule after itself", RULE, 1, NODE_NEXT, SELF),
	NODE("a rule without name", RULE, 1, NODE_NEXT, NONE),
	TAG("a rule that is a source", RULE, 1, EXTMEM_TAG_SOURCE_LABEL),
	NODE("a key's node under itself", KEY_DESCRIPTION, 0, NODE_CHILD, SELF),
	NODE("a key's node after itself", KEY_DESCRIPTION, 0, NODE_NEXT, SELF),
	NODE("a source under itself", SOURCE_LABEL, 0, NODE_CHILD, SELF),
	NODE("a source without field", SOURCE_LABEL, 2, NODE_CHILD, NONE),
	NODE("a source without name", SOURCE_LABEL, 1, NODE_NEXT, NONE),
	NODE("a redefinition after itself", SOURCE_REDEFINE, 0, NODE_NEXT, SELF),
	NODE("a redefinition of nothing", SOURCE_REDEFINE, 1, NODE_CHILD, NONE),
};

#define COUNT(array) (sizeof(array) / sizeof((array)[0]))

/** Makes the change; false when the image has no such place. */
static bool damage(struct story *s, char *image, u32 size, const struct fault *fault)
{
	const u32 id = fault->place >= LINK ? find_tag(image, fault->tag, fault->nth) : 0;
	u32 value = fault->value;
	char *to;

	if (!check(s, id != NONE, "%s: nothing to damage", fault->what))
		return false;
	if (value == SELF)
		value = id;
	else if (value == LAST_NODE)
		value = nodes_in(image);
	switch (fault->place) {
	case HEADER:
		to = image + fault->at;
		break;
	case DATA_HEADER:
		to = data_at(image) + fault->at;
		break;
	case LINK:
		to = node_at(image, id) + fault->at;
		break;
	default:
		to = record_of(image, id) + fault->at;
		break;
	}
	if (!check(s, to >= image && to + fault->width <= image + size, "%s: outside", fault->what))
		return false;
	set_word(to, fault->width, value);
	return true;
}

/** Adopts @image, which it may change, and asks everything. Return: whether there was a map. */
static bool try_map(struct story *s, const char *what, char *image, u32 size, unsigned int ids,
		    bool table)
{
	void *map = NULL;
	bool done;

	done = table ? CALL(s, pim_init_with_regmerge)(&map, image, size, vexil_register_table, 64)
		     : CALL(s, pim_init)(&map, image, size);
	say(s, "%s%s -> %s%s", what, table ? " with a table" : "", done ? "true" : "false",
	    !done && map ? ", but usable" : "");
	if (map) {
		CALL(s, pim_insert_handler)(map, "lut_a", receive_table);
		CALL(s, pim_insert_alg_handler)(map, receive_algorithm);
		use_map(s, map, ids);
	}
	done = map != NULL;
	drop_map(s, &map);
	breathe(s);
	return done;
}

static bool try_rules(struct story *s, const char *what, char *image, u32 size)
{
	void *rules = NULL;
	const bool done = CALL(s, rm_init)(&rules, image, size);

	say(s, "%s -> %s", what, done ? "true" : "false");
	check(s, done == (rules != NULL), "%s: result and context disagree", what);
	if (done)
		use_rules(s, rules);
	drop_rules(s, &rules);
	breathe(s);
	return done;
}

/** Merges @over on @under, and asks the result when there is one. */
static void merge_maps(struct story *s, const char *what, void *under, void *over)
{
	void *both = NULL;
	bool done;

	CALL(s, pim_init)(&both, NULL, 0);
	done = CALL(s, pim_merge)(both, under, over);
	say(s, "  %s -> %d", what, done);
	if (done)
		use_map(s, both, 0);
	drop_map(s, &both);
}

static void merge_rules(struct story *s, const char *what, void *under, void *over, void *map)
{
	void *both = NULL;
	bool done;

	CALL(s, rm_init)(&both, NULL, 0);
	done = CALL(s, rm_merge)(both, under, over, map);
	say(s, "  %s -> %d", what, done);
	if (done)
		use_rules(s, both);
	drop_rules(s, &both);
}

/** A merge of a damaged image over a good one, and the other way round. */
static void merge_damaged(struct story *s, char *image, u32 size, const char *good, u32 good_size)
{
	char *copy = copy_image(s, good, good_size);
	void *a = NULL, *b = NULL;

	CALL(s, pim_init)(&a, image, size);
	CALL(s, pim_init)(&b, copy, copy ? good_size : 0);
	merge_maps(s, "merged over", b, a);
	merge_maps(s, "merged under", a, b);
	drop_map(s, &b);
	drop_map(s, &a);
	put_memory(s, copy);
}

static void merge_damaged_rules(struct story *s, char *image, u32 size, const char *good,
				u32 good_size, void *map)
{
	char *copy = copy_image(s, good, good_size);
	void *a = NULL, *b = NULL;

	CALL(s, rm_init)(&a, image, size);
	CALL(s, rm_init)(&b, copy, copy ? good_size : 0);
	merge_rules(s, "merged over", b, a, map);
	merge_rules(s, "merged under", a, b, map);
	drop_rules(s, &b);
	drop_rules(s, &a);
	put_memory(s, copy);
}

static void map_fault(struct story *s, const struct fault *fault, const char *good, u32 size)
{
	char *copy;
	bool adopted;
	unsigned int table;

	for (table = 0; table < 2; table++) {
		copy = copy_image(s, good, size);
		if (copy && damage(s, copy, size, fault)) {
			adopted = try_map(s, fault->what, copy, size, nodes_in(good) + 2, table);
			check(s, !(fault->refused && adopted), "%s is adopted", fault->what);
			if (adopted && !table)
				merge_damaged(s, copy, size, good, size);
		}
		put_memory(s, copy);
	}
}

static void rule_fault(struct story *s, const struct fault *fault, const char *good, u32 size,
		       void *map)
{
	char *copy = copy_image(s, good, size);

	if (copy && damage(s, copy, size, fault)) {
		const bool adopted = try_rules(s, fault->what, copy, size);

		check(s, !(fault->refused && adopted), "%s is adopted", fault->what);
		if (adopted)
			merge_damaged_rules(s, copy, size, good, size, map);
	}
	put_memory(s, copy);
}

/** Blocks of exactly these sizes, so that a look behind the end is seen where such is watched. */
static void cut_images(struct story *s, const char *good, u32 size, bool map)
{
	u32 cut, adopted = 0;
	char what[40];

	for (cut = 1; cut < size; cut += cut < 112 || cut + 16 > size ? 1 : 56) {
		char *copy = copy_image(s, good, cut);
		void *context = NULL;
		bool done = copy && (map ? CALL(s, pim_init)(&context, copy, cut)
					 : CALL(s, rm_init)(&context, copy, cut));

		adopted += done;
		if (done) {
			put(what, sizeof what, "cut to %u", cut);
			say(s, "%s", what);
		}
		if (context && map)
			use_map(s, context, 0);
		else if (context)
			use_rules(s, context);
		if (context && map)
			drop_map(s, &context);
		else
			drop_rules(s, &context);
		put_memory(s, copy);
	}
	say(s, "%u cut images were adopted", adopted);
}

static char *small_image(struct story *s, bool of_map, u32 *size)
{
	void *map = small_map(s), *rules = of_map ? NULL : small_rules(s, map);
	char *image =
		of_map ? export_map(s, "good", map, size) : export_rules(s, "good", rules, size);

	drop_rules(s, &rules);
	drop_map(s, &map);
	return image;
}

void scenario_damaged_maps(struct story *s)
{
	static const struct fault ring = NODE("a ring of holders", GENERAL, 1, NODE_NEXT, SELF);
	u32 size, i;
	char *good = small_image(s, true, &size), *copy;
	void *map = NULL;

	for (i = 0; good && i < COUNT(shared_faults); i++)
		map_fault(s, &shared_faults[i], good, size);
	for (i = 0; good && i < COUNT(map_faults); i++)
		map_fault(s, &map_faults[i], good, size);
	if (good)
		cut_images(s, good, size, true);
	/* The dump of a ring ends. */
	copy = copy_image(s, good, size);
	if (copy && damage(s, copy, size, &ring) && CALL(s, pim_init)(&map, copy, size))
		pim_print(map);
	drop_map(s, &map);
	put_memory(s, copy);
	put_memory(s, good);
}

/** Holders that hold no rule, in a ring: asking for every rule must come to an end. */
static void ring_without_rules(struct story *s)
{
	static const struct fault ring = NODE("a ring without rules", GENERAL, 2, NODE_NEXT, SELF);
	void *rules = NULL;
	char *image = NULL;
	u32 size = 0;

	if (CALL(s, rm_init)(&rules, NULL, 0) && CALL(s, rm_finish)(rules))
		image = export_rules(s, "no rules", rules, &size);
	drop_rules(s, &rules);
	if (image && damage(s, image, size, &ring)) {
		say(s, "%s -> %d", ring.what, CALL(s, rm_init)(&rules, image, size));
		say(s, "  trigger -> %d", CALL(s, rm_trigger)(rules, NULL));
	}
	drop_rules(s, &rules);
	put_memory(s, image);
}

void scenario_damaged_rules(struct story *s)
{
	u32 size, i;
	char *good = small_image(s, false, &size);
	void *map = small_map(s);

	for (i = 0; good && i < COUNT(shared_faults); i++)
		rule_fault(s, &shared_faults[i], good, size, map);
	for (i = 0; good && i < COUNT(rule_faults); i++)
		rule_fault(s, &rule_faults[i], good, size, map);
	if (good)
		cut_images(s, good, size, false);
	ring_without_rules(s);
	put_memory(s, good);
	drop_map(s, &map);
}

/* ---- every link and every record ---- */

static bool quiet_map(struct story *s, char *image, u32 size)
{
	void *map = NULL;
	bool usable;

	CALL(s, pim_init)(&map, image, size);
	usable = map != NULL;
	s->quiet = true;
	CALL(s, pim_load_common_reg_setting)(map, receive_block, s);
	CALL(s, pim_load_setting_by_name)(map, "NR#Low", receive_block, s);
	CALL(s, pim_load_setting_by_name)(map, "Preset#Night", receive_block, s);
	s->quiet = false;
	drop_map(s, &map);
	return usable;
}

static bool quiet_rules(struct story *s, char *image, u32 size)
{
	void *rules = NULL;
	u16 *ids = NULL;
	size_t count;
	bool usable;

	CALL(s, rm_init)(&rules, image, size);
	usable = rules != NULL;
	CALL(s, rm_set)(rules, "Input:Tuner;Luma:64;Wide:I", 0);
	CALL(s, rm_trigger)(rules, "Top");
	count = CALL(s, rm_get_result)(rules, &ids);
	s->block_digest = digest_bytes(s->block_digest, ids, count * 2);
	CALL(s, rm_clear)(rules);
	CALL(s, rm_set)(rules, "Luma:700;Wide", 0);
	CALL(s, rm_trigger)(rules, NULL);
	count = CALL(s, rm_get_result)(rules, &ids);
	s->block_digest = digest_bytes(s->block_digest, ids, count * 2);
	drop_rules(s, &rules);
	return usable;
}

static void sweep(struct story *s, const char *good, u32 size, bool of_map)
{
	static const u32 links[] = {NONE, 0, 1, SELF, LAST_NODE, 0xFFFE};
	static const u32 lengths[] = {0, 1, 7, 0x7FFFFFFF, 0xFFFFFFFF};
	static const u32 offsets[] = {0x00FFFFF8, 0xFFFFFFF8, 0xFFFFFFFF};
	static const u32 tags[] = {EXTMEM_TAG_UNSPECIFIED,
				   EXTMEM_TAG_GENERAL,
				   EXTMEM_TAG_IP,
				   EXTMEM_TAG_RULE,
				   EXTMEM_TAG_DATA_TYPE_BEGIN,
				   EXTMEM_TAG_REGISTER_SETTINGS,
				   EXTMEM_TAG_NODE_HOLDER,
				   255};
	char *copy = copy_image(s, good, size);
	u32 id, i;

	for (id = 0; copy && id < nodes_in(good); id++) {
		unsigned int usable = 0, tried = 0;
		const bool record = is_record(copy, id);
		const u32 edits =
			COUNT(tags) + (record ? COUNT(lengths) + COUNT(offsets) : 2 * COUNT(links));

		for (i = 0; i < edits; i++) {
			char *node = node_at(copy, id);

			if (i < COUNT(tags)) {
				set_word(node + NODE_TAG, 1, tags[i]);
			} else if (record) {
				const u32 at = i - (u32)COUNT(tags);

				if (at < COUNT(lengths))
					set_word(node + NODE_LENGTH, 4, lengths[at]);
				else
					set_word(node + NODE_OFFSET, 4,
						 offsets[at - COUNT(lengths)]);
			} else {
				const u32 at = i - (u32)COUNT(tags), link = links[at / 2];

				set_word(node + (at % 2 ? NODE_NEXT : NODE_CHILD), 2,
					 link == SELF        ? id
					 : link == LAST_NODE ? nodes_in(good)
							     : link);
			}
			usable += of_map ? quiet_map(s, copy, size) : quiet_rules(s, copy, size);
			tried++;
			copy_bytes(copy, good, size); /* adoption writes into it */
		}
		say(s, "node %u: %u of %u usable, digest %016llx", id, usable, tried,
		    s->block_digest);
		breathe(s);
	}
	put_memory(s, copy);
}

/* ---- nothing sensible ---- */

static u32 next_random(u32 *state)
{
	*state = *state * 1664525u + 1013904223u;
	return *state >> 8;
}

/**
 * An image of @nodes nodes. @shape 0: each holds and is followed by the next; 1: all lead to the
 * root; 2: pairs of a holder and @tag, all over the same child; 3 and more: anything.
 */
static char *made_up_image(struct story *s, const char *good, u32 nodes, unsigned int shape,
			   u32 tag, u32 *size)
{
	static const char letters[] = "Top;NR#Low.Input:Tuner lut_a ABCabc012";
	const u32 data = 4096;
	char *image = get_memory(s, 104 + nodes * NODE_SIZE + data);
	u32 state = shape * 2654435761u + nodes, id, i;

	if (!image)
		return NULL;
	copy_bytes(image, good, 88);
	set_word(image + NODE_USED_AT, 4, nodes * NODE_SIZE);
	set_word(image + NODE_MAX_AT, 4, nodes * NODE_SIZE);
	for (id = 0; id < nodes; id++) {
		char *node = node_at(image, id);
		u32 child = id + 1 < nodes ? id + 1 : NONE, next = child, kind = id ? tag : 1;

		switch (shape) {
		case 0:
			break;
		case 1:
			child = next = 0;
			break;
		case 2:
			if (id % 2 == 0)
				kind = EXTMEM_TAG_GENERAL;
			next = id % 2 == 0 && id + 2 < nodes ? id + 2 : NONE;
			child = id % 2 == 0 ? id + 1 : 2;
			if (id == 0)
				child = 2;
			break;
		default:
			child = next_random(&state) % (nodes + 2);
			next = next_random(&state) % (nodes + 2);
			kind = id ? next_random(&state) % 60 : 1;
			break;
		}
		set_word(node, 2, id);
		set_word(node + NODE_TAG, 1, kind);
		if (kind < EXTMEM_TAG_DATA_TYPE_BEGIN) {
			set_word(node + NODE_CHILD, 2, child);
			set_word(node + NODE_NEXT, 2, next);
		} else {
			set_word(node + NODE_LENGTH, 4, next_random(&state) % 40);
			set_word(node + NODE_OFFSET, 4, next_random(&state) % (data / 8) * 8);
		}
	}
	set_word(data_at(image), 4, data);
	set_word(data_at(image) + 4, 4, data);
	for (i = 0; i < data; i++) {
		const u32 one = next_random(&state);

		data_at(image)[8 + i] = one % 4 ? letters[one / 4 % (sizeof letters - 1)] : 0;
	}
	*size = 104 + nodes * NODE_SIZE + data;
	return image;
}

static void made_up(struct story *s, const char *good, bool of_map, u32 nodes, unsigned int shape,
		    u32 tag)
{
	u32 size = 0;
	char *image = made_up_image(s, good, nodes, shape, tag, &size);
	char what[60];

	put(what, sizeof what, "%u nodes of tag %u, shape %u", nodes, tag, shape);
	if (image && of_map)
		try_map(s, what, image, size, 0, shape % 2);
	else if (image)
		try_rules(s, what, image, size);
	put_memory(s, image);
}

void scenario_swept_images(struct story *s)
{
	static const u32 tags[] = {EXTMEM_TAG_GENERAL, EXTMEM_TAG_IP, EXTMEM_TAG_FILE,
				   EXTMEM_TAG_RULE, EXTMEM_TAG_SOURCE_LABEL};
	u32 size, round, i, shape;

	for (round = 0; round < 2; round++) {
		char *good = small_image(s, round == 0, &size);

		if (!good)
			return;
		sweep(s, good, size, round == 0);
		for (i = 0; i < COUNT(tags); i++) {
			for (shape = 0; shape < 3; shape++)
				made_up(s, good, round == 0, 65535, shape, tags[i]);
		}
		for (shape = 3; shape < 43; shape++)
			made_up(s, good, round == 0, 20 + 40 * (shape % 8), shape,
				EXTMEM_TAG_GENERAL);
		put_memory(s, good);
	}
}
