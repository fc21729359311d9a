// SPDX-License-Identifier: MIT
#include "pim/pim.h"

#include <gtest/gtest.h>

#include <cctype>
#include <climits>
#include <string>
#include <vector>

#include "tests/support/pim_images.h"
#include "tests/support/pim_json.h"
#include "tests/support/platform.h"

namespace {

using namespace vexil_test;

constexpr u32 kLastPosition = 0x7FFFFFFE;

std::string invalid_entry(const std::string &function, const std::string &name)
{
	return "[VEXIL][PIM][" + function + "] Invalid entry found at " + name;
}

// The three lists: how documents name them, who reads them and where names and versions go.
struct List {
	const char *name;
	const char *key;
	const char *version_key;
	const char *other_version_key;
	bool (*insert)(pim *, cJSON *);
	const char *function;
	ctrie pim::*names;
	vexil_version pim::*version;
};

const List kHardware{"Hardware",
		     "PqHWRegList",
		     "0.version",
		     "#version",
		     pim_insert_regmap_json,
		     "pim_insert_regmap_json",
		     &pim::regname_to_func,
		     &pim::hwreg_json_version};
const List kSoftware{"Software",
		     "PqSWRegList",
		     "0.version",
		     "#version",
		     pim_insert_vregmap_json,
		     "pim_insert_vregmap_json",
		     &pim::vregname_to_func,
		     &pim::swreg_json_version};
const List kCustomer{"Customer",
		     "PqCusSWRegList",
		     "#version",
		     "0.version",
		     pim_insert_cus_vregmap_json,
		     "pim_insert_cus_vregmap_json",
		     &pim::cus_vregname_to_func,
		     &pim::cus_swreg_json_version};
// The software form reads the customer's list as well.
const List kCustomerThroughSoftware{"CustomerThroughSoftware",
				    "PqCusSWRegList",
				    "#version",
				    "0.version",
				    pim_insert_vregmap_json,
				    "pim_insert_vregmap_json",
				    &pim::cus_vregname_to_func,
				    &pim::cus_swreg_json_version};

class PimRegList : public testing::TestWithParam<List> {
protected:
	void SetUp() override { ASSERT_TRUE(map.init()); }
	void TearDown() override { EXPECT_EQ(take_log(), ""); }

	bool insert(const std::string &text)
	{
		const Json document = json(text);
		EXPECT_TRUE(document) << text;
		return document && GetParam().insert(map.get(), document.get());
	}
	bool insert_list(const std::string &members)
	{
		return insert(std::string("{'") + GetParam().key + "': {" + members + "}}");
	}
	bool insert_entries(const std::string &entries)
	{
		return insert_list("'register': [" + entries + "]");
	}
	[[nodiscard]] int find(const char *name) const
	{
		return ctrie_find(&(map.get()->*GetParam().names), name);
	}
	[[nodiscard]] vexil_version version() const { return map.get()->*GetParam().version; }
	[[nodiscard]] std::size_t text_bytes() const
	{
		return (map.get()->*GetParam().names).buf_used;
	}
	[[nodiscard]] std::string invalid(const std::string &name) const
	{
		return invalid_entry(GetParam().function, name);
	}

