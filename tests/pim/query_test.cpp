// SPDX-License-Identifier: MIT
#include "pim/pim.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/pim_images.h"
#include "tests/support/pim_json.h"
#include "tests/support/platform.h"

namespace {

using namespace vexil_test;

constexpr std::chrono::seconds kBoundedTime{5};
constexpr vexil_version kUntouched{70, 80, 90};

// ---- versions of the map ----

struct Getter {
	const char *what;
	bool (*get)(pim *, vexil_version *);
	vexil_version pim::*field;
};

const Getter kGetters[] = {
	{"map", pim_get_version, &pim::total_version},
	{"hardware list", pim_get_hwreg_version, &pim::hwreg_json_version},
	{"software list", pim_get_swreg_version, &pim::swreg_json_version},
	{"customer list", pim_get_cus_swreg_version, &pim::cus_swreg_json_version},
};

class PimVersions : public PimTest {
protected:
	void SetUp() override
	{
		PimTest::SetUp();
		u16 number = 1;
		for (const Getter &row : kGetters) {
			map.get()->*row.field = {number, static_cast<u16>(number + 100),
						 number + 0x10000u};
			++number;
		}
	}
};

TEST_F(PimVersions, AreCopied)
{
	for (const Getter &row : kGetters) {
		SCOPED_TRACE(row.what);
		vexil_version version = kUntouched;
		EXPECT_TRUE(row.get(map.get(), &version));
		EXPECT_EQ(version, map.get()->*row.field);
	}
}

TEST_F(PimVersions, WithoutAMapAreFalse)
{
	for (const Getter &row : kGetters) {
		SCOPED_TRACE(row.what);
		vexil_version version = kUntouched;
		EXPECT_FALSE(row.get(nullptr, &version));
		EXPECT_EQ(version, kUntouched);
	}
}

TEST_F(PimVersions, WithNowhereToGoAreFalse)
{
	for (const Getter &row : kGetters) {
		SCOPED_TRACE(row.what);
		EXPECT_FALSE(row.get(map.get(), nullptr));
	}
}

TEST_F(PimVersions, CustomerTextIsTheMapsOwn)
{
	std::strcpy(map->cus_version, "customer 7");
	char *text = nullptr;
	EXPECT_TRUE(pim_get_cus_version(map.get(), &text));
	EXPECT_EQ(text, map->cus_version);
	std::strcpy(map->cus_version, "customer 8");
	EXPECT_STREQ(text, "customer 8");
}

TEST_F(PimVersions, CustomerTextOfANewMapIsEmpty)
{
	char *text = nullptr;
	EXPECT_TRUE(pim_get_cus_version(map.get(), &text));
	EXPECT_STREQ(text, "");
}

TEST_F(PimVersions, CustomerTextWithoutAMapOrAPlaceIsFalse)
{
	char *text = map->cus_version + 5;
	EXPECT_FALSE(pim_get_cus_version(nullptr, &text));
	EXPECT_EQ(text, map->cus_version + 5);
	EXPECT_FALSE(pim_get_cus_version(map.get(), nullptr));
}

TEST_F(PimVersions, ComeFromTheDocumentsAndSurviveAnImageExceptTheCustomersList)
{
	ASSERT_TRUE(map.init());
	const auto lists =
		json("{'PqHWRegList': {'0.version': {'MajorVersion': 1}, 'register': [{'A': 1}]},"
		     "'PqSWRegList': {'0.version': {'MajorVersion': 2}},"
		     "'PqCusSWRegList': {'#version': {'MajorVersion': 3}}}");
	ASSERT_TRUE(pim_insert_regmap_json(map.get(), lists.get()));
	ASSERT_TRUE(pim_insert_vregmap_json(map.get(), lists.get()));
	ASSERT_TRUE(
		insert("{'VexilVersion': {'#version': {'JsonVersionFormat': '2.1', 'Revision': 4,"
		       "'Note': 'customer 7'}}}"));
	ImageBytes image = image_of(map.get());
	Map adopted;
	ASSERT_TRUE(adopt(adopted, image));
	const vexil_version built[] = {{2, 1, 4}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}};
	const vexil_version restored[] = {{2, 1, 4}, {1, 0, 0}, {2, 0, 0}, {0, 0, 0}};
	for (std::size_t i = 0; i < std::size(kGetters); ++i) {
		SCOPED_TRACE(kGetters[i].what);
		vexil_version version = kUntouched;
		EXPECT_TRUE(kGetters[i].get(map.get(), &version));
		EXPECT_EQ(version, built[i]);
		EXPECT_TRUE(kGetters[i].get(adopted.get(), &version));
		EXPECT_EQ(version, restored[i]);
	}
	char *text = nullptr;
	EXPECT_TRUE(pim_get_cus_version(adopted.get(), &text));
	EXPECT_STREQ(text, "customer 7");
}

