// SPDX-License-Identifier: MIT
//
// A second evaluator, too simple to be wrong: sources and their values by name, cases as they stand
// in the document. No keys, no masks, no ids but those of the outcomes. And a generator of
// documents that both evaluators can read, and of calls to make on them, at random or as a script
// says.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/rm_ids.h"

namespace vexil_test::model {

using states::Ids;
using states::kPresetIds;
using states::kSettingIds;

inline constexpr size_t kLongestToken = 127; // characters, of a source filter
inline constexpr size_t kMostListed = 128;   // names of a rule list

inline std::string lower(std::string text)
{
	for (char &c : text)
		c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
	return text;
}

inline std::string without(const std::string &text, const std::string &dropped)
{
	std::string kept;
	for (const char c : text) {
		if (dropped.find(c) == std::string::npos)
			kept += c;
	}
	return kept;
}

inline std::vector<std::string> split(const std::string &list)
{
	std::vector<std::string> tokens(1);
	for (const char c : list) {
		if (c == ';')
			tokens.emplace_back();
		else
			tokens.back() += c;
	}
	return tokens;
}

/** A number as source filters write it; 0 for everything else. */
inline u64 number_of(std::string text)
{
	text.erase(0, !text.empty() && text[0] == '+');
	if (!text.empty() && text.back() == '\n')
		text.pop_back();
	const bool octal = text.size() > 1 && text[0] == '0';
	const bool hexadecimal = text.size() > 2 && octal && (text[1] == 'x' || text[1] == 'X');
	const char *const digits = hexadecimal ? "0123456789abcdefABCDEF"
				   : octal     ? "01234567"
					       : "0123456789";
	if (text.empty() ||
	    text.find_first_not_of(digits, hexadecimal ? 2 : 0) != std::string::npos)
		return 0;
	errno = 0;
	const u64 value = std::strtoull(text.c_str(), nullptr, 0);
	return errno == ERANGE ? 0 : value;
}

/** From @least to @most, both included. */
struct Range {
	std::string source;
	u64 least, most;
};

/** What one item of a comparator member asks for: a value of a source, or ranges. */
struct Condition {
	std::string source, value; // of an enumerated source; empty otherwise
	std::vector<Range> ranges;
};

struct Case {
	/** Per member one or more items, any of which will do; a later one on the same source wins.
	 */
	std::vector<std::vector<Condition>> members;
	Ids settings, presets;
	std::vector<std::string> children;
};

struct Rule {
	std::string name; // lower case
	std::vector<Case> cases;
	bool listed = true; // false: only other rules lead to it
};

enum class Kind { kEnumerated, kNumber, kRedefined };

struct Label {
	Kind kind;
	std::string source, value;
	std::vector<Range> ranges; // of a redefined one
};

/** A rule document as the simple evaluator holds it. */
struct Document {
	std::map<std::string, Label> labels; // "source:value", or the name of a value source
	std::vector<Rule> rules;

	[[nodiscard]] const Rule *find(const std::string &name) const
	{
		for (const Rule &rule : rules) {
			if (rule.name == name)
				return &rule;
		}
		return nullptr;
	}
};

/** The simple evaluator. */
class Model {
public:
	explicit Model(const Document &document) : document_(document) {}

	Ids settings, presets;

