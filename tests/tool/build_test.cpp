// SPDX-License-Identifier: MIT
#include <algorithm>
#include <filesystem>

#include <sys/stat.h>

#include "tests/tool/fixture.h"
#include "tests/tool/model.h"

namespace {

using namespace vexil_test;
namespace fs = std::filesystem;

class ToolBuild : public ToolTest {
protected:
	/** Function groups with one IP. */
	static Json groups(const Json &settings, const std::string &ip = "Ip")
	{
		Json document;
		document["PqFuncGroups"][ip]["settings"] = settings;
		return document;
	}

	/** One setting with one member that holds these hardware registers. */
	static Json one_member(const Json &registers)
	{
		return {{"Set", {{"group", {{"One", {{"hwreg", registers}}}}}}}};
	}

	static std::string hardware(const std::string &entries)
	{
		return "{\"PqHWRegList\": {\"register\": [" + entries + "]}}";
	}

	/** The tool, told to write the image whatever it has to say about the documents. */
	ProcessResult lenient(std::vector<std::string> arguments) const
	{
		arguments.push_back("--keep-going");
		return vexil(arguments);
	}

	/** Builds from one groups document with registers A (0) and B (1), faults or not. */
	ProcessResult build_groups(const std::string &text,
				   std::vector<std::string> more = {"--keep-going"}) const
	{
		write("hw.json", hardware(R"({"A": 0}, {"B": 1})"));
		write("groups.json", text);
		std::vector<std::string> arguments = {"build",   "-o",       "out.pim",    "--hw",
						      "hw.json", "--groups", "groups.json"};
		arguments.insert(arguments.end(), more.begin(), more.end());
		return vexil(arguments);
	}

	/** Expects success with exactly these warnings. */
	void expect_warnings(const ProcessResult &result,
			     const std::vector<std::string> &warnings) const
	{
		EXPECT_EQ(result.exit_code, 0);
		EXPECT_EQ(lines_of(result.err), warnings);
		const std::string count = warnings.size() == 1
						  ? ", 1 warning\n"
						  : numbered(", ", warnings.size()) + " warnings\n";
		EXPECT_TRUE(result.out.ends_with(count)) << result.out;
		EXPECT_TRUE(fs::exists(path("out.pim")));
	}

