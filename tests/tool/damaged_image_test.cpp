// SPDX-License-Identifier: MIT
//
// Whatever is in an image or a document, every command ends by itself: done or refused.
#include <random>

#include "tests/tool/fixture.h"
#include "tests/tool/images.h"

namespace {

using namespace vexil_test;

class ToolDamage : public ToolTest {
protected:
	/** Commands over x.pim, each with what a curious user would add. */
	static std::vector<std::vector<std::string>> commands()
	{
		std::vector<std::vector<std::string>> all = {
			{"info", "x.pim"},
			{"info", "x.pim", "--json"},
			{"list", "x.pim"},
			{"list", "x.pim", "--json"},
			{"dump", "x.pim"},
			{"load", "x.pim", "Dimming_Level#High", "Sharpness_Gain#commonReg"},
			{"load", "x.pim", "Gamma_Curve#Gamma_2p2", "--product", kTv, "--address"},
			{"load", "x.pim", "--common", "--json"},
			{"load", "x.pim", "--preset", "PICTURE_MODE_REGS", "--product", kTv},
			{"load", "x.pim", "--id", "1", "100", "3304", "--budget", "40"},
			{"merge", "x.pim", "tv.pim", "-o", "out.pim"},
			{"merge", "tv.pim", "x.pim", "-o", "out.pim"},
		};
		// What is survived without it is the question here.
		for (std::vector<std::string> &arguments : all)
			arguments.emplace_back("--no-verify");
		return all;
	}

	/** Runs one command and expects it to end by itself. */
	void expect_answer(const std::vector<std::string> &arguments, const std::string &what) const
	{
		const ProcessResult result = vexil(arguments);
		const bool answered = result.exit_code == 0 || result.exit_code == 1;
		EXPECT_TRUE(answered) << what << ": " << testing::PrintToString(arguments)
				      << " exit " << result.exit_code << " signal " << result.signal
				      << (result.timed_out ? " timed out" : "") << '\n'
				      << result.err.substr(0, 4000);
		if (result.exit_code == 1) {
			EXPECT_NE(result.err, "") << what;
		}
		for (const std::string &name : names())
			EXPECT_EQ(name.find("out.pim."), std::string::npos) << what;
	}

