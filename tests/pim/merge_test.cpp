// SPDX-License-Identifier: MIT
//
// Export of a map, and a sub map over a base map.
#include "tests/support/pim_json.h"

#include <climits>

namespace {

using namespace vexil_test;

constexpr size_t kMaxNodes = 65535;

using PimExport = PimTest;

/** A base and a sub map, and a third that receives the result in @map. */
class PimMerge : public PimTest {
protected:
	void SetUp() override
	{
		PimTest::SetUp();
		begin(base);
		begin(sub);
	}

	/** An empty map with registers R0 to R7. */
	static void begin(Map &to)
	{
		ASSERT_TRUE(to.init());
		for (u32 i = 0; i < 8; ++i)
			ASSERT_TRUE(
				pim_insert_regmap(to.get(), ("R" + std::to_string(i)).c_str(), i));
	}
	static void add(Map &to, const std::string &objects)
	{
		ASSERT_TRUE(vexil_test::insert(to.get(), groups(objects)));
	}
	static void add_file(Map &to, const std::string &name, const std::string &bytes)
	{
		ASSERT_TRUE(pim_insert_file(to.get(), name.c_str(), bytes.data(),
					    static_cast<u32>(bytes.size())));
	}
	bool merge() { return pim_merge(map.get(), base.get(), sub.get()); }

	/** Names of the merged root's holders in order; files as "file name". */
	Lines listed()
	{
		Lines names;
		for (u16 id = extmem_get_child(node_at(map.get(), 0)).id; id != 0xFFFF;
		     id = extmem_get_next(node_at(map.get(), id)).id) {
			const node_d held = extmem_get_child(node_at(map.get(), id));
			const node_d property = extmem_get_next(held);
			const std::string text =
				node_text(map.get(), extmem_get_child(property).id);
			const size_t quote = text.find('\'');
			names.push_back((extmem_fetch_tag(held) == EXTMEM_TAG_FILE ? "file " : "") +
					text.substr(quote + 1, text.size() - quote - 2));
			if (names.size() > 1000)
				return names;
		}
		return names;
	}

