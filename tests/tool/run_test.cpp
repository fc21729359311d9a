// SPDX-License-Identifier: MIT
//
// vexil run and explain: what the rules select and write, and why, against a reading of the
// documents that knows neither keys nor images.
#include <set>

#include "tests/tool/rule_model.h"

namespace {

using namespace vexil_test;

struct NamedState {
	std::string name;
	std::string filter;
	size_t rules, without_match, settings, presets;
};

const std::vector<NamedState> &states()
{
	static const std::vector<NamedState> all = {
		{"film", kFilm, 85, 1, 81, 5},
		{"composite", kComposite, 88, 1, 85, 4},
		{"gaming", kGaming, 82, 2, 78, 4},
	};
	return all;
}

class ToolRun : public ToolTest {
protected:
	std::string tv() const { return build(kTv, "tv.pim"); }

	Json run_json(const std::vector<std::string> &more) const
	{
		return rules_json("run", more);
	}
	Json explain_json(const std::vector<std::string> &more) const
	{
		return rules_json("explain", more);
	}
	std::string text(const std::string &command, const std::string &rule,
			 const std::string &filter) const
	{
		return vexil_quiet({command, "tv.pim", "tv.rule", "--rule", rule, "--set", filter});
	}
	void expect_no(const std::vector<std::string> &more, const std::string &line,
		       int code = 1) const
	{
		for (const char *command : {"run", "explain"}) {
			std::vector<std::string> arguments = {command, "tv.pim", "tv.rule"};
			arguments.insert(arguments.end(), more.begin(), more.end());
			expect_refusal(arguments, code, line);
		}
	}

private:
	Json rules_json(const std::string &command, const std::vector<std::string> &more) const
	{
		std::vector<std::string> arguments = {command, "tv.pim", "tv.rule"};
		arguments.insert(arguments.end(), more.begin(), more.end());
		return vexil_json(arguments);
	}
};

std::vector<std::string> labels_in(const Json &list)
{
	std::vector<std::string> labels;
	for (const Json &entry : list)
		labels.push_back(entry["label"]);
	return labels;
}

/** Labels of one kind, in their order. */
std::vector<std::string> of_kind(const std::vector<std::string> &labels, const Model &model,
				 bool presets)
{
	std::vector<std::string> found;
	for (const std::string &label : labels) {
		if ((model.config(label).kind == "preset") == presets)
			found.push_back(label);
	}
	return found;
}

/** Compares registers in the tool's JSON with what the documents say. */
void expect_registers(const Json &output, const ExpectedRegisters &expected)
{
	constexpr int kSync = 57, kHardware = 36, kSoftware = 37, kCustomer = 55, kRaw = 45;
	std::map<uint32_t, ExpectedRegister> hardware;
	const auto of = [&](int tag) {
		const auto found = expected.find(tag);
		return found == expected.end() ? std::map<uint32_t, ExpectedRegister>()
					       : found->second;
	};
	hardware = of(kHardware);
	for (const auto &[number, written] : of(kSync))
		EXPECT_TRUE(hardware.emplace(number, written).second) << number;
	const std::pair<const char *, std::map<uint32_t, ExpectedRegister>> forms[] = {
		{"hardware", hardware}, {"software", of(kSoftware)}, {"customer", of(kCustomer)}};
	for (const auto &[key, registers] : forms) {
		std::map<uint32_t, ExpectedRegister> found;
		for (const Json &entry : output[key])
			found[entry["position"]] = {entry["value"], entry["writers"].back()};
		EXPECT_EQ(found.size(), output[key].size()) << key;
		EXPECT_EQ(found, registers) << key;
	}
	EXPECT_EQ(output["words"].size(), of(kRaw).size());
	for (const Json &entry : output["words"]) {
		const auto word = of(kRaw).find(entry["word"]);
		ASSERT_NE(word, of(kRaw).end());
	}
}

TEST_F(ToolRun, StatesSelectAndWriteWhatTheDocumentsSay)
{
	tv();
	const Model model(kTv);
	const RuleModel rules(kTv);
	for (const NamedState &state : states()) {
		SCOPED_TRACE(state.name);
		Selection expected;
		rules.evaluate(state.filter, "Picture", expected);
		const Json output =
			run_json({"--rule", "Picture", "--set", state.filter, "--product", kTv});
		EXPECT_EQ(labels_in(output["settings"]), of_kind(expected.labels, model, false));
		EXPECT_EQ(labels_in(output["presets"]), of_kind(expected.labels, model, true));
		EXPECT_EQ(output["settings"].size(), state.settings);
		EXPECT_EQ(output["presets"].size(), state.presets);
		expect_registers(output, registers_of(expected.labels, model));
		for (const Json &entry : output["hardware"])
			EXPECT_EQ(model.hardware.at(entry["name"]), entry["position"]);
		size_t files = 0;
		for (const std::string &label : expected.labels) {
			for (const ExpectedBlock &block : model.config(label).blocks)
				files += !block.file.empty();
		}
		EXPECT_EQ(output["files"].size(), files);
	}
}

TEST_F(ToolRun, AddressFormMergesFieldsOfOneWord)
{
	tv();
	const Model model(kTv);
	const Json plain = run_json({"--rule", "Picture", "--set", kFilm, "--product", kTv});
	const Json output =
		run_json({"--rule", "Picture", "--set", kFilm, "--product", kTv, "--address"});
	std::map<std::pair<uint32_t, uint32_t>, std::pair<uint32_t, uint32_t>> words;
	const auto put = [&](uint32_t domain, uint32_t address, uint32_t mask, uint32_t value) {
		auto &[all, bits] = words[{domain, address}];
		all |= mask;
		bits = (bits & ~mask) | (value & mask);
	};
	std::set<uint32_t> sync;
	for (const Json &entry : output["hardware"])
		sync.insert(entry["position"].get<uint32_t>());
	for (const Json &entry : plain["hardware"]) {
		const uint32_t position = entry["position"];
		if (sync.contains(position))
			continue;
		const Field &field = model.table.at(position);
		put(field.domain, field.address, ((1u << field.width) - 1) << field.lowest_bit,
		    entry["value"].get<uint32_t>() << field.lowest_bit);
	}
	for (const Json &entry : plain["words"])
		put(entry["domain"], entry["word"].get<uint32_t>() & 0x7FFFFFF,
		    entry["para"].get<uint32_t>() >> 16, entry["value"]);
	ASSERT_EQ(output["words"].size(), words.size());
	for (const Json &entry : output["words"]) {
		const auto found =
			words.find({entry["domain"], entry["word"].get<uint32_t>() & 0x7FFFFFF});
		ASSERT_NE(found, words.end());
		EXPECT_EQ(entry["para"].get<uint32_t>() >> 16, found->second.first);
		EXPECT_EQ(entry["value"], found->second.second);
	}
}

TEST_F(ToolRun, EveryRuleListExcludeAndOptionsThatComeAgain)
{
	tv();
	const RuleModel rules(kTv);
	const Model model(kTv);
	Selection all, but, two;
	for (const std::string &rule : rules.rules()) {
		rules.evaluate(kFilm, rule, all);
		if (rule != "Picture" && rule != "Memc")
			rules.evaluate(kFilm, rule, but);
	}
	rules.evaluate(kFilm, "Memc", two);
	rules.evaluate(kFilm, "Backlight", two);
	const auto settings = [&](const std::vector<std::string> &more) {
		std::vector<std::string> arguments = {"--set", kFilm};
		arguments.insert(arguments.end(), more.begin(), more.end());
		return labels_in(run_json(arguments)["settings"]);
	};
	EXPECT_EQ(settings({}), of_kind(all.labels, model, false));
	EXPECT_EQ(settings({}).size(), 317u);
	EXPECT_EQ(settings({"--rule", "Picture;-memc"}), of_kind(but.labels, model, false));
	EXPECT_EQ(settings({"--rule=-Picture", "--rule", "Memc"}),
		  of_kind(but.labels, model, false));
	EXPECT_EQ(settings({"--rule", "Memc", "--rule", "Backlight"}),
		  of_kind(two.labels, model, false));
	EXPECT_EQ(settings({"--rule", " memc ; BACKLIGHT;"}), of_kind(two.labels, model, false));
	const Json set_again =
		run_json({"--rule", "DynContrastCurve", "--set", kFilm, "--set", "Luma : 0x1AE"});
	EXPECT_EQ(labels_in(set_again["settings"]),
		  std::vector<std::string>{"DynContrast_Curve#Deep_S"});
}

TEST_F(ToolRun, StateNeedNotBeComplete)
{
	tv();
	const Json output =
		run_json({"--rule", "Picture", "--set", "Input:HDMI1;Timing:2160p60;Luma:812"});
	EXPECT_EQ(output["settings"].size(), 78u);
	EXPECT_EQ(output["presets"].size(), 4u);
}

TEST_F(ToolRun, BudgetCutsASettingAndLeavesTheRest)
{
	tv();
	const Json whole = run_json({"--rule", "Picture", "--set", kFilm});
	const Json large = run_json({"--rule", "Picture", "--set", kFilm, "--budget", "5000"});
	EXPECT_EQ(large["hardware"], whole["hardware"]);
	EXPECT_EQ(large["budget"]["stopped"], false);
	const int64_t spent = 5000 - large["budget"]["remaining"].get<int64_t>();

	const Json exact =
		run_json({"--rule", "Picture", "--set", kFilm, "--budget", std::to_string(spent)});
	EXPECT_EQ(exact["budget"]["remaining"], 0);
	EXPECT_EQ(exact["budget"]["stopped"], false);

	const Json cut = run_json({"--rule", "Picture", "--set", kFilm, "--budget", "40"});
	EXPECT_EQ(cut["budget"]["stopped"], true);
	EXPECT_LT(cut["budget"]["remaining"].get<int64_t>(), 0);
	const std::string label = cut["budget"]["cut"];
	bool behind = false;
	for (const Json &entry : cut["settings"]) {
		behind = behind || entry["label"] == label;
		EXPECT_EQ(entry["loaded"], !behind) << entry["label"];
	}
	EXPECT_TRUE(behind);
	for (const Json &entry : cut["presets"])
		EXPECT_EQ(entry["loaded"], false);
	EXPECT_LE(cut["hardware"].size(), 40u);
	const std::string text = vexil_quiet({"run", "tv.pim", "tv.rule", "--rule", "Picture",
					      "--set", kFilm, "--budget", "40"});
	EXPECT_NE(text.find("stopped: budget; '" + label + "' was cut"), std::string::npos);
}

TEST_F(ToolRun, TextNamesSettingsRegistersAndWriters)
{
	tv();
	const std::string text = vexil_quiet({"run", "tv.pim", "tv.rule", "--rule", "DynContrast",
					      "--set", kFilm, "--product", kTv});
	const std::vector<std::string> lines = lines_of(text);
	EXPECT_EQ(lines[0], "settings (2)");
	EXPECT_NE(lines[2].find("DynContrast_Level#Low"), std::string::npos);
	EXPECT_NE(lines[3].find("DynContrast_Curve#Soft_S"), std::string::npos);
	EXPECT_NE(text.find("SW_DCT_LEVEL"), std::string::npos);
	EXPECT_NE(
		text.find(
			"algorithm file for dynamic_contrast: dynamic_contrast.par, 554 bytes, by "
			"DynContrast_Level#Low\n"),
		std::string::npos);
	const std::string brief = vexil_quiet({"run", "tv.pim", "tv.rule", "--rule", "Picture",
					       "--set", kFilm, "--product", kTv, "--brief"});
	EXPECT_LT(lines_of(brief).size(), 80u);
	EXPECT_NE(brief.find("... 73 more\n"), std::string::npos);
}

TEST_F(ToolRun, NamesThatAreUnknownAreRefusedWithHints)
{
	tv();
	expect_no(
		{"--set", "Inptu:HDMI1"},
		"vexil: tv.rule: --set 'Inptu:HDMI1': there is no source 'Inptu'; similar: 'Input'");
	expect_no({"--set", "Input:HDMI1;Range:Ful"},
		  "vexil: tv.rule: --set 'Range:Ful': source 'Range' has no such value; similar: "
		  "'Range:Full'");
	expect_no({"--set", "Range"},
		  "vexil: tv.rule: --set 'Range': needs a value, as 'Range:Limited'");
	expect_no({"--set", "Luma"}, "vexil: tv.rule: --set 'Luma': needs a number, as 'Luma:100'");
	for (const std::string number : {"", "8x", "-1", "0x", "089", "18446744073709551616"})
		expect_no({"--set", "Luma:" + number}, "vexil: tv.rule: --set 'Luma:" + number +
							       "': '" + number +
							       "' is not a number");
	expect_no({"--set", "Scene:Dark"},
		  "vexil: tv.rule: --set 'Scene:Dark': is a name for ranges and cannot be set; set "
		  "Luma");
	expect_no({"--set", std::string(128, 'x')}, "vexil: tv.rule: --set '" +
							    std::string(64, 'x') +
							    "...': is longer than 127 characters");
	expect_no({"--rule", "Memcc"}, "vexil: tv.rule: there is no rule 'Memcc'; similar: 'Memc'");
	for (const std::string command : {"run", "explain"})
		expect_refusal({command, "tv.pim", "tv.rule", "--rule", " ;- "}, 2,
			       "vexil: --rule names no rule (see 'vexil " + command + " --help')");
}

TEST_F(ToolRun, RulesOfAnotherMapAreRefused)
{
	tv();
	build(kCustomer, "customer.pim");
	for (const char *command : {"run", "explain"}) {
		const ProcessResult result = vexil({command, "customer.pim", "tv.rule"});
		EXPECT_EQ(result.exit_code, 1);
		EXPECT_EQ(result.out, "");
		EXPECT_NE(result.err.find("which customer.pim does not have: the rules were built "
					  "for another map, or are damaged\n"),
			  std::string::npos)
			<< result.err;
		expect_refusal({command, "tv.pim", "tv.pim"}, 1,
			       "vexil: tv.pim: is a PIM image; a rule image is needed");
		expect_refusal({command, "tv.rule", "tv.rule"}, 1,
			       "vexil: tv.rule: is a rule image; a PIM image is needed");
		expect_refusal({command, "tv.pim", "none.rule"}, 1,
			       "vexil: none.rule: No such file or directory");
	}
}

// ---- explain ----

TEST_F(ToolRun, ExplanationNamesTheCaseOfEveryRule)
{
	tv();
	const RuleModel rules(kTv);
	for (const NamedState &state : states()) {
		SCOPED_TRACE(state.name);
		Selection expected;
		rules.evaluate(state.filter, "Picture", expected);
		const Json output = explain_json({"--rule", "Picture", "--set", state.filter});
		std::vector<std::pair<std::string, size_t>> matched;
		size_t none = 0;
		for (const Json &entry : output["rules"]) {
			const size_t number =
				entry["matched"].is_null() ? 0 : entry["matched"].get<size_t>();
			none += number == 0;
			matched.emplace_back(entry["rule"], number);
			if (!entry.contains("failed"))
				continue;
			EXPECT_EQ(entry["failed"].size(),
				  number ? number - 1 : entry["cases"].get<size_t>());
			for (const Json &failed : entry["failed"]) {
				EXPECT_FALSE(failed["wanted"].empty());
				EXPECT_TRUE(rules.sources.contains(
					failed["source"].get<std::string>()));
			}
		}
		EXPECT_EQ(matched, expected.matched);
		EXPECT_EQ(matched.size(), state.rules);
		EXPECT_EQ(none, state.without_match);
	}
}

TEST_F(ToolRun, ExplanationReadsAsDocumented)
{
	tv();
	EXPECT_EQ(text("explain", "DynContrast", kFilm),
		  "DynContrast: case 2 of 6\n"
		  "  case 1 fails: PictureMode is Movie, wanted Computer or Expert\n"
		  "  case 2 matches: HdrType is Hdr10, UserContrast is High\n"
		  "    selects DynContrast_Level#Low\n"
		  "    leads to DynContrastCurve\n"
		  "  DynContrastCurve: case 7 of 7\n"
		  "    case 1 fails: PictureMode is Movie, wanted Game\n"
		  "    case 2 fails: PictureMode is Movie, wanted Computer or Expert\n"
		  "    case 3 fails: Luma is 812 (Scene:Bright), wanted 24 to 219 (Scene:Dark)\n"
		  "    case 4 fails: Luma is 812 (Scene:Bright), wanted 220 to 639 (Scene:Mid)\n"
		  "    case 5 fails: Luma is 812 (Scene:Bright), wanted 1 to 23 (Scene:Black)\n"
		  "    case 6 fails: Luma is 812 (Scene:Bright), wanted 24 to 219 (Scene:Dark)\n"
		  "    case 7 matches: it has no conditions\n"
		  "      selects DynContrast_Curve#Soft_S\n");
	EXPECT_NE(text("explain", "ToneScene", kFilm)
			  .find("  case 1 fails: LowLatency is not set, wanted On\n"
				"  case 2 fails: HdrType is Hdr10, wanted Hdr10_Dynamic\n"
				"  case 3 fails: PeakNits is 1000, wanted 1201 to 10000\n"),
		  std::string::npos);
	EXPECT_NE(text("explain", "DecoderComb", kComposite)
			  .find("  case 4 fails: NoiseLevel is 64, wanted "),
		  std::string::npos);
	EXPECT_NE(text("explain", "Colour", kComposite).find("Colour: case 5 of 6\n"),
		  std::string::npos);
	EXPECT_NE(text("explain", "OverdriveTemperature", kComposite)
			  .find("matches: PanelTemp is 95, within 1 to 119 (PanelHeat:Cold)\n"),
		  std::string::npos);
	EXPECT_NE(text("explain", "InputMatrix", kGaming).find("InputMatrix: case 1 of 7\n"),
		  std::string::npos);
	EXPECT_NE(text("explain", "Deblock", kGaming)
			  .find("Deblock: case 1 of 7\n  case 1 matches: PictureMode is Game\n"),
		  std::string::npos);
	EXPECT_NE(text("explain", "DimmingStrobe", kGaming).find("RoomMode is Night, wanted Auto"),
		  std::string::npos);
	EXPECT_NE(text("explain", "HdrPreset", kGaming).find("HdrPreset: none of 4 cases\n"),
		  std::string::npos);
}

TEST_F(ToolRun, ValuesThatWereNotSetAreSaidToBe)
{
	tv();
	const Json output = explain_json({"--rule", "DynContrastCurve"})["rules"][0];
	EXPECT_TRUE(output["failed"][0]["present"].is_null());
	const std::string numbers = vexil_quiet(
		{"explain", "tv.pim", "tv.rule", "--rule", "ToneScene", "--set", "HdrType:Hdr10"});
	EXPECT_NE(numbers.find("PeakNits is not set, which counts as 0, wanted 1201 to 10000"),
		  std::string::npos)
		<< numbers;
}

TEST_F(ToolRun, ExplanationCarriesTheDocumentsDescriptions)
{
	tv();
	const Json rule = read_json(kTv + "/rules/enhance.json")["PqRuleGroups"]["DynContrast"];
	const Json output = explain_json({"--rule", "DynContrast", "--product", kTv})["rules"][0];
	EXPECT_EQ(output["description"], rule["0.Description"]);
}

TEST_F(ToolRun, ExplainTakesTheArgumentsOfRun)
{
	tv();
	const std::string hardware = kTv + "/registers/hardware.json";
	const std::vector<std::string> arguments = {"tv.pim",    "tv.rule",
						    "--rule",    "DynContrast",
						    "--set",     kFilm,
						    "--hw",      hardware,
						    "--sw",      hardware,
						    "--cus",     hardware,
						    "--reginfo", kTv + "/reginfo.json",
						    "--budget",  "40",
						    "--address", "--common",
						    "--brief"};
	for (const std::string command : {"run", "explain"}) {
		std::vector<std::string> all{command};
		all.insert(all.end(), arguments.begin(), arguments.end());
		EXPECT_EQ(vexil(all).exit_code, 0) << vexil(all).err;
	}
	std::vector<std::string> all{"explain"};
	all.insert(all.end(), arguments.begin(), arguments.end());
	EXPECT_EQ(vexil_quiet(all), text("explain", "DynContrast", kFilm));
}

TEST_F(ToolRun, RulesThatWereExplainedAreNotExplainedAgain)
{
	tv();
	const std::string text = vexil_quiet({"explain", "tv.pim", "tv.rule", "--rule",
					      "DynContrastCurve;DynContrast", "--set", kFilm});
	EXPECT_NE(text.find("  DynContrastCurve: case 7 of 7, as above\n"), std::string::npos)
		<< text;
}

// ---- both images merged ----

TEST_F(ToolRun, MergedRulesSelectWhatBothDocumentsSay)
{
	tv();
	build(kCustomer, "customer.pim");
	const std::string said = vexil_quiet({"merge", "tv.pim", "customer.pim", "-o", "shop.pim"});
	EXPECT_EQ(lines_of(said)[0], "with the rules beside them: customer.rule over tv.rule");
	EXPECT_EQ(lines_of(said)[2].rfind("shop.rule: ", 0), 0u);
	vexil_quiet({"merge", "tv.pim", "customer.pim", "-o", "shop2.pim", "--rules", "tv.rule",
		     "customer.rule", "--rules-out", "other.rule"});
	EXPECT_EQ(read_text(path("other.rule")), read_text(path("shop.rule")));
	const RuleModel base(kTv);
	const RuleModel sub(kCustomer);
	for (const NamedState &state : states()) {
		SCOPED_TRACE(state.name);
		Selection expected;
		base.evaluate(state.filter, "Picture", expected);
		sub.evaluate(state.filter, "ShopStage", expected);
		const Json explained = vexil_json({"explain", "shop.pim", "shop.rule", "--rule",
						   "Picture;ShopStage", "--set", state.filter});
		// The customer's own rule of a name that the television keeps is led to by its
		// place.
		std::vector<std::string> selected;
		std::vector<std::pair<std::string, size_t>> matched;
		for (const Json &entry : explained["rules"])
			matched.emplace_back(
				entry["rule"],
				entry["matched"].is_null() ? 0 : entry["matched"].get<size_t>());
		EXPECT_EQ(matched, expected.matched);
		const Json run =
			vexil_json({"run", "shop.pim", "shop.rule", "--rule", "Picture;ShopStage",
				    "--set", state.filter, "--product", kCustomer});
		for (const char *list : {"settings", "presets"}) {
			for (const std::string &label : labels_in(run[list]))
				selected.push_back(label);
		}
		std::vector<std::string> wanted = expected.labels;
		std::sort(selected.begin(), selected.end());
		std::sort(wanted.begin(), wanted.end());
		EXPECT_EQ(selected, wanted);
	}
	// A customer's register is written by the customer's setting, which comes last.
	const Json shop =
		vexil_json({"run", "shop.pim", "shop.rule", "--rule", "Picture;ShopStage", "--set",
			    "Site:Shop;AmbientLux:400;Demo:Motion", "--product", kCustomer});
	bool found = false;
	for (const Json &entry : shop["settings"])
		found = found || entry["label"] == "Store_Picture#Shop";
	EXPECT_TRUE(found);
	const Json tv_white = vexil_json({"explain", "shop.pim", "shop.rule", "--rule",
					  "WhitePoint", "--set", kGaming})["rules"][0];
	EXPECT_EQ(tv_white["cases"], 8);
}

TEST_F(ToolRun, MergeTellsWhatItFoundOfRules)
{
	tv();
	build(kCustomer, "customer.pim");
	std::remove(path("customer.rule").c_str());
	const std::string said = vexil_quiet({"merge", "tv.pim", "customer.pim", "-o", "shop.pim"});
	EXPECT_EQ(lines_of(said)[0],
		  "without rules: customer.pim has none beside it (--rules BASE SUB)");
	EXPECT_EQ(names(),
		  (std::vector<std::string>{"customer.pim", "shop.pim", "tv.pim", "tv.rule"}));
	expect_refusal(
		{"merge", "tv.pim", "customer.pim", "-o", "x.pim", "--rules", "tv.rule", "tv.pim"},
		1, "vexil: tv.pim: is a PIM image; a rule image is needed");
}

TEST_F(ToolRun, RulesOverOtherSourcesCannotBeMerged)
{
	tv();
	const auto other = [&](const std::string &sources) {
		write("s.json", sources);
		vexil_quiet({"build", "-o", "other.pim", "--sources", "s.json", "--handler", "h"});
		const ProcessResult result = vexil({"merge", "tv.pim", "other.pim", "-o", "x.pim"});
		EXPECT_EQ(result.exit_code, 1);
		return result.err;
	};
	EXPECT_EQ(other(R"({"PqRuleLists": {"Colour": {"content": ["Red"]}}})"),
		  "vexil: other.rule over tv.rule: their sources differ: 'Colour:Red' is not in "
		  "tv.rule\n");
	EXPECT_EQ(
		other(R"({"PqRuleLists": {"Range": {"content": ["Limited", "Full"]}}})"),
		"vexil: other.rule over tv.rule: their sources differ: 'Range:Limited' has another "
		"place in the key\n");
	EXPECT_FALSE(names().empty());
	for (const std::string &name : names())
		EXPECT_NE(name.rfind("x.", 0), 0u) << name;
}

// ---- list, info, dump ----

TEST_F(ToolRun, ListShowsSourcesAndRulesOfTheDocuments)
{
	tv();
	const RuleModel model(kTv);
	const Json output = vexil_json({"list", "tv.rule"});
	ASSERT_EQ(output["sources"].size(), model.sources.size());
	size_t at = 0;
	size_t bits = 0;
	size_t slots = 0;
	for (const auto &[name, source] : model.sources.items()) {
		const Json &shown = output["sources"][at++];
		EXPECT_EQ(shown["name"], name);
		if (source.contains("define")) {
			EXPECT_EQ(shown["kind"], "ranges");
			EXPECT_EQ(shown["values"].size(), source["content"].size());
			continue;
		}
		EXPECT_EQ(shown["shift"], bits) << name;
		size_t width = 1;
		if (source["content"].is_array()) {
			EXPECT_EQ(shown["kind"], "values");
			while (size_t{1} << width <= source["content"].size())
				++width;
			for (size_t i = 0; i < source["content"].size(); ++i)
				EXPECT_EQ(shown["values"][i]["value"], source["content"][i]);
		} else {
			EXPECT_EQ(shown["kind"], "number");
			EXPECT_EQ(shown["slot"], slots++);
		}
		EXPECT_EQ(shown["width"], width) << name;
		bits += width;
	}
	const Json info = vexil_json({"info", "tv.rule"});
	EXPECT_EQ(info["kind"], "rule");
	EXPECT_EQ(info["counts"]["usedBits"], bits);
	EXPECT_EQ(info["counts"]["keyWords"], 3);
	EXPECT_EQ(info["counts"]["slots"], slots);
	EXPECT_EQ(info["counts"]["rules"], 92);
	EXPECT_EQ(info["counts"]["cases"], 435);
	EXPECT_EQ(info["counts"]["alternatives"], 1403);

	std::vector<std::string> rules;
	for (const Json &rule : output["rules"])
		rules.push_back(rule["name"]);
	EXPECT_EQ(rules, model.rules());
	EXPECT_EQ(output["rules"][0]["children"],
		  (std::vector<std::string>{"PanelStage", "InputStage", "MotionStage",
					    "EnhanceStage", "HdrStage"}));
	EXPECT_FALSE(vexil_json({"list", "tv.rule", "--rules"}).contains("sources"));
	EXPECT_FALSE(vexil_json({"list", "tv.rule", "--sources"}).contains("rules"));
	const std::string text = vexil_quiet({"list", "tv.rule", "--sources"});
	EXPECT_NE(text.find("  Timing  38 values, bits 5 to 10\n"), std::string::npos);
	EXPECT_NE(text.find("  Luma  a number, bit 124, slot 0\n"), std::string::npos);
	EXPECT_NE(text.find("Dark (Luma 24 to 219)"), std::string::npos);
	expect_refusal({"list", "tv.pim", "--rules"}, 1,
		       "vexil: tv.pim: is a PIM image; a rule image is needed");
	EXPECT_NE(vexil_quiet({"dump", "tv.rule"}).find("PROP:DynContrast\n"), std::string::npos);
}

} // namespace
