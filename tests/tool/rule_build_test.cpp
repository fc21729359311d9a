// SPDX-License-Identifier: MIT
//
// vexil build with sources and rules: a line for each fault, with the rule and the case.
#include <filesystem>

#include <sys/stat.h>

#include "tests/tool/fixture.h"

namespace {

using namespace vexil_test;
namespace fs = std::filesystem;

class ToolRuleBuild : public ToolTest {
protected:
	static constexpr const char *kSources = R"({"PqRuleLists": {
		"Input": {"content": ["HDMI", "DP", "USB"]},
		"Luma": {"content": "code"},
		"Scene": {"content": ["Dark", "Bright"],
			  "define": {"Dark": {"Luma": "[0,99]"}, "Bright": {"Luma": "[100,255]"}}}}})";

	static std::string rules(const std::string &groups)
	{
		return "{\"PqRuleGroups\": {" + groups + "}}";
	}
	/** A rule of one case. */
	static std::string rule(const std::string &name, const std::string &comparator,
				const std::string &rest = R"("settings": [], "children": [])")
	{
		return "\"" + name + "\": {\"rules\": [{\"comparator\": " + comparator + ", " +
		       rest + "}]}";
	}

	ProcessResult build_with(const std::string &sources, const std::string &rules_text,
				 const std::vector<std::string> &more = {}) const
	{
		write("hw.json", R"({"PqHWRegList": {"register": [{"A": 0}, {"B": 1}]}})");
		write("g.json", R"({"PqFuncGroups": {"Ip": {"settings": {"Set": {"group":
			{"One": {"hwreg": {"A": 1}}, "Two": {"hwreg": {"B": 1}}}}}}}})");
		write("s.json", sources);
		write("r.json", rules_text);
		std::vector<std::string> arguments = {"build",   "-o",       "out.pim", "--hw",
						      "hw.json", "--groups", "g.json",  "--sources",
						      "s.json",  "--rules",  "r.json"};
		arguments.insert(arguments.end(), more.begin(), more.end());
		return vexil(arguments);
	}

	/** Expects these faults and no image; with --keep-going, both images and as many warnings.
	 */
	void expect_faults(const std::string &sources, const std::string &rules_text,
			   const std::vector<std::string> &faults) const
	{
		const ProcessResult strict = build_with(sources, rules_text);
		EXPECT_EQ(strict.exit_code, 1);
		EXPECT_EQ(strict.out, "");
		std::vector<std::string> lines, warnings;
		for (const std::string &fault : faults) {
			const std::string file = fault.substr(0, fault.find(' '));
			std::string line = "vexil: ";
			lines.push_back(line + fault);
			line += file;
			line += " warning:";
			warnings.push_back(line + fault.substr(file.size()));
		}
		lines.push_back("vexil: out.pim: not written: " + std::to_string(faults.size()) +
				(faults.size() == 1 ? " fault" : " faults") +
				" (--keep-going writes it all the same)");
		EXPECT_EQ(lines_of(strict.err), lines);
		EXPECT_FALSE(fs::exists(path("out.pim")));
		EXPECT_FALSE(fs::exists(path("out.rule")));
		const ProcessResult lenient = build_with(sources, rules_text, {"--keep-going"});
		EXPECT_EQ(lenient.exit_code, 0);
		EXPECT_EQ(lines_of(lenient.err), warnings);
		EXPECT_NE(lenient.out.find(", " + std::to_string(faults.size()) +
					   (faults.size() == 1 ? " warning" : " warnings")),
			  std::string::npos)
			<< lenient.out;
		EXPECT_TRUE(fs::exists(path("out.pim")));
		EXPECT_TRUE(fs::exists(path("out.rule")));
		fs::remove(path("out.pim"));
		fs::remove(path("out.rule"));
	}
};

