// SPDX-License-Identifier: MIT
//
// One group member into a configuration: the six sections, their lookups, their messages.
#include "tests/support/pim_json.h"

namespace {

using namespace vexil_test;

/** Registers R0 to R3, V0 and V1, C0 and C1; files "file" and "other"; handlers L0 and L1. */
class PimConfig : public PimTest {
protected:
	void SetUp() override
	{
		PimTest::SetUp();
		prepare();
	}
	void prepare()
	{
		add_registers(4);
		ASSERT_TRUE(pim_insert_vregmap(map.get(), "V0", 100));
		ASSERT_TRUE(pim_insert_vregmap(map.get(), "V1", 101));
		ASSERT_TRUE(pim_insert_cus_vregmap(map.get(), "C0", 200));
		ASSERT_TRUE(pim_insert_cus_vregmap(map.get(), "C1", 201));
		ASSERT_TRUE(pim_insert_handler(map.get(), "L0", record_table<0>));
		ASSERT_TRUE(pim_insert_handler(map.get(), "L1", record_table<1>));
		ASSERT_TRUE(pim_insert_alg_handler(map.get(), record_algorithm));
		add_file("file", "bytes");
		add_file("other", "more");
		first = node_count(map.get()) + kNodesBeforeAConfig;
	}

	/** What S#M delivers after its object was @sections, on a fresh map. */
	Lines delivered(const std::string &sections)
	{
		EXPECT_TRUE(map.init());
		prepare();
		EXPECT_TRUE(insert(config(sections)));
		return loaded("S#M");
	}

