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
#include "core/bytes.h"
#include "errors.h"
#include "image_file.h"
#include "json_input.h"
#include "json_output.h"
#include "library_log.h"
#include "names.h"
#include "product.h"
#include "register_lists.h"
#include "register_table.h"
#include "text.h"

namespace vexil_tool {

namespace {

constexpr size_t kShownBytes = 16; // of a file
constexpr u32 kAddressBits = 27;
constexpr u32 kAddressMask = (1u << kAddressBits) - 1;

struct Options {
	std::string image;
	std::vector<std::string> labels;
	std::vector<u32> ids;
	u32 budget = VEXIL_LOAD_UNLIMITED;
	std::string preset_table;
	bool common = false;
	std::string product;
	std::vector<std::string> hardware, software, customer;
	std::string register_info;
	bool address_form = false;
	bool json = false;
};

/** How the words of a register list are to be read. */
enum class Form { kHardware, kSoftware, kCustomer, kAddress };

Form form_of(int tag)
{
	switch (tag) {
	case EXTMEM_TAG_REGISTER_SETTINGS:
	case EXTMEM_TAG_REGISTER_RIU_SETTINGS:
	case EXTMEM_TAG_REGISTER_SYNC_SETTINGS:
		return Form::kHardware;
	case EXTMEM_TAG_VREGISTER_SETTINGS:
		return Form::kSoftware;
	case EXTMEM_TAG_CUS_VREGISTER_SETTINGS:
		return Form::kCustomer;
	default:
		return Form::kAddress;
	}
}

const char *form_name(Form form)
{
	switch (form) {
	case Form::kHardware:
		return "hardware register";
	case Form::kSoftware:
		return "software register";
	case Form::kCustomer:
		return "customer register";
	case Form::kAddress:
		return "register word";
	}
	return "";
}

std::string joined(const std::vector<std::string> &names)
{
	std::string text;
	for (const std::string &name : names)
		text += (text.empty() ? "" : ", ") + name;
	return text;
}

std::string hexadecimal(std::string_view bytes)
{
	std::string text;
	for (const char byte : bytes)
		text += fmt::format("{}{:02x}", text.empty() ? "" : " ",
				    static_cast<unsigned char>(byte));
	return text;
}

/** The pairs of a delivered list; the library has checked that they are there. */
std::vector<func_pair> pairs_of(const Delivered &block)
{
	const u32 count = vexil::load<u32>(block.data.data());
	std::vector<func_pair> pairs;
	for (u32 i = 0; i < count; ++i)
		pairs.push_back(vexil::load<func_pair>(block.data.data() + sizeof(reg_func) +
						       i * sizeof(func_pair)));
	return pairs;
}

/** Names of registers, and where they live: what a product adds to an image. */
class Names {
public:
	Names(const Options &options, Console &console)
	{
		Product product;
		if (!options.product.empty())
			product = read_product(options.product, console);
		const auto read = [&](std::vector<std::string> paths,
				      const std::vector<std::string> &more, auto add) {
			paths.insert(paths.end(), more.begin(), more.end());
			for (const std::string &path : paths)
				(lists_.*add)(read_json(path, Root::kObject, console).get(), path,
					      nullptr);
		};
		read(product.hardware, options.hardware, &RegisterLists::add_hardware);
		read(product.software, options.software, &RegisterLists::add_software);
		read(product.customer, options.customer, &RegisterLists::add_customer);
		const std::string &table = options.register_info.empty() ? product.register_info
									 : options.register_info;
		if (!table.empty())
			table_ = RegisterTable::read(table, console);
	}

	[[nodiscard]] const RegisterTable &table() const { return table_; }

