// SPDX-License-Identifier: MIT
/*
 * What can be wrong with sources and rules, and with asking them.
 */
#include "story.h"

static void *empty_rules(struct story *s)
{
	void *rules = NULL;

	check(s, CALL(s, rm_init)(&rules, NULL, 0), "no empty rules");
	return rules;
}

static void tell_results(struct story *s, void *rules, const char *what)
{
	u16 *ids = NULL;
	size_t count = CALL(s, rm_get_result)(rules, &ids);

	tell_ids(s, what, ids, count);
	count = CALL(s, rm_get_preset)(rules, &ids);
	if (count)
		tell_ids(s, "  presets", ids, count);
}

/** Sets nothing or @filter, triggers, tells. */
static void ask(struct story *s, void *rules, const char *filter, const char *names, bool expected)
{
	bool set = true, done;

	CALL(s, rm_clear)(rules);
	if (filter)
		set = CALL(s, rm_set)(rules, filter, 0);
	done = CALL(s, rm_trigger)(rules, names);
	names = names ? names : "every rule";
	say(s, "'%s' with '%s' -> set %d, trigger %d", names, filter ? filter : "nothing", set,
	    done);
	check(s, done == expected, "trigger '%s' is %d", names, done);
	tell_results(s, rules, "  settings");
}

/* ---- sources ---- */

static void source_tokens(struct story *s, void *rules)
{
	static const struct {
		const char *filter;
		bool accepted;
	} filters[] = {
		{"", true},
		{";;;", true},
		{"   ", true},
		{"Input:HDMI1", true},
		{"input:hdmi1", true},
		{" I n p u t : H D M I 1 ", true},
		{"Input", true},
		{"Input:", true},
		{":HDMI1", true},
		{"Input:HDMI9", true},
		{"Nobody:1", true},
		{"Nobody", true},
		{"Luma", true},
		{"Luma:", true},
		{"Luma:x", true},
		{"Luma:-1", true},
		{"Luma:0x40", true},
		{"Luma:0100", true},
		{"Luma:18446744073709551615", true},
		{"Luma:18446744073709551616", true},
		{"Luma:1:2", true},
		{"Luma:7;Lux", true},
		{"Scene:Dark", false},
		{"Input:HDMI1;Scene:Dark;Luma:1", false},
		{"Wide:A;Wide:I;Wide:C", true},
	};
	struct text text;
	unsigned int i, length;

	for (i = 0; i < sizeof filters / sizeof filters[0]; i++) {
		char what[80];

		put(what, sizeof what, "set '%s'", filters[i].filter);
		expect(s, what, CALL(s, rm_set)(rules, filters[i].filter, 77), filters[i].accepted);
	}
	if (!text_begin(s, &text, 40000))
		return;
	for (length = 126; length <= 129; length++) {
		text.length = 0;
		text_add(&text, "Luma:1; ");
		text_fill(&text, 't', length);
		text_add(&text, ";Luma:2");
		say(s, "a token of %u characters -> %d", length,
		    CALL(s, rm_set)(rules, text.bytes, 0));
	}
	text.length = 0;
	for (i = 0; i < 3000; i++)
		text_add(&text, "Luma:%u;", i);
	expect(s, "3000 tokens", CALL(s, rm_set)(rules, text.bytes, 0), true);
	CALL(s, rm_trigger)(rules, NULL);
	tell_results(s, rules, "after all that");
	text_end(s, &text);
}

