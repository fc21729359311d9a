// SPDX-License-Identifier: MIT
//
// Preset documents into the record: keys, words, defaults, and the number of every line logged.
#include "presetdb/table.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "tests/support/pim_json.h"

namespace {

using namespace vexil_test;

/** The record as lines, so that a failure shows where it differs. */
Lines text_of(const graphic_presetdb_info &info)
{
	Lines lines;
	const auto io = [&](const char *name, const presetdb_io &value) {
		lines.push_back(std::string(name) + " " + std::to_string(value.range) + " " +
				std::to_string(value.colorspace) + " " + std::to_string(value.format));
	};
	const auto mode = [&](const char *name, const presetdb_hdr_mode &value) {
		std::string text = std::string(name) + " ";
		for (const bool flag :
		     {value.xvycc_manual_mode, value.eotf_enable, value.oetf_enable, value.eotf_ext_mode,
		      value.oetf_ext_mode, value.gamut_manual_mode, value.gamut_enable})
			text += flag ? '1' : '0';
		lines.push_back(text + " " + std::to_string(value.user_gain));
	};
	const auto numbers = [&](const char *name, std::initializer_list<s64> values) {
		std::string text = name;
		for (const s64 value : values)
			text += " " + std::to_string(value);
		lines.push_back(text);
	};
	io("input", info.input);
	io("output", info.output);
	numbers("tuning", {info.hue, info.sat, info.contrast});
	mode("sdr", info.sdr);
	mode("hdr10", info.hdr10);
	mode("hlg", info.hlg);
	numbers("offset", {info.rgb_offset.manual_mode, info.rgb_offset.enable});
	numbers("clipping", {info.rgb_clipping.manual_mode, info.rgb_clipping.enable});
	numbers("gain", {info.rgb_gain.rgb_gain_r, info.rgb_gain.rgb_gain_g, info.rgb_gain.rgb_gain_b});
	numbers("brightness", {info.brightness.brightness_r, info.brightness.brightness_g,
			       info.brightness.brightness_b});
	return lines;
}

const Lines kDefaultText = {
	"input 2 2 1",         "output 2 2 1",
	"tuning 50 128 1024",  "sdr 0000000 1024",
	"hdr10 0000000 1024",  "hlg 0000000 1024",
	"offset 0 0",          "clipping 0 0",
	"gain 1024 1024 1024", "brightness 1024 1024 1024",
};

std::string failure(const std::string &function, int number)
{
	return "[" + function + "][" + std::to_string(number) + "]PresetDB parsing fail!!";
}

// ---- a complete document, piece by piece ----

struct MemberRow {
	const char *key;
	const char *value; // in the complete document
	int missing;
	int mistyped;          // 0: of any type
	const char *lost_text; // the record's line when this member is missing
};

struct GroupRow {
	const char *key;
	const char *function;
	int missing;       // reader's own line
	int missing_group; // parser's line
	size_t text_line;
	const char *text; // the record's line when all members are read
	std::vector<MemberRow> members;
};

std::vector<MemberRow> flags(const char *gain_key, const char *gain, const std::string &name)
{
	static std::vector<std::string> kept; // texts that outlive the rows
	kept.reserve(64);
	const auto keep = [&](const std::string &text) {
		kept.push_back(name + " " + text);
		return kept.back().c_str();
	};
	const std::string all = std::string(" ") + gain;
	return {
		{"XVYCCManualMode", "'ON'", 226, 228, keep("0111111" + all)},
		{"GamutManualMode", "'ON'", 231, 233, keep("1111101" + all)},
		{"EOTFEnable", "'ON'", 236, 238, keep("1011111" + all)},
		{"OETFEnable", "'ON'", 241, 243, keep("1101111" + all)},
		{"EOTF_EXTMode", "'ON'", 246, 248, keep("1110111" + all)},
		{"OETF_EXTMode", "'ON'", 251, 253, keep("1111011" + all)},
		{"GamutEnable", "'ON'", 256, 258, keep("1111110" + all)},
		{gain_key, gain, 266, 0, keep("1111111 1024")},
	};
}

const std::vector<GroupRow> &complete()
{
	static const std::vector<GroupRow> rows = {
		{"Input",
		 "__presetdb_get_IOinfo",
		 131,
		 382,
		 0,
		 "input 1 3 2",
		 {{"Range", "'Limited'", 134, 137, "input 2 3 2"},
		  {"ColorSpace", "'BT2020'", 149, 152, "input 1 2 2"},
		  {"Dataformat", "'YUV444'", 171, 174, "input 1 3 1"}}},
		{"Output",
		 "__presetdb_get_IOinfo",
		 131,
		 383,
		 1,
		 "output 1 5 2",
		 {{"Range", "'Limited'", 134, 137, "output 2 5 2"},
		  {"ColorSpace", "'DCI_P3'", 149, 152, "output 1 2 2"},
		  {"Dataformat", "'YUV'", 171, 174, "output 1 5 1"}}},
		{"Colortuning",
		 "__presetdb_get_colortuning",
		 195,
		 384,
		 2,
		 "tuning 1 2 3",
		 {{"Hue", "1", 198, 0, "tuning 50 2 3"},
		  {"Sat", "2", 203, 0, "tuning 1 128 3"},
		  {"Contrast", "3", 208, 0, "tuning 1 2 1024"}}},
		{"SDR", "__presetdb_get_hdrmode", 223, 385, 3, "sdr 1111111 4",
		 flags("User_gain_sdr", "4", "sdr")},
		{"HDR10", "__presetdb_get_hdrmode", 223, 386, 4, "hdr10 1111111 5",
		 flags("User_gain_pq", "5", "hdr10")},
		{"HLG", "__presetdb_get_hdrmode", 223, 387, 5, "hlg 1111111 6",
		 flags("User_gain_hlg", "6", "hlg")},
		{"RGBOffset",
		 "__presetdb_get_RGBOffset",
		 281,
		 388,
		 6,
		 "offset 1 1",
		 {{"RGBOffsetManualMode", "'ON'", 289, 289, "offset 0 1"},
		  {"RGBOffsetEnable", "'ON'", 291, 291, "offset 1 0"}}},
		{"RGBClipping",
		 "__presetdb_get_RGBClipping",
		 304,
		 389,
		 7,
		 "clipping 1 1",
		 {{"RGBClippingManualMode", "'ON'", 312, 312, "clipping 0 1"},
		  {"RGBClippingEnable", "'ON'", 314, 314, "clipping 1 0"}}},
		{"RGBGain",
		 "__presetdb_get_RGBGain",
		 326,
		 390,
		 8,
		 "gain 7 8 9",
		 {{"RGBGain_R", "7", 329, 0, "gain 1024 8 9"},
		  {"RGBGain_G", "8", 334, 0, "gain 7 1024 9"},
		  {"RGBGain_B", "9", 339, 0, "gain 7 8 1024"}}},
		{"Brightness",
		 "__presetdb_get_Brightness",
		 353,
		 391,
		 9,
		 "brightness 10 11 12",
		 {{"Brightness_R", "10", 356, 0, "brightness 1024 11 12"},
		  {"Brightness_G", "11", 361, 0, "brightness 10 1024 12"},
		  {"Brightness_B", "12", 366, 0, "brightness 10 11 1024"}}},
	};
	return rows;
}

Lines complete_text()
{
	Lines lines;
	for (const GroupRow &group : complete())
		lines.push_back(group.text);
	return lines;
}

/** What stands for a member's value; an empty text leaves the member out. */
using Change = std::function<std::string(const GroupRow &, const MemberRow &)>;

std::string as_it_is(const GroupRow &, const MemberRow &member)
{
	return member.value;
}

std::string document(const Change &change = as_it_is, const GroupRow *left_out = nullptr)
{
	std::string text;
	for (const GroupRow &group : complete()) {
		if (&group == left_out)
			continue;
		std::string members;
		for (const MemberRow &member : group.members) {
			const std::string value = change(group, member);
			if (!value.empty())
				members += (members.empty() ? "'" : ", '") + std::string(member.key) +
					   "': " + value;
		}
		text += (text.empty() ? "'" : ", '") + std::string(group.key) + "': {" + members + "}";
	}
	return "{'Preset_PQ_Value': {" + text + "}}";
}

class PresetDb : public testing::Test {
protected:
	void TearDown() override { EXPECT_EQ(take_log(), "") << "a message that nobody expected"; }

