// SPDX-License-Identifier: MIT

#include "session.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "errors.h"
#include "names.h"
#include "numbers.h"
#include "text.h"
#include "walk.h"

namespace vexil_tool {

namespace {

constexpr size_t kLongestToken = 127;
constexpr size_t kMostRules = 128; // in a list

/** Tokens of a ";" list without what @dropped holds; empty ones left out. */
std::vector<std::string> tokens_of(const std::string &list, std::string_view dropped)
{
	std::vector<std::string> tokens(1);
	for (const char c : list) {
		if (c == ';')
			tokens.emplace_back();
		else if (dropped.find(c) == std::string_view::npos)
			tokens.back() += c;
	}
	std::erase(tokens, "");
	return tokens;
}

std::string source_of(const std::string &token)
{
	return token.substr(0, token.find(':'));
}

/** Texts of the labels of one source, or nothing. */
std::vector<std::string> labels_of(const RuleCatalogue &catalogue, const std::string &source)
{
	std::vector<std::string> texts;
	for (const SourceInfo &info : catalogue.sources) {
		if (lowered(info.name) != lowered(source))
			continue;
		for (const LabelInfo &label : info.labels)
			texts.push_back(label.text);
	}
	return texts;
}

void check_ids(const RuleCatalogue &catalogue, const std::string &rules_path, const Map &map,
	       const std::string &map_path)
{
	const auto refuse_id = [&](const RuleInfo &rule, size_t number, const char *what, u16 id) {
		refuse(rules_path,
		       fmt::format(
			       "rule \"{}\", case {} selects {} {}, which {} does not have: the "
			       "rules were built for another map, or are damaged",
			       rule.name, number, what, id, map_path));
	};
	for (const RuleInfo &rule : catalogue.rules) {
		for (size_t i = 0; i < rule.cases.size(); ++i) {
			for (const OutcomeInfo &outcome : rule.cases[i].outcomes) {
				for (const u16 id : outcome.ids) {
					if (outcome.tag == EXTMEM_TAG_VALUE_HOLDER &&
					    !map.is_setting(id))
						refuse_id(rule, i + 1, "setting", id);
					if (outcome.tag == EXTMEM_TAG_PRESET_HOLDER &&
					    !map.is_preset(id))
						refuse_id(rule, i + 1, "preset", id);
				}
			}
		}
	}
}

std::string version_with(const vexil_version &version, const std::string &customer_text)
{
	return version_text(version) +
	       (customer_text.empty() ? "" : fmt::format(" '{}'", customer_text));
}

/** Rules have the version and text of the map from their first rule on. */
void check_versions(const Rules &rules, const RuleCatalogue &catalogue,
		    const std::string &rules_path, const Map &map, const std::string &map_path,
		    Console &console)
{
	if (catalogue.rules.empty() || rules.are_merged())
		return;
	const std::string wanted = version_with(rules.map_version(), rules.map_customer_text());
	const std::string present = version_with(map.version(), map.customer_text());
	if (wanted != present)
		console.warn(rules_path, fmt::format("was built for a map of version {}; {} is {}: "
						     "it may select other settings than it should",
						     wanted, map_path, present));
}

} // namespace

void check_fit(const Rules &rules, const RuleCatalogue &catalogue, const std::string &rules_path,
	       const Map &map, const std::string &map_path, Console &console)
{
	if (catalogue.damaged)
		refuse(rules_path, "its tree is damaged");
	check_ids(catalogue, rules_path, map, map_path);
	check_versions(rules, catalogue, rules_path, map, map_path, console);
}

void add_state_options(CLI::App &command, StateOptions &options)
{
	options.command = command.get_name();
	command.add_option("PIM", options.map, "PIM image")->required();
	command.add_option(
		       "RULE", options.rules,
		       "Rule image that was built or merged with it; warned about when version or "
		       "customer text differ, except in merged rules, which have those of the sub")
		->required();
	command.add_option("--set", options.sets,
			   "Sources, as \"Input:HDMI1;Luma:812\"; may be given again")
		->type_name("SOURCES")
		->allow_extra_args(false);
	command.add_option("--rule", options.wanted,
			   "Rules to evaluate, as \"A;B\"; without it, all. A '-' anywhere, as in "
			   "\"A;-B\", excludes all that are named: every rule but A and B")
		->type_name("RULES")
		->allow_extra_args(false);
	add_image_options(command, options.opening);
}

Session::Session(const StateOptions &options, std::vector<ST_PQ_REG_INFO> table, Console &console)
    : options_(options), console_(console),
      map_(open_map(read_image(options.map, options.opening, console), std::move(table), console)),
      content_(map_), rules_(open_rules(read_image(options.rules, options.opening, console))),
      catalogue_(rules_)
{
	if (content_.damaged)
		refuse(options.map, "its tree is damaged");
	check_fit(rules_, catalogue_, options.rules, map_, options.map, console);
}

/** The library would pass over what it does not know, and take for 0 what is no number. */
void Session::check_statement(const std::string &token) const
{
	const auto refuse_token = [&](const std::string &cause) {
		refuse(options_.rules, fmt::format("--set '{}': {}", shortened(token), cause));
	};
	if (token.size() > kLongestToken)
		refuse_token(fmt::format("is longer than {} characters", kLongestToken));
	const auto find = [&](const std::string &text, const LabelInfo **label) {
		for (const SourceInfo &source : catalogue_.sources) {
			for (const LabelInfo &info : source.labels) {
				*label = &info;
				if (lowered(info.text) == lowered(text))
					return &source;
			}
		}
		return static_cast<const SourceInfo *>(nullptr);
	};
	const LabelInfo *label = nullptr;
	const std::string name = source_of(token);
	if (const SourceInfo *source = find(token, &label)) {
		if (source->kind == SourceKind::kNumber)
			refuse_token(fmt::format("needs a number, as '{}:100'", token));
		if (source->kind == SourceKind::kRanges) {
			std::vector<std::string> numbers;
			for (const RangeInfo &range : label->ranges) {
				if (const SourceInfo *of = catalogue_.source_of_slot(range.slot))
					numbers.push_back(of->name);
			}
			refuse_token(fmt::format("is a name for ranges and cannot be set; set {}",
						 joined(numbers)));
		}
		return;
	}
	const SourceInfo *source = name == token ? nullptr : find(name, &label);
	if (source && source->kind == SourceKind::kNumber) {
		u64 number = 0;
		const std::string text = token.substr(name.size() + 1);
		if (!read_number(text, &number))
			refuse_token(fmt::format("'{}' is not a number", shortened(text)));
		return;
	}
	const std::vector<std::string> known = labels_of(catalogue_, name);
	if (known.empty()) {
		std::vector<std::string> names;
		for (const SourceInfo &info : catalogue_.sources)
			names.push_back(info.name);
		refuse_token(fmt::format("there is no source '{}'{}", shortened(name),
					 similar_hint(name, names)));
	}
	if (name == token)
		refuse_token(fmt::format("needs a value, as '{}'", known.front()));
	refuse_token(
		fmt::format("source '{}' has no such value{}", name, label_hint(token, known)));
}

void Session::find_wanted()
{
	for (const std::string &list : options_.wanted)
		rule_list_ += (rule_list_.empty() ? "" : ";") + list;
	const bool exclude = rule_list_.find('-') != std::string::npos;
	std::vector<u16> named;
	for (const std::string &name : tokens_of(rule_list_, " -")) {
		const u16 id = rules_.rule_id(name);
		if (id == VEXIL_NO_ID)
			refuse(options_.rules,
			       fmt::format("there is no rule '{}'{}", shortened(name),
					   similar_hint(name, catalogue_.rule_names())));
		named.push_back(id);
	}
	if (!options_.wanted.empty() && named.empty())
		refuse_usage(fmt::format("--rule names no rule (see 'vexil {} --help')",
					 options_.command));
	if (named.size() > kMostRules)
		refuse_usage(fmt::format("--rule names {} rules; at most {} can be listed (see "
					 "'vexil {} --help')",
					 named.size(), kMostRules, options_.command));
	if (!named.empty() && !exclude) {
		wanted_ = named;
		return;
	}
	for (const RuleInfo &rule : catalogue_.rules) {
		if (!rule.hidden && std::find(named.begin(), named.end(), rule.id) == named.end())
			wanted_.push_back(rule.id);
	}
}

std::string Session::why_it_ended(u16 rule) const
{
	const Walk walk(catalogue_, evaluation_->state(), {rule});
	return walk.stopped().empty() ? kTooManyRules : walk.stopped();
}

void Session::refuse_evaluation()
{
	constexpr std::string_view kRule = "Error while searching rule node ";
	const std::vector<std::string> log = log_.take();
	std::string cause = "the rules cannot be evaluated";
	std::string reason;
	u64 id = VEXIL_NO_ID; // of the rule that was asked for, which is said last
	const std::string last = log.empty() ? "" : std::string(message_of(log.back()));
	if (!last.starts_with(kRule) || !read_number(last.substr(kRule.size()), &id))
		id = VEXIL_NO_ID;
	for (const std::string &line : log) {
		const std::string message(message_of(line));
		if (message.starts_with(kRule))
			cause = fmt::format("rule \"{}\" cannot be evaluated",
					    catalogue_.rule_name(static_cast<u16>(id)));
		else if (message.starts_with("Internal error, invalid NODEID"))
			reason = ": " + why_it_ended(static_cast<u16>(id));
		else if (message.starts_with("Data length check failed"))
			reason = ": its conditions are not as long as the key";
		else
			reason = ": " + message;
	}
	refuse(options_.rules, cause + reason);
}

void Session::set()
{
	find_wanted();
	evaluation_ = std::make_unique<Evaluation>(rules_);
	for (const std::string &filter : options_.sets) {
		for (const std::string &token : tokens_of(filter, " "))
			check_statement(token);
		if (evaluation_->set(filter))
			continue;
		std::string cause = "was refused by the library";
		for (const std::string &line : log_.take())
			cause += fmt::format(": {}", message_of(line));
		refuse(options_.rules, fmt::format("--set '{}': {}", shortened(filter), cause));
	}
}

void Session::trigger()
{
	if (!evaluation_->trigger(options_.wanted.empty() ? nullptr : &rule_list_))
		refuse_evaluation();
	for (const std::string &line : log_.take())
		console_.warn(options_.rules, std::string(message_of(line)));
	settings_ = evaluation_->settings();
	presets_ = evaluation_->presets();
}

} // namespace vexil_tool
