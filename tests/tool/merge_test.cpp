// SPDX-License-Identifier: MIT
//
// vexil merge, and which rule images belong to which maps: those that do not are refused or warned
// about, and none stands beside a new map unmentioned.
#include <filesystem>

#include "tests/tool/fixture.h"

namespace {

using namespace vexil_test;
namespace fs = std::filesystem;

class ToolMerge : public ToolTest {
protected:
	/** The television and the customer's product, each with its rules. */
	void build_examples() const
	{
		build(kTv, "tv.pim");
		build(kCustomer, "customer.pim");
	}

	/**
	 * A product with one setting in an IP of its own, and a rule of that name; both selected
	 * and found whatever the version.
	 */
	void build_small(const std::string &name, int revision, const std::string &note) const
	{
		Json groups;
		groups["VexilVersion"]["#version"] = {{"MajorVersion", 2},
						      {"MinorVersion", 2},
						      {"Revision", revision},
						      {"Note", note}};
		groups["PqFuncGroups"][name]["settings"]["Set_" + name]["group"] = {
			{"On", {{"swreg", {{"A", 1}}}}}};
		write("sw.json", R"({"PqSWRegList": {"register": [{"A": 7}]}})");
		write("g.json", groups.dump());
		write("s.json", R"({"PqRuleLists": {"Input": {"content": ["HDMI"]}}})");
		write("r.json", R"({"PqRuleGroups": {"Rule_)" + name +
					R"(": {"rules": [{"comparator": {}, "settings": ["Set_)" +
					name + R"(#On"], "children": []}]}}})");
		vexil_quiet({"build", "-o", name + ".pim", "--sw", "sw.json", "--groups", "g.json",
			     "--sources", "s.json", "--rules", "r.json"});
	}

	/** What 'run' and 'explain' say of both images on standard error. */
	std::string complaint(const std::string &map, const std::string &rules) const
	{
		const ProcessResult run = vexil({"run", map, rules});
		const ProcessResult explain = vexil({"explain", map, rules});
		EXPECT_EQ(run.exit_code, 0) << run.err;
		EXPECT_EQ(explain.exit_code, 0) << explain.err;
		EXPECT_EQ(run.err, explain.err);
		return run.err;
	}
};

// ---- rules of another map ----

TEST_F(ToolMerge, RulesInTheWrongOrderAreRefused)
{
	build_examples();
	const std::vector<std::string> before = names();
	expect_refusal(
		{"merge", "tv.pim", "customer.pim", "-o", "m.pim", "--rules", "customer.rule",
		 "tv.rule"},
		1,
		"vexil: customer.rule: rule \"StoreLock\", case 1 selects setting 442, which "
		"tv.pim does not have: the rules were built for another map, or are damaged");
	const ProcessResult twice = vexil({"merge", "tv.pim", "customer.pim", "-o", "m.pim",
					   "--rules", "tv.rule", "tv.rule"});
	EXPECT_EQ(twice.exit_code, 1);
	EXPECT_EQ(twice.err.rfind("vexil: tv.rule: rule \"", 0), 0u) << twice.err;
	EXPECT_NE(twice.err.find(", which customer.pim does not have: "), std::string::npos)
		<< twice.err;
	EXPECT_EQ(names(), before);
}

TEST_F(ToolMerge, RulesOfAnEarlierMapAreWarnedAbout)
{
	build_small("a", 1, "lot 1");
	fs::rename(path("a.rule"), path("old.rule"));
	build_small("a", 1, "lot 1");
	EXPECT_EQ(complaint("a.pim", "a.rule"), "");
	EXPECT_EQ(complaint("a.pim", "old.rule"), "");
	build_small("a", 2, "lot 1");
	EXPECT_EQ(complaint("a.pim", "a.rule"), "");
	EXPECT_EQ(complaint("a.pim", "old.rule"),
		  "vexil: old.rule: warning: was built for a map of version 2.2.1 'lot 1'; a.pim "
		  "is 2.2.2 'lot 1': it may select other settings than it should\n");
	build_small("a", 1, "");
	EXPECT_EQ(complaint("a.pim", "old.rule"),
		  "vexil: old.rule: warning: was built for a map of version 2.2.1 'lot 1'; a.pim "
		  "is 2.2.1: it may select other settings than it should\n");
	build_small("b", 5, "shop");
	const ProcessResult merged = vexil(
		{"merge", "a.pim", "b.pim", "--rules", "old.rule", "b.rule", "-o", "both.pim"});
	EXPECT_EQ(merged.exit_code, 0);
	EXPECT_EQ(merged.err,
		  "vexil: old.rule: warning: was built for a map of version 2.2.1 'lot 1'; a.pim "
		  "is 2.2.1: it may select other settings than it should\n");
}

