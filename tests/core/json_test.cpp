// SPDX-License-Identifier: MIT
#include "core/json.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/memory.h"
#include "tests/support/platform.h"

namespace {

struct DeleteDocument {
	void operator()(cJSON *item) const { vexil_json_delete(item); }
};
using Document = std::unique_ptr<cJSON, DeleteDocument>;

Document parse(const std::string &text)
{
	return Document(static_cast<cJSON *>(vexil_json_parse(text.c_str())));
}

// The document {"a": <value>}, which nothing may follow inside of it.
Document parse_member(const std::string &value)
{
	return parse(std::string("{\"a\": ") + value + "}");
}

const cJSON *value_of(const Document &document)
{
	return vexil::member(document.get(), "a");
}

std::string printed(const cJSON *item)
{
	char *text = cJSON_PrintUnformatted(item);
	if (!text)
		return "nothing printed";
	std::string result = text;
	cJSON_free(text);
	return result;
}

std::string nested(size_t levels, const std::string &open, const std::string &inside,
		   const std::string &close)
{
	std::string text;
	for (size_t i = 0; i < levels; ++i)
		text += open;
	text += inside;
	for (size_t i = 0; i < levels; ++i)
		text += close;
	return text;
}

class Json : public testing::Test {
protected:
	void TearDown() override { cJSON_InitHooks(nullptr); }
};

using JsonNumber = Json;
using JsonHexString = Json;
using JsonPrint = Json;
using JsonRecord = Json;
using JsonParse = Json;
using JsonMemory = Json;
using JsonHooks = Json;
using JsonMember = Json;
using JsonBuild = Json;

// ---- Numbers ----

struct Accepted {
	const char *token;
	long long value;
};

const std::string kZeros62(62, '0');
const std::string kZeros63(63, '0');
const std::string kSixtyThreeCharacters = kZeros62 + "7";
const std::string kSixtyFourCharacters = kZeros63 + "7";

TEST_F(JsonNumber, IsReadInTheBaseThatItsPrefixNames)
{
	const Accepted cases[] = {
		{"0", 0},
		{"-0", 0},
		{"+0", 0},
		{"31", 31},
		{"-31", -31},
		{"+5", 5},
		{"0x1F", 31},
		{"0x1f", 31},
		{"0X1F", 31},
		{"-0x10", -16},
		{"+0x10", 16},
		{"0xDeadBeef", 0xDEADBEEF},
		{"012", 10},
		{"010", 8},
		{"00", 0},
		{"-010", -8},
		{"+010", 8},
		{"2147483648", 2147483648},
		{"4294967296", 4294967296},
		{"9223372036854775807", INT64_MAX},
		{"-9223372036854775808", INT64_MIN},
		{"0x7fffffffffffffff", INT64_MAX},
		{"-0x8000000000000000", INT64_MIN},
		{"0777777777777777777777", INT64_MAX},
		{"-01000000000000000000000", INT64_MIN},
		{kSixtyThreeCharacters.c_str(), 7},
	};
	for (const Accepted &row : cases) {
		SCOPED_TRACE(row.token);
		const Document document = parse_member(row.token);
		ASSERT_TRUE(document);
		const cJSON *item = value_of(document);
		ASSERT_TRUE(vexil::is_number(item));
		EXPECT_EQ(item->type, cJSON_Number);
		EXPECT_EQ(item->valuelong, row.value);
		EXPECT_EQ(vexil::number_of(item), row.value);
		EXPECT_EQ(cJSON_GetNumberValue(item), row.value);
		EXPECT_EQ(item->valuestring, nullptr);
	}
}

TEST_F(JsonNumber, ThatCannotBeConvertedFailsTheWholeDocument)
{
	const std::string cases[] = {
		// Fractions and exponents.
		"1.5", "1.", "-1.5", ".5", "+.5", "1e3", "1E3", "1e+3", "1e-3",
		// Digits beyond the base.
		"08", "09", "018", "-08", "12ab", "1a", "0xg", "0x1g", "1x", "0b1",
		// Signs and prefixes alone.
		"0x", "-0x", "-", "+", "--5", "++5", "+-5", "-+5", "5-", "5+", "5-3", "0x-1",
		// Neither digit nor sign in front.
		"ff", "a1", "A1", "x10", "X10", "e5", "- 5", "+ 5",
		// More than 64 bits, by one and by far.
		"9223372036854775808", "-9223372036854775809", "0x8000000000000000",
		"-0x8000000000000001", "0xffffffffffffffff", "01000000000000000000000",
		"99999999999999999999999999999999999999999999999",
		// More characters, or more numbers, than one may have.
		kSixtyFourCharacters, "1 2", "0x1F 0", "1\v\"b\"",
	};
	for (const std::string &token : cases) {
		SCOPED_TRACE(token);
		EXPECT_FALSE(parse_member(token));
		EXPECT_FALSE(parse(std::string("{\"z\": [1, 2], \"a\": ") + token + ", \"b\": 1}"));
		EXPECT_FALSE(parse(std::string("[") + token + "]"));
		EXPECT_EQ(vexil_test::live_blocks(), 0u);
	}
}

TEST_F(JsonNumber, EndsAtTheRootWhereItsCharactersEnd)
{
	const std::pair<std::string, long long> cases[] = {
		{"1.5", 1}, {"31 rest", 31}, {"+5", 5}, {"0x10,", 16},
		{"7", 7}, {"  \n\t-8]", -8}, {"010.9", 8},
	};
	for (const auto &[text, value] : cases) {
		SCOPED_TRACE(text);
		const Document document = parse(text);
		ASSERT_TRUE(vexil::is_number(document.get()));
		EXPECT_EQ(document->valuelong, value);
	}
	EXPECT_FALSE(parse("1e3"));
	EXPECT_FALSE(parse("08"));
	EXPECT_FALSE(parse("1a"));
}

TEST_F(JsonNumber, TakesSixtyThreeCharactersAndLeavesTheRest)
{
	const Document whole = parse(kSixtyThreeCharacters);
	ASSERT_TRUE(whole);
	EXPECT_EQ(whole->valuelong, 7);

	// The 64th character is no part of the number; only behind a root may it stand.
	const Document cut = parse(kSixtyFourCharacters);
	ASSERT_TRUE(cut);
	EXPECT_EQ(cut->valuelong, 0);
	EXPECT_FALSE(parse(std::string("[") + kSixtyFourCharacters + "]"));

	EXPECT_FALSE(parse(std::string(63, '1')));
}

TEST_F(JsonNumber, MayEndWithTheBufferInsteadOfANul)
{
	const char text[] = {'4', '2', '1'};
	cJSON *item = cJSON_ParseWithLength(text, 2);
	ASSERT_TRUE(vexil::is_number(item));
	EXPECT_EQ(item->valuelong, 42);
	cJSON_Delete(item);
}

struct Clamped {
	long long value;
	int as_int;
};

constexpr Clamped kClamped[] = {
	{0, 0},
	{-1, -1},
	{2147483646, 2147483646},
	{2147483647, INT_MAX},
	{2147483648, INT_MAX},
	{4294967296, INT_MAX},
	{INT64_MAX, INT_MAX},
	{-2147483646, -2147483646},
	{-2147483647, -2147483647},
	{-2147483648, INT_MIN},
	{-2147483649, INT_MIN},
	{-4294967296, INT_MIN},
	{INT64_MIN, INT_MIN},
};

TEST_F(JsonNumber, IsClampedToIntHoweverItComesAbout)
{
	for (const Clamped &row : kClamped) {
		SCOPED_TRACE(row.value);
		const Document document = parse_member(std::to_string(row.value));
		ASSERT_TRUE(document);
		EXPECT_EQ(value_of(document)->valueint, row.as_int);
		EXPECT_EQ(value_of(document)->valuelong, row.value);

		cJSON item{};
		item.type = cJSON_String;
		EXPECT_EQ(cJSON_SetNumberHelper(&item, row.value), row.value);
		EXPECT_EQ(item.valueint, row.as_int);
		EXPECT_EQ(item.valuelong, row.value);
		EXPECT_EQ(item.type, cJSON_String);

		const Document made(cJSON_CreateNumber(row.value));
		ASSERT_TRUE(made);
		EXPECT_EQ(made->type, cJSON_Number);
		EXPECT_EQ(made->valueint, row.as_int);
		EXPECT_EQ(made->valuelong, row.value);
	}
}

TEST_F(JsonNumber, OfAnyOtherItemIsZero)
{
	const Document document = parse(R"([true, false, null, "5", "text", [9], {"b": 9}, 7])");
	ASSERT_TRUE(document);
	std::vector<long long> values;
	for (const cJSON *item : vexil::items(document.get())) {
		EXPECT_EQ(vexil::number_of(item), item->valuelong);
		EXPECT_EQ(cJSON_GetNumberValue(item), item->valuelong);
		values.push_back(item->valuelong);
	}
	EXPECT_EQ(values, (std::vector<long long>{0, 0, 0, 0, 0, 0, 0, 7}));
	EXPECT_EQ(document->valuelong, 0);
	EXPECT_EQ(document->child->valueint, 1); // true

	EXPECT_EQ(cJSON_GetNumberValue(nullptr), 0);
	EXPECT_EQ(vexil::number_of(nullptr), 0);
}

TEST_F(JsonNumber, IsReturnedForEveryKindThatHoldsOne)
{
	for (int kind : {cJSON_Invalid, cJSON_False, cJSON_True, cJSON_NULL, cJSON_Number,
			 cJSON_String, cJSON_Array, cJSON_Object, cJSON_Raw}) {
		cJSON item{};
		item.type = kind;
		item.valuelong = 4294967297;
		EXPECT_EQ(cJSON_GetNumberValue(&item), 4294967297) << kind;
	}
}

TEST_F(JsonNumber, IsSetByTheLibrarysMacros)
{
	cJSON item{};
	EXPECT_EQ(cJSON_SetNumberValue(&item, 4294967296), 4294967296);
	EXPECT_EQ(item.valuelong, 4294967296);
	EXPECT_EQ(item.valueint, INT_MAX);
	EXPECT_EQ(cJSON_SetIntValue(&item, -3), -3);
	EXPECT_EQ(item.valuelong, -3);
	EXPECT_EQ(item.valueint, -3);
}

// ---- Strings that are hexadecimal numbers ----

TEST_F(JsonHexString, IsANumberThatKeepsItsText)
{
	const std::pair<std::string, long long> cases[] = {
		{"0x1F", 31},
		{"0x10", 16},
		{"0x0", 0},
		{"0x00000000000000000001", 1},
		{"0xabcdefABCDEF", 0xABCDEFABCDEF},
		{"0x80000000", 0x80000000},
		{"0x7fffffffffffffff", INT64_MAX},
	};
	for (const auto &[text, value] : cases) {
		SCOPED_TRACE(text);
		const Document document = parse_member(std::string("\"") + text + "\"");
		ASSERT_TRUE(document);
		const cJSON *item = value_of(document);
		EXPECT_EQ(item->type, cJSON_Number);
		EXPECT_EQ(item->valuelong, value);
		EXPECT_EQ(item->valueint, value > INT_MAX ? INT_MAX : static_cast<int>(value));
		EXPECT_STREQ(item->valuestring, text.c_str());
		EXPECT_EQ(cJSON_GetStringValue(item), nullptr);
		EXPECT_EQ(vexil::text_of(item), nullptr);

		// With and without quotes the same.
		EXPECT_EQ(value_of(parse_member(text))->valuelong, value);
	}
}

TEST_F(JsonHexString, IsLookedAtAfterItsEscapesAreResolved)
{
	const Document escaped = parse(R"("\u0030x10")");
	ASSERT_TRUE(vexil::is_number(escaped.get()));
	EXPECT_EQ(escaped->valuelong, 16);

	// One newline may end a text that is converted.
	const Document newline = parse(R"("0x10\n")");
	ASSERT_TRUE(vexil::is_number(newline.get()));
	EXPECT_EQ(newline->valuelong, 16);
	EXPECT_STREQ(newline->valuestring, "0x10\n");
	EXPECT_TRUE(vexil::is_string(parse(R"("0x10\n\n")").get()));
}

TEST_F(JsonHexString, StaysAStringWithNothingLeftBehindWhenItIsNone)
{
	const std::string cases[] = {
		"0X1F", "0X10", "0x", "0xZZ", "0x1G", "0x1F.", "0x1.5", "0x-1", "0x+1", "-0x10",
		"+0x10", " 0x10", "0x10 ", "0x 1", "0x0x1", "31", "010", "0", "", "x10", "0y10",
		"ff", "0x8000000000000000", "0xffffffffffffffff", "0x10000000000000000",
	};
	for (const std::string &text : cases) {
		SCOPED_TRACE(text);
		const Document document = parse_member(std::string("\"") + text + "\"");
		ASSERT_TRUE(document);
		const cJSON *item = value_of(document);
		EXPECT_EQ(item->type, cJSON_String);
		EXPECT_EQ(item->valuelong, 0);
		EXPECT_EQ(item->valueint, 0);
		EXPECT_STREQ(item->valuestring, text.c_str());
		EXPECT_STREQ(cJSON_GetStringValue(item), text.c_str());
		EXPECT_STREQ(vexil::text_of(item), text.c_str());
	}
}

TEST_F(JsonHexString, IsOnlyLookedForInValuesNeverInNames)
{
	const Document document = parse(R"({"0x10": true, "0x20": "abc", "0x30": null, "0x40": {},
		"0x50": [], "0x60": false, "0x70": 7})");
	ASSERT_TRUE(document);
	std::vector<std::string> names;
	std::vector<int> kinds;
	std::vector<long long> values;
	for (const cJSON *item : vexil::items(document.get())) {
		names.push_back(vexil::name_of(item));
		kinds.push_back(item->type);
		values.push_back(item->valuelong);
	}
	EXPECT_EQ(names, (std::vector<std::string>{"0x10", "0x20", "0x30", "0x40", "0x50", "0x60",
						   "0x70"}));
	EXPECT_EQ(kinds, (std::vector<int>{cJSON_True, cJSON_String, cJSON_NULL, cJSON_Object,
					   cJSON_Array, cJSON_False, cJSON_Number}));
	EXPECT_EQ(values, (std::vector<long long>{0, 0, 0, 0, 0, 0, 7}));
}

