// SPDX-License-Identifier: MIT
//
// vexil explain: which case of each rule matched, and why those before it did not.

#include <algorithm>
#include <map>
#include <memory>

#include <fmt/format.h>

#include "commands.h"
#include "console.h"
#include "errors.h"
#include "json_input.h"
#include "json_output.h"
#include "names.h"
#include "product.h"
#include "register_names.h"
#include "session.h"
#include "text.h"
#include "walk.h"

namespace vexil_tool {

namespace {

constexpr size_t kDeepestIndent = 24;
constexpr size_t kMostWanted = 16; // values in a line of text

struct Options {
	StateOptions state;
	NameSources names; // only the product is of use
	u32 budget = 0;
	bool unused = false;
	bool json = false;
};

/** What 'run' takes besides: a command may be run first, and then explained as it stands. */
void add_options_of_run(CLI::App &explain, Options &options)
{
	constexpr const char *kGroup = "As for 'run', without effect: nothing is loaded here";
	explain.add_option("--budget", options.budget)->type_name("N")->group(kGroup);
	for (const auto &[name, files] : {std::pair("--hw", &options.names.hardware),
					  std::pair("--sw", &options.names.software),
					  std::pair("--cus", &options.names.customer)})
		explain.add_option(name, *files)->type_name("FILE")->group(kGroup);
	explain.add_option("--reginfo", options.names.register_info)
		->type_name("FILE")
		->group(kGroup);
	for (const char *name : {"--address", "--common", "--brief"})
		explain.add_flag(name, options.unused)->group(kGroup);
}

/** What a document says of a rule, and what tells that rule from others of its name. */
struct Description {
	std::string text;
	vexil_version version;
	size_t cases;

