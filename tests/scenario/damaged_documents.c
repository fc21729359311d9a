// SPDX-License-Identifier: MIT
/*
 * Texts that are no JSON, documents that nest without end, documents with one wrong character.
 */
#include "story.h"

/** Hands a text to every reader of documents there is. */
static void feed_all(struct story *s, const char *what, const char *text)
{
	void *json = CALL(s, json_parse)(text), *map = NULL, *rules = NULL;
	graphic_presetdb_info info;
	unsigned int done = 0;

	if (!json) {
		say(s, "%s: does not parse", what);
		return;
	}
	CALL(s, pim_init)(&map, NULL, 0);
	CALL(s, rm_init)(&rules, NULL, 0);
	fill_bytes(&info, 0, sizeof info);
	done = done * 2 + CALL(s, pim_insert_regmap_json)(map, json);
	done = done * 2 + CALL(s, pim_insert_vregmap_json)(map, json);
	done = done * 2 + CALL(s, pim_insert_cus_vregmap_json)(map, json);
	done = done * 2 + CALL(s, pim_insert)(map, json);
	done = done * 2 + CALL(s, rm_insert_source_json)(rules, json);
	done = done * 2 + CALL(s, rm_insert)(rules, json, map);
	done = done * 2 + CALL(s, rm_finish)(rules);
	done = done * 2 + CALL(s, graphic_presetdb_parse)(json, &info);
	say(s, "%s: answers %02x, sizes %zu and %zu", what, done, CALL(s, pim_get_export_size)(map),
	    CALL(s, rm_get_export_size)(rules));
	drop_rules(s, &rules);
	drop_map(s, &map);
	CALL(s, json_delete)(json);
}

static void nested(struct story *s, unsigned int depth, bool objects, bool closed, bool accepted)
{
	struct text text;
	unsigned int i;
	void *json;
	char what[60];

	if (!text_begin(s, &text, depth * 7 + 40))
		return;
	for (i = 0; i < depth; i++)
		text_add(&text, "%s", objects ? "{\"a\":" : "[");
	text_add(&text, "1");
	if (closed)
		text_fill(&text, objects ? '}' : ']', depth);
	json = CALL(s, json_parse)(text.bytes);
	put(what, sizeof what, "%u %s, %s", depth, objects ? "objects" : "arrays",
	    closed ? "closed" : "open");
	expect(s, what, json != NULL, accepted);
	CALL(s, json_delete)(json);
	text_end(s, &text);
}

/** Real keys, each over something that nests as deep as the reader of JSON allows. */
static void nested_values(struct story *s)
{
	static const char *const heads[] = {
		"{'PqHWRegList':",
		"{'PqHWRegList':{'register':[{'A':",
		"{'PqSWRegList':{'0.version':",
		"{'PqFuncGroups':",
		"{'PqFuncGroups':{'Ip':{'settings':{'S':{'group':",
		"{'PqFuncGroups':{'Ip':{'settings':{'S':{'commonReg':true,'group':{'M':{'hwreg':",
		"{'PqRuleLists':{'S':{'content':",
		"{'PqRuleLists':{'S':{'content':['a'],'define':{'a':",
		"{'PqRuleGroups':{'R':{'rules':[{'comparator':",
		"{'PqRuleGroups':{'R':{'rules':[{'comparator':{},'settings':",
		"{'Preset_PQ_Value':{'Input':",
	};
	struct text text;
	unsigned int i, j, open, objects;
	size_t at;
	char what[90];

	for (i = 0; i < sizeof heads / sizeof heads[0]; i++) {
		for (objects = 0; objects < 2; objects++) {
			if (!text_begin(s, &text, 1000))
				return;
			text_add(&text, "%s", heads[i]);
			for (open = 0, at = 0; at < text.length; at++)
				open += text.bytes[at] == '{' || text.bytes[at] == '[';
			for (j = open; j < 48; j++)
				text_add(&text, "%s", objects ? "{'a':" : "[");
			text_add(&text, "null");
			for (j = open; j < 48; j++)
				text_fill(&text, objects ? '}' : ']', 1);
			/* Close the head's own brackets, the last first. */
			for (at = text_length(heads[i]); at-- > 0;) {
				if (heads[i][at] == '{' || heads[i][at] == '[')
					text_fill(&text, heads[i][at] == '{' ? '}' : ']', 1);
			}
			quote(text.bytes);
			put(what, sizeof what, "%s%s", heads[i], objects ? "{" : "[");
			feed_all(s, what, text.bytes);
			text_end(s, &text);
		}
	}
}

