// SPDX-License-Identifier: MIT
/*
 * The example products as their drivers use them: built, exported, adopted, run, merged. The
 * numbers that are expected stand in the READMEs of examples/tv and examples/customer.
 */
#include "story.h"

/* ---- states ---- */

struct state {
	const char *name;
	const char *sources;
	unsigned int settings; /* that the rule Picture selects */
	unsigned int presets;
};

static const struct state states[] = {
	{"film",
	 "Input:HDMI1;Timing:2160p60;ColorFormat:Yuv422_12;Colorimetry:Bt2020;Range:Limited;"
	 "HdrType:Hdr10;Signal:Good;Genre:Film;ContentHint:Cinema;Cadence:Film32;StillArea:"
	 "Letterbox;"
	 "PictureMode:Movie;UserSharpness:Level25;UserContrast:High;UserNoise:Auto;UserMotion:"
	 "Cinema;"
	 "UserColorTemp:Warm2;UserDimming:High;RoomMode:Auto;OsdPlane:Subtitle;Site:Home;Luma:812;"
	 "AmbientLux:12;NoiseLevel:9;PanelTemp:382;FrameRate:5994;PeakNits:1000;AverageNits:400;"
	 "FaceArea:180",
	 81, 5},
	{"composite",
	 "Input:Composite1;Timing:576i50;ColorFormat:Cvbs;Colorimetry:Bt601_625;ColorSystem:Pal_BG;"
	 "Signal:Good;Genre:Football;Cadence:Video;StillArea:Logo;PictureMode:Standard;"
	 "UserSharpness:Level50;UserContrast:Mid;UserNoise:Auto;UserMotion:Smooth;UserTint:P25;"
	 "UserColorTemp:Neutral;UserDimming:Mid;RoomMode:Auto;Luma:430;AmbientLux:160;NoiseLevel:"
	 "64;"
	 "PanelTemp:95;FrameRate:5000;Impulses:14;ScrollSpeed:2",
	 85, 4},
	{"gaming",
	 "Input:DisplayPort;Timing:2160p120;ColorFormat:Rgb444_10;Colorimetry:Srgb;Range:Full;"
	 "HdrType:Sdr;Signal:Good;Genre:Game;ContentHint:Game;LowLatency:On;Vrr:On;PictureMode:"
	 "Game;"
	 "UserSharpness:Level25;UserContrast:High;UserNoise:Mid;UserMotion:Clear;UserDimming:High;"
	 "RoomMode:Night;Grab:LightBar;Luma:260;AmbientLux:6;NoiseLevel:3;PanelTemp:471;"
	 "FrameRate:11988;BlockEdge:60;TextArea:90",
	 78, 4},
	{"half", "Input:HDMI1;Timing:2160p60;Luma:812", 78, 4},
};
#define STATES (sizeof states / sizeof states[0])

/* ---- what is the same for built, adopted and merged maps ---- */

static void tell_map_versions(struct story *s, void *map)
{
	static const char *const ips[] = {"LocalDimming", "ColorManager", "VideoInput",
					  "localdimming", "StoreDemo"};
	vexil_version version = {0, 0, 0};
	char *text = NULL;
	bool known;
	unsigned int i;

	known = CALL(s, pim_get_version)(map, &version);
	tell_version(s, "map", known, &version);
	known = CALL(s, pim_get_hwreg_version)(map, &version);
	tell_version(s, "hardware list", known, &version);
	known = CALL(s, pim_get_swreg_version)(map, &version);
	tell_version(s, "software list", known, &version);
	known = CALL(s, pim_get_cus_swreg_version)(map, &version);
	tell_version(s, "customer list", known, &version);
	known = CALL(s, pim_get_cus_version)(map, &text);
	say(s, "customer text: %s '%s'", known ? "true" : "false", text);
	for (i = 0; i < sizeof ips / sizeof ips[0]; i++) {
		fill_bytes(&version, 0, sizeof version);
		known = CALL(s, pim_get_pim_version)(map, &version, ips[i]);
		tell_version(s, ips[i], known, &version);
	}
}

/** Whether @label is that of the registers that a setting's members share. */
static bool is_common(const char *label)
{
	return text_length(label) > 10 && same_text(label + text_length(label) - 10, "#commonReg");
}

/**
 * Counts the labels by walking all ids, as a driver that lists a map would. Return: those of
 * configurations that the documents name.
 */
