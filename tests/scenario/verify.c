// SPDX-License-Identifier: MIT
/*
 * The verifier: what it says of sound images and of damaged ones, and that it leaves them alone.
 */
#include "story.h"

#define NODE_USED_AT 88
#define NODE_MAX_AT 92
#define NODES_AT 96
#define NODE_SIZE 16

/** One fault, in the head or in a node of every sound image; where it is, and how it is found. */
struct damage {
	const char *what;
	u32 at;
	unsigned int width;
	u32 value;
	vexil_image_code code;
};

static const struct damage damages[] = {
	{"another kind", 80, 2, 3, VEXIL_IMAGE_UNKNOWN_KIND},
	{"another version", 74, 2, 3, VEXIL_IMAGE_UNKNOWN_VERSION},
	{"another size", 84, 4, 7, VEXIL_IMAGE_SIZE},
	{"more nodes than room", NODE_USED_AT, 4, 0x7FFFFFF0, VEXIL_IMAGE_NODE_FIGURES},
	{"a node and a half", NODE_USED_AT, 4, 24, VEXIL_IMAGE_NODE_FIGURES},
	{"room that wraps", NODE_MAX_AT, 4, 0xFFFFFFF0, VEXIL_IMAGE_TRUNCATED},
	{"a root that is a rule", NODES_AT + 2, 1, EXTMEM_TAG_RULE, VEXIL_IMAGE_NO_ROOT},
	{"a root with a sibling", NODES_AT + 5, 2, 1, VEXIL_IMAGE_MISPLACED},
	{"a root under itself", NODES_AT + 3, 2, 0, VEXIL_IMAGE_NODE_SHARED},
	{"a node under another id", NODES_AT + 3 * NODE_SIZE, 2, 7, VEXIL_IMAGE_NODE_ID},
	{"a tag of nothing", NODES_AT + 3 * NODE_SIZE + 2, 1, 200, VEXIL_IMAGE_NODE_TAG},
	{"a link out of the nodes", NODES_AT + 3, 2, 0xFFF0, VEXIL_IMAGE_LINK},
};

static bool examine(struct story *s, const char *what, const char *image, u32 size,
		    vexil_image_fault *fault)
{
	const u64 before = image ? digest_bytes(DIGEST_START, image, size) : 0;
	bool sound;

	fill_bytes(fault, 0x5A, sizeof *fault);
	sound = vexil_image_verify(image, size, fault);
	say(s, "%s: %s, byte %u, node %u, other %u", what, vexil_image_code_text(fault->code),
	    fault->offset, fault->node, fault->other);
	check(s, sound == (fault->code == VEXIL_IMAGE_SOUND), "%s: result and code differ", what);
	check(s, !image || digest_bytes(DIGEST_START, image, size) == before, "%s: written to",
	      what);
	return sound;
}

/** Every byte of the nodes, changed by itself: how often which code is found. */
static void change_bytes(struct story *s, char *image, u32 size)
{
	const u32 end = NODES_AT + word_at(image + NODE_USED_AT, 4);
	unsigned int sound = 0, found = 0;
	u64 digest = DIGEST_START;
	vexil_image_fault fault;
	u32 at;

	for (at = 0; at < end; at++) {
		image[at] ^= 0x11;
		if (vexil_image_verify(image, size, &fault))
			sound++;
		else
			found++;
		digest = digest_bytes(digest, &fault, sizeof fault);
		image[at] ^= 0x11;
		if (at % 64 == 0)
			breathe(s);
	}
	say(s, "  of %u bytes changed, %u are found, %u do not matter: %016llx", end, found, sound,
	    digest);
}

/** Cut off anywhere, it is too short or truncated. */
static void cut(struct story *s, const char *image, u32 size)
{
	vexil_image_fault fault;
	unsigned int bad = 0;
	u32 length;

	for (length = 0; length < size; length += 13) {
		if (vexil_image_verify(image, length, &fault) ||
		    (fault.code != VEXIL_IMAGE_TOO_SHORT && fault.code != VEXIL_IMAGE_TRUNCATED))
			bad++;
	}
	expect_number(s, "cut off and not found", bad, 0);
}

static void examine_all(struct story *s, const char *what, char *image, u32 size)
{
	vexil_image_fault fault;
	unsigned int i;
	u32 was;

	if (!image)
		return;
	check(s, examine(s, what, image, size, &fault), "%s is not sound", what);
	check(s, vexil_image_verify(image, size, NULL), "%s is not sound without a fault", what);
	for (i = 0; i < sizeof damages / sizeof damages[0]; i++) {
		const struct damage *damage = &damages[i];

		was = word_at(image + damage->at, damage->width);
		set_word(image + damage->at, damage->width, damage->value);
		examine(s, damage->what, image, size, &fault);
		check(s, fault.code == damage->code, "%s is found as %u", damage->what, fault.code);
		check(s, !vexil_image_verify(image, size, NULL), "%s is not found", damage->what);
		set_word(image + damage->at, damage->width, was);
	}
	cut(s, image, size);
	change_bytes(s, image, size);
	check(s, examine(s, what, image, size, &fault), "%s is not sound in the end", what);
}

void scenario_verify(struct story *s)
{
	void *map = small_map(s), *rules = small_rules(s, map), *adopted = NULL;
	vexil_image_fault fault;
	u32 map_size, rules_size;
	char *map_image = export_map(s, "map", map, &map_size);
	char *rules_image = export_rules(s, "rules", rules, &rules_size);

	examine(s, "no image", NULL, 0, &fault);
	examine(s, "no bytes", map_image, 0, &fault);
	say(s, "unknown code: %s", vexil_image_code_text(VEXIL_IMAGE_CODES));
	examine_all(s, "map", map_image, map_size);
	examine_all(s, "rules", rules_image, rules_size);
	drop_rules(s, &rules);
	drop_map(s, &map);

	/* What adoption writes is sound, too. */
	expect(s, "adopt",
	       CALL(s, pim_init_with_regmerge)(&adopted, map_image, map_size, vexil_register_table,
					       vexil_register_table_count),
	       true);
	drop_map(s, &adopted);
	if (map_image)
		check(s, examine(s, "adopted map", map_image, map_size, &fault), "not sound");
	put_memory(s, map_image);
	put_memory(s, rules_image);
}
