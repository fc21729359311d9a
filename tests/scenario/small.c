// SPDX-License-Identifier: MIT
/*
 * A product that fits on a page, and everything that can be asked of a map and of rules.
 */
#include "story.h"

static const char hardware[] =
	"{'PqHWRegList':{'0.version':{'MajorVersion':2,'MinorVersion':1,'Revision':5},"
	"'register':[{'EN':0},{'GAIN':1},{'LEVEL':2},{'MODE':3},{'FAR':600}]}}";
static const char software[] =
	"{'PqSWRegList':{'0.version':{'JsonVersionFormat':'2.1','Revision':'1F'},"
	"'register':[{'SW_MODE':256},{'SW_STEP':-3}]},"
	"'PqCusSWRegList':{'#version':{'MajorVersion':2,'MinorVersion':0,'Revision':9},"
	"'register':[{'CUS_SHOP':32768}]}}";
static const char groups[] =
	"{'VexilVersion':{'#version':"
	"{'MajorVersion':2,'MinorVersion':2,'Revision':7,'Note':'small'}},"
	"'PqFuncGroups':{"
	"'Folder':{'Noise':{'#version':{'MajorVersion':2,'MinorVersion':1,'Revision':3},"
	"'settings':{"
	"'NR':{'1.PQlevel':'L1','commonReg':true,'group':{"
	"'Low':{'hwreg':{'EN':1,'GAIN':8}},"
	"'High':{'hwreg':{'EN':1,'GAIN':24,'LEVEL':3},'swreg':{'SW_MODE':1},"
	"'lut':{'lut_a':'table.bin'},'alg':{'entry':'numbers.par'},"
	"'hwaddr':{'0x1F0':5,'32':6},'cus_swreg':{'CUS_SHOP':-1}}}},"
	"'Sync':{'1.PQlevel':'SYNC','group':{'On':{'hwreg':{'MODE':1,'FAR':2}}}}}}},"
	"'Modes':{'settings':{"
	"'Preset':{'1.PresetRegs':'MODE_REGS','group':["
	"{'Day':{'hwreg':{'LEVEL':1}}},"
	"{'Night':{'hwreg':{'LEVEL':2},'swreg':{'SW_STEP':4}}}]},"
	"'Empty':{'group':{'None':{}}}}}}}";
static const char sources[] =
	"{'PqRuleLists':{'#version':{'MajorVersion':2,'MinorVersion':0,'Revision':4},"
	"'Input':{'content':['HDMI1','HDMI2','Tuner']},'Luma':{'content':0},'Lux':{'content':null},"
	"'Wide':{'content':['A','B','C','D','E','F','G','H','I']},"
	"'Scene':{'content':['Dark','Bright','Never'],'define':{"
	"'Dark':{'Luma':'[0,200)','Lux':'[0,10]'},"
	"'Bright':{'Luma':'[200,1023]'},'Never':{'Luma':'(5,5)'}}}}}";
static const char rules[] =
	"{'PqRuleGroups':{"
	"'Top':{'#version':{'MajorVersion':2,'MinorVersion':2,'Revision':6},'rules':["
	"{'comparator':{'Input':['Tuner','HDMI2'],'Luma':'[0,64]'},"
	"'settings':['NR#High','Preset#Night'],'children':['Below']},"
	"{'comparator':{'Scene':'Dark'},'settings':['NR#Low','NR#commonReg'],'children':[]},"
	"{'comparator':{},'settings':[],'children':['Below','Last']}]},"
	"'Below':{'rules':["
	"{'comparator':{'Wide':'I','Input':'Tuner'},'settings':['Sync#On'],'children':[]},"
	"{'comparator':{'Scene':['Bright','Never']},'settings':['Preset#Day'],'children':[]}]},"
	"'Last':{'rules':[{'comparator':{},'settings':['Empty#None'],'children':[]}]}}}";

static bool feed_quoted(struct story *s, bool (*slot)(void *context, void *json), void *context,
			const char *text)
{
	struct text copy;
	bool done;

	if (!text_begin(s, &copy, text_length(text) + 8))
		return false;
	text_add(&copy, "%s", text);
	quote(copy.bytes);
	done = feed(s, slot, context, copy.bytes);
	text_end(s, &copy);
	return done;
}

void *small_map(struct story *s)
{
	void *map = NULL;
	bool done = CALL(s, pim_init)(&map, NULL, 0) &&
		    feed_quoted(s, CALL(s, pim_insert_regmap_json), map, hardware) &&
		    feed_quoted(s, CALL(s, pim_insert_vregmap_json), map, software) &&
		    CALL(s, pim_insert_handler)(map, "lut_a", receive_table) &&
		    CALL(s, pim_insert_alg_handler)(map, receive_algorithm) &&
		    CALL(s, pim_insert_file)(map, "table.bin", "\1\2\3\4\5\6\7", 7) &&
		    CALL(s, pim_insert_file)(map, "numbers.par", "ten=10\n", 7) &&
		    feed_quoted(s, CALL(s, pim_insert), map, groups);

	if (!check(s, done, "the small map is refused"))
		drop_map(s, &map);
	return map;
}