	static constexpr size_t kNodesBeforeAConfig = 6 + 6 + 1; // IP, setting, the config's holder
	size_t first = 0; // id of the configuration of config()
};

using PimConfigRegisters = PimConfig;
using PimConfigFiles = PimConfig;
using PimConfigAddresses = PimConfig;

std::string message(const char *function, const std::string &text)
{
	return std::string("[VEXIL][PIM][") + function + "] " + text + "\n";
}

// ---- order and shape ----

TEST_F(PimConfig, BlocksStandInFixedOrderWhateverTheDocumentsOrder)
{
	EXPECT_TRUE(insert(config(
		"'cus_swreg': {'C1': 8, 'C0': 9}, 'hwaddr': {'0x1F0': 7}, 'alg': {'E': 'other'}, "
		"'lut': {'L1': 'file', 'L0': 'other'}, 'swreg': {'V1': 5}, 'hwreg': {'R2': 3, "
		"'R1': 4}")));
	ASSERT_EQ(first, 24u);
	EXPECT_EQ(nodes(map.get(), 24), (Lines{
		"24 IP_CONFIG c27 n25",
		"25 PROPERTY c26",
		"26 STRING 'S#M'",
		"27 GENERAL c28 n29",
		"28 REGISTER {2=3 1=4}",
		"29 GENERAL c30 n31",
		"30 VREGISTER {101=5}",
		"31 GENERAL c32 n35",
		"32 FUNCTION_DATA c33 n34",
		"33 STRING 'file'",
		"34 STRING 'L1'",
		"35 GENERAL c36 n39",
		"36 FUNCTION_DATA c37 n38",
		"37 STRING 'other'",
		"38 STRING 'L0'",
		"39 GENERAL c40 n43",
		"40 ALGORITHM_DATA c41 n42",
		"41 STRING 'other'",
		"42 STRING 'E'",
		"43 GENERAL c44 n45",
		"44 ADDR {496=7}",
		"45 GENERAL c46",
		"46 CUS_VREGISTER {201=8 200=9}",
	}));
}

TEST_F(PimConfig, ArrayFormGivesTheSameNodesAsObjectForm)
{
	const auto nodes_of = [&](const std::string &sections) {
		delivered(sections);
		return nodes(map.get());
	};
	EXPECT_EQ(
		nodes_of("'hwreg': [{'R2': 3}, {'R1': 4}], 'swreg': [{'V1': 5}], 'lut': [{'L1': "
			 "'file'}, {'L0': 'other'}], 'alg': [{'E': 'other'}], 'hwaddr': [{'0x1F0': "
			 "7}], 'cus_swreg': [{'C1': 8}, {'C0': 9}]"),
		nodes_of("'hwreg': {'R2': 3, 'R1': 4}, 'swreg': {'V1': 5}, 'lut': {'L1': 'file', "
			 "'L0': 'other'}, 'alg': {'E': 'other'}, 'hwaddr': {'0x1F0': 7}, "
			 "'cus_swreg': {'C1': 8, 'C0': 9}"));
}

TEST_F(PimConfig, OnlyTheFirstMemberOfAnElementIsRead)
{
	EXPECT_EQ(
		delivered(
			"'hwreg': [{'R0': 1, 'R1': 2}, {'R2': 3, 'Unknown': 4}], 'swreg': [{'V0': "
			"5, 'V1': 6}], 'hwaddr': [{'0x4': 7, '0x8': 8}], 'cus_swreg': [{'C0': 9, "
			"'C1': 10}]"),
		(Lines{"REGISTER {0=1 2=3}", "VREGISTER {100=5}", "ADDR {4=7}",
		       "CUS_VREGISTER {200=9}"}));
}

TEST_F(PimConfig, SectionWithoutEntriesStoresNothing)
{
	const size_t nodes_before = first + 3;
	for (const char *key : {"hwreg", "swreg", "lut", "alg", "hwaddr", "cus_swreg"}) {
		for (const char *value : {"{}", "[]", "5", "null", "'text'", "true", "'0x10'"}) {
			SCOPED_TRACE(std::string(key) + ": " + value);
			EXPECT_EQ(delivered(std::string("'") + key + "': " + value), Lines{});
			EXPECT_EQ(node_count(map.get()), nodes_before);
		}
	}
}

TEST_F(PimConfig, SectionWhoseEntriesAreAllBadStoresNothing)
{
	const size_t nodes_before = first + 3;
	EXPECT_EQ(delivered("'hwreg': {'X': 1}, 'swreg': {'X': 1}, 'lut': {'X': 'file'}, 'alg': "
			    "{'X': 1},"
			    "'hwaddr': {'X': 1}, 'cus_swreg': {'X': 1}"),
		  Lines{});
	EXPECT_EQ(node_count(map.get()), nodes_before);
	EXPECT_EQ(take_log(),
		  message("__pim_get_hwregister", "Cannot find hw_register X") +
			  message("__pim_get_swregister", "Cannot find sw_register X") +
			  message("__pim_get_lut", "Cannot find lut file (null)") +
			  message("__pim_get_alg", "Cannot find alg file (null)") +
			  message("__pim_get_hwaddr", "Error hw_addr X") +
			  message("__pim_get_cus_swregister", "Cannot find sw_register X"));
}

TEST_F(PimConfig, OtherKeysAreIgnored)
{
	EXPECT_EQ(delivered("'hwregs': {'X': 1}, 'note': 'text', 'hwreg': {'R0': 1}, 'HW': 5"),
		  (Lines{"REGISTER {0=1}"}));
}

TEST_F(PimConfig, SameConfigurationInAPresetSettingHasTheSameBlocks)
{
	EXPECT_TRUE(
		insert(setting("'1.PresetRegs': 'T', 'group': {'M': {'hwreg': {'R0': 1}, 'swreg': "
			       "{'V0': 2}, 'lut': {'L0': 'file'}, 'cus_swreg': {'C0': 3}}}")));
	EXPECT_EQ(load(map.get(), preset_id("S#M")),
		  (Lines{"REGISTER {0=1}", "VREGISTER {100=2}", "table0 DATA [bytes]",
			 "CUS_VREGISTER {200=3}"}));
}

// ---- hardware, software and customer registers ----

struct RegisterSection {
	const char *key;
	const char *function;
	const char *known;    // two names of the section's own list
	const char *known_too;
	const char *foreign;  // a name of another list
	const char *tag;
	u32 position;
	const char *unknown;
};
constexpr RegisterSection kRegisterSections[] = {
	{"hwreg", "__pim_get_hwregister", "R2", "R3", "V0", "REGISTER", 2,
	 "Cannot find hw_register "},
	{"swreg", "__pim_get_swregister", "V0", "V1", "C0", "VREGISTER", 100,
	 "Cannot find sw_register "},
	{"cus_swreg", "__pim_get_cus_swregister", "C0", "C1", "R0", "CUS_VREGISTER", 200,
	 "Cannot find sw_register "},
};

TEST_F(PimConfigRegisters, AreLookedUpInTheirOwnListOnly)
{
	for (const RegisterSection &row : kRegisterSections) {
		SCOPED_TRACE(row.key);
		const std::string text = std::string("'") + row.key + "': {'" + row.foreign +
					 "': 1, '" + row.known + "': 2, '': 3}";
		const std::string position = std::to_string(row.position);
		EXPECT_EQ(delivered(text), (Lines{std::string(row.tag) + " {" + position + "=2}"}));
		EXPECT_EQ(take_log(),
			  message(row.function, row.unknown + std::string(row.foreign)) +
				  message(row.function, row.unknown));
	}
}

TEST_F(PimConfigRegisters, WithoutANumberAreReportedAndSkipped)
{
	for (const RegisterSection &row : kRegisterSections) {
		for (const char *value : {"'5'", "'text'", "'0xZ'", "'0X10'", "true", "null", "{}",
					  "[5]", "''"}) {
			SCOPED_TRACE(std::string(row.key) + ": " + value);
			const std::string name = row.known;
			EXPECT_EQ(delivered(std::string("'") + row.key + "': {'" + name +
					    "': " + value + ", '" + row.known_too + "': 6}"),
				  (Lines{std::string(row.tag) + " {" +
					 std::to_string(row.position + 1) + "=6}"}));
			EXPECT_EQ(take_log(),
				  message(row.function, "Invalid entry found at " + name));
		}
	}
}

TEST_F(PimConfigRegisters, UnknownNameIsReportedBeforeItsValueIsLookedAt)
{
	EXPECT_EQ(delivered("'hwreg': {'X': 'text'}"), Lines{});
	EXPECT_EQ(take_log(), message("__pim_get_hwregister", "Cannot find hw_register X"));
}

TEST_F(PimConfigRegisters, ElementWithoutAMemberIsReportedWithAnEmptyName)
{
	for (const RegisterSection &row : kRegisterSections) {
		SCOPED_TRACE(row.key);
		EXPECT_EQ(delivered(std::string("'") + row.key + "': [{}, {'" + row.known +
				    "': 4}, 5, []]"),
			  (Lines{std::string(row.tag) + " {" + std::to_string(row.position) +
				 "=4}"}));
		const std::string line = message(row.function, "Invalid entry found at ");
		EXPECT_EQ(take_log(), line + line + line);
	}
}

TEST_F(PimConfigRegisters, KeepTheLowHalfOfTheNumber)
{
	struct {
		const char *value;
		u32 stored;
	} const cases[] = {
		{"0", 0},
		{"-1", 0xFFFFFFFF},
		{"-2147483648", 0x80000000},
		{"2147483648", 0x80000000},
		{"4294967295", 0xFFFFFFFF},
		{"4294967296", 0},
		{"0x123456789", 0x23456789},
		{"'0x1F'", 0x1F},
		{"'0xFFFFFFFF'", 0xFFFFFFFF},
		{"0x1F", 0x1F},
		{"017", 15},
	};
	for (const RegisterSection &row : kRegisterSections) {
		for (const auto &value : cases) {
			SCOPED_TRACE(std::string(row.key) + ": " + value.value);
			EXPECT_EQ(
				delivered(std::string("'") + row.key + "': {'" + row.known +
					  "': " + value.value + "}"),
				(Lines{std::string(row.tag) + " {" + std::to_string(row.position) +
				       "=" + std::to_string(value.stored) + "}"}));
		}
	}
}

TEST_F(PimConfigRegisters, KeepOrderRepetitionsAndNamesInAnyLetterCase)
{
	EXPECT_EQ(
		delivered("'hwreg': [{'R3': 1}, {'R0': 2}, {'r3': 1}, {'R3': 4}], 'swreg': [{'v1': "
			  "1}, {'V0': 2}, {'V1': 1}], 'cus_swreg': [{'c1': 1}, {'C0': 2}, {'C1': 1}]"),
		(Lines{"REGISTER {3=1 0=2 3=1 3=4}", "VREGISTER {101=1 100=2 101=1}",
		       "CUS_VREGISTER {201=1 200=2 201=1}"}));
}

TEST_F(PimConfigRegisters, OfSoftwareMayHaveNegativePositions)
{
	ASSERT_TRUE(pim_insert_vregmap(map.get(), "VNEG", 0xFFFFFFFBu));
	ASSERT_TRUE(pim_insert_cus_vregmap(map.get(), "CNEG", 0x80000001u));
	EXPECT_TRUE(insert(config("'swreg': {'VNEG': 1}, 'cus_swreg': {'CNEG': 2}")));
	EXPECT_EQ(loaded("S#M"),
		  (Lines{"VREGISTER {4294967291=1}", "CUS_VREGISTER {2147483649=2}"}));
}

TEST_F(PimConfigRegisters, WithTheValueThatMeansNoneAreNotFound)
{
	ASSERT_TRUE(pim_insert_vregmap(map.get(), "VNONE", 0x80000000u));
	EXPECT_TRUE(insert(config("'swreg': {'VNONE': 1}")));
	EXPECT_EQ(take_log(), message("__pim_get_swregister", "Cannot find sw_register VNONE"));
}

TEST_F(PimConfigRegisters, OfAPlainGroupAreNeverShared)
{
	EXPECT_TRUE(
		insert(setting("'group': {'M': {'hwreg': {'R0': 1}}, 'N': {'hwreg': {'R0': 1}}}")));
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=1}"}));
	EXPECT_EQ(loaded("S#N"), (Lines{"REGISTER {0=1}"}));
}

