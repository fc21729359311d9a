// SPDX-License-Identifier: MIT
//
// vexil presetdb: a preset document of the graphics plane, as the library reads it.

#include <memory>

#include <fmt/format.h>

#include <vexil/presetdb.h>

#include "commands.h"
#include "console.h"
#include "core/json.h"
#include "errors.h"
#include "json_input.h"
#include "json_output.h"
#include "library.h"
#include "library_log.h"
#include "presetdb/table.h"
#include "text.h"

namespace vexil_tool {

namespace {

using vexil::presetdb::Group;
using vexil::presetdb::Member;

struct Options {
	std::string document;
	bool json = false;
};

/** A complaint that a document gives cause for, as the library will say it. */
struct Expected {
	std::string line;
	std::string text;
};

Expected complaint(const char *function, int number, const std::string &text)
{
	return {fmt::format("[{}][{}]PresetDB parsing fail!!", function, number), text};
}

/** Complaints in the order of reading, to tell Input from Output: their lines are the same. */
std::vector<Expected> expected_complaints(const cJSON *document)
{
	constexpr const char *kParser = "graphic_presetdb_parse";
	std::vector<Expected> expected;
	const cJSON *preset = vexil::member(document, "Preset_PQ_Value");
	for (const Group &group : vexil::presetdb::kGroups) {
		const cJSON *found = vexil::member(preset, group.key);
		if (!found) {
			expected.push_back(
				complaint(group.function, group.missing,
					  fmt::format("group {} is missing", group.key)));
			expected.push_back(
				complaint(kParser, group.missing_group,
					  fmt::format("group {} keeps its defaults", group.key)));
			continue;
		}
		const auto check = [&](const char *key, bool is_text, int missing, int mistyped) {
			const cJSON *member = vexil::member(found, key);
			const std::string name = fmt::format("member {}.{}", group.key, key);
			if (!member)
				expected.push_back(
					complaint(group.function, missing, name + " is missing"));
			else if (is_text && !vexil::text_of(member))
				expected.push_back(complaint(group.function, mistyped,
							     name + " is not a text"));
		};
		for (const Member &member : group.members)
			check(member.key, member.kind != Member::kInteger, member.missing,
			      member.mistyped);
		if (group.gain_key)
			check(group.gain_key, false, vexil::presetdb::kGainMissing, 0);
	}
	return expected;
}

/** The library reads 0 where there is no number, and says nothing. */
void warn_of_zeros(Console &console, const Options &options, const cJSON *document)
{
	const cJSON *preset = vexil::member(document, "Preset_PQ_Value");
	for (const Group &group : vexil::presetdb::kGroups) {
		const auto check = [&](const char *key) {
			const cJSON *item = vexil::member(vexil::member(preset, group.key), key);
			if (item && !vexil::is_number(item))
				console.warn(
					options.document,
					fmt::format("PresetDB member {}.{} is {}, and counts as 0",
						    group.key, key,
						    vexil::is_string(item) ? "a text"
									   : "not a number"));
		};
		for (const Member &member : group.members) {
			if (member.kind == Member::kInteger)
				check(member.key);
		}
		if (group.gain_key)
			check(group.gain_key);
	}
}

/** The library's lines, each with what it is about. */
void report(Console &console, const Options &options, const cJSON *document,
	    const std::vector<std::string> &log)
{
	const std::vector<Expected> expected = expected_complaints(document);
	for (size_t i = 0; i < log.size(); ++i) {
		const bool known = i < expected.size() && expected[i].line == log[i];
		// "[function][number]text"
		const size_t middle = log[i].find("][");
		const size_t end = log[i].find(']', middle + 1);
		const bool has_place = log[i].starts_with('[') && middle != std::string::npos &&
				       end != std::string::npos;
		const std::string place =
			has_place ? fmt::format("{} {}", log[i].substr(1, middle - 1),
						log[i].substr(middle + 2, end - middle - 2))
				  : log[i];
		console.warn(options.document,
			     fmt::format("PresetDB {} ({})",
					 known ? expected[i].text : std::string("parsing fail"),
					 place));
	}
}

const char *range_name(presetdb_range range)
{
	return range == RANGE_FULL ? "FULL" : range == RANGE_LIMIT ? "Limited" : "auto";
}

const char *word_of(vexil::Span<const vexil::presetdb::Word> words, u32 value)
{
	for (const vexil::presetdb::Word &word : words) {
		if (word.value == value)
			return word.prefix;
	}
	return "auto";
}

OutputJson io_json(const presetdb_io &io)
{
	return {{"range", range_name(io.range)},
		{"colorspace", word_of(vexil::presetdb::kColorspaces, io.colorspace)},
		{"format", word_of(vexil::presetdb::kFormats, io.format)}};
}

OutputJson mode_json(const presetdb_hdr_mode &mode)
{
	return {{"xvycc_manual_mode", mode.xvycc_manual_mode},
		{"eotf_enable", mode.eotf_enable},
		{"oetf_enable", mode.oetf_enable},
		{"eotf_ext_mode", mode.eotf_ext_mode},
		{"oetf_ext_mode", mode.oetf_ext_mode},
		{"gamut_manual_mode", mode.gamut_manual_mode},
		{"gamut_enable", mode.gamut_enable},
		{"user_gain", mode.user_gain}};
}

OutputJson record_json(const graphic_presetdb_info &info)
{
	return {
		{"input", io_json(info.input)},
		{"output", io_json(info.output)},
		{"tuning", {{"hue", info.hue}, {"sat", info.sat}, {"contrast", info.contrast}}},
		{"sdr", mode_json(info.sdr)},
		{"hdr10", mode_json(info.hdr10)},
		{"hlg", mode_json(info.hlg)},
		{"rgb_offset",
		 {{"manual_mode", info.rgb_offset.manual_mode},
		  {"enable", info.rgb_offset.enable}}},
		{"rgb_clipping",
		 {{"manual_mode", info.rgb_clipping.manual_mode},
		  {"enable", info.rgb_clipping.enable}}},
		{"rgb_gain",
		 {{"r", info.rgb_gain.rgb_gain_r},
		  {"g", info.rgb_gain.rgb_gain_g},
		  {"b", info.rgb_gain.rgb_gain_b}}},
		{"brightness",
		 {{"r", info.brightness.brightness_r},
		  {"g", info.brightness.brightness_g},
		  {"b", info.brightness.brightness_b}}},
	};
}

std::string value_text(const OutputJson &value)
{
	if (value.is_boolean())
		return value.get<bool>() ? "on" : "off";
	return value.is_string() ? value.get<std::string>() : value.dump();
}

void print_text(const std::string &path, const OutputJson &record)
{
	constexpr int kNameWidth = 20;
	fmt::print("{}\n", printable(path));
	for (const auto &[group, members] : record.items()) {
		fmt::print("\n{}\n", group);
		for (const auto &[name, value] : members.items())
			fmt::print("  {:<{}}{}\n", name, kNameWidth, value_text(value));
	}
}

void run_presetdb(const Options &options)
{
	Console console("");
	const Json document = read_json(options.document, Root::kObject, console);
	LibraryLog log;
	graphic_presetdb_info info{};
	const bool parsed = library().fp_CB_vexil_graphic_presetdb_parse(document.get(), &info);
	if (!parsed)
		refuse(options.document, fmt::format("there is no \"Preset_PQ_Value\" in it: {}",
						     joined(log.take())));
	report(console, options, document.get(), log.take());
	warn_of_zeros(console, options, document.get());
	const OutputJson record = record_json(info);
	if (options.json)
		print({{"file", options.document}, {"preset", record}});
	else
		print_text(options.document, record);
}

} // namespace

void add_presetdb(CLI::App &app)
{
	const auto options = std::make_shared<Options>();
	CLI::App *command = app.add_subcommand(
		"presetdb", "Show the preset of the graphics plane that a document gives");
	command->add_option("FILE", options->document, "Preset document")->required();
	command->add_flag("--json", options->json, "Print JSON");
	command->footer(R"(
Members that are missing keep their defaults, and so do words and switches that are no
texts; each is reported with the function and number of the library's log. Words that are
none of those known become auto, switches are on for texts that begin with ON. Integers
may be hexadecimal texts, as "0x400"; whatever else is no number counts as 0, and is
reported as well.

Example:
  vexil presetdb examples/tv/presetdb.json)");
	command->callback([options] { run_presetdb(*options); });
}

} // namespace vexil_tool