	Map map;
};

std::string list_name(const testing::TestParamInfo<List> &info)
{
	return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(, PimRegList,
			 testing::Values(kHardware, kSoftware, kCustomer, kCustomerThroughSoftware),
			 list_name);

// ---- entries ----

TEST_P(PimRegList, EntriesBecomeNames)
{
	EXPECT_TRUE(insert_entries("{'REG_A': 0}, {'REG_B': 1}, {'Reg_C': 0x1F}"));
	EXPECT_EQ(find("reg_a"), 0);
	EXPECT_EQ(find("REG_B"), 1);
	EXPECT_EQ(find("REG_C"), 31);
}

TEST_P(PimRegList, HexadecimalTextsAreNumbers)
{
	EXPECT_TRUE(insert_entries("{'A': '0x10'}"));
	EXPECT_EQ(find("A"), 16);
}

TEST_P(PimRegList, OnlyTheFirstMemberOfAnEntryIsRead)
{
	EXPECT_TRUE(insert_entries("{'A': 1, 'B': 2}, {'C': 3, 'D': 'text'}"));
	EXPECT_EQ(find("A"), 1);
	EXPECT_EQ(find("C"), 3);
	EXPECT_EQ(find("B"), INT_MIN);
	EXPECT_EQ(find("D"), INT_MIN);
}

TEST_P(PimRegList, MalformedEntriesAreReportedAndPassedOver)
{
	EXPECT_TRUE(insert_entries("{'A': 3}, {'B': 'text'}, {}, {'C': 4}"));
	EXPECT_EQ(find("A"), 3);
	EXPECT_EQ(find("B"), INT_MIN);
	EXPECT_EQ(find("C"), 4);
	EXPECT_EQ(take_log_lines(), (Lines{invalid("B"), invalid("")}));
}

TEST_P(PimRegList, ValuesOfOtherTypesAreReported)
{
	EXPECT_TRUE(insert_entries(
		"{'A': true}, {'B': null}, {'C': [1]}, {'D': {'E': 1}}, {'F': '0xg'},"
		"{'G': '16'}"));
	EXPECT_EQ(text_bytes(), 0u);
	EXPECT_EQ(take_log_lines(), (Lines{invalid("A"), invalid("B"), invalid("C"), invalid("D"),
					   invalid("F"), invalid("G")}));
}

TEST_P(PimRegList, ReportedNamesKeepTheirCase)
{
	EXPECT_TRUE(insert_entries("{'Reg_A': ''}"));
	EXPECT_EQ(take_log(), invalid("Reg_A") + "\n");
}

TEST_P(PimRegList, EntriesThatAreNoObjectsHaveNoMember)
{
	EXPECT_TRUE(insert_entries("5, 'A', null, true, [], {'B': 1}"));
	EXPECT_EQ(take_log_lines(), Lines(5, invalid("")));
	EXPECT_EQ(find("B"), 1);
}

TEST_P(PimRegList, NamelessFirstMembersAreNotEntered)
{
	EXPECT_TRUE(insert_entries("[1, 2], {'B': 1}"));
	EXPECT_EQ(find("B"), 1);
	EXPECT_EQ(text_bytes(), 1u);
	EXPECT_EQ(take_log(), "");
}

TEST_P(PimRegList, NamelessFirstMembersOfAnotherTypeAreReportedWithoutAName)
{
	EXPECT_TRUE(insert_entries("['text']"));
	EXPECT_EQ(take_log(), invalid("(null)") + "\n");
}

TEST_P(PimRegList, RepeatedNameKeepsTheFirstValueSilently)
{
	EXPECT_TRUE(insert_entries("{'A': 1}, {'a': 2}, {'A': 3}"));
	EXPECT_EQ(find("A"), 1);
	EXPECT_TRUE(insert_entries("{'A': 4}, {'B': 5}"));
	EXPECT_EQ(find("A"), 1);
	EXPECT_EQ(find("B"), 5);
}

TEST_P(PimRegList, NameThatTheIndexRefusesIsPassedOver)
{
	EXPECT_TRUE(insert_entries("{'A-B': 1}, {'': 2}, {'C': 3}"));
	EXPECT_EQ(find("C"), 3);
	EXPECT_EQ(text_bytes(), 1u);
	EXPECT_EQ(take_log(), "[ctrie_insert][176]insert wrong string member = 45\n");
}

TEST_P(PimRegList, ThousandsOfEntriesAreRead)
{
	constexpr int kEntries = 5000;
	std::string entries;
	for (int i = 0; i < kEntries; ++i)
		entries +=
			(i ? ", {'R" : "{'R") + std::to_string(i) + "': " + std::to_string(i) + "}";
	EXPECT_TRUE(insert_entries(entries));
	for (int i = 0; i < kEntries; ++i)
		ASSERT_EQ(find(("R" + std::to_string(i)).c_str()), i);
}

TEST_P(PimRegList, EntriesWithoutMemoryAreDroppedSilently)
{
	const Json document = json(std::string("{'") + GetParam().key +
				   "': {'register': [{'A': 1}, {'B': 'text'}, {'C': 2}]}}");
	{
		const Refuse all = Refuse::from(1);
		EXPECT_TRUE(GetParam().insert(map.get(), document.get()));
		EXPECT_TRUE(all.happened());
	}
	EXPECT_EQ(find("A"), INT_MIN);
	EXPECT_EQ(take_log(), invalid("B") + "\n");
	EXPECT_TRUE(GetParam().insert(map.get(), document.get()));
	EXPECT_EQ(find("A"), 1);
	EXPECT_EQ(find("C"), 2);
	EXPECT_EQ(take_log(), invalid("B") + "\n");
}

// ---- documents ----

TEST_P(PimRegList, WithoutAMapOrADocumentIsFalse)
{
	const Json document = json("{}");
	EXPECT_FALSE(GetParam().insert(nullptr, document.get()));
	EXPECT_FALSE(GetParam().insert(map.get(), nullptr));
	EXPECT_FALSE(GetParam().insert(nullptr, nullptr));
}

TEST_P(PimRegList, DocumentWithoutTheListIsTrue)
{
	for (const char *text :
	     {"{}", "[]", "5", "'text'", "null", "{'Other': {'register': [{'A': 1}]}}",
	      "{'register': [{'A': 1}]}", "[{'A': 1}]"}) {
		SCOPED_TRACE(text);
		EXPECT_TRUE(insert(text));
	}
	EXPECT_EQ(text_bytes(), 0u);
	EXPECT_EQ(version(), (vexil_version{}));
}

TEST_P(PimRegList, OtherMembersOfTheDocumentAreIgnored)
{
	EXPECT_TRUE(insert(
		std::string("{'Zero': 0, '") + GetParam().key +
		"': {'comment': [{'X': 1}], 'register': [{'A': 1}], 'more': {}}, 'End': []}"));
	EXPECT_EQ(find("A"), 1);
	EXPECT_EQ(find("X"), INT_MIN);
}

TEST_P(PimRegList, MemberNamesMayHaveAnyCase)
{
	std::string key = GetParam().key;
	for (char &c : key)
		c = static_cast<char>(std::toupper(c));
	std::string version_key = GetParam().version_key;
	for (char &c : version_key)
		c = static_cast<char>(std::toupper(c));
	EXPECT_TRUE(insert("{'" + key + "': {'" + version_key +
			   "': {'MajorVersion': 7}, 'REGISTER': [{'A': 1}]}}"));
	EXPECT_EQ(find("A"), 1);
	EXPECT_EQ(version(), (vexil_version{7, 0, 0}));
}

TEST_P(PimRegList, RegisterThatIsNoArrayHasNoEntries)
{
	for (const char *value : {"{'A': 1}", "5", "'A'", "null", "true"}) {
		SCOPED_TRACE(value);
		EXPECT_TRUE(insert_list(std::string("'register': ") + value));
	}
	EXPECT_TRUE(insert_list(""));
	EXPECT_TRUE(insert_entries(""));
	EXPECT_EQ(text_bytes(), 0u);
}

TEST_P(PimRegList, ListThatIsNoObjectIsTrue)
{
	for (const char *value : {"5", "'A'", "null", "true", "[]", "[{'register': [{'A': 1}]}]"}) {
		SCOPED_TRACE(value);
		EXPECT_TRUE(insert(std::string("{'") + GetParam().key + "': " + value + "}"));
	}
	EXPECT_EQ(text_bytes(), 0u);
}

// ---- versions ----

TEST_P(PimRegList, VersionOfTheListIsKept)
{
	EXPECT_TRUE(
		insert_list(std::string("'") + GetParam().version_key +
			    "': {'JsonVersionFormat': '3.12', 'Revision': '10', 'Note': 'note'},"
			    "'register': [{'A': 1}]"));
	EXPECT_EQ(version(), (vexil_version{3, 18, 16}));
	EXPECT_STREQ(map->cus_version, "");
}

TEST_P(PimRegList, VersionUnderTheOtherNameIsIgnored)
{
	EXPECT_TRUE(insert_list(std::string("'") + GetParam().other_version_key +
				"': {'MajorVersion': 7}, 'register': [{'A': 1}]"));
	EXPECT_EQ(version(), (vexil_version{}));
	EXPECT_EQ(find("A"), 1);
}

TEST_P(PimRegList, VersionMembersThatAreMissingStay)
{
	EXPECT_TRUE(insert_list(std::string("'") + GetParam().version_key +
				"': {'MajorVersion': 1, 'MinorVersion': 2, 'Revision': 3},"
				"'register': [{'A': 1}]"));
	EXPECT_TRUE(insert_list(std::string("'") + GetParam().version_key +
				"': {'MinorVersion': 5}, 'register': [{'B': 1}]"));
	EXPECT_EQ(version(), (vexil_version{1, 5, 3}));
}

TEST_P(PimRegList, ListsKeepToThemselves)
{
	EXPECT_TRUE(insert_list(std::string("'") + GetParam().version_key +
				"': {'MajorVersion': 7}, 'register': [{'A': 1}]"));
	for (const List &other : {kHardware, kSoftware, kCustomer}) {
		if (other.names == GetParam().names)
			continue;
		EXPECT_EQ(ctrie_find(&(map.get()->*other.names), "A"), INT_MIN);
		EXPECT_EQ(map.get()->*other.version, (vexil_version{}));
	}
	EXPECT_EQ(map->total_version, (vexil_version{}));
}

// ---- hardware ----

class PimHardwareList : public PimTest {
protected:
	bool insert(const std::string &text)
	{
		const Json document = json(text);
		EXPECT_TRUE(document) << text;
		return document && pim_insert_regmap_json(map.get(), document.get());
	}
	bool insert_entries(const std::string &entries)
	{
		return insert("{'PqHWRegList': {'register': [" + entries + "]}}");
	}
	[[nodiscard]] int find(const char *name) const
	{
		return ctrie_find(&map->regname_to_func, name);
	}
};

TEST_F(PimHardwareList, PositionsEndBefore0x7FFFFFFF)
{
	EXPECT_TRUE(insert_entries("{'A': 2147483646}, {'B': 2147483647}, {'C': 2147483648},"
				   "{'D': 4294967295}, {'E': 0x7FFFFFFE}, {'F': 0x7FFFFFFF}"));
	EXPECT_EQ(find("A"), 0x7FFFFFFE);
	EXPECT_EQ(find("E"), 0x7FFFFFFE);
	for (const char *name : {"B", "C", "D", "F"})
		EXPECT_EQ(find(name), INT_MIN) << name;
}

TEST_F(PimHardwareList, PositionsBeyond32BitsAreSkippedSilently)
{
	EXPECT_TRUE(insert_entries(
		"{'A': 4294967296}, {'B': 0x100000001}, {'C': 9223372036854775807}"));
	for (const char *name : {"A", "B", "C"})
		EXPECT_EQ(find(name), INT_MIN) << name;
}

TEST_F(PimHardwareList, NegativePositionsAreSkippedSilently)
{
	EXPECT_TRUE(insert_entries(
		"{'A': -1}, {'B': -2147483648}, {'C': -9223372036854775808}, {'D': 5}"));
	for (const char *name : {"A", "B", "C"})
		EXPECT_EQ(find(name), INT_MIN) << name;
	EXPECT_EQ(find("D"), 5);
	EXPECT_EQ(map->regname_to_func.buf_used, 1u);
}

TEST_F(PimHardwareList, WithoutEntriesNotEvenTheVersionIsRead)
{
	const std::string version = "'0.version': {'MajorVersion': 7}";
	for (const char *rest :
	     {"", ", 'register': []", ", 'register': {'A': 1}", ", 'register': null"}) {
		SCOPED_TRACE(rest);
		EXPECT_TRUE(insert("{'PqHWRegList': {" + version + rest + "}}"));
		EXPECT_EQ(map->hwreg_json_version, (vexil_version{}));
	}
}

TEST_F(PimHardwareList, VersionOfAListOfBadEntriesIsRead)
{
	EXPECT_TRUE(
		insert("{'PqHWRegList': {'0.version': {'MajorVersion': 7}, 'register': [{}]}}"));
	EXPECT_EQ(map->hwreg_json_version, (vexil_version{7, 0, 0}));
	EXPECT_EQ(take_log(), invalid_entry("pim_insert_regmap_json", "") + "\n");
}

TEST_F(PimHardwareList, OtherListsAreNotRead)
{
	EXPECT_TRUE(insert("{'PqSWRegList': {'register': [{'A': 1}]},"
			   "'PqCusSWRegList': {'register': [{'B': 1}]}}"));
	EXPECT_EQ(map->vregname_to_func.buf_used, 0u);
	EXPECT_EQ(map->cus_vregname_to_func.buf_used, 0u);
}

TEST_F(PimHardwareList, OneNameIsInsertedWithItsPosition)
{
	EXPECT_TRUE(pim_insert_regmap(map.get(), "REG_A", 0));
	EXPECT_TRUE(pim_insert_regmap(map.get(), "REG_B", kLastPosition));
	EXPECT_EQ(find("reg_a"), 0);
	EXPECT_EQ(find("REG_B"), 0x7FFFFFFE);
}

TEST_F(PimHardwareList, PositionAbove0x7FFFFFFEIsRefused)
{
	for (const u32 position : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
		EXPECT_FALSE(pim_insert_regmap(map.get(), "REG_A", position)) << position;
	EXPECT_EQ(map->regname_to_func.buf_used, 0u);
}

TEST_F(PimHardwareList, RepeatedNameIsFalseAndKeepsTheFirstPosition)
{
	EXPECT_TRUE(pim_insert_regmap(map.get(), "REG_A", 3));
	EXPECT_FALSE(pim_insert_regmap(map.get(), "Reg_A", 4));
	EXPECT_EQ(find("REG_A"), 3);
	EXPECT_EQ(map->regname_to_func.err_code, CTRIE_DUPLICATED_STRING);
}

TEST_F(PimHardwareList, UnacceptableNameIsFalse)
{
	EXPECT_FALSE(pim_insert_regmap(map.get(), "A-B", 3));
	EXPECT_EQ(take_log(), "[ctrie_insert][176]insert wrong string member = 45\n");
	EXPECT_FALSE(pim_insert_regmap(map.get(), "", 3));
}

TEST_F(PimHardwareList, WithoutAMapOrANameIsFalse)
{
	EXPECT_FALSE(pim_insert_regmap(nullptr, "A", 1));
	EXPECT_FALSE(pim_insert_regmap(map.get(), nullptr, 1));
}

// ---- software and customer ----

class PimVirtualLists : public PimTest {
protected:
	bool insert(const std::string &text)
	{
		const Json document = json(text);
		EXPECT_TRUE(document) << text;
		return document && pim_insert_vregmap_json(map.get(), document.get());
	}
	[[nodiscard]] int software(const char *name) const
	{
		return ctrie_find(&map->vregname_to_func, name);
	}
	[[nodiscard]] int customer(const char *name) const
	{
		return ctrie_find(&map->cus_vregname_to_func, name);
	}
};

const char *const kBothLists = "{'PqCusSWRegList': {'#version': {'MajorVersion': 2},"
			       "                    'register': [{'C': 3}, {'BOTH': 4}, {}]},"
			       "'PqSWRegList': {'0.version': {'MajorVersion': 1},"
			       "                'register': [{'S': 1}, {'BOTH': 2}, {'X': 'x'}]}}";

TEST_F(PimVirtualLists, SoftwareFormReadsBothListsSoftwareFirst)
{
	EXPECT_TRUE(insert(kBothLists));
	EXPECT_EQ(software("S"), 1);
	EXPECT_EQ(software("BOTH"), 2);
	EXPECT_EQ(software("C"), INT_MIN);
	EXPECT_EQ(customer("C"), 3);
	EXPECT_EQ(customer("BOTH"), 4);
	EXPECT_EQ(customer("S"), INT_MIN);
	EXPECT_EQ(map->swreg_json_version, (vexil_version{1, 0, 0}));
	EXPECT_EQ(map->cus_swreg_json_version, (vexil_version{2, 0, 0}));
	EXPECT_EQ(take_log_lines(), (Lines{invalid_entry("pim_insert_vregmap_json", "X"),
					   invalid_entry("pim_insert_vregmap_json", "")}));
}

TEST_F(PimVirtualLists, CustomerFormReadsOneListOnly)
{
	const Json document = json(kBothLists);
	EXPECT_TRUE(pim_insert_cus_vregmap_json(map.get(), document.get()));
	EXPECT_EQ(customer("C"), 3);
	EXPECT_EQ(map->vregname_to_func.buf_used, 0u);
	EXPECT_EQ(map->swreg_json_version, (vexil_version{}));
	EXPECT_EQ(take_log(), invalid_entry("pim_insert_cus_vregmap_json", "") + "\n");
}

TEST_F(PimVirtualLists, CustomerFormAfterwardsAddsNothing)
{
	EXPECT_TRUE(insert(kBothLists));
	take_log();
	const Json document = json(kBothLists);
	EXPECT_TRUE(pim_insert_cus_vregmap_json(map.get(), document.get()));
	EXPECT_EQ(customer("C"), 3);
	EXPECT_EQ(customer("BOTH"), 4);
	EXPECT_EQ(map->cus_vregname_to_func.err_code, CTRIE_DUPLICATED_STRING);
	EXPECT_EQ(take_log(), invalid_entry("pim_insert_cus_vregmap_json", "") + "\n");
}

TEST_F(PimVirtualLists, CustomerListAloneFillsOnlyItself)
{
	EXPECT_TRUE(insert("{'PqCusSWRegList': {'#version': {'MajorVersion': 2},"
			   "'register': [{'C': 3}]}}"));
	EXPECT_EQ(customer("C"), 3);
	EXPECT_EQ(map->cus_swreg_json_version, (vexil_version{2, 0, 0}));
	EXPECT_EQ(map->vregname_to_func.buf_used, 0u);
	EXPECT_EQ(map->swreg_json_version, (vexil_version{}));
}

TEST_F(PimVirtualLists, HardwareListIsNotRead)
{
	EXPECT_TRUE(insert("{'PqHWRegList': {'register': [{'A': 1}]}}"));
	EXPECT_EQ(map->regname_to_func.buf_used, 0u);
}

TEST_F(PimVirtualLists, ValuesKeepTheirLower32Bits)
{
	EXPECT_TRUE(insert(
		"{'PqSWRegList': {'register': [{'A': -1}, {'B': 0x7FFFFFFF}, {'C': 0xFFFFFFFF},"
		"{'D': 0x80000001}, {'E': 0x100000005}, {'F': -2147483647},"
		"{'G': 0x7FFFFFFFFFFFFFFF}, {'H': -9223372036854775807}]}}"));
	EXPECT_EQ(software("A"), -1);
	EXPECT_EQ(software("B"), 0x7FFFFFFF);
	EXPECT_EQ(software("C"), -1);
	EXPECT_EQ(software("D"), INT_MIN + 1);
	EXPECT_EQ(software("E"), 5);
	EXPECT_EQ(software("F"), INT_MIN + 1);
	EXPECT_EQ(software("G"), -1);
	EXPECT_EQ(software("H"), 1);
}

TEST_F(PimVirtualLists, CustomerValuesKeepTheirLower32Bits)
{
	EXPECT_TRUE(insert("{'PqCusSWRegList': {'register': [{'A': -1}, {'B': 0x100000005}]}}"));
	EXPECT_EQ(customer("A"), -1);
	EXPECT_EQ(customer("B"), 5);
}

TEST_F(PimVirtualLists, Value0x80000000LeavesTheNameUnknown)
{
	EXPECT_TRUE(insert("{'PqSWRegList': {'register': [{'A': 0x80000000}, {'A': 7}]}}"));
	EXPECT_EQ(software("A"), 7);
	EXPECT_TRUE(pim_insert_vregmap(map.get(), "B", 0x80000000));
	EXPECT_EQ(software("B"), INT_MIN);
	EXPECT_TRUE(pim_insert_cus_vregmap(map.get(), "B", 0x80000000));
	EXPECT_EQ(customer("B"), INT_MIN);
}

TEST_F(PimVirtualLists, VersionsAreReadWithoutEntriesToo)
{
	for (const char *rest : {"", ", 'register': []", ", 'register': 5"}) {
		SCOPED_TRACE(rest);
		map->swreg_json_version = {};
		map->cus_swreg_json_version = {};
		EXPECT_TRUE(insert(
			std::string("{'PqSWRegList': {'0.version': {'MajorVersion': 1}") + rest +
			"}, 'PqCusSWRegList': {'#version': {'MajorVersion': 2}" + rest + "}}"));
		EXPECT_EQ(map->swreg_json_version, (vexil_version{1, 0, 0}));
		EXPECT_EQ(map->cus_swreg_json_version, (vexil_version{2, 0, 0}));
	}
}

TEST_F(PimVirtualLists, OneNameIsInsertedWithAnyValue)
{
	for (const u32 value : {0u, 1u, 0x7FFFFFFFu, 0x80000001u, 0xFFFFFFFFu}) {
		const std::string name = "R" + std::to_string(value);
		EXPECT_TRUE(pim_insert_vregmap(map.get(), name.c_str(), value));
		EXPECT_TRUE(pim_insert_cus_vregmap(map.get(), name.c_str(), value + 1));
		EXPECT_EQ(software(name.c_str()), static_cast<int>(value));
		EXPECT_EQ(customer(name.c_str()), static_cast<int>(value + 1));
	}
}

TEST_F(PimVirtualLists, RepeatedNameIsFalseAndKeepsTheFirstValue)
{
	EXPECT_TRUE(pim_insert_vregmap(map.get(), "A", 3));
	EXPECT_FALSE(pim_insert_vregmap(map.get(), "a", 4));
	EXPECT_EQ(software("A"), 3);
	EXPECT_TRUE(pim_insert_cus_vregmap(map.get(), "A", 5));
	EXPECT_FALSE(pim_insert_cus_vregmap(map.get(), "a", 6));
	EXPECT_EQ(customer("A"), 5);
}

TEST_F(PimVirtualLists, UnacceptableNameIsFalse)
{
	EXPECT_FALSE(pim_insert_vregmap(map.get(), "A-B", 3));
	EXPECT_FALSE(pim_insert_cus_vregmap(map.get(), "A+B", 3));
	EXPECT_EQ(take_log(), "[ctrie_insert][176]insert wrong string member = 45\n"
			      "[ctrie_insert][176]insert wrong string member = 43\n");
	EXPECT_FALSE(pim_insert_vregmap(map.get(), "", 3));
	EXPECT_FALSE(pim_insert_cus_vregmap(map.get(), "", 3));
}

TEST_F(PimVirtualLists, WithoutAMapOrANameIsFalse)
{
	EXPECT_FALSE(pim_insert_vregmap(nullptr, "A", 1));
	EXPECT_FALSE(pim_insert_vregmap(map.get(), nullptr, 1));
	EXPECT_FALSE(pim_insert_cus_vregmap(nullptr, "A", 1));
	EXPECT_FALSE(pim_insert_cus_vregmap(map.get(), nullptr, 1));
}

// ---- where messages go ----

std::size_t hook_calls = 0;

int counting_hook(const char *, ...)
{
	++hook_calls;
	return 0;
}

TEST_F(PimHardwareList, MessagesGoToTheKernelLogNotThroughTheStore)
{
	map->builder.print = counting_hook;
	map->builder.print_error = counting_hook;
	hook_calls = 0;
	EXPECT_TRUE(insert_entries("{}"));
	const Json both = json(kBothLists);
	EXPECT_TRUE(pim_insert_vregmap_json(map.get(), both.get()));
	EXPECT_EQ(hook_calls, 0u);
	EXPECT_EQ(take_log_lines().size(), 3u);
}

// ---- after pim_finish ----

TEST_P(PimRegList, FinishedMapTakesNoMoreNames)
{
	EXPECT_TRUE(insert_entries("{'A': 1}"));
	ASSERT_TRUE(pim_finish(map.get()));
	EXPECT_EQ(find("A"), INT_MIN);
	EXPECT_TRUE(insert_entries("{'A': 1}, {'B': 2}"));
	EXPECT_EQ(find("A"), INT_MIN);
	EXPECT_EQ(find("B"), INT_MIN);
	EXPECT_EQ((map.get()->*GetParam().names).err_code, CTRIE_INTERNAL_ERROR);
}

TEST_F(PimVirtualLists, FinishedMapRefusesSingleNames)
{
	ASSERT_TRUE(pim_finish(map.get()));
	EXPECT_FALSE(pim_insert_regmap(map.get(), "A", 1));
	EXPECT_FALSE(pim_insert_vregmap(map.get(), "A", 1));
	EXPECT_FALSE(pim_insert_cus_vregmap(map.get(), "A", 1));
	EXPECT_EQ(map->regname_to_func.err_code, CTRIE_INTERNAL_ERROR);
	EXPECT_EQ(map->vregname_to_func.err_code, CTRIE_INTERNAL_ERROR);
	EXPECT_EQ(map->cus_vregname_to_func.err_code, CTRIE_INTERNAL_ERROR);
}

} // namespace
