// SPDX-License-Identifier: MIT
//
// vexil build: a product into an image.

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>

#include <fmt/format.h>

#include "catalogue.h"
#include "commands.h"
#include "console.h"
#include "errors.h"
#include "files.h"
#include "json_input.h"
#include "library.h"
#include "library_log.h"
#include "map.h"
#include "names.h"
#include "output_file.h"
#include "product.h"
#include "register_lists.h"
#include "rule_build.h"
#include "text.h"

namespace vexil_tool {

namespace {

constexpr const char *kGroupsKey = "PqFuncGroups";
constexpr size_t kLongestComplaint = 96; // of the library's: its words, and a name behind them

struct Options {
	std::string product;
	std::vector<std::string> hardware, software, customer, handlers, files, groups;
	std::vector<std::string> sources, rules;
	std::string output;
	std::string rules_output;
	bool keep_going = false;
};

/**
 * Why the library refuses the chain of folders and IPs from @first on, in its order, or nothing. It
 * says so itself for settings only.
 */
std::string cause_in_chain(const cJSON *first, size_t depth)
{
	constexpr size_t kMostFolders = 8;
	// An object without a version goes on with that of the object before it in the same folder.
	vexil_version version{};
	for (const cJSON *item = first; item; item = item->next) {
		if (!vexil::is_object(item))
			continue;
		if (!item->string)
			return "an array stands where named objects are expected";
		if (const cJSON *own = vexil::member(item, "#version")) {
			__pim_get_version(const_cast<cJSON *>(own), &version, nullptr);
			if (!is_supported(version))
				return fmt::format(
					"\"{}\": #version {}.{} is not supported (2.0 to 2.2)",
					shortened(item->string), version.u16MajorNumber,
					version.u16MinorNumber);
		}
		if (vexil::member(item, "settings"))
			continue;
		bool has_object = false;
		for (const cJSON *child : vexil::items(item))
			has_object = has_object || vexil::is_object(child);
		if (depth >= kMostFolders && has_object)
			return fmt::format("\"{}\": folders are nested deeper than {}",
					   shortened(item->string), kMostFolders);
		if (depth < kMostFolders) {
			if (std::string cause = cause_in_chain(item->child, depth + 1);
			    !cause.empty())
				return cause;
		}
	}
	return {};
}

/** Builds one map, step by step, and says which file a complaint is about. */
class Build {
public:
	Build(Console &console, size_t steps) : console_(console), steps_(steps) {}

	void hardware(const std::string &path)
	{
		const Json document = begin_document(path);
		lists_.add_hardware(document.get(), path, &console_);
		map_.insert_hardware(document.get());
		complain(path);
	}

	void software(const std::string &path)
	{
		const Json document = begin_document(path);
		lists_.add_software(document.get(), path, &console_);
		map_.insert_software(document.get());
		complain(path);
	}

	void customer(const std::string &path)
	{
		const Json document = begin_document(path);
		lists_.add_customer(document.get(), path, &console_);
		map_.insert_customer(document.get());
		complain(path);
	}

	void handler(const std::string &label)
	{
		const std::string where = fmt::format("handler '{}'", shortened(label));
		if (label.empty() || !foreign_character(label).empty())
			refuse(where, cannot_be_named(label));
		if (!map_.insert_handler(label))
			refuse(where, fmt::format("there are {} handlers already", kMostHandlers));
	}

	void file(const NamedFile &file)
	{
		begin_step(file.path);
		const std::vector<char> bytes = read_file(file.path);
		if (file.name.empty() || !foreign_character(file.name).empty())
			refuse(file.path, fmt::format("\"{}\" {}", shortened(file.name),
						      cannot_be_named(file.name)));
		if (!map_.insert_file(file.name, bytes))
			refuse(file.path, cause_of_failure(log_.take()));
	}

	void groups(const std::string &path)
	{
		const Json document = begin_document(path);
		if (!vexil::member(document.get(), kGroupsKey))
			console_.warn(path, fmt::format("there is no \"{}\" in it", kGroupsKey));
		origins_.push_back({map_.nodes_used(), path});
		const bool inserted = map_.insert_groups(document.get());
		if (!inserted)
			refuse(path, cause_of_refusal(document.get(), log_.take()));
		complain(path);
	}