// ---- Printing ----

TEST_F(JsonPrint, WritesNumbersInHexadecimalWithoutAPrefix)
{
	const std::pair<long long, const char *> cases[] = {
		{0, "0"},
		{9, "9"},
		{255, "ff"},
		{-1, "ffffffffffffffff"},
		{0xABCDEF, "abcdef"},
		{INT64_MAX, "7fffffffffffffff"},
		{INT64_MIN, "8000000000000000"},
	};
	for (const auto &[value, text] : cases) {
		const Document document(cJSON_CreateNumber(value));
		EXPECT_EQ(printed(document.get()), text);
	}
	EXPECT_EQ(printed(parse(R"(["0x10", 31, 010, -1, +7])").get()),
		  "[10,1f,8,ffffffffffffffff,7]");
}

TEST_F(JsonPrint, WritesEveryOtherKindAsTheLibraryDoes)
{
	const Document document = parse(
		R"({"t": true, "f": false, "n": null, "s": "a\"\\\b\f\n\r\t\u0001\u001f/",
		    "e": "", "l": [], "o": {}})");
	ASSERT_TRUE(document);
	EXPECT_EQ(printed(document.get()),
		  R"({"t":true,"f":false,"n":null,"s":"a\"\\\b\f\n\r\t\u0001\u001f/",)"
		  R"("e":"","l":[],"o":{}})");

	char *text = cJSON_Print(document->child);
	EXPECT_STREQ(text, "true");
	cJSON_free(text);
	const Document list = parse(R"({"list": [16, "0x11"]})");
	text = cJSON_Print(list.get());
	EXPECT_STREQ(text, "{\n\t\"list\":\t[10, 11]\n}");
	cJSON_free(text);
}

