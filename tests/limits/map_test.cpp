// SPDX-License-Identifier: MIT
//
// The limits of maps, one group each: one below and at the limit everything works, as built and as
// adopted; one above is refused as documented, and leaves what was there.
#include "tests/limits/limits.h"

namespace {

using namespace vexil_test;

using LimitMapNodes = LimitTest;
using LimitMergedNodes = LimitTest;
using LimitHandlers = LimitTest;
using LimitCommonRegisters = LimitTest;
using LimitLabels = LimitTest;
using LimitFolders = LimitTest;
using LimitPositions = LimitTest;
using LimitAddresses = LimitTest;
using LimitNotes = LimitTest;
using LimitVersions = LimitTest;
using LimitVersionTexts = LimitTest;
using LimitFiles = LimitTest;
using LimitNames = LimitTest;
using LimitBudget = LimitTest;
using LimitIds = LimitTest;
using LimitRegisterTable = LimitTest;
using LimitFields = LimitTest;
using LimitDomains = LimitTest;
using LimitLevels = LimitTest;
using LimitCounters = LimitTest;
using LimitJoining = LimitTest;

const std::string kFolderTooDeep = "[__pim_find_ip][1274]vexil lib fail!!\n";
const std::string kLabelTooLong = "[VEXIL][PIM][__pim_get_ip] label join error.";

std::string config_of(const std::string &ip, const std::string &name, const std::string &sections)
{
	return "'" + ip + "': {'settings': {'" + name + "': {'group': {'M': {" + sections + "}}}}}";
}

// ---- nodes ----

/**
 * Members that make a map of @total nodes, its root among them: 18 in "Before", the rest in
 * "Filler" and a file. @last receives the label of the last configuration.
 */
std::string filling(pim *map, size_t total, const std::string &stem, std::string *last = nullptr)
{
	constexpr size_t kBefore = 6 + 6 + 6, kFiller = 6 + 6, kFile = 5, kMember = 4, kList = 2;
	size_t left = total - 1 - kBefore - kFiller;
	if (left % 2 != 0) {
		EXPECT_TRUE(pim_insert_file(map, "odd.bin", "odd", 3));
		left -= kFile;
	}
	const size_t members = left / kMember;
	const bool list = left % kMember == kList;
	if (last)
		*last = "F" + stem + "#" + std::to_string(members - 1);
	return config_of("Before" + stem, "B" + stem, "'hwreg': {'R0': 5}") + ", 'Filler" + stem +
	       "': {'settings': {'F" + stem + "': {'group': {" +
	       listed(members,
		      [&](size_t i) {
			      return "'" + std::to_string(i) + "': {" +
				     (list && i + 1 == members ? "'hwreg': {'R0': 9}" : "") + "}";
		      }) +
	       "}}}}";
}

TEST_F(LimitMapNodes, UpTo65535Work)
{
	for (const size_t total : {kMostNodeIds - 1, kMostNodeIds}) {
		SCOPED_TRACE(total);
		fresh();
		add_registers(1);
		std::string last;
		ASSERT_TRUE(insert(groups(filling(map.get(), total, "", &last))));
		EXPECT_EQ(node_count(map.get()), total);
		ASSERT_TRUE(ship_map());
		EXPECT_EQ(node_count(run_map.get()), total);
		EXPECT_EQ(loaded("B#M"), Lines{"REGISTER {0=5}"});
		// The last member's nodes are the last of all.
		const u16 id = pim_query_setting_id(run_map.get(), last.c_str());
		ASSERT_NE(id, kNoId) << last;
		EXPECT_GE(id, total - 6);
		char *label = nullptr;
		pim_get_setting(run_map.get(), id, &label);
		EXPECT_STREQ(label, last.c_str());
	}
}

TEST_F(LimitMapNodes, OneMoreIsRefusedAndTheRestWorks)
{
	add_registers(1);
	EXPECT_FALSE(insert(groups(filling(map.get(), kMostNodeIds + 1, ""))));
	EXPECT_EQ(take_log(), failed_to_convert("F") + "\n");
	EXPECT_EQ(map->builder.err_code, EXTMEM_OUT_OF_RANGE);
	ASSERT_TRUE(ship_map());
	EXPECT_EQ(loaded("B#M"), Lines{"REGISTER {0=5}"});
	EXPECT_EQ(pim_query_setting_id(run_map.get(), "F#0"), kNoId);
}

TEST_F(LimitMapNodes, FullMapTakesNothingAndWorks)
{
	add_registers(1);
	ASSERT_TRUE(insert(groups(filling(map.get(), kMostNodeIds, ""))));
	EXPECT_FALSE(insert(groups(config_of("More", "N", "'hwreg': {'R0': 1}"))));
	EXPECT_EQ(take_log(), kFolderTooDeep);
	EXPECT_FALSE(pim_insert_file(map.get(), "more.bin", "more", 4));
	EXPECT_EQ(ctrie_find(&map->ip_map, "More"), INT_MIN);
	EXPECT_EQ(ctrie_find(&map->file_map, "more.bin"), INT_MIN);
	EXPECT_TRUE(pim_insert_handler(map.get(), "label", record_table<0>)); // takes no node
	ASSERT_TRUE(ship_map());
	EXPECT_EQ(loaded("B#M"), Lines{"REGISTER {0=5}"});
	EXPECT_EQ(loaded("F#0"), Lines{});
	EXPECT_NE(pim_query_setting_id(run_map.get(), "F#100"), kNoId);
}

TEST_F(LimitMergedNodes, UpTo65535WorkAndOneMoreIsRefused)
{
	constexpr size_t kBaseNodes = 40000;
	Map base, sub;
	ASSERT_TRUE(base.init());
	ASSERT_TRUE(pim_insert_regmap(base.get(), "R0", 0));
	ASSERT_TRUE(vexil_test::insert(base.get(), groups(filling(base.get(), kBaseNodes, "1"))));
	for (const size_t sum : {kMostNodeIds - 1, kMostNodeIds, kMostNodeIds + 1}) {
		SCOPED_TRACE(sum);
		fresh();
		ASSERT_TRUE(sub.init());
		ASSERT_TRUE(pim_insert_regmap(sub.get(), "R0", 0));
		ASSERT_TRUE(vexil_test::insert(sub.get(),
					       groups(filling(sub.get(), sum - kBaseNodes, "2"))));
		ASSERT_EQ(node_count(sub.get()), sum - kBaseNodes);
		if (sum > kMostNodeIds) {
			EXPECT_FALSE(pim_merge(map.get(), base.get(), sub.get()));
			EXPECT_EQ(map->builder.err_code, EXTMEM_OUT_OF_RANGE);
			EXPECT_EQ(load(base.get(), "B1#M"), Lines{"REGISTER {0=5}"});
			EXPECT_EQ(load(sub.get(), "B2#M"), Lines{"REGISTER {0=5}"});
			continue;
		}
		ASSERT_TRUE(pim_merge(map.get(), base.get(), sub.get()));
		EXPECT_EQ(node_count(map.get()), sum);
		ASSERT_TRUE(ship_map());
		EXPECT_EQ(loaded("B1#M"), Lines{"REGISTER {0=5}"});
		EXPECT_EQ(loaded("B2#M"), Lines{"REGISTER {0=5}"});
		EXPECT_GE(pim_query_setting_id(run_map.get(), "F2#0"), kBaseNodes);
	}
}

// ---- handlers ----

Lines &tables()
{
	static Lines lines;
	return lines;
}

template <size_t kNumber>
bool take_table(int, const char *data, u32 length, void *)
{
	tables().push_back(std::to_string(kNumber) + ":" + std::string(data, length));
	return true;
}

template <size_t... kNumbers>
vexil_callback table_handler(size_t number, std::index_sequence<kNumbers...>)
{
	static constexpr vexil_callback kHandlers[] = {take_table<kNumbers>...};
	return kHandlers[number];
}

TEST_F(LimitHandlers, UpTo64ReceiveTheirTables)
{
	constexpr size_t kMost = 64;
	const auto handler = [](size_t i) {
		return table_handler(i, std::make_index_sequence<kMost + 1>());
	};
	for (const size_t count : {kMost - 1, kMost, kMost + 1}) {
		SCOPED_TRACE(count);
		fresh();
		ASSERT_TRUE(pim_insert_file(map.get(), "t.bin", "t", 1));
		const auto label = [](size_t i) { return "label" + std::to_string(i); };
		for (size_t i = 0; i < count; ++i)
			EXPECT_EQ(pim_insert_handler(map.get(), label(i).c_str(), handler(i)),
				  i < kMost);
		ASSERT_TRUE(insert(config("'lut': {" + listed(count, "'label#': 't.bin'") + "}")));
		EXPECT_EQ(take_log(), count > kMost ? "[VEXIL][PIM][__pim_get_lut] Cannot find lut "
						      "file (null)\n"
						    : "");
		ASSERT_TRUE(ship_map());
		for (size_t i = 0; i < count; ++i)
			EXPECT_EQ(pim_insert_handler(run_map.get(), label(i).c_str(), handler(i)),
				  i < kMost);
		// A label that has a place keeps it.
		EXPECT_TRUE(pim_insert_handler(run_map.get(), "label0", handler(0)));
		Lines expected;
		for (size_t i = 0; i < std::min(count, kMost); ++i)
			expected.push_back(std::to_string(i) + ":t");
		tables().clear();
		EXPECT_EQ(loaded("S#M"), Lines{});
		ASSERT_EQ(tables().size(), 2 * expected.size());
		for (size_t i = 0; i < tables().size(); ++i)
			EXPECT_EQ(tables()[i], expected[i % expected.size()]);
	}
}

// ---- the registers that a group shares ----

TEST_F(LimitCommonRegisters, UpTo500AreShared)
{
	constexpr size_t kMost = 500;
	for (const size_t count : {kMost - 1, kMost, kMost + 1}) {
		SCOPED_TRACE(count);
		fresh();
		add_registers(count);
		const std::string list = "{'hwreg': {" + listed(count, "'R#': #") + "}}";
		ASSERT_TRUE(insert(setting("'commonReg': true, 'group': {'M': " + list +
					   ", 'N': " + list + "}")));
		ASSERT_TRUE(ship_map());
		std::string shared;
		for (size_t i = 0; i < std::min(count, kMost); ++i)
			shared += (i ? " " : "") + std::to_string(i) + "=" + std::to_string(i);
		EXPECT_EQ(loaded("S#commonReg"), Lines{"RIU {" + shared + "}"});
		// The one that is too many stays where it was.
		const Lines rest = count > kMost ? Lines{"REGISTER {500=500}"} : Lines{};
		EXPECT_EQ(loaded("S#M"), rest);
		EXPECT_EQ(loaded("S#N"), rest);
		Lines common;
		pim_load_common_reg_setting(run_map.get(), record_block, &common);
		EXPECT_EQ(common, Lines{"RIU {" + shared + "}"});
	}
}

// ---- labels ----

TEST_F(LimitLabels, UpTo255CharactersLoad)
{
	constexpr size_t kMost = 255;
	for (const size_t length : {kMost - 1, kMost, kMost + 1}) {
		for (const size_t name : {size_t{1}, length / 2, length - 2, length}) {
			SCOPED_TRACE(std::to_string(name) + " of " + std::to_string(length));
			fresh();
			add_registers(1);
			ASSERT_TRUE(insert(groups(config_of("Before", "B", "'hwreg': {'R0': 5}"))));
			// The whole length for the name leaves none for the member: one too many.
			const size_t member = name < length ? length - name - 1 : 1;
			const bool fits = name + 1 + member <= kMost;
			const std::string s(name, 's'), m(member, 'm');
			EXPECT_EQ(insert(groups("'A': {'settings': {'" + s + "': {'group': {'" + m +
						"': {'hwreg': {'R0': 7}}}}}}")),
				  fits);
			EXPECT_EQ(take_log(),
				  fits ? "" : kLabelTooLong + failed_to_convert(s) + "\n");
			ASSERT_TRUE(ship_map());
			EXPECT_EQ(loaded("B#M"), Lines{"REGISTER {0=5}"});
			if (!fits) {
				EXPECT_EQ(
					pim_query_setting_id(run_map.get(), (s + "#" + m).c_str()),
					kNoId);
				continue;
			}
			EXPECT_EQ(loaded(s + "#" + m), Lines{"REGISTER {0=7}"});
		}
	}
}

TEST_F(LimitLabels, OfCommonRegistersToo)
{
	constexpr size_t kMost = 255 - (sizeof "#commonReg" - 1);
	for (const size_t name : {kMost - 1, kMost, kMost + 1}) {
		SCOPED_TRACE(name);
		fresh();
		add_registers(1);
		const std::string s(name, 's');
		EXPECT_EQ(insert(groups("'A': {'settings': {'" + s +
					"': {'commonReg': true, 'group': {'M': {'hwreg': {'R0': "
					"7}}}}}}")),
			  name <= kMost);
		EXPECT_EQ(take_log(),
			  name <= kMost ? "" : kLabelTooLong + failed_to_convert(s) + "\n");
		ASSERT_TRUE(ship_map());
		if (name > kMost)
			continue;
		EXPECT_EQ(loaded(s + "#commonReg"), Lines{"RIU {0=7}"});
	}
}

// ---- folders ----

TEST_F(LimitFolders, UpToEightLieInsideEachOther)
{
	constexpr size_t kMost = 8;
	for (const size_t folders : {kMost - 1, kMost, kMost + 1}) {
		SCOPED_TRACE(folders);
		fresh();
		add_registers(1);
		const std::string first = config_of("Before", "B", "'hwreg': {'R0': 5}");
		const std::string inner = config_of("A", "S", "'hwreg': {'R0': 7}");
		const bool fits = folders <= kMost;
		std::string opened;
		for (size_t i = 0; i < folders; ++i)
			opened += "'F" + std::to_string(i) + "': {";
		EXPECT_EQ(insert(groups(first + ", " + opened + inner + std::string(folders, '}'))),
			  fits);
		EXPECT_EQ(take_log(), fits ? "" : kFolderTooDeep);
		ASSERT_TRUE(ship_map());
		EXPECT_EQ(loaded("B#M"), Lines{"REGISTER {0=5}"});
		vexil_version version;
		for (size_t i = 0; i < folders; ++i)
			EXPECT_EQ(pim_get_pim_version(run_map.get(), &version,
						      ("F" + std::to_string(i)).c_str()),
				  i < kMost)
				<< i;
		EXPECT_EQ(pim_query_setting_id(run_map.get(), "S#M") != kNoId, fits);
		if (!fits)
			continue;
		EXPECT_EQ(loaded("S#M"), Lines{"REGISTER {0=7}"});
	}
}

// ---- numbers of documents ----

TEST_F(LimitPositions, OfHardwareRegistersUpTo0x7FFFFFFE)
{
	for (const u32 position : {0x7FFFFFFDu, 0x7FFFFFFEu, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
		const bool fits = position <= 0x7FFFFFFE;
		fresh();
		EXPECT_EQ(pim_insert_regmap(map.get(), "Single", position), fits) << position;
		const Json list = json("{'PqHWRegList': {'register': [{'Before': 1}, {'Listed': " +
				       std::to_string(position) + "}]}}");
		EXPECT_TRUE(pim_insert_regmap_json(map.get(), list.get()));
		ASSERT_TRUE(insert(config("'hwreg': {'Single': 1, 'Listed': 2, 'Before': 3}")));
		ASSERT_TRUE(ship_map());
		const std::string number = std::to_string(position);
		if (fits) {
			EXPECT_EQ(loaded("S#M"),
				  Lines{"REGISTER {" + number + "=1 " + number + "=2 1=3}"});
			continue;
		}
		EXPECT_EQ(
			take_log_lines(),
			(Lines{"[VEXIL][PIM][__pim_get_hwregister] Cannot find hw_register Single",
			       "[VEXIL][PIM][__pim_get_hwregister] Cannot find hw_register Listed"}));
		EXPECT_EQ(loaded("S#M"), Lines{"REGISTER {1=3}"});
	}
}

TEST_F(LimitPositions, OfVirtualRegistersAreAnyIntButTheOneThatMeansNone)
{
	for (const u32 value : {0x7FFFFFFFu, 0x80000000u, 0x80000001u, 0xFFFFFFFFu}) {
		const bool known = value != 0x80000000;
		fresh();
		EXPECT_TRUE(pim_insert_vregmap(map.get(), "V", value));
		EXPECT_TRUE(pim_insert_cus_vregmap(map.get(), "V", value));
		ASSERT_TRUE(insert(config("'swreg': {'V': 1}, 'cus_swreg': {'V': 2}")));
		ASSERT_TRUE(ship_map());
		const std::string number = std::to_string(value);
		EXPECT_EQ(loaded("S#M"), known ? (Lines{"VREGISTER {" + number + "=1}",
							"CUS_VREGISTER {" + number + "=2}"})
					       : Lines{});
		EXPECT_EQ(take_log_lines().size(), known ? 0u : 2u);
	}
}

TEST_F(LimitAddresses, KeepTheirLower32BitsOf64)
{
	const struct {
		const char *address;
		const char *pair; // null: refused
	} rows[] = {
		{"0", nullptr},
		{"1", "1=7"},
		{"4294967295", "4294967295=7"},
		{"4294967296", "0=7"},
		{"0xFFFFFFFFFFFFFFFE", "4294967294=7"},
		{"0xFFFFFFFFFFFFFFFF", "4294967295=7"},
		{"18446744073709551615", "4294967295=7"},
		{"18446744073709551616", nullptr},
		{"0x10000000000000000", nullptr},
	};
	for (const auto &row : rows) {
		SCOPED_TRACE(row.address);
		fresh();
		ASSERT_TRUE(insert(
			config("'hwaddr': {'" + std::string(row.address) + "': 7, '16': 8}")));
		ASSERT_TRUE(ship_map());
		EXPECT_EQ(
			loaded("S#M"),
			Lines{"ADDR {" + (row.pair ? row.pair + std::string(" ") : "") + "16=8}"});
		EXPECT_EQ(take_log(), row.pair ? ""
					       : "[VEXIL][PIM][__pim_get_hwaddr] Error hw_addr " +
							 std::string(row.address) + "\n");
	}
}

// ---- versions ----

TEST_F(LimitNotes, Hold31Characters)
{
	for (const size_t length : {30u, 31u, 32u, 300u}) {
		fresh();
		const std::string note(length, 'n');
		ASSERT_TRUE(insert("{'VexilVersion': {'#version': {'MajorVersion': 2, 'Note': '" +
				   note + "'}}}"));
		ASSERT_TRUE(rm_insert(rules.get(), json("{}").get(), map.get()));
		ASSERT_TRUE(rm_finish(rules.get()));
		ASSERT_TRUE(ship());
		char *text = nullptr;
		for (pim *each : {map.get(), run_map.get()}) {
			ASSERT_TRUE(pim_get_cus_version(each, &text));
			EXPECT_EQ(text, note.substr(0, 31));
		}
		for (rm *each : {rules.get(), run_rules.get()}) {
			ASSERT_TRUE(rm_get_cus_version(each, &text));
			EXPECT_EQ(text, note.substr(0, 31));
		}
	}
}

TEST_F(LimitVersions, From2To2Point2)
{
	const struct {
		u16 major, minor;
		bool supported;
	} rows[] = {{1, 0xFFFF, false}, {2, 0, true},  {2, 1, true}, {2, 2, true},
		    {2, 3, false},      {3, 0, false}, {0, 2, false}};
	for (const auto &row : rows) {
		SCOPED_TRACE(std::to_string(row.major) + "." + std::to_string(row.minor));
		fresh();
		add_registers(1);
		const std::string version =
			"'#version': {'MajorVersion': " + std::to_string(row.major) +
			", 'MinorVersion': " + std::to_string(row.minor) + "}";
		const std::string ip =
			"'A': {" + version +
			", 'settings': {'S': {'group': {'M': {'hwreg': {'R0': 7}}}}}}";
		EXPECT_EQ(insert("{'VexilVersion': {" + version + "}, 'PqFuncGroups': {'X': {}}}"),
			  row.supported);
		EXPECT_EQ(insert(groups(ip)), row.supported);
		EXPECT_EQ(declare(version + ", 'E': {'content': ['a']}"), row.supported);
		EXPECT_TRUE(add("'R': {" + version + ", 'rules': []}"));
		EXPECT_EQ(rules->rulename_map.buf_used != 0,
			  row.supported); // passed over otherwise
		ASSERT_TRUE(rm_finish(rules.get()));
		ASSERT_TRUE(ship());
		EXPECT_EQ(pim_query_setting_id(run_map.get(), "S#M") != kNoId, row.supported);

		// The same gate for images.
		ImageBytes other_map = image_of(map.get()), other_rules = image_of(rules.get());
		const vexil_version code{row.major, row.minor, 0};
		other_map.put(72, code);
		other_rules.put(72, code);
		const auto expected =
			row.supported ? VEXIL_IMAGE_SOUND : VEXIL_IMAGE_UNKNOWN_VERSION;
		EXPECT_EQ(fault_of(other_map).code, expected);
		EXPECT_EQ(fault_of(other_rules).code, expected);
		Map adopted_map;
		Rules adopted_rules;
		EXPECT_EQ(adopt(adopted_map, other_map), row.supported);
		EXPECT_EQ(adopt(adopted_rules, other_rules), row.supported);
	}
}

TEST_F(LimitVersionTexts, PartsUpTo127Characters)
{
	for (const size_t length : {126u, 127u, 128u}) {
		fresh();
		const std::string part = std::string(length - 1, '0') + "2";
		EXPECT_EQ(insert("{'VexilVersion': {'#version': {'JsonVersionFormat': '" + part +
				 "." + part + "'}}, 'PqFuncGroups': {'A': {}}}"),
			  length <= 127);
		vexil_version version;
		ASSERT_TRUE(pim_get_version(map.get(), &version));
		EXPECT_EQ(version, length <= 127 ? (vexil_version{2, 2, 0}) : vexil_version{});
		EXPECT_EQ(ctrie_find(&map->ip_map, "A") != INT_MIN, length <= 127);
	}
}

TEST_F(LimitVersionTexts, NumbersKeepTheirLowerBits)
{
	const struct {
		const char *members;
		vexil_version version;
	} rows[] = {
		{"'MajorVersion': 65535, 'MinorVersion': 65536", {65535, 0, 0}},
		{"'JsonVersionFormat': 'ffff.10000'", {65535, 0, 0}},
		{"'Revision': 4294967295", {0, 0, 4294967295}},
		{"'Revision': 4294967296", {0, 0, 0}},
		{"'Revision': 'ffffffff'", {0, 0, 4294967295}},
		{"'Revision': 'ffffffffffffffff'", {0, 0, 4294967295}},
		{"'Revision': '10000000000000000'", {0, 0, 0}},
	};
	for (const auto &row : rows) {
		fresh();
		const Json list = json("{'PqHWRegList': {'register': [{'R': 1}], '0.version': {" +
				       std::string(row.members) + "}}}");
		EXPECT_TRUE(pim_insert_regmap_json(map.get(), list.get()));
		ASSERT_TRUE(ship_map());
		for (pim *each : {map.get(), run_map.get()}) {
			vexil_version version;
			ASSERT_TRUE(pim_get_hwreg_version(each, &version));
			EXPECT_EQ(version, row.version) << row.members;
		}
	}
}

// ---- files and names ----

TEST_F(LimitFiles, HoldOneByteAtLeast)
{
	for (const u32 size : {0u, 1u, 2u, 7u, 8u, 9u, 1u << 20}) {
		fresh();
		const std::string bytes(size, 'x');
		EXPECT_EQ(pim_insert_file(map.get(), "f.bin", bytes.data(), size), size > 0);
		ASSERT_TRUE(insert(config("'alg': {'entry': 'f.bin'}")));
		EXPECT_EQ(take_log(), size ? ""
					   : "[VEXIL][PIM][__pim_get_alg] Cannot find alg file "
					     "f.bin\n");
		ASSERT_TRUE(ship_map());
		for (pim *each : {map.get(), run_map.get()})
			ASSERT_TRUE(pim_insert_alg_handler(each, record_algorithm));
		EXPECT_EQ(loaded("S#M"),
			  size ? Lines{"algorithm DATA [" + bytes + "] 'entry'"} : Lines{});
	}
}

TEST_F(LimitNames, HaveOneCharacterAtLeastAndNoLongestOne)
{
	for (const size_t length : {0u, 1u, 255u, 256u, 1023u, 1024u, 1025u, 100000u}) {
		SCOPED_TRACE(length);
		fresh();
		const std::string name(length, 'n');
		const bool fits = length > 0;
		EXPECT_EQ(pim_insert_file(map.get(), name.c_str(), "f", 1), fits);
		EXPECT_EQ(pim_insert_handler(map.get(), name.c_str(), record_table<0>), fits);
		EXPECT_EQ(pim_insert_regmap(map.get(), name.c_str(), 3), fits);
		ASSERT_TRUE(insert(groups("'" + name +
					  "': {'settings': {'S': {'group': {'M': "
					  "{'hwreg': {'" +
					  name + "': 4}, 'lut': {'" + name + "': '" + name +
					  "'}}}}}}")));
		take_log(); // what the empty name was not found for
		ASSERT_TRUE(ship_map());
		if (!fits)
			continue;
		EXPECT_TRUE(pim_insert_handler(run_map.get(), name.c_str(), record_table<0>));
		EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {3=4}", "table0 DATA [f]"}));
		vexil_version version;
		EXPECT_TRUE(pim_get_pim_version(run_map.get(), &version, name.c_str()));
	}
}

TEST_F(LimitNames, HaveCharactersUpTo127)
{
	for (const int code : {int{'Z'}, int{'z'}, 'z' + 1, 126, 127, 128, 255}) {
		fresh();
		const std::string name{'a', static_cast<char>(code)};
		const bool fits = code == 'Z' || code == 'z';
		EXPECT_EQ(pim_insert_file(map.get(), name.c_str(), "f", 1), fits) << code;
		EXPECT_EQ(take_log(), fits ? ""
					   : "[ctrie_insert][176]insert wrong string member = " +
						      std::to_string(code) + "\n");
		EXPECT_TRUE(ship_map());
		EXPECT_EQ(ctrie_find(&run_map->file_map, name.c_str()) != INT_MIN, fits) << code;
	}
}

// ---- loading ----

TEST_F(LimitBudget, IsWhatTheBlocksHold)
{
	constexpr u32 kPairs = 6, kUnlimited = 0xFFFFFF;
	add_registers(kPairs);
	ASSERT_TRUE(insert(config("'hwreg': {" + listed(kPairs, "'R#': #") + "}, 'hwaddr': {" +
				  listed(kPairs, "'0x1#': #") + "}")));
	ASSERT_TRUE(ship_map());
	const struct {
		u32 budget;
		s32 left;
		size_t blocks;
	} rows[] = {
		{kPairs - 1, -1, 0},
		{kPairs, -s32{kPairs}, 1},
		{2 * kPairs - 1, -1, 1},
		{2 * kPairs, 0, 2},
		{2 * kPairs + 1, 1, 2},
		{kUnlimited - 1, kUnlimited - 1 - 2 * kPairs, 2},
		{kUnlimited, kUnlimited, 2},
		{kUnlimited + 1, kUnlimited + 1 - 2 * kPairs, 2},
		{0x7FFFFFFF, 0x7FFFFFFF - 2 * kPairs, 2},
	};
	for (pim *each : {map.get(), run_map.get()}) {
		const u16 id = pim_query_setting_id(each, "S#M");
		for (const auto &row : rows) {
			Lines blocks;
			EXPECT_EQ(static_cast<s32>(pim_load_setting_count(each, id, row.budget,
									  record_block, &blocks)),
				  row.left)
				<< row.budget;
			EXPECT_EQ(blocks.size(), row.blocks) << row.budget;
		}
	}
}

TEST_F(LimitIds, EndWithTheLastNode)
{
	add_registers(1);
	ASSERT_TRUE(insert(config("'hwreg': {'R0': 7}")));
	ASSERT_TRUE(ship_map());
	for (pim *each : {map.get(), run_map.get()}) {
		const auto count = static_cast<u16>(node_count(each));
		for (const u16 id :
		     {u16(count - 1), count, u16(count + 1), u16(0xFFFE), u16(0xFFFF)}) {
			const bool inside = id < count;
			Lines blocks;
			char *label = nullptr;
			u16 ids[] = {id};
			pim_load_setting(each, id, false, record_block, &blocks);
			EXPECT_EQ(pim_load_setting_count(each, id, 9, record_block, &blocks), 9u);
			pim_load_preset(each, ids, 1, "table", record_block, &blocks);
			pim_get_setting(each, id, &label);
			std::string log;
			for (const char *function :
			     {"load_setting", "load_setting_count", "load_preset", "get_setting"})
				log += "[VEXIL][PIM][pim_" + std::string(function) +
				       "] Invalid node id: " + std::to_string(id) + "\n";
			EXPECT_EQ(take_log(), inside ? "" : log) << id;
			EXPECT_EQ(blocks, Lines{});
			EXPECT_EQ(label, nullptr);
		}
	}
}

// ---- register tables ----

TEST_F(LimitRegisterTable, ServesItsOwnRegisters)
{
	add_registers(4);
	ASSERT_TRUE(insert(config("'hwreg': {'R0': 1, 'R1': 1, 'R2': 1, 'R3': 1}")));
	for (size_t rows = 1; rows <= 4; ++rows) {
		ASSERT_TRUE(ship_map(RegisterTable(rows, reg(1, 0, 0, 16))));
		// The rows of the table are one register; positions beyond it stay as they are.
		std::string rest;
		for (size_t i = rows; i < 4; ++i)
			rest += " " + std::to_string(i) + "=1";
		EXPECT_EQ(load(run_map.get(), "S#M"),
			  Lines{"ADDR {134217728=4294901761" + rest + "}" +
				(rows > 1 ? " +" + std::to_string(rows - 1) : "")});
	}
	ASSERT_TRUE(ship_map());
	EXPECT_EQ(loaded("S#M"), Lines{"REGISTER {0=1 1=1 2=1 3=1}"});
}

TEST_F(LimitFields, EndAtBit16)
{
	const struct {
		u32 lsb, width, value;
	} rows[] = {
		{0, 15, 0x7FFF0000 | 0x7FFF},
		{0, 16, 0xFFFF0000 | 0xFFFF},
		{0, 17, 0xFFFF},
		{1, 14, 0x7FFE0000 | 0x7FFE},
		{1, 15, 0xFFFE0000 | 0xFFFE},
		{1, 16, 0xFFFE},
		{15, 1, 0x80000000 | 0x8000},
		{15, 2, 0x8000},
		{16, 1, 0},
		{0, 0, 0},
		{0, 31, 0xFFFF},
		{0, 32, 0},
		{255, 1, 0},
	};
	add_registers(1);
	ASSERT_TRUE(insert(config("'hwreg': {'R0': 0xFFFFFFFF}")));
	for (const auto &row : rows) {
		ASSERT_TRUE(ship_map({reg(0, 0x08000010, row.lsb, row.width)}));
		EXPECT_EQ(load(run_map.get(), "S#M"),
			  Lines{"ADDR {16=" + std::to_string(row.value) + "}"})
			<< row.width << " bits from " << row.lsb;
	}
}

TEST_F(LimitDomains, Are16)
{
	add_registers(1);
	ASSERT_TRUE(insert(config("'hwreg': {'R0': 1}")));
	for (const u32 domain : {0u, 14u, 15u, 16u, 17u, 31u}) {
		SCOPED_TRACE(domain);
		ASSERT_TRUE(ship_map({reg(domain, 16, 0, 16)}));
		const u32 word = domain << 27 | 16;
		EXPECT_EQ(load(run_map.get(), "S#M"),
			  Lines{"ADDR {" + std::to_string(word) + "=4294901761}"});
		for (u32 asked = 0; asked < 16; ++asked)
			EXPECT_EQ(pim_get_reg_num(run_map.get(), static_cast<u8>(asked),
						  E_PQLV_DEFAULT),
				  asked == domain ? 1u : 0u);
		// The 17th place asks for all of them; beyond it there is nothing.
		EXPECT_EQ(pim_get_reg_num(run_map.get(), 16, E_PQLV_DEFAULT),
			  domain < 16 ? 1u : 0u);
		EXPECT_EQ(pim_get_reg_num(run_map.get(), 17, E_PQLV_DEFAULT), 0u);
		EXPECT_EQ(pim_get_reg_num(run_map.get(), 255, E_PQLV_MAX), 0u);
	}
}

TEST_F(LimitLevels, AreEight)
{
	for (const u32 level : {5u, 6u, 7u, 8u, 9u, 0xFFFFFFFFu}) {
		SCOPED_TRACE(level);
		PimImage plan;
		const u16 node = plan.setting(plan.ip("A"), "S", level);
		plan.list(plan.config(node, "S#M"), {{0, 1}});
		map_image = plan.write();
		// The verifier knows the eight levels; adoption takes others for the default one.
		EXPECT_EQ(fault_of(map_image).code,
			  level < 8 ? VEXIL_IMAGE_SOUND : VEXIL_IMAGE_LEVEL);
		table = {reg(3, 16, 0, 16)};
		Map adopted;
		ASSERT_TRUE(adopt(adopted, map_image, table));
		EXPECT_EQ(load(adopted.get(), "S#M"),
			  Lines{level == 7 ? "SYNC {0=1}" : "ADDR {402653200=4294901761}"});
		for (u32 asked = 0; asked < 8; ++asked)
			EXPECT_EQ(
				pim_get_reg_num(adopted.get(), 16, static_cast<EN_PQ_LEVEL>(asked)),
				asked == level && level != 7 ? 1u : 0u)
				<< asked;
		EXPECT_EQ(pim_get_reg_num(adopted.get(), 16, E_PQLV_MAX), level < 7 ? 1u : 0u);
		EXPECT_EQ(pim_get_reg_num(adopted.get(), 16, static_cast<EN_PQ_LEVEL>(9)), 0u);
	}
}

TEST_F(LimitCounters, EndAt65535)
{
	for (const u32 count : {65534u, 65535u, 65536u, 70000u}) {
		fresh();
		ASSERT_TRUE(insert(config("'hwaddr': {" + listed(count, "'1#': 1") + "}")));
		ASSERT_TRUE(ship_map({reg(0, 1, 0, 16)}));
		EXPECT_EQ(pim_get_reg_num(run_map.get(), 0, E_PQLV_DEFAULT),
			  std::min(count, 65535u));
		EXPECT_EQ(pim_get_reg_num(run_map.get(), 16, E_PQLV_MAX), std::min(count, 65535u));
		size_t bytes = 0;
		pim_load_setting_by_name(
			run_map.get(), "S#M",
			[](int, const char *, u32 length, void *to) {
				*static_cast<size_t *>(to) = length;
				return true;
			},
			&bytes);
		EXPECT_EQ(bytes, 8 + 8 * size_t{count}); // every one is delivered
	}
}

TEST_F(LimitJoining, GivesTheSameWithAndWithoutAnIndex)
{
	constexpr size_t kPlainPairs = 512; // longer lists are joined through an index
	for (const size_t count : {kPlainPairs - 1, kPlainPairs, kPlainPairs + 1}) {
		fresh();
		add_registers(count);
		ASSERT_TRUE(insert(config("'hwreg': {" + listed(count, "'R#': 1") + "}")));
		RegisterTable two_a_word; // even positions the low half, odd ones the high half
		std::string joined;
		for (size_t i = 0; i < count; ++i) {
			const auto address = static_cast<u32>(16 + i / 2);
			two_a_word.push_back(reg(0, address, i % 2 ? 8 : 0, 8));
			if (i % 2 == 0)
				joined += (i ? " " : "") + std::to_string(address) + "=" +
					  (i + 1 < count ? "4294902017" : "16711681");
		}
		ASSERT_TRUE(ship_map(two_a_word));
		EXPECT_EQ(load(run_map.get(), "S#M"),
			  Lines{"ADDR {" + joined + "} +" + std::to_string(count / 2)});
		EXPECT_EQ(pim_get_reg_num(run_map.get(), 0, E_PQLV_DEFAULT), (count + 1) / 2);
	}
}

} // namespace