void *small_rules(struct story *s, void *map)
{
	void *context = NULL;
	struct text copy;
	bool done = map && CALL(s, rm_init)(&context, NULL, 0) &&
		    feed_quoted(s, CALL(s, rm_insert_source_json), context, sources) &&
		    text_begin(s, &copy, sizeof rules + 8);

	if (done) {
		text_add(&copy, "%s", rules);
		quote(copy.bytes);
		done = feed_rules(s, context, copy.bytes, map) && CALL(s, rm_finish)(context);
		text_end(s, &copy);
	}
	if (!check(s, done, "the small rules are refused"))
		drop_rules(s, &context);
	return context;
}

void use_map(struct story *s, void *map, unsigned int ids)
{
	static const char *const names[] = {"NR#Low",     "NR#High",      "NR#commonReg", "Sync#On",
					    "Preset#Day", "Preset#Night", "Empty#None"};
	const bool quiet = s->quiet;
	vexil_version version = {0, 0, 0};
	u64 digest = DIGEST_START;
	unsigned int id, labels = 0, levels = 0, left = 0;
	bool known;

	s->quiet = true;
	for (id = 0; id < ids && id < 0x10000; id++) {
		const u16 one = (u16)id;
		char *label = NULL;

		CALL(s, pim_get_setting)(map, one, &label);
		if (label) {
			labels++;
			digest = digest_bytes(digest, label, text_length(label));
		}
		CALL(s, pim_load_setting)(map, one, true, receive_block, s);
		left += CALL(s, pim_load_setting_count)(map, one, 2, receive_block, s);
		CALL(s, pim_load_preset)
		(map, (u16 *)&one, 1, (char *)"MODE_REGS", receive_block, s);
	}
	for (id = 0; id < sizeof names / sizeof names[0]; id++) {
		CALL(s, pim_load_setting_by_name)(map, names[id], receive_block, s);
		levels = levels * 31 + pim_query_setting_id(map, names[id]);
		levels = levels * 31 + pim_query_preset_id(map, names[id]);
	}
	CALL(s, pim_load_common_reg_setting)(map, receive_block, s);
	known = CALL(s, pim_get_pim_version)(map, &version, "Modes");
	s->quiet = quiet;
	say(s,
	    "  %u labels %016llx, left %u, names %u, Modes %d %u.%u, registers %u, %u blocks "
	    "%016llx",
	    labels, digest, left, levels, known, version.u16MajorNumber, version.u16MinorNumber,
	    CALL(s, pim_get_reg_num)(map, 16, E_PQLV_MAX), s->blocks, s->block_digest);
	s->blocks = 0;
	s->block_digest = DIGEST_START;
}

void use_rules(struct story *s, void *context)
{
	static const char *const filters[] = {"Input:Tuner;Luma:64;Wide:I",
					      "Luma:0;Lux:10;Input:HDMI1", "Luma:500", "Scene:Dark",
					      "Nothing:1;;Input"};
	static const char *const names[] = {NULL, "Top", "-Top"};
	vexil_version version = {0, 0, 0};
	void *handler = NULL;
	u64 digest = DIGEST_START;
	unsigned int i, j, trues = 0, total = 0;
	u16 *ids = NULL;
	size_t count;

	trues += CALL(s, rm_create_handler)(context, &handler);
	for (i = 0; i < sizeof filters / sizeof filters[0]; i++) {
		trues += CALL(s, rm_set)(context, filters[i], 7) ? 2 : 0;
		trues += CALL(s, rm_handler_set)(handler, filters[i], 7) ? 4 : 0;
		for (j = 0; j < sizeof names / sizeof names[0]; j++) {
			trues = trues * 5 + (CALL(s, rm_trigger)(context, names[j]) ? 1 : 0);
			count = CALL(s, rm_get_result)(context, &ids);
			digest = digest_bytes(digest, ids, count * 2);
			total += (unsigned int)count;
			count = CALL(s, rm_get_preset)(context, &ids);
			digest = digest_bytes(digest, ids, count * 2);
			total += (unsigned int)count;
			trues = trues * 5 +
				(CALL(s, rm_handler_trigger)(handler, names[j]) ? 1 : 0);
			count = CALL(s, rm_handler_get_result)(handler, &ids);
			digest = digest_bytes(digest, ids, count * 2);
			total += (unsigned int)count;
		}
		trues += CALL(s, rm_clear)(context) ? 3 : 0;
	}
	trues += rm_find(context, filters[0], "Top") ? 7 : 0;
	trues += CALL(s, rm_get_rm_version)(context, &version, "Top") ? 11 : 0;
	say(s, "  answers %u, %u ids %016llx, Top %u.%u", trues, total, digest,
	    version.u16MajorNumber, version.u16MinorNumber);
	if (handler)
		CALL(s, rm_handler_destroy)(&handler);
}