TEST_F(JsonPrint, GrowsItsBufferWithoutLosingText)
{
	std::string source = "[";
	std::string expected = "[";
	for (int i = 0; i < 1000; ++i) {
		source += i ? ",-1" : "-1";
		expected += i ? ",ffffffffffffffff" : "ffffffffffffffff";
	}
	const Document document = parse(source + "]");
	ASSERT_TRUE(document);
	EXPECT_EQ(printed(document.get()), expected + "]");

	char *text = cJSON_PrintBuffered(document.get(), 1, false);
	ASSERT_TRUE(text);
	EXPECT_EQ(text, expected + "]");
	cJSON_free(text);
}

TEST_F(JsonPrint, FillsAGivenBufferToItsLastByte)
{
	const Document document(cJSON_CreateNumber(255));
	// The library wants one byte more than text and NUL.
	char buffer[4] = {'#', '#', '#', '#'};
	EXPECT_FALSE(cJSON_PrintPreallocated(document.get(), buffer, 3, false));
	ASSERT_TRUE(cJSON_PrintPreallocated(document.get(), buffer, 4, false));
	EXPECT_STREQ(buffer, "ff");
	EXPECT_EQ(buffer[3], '#');
}

// ---- The record and the library ----

TEST_F(JsonRecord, HasTheSizeAndOffsetsOfTheLibrarysOwn)
{
	EXPECT_EQ(sizeof(cJSON), 64u);
	EXPECT_EQ(offsetof(cJSON, next), 0u);
	EXPECT_EQ(offsetof(cJSON, prev), 8u);
	EXPECT_EQ(offsetof(cJSON, child), 16u);
	EXPECT_EQ(offsetof(cJSON, type), 24u);
	EXPECT_EQ(offsetof(cJSON, valuestring), 32u);
	EXPECT_EQ(offsetof(cJSON, valueint), 40u);
	EXPECT_EQ(offsetof(cJSON, valuelong), 48u);
	EXPECT_EQ(offsetof(cJSON, string), 56u);
	EXPECT_EQ(sizeof(cJSON::valuelong), 8u);
	EXPECT_TRUE((std::is_same_v<decltype(cJSON::valuelong), long long>));
}