	void expect_answers(const std::string &image, const std::string &what) const
	{
		write("x.pim", image);
		for (const std::vector<std::string> &arguments : commands())
			expect_answer(arguments, what);
	}
};

TEST_F(ToolDamage, FlippedBytesAnywhereAreAnswered)
{
	constexpr uint32_t kSeed = 20240611;
	constexpr size_t kImages = 360;
	std::mt19937 random(kSeed);
	write("tv.pim", tv_image());
	const size_t nodes_end = kNodesBegin + word_at(tv_image(), kNodeFigures);
	const size_t data_begin = kNodesBegin + word_at(tv_image(), kNodeFigures + 4) + 8;
	const size_t data_end = data_begin + word_at(tv_image(), data_begin - 8);
	// Each third in another part; the capacities' zero tails would waste most flips.
	const std::pair<size_t, size_t> parts[] = {
		{0, 200}, {kNodesBegin, nodes_end}, {data_begin, data_end}};
	const auto all = commands();
	for (size_t i = 0; i < kImages; ++i) {
		std::string image = tv_image();
		const auto [begin, end] = parts[i % 3];
		const size_t flips = 1 + random() % 12;
		for (size_t flip = 0; flip < flips; ++flip)
			image[begin + random() % (end - begin)] = static_cast<char>(random());
		write("x.pim", image);
		expect_answer(all[i / 3 % all.size()], numbered("seed 20240611, image ", i));
	}
}

TEST_F(ToolDamage, NodesThatLeadToThemselvesAreAnswered)
{
	constexpr uint32_t kSeed = 4711;
	std::mt19937 random(kSeed);
	write("tv.pim", tv_image());
	const size_t nodes = word_at(tv_image(), kNodeFigures) / kNodeBytes;
	for (size_t i = 0; i < 12; ++i) {
		std::string image = tv_image();
		for (size_t loops = 0; loops < 1 + i; ++loops) {
			size_t node = random() % nodes;
			while (static_cast<uint8_t>(
				       image[kNodesBegin + node * kNodeBytes + kTag]) >=
			       kFirstDataTag)
				node = (node + 1) % nodes;
			const size_t at = kNodesBegin + node * kNodeBytes;
			const auto target = static_cast<uint16_t>(i % 3 == 0   ? node
								  : i % 3 == 1 ? 0
									       : random() % nodes);
			put_half(image, at + (random() % 2 ? kChild : kNext), target);
		}
		expect_answers(image, numbered("seed 4711, image ", i));
	}
}

TEST_F(ToolDamage, EveryHolderThatSharesOneChainIsAnswered)
{
	// All tree nodes point to the first IP's holder, as child, as sibling, or both.
	write("tv.pim", tv_image());
	const size_t nodes = word_at(tv_image(), kNodeFigures) / kNodeBytes;
	for (const int links : {1, 2, 3}) {
		std::string image = tv_image();
		for (size_t node = 0; node < nodes; ++node) {
			const size_t at = kNodesBegin + node * kNodeBytes;
			if (static_cast<uint8_t>(image[at + kTag]) >= kFirstDataTag)
				continue;
			if (links & 1)
				put_half(image, at + kChild, static_cast<uint16_t>(nodes / 2));
			if (links & 2)
				put_half(image, at + kNext, static_cast<uint16_t>(nodes / 3));
		}
		expect_answers(image, numbered("links ", static_cast<size_t>(links)));
	}
}

TEST_F(ToolDamage, ConfigurationsWithEndlessChainsAreAnswered)
{
	// 20,000 common configurations that share one chain of 20,000 holders without an end.
	constexpr uint16_t kHolders = 20000;
	constexpr uint16_t kNone = 0xFFFF;
	struct Node {
		uint8_t tag;
		uint16_t child, next;
	};
	std::vector<Node> nodes = {
		{1, 1, kNone}, {1, 2, kNone}, {17, 3, kNone}, {1, 4, kNone}, {18, 5, kNone}};
	const auto first = static_cast<uint16_t>(nodes.size());
	for (uint16_t i = 0; i < kHolders;
	     ++i) { // holders of configurations, then the configurations
		const bool last = i + 1 == kHolders;
		nodes.push_back({1, static_cast<uint16_t>(first + kHolders + i),
				 last ? kNone : static_cast<uint16_t>(first + i + 1)});
	}
	const auto chain = static_cast<uint16_t>(first + 2 * kHolders);
	for (uint16_t i = 0; i < kHolders; ++i)
		nodes.push_back({21, chain, kNone});
	for (uint16_t i = 0; i < kHolders; ++i)
		nodes.push_back(
			{1, 0, static_cast<uint16_t>(i + 1 == kHolders ? chain : chain + i + 1)});

	const size_t node_bytes = nodes.size() * kNodeBytes;
	std::string image(kNodesBegin + node_bytes + 8 + 8, '\0');
	put_half(image, kCodeVersion, 2);
	put_half(image, kCodeVersion + 2, 2);
	image[kKind] = 1;
	put_word(image, kImageSize, static_cast<uint32_t>(image.size()));
	put_word(image, kNodeFigures, static_cast<uint32_t>(node_bytes));
	put_word(image, kNodeFigures + 4, static_cast<uint32_t>(node_bytes));
	put_word(image, kNodesBegin + node_bytes + 4, 8);
	for (size_t i = 0; i < nodes.size(); ++i) {
		const size_t at = kNodesBegin + i * kNodeBytes;
		put_half(image, at, static_cast<uint16_t>(i));
		image[at + kTag] = static_cast<char>(nodes[i].tag);
		put_half(image, at + kChild, nodes[i].child);
		put_half(image, at + kNext, nodes[i].next);
	}
	write("tv.pim", tv_image());
	expect_answers(image, "endless chains");
}

TEST_F(ToolDamage, FlippedBytesInDocumentsAreAnswered)
{
	constexpr uint32_t kSeed = 8086;
	std::mt19937 random(kSeed);
	const std::string groups = read_text(kTv + "/groups/panel.json");
	const std::string lists = read_text(kTv + "/registers/hardware.json");
	for (size_t i = 0; i < 120; ++i) {
		std::string text = i % 2 ? groups : lists;
		const size_t flips = 1 + random() % 3;
		for (size_t flip = 0; flip < flips; ++flip) {
			// Mostly characters that mean something in JSON.
			constexpr char kCharacters[] = "{}[]\",:0x9-+eE\\u#\n\x01\xFF";
			text[random() % text.size()] =
				kCharacters[random() % (sizeof kCharacters - 1)];
		}
		write("x.json", text);
		expect_answer({"build", "-o", "out.pim", i % 2 ? "--groups" : "--hw", "x.json"},
			      numbered("seed 8086, document ", i));
	}
}

TEST_F(ToolDamage, DocumentsOfOtherShapesAreAnswered)
{
	for (const std::string text : {
		     R"({"PqFuncGroups": 1})",
		     R"({"PqFuncGroups": "x"})",
		     R"({"PqFuncGroups": [[[1]]]})",
		     R"({"PqFuncGroups": {"": {"settings": {"": {"group": {"": {"hwreg": {"": 1}}}}}}}})",
		     R"({"PqFuncGroups": {"a": {"settings": [{"b": {"group": [{"c": {}}]}}]}}})",
		     R"({"PqFuncGroups": {"a": {"settings": {"b": {"group": [1, [], {}, null]}}}}})",
		     R"({"PqFuncGroups": {"a": {"settings": {"b": {"commonReg": true, "group": [1, {}]}}}}})",
		     R"({"PqFuncGroups": {"a": {"settings": {"b": {"group": {"c": {"hwreg": [[1], {}, 2]}}}}}}})",
		     R"({"PqFuncGroups": {"a": {"settings": {"b": {"group": {"c": {"lut": [1], "alg": [{}]}}}}}}})",
		     R"({"PqFuncGroups": {"a": {"settings": {"b": {"group": {"c": {"hwaddr": [null]}}}}}}})",
		     R"({"VexilVersion": {"#version": 5}, "PqFuncGroups": {"a": {"settings": 5}}})",
		     R"({"PqHWRegList": [{"register": [{"a": 1}]}]})",
		     R"({"PqHWRegList": {"register": {"a": 1}}})",
		     R"({"PqHWRegList": {"register": [[1], [], null, {"a": {}}]}})",
	     }) {
		write("x.json", text);
		for (const std::string option : {"--hw", "--sw", "--cus", "--groups"})
			expect_answer({"build", "-o", "out.pim", option, "x.json"}, text);
		expect_answer({"build", "x.json", "-o", "out.pim"}, text);
	}
}

} // namespace