static unsigned int count_labels(struct story *s, void *map, unsigned int ids, bool told)
{
	unsigned int labels = 0, common = 0, id;
	u64 digest = DIGEST_START;
	char *label;

	for (id = 0; id < ids; id++) {
		label = NULL;
		CALL(s, pim_get_setting)(map, (u16)id, &label);
		if (!label)
			continue;
		/* IPs and settings have names as well; labels of configurations hold a "#". */
		if (pim_query_setting_id(map, label) != id && pim_query_preset_id(map, label) != id)
			continue;
		labels++;
		common += is_common(label);
		digest = digest_bytes(digest, &id, 2);
		digest = digest_bytes(digest, label, text_length(label));
		if (told && labels % 16 == 1)
			say(s, "label %u %s", id, label);
	}
	say(s, "%u labels, %u of them common, digest %016llx", labels, common, digest);
	return labels - common;
}

static unsigned int tell_registers(struct story *s, void *map)
{
	unsigned int domain, level, sum = 0, all;
	char line[160];
	size_t length;

	for (domain = 0; domain < E_PQ_MAX_DOMAIN; domain++) {
		length = 0;
		line[0] = '\0';
		for (level = 0; level < E_PQLV_MAX; level++) {
			const u32 count =
				CALL(s, pim_get_reg_num)(map, (u8)domain, (EN_PQ_LEVEL)level);

			sum += count;
			length += put(line + length, sizeof line - length, " %u", count);
		}
		all = CALL(s, pim_get_reg_num)(map, (u8)domain, E_PQLV_MAX);
		say(s, "registers of domain %u:%s, %u in all", domain, line, all);
	}
	all = CALL(s, pim_get_reg_num)(map, E_PQ_MAX_DOMAIN, E_PQLV_MAX);
	check(s, all == sum, "%u registers in all, %u by domain and level", all, sum);
	return all;
}

/* ---- building ---- */

void scenario_example_build(struct story *s)
{
	void *map, *rules, *again;
	vexil_version version = {0, 0, 0};
	char *image, *copy, *rule_image, *text = NULL;
	u32 size, copy_size, rule_size;
	bool known;

	map = build_map(s, "tv", false);
	expect(s, "insert a register by hand", CALL(s, pim_insert_regmap)(map, "HAND_MADE", 900),
	       true);
	expect(s, "insert it again", CALL(s, pim_insert_regmap)(map, "hand_made", 901), false);
	expect(s, "insert a software register", CALL(s, pim_insert_vregmap)(map, "SW_HAND", -5),
	       true);
	expect(s, "insert a customer register", CALL(s, pim_insert_cus_vregmap)(map, "CUS_HAND", 5),
	       true);
	expect(s, "finish", CALL(s, pim_finish)(map), true);
	expect(s, "finish twice", CALL(s, pim_finish)(map), true);
	expect(s, "insert after finish", CALL(s, pim_insert_regmap)(map, "LATE", 1), false);
	breathe(s);
	rules = build_rules(s, "tv", map);
	breathe(s);

	image = export_map(s, "television", map, &size);
	rule_image = export_rules(s, "television's rules", rules, &rule_size);
	say(s, "%u nodes, %u in the rules", nodes_in(image), nodes_in(rule_image));
	tell_map_versions(s, map);
	expect_number(s, "configurations", count_labels(s, map, nodes_in(image), true), 337);
	expect_number(s, "registers of a built map", tell_registers(s, map), 0);
	known = CALL(s, rm_get_version)(rules, &version);
	tell_version(s, "rules", known, &version);
	known = CALL(s, rm_get_rl_version)(rules, &version);
	tell_version(s, "rule list", known, &version);
	known = CALL(s, rm_get_rm_version)(rules, &version, "Picture");
	tell_version(s, "Picture", known, &version);
	expect(s, "version of rule picture", CALL(s, rm_get_rm_version)(rules, &version, "picture"),
	       false);
	known = CALL(s, rm_get_cus_version)(rules, &text);
	say(s, "customer text of the rules: %s '%s'", known ? "true" : "false", text);
	drop_rules(s, &rules);
	drop_map(s, &map);
	breathe(s);

	/* Twice the same documents: twice the same bytes. */
	again = build_map(s, "tv", true);
	copy = export_map(s, "television again", again, &copy_size);
	check(s, image && copy && copy_size == size && same_bytes(image, copy, size),
	      "the same documents gave another image");
	put_memory(s, copy);
	drop_map(s, &again);

	/* Adopted and exported: the image itself, but for the customer list's version. */
	copy = copy_image(s, image, size);
	expect(s, "adopt", CALL(s, pim_init)(&again, copy, size), true);
	tell_map_versions(s, again);
	expect_number(s, "labels of the adopted map",
		      count_labels(s, again, nodes_in(image), false), 337);
	say(s, "synchronised registers: %u", CALL(s, pim_get_reg_num)(again, 16, E_PQLV_SYNC));
	text = export_map(s, "television adopted", again, &copy_size);
	put_memory(s, text);
	drop_map(s, &again);
	put_memory(s, copy);

	copy = copy_image(s, rule_image, rule_size);
	expect(s, "adopt the rules", CALL(s, rm_init)(&rules, copy, rule_size), true);
	text = export_rules(s, "rules adopted", rules, &copy_size);
	check(s, text && copy_size == rule_size && same_bytes(text, rule_image, rule_size),
	      "adopted rules export another image");
	put_memory(s, text);
	drop_rules(s, &rules);
	put_memory(s, copy);

	/* With the register table. */
	copy = copy_image(s, image, size);
	expect(s, "adopt with the register table",
	       CALL(s, pim_init_with_regmerge)(&again, copy, size, vexil_register_table,
					       vexil_register_table_count),
	       true);
	say(s, "registers: %u", tell_registers(s, again));
	text = export_map(s, "television in address form", again, &copy_size);
	put_memory(s, text);
	drop_map(s, &again);
	put_memory(s, copy);
	put_memory(s, image);
	put_memory(s, rule_image);
}

