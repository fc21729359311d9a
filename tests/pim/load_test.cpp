// SPDX-License-Identifier: MIT
//
// Loading: ids and labels, routes of blocks, the budget, files and handlers, damaged images.
#include "tests/support/pim_json.h"

#include <climits>

namespace {

using namespace vexil_test;

/** A hand-made image with one configuration, label "S#M", and the map over it. */
class PimLoad : public PimTest {
protected:
	/** A block list with pairs 0=0, 1=1 ... below the configuration. */
	u16 block(int tag, u32 pairs) { return plan.list(configuration, pairs_of(pairs), tag); }

	static Pairs pairs_of(u32 count)
	{
		Pairs pairs;
		for (u32 i = 0; i < count; ++i)
			pairs.push_back({i, i});
		return pairs;
	}

	/** Adopts the plan. */
	pim *adopted()
	{
		EXPECT_TRUE(adopt_image(plan.write()));
		return map.get();
	}

	/** pim_load_setting_count on the configuration. */
	u32 load_within(u32 budget)
	{
		blocks.clear();
		return pim_load_setting_count(map.get(), configuration, budget, record_block,
					      &blocks);
	}

	PimImage plan;
	u16 setting_node = plan.setting(plan.ip("A"), "S", E_PQLV_DEFAULT);
	u16 configuration = plan.config(setting_node, "S#M");
	Lines blocks;
};

using PimQuery = PimTest;
using PimLoadByName = PimLoad;
using PimLoadById = PimLoad;
using PimLoadRoute = PimLoad;
using PimLoadBudget = PimLoad;
using PimLoadFile = PimLoad;
using PimLoadDamage = PimLoad;

constexpr int kChargedTags[] = {36, 45, 48, 49, 50, 51, 52, 57};
constexpr int kFreeTags[] = {37, 46, 55};

const std::string kNoData =
	"[VEXIL][PIM][__pim_load_node] Internal error. Failed to fetch data.\n";

u32 negative(u32 amount)
{
	return 0u - amount;
}

// ---- ids of labels ----

TEST_F(PimQuery, AnswersWithTheNodeIdOfALabelInAnyLetterCase)
{
	EXPECT_TRUE(
		insert(groups("'A': {'settings': {'S': {'group': {'M': {}}}, 'P': {'1.PresetRegs': "
			      "'T', 'group': {'M': {}}}}}")));
	EXPECT_EQ(pim_query_setting_id(map.get(), "S#M"), 14);
	EXPECT_EQ(pim_query_setting_id(map.get(), "s#m"), 14);
	EXPECT_EQ(pim_query_preset_id(map.get(), "P#M"), 25);
	EXPECT_EQ(pim_query_preset_id(map.get(), "p#M"), 25);
	// Each looks into its own index, and into no other.
	EXPECT_EQ(pim_query_setting_id(map.get(), "P#M"), 65535);
	EXPECT_EQ(pim_query_preset_id(map.get(), "S#M"), 65535);
	EXPECT_EQ(pim_query_setting_id(map.get(), "S"), 65535);
	EXPECT_EQ(pim_query_setting_id(map.get(), "A"), 65535);
}

TEST_F(PimQuery, AnswersNoneWithoutMapOrLabel)
{
	EXPECT_EQ(pim_query_setting_id(nullptr, "S#M"), 65535);
	EXPECT_EQ(pim_query_preset_id(nullptr, "S#M"), 65535);
	EXPECT_EQ(pim_query_setting_id(map.get(), nullptr), 65535);
	EXPECT_EQ(pim_query_preset_id(map.get(), nullptr), 65535);
	EXPECT_EQ(pim_query_setting_id(map.get(), ""), 65535);
	EXPECT_EQ(pim_query_preset_id(map.get(), "unknown"), 65535);
}

TEST_F(PimQuery, AnswersNoneForValuesThatAreNoIds)
{
	for (ctrie *labels : {&map->ipname_map, &map->preset_map}) {
		ASSERT_TRUE(ctrie_insert(labels, "last", 65534));
		ASSERT_TRUE(ctrie_insert(labels, "none", 65535));
		ASSERT_TRUE(ctrie_insert(labels, "beyond", 65536 + 3));
	}
	EXPECT_EQ(pim_query_setting_id(map.get(), "last"), 65534); // not looked up in the store
	EXPECT_EQ(pim_query_preset_id(map.get(), "last"), 65534);
	EXPECT_EQ(pim_query_setting_id(map.get(), "none"), 65535);
	EXPECT_EQ(pim_query_preset_id(map.get(), "none"), 65535);
	EXPECT_EQ(pim_query_setting_id(map.get(), "beyond"), 65535);
	EXPECT_EQ(pim_query_preset_id(map.get(), "beyond"), 65535);
}

// ---- by name ----

TEST_F(PimLoadByName, UnknownLabelIsReported)
{
	block(36, 1);
	EXPECT_EQ(load(adopted(), "S#m"), (Lines{"REGISTER {0=0}"}));
	EXPECT_EQ(loaded("S#X"), Lines{});
	EXPECT_EQ(take_log(), "[VEXIL][PIM][pim_load_setting_by_name] Cannot find label: S#X\n");
	EXPECT_EQ(loaded(""), Lines{});
	EXPECT_EQ(take_log(), "[VEXIL][PIM][pim_load_setting_by_name] Cannot find label: \n");
}

TEST_F(PimLoadByName, PlainConfigurationsComeBeforePresets)
{
	block(36, 1);
	const u16 table = plan.add_text("T");
	plan.list(plan.preset(setting_node, "S#M", table), pairs_of(2));
	plan.list(plan.preset(setting_node, "P#M", table), pairs_of(3));
	plan.list(plan.config(setting_node, "C#M", EXTMEM_TAG_IP_COMMON_REG_CONFIG), pairs_of(4),
		  46);
	EXPECT_EQ(load(adopted(), "S#M"), (Lines{"REGISTER {0=0}"}));
	EXPECT_EQ(loaded("P#M"), (Lines{"REGISTER {0=0 1=1 2=2}"}));
	EXPECT_EQ(loaded("C#M"), (Lines{"RIU {0=0 1=1 2=2 3=3}"}));
}

TEST_F(PimLoadByName, IdThatIsNotInTheMapIsReported)
{
	const u16 table = plan.add_text("T");
	for (const char *label : {"none", "outside", "beyond"}) // presets do not stand in
		plan.list(plan.preset(setting_node, label, table), pairs_of(1));
	adopted();
	const int outside = static_cast<int>(node_count(map.get()));
	ASSERT_TRUE(ctrie_insert(&map->ipname_map, "none", 65535));
	ASSERT_TRUE(ctrie_insert(&map->ipname_map, "outside", outside));
	ASSERT_TRUE(ctrie_insert(&map->ipname_map, "beyond", 65536 + configuration));
	for (const auto &[label, id] : {std::pair{"none", 65535}, std::pair{"outside", outside},
					std::pair{"beyond", 65536 + configuration}}) {
		EXPECT_EQ(loaded(label), Lines{}) << label;
		EXPECT_EQ(take_log(),
			  "[VEXIL][PIM][pim_load_setting_by_name] Cannot find target node: " +
				  std::to_string(id) + ".\n");
	}
}

TEST_F(PimLoadByName, NullArgumentsAreSilent)
{
	block(36, 1);
	adopted();
	pim_load_setting_by_name(nullptr, "S#M", record_block, &blocks);
	pim_load_setting_by_name(map.get(), nullptr, record_block, &blocks);
	pim_load_setting_by_name(map.get(), "S#M", nullptr, &blocks);
	pim_load_setting_by_name(map.get(), "unknown", nullptr, &blocks);
	EXPECT_EQ(blocks, Lines{});
}

TEST_F(PimLoadByName, HasNoBudget)
{
	for (int i = 0; i < 20; ++i)
		block(36, 100);
	EXPECT_EQ(load(adopted(), "S#M").size(), 20u);
}

// ---- by id ----

TEST_F(PimLoadById, IdsOutsideTheMapAreReportedAndKeepTheBudget)
{
	block(36, 1);
	adopted();
	const u16 outside = static_cast<u16>(node_count(map.get()));
	for (const u16 id : {outside, u16{65534}, u16{65535}}) {
		const std::string line = "] Invalid node id: " + std::to_string(id) + "\n";
		pim_load_setting(map.get(), id, false, record_block, &blocks);
		EXPECT_EQ(take_log(), "[VEXIL][PIM][pim_load_setting" + line);
		for (const u32 budget : {0u, 7u, 0xFFFFFFu, negative(1)}) {
			EXPECT_EQ(pim_load_setting_count(map.get(), id, budget, record_block,
							 &blocks),
				  budget);
			EXPECT_EQ(take_log(), "[VEXIL][PIM][pim_load_setting_count" + line);
		}
	}
	EXPECT_EQ(blocks, Lines{});
}

TEST_F(PimLoadById, MapWithoutANodeBufferHasNoIds)
{
	ASSERT_TRUE(map.init());
	extmem_builder_destroy(&map->builder);
	pim_load_setting(map.get(), 0, false, record_block, &blocks);
	EXPECT_EQ(take_log(), "[VEXIL][PIM][pim_load_setting] Invalid node id: 0\n");
	EXPECT_EQ(pim_load_setting_count(map.get(), 0, 5, record_block, &blocks), 5u);
	EXPECT_EQ(take_log(), "[VEXIL][PIM][pim_load_setting_count] Invalid node id: 0\n");
}

TEST_F(PimLoadById, NullArgumentsAreSilentAndGiveTheBudgetBack)
{
	block(36, 1);
	adopted();
	pim_load_setting(nullptr, configuration, false, record_block, &blocks);
	pim_load_setting(map.get(), configuration, false, nullptr, &blocks);
	pim_load_setting(map.get(), 65535, false, nullptr, &blocks);
	EXPECT_EQ(pim_load_setting_count(nullptr, configuration, 12, record_block, &blocks), 12u);
	EXPECT_EQ(pim_load_setting_count(map.get(), configuration, 12, nullptr, &blocks), 12u);
	EXPECT_EQ(pim_load_setting_count(map.get(), 65535, negative(3), nullptr, &blocks),
		  negative(3));
	EXPECT_EQ(blocks, Lines{});
}

TEST_F(PimLoadById, CheckCommonHasNoEffect)
{
	block(36, 2);
	block(46, 1);
	adopted();
	Lines checked;
	pim_load_setting(map.get(), configuration, false, record_block, &blocks);
	pim_load_setting(map.get(), configuration, true, record_block, &checked);
	EXPECT_EQ(blocks, (Lines{"REGISTER {0=0 1=1}", "RIU {0=0}"}));
	EXPECT_EQ(checked, blocks);
}

TEST_F(PimLoadById, NodesThatAreNoConfigurationsDeliverNothing)
{
	block(36, 1);
	plan.file("file", "bytes");
	adopted();
	for (u16 id = 0; id < node_count(map.get()); ++id) {
		if (id == configuration)
			continue;
		EXPECT_EQ(load(map.get(), id), Lines{}) << node(id);
		EXPECT_EQ(pim_load_setting_count(map.get(), id, 9, record_block, &blocks), 9u);
	}
}

TEST_F(PimLoadById, ConfigurationsOfAnyKindAreLoadedByTheirId)
{
	const u16 common =
		plan.config(setting_node, "S#commonReg", EXTMEM_TAG_IP_COMMON_REG_CONFIG);
	plan.list(common, pairs_of(1), 46);
	const u16 preset = plan.preset(setting_node, "P#M", plan.add_text("T"));
	plan.list(preset, pairs_of(2));
	adopted();
	EXPECT_EQ(load(map.get(), common), (Lines{"RIU {0=0}"}));
	EXPECT_EQ(load(map.get(), preset), (Lines{"REGISTER {0=0 1=1}"}));
}

TEST_F(PimLoadById, WorkerGivesTheBudgetBackForNodesThatAreNotThere)
{
	block(36, 2);
	adopted();
	EXPECT_EQ(
		__pim_load_node(map.get(), node_d{0xFFFF, &map->builder}, 4, record_block, &blocks),
		4u);
	EXPECT_EQ(__pim_load_node(map.get(), node_d{0xFFFF, nullptr}, 4, record_block, &blocks),
		  4u);
	EXPECT_EQ(__pim_load_node(map.get(), node_at(map.get(), node_count(map.get())), 4,
				  record_block, &blocks),
		  4u);
	EXPECT_EQ(blocks, Lines{});
	EXPECT_EQ(__pim_load_node(map.get(), node_at(map.get(), configuration), 4, record_block,
				  &blocks),
		  2u);
	EXPECT_EQ(blocks.size(), 1u);
}

// ---- routes ----

TEST_F(PimLoadRoute, RegisterBlocksGoToTheCallbackInOrderOthersArePassedOver)
{
	Lines expected;
	u32 charged = 0;
	for (int tag = 0; tag <= 255; ++tag) {
		if (tag == EXTMEM_TAG_FUNCTION_DATA || tag == EXTMEM_TAG_ALGORITHM_DATA)
			continue;
		if (tag < EXTMEM_TAG_DATA_TYPE_BEGIN) {
			plan.hold(configuration, plan.add(tag));
			continue;
		}
		block(tag, 3);
		const bool is_charged =
			std::count(std::begin(kChargedTags), std::end(kChargedTags), tag);
		const bool is_free = std::count(std::begin(kFreeTags), std::end(kFreeTags), tag);
		charged += is_charged ? 3 : 0;
		if (is_charged || is_free)
			expected.push_back(tag_text(tag) + " {0=0 1=1 2=2}");
	}
	ASSERT_EQ(expected.size(), 11u);
	EXPECT_EQ(load(adopted(), configuration), expected);
	EXPECT_EQ(load_within(1000), 1000 - charged);
	EXPECT_EQ(blocks, expected);
	EXPECT_EQ(charged, 24u);
}

struct Call {
	int tag;
	const char *data;
	u32 length;
	void *context;
};

bool keep_call(int tag, const char *data, u32 length, void *context)
{
	*static_cast<Call *>(context) = {tag, data, length, context};
	return true;
}

TEST_F(PimLoadRoute, CallbackGetsThePayloadWhereItLiesAndTheContextUntouched)
{
	const u16 list = block(37, 2);
	adopted();
	Call call{};
	pim_load_setting(map.get(), configuration, false, keep_call, &call);
	EXPECT_EQ(call.tag, 37);
	EXPECT_EQ(call.data, image.data() + image.record_at(list));
	EXPECT_EQ(call.length, 8u + 2 * 8);
	EXPECT_EQ(call.context, &call);
}

TEST_F(PimLoadRoute, NeitherAllocatesNorWrites)
{
	for (const int tag : kChargedTags)
		block(tag, 2);
	plan.file_block(configuration, EXTMEM_TAG_FUNCTION_DATA, "file", "label");
	plan.file("file", "bytes");
	adopted();
	ASSERT_TRUE(pim_insert_handler(map.get(), "label", record_table<1>));
	const auto before = image.bytes();
	const size_t allocated = allocations();
	EXPECT_EQ(loaded("S#M").size(), 9u);
	EXPECT_EQ(load_within(100), 100u - 16);
	EXPECT_EQ(allocations(), allocated);
	EXPECT_EQ(image.bytes(), before);
}

TEST_F(PimLoadRoute, ImageMayLieAtAnyAddress)
{
	for (const int tag : kChargedTags)
		block(tag, 2);
	plan.file_block(configuration, EXTMEM_TAG_ALGORITHM_DATA, "file", "entry");
	plan.file("file", "bytes");
	const Lines expected = [&] {
		adopted();
		pim_insert_alg_handler(map.get(), record_algorithm);
		return loaded("S#M");
	}();
	ASSERT_EQ(expected.size(), 9u);
	const ImageBytes written = plan.write();
	for (size_t shift = 1; shift < 8; ++shift) {
		std::vector<char> memory(written.size() + shift);
		std::copy(written.bytes().begin(), written.bytes().end(),
			  memory.begin() + static_cast<std::ptrdiff_t>(shift));
		Map moved;
		ASSERT_TRUE(
			pim_init(moved.out(), memory.data() + shift, written.size(), nullptr, 0));
		pim_insert_alg_handler(moved.get(), record_algorithm);
		EXPECT_EQ(load(moved.get(), "S#M"), expected) << shift;
	}
}

// ---- the budget ----

struct Budget {
	std::vector<u32> pairs; // of one hardware block each
	u32 budget;
	u32 left;
	size_t delivered;
};

TEST_F(PimLoadBudget, IsChargedBlockByBlockBeforeDelivery)
{
	const Budget cases[] = {
		{{6, 6}, 10, negative(2), 1},
		{{6}, 6, 0, 1},
		{{6, 1}, 6, negative(1), 1},
		{{6, 6}, 12, 0, 2},
		{{6, 6}, 13, 1, 2},
		{{6}, 5, negative(1), 0},
		{{6, 1}, 5, negative(1), 0}, // nothing after the block that did not fit
		{{6}, 0, negative(6), 0},
		{{6}, negative(1), negative(7), 0},
		{{0}, 0, 0, 1},
		{{0}, negative(1), negative(1), 0},
		{{}, 3, 3, 0},
		{{}, negative(3), negative(3), 0},
		// No limit, and close to it.
		{{6, 6}, 0xFFFFFF, 0xFFFFFF, 2},
		{{6, 6}, 0xFFFFFE, 0xFFFFFE - 12, 2},
		{{6, 6}, 0x1000000, 0x1000000 - 12, 2},
		{{1, 5}, 0x1000000, 0xFFFFFF, 2}, // what is left may come to mean "no limit"
		// The signed range.
		{{6, 6}, 0x7FFFFFFF, 0x7FFFFFFF - 12, 2},
		{{6}, 0x80000000, 0x7FFFFFFA, 0},
		{{6}, 0x80000006, 0x80000000, 0},
	};
	for (const Budget &row : cases) {
		plan = PimImage();
		setting_node = plan.setting(plan.ip("A"), "S", E_PQLV_DEFAULT);
		configuration = plan.config(setting_node, "S#M");
		std::string shown;
		for (const u32 pairs : row.pairs) {
			block(36, pairs);
			shown += std::to_string(pairs) + " ";
		}
		SCOPED_TRACE(shown + "within " + std::to_string(static_cast<s32>(row.budget)));
		adopted();
		EXPECT_EQ(load_within(row.budget), row.left);
		EXPECT_EQ(blocks.size(), row.delivered);
	}
}

TEST_F(PimLoadBudget, OtherBlocksAreFreeEvenWhenItIsSpent)
{
	block(36, 2);
	for (const int tag : kFreeTags)
		block(tag, 50);
	plan.file_block(configuration, EXTMEM_TAG_FUNCTION_DATA, "file", "label");
	plan.file_block(configuration, EXTMEM_TAG_ALGORITHM_DATA, "file", "entry");
	plan.file("file", "bytes");
	block(57, 1);
	block(37, 1);
	adopted();
	ASSERT_TRUE(pim_insert_handler(map.get(), "label", record_table<1>));
	ASSERT_TRUE(pim_insert_alg_handler(map.get(), record_algorithm));
	algorithm_log().clear();
	EXPECT_EQ(load_within(2), negative(1)); // the last hardware block does not fit
	EXPECT_EQ(blocks.size(), 1u + 3 + 1);
	EXPECT_EQ(blocks.back(), "table1 DATA [bytes]");
	EXPECT_EQ(algorithm_log().size(), 1u);
	EXPECT_EQ(load_within(3), 0u);
	EXPECT_EQ(blocks.size(), 1u + 3 + 1 + 1 + 1);
}

TEST_F(PimLoadBudget, FreeBlocksAreDeliveredWithANegativeOne)
{
	for (const int tag : kFreeTags)
		block(tag, 1);
	adopted();
	EXPECT_EQ(load_within(negative(5)), negative(5));
	EXPECT_EQ(blocks.size(), 3u);
}

TEST_F(PimLoadBudget, ChargesTheAnnouncedCountNotThePayloadsLength)
{
	plan.hold(configuration, plan.add_record(36, PimImage::list_bytes(pairs_of(5), 2)));
	adopted();
	Call call{};
	EXPECT_EQ(pim_load_setting_count(map.get(), configuration, 10, keep_call, &call), 8u);
	EXPECT_EQ(call.length, 8u + 5 * 8); // the payload is delivered whole
}

// ---- files and handlers ----

TEST_F(PimLoadFile, TableGoesToTheHandlerOfItsLabel)
{
	plan.file_block(configuration, EXTMEM_TAG_FUNCTION_DATA, "one", "l0");
	plan.file_block(configuration, EXTMEM_TAG_FUNCTION_DATA, "TWO", "L1");
	plan.file_block(configuration, EXTMEM_TAG_FUNCTION_DATA, "two", "L0");
	plan.file("One", std::string("b\0tes", 5));
	plan.file("two", "second");
	adopted();
	ASSERT_TRUE(pim_insert_handler(map.get(), "other", record_table<9>));
	ASSERT_TRUE(pim_insert_handler(map.get(), "L0", record_table<0>));
	ASSERT_TRUE(pim_insert_handler(map.get(), "L1", record_table<1>));
	EXPECT_EQ(loaded("S#M"), (Lines{"table0 DATA [" + std::string("b\0tes", 5) + "]",
					"table1 DATA [second]", "table0 DATA [second]"}));
	ASSERT_TRUE(pim_insert_handler(map.get(), "l1", record_table<2>));
	EXPECT_EQ(loaded("S#M")[1], "table2 DATA [second]");
}

TEST_F(PimLoadFile, HandlerGetsTheFileWhereItLiesAndTheContext)
{
	plan.file_block(configuration, EXTMEM_TAG_FUNCTION_DATA, "f", "L");
	const u16 file = plan.file("f", "bytes");
	adopted();
	ASSERT_TRUE(pim_insert_handler(map.get(), "L", keep_call));
	Call call{};
	pim_load_setting(map.get(), configuration, false, record_block, &call);
	EXPECT_EQ(call.tag, EXTMEM_TAG_DATA);
	EXPECT_EQ(call.data, image.data() + image.record_at(image.child(file)));
	EXPECT_EQ(call.length, 5u);
	EXPECT_EQ(call.context, &call);
}

TEST_F(PimLoadFile, TagIsThatOfTheFilesDataItem)
{
	plan.file_block(configuration, EXTMEM_TAG_FUNCTION_DATA, "f", "L");
	plan.file_block(configuration, EXTMEM_TAG_ALGORITHM_DATA, "f", "E");
	plan.tag(plan.child(plan.file("f", "bytes")), 41);
	adopted();
	ASSERT_TRUE(pim_insert_handler(map.get(), "L", record_table<0>));
	ASSERT_TRUE(pim_insert_alg_handler(map.get(), record_algorithm));
	EXPECT_EQ(loaded("S#M"), (Lines{"table0 tag41 [bytes]", "algorithm tag41 [bytes] 'E'"}));
}

TEST_F(PimLoadFile, AlgorithmFileGoesToTheAlgorithmHandlerWithItsEntryName)
{
	plan.file_block(configuration, EXTMEM_TAG_ALGORITHM_DATA, "F", "Entry name");
	plan.file("f", "bytes");
	adopted();
	ASSERT_TRUE(pim_insert_alg_handler(map.get(), record_algorithm));
	EXPECT_EQ(loaded("S#M"), (Lines{"algorithm DATA [bytes] 'Entry name'"}));
}

TEST_F(PimLoadFile, MissingFileStopsTheConfiguration)
{
	for (const int tag : {EXTMEM_TAG_FUNCTION_DATA, EXTMEM_TAG_ALGORITHM_DATA}) {
		SCOPED_TRACE(tag);
		plan = PimImage();
		configuration = plan.config(plan.setting(plan.ip("A"), "S", 5), "S#M");
		block(36, 2);
		plan.file_block(configuration, tag, "missing.bin", "L");
		block(36, 3);
		block(37, 1);
		adopted();
		EXPECT_EQ(load_within(10), 8u);
		EXPECT_EQ(blocks, (Lines{"REGISTER {0=0 1=1}"}));
		EXPECT_EQ(take_log(),
			  "[VEXIL][PIM][__pim_load_node] Cannot find file missing.bin\n");
	}
}

TEST_F(PimLoadFile, MissingHandlerStopsTheConfiguration)
{
	block(36, 2);
	plan.file_block(configuration, EXTMEM_TAG_FUNCTION_DATA, "file", "Label");
	block(36, 3);
	plan.file("file", "bytes");
	adopted(); // handlers are not in images
	const std::string line = "[VEXIL][PIM][__pim_load_node] Cannot find handler for Label\n";
	EXPECT_EQ(load_within(10), 8u);
	EXPECT_EQ(blocks, (Lines{"REGISTER {0=0 1=1}"}));
	EXPECT_EQ(take_log(), line);

	ASSERT_TRUE(pim_insert_handler(map.get(), "label", nullptr)); // a place without a function
	EXPECT_EQ(load_within(10), 8u);
	EXPECT_EQ(take_log(), line);

	ASSERT_TRUE(pim_insert_handler(map.get(), "label", record_table<3>));
	EXPECT_EQ(load_within(10), 5u);
	EXPECT_EQ(blocks,
		  (Lines{"REGISTER {0=0 1=1}", "table3 DATA [bytes]", "REGISTER {0=0 1=1 2=2}"}));
}

TEST_F(PimLoadFile, PlaceOutsideTheListIsNoHandler)
{
	for (const int place : {1, 63, 64, 1000, INT_MAX, -1, INT_MIN + 1}) {
		SCOPED_TRACE(place);
		plan = PimImage();
		configuration = plan.config(plan.setting(plan.ip("A"), "S", 5), "S#M");
		plan.file_block(configuration, EXTMEM_TAG_FUNCTION_DATA, "file", "L");
		plan.file("file", "bytes");
		adopted();
		ASSERT_TRUE(pim_insert_handler(map.get(), "used", record_table<0>));
		std::fill(std::begin(map->fn_list), std::end(map->fn_list), record_table<0>);
		ASSERT_TRUE(ctrie_insert(&map->fn_map, "L", place));
		EXPECT_EQ(loaded("S#M"), Lines{});
		EXPECT_EQ(take_log(), "[VEXIL][PIM][__pim_load_node] Cannot find handler for L\n");
	}
}

TEST_F(PimLoadFile, MissingAlgorithmHandlerStopsTheConfiguration)
{
	block(36, 2);
	plan.file_block(configuration, EXTMEM_TAG_ALGORITHM_DATA, "file", "Entry");
	block(36, 3);
	plan.file("file", "bytes");
	adopted();
	EXPECT_EQ(load_within(10), 8u);
	EXPECT_EQ(blocks.size(), 1u);
	EXPECT_EQ(take_log(),
		  "[VEXIL][PIM][__pim_load_node] Cannot find algorithm handler for Entry\n");
}

TEST_F(PimLoadFile, FileIsLookedForBeforeTheHandler)
{
	plan.file_block(configuration, EXTMEM_TAG_FUNCTION_DATA, "missing", "unknown");
	EXPECT_EQ(load(adopted(), "S#M"), Lines{});
	EXPECT_EQ(take_log(), "[VEXIL][PIM][__pim_load_node] Cannot find file missing\n");
}

TEST_F(PimLoadFile, BlockWithoutAFileNameOrALabelStopsTheConfiguration)
{
	struct {
		const char *defect;
		void (*apply)(PimImage &, u16 block);
	} const cases[] = {
		{"no file name", [](PimImage &p, u16 b) { p.child(b, kNoId); }},
		{"no label", [](PimImage &p, u16 b) { p.next(b, kNoId); }},
		{"file name outside", [](PimImage &p, u16 b) { p.child(b, 9999); }},
		{"label outside", [](PimImage &p, u16 b) { p.next(b, 9999); }},
		{"file name is no text", [](PimImage &p, u16 b) { p.tag(p.child(b), 34); }},
		{"label is a tree node", [](PimImage &p, u16 b) { p.tag(p.next(b), 22); }},
		{"file name without data", [](PimImage &p, u16 b) { p.record(p.child(b), 0, 0); }},
		{"label without data", [](PimImage &p, u16 b) { p.record(p.next(b), ~0u, 0); }},
		{"file name without NUL", [](PimImage &p, u16 b) {
			 p.record(p.child(b), 4, p.record_offset(p.child(b))); // "file" alone
		 }},
		{"label without NUL", [](PimImage &p, u16 b) {
			 p.record(p.next(b), 1, p.record_offset(p.next(b)));
		 }},
	};
	for (const int tag : {EXTMEM_TAG_FUNCTION_DATA, EXTMEM_TAG_ALGORITHM_DATA}) {
		for (const auto &row : cases) {
			SCOPED_TRACE(std::string(row.defect) + ", tag " + std::to_string(tag));
			plan = PimImage();
			configuration = plan.config(plan.setting(plan.ip("A"), "S", 5), "S#M");
			block(36, 2);
			const u16 file_block = plan.file_block(configuration, tag, "file", "L");
			block(36, 3);
			plan.file("file", "bytes");
			row.apply(plan, file_block);
			adopted();
			ASSERT_TRUE(pim_insert_handler(map.get(), "L", record_table<0>));
			ASSERT_TRUE(pim_insert_alg_handler(map.get(), record_algorithm));
			algorithm_log().clear();
			EXPECT_EQ(load_within(10), 8u);
			EXPECT_EQ(blocks, (Lines{"REGISTER {0=0 1=1}"}));
			EXPECT_EQ(algorithm_log(), Lines{});
			EXPECT_EQ(take_log(), kNoData);
		}
	}
}

TEST_F(PimLoadFile, FileWithoutUsableDataIsReportedByItsNode)
{
	struct {
		const char *defect;
		void (*apply)(PimImage &, u16 file);
	} const cases[] = {
		{"no data item", [](PimImage &p, u16 f) { p.child(f, kNoId); }},
		{"data item outside", [](PimImage &p, u16 f) { p.child(f, 9999); }},
		{"data item is a tree node", [](PimImage &p, u16 f) { p.tag(p.child(f), 22); }},
		{"empty", [](PimImage &p, u16 f) { p.record(p.child(f), 0, 0); }},
		{"outside", [](PimImage &p, u16 f) { p.record(p.child(f), 8, 100000); }},
		{"wraps", [](PimImage &p, u16 f) { p.record(p.child(f), 16, 0xFFFFFFF8); }},
		{"never attached", [](PimImage &p, u16 f) { p.record(p.child(f), ~0u, 0); }},
	};
	for (const int tag : {EXTMEM_TAG_FUNCTION_DATA, EXTMEM_TAG_ALGORITHM_DATA}) {
		for (const auto &row : cases) {
			SCOPED_TRACE(std::string(row.defect) + ", tag " + std::to_string(tag));
			plan = PimImage();
			configuration = plan.config(plan.setting(plan.ip("A"), "S", 5), "S#M");
			block(36, 2);
			plan.file_block(configuration, tag, "file", "L");
			block(36, 3);
			const u16 file = plan.file("file", "bytes");
			row.apply(plan, file);
			adopted();
			ASSERT_TRUE(pim_insert_handler(map.get(), "L", record_table<0>));
			ASSERT_TRUE(pim_insert_alg_handler(map.get(), record_algorithm));
			algorithm_log().clear();
			EXPECT_EQ(load_within(10), 8u);
			EXPECT_EQ(blocks, (Lines{"REGISTER {0=0 1=1}"}));
			EXPECT_EQ(algorithm_log(), Lines{});
			EXPECT_EQ(take_log(),
				  "[VEXIL][PIM][__pim_load_node] Failed to fetch data from "
				  "node: " +
					  std::to_string(file) + ". \n");
		}
	}
}

// ---- damaged lists and chains ----

struct ListDefect {
	const char *name;
	void (*apply)(PimImage &, u16 list);
};
constexpr ListDefect kListDefects[] = {
	{"no record", [](PimImage &p, u16 l) { p.record(l, ~0u, 0); }},
	{"empty record", [](PimImage &p, u16 l) { p.record(l, 0, 0); }},
	{"offset outside", [](PimImage &p, u16 l) { p.record(l, 32, 0x10000); }},
	{"end outside", [](PimImage &p, u16 l) { p.record(l, 0x10000, p.record_offset(l)); }},
	{"offset and size wrap", [](PimImage &p, u16 l) { p.record(l, 32, 0xFFFFFFF0); }},
	{"four bytes", [](PimImage &p, u16 l) { p.record(l, 4, p.record_offset(l)); }},
	{"seven bytes", [](PimImage &p, u16 l) { p.record(l, 7, p.record_offset(l)); }},
	{"count without pairs", [](PimImage &p, u16 l) { p.record(l, 8, p.record_offset(l)); }},
	{"count above the payload by a part of a pair",
	 [](PimImage &p, u16 l) { p.record(l, 8 + 3 * 8 - 1, p.record_offset(l)); }},
};

TEST_F(PimLoadDamage, UnusableListStopsTheConfigurationWithWhatTheBudgetWas)
{
	std::vector<int> tags(std::begin(kChargedTags), std::end(kChargedTags));
	tags.insert(tags.end(), std::begin(kFreeTags), std::end(kFreeTags));
	for (const int tag : tags) {
		for (const ListDefect &defect : kListDefects) {
			SCOPED_TRACE(std::string(defect.name) + ", tag " + std::to_string(tag));
			plan = PimImage();
			configuration = plan.config(plan.setting(plan.ip("A"), "S", 5), "S#M");
			block(36, 2);
			defect.apply(plan, block(tag, 3));
			block(36, 1);
			adopted();
			EXPECT_EQ(load_within(10), 8u);
			EXPECT_EQ(blocks, (Lines{"REGISTER {0=0 1=1}"}));
			EXPECT_EQ(take_log(), kNoData);
		}
	}
}

TEST_F(PimLoadDamage, CountThatWrapsAsBytesStopsTheConfiguration)
{
	// 8 + 8 x count is 8 in 32 bits, and 16 for one more.
	for (const u32 count : {0x20000000u, 0x20000001u, 0xFFFFFFFFu}) {
		plan = PimImage();
		configuration = plan.config(plan.setting(plan.ip("A"), "S", 5), "S#M");
		plan.hold(configuration,
			  plan.add_record(36, PimImage::list_bytes(pairs_of(1), count)));
		adopted();
		EXPECT_EQ(load_within(10), 10u) << count;
		EXPECT_EQ(blocks, Lines{});
		EXPECT_EQ(take_log(), kNoData);
	}
}

TEST_F(PimLoadDamage, DataHolderHasNoChildren)
{
	// Its size bytes would be the id of a holder.
	block(36, 2);
	const u16 holder = plan.child(configuration);
	const u16 record = plan.add_record(EXTMEM_TAG_DATA, "x");
	plan.record(record, 0xFFFF0000u | holder, 0);
	adopted();
	EXPECT_EQ(load(map.get(), record), Lines{});
	EXPECT_EQ(pim_load_setting_count(map.get(), record, 5, record_block, &blocks), 5u);
	EXPECT_EQ(blocks, Lines{});
}

TEST_F(PimLoadDamage, DataHolderAmongTheHoldersHoldsNothingAndEndsTheChain)
{
	block(36, 2);
	const u16 record = plan.add_record(EXTMEM_TAG_DATA, "x");
	plan.record(record, plan.child(plan.child(configuration)), 0); // "child": the list
	plan.next(plan.child(configuration), record);
	adopted();
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=0 1=1}"}));
}

