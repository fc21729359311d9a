// SPDX-License-Identifier: MIT
#include "pim/pim.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <string>
#include <vector>

#include "tests/support/pim_images.h"
#include "tests/support/pim_json.h"
#include "tests/support/platform.h"

namespace {

using namespace vexil_test;

constexpr std::size_t kMostNodes = 65535;
// Far above what any of these images needs when walks are bounded, far below what they need if not.
constexpr std::chrono::seconds kBoundedTime{20};

// An image and the map over it.
struct Scan {
	explicit Scan(const PimImage &plan, const RegisterTable &table = {}) : image(plan.write())
	{
		const auto start = std::chrono::steady_clock::now();
		result = adopt(map, image, table);
		const auto taken = std::chrono::steady_clock::now() - start;
		EXPECT_LT(taken, kBoundedTime);
		EXPECT_TRUE(map.get());
	}
	[[nodiscard]] int ip(const char *name) const { return ctrie_find(&map->ip_map, name); }
	[[nodiscard]] int label(const char *name) const
	{
		return ctrie_find(&map->ipname_map, name);
	}
	[[nodiscard]] int preset(const char *name) const
	{
		return ctrie_find(&map->preset_map, name);
	}
	[[nodiscard]] int file(const char *name) const { return ctrie_find(&map->file_map, name); }

