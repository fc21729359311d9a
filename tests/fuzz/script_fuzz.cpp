// SPDX-License-Identifier: MIT
//
// A product made from a script: a base map and a customer's map with IPs, settings, presets, common
// registers, tables and files; a rule set for each over the same sources; exported, adopted,
// merged, and the merged ones exported and adopted again. Every form delivers for every label the
// blocks that the documents say, and selects what the simple evaluator selects; every export is
// sound. Where memory is refused, what was there before is still there.
//
// Input: a script in bytes.
#include <map>
#include <set>
#include <utility>

#include "core/ctrie.h"
#include "tests/fuzz/documents.h"
#include "tests/support/rule_evaluator.h"

namespace {

using namespace vexil_fuzz;
using vexil_test::model::Call;
using vexil_test::model::Generator;
using vexil_test::model::lower;

constexpr std::size_t kLongestInput = 2048;
constexpr int kMostCalls = 16;
constexpr u32 kNoLimit = 0xFFFFFF;
constexpr u16 kNoId = 0xFFFF;

// ---- the model of a map ----

struct Pair {
	u32 index, value;
	bool operator==(const Pair &other) const = default;
};
using Pairs = std::vector<Pair>;

struct Block {
	int tag;
	Pairs pairs;             // of register lists
	std::string file, label; // of tables and algorithms
};

struct Config {
	std::string label;
	int tag;
	std::string table; // of presets
	std::vector<Block> blocks;
};

struct Setting {
	u32 level;
	std::vector<Config> configs;
};

struct Version {
	u16 major = 0, minor = 0;
	u32 revision = 0;
};

/** What a holder below the root holds. */
struct Top {
	bool file;
	std::string name, bytes;
	Version version;
	std::vector<Setting> settings;
};

struct MapModel {
	std::vector<Top> tops;
	Version version;

	[[nodiscard]] const Top *find(bool file, const std::string &name) const
	{
		for (const Top &top : tops) {
			if (top.file == file && lower(top.name) == lower(name))
				return &top;
		}
		return nullptr;
	}
	/** Every configuration, in the order of the image. */
	[[nodiscard]] std::vector<const Config *> configs() const
	{
		std::vector<const Config *> all;
		for (const Top &top : tops) {
			for (const Setting &setting : top.settings) {
				for (const Config &config : setting.configs)
					all.push_back(&config);
			}
		}
		return all;
	}
	/** As adoption leaves it: lists of synchronised settings change their kind. */
	void adopt()
	{
		for (Top &top : tops) {
			for (Setting &setting : top.settings)
				synchronise(setting);
		}
	}
	/** Registers of synchronised settings, one list of each. */
	[[nodiscard]] u32 synchronised() const
	{
		u32 sum = 0;
		for (const Top &top : tops) {
			for (const Setting &setting : top.settings)
				sum += counted(setting);
		}
		return sum;
	}

private:
	static void synchronise(Setting &setting)
	{
		for (Config &config : setting.configs) {
			if (setting.level != E_PQLV_SYNC || config.tag != EXTMEM_TAG_IP_CONFIG)
				continue;
			for (Block &block : config.blocks) {
				if (block.tag == EXTMEM_TAG_REGISTER_SETTINGS)
					block.tag = EXTMEM_TAG_REGISTER_SYNC_SETTINGS;
			}
		}
	}
	static u32 counted(const Setting &setting)
	{
		for (const Config &config : setting.configs) {
			for (const Block &block : config.blocks) {
				if (block.tag != EXTMEM_TAG_REGISTER_SYNC_SETTINGS)
					continue;
				u32 sum = 0;
				for (const Pair &pair : block.pairs)
					sum += pair.index != 0 && pair.index >> 27 < 16;
				return sum;
			}
		}
		return 0;
	}
};

/** The configurations that have labels: of each label the first one. */
class Labels {
public:
	explicit Labels(const MapModel &model)
	{
		for (const Config *config : model.configs())
			(preset(*config) ? presets_ : plain_).emplace(lower(config->label), config);
	}
	static bool preset(const Config &config)
	{
		return config.tag == EXTMEM_TAG_IP_PRESET_REG_CONFIG;
	}
	[[nodiscard]] const Config *find(const std::string &label, bool among_presets) const
	{
		const auto &labels = among_presets ? presets_ : plain_;
		const auto found = labels.find(lower(label));
		return found == labels.end() ? nullptr : found->second;
	}
	/** Whether its label leads to this one. */
	[[nodiscard]] bool leads_to(const Config &config) const
	{
		return find(config.label, preset(config)) == &config;
	}

private:
	std::map<std::string, const Config *> plain_, presets_;
};

/** The id that a map has for a label. */
u16 id_of(const pim *map, const std::string &label, bool preset)
{
	return preset ? pim_query_preset_id(map, label.c_str())
		      : pim_query_setting_id(map, label.c_str());
}

/** The sub over the base. */
MapModel merged(const MapModel &base, const MapModel &sub)
{
	MapModel both = base;
	for (const Top &top : sub.tops) {
		const Top *same = base.find(top.file, top.name);
		if (!same) {
			both.tops.push_back(top);
			continue;
		}
		Top &replaced = both.tops[static_cast<std::size_t>(same - base.tops.data())];
		replaced.bytes = top.bytes;
		replaced.settings = top.settings;
	}
	both.adopt();
	return both;
}

// ---- documents from the script ----

const char *const kIpNames[] = {"Scaler", "HDR", "hdr", "Panel 1", "folder"};
const char *const kSettingNames[] = {"mode", "Tint", "tone.a", "MODE"};
const char *const kMemberNames[] = {"soft", "hard", "Cold", "warm", "SOFT"};
const char *const kLevels[] = {"IND", "PI", "L1", "L2", "L3", "SYNC", "sync", "DEFAULT"};
constexpr u32 kLevelOf[] = {0, 1, 2, 3, 4, 7, 5, 5};
const char *const kTables[] = {"MainTable", "SubTable"};
const char *const kFiles[] = {"curve.bin", "Table.bin", "none.bin"};
const char *const kHandlers[] = {"Gamma", "tone", "nobody"};
constexpr u32 kPositions[] = {3, 0, 0x08000001, 0x7FFFFFFE, 77, 4, 5, 6};
constexpr u32 kRegisters = 8; // of each of the three lists; the last two names are in none

std::string quoted(const std::string &text)
{
	return "'" + text + "'";
}

void append(std::string &list, const std::string &item)
{
	list += (list.empty() ? "" : ", ") + item;
}

/** Writes function groups and tells the model what they say. */
class Writer {
public:
	Writer(Bytes &script, MapModel &model) : script_(script), model_(model) {}

