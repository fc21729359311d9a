// SPDX-License-Identifier: MIT
//
// The two result lists: growth, growth without memory, lists that contradict themselves.
#include "tests/support/rm_states.h"

namespace {

using namespace vexil_test;
using namespace vexil_test::states;

constexpr size_t kStep = 16; // entries that a list grows by

/** What differs between the two lists. */
struct ListKind {
	const char *name;
	char prefix; // of names in documents
	u16 first_id;
	rm_result rm_individual::*list;
	const char *invalid;
	const char *failed;
};

const ListKind kSettings = {
	"Settings",
	's',
	kSettingIds,
	&rm_individual::result,
	"[VEXIL][RM][__rm_result_push] invalid result status.\n",
	"[VEXIL][RM][__rm_store_result] Failed to save result.\n",
};
const ListKind kPresets = {
	"Presets",
	'p',
	kPresetIds,
	&rm_individual::preset,
	"[VEXIL][RM][__rm_preset_push] invalid preset status.\n",
	"[VEXIL][RM][__rm_store_preset] Failed to save preset.\n",
};

void PrintTo(const ListKind &kind, std::ostream *to)
{
	*to << kind.name;
}

class RmResultList : public RulesTest, public testing::WithParamInterface<ListKind> {
protected:
	/** "'s0', 's1', ..." */
	static std::string names(size_t count)
	{
		std::string text;
		for (size_t i = 0; i < count; ++i)
			text += (i ? ", '" : "'") + std::string(1, GetParam().prefix) +
				std::to_string(i) + "'";
		return text;
	}
	static Ids ids(size_t count)
	{
		Ids list(count);
		for (size_t i = 0; i < count; ++i)
			list[i] = static_cast<u16>(GetParam().first_id + i);
		return list;
	}
	[[nodiscard]] Ids found() const
	{
		return GetParam().list == &rm_individual::result ? settings() : presets();
	}
	[[nodiscard]] rm_result &list() const { return rules->rmInd.*GetParam().list; }
};

INSTANTIATE_TEST_SUITE_P(Rm, RmResultList, testing::Values(kSettings, kPresets),
			 [](const auto &each) { return std::string(each.param.name); });

TEST_P(RmResultList, IsNotAllocatedBeforeTheFirstId)
{
	build(kSources, always("A", ""));
	EXPECT_TRUE(trigger());
	EXPECT_EQ(list().num_result, 0u);
	EXPECT_EQ(list().max_result, 0u);
	EXPECT_EQ(list().result_list, nullptr);
}

TEST_P(RmResultList, HoldsSixteenIdsFromTheFirstOn)
{
	build(kSources, always("A", names(1)) + ", " + always("B", names(16)));
	EXPECT_TRUE(trigger("A"));
	EXPECT_EQ(list().num_result, 1u);
	EXPECT_EQ(list().max_result, 16u);
	const size_t before = allocations();
	EXPECT_TRUE(trigger("B"));
	EXPECT_EQ(found(), ids(16));
	EXPECT_EQ(list().max_result, 16u);
	EXPECT_EQ(allocations(), before);
}

TEST_P(RmResultList, SeventeenthIdMakesItThirtyTwo)
{
	build(kSources, always("A", names(17)) + ", " + always("B", names(33)));
	const size_t before = allocations();
	EXPECT_TRUE(trigger("A"));
	EXPECT_EQ(found(), ids(17));
	EXPECT_EQ(list().max_result, 32u);
	EXPECT_EQ(allocations(), before + 2);
	EXPECT_EQ(last_request().size, 32 * sizeof(u16));
	EXPECT_TRUE(trigger("B"));
	EXPECT_EQ(found(), ids(33));
	EXPECT_EQ(list().max_result, 48u);
	EXPECT_EQ(last_request().size, 48 * sizeof(u16));
}

TEST_P(RmResultList, IsNeverShrunk)
{
	build(kSources, always("A", names(100)) + ", " + always("B", names(1)));
	ASSERT_TRUE(trigger("A"));
	EXPECT_EQ(list().max_result, 7 * kStep);
	EXPECT_TRUE(trigger("B"));
	EXPECT_EQ(found(), ids(1));
	EXPECT_EQ(list().max_result, 7 * kStep);
	EXPECT_TRUE(rm_clear(rules));
	EXPECT_EQ(list().max_result, 7 * kStep);
}

TEST_P(RmResultList, FirstGrowthWithoutMemorySkipsTheHolderOnly)
{
	build(kSources, always("A", names(2)));
	{
		const Refuse none = Refuse::from(1);
		EXPECT_TRUE(trigger());
		EXPECT_TRUE(none.happened());
	}
	EXPECT_EQ(take_log(), GetParam().failed);
	EXPECT_EQ(found(), Ids{});
	EXPECT_EQ(list().max_result, 0u);
	EXPECT_TRUE(trigger());
	EXPECT_EQ(found(), ids(2));
}

TEST_P(RmResultList, LaterGrowthWithoutMemoryEmptiesTheList)
{
	build(kSources, always("A", names(20)));
	const size_t blocks = live_blocks();
	{
		const Refuse second = Refuse::only(2); // the first one is that of 16 entries
		EXPECT_TRUE(trigger());
		EXPECT_TRUE(second.happened());
	}
	EXPECT_EQ(take_log(), GetParam().failed);
	EXPECT_EQ(list().num_result, 0u);
	EXPECT_EQ(list().max_result, 0u);
	EXPECT_EQ(list().result_list, nullptr);
	EXPECT_EQ(live_blocks(), blocks); // and given back
	EXPECT_TRUE(trigger());
	EXPECT_EQ(found(), ids(20));
	EXPECT_EQ(list().max_result, 32u);
}

TEST_P(RmResultList, HoldersBehindTheOneThatFailedAreStored)
{
	build(kSources, always("A", names(17), "'B'") + ", " + always("B", names(3)));
	{
		const Refuse second = Refuse::only(2);
		EXPECT_TRUE(trigger("A"));
	}
	EXPECT_EQ(take_log(), GetParam().failed);
	EXPECT_EQ(found(), ids(3));
	EXPECT_EQ(list().max_result, 16u);
}

TEST_P(RmResultList, CountWithoutAListIsRefused)
{
	build(kSources, always("A", names(3)) + ", " + always("B", names(1)));
	list().max_result = 16;
	EXPECT_TRUE(trigger());
	const std::string once = std::string(GetParam().invalid) + GetParam().failed;
	EXPECT_EQ(take_log(), once + once); // once per holder, not per id
	EXPECT_EQ(found(), Ids{});
	list().max_result = 0;
	EXPECT_TRUE(trigger("A"));
	EXPECT_EQ(found(), ids(3));
}

TEST_P(RmResultList, ListWithoutACountIsRefused)
{
	build(kSources, always("A", names(3)));
	ASSERT_TRUE(trigger());
	list().max_result = 0;
	EXPECT_TRUE(trigger());
	EXPECT_EQ(take_log(), std::string(GetParam().invalid) + GetParam().failed);
	EXPECT_EQ(found(), Ids{});
	list().max_result = 16;
	EXPECT_TRUE(trigger());
	EXPECT_EQ(found(), ids(3));
}

using RmResult = RulesTest;

TEST_F(RmResult, OneListFailingLeavesTheOtherAlone)
{
	build(kSources, always("A", "'s1', 'p1', 's2', 'p2'"));
	rules->rmInd.result.max_result = 16;
	EXPECT_TRUE(trigger());
	EXPECT_EQ(take_log(), std::string(kSettings.invalid) + kSettings.failed);
	EXPECT_EQ(presets(), (Ids{2001, 2002}));
	rules->rmInd.result.max_result = 0;
}

TEST_F(RmResult, HandlerListsFailInTheSameWords)
{
	build(kSources, always("A", "'s1', 'p1'"));
	Handler handler(rules);
	{
		const Refuse none = Refuse::from(1);
		EXPECT_TRUE(rm_handler_trigger(handler, nullptr));
	}
	EXPECT_EQ(take_log(), std::string(kSettings.failed) + kPresets.failed);
	EXPECT_TRUE(rm_handler_trigger(handler, nullptr));
	EXPECT_EQ(settings_of(handler), Ids{1001});
	EXPECT_EQ(presets_of(handler), Ids{2001});
}

} // namespace
