// SPDX-License-Identifier: MIT
//
// What is in a map: its tree as plain records, in the order of the image.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <vexil/types.h>

#include "map.h"

namespace vexil_tool {

/** A register list, or the binding of a file. */
struct BlockInfo {
	u16 id;
	int tag;
	std::string_view data; // of a register list, inside the map
	u32 pairs;             // of a register list; 0 when it is damaged
	std::string file;      // of a binding
	std::string name;      // of a binding: handler label, or entry name
};

enum class ConfigKind { kPlain, kCommon, kPreset };
[[nodiscard]] const char *config_kind_name(ConfigKind kind);

struct ConfigInfo {
	u16 id;
	ConfigKind kind;
	std::string label;
	std::string table; // register table of a preset
	std::vector<BlockInfo> blocks;

	/** Pairs of all its lists. */
	[[nodiscard]] u64 pairs() const;
};

struct SettingInfo {
	u16 id;
	std::string name;
	u32 level;
	std::vector<ConfigInfo> configs;
};

/** An IP block; without settings it may be a folder. */
struct IpInfo {
	u16 id;
	std::string name;
	vexil_version version;
	std::vector<SettingInfo> settings;
};

struct FileInfo {
	u16 id;
	std::string name;
	std::string_view data; // inside the map
};

/** A configuration with what it belongs to. */
struct ConfigPlace {
	const IpInfo *ip;
	const SettingInfo *setting;
	const ConfigInfo *config;
};

/** Borrows the map's bytes: good until the map changes or goes. */
class Catalogue {
public:
	explicit Catalogue(const Map &map);

	std::vector<IpInfo> ips;
	std::vector<FileInfo> files;
	/** The tree leads to the same nodes again and again; the walk was cut short. */
	bool damaged = false;

	/** Every configuration, in the order of the image. */
	[[nodiscard]] std::vector<ConfigPlace> configs() const;
	/**
	 * Shared register lists, by their bytes. The library delivers all of them in one go: whose
	 * one is, is told by where it lies.
	 */
	[[nodiscard]] std::unordered_map<const char *, ConfigPlace> common_lists() const;
	/** The file that holds these bytes, or null. */
	[[nodiscard]] const FileInfo *file_at(std::string_view data) const;

private:
	std::unordered_map<const char *, size_t> files_by_data_;
};

[[nodiscard]] inline bool is_register_list(int tag)
{
	return tag == EXTMEM_TAG_REGISTER_SETTINGS || tag == EXTMEM_TAG_VREGISTER_SETTINGS ||
	       tag == EXTMEM_TAG_REGISTER_ADDR_SETTINGS ||
	       tag == EXTMEM_TAG_REGISTER_RIU_SETTINGS ||
	       (tag >= EXTMEM_TAG_REGISTER_ADDR_IND_SETTINGS &&
		tag <= EXTMEM_TAG_REGISTER_ADDR_L3_SETTINGS) ||
	       tag == EXTMEM_TAG_CUS_VREGISTER_SETTINGS || tag == EXTMEM_TAG_REGISTER_SYNC_SETTINGS;
}

} // namespace vexil_tool
