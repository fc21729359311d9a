// SPDX-License-Identifier: MIT
//
// Function-group documents: versions, folders, IPs, settings, presets, labels, node ids.
#include "tests/support/pim_json.h"

#include <climits>

namespace {

using namespace vexil_test;

using PimInsert = PimTest;
using PimInsertVersion = PimTest;
using PimInsertFolder = PimTest;
using PimInsertSetting = PimTest;
using PimInsertLabel = PimTest;
using PimInsertStore = PimTest;

constexpr size_t kNodesOfAnIp = 6;
constexpr size_t kNodesOfASetting = 6;

const std::string kLabelJoinError = "[VEXIL][PIM][__pim_get_ip] label join error.";

std::string version_object(const std::string &major, const std::string &minor,
			   const std::string &revision)
{
	return "'#version': {'MajorVersion': " + major + ", 'MinorVersion': " + minor +
	       ", 'Revision': " + revision + "}";
}

/** "A" with settings that are empty. */
std::string bare_ip(const std::string &name, const std::string &version = "")
{
	return "'" + name + "': {" + version + (version.empty() ? "" : ", ") + "'settings': {}}";
}

/** @inside within folders F0, F1 ... */
std::string in_folders(size_t count, const std::string &inside)
{
	std::string text;
	for (size_t i = 0; i < count; ++i)
		text += "'F" + std::to_string(i) + "': {";
	return text + inside + std::string(count, '}');
}

vexil_version version_of(pim *map, const std::string &ip)
{
	vexil_version version{9, 9, 9};
	EXPECT_TRUE(pim_get_pim_version(map, &version, ip.c_str())) << ip;
	return version;
}

// ---- arguments and documents ----

TEST_F(PimInsert, NullMapOrDocumentIsRefusedSilently)
{
	const Json document = json(groups(bare_ip("A")));
	EXPECT_FALSE(pim_insert(nullptr, document.get()));
	EXPECT_FALSE(pim_insert(map.get(), nullptr));
	EXPECT_FALSE(pim_insert(nullptr, nullptr));
	EXPECT_EQ(node_count(map.get()), 1u);
}

TEST_F(PimInsert, DocumentWithoutMembersIsAcceptedAndChangesNothing)
{
	const std::string before = store_bytes(map.get());
	for (const char *text : {"{}", "[]", "5", "'text'", "null", "true"})
		EXPECT_TRUE(insert(text)) << text;
	EXPECT_EQ(store_bytes(map.get()), before);
}

TEST_F(PimInsert, DocumentWithoutGroupsChangesNothingButTheVersion)
{
	const std::string before = store_bytes(map.get());
	EXPECT_TRUE(insert("{'VexilVersion': {'#version': {'MajorVersion': 2, 'MinorVersion': 1, "
			   "'Revision': 7, 'Note': 'panel lot C'}}, 'Other': {'A': {}}}"));
	EXPECT_EQ(map->total_version, (vexil_version{2, 1, 7}));
	EXPECT_STREQ(map->cus_version, "panel lot C");
	EXPECT_EQ(store_bytes(map.get()), before);
}

TEST_F(PimInsert, GroupsWithoutMembersAreReported)
{
	for (const char *value : {"{}", "[]", "5", "'text'", "null", "true"}) {
		EXPECT_FALSE(insert(std::string("{'PqFuncGroups': ") + value + "}")) << value;
		EXPECT_EQ(take_log(), "[__pim_insert_json][1410]vexil lib fail!!\n") << value;
	}
	EXPECT_EQ(node_count(map.get()), 1u);
}

TEST_F(PimInsert, NamelessObjectsFailTheCall)
{
	EXPECT_FALSE(insert("{'PqFuncGroups': [{'A': {'settings': {}}}]}"));
	EXPECT_EQ(node_count(map.get()), 1u);
	take_log(); // which step speaks is its own affair
}

TEST_F(PimInsert, MembersThatAreNoObjectsArePassedOver)
{
	EXPECT_TRUE(insert(groups("'0.Description': 'text', 'N': 5, 'L': [{'X': {}}], 'T': true, "
				  "'Z': null, " + bare_ip("A") + ", 'H': '0x10'")));
	EXPECT_EQ(node_count(map.get()), 1 + kNodesOfAnIp);
	EXPECT_EQ(ctrie_find(&map->ip_map, "A"), 2);
	for (const char *name : {"0.Description", "N", "L", "X", "T", "Z", "H"})
		EXPECT_EQ(ctrie_find(&map->ip_map, name), INT_MIN) << name;
}

TEST_F(PimInsert, KeysAreFoundInAnyLetterCase)
{
	add_registers(2);
	ASSERT_TRUE(pim_insert_vregmap(map.get(), "v", 3));
	ASSERT_TRUE(pim_insert_cus_vregmap(map.get(), "c", 4));
	ASSERT_TRUE(pim_insert_handler(map.get(), "label", record_table<0>));
	ASSERT_TRUE(pim_insert_alg_handler(map.get(), record_algorithm));
	add_file("file", "bytes");
	EXPECT_TRUE(insert(
		"{'VEXILVERSION': {'#VERSION': {'majorversion': 2, 'MINORVERSION': 2, 'revision': "
		"3}},"
		" 'pqfuncgroups': {'A': {'#Version': {'MAJORVERSION': 2}, 'SETTINGS': {"
		"  'S': {'CommonReg': true, '1.pqLEVEL': 'L3', 'GROUP': {"
		"   'M': {'HwReg': {'r0': 1, 'r1': 2}, 'SWREG': {'V': 5}, 'Lut': {'LABEL': 'FILE'},"
		"    'ALG': {'E': 'File'}, 'HWADDR': {'0x40': 6}, 'CUS_SWREG': {'C': 7}},"
		"   'N': {'hwREG': {'R0': 1, 'R1': 3}}}},"
		"  'P': {'1.PRESETREGS': 'Table', 'group': {'M': {'hwreg': {'r1': 9}}}}}}}}"));
	EXPECT_EQ(map->total_version, (vexil_version{2, 2, 3}));
	EXPECT_EQ(version_of(map.get(), "A"), (vexil_version{2, 0, 0}));
	EXPECT_EQ(loaded("s#COMMONREG"), (Lines{"RIU {0=1}"}));
	EXPECT_EQ(loaded("S#M"),
		  (Lines{"REGISTER {1=2}", "VREGISTER {3=5}", "table0 DATA [bytes]", "ADDR {64=6}",
			 "CUS_VREGISTER {4=7}", "algorithm DATA [bytes] 'E'"}));
	EXPECT_EQ(load(map.get(), preset_id("p#m")), (Lines{"REGISTER {1=9}"}));
}

TEST_F(PimInsert, SeveralDocumentsFollowOneAnotherUnderTheRoot)
{
	EXPECT_TRUE(insert(groups(bare_ip("A"))));
	EXPECT_TRUE(insert(groups(bare_ip("B"))));
	add_file("f", "x");
	EXPECT_TRUE(insert(groups(bare_ip("C"))));
	EXPECT_EQ(node(0), "0 GENERAL c1");
	EXPECT_EQ(node(1), "1 GENERAL c2 n7");
	EXPECT_EQ(node(7), "7 GENERAL c8 n17"); // 13 to 16: the file and its name
	EXPECT_EQ(node(17), "17 GENERAL c14 n18");
	EXPECT_EQ(node(18), "18 GENERAL c19");
}

// ---- the document's version ----

struct Gate {
	const char *major;
	const char *minor;
	bool accepted;
};
constexpr Gate kGates[] = {
	{"2", "0", true},  {"2", "1", true},  {"2", "2", true},      {"2", "3", false},
	{"2", "16", false}, {"3", "0", false}, {"3", "2", false},     {"1", "9", false},
	{"1", "2", false}, {"0", "0", false}, {"65538", "1", true},  {"2", "65537", true},
	{"2", "-1", false},
};

TEST_F(PimInsertVersion, TwoZeroToTwoTwoAreAcceptedOthersRefusedSilently)
{
	for (const Gate &gate : kGates) {
		SCOPED_TRACE(std::string(gate.major) + "." + gate.minor);
		ASSERT_TRUE(map.init());
		EXPECT_EQ(insert("{'VexilVersion': {" +
				 version_object(gate.major, gate.minor, "77") +
				 "}, 'PqFuncGroups': {" + bare_ip("A") + "}}"),
			  gate.accepted);
		EXPECT_EQ(node_count(map.get()), gate.accepted ? 1 + kNodesOfAnIp : 1);
		EXPECT_EQ(take_log(), "");
	}
}

TEST_F(PimInsertVersion, RefusedVersionStaysInTheMap)
{
	EXPECT_FALSE(insert("{'VexilVersion': {'#version': {'MajorVersion': 3, 'MinorVersion': 4, "
			    "'Revision': 5, 'Note': 'n'}}, 'PqFuncGroups': {" +
			    bare_ip("A") + "}}"));
	EXPECT_EQ(map->total_version, (vexil_version{3, 4, 5}));
	EXPECT_STREQ(map->cus_version, "n");
	EXPECT_EQ(node_count(map.get()), 1u);
}

TEST_F(PimInsertVersion, IsOptionalAndUngatedWithoutItsVersionMember)
{
	EXPECT_TRUE(insert("{'VexilVersion': {'Version': {'MajorVersion': 9}}, 'PqFuncGroups': {" +
			   bare_ip("A") + "}}"));
	EXPECT_TRUE(insert("{'VexilVersion': 5, 'PqFuncGroups': {" + bare_ip("B") + "}}"));
	EXPECT_EQ(map->total_version, (vexil_version{0, 0, 0}));
	EXPECT_EQ(node_count(map.get()), 1 + 2 * kNodesOfAnIp);
}

TEST_F(PimInsertVersion, ObjectWithoutNumbersKeepsWhatWasReadBefore)
{
	const std::string nothing =
		"{'VexilVersion': {'#version': {}}, 'PqFuncGroups': {" + bare_ip("A") + "}}";
	EXPECT_FALSE(insert(nothing)); // 0.0
	ASSERT_TRUE(insert("{'VexilVersion': {" + version_object("2", "1", "4") + "}}"));
	EXPECT_TRUE(insert(nothing));
	EXPECT_EQ(map->total_version, (vexil_version{2, 1, 4}));
}

TEST_F(PimInsertVersion, TextFormIsHexadecimalMajorAndMinor)
{
	EXPECT_TRUE(insert("{'VexilVersion': {'#version': {'JsonVersionFormat': '2.2', "
			   "'MajorVersion': 7, 'Revision': '1F'}}}"));
	EXPECT_EQ(map->total_version, (vexil_version{2, 2, 0x1F}));
	EXPECT_FALSE(insert("{'VexilVersion': {'#version': {'JsonVersionFormat': '2.10'}}}"));
	EXPECT_EQ(map->total_version, (vexil_version{2, 16, 0x1F}));
}

TEST_F(PimInsertVersion, LaterShorterNoteLeavesNoTail)
{
	const auto note = [](const std::string &text) {
		return "{'VexilVersion': {'#version': {'MajorVersion': 2, 'Note': '" + text +
		       "'}}}";
	};
	EXPECT_TRUE(insert(note(std::string(40, 'x'))));
	EXPECT_EQ(std::string(map->cus_version), std::string(31, 'x'));
	EXPECT_TRUE(insert(note("lot")));
	EXPECT_EQ(std::string(map->cus_version, 32), "lot" + std::string(29, '\0'));
}

// ---- versions of IPs ----

TEST_F(PimInsertVersion, OfTheChainCarriesOverToObjectsWithoutTheirOwn)
{
	EXPECT_TRUE(insert(
		groups(bare_ip("A") + ", " + bare_ip("B", version_object("2", "1", "5")) + ", " +
		       bare_ip("C") + ", 'F': {" + bare_ip("D") + "}, " + bare_ip("E"))));
	EXPECT_EQ(version_of(map.get(), "A"), (vexil_version{0, 0, 0}));
	EXPECT_EQ(version_of(map.get(), "B"), (vexil_version{2, 1, 5}));
	EXPECT_EQ(version_of(map.get(), "C"), (vexil_version{2, 1, 5}));
	EXPECT_EQ(version_of(map.get(), "F"), (vexil_version{2, 1, 5}));
	EXPECT_EQ(version_of(map.get(), "D"), (vexil_version{0, 0, 0})); // a chain of its own
	EXPECT_EQ(version_of(map.get(), "E"), (vexil_version{2, 1, 5}));
}

TEST_F(PimInsertVersion, OfAFolderCarriesOverToItsSiblingsNotToItsChildren)
{
	EXPECT_TRUE(insert(groups("'F': {" + version_object("2", "2", "9") + ", " + bare_ip("A") +
				  "}, " + bare_ip("B"))));
	EXPECT_EQ(version_of(map.get(), "F"), (vexil_version{2, 2, 9}));
	EXPECT_EQ(version_of(map.get(), "A"), (vexil_version{0, 0, 0}));
	EXPECT_EQ(version_of(map.get(), "B"), (vexil_version{2, 2, 9}));
}

TEST_F(PimInsertVersion, PartialObjectKeepsTheOtherFieldsOfTheChain)
{
	EXPECT_TRUE(insert(groups(bare_ip("A", version_object("2", "1", "5")) + ", " +
				  bare_ip("B", "'#version': {'Revision': 8, 'Note': 'x'}"))));
	EXPECT_EQ(version_of(map.get(), "B"), (vexil_version{2, 1, 8}));
	EXPECT_STREQ(map->cus_version, ""); // the note of an IP goes nowhere
	EXPECT_EQ(map->total_version, (vexil_version{0, 0, 0}));
}

TEST_F(PimInsertVersion, OfTheChainIsForgottenByTheNextDocument)
{
	EXPECT_TRUE(insert(groups(bare_ip("A", version_object("2", "1", "5")))));
	EXPECT_TRUE(insert(groups(bare_ip("B"))));
	EXPECT_EQ(version_of(map.get(), "B"), (vexil_version{0, 0, 0}));
}

TEST_F(PimInsertVersion, OfAnIpIsGatedSilentlyAndWhatCameBeforeStays)
{
	for (const Gate &gate : kGates) {
		SCOPED_TRACE(std::string(gate.major) + "." + gate.minor);
		ASSERT_TRUE(map.init());
		EXPECT_EQ(insert(groups(bare_ip("A") + ", " +
					bare_ip("B", version_object(gate.major, gate.minor, "1")) +
					", " + bare_ip("C"))),
			  gate.accepted);
		EXPECT_EQ(node_count(map.get()), 1 + (gate.accepted ? 3 : 1) * kNodesOfAnIp);
		EXPECT_EQ(ctrie_find(&map->ip_map, "A"), 2);
		EXPECT_EQ(ctrie_find(&map->ip_map, "B"), gate.accepted ? 8 : INT_MIN);
		EXPECT_EQ(take_log(), "");
	}
}

TEST_F(PimInsertVersion, ObjectOfAnIpWithoutNumbersIsRefusedAtTheStartOfAChain)
{
	EXPECT_FALSE(insert(groups(bare_ip("A", "'#version': {}"))));
	EXPECT_FALSE(insert(groups(bare_ip("A", "'#version': 5"))));
	EXPECT_EQ(node_count(map.get()), 1u);
}

// ---- nodes ----

TEST_F(PimInsert, PlainSettingBecomesTheseNodes)
{
	add_registers(3);
	EXPECT_TRUE(insert(groups("'Ip': {" + version_object("2", "1", "5") +
				  ", 'settings': {'s1': {'1.PQlevel': 'L1', 'group': {"
				  "'m1': {'hwreg': {'R1': 7}}, 'm2': {}}}, 's2': {}}}")));
	EXPECT_EQ(nodes(map.get()), (Lines{
		"0 GENERAL c1",
		"1 GENERAL c2",
		"2 IP c7 n3",
		"3 PROPERTY c4 n5",
		"4 STRING 'Ip'",
		"5 VERSION c6",
		"6 VERSION_HOLDER 2.1.5",
		"7 GENERAL c8 n23",
		"8 IP_SETTING c13 n9",
		"9 PROPERTY c10 n11",
		"10 STRING 's1'",
		"11 PQLEVEL c12",
		"12 LEVEL 2",
		"13 GENERAL c14 n19",
		"14 IP_CONFIG c17 n15",
		"15 PROPERTY c16",
		"16 STRING 's1#m1'",
		"17 GENERAL c18",
		"18 REGISTER {1=7}",
		"19 GENERAL c20",
		"20 IP_CONFIG n21",
		"21 PROPERTY c22",
		"22 STRING 's1#m2'",
		"23 GENERAL c24",
		"24 IP_SETTING n25",
		"25 PROPERTY c26 n27",
		"26 STRING 's2'",
		"27 PQLEVEL c28",
		"28 LEVEL 5",
	}));
	EXPECT_EQ(ctrie_find(&map->ip_map, "Ip"), 2);
	EXPECT_EQ(setting_id("s1#m1"), 14);
	EXPECT_EQ(setting_id("s1#m2"), 20);
}

TEST_F(PimInsert, CommonGroupBecomesTheseNodes)
{
	add_registers(3);
	EXPECT_TRUE(
		insert(setting("'commonReg': true, 'group': {'M1': {'hwreg': {'R0': 1, 'R1': 2}}, "
			       "'M2': {'hwreg': {'R0': 1, 'R1': 3}}}")));
	EXPECT_EQ(nodes(map.get(), 7), (Lines{
		"7 GENERAL c8",
		"8 IP_SETTING c13 n9",
		"9 PROPERTY c10 n11",
		"10 STRING 'S'",
		"11 PQLEVEL c12",
		"12 LEVEL 5",
		"13 GENERAL c14 n19",
		"14 COMMON_CONFIG c17 n15",
		"15 PROPERTY c16",
		"16 STRING 'S#commonReg'",
		"17 GENERAL c18",
		"18 RIU {0=1}",
		"19 GENERAL c20 n25",
		"20 IP_CONFIG c23 n21",
		"21 PROPERTY c22",
		"22 STRING 'S#M1'",
		"23 GENERAL c24",
		"24 REGISTER {1=2}",
		"25 GENERAL c26",
		"26 IP_CONFIG c29 n27",
		"27 PROPERTY c28",
		"28 STRING 'S#M2'",
		"29 GENERAL c30",
		"30 REGISTER {1=3}",
	}));
	EXPECT_EQ(setting_id("S#commonReg"), 14);
	EXPECT_EQ(setting_id("S#M1"), 20);
	EXPECT_EQ(setting_id("S#M2"), 26);
	EXPECT_EQ(preset_id("S#commonReg"), VEXIL_NO_ID);
}

TEST_F(PimInsert, PresetSettingBecomesTheseNodes)
{
	add_registers(1);
	EXPECT_TRUE(insert(setting("'1.PresetRegs': 'TABLE', 'group': {'M1': {'hwreg': {'R0': 4}}, "
				   "'M2': {}}")));
	EXPECT_EQ(nodes(map.get(), 7), (Lines{
		"7 GENERAL c9",
		"8 STRING 'TABLE'",
		"9 IP_SETTING c14 n10",
		"10 PROPERTY c11 n12",
		"11 STRING 'S'",
		"12 PQLEVEL c13",
		"13 LEVEL 6",
		"14 GENERAL c15 n20",
		"15 PRESET_CONFIG c18 n16",
		"16 PROPERTY c17 n8",
		"17 STRING 'S#M1'",
		"18 GENERAL c19",
		"19 REGISTER {0=4}",
		"20 GENERAL c21",
		"21 PRESET_CONFIG n22",
		"22 PROPERTY c23 n8",
		"23 STRING 'S#M2'",
	}));
	EXPECT_EQ(preset_id("S#M1"), 15);
	EXPECT_EQ(preset_id("S#M2"), 21);
	EXPECT_EQ(setting_id("S#M1"), VEXIL_NO_ID);
}

TEST_F(PimInsert, ArrayGroupGivesTheSameNodesAsAnObjectGroup)
{
	add_registers(2);
	const auto nodes_of = [&](const std::string &members) {
		EXPECT_TRUE(map.init());
		add_registers(2);
		EXPECT_TRUE(insert(setting(members)));
		return nodes(map.get());
	};
	const std::string one = "'M1': {'hwreg': {'R0': 1, 'R1': 2}}";
	const std::string two = "'M2': {'hwreg': {'R1': 2}}";
	for (const char *kind : {"", "'commonReg': true, ", "'1.PresetRegs': 'T', "})
		EXPECT_EQ(nodes_of(std::string(kind) + "'group': [{" + one + "}, {" + two + "}]"),
			  nodes_of(std::string(kind) + "'group': {" + one + ", " + two + "}"))
			<< kind;
}

TEST_F(PimInsert, OnlyTheFirstMemberOfAGroupElementIsRead)
{
	EXPECT_TRUE(insert(setting("'group': [{'M': {}, 'N': {}}, {'O': {}}]")));
	EXPECT_NE(setting_id("S#M"), VEXIL_NO_ID);
	EXPECT_EQ(setting_id("S#N"), VEXIL_NO_ID);
	EXPECT_NE(setting_id("S#O"), VEXIL_NO_ID);
}

TEST_F(PimInsertStore, RecordsFollowOneAnotherAtMultiplesOfEight)
{
	add_registers(1);
	EXPECT_TRUE(insert(config("'hwreg': {'R0': 1}")));
	// "A" 2, version 8, "S" 2, level 4, "S#M" 4, one pair 16 bytes, each in steps of eight.
	EXPECT_EQ(map->builder.data_buffer.buf_used, 8u + 8 + 8 + 8 + 8 + 16);
	EXPECT_EQ(u32_at(reinterpret_cast<const char *>(map->builder.data_buffer.buf), 8),
		  0u); // version 0.0
}

// ---- folders ----

TEST_F(PimInsertFolder, IsAnIpNodeBeforeItsChildrenAllUnderTheRoot)
{
	EXPECT_TRUE(insert(groups("'F': {" + version_object("2", "2", "9") +
				  ", 'Note': 'x', 'G': {" + bare_ip("A") + "}}, " + bare_ip("B"))));
	EXPECT_EQ(nodes(map.get()), (Lines{
		"0 GENERAL c1",
		"1 GENERAL c2 n7",
		"2 IP n3",
		"3 PROPERTY c4 n5",
		"4 STRING 'F'",
		"5 VERSION c6",
		"6 VERSION_HOLDER 2.2.9",
		"7 GENERAL c8 n13", // the folder's version object stands in its chain, too
		"8 IP n9",
		"9 PROPERTY c10 n11",
		"10 STRING '#version'",
		"11 VERSION c12",
		"12 VERSION_HOLDER 0.0.0",
		"13 GENERAL c14 n19",
		"14 IP n15",
		"15 PROPERTY c16 n17",
		"16 STRING 'G'",
		"17 VERSION c18",
		"18 VERSION_HOLDER 0.0.0",
		"19 GENERAL c20 n25",
		"20 IP n21",
		"21 PROPERTY c22 n23",
		"22 STRING 'A'",
		"23 VERSION c24",
		"24 VERSION_HOLDER 0.0.0",
		"25 GENERAL c26",
		"26 IP n27",
		"27 PROPERTY c28 n29",
		"28 STRING 'B'",
		"29 VERSION c30",
		"30 VERSION_HOLDER 2.2.9",
	}));
	EXPECT_EQ(ctrie_find(&map->ip_map, "F"), 2);
	EXPECT_EQ(ctrie_find(&map->ip_map, "G"), 14);
	EXPECT_EQ(ctrie_find(&map->ip_map, "A"), 20);
	EXPECT_EQ(ctrie_find(&map->ip_map, "B"), 26);
}

TEST_F(PimInsertFolder, VersionObjectOfAnIpIsNoNode)
{
	EXPECT_TRUE(insert(groups(bare_ip("A", version_object("2", "0", "1")))));
	EXPECT_EQ(node_count(map.get()), 1 + kNodesOfAnIp);
	EXPECT_EQ(ctrie_find(&map->ip_map, "#version"), INT_MIN);
}

TEST_F(PimInsertFolder, WithoutMembersIsAnIpNode)
{
	EXPECT_TRUE(insert(groups("'F': {}")));
	EXPECT_EQ(node_count(map.get()), 1 + kNodesOfAnIp);
	EXPECT_EQ(ctrie_find(&map->ip_map, "F"), 2);
}

TEST_F(PimInsertFolder, SettingsKeyEndsTheObjectWhateverItHolds)
{
	for (const char *value : {"{}", "[]", "5", "null", "'text'", "true"}) {
		SCOPED_TRACE(value);
		ASSERT_TRUE(map.init());
		EXPECT_TRUE(insert(groups(std::string("'A': {'B': {'settings': {}}, 'settings': ") +
					  value + "}")));
		EXPECT_EQ(node_count(map.get()), 1 + kNodesOfAnIp);
		EXPECT_EQ(ctrie_find(&map->ip_map, "B"), INT_MIN);
	}
}

TEST_F(PimInsertFolder, EightMayLieInsideEachOtherWithAnIpInTheInnermost)
{
	add_registers(1);
	EXPECT_TRUE(insert(groups(in_folders(
		8, "'A': {" + version_object("2", "0", "3") +
			   ", 'settings': {'S': {'group': {'M': {'hwreg': {'R0': 5}}}}}}"))));
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=5}"}));
	EXPECT_EQ(version_of(map.get(), "A"), (vexil_version{2, 0, 3}));
	for (int i = 0; i < 8; ++i)
		EXPECT_EQ(ctrie_find(&map->ip_map, ("F" + std::to_string(i)).c_str()), 2 + 6 * i);
}