TEST_F(JsonRecord, ComesFromTheReleaseThatIsReported)
{
	EXPECT_STREQ(cJSON_Version(), "1.7.15");
}

// ---- Parsing ----

TEST_F(JsonParse, AnswersMissingOrEmptyTextWithNull)
{
	EXPECT_EQ(vexil_json_parse(nullptr), nullptr);
	EXPECT_EQ(vexil_json_parse(""), nullptr);
	EXPECT_EQ(vexil_json_parse(" \n"), nullptr);
}

TEST_F(JsonParse, IgnoresWhatFollowsTheRoot)
{
	const Document document = parse("{\"a\": 1} and then ]}");
	ASSERT_TRUE(document);
	EXPECT_EQ(value_of(document)->valuelong, 1);
	EXPECT_TRUE(parse("[] []"));
	EXPECT_TRUE(parse("nullify"));
}

TEST_F(JsonParse, CountsTheNulAsReadable)
{
	// The library looks for a byte order mark only where five bytes can be read.
	const Document document = parse("\xEF\xBB\xBF\x35"); // 5
	ASSERT_TRUE(vexil::is_number(document.get()));
	EXPECT_EQ(document->valuelong, 5);
}

TEST_F(JsonParse, GivesNothingPartial)
{
	for (const char *text :
	     {"{", "{\"a\"", "{\"a\":", "{\"a\": 1", "{\"a\": 1,", "{\"a\": 1, }", "[1, 2", "[1,]",
	      "\"open", "{\"a\": {\"b\": [1, 2, x]}}", "{a: 1}", "{\"a\" 1}", "\"\\q\"",
	      "\"\\uD800\"", "tru", "]"}) {
		SCOPED_TRACE(text);
		EXPECT_EQ(vexil_json_parse(text), nullptr);
		EXPECT_EQ(vexil_test::live_blocks(), 0u);
	}
}