	/** Expects a refusal with this cause and no image. */
	void expect_refused(const ProcessResult &result, const std::string &line) const
	{
		EXPECT_EQ(result.exit_code, 1);
		EXPECT_EQ(result.out, "");
		EXPECT_EQ(result.err, line + "\n");
		EXPECT_FALSE(fs::exists(path("out.pim")));
	}
};

TEST_F(ToolBuild, ExampleIsOneArgumentAndALineForEachImage)
{
	const std::string line = vexil_quiet({"build", kTv, "-o", "tv.pim"});
	const Json info = vexil_json({"info", "tv.pim"});
	const std::string begin = "tv.pim: " + grouped(info["nodes"]["used"]) +
				  " of 65,535 nodes, " + grouped(fs::file_size(path("tv.pim"))) +
				  " bytes, ";
	EXPECT_EQ(line.rfind(begin, 0), 0u) << line;
	const std::vector<std::string> lines = lines_of(line);
	ASSERT_EQ(lines.size(), 2u) << line;
	EXPECT_TRUE(lines[0].ends_with(" s")) << line;
	const Json rules = vexil_json({"info", "tv.rule"});
	EXPECT_EQ(lines[1], "tv.rule: " + grouped(rules["nodes"]["used"]) + " of 65,535 nodes, " +
				    grouped(fs::file_size(path("tv.rule"))) + " bytes");
}

TEST_F(ToolBuild, FolderAndManifestGiveTheSameImageEveryTime)
{
	build(kTv, "folder.pim");
	build(kTv + "/product.json", "manifest.pim");
	build(kTv + "/", "slash.pim");
	EXPECT_EQ(read_text(path("folder.pim")), tv_image());
	EXPECT_EQ(read_text(path("manifest.pim")), tv_image());
	EXPECT_EQ(read_text(path("slash.pim")), tv_image());
}

TEST_F(ToolBuild, OptionsAloneGiveTheProductsImage)
{
	const Json manifest = read_json(kTv + "/product.json");
	std::vector<std::string> arguments = {"build", "-o", "options.pim"};
	const auto add = [&](const std::string &option, const std::string &key) {
		arguments.push_back(option);
		for (const Json &item : manifest[key]) {
			if (item.is_object())
				arguments.push_back(item["name"].get<std::string>() + "=" + kTv +
						    "/" + item["path"].get<std::string>());
			else
				arguments.push_back(key == "handlers"
							    ? item.get<std::string>()
							    : kTv + "/" + item.get<std::string>());
		}
	};
	add("--hw", "hardware");
	add("--sw", "software");
	add("--cus", "customer");
	add("--handler", "handlers");
	add("--file", "files");
	add("--groups", "functionGroups");
	vexil_quiet(arguments);
	EXPECT_EQ(read_text(path("options.pim")), tv_image());
}

TEST_F(ToolBuild, OptionsAddToTheProduct)
{
	write("more.json",
	      groups({{"Trial", {{"group", {{"On", {{"hwreg", {{"LDM_EN", 1}}}}}}}}}}, "TrialIp")
		      .dump());
	vexil_quiet({"build", kTv, "-o", "more.pim", "--groups", "more.json"});
	const Json output = vexil_json({"load", "more.pim", "Trial#On", "Dimming_Level#High"});
	EXPECT_EQ(output["loads"][0]["ip"], "TrialIp");
	EXPECT_EQ(output["loads"][0]["blocks"][0]["pairs"][0]["position"], 536);
	expect_load(output["loads"][1], Model(kTv).config("Dimming_Level#High"));
}

TEST_F(ToolBuild, FileNamesComeFromPathsUnlessTheyAreGiven)
{
	write("tables/b.bin", "bb");
	write("tables/a.bin", "a");
	write("tables/.hidden", "h");
	write("x=y/c.bin", "ccc");
	write("d.bin", "dddd");
	vexil_quiet(
		{"build", "-o", "out.pim", "--file", "tables", "./x=y/c.bin", "other.bin=d.bin"});
	const Json files = vexil_json({"list", "out.pim"})["files"];
	std::vector<std::pair<std::string, size_t>> found;
	for (const Json &file : files)
		found.emplace_back(file["name"], file["bytes"]);
	const std::vector<std::pair<std::string, size_t>> expected = {
		{"a.bin", 1}, {"b.bin", 2}, {"c.bin", 3}, {"other.bin", 4}};
	EXPECT_EQ(found, expected);
}

TEST_F(ToolBuild, SoftwareDocumentMayCarryTheCustomerList)
{
	write("sw.json", R"({"PqSWRegList": {"register": [{"S": 5}]},
			     "PqCusSWRegList": {"register": [{"C": 6}]}})");
	write("groups.json",
	      groups({{"Set",
		       {{"group", {{"One", {{"swreg", {{"S", 1}}}, {"cus_swreg", {{"C", 2}}}}}}}}}})
		      .dump());
	vexil_quiet({"build", "-o", "out.pim", "--sw", "sw.json", "--groups", "groups.json"});
	const Json blocks =
		vexil_json({"load", "out.pim", "Set#One", "--sw", "sw.json"})["loads"][0]["blocks"];
	EXPECT_EQ(blocks[0]["tag"], 37);
	EXPECT_EQ(blocks[0]["pairs"][0]["name"], "S");
	EXPECT_EQ(blocks[1]["tag"], 55);
	EXPECT_EQ(blocks[1]["pairs"][0]["name"], "C");
}

// ---- what is left out, with a warning ----

TEST_F(ToolBuild, UnknownRegistersAreWarnedAboutWithTheirFile)
{
	const ProcessResult result = build_groups(groups(one_member({{"A", 1}, {"X", 2}})).dump());
	expect_warnings(result, {"vexil: groups.json: warning: Cannot find hw_register X"});
	const Json pairs =
		vexil_json({"load", "out.pim", "Set#One"})["loads"][0]["blocks"][0]["pairs"];
	ASSERT_EQ(pairs.size(), 1u);
	EXPECT_EQ(pairs[0]["position"], 0);
}