void scenario_sources(struct story *s)
{
	static const struct {
		const char *text;
		bool accepted;
	} documents[] = {
		{"{}", true},
		{"[]", true},
		{"7", true},
		{"{'PqRuleLists':7}", true},
		{"{'PqRuleLists':{}}", true},
		{"{'PqRuleLists':{'#version':{'MajorVersion':2,'MinorVersion':3}}}", false},
		{"{'PqRuleLists':{'#version':{'MajorVersion':3}}}", false},
		{"{'PqRuleLists':{'#version':{}}}", false},
		{"{'PqRuleLists':{'#version':{'JsonVersionFormat':'2.10'}}}", false},
		{"{'PqRuleLists':{'#version':{'JsonVersionFormat':'2.2','Revision':'ff'}}}", true},
		{"{'pqrulelists':{'A':{'CONTENT':['x','y']}}}", true},
		{"{'PqRuleLists':{'A':{'content':['x','z']}}}", true},
		{"{'PqRuleLists':{'B':{},'C':7,'D':{'content':[]},'E':{'content':{}},'F':{'content'"
		 ":'x'}}}",
		 true},
		{"{'PqRuleLists':{'G':{'content':[1,'a',null,'a','0x10','b']}}}", true},
		{"{'PqRuleLists':{'F':{'content':0},'H*':{'content':0},'':{'content':0}}}", true},
		{"{'PqRuleLists':{'I':{'content':['a b','c*','']}}}", true},
		{"{'PqRuleLists':{'J':{'content':['p','q','r','p'],'define':{'P':{'E':'[1,2]','NOT'"
		 ":'[1,2]'},'q':{},'s':{}}}}}",
		 true},
		{"{'PqRuleLists':{'K':{'content':['p'],'define':7},'L':{'content':[7,'p'],'define':"
		 "{'p':{'E':7,'F':'1'}}}}}",
		 true},
		{"{'PqRuleLists':{'M':{'content':7,'define':{'p':{'E':'[1,2]'}}}}}", true},
		{"{'PqRuleLists':[{'content':['x']}]}", true},
	};
	void *map = small_map(s), *rules = small_rules(s, map), *handler = NULL,
	     *other = empty_rules(s);
	vexil_version version = {0, 0, 0};
	struct text text;
	unsigned int i;
	u32 size;
	char *image;

	source_tokens(s, rules);
	expect(s, "set before finish", CALL(s, rm_set)(other, "A:x", 0), false);
	expect(s, "clear before finish", CALL(s, rm_clear)(other), false);
	expect(s, "finish nothing", CALL(s, rm_finish)(other), true);
	for (i = 0; i < sizeof documents / sizeof documents[0]; i++)
		give(s, documents[i].text, CALL(s, rm_insert_source_json), other, documents[i].text,
		     documents[i].accepted);
	CALL(s, rm_get_rl_version)(other, &version);
	tell_version(s, "rule list", true, &version);
	if (text_begin(s, &text, 200000)) {
		text_add(&text, "{\"PqRuleLists\":{\"Many\":{\"content\":[\"v\"");
		for (i = 0; i < 300; i++)
			text_add(&text, ",\"v%u\"", i);
		text_add(&text, "]}}}");
		expect(s, "301 values", feed(s, CALL(s, rm_insert_source_json), other, text.bytes),
		       true);
		text.length = 0;
		text_add(&text, "{\"PqRuleLists\":{\"TooMany\":{\"content\":[0");
		for (i = 0; i < 65535; i++)
			text_add(&text, ",0");
		text_add(&text, "]}}}");
		expect(s, "65536 values",
		       feed(s, CALL(s, rm_insert_source_json), other, text.bytes), false);
		text.length = 0;
		text_add(&text, "{'PqRuleLists':{'%s", "Long");
		text_fill(&text, 'g', 1000);
		text_add(&text, "':{'content':['");
		text_fill(&text, 'v', 1000);
		text_add(&text, "']}}}");
		quote(text.bytes);
		expect(s, "a label of 2005 characters",
		       feed(s, CALL(s, rm_insert_source_json), other, text.bytes), true);
		/* Conditions on sources that never come: only so many of them wait. */
		text.length = 0;
		text_add(&text,
			 "{'PqRuleLists':{'Waiting':{'content':['w'],'define':{'w':{'N0':'[1,1]'");
		for (i = 1; i < 80; i++)
			text_add(&text, ",'N%u':'[1,1]'", i);
		text_add(&text, "}}}}}");
		quote(text.bytes);
		expect(s, "80 unknown sources",
		       feed(s, CALL(s, rm_insert_source_json), other, text.bytes), true);
		text_end(s, &text);
	}
	expect(s, "finish with open ends", CALL(s, rm_finish)(other), false);
	expect(s, "set all the same", CALL(s, rm_set)(other, "A:x;E:1;Many:v299", 5), true);
	give(s, "the missing ones", CALL(s, rm_insert_source_json), other,
	     "{'PqRuleLists':{'N0':{'content':0},'N63':{'content':0},'NOT':{'content':['a']}}}",
	     true);
	expect(s, "finish again", CALL(s, rm_finish)(other), false);
	image = export_rules(s, "sources", other, &size);
	put_memory(s, image);
	expect(s, "a handler", CALL(s, rm_create_handler)(other, &handler), true);
	give(s, "sources behind a handler", CALL(s, rm_insert_source_json), other,
	     "{'PqRuleLists':{'Late':{'content':['a']}}}", false);
	CALL(s, rm_handler_destroy)(&handler);
	give(s, "and when it is gone", CALL(s, rm_insert_source_json), other,
	     "{'PqRuleLists':{'Late':{'content':['a']}}}", false);
	drop_rules(s, &other);
	drop_rules(s, &rules);
	drop_map(s, &map);
}