TEST_F(PimInsertFolder, EightWithArrayFormsInsideParseAndLoad)
{
	add_registers(1);
	EXPECT_TRUE(insert(groups(in_folders(
		8, "'A': {'settings': {'S': {'commonReg': true, 'group': [{'M': {'hwreg': "
		   "[{'R0': 5}]}}]}}}"))));
	EXPECT_EQ(loaded("S#commonReg"), (Lines{"RIU {0=5}"}));
}

TEST_F(PimInsertFolder, NinthIsRefusedBeforeItsNodesAreMade)
{
	EXPECT_FALSE(insert(groups(bare_ip("A") + ", " + in_folders(9, bare_ip("X")) + ", " +
				   bare_ip("B"))));
	const Lines log = take_log_lines();
	ASSERT_EQ(log.size(), 1u);
	EXPECT_TRUE(log[0].starts_with("[__pim_find_ip][") && log[0].ends_with("]vexil lib fail!!"))
		<< log[0];
	EXPECT_EQ(node_count(map.get()), 1 + 9 * kNodesOfAnIp);
	EXPECT_EQ(ctrie_find(&map->ip_map, "A"), 2);
	EXPECT_EQ(ctrie_find(&map->ip_map, "F7"), 8 + 6 * 7);
	for (const char *name : {"F8", "X", "B"})
		EXPECT_EQ(ctrie_find(&map->ip_map, name), INT_MIN) << name;
}

