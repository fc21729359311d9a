// SPDX-License-Identifier: MIT
/*
 * What can be wrong with register lists and function groups, and with what is adopted and merged.
 */
#include "story.h"

static void *empty_map(struct story *s)
{
	void *map = NULL;

	check(s, CALL(s, pim_init)(&map, NULL, 0), "no empty map");
	return map;
}

static void tell_list_versions(struct story *s, void *map)
{
	vexil_version version = {0, 0, 0};

	CALL(s, pim_get_hwreg_version)(map, &version);
	tell_version(s, "  hardware", true, &version);
	CALL(s, pim_get_swreg_version)(map, &version);
	tell_version(s, "  software", true, &version);
	CALL(s, pim_get_cus_swreg_version)(map, &version);
	tell_version(s, "  customer", true, &version);
}

/* ---- lists ---- */

void scenario_lists(struct story *s)
{
	static const char *const hardware[] = {
		"{}",
		"[]",
		"7",
		"{'Other':{}}",
		"{'PqHWRegList':7}",
		"{'PqHWRegList':{}}",
		"{'PqHWRegList':{'register':{}}}",
		"{'PqHWRegList':{'register':[]}}",
		"{'PqHWRegList':{'register':[{'A':3},{'B':'x'},{},7,'text',[],[1],null,{'C':true}]}"
		"}",
		"{'pqhwreglist':{'REGISTER':[{'A':4},{'D':2147483646},{'E':2147483647},{'F':-1},"
		"{'G':4294967296},{'H':'0x10'},{'I':0x20},{'J':010},{'K*':1},{'':2}]}}",
		"{'PqHWRegList':{'0.version':{'JsonVersionFormat':'3.12','Revision':'10'},'"
		"register':[{'V1':0}]}}",
		"{'PqHWRegList':{'0.version':{'JsonVersionFormat':'1.10','Revision':10},'register':"
		"[{'V2':0}]}}",
		"{'PqHWRegList':{'0.version':{'JsonVersionFormat':' a . b "
		"','Revision':'zz'},'register':[{'V3':0}]}}",
		"{'PqHWRegList':{'0.version':{'JsonVersionFormat':'1.2.3','Revision':-1},'register'"
		":[{'V4':0}]}}",
		"{'PqHWRegList':{'0.version':{'JsonVersionFormat':'12345.67890'},'register':[{'V5':"
		"0}]}}",
		"{'PqHWRegList':{'0.version':{'JsonVersionFormat':''},'register':[{'V6':0}]}}",
		"{'PqHWRegList':{'0.version':{'JsonVersionFormat':5,'MajorVersion':6,'MinorVersion'"
		":'7'},'register':[{'V7':0}]}}",
		"{'PqHWRegList':{'0.version':{'MajorVersion':65537,'MinorVersion':-1,'Revision':"
		"4294967295},'register':[{'V8':0}]}}",
		"{'PqHWRegList':{'0.version':[{'MajorVersion':9}],'register':[{'V9':0}]}}",
		"{'PqHWRegList':{'0.version':7,'register':[{'V10':0}]}}",
	};
	static const char *const software[] = {
		"{}",
		"{'PqSWRegList':{'#version':{'MajorVersion':9},'register':[{'A':-1},{'A':2},{'B':'"
		"x'},{}]}}",
		"{'PqCusSWRegList':{'0.version':{'MajorVersion':9},'register':[{'A':1},{'C':null}]}"
		"}",
		"{'PqSWRegList':{'0.version':{'MajorVersion':2,'Revision':1}},"
		"'PqCusSWRegList':{'#version':{'MajorVersion':3,'Revision':2}}}",
		"{'PqSWRegList':{'register':[{'N':-2147483648},{'O':9223372036854775807},{'P':'"
		"0xFFFFFFFFF'}]}}",
	};
	void *map = empty_map(s);
	struct text text;
	unsigned int i;

	for (i = 0; i < sizeof hardware / sizeof hardware[0]; i++) {
		give(s, hardware[i], CALL(s, pim_insert_regmap_json), map, hardware[i], true);
		tell_list_versions(s, map);
	}
	for (i = 0; i < sizeof software / sizeof software[0]; i++) {
		give(s, software[i], CALL(s, pim_insert_vregmap_json), map, software[i], true);
		give(s, "as a customer list", CALL(s, pim_insert_cus_vregmap_json), map,
		     software[i], true);
		tell_list_versions(s, map);
	}
	if (text_begin(s, &text, 1 << 17)) {
		/* Long names, and more of them than any list has. */
		text_add(&text, "{\"PqHWRegList\":{\"register\":[{\"");
		text_fill(&text, 'n', 40000);
		text_add(&text, "\":1}");
		for (i = 0; i < 2500; i++)
			text_add(&text, ",{\"R%u\":%u}", i, i);
		text_add(&text, "]}}");
		expect(s, "a long list", feed(s, CALL(s, pim_insert_regmap_json), map, text.bytes),
		       true);
		expect(s, "R2499 again", CALL(s, pim_insert_regmap)(map, "r2499", 1), false);
		text_end(s, &text);
	}
	CALL(s, pim_finish)(map);
	give(s, "a list after finish", CALL(s, pim_insert_regmap_json), map,
	     "{'PqHWRegList':{'register':[{'LATE':1}]}}", true);
	drop_map(s, &map);
}

