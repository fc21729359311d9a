// SPDX-License-Identifier: MIT
#include "pim/pim.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/pim_images.h"
#include "tests/support/pim_json.h"
#include "tests/support/platform.h"

namespace {

using namespace vexil_test;

// ---- records ----

static_assert(sizeof(pim) == 1584);
static_assert(offsetof(pim, builder) == 0 && offsetof(pim, root) == 184);
static_assert(offsetof(pim, ip_map) == 200 && offsetof(pim, ipname_map) == 264);
static_assert(offsetof(pim, preset_map) == 328 && offsetof(pim, file_map) == 392);
static_assert(offsetof(pim, regname_to_func) == 456 && offsetof(pim, vregname_to_func) == 520);
static_assert(offsetof(pim, cus_vregname_to_func) == 584 && offsetof(pim, fn_map) == 648);
static_assert(offsetof(pim, fn_list) == 712 && sizeof(pim::fn_list) == 512);
static_assert(offsetof(pim, fn_list_num) == 1224 && offsetof(pim, alg_fn) == 1232);
static_assert(offsetof(pim, reg_info_table_size) == 1240);
static_assert(offsetof(pim, reg_info_table) == 1248);
static_assert(offsetof(pim, reg_level_num) == 1256 && sizeof(pim::reg_level_num) == 256);
static_assert(offsetof(pim, total_version) == 1512);
static_assert(offsetof(pim, hwreg_json_version) == 1520);
static_assert(offsetof(pim, swreg_json_version) == 1528);
static_assert(offsetof(pim, cus_swreg_json_version) == 1536);
static_assert(offsetof(pim, cus_version) == 1544 && sizeof(pim::cus_version) == 32);
static_assert(offsetof(pim, max_node_index) == 1576 && sizeof(pim::max_node_index) == 2);

static_assert(sizeof(ST_PQ_REG_INFO) == 16 && offsetof(ST_PQ_REG_INFO, e_pq_time_domain) == 0);
static_assert(offsetof(ST_PQ_REG_INFO, u32Addr) == 4 && offsetof(ST_PQ_REG_INFO, u32Mask) == 8);
static_assert(offsetof(ST_PQ_REG_INFO, b_valid) == 12);
static_assert(sizeof(EN_PQ_TIME_DOMAIN) == 4 && sizeof(EN_PQ_LEVEL) == 4);
static_assert(sizeof(reg_func) == 8 && offsetof(reg_func, fn_tbl) == 8 && sizeof(func_pair) == 8);
static_assert(sizeof(vexil_version) == 8 && sizeof(extmem_buffer_header) == 88);

static_assert(E_PQ_SRC0_DOMAIN == 0 && E_PQ_SRC1_DOMAIN == 1 && E_PQ_IP_DOMAIN == 2);
static_assert(E_PQ_OPF_DOMAIN == 3 && E_PQ_OPB_DOMAIN == 4 && E_PQ_OP2_DOMAIN == 5);
static_assert(E_PQ_DISP_DOMAIN == 6 && E_PQ_HDR_DOMAIN == 7 && E_PQ_METER_YHSL_DOMAIN == 8);
static_assert(E_PQ_METER_HDR_DOMAIN == 9 && E_PQ_METER_OBJ_DOMAIN == 10 && E_PQ_UCD_DOMAIN == 11);
static_assert(E_PQ_SRC_DOMAIN == 12 && E_PQ_GOP_DOMAIN == 13 && E_PQ_VD_DOMAIN == 14);
static_assert(E_PQ_DIP_DOMAIN == 15 && E_PQ_MAX_DOMAIN == 16);
static_assert(E_PQLV_INDIVIDUAL == 0 && E_PQLV_PI_SETTING == 1 && E_PQLV_OPTION_L1 == 2);
static_assert(E_PQLV_OPTION_L2 == 3 && E_PQLV_OPTION_L3 == 4 && E_PQLV_DEFAULT == 5);
static_assert(E_PQLV_PRESETREGS == 6 && E_PQLV_SYNC == 7 && E_PQLV_MAX == 8);

// ---- helpers ----

constexpr std::size_t kTries = 8;
// The record, and a root node and a text buffer for each trie.
constexpr std::size_t kBlocksOfAdoptedMap = 1 + 2 * kTries;
constexpr std::size_t kBlocksOfEmptyMap = kBlocksOfAdoptedMap + 2; // nodes and data

const std::string kNoRoot = "[pim_init][159]vexil lib fail!!\n";
const std::string kNoNodes = "[pim_init][123]vexil lib fail!!\n";

std::vector<ctrie *> tries_of(pim *map)
{
	return {&map->ip_map,
		&map->ipname_map,
		&map->preset_map,
		&map->file_map,
		&map->regname_to_func,
		&map->vregname_to_func,
		&map->cus_vregname_to_func,
		&map->fn_map};
}

// Stands for a map of the caller's that a failing call must not touch.
pim *somebodys_map()
{
	static pim map;
	return &map;
}

// pim_init that must fail before there is a map: nothing is stored, and nothing stays allocated.
void expect_no_map(char *buf, u32 size, const std::string &log = "")
{
	pim *map = somebodys_map();
	EXPECT_FALSE(pim_init(&map, buf, size, nullptr, 0));
	EXPECT_EQ(map, somebodys_map());
	EXPECT_EQ(live_blocks(), 0u);
	EXPECT_EQ(take_log(), log);
}

void expect_no_map(ImageBytes image, const std::string &log = "")
{
	expect_no_map(image.data(), image.size(), log);
}

PimImage image_with_everything()
{
	PimImage plan;
	const u16 ip = plan.ip("scaler");
	const u16 setting = plan.setting(ip, "mode", E_PQLV_DEFAULT);
	plan.list(plan.config(setting, "mode#soft"), {{3, 0x12}});
	plan.config(setting, "mode#commonReg", EXTMEM_TAG_IP_COMMON_REG_CONFIG);
	const u16 presets = plan.setting(ip, "gamma", E_PQLV_PRESETREGS);
	plan.preset(presets, "gamma#dark", plan.add_text("REGTAB"));
	plan.file("table.bin", "0123456789");
	return plan;
}

// ---- an empty map ----

class PimInit : public testing::Test {
protected:
	Map map;
};

TEST_F(PimInit, EmptyMapHoldsTheRootAlone)
{
	ASSERT_TRUE(pim_init(map.out(), nullptr, 0, nullptr, 0));
	EXPECT_EQ(nodes(map.get()), Lines{"0 GENERAL"});
	EXPECT_EQ(map->root.id, 0);
	EXPECT_EQ(map->root.owner, &map->builder);
	EXPECT_EQ(map->builder.node_buffer.buf_used, 16u);
	EXPECT_EQ(map->builder.node_buffer.buf_max, 1024u);
	EXPECT_EQ(map->builder.data_buffer.buf_used, 0u);
	EXPECT_EQ(map->builder.data_buffer.buf_max, 1024u);
	EXPECT_TRUE(map->builder.malloc_flag);
	EXPECT_EQ(map->builder.err_code, EXTMEM_SUCCESS);
	EXPECT_EQ(live_blocks(), kBlocksOfEmptyMap);
	EXPECT_EQ(take_log(), "");
}

TEST_F(PimInit, EmptyMapHasEightTriesWithHooksAndABufferOf1024)
{
	ASSERT_TRUE(pim_init(map.out(), nullptr, 0, nullptr, 0));
	for (const ctrie *trie : tries_of(map.get())) {
		EXPECT_EQ(trie->allocate, &ALLOC);
		EXPECT_EQ(trie->deallocate, &DEALLOC);
		EXPECT_EQ(trie->reallocate, &REALLOC);
		ASSERT_TRUE(trie->root);
		EXPECT_EQ(trie->root->owner, trie);
		EXPECT_EQ(trie->root->value, INT_MIN);
		EXPECT_EQ(trie->buf_used, 0u);
		EXPECT_EQ(trie->buf_max, 1024u);
	}
}

TEST_F(PimInit, EverythingElseOfAnEmptyMapIsZero)
{
	ASSERT_TRUE(pim_init(map.out(), nullptr, 0, nullptr, 0));
	for (const vexil_callback fn : map->fn_list)
		EXPECT_EQ(fn, nullptr);
	EXPECT_EQ(map->fn_list_num, 0u);
	EXPECT_EQ(map->alg_fn, nullptr);
	EXPECT_EQ(map->reg_info_table, nullptr);
	EXPECT_EQ(map->reg_info_table_size, 0u);
	EXPECT_EQ(pim_get_reg_num(map.get(), E_PQ_MAX_DOMAIN, E_PQLV_MAX), 0u);
	const vexil_version none{};
	EXPECT_EQ(map->total_version, none);
	EXPECT_EQ(map->hwreg_json_version, none);
	EXPECT_EQ(map->swreg_json_version, none);
	EXPECT_EQ(map->cus_swreg_json_version, none);
	EXPECT_EQ(std::string(map->cus_version, sizeof map->cus_version), std::string(32, '\0'));
	EXPECT_EQ(map->max_node_index, 0);
	const extmem_buffer_header no_header{};
	EXPECT_EQ(std::memcmp(&map->builder.header, &no_header, sizeof no_header), 0);
}

TEST_F(PimInit, BufferOfSizeZeroGivesAnEmptyMap)
{
	char not_an_image[1] = {};
	ASSERT_TRUE(pim_init(map.out(), not_an_image, 0, nullptr, 0));
	EXPECT_EQ(nodes(map.get()), Lines{"0 GENERAL"});
	EXPECT_TRUE(map->builder.malloc_flag);
}

TEST_F(PimInit, SizeWithoutABufferGivesAnEmptyMap)
{
	ASSERT_TRUE(pim_init(map.out(), nullptr, 4096, nullptr, 0));
	EXPECT_EQ(nodes(map.get()), Lines{"0 GENERAL"});
	EXPECT_TRUE(map->builder.malloc_flag);
}

TEST_F(PimInit, NowhereToStoreTheMapIsFalse)
{
	EXPECT_FALSE(pim_init(nullptr, nullptr, 0, nullptr, 0));
	EXPECT_EQ(live_blocks(), 0u);
}

TEST_F(PimInit, FirstBlockIsTheRecord)
{
	const Refuse all = Refuse::from(1);
	EXPECT_FALSE(pim_init(map.out(), nullptr, 0, nullptr, 0));
	EXPECT_EQ(last_request().size, 1584u);
	EXPECT_EQ(allocations(), 1u);
}

TEST_F(PimInit, EmptyMapWithoutMemoryFailsWhole)
{
	for (std::size_t nth = 1; nth <= kBlocksOfEmptyMap; ++nth) {
		SCOPED_TRACE(nth);
		const Refuse one = Refuse::only(nth);
		expect_no_map(nullptr, 0, nth > kBlocksOfAdoptedMap ? kNoRoot : "");
		EXPECT_TRUE(one.happened());
	}
	const Refuse beyond = Refuse::only(kBlocksOfEmptyMap + 1);
	EXPECT_TRUE(pim_init(map.out(), nullptr, 0, nullptr, 0));
	EXPECT_FALSE(beyond.happened());
}

TEST_F(PimInit, EmptyMapWithoutAnyMoreMemoryFailsWhole)
{
	for (std::size_t nth = 1; nth <= kBlocksOfEmptyMap; ++nth) {
		SCOPED_TRACE(nth);
		const Refuse rest = Refuse::from(nth);
		expect_no_map(nullptr, 0, nth > kBlocksOfAdoptedMap ? kNoRoot : "");
	}
}

// ---- the register table ----

TEST_F(PimInit, TableIsKeptByReference)
{
	const RegisterTable table(3, reg(0, 0x10, 0, 16));
	ASSERT_TRUE(pim_init(map.out(), nullptr, 0, table.data(), table.size()));
	EXPECT_EQ(map->reg_info_table, table.data());
	EXPECT_EQ(map->reg_info_table_size, 3u);
}

TEST_F(PimInit, TableOfNoEntriesIsNoTable)
{
	const RegisterTable table(3, reg(0, 0x10, 0, 16));
	ASSERT_TRUE(pim_init(map.out(), nullptr, 0, table.data(), 0));
	EXPECT_EQ(map->reg_info_table, nullptr);
	EXPECT_EQ(map->reg_info_table_size, 0u);
}

TEST_F(PimInit, EntriesWithoutATableAreNoTable)
{
	ASSERT_TRUE(pim_init(map.out(), nullptr, 0, nullptr, 3));
	EXPECT_EQ(map->reg_info_table, nullptr);
	EXPECT_EQ(map->reg_info_table_size, 0u);
}

TEST_F(PimInit, HalfATableLeavesTheListsOfAnImageAlone)
{
	const RegisterTable table(16, reg(0, 0x10, 0, 16));
	PimImage plan;
	const u16 list = plan.list(
		plan.config(plan.setting(plan.ip("a"), "s", E_PQLV_DEFAULT), "s#m"), {{3, 0x12}});
	ImageBytes image = plan.write();
	const std::vector<char> before = image.bytes();
	{
		Map half;
		ASSERT_TRUE(pim_init(half.out(), image.data(), image.size(), table.data(), 0));
		EXPECT_EQ(pim_get_reg_num(half.get(), E_PQ_MAX_DOMAIN, E_PQLV_MAX), 0u);
	}
	EXPECT_EQ(image.bytes(), before);
	{
		Map half;
		ASSERT_TRUE(pim_init(half.out(), image.data(), image.size(), nullptr, 16));
		EXPECT_EQ(pim_get_reg_num(half.get(), E_PQ_MAX_DOMAIN, E_PQLV_MAX), 0u);
	}
	EXPECT_EQ(image.bytes(), before);
	ASSERT_TRUE(adopt(map, image, table));
	EXPECT_EQ(image.tag(list), EXTMEM_TAG_REGISTER_ADDR_SETTINGS);
}

// ---- over an image ----

TEST_F(PimInit, ImageIsUsedWhereItLies)
{
	ImageBytes image = image_with_everything().write();
	const std::vector<char> before = image.bytes();
	ASSERT_TRUE(adopt(map, image));
	auto *const bytes = reinterpret_cast<u8 *>(image.data());
	EXPECT_EQ(map->builder.node_buffer.buf, bytes + 96);
	EXPECT_EQ(map->builder.node_buffer.buf_used, image.nodes_used());
	EXPECT_EQ(map->builder.node_buffer.buf_max, image.node_capacity());
	EXPECT_EQ(map->builder.data_buffer.buf, bytes + 104 + image.node_capacity());
	EXPECT_EQ(map->builder.data_buffer.buf_used, image.data_used());
	EXPECT_EQ(map->builder.data_buffer.buf_max, image.data_capacity());
	EXPECT_FALSE(map->builder.malloc_flag);
	EXPECT_EQ(map->root.id, 0);
	EXPECT_EQ(map->root.owner, &map->builder);
	EXPECT_EQ(map->max_node_index, 0);
	EXPECT_EQ(image.bytes(), before);
	EXPECT_EQ(take_log(), "");
}

TEST_F(PimInit, SmallestImageIsTheRootAlone)
{
	PimImage plan;
	plan.node_capacity = 16;
	plan.data_capacity = 1;
	ImageBytes image = plan.write();
	ASSERT_EQ(image.size(), 121u);
	ASSERT_TRUE(adopt(map, image));
	EXPECT_EQ(live_blocks(), kBlocksOfAdoptedMap);
}

TEST_F(PimInit, ImageMayStandAtAnyAddress)
{
	PimImage plan = image_with_everything();
	const RegisterTable table(16, reg(2, 0x10, 4, 8));
	std::vector<std::vector<u16>> answers;
	for (std::size_t shift = 0; shift < 8; ++shift) {
		SCOPED_TRACE(shift);
		const ImageBytes image = plan.write();
		std::vector<char> shifted(image.size() + shift);
		std::copy(image.bytes().begin(), image.bytes().end(),
			  shifted.begin() + static_cast<std::ptrdiff_t>(shift));
		ASSERT_TRUE(pim_init(map.out(), shifted.data() + shift, image.size(), table.data(),
				     table.size()));
		answers.push_back({pim_query_setting_id(map.get(), "mode#soft"),
				   pim_query_preset_id(map.get(), "gamma#dark"),
				   map->reg_level_num[2][E_PQLV_DEFAULT]});
		EXPECT_EQ(answers.back(), answers.front());
		pim_destroy(map.out());
	}
	EXPECT_NE(answers.front()[0], VEXIL_NO_ID);
	EXPECT_EQ(answers.front()[2], 1);
}

TEST_F(PimInit, TableIsKeptWithAnImageToo)
{
	ImageBytes image = PimImage().write();
	const RegisterTable table(2, reg(0, 0x10, 0, 16));
	ASSERT_TRUE(adopt(map, image, table));
	EXPECT_EQ(map->reg_info_table, table.data());
	EXPECT_EQ(map->reg_info_table_size, 2u);
}

TEST_F(PimInit, ImageWithoutMemoryForTheMapIsNotAdopted)
{
	ImageBytes image = image_with_everything().write();
	const std::vector<char> before = image.bytes();
	for (std::size_t nth = 1; nth <= kBlocksOfAdoptedMap; ++nth) {
		SCOPED_TRACE(nth);
		const Refuse one = Refuse::only(nth);
		expect_no_map(image.data(), image.size());
		EXPECT_TRUE(one.happened());
	}
	EXPECT_EQ(image.bytes(), before);
}

TEST_F(PimInit, NamesThatCannotBeIndexedForLackOfMemoryLeaveAMap)
{
	ImageBytes image = image_with_everything().write();
	bool refused = true;
	for (std::size_t nth = kBlocksOfAdoptedMap + 1; refused; ++nth) {
		SCOPED_TRACE(nth);
		Map half;
		{
			const Refuse rest = Refuse::from(nth);
			const bool result = adopt(half, image);
			refused = rest.happened();
			ASSERT_TRUE(half.get());
			// Only a file's name decides about the result.
			EXPECT_EQ(result, ctrie_find(&half->file_map, "table.bin") != INT_MIN);
		}
		EXPECT_EQ(take_log(), "");
	}
}

// ---- the version gate ----

struct Gate {
	vexil_version code;
	u16 kind;
	bool accepted;
};

const Gate kGates[] = {
	{{2, 0, 0}, 1, true},       {{2, 1, 0}, 1, true},          {{2, 2, 0}, 1, true},
	{{2, 2, 2}, 1, true},       {{2, 0, 0xFFFFFFFF}, 1, true}, {{2, 3, 0}, 1, false},
	{{2, 0xFFFF, 0}, 1, false}, {{2, 0x100, 0}, 1, false},     {{3, 0, 0}, 1, false},
	{{1, 9, 0}, 1, false},      {{1, 2, 0}, 1, false},         {{0, 0, 0}, 1, false},
	{{0x102, 2, 0}, 1, false},  {{0xFFFF, 0, 0}, 1, false},    {{2, 2, 2}, 0, false},
	{{2, 2, 2}, 2, false},      {{2, 2, 2}, 0x101, false},     {{2, 2, 2}, 0xFFFF, false},
};

TEST(PimVersionGate, ImagesOfAMapFrom20To22PassSilently)
{
	for (const Gate &row : kGates) {
		SCOPED_TRACE(testing::Message()
			     << row.code.u16MajorNumber << "." << row.code.u16MinorNumber << "."
			     << row.code.u32Revision << " kind " << row.kind);
		PimImage plan;
		plan.header.codeVersion = row.code;
		plan.header.binType = row.kind;
		if (!row.accepted) {
			expect_no_map(plan.write());
			continue;
		}
		ImageBytes image = plan.write();
		Map map;
		EXPECT_TRUE(adopt(map, image));
		EXPECT_TRUE(map.get());
		EXPECT_EQ(take_log(), "");
	}
}

extmem_buffer_header telling_header()
{
	extmem_buffer_header header{};
	header.total_version = {1, 2, 3};
	header.rl_json_version = {4, 5, 6};
	header.hw_json_version = {7, 8, 9};
	header.sw_json_version = {10, 11, 12};
	header.cus_sw_json_version = {13, 14, 15};
	std::memcpy(header.cus_version, "customer 7", 10);
	header.codeVersion = {2, 2, 2};
	header.binType = 1;
	header.chipID = 0x5A17;
	return header;
}

TEST(PimVersionGate, VersionsOfTheImageBecomeThoseOfTheMap)
{
	PimImage plan;
	plan.header = telling_header();
	ImageBytes image = plan.write();
	Map map;
	ASSERT_TRUE(adopt(map, image));
	EXPECT_EQ(map->total_version, (vexil_version{1, 2, 3}));
	EXPECT_EQ(map->hwreg_json_version, (vexil_version{7, 8, 9}));
	EXPECT_EQ(map->swreg_json_version, (vexil_version{10, 11, 12}));
	EXPECT_STREQ(map->cus_version, "customer 7");
	EXPECT_EQ(map->builder.header.chipID, 0x5A17);
}

TEST(PimVersionGate, VersionOfTheCustomerListIsNotRestored)
{
	PimImage plan;
	plan.header = telling_header();
	ImageBytes image = plan.write();
	Map map;
	ASSERT_TRUE(adopt(map, image));
	EXPECT_EQ(map->cus_swreg_json_version, (vexil_version{0, 0, 0}));
}

TEST(PimVersionGate, CustomerTextWithoutNulIsCutAt31Characters)
{
	PimImage plan;
	std::memset(plan.header.cus_version, 'x', 32);
	ImageBytes image = plan.write();
	Map map;
	ASSERT_TRUE(adopt(map, image));
	EXPECT_EQ(map->cus_version, std::string(31, 'x'));
}

TEST(PimVersionGate, AcceptsAHeaderByItself)
{
	Map map;
	ASSERT_TRUE(map.init());
	const extmem_buffer_header header = telling_header();
	EXPECT_TRUE(__pim_check_bin_version(map.get(), &header));
	EXPECT_EQ(map->total_version, (vexil_version{1, 2, 3}));
	EXPECT_EQ(map->hwreg_json_version, (vexil_version{7, 8, 9}));
	EXPECT_EQ(map->swreg_json_version, (vexil_version{10, 11, 12}));
	EXPECT_EQ(map->cus_swreg_json_version, (vexil_version{}));
	EXPECT_STREQ(map->cus_version, "customer 7");
}

TEST(PimVersionGate, RefusedHeaderLeavesTheMapAsItWas)
{
	Map map;
	ASSERT_TRUE(map.init());
	map->total_version = {9, 9, 9};
	std::strcpy(map->cus_version, "mine");
	const pim before = *map.get();
	for (const Gate &row : kGates) {
		if (row.accepted)
			continue;
		extmem_buffer_header header = telling_header();
		header.codeVersion = row.code;
		header.binType = row.kind;
		EXPECT_FALSE(__pim_check_bin_version(map.get(), &header));
	}
	EXPECT_FALSE(__pim_check_bin_version(map.get(), nullptr));
	EXPECT_EQ(std::memcmp(map.get(), &before, sizeof before), 0);
	EXPECT_EQ(take_log(), "");
}

TEST(PimVersionGate, WithoutAMapIsFalse)
{
	const extmem_buffer_header header = telling_header();
	EXPECT_FALSE(__pim_check_bin_version(nullptr, &header));
}

// ---- images that cannot be adopted ----

TEST(PimDamagedImage, WithoutNodesIsRefusedWithAReport)
{
	ImageBytes image = PimImage().write();
	image.put(88, u32{0});
	expect_no_map(image, kNoNodes);
}

TEST(PimDamagedImage, WithLessThanOneNodeIsRefusedWithAReport)
{
	ImageBytes image = PimImage().write();
	image.put(88, u32{15});
	expect_no_map(image, kNoNodes);
}

TEST(PimDamagedImage, OfAnotherVersionAndWithoutNodesIsRefusedSilently)
{
	PimImage plan;
	plan.header.codeVersion = {2, 3, 0};
	ImageBytes image = plan.write();
	image.put(88, u32{0});
	expect_no_map(image);
}

TEST(PimDamagedImage, ShorterThanItsNodesIsRefusedSilently)
{
	const ImageBytes whole = PimImage().write(); // 96 + 1024 nodes + 8 + 1024 data
	for (const std::size_t size : {1u, 87u, 88u, 95u, 96u, 112u, 1119u, 1120u, 1127u}) {
		SCOPED_TRACE(size);
		ImageBytes image = whole;
		image.resize(size);
		expect_no_map(image);
	}
}

TEST(PimDamagedImage, WithContradictingSizesIsRefusedSilently)
{
	const std::size_t used = 88, capacity = 92, data_used = 96 + 1024,
			  data_capacity = data_used + 4;
	const struct {
		const char *what;
		std::size_t at;
		u32 value;
	} cases[] = {
		{"more nodes used than there is room", used, 1025},
		{"no room for nodes", capacity, 0},
		{"nodes beyond the image", capacity, 0xFFFFFFFF},
		{"node capacity that wraps with the fixed bytes", capacity, 0xFFFFFF98},
		{"more data used than there is room", data_used, 1025},
		{"no room for data", data_capacity, 0},
	};
	for (const auto &row : cases) {
		SCOPED_TRACE(row.what);
		ImageBytes image = PimImage().write();
		image.put(row.at, row.value);
		expect_no_map(image);
	}
}

// The whole image says 2048 bytes of data; the caller's buffer ends earlier.
TEST(PimDamagedImage, WithDataBeyondTheBufferKeepsWhatIsThere)
{
	PimImage plan;
	const u16 near = plan.ip("near");
	plan.config(plan.setting(near, "s", E_PQLV_DEFAULT), "s#near");
	plan.add_record(EXTMEM_TAG_DATA, std::string(1200, 'x'));
	const u16 far = plan.ip("far");
	plan.config(plan.setting(far, "t", E_PQLV_DEFAULT), "t#far");
	ImageBytes image = plan.write();
	ASSERT_EQ(image.data_capacity(), 2048u);
	constexpr std::size_t kHeld = 1000;
	image.resize(image.data_at() + kHeld);
	Map map;
	EXPECT_TRUE(adopt(map, image));
	EXPECT_EQ(map->builder.data_buffer.buf_max, kHeld);
	EXPECT_EQ(map->builder.data_buffer.buf_used, kHeld);
	EXPECT_EQ(pim_get_export_size(map.get()), image.size());
	EXPECT_EQ(ctrie_find(&map->ip_map, "near"), near);
	EXPECT_NE(ctrie_find(&map->ipname_map, "s#near"), INT_MIN);
	EXPECT_EQ(ctrie_find(&map->ip_map, "far"), INT_MIN);
	EXPECT_EQ(ctrie_find(&map->ipname_map, "t#far"), INT_MIN);
	std::vector<char> copy(image.size());
	EXPECT_EQ(pim_export(map.get(), copy.data()), copy.size());
	EXPECT_EQ(take_log(), "");
}

TEST(PimDamagedImage, WithoutAnyOfItsDataKeepsItsNodes)
{
	PimImage plan;
	const u16 ip = plan.ip("scaler");
	ImageBytes image = plan.write();
	image.resize(image.data_at());
	Map map;
	EXPECT_TRUE(adopt(map, image));
	EXPECT_EQ(map->builder.data_buffer.buf_max, 0u);
	EXPECT_EQ(map->builder.data_buffer.buf_used, 0u);
	EXPECT_EQ(extmem_fetch_tag({ip, &map->builder}), EXTMEM_TAG_IP);
	EXPECT_EQ(ctrie_find(&map->ip_map, "scaler"), INT_MIN);
	vexil_version version{1, 2, 3};
	EXPECT_FALSE(pim_get_pim_version(map.get(), &version, "scaler"));
}

TEST(PimDamagedImage, WithUsedDataInsideTheBufferLosesOnlyCapacity)
{
	PimImage plan;
	plan.ip("scaler");
	plan.data_capacity = 4096;
	ImageBytes image = plan.write();
	image.resize(image.data_at() + 512);
	Map map;
	ASSERT_TRUE(adopt(map, image));
	EXPECT_EQ(map->builder.data_buffer.buf_used, plan.data_bytes());
	EXPECT_EQ(map->builder.data_buffer.buf_max, 512u);
	EXPECT_NE(ctrie_find(&map->ip_map, "scaler"), INT_MIN);
}

TEST(PimDamagedImage, AnnouncingFourGigabytesOfDataIsNotReadBeyondItsEnd)
{
	PimImage plan;
	plan.data_capacity = 64;
	const u16 ip = plan.ip("scaler");
	plan.record(plan.child(plan.next(ip)), 0xFFFFFF00, 0);
	ImageBytes image = plan.write();
	image.put(kImageNodesAt + image.node_capacity(), u32{0xFFFFFFFF});
	image.put(kImageNodesAt + image.node_capacity() + 4, u32{0xFFFFFFFF});
	Map map;
	EXPECT_TRUE(adopt(map, image));
	EXPECT_EQ(map->builder.data_buffer.buf_used, 64u);
	EXPECT_EQ(map->builder.data_buffer.buf_max, 64u);
	EXPECT_EQ(ctrie_find(&map->ip_map, "scaler"), INT_MIN);
}

} // namespace