TEST_F(PimConfigRegisters, MayBeThousandsInOneList)
{
	std::string entries;
	std::string pairs;
	for (int i = 0; i < 5000; ++i) {
		entries += (i ? ", {'R1': " : "{'R1': ") + std::to_string(i) + "}";
		pairs += (i ? " 1=" : "1=") + std::to_string(i);
	}
	EXPECT_EQ(delivered("'hwreg': [" + entries + "]"), (Lines{"REGISTER {" + pairs + "}"}));
}

// ---- lookup tables ----

TEST_F(PimConfigFiles, TableNeedsAKnownLabelAndAKnownFile)
{
	struct {
		const char *entry;
		const char *shown;
	} const cases[] = {
		{"'L0': 'missing'", "missing"},
		{"'L0': ''", ""},
		{"'L0': 5", "(null)"},
		{"'L0': '0x10'", "(null)"}, // a number
		{"'L0': null", "(null)"},
		{"'L0': {}", "(null)"},
		{"'L0': ['file']", "(null)"},
		{"'X': 'file'", "(null)"}, // the label is unknown: the file is not shown
		{"'X': 'missing'", "(null)"},
		{"'X': 5", "(null)"},
		{"'': 'file'", "(null)"},
	};
	for (const auto &row : cases) {
		SCOPED_TRACE(row.entry);
		EXPECT_EQ(delivered(std::string("'lut': {") + row.entry + ", 'L1': 'file'}"),
			  (Lines{"table1 DATA [bytes]"}));
		EXPECT_EQ(take_log(), message("__pim_get_lut",
					      "Cannot find lut file " + std::string(row.shown)));
	}
}