TEST_F(PimLoadDamage, HolderWithoutAChildOrWithOneOutsideIsPassedOver)
{
	block(36, 1);
	plan.append(configuration, plan.add(EXTMEM_TAG_GENERAL));
	const u16 outside = plan.add(EXTMEM_TAG_GENERAL);
	plan.child(outside, 9999);
	plan.append(configuration, outside);
	block(36, 2);
	adopted();
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=0}", "REGISTER {0=0 1=1}"}));
}

TEST_F(PimLoadDamage, ChainThatLeavesTheMapEndsThere)
{
	block(36, 1);
	plan.next(plan.child(configuration), 9999);
	adopted();
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=0}"}));
	plan.child(configuration, 9999);
	adopted();
	EXPECT_EQ(loaded("S#M"), Lines{});
}

TEST_F(PimLoadDamage, CyclicChainOfBlocksEndsAfterAsManyStepsAsThereAreNodes)
{
	block(36, 1);
	block(36, 2);
	const u16 holder = plan.child(configuration);
	plan.next(plan.next(holder), holder);
	const size_t before = plan.nodes();
	adopted();
	take_log();
	const Lines delivered = loaded("S#M");
	take_log();
	EXPECT_GE(delivered.size(), 2u);
	EXPECT_LE(delivered.size(), before);
	const u32 left =
		pim_load_setting_count(map.get(), configuration, 0xFFFFFF, record_block, &blocks);
	EXPECT_EQ(left, 0xFFFFFFu);
	take_log();
}

TEST_F(PimLoadDamage, HolderThatIsItsOwnChildIsPassedOver)
{
	const u16 holder = plan.add(EXTMEM_TAG_GENERAL);
	plan.append(configuration, holder);
	plan.child(holder, holder);
	block(36, 1);
	adopted();
	EXPECT_EQ(loaded("S#M"), (Lines{"REGISTER {0=0}"}));
}

} // namespace
