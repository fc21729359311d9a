// SPDX-License-Identifier: MIT
//
// vexil list: the labels of an image, presets and files.

#include <algorithm>
#include <map>
#include <memory>

#include <fmt/format.h>

#include "catalogue.h"
#include "commands.h"
#include "console.h"
#include "image_file.h"
#include "json_output.h"
#include "names.h"
#include "text.h"

namespace vexil_tool {

namespace {

struct Options {
	std::string image;
	bool json = false;
};

OutputJson config_json(const ConfigInfo &config)
{
	OutputJson output = {
		{"label", config.label},
		{"id", config.id},
		{"kind", config_kind_name(config.kind)},
		{"blocks", config.blocks.size()},
		{"pairs", config.pairs()},
	};
	if (config.kind == ConfigKind::kPreset)
		output["table"] = config.table;
	return output;
}

void print_json(const Options &options, const Catalogue &catalogue)
{
	OutputJson ips = OutputJson::array();
	for (const IpInfo &ip : catalogue.ips) {
		OutputJson settings = OutputJson::array();
		for (const SettingInfo &setting : ip.settings) {
			OutputJson configs = OutputJson::array();
			for (const ConfigInfo &config : setting.configs)
				configs.push_back(config_json(config));
			settings.push_back({{"name", setting.name},
					    {"id", setting.id},
					    {"level", level_name(setting.level)},
					    {"configurations", configs}});
		}
		ips.push_back({{"name", ip.name},
			       {"id", ip.id},
			       {"version", version_text(ip.version)},
			       {"settings", settings}});
	}
	OutputJson files = OutputJson::array();
	for (const FileInfo &file : catalogue.files)
		files.push_back(
			{{"name", file.name}, {"id", file.id}, {"bytes", file.data.size()}});
	print({{"image", options.image}, {"ips", ips}, {"files", files}});
}

void print_text(const Catalogue &catalogue)
{
	size_t widest = 0;
	for (const ConfigPlace &place : catalogue.configs())
		widest = std::max(widest, printable(place.config->label).size());
	widest = std::min<size_t>(widest, 48); // longer labels move their line's rest to the right

	std::map<std::string, std::vector<const ConfigInfo *>> presets;
	for (const IpInfo &ip : catalogue.ips) {
		if (ip.settings.empty())
			continue; // a folder
		fmt::print("{}  {}\n", printable(ip.name), version_text(ip.version));
		for (const SettingInfo &setting : ip.settings) {
			fmt::print("  {}  ({})\n", printable(setting.name),
				   level_name(setting.level));
			for (const ConfigInfo &config : setting.configs) {
				fmt::print("    {:>5}  {:<{}}  {:<13}  {}, {}\n", config.id,
					   printable(config.label), widest,
					   config_kind_name(config.kind),
					   counted(config.blocks.size(), "block"),
					   counted(config.pairs(), "pair"));
				if (config.kind == ConfigKind::kPreset)
					presets[config.table].push_back(&config);
			}
		}
	}
	if (!presets.empty())
		fmt::print("\npresets by register table\n");
	for (const auto &[table, configs] : presets) {
		fmt::print("  {}\n", printable(table));
		for (const ConfigInfo *config : configs)
			fmt::print("    {:>5}  {}\n", config->id, printable(config->label));
	}
	if (!catalogue.files.empty())
		fmt::print("\nfiles\n");
	for (const FileInfo &file : catalogue.files)
		fmt::print("  {:>5}  {:<32}  {:>10} bytes\n", file.id, printable(file.name),
			   grouped(file.data.size()));
}

void run_list(const Options &options)
{
	Console console;
	const Map map = open_map(options.image, console);
	const Catalogue catalogue(map);
	if (catalogue.damaged)
		console.warn(options.image, "its tree is damaged; the list is cut short");
	if (options.json)
		print_json(options, catalogue);
	else
		print_text(catalogue);
}

} // namespace

void add_list(CLI::App &app)
{
	const auto options = std::make_shared<Options>();
	CLI::App *list =
		app.add_subcommand("list", "List the labels of an image by IP and setting");
	list->add_option("IMAGE", options->image, "PIM image")->required();
	list->add_flag("--json", options->json, "Print JSON");
	list->footer(R"(
A configuration's line: id, label, kind, number of blocks and of register pairs. Presets
follow once more by their register table, then the files.

Examples:
  vexil list tv.pim
  vexil list tv.pim --json)");
	list->callback([options] { run_list(*options); });
}

} // namespace vexil_tool
