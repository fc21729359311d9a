// SPDX-License-Identifier: MIT
//
// Adopting a map with a register table rewrites its hardware lists as the plain description of that
// rewriting does, pair by pair over all earlier ones; counts the registers that it counts; and a
// second adoption of the same bytes changes nothing. Without memory for its index it gives the
// same.
//
// Input: a script in bytes: the table; then per setting its level, its configurations and their
// lists, long ones as a piece that repeats.
#include <cstring>

#include "extmem/tree.h"
#include "pim/pim.h"
#include "tests/fuzz/fuzz.h"

namespace {

using vexil_fuzz::Bytes;
using vexil_fuzz::require;

constexpr std::size_t kLongestInput = 2048;
constexpr std::size_t kMostPairs = 2000; // of all lists
constexpr u32 kFirstUnknownLevel = 8;

struct Pair {
	u32 word, value;
};

struct List {
	u8 tag;
	u32 count; // as its record says
	std::vector<Pair> pairs;
	node_d node;
};

struct Config {
	u8 tag;
	std::vector<List> lists;
};

struct Setting {
	u32 level;
	std::vector<Config> configs;
};

class Model {
public:
	Model(std::vector<Setting> settings, const std::vector<ST_PQ_REG_INFO> &table)
	    : settings(std::move(settings)), table_(table)
	{
		for (Setting &setting : this->settings) {
			counted_ = false;
			for (Config &config : setting.configs)
				adopt(setting.level, config);
		}
	}

	std::vector<Setting> settings;
	u32 counts[16][8] = {};

private:
	static bool readable(const List &list)
	{
		return list.count >= 1 && list.count <= list.pairs.size();
	}
	void adopt(u32 level, Config &config)
	{
		if (config.tag == EXTMEM_TAG_IP_CONFIG && level == E_PQLV_SYNC) {
			for (List &list : config.lists) {
				if (list.tag == EXTMEM_TAG_REGISTER_SETTINGS)
					list.tag = EXTMEM_TAG_REGISTER_SYNC_SETTINGS;
				if (list.tag == EXTMEM_TAG_REGISTER_SYNC_SETTINGS)
					count(level, list);
			}
		}
		if (table_.empty() || config.tag == EXTMEM_TAG_IP_COMMON_REG_CONFIG)
			return;
		for (List &list : config.lists) {
			if (!readable(list))
				continue;
			if (list.tag == EXTMEM_TAG_REGISTER_SETTINGS) {
				rewrite(list);
				list.tag = tag_of(level);
			}
			if (list.tag == 45 || (list.tag >= 48 && list.tag <= 52))
				count(level, list);
		}
	}
	static u8 tag_of(u32 level)
	{
		constexpr u8 kTags[] = {48, 49, 50, 51, 52, 45, 45, 57};
		return level < kFirstUnknownLevel ? kTags[level] : 45;
	}
	void rewrite(List &list) const
	{
		for (u32 i = 0; i < list.count; ++i) {
			Pair &pair = list.pairs[i];
			if (pair.word >= table_.size())
				continue;
			const ST_PQ_REG_INFO &reg = table_[pair.word];
			u32 domain;
			u8 valid;
			std::memcpy(&domain, &reg.e_pq_time_domain, sizeof domain);
			std::memcpy(&valid, &reg.b_valid, sizeof valid);
			if (valid != 1) {
				pair = {0, 0};
				continue;
			}
			const u64 lsb = (reg.u32Mask >> 8) & 0xFF, width = reg.u32Mask >> 16;
			u64 mask = 0, field = 0;
			for (u64 bit = 0; bit < 16; ++bit) {
				if (width >= 1 && lsb + width <= 16 && bit >= lsb &&
				    bit < lsb + width)
					mask |= u64{1} << bit;
				if (bit >= lsb && bit - lsb < width % 32 &&
				    (pair.value >> (bit - lsb) & 1))
					field |= u64{1} << bit;
			}
			pair.word =
				(reg.u32Addr & 0x07FFFFFF) | static_cast<u32>(u64{domain} << 27);
			pair.value = static_cast<u32>(field | mask << 16);
		}
		u32 kept = 1;
		for (u32 j = 1; j < list.count; ++j) {
			u32 same = 0, hole = 0;
			while (same < j && list.pairs[same].word != list.pairs[j].word)
				++same;
			while (hole < j && list.pairs[hole].word != 0)
				++hole;
			if (same < j) {
				list.pairs[same].value |= list.pairs[j].value;
				list.pairs[j] = {0, 0};
				continue;
			}
			++kept;
			if (hole < j) {
				list.pairs[hole] = list.pairs[j];
				list.pairs[j] = {0, 0};
			}
		}
		list.count = kept;
	}
	void count(u32 level, const List &list)
	{
		if (counted_ || !readable(list))
			return;
		counted_ = true;
		for (u32 i = 0; i < list.count && level < kFirstUnknownLevel; ++i) {
			const u32 word = list.pairs[i].word;
			if (word != 0 && word >> 27 < 16)
				++counts[word >> 27][level];
		}
	}

