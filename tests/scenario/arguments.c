// SPDX-License-Identifier: MIT
/*
 * Nothing where something is wanted, in every slot; and names of every length and kind.
 */
#include "story.h"

/* A call must answer false (or 0), whatever else is right. */
#define REFUSED(call) expect(s, #call, call, false)
#define NOTHING(call) expect_number(s, #call, call, 0)

static void nothing_for_maps(struct story *s, void *map)
{
	const _PUBIF_VEXIL *t = s->table;
	void *none = NULL, *json = CALL(s, json_parse)("{}");
	vexil_version version = {1, 2, 3};
	char *text = NULL;
	char bytes[4] = {0};
	u16 id = 1;

	REFUSED(t->fp_CB_vexil_pim_init(NULL, NULL, 0));
	REFUSED(t->fp_CB_vexil_pim_init(NULL, bytes, 4));
	REFUSED(t->fp_CB_vexil_pim_init(&none, bytes, 4));
	REFUSED(t->fp_CB_vexil_pim_init_with_regmerge(NULL, NULL, 0, NULL, 0));
	REFUSED(t->fp_CB_vexil_pim_init_with_regmerge(&none, bytes, 4, vexil_register_table, 1));
	check(s, !none, "a refused image left a map");
	NOTHING(t->fp_CB_vexil_pim_export(NULL, bytes));
	NOTHING(t->fp_CB_vexil_pim_export(map, NULL));
	NOTHING(t->fp_CB_vexil_pim_get_export_size(NULL));
	REFUSED(t->fp_CB_vexil_pim_merge(NULL, map, map));
	REFUSED(t->fp_CB_vexil_pim_merge(map, NULL, map));
	REFUSED(t->fp_CB_vexil_pim_merge(map, map, NULL));
	NOTHING(t->fp_CB_vexil_pim_get_reg_num(NULL, 16, E_PQLV_MAX));
	NOTHING(t->fp_CB_vexil_pim_get_reg_num(map, 17, E_PQLV_MAX));
	NOTHING(t->fp_CB_vexil_pim_get_reg_num(map, 255, (EN_PQ_LEVEL)9));
	REFUSED(t->fp_CB_vexil_pim_insert_regmap(NULL, "A", 0));
	REFUSED(t->fp_CB_vexil_pim_insert_regmap(map, NULL, 0));
	REFUSED(t->fp_CB_vexil_pim_insert_regmap_json(NULL, json));
	REFUSED(t->fp_CB_vexil_pim_insert_regmap_json(map, NULL));
	REFUSED(t->fp_CB_vexil_pim_insert_vregmap(NULL, "A", 0));
	REFUSED(t->fp_CB_vexil_pim_insert_vregmap(map, NULL, 0));
	REFUSED(t->fp_CB_vexil_pim_insert_vregmap_json(NULL, json));
	REFUSED(t->fp_CB_vexil_pim_insert_vregmap_json(map, NULL));
	REFUSED(t->fp_CB_vexil_pim_insert_cus_vregmap(NULL, "A", 0));
	REFUSED(t->fp_CB_vexil_pim_insert_cus_vregmap(map, NULL, 0));
	REFUSED(t->fp_CB_vexil_pim_insert_cus_vregmap_json(NULL, json));
	REFUSED(t->fp_CB_vexil_pim_insert_cus_vregmap_json(map, NULL));
	REFUSED(t->fp_CB_vexil_pim_insert_file(NULL, "a", bytes, 1));
	REFUSED(t->fp_CB_vexil_pim_insert_file(map, NULL, bytes, 1));
	REFUSED(t->fp_CB_vexil_pim_insert_file(map, "a", NULL, 1));
	REFUSED(t->fp_CB_vexil_pim_insert_file(map, "a", bytes, 0));
	REFUSED(t->fp_CB_vexil_pim_insert_handler(NULL, "a", receive_table));
	REFUSED(t->fp_CB_vexil_pim_insert_handler(map, NULL, receive_table));
	REFUSED(t->fp_CB_vexil_pim_insert_alg_handler(NULL, receive_algorithm));
	REFUSED(t->fp_CB_vexil_pim_insert(NULL, json));
	REFUSED(t->fp_CB_vexil_pim_insert(map, NULL));
	REFUSED(t->fp_CB_vexil_pim_finish(NULL));
	REFUSED(t->fp_CB_vexil_pim_destroy(NULL));
	REFUSED(t->fp_CB_vexil_pim_destroy(&none));
	REFUSED(t->fp_CB_vexil_pim_get_version(NULL, &version));
	REFUSED(t->fp_CB_vexil_pim_get_version(map, NULL));
	REFUSED(t->fp_CB_vexil_pim_get_hwreg_version(NULL, &version));
	REFUSED(t->fp_CB_vexil_pim_get_hwreg_version(map, NULL));
	REFUSED(t->fp_CB_vexil_pim_get_swreg_version(NULL, &version));
	REFUSED(t->fp_CB_vexil_pim_get_swreg_version(map, NULL));
	REFUSED(t->fp_CB_vexil_pim_get_cus_swreg_version(NULL, &version));
	REFUSED(t->fp_CB_vexil_pim_get_cus_swreg_version(map, NULL));
	REFUSED(t->fp_CB_vexil_pim_get_pim_version(NULL, &version, "Modes"));
	REFUSED(t->fp_CB_vexil_pim_get_pim_version(map, NULL, "Modes"));
	REFUSED(t->fp_CB_vexil_pim_get_pim_version(map, &version, NULL));
	REFUSED(t->fp_CB_vexil_pim_get_cus_version(NULL, &text));
	REFUSED(t->fp_CB_vexil_pim_get_cus_version(map, NULL));
	check(s, version.u16MajorNumber == 1 && version.u32Revision == 3,
	      "a refused query wrote a version");

	t->fp_CB_vexil_json_delete(NULL);
	t->fp_CB_vexil_pim_load_setting_by_name(NULL, "NR#Low", receive_block, s);
	t->fp_CB_vexil_pim_load_setting_by_name(map, NULL, receive_block, s);
	t->fp_CB_vexil_pim_load_setting_by_name(map, "NR#Low", NULL, s);
	t->fp_CB_vexil_pim_load_setting(NULL, 1, true, receive_block, s);
	t->fp_CB_vexil_pim_load_setting(map, pim_query_setting_id(map, "NR#Low"), true, NULL, s);
	expect_number(s, "count without a map",
		      t->fp_CB_vexil_pim_load_setting_count(NULL, 1, 5, receive_block, s), 5);
	expect_number(s, "count without a callback",
		      t->fp_CB_vexil_pim_load_setting_count(map, 1, 5, NULL, s), 5);
	t->fp_CB_vexil_pim_load_preset(NULL, &id, 1, (char *)"MODE_REGS", receive_block, s);
	t->fp_CB_vexil_pim_load_preset(map, NULL, 1, (char *)"MODE_REGS", receive_block, s);
	t->fp_CB_vexil_pim_load_preset(map, &id, 0, (char *)"MODE_REGS", receive_block, s);
	t->fp_CB_vexil_pim_load_preset(map, &id, 1, NULL, receive_block, s);
	t->fp_CB_vexil_pim_load_preset(map, &id, 1, (char *)"MODE_REGS", NULL, s);
	t->fp_CB_vexil_pim_load_common_reg_setting(NULL, receive_block, s);
	t->fp_CB_vexil_pim_load_common_reg_setting(map, NULL, s);
	t->fp_CB_vexil_pim_get_setting(NULL, 1, &text);
	t->fp_CB_vexil_pim_get_setting(map, 1, NULL);
	check(s, !text, "a refused query wrote a text");
	pim_print(NULL);
	expect_number(s, "pim_query_setting_id(NULL)", pim_query_setting_id(NULL, "a"),
		      VEXIL_NO_ID);
	expect_number(s, "pim_query_preset_id(NULL)", pim_query_preset_id(map, NULL), VEXIL_NO_ID);
	CALL(s, json_delete)(json);
	expect(s, "json_parse(NULL)", CALL(s, json_parse)(NULL) != NULL, false);
	tell_blocks(s, "delivered");
}