	Map base;
	Map sub;
};

using PimMergeArguments = PimMerge;
using PimMergeStore = PimMerge;

/** IP @name with setting @setting and member "M" that writes @value to @reg. */
std::string ip(const std::string &name, const std::string &setting, const std::string &reg,
	       int value, const std::string &level = "L1")
{
	return "'" + name + "': {'settings': {'" + setting + "': {'1.PQlevel': '" + level +
	       "', 'group': {'M': {'hwreg': {'" + reg + "': " + std::to_string(value) + "}}}}}}";
}

std::string version(int major, int minor, int revision)
{
	return "{'MajorVersion': " + std::to_string(major) + ", 'MinorVersion': " +
	       std::to_string(minor) + ", 'Revision': " + std::to_string(revision) + "}";
}

// ---- export ----

TEST_F(PimExport, SizeIsThatOfBothBuffersAndTheFixedParts)
{
	EXPECT_EQ(pim_get_export_size(nullptr), 0u);
	EXPECT_EQ(pim_get_export_size(map.get()), 1024u + 1024 + 104);
	add_file("file", std::string(1024, 'x'));
	EXPECT_EQ(pim_get_export_size(map.get()), 1024u + 2048 + 104);
	while (node_count(map.get()) < 65)
		extmem_request_node(&map->builder, EXTMEM_TAG_UNSPECIFIED);
	EXPECT_EQ(pim_get_export_size(map.get()), 2048u + 2048 + 104);
}

TEST_F(PimExport, WritesTheHeaderFromTheMap)
{
	map->total_version = {2, 1, 0x10000};
	map->hwreg_json_version = {3, 4, 5};
	map->swreg_json_version = {6, 7, 8};
	map->cus_swreg_json_version = {9, 10, 11};
	std::memcpy(map->cus_version, "panel lot C", 11);
	extmem_buffer_header &own = map->builder.header;
	own.rl_json_version = {1, 1, 1};
	own.codeVersion = {7, 7, 7};
	own.binType = 2;
	own.chipID = 0x5A5A;
	own.binSize = 1;

	const ImageBytes image = image_of(map.get());
	const extmem_buffer_header header = image.header();
	EXPECT_EQ(header.total_version, (vexil_version{2, 1, 0x10000}));
	EXPECT_EQ(header.rl_json_version, (vexil_version{0, 0, 0}));
	EXPECT_EQ(header.hw_json_version, (vexil_version{3, 4, 5}));
	EXPECT_EQ(header.sw_json_version, (vexil_version{6, 7, 8}));
	EXPECT_EQ(header.cus_sw_json_version, (vexil_version{9, 10, 11}));
	EXPECT_EQ(std::string(header.cus_version, 32), "panel lot C" + std::string(21, '\0'));
	EXPECT_EQ(header.codeVersion, (vexil_version{2, 2, 2}));
	EXPECT_EQ(header.binType, 1);
	EXPECT_EQ(header.chipID, 0x5A5A); // as the store holds it
	EXPECT_EQ(header.binSize, 2152u);
	EXPECT_EQ(std::memcmp(&own, &header, sizeof header), 0);
}

TEST_F(PimExport, FreshMapHasNothingInItsHeaderButWhatIsWritten)
{
	const ImageBytes image = image_of(map.get());
	std::string expected(88, '\0');
	expected[72] = 2; // codeVersion 2.2.2
	expected[74] = 2;
	expected[76] = 2;
	expected[80] = 1; // binType
	expected[84] = 0x68; // binSize 2152
	expected[85] = 0x08;
	EXPECT_EQ(std::string(image.bytes().begin(), image.bytes().begin() + 88), expected);
	EXPECT_EQ(image.nodes_used(), 16u);
	EXPECT_EQ(image.node_capacity(), 1024u);
	EXPECT_EQ(image.data_used(), 0u);
	EXPECT_EQ(image.data_capacity(), 1024u);
	EXPECT_EQ(std::count(image.bytes().begin() + 112, image.bytes().begin() + 96 + 1024, 0),
		  1024 - 16);
	EXPECT_EQ(std::count(image.bytes().begin() + 104 + 1024, image.bytes().end(), 0), 1024);
}

TEST_F(PimExport, NullMapOrBufferWritesNothing)
{
	char byte = 7;
	EXPECT_EQ(pim_export(nullptr, &byte), 0u);
	EXPECT_EQ(pim_export(nullptr, nullptr), 0u);
	EXPECT_EQ(byte, 7);
	map->total_version = {2, 1, 9};
	EXPECT_EQ(pim_export(map.get(), nullptr), 0u);
	EXPECT_EQ(map->builder.err_code, EXTMEM_NOMEM);
	EXPECT_EQ(map->builder.header.total_version,
		  (vexil_version{2, 1, 9})); // filled in all the same
	EXPECT_EQ(map->builder.header.codeVersion, (vexil_version{2, 2, 2}));
	EXPECT_EQ(map->builder.header.binType, 1);
}

TEST_F(PimExport, AdoptedMapHasTheSameContentAndAllVersionsButTheCustomerLists)
{
	add_registers(2);
	add_file("file", "bytes");
	ASSERT_TRUE(insert("{'VexilVersion': {'#version': {'MajorVersion': 2, 'MinorVersion': 2, "
			   "'Revision': 9, 'Note': 'lot C'}}, 'PqFuncGroups': {" +
			   ip("A", "S", "R1", 5) + "}}"));
	map->hwreg_json_version = {1, 2, 3};
	map->swreg_json_version = {4, 5, 6};
	map->cus_swreg_json_version = {7, 8, 9};
	const Lines before = nodes(map.get());
	ASSERT_TRUE(adopt_image(image_of(map.get())));
	EXPECT_EQ(nodes(map.get()), before);
	EXPECT_EQ(map->total_version, (vexil_version{2, 2, 9}));
	EXPECT_EQ(map->hwreg_json_version, (vexil_version{1, 2, 3}));
	EXPECT_EQ(map->swreg_json_version, (vexil_version{4, 5, 6}));
	EXPECT_EQ(map->cus_swreg_json_version, (vexil_version{0, 0, 0}));
	EXPECT_STREQ(map->cus_version, "lot C");
	EXPECT_EQ(pim_get_export_size(map.get()), image.size());
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {1=5}"}));
}

TEST_F(PimExport, OfAnAdoptedMapGivesTheSameBytes)
{
	add_registers(2);
	add_file("file", "bytes");
	ASSERT_TRUE(insert(groups(ip("A", "S", "R1", 5))));
	map->total_version = {2, 1, 3};
	map->builder.header.chipID = 77;
	const ImageBytes first = image_of(map.get());
	EXPECT_EQ(image_of(map.get()).bytes(), first.bytes());
	ASSERT_TRUE(adopt_image(first));
	EXPECT_EQ(image_of(map.get()).bytes(), first.bytes());
}

// ---- merge: what the result holds ----

TEST_F(PimMerge, ReplacesTheContentOfAnIpAndLinksNewOnes)
{
	add(base, ip("B", "S", "R0", 1));
	add(sub, ip("b", "S", "R0", 2) + ", " + ip("A", "T", "R1", 3));
	EXPECT_TRUE(merge());
	EXPECT_EQ(nodes(map.get()), (Lines{
		"0 GENERAL c1",
		"1 GENERAL c2 n38",
		"2 IP c26 n3", // the sub's settings
		"3 PROPERTY c4 n5",
		"4 STRING 'B'",
		"5 VERSION c6",
		"6 VERSION_HOLDER 0.0.0",
		"7 GENERAL c8", // from here to 18: the base's settings, which nothing reaches
		"8 IP_SETTING c13 n9",
		"9 PROPERTY c10 n11",
		"10 STRING 'S'",
		"11 PQLEVEL c12",
		"12 LEVEL 2",
		"13 GENERAL c14",
		"14 IP_CONFIG c17 n15",
		"15 PROPERTY c16",
		"16 STRING 'S#M'",
		"17 GENERAL c18",
		"18 REGISTER {0=1}",
		"19 GENERAL c20", // the sub's root
		"20 GENERAL c21 n38",
		"21 IP c26 n22",
		"22 PROPERTY c23 n24",
		"23 STRING 'b'",
		"24 VERSION c25",
		"25 VERSION_HOLDER 0.0.0",
		"26 GENERAL c27",
		"27 IP_SETTING c32 n28",
		"28 PROPERTY c29 n30",
		"29 STRING 'S'",
		"30 PQLEVEL c31",
		"31 LEVEL 2",
		"32 GENERAL c33",
		"33 IP_CONFIG c36 n34",
		"34 PROPERTY c35",
		"35 STRING 'S#M'",
		"36 GENERAL c37",
		"37 REGISTER {0=2}",
		"38 GENERAL c39",
		"39 IP c44 n40",
		"40 PROPERTY c41 n42",
		"41 STRING 'A'",
		"42 VERSION c43",
		"43 VERSION_HOLDER 0.0.0",
		"44 GENERAL c45",
		"45 IP_SETTING c50 n46",
		"46 PROPERTY c47 n48",
		"47 STRING 'T'",
		"48 PQLEVEL c49",
		"49 LEVEL 2",
		"50 GENERAL c51",
		"51 IP_CONFIG c54 n52",
		"52 PROPERTY c53",
		"53 STRING 'T#M'",
		"54 GENERAL c55",
		"55 REGISTER {1=3}",
	}));
	EXPECT_EQ(map->max_node_index, 18);
	EXPECT_EQ(ctrie_find(&map->ip_map, "B"), 2);
	EXPECT_EQ(ctrie_find(&map->ip_map, "A"), 39);
	EXPECT_EQ(setting_id("S#M"), 33);
	EXPECT_EQ(setting_id("T#M"), 51);
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=2}"}));
	EXPECT_EQ(loaded("T#M"), (Lines{"REGISTER {1=3}"}));
}