/* ---- function groups ---- */

static void group_versions(struct story *s, void *map)
{
	static const struct {
		const char *version;
		bool accepted;
	} versions[] = {
		{"{'#version':{'MajorVersion':2,'MinorVersion':2,'Note':'a note of more than "
		 "thirty-one characters'}}",
		 true},
		{"{'#version':{'MajorVersion':2,'MinorVersion':0,'Note':'short'}}", true},
		{"{'#version':{'MajorVersion':2,'MinorVersion':3}}", false},
		{"{'#version':{'MajorVersion':3,'MinorVersion':0}}", false},
		{"{'#version':{'MajorVersion':1,'MinorVersion':9}}", false},
		{"{'#version':{'JsonVersionFormat':'2.2'}}", true},
		{"{'#version':{'JsonVersionFormat':'2.10'}}", false},
		{"{'#version':{'MajorVersion':2,'MinorVersion':1}}", true},
		{"{'#version':7}", true},
		{"{}", true},
		{"7", true},
	};
	vexil_version version = {0, 0, 0};
	struct text text;
	char *note = NULL;
	unsigned int i;

	for (i = 0; i < sizeof versions / sizeof versions[0]; i++) {
		if (!text_begin(s, &text, 400))
			return;
		text_add(&text, "{'VexilVersion':%s}", versions[i].version);
		give(s, versions[i].version, CALL(s, pim_insert), map, text.bytes,
		     versions[i].accepted);
		CALL(s, pim_get_version)(map, &version);
		CALL(s, pim_get_cus_version)(map, &note);
		tell_version(s, note, true, &version);
		text_end(s, &text);
		/* The same gate for a block; it starts from what the document was given. */
		if (!text_begin(s, &text, 400))
			return;
		text_add(&text,
			 "{'PqFuncGroups':{'Block%u':{'#version':{'MajorVersion':2}},'B%u':%s}}", i,
			 i, versions[i].version);
		give(s, text.bytes, CALL(s, pim_insert), map, text.bytes, versions[i].accepted);
		text_end(s, &text);
	}
}

static void nested_folders(struct story *s, void *map, unsigned int depth, bool accepted)
{
	struct text text;
	unsigned int i;
	char what[40];

	if (!text_begin(s, &text, 2000))
		return;
	text_add(&text, "{'PqFuncGroups':");
	for (i = 0; i < depth; i++)
		text_add(&text, "{'D%u_%u':", depth, i);
	text_add(&text, "{'Leaf%u':{'settings':{}}}", depth);
	text_fill(&text, '}', depth + 1);
	put(what, sizeof what, "%u folders", depth);
	give(s, what, CALL(s, pim_insert), map, text.bytes, accepted);
	text_end(s, &text);
}

