// SPDX-License-Identifier: MIT
//
// Filters, rule lists and interval texts, whatever they hold, select what an evaluator of strings
// selects: by a context, by a handler of it, and by the one-shot calls; and the same calls again
// give the same.
//
// Input: lines. A digit at the very beginning chooses a rule set, 0 the one that is written below.
//   s filter     state sources; "s12 filter": with the number 12
//   t list       trigger the rules of a list; "T": every rule
//   f filter|rule  find by a context; without "|": every rule
//   F filter|rule  find by a handler
//   c            clear
//   r text       an interval in a document, compared with the number that "s" had last
#include <cstdlib>

#include "core/ctrie.h"
#include "tests/fuzz/documents.h"
#include "tests/support/rule_evaluator.h"

namespace {

using namespace vexil_fuzz;
using namespace vexil_test::model;

constexpr std::size_t kLongestInput = 4096;
constexpr std::size_t kMostIds = 10000; // in lists that a handler's finds add to
constexpr int kNames = 200;
constexpr u64 kSeeds[] = {812001, 812013, 812044}; // of further rule sets

// After twelve sources of five bits each, so that the field of "Wide" runs from bit 63 into the
// next word.
constexpr int kPads = 12, kPadValues = 20;
constexpr const char *kSources = R"(
	'Input': {'content': ['HDMI', 'Tuner', 'Side A', 'av_1']},
	'Wide': {'content': ['w0', 'w1', 'w2', 'w3', 'w4', 'w5', 'w6', 'w7', 'w8', 'w9']},
	'Luma': {'content': 1},
	'Scene': {'content': ['Dark', 'Bright', 'Odd'],
	          'define': {'Dark': {'Luma': '[0, 10)'}, 'Bright': {'luma': '[0x80,255]', 'Frame': '(0,9]'}}},
	'Frame': {'content': true})";
constexpr const char *kRules = R"(
	'Picture': {'rules': [
		{'comparator': {'Input': 'HDMI', 'Luma': '[5,20]'}, 'settings': ['s1', 'p1']},
		{'comparator': {'Input': ['Tuner', 'Side A'], 'Wide': ['w9', 'w0']}, 'settings': ['s2'],
		 'children': ['Detail', 'Night Mode']},
		{'comparator': {'Scene:Bright': 1}, 'settings': ['s3']},
		{'comparator': {}, 'settings': ['p4', 's4', 's4']}]},
	'Detail': {'rules': [{'comparator': {'Scene': 'Dark'}, 'settings': ['s5'], 'children': ['Ring']},
	                     {'comparator': {'Frame': '(1,3)'}, 'settings': ['s6']}]},
	'Ring': {'rules': [{'comparator': {'Input': 'av_1'}, 'settings': ['s7'], 'children': ['Detail']}]},
	'Night Mode': {'rules': [{'comparator': {'Wide': 'w3'}, 'children': ['Nobody']}]},
	'Each Wide': {'rules': [
		{'comparator': {'Wide': 'w1'}, 'settings': ['s11']}, {'comparator': {'Wide': 'w4'}, 'settings': ['s14']},
		{'comparator': {'Wide': 'w6', 'pad11': 'v19'}, 'settings': ['s16']},
		{'comparator': {'Wide': ['w7', 'w8']}, 'settings': ['s17']}]},
	'Empty': {'rules': []})";

/** What the text above says, told a second time. */
vexil_test::model::Document written()
{
	vexil_test::model::Document document;
	const Range dark{"luma", 0, 9}, bright{"luma", 128, 255}, frame{"frame", 1, 9};
	for (const char *value : {"hdmi", "tuner", "side a", "av_1"})
		document.labels["input:" + std::string(value)] = {
			Kind::kEnumerated, "input", value, {}};
	for (int i = 0; i < 10; ++i) {
		const std::string value = "w" + std::to_string(i);
		document.labels["wide:" + value] = {Kind::kEnumerated, "wide", value, {}};
	}
	for (int pad = 0; pad < kPads; ++pad) {
		for (int i = 0; i < kPadValues; ++i) {
			const std::string source = "pad" + std::to_string(pad),
					  value = "v" + std::to_string(i);
			document.labels[source + ":" + value] = {
				Kind::kEnumerated, source, value, {}};
		}
	}
	document.labels["luma"] = {Kind::kNumber, "luma", "", {}};
	document.labels["frame"] = {Kind::kNumber, "frame", "", {}};
	document.labels["scene:dark"] = {Kind::kRedefined, "scene", "dark", {dark}};
	document.labels["scene:bright"] = {Kind::kRedefined, "scene", "bright", {bright, frame}};
	const auto is = [](const char *source, const char *value) {
		return Condition{source, value, {}};
	};
	const auto in = [](std::vector<Range> ranges) {
		return Condition{"", "", std::move(ranges)};
	};
	document.rules = {
		{"picture",
		 {{{{is("input", "hdmi")}, {in({{"luma", 5, 20}})}}, {1001}, {2001}, {}},
		  {{{is("input", "tuner"), is("input", "side a")},
		    {is("wide", "w9"), is("wide", "w0")}},
		   {1002},
		   {},
		   {"detail", "night mode"}},
		  {{{in({bright, frame})}}, {1003}, {}, {}},
		  {{}, {1004, 1004}, {2004}, {}}}},
		{"detail",
		 {{{{in({dark})}}, {1005}, {}, {"ring"}},
		  {{{in({{"frame", 2, 2}})}}, {1006}, {}, {}}}},
		{"ring", {{{{is("input", "av_1")}}, {1007}, {}, {"detail"}}}},
		{"night mode", {{{{is("wide", "w3")}}, {}, {}, {"nobody"}}}},
		{"each wide",
		 {{{{is("wide", "w1")}}, {1011}, {}, {}},
		  {{{is("wide", "w4")}}, {1014}, {}, {}},
		  {{{is("wide", "w6")}, {is("pad11", "v19")}}, {1016}, {}, {}},
		  {{{is("wide", "w7"), is("wide", "w8")}}, {1017}, {}, {}}}},
		{"empty", {}},
	};
	return document;
}