	[[nodiscard]] bool is_of(const RuleInfo &rule) const
	{
		return cases == rule.cases.size() &&
		       version_text(version) == version_text(rule.version);
	}
};
using Descriptions = std::multimap<std::string, Description>; // by name in lower case

Descriptions read_descriptions(const std::string &product_path, Console &console)
{
	Descriptions texts;
	if (product_path.empty())
		return texts;
	const Product product = read_product(product_path, console);
	for (const std::string &path : product.rules) {
		const Json document = read_json(path, Root::kObject, console);
		const cJSON *groups = vexil::member(document.get(), "PqRuleGroups");
		for (const cJSON *group : vexil::items(groups)) {
			const char *text = vexil::text_of(vexil::member(group, "0.Description"));
			if (!group->string || !text)
				continue;
			Description description{text, {}, 0};
			if (const cJSON *version = vexil::member(group, "#version"))
				__rm_get_version(const_cast<cJSON *>(version),
						 &description.version);
			for ([[maybe_unused]] const cJSON *entry :
			     vexil::items(vexil::member(group, "rules")))
				++description.cases;
			texts.emplace(lowered(group->string), description);
		}
	}
	return texts;
}

const std::string *description_of(const RuleInfo &rule, const Descriptions &descriptions)
{
	const auto [begin, end] = descriptions.equal_range(lowered(rule.name));
	for (auto at = begin; at != end; ++at) {
		if (at->second.is_of(rule))
			return &at->second.text;
	}
	return nullptr;
}

/** The library has the last word about what is selected. */
void compare(const Walk &walk, const Session &session)
{
	if (!walk.stopped().empty() || walk.settings() != session.settings() ||
	    walk.presets() != session.presets())
		throw Failure(Exit::kRefused,
			      "internal disagreement: the explanation selects other settings than "
			      "the library");
}

/** "A, B or C". */
std::string any_of(const std::vector<std::string> &texts)
{
	std::string line;
	const size_t shown = texts.size() > kMostWanted ? kMostWanted - 1 : texts.size();
	for (size_t i = 0; i < shown; ++i) {
		const bool last = i + 1 == texts.size();
		line += fmt::format("{}{}", i == 0 ? "" : last ? " or " : ", ", texts[i]);
	}
	if (shown < texts.size())
		line += fmt::format(" or one of {} more", texts.size() - shown);
	return line;
}

std::vector<std::string> selected(const CaseInfo &entry, int tag, const Session &session)
{
	std::vector<std::string> labels;
	for (const OutcomeInfo &outcome : entry.outcomes) {
		if (outcome.tag != tag)
			continue;
		for (const u16 id : outcome.ids)
			labels.push_back(tag == EXTMEM_TAG_NODE_HOLDER
						 ? session.rules().rule_name(id)
						 : session.label(id));
	}
	return labels;
}

/** What would have done, each text once. */
std::vector<std::string> wanted_texts(const Failing &failing)
{
	std::vector<std::string> texts;
	for (const std::vector<Condition> &all : failing.wanted) {
		std::string text;
		for (const Condition &condition : all)
			text += (text.empty() ? "" : " and ") + wanted_text(condition);
		texts.push_back(text);
	}
	return texts;
}

std::string failing_text(const Failing &failing)
{
	if (failing.wanted.empty())
		return "has no alternative and never matches";
	return fmt::format("fails: {} is {}, wanted {}", failing.source,
			   present_text(failing.wanted.front().front()),
			   any_of(wanted_texts(failing)));
}

std::string matching_text(const std::vector<Condition> &conditions)
{
	if (conditions.empty())
		return "matches: it has no conditions";
	std::string text;
	for (const Condition &condition : conditions) {
		text += fmt::format("{}{} is ", text.empty() ? "matches: " : ", ",
				    condition.source);
		text += condition.is_number ? fmt::format("{}, within {}", number_text(condition),
							  wanted_text(condition))
					    : condition.present_value;
	}
	return text;
}

void print_line(size_t depth, const std::string &text)
{
	fmt::print("{:{}}{}\n", "", 2 * std::min(depth, kDeepestIndent), printable(text));
}

void print_entry(const Entry &entry, const Session &session, const Descriptions &descriptions)
{
	const Answer &answer = *entry.answer;
	const size_t cases = answer.rule->cases.size();
	std::string head = fmt::format("{}: ", answer.rule->name);
	head += answer.matched ? fmt::format("case {} of {}", answer.number, cases)
			       : fmt::format("none of {}", counted(cases, "case"));
	if (entry.repeated)
		return print_line(entry.depth, head + ", as above");
	if (const std::string *text = description_of(*answer.rule, descriptions))
		head += fmt::format("  ({})", *text);
	print_line(entry.depth, head);
	for (size_t i = 0; i < answer.failed.size(); ++i)
		print_line(entry.depth + 1,
			   fmt::format("case {} {}", i + 1, failing_text(answer.failed[i])));
	if (!answer.matched)
		return;
	print_line(entry.depth + 1,
		   fmt::format("case {} {}", answer.number, matching_text(answer.conditions)));
	static constexpr std::pair<int, const char *> kOutcomes[] = {
		{EXTMEM_TAG_VALUE_HOLDER, "selects"},
		{EXTMEM_TAG_PRESET_HOLDER, "presets"},
		{EXTMEM_TAG_NODE_HOLDER, "leads to"},
	};
	for (const auto &[tag, verb] : kOutcomes) {
		const std::vector<std::string> labels = selected(*answer.matched, tag, session);
		if (!labels.empty())
			print_line(entry.depth + 2, fmt::format("{} {}", verb, joined(labels)));
	}
}

/** A value, a number or null; a number that is not set counts as 0. */
void put_present(OutputJson &output, const Condition &condition)
{
	if (condition.is_number) {
		output["present"] = condition.number;
		output["set"] = condition.is_set;
	} else {
		output["present"] = condition.is_set ? OutputJson(condition.present_value)
						     : OutputJson(nullptr);
	}
}

OutputJson wanted_json(const Condition &condition)
{
	if (!condition.is_number)
		return {{"value", condition.wanted_value}};
	OutputJson output = {{"first", condition.first}, {"last", condition.last}};
	if (!condition.wanted_names.empty())
		output["names"] = condition.wanted_names;
	return output;
}

OutputJson entry_json(const Entry &entry, const Session &session, const Descriptions &descriptions)
{
	const Answer &answer = *entry.answer;
	OutputJson output = {
		{"rule", answer.rule->name},
		{"id", answer.rule->id},
		{"depth", entry.depth},
		{"cases", answer.rule->cases.size()},
		{"matched", answer.matched ? OutputJson(answer.number) : OutputJson(nullptr)},
	};
	if (entry.repeated) {
		output["repeated"] = true;
		return output;
	}
	if (const std::string *text = description_of(*answer.rule, descriptions))
		output["description"] = *text;
	OutputJson failed = OutputJson::array();
	for (size_t i = 0; i < answer.failed.size(); ++i) {
		const Failing &failing = answer.failed[i];
		OutputJson reason = {{"case", i + 1}};
		if (!failing.wanted.empty())
			reason["source"] = failing.source;
		OutputJson wanted = OutputJson::array();
		for (const std::vector<Condition> &all : failing.wanted) {
			for (const Condition &condition : all)
				put_present(reason, condition);
			if (all.size() == 1) {
				wanted.push_back(wanted_json(all.front()));
				continue;
			}
			OutputJson together = OutputJson::array();
			for (const Condition &condition : all)
				together.push_back(wanted_json(condition));
			wanted.push_back({{"all", together}});
		}
		reason["wanted"] = wanted;
		failed.push_back(reason);
	}
	output["failed"] = failed;
	if (!answer.matched)
		return output;
	OutputJson conditions = OutputJson::array();
	for (const Condition &condition : answer.conditions) {
		OutputJson entry_of = {{"source", condition.source}};
		put_present(entry_of, condition);
		entry_of["wanted"] = wanted_json(condition);
		conditions.push_back(entry_of);
	}
	output["conditions"] = conditions;
	output["settings"] = selected(*answer.matched, EXTMEM_TAG_VALUE_HOLDER, session);
	output["presets"] = selected(*answer.matched, EXTMEM_TAG_PRESET_HOLDER, session);
	output["leadsTo"] = selected(*answer.matched, EXTMEM_TAG_NODE_HOLDER, session);
	return output;
}

void run_explain(const Options &options)
{
	Console console;
	const Descriptions descriptions = read_descriptions(options.names.product, console);
	Session session(options.state, {}, console);
	session.set();
	const Walk walk(session.rules(), session.state(), session.wanted());
	// All there is, also when evaluation ends early: the reason stands last.
	if (options.json) {
		OutputJson rules = OutputJson::array();
		for (const Entry &entry : walk.entries())
			rules.push_back(entry_json(entry, session, descriptions));
		OutputJson output = {{"image", options.state.map},
				     {"ruleImage", options.state.rules},
				     {"rules", rules}};
		if (!walk.stopped().empty())
			output["stopped"] = walk.stopped();
		print(output);
	} else {
		for (const Entry &entry : walk.entries())
			print_entry(entry, session, descriptions);
	}
	session.trigger();
	compare(walk, session);
}

} // namespace

void add_explain(CLI::App &app)
{
	const auto options = std::make_shared<Options>();
	CLI::App *explain = app.add_subcommand(
		"explain", "Say which case of each rule matches, and why those before it do not");
	add_state_options(*explain, options->state);
	explain->add_option("--product", options->names.product,
			    "Manifest or folder: what its documents say of each rule")
		->type_name("PRODUCT");
	explain->add_flag("--json", options->json, "Print JSON");
	add_options_of_run(*explain, *options);
	explain->footer(R"(
The first case of a rule whose conditions all hold decides. For the cases before it, the
first source that fails is shown: its present value, and what was wanted of it. Sources with
named values are compared first, in the order of their declaration, then numbers. Rules that
a case leads to stand indented below it; a rule is explained once.

Examples:
  vexil explain tv.pim tv.rule --rule DynContrast --set "HdrType:Hdr10;UserContrast:High"
  vexil explain tv.pim tv.rule --set "Input:HDMI1;Luma:812" --product examples/tv)");
	explain->callback([options] { run_explain(*options); });
}

} // namespace vexil_tool