	/** What a position or number stands for, or nothing. */
	[[nodiscard]] std::string name(Form form, u32 number) const
	{
		const RegisterList &list = form == Form::kHardware   ? lists_.hardware
					   : form == Form::kSoftware ? lists_.software
								     : lists_.customer;
		if (const std::string *name = list.name_of(number))
			return *name;
		const RegisterField *field =
			form == Form::kHardware ? table_.field(number) : nullptr;
		return field ? field->name : "";
	}

private:
	RegisterLists lists_;
	RegisterTable table_;
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
	    : options_(options), console_(console), names_(options, console), map_(open()),
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

	[[nodiscard]] const Names &names() const { return names_; }
	[[nodiscard]] const Catalogue &catalogue() const { return catalogue_; }

private:
	Map open()
	{
		std::vector<ST_PQ_REG_INFO> rows;
		if (options_.address_form) {
			rows = names_.table().rows();
			if (rows.empty())
				refuse(options_.product,
				       "has no \"registerInfo\", which --address needs");
		}
		return open_map(read_image(options_.image, console_), std::move(rows), console_);
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
		std::string cause = "Cannot find preset: " + label;
		if (options_.preset_table.empty()) {
			map_.load_unknown(label);
			const std::vector<std::string> log = log_.take();
			if (!log.empty())
				cause = message_of(log.front());
		}
		refuse(options_.image, cause + similar_hint(label, known));
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
					   options_.preset_table,
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
		// The library delivers them in one go; whose they are is told by where they lie.
		std::map<const char *, ConfigPlace> owners;
		for (const ConfigPlace &place : catalogue_.configs()) {
			for (const BlockInfo &block : place.config->blocks) {
				if (place.config->kind == ConfigKind::kCommon)
					owners.emplace(block.data.data(), place);
			}
		}
		Load all = map_.load_common();
		Load none;
		none.endless = all.endless;
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
	Names names_;
	Map map_;
	Catalogue catalogue_;
	LibraryLog log_;
	std::map<u16, ConfigPlace> by_id_;
};

// ---- what a list shows ----

/** One pair, ready to be shown. */
struct Row {
	func_pair pair;
	std::string name;
	u32 domain;  // address form, and hardware positions that the table knows
	u32 address; // the same
	u32 mask;    // the same
};

Row read_row(Form form, const func_pair &pair, const Names &names)
{
	Row row{pair, {}, 0, 0, 0};
	if (form == Form::kAddress) {
		row.domain = pair.fn_idx >> kAddressBits;
		row.address = pair.fn_idx & kAddressMask;
		row.mask = pair.fn_para >> 16;
		row.name = joined(names.table().names_at(row.domain, row.address, row.mask));
		return row;
	}
	row.name = names.name(form, pair.fn_idx);
	const RegisterField *field =
		form == Form::kHardware ? names.table().field(pair.fn_idx) : nullptr;
	if (field) {
		row.domain = field->domain;
		row.address = field->address;
		row.mask = ((1u << field->width) - 1) << field->lowest_bit;
	}
	return row;
}

std::string domain_text(u32 domain)
{
	const char *name = domain_name(domain);
	return name ? name : fmt::format("domain {}", domain);
}

/** Software and customer values may be negative. */
std::string decimal(Form form, u32 value)
{
	const bool is_signed = form == Form::kSoftware || form == Form::kCustomer;
	return is_signed ? std::to_string(static_cast<s32>(value)) : std::to_string(value);
}

struct Column {
	const char *title;
	bool numbers; // stand to the right
};

/** Columns as wide as what stands in them; those that stay empty are left out. */
void print_columns(const std::vector<Column> &columns,
		   const std::vector<std::vector<std::string>> &lines)
{
	std::vector<size_t> widths(columns.size());
	for (size_t i = 0; i < columns.size(); ++i) {
		for (const std::vector<std::string> &line : lines)
			widths[i] = std::max(widths[i], line[i].size());
		if (widths[i] > 0)
			widths[i] = std::max(widths[i], std::string_view(columns[i].title).size());
	}
	const auto print_line = [&](const auto &cell) {
		std::string text = "     ";
		for (size_t i = 0; i < columns.size(); ++i) {
			if (widths[i] > 0)
				text += columns[i].numbers
						? fmt::format("  {:>{}}", cell(i), widths[i])
						: fmt::format("  {:<{}}", cell(i), widths[i]);
		}
		text.erase(text.find_last_not_of(' ') + 1);
		fmt::print("{}\n", text);
	};
	print_line([&](size_t i) { return std::string_view(columns[i].title); });
	for (const std::vector<std::string> &line : lines)
		print_line([&](size_t i) { return std::string_view(line[i]); });
}

/** Domain, address and mask of a row; nothing when they are unknown. */
std::vector<std::string> location(const Row &row)
{
	if (row.mask == 0)
		return {"", "", ""};
	return {domain_text(row.domain), fmt::format("0x{:07X}", row.address),
		fmt::format("0x{:04X}", row.mask)};
}

void print_list(const Delivered &block, const Names &names)
{
	const Form form = form_of(block.tag);
	std::vector<Row> rows;
	for (const func_pair &pair : pairs_of(block))
		rows.push_back(read_row(form, pair, names));
	fmt::print("  {} ({}): {}\n", tag_name(block.tag), block.tag,
		   counted(rows.size(), form_name(form)));
	std::vector<std::vector<std::string>> lines;
	for (const Row &row : rows) {
		std::vector<std::string> line;
		if (form == Form::kAddress) {
			const u32 value = row.pair.fn_para & 0xFFFF;
			line = {domain_text(row.domain),
				fmt::format("0x{:07X}", row.address),
				fmt::format("0x{:04X}", row.mask),
				fmt::format("0x{:04X}", value),
				std::to_string(value),
				printable(row.name)};
		} else {
			line = {std::to_string(row.pair.fn_idx), printable(row.name),
				fmt::format("0x{:X}", row.pair.fn_para),
				decimal(form, row.pair.fn_para)};
			const std::vector<std::string> more = location(row);
			line.insert(line.end(), more.begin(), more.end());
		}
		lines.push_back(std::move(line));
	}
	static const std::vector<Column> kWordColumns = {
		{"domain", false}, {"address", false}, {"mask", false},
		{"value", false},  {"decimal", true},  {"registers", false},
	};
	static const std::vector<Column> kPositionColumns = {
		{"position", true}, {"name", false},    {"value", false}, {"decimal", true},
		{"domain", false},  {"address", false}, {"mask", false},
	};
	static const std::vector<Column> kNumberColumns = {
		{"number", true},  {"name", false},    {"value", false}, {"decimal", true},
		{"domain", false}, {"address", false}, {"mask", false},
	};
	if (!lines.empty())
		print_columns(form == Form::kAddress    ? kWordColumns
			      : form == Form::kHardware ? kPositionColumns
							: kNumberColumns,
			      lines);
}

/** The name under which a delivered file is stored. */
std::string file_name(const Delivered &block, const Catalogue &catalogue)
{
	for (const FileInfo &file : catalogue.files) {
		if (file.data.data() == block.data.data())
			return file.name;
	}
	return {};
}

void print_file(const Delivered &block, const Catalogue &catalogue)
{
	fmt::print("  {} {}: {}, {}, CRC-32 {:08x}\n",
		   block.kind == Delivered::Kind::kTable ? "lookup table for"
							 : "algorithm file for",
		   printable(block.name), printable(file_name(block, catalogue)),
		   counted(block.data.size(), "byte"), crc32(block.data.data(), block.data.size()));
	fmt::print("       {}{}\n", hexadecimal(block.data.substr(0, kShownBytes)),
		   block.data.size() > kShownBytes ? " ..." : "");
}

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
		for (const Delivered &block : result.blocks) {
			if (block.kind == Delivered::Kind::kRegisters)
				print_list(block, loading.names());
			else
				print_file(block, loading.catalogue());
		}
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

OutputJson list_json(const Delivered &block, const Names &names)
{
	const Form form = form_of(block.tag);
	OutputJson pairs = OutputJson::array();
	for (const func_pair &pair : pairs_of(block)) {
		const Row row = read_row(form, pair, names);
		OutputJson entry;
		if (form == Form::kAddress) {
			entry["word"] = pair.fn_idx;
			entry["para"] = pair.fn_para;
			entry["value"] = pair.fn_para & 0xFFFF;
			entry["hex"] = fmt::format("0x{:04X}", pair.fn_para & 0xFFFF);
		} else {
			entry["position"] = pair.fn_idx;
			entry["value"] = pair.fn_para;
			entry["hex"] = fmt::format("0x{:X}", pair.fn_para);
			if (form != Form::kHardware)
				entry["signed"] = static_cast<s32>(pair.fn_para);
		}
		if (form == Form::kAddress || row.mask) {
			entry["domain"] = row.domain;
			entry["address"] = fmt::format("0x{:07X}", row.address);
			entry["mask"] = fmt::format("0x{:04X}", row.mask);
		}
		if (!row.name.empty())
			entry["name"] = row.name;
		pairs.push_back(entry);
	}
	return {{"tag", block.tag},
		{"tagName", tag_name(block.tag)},
		{"kind", "registers"},
		{"pairs", pairs}};
}

OutputJson file_json(const Delivered &block, const Catalogue &catalogue)
{
	const bool table = block.kind == Delivered::Kind::kTable;
	return {
		{"tag", block.tag},
		{"tagName", tag_name(block.tag)},
		{"kind", table ? "table" : "algorithm"},
		{table ? "handler" : "entry", block.name},
		{"file", file_name(block, catalogue)},
		{"bytes", block.data.size()},
		{"crc32", fmt::format("{:08x}", crc32(block.data.data(), block.data.size()))},
		{"first", hexadecimal(block.data.substr(0, kShownBytes))},
	};
}

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
			blocks.push_back(block.kind == Delivered::Kind::kRegisters
						 ? list_json(block, loading.names())
						 : file_json(block, loading.catalogue()));
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
	if (options.address_form && options.product.empty() && options.register_info.empty())
		refuse_usage("--address needs --reginfo or --product (see 'vexil load --help')");
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
	load->add_option("--product", options->product, "Manifest or folder: names for positions")
		->type_name("PRODUCT");
	load->add_option("--hw", options->hardware, "Hardware register lists: names")
		->type_name("FILE");
	load->add_option("--sw", options->software, "Software register lists: names")
		->type_name("FILE");
	load->add_option("--cus", options->customer, "Customer register lists: names")
		->type_name("FILE");
	load->add_option("--reginfo", options->register_info,
			 "Register table: domain, address and mask of positions (that of the "
			 "product else)")
		->type_name("FILE");
	load->add_flag("--address", options->address_form,
		       "Adopt the image with the register table: lists arrive in address form");
	load->add_flag("--json", options->json, "Print JSON");
	load->footer("\nBlocks are shown in the order of delivery. Values are hexadecimal, then "
		     "decimal. Lookup\n"
		     "tables and algorithm files arrive through handlers; their first bytes are "
		     "shown. With a\n"
		     "budget, loading ends before the first block that does not fit ('stopped: "
		     "budget').\n"
		     "\nExamples:\n"
		     "  vexil load tv.pim 'Dimming_Level#High' --product examples/tv\n"
		     "  vexil load tv.pim 'Dimming_Level#High' --product examples/tv --address\n"
		     "  vexil load tv.pim 'Memc_Level#High' 'Gamma_Curve#Gamma_2p2' --budget 20\n"
		     "  vexil load tv.pim --preset PICTURE_MODE_REGS --json");
	load->callback([options] { run_load(*options); });
}

} // namespace vexil_tool