TEST_F(PimConfigFiles, TableElementWithoutAMemberIsReportedAndSkipped)
{
	EXPECT_EQ(delivered("'lut': [{}, 5, {'L0': 'file'}]"), (Lines{"table0 DATA [bytes]"}));
	const std::string line = message("__pim_get_lut", "Cannot find lut file (null)");
	EXPECT_EQ(take_log(), line + line);
}

TEST_F(PimConfigFiles, TableKeepsTheSpellingOfTheDocument)
{
	EXPECT_EQ(delivered("'lut': {'l0': 'FILE'}"), (Lines{"table0 DATA [bytes]"}));
	EXPECT_EQ(node(first + 5), std::to_string(first + 5) + " STRING 'FILE'");
	EXPECT_EQ(node(first + 6), std::to_string(first + 6) + " STRING 'l0'");
}

TEST_F(PimConfigFiles, TableNamedLikeAHexadecimalNumberCannotBeReferredTo)
{
	add_file("0x10", "x");
	EXPECT_TRUE(insert(config("'lut': {'L0': '0x10'}, 'alg': {'E': '0x10'}")));
	EXPECT_EQ(take_log(), message("__pim_get_lut", "Cannot find lut file (null)") +
				      message("__pim_get_alg", "Cannot find alg file (null)"));
}