	/** A document; false in @accepted when its version is refused. */
	std::string groups(bool *accepted)
	{
		std::string members;
		const u8 kind = script_.u8();
		*accepted = true;
		if (kind & 1) {
			const Version version = read_version(members, "VexilVersion");
			model_.version = version;
			*accepted = version.minor <= 2;
		}
		std::string objects;
		Version carried;
		for (u32 left = *accepted ? script_.range(1, 3) : 0; left > 0; --left)
			append(objects, object(carried, 0));
		if (*accepted)
			append(members, "'PqFuncGroups': {" + objects + "}");
		return "{" + members + "}";
	}

private:
	template <std::size_t N>
	const char *pick(const char *const (&names)[N])
	{
		return names[script_.range(0, N - 1)];
	}
	/** As an object, or as an array of objects with one member each. */
	std::string wrap(const std::vector<std::string> &members, bool array)
	{
		std::string text;
		for (const std::string &member : members)
			append(text, array ? "{" + member + "}" : member);
		return array ? "[" + text + "]" : "{" + text + "}";
	}
	Version read_version(std::string &members, const char *around)
	{
		Version version{2, script_.range(0, 20) == 20 ? u16{3} : u16{1}, script_.u8()};
		std::string text = "'#version': {'MajorVersion': 2, 'MinorVersion': " +
				   std::to_string(version.minor) +
				   ", 'Revision': " + std::to_string(version.revision) + "}";
		append(members, around ? quoted(around) + ": {" + text + "}" : text);
		return version;
	}
	/** An IP or a folder; a refused version would end the call, so there is none. */
	std::string object(Version &carried, int depth)
	{
		const std::string name = pick(kIpNames);
		const u8 kind = script_.u8();
		std::string members;
		if (kind & 1) {
			Version version{2, static_cast<u16>(kind >> 6), script_.u8()};
			if (version.minor > 2)
				version.minor = 0;
			append(members, "'#version': {'JsonVersionFormat': '2." +
						std::to_string(version.minor) + "', 'Revision': " +
						std::to_string(version.revision) + "}");
			carried = version;
		}
		const std::size_t at = model_.tops.size();
		model_.tops.push_back({false, name, "", carried, {}});
		if ((kind & 0x0E) == 0x0E && depth < 2) { // a folder
			// The version of a folder is one of its members, and makes an IP like the
			// others.
			Version below;
			if (kind & 1)
				model_.tops.push_back({false, "#version", "", below, {}});
			for (u32 left = script_.range(1, 2); left > 0; --left)
				append(members, object(below, depth + 1));
		} else {
			std::string settings;
			for (u32 left = script_.range(0, 3); left > 0; --left)
				append(settings, setting(at));
			append(members, "'settings': {" + settings + "}");
		}
		return quoted(name) + ": {" + members + "}";
	}
	std::string setting(std::size_t ip)
	{
		const std::string name = pick(kSettingNames);
		const u8 kind = script_.u8();
		const bool preset = (kind & 3) == 3;
		const bool common = (kind & 3) == 2 && !preset;
		std::string members, table;
		Setting made{E_PQLV_DEFAULT, {}};
		if (kind & 4) {
			const u32 level = script_.range(0, 7);
			append(members, "'1.PQlevel': " + quoted(kLevels[level]));
			made.level = kLevelOf[level];
		}
		if (kind & 2)
			append(members, "'commonReg': true");
		if (preset) {
			table = pick(kTables);
			append(members, "'1.PresetRegs': " + quoted(table));
			made.level = E_PQLV_PRESETREGS;
		}
		std::vector<std::string> written;
		std::vector<Config> configs;
		for (u32 left = script_.range(0, 3); left > 0; --left) {
			const std::string member = pick(kMemberNames);
			Config config{name + "#" + member,
				      preset ? EXTMEM_TAG_IP_PRESET_REG_CONFIG
					     : EXTMEM_TAG_IP_CONFIG,
				      table,
				      {}};
			written.push_back(quoted(member) + ": " + sections(config));
			configs.push_back(config);
		}
		append(members, "'group': " + wrap(written, kind & 8));
		if (common && !configs.empty())
			made.configs.push_back(share(name, configs));
		made.configs.insert(made.configs.end(), configs.begin(), configs.end());
		model_.tops[ip].settings.push_back(made);
		return quoted(name) + ": {" + members + "}";
	}
	/** Takes the registers that all members have out of them. */
	static Config share(const std::string &name, std::vector<Config> &configs)
	{
		const auto hardware = [](const Config &config) {
			const bool has = !config.blocks.empty() &&
					 config.blocks[0].tag == EXTMEM_TAG_REGISTER_SETTINGS;
			return has ? config.blocks[0].pairs : Pairs{};
		};
		Pairs shared = hardware(configs[0]);
		for (std::size_t i = 1; i < configs.size() && !shared.empty(); ++i) {
			Pairs kept;
			for (const Pair &pair : hardware(configs[i])) {
				if (std::find(shared.begin(), shared.end(), pair) != shared.end())
					kept.push_back(pair);
			}
			shared = kept;
		}
		for (Config &config : configs) {
			Pairs own;
			for (const Pair &pair : hardware(config)) {
				if (std::find(shared.begin(), shared.end(), pair) == shared.end())
					own.push_back(pair);
			}
			if (hardware(config).empty())
				continue;
			if (own.empty())
				config.blocks.erase(config.blocks.begin());
			else
				config.blocks[0].pairs = own;
		}
		return {name + "#commonReg",
			EXTMEM_TAG_IP_COMMON_REG_CONFIG,
			"",
			{{EXTMEM_TAG_REGISTER_RIU_SETTINGS, shared, "", ""}}};
	}
	std::string sections(Config &config)
	{
		const u8 which = script_.u8();
		std::string members;
		if (which & 1)
			append(members,
			       registers("hwreg", "R", EXTMEM_TAG_REGISTER_SETTINGS, config));
		if (which & 2)
			append(members,
			       registers("swreg", "v_", EXTMEM_TAG_VREGISTER_SETTINGS, config));
		if (which & 4)
			append(members, tables("lut", config));
		if (which & 8)
			append(members, tables("alg", config));
		if (which & 16)
			append(members, addresses(config));
		if (which & 32)
			append(members, registers("Cus_SwReg", "c.",
						  EXTMEM_TAG_CUS_VREGISTER_SETTINGS, config));
		return "{" + members + "}";
	}
	std::string registers(const char *key, const std::string &prefix, int tag, Config &config)
	{
		std::vector<std::string> entries;
		Block block{tag, {}, "", ""};
		const u8 array = script_.u8() & 1;
		for (u32 left = script_.range(0, 4); left > 0; --left) {
			const u32 number = script_.range(0, kRegisters + 1); // two of them unknown
			const u8 value = script_.u8();
			const bool text = value == 0xFF; // not a number: skipped
			entries.push_back(quoted(prefix + std::to_string(number)) + ": " +
					  (text ? "'many'" : std::to_string(value % 4)));
			if (number < kRegisters && !text)
				block.pairs.push_back({kPositions[number], value % 4u});
		}
		if (!block.pairs.empty())
			config.blocks.push_back(block);
		return quoted(key) + ": " + wrap(entries, array);
	}
	std::string tables(const char *key, Config &config)
	{
		std::vector<std::string> entries;
		const bool lut = key[0] == 'l';
		const u8 array = script_.u8() & 1;
		for (u32 left = script_.range(0, 2); left > 0; --left) {
			const std::string label = pick(kHandlers), file = pick(kFiles);
			entries.push_back(quoted(label) + ": " + quoted(file));
			const bool known =
				model_.find(true, file) && (!lut || label != kHandlers[2]);
			if (known)
				config.blocks.push_back(
					{lut ? EXTMEM_TAG_FUNCTION_DATA : EXTMEM_TAG_ALGORITHM_DATA,
					 {},
					 file,
					 label});
		}
		return quoted(key) + ": " + wrap(entries, array);
	}
	std::string addresses(Config &config)
	{
		std::vector<std::string> entries;
		Block block{EXTMEM_TAG_REGISTER_ADDR_SETTINGS, {}, "", ""};
		for (u32 left = script_.range(1, 3); left > 0; --left) {
			const u32 address = script_.u8(); // 0 is none
			entries.push_back((address & 1 ? quoted(std::to_string(address))
						       : "'0x" + hexadecimal(address) + "'") +
					  ": " + std::to_string(address + 1));
			if (address != 0)
				block.pairs.push_back({address, address + 1});
		}
		if (!block.pairs.empty())
			config.blocks.push_back(block);
		return "'hwaddr': " + wrap(entries, false);
	}
	static std::string hexadecimal(u32 number)
	{
		const char digits[] = "0123456789abcdef";
		return {digits[number >> 4 & 15], digits[number & 15]};
	}