TEST_F(PimMerge, ListsTheBaseInItsOrderThenWhatIsNew)
{
	add(base, ip("A", "SA", "R0", 1) + ", " + ip("B", "SB", "R0", 2) + ", " +
			  ip("C", "SC", "R0", 3));
	add(sub, ip("X", "SX", "R1", 4) + ", " + ip("B", "SB", "R1", 5) + ", " +
			 ip("Y", "SY", "R1", 6) + ", " + ip("A", "SA2", "R1", 7));
	EXPECT_TRUE(merge());
	EXPECT_EQ(listed(), (Lines{"A", "B", "C", "X", "Y"}));
	EXPECT_EQ(loaded("SB#M"), (Lines{"REGISTER {1=5}"}));
	EXPECT_EQ(loaded("SC#M"), (Lines{"REGISTER {0=3}"}));
	EXPECT_EQ(loaded("SX#M"), (Lines{"REGISTER {1=4}"}));
	EXPECT_EQ(loaded("SY#M"), (Lines{"REGISTER {1=6}"}));
	EXPECT_EQ(loaded("SA2#M"), (Lines{"REGISTER {1=7}"}));
	EXPECT_EQ(setting_id("SA#M"), VEXIL_NO_ID); // the replaced IP's labels go with it
}

TEST_F(PimMerge, ReplacementIsWholeNotSettingBySetting)
{
	add(base,
	    "'A': {'settings': {'S': {'group': {'M': {'hwreg': {'R0': 1}}, 'N': {'hwreg': {'R0': "
	    "2}}}}, 'T': {'group': {'M': {}}}, 'P': {'1.PresetRegs': 'X', 'group': {'M': {}}}}}");
	add(sub, ip("A", "S", "R7", 9));
	EXPECT_TRUE(merge());
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {7=9}"}));
	for (const char *label : {"S#N", "T#M"})
		EXPECT_EQ(setting_id(label), VEXIL_NO_ID) << label;
	EXPECT_EQ(preset_id("P#M"), VEXIL_NO_ID);
}

TEST_F(PimMerge, NameAndVersionOfAReplacedIpAreTheBases)
{
	add(base, "'Name': {'#version': " + version(2, 0, 1) + ", 'settings': {'S': {}}}");
	add(sub, "'NAME': {'#version': " + version(2, 1, 9) + ", 'settings': {'S': {}}}");
	EXPECT_TRUE(merge());
	vexil_version read{};
	EXPECT_TRUE(pim_get_pim_version(map.get(), &read, "Name"));
	EXPECT_EQ(read, (vexil_version{2, 0, 1}));
	EXPECT_FALSE(pim_get_pim_version(map.get(), &read, "NAME"));
}

TEST_F(PimMerge, IpWithoutSettingsEmptiesTheOneThatItReplaces)
{
	add(base, ip("A", "S", "R0", 1) + ", " + ip("B", "T", "R0", 2));
	add(sub, "'A': {'settings': {}}");
	EXPECT_TRUE(merge());
	EXPECT_EQ(node(2), "2 IP n3");
	EXPECT_EQ(listed(), (Lines{"A", "B"}));
	EXPECT_EQ(setting_id("S#M"), VEXIL_NO_ID);
	EXPECT_EQ(loaded("T#M"), (Lines{"REGISTER {0=2}"}));
}

TEST_F(PimMerge, IpWithSettingsFillsAnEmptyOne)
{
	add(base, "'A': {'settings': {}}");
	add(sub, ip("A", "S", "R0", 1));
	EXPECT_TRUE(merge());
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=1}"}));
}

TEST_F(PimMerge, FilesAreReplacedAndAddedByName)
{
	for (Map *each : {&base, &sub}) {
		ASSERT_TRUE(pim_insert_handler(each->get(), "L", record_table<0>));
		ASSERT_TRUE(pim_insert_alg_handler(each->get(), record_algorithm));
	}
	add_file(base, "Table", "old");
	add_file(base, "kept", "kept");
	add(base, "'A': {'settings': {'S': {'group': {'M': {'lut': {'L': 'Table'}, 'alg': {'E': "
		  "'kept'}}}}}}");
	add_file(sub, "TABLE", "replaced");
	add_file(sub, "more", "more");
	add(sub, "'B': {'settings': {'T': {'group': {'M': {'lut': {'L': 'more'}}}}}}");
	EXPECT_TRUE(merge());
	EXPECT_EQ(listed(), (Lines{"file Table", "file kept", "A", "file more", "B"}));
	ASSERT_TRUE(pim_insert_handler(map.get(), "L", record_table<5>));
	EXPECT_EQ(loaded("S#M"), (Lines{"table5 DATA [replaced]", "algorithm DATA [kept] 'E'"}));
	EXPECT_EQ(loaded("T#M"), (Lines{"table5 DATA [more]"}));
	EXPECT_EQ(ctrie_find(&map->file_map, "table"), 2); // still the base's node
}

TEST_F(PimMerge, FileAndIpOfOneNameDoNotMeet)
{
	add_file(base, "Same", "file");
	add(sub, ip("Same", "S", "R0", 1));
	EXPECT_TRUE(merge());
	EXPECT_EQ(listed(), (Lines{"file Same", "Same"}));
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=1}"}));
}

TEST_F(PimMerge, LabelInBothMapsIsTheBasesUnlessItsIpIsReplaced)
{
	add(base, ip("A", "S", "R0", 1));
	add(sub, ip("B", "S", "R1", 2));
	EXPECT_TRUE(merge());
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=1}"}));
}

TEST_F(PimMerge, PresetsAndCommonRegistersComeAlong)
{
	add(base,
	    "'A': {'settings': {'P': {'1.PresetRegs': 'TABLE', 'group': {'M': {'hwreg': {'R0': "
	    "1}}}}, 'C': {'commonReg': true, 'group': {'M': {'hwreg': {'R1': 1}}}}}}, 'B': "
	    "{'settings': {'Q': {'1.PresetRegs': 'TABLE', 'group': {'M': {'hwreg': {'R2': 1}}}}}}");
	add(sub,
	    "'A': {'settings': {'P': {'1.PresetRegs': 'TABLE', 'group': {'M': {'hwreg': {'R0': "
	    "2}}}}, 'C': {'commonReg': true, 'group': {'M': {'hwreg': {'R1': 2}}}}}}");
	EXPECT_TRUE(merge());
	std::vector<u16> ids = {preset_id("P#M"), preset_id("Q#M")};
	Lines lines;
	pim_load_preset(map.get(), ids.data(), ids.size(), "TABLE", record_block, &lines);
	pim_load_common_reg_setting(map.get(), record_block, &lines);
	EXPECT_EQ(lines, (Lines{"REGISTER {0=2}", "REGISTER {2=1}", "RIU {1=2}"}));
	char *label = nullptr;
	pim_get_setting(map.get(), ids[0], &label);
	EXPECT_STREQ(label, "P#M");
}