/* ---- rules ---- */

static void ranges(struct story *s, void *map)
{
	static const char *const texts[] = {"[3,10)",
					    "(0,0x10]",
					    "(5,5)",
					    "[5,5]",
					    "",
					    "[",
					    "]",
					    "[1",
					    "1,2",
					    "[,]",
					    "[9,1]",
					    "(18446744073709551615,0)",
					    "[x,y]",
					    "[ 1 , 2 ]",
					    "[-1,5]",
					    "[1,2,3]",
					    "[010,0x1F]",
					    "[1][2]",
					    "(0,0)",
					    "[0,18446744073709551615]",
					    "[0,18446744073709551616]"};
	static const u64 numbers[] = {0, 1, 2, 3, 5, 8, 9, 10, 16, 31, ~0ull};
	void *rules = empty_rules(s);
	struct text text;
	unsigned int i, j;
	u16 *ids = NULL;
	char line[32];

	give(s, "a value source", CALL(s, rm_insert_source_json), rules,
	     "{'PqRuleLists':{'V':{'content':0}}}", true);
	if (!text_begin(s, &text, 4000))
		goto out;
	text_add(&text, "{'PqRuleGroups':{");
	for (i = 0; i < sizeof texts / sizeof texts[0]; i++)
		text_add(&text,
			 "%s'R%u':{'rules':[{'comparator':{'V':'%s'},'settings':['NR#Low'],'"
			 "children':[]}]}",
			 i ? "," : "", i, texts[i]);
	text_add(&text, "}}");
	give_rules(s, "rules of ranges", rules, text.bytes, map, true);
	expect(s, "finish", CALL(s, rm_finish)(rules), true);
	for (i = 0; i < sizeof texts / sizeof texts[0]; i++) {
		char name[8];

		put(name, sizeof name, "R%u", i);
		for (j = 0; j < sizeof numbers / sizeof numbers[0]; j++) {
			CALL(s, rm_set)(rules, "V", numbers[j]);
			CALL(s, rm_trigger)(rules, name);
			put(line + j, 2, "%c", CALL(s, rm_get_result)(rules, &ids) ? '+' : '.');
		}
		say(s, "range '%s' holds %s", texts[i], line);
	}
	check(s, same_text(line, "+.........."), "an overflowing bound is not 0");
out:
	text_end(s, &text);
	drop_rules(s, &rules);
}