TEST_F(ToolBuild, FaultsOfDocumentsAreRefusedUnlessToldToKeepGoing)
{
	const ProcessResult result = build_groups(groups(one_member({{"X", 2}})).dump(), {});
	EXPECT_EQ(result.exit_code, 1);
	EXPECT_EQ(result.out, "");
	EXPECT_EQ(
		lines_of(result.err),
		(std::vector<std::string>{
			"vexil: groups.json: "
			"Cannot find hw_register X",
			"vexil: out.pim: not written: 1 fault (--keep-going writes it all the same)"}));
	EXPECT_EQ(names(), (std::vector<std::string>{"groups.json", "hw.json"}));
}

TEST_F(ToolBuild, LongNamesAreCutInMessages)
{
	const std::string name(5000, 'x');
	const std::string begin(64, 'x');
	const ProcessResult handler = vexil({"build", "-o", "out.pim", "--handler", name + "\x1b"});
	expect_refused(handler, "vexil: handler '" + begin +
					"...': cannot be a name: names cannot hold '\\x1b'");
	const ProcessResult file =
		vexil({"build", "-o", "out.pim", "--file", name + "\x1b=" + write("t.bin", "t")});
	EXPECT_EQ(file.exit_code, 1);
	EXPECT_LT(file.err.size(), 300u);
	for (const char *kind : {"hwreg", "swreg", "lut", "alg"}) {
		const ProcessResult result = build_groups(
			Json{{"PqFuncGroups",
			      {{"Ip",
				{{"settings",
				  {{"Set", {{"group", {{"One", {{kind, {{name, name}}}}}}}}}}}}}}}}
				.dump());
		EXPECT_NE(result.err, "") << kind;
		for (const std::string &line : lines_of(result.err))
			EXPECT_LT(line.size(), 200u) << line;
	}
}

TEST_F(ToolBuild, OlderRulesBesideAMapWithoutRulesAreWarnedAbout)
{
	build(kTv, "out.pim");
	const std::string older = read_text(path("out.rule"));
	const std::vector<std::string> arguments = {"build", "-o", "out.pim", "--handler", "h"};
	const ProcessResult result = vexil(arguments);
	EXPECT_EQ(result.exit_code, 0);
	EXPECT_EQ(result.err,
		  "vexil: out.pim: warning: out.rule beside it is older and was not written\n");
	EXPECT_EQ(read_text(path("out.rule")), older);
	fs::remove(path("out.rule"));
	vexil_quiet(arguments);
	write("h.rule", "not an image, and about to become one");
	vexil_quiet({"build", "-o", "h.rule", "--handler", "h"});
}

TEST_F(ToolBuild, ExamplesHaveNoFaults)
{
	vexil_quiet({"build", kTv, "-o", "tv.pim"});
	vexil_quiet({"build", kCustomer, "-o", "customer.pim"});
}

TEST_F(ToolBuild, UnknownHandlersAndFilesAreWarnedAbout)
{
	const Json member = {{"lut", {{"no_handler", "t.bin"}, {"handler", "no.bin"}}},
			     {"alg", {{"a", "no.par"}}}};
	write("t.bin", "t");
	const ProcessResult result =
		build_groups(groups({{"Set", {{"group", {{"One", member}}}}}}).dump(),
			     {"--handler", "handler", "--file", "t.bin", "--keep-going"});
	expect_warnings(result, {"vexil: groups.json: warning: a lookup "
				 "table is for a handler that is not listed",
				 "vexil: groups.json: warning: Cannot "
				 "find lut file no.bin",
				 "vexil: groups.json: warning: Cannot "
				 "find alg file no.par"});
}

TEST_F(ToolBuild, EntriesThatAreNoNumbersAreWarnedAbout)
{
	write("hw.json", hardware(R"({"A": 0}, {"B": "1"}, {}, 7)"));
	const ProcessResult result = lenient({"build", "-o", "out.pim", "--hw", "hw.json"});
	expect_warnings(result, {"vexil: hw.json: warning: "
				 "Invalid entry found at B",
				 "vexil: hw.json: warning: "
				 "an entry is not a register's name with a number",
				 "vexil: hw.json: warning: "
				 "an entry is not a register's name with a number"});
}

TEST_F(ToolBuild, RegistersThatAreListedAgainAreWarnedAbout)
{
	write("hw.json", hardware(R"({"A": 4}, {"a": 5}, {"A": 4}, {"B": 2147483647}, {"C": -1})"));
	const ProcessResult result = lenient({"build", "-o", "out.pim", "--hw", "hw.json"});
	expect_warnings(result,
			{"vexil: hw.json: warning: register a is listed again; it stays at 4",
			 "vexil: hw.json: warning: register B: 2147483647 is not a position (0 to "
			 "2147483646); left out",
			 "vexil: hw.json: warning: register C: -1 is not a position (0 to "
			 "2147483646); left out"});
}

