// SPDX-License-Identifier: MIT
//
// The example products, twice: as texts that the library is fed with, and as a second reading of
// the same files that shares nothing with the library: plain maps and lists, one step after another.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "tests/support/pim_json.h"

namespace vexil_test {

/** How a map came to be; decides in which form hardware registers are delivered. */
enum class Form {
	kBuilt,     // from documents
	kScanned,   // adopted or merged: synchronised lists are tagged
	kAddressed, // the same with the register table: other lists hold addresses
};

/** Members in document order. */
using ExampleJson = nlohmann::ordered_json;

inline std::string lower(std::string text)
{
	std::transform(text.begin(), text.end(), text.begin(),
		       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
	return text;
}

inline std::string read_bytes(const std::filesystem::path &path)
{
	std::ifstream file(path, std::ios::binary);
	EXPECT_TRUE(file) << path;
	return {std::istreambuf_iterator<char>(file), {}};
}

/** The integer of a number, or of a text such as "0x1F". */
inline s64 integer_of(const ExampleJson &value)
{
	return value.is_string() ? std::stoll(value.get<std::string>(), nullptr, 16)
				 : value.get<s64>();
}

/** Named entries, of an object or of an array of objects with one member each. */
inline std::vector<std::pair<std::string, ExampleJson>> entries_of(const ExampleJson &list)
{
	std::vector<std::pair<std::string, ExampleJson>> entries;
	if (list.is_object()) {
		for (const auto &[name, value] : list.items())
			entries.emplace_back(name, value);
	} else {
		for (const ExampleJson &element : list)
			entries.emplace_back(element.begin().key(), element.begin().value());
	}
	return entries;
}

inline vexil_version version_in(const ExampleJson &object)
{
	vexil_version version{};
	if (object.contains("JsonVersionFormat")) {
		const std::string text = object["JsonVersionFormat"];
		const size_t dot = text.find('.');
		version.u16MajorNumber =
			static_cast<u16>(std::stoul(text.substr(0, dot), nullptr, 16));
		version.u16MinorNumber =
			static_cast<u16>(std::stoul(text.substr(dot + 1), nullptr, 16));
	} else {
		version.u16MajorNumber = object.at("MajorVersion");
		version.u16MinorNumber = object.at("MinorVersion");
	}
	const ExampleJson &revision = object.at("Revision");
	version.u32Revision =
		revision.is_string()
			? static_cast<u32>(std::stoul(revision.get<std::string>(), nullptr, 16))
			: revision.get<u32>();
	return version;
}

// ---- what a product holds ----

struct ExampleBlock {
	int tag = 0; // of a register list, or EXTMEM_TAG_FUNCTION_DATA or _ALGORITHM_DATA
	std::vector<std::pair<u32, u32>> pairs;
	std::string file;	 // name of a file
	std::string entry;	 // handler label or entry name
	size_t empty_pairs = 0; // behind the list: what joining fields into words left over
};

struct ExampleConfig {
	std::string label;
	int tag = EXTMEM_TAG_IP_CONFIG;
	std::vector<ExampleBlock> blocks;
};

struct ExampleSetting {
	u32 level = E_PQLV_DEFAULT;
	std::string table; // of a preset setting
	std::vector<ExampleConfig> configs;
};

struct ExampleIp {
	std::string name;
	vexil_version version{};
	std::vector<ExampleSetting> settings; // a folder has none
	size_t document = 0;		      // which function-group document it comes from
};

/** A text that the library is fed with. */
struct ExampleText {
	std::string path;
	std::string text;
};

class Example {
public:
	/** Reads the product of examples/@name. */
	explicit Example(const std::string &name)
	{
		const std::filesystem::path folder = std::filesystem::path(VEXIL_EXAMPLES) / name;
		const ExampleJson manifest =
			ExampleJson::parse(read_bytes(folder / "product.json"));
		read_lists(folder, manifest);
		for (const ExampleJson &label : manifest["handlers"])
			handlers.push_back(label);
		read_files(folder, manifest);
		for (const ExampleJson &path : manifest["functionGroups"])
			add_groups({path, read_bytes(folder / path.get<std::string>())});
	}

	/** One more function-group document. */
	void add_groups(const ExampleText &text)
	{
		groups.push_back(text);
		const ExampleJson document = ExampleJson::parse(text.text);
		const ExampleJson &version = document["VexilVersion"]["#version"];
		total_version = version_in(version);
		note = version.value("Note", note);
		read_folder(document["PqFuncGroups"]);
	}

	// Texts, in the order of insertion.
	std::vector<ExampleText> hardware, software, customer, groups;
	std::vector<std::pair<std::string, std::string>> files; // names and bytes
	std::vector<std::string> handlers;
	RegisterTable table;

	// The second reading.
	std::map<std::string, u32> hardware_names, software_names, customer_names; // lower case
	std::vector<ExampleIp> ips;						    // in root order
	vexil_version total_version{}, hardware_version{}, software_version{}, customer_version{};
	std::string note;

	/** The same with @sub over it. */
	[[nodiscard]] Example merged(const Example &sub) const
	{
		Example result = *this;
		for (const ExampleIp &ip : sub.ips) {
			const auto there =
				std::find_if(ips.begin(), ips.end(), [&](const ExampleIp &base) {
					return lower(base.name) == lower(ip.name);
				});
			if (there == ips.end())
				result.ips.push_back(ip);
			else
				result.ips[static_cast<size_t>(there - ips.begin())].settings =
					ip.settings;
		}
		for (const auto &file : sub.files) {
			const auto there = std::find_if(
				result.files.begin(), result.files.end(), [&](const auto &base) {
					return lower(base.first) == lower(file.first);
				});
			if (there == result.files.end())
				result.files.push_back(file);
			else
				there->second = file.second;
		}
		return result;
	}

	[[nodiscard]] const std::string &file(const std::string &name) const
	{
		static const std::string kNone = "no such file";
		for (const auto &[known, bytes] : files) {
			if (lower(known) == lower(name))
				return bytes;
		}
		ADD_FAILURE() << name;
		return kNone;
	}

private:
	void read_lists(const std::filesystem::path &folder, const ExampleJson &manifest)
	{
		const auto read = [&](const char *list, const char *key, const char *version_key,
				      std::vector<ExampleText> &texts,
				      std::map<std::string, u32> &names, vexil_version &version) {
			for (const ExampleJson &path : manifest[list]) {
				texts.push_back(
					{path, read_bytes(folder / path.get<std::string>())});
				const ExampleJson registers =
					ExampleJson::parse(texts.back().text)[key];
				version = version_in(registers[version_key]);
				for (const auto &[name, position] :
				     entries_of(registers["register"]))
					names.emplace(lower(name),
						      static_cast<u32>(integer_of(position)));
			}
		};
		read("hardware", "PqHWRegList", "0.version", hardware, hardware_names,
		     hardware_version);
		read("software", "PqSWRegList", "0.version", software, software_names,
		     software_version);
		read("customer", "PqCusSWRegList", "#version", customer, customer_names,
		     customer_version);
		const std::string info = manifest["registerInfo"];
		for (const ExampleJson &field : ExampleJson::parse(read_bytes(folder / info)))
			table.push_back(reg(field["domain"],
					    static_cast<u32>(integer_of(field["addr"])),
					    field["lsb"], field["width"]));
	}

	void read_files(const std::filesystem::path &folder, const ExampleJson &manifest)
	{
		for (const ExampleJson &item : manifest["files"]) {
			if (item.is_object()) {
				files.emplace_back(
					item["name"],
					read_bytes(folder / item["path"].get<std::string>()));
				continue;
			}
			std::map<std::string, std::string> sorted;
			for (const auto &each :
			     std::filesystem::directory_iterator(folder / item.get<std::string>()))
				sorted[each.path().filename()] = read_bytes(each.path());
			files.insert(files.end(), sorted.begin(), sorted.end());
		}
	}

	void read_folder(const ExampleJson &folder)
	{
		vexil_version last{}; // of the chain
		for (const auto &[name, object] : folder.items()) {
			if (!object.is_object())
				continue;
			if (object.contains("#version"))
				last = version_in(object["#version"]);
			ips.push_back({name, last, {}, groups.size() - 1});
			if (!object.contains("settings")) {
				read_folder(object);
				continue;
			}
			const size_t ip = ips.size() - 1;
			for (const auto &[setting, content] : object["settings"].items())
				ips[ip].settings.push_back(read_setting(setting, content));
		}
	}

	ExampleSetting read_setting(const std::string &name, const ExampleJson &content) const
	{
		static const std::map<std::string, u32> kLevels = {
			{"IND", 0}, {"PI", 1}, {"L1", 2}, {"L2", 3}, {"L3", 4}, {"SYNC", 7}};
		ExampleSetting setting;
		const auto level = kLevels.find(content.value("1.PQlevel", ""));
		if (level != kLevels.end())
			setting.level = level->second;
		const bool preset = content.contains("1.PresetRegs");
		if (preset) {
			setting.level = E_PQLV_PRESETREGS;
			setting.table = content["1.PresetRegs"];
		}
		if (!content.contains("group"))
			return setting;
		const auto members = entries_of(content["group"]);
		std::vector<std::pair<u32, u32>> common;
		if (!preset && content.value("commonReg", false)) {
			common = common_of(members);
			ExampleConfig shared{
				name + "#commonReg", EXTMEM_TAG_IP_COMMON_REG_CONFIG, {}};
			shared.blocks.push_back(
				{EXTMEM_TAG_REGISTER_RIU_SETTINGS, common, {}, {}, 0});
			setting.configs.push_back(shared);
		}
		for (const auto &[member, sections] : members)
			setting.configs.push_back(
				read_config(name + "#" + member, preset, sections, common));
		return setting;
	}

	[[nodiscard]] std::vector<std::pair<u32, u32>>
	pairs_in(const ExampleJson &list, const std::map<std::string, u32> &names) const
	{
		std::vector<std::pair<u32, u32>> pairs;
		for (const auto &[name, value] : entries_of(list)) {
			EXPECT_TRUE(names.count(lower(name))) << name;
			pairs.emplace_back(names.at(lower(name)),
					   static_cast<u32>(integer_of(value)));
		}
		return pairs;
	}

	/** What every member holds, in the last one's order. */
	[[nodiscard]] std::vector<std::pair<u32, u32>>
	common_of(const std::vector<std::pair<std::string, ExampleJson>> &members) const
	{
		std::vector<std::pair<u32, u32>> common;
		for (size_t i = 0; i < members.size(); ++i) {
			std::vector<std::pair<u32, u32>> left;
			if (members[i].second.contains("hwreg")) {
				for (const auto &pair :
				     pairs_in(members[i].second["hwreg"], hardware_names)) {
					if (i == 0 || std::find(common.begin(), common.end(),
								pair) != common.end())
						left.push_back(pair);
				}
			}
			common = left;
			if (common.empty())
				break;
		}
		EXPECT_LT(common.size(), 500u); // the limit is not for examples
		return common;
	}

	[[nodiscard]] ExampleConfig
	read_config(const std::string &label, bool preset, const ExampleJson &sections,
		    const std::vector<std::pair<u32, u32>> &common) const
	{
		ExampleConfig config{
			label, preset ? EXTMEM_TAG_IP_PRESET_REG_CONFIG : EXTMEM_TAG_IP_CONFIG, {}};
		const auto add_list = [&](int tag, const std::vector<std::pair<u32, u32>> &pairs) {
			if (!pairs.empty())
				config.blocks.push_back({tag, pairs, {}, {}, 0});
		};
		const auto add_files = [&](int tag, const char *key) {
			if (!sections.contains(key))
				return;
			for (const auto &[entry, file] : entries_of(sections[key]))
				config.blocks.push_back({tag, {}, file, entry, 0});
		};
		if (sections.contains("hwreg")) {
			auto own = pairs_in(sections["hwreg"], hardware_names);
			std::erase_if(own, [&](const auto &pair) {
				return std::find(common.begin(), common.end(), pair) !=
				       common.end();
			});
			add_list(EXTMEM_TAG_REGISTER_SETTINGS, own);
		}
		if (sections.contains("swreg"))
			add_list(EXTMEM_TAG_VREGISTER_SETTINGS,
				 pairs_in(sections["swreg"], software_names));
		add_files(EXTMEM_TAG_FUNCTION_DATA, "lut");
		add_files(EXTMEM_TAG_ALGORITHM_DATA, "alg");
		if (sections.contains("hwaddr")) {
			std::vector<std::pair<u32, u32>> pairs;
			for (const auto &[address, value] : entries_of(sections["hwaddr"]))
				pairs.emplace_back(
					static_cast<u32>(std::stoull(address, nullptr, 0)),
					static_cast<u32>(integer_of(value)));
			add_list(EXTMEM_TAG_REGISTER_ADDR_SETTINGS, pairs);
		}
		if (sections.contains("cus_swreg"))
			add_list(EXTMEM_TAG_CUS_VREGISTER_SETTINGS,
				 pairs_in(sections["cus_swreg"], customer_names));
		return config;
	}
};

// ---- what a map over it must deliver ----

/** A list as it is delivered: its tag, and for address form one word per register. */
inline ExampleBlock in_form(const ExampleBlock &block, const ExampleConfig &config, u32 level,
			    Form form, const RegisterTable &table)
{
	if (block.tag != EXTMEM_TAG_REGISTER_SETTINGS || form == Form::kBuilt ||
	    config.tag == EXTMEM_TAG_IP_COMMON_REG_CONFIG)
		return block;
	ExampleBlock result = block;
	if (level == E_PQLV_SYNC && config.tag == EXTMEM_TAG_IP_CONFIG) {
		result.tag = EXTMEM_TAG_REGISTER_SYNC_SETTINGS;
		return result;
	}
	if (form != Form::kAddressed)
		return result;
	static const std::map<u32, int> kTags = {{0, 48}, {1, 49}, {2, 50}, {3, 51}, {4, 52},
						 {5, 45}, {6, 45}, {7, 57}};
	result.tag = kTags.at(level);
	result.pairs.clear();
	for (const auto &[position, value] : block.pairs) {
		const ST_PQ_REG_INFO &field = table.at(position);
		const u32 lsb = field.u32Mask >> 8 & 0xFF;
		const u32 ones = (1u << (field.u32Mask >> 16)) - 1;
		const u32 word = (field.u32Addr & 0x07FFFFFF) |
				 static_cast<u32>(field.e_pq_time_domain) << 27;
		const u32 bits = (value & ones) << lsb | ones << lsb << 16;
		EXPECT_NE(word, 0u); // would be taken for an empty slot
		const auto there =
			std::find_if(result.pairs.begin(), result.pairs.end(),
				     [&](const auto &pair) { return pair.first == word; });
		if (there == result.pairs.end())
			result.pairs.emplace_back(word, bits);
		else
			there->second |= bits;
	}
	result.empty_pairs = block.pairs.size() - result.pairs.size();
	return result;
}

/** Whom the tables of @label go to: the same number for the same label in every map. */
inline int table_number(const std::string &label)
{
	static std::map<std::string, int> numbers;
	return numbers.emplace(lower(label), static_cast<int>(numbers.size())).first->second;
}

/** A handler of its own for each number. */
inline vexil_callback table_handler(const std::string &label)
{
	static constexpr std::array<vexil_callback, 12> kHandlers = {
		record_table<0>, record_table<1>, record_table<2>, record_table<3>,
		record_table<4>, record_table<5>, record_table<6>, record_table<7>,
		record_table<8>, record_table<9>, record_table<10>, record_table<11>,
	};
	return kHandlers.at(static_cast<size_t>(table_number(label)));
}

/** What load() must give for a configuration. */
inline Lines expected_lines(const Example &example, const ExampleSetting &setting,
			    const ExampleConfig &config, Form form)
{
	Lines lines;
	Lines algorithms;
	for (const ExampleBlock &stored : config.blocks) {
		const ExampleBlock block =
			in_form(stored, config, setting.level, form, example.table);
		if (block.tag == EXTMEM_TAG_FUNCTION_DATA) {
			lines.push_back("table" + std::to_string(table_number(block.entry)) +
					" DATA [" + example.file(block.file) + "]");
		} else if (block.tag == EXTMEM_TAG_ALGORITHM_DATA) {
			algorithms.push_back("algorithm DATA [" + example.file(block.file) + "] '" +
					     block.entry + "'");
		} else {
			std::string text = tag_text(block.tag) + " {";
			for (size_t i = 0; i < block.pairs.size(); ++i)
				text += (i ? " " : "") + std::to_string(block.pairs[i].first) +
					"=" + std::to_string(block.pairs[i].second);
			lines.push_back(text + "}" +
					(block.empty_pairs
						 ? " +" + std::to_string(block.empty_pairs)
						 : ""));
		}
	}
	lines.insert(lines.end(), algorithms.begin(), algorithms.end());
	return lines;
}

/** Register pairs that a configuration costs. */
inline u32 expected_cost(const Example &example, const ExampleSetting &setting,
			 const ExampleConfig &config, Form form)
{
	size_t cost = 0;
	for (const ExampleBlock &stored : config.blocks) {
		const ExampleBlock block =
			in_form(stored, config, setting.level, form, example.table);
		const bool charged = block.tag == 36 || block.tag == 45 || block.tag == 57 ||
				     (block.tag >= 48 && block.tag <= 52);
		cost += charged ? block.pairs.size() : 0;
	}
	return static_cast<u32>(cost);
}

/** The register counters of a scan: the first list of each setting that counts. */
inline std::map<std::pair<u32, u32>, u32> expected_counters(const Example &example, Form form)
{
	std::map<std::pair<u32, u32>, u32> counters;
	for (const ExampleIp &ip : example.ips) {
		for (const ExampleSetting &setting : ip.settings) {
			const auto count_first = [&] {
				for (const ExampleConfig &config : setting.configs) {
					for (const ExampleBlock &stored : config.blocks) {
						const ExampleBlock block =
							in_form(stored, config, setting.level, form,
								example.table);
						const bool sync = block.tag == 57;
						const bool address =
							block.tag == 45 ||
							(block.tag >= 48 && block.tag <= 52);
						if (!sync && !(address && form == Form::kAddressed))
							continue;
						for (const auto &[word, value] : block.pairs) {
							if (word != 0 && word >> 27 < 16)
								++counters[{word >> 27,
									    setting.level}];
						}
						return;
					}
				}
			};
			if (form != Form::kBuilt)
				count_first();
		}
	}
	return counters;
}

inline u16 id_in(const pim *map, const ExampleConfig &config)
{
	return config.tag == EXTMEM_TAG_IP_PRESET_REG_CONFIG
		       ? pim_query_preset_id(map, config.label.c_str())
		       : pim_query_setting_id(map, config.label.c_str());
}

/** Registers what images do not hold. False without memory. */
inline bool register_handlers(pim *map, const Example &example)
{
	bool done = pim_insert_alg_handler(map, record_algorithm);
	for (const std::string &label : example.handlers)
		done &= pim_insert_handler(map, label.c_str(), table_handler(label));
	return done;
}

/**
 * Every configuration that @map knows delivers what the files say. Those of the first @complete
 * function-group documents must be known.
 */
inline void expect_example_labels(pim *map, const Example &example, Form form, size_t complete)
{
	for (const ExampleIp &ip : example.ips) {
		for (const ExampleSetting &setting : ip.settings) {
			for (const ExampleConfig &config : setting.configs) {
				const u16 id = id_in(map, config);
				if (id == VEXIL_NO_ID) {
					EXPECT_GE(ip.document, complete) << config.label;
					continue;
				}
				EXPECT_EQ(load(map, id),
					  expected_lines(example, setting, config, form))
					<< config.label;
			}
		}
	}
}

/** @map holds all of @example and says of it what the files say. Its handlers are registered. */
inline void expect_example_pim(pim *map, const Example &example, Form form)
{
	constexpr size_t kEveryDocument = ~size_t{0};
	ASSERT_TRUE(map);
	expect_example_labels(map, example, form, kEveryDocument);

	Lines common;
	std::vector<u16> presets;
	std::map<std::string, Lines> of_table;
	for (const ExampleIp &ip : example.ips) {
		for (const ExampleSetting &setting : ip.settings) {
			for (const ExampleConfig &config : setting.configs) {
				SCOPED_TRACE(config.label);
				const u16 id = id_in(map, config);
				const Lines lines = expected_lines(example, setting, config, form);
				char *label = nullptr;
				pim_get_setting(map, id, &label);
				EXPECT_STREQ(label, config.label.c_str());
				if (config.tag != EXTMEM_TAG_IP_PRESET_REG_CONFIG) {
					EXPECT_EQ(load(map, config.label), lines);
				} else {
					presets.push_back(id);
					Lines &table = of_table[setting.table];
					table.insert(table.end(), lines.begin(), lines.end());
				}
				if (config.tag == EXTMEM_TAG_IP_COMMON_REG_CONFIG)
					common.insert(common.end(), lines.begin(), lines.end());
				const u32 cost = expected_cost(example, setting, config, form);
				Lines within;
				EXPECT_EQ(pim_load_setting_count(map, id, cost, record_block,
								 &within),
					  0u);
				if (cost > 0) {
					EXPECT_EQ(
						static_cast<s32>(pim_load_setting_count(
							map, id, cost - 1, record_block, &within)),
						-1);
				}
			}
		}
	}
	Lines delivered;
	pim_load_common_reg_setting(map, record_block, &delivered);
	EXPECT_EQ(delivered, common);
	for (const auto &[table, lines] : of_table) {
		delivered.clear();
		algorithm_log().clear();
		pim_load_preset(map, presets.data(), presets.size(), table.c_str(), record_block,
				&delivered);
		delivered.insert(delivered.end(), algorithm_log().begin(), algorithm_log().end());
		EXPECT_EQ(delivered, lines) << table;
	}

	std::map<std::string, vexil_version> first; // of each name
	for (const ExampleIp &ip : example.ips)
		first.emplace(ip.name, ip.version);
	for (const auto &[name, version] : first) {
		vexil_version read{};
		EXPECT_TRUE(pim_get_pim_version(map, &read, name.c_str())) << name;
		EXPECT_EQ(read, version) << name;
	}
	EXPECT_EQ(map->total_version, example.total_version);
	EXPECT_EQ(map->hwreg_json_version, example.hardware_version);
	EXPECT_EQ(map->swreg_json_version, example.software_version);
	EXPECT_EQ(std::string(map->cus_version), example.note.substr(0, 31));

	const auto counters = expected_counters(example, form);
	u32 total = 0;
	for (u32 domain = 0; domain < 16; ++domain) {
		for (u32 level = 0; level < 8; ++level) {
			const auto found = counters.find({domain, level});
			const u32 count = found == counters.end() ? 0 : found->second;
			total += count;
			EXPECT_EQ(pim_get_reg_num(map, static_cast<u8>(domain),
						  static_cast<EN_PQ_LEVEL>(level)),
				  count)
				<< "domain " << domain << ", level " << level;
		}
	}
	EXPECT_EQ(pim_get_reg_num(map, E_PQ_MAX_DOMAIN, E_PQLV_MAX), total);
}

// ---- feeding the library ----

using ListReader = bool (*)(pim *, cJSON *);

/** Parses a text and hands it to @read; false when either fails. */
inline bool feed(pim *map, const std::string &text, ListReader read)
{
	const Json document(static_cast<cJSON *>(vexil_json_parse(text.c_str())));
	return document && read(map, document.get());
}

/** Register lists, files and handlers: all that function groups refer to. */
inline bool prepare_example(pim *map, const Example &example)
{
	const auto lists = [&](const std::vector<ExampleText> &texts, ListReader read) {
		return std::all_of(texts.begin(), texts.end(), [&](const ExampleText &list) {
			return feed(map, list.text, read);
		});
	};
	return lists(example.hardware, pim_insert_regmap_json) &&
	       lists(example.software, pim_insert_vregmap_json) &&
	       lists(example.customer, pim_insert_cus_vregmap_json) &&
	       register_handlers(map, example) &&
	       std::all_of(example.files.begin(), example.files.end(), [&](const auto &file) {
		       return pim_insert_file(map, file.first.c_str(), file.second.data(),
					      static_cast<u32>(file.second.size()));
	       });
}

/** Function-group documents up to the first that fails; how many went in. */
inline size_t insert_groups(pim *map, const Example &example)
{
	size_t done = 0;
	while (done < example.groups.size() && feed(map, example.groups[done].text, pim_insert))
		++done;
	return done;
}

/** The whole product in an empty map. */
inline bool build_example(Map &map, const Example &example)
{
	return map.init() && prepare_example(map.get(), example) &&
	       insert_groups(map.get(), example) == example.groups.size();
}

} // namespace vexil_test