TEST_F(ToolRuleBuild, OptionsGiveTheSameRuleImageAsTheProduct)
{
	build(kTv, "tv.pim");
	vexil_quiet({"build", kTv, "-o", "again.pim", "--rules-out", "named.img"});
	EXPECT_EQ(read_text(path("named.img")), read_text(path("tv.rule")));
	EXPECT_FALSE(fs::exists(path("again.rule")));
	Json manifest = read_json(kTv + "/product.json");
	std::vector<std::string> arguments = {"build", "", "-o", "options", "--sources"};
	for (const Json &file : manifest["sources"])
		arguments.push_back(kTv + "/" + file.get<std::string>());
	arguments.emplace_back("--rules");
	for (const Json &file : manifest["rules"])
		arguments.push_back(kTv + "/" + file.get<std::string>());
	manifest.erase("sources");
	manifest.erase("rules");
	manifest.erase("presetDatabase");
	for (const char *key : {"hardware", "software", "customer", "functionGroups"}) {
		for (Json &file : manifest[key])
			file = kTv + "/" + file.get<std::string>();
	}
	for (Json &file : manifest["files"]) {
		if (file.is_object())
			file["path"] = kTv + "/" + file["path"].get<std::string>();
		else
			file = kTv + "/" + file.get<std::string>();
	}
	manifest.erase("registerInfo");
	arguments[1] = write("plain.json", manifest.dump());
	vexil_quiet(arguments);
	EXPECT_EQ(read_text(path("options.rule")), read_text(path("tv.rule")));
}

TEST_F(ToolRuleBuild, ProductWithoutRulesHasNoRuleImage)
{
	write("hw.json", R"({"PqHWRegList": {"register": [{"A": 0}]}})");
	vexil_quiet({"build", "-o", "out.pim", "--hw", "hw.json"});
	EXPECT_EQ(names(), (std::vector<std::string>{"hw.json", "out.pim"}));
}

TEST_F(ToolRuleBuild, BothImagesCannotBeOne)
{
	expect_refusal({"build", kTv, "-o", "tv.rule"}, 2,
		       "vexil: tv.rule would be both images; name one with --rules-out (see 'vexil "
		       "build --help')");
	EXPECT_TRUE(names().empty());
}

TEST_F(ToolRuleBuild, NeitherImageIsWrittenWhenOneCannotBe)
{
	write("tv.pim", "old");
	expect_refusal({"build", kTv, "-o", "tv.pim", "--rules-out", "none/tv.rule"}, 3,
		       "vexil: cannot write none/tv.rule: No such file or directory");
	EXPECT_EQ(names(), std::vector<std::string>{"tv.pim"});
	EXPECT_EQ(read_text(path("tv.pim")), "old");
	expect_refusal({"build", kTv, "-o", "tv.pim", "--rules-out", "/dev/full"}, 3,
		       "vexil: cannot write /dev/full: No space left on device");
	EXPECT_EQ(names(), std::vector<std::string>{"tv.pim"});
	EXPECT_EQ(read_text(path("tv.pim")), "old");
}

TEST_F(ToolRuleBuild, DeviceHasNoRulesBesideIt)
{
	const std::string out = vexil_quiet({"build", kTv, "-o", "/dev/null"});
	EXPECT_EQ(lines_of(out)[1],
		  "the rules are not written: /dev/null is no regular file (--rules-out FILE)");
	EXPECT_FALSE(fs::exists("/dev/null.rule"));
	EXPECT_TRUE(names().empty());
}