// ---- versions of IPs ----

struct Answer {
	bool found;
	vexil_version version;
};

bool operator==(const Answer &a, const Answer &b)
{
	return a.found == b.found && a.version == b.version;
}

void PrintTo(const Answer &answer, std::ostream *to)
{
	*to << (answer.found ? "found " : "not found, ");
	PrintTo(answer.version, to);
}

const Answer kNotFound{false, kUntouched};

Answer version_of(pim *map, const char *name)
{
	vexil_version version = kUntouched;
	const auto start = std::chrono::steady_clock::now();
	const bool found = pim_get_pim_version(map, &version, name);
	EXPECT_LT(std::chrono::steady_clock::now() - start, kBoundedTime);
	return {found, version};
}

// A map over an image; whether its names could be indexed does not matter here.
struct Image {
	explicit Image(const PimImage &plan) : bytes(plan.write())
	{
		adopt(map, bytes);
		EXPECT_TRUE(map.get());
	}
	[[nodiscard]] Answer version(const char *name) const { return version_of(map.get(), name); }

	ImageBytes bytes;
	Map map;
};

TEST(PimIpVersion, IsFoundByName)
{
	PimImage plan;
	plan.file("table", "0");
	plan.ip("scaler", {1, 2, 0x30004});
	plan.ip("denoise", {5, 6, 7});
	const Image image(plan);
	EXPECT_EQ(image.version("scaler"), (Answer{true, {1, 2, 0x30004}}));
	EXPECT_EQ(image.version("denoise"), (Answer{true, {5, 6, 7}}));
	EXPECT_EQ(image.version("other"), kNotFound);
	EXPECT_EQ(image.version(""), kNotFound);
	EXPECT_EQ(image.version("table"), kNotFound);
	EXPECT_EQ(take_log(), "");
}

TEST(PimIpVersion, LetterCaseMatters)
{
	PimImage plan;
	plan.ip("Scaler", {1, 2, 3});
	const Image image(plan);
	EXPECT_EQ(image.version("Scaler"), (Answer{true, {1, 2, 3}}));
	EXPECT_EQ(image.version("scaler"), kNotFound);
	EXPECT_EQ(image.version("SCALER"), kNotFound);
	EXPECT_EQ(image.version("Scale"), kNotFound);
	EXPECT_EQ(image.version("Scaler2"), kNotFound);
}

TEST(PimIpVersion, FirstOfEqualNamesCounts)
{
	PimImage plan;
	plan.ip("scaler", {1, 0, 0});
	plan.ip("scaler", {2, 0, 0});
	EXPECT_EQ(Image(plan).version("scaler"), (Answer{true, {1, 0, 0}}));
}

TEST(PimIpVersion, NamesThatTheIndexRefusesAreFoundToo)
{
	PimImage plan;
	plan.ip("a-b", {1, 0, 0});
	const Image image(plan);
	take_log();
	EXPECT_EQ(image.version("a-b"), (Answer{true, {1, 0, 0}}));
}

