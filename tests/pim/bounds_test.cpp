// SPDX-License-Identifier: MIT
//
// Maps and their insides: calls with something missing, and images that share what sound ones own.

#include "tests/support/pim_json.h"

namespace {

using namespace vexil_test;

class PimBounds : public testing::Test {
protected:
	PimBounds() { EXPECT_TRUE(map.init()); }
	void TearDown() override { EXPECT_EQ(take_log(), "") << "a message that nobody expected"; }

	Map map;
};

TEST_F(PimBounds, NothingIsReadOrMadeWithoutAMapANameOrAList)
{
	const Json member = json("{'hwreg': {}}");
	CommonList common;
	const size_t nodes = node_count(map.get());
	EXPECT_FALSE(__pim_search_common_hwregister(nullptr, member.get(), common.get()));
	EXPECT_FALSE(__pim_search_common_hwregister(map.get(), member.get(), nullptr));
	EXPECT_EQ(__pim_get_common_reg_config(nullptr, "S#commonReg", common.get()).id, kNoId);
	EXPECT_EQ(__pim_get_common_reg_config(map.get(), nullptr, common.get()).id, kNoId);
	EXPECT_EQ(__pim_get_common_reg_config(map.get(), "S#commonReg", nullptr).id, kNoId);
	const node_d none{kNoId, nullptr};
	EXPECT_EQ(__pim_get_ipconfig(nullptr, member.get(), "S#M", common.get(), none, false, false)
			  .id,
		  kNoId);
	EXPECT_EQ(__pim_get_ipconfig(map.get(), member.get(), nullptr, common.get(), none, false,
				     false)
			  .id,
		  kNoId);
	EXPECT_FALSE(__pim_scan_ipname(nullptr, node_at(map.get(), 0)));
	EXPECT_FALSE(__pim_scan_file(nullptr, node_at(map.get(), 0)));
	EXPECT_EQ(node_count(map.get()), nodes);
}

TEST_F(PimBounds, ConfigurationWithoutACommonListKeepsEveryRegister)
{
	ASSERT_TRUE(ctrie_insert(&map->regname_to_func, "gain", 5));
	const Json member = json("{'hwreg': {'gain': 7}}");
	const node_d config = __pim_get_ipconfig(map.get(), member.get(), "S#M", nullptr,
						 node_d{kNoId, nullptr}, false, false);
	ASSERT_NE(config.id, kNoId);
	EXPECT_EQ(node_text(map.get(), node_count(map.get()) - 1),
		  std::to_string(node_count(map.get()) - 1) + " REGISTER {5=7}");
}

TEST_F(PimBounds, FoldersAreWalkedWithoutAHistory)
{
	const Json chain = json("{'F': {'G': {'A': {'settings': {}}}}}");
	EXPECT_TRUE(__pim_find_ip(map.get(), chain->child, nullptr, 0));
	EXPECT_NE(ctrie_find(&map->ip_map, "F"), vexil::kNoValue);
	EXPECT_NE(ctrie_find(&map->ip_map, "G"), vexil::kNoValue);
	EXPECT_NE(ctrie_find(&map->ip_map, "A"), vexil::kNoValue);
	const size_t nodes = node_count(map.get());
	EXPECT_FALSE(__pim_find_ip(nullptr, chain->child, nullptr, 0));
	EXPECT_FALSE(__pim_find_ip(map.get(), chain->child, nullptr, -1));
	EXPECT_EQ(node_count(map.get()), nodes);
}

TEST_F(PimBounds, LoadingOneNodeNeedsAMapAndACallback)
{
	ASSERT_TRUE(ctrie_insert(&map->regname_to_func, "gain", 5));
	ASSERT_TRUE(insert(map.get(), config("'hwreg': {'gain': 7}")));
	const node_d node =
		node_at(map.get(), static_cast<u16>(ctrie_find(&map->ipname_map, "S#M")));
	std::string seen;
	const auto count = [](int, const char *, u32, void *to) {
		*static_cast<std::string *>(to) += "x";
		return true;
	};
	EXPECT_EQ(__pim_load_node(nullptr, node, 9, count, &seen), 9u);
	EXPECT_EQ(__pim_load_node(map.get(), node, 9, nullptr, &seen), 9u);
	EXPECT_EQ(seen, "");
	EXPECT_EQ(__pim_load_node(map.get(), node, 9, count, &seen), 8u);
	EXPECT_EQ(seen, "x");
}

TEST_F(PimBounds, LabelWithANumberThatIsNoNodeLoadsNothing)
{
	for (const int number : {-5, 0xFFFF, 0x10000}) {
		const std::string name = "odd" + std::to_string(number & 0xFFFFF);
		ASSERT_TRUE(ctrie_insert(&map->ipname_map, name.c_str(), number));
		pim_load_setting_by_name(
			map.get(), name.c_str(),
			[](int, const char *, u32, void *) { return true; }, nullptr);
		EXPECT_EQ(take_log(),
			  "[VEXIL][PIM][pim_load_setting_by_name] Cannot find target node: " +
				  std::to_string(number) + ".\n");
	}
}

TEST_F(PimBounds, LoadingEndsWhenOneTextIsReadTooOften)
{
	constexpr size_t kBlocks = 40;
	const std::string name(200, 'f');
	PimImage plan;
	const u16 file = plan.file(name, "bytes");
	const u16 text = plan.child(plan.next(file));
	const u16 ip = plan.ip("A");
	const u16 setting = plan.setting(ip, "S", E_PQLV_DEFAULT);
	const u16 config = plan.config(setting, "S#M");
	for (size_t i = 0; i < kBlocks; ++i) {
		const u16 block = plan.add(EXTMEM_TAG_ALGORITHM_DATA);
		plan.child(block, text);
		plan.next(block, text);
		plan.hold(config, block);
	}
	ImageBytes image = plan.write();
	pim_destroy(map.out());
	ASSERT_TRUE(adopt(map, image));
	static size_t delivered;
	delivered = 0;
	ASSERT_TRUE(pim_insert_alg_handler(map.get(), [](int, const char *, u32, const char *,
							 u32) { return ++delivered != 0; }));
	pim_load_setting_by_name(
		map.get(), "S#M", [](int, const char *, u32, void *) { return true; }, nullptr);
	// Each block reads the text twice; a sound image's are read once each, an eighth of this.
	EXPECT_EQ(delivered, (8 * image.data_used() + 64) / (2 * (name.size() + 1)));
	EXPECT_LT(delivered, kBlocks);
	EXPECT_EQ(take_log(),
		  "[VEXIL][PIM][__pim_load_node] Internal error. Failed to fetch data.\n");
}

TEST_F(PimBounds, AdoptionEndsWhenOneListIsTranslatedTooOften)
{
	constexpr size_t kLists = 40;
	PimImage plan;
	const u16 ip = plan.ip("A");
	const u16 setting = plan.setting(ip, "S", E_PQLV_DEFAULT);
	const u16 config = plan.config(setting, "S#M");
	const u16 list = plan.list(config, Pairs(50, func_pair{0, 1}));
	for (size_t i = 1; i < kLists; ++i) {
		const u16 again = plan.add(EXTMEM_TAG_REGISTER_SETTINGS);
		plan.record(again, plan.record_size(list), plan.record_offset(list));
		plan.hold(config, again);
	}
	ImageBytes image = plan.write();
	pim_destroy(map.out());
	const RegisterTable table = {reg(1, 0x10, 0, 8)};
	EXPECT_FALSE(adopt(map, image, table));
	EXPECT_NE(map.get(), nullptr);
	size_t translated = 0;
	for (u16 id = 0; id < plan.nodes(); ++id)
		translated += image.tag(id) == EXTMEM_TAG_REGISTER_ADDR_SETTINGS;
	EXPECT_GT(translated, 0u);
	EXPECT_LT(translated, kLists);
}

} // namespace