TEST_F(PimMerge, EndsTheListWhenTheSubsLastHolderIsNotTaken)
{
	add(base, ip("A", "S", "R0", 1));
	add(sub, ip("New", "T", "R0", 2) + ", " + ip("A", "S", "R0", 3));
	EXPECT_TRUE(merge());
	EXPECT_EQ(listed(), (Lines{"A", "New"}));
}

TEST_F(PimMerge, EmptySubGivesACopyOfTheBase)
{
	add_file(base, "file", "bytes");
	add(base, ip("A", "S", "R0", 1) + ", 'F': {" + ip("B", "T", "R1", 2) + "}");
	EXPECT_TRUE(merge());
	Lines expected = nodes(base.get());
	expected.push_back(std::to_string(expected.size()) + " GENERAL"); // the sub's root
	EXPECT_EQ(nodes(map.get()), expected);
	EXPECT_EQ(listed(), (Lines{"file file", "A", "F", "B"}));
	EXPECT_EQ(loaded("T#M"), (Lines{"REGISTER {1=2}"}));
}

TEST_F(PimMerge, SubWithoutAnyNodeGivesTheBaseAlone)
{
	add(base, ip("A", "S", "R0", 1));
	extmem_builder_destroy(&sub->builder);
	ASSERT_TRUE(extmem_builder_init(&sub->builder, nullptr, 0));
	EXPECT_TRUE(merge());
	EXPECT_EQ(nodes(map.get()), nodes(base.get()));
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=1}"}));
}

TEST_F(PimMerge, BaseWithoutChildrenGetsTheSubs)
{
	add(sub, ip("A", "S", "R0", 1) + ", " + ip("B", "T", "R1", 2));
	EXPECT_TRUE(merge());
	EXPECT_EQ(map->max_node_index, 0);
	EXPECT_EQ(node(0), "0 GENERAL c2");
	EXPECT_EQ(listed(), (Lines{"A", "B"}));
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=1}"}));
	EXPECT_EQ(loaded("T#M"), (Lines{"REGISTER {1=2}"}));
}

TEST_F(PimMerge, TwoEmptyMapsGiveAnEmptyMap)
{
	EXPECT_TRUE(merge());
	EXPECT_EQ(nodes(map.get()), (Lines{"0 GENERAL", "1 GENERAL"}));
	EXPECT_TRUE(vexil_test::insert(map.get(), groups("'A': {'settings': {}}")));
	EXPECT_EQ(listed(), (Lines{"A"}));
}

TEST_F(PimMerge, NameThatTheSubHasTwiceIsAddedTwiceAndIndexedOnce)
{
	add(sub, ip("A", "S", "R0", 1) + ", " + ip("a", "T", "R1", 2));
	EXPECT_TRUE(merge());
	EXPECT_EQ(listed(), (Lines{"A", "a"}));
	EXPECT_EQ(ctrie_find(&map->ip_map, "A"), 3);
	EXPECT_EQ(loaded("T#M"), (Lines{"REGISTER {1=2}"}));
}

TEST_F(PimMerge, HoldersOfOtherThingsInTheSubAreSkipped)
{
	add(base, ip("A", "S", "R0", 1));
	PimImage plan;
	plan.hold(0, plan.add(EXTMEM_TAG_RULE));
	plan.append(0, plan.add(EXTMEM_TAG_GENERAL)); // holds nothing
	plan.list(plan.config(plan.setting(plan.ip("B"), "T", 5), "T#M"), {{3, 4}});
	plan.hold(0, plan.add(EXTMEM_TAG_SOURCE_LABEL));
	ImageBytes bytes = plan.write();
	pim_destroy(sub.out());
	ASSERT_TRUE(adopt(sub, bytes));
	EXPECT_TRUE(merge());
	EXPECT_EQ(listed(), (Lines{"A", "B"}));
	EXPECT_EQ(loaded("T#M"), (Lines{"REGISTER {3=4}"}));
}

TEST_F(PimMerge, FurtherDocumentsAndFilesFollowTheMergedList)
{
	add(base, ip("A", "S", "R0", 1));
	add(sub, ip("B", "T", "R0", 1));
	EXPECT_TRUE(merge());
	add_file(map, "file", "x");
	EXPECT_TRUE(insert(groups("'C': {'settings': {}}")));
	EXPECT_EQ(listed(), (Lines{"A", "B", "file file", "C"}));
}

// ---- merge: versions, handlers, registers ----

TEST_F(PimMerge, VersionsAreTheBases)
{
	base->total_version = {2, 1, 1};
	base->hwreg_json_version = {1, 1, 2};
	base->swreg_json_version = {1, 1, 3};
	base->cus_swreg_json_version = {1, 1, 4};
	std::memcpy(base->cus_version, std::string(31, 'b').c_str(), 32);
	sub->total_version = {2, 2, 9};
	sub->hwreg_json_version = sub->swreg_json_version = sub->cus_swreg_json_version = {9, 9, 9};
	std::memcpy(sub->cus_version, "sub", 3);
	std::memcpy(map->cus_version, "target", 6);
	EXPECT_TRUE(merge());
	EXPECT_EQ(map->total_version, (vexil_version{2, 1, 1}));
	EXPECT_EQ(map->hwreg_json_version, (vexil_version{1, 1, 2}));
	EXPECT_EQ(map->swreg_json_version, (vexil_version{1, 1, 3}));
	EXPECT_EQ(map->cus_swreg_json_version, (vexil_version{1, 1, 4}));
	EXPECT_EQ(std::string(map->cus_version), std::string(31, 'b'));
}

bool other_algorithm(int, const char *, u32, const char *, u32)
{
	return true;
}