TEST(PimIpVersion, OfABuiltMapIsFoundForFoldersToo)
{
	Map map;
	ASSERT_TRUE(map.init());
	ASSERT_TRUE(
		insert(map.get(),
		       groups("'Folder': {'#version': {'JsonVersionFormat': '2.1', 'Revision': 5},"
			      "'A': {'#version': {'MajorVersion': 2, 'Revision': 7},"
			      "      'settings': {}}}")));
	EXPECT_EQ(version_of(map.get(), "Folder"), (Answer{true, {2, 1, 5}}));
	EXPECT_EQ(version_of(map.get(), "A"), (Answer{true, {2, 0, 7}}));
	EXPECT_EQ(version_of(map.get(), "folder"), kNotFound);
	ImageBytes image = image_of(map.get());
	Map adopted;
	ASSERT_TRUE(adopt(adopted, image));
	EXPECT_EQ(version_of(adopted.get(), "Folder"), (Answer{true, {2, 1, 5}}));
}

TEST(PimIpVersion, OfAnEmptyMapIsNone)
{
	Map map;
	ASSERT_TRUE(map.init());
	EXPECT_EQ(version_of(map.get(), "scaler"), kNotFound);
}

TEST(PimIpVersion, WithoutAMapAPlaceOrANameIsFalse)
{
	PimImage plan;
	plan.ip("scaler");
	const Image image(plan);
	vexil_version version = kUntouched;
	EXPECT_FALSE(pim_get_pim_version(nullptr, &version, "scaler"));
	EXPECT_FALSE(pim_get_pim_version(image.map.get(), nullptr, "scaler"));
	EXPECT_FALSE(pim_get_pim_version(image.map.get(), &version, nullptr));
	EXPECT_EQ(version, kUntouched);
}

TEST(PimIpVersion, VersionMayStandAtAnyOffset)
{
	PimImage plan;
	const u16 ip = plan.ip("scaler", {1, 2, 3});
	const u16 holder = plan.child(plan.next(plan.next(ip)));
	const vexil_version version{4, 5, 6};
	const auto start = static_cast<u32>(plan.data_bytes());
	plan.add_record(
		EXTMEM_TAG_DATA,
		"xyz" + std::string(reinterpret_cast<const char *>(&version), sizeof version));
	plan.record(holder, sizeof version, start + 3);
	EXPECT_EQ(Image(plan).version("scaler"), (Answer{true, {4, 5, 6}}));
}

TEST(PimIpVersionDamaged, MissingVersionIsFalse)
{
	PimImage sound;
	const u16 ip = sound.ip("scaler");
	const u16 property = sound.next(ip);
	const u16 version = sound.next(property);
	const u16 holder = sound.child(version);
	const auto outside = static_cast<u16>(sound.nodes());
	const struct {
		const char *what;
		std::function<void(PimImage &)> apply;
	} damages[] = {
		{"no version node", [=](PimImage &plan) { plan.next(property, kNoId); }},
		{"version node outside", [=](PimImage &plan) { plan.next(property, outside); }},
		{"no version item", [=](PimImage &plan) { plan.child(version, kNoId); }},
		{"version item outside", [=](PimImage &plan) { plan.child(version, outside); }},
		{"seven bytes", [=](PimImage &plan) { plan.record(holder, 7, 0); }},
		{"no bytes", [=](PimImage &plan) { plan.record(holder, 0, 0); }},
		{"beyond the data", [=](PimImage &plan) { plan.record(holder, 8, 4096); }},
		{"end that wraps", [=](PimImage &plan) { plan.record(holder, 16, 0xFFFFFFF8); }},
		{"no record", [=](PimImage &plan) { plan.record(holder, ~0u, ~0u); }},
		{"tree node as item",
		 [=](PimImage &plan) { plan.tag(holder, EXTMEM_TAG_VERSION); }},
		{"data holder as version node",
		 [=](PimImage &plan) { plan.tag(version, EXTMEM_TAG_DATA); }},
	};
	for (const auto &damage : damages) {
		SCOPED_TRACE(damage.what);
		PimImage plan = sound;
		damage.apply(plan);
		EXPECT_EQ(Image(plan).version("scaler"), kNotFound);
	}
}