/** A setting and a member whose label has @length characters. */
static void long_label(struct story *s, void *map, unsigned int length, unsigned int of_setting,
		       bool common, bool accepted)
{
	struct text text, label;
	char what[60];

	text_begin(s, &text, 1200);
	text_begin(s, &label, 600);
	text_fill(&label, (char)('a' + length % 26), of_setting);
	text_add(&text, "{'PqFuncGroups':{'Long':{'settings':{'%s':{'commonReg':%s,'group':{'",
		 label.bytes, common ? "true" : "false");
	text_fill(&text, 'm', length - of_setting - 1);
	text_add(&text, "':{'hwreg':{'EN':1}}}}}}}}");
	text_add(&label, "#");
	text_fill(&label, 'm', length - of_setting - 1);
	put(what, sizeof what, "a label of %u characters%s", length,
	    common ? " with common ones" : "");
	give(s, what, CALL(s, pim_insert), map, text.bytes, accepted);
	if (accepted) {
		check(s, pim_query_setting_id(map, label.bytes) != VEXIL_NO_ID, "%s is not found",
		      what);
		CALL(s, pim_load_setting_by_name)(map, label.bytes, receive_block, s);
	}
	text_end(s, &label);
	text_end(s, &text);
}

/** A common group of @members that share @shared registers, and more of their own. */
static void common_registers(struct story *s, unsigned int members, unsigned int shared)
{
	void *map = empty_map(s);
	struct text text;
	unsigned int i, member;
	char what[60];

	if (!text_begin(s, &text, 60000)) {
		drop_map(s, &map);
		return;
	}
	for (i = 0; i < shared + members; i++) {
		put(what, sizeof what, "R%u", i);
		CALL(s, pim_insert_regmap)(map, what, i);
	}
	text_add(&text, "{'PqFuncGroups':{'Block':{'settings':{'S':{'commonReg':true,'group':[");
	for (member = 0; member < members; member++) {
		text_add(&text, "%s{'M%u':{'hwreg':{", member ? "," : "", member);
		/* Every other member lists them backwards: that must not matter. */
		for (i = 0; i < shared; i++)
			text_add(&text, "'R%u':7,", member % 2 ? shared - 1 - i : i);
		text_add(&text, "'R%u':%u}}}", shared + member, member);
	}
	text_add(&text, "]}}}}}");
	put(what, sizeof what, "%u members that share %u registers", members, shared);
	give(s, what, CALL(s, pim_insert), map, text.bytes, true);
	text_end(s, &text);
	CALL(s, pim_load_common_reg_setting)(map, receive_block, s);
	for (member = 0; member < members; member++) {
		put(what, sizeof what, "S#M%u", member);
		CALL(s, pim_load_setting_by_name)(map, what, receive_block, s);
	}
	tell_blocks(s, "all");
	drop_map(s, &map);
}