TEST_F(PimConfigFiles, SameTableMayBeBoundRepeatedly)
{
	EXPECT_EQ(delivered("'lut': [{'L0': 'file'}, {'L0': 'other'}, {'L1': 'file'}]"),
		  (Lines{"table0 DATA [bytes]", "table0 DATA [more]", "table1 DATA [bytes]"}));
}

TEST_F(PimConfigFiles, LabelThatTookAPlaceWithoutANameIsUnknown)
{
	EXPECT_FALSE(pim_insert_handler(map.get(), "L-2", record_table<2>));
	take_log();
	EXPECT_TRUE(insert(config("'lut': {'L-2': 'file'}")));
	EXPECT_EQ(take_log(), message("__pim_get_lut", "Cannot find lut file (null)"));
}

TEST_F(PimConfigFiles, HandlerMayBeNullWhileTheMapIsBuilt)
{
	ASSERT_TRUE(pim_insert_handler(map.get(), "LN", nullptr));
	EXPECT_TRUE(insert(config("'lut': {'LN': 'file'}")));
	ASSERT_TRUE(pim_insert_handler(map.get(), "LN", record_table<7>));
	EXPECT_EQ(loaded("S#M"), (Lines{"table7 DATA [bytes]"}));
}

// ---- algorithm files ----

TEST_F(PimConfigFiles, AlgorithmNeedsAKnownFileAndAnyName)
{
	struct {
		const char *entry;
		const char *shown;
	} const cases[] = {
		{"'E': 'missing'", "missing"}, {"'E': 5", "(null)"},  {"'E': '0x1'", "(null)"},
		{"'E': null", "(null)"},       {"'E': []", "(null)"}, {"'E': ''", ""},
	};
	for (const auto &row : cases) {
		SCOPED_TRACE(row.entry);
		EXPECT_EQ(
			delivered(std::string("'alg': {") + row.entry + ", 'Any-name+ 1': 'file'}"),
			(Lines{"algorithm DATA [bytes] 'Any-name+ 1'"}));
		EXPECT_EQ(take_log(), message("__pim_get_alg",
					      "Cannot find alg file " + std::string(row.shown)));
	}
}

TEST_F(PimConfigFiles, AlgorithmElementWithoutAMemberIsReportedAndSkipped)
{
	EXPECT_EQ(delivered("'alg': [{}, {'E': 'file'}, 'file']"),
		  (Lines{"algorithm DATA [bytes] 'E'"}));
	const std::string line = message("__pim_get_alg", "Cannot find alg file (null)");
	EXPECT_EQ(take_log(), line + line);
}

