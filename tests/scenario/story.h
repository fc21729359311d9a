/* SPDX-License-Identifier: MIT */
/*
 * What all scenarios share: calling the library, telling what came of it, expecting things.
 */
#ifndef VEXIL_SCENARIO_STORY_H
#define VEXIL_SCENARIO_STORY_H

#include "documents.h"
#include "scenario.h"

/* Slots by name: SLOT_pim_init and so on. */
enum slot {
#define VEXIL_SLOT_NUMBER(result, name, arguments) SLOT_##name,
	VEXIL_SERVICES(VEXIL_SLOT_NUMBER)
#undef VEXIL_SLOT_NUMBER
	SLOT_COUNT
};

/** Longest line of the transcript; longer ones are cut. A kernel log record holds some 950. */
#define STORY_LINE 880

/** State of a run. One at a time: algorithm handlers are given no context, see story_current. */
struct story {
	const _PUBIF_VEXIL *table;
	const struct vexil_scenario_env *env;
	const char *scenario;
	unsigned int round; /* from 1; only the first is written */
	unsigned int checks;
	unsigned int failed;
	unsigned int calls[SLOT_COUNT];
	u64 digest;	   /* of all lines of this round */
	bool quiet;	   /* deliveries are counted and digested, not told */
	unsigned int blocks; /* delivered since story_expect_blocks or the start */
	u64 block_digest;
	size_t length;
	char line[STORY_LINE + 8];
};

extern struct story *story_current;

/** CALL(s, pim_init)(&map, NULL, 0): the slot of that name, counted. */
#define CALL(s, name) (++(s)->calls[SLOT_##name], (s)->table->fp_CB_vexil_##name)

/**
 * say - one line of the transcript
 * @format: as printf's, of %s %c %d %u %x %zu %llu %lld %llx and %%, with a width ("%08x") if need
 *	    be. What is not printable comes as "\xNN".
 */
__attribute__((format(printf, 2, 3))) void say(struct story *s, const char *format, ...);

/** Writes the same into @to, at most @size bytes with the NUL. Return: characters, cut ones too. */
__attribute__((format(printf, 3, 4))) size_t put(char *to, size_t size, const char *format, ...);

/** A check: what is said is the truth, or the run has failed. Return: @truth. */
__attribute__((format(printf, 3, 4))) bool check(struct story *s, bool truth, const char *format,
						 ...);

/** Checks a result and tells it: "<what> -> <result>". */
bool expect(struct story *s, const char *what, bool result, bool expected);
bool expect_number(struct story *s, const char *what, u64 result, u64 expected);

/** Between cases: lets others run. */
void breathe(struct story *s);

/* ---- bytes and texts ---- */

void *get_memory(struct story *s, size_t size); /* zeroed; NULL without memory, which is told */
void put_memory(struct story *s, void *block);
void copy_bytes(void *to, const void *from, size_t size);
void fill_bytes(void *to, int byte, size_t size);
bool same_bytes(const void *a, const void *b, size_t size);
size_t text_length(const char *text);
bool same_text(const char *a, const char *b);
/** Whether @text begins with @start. */
bool starts_with(const char *text, const char *start);

#define DIGEST_START 0xCBF29CE484222325ull
/** FNV-1a, 64 bits, carried on from @digest. */
u64 digest_bytes(u64 digest, const void *bytes, size_t size);

/* Little-endian words at any address. */
u32 word_at(const char *bytes, unsigned int width);
void set_word(char *bytes, unsigned int width, u32 value);

/** A text that grows in a block of its own: documents that are made up. */
struct text {
	char *bytes; /* NULL once memory ran out */
	size_t length;
	size_t room;
};
bool text_begin(struct story *s, struct text *text, size_t room);
__attribute__((format(printf, 2, 3))) void text_add(struct text *text, const char *format, ...);
/** @count times @c. */
void text_fill(struct text *text, char c, size_t count);
void text_end(struct story *s, struct text *text);