	bool parse(const std::string &text)
	{
		const Json parsed = json(text);
		EXPECT_TRUE(parsed) << text;
		std::memset(static_cast<void *>(&info), 0x5A, sizeof info);
		return graphic_presetdb_parse(parsed.get(), &info);
	}
	/** A document of one group with one member, its log dropped; the record. */
	const graphic_presetdb_info &with(const std::string &group, const std::string &member,
					  const std::string &value)
	{
		EXPECT_TRUE(parse("{'Preset_PQ_Value': {'" + group + "': {'" + member + "': " + value +
				  "}}}"));
		take_log();
		return info;
	}

	graphic_presetdb_info info;
};

TEST_F(PresetDb, CompleteDocumentFillsEveryField)
{
	EXPECT_TRUE(parse(document()));
	EXPECT_EQ(text_of(info), complete_text());
}

TEST_F(PresetDb, EmptyPresetGivesTheDefaultsAndTwoLinesPerGroup)
{
	EXPECT_TRUE(parse("{'Preset_PQ_Value': {}}"));
	EXPECT_EQ(text_of(info), kDefaultText);
	Lines expected;
	for (const GroupRow &group : complete()) {
		expected.push_back(failure(group.function, group.missing));
		expected.push_back(failure("graphic_presetdb_parse", group.missing_group));
	}
	ASSERT_EQ(expected.size(), 20u);
	EXPECT_EQ(take_log_lines(), expected);
}

TEST_F(PresetDb, WithoutAPresetLogsOneLineAndFails)
{
	for (const char *text :
	     {"{}", "[]", "5", "'text'", "{'Other': {}}", "{'Preset': {'Input': {}}}"}) {
		EXPECT_FALSE(parse(text)) << text;
		EXPECT_EQ(take_log(), failure("graphic_presetdb_parse", 380) + "\n") << text;
		EXPECT_EQ(text_of(info), kDefaultText) << text;
	}
}

TEST_F(PresetDb, WithoutADocumentLogsTheSameLine)
{
	std::memset(static_cast<void *>(&info), 0x5A, sizeof info);
	EXPECT_FALSE(graphic_presetdb_parse(nullptr, &info));
	EXPECT_EQ(take_log(), failure("graphic_presetdb_parse", 380) + "\n");
	EXPECT_EQ(text_of(info), kDefaultText);
}

TEST_F(PresetDb, WithoutARecordFailsSilently)
{
	EXPECT_FALSE(graphic_presetdb_parse(json(document()).get(), nullptr));
	EXPECT_FALSE(graphic_presetdb_parse(nullptr, nullptr));
}

TEST_F(PresetDb, MissingGroupKeepsItsDefaultsAndLogsTwoLines)
{
	for (const GroupRow &group : complete()) {
		EXPECT_TRUE(parse(document(as_it_is, &group))) << group.key;
		Lines expected = complete_text();
		expected[group.text_line] = kDefaultText[group.text_line];
		EXPECT_EQ(text_of(info), expected) << group.key;
		EXPECT_EQ(take_log_lines(),
			  (Lines{failure(group.function, group.missing),
				 failure("graphic_presetdb_parse", group.missing_group)}))
			<< group.key;
	}
}

TEST_F(PresetDb, EmptyGroupLogsEachOfItsMembersInOrder)
{
	for (const GroupRow &empty : complete()) {
		EXPECT_TRUE(parse(document([&](const GroupRow &group, const MemberRow &member) {
			return &group == &empty ? std::string() : member.value;
		}))) << empty.key;
		Lines text = complete_text();
		text[empty.text_line] = kDefaultText[empty.text_line];
		EXPECT_EQ(text_of(info), text) << empty.key;
		Lines expected;
		for (const MemberRow &member : empty.members)
			expected.push_back(failure(empty.function, member.missing));
		EXPECT_EQ(take_log_lines(), expected) << empty.key;
	}
}

TEST_F(PresetDb, EachMissingMemberKeepsItsDefaultAndHasItsLine)
{
	size_t count = 0;
	for (const GroupRow &group : complete()) {
		for (const MemberRow &missing : group.members) {
			EXPECT_TRUE(parse(document([&](const GroupRow &, const MemberRow &member) {
				return &member == &missing ? std::string() : member.value;
			})));
			Lines expected = complete_text();
			expected[group.text_line] = missing.lost_text;
			EXPECT_EQ(text_of(info), expected) << group.key << "/" << missing.key;
			EXPECT_EQ(take_log(), failure(group.function, missing.missing) + "\n")
				<< group.key << "/" << missing.key;
			++count;
		}
	}
	EXPECT_EQ(count, 43u);
}

TEST_F(PresetDb, EachWordThatIsNoStringKeepsItsDefaultAndHasItsLine)
{
	for (const GroupRow &group : complete()) {
		for (const MemberRow &mistyped : group.members) {
			for (const char *value :
			     {"1", "true", "null", "['ON']", "{'ON': 1}", "'0x10'"}) {
				if (mistyped.mistyped == 0)
					continue;
				EXPECT_TRUE(parse(document([&](const GroupRow &,
							       const MemberRow &member) {
					return std::string(&member == &mistyped ? value : member.value);
				})));
				Lines expected = complete_text();
				expected[group.text_line] = mistyped.lost_text;
				EXPECT_EQ(text_of(info), expected)
					<< group.key << "/" << mistyped.key << value;
				EXPECT_EQ(take_log(), failure(group.function, mistyped.mistyped) + "\n")
					<< group.key << "/" << mistyped.key << value;
			}
		}
	}
}

TEST_F(PresetDb, NumbersAreTakenFromItemsOfAnyType)
{
	const struct {
		const char *value;
		s64 number;
	} cases[] = {
		{"0", 0},
		{"-5", -5},
		{"0x10", 16},
		{"'0x10'", 16},
		{"9223372036854775807", INT64_MAX},
		{"-9223372036854775808", INT64_MIN},
		{"true", 0},
		{"false", 0},
		{"null", 0},
		{"'text'", 0},
		{"'12'", 0},
		{"[7]", 0},
		{"{'a': 7}", 0},
	};
	for (const GroupRow &group : complete()) {
		for (const MemberRow &changed : group.members) {
			if (changed.mistyped != 0)
				continue;
			for (const auto &row : cases) {
				EXPECT_TRUE(
					parse(document([&](const GroupRow &, const MemberRow &member) {
						return std::string(&member == &changed ? row.value
										       : member.value);
					})));
				std::string expected =
					changed.lost_text; // with the default where the number goes
				const std::string standard =
					group.text_line == 2 && changed.missing == 198 ? "50"
					: changed.missing == 203                       ? "128"
										       : "1024";
				expected.replace(expected.find(standard), standard.size(),
						 std::to_string(row.number));
				EXPECT_EQ(text_of(info)[group.text_line], expected)
					<< group.key << "/" << changed.key << row.value;
			}
		}
	}
}

TEST_F(PresetDb, KeysAreFoundInAnyLetterCase)
{
	std::string text = document();
	for (const char *word :
	     {"Preset_PQ_Value", "Input", "ColorSpace", "User_gain_pq", "RGBGain_R", "HLG"}) {
		std::string upper = word;
		for (char &c : upper)
			c = static_cast<char>(c >= 'a' && c <= 'z'   ? c - 'a' + 'A'
					      : c >= 'A' && c <= 'Z' ? c - 'A' + 'a'
								     : c);
		const std::string key = "'" + std::string(word) + "'";
		for (size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + 1))
			text.replace(at + 1, upper.size(), upper);
	}
	EXPECT_TRUE(parse(text));
	EXPECT_EQ(text_of(info), complete_text());
}