	const std::vector<ST_PQ_REG_INFO> &table_;
	bool counted_ = false;
};

std::vector<ST_PQ_REG_INFO> read_table(Bytes &script)
{
	std::vector<ST_PQ_REG_INFO> table(script.range(0, 12));
	for (ST_PQ_REG_INFO &reg : table) {
		std::memset(static_cast<void *>(&reg), 0, sizeof reg);
		const u8 kind = script.u8();
		const u32 domain = kind & 0x80 ? script.u32() : kind & 0x1F;
		std::memcpy(&reg.e_pq_time_domain, &domain, sizeof domain);
		reg.u32Addr =
			kind & 0x40 ? script.u32() : script.range(0, 3); // often the same ones
		if (kind & 0x20) {
			reg.u32Mask = script.u32();
		} else {
			reg.u32Mask = script.range(0, 17) << 8;
			reg.u32Mask |= script.range(0, 17) << 16;
		}
		const u8 valid = script.u8();
		const u8 flag = valid < 0xC0 ? 1 : valid - 0xC0;
		std::memcpy(&reg.b_valid, &flag, sizeof flag);
	}
	return table;
}

List read_list(Bytes &script, std::size_t *left)
{
	constexpr u8 kTags[] = {36, 36, 36, 36, 45, 48, 52, 57, 37, 46};
	List list{kTags[script.range(0, 9)], 0, {}, {}};
	std::size_t piece = script.range(0, 15);
	const std::size_t repeats = 1 + (script.u8() > 0xF0 ? script.u8() : 0);
	const u32 step = script.u8(); // between repeats, so that long lists hold different words
	std::vector<Pair> pairs(piece);
	for (Pair &pair : pairs) {
		const u8 kind = script.u8();
		pair.word = kind < 0xE0 ? kind % 16 : kind < 0xF0 ? script.u32() : 0;
		pair.value = kind & 1 ? script.u32() : script.u8();
	}
	for (std::size_t i = 0; i < repeats; ++i) {
		for (Pair pair : pairs) {
			if (*left == 0)
				break;
			--*left;
			pair.word += static_cast<u32>(i) * step;
			list.pairs.push_back(pair);
		}
	}
	const u8 lie = script.u8();
	list.count = lie < 0xF0 ? static_cast<u32>(list.pairs.size()) : script.u32();
	return list;
}

std::vector<Setting> read_settings(Bytes &script)
{
	std::size_t left = kMostPairs;
	std::vector<Setting> settings(script.range(1, 3));
	for (Setting &setting : settings) {
		const u8 level = script.u8();
		setting.level = level < 0xF0 ? level % 9 : script.u32();
		setting.configs.resize(script.range(1, 3));
		for (Config &config : setting.configs) {
			config.tag = static_cast<u8>(EXTMEM_TAG_IP_CONFIG + script.range(0, 2));
			for (u32 lists = script.range(0, 3); lists > 0; --lists)
				config.lists.push_back(read_list(script, &left));
		}
	}
	return settings;
}

/** The map, node by node; the lists are told their nodes. */
class Store {
public:
	explicit Store(std::vector<Setting> &settings)
	{
		require(extmem_builder_init(&store_, nullptr, 0), "no store");
		const node_d root = node(EXTMEM_TAG_GENERAL);
		const node_d ip = held(root, EXTMEM_TAG_IP, "ip");
		for (std::size_t s = 0; s < settings.size(); ++s) {
			const std::string name = "s" + std::to_string(s);
			const node_d setting = held(ip, EXTMEM_TAG_IP_SETTING, name);
			const node_d level = node(EXTMEM_TAG_PQLEVEL);
			extmem_append_child(level,
					    record(EXTMEM_TAG_PQLEVEL_HOLDER, &settings[s].level,
						   sizeof settings[s].level));
			extmem_append_next(extmem_get_next(setting), level);
			for (Config &config : settings[s].configs) {
				const node_d made =
					held(setting, static_cast<extmem_tag>(config.tag),
					     name + "#" + std::to_string(labels_++));
				for (List &list : config.lists)
					add(made, list);
			}
		}
		vexil::fill_header(&store_.header, vexil::kPimImageKind, {}, {});
		image.resize(extmem_builder_get_export_size(&store_));
		require(extmem_builder_export(&store_, image.data()) == image.size(), "no image");
	}
	~Store() { extmem_builder_destroy(&store_); }
	Store(const Store &) = delete;
	Store &operator=(const Store &) = delete;