	void clear()
	{
		values_.clear();
		numbers_.clear();
	}
	bool set(const std::string &filter, u64 number)
	{
		for (const std::string &raw : split(filter)) {
			const std::string token = lower(without(raw, " "));
			if (token.size() > kLongestToken)
				return false;
			const Label *label = find_label(token);
			if (!label && token.find(':') != std::string::npos) {
				const size_t colon = token.find(':');
				number = number_of(token.substr(colon + 1));
				label = find_label(token.substr(0, colon));
			}
			if (!label)
				continue;
			if (label->kind == Kind::kRedefined)
				return false;
			if (label->kind == Kind::kNumber)
				numbers_[label->source] = number;
			else
				values_[label->source] = label->value;
		}
		return true;
	}
	bool trigger(const std::optional<std::string> &names)
	{
		settings.clear();
		presets.clear();
		std::vector<std::string> listed;
		bool all = !names;
		for (const std::string &raw : split(names.value_or(""))) {
			const std::string name = lower(without(raw, " -"));
			all |= raw.find('-') != std::string::npos;
			const Rule *rule = document_.find(name);
			if (rule && rule->listed && listed.size() < kMostListed)
				listed.push_back(name);
		}
		if (all) {
			for (const Rule &rule : document_.rules) {
				const bool excluded = std::find(listed.begin(), listed.end(),
								rule.name) != listed.end();
				if (rule.listed && !excluded && !evaluate(rule, {}))
					return false;
			}
			return true;
		}
		for (const std::string &name : listed) {
			if (!evaluate(*document_.find(name), {}))
				return false;
		}
		return true;
	}
	bool find(const std::string &filter, const std::optional<std::string> &name)
	{
		settings.clear();
		presets.clear();
		if (name) {
			const Rule *rule = document_.find(lower(*name));
			return rule && rule->listed && set(filter, 0) && evaluate(*rule, {});
		}
		for (const Rule &rule : document_.rules) {
			if (rule.listed && (!set(filter, 0) || !evaluate(rule, {})))
				return false;
		}
		return true;
	}

private:
	[[nodiscard]] const Label *find_label(const std::string &name) const
	{
		const auto found = document_.labels.find(name);
		return found == document_.labels.end() ? nullptr : &found->second;
	}
	/** Tries each choice of one item per member. */
	bool matches(const Case &each, size_t member, std::map<std::string, std::string> wanted,
		     std::vector<Range> ranges) const
	{
		if (member < each.members.size()) {
			for (const Condition &item : each.members[member]) {
				auto wanted_with = wanted;
				auto ranges_with = ranges;
				if (!item.value.empty())
					wanted_with[item.source] = item.value;
				ranges_with.insert(ranges_with.end(), item.ranges.begin(),
						   item.ranges.end());
				if (matches(each, member + 1, wanted_with, ranges_with))
					return true;
			}
			return false;
		}
		for (const auto &[source, value] : wanted) {
			const auto set = values_.find(source);
			if (set == values_.end() || set->second != value)
				return false;
		}
		for (const Range &range : ranges) {
			const auto set = numbers_.find(range.source);
			const u64 number = set == numbers_.end() ? 0 : set->second;
			if (number < range.least || number > range.most)
				return false;
		}
		return true;
	}
	bool evaluate(const Rule &rule, std::set<std::string> path)
	{
		path.insert(rule.name);
		for (const Case &each : rule.cases) {
			if (!matches(each, 0, {}, {}))
				continue;
			settings.insert(settings.end(), each.settings.begin(), each.settings.end());
			presets.insert(presets.end(), each.presets.begin(), each.presets.end());
			for (const std::string &child : each.children) {
				const Rule *next = document_.find(child);
				if (!next || path.count(child) != 0 || !evaluate(*next, path))
					return false;
			}
			return true;
		}
		return true;
	}

	const Document &document_;
	std::map<std::string, std::string> values_;
	std::map<std::string, u64> numbers_;
};

/** A call on an evaluation state. */
struct Call {
	enum Kind { kSet, kClear, kTrigger, kFind } kind;
	std::string filter;
	u64 number = 0;
	std::optional<std::string> names;

	[[nodiscard]] std::string text() const
	{
		const char *const kinds[] = {"set", "clear", "trigger", "find"};
		return std::string(kinds[kind]) + " '" + filter + "' " + std::to_string(number) +
		       " " + names.value_or("(every rule)");
	}
};

/** A choice: a number below @limit. */
using Choose = std::function<u64(u64 limit)>;

/** What a name among a case's "settings" stands for. */
struct Outcome {
	std::string name;
	u16 id;
	bool preset;
	bool known; // false: the case is not compiled
};
using ChooseOutcome = std::function<Outcome(const Choose &below)>;

/** "s7" or "p7". */
inline Outcome numbered_outcome(const Choose &below)
{
	const u64 number = below(200);
	const bool preset = below(3) == 0;
	return {(preset ? "p" : "s") + std::to_string(number),
		static_cast<u16>((preset ? kPresetIds : kSettingIds) + number), preset, true};
}

/** Documents and calls; the same for the same choices. */
class Generator {
public:
	/** At random; the same for the same seed and compiler. */
	explicit Generator(u64 seed)
	    : Generator([random = std::mt19937_64(seed)](
				u64 limit) mutable { return random() % limit; },
			numbered_outcome)
	{
	}
	Generator(Choose below, ChooseOutcome outcome)
	    : below_(std::move(below)), outcome_(std::move(outcome))
	{
		generate_sources();
		generate_rules(0);
	}
	/** Other rules over the sources of @sources, the first of them named "r" and @first_rule.
	 */
	Generator(const Generator &sources, Choose below, ChooseOutcome outcome, u64 first_rule)
	    : sources_json(sources.sources_json), below_(std::move(below)),
	      outcome_(std::move(outcome)), sources_(sources.sources_)
	{
		document.labels = sources.document.labels;
		generate_rules(first_rule);
	}

	Document document;
	std::string sources_json, rules_json; // members of the two documents' objects