	void sources(const std::string &path)
	{
		const Json document = begin_document(path);
		rule_build().sources(document.get(), path);
	}

	void rules(const std::string &path)
	{
		const Json document = begin_document(path);
		rule_build().rules(document.get(), path);
	}

	/** Complains about names that rules wait for. */
	void finish_rules()
	{
		if (rules_)
			rules_->finish();
	}

	/** Warns about names in the map that lead elsewhere. */
	void check_names()
	{
		const Catalogue catalogue(map_);
		for (const IpInfo &ip : catalogue.ips)
			check_ip(ip);
		for (const ConfigPlace &place : catalogue.configs())
			check_label(*place.config);
	}

	[[nodiscard]] std::vector<char> image()
	{
		map_.finish();
		std::vector<char> image = map_.exported();
		if (image.empty())
			throw Failure(Exit::kRefused, "the map is too large for an image");
		return image;
	}

	[[nodiscard]] const Map &map() const { return map_; }
	/** Null unless there were sources or rules. */
	[[nodiscard]] RuleBuild *rule_image() { return rules_.get(); }

private:
	/** Rules are compiled against the map as it is then. */
	RuleBuild &rule_build()
	{
		if (!rules_) {
			std::vector<std::string> labels;
			const Catalogue catalogue(map_);
			for (const ConfigPlace &place : catalogue.configs())
				labels.push_back(place.config->label);
			rules_ = std::make_unique<RuleBuild>(console_, log_, map_,
							     std::move(labels));
		}
		return *rules_;
	}

	/** Registers that an unknown one may have been meant to be. */
	[[nodiscard]] std::string hint(const std::string &message) const
	{
		static constexpr std::pair<const char *, RegisterList RegisterLists::*> kUnknown[] =
			{
				{"Cannot find hw_register ", &RegisterLists::hardware},
				{"Cannot find sw_register ", &RegisterLists::software},
			};
		for (const auto &[begin, list] : kUnknown) {
			if (!message.starts_with(begin) || console_.warnings() >= kMostHints)
				continue;
			std::vector<std::string> known = (lists_.*list).all();
			if (list == &RegisterLists::software) { // one message for both
				const std::vector<std::string> more = lists_.customer.all();
				known.insert(known.end(), more.begin(), more.end());
			}
			return similar_hint(
				std::string_view(message).substr(std::string_view(begin).size()),
				known);
		}
		return {};
	}

	/** The library's complaints about a document, in words for those who wrote it. */
	void complain(const std::string &path)
	{
		for (const std::string &line : log_.take()) {
			std::string message(message_of(line));
			if (is_name_complaint(line))
				continue; // checks of ours say in which name
			if (message.ends_with("Cannot find lut file (null)"))
				message = "a lookup table is for a handler that is not listed";
			else if (message.ends_with("Invalid entry found at "))
				message = "an entry is not a register's name with a number";
			else
				message = shortened(message, kLongestComplaint) + hint(message);
			console_.warn(path, message);
		}
	}

	/** From which node on the map holds what a document brought. */
	struct Origin {
		size_t first_node;
		std::string path;
	};

	void begin_step(const std::string &path) { console_.progress(++step_, steps_, path); }

	Json begin_document(const std::string &path)
	{
		begin_step(path);
		return read_json(path, Root::kObject, console_);
	}

	static std::string cannot_be_named(const std::string &name)
	{
		if (name.empty())
			return "names cannot be empty";
		return fmt::format("cannot be a name: names cannot hold '{}'",
				   foreign_character(name));
	}

	/** What the library's code and log say of the failure. */
	[[nodiscard]] std::string cause_of_failure(const std::vector<std::string> &log) const
	{
		if (map_.nodes_used() > kMostNodes)
			return fmt::format("the map needs more than {} nodes", grouped(kMostNodes));
		if (map_.store_error() == EXTMEM_NOMEM)
			return "out of memory";
		std::string cause;
		// The last lines say why it ended; those before are about entries that were left
		// out.
		const size_t from = log.size() > 2 ? log.size() - 2 : 0;
		for (size_t i = from; i < log.size(); ++i)
			cause += fmt::format("{}{}", cause.empty() ? "" : " ", message_of(log[i]));
		if (cause.starts_with("label join error."))
			cause += " (a label has at most 255 characters)";
		return cause.empty() ? "was refused by the library" : cause;
	}