/** A map that only has names. */
Map named_map()
{
	Map map = make_map();
	for (int i = 0; i < kNames; ++i) {
		const std::string number = std::to_string(i);
		require(ctrie_insert(&map->ipname_map, ("s" + number).c_str(), kSettingIds + i) &&
				ctrie_insert(&map->preset_map, ("p" + number).c_str(),
					     kPresetIds + i),
			"a name");
	}
	return map;
}

Rules built(const Map &map, const std::string &sources, const std::string &groups)
{
	Rules rules = make_rules();
	const auto source_document = document("{'PqRuleLists': {" + sources + "}}");
	const auto rule_document = document("{'PqRuleGroups': {" + groups + "}}");
	require(source_document && rule_document, "documents that do not parse");
	require(rm_insert_source_json(rules.get(), source_document.get()), "sources");
	require(rm_insert(rules.get(), rule_document.get(), map.get()), "rules");
	rm_finish(rules.get()); // false where a child is missing
	return rules;
}

/** The sources written above, the first ones with them. */
std::string written_sources()
{
	std::string all;
	for (int pad = 0; pad < kPads; ++pad) {
		std::string values;
		for (int i = 0; i < kPadValues; ++i)
			values += (i ? ", 'v" : "'v") + std::to_string(i) + "'";
		all += "'Pad" + std::to_string(pad) + "': {'content': [" + values + "]}, ";
	}
	return all + kSources;
}

struct World {
	vexil_test::model::Document document;
	ImageBytes image;
};

/** Every rule set, built once. */
const std::vector<World> &worlds()
{
	static const auto *const all = [] {
		const Map map = named_map();
		auto *made = new std::vector<World>;
		made->push_back({written(), export_of(built(map, written_sources(), kRules))});
		for (const u64 seed : kSeeds) {
			Generator generator(seed);
			made->push_back(
				{generator.document, export_of(built(map, generator.sources_json,
								     generator.rules_json))});
		}
		return made;
	}();
	return *all;
}

class Run {
public:
	explicit Run(const World &world)
	    : image_(world.image), rules_(make_rules(&image_)), handler_(make_handler(rules_)),
	      by_context_(world.document), by_handler_(world.document)
	{
		require(rules_ && handler_, "no context");
	}