TEST(PimIpVersionDamaged, UnreadableNamesDoNotMatch)
{
	PimImage sound;
	sound.add_text("abc");
	const u16 bad = sound.ip("bad", {1, 0, 0});
	sound.ip("good", {2, 0, 0});
	const u16 name = sound.child(sound.next(bad));
	const struct {
		u32 size, offset;
	} records[] = {{3, 0},           {0, 0},          {4, 4096},
		       {16, 0xFFFFFFF8}, {0xFFFFFFFF, 0}, {0xFFFFFFFF, 0xFFFFFFFF}};
	for (const auto &row : records) {
		SCOPED_TRACE(testing::Message() << row.size << " bytes at " << row.offset);
		PimImage plan = sound;
		plan.record(name, row.size, row.offset);
		const Image image(plan);
		EXPECT_EQ(image.version("bad"), kNotFound);
		EXPECT_EQ(image.version("abc"), kNotFound);
		EXPECT_EQ(image.version("good"), (Answer{true, {2, 0, 0}}));
	}
	PimImage nameless = sound;
	nameless.next(bad, kNoId);
	EXPECT_EQ(Image(nameless).version("good"), (Answer{true, {2, 0, 0}}));
}

TEST(PimIpVersionDamaged, CyclicRootChildrenEnd)
{
	PimImage plan;
	plan.ip("a", {1, 0, 0});
	plan.ip("b", {2, 0, 0});
	plan.next(plan.next(plan.child(0)), plan.child(0));
	const Image image(plan);
	EXPECT_EQ(image.version("b"), (Answer{true, {2, 0, 0}}));
	EXPECT_EQ(image.version("c"), kNotFound);
}

TEST(PimIpVersionDamaged, RootThatIsItsOwnChildEnds)
{
	PimImage plan;
	plan.child(0, 0);
	plan.next(0, 0);
	EXPECT_EQ(Image(plan).version("a"), kNotFound);
}

// Every IP has the same name, of megabytes and without a NUL: looking for its end again and again
// would take minutes.
TEST(PimIpVersionDamaged, SharedLongNameIsNotReadForEver)
{
	PimImage plan;
	constexpr std::size_t kLength = 32 << 20;
	const u16 text = plan.add_record(EXTMEM_TAG_STRING_HOLDER, std::string(kLength, 'x'));
	for (int i = 0; i < 21000; ++i) {
		const u16 ip = plan.add(EXTMEM_TAG_IP);
		const u16 property = plan.add(EXTMEM_TAG_PROPERTY);
		plan.child(property, text);
		plan.next(ip, property);
		plan.hold(0, ip);
	}
	EXPECT_EQ(Image(plan).version("x"), kNotFound);
}

TEST(PimIpVersionDamaged, HolderOutsideTheImageEndsTheList)
{
	PimImage plan;
	plan.ip("a", {1, 0, 0});
	plan.ip("b", {2, 0, 0});
	plan.next(plan.child(0), static_cast<u16>(plan.nodes()));
	const Image image(plan);
	EXPECT_EQ(image.version("a"), (Answer{true, {1, 0, 0}}));
	EXPECT_EQ(image.version("b"), kNotFound);
}

TEST(PimIpVersionDamaged, DataHolderInTheListHoldsNothing)
{
	PimImage plan;
	plan.ip("a", {1, 0, 0});
	plan.ip("b", {2, 0, 0});
	plan.tag(plan.child(0), EXTMEM_TAG_DATA);
	const Image image(plan);
	EXPECT_EQ(image.version("a"), kNotFound);
	EXPECT_EQ(image.version("b"), kNotFound);
}

// ---- pim_print ----

const Lines kDump{"[0] tag=GENERAL",
		  "---[6] tag=GENERAL",
		  "------[1] tag=IP",
		  "---------[12] tag=GENERAL",
		  "------------[7] tag=???",
		  "---------------[16] tag=GENERAL",
		  "------------------[13] tag=IP_CONFIG",
		  "---------------------[18] tag=GENERAL",
		  "------------------------[17] Data tag=REGISTER",
		  "------------------[14] tag=PROPERTY",
		  "---------------------PROP:mode#soft",
		  "------------[8] tag=PROPERTY",
		  "---------------PROP:mode",
		  "------------[10] tag=???",
		  "---------------[11] Data tag=???",
		  "------[2] tag=PROPERTY",
		  "---------PROP:scaler",
		  "------[4] tag=???",
		  "---------[5] Data tag=???",
		  "---[23] tag=GENERAL",
		  "------[19] tag=FILE",
		  "---------[20] Data tag=DATA",
		  "------[21] tag=PROPERTY",
		  "---------PROP:table.bin"};