TEST_F(JsonParse, AcceptsFortyEightLevelsAndRefusesFortyNine)
{
	const std::pair<std::string, std::string> shapes[] = {{"[", "]"}, {"{\"a\":", "}"}};
	for (const auto &[open, close] : shapes) {
		SCOPED_TRACE(open);
		const Document deepest = parse(nested(48, open, "0x30", close));
		ASSERT_TRUE(deepest);
		const cJSON *item = deepest.get();
		size_t levels = 0;
		while (item->child) {
			item = item->child;
			++levels;
		}
		EXPECT_EQ(levels, 48u);
		EXPECT_EQ(item->valuelong, 0x30);

		EXPECT_FALSE(parse(nested(49, open, "0", close)));
		EXPECT_FALSE(parse(nested(100000, open, "0", close)));
	}
	EXPECT_TRUE(parse(nested(24, "[{\"a\":", "1", "}]")));
	EXPECT_FALSE(parse(nested(24, "[{\"a\":", "[]", "}]")));
}

TEST_F(JsonParse, CountsLevelsNotBrackets)
{
	const std::string deep = nested(47, "[", "", "]");
	const Document document = parse(std::string("[") + deep + "," + deep + "," + deep + "]");
	ASSERT_TRUE(document);
	EXPECT_EQ(cJSON_GetArraySize(document.get()), 3);
}

TEST_F(JsonParse, DeletesNothingForNull)
{
	vexil_json_delete(nullptr);
	EXPECT_EQ(vexil_test::live_blocks(), 0u);
}

// ---- Memory ----

TEST_F(JsonMemory, ComesFromTheHooksAlone)
{
	const std::pair<const char *, size_t> cases[] = {
		{"1", 1},                          // the item; no copy of the number
		{"\"text\"", 2},                   // and its text
		{"\"0x10\"", 2},                   //
		{"[1, 0x2, \"0x3\", null]", 6},    //
		{"{\"a\": {\"b\": \"0x10\"}}", 6}, // three items, two names, one text
	};
	for (const auto &[text, blocks] : cases) {
		SCOPED_TRACE(text);
		void *document = vexil_json_parse(text);
		EXPECT_EQ(vexil_test::live_blocks(), blocks);
		vexil_json_delete(document);
		EXPECT_EQ(vexil_test::live_blocks(), 0u);
	}
}

constexpr char kEveryKind[] =
	R"({"version": {"major": 1}, "list": [1, 0x2, "0x3", "four", true, false, null, {}, []],
	    "text": "a\nb", "n": -1})";