TEST_F(ToolRuleBuild, SoundRulesAreQuietAndWork)
{
	const ProcessResult result =
		build_with(kSources, rules(rule("R", R"({"Scene": "Dark"})",
						R"("settings": ["Set#Two"], "children": [])")));
	EXPECT_EQ(result.exit_code, 0);
	EXPECT_EQ(result.err, "");
	const Json run = vexil_json({"run", "out.pim", "out.rule", "--set", "Luma:99"});
	ASSERT_EQ(run["settings"].size(), 1u);
	EXPECT_EQ(run["settings"][0]["label"], "Set#Two");
	EXPECT_EQ(run["hardware"][0]["position"], 1);
	EXPECT_EQ(
		vexil_json({"run", "out.pim", "out.rule", "--set", "Luma:100"})["settings"].size(),
		0u);
}

TEST_F(ToolRuleBuild, NamesThatAreUnknownAreReportedWithRuleAndCase)
{
	expect_faults(
		kSources, rules(R"("R": {"rules": [
			{"comparator": {"Inpt": "HDMI"}, "settings": ["Set#Tow"], "children": []},
			{"comparator": {"Input": ["DP", "VGA"]}, "settings": [], "children": []},
			{"comparator": {}, "settings": ["Set#Tow"], "children": []},
			{"comparator": {"Input": "USB"}, "settings": ["Set#One"], "children": ["S"]}]})"),
		{"r.json: rule \"R\", case 1: Cannot find source: Inpt:HDMI; similar: 'Input:HDMI'",
		 "r.json: rule \"R\", case 2: Cannot find source: Input:VGA; values of Input: HDMI, "
		 "DP, USB",
		 "r.json: rule \"R\", case 3: Cannot find label: Set#Tow; similar: 'Set#Two'",
		 "r.json: rule \"R\": it leads to rule \"S\", which is not defined"});
}

TEST_F(ToolRuleBuild, CasesThatAreNotWellFormedAreReported)
{
	expect_faults(
		kSources, rules(R"("R": {"rules": [
			{"settings": [], "children": []},
			{"comparator": [], "settings": [], "children": []},
			{"comparator": {}, "children": []},
			{"comparator": {}, "settings": {}, "children": "R"},
			{"comparator": {}, "settings": [1], "children": []},
			{"comparator": {}, "settings": [], "children": [1]},
			{"comparator": {"Input": []}, "settings": [], "children": []}]})"),
		{"r.json: rule \"R\", case 7: \"Input\" lists no value, so the case never matches",
		 "r.json: rule \"R\", case 1: there is no \"comparator\"",
		 "r.json: rule \"R\", case 2: \"comparator\" is not an object",
		 "r.json: rule \"R\", case 3: there is no \"settings\"",
		 "r.json: rule \"R\", case 4: \"settings\" is not an array",
		 "r.json: rule \"R\", case 4: \"children\" is not an array",
		 "r.json: rule \"R\", case 5: a setting is not a text",
		 "r.json: rule \"R\", case 6: a child is not a text"});
}

TEST_F(ToolRuleBuild, RangesThatAreNoneAreReported)
{
	expect_faults(
		R"({"PqRuleLists": {"Luma": {"content": "code"},
		"Scene": {"content": ["Dark", "Gone"],
			  "define": {"Dark": {"Luma": "0-9"}, "Odd": {"Luma": "[1,2]"}}}}})",
		rules(rule("R", R"({"Luma": "[3;9]"})") + "," +
		      rule("S", R"j({"Luma": "(5,5)"})j") + "," +
		      rule("T", R"({"Luma": ["[0,9]", "[x,9]"]})") + "," +
		      rule("U", R"({"Luma": {}})")),
		{"s.json: source \"Scene\": \"Gone\" is not in its \"define\"; left out",
		 "s.json: source \"Scene\", \"Dark\", \"Luma\": \"0-9\" is no range like \"[0, "
		 "9]\" or \"(3, 0x10)\"",
		 "s.json: source \"Scene\": \"Odd\" is defined but not in its \"content\"; left "
		 "out",
		 "r.json: rule \"R\", case 1, \"Luma\": \"[3;9]\" is no range like \"[0, 9]\" or "
		 "\"(3, 0x10)\"",
		 "r.json: rule \"S\", case 1, \"Luma\": no number is in \"(5,5)\"",
		 "r.json: rule \"T\", case 1, \"Luma\": \"[x,9]\" is no range like \"[0, 9]\" or "
		 "\"(3, 0x10)\"",
		 "r.json: rule \"U\", case 1, \"Luma\": a range like \"[0, 9]\" is expected"});
}

TEST_F(ToolRuleBuild, SourcesThatCannotBeDeclaredAreReported)
{
	const std::string name(130, 'x');
	expect_faults(
		R"({"PqRuleLists": {"Input": {"content": ["HDMI", "hdmi", "D+P"]},
		"Empty": {"content": []}, "None": {"note": "?"}, ")" +
			name + R"(": {"content": ""},
		"Scene": {"content": ["A"], "define": {"A": {"Input": "[0,1]"}}}}})",
		rules(""),
		{"s.json: source label \"Input:D+P\": names cannot hold '+'; left out",
		 "s.json: source \"Empty\" has no values; left out",
		 "s.json: source \"None\" has no \"content\"; left out",
		 "s.json: source \"xxxxxxxxxxxxxxxxxxxxxxxx...\" has 130 characters; what is "
		 "longer than 127 cannot be asked for",
		 "s.json: source label \"Input:hdmi\" is declared already",
		 "r.json: source label \"Scene:A\": a range is for \"Input\", which is no value "
		 "source"});
}

