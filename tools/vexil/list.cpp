// SPDX-License-Identifier: MIT
//
// vexil list: labels, presets and files of a map; sources and rules of a rule image.

#include <algorithm>
#include <map>
#include <memory>
#include <utility>

#include <fmt/format.h>

#include "catalogue.h"
#include "commands.h"
#include "conditions.h"
#include "console.h"
#include "image_file.h"
#include "json_output.h"
#include "names.h"
#include "rule_catalogue.h"
#include "text.h"

namespace vexil_tool {

namespace {

struct Options {
	std::string image;
	ImageOptions opening;
	bool rules = false;
	bool sources = false;
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

// ---- rule images ----

std::string field_text(const SourceInfo &source)
{
	const u32 first = source.field.shift;
	switch (source.kind) {
	case SourceKind::kValues:
		return fmt::format("bits {} to {}", first, first + source.field.width - 1u);
	case SourceKind::kNumber:
		return fmt::format("bit {}, slot {}", first, source.slot);
	case SourceKind::kRanges:
		break;
	}
	return "no bits";
}

std::string value_text(const LabelInfo &label, const RuleCatalogue &catalogue)
{
	if (label.ranges.empty())
		return label.value;
	std::string ranges;
	for (const RangeInfo &range : label.ranges) {
		const SourceInfo *source = catalogue.source_of_slot(range.slot);
		ranges += fmt::format("{}{} {}", ranges.empty() ? "" : ", ",
				      source ? source->name : "unresolved",
				      interval_text(range.first, range.last));
	}
	return fmt::format("{} ({})", label.value, ranges);
}

OutputJson sources_json(const RuleCatalogue &catalogue)
{
	OutputJson sources = OutputJson::array();
	for (const SourceInfo &source : catalogue.sources) {
		OutputJson output = {{"name", source.name},
				     {"kind", source_kind_name(source.kind)}};
		if (source.kind != SourceKind::kRanges) {
			output["shift"] = source.field.shift;
			output["width"] = source.field.width;
		}
		if (source.kind == SourceKind::kNumber)
			output["slot"] = source.slot;
		OutputJson values = OutputJson::array();
		for (const LabelInfo &label : source.labels) {
			if (source.kind == SourceKind::kNumber)
				continue;
			OutputJson value = {{"value", label.value}, {"id", label.id}};
			if (source.kind == SourceKind::kValues)
				value["code"] = label.field.rank;
			OutputJson ranges = OutputJson::array();
			for (const RangeInfo &range : label.ranges) {
				const SourceInfo *of = catalogue.source_of_slot(range.slot);
				ranges.push_back({{"source", of ? of->name : ""},
						  {"first", range.first},
						  {"last", range.last}});
			}
			if (source.kind == SourceKind::kRanges)
				value["ranges"] = ranges;
			values.push_back(value);
		}
		output["values"] = values;
		sources.push_back(output);
	}
	return sources;
}

std::vector<std::string> child_names(const RuleInfo &rule, const RuleCatalogue &catalogue)
{
	std::vector<std::string> names;
	for (const u16 id : rule.children())
		names.push_back(catalogue.rule_name(id));
	return names;
}

OutputJson rules_json(const RuleCatalogue &catalogue)
{
	OutputJson rules = OutputJson::array();
	for (const RuleInfo &rule : catalogue.rules) {
		OutputJson output = {{"name", rule.name},
				     {"id", rule.id},
				     {"version", version_text(rule.version)},
				     {"cases", rule.cases.size()},
				     {"alternatives", rule.alternatives()},
				     {"children", child_names(rule, catalogue)}};
		if (rule.hidden)
			output["hidden"] = true;
		rules.push_back(output);
	}
	return rules;
}

void print_sources(const RuleCatalogue &catalogue)
{
	fmt::print("sources ({}; {} in {})\n", catalogue.sources.size(),
		   counted(catalogue.key_bits, "key bit"), counted(catalogue.key_words(), "word"));
	for (const SourceInfo &source : catalogue.sources) {
		const bool named = source.kind != SourceKind::kNumber;
		fmt::print("  {}  {}, {}\n", printable(source.name),
			   named ? counted(source.labels.size(),
					   source.kind == SourceKind::kRanges ? "range" : "value")
				 : "a number",
			   field_text(source));
		if (!named)
			continue;
		std::vector<std::string> values;
		for (const LabelInfo &label : source.labels)
			values.push_back(printable(value_text(label, catalogue)));
		fmt::print("    {}\n", joined(values));
	}
}

void print_rules(const RuleCatalogue &catalogue)
{
	fmt::print("rules ({})\n", catalogue.rules.size());
	for (const RuleInfo &rule : catalogue.rules) {
		fmt::print("  {:>5}  {}  {}  {}, {}{}\n", rule.id, printable(rule.name),
			   version_text(rule.version), counted(rule.cases.size(), "case"),
			   counted(rule.alternatives(), "alternative"),
			   rule.hidden ? "; its name is another's" : "");
		const std::vector<std::string> children = child_names(rule, catalogue);
		if (!children.empty())
			fmt::print("         leads to {}\n", printable(joined(children)));
	}
}

void list_rules(const Options &options, ImageFile image, Console &console)
{
	const Rules context = open_rules(std::move(image));
	const RuleCatalogue catalogue(context);
	if (catalogue.damaged)
		console.warn(options.image, "its tree is damaged; the list is cut short");
	const bool both = options.rules == options.sources;
	const bool sources = both || options.sources;
	const bool rules = both || options.rules;
	if (options.json) {
		OutputJson output = {{"image", options.image}};
		if (sources)
			output["sources"] = sources_json(catalogue);
		if (rules)
			output["rules"] = rules_json(catalogue);
		return print(output);
	}
	if (sources)
		print_sources(catalogue);
	if (both)
		fmt::print("\n");
	if (rules)
		print_rules(catalogue);
}

void run_list(const Options &options)
{
	Console console;
	ImageFile image = read_image(options.image, options.opening, console);
	if (image.kind == ImageKind::kRules || options.rules || options.sources)
		return list_rules(options, std::move(image), console);
	const Map map = open_map(std::move(image), {}, console);
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
	CLI::App *list = app.add_subcommand(
		"list", "List what is in an image: labels, or sources and rules");
	list->add_option("IMAGE", options->image, "PIM image or rule image")->required();
	list->add_flag("--rules", options->rules, "Only the rules of a rule image");
	list->add_flag("--sources", options->sources, "Only the sources of a rule image");
	list->add_flag("--json", options->json, "Print JSON");
	add_image_options(*list, options->opening);
	list->footer(R"(
A configuration's line: id, label, kind, number of blocks and of register pairs. Presets
follow once more by their register table, then the files. Of a rule image: sources with
their values and place in the key, rules with their version, size and children.

Examples:
  vexil list tv.pim
  vexil list tv.rule --rules
  vexil list tv.pim --json)");
	list->callback([options] { run_list(*options); });
}

} // namespace vexil_tool