/** One rule whose comparator has @members conditions of a kind. */
static void wide_comparator(struct story *s, void *map, const char *what, const char *form,
			    unsigned int members)
{
	void *rules = empty_rules(s);
	struct text text;
	unsigned int i;

	if (!text_begin(s, &text, 30000)) {
		drop_rules(s, &rules);
		return;
	}
	text_add(&text, "{'PqRuleLists':{'Z':{'content':0}");
	for (i = 0; i < members; i++)
		text_add(&text, ",'V%u':{'content':0},'E%u':{'content':['a']}", i, i);
	for (i = 0; i < members; i++)
		text_add(&text, ",'D%u':{'content':['d'],'define':{'d':{'V%u':'[0,1]'}}}", i, i);
	text_add(&text, "}}");
	quote(text.bytes);
	check(s, feed(s, CALL(s, rm_insert_source_json), rules, text.bytes),
	      "the sources are refused");
	text.length = 0;
	text_add(&text, "{'PqRuleGroups':{'R':{'rules':[{'comparator':{");
	for (i = 0; i < members; i++) {
		text_add(&text, "%s'%c%u%s", i ? "," : "", form[0], i, form + 1);
	}
	text_add(&text, "},'settings':['NR#Low'],'children':[]}]}}}");
	say(s, "%u %s", members, what);
	give_rules(s, "  inserted", rules, text.bytes, map, true);
	expect(s, "  finished", CALL(s, rm_finish)(rules), true);
	ask(s, rules, "Z:1", "R", true);
	text_end(s, &text);
	drop_rules(s, &rules);
}

/** Two sources of @side values, one case for all their pairs. */
static void many_alternatives(struct story *s, void *map, unsigned int side)
{
	void *rules = empty_rules(s);
	struct text text, values;
	unsigned int i;
	u32 size;
	char filter[32];
	char *image;

	text_begin(s, &text, 20000);
	text_begin(s, &values, 6000);
	for (i = 0; i < side; i++)
		text_add(&values, "%s\"v%u\"", i ? "," : "", i);
	text_add(&text, "{\"PqRuleLists\":{\"A\":{\"content\":[%s]},\"B\":{\"content\":[%s]}}}",
		 values.bytes, values.bytes);
	check(s, feed(s, CALL(s, rm_insert_source_json), rules, text.bytes),
	      "the sources are refused");
	text.length = 0;
	text_add(&text,
		 "{\"PqRuleGroups\":{\"R\":{\"rules\":[{\"comparator\":{\"A\":[%s],\"B\":[%s]},"
		 "\"settings\":"
		 "[\"NR#Low\"],\"children\":[]}]}}}",
		 values.bytes, values.bytes);
	say(s, "%u times %u alternatives", side, side);
	expect(s, "  inserted", feed_rules(s, rules, text.bytes, map), true);
	expect(s, "  finished", CALL(s, rm_finish)(rules), true);
	put(filter, sizeof filter, "A:v%u;B:v%u", side - 1, side - 1);
	ask(s, rules, filter, "R", true);
	ask(s, rules, "A:v0;B:v0", "R", true);
	image = export_rules(s, "alternatives", rules, &size);
	put_memory(s, image);
	text_end(s, &values);
	text_end(s, &text);
	drop_rules(s, &rules);
}