static void nothing_for_rules(struct story *s, void *map, void *rules)
{
	const _PUBIF_VEXIL *t = s->table;
	void *none = NULL, *handler = NULL, *json = CALL(s, json_parse)("{}");
	vexil_version version = {1, 2, 3};
	char *text = NULL;
	char bytes[4] = {0};
	u16 *ids = NULL;

	CALL(s, rm_create_handler)(rules, &handler);
	REFUSED(t->fp_CB_vexil_rm_init(NULL, NULL, 0));
	REFUSED(t->fp_CB_vexil_rm_init(&none, bytes, 4));
	check(s, !none, "a refused image left rules");
	NOTHING(t->fp_CB_vexil_rm_get_export_size(NULL));
	NOTHING(t->fp_CB_vexil_rm_export(NULL, bytes));
	NOTHING(t->fp_CB_vexil_rm_export(rules, NULL));
	REFUSED(t->fp_CB_vexil_rm_merge(NULL, rules, rules, map));
	REFUSED(t->fp_CB_vexil_rm_merge(rules, NULL, rules, map));
	REFUSED(t->fp_CB_vexil_rm_merge(rules, rules, NULL, map));
	REFUSED(t->fp_CB_vexil_rm_merge(rules, rules, rules, NULL));
	REFUSED(t->fp_CB_vexil_rm_insert_source_json(NULL, json));
	REFUSED(t->fp_CB_vexil_rm_insert_source_json(rules, NULL));
	REFUSED(t->fp_CB_vexil_rm_insert(NULL, json, map));
	REFUSED(t->fp_CB_vexil_rm_insert(rules, NULL, map));
	REFUSED(t->fp_CB_vexil_rm_insert(rules, json, NULL));
	REFUSED(t->fp_CB_vexil_rm_set(NULL, "Luma:1", 0));
	REFUSED(t->fp_CB_vexil_rm_set(rules, NULL, 0));
	REFUSED(t->fp_CB_vexil_rm_trigger(NULL, NULL));
	REFUSED(t->fp_CB_vexil_rm_clear(NULL));
	NOTHING(t->fp_CB_vexil_rm_get_result(NULL, &ids));
	NOTHING(t->fp_CB_vexil_rm_get_result(rules, NULL));
	NOTHING(t->fp_CB_vexil_rm_get_preset(NULL, &ids));
	NOTHING(t->fp_CB_vexil_rm_get_preset(rules, NULL));
	REFUSED(t->fp_CB_vexil_rm_create_handler(NULL, &none));
	REFUSED(t->fp_CB_vexil_rm_create_handler(rules, NULL));
	REFUSED(t->fp_CB_vexil_rm_handler_set(NULL, "Luma:1", 0));
	REFUSED(t->fp_CB_vexil_rm_handler_set(handler, NULL, 0));
	REFUSED(t->fp_CB_vexil_rm_handler_trigger(NULL, NULL));
	REFUSED(t->fp_CB_vexil_rm_handler_clear(NULL));
	NOTHING(t->fp_CB_vexil_rm_handler_get_result(NULL, &ids));
	NOTHING(t->fp_CB_vexil_rm_handler_get_result(handler, NULL));
	NOTHING(t->fp_CB_vexil_rm_handler_get_preset(NULL, &ids));
	NOTHING(t->fp_CB_vexil_rm_handler_get_preset(handler, NULL));
	REFUSED(t->fp_CB_vexil_rm_destroy(NULL));
	REFUSED(t->fp_CB_vexil_rm_destroy(&none));
	REFUSED(t->fp_CB_vexil_rm_handler_destroy(NULL));
	REFUSED(t->fp_CB_vexil_rm_handler_destroy(&none));
	REFUSED(t->fp_CB_vexil_rm_finish(NULL));
	REFUSED(t->fp_CB_vexil_rm_get_version(NULL, &version));
	REFUSED(t->fp_CB_vexil_rm_get_version(rules, NULL));
	REFUSED(t->fp_CB_vexil_rm_get_rl_version(NULL, &version));
	REFUSED(t->fp_CB_vexil_rm_get_rl_version(rules, NULL));
	REFUSED(t->fp_CB_vexil_rm_get_rm_version(NULL, &version, "Top"));
	REFUSED(t->fp_CB_vexil_rm_get_rm_version(rules, NULL, "Top"));
	REFUSED(t->fp_CB_vexil_rm_get_rm_version(rules, &version, NULL));
	REFUSED(t->fp_CB_vexil_rm_get_cus_version(NULL, &text));
	REFUSED(t->fp_CB_vexil_rm_get_cus_version(rules, NULL));
	REFUSED(t->fp_CB_vexil_graphic_presetdb_parse(json, NULL));
	REFUSED(rm_find(NULL, "Luma:1", "Top"));
	REFUSED(rm_find(rules, NULL, "Top"));
	REFUSED(rm_handler_find(NULL, "Luma:1", "Top"));
	REFUSED(rm_handler_find(handler, NULL, "Top"));
	NOTHING(rm_get_num_result(NULL));
	NOTHING(rm_handler_get_num_result(NULL));
	rm_print(NULL);
	check(s, version.u16MajorNumber == 1 && !text, "a refused query wrote something");
	CALL(s, json_delete)(json);
	use_rules(s, rules);
	CALL(s, rm_handler_destroy)(&handler);
}