TEST_F(JsonMemory, FailingAtAnyPointLeavesNothingBehind)
{
	size_t needed = 0;
	for (;; ++needed) {
		SCOPED_TRACE(needed);
		const auto refuse = vexil_test::Refuse::from(needed + 1);
		if (parse(kEveryKind))
			break;
		EXPECT_TRUE(refuse.happened());
		EXPECT_EQ(vexil_test::live_blocks(), 0u);
		ASSERT_LT(needed, 100u);
	}
	// 5 members with a name each, 9 entries, 3 texts, the root.
	EXPECT_EQ(needed, 5u * 2 + 9 + 3 + 1);
	for (size_t nth = 1; nth <= needed; ++nth) {
		const auto refuse = vexil_test::Refuse::only(nth);
		EXPECT_FALSE(parse(kEveryKind)) << nth;
		EXPECT_EQ(vexil_test::live_blocks(), 0u) << nth;
	}
}

TEST_F(JsonMemory, FailingWhilePrintingOrCopyingLeavesTheDocumentAlone)
{
	const Document document = parse(kEveryKind);
	ASSERT_TRUE(document);
	const std::string text = printed(document.get());
	const size_t blocks = vexil_test::live_blocks();

	size_t needed = 0;
	for (;; ++needed) {
		const auto refuse = vexil_test::Refuse::from(needed + 1);
		if (char *copy = cJSON_PrintBuffered(document.get(), 1, false)) {
			EXPECT_EQ(copy, text);
			cJSON_free(copy);
			break;
		}
		EXPECT_EQ(vexil_test::live_blocks(), blocks) << needed;
		ASSERT_LT(needed, 100u);
	}
	EXPECT_GT(needed, 1u);

	for (needed = 0;; ++needed) {
		const auto refuse = vexil_test::Refuse::from(needed + 1);
		if (const Document copy{cJSON_Duplicate(document.get(), true)}) {
			EXPECT_TRUE(cJSON_Compare(copy.get(), document.get(), true));
			break;
		}
		EXPECT_EQ(vexil_test::live_blocks(), blocks) << needed;
		ASSERT_LT(needed, 100u);
	}
	EXPECT_EQ(needed, blocks);
}

// What the replaced hooks were asked for.
struct HookCalls {
	size_t allocated = 0;
	size_t freed = 0;
	std::vector<std::pair<size_t, size_t>> moved; // old and new size
} calls;

void *counting_allocate(size_t size)
{
	++calls.allocated;
	return ALLOC(size);
}

void counting_free(void *block)
{
	++calls.freed;
	DEALLOC(block);
}

void *counting_move(void *block, size_t old_size, size_t new_size)
{
	calls.moved.emplace_back(old_size, new_size);
	return REALLOC(block, old_size, new_size);
}

TEST_F(JsonHooks, AreThreeAndGoBackToTheirPresets)
{
	calls = {};
	cJSON_Hooks hooks = {counting_allocate, counting_free, counting_move};
	cJSON_InitHooks(&hooks);
	const Document document = parse(R"(["0123456789"])");
	ASSERT_TRUE(document);
	EXPECT_EQ(calls.allocated, 3u);

	// 8 bytes hold "[" and then have to grow for text, quotes, NUL and one byte more, to twice
	// 1 + 10 + 3 + 1 bytes. The end of the list fits.
	char *text = cJSON_PrintBuffered(document.get(), 8, false);
	EXPECT_STREQ(text, R"(["0123456789"])");
	EXPECT_EQ(calls.allocated, 4u);
	EXPECT_EQ(calls.moved, (std::vector<std::pair<size_t, size_t>>{{8, 30}}));
	cJSON_free(text);
	EXPECT_EQ(calls.freed, 1u);

	cJSON_InitHooks(nullptr);
	EXPECT_TRUE(parse("[1]"));
	EXPECT_EQ(calls.allocated, 4u);
	EXPECT_EQ(calls.freed, 1u);
}

TEST_F(JsonHooks, WorkWithoutAReallocate)
{
	calls = {};
	cJSON_Hooks hooks = {counting_allocate, counting_free, nullptr};
	cJSON_InitHooks(&hooks);
	const Document document = parse(R"(["0123456789"])");
	ASSERT_TRUE(document);
	char *text = cJSON_PrintBuffered(document.get(), 8, false);
	EXPECT_STREQ(text, R"(["0123456789"])");
	EXPECT_EQ(calls.allocated, 5u);
	EXPECT_EQ(calls.freed, 1u);
	EXPECT_TRUE(calls.moved.empty());
	cJSON_free(text);
}

TEST_F(JsonHooks, KeepThePresetsWhereNoneIsGiven)
{
	calls = {};
	cJSON_Hooks hooks = {nullptr, nullptr, nullptr};
	cJSON_InitHooks(&hooks);
	EXPECT_EQ(printed(parse("[-1]").get()), "[ffffffffffffffff]");
	EXPECT_EQ(calls.allocated, 0u);
	EXPECT_EQ(calls.freed, 0u);
}

// ---- Building and comparing ----