/* ---- deliveries ---- */

/** Tells a block; pCtx is the story. */
bool receive_block(int tag, const char *data, u32 length, void *pCtx);
bool receive_table(int tag, const char *data, u32 length, void *pCtx);
bool receive_algorithm(int tag, const char *data, u32 length, const char *entry, u32 entry_length);

/** Tells how many blocks came since the last time, and their digest. */
void tell_blocks(struct story *s, const char *what);

/* ---- documents, contexts ---- */

/** Parses @text, hands it to a slot of this kind, deletes it. False when either fails. */
bool feed(struct story *s, bool (*slot)(void *context, void *json), void *context,
	  const char *text);
/** Rules: the same. */
bool feed_rules(struct story *s, void *rules, const char *text, void *map);

/**
 * Documents written with apostrophes for quotation marks: given to a slot, the result told and
 * expected.
 */
bool give(struct story *s, const char *what, bool (*slot)(void *context, void *json), void *context,
	  const char *text, bool expected);
bool give_rules(struct story *s, const char *what, void *rules, const char *text, void *map,
		bool expected);
/** Apostrophes to quotation marks, in place. */
void quote(char *text);

/**
 * A small product: every kind of block, setting and source, every kind of outcome. Its handlers and
 * file names are known to the map. The map is not finished; the rules are.
 */
void *small_map(struct story *s);
void *small_rules(struct story *s, void *map);
/** Loads every configuration and everything else that a map answers, and digests it. */
void use_map(struct story *s, void *map, unsigned int ids);
/** The same for rules: sets sources, triggers, reads. */
void use_rules(struct story *s, void *rules);
/** Nodes in an image: ids are below. */
unsigned int nodes_in(const char *image);

/** A map built from the documents of @product, finished; NULL when a document was refused. */
void *build_map(struct story *s, const char *product, bool finish);
/** The product's rules over @map, finished; NULL when they were refused. */
void *build_rules(struct story *s, const char *product, void *map);
/** The product's handlers, which all tell what they receive. */
bool add_handlers(struct story *s, void *map, const char *product);

/** An exported image in a block of its own, and its size; tells both sizes and the digest. */
char *export_map(struct story *s, const char *what, void *map, u32 *size);
char *export_rules(struct story *s, const char *what, void *rules, u32 *size);

/** Destroys what is not NULL. */
void drop_map(struct story *s, void **map);
void drop_rules(struct story *s, void **rules);

/** A copy of an image. */
char *copy_image(struct story *s, const char *image, u32 size);

void tell_version(struct story *s, const char *what, bool known, const vexil_version *version);
/** Ids with their digest, the first few told. */
void tell_ids(struct story *s, const char *what, const u16 *ids, size_t count);

/* ---- the scenarios, by file ---- */

#define SCENARIOS(SCENARIO) \
	SCENARIO(memory) \
	SCENARIO(example_build) \
	SCENARIO(example_run) \
	SCENARIO(example_load) \
	SCENARIO(example_merge) \
	SCENARIO(presetdb) \
	SCENARIO(nothing) \
	SCENARIO(names) \
	SCENARIO(lists) \
	SCENARIO(groups) \
	SCENARIO(adoption) \
	SCENARIO(dump) \
	SCENARIO(sources) \
	SCENARIO(rules) \
	SCENARIO(evaluation) \
	SCENARIO(handlers) \
	SCENARIO(damaged_documents) \
	SCENARIO(damaged_maps) \
	SCENARIO(damaged_rules) \
	SCENARIO(swept_images) \
	SCENARIO(numbers) \
	SCENARIO(verify)

#define VEXIL_SCENARIO_FUNCTION(name) void scenario_##name(struct story *s);
SCENARIOS(VEXIL_SCENARIO_FUNCTION)
#undef VEXIL_SCENARIO_FUNCTION

#endif /* VEXIL_SCENARIO_STORY_H */