void scenario_groups(struct story *s)
{
	static const struct {
		const char *text;
		bool accepted;
	} documents[] = {
		{"{}", true},
		{"[]", true},
		{"7", true},
		{"{'PqFuncGroups':{}}", false},
		{"{'PqFuncGroups':7}", false},
		{"{'PqFuncGroups':[{'settings':{}}]}", false},
		{"{'PqFuncGroups':{'NoObject':7,'Text':'x','List':[]}}", true},
		{"{'PqFuncGroups':{'Ip':{'settings':{}}}}", true},
		{"{'PqFuncGroups':{'Ip':{'settings':7}}}", true},
		{"{'PqFuncGroups':{'Ip':{'settings':{'S0':{}}}}}", true},
		{"{'PqFuncGroups':{'Ip':{'settings':{'S1':7,'S2':'x','S3':null}}}}", true},
		{"{'PqFuncGroups':{'Ip':{'settings':{'S4':{'group':{}},'S5':{'group':[]},'S6':{'"
		 "group':7}}}}}",
		 true},
		{"{'PqFuncGroups':{'Ip':{'settings':{'S7':{'group':{'M':{}}}}}}}", true},
		{"{'PqFuncGroups':{'Ip':{'settings':{'S7':{'group':{'M':{'hwreg':{'EN':9}}}}}}}}",
		 true},
		{"{'PqFuncGroups':{'Ip':{'settings':{'S8':{'group':[7,'x',null,[]]}}}}}", false},
		{"{'PqFuncGroups':{'Ip':{'settings':{'S9':{'group':[{},{'M':{}}]}}}}}", false},
		{"{'PqFuncGroups':{'Ip':{'settings':{'Bad*':{'group':{'M':{'hwreg':{'EN':1}}}}}}}}",
		 true},
		{"{'PqFuncGroups':{'Bad*Ip':{'settings':{'S10':{'group':{'M':{'hwreg':{'EN':1}}}}}}"
		 "}}",
		 true},
		{"{'PqFuncGroups':{'Ip':{'settings':{'S11':{'1.PQlevel':'l1','group':{'M':{'hwreg':"
		 "{'EN':1}}}},"
		 "'S12':{'1.PQlevel':7,'group':{'M':{'hwreg':{'EN':1}}}},"
		 "'S13':{'1.PQlevel':'IND','1.PresetRegs':'T','commonReg':true,'group':{'M':{'"
		 "hwreg':{'EN':1}}}},"
		 "'S14':{'1.PresetRegs':7,'group':{'M':{'hwreg':{'EN':1}}}},"
		 "'S15':{'1.PresetRegs':'','group':{'M':{'hwreg':{'EN':1}}}},"
		 "'S16':{'commonReg':1,'commonGroup':true,'group':{'M':{'hwreg':{'EN':1}}}}}}}}",
		 true},
		{"{'PqFuncGroups':{'Ip':{'settings':{'S17':{'group':{'M':{'hwreg':{'NOBODY':1,'EN':"
		 "'x','GAIN':null,"
		 "'LEVEL':'0x1F','EN':-1},'swreg':{'NOBODY':1,'SW_MODE':'x','SW_STEP':3},"
		 "'cus_swreg':{'NOBODY':1,'CUS_SHOP':[],'CUS_SHOP':4},"
		 "'lut':{'lut_a':'nobody','nobody':'table.bin','lut_a':7,'lut_a':'TABLE.BIN'},"
		 "'alg':{'e':'nobody','e':7,'e':null,'':'numbers.par'},"
		 "'hwaddr':{'0':1,'x':2,'0x1F0':3,'496':'4','0760':5,'-1':6,'99999999999999999999':"
		 "7,'0x':8}}}}}}}}",
		 true},
		{"{'PqFuncGroups':{'Ip':{'settings':{'S18':{'group':{'M':{'hwreg':[{'EN':1},{},7,'"
		 "x',[],{'GAIN':2,'EN':3}],"
		 "'swreg':[{'SW_MODE':1}],'cus_swreg':[{'CUS_SHOP':1}],'lut':[{'lut_a':'table.bin'}"
		 "],"
		 "'alg':[{'entry':'numbers.par'}],'hwaddr':[{'0x10':1}]}}}}}}}",
		 true},
		{"{'PqFuncGroups':{'Ip':{'settings':{'S19':{'group':{'M':{'hwreg':7,'swreg':'x','"
		 "lut':null,'alg':true,"
		 "'hwaddr':[],'cus_swreg':{}}}}}}}}",
		 true},
		{"{'PqFuncGroups':{'Ip':{'settings':{'S20':{'commonReg':true,'group':{'A':{'hwreg':"
		 "{'EN':1,'GAIN':2}},"
		 "'B':{'hwreg':{'EN':2}},'C':{'hwreg':{'EN':1,'GAIN':2}}}},"
		 "'S21':{'commonReg':true,'group':{'A':{'swreg':{'SW_MODE':1}},'B':{}}},"
		 "'S22':{'commonReg':true,'group':[{'A':{'hwreg':{'EN':1,'GAIN':2}}},{'B':{'hwreg':"
		 "{'GAIN':2,'EN':1}}}]}}}}}",
		 true},
		{"{'PqFuncGroups':{'Ip':{'settings':{'S23':{'group':{'commonReg':{'hwreg':{'EN':1}}"
		 "},'commonReg':true}}}}}",
		 true},
		{"{'PqFuncGroups':{'Ip':{'SETTINGS':{'S24':{'GROUP':{'M':{'HWREG':{'en':1}}}}}}}}",
		 true},
		{"{'PqFuncGroups':{'Ip':{'#version':{'MajorVersion':2,'MinorVersion':1,'Revision':"
		 "5},'settings':{}},'Next':{'settings':{}},"
		 "'Third':{'#version':{'MajorVersion':2,'MinorVersion':9},'settings':{}},'Fourth':{"
		 "'settings':{}}}}",
		 false},
	};
	static const char *const labels[] = {
		"S7#M",          "S11#M",         "S12#M",  "S13#M", "S14#M", "S15#M",
		"S16#M",         "S17#M",         "S18#M",  "S19#M", "S20#A", "S20#B",
		"S20#C",         "S20#commonReg", "S21#A",  "S22#A", "S22#B", "S22#commonReg",
		"S23#commonReg", "S24#M",         "Bad*#M", "S9#M",  "S10#M"};
	static const char *const ips[] = {"Ip", "Next", "Third", "Fourth", "Bad*Ip", "NoObject"};
	void *map = small_map(s);
	vexil_version version;
	unsigned int i;
	char *image;
	u32 size;

	for (i = 0; i < sizeof documents / sizeof documents[0]; i++)
		give(s, documents[i].text, CALL(s, pim_insert), map, documents[i].text,
		     documents[i].accepted);
	for (i = 0; i < sizeof labels / sizeof labels[0]; i++) {
		say(s, "load %s", labels[i]);
		CALL(s, pim_load_setting_by_name)(map, labels[i], receive_block, s);
	}
	for (i = 0; i < sizeof ips / sizeof ips[0]; i++) {
		fill_bytes(&version, 0, sizeof version);
		tell_version(s, ips[i], CALL(s, pim_get_pim_version)(map, &version, ips[i]),
			     &version);
	}
	group_versions(s, map);
	nested_folders(s, map, 1, true);
	nested_folders(s, map, 8, true);
	nested_folders(s, map, 9, false);
	nested_folders(s, map, 30, false);
	long_label(s, map, 254, 100, false, true);
	long_label(s, map, 255, 200, false, true);
	long_label(s, map, 256, 100, false, false);
	long_label(s, map, 400, 255, false, false);
	long_label(s, map, 255, 245, true, true);
	long_label(s, map, 256, 246, true, false);
	image = export_map(s, "what came of it", map, &size);
	use_map(s, map, nodes_in(image));
	put_memory(s, image);
	drop_map(s, &map);

	common_registers(s, 3, 20);
	common_registers(s, 2, 499);
	common_registers(s, 2, 500);
	common_registers(s, 2, 501);
	common_registers(s, 2, 700);
}

