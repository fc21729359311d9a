// SPDX-License-Identifier: MIT
/*
 * Every slot without memory: each allocation that a call asks for is refused in turn, then all from
 * each on. What was there before says afterwards what it said, its images are sound, and with
 * memory again the call does what it should.
 *
 * No part of the transcript: it needs somewhere where allocations can be refused.
 */
#include "story.h"

static const char new_hardware[] = "{'PqHWRegList':{'register':[{'GAINS':10},{'E':11},{'Z':12}]}}";
static const char new_software[] = "{'PqSWRegList':{'register':[{'SW_MO':10},{'OTHER':11}]},"
				   "'PqCusSWRegList':{'register':[{'CUS':12}]}}";
static const char new_groups[] =
	"{'PqFuncGroups':{"
	"'Shelf':{'Sharp':{'settings':{"
	"'SH':{'1.PQlevel':'PI','group':{"
	"'Soft':{'hwreg':{'EN':1,'GAIN':2}},"
	"'Hard':{'hwreg':{'GAIN':2},'swreg':{'SW_STEP':2},'lut':{'lut_a':'table.bin'},"
	"'alg':{'other':'table.bin'},'hwaddr':{'0x1F4':1},'cus_swreg':{'CUS_SHOP':2}}}},"
	"'Tint':{'1.PresetRegs':'TINT_REGS','group':{'Warm':{'hwreg':{'LEVEL':7}}}}}}}}}";
static const char new_sources[] =
	"{'PqRuleLists':{'Zone':{'content':['Left','Right']},'Depth':{'content':0},"
	"'Mood':{'content':['Calm'],'define':{'Calm':{'Depth':'[0,9]'}}}}}";
/* Its ranges hold no number: old rules answer for themselves. */
static const char new_rules[] =
	"{'PqRuleGroups':{"
	"'Extra':{'rules':[{'comparator':{'Input':['Tuner','HDMI2'],'Luma':'(5,5)'},"
	"'settings':['NR#High','Preset#Night'],'children':['Deeper']}]},"
	"'Deeper':{'rules':[{'comparator':{'Scene':'Never'},'settings':['NR#Low'],'children':[]}]}}}";
static const char preset_document[] =
	"{'Preset_PQ_Value':{'Input':{'range':'limit','colorspace':'BT601','format':'YUV'}}}";

static const ST_PQ_REG_INFO registers[] = {
	{E_PQ_SRC0_DOMAIN, 0x100, 1u << 16, 1},
	{E_PQ_SRC1_DOMAIN, 0x104, 8u << 16, 1},
	{E_PQ_IP_DOMAIN, 0x108, 4u << 16, 1},
	{E_PQ_IP_DOMAIN, 0x108, 2u << 16 | 4u << 8, 1},
};

/** Everything that may be there when an allocation is refused, and what the call at hand makes. */
struct held {
	void *map, *rules;             /* being built; finished */
	void *adopted, *adopted_rules; /* over the images */
	void *handler;                 /* over the adopted rules */
	char *map_image, *rules_image;
	u32 map_size, rules_size;
	void *made_map, *made_rules, *made_handler;
	char *made_image;
	void *document;
	bool unsealed; /* the rules have sources that their image does not count yet */
};

static void drop(struct story *s, struct held *h)
{
	put_memory(s, h->made_image);
	if (h->made_handler)
		CALL(s, rm_handler_destroy)(&h->made_handler);
	if (h->handler)
		CALL(s, rm_handler_destroy)(&h->handler);
	CALL(s, json_delete)(h->document);
	drop_rules(s, &h->made_rules);
	drop_map(s, &h->made_map);
	drop_rules(s, &h->adopted_rules);
	drop_map(s, &h->adopted);
	drop_rules(s, &h->rules);
	drop_map(s, &h->map);
	put_memory(s, h->map_image);
	put_memory(s, h->rules_image);
}

/** A map over an image, with those who receive from it. */
static bool adopt(struct story *s, void **map, char *image, u32 size)
{
	return CALL(s, pim_init)(map, image, size) &&
	       CALL(s, pim_insert_handler)(*map, "lut_a", receive_table) &&
	       CALL(s, pim_insert_alg_handler)(*map, receive_algorithm);
}