TEST_F(ToolMerge, MergedRulesFitTheirMergedMapWithoutAWarning)
{
	build_small("a", 1, "television");
	build_small("b", 5, "shop");
	build_small("c", 9, "kiosk");
	vexil_quiet({"merge", "a.pim", "b.pim", "-o", "ab.pim"});
	vexil_quiet({"merge", "ab.pim", "c.pim", "-o", "abc.pim"});
	vexil_quiet({"merge", "b.pim", "c.pim", "-o", "bc.pim"});
	vexil_quiet({"merge", "a.pim", "bc.pim", "-o", "a-bc.pim"});
	for (const std::string name : {"ab", "abc", "bc", "a-bc"})
		EXPECT_EQ(complaint(name + ".pim", name + ".rule"), "") << name;
	// The base's own rules fit as well: its settings keep their places.
	EXPECT_EQ(complaint("ab.pim", "a.rule"), "");
	const Json run = vexil_json({"run", "abc.pim", "abc.rule"});
	std::vector<std::string> labels;
	for (const Json &entry : run["settings"])
		labels.push_back(entry["label"]);
	EXPECT_EQ(labels, (std::vector<std::string>{"Set_a#On", "Set_b#On", "Set_c#On"}));
}

TEST_F(ToolMerge, VersionsAreTheBasesInTheMapAndTheSubsInTheRules)
{
	build_small("a", 1, "television");
	build_small("b", 5, "shop");
	vexil_quiet({"merge", "a.pim", "b.pim", "-o", "ab.pim"});
	const auto head = [&](const std::string &image) {
		const std::string bytes = read_text(path(image));
		const char revision = bytes[4]; // of the first version: u16, u16, u32
		return std::pair(static_cast<int>(revision), std::string(bytes.c_str() + 40));
	};
	EXPECT_EQ(head("ab.pim"), std::pair(1, std::string("television")));
	EXPECT_EQ(head("ab.rule"), std::pair(5, std::string("shop")));
	EXPECT_NE(vexil_quiet({"merge", "--help"})
			  .find("version and customer text of the rule image are those of SUB."),
		  std::string::npos);
}

TEST_F(ToolMerge, RulesWithoutARuleCarryNoVersionAndAreNotWarnedAbout)
{
	build_small("a", 1, "television");
	write("none.json", R"({"PqRuleGroups": {}})");
	vexil_quiet({"build", "-o", "none.pim", "--sources", "s.json", "--rules", "none.json"});
	EXPECT_EQ(complaint("a.pim", "none.rule"), "");
}

TEST_F(ToolMerge, HyphenAnywhereExcludesAllRulesThatAreNamed)
{
	build_small("a", 1, "");
	build_small("b", 1, "");
	vexil_quiet({"merge", "a.pim", "b.pim", "-o", "ab.pim"});
	const Json run = vexil_json({"run", "ab.pim", "ab.rule", "--rule", "Rule_b;-Rule_a"});
	EXPECT_EQ(run["settings"].size(), 0u);
	for (const char *command : {"run", "explain"})
		EXPECT_NE(vexil_quiet({command, "--help"})
				  .find("A '-' anywhere, as in \"A;-B\", excludes all that are "
					"named: every rule but A and B"),
			  std::string::npos);
}

// ---- what is written ----

TEST_F(ToolMerge, DeviceTakesTheMapAndTheRulesAreMentioned)
{
	build_examples();
	const std::vector<std::string> before = names();
	const std::string left_out =
		"the rules are not written: /dev/null is no regular file (--rules-out FILE)";
	const std::vector<std::string> found =
		lines_of(vexil_quiet({"merge", "tv.pim", "customer.pim", "-o", "/dev/null"}));
	ASSERT_EQ(found.size(), 3u);
	EXPECT_EQ(found[0], "with the rules beside them: customer.rule over tv.rule");
	EXPECT_EQ(found[2], left_out);
	const std::vector<std::string> named =
		lines_of(vexil_quiet({"merge", "tv.pim", "customer.pim", "-o", "/dev/null",
				      "--rules", "tv.rule", "customer.rule"}));
	ASSERT_EQ(named.size(), 2u);
	EXPECT_EQ(named[1], left_out);
	EXPECT_EQ(names(), before);
	EXPECT_FALSE(fs::exists("/dev/null.rule"));
	vexil_quiet(
		{"merge", "tv.pim", "customer.pim", "-o", "/dev/null", "--rules-out", "m.rule"});
	vexil_quiet({"merge", "tv.pim", "customer.pim", "-o", "shop.pim"});
	EXPECT_EQ(read_text(path("m.rule")), read_text(path("shop.rule")));
}

