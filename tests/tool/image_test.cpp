// SPDX-License-Identifier: MIT
#include <set>

#include "tests/tool/fixture.h"
#include "tests/tool/images.h"
#include "tests/tool/model.h"

namespace {

using namespace vexil_test;

/** Lines of a dump from a node on: itself, all below it, its siblings. Items may be shared. */
size_t lines_below(const std::string &image, uint16_t node)
{
	constexpr uint16_t kNone = 0xFFFF;
	size_t lines = 0;
	while (node != kNone) {
		++lines;
		const size_t at = kNodesBegin + node * kNodeBytes;
		if (static_cast<uint8_t>(image[at + kTag]) >= kFirstDataTag)
			break;
		const uint16_t child = half_at(image, at + kChild);
		lines += child == kNone ? 0 : lines_below(image, child);
		node = half_at(image, at + kNext);
	}
	return lines;
}

class ToolImage : public ToolTest {
protected:
	/** Expects every command that reads a PIM image to refuse this file in the same words. */
	void expect_refused_by_all(const std::string &bytes, const std::string &cause) const
	{
		write("x.pim", bytes);
		write("tv.pim", tv_image());
		const std::string line = "vexil: x.pim: " + cause;
		expect_refusal({"info", "x.pim"}, 1, line);
		expect_refusal({"dump", "x.pim"}, 1, line);
		expect_refusal({"list", "x.pim"}, 1, line);
		expect_refusal({"load", "x.pim", "Dimming_Level#High"}, 1, line);
		expect_refusal({"merge", "x.pim", "tv.pim", "-o", "out.pim"}, 1, line);
		expect_refusal({"merge", "tv.pim", "x.pim", "-o", "out.pim"}, 1, line);
		EXPECT_EQ(names(), (std::vector<std::string>{"tv.pim", "x.pim"}));
	}
};

TEST_F(ToolImage, InfoShowsVersionsRoomAndCounts)
{
	write("tv.pim", tv_image());
	const Json info = vexil_json({"info", "tv.pim"});
	EXPECT_EQ(info["file"], "tv.pim");
	EXPECT_EQ(info["kind"], "pim");
	EXPECT_EQ(info["bytes"], tv_image().size());
	EXPECT_EQ(info["versions"], Json({{"total", "2.2.117"},
					  {"hardware", "2.1.58"},
					  {"software", "2.0.42"},
					  {"customer", "2.1.6"},
					  {"rules", "0.0.0"},
					  {"code", "2.2.2"}}));
	EXPECT_EQ(info["customerText"], "Example TV 55 UHD, panel lot C");
	EXPECT_EQ(info["chipId"], 0);
	EXPECT_EQ(info["nodeBytes"]["used"], word_at(tv_image(), kNodeFigures));
	EXPECT_EQ(info["nodeBytes"]["capacity"], word_at(tv_image(), kNodeFigures + 4));
	EXPECT_EQ(info["nodes"], Json({{"used", word_at(tv_image(), kNodeFigures) / kNodeBytes},
				       {"limit", 65535}}));

	const Model model(kTv);
	std::map<std::string, size_t> counts;
	std::set<std::string> settings;
	for (const Model::Ip &ip : model.ips) {
		for (const ExpectedConfig &config : ip.configs) {
			++counts[config.kind];
			settings.insert(config.setting);
			for (const ExpectedBlock &block : config.blocks) {
				if (block.file.empty()) {
					++counts["lists"];
					counts["pairs"] += block.pairs.size();
				} else {
					++counts[block.algorithm ? "algorithms" : "tables"];
				}
			}
		}
	}
	const Json &found = info["counts"];
	EXPECT_EQ(found["ips"], model.ips.size());
	EXPECT_EQ(found["settings"], settings.size());
	EXPECT_EQ(found["configurations"], counts["configuration"]);
	EXPECT_EQ(found["presets"], counts["preset"]);
	EXPECT_EQ(found["common"], counts["common"]);
	EXPECT_EQ(found["registerLists"], counts["lists"]);
	EXPECT_EQ(found["pairs"], counts["pairs"]);
	EXPECT_EQ(found["tables"], counts["tables"]);
	EXPECT_EQ(found["algorithms"], counts["algorithms"]);
	EXPECT_EQ(found["files"], model.files.size());
}

TEST_F(ToolImage, InfoAsTextSaysTheSame)
{
	write("tv.pim", tv_image());
	const Json info = vexil_json({"info", "tv.pim"});
	const std::string text = vexil_quiet({"info", "tv.pim"});
	EXPECT_EQ(text.rfind("tv.pim: PIM image, ", 0), 0u);
	EXPECT_NE(text.find("\n  map                   2.2.117\n"), std::string::npos) << text;
	EXPECT_NE(text.find("\n  presets               " + info["counts"]["presets"].dump() + "\n"),
		  std::string::npos)
		<< text;
	EXPECT_NE(text.find(" of 65,535\n"), std::string::npos);
}

TEST_F(ToolImage, ListNamesEveryLabelWithItsPlace)
{
	write("tv.pim", tv_image());
	const Model model(kTv);
	const Json list = vexil_json({"list", "tv.pim"});
	std::vector<const ExpectedConfig *> expected;
	for (const Model::Ip &ip : model.ips) {
		for (const ExpectedConfig &config : ip.configs)
			expected.push_back(&config);
	}
	size_t next = 0;
	for (const Json &ip : list["ips"]) {
		for (const Json &setting : ip["settings"]) {
			for (const Json &config : setting["configurations"]) {
				ASSERT_LT(next, expected.size());
				const ExpectedConfig &wanted = *expected[next++];
				size_t pairs = 0;
				for (const ExpectedBlock &block : wanted.blocks)
					pairs += block.pairs.size();
				EXPECT_EQ(ip["name"], wanted.ip);
				EXPECT_EQ(setting["name"], wanted.setting);
				EXPECT_EQ(setting["level"], wanted.level);
				EXPECT_EQ(config["label"], wanted.label);
				EXPECT_EQ(config["kind"], wanted.kind);
				EXPECT_EQ(config["blocks"], wanted.blocks.size());
				EXPECT_EQ(config["pairs"], pairs);
				EXPECT_EQ(config.value("table", ""), wanted.table);
			}
		}
	}
	EXPECT_EQ(next, expected.size());
	EXPECT_EQ(list["files"].size(), model.files.size());
	for (const Json &file : list["files"])
		EXPECT_EQ(file["bytes"], model.files.at(file["name"]).size());

	const std::string text = vexil_quiet({"list", "tv.pim"});
	for (const ExpectedConfig *config : expected)
		EXPECT_NE(text.find("  " + config->label + " "), std::string::npos)
			<< config->label;
	EXPECT_NE(text.find("\npresets by register table\n"), std::string::npos);
	EXPECT_NE(text.find("\n  PICTURE_MODE_REGS\n"), std::string::npos);
}

TEST_F(ToolImage, DumpShowsEveryReachableNodeOnALine)
{
	write("tv.pim", tv_image());
	const std::vector<std::string> lines = lines_of(vexil_quiet({"dump", "tv.pim"}));
	ASSERT_FALSE(lines.empty());
	EXPECT_EQ(lines[0], "[0] tag=GENERAL");
	EXPECT_EQ(lines[1].rfind("---[", 0), 0u);
	size_t settings = 0;
	for (const std::string &line : lines)
		settings += line.ends_with("PROP:Dimming_Level");
	EXPECT_EQ(settings, 1u);
	EXPECT_EQ(lines.size(), lines_below(tv_image(), 0));
}

TEST_F(ToolImage, MergeKeepsTheBasesVersionsAndText)
{
	write("tv.pim", tv_image());
	build(kCustomer, "customer.pim");
	EXPECT_NE(vexil_json({"info", "customer.pim"})["versions"]["total"],
		  vexil_json({"info", "tv.pim"})["versions"]["total"]);
	vexil_quiet({"merge", "tv.pim", "customer.pim", "-o", "shop.pim"});
	const Json shop = vexil_json({"info", "shop.pim"});
	const Json tv = vexil_json({"info", "tv.pim"});
	EXPECT_EQ(shop["versions"]["total"], tv["versions"]["total"]);
	EXPECT_EQ(shop["customerText"], tv["customerText"]);
	EXPECT_EQ(shop["nodes"]["used"],
		  tv["nodes"]["used"].get<size_t>() +
			  vexil_json({"info", "customer.pim"})["nodes"]["used"].get<size_t>());
}

TEST_F(ToolImage, MergeThatNeedsTooManyNodesIsRefused)
{
	const auto large = [&](const std::string &name) {
		Json members = Json::object();
		for (size_t i = 0; i < 6000; ++i)
			members[numbered("m", i)] = {{"hwaddr", {{"1", i}}}};
		Json document;
		document["PqFuncGroups"][name]["settings"]["Set_" + name]["group"] = members;
		write(name + ".json", document.dump());
		vexil_quiet({"build", "-o", name + ".pim", "--groups", name + ".json"});
	};
	large("one");
	large("two");
	expect_refusal({"merge", "one.pim", "two.pim", "-o", "out.pim"}, 1,
		       "vexil: two.pim over one.pim: both together need more than 65,535 nodes");
	EXPECT_EQ(names(),
		  (std::vector<std::string>{"one.json", "one.pim", "two.json", "two.pim"}));
}

// ---- other files ----

TEST_F(ToolImage, OtherFilesAreNoImages)
{
	expect_refused_by_all("short", "is not a vexil image: 5 bytes are less than a header");
	expect_refused_by_all(std::string(87, 'x'),
			      "is not a vexil image: 87 bytes are less than a header");
	expect_refused_by_all(std::string(5000, '\0'), "is not a vexil image");
	expect_refused_by_all(std::string(5000, '\xFF'), "is not a vexil image");
	expect_refused_by_all(read_text(kTv + "/product.json"), "is not a vexil image");
	expect_refused_by_all(read_text(VEXIL_TOOL).substr(0, 100000), "is not a vexil image");
	expect_refused_by_all("", "is empty");
}

TEST_F(ToolImage, ImagesOfOtherVersionsAreNamed)
{
	const auto versioned = [](uint32_t major, uint32_t minor) {
		std::string image = tv_image();
		put_word(image, kCodeVersion, major | minor << 16);
		return image;
	};
	expect_refused_by_all(versioned(2, 3),
			      "is an image of version 2.3; 2.0 to 2.2 can be read");
	expect_refused_by_all(versioned(3, 0),
			      "is an image of version 3.0; 2.0 to 2.2 can be read");
	expect_refused_by_all(versioned(1, 9),
			      "is an image of version 1.9; 2.0 to 2.2 can be read");
	write("old.pim", versioned(2, 0));
	vexil_quiet({"load", "old.pim", "Dimming_Level#High"});
}

TEST_F(ToolImage, RuleImageIsShownAndNotLoaded)
{
	std::string image = tv_image();
	image[kKind] = 2;
	write("rule.pim", image);
	const Json info = vexil_json({"info", "rule.pim", "--no-verify"});
	EXPECT_EQ(info["kind"], "rule");
	EXPECT_EQ(info["nodes"]["used"], word_at(image, kNodeFigures) / kNodeBytes);
	EXPECT_EQ(info["counts"]["rules"], 0);
	EXPECT_EQ(vexil_quiet({"info", "rule.pim", "--no-verify"}).rfind("rule.pim: rule image, ", 0),
		  0u);

	write("tv.pim", tv_image());
	const std::string line = "vexil: rule.pim: is a rule image; a PIM image is needed";
	// The same nodes; only a map tells its lists of register words from others.
	EXPECT_EQ(lines_of(vexil_quiet({"dump", "rule.pim", "--no-verify"})).size(),
		  lines_of(vexil_quiet({"dump", "tv.pim"})).size());
	EXPECT_EQ(vexil_quiet({"list", "rule.pim", "--no-verify"}),
		  "sources (0; 0 key bits in 0 words)\n\nrules (0)\n");
	expect_refusal({"load", "rule.pim", "a#b", "--no-verify"}, 1, line);
	expect_refusal({"merge", "tv.pim", "rule.pim", "-o", "out.pim", "--no-verify"}, 1, line);
	expect_refusal({"merge", "rule.pim", "tv.pim", "-o", "out.pim", "--no-verify"}, 1, line);
	// A map's nodes are no rules.
	const std::string damage = "vexil: rule.pim: is damaged: a node stands where it cannot be "
				   "(node 2, with node 5, byte 130)";
	expect_refusal({"info", "rule.pim"}, 1, damage);
	expect_refusal({"load", "rule.pim", "a#b"}, 1, damage);
}

TEST_F(ToolImage, ImageOfAnUnknownKindIsNoImage)
{
	for (const char kind : {0, 3}) {
		std::string image = tv_image();
		image[kKind] = kind;
		expect_refused_by_all(image, "is not a vexil image");
	}
}

TEST_F(ToolImage, TruncatedImageIsNamedAsSuch)
{
	const std::string &image = tv_image();
	for (const size_t size :
	     {size_t{88}, size_t{95}, size_t{96}, size_t{4096}, image.size() - 1})
		expect_refused_by_all(image.substr(0, size),
				      "is truncated: " + grouped(size) + " of " +
					      grouped(image.size()) + " bytes are there");
}

TEST_F(ToolImage, TruncationAtAnyLengthIsRefused)
{
	const std::string &image = tv_image();
	for (size_t size = 1; size < image.size(); size += size < 256 ? 7 : 4999) {
		write("cut.pim", image.substr(0, size));
		const ProcessResult result = vexil({"info", "cut.pim"});
		EXPECT_EQ(result.exit_code, 1) << size;
		EXPECT_EQ(lines_of(result.err).size(), 1u) << result.err;
	}
}

TEST_F(ToolImage, TruncatedImageIsFoundEvenWhenItsHeaderAgrees)
{
	std::string image = tv_image().substr(0, tv_image().size() - 1000);
	put_word(image, kImageSize, static_cast<uint32_t>(image.size()));
	write("x.pim", image);
	const ProcessResult result = vexil({"info", "x.pim"});
	EXPECT_EQ(result.exit_code, 1);
	EXPECT_EQ(result.err.rfind("vexil: x.pim: is truncated: ", 0), 0u) << result.err;
}

TEST_F(ToolImage, FiguresThatContradictEachOtherAreDamage)
{
	const auto with = [](size_t at, uint32_t value) {
		std::string image = tv_image();
		put_word(image, at, value);
		return image;
	};
	const size_t data_figures = kNodesBegin + word_at(tv_image(), kNodeFigures + 4);
	expect_refused_by_all(with(kNodeFigures + 4, 0),
			      "is damaged: 59,568 of 0 bytes of nodes are in use");
	expect_refused_by_all(with(kNodeFigures, 65537),
			      "is damaged: 65,537 of 65,536 bytes of nodes are in use");
	expect_refused_by_all(with(kNodeFigures, 8), "is an image without nodes");
	expect_refused_by_all(with(kNodeFigures + 4, 0xFFFFFFFF),
			      "is truncated: it ends before its data");
	expect_refused_by_all(with(data_figures + 4, 0),
			      "is damaged: 65,328 of 0 bytes of data are in use");
	expect_refused_by_all(with(data_figures, 0xFFFFFFFF),
			      "is damaged: 4,294,967,295 of 65,536 bytes of data are in use");
	expect_refused_by_all(with(data_figures + 4, 0xFFFFFFFF),
			      "is truncated: 131,176 of 4,295,032,935 bytes are there");
}

TEST_F(ToolImage, BytesBehindTheImageAreWarnedAbout)
{
	write("x.pim", tv_image() + "tail");
	const ProcessResult result = vexil({"load", "x.pim", "Dimming_Level#High"});
	EXPECT_EQ(result.exit_code, 0);
	EXPECT_EQ(result.err, "vexil: x.pim: warning: 4 bytes behind the image are not read\n");
}

TEST_F(ToolImage, HeaderThatKnowsAnotherSizeIsWarnedAbout)
{
	std::string image = tv_image();
	put_word(image, kImageSize, 7);
	write("x.pim", image);
	expect_refusal({"info", "x.pim"}, 1,
		       "vexil: x.pim: is damaged: the head says another size than the image has (byte 84)");
	const ProcessResult result = vexil({"info", "x.pim", "--no-verify"});
	EXPECT_EQ(result.exit_code, 0);
	EXPECT_EQ(result.err, "vexil: x.pim: warning: its header says 7 bytes, it has 131,176\n");
}

TEST_F(ToolImage, NamesThatCannotBeIndexedAreWarnedAboutAndTheRestWorks)
{
	std::string image = tv_image();
	const size_t name = image.find(std::string("degamma_pq.bin\0", 15));
	ASSERT_NE(name, std::string::npos);
	image[name] = '!';
	write("x.pim", image);
	const std::vector<std::string> warnings = {
		"vexil: x.pim: warning: [ctrie_insert][176]insert wrong string member = 33",
		"vexil: x.pim: warning: some of its names could not be indexed and will not be "
		"found"};
	for (std::vector<std::string> arguments :
	     std::vector<std::vector<std::string>>{{"info", "x.pim"},
						   {"dump", "x.pim"},
						   {"list", "x.pim"},
						   {"load", "x.pim", "Dimming_Level#High"}}) {
		const ProcessResult refused = vexil(arguments);
		EXPECT_EQ(refused.exit_code, 1);
		EXPECT_EQ(refused.err.rfind("vexil: x.pim: is damaged: a name cannot be indexed (node ", 0),
			  0u)
			<< refused.err;
		arguments.emplace_back("--no-verify");
		const ProcessResult result = vexil(arguments);
		EXPECT_EQ(result.exit_code, 0);
		EXPECT_EQ(lines_of(result.err), warnings);
		EXPECT_FALSE(result.out.empty());
	}
}

TEST_F(ToolImage, FileThatIsMissingStopsLoadingInTheLibrarysWords)
{
	std::string image = tv_image();
	// The file's own name, not the references to it, which come later.
	image[image.find(std::string("zone_spread.bin\0", 16))] = 'x';
	write("x.pim", image);
	const ProcessResult result = vexil({"load", "x.pim", "Dimming_Level#High", "--json"});
	EXPECT_EQ(result.exit_code, 1);
	EXPECT_EQ(result.err, "vexil: x.pim: Cannot find file zone_spread.bin\n");
	// What was delivered before is shown.
	const Json output = Json::parse(result.out);
	ExpectedConfig expected = Model(kTv).config("Dimming_Level#High");
	expected.blocks.resize(2);
	expect_load(output["loads"][0], expected);
	EXPECT_EQ(output["trouble"], Json({"Cannot find file zone_spread.bin"}));
}

TEST_F(ToolImage, MissingImagesAreNamed)
{
	write("tv.pim", tv_image());
	const std::string line = "vexil: none.pim: No such file or directory";
	for (const std::string command : {"info", "dump", "list"})
		expect_refusal({command, "none.pim"}, 1, line);
	expect_refusal({"load", "none.pim", "a#b"}, 1, line);
	expect_refusal({"merge", "none.pim", "tv.pim", "-o", "x"}, 1, line);
	expect_refusal({"merge", "tv.pim", "none.pim", "-o", "x"}, 1, line);
	expect_refusal({"info", "."}, 1, "vexil: .: is a folder");
	expect_refusal({"info", "/dev/zero"}, 1, "vexil: /dev/zero: is not a regular file");
}

} // namespace