TEST_F(PimConfigFiles, AlgorithmNeedsNoHandlerWhileTheMapIsBuilt)
{
	ASSERT_TRUE(pim_insert_alg_handler(map.get(), nullptr));
	EXPECT_TRUE(insert(config("'alg': {'': 'file'}")));
	ASSERT_TRUE(pim_insert_alg_handler(map.get(), record_algorithm));
	EXPECT_EQ(loaded("S#M"), (Lines{"algorithm DATA [bytes] ''"}));
}

// ---- raw addresses ----

TEST_F(PimConfigAddresses, AreReadInTheBaseThatTheirPrefixNames)
{
	struct {
		const char *key;
		u32 address;
	} const cases[] = {
		{"0x1F0", 496},
		{"0X1f0", 496},
		{"496", 496},
		{"+496", 496},
		{"0760", 496},
		{"0x30001234", 0x30001234},
		{"0xFFFFFFFF", 0xFFFFFFFF},
		{"0x100000001", 1},  // the low half
		{"0x100000000", 0},  // not zero as it was parsed
		{"18446744073709551615", 0xFFFFFFFF},
	};
	for (const auto &row : cases)
		EXPECT_EQ(delivered(std::string("'hwaddr': {'") + row.key + "': 5}"),
			  (Lines{"ADDR {" + std::to_string(row.address) + "=5}"}))
			<< row.key;
}

TEST_F(PimConfigAddresses, OfZeroOrWithoutANumberAreReportedAndSkipped)
{
	for (const char *key : {"0", "0x0", "00", "", "R0", "0x", "08", "1.5", "-1", " 1", "1 ",
				"1F", "18446744073709551616", "0x1G"}) {
		SCOPED_TRACE(key);
		EXPECT_EQ(delivered(std::string("'hwaddr': {'") + key + "': 5, '4': 6}"),
			  (Lines{"ADDR {4=6}"}));
		EXPECT_EQ(take_log(),
			  message("__pim_get_hwaddr", "Error hw_addr " + std::string(key)));
	}
}

TEST_F(PimConfigAddresses, ElementWithoutAMemberIsReportedWithAnEmptyName)
{
	EXPECT_EQ(delivered("'hwaddr': [{}, {'4': 6}, 7]"), (Lines{"ADDR {4=6}"}));
	const std::string line = message("__pim_get_hwaddr", "Error hw_addr ");
	EXPECT_EQ(take_log(), line + line);
}

TEST_F(PimConfigAddresses, TakeTheIntegerOfAnyValue)
{
	struct {
		const char *value;
		u32 stored;
	} const cases[] = {
		{"7", 7},	{"-1", 0xFFFFFFFF}, {"0x1FFFFFFFF", 0xFFFFFFFF}, {"'0x1F'", 0x1F},
		{"'text'", 0},	{"'12'", 0},	    {"true", 0},		 {"null", 0},
		{"{'a': 1}", 0}, {"[1]", 0},
	};
	for (const auto &row : cases)
		EXPECT_EQ(delivered(std::string("'hwaddr': {'4': ") + row.value + "}"),
			  (Lines{"ADDR {4=" + std::to_string(row.stored) + "}"}))
			<< row.value;
}

// ---- the conversion by itself ----

TEST_F(PimConfig, PairsOfTheCommonListAreLeftOutOfHardwareRegistersOnly)
{
	CommonList common({{0, 1}, {100, 1}});
	const Json member = json("{'hwreg': {'R0': 1, 'R1': 1, 'r0': 2}, 'swreg': {'V0': 1}}");
	ASSERT_TRUE(member);
	const node_d made = __pim_get_ipconfig(map.get(), member.get(), "any label", common.get(),
					       node_d{0xFFFF, nullptr}, true, false);
	EXPECT_EQ(load(map.get(), made.id), (Lines{"REGISTER {1=1 0=2}", "VREGISTER {100=1}"}));
	EXPECT_EQ(node(made.id + 2u), std::to_string(made.id + 2) + " STRING 'any label'");
	EXPECT_EQ(setting_id("any label"), VEXIL_NO_ID); // whoever called it enters the label
}

} // namespace
