// SPDX-License-Identifier: MIT
//
// vexil run: from source values to registers, as a driver goes.

#include <algorithm>
#include <map>
#include <memory>
#include <set>

#include <fmt/format.h>

#include "commands.h"
#include "console.h"
#include "delivery.h"
#include "errors.h"
#include "json_output.h"
#include "names.h"
#include "register_names.h"
#include "register_state.h"
#include "session.h"
#include "text.h"

namespace vexil_tool {

namespace {

constexpr size_t kBriefLines = 8;

struct Options {
	StateOptions state;
	NameSources names;
	u32 budget = VEXIL_LOAD_UNLIMITED;
	bool common = false;
	bool brief = false;
	bool json = false;
};

/** A setting or preset that was selected. */
struct Selected {
	u16 id;
	std::string label;
	ConfigPlace place; // all null for a configuration that merging has replaced
	bool loaded;       // whole
};

/** A file that was delivered, and for whom. */
struct SentFile {
	Delivered block;
	std::string label;
};

class Run {
public:
	Run(const Options &options, Console &console)
	    : options_(options), console_(console), names_(options.names, console),
	      session_(options.state, names_.adopted_rows(), console), registers_(names_)
	{
		for (const ConfigPlace &place : session_.content().configs())
			by_id_.emplace(place.config->id, place);
	}

	void run()
	{
		session_.set();
		session_.trigger();
		settings_ = select(session_.settings());
		presets_ = select(session_.presets());
		receive_tables();
		remaining_ = options_.budget;
		// Once, before any setting: what a setting writes besides comes on top.
		if (options_.common)
			load_common();
		for (Selected &entry : settings_)
			load(entry);
		for (Selected &entry : presets_)
			load(entry);
		if (endless_)
			refuse(options_.state.map,
			       "the image is damaged: it delivers the same blocks "
			       "again and again");
	}

	void print_text() const;
	[[nodiscard]] OutputJson json() const;
	[[nodiscard]] const std::vector<std::string> &trouble() const { return trouble_; }

private:
	std::vector<Selected> select(const std::vector<u16> &ids) const
	{
		std::vector<Selected> entries;
		for (const u16 id : ids) {
			const auto found = by_id_.find(id);
			entries.push_back({id, session_.label(id),
					   found == by_id_.end() ? ConfigPlace{} : found->second,
					   false});
		}
		return entries;
	}

	/** A map has room for so many handlers: those that are wanted come first. */
	void receive_tables()
	{
		std::vector<std::string> labels;
		std::set<std::string> seen;
		const auto add = [&](const ConfigPlace &place) {
			if (!place.config)
				return;
			for (const BlockInfo &block : place.config->blocks) {
				if (block.tag == EXTMEM_TAG_FUNCTION_DATA &&
				    seen.insert(lowered(block.name)).second)
					labels.push_back(block.name);
			}
		};
		for (const Selected &entry : settings_)
			add(entry.place);
		for (const Selected &entry : presets_)
			add(entry.place);
		if (labels.size() > kMostHandlers)
			console_.warn(options_.state.map,
				      fmt::format("tables for {} handlers are wanted, {} can be "
						  "received at once",
						  labels.size(), kMostHandlers));
		for (const ConfigPlace &place : session_.content().configs())
			add(place);
		session_.map().receive_tables(labels);
	}

	void load_common()
	{
		const auto owners = session_.content().common_lists();
		const Load load = session_.map().load_common();
		for (const std::string &line : session_.take_log())
			trouble_.emplace_back(message_of(line));
		endless_ = load.endless;
		for (const Delivered &block : load.blocks) {
			const auto owner = owners.find(block.data.data());
			registers_.write(block,
					 owner == owners.end() ? "" : owner->second.config->label);
		}
	}

	void load(Selected &entry)
	{
		if (cut_ || !trouble_.empty() || endless_)
			return;
		const Load load = session_.map().load(entry.id, remaining_);
		for (const std::string &line : session_.take_log())
			trouble_.push_back(fmt::format("{}: {}", entry.label, message_of(line)));
		endless_ = load.endless;
		remaining_ = load.remaining;
		for (const Delivered &block : load.blocks) {
			if (block.kind == Delivered::Kind::kRegisters)
				registers_.write(block, entry.label);
			else
				files_.push_back({block, entry.label});
		}
		entry.loaded = static_cast<s32>(remaining_) >= 0;
		if (!entry.loaded)
			cut_ = &entry;
	}

	[[nodiscard]] size_t not_loaded() const
	{
		size_t count = 0;
		for (const auto *list : {&settings_, &presets_}) {
			for (const Selected &entry : *list)
				count += !entry.loaded && &entry != cut_;
		}
		return count;
	}