/* ---- adoption, merging ---- */

/** Where an image's header holds its kind and the version of the code that wrote it. */
#define MAJOR_AT 72
#define MINOR_AT 74
#define KIND_AT 80

static void adopt_edited(struct story *s, const char *what, const char *image, u32 size, u32 at,
			 u32 value, bool for_map, bool expected)
{
	char *copy = copy_image(s, image, size);
	void *context = NULL;
	bool done;

	if (!copy)
		return;
	set_word(copy + at, 2, value);
	done = for_map ? CALL(s, pim_init)(&context, copy, size)
		       : CALL(s, rm_init)(&context, copy, size);
	expect(s, what, done, expected);
	check(s, done == (context != NULL), "%s: result and context disagree", what);
	if (context && for_map)
		drop_map(s, &context);
	else
		drop_rules(s, &context);
	put_memory(s, copy);
}

static void merges(struct story *s, const char *image, u32 size)
{
	void *map = small_map(s), *empty = empty_map(s), *target = empty_map(s), *adopted = NULL;
	void *rules = small_rules(s, map), *empty_rules = NULL, *target_rules = NULL;
	char *copy = copy_image(s, image, size), *merged;
	u32 merged_size;

	CALL(s, rm_init)(&empty_rules, NULL, 0);
	CALL(s, rm_init)(&target_rules, NULL, 0);
	CALL(s, pim_init)(&adopted, copy, size);
	expect(s, "merge into the base", CALL(s, pim_merge)(map, map, empty), false);
	expect(s, "merge into the sub", CALL(s, pim_merge)(map, empty, map), false);
	expect(s, "merge into what is not empty", CALL(s, pim_merge)(map, adopted, empty), false);
	expect(s, "merge into an adopted map", CALL(s, pim_merge)(adopted, map, empty), false);
	expect(s, "merge one with itself", CALL(s, pim_merge)(target, map, map), true);
	drop_map(s, &target);
	target = empty_map(s);
	expect(s, "merge with an empty sub", CALL(s, pim_merge)(target, map, empty), true);
	merged = export_map(s, "with an empty sub", target, &merged_size);
	use_map(s, target, nodes_in(merged));
	put_memory(s, merged);
	drop_map(s, &target);
	target = empty_map(s);
	expect(s, "merge over an empty base", CALL(s, pim_merge)(target, empty, adopted), true);
	merged = export_map(s, "over an empty base", target, &merged_size);
	use_map(s, target, nodes_in(merged));
	put_memory(s, merged);
	drop_map(s, &target);
	target = empty_map(s);
	expect(s, "merge built and adopted", CALL(s, pim_merge)(target, map, adopted), true);
	merged = export_map(s, "built and adopted", target, &merged_size);
	expect(s, "handlers",
	       add_handlers(s, target, "tv") &&
		       CALL(s, pim_insert_handler)(target, "lut_a", receive_table),
	       true);
	use_map(s, target, nodes_in(merged));
	put_memory(s, merged);

	expect(s, "merge rules into the base", CALL(s, rm_merge)(rules, rules, empty_rules, target),
	       false);
	expect(s, "merge rules with themselves",
	       CALL(s, rm_merge)(target_rules, rules, rules, target), true);
	drop_rules(s, &target_rules);
	CALL(s, rm_init)(&target_rules, NULL, 0);
	say(s, "merge rules with empty ones -> %d",
	    CALL(s, rm_merge)(target_rules, rules, empty_rules, target));
	use_rules(s, target_rules);
	drop_rules(s, &target_rules);
	CALL(s, rm_init)(&target_rules, NULL, 0);
	say(s, "merge empty rules with these -> %d",
	    CALL(s, rm_merge)(target_rules, empty_rules, rules, target));
	use_rules(s, target_rules);
	drop_rules(s, &target_rules);
	drop_rules(s, &empty_rules);
	drop_rules(s, &rules);
	drop_map(s, &target);
	drop_map(s, &adopted);
	drop_map(s, &empty);
	drop_map(s, &map);
	put_memory(s, copy);
}