	Bytes &script_;
	MapModel &model_;
};

// ---- what a map delivers ----

std::vector<std::string> *algorithms; // where the algorithm handler puts what it receives

std::string delivery(const char *who, int tag, const char *data, u32 length)
{
	return std::string(who) + " " + std::to_string(tag) + ":" + std::string(data, length);
}
bool take_block(int tag, const char *data, u32 length, void *context)
{
	static_cast<std::vector<std::string> *>(context)->push_back(
		delivery("block", tag, data, length));
	return true;
}
bool take_gamma(int tag, const char *data, u32 length, void *context)
{
	static_cast<std::vector<std::string> *>(context)->push_back(
		delivery("gamma", tag, data, length));
	return false; // ignored
}
bool take_tone(int tag, const char *data, u32 length, void *context)
{
	static_cast<std::vector<std::string> *>(context)->push_back(
		delivery("tone", tag, data, length));
	return true;
}
bool take_algorithm(int tag, const char *data, u32 length, const char *name, u32 name_length)
{
	algorithms->push_back(delivery("algorithm", tag, data, length) + "/" +
			      std::string(name, name_length));
	return true;
}

bool charged(int tag)
{
	return tag == 36 || tag == 45 || (tag >= 48 && tag <= 52) || tag == 57;
}

using Deliveries = std::vector<std::string>;

/** What loading @config delivers within @budget, of which it leaves what is left. */
Deliveries expected_of(const MapModel &model, const Config &config, u32 *budget)
{
	Deliveries all;
	for (const Block &block : config.blocks) {
		if (block.tag == EXTMEM_TAG_FUNCTION_DATA ||
		    block.tag == EXTMEM_TAG_ALGORITHM_DATA) {
			const Top *file = model.find(true, block.file);
			require(file != nullptr, "the model knows its files");
			const std::string &bytes = file->bytes;
			const auto length = static_cast<u32>(bytes.size());
			std::string said =
				delivery(lower(block.label) == "gamma" ? "gamma" : "tone",
					 EXTMEM_TAG_DATA, bytes.data(), length);
			if (block.tag == EXTMEM_TAG_ALGORITHM_DATA)
				said = delivery("algorithm", EXTMEM_TAG_DATA, bytes.data(),
						length) +
				       "/" + block.label + std::string(1, '\0');
			all.push_back(said);
			continue;
		}
		if (charged(block.tag) && *budget != kNoLimit) {
			*budget -= static_cast<u32>(block.pairs.size());
			if (static_cast<s32>(*budget) < 0)
				return all;
		}
		std::vector<u32> words{static_cast<u32>(block.pairs.size()), 0};
		for (const Pair &pair : block.pairs)
			words.insert(words.end(), {pair.index, pair.value});
		all.push_back(delivery("block", block.tag,
				       reinterpret_cast<const char *>(words.data()),
				       static_cast<u32>(words.size() * 4)));
	}
	return all;
}

void register_handlers(pim *map)
{
	require(pim_insert_handler(map, kHandlers[0], take_gamma) &&
			pim_insert_handler(map, kHandlers[1], take_tone) &&
			pim_insert_alg_handler(map, take_algorithm),
		"handlers");
}

bool same(const Version &version, const vexil_version &real)
{
	return version.major == real.u16MajorNumber && version.minor == real.u16MinorNumber &&
	       version.revision == real.u32Revision;
}

/** The map answers as its model says. */
void agree(pim *map, const MapModel &model, bool adopted)
{
	const Labels labels(model);
	Deliveries said;
	algorithms = &said;
	std::vector<u16> presets;
	for (const char *setting : kSettingNames) {
		for (const char *member : {"soft", "hard", "Cold", "warm", "commonReg", "none"}) {
			const std::string label = std::string(setting) + "#" + member;
			const Config *plain = labels.find(label, false);
			const Config *preset = labels.find(label, true);
			const u16 plain_id = pim_query_setting_id(map, label.c_str());
			const u16 preset_id = pim_query_preset_id(map, label.c_str());
			require((plain_id != kNoId) == (plain != nullptr),
				"a label is known, or not");
			require((preset_id != kNoId) == (preset != nullptr),
				"a preset is known, or not");
			if (preset)
				presets.push_back(preset_id);
			const Config *config = plain ? plain : preset;
			const u16 id = plain ? plain_id : preset_id;

			u32 budget = kNoLimit;
			Deliveries expected =
				config ? expected_of(model, *config, &budget) : Deliveries{};
			said.clear();
			pim_load_setting_by_name(map, label.c_str(), take_block, &said);
			require(said == expected, "the blocks of a label");
			if (!config)
				continue;
			said.clear();
			pim_load_setting(map, id, true, take_block, &said);
			require(said == expected, "the blocks of an id");
			for (budget = 0; budget < 8; budget += 3) {
				u32 left = budget;
				expected = expected_of(model, *config, &left);
				said.clear();
				require(pim_load_setting_count(map, id, budget, take_block,
							       &said) == left,
					"what is left of a budget");
				require(said == expected, "the blocks within a budget");
			}
			char *name = nullptr;
			pim_get_setting(map, id, &name);
			require(name && config->label == name, "the label of an id");
		}
	}
	for (const char *table : kTables) {
		Deliveries expected;
		for (const u16 id : presets) {
			char *label = nullptr;
			pim_get_setting(map, id, &label);
			const Config *config = labels.find(label, true);
			u32 budget = kNoLimit;
			if (config->table != table)
				continue;
			for (const std::string &block : expected_of(model, *config, &budget))
				expected.push_back(block);
		}
		said.clear();
		pim_load_preset(map, presets.data(), presets.size(), table, take_block, &said);
		require(said == expected, "the presets of a table");
	}
	Deliveries expected;
	for (const Config *config : model.configs()) {
		u32 budget = kNoLimit;
		if (config->tag == EXTMEM_TAG_IP_COMMON_REG_CONFIG) {
			for (const std::string &block : expected_of(model, *config, &budget))
				expected.push_back(block);
		}
	}
	said.clear();
	pim_load_common_reg_setting(map, take_block, &said);
	require(said == expected, "the common registers");

	vexil_version version;
	require(pim_get_version(map, &version) && same(model.version, version), "the version");
	for (const char *name : kIpNames) {
		const Top *first = nullptr;
		for (const Top &top : model.tops) {
			if (!first && !top.file && top.name == name)
				first = &top;
		}
		require(pim_get_pim_version(map, &version, name) == (first != nullptr),
			"an IP is there, or not");
		require(!first || same(first->version, version), "the version of an IP");
	}
	require(pim_get_reg_num(map, 16, E_PQLV_SYNC) == (adopted ? model.synchronised() : 0) &&
			pim_get_reg_num(map, 16, E_PQLV_MAX) ==
				(adopted ? model.synchronised() : 0),
		"the registers of synchronised settings");
	algorithms = nullptr;
	take_log();
}

// ---- the product ----

/** A map as built, and the same adopted from its export. */
struct MapForms {
	std::vector<std::pair<std::string, std::string>> files; // name and bytes, in order
	std::vector<std::string> documents;                     // after the files
	MapModel model;
	Map built;
	ImageBytes image;
	Map adopted;
	MapModel adopted_model;
};

/** A rule set likewise. */
struct RuleForms {
	vexil_test::model::Document document;
	bool rule_first = false; // a rule without cases stands before the sources: other ids
	Rules built;
	ImageBytes image;
	Rules adopted;
};

class Run {
public:
	explicit Run(Bytes &script) : script_(script) {}

