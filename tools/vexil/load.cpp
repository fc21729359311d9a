// SPDX-License-Identifier: MIT
//
// vexil load: what a driver would receive for labels of an image.

#include <algorithm>
#include <map>
#include <memory>
#include <set>

#include <fmt/format.h>

#include "catalogue.h"
#include "commands.h"
#include "console.h"
#include "errors.h"
#include "image_file.h"
#include "delivery.h"
#include "json_output.h"
#include "library_log.h"
#include "names.h"
#include "register_names.h"
#include "text.h"

namespace vexil_tool {

namespace {

struct Options {
	std::string image;
	ImageOptions opening;
	std::vector<std::string> labels;
	std::vector<u32> ids;
	u32 budget = VEXIL_LOAD_UNLIMITED;
	std::string preset_table;
	bool common = false;
	NameSources names;
	bool json = false;
};

/** One thing that was asked for, and what came. */
struct Result {
	std::string label;
	u16 id = VEXIL_NO_ID;
	ConfigPlace place{}; // all null for an id that is no configuration
	std::vector<Delivered> blocks;
};

struct Outcome {
	std::vector<Result> results;
	u32 remaining = VEXIL_LOAD_UNLIMITED;
	bool stopped = false;             // by the budget
	std::vector<std::string> trouble; // why loading ended early: the library's words
};

class Loading {
public:
	Loading(const Options &options, Console &console)
	    : options_(options), console_(console), names_(options.names, console), map_(open()),
	      catalogue_(map_)
	{
		for (const ConfigPlace &place : catalogue_.configs())
			by_id_.emplace(place.config->id, place);
	}

	Outcome run()
	{
		if (options_.common && catalogue_.damaged)
			refuse(options_.image, "its tree is damaged");
		const std::vector<u16> wanted = find_wanted();
		receive_tables(wanted);
		Outcome outcome;
		outcome.remaining = options_.budget;
		if (options_.common)
			load_common(outcome);
		for (const u16 id : wanted) {
			if (outcome.stopped || !outcome.trouble.empty())
				break;
			load(id, outcome);
		}
		return outcome;
	}

	[[nodiscard]] const RegisterNames &names() const { return names_; }
	[[nodiscard]] const Catalogue &catalogue() const { return catalogue_; }

private:
	Map open()
	{
		return open_map(read_image(options_.image, options_.opening, console_), names_.adopted_rows(),
				console_);
	}

	u16 find_label(const std::string &label)
	{
		u16 id = options_.preset_table.empty() ? map_.setting_id(label) : u16{VEXIL_NO_ID};
		if (id == VEXIL_NO_ID)
			id = map_.preset_id(label);
		if (id != VEXIL_NO_ID)
			return id;
		std::vector<std::string> known;
		for (const ConfigPlace &place : catalogue_.configs()) {
			if (options_.preset_table.empty() ||
			    place.config->kind == ConfigKind::kPreset)
				known.push_back(place.config->label);
		}
		std::string cause = "Cannot find preset: ";
		if (options_.preset_table.empty()) {
			map_.load_unknown(label);
			const std::vector<std::string> log = log_.take();
			if (!log.empty())
				cause = message_of(log.front());
			if (cause.ends_with(label))
				cause.resize(cause.size() - label.size());
		}
		refuse(options_.image, cause + shortened(label) + similar_hint(label, known));
	}

	std::vector<u16> find_wanted()
	{
		std::vector<u16> wanted;
		for (const std::string &label : options_.labels)
			wanted.push_back(find_label(label));
		for (const u32 id : options_.ids)
			wanted.push_back(static_cast<u16>(id));
		if (options_.preset_table.empty() || !wanted.empty())
			return wanted;
		std::vector<std::string> tables;
		for (const ConfigPlace &place : catalogue_.configs()) {
			if (place.config->kind != ConfigKind::kPreset)
				continue;
			tables.push_back(place.config->table);
			if (place.config->table == options_.preset_table)
				wanted.push_back(place.config->id);
		}
		if (wanted.empty())
			refuse(options_.image,
			       fmt::format("no preset belongs to table '{}'{}",
					   shortened(options_.preset_table),
					   similar_hint(options_.preset_table, tables)));
		return wanted;
	}