// ---- words ----

struct WordCase {
	const char *text;
	int value;
};

TEST_F(PresetDb, RangeWords)
{
	const WordCase cases[] = {
		{"FULL", 2},    {"FULLRANGE", 2}, {"FUL", 0},     {"full", 0},  {"Full", 0},
		{"Limited", 1}, {"Limite", 1},    {"Limiter", 1}, {"Limit", 0}, {"limited", 0},
		{"LIMITED", 0}, {"", 0},          {" FULL", 0},   {"AUTO", 0},  {"MAX", 0},
	};
	for (const auto &row : cases) {
		const std::string value = "'" + std::string(row.text) + "'";
		EXPECT_EQ(with("Input", "Range", value).input.range, row.value) << row.text;
		EXPECT_EQ(info.output.range, RANGE_FULL);
		EXPECT_EQ(with("Output", "Range", value).output.range, row.value) << row.text;
		EXPECT_EQ(info.input.range, RANGE_FULL);
	}
}

TEST_F(PresetDb, ColourSpaceWords)
{
	const WordCase cases[] = {
		{"BT601", 1},      {"BT709", 2},  {"BT2020", 3},    {"ADOBE_RGB", 4},  {"DCI_P3", 5},
		{"BT2020_NCL", 3}, {"BT601x", 1}, {"BT709 ", 2},    {"ADOBE_RGB2", 4}, {"DCI_P3_D65", 5},
		{"bt709", 0},      {"BT202", 0},  {"ADOBE", 0},     {"DCI", 0},        {"", 0},
		{"AUTO", 0},       {"xBT709", 0}, {"Adobe_RGB", 0},
	};
	for (const auto &row : cases) {
		const std::string value = "'" + std::string(row.text) + "'";
		EXPECT_EQ(with("Input", "ColorSpace", value).input.colorspace, row.value) << row.text;
		EXPECT_EQ(with("Output", "ColorSpace", value).output.colorspace, row.value) << row.text;
	}
}