TEST_F(PimInsertFolder, NinthWithoutObjectsInsideIsAccepted)
{
	EXPECT_TRUE(insert(groups(in_folders(9, "'Note': 'text', 'List': [1, 2]") + ", " +
				  bare_ip("B"))));
	EXPECT_EQ(ctrie_find(&map->ip_map, "F8"), 2 + 6 * 8);
	EXPECT_EQ(ctrie_find(&map->ip_map, "B"), 2 + 6 * 9);
}

TEST_F(PimInsertFolder, VersionObjectCountsAsAnObjectInsideTheNinth)
{
	EXPECT_FALSE(insert(groups(in_folders(9, version_object("2", "0", "0")))));
	EXPECT_EQ(take_log_lines().size(), 1u);
	EXPECT_EQ(node_count(map.get()), 1 + 8 * kNodesOfAnIp);
}

TEST_F(PimInsertFolder, WalkKeepsTheFoldersThatItIsIn)
{
	const Json document = json("{'F': {'G': {'A': {'settings': {}}}}}");
	ASSERT_TRUE(document);
	cJSON *folder = document->child;
	cJSON *history[8] = {};
	EXPECT_TRUE(__pim_find_ip(map.get(), folder, history, 3));
	EXPECT_EQ(history[2], nullptr);
	EXPECT_EQ(history[3], folder);
	EXPECT_EQ(history[4], folder->child);
	EXPECT_EQ(history[5], nullptr);
}