TEST_F(ToolRuleBuild, RulesThatArePassedOverAreReported)
{
	expect_faults(
		kSources,
		rules(R"("Old": {"#version": {"MajorVersion": 3, "MinorVersion": 0}, "rules": []},
			"Bare": {"note": 1}, "List": [], )" +
		      rule("R", "{}") + "," + rule("r", "{}") + "," + rule("R-1", "{}")),
		{"r.json: rule \"Old\": #version 3.0 is not supported (2.0 to 2.2); left out",
		 "r.json: rule \"Bare\" has no array \"rules\"; left out",
		 "r.json: \"List\" is no object, hence no rule; left out",
		 "r.json: rule \"r\" is defined already in r.json; it stays as it is there",
		 "r.json: rule \"R-1\": names cannot hold '-'; left out"});
}

TEST_F(ToolRuleBuild, LimitsOfCasesAreReported)
{
	std::string values, members, ranges;
	for (int i = 0; i < 182; ++i)
		values += (i ? ",\"V" : "\"V") + std::to_string(i) + "\"";
	std::string lists = R"({"PqRuleLists": {"A": {"content": [)" + values +
			    R"(]}, "B": {"content": [)" + values + "]}";
	for (int i = 0; i < 33; ++i) {
		const std::string number = "N" + std::to_string(i);
		lists += ",\"" + number + R"(": {"content": ""})";
		ranges += (i ? ",\"" : "\"") + number + R"(": "[0,1]")";
	}
	lists += "}}";
	for (int i = 0; i < 129; ++i)
		members += (i ? ",\"M" : "\"M") + std::to_string(i) + R"(": "x")";
	expect_faults(
		lists,
		rules(rule("R", "{\"A\": [" + values + "], \"B\": [" + values + "]}") + "," +
		      rule("S", "{" + ranges + "}")),
		{"r.json: rule \"R\", case 1: its lists multiply to more than 32,767 "
		 "alternatives; it cannot be compiled as it stands",
		 "r.json: rule \"S\", case 1: an alternative has 33 range conditions on value "
		 "sources; at most 32 are possible"});
	expect_faults(
		lists, rules(rule("R", "{" + members + "}")),
		{"r.json: rule \"R\", case 1: its comparator has 129 members; at most 128 are "
		 "possible"});
}

TEST_F(ToolRuleBuild, ReferencesThatCannotWaitAreReported)
{
	std::string groups;
	for (int i = 0; i < 65; ++i)
		groups += rule("R" + std::to_string(i), "{}",
			       R"("settings": [], "children": ["C)" + std::to_string(i) + "\"]") +
			  ",";
	for (int i = 0; i < 65; ++i)
		groups += rule("C" + std::to_string(i), "{}") + (i < 64 ? "," : "");
	expect_faults(
		kSources, rules(groups),
		{"r.json: rule \"R64\": a reference to a rule that comes later was lost: at most "
		 "64 can wait at a time"});
}

TEST_F(ToolRuleBuild, CyclesAreToldWhenTheyAreReached)
{
	const ProcessResult built = build_with(
		kSources, rules(rule("A", "{}", R"("settings": [], "children": ["B"])") + "," +
				rule("B", "{}", R"("settings": [], "children": ["A"])")));
	EXPECT_EQ(built.exit_code, 0);
	EXPECT_EQ(built.err,
		  "vexil: r.json: note: rules lead in a circle: A -> B -> A; where their "
		  "conditions allow it, they cannot be evaluated\n");
	const std::string line =
		"vexil: out.rule: note: a rule leads back to itself (node 59, with node 35, byte 1,376)\n"
		"vexil: out.rule: rule \"A\" cannot be evaluated: it leads in a circle: A -> B -> A\n";
	expect_refusal({"run", "out.pim", "out.rule", "--rule", "A"}, 1,
		       line.substr(0, line.size() - 1));
	const ProcessResult explained = vexil({"explain", "out.pim", "out.rule", "--rule", "A"});
	EXPECT_EQ(explained.exit_code, 1);
	EXPECT_EQ(explained.err, line);
	EXPECT_EQ(explained.out, "A: case 1 of 1\n"
				 "  case 1 matches: it has no conditions\n"
				 "    leads to B\n"
				 "  B: case 1 of 1\n"
				 "    case 1 matches: it has no conditions\n"
				 "      leads to A\n");
}