static bool hold(struct story *s, struct held *h)
{
	fill_bytes(h, 0, sizeof *h);
	h->map = small_map(s);
	h->rules = small_rules(s, h->map);
	if (!h->map || !h->rules)
		return false;
	h->map_image = export_map(s, "map", h->map, &h->map_size);
	h->rules_image = export_rules(s, "rules", h->rules, &h->rules_size);
	return h->map_image && h->rules_image && adopt(s, &h->adopted, h->map_image, h->map_size) &&
	       CALL(s, rm_init)(&h->adopted_rules, h->rules_image, h->rules_size) &&
	       CALL(s, rm_create_handler)(h->adopted_rules, &h->handler);
}

/* ---- asking ---- */

static const char *const states[] = {"Input:Tuner;Luma:64;Wide:I", "Luma:0;Lux:10;Input:HDMI1",
				     "Luma:500"};
#define STATES (sizeof states / sizeof states[0])

static void ask_map(struct story *s, void *map)
{
	static const char *const names[] = {"NR#Low",     "NR#High",      "NR#commonReg", "Sync#On",
					    "Preset#Day", "Preset#Night", "Empty#None"};
	vexil_version version = {0, 0, 0};
	unsigned int i;

	if (!map)
		return;
	for (i = 0; i < sizeof names / sizeof names[0]; i++) {
		CALL(s, pim_load_setting_by_name)(map, names[i], receive_block, s);
		say(s, "%u %u", pim_query_setting_id(map, names[i]),
		    pim_query_preset_id(map, names[i]));
	}
	CALL(s, pim_load_common_reg_setting)(map, receive_block, s);
	tell_version(s, "Noise", CALL(s, pim_get_pim_version)(map, &version, "Noise"), &version);
	say(s, "%u", CALL(s, pim_get_reg_num)(map, 16, E_PQLV_MAX));
}

static void ask_rules(struct story *s, void *rules)
{
	u16 *ids = NULL;
	unsigned int i;
	size_t count;

	for (i = 0; rules && i < STATES; i++) {
		say(s, "%d",
		    CALL(s, rm_clear)(rules) && CALL(s, rm_set)(rules, states[i], 7) &&
			    CALL(s, rm_trigger)(rules, NULL));
		count = CALL(s, rm_get_result)(rules, &ids);
		tell_ids(s, states[i], ids, count);
		count = CALL(s, rm_get_preset)(rules, &ids);
		tell_ids(s, states[i], ids, count);
	}
}

static void ask_handler(struct story *s, void *handler)
{
	u16 *ids = NULL;
	unsigned int i;
	size_t count;

	for (i = 0; handler && i < STATES; i++) {
		say(s, "%d",
		    CALL(s, rm_handler_clear)(handler) &&
			    CALL(s, rm_handler_set)(handler, states[i], 7) &&
			    CALL(s, rm_handler_trigger)(handler, NULL));
		count = CALL(s, rm_handler_get_result)(handler, &ids);
		tell_ids(s, states[i], ids, count);
	}
}

/** Digest of what one thing says; 0 when it is not there. */
static u64 said_by(struct story *s, void (*ask)(struct story *s, void *of), void *of)
{
	s->digest = DIGEST_START;
	ask(s, of);
	return of ? s->digest : 0;
}

/** What everything says. */
struct answers {
	u64 map, rules, adopted, adopted_rules, handler;
};

static void ask_all(struct story *s, const struct held *h, struct answers *answers)
{
	answers->map = said_by(s, ask_map, h->map);
	answers->rules = said_by(s, ask_rules, h->rules);
	answers->adopted = said_by(s, ask_map, h->adopted);
	answers->adopted_rules = said_by(s, ask_rules, h->adopted_rules);
	answers->handler = said_by(s, ask_handler, h->handler);
}

static void check_sound(struct story *s, const char *what, const char *image, u32 size)
{
	vexil_image_fault fault;
	bool sound;

	if (!image)
		return;
	sound = vexil_image_verify(image, size, &fault);
	check(s, sound, "%s: %s, node %u", what, vexil_image_code_text(fault.code), fault.node);
}