TEST_F(PimMerge, AlgorithmHandlerIsInheritedFromTheBaseOthersAreNot)
{
	ASSERT_TRUE(pim_insert_handler(base.get(), "L", record_table<0>));
	ASSERT_TRUE(pim_insert_alg_handler(base.get(), record_algorithm));
	ASSERT_TRUE(pim_insert_handler(sub.get(), "K", record_table<1>));
	ASSERT_TRUE(pim_insert_alg_handler(sub.get(), other_algorithm));
	EXPECT_TRUE(merge());
	EXPECT_EQ(map->alg_fn, record_algorithm);
	EXPECT_EQ(map->fn_list_num, 0u);
	EXPECT_EQ(ctrie_find(&map->fn_map, "L"), INT_MIN);
	EXPECT_EQ(ctrie_find(&map->fn_map, "K"), INT_MIN);

	ASSERT_TRUE(map.init());
	ASSERT_TRUE(pim_insert_alg_handler(base.get(), nullptr));
	ASSERT_TRUE(pim_insert_alg_handler(map.get(), record_algorithm));
	EXPECT_TRUE(merge());
	EXPECT_EQ(map->alg_fn, nullptr);
}

TEST_F(PimMerge, RegisterTableOfTheTargetIsAppliedToTheResultOnly)
{
	add(base, ip("A", "S", "R0", 1) + ", " + ip("B", "T", "R1", 2, "SYNC"));
	add(sub, ip("C", "U", "R2", 3, "IND"));
	table = {reg(4, 0x100, 0, 8), reg(5, 0x104, 0, 8), reg(6, 0x108, 4, 4)};
	const std::string base_bytes = store_bytes(base.get());
	const std::string sub_bytes = store_bytes(sub.get());
	pim_destroy(map.out());
	ASSERT_TRUE(pim_init(map.out(), nullptr, 0, table.data(), table.size()));
	EXPECT_TRUE(merge());
	EXPECT_EQ(loaded("S#M"), (Lines{"ADDR_L1 {" + std::to_string(4u << 27 | 0x100) + "=" +
					std::to_string(0xFF0001u) + "}"}));
	EXPECT_EQ(loaded("T#M"), (Lines{"SYNC {1=2}"}));
	EXPECT_EQ(loaded("U#M"), (Lines{"ADDR_IND {" + std::to_string(6u << 27 | 0x108) + "=" +
					std::to_string(0xF00030u) + "}"}));
	EXPECT_EQ(pim_get_reg_num(map.get(), 4, E_PQLV_OPTION_L1), 1u);
	EXPECT_EQ(pim_get_reg_num(map.get(), 6, E_PQLV_INDIVIDUAL), 1u);
	EXPECT_EQ(pim_get_reg_num(map.get(), 16, E_PQLV_MAX), 3u);
	EXPECT_EQ(store_bytes(base.get()), base_bytes);
	EXPECT_EQ(store_bytes(sub.get()), sub_bytes);
	EXPECT_EQ(pim_get_reg_num(base.get(), 16, E_PQLV_MAX), 0u);
	EXPECT_EQ(load(base.get(), "S#M"), (Lines{"REGISTER {0=1}"}));
	EXPECT_EQ(load(base.get(), "T#M"), (Lines{"REGISTER {1=2}"}));
}

TEST_F(PimMerge, WithoutATableOnlySynchronisedListsAreTaggedAnew)
{
	add(base, ip("A", "S", "R0", 1) + ", " + ip("B", "T", "R1", 2, "SYNC"));
	EXPECT_TRUE(merge());
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=1}"}));
	EXPECT_EQ(loaded("T#M"), (Lines{"SYNC {1=2}"}));
	EXPECT_EQ(load(base.get(), "T#M"), (Lines{"REGISTER {1=2}"}));
}

// ---- merge: base and sub ----

TEST_F(PimMerge, LeavesBaseAndSubAsTheyWere)
{
	add_file(base, "file", "bytes");
	add(base, ip("A", "S", "R0", 1));
	add_file(sub, "file", "other");
	add(sub, ip("A", "S", "R0", 2) + ", " + ip("B", "T", "R1", 3));
	const std::string base_bytes = store_bytes(base.get());
	const std::string sub_bytes = store_bytes(sub.get());
	for (int i = 0; i < 2; ++i) { // the sub was not renumbered: it can be merged again
		ASSERT_TRUE(map.init());
		EXPECT_TRUE(merge());
		EXPECT_EQ(store_bytes(base.get()), base_bytes);
		EXPECT_EQ(store_bytes(sub.get()), sub_bytes);
		EXPECT_EQ(load(base.get(), "S#M"), (Lines{"REGISTER {0=1}"}));
		EXPECT_EQ(load(sub.get(), "S#M"), (Lines{"REGISTER {0=2}"}));
		EXPECT_EQ(load(sub.get(), "T#M"), (Lines{"REGISTER {1=3}"}));
		EXPECT_EQ(loaded("T#M"), (Lines{"REGISTER {1=3}"}));
	}
	pim_destroy(base.out());
	pim_destroy(sub.out());
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=2}"})); // it owns what it holds
}

TEST_F(PimMerge, NeverWritesIntoImagesThatBaseAndSubLieIn)
{
	add(base, ip("A", "S", "R0", 1) + ", " + ip("Y", "Z", "R3", 1, "SYNC"));
	add(sub, ip("A", "S", "R0", 2) + ", " + ip("B", "T", "R1", 3));
	ImageBytes base_image = image_of(base.get());
	ImageBytes sub_image = image_of(sub.get());
	pim_destroy(base.out());
	pim_destroy(sub.out());
	ASSERT_TRUE(adopt(base, base_image));
	ASSERT_TRUE(adopt(sub, sub_image));
	const std::vector<char> base_before = base_image.bytes();
	const std::vector<char> sub_before = sub_image.bytes();
	EXPECT_TRUE(merge());
	EXPECT_EQ(base_image.bytes(), base_before);
	EXPECT_EQ(sub_image.bytes(), sub_before);
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=2}"}));
	EXPECT_EQ(load(sub.get(), "T#M"), (Lines{"REGISTER {1=3}"}));
}

TEST_F(PimMerge, FinishedMapsMergeAsWell)
{
	add(base, ip("A", "S", "R0", 1));
	add(sub, ip("B", "T", "R1", 3));
	ASSERT_TRUE(pim_finish(base.get()));
	ASSERT_TRUE(pim_finish(sub.get()));
	EXPECT_TRUE(merge());
	EXPECT_EQ(listed(), (Lines{"A", "B"}));
}

