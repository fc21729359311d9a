// SPDX-License-Identifier: MIT
#include <set>

#include "tests/tool/fixture.h"
#include "tests/tool/model.h"

namespace {

using namespace vexil_test;

class ToolLoad : public ToolTest {
protected:
	ToolLoad() : tv(write("tv.pim", tv_image())) {}

	/** Loads every configuration of @model in one run and compares each. */
	void expect_all(const std::string &image, const Model &model,
			std::vector<std::string> more = {}) const
	{
		std::vector<std::string> arguments = {"load", image};
		std::vector<const ExpectedConfig *> expected;
		for (const Model::Ip &ip : model.ips) {
			for (const ExpectedConfig &config : ip.configs) {
				arguments.push_back(config.label);
				expected.push_back(&config);
			}
		}
		arguments.insert(arguments.end(), more.begin(), more.end());
		const Json output = vexil_json(arguments);
		ASSERT_EQ(output.at("loads").size(), expected.size());
		for (size_t i = 0; i < expected.size(); ++i) {
			SCOPED_TRACE(expected[i]->label);
			expect_load(output["loads"][i], *expected[i]);
		}
	}

	const std::string tv;
};

TEST_F(ToolLoad, EveryLabelOfTheExampleDeliversWhatItsDocumentsSay)
{
	const Model model(kTv);
	size_t configs = 0;
	for (const Model::Ip &ip : model.ips)
		configs += ip.configs.size();
	EXPECT_GE(configs, 150u);
	expect_all(tv, model);
}

TEST_F(ToolLoad, EveryLabelOfTheCustomerProductDeliversWhatItsDocumentsSay)
{
	expect_all(build(kCustomer, "customer.pim"), Model(kCustomer));
}

TEST_F(ToolLoad, MergedMapDeliversTheCustomersIpsAndFilesAndTheTelevisionsOthers)
{
	build(kCustomer, "customer.pim");
	vexil_quiet({"merge", "tv.pim", "customer.pim", "-o", "shop.pim"});
	Model model(kTv);
	model.merge(Model(kCustomer));
	expect_all("shop.pim", model);
}

TEST_F(ToolLoad, RegisterTablePutsEveryHardwareListIntoAddressForm)
{
	expect_all(tv, Model(kTv).in_address_form(),
		   {"--address", "--reginfo", kTv + "/reginfo.json"});
}

TEST_F(ToolLoad, ProductsOwnRegisterTableServesAddressForm)
{
	const Model model = Model(kTv).in_address_form();
	const Json output = vexil_json({"load", tv, "Sharpness_Gain#commonReg",
					"Dimming_Level#High", "--address", "--product", kTv});
	expect_load(output["loads"][0], model.config("Sharpness_Gain#commonReg"));
	expect_load(output["loads"][1], model.config("Dimming_Level#High"));
}

TEST_F(ToolLoad, SharedRegistersOfAllSettingsComeInTheOrderOfTheDocuments)
{
	const Model model(kTv);
	const Json output = vexil_json({"load", tv, "--common"});
	size_t next = 0;
	for (const Model::Ip &ip : model.ips) {
		for (const ExpectedConfig &config : ip.configs) {
			if (config.kind != "common")
				continue;
			ASSERT_LT(next, output["loads"].size());
			expect_load(output["loads"][next++], config);
		}
	}
	EXPECT_EQ(next, output["loads"].size());
	EXPECT_GT(next, 20u);
}

TEST_F(ToolLoad, RunLoadsSharedRegistersBeforeAllSettings)
{
	build(kTv, "tv.pim");
	std::vector<std::string> arguments = {"run", "tv.pim", "tv.rule", "--rule", "Picture"};
	const Json alone = vexil_json(arguments);
	const std::string text = vexil_quiet(arguments);
	const size_t left_out = alone["settingsWithoutShared"];
	EXPECT_GT(left_out, 10u);
	EXPECT_EQ(lines_of(text).back(), std::to_string(left_out) +
						 " of these settings share registers with other "
						 "members besides; --common loads those, too.");
	arguments.emplace_back("--common");
	const Json with = vexil_json(arguments);
	EXPECT_EQ(with["settingsWithoutShared"], 0);
	EXPECT_EQ(vexil_quiet(arguments).find("share registers"), std::string::npos);
	const Json budget = vexil_json(
		{"run", "tv.pim", "tv.rule", "--rule", "Picture", "--common", "--budget", "0"});
	EXPECT_EQ(budget["budget"]["stopped"], true);

	struct Register {
		uint32_t value;
		std::string writer;
		bool operator==(const Register &) const = default;
	};
	std::map<uint32_t, Register> shared;
	const Json loaded = vexil_json({"load", "tv.pim", "--common"});
	for (const Json &load : loaded["loads"]) {
		for (const Json &pair : load["blocks"][0]["pairs"])
			shared[pair["position"]] = {pair["value"], load["label"]};
	}
	EXPECT_GT(shared.size(), 20u);
	const auto registers_of = [](const Json &output) {
		std::map<uint32_t, Register> found;
		for (const Json &entry : output["hardware"])
			found[entry["position"]] = {entry["value"], entry["writers"].back()};
		return found;
	};
	EXPECT_EQ(registers_of(budget), shared);
	std::map<uint32_t, Register> expected = shared;
	for (const auto &[position, written] : registers_of(alone))
		expected[position] = written;
	EXPECT_EQ(registers_of(with), expected);
}

TEST_F(ToolLoad, BudgetThatEndsAtTheLastSettingLeavesNothingBehindIt)
{
	build(kTv, "tv.pim");
	const std::string text =
		vexil_quiet({"run", "tv.pim", "tv.rule", "--rule", "DynContrastCurve", "--set",
			     "HdrType:Sdr", "--budget", "0"});
	EXPECT_NE(text.find("\nstopped: budget; '"), std::string::npos) << text;
	EXPECT_EQ(text.find("behind"), std::string::npos) << text;
}

TEST_F(ToolLoad, LongNamesAreCutInMessages)
{
	const std::string name(5000, 'x');
	const std::string begin(64, 'x');
	expect_refusal({"load", "tv.pim", name}, 1,
		       "vexil: tv.pim: Cannot find label: " + begin + "...");
	expect_refusal({"load", "tv.pim", "--preset", "T", name}, 1,
		       "vexil: tv.pim: Cannot find preset: " + begin + "...");
	expect_refusal({"load", "tv.pim", "--preset", name}, 1,
		       "vexil: tv.pim: no preset belongs to table '" + begin + "...'");
	expect_refusal({"load", "tv.pim", "a#b", "--budget", name}, 2,
		       "vexil: --budget: Value " + begin +
			       "... not in range 0 to 16777214 (see 'vexil load --help')");
	expect_refusal({name}, 2,
		       "vexil: there is no command '" + begin + "...' (see 'vexil --help')");
	// Cut between characters, not within one.
	expect_refusal(
		{"load", "tv.pim",
		 "x" +
			 [] {
				 std::string text;
				 for (int i = 0; i < 100; ++i)
					 text += "\xC3\xA9";
				 return text;
			 }()},
		1, "vexil: tv.pim: Cannot find label: x" + [] {
			std::string text;
			for (int i = 0; i < 31; ++i)
				text += "\xC3\xA9";
			return text;
		}() + "...");
}

TEST_F(ToolLoad, PresetsOfATableComeWithoutNamingThem)
{
	const Model model(kTv);
	const Json output = vexil_json({"load", tv, "--preset", "PICTURE_MODE_REGS"});
	size_t next = 0;
	for (const Model::Ip &ip : model.ips) {
		for (const ExpectedConfig &config : ip.configs) {
			if (config.table == "PICTURE_MODE_REGS") {
				ASSERT_LT(next, output["loads"].size());
				EXPECT_EQ(output["loads"][next].at("table"), "PICTURE_MODE_REGS");
				expect_load(output["loads"][next++], config);
			}
		}
	}
	EXPECT_EQ(next, output["loads"].size());
	EXPECT_GT(next, 5u);
}

TEST_F(ToolLoad, PresetOfAnotherTableDeliversNothing)
{
	const Json output = vexil_json({"load", tv, "Preset_Picture#Vivid", "Preset_Room#Day",
					"--preset", "ROOM_LIGHT_REGS"});
	const Model model(kTv);
	ASSERT_EQ(output["loads"].size(), 2u);
	EXPECT_EQ(output["loads"][0]["label"], "Preset_Picture#Vivid");
	EXPECT_EQ(output["loads"][0]["blocks"].size(), 0u);
	expect_load(output["loads"][1], model.config("Preset_Room#Day"));

	const std::string text =
		vexil_quiet({"load", tv, "Preset_Picture#Vivid", "--preset", "ROOM_LIGHT_REGS"});
	EXPECT_NE(text.find("\n  nothing: it belongs to table PICTURE_MODE_REGS\n"),
		  std::string::npos)
		<< text;
}

TEST_F(ToolLoad, UnknownTableIsRefusedWithSimilarOnes)
{
	expect_refusal({"load", "tv.pim", "--preset", "PICTURE_MODE_REG"}, 1,
		       "vexil: tv.pim: no preset belongs to table 'PICTURE_MODE_REG'; similar: "
		       "'PICTURE_MODE_REGS'");
}

TEST_F(ToolLoad, PlainLabelIsNoPreset)
{
	const ProcessResult result =
		vexil({"load", "tv.pim", "Dimming_Level#High", "--preset", "PICTURE_MODE_REGS"});
	EXPECT_EQ(result.exit_code, 1);
	EXPECT_EQ(result.out, "");
	EXPECT_EQ(result.err.rfind("vexil: tv.pim: Cannot find preset: Dimming_Level#High", 0), 0u)
		<< result.err;
}

TEST_F(ToolLoad, IdsDeliverTheSameAsTheirLabels)
{
	const Json by_label =
		vexil_json({"load", tv, "Dimming_Level#High", "Preset_Picture#Movie"});
	const Json by_id = vexil_json({"load", tv, "--id", by_label["loads"][0]["id"].dump(),
				       by_label["loads"][1]["id"].dump()});
	EXPECT_EQ(by_label, by_id);
}

TEST_F(ToolLoad, LabelsAreFoundWhateverTheirLetterCase)
{
	const Json output = vexil_json({"load", tv, "dimming_LEVEL#high"});
	expect_load(output["loads"][0], Model(kTv).config("Dimming_Level#High"));
}

TEST_F(ToolLoad, IdThatIsNoConfigurationDeliversNothing)
{
	EXPECT_EQ(vexil_quiet({"load", tv, "--id", "0"}),
		  "id 0: not a configuration\n  nothing\n\n");
}

TEST_F(ToolLoad, IdOutsideTheMapIsRefusedInTheLibrarysWords)
{
	const ProcessResult result = vexil({"load", "tv.pim", "--id", "65534"});
	EXPECT_EQ(result.exit_code, 1);
	EXPECT_EQ(result.err, "vexil: tv.pim: Invalid node id: 65534\n");
}

TEST_F(ToolLoad, UnknownLabelIsRefusedWithThreeSimilarOnes)
{
	expect_refusal({"load", "tv.pim", "Dimming_Level#Hihg"}, 1,
		       "vexil: tv.pim: Cannot find label: Dimming_Level#Hihg; similar: "
		       "'Dimming_Level#High', "
		       "'Dimming_Level#Mid', 'Dimming_Level#Off'");
}

TEST_F(ToolLoad, SettingWithoutMemberIsAnsweredWithItsMembers)
{
	expect_refusal({"load", "tv.pim", "Dimming_Level"}, 1,
		       "vexil: tv.pim: Cannot find label: Dimming_Level; similar: "
		       "'Dimming_Level#commonReg', "
		       "'Dimming_Level#Off', 'Dimming_Level#Low'");
}

TEST_F(ToolLoad, LabelLikeNoOtherGetsNoHint)
{
	expect_refusal({"load", "tv.pim", "qqqqqqqq"}, 1,
		       "vexil: tv.pim: Cannot find label: qqqqqqqq");
}

TEST_F(ToolLoad, UnknownLabelAmongOthersDeliversNothingAtAll)
{
	const ProcessResult result = vexil({"load", "tv.pim", "Dimming_Level#High", "qqqqqqqq"});
	EXPECT_EQ(result.exit_code, 1);
	EXPECT_EQ(result.out, "");
}

TEST_F(ToolLoad, BudgetThatIsEnoughSaysWhatIsLeft)
{
	// 12 of its own and one raw address; software and customer registers are free.
	const Json output = vexil_json({"load", tv, "Dimming_Level#High", "--budget", "20"});
	expect_load(output["loads"][0], Model(kTv).config("Dimming_Level#High"));
	EXPECT_EQ(output["budget"], Json({{"given", 20}, {"remaining", 7}, {"stopped", false}}));
	const std::string text = vexil_quiet({"load", tv, "Dimming_Level#High", "--budget", "20"});
	EXPECT_EQ(lines_of(text).back(), "budget: 7 pairs left");
}

TEST_F(ToolLoad, BudgetEndsBeforeTheBlockThatDoesNotFit)
{
	const Json output = vexil_json({"load", tv, "Dimming_Level#High", "--budget", "12"});
	ASSERT_EQ(output["loads"].size(), 1u);
	ExpectedConfig expected = Model(kTv).config("Dimming_Level#High");
	ASSERT_EQ(expected.blocks.size(), 6u);
	expected.blocks.resize(4); // without the raw address and what follows it
	expect_load(output["loads"][0], expected);
	EXPECT_EQ(output["budget"], Json({{"given", 12}, {"remaining", -1}, {"stopped", true}}));
	const std::string text = vexil_quiet({"load", tv, "Dimming_Level#High", "--budget", "12"});
	EXPECT_EQ(lines_of(text).back(), "stopped: budget; the next block needs 1 pair more");
}

TEST_F(ToolLoad, BudgetIsSharedByAllLabels)
{
	const Json output = vexil_json({"load", tv, "Dimming_Level#High", "Dimming_Level#Low",
					"Dimming_Level#Mid", "--budget", "14"});
	// The second one does not begin, the third is not tried.
	ASSERT_EQ(output["loads"].size(), 2u);
	EXPECT_EQ(output["loads"][1]["blocks"].size(), 0u);
	EXPECT_EQ(output["budget"]["remaining"], -11);
}

TEST_F(ToolLoad, BudgetOfNothingStillDeliversWhatIsFree)
{
	const ExpectedConfig expected = Model(kTv).config("Dimming_Level#commonReg");
	const Json output = vexil_json({"load", tv, "Dimming_Level#commonReg", "--budget", "0"});
	expect_load(output["loads"][0], expected);
	EXPECT_EQ(output["budget"]["remaining"], 0);
}

TEST_F(ToolLoad, NamesOfRegistersStandBesideTheirPositions)
{
	const Model model(kTv);
	std::map<uint32_t, std::string> names;
	for (const auto &[name, position] : model.hardware)
		names[position] = name;
	const Json output = vexil_json({"load", tv, "Dimming_Level#High", "--product", kTv});
	const Json &pairs = output["loads"][0]["blocks"][0]["pairs"];
	ASSERT_EQ(pairs.size(), 12u);
	for (const Json &pair : pairs) {
		const Field &field = model.table.at(pair["position"].get<size_t>());
		EXPECT_EQ(pair["name"], names.at(pair["position"]));
		EXPECT_EQ(pair["domain"], field.domain);
		EXPECT_EQ(std::stoul(pair["address"].get<std::string>(), nullptr, 16),
			  field.address);
		EXPECT_EQ(std::stoul(pair["mask"].get<std::string>(), nullptr, 16),
			  ((1ul << field.width) - 1) << field.lowest_bit);
	}
}

TEST_F(ToolLoad, ListsGiveNamesWithoutAProduct)
{
	const Json output = vexil_json(
		{"load", tv, "Dimming_Level#High", "--hw", kTv + "/registers/hardware.json", "--sw",
		 kTv + "/registers/software.json", "--cus", kTv + "/registers/customer.json"});
	const Json &blocks = output["loads"][0]["blocks"];
	EXPECT_EQ(blocks[0]["pairs"][0]["name"], "LDM_EN");
	EXPECT_FALSE(blocks[0]["pairs"][0].contains("domain"));
	EXPECT_EQ(blocks[1]["pairs"][0]["name"], "SW_LDM_LEVEL");
	EXPECT_EQ(blocks[5]["pairs"][0]["name"], "CUS_ENERGY_LABEL");
}

TEST_F(ToolLoad, WithoutListsPositionsStandAlone)
{
	const Json output = vexil_json({"load", tv, "Dimming_Level#High"});
	EXPECT_FALSE(output["loads"][0]["blocks"][0]["pairs"][0].contains("name"));
}

TEST_F(ToolLoad, FieldsOfOneWordAreNamedTogether)
{
	const Json output =
		vexil_json({"load", tv, "Dimming_Level#High", "--address", "--product", kTv});
	const Json &word = output["loads"][0]["blocks"][0]["pairs"][0];
	EXPECT_EQ(word["name"], "LDM_EN, LDM_COMP_EN, LDM_SPATIAL_SZ");
	EXPECT_EQ(word["domain"], 6);
	EXPECT_EQ(word["address"], "0x0067000");
	EXPECT_EQ(word["mask"], "0x0703");
	EXPECT_EQ(word["hex"], "0x0203");
}

TEST_F(ToolLoad, NegativeValuesOfSoftwareRegistersAreShownAsSuch)
{
	const std::string text = vexil_quiet({"load", tv, "Skin_Tone#Fair", "--product", kTv});
	EXPECT_NE(text.find("  CUS_SKIN_WARMTH  0xFFFFFFFC       -4\n"), std::string::npos) << text;
	const Json pair =
		vexil_json({"load", tv, "Skin_Tone#Fair"})["loads"][0]["blocks"].back()["pairs"][0];
	EXPECT_EQ(pair["value"], 0xFFFFFFFCu);
	EXPECT_EQ(pair["signed"], -4);
	EXPECT_EQ(pair["hex"], "0xFFFFFFFC");
}

TEST_F(ToolLoad, TableShowsTheSixKindsOfBlocksOfTheReadme)
{
	EXPECT_EQ(vexil_quiet({"load", tv, "Dimming_Level#High", "--hw",
			       kTv + "/registers/hardware.json", "--sw",
			       kTv + "/registers/software.json", "--cus",
			       kTv + "/registers/customer.json"}),
		  "Dimming_Level#High  (configuration " +
			  vexil_json({"load", tv, "Dimming_Level#High"})["loads"][0]["id"].dump() +
			  " of LocalDimming, level L1)\n"
			  "  REGISTER_SETTINGS (36): 12 hardware registers\n"
			  "       position  name            value  decimal\n"
			  "            536  LDM_EN          0x1          1\n"
			  "            537  LDM_COMP_EN     0x1          1\n"
			  "            541  LDM_SPATIAL_SZ  0x2          2\n"
			  "            544  LDM_MIN_DUTY    0x20        32\n"
			  "            546  LDM_BOOST       0x48        72\n"
			  "            547  LDM_MIX_MAX     0x2C        44\n"
			  "            548  LDM_RISE        0x60        96\n"
			  "            549  LDM_FALL        0x24        36\n"
			  "            552  LDM_COMP_GAIN   0x90       144\n"
			  "            554  LDM_COMP_LIMIT  0x2C0      704\n"
			  "            555  LDM_HALO_THR    0x20        32\n"
			  "            556  LDM_HALO_GAIN   0xE         14\n"
			  "  VREGISTER_SETTINGS (37): 5 software registers\n"
			  "       number  name                   value  decimal\n"
			  "          384  SW_LDM_LEVEL           0x3          3\n"
			  "          385  SW_LDM_HALO_LIMIT      0x1E        30\n"
			  "          386  SW_LDM_POWER_CAP       0x6E       110\n"
			  "          388  SW_LDM_RAMP_FRAMES     0x4          4\n"
			  "          389  SW_LDM_SUBTITLE_GUARD  0x1          1\n"
			  "  lookup table for dimming_lut: zone_spread.bin, 578 bytes, CRC-32 "
			  "a9fc0743\n"
			  "       08 00 10 00 1f 00 35 00 52 00 74 00 94 00 ab 00 ...\n"
			  "  algorithm file for zone_dimming: zone_dimming.par, 429 bytes, CRC-32 "
			  "0d14c3a3\n"
			  "       23 20 7a 6f 6e 65 20 64 69 6d 6d 69 6e 67 3a 20 ...\n"
			  "  REGISTER_ADDR_SETTINGS (45): 1 register word\n"
			  "       domain  address    mask    value   decimal\n"
			  "       DISP    0x006F060  0x0001  0x0001        1\n"
			  "  CUS_VREGISTER_SETTINGS (55): 1 customer register\n"
			  "       number  name              value  decimal\n"
			  "        32791  CUS_ENERGY_LABEL  0x0          0\n"
			  "  and what all members share, by 'Dimming_Level#commonReg': 9 hardware "
			  "registers\n"
			  "\n");
}

TEST_F(ToolLoad, ImageFileIsNotChangedByAddressForm)
{
	vexil_quiet({"load", tv, "Dimming_Level#High", "--address", "--product", kTv});
	EXPECT_EQ(read_text(tv), tv_image());
}

TEST_F(ToolLoad, TablesOfMoreHandlersThanAMapCanHoldStillArrive)
{
	// Two products with 40 handlers each; a map has room for 64.
	const auto product = [&](const std::string &name) {
		Json groups, member, handlers;
		for (int i = 0; i < 40; ++i) {
			const std::string label = numbered(name + "_", i);
			handlers.push_back(label);
			member[numbered("m", i)] = {{"lut", {{label, name + ".bin"}}}};
		}
		groups["PqFuncGroups"][name + "_ip"]["settings"][name] = {{"group", member}};
		write(name + "/groups.json", groups.dump());
		write(name + "/" + name + ".bin", "table of " + name);
		const Json manifest = {{"handlers", handlers},
				       {"files", {name + ".bin"}},
				       {"functionGroups", {"groups.json"}}};
		write(name + "/product.json", manifest.dump());
		return build(path(name), name + ".pim");
	};
	product("one");
	product("two");
	vexil_quiet({"merge", "one.pim", "two.pim", "-o", "both.pim"});
	const Json output =
		vexil_json({"load", "both.pim", "one#m0", "one#m39", "two#m0", "two#m39"});
	const std::vector<std::string> handlers = {"one_0", "one_39", "two_0", "two_39"};
	for (size_t i = 0; i < handlers.size(); ++i) {
		ASSERT_EQ(output["loads"][i]["blocks"].size(), 1u);
		EXPECT_EQ(output["loads"][i]["blocks"][0]["handler"], handlers[i]);
		EXPECT_EQ(output["loads"][i]["blocks"][0]["bytes"], 12);
	}
}

TEST_F(ToolLoad, FaultyRegisterTablesAreRefusedByEntry)
{
	const auto expect = [&](const std::string &text, const std::string &line) {
		SCOPED_TRACE(text);
		write("table.json", text);
		expect_refusal({"load", "tv.pim", "Dimming_Level#High", "--reginfo", "table.json"},
			       1, "vexil: table.json" + line);
	};
	expect("{}", ":1:1: the document is not an array");
	expect("[]", ": there is no register in it");
	expect("[1]", ": entry 0: is not an object");
	expect(R"([null, {"name": "A", "domain": 16, "addr": 0, "lsb": 0, "width": 1}])",
	       ": entry 1 (A): \"domain\" must be a number from 0 to 15");
	expect(R"([{"name": "A", "domain": 1, "addr": "0x08000000", "lsb": 0, "width": 1}])",
	       ": entry 0 (A): \"addr\" must be a number from 0 to 134217727");
	expect(R"([{"name": "A", "domain": 1, "addr": 1, "lsb": 9, "width": 8}])",
	       ": entry 0 (A): 8 bits from bit 9 do not fit into 16");
	expect(R"([{"domain": 1, "addr": 1, "lsb": 9}])",
	       ": entry 0: \"width\" must be a number from 1 to 16");
}

TEST_F(ToolLoad, ProductWithoutRegisterTableCannotServeAddressForm)
{
	write("product.json", R"({"name": "empty"})");
	expect_refusal(
		{"load", "tv.pim", "Dimming_Level#High", "--address", "--product", "product.json"},
		1, "vexil: product.json: has no \"registerInfo\", which --address needs");
	for (const char *command : {"load", "run"})
		expect_refusal({command, "tv.pim", "a", "--address"}, 2,
			       std::string("vexil: --address needs --reginfo or --product (see "
					   "'vexil ") +
				       command + " --help')");
}

TEST_F(ToolLoad, MissingListIsRefused)
{
	expect_refusal({"load", "tv.pim", "Dimming_Level#High", "--hw", "none.json"}, 1,
		       "vexil: none.json: No such file or directory");
}

} // namespace