/** The map's image is sound, and over it stands a map that says the same. */
static void check_map_image(struct story *s, void *map, const struct answers *before)
{
	void *adopted = NULL;
	u32 size;
	char *image = export_map(s, "map", map, &size);

	check_sound(s, "the map's image", image, size);
	check(s, adopt(s, &adopted, image, size), "the map's image is not adopted");
	check(s, said_by(s, ask_map, adopted) == before->adopted, "the map's image has changed");
	drop_map(s, &adopted);
	put_memory(s, image);
}

static void check_rules_image(struct story *s, void *rules, const struct answers *before)
{
	void *adopted = NULL;
	u32 size;
	char *image = export_rules(s, "rules", rules, &size);

	check_sound(s, "the rules' image", image, size);
	check(s, CALL(s, rm_init)(&adopted, image, size), "the rules' image is not adopted");
	check(s, said_by(s, ask_rules, adopted) == before->adopted_rules,
	      "the rules' image has changed");
	drop_rules(s, &adopted);
	put_memory(s, image);
}

/** What was there is there; what a call has destroyed is not asked. */
static void check_intact(struct story *s, const struct held *h, const struct answers *before)
{
	struct answers now;

	ask_all(s, h, &now);
	check(s, !now.map || now.map == before->map, "the map has changed");
	check(s, !now.rules || now.rules == before->rules, "the rules have changed");
	check(s, !now.adopted || now.adopted == before->adopted, "the adopted map has changed");
	check(s, !now.adopted_rules || now.adopted_rules == before->adopted_rules,
	      "the adopted rules have changed");
	check(s, !now.handler || now.handler == before->handler, "the handler has changed");
	if (h->map)
		check_map_image(s, h->map, before);
	if (h->rules && !h->unsealed)
		check_rules_image(s, h->rules, before);
	check_sound(s, "the adopted map", h->map_image, h->map_size);
	check_sound(s, "the adopted rules", h->rules_image, h->rules_size);
}

/* ---- the calls ---- */

static void take_document(struct story *s, struct held *h, const char *text)
{
	struct text copy;

	if (!text_begin(s, &copy, text_length(text) + 8))
		return;
	text_add(&copy, "%s", text);
	quote(copy.bytes);
	h->document = CALL(s, json_parse)(copy.bytes);
	check(s, h->document, "a document is refused");
	text_end(s, &copy);
}

#define CALL_BOOL(name, ...)                                                                       \
	static bool call_##name(struct story *s, struct held *h)                                   \
	{                                                                                          \
		(void)h;                                                                           \
		return CALL(s, name)(__VA_ARGS__);                                                 \
	}
#define DOCUMENT(name, text)                                                                       \
	static void take_##name(struct story *s, struct held *h)                                   \
	{                                                                                          \
		take_document(s, h, text);                                                         \
	}

DOCUMENT(hardware, new_hardware)
DOCUMENT(software, new_software)
DOCUMENT(groups, new_groups)
DOCUMENT(new_rules, new_rules)
DOCUMENT(presets, preset_document)

static void take_sources(struct story *s, struct held *h)
{
	take_document(s, h, new_sources);
	h->unsealed = true;
}

static bool call_json_parse(struct story *s, struct held *h)
{
	h->document = CALL(s, json_parse)("{\"a\": [1, \"text\", {\"b\": \"0x10\"}], \"c\": null}");
	return h->document;
}

static bool call_json_delete(struct story *s, struct held *h)
{
	CALL(s, json_delete)(h->document);
	h->document = NULL;
	return true;
}

/** Nothing: the call is made again as things are. */
static void as_it_is(struct story *s, struct held *h)
{
	(void)s;
	(void)h;
}

static void drop_made_map(struct story *s, struct held *h)
{
	drop_map(s, &h->made_map);
}

static void drop_made_rules(struct story *s, struct held *h)
{
	drop_rules(s, &h->made_rules);
}

static void copy_map_image(struct story *s, struct held *h)
{
	h->made_image = copy_image(s, h->map_image, h->map_size);
}