TEST_F(PimInsertFolder, FailureInsideIsPassedUpAndEndsTheWalk)
{
	EXPECT_FALSE(insert(groups("'F': {'G': {" + bare_ip("A", version_object("3", "0", "0")) +
				   "}, " + bare_ip("B") + "}, " + bare_ip("C"))));
	EXPECT_EQ(take_log(), "");
	EXPECT_EQ(node_count(map.get()), 1 + 2 * kNodesOfAnIp);
	EXPECT_EQ(ctrie_find(&map->ip_map, "G"), 8);
}

// ---- names that are taken or refused ----

TEST_F(PimInsert, RepeatedIpNameKeepsTheFirstInTheIndex)
{
	EXPECT_TRUE(insert(groups(bare_ip("A", version_object("2", "0", "1")) + ", " +
				  bare_ip("a", version_object("2", "0", "2")))));
	EXPECT_EQ(ctrie_find(&map->ip_map, "A"), 2);
	EXPECT_EQ(node_count(map.get()), 1 + 2 * kNodesOfAnIp);
	EXPECT_EQ(version_of(map.get(), "a"), (vexil_version{2, 0, 2}));
}

TEST_F(PimInsert, RepeatedLabelKeepsTheFirstInTheIndex)
{
	add_registers(2);
	EXPECT_TRUE(insert(setting("'group': {'M': {'hwreg': {'R0': 1}}}")));
	EXPECT_TRUE(
		insert(groups("'B': {'settings': {'s': {'group': {'m': {'hwreg': {'R1': 2}}}}}}")));
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=1}"}));
	EXPECT_EQ(node(setting_id("S#M") + 18u), "32 IP_CONFIG c35 n33");
	EXPECT_EQ(load(map.get(), u16{32}), (Lines{"REGISTER {1=2}"}));
}