	/** A map has room for so many handlers: those that are wanted come first. */
	void receive_tables(const std::vector<u16> &wanted)
	{
		std::vector<std::string> labels;
		std::set<std::string> seen;
		const auto add = [&](const ConfigInfo &config) {
			for (const BlockInfo &block : config.blocks) {
				if (block.tag == EXTMEM_TAG_FUNCTION_DATA &&
				    seen.insert(lowered(block.name)).second)
					labels.push_back(block.name);
			}
		};
		for (const u16 id : wanted) {
			if (const auto found = by_id_.find(id); found != by_id_.end())
				add(*found->second.config);
		}
		const size_t needed = labels.size();
		for (const ConfigPlace &place : catalogue_.configs())
			add(*place.config);
		if (needed > kMostHandlers)
			console_.warn(options_.image,
				      fmt::format("tables for {} handlers are wanted, {} can be "
						  "received at once",
						  needed, kMostHandlers));
		map_.receive_tables(labels);
	}

	void load(u16 id, Outcome &outcome)
	{
		Result result;
		result.id = id;
		if (const auto found = by_id_.find(id); found != by_id_.end()) {
			result.place = found->second;
			result.label = result.place.config->label;
		}
		Load load;
		if (options_.preset_table.empty()) {
			load = map_.load(id, outcome.remaining);
			outcome.remaining = load.remaining;
			outcome.stopped = static_cast<s32>(load.remaining) < 0;
		} else {
			load = map_.load_preset(id, options_.preset_table);
		}
		finish(result, load, outcome);
	}

	void load_common(Outcome &outcome)
	{
		const auto owners = catalogue_.common_lists();
		Load all = map_.load_common();
		for (Delivered &block : all.blocks) {
			Result result;
			if (const auto found = owners.find(block.data.data());
			    found != owners.end()) {
				result.place = found->second;
				result.label = result.place.config->label;
				result.id = result.place.config->id;
			}
			result.blocks.push_back(std::move(block));
			outcome.results.push_back(std::move(result));
		}
		note_trouble(all, outcome);
	}

	void finish(Result &result, Load &load, Outcome &outcome)
	{
		result.blocks = std::move(load.blocks);
		outcome.results.push_back(std::move(result));
		note_trouble(load, outcome);
	}

	void note_trouble(const Load &load, Outcome &outcome)
	{
		for (const std::string &line : log_.take())
			outcome.trouble.emplace_back(message_of(line));
		if (load.endless)
			outcome.trouble.emplace_back("the image is damaged: it delivers the same "
						     "blocks again and again");
	}