TEST_F(PresetDb, FormatWords)
{
	const WordCase cases[] = {
		{"RGB", 1}, {"RGB888", 1}, {"YUV", 2}, {"YUV422", 2}, {"rgb", 0},
		{"RG", 0},  {"yuv", 0},    {"", 0},    {"Yuv", 0},    {"AUTO", 0},
	};
	for (const auto &row : cases) {
		const std::string value = "'" + std::string(row.text) + "'";
		EXPECT_EQ(with("Input", "Dataformat", value).input.format, row.value) << row.text;
		EXPECT_EQ(with("Output", "Dataformat", value).output.format, row.value) << row.text;
	}
}

TEST_F(PresetDb, FlagWords)
{
	const struct {
		const char *text;
		bool value;
	} cases[] = {{"ON", true}, {"ONE", true},  {"ON ", true}, {"On", false},  {"on", false},
		     {"O", false}, {"OFF", false}, {"", false},   {" ON", false}, {"1", false}};
	for (const auto &row : cases) {
		const std::string value = "'" + std::string(row.text) + "'";
		EXPECT_EQ(with("SDR", "EOTFEnable", value).sdr.eotf_enable, row.value) << row.text;
		EXPECT_EQ(with("HLG", "GamutEnable", value).hlg.gamut_enable, row.value) << row.text;
		EXPECT_EQ(with("RGBOffset", "RGBOffsetEnable", value).rgb_offset.enable, row.value)
			<< row.text;
		EXPECT_EQ(with("RGBClipping", "RGBClippingManualMode", value).rgb_clipping.manual_mode,
			  row.value)
			<< row.text;
	}
}

