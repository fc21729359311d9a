// SPDX-License-Identifier: MIT
#include "pim/pim.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "tests/support/pim_images.h"
#include "tests/support/pim_json.h"
#include "tests/support/platform.h"

namespace {

using namespace vexil_test;

constexpr std::size_t kBlocksOfATrie = 2; // root and text

const char *const kDocument =
	"{'VexilVersion': {'#version': {'MajorVersion': 2}}, 'PqFuncGroups': {"
	"'IP': {'settings': {'S': {'group': {'M': {"
	"    'hwreg': {'R0': 5}, 'swreg': {'V': 6}, 'cus_swreg': {'C': 7}}}},"
	"                    'P': {'1.PresetRegs': 'T', 'group': {'M': {"
	"    'hwreg': {'R1': 8}}}}}}}}";

class PimFinish : public PimTest {
protected:
	void build()
	{
		add_registers(2);
		ASSERT_TRUE(pim_insert_vregmap(map.get(), "V", 20));
		ASSERT_TRUE(pim_insert_cus_vregmap(map.get(), "C", 30));
		add_file("table.bin", "0123");
		ASSERT_TRUE(pim_insert_handler(map.get(), "gamma", record_block));
		ASSERT_TRUE(insert(kDocument));
	}
};

void expect_released(const ctrie &trie)
{
	EXPECT_EQ(trie.buf, nullptr);
	EXPECT_EQ(trie.buf_used, 0u);
	EXPECT_EQ(trie.buf_max, 0u);
}

TEST_F(PimFinish, DropsTheThreeRegisterIndexes)
{
	build();
	EXPECT_TRUE(pim_finish(map.get()));
	expect_released(map->regname_to_func);
	expect_released(map->vregname_to_func);
	expect_released(map->cus_vregname_to_func);
	EXPECT_EQ(ctrie_find(&map->regname_to_func, "R0"), INT_MIN);
	EXPECT_EQ(ctrie_find(&map->vregname_to_func, "V"), INT_MIN);
	EXPECT_EQ(ctrie_find(&map->cus_vregname_to_func, "C"), INT_MIN);
}

TEST_F(PimFinish, FreesWhatTheyHeld)
{
	const std::size_t before = live_blocks();
	EXPECT_TRUE(pim_finish(map.get()));
	EXPECT_EQ(live_blocks(), before - 3 * kBlocksOfATrie);
}

TEST_F(PimFinish, FreesEveryNodeOfThem)
{
	const std::size_t empty = live_blocks();
	for (int i = 0; i < 300; ++i) {
		const std::string name = "REGISTER_" + std::to_string(i);
		ASSERT_TRUE(pim_insert_regmap(map.get(), name.c_str(), 1));
		ASSERT_TRUE(pim_insert_vregmap(map.get(), name.c_str(), 1));
		ASSERT_TRUE(pim_insert_cus_vregmap(map.get(), name.c_str(), 1));
	}
	EXPECT_GT(live_blocks(), empty);
	EXPECT_TRUE(pim_finish(map.get()));
	EXPECT_EQ(live_blocks(), empty - 3 * kBlocksOfATrie);
}

TEST_F(PimFinish, LeavesTheOtherIndexesAndTheStore)
{
	build();
	const std::string before = store_bytes(map.get());
	const u16 setting = setting_id("S#M");
	EXPECT_TRUE(pim_finish(map.get()));
	EXPECT_EQ(store_bytes(map.get()), before);
	EXPECT_NE(ctrie_find(&map->ip_map, "IP"), INT_MIN);
	EXPECT_NE(setting, VEXIL_NO_ID);
	EXPECT_EQ(setting_id("S#M"), setting);
	EXPECT_NE(preset_id("P#M"), VEXIL_NO_ID);
	EXPECT_NE(ctrie_find(&map->file_map, "table.bin"), INT_MIN);
	EXPECT_EQ(ctrie_find(&map->fn_map, "gamma"), 0);
	EXPECT_EQ(map->fn_list[0], record_block);
}

TEST_F(PimFinish, LoadingWorksAsBefore)
{
	build();
	const Lines before = loaded("S#M");
	ASSERT_EQ(before.size(), 3u);
	EXPECT_TRUE(pim_finish(map.get()));
	EXPECT_EQ(loaded("S#M"), before);
}

TEST_F(PimFinish, ExportIsTheSame)
{
	build();
	const ImageBytes before = image_of(map.get());
	EXPECT_TRUE(pim_finish(map.get()));
	EXPECT_EQ(image_of(map.get()).bytes(), before.bytes());
}

TEST_F(PimFinish, SecondTimeDoesNothingMore)
{
	build();
	EXPECT_TRUE(pim_finish(map.get()));
	const std::size_t blocks = live_blocks();
	EXPECT_TRUE(pim_finish(map.get()));
	EXPECT_EQ(live_blocks(), blocks);
}

TEST_F(PimFinish, WithoutAMapIsFalse)
{
	EXPECT_FALSE(pim_finish(nullptr));
}

TEST_F(PimFinish, FilesAndHandlersMayStillCome)
{
	EXPECT_TRUE(pim_finish(map.get()));
	add_file("table.bin", "0123");
	EXPECT_TRUE(pim_insert_handler(map.get(), "gamma", record_block));
	EXPECT_NE(ctrie_find(&map->file_map, "table.bin"), INT_MIN);
}

TEST_F(PimFinish, WorksOnAnAdoptedMap)
{
	build();
	ImageBytes image = image_of(map.get());
	Map adopted;
	ASSERT_TRUE(adopt(adopted, image));
	const std::size_t before = live_blocks();
	EXPECT_TRUE(pim_finish(adopted.get()));
	EXPECT_EQ(live_blocks(), before - 3 * kBlocksOfATrie);
	EXPECT_NE(pim_query_setting_id(adopted.get(), "S#M"), VEXIL_NO_ID);
}

// ---- pim_destroy ----

class PimDestroy : public PimFinish {};

TEST_F(PimDestroy, FreesEverythingAndClearsThePointer)
{
	build();
	EXPECT_TRUE(pim_destroy(map.out()));
	EXPECT_EQ(map.get(), nullptr);
	EXPECT_EQ(live_blocks(), 0u);
}

TEST_F(PimDestroy, FreesAFinishedMap)
{
	build();
	EXPECT_TRUE(pim_finish(map.get()));
	EXPECT_TRUE(pim_destroy(map.out()));
	EXPECT_EQ(live_blocks(), 0u);
}

TEST_F(PimDestroy, WithoutAMapIsFalse)
{
	EXPECT_FALSE(pim_destroy(nullptr));
	pim *none = nullptr;
	EXPECT_FALSE(pim_destroy(&none));
	EXPECT_EQ(none, nullptr);
}

TEST_F(PimDestroy, SecondTimeIsFalse)
{
	EXPECT_TRUE(pim_destroy(map.out()));
	EXPECT_FALSE(pim_destroy(map.out()));
}

TEST_F(PimDestroy, LeavesAnAdoptedImageAlone)
{
	build();
	ImageBytes image = image_of(map.get());
	const std::vector<char> before = image.bytes();
	Map adopted;
	const std::size_t blocks = live_blocks();
	ASSERT_TRUE(adopt(adopted, image));
	EXPECT_GT(live_blocks(), blocks);
	EXPECT_TRUE(pim_destroy(adopted.out()));
	EXPECT_EQ(live_blocks(), blocks);
	EXPECT_EQ(image.bytes(), before);
	EXPECT_TRUE(adopt(adopted, image));
}

TEST_F(PimDestroy, FreesAMapWhoseScanFailed)
{
	PimImage plan;
	plan.file("a", "1");
	plan.file("a", "2");
	ImageBytes image = plan.write();
	ASSERT_TRUE(pim_destroy(map.out()));
	EXPECT_FALSE(adopt(map, image));
	ASSERT_TRUE(map.get());
	EXPECT_TRUE(pim_destroy(map.out()));
	EXPECT_EQ(live_blocks(), 0u);
}

} // namespace
