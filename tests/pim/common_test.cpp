// SPDX-License-Identifier: MIT
//
// Common groups: the registers that all members share, and the configuration that holds them.
#include "tests/support/pim_json.h"

#include <random>

namespace {

using namespace vexil_test;

class PimCommon : public PimTest {
protected:
	void SetUp() override
	{
		PimTest::SetUp();
		add_registers(8);
	}

	/** A common group of members with these "hwreg" objects: M0, M1, ... */
	bool insert_group(const std::vector<std::string> &members)
	{
		std::string group;
		for (size_t i = 0; i < members.size(); ++i)
			group += (i ? ", 'M" : "'M") + std::to_string(i) +
				 "': {'hwreg': " + members[i] + "}";
		return insert(setting("'commonReg': true, 'group': {" + group + "}"));
	}

	/** Common registers first, then the members'. */
	Lines delivered(size_t members)
	{
		Lines lines = loaded("S#commonReg");
		for (size_t i = 0; i < members; ++i) {
			const Lines own = loaded("S#M" + std::to_string(i));
			EXPECT_LE(own.size(), 1u);
			lines.push_back(own.empty() ? "-" : own[0]);
		}
		return lines;
	}
};

using PimCommonSearch = PimCommon;

const std::string kSearch = "[VEXIL][PIM][__pim_search_common_hwregister] ";
const std::string kConvert = "[VEXIL][PIM][__pim_get_hwregister] ";

// ---- which registers are common ----

TEST_F(PimCommon, RegistersEqualInAllMembersMoveIntoTheCommonConfiguration)
{
	EXPECT_TRUE(insert_group({"{'R0': 1, 'R1': 2, 'R2': 3}", "{'R0': 1, 'R1': 9, 'R2': 3}",
				  "{'R0': 1, 'R1': 2, 'R2': 3, 'R3': 4}"}));
	EXPECT_EQ(delivered(3), (Lines{"RIU {0=1 2=3}", "REGISTER {1=2}", "REGISTER {1=9}",
				       "REGISTER {1=2 3=4}"}));
}

TEST_F(PimCommon, OtherOrderInAMemberLosesNothing)
{
	EXPECT_TRUE(insert_group({"{'R0': 1, 'R1': 2, 'R2': 3, 'R3': 4}",
				  "{'R3': 4, 'R2': 3, 'R1': 2, 'R0': 1}"}));
	EXPECT_EQ(delivered(2), (Lines{"RIU {3=4 2=3 1=2 0=1}", "-", "-"}));
}

TEST_F(PimCommon, OrderIsThatOfTheLastMember)
{
	EXPECT_TRUE(insert_group({"{'R0': 1, 'R1': 2, 'R2': 3}", "{'R2': 3, 'R1': 2, 'R0': 1}",
				  "{'R1': 2, 'R7': 7, 'R2': 3, 'R0': 1}"}));
	EXPECT_EQ(delivered(3), (Lines{"RIU {1=2 2=3 0=1}", "-", "-", "REGISTER {7=7}"}));
}

TEST_F(PimCommon, ArrayFormsGiveTheSameResult)
{
	EXPECT_TRUE(insert(
		setting("'commonReg': true, 'group': [{'M0': {'hwreg': [{'R0': 1}, {'R1': 2}]}}, "
			"{'M1': {'hwreg': {'R1': 2, 'R0': 3}}}, {'M2': {'hwreg': [{'R2': 5}, "
			"{'R1': 2}]}}]")));
	EXPECT_EQ(delivered(3),
		  (Lines{"RIU {1=2}", "REGISTER {0=1}", "REGISTER {0=3}", "REGISTER {2=5}"}));
}

TEST_F(PimCommon, SingleMemberSharesEverythingWithItself)
{
	EXPECT_TRUE(insert_group({"{'R4': 1, 'R3': 2}"}));
	EXPECT_EQ(delivered(1), (Lines{"RIU {4=1 3=2}", "-"}));
}

TEST_F(PimCommon, NothingInCommonStoresAnEmptyListAndLeavesTheMembersWhole)
{
	EXPECT_TRUE(insert_group({"{'R0': 1, 'R1': 2}", "{'R0': 2, 'R1': 1}"}));
	EXPECT_EQ(delivered(2), (Lines{"RIU {}", "REGISTER {0=1 1=2}", "REGISTER {0=2 1=1}"}));
	EXPECT_EQ(node(18), "18 RIU {}"); // eight bytes
}

TEST_F(PimCommon, SearchStopsWhereNothingIsLeft)
{
	// An empty list would take everything from the third member.
	EXPECT_TRUE(insert_group({"{'R0': 1}", "{'R1': 2}", "{'R2': 3}", "{'R2': 3}"}));
	EXPECT_EQ(delivered(4), (Lines{"RIU {}", "REGISTER {0=1}", "REGISTER {1=2}",
				       "REGISTER {2=3}", "REGISTER {2=3}"}));
}

TEST_F(PimCommon, MemberWithoutHardwareRegistersEndsTheSearch)
{
	for (const char *second : {"{}", "{'hwreg': {}}", "{'hwreg': []}", "{'hwreg': 5}",
				   "{'swreg': {}}", "5", "null", "[{'hwreg': {'R0': 1}}]"}) {
		SCOPED_TRACE(second);
		ASSERT_TRUE(map.init());
		add_registers(8);
		EXPECT_TRUE(insert(setting(
			std::string(
				"'commonReg': true, 'group': {'M0': {'hwreg': {'R0': 1}}, 'M1': ") +
			second + ", 'M2': {'hwreg': {'R0': 1}}}")));
		EXPECT_EQ(delivered(3), (Lines{"RIU {}", "REGISTER {0=1}", "-", "REGISTER {0=1}"}));
	}
}

TEST_F(PimCommon, FirstMemberWithoutHardwareRegistersEndsTheSearchAtOnce)
{
	EXPECT_TRUE(insert_group({"{}", "{'R0': 1}", "{'R0': 1}"}));
	EXPECT_EQ(delivered(3), (Lines{"RIU {}", "-", "REGISTER {0=1}", "REGISTER {0=1}"}));
}

TEST_F(PimCommon, SamePositionUnderAnotherNameIsTheSameRegister)
{
	ASSERT_TRUE(pim_insert_regmap(map.get(), "Alias", 3));
	EXPECT_TRUE(insert_group({"{'R3': 5}", "{'Alias': 5}", "{'alias': 4294967301}"}));
	EXPECT_EQ(delivered(3), (Lines{"RIU {3=5}", "-", "-", "-"}));
}

TEST_F(PimCommon, OtherKindsOfBlocksAreNotShared)
{
	ASSERT_TRUE(pim_insert_vregmap(map.get(), "V", 0));
	ASSERT_TRUE(pim_insert_cus_vregmap(map.get(), "C", 0));
	const std::string member = "{'hwreg': {'R0': 1}, 'swreg': {'V': 1}, 'hwaddr': {'4': 1}, "
				   "'cus_swreg': {'C': 1}}";
	EXPECT_TRUE(insert(setting("'commonReg': true, 'group': {'M0': " + member + ", 'M1': " +
				   member + "}")));
	EXPECT_EQ(loaded("S#commonReg"), (Lines{"RIU {0=1}"}));
	for (const char *label : {"S#M0", "S#M1"})
		EXPECT_EQ(loaded(label),
			  (Lines{"VREGISTER {0=1}", "ADDR {4=1}", "CUS_VREGISTER {0=1}"}));
}

TEST_F(PimCommon, ListStartsEmptyForEachSetting)
{
	EXPECT_TRUE(
		insert(groups("'A': {'settings': {'S': {'commonReg': true, 'group': {'M0': "
			      "{'hwreg': {'R0': 1}}}},"
			      "'T': {'group': {'M': {'hwreg': {'R0': 1}}}},"
			      "'U': {'commonReg': true, 'group': {'M': {'hwreg': {'R1': 1}}}}}}")));
	EXPECT_EQ(loaded("S#commonReg"), (Lines{"RIU {0=1}"}));
	EXPECT_EQ(loaded("T#M"), (Lines{"REGISTER {0=1}"}));
	EXPECT_EQ(loaded("U#commonReg"), (Lines{"RIU {1=1}"}));
}

TEST_F(PimCommon, RepeatedPairsAreKeptRepeatedly)
{
	EXPECT_TRUE(insert_group({"[{'R0': 1}, {'R0': 1}, {'R1': 2}]", "[{'R1': 2}, {'R0': 1}]",
				  "[{'R0': 1}, {'R1': 2}, {'R0': 1}]"}));
	EXPECT_EQ(delivered(3), (Lines{"RIU {0=1 1=2 0=1}", "-", "-", "-"}));
}

TEST_F(PimCommon, RegisterWithTwoValuesInAMemberMatchesEither)
{
	EXPECT_TRUE(insert_group({"[{'R0': 1}, {'R0': 2}]", "[{'R0': 2}]"}));
	EXPECT_EQ(delivered(2), (Lines{"RIU {0=2}", "REGISTER {0=1}", "-"}));
}

// ---- messages ----

TEST_F(PimCommon, BadEntriesAreReportedInTheSearchAndInTheConversion)
{
	EXPECT_TRUE(insert_group({"{'X': 1, 'R0': 1, 'R1': 'text'}", "[{'R0': 1}, {}]"}));
	EXPECT_EQ(take_log_lines(), (Lines{
		kSearch + "Cannot find hw_register X",
		kSearch + "Invalid entry found at R1",
		kSearch + "Invalid entry found at ",
		kConvert + "Cannot find hw_register X",
		kConvert + "Invalid entry found at R1",
		kConvert + "Invalid entry found at ",
	}));
	EXPECT_EQ(delivered(2), (Lines{"RIU {0=1}", "-", "-"}));
}

TEST_F(PimCommon, MembersBehindTheEndOfTheSearchAreReportedByTheConversionOnly)
{
	EXPECT_TRUE(insert_group({"{'R0': 1}", "{'R1': 1}", "{'X': 1}"}));
	EXPECT_EQ(take_log(), kConvert + "Cannot find hw_register X\n");
}

TEST_F(PimCommon, MemberWhoseEntriesAreAllBadEndsTheSearch)
{
	EXPECT_TRUE(insert_group({"{'R0': 1}", "{'X': 1}", "{'R0': 1}"}));
	EXPECT_EQ(take_log(), kSearch + "Cannot find hw_register X\n" + kConvert +
				      "Cannot find hw_register X\n");
	EXPECT_EQ(delivered(3), (Lines{"RIU {}", "REGISTER {0=1}", "-", "REGISTER {0=1}"}));
}

// ---- the limit ----

/** Registers L0, L1 ... as an object, values equal to positions. */
std::string many(size_t from, size_t to)
{
	std::string text = "{";
	for (size_t i = from; i < to; ++i)
		text += (i > from ? ", 'L" : "'L") + std::to_string(i) + "': " + std::to_string(i);
	return text + "}";
}

std::string many_pairs(size_t from, size_t to)
{
	std::string text = "{";
	for (size_t i = from; i < to; ++i)
		text += (i > from ? " " : "") + std::to_string(i) + "=" + std::to_string(i);
	return text + "}";
}

class PimCommonLimit : public PimCommon {
protected:
	void SetUp() override
	{
		PimTest::SetUp();
		for (u32 i = 0; i < 1200; ++i)
			ASSERT_TRUE(
				pim_insert_regmap(map.get(), ("L" + std::to_string(i)).c_str(), i));
	}
};

TEST_F(PimCommonLimit, FiveHundredPairsFit)
{
	EXPECT_TRUE(insert_group({many(0, 500), many(0, 500)}));
	EXPECT_EQ(delivered(2), (Lines{"RIU " + many_pairs(0, 500), "-", "-"}));
}

TEST_F(PimCommonLimit, PairsBehindTheFiveHundredthStayInTheMembers)
{
	EXPECT_TRUE(insert_group({many(0, 600), many(0, 600)}));
	EXPECT_EQ(delivered(2),
		  (Lines{"RIU " + many_pairs(0, 500), "REGISTER " + many_pairs(500, 600),
			 "REGISTER " + many_pairs(500, 600)}));
}

TEST_F(PimCommonLimit, LaterMembersNarrowTheFirstFiveHundred)
{
	EXPECT_TRUE(insert_group({many(0, 600), many(490, 600)}));
	EXPECT_EQ(delivered(2),
		  (Lines{"RIU " + many_pairs(490, 500),
			 "REGISTER " + many_pairs(0, 490).substr(0, many_pairs(0, 490).size() - 1) +
				 " " + many_pairs(500, 600).substr(1),
			 "REGISTER " + many_pairs(500, 600)}));
}

TEST_F(PimCommonLimit, SearchStopsAtTheFiveHundredthPair)
{
	// What stands behind it is reported by the conversion alone.
	const std::string full = many(0, 500);
	EXPECT_TRUE(insert_group({full.substr(0, full.size() - 1) + ", 'X': 1}"}));
	EXPECT_EQ(take_log(), kConvert + "Cannot find hw_register X\n");
	EXPECT_TRUE(insert(groups("'B': {'settings': {'T': {'commonReg': true, 'group': {'M': "
				  "{'hwreg': {'X': 1, " + full.substr(1) + "}}}}}")));
	EXPECT_EQ(take_log(), kSearch + "Cannot find hw_register X\n" + kConvert +
				      "Cannot find hw_register X\n");
}

TEST_F(PimCommonLimit, RepetitionsNeverFillMoreThanFiveHundred)
{
	std::string repeated = "[";
	std::string kept = "{";
	for (int i = 0; i < 700; ++i)
		repeated += i ? ", {'L1': 1}" : "{'L1': 1}";
	for (int i = 0; i < 500; ++i)
		kept += i ? " 1=1" : "1=1";
	EXPECT_TRUE(insert_group({"{'L1': 1}", repeated + "]"}));
	EXPECT_EQ(delivered(2), (Lines{"RIU " + kept + "}", "-", "-"}));
}

// ---- the steps by themselves ----

TEST_F(PimCommonSearch, NarrowsTheListMemberByMember)
{
	struct {
		const char *member;
		bool result;
		const char *list;
	} const steps[] = {
		{"{'hwreg': {'R0': 1, 'R1': 2, 'R2': 3}}", true, "{0=1 1=2 2=3}"},
		{"{'hwreg': {'R2': 3, 'R1': 2, 'R5': 1}}", true, "{2=3 1=2}"},
		{"{'hwreg': {'R1': 2}}", true, "{1=2}"},
		{"{'hwreg': {'R1': 3}}", false, "{}"},
		{"{'hwreg': {'R6': 7}}", true,
		 "{6=7}"}, // an empty list counts as the first member's
		{"{'hwreg': {}}", false, "{}"},
		{"{'hwreg': {'R6': 7}}", true, "{6=7}"},
		{"{}", false, "{}"},
		{"{'hwreg': {'R6': 7}}", true, "{6=7}"},
		{"5", false, "{}"},
	};
	CommonList list;
	for (const auto &step : steps) {
		const Json member = json(step.member);
		ASSERT_TRUE(member);
		EXPECT_EQ(__pim_search_common_hwregister(map.get(), member.get(), list.get()),
			  step.result)
			<< step.member;
		EXPECT_EQ(list.text(), step.list) << step.member;
	}
}

TEST_F(PimCommonSearch, ConfigurationHoldsTheListUpToItsCount)
{
	CommonList list({{5, 6}, {7, 8}, {9, 9}});
	list.get()->fn_num = 2;
	const node_d made = __pim_get_common_reg_config(map.get(), "label", list.get());
	EXPECT_EQ(made.id, 1);
	EXPECT_EQ(nodes(map.get(), 1),
		  (Lines{"1 COMMON_CONFIG c4 n2", "2 PROPERTY c3", "3 STRING 'label'",
			 "4 GENERAL c5", "5 RIU {5=6 7=8}"}));
}

TEST_F(PimCommonSearch, ConfigurationWithoutANodeIsInvalid)
{
	CommonList list;
	while (node_count(map.get()) < 65535)
		ASSERT_NE(extmem_request_node(&map->builder, EXTMEM_TAG_UNSPECIFIED).id, 0xFFFF);
	EXPECT_EQ(__pim_get_common_reg_config(map.get(), "label", list.get()).id, 0xFFFF);
}

// A second evaluator, too simple to be wrong: multisets of pairs and std::find.
TEST_F(PimCommon, RandomGroupsAgreeWithASimpleModel)
{
	constexpr u32 kSeed = 20240611;
	SCOPED_TRACE("seed " + std::to_string(kSeed));
	std::mt19937 random(kSeed);
	using Pair = std::pair<u32, u32>;
	for (int round = 0; round < 300; ++round) {
		SCOPED_TRACE("round " + std::to_string(round));
		ASSERT_TRUE(map.init());
		add_registers(8);
		std::vector<std::vector<Pair>> members(1 + random() % 4);
		std::vector<std::string> texts;
		for (auto &member : members) {
			std::string text = "[";
			for (u32 i = random() % 9; i > 0; --i) {
				member.emplace_back(random() % 8, random() % 2);
				text += (text.size() > 1 ? ", {'R" : "{'R") +
					std::to_string(member.back().first) +
					"': " + std::to_string(member.back().second) + "}";
			}
			texts.push_back(text + "]");
		}

		std::vector<Pair> common;
		for (size_t i = 0; i < members.size(); ++i) {
			std::vector<Pair> left;
			for (const Pair &pair : members[i]) {
				if (i == 0 ||
				    std::find(common.begin(), common.end(), pair) != common.end())
					left.push_back(pair);
			}
			common = left;
			if (common.empty())
				break;
		}
		const auto text_of_pairs = [](const char *tag, const std::vector<Pair> &pairs) {
			std::string text = std::string(tag) + " {";
			for (size_t i = 0; i < pairs.size(); ++i)
				text += (i ? " " : "") + std::to_string(pairs[i].first) + "=" +
					std::to_string(pairs[i].second);
			return text + "}";
		};
		Lines expected{text_of_pairs("RIU", common)};
		for (const auto &member : members) {
			std::vector<Pair> own;
			for (const Pair &pair : member) {
				if (std::find(common.begin(), common.end(), pair) == common.end())
					own.push_back(pair);
			}
			expected.push_back(own.empty() ? "-" : text_of_pairs("REGISTER", own));
		}

		ASSERT_TRUE(insert_group(texts));
		EXPECT_EQ(delivered(members.size()), expected);
	}
}

} // namespace