static void copy_rules_image(struct story *s, struct held *h)
{
	h->made_image = copy_image(s, h->rules_image, h->rules_size);
}

CALL_BOOL(pim_init, &h->made_map, NULL, 0)
CALL_BOOL(pim_init_with_regmerge, &h->made_map, h->made_image, h->map_size, registers,
	  sizeof registers / sizeof registers[0])

static bool call_pim_export(struct story *s, struct held *h)
{
	return CALL(s, pim_export)(h->adopted, h->made_image) == h->map_size;
}
CALL_BOOL(pim_get_export_size, h->map)

static void make_map(struct story *s, struct held *h)
{
	drop_made_map(s, h);
	check(s, CALL(s, pim_init)(&h->made_map, NULL, 0), "no empty map");
}
CALL_BOOL(pim_merge, h->made_map, h->map, h->adopted)

static bool call_pim_get_reg_num(struct story *s, struct held *h)
{
	CALL(s, pim_get_reg_num)(h->adopted, 16, E_PQLV_MAX);
	return true;
}

CALL_BOOL(pim_insert_regmap, h->map, "GAI", 20)
CALL_BOOL(pim_insert_regmap_json, h->map, h->document)
CALL_BOOL(pim_insert_vregmap, h->map, "SW_ST", 20)
CALL_BOOL(pim_insert_vregmap_json, h->map, h->document)
CALL_BOOL(pim_insert_cus_vregmap, h->map, "CUS_SH", 20)
CALL_BOOL(pim_insert_cus_vregmap_json, h->map, h->document)
CALL_BOOL(pim_insert_file, h->map, "tables.bin", h->map_image, h->map_size)
CALL_BOOL(pim_insert_handler, h->map, "lut", receive_table)
CALL_BOOL(pim_insert_alg_handler, h->map, receive_algorithm)
CALL_BOOL(pim_insert, h->map, h->document)

static bool call_pim_load_setting_by_name(struct story *s, struct held *h)
{
	CALL(s, pim_load_setting_by_name)(h->map, "NR#High", receive_block, s);
	return true;
}
static bool call_pim_load_setting(struct story *s, struct held *h)
{
	CALL(s, pim_load_setting)
	(h->map, pim_query_setting_id(h->map, "NR#High"), true, receive_block, s);
	return true;
}
static bool call_pim_load_setting_count(struct story *s, struct held *h)
{
	return CALL(s, pim_load_setting_count)(h->map, pim_query_setting_id(h->map, "NR#High"), 99,
					       receive_block, s) < 99;
}
static bool call_pim_load_preset(struct story *s, struct held *h)
{
	u16 id = pim_query_preset_id(h->map, "Preset#Night");

	CALL(s, pim_load_preset)(h->map, &id, 1, (char *)"MODE_REGS", receive_block, s);
	return true;
}
static bool call_pim_load_common_reg_setting(struct story *s, struct held *h)
{
	CALL(s, pim_load_common_reg_setting)(h->map, receive_block, s);
	return true;
}
static bool call_pim_get_setting(struct story *s, struct held *h)
{
	char *label = NULL;

	CALL(s, pim_get_setting)(h->map, pim_query_setting_id(h->map, "NR#High"), &label);
	return same_text(label, "NR#High");
}
CALL_BOOL(pim_destroy, &h->map)
CALL_BOOL(pim_finish, h->map)