TEST_F(PimMerge, ResultLoadsTheSameAfterExportAndAdoption)
{
	add_file(base, "file", "old");
	add(base, ip("A", "S", "R0", 1) + ", " + ip("B", "T", "R1", 2));
	add_file(sub, "file", "new");
	add(sub, ip("A", "S", "R2", 3) + ", " + ip("C", "U", "R3", 4));
	ASSERT_TRUE(pim_insert_handler(sub.get(), "L", record_table<0>));
	add(sub, "'D': {'settings': {'V': {'1.PresetRegs': 'X', 'group': {'M': {'lut': {'L': "
		 "'file'}}}}}}");
	base->total_version = {2, 1, 6};
	EXPECT_TRUE(merge());
	const Lines list = listed();
	const Lines all = nodes(map.get());
	ASSERT_TRUE(adopt_image(image_of(map.get())));
	EXPECT_EQ(listed(), list);
	EXPECT_EQ(nodes(map.get()), all);
	EXPECT_EQ(map->total_version, (vexil_version{2, 1, 6}));
	EXPECT_EQ(map->max_node_index, 0); // not in images
	ASSERT_TRUE(pim_insert_handler(map.get(), "L", record_table<0>));
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {2=3}"}));
	EXPECT_EQ(loaded("T#M"), (Lines{"REGISTER {1=2}"}));
	EXPECT_EQ(loaded("U#M"), (Lines{"REGISTER {3=4}"}));
	EXPECT_EQ(load(map.get(), preset_id("V#M")), (Lines{"table0 DATA [new]"}));
}

TEST_F(PimMerge, ResultMayBeBaseOrSubOfTheNextMerge)
{
	add(base, ip("A", "S", "R0", 1));
	add(sub, ip("B", "T", "R1", 2));
	ASSERT_TRUE(merge());
	Map third;
	begin(third);
	add(third, ip("A", "S", "R0", 3) + ", " + ip("C", "U", "R2", 4));

	Map over;
	ASSERT_TRUE(over.init());
	EXPECT_TRUE(pim_merge(over.get(), map.get(), third.get()));
	EXPECT_EQ(over->max_node_index, node_count(map.get()) - 1);
	EXPECT_EQ(load(over.get(), "S#M"), (Lines{"REGISTER {0=3}"}));
	EXPECT_EQ(load(over.get(), "T#M"), (Lines{"REGISTER {1=2}"}));
	EXPECT_EQ(load(over.get(), "U#M"), (Lines{"REGISTER {2=4}"}));

	Map under;
	ASSERT_TRUE(under.init());
	EXPECT_TRUE(pim_merge(under.get(), third.get(), map.get()));
	EXPECT_EQ(load(under.get(), "S#M"), (Lines{"REGISTER {0=1}"}));
	EXPECT_EQ(load(under.get(), "T#M"), (Lines{"REGISTER {1=2}"}));
	EXPECT_EQ(load(under.get(), "U#M"), (Lines{"REGISTER {2=4}"}));
}

// ---- merge: arguments ----

TEST_F(PimMergeArguments, NullIsRefusedSilentlyAndChangesNothing)
{
	add(base, ip("A", "S", "R0", 1));
	const std::string before = store_bytes(map.get());
	EXPECT_FALSE(pim_merge(nullptr, base.get(), sub.get()));
	EXPECT_FALSE(pim_merge(map.get(), nullptr, sub.get()));
	EXPECT_FALSE(pim_merge(map.get(), base.get(), nullptr));
	EXPECT_EQ(store_bytes(map.get()), before);
	EXPECT_EQ(map->builder.err_code, EXTMEM_SUCCESS);
	EXPECT_TRUE(merge()); // still fresh
}

TEST_F(PimMergeArguments, TargetCannotBeBaseOrSub)
{
	add(sub, ip("A", "S", "R0", 1));
	const std::string map_bytes = store_bytes(map.get());
	const std::string sub_bytes = store_bytes(sub.get());
	EXPECT_FALSE(pim_merge(map.get(), map.get(), sub.get()));
	EXPECT_EQ(map->builder.err_code, EXTMEM_INTERNAL_ERROR);
	ASSERT_TRUE(map.init());
	EXPECT_FALSE(pim_merge(map.get(), sub.get(), map.get()));
	EXPECT_EQ(map->builder.err_code, EXTMEM_INTERNAL_ERROR);
	ASSERT_TRUE(map.init());
	EXPECT_FALSE(pim_merge(map.get(), map.get(), map.get()));
	EXPECT_EQ(map->builder.err_code, EXTMEM_INTERNAL_ERROR);
	EXPECT_EQ(store_bytes(map.get()), map_bytes);
	EXPECT_EQ(store_bytes(sub.get()), sub_bytes);
	EXPECT_EQ(load(sub.get(), "S#M"), (Lines{"REGISTER {0=1}"}));
}

TEST_F(PimMergeArguments, MapOverItselfIsItself)
{
	// The sub's nodes are renumbered on a copy, so the two stores that are joined differ.
	add(base, ip("A", "S", "R0", 1));
	const std::string before = store_bytes(base.get());
	EXPECT_TRUE(pim_merge(map.get(), base.get(), base.get()));
	EXPECT_EQ(listed(), (Lines{"A"}));
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=1}"}));
	EXPECT_EQ(store_bytes(base.get()), before);
	EXPECT_EQ(load(base.get(), "S#M"), (Lines{"REGISTER {0=1}"}));
}

TEST_F(PimMergeArguments, TargetMustBeFresh)
{
	struct {
		const char *state;
		void (*prepare)(pim *);
	} const cases[] = {
		{"a node", [](pim *p) { extmem_request_node(&p->builder, EXTMEM_TAG_GENERAL); }},
		{"data", [](pim *p) { extmem_request_data(&p->builder, 1); }},
		{"a file", [](pim *p) { pim_insert_file(p, "file", "x", 1); }},
		{"an IP", [](pim *p) { vexil_test::insert(p, groups("'Z': {'settings': {}}")); }},
	};
	add(base, ip("A", "S", "R0", 1));
	add(sub, ip("B", "T", "R1", 2));
	const std::string base_bytes = store_bytes(base.get());
	const std::string sub_bytes = store_bytes(sub.get());
	for (const auto &row : cases) {
		SCOPED_TRACE(row.state);
		ASSERT_TRUE(map.init());
		row.prepare(map.get());
		const std::string before = store_bytes(map.get());
		EXPECT_FALSE(merge());
		EXPECT_EQ(map->builder.err_code, EXTMEM_INTERNAL_ERROR);
		EXPECT_EQ(store_bytes(map.get()), before);
		EXPECT_EQ(store_bytes(base.get()), base_bytes);
		EXPECT_EQ(store_bytes(sub.get()), sub_bytes);
	}
}