	void line(const std::string &text)
	{
		const std::string rest = text.empty() ? "" : text.substr(1);
		switch (text.empty() ? '\0' : text[0]) {
		case 's':
			return set(rest);
		case 't':
			return trigger(skip_blank(rest));
		case 'T':
			return trigger(std::nullopt);
		case 'f':
			return find(skip_blank(rest), false);
		case 'F':
			return find(skip_blank(rest), true);
		case 'r':
			return interval(skip_blank(rest));
		case 'c':
			by_context_.clear();
			by_handler_.clear();
			require(rm_clear(rules_.get()) && rm_handler_clear(handler_.get()),
				"cleared");
			return;
		default:
			return;
		}
	}

private:
	static std::string skip_blank(const std::string &text)
	{
		return text.substr(!text.empty() && text[0] == ' ');
	}
	void set(const std::string &rest)
	{
		char *end = nullptr;
		number_ = rest.empty() || rest[0] == ' ' ? 7 : std::strtoull(rest.c_str(), &end, 0);
		const std::string filter = skip_blank(end ? end : rest);
		const bool done = by_context_.set(filter, number_);
		by_handler_.set(filter, number_);
		for (int twice = 0; twice < 2; ++twice) {
			require(rm_set(rules_.get(), filter.c_str(), number_) == done,
				"a filter is taken, or not");
			require(rm_handler_set(handler_.get(), filter.c_str(), number_) == done,
				"a filter is taken by a handler, or not");
		}
	}
	void trigger(const std::optional<std::string> &list)
	{
		const char *names = list ? list->c_str() : nullptr;
		const bool done = by_context_.trigger(list);
		const bool handler_done = by_handler_.trigger(list);
		for (int twice = 0; twice < 2; ++twice) {
			require(rm_trigger(rules_.get(), names) == done,
				"rules are evaluated, or not");
			require(rm_handler_trigger(handler_.get(), names) == handler_done,
				"rules are evaluated by a handler, or not");
			compare();
		}
	}
	void find(const std::string &text, bool handler)
	{
		const std::size_t bar = text.find('|');
		const std::string filter = text.substr(0, bar);
		const std::string name = bar == std::string::npos ? "" : text.substr(bar + 1);
		const char *rule = bar == std::string::npos ? nullptr : name.c_str();
		const Ids settings = by_context_.settings, presets = by_context_.presets;
		const bool done =
			by_context_.find(filter, rule ? std::optional(name) : std::nullopt);
		if (!handler) {
			require(rm_find(rules_.get(), filter.c_str(), rule) == done,
				"found, or not");
			return compare();
		}
		// The handler's lists are emptied; what is found is added to the context's.
		by_handler_.settings.clear();
		by_handler_.presets.clear();
		by_context_.settings.insert(by_context_.settings.begin(), settings.begin(),
					    settings.end());
		by_context_.presets.insert(by_context_.presets.begin(), presets.begin(),
					   presets.end());
		require(rm_handler_find(handler_.get(), filter.c_str(), rule) == done,
			"found by a handler, or not");
		compare();
		if (by_context_.settings.size() > kMostIds)
			trigger("");
	}
	void compare()
	{
		require(settings_of(rules_.get()) == by_context_.settings, "settings");
		require(presets_of(rules_.get()) == by_context_.presets, "presets");
		require(settings_of(handler_.get()) == by_handler_.settings,
			"settings of a handler");
		require(presets_of(handler_.get()) == by_handler_.presets, "presets of a handler");
		take_log();
	}
	/** One rule over one interval. */
	void interval(const std::string &text)
	{
		for (const char c : text) {
			if (c == '"' || c == '\\' || c == '\'' ||
			    static_cast<unsigned char>(c) < 0x20)
				return;
		}
		if (text.compare(0, 2, "0x") == 0 || intervals_++ == kMostIntervals)
			return; // a number in a text is no text
		static const Map *const map = new Map(named_map());
		Rules rules = built(*map, "'Luma': {'content': 1}",
				    "'R': {'rules': [{'comparator': {'Luma': '" + text +
					    "'}, 'settings': ['s1']}]}");
		const auto [least, most] = bounds(text);
		for (const u64 number :
		     {number_, least, most, least - 1, most + 1, u64{0}, ~u64{0}}) {
			require(rm_set(rules.get(), "luma", number) && rm_trigger(rules.get(), "r"),
				"an interval is looked at");
			const bool inside = number >= least && number <= most;
			require(settings_of(rules.get()) == (inside ? Ids{kSettingIds + 1} : Ids{}),
				"a number in an interval, or not");
		}
	}
	static std::pair<u64, u64> bounds(const std::string &text)
	{
		u64 least = 0, most = 0;
		bool open = false;
		std::string bound;
		for (const char c : text) {
			if (c == '[' || c == '(') {
				open = c == '(';
			} else if (c == ',' || c == ']' || c == ')') {
				const u64 number =
					bound.size() <= kLongestToken ? number_of(bound) : 0;
				bound.clear();
				if (c == ',')
					least = number + (open ? 1 : 0);
				else
					most = c == ')' && number > 0 ? number - 1 : number;
			} else if (c != ' ') {
				bound += c;
			}
		}
		return {least, most};
	}

	static constexpr int kMostIntervals = 4; // of one input; each builds a context

	ImageBytes image_;
	Rules rules_;
	Handler handler_;
	Model by_context_, by_handler_;
	u64 number_ = 7;
	int intervals_ = 0;
};

void warm_up()
{
	worlds();
	Run(worlds()[0]).line("r [1,2]");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
	static const bool ready = [] {
		warm_up(); // what is kept for all inputs
		return true;
	}();
	require(ready, "ready");
	const Blocks blocks;
	const std::string script(reinterpret_cast<const char *>(data),
				 size < kLongestInput ? size : kLongestInput);
	const bool chosen = !script.empty() && script[0] >= '0' && script[0] <= '9';
	Run run(worlds()[chosen ? static_cast<std::size_t>(script[0] - '0') % worlds().size() : 0]);
	for (std::size_t at = chosen ? 1 : 0; at < script.size();) {
		std::size_t end = script.find('\n', at);
		if (end == std::string::npos)
			end = script.size();
		run.line(script.substr(at, end - at).c_str()); // up to a NUL
		at = end + 1;
	}
	return 0;
}