/** A version of one kind or another, into nowhere. */
#define CALL_VERSION(name, of, ...)                                                                \
	static bool call_##name(struct story *s, struct held *h)                                   \
	{                                                                                          \
		vexil_version version;                                                             \
                                                                                                   \
		return CALL(s, name)(of, &version, ##__VA_ARGS__);                                 \
	}
CALL_VERSION(pim_get_version, h->map)
CALL_VERSION(pim_get_hwreg_version, h->map)
CALL_VERSION(pim_get_swreg_version, h->map)
CALL_VERSION(pim_get_cus_swreg_version, h->map)
CALL_VERSION(pim_get_pim_version, h->map, "Noise")
CALL_VERSION(rm_get_version, h->rules)
CALL_VERSION(rm_get_rl_version, h->rules)
CALL_VERSION(rm_get_rm_version, h->rules, "Top")

static bool call_pim_get_cus_version(struct story *s, struct held *h)
{
	char *note;

	return CALL(s, pim_get_cus_version)(h->map, &note);
}
static bool call_rm_get_cus_version(struct story *s, struct held *h)
{
	char *note;

	return CALL(s, rm_get_cus_version)(h->rules, &note);
}

CALL_BOOL(rm_init, &h->made_rules, h->made_image, h->made_image ? h->rules_size : 0)
CALL_BOOL(rm_get_export_size, h->rules)

static bool call_rm_export(struct story *s, struct held *h)
{
	return CALL(s, rm_export)(h->adopted_rules, h->made_image) == h->rules_size;
}

static void make_rules(struct story *s, struct held *h)
{
	drop_made_rules(s, h);
	check(s, CALL(s, rm_init)(&h->made_rules, NULL, 0), "no empty rules");
}
static void make_both(struct story *s, struct held *h)
{
	make_map(s, h);
	check(s, CALL(s, pim_merge)(h->made_map, h->map, h->adopted), "the maps are not merged");
	make_rules(s, h);
}
CALL_BOOL(rm_merge, h->made_rules, h->rules, h->adopted_rules, h->made_map)
CALL_BOOL(rm_insert_source_json, h->rules, h->document)
CALL_BOOL(rm_insert, h->rules, h->document, h->map)
CALL_BOOL(rm_set, h->rules, "Input:Tuner;Luma:64", 7)

static bool call_rm_trigger(struct story *s, struct held *h)
{
	return CALL(s, rm_trigger)(h->rules, "Nobody;Top;Below;Last");
}
static void state_sources(struct story *s, struct held *h)
{
	CALL(s, rm_set)(h->rules, states[0], 7);
	CALL(s, rm_handler_set)(h->handler, states[0], 7);
}
static bool call_rm_handler_trigger(struct story *s, struct held *h)
{
	return CALL(s, rm_handler_trigger)(h->handler, "Nobody;Top;Below;Last");
}
CALL_BOOL(rm_clear, h->rules)

/** Lists are as long as they are. */
#define CALL_LIST(name, of)                                                                        \
	static bool call_##name(struct story *s, struct held *h)                                   \
	{                                                                                          \
		u16 *ids = NULL;                                                                   \
                                                                                                   \
		CALL(s, name)(of, &ids);                                                           \
		return true;                                                                       \
	}
CALL_LIST(rm_get_result, h->rules)
CALL_LIST(rm_get_preset, h->rules)
CALL_LIST(rm_handler_get_result, h->handler)
CALL_LIST(rm_handler_get_preset, h->handler)

CALL_BOOL(rm_create_handler, h->adopted_rules, &h->made_handler)
CALL_BOOL(rm_handler_set, h->handler, "Input:Tuner;Luma:64", 7)
CALL_BOOL(rm_handler_clear, h->handler)
CALL_BOOL(rm_destroy, &h->rules)
CALL_BOOL(rm_handler_destroy, &h->handler)

static void insert_more(struct story *s, struct held *h)
{
	take_sources(s, h);
	check(s, CALL(s, rm_insert_source_json)(h->rules, h->document), "sources are refused");
}
CALL_BOOL(rm_finish, h->rules)

static bool call_graphic_presetdb_parse(struct story *s, struct held *h)
{
	graphic_presetdb_info info;

	return CALL(s, graphic_presetdb_parse)(h->document, &info);
}

/* ---- the table ---- */

struct step {
	bool (*call)(struct story *s, struct held *h);
	bool asks; /* for memory */
	void (*prepare)(struct story *s, struct held *h);
	void (*clear_away)(struct story *s, struct held *h); /* before it is called again */
};

#define ASKS(name, ...) [SLOT_##name] = {call_##name, true, __VA_ARGS__}
#define NEVER(name, ...) [SLOT_##name] = {call_##name, false, __VA_ARGS__}

static const struct step steps[SLOT_COUNT] = {
	ASKS(json_parse, NULL, NULL),
	NEVER(json_delete, take_groups, NULL),
	ASKS(pim_init, NULL, drop_made_map),
	ASKS(pim_init_with_regmerge, copy_map_image, drop_made_map),
	NEVER(pim_export, copy_map_image, NULL),
	NEVER(pim_get_export_size, NULL, NULL),
	ASKS(pim_merge, make_map, make_map),
	NEVER(pim_get_reg_num, NULL, NULL),
	ASKS(pim_insert_regmap, NULL, NULL),
	ASKS(pim_insert_regmap_json, take_hardware, as_it_is),
	ASKS(pim_insert_vregmap, NULL, NULL),
	ASKS(pim_insert_vregmap_json, take_software, as_it_is),
	ASKS(pim_insert_cus_vregmap, NULL, NULL),
	ASKS(pim_insert_cus_vregmap_json, take_software, as_it_is),
	ASKS(pim_insert_file, NULL, NULL),
	ASKS(pim_insert_handler, NULL, NULL),
	NEVER(pim_insert_alg_handler, NULL, NULL),
	ASKS(pim_insert, take_groups, NULL),
	NEVER(pim_load_setting_by_name, NULL, NULL),
	NEVER(pim_load_setting, NULL, NULL),
	NEVER(pim_load_setting_count, NULL, NULL),
	NEVER(pim_load_preset, NULL, NULL),
	NEVER(pim_load_common_reg_setting, NULL, NULL),
	NEVER(pim_get_setting, NULL, NULL),
	NEVER(pim_destroy, NULL, NULL),
	NEVER(pim_finish, NULL, NULL),
	NEVER(pim_get_version, NULL, NULL),
	NEVER(pim_get_hwreg_version, NULL, NULL),
	NEVER(pim_get_swreg_version, NULL, NULL),
	NEVER(pim_get_cus_swreg_version, NULL, NULL),
	NEVER(pim_get_pim_version, NULL, NULL),
	NEVER(pim_get_cus_version, NULL, NULL),
	ASKS(rm_init, copy_rules_image, drop_made_rules),
	NEVER(rm_get_export_size, NULL, NULL),
	NEVER(rm_export, copy_rules_image, NULL),
	ASKS(rm_merge, make_both, make_rules),
	ASKS(rm_insert_source_json, take_sources, NULL),
	ASKS(rm_insert, take_new_rules, as_it_is),
	NEVER(rm_set, NULL, NULL),
	ASKS(rm_trigger, state_sources, state_sources),
	NEVER(rm_clear, NULL, NULL),
	NEVER(rm_get_result, NULL, NULL),
	NEVER(rm_get_preset, NULL, NULL),
	ASKS(rm_create_handler, NULL, NULL),
	NEVER(rm_handler_set, NULL, NULL),
	ASKS(rm_handler_trigger, state_sources, state_sources),
	NEVER(rm_handler_clear, NULL, NULL),
	NEVER(rm_handler_get_result, NULL, NULL),
	NEVER(rm_handler_get_preset, NULL, NULL),
	NEVER(rm_destroy, NULL, NULL),
	NEVER(rm_handler_destroy, NULL, NULL),
	ASKS(rm_finish, insert_more, NULL),
	NEVER(rm_get_version, NULL, NULL),
	NEVER(rm_get_rl_version, NULL, NULL),
	NEVER(rm_get_rm_version, NULL, NULL),
	NEVER(rm_get_cus_version, NULL, NULL),
	NEVER(graphic_presetdb_parse, take_presets, NULL),
};

/* ---- the sweep ---- */

/** No call asks for more. */
#define ENDLESS 5000

/**
 * One call with the @nth request refused, with @rest all after it, too; what it leaves, and the
 * same call with memory. Return: whether something was refused.
 */
static bool call_refused(struct story *s, const struct step *step, unsigned int nth, bool rest,
			 const struct answers *before)
{
	const struct vexil_scenario_env *env = s->env;
	struct held h;
	bool refused = false, done;

	if (!check(s, hold(s, &h), "there is nothing to begin with")) {
		drop(s, &h);
		return false;
	}
	if (step->prepare)
		step->prepare(s, &h);
	env->refuse(env->context, nth, rest);
	done = step->call(s, &h);
	refused = env->refuse(env->context, 0, false);
	check(s, done || (refused && step->asks), "false without memory that it needs");
	check_intact(s, &h, before);
	if (step->clear_away)
		step->clear_away(s, &h);
	if (step->clear_away || !done)
		check(s, step->call(s, &h), "refused request %u: false with memory", nth);
	check_intact(s, &h, before);
	if (h.unsealed && h.rules) {
		h.unsealed = false;
		check(s, CALL(s, rm_finish)(h.rules), "the rules cannot be finished");
		check_intact(s, &h, before);
	}
	drop(s, &h);
	breathe(s);
	return refused;
}

static bool verify_refused(struct story *s, const char *image, u32 size, unsigned int nth)
{
	const struct vexil_scenario_env *env = s->env;
	vexil_image_fault fault;
	bool sound, refused;

	env->refuse(env->context, nth, false);
	sound = vexil_image_verify(image, size, &fault);
	refused = env->refuse(env->context, 0, false);
	check(s, sound ? !(refused && env->exact) : refused && fault.code == VEXIL_IMAGE_NO_MEMORY,
	      "%s, refused %d", vexil_image_code_text(fault.code), refused);
	return refused;
}

/** The verifier, which has no slot. Return: how often it was refused memory. */
static unsigned int sweep_verifier(struct story *s)
{
	struct held h;
	unsigned int nth = 1;

	s->scenario = "image_verify";
	if (check(s, hold(s, &h), "there is nothing to begin with")) {
		while (verify_refused(s, h.map_image, h.map_size, nth))
			nth++;
		check(s, nth > 1, "it asks for no memory");
	}
	drop(s, &h);
	return nth - 1;
}

static unsigned int sweep_slot(struct story *s, const struct step *step, bool rest,
			       const struct answers *before)
{
	unsigned int nth = 1;

	while (nth < ENDLESS && !s->failed && call_refused(s, step, nth, rest, before))
		nth++;
	check(s, step->asks ? nth > 1 : nth == 1 || !s->env->exact, "it asks for memory %u times",
	      nth - 1);
	return nth - 1;
}

static unsigned int sweep_all(struct story *s)
{
	static const char *const names[SLOT_COUNT] = {
#define VEXIL_SLOT_NAME(result, name, arguments) #name,
		VEXIL_SERVICES(VEXIL_SLOT_NAME)
#undef VEXIL_SLOT_NAME
	};
	struct answers before;
	struct held h;
	unsigned int i, one, rest, asks = 0, all = 0;

	fill_bytes(&before, 0, sizeof before);
	if (check(s, hold(s, &h), "there is nothing to begin with"))
		ask_all(s, &h, &before);
	drop(s, &h);
	for (i = 0; i < SLOT_COUNT && !s->failed; i++) {
		s->scenario = names[i];
		if (!check(s, steps[i].call, "no step"))
			break;
		one = sweep_slot(s, &steps[i], false, &before);
		rest = sweep_slot(s, &steps[i], true, &before);
		asks += steps[i].asks;
		all += one + rest;
		s->round = 1;
		if (one || rest)
			say(s, "vexil sweep: %s: %u in turn, %u and all after it", names[i], one,
			    rest);
		s->round = 2;
	}
	s->scenario = "sweep";
	check(s, i == SLOT_COUNT, "%u slots of %u", i, (unsigned int)SLOT_COUNT);
	all += sweep_verifier(s);
	s->round = 1;
	say(s, "vexil sweep: %u slots, %u ask for memory, %u refusals, failed %u", i, asks, all,
	    s->failed);
	return s->failed;
}

int vexil_scenario_sweep(const _PUBIF_VEXIL *table, const struct vexil_scenario_env *env)
{
	struct story *s;
	int result;

	if (!env->refuse)
		return -1;
	s = env->allocate(env->context, sizeof *s);
	if (!s)
		return -1;
	fill_bytes(s, 0, sizeof *s);
	s->table = table;
	s->env = env;
	s->scenario = "sweep";
	s->round = 2; /* of what is asked, only the digest counts */
	story_current = s;
	result = sweep_all(s) ? 1 : 0;
	story_current = NULL;
	env->release(env->context, s);
	return result;
}
