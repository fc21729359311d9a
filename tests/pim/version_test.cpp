// SPDX-License-Identifier: MIT
#include "core/version.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/support/pim_images.h"
#include "tests/support/pim_json.h"

namespace {

using namespace vexil_test;

constexpr vexil_version kBefore{70, 80, 90};

// What a version object makes of a version that was kBefore.
vexil_version read(const std::string &members)
{
	vexil_version version = kBefore;
	const Json object = json("{" + members + "}");
	EXPECT_TRUE(object) << members;
	__pim_get_version(object.get(), &version, nullptr);
	return version;
}

// Major and minor of a "JsonVersionFormat" text.
vexil_version read_format(const std::string &text)
{
	vexil_version version = kBefore;
	const Json object = json("{'JsonVersionFormat': '" + text + "'}");
	EXPECT_TRUE(object) << text;
	__pim_get_version(object.get(), &version, nullptr);
	EXPECT_EQ(version.u32Revision, kBefore.u32Revision);
	return {version.u16MajorNumber, version.u16MinorNumber, 0};
}

struct Format {
	std::string text;
	u16 major;
	u16 minor;
};

void expect_formats(const std::vector<Format> &rows)
{
	for (const Format &row : rows) {
		SCOPED_TRACE("\"" + row.text + "\"");
		EXPECT_EQ(read_format(row.text), (vexil_version{row.major, row.minor, 0}));
	}
}

// ---- "JsonVersionFormat" ----

TEST(PimVersion, FormatIsHexadecimal)
{
	expect_formats({{"2.1", 2, 1},
			{"1.10", 1, 16},
			{"3.12", 3, 18},
			{"a.b", 10, 11},
			{"A.B", 10, 11},
			{"0.0", 0, 0},
			{"007.010", 7, 16},
			{"0x2.0X1f", 2, 31},
			{"+2.+1", 2, 1},
			{"ffff.ffff", 0xFFFF, 0xFFFF}});
}

TEST(PimVersion, FormatBlanksAreSkipped)
{
	expect_formats({{" 2.1", 2, 1},
			{"2 . 1", 2, 1},
			{"2.1 ", 2, 1},
			{"1 0.1 1", 16, 17},
			{"   ", 0, 0}});
}

TEST(PimVersion, FormatOnlyBlanksAreBlank)
{
	expect_formats({{"\\t2.1", 0, 1}, {"2.\\t1", 2, 0}, {"2\\t.1", 0, 1}});
}

TEST(PimVersion, FormatWithoutADotIsTheMinor)
{
	expect_formats({{"5", 0, 5}, {"1f", 0, 31}});
}

TEST(PimVersion, FormatPartWithoutTextIsZero)
{
	expect_formats(
		{{"", 0, 0}, {".", 0, 0}, {"2.", 2, 0}, {".5", 0, 5}, {"..", 0, 0}, {" . ", 0, 0}});
}

TEST(PimVersion, FormatSegmentBeforeTheLastDotIsTheMajor)
{
	expect_formats({{"1.2.3", 2, 3},
			{"1.2.3.4", 3, 4},
			{"2..1", 2, 1},
			{"2.1.", 1, 0},
			{"..7", 0, 7}});
}

TEST(PimVersion, FormatPartThatDoesNotParseIsZero)
{
	expect_formats({{"v2.1", 0, 1},
			{"2.x", 2, 0},
			{"g.g", 0, 0},
			{"-2.1", 0, 1},
			{"2.-1", 2, 0},
			{"2,1", 0, 0},
			{"2.1-beta", 2, 0},
			{"2.zz.1", 0, 1},
			{"10000000000000000.1", 0, 1}}); // 65 bits
}

TEST(PimVersion, FormatPartsKeepTheirLower16Bits)
{
	expect_formats({{"12345.6789a", 0x2345, 0x789A},
			{"10000.1", 0, 1},
			{"ffffffffffffffff.1", 0xFFFF, 1}});
}

TEST(PimVersion, FormatPartsOfUpTo127CharactersParse)
{
	const std::string longest = std::string(126, '0') + "5";
	expect_formats({{longest + "." + longest, 5, 5},
			{"0" + longest + ".1", 0, 1},
			{"1.0" + longest, 1, 0},
			{std::string(1000, '0') + "5.1", 0, 1},
			{"2." + std::string(1000, '0') + "5", 2, 0}});
}

TEST(PimVersion, FormatBlanksDoNotLengthenAPart)
{
	expect_formats({{std::string(500, ' ') + "2" + std::string(500, ' ') + ".1", 2, 1}});
}

TEST(PimVersion, FormatReplacesMajorAndMinor)
{
	EXPECT_EQ(read("'JsonVersionFormat': '2.1', 'MajorVersion': 5, 'MinorVersion': 6"),
		  (vexil_version{2, 1, 90}));
	EXPECT_EQ(read("'MajorVersion': 5, 'MinorVersion': 6, 'JsonVersionFormat': ''"),
		  (vexil_version{0, 0, 90}));
}

TEST(PimVersion, FormatOfAnotherTypeLeavesMajorAndMinorToTheirMembers)
{
	for (const char *value : {"2", "true", "null", "{'a': '2.1'}", "['2.1']", "'0x21'"}) {
		SCOPED_TRACE(value);
		EXPECT_EQ(read(std::string("'JsonVersionFormat': ") + value +
			       ", 'MajorVersion': 5, 'MinorVersion': 6"),
			  (vexil_version{5, 6, 90}));
	}
}

// ---- "MajorVersion", "MinorVersion" ----

TEST(PimVersion, MajorAndMinorAreReadIndependently)
{
	EXPECT_EQ(read("'MajorVersion': 2"), (vexil_version{2, 80, 90}));
	EXPECT_EQ(read("'MinorVersion': 2"), (vexil_version{70, 2, 90}));
	EXPECT_EQ(read("'MinorVersion': 0, 'MajorVersion': 0"), (vexil_version{0, 0, 90}));
}

TEST(PimVersion, MajorAndMinorKeepTheirLower16Bits)
{
	EXPECT_EQ(read("'MajorVersion': 0x12345, 'MinorVersion': -1"),
		  (vexil_version{0x2345, 0xFFFF, 90}));
	EXPECT_EQ(read("'MajorVersion': 0x7fffffff00010002"), (vexil_version{2, 80, 90}));
}

TEST(PimVersion, MajorAndMinorOfAnotherTypeChangeNothing)
{
	for (const char *value : {"'2'", "true", "null", "[2]", "{'a': 2}"}) {
		SCOPED_TRACE(value);
		EXPECT_EQ(read(std::string("'MajorVersion': ") + value +
			       ", 'MinorVersion': " + value),
			  kBefore);
	}
}

TEST(PimVersion, HexadecimalTextsAreNumbers)
{
	EXPECT_EQ(read("'MajorVersion': '0x2', 'MinorVersion': '0x1f', 'Revision': '0x10'"),
		  (vexil_version{2, 31, 16}));
}

// ---- "Revision" ----

TEST(PimVersion, RevisionTextIsHexadecimal)
{
	EXPECT_EQ(read("'Revision': '10'").u32Revision, 16u);
	EXPECT_EQ(read("'Revision': 'ff'").u32Revision, 255u);
	EXPECT_EQ(read("'Revision': '0Xff'").u32Revision, 255u);
	EXPECT_EQ(read("'Revision': 'FFFFFFFF'").u32Revision, 0xFFFFFFFFu);
}

TEST(PimVersion, RevisionNumberIsTakenAsItIs)
{
	EXPECT_EQ(read("'Revision': 10").u32Revision, 10u);
	EXPECT_EQ(read("'Revision': 0x10").u32Revision, 16u);
	EXPECT_EQ(read("'Revision': 4294967295").u32Revision, 0xFFFFFFFFu);
	EXPECT_EQ(read("'Revision': -1").u32Revision, 0xFFFFFFFFu);
}

TEST(PimVersion, RevisionKeepsItsLower32Bits)
{
	EXPECT_EQ(read("'Revision': 0x100000002").u32Revision, 2u);
	EXPECT_EQ(read("'Revision': '100000002'").u32Revision, 2u);
}

TEST(PimVersion, RevisionTextThatDoesNotParseIsZero)
{
	for (const char *text : {"", "r5", "1.2", " 5", "5 ", "-5", "10000000000000000"}) {
		SCOPED_TRACE(text);
		EXPECT_EQ(read(std::string("'Revision': '") + text + "'").u32Revision, 0u);
	}
}

TEST(PimVersion, RevisionOfAnotherTypeChangesNothing)
{
	for (const char *value : {"true", "false", "null", "['5']", "{'a': 5}"}) {
		SCOPED_TRACE(value);
		EXPECT_EQ(read(std::string("'Revision': ") + value), kBefore);
	}
}

TEST(PimVersion, RevisionGoesWithTheFormat)
{
	EXPECT_EQ(read("'JsonVersionFormat': '2.1', 'Revision': 7"), (vexil_version{2, 1, 7}));
}

// ---- members ----

TEST(PimVersion, MemberNamesMayHaveAnyCase)
{
	EXPECT_EQ(read("'jsonversionformat': '2.1', 'REVISION': 7"), (vexil_version{2, 1, 7}));
	EXPECT_EQ(read("'MAJORVERSION': 3, 'minorversion': 4"), (vexil_version{3, 4, 90}));
}

TEST(PimVersion, FirstOfRepeatedMembersCounts)
{
	EXPECT_EQ(read("'MajorVersion': 3, 'majorversion': 4"), (vexil_version{3, 80, 90}));
}

TEST(PimVersion, ObjectWithoutKnownMembersChangesNothing)
{
	EXPECT_EQ(read(""), kBefore);
	EXPECT_EQ(read("'Version': '2.1', 'Major': 3"), kBefore);
}

TEST(PimVersion, ItemsThatAreNoObjectsChangeNothing)
{
	for (const char *text : {"5", "'2.1'", "true", "null", "[]", "['2.1', 5]"}) {
		SCOPED_TRACE(text);
		const Json item = json(text);
		ASSERT_TRUE(item);
		vexil_version version = kBefore;
		char note[32] = "before";
		__pim_get_version(item.get(), &version, note);
		EXPECT_EQ(version, kBefore);
		EXPECT_STREQ(note, "before");
	}
}

TEST(PimVersion, WithoutAnObjectOrAVersionNothingHappens)
{
	const Json object = json("{'JsonVersionFormat': '2.1', 'Note': 'text'}");
	vexil_version version = kBefore;
	char note[32] = "before";
	__pim_get_version(nullptr, &version, note);
	EXPECT_EQ(version, kBefore);
	__pim_get_version(object.get(), nullptr, note);
	EXPECT_STREQ(note, "before");
}

// ---- "Note" ----

std::string note_after(const std::string &note_member, const std::string &before)
{
	char text[32 + 8] = {};
	before.copy(text, 32);
	std::memset(text + 32, '!', 8);
	vexil_version version{};
	const Json object = json("{" + note_member + "}");
	EXPECT_TRUE(object);
	__pim_get_version(object.get(), &version, text);
	EXPECT_EQ(std::string(text + 32, 8), "!!!!!!!!");
	return {text, 32};
}

std::string filled(std::string text)
{
	text.resize(32, '\0');
	return text;
}

TEST(PimVersion, NoteBecomesTheCustomerText)
{
	EXPECT_EQ(note_after("'Note': 'customer 7'", ""), filled("customer 7"));
	EXPECT_EQ(note_after("'Note': ''", ""), filled(""));
}

TEST(PimVersion, NoteIsCutAt31Characters)
{
	const std::string most(31, 'x');
	EXPECT_EQ(note_after("'Note': '" + most + "'", ""), filled(most));
	EXPECT_EQ(note_after("'Note': '" + most + "y'", ""), filled(most));
	EXPECT_EQ(note_after("'Note': '" + std::string(5000, 'x') + "'", ""), filled(most));
}

TEST(PimVersion, ShorterNoteLeavesNothingOfTheEarlierOne)
{
	EXPECT_EQ(note_after("'Note': 'new'", "a much longer text"), filled("new"));
}

TEST(PimVersion, NoteOfAnotherTypeChangesNothing)
{
	for (const char *value : {"5", "true", "null", "['text']", "'0x10'"}) {
		SCOPED_TRACE(value);
		EXPECT_EQ(note_after(std::string("'Note': ") + value, "before"), filled("before"));
	}
	EXPECT_EQ(note_after("'Revision': 5", "before"), filled("before"));
}

TEST(PimVersion, NoteIsNotAskedForWithoutAText)
{
	EXPECT_EQ(read("'Note': 'text', 'Revision': 3"), (vexil_version{70, 80, 3}));
}

} // namespace
