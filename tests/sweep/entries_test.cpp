// SPDX-License-Identifier: MIT
//
// Every slot of the table without memory: each allocation that a call asks for is refused in turn,
// then all from each on. Afterwards the contexts can be asked, exported and destroyed as before, no
// index leads to what is not there, no block is left, and with memory again the call does what it
// should. Slots that ask for no memory are shown to ask for none.
#include "tests/sweep/world.h"

namespace {

using namespace vexil_test;

#define SLOT(name) (table().fp_CB_vexil_##name)

// ---- maps ----

std::function<Lines(World &)> init_map(const RegisterTable *registers)
{
	return [registers](World &world) {
		char *const buf = world.image.bytes().empty() ? nullptr : world.image.data();
		const bool done =
			registers
				? SLOT(pim_init_with_regmerge)(untyped(world.made_map), buf,
							       world.image.size(),
							       registers->data(), registers->size())
				: SLOT(pim_init)(untyped(world.made_map), buf, world.image.size());
		// A map whose files could not all be indexed is handed out, too.
		EXPECT_TRUE(world.made_map.get() || !done);
		EXPECT_TRUE(buf || done || !world.made_map.get());
		return answer(done);
	};
}

void drop_map(World &world)
{
	SLOT(pim_destroy)(untyped(world.made_map));
}

void take_image(World &world)
{
	world.image = image_of(world.map.get());
}

/** A register list that is too long to be joined the plain way. */
void take_long_list(World &world)
{
	PimImage plan;
	const u16 config = plan.config(plan.setting(plan.ip("a"), "s", E_PQLV_OPTION_L1), "s#long");
	Pairs pairs;
	for (u32 i = 0; i < 600; ++i)
		pairs.push_back({i % 4, i % 2});
	plan.list(config, pairs);
	world.image = plan.write();
}

void expect_adopted(World &world, const Lines &expected)
{
	ASSERT_TRUE(world.made_map.get());
	EXPECT_TRUE(add_handlers(world.made_map.get()));
	EXPECT_EQ(ask(world.made_map.get()), expected);
}

Lines call_merge(World &world)
{
	return answer(
		SLOT(pim_merge)(world.made_map.get(), world.map.get(), world.other_map.get()));
}

void make_map(World &world)
{
	ASSERT_TRUE(world.made_map.init());
}

void expect_merged(World &world, bool)
{
	pim *map = world.made_map.get();
	ASSERT_TRUE(add_handlers(map));
	EXPECT_EQ(blocks_of(map, kOtherLabels), blocks_of(world.other_map.get(), kOtherLabels));
	EXPECT_EQ(label_id(map, "NR#High"), kNoId); // the other's IP is there instead
	EXPECT_NE(label_id(map, "Preset#Day"), kNoId);
	EXPECT_EQ(fault_of(image_of(map)), kSound);
}

/** A name in one of a map's lists of registers. */
Row one_register(const char *slot, bool (*const call)(void *, const std::string &),
		 const std::string &name, const char *how, ctrie pim::*names)
{
	return {slot,
		how,
		Refusal::kSays,
		[call, name](World &world) { return answer(call(world.map.get(), name)); },
		nullptr,
		[names, name](World &world, bool) {
			EXPECT_EQ(ctrie_find(&(world.map.get()->*names), name.c_str()), 77);
			EXPECT_EQ(ctrie_find(&world.map->regname_to_func, "GAIN"), 1);
			EXPECT_EQ(ctrie_find(&world.map->vregname_to_func, "SW_STEP"), -3);
			EXPECT_EQ(ctrie_find(&world.map->cus_vregname_to_func, "CUS_SHOP"), 32768);
		}};
}

bool insert_hardware(void *map, const std::string &name)
{
	return SLOT(pim_insert_regmap)(map, name.c_str(), 77);
}
bool insert_software(void *map, const std::string &name)
{
	return SLOT(pim_insert_vregmap)(map, name.c_str(), 77);
}
bool insert_customer(void *map, const std::string &name)
{
	return SLOT(pim_insert_cus_vregmap)(map, name.c_str(), 77);
}

/** A document of registers: names that cannot be had are left out, and can be added again. */
Row register_list(const char *slot, bool (*const CB)(void *, void *), const char *document,
		  const char *how, ctrie pim::*names,
		  const std::vector<std::pair<const char *, int>> &values)
{
	return {slot,
		how,
		Refusal::kGoesOn,
		[CB](World &world) { return answer(CB(world.map.get(), world.document.get())); },
		[document](World &world) { world.document = json(document); },
		[names, values](World &world, bool) {
			for (const auto &[name, value] : values)
				EXPECT_EQ(ctrie_find(&(world.map.get()->*names), name), value)
					<< name;
			EXPECT_EQ(ctrie_find(&world.map->regname_to_func, "EN"),
				  0); // the first stays
		},
		as_it_is};
}

Lines call_insert_file(World &world, const std::string &name, const std::string &bytes)
{
	return answer(SLOT(pim_insert_file)(world.map.get(), name.c_str(), bytes.data(),
					    static_cast<u32>(bytes.size())));
}

/** The file can be used, in a configuration of its own. */
void expect_file(World &world, const std::string &name, const std::string &bytes)
{
	ASSERT_TRUE(
		insert(world.map.get(), groups("'File': {'settings': {'F': {'group': {'1': {'lut': "
					       "{'lut_a': '" +
					       name + "'}}}}}}")));
	EXPECT_EQ(load(world.map.get(), std::string("F#1")),
		  (Lines{"table0 DATA [" + bytes + "]"}));
}

void expect_handler(World &world, const std::string &label)
{
	ASSERT_TRUE(insert(world.map.get(),
			   groups("'Handler': {'settings': {'H': {'group': {'1': {'lut': "
				  "{'" +
				  label + "': 'table.bin'}}}}}}")));
	EXPECT_EQ(load(world.map.get(), std::string("H#1")),
		  (Lines{"table1 DATA [" + std::string("\1\2\3\4\5\6\7") + "]"}));
}

/** Delivers into lines, algorithm files at the end. */
Lines delivered(World &world, const std::function<void(pim *, Lines *)> &load)
{
	Lines lines;
	algorithm_log().clear();
	load(world.map.get(), &lines);
	lines.insert(lines.end(), algorithm_log().begin(), algorithm_log().end());
	return lines;
}

Lines version_of(bool (*const CB)(void *, vexil_version *), void *context)
{
	vexil_version version{};
	const bool known = CB(context, &version);
	return {said(known), version_text(known, version)};
}

// ---- rules ----

void take_rules_image(World &world)
{
	world.image = image_of(world.rules.get());
}

Lines call_init_rules(World &world)
{
	char *const buf = world.image.bytes().empty() ? nullptr : world.image.data();
	const bool done = SLOT(rm_init)(untyped(world.made_rules), buf, world.image.size());
	EXPECT_EQ(world.made_rules.get() != nullptr, done);
	return answer(done);
}

void drop_rules(World &world)
{
	SLOT(rm_destroy)(untyped(world.made_rules));
}

void make_merge_of_rules(World &world)
{
	ASSERT_TRUE(world.made_map.init());
	ASSERT_TRUE(pim_merge(world.made_map.get(), world.map.get(), world.other_map.get()));
	ASSERT_TRUE(world.made_rules.init());
}

Lines call_merge_rules(World &world)
{
	return answer(SLOT(rm_merge)(world.made_rules.get(), world.rules.get(),
				     world.other_rules.get(), world.made_map.get()));
}

void expect_merged_rules(World &world, bool)
{
	EXPECT_EQ(selections(world.made_rules.get(), "Top;Last"),
		  selections(world.rules.get(), "Top;Last"));
	EXPECT_TRUE(rm_clear(world.made_rules.get()) &&
		    rm_set(world.made_rules.get(), "Input:Tuner", 0) &&
		    rm_trigger(world.made_rules.get(), "Shop"));
	const u16 moved = static_cast<u16>(world.made_map->max_node_index + 1 +
					   label_id(world.other_map.get(), "Demo#On"));
	ASSERT_EQ(results_of(world.made_rules.get()).size(), 2u);
	EXPECT_EQ(results_of(world.made_rules.get()).front(), moved);
	EXPECT_EQ(fault_of(image_of(world.made_rules.get())), kSound);
}

void take_new_sources(World &world)
{
	world.document = json(kNewSources);
	world.unsealed = true;
}

Lines call_insert_sources(World &world)
{
	return answer(SLOT(rm_insert_source_json)(world.rules.get(), world.document.get()));
}

/** The sources can be used, in a rule of its own. */
void expect_new_sources(World &world, bool)
{
	rm *rules = world.rules.get();
	ASSERT_TRUE(
		add_rules(rules, world.map.get(),
			  rule("Use", {rule_case("'Zone': 'Right', 'Depth': '[5,6]'", "'NR#Low'"),
				       rule_case("'Mood': 'Calm'", "'NR#High'"),
				       rule_case("'Zone': ['Left', 'Both']", "'Sync#On'")})));
	ASSERT_TRUE(rm_finish(rules));
	world.unsealed = false;
	const auto use = [&](const char *state) { return selected(rules, state, "Use"); };
	pim *map = world.map.get();
	EXPECT_EQ(use("Zone:Right;Depth:5;Luma:600"), Ids{label_id(map, "NR#Low")});
	EXPECT_EQ(use("Zone:Left;Depth:9;Luma:511"), Ids{label_id(map, "NR#High")});
	EXPECT_EQ(use("Zone:Left;Depth:10;Luma:511"), Ids{label_id(map, "Sync#On")});
	EXPECT_EQ(use("Zone:Both;Depth:5;Luma:600"), Ids{label_id(map, "Sync#On")});
	EXPECT_EQ(use("Zone:Right;Depth:10"), Ids{});
}

void take_new_rules(World &world)
{
	world.document = json(kNewRules);
}

Lines call_insert_rules(World &world)
{
	return answer(SLOT(rm_insert)(world.rules.get(), world.document.get(), world.map.get()));
}

/** What the new rules select, from a context that nothing was refused to. */
const Lines &new_selections()
{
	static const Lines lines = [] {
		World world(false);
		EXPECT_TRUE(rm_insert(world.rules.get(), json(kNewRules).get(), world.map.get()));
		EXPECT_TRUE(rm_finish(world.rules.get()));
		return selections(world.rules.get(), "Extra");
	}();
	return lines;
}

/**
 * A rule that lost a case is there, and stays as it is: it selects a part of what it should. Rules
 * that were left out came with the second call.
 */
void expect_new_rules(World &world, bool refused)
{
	EXPECT_TRUE(rm_finish(world.rules.get()));
	world.unsealed = false;
	EXPECT_TRUE(rm_trigger(world.rules.get(), nullptr));
	const Lines lines = selections(world.rules.get(), "Extra");
	ASSERT_EQ(lines.size(), new_selections().size());
	for (std::size_t i = 0; i < lines.size(); ++i) {
		const auto words = [](const std::string &line) {
			std::istringstream stream(line);
			return Lines(std::istream_iterator<std::string>(stream), {});
		};
		if (refused)
			EXPECT_TRUE(is_part(words(lines[i]), words(new_selections()[i])))
				<< lines[i] << " of " << new_selections()[i];
		else
			EXPECT_EQ(lines[i], new_selections()[i]);
	}
}

/** Sources and rules of both documents, not sealed. */
void make_unfinished(World &world)
{
	ASSERT_TRUE(world.made_rules.init());
	ASSERT_TRUE(rm_insert_source_json(world.made_rules.get(), json(kSources).get()));
	ASSERT_TRUE(rm_insert(world.made_rules.get(), json(kRules).get(), world.map.get()));
}

void insert_more(World &world)
{
	ASSERT_TRUE(rm_insert_source_json(world.rules.get(), json(kNewSources).get()));
	ASSERT_TRUE(rm_insert(world.rules.get(), json(kNewRules).get(), world.map.get()));
	world.unsealed = true;
}

/** 40 rules that lead to each other, and one with more ids than a list begins with. */
void insert_deep_rules(World &world)
{
	std::string groups =
		rule("Many",
		     {rule_case("", quoted(std::vector<std::string>(40, "NR#Low")) + ", " +
					    quoted(std::vector<std::string>(40, "Preset#Day")))});
	for (int i = 39; i >= 0; --i)
		groups += ", " + rule("Deep" + std::to_string(i),
				      {rule_case("", "'NR#High'",
						 i < 39 ? "'Deep" + std::to_string(i + 1) + "'"
							: "'Many'")});
	ASSERT_TRUE(add_rules(world.rules.get(), world.map.get(), groups));
	ASSERT_TRUE(rm_finish(world.rules.get()));
}

/** The same in a context with a handler of its own. */
void adopt_deep_rules(World &world)
{
	insert_deep_rules(world);
	world.image = image_of(world.rules.get());
	ASSERT_TRUE(rm_init(world.made_rules.out(), world.image.data(), world.image.size()));
	ASSERT_TRUE(rm_create_handler(world.made_rules.get(), world.made_handler.out()));
}

Lines trigger(World &world, const char *names)
{
	const bool done = SLOT(rm_trigger)(world.rules.get(), names);
	return {said(done), ids_text(results_of(world.rules.get())),
		ids_text(presets_of(world.rules.get()))};
}

Lines lists_of(void *handler)
{
	u16 *ids = nullptr;
	std::size_t count = SLOT(rm_handler_get_result)(handler, &ids);
	Lines lines{ids_text({ids, ids + count})};
	count = SLOT(rm_handler_get_preset)(handler, &ids);
	lines.push_back(ids_text({ids, ids + count}));
	return lines;
}

Lines handler_trigger(rm_handler *handler, const char *names)
{
	Lines lines{said(SLOT(rm_handler_trigger)(handler, names))};
	const Lines lists = lists_of(handler);
	lines.insert(lines.end(), lists.begin(), lists.end());
	return lines;
}

/** Value and mask. */
std::string key_of(const rm_individual &state)
{
	return hex(state.keyBuffer[0]) + " " + hex(state.keyBuffer[1]);
}

// ---- the table ----

const std::string kNewText = long_name("Gain");
const std::string kBigFile(3000, 'x');
const RegisterTable kTable = register_table();

const std::vector<Row> &rows()
{
	static const std::vector<Row> all = {
		{"json_parse", "a document", Refusal::kSays,
		 [](World &world) {
			 world.document.reset(static_cast<cJSON *>(SLOT(json_parse)(
				 std::string(world.image.bytes().begin(), world.image.bytes().end())
					 .c_str())));
			 return answer(world.document != nullptr);
		 },
		 [](World &world) {
			 std::string text = kNewGroups;
			 std::replace(text.begin(), text.end(), '\'', '"');
			 world.image = ImageBytes({text.begin(), text.end()});
		 },
		 [](World &world, bool refused) {
			 ASSERT_TRUE(pim_insert(world.map.get(), world.document.get()));
			 expect_new_groups(world, refused);
		 }},
		{"json_delete", "gives back", Refusal::kNever,
		 [](World &world) {
			 SLOT(json_delete)(world.document.release());
			 return answer(true);
		 },
		 take_new_groups},
		{"pim_init", "empty", Refusal::kSays, init_map(nullptr), nullptr,
		 [](World &world, bool) {
			 EXPECT_TRUE(insert(world.made_map.get(), groups("'A': {'settings': {}}")));
		 }},
		{"pim_init", "an image", Refusal::kGoesOn, init_map(nullptr), take_image,
		 [](World &world, bool) { expect_adopted(world, answers(false).exported); },
		 drop_map},
		{"pim_init_with_regmerge", "empty", Refusal::kSays, init_map(&kTable), nullptr,
		 [](World &world, bool) {
			 EXPECT_TRUE(insert(world.made_map.get(), groups("'A': {'settings': {}}")));
		 }},
		{"pim_init_with_regmerge", "an image", Refusal::kGoesOn, init_map(&kTable),
		 take_image,
		 [](World &world, bool) { expect_adopted(world, answers(false).adopted); },
		 drop_map},
		{"pim_init_with_regmerge", "a long list", Refusal::kGoesOn, init_map(&kTable),
		 take_long_list,
		 [](World &world, bool) {
			 EXPECT_EQ(
				 load(world.made_map.get(), std::string("s#long")),
				 (Lines{"ADDR_L1 {134217984=4128770 268435716=983040 402653448=196609} +597"}));
		 },
		 drop_map},
		{"pim_export", "copies what is there", Refusal::kNever,
		 [](World &world) {
			 std::vector<char> bytes(SLOT(pim_get_export_size)(world.map.get()));
			 const bool written =
				 SLOT(pim_export)(world.map.get(), bytes.data()) == bytes.size();
			 return Lines{said(written), std::string(bytes.begin(), bytes.end())};
		 }},
		{"pim_get_export_size", "adds up", Refusal::kNever,
		 [](World &world) {
			 return Lines{std::to_string(SLOT(pim_get_export_size)(world.map.get()))};
		 }},
		{"pim_merge", "two products", Refusal::kGoesOn, call_merge, make_map, expect_merged,
		 make_map},
		{"pim_get_reg_num", "counted on adoption", Refusal::kNever,
		 [](World &world) {
			 return Lines{std::to_string(SLOT(pim_get_reg_num)(
				 world.adopted.get(), E_PQ_MAX_DOMAIN, E_PQLV_MAX))};
		 }},
		one_register("pim_insert_regmap", insert_hardware, kNewText,
			     "a name that splits another, and more text", &pim::regname_to_func),
		one_register("pim_insert_regmap", insert_hardware, "GAT", "a beginning",
			     &pim::regname_to_func),
		register_list("pim_insert_regmap_json", SLOT(pim_insert_regmap_json), kNewHardware,
			      "names that share beginnings", &pim::regname_to_func,
			      {{"gain_left", 10}, {"ga", 11}, {"levels", 13}, {"z", 14}}),
		one_register("pim_insert_vregmap", insert_software, long_name("SW_STAND"),
			     "a name that splits another, and more text", &pim::vregname_to_func),
		one_register("pim_insert_vregmap", insert_software, "SW_S", "a beginning",
			     &pim::vregname_to_func),
		register_list("pim_insert_vregmap_json", SLOT(pim_insert_vregmap_json),
			      kNewSoftware, "names that share beginnings", &pim::vregname_to_func,
			      {{"sw_modes", 10}, {"sw_st", 11}, {"other", 12}}),
		register_list("pim_insert_vregmap_json", SLOT(pim_insert_vregmap_json),
			      kNewSoftware, "the customer names behind them",
			      &pim::cus_vregname_to_func, {{"cus", 13}, {"cus_shop_2", 14}}),
		one_register("pim_insert_cus_vregmap", insert_customer, long_name("CUS_STAND"),
			     "a name that splits another, and more text",
			     &pim::cus_vregname_to_func),
		register_list("pim_insert_cus_vregmap_json", SLOT(pim_insert_cus_vregmap_json),
			      kNewCustomer, "names that share beginnings",
			      &pim::cus_vregname_to_func,
			      {{"cus_sh", 15}, {"cus_shops", 16}, {"all", 17}}),
		{"pim_insert_file", "a small one", Refusal::kSays,
		 [](World &world) { return call_insert_file(world, "tab", "12"); }, nullptr,
		 [](World &world, bool) { expect_file(world, "tab", "12"); }},
		{"pim_insert_file", "a large one with a long name", Refusal::kSays,
		 [](World &world) { return call_insert_file(world, kNewText, kBigFile); }, nullptr,
		 [](World &world, bool) { expect_file(world, kNewText, kBigFile); }},
		{"pim_insert_handler", "a label", Refusal::kSays,
		 [](World &world) {
			 return answer(
				 SLOT(pim_insert_handler)(world.map.get(), "lu", record_table<1>));
		 },
		 nullptr, [](World &world, bool) { expect_handler(world, "lu"); }},
		{"pim_insert_handler", "a long label", Refusal::kSays,
		 [](World &world) {
			 return answer(SLOT(pim_insert_handler)(world.map.get(), kNewText.c_str(),
								record_table<1>));
		 },
		 nullptr, [](World &world, bool) { expect_handler(world, kNewText); }},
		{"pim_insert_alg_handler", "one place", Refusal::kNever,
		 [](World &world) {
			 return answer(
				 SLOT(pim_insert_alg_handler)(world.map.get(), record_algorithm));
		 }},
		{"pim_insert", "two IPs in and beside a folder", Refusal::kSays,
		 [](World &world) {
			 return answer(SLOT(pim_insert)(world.map.get(), world.document.get()));
		 },
		 take_new_groups, expect_new_groups},
		{"pim_load_setting_by_name", "delivers where it lies", Refusal::kNever,
		 [](World &world) {
			 return delivered(world, [](pim *map, Lines *to) {
				 SLOT(pim_load_setting_by_name)(map, "NR#High", record_block, to);
				 SLOT(pim_load_setting_by_name)(map, "nobody", record_block, to);
			 });
		 }},
		{"pim_load_setting", "delivers where it lies", Refusal::kNever,
		 [](World &world) {
			 return delivered(world, [](pim *map, Lines *to) {
				 SLOT(pim_load_setting)
				 (map, label_id(map, "NR#High"), true, record_block, to);
				 SLOT(pim_load_setting)(map, 0xFFF0, true, record_block, to);
			 });
		 }},
		{"pim_load_setting_count", "delivers where it lies", Refusal::kNever,
		 [](World &world) {
			 return delivered(world, [](pim *map, Lines *to) {
				 const u32 left = SLOT(pim_load_setting_count)(
					 map, label_id(map, "NR#High"), 3, record_block, to);
				 to->push_back(std::to_string(left));
			 });
		 }},
		{"pim_load_preset", "delivers where it lies", Refusal::kNever,
		 [](World &world) {
			 return delivered(world, [](pim *map, Lines *to) {
				 u16 ids[] = {label_id(map, "Preset#Day"),
					      label_id(map, "Preset#Night")};
				 char name[] = "MODE_REGS";
				 SLOT(pim_load_preset)(map, ids, 2, name, record_block, to);
			 });
		 }},
		{"pim_load_common_reg_setting", "delivers where it lies", Refusal::kNever,
		 [](World &world) {
			 return delivered(world, [](pim *map, Lines *to) {
				 SLOT(pim_load_common_reg_setting)(map, record_block, to);
			 });
		 }},
		{"pim_get_setting", "points into the store", Refusal::kNever,
		 [](World &world) {
			 char *label = nullptr;
			 SLOT(pim_get_setting)
			 (world.map.get(), label_id(world.map.get(), "Sync#On"), &label);
			 return Lines{label ? label : "(null)"};
		 }},
		{"pim_destroy", "gives back", Refusal::kNever,
		 [](World &world) { return answer(SLOT(pim_destroy)(untyped(world.map))); }},
		{"pim_finish", "gives back", Refusal::kNever,
		 [](World &world) { return answer(SLOT(pim_finish)(world.map.get())); }},
		{"pim_get_version", "a field", Refusal::kNever,
		 [](World &world) { return version_of(SLOT(pim_get_version), world.map.get()); }},
		{"pim_get_hwreg_version", "a field", Refusal::kNever,
		 [](World &world) {
			 return version_of(SLOT(pim_get_hwreg_version), world.map.get());
		 }},
		{"pim_get_swreg_version", "a field", Refusal::kNever,
		 [](World &world) {
			 return version_of(SLOT(pim_get_swreg_version), world.map.get());
		 }},
		{"pim_get_cus_swreg_version", "a field", Refusal::kNever,
		 [](World &world) {
			 return version_of(SLOT(pim_get_cus_swreg_version), world.map.get());
		 }},
		{"pim_get_pim_version", "walks within a budget", Refusal::kNever,
		 [](World &world) {
			 vexil_version version{};
			 const bool known =
				 SLOT(pim_get_pim_version)(world.map.get(), &version, "Noise");
			 return Lines{said(known), version_text(known, version)};
		 }},
		{"pim_get_cus_version", "points into the record", Refusal::kNever,
		 [](World &world) {
			 char *note = nullptr;
			 const bool known = SLOT(pim_get_cus_version)(world.map.get(), &note);
			 return Lines{said(known), note ? note : "(null)"};
		 }},
		{"rm_init", "empty", Refusal::kSays, call_init_rules, nullptr,
		 [](World &world, bool) {
			 EXPECT_TRUE(rm_insert_source_json(world.made_rules.get(),
							   json(kSources).get()));
		 }},
		{"rm_init", "an image", Refusal::kSays, call_init_rules, take_rules_image,
		 [](World &world, bool) {
			 EXPECT_EQ(ask(world.made_rules.get()), answers(false).rules);
		 },
		 drop_rules},
		{"rm_get_export_size", "adds up", Refusal::kNever,
		 [](World &world) {
			 return Lines{std::to_string(SLOT(rm_get_export_size)(world.rules.get()))};
		 }},
		{"rm_export", "copies what is there", Refusal::kNever,
		 [](World &world) {
			 std::vector<char> bytes(SLOT(rm_get_export_size)(world.rules.get()));
			 const bool written =
				 SLOT(rm_export)(world.rules.get(), bytes.data()) == bytes.size();
			 return Lines{said(written), std::string(bytes.begin(), bytes.end())};
		 }},
		{"rm_merge", "two products", Refusal::kSays, call_merge_rules, make_merge_of_rules,
		 expect_merged_rules, [](World &world) { ASSERT_TRUE(world.made_rules.init()); }},
		{"rm_insert_source_json", "sources of each kind", Refusal::kSays,
		 call_insert_sources, take_new_sources, expect_new_sources},
		{"rm_insert", "rules that lead to each other", Refusal::kGoesOn, call_insert_rules,
		 take_new_rules, expect_new_rules, as_it_is},
		{"rm_set", "writes into the key", Refusal::kNever,
		 [](World &world) {
			 return Lines{said(SLOT(rm_set)(world.rules.get(),
							"Input:Tuner;Luma;Nobody:1", 64)),
				      key_of(world.rules->rmInd)};
		 }},
		{"rm_trigger", "every rule", Refusal::kGoesOn,
		 [](World &world) { return trigger(world, nullptr); },
		 [](World &world) { ASSERT_TRUE(rm_set(world.rules.get(), kStates[0], 0)); },
		 nullptr,
		 [](World &world) { ASSERT_TRUE(rm_set(world.rules.get(), kStates[0], 0)); }},
		{"rm_trigger", "long lists and an unknown name", Refusal::kGoesOn,
		 [](World &world) { return trigger(world, "Many;Nobody;Top"); }, insert_deep_rules,
		 nullptr, [](World &world) { ASSERT_TRUE(rm_clear(world.rules.get())); }},
		{"rm_trigger", "deep rules", Refusal::kSays,
		 [](World &world) { return trigger(world, "Deep0"); },
		 [](World &world) {
			 insert_deep_rules(world);
			 EXPECT_EQ(trigger(world, "Deep0").front(),
				   "true"); // the lists are as long as they get
		 }},
		{"rm_clear", "zeroes what is there", Refusal::kNever,
		 [](World &world) {
			 return Lines{said(SLOT(rm_clear)(world.rules.get())),
				      key_of(world.rules->rmInd)};
		 },
		 [](World &world) { ASSERT_TRUE(rm_set(world.rules.get(), kStates[0], 0)); }},
		{"rm_get_result", "points at the list", Refusal::kNever,
		 [](World &world) {
			 u16 *ids = nullptr;
			 const std::size_t count = SLOT(rm_get_result)(world.rules.get(), &ids);
			 return Lines{ids_text({ids, ids + count})};
		 },
		 [](World &world) { selected(world.rules.get(), kStates[0], "Top"); }},
		{"rm_get_preset", "points at the list", Refusal::kNever,
		 [](World &world) {
			 u16 *ids = nullptr;
			 const std::size_t count = SLOT(rm_get_preset)(world.rules.get(), &ids);
			 return Lines{ids_text({ids, ids + count})};
		 },
		 [](World &world) { selected(world.rules.get(), kStates[0], "Top"); }},
		{"rm_create_handler", "one more", Refusal::kSays,
		 [](World &world) {
			 const bool done = SLOT(rm_create_handler)(world.adopted_rules.get(),
								   untyped(world.made_handler));
			 EXPECT_EQ(world.made_handler.get() != nullptr, done);
			 return answer(done);
		 },
		 nullptr,
		 [](World &world, bool) {
			 EXPECT_EQ(selections(world.made_handler.get(), "Top"),
				   answers(false).handler);
		 }},
		{"rm_handler_set", "writes into the key", Refusal::kNever,
		 [](World &world) {
			 return Lines{said(SLOT(rm_handler_set)(world.handler.get(),
								"Input:Tuner;Luma;Nobody:1", 64)),
				      key_of(world.handler.get()->rmInd)};
		 }},
		{"rm_handler_trigger", "every rule", Refusal::kGoesOn,
		 [](World &world) { return handler_trigger(world.handler.get(), nullptr); },
		 [](World &world) {
			 ASSERT_TRUE(rm_handler_set(world.handler.get(), kStates[0], 0));
		 },
		 nullptr,
		 [](World &world) {
			 ASSERT_TRUE(rm_handler_set(world.handler.get(), kStates[0], 0));
		 }},
		{"rm_handler_trigger", "long lists and an unknown name", Refusal::kGoesOn,
		 [](World &world) {
			 return handler_trigger(world.made_handler.get(), "Many;Nobody;Top");
		 },
		 adopt_deep_rules, nullptr, as_it_is},
		{"rm_handler_trigger", "deep rules", Refusal::kSays,
		 [](World &world) { return handler_trigger(world.made_handler.get(), "Deep0"); },
		 [](World &world) {
			 adopt_deep_rules(world);
			 EXPECT_EQ(handler_trigger(world.made_handler.get(), "Deep0").front(),
				   "true");
		 }},
		{"rm_handler_clear", "zeroes what is there", Refusal::kNever,
		 [](World &world) {
			 return Lines{said(SLOT(rm_handler_clear)(world.handler.get())),
				      key_of(world.handler.get()->rmInd)};
		 },
		 [](World &world) {
			 ASSERT_TRUE(rm_handler_set(world.handler.get(), kStates[0], 0));
		 }},
		{"rm_handler_get_result", "points at the list", Refusal::kNever,
		 [](World &world) { return lists_of(world.handler.get()); },
		 [](World &world) { selections(world.handler.get(), "Top"); }},
		{"rm_handler_get_preset", "points at the list", Refusal::kNever,
		 [](World &world) { return lists_of(world.handler.get()); },
		 [](World &world) { selections(world.handler.get(), "Top"); }},
		{"rm_destroy", "gives back", Refusal::kNever,
		 [](World &world) { return answer(SLOT(rm_destroy)(untyped(world.rules))); }},
		{"rm_handler_destroy", "gives back", Refusal::kNever,
		 [](World &world) {
			 return answer(SLOT(rm_handler_destroy)(untyped(world.handler)));
		 }},
		{"rm_finish", "for the first time", Refusal::kSays,
		 [](World &world) { return answer(SLOT(rm_finish)(world.made_rules.get())); },
		 make_unfinished,
		 [](World &world, bool) {
			 expect_sound_export(world.made_rules.get(), answers(false).rules);
		 }},
		{"rm_finish", "after more has come", Refusal::kSays,
		 [](World &world) { return answer(SLOT(rm_finish)(world.rules.get())); },
		 insert_more,
		 [](World &world, bool) {
			 expect_new_rules(world, false);
			 expect_new_sources(world, false);
		 }},
		{"rm_get_version", "a field", Refusal::kNever,
		 [](World &world) { return version_of(SLOT(rm_get_version), world.rules.get()); }},
		{"rm_get_rl_version", "a field", Refusal::kNever,
		 [](World &world) {
			 return version_of(SLOT(rm_get_rl_version), world.rules.get());
		 }},
		{"rm_get_rm_version", "walks within a budget", Refusal::kNever,
		 [](World &world) {
			 vexil_version version{};
			 const bool known =
				 SLOT(rm_get_rm_version)(world.rules.get(), &version, "Top");
			 return Lines{said(known), version_text(known, version)};
		 }},
		{"rm_get_cus_version", "points into the record", Refusal::kNever,
		 [](World &world) {
			 char *note = nullptr;
			 const bool known = SLOT(rm_get_cus_version)(world.rules.get(), &note);
			 return Lines{said(known), note ? note : "(null)"};
		 }},
		{"graphic_presetdb_parse", "reads where it lies", Refusal::kNever,
		 [](World &world) {
			 graphic_presetdb_info info{};
			 const bool done =
				 SLOT(graphic_presetdb_parse)(world.document.get(), &info);
			 return Lines{said(done), std::to_string(info.input.range),
				      std::to_string(info.hue)};
		 },
		 [](World &world) { world.document = json(kPresets); }},
	};
	return all;
}

class SlotWithoutMemory : public RowTest {};
class SlotWithoutRoom : public RowTest {};
class SlotThatAsksForNone : public RowTest {};

const char *const kSlots[] = {
#define VEXIL_SLOT_NAME(result, name, arguments) #name,
	VEXIL_SERVICES(VEXIL_SLOT_NAME)
#undef VEXIL_SLOT_NAME
};

TEST(SlotsWithoutMemory, EverySlotHasARowAndEveryRowASlot)
{
	std::set<std::string> with_rows;
	for (const Row &row : rows())
		with_rows.insert(row.name);
	EXPECT_EQ(with_rows, std::set<std::string>(std::begin(kSlots), std::end(kSlots)));
	EXPECT_EQ(with_rows.size(), 57u);
}

TEST_P(SlotWithoutMemory, LosesNothingAndWorksAgain)
{
	sweep(std::get<Row>(GetParam()), std::get<bool>(GetParam()));
}

TEST_P(SlotWithoutRoom, LosesNothingAndWorksAgain)
{
	sweep_growth(std::get<Row>(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(
	Table, SlotWithoutRoom,
	testing::Combine(testing::ValuesIn(rows_that_grow(rows(), {"pim_insert_file", "pim_insert",
								   "rm_insert_source_json",
								   "rm_insert", "rm_finish"})),
			 testing::Values(false)),
	test_name);

INSTANTIATE_TEST_SUITE_P(Table, SlotWithoutMemory,
			 testing::Combine(testing::ValuesIn(rows_that(rows(), true)),
					  testing::Bool()),
			 test_name);

TEST_P(SlotThatAsksForNone, DoesTheSameWithoutAny)
{
	expect_no_request(std::get<Row>(GetParam()), std::get<bool>(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Table, SlotThatAsksForNone,
			 testing::Combine(testing::ValuesIn(rows_that(rows(), false)),
					  testing::Values(false)),
			 test_name);

} // namespace
