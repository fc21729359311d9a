// SPDX-License-Identifier: MIT
//
// vexil presetdb: the record that a document gives, and what is wrong with the document.
#include "tests/tool/fixture.h"

namespace {

using namespace vexil_test;

class ToolPresetDb : public ToolTest {};

TEST_F(ToolPresetDb, ExampleIsShownWithTheValuesOfTheDocument)
{
	const std::string file = kTv + "/presetdb.json";
	const Json document = read_json(file)["Preset_PQ_Value"];
	const Json preset = vexil_json({"presetdb", file})["preset"];
	EXPECT_EQ(preset.size(), 10u);
	EXPECT_EQ(preset["output"]["colorspace"], document["Output"]["ColorSpace"]);
	EXPECT_EQ(preset["output"]["range"], document["Output"]["Range"]);
	EXPECT_EQ(preset["output"]["format"], document["Output"]["Dataformat"]);
	EXPECT_EQ(preset["tuning"]["sat"], document["Colortuning"]["Sat"]);
	EXPECT_EQ(preset["hdr10"]["user_gain"], document["HDR10"]["User_gain_pq"]);
	EXPECT_EQ(preset["hdr10"]["eotf_enable"], document["HDR10"]["EOTFEnable"] == "ON");
	EXPECT_EQ(preset["sdr"]["eotf_enable"], document["SDR"]["EOTFEnable"] == "ON");
	EXPECT_EQ(preset["rgb_gain"]["g"], document["RGBGain"]["RGBGain_G"]);
	EXPECT_EQ(preset["brightness"]["b"], document["Brightness"]["Brightness_B"]);
	const std::string text = vexil_quiet({"presetdb", file});
	EXPECT_NE(text.find("\noutput\n  range               Limited\n"), std::string::npos)
		<< text;
}

TEST_F(ToolPresetDb, MembersThatAreMissingAreNamedAndKeepTheirDefaults)
{
	Json document = read_json(kTv + "/presetdb.json");
	document["Preset_PQ_Value"]["Output"].erase("Range");
	document["Preset_PQ_Value"]["HDR10"]["EOTFEnable"] = 1;
	document["Preset_PQ_Value"]["HLG"].erase("User_gain_hlg");
	document["Preset_PQ_Value"].erase("RGBGain");
	write("p.json", document.dump());
	const ProcessResult result = vexil({"presetdb", "p.json", "--json"});
	EXPECT_EQ(result.exit_code, 0);
	EXPECT_EQ(
		lines_of(result.err),
		(std::vector<std::string>{
			"vexil: p.json: PresetDB member Output.Range is missing "
			"(__presetdb_get_IOinfo 134)",
			"vexil: p.json: PresetDB member HDR10.EOTFEnable is not a text "
			"(__presetdb_get_hdrmode 238)",
			"vexil: p.json: PresetDB member HLG.User_gain_hlg is missing "
			"(__presetdb_get_hdrmode 266)",
			"vexil: p.json: PresetDB group RGBGain is missing (__presetdb_get_RGBGain "
			"326)",
			"vexil: p.json: PresetDB group RGBGain keeps its defaults "
			"(graphic_presetdb_parse 390)"}));
	const Json preset = Json::parse(result.out)["preset"];
	EXPECT_EQ(preset["output"]["range"], "FULL");
	EXPECT_EQ(preset["hdr10"]["eotf_enable"], false);
	EXPECT_EQ(preset["hlg"]["user_gain"], 1024);
	EXPECT_EQ(preset["rgb_gain"]["r"], 1024);
}

TEST_F(ToolPresetDb, IntegersThatAreNoNumbersCountAsNothingAndAreReported)
{
	Json document = read_json(kTv + "/presetdb.json");
	Json &preset = document["Preset_PQ_Value"];
	preset["HDR10"]["User_gain_pq"] = "abc";
	preset["Colortuning"]["Hue"] = "77";
	preset["Colortuning"]["Contrast"] = "0x400";
	preset["RGBGain"]["RGBGain_G"] = nullptr;
	preset["Brightness"]["Brightness_R"] = -5;
	preset["Output"]["Range"] = "wide";
	preset["SDR"]["EOTFEnable"] = "ONLY";
	write("p.json", document.dump());
	const ProcessResult result = vexil({"presetdb", "p.json", "--json"});
	EXPECT_EQ(result.exit_code, 0);
	EXPECT_EQ(
		lines_of(result.err),
		(std::vector<std::string>{
			"vexil: p.json: PresetDB member Colortuning.Hue is a text, and counts as 0",
			"vexil: p.json: PresetDB member HDR10.User_gain_pq is a text, and counts "
			"as 0",
			"vexil: p.json: PresetDB member RGBGain.RGBGain_G is not a number, and "
			"counts as 0"}));
	const Json shown = Json::parse(result.out)["preset"];
	EXPECT_EQ(shown["hdr10"]["user_gain"], 0);
	EXPECT_EQ(shown["tuning"]["hue"], 0);
	EXPECT_EQ(shown["tuning"]["contrast"], 0x400);
	EXPECT_EQ(shown["rgb_gain"]["g"], 0);
	EXPECT_EQ(shown["brightness"]["r"], -5);
	EXPECT_EQ(shown["output"]["range"], "auto");
	EXPECT_EQ(shown["sdr"]["eotf_enable"], true);
}

TEST_F(ToolPresetDb, DocumentsWithoutAPresetAreRefused)
{
	write("p.json", "{}");
	expect_refusal({"presetdb", "p.json"}, 1,
		       "vexil: p.json: there is no \"Preset_PQ_Value\" in it: "
		       "[graphic_presetdb_parse][380]PresetDB parsing fail!!");
	write("p.json", "[]");
	expect_refusal({"presetdb", "p.json"}, 1,
		       "vexil: p.json:1:1: the document is not an object");
	write("p.json", "{\"Preset_PQ_Value\": }");
	expect_refusal({"presetdb", "p.json"}, 1,
		       "vexil: p.json:1:21: a value is expected, not '}'");
	expect_refusal({"presetdb", "none.json"}, 1, "vexil: none.json: No such file or directory");
}

} // namespace