static void waiting_names(struct story *s, void *map)
{
	void *rules = empty_rules(s);
	struct text text;
	unsigned int i;
	char name[16];

	if (!text_begin(s, &text, 20000)) {
		drop_rules(s, &rules);
		return;
	}
	text_add(&text, "{'PqRuleGroups':{'Head':{'rules':[{'comparator':{},'settings':['NR#Low'],'"
			"children':['C0'");
	for (i = 1; i < 80; i++)
		text_add(&text, ",'C%u'", i);
	text_add(&text, "]}]}}}");
	give_rules(s, "80 unknown children", rules, text.bytes, map, true);
	expect(s, "finish", CALL(s, rm_finish)(rules), false);
	ask(s, rules, NULL, "Head", false);
	/* All defined: the first 64 are found, what came behind them was dropped. */
	text.length = 0;
	text_add(&text, "{'PqRuleGroups':{");
	for (i = 0; i < 80; i++)
		text_add(&text,
			 "%s'C%u':{'rules':[{'comparator':{},'settings':['NR#High'],'children':[]}]"
			 "}",
			 i ? "," : "", 79 - i);
	text_add(&text, "}}");
	give_rules(s, "80 children", rules, text.bytes, map, true);
	expect(s, "finish again", CALL(s, rm_finish)(rules), true);
	ask(s, rules, NULL, "Head", false);
	put(name, sizeof name, "C%u", 79u);
	ask(s, rules, NULL, name, true);
	text_end(s, &text);
	drop_rules(s, &rules);
}