/** A document cut at every place, and with every character changed in turn. */
static void chipped(struct story *s, const char *what, const char *document)
{
	const size_t length = text_length(document);
	struct text text;
	size_t at, parsed = 0, tried = 0;
	unsigned int flip;
	u64 digest = DIGEST_START;

	if (!text_begin(s, &text, length + 16))
		return;
	text_add(&text, "%s", document);
	quote(text.bytes);
	for (at = 0; at < length; at++) {
		const char whole = text.bytes[at];
		void *json;

		text.bytes[at] = '\0';
		json = CALL(s, json_parse)(text.bytes);
		parsed += json != NULL;
		CALL(s, json_delete)(json);
		text.bytes[at] = whole;
	}
	say(s, "%s: %zu of %zu beginnings parse", what, parsed, length);
	parsed = 0;
	for (at = 0; at < length; at++) {
		const char whole = text.bytes[at];

		for (flip = 1; flip < 4; flip++) {
			const char changed = (char)(whole ^ (flip == 3 ? 4 : (int)flip));
			void *map = NULL, *rules = NULL, *json;
			size_t sizes[2];
			bool done[4];

			if (changed < 0x20 || changed >= 0x7F)
				continue;
			text.bytes[at] = changed;
			tried++;
			json = CALL(s, json_parse)(text.bytes);
			parsed += json != NULL;
			if (!json)
				continue;
			map = small_map(s);
			CALL(s, rm_init)(&rules, NULL, 0);
			done[0] = CALL(s, pim_insert_regmap_json)(map, json);
			done[1] = CALL(s, pim_insert)(map, json);
			done[2] = CALL(s, rm_insert_source_json)(rules, json) &&
				  CALL(s, rm_insert)(rules, json, map);
			done[3] = CALL(s, rm_finish)(rules);
			CALL(s, json_delete)(json);
			sizes[0] = CALL(s, pim_get_export_size)(map);
			sizes[1] = CALL(s, rm_get_export_size)(rules);
			digest = digest_bytes(digest, done, sizeof done);
			digest = digest_bytes(digest, sizes, sizeof sizes);
			drop_rules(s, &rules);
			drop_map(s, &map);
		}
		text.bytes[at] = whole;
		if (at % 64 == 0)
			breathe(s);
	}
	say(s, "%s: %zu of %zu changed ones parse, digest %016llx", what, parsed, tried, digest);
	text_end(s, &text);
}

/** A map without room for another node: everything fails, nothing breaks. */
static void full_store(struct story *s)
{
	void *map = small_map(s), *rules = NULL, *again = NULL;
	unsigned int i, stored = 0;
	u32 size;
	char *image;
	char name[16];

	for (i = 0; i < 14000; i++) {
		put(name, sizeof name, "%x", i * 2654435761u);
		stored += CALL(s, pim_insert_file)(map, name, "full", 4);
		if (i % 1024 == 0)
			breathe(s);
	}
	say(s, "%u files are stored", stored);
	check(s, stored > 13000 && stored < 13107, "%u files are stored", stored);
	give(s, "a group for a full map", CALL(s, pim_insert), map,
	     "{'PqFuncGroups':{'Late':{'settings':{'S':{'group':{'M':{'hwreg':{'EN':1}}}}}}}}",
	     false);
	expect(s, "a file", CALL(s, pim_insert_file)(map, "late", "late", 4), false);
	CALL(s, rm_init)(&rules, NULL, 0);
	give_rules(s, "rules over it", rules,
		   "{'PqRuleGroups':{'R':{'rules':[{'comparator':{},'settings':['NR#Low'],'"
		   "children':[]}]}}}",
		   map, true);
	expect(s, "finish them", CALL(s, rm_finish)(rules), true);
	image = export_map(s, "full", map, &size);
	drop_rules(s, &rules);
	drop_map(s, &map);
	if (image) {
		say(s, "adopt -> %d", CALL(s, pim_init)(&again, image, size));
		CALL(s, pim_load_setting_by_name)(again, "NR#Low", receive_block, s);
		drop_map(s, &again);
	}
	put_memory(s, image);
}