TEST_F(PimMergeArguments, TargetCannotReceiveASecondMerge)
{
	add(base, ip("A", "S", "R0", 1));
	EXPECT_TRUE(merge());
	const std::string before = store_bytes(map.get());
	EXPECT_FALSE(merge());
	EXPECT_EQ(map->builder.err_code, EXTMEM_INTERNAL_ERROR);
	EXPECT_EQ(store_bytes(map.get()), before);
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=1}"}));
}

TEST_F(PimMergeArguments, TargetCannotLieInAnImage)
{
	add(base, ip("A", "S", "R0", 1));
	ASSERT_TRUE(adopt_image(PimImage().write()));
	const std::vector<char> before = image.bytes();
	EXPECT_FALSE(merge());
	EXPECT_EQ(map->builder.err_code, EXTMEM_INTERNAL_ERROR);
	EXPECT_EQ(image.bytes(), before);
}

TEST_F(PimMergeArguments, BaseWithoutANodeBufferIsReportedInTheBase)
{
	extmem_builder_destroy(&base->builder);
	EXPECT_FALSE(merge());
	EXPECT_EQ(base->builder.err_code, EXTMEM_BAD_PTR);
	EXPECT_EQ(map->builder.err_code, EXTMEM_BAD_PTR);
	EXPECT_EQ(map->max_node_index, 0xFFFF);
}

TEST_F(PimMergeArguments, SubWithoutBuffersIsRefused)
{
	add(base, ip("A", "S", "R0", 1));
	extmem_builder_destroy(&sub->builder);
	EXPECT_FALSE(merge());
	EXPECT_EQ(map->builder.err_code, EXTMEM_BAD_PTR);
}

// ---- merge: stores ----

TEST_F(PimMergeStore, NodesOfBothMustHaveIds)
{
	add(base, ip("A", "S", "R0", 1));
	add(sub, ip("B", "T", "R1", 2));
	while (node_count(base.get()) + node_count(sub.get()) < kMaxNodes)
		ASSERT_NE(extmem_request_node(&base->builder, EXTMEM_TAG_UNSPECIFIED).id, 0xFFFF);
	EXPECT_TRUE(merge());
	EXPECT_EQ(node_count(map.get()), kMaxNodes);
	EXPECT_EQ(loaded("T#M"), (Lines{"REGISTER {1=2}"}));

	ASSERT_TRUE(map.init());
	extmem_request_node(&sub->builder, EXTMEM_TAG_UNSPECIFIED);
	const std::string base_bytes = store_bytes(base.get());
	const std::string sub_bytes = store_bytes(sub.get());
	EXPECT_FALSE(merge());
	EXPECT_EQ(map->builder.err_code, EXTMEM_OUT_OF_RANGE);
	EXPECT_EQ(store_bytes(base.get()), base_bytes);
	EXPECT_EQ(store_bytes(sub.get()), sub_bytes);
	EXPECT_EQ(load(sub.get(), "T#M"), (Lines{"REGISTER {1=2}"}));
}

TEST_F(PimMergeStore, FullStoreThatRefusedNodesCountsThem)
{
	add(base, ip("A", "S", "R0", 1));
	while (node_count(base.get()) < kMaxNodes + 3)
		extmem_request_node(&base->builder, EXTMEM_TAG_UNSPECIFIED);
	const std::string sub_bytes = store_bytes(sub.get());
	EXPECT_FALSE(merge());
	EXPECT_EQ(map->builder.err_code, EXTMEM_OUT_OF_RANGE);
	EXPECT_EQ(store_bytes(sub.get()), sub_bytes);
	std::swap(*base.out(), *sub.out());
	ASSERT_TRUE(map.init());
	EXPECT_FALSE(merge());
	EXPECT_EQ(map->builder.err_code, EXTMEM_OUT_OF_RANGE);
}

TEST_F(PimMergeStore, GrowsForTheNodesOfBothBehindItsOwnRoot)
{
	// Its own 16 bytes count for the capacity, not for what is used.
	struct {
		size_t base_nodes;
		size_t sub_nodes;
		size_t capacity;
	} const cases[] = {{1, 1, 1024}, {31, 31, 1024}, {31, 32, 1024}, {32, 32, 2048},
			   {64, 63, 2048}, {64, 64, 4096}};
	for (const auto &row : cases) {
		SCOPED_TRACE(std::to_string(row.base_nodes) + " and " +
			     std::to_string(row.sub_nodes));
		ASSERT_TRUE(map.init());
		begin(base);
		begin(sub);
		while (node_count(base.get()) < row.base_nodes)
			extmem_request_node(&base->builder, EXTMEM_TAG_UNSPECIFIED);
		while (node_count(sub.get()) < row.sub_nodes)
			extmem_request_node(&sub->builder, EXTMEM_TAG_UNSPECIFIED);
		EXPECT_TRUE(merge());
		EXPECT_EQ(map->builder.node_buffer.buf_used, 16 * (row.base_nodes + row.sub_nodes));
		EXPECT_EQ(map->builder.node_buffer.buf_max, row.capacity);
		EXPECT_EQ(pim_get_export_size(map.get()), 104 + row.capacity + 1024);
	}
}