TEST_F(PimInsert, NameOutsideTheAlphabetIsStoredButNotIndexed)
{
	add_registers(1);
	EXPECT_TRUE(insert(
		groups("'A-1': {'settings': {'S': {'group': {'M+2': {'hwreg': {'R0': 1}}}}}}")));
	EXPECT_EQ(take_log(), "[ctrie_insert][176]insert wrong string member = 45\n"
			      "[ctrie_insert][176]insert wrong string member = 43\n");
	EXPECT_EQ(node(4), "4 STRING 'A-1'");
	EXPECT_EQ(node(16), "16 STRING 'S#M+2'");
	EXPECT_EQ(load(map.get(), u16{14}), (Lines{"REGISTER {0=1}"}));
}

// ---- settings ----

TEST_F(PimInsertSetting, LevelWordsAreExact)
{
	struct {
		const char *value;
		u32 level;
	} const cases[] = {
		{"'IND'", 0},  {"'PI'", 1},	 {"'L1'", 2},	{"'L2'", 3},   {"'L3'", 4},
		{"'SYNC'", 7}, {"'l1'", 5},	 {"'Sync'", 5}, {"'ind'", 5},  {"'IND '", 5},
		{"' IND'", 5}, {"'INDI'", 5},	 {"'IN'", 5},	{"''", 5},     {"'L'", 5},
		{"'L4'", 5},   {"'DEFAULT'", 5}, {"0", 5},	{"2", 5},      {"'0x2'", 5},
		{"true", 5},   {"null", 5},	 {"['L1']", 5}, {"{'L1': 1}", 5},
	};
	for (const auto &row : cases) {
		ASSERT_TRUE(map.init());
		EXPECT_TRUE(insert(setting(std::string("'1.PQlevel': ") + row.value)));
		EXPECT_EQ(node(12), "12 LEVEL " + std::to_string(row.level)) << row.value;
	}
}