/* ---- running ---- */

/** Map and rules of a product, adopted from images. */
struct product {
	char *image, *rule_image;
	u32 size, rule_size;
	void *map, *rules;
};

static bool product_images(struct story *s, struct product *product, const char *name)
{
	void *map = build_map(s, name, true);
	void *rules = build_rules(s, name, map);

	fill_bytes(product, 0, sizeof *product);
	if (map)
		product->image = export_map(s, name, map, &product->size);
	if (rules)
		product->rule_image = export_rules(s, name, rules, &product->rule_size);
	drop_rules(s, &rules);
	drop_map(s, &map);
	breathe(s);
	return product->image && product->rule_image;
}

/** @table: whether with the register table of the television. */
static bool product_adopt(struct story *s, struct product *product, bool table)
{
	bool done = CALL(s, pim_init_with_regmerge)(&product->map, product->image, product->size,
						    table ? vexil_register_table : NULL,
						    table ? vexil_register_table_count : 0) &&
		    add_handlers(s, product->map, "tv") &&
		    CALL(s, rm_init)(&product->rules, product->rule_image, product->rule_size);

	return check(s, done, "a product is not adopted");
}

static void product_drop(struct story *s, struct product *product)
{
	drop_rules(s, &product->rules);
	drop_map(s, &product->map);
	put_memory(s, product->image);
	put_memory(s, product->rule_image);
	product->image = product->rule_image = NULL;
}

/** Loads what was selected, as a driver does: settings within a budget, then presets by table. */
static void load_selected(struct story *s, void *map, u16 *settings, size_t setting_count,
			  u16 *presets, size_t preset_count, u32 budget)
{
	static const char *const tables[] = {"PICTURE_MODE_REGS", "HDR_MODE_REGS",
					     "COLOR_TEMP_REGS", "GRAPHICS_REGS"};
	u32 left = budget;
	size_t i;

	for (i = 0; i < setting_count && (s32)left >= 0; i++) {
		char *label = NULL;

		CALL(s, pim_get_setting)(map, settings[i], &label);
		say(s, " %s", label);
		left = CALL(s, pim_load_setting_count)(map, settings[i], left, receive_block, s);
	}
	say(s, "%d of %u pairs left after %zu settings", (int)left, budget, i);
	for (i = 0; i < sizeof tables / sizeof tables[0]; i++) {
		say(s, " table %s", tables[i]);
		CALL(s, pim_load_preset)
		(map, presets, preset_count, (char *)tables[i], receive_block, s);
	}
	tell_blocks(s, "loaded");
}