TEST_F(PimMergeStore, DataOfBothStandsOneBehindTheOther)
{
	add_file(base, "one", std::string(600, 'a'));
	add_file(sub, "two", std::string(700, 'b'));
	EXPECT_TRUE(merge());
	EXPECT_EQ(map->builder.data_buffer.buf_used, 600u + 8 + 704 + 8);
	EXPECT_EQ(map->builder.data_buffer.buf_max, 2048u);
	EXPECT_EQ(node(7), "7 DATA [" + std::string(700, 'b') + "]");
	const auto *data = reinterpret_cast<const char *>(map->builder.data_buffer.buf);
	EXPECT_EQ(std::string(data, 600), std::string(600, 'a'));
	EXPECT_EQ(std::string(data + 608, 700), std::string(700, 'b'));
	EXPECT_EQ(std::count(data + 600 + 8 + 704 + 8, data + 2048, 0), 2048 - 1320);
}

TEST_F(PimMergeStore, HeaderOfTheResultIsItsOwn)
{
	base->builder.header.chipID = 5;
	sub->builder.header.chipID = 6;
	map->builder.header.chipID = 7;
	EXPECT_TRUE(merge());
	EXPECT_EQ(image_of(map.get()).header().chipID, 7);
}

TEST_F(PimMergeStore, EveryAllocationCanFail)
{
	add_file(base, "file", std::string(2000, 'x'));
	add(base, ip("A", "S", "R0", 1) + ", " + ip("B", "SB", "R0", 1));
	add_file(sub, "more", std::string(3000, 'y'));
	add(sub, ip("A", "S", "R0", 2) + ", " + ip("C", "T", "R1", 3));
	const std::string base_bytes = store_bytes(base.get());
	const std::string sub_bytes = store_bytes(sub.get());
	for (const bool all_later : {false, true}) {
		bool refused = true;
		size_t not_joined = 0;
		for (size_t nth = 1; refused; ++nth) {
			SCOPED_TRACE((all_later ? "all from " : "only ") + std::to_string(nth));
			ASSERT_TRUE(map.init());
			base->builder.err_code = EXTMEM_SUCCESS;
			bool done;
			{
				const Refuse refuse =
					all_later ? Refuse::from(nth) : Refuse::only(nth);
				done = merge();
				refused = refuse.happened();
			}
			EXPECT_EQ(store_bytes(base.get()), base_bytes);
			EXPECT_EQ(store_bytes(sub.get()), sub_bytes);
			EXPECT_TRUE(done || refused);
			if (map->builder.data_buffer.buf_used == 0) { // the stores were not joined
				++not_joined;
				EXPECT_FALSE(done);
				EXPECT_EQ(map->builder.err_code, EXTMEM_NOMEM);
				EXPECT_EQ(base->builder.err_code, node_count(map.get()) > 1
									  ? EXTMEM_NOMEM
									  : EXTMEM_SUCCESS);
			}
			for (const auto &[label, block] : {std::pair{"S#M", "REGISTER {0=2}"},
							   std::pair{"SB#M", "REGISTER {0=1}"},
							   std::pair{"T#M", "REGISTER {1=3}"}}) {
				// A label may be missing, never wrong.
				if (setting_id(label) != VEXIL_NO_ID || !refused) {
					EXPECT_EQ(loaded(label), Lines{block});
				}
			}
			ASSERT_LT(nth, 1000u);
		}
		EXPECT_GE(not_joined, 2u); // without room for the nodes, without room for the data
	}
}

TEST_F(PimMergeStore, FileOfTheSubWithoutANameFailsTheScan)
{
	add(base, ip("A", "S", "R0", 1));
	const node_d file = extmem_request_node(&sub->builder, EXTMEM_TAG_FILE);
	const node_d holder = extmem_request_node(&sub->builder, EXTMEM_TAG_GENERAL);
	extmem_append_child(holder, file);
	extmem_append_child(sub->root, holder);
	EXPECT_FALSE(merge());
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=1}"})); // scanned all the same
}

TEST_F(PimMergeStore, IpOfTheSubWithoutANameIsLinkedAsNew)
{
	add(base, ip("A", "S", "R0", 1));
	add(sub, ip("B", "T", "R1", 2));
	extmem_break_next(node_at(sub.get(), 2));
	EXPECT_TRUE(merge());
	EXPECT_EQ(node(1), "1 GENERAL c2 n" + std::to_string(node_count(base.get()) + 1));
	EXPECT_EQ(loaded("T#M"), (Lines{"REGISTER {1=2}"}));
}

TEST_F(PimMergeStore, NameWithoutNulMatchesNothing)
{
	add(base, ip("A", "S", "R0", 1));
	add(sub, ip("A", "S", "R0", 2));
	data_d name = extmem_copy_from_node(node_at(sub.get(), 4));
	name.size = 1;
	extmem_copy_to_node(node_at(sub.get(), 4), name);
	EXPECT_TRUE(merge());
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=1}"})); // not replaced
	EXPECT_EQ(node(1), "1 GENERAL c2 n" + std::to_string(node_count(base.get()) + 1));
}

TEST_F(PimMergeStore, RootOfTheSubInACircleEndsWithAFailure)
{
	add(base, ip("A", "S", "R0", 1));
	add(sub, ip("B", "T", "R1", 2) + ", " + ip("C", "U", "R1", 3));
	const node_d first = extmem_get_child(sub->root);
	extmem_append_next(extmem_get_next(first), first);
	const std::string sub_bytes = store_bytes(sub.get());
	EXPECT_FALSE(merge());
	EXPECT_EQ(store_bytes(sub.get()), sub_bytes);
}

TEST_F(PimMergeStore, RootOfTheBaseInACircleEnds)
{
	add(base, ip("A", "S", "R0", 1) + ", " + ip("B", "T", "R1", 2));
	add(sub, ip("C", "U", "R1", 3));
	const node_d first = extmem_get_child(base->root);
	extmem_append_next(extmem_get_next(first), first);
	const std::string base_bytes = store_bytes(base.get());
	merge(); // the circle may be cut by what is linked in
	EXPECT_EQ(store_bytes(base.get()), base_bytes);
	pim_destroy(map.out());
}

TEST_F(PimMergeStore, SettingsInACircleEndWithAFailure)
{
	add(base, ip("A", "S", "R0", 1));
	add(sub, ip("B", "T", "R1", 2));
	const node_d setting_holder = extmem_get_child(node_at(sub.get(), 2));
	extmem_append_next(setting_holder, setting_holder);
	EXPECT_FALSE(merge());
	EXPECT_EQ(loaded("T#M"), (Lines{"REGISTER {1=2}"}));
}

} // namespace
