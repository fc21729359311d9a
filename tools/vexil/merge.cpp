// SPDX-License-Identifier: MIT
//
// vexil merge: one map over another, and their rules.

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "commands.h"
#include "console.h"
#include "errors.h"
#include "image_file.h"
#include "library_log.h"
#include "output_file.h"
#include "rule_catalogue.h"
#include "session.h"
#include "text.h"

namespace vexil_tool {

namespace {

struct Options {
	std::string base;
	std::string sub;
	std::string output;
	std::vector<std::string> rules; // none, or base and sub
	std::string rules_output;
	ImageOptions opening;
};

std::string cause_of(extmem_err_code error)
{
	switch (error) {
	case EXTMEM_OUT_OF_RANGE:
		return fmt::format("both together need more than {} nodes", grouped(kMostNodes));
	case EXTMEM_NOMEM:
		return "out of memory";
	case EXTMEM_SUCCESS:
		return "names of the result cannot be indexed";
	default:
		return "was refused by the library";
	}
}

/** Rules that are merged must have been compiled for keys that are laid out alike. */
void check_sources(const Options &options, const RuleCatalogue &base, const RuleCatalogue &sub)
{
	const auto refuse_sources = [&](const std::string &cause) {
		refuse(fmt::format("{} over {}", options.rules[1], options.rules[0]),
		       "their sources differ: " + cause);
	};
	std::map<std::string, std::pair<source_desc, u64>> known;
	for (const SourceInfo &source : base.sources) {
		for (const LabelInfo &label : source.labels)
			known.emplace(lowered(label.text), std::pair(label.field, source.slot));
	}
	for (const SourceInfo &source : sub.sources) {
		for (const LabelInfo &label : source.labels) {
			const auto found = known.find(lowered(label.text));
			if (found == known.end()) {
				if (source.kind == SourceKind::kRanges)
					continue; // it has no place in the key
				refuse_sources(fmt::format("'{}' is not in {}", label.text,
							   options.rules[0]));
			}
			const auto &[field, slot] = found->second;
			if (field.shift != label.field.shift || field.width != label.field.width ||
			    field.rank != label.field.rank || slot != source.slot)
				refuse_sources(fmt::format("'{}' has another place in the key",
							   label.text));
		}
	}
	if (base.key_words() != sub.key_words())
		refuse_sources(fmt::format("keys of {} and {} bits", base.key_bits, sub.key_bits));
}

/** The rules for a merged map, from those of both maps that it was merged from. */
Rules merge_rules(const Options &options, const Map &base_map, const Map &sub_map,
		  const Map &merged_map, Console &console)
{
	const Rules base = open_rules(read_image(options.rules[0], options.opening, console));
	const Rules sub = open_rules(read_image(options.rules[1], options.opening, console));
	const RuleCatalogue base_rules(base);
	const RuleCatalogue sub_rules(sub);
	check_fit(base, base_rules, options.rules[0], base_map, options.base, console);
	check_fit(sub, sub_rules, options.rules[1], sub_map, options.sub, console);
	check_sources(options, base_rules, sub_rules);
	LibraryLog log;
	extmem_err_code error = EXTMEM_SUCCESS;
	std::optional<Rules> merged = Rules::merge(base, sub, merged_map, &error);
	log.warn_all(console, options.rules[1]);
	const std::string both = fmt::format("{} over {}", options.rules[1], options.rules[0]);
	if (!merged)
		refuse(both, cause_of(error));
	check_fit(*merged, RuleCatalogue(*merged), both, merged_map,
		  fmt::format("{} over {}", options.sub, options.base), console);
	return std::move(*merged);
}

/** The rule images beside both maps, when both are there; says what it found. */
std::vector<std::string> rules_beside_both(const Options &options)
{
	std::error_code ignored;
	const std::string base = rules_beside(options.base);
	const std::string sub = rules_beside(options.sub);
	const bool has_base = base != options.base && std::filesystem::exists(base, ignored);
	const bool has_sub = sub != options.sub && std::filesystem::exists(sub, ignored);
	if (has_base && has_sub) {
		fmt::print("with the rules beside them: {} over {}\n", printable(sub),
			   printable(base));
		return {base, sub};
	}
	if (has_base || has_sub)
		fmt::print("without rules: {} has none beside it (--rules BASE SUB)\n",
			   printable(has_base ? options.sub : options.base));
	return {};
}

void print_figures(const std::string &path, size_t nodes, size_t bytes)
{
	fmt::print("{}: {} of {} nodes, {} bytes\n", printable(path), grouped(nodes),
		   grouped(kMostNodes), grouped(bytes));
}

/** Outputs may take the place of inputs, but of their own kind only. */
void check_inputs(const Options &options, const std::string &rules_path)
{
	const auto refuse_kind = [](const std::string &path, const char *is, const char *becomes) {
		refuse_usage(
			fmt::format("{} is {} that is merged and would become {} (see 'vexil merge "
				    "--help')",
				    path, is, becomes));
	};
	for (const std::string *map : {&options.base, &options.sub}) {
		if (is_same_file(*map, rules_path))
			refuse_kind(*map, "a PIM image", "a rule image");
	}
	for (const std::string &rules : options.rules) {
		if (is_same_file(rules, options.output))
			refuse_kind(rules, "a rule image", "a PIM image");
	}
}

void run_merge(Options options)
{
	Console console;
	const Map base = open_map(options.base, options.opening, console);
	const Map sub = open_map(options.sub, options.opening, console);
	LibraryLog log;
	extmem_err_code error = EXTMEM_SUCCESS;
	std::optional<Map> merged = Map::merge(base, sub, &error);
	log.warn_all(console, options.sub);
	if (!merged)
		refuse(fmt::format("{} over {}", options.sub, options.base), cause_of(error));
	std::vector<Output> outputs = {{options.output, merged->exported()}};
	if (outputs[0].bytes.empty())
		refuse(options.sub, "the merged map is too large for an image");
	if (options.rules.empty())
		options.rules = rules_beside_both(options);
	if (options.rules.empty() && !options.rules_output.empty())
		refuse_usage(
			"--rules-out, but there are no rules (--rules BASE SUB; see 'vexil merge "
			"--help')");
	const bool beside_device = options.rules_output.empty() && is_device(options.output);
	std::optional<Rules> rules;
	if (!options.rules.empty()) {
		const std::string path = options.rules_output.empty() ? rules_beside(options.output)
								      : options.rules_output;
		check_outputs(options.output, path, "merge");
		check_inputs(options, path);
		rules.emplace(merge_rules(options, base, sub, *merged, console));
		if (!beside_device)
			outputs.push_back({path, rules->exported()});
		if (outputs.back().bytes.empty())
			refuse(options.rules[1], "the merged rules are too large for an image");
	}
	write_outputs(outputs);
	print_figures(options.output, merged->nodes_used(), outputs[0].bytes.size());
	if (outputs.size() > 1)
		print_figures(outputs[1].path, rules->nodes_used(), outputs[1].bytes.size());
	else if (rules)
		say_rules_not_written(options.output);
	warn_of_older_rules(outputs);
}

} // namespace

void add_merge(CLI::App &app)
{
	const auto options = std::make_shared<Options>();
	CLI::App *merge =
		app.add_subcommand("merge", "Merge one PIM image over another, and their rules");
	merge->add_option("BASE", options->base,
			  "PIM image that is kept where the other has nothing")
		->required();
	merge->add_option("SUB", options->sub, "PIM image whose IPs and files win")->required();
	merge->add_option("-o,--output", options->output, "PIM image to write; may be BASE or SUB")
		->required();
	merge->add_option("--rules", options->rules, "Rule images of BASE and SUB")
		->expected(2)
		->type_name("BASE SUB");
	merge->add_option("--rules-out", options->rules_output,
			  "Rule image to write; otherwise -o with the suffix .rule")
		->type_name("FILE");
	add_image_options(*merge, options->opening);
	merge->footer(R"(
An IP or file of SUB replaces the whole IP or file of the same name; others are added.
Versions and the customer text of the map are those of BASE. Rules are merged as well when
they are named, or stand beside both images with the suffix .rule; each must have been
built with its own map. The rules and sources of BASE win, and its rule list's version;
version and customer text of the rule image are those of SUB. Both images are complete
before either is replaced.

Examples:
  vexil merge tv.pim customer.pim -o shop.pim
  vexil merge tv.pim customer.pim --rules tv.rule customer.rule -o shop.pim)");
	merge->callback([options] { run_merge(*options); });
}

} // namespace vexil_tool
