// SPDX-License-Identifier: MIT
#include "tests/tool/fixture.h"

namespace {

using namespace vexil_test;

class ToolCommandLine : public ToolTest {};

const std::vector<std::string> kCommands = {"build", "info", "dump", "list", "load", "merge"};

TEST_F(ToolCommandLine, HelpListsTheCommandsAndTheExitCodes)
{
	const std::string help = vexil_quiet({"--help"});
	for (const std::string &command : kCommands)
		EXPECT_NE(help.find("\n  " + command + " "), std::string::npos) << command;
	EXPECT_NE(help.find("\nExamples:\n"), std::string::npos);
	EXPECT_NE(help.find("Exit codes: 0 done; 1 a file, document, image or label is refused;\n"
			    "2 the command line is wrong; 3 the output cannot be written.\n"),
		  std::string::npos);
}

TEST_F(ToolCommandLine, EveryCommandHasHelpWithAnExampleOfItself)
{
	for (const std::string &command : kCommands) {
		const std::string help = vexil_quiet({command, "--help"});
		EXPECT_NE(help.find("\nExample"), std::string::npos) << command;
		EXPECT_NE(help.find("\n  vexil " + command + " "), std::string::npos) << command;
		EXPECT_EQ(vexil_quiet({command, "-h"}), help);
	}
}

TEST_F(ToolCommandLine, VersionNamesTheToolAndTheJsonLibrary)
{
	const std::string version = vexil_quiet({"--version"});
	EXPECT_EQ(version.rfind("vexil 2.2.2 (cJSON 1.7.", 0), 0u) << version;
	EXPECT_EQ(lines_of(version).size(), 1u);
}

TEST_F(ToolCommandLine, UsageErrorsAreOneLineAndCodeTwo)
{
	expect_refusal({}, 2, "vexil: A subcommand is required (see 'vexil --help')");
	expect_refusal({"bogus"}, 2, "vexil: there is no command 'bogus' (see 'vexil --help')");
	expect_refusal({"--bogus"}, 2, "vexil: there is no option '--bogus' (see 'vexil --help')");
	expect_refusal({"build", kTv}, 2, "vexil: --output is required (see 'vexil build --help')");
	expect_refusal({"build", "-o", "out.pim"}, 2,
		       "vexil: a product or something else to build from is needed (see 'vexil "
		       "build --help')");
	expect_refusal({"info"}, 2, "vexil: IMAGE is required (see 'vexil info --help')");
	expect_refusal({"dump"}, 2, "vexil: IMAGE is required (see 'vexil dump --help')");
	expect_refusal({"list"}, 2, "vexil: IMAGE is required (see 'vexil list --help')");
	expect_refusal({"load"}, 2, "vexil: IMAGE is required (see 'vexil load --help')");
	expect_refusal(
		{"load", "tv.pim"}, 2,
		"vexil: a label, --id, --preset or --common is needed (see 'vexil load --help')");
	expect_refusal({"load", "tv.pim", "a#b", "--address"}, 2,
		       "vexil: --address needs --reginfo or --product (see 'vexil load --help')");
	expect_refusal({"merge", "tv.pim", "-o", "x"}, 2,
		       "vexil: SUB is required (see 'vexil merge --help')");
	expect_refusal({"merge", "tv.pim", "tv.pim"}, 2,
		       "vexil: --output is required (see 'vexil merge --help')");
	EXPECT_EQ(names(), std::vector<std::string>{});
}

TEST_F(ToolCommandLine, NumbersOutOfRangeAreUsageErrors)
{
	for (const std::string budget : {"16777215", "-1", "x", "99999999999"})
		EXPECT_EQ(vexil({"load", "tv.pim", "a#b", "--budget", budget}).exit_code, 2)
			<< budget;
	for (const std::string id : {"65535", "-1", "x"})
		EXPECT_EQ(vexil({"load", "tv.pim", "--id", id}).exit_code, 2) << id;
	EXPECT_EQ(vexil({"load", "tv.pim", "a#b", "--budget", "1", "--preset", "T"}).exit_code, 2);
}

TEST_F(ToolCommandLine, ControlCharactersOfArgumentsDoNotReachTheTerminal)
{
	const ProcessResult result = vexil({"info", "a\x1b[31m\nb"});
	EXPECT_EQ(result.exit_code, 1);
	EXPECT_EQ(result.err, "vexil: a\\x1b[31m\\nb: No such file or directory\n");
}

TEST_F(ToolCommandLine, FullStandardOutputIsAnErrorOfWriting)
{
	write("tv.pim", tv_image());
	ProcessSetup full;
	full.output_to = "/dev/full";
	for (const std::vector<std::string> &arguments :
	     std::vector<std::vector<std::string>>{{"info", "tv.pim"},
						   {"list", "tv.pim"},
						   {"dump", "tv.pim"},
						   {"load", "tv.pim", "Dimming_Level#High"},
						   {"list", "tv.pim", "--json"}}) {
		const ProcessResult result = vexil(arguments, full);
		EXPECT_EQ(result.exit_code, 3) << arguments[0];
		EXPECT_EQ(result.err.rfind("vexil: standard output: ", 0), 0u) << result.err;
		EXPECT_EQ(lines_of(result.err).size(), 1u) << result.err;
	}
}

} // namespace