void scenario_nothing(struct story *s)
{
	void *map = small_map(s), *rules = small_rules(s, map);

	nothing_for_maps(s, map);
	nothing_for_rules(s, map, rules);
	drop_rules(s, &rules);
	drop_map(s, &map);
}

/* ---- names ---- */

static void name_lengths(struct story *s, void *map)
{
	static const unsigned int lengths[] = {1,   2,    127,  128,  255, 256,
					       257, 1023, 1024, 1025, 5000};
	struct text name;
	unsigned int i;
	bool done;

	if (!text_begin(s, &name, 6000))
		return;
	for (i = 0; i < sizeof lengths / sizeof lengths[0]; i++) {
		name.length = 0;
		text_fill(&name, 'L', lengths[i]);
		done = CALL(s, pim_insert_regmap)(map, name.bytes, i);
		say(s, "a name of %u characters -> %d", lengths[i], done);
		check(s, done, "a name of %u characters is refused", lengths[i]);
		check(s, !CALL(s, pim_insert_regmap)(map, name.bytes, i), "it is taken twice");
		done = CALL(s, pim_insert_file)(map, name.bytes, "x", 1);
		check(s, done, "a file's name of %u characters is refused", lengths[i]);
	}
	text_end(s, &name);
}

static void name_characters(struct story *s, void *map)
{
	char name[3] = {'Q', 0, 0};
	unsigned int c, taken = 0;
	u64 digest = DIGEST_START;

	for (c = 1; c < 256; c++) {
		bool done;

		name[1] = (char)c;
		done = CALL(s, pim_insert_vregmap)(map, name, (int)c);
		taken += done;
		digest = digest_bytes(digest, &done, 1);
	}
	/* Letters once in either case: 26; digits 10; blank # . / : \ _ */
	say(s, "%u characters taken, digest %016llx", taken, digest);
	check(s, taken == 26 + 10 + 7, "%u characters are allowed in names", taken);
}

