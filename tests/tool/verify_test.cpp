// SPDX-License-Identifier: MIT
//
// vexil verify, and what the commands that open images make of its answer.
#include <random>

#include "tests/tool/fixture.h"
#include "tests/tool/images.h"

namespace {

using namespace vexil_test;

class ToolVerify : public ToolTest {
protected:
	/** The television's image with a node that stores another id. */
	static std::string damaged()
	{
		std::string image = tv_image();
		put_half(image, kNodesBegin + 7 * kNodeBytes, 8);
		return image;
	}
	static constexpr const char *kDamage = "a node stores the id of another (node 7, byte 208)";
};

TEST_F(ToolVerify, WhatTheToolWritesIsSound)
{
	build(kTv, "tv.pim");
	vexil_quiet({"build", kCustomer, "-o", "customer.pim"});
	vexil_quiet({"merge", "tv.pim", "customer.pim", "-o", "shop.pim"});
	EXPECT_EQ(vexil_quiet({"verify", "tv.pim", "tv.rule", "shop.pim"}),
		  "tv.pim: sound\ntv.rule: sound\nshop.pim: sound\n");
	EXPECT_EQ(vexil_json({"verify", "tv.pim"}),
		  Json::parse(R"([{"file": "tv.pim", "sound": true}])"));
}

TEST_F(ToolVerify, EveryImageIsExamined)
{
	write("tv.pim", tv_image());
	write("x.pim", damaged());
	write("y.pim", "too short");
	const ProcessResult result = vexil({"verify", "x.pim", "tv.pim", "y.pim"});
	EXPECT_EQ(result.exit_code, 1);
	EXPECT_EQ(result.out,
		  "x.pim: " + std::string(kDamage) +
			  "\ntv.pim: sound\n"
			  "y.pim: there are fewer bytes than an image's head and figures "
			  "(byte 9)\n");
	EXPECT_EQ(result.err, "vexil: 2 of 3 images are not sound\n");
}

TEST_F(ToolVerify, FaultsAsJson)
{
	write("x.pim", damaged());
	const ProcessResult result = vexil({"verify", "x.pim", "--json"});
	EXPECT_EQ(result.exit_code, 1);
	EXPECT_EQ(Json::parse(result.out), Json::parse(R"([{"file": "x.pim", "sound": false,
		"fault": {"code": 11, "text": "a node stores the id of another",
			  "offset": 208, "node": 7, "other": null}}])"));
	EXPECT_EQ(result.err, "vexil: 1 of 1 image is not sound\n");
}

TEST_F(ToolVerify, MissingFilesAreNamed)
{
	expect_refusal({"verify", "gone.pim"}, 1, "vexil: gone.pim: No such file or directory");
}

TEST_F(ToolVerify, FilesThatCannotBeReadAreNoReasonToStop)
{
	write("tv.pim", tv_image());
	write("x.pim", damaged());
	write("none.pim", "");
	const std::string causes = "vexil: gone.pim: No such file or directory\n"
				   "vexil: none.pim: is empty\n";
	ProcessResult result = vexil({"verify", "gone.pim", "x.pim", "none.pim", "tv.pim"});
	EXPECT_EQ(result.exit_code, 1);
	EXPECT_EQ(result.out, "x.pim: " + std::string(kDamage) + "\ntv.pim: sound\n");
	EXPECT_EQ(result.err, causes + "vexil: 1 of 4 images is not sound, 2 cannot be read\n");

	result = vexil({"verify", "gone.pim", "none.pim", "tv.pim", "--json"});
	EXPECT_EQ(result.exit_code, 1);
	EXPECT_EQ(Json::parse(result.out), Json::parse(R"([
		{"file": "gone.pim", "error": "gone.pim: No such file or directory"},
		{"file": "none.pim", "error": "none.pim: is empty"},
		{"file": "tv.pim", "sound": true}])"));
	EXPECT_EQ(result.err, causes + "vexil: 0 of 3 images are not sound, 2 cannot be read\n");
}