TEST_F(ToolRuleBuild, RulesThatCannotBeEvaluatedSayWhy)
{
	const std::string leads = R"("settings": [], "children": [)";
	ASSERT_EQ(
		build_with(kSources, rules(rule("A", "{}", leads + R"("Gone"])")), {"--keep-going"})
			.exit_code,
		0);
	expect_refusal(
		{"run", "out.pim", "out.rule"}, 1,
		"vexil: out.rule: rule \"A\" cannot be evaluated: it leads to a rule that is not "
		"defined");
	std::string groups;
	for (int i = 0; i < 26; ++i) {
		const std::string next = "\"R" + std::to_string(i + 1) + "\"";
		groups +=
			rule("R" + std::to_string(i), "{}", leads + next + ", " + next + "]") + ",";
	}
	ASSERT_EQ(build_with(kSources, rules(groups + rule("R26", "{}"))).exit_code, 0);
	for (const char *command : {"run", "explain"}) {
		const ProcessResult result =
			vexil({command, "out.pim", "out.rule", "--rule", "R0"});
		EXPECT_EQ(result.exit_code, 1);
		EXPECT_EQ(result.err,
			  "vexil: out.rule: rule \"R0\" cannot be evaluated: it leads to more "
			  "rules than can be evaluated at once\n");
		// Every rule is explained once, however often it is led to.
		EXPECT_LT(lines_of(result.out).size(), 200u);
	}
}

TEST_F(ToolRuleBuild, NamesThatCannotBeAskedForAreReported)
{
	expect_faults(
		R"({"PqRuleLists": {"My Input": {"content": ["HDMI 1", "DP"]}, "A:B": {"content": ""},
			"Hex": {"content": ["0x10", "a", 7]}}})",
		rules(rule("My Rule", R"({"Hex": "a"})")),
		{"s.json: source label \"My Input:HDMI 1\": blanks are dropped from what is asked for, so "
		 "it cannot be found",
		 "s.json: source label \"My Input:DP\": blanks are dropped from what is asked for, so it "
		 "cannot be found",
		 "s.json: source \"A:B\": what is set is cut at its first ':', so it cannot be set",
		 "s.json: source \"Hex\": \"0x10\" is a number and no name; left out",
		 "s.json: source \"Hex\": value 3 is not a text",
		 "r.json: rule \"My Rule\": blanks are dropped from what is asked for, so it cannot be "
		 "found"});
}

TEST_F(ToolRuleBuild, DefinitionsWithoutARangeAreReported)
{
	expect_faults(
		R"({"PqRuleLists": {"Luma": {"content": ""}, "Scene": {"content": ["A", "B", "C"],
			"define": {"A": {}, "B": "[0,9]", "C": {"Luma": "[1,2]"}, "note": "text"}}}})",
		rules(rule("R", R"({"Scene": "C"})")),
		{"s.json: source \"Scene\": \"A\" is defined by no range",
		 "s.json: source \"Scene\": \"B\" is defined by no range"});
	expect_faults(R"({"PqRuleLists": {"Luma": {"content": ""}}})",
		      rules(rule("R", R"j({"Luma": ["(18446744073709551615,5]", "[0,0)"]})j")),
		      {"r.json: rule \"R\", case 1, \"Luma\": no number is in "
		       "\"(18446744073709551615,5]\"",
		       "r.json: rule \"R\", case 1, \"Luma\": no number is in \"[0,0)\""});
}

TEST_F(ToolRuleBuild, SourceThatIsDeclaredInPartsIsReportedAndExplained)
{
	write("more.json", R"({"PqRuleLists": {"input": {"content": ["VGA", "SCART"]}}})");
	const std::string groups = rules(rule("R", R"({"Input": "SCART"})"));
	const ProcessResult strict = build_with(kSources, groups, {"--sources", "more.json"});
	EXPECT_EQ(strict.exit_code, 1);
	EXPECT_EQ(lines_of(strict.err)[0],
		  "vexil: more.json: source \"input\" is declared already in s.json; values of its "
		  "parts do not exclude each other");
	EXPECT_EQ(
		build_with(kSources, groups, {"--sources", "more.json", "--keep-going"}).exit_code,
		0);
	EXPECT_EQ(vexil_quiet({"explain", "out.pim", "out.rule", "--set", "Input:DP;Input:SCART"}),
		  "R: case 1 of 1\n  case 1 matches: Input is SCART\n");
	EXPECT_EQ(vexil_quiet({"explain", "out.pim", "out.rule", "--set", "Input:DP"}),
		  "R: none of 1 case\n  case 1 fails: Input is not set, wanted SCART\n");
}