	[[nodiscard]] std::string budget_text() const
	{
		const auto left = static_cast<s32>(remaining_);
		if (!cut_)
			return fmt::format("budget: {} left", counted(remaining_, "pair"));
		std::string text = fmt::format(
			"stopped: budget; '{}' was cut: its next block needs {} more",
			printable(cut_->label), counted(static_cast<u64>(-s64{left}), "pair"));
		if (const size_t behind = not_loaded())
			text += fmt::format("; {} not loaded",
					    counted(behind, "selection behind it was",
						    "selections behind it were"));
		return text;
	}

	/** Settings whose shared registers, which come by a label of their own, were not loaded. */
	[[nodiscard]] size_t without_shared() const
	{
		if (options_.common)
			return 0;
		std::set<const SettingInfo *> settings;
		for (const Selected &entry : settings_) {
			if (!entry.place.config || entry.place.config->kind == ConfigKind::kCommon)
				continue;
			for (const ConfigInfo &config : entry.place.setting->configs) {
				if (config.kind == ConfigKind::kCommon && config.pairs() > 0)
					settings.insert(entry.place.setting);
			}
		}
		return settings.size();
	}

	void print_selected(const char *title, const std::vector<Selected> &entries) const;
	void print_registers(Form form, const char *title) const;
	void print_files() const;
	[[nodiscard]] size_t most_lines() const
	{
		return options_.brief ? kBriefLines : ~size_t{0};
	}