TEST_F(ToolMerge, OlderRulesBesideAMapWithoutRulesAreWarnedAbout)
{
	build_examples();
	vexil_quiet({"merge", "tv.pim", "customer.pim", "-o", "shop.pim"});
	fs::rename(path("customer.rule"), path("c.rule"));
	const std::string older = read_text(path("shop.rule"));
	const ProcessResult result = vexil({"merge", "tv.pim", "customer.pim", "-o", "shop.pim"});
	EXPECT_EQ(result.exit_code, 0);
	EXPECT_EQ(result.err,
		  "vexil: shop.pim: warning: shop.rule beside it is older and was not written\n");
	EXPECT_EQ(read_text(path("shop.rule")), older);
	vexil_quiet({"merge", "tv.pim", "customer.pim", "-o", "alone.pim"});
}

TEST_F(ToolMerge, OneFileForBothImagesIsAUsageError)
{
	build_examples();
	const std::string tv = read_text(path("tv.pim"));
	const std::string rules = read_text(path("tv.rule"));
	const std::string line = "vexil: tv.pim would be both images; name one with --rules-out "
				 "(see 'vexil merge --help')";
	fs::create_symlink("tv.pim", path("soft.rule"));
	fs::create_hard_link(path("tv.pim"), path("hard.rule"));
	fs::create_directory_symlink(".", path("here"));
	const std::vector<std::string> before = names();
	for (const std::string &same :
	     {std::string("tv.pim"), std::string("./tv.pim"), path("tv.pim"),
	      std::string("here/tv.pim"), std::string("soft.rule"), std::string("hard.rule")}) {
		SCOPED_TRACE(same);
		const ProcessResult result = vexil(
			{"merge", "tv.pim", "customer.pim", "-o", "tv.pim", "--rules-out", same});
		EXPECT_EQ(result.exit_code, 2);
		EXPECT_EQ(result.err, line + "\n");
		EXPECT_EQ(read_text(path("tv.pim")), tv);
		EXPECT_EQ(read_text(path("tv.rule")), rules);
	}
	const ProcessResult fresh = vexil({"merge", "tv.pim", "customer.pim", "-o", "new.pim",
					   "--rules-out", "here/new.pim"});
	EXPECT_EQ(fresh.exit_code, 2);
	EXPECT_EQ(fresh.err, "vexil: new.pim would be both images; name one with --rules-out (see "
			     "'vexil merge --help')\n");
	EXPECT_EQ(names(), before);
}

TEST_F(ToolMerge, RulesOutWithoutRulesIsAUsageError)
{
	write("hw.json", R"({"PqHWRegList": {"register": [{"A": 0}]}})");
	vexil_quiet({"build", "-o", "a.pim", "--hw", "hw.json"});
	vexil_quiet({"build", "-o", "b.pim", "--hw", "hw.json"});
	const auto before = names();
	expect_refusal({"build", "-o", "c.pim", "--hw", "hw.json", "--rules-out", "c.rule"}, 2,
		       "vexil: --rules-out, but there are no sources and rules (see 'vexil build "
		       "--help')");
	expect_refusal(
		{"merge", "a.pim", "b.pim", "-o", "c.pim", "--rules-out", "c.rule"}, 2,
		"vexil: --rules-out, but there are no rules (--rules BASE SUB; see 'vexil merge "
		"--help')");
	EXPECT_EQ(names(), before);
}

TEST_F(ToolMerge, InputsAreReplacedByTheirOwnKindOnly)
{
	build_examples();
	const std::string map = read_text(path("customer.pim"));
	const std::string rules = read_text(path("tv.rule"));
	expect_refusal(
		{"merge", "tv.pim", "customer.pim", "--rules", "tv.rule", "customer.rule", "-o",
		 "s.pim", "--rules-out", "./customer.pim"},
		2,
		"vexil: customer.pim is a PIM image that is merged and would become a rule image (see "
		"'vexil merge --help')");
	expect_refusal(
		{"merge", "tv.pim", "customer.pim", "--rules", "tv.rule", "customer.rule", "-o",
		 "tv.rule", "--rules-out", "s.rule"},
		2,
		"vexil: tv.rule is a rule image that is merged and would become a PIM image (see 'vexil "
		"merge --help')");
	EXPECT_EQ(read_text(path("customer.pim")), map);
	EXPECT_EQ(read_text(path("tv.rule")), rules);
	vexil_quiet({"merge", "tv.pim", "customer.pim", "-o", "customer.pim", "--rules-out",
		     "customer.rule"});
	EXPECT_NE(read_text(path("customer.pim")), map);
}

TEST_F(ToolMerge, OlderRulesBesideTheMapAreWarnedAboutWhenTheNewOnesGoElsewhere)
{
	write("tv.rule", "old");
	const ProcessResult result =
		vexil({"build", kTv, "-o", "tv.pim", "--rules-out", "fresh.rule"});
	EXPECT_EQ(result.exit_code, 0);
	EXPECT_EQ(result.err,
		  "vexil: tv.pim: warning: tv.rule beside it is older and was not written\n");
	EXPECT_EQ(read_text(path("tv.rule")), "old");
}

} // namespace