void scenario_damaged_documents(struct story *s)
{
	static const struct {
		const char *text;
		bool parses;
	} texts[] = {
		{"", false},
		{" ", false},
		{"\n\t", false},
		{"{", false},
		{"}", false},
		{"[", false},
		{"]", false},
		{"\"", false},
		{"\"\\", false},
		{"\"\\\"", false},
		{"\"\\u", false},
		{"\"\\u12", false},
		{"\"\\uD834\"", false},
		{"\"\\uD834\\u\"", false},
		{"\"\\uD834\\uDD1E\"", true},
		{"\"\\uDD1E\"", false},
		{"\"\\u0041\"", true},
		{"\"\\u0000\"", true},
		{"\"\\x\"", false},
		{"\"\xFF\xFE\"", true},
		{"\xEF\xBB\xBF{}", true},
		{"{}}", true},
		{"{} x", true},
		{"{,}", false},
		{"{1:2}", false},
		{"{\"a\"}", false},
		{"{\"a\":}", false},
		{"{\"a\":1,}", false},
		{"[1,]", false},
		{"[,1]", false},
		{"[1 2]", false},
		{"{\"a\":1 \"b\":2}", false},
		{"nul", false},
		{"null", true},
		{"truex", true},
		{"NaN", false},
		{"Infinity", false},
		{"-", false},
		{"+", false},
		{"0x", false},
		{"0xg", false},
		{"09", false},
		{"[1.5]", false},
		{"[1e3]", false},
		{"[-0x8000000000000000]", true},
		{"[-0x8000000000000001]", false},
		{"[9223372036854775807]", true},
		{"[9223372036854775808]", false},
		{"[00000000000000000000000000000000000000000000000000000000000001]", true},
		{"[000000000000000000000000000000000000000000000000000000000000001]", true},
		{"[0000000000000000000000000000000000000000000000000000000000000001]", false},
		{"/* comment */ {}", false},
		{"{\"a\":1/**/}", false},
		{"'a'", false},
		{"\x01", false},
	};
	static const char *const documents[] = {
		"{'PqHWRegList':{'0.version':{'JsonVersionFormat':'2.1'},'register':[{'AA':0},{'BB'"
		":'0x1F'}]}}",
		"{'VexilVersion':{'#version':{'MajorVersion':2,'Note':'n'}},'PqFuncGroups':{'Dir':{"
		"'Ip':{'settings':{"
		"'S':{'1.PQlevel':'L1','commonReg':true,'group':{'A':{'hwreg':{'EN':1,'GAIN':2}},"
		"'B':{'hwreg':{'EN':1},'lut':{'lut_a':'table.bin'},'hwaddr':{'0x10':1}}}}}}}}}",
		"{'PqRuleLists':{'In':{'content':['a','b']},'V':{'content':0},'Re':{'content':['x']"
		",'define':{"
		"'x':{'V':'[1,0x20)'}}}},'PqRuleGroups':{'R':{'rules':[{'comparator':{'In':['a','b'"
		"],'Re':'x'},"
		"'settings':['NR#Low','Preset#Day'],'children':['R2']}]},'R2':{'rules':[{'"
		"comparator':{'V':'(3,9)'},"
		"'settings':[],'children':[]}]}}}",
	};
	struct text text;
	unsigned int i;
	void *json;

	for (i = 0; i < sizeof texts / sizeof texts[0]; i++) {
		json = CALL(s, json_parse)(texts[i].text);
		expect(s, texts[i].text, json != NULL, texts[i].parses);
		CALL(s, json_delete)(json);
	}
	for (i = 0; i < 2; i++) {
		nested(s, 47, i, true, true);
		nested(s, 48, i, true, true);
		nested(s, 49, i, true, false);
		nested(s, 50, i, true, false);
		nested(s, 48, i, false, false);
		nested(s, 5000, i, true, false);
		nested(s, 50000, i, false, false);
	}
	nested_values(s);
	feed_all(s, "the same member many times",
		 "{\"PqHWRegList\":{},\"PqHWRegList\":7,\"PqFuncGroups\":{\"A\":{}},"
		 "\"PqFuncGroups\":{}}");
	feed_all(s, "members without name",
		 "{\"\":{\"\":{\"\":1}},\"PqFuncGroups\":{\"\":{\"settings\":{\"\":"
		 "{\"group\":{\"\":{\"hwreg\":{\"\":1}}}}}}}}");
	if (text_begin(s, &text, 300000)) {
		text_add(&text, "{\"");
		text_fill(&text, 'k', 100000);
		text_add(&text, "\":\"");
		text_fill(&text, 'v', 100000);
		text_add(&text, "\"}");
		feed_all(s, "a long member", text.bytes);
		text.length = 0;
		text_add(&text, "[0");
		for (i = 0; i < 20000; i++)
			text_add(&text, ",%u", i);
		text_add(&text, "]");
		feed_all(s, "a long array", text.bytes);
		text.bytes[text.length - 1] = '\0';
		feed_all(s, "a long array without end", text.bytes);
		text_end(s, &text);
	}
	for (i = 0; i < sizeof documents / sizeof documents[0]; i++)
		chipped(s, i == 0 ? "a list" : i == 1 ? "a group" : "rules", documents[i]);
	full_store(s);
}