	ImageBytes image;
	Map map;
	bool result = false;
};

std::size_t names_in(const ctrie &trie)
{
	return trie.buf_used;
}

// ---- names ----

TEST(PimScan, EveryNameFindsItsNode)
{
	PimImage plan;
	const u16 ip = plan.ip("Scaler");
	const u16 setting = plan.setting(ip, "mode", E_PQLV_DEFAULT);
	const u16 soft = plan.config(setting, "mode#soft");
	const u16 common = plan.config(setting, "mode#commonReg", EXTMEM_TAG_IP_COMMON_REG_CONFIG);
	const u16 presets = plan.setting(ip, "gamma", E_PQLV_PRESETREGS);
	const u16 dark = plan.preset(presets, "gamma#dark", plan.add_text("REGTAB"));
	const u16 file = plan.file("table.bin", "0123");
	const u16 second = plan.ip("denoise");
	const Scan scan(plan);
	EXPECT_TRUE(scan.result);
	EXPECT_EQ(scan.ip("scaler"), ip);
	EXPECT_EQ(scan.ip("denoise"), second);
	EXPECT_EQ(scan.label("mode#soft"), soft);
	EXPECT_EQ(scan.label("MODE#COMMONREG"), common);
	EXPECT_EQ(scan.preset("gamma#dark"), dark);
	EXPECT_EQ(scan.file("TABLE.BIN"), file);
	EXPECT_EQ(scan.label("gamma#dark"), INT_MIN);
	EXPECT_EQ(scan.preset("mode#soft"), INT_MIN);
	EXPECT_EQ(take_log(), "");
}

TEST(PimScan, RegisterAndHandlerNamesStayEmpty)
{
	PimImage plan;
	plan.config(plan.setting(plan.ip("a"), "s", E_PQLV_DEFAULT), "s#m");
	plan.file("f", "0");
	const Scan scan(plan);
	EXPECT_EQ(names_in(scan.map->regname_to_func), 0u);
	EXPECT_EQ(names_in(scan.map->vregname_to_func), 0u);
	EXPECT_EQ(names_in(scan.map->cus_vregname_to_func), 0u);
	EXPECT_EQ(names_in(scan.map->fn_map), 0u);
	EXPECT_EQ(scan.map->fn_list_num, 0u);
}

TEST(PimScan, ConfigurationTagDecidesAboutTheIndex)
{
	for (int tag = 0; tag < EXTMEM_TAG_DATA_TYPE_BEGIN; ++tag) {
		SCOPED_TRACE(tag);
		PimImage plan;
		const u16 node =
			plan.config(plan.setting(plan.ip("a"), "s", E_PQLV_DEFAULT), "s#m", tag);
		const Scan scan(plan);
		EXPECT_TRUE(scan.result);
		const bool labelled =
			tag == EXTMEM_TAG_IP_CONFIG || tag == EXTMEM_TAG_IP_COMMON_REG_CONFIG;
		EXPECT_EQ(scan.label("s#m"), labelled ? node : INT_MIN);
		EXPECT_EQ(scan.preset("s#m"),
			  tag == EXTMEM_TAG_IP_PRESET_REG_CONFIG ? node : INT_MIN);
	}
}

TEST(PimScan, OnlyIpsAndFilesBelowTheRootAreLookedAt)
{
	for (int tag = 0; tag < EXTMEM_TAG_DATA_TYPE_BEGIN; ++tag) {
		SCOPED_TRACE(tag);
		PimImage plan;
		const u16 node = plan.ip("a");
		plan.config(plan.setting(node, "s", E_PQLV_DEFAULT), "s#m");
		plan.tag(node, tag);
		const Scan scan(plan);
		EXPECT_TRUE(scan.result);
		EXPECT_EQ(scan.ip("a"), tag == EXTMEM_TAG_IP ? node : INT_MIN);
		EXPECT_EQ(scan.label("s#m") != INT_MIN, tag == EXTMEM_TAG_IP);
		EXPECT_EQ(scan.file("a"), tag == EXTMEM_TAG_FILE ? node : INT_MIN);
	}
}

TEST(PimScan, RepeatedIpNameKeepsTheFirstAndStillIndexesTheSecondsLabels)
{
	PimImage plan;
	const u16 first = plan.ip("scaler");
	const u16 second = plan.ip("Scaler");
	const u16 config = plan.config(plan.setting(second, "s", E_PQLV_DEFAULT), "s#m");
	const Scan scan(plan);
	EXPECT_TRUE(scan.result);
	EXPECT_EQ(scan.ip("scaler"), first);
	EXPECT_EQ(scan.label("s#m"), config);
}

TEST(PimScan, RepeatedLabelKeepsTheFirstAndDoesNotStopTheScan)
{
	PimImage plan;
	const u16 setting = plan.setting(plan.ip("a"), "s", E_PQLV_DEFAULT);
	const u16 first = plan.config(setting, "s#m");
	plan.config(setting, "S#M");
	const u16 later = plan.config(setting, "s#n");
	const u16 presets = plan.setting(plan.ip("b"), "p", E_PQLV_PRESETREGS);
	const u16 table = plan.add_text("T");
	const u16 first_preset = plan.preset(presets, "p#m", table);
	plan.preset(presets, "p#m", table);
	const u16 later_preset = plan.preset(presets, "p#n", table);
	const Scan scan(plan);
	EXPECT_TRUE(scan.result);
	EXPECT_EQ(scan.label("s#m"), first);
	EXPECT_EQ(scan.label("s#n"), later);
	EXPECT_EQ(scan.preset("p#m"), first_preset);
	EXPECT_EQ(scan.preset("p#n"), later_preset);
}

TEST(PimScan, RepeatedFileNameIsFalseButTheMapIsUsable)
{
	PimImage plan;
	const u16 first = plan.file("table.bin", "one");
	plan.file("TABLE.bin", "two");
	const u16 third = plan.file("other.bin", "three");
	const u16 ip = plan.ip("a");
	const Scan scan(plan);
	EXPECT_FALSE(scan.result);
	EXPECT_EQ(scan.file("table.bin"), first);
	EXPECT_EQ(scan.file("other.bin"), third);
	EXPECT_EQ(scan.ip("a"), ip);
	EXPECT_EQ(take_log(), "");
}

TEST(PimScan, IpNameThatTheIndexRefusesDoesNotMatter)
{
	PimImage plan;
	const u16 ip = plan.ip("a-b");
	const u16 config = plan.config(plan.setting(ip, "s", E_PQLV_DEFAULT), "s#m");
	const Scan scan(plan);
	EXPECT_TRUE(scan.result);
	EXPECT_EQ(scan.label("s#m"), config);
	EXPECT_EQ(take_log(), "[ctrie_insert][176]insert wrong string member = 45\n");
}

TEST(PimScan, FileNameThatTheIndexRefusesIsFalse)
{
	PimImage plan;
	plan.file("a-b", "0");
	const Scan scan(plan);
	EXPECT_FALSE(scan.result);
	EXPECT_EQ(take_log(), "[ctrie_insert][176]insert wrong string member = 45\n");
}

TEST(PimScan, LabelThatTheIndexRefusesDoesNotMatter)
{
	PimImage plan;
	const u16 setting = plan.setting(plan.ip("a"), "s", E_PQLV_DEFAULT);
	plan.config(setting, "s#m!");
	const u16 later = plan.config(setting, "s#n");
	const Scan scan(plan);
	EXPECT_TRUE(scan.result);
	EXPECT_EQ(scan.label("s#n"), later);
	EXPECT_EQ(take_log(), "[ctrie_insert][176]insert wrong string member = 33\n");
}

TEST(PimScan, EmptyNamesMatterForFilesOnly)
{
	PimImage plan;
	const u16 config = plan.config(plan.setting(plan.ip(""), "", E_PQLV_DEFAULT), "");
	const u16 named = plan.config(plan.setting(plan.ip("b"), "", E_PQLV_DEFAULT), "s#m");
	const Scan ips(plan);
	EXPECT_TRUE(ips.result);
	EXPECT_EQ(ips.label("s#m"), named);
	EXPECT_LT(config, named);
	plan.file("", "0");
	EXPECT_FALSE(Scan(plan).result);
}

TEST(PimScan, NamesAreFoundBehindOtherSiblings)
{
	PimImage plan;
	const u16 ip = plan.add(EXTMEM_TAG_IP);
	const u16 version = plan.add(EXTMEM_TAG_VERSION);
	plan.next(ip, version);
	plan.name(version, "scaler");
	plan.hold(0, ip);
	const u16 setting = plan.add(EXTMEM_TAG_IP_SETTING);
	plan.hold(ip, setting);
	const u16 config = plan.add(EXTMEM_TAG_IP_CONFIG);
	const u16 between = plan.add(EXTMEM_TAG_GENERAL);
	plan.next(config, between);
	plan.name(between, "s#m");
	plan.hold(setting, config);
	const u16 file = plan.add(EXTMEM_TAG_FILE);
	const u16 other = plan.add(EXTMEM_TAG_PQLEVEL);
	plan.next(file, other);
	plan.name(other, "table");
	plan.hold(0, file);
	const Scan scan(plan);
	EXPECT_TRUE(scan.result);
	EXPECT_EQ(scan.ip("scaler"), ip);
	EXPECT_EQ(scan.label("s#m"), config);
	EXPECT_EQ(scan.file("table"), file);
}

TEST(PimScan, FirstOfTwoNamesCounts)
{
	PimImage plan;
	const u16 ip = plan.ip("first");
	plan.next(plan.name(plan.next(plan.next(ip)), "second"), kNoId);
	const Scan scan(plan);
	EXPECT_EQ(scan.ip("first"), ip);
	EXPECT_EQ(scan.ip("second"), INT_MIN);
}

TEST(PimScan, MissingNamesOfIpsAndConfigurationsDoNotMatter)
{
	PimImage plan;
	const u16 ip = plan.ip("a");
	const u16 setting = plan.setting(ip, "s", E_PQLV_DEFAULT);
	const u16 nameless = plan.config(setting, "s#m");
	const u16 later = plan.config(setting, "s#n");
	plan.next(ip, kNoId);
	plan.next(setting, kNoId);
	plan.next(nameless, kNoId);
	const Scan scan(plan);
	EXPECT_TRUE(scan.result);
	EXPECT_EQ(scan.ip("a"), INT_MIN);
	EXPECT_EQ(scan.label("s#m"), INT_MIN);
	EXPECT_EQ(scan.label("s#n"), later);
}

TEST(PimScan, FileWithoutAPropertyIsFalse)
{
	PimImage plan;
	plan.next(plan.file("table", "0"), kNoId);
	const u16 named = plan.file("other", "0");
	const Scan scan(plan);
	EXPECT_FALSE(scan.result);
	EXPECT_EQ(scan.file("other"), named);
}

TEST(PimScan, FileWhosePropertyIsEmptyIsFalse)
{
	PimImage plan;
	plan.child(plan.next(plan.file("table", "0")), kNoId);
	EXPECT_FALSE(Scan(plan).result);
}

TEST(PimScan, FileNeedsNoData)
{
	PimImage plan;
	const u16 file = plan.file("table", "0");
	plan.child(file, kNoId);
	const Scan scan(plan);
	EXPECT_TRUE(scan.result);
	EXPECT_EQ(scan.file("table"), file);
}

TEST(PimScan, HoldersOfNothingArePassedOver)
{
	PimImage plan;
	plan.append(0, plan.add(EXTMEM_TAG_GENERAL));
	const u16 ip = plan.ip("a");
	plan.append(ip, plan.add(EXTMEM_TAG_GENERAL));
	const u16 setting = plan.setting(ip, "s", E_PQLV_DEFAULT);
	plan.append(setting, plan.add(EXTMEM_TAG_GENERAL));
	const u16 config = plan.config(setting, "s#m");
	plan.append(config, plan.add(EXTMEM_TAG_GENERAL));
	const Scan scan(plan, RegisterTable(4, reg(0, 1, 0, 16)));
	EXPECT_TRUE(scan.result);
	EXPECT_EQ(scan.label("s#m"), config);
}

TEST(PimScan, ExportedMapIsIndexedAsItWasBuilt)
{
	Map built;
	ASSERT_TRUE(built.init());
	ASSERT_TRUE(pim_insert_regmap(built.get(), "R0", 0));
	ASSERT_TRUE(pim_insert_regmap(built.get(), "R1", 1));
	ASSERT_TRUE(pim_insert_file(built.get(), "table.bin", "0123", 4));
	ASSERT_TRUE(insert(built.get(), groups("'Folder': {'A': {'settings': {"
					       "'S': {'group': {'M': {'hwreg': {'R0': 1}},"
					       "                'N': {'hwreg': {'R1': 2}}}},"
					       "'C': {'commonReg': true,"
					       "      'group': {'M': {'hwreg': {'R0': 3}}}},"
					       "'P': {'1.PresetRegs': 'T',"
					       "      'group': {'M': {'hwreg': {'R1': 4}}}}}}}")));
	ImageBytes image = image_of(built.get());
	Map adopted;
	ASSERT_TRUE(adopt(adopted, image));
	for (const char *name : {"Folder", "A"})
		EXPECT_EQ(ctrie_find(&adopted->ip_map, name), ctrie_find(&built->ip_map, name))
			<< name;
	for (const char *name : {"S#M", "S#N", "C#M", "C#commonReg"}) {
		EXPECT_NE(ctrie_find(&adopted->ipname_map, name), INT_MIN) << name;
		EXPECT_EQ(ctrie_find(&adopted->ipname_map, name),
			  ctrie_find(&built->ipname_map, name))
			<< name;
	}
	EXPECT_NE(ctrie_find(&adopted->preset_map, "P#M"), INT_MIN);
	EXPECT_EQ(ctrie_find(&adopted->preset_map, "P#M"), ctrie_find(&built->preset_map, "P#M"));
	EXPECT_EQ(ctrie_find(&adopted->file_map, "table.bin"),
		  ctrie_find(&built->file_map, "table.bin"));
	EXPECT_EQ(nodes(adopted.get()), nodes(built.get()));
}

TEST(PimScan, AnyNumberOfNodesIsScannedWhole)
{
	PimImage plan;
	u16 last_ip = 0, last_config = 0;
	constexpr std::size_t kNodesOfAnIp = 6 + 6 + 4 + 2;
	for (int i = 0; plan.nodes() + kNodesOfAnIp <= kMostNodes; ++i) {
		const std::string number = std::to_string(i);
		last_ip = plan.ip("ip" + number);
		last_config =
			plan.config(plan.setting(last_ip, "s", E_PQLV_DEFAULT), "s#" + number);
		plan.list(last_config, {{1, 2}});
		if (plan.nodes() + kNodesOfAnIp > kMostNodes) {
			const Scan scan(plan, RegisterTable(2, reg(3, 0x10, 0, 16)));
			EXPECT_TRUE(scan.result);
			EXPECT_EQ(scan.ip(("ip" + number).c_str()), last_ip);
			EXPECT_EQ(scan.label(("s#" + number).c_str()), last_config);
			EXPECT_EQ(scan.map->reg_level_num[3][E_PQLV_DEFAULT], i + 1);
		}
	}
	EXPECT_GT(last_config, 65000);
}

TEST(PimScan, FilesAloneMayFillTheImage)
{
	PimImage plan;
	constexpr std::size_t kNodesOfAFile = 5;
	u16 last = 0;
	std::string name;
	for (int i = 0; plan.nodes() + kNodesOfAFile <= kMostNodes; ++i) {
		name = "file" + std::to_string(i);
		last = plan.file(name, "0");
	}
	const Scan scan(plan);
	EXPECT_TRUE(scan.result);
	EXPECT_EQ(scan.file(name.c_str()), last);
}

TEST(PimScan, OneIpMayHoldEverything)
{
	PimImage plan;
	const u16 config = plan.config(plan.setting(plan.ip("a"), "s", E_PQLV_DEFAULT), "s#m");
	while (plan.nodes() + 2 <= kMostNodes)
		plan.list(config, {{1, 2}});
	const Scan scan(plan, RegisterTable(2, reg(3, 0x10, 0, 16)));
	EXPECT_TRUE(scan.result);
	EXPECT_EQ(scan.map->reg_level_num[3][E_PQLV_DEFAULT], 1);
}

// ---- one IP, one file ----

class PimScanOne : public testing::Test {
protected:
	void SetUp() override
	{
		ip = plan.ip("a");
		config = plan.config(plan.setting(ip, "s", E_PQLV_DEFAULT), "s#m");
		file = plan.file("table", "0");
		image = plan.write();
		ASSERT_TRUE(map.init());
		ASSERT_TRUE(extmem_builder_init(&store, image.data(), image.size()));
	}
	[[nodiscard]] node_d node(u16 id) { return {id, &store}; }

