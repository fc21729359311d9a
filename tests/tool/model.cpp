// SPDX-License-Identifier: MIT
#include "tests/tool/model.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

namespace vexil_test {

namespace fs = std::filesystem;

namespace {

constexpr size_t kMostShared = 500;

// Tags of blocks, as callbacks receive them.
constexpr int kFileTag = 34;
constexpr int kHardwareTag = 36;
constexpr int kSoftwareTag = 37;
constexpr int kAddressTag = 45;
constexpr int kSharedTag = 46;
constexpr int kCustomerTag = 55;
constexpr int kSyncTag = 57;
const std::map<std::string, int> kAddressFormTags = {
	{"IND", 48}, {"PI", 49},      {"L1", 50},     {"L2", 51},
	{"L3", 52},  {"default", 45}, {"preset", 45},
};

int64_t number(const Json &value)
{
	if (value.is_string()) // hexadecimal
		return std::stoll(value.get<std::string>(), nullptr, 16);
	return value.get<int64_t>();
}

uint32_t word(const Json &value)
{
	return static_cast<uint32_t>(number(value));
}

/** Members of an object, or the first member of each element of an array. */
std::vector<std::pair<std::string, Json>> entries(const Json &holder)
{
	std::vector<std::pair<std::string, Json>> found;
	if (holder.is_array()) {
		for (const Json &element : holder)
			found.emplace_back(element.begin().key(), element.begin().value());
	} else if (holder.is_object()) {
		for (const auto &[key, value] : holder.items())
			found.emplace_back(key, value);
	}
	return found;
}

void read_list(const std::string &path, const char *key, std::map<std::string, uint32_t> &numbers)
{
	const Json document = read_json(path);
	for (const Json &entry : document.at(key).at("register"))
		numbers.emplace(entry.begin().key(), word(entry.begin().value()));
}

} // namespace

Model::Model(const std::string &folder)
{
	const Json manifest = read_json(folder + "/product.json");
	for (const Json &path : manifest["hardware"])
		read_list(folder + "/" + path.get<std::string>(), "PqHWRegList", hardware);
	for (const Json &path : manifest["software"])
		read_list(folder + "/" + path.get<std::string>(), "PqSWRegList", software);
	for (const Json &path : manifest["customer"])
		read_list(folder + "/" + path.get<std::string>(), "PqCusSWRegList", customer);
	for (const Json &field :
	     read_json(folder + "/" + manifest["registerInfo"].get<std::string>()))
		table.push_back({word(field["domain"]), word(field["addr"]), word(field["lsb"]),
				 word(field["width"])});
	for (const Json &file : manifest["files"]) {
		if (file.is_object()) {
			files.emplace(file["name"],
				      read_text(folder + "/" + file["path"].get<std::string>()));
			continue;
		}
		const fs::path place = folder + "/" + file.get<std::string>();
		if (!fs::is_directory(place)) {
			files.emplace(place.filename().string(), read_text(place.string()));
			continue;
		}
		for (const fs::directory_entry &entry : fs::directory_iterator(place))
			files.emplace(entry.path().filename().string(),
				      read_text(entry.path().string()));
	}
	for (const Json &path : manifest["functionGroups"])
		read_ips(read_json(folder + "/" + path.get<std::string>()).at("PqFuncGroups"));
}

void Model::read_ips(const Json &chain)
{
	for (const auto &[key, object] : chain.items()) {
		if (!object.is_object() || key == "#version")
			continue;
		if (!object.contains("settings")) {
			read_ips(object); // a folder
			continue;
		}
		Ip ip{key, {}};
		for (const auto &[name, setting] : object["settings"].items())
			read_setting(ip, name, setting);
		ips.push_back(std::move(ip));
	}
}

void Model::read_setting(Ip &ip, const std::string &name, const Json &setting)
{
	static const std::vector<std::string> kWords = {"IND", "PI", "L1", "L2", "L3", "SYNC"};
	const bool is_preset = setting.contains("1.PresetRegs");
	std::string level = setting.value("1.PQlevel", "");
	if (std::find(kWords.begin(), kWords.end(), level) == kWords.end())
		level = "default";
	if (is_preset)
		level = "preset";
	const auto members = entries(setting.value("group", Json()));

	Pairs common;
	if (setting.value("commonReg", false) && !is_preset) {
		common = shared(members);
		ip.configs.push_back({name + "#commonReg",
				      ip.name,
				      name,
				      level,
				      "common",
				      "",
				      {{kSharedTag, common, "", "", "", false}}});
	}
	for (const auto &[key, member] : members)
		ip.configs.push_back({name + "#" + key, ip.name, name, level,
				      is_preset ? "preset" : "configuration",
				      setting.value("1.PresetRegs", ""),
				      blocks(member, common, level)});
}

Pairs Model::registers(const Json &member, const char *section,
		       const std::map<std::string, uint32_t> &numbers) const
{
	Pairs pairs;
	for (const auto &[name, value] : entries(member.value(section, Json())))
		pairs.emplace_back(numbers.at(name), word(value));
	return pairs;
}

Pairs Model::shared(const std::vector<std::pair<std::string, Json>> &members) const
{
	Pairs kept;
	bool first = true;
	for (const auto &[name, member] : members) {
		Pairs next;
		for (const auto &pair : registers(member, "hwreg", hardware)) {
			const bool known = std::find(kept.begin(), kept.end(), pair) != kept.end();
			if ((first || known) && next.size() < kMostShared)
				next.push_back(pair);
		}
		kept = next;
		first = false;
		if (kept.empty())
			break;
	}
	return kept;
}

std::vector<ExpectedBlock> Model::blocks(const Json &member, const Pairs &common,
					 const std::string &level) const
{
	std::vector<ExpectedBlock> found;
	const auto add_list = [&](int tag, const Pairs &pairs) {
		if (!pairs.empty())
			found.push_back({tag, pairs, "", "", "", false});
	};
	const auto add_files = [&](const char *section, bool algorithm) {
		for (const auto &[name, file] : entries(member.value(section, Json())))
			found.push_back({kFileTag, {}, name, file, files.at(file), algorithm});
	};
	Pairs own;
	for (const auto &pair : registers(member, "hwreg", hardware)) {
		if (std::find(common.begin(), common.end(), pair) == common.end())
			own.push_back(pair);
	}
	add_list(level == "SYNC" ? kSyncTag : kHardwareTag, own);
	add_list(kSoftwareTag, registers(member, "swreg", software));
	add_files("lut", false);
	add_files("alg", true);
	Pairs raw;
	for (const auto &[address, value] : entries(member.value("hwaddr", Json())))
		raw.emplace_back(static_cast<uint32_t>(std::stoull(address, nullptr, 0)),
				 word(value));
	add_list(kAddressTag, raw);
	add_list(kCustomerTag, registers(member, "cus_swreg", customer));
	return found;
}

void Model::merge(const Model &sub)
{
	for (const auto &[name, bytes] : sub.files)
		files[name] = bytes;
	for (const Ip &ip : sub.ips) {
		const auto same = std::find_if(ips.begin(), ips.end(), [&](const Ip &other) {
			return other.name == ip.name;
		});
		if (same == ips.end())
			ips.push_back(ip);
		else
			*same = ip;
	}
	for (Ip &ip : ips) {
		for (ExpectedConfig &config : ip.configs) {
			for (ExpectedBlock &block : config.blocks) {
				if (!block.file.empty())
					block.bytes = files.at(block.file);
			}
		}
	}
}

Model Model::in_address_form() const
{
	Model result = *this;
	for (Ip &ip : result.ips) {
		for (ExpectedConfig &config : ip.configs) {
			for (ExpectedBlock &block : config.blocks) {
				if (block.tag != kHardwareTag)
					continue;
				Pairs words;
				for (const auto &[position, value] : block.pairs) {
					const Field &field = table.at(position);
					const uint32_t mask = ((1u << field.width) - 1)
							      << field.lowest_bit;
					const uint32_t where = field.address | field.domain << 27;
					const uint32_t what =
						mask << 16 | (value << field.lowest_bit & mask);
					const auto same = std::find_if(
						words.begin(), words.end(), [&](const auto &pair) {
							return pair.first == where;
						});
					if (same == words.end())
						words.emplace_back(where, what);
					else
						same->second |= what;
				}
				block.tag = kAddressFormTags.at(config.level);
				block.pairs = words;
			}
		}
	}
	return result;
}

const ExpectedConfig &Model::config(const std::string &label) const
{
	for (const Ip &ip : ips) {
		for (const ExpectedConfig &config : ip.configs) {
			if (config.label == label)
				return config;
		}
	}
	throw std::runtime_error("no configuration " + label);
}

uint32_t crc32_of(const std::string &bytes)
{
	uint32_t value = ~0u;
	for (const char byte : bytes) {
		value ^= static_cast<unsigned char>(byte);
		for (int bit = 0; bit < 8; ++bit)
			value = value >> 1 ^ (value & 1 ? 0xEDB88320u : 0u);
	}
	return ~value;
}

void expect_load(const Json &load, const ExpectedConfig &expected)
{
	EXPECT_EQ(load.at("label"), expected.label);
	EXPECT_EQ(load.at("kind"), expected.kind);
	EXPECT_EQ(load.at("ip"), expected.ip);
	EXPECT_EQ(load.at("setting"), expected.setting);
	EXPECT_EQ(load.at("level"), expected.level);
	const Json &blocks = load.at("blocks");
	ASSERT_EQ(blocks.size(), expected.blocks.size()) << load.dump(2);
	for (size_t i = 0; i < blocks.size(); ++i) {
		const ExpectedBlock &block = expected.blocks[i];
		SCOPED_TRACE(numbered("block ", i));
		EXPECT_EQ(blocks[i].at("tag"), block.tag);
		if (!block.file.empty()) {
			EXPECT_EQ(blocks[i].at("kind"), block.algorithm ? "algorithm" : "table");
			EXPECT_EQ(blocks[i].at(block.algorithm ? "entry" : "handler"), block.name);
			EXPECT_EQ(blocks[i].at("file"), block.file);
			EXPECT_EQ(blocks[i].at("bytes"), block.bytes.size());
			char crc[9];
			std::snprintf(crc, sizeof crc, "%08x", crc32_of(block.bytes));
			EXPECT_EQ(blocks[i].at("crc32"), crc);
			continue;
		}
		EXPECT_EQ(blocks[i].at("kind"), "registers");
		Pairs delivered;
		for (const Json &pair : blocks[i].at("pairs")) {
			if (pair.contains("word"))
				delivered.emplace_back(pair["word"], pair["para"]);
			else
				delivered.emplace_back(pair["position"], pair["value"]);
		}
		EXPECT_EQ(delivered, block.pairs);
	}
}

} // namespace vexil_test
