// SPDX-License-Identifier: MIT

#include "rule_build.h"

#include <algorithm>
#include <set>
#include <utility>

#include <fmt/format.h>

#include "core/json.h"
#include "errors.h"
#include "extmem/children.h"
#include "library.h"
#include "numbers.h"
#include "text.h"

namespace vexil_tool {

namespace {

constexpr const char *kSourcesKey = "PqRuleLists";
constexpr const char *kRulesKey = "PqRuleGroups";
constexpr size_t kLongestToken = 127; // of what can be set or asked for
constexpr u64 kMostAlternatives = 32767;
constexpr size_t kMostMembers = 128;
constexpr size_t kMostConditions = 32; // on value sources, and again on redefined ones

std::string name_of(const cJSON *item)
{
	return item->string ? item->string : "";
}

/** @group alone in a document of its own. The wrapper borrows it. */
class GroupDocument {
public:
	explicit GroupDocument(const cJSON *group) : group_(*group)
	{
		group_.next = nullptr;
		group_.prev = &group_;
		list_.type = cJSON_Object;
		list_.child = &group_;
		list_.string = key_.data();
		root_.type = cJSON_Object;
		root_.child = &list_;
	}
	GroupDocument(const GroupDocument &) = delete;
	GroupDocument &operator=(const GroupDocument &) = delete;