TEST_F(ToolBuild, NumberThatTheIndexesCannotHoldIsWarnedAbout)
{
	write("sw.json",
	      R"({"PqSWRegList": {"register": [{"A": -2147483648}, {"B": 2147483647}]}})");
	expect_warnings(lenient({"build", "-o", "out.pim", "--sw", "sw.json"}),
			{"vexil: sw.json: warning: register A: -2147483648 cannot be found again"});
}

TEST_F(ToolBuild, NamesOutsideTheAlphabetAreWarnedAbout)
{
	write("hw.json", hardware(R"({"A-B": 4})"));
	expect_warnings(
		lenient({"build", "-o", "out.pim", "--hw", "hw.json"}),
		{"vexil: hw.json: warning: register \"A-B\": names cannot hold '-'; left out"});
}

TEST_F(ToolBuild, IpsAndLabelsOutsideTheAlphabetAreWarnedAbout)
{
	const Json document =
		groups({{"S+", {{"group", {{"One", {{"hwreg", {{"A", 1}}}}}}}}}}, "Ip-1");
	expect_warnings(
		build_groups(document.dump()),
		{"vexil: groups.json: warning: IP \"Ip-1\" cannot be a name: names cannot hold '-'",
		 "vexil: groups.json: warning: label \"S+#One\" cannot be a name: names cannot "
		 "hold '+'"});
	// It is there all the same, by its id.
	const Json list = vexil({"list", "out.pim", "--json"}).exit_code == 0
				  ? Json::parse(vexil({"list", "out.pim", "--json"}).out)
				  : Json();
	const std::string id = list["ips"][0]["settings"][0]["configurations"][0]["id"].dump();
	EXPECT_NE(vexil({"load", "out.pim", "--id", id}).out.find("S+#One"), std::string::npos);
}

TEST_F(ToolBuild, LabelsAndIpsThatComeAgainAreWarnedAboutInTheirFile)
{
	write("second.json", groups(one_member({{"B", 1}})).dump());
	const ProcessResult result = build_groups(groups(one_member({{"A", 1}})).dump(),
						  {"second.json", "--keep-going"});
	expect_warnings(
		result,
		{"vexil: second.json: warning: there is an IP \"Ip\" already; a merge finds the "
		 "first only",
		 "vexil: second.json: warning: there is a label \"Set#One\" already; it keeps its "
		 "configuration"});
	EXPECT_EQ(vexil_json({"load", "out.pim",
			      "Set#One"})["loads"][0]["blocks"][0]["pairs"][0]["position"],
		  0);
}

TEST_F(ToolBuild, FoldersOfOneNameAreNoTrouble)
{
	Json first, second;
	first["PqFuncGroups"]["Folder"]["IpA"]["settings"] = one_member({{"A", 1}});
	second["PqFuncGroups"]["Folder"]["IpB"]["settings"] = {
		{"Other", {{"group", {{"One", {{"hwreg", {{"B", 1}}}}}}}}}};
	write("second.json", second.dump());
	const ProcessResult result = build_groups(first.dump(), {"second.json"});
	EXPECT_EQ(result.exit_code, 0);
	EXPECT_EQ(result.err, "");
}

TEST_F(ToolBuild, DocumentsOfAnotherKindAreWarnedAbout)
{
	expect_warnings(build_groups(hardware("")),
			{"vexil: groups.json: warning: there is no \"PqFuncGroups\" in it"});
	write("x.json", "{}");
	expect_warnings(
		lenient({"build", "-o", "out.pim", "--hw", "x.json", "--sw", "x.json", "--cus",
			 "x.json"}),
		{"vexil: x.json: warning: there is no \"register\" array in a \"PqHWRegList\"",
		 "vexil: x.json: warning: there is no \"register\" array in a \"PqSWRegList\"",
		 "vexil: x.json: warning: there is no \"register\" array in a \"PqCusSWRegList\""});
}