TEST_F(PimInsertSetting, WithoutAnyKeyIsOrdinaryAndOfTheDefaultLevel)
{
	for (const char *value : {"{}", "{'Other': 1}", "[]", "5", "null", "'text'"}) {
		SCOPED_TRACE(value);
		ASSERT_TRUE(map.init());
		EXPECT_TRUE(insert(groups(std::string("'A': {'settings': {'S': ") + value + "}}")));
		EXPECT_EQ(nodes(map.get(), 7),
			  (Lines{"7 GENERAL c8", "8 IP_SETTING n9", "9 PROPERTY c10 n11",
				 "10 STRING 'S'", "11 PQLEVEL c12", "12 LEVEL 5"}));
	}
}

TEST_F(PimInsertSetting, WithoutGroupMembersHasNoConfigurationsNotEvenACommonOne)
{
	for (const char *group : {"", ", 'group': {}", ", 'group': []", ", 'group': 5",
				  ", 'group': null", ", 'group': 'text'"}) {
		SCOPED_TRACE(group);
		ASSERT_TRUE(map.init());
		EXPECT_TRUE(insert(setting(std::string("'commonReg': true") + group)));
		EXPECT_EQ(node_count(map.get()), 1 + kNodesOfAnIp + kNodesOfASetting);
		EXPECT_EQ(node(8), "8 IP_SETTING n9");
		EXPECT_EQ(setting_id("S#commonReg"), VEXIL_NO_ID);
	}
}

TEST_F(PimInsertSetting, OnlyTrueMakesACommonGroup)
{
	add_registers(1);
	struct {
		const char *members;
		bool common;
	} const cases[] = {
		{"'commonReg': true, ", true},
		{"'commonReg': false, ", false},
		{"'commonReg': 1, ", false},
		{"'commonReg': 'true', ", false},
		{"'commonReg': '0x1', ", false},
		{"'commonReg': null, ", false},
		{"'commonReg': {}, ", false},
		{"'commonReg': [true], ", false},
		{"'commonGroup': true, ", false},
		{"'commonGroup': {}, 'commonReg': true, ", true},
		{"'commonGroup': {}, 'commonReg': false, ", false},
		{"", false},
	};
	for (const auto &row : cases) {
		SCOPED_TRACE(row.members);
		ASSERT_TRUE(map.init());
		add_registers(1);
		EXPECT_TRUE(insert(setting(std::string(row.members) +
					   "'group': {'M': {'hwreg': {'R0': 1}}}")));
		EXPECT_EQ(setting_id("S#commonReg") != VEXIL_NO_ID, row.common);
		EXPECT_EQ(loaded("S#M"), row.common ? Lines{} : Lines{"REGISTER {0=1}"});
	}
}

TEST_F(PimInsertSetting, PresetWinsOverLevelAndCommonGroup)
{
	add_registers(1);
	EXPECT_TRUE(
		insert(setting("'1.PQlevel': 'SYNC', 'commonReg': true, '1.PresetRegs': 'T', "
			       "'group': {'M': {'hwreg': {'R0': 1}}, 'N': {'hwreg': {'R0': 1}}}")));
	EXPECT_EQ(node(13), "13 LEVEL 6");
	EXPECT_EQ(setting_id("S#commonReg"), VEXIL_NO_ID);
	EXPECT_EQ(load(map.get(), preset_id("S#M")), (Lines{"REGISTER {0=1}"}));
	EXPECT_EQ(load(map.get(), preset_id("S#N")), (Lines{"REGISTER {0=1}"}));
}

TEST_F(PimInsertSetting, OnlyAStringMakesAPreset)
{
	for (const char *value : {"5", "'0x10'", "true", "null", "{}", "['T']"}) {
		SCOPED_TRACE(value);
		ASSERT_TRUE(map.init());
		EXPECT_TRUE(insert(setting(std::string("'1.PresetRegs': ") + value +
					   ", '1.PQlevel': 'L2', 'group': {'M': {}}")));
		EXPECT_EQ(node(12), "12 LEVEL 3");
		EXPECT_EQ(node(14), "14 IP_CONFIG n15");
		EXPECT_EQ(preset_id("S#M"), VEXIL_NO_ID);
	}
}

TEST_F(PimInsertSetting, EmptyTableNameMakesAPresetToo)
{
	EXPECT_TRUE(insert(setting("'1.PresetRegs': '', 'group': {'M': {}}")));
	EXPECT_EQ(node(8), "8 STRING ''");
	EXPECT_EQ(node(13), "13 LEVEL 6");
	EXPECT_EQ(preset_id("S#M"), 15);
}

TEST_F(PimInsertSetting, PresetAndPlainConfigurationMayShareALabel)
{
	add_registers(2);
	EXPECT_TRUE(
		insert(groups("'A': {'settings': {'S': {'group': {'M': {'hwreg': {'R0': 1}}}}}},"
			      "'B': {'settings': {'S': {'1.PresetRegs': 'T', 'group': {"
			      "'M': {'hwreg': {'R1': 2}}}}}}")));
	EXPECT_EQ(load(map.get(), setting_id("S#M")), (Lines{"REGISTER {0=1}"}));
	EXPECT_EQ(load(map.get(), preset_id("S#M")), (Lines{"REGISTER {1=2}"}));
}

TEST_F(PimInsertSetting, MemberThatIsNoObjectIsAConfigurationWithoutBlocks)
{
	EXPECT_TRUE(insert(setting("'group': {'M': 5, 'N': null, 'O': 'text', 'P': [1]}")));
	EXPECT_EQ(node(14), "14 IP_CONFIG n15");
	for (const char *label : {"S#M", "S#N", "S#O", "S#P"})
		EXPECT_EQ(loaded(label), Lines{}) << label;
}

// ---- labels ----