void scenario_rules(struct story *s)
{
	static const char *const documents[] = {
		"{}",
		"[]",
		"{'PqRuleGroups':7}",
		"{'PqRuleGroups':{}}",
		"{'PqRuleGroups':{'V1':{'#version':{'MajorVersion':3},'rules':[{'comparator':{},'"
		"settings':[],'children':[]}]}}}",
		"{'PqRuleGroups':{'V2':{'#version':{'JsonVersionFormat':'2.2'},'rules':[]}}}",
		"{'PqRuleGroups':{'N1':{},'N2':7,'N3':{'rules':7},'N4':{'rules':{}},'N5':{'rules':["
		"]}}}",
		"{'PqRuleGroups':{'N6':{'rules':[7,'x',null,[],{}]}}}",
		"{'PqRuleGroups':{'N7':{'rules':[{'comparator':7,'settings':[],'children':[]}]}}}",
		"{'PqRuleGroups':{'N8':{'rules':[{'comparator':{}}]}}}",
		"{'PqRuleGroups':{'N9':{'rules':[{'comparator':{},'settings':7,'children':'x'}]}}}",
		"{'PqRuleGroups':{'S1':{'rules':[{'comparator':{},'settings':['Nobody#X'],'"
		"children':[]}]}}}",
		"{'PqRuleGroups':{'S2':{'rules':[{'comparator':{},'settings':[7,null,'NR#Low'],'"
		"children':[]}]}}}",
		"{'PqRuleGroups':{'S3':{'rules':[{'comparator':{},'settings':['nr#low','PRESET#DAY'"
		",'NR#Low'],'children':[]}]}}}",
		"{'PqRuleGroups':{'K1':{'rules':[{'comparator':{},'settings':[],'children':[7,null,"
		"'S3',{}]}]}}}",
		"{'PqRuleGroups':{'C1':{'rules':[{'comparator':{'Nobody':'x'},'settings':[],'"
		"children':[]}]}}}",
		"{'PqRuleGroups':{'C2':{'rules':[{'comparator':{'Input':'Nobody'},'settings':[],'"
		"children':[]}]}}}",
		"{'PqRuleGroups':{'C3':{'rules':[{'comparator':{'Input':7},'settings':['NR#Low'],'"
		"children':[]}]}}}",
		"{'PqRuleGroups':{'C4':{'rules':[{'comparator':{'Input':[]},'settings':['NR#Low'],'"
		"children':[]}]}}}",
		"{'PqRuleGroups':{'C5':{'rules':[{'comparator':{'Input':['HDMI1',7]},'settings':['"
		"NR#Low'],'children':[]}]}}}",
		"{'PqRuleGroups':{'C6':{'rules':[{'comparator':{'Input':'HDMI1','INPUT':'Tuner'},'"
		"settings':['NR#Low'],'children':[]}]}}}",
		"{'PqRuleGroups':{'C7':{'rules':[{'comparator':{'Luma':7},'settings':['NR#Low'],'"
		"children':[]}]}}}",
		"{'PqRuleGroups':{'C8':{'rules':[{'comparator':{'Luma':['[1,2]','[3,4]']},'"
		"settings':['NR#Low'],'children':[]}]}}}",
		"{'PqRuleGroups':{'C9':{'rules':[{'comparator':{'Input:Tuner':null,'Scene:Dark':0},"
		"'settings':['NR#Low'],'children':[]}]}}}",
		"{'PqRuleGroups':{'Top':{'rules':[{'comparator':{},'settings':['NR#Low'],'children'"
		":[]}]}}}",
		"{'PqRuleGroups':{'Bad*':{'rules':[{'comparator':{},'settings':['NR#Low'],'"
		"children':[]}]}}}",
		"{'PqRuleGroups':{'':{'rules':[{'comparator':{},'settings':['NR#Low'],'children':[]"
		"}]}}}",
		"{'PqRuleGroups':[{'rules':[{'comparator':{},'settings':['NR#Low'],'children':[]}]}"
		"]}",
		"{'PqRuleGroups':{'White "
		"Space':{'rules':[{'comparator':{},'settings':['NR#Low'],'children':[]}]}}}",
	};
	static const char *const names[] = {
		"V1", "V2", "N1", "N6", "N7", "N8", "N9", "S1", "S2",  "S3",          "K1",  "C1",
		"C2", "C3", "C4", "C5", "C6", "C7", "C8", "C9", "Top", "White Space", "Bad*"};
	void *map = small_map(s), *rules = small_rules(s, map), *none = NULL;
	unsigned int i;
	u32 size;
	char *image;

	for (i = 0; i < sizeof documents / sizeof documents[0]; i++)
		give_rules(s, documents[i], rules, documents[i], map, true);
	expect(s, "finish", CALL(s, rm_finish)(rules), true);
	for (i = 0; i < sizeof names / sizeof names[0]; i++)
		ask(s, rules, "Input:Tuner;Luma:7", names[i], true);
	expect(s, "find the one with a blank", rm_find(rules, "", "White Space"), true);
	tell_results(s, rules, "found");
	image = export_rules(s, "what came of it", rules, &size);
	/* An adopted set of rules takes no more; it is asked all the same. */
	expect(s, "adopt it", CALL(s, rm_init)(&none, image, size), true);
	give_rules(s, "a rule for an adopted set", none,
		   "{'PqRuleGroups':{'More':{'rules':[{'comparator':{},'settings':['NR#Low'],'"
		   "children':[]}]}}}",
		   map, true);
	give(s, "sources for an adopted set", CALL(s, rm_insert_source_json), none,
	     "{'PqRuleLists':{'More':{'content':['a']}}}", true);
	say(s, "finish it -> %d", CALL(s, rm_finish)(none));
	use_rules(s, none);
	drop_rules(s, &none);
	put_memory(s, image);
	drop_rules(s, &rules);

	ranges(s, map);
	wide_comparator(s, map, "value sources", "V':'[0,1]'", 32);
	wide_comparator(s, map, "value sources", "V':'[0,1]'", 33);
	wide_comparator(s, map, "redefined sources", "D':'d'", 32);
	wide_comparator(s, map, "redefined sources", "D':'d'", 33);
	wide_comparator(s, map, "enumerated sources", "E':'a'", 128);
	wide_comparator(s, map, "enumerated sources", "E':'a'", 129);
	many_alternatives(s, map, 20);
	many_alternatives(s, map, 64);
	many_alternatives(s, map, 200);
	many_alternatives(s, map, 256);
	waiting_names(s, map);
	drop_map(s, &map);
}

/* ---- evaluation ---- */

