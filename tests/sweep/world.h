// SPDX-License-Identifier: MIT
//
// Everything that a driver may hold when an allocation is refused: a map that is being built, rules
// over it that are finished, both adopted from images, a handler, another product to merge. What is
// there is asked for everything it answers, before and after.
#pragma once

#include <algorithm>
#include <cctype>
#include <climits>
#include <functional>
#include <initializer_list>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "module/pubif.h"
#include "tests/support/pim_json.h"
#include "tests/support/rm_json.h"
#include "tests/support/sweep.h"
#include "tests/support/verify.h"

namespace vexil_test {

inline const _PUBIF_VEXIL &table()
{
	return vexil::kPublicInterface;
}

// ---- documents: the product that is there, and what comes to it ----

inline constexpr char kHardware[] =
	"{'PqHWRegList': {'0.version': {'MajorVersion': 2, 'MinorVersion': 1, 'Revision': 5},"
	" 'register': [{'EN': 0}, {'GAIN': 1}, {'LEVEL': 2}, {'MODE': 3}, {'GATE': 4}]}}";
inline constexpr char kSoftware[] =
	"{'PqSWRegList': {'0.version': {'JsonVersionFormat': '2.1', 'Revision': '1F'},"
	" 'register': [{'SW_MODE': 256}, {'SW_STEP': -3}]},"
	" 'PqCusSWRegList': {'#version': {'MajorVersion': 2, 'MinorVersion': 0, 'Revision': 9},"
	" 'register': [{'CUS_SHOP': 32768}]}}";
inline constexpr char kGroups[] =
	"{'VexilVersion': {'#version':"
	" {'MajorVersion': 2, 'MinorVersion': 2, 'Revision': 7, 'Note': 'small'}},"
	" 'PqFuncGroups': {"
	" 'Folder': {'Noise': {'#version': {'MajorVersion': 2, 'MinorVersion': 1, 'Revision': 3},"
	"  'settings': {"
	"  'NR': {'1.PQlevel': 'L1', 'commonReg': true, 'group': {"
	"   'Low': {'hwreg': {'EN': 1, 'GAIN': 8}},"
	"   'High': {'hwreg': {'EN': 1, 'GAIN': 24, 'LEVEL': 3}, 'swreg': {'SW_MODE': 1},"
	"    'lut': {'lut_a': 'table.bin'}, 'alg': {'entry': 'numbers.par'},"
	"    'hwaddr': {'0x1F0': 5, '32': 6}, 'cus_swreg': {'CUS_SHOP': -1}}}},"
	"  'Sync': {'1.PQlevel': 'SYNC', 'group': {'On': {'hwreg': {'MODE': 1, 'GATE': 2}}}}}}},"
	" 'Modes': {'settings': {"
	"  'Preset': {'1.PresetRegs': 'MODE_REGS', 'group': ["
	"   {'Day': {'hwreg': {'LEVEL': 1}}},"
	"   {'Night': {'hwreg': {'LEVEL': 2}, 'swreg': {'SW_STEP': 4}}}]},"
	"  'Empty': {'group': {'None': {}}}}}}}";
inline constexpr char kSources[] =
	"{'PqRuleLists': {'#version': {'MajorVersion': 2, 'MinorVersion': 0, 'Revision': 4},"
	" 'Input': {'content': ['HDMI1', 'HDMI2', 'Tuner']}, 'Luma': {'content': 0},"
	" 'Wide': {'content': ['A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I']},"
	" 'Scene': {'content': ['Dark', 'Bright'], 'define': {"
	"  'Dark': {'Luma': '[0,200)'}, 'Bright': {'Luma': '[200,1023]'}}}}}";
inline constexpr char kRules[] =
	"{'PqRuleGroups': {"
	" 'Top': {'#version': {'MajorVersion': 2, 'MinorVersion': 2, 'Revision': 6}, 'rules': ["
	"  {'comparator': {'Input': ['Tuner', 'HDMI2'], 'Luma': '[0,64]'},"
	"   'settings': ['NR#High', 'Preset#Night'], 'children': ['Below']},"
	"  {'comparator': {'Scene': 'Dark'}, 'settings': ['NR#Low', 'NR#commonReg'], 'children': []},"
	"  {'comparator': {}, 'settings': ['Preset#Day'], 'children': ['Below', 'Last']}]},"
	" 'Below': {'rules': ["
	"  {'comparator': {'Wide': 'I', 'Input': 'Tuner'}, 'settings': ['Sync#On'], 'children': []},"
	"  {'comparator': {'Scene': 'Bright'}, 'settings': ['Preset#Day'], 'children': []}]},"
	" 'Last': {'rules': [{'comparator': {}, 'settings': ['Empty#None'], 'children': []}]}}}";

inline constexpr char kNewHardware[] =
	"{'PqHWRegList': {'0.version': {'MajorVersion': 2, 'MinorVersion': 1, 'Revision': 5},"
	" 'register': [{'GAIN_LEFT': 10}, {'GA': 11}, {'EN': 12}, {'LEVELS': 13}, {'Z': 14}]}}";
inline constexpr char kNewSoftware[] =
	"{'PqSWRegList': {'0.version': {'JsonVersionFormat': '2.1', 'Revision': '1F'},"
	" 'register': [{'SW_MODES': 10}, {'SW_ST': 11}, {'OTHER': 12}]},"
	" 'PqCusSWRegList': {'#version': {'MajorVersion': 2, 'MinorVersion': 0, 'Revision': 9},"
	" 'register': [{'CUS': 13}, {'CUS_SHOP_2': 14}]}}";
inline constexpr char kNewCustomer[] =
	"{'PqCusSWRegList': {'#version': {'MajorVersion': 2, 'MinorVersion': 0, 'Revision': 9},"
	" 'register': [{'CUS_SH': 15}, {'CUS_SHOPS': 16}, {'ALL': 17}]}}";
inline constexpr char kNewGroups[] =
	"{'VexilVersion': {'#version':"
	" {'MajorVersion': 2, 'MinorVersion': 2, 'Revision': 7, 'Note': 'small'}},"
	" 'PqFuncGroups': {"
	" 'Shelf': {'Sharp': {'#version': {'MajorVersion': 2, 'MinorVersion': 2, 'Revision': 1},"
	"  'settings': {"
	"  'SH': {'1.PQlevel': 'PI', 'commonReg': true, 'group': {"
	"   'Soft': {'hwreg': {'EN': 1, 'GATE': 2}},"
	"   'Hard': {'hwreg': {'GATE': 2, 'EN': 1, 'MODE': 0}, 'swreg': {'SW_STEP': 2},"
	"    'lut': {'lut_a': 'table.bin'}, 'alg': {'other': 'table.bin'},"
	"    'hwaddr': {'0x1F4': 1}, 'cus_swreg': {'CUS_SHOP': 2}}}},"
	"  'Tint': {'1.PresetRegs': 'TINT_REGS', 'group': {"
	"   'Warm': {'hwreg': {'LEVEL': 7}}, 'Cold': {'swreg': {'SW_MODE': 6}}}}}}},"
	" 'Bare': {'settings': {'B': {'group': {'1': {'hwreg': {'GAIN': 3}}}}}}}}";
inline constexpr char kNewSources[] =
	"{'PqRuleLists': {'#version': {'MajorVersion': 2, 'MinorVersion': 0, 'Revision': 4},"
	" 'Zone': {'content': ['Left', 'Right', 'Both']},"
	" 'Mood': {'content': ['Calm', 'Wild'], 'define': {"
	"  'Calm': {'Depth': '[0,9]', 'Luma': '[0,511]'}, 'Wild': {'Depth': '[10,99]'}}},"
	" 'Depth': {'content': 0}}}";
/** Its first rule names one that comes later. */
inline constexpr char kNewRules[] =
	"{'PqRuleGroups': {"
	" 'Extra': {'#version': {'MajorVersion': 2, 'MinorVersion': 0, 'Revision': 1}, 'rules': ["
	"  {'comparator': {'Input': 'HDMI1', 'Scene': 'Dark', 'Luma': '[0,100]'},"
	"   'settings': ['NR#Low', 'Preset#Day'], 'children': ['Deeper']},"
	"  {'comparator': {'Wide': ['A', 'B']}, 'settings': ['NR#High'], 'children': ['Last']},"
	"  {'comparator': {}, 'settings': [], 'children': ['Deeper', 'Below']}]},"
	" 'Deeper': {'rules': ["
	"  {'comparator': {'Input': ['HDMI1', 'Tuner']}, 'settings': ['Sync#On'], 'children': []},"
	"  {'comparator': {}, 'settings': ['Preset#Night', 'Empty#None'], 'children': []}]}}}";
inline constexpr char kOtherGroups[] =
	"{'VexilVersion': {'#version': {'MajorVersion': 2, 'MinorVersion': 2, 'Revision': 8}},"
	" 'PqFuncGroups': {"
	" 'Noise': {'settings': {'NR': {'group': {'Low': {'hwreg': {'GAIN': 9}}}}}},"
	" 'Shop': {'settings': {'Demo': {'group': {'On': {'hwreg': {'EN': 1},"
	"  'lut': {'lut_a': 'table.bin'}}}},"
	"  'Style': {'1.PresetRegs': 'MODE_REGS', 'group': {'Loud': {'hwreg': {'LEVEL': 9}}}}}}}}";
inline constexpr char kOtherRules[] =
	"{'PqRuleGroups': {"
	" 'Shop': {'rules': ["
	"  {'comparator': {'Input': 'Tuner'}, 'settings': ['Demo#On', 'Style#Loud'],"
	"   'children': ['Last']},"
	"  {'comparator': {'Scene': 'Dark'}, 'settings': ['Style#Loud'], 'children': []}]},"
	" 'Last': {'rules': [{'comparator': {}, 'settings': ['Demo#On'], 'children': []}]}}}";
inline constexpr char kPresets[] =
	"{'Preset_PQ_Value': {'Input': {'range': 'limit', 'colorspace': 'BT601', 'format': 'YUV'}}}";

inline const std::vector<std::string> kLabels = {
	"NR#Low", "NR#High", "NR#commonReg", "Sync#On", "Preset#Day", "Preset#Night", "Empty#None"};
inline const std::vector<std::string> kNewLabels = {"SH#Soft",   "SH#Hard",   "SH#commonReg",
						    "Tint#Warm", "Tint#Cold", "B#1"};
inline const std::vector<std::string> kOtherLabels = {"NR#Low", "Demo#On", "Style#Loud"};

inline constexpr const char *kStates[] = {"Input:Tuner;Luma:64;Wide:I", "Luma:0;Input:HDMI1;Wide:B",
					  "Luma:500;Input:HDMI1", "Scene:Dark;Luma:300",
					  "Input:HDMI2"};

inline RegisterTable register_table()
{
	return {reg(1, 0x100, 0, 1), reg(1, 0x100, 1, 5), reg(2, 0x104, 0, 4), reg(3, 0x108, 0, 2),
		reg(3, 0x108, 8, 2)};
}

// ---- asking ----

inline std::string said(bool truth)
{
	return truth ? "true" : "false";
}

inline std::string version_text(bool known, const vexil_version &version)
{
	return known ? std::to_string(version.u16MajorNumber) + "." +
			       std::to_string(version.u16MinorNumber) + "." +
			       std::to_string(version.u32Revision)
		     : "none";
}

/** Setting or preset. */
inline u16 label_id(const pim *map, const std::string &label)
{
	const u16 id = pim_query_setting_id(map, label.c_str());
	return id != kNoId ? id : pim_query_preset_id(map, label.c_str());
}

/** What the configurations of @labels deliver. */
inline Lines blocks_of(pim *map, const std::vector<std::string> &labels)
{
	Lines lines;
	for (const std::string &label : labels) {
		lines.push_back(label + (label_id(map, label) == kNoId ? " unknown" : ":"));
		if (label_id(map, label) == kNoId)
			continue;
		char *text = nullptr;
		pim_get_setting(map, label_id(map, label), &text);
		lines.push_back(text ? text : "(null)");
		const Lines blocks = load(map, label);
		lines.insert(lines.end(), blocks.begin(), blocks.end());
	}
	return lines;
}

inline Lines common_of(pim *map)
{
	Lines lines;
	pim_load_common_reg_setting(map, record_block, &lines);
	return lines;
}

/** All that a map says of the product that was there first; ids, too. */
inline Lines ask(pim *map)
{
	Lines lines = blocks_of(map, kLabels);
	std::vector<u16> ids;
	for (const std::string &label : kLabels) {
		ids.push_back(label_id(map, label));
		lines.push_back(label + " is " + std::to_string(ids.back()));
		Lines within;
		lines.push_back("left " + std::to_string(pim_load_setting_count(
						  map, ids.back(), 3, record_block, &within)));
		lines.insert(lines.end(), within.begin(), within.end());
	}
	pim_load_preset(map, ids.data(), ids.size(), "MODE_REGS", record_block, &lines);
	const auto tell = [&](bool (*read)(pim *, vexil_version *)) {
		vexil_version version{};
		const bool known = read(map, &version);
		lines.push_back(version_text(known, version));
	};
	tell(pim_get_version);
	tell(pim_get_hwreg_version);
	tell(pim_get_swreg_version);
	tell(pim_get_cus_swreg_version);
	for (const char *name : {"Folder", "Noise", "Modes"}) {
		vexil_version version{};
		const bool known = pim_get_pim_version(map, &version, name);
		lines.push_back(version_text(known, version));
	}
	char *note = nullptr;
	lines.push_back(pim_get_cus_version(map, &note) ? note : "(null)");
	for (u8 domain = 0; domain <= E_PQ_MAX_DOMAIN; ++domain)
		lines.push_back(std::to_string(pim_get_reg_num(map, domain, E_PQLV_MAX)));
	return lines;
}

inline std::string ids_text(const Ids &ids)
{
	std::string text;
	for (const u16 id : ids)
		text += " " + std::to_string(id);
	return text;
}

/** What @names select in every state. */
inline Lines selections(rm *rules, const char *names)
{
	Lines lines;
	for (const char *state : kStates) {
		const bool done =
			rm_clear(rules) && rm_set(rules, state, 0) && rm_trigger(rules, names);
		lines.push_back(said(done) + ids_text(results_of(rules)) + " /" +
				ids_text(presets_of(rules)));
	}
	return lines;
}

inline Lines selections(rm_handler *handler, const char *names)
{
	Lines lines;
	for (const char *state : kStates) {
		const bool done = rm_handler_clear(handler) && rm_handler_set(handler, state, 0) &&
				  rm_handler_trigger(handler, names);
		u16 *ids = nullptr;
		std::size_t count = rm_handler_get_result(handler, &ids);
		std::string text = said(done) + ids_text({ids, ids + count});
		count = rm_handler_get_preset(handler, &ids);
		lines.push_back(text + " /" + ids_text({ids, ids + count}));
	}
	return lines;
}

/** All that rules say of what was compiled first. */
inline Lines ask(rm *rules)
{
	Lines lines = selections(rules, "Top;Last");
	const Lines more = selections(rules, "below");
	lines.insert(lines.end(), more.begin(), more.end());
	vexil_version version{};
	bool known = rm_get_version(rules, &version);
	lines.push_back(version_text(known, version));
	known = rm_get_rl_version(rules, &version);
	lines.push_back(version_text(known, version));
	known = rm_get_rm_version(rules, &version, "Top");
	lines.push_back(version_text(known, version));
	char *note = nullptr;
	lines.push_back(rm_get_cus_version(rules, &note) ? note : "(null)");
	return lines;
}

/** Every line of @some, in this order, is in @all. */
inline bool is_part(const Lines &some, const Lines &all)
{
	std::size_t at = 0;
	for (const std::string &line : all)
		at += at < some.size() && some[at] == line;
	return at == some.size();
}

// ---- indexes: what they hold must be there ----

inline void each_name(const ctrie &names, const ctrie_node *node, const std::string &before,
		      const std::function<void(const std::string &, int)> &see)
{
	if (!node)
		return;
	const std::string name =
		before + std::string(names.buf + node->begin, names.buf + node->end);
	if (node->value != INT_MIN)
		see(name, node->value);
	for (int slot = 1; slot < CT_CH_IDX_MAX; ++slot)
		each_name(names, node->child[slot], name, see);
}

inline Lines names_in(const ctrie &names)
{
	Lines lines;
	if (names.buf)
		each_name(names, names.root, "",
			  [&](const std::string &name, int) { lines.push_back(name); });
	return lines;
}

/** The text behind a node's property. */
inline std::string name_of_node(node_d node)
{
	const node_d property = extmem_find_next(node, EXTMEM_TAG_PROPERTY);
	const node_d holder = extmem_get_child(property);
	const data_d record = extmem_copy_from_node(holder);
	const auto *text = static_cast<const char *>(extmem_fetch_data(record));
	if (extmem_fetch_tag(holder) != EXTMEM_TAG_STRING_HOLDER || !text)
		return "(no name)";
	std::string name(text, strnlen(text, record.size));
	for (char &c : name)
		c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
	return name;
}

/** Every name of the index leads to a node with one of these tags that bears the name. */
inline void expect_index(extmem_builder *store, const ctrie &names, const std::set<int> &tags,
			 const char *what)
{
	if (!names.buf)
		return;
	each_name(names, names.root, "", [&](const std::string &name, int id) {
		ASSERT_GE(id, 0) << what << " " << name;
		ASSERT_LT(static_cast<std::size_t>(id) * kImageNodeBytes,
			  store->node_buffer.buf_used)
			<< what << " " << name;
		const node_d node{static_cast<u16>(id), store};
		ASSERT_TRUE(extmem_node_isvalid(node)) << what << " " << name;
		EXPECT_TRUE(tags.count(extmem_fetch_tag(node)))
			<< what << " " << name << " leads to tag " << int{extmem_fetch_tag(node)};
		EXPECT_EQ(name_of_node(node), name) << what;
		EXPECT_EQ(ctrie_find(&names, name.c_str()), id) << what << " " << name;
	});
}

/** Indexes lead to what they name, and what they name can be delivered, without a word. */
inline void expect_indexes(pim *map)
{
	extmem_builder *store = &map->builder;
	expect_index(store, map->ip_map, {EXTMEM_TAG_IP}, "IP");
	expect_index(store, map->ipname_map,
		     {EXTMEM_TAG_IP_CONFIG, EXTMEM_TAG_IP_COMMON_REG_CONFIG}, "setting");
	expect_index(store, map->preset_map, {EXTMEM_TAG_IP_PRESET_REG_CONFIG}, "preset");
	expect_index(store, map->file_map, {EXTMEM_TAG_FILE}, "file");
	for (const std::string &name : names_in(map->file_map)) {
		const node_d file{static_cast<u16>(ctrie_find(&map->file_map, name.c_str())),
				  store};
		const node_d data = extmem_get_child(file);
		EXPECT_EQ(extmem_fetch_tag(data), EXTMEM_TAG_DATA) << name;
		EXPECT_TRUE(extmem_data_isvalid(extmem_copy_from_node(data))) << name;
	}
	for (const std::string &label : names_in(map->fn_map)) {
		EXPECT_LT(static_cast<std::size_t>(ctrie_find(&map->fn_map, label.c_str())),
			  map->fn_list_num);
	}
	if (map->fn_list_num == 0) // adopted: tables have nobody to go to
		return;
	take_log();
	for (const ctrie *labels : {&map->ipname_map, &map->preset_map}) {
		for (const std::string &label : names_in(*labels))
			load(map, label);
	}
	EXPECT_EQ(take_log(), "");
}

/** Ids of all nodes that the root leads to. */
inline std::set<u16> nodes_below(node_d root)
{
	std::set<u16> seen;
	std::vector<node_d> left{root};
	while (!left.empty()) {
		const node_d node = left.back();
		left.pop_back();
		if (!extmem_node_isvalid(node) || !seen.insert(node.id).second ||
		    extmem_fetch_tag(node) >= EXTMEM_TAG_DATA_TYPE_BEGIN)
			continue;
		left.push_back(extmem_get_child(node));
		left.push_back(extmem_get_next(node));
	}
	return seen;
}

inline void expect_indexes(rm *rules)
{
	extmem_builder *store = &rules->builder;
	expect_index(store, rules->rulename_map, {EXTMEM_TAG_RULE}, "rule");
	expect_index(store, rules->source_map, {EXTMEM_TAG_SOURCE_LABEL}, "source");
	// Nobody waits for a name on behalf of what was given up.
	const std::set<u16> linked = nodes_below(rules->root);
	for (const unres_item_list *pending : {&rules->unres_rule, &rules->unres_source}) {
		for (std::size_t i = 0; i < pending->count; ++i)
			EXPECT_TRUE(linked.count(pending->items[i].id))
				<< pending->items[i].itemname;
	}
}

// ---- the world ----

/** A trie, a store and a block, for calls that need no more; given back with their scope. */
struct Parts {
	Parts() = default;
	~Parts()
	{
		ctrie_destroy(&trie);
		for (extmem_builder *one : {&store, &other}) {
			if (one->deallocate)
				extmem_builder_destroy(one);
		}
		DEALLOC(block);
	}
	Parts(const Parts &) = delete;
	Parts &operator=(const Parts &) = delete;