void scenario_adoption(struct story *s)
{
	static const struct {
		const char *what;
		u32 at, value;
		bool accepted;
	} edits[] = {
		{"as it is", MINOR_AT, 2, true},  {"code 2.0", MINOR_AT, 0, true},
		{"code 2.3", MINOR_AT, 3, false}, {"code 3.2", MAJOR_AT, 3, false},
		{"code 1.2", MAJOR_AT, 1, false}, {"code 65535.2", MAJOR_AT, 65535, false},
		{"no kind", KIND_AT, 0, false},   {"an unknown kind", KIND_AT, 3, false},
		{"chip 7", KIND_AT + 2, 7, true},
	};
	static const ST_PQ_REG_INFO table[] = {
		{(EN_PQ_TIME_DOMAIN)1, 0x1000, 0 << 8 | 1 << 16, 1},
		{(EN_PQ_TIME_DOMAIN)1, 0x1000, 4 << 8 | 4 << 16, 1},
		{(EN_PQ_TIME_DOMAIN)2, 0x1004, 0 << 8 | 16 << 16, 0},
		{(EN_PQ_TIME_DOMAIN)15, 0xFFFFFFFF, 15 << 8 | 9 << 16, 1},
	};
	static const size_t sizes[] = {1, 2, 3, 4, 0};
	void *map = small_map(s), *rules = small_rules(s, map), *again = NULL;
	u32 size, rule_size;
	char *label = NULL;
	char *image = export_map(s, "small", map, &size), *copy;
	char *rule_image = export_rules(s, "small rules", rules, &rule_size);
	u16 ids[4];
	unsigned int i;

	drop_rules(s, &rules);
	drop_map(s, &map);
	if (!image || !rule_image)
		goto out;
	for (i = 0; i < sizeof edits / sizeof edits[0]; i++) {
		adopt_edited(s, edits[i].what, image, size, edits[i].at, edits[i].value, true,
			     edits[i].accepted);
		adopt_edited(s, edits[i].what, rule_image, rule_size, edits[i].at, edits[i].value,
			     false, edits[i].accepted);
	}
	expect(s, "rules for a map", CALL(s, pim_init)(&map, rule_image, rule_size), false);
	expect(s, "a map for rules", CALL(s, rm_init)(&rules, image, size), false);
	expect(s, "a map of no size", CALL(s, pim_init)(&map, image, 0), true);
	drop_map(s, &map);

	/* A map adopted twice in turn; what it no longer takes; what it says without handlers. */
	copy = copy_image(s, image, size);
	for (i = 0; i < 2; i++) {
		expect(s, "adopt", CALL(s, pim_init)(&again, copy, size), true);
		use_map(s, again, nodes_in(copy));
		drop_map(s, &again);
	}
	expect(s, "adopt", CALL(s, pim_init)(&again, copy, size), true);
	CALL(s, pim_load_setting_by_name)(again, "NR#High", receive_block, s);
	expect(s, "a handler", CALL(s, pim_insert_handler)(again, "LUT_A", receive_table), true);
	CALL(s, pim_load_setting_by_name)(again, "NR#High", receive_block, s);
	expect(s, "no handler", CALL(s, pim_insert_handler)(again, "lut_a", NULL), true);
	CALL(s, pim_load_setting_by_name)(again, "NR#High", receive_block, s);
	expect(s, "a handler again", CALL(s, pim_insert_handler)(again, "lut_a", receive_table),
	       true);
	expect(s, "an algorithm handler", CALL(s, pim_insert_alg_handler)(again, receive_algorithm),
	       true);
	CALL(s, pim_load_setting_by_name)(again, "NR#High", receive_block, s);
	give(s, "a document for an adopted map", CALL(s, pim_insert), again,
	     "{'PqFuncGroups':{'More':{'settings':{'S':{'group':{'M':{'hwaddr':{'1':1}}}}}}}}",
	     true);
	say(s, "a file for an adopted map -> %d", CALL(s, pim_insert_file)(again, "more", "1", 1));
	ids[0] = pim_query_preset_id(again, "Preset#Day");
	ids[1] = pim_query_preset_id(again, "Preset#Night");
	ids[2] = VEXIL_NO_ID;
	ids[3] = ids[0];
	CALL(s, pim_load_preset)(again, ids, 4, (char *)"MODE_REGS", receive_block, s);
	CALL(s, pim_load_preset)(again, ids, 2, (char *)"mode_regs", receive_block, s);
	CALL(s, pim_load_preset)(again, ids, 2, (char *)"", receive_block, s);
	ids[0] = (u16)nodes_in(copy);
	CALL(s, pim_load_preset)(again, ids, 1, (char *)"MODE_REGS", receive_block, s);
	CALL(s, pim_load_setting)(again, VEXIL_NO_ID, false, receive_block, s);
	CALL(s, pim_load_setting)(again, ids[0], false, receive_block, s);
	say(s, "left %u",
	    CALL(s, pim_load_setting_count)(again, VEXIL_NO_ID, 10, receive_block, s));
	say(s, "left %u", CALL(s, pim_load_setting_count)(again, ids[0], 10, receive_block, s));
	CALL(s, pim_get_setting)(again, ids[0], &label);
	check(s, !label, "an id outside has a label");
	drop_map(s, &again);
	put_memory(s, copy);

	/* Register tables: shorter than the list, with fields that fit nowhere, without entries. */
	for (i = 0; i < sizeof sizes / sizeof sizes[0]; i++) {
		copy = copy_image(s, image, size);
		say(s, "a table of %zu entries -> %d", sizes[i],
		    CALL(s, pim_init_with_regmerge)(&again, copy, size, table, sizes[i]));
		CALL(s, pim_load_setting_by_name)(again, "NR#commonReg", receive_block, s);
		CALL(s, pim_load_setting_by_name)(again, "NR#Low", receive_block, s);
		CALL(s, pim_load_setting_by_name)(again, "NR#High", receive_block, s);
		CALL(s, pim_load_setting_by_name)(again, "Sync#On", receive_block, s);
		CALL(s, pim_load_setting_by_name)(again, "Preset#Night", receive_block, s);
		use_map(s, again, nodes_in(copy));
		drop_map(s, &again);
		put_memory(s, copy);
	}
	merges(s, image, size);
out:
	put_memory(s, image);
	put_memory(s, rule_image);
}
