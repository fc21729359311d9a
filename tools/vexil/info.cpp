// SPDX-License-Identifier: MIT
//
// vexil info: what an image is, and how full.

#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "catalogue.h"
#include "commands.h"
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
	bool json = false;
};

struct Count {
	const char *key; // in JSON
	const char *name;
	u64 value;
};

std::vector<Count> counts_of(const Catalogue &catalogue)
{
	u64 ips = 0, folders = 0, settings = 0, plain = 0, presets = 0, common = 0;
	u64 lists = 0, pairs = 0, tables = 0, algorithms = 0;
	for (const IpInfo &ip : catalogue.ips) {
		++(ip.settings.empty() ? folders : ips);
		settings += ip.settings.size();
	}
	for (const ConfigPlace &place : catalogue.configs()) {
		switch (place.config->kind) {
		case ConfigKind::kPlain:
			++plain;
			break;
		case ConfigKind::kPreset:
			++presets;
			break;
		case ConfigKind::kCommon:
			++common;
			break;
		}
		for (const BlockInfo &block : place.config->blocks) {
			lists += is_register_list(block.tag);
			tables += block.tag == EXTMEM_TAG_FUNCTION_DATA;
			algorithms += block.tag == EXTMEM_TAG_ALGORITHM_DATA;
		}
		pairs += place.config->pairs();
	}
	return {
		{"ips", "IP blocks", ips},
		{"folders", "folders", folders},
		{"settings", "settings", settings},
		{"configurations", "configurations", plain},
		{"presets", "presets", presets},
		{"common", "common groups", common},
		{"registerLists", "register lists", lists},
		{"pairs", "register pairs", pairs},
		{"tables", "lookup tables used", tables},
		{"algorithms", "algorithm files used", algorithms},
		{"files", "files", catalogue.files.size()},
	};
}

std::vector<Count> counts_of(const RuleCatalogue &catalogue)
{
	u64 values = 0, numbers = 0, ranges = 0, labels = 0;
	u64 cases = 0, alternatives = 0;
	for (const SourceInfo &source : catalogue.sources) {
		values += source.kind == SourceKind::kValues;
		numbers += source.kind == SourceKind::kNumber;
		ranges += source.kind == SourceKind::kRanges;
		labels += source.labels.size();
	}
	for (const RuleInfo &rule : catalogue.rules) {
		cases += rule.cases.size();
		alternatives += rule.alternatives();
	}
	return {
		{"usedBits", "key bits", catalogue.key_bits},
		{"keyWords", "key words", catalogue.key_words()},
		{"slots", "value slots", catalogue.slots},
		{"sources", "sources", catalogue.sources.size()},
		{"enumeratedSources", "with named values", values},
		{"valueSources", "with a number", numbers},
		{"redefinedSources", "with named ranges", ranges},
		{"labels", "source labels", labels},
		{"rules", "rules", catalogue.rules.size()},
		{"cases", "cases", cases},
		{"alternatives", "alternatives", alternatives},
	};
}

std::string customer_text(const extmem_buffer_header &header)
{
	const std::string_view text(header.cus_version, sizeof header.cus_version);
	return std::string(text.substr(0, text.find('\0')));
}

struct NamedVersion {
	const char *key;
	const char *name;
	vexil_version extmem_buffer_header::*version;
};
constexpr NamedVersion kVersions[] = {
	{"total", "map", &extmem_buffer_header::total_version},
	{"hardware", "hardware registers", &extmem_buffer_header::hw_json_version},
	{"software", "software registers", &extmem_buffer_header::sw_json_version},
	{"customer", "customer registers", &extmem_buffer_header::cus_sw_json_version},
	{"rules", "rule list", &extmem_buffer_header::rl_json_version},
	{"code", "image format", &extmem_buffer_header::codeVersion},
};

const char *kind_name(ImageKind kind)
{
	return kind == ImageKind::kMap ? "PIM image" : "rule image";
}

void print_json(const ImageFile &image, size_t size, const std::vector<Count> &counts)
{
	OutputJson versions;
	for (const NamedVersion &row : kVersions)
		versions[row.key] = version_text(image.header.*row.version);
	OutputJson output = {
		{"file", image.path},
		{"kind", image.kind == ImageKind::kMap ? "pim" : "rule"},
		{"bytes", size},
		{"versions", versions},
		{"customerText", customer_text(image.header)},
		{"chipId", image.header.chipID},
		{"nodes", {{"used", image.nodes()}, {"limit", kMostNodes}}},
		{"nodeBytes",
		 {{"used", image.node_bytes_used}, {"capacity", image.node_bytes_max}}},
		{"dataBytes",
		 {{"used", image.data_bytes_used}, {"capacity", image.data_bytes_max}}},
	};
	for (const Count &count : counts)
		output["counts"][count.key] = count.value;
	print(output);
}

void print_text(const ImageFile &image, size_t size, const std::vector<Count> &counts)
{
	static constexpr int kNameWidth = 22;
	const auto line = [](const std::string &name, const std::string &value) {
		fmt::print("  {:<{}}{}\n", name, kNameWidth, value);
	};
	const auto use = [](u64 used, u64 all) {
		return fmt::format("{} of {}", grouped(used), grouped(all));
	};
	fmt::print("{}: {}, {} bytes\n", printable(image.path), kind_name(image.kind),
		   grouped(size));
	fmt::print("\nversions\n");
	for (const NamedVersion &row : kVersions)
		line(row.name, version_text(image.header.*row.version));
	line("customer text", printable(customer_text(image.header)));
	line("chip id", std::to_string(image.header.chipID));
	fmt::print("\nroom\n");
	line("nodes", use(image.nodes(), kMostNodes));
	line("node bytes", use(image.node_bytes_used, image.node_bytes_max));
	line("data bytes", use(image.data_bytes_used, image.data_bytes_max));
	fmt::print("\ncontent\n");
	for (const Count &count : counts)
		line(count.name, grouped(count.value));
}

void run_info(const Options &options)
{
	Console console;
	const ImageFile image = read_image(options.image, options.opening, console);
	const size_t size = image.bytes.size();
	std::vector<Count> counts;
	bool damaged = false;
	ImageFile whole = image;
	if (image.kind == ImageKind::kMap) {
		const Map map = open_map(std::move(whole), {}, console);
		const Catalogue catalogue(map);
		damaged = catalogue.damaged;
		counts = counts_of(catalogue);
	} else {
		const Rules rules = open_rules(std::move(whole));
		const RuleCatalogue catalogue(rules);
		damaged = catalogue.damaged;
		counts = counts_of(catalogue);
	}
	if (damaged)
		console.warn(options.image, "its tree is damaged; what is counted may be wrong");
	if (options.json)
		print_json(image, size, counts);
	else
		print_text(image, size, counts);
}

} // namespace

void add_info(CLI::App &app)
{
	const auto options = std::make_shared<Options>();
	CLI::App *info =
		app.add_subcommand("info", "Show what an image is: kind, versions, sizes, counts");
	info->add_option("IMAGE", options->image, "PIM image or rule image")->required();
	info->add_flag("--json", options->json, "Print JSON");
	add_image_options(*info, options->opening);
	info->footer(R"(
Examples:
  vexil info tv.pim
  vexil info tv.rule
  vexil info tv.pim --json)");
	info->callback([options] { run_info(*options); });
}

} // namespace vexil_tool