TEST_F(JsonBuild, CountsInIntegersOnly)
{
	constexpr long long kNotADouble = (1LL << 53) + 1;
	const int ints[] = {1, -2, INT_MAX};
	const long long longs[] = {kNotADouble, INT64_MIN, 0};
	EXPECT_EQ(printed(Document(cJSON_CreateIntArray(ints, 3)).get()),
		  "[1,fffffffffffffffe,7fffffff]");
	EXPECT_EQ(printed(Document(cJSON_CreateDoubleArray(longs, 3)).get()),
		  "[20000000000001,8000000000000000,0]");
	EXPECT_EQ(printed(Document(cJSON_CreateFloatArray(longs, 3)).get()),
		  "[20000000000001,8000000000000000,0]");

	const Document object(cJSON_CreateObject());
	const cJSON *added = cJSON_AddNumberToObject(object.get(), "n", kNotADouble);
	ASSERT_TRUE(added);
	EXPECT_EQ(added->valuelong, kNotADouble);
	const Document copy(cJSON_Duplicate(object.get(), true));
	ASSERT_TRUE(copy);
	EXPECT_EQ(copy->child->valuelong, kNotADouble);
	EXPECT_EQ(copy->child->valueint, INT_MAX);
	EXPECT_TRUE(cJSON_Compare(object.get(), copy.get(), true));
	cJSON_SetNumberHelper(copy->child, kNotADouble - 1);
	EXPECT_FALSE(cJSON_Compare(object.get(), copy.get(), true));
}

TEST_F(JsonBuild, CopiesHexStringsWithTheirText)
{
	const Document document = parse(R"({"a": "0x10"})");
	const Document copy(cJSON_Duplicate(document.get(), true));
	ASSERT_TRUE(copy);
	EXPECT_EQ(copy->child->type, cJSON_Number);
	EXPECT_EQ(copy->child->valuelong, 16);
	EXPECT_STREQ(copy->child->valuestring, "0x10");
	EXPECT_TRUE(cJSON_Compare(document.get(), parse(R"({"A": 020})").get(), false));
}

// ---- Members ----

TEST_F(JsonMember, AreFoundInOnePassInAnyOrderAndLetterCase)
{
	const Document document =
		parse(R"({"LABEL": 1, "other": 2, "Addr": 3, "mask": 4, "addresses": 5})");
	const char *const keys[] = {"Mask", "Label", "missing", "Addr", "add"};
	const cJSON *found[5] = {document.get(), document.get(), document.get(), document.get(),
				 document.get()};
	vexil::find_members(document.get(), keys, found);
	EXPECT_EQ(vexil::number_of(found[0]), 4);
	EXPECT_EQ(vexil::number_of(found[1]), 1);
	EXPECT_EQ(found[2], nullptr);
	EXPECT_EQ(vexil::number_of(found[3]), 3);
	EXPECT_EQ(found[4], nullptr);

	EXPECT_EQ(vexil::number_of(vexil::member(document.get(), "OTHER")), 2);
	EXPECT_EQ(vexil::member(document.get(), "othe"), nullptr);
	EXPECT_EQ(vexil::member(document.get(), "others"), nullptr);
	EXPECT_EQ(vexil::member(document.get(), ""), nullptr);
	EXPECT_EQ(vexil::member(document.get(), nullptr), nullptr);
}

TEST_F(JsonMember, OfOneNameAreAnsweredWithTheFirst)
{
	const Document document = parse(R"({"b": 1, "a": 2, "A": 3, "B": 4, "": 5})");
	const char *const keys[] = {"A", "B", ""};
	const cJSON *found[3];
	vexil::find_members(document.get(), keys, found);
	EXPECT_EQ(vexil::number_of(found[0]), 2);
	EXPECT_EQ(vexil::number_of(found[1]), 1);
	EXPECT_EQ(vexil::number_of(found[2]), 5);
	EXPECT_EQ(vexil::number_of(vexil::member(document.get(), "A")), 2);
}

TEST_F(JsonMember, AreNoneWithoutNames)
{
	const char *const keys[] = {"a", ""};
	const cJSON *found[2];
	for (const char *text : {"[1, [2], {\"a\": 3}]", "5", "\"a\"", "null", "{}", "[]"}) {
		SCOPED_TRACE(text);
		const Document document = parse(text);
		ASSERT_TRUE(document);
		found[0] = found[1] = document.get();
		vexil::find_members(document.get(), keys, found);
		EXPECT_EQ(found[0], nullptr);
		EXPECT_EQ(found[1], nullptr);
		EXPECT_EQ(vexil::member(document.get(), "a"), nullptr);
	}
	cJSON earlier{};
	found[0] = &earlier;
	vexil::find_members(nullptr, keys, found);
	EXPECT_EQ(found[0], nullptr);
	EXPECT_EQ(vexil::member(nullptr, "a"), nullptr);
}