	PimImage plan;
	ImageBytes image;
	extmem_builder store{};
	Map map;
	u16 ip = 0, config = 0, file = 0;
};

TEST_F(PimScanOne, IpIsIndexedWithItsLabels)
{
	EXPECT_TRUE(__pim_scan_ipname(map.get(), node(ip)));
	EXPECT_EQ(ctrie_find(&map->ip_map, "a"), ip);
	EXPECT_EQ(ctrie_find(&map->ipname_map, "s#m"), config);
	EXPECT_EQ(ctrie_find(&map->file_map, "table"), INT_MIN);
}

TEST_F(PimScanOne, IpAgainIsTrueAllTheSame)
{
	EXPECT_TRUE(__pim_scan_ipname(map.get(), node(ip)));
	EXPECT_TRUE(__pim_scan_ipname(map.get(), node(ip)));
}

TEST_F(PimScanOne, FileIsIndexed)
{
	EXPECT_TRUE(__pim_scan_file(map.get(), node(file)));
	EXPECT_EQ(ctrie_find(&map->file_map, "table"), file);
}

TEST_F(PimScanOne, FileAgainIsFalse)
{
	EXPECT_TRUE(__pim_scan_file(map.get(), node(file)));
	EXPECT_FALSE(__pim_scan_file(map.get(), node(file)));
}

TEST_F(PimScanOne, InvalidDescriptorsAreFalse)
{
	const auto beyond = static_cast<u16>(plan.nodes());
	const node_d invalid[] = {
		node(kNoId), node(beyond), node(0xFFFE), {ip, nullptr}, {file, nullptr}};
	for (const node_d &none : invalid) {
		SCOPED_TRACE(none.id);
		EXPECT_FALSE(__pim_scan_ipname(map.get(), none));
		EXPECT_FALSE(__pim_scan_file(map.get(), none));
	}
	EXPECT_EQ(names_in(map->ip_map), 0u);
	EXPECT_EQ(names_in(map->file_map), 0u);
}

TEST_F(PimScanOne, IpWithCyclicSettingsIsFalse)
{
	plan.next(plan.child(ip), plan.child(ip));
	ImageBytes damaged = plan.write();
	ASSERT_TRUE(extmem_builder_init(&store, damaged.data(), damaged.size()));
	EXPECT_FALSE(__pim_scan_ipname(map.get(), node(ip)));
	EXPECT_EQ(ctrie_find(&map->ipname_map, "s#m"), config);
}

// ---- damaged images: links ----

TEST(PimScanDamaged, CyclicRootChildren)
{
	PimImage plan;
	const u16 first = plan.ip("a");
	const u16 second = plan.ip("b");
	const u16 last_holder = plan.next(plan.child(0));
	plan.next(last_holder, plan.child(0));
	const Scan scan(plan);
	EXPECT_FALSE(scan.result);
	EXPECT_EQ(scan.ip("a"), first);
	EXPECT_EQ(scan.ip("b"), second);
}

TEST(PimScanDamaged, RootChildThatIsItsOwnSibling)
{
	PimImage plan;
	const u16 ip = plan.ip("a");
	plan.next(plan.child(0), plan.child(0));
	const Scan scan(plan);
	EXPECT_FALSE(scan.result);
	EXPECT_EQ(scan.ip("a"), ip);
}

TEST(PimScanDamaged, RootThatIsItsOwnChild)
{
	PimImage plan;
	plan.child(0, 0);
	plan.next(0, 0);
	EXPECT_FALSE(Scan(plan).result);
}

TEST(PimScanDamaged, CyclicSettings)
{
	PimImage plan;
	const u16 ip = plan.ip("a");
	const u16 config = plan.config(plan.setting(ip, "s", E_PQLV_DEFAULT), "s#m");
	plan.next(plan.child(ip), plan.child(ip));
	const Scan scan(plan);
	EXPECT_FALSE(scan.result);
	EXPECT_EQ(scan.label("s#m"), config);
}

TEST(PimScanDamaged, CyclicConfigurations)
{
	PimImage plan;
	const u16 setting = plan.setting(plan.ip("a"), "s", E_PQLV_DEFAULT);
	const u16 config = plan.config(setting, "s#m");
	plan.next(plan.child(setting), plan.child(setting));
	const Scan scan(plan);
	EXPECT_FALSE(scan.result);
	EXPECT_EQ(scan.label("s#m"), config);
}

TEST(PimScanDamaged, CyclicRegisterLists)
{
	PimImage plan;
	const u16 config = plan.config(plan.setting(plan.ip("a"), "s", E_PQLV_DEFAULT), "s#m");
	const u16 list = plan.list(config, {{1, 2}});
	plan.next(plan.child(config), plan.child(config));
	const Scan scan(plan, RegisterTable(2, reg(3, 0x10, 0, 16)));
	EXPECT_FALSE(scan.result);
	EXPECT_EQ(scan.image.tag(list), EXTMEM_TAG_REGISTER_ADDR_SETTINGS);
	EXPECT_EQ(scan.image.pairs(list), (Pairs{{0x18000010, 0xFFFF0002}}));
	EXPECT_EQ(scan.map->reg_level_num[3][E_PQLV_DEFAULT], 1);
}

TEST(PimScanDamaged, CyclicSynchronisedLists)
{
	PimImage plan;
	const u16 config = plan.config(plan.setting(plan.ip("a"), "s", E_PQLV_SYNC), "s#m");
	const u16 list = plan.list(config, {{1, 2}});
	plan.next(plan.child(config), plan.child(config));
	const Scan scan(plan);
	EXPECT_FALSE(scan.result);
	EXPECT_EQ(scan.image.tag(list), EXTMEM_TAG_REGISTER_SYNC_SETTINGS);
	EXPECT_EQ(scan.map->reg_level_num[0][E_PQLV_SYNC], 1);
}

TEST(PimScanDamaged, CyclicSiblingsWithoutAName)
{
	PimImage plan;
	const u16 ip = plan.ip("a");
	plan.tag(plan.next(ip), EXTMEM_TAG_VERSION);
	plan.next(plan.next(plan.next(ip)), plan.next(ip));
	const Scan scan(plan);
	EXPECT_FALSE(scan.result);
	EXPECT_EQ(scan.ip("a"), INT_MIN);
}

TEST(PimScanDamaged, CyclicSiblingsWithoutALevel)
{
	PimImage plan;
	const u16 setting = plan.setting(plan.ip("a"), "s", E_PQLV_DEFAULT);
	const u16 level = plan.next(plan.next(setting));
	plan.tag(level, EXTMEM_TAG_VERSION);
	plan.next(level, plan.next(setting));
	EXPECT_FALSE(Scan(plan).result);
}

TEST(PimScanDamaged, CyclicSiblingsOfAFile)
{
	PimImage plan;
	const u16 file = plan.file("table", "0");
	plan.tag(plan.next(file), EXTMEM_TAG_VERSION);
	plan.next(plan.next(file), file);
	const Scan scan(plan);
	EXPECT_FALSE(scan.result);
	EXPECT_EQ(scan.file("table"), INT_MIN);
}

TEST(PimScanDamaged, LinksOutsideTheImageEndTheirList)
{
	PimImage plan;
	const u16 first = plan.ip("first");
	const u16 setting = plan.setting(first, "s", E_PQLV_DEFAULT);
	const u16 config = plan.config(setting, "s#m");
	plan.list(config, {{1, 2}});
	plan.ip("second");
	const auto outside = static_cast<u16>(plan.nodes());
	const u16 holders[] = {plan.child(0), plan.child(first), plan.child(setting),
			       plan.child(config)};
	for (const u16 target : {outside, u16{0xFFFE}}) {
		for (const u16 holder : holders) {
			SCOPED_TRACE(holder);
			PimImage damaged = plan;
			damaged.next(holder, target);
			const Scan scan(damaged, RegisterTable(2, reg(3, 0x10, 0, 16)));
			EXPECT_TRUE(scan.result);
			EXPECT_EQ(scan.ip("first"), first);
			EXPECT_EQ(scan.label("s#m"), config);
			EXPECT_EQ(scan.ip("second") != INT_MIN, holder != holders[0]);
		}
	}
}

TEST(PimScanDamaged, ChildrenOutsideTheImageAreNone)
{
	PimImage plan;
	const u16 first = plan.ip("first");
	const u16 setting = plan.setting(first, "s", E_PQLV_DEFAULT);
	const u16 config = plan.config(setting, "s#m");
	plan.list(config, {{1, 2}});
	const u16 second = plan.ip("second");
	const auto outside = static_cast<u16>(plan.nodes());
	const u16 parents[] = {plan.child(0),       first,  plan.child(first), setting,
			       plan.child(setting), config, plan.child(config)};
	for (const u16 parent : parents) {
		SCOPED_TRACE(parent);
		PimImage damaged = plan;
		damaged.child(parent, outside);
		const Scan scan(damaged, RegisterTable(2, reg(3, 0x10, 0, 16)));
		EXPECT_TRUE(scan.result);
		EXPECT_EQ(scan.ip("first") != INT_MIN, parent != parents[0]);
		EXPECT_EQ(scan.label("s#m") != INT_MIN, parent == config || parent == parents[6]);
		EXPECT_EQ(scan.ip("second"), second);
	}
}

TEST(PimScanDamaged, NameOutsideTheImageIsMissing)
{
	PimImage plan;
	const u16 ip = plan.ip("a");
	plan.child(plan.next(ip), static_cast<u16>(plan.nodes()));
	const Scan scan(plan);
	EXPECT_TRUE(scan.result);
	EXPECT_EQ(scan.ip("a"), INT_MIN);
}

// A list that all parents share is walked once for each of them: without a common bound the cost
// would be the fourth power of the image's size.
TEST(PimScanDamaged, SharedChainsAtEveryDepth)
{
	PimImage plan;
	constexpr int kEach = 13000;
	const u16 config = plan.add(EXTMEM_TAG_IP_CONFIG);
	const u16 setting = plan.add(EXTMEM_TAG_IP_SETTING);
	const u16 ip = plan.add(EXTMEM_TAG_IP);
	const u16 list = plan.add_list({{1, 2}});
	for (int i = 0; i < kEach; ++i)
		plan.hold(config, list);
	for (int i = 0; i < kEach; ++i)
		plan.hold(setting, config);
	for (int i = 0; i < kEach; ++i)
		plan.hold(ip, setting);
	for (int i = 0; i < kEach; ++i)
		plan.hold(0, ip);
	EXPECT_FALSE(Scan(plan, RegisterTable(2, reg(3, 0x10, 0, 16))).result);
}

TEST(PimScanDamaged, SharedChainOfNamelessSiblings)
{
	PimImage plan;
	const u16 first = plan.add(EXTMEM_TAG_VERSION);
	u16 last = first;
	for (int i = 0; i < 30000; ++i) {
		const u16 node = plan.add(EXTMEM_TAG_VERSION);
		plan.next(last, node);
		last = node;
	}
	for (int i = 0; i < 17000; ++i) {
		const u16 ip = plan.add(EXTMEM_TAG_IP);
		plan.next(ip, first);
		plan.hold(0, ip);
	}
	EXPECT_FALSE(Scan(plan).result);
}

// Every IP has the same name, of megabytes: each insertion would copy and keep it again.
TEST(PimScanDamaged, SharedLongNameDoesNotFillTheMemory)
{
	PimImage plan;
	constexpr std::size_t kLength = 1 << 20;
	const u16 text = plan.add_text(std::string(kLength, 'x'));
	for (int i = 0; i < 10000; ++i) {
		const u16 ip = plan.add(EXTMEM_TAG_IP);
		const u16 property = plan.add(EXTMEM_TAG_PROPERTY);
		plan.child(property, text);
		plan.next(ip, property);
		plan.hold(0, ip);
	}
	const Scan scan(plan);
	constexpr std::size_t kImagesWorth = 64;
	EXPECT_LT(scan.map->ip_map.buf_max, kImagesWorth * kLength);
}

TEST(PimScanDamaged, SharedLongListIsNotCountedForEver)
{
	PimImage plan;
	Pairs pairs(200000);
	for (std::size_t i = 0; i < pairs.size(); ++i)
		pairs[i] = {static_cast<u32>(i + 1), 0};
	const u16 list = plan.add_list(pairs, EXTMEM_TAG_REGISTER_ADDR_SETTINGS);
	const u16 ip = plan.ip("a");
	while (plan.nodes() + 5 <= kMostNodes) {
		const u16 setting = plan.add(EXTMEM_TAG_IP_SETTING);
		plan.hold(ip, setting);
		const u16 config = plan.add(EXTMEM_TAG_IP_CONFIG);
		plan.hold(setting, config);
		plan.hold(config, list);
	}
	const Scan scan(plan, RegisterTable(1, reg(0, 1, 0, 16)));
	EXPECT_EQ(scan.ip("a"), ip);
}

// ---- damaged images: data holders where nodes belong ----

// The size of a data holder that stands where a node with links would stand: the bytes that would
// be read as its child and its next sibling.
u32 links(u16 child, u16 next)
{
	return child | static_cast<u32>(next) << 16;
}

TEST(PimScanDamaged, DataHolderAsRootHasNoChildren)
{
	PimImage plan;
	plan.ip("a");
	plan.tag(0, EXTMEM_TAG_DATA);
	const Scan scan(plan);
	EXPECT_TRUE(scan.result);
	EXPECT_EQ(scan.ip("a"), INT_MIN);
}

TEST(PimScanDamaged, DataHolderAsChildOfTheRootEndsTheList)
{
	PimImage plan;
	plan.ip("first");
	plan.ip("second");
	const u16 holder = plan.child(0);
	const u16 second = plan.next(holder);
	plan.tag(holder, EXTMEM_TAG_DATA);
	plan.record(holder, links(plan.child(holder), second), 0);
	const Scan scan(plan);
	EXPECT_TRUE(scan.result);
	EXPECT_EQ(scan.ip("first"), INT_MIN);
	EXPECT_EQ(scan.ip("second"), INT_MIN);
}

TEST(PimScanDamaged, DataHolderAsSettingHasNoConfigurations)
{
	PimImage plan;
	const u16 setting = plan.setting(plan.ip("a"), "s", E_PQLV_DEFAULT);
	plan.config(setting, "s#m");
	plan.tag(setting, EXTMEM_TAG_DATA);
	const Scan scan(plan);
	EXPECT_TRUE(scan.result);
	EXPECT_EQ(scan.label("s#m"), INT_MIN);
}

TEST(PimScanDamaged, DataHolderAsHolderHoldsNothing)
{
	PimImage plan;
	const u16 ip = plan.ip("a");
	const u16 setting = plan.setting(ip, "s", E_PQLV_DEFAULT);
	const u16 config = plan.config(setting, "s#m");
	const u16 list = plan.list(config, {{1, 2}});
	const u16 holders[] = {plan.child(ip), plan.child(setting), plan.child(config)};
	for (const u16 holder : holders) {
		SCOPED_TRACE(holder);
		PimImage damaged = plan;
		damaged.tag(holder, EXTMEM_TAG_STRING_HOLDER);
		const Scan scan(damaged, RegisterTable(2, reg(3, 0x10, 0, 16)));
		EXPECT_TRUE(scan.result);
		EXPECT_EQ(scan.ip("a"), ip);
		EXPECT_EQ(scan.label("s#m") != INT_MIN, holder == holders[2]);
		EXPECT_EQ(scan.image.tag(list), EXTMEM_TAG_REGISTER_SETTINGS);
	}
}

TEST(PimScanDamaged, DataHolderAmongTheSiblingsHidesTheName)
{
	PimImage plan;
	const u16 ip = plan.ip("a");
	const u16 property = plan.next(ip);
	const u16 between = plan.add(EXTMEM_TAG_DATA);
	plan.record(between, links(kNoId, property), 0);
	plan.next(ip, between);
	const Scan scan(plan);
	EXPECT_TRUE(scan.result);
	EXPECT_EQ(scan.ip("a"), INT_MIN);
}

// A preset's string stands last in its chain; its size must not be followed as a link.
TEST(PimScanDamaged, StringBehindAPropertyIsTheEndOfTheChain)
{
	PimImage plan;
	const u16 ip = plan.add(EXTMEM_TAG_IP);
	plan.hold(0, ip);
	const u16 string = plan.add_text("T");
	plan.next(ip, string);
	plan.record(string, links(2, plan.next(plan.ip("b"))), 0);
	const Scan scan(plan);
	EXPECT_TRUE(scan.result);
	EXPECT_NE(scan.ip("b"), ip);
}

// ---- damaged images: names ----

struct BadText {
	const char *what;
	u32 size;
	u32 offset;
};

const BadText kBadTexts[] = {
	{"without a NUL", 3, 0},
	{"of no bytes", 0, 0},
	{"beyond the data", 4, 4096},
	{"that ends beyond the data", 4096, 0},
	{"whose end wraps", 16, 0xFFFFFFF8},
	{"of the largest size", 0xFFFFFFFF, 0},
	{"without a record", 0xFFFFFFFF, 0xFFFFFFFF},
};

// The first record of the data is the text "tab" with its NUL.
PimImage plan_with_text(u16 *text)
{
	PimImage plan;
	*text = plan.add_text("tab");
	return plan;
}

TEST(PimScanDamaged, FileNameThatIsNoTextIsFalse)
{
	for (const BadText &row : kBadTexts) {
		SCOPED_TRACE(row.what);
		u16 text = 0;
		PimImage plan = plan_with_text(&text);
		const u16 file = plan.file("table", "0");
		plan.child(plan.next(file), text);
		EXPECT_TRUE(Scan(plan).result);
		plan.record(text, row.size, row.offset);
		const Scan scan(plan);
		EXPECT_FALSE(scan.result);
		EXPECT_EQ(names_in(scan.map->file_map), 0u);
		EXPECT_EQ(take_log(), "");
	}
}

TEST(PimScanDamaged, LabelThatIsNoTextIsMissing)
{
	for (const BadText &row : kBadTexts) {
		SCOPED_TRACE(row.what);
		u16 text = 0;
		PimImage plan = plan_with_text(&text);
		const u16 ip = plan.ip("a");
		const u16 config = plan.config(plan.setting(ip, "s", E_PQLV_DEFAULT), "s#m");
		plan.child(plan.next(ip), text);
		plan.child(plan.next(config), text);
		plan.record(text, row.size, row.offset);
		const Scan scan(plan);
		EXPECT_TRUE(scan.result);
		EXPECT_EQ(names_in(scan.map->ip_map), 0u);
		EXPECT_EQ(names_in(scan.map->ipname_map), 0u);
		EXPECT_EQ(take_log(), "");
	}
}

TEST(PimScanDamaged, TextMayEndBeforeItsRecord)
{
	PimImage plan;
	const u16 file = plan.file("table", "0");
	plan.child(plan.next(file),
		   plan.add_record(EXTMEM_TAG_STRING_HOLDER, std::string("ab\0cd", 5)));
	const Scan scan(plan);
	EXPECT_TRUE(scan.result);
	EXPECT_EQ(scan.file("ab"), file);
}

TEST(PimScanDamaged, TreeNodeAsNameIsMissing)
{
	PimImage plan;
	const u16 file = plan.file("table", "0");
	plan.child(plan.next(file), plan.add(EXTMEM_TAG_VERSION));
	EXPECT_FALSE(Scan(plan).result);
}

// ---- what is stored in nodes ----

TEST(PimScanDamaged, WrongStoredIdsDoNotMatter)
{
	PimImage plan;
	const u16 ip = plan.ip("a");
	const u16 config = plan.config(plan.setting(ip, "s", E_PQLV_DEFAULT), "s#m");
	for (u16 id = 0; id < plan.nodes(); ++id)
		plan.stored_id(id, 0xABCD);
	const Scan scan(plan);
	EXPECT_TRUE(scan.result);
	EXPECT_EQ(scan.ip("a"), ip);
	EXPECT_EQ(scan.label("s#m"), config);
}

TEST(PimScanDamaged, PartOfANodeAtTheEndIsNoNode)
{
	PimImage plan;
	plan.ip("a");
	const u16 last = plan.ip("b");
	ImageBytes image = plan.write();
	// The last holder, the only way to "b", loses its last byte.
	image.put(88, image.nodes_used() - 1);
	Map map;
	EXPECT_TRUE(adopt(map, image));
	EXPECT_NE(ctrie_find(&map->ip_map, "a"), INT_MIN);
	EXPECT_EQ(ctrie_find(&map->ip_map, "b"), INT_MIN);
	EXPECT_LT(last, plan.nodes());
}

} // namespace