TEST_F(ToolBuild, ControlCharactersOfNamesAreEscapedEverywhere)
{
	const std::string evil = "e\x1b[31m\n\r\x07\xC2\x9B\xE2\x80\xAE\xFFx";
	const std::string shown = "e\\x1b[31m\\n\\r\\x07\\u{009B}\\u{202E}\\xffx";
	const auto quoted = [](const std::string &text) {
		std::string json = "\"";
		for (const char c : text) {
			char escape[8];
			std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
			json += static_cast<unsigned char>(c) < ' ' ? std::string(escape)
								    : std::string(1, c);
		}
		return json + "\"";
	};
	const std::string document =
		"{\"VexilVersion\": {\"#version\": {\"MajorVersion\": 2, \"Note\": " +
		quoted(evil) + "}}, \"PqFuncGroups\": {" + quoted(evil) + ": {\"settings\": {" +
		quoted(evil) + ": {\"1.PresetRegs\": " + quoted(evil) + ", \"group\": {" +
		quoted(evil) + ": {\"hwreg\": {" + quoted(evil) + ": 1, \"A\": 1}, \"alg\": {" +
		quoted(evil) + ": \"t.bin\"}}}}}}}}";
	write("t.bin", "t");
	const ProcessResult result = build_groups(document, {"--file", "t.bin", "--keep-going"});
	EXPECT_EQ(result.exit_code, 0);
	EXPECT_NE(result.err.find("Cannot find hw_register " + shown + "\n"), std::string::npos)
		<< result.err;
	const auto harmless = [](const std::string &text) {
		return std::none_of(text.begin(), text.end(), [](char c) {
			const auto byte = static_cast<unsigned char>(c);
			return (byte < ' ' && c != '\n') || byte >= 0x7F;
		});
	};
	EXPECT_TRUE(harmless(result.err)) << result.err;
	for (const std::vector<std::string> &arguments : std::vector<std::vector<std::string>>{
		     {"list", "out.pim"},
		     {"list", "out.pim", "--json"},
		     {"dump", "out.pim"},
		     {"info", "out.pim"},
		     {"info", "out.pim", "--json"},
		     {"load", "out.pim", "--preset", evil},
		     {"load", "out.pim", "--preset", evil, "--json"},
		     {"load", "out.pim", "--preset", "none"},
	     }) {
		const ProcessResult printed = vexil(arguments);
		EXPECT_EQ(printed.exit_code, arguments.back() == "none" ? 1 : 0) << printed.err;
		EXPECT_TRUE(harmless(printed.out)) << printed.out;
		EXPECT_TRUE(harmless(printed.err)) << printed.err;
	}
	EXPECT_NE(vexil({"list", "out.pim"}).out.find(shown), std::string::npos);
	EXPECT_NE(vexil({"dump", "out.pim"}).out.find("PROP:" + shown + "\n"), std::string::npos);
	EXPECT_NE(vexil({"load", "out.pim", "--preset", evil})
			  .out.find("algorithm file for " + shown + ": t.bin"),
		  std::string::npos);
}

// ---- what is refused ----

TEST_F(ToolBuild, VersionsOutOfRangeAreNamed)
{
	const auto versioned = [](int major, int minor) {
		Json document = groups(one_member({{"A", 1}}));
		document["VexilVersion"]["#version"] = {{"MajorVersion", major},
							{"MinorVersion", minor}};
		return document.dump();
	};
	expect_refused(build_groups(versioned(2, 3)),
		       "vexil: groups.json: VexilVersion 2.3 is not supported (2.0 to 2.2)");
	expect_refused(build_groups(versioned(3, 0)),
		       "vexil: groups.json: VexilVersion 3.0 is not supported (2.0 to 2.2)");
	EXPECT_EQ(build_groups(versioned(2, 2)).exit_code, 0);
}

TEST_F(ToolBuild, VersionOfAnIpOutOfRangeIsNamedWithTheIp)
{
	Json document;
	document["PqFuncGroups"]["Folder"]["Good"] = {{"#version", {{"MajorVersion", 2}}},
						      {"settings", Json::object()}};
	document["PqFuncGroups"]["Folder"]["Bad"] = {{"#version", {{"MinorVersion", 9}}},
						     {"settings", Json::object()}};
	// The major one is the other IP's, of the same folder.
	expect_refused(build_groups(document.dump()),
		       "vexil: groups.json: \"Bad\": #version 2.9 is not supported (2.0 to 2.2)");
}

