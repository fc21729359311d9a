// SPDX-License-Identifier: MIT
//
// Every service through its slot, as a driver calls it: what it does, and NULL for each pointer.
#include <climits>
#include <type_traits>

#include "tests/support/registration.h"
#include "tests/support/rm_states.h"

namespace {

using namespace vexil_test;
using namespace vexil_test::states;

// The slots' types, said a second time.
#define SLOT_IS(service, ...)                                                                       \
	static_assert(std::is_same_v<decltype(_PUBIF_VEXIL::fp_CB_vexil_##service), __VA_ARGS__> && \
		      std::is_same_v<CB_vexil_##service, __VA_ARGS__>)
SLOT_IS(json_parse, void *(*)(const char *));
SLOT_IS(json_delete, void (*)(void *));
SLOT_IS(pim_init, bool (*)(void **, char *, u32));
SLOT_IS(pim_init_with_regmerge, bool (*)(void **, char *, u32, const void *, size_t));
SLOT_IS(pim_export, size_t (*)(void *, char *));
SLOT_IS(pim_get_export_size, size_t (*)(void *));
SLOT_IS(pim_merge, bool (*)(void *, void *, void *));
SLOT_IS(pim_get_reg_num, u32 (*)(void *, u8, EN_PQ_LEVEL));
SLOT_IS(pim_insert_regmap, bool (*)(void *, const char *, u32));
SLOT_IS(pim_insert_regmap_json, bool (*)(void *, void *));
SLOT_IS(pim_insert_vregmap, bool (*)(void *, const char *, int));
SLOT_IS(pim_insert_vregmap_json, bool (*)(void *, void *));
SLOT_IS(pim_insert_cus_vregmap, bool (*)(void *, const char *, int));
SLOT_IS(pim_insert_cus_vregmap_json, bool (*)(void *, void *));
SLOT_IS(pim_insert_file, bool (*)(void *, const char *, const char *, u32));
SLOT_IS(pim_insert_handler, bool (*)(void *, const char *, vexil_callback));
SLOT_IS(pim_insert_alg_handler, bool (*)(void *, vexil_alg_callback));
SLOT_IS(pim_insert, bool (*)(void *, void *));
SLOT_IS(pim_load_setting_by_name, void (*)(void *, const char *, vexil_callback, void *));
SLOT_IS(pim_load_setting, void (*)(void *, u16, bool, vexil_callback, void *));
SLOT_IS(pim_load_setting_count, u32 (*)(void *, u16, u32, vexil_callback, void *));
SLOT_IS(pim_load_preset, void (*)(void *, u16 *, size_t, char *, vexil_callback, void *));
SLOT_IS(pim_load_common_reg_setting, void (*)(void *, vexil_callback, void *));
SLOT_IS(pim_get_setting, void (*)(void *, u16, char **));
SLOT_IS(pim_destroy, bool (*)(void **));
SLOT_IS(pim_finish, bool (*)(void *));
SLOT_IS(pim_get_version, bool (*)(void *, vexil_version *));
SLOT_IS(pim_get_hwreg_version, bool (*)(void *, vexil_version *));
SLOT_IS(pim_get_swreg_version, bool (*)(void *, vexil_version *));
SLOT_IS(pim_get_cus_swreg_version, bool (*)(void *, vexil_version *));
SLOT_IS(pim_get_pim_version, bool (*)(void *, vexil_version *, const char *));
SLOT_IS(pim_get_cus_version, bool (*)(void *, char **));
SLOT_IS(rm_init, bool (*)(void **, char *, u32));
SLOT_IS(rm_get_export_size, size_t (*)(void *));
SLOT_IS(rm_export, size_t (*)(void *, char *));
SLOT_IS(rm_merge, bool (*)(void *, void *, void *, const void *));
SLOT_IS(rm_insert_source_json, bool (*)(void *, void *));
SLOT_IS(rm_insert, bool (*)(void *, void *, void *));
SLOT_IS(rm_set, bool (*)(void *, const char *, u64));
SLOT_IS(rm_trigger, bool (*)(void *, const char *));
SLOT_IS(rm_clear, bool (*)(void *));
SLOT_IS(rm_get_result, size_t (*)(void *, u16 **));
SLOT_IS(rm_get_preset, size_t (*)(void *, u16 **));
SLOT_IS(rm_create_handler, bool (*)(void *, void **));
SLOT_IS(rm_handler_set, bool (*)(void *, const char *, u64));
SLOT_IS(rm_handler_trigger, bool (*)(void *, const char *));
SLOT_IS(rm_handler_clear, bool (*)(void *));
SLOT_IS(rm_handler_get_result, size_t (*)(void *, u16 **));
SLOT_IS(rm_handler_get_preset, size_t (*)(void *, u16 **));
SLOT_IS(rm_destroy, bool (*)(void **));
SLOT_IS(rm_handler_destroy, bool (*)(void **));
SLOT_IS(rm_finish, bool (*)(void *));
SLOT_IS(rm_get_version, bool (*)(void *, vexil_version *));
SLOT_IS(rm_get_rl_version, bool (*)(void *, vexil_version *));
SLOT_IS(rm_get_rm_version, bool (*)(void *, vexil_version *, const char *));
SLOT_IS(rm_get_cus_version, bool (*)(void *, char **));
SLOT_IS(graphic_presetdb_parse, bool (*)(void *, graphic_presetdb_info *));
#undef SLOT_IS

#define CALL(service) table.fp_CB_vexil_##service

constexpr u32 kLastPosition = 0x7FFFFFFE; // of a hardware register
constexpr u32 kUnlimited = 0xFFFFFF;
constexpr size_t kHandlers = 64;

const vexil_version kUntouched{9, 9, 9};

/** A map and rules built through the table alone, as a driver would. */
class ModuleTable : public testing::Test {
protected:
	void SetUp() override
	{
		registration() = {};
		ASSERT_EQ(init_module(), 0);
		table = registration().copy;
		ASSERT_TRUE(CALL(pim_init)(&map, nullptr, 0));
		ASSERT_TRUE(CALL(rm_init)(&rules, nullptr, 0));
	}
	void TearDown() override
	{
		if (!CALL(rm_destroy))
			return; // nothing was registered, so nothing was made
		CALL(rm_handler_destroy)(&handler);
		CALL(rm_destroy)(&rules);
		CALL(pim_destroy)(&map);
		EXPECT_EQ(take_log(), "") << "a message that nobody expected";
	}

	/** A document that is parsed and freed through the table. */
	template <typename Use>
	bool with_document(std::string text, Use use)
	{
		std::replace(text.begin(), text.end(), '\'', '"');
		void *document = CALL(json_parse)(text.c_str());
		EXPECT_NE(document, nullptr) << text;
		const bool result = document && use(document);
		CALL(json_delete)(document);
		return result;
	}
	bool insert(const std::string &text)
	{
		return with_document(text, [&](void *json) { return CALL(pim_insert)(map, json); });
	}
	/** Registers of all three kinds, a table, an algorithm, three settings and a preset. */
	void build_map()
	{
		ASSERT_TRUE(CALL(pim_insert_regmap)(map, "R0", 0));
		ASSERT_TRUE(CALL(pim_insert_regmap)(map, "R1", 1));
		ASSERT_TRUE(CALL(pim_insert_vregmap)(map, "V", 7));
		ASSERT_TRUE(CALL(pim_insert_cus_vregmap)(map, "C", 8));
		ASSERT_TRUE(CALL(pim_insert_file)(map, "lut.bin", "LUT", 3));
		ASSERT_TRUE(CALL(pim_insert_file)(map, "alg.bin", "ALG", 3));
		ASSERT_TRUE(CALL(pim_insert_handler)(map, "Gamma", record_table<1>));
		ASSERT_TRUE(CALL(pim_insert_alg_handler)(map, record_algorithm));
		ASSERT_TRUE(insert(
			"{'VexilVersion': {'#version': {'MajorVersion': 2, 'MinorVersion': 1, "
			"'Revision': 5, "
			"'Note': 'shop'}}, 'PqFuncGroups': {'Ip': {'#version': {'MajorVersion': 2, "
			"'MinorVersion': 2, 'Revision': 6}, 'settings': {"
			"'S': {'group': {'M': {'hwreg': {'R0': 3, 'R1': 4}, 'swreg': {'V': 5}, "
			"'cus_swreg': {'C': "
			"6}}, 'T': {'lut': {'Gamma': 'lut.bin'}, 'alg': {'Entry': 'alg.bin'}}}}, "
			"'K': {'commonReg': true, 'group': {'a': {'hwreg': {'R0': 1, 'R1': 2}}, "
			"'b': {'hwreg': {'R0': 1, 'R1': 3}}}}, "
			"'P': {'1.PresetRegs': 'Tab', 'group': {'M': {'hwreg': {'R1': 9}}}}}}}}"));
	}
	void build_rules()
	{
		ASSERT_TRUE(with_document(
			"{'PqRuleLists': {'#version': {'MajorVersion': 2, 'MinorVersion': 2, "
			"'Revision': 7}, "
			"'Input': {'content': ['HDMI', 'DTV']}, 'Luma': {'content': 'number'}}}",
			[&](void *json) { return CALL(rm_insert_source_json)(rules, json); }));
		ASSERT_TRUE(with_document(
			"{'PqRuleGroups': {'Pick': {'#version': {'MajorVersion': 2, 'MinorVersion': 0, "
			"'Revision': 8}, 'rules': [{'comparator': {'Input': 'DTV'}, 'settings': ['S#M', "
			"'P#M'], "
			"'children': []}, {'comparator': {'Luma': '[5,9]'}, 'settings': ['S#T'], "
			"'children': "
			"[]}]}}}",
			[&](void *json) { return CALL(rm_insert)(rules, json, map); }));
		ASSERT_TRUE(CALL(rm_finish)(rules));
	}
	void build()
	{
		build_map();
		build_rules();
		ASSERT_TRUE(CALL(rm_create_handler)(rules, &handler));
	}
	u16 setting(const char *label) const
	{
		return pim_query_setting_id(static_cast<pim *>(map), label);
	}
	u16 preset(const char *label) const
	{
		return pim_query_preset_id(static_cast<pim *>(map), label);
	}
	Lines load(u16 id)
	{
		Lines lines;
		algorithm_log().clear();
		CALL(pim_load_setting)(map, id, false, record_block, &lines);
		lines.insert(lines.end(), algorithm_log().begin(), algorithm_log().end());
		return lines;
	}

	_PUBIF_VEXIL table{};
	void *map = nullptr;
	void *rules = nullptr;
	void *handler = nullptr;
};

std::string invalid_id(const std::string &function, u16 id)
{
	return "[VEXIL][PIM][" + function + "] Invalid node id: " + std::to_string(id) + "\n";
}

/** Registers of K that both its members share are delivered apart. */
const Lines kBlocksOfM = {"REGISTER {0=3 1=4}", "VREGISTER {7=5}", "CUS_VREGISTER {8=6}"};

// ---- 0, 1: documents ----

TEST_F(ModuleTable, ParsesAndFreesDocuments)
{
	const size_t blocks = live_blocks();
	void *document = CALL(json_parse)("{\"a\": 1}");
	ASSERT_NE(document, nullptr);
	EXPECT_GT(live_blocks(), blocks);
	CALL(json_delete)(document);
	EXPECT_EQ(live_blocks(), blocks);
	EXPECT_EQ(CALL(json_parse)("{"), nullptr);
	EXPECT_EQ(CALL(json_parse)(nullptr), nullptr);
	CALL(json_delete)(nullptr);
	EXPECT_EQ(live_blocks(), blocks);
}

// ---- 2, 3, 24: life of a map ----

TEST_F(ModuleTable, MakesAndDestroysMaps)
{
	EXPECT_FALSE(CALL(pim_init)(nullptr, nullptr, 0));
	EXPECT_FALSE(CALL(pim_init_with_regmerge)(nullptr, nullptr, 0, nullptr, 0));
	EXPECT_FALSE(CALL(pim_destroy)(nullptr));
	void *made = nullptr;
	EXPECT_FALSE(CALL(pim_destroy)(&made));
	EXPECT_TRUE(CALL(pim_init_with_regmerge)(&made, nullptr, 0, nullptr, 0));
	EXPECT_NE(made, nullptr);
	EXPECT_TRUE(CALL(pim_destroy)(&made));
	EXPECT_EQ(made, nullptr);
}

TEST_F(ModuleTable, AdoptsAMapWithAndWithoutARegisterTable)
{
	build_map();
	const u16 id = setting("S#M");
	std::vector<char> image(CALL(pim_get_export_size)(map));
	ASSERT_EQ(CALL(pim_export)(map, image.data()), image.size());
	const u32 size = static_cast<u32>(image.size());

	void *plain = nullptr;
	std::vector<char> copy = image;
	ASSERT_TRUE(CALL(pim_init)(&plain, copy.data(), size));
	EXPECT_EQ(CALL(pim_get_reg_num)(plain, E_PQ_MAX_DOMAIN, E_PQLV_MAX), 0u);
	std::swap(plain, map);
	EXPECT_EQ(load(id), kBlocksOfM);
	std::swap(plain, map);
	EXPECT_TRUE(CALL(pim_destroy)(&plain));

	const RegisterTable fields = {reg(2, 0x100, 0, 8), reg(2, 0x102, 0, 8)};
	void *translated = nullptr;
	copy = image;
	ASSERT_TRUE(CALL(pim_init_with_regmerge)(&translated, copy.data(), size, fields.data(),
						 fields.size()));
	EXPECT_GT(CALL(pim_get_reg_num)(translated, 2, E_PQLV_MAX), 0u);
	std::swap(translated, map);
	EXPECT_NE(load(id), kBlocksOfM);
	std::swap(translated, map);
	EXPECT_TRUE(CALL(pim_destroy)(&translated));
}

TEST_F(ModuleTable, PassesTheRegisterTableOn)
{
	const RegisterTable fields = {reg(2, 0x100, 0, 8)};
	const pim *record = static_cast<pim *>(map);
	EXPECT_EQ(record->reg_info_table, nullptr);
	EXPECT_EQ(record->reg_info_table_size, 0u);
	build_map();
	std::vector<char> image(CALL(pim_get_export_size)(map));
	ASSERT_EQ(CALL(pim_export)(map, image.data()), image.size());
	void *made = nullptr;
	ASSERT_TRUE(CALL(pim_init_with_regmerge)(&made, image.data(), static_cast<u32>(image.size()),
						 fields.data(), fields.size()));
	EXPECT_EQ(static_cast<pim *>(made)->reg_info_table, fields.data());
	EXPECT_EQ(static_cast<pim *>(made)->reg_info_table_size, 1u);
	EXPECT_TRUE(CALL(pim_destroy)(&made));
}

// ---- 4, 5: export ----

TEST_F(ModuleTable, ExportsMaps)
{
	EXPECT_EQ(CALL(pim_get_export_size)(map), 1024u + 1024 + 104);
	build_map();
	const pim *record = static_cast<pim *>(map);
	EXPECT_EQ(CALL(pim_get_export_size)(map),
		  record->builder.node_buffer.buf_max + record->builder.data_buffer.buf_max + 104);
	EXPECT_EQ(CALL(pim_export)(map, nullptr), 0u);
	EXPECT_EQ(record->builder.err_code, EXTMEM_NOMEM);
	char byte = 0;
	EXPECT_EQ(CALL(pim_export)(nullptr, &byte), 0u);
	EXPECT_EQ(CALL(pim_get_export_size)(nullptr), 0u);
}

// ---- 6: merge ----

TEST_F(ModuleTable, MergesMaps)
{
	build_map();
	void *sub = nullptr, *merged = nullptr;
	ASSERT_TRUE(CALL(pim_init)(&sub, nullptr, 0));
	ASSERT_TRUE(CALL(pim_init)(&merged, nullptr, 0));
	EXPECT_FALSE(CALL(pim_merge)(nullptr, map, sub));
	EXPECT_FALSE(CALL(pim_merge)(merged, nullptr, sub));
	EXPECT_FALSE(CALL(pim_merge)(merged, map, nullptr));
	EXPECT_TRUE(CALL(pim_merge)(merged, map, sub));
	EXPECT_EQ(pim_query_setting_id(static_cast<pim *>(merged), "S#M"), setting("S#M"));
	EXPECT_TRUE(CALL(pim_destroy)(&merged));
	EXPECT_TRUE(CALL(pim_destroy)(&sub));
}

// ---- 7: counts ----

TEST_F(ModuleTable, CountsRegisters)
{
	static_cast<pim *>(map)->reg_level_num[3][E_PQLV_OPTION_L1] = 7;
	static_cast<pim *>(map)->reg_level_num[4][E_PQLV_SYNC] = 5;
	EXPECT_EQ(CALL(pim_get_reg_num)(map, 3, E_PQLV_OPTION_L1), 7u);
	EXPECT_EQ(CALL(pim_get_reg_num)(map, 3, E_PQLV_SYNC), 0u);
	EXPECT_EQ(CALL(pim_get_reg_num)(map, E_PQ_MAX_DOMAIN, E_PQLV_MAX), 12u);
	EXPECT_EQ(CALL(pim_get_reg_num)(map, 17, E_PQLV_MAX), 0u);
	EXPECT_EQ(CALL(pim_get_reg_num)(map, 255, E_PQLV_MAX), 0u);
	EXPECT_EQ(CALL(pim_get_reg_num)(map, 3, static_cast<EN_PQ_LEVEL>(9)), 0u);
	EXPECT_EQ(CALL(pim_get_reg_num)(nullptr, 3, E_PQLV_OPTION_L1), 0u);
}

// ---- 8 to 13: register names ----

TEST_F(ModuleTable, InsertsHardwareRegisters)
{
	const ctrie *names = &static_cast<pim *>(map)->regname_to_func;
	EXPECT_TRUE(CALL(pim_insert_regmap)(map, "First", 0));
	EXPECT_TRUE(CALL(pim_insert_regmap)(map, "Last", kLastPosition));
	EXPECT_EQ(ctrie_find(names, "last"), static_cast<int>(kLastPosition));
	EXPECT_FALSE(CALL(pim_insert_regmap)(map, "FIRST", 1)); // the first position stays
	EXPECT_EQ(ctrie_find(names, "first"), 0);
	EXPECT_FALSE(CALL(pim_insert_regmap)(nullptr, "R", 1));
	EXPECT_FALSE(CALL(pim_insert_regmap)(map, nullptr, 1));
}

TEST_F(ModuleTable, RefusesPositionsBeyondTheLastWithoutTouchingTheNames)
{
	const ctrie *names = &static_cast<pim *>(map)->regname_to_func;
	const size_t text = names->buf_used;
	const auto code = names->err_code;
	EXPECT_FALSE(CALL(pim_insert_regmap)(map, "Beyond", kLastPosition + 1));
	EXPECT_FALSE(CALL(pim_insert_regmap)(map, "Beyond", 0xFFFFFFFF));
	EXPECT_FALSE(CALL(pim_insert_regmap)(map, "A+B", kLastPosition + 1)); // not even looked at
	EXPECT_EQ(names->buf_used, text);
	EXPECT_EQ(names->err_code, code);
}

TEST_F(ModuleTable, InsertsVirtualRegistersOfAnyIndex)
{
	const struct {
		CB_vexil_pim_insert_vregmap insert;
		const ctrie *names;
	} lists[] = {
		{CALL(pim_insert_vregmap), &static_cast<pim *>(map)->vregname_to_func},
		{CALL(pim_insert_cus_vregmap), &static_cast<pim *>(map)->cus_vregname_to_func},
	};
	for (const auto &list : lists) {
		EXPECT_TRUE(list.insert(map, "Minus", -5));
		EXPECT_EQ(ctrie_find(list.names, "minus"), -5);
		EXPECT_TRUE(list.insert(map, "Most", INT_MAX));
		EXPECT_EQ(ctrie_find(list.names, "most"), INT_MAX);
		EXPECT_TRUE(list.insert(map, "Least", INT_MIN)); // reads as a name that is not there
		EXPECT_EQ(ctrie_find(list.names, "least"), INT_MIN);
		EXPECT_FALSE(list.insert(map, "Minus", 1));
		EXPECT_FALSE(list.insert(nullptr, "V", 1));
		EXPECT_FALSE(list.insert(map, nullptr, 1));
	}
	EXPECT_EQ(ctrie_find(&static_cast<pim *>(map)->regname_to_func, "minus"), INT_MIN);
}

TEST_F(ModuleTable, InsertsRegisterDocuments)
{
	const struct {
		CB_vexil_pim_insert_regmap_json insert;
		CB_vexil_pim_get_version version;
		const char *text;
		const ctrie *names;
	} lists[] = {
		{CALL(pim_insert_regmap_json), CALL(pim_get_hwreg_version),
		 "{'PqHWRegList': {'0.version': {'MajorVersion': 1}, 'register': [{'A': 11}]}}",
		 &static_cast<pim *>(map)->regname_to_func},
		{CALL(pim_insert_vregmap_json), CALL(pim_get_swreg_version),
		 "{'PqSWRegList': {'0.version': {'MajorVersion': 1}, 'register': [{'A': 11}]}}",
		 &static_cast<pim *>(map)->vregname_to_func},
		{CALL(pim_insert_cus_vregmap_json), CALL(pim_get_cus_swreg_version),
		 "{'PqCusSWRegList': {'#version': {'MajorVersion': 1}, 'register': [{'A': 11}]}}",
		 &static_cast<pim *>(map)->cus_vregname_to_func},
	};
	for (const auto &list : lists) {
		vexil_version version = kUntouched;
		EXPECT_TRUE(list.version(map, &version));
		EXPECT_EQ(version, (vexil_version{0, 0, 0}));
		EXPECT_TRUE(with_document(list.text, [&](void *json) {
			EXPECT_FALSE(list.insert(nullptr, json));
			return list.insert(map, json);
		}));
		EXPECT_FALSE(list.insert(map, nullptr));
		EXPECT_EQ(ctrie_find(list.names, "a"), 11) << list.text;
		EXPECT_TRUE(list.version(map, &version));
		EXPECT_EQ(version, (vexil_version{1, 0, 0})) << list.text;
		EXPECT_FALSE(list.version(nullptr, &version));
		EXPECT_FALSE(list.version(map, nullptr));
	}
}

// ---- 14 to 16: files and handlers ----

TEST_F(ModuleTable, InsertsFiles)
{
	EXPECT_TRUE(CALL(pim_insert_file)(map, "f", "data", 4));
	EXPECT_FALSE(CALL(pim_insert_file)(map, "f", "data", 4));
	EXPECT_EQ(take_log(), "[VEXIL][PIM][pim_insert_file] duplicated file f\n");
	EXPECT_FALSE(CALL(pim_insert_file)(nullptr, "g", "data", 4));
	EXPECT_FALSE(CALL(pim_insert_file)(map, nullptr, "data", 4));
	EXPECT_FALSE(CALL(pim_insert_file)(map, "g", nullptr, 4));
}

TEST_F(ModuleTable, TakesSixtyFourHandlersAndReplacesThem)
{
	const pim *record = static_cast<pim *>(map);
	for (size_t i = 0; i < kHandlers; ++i)
		EXPECT_TRUE(CALL(pim_insert_handler)(map, ("H" + std::to_string(i)).c_str(),
						     record_table<1>));
	EXPECT_FALSE(CALL(pim_insert_handler)(map, "H64", record_table<1>));
	EXPECT_TRUE(CALL(pim_insert_handler)(map, "h7", record_table<2>));
	EXPECT_EQ(record->fn_list_num, kHandlers);
	EXPECT_EQ(record->fn_list[7], record_table<2>);
	EXPECT_EQ(record->fn_list[8], record_table<1>);
	EXPECT_EQ(ctrie_find(&record->fn_map, "H7"), 7);
	EXPECT_FALSE(CALL(pim_insert_handler)(nullptr, "H", record_table<1>));
	EXPECT_FALSE(CALL(pim_insert_handler)(map, nullptr, record_table<1>));
}

TEST_F(ModuleTable, RefusesAHandlerIndexOutOfRange)
{
	ASSERT_TRUE(ctrie_insert(&static_cast<pim *>(map)->fn_map, "odd", 3));
	ASSERT_TRUE(ctrie_insert(&static_cast<pim *>(map)->fn_map, "minus", -3));
	EXPECT_FALSE(CALL(pim_insert_handler)(map, "odd", record_table<1>));
	EXPECT_FALSE(CALL(pim_insert_handler)(map, "minus", record_table<1>));
	EXPECT_EQ(static_cast<pim *>(map)->fn_list_num, 0u);
}

TEST_F(ModuleTable, StoresTheAlgorithmHandler)
{
	EXPECT_TRUE(CALL(pim_insert_alg_handler)(map, record_algorithm));
	EXPECT_EQ(static_cast<pim *>(map)->alg_fn, record_algorithm);
	EXPECT_TRUE(CALL(pim_insert_alg_handler)(map, nullptr));
	EXPECT_EQ(static_cast<pim *>(map)->alg_fn, nullptr);
	EXPECT_FALSE(CALL(pim_insert_alg_handler)(nullptr, record_algorithm));
}

// ---- 17 to 23, 25: settings ----

TEST_F(ModuleTable, InsertsFunctionGroups)
{
	build_map();
	EXPECT_NE(setting("S#M"), kNoId);
	EXPECT_NE(preset("P#M"), kNoId);
	EXPECT_FALSE(CALL(pim_insert)(map, nullptr));
	EXPECT_TRUE(with_document("{}", [&](void *json) {
		EXPECT_FALSE(CALL(pim_insert)(nullptr, json));
		return CALL(pim_insert)(map, json);
	}));
}

TEST_F(ModuleTable, LoadsSettingsByName)
{
	build_map();
	Lines lines;
	CALL(pim_load_setting_by_name)(map, "s#m", record_block, &lines);
	EXPECT_EQ(lines, kBlocksOfM);
	CALL(pim_load_setting_by_name)(map, "unknown", record_block, &lines);
	EXPECT_EQ(take_log(), "[VEXIL][PIM][pim_load_setting_by_name] Cannot find label: unknown\n");
	CALL(pim_load_setting_by_name)(nullptr, "S#M", record_block, &lines);
	CALL(pim_load_setting_by_name)(map, nullptr, record_block, &lines);
	CALL(pim_load_setting_by_name)(map, "S#M", nullptr, &lines);
	EXPECT_EQ(lines, kBlocksOfM);
}

TEST_F(ModuleTable, LoadsSettingsWhateverTheCommonFlagSays)
{
	build_map();
	EXPECT_EQ(load(setting("S#M")), kBlocksOfM);
	Lines lines;
	CALL(pim_load_setting)(map, setting("S#M"), true, record_block, &lines);
	EXPECT_EQ(lines, kBlocksOfM);
	EXPECT_EQ(load(setting("S#T")), (Lines{"table1 DATA [LUT]", "algorithm DATA [ALG] 'Entry'"}));
	EXPECT_EQ(load(setting("K#b")), Lines{"REGISTER {1=3}"}); // R0 is common
	lines.clear();
	CALL(pim_load_setting)(nullptr, setting("S#M"), false, record_block, &lines);
	CALL(pim_load_setting)(map, setting("S#M"), false, nullptr, &lines);
	EXPECT_EQ(lines, Lines{});
}

TEST_F(ModuleTable, LoadsWithinABudget)
{
	build_map();
	Lines lines;
	const auto load_within = [&](u16 id, u32 budget) {
		lines.clear();
		return CALL(pim_load_setting_count)(map, id, budget, record_block, &lines);
	};
	EXPECT_EQ(load_within(setting("S#M"), 10), 8u);
	EXPECT_EQ(lines, kBlocksOfM);
	EXPECT_EQ(load_within(setting("S#M"), kUnlimited), kUnlimited);
	EXPECT_EQ(lines, kBlocksOfM);
	EXPECT_EQ(CALL(pim_load_setting_count)(nullptr, setting("S#M"), 10, record_block, &lines), 10u);
	EXPECT_EQ(CALL(pim_load_setting_count)(map, setting("S#M"), 10, nullptr, &lines), 10u);
}

TEST_F(ModuleTable, ReportsInvalidSettingIds)
{
	build_map();
	const u16 beyond = static_cast<u16>(node_count(static_cast<pim *>(map)));
	for (const u16 id : {kNoId, beyond}) {
		Lines lines;
		EXPECT_EQ(load(id), Lines{});
		EXPECT_EQ(take_log(), invalid_id("pim_load_setting", id));
		EXPECT_EQ(CALL(pim_load_setting_count)(map, id, 77, record_block, &lines), 77u);
		EXPECT_EQ(take_log(), invalid_id("pim_load_setting_count", id));
		u16 wrong = id;
		char name[] = "Tab";
		CALL(pim_load_preset)(map, &wrong, 1, name, record_block, &lines);
		EXPECT_EQ(take_log(), invalid_id("pim_load_preset", id));
		char *label = name;
		CALL(pim_get_setting)(map, id, &label);
		EXPECT_EQ(take_log(), invalid_id("pim_get_setting", id));
		EXPECT_EQ(label, name);
		EXPECT_EQ(lines, Lines{});
	}
}

TEST_F(ModuleTable, LoadsPresets)
{
	build_map();
	Lines lines;
	char name[] = "Tab", other[] = "tab";
	u16 ids[] = {preset("P#M"), preset("P#M")};
	CALL(pim_load_preset)(map, ids, 2, name, record_block, &lines);
	EXPECT_EQ(lines, (Lines{"REGISTER {1=9}", "REGISTER {1=9}"}));
	lines.clear();
	CALL(pim_load_preset)(map, ids, 2, other, record_block, &lines);
	CALL(pim_load_preset)(map, ids, 0, name, record_block, &lines);
	CALL(pim_load_preset)(map, ids, 1, nullptr, record_block, &lines);
	CALL(pim_load_preset)(nullptr, ids, 1, name, record_block, &lines);
	CALL(pim_load_preset)(map, nullptr, 1, name, record_block, &lines);
	CALL(pim_load_preset)(map, ids, 1, name, nullptr, &lines);
	EXPECT_EQ(lines, Lines{});
}

TEST_F(ModuleTable, LoadsCommonRegisters)
{
	build_map();
	Lines lines;
	CALL(pim_load_common_reg_setting)(map, record_block, &lines);
	EXPECT_EQ(lines, Lines{"RIU {0=1}"});
	CALL(pim_load_common_reg_setting)(nullptr, record_block, &lines);
	CALL(pim_load_common_reg_setting)(map, nullptr, &lines);
	EXPECT_EQ(lines.size(), 1u);
}

TEST_F(ModuleTable, TellsTheLabelOfASetting)
{
	build_map();
	char *label = nullptr;
	CALL(pim_get_setting)(map, setting("s#m"), &label);
	EXPECT_STREQ(label, "S#M");
	char text[] = "kept";
	label = text;
	CALL(pim_get_setting)(nullptr, setting("S#M"), &label);
	EXPECT_EQ(label, text);
	CALL(pim_get_setting)(map, setting("S#M"), nullptr);
}

TEST_F(ModuleTable, FinishesMaps)
{
	build_map();
	EXPECT_FALSE(CALL(pim_finish)(nullptr));
	EXPECT_TRUE(CALL(pim_finish)(map));
	EXPECT_EQ(static_cast<pim *>(map)->regname_to_func.buf, nullptr);
	EXPECT_FALSE(CALL(pim_insert_regmap)(map, "R9", 9));
	EXPECT_EQ(load(setting("S#M")), kBlocksOfM);
}

// ---- 26, 30, 31: versions of a map ----

TEST_F(ModuleTable, TellsTheVersionsOfAMap)
{
	build_map();
	vexil_version version = kUntouched;
	EXPECT_TRUE(CALL(pim_get_version)(map, &version));
	EXPECT_EQ(version, (vexil_version{2, 1, 5}));
	EXPECT_FALSE(CALL(pim_get_version)(nullptr, &version));
	EXPECT_FALSE(CALL(pim_get_version)(map, nullptr));

	EXPECT_TRUE(CALL(pim_get_pim_version)(map, &version, "Ip"));
	EXPECT_EQ(version, (vexil_version{2, 2, 6}));
	version = kUntouched;
	EXPECT_FALSE(CALL(pim_get_pim_version)(map, &version, "ip"));
	EXPECT_FALSE(CALL(pim_get_pim_version)(nullptr, &version, "Ip"));
	EXPECT_FALSE(CALL(pim_get_pim_version)(map, nullptr, "Ip"));
	EXPECT_FALSE(CALL(pim_get_pim_version)(map, &version, nullptr));
	EXPECT_EQ(version, kUntouched);

	char *text = nullptr;
	EXPECT_TRUE(CALL(pim_get_cus_version)(map, &text));
	EXPECT_EQ(text, static_cast<pim *>(map)->cus_version);
	EXPECT_STREQ(text, "shop");
	EXPECT_FALSE(CALL(pim_get_cus_version)(nullptr, &text));
	EXPECT_FALSE(CALL(pim_get_cus_version)(map, nullptr));
}

// ---- 32, 49: life of a rule context ----

TEST_F(ModuleTable, MakesAndDestroysRuleContexts)
{
	EXPECT_FALSE(CALL(rm_init)(nullptr, nullptr, 0));
	EXPECT_FALSE(CALL(rm_destroy)(nullptr));
	void *made = nullptr;
	EXPECT_FALSE(CALL(rm_destroy)(&made));
	EXPECT_TRUE(CALL(rm_init)(&made, nullptr, 0));
	EXPECT_TRUE(CALL(rm_destroy)(&made));
	EXPECT_EQ(made, nullptr);
	char garbage[200] = {};
	EXPECT_FALSE(CALL(rm_init)(&made, garbage, sizeof garbage));
	EXPECT_EQ(made, nullptr);
}

// ---- 33 to 35: images and merging ----

TEST_F(ModuleTable, ExportsAndAdoptsRules)
{
	build();
	const rm *record = static_cast<rm *>(rules);
	std::vector<char> image(CALL(rm_get_export_size)(rules));
	EXPECT_EQ(image.size(),
		  record->builder.node_buffer.buf_max + record->builder.data_buffer.buf_max + 104);
	EXPECT_EQ(CALL(rm_export)(rules, image.data()), image.size());
	EXPECT_EQ(CALL(rm_export)(rules, nullptr), 0u);
	EXPECT_EQ(CALL(rm_export)(nullptr, image.data()), 0u);
	EXPECT_EQ(CALL(rm_get_export_size)(nullptr), 0u);

	void *adopted = nullptr;
	ASSERT_TRUE(CALL(rm_init)(&adopted, image.data(), static_cast<u32>(image.size())));
	EXPECT_TRUE(CALL(rm_set)(adopted, "Input:DTV", 0));
	EXPECT_TRUE(CALL(rm_trigger)(adopted, nullptr));
	EXPECT_EQ(settings_of(static_cast<rm *>(adopted)), Ids{setting("S#M")});
	EXPECT_TRUE(CALL(rm_destroy)(&adopted));
}

TEST_F(ModuleTable, MergesRules)
{
	build();
	void *merged = nullptr, *sub = nullptr;
	ASSERT_TRUE(CALL(rm_init)(&merged, nullptr, 0));
	ASSERT_TRUE(CALL(rm_init)(&sub, nullptr, 0));
	EXPECT_FALSE(CALL(rm_merge)(nullptr, rules, sub, map));
	EXPECT_FALSE(CALL(rm_merge)(merged, nullptr, sub, map));
	EXPECT_FALSE(CALL(rm_merge)(merged, rules, nullptr, map));
	EXPECT_FALSE(CALL(rm_merge)(merged, rules, sub, nullptr));
	EXPECT_TRUE(CALL(rm_merge)(merged, rules, sub, map));
	EXPECT_TRUE(CALL(rm_set)(merged, "Input:DTV", 0));
	EXPECT_TRUE(CALL(rm_trigger)(merged, "Pick"));
	EXPECT_EQ(settings_of(static_cast<rm *>(merged)), Ids{setting("S#M")});
	EXPECT_TRUE(CALL(rm_destroy)(&merged));
	EXPECT_TRUE(CALL(rm_destroy)(&sub));
}

// ---- 36, 37, 51: building rules ----

TEST_F(ModuleTable, BuildingRulesNeedsAllItsArguments)
{
	EXPECT_TRUE(with_document("{}", [&](void *json) {
		EXPECT_FALSE(CALL(rm_insert_source_json)(nullptr, json));
		EXPECT_FALSE(CALL(rm_insert)(nullptr, json, map));
		EXPECT_FALSE(CALL(rm_insert)(rules, json, nullptr));
		return CALL(rm_insert_source_json)(rules, json) && CALL(rm_insert)(rules, json, map);
	}));
	EXPECT_FALSE(CALL(rm_insert_source_json)(rules, nullptr));
	EXPECT_FALSE(CALL(rm_insert)(rules, nullptr, map));
	EXPECT_FALSE(CALL(rm_finish)(nullptr));
	EXPECT_TRUE(CALL(rm_finish)(rules));
}

// ---- 38 to 42: evaluation ----

TEST_F(ModuleTable, EvaluatesRules)
{
	build();
	u16 *list = nullptr;
	EXPECT_TRUE(CALL(rm_set)(rules, "input:dtv", 0));
	EXPECT_TRUE(CALL(rm_trigger)(rules, nullptr));
	ASSERT_EQ(CALL(rm_get_result)(rules, &list), 1u);
	EXPECT_EQ(list[0], setting("S#M"));
	ASSERT_EQ(CALL(rm_get_preset)(rules, &list), 1u);
	EXPECT_EQ(list[0], preset("P#M"));
	EXPECT_TRUE(CALL(rm_clear)(rules));
	EXPECT_TRUE(CALL(rm_set)(rules, "Luma", 9));
	EXPECT_TRUE(CALL(rm_trigger)(rules, "pick"));
	ASSERT_EQ(CALL(rm_get_result)(rules, &list), 1u);
	EXPECT_EQ(list[0], setting("S#T"));
	EXPECT_EQ(CALL(rm_get_preset)(rules, &list), 0u);
	EXPECT_TRUE(CALL(rm_trigger)(rules, "nobody"));
	EXPECT_EQ(take_log(), unknown_rule("rm_trigger", "nobody"));

	EXPECT_FALSE(CALL(rm_set)(nullptr, "Luma", 1));
	EXPECT_FALSE(CALL(rm_set)(rules, nullptr, 1));
	EXPECT_FALSE(CALL(rm_trigger)(nullptr, nullptr));
	EXPECT_FALSE(CALL(rm_clear)(nullptr));
	EXPECT_EQ(CALL(rm_get_result)(nullptr, &list), 0u);
	EXPECT_EQ(CALL(rm_get_preset)(nullptr, &list), 0u);
	EXPECT_EQ(CALL(rm_get_result)(rules, nullptr), 0u);
	EXPECT_EQ(CALL(rm_get_preset)(rules, nullptr), 0u);
}

TEST_F(ModuleTable, ClearNeedsTheBuffersOfAFinishedContext)
{
	EXPECT_FALSE(CALL(rm_clear)(rules));
	build_map();
	build_rules();
	ASSERT_TRUE(CALL(rm_set)(rules, "Input:DTV;Luma:7", 0));
	u64 *numbers = std::exchange(static_cast<rm *>(rules)->rmInd.resBuffer, nullptr);
	EXPECT_FALSE(CALL(rm_clear)(rules));
	EXPECT_EQ(key_of(static_cast<rm *>(rules), static_cast<rm *>(rules)->rmInd), Words{0});
	static_cast<rm *>(rules)->rmInd.resBuffer = numbers;
	EXPECT_EQ(numbers[0], 7u);
	EXPECT_TRUE(CALL(rm_clear)(rules));
	EXPECT_EQ(numbers[0], 0u);
}

// ---- 43 to 48, 50: handlers ----

TEST_F(ModuleTable, EvaluatesThroughHandlers)
{
	build();
	u16 *list = nullptr;
	EXPECT_TRUE(CALL(rm_handler_set)(handler, "Input:DTV", 0));
	EXPECT_TRUE(CALL(rm_handler_trigger)(handler, nullptr));
	ASSERT_EQ(CALL(rm_handler_get_result)(handler, &list), 1u);
	EXPECT_EQ(list[0], setting("S#M"));
	ASSERT_EQ(CALL(rm_handler_get_preset)(handler, &list), 1u);
	EXPECT_EQ(list[0], preset("P#M"));
	EXPECT_TRUE(CALL(rm_handler_clear)(handler));
	EXPECT_TRUE(CALL(rm_handler_set)(handler, "Luma", 5));
	EXPECT_TRUE(CALL(rm_handler_trigger)(handler, "Pick"));
	EXPECT_EQ(settings_of(static_cast<rm_handler *>(handler)), Ids{setting("S#T")});
	EXPECT_EQ(settings_of(static_cast<rm *>(rules)), Ids{});

	EXPECT_FALSE(CALL(rm_handler_set)(nullptr, "Luma", 5));
	EXPECT_FALSE(CALL(rm_handler_set)(handler, nullptr, 5));
	EXPECT_FALSE(CALL(rm_handler_trigger)(nullptr, nullptr));
	EXPECT_FALSE(CALL(rm_handler_clear)(nullptr));
	EXPECT_EQ(CALL(rm_handler_get_result)(nullptr, &list), 0u);
	EXPECT_EQ(CALL(rm_handler_get_preset)(nullptr, &list), 0u);
	EXPECT_EQ(CALL(rm_handler_get_result)(handler, nullptr), 0u);
	EXPECT_EQ(CALL(rm_handler_get_preset)(handler, nullptr), 0u);
}

TEST_F(ModuleTable, MakesAndDestroysHandlers)
{
	build_map();
	build_rules();
	void *made = nullptr;
	EXPECT_FALSE(CALL(rm_create_handler)(nullptr, &made));
	EXPECT_FALSE(CALL(rm_create_handler)(rules, nullptr));
	EXPECT_FALSE(CALL(rm_handler_destroy)(nullptr));
	EXPECT_FALSE(CALL(rm_handler_destroy)(&made));
	const size_t blocks = live_blocks();
	ASSERT_TRUE(CALL(rm_create_handler)(rules, &made));
	ASSERT_TRUE(CALL(rm_handler_set)(made, "Input:DTV", 0));
	ASSERT_TRUE(CALL(rm_handler_trigger)(made, nullptr));
	EXPECT_TRUE(CALL(rm_handler_destroy)(&made));
	EXPECT_EQ(made, nullptr);
	EXPECT_EQ(live_blocks(), blocks);
}

// ---- 52 to 55: versions of rules ----

TEST_F(ModuleTable, TellsTheVersionsOfRules)
{
	build();
	vexil_version version = kUntouched;
	EXPECT_TRUE(CALL(rm_get_version)(rules, &version));
	EXPECT_EQ(version, (vexil_version{2, 1, 5})); // the map's
	EXPECT_FALSE(CALL(rm_get_version)(nullptr, &version));
	EXPECT_FALSE(CALL(rm_get_version)(rules, nullptr));
	EXPECT_TRUE(CALL(rm_get_rl_version)(rules, &version));
	EXPECT_EQ(version, (vexil_version{2, 2, 7}));
	EXPECT_FALSE(CALL(rm_get_rl_version)(nullptr, &version));
	EXPECT_FALSE(CALL(rm_get_rl_version)(rules, nullptr));
	EXPECT_TRUE(CALL(rm_get_rm_version)(rules, &version, "Pick"));
	EXPECT_EQ(version, (vexil_version{2, 0, 8}));
	version = kUntouched;
	EXPECT_FALSE(CALL(rm_get_rm_version)(rules, &version, "pick"));
	EXPECT_FALSE(CALL(rm_get_rm_version)(nullptr, &version, "Pick"));
	EXPECT_FALSE(CALL(rm_get_rm_version)(rules, nullptr, "Pick"));
	EXPECT_FALSE(CALL(rm_get_rm_version)(rules, &version, nullptr));
	EXPECT_EQ(version, kUntouched);
	char *text = nullptr;
	EXPECT_TRUE(CALL(rm_get_cus_version)(rules, &text));
	EXPECT_EQ(text, static_cast<rm *>(rules)->cus_version);
	EXPECT_STREQ(text, "shop");
	EXPECT_FALSE(CALL(rm_get_cus_version)(nullptr, &text));
	EXPECT_FALSE(CALL(rm_get_cus_version)(rules, nullptr));
}

// ---- 56: presets of the graphics plane ----

TEST_F(ModuleTable, ParsesGraphicPresets)
{
	graphic_presetdb_info info;
	EXPECT_TRUE(with_document("{'Preset_PQ_Value': {'RGBGain': {'RGBGain_R': 1, 'RGBGain_G': 2, "
				  "'RGBGain_B': 3}}}",
				  [&](void *json) {
					  EXPECT_FALSE(CALL(graphic_presetdb_parse)(json, nullptr));
					  return CALL(graphic_presetdb_parse)(json, &info);
				  }));
	EXPECT_EQ(take_log_lines().size(), 18u); // two for each of nine groups
	EXPECT_EQ(info.rgb_gain.rgb_gain_g, 2);
	EXPECT_EQ(info.hue, 50);
	EXPECT_FALSE(CALL(graphic_presetdb_parse)(nullptr, &info));
	EXPECT_EQ(take_log(), "[graphic_presetdb_parse][380]PresetDB parsing fail!!\n");
	EXPECT_FALSE(CALL(graphic_presetdb_parse)(nullptr, nullptr));
}

#undef CALL

} // namespace