	const Options &options_;
	Console &console_;
	RegisterNames names_;
	Map map_;
	Catalogue catalogue_;
	LibraryLog log_;
	std::map<u16, ConfigPlace> by_id_;
};

/** What the members of a setting share is delivered by a label of its own. */
const ConfigInfo *shared_by_members(const Result &result)
{
	if (!result.place.config || result.place.config->kind == ConfigKind::kCommon)
		return nullptr;
	for (const ConfigInfo &config : result.place.setting->configs) {
		if (config.kind == ConfigKind::kCommon && config.pairs() > 0)
			return &config;
	}
	return nullptr;
}

std::string budget_text(const Outcome &outcome)
{
	const auto left = static_cast<s32>(outcome.remaining);
	if (left >= 0)
		return fmt::format("budget: {} left", counted(outcome.remaining, "pair"));
	return fmt::format("stopped: budget; the next block needs {} more",
			   counted(static_cast<u64>(-s64{left}), "pair"));
}

void print_text(const Options &options, const Outcome &outcome, const Loading &loading)
{
	for (const Result &result : outcome.results) {
		const ConfigPlace &place = result.place;
		if (!place.config)
			fmt::print("id {}: not a configuration\n", result.id);
		else
			fmt::print("{}  ({} {} of {}, level {})\n", printable(result.label),
				   config_kind_name(place.config->kind), result.id,
				   printable(place.ip->name), level_name(place.setting->level));
		for (const Delivered &block : result.blocks)
			print_block(block, loading.names(), loading.catalogue());
		const bool other_table = place.config && !options.preset_table.empty() &&
					 place.config->table != options.preset_table;
		if (other_table)
			fmt::print("  nothing: it belongs to table {}\n",
				   printable(place.config->table));
		else if (result.blocks.empty())
			fmt::print("  nothing\n");
		if (const ConfigInfo *shared = shared_by_members(result))
			fmt::print("  and what all members share, by '{}': {}\n",
				   printable(shared->label),
				   counted(shared->pairs(), "hardware register"));
		fmt::print("\n");
	}
	if (options.budget != VEXIL_LOAD_UNLIMITED)
		fmt::print("{}\n", budget_text(outcome));
}

// ---- the same as JSON ----

void print_json(const Options &options, const Outcome &outcome, const Loading &loading)
{
	OutputJson loads = OutputJson::array();
	for (const Result &result : outcome.results) {
		OutputJson load = {{"id", result.id}};
		if (const ConfigPlace &place = result.place; place.config) {
			load["label"] = result.label;
			load["kind"] = config_kind_name(place.config->kind);
			load["ip"] = place.ip->name;
			load["setting"] = place.setting->name;
			load["level"] = level_name(place.setting->level);
			if (place.config->kind == ConfigKind::kPreset)
				load["table"] = place.config->table;
		}
		OutputJson blocks = OutputJson::array();
		for (const Delivered &block : result.blocks)
			blocks.push_back(block_json(block, loading.names(), loading.catalogue()));
		load["blocks"] = blocks;
		if (const ConfigInfo *shared = shared_by_members(result))
			load["shared"] = shared->label;
		loads.push_back(load);
	}
	OutputJson output = {{"image", options.image}, {"loads", loads}};
	if (options.budget != VEXIL_LOAD_UNLIMITED)
		output["budget"] = {{"given", options.budget},
				    {"remaining", static_cast<s32>(outcome.remaining)},
				    {"stopped", outcome.stopped}};
	if (!outcome.trouble.empty())
		output["trouble"] = outcome.trouble;
	print(output);
}

void run_load(const Options &options)
{
	if (options.labels.empty() && options.ids.empty() && !options.common &&
	    options.preset_table.empty())
		refuse_usage(
			"a label, --id, --preset or --common is needed (see 'vexil load --help')");
	Console console;
	Loading loading(options, console);
	const Outcome outcome = loading.run();
	if (options.json)
		print_json(options, outcome, loading);
	else
		print_text(options, outcome, loading);
	if (!outcome.trouble.empty())
		refuse(options.image, joined(outcome.trouble));
}

} // namespace

void add_load(CLI::App &app)
{
	const auto options = std::make_shared<Options>();
	CLI::App *load =
		app.add_subcommand("load", "Show what a driver receives for labels of an image");
	load->add_option("IMAGE", options->image, "PIM image")->required();
	load->add_option("LABEL", options->labels, "Configurations, as 'setting#member'");
	load->add_option("--id", options->ids, "Configurations by id")
		->type_name("N")
		->check(CLI::Range(0u, VEXIL_NO_ID - 1));
	CLI::Option *budget =
		load->add_option("--budget", options->budget,
				 "Hardware register pairs that may be delivered, over all labels")
			->type_name("N")
			->check(CLI::Range(0u, VEXIL_LOAD_UNLIMITED - 1));
	load->add_option("--preset", options->preset_table,
			 "Only presets of this register table; all of them without labels")
		->type_name("TABLE")
		->excludes(budget);
	load->add_flag("--common", options->common, "The shared registers of every setting, first");
	add_name_options(*load, options->names);
	add_address_option(*load, options->names);
	load->add_flag("--json", options->json, "Print JSON");
	add_image_options(*load, options->opening);
	load->footer(R"(
Blocks are shown in the order of delivery. Values are hexadecimal, then decimal. Lookup
tables and algorithm files arrive through handlers; their first bytes are shown. With a
budget, loading ends before the first block that does not fit ('stopped: budget').

Examples:
  vexil load tv.pim 'Dimming_Level#High' --product examples/tv
  vexil load tv.pim 'Dimming_Level#High' --product examples/tv --address
  vexil load tv.pim 'Memc_Level#High' 'Gamma_Curve#Gamma_2p2' --budget 20
  vexil load tv.pim --preset PICTURE_MODE_REGS --json)");
	load->callback([options] { run_load(*options); });
}

} // namespace vexil_tool