	[[nodiscard]] std::string cause_of_refusal(const cJSON *document,
						   const std::vector<std::string> &log) const
	{
		const cJSON *groups = vexil::member(document, kGroupsKey);
		const cJSON *version =
			vexil::member(vexil::member(document, "VexilVersion"), "#version");
		if (version && !is_supported(map_.version()))
			return fmt::format("VexilVersion {}.{} is not supported (2.0 to 2.2)",
					   map_.version().u16MajorNumber,
					   map_.version().u16MinorNumber);
		if (groups && !groups->child)
			return fmt::format("\"{}\" is empty", kGroupsKey);
		const bool in_setting =
			!log.empty() && log.back().find("Failed to convert") != std::string::npos;
		const std::string cause =
			in_setting || !groups ? "" : cause_in_chain(groups->child, 0);
		if (!cause.empty() && map_.nodes_used() <= kMostNodes)
			return cause;
		return cause_of_failure(log);
	}

	[[nodiscard]] const std::string &origin_of(u16 node) const
	{
		size_t at = origins_.size() - 1;
		while (at > 0 && origins_[at].first_node > node)
			--at;
		return origins_[at].path;
	}

	void check_ip(const IpInfo &ip)
	{
		if (ip.settings.empty())
			return; // folders of one name are no trouble
		const u16 found = map_.ip_id(ip.name);
		if (found == VEXIL_NO_ID)
			console_.warn(origin_of(ip.id),
				      fmt::format("IP \"{}\" {}", shortened(ip.name),
						  cannot_be_named(ip.name)));
		else if (found != ip.id)
			console_.warn(origin_of(ip.id),
				      fmt::format("there is an IP \"{}\" already; a merge finds "
						  "the first only",
						  shortened(ip.name)));
	}

	void check_label(const ConfigInfo &config)
	{
		const u16 found = config.kind == ConfigKind::kPreset
					  ? map_.preset_id(config.label)
					  : map_.setting_id(config.label);
		if (found == VEXIL_NO_ID)
			console_.warn(origin_of(config.id),
				      fmt::format("label \"{}\" {}", config.label,
						  cannot_be_named(config.label)));
		else if (found != config.id)
			console_.warn(origin_of(config.id),
				      fmt::format("there is a label \"{}\" already; it keeps its "
						  "configuration",
						  config.label));
	}