	ctrie trie{};
	extmem_builder store{};
	extmem_builder other{};
	void *block = nullptr;
};

/** A handler that is destroyed with its scope. */
class Handler {
public:
	Handler() = default;
	~Handler() { rm_handler_destroy(&handler_); }
	Handler(const Handler &) = delete;
	Handler &operator=(const Handler &) = delete;

	rm_handler **out() { return &handler_; }
	[[nodiscard]] rm_handler *get() const { return handler_; }

private:
	rm_handler *handler_ = nullptr;
};

template <typename Owner>
void **untyped(Owner &owner)
{
	return reinterpret_cast<void **>(owner.out());
}

inline bool add_handlers(pim *map)
{
	return pim_insert_handler(map, "lut_a", record_table<0>) &&
	       pim_insert_alg_handler(map, record_algorithm);
}

/** A map over a copy of @image, with handlers. The image must outlive it. */
inline bool adopt_copy(Map &map, ImageBytes &image, const RegisterTable &registers = {})
{
	return adopt(map, image, registers) && add_handlers(map.get());
}

struct World {
	/** @full: the next node and record make the stores of map and rules grow. */
	explicit World(bool full)
	{
		ready = build_map(map, kGroups) && build_rules(rules, map, kRules) &&
			build_map(other_map, kOtherGroups) &&
			build_rules(other_rules, other_map, kOtherRules);
		map_image = image_of(map.get());
		rules_image = image_of(rules.get());
		ready = ready && adopt_copy(adopted, map_image, registers) &&
			rm_init(adopted_rules.out(), rules_image.data(), rules_image.size()) &&
			rm_create_handler(adopted_rules.get(), handler.out());
		if (full) {
			fill(&map->builder);
			fill(&rules->builder);
			fill(&other_map->builder);
			fill(&other_rules->builder);
		}
		take_log();
	}