	[[nodiscard]] const cJSON *get() const { return &root_; }

private:
	std::string key_ = kRulesKey;
	cJSON group_;
	cJSON list_{};
	cJSON root_{};
};

/** What a complaint is about: what it begins with, and the name behind that. */
bool names(std::string_view message, std::string_view begin, std::string *name)
{
	if (!message.starts_with(begin))
		return false;
	*name = std::string(message.substr(begin.size()));
	return true;
}

std::string not_there(const cJSON *item, const char *key)
{
	return item ? fmt::format("\"{}\" is not an object", key)
		    : fmt::format("there is no \"{}\" in it", key);
}

bool has_text(const cJSON *list, const std::string &text)
{
	for (const cJSON *item : vexil::items(list)) {
		if (vexil::text_of(item) && text == vexil::text_of(item))
			return true;
	}
	return false;
}

bool has_foreign_item(const cJSON *list)
{
	for (const cJSON *item : vexil::items(list)) {
		if (!vexil::text_of(item))
			return true;
	}
	return false;
}

/** Whether a comparator asks for a label that the library did not find. */
bool asks_for(const cJSON *comparator, const std::string &label)
{
	for (const cJSON *member : vexil::items(comparator)) {
		const std::string name = name_of(member);
		if (label == name)
			return true;
		if (vexil::text_of(member) && label == name + ":" + vexil::text_of(member))
			return true;
		for (const cJSON *item : vexil::items(member)) {
			if (vexil::text_of(item) && label == name + ":" + vexil::text_of(item))
				return true;
		}
	}
	return false;
}

/** Whether a complaint ends the case that it is about. */
bool ends_case(std::string_view message)
{
	return message.starts_with("Cannot find source: ") ||
	       message == "Error parsing comparator" ||
	       message.starts_with("allocated setting size");
}

/**
 * Whether a complaint is about this case.
 * @excess: why its comparator cannot be compiled although it is an object, or nothing
 */
bool is_about(std::string_view message, const cJSON *entry, const std::string &excess)
{
	std::string name;
	const cJSON *comparator = vexil::member(entry, "comparator");
	const cJSON *settings = vexil::member(entry, "settings");
	if (names(message, "Cannot find source: ", &name))
		return asks_for(comparator, name);
	if (names(message, "Cannot find label: ", &name))
		return has_text(settings, name);
	if (names(message, "Cannot find ", &name))
		return !vexil::member(entry, name.c_str());
	if (names(message, "Error parsing ", &name)) {
		const cJSON *member = vexil::member(entry, name.c_str());
		return name == "comparator" ? !vexil::is_object(member) || !excess.empty()
					    : member && !vexil::is_array(member);
	}
	if (message.starts_with("Invalid rulename"))
		return has_foreign_item(vexil::member(entry, "children"));
	if (message.starts_with("allocated setting size"))
		return has_foreign_item(settings);
	return false;
}

/** An interval like "[0, 9)": its bounds, as the library reads sound ones. */
bool read_interval(const std::string &text, u64 *first, u64 *last)
{
	std::string kept;
	for (const char c : text) {
		if (c != ' ')
			kept += c;
	}
	const size_t comma = kept.find(',');
	if (kept.size() < 5 || (kept.front() != '[' && kept.front() != '(') ||
	    (kept.back() != ']' && kept.back() != ')') || comma == std::string::npos ||
	    !read_number(kept.substr(1, comma - 1), first) ||
	    !read_number(kept.substr(comma + 1, kept.size() - comma - 2), last))
		return false;
	// A bound that cannot move leaves nothing, whatever the library makes of it.
	if ((kept.front() == '(' && *first == ~u64{0}) || (kept.back() == ')' && *last == 0)) {
		*first = 1;
		*last = 0;
		return true;
	}
	*first += kept.front() == '(';
	*last -= kept.back() == ')';
	return true;
}

} // namespace

RuleBuild::RuleBuild(Console &console, LibraryLog &log, const Map &map,
		     std::vector<std::string> labels)
    : console_(console), log_(log), map_(map), labels_(std::move(labels))
{
}

void RuleBuild::check_room(const std::string &path) const
{
	if (rules_.nodes_used() > kMostNodes)
		refuse(path, fmt::format("the rules need more than {} nodes", grouped(kMostNodes)));
	if (rules_.store_error() == EXTMEM_NOMEM)
		refuse(path, "out of memory");
}

// ---- sources ----

void RuleBuild::check_name(const std::string &what, const std::string &name,
			   const std::string &path)
{
	const std::string foreign = foreign_character(name);
	if (name.empty())
		console_.warn(path, fmt::format("{}: names cannot be empty; left out", what));
	else if (!foreign.empty())
		console_.warn(path, fmt::format("{} \"{}\": names cannot hold '{}'; left out", what,
						name, foreign));
	else if (name.size() > kLongestToken)
		console_.warn(path,
			      fmt::format("{} \"{}...\" has {} characters; what is longer than "
					  "{} cannot be asked for",
					  what, name.substr(0, 24), name.size(), kLongestToken));
	else if (name.find(' ') != std::string::npos)
		console_.warn(path, fmt::format("{} \"{}\": blanks are dropped from what is asked "
						"for, so it cannot be found",
						what, name));
}

void RuleBuild::check_range(const std::string &what, const cJSON *text, const std::string &path)
{
	u64 first = 0;
	u64 last = 0;
	if (!vexil::text_of(text))
		console_.warn(path, fmt::format("{}: a range like \"[0, 9]\" is expected", what));
	else if (!read_interval(vexil::text_of(text), &first, &last))
		console_.warn(path, fmt::format("{}: \"{}\" is no range like \"[0, 9]\" or \"(3, "
						"0x10)\"",
						what, vexil::text_of(text)));
	else if (first > last)
		console_.warn(path, fmt::format("{}: no number is in \"{}\"", what,
						vexil::text_of(text)));
}

void RuleBuild::check_define(const std::string &where, const cJSON *define, const cJSON *content,
			     const std::string &path)
{
	for (const cJSON *item : vexil::items(content)) {
		if (vexil::text_of(item) && !vexil::member(define, vexil::text_of(item)))
			console_.warn(path,
				      fmt::format("{}: \"{}\" is not in its \"define\"; left out",
						  where, vexil::text_of(item)));
	}
	for (const cJSON *value : vexil::items(define)) {
		const std::string name = name_of(value);
		if (has_text(content, name) && (!vexil::is_object(value) || !value->child))
			console_.warn(path, fmt::format("{}: \"{}\" is defined by no range", where,
							name));
		if (!vexil::is_object(value))
			continue; // descriptions
		const auto same = [&](const cJSON *item) {
			return vexil::text_of(item) &&
			       lowered(vexil::text_of(item)) == lowered(name);
		};
		bool listed = false;
		for (const cJSON *item : vexil::items(content))
			listed = listed || same(item);
		if (!listed)
			console_.warn(path, fmt::format("{}: \"{}\" is defined but not in its "
							"\"content\"; left out",
							where, name));
		for (const cJSON *condition : vexil::items(value))
			check_range(
				fmt::format("{}, \"{}\", \"{}\"", where, name, name_of(condition)),
				condition, path);
	}
}

void RuleBuild::check_labels(const std::string &where, const cJSON *source, const cJSON *content,
			     const std::string &path)
{
	const cJSON *define = vexil::member(source, "define");
	size_t position = 0;
	for (const cJSON *item : vexil::items(content)) {
		++position;
		const char *value = vexil::text_of(item);
		if (!value) {
			const bool is_hex = vexil::is_number(item) && item->valuestring;
			console_.warn(
				path,
				is_hex ? fmt::format("{}: \"{}\" is a number and no name; left out",
						     where, item->valuestring)
				       : fmt::format("{}: value {} is not a text", where,
						     position));
			continue;
		}
		if (define && !vexil::member(define, value))
			continue;
		const std::string label = name_of(source) + ":" + value;
		check_name("source label", label, path);
		source_labels_.push_back(label);
	}
}

void RuleBuild::check_source(const cJSON *source, const std::string &path)
{
	const std::string name = name_of(source);
	const std::string where = fmt::format("source \"{}\"", shortened(name));
	const cJSON *content = vexil::member(source, "content");
	if (!content) {
		// Texts are notes, and "#version" has a reader of its own.
		if (!name.starts_with('#') && vexil::is_object(source))
			console_.warn(path, fmt::format("{} has no \"content\"; left out", where));
		else if (!name.starts_with('#') && !vexil::is_string(source))
			console_.warn(path, fmt::format("{} is not an object; left out", where));
		return;
	}
	const bool is_enumerated = vexil::is_array(content) && !vexil::member(source, "define");
	const auto [known, is_new] = sources_.emplace(lowered(name), path);
	if (!is_new && is_enumerated)
		console_.warn(
			path,
			fmt::format("{} is declared already in {}; values of its parts do not "
				    "exclude each other",
				    where, known->second));
	if (!vexil::is_array(content)) {
		check_name("source", name, path);
		if (name.find(':') != std::string::npos)
			console_.warn(path,
				      fmt::format("{}: what is set is cut at its first ':', so "
						  "it cannot be set",
						  where));
		source_labels_.push_back(name);
		return;
	}
	if (!content->child)
		console_.warn(path, fmt::format("{} has no values; left out", where));
	check_labels(where, source, content, path);
	if (const cJSON *define = vexil::member(source, "define"))
		check_define(where, define, content, path);
}

bool RuleBuild::is_declared_twice(const std::string &label) const
{
	return std::count_if(source_labels_.begin(), source_labels_.end(),
			     [key = lowered(label)](const std::string &other) {
				     return lowered(other) == key;
			     }) > 1;
}

void RuleBuild::sources(const cJSON *document, const std::string &path)
{
	last_path_ = path;
	const cJSON *list = vexil::member(document, kSourcesKey);
	if (!vexil::is_object(list))
		return console_.warn(path, not_there(list, kSourcesKey));
	for (const cJSON *source : vexil::items(list))
		check_source(source, path);
	const bool inserted = rules_.insert_sources(document);
	check_room(path);
	std::string cause;
	for (const std::string &line : log_.take()) {
		const std::string message(message_of(line));
		std::string label;
		if (line.find("vexil lib fail") != std::string::npos)
			cause = "the sources need more than 65,536 key bits, or one has more than "
				"65,535 values";
		else if (names(message, "duplicated timing ", &label)) {
			// Values that are no texts make the library see the label before them
			// again.
			if (is_declared_twice(label))
				console_.warn(path,
					      fmt::format("source label \"{}\" is declared already",
							  label));
		} else if (!is_name_complaint(line))
			console_.warn(path, message);
	}
	if (inserted)
		return;
	const cJSON *version = vexil::member(list, "#version");
	if (version && !is_supported(rules_.list_version()))
		cause = fmt::format("#version {}.{} is not supported (2.0 to 2.2)",
				    rules_.list_version().u16MajorNumber,
				    rules_.list_version().u16MinorNumber);
	refuse(path, cause.empty() ? "was refused by the library" : cause);
}

// ---- rules ----

void RuleBuild::check_case(const std::string &where, const cJSON *entry, const std::string &path)
{
	if (!vexil::is_object(entry))
		console_.warn(path, fmt::format("{} is not an object", where));
	const cJSON *comparator = vexil::member(entry, "comparator");
	u64 alternatives = 1;
	for (const cJSON *member : vexil::items(comparator)) {
		u64 items = 1;
		if (vexil::is_array(member)) {
			items = 0;
			for (const cJSON *item = member->child; item; item = item->next)
				++items;
			if (items == 0)
				console_.warn(path,
					      fmt::format("{}: \"{}\" lists no value, so the case "
							  "never matches",
							  where, name_of(member)));
		}
		alternatives = std::min(alternatives * std::min(items, kMostAlternatives + 1),
					kMostAlternatives + 1);
		if (!is_value_source(name_of(member)))
			continue;
		const std::string what = fmt::format("{}, \"{}\"", where, name_of(member));
		if (!vexil::is_array(member))
			check_range(what, member, path);
		for (const cJSON *item = vexil::is_array(member) ? member->child : nullptr; item;
		     item = item->next)
			check_range(what, item, path);
	}
	if (alternatives > kMostAlternatives)
		console_.warn(path,
			      fmt::format("{}: its lists multiply to more than {} alternatives; it "
					  "cannot be compiled as it stands",
					  where, grouped(kMostAlternatives)));
}

bool RuleBuild::is_value_source(const std::string &name) const
{
	const node_d label = extmem_create_node_d(&rules_.record()->builder, rules_.label_id(name));
	return extmem_node_isvalid(extmem_find_next(label, EXTMEM_TAG_SIZE_HOLDER));
}

size_t RuleBuild::ranges_behind(const std::string &label) const
{
	extmem_builder &store = rules_.record()->builder;
	const node_d node = extmem_create_node_d(&store, rules_.label_id(label));
	if (extmem_fetch_tag(vexil::child_of(node)) != EXTMEM_TAG_SOURCE_REDEFINE)
		return 0;
	vexil::WalkBudget budget(store);
	size_t ranges = 0;
	for ([[maybe_unused]] const node_d range : vexil::Children(node, budget))
		++ranges;
	return ranges;
}

std::string RuleBuild::excess_of(const cJSON *comparator) const
{
	size_t members = 0;
	size_t numbers = 0;
	size_t ranges = 0; // of the alternative that has most
	for (const cJSON *member : vexil::items(comparator)) {
		const std::string name = name_of(member);
		++members;
		numbers += is_value_source(name);
		size_t most = vexil::text_of(member)
				      ? ranges_behind(name + ":" + vexil::text_of(member))
				      : 0;
		for (const cJSON *item : vexil::items(member)) {
			if (vexil::text_of(item))
				most = std::max(most,
						ranges_behind(name + ":" + vexil::text_of(item)));
		}
		ranges += most;
	}
	if (members > kMostMembers)
		return fmt::format("its comparator has {} members; at most {} are possible",
				   members, kMostMembers);
	const char *kind = numbers > kMostConditions ? "value sources" : "redefined sources";
	if (numbers <= kMostConditions && ranges <= kMostConditions)
		return {};
	return fmt::format("an alternative has {} range conditions on {}; at most {} are possible",
			   numbers > kMostConditions ? numbers : ranges, kind, kMostConditions);
}

bool RuleBuild::check_group(const cJSON *group, const std::string &path)
{
	const std::string name = name_of(group);
	if (!vexil::is_object(group)) {
		if (!name.starts_with('#') && !vexil::is_string(group))
			console_.warn(path,
				      fmt::format("\"{}\" is no object, hence no rule; left out",
						  shortened(name)));
		return false;
	}
	const std::string where = fmt::format("rule \"{}\"", shortened(name));
	if (const cJSON *own = vexil::member(group, "#version")) {
		vexil_version version{};
		__rm_get_version(const_cast<cJSON *>(own), &version);
		if (!is_supported(version)) {
			console_.warn(path,
				      fmt::format("{}: #version {}.{} is not supported (2.0 to "
						  "2.2); left out",
						  where, version.u16MajorNumber,
						  version.u16MinorNumber));
			return false;
		}
	}
	const cJSON *cases = vexil::member(group, "rules");
	if (!vexil::is_array(cases)) {
		console_.warn(path, fmt::format("{} has no array \"rules\"{}", where,
						cases ? "" : "; left out"));
		return cases != nullptr;
	}
	check_name("rule", name, path);
	size_t number = 0;
	for ([[maybe_unused]] const cJSON *entry : vexil::items(cases))
		++number;
	const auto [known, is_new] = definitions_.emplace(lowered(name), Definition{path, number});
	if (!is_new)
		console_.warn(path,
			      fmt::format("{} is defined already in {}; it stays as it is there",
					  where, known->second.path));
	number = 0;
	for (const cJSON *entry : vexil::items(cases))
		check_case(fmt::format("{}, case {}", where, ++number), entry, path);
	return true;
}

void RuleBuild::insert_group(const cJSON *group, const std::string &path)
{
	const GroupDocument document(group);
	rules_.insert_rules(document.get(), map_);
	check_room(path);
	std::vector<const cJSON *> cases;
	std::vector<std::string> excess;
	for (const cJSON *entry : vexil::items(vexil::member(group, "rules"))) {
		cases.push_back(entry);
		excess.push_back(excess_of(vexil::member(entry, "comparator")));
	}
	const std::string rule = fmt::format("rule \"{}\"", shortened(name_of(group)));
	size_t at = 0; // complaints come in the order of the cases
	bool label_missing = false;
	for (const std::string &line : log_.take()) {
		if (is_name_complaint(line))
			continue;
		std::string message(message_of(line));
		// It ends a case whose label was not found, which has been said.
		if (std::exchange(label_missing, false) &&
		    message.starts_with("allocated setting")) {
			++at;
			continue;
		}
		size_t found = at;
		while (found < cases.size() && !is_about(message, cases[found], excess[found]))
			++found;
		std::string where = rule;
		if (found < cases.size()) {
			where += fmt::format(", case {}", found + 1);
			at = found + (ends_case(message) ? 1 : 0);
		}
		std::string name;
		if (names(message, "Cannot find source: ", &name)) {
			if (console_.warnings() < kMostHints)
				message += label_hint(name, source_labels_);
		} else if (names(message, "Cannot find label: ", &name)) {
			if (console_.warnings() < kMostHints)
				message += similar_hint(name, labels_);
			label_missing = true;
		} else if (message.starts_with("allocated setting")) {
			message = "a setting is not a text";
		} else if (message.starts_with("Invalid rulename")) {
			message = "a child is not a text";
		} else if (names(message, "Cannot find ", &name)) {
			message = fmt::format("there is no \"{}\"", name);
		} else if (names(message, "Error parsing ", &name)) {
			const cJSON *member = found < cases.size()
						      ? vexil::member(cases[found], name.c_str())
						      : nullptr;
			if (name != "comparator")
				message = fmt::format("\"{}\" is not an array", name);
			else if (found == cases.size())
				message = "\"comparator\" cannot be compiled";
			else if (!member)
				message = "there is no \"comparator\"";
			else
				message = vexil::is_object(member)
						  ? excess[found]
						  : "\"comparator\" is not an object";
		}
		console_.warn(path, fmt::format("{}: {}", where, message));
	}
}

void RuleBuild::rules(const cJSON *document, const std::string &path)
{
	last_path_ = path;
	const cJSON *groups = vexil::member(document, kRulesKey);
	if (!vexil::is_object(groups))
		return console_.warn(path, not_there(groups, kRulesKey));
	for (const cJSON *group : vexil::items(groups)) {
		if (check_group(group, path))
			insert_group(group, path);
	}
}

// ---- the end ----

const std::string &RuleBuild::path_of(const RuleInfo &rule) const
{
	const auto found = definitions_.find(lowered(rule.name));
	return found == definitions_.end() ? last_path_ : found->second.path;
}

void RuleBuild::report_pending(const RuleCatalogue &catalogue)
{
	std::map<u16, std::pair<std::string, std::string>> places; // by record: document, rule
	const auto note = [&](u16 record, const RuleInfo &rule, size_t number) {
		// Cases that were left out have moved the numbers of those behind them.
		const auto definition = definitions_.find(lowered(rule.name));
		const bool whole = definition != definitions_.end() &&
				   definition->second.cases == rule.cases.size();
		places[record] = {path_of(rule),
				  whole ? fmt::format("rule \"{}\", case {}", rule.name, number)
					: fmt::format("rule \"{}\"", rule.name)};
	};
	for (const RuleInfo &rule : catalogue.rules) {
		for (size_t i = 0; i < rule.cases.size(); ++i) {
			for (const OutcomeInfo &outcome : rule.cases[i].outcomes)
				note(outcome.record, rule, i + 1);
			for (const AlternativeInfo &alternative : rule.cases[i].alternatives) {
				for (const RangeInfo &range : alternative.ranges)
					note(range.record, rule, i + 1);
			}
		}
	}
	for (const SourceInfo &source : catalogue.sources) {
		for (const LabelInfo &label : source.labels) {
			for (const RangeInfo &range : label.ranges)
				places[range.record] = {
					last_path_, fmt::format("source label \"{}\"", label.text)};
		}
	}
	std::set<std::string> said; // a range stands in every alternative that asks for it
	const auto say = [&](const PendingName &pending, const std::string &text) {
		const auto [path, where] = places[pending.record];
		const std::string line =
			fmt::format("{}{}{}", where, where.empty() ? "" : ": ", text);
		if (said.insert(line).second)
			console_.warn(path.empty() ? last_path_ : path, line);
	};
	for (const PendingName &pending : rules_.pending_rules())
		say(pending,
		    fmt::format("it leads to rule \"{}\", which is not defined{}", pending.name,
				similar_hint(pending.name, catalogue.rule_names())));
	std::vector<std::string> numbers;
	for (const SourceInfo &source : catalogue.sources) {
		if (source.kind == SourceKind::kNumber)
			numbers.push_back(source.name);
	}
	for (const PendingName &pending : rules_.pending_sources())
		say(pending, fmt::format("a range is for \"{}\", which is no value source{}",
					 pending.name, similar_hint(pending.name, numbers)));
}

/** References beyond the 64 that can wait at a time are dropped without a word. */
void RuleBuild::report_dropped(const RuleCatalogue &catalogue)
{
	std::set<u16> waiting;
	for (const PendingName &pending : rules_.pending_rules())
		waiting.insert(pending.record);
	for (const PendingName &pending : rules_.pending_sources())
		waiting.insert(pending.record);
	for (const RuleInfo &rule : catalogue.rules) {
		bool child = false;
		bool range = false;
		for (const CaseInfo &entry : rule.cases) {
			for (const OutcomeInfo &outcome : entry.outcomes)
				child = child || (outcome.tag == EXTMEM_TAG_NODE_HOLDER &&
						  outcome.ids == std::vector<u16>{VEXIL_NO_ID} &&
						  !waiting.contains(outcome.record));
			for (const AlternativeInfo &alternative : entry.alternatives) {
				for (const RangeInfo &info : alternative.ranges)
					range = range || (info.slot_node == VEXIL_NO_ID &&
							  !waiting.contains(info.record));
			}
		}
		if (!child && !range)
			continue;
		console_.warn(
			path_of(rule),
			fmt::format("rule \"{}\": a reference to {} that comes later was lost: "
				    "at most {} can wait at a time",
				    rule.name, child ? "a rule" : "a source", vexil::kMaxPending));
	}
}

/** Conditions may keep rules from leading in a circle, so it is no fault yet. */
void RuleBuild::report_circles(const RuleCatalogue &catalogue)
{
	std::vector<u16> all;
	for (const RuleInfo &rule : catalogue.rules)
		all.push_back(rule.id);
	for (const std::vector<u16> &circle : catalogue.circles(all))
		console_.note(
			path_of(*catalogue.rule(circle.front())),
			fmt::format("rules lead in a circle: {}; where their conditions allow it, "
				    "they cannot be evaluated",
				    catalogue.path_text(circle)));
}

void RuleBuild::finish()
{
	const bool finished = rules_.finish();
	check_room(last_path_);
	const bool pending = !rules_.pending_rules().empty() || !rules_.pending_sources().empty();
	if (!finished && !pending)
		refuse(last_path_, "the rules could not be finished");
	const RuleCatalogue catalogue(rules_);
	report_pending(catalogue);
	report_dropped(catalogue);
	report_circles(catalogue);
}

std::vector<char> RuleBuild::image()
{
	std::vector<char> image = rules_.exported();
	if (image.empty())
		throw Failure(Exit::kRefused, "the rules are too large for an image");
	return image;
}

} // namespace vexil_tool