static void run_states(struct story *s, void *map, void *rules, bool load)
{
	void *handler = NULL;
	u16 *settings = NULL, *presets = NULL;
	unsigned int i;

	expect(s, "create a handler", CALL(s, rm_create_handler)(rules, &handler), true);
	for (i = 0; i < STATES; i++) {
		size_t setting_count, preset_count;

		say(s, "state %s", states[i].name);
		expect(s, "clear", CALL(s, rm_handler_clear)(handler), true);
		expect(s, "set", CALL(s, rm_handler_set)(handler, states[i].sources, 0), true);
		expect(s, "trigger", CALL(s, rm_handler_trigger)(handler, "Picture"), true);
		setting_count = CALL(s, rm_handler_get_result)(handler, &settings);
		preset_count = CALL(s, rm_handler_get_preset)(handler, &presets);
		tell_ids(s, "settings", settings, setting_count);
		tell_ids(s, "presets", presets, preset_count);
		expect_number(s, "number of settings", setting_count, states[i].settings);
		expect_number(s, "number of presets", preset_count, states[i].presets);
		if (load)
			load_selected(s, map, settings, setting_count, presets, preset_count,
				      i ? VEXIL_LOAD_UNLIMITED : 700);
		breathe(s);
	}
	expect(s, "destroy the handler", CALL(s, rm_handler_destroy)(&handler), true);
}

void scenario_example_run(struct story *s)
{
	static const char *const lists[] = {"DynContrast;ToneScene",
					    "tonescene ; DYNCONTRAST",
					    "-Picture;InputStage",
					    "Nobody;Picture",
					    ";;;",
					    "-",
					    ""};
	struct product product;
	u16 *settings = NULL, *presets = NULL;
	size_t count;
	unsigned int i;

	if (!product_images(s, &product, "tv") || !product_adopt(s, &product, false)) {
		product_drop(s, &product);
		return;
	}
	run_states(s, product.map, product.rules, true);

	/* The context's own state: every rule, lists of rules, all but some. */
	expect(s, "clear", CALL(s, rm_clear)(product.rules), true);
	expect(s, "set film", CALL(s, rm_set)(product.rules, states[0].sources, 0), true);
	expect(s, "trigger all", CALL(s, rm_trigger)(product.rules, NULL), true);
	count = CALL(s, rm_get_result)(product.rules, &settings);
	tell_ids(s, "all settings", settings, count);
	expect_number(s, "settings of all rules", count, 317);
	check(s, rm_get_num_result(product.rules) == count,
	      "rm_get_num_result tells another number");
	count = CALL(s, rm_get_preset)(product.rules, &presets);
	tell_ids(s, "all presets", presets, count);
	for (i = 0; i < sizeof lists / sizeof lists[0]; i++) {
		say(s, "rules '%s'", lists[i]);
		expect(s, "trigger", CALL(s, rm_trigger)(product.rules, lists[i]), true);
		count = CALL(s, rm_get_result)(product.rules, &settings);
		tell_ids(s, "settings", settings, count);
	}
	expect(s, "find", rm_find(product.rules, states[1].sources, "Picture"), true);
	count = CALL(s, rm_get_result)(product.rules, &settings);
	tell_ids(s, "found", settings, count);
	expect(s, "clear", CALL(s, rm_clear)(product.rules), true);
	expect(s, "find all", rm_find(product.rules, states[1].sources, NULL), true);
	count = CALL(s, rm_get_result)(product.rules, &settings);
	tell_ids(s, "found", settings, count);
	expect(s, "find nobody", rm_find(product.rules, states[1].sources, "Nobody"), false);
	product_drop(s, &product);
}

/* ---- loading ---- */