	const Options &options_;
	Console &console_;
	RegisterNames names_;
	Session session_;
	RegisterState registers_;
	std::map<u16, ConfigPlace> by_id_;
	std::vector<Selected> settings_;
	std::vector<Selected> presets_;
	std::vector<SentFile> files_;
	std::vector<std::string> trouble_; // why loading ended early: the library's words
	u32 remaining_ = VEXIL_LOAD_UNLIMITED;
	const Selected *cut_ = nullptr; // by the budget
	bool endless_ = false;
};

struct FormRow {
	Form form;
	const char *key; // in JSON
	const char *title;
};
constexpr FormRow kForms[] = {
	{Form::kHardware, "hardware", "hardware registers"},
	{Form::kSoftware, "software", "software registers"},
	{Form::kCustomer, "customer", "customer registers"},
	{Form::kAddress, "words", "register words"},
};

void Run::print_selected(const char *title, const std::vector<Selected> &entries) const
{
	fmt::print("{} ({})\n", title, entries.size());
	std::vector<std::vector<std::string>> lines;
	for (const Selected &entry : entries)
		lines.push_back({std::to_string(entry.id), printable(entry.label),
				 entry.place.ip ? printable(entry.place.ip->name) : "(replaced)",
				 entry.place.config ? printable(entry.place.config->table) : ""});
	if (!lines.empty())
		print_columns({{"id", true}, {"label", false}, {"ip", false}, {"table", false}},
			      lines, most_lines());
	fmt::print("\n");
}

void Run::print_registers(Form form, const char *title) const
{
	const std::vector<WrittenRegister> written = registers_.registers(form);
	if (written.empty())
		return;
	fmt::print("{} ({})\n", title, written.size());
	std::vector<std::vector<std::string>> lines;
	for (const WrittenRegister &entry : written) {
		const u32 value = form == Form::kAddress ? entry.row.pair.fn_para & 0xFFFF
							 : entry.row.pair.fn_para;
		std::vector<std::string> line = {
			form == Form::kAddress ? "" : std::to_string(entry.row.pair.fn_idx),
			printable(entry.row.name),
			form == Form::kAddress ? fmt::format("0x{:04X}", value)
					       : fmt::format("0x{:X}", value),
			decimal(form, value)};
		std::vector<std::string> place = location(entry.row);
		if (form == Form::kAddress)
			place = {domain_text(entry.row.domain),
				 fmt::format("0x{:07X}", entry.row.address),
				 fmt::format("0x{:04X}", entry.row.mask)};
		line.insert(line.end(), place.begin(), place.end());
		line.push_back(printable(joined(entry.writers)));
		lines.push_back(std::move(line));
	}
	print_columns({{form == Form::kHardware ? "position" : "number", true},
		       {form == Form::kAddress ? "registers" : "name", false},
		       {"value", false},
		       {"decimal", true},
		       {"domain", false},
		       {"address", false},
		       {"mask", false},
		       {"last written by", false}},
		      lines, most_lines());
	fmt::print("\n");
}

void Run::print_files() const
{
	if (files_.empty())
		return;
	fmt::print("files ({})\n", files_.size());
	size_t shown = 0;
	for (const SentFile &file : files_) {
		if (shown++ == most_lines()) {
			fmt::print("       ... {} more\n\n", files_.size() - most_lines());
			return;
		}
		const FileInfo *info = session_.content().file_at(file.block.data);
		fmt::print("       {} for {}: {}, {}, by {}\n",
			   file.block.kind == Delivered::Kind::kTable ? "lookup table"
								      : "algorithm file",
			   printable(file.block.name), info ? printable(info->name) : "?",
			   counted(file.block.data.size(), "byte"), printable(file.label));
	}
	fmt::print("\n");
}

void Run::print_text() const
{
	print_selected("settings", settings_);
	print_selected("presets", presets_);
	for (const FormRow &row : kForms)
		print_registers(row.form, row.title);
	print_files();
	if (options_.budget != VEXIL_LOAD_UNLIMITED)
		fmt::print("{}\n", budget_text());
	if (const size_t shared = without_shared())
		fmt::print("{} registers with other members besides; --common loads those, "
			   "too.\n",
			   counted(shared, "of these settings shares", "of these settings share"));
}

OutputJson selected_json(const std::vector<Selected> &entries)
{
	OutputJson list = OutputJson::array();
	for (const Selected &entry : entries) {
		OutputJson output = {{"id", entry.id}, {"label", entry.label}};
		if (entry.place.ip) {
			output["ip"] = entry.place.ip->name;
			output["setting"] = entry.place.setting->name;
		} else {
			output["replaced"] = true;
		}
		if (entry.place.config && entry.place.config->kind == ConfigKind::kPreset)
			output["table"] = entry.place.config->table;
		output["loaded"] = entry.loaded;
		list.push_back(output);
	}
	return list;
}

OutputJson Run::json() const
{
	OutputJson output = {{"image", options_.state.map},
			     {"rules", options_.state.rules},
			     {"settings", selected_json(settings_)},
			     {"presets", selected_json(presets_)}};
	for (const FormRow &row : kForms) {
		OutputJson list = OutputJson::array();
		for (const WrittenRegister &entry : registers_.registers(row.form)) {
			OutputJson reg = pair_json(row.form, entry.row);
			reg["writers"] = entry.writers;
			reg["writes"] = entry.writes;
			list.push_back(reg);
		}
		output[row.key] = list;
	}
	OutputJson files = OutputJson::array();
	for (const SentFile &file : files_) {
		OutputJson entry = block_json(file.block, names_, session_.content());
		entry["label"] = file.label;
		files.push_back(entry);
	}
	output["files"] = files;
	output["settingsWithoutShared"] = without_shared();
	if (options_.budget != VEXIL_LOAD_UNLIMITED) {
		output["budget"] = {{"given", options_.budget},
				    {"remaining", static_cast<s32>(remaining_)},
				    {"stopped", cut_ != nullptr}};
		if (cut_)
			output["budget"]["cut"] = cut_->label;
	}
	if (!trouble_.empty())
		output["trouble"] = trouble_;
	return output;
}

void run_run(const Options &options)
{
	Console console;
	Run run(options, console);
	run.run();
	if (options.json)
		print(run.json());
	else
		run.print_text();
	if (!run.trouble().empty())
		refuse(options.state.map, joined(run.trouble()));
}

} // namespace

void add_run(CLI::App &app)
{
	const auto options = std::make_shared<Options>();
	CLI::App *run = app.add_subcommand(
		"run", "Evaluate rules for source values, and show the registers they lead to");
	add_state_options(*run, options->state);
	run->add_option("--budget", options->budget,
			"Hardware register pairs that may be delivered, over all settings")
		->type_name("N")
		->check(CLI::Range(0u, VEXIL_LOAD_UNLIMITED - 1));
	add_name_options(*run, options->names);
	add_address_option(*run, options->names);
	run->add_flag("--common", options->common,
		      "Load the shared registers of every setting of the map first");
	run->add_flag("--brief", options->brief, "Only the first lines of each list");
	run->add_flag("--json", options->json, "Print JSON");
	run->footer(R"(
Settings are loaded in the order in which rules select them, then presets. Each register
is shown once, with the value and the label of whoever wrote it last. With a budget,
loading ends before the first block that does not fit. Registers that the members of a
setting share belong to no selection: a driver loads those of the whole map once, before
anything else and outside any budget, and so does --common.

Examples:
  vexil run tv.pim tv.rule --rule Picture --set "Input:HDMI1;Timing:2160p60;Luma:812"
  vexil run tv.pim tv.rule --set "Input:HDMI1" --rule=-Picture --budget 200 --json
  vexil run tv.pim tv.rule --set "Signal:Good" --rule Backlight --product examples/tv)");
	run->callback([options] { run_run(*options); });
}

} // namespace vexil_tool