TEST_F(ToolRuleBuild, ListsOfOtherKindsAreReported)
{
	expect_faults(R"({"PqRuleLists": null})", R"({"PqRuleGroups": [1, 2]})",
		      {"s.json: \"PqRuleLists\" is not an object",
		       "r.json: \"PqRuleGroups\" is not an object"});
	expect_faults(R"({"PqRuleLists": {"#note": 1, "note": "text", "A": ["x"], "B": null}})",
		      R"({"PqRuleGroups": {"#note": 1, "note": "text", "C": null, "D": 5}})",
		      {"s.json: source \"A\" is not an object; left out",
		       "s.json: source \"B\" is not an object; left out",
		       "r.json: \"C\" is no object, hence no rule; left out",
		       "r.json: \"D\" is no object, hence no rule; left out"});
	// A number or a redefinition has no parts: its label is taken, and that is all.
	expect_faults(R"({"PqRuleLists": {"N": {"content": 0}, "n": {"content": 1}}})", rules(""),
		      {"s.json: source label \"n\" is declared already"});
}

TEST_F(ToolRuleBuild, EqualRangesOfSeveralNamesAreAllSaid)
{
	const char *sources = R"({"PqRuleLists": {"N": {"content": ""}, "M": {"content": ""},
		"Q": {"content": ["x"], "define": {"x": {"N": "[5,50]"}}},
		"W": {"content": ["x", "z"],
		      "define": {"x": {"N": "[5,50]"}, "z": {"N": "[60,70]"}}},
		"D": {"content": ["both"], "define": {"both": {"N": "[1,2]", "M": "[3,4]"}}}}})";
	ASSERT_EQ(build_with(sources, rules(rule("R", R"({"W": ["x", "z"]})") + "," +
					    rule("S", R"({"N": "[1,2]", "M": "[3,9]"})") + "," +
					    rule("T", R"({"D": "both"})") + "," +
					    rule("U", R"({"N": ["[5,50]", "[900,1000]"]})")))
			  .exit_code,
		  0);
	EXPECT_EQ(vexil_quiet({"explain", "out.pim", "out.rule", "--set", "N:7000"}),
		  "R: none of 1 case\n"
		  "  case 1 fails: N is 7000, wanted 5 to 50 (Q:x, W:x) or 60 to 70 (W:z)\n"
		  "S: none of 1 case\n"
		  "  case 1 fails: N is 7000, wanted 1 to 2\n"
		  "T: none of 1 case\n"
		  "  case 1 fails: N is 7000, wanted 1 to 2 (D:both)\n"
		  "U: none of 1 case\n"
		  "  case 1 fails: N is 7000, wanted 5 to 50 (Q:x, W:x) or 900 to 1000\n");
	EXPECT_EQ(
		vexil_quiet(
			{"explain", "out.pim", "out.rule", "--rule", "T;R", "--set", "N:2;M:4"}),
		"T: case 1 of 1\n"
		"  case 1 matches: N is 2, within 1 to 2 (D:both), M is 4, within 3 to 4 (D:both)\n"
		"R: none of 1 case\n"
		"  case 1 fails: N is 2, wanted 5 to 50 (Q:x, W:x) or 60 to 70 (W:z)\n");
	const Json entry = vexil_json(
		{"explain", "out.pim", "out.rule", "--rule", "R", "--set", "N:65"})["rules"][0];
	EXPECT_EQ(entry["conditions"][0], Json::parse(R"({"source": "N", "present": 65, "set": true,
				  "wanted": {"first": 60, "last": 70, "names": ["W:z"]}})"));
}

