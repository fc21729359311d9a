// SPDX-License-Identifier: MIT
//
// Whatever is in a rule image, every command over it ends by itself: done or refused.
#include <random>

#include "tests/tool/images.h"
#include "tests/tool/rule_model.h"

namespace {

using namespace vexil_test;

class ToolRuleDamage : public ToolTest {
protected:
	void SetUp() override
	{
		build(kTv, "tv.pim");
		image_ = read_text(path("tv.rule"));
	}

	static std::vector<std::vector<std::string>> commands()
	{
		std::vector<std::vector<std::string>> all = {
			{"info", "x.rule"},
			{"list", "x.rule"},
			{"list", "x.rule", "--json"},
			{"dump", "x.rule"},
			{"run", "tv.pim", "x.rule", "--set", kFilm, "--rule", "Picture"},
			{"run", "tv.pim", "x.rule", "--json", "--budget", "100"},
			{"explain", "tv.pim", "x.rule", "--set", kComposite},
			{"explain", "tv.pim", "x.rule", "--rule", "Memc;-Picture", "--json"},
			{"merge", "tv.pim", "tv.pim", "--rules", "tv.rule", "x.rule", "-o",
			 "out.pim"},
			{"merge", "tv.pim", "tv.pim", "--rules", "x.rule", "tv.rule", "-o",
			 "out.pim"},
		};
		// What is survived without it is the question here.
		for (std::vector<std::string> &arguments : all)
			arguments.emplace_back("--no-verify");
		return all;
	}

	void expect_answer(const std::vector<std::string> &arguments, const std::string &what) const
	{
		const ProcessResult result = vexil(arguments);
		EXPECT_TRUE(result.exit_code == 0 || result.exit_code == 1)
			<< what << ": " << testing::PrintToString(arguments) << " exit "
			<< result.exit_code << " signal " << result.signal
			<< (result.timed_out ? " timed out" : "") << '\n'
			<< result.err.substr(0, 4000);
		EXPECT_EQ(result.err.find("internal disagreement"), std::string::npos)
			<< what << ": " << testing::PrintToString(arguments) << result.err;
		if (result.exit_code == 1) {
			EXPECT_NE(result.err, "") << what;
		}
	}

	std::string image_;
};

TEST_F(ToolRuleDamage, TruncatedImagesAreRefusedByEveryCommand)
{
	for (const size_t size :
	     {size_t{1}, size_t{87}, size_t{95}, size_t{5000}, image_.size() - 1}) {
		write("x.rule", image_.substr(0, size));
		for (const std::vector<std::string> &arguments : commands()) {
			const ProcessResult result = vexil(arguments);
			EXPECT_EQ(result.exit_code, 1) << size;
			EXPECT_EQ(result.err.rfind("vexil: x.rule: is ", 0), 0u) << result.err;
			EXPECT_EQ(result.out, "");
		}
	}
}

TEST_F(ToolRuleDamage, FlippedBytesAnywhereAreAnswered)
{
	constexpr size_t kImages = 400;
	std::mt19937 random(20260111);
	const size_t nodes_end = kNodesBegin + word_at(image_, kNodeFigures);
	const size_t data_begin = kNodesBegin + word_at(image_, kNodeFigures + 4) + 8;
	const size_t data_end = data_begin + word_at(image_, data_begin - 8);
	const std::pair<size_t, size_t> parts[] = {
		{0, 120}, {kNodesBegin, nodes_end}, {data_begin, data_end}};
	const auto all = commands();
	for (size_t i = 0; i < kImages; ++i) {
		std::string image = image_;
		const auto [begin, end] = parts[i % 3];
		const size_t flips = 1 + random() % 12;
		for (size_t flip = 0; flip < flips; ++flip)
			image[begin + random() % (end - begin)] = static_cast<char>(random());
		write("x.rule", image);
		expect_answer(all[i / 3 % all.size()], numbered("seed 20260111, image ", i));
	}
}

TEST_F(ToolRuleDamage, NodesThatLeadToThemselvesAreAnswered)
{
	std::mt19937 random(815);
	const size_t nodes = word_at(image_, kNodeFigures) / kNodeBytes;
	for (size_t i = 0; i < 9; ++i) {
		std::string image = image_;
		for (size_t loops = 0; loops < 1 + 3 * i; ++loops) {
			size_t node = random() % nodes;
			while (static_cast<uint8_t>(
				       image[kNodesBegin + node * kNodeBytes + kTag]) >=
			       kFirstDataTag)
				node = (node + 1) % nodes;
			const auto target = static_cast<uint16_t>(i % 3 == 0   ? node
								  : i % 3 == 1 ? 0
									       : random() % nodes);
			put_half(image,
				 kNodesBegin + node * kNodeBytes + (random() % 2 ? kChild : kNext),
				 target);
		}
		write("x.rule", image);
		for (const std::vector<std::string> &arguments : commands())
			expect_answer(arguments, numbered("seed 815, image ", i));
	}
}

TEST_F(ToolRuleDamage, IdsOutsideTheMapAreNamed)
{
	constexpr uint8_t kValueHolder = 40;
	std::string image = image_;
	const size_t data_begin = kNodesBegin + word_at(image, kNodeFigures + 4) + 8;
	const size_t nodes = word_at(image, kNodeFigures) / kNodeBytes;
	size_t node = 0;
	while (node < nodes &&
	       static_cast<uint8_t>(image[kNodesBegin + node * kNodeBytes + kTag]) != kValueHolder)
		++node;
	ASSERT_LT(node, nodes);
	const uint32_t offset = word_at(image, kNodesBegin + node * kNodeBytes + 7);
	put_half(image, data_begin + offset, 60000);
	write("x.rule", image);
	for (const char *command : {"run", "explain"}) {
		const ProcessResult result = vexil({command, "tv.pim", "x.rule"});
		EXPECT_EQ(result.exit_code, 1);
		EXPECT_NE(result.err.find(" selects setting 60000, which tv.pim does not have: the "
					  "rules were built for another map, or are damaged\n"),
			  std::string::npos)
			<< result.err;
	}
	const std::vector<std::vector<std::string>> merges = {
		{"merge", "tv.pim", "tv.pim", "--rules", "tv.rule", "x.rule", "-o", "out.pim"},
		{"merge", "tv.pim", "tv.pim", "--rules", "x.rule", "tv.rule", "-o", "out.pim"}};
	for (const std::vector<std::string> &arguments : merges) {
		const ProcessResult result = vexil(arguments);
		EXPECT_EQ(result.exit_code, 1);
		EXPECT_EQ(result.out, "");
		EXPECT_EQ(result.err.rfind("vexil: x.rule: rule \"", 0), 0u) << result.err;
		EXPECT_NE(result.err.find(" selects setting 60000, which tv.pim does not have: "),
			  std::string::npos)
			<< result.err;
	}
	EXPECT_EQ(names(), (std::vector<std::string>{"tv.pim", "tv.rule", "x.rule"}));
}

} // namespace
