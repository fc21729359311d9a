// SPDX-License-Identifier: MIT
//
// Presets by register table, common registers of a whole map, labels of configurations.
#include "tests/support/pim_json.h"

namespace {

using namespace vexil_test;

/** Two preset settings of tables "PICTURE" and "COLOUR", and a plain one. */
class PimPreset : public PimTest {
protected:
	void SetUp() override
	{
		PimTest::SetUp();
		add_registers(4);
		ASSERT_TRUE(insert(groups(
			"'A': {'settings': {"
			"'P': {'1.PresetRegs': 'PICTURE', 'group': {'M': {'hwreg': {'R0': 1}}, "
			"'N': {'hwreg': "
			"{'R1': 2}}}},"
			"'Q': {'1.PresetRegs': 'COLOUR', 'group': {'M': {'hwreg': {'R2': 3}}}},"
			"'S': {'group': {'M': {'hwreg': {'R3': 4}}}}}}")));
		ids = {preset_id("P#M"), preset_id("P#N"), preset_id("Q#M"), setting_id("S#M")};
	}

	Lines presets(std::vector<u16> wanted, const char *table)
	{
		Lines lines;
		pim_load_preset(map.get(), wanted.data(), wanted.size(), table, record_block,
				&lines);
		return lines;
	}

	std::vector<u16> ids;
};

using PimCommonLoad = PimTest;
using PimLabel = PimTest;

const Lines kPicture = {"REGISTER {0=1}", "REGISTER {1=2}"};

// ---- presets ----

TEST_F(PimPreset, OfTheNamedTableAreLoadedInTheOrderOfTheIds)
{
	EXPECT_EQ(presets(ids, "PICTURE"), kPicture);
	EXPECT_EQ(presets(ids, "COLOUR"), (Lines{"REGISTER {2=3}"}));
	EXPECT_EQ(presets({ids[1], ids[2], ids[0], ids[1]}, "PICTURE"),
		  (Lines{"REGISTER {1=2}", "REGISTER {0=1}", "REGISTER {1=2}"}));
}

TEST_F(PimPreset, TableNameIsComparedExactlyAndWhole)
{
	for (const char *table : {"picture", "PICTUR", "PICTURES", "", " PICTURE", "COLOR"})
		EXPECT_EQ(presets(ids, table), Lines{}) << table;
}

TEST_F(PimPreset, WithAnEmptyTableNameAreFoundByTheEmptyName)
{
	ASSERT_TRUE(insert(
		groups("'B': {'settings': {'E': {'1.PresetRegs': '', 'group': {'M': {'hwreg': "
		       "{'R0': 9}}}}}}")));
	EXPECT_EQ(presets({ids[3], preset_id("E#M"), ids[0]}, ""), (Lines{"REGISTER {0=9}"}));
}

TEST_F(PimPreset, NullArgumentsAndNoIdsAreSilent)
{
	Lines lines;
	u16 invalid = 65535;
	pim_load_preset(nullptr, ids.data(), ids.size(), "PICTURE", record_block, &lines);
	pim_load_preset(map.get(), ids.data(), ids.size(), nullptr, record_block, &lines);
	pim_load_preset(map.get(), ids.data(), 0, "PICTURE", record_block, &lines);
	pim_load_preset(map.get(), nullptr, 0, "PICTURE", record_block, &lines);
	pim_load_preset(map.get(), nullptr, 3, "PICTURE", record_block, &lines);
	pim_load_preset(map.get(), ids.data(), ids.size(), "PICTURE", nullptr, &lines);
	pim_load_preset(map.get(), &invalid, 1, "PICTURE", nullptr, &lines);
	EXPECT_EQ(lines, Lines{});
}

TEST_F(PimPreset, IdOutsideTheMapEndsTheCallWhatCameBeforeIsLoaded)
{
	const u16 outside = static_cast<u16>(node_count(map.get()));
	for (const u16 id : {outside, u16{65534}, u16{65535}}) {
		EXPECT_EQ(presets({ids[0], id, ids[1], id}, "PICTURE"), (Lines{"REGISTER {0=1}"}));
		EXPECT_EQ(take_log(), "[VEXIL][PIM][pim_load_preset] Invalid node id: " +
					      std::to_string(id) + "\n");
	}
}

TEST_F(PimPreset, MapWithoutANodeBufferHasNoIds)
{
	extmem_builder_destroy(&map->builder);
	EXPECT_EQ(presets({0}, "PICTURE"), Lines{});
	EXPECT_EQ(take_log(), "[VEXIL][PIM][pim_load_preset] Invalid node id: 0\n");
}

TEST_F(PimPreset, NodesThatAreNoPresetsArePassedOver)
{
	std::vector<u16> every;
	for (u16 id = 0; id < node_count(map.get()); ++id)
		every.push_back(id);
	EXPECT_EQ(presets(every, "PICTURE"), kPicture);
}

TEST_F(PimPreset, LoadsWithoutABudgetAndEveryBlock)
{
	ASSERT_TRUE(pim_insert_vregmap(map.get(), "V", 7));
	std::string list;
	for (int i = 0; i < 1000; ++i)
		list += (i ? ", {'R0': " : "{'R0': ") + std::to_string(i) + "}";
	ASSERT_TRUE(
		insert(groups("'B': {'settings': {'L': {'1.PresetRegs': 'PICTURE', 'group': {'M': "
			      "{'hwreg': [" +
			      list + "], 'swreg': {'V': 8}}}}}}")));
	const Lines lines = presets({preset_id("L#M"), ids[0]}, "PICTURE");
	ASSERT_EQ(lines.size(), 3u);
	EXPECT_EQ(lines[1], "VREGISTER {7=8}");
	EXPECT_EQ(lines[2], "REGISTER {0=1}");
}

TEST_F(PimPreset, ConfigurationThatStopsDoesNotStopTheOthers)
{
	add_file("file", "bytes");
	ASSERT_TRUE(pim_insert_handler(map.get(), "L", nullptr));
	ASSERT_TRUE(
		insert(groups("'B': {'settings': {'L': {'1.PresetRegs': 'PICTURE', 'group': {'M': "
			      "{'lut': {'L': 'file'}, 'hwaddr': {'4': 1}}}}}}")));
	EXPECT_EQ(presets({ids[0], preset_id("L#M"), ids[1]}, "PICTURE"), kPicture);
	EXPECT_EQ(take_log(), "[VEXIL][PIM][__pim_load_node] Cannot find handler for L\n");
}

TEST_F(PimPreset, WorkInAnAdoptedImageToo)
{
	ASSERT_TRUE(adopt_image(image_of(map.get())));
	EXPECT_EQ(preset_id("P#N"), ids[1]);
	EXPECT_EQ(presets(ids, "PICTURE"), kPicture);
}

TEST_F(PimPreset, DamagedTableNamesMatchNothing)
{
	struct {
		const char *defect;
		void (*apply)(PimImage &, u16 config, u16 table);
	} const cases[] = {
		{"no NUL", [](PimImage &p, u16, u16 t) { p.record(t, 1, p.record_offset(t)); }},
		{"no data", [](PimImage &p, u16, u16 t) { p.record(t, 0, 0); }},
		{"outside", [](PimImage &p, u16, u16 t) { p.record(t, 2, 0x10000); }},
		{"wraps", [](PimImage &p, u16, u16 t) { p.record(t, 16, 0xFFFFFFF8); }},
		{"no text", [](PimImage &p, u16, u16 t) { p.tag(t, 22); }},
		{"no table", [](PimImage &p, u16 c, u16) { p.next(p.next(c), kNoId); }},
		{"table id outside", [](PimImage &p, u16 c, u16) { p.next(p.next(c), 9999); }},
		{"no property", [](PimImage &p, u16 c, u16) { p.next(c, kNoId); }},
	};
	for (const auto &row : cases) {
		SCOPED_TRACE(row.defect);
		PimImage plan;
		const u16 setting = plan.setting(plan.ip("A"), "P", 6);
		const u16 table = plan.add_text("T");
		const u16 config = plan.preset(setting, "P#M", table);
		plan.list(config, {{1, 2}});
		row.apply(plan, config, table);
		adopt_image(plan.write());
		ASSERT_TRUE(map.get());
		EXPECT_EQ(presets({config}, "T"), Lines{});
		EXPECT_EQ(presets({config}, ""), Lines{});
	}
}

// ---- common registers ----

/** Everything that pim_load_common_reg_setting delivers. */
Lines common_registers(pim *map)
{
	Lines lines;
	pim_load_common_reg_setting(map, record_block, &lines);
	return lines;
}

std::string common_setting(const std::string &name, int value)
{
	return "'" + name + "': {'commonReg': true, 'group': {'M': {'hwreg': {'R0': " +
	       std::to_string(value) + "}}, 'N': {'hwreg': {'R0': " + std::to_string(value) +
	       ", 'R1': 7}}}}";
}

TEST_F(PimCommonLoad, DeliversEveryCommonListIpByIpAndSettingBySetting)
{
	add_registers(2);
	add_file("first", "x");
	EXPECT_TRUE(insert(groups("'B': {'settings': {" + common_setting("S", 1) +
				  ", 'Plain': {'group': {'M': {'hwreg': {'R0': 9}}}}, " +
				  common_setting("T", 2) + "}}")));
	add_file("second", "x");
	EXPECT_TRUE(
		insert(groups("'F': {'A': {'settings': {" + common_setting("U", 3) +
			      "}}}, 'E': "
			      "{'settings': {'Empty': {'commonReg': true, 'group': {'M': {}}}}}")));
	const Lines expected = {"RIU {0=1}", "RIU {0=2}", "RIU {0=3}", "RIU {}"};
	EXPECT_EQ(common_registers(map.get()), expected);

	// Common lists keep function positions.
	ASSERT_TRUE(adopt_image(image_of(map.get()), RegisterTable(8, reg(3, 0x100, 0, 8))));
	EXPECT_EQ(common_registers(map.get()), expected);
}

TEST_F(PimCommonLoad, DeliversNothingWithoutCommonGroups)
{
	add_registers(2);
	EXPECT_EQ(common_registers(map.get()), Lines{});
	EXPECT_TRUE(insert(
		groups("'A': {'settings': {'S': {'group': {'commonReg': {'hwreg': {'R0': 1}}}},"
		       "'P': {'1.PresetRegs': 'T', 'commonReg': true, 'group': {'M': "
		       "{'hwreg': {'R0': 1}}}}}}")));
	EXPECT_EQ(common_registers(map.get()), Lines{});
}

TEST_F(PimCommonLoad, NullArgumentsAreSilent)
{
	add_registers(2);
	EXPECT_TRUE(insert(groups("'A': {'settings': {" + common_setting("S", 1) + "}}")));
	EXPECT_EQ(common_registers(nullptr), Lines{});
	pim_load_common_reg_setting(map.get(), nullptr, nullptr);
}

TEST_F(PimCommonLoad, MapWithoutANodeBufferDeliversNothing)
{
	extmem_builder_destroy(&map->builder);
	EXPECT_EQ(common_registers(map.get()), Lines{});
}

TEST_F(PimCommonLoad, PassesOverNodesOfOtherKinds)
{
	PimImage plan;
	const auto common_below = [&](u16 setting, u32 value) {
		plan.list(plan.config(setting, "c" + std::to_string(value),
				      EXTMEM_TAG_IP_COMMON_REG_CONFIG),
			  {{value, value}}, EXTMEM_TAG_REGISTER_RIU_SETTINGS);
	};
	const u16 ip = plan.ip("A");
	common_below(plan.setting(ip, "S", 5), 1);
	const u16 not_a_setting = plan.setting(ip, "T", 5);
	common_below(not_a_setting, 2);
	plan.tag(not_a_setting, EXTMEM_TAG_PROPERTY);
	const u16 not_an_ip = plan.ip("B");
	common_below(plan.setting(not_an_ip, "U", 5), 3);
	plan.tag(not_an_ip, EXTMEM_TAG_RULE);
	plan.append(0, plan.add(EXTMEM_TAG_GENERAL)); // an empty holder
	common_below(plan.setting(plan.ip("C"), "V", 5), 4);
	ASSERT_TRUE(adopt_image(plan.write()));
	EXPECT_EQ(common_registers(map.get()), (Lines{"RIU {1=1}", "RIU {4=4}"}));
}

TEST_F(PimCommonLoad, ListThatCannotBeReadStopsOnlyItsConfiguration)
{
	PimImage plan;
	const u16 setting = plan.setting(plan.ip("A"), "S", 5);
	const u16 bad = plan.config(setting, "bad", EXTMEM_TAG_IP_COMMON_REG_CONFIG);
	plan.record(plan.list(bad, {{1, 1}}, EXTMEM_TAG_REGISTER_RIU_SETTINGS), ~0u, 0);
	const u16 good = plan.config(setting, "good", EXTMEM_TAG_IP_COMMON_REG_CONFIG);
	plan.list(good, {{2, 2}}, EXTMEM_TAG_REGISTER_RIU_SETTINGS);
	ASSERT_TRUE(adopt_image(plan.write()));
	EXPECT_EQ(common_registers(map.get()), (Lines{"RIU {2=2}"}));
	EXPECT_EQ(take_log(),
		  "[VEXIL][PIM][__pim_load_node] Internal error. Failed to fetch data.\n");
}

TEST_F(PimCommonLoad, CyclicChainsShareOneBudget)
{
	// Every chain runs in a circle: of IPs, of settings, of configurations, of blocks.
	constexpr size_t kFillers = 400;
	PimImage plan;
	const u16 ip = plan.ip("A");
	const u16 setting = plan.setting(ip, "S", 5);
	const u16 config = plan.config(setting, "c", EXTMEM_TAG_IP_COMMON_REG_CONFIG);
	plan.list(config, {{1, 1}}, EXTMEM_TAG_REGISTER_RIU_SETTINGS);
	for (const u16 parent : {u16{0}, ip, setting, config})
		plan.next(plan.child(parent), plan.child(parent));
	for (size_t i = 0; i < kFillers; ++i)
		plan.add(EXTMEM_TAG_UNSPECIFIED);
	adopt_image(plan.write());
	ASSERT_TRUE(map.get());
	size_t delivered = 0;
	pim_load_common_reg_setting(
		map.get(),
		[](int, const char *, u32, void *count) {
			return ++*static_cast<size_t *>(count) > 0;
		},
		&delivered);
	EXPECT_GE(delivered, 1u);
	EXPECT_LE(delivered, 8 * plan.nodes() + 64);
	take_log();
}

TEST_F(PimCommonLoad, RootChainInACircleEnds)
{
	PimImage plan;
	const u16 setting = plan.setting(plan.ip("A"), "S", 5);
	const u16 config = plan.config(setting, "c", EXTMEM_TAG_IP_COMMON_REG_CONFIG);
	plan.list(config, {{1, 1}}, EXTMEM_TAG_REGISTER_RIU_SETTINGS);
	plan.next(plan.child(0), plan.child(0));
	EXPECT_FALSE(adopt_image(plan.write()));
	ASSERT_TRUE(map.get());
	const Lines lines = common_registers(map.get());
	EXPECT_GE(lines.size(), 1u);
	EXPECT_LE(lines.size(), 8 * plan.nodes() + 64);
	take_log();
}

// ---- labels ----

const char kUntouched[] = "untouched";

/** What pim_get_setting stores over a pointer to kUntouched. */
char *label_of(pim *map, u16 id)
{
	char *label = const_cast<char *>(kUntouched);
	pim_get_setting(map, id, &label);
	return label;
}

TEST_F(PimLabel, OfEveryKindOfConfigurationIsItsSettingAndItsMember)
{
	add_registers(2);
	EXPECT_TRUE(insert(groups("'A': {'settings': {" + common_setting("Set", 1) +
				  ", 'Pre': {'1.PresetRegs': 'T', 'group': {'Mem': {}}}}}")));
	EXPECT_STREQ(label_of(map.get(), setting_id("set#m")), "Set#M");
	EXPECT_STREQ(label_of(map.get(), setting_id("set#n")), "Set#N");
	EXPECT_STREQ(label_of(map.get(), setting_id("set#COMMONREG")), "Set#commonReg");
	EXPECT_STREQ(label_of(map.get(), preset_id("pre#mem")), "Pre#Mem");
}

TEST_F(PimLabel, LiesInTheImage)
{
	add_registers(1);
	EXPECT_TRUE(insert(config("'hwreg': {'R0': 1}")));
	ASSERT_TRUE(adopt_image(image_of(map.get())));
	EXPECT_EQ(label_of(map.get(), 14), image.data() + image.record_at(16));
}

TEST_F(PimLabel, IdsOutsideTheMapAreReportedAndLeaveTheOutputAlone)
{
	EXPECT_TRUE(insert(config("")));
	const u16 outside = static_cast<u16>(node_count(map.get()));
	for (const u16 id : {outside, u16{65534}, u16{65535}}) {
		EXPECT_EQ(label_of(map.get(), id), kUntouched);
		EXPECT_EQ(take_log(), "[VEXIL][PIM][pim_get_setting] Invalid node id: " +
					      std::to_string(id) + "\n");
	}
	extmem_builder_destroy(&map->builder);
	EXPECT_EQ(label_of(map.get(), 0), kUntouched);
	EXPECT_EQ(take_log(), "[VEXIL][PIM][pim_get_setting] Invalid node id: 0\n");
}

TEST_F(PimLabel, NullArgumentsAreSilent)
{
	EXPECT_EQ(label_of(nullptr, 0), kUntouched);
	pim_get_setting(map.get(), 0, nullptr);
	pim_get_setting(map.get(), 65535, nullptr);
}

TEST_F(PimLabel, NodesWithoutAPropertyBesideThemLeaveTheOutputAlone)
{
	add_registers(2);
	EXPECT_TRUE(insert(groups("'A': {'settings': {" + common_setting("Set", 1) + "}}")));
	for (u16 id = 0; id < node_count(map.get()); ++id) {
		// IPs and settings have a property, too.
		const int tag = extmem_fetch_tag(node_at(map.get(), id));
		if (tag < EXTMEM_TAG_IP || tag > EXTMEM_TAG_IP_COMMON_REG_CONFIG)
			EXPECT_EQ(label_of(map.get(), id), kUntouched) << node(id);
		else
			EXPECT_NE(label_of(map.get(), id), kUntouched) << node(id);
	}
}

TEST_F(PimLabel, WithoutUsableTextIsNull)
{
	struct {
		const char *defect;
		void (*apply)(PimImage &, u16 property);
	} const cases[] = {
		{"no item", [](PimImage &p, u16 n) { p.child(n, kNoId); }},
		{"item outside", [](PimImage &p, u16 n) { p.child(n, 9999); }},
		{"empty item", [](PimImage &p, u16 n) { p.record(p.child(n), 0, 0); }},
		{"never attached", [](PimImage &p, u16 n) { p.record(p.child(n), ~0u, 0); }},
		{"outside", [](PimImage &p, u16 n) { p.record(p.child(n), 8, 0x10000); }},
		{"wraps", [](PimImage &p, u16 n) { p.record(p.child(n), 16, 0xFFFFFFF8); }},
		{"no NUL", [](PimImage &p, u16 n) {
			 p.record(p.child(n), 3, p.record_offset(p.child(n)));
		 }},
		{"a tree node", [](PimImage &p, u16 n) { p.tag(p.child(n), EXTMEM_TAG_GENERAL); }},
	};
	for (const auto &row : cases) {
		SCOPED_TRACE(row.defect);
		PimImage plan;
		const u16 config = plan.config(plan.setting(plan.ip("A"), "S", 5), "S#M");
		row.apply(plan, plan.next(config));
		adopt_image(plan.write());
		ASSERT_TRUE(map.get());
		EXPECT_EQ(label_of(map.get(), config), nullptr);
	}
}

TEST_F(PimLabel, DataHolderHasNoPropertyBesideIt)
{
	// The upper half of its size would be the id of a property.
	PimImage plan;
	const u16 config = plan.config(plan.setting(plan.ip("A"), "S", 5), "S#M");
	const u16 record = plan.add_record(EXTMEM_TAG_DATA, "x");
	plan.record(record, u32{plan.next(config)} << 16, 0);
	ASSERT_TRUE(adopt_image(plan.write()));
	EXPECT_EQ(label_of(map.get(), record), kUntouched);
}

} // namespace