	void all()
	{
		build_map(base_);
		build_map(sub_);
		const bool built_base = script_.u8() & 1, built_sub = script_.u8() & 1;
		pim *const base = (built_base ? base_.built : base_.adopted).get();
		pim *const sub = (built_sub ? sub_.built : sub_.adopted).get();
		merge_maps(base, sub);
		build_rules();
		const bool built_rules = script_.u8() & 1;
		merge_rules((built_rules ? base_rules_.built : base_rules_.adopted).get(),
			    (built_rules ? sub_rules_.adopted : sub_rules_.built).get());
		evaluate();
		ids_in_merged(sub);
		// Nothing of this has changed what it was made from.
		compare(base_);
		compare(sub_);
	}

private:
	/** Refuses memory during the next step, when the script says so. */
	void arm()
	{
		const u8 nth = script_.u8();
		vexil_fuzz::refuse(nth >= 0xC0 ? nth - 0xC0u + 1 : 0, nth & 1);
	}
	/** Whether memory was refused; it is not any more. */
	static bool starved()
	{
		const bool was = refused();
		vexil_fuzz::refuse(0, false);
		return was;
	}
	static void compare(const MapForms &forms)
	{
		agree(forms.built.get(), forms.model, false);
		agree(forms.adopted.get(), forms.adopted_model, true);
	}
	/** A map with the registers and handlers that documents may name. */
	static Map new_map()
	{
		Map made = make_map();
		pim *const map = made.get();
		require(map != nullptr, "no map");
		for (u32 i = 0; i < kRegisters; ++i) {
			const std::string number = std::to_string(i);
			require(pim_insert_regmap(map, ("r" + number).c_str(), kPositions[i]) &&
					pim_insert_vregmap(map, ("V_" + number).c_str(),
							   kPositions[i]) &&
					pim_insert_cus_vregmap(map, ("c." + number).c_str(),
							       kPositions[i]),
				"a register");
		}
		register_handlers(map);
		return made;
	}
	/** The map once more, after a step without memory left a part of itself. */
	static void build_again(MapForms &forms)
	{
		forms.built = new_map();
		for (const auto &[name, bytes] : forms.files)
			require(pim_insert_file(forms.built.get(), name.c_str(), bytes.data(),
						static_cast<u32>(bytes.size())),
				"a file");
		for (const std::string &text : forms.documents)
			pim_insert(forms.built.get(), document(text).get());
	}
	void build_map(MapForms &forms)
	{
		forms.built = new_map();
		const u8 files = script_.u8();
		for (int i = 0; i < 2; ++i) {
			if (files >> i & 1)
				insert_file(forms, kFiles[i]);
		}
		for (u32 left = script_.range(1, 2); left > 0; --left)
			insert_groups(forms);
		if (script_.u8() & 1)
			pim_finish(forms.built.get());
		agree(forms.built.get(), forms.model, false);

		forms.image = export_of(forms.built);
		require(forms.image == export_of(forms.built), "the same export again");
		forms.adopted = adopt(forms.image);
		forms.adopted_model = forms.model;
		forms.adopted_model.adopt();
		register_handlers(forms.adopted.get());
		compare(forms);
		require(forms.image == export_of(forms.adopted), "the export of an export");
	}
	void insert_file(MapForms &forms, const char *name)
	{
		const std::string bytes = script_.text(script_.range(1, 20)) + "x";
		const auto length = static_cast<u32>(bytes.size());
		forms.files.emplace_back(name, bytes);
		forms.model.tops.push_back({true, name, bytes, {}, {}});
		arm();
		const bool inserted =
			pim_insert_file(forms.built.get(), name, bytes.data(), length);
		require(starved() || inserted, "a file");
		if (!inserted)
			build_again(forms);
		require(!pim_insert_file(forms.built.get(), name, "again", 5), "a file twice");
	}
	void insert_groups(MapForms &forms)
	{
		const MapModel before = forms.model;
		bool accepted;
		const std::string text = Writer(script_, forms.model).groups(&accepted);
		const auto parsed = document(text);
		require(parsed != nullptr, "a document that does not parse");
		forms.documents.push_back(text);
		arm();
		const bool inserted = pim_insert(forms.built.get(), parsed.get());
		if (!starved()) {
			require(inserted == accepted, "a document is taken, or not");
			return;
		}
		still_there(forms.built.get(), before);
		pim_print(forms.built.get());
		build_again(forms);
	}
	/** The labels of @model deliver what they did. */
	static void still_there(pim *map, const MapModel &model)
	{
		Deliveries said;
		algorithms = &said;
		const Labels labels(model);
		for (const Config *config : model.configs()) {
			if (!labels.leads_to(*config))
				continue;
			const u16 id = id_of(map, config->label, Labels::preset(*config));
			require(id != kNoId, "a label from before");
			u32 budget = kNoLimit;
			said.clear();
			pim_load_setting(map, id, false, take_block, &said);
			require(said == expected_of(model, *config, &budget),
				"the blocks from before");
		}
		algorithms = nullptr;
		take_log();
	}
	/** Over an image, also when memory was refused at first. */
	Map adopt(ImageBytes &image)
	{
		arm();
		Map map = make_map(&image);
		if (starved() || !map) {
			map.reset();
			map = make_map(&image);
		}
		require(map != nullptr, "no map from an export");
		return map;
	}
	void merge_maps(pim *base, pim *sub)
	{
		merged_.built = make_map();
		arm();
		bool done = pim_merge(merged_.built.get(), base, sub);
		if (starved()) {
			compare(base_);
			compare(sub_);
			merged_.built = make_map();
			done = pim_merge(merged_.built.get(), base, sub);
		}
		require(done, "two maps are joined");
		merged_.model = merged(base_.model, sub_.model);
		register_handlers(merged_.built.get());
		agree(merged_.built.get(), merged_.model, true);
		merged_.image = export_of(merged_.built);
		merged_.adopted = adopt(merged_.image);
		merged_.adopted_model = merged_.model;
		register_handlers(merged_.adopted.get());
		agree(merged_.adopted.get(), merged_.adopted_model, true);
	}
	/** A setting or preset of a map, or a name that it does not have. */
	static vexil_test::model::Outcome outcome_of(const MapForms &forms,
						     const vexil_test::model::Choose &below)
	{
		const auto configs = forms.model.configs();
		const u64 choice = below(configs.size() + 1);
		if (choice == configs.size())
			return {"missing#label", 0, false, false};
		const std::string &label = configs[choice]->label;
		const bool preset = !Labels(forms.model).find(label, false);
		const u16 id = id_of(forms.built.get(), label, preset);
		return {label, id, preset, true};
	}
	void build_rules()
	{
		const vexil_test::model::Choose below = [this](u64 limit) {
			return limit > 1 ? script_.range(0, static_cast<u32>(limit - 1)) : u64{0};
		};
		const auto outcome = [](const MapForms &forms) {
			return [&forms](const vexil_test::model::Choose &choose) {
				return outcome_of(forms, choose);
			};
		};
		base_generator_ = std::make_unique<Generator>(below, outcome(base_));
		build_rules(base_rules_, *base_generator_, base_);
		const u64 first = below(6);
		const Generator sub(*base_generator_, below, outcome(sub_), first);
		sub_rules_.rule_first = below(2) == 1;
		build_rules(sub_rules_, sub, sub_);
	}
	/** Sources and rules into an empty context; @starving: as the script says. */
	bool insert_rules(RuleForms &forms, const Generator &generator, const MapForms &map,
			  bool starving)
	{
		const auto first = document("{'PqRuleGroups': {'first': {'rules': []}}}");
		const auto sources = document("{'PqRuleLists': {" + generator.sources_json + "}}");
		const auto groups = document("{'PqRuleGroups': {" + generator.rules_json + "}}");
		require(sources && groups && first, "documents that do not parse");
		if (starving)
			arm();
		forms.built = make_rules();
		rm *const rules = forms.built.get();
		const bool made =
			rules &&
			(!forms.rule_first || rm_insert(rules, first.get(), map.built.get())) &&
			rm_insert_source_json(rules, sources.get()) &&
			rm_insert(rules, groups.get(), map.built.get());
		if (rules)
			rm_finish(rules); // false where a child is missing
		return made;
	}
	void build_rules(RuleForms &forms, const Generator &generator, const MapForms &map)
	{
		forms.document = generator.document;
		if (forms.rule_first)
			forms.document.rules.insert(forms.document.rules.begin(), {"first", {}});
		const bool made = insert_rules(forms, generator, map, true);
		if (starved()) {
			if (forms.built) { // it can be asked all the same
				rm_set(forms.built.get(), "e0:v0;n0:1", 0);
				rm_trigger(forms.built.get(), nullptr);
			}
			require(insert_rules(forms, generator, map, false), "sources and rules");
		} else {
			require(made, "sources and rules");
		}
		forms.image = export_of(forms.built);
		forms.adopted = adopt_rules(forms.image);
		require(forms.image == export_of(forms.adopted), "the export of an export");
	}
	Rules adopt_rules(ImageBytes &image)
	{
		arm();
		Rules rules = make_rules(&image);
		if (starved() && !rules)
			rules = make_rules(&image);
		require(rules != nullptr, "no rules from an export");
		return rules;
	}
	void merge_rules(rm *base, rm *sub)
	{
		merged_rules_.built = make_rules();
		arm();
		bool done = rm_merge(merged_rules_.built.get(), base, sub, merged_.built.get());
		if (starved()) {
			merged_rules_.built = make_rules();
			done = rm_merge(merged_rules_.built.get(), base, sub, merged_.built.get());
		}
		require(done, "two rule sets are joined");
		merged_rules_.document = merged_document();
		merged_rules_.image = export_of(merged_rules_.built);
		merged_rules_.adopted = adopt_rules(merged_rules_.image);
	}
	/** The base's rules, then the sub's with new names; its others are reached from those only.
	 */
	[[nodiscard]] vexil_test::model::Document merged_document() const
	{
		vexil_test::model::Document both = base_rules_.document;
		const auto shift = static_cast<u16>(merged_.built->max_node_index + 1);
		const auto name_of = [&](const std::string &name) {
			return base_rules_.document.find(name) && sub_rules_.document.find(name)
				       ? name + "\n" // the sub's own
				       : name;
		};
		for (const auto &rule : sub_rules_.document.rules) {
			vexil_test::model::Rule moved = rule;
			moved.name = name_of(rule.name);
			moved.listed = moved.name == rule.name;
			for (auto &each : moved.cases) {
				for (u16 &id : each.settings)
					id = static_cast<u16>(id + shift);
				for (u16 &id : each.presets)
					id = static_cast<u16>(id + shift);
				for (std::string &child : each.children)
					child = sub_rules_.document.find(child) ? name_of(child)
										: "\n";
			}
			both.rules.push_back(moved);
		}
		return both;
	}
	/** The same calls on every form; each agrees with the evaluator of strings. */
	void evaluate()
	{
		RuleForms *const all_forms[] = {&base_rules_, &sub_rules_, &merged_rules_};
		std::vector<vexil_test::model::Model> models, handler_models;
		std::vector<Handler> handlers;
		for (RuleForms *forms : all_forms) {
			models.emplace_back(forms->document);
			handler_models.emplace_back(forms->document);
			handlers.push_back(make_handler(forms->adopted));
		}
		for (int calls = 0; calls < kMostCalls && !script_.empty(); ++calls) {
			const Call call = base_generator_->call(true);
			const char *names = call.names ? call.names->c_str() : nullptr;
			for (std::size_t i = 0; i < 3; ++i) {
				const bool expected = make(models[i], call);
				for (rm *rules :
				     {all_forms[i]->built.get(), all_forms[i]->adopted.get()}) {
					require(make(rules, call) == expected, "a call's answer");
					require(settings_of(rules) == models[i].settings,
						"settings");
					require(presets_of(rules) == models[i].presets, "presets");
				}
				if (call.kind == Call::kFind)
					continue;
				rm_handler *const handler = handlers[i].get();
				const bool by_handler = make(handler_models[i], call);
				const bool answer =
					call.kind == Call::kSet
						? rm_handler_set(handler, call.filter.c_str(),
								 call.number)
					: call.kind == Call::kClear
						? rm_handler_clear(handler)
						: rm_handler_trigger(handler, names);
				require(answer == by_handler, "a handler's answer");
				require(settings_of(handler) == handler_models[i].settings,
					"a handler's settings");
				require(presets_of(handler) == handler_models[i].presets,
					"a handler's presets");
			}
			take_log();
		}
	}
	static bool make(vexil_test::model::Model &model, const Call &call)
	{
		switch (call.kind) {
		case Call::kSet:
			return model.set(call.filter, call.number);
		case Call::kClear:
			model.clear();
			return true;
		case Call::kTrigger:
			return model.trigger(call.names);
		case Call::kFind:
			return model.find(call.filter, call.names);
		}
		return false;
	}
	static bool make(rm *rules, const Call &call)
	{
		const char *names = call.names ? call.names->c_str() : nullptr;
		switch (call.kind) {
		case Call::kSet:
			return rm_set(rules, call.filter.c_str(), call.number);
		case Call::kClear:
			return rm_clear(rules);
		case Call::kTrigger:
			return rm_trigger(rules, names);
		case Call::kFind:
			return rm_find(rules, call.filter.c_str(), names);
		}
		return false;
	}
	/** An id of the sub, moved as rules move it, loads in the merged map what it loaded in the
	 * sub. */
	void ids_in_merged(pim *sub)
	{
		const u32 shift = merged_.built->max_node_index + 1u;
		Deliveries before, after;
		const Labels labels(sub_.model);
		for (const Config *config : sub_.model.configs()) {
			if (!labels.leads_to(*config))
				continue;
			const u16 id = id_of(sub, config->label, Labels::preset(*config));
			const auto moved = static_cast<u16>(id + shift);
			char *label = nullptr;
			pim_get_setting(merged_.built.get(), moved, &label);
			require(label && config->label == label, "the label of a moved id");
			before.clear();
			after.clear();
			// Tables may be others' in the merged map: registers only.
			const auto blocks = [](pim *map, u16 node, Deliveries &said) {
				Deliveries tables;
				algorithms = &tables;
				Deliveries all;
				pim_load_setting(map, node, false, take_block, &all);
				for (std::string &block : all) {
					if (block.compare(0, 6, "block ") == 0)
						said.push_back(block.substr(block.find(':')));
				}
				algorithms = nullptr;
			};
			blocks(sub, id, before);
			blocks(merged_.built.get(), moved, after);
			require(before == after, "the blocks of a moved id");
		}
		take_log();
	}

	Bytes &script_;
	MapForms base_, sub_, merged_;
	std::unique_ptr<Generator> base_generator_;
	RuleForms base_rules_, sub_rules_, merged_rules_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
	const Blocks blocks;
	Bytes script(data, size < kLongestInput ? size : kLongestInput);
	Run run(script);
	run.all();
	return 0;
}