	static bool build_map(Map &map, const char *groups)
	{
		return map.init() && pim_insert_regmap_json(map.get(), json(kHardware).get()) &&
		       pim_insert_vregmap_json(map.get(), json(kSoftware).get()) &&
		       add_handlers(map.get()) &&
		       pim_insert_file(map.get(), "table.bin", "\1\2\3\4\5\6\7", 7) &&
		       pim_insert_file(map.get(), "numbers.par", "ten=10\n", 7) &&
		       pim_insert(map.get(), json(groups).get());
	}
	static bool build_rules(Rules &rules, const Map &map, const char *groups)
	{
		return rules.init() && rm_insert_source_json(rules.get(), json(kSources).get()) &&
		       rm_insert(rules.get(), json(groups).get(), map.get()) &&
		       rm_finish(rules.get());
	}
	/** Uses up what a store has room for, but for one node less than that. */
	static void fill(extmem_builder *store)
	{
		while (store->node_buffer.buf_used + 2 * kImageNodeBytes <
		       store->node_buffer.buf_max)
			extmem_request_node(store, EXTMEM_TAG_GENERAL);
		const std::size_t left = store->data_buffer.buf_max - store->data_buffer.buf_used;
		if (left > 16)
			extmem_request_data(store, static_cast<u32>(left - 16));
	}