TEST_F(PimInsertLabel, FitsTwoHundredFiftySixBytesWithItsNul)
{
	add_registers(1);
	const std::string name(127, 's');
	const std::string member(127, 'm'); // with "#" 255 characters
	EXPECT_TRUE(insert(groups("'A': {'settings': {'" + name + "': {'group': {'" + member +
				  "': {'hwreg': {'R0': 1}}}}}}")));
	EXPECT_EQ(loaded(name + "#" + member), (Lines{"REGISTER {0=1}"}));
}

TEST_F(PimInsertLabel, OfTwoHundredFiftySixCharactersIsRefused)
{
	struct {
		size_t setting;
		size_t member;
	} const cases[] = {{127, 128}, {128, 127}, {1, 254}, {254, 1}, {255, 0}, {256, 1}, {0, 255},
			   {3000, 1},  {1, 3000}};
	for (const auto &row : cases) {
		SCOPED_TRACE(std::to_string(row.setting) + " and " + std::to_string(row.member));
		ASSERT_TRUE(map.init());
		const std::string name(row.setting, 's');
		EXPECT_FALSE(insert(groups("'A': {'settings': {'" + name + "': {'group': {'" +
					   std::string(row.member, 'm') + "': {}}}}}")));
		EXPECT_EQ(take_log(), kLabelJoinError + failed_to_convert(name) + "\n");
		EXPECT_EQ(node(2), "2 IP n3"); // the setting is not linked
	}
}

TEST_F(PimInsertLabel, OfTheCommonConfigurationIsBoundInTheSameWay)
{
	const auto document = [](size_t length) {
		return groups("'A': {'settings': {'" + std::string(length, 's') +
			      "': {'commonReg': true, 'group': {'m': {}}}}}");
	};
	EXPECT_TRUE(insert(document(245))); // 245 + "#" + 9 = 255 characters
	EXPECT_NE(setting_id(std::string(245, 's') + "#commonReg"), VEXIL_NO_ID);
	EXPECT_FALSE(insert(document(246)));
	EXPECT_EQ(take_log(), kLabelJoinError + failed_to_convert(std::string(246, 's')) + "\n");
	EXPECT_EQ(setting_id(std::string(246, 's') + "#m"), VEXIL_NO_ID); // members come later
}

TEST_F(PimInsertLabel, NeedsANameOnBothSides)
{
	EXPECT_FALSE(insert(setting("'group': [{}]")));
	EXPECT_EQ(take_log(), kLabelJoinError + failed_to_convert("S") + "\n");
	EXPECT_FALSE(insert(setting("'group': [5]")));
	EXPECT_EQ(take_log(), kLabelJoinError + failed_to_convert("S") + "\n");
	EXPECT_FALSE(insert(setting("'group': [[{'M': {}}]]")));
	EXPECT_EQ(take_log(), kLabelJoinError + failed_to_convert("S") + "\n");
	EXPECT_FALSE(insert(groups("'A': {'settings': [{'group': {'M': {}}}]}")));
	EXPECT_TRUE(take_log().ends_with(failed_to_convert("(null)") + "\n"));
}

TEST_F(PimInsertLabel, MayHaveEmptyParts)
{
	EXPECT_TRUE(insert(groups("'': {'settings': {'': {'group': {'': {}}}}}")));
	EXPECT_EQ(setting_id("#"), 14);
	EXPECT_EQ(node(4), "4 STRING ''");
	EXPECT_EQ(ctrie_find(&map->ip_map, ""), INT_MIN);
}

TEST_F(PimInsertLabel, LeavesNoTailOfALongerOneBeforeIt)
{
	EXPECT_TRUE(insert(setting("'group': {'LongMemberName': {}, 'M': {}}")));
	EXPECT_EQ(node(16), "16 STRING 'S#LongMemberName'");
	EXPECT_EQ(node(20), "20 STRING 'S#M'");
}

TEST_F(PimInsertLabel, MemberNamedLikeTheCommonConfigurationIsStoredBesideIt)
{
	add_registers(2);
	EXPECT_TRUE(insert(setting("'commonReg': true, 'group': {'commonReg': {'hwreg': {'R0': 1, "
				   "'R1': 1}}, 'M': {'hwreg': {'R0': 1}}}")));
	EXPECT_EQ(loaded("S#commonReg"), (Lines{"RIU {0=1}"}));
	EXPECT_EQ(load(map.get(), u16{20}), (Lines{"REGISTER {1=1}"}));
}

// ---- failures ----

TEST_F(PimInsertSetting, ThatFailsIsNotLinkedAndWhatCameBeforeStays)
{
	add_registers(1);
	const std::string too_long(256, 'm');
	EXPECT_FALSE(insert(
		groups("'A': {'settings': {'S1': {'group': {'M': {'hwreg': {'R0': 1}}}}, "
		       "'S2': {'group': {'M': {'hwreg': {'R0': 2}}, '" +
		       too_long + "': {}}}, 'S3': {'group': {'M': {}}}}}, " + bare_ip("B"))));
	EXPECT_EQ(take_log(), kLabelJoinError + failed_to_convert("S2") + "\n");
	EXPECT_EQ(node(7), "7 GENERAL c8"); // S1's holder is the last
	EXPECT_EQ(loaded("S1#M"), (Lines{"REGISTER {0=1}"}));
	EXPECT_EQ(loaded("S2#M"),
		  (Lines{"REGISTER {0=2}"})); // made, and indexed, before the failure
	EXPECT_EQ(setting_id("S3#M"), VEXIL_NO_ID);
	EXPECT_EQ(ctrie_find(&map->ip_map, "B"), INT_MIN);
}

TEST_F(PimInsertStore, AcceptsMoreAfterAFailure)
{
	EXPECT_FALSE(insert(setting("'group': [5]")));
	take_log();
	EXPECT_TRUE(insert(groups("'B': {'settings': {'T': {'group': {'M': {}}}}}")));
	EXPECT_NE(setting_id("T#M"), VEXIL_NO_ID);
	EXPECT_EQ(node(1), "1 GENERAL c2 n" + std::to_string(ctrie_find(&map->ip_map, "B") - 1));
}

constexpr size_t kMaxNodes = 65535;