TEST_F(ToolBuild, EmptyGroupsAreRefused)
{
	expect_refused(build_groups("{\"PqFuncGroups\": {}}"),
		       "vexil: groups.json: \"PqFuncGroups\" is empty");
}

TEST_F(ToolBuild, LabelLongerThan255CharactersIsRefused)
{
	const auto labelled = [](size_t characters) {
		const std::string member(characters - 4, 'm');
		return groups({{"Set", {{"group", {{member, {{"hwreg", {{"A", 1}}}}}}}}}}).dump();
	};
	EXPECT_EQ(build_groups(labelled(255)).exit_code, 0);
	fs::remove(path("out.pim"));
	expect_refused(build_groups(labelled(256)),
		       "vexil: groups.json: label join error. Failed to convert Set into ipconfig. "
		       "(a label has at most 255 characters)");
}

TEST_F(ToolBuild, NinthFolderIsRefused)
{
	const auto nested = [](size_t folders) {
		Json inner = {{"Ip", {{"settings", one_member({{"A", 1}})}}}};
		for (size_t i = 0; i < folders; ++i)
			inner = {{numbered("F", i), inner}};
		return Json{{"PqFuncGroups", inner}}.dump();
	};
	EXPECT_EQ(build_groups(nested(8)).exit_code, 0);
	fs::remove(path("out.pim"));
	expect_refused(build_groups(nested(9)),
		       "vexil: groups.json: \"F0\": folders are nested deeper than 8");
}

TEST_F(ToolBuild, ArrayInPlaceOfIpsIsRefused)
{
	expect_refused(build_groups(R"({"PqFuncGroups": [{"settings": {}}]})"),
		       "vexil: groups.json: an array stands where named objects are expected");
}

TEST_F(ToolBuild, DocumentThatNeedsTooManyNodesIsRefused)
{
	Json members = Json::object();
	for (size_t i = 0; i < 12000; ++i)
		members[numbered("m", i)] = {{"hwreg", {{"A", i}}}};
	expect_refused(build_groups(groups({{"Set", {{"group", members}}}}).dump()),
		       "vexil: groups.json: the map needs more than 65,535 nodes");
}

TEST_F(ToolBuild, SixtyFifthHandlerIsRefused)
{
	std::vector<std::string> arguments = {"build", "-o", "out.pim", "--handler"};
	for (size_t i = 0; i < 64; ++i)
		arguments.push_back(numbered("h", i));
	EXPECT_EQ(vexil(arguments).exit_code, 0);
	fs::remove(path("out.pim"));
	arguments.push_back("one_more");
	expect_refused(vexil(arguments),
		       "vexil: handler 'one_more': there are 64 handlers already");
}

TEST_F(ToolBuild, NamesOfHandlersAndFilesMustBeNames)
{
	write("t.bin", "t");
	expect_refused(vexil({"build", "-o", "out.pim", "--handler", "a-b"}),
		       "vexil: handler 'a-b': cannot be a name: names cannot hold '-'");
	expect_refused(vexil({"build", "-o", "out.pim", "--file", "a-b=t.bin"}),
		       "vexil: t.bin: \"a-b\" cannot be a name: names cannot hold '-'");
	expect_refused(vexil({"build", "-o", "out.pim", "--file", "t.bin", "T.bin=t.bin"}),
		       "vexil: t.bin: duplicated file T.bin");
}

TEST_F(ToolBuild, InputsThatCannotBeReadAreNamed)
{
	write("empty", "");
	ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
	fs::create_directory(path("folder"));
	for (const std::string option : {"--hw", "--sw", "--cus", "--groups"}) {
		expect_refused(vexil({"build", "-o", "out.pim", option, "none"}),
			       "vexil: none: No such file or directory");
		expect_refused(vexil({"build", "-o", "out.pim", option, "folder"}),
			       "vexil: folder: is a folder");
		expect_refused(vexil({"build", "-o", "out.pim", option, "pipe"}),
			       "vexil: pipe: is not a regular file");
		expect_refused(vexil({"build", "-o", "out.pim", option, "/dev/zero"}),
			       "vexil: /dev/zero: is not a regular file");
		expect_refused(vexil({"build", "-o", "out.pim", option, "empty"}),
			       "vexil: empty: is empty");
		// The first page cannot be read.
		expect_refused(vexil({"build", "-o", "out.pim", option, "/proc/self/mem"}),
			       "vexil: /proc/self/mem: Input/output error");
		expect_refused(vexil({"build", "-o", "out.pim", option, "empty/x"}),
			       "vexil: empty/x: Not a directory");
	}
	expect_refused(vexil({"build", "-o", "out.pim", "--file", "none"}),
		       "vexil: none: No such file or directory");
	expect_refused(vexil({"build", "-o", "out.pim", "--file", "empty"}),
		       "vexil: empty: is empty");
	expect_refused(vexil({"build", "-o", "out.pim", "--file", "name=folder"}),
		       "vexil: folder: is a folder and cannot become the file \"name\"");
	expect_refused(vexil({"build", "folder", "-o", "out.pim"}),
		       "vexil: folder: there is no product.json in this folder");
	expect_refused(vexil({"build", "none", "-o", "out.pim"}),
		       "vexil: none: No such file or directory");
}