	Call call(bool with_find)
	{
		const u64 kind = below(with_find ? 12 : 10);
		if (kind < 5)
			return {Call::kSet, filter(), below(16), {}};
		if (kind == 5 && below(3) == 0)
			return {Call::kClear, {}, 0, {}};
		if (kind < 10)
			return {Call::kTrigger,
				{},
				0,
				below(3) ? std::optional(rule_list()) : std::nullopt};
		return {Call::kFind, filter(), 0,
			below(3) ? std::optional(rule_name()) : std::nullopt};
	}

private:
	struct Source {
		Kind kind;
		std::string name; // as first written
		std::vector<std::string> values;
	};

	u64 below(u64 limit) { return below_(limit); }
	bool rarely() { return below(25) == 0; }

	/** The same name in other letters. */
	std::string shout(std::string text)
	{
		for (char &c : text) {
			if (c >= 'a' && c <= 'z' && below(4) == 0)
				c = static_cast<char>(c - 'a' + 'A');
		}
		return text;
	}
	std::string scatter_blanks(const std::string &text)
	{
		std::string blanked;
		for (const char c : text)
			blanked += below(12) ? std::string(1, c) : std::string(1, c) + " ";
		return blanked;
	}
	std::string number_text(u64 number)
	{
		char text[32];
		std::snprintf(text, sizeof text, below(2) ? "%llu" : "0x%llx",
			      static_cast<unsigned long long>(number));
		return text;
	}
	/** An interval text, and the same as a range. */
	std::string interval(const std::string &source, Range *range)
	{
		const u64 least = below(12), most = below(4) ? least + below(8) : below(12);
		const bool open = below(2), closed = below(2);
		*range = {source, least + (open ? 1 : 0), closed ? most : most ? most - 1 : 0};
		return scatter_blanks((open ? "(" : "[") + number_text(least) + "," +
				      number_text(most) + (closed ? "]" : ")"));
	}
	static void append(std::string &list, const std::string &item)
	{
		list += (list.empty() ? "" : ", ") + item;
	}
	static std::string text_item(const std::string &text) { return "'" + text + "'"; }

	void generate_sources()
	{
		const u64 enumerated = 1 + below(below(4) ? 6 : 40);
		const u64 numbers = below(5), redefined = numbers ? below(4) : 0;
		for (u64 i = 0; i < enumerated; ++i)
			sources_.push_back({Kind::kEnumerated, "e" + std::to_string(i), {}});
		for (u64 i = 0; i < numbers; ++i)
			sources_.push_back({Kind::kNumber, "n" + std::to_string(i), {}});
		for (u64 i = 0; i < redefined; ++i)
			sources_.push_back({Kind::kRedefined, "d" + std::to_string(i), {}});
		for (size_t i = sources_.size(); i > 1; --i)
			std::swap(sources_[i - 1], sources_[below(i)]);
		for (Source &source : sources_)
			declare(source, numbers);
	}
	void generate_rules(u64 first)
	{
		const u64 rules = 1 + below(10);
		for (u64 i = 0; i < rules; ++i)
			rule_names_.push_back("r" + std::to_string(first + i));
		for (const std::string &name : rule_names_)
			add_rule(name);
	}
	void declare(Source &source, u64 numbers)
	{
		if (source.kind == Kind::kNumber) {
			append(sources_json, text_item(shout(source.name)) + ": {'content': 1}");
			document.labels[source.name] = {Kind::kNumber, source.name, "", {}};
			return;
		}
		std::string content, define;
		const u64 values = 1 + below(source.kind == Kind::kEnumerated ? 20 : 4);
		for (u64 i = 0; i < values; ++i) {
			const std::string value = "v" + std::to_string(i);
			source.values.push_back(value);
			append(content, text_item(shout(value)));
			Label label{source.kind, source.name, value, {}};
			if (source.kind == Kind::kRedefined) {
				if (rarely())
					continue; // a value that nothing defines is no label
				std::string conditions;
				std::set<std::string> used;
				for (u64 left = 1 + below(2); left > 0; --left) {
					const std::string number =
						"n" + std::to_string(below(numbers));
					if (!used.insert(number).second)
						continue;
					Range range;
					const std::string text = interval(number, &range);
					append(conditions,
					       text_item(shout(number)) + ": " + text_item(text));
					label.ranges.push_back(range);
				}
				append(define, text_item(shout(value)) + ": {" + conditions + "}");
			}
			document.labels[source.name + ":" + value] = label;
		}
		append(sources_json,
		       text_item(shout(source.name)) + ": {" +
			       (source.kind == Kind::kRedefined ? "'define': {" + define + "}, "
								: "") +
			       "'content': [" + content + "]}");
	}
	/** False for a label that does not exist: the case is not compiled then. */
	bool condition(const std::string &label, std::vector<Condition> *items)
	{
		const auto found = document.labels.find(label);
		if (found == document.labels.end())
			return false;
		const Label &known = found->second;
		items->push_back({known.source, known.kind == Kind::kEnumerated ? known.value : "",
				  known.ranges});
		return true;
	}
	std::string pick(const std::vector<std::string> &from) { return from[below(from.size())]; }