void scenario_evaluation(struct story *s)
{
	void *map = small_map(s), *rules = empty_rules(s);
	struct text text;
	unsigned int i;
	u16 *ids = NULL;

	/* Rings, a long chain, a tree that doubles at every level, many rules. */
	give_rules(s, "rings", rules,
		   "{'PqRuleGroups':{'Self':{'rules':[{'comparator':{},'settings':['NR#Low'],'"
		   "children':['Self']}]},"
		   "'A':{'rules':[{'comparator':{},'settings':['NR#Low'],'children':['B']}]},"
		   "'B':{'rules':[{'comparator':{},'settings':['NR#High'],'children':['A']}]},"
		   "'Twice':{'rules':[{'comparator':{},'settings':[],'children':['Leaf','Leaf']}]},"
		   "'Leaf':{'rules':[{'comparator':{},'settings':['Sync#On','Preset#Day'],'"
		   "children':[]}]}}}",
		   map, true);
	if (!text_begin(s, &text, 60000))
		goto out;
	text_add(&text, "{'PqRuleGroups':{");
	for (i = 0; i < 100; i++)
		text_add(&text,
			 "%s'L%u':{'rules':[{'comparator':{},'settings':['NR#Low'],'children':['L%"
			 "u']}]}",
			 i ? "," : "", i, i + 1);
	text_add(&text,
		 ",'L100':{'rules':[{'comparator':{},'settings':['NR#High'],'children':[]}]}");
	for (i = 0; i < 10; i++)
		text_add(&text,
			 ",'T%u':{'rules':[{'comparator':{},'settings':[],'children':['T%u','T%u']}"
			 "]}",
			 i, i + 1, i + 1);
	text_add(&text, ",'T10':{'rules':[{'comparator':{},'settings':['NR#Low'],'children':[]}]}");
	for (i = 0; i < 200; i++)
		text_add(&text,
			 ",'M%u':{'rules':[{'comparator':{},'settings':['NR#Low'],'children':[]}]}",
			 i);
	text_add(&text, "}}");
	/* Children that are defined further below wait, but only so many of them. */
	give_rules(s, "a chain, a tree, many", rules, text.bytes, map, true);
	expect(s, "finish", CALL(s, rm_finish)(rules), true);
	ask(s, rules, NULL, "Self", false);
	ask(s, rules, NULL, "A", false);
	ask(s, rules, NULL, "Twice", true);
	ask(s, rules, NULL, "Twice;Twice;Leaf", true);
	ask(s, rules, NULL, "L0", true);
	expect_number(s, "settings of the chain", CALL(s, rm_get_result)(rules, &ids), 101);
	ask(s, rules, NULL, "T0", true);
	expect_number(s, "settings of the tree", CALL(s, rm_get_result)(rules, &ids), 1024);
	ask(s, rules, NULL, "-Self;A;B", true);
	ask(s, rules, NULL, "Self;A-;B", true);
	ask(s, rules, NULL, NULL, false);
	text.length = 0;
	for (i = 0; i < 200; i++)
		text_add(&text, "M%u;", i);
	CALL(s, rm_trigger)(rules, text.bytes);
	expect_number(s, "rules of a list of 200", CALL(s, rm_get_result)(rules, &ids), 128);
	text.length = 0;
	text_add(&text, "M0;");
	text_fill(&text, 'x', 700);
	text_add(&text, ";M1");
	expect(s, "a long name", CALL(s, rm_trigger)(rules, text.bytes), true);
	expect_number(s, "rules beside it", CALL(s, rm_get_result)(rules, &ids), 2);
	text_end(s, &text);
	expect(s, "find a ring", rm_find(rules, "", "Self"), false);
	expect(s, "find everything", rm_find(rules, "", NULL), false);
	expect(s, "find a name with rest", rm_find(rules, "", "Leaf;"), false);
	tell_results(s, rules, "left");
out:
	drop_rules(s, &rules);
	drop_map(s, &map);
}

/* ---- handlers ---- */