TEST_F(ToolBuild, FileLargerThan512MiBIsRefused)
{
	write("huge.json", "{");
	std::error_code error;
	fs::resize_file(path("huge.json"), (uintmax_t{512} << 20) + 1, error); // a hole, no space
	ASSERT_FALSE(error) << error.message();
	expect_refused(vexil({"build", "-o", "out.pim", "--hw", "huge.json"}),
		       "vexil: huge.json: is larger than 512 MiB");
	expect_refused(vexil({"info", "huge.json"}), "vexil: huge.json: is larger than 512 MiB");
}

TEST_F(ToolBuild, FaultyManifestsAreRefusedByMember)
{
	const auto expect = [&](const std::string &text, const std::string &cause) {
		SCOPED_TRACE(text);
		write("product.json", text);
		expect_refused(vexil({"build", ".", "-o", "out.pim"}),
			       "vexil: ./product.json: " + cause);
	};
	expect(R"({"functiongroup": []})",
	       "unknown member \"functiongroup\"; similar: 'functionGroups'");
	expect(R"({"zzz": []})", "unknown member \"zzz\"");
	expect(R"({"hardware": 1})", "\"hardware\" must be a text or an array of texts");
	expect(R"({"hardware": [1]})", "\"hardware\" must be a text or an array of texts");
	expect(R"({"handlers": {"a": "b"}})", "\"handlers\" must be a text or an array of texts");
	expect(R"({"registerInfo": []})", "\"registerInfo\" must be a text");
	expect(R"({"files": "a"})",
	       "\"files\" must be an array of texts and of {\"name\", \"path\"} objects");
	expect(R"({"files": [{"name": "a"}]})",
	       "\"files\" must be an array of texts and of {\"name\", \"path\"} objects");
}

TEST_F(ToolBuild, ManifestPathsAreRelativeToTheManifest)
{
	write("a/product.json", R"({"hardware": "lists/hw.json", "handlers": "0x10"})");
	expect_refused(vexil({"build", "a", "-o", "out.pim"}),
		       "vexil: a/lists/hw.json: No such file or directory");
	write("a/lists/hw.json", hardware(""));
	vexil_quiet({"build", "a", "-o", "out.pim"});
}

// ---- progress ----

TEST_F(ToolBuild, LongBuildShowsItsProgressOnATerminalOnly)
{
	// Many entries that the library has to look at, few of which it keeps.
	std::string entries = R"({"A": 0})";
	for (int i = 0; i < 200000; ++i)
		entries += numbered(", {\"R", static_cast<size_t>(i)) + "\": 1}";
	write("long.json", hardware(entries));
	// Eight times, so that even a fast machine takes long enough.
	std::vector<std::string> arguments = {"build", "-o", "out.pim", "--hw"};
	arguments.insert(arguments.end(), 8, "long.json");
	ProcessSetup terminal;
	terminal.error_is_terminal = true;
	const ProcessResult shown = vexil(arguments, terminal);
	EXPECT_EQ(shown.exit_code, 0);
	EXPECT_NE(shown.err.find("\r\x1b[K[8/8] long.json"), std::string::npos) << shown.err;
	EXPECT_TRUE(shown.err.ends_with("\r\x1b[K")) << shown.err;
	EXPECT_EQ(vexil(arguments).err, "");
	EXPECT_EQ(vexil({"build", kTv, "-o", "tv.pim"}, terminal).err, "");
}

} // namespace