TEST_F(ToolVerify, CommandsRefuseWhatIsNotSoundUnlessTheyAreToldNotTo)
{
	build(kTv, "tv.pim");
	write("x.pim", damaged());
	write("x.rule", [&] {
		std::string image = read_text(path("tv.rule"));
		put_half(image, kNodesBegin + 7 * kNodeBytes, 8);
		return image;
	}());
	const std::vector<std::vector<std::string>> of_map = {
		{"info", "x.pim"},
		{"list", "x.pim"},
		{"dump", "x.pim"},
		{"load", "x.pim", "Dimming_Level#High"},
		{"run", "x.pim", "tv.rule"},
		{"explain", "x.pim", "tv.rule"},
		{"merge", "x.pim", "tv.pim", "-o", "out.pim"},
		{"merge", "tv.pim", "x.pim", "-o", "out.pim"},
	};
	const std::vector<std::vector<std::string>> of_rules = {
		{"info", "x.rule"},
		{"list", "x.rule"},
		{"dump", "x.rule"},
		{"run", "tv.pim", "x.rule"},
		{"explain", "tv.pim", "x.rule"},
		{"merge", "tv.pim", "tv.pim", "--rules", "tv.rule", "x.rule", "-o", "out.pim"},
		{"merge", "tv.pim", "tv.pim", "--rules", "x.rule", "tv.rule", "-o", "out.pim"},
	};
	for (const auto &[commands, file] :
	     {std::pair(of_map, "x.pim"), std::pair(of_rules, "x.rule")}) {
		for (std::vector<std::string> arguments : commands) {
			SCOPED_TRACE(testing::PrintToString(arguments));
			expect_refusal(arguments, 1,
				       std::string("vexil: ") + file + ": is damaged: " + kDamage);
			arguments.emplace_back("--no-verify");
			// An id that nobody reads; nothing else is wrong with the image.
			EXPECT_EQ(vexil(arguments).exit_code, 0);
		}
	}
}

TEST_F(ToolVerify, DamageIsRefusedInOneLine)
{
	std::mt19937 random(20260401);
	const size_t nodes_end = kNodesBegin + word_at(tv_image(), kNodeFigures);
	size_t refused = 0;
	for (size_t i = 0; i < 60; ++i) {
		std::string image = tv_image();
		image[kNodesBegin + random() % (nodes_end - kNodesBegin)] =
			static_cast<char>(random());
		write("x.pim", image);
		const ProcessResult verified = vexil({"verify", "x.pim"});
		const ProcessResult opened = vexil({"info", "x.pim"});
		EXPECT_EQ(opened.exit_code, verified.exit_code) << i;
		if (verified.exit_code == 0)
			continue;
		++refused;
		EXPECT_EQ(opened.out, "");
		EXPECT_EQ("x.pim: " + opened.err.substr(
					      std::string("vexil: x.pim: is damaged: ").size()),
			  verified.out);
	}
	EXPECT_GT(refused, 20u);
	EXPECT_LT(refused, 60u);
}

TEST_F(ToolVerify, RulesThatLeadBackToThemselvesAreOpened)
{
	write("s.json", R"({"PqRuleLists": {"Input": {"content": ["HDMI", "DP"]}}})");
	write("r.json", R"({"PqRuleGroups": {
		"A": {"rules": [{"comparator": {"Input": "HDMI"}, "settings": [], "children": ["B"]}]},
		"B": {"rules": [{"comparator": {"Input": "DP"}, "settings": [], "children": ["A"]}]}}})");
	write("g.json",
	      R"({"PqFuncGroups": {"Ip": {"settings": {"Set": {"group": {"One": {}}}}}}})");
	ASSERT_EQ(vexil({"build", "-o", "out.pim", "--groups", "g.json", "--sources", "s.json",
			 "--rules", "r.json"})
			  .exit_code,
		  0);
	const ProcessResult verified = vexil({"verify", "out.rule"});
	EXPECT_EQ(verified.exit_code, 1);
	EXPECT_EQ(verified.out.rfind("out.rule: a rule leads back to itself (node ", 0), 0u)
		<< verified.out;
	for (const char *command : {"run", "explain"}) {
		const ProcessResult result =
			vexil({command, "out.pim", "out.rule", "--set", "Input:HDMI"});
		EXPECT_EQ(result.exit_code, 0) << result.err;
		EXPECT_EQ("out.rule: " +
				  result.err.substr(std::string("vexil: out.rule: note: ").size()),
			  verified.out);
	}
	EXPECT_EQ(vexil({"run", "out.pim", "out.rule", "--no-verify"}).err, "");
}

} // namespace
