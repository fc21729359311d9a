// SPDX-License-Identifier: MIT
//
// The other exported functions without memory: those that the slots stand on, and those that have
// no slot. Each has a row, as every slot has one.
#include <filesystem>
#include <fstream>

#include "tests/support/registration.h"
#include "tests/sweep/world.h"

extern "C" {
bool __presetdb_get_IOinfo(cJSON *preset, graphic_presetdb_info *info, const char *name);
bool __presetdb_get_hdrmode(cJSON *preset, presetdb_hdr_mode *mode, const char *name);
}

namespace {

using namespace vexil_test;

// ---- names ----

void make_trie(World &world)
{
	ASSERT_TRUE(ctrie_init(&world.parts.trie));
	ASSERT_TRUE(ctrie_insert(&world.parts.trie, "abcd", 1));
	ASSERT_TRUE(ctrie_insert(&world.parts.trie, "xy", 2));
	// Its text stays behind the others, from 6 to 10, without a node of its own.
	ASSERT_FALSE(ctrie_insert(&world.parts.trie, "abcd", 3));
}

/** More branches than a walk keeps in its frame. */
void make_broad_trie(World &world)
{
	make_trie(world);
	for (char c = 'c'; c <= 'w'; ++c)
		ASSERT_TRUE(ctrie_insert(&world.parts.trie, std::string(2, c).c_str(), c));
}

Lines entered(World &world, const std::string &name)
{
	return answer(ctrie_insert(&world.parts.trie, name.c_str(), 7));
}

void expect_names(World &world)
{
	EXPECT_EQ(ctrie_find(&world.parts.trie, "abcd"), 1);
	EXPECT_EQ(ctrie_find(&world.parts.trie, "xy"), 2);
}

Row entering(const char *how, const std::string &name)
{
	return {"ctrie_insert",
		how,
		Refusal::kSays,
		[name](World &world) { return entered(world, name); },
		make_trie,
		[name](World &world, bool) {
			expect_names(world);
			EXPECT_EQ(ctrie_find(&world.parts.trie, name.c_str()), 7);
		}};
}

// ---- stores ----

void make_store(World &world)
{
	ASSERT_TRUE(extmem_builder_init(&world.parts.store, nullptr, 0));
	extmem_request_node(&world.parts.store, EXTMEM_TAG_GENERAL);
	World::fill(&world.parts.store);
	// The next node and the next record need another buffer.
	extmem_request_node(&world.parts.store, EXTMEM_TAG_GENERAL);
}

Lines valid(node_d node)
{
	return answer(extmem_node_isvalid(node));
}

void expect_store(World &world, bool)
{
	extmem_builder *store = &world.parts.store;
	EXPECT_TRUE(extmem_node_isvalid(extmem_request_node(store, EXTMEM_TAG_GENERAL)));
	for (u16 id = 0; id * kImageNodeBytes < store->node_buffer.buf_used; ++id)
		EXPECT_TRUE(extmem_node_isvalid({id, store})) << id;
}

void make_stores(World &world)
{
	ASSERT_TRUE(extmem_builder_init(&world.parts.store, nullptr, 0));
	world.image = image_of(world.other_map.get());
	ASSERT_TRUE(
		extmem_builder_init(&world.parts.other, world.image.data(), world.image.size()));
}

void make_stores_anew(World &world)
{
	extmem_builder_destroy(&world.parts.store);
	make_stores(world);
}

/** A chain of children that all have siblings: a dump must remember each. */
void make_deep_store(World &world)
{
	ASSERT_TRUE(extmem_builder_init(&world.parts.store, nullptr, 0));
	node_d node = extmem_request_node(&world.parts.store, EXTMEM_TAG_GENERAL);
	for (int i = 0; i < 24; ++i) {
		const node_d child = extmem_request_node(&world.parts.store, EXTMEM_TAG_GENERAL);
		extmem_append_child(node, child);
		extmem_append_next(child,
				   extmem_request_node(&world.parts.store, EXTMEM_TAG_GENERAL));
		node = child;
	}
}

// ---- maps ----

/** An adopted map whose IPs and labels have lost their names. */
void make_map_without_labels(World &world)
{
	world.image = image_of(world.map.get());
	ASSERT_TRUE(adopt_copy(world.made_map, world.image));
	for (ctrie *names :
	     {&world.made_map->ip_map, &world.made_map->ipname_map, &world.made_map->preset_map}) {
		ctrie_destroy(names);
		ASSERT_TRUE(ctrie_init(names));
	}
}

/** The same, and the files, too. */
void make_map_without_names(World &world)
{
	make_map_without_labels(world);
	ctrie_destroy(&world.made_map->file_map);
	ASSERT_TRUE(ctrie_init(&world.made_map->file_map));
}

/** The node that a name leads to in the map that has them, which has the same ids. */
node_d named_in_made(World &world, const ctrie &names, const char *name)
{
	return {static_cast<u16>(ctrie_find(&names, name)), &world.made_map->builder};
}

Pairs two_pairs()
{
	return {{0, 1}, {1, 8}};
}

// ---- rules ----

/** A source of three values. */
Lines call_insert_source(World &world)
{
	std::string texts[] = {"one", "two", "three"};
	char *values[] = {texts[0].data(), texts[1].data(), texts[2].data()};
	return answer(rm_insert_source(world.rules.get(), "Count", values, 3));
}

Lines call_insert_redefined(World &world)
{
	std::string texts[] = {"low", "high"};
	char *values[] = {texts[0].data(), texts[1].data()};
	return answer(rm_insert_source_redefine(world.rules.get(), "Level", values, 2,
						world.document.get()));
}

/** Each of @conditions decides about a rule of its own. */
void expect_sources(World &world,
		    const std::vector<std::pair<std::string, const char *>> &conditions)
{
	std::vector<std::string> cases;
	for (const auto &[condition, state] : conditions)
		cases.push_back(rule_case(condition, "'NR#Low'"));
	for (std::size_t i = 0; i < cases.size(); ++i) {
		ASSERT_TRUE(add_rules(world.rules.get(), world.map.get(),
				      rule("Use" + std::to_string(i), {cases[i]})));
	}
	ASSERT_TRUE(rm_finish(world.rules.get()));
	world.unsealed = false;
	for (std::size_t i = 0; i < conditions.size(); ++i) {
		for (std::size_t j = 0; j < conditions.size(); ++j) {
			EXPECT_EQ(selected(world.rules.get(), conditions[j].second,
					   ("Use" + std::to_string(i)).c_str())
					  .size(),
				  i == j ? 1u : 0u);
		}
	}
}

Row declaring(const char *name, const char *how, Lines (*const call)(World &), const char *document,
	      const std::vector<std::pair<std::string, const char *>> &conditions)
{
	return {name,
		how,
		Refusal::kSays,
		call,
		[document](World &world) {
			if (document)
				world.document = json(document);
			world.unsealed = true;
		},
		[conditions](World &world, bool) { expect_sources(world, conditions); }};
}

/** Rules with more ids than a list begins with; lists that are empty. */
void insert_long_lists(World &world)
{
	ASSERT_TRUE(add_rules(
		world.rules.get(), world.map.get(),
		rule("Many",
		     {rule_case("", quoted(std::vector<std::string>(40, "NR#Low")) + ", " +
					    quoted(std::vector<std::string>(40, "Preset#Day")))})));
	ASSERT_TRUE(rm_finish(world.rules.get()));
}

Lines lists_of(World &world, bool done)
{
	return {said(done), ids_text(results_of(world.rules.get())),
		ids_text(presets_of(world.rules.get()))};
}

// ---- the table ----

/** A function that asks for no memory. */
Row none(const char *name, const char *why, std::function<Lines(World &)> call,
	 std::function<void(World &)> prepare = nullptr)
{
	return {name, why, Refusal::kNever, std::move(call), std::move(prepare)};
}

node_d root_of(World &world)
{
	return world.map->root;
}
node_d text_node(World &world)
{
	const node_d ip{static_cast<u16>(ctrie_find(&world.map->ip_map, "noise")),
			&world.map->builder};
	return extmem_get_child(extmem_get_next(ip));
}
Lines number(std::size_t value)
{
	return {std::to_string(value)};
}

const std::string kText = long_name("ab");

const std::vector<Row> &rows()
{
	static const std::vector<Row> all = {
		{"ALLOC", "a block", Refusal::kSays,
		 [](World &world) { return answer((world.parts.block = ALLOC(1000)) != nullptr); }},
		{"REALLOC", "a larger block", Refusal::kSays,
		 [](World &world) {
			 void *moved = REALLOC(world.parts.block, 8, 5000);
			 world.parts.block = moved ? moved : world.parts.block;
			 return answer(moved != nullptr);
		 },
		 [](World &world) {
			 world.parts.block = ALLOC(8);
			 std::memcpy(world.parts.block, "1234567", 8);
		 },
		 [](World &world, bool) {
			 EXPECT_STREQ(static_cast<char *>(world.parts.block), "1234567");
		 }},
		none(
			"DEALLOC", "gives back",
			[](World &world) {
				DEALLOC(std::exchange(world.parts.block, nullptr));
				return answer(true);
			},
			[](World &world) { world.parts.block = ALLOC(8); }),
		none("vexil_mem_init", "a record",
		     [](World &) {
			     vexil_mem_info info{};
			     return answer(vexil_mem_init(&info));
		     }),
		none("vexil_mem_status", "a record",
		     [](World &) {
			     vexil_mem_info info{};
			     return answer(vexil_mem_status(&info));
		     }),
		none("vexil_mem_alloc", "does nothing",
		     [](World &) { return answer(vexil_mem_alloc()); }),
		none("vexil_strtoull", "digits",
		     [](World &) {
			     u64 value = 0;
			     vexil_strtoull("0x1f", &value, 0);
			     return number(value);
		     }),

		{"ctrie_init", "root and text", Refusal::kSays,
		 [](World &world) { return answer(ctrie_init(&world.parts.trie)); }, nullptr,
		 [](World &world, bool) { EXPECT_EQ(entered(world, "a"), answer(true)); }},
		entering("below the root", "b"),
		entering("below a name", "abcde"),
		entering("the beginning of a name", "ab"),
		entering("a name that splits another", "abxy"),
		entering("more text", kText),
		none("ctrie_find", "walks",
		     [](World &world) {
			     return number(static_cast<std::size_t>(
				     ctrie_find(&world.map->file_map, "table.bin")));
		     }),
		none(
			"ctrie_destroy", "gives back",
			[](World &world) {
				ctrie_destroy(&world.parts.trie);
				return answer(world.parts.trie.buf == nullptr);
			},
			make_trie),
		{"ctrie_print", "many branches", Refusal::kSays,
		 [](World &world) {
			 take_log();
			 ctrie_print(&world.parts.trie);
			 return take_log_lines();
		 },
		 make_broad_trie, [](World &world, bool) { expect_names(world); }, as_it_is,
		 "[__ctrie_print_node][571]vexil lib fail!!"},
		{"__ctrie_print_node", "many branches", Refusal::kSays,
		 [](World &world) {
			 take_log();
			 __ctrie_print_node(world.parts.trie.root, 1);
			 return take_log_lines();
		 },
		 make_broad_trie, [](World &world, bool) { expect_names(world); }, as_it_is,
		 "[__ctrie_print_node][571]vexil lib fail!!"},
		{"__ctrie_insert_string", "a part of a name", Refusal::kSays,
		 [](World &world) {
			 return answer(__ctrie_insert_string(world.parts.trie.root, 6, 8, 7));
		 },
		 make_trie,
		 [](World &world, bool) {
			 expect_names(world);
			 EXPECT_EQ(ctrie_find(&world.parts.trie, "ab"), 7);
		 }},
		{"__ctrie_split_node", "a name", Refusal::kSays,
		 [](World &world) {
			 return answer(
				 __ctrie_split_node(world.parts.trie.root->child[CT_CH_a], 2));
		 },
		 make_trie, [](World &world, bool) { expect_names(world); }},
		none(
			"__ctrie_delete_node", "gives back",
			[](World &world) {
				__ctrie_delete_node(std::exchange(world.parts.trie.root, nullptr));
				return answer(true);
			},
			make_trie),

		{"extmem_builder_init", "empty", Refusal::kSays,
		 [](World &world) {
			 return answer(extmem_builder_init(&world.parts.store, nullptr, 0));
		 },
		 nullptr,
		 [](World &world, bool) {
			 EXPECT_TRUE(extmem_node_isvalid(
				 extmem_request_node(&world.parts.store, EXTMEM_TAG_GENERAL)));
		 }},
		none(
			"extmem_builder_init", "an image stays where it is",
			[](World &world) {
				return answer(extmem_builder_init(&world.parts.store,
								  world.image.data(),
								  world.image.size()));
			},
			[](World &world) { world.image = image_of(world.map.get()); }),
		none(
			"extmem_builder_destroy", "gives back",
			[](World &world) {
				return answer(extmem_builder_destroy(&world.parts.store));
			},
			make_store),
		{"extmem_request_node", "one too many", Refusal::kSays,
		 [](World &world) {
			 return valid(extmem_request_node(&world.parts.store, EXTMEM_TAG_GENERAL));
		 },
		 make_store, expect_store},
		{"extmem_request_data", "one too many", Refusal::kSays,
		 [](World &world) {
			 return answer(extmem_request_data(&world.parts.store, 64).owner !=
				       nullptr);
		 },
		 make_store, expect_store},
		{"extmem_get_data", "node and record too many", Refusal::kSays,
		 [](World &world) {
			 std::string bytes(64, 'x');
			 return valid(extmem_get_data(&world.parts.store, EXTMEM_TAG_DATA,
						      bytes.data(), 64));
		 },
		 make_store, expect_store},
		{"__extmem_buffer_request", "one too many", Refusal::kSays,
		 [](World &world) {
			 return answer(__extmem_buffer_request(&world.parts.store,
							       &world.parts.store.data_buffer,
							       64) != nullptr);
		 },
		 make_store, expect_store},
		none("extmem_create_node_d", "pairs",
		     [](World &world) {
			     return valid(extmem_create_node_d(&world.map->builder, 1));
		     }),
		none("extmem_node_isvalid", "compares",
		     [](World &world) { return valid(root_of(world)); }),
		none("extmem_data_isvalid", "compares",
		     [](World &world) {
			     return answer(
				     extmem_data_isvalid(extmem_copy_from_node(text_node(world))));
		     }),
		none("extmem_fetch_node", "copies out",
		     [](World &world) { return number(extmem_fetch_node(root_of(world)).tag); }),
		none("extmem_fetch_node_by_id", "copies out",
		     [](World &world) {
			     return number(extmem_fetch_node_by_id(&world.map->builder, 1).tag);
		     }),
		none("extmem_set_node", "copies in",
		     [](World &world) {
			     const node_d root = root_of(world);
			     return answer(extmem_set_node(&root, extmem_fetch_node(root)));
		     }),
		none("extmem_fetch_tag", "copies out",
		     [](World &world) {
			     return number(
				     static_cast<std::size_t>(extmem_fetch_tag(root_of(world))));
		     }),
		none("extmem_set_tag", "copies in",
		     [](World &world) {
			     return answer(extmem_set_tag(root_of(world), EXTMEM_TAG_GENERAL));
		     }),
		none("extmem_fetch_id", "copies out",
		     [](World &world) { return number(extmem_fetch_id(text_node(world))); }),
		none("extmem_request_max_node_id", "divides",
		     [](World &world) {
			     return number(extmem_request_max_node_id(&world.map->builder));
		     }),
		none("extmem_request_data_buf_used", "a field",
		     [](World &world) {
			     return number(extmem_request_data_buf_used(&world.map->builder));
		     }),
		none(
			"extmem_append_next", "links",
			[](World &world) {
				return answer(extmem_append_next({2, &world.parts.store},
								 {3, &world.parts.store}));
			},
			make_store),
		none(
			"extmem_append_child", "links",
			[](World &world) {
				return answer(extmem_append_child({2, &world.parts.store},
								  {3, &world.parts.store}));
			},
			make_store),
		none(
			"extmem_append_child_cond", "links",
			[](World &world) {
				return valid(extmem_append_child_cond({2, &world.parts.store},
								      {kNoId, nullptr},
								      {3, &world.parts.store}));
			},
			make_store),
		none(
			"extmem_break_next", "links",
			[](World &world) {
				return answer(extmem_break_next({2, &world.parts.store}));
			},
			make_store),
		none("extmem_get_next", "reads a link",
		     [](World &world) {
			     return number(extmem_get_next(extmem_get_child(root_of(world))).id);
		     }),
		none("extmem_get_child", "reads a link",
		     [](World &world) { return number(extmem_get_child(root_of(world)).id); }),
		none("extmem_find_tail", "walks",
		     [](World &world) {
			     return number(extmem_find_tail(extmem_get_child(root_of(world))).id);
		     }),
		none("extmem_find_next", "walks",
		     [](World &world) {
			     return number(extmem_find_next(extmem_get_child(extmem_get_child(
								    root_of(world))),
							    EXTMEM_TAG_PROPERTY)
						   .id);
		     }),
		none("extmem_fetch_data", "points into the store",
		     [](World &world) {
			     return Lines{static_cast<char *>(
				     extmem_fetch_data(extmem_copy_from_node(text_node(world))))};
		     }),
		none("extmem_fetch_datalen", "a field",
		     [](World &world) {
			     return number(
				     extmem_fetch_datalen(extmem_copy_from_node(text_node(world))));
		     }),
		none("extmem_set_data", "copies in",
		     [](World &world) {
			     data_d record = extmem_copy_from_node(text_node(world));
			     std::string text = "Noise";
			     return answer(extmem_set_data(&record, text.data(), text.size() + 1));
		     }),
		none("extmem_copy_to_node", "copies in",
		     [](World &world) {
			     return answer(extmem_copy_to_node(
				     text_node(world), extmem_copy_from_node(text_node(world))));
		     }),
		none("extmem_copy_from_node", "copies out",
		     [](World &world) {
			     return number(extmem_copy_from_node(text_node(world)).size);
		     }),
		none("extmem_builder_get_export_size", "adds up",
		     [](World &world) {
			     return number(extmem_builder_get_export_size(&world.map->builder));
		     }),
		none("extmem_builder_export", "copies what is there",
		     [](World &world) {
			     std::vector<char> bytes(
				     extmem_builder_get_export_size(&world.map->builder));
			     return number(
				     extmem_builder_export(&world.map->builder, bytes.data()));
		     }),
		{"extmem_merge_buffer", "two stores", Refusal::kSays,
		 [](World &world) {
			 return answer(extmem_merge_buffer(&world.parts.store, &world.map->builder,
							   &world.parts.other));
		 },
		 make_stores,
		 [](World &world, bool) {
			 EXPECT_EQ(world.parts.store.node_buffer.buf_used,
				   world.map->builder.node_buffer.buf_used +
					   world.parts.other.node_buffer.buf_used);
			 EXPECT_EQ(world.parts.store.data_buffer.buf_used,
				   world.map->builder.data_buffer.buf_used +
					   world.parts.other.data_buffer.buf_used);
		 },
		 make_stores_anew},
		{"extmem_print", "a deep tree", Refusal::kSays,
		 [](World &world) {
			 take_log();
			 extmem_print(&world.parts.store, {0, &world.parts.store}, 0);
			 return take_log_lines();
		 },
		 make_deep_store, nullptr, as_it_is, "[extmem_print][613]vexil lib fail!!"},

		none("__pim_check_bin_version", "compares",
		     [](World &world) {
			     return answer(__pim_check_bin_version(world.adopted.get(),
								   &world.adopted->builder.header));
		     }),
		{"__pim_scan_ipname", "an IP", Refusal::kGoesOn,
		 [](World &world) {
			 return answer(__pim_scan_ipname(
				 world.made_map.get(),
				 named_in_made(world, world.map->ip_map, "noise")));
		 },
		 make_map_without_labels,
		 [](World &world, bool) {
			 EXPECT_EQ(label_id(world.made_map.get(), "NR#High"),
				   label_id(world.map.get(), "NR#High"));
			 EXPECT_EQ(label_id(world.made_map.get(), "Sync#On"),
				   label_id(world.map.get(), "Sync#On"));
		 },
		 as_it_is},
		{"__pim_scan_file", "a file", Refusal::kSays,
		 [](World &world) {
			 return answer(__pim_scan_file(
				 world.made_map.get(),
				 named_in_made(world, world.map->file_map, "table.bin")));
		 },
		 make_map_without_names,
		 [](World &world, bool) {
			 EXPECT_EQ(ctrie_find(&world.made_map->file_map, "table.bin"),
				   ctrie_find(&world.map->file_map, "table.bin"));
		 }},
		none(
			"__pim_get_version", "numbers and a note",
			[](World &world) {
				vexil_version version{};
				char note[32] = "";
				__pim_get_version(world.document.get(), &version, note);
				return Lines{version_text(true, version), note};
			},
			[](World &world) {
				world.document = json(
					"{'MajorVersion': 2, 'MinorVersion': 1, 'Revision': '1F', 'Note': 'x'}");
			}),
		{"__pim_find_ip", "two IPs in and beside a folder", Refusal::kSays,
		 [](World &world) {
			 cJSON *history[8] = {};
			 const cJSON *groups = world.document->child->next; // behind the version
			 return answer(__pim_find_ip(world.map.get(), groups->child, history, 0));
		 },
		 take_new_groups, expect_new_groups},
		{"__pim_search_common_hwregister", "of the second member", Refusal::kSays,
		 [](World &world) {
			 CommonList list(two_pairs());
			 const bool some = __pim_search_common_hwregister(
				 world.map.get(), world.document.get(), list.get());
			 return some ? Lines{"true", list.text()} : answer(false);
		 },
		 [](World &world) { world.document = json("{'hwreg': {'GAIN': 8, 'MODE': 1}}"); }},
		{"__pim_get_common_reg_config", "a list", Refusal::kSays,
		 [](World &world) {
			 CommonList list(two_pairs());
			 return valid(__pim_get_common_reg_config(world.map.get(), "X#commonReg",
								  list.get()));
		 },
		 [](World &world) { World::fill(&world.map->builder); }},
		{"__pim_get_ipconfig", "every kind of block", Refusal::kSays,
		 [](World &world) {
			 CommonList list;
			 return valid(__pim_get_ipconfig(world.map.get(), world.document.get(),
							 "X#1", list.get(), {kNoId, nullptr}, false,
							 false));
		 },
		 [](World &world) {
			 world.document = json(
				 "{'hwreg': {'GAIN': 8}, 'swreg': {'SW_STEP': 1}, 'lut': {'lut_a': 'table.bin'},"
				 " 'alg': {'e': 'table.bin'}, 'hwaddr': {'0x1F0': 5}, 'cus_swreg': {'CUS_SHOP': 1}}");
		 }},
		none("pim_query_setting_id", "looks up",
		     [](World &world) {
			     return number(pim_query_setting_id(world.map.get(), "NR#Low"));
		     }),
		none("pim_query_preset_id", "looks up",
		     [](World &world) {
			     return number(pim_query_preset_id(world.map.get(), "Preset#Day"));
		     }),
		none("__pim_load_node", "delivers where it lies",
		     [](World &world) {
			     Lines lines;
			     const node_d config{label_id(world.map.get(), "NR#Low"),
						 &world.map->builder};
			     lines.push_back(std::to_string(__pim_load_node(
				     world.map.get(), config, 5, record_block, &lines)));
			     return lines;
		     }),
		none("pim_print", "a map is less deep than a dump remembers without memory",
		     [](World &world) {
			     take_log();
			     pim_print(world.map.get());
			     return take_log_lines();
		     }),

		{"rm_find", "more ids than a list begins with", Refusal::kGoesOn,
		 [](World &world) {
			 return lists_of(world, rm_find(world.rules.get(), kStates[0], "Many"));
		 },
		 insert_long_lists, nullptr, as_it_is},
		{"rm_find", "an unknown rule", Refusal::kNever,
		 [](World &world) {
			 return answer(rm_find(world.rules.get(), kStates[0], "Nobody"));
		 }},
		none(
			"rm_get_num_result", "a field",
			[](World &world) { return number(rm_get_num_result(world.rules.get())); },
			[](World &world) { selected(world.rules.get(), kStates[0], "Top"); }),
		{"rm_handler_find", "every rule, with empty lists", Refusal::kGoesOn,
		 [](World &world) {
			 const bool done =
				 rm_handler_find(world.made_handler.get(), kStates[0], "Top");
			 return Lines{said(done), ids_text(results_of(world.made_rules.get())),
				      ids_text(presets_of(world.made_rules.get()))};
		 },
		 [](World &world) {
			 world.image = image_of(world.rules.get());
			 ASSERT_TRUE(rm_init(world.made_rules.out(), world.image.data(),
					     world.image.size()));
			 ASSERT_TRUE(rm_create_handler(world.made_rules.get(),
						       world.made_handler.out()));
		 },
		 nullptr, [](World &world) { rm_trigger(world.made_rules.get(), "nobody"); }},
		none(
			"rm_handler_get_num_result", "a field",
			[](World &world) {
				return number(rm_handler_get_num_result(world.handler.get()));
			},
			[](World &world) { selections(world.handler.get(), "Top"); }),
		none("rm_print", "rules are less deep than a dump remembers without memory",
		     [](World &world) {
			     take_log();
			     rm_print(world.rules.get());
			     return take_log_lines();
		     }),
		declaring("rm_insert_source", "three values", call_insert_source, nullptr,
			  {{"'Count': 'one'", "Count:one"},
			   {"'Count': 'two'", "Count:two"},
			   {"'Count': 'three'", "Count:three"}}),
		declaring("rm_insert_source_redefine", "two values", call_insert_redefined,
			  "{'low': {'Luma': '[0,9]'}, 'high': {'Luma': '[10,99]'}}",
			  {{"'Level': 'low'", "Luma:9"}, {"'Level': 'high'", "Luma:10"}}),
		declaring("rm_insert_source_null", "a number",
			  [](World &world) {
				  return answer(rm_insert_source_null(world.rules.get(), "Heat"));
			  },
			  nullptr, {{"'Heat': '[1,2]'", "Heat:1"}, {"'Heat': '[3,4]'", "Heat:4"}}),
		none("__rm_get_range", "digits",
		     [](World &) {
			     range_desc range{};
			     __rm_get_range("[3, 0x10)", &range);
			     return Lines{std::to_string(range.minData),
					  std::to_string(range.maxData)};
		     }),
		none(
			"__rm_get_version", "numbers",
			[](World &world) {
				vexil_version version{};
				__rm_get_version(world.document.get(), &version);
				return Lines{version_text(true, version)};
			},
			[](World &world) {
				world.document = json(
					"{'MajorVersion': 2, 'MinorVersion': 1, 'Revision': '1F'}");
			}),
		none("__rm_build_key", "writes into the key",
		     [](World &world) {
			     return answer(__rm_build_key(world.rules.get(), &world.rules->rmInd,
							  kStates[0], 0));
		     }),
		{"__rm_find_setting", "more ids than a list begins with", Refusal::kGoesOn,
		 [](World &world) {
			 rm *rules = world.rules.get();
			 rm_trigger(rules, ""); // empties the lists
			 const node_d rule{
				 static_cast<u16>(ctrie_find(&rules->rulename_map, "many")),
				 &rules->builder};
			 return lists_of(world, __rm_find_setting(rules, &rules->rmInd, rule));
		 },
		 insert_long_lists, nullptr, as_it_is},

		none(
			"__presetdb_get_IOinfo", "reads where it lies",
			[](World &world) {
				graphic_presetdb_info info{};
				return answer(__presetdb_get_IOinfo(world.document->child, &info,
								    "Input"));
			},
			[](World &world) { world.document = json(kPresets); }),
		none(
			"__presetdb_get_hdrmode", "reads where it lies",
			[](World &world) {
				presetdb_hdr_mode mode{};
				return answer(__presetdb_get_hdrmode(world.document->child, &mode,
								     "SDR_mode"));
			},
			[](World &world) { world.document = json(kPresets); }),

		{"vexil_image_verify", "a map", Refusal::kSays,
		 [](World &world) {
			 Fault fault{};
			 const bool sound =
				 vexil_image_verify(world.image.data(), world.image.size(), &fault);
			 return Lines{said(sound), vexil_image_code_text(fault.code)};
		 },
		 [](World &world) { world.image = image_of(world.map.get()); }},
		{"vexil_image_verify", "rules", Refusal::kSays,
		 [](World &world) {
			 Fault fault{};
			 const bool sound =
				 vexil_image_verify(world.image.data(), world.image.size(), &fault);
			 return Lines{said(sound), vexil_image_code_text(fault.code)};
		 },
		 [](World &world) { world.image = image_of(world.rules.get()); }},
		none("vexil_image_code_text", "constants",
		     [](World &) { return Lines{vexil_image_code_text(VEXIL_IMAGE_NO_MEMORY)}; }),

		none("init_module", "hands the table over",
		     [](World &) {
			     registration() = {};
			     return number(static_cast<std::size_t>(init_module()));
		     }),
		none("cleanup_module", "has nothing to give back",
		     [](World &) {
			     cleanup_module();
			     return answer(true);
		     }),
	};
	return all;
}

class FunctionWithoutMemory : public RowTest {};
class FunctionWithoutRoom : public RowTest {};
class FunctionThatAsksForNone : public RowTest {};

const std::set<std::string> kSlots = {
#define VEXIL_SLOT_NAME(result, name, arguments) #name,
	VEXIL_SERVICES(VEXIL_SLOT_NAME)
#undef VEXIL_SLOT_NAME
};

/** The function behind a slot, or its wrapper. */
bool is_of_slot(const std::string &function)
{
	return kSlots.count(function) > 0 ||
	       (function.starts_with("vexil_") && kSlots.count(function.substr(6)) > 0);
}

TEST(FunctionsWithoutMemory, EveryExportedFunctionIsASlotsOrHasARow)
{
	std::ifstream list(std::filesystem::path(VEXIL_EXAMPLES).parent_path() /
			   "tests/abi/functions.txt");
	std::set<std::string> functions;
	for (std::string line; std::getline(list, line);) {
		if (!line.empty() && line[0] != '#' && !is_of_slot(line))
			functions.insert(line);
	}
	std::set<std::string> with_rows;
	for (const Row &row : rows())
		with_rows.insert(row.name);
	EXPECT_EQ(with_rows, functions);
	EXPECT_GT(functions.size(), 70u);
}

TEST_P(FunctionWithoutMemory, LosesNothingAndWorksAgain)
{
	sweep(std::get<Row>(GetParam()), std::get<bool>(GetParam()));
}

TEST_P(FunctionWithoutRoom, LosesNothingAndWorksAgain)
{
	sweep_growth(std::get<Row>(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(
	Exported, FunctionWithoutRoom,
	testing::Combine(testing::ValuesIn(rows_that_grow(
				 rows(), {"__pim_find_ip", "__pim_get_common_reg_config",
					  "__pim_get_ipconfig", "rm_insert_source",
					  "rm_insert_source_redefine", "rm_insert_source_null"})),
			 testing::Values(false)),
	test_name);

INSTANTIATE_TEST_SUITE_P(Exported, FunctionWithoutMemory,
			 testing::Combine(testing::ValuesIn(rows_that(rows(), true)),
					  testing::Bool()),
			 test_name);

TEST_P(FunctionThatAsksForNone, DoesTheSameWithoutAny)
{
	expect_no_request(std::get<Row>(GetParam()), std::get<bool>(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Exported, FunctionThatAsksForNone,
			 testing::Combine(testing::ValuesIn(rows_that(rows(), false)),
					  testing::Values(false)),
			 test_name);

} // namespace