void scenario_handlers(struct story *s)
{
	static const char *const filters[4] = {"Input:Tuner;Luma:64;Wide:I", "Luma:0;Lux:10",
					       "Luma:500", "Input:HDMI1;Luma:3;Lux:99"};
	void *map = small_map(s), *rules = small_rules(s, map),
	     *handlers[4] = {NULL, NULL, NULL, NULL};
	void *empty = empty_rules(s), *handler = NULL;
	u16 *ids = NULL;
	unsigned int i, round;
	size_t count;

	for (i = 0; i < 4; i++) {
		expect(s, "create", CALL(s, rm_create_handler)(rules, &handlers[i]), true);
		expect(s, "set", CALL(s, rm_handler_set)(handlers[i], filters[i], 0), true);
	}
	for (round = 0; round < 2; round++) {
		for (i = 0; i < 4; i++) {
			const unsigned int one = round ? 3 - i : i;

			expect(s, "trigger", CALL(s, rm_handler_trigger)(handlers[one], "Top"),
			       true);
		}
		for (i = 0; i < 4; i++) {
			count = CALL(s, rm_handler_get_result)(handlers[i], &ids);
			tell_ids(s, filters[i], ids, count);
			check(s, rm_handler_get_num_result(handlers[i]) == count, "another number");
			count = CALL(s, rm_handler_get_preset)(handlers[i], &ids);
			tell_ids(s, "  presets", ids, count);
		}
	}
	tell_results(s, rules, "the context's own");
	expect(s, "clear one", CALL(s, rm_handler_clear)(handlers[0]), true);
	expect(s, "trigger it", CALL(s, rm_handler_trigger)(handlers[0], NULL), true);
	count = CALL(s, rm_handler_get_result)(handlers[0], &ids);
	tell_ids(s, "cleared", ids, count);
	expect(s, "trigger a list", CALL(s, rm_handler_trigger)(handlers[0], "-Top;Nobody"), true);
	count = CALL(s, rm_handler_get_result)(handlers[0], &ids);
	tell_ids(s, "listed", ids, count);
	expect(s, "find by a handler", rm_handler_find(handlers[1], filters[0], "Top"), true);
	count = CALL(s, rm_handler_get_result)(handlers[1], &ids);
	tell_ids(s, "the handler's", ids, count);
	tell_results(s, rules, "the context's");
	expect(s, "find nobody", rm_handler_find(handlers[1], filters[0], "Nobody"), false);
	expect(s, "find all", rm_handler_find(handlers[1], filters[0], NULL), true);
	tell_results(s, rules, "the context's");
	expect(s, "set a long token",
	       CALL(s, rm_handler_set)(
		       handlers[2],
		       "0123456789012345678901234567890123456789012345678901234567890123456789"
		       "0123456789012345678901234567890123456789012345678901234567890123456789",
		       0),
	       false);
	for (i = 0; i < 4; i++)
		check(s, CALL(s, rm_handler_destroy)(&handlers[i]) && !handlers[i],
		      "a handler is not destroyed");

	say(s, "a handler of what is not finished -> %d",
	    CALL(s, rm_create_handler)(empty, &handler));
	say(s, "set -> %d", CALL(s, rm_handler_set)(handler, "Luma:1", 0));
	say(s, "trigger -> %d", CALL(s, rm_handler_trigger)(handler, NULL));
	say(s, "clear -> %d", CALL(s, rm_handler_clear)(handler));
	if (handler)
		CALL(s, rm_handler_destroy)(&handler);
	expect(s, "finish nothing", CALL(s, rm_finish)(empty), true);
	expect(s, "a handler of nothing", CALL(s, rm_create_handler)(empty, &handler), true);
	expect(s, "trigger nothing", CALL(s, rm_handler_trigger)(handler, NULL), true);
	expect(s, "clear nothing", CALL(s, rm_handler_clear)(handler), true);
	CALL(s, rm_handler_destroy)(&handler);
	drop_rules(s, &empty);
	drop_rules(s, &rules);
	drop_map(s, &map);
}