TEST_F(PresetDb, EachModeReadsItsOwnGain)
{
	EXPECT_EQ(with("HDR10", "User_gain_hdr10", "7").hdr10.user_gain, 1024);
	EXPECT_EQ(with("HDR10", "User_gain_sdr", "7").hdr10.user_gain, 1024);
	EXPECT_EQ(with("HDR10", "User_gain_pq", "7").hdr10.user_gain, 7);
	EXPECT_EQ(with("SDR", "User_gain_pq", "7").sdr.user_gain, 1024);
	EXPECT_EQ(with("SDR", "User_gain_sdr", "7").sdr.user_gain, 7);
	EXPECT_EQ(with("HLG", "User_gain_pq", "7").hlg.user_gain, 1024);
	EXPECT_EQ(with("HLG", "User_gain_hlg", "7").hlg.user_gain, 7);
}

TEST_F(PresetDb, EachParseStartsFromTheDefaults)
{
	EXPECT_TRUE(parse(document()));
	const Json empty = json("{'Preset_PQ_Value': {}}");
	EXPECT_TRUE(graphic_presetdb_parse(empty.get(), &info));
	EXPECT_EQ(text_of(info), kDefaultText);
	take_log();
}

TEST_F(PresetDb, AllocatesNothing)
{
	const Json parsed = json(document());
	const size_t before = allocations();
	EXPECT_TRUE(graphic_presetdb_parse(parsed.get(), &info));
	EXPECT_EQ(allocations(), before);
}

// ---- readers on their own ----

class PresetDbReader : public PresetDb {
protected:
	void SetUp() override
	{
		Json parsed = json("{}");
		ASSERT_FALSE(graphic_presetdb_parse(parsed.get(), &info)); // the defaults
		take_log();
	}
};

TEST_F(PresetDbReader, IoInfoNeedsADocumentAndAName)
{
	const Json preset = json("{'Input': {}}");
	const std::string line = failure("__presetdb_get_IOinfo", 131) + "\n";
	EXPECT_FALSE(__presetdb_get_IOinfo(nullptr, &info, "Input"));
	EXPECT_EQ(take_log(), line);
	EXPECT_FALSE(__presetdb_get_IOinfo(preset.get(), &info, nullptr));
	EXPECT_EQ(take_log(), line);
	EXPECT_FALSE(__presetdb_get_IOinfo(preset.get(), &info, "Output"));
	EXPECT_EQ(take_log(), line);
	EXPECT_EQ(text_of(info), kDefaultText);
}

