// SPDX-License-Identifier: MIT
//
// The tree of a map: one defect each, and the exact answer.
#include "tests/support/verify.h"

namespace {

using namespace vexil_test;

class VerifyMap : public testing::Test {
protected:
	void TearDown() override { EXPECT_EQ(take_log(), ""); }

	[[nodiscard]] Fault fault() const { return fault_of(map.plan); }
	static Fault misplaced(u16 node, u16 other)
	{
		return {VEXIL_IMAGE_MISPLACED, field_at(node, kTagField), node, other};
	}
	static Fault missing(u16 node, std::size_t link)
	{
		return {VEXIL_IMAGE_MISSING_NODE, field_at(node, link), node, kNoId};
	}
	static Fault shared(u16 node, u16 other, std::size_t link)
	{
		return {VEXIL_IMAGE_NODE_SHARED, field_at(other, link), node, other};
	}
	static Fault wrong_size(u16 node, u16 other)
	{
		return {VEXIL_IMAGE_RECORD_SIZE, field_at(node, kSizeField), node, other};
	}
	[[nodiscard]] u32 record_at(u16 node) const
	{
		return static_cast<u32>(plan.write().record_at(node));
	}

	SmallMap map;
	PimImage &plan = map.plan;
};

// ---- circles and sharing ----

TEST_F(VerifyMap, CyclicSiblings)
{
	const u16 last = map.parent(map.bare);
	plan.next(last, map.parent(map.ip));
	EXPECT_EQ(fault(), shared(map.parent(map.ip), last, kNextField));
}

TEST_F(VerifyMap, HolderThatIsItsOwnSibling)
{
	const u16 holder = map.parent(map.ip);
	plan.next(holder, holder);
	EXPECT_EQ(fault(), shared(holder, holder, kNextField));
}

TEST_F(VerifyMap, ChainThatLeadsBackToTheRoot)
{
	plan.child(map.bare, 0);
	EXPECT_EQ(fault(), shared(0, map.bare, kChildField));
}

TEST_F(VerifyMap, TwoIpsOverTheSameSettings)
{
	plan.child(map.bare, plan.child(map.ip));
	EXPECT_EQ(fault(), shared(plan.child(map.ip), map.bare, kChildField));
}

TEST_F(VerifyMap, NameOfTwoNodes)
{
	const u16 property = map.property(map.bare);
	plan.child(property, map.text(map.ip));
	EXPECT_EQ(fault(), shared(map.text(map.ip), property, kChildField));
}

TEST_F(VerifyMap, TableNameOfTwoSettings)
{
	const u16 other = plan.setting(map.ip, "hue", E_PQLV_PRESETREGS);
	const u16 preset = plan.preset(other, "hue#red", map.table_name);
	EXPECT_EQ(fault(), shared(map.table_name, map.property(preset), kNextField));
}

TEST_F(VerifyMap, MembersOfASettingMayHaveTableNamesOfTheirOwn)
{
	plan.next(map.property(map.cold), plan.add_text("panel"));
	EXPECT_EQ(fault(), kSound);
}

// ---- the root ----

TEST_F(VerifyMap, HolderOfNothing)
{
	const u16 holder = map.parent(map.bare);
	plan.child(holder, kNoId);
	EXPECT_EQ(fault(), missing(holder, kChildField));
}

TEST_F(VerifyMap, HolderOfAnotherTag)
{
	const u16 holder = map.parent(map.ip);
	plan.tag(holder, EXTMEM_TAG_PROPERTY);
	EXPECT_EQ(fault(), misplaced(holder, 0));
}

TEST_F(VerifyMap, RuleInAMap)
{
	plan.tag(map.bare, EXTMEM_TAG_RULE);
	EXPECT_EQ(fault(), misplaced(map.bare, map.parent(map.bare)));
}

TEST_F(VerifyMap, RuleTreeUnderAMapsHead)
{
	SmallRules rules;
	rules.plan.header.binType = 1;
	EXPECT_EQ(fault_of(rules.plan), misplaced(rules.hdmi, static_cast<u16>(rules.hdmi + 4)));
}

// ---- IPs ----

TEST_F(VerifyMap, IpWithoutAName)
{
	plan.next(map.bare, kNoId);
	EXPECT_EQ(fault(), missing(map.bare, kNextField));
}

TEST_F(VerifyMap, IpWithoutAVersion)
{
	plan.next(map.property(map.bare), kNoId);
	EXPECT_EQ(fault(), missing(map.property(map.bare), kNextField));
}

TEST_F(VerifyMap, VersionWithoutARecord)
{
	plan.child(map.third(map.bare), kNoId);
	EXPECT_EQ(fault(), missing(map.third(map.bare), kChildField));
}

TEST_F(VerifyMap, ShortVersion)
{
	const u16 version = map.third(map.bare);
	const u16 record = plan.child(version);
	plan.record(record, 7, plan.record_offset(record));
	EXPECT_EQ(fault(), wrong_size(record, version));
}

TEST_F(VerifyMap, SomethingBehindTheVersion)
{
	const u16 more = plan.add(EXTMEM_TAG_PROPERTY);
	plan.next(map.third(map.bare), more);
	EXPECT_EQ(fault(), misplaced(more, map.third(map.bare)));
}

TEST_F(VerifyMap, PropertyWithoutAText)
{
	plan.child(map.property(map.bare), kNoId);
	EXPECT_EQ(fault(), missing(map.property(map.bare), kChildField));
}

TEST_F(VerifyMap, PropertyOverAnotherRecord)
{
	const u16 text = map.text(map.bare);
	plan.tag(text, EXTMEM_TAG_DATA);
	EXPECT_EQ(fault(), misplaced(text, map.property(map.bare)));
}

TEST_F(VerifyMap, LabelWithoutNul)
{
	const u16 text = map.text(map.bare);
	plan.record(text, plan.record_size(text) - 1, plan.record_offset(text));
	EXPECT_EQ(fault(), (Fault{VEXIL_IMAGE_STRING, record_at(text), text, kNoId}));
}

TEST_F(VerifyMap, TextWithoutARecord)
{
	const u16 text = plan.add(EXTMEM_TAG_STRING_HOLDER);
	plan.child(map.property(map.bare), text);
	EXPECT_EQ(fault(), (Fault{VEXIL_IMAGE_STRING, field_at(text, kSizeField), text, kNoId}));
}

TEST_F(VerifyMap, IpsMayHaveNamesThatCannotBeIndexed)
{
	plan.ip("not a name!");
	plan.ip("");
	EXPECT_EQ(fault(), kSound);
}

// ---- settings ----

TEST_F(VerifyMap, SettingOfAnotherTag)
{
	plan.tag(map.setting, EXTMEM_TAG_IP_CONFIG);
	EXPECT_EQ(fault(), misplaced(map.setting, map.parent(map.setting)));
}

TEST_F(VerifyMap, SettingWithoutALevel)
{
	plan.next(map.property(map.setting), kNoId);
	EXPECT_EQ(fault(), missing(map.property(map.setting), kNextField));
}

TEST_F(VerifyMap, VersionInThePlaceOfALevel)
{
	plan.tag(map.third(map.setting), EXTMEM_TAG_VERSION);
	EXPECT_EQ(fault(), misplaced(map.third(map.setting), map.property(map.setting)));
}

TEST_F(VerifyMap, LongLevel)
{
	const u16 level = map.third(map.setting);
	const u16 record = plan.child(level);
	plan.record(record, 8, plan.record_offset(record));
	EXPECT_EQ(fault(), wrong_size(record, level));
}

TEST_F(VerifyMap, SomethingBehindTheLevel)
{
	const u16 more = plan.add(EXTMEM_TAG_GENERAL);
	plan.next(map.third(map.setting), more);
	EXPECT_EQ(fault(), misplaced(more, map.third(map.setting)));
}

TEST_F(VerifyMap, LevelThatIsNone)
{
	const u16 setting = plan.setting(map.bare, "odd", 8);
	const u16 record = plan.child(plan.next(plan.next(setting)));
	EXPECT_EQ(fault(), (Fault{VEXIL_IMAGE_LEVEL, record_at(record), record, kNoId}));
}

TEST_F(VerifyMap, EveryLevel)
{
	for (u32 level = 0; level < 8; ++level)
		plan.setting(map.bare, "s", level);
	EXPECT_EQ(fault(), kSound);
}

// ---- configurations ----

TEST_F(VerifyMap, ConfigurationOfAnotherTag)
{
	plan.tag(map.config, EXTMEM_TAG_IP_SETTING);
	EXPECT_EQ(fault(), misplaced(map.config, map.parent(map.config)));
}

TEST_F(VerifyMap, PresetWithoutATable)
{
	plan.next(map.property(map.warm), kNoId);
	EXPECT_EQ(fault(), missing(map.property(map.warm), kNextField));
}

TEST_F(VerifyMap, TableWithoutNul)
{
	plan.record(map.table_name, 5, plan.record_offset(map.table_name));
	EXPECT_EQ(fault(),
		  (Fault{VEXIL_IMAGE_STRING, record_at(map.table_name), map.table_name, kNoId}));
}

TEST_F(VerifyMap, TableBehindAPlainConfiguration)
{
	const u16 text = plan.add_text("panel");
	plan.next(map.property(map.config), text);
	EXPECT_EQ(fault(), misplaced(text, map.property(map.config)));
}

TEST_F(VerifyMap, CommonConfigurationWithABlockOfItsOwn)
{
	plan.tag(map.common_list, EXTMEM_TAG_REGISTER_SETTINGS);
	EXPECT_EQ(fault(), misplaced(map.common_list, map.parent(map.common_list)));
}

TEST_F(VerifyMap, CommonListInAPlainConfiguration)
{
	plan.tag(map.list, EXTMEM_TAG_REGISTER_RIU_SETTINGS);
	EXPECT_EQ(fault(), misplaced(map.list, map.parent(map.list)));
}

TEST_F(VerifyMap, BlockOfNothing)
{
	const u16 holder = plan.add(EXTMEM_TAG_GENERAL);
	plan.append(map.config, holder);
	EXPECT_EQ(fault(), missing(holder, kChildField));
}

// ---- blocks ----

TEST_F(VerifyMap, BindingWithoutAFile)
{
	plan.child(map.table, kNoId);
	EXPECT_EQ(fault(), missing(map.table, kChildField));
}

TEST_F(VerifyMap, BindingWithoutAHandler)
{
	plan.next(map.table, kNoId);
	EXPECT_EQ(fault(), missing(map.table, kNextField));
}

TEST_F(VerifyMap, BindingOverNoText)
{
	const u16 entry = plan.next(map.algorithm);
	plan.tag(entry, EXTMEM_TAG_DATA);
	EXPECT_EQ(fault(), misplaced(entry, map.algorithm));
}

TEST_F(VerifyMap, EveryKindOfList)
{
	for (const int tag : {36, 37, 45, 48, 49, 50, 51, 52, 55, 57})
		plan.list(map.config, {{1, 2}}, tag);
	EXPECT_EQ(fault(), kSound);
}

TEST_F(VerifyMap, ListThatAnnouncesMoreThanItHolds)
{
	const u16 list =
		plan.add_record(EXTMEM_TAG_REGISTER_SETTINGS, PimImage::list_bytes({{1, 2}}, 2));
	plan.hold(map.config, list);
	EXPECT_EQ(fault(), (Fault{VEXIL_IMAGE_REGISTER_LIST, record_at(list), list, kNoId}));
}

TEST_F(VerifyMap, JoinedListThatAnnouncesMoreThanItHolds)
{
	const u16 list = plan.add_record(EXTMEM_TAG_REGISTER_ADDR_L1_SETTINGS,
					 PimImage::list_bytes({{1, 2}}, 0xFFFFFFFF));
	plan.hold(map.config, list);
	EXPECT_EQ(fault(), (Fault{VEXIL_IMAGE_REGISTER_LIST, record_at(list), list, kNoId}));
}

TEST_F(VerifyMap, ListThatHoldsMoreThanItAnnounces)
{
	for (const int tag : {36, 37, 55}) {
		SmallMap other;
		const u16 list =
			other.plan.add_record(tag, PimImage::list_bytes({{1, 2}, {3, 4}}, 1));
		other.plan.hold(other.config, list);
		EXPECT_EQ(
			fault_of(other.plan),
			(Fault{VEXIL_IMAGE_REGISTER_LIST,
			       static_cast<u32>(other.plan.write().record_at(list)), list, kNoId}));
	}
}

TEST_F(VerifyMap, JoinedListsKeepTheirLength)
{
	for (const int tag : {45, 48, 49, 50, 51, 52, 57}) {
		const u16 list = plan.add_record(tag, PimImage::list_bytes({{1, 2}, {0, 0}}, 1));
		plan.hold(map.config, list);
	}
	EXPECT_EQ(fault(), kSound);
}

TEST_F(VerifyMap, ListWithoutRoomForItsCount)
{
	const u16 list = plan.add_record(EXTMEM_TAG_REGISTER_SETTINGS, std::string(7, '\0'));
	const u16 holder = plan.hold(map.config, list);
	EXPECT_EQ(fault(), wrong_size(list, holder));
}

TEST_F(VerifyMap, ListWithHalfAPair)
{
	const u16 list = plan.add_record(EXTMEM_TAG_REGISTER_SETTINGS,
					 PimImage::list_bytes({{1, 2}}, 1) + "half");
	const u16 holder = plan.hold(map.config, list);
	EXPECT_EQ(fault(), wrong_size(list, holder));
}

// ---- files ----

TEST_F(VerifyMap, FileWithoutBytes)
{
	plan.child(map.file, kNoId);
	EXPECT_EQ(fault(), missing(map.file, kChildField));
}

TEST_F(VerifyMap, FileWithoutARecord)
{
	const u16 data = plan.add(EXTMEM_TAG_DATA);
	plan.child(map.file, data);
	EXPECT_EQ(fault(), wrong_size(data, map.file));
}

TEST_F(VerifyMap, FileOverAText)
{
	const u16 data = plan.child(map.file);
	plan.tag(data, EXTMEM_TAG_STRING_HOLDER);
	EXPECT_EQ(fault(), misplaced(data, map.file));
}

TEST_F(VerifyMap, FileWithAVersion)
{
	const u16 version = plan.add(EXTMEM_TAG_VERSION);
	plan.next(map.property(map.file), version);
	EXPECT_EQ(fault(), misplaced(version, map.property(map.file)));
}

TEST_F(VerifyMap, FileWhoseNameCannotBeIndexed)
{
	for (const char *name : {"", "a-b", "caf\xC3\xA9"}) {
		SmallMap other;
		const u16 file = other.plan.file(name, "x");
		const u16 text = other.text(file);
		EXPECT_EQ(
			fault_of(other.plan),
			(Fault{VEXIL_IMAGE_NAME,
			       static_cast<u32>(other.plan.write().record_at(text)), text, kNoId}))
			<< name;
	}
}

TEST_F(VerifyMap, FileNamesInAnyLetterCase)
{
	plan.file("Curves/Gamma #2\\_a:b.BIN", "x");
	EXPECT_EQ(fault(), kSound);
}

} // namespace