static void many_names(struct story *s, void *map)
{
	struct text name;
	unsigned int i, taken = 0;

	if (!text_begin(s, &name, 400))
		return;
	/* One long branch, then many short ones. */
	for (i = 1; i <= 300; i++) {
		name.length = 0;
		text_fill(&name, 'a', i);
		taken += CALL(s, pim_insert_cus_vregmap)(map, name.bytes, (int)i);
	}
	for (i = 0; i < 3000; i++) {
		name.length = 0;
		text_add(&name, "REG_%u/%x", i * 7919 % 3000, i);
		taken += CALL(s, pim_insert_cus_vregmap)(map, name.bytes, -(int)i);
	}
	text_end(s, &name);
	expect_number(s, "names taken", taken, 3300);
}

static void handler_labels(struct story *s, void *map)
{
	char name[16];
	unsigned int i, taken = 0;

	expect(s, "a handler's label with a star",
	       CALL(s, pim_insert_handler)(map, "a*b", receive_table), false);
	for (i = 0; i < 70; i++) {
		put(name, sizeof name, "label_%u", i);
		taken += CALL(s, pim_insert_handler)(map, name, receive_table);
	}
	/* The refused label keeps its place. */
	expect_number(s, "handlers taken", taken, 63);
	expect(s, "a known label", CALL(s, pim_insert_handler)(map, "LABEL_62", receive_block),
	       true);
	expect(s, "a known label without function",
	       CALL(s, pim_insert_handler)(map, "label_0", NULL), true);
	expect(s, "one more", CALL(s, pim_insert_handler)(map, "label_63", receive_table), false);
}

void scenario_names(struct story *s)
{
	static const char *const names[] = {"",     "A",    "a",     "A b",  "A#B",  "a.b/c:d\\e_f",
					    "A-B",  "A+B",  "A\tB",  "Ab\n", "\x80", "\xC4",
					    "\xE4", "\xFF", "A\x7F", "@",    "[",    "`",
					    "{",    "a,b",  "0"};
	static const u32 positions[] = {0, 0x7FFFFFFE, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
	static const int values[] = {0, -1, 2147483647, -2147483647 - 1};
	void *map = NULL;
	unsigned int i;
	char name[16];

	expect(s, "an empty map", CALL(s, pim_init)(&map, NULL, 0), true);
	for (i = 0; i < sizeof names / sizeof names[0]; i++)
		say(s, "register '%s' -> %d", names[i],
		    CALL(s, pim_insert_regmap)(map, names[i], i));
	for (i = 0; i < sizeof positions / sizeof positions[0]; i++) {
		put(name, sizeof name, "position%u", i);
		expect(s, name, CALL(s, pim_insert_regmap)(map, name, positions[i]), i < 2);
	}
	for (i = 0; i < sizeof values / sizeof values[0]; i++) {
		put(name, sizeof name, "value%u", i);
		expect(s, name, CALL(s, pim_insert_vregmap)(map, name, values[i]), true);
		expect(s, name, CALL(s, pim_insert_cus_vregmap)(map, name, values[i]), true);
		say(s, "%s again -> %d", name, CALL(s, pim_insert_vregmap)(map, name, values[i]));
	}
	expect(s, "a file", CALL(s, pim_insert_file)(map, "A", "abc", 3), true);
	expect(s, "a file of that name", CALL(s, pim_insert_file)(map, "a", "d", 1), false);
	expect(s, "a file's name with a star", CALL(s, pim_insert_file)(map, "*", "d", 1), false);
	expect(s, "a file without name", CALL(s, pim_insert_file)(map, "", "d", 1), false);
	name_lengths(s, map);
	name_characters(s, map);
	many_names(s, map);
	handler_labels(s, map);
	drop_map(s, &map);
}
