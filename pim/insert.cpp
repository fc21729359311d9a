// SPDX-License-Identifier: MIT
//
// The function-group document: folders, IPs, settings.

#include "core/fail.h"
#include "core/scratch.h"
#include "extmem/tree.h"
#include "pim/common.h"
#include "pim/entries.h"
#include "pim/layout.h"

namespace {

using vexil::kInvalidNode;

/** Folders that may lie inside each other; IPs may stand in the innermost. */
constexpr int kMaxFolders = 8;
constexpr size_t kLabelBytes = 256; // of "setting#member" with its NUL
constexpr const char *kCommonMember = "commonReg";

constexpr int kNoGroupsReport = 1410;
constexpr int kWalkReport = 1274; // of __pim_find_ip

/** What one walk over a document shares. */
struct Walk {
	pim *map;
	cJSON **history; // the folders that the walk is in
	char *label;     // kLabelBytes of scratch
};

/** A setting's own members. */
struct Setting {
	const char *name;
	const cJSON *group;
	u32 level;
	bool common;
	const char *preset_table; // null unless its configurations are presets
};

struct LevelWord {
	const char *word;
	EN_PQ_LEVEL level;
};
constexpr LevelWord kLevelWords[] = {
	{"IND", E_PQLV_INDIVIDUAL}, {"PI", E_PQLV_PI_SETTING}, {"L1", E_PQLV_OPTION_L1},
	{"L2", E_PQLV_OPTION_L2},   {"L3", E_PQLV_OPTION_L3},  {"SYNC", E_PQLV_SYNC},
};

u32 level_for(const char *word)
{
	for (const LevelWord &row : kLevelWords) {
		if (word && strcmp(row.word, word) == 0)
			return row.level;
	}
	return E_PQLV_DEFAULT;
}

Setting read_setting(const cJSON *json)
{
	enum { kCommonReg, kLevel, kPresetRegs, kGroup, kKeys };
	static constexpr const char *kNames[kKeys] = {"commonReg", "1.PQlevel", "1.PresetRegs",
						      "group"};
	const cJSON *found[kKeys];
	vexil::find_members(json, kNames, found);

	Setting setting{};
	setting.name = vexil::name_of(json);
	setting.group = found[kGroup];
	setting.preset_table = vexil::text_of(found[kPresetRegs]);
	if (setting.preset_table) {
		setting.level = E_PQLV_PRESETREGS;
	} else {
		setting.level = level_for(vexil::text_of(found[kLevel]));
		setting.common = vexil::is_kind(found[kCommonReg], cJSON_True);
	}
	return setting;
}

/** "setting#member" in the walk's buffer, or null (logged) when it cannot be made. */
const char *join_label(const Walk &walk, const char *setting, const char *member)
{
	const size_t length = setting ? strlen(setting) : 0;
	const size_t member_size = member ? strlen(member) + 1 : 0;
	if (!setting || !member || length >= kLabelBytes || member_size > kLabelBytes - length - 1) {
		walk.map->builder.print_error("[VEXIL][PIM][%s] label join error.", "__pim_get_ip");
		return nullptr;
	}
	memcpy(walk.label, setting, length);
	walk.label[length] = '#';
	memcpy(walk.label + length + 1, member, member_size);
	return walk.label;
}

/** Hangs a configuration under the setting at the end of its list, by its holder. */
bool append_config(node_d setting, node_d *last, node_d holder, node_d config)
{
	if (!extmem_append_child(holder, config))
		return false;
	*last = extmem_append_child_cond(setting, *last, holder);
	return true;
}

/** The registers that all members share, and their configuration. */
bool store_common(const Walk &walk, const Setting &setting, node_d node, node_d *last,
		  reg_func *common)
{
	using vexil::Narrowed;
	pim *map = walk.map;
	Narrowed left = Narrowed::kSomeLeft;
	for (const cJSON *member : vexil::Entries(setting.group)) {
		left = vexil::narrow_common(map, member, common);
		if (left != Narrowed::kSomeLeft)
			break;
	}
	const char *label = left != Narrowed::kNoMemory
				    ? join_label(walk, setting.name, kCommonMember)
				    : nullptr;
	if (!label)
		return false;
	const node_d holder = extmem_request_node(&map->builder, EXTMEM_TAG_GENERAL);
	if (!extmem_node_isvalid(holder))
		return false;
	const node_d config = __pim_get_common_reg_config(map, label, common);
	return extmem_node_isvalid(config) && vexil::enter_name(&map->ipname_map, label, config.id) &&
	       append_config(node, last, holder, config);
}

bool store_member(const Walk &walk, const Setting &setting, const cJSON *member, node_d node,
		  node_d *last, reg_func *common, node_d preset_table)
{
	pim *map = walk.map;
	const bool is_preset = setting.preset_table != nullptr;
	const char *label = join_label(walk, setting.name, vexil::name_of(member));
	if (!label)
		return false;
	const node_d holder = extmem_request_node(&map->builder, EXTMEM_TAG_GENERAL);
	if (!extmem_node_isvalid(holder))
		return false;
	const node_d config = __pim_get_ipconfig(map, const_cast<cJSON *>(member), label, common,
						 preset_table, setting.common, is_preset);
	ctrie *labels = is_preset ? &map->preset_map : &map->ipname_map;
	return extmem_node_isvalid(config) && vexil::enter_name(labels, label, config.id) &&
	       append_config(node, last, holder, config);
}

/** The configurations of a setting. */
bool store_group(const Walk &walk, const Setting &setting, node_d node, reg_func *common,
		 node_d preset_table)
{
	const vexil::Entries members(setting.group);
	if (members.empty())
		return true;
	node_d last = kInvalidNode;
	if (setting.common && !store_common(walk, setting, node, &last, common))
		return false;
	for (const cJSON *member : members) {
		if (!store_member(walk, setting, member, node, &last, common, preset_table))
			return false;
	}
	return true;
}

/** The setting node with its name and level, below @holder; invalid when there is no room. */
node_d make_setting(const Setting &setting, node_d holder)
{
	const node_d node = vexil::add_child(holder, EXTMEM_TAG_IP_SETTING);
	const node_d property = vexil::add_property(node, setting.name);
	const node_d level = vexil::add_next(property, EXTMEM_TAG_PQLEVEL);
	const node_d value = vexil::add_record(level, EXTMEM_TAG_PQLEVEL_HOLDER, &setting.level,
					       sizeof setting.level);
	return extmem_node_isvalid(value) ? node : kInvalidNode;
}

/** A setting with its configurations, by its holder; invalid when it could not be stored. */
node_d convert_setting(const Walk &walk, const cJSON *json)
{
	pim *map = walk.map;
	const node_d holder = extmem_request_node(&map->builder, EXTMEM_TAG_GENERAL);
	const vexil::Scratch<u8> list(map->builder, vexil::kCommonListBytes);
	if (!extmem_node_isvalid(holder) || !list)
		return kInvalidNode;
	auto *common = reinterpret_cast<reg_func *>(list.get());

	const Setting setting = read_setting(json);
	node_d preset_table = kInvalidNode;
	if (setting.preset_table) {
		preset_table = vexil::new_text(&map->builder, setting.preset_table);
		if (!extmem_node_isvalid(preset_table))
			return kInvalidNode;
	}
	const node_d node = make_setting(setting, holder);
	if (!extmem_node_isvalid(node) || !store_group(walk, setting, node, common, preset_table))
		return kInvalidNode;
	return holder;
}

bool insert_settings(const Walk &walk, const cJSON *settings, node_d ip)
{
	node_d last = kInvalidNode;
	for (const cJSON *setting : vexil::items(settings)) {
		const node_d holder = convert_setting(walk, setting);
		if (!extmem_node_isvalid(holder)) {
			walk.map->builder.print_error(
				"[VEXIL][PIM][%s] Failed to convert %s into ipconfig.\n",
				"__pim_find_ip", vexil::shown(vexil::name_of(setting)));
			return false;
		}
		last = extmem_append_child_cond(ip, last, holder);
	}
	return true;
}

/** The IP node with its name and version, indexed and under the root; invalid without room. */
node_d make_ip(pim *map, const char *name, vexil_version version)
{
	const vexil::NamedNode ip =
		vexil::new_named_node(&map->builder, EXTMEM_TAG_IP, name, version);
	if (!extmem_node_isvalid(ip.node) || !vexil::enter_name(&map->ip_map, name, ip.node.id))
		return kInvalidNode;
	vexil::append_to_root(map->root, &map->root_tail_hint, ip.holder);
	return ip.node;
}

bool has_object(const cJSON *folder)
{
	for (const cJSON *child : vexil::items(folder)) {
		if (vexil::is_object(child))
			return true;
	}
	return false;
}

bool walk_ips(const Walk &walk, cJSON *first, int depth);

/** One IP or folder; @version is what the chain read last, kept for objects without their own. */
bool insert_ip(const Walk &walk, cJSON *json, int depth, vexil_version *version)
{
	enum { kVersion, kSettings, kKeys };
	static constexpr const char *kNames[kKeys] = {"#version", "settings"};
	const cJSON *found[kKeys];
	vexil::find_members(json, kNames, found);
	if (found[kVersion]) {
		__pim_get_version(const_cast<cJSON *>(found[kVersion]), version, nullptr);
		if (!vexil::supported(*version))
			return false;
	}
	const cJSON *settings = found[kSettings];
	const bool too_deep = !settings && depth >= kMaxFolders && has_object(json);
	const node_d ip = json->string && !too_deep ? make_ip(walk.map, json->string, *version)
						    : kInvalidNode;
	if (!extmem_node_isvalid(ip)) {
		vexil::lib_fail("__pim_find_ip", kWalkReport);
		return false;
	}
	if (settings)
		return insert_settings(walk, settings, ip);
	if (depth >= kMaxFolders)
		return true;
	if (walk.history)
		walk.history[depth] = json;
	return walk_ips(walk, json->child, depth + 1);
}

/** A chain of IPs and folders. Recursion ends at nine levels. */
bool walk_ips(const Walk &walk, cJSON *first, int depth)
{
	vexil_version version{};
	for (cJSON *json = first; json; json = json->next) {
		if (vexil::is_object(json) && !insert_ip(walk, json, depth, &version))
			return false;
	}
	return true;
}

} // namespace