	/** One member of a comparator on @source; false when it names what does not exist. */
	bool add_member(const Source &source, std::string &json, Case *made)
	{
		std::vector<Condition> items;
		bool known = true;
		std::string member;
		if (source.kind == Kind::kNumber) {
			Range range;
			member = text_item(shout(source.name)) + ": " +
				 text_item(interval(source.name, &range));
			items.push_back({source.name, "", {range}});
		} else if (below(4) == 0) {
			const std::string label = source.name + ":" + pick(source.values);
			member = text_item(shout(label)) + ": true";
			known = condition(label, &items);
		} else if (below(2) == 0) {
			const std::string value = rarely() ? "none" : pick(source.values);
			member = text_item(shout(source.name)) + ": " + text_item(shout(value));
			known = condition(source.name + ":" + value, &items);
		} else {
			std::string list;
			for (u64 left = rarely() ? 0 : 1 + below(4); left > 0; --left) {
				const std::string value = pick(source.values);
				append(list, text_item(shout(value)));
				known &= condition(source.name + ":" + value, &items);
			}
			member = text_item(shout(source.name)) + ": [" + list + "]";
		}
		append(json, member);
		made->members.push_back(items);
		return known;
	}
	void add_rule(const std::string &name)
	{
		Rule rule{name, {}};
		std::string cases;
		for (u64 left = below(5); left > 0; --left) {
			Case made;
			std::string comparator, settings, children;
			bool compiled = true;
			std::vector<Source> chosen = sources_;
			for (u64 members = below(4); members > 0 && !chosen.empty(); --members) {
				const size_t at = below(chosen.size());
				compiled &= add_member(chosen[at], comparator, &made);
				// The same source again, by its label: the later one counts.
				if (chosen[at].kind == Kind::kEnumerated && below(8) == 0) {
					const std::string label =
						chosen[at].name + ":" + pick(chosen[at].values);
					append(comparator, text_item(label) + ": 1");
					made.members.emplace_back();
					compiled &= condition(label, &made.members.back());
				}
				chosen.erase(chosen.begin() + static_cast<std::ptrdiff_t>(at));
			}
			for (u64 names = below(below(20) ? 4 : 40); names > 0; --names) {
				const Outcome outcome = outcome_(below_);
				append(settings, text_item(outcome.name));
				(outcome.preset ? made.presets : made.settings)
					.push_back(outcome.id);
				compiled &= outcome.known;
			}
			if (rarely()) {
				append(settings, text_item("unknown"));
				compiled = false;
			}
			for (u64 names = below(4) ? 0 : 1 + below(2); names > 0 && children_ < 60;
			     --names) {
				const std::string child = below(40) ? pick(rule_names_) : "missing";
				append(children, text_item(shout(child)));
				made.children.push_back(child);
				++children_;
			}
			std::string text = "'comparator': {" + comparator + "}";
			if (!settings.empty() || below(2))
				text += ", 'settings': [" + settings + "]";
			if (!children.empty() || below(2))
				text += ", 'children': [" + children + "]";
			append(cases, "{" + text + "}");
			if (compiled)
				rule.cases.push_back(made);
		}
		append(rules_json, text_item(shout(name)) + ": {'rules': [" + cases + "]}");
		document.rules.push_back(rule);
	}
	std::string token()
	{
		const Source &source = sources_[below(sources_.size())];
		if (rarely())
			return below(2) ? "nothing" : "nothing:" + number_text(below(16));
		switch (source.kind) {
		case Kind::kEnumerated:
			return source.name + ":" + (rarely() ? "none" : pick(source.values));
		case Kind::kNumber:
			return below(3) == 0 ? source.name
			       : rarely()    ? source.name + ":junk"
					     : source.name + ":" + number_text(below(16));
		case Kind::kRedefined:
			break;
		}
		return below(5) ? "" : source.name + ":" + pick(source.values);
	}
	std::string filter()
	{
		std::string text;
		for (u64 left = 1 + below(6); left > 0; --left)
			text += (text.empty() ? "" : ";") + scatter_blanks(shout(token()));
		return text;
	}
	std::string rule_name() { return rarely() ? "unknown" : shout(pick(rule_names_)); }
	std::string rule_list()
	{
		std::string text = below(4) ? "" : "-";
		for (u64 left = below(5); left > 0; --left)
			text += scatter_blanks(rule_name()) + (below(12) ? ";" : ";;") +
				(below(20) ? "" : "-");
		return text;
	}

	Choose below_;
	ChooseOutcome outcome_;
	std::vector<Source> sources_;
	std::vector<std::string> rule_names_;
	size_t children_ = 0; // references in the whole document; more than 64 may not wait at once
};

} // namespace vexil_test::model
