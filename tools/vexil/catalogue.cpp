// SPDX-License-Identifier: MIT

#include "catalogue.h"

#include "nodes.h"

namespace vexil_tool {

namespace {

using vexil::child_of;
using vexil::Children;
using vexil::next_of;
using vexil::WalkBudget;

/** A string item's text; long ones that many nodes share use up the budget. */
std::string text(node_d holder, WalkBudget &budget)
{
	if (!budget.spend_bytes(vexil::payload(holder).size()))
		return {};
	const char *text = vexil::text_of(holder);
	return text ? text : "";
}

std::string_view bytes_of(node_d holder)
{
	const vexil::Bytes record = vexil::payload(holder);
	return {reinterpret_cast<const char *>(record.data()), record.size()};
}

/** Pairs of a register list; 0 when it does not hold what it announces. */
u32 pair_count(std::string_view list)
{
	if (list.size() < sizeof(reg_func))
		return 0;
	const u32 count = vexil::load<u32>(list.data());
	return count <= (list.size() - sizeof(reg_func)) / sizeof(func_pair) ? count : 0;
}

BlockInfo read_block(node_d node, WalkBudget &budget)
{
	BlockInfo block{};
	block.id = node.id;
	block.tag = extmem_fetch_tag(node);
	if (is_register_list(block.tag)) {
		block.data = bytes_of(node);
		block.pairs = pair_count(block.data);
	} else if (block.tag == EXTMEM_TAG_FUNCTION_DATA ||
		   block.tag == EXTMEM_TAG_ALGORITHM_DATA) {
		block.file = text(child_of(node), budget);
		block.name = text(next_of(node), budget);
	}
	return block;
}

bool config_kind(int tag, ConfigKind *kind)
{
	switch (tag) {
	case EXTMEM_TAG_IP_CONFIG:
		*kind = ConfigKind::kPlain;
		return true;
	case EXTMEM_TAG_IP_COMMON_REG_CONFIG:
		*kind = ConfigKind::kCommon;
		return true;
	case EXTMEM_TAG_IP_PRESET_REG_CONFIG:
		*kind = ConfigKind::kPreset;
		return true;
	default:
		return false;
	}
}

ConfigInfo read_config(node_d node, ConfigKind kind, WalkBudget &budget)
{
	ConfigInfo config{};
	config.id = node.id;
	config.kind = kind;
	config.label = node_name(node, budget);
	if (kind == ConfigKind::kPreset)
		config.table = text(next_of(next_of(node)), budget);
	for (const node_d holder : Children(node, budget)) {
		const node_d block = child_of(holder);
		if (extmem_node_isvalid(block))
			config.blocks.push_back(read_block(block, budget));
	}
	return config;
}

SettingInfo read_setting(node_d node, WalkBudget &budget)
{
	SettingInfo setting{};
	setting.id = node.id;
	setting.name = node_name(node, budget);
	const node_d level = vexil::find_next(node, EXTMEM_TAG_PQLEVEL, budget);
	const vexil::Bytes value = vexil::payload(child_of(level));
	setting.level =
		value.size() >= sizeof(u32) ? vexil::load<u32>(value.data()) : u32{E_PQLV_DEFAULT};
	for (const node_d holder : Children(node, budget)) {
		const node_d config = child_of(holder);
		ConfigKind kind;
		if (config_kind(extmem_fetch_tag(config), &kind))
			setting.configs.push_back(read_config(config, kind, budget));
	}
	return setting;
}

IpInfo read_ip(node_d node, WalkBudget &budget)
{
	IpInfo ip{};
	ip.id = node.id;
	ip.name = node_name(node, budget);
	ip.version = node_version(node, budget);
	for (const node_d holder : Children(node, budget)) {
		const node_d setting = child_of(holder);
		if (extmem_fetch_tag(setting) == EXTMEM_TAG_IP_SETTING)
			ip.settings.push_back(read_setting(setting, budget));
	}
	return ip;
}

} // namespace

const char *config_kind_name(ConfigKind kind)
{
	switch (kind) {
	case ConfigKind::kPlain:
		return "configuration";
	case ConfigKind::kCommon:
		return "common";
	case ConfigKind::kPreset:
		return "preset";
	}
	return "";
}

u64 ConfigInfo::pairs() const
{
	u64 sum = 0;
	for (const BlockInfo &block : blocks)
		sum += block.pairs;
	return sum;
}

Catalogue::Catalogue(const Map &map)
{
	WalkBudget budget(map.record()->builder);
	for (const node_d holder : Children(map.record()->root, budget)) {
		const node_d node = child_of(holder);
		switch (extmem_fetch_tag(node)) {
		case EXTMEM_TAG_IP:
			ips.push_back(read_ip(node, budget));
			break;
		case EXTMEM_TAG_FILE:
			files.push_back(
				{node.id, node_name(node, budget), bytes_of(child_of(node))});
			break;
		default:
			break;
		}
	}
	damaged = budget.spent();
	for (size_t i = 0; i < files.size(); ++i)
		files_by_data_.emplace(files[i].data.data(), i);
}

std::unordered_map<const char *, ConfigPlace> Catalogue::common_lists() const
{
	std::unordered_map<const char *, ConfigPlace> lists;
	for (const ConfigPlace &place : configs()) {
		if (place.config->kind != ConfigKind::kCommon)
			continue;
		for (const BlockInfo &block : place.config->blocks)
			lists.emplace(block.data.data(), place);
	}
	return lists;
}

const FileInfo *Catalogue::file_at(std::string_view data) const
{
	const auto found = files_by_data_.find(data.data());
	return found == files_by_data_.end() ? nullptr : &files[found->second];
}

std::vector<ConfigPlace> Catalogue::configs() const
{
	std::vector<ConfigPlace> places;
	for (const IpInfo &ip : ips) {
		for (const SettingInfo &setting : ip.settings) {
			for (const ConfigInfo &config : setting.configs)
				places.push_back({&ip, &setting, &config});
		}
	}
	return places;
}

} // namespace vexil_tool