	std::vector<char> image;

private:
	node_d node(extmem_tag tag)
	{
		const node_d made = extmem_request_node(&store_, tag);
		require(extmem_node_isvalid(made), "no node");
		return made;
	}
	node_d record(extmem_tag tag, const void *bytes, std::size_t size)
	{
		const node_d made = extmem_get_data(&store_, tag, const_cast<void *>(bytes),
						    static_cast<u32>(size));
		require(extmem_node_isvalid(made), "no record");
		return made;
	}
	node_d held(node_d parent, extmem_tag tag, const std::string &name)
	{
		const node_d holder = node(EXTMEM_TAG_GENERAL), made = node(tag);
		const node_d property = node(EXTMEM_TAG_PROPERTY);
		extmem_append_child(
			property, record(EXTMEM_TAG_STRING_HOLDER, name.c_str(), name.size() + 1));
		extmem_append_next(made, property);
		extmem_append_child(holder, made);
		append(parent, holder);
		return made;
	}
	void append(node_d parent, node_d holder)
	{
		const node_d first = extmem_get_child(parent);
		if (extmem_node_isvalid(first))
			extmem_append_next(extmem_find_tail(first), holder);
		else
			extmem_append_child(parent, holder);
	}
	void add(node_d config, List &list)
	{
		std::vector<u32> words{list.count, 0};
		for (const Pair &pair : list.pairs)
			words.insert(words.end(), {pair.word, pair.value});
		const node_d holder = node(EXTMEM_TAG_GENERAL);
		list.node =
			record(static_cast<extmem_tag>(list.tag), words.data(), words.size() * 4);
		extmem_append_child(holder, list.node);
		append(config, holder);
	}

	extmem_builder store_{};
	std::size_t labels_ = 0;
};

void compare(pim *map, const Model &model)
{
	for (const Setting &setting : model.settings) {
		for (const Config &config : setting.configs) {
			for (const List &list : config.lists) {
				const node_d node{list.node.id, &map->builder};
				require(extmem_fetch_tag(node) == list.tag, "the kind of a list");
				const data_d data = extmem_copy_from_node(node);
				require(data.size == 8 + 8 * list.pairs.size(),
					"the length of a list");
				std::vector<u32> words{list.count, 0};
				for (const Pair &pair : list.pairs)
					words.insert(words.end(), {pair.word, pair.value});
				require(std::memcmp(extmem_fetch_data(data), words.data(),
						    data.size) == 0,
					"the pairs of a list");
			}
		}
	}
	u32 sum = 0;
	for (u8 domain = 0; domain < 16; ++domain) {
		for (u32 level = 0; level < 8; ++level) {
			const u32 counted =
				pim_get_reg_num(map, domain, static_cast<EN_PQ_LEVEL>(level));
			require(counted == model.counts[domain][level], "the registers of a level");
			sum += counted;
		}
	}
	require(pim_get_reg_num(map, 16, E_PQLV_MAX) == sum, "the registers of all levels");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
	const vexil_fuzz::Blocks blocks;
	Bytes script(data, size < kLongestInput ? size : kLongestInput);
	const u8 refuse = script.u8();
	const std::vector<ST_PQ_REG_INFO> table = read_table(script);
	std::vector<Setting> settings = read_settings(script);
	Store store(settings);
	const Model model(settings, table);

	pim *map = nullptr;
	std::vector<char> image = store.image;
	vexil_fuzz::refuse(refuse % 64, false);
	bool adopted = pim_init(&map, image.data(), static_cast<u32>(image.size()),
				table.empty() ? nullptr : table.data(), table.size());
	const bool refused = vexil_fuzz::refused();
	vexil_fuzz::refuse(0, false);
	require(refused || (adopted && map), "a map is adopted");
	if (!map || map->ip_map.err_code == CTRIE_NOMEM ||
	    map->ipname_map.err_code == CTRIE_NOMEM || map->preset_map.err_code == CTRIE_NOMEM) {
		pim_destroy(&map);
		map = nullptr;
		image = store.image;
		adopted = pim_init(&map, image.data(), static_cast<u32>(image.size()),
				   table.empty() ? nullptr : table.data(), table.size());
		require(adopted && map, "a map is adopted");
	}
	compare(map, model);
	pim_destroy(&map);

	// What was rewritten stays as it is, and is counted as it was.
	require(pim_init(&map, image.data(), static_cast<u32>(image.size()),
			 table.empty() ? nullptr : table.data(), table.size()),
		"a map is adopted again");
	compare(map, model);
	pim_destroy(&map);
	return 0;
}
