// SPDX-License-Identifier: MIT
//
// Loading, unloading, and the order of the slots.
#include "tests/support/registration.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <set>

#include "module/pubif.h"
#include "tests/support/platform.h"

extern "C" int vexil_CBRegister(_PUBIF_VEXIL *table)
{
	vexil_test::Registration &seen = vexil_test::registration();
	++seen.calls;
	seen.given = table;
	seen.copy = *table;
	std::memset(static_cast<void *>(table), 0xEE, sizeof *table); // nobody may look at it again
	return seen.answer;
}

namespace {

using namespace vexil_test;

constexpr size_t kSlots = 57;
using Slots = std::array<const void *, kSlots>;
static_assert(sizeof(_PUBIF_VEXIL) == 456 && sizeof(Slots) == sizeof(_PUBIF_VEXIL));

Slots slots_of(const _PUBIF_VEXIL &table)
{
	Slots slots;
	std::memcpy(slots.data(), &table, sizeof slots);
	return slots;
}

/** The binary contract: what each of the 456 bytes' 57 pointers calls. */
Slots contract()
{
#define CALLS(service) reinterpret_cast<const void *>(&vexil_##service)
	return {
		/*  0 */ CALLS(json_parse),
		/*  1 */ CALLS(json_delete),
		/*  2 */ CALLS(pim_init),
		/*  3 */ CALLS(pim_init_with_regmerge),
		/*  4 */ CALLS(pim_export),
		/*  5 */ CALLS(pim_get_export_size),
		/*  6 */ CALLS(pim_merge),
		/*  7 */ CALLS(pim_get_reg_num),
		/*  8 */ CALLS(pim_insert_regmap),
		/*  9 */ CALLS(pim_insert_regmap_json),
		/* 10 */ CALLS(pim_insert_vregmap),
		/* 11 */ CALLS(pim_insert_vregmap_json),
		/* 12 */ CALLS(pim_insert_cus_vregmap),
		/* 13 */ CALLS(pim_insert_cus_vregmap_json),
		/* 14 */ CALLS(pim_insert_file),
		/* 15 */ CALLS(pim_insert_handler),
		/* 16 */ CALLS(pim_insert_alg_handler),
		/* 17 */ CALLS(pim_insert),
		/* 18 */ CALLS(pim_load_setting_by_name),
		/* 19 */ CALLS(pim_load_setting),
		/* 20 */ CALLS(pim_load_setting_count),
		/* 21 */ CALLS(pim_load_preset),
		/* 22 */ CALLS(pim_load_common_reg_setting),
		/* 23 */ CALLS(pim_get_setting),
		/* 24 */ CALLS(pim_destroy),
		/* 25 */ CALLS(pim_finish),
		/* 26 */ CALLS(pim_get_version),
		/* 27 */ CALLS(pim_get_hwreg_version),
		/* 28 */ CALLS(pim_get_swreg_version),
		/* 29 */ CALLS(pim_get_cus_swreg_version),
		/* 30 */ CALLS(pim_get_pim_version),
		/* 31 */ CALLS(pim_get_cus_version),
		/* 32 */ CALLS(rm_init),
		/* 33 */ CALLS(rm_get_export_size),
		/* 34 */ CALLS(rm_export),
		/* 35 */ CALLS(rm_merge),
		/* 36 */ CALLS(rm_insert_source_json),
		/* 37 */ CALLS(rm_insert),
		/* 38 */ CALLS(rm_set),
		/* 39 */ CALLS(rm_trigger),
		/* 40 */ CALLS(rm_clear),
		/* 41 */ CALLS(rm_get_result),
		/* 42 */ CALLS(rm_get_preset),
		/* 43 */ CALLS(rm_create_handler),
		/* 44 */ CALLS(rm_handler_set),
		/* 45 */ CALLS(rm_handler_trigger),
		/* 46 */ CALLS(rm_handler_clear),
		/* 47 */ CALLS(rm_handler_get_result),
		/* 48 */ CALLS(rm_handler_get_preset),
		/* 49 */ CALLS(rm_destroy),
		/* 50 */ CALLS(rm_handler_destroy),
		/* 51 */ CALLS(rm_finish),
		/* 52 */ CALLS(rm_get_version),
		/* 53 */ CALLS(rm_get_rl_version),
		/* 54 */ CALLS(rm_get_rm_version),
		/* 55 */ CALLS(rm_get_cus_version),
		/* 56 */ CALLS(graphic_presetdb_parse),
	};
#undef CALLS
}

class ModuleEntry : public testing::Test {
protected:
	void SetUp() override { registration() = {}; }
	void TearDown() override { EXPECT_EQ(take_log(), "") << "a message that nobody expected"; }
};

TEST_F(ModuleEntry, LoadingRegistersOnce)
{
	EXPECT_EQ(init_module(), 0);
	EXPECT_EQ(registration().calls, 1);
	EXPECT_EQ(allocations(), 0u);
}

TEST_F(ModuleEntry, LoadingSucceedsWhateverTheRegistrationAnswers)
{
	for (const int answer : {-1, 1, -12}) {
		registration().answer = answer;
		EXPECT_EQ(init_module(), 0) << answer;
	}
	EXPECT_EQ(registration().calls, 3);
}

TEST_F(ModuleEntry, HandsOutACopyOfItsOwn)
{
	ASSERT_EQ(init_module(), 0);
	EXPECT_NE(registration().given, &vexil::kPublicInterface);
	// The one that was given has been overwritten since: neither the constant nor a second load minds.
	EXPECT_EQ(slots_of(vexil::kPublicInterface), contract());
	registration().copy = {};
	ASSERT_EQ(init_module(), 0);
	EXPECT_EQ(slots_of(registration().copy), contract());
}

TEST_F(ModuleEntry, SlotsStandInTheContractsOrder)
{
	ASSERT_EQ(init_module(), 0);
	const Slots slots = slots_of(registration().copy);
	const Slots expected = contract();
	for (size_t slot = 0; slot < kSlots; ++slot)
		EXPECT_EQ(slots[slot], expected[slot]) << "slot " << slot;
}

TEST_F(ModuleEntry, NoSlotIsEmptyOrUsedTwice)
{
	ASSERT_EQ(init_module(), 0);
	const Slots slots = slots_of(registration().copy);
	EXPECT_EQ(std::set<const void *>(slots.begin(), slots.end()).size(), kSlots);
	for (const void *slot : slots)
		EXPECT_NE(slot, nullptr);
}

TEST_F(ModuleEntry, UnloadingUndoesNothing)
{
	ASSERT_EQ(init_module(), 0);
	const Slots before = slots_of(registration().copy);
	cleanup_module();
	EXPECT_EQ(registration().calls, 1);
	EXPECT_EQ(slots_of(registration().copy), before);
	EXPECT_EQ(allocations(), 0u);
}

} // namespace