	Console &console_;
	LibraryLog log_;
	Map map_;
	RegisterLists lists_;
	std::unique_ptr<RuleBuild> rules_;
	std::vector<Origin> origins_;
	size_t step_ = 0;
	size_t steps_;
};

Product product_of(const Options &options, Console &console)
{
	Product product;
	if (!options.product.empty())
		product = read_product(options.product, console);
	const auto append = [](std::vector<std::string> &to, const std::vector<std::string> &from) {
		to.insert(to.end(), from.begin(), from.end());
	};
	append(product.hardware, options.hardware);
	append(product.software, options.software);
	append(product.customer, options.customer);
	append(product.handlers, options.handlers);
	append(product.groups, options.groups);
	append(product.sources, options.sources);
	append(product.rules, options.rules);
	for (const std::string &file : options.files)
		add_file_option(product, file);
	return product;
}

bool builds_nothing(const Options &options)
{
	return options.product.empty() && options.hardware.empty() && options.software.empty() &&
	       options.customer.empty() && options.handlers.empty() && options.files.empty() &&
	       options.groups.empty() && options.sources.empty() && options.rules.empty();
}

void build_all(Build &build, const Product &product)
{
	for (const std::string &path : product.hardware)
		build.hardware(path);
	for (const std::string &path : product.software)
		build.software(path);
	for (const std::string &path : product.customer)
		build.customer(path);
	for (const std::string &label : product.handlers)
		build.handler(label);
	for (const NamedFile &file : product.files)
		build.file(file);
	for (const std::string &path : product.groups)
		build.groups(path);
	build.check_names();
	for (const std::string &path : product.sources)
		build.sources(path);
	for (const std::string &path : product.rules)
		build.rules(path);
	build.finish_rules();
}

void run_build(const Options &options)
{
	if (builds_nothing(options))
		refuse_usage("a product or something else to build from is needed (see 'vexil "
			     "build --help')");

	const auto begin = std::chrono::steady_clock::now();
	Console console(options.keep_going ? "warning: " : "");
	const Product product = product_of(options, console);
	const std::string rules_output =
		options.rules_output.empty() ? rules_beside(options.output) : options.rules_output;
	if (!product.sources.empty() || !product.rules.empty())
		check_outputs(options.output, rules_output, "build");
	else if (!options.rules_output.empty())
		refuse_usage("--rules-out, but there are no sources and rules (see 'vexil build "
			     "--help')");
	Build build(console, product.hardware.size() + product.software.size() +
				     product.customer.size() + product.files.size() +
				     product.groups.size() + product.sources.size() +
				     product.rules.size());
	build_all(build, product);
	console.clear_progress();

	const size_t warnings = console.warnings();
	if (warnings > 0 && !options.keep_going)
		throw Failure(
			Exit::kRefused,
			fmt::format("{}: not written: {} (--keep-going writes it all the same)",
				    options.output, counted(warnings, "fault")));
	std::vector<Output> outputs = {{options.output, build.image()}};
	RuleBuild *rules = build.rule_image();
	const bool beside_device = options.rules_output.empty() && is_device(options.output);
	if (rules && !beside_device)
		outputs.push_back({rules_output, rules->image()});
	write_outputs(outputs);
	const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
	fmt::print("{}: {} of {} nodes, {} bytes, {:.2f} s{}\n", printable(options.output),
		   grouped(build.map().nodes_used()), grouped(kMostNodes),
		   grouped(outputs[0].bytes.size()), seconds.count(),
		   warnings ? ", " + counted(warnings, "warning") : "");
	if (outputs.size() > 1)
		fmt::print("{}: {} of {} nodes, {} bytes\n", printable(rules_output),
			   grouped(rules->nodes_used()), grouped(kMostNodes),
			   grouped(outputs[1].bytes.size()));
	else if (rules)
		say_rules_not_written(options.output);
	warn_of_older_rules(outputs);
}

} // namespace

void add_build(CLI::App &app)
{
	const auto options = std::make_shared<Options>();
	CLI::App *build =
		app.add_subcommand("build", "Build a PIM image, and a rule image, from a product");
	build->add_option(
		"PRODUCT", options->product,
		"Manifest, or folder with a product.json; paths in it are relative to it");
	build->add_option("-o,--output", options->output, "PIM image to write")->required();
	build->add_option("--hw", options->hardware, "Hardware register lists")->type_name("FILE");
	build->add_option("--sw", options->software, "Software register lists")->type_name("FILE");
	build->add_option("--cus", options->customer, "Customer register lists")->type_name("FILE");
	build->add_option("--handler", options->handlers, "Labels of lookup-table handlers")
		->type_name("LABEL");
	build->add_option("--file", options->files, "Files, or folders of files, to put in")
		->type_name("[NAME=]PATH");
	build->add_option("--groups", options->groups, "Function groups")->type_name("FILE");
	build->add_option("--sources", options->sources, "Source declarations")->type_name("FILE");
	build->add_option("--rules", options->rules, "Rules")->type_name("FILE");
	build->add_option("--rules-out", options->rules_output,
			  "Rule image to write; otherwise -o with the suffix .rule")
		->type_name("FILE");
	build->add_flag("--keep-going", options->keep_going,
			"Warn about entries that cannot be resolved, and leave them out");
	build->footer(R"(
Options add to the product; each takes one or more values, so PRODUCT stands first.
Entries that cannot be resolved (an unknown register, a name that is taken) are reported,
each in a line with its document, and no image is written unless --keep-going is given.
A product with sources or rules gives a rule image as well. Both images are complete
before either takes its place; no image is ever seen half written.

Examples:
  vexil build examples/tv -o tv.pim
  vexil build examples/tv -o tv.pim --groups trial.json --keep-going
  vexil build examples/tv -o tv.pim --rules trial.json --rules-out trial.rule
  vexil build -o my.pim --hw hw.json --handler gamma_lut --file gamma.bin --groups g.json)");
	build->callback([options] { run_build(*options); });
}

} // namespace vexil_tool