TEST_F(JsonMember, AfterANamelessOneAreStillFound)
{
	const Document document(cJSON_CreateObject());
	cJSON_AddItemToArray(document.get(), cJSON_CreateNumber(1));
	cJSON_AddNumberToObject(document.get(), "a", 2);
	const char *const keys[] = {"a"};
	const cJSON *found[1];
	vexil::find_members(document.get(), keys, found);
	EXPECT_EQ(vexil::number_of(found[0]), 2);
	EXPECT_EQ(vexil::member(document.get(), "A"), found[0]);
}

TEST_F(JsonMember, DifferInLettersBeyondAscii)
{
	const Document document = parse("{\"\xE4\": 1, \"[\": 2, \"@\": 3}");
	ASSERT_TRUE(document);
	EXPECT_EQ(vexil::member(document.get(), "\xC4"), nullptr);
	EXPECT_EQ(cJSON_GetObjectItem(document.get(), "\xC4"), nullptr);
	EXPECT_EQ(vexil::number_of(vexil::member(document.get(), "\xE4")), 1);
	EXPECT_EQ(vexil::member(document.get(), "{"), nullptr);
	EXPECT_EQ(vexil::member(document.get(), "`"), nullptr);
}

TEST_F(JsonMember, AgreeWithTheLibrarysOwnSearch)
{
	constexpr unsigned int kSeed = 20240607;
	SCOPED_TRACE(testing::Message() << "seed " << kSeed);
	std::mt19937 random(kSeed);
	const auto name = [&random] {
		std::string text(random() % 3, ' ');
		for (char &c : text)
			c = "aAbB"[random() % 4];
		return text;
	};
	for (int round = 0; round < 2000; ++round) {
		const Document document(cJSON_CreateObject());
		for (unsigned int i = random() % 8; i > 0; --i)
			cJSON_AddNumberToObject(document.get(), name().c_str(),
						static_cast<long long>(i));
		const char *const keys[] = {"ab", "B", "", "aa", "a", "BA"};
		const cJSON *found[6];
		vexil::find_members(document.get(), keys, found);
		for (size_t i = 0; i < 6; ++i) {
			EXPECT_EQ(found[i], cJSON_GetObjectItem(document.get(), keys[i]))
				<< printed(document.get()) << keys[i];
			EXPECT_EQ(vexil::member(document.get(), keys[i]), found[i])
				<< printed(document.get()) << keys[i];
		}
	}
}

TEST_F(JsonMember, AreWalkedInDocumentOrder)
{
	const Document document = parse("[5, 6, 7]");
	std::vector<long long> values;
	for (const cJSON *item : vexil::items(document.get()))
		values.push_back(item->valuelong);
	EXPECT_EQ(values, (std::vector<long long>{5, 6, 7}));
	for (const cJSON *item : vexil::items(nullptr))
		ADD_FAILURE() << item;
	for (const cJSON *item : vexil::items(parse("[]").get()))
		ADD_FAILURE() << item;
}

TEST_F(JsonMember, TellTheirKind)
{
	const Document document =
		parse(R"({"o": {}, "a": [], "s": "x", "n": 1, "h": "0x1", "t": true})");
	const char *const keys[] = {"o", "a", "s", "n", "h", "t"};
	const cJSON *found[6];
	vexil::find_members(document.get(), keys, found);
	for (size_t i = 0; i < 6; ++i) {
		ASSERT_TRUE(found[i]);
		EXPECT_EQ(vexil::is_object(found[i]), i == 0);
		EXPECT_EQ(vexil::is_array(found[i]), i == 1);
		EXPECT_EQ(vexil::is_string(found[i]), i == 2);
		EXPECT_EQ(vexil::is_number(found[i]), i == 3 || i == 4);
		EXPECT_STREQ(vexil::name_of(found[i]), keys[i]);
	}
	EXPECT_FALSE(vexil::is_object(nullptr));
	EXPECT_FALSE(vexil::is_array(nullptr));
	EXPECT_FALSE(vexil::is_string(nullptr));
	EXPECT_FALSE(vexil::is_number(nullptr));
	EXPECT_EQ(vexil::text_of(nullptr), nullptr);
	EXPECT_EQ(vexil::name_of(nullptr), nullptr);
	EXPECT_EQ(vexil::name_of(document.get()), nullptr);

	cJSON empty{};
	empty.type = cJSON_String;
	EXPECT_EQ(vexil::text_of(&empty), nullptr);
}

} // namespace