void scenario_example_load(struct story *s)
{
	static const char *const labels[] = {"Dimming_Level#High",     "dimming_level#HIGH",
					     "Gamma_Curve#Gamma_2p2",  "Film_Mode#commonReg",
					     "Tnr_Strength#commonReg", "ToneMap_Content#Nits1000",
					     "Panel_Drive#Normal",     "Panel_Clock#Normal",
					     "Preset_Picture#Movie",   "Pip_Source#Tuner",
					     "Panel_Uniformity#On",    "Nothing#AtAll",
					     "Dimming_Level",          "#",
					     "Dimming_Level#High#High"};
	struct product product;
	unsigned int round, i, id;
	u32 budget, left;

	if (!product_images(s, &product, "tv")) {
		product_drop(s, &product);
		return;
	}
	for (round = 0; round < 2; round++) {
		say(s, "%s the register table", round ? "with" : "without");
		if (!product_adopt(s, &product, round == 1))
			break;
		for (i = 0; i < sizeof labels / sizeof labels[0]; i++) {
			say(s, "load %s", labels[i]);
			CALL(s, pim_load_setting_by_name)(product.map, labels[i], receive_block, s);
		}
		tell_blocks(s, "by name");
		id = pim_query_setting_id(product.map, "Dimming_Level#High");
		check(s, id != VEXIL_NO_ID, "Dimming_Level#High is not known");
		for (budget = 0; budget <= 40; budget += 5) {
			s->quiet = true;
			left = CALL(s, pim_load_setting_count)(product.map, (u16)id, budget,
							       receive_block, s);
			s->quiet = false;
			say(s, "budget %u leaves %d", budget, (int)left);
			tell_blocks(s, "within it");
		}
		/* Every id there is, configuration or not. */
		s->quiet = true;
		for (id = 0; id < nodes_in(product.image); id++) {
			CALL(s, pim_load_setting)(product.map, (u16)id, id & 1, receive_block, s);
			if (id % 1024 == 0)
				breathe(s);
		}
		tell_blocks(s, "every id");
		CALL(s, pim_load_common_reg_setting)(product.map, receive_block, s);
		tell_blocks(s, "common registers");
		s->quiet = false;
		drop_map(s, &product.map);
		drop_rules(s, &product.rules);
	}
	product_drop(s, &product);
}

/* ---- merging ---- */

void scenario_example_merge(struct story *s)
{
	static const char *const labels[] = {"White_Point#Warm", "Gamma_Curve#Gamma_2p2",
					     "Overdrive_Rate#Rate_60", "Store_Picture#Shop",
					     "Ambient_Step#commonReg"};
	struct product tv, customer;
	void *map = NULL, *rules = NULL;
	u16 *ids = NULL;
	char *image = NULL, *rule_image = NULL;
	u32 size = 0, rule_size = 0;
	size_t count;
	unsigned int i;

	fill_bytes(&customer, 0, sizeof customer);
	if (!product_images(s, &tv, "tv") || !product_images(s, &customer, "customer") ||
	    !product_adopt(s, &tv, false) || !product_adopt(s, &customer, false))
		goto out;
	expect(s, "an empty map", CALL(s, pim_init)(&map, NULL, 0), true);
	expect(s, "an empty set of rules", CALL(s, rm_init)(&rules, NULL, 0), true);
	expect(s, "merge the maps", CALL(s, pim_merge)(map, tv.map, customer.map), true);
	expect(s, "merge the rules", CALL(s, rm_merge)(rules, tv.rules, customer.rules, map), true);
	image = export_map(s, "merged map", map, &size);
	rule_image = export_rules(s, "merged rules", rules, &rule_size);
	tell_map_versions(s, map);
	count_labels(s, map, nodes_in(image), false);
	drop_rules(s, &rules);
	drop_map(s, &map);
	product_drop(s, &customer);
	product_drop(s, &tv);
	if (!image || !rule_image)
		goto out;

	expect(s, "adopt the merged map", CALL(s, pim_init)(&map, image, size), true);
	expect(s, "adopt the merged rules", CALL(s, rm_init)(&rules, rule_image, rule_size), true);
	expect(s, "register the handlers", add_handlers(s, map, "tv"), true);
	for (i = 0; i < sizeof labels / sizeof labels[0]; i++) {
		say(s, "load %s", labels[i]);
		CALL(s, pim_load_setting_by_name)(map, labels[i], receive_block, s);
	}
	tell_blocks(s, "merged");
	s->quiet = true;
	run_states(s, map, rules, true);
	s->quiet = false;
	expect(s, "set the shop", CALL(s, rm_set)(rules, "Site:Shop;AmbientLux:400;Demo:Motion", 0),
	       true);
	expect(s, "trigger both", CALL(s, rm_trigger)(rules, "Picture;ShopStage"), true);
	count = CALL(s, rm_get_result)(rules, &ids);
	tell_ids(s, "shop", ids, count);
	count = CALL(s, rm_get_preset)(rules, &ids);
	tell_ids(s, "its presets", ids, count);
out:
	drop_rules(s, &rules);
	drop_map(s, &map);
	put_memory(s, image);
	put_memory(s, rule_image);
	product_drop(s, &customer);
	product_drop(s, &tv);
}