TEST_F(PresetDbReader, IoInfoFillsInputForNamesThatBeginSo)
{
	const std::string members = "{'Range': 'Limited', 'ColorSpace': 'BT601', 'Dataformat': 'YUV'}";
	const struct {
		const char *name;
		bool is_input;
	} cases[] = {{"Input", true},  {"Input2", true}, {"Output", false},
		     {"input", false}, {"Other", false}, {"Inpu", false}};
	for (const auto &row : cases) {
		SetUp();
		const Json preset = json("{'" + std::string(row.name) + "': " + members + "}");
		EXPECT_TRUE(__presetdb_get_IOinfo(preset.get(), &info, row.name)) << row.name;
		Lines expected = kDefaultText;
		(row.is_input ? expected[0] : expected[1]) =
			row.is_input ? "input 1 1 2" : "output 1 1 2";
		EXPECT_EQ(text_of(info), expected) << row.name;
	}
}

TEST_F(PresetDbReader, IoInfoLogsItsMembersOnly)
{
	const Json preset = json("{'Input': {'ColorSpace': 5}}");
	EXPECT_TRUE(__presetdb_get_IOinfo(preset.get(), &info, "Input"));
	EXPECT_EQ(take_log_lines(),
		  (Lines{failure("__presetdb_get_IOinfo", 134), failure("__presetdb_get_IOinfo", 152),
			 failure("__presetdb_get_IOinfo", 171)}));
}

TEST_F(PresetDbReader, HdrModeReadsTheNamedObject)
{
	const Json preset =
		json("{'SDR': {'User_gain_sdr': 1}, 'HDR10': {'User_gain_pq': 2, 'EOTFEnable': "
		     "'ON'}, 'HLG': {'User_gain_hlg': 3}}");
	const struct {
		const char *name;
		s64 gain;
	} cases[] = {{"SDR", 1}, {"HDR10", 2}, {"HLG", 3}};
	for (const auto &row : cases) {
		presetdb_hdr_mode mode{};
		EXPECT_TRUE(__presetdb_get_hdrmode(preset.get(), &mode, row.name));
		EXPECT_EQ(mode.user_gain, row.gain) << row.name;
		EXPECT_EQ(mode.eotf_enable, row.gain == 2) << row.name;
	}
	take_log();
}

TEST_F(PresetDbReader, HdrModeLogsAMissingObject)
{
	const Json preset = json("{'Input': {}}");
	for (const char *name : {"SDR", "HDR10", "HLG"}) {
		presetdb_hdr_mode mode{};
		EXPECT_FALSE(__presetdb_get_hdrmode(preset.get(), &mode, name));
		EXPECT_EQ(take_log(), failure("__presetdb_get_hdrmode", 223) + "\n");
		EXPECT_FALSE(__presetdb_get_hdrmode(nullptr, &mode, name));
		EXPECT_EQ(take_log(), failure("__presetdb_get_hdrmode", 223) + "\n");
	}
}

TEST_F(PresetDbReader, HdrModeLogsItsFlagsInOrderAndThenTheGain)
{
	const Json missing = json("{'HLG': {}}");
	const Json mistyped = json("{'HLG': {'GamutEnable': 1, 'OETF_EXTMode': 1, 'EOTF_EXTMode': 1, "
				   "'OETFEnable': 1, 'EOTFEnable': 1, 'GamutManualMode': 1, "
				   "'XVYCCManualMode': 1}}");
	const auto lines = [](std::initializer_list<int> numbers) {
		Lines expected;
		for (const int number : numbers)
			expected.push_back(failure("__presetdb_get_hdrmode", number));
		return expected;
	};
	presetdb_hdr_mode mode{};
	EXPECT_TRUE(__presetdb_get_hdrmode(missing.get(), &mode, "HLG"));
	EXPECT_EQ(take_log_lines(), lines({226, 231, 236, 241, 246, 251, 256, 266}));
	EXPECT_TRUE(__presetdb_get_hdrmode(mistyped.get(), &mode, "HLG"));
	EXPECT_EQ(take_log_lines(), lines({228, 233, 238, 243, 248, 253, 258, 266}));
}

} // namespace