	bool ready = false;
	const RegisterTable registers = register_table();
	Map map;     // being built
	Rules rules; // over map; finished
	Map other_map;
	Rules other_rules;
	ImageBytes map_image, rules_image; // of map and rules; outlive what stands over them
	Map adopted;                       // with the register table
	Rules adopted_rules;
	Handler handler; // over adopted_rules

	// What the calls at hand make, and what they are given.
	ImageBytes image;
	Json document;
	Map made_map;
	Rules made_rules;
	Handler made_handler;
	Parts parts;
	bool unsealed = false; // sources were declared that an export of rules does not count yet
};

/** What a world says that nothing has happened to. */
struct Answers {
	Lines map, adopted, exported, common, rules, adopted_rules, handler;

	explicit Answers(World &world)
	    : map(ask(world.map.get())), adopted(ask(world.adopted.get())),
	      common(common_of(world.map.get())), rules(ask(world.rules.get())),
	      adopted_rules(ask(world.adopted_rules.get())),
	      handler(selections(world.handler.get(), "Top"))
	{
		ImageBytes image = image_of(world.map.get());
		Map copy;
		EXPECT_TRUE(adopt_copy(copy, image));
		exported = ask(copy.get());
		take_log();
	}
};

inline const Answers &answers(bool full)
{
	static const auto make = [](bool is_full) {
		World world(is_full);
		EXPECT_TRUE(world.ready);
		return Answers(world);
	};
	static const Answers room = make(false);
	static const Answers none = make(true);
	return full ? none : room;
}

/** The image verifies, and the map over it says what was there. */
inline void expect_sound_export(pim *map, const Lines &expected)
{
	ImageBytes image = image_of(map);
	ASSERT_EQ(fault_of(image), kSound);
	Map copy;
	ASSERT_TRUE(adopt_copy(copy, image));
	for (const std::string &label : names_in(map->fn_map)) // images hold none
		ASSERT_TRUE(pim_insert_handler(copy.get(), label.c_str(), record_table<0>));
	EXPECT_EQ(ask(copy.get()), expected);
	expect_indexes(copy.get());
	EXPECT_EQ(fault_of(image), kSound); // with what adoption wrote
}

inline void expect_sound_export(rm *rules, const Lines &expected)
{
	ImageBytes image = image_of(rules);
	ASSERT_EQ(fault_of(image), kSound);
	Rules copy;
	ASSERT_TRUE(rm_init(copy.out(), image.data(), image.size()));
	EXPECT_EQ(ask(copy.get()), expected);
	expect_indexes(copy.get());
}

/** What was there before is there, and right; contexts that a call destroyed are not asked. */
inline void expect_intact(World &world, const Answers &before)
{
	for (pim *map :
	     {world.map.get(), world.other_map.get(), world.adopted.get(), world.made_map.get()}) {
		if (map)
			expect_indexes(map);
	}
	for (rm *rules : {world.rules.get(), world.other_rules.get(), world.adopted_rules.get(),
			  world.made_rules.get()}) {
		if (rules)
			expect_indexes(rules);
	}
	if (pim *map = world.map.get()) {
		EXPECT_EQ(ask(map), before.map);
		EXPECT_TRUE(is_part(before.common, common_of(map)));
		expect_sound_export(map, before.exported);
	}
	if (world.adopted.get()) {
		EXPECT_EQ(ask(world.adopted.get()), before.adopted);
		EXPECT_EQ(fault_of(world.map_image), kSound);
	}
	if (rm *rules = world.rules.get()) {
		EXPECT_EQ(ask(rules), before.rules);
		if (!world.unsealed)
			expect_sound_export(rules, before.rules);
	}
	if (world.handler.get() && world.adopted_rules.get()) {
		EXPECT_EQ(selections(world.handler.get(), "Top"), before.handler);
		EXPECT_EQ(ask(world.adopted_rules.get()), before.adopted_rules);
	}
	take_log();
}

// ---- rows ----

/** What refusing memory does to a call. */
enum class Refusal {
	kNever, // it asks for none
	kSays,  // it says so: what it answers is not what it answers with memory
	kGoesOn // it may do without, and leave something out
};

/** An entry point, and how it is called. */
struct Row {
	const char *name; // of the slot, or of the function
	const char *how;  // one of several ways to call it; of those that ask for no memory, why
	Refusal refusal;
	std::function<Lines(World &)> call; // what it answered, in words
	std::function<void(World &)> prepare = nullptr;
	/** After all, with memory: what the call should have brought is there. */
	std::function<void(World &, bool refused)> arrived = nullptr;
	/** Before it is called again; without one, a call that failed is called as it is. */
	std::function<void(World &)> clear_away = nullptr;
	const char *refused_says = nullptr; // among what is answered without memory; null: "false"
};

inline std::string row_name(const Row &row)
{
	std::string name = std::string(row.name) + "_" + row.how;
	for (char &c : name)
		c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
	return name;
}

inline void PrintTo(const Row &row, std::ostream *to)
{
	*to << row.name << ": " << row.how;
}

inline std::vector<Row> rows_that(const std::vector<Row> &rows, bool ask)
{
	std::vector<Row> some;
	for (const Row &row : rows) {
		if ((row.refusal != Refusal::kNever) == ask)
			some.push_back(row);
	}
	return some;
}

/** Those of @names that put nodes and records into stores that are there already. */
inline std::vector<Row> rows_that_grow(const std::vector<Row> &rows,
				       const std::set<std::string> &names)
{
	std::vector<Row> some;
	for (const Row &row : rows) {
		const bool only_writes = std::string(row.how) == "after more has come";
		if (names.count(row.name) && row.refusal != Refusal::kNever && !only_writes)
			some.push_back(row);
	}
	return some;
}

/** A row, and whether the stores are full. */
class RowTest : public testing::TestWithParam<std::tuple<Row, bool>> {
protected:
	void TearDown() override { take_log(); } // messages are no part of what is asked here
};

inline std::string test_name(const testing::TestParamInfo<std::tuple<Row, bool>> &info)
{
	return row_name(std::get<Row>(info.param)) + (std::get<bool>(info.param) ? "_full" : "");
}

// ---- what rows have in common ----

inline Lines answer(bool truth)
{
	return {said(truth)};
}

/** Around 1100 characters: a text buffer must grow for it. */
inline std::string long_name(const char *stem)
{
	return std::string(stem) + "_" + std::string(1100, 'x');
}

/** Nothing to clear away: the call is made again as things are. */
inline void as_it_is(World &) {}

/** What kNewGroups brings, read from a map that nothing was refused to. */
inline const Lines &new_blocks()
{
	static const Lines lines = [] {
		World world(false);
		EXPECT_TRUE(pim_insert(world.map.get(), json(kNewGroups).get()));
		return blocks_of(world.map.get(), kNewLabels);
	}();
	return lines;
}

inline void take_new_groups(World &world)
{
	world.document = json(kNewGroups);
}

/** Map and image have them. */
inline void expect_new_groups(World &world, bool)
{
	EXPECT_EQ(blocks_of(world.map.get(), kNewLabels), new_blocks());
	ImageBytes image = image_of(world.map.get());
	Map copy;
	ASSERT_TRUE(adopt_copy(copy, image));
	EXPECT_EQ(blocks_of(copy.get(), kNewLabels), new_blocks());
}

/** A call that asks for no memory: none is asked for, and without any it does the same. */
inline void expect_no_request(const Row &row, bool full)
{
	const Answers &before = answers(full);
	const auto run = [&](bool without) {
		World world(full);
		EXPECT_TRUE(world.ready);
		if (row.prepare)
			row.prepare(world);
		const std::size_t requests = allocations();
		Lines answer;
		{
			const Refuse refusal = Refuse::from(without ? 1 : 1u << 30);
			answer = row.call(world);
		}
		EXPECT_EQ(allocations(), requests);
		expect_intact(world, before);
		return answer;
	};
	const Lines with = run(false);
	EXPECT_FALSE(with.empty());
	EXPECT_EQ(run(true), with);
}

/**
 * Growth of the stores that a world builds, refused. Stores double, and hardly ever ask: with as
 * much room as a test leaves them, each of their nodes and records is the one that cannot be had.
 */
class RefuseGrowth {
public:
	explicit RefuseGrowth(World &world)
	{
		refusals() = 0;
		for (extmem_builder *store : stores_of(world))
			store->reallocate = refuse_it;
	}
	/** Gives @world its hooks back. Return: whether one was called. */
	static bool end(World &world)
	{
		for (extmem_builder *store : stores_of(world))
			store->reallocate = REALLOC;
		if (refusals() > 0)
			tally().count();
		return refusals() > 0;
	}