TEST_F(ToolRuleBuild, EvaluationsThatEndSayWhyInTheirState)
{
	const std::string none = R"("settings": [], "children": [])";
	const auto leads = [](const std::string &children) {
		return R"("settings": [], "children": [)" + children + "]";
	};
	const auto cases = [](const std::string &name, const std::vector<std::string> &entries) {
		std::string text = "\"" + name + "\": {\"rules\": [";
		for (const std::string &entry : entries)
			text += (text.back() == '[' ? "{" : ", {") + entry + "}";
		return text + "]}";
	};
	const auto expect_reason = [&](const std::string &groups, const std::string &reason) {
		SCOPED_TRACE(groups);
		EXPECT_EQ(build_with(kSources, rules(groups), {"--keep-going"}).exit_code, 0);
		const std::string line =
			"vexil: out.rule: rule \"A\" cannot be evaluated: " + reason + "\n";
		const auto without_note = [](const ProcessResult &result) {
			const std::string note = "vexil: out.rule: note: a rule leads back to itself (";
			EXPECT_EQ(result.err.rfind(note, 0), 0u) << result.err;
			return result.err.substr(result.err.find('\n') + 1);
		};
		const ProcessResult run = vexil({"run", "out.pim", "out.rule", "--rule", "A"});
		EXPECT_EQ(without_note(run), line);
		const ProcessResult explained =
			vexil({"explain", "out.pim", "out.rule", "--rule", "A", "--json"});
		EXPECT_EQ(explained.exit_code, 1);
		EXPECT_EQ(without_note(explained), line);
		EXPECT_EQ(Json::parse(explained.out)["stopped"], reason);
	};
	// Where the state does not lead is no reason.
	const std::string in_dp = R"("comparator": {"Input": "DP"}, )";
	const std::string always = R"("comparator": {}, )";
	expect_reason(cases("A", {always + leads(R"("B", "Q")")}) + "," +
			      cases("B", {in_dp + leads(R"("A")"), always + none}),
		      "it leads to a rule that is not defined");
	expect_reason(cases("A", {in_dp + leads(R"("A")"), always + leads(R"("B")")}) + "," +
			      cases("B", {always + leads(R"("A")")}),
		      "it leads in a circle: A -> B -> A");
}

TEST_F(ToolRuleBuild, WideRulesAreExplainedAsLongAsTheyCanBeEvaluated)
{
	std::string groups;
	for (int i = 0; i < 21; ++i) {
		const std::string next = "\"R" + std::to_string(i + 1) + "\"";
		groups += rule("R" + std::to_string(i), "{}",
			       R"("settings": [], "children": [)" + next + ", " + next + "]") +
			  ",";
	}
	ASSERT_EQ(build_with(kSources, rules(groups + rule("R21", "{}"))).exit_code, 0);
	vexil_quiet({"run", "out.pim", "out.rule", "--rule", "R0"});
	const std::string text = vexil_quiet({"explain", "out.pim", "out.rule", "--rule", "R0"});
	EXPECT_LT(lines_of(text).size(), 200u);
}

TEST_F(ToolRuleBuild, LongNamesAreCut)
{
	const std::string name(5000, 'x');
	const ProcessResult result =
		build_with(R"({"PqRuleLists": {"In": {"content": ["a"]}, ")" + name +
				   R"(": {"content": []}}})",
			   rules(rule(name, R"({"In": ")" + name + "\"}") + "," +
				 rule("R", R"({"In": "a"})",
				      R"("settings": [")" + name + R"("], "children": [])")));
	EXPECT_EQ(result.exit_code, 1);
	EXPECT_GT(lines_of(result.err).size(), 4u);
	for (const std::string &line : lines_of(result.err))
		EXPECT_LT(line.size(), 700u) << line;
}

TEST_F(ToolRuleBuild, DocumentsThatTheLibraryRefusesAreRefused)
{
	ProcessResult result = build_with(
		R"({"PqRuleLists": {"#version": {"MajorVersion": 2, "MinorVersion": 3}}})",
		rules(""));
	EXPECT_EQ(result.exit_code, 1);
	EXPECT_EQ(result.err, "vexil: s.json: #version 2.3 is not supported (2.0 to 2.2)\n");
	result = build_with("{}", "{}");
	EXPECT_EQ(lines_of(result.err),
		  (std::vector<std::string>{
			  "vexil: s.json: there is no \"PqRuleLists\" in it",
			  "vexil: r.json: there is no \"PqRuleGroups\" in it",
			  "vexil: out.pim: not written: 2 faults (--keep-going writes it all the "
			  "same)"}));
}

} // namespace