PimImage printed_plan()
{
	PimImage plan;
	const u16 setting = plan.setting(plan.ip("scaler"), "mode", E_PQLV_DEFAULT);
	plan.list(plan.config(setting, "mode#soft"), {{3, 0x12}});
	plan.file("table.bin", "0123");
	return plan;
}

TEST(PimPrint, DumpsTheTreeFromTheRootOn)
{
	const Image image(printed_plan());
	pim_print(image.map.get());
	EXPECT_EQ(take_log_lines(), kDump);
}

TEST(PimPrint, OfAnEmptyMapIsTheRoot)
{
	Map map;
	ASSERT_TRUE(map.init());
	pim_print(map.get());
	EXPECT_EQ(take_log(), "[0] tag=GENERAL\n");
}

TEST(PimPrint, WithoutAMapIsNothing)
{
	pim_print(nullptr);
	EXPECT_EQ(take_log(), "");
}

std::string hook_text;

int keep_text(const char *format, ...)
{
	char line[256];
	va_list arguments;
	va_start(arguments, format);
	const int length = std::vsnprintf(line, sizeof line, format, arguments);
	va_end(arguments);
	hook_text += line;
	return length;
}

TEST(PimPrint, GoesThroughTheStoresHook)
{
	Map map;
	ASSERT_TRUE(map.init());
	map->builder.print = keep_text;
	hook_text.clear();
	pim_print(map.get());
	EXPECT_EQ(hook_text, "[0] tag=GENERAL\n");
	EXPECT_EQ(take_log(), "");
}

TEST(PimPrint, LongTableNameIsPrintedForEachMemberThatSharesIt)
{
	constexpr std::size_t kMembers = 300;
	const std::string table(255, 't');
	PimImage plan;
	const u16 setting = plan.setting(plan.ip("scaler"), "s", E_PQLV_PRESETREGS);
	const u16 name = plan.add_text(table);
	for (std::size_t i = 0; i < kMembers; ++i)
		plan.preset(setting, "s#" + std::to_string(i), name);
	const Image image(plan);
	take_log();
	pim_print(image.map.get());
	std::size_t printed = 0;
	for (const std::string &line : take_log_lines()) {
		EXPECT_EQ(line.find("vexil lib fail!!"), std::string::npos);
		printed += line.find("PROP:" + table) != std::string::npos;
	}
	EXPECT_EQ(printed, kMembers);
}

TEST(PimPrint, ChangesNothing)
{
	const Image image(printed_plan());
	const std::vector<char> before = image.bytes.bytes();
	pim_print(image.map.get());
	take_log();
	EXPECT_EQ(image.bytes.bytes(), before);
}

// A damaged tree is dumped as far as the bound allows, then the failure is reported.
void expect_bounded_dump(const PimImage &plan)
{
	const Image image(plan);
	take_log();
	const auto start = std::chrono::steady_clock::now();
	pim_print(image.map.get());
	EXPECT_LT(std::chrono::steady_clock::now() - start, kBoundedTime);
	const Lines lines = take_log_lines();
	ASSERT_FALSE(lines.empty());
	EXPECT_LE(lines.size(), 2 * plan.nodes() + 1);
	EXPECT_NE(lines.back().find("vexil lib fail!!"), std::string::npos) << lines.back();
}

TEST(PimPrintDamaged, CyclicRootChildrenEnd)
{
	PimImage plan = printed_plan();
	plan.next(plan.next(plan.child(0)), plan.child(0));
	expect_bounded_dump(plan);
}

TEST(PimPrintDamaged, RootThatIsItsOwnChildEnds)
{
	PimImage plan = printed_plan();
	plan.child(0, 0);
	expect_bounded_dump(plan);
}

TEST(PimPrintDamaged, ConfigurationThatHoldsTheRootEnds)
{
	PimImage plan = printed_plan();
	plan.child(16, 0);
	expect_bounded_dump(plan);
}

} // namespace