	static std::vector<extmem_builder *> stores_of(World &world)
	{
		std::vector<extmem_builder *> stores;
		for (pim *map : {world.map.get(), world.made_map.get()}) {
			if (map && map->builder.malloc_flag)
				stores.push_back(&map->builder);
		}
		for (rm *rules : {world.rules.get(), world.made_rules.get()}) {
			if (rules && rules->builder.malloc_flag)
				stores.push_back(&rules->builder);
		}
		return stores;
	}

private:
	static std::size_t &refusals()
	{
		static std::size_t count;
		return count;
	}
	static void *refuse_it(void *, std::size_t, std::size_t)
	{
		++refusals();
		return nullptr;
	}
};

/** Room for @nodes more nodes and @records more times 8 bytes; all that is needed for kPlenty. */
inline constexpr std::size_t kPlenty = 1000;

inline void leave_room(extmem_builder *store, std::size_t nodes, std::size_t records)
{
	// The last node and the last 8 bytes of a buffer make it move.
	const auto left = [](const extmem_buffer_ctx &buffer, std::size_t size) {
		const std::size_t fit = (buffer.buf_max - buffer.buf_used) / size;
		return fit > 0 ? fit - 1 : 0;
	};
	while (left(store->node_buffer, kImageNodeBytes) < nodes)
		extmem_request_node(store, EXTMEM_TAG_GENERAL);
	while (left(store->node_buffer, kImageNodeBytes) > nodes)
		extmem_request_node(store, EXTMEM_TAG_GENERAL);
	while (left(store->data_buffer, 8) < records)
		extmem_request_data(store, 8);
	while (left(store->data_buffer, 8) > records)
		extmem_request_data(store, 8);
}

/** What the call answers with memory, which is what it should. */
inline Lines answer_with_memory(const Row &row, bool full)
{
	World world(full);
	EXPECT_TRUE(world.ready);
	if (row.prepare)
		row.prepare(world);
	Lines lines = row.call(world);
	if (row.arrived)
		row.arrived(world, false);
	expect_intact(world, answers(full));
	return lines;
}

/** What @answered is right, and so is what it left behind; with memory again, the call works. */
inline void expect_survived(const Row &row, World &world, const Lines &answered,
			    const Lines &with_memory, bool refused, const Answers &before)
{
	const bool done = answered == with_memory;
	const bool may_go_on = row.refusal == Refusal::kGoesOn && refused;
	EXPECT_TRUE(may_go_on || done == !refused) << testing::PrintToString(answered);
	if (refused && row.refusal == Refusal::kSays) {
		const char *const says = row.refused_says ? row.refused_says : "false";
		EXPECT_TRUE(std::count(answered.begin(), answered.end(), says))
			<< testing::PrintToString(answered);
	}
	expect_intact(world, before);
	if (row.clear_away)
		row.clear_away(world);
	if (row.clear_away || !done) {
		EXPECT_EQ(row.call(world), with_memory);
	}
	if (row.arrived)
		row.arrived(world, refused);
	expect_intact(world, before);
}

/** Each request of the call refused in turn, then from each on. */
inline void sweep(const Row &row, bool full)
{
	const Lines with_memory = answer_with_memory(row, full);
	every_allocation([&](Mode mode, std::size_t nth) {
		World world(full);
		if (row.prepare)
			row.prepare(world);
		Lines answered;
		const Outcome outcome = attempt(mode, nth, [&] {
			answered = row.call(world);
			return true;
		});
		expect_survived(row, world, answered, with_memory, outcome.refused, answers(full));
		return outcome.refused;
	});
}

/** Each node of the call refused in turn, then each 8 bytes of its records. */
inline void sweep_growth(const Row &row)
{
	const Lines with_memory = answer_with_memory(row, false);
	for (const bool nodes : {true, false}) {
		std::size_t room = 0;
		for (bool refused = true; refused; ++room) {
			SCOPED_TRACE(std::string(nodes ? "nodes: " : "times 8 bytes: ") +
				     std::to_string(room));
			ASSERT_LT(room, kPlenty);
			World world(false);
			if (row.prepare)
				row.prepare(world);
			for (extmem_builder *store : RefuseGrowth::stores_of(world)) {
				if (store->node_buffer.buf_used > kImageNodeBytes)
					leave_room(store, nodes ? room : kPlenty,
						   nodes ? kPlenty : room);
			}
			const RefuseGrowth refusal(world);
			const Lines answered = row.call(world);
			refused = RefuseGrowth::end(world);
			expect_survived(row, world, answered, with_memory, refused, answers(false));
			ASSERT_FALSE(testing::Test::HasFailure());
		}
		ASSERT_GT(room, 1u) << "the stores do not grow";
	}
}

} // namespace vexil_test