TEST_F(PimInsertStore, DocumentThatNeedsMoreNodesThanThereAreFailsCleanly)
{
	add_registers(1);
	ASSERT_TRUE(insert(groups("'First': {'settings': {'Before': {'group': {'M': {'hwreg': "
				  "{'R0': 9}}}}}}")));
	std::string members;
	for (int i = 0; i < 17000; ++i) // four nodes each
		members += (i ? ", 'M" : "'M") + std::to_string(i) + "': {}";
	EXPECT_FALSE(insert(groups("'A': {'settings': {'S': {'group': {" + members + "}}}}, " +
				   bare_ip("B"))));
	EXPECT_EQ(take_log(), failed_to_convert("S") + "\n");
	EXPECT_EQ(map->builder.err_code, EXTMEM_OUT_OF_RANGE);
	EXPECT_EQ(node_count(map.get()), kMaxNodes + 1); // the refused request keeps its slot
	EXPECT_EQ(loaded("Before#M"), (Lines{"REGISTER {0=9}"}));
	EXPECT_EQ(ctrie_find(&map->ip_map, "B"), INT_MIN);

	EXPECT_FALSE(insert(groups(bare_ip("B"))));
	take_log();
	ImageBytes image = image_of(map.get());
	Map adopted;
	EXPECT_TRUE(adopt(adopted, image));
	EXPECT_EQ(load(adopted.get(), "Before#M"), (Lines{"REGISTER {0=9}"}));
}

/** A document of every node shape. */
std::string every_shape()
{
	return groups("'F': {'A': {'settings': {"
		      "'S': {'commonReg': true, 'group': {'M': {'hwreg': {'R0': 1, 'R1': 2}, "
		      "'swreg': {'V': 3}, 'lut': {'L': 'file'}, 'alg': {'E': 'file'}, "
		      "'hwaddr': {'0x40': 4}, 'cus_swreg': {'C': 5}}, 'N': {'hwreg': {'R0': 1}}}},"
		      "'P': {'1.PresetRegs': 'T', 'group': {'M': {'hwreg': {'R1': 6}}}}}}}");
}

void prepare_every_shape(pim *map)
{
	for (u32 i = 0; i < 2; ++i)
		ASSERT_TRUE(pim_insert_regmap(map, ("R" + std::to_string(i)).c_str(), i));
	ASSERT_TRUE(pim_insert_vregmap(map, "V", 10));
	ASSERT_TRUE(pim_insert_cus_vregmap(map, "C", 20));
	ASSERT_TRUE(pim_insert_handler(map, "L", record_table<0>));
	ASSERT_TRUE(pim_insert_alg_handler(map, record_algorithm));
	ASSERT_TRUE(pim_insert_file(map, "file", "bytes", 5));
	ASSERT_TRUE(
		insert(map, groups("'Before': {'settings': {'Before': {'group': {'M': {'hwreg': "
				   "{'R0': 9}}}}}}")));
}

TEST_F(PimInsertStore, EveryNodeOfADocumentCanBeTheOneThatIsNotThere)
{
	prepare_every_shape(map.get());
	const size_t before = node_count(map.get());
	ASSERT_TRUE(insert(every_shape()));
	const size_t needed = node_count(map.get()) - before;
	// Folder and IP, two settings, table name, common registers, configurations, lists, files.
	ASSERT_EQ(needed, 2 * 6 + 2 * 6 + 1 + 6 + 3 * 4 + 5 * 2 + 2 * 4);

	for (size_t room = 0; room <= needed; ++room) {
		SCOPED_TRACE(std::to_string(room) + " of " + std::to_string(needed) +
			     " nodes left");
		ASSERT_TRUE(map.init());
		prepare_every_shape(map.get());
		while (node_count(map.get()) < kMaxNodes - room)
			ASSERT_NE(extmem_request_node(&map->builder, EXTMEM_TAG_UNSPECIFIED).id,
				  0xFFFF);
		EXPECT_EQ(insert(every_shape()), room == needed);
		EXPECT_EQ(loaded("Before#M"), (Lines{"REGISTER {0=9}"}));
		const std::string log = take_log();
		if (room == needed) {
			EXPECT_EQ(log, "");
			EXPECT_EQ(loaded("S#M"),
				  (Lines{"REGISTER {1=2}", "VREGISTER {10=3}",
					 "table0 DATA [bytes]", "ADDR {64=4}",
					 "CUS_VREGISTER {20=5}", "algorithm DATA [bytes] 'E'"}));
		} else if (room >= 2 * kNodesOfAnIp) {
			EXPECT_TRUE(log == failed_to_convert("S") + "\n" ||
				    log == failed_to_convert("P") + "\n")
				<< log;
		}
	}
}

TEST_F(PimInsertStore, EveryAllocationOfADocumentCanFail)
{
	const Json document = json(every_shape());
	ASSERT_TRUE(document);
	const std::vector<std::string> labels = {"S#commonReg", "S#M", "S#N", "P#M"};
	std::vector<Lines> expected;
	prepare_every_shape(map.get());
	ASSERT_TRUE(pim_insert(map.get(), document.get()));
	for (const std::string &label : labels)
		expected.push_back(loaded(label));

	for (const bool all_later : {false, true}) {
		bool refused = true;
		for (size_t nth = 1; refused; ++nth) {
			SCOPED_TRACE((all_later ? "all from " : "only ") + std::to_string(nth));
			ASSERT_TRUE(map.init());
			prepare_every_shape(map.get());
			bool done;
			{
				const Refuse refuse =
					all_later ? Refuse::from(nth) : Refuse::only(nth);
				done = pim_insert(map.get(), document.get());
				refused = refuse.happened();
			}
			EXPECT_EQ(done, !refused);
			take_log();
			EXPECT_EQ(loaded("Before#M"), (Lines{"REGISTER {0=9}"}));
			if (!done) { // what is missing can be inserted then
				EXPECT_TRUE(pim_insert(map.get(), document.get()));
				take_log();
			}
			for (size_t i = 0; i < labels.size(); ++i)
				EXPECT_EQ(loaded(labels[i]), expected[i]) << labels[i];
			ASSERT_LT(nth, 1000u);
		}
	}
}

TEST_F(PimInsertStore, GivesEveryScratchBlockBack)
{
	prepare_every_shape(map.get());
	const Json document = json(every_shape());
	ASSERT_TRUE(document);
	const size_t before = live_blocks();
	ASSERT_TRUE(pim_insert(map.get(), document.get()));
	const size_t first = live_blocks() - before;
	// The same names again: no trie grows, and nothing else may stay allocated.
	ASSERT_TRUE(pim_insert(map.get(), document.get()));
	EXPECT_EQ(live_blocks() - before, first);
}

} // namespace