/* ---- the graphics preset ---- */

static void tell_io(struct story *s, const char *what, const presetdb_io *io)
{
	say(s, "%s: range %u, colours %u, format %u", what, (unsigned int)io->range,
	    (unsigned int)io->colorspace, (unsigned int)io->format);
}

static void tell_mode(struct story *s, const char *what, const presetdb_hdr_mode *mode)
{
	say(s, "%s: %d%d%d%d%d%d%d gain %lld", what, mode->xvycc_manual_mode, mode->eotf_enable,
	    mode->oetf_enable, mode->eotf_ext_mode, mode->oetf_ext_mode, mode->gamut_manual_mode,
	    mode->gamut_enable, mode->user_gain);
}

static void parse_preset(struct story *s, const char *what, const char *text, bool expected)
{
	graphic_presetdb_info info;
	void *json = CALL(s, json_parse)(text);

	fill_bytes(&info, 0x5A, sizeof info);
	expect(s, what, CALL(s, graphic_presetdb_parse)(json, &info), expected);
	CALL(s, json_delete)(json);
	tell_io(s, "input", &info.input);
	tell_io(s, "output", &info.output);
	say(s, "hue %lld, saturation %lld, contrast %lld", info.hue, info.sat, info.contrast);
	tell_mode(s, "sdr", &info.sdr);
	tell_mode(s, "hdr10", &info.hdr10);
	tell_mode(s, "hlg", &info.hlg);
	say(s, "offset %d%d, clipping %d%d", info.rgb_offset.manual_mode, info.rgb_offset.enable,
	    info.rgb_clipping.manual_mode, info.rgb_clipping.enable);
	say(s, "gain %lld %lld %lld, brightness %lld %lld %lld", info.rgb_gain.rgb_gain_r,
	    info.rgb_gain.rgb_gain_g, info.rgb_gain.rgb_gain_b, info.brightness.brightness_r,
	    info.brightness.brightness_g, info.brightness.brightness_b);
}

void scenario_presetdb(struct story *s)
{
	graphic_presetdb_info info;
	unsigned int i;

	for (i = 0; i < vexil_documents_count; i++) {
		if (vexil_documents[i].kind == DOCUMENT_PRESETDB)
			parse_preset(s, vexil_documents[i].name, vexil_documents[i].begin, true);
	}
	parse_preset(s, "no document", NULL, false);
	parse_preset(s, "an empty document", "{}", false);
	parse_preset(s, "an array", "[1,2]", false);
	parse_preset(s, "an empty preset", "{\"Preset_PQ_Value\":{}}", true);
	parse_preset(s, "a number for a preset", "{\"preset_pq_value\":7}", true);
	parse_preset(
		s, "groups of the wrong kind",
		"{\"Preset_PQ_Value\":{\"Input\":1,\"Output\":\"x\",\"Colortuning\":[],\"SDR\":"
		"null,"
		"\"HDR10\":true,\"HLG\":[1],\"RGBOffset\":2,\"RGBClipping\":\"\",\"RGBGain\":{},"
		"\"Brightness\":{\"Brightness_R\":\"x\",\"Brightness_G\":[],\"Brightness_B\":{}}}}",
		true);
	parse_preset(s, "words and borders",
		     "{\"Preset_PQ_Value\":{\"Input\":{\"Range\":\"Limite\",\"ColorSpace\":"
		     "\"BT2020_NC\","
		     "\"Dataformat\":\"YUV422\"},\"Output\":{\"Range\":\"full\",\"ColorSpace\":"
		     "\"bt709\","
		     "\"Dataformat\":3},\"Colortuning\":{\"Hue\":-9223372036854775808,"
		     "\"Sat\":9223372036854775807,\"Contrast\":\"0xFF\"},\"SDR\":{\"EOTFEnable\":"
		     "\"ONLY\","
		     "\"OETFEnable\":\"On\",\"GamutEnable\":1,\"User_gain_sdr\":\"ten\"},"
		     "\"HDR10\":{\"User_gain_pq\":0x7FF,\"User_gain_hdr10\":5}}}",
		     true);
	expect(s, "into nothing", CALL(s, graphic_presetdb_parse)(NULL, NULL), false);
	fill_bytes(&info, 0, sizeof info);
	expect(s, "from nothing", CALL(s, graphic_presetdb_parse)(NULL, &info), false);
}