extern "C" {

bool pim_insert(pim *pPim, cJSON *json_root)
{
	if (!pPim || !json_root)
		return false;
	enum { kVersion, kGroups, kKeys };
	static constexpr const char *kNames[kKeys] = {"VexilVersion", "PqFuncGroups"};
	const cJSON *found[kKeys];
	vexil::find_members(json_root, kNames, found);

	const cJSON *version = vexil::member(found[kVersion], "#version");
	if (version) {
		__pim_get_version(const_cast<cJSON *>(version), &pPim->total_version,
				  pPim->cus_version);
		if (!vexil::supported(pPim->total_version))
			return false;
	}
	if (!found[kGroups])
		return true;
	if (!found[kGroups]->child) {
		vexil::lib_fail("__pim_insert_json", kNoGroupsReport);
		return false;
	}
	cJSON *history[kMaxFolders] = {};
	return __pim_find_ip(pPim, found[kGroups]->child, history, 0);
}

bool __pim_find_ip(pim *pPim, cJSON *json_root, cJSON **history, int history_count)
{
	if (!pPim || history_count < 0)
		return false;
	const vexil::Scratch<char> label(pPim->builder, kLabelBytes);
	if (!label) {
		vexil::lib_fail("__pim_find_ip", kWalkReport);
		return false;
	}
	return walk_ips({pPim, history, label.get()}, json_root, history_count);
}

} // extern "C"
