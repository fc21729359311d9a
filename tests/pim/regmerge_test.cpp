// SPDX-License-Identifier: MIT
#include "pim/pim.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "tests/support/pim_images.h"
#include "tests/support/platform.h"

namespace {

using namespace vexil_test;

constexpr u32 kDomains = 16;
constexpr u32 kLevels = 8;
// Lists of more pairs than this are joined through a scratch index.
constexpr std::size_t kPlainPairs = 512;
constexpr std::chrono::seconds kBoundedTime{20};

// ---- the plain rule ----

// What the rule makes of a list: every slot, and the number that is announced afterwards.
struct Joined {
	Pairs slots;
	u32 count;
};

bool is_valid(const ST_PQ_REG_INFO &row)
{
	unsigned char flag = 0;
	std::memcpy(&flag, &row.b_valid, 1);
	return flag == 1;
}

func_pair address_form(const ST_PQ_REG_INFO &row, u32 value)
{
	const u64 lsb = row.u32Mask >> 8 & 0xFF;
	const u64 width = row.u32Mask >> 16;
	u64 mask = 0;
	if (width == 16 && lsb + width <= 16)
		mask = 0xFFFF;
	else if (width >= 1 && lsb + width <= 16)
		mask = ((u64{1} << width) - 1) << lsb;
	u64 placed = value & ((u64{1} << width % 32) - 1);
	for (u64 i = 0; i < lsb; ++i)
		placed = placed << 1 & 0xFFFF;
	placed &= 0xFFFF;
	u32 domain = 0;
	std::memcpy(&domain, &row.e_pq_time_domain, sizeof domain);
	return {static_cast<u32>((row.u32Addr & 0x07FFFFFF) | u64{domain} << 27),
		static_cast<u32>(placed | mask << 16)};
}

Pairs translated(Pairs pairs, const RegisterTable &table)
{
	for (func_pair &pair : pairs) {
		if (pair.fn_idx >= table.size())
			continue;
		const ST_PQ_REG_INFO &row = table[pair.fn_idx];
		pair = is_valid(row) ? address_form(row, pair.fn_para) : func_pair{};
	}
	return pairs;
}

Joined joined(Pairs slots)
{
	const auto first_with = [&](u32 word, std::size_t before) -> std::optional<std::size_t> {
		for (std::size_t i = 0; i < before; ++i)
			if (slots[i].fn_idx == word)
				return i;
		return std::nullopt;
	};
	u32 kept = 1;
	for (std::size_t j = 1; j < slots.size(); ++j) {
		if (const auto same = first_with(slots[j].fn_idx, j)) {
			slots[*same].fn_para |= slots[j].fn_para;
			slots[j] = {};
		} else if (const auto hole = first_with(0, j)) {
			slots[*hole] = slots[j];
			slots[j] = {};
			++kept;
		} else {
			++kept;
		}
	}
	return {slots, kept};
}

// ---- one list in an image ----

// One setting with one configuration that holds one list.
struct OneList {
	explicit OneList(const Pairs &pairs, u32 level = E_PQLV_DEFAULT,
			 int tag = EXTMEM_TAG_IP_CONFIG)
	{
		ip = plan.ip("a");
		setting = plan.setting(ip, "s", level);
		config = plan.config(setting, "s#m", tag);
		list = plan.list(config, pairs);
	}
	PimImage plan;
	u16 ip, setting, config, list;
};

struct Adopted {
	explicit Adopted(const PimImage &plan, const RegisterTable &table = {})
	    : image(plan.write())
	{
		EXPECT_TRUE(adopt(map, image, table));
	}
	[[nodiscard]] u32 count(u32 domain, u32 level) const
	{
		return pim_get_reg_num(map.get(), static_cast<u8>(domain),
				       static_cast<EN_PQ_LEVEL>(level));
	}
	[[nodiscard]] u32 total() const { return count(E_PQ_MAX_DOMAIN, E_PQLV_MAX); }

	ImageBytes image;
	Map map;
};

Joined after_adoption(const Pairs &pairs, const RegisterTable &table)
{
	const OneList one(pairs);
	const Adopted adopted(one.plan, table);
	EXPECT_EQ(adopted.image.tag(one.list), EXTMEM_TAG_REGISTER_ADDR_SETTINGS);
	return {adopted.image.pairs(one.list), adopted.image.pair_count(one.list)};
}

void expect_joined(const Pairs &pairs, const RegisterTable &table, const Pairs &slots, u32 count)
{
	const Joined result = after_adoption(pairs, table);
	EXPECT_EQ(result.slots, slots);
	EXPECT_EQ(result.count, count);
}

void set_valid_byte(ST_PQ_REG_INFO *row, unsigned char byte)
{
	std::memcpy(&row->b_valid, &byte, 1);
}

void set_domain(ST_PQ_REG_INFO *row, u32 domain)
{
	std::memcpy(&row->e_pq_time_domain, &domain, sizeof domain);
}

// Row i: domain 0, address 0x100 + i, the whole register.
RegisterTable plain_table(u32 rows)
{
	RegisterTable table;
	for (u32 i = 0; i < rows; ++i)
		table.push_back(reg(E_PQ_SRC0_DOMAIN, 0x100 + i, 0, 16));
	return table;
}

// ---- address form ----

struct Field {
	u32 lsb;
	u32 width;
	u32 value;
	u32 para; // write mask, register value
};

const Field kFields[] = {
	// Whole registers.
	{0, 16, 0xABCD, 0xFFFFABCD},
	{0, 16, 0, 0xFFFF0000},
	{0, 16, 0x12345, 0xFFFF2345},
	{0, 16, 0xFFFFFFFF, 0xFFFFFFFF},
	// Fields.
	{0, 1, 1, 0x00010001},
	{15, 1, 1, 0x80008000},
	{4, 8, 0x5A, 0x0FF005A0},
	{8, 8, 0x5A, 0xFF005A00},
	{1, 15, 0x7FFF, 0xFFFEFFFE},
	{0, 15, 0x7FFF, 0x7FFF7FFF},
	// Values wider than their field.
	{4, 8, 0x1FF, 0x0FF00FF0},
	{0, 1, 2, 0x00010000},
	// No field.
	{0, 0, 0xFFFF, 0},
	{15, 0, 0xFFFF, 0},
	// Beyond bit 15: no write mask, the value as far as it fits.
	{1, 16, 0x8001, 0x00000002},
	{8, 9, 0x1AB, 0x0000AB00},
	{8, 16, 0x12, 0x00001200},
	{15, 2, 3, 0x00008000},
	{16, 1, 1, 0},
	{0, 17, 0x12345, 0x00002345},
	{0, 31, 0xFFFFFFFF, 0x0000FFFF},
	{4, 31, 0xFFFFFFFF, 0x0000FFF0},
	// Widths count modulo 32 for the value only.
	{0, 32, 0xFFFFFFFF, 0},
	{0, 33, 3, 0x00000001},
	{0, 48, 0xABCD, 0x0000ABCD},
	{0, 64, 0xFFFFFFFF, 0},
	{0, 0xFFFF, 0xFFFFFFFF, 0x0000FFFF},
	{0, 0xFFE0, 0xFFFFFFFF, 0},
	// Lowest bits far outside.
	{17, 16, 0xFFFF, 0},
	{31, 8, 0xFF, 0},
	{32, 8, 0xFF, 0},
	{64, 8, 0xFF, 0},
	{255, 1, 1, 0},
	{255, 16, 0xFFFF, 0},
	{255, 0xFFFF, 0xFFFFFFFF, 0},
	{240, 16, 0xFFFF, 0},
};

TEST(PimRegMerge, FieldBecomesWriteMaskAndRegisterValue)
{
	for (const Field &row : kFields) {
		SCOPED_TRACE(testing::Message() << "lsb " << row.lsb << " width " << row.width
						<< " value " << row.value);
		expect_joined({{0, row.value}}, {reg(E_PQ_IP_DOMAIN, 0x1234, row.lsb, row.width)},
			      {{0x10001234, row.para}}, 1);
	}
}

TEST(PimRegMerge, LowByteOfTheFieldDescriptionIsIgnored)
{
	RegisterTable table{reg(0, 0x1234, 4, 8)};
	table[0].u32Mask |= 0xFF;
	expect_joined({{0, 0x5A}}, table, {{0x1234, 0x0FF005A0}}, 1);
}

TEST(PimRegMerge, DomainStandsAbove27BitsOfAddress)
{
	const struct {
		u32 domain, address, word;
	} cases[] = {
		{0, 0x00000001, 0x00000001}, {0, 0xFFFFFFFF, 0x07FFFFFF},  {1, 0, 0x08000000},
		{1, 0x08000000, 0x08000000}, {15, 0x07FFFFFF, 0x7FFFFFFF}, {16, 1, 0x80000001},
		{17, 1, 0x88000001},         {31, 1, 0xF8000001},
	};
	for (const auto &row : cases) {
		SCOPED_TRACE(testing::Message() << row.domain << " " << row.address);
		expect_joined({{0, 1}}, {reg(row.domain, row.address, 0, 16)},
			      {{row.word, 0xFFFF0001}}, 1);
	}
}

// The table is the caller's, in C: its domains may be any number.
TEST(PimRegMerge, DomainsBeyond31LoseTheirUpperBits)
{
	const struct {
		u32 domain, word;
	} cases[] = {
		{32, 0x00000001},
		{33, 0x08000001},
		{0x100, 0x00000001},
		{0xFFFFFFFF, 0xF8000001},
	};
	for (const auto &row : cases) {
		SCOPED_TRACE(row.domain);
		RegisterTable table{reg(0, 1, 0, 16)};
		set_domain(&table[0], row.domain);
		expect_joined({{0, 1}}, table, {{row.word, 0xFFFF0001}}, 1);
	}
}

TEST(PimRegMerge, EntryIsUsedOnlyWhenItsValidByteIsOne)
{
	for (const unsigned byte : {0u, 1u, 2u, 3u, 0x80u, 0x81u, 0xFEu, 0xFFu}) {
		SCOPED_TRACE(byte);
		RegisterTable table{reg(0, 0x1234, 0, 16)};
		set_valid_byte(&table[0], static_cast<unsigned char>(byte));
		const func_pair used{0x1234, 0xFFFF0007};
		expect_joined({{0, 7}}, table, {byte == 1 ? used : func_pair{}}, 1);
	}
}

TEST(PimRegMerge, IndexBeyondTheTableStaysAsItIs)
{
	const RegisterTable table = plain_table(4);
	expect_joined({{3, 1}, {4, 0xDEADBEEF}, {0xFFFFFFFF, 5}}, table,
		      {{0x103, 0xFFFF0001}, {4, 0xDEADBEEF}, {0xFFFFFFFF, 5}}, 3);
}

// ---- joining ----

TEST(PimRegMerge, FieldsOfOneRegisterBecomeOnePair)
{
	const RegisterTable table{reg(2, 0x40, 0, 8), reg(2, 0x40, 8, 8)};
	expect_joined({{0, 0x34}, {1, 0x12}}, table, {{0x10000040, 0xFFFF1234}, {}}, 1);
}

TEST(PimRegMerge, OneAddressInTwoDomainsIsTwoRegisters)
{
	const RegisterTable table{reg(2, 0x40, 0, 8), reg(3, 0x40, 8, 8)};
	expect_joined({{0, 0x34}, {1, 0x12}}, table,
		      {{0x10000040, 0x00FF0034}, {0x18000040, 0xFF001200}}, 2);
}

TEST(PimRegMerge, RepeatedFieldIsOrdered)
{
	const RegisterTable table{reg(0, 0x40, 0, 16)};
	expect_joined({{0, 0x00F0}, {0, 0x0F0F}}, table, {{0x40, 0xFFFF0FFF}, {}}, 1);
}

TEST(PimRegMerge, FirstSeenOrderStays)
{
	const RegisterTable table = plain_table(4);
	expect_joined({{2, 1}, {0, 2}, {2, 4}, {3, 8}, {0, 16}, {1, 32}}, table,
		      {{0x102, 0xFFFF0005},
		       {0x100, 0xFFFF0012},
		       {0x103, 0xFFFF0008},
		       {0x101, 0xFFFF0020},
		       {},
		       {}},
		      4);
}

TEST(PimRegMerge, InvalidEntryIsAHoleThatTheNextNewRegisterFills)
{
	RegisterTable table = plain_table(4);
	set_valid_byte(&table[1], 0);
	expect_joined({{0, 1}, {1, 2}, {2, 3}}, table,
		      {{0x100, 0xFFFF0001}, {0x102, 0xFFFF0003}, {}}, 3);
}

TEST(PimRegMerge, InvalidEntryFirstStillCounts)
{
	RegisterTable table = plain_table(4);
	set_valid_byte(&table[1], 0);
	expect_joined({{1, 2}, {2, 3}}, table, {{0x102, 0xFFFF0003}, {}}, 2);
}

TEST(PimRegMerge, InvalidEntryLastCountsOnlyWhenItIsTheFirstHole)
{
	RegisterTable table = plain_table(4);
	set_valid_byte(&table[1], 0);
	expect_joined({{0, 1}, {1, 2}}, table, {{0x100, 0xFFFF0001}, {}}, 2);
	expect_joined({{0, 1}, {0, 2}, {1, 2}}, table, {{0x100, 0xFFFF0003}, {}, {}}, 1);
}

TEST(PimRegMerge, SeveralInvalidEntriesCountOnce)
{
	RegisterTable table = plain_table(4);
	set_valid_byte(&table[1], 0);
	expect_joined({{1, 1}, {1, 2}, {1, 3}}, table, {{}, {}, {}}, 1);
	expect_joined({{1, 1}, {1, 2}, {0, 3}}, table, {{0x100, 0xFFFF0003}, {}, {}}, 2);
	expect_joined({{1, 1}, {0, 3}, {1, 2}, {2, 4}}, table,
		      {{0x100, 0xFFFF0003}, {0x102, 0xFFFF0004}, {}, {}}, 3);
}

TEST(PimRegMerge, HoleThatAJoinedEntryLeavesIsFilledToo)
{
	const RegisterTable table = plain_table(4);
	expect_joined({{0, 1}, {0, 2}, {1, 3}, {2, 4}}, table,
		      {{0x100, 0xFFFF0003}, {0x101, 0xFFFF0003}, {0x102, 0xFFFF0004}, {}}, 3);
}

// Domain 0, address 0: its word cannot be told from a hole's.
TEST(PimRegMerge, RegisterWhoseWordIsZeroIsTakenForAHole)
{
	const RegisterTable table{reg(0, 0, 0, 16), reg(0, 0x101, 0, 16)};
	expect_joined({{0, 7}}, table, {{0, 0xFFFF0007}}, 1);
	expect_joined({{0, 7}, {1, 8}}, table, {{0x101, 0xFFFF0008}, {}}, 2);
	expect_joined({{0, 7}, {0, 8}}, table, {{0, 0xFFFF000F}, {}}, 1);
	expect_joined({{1, 8}, {0, 7}}, table, {{0x101, 0xFFFF0008}, {0, 0xFFFF0007}}, 2);
	expect_joined({{1, 8}, {0, 7}, {0, 0x10}}, table,
		      {{0x101, 0xFFFF0008}, {0, 0xFFFF0017}, {}}, 2);
}

TEST(PimRegMerge, UntranslatedIndexJoinsARegisterWithTheSameWord)
{
	const RegisterTable table = plain_table(2);
	expect_joined({{1, 1}, {0x101, 0x40000002}}, table, {{0x101, 0xFFFF0003}, {}}, 1);
}

TEST(PimRegMerge, OnePairIsOnePair)
{
	expect_joined({{1, 1}}, plain_table(2), {{0x101, 0xFFFF0001}}, 1);
}

TEST(PimRegMerge, PairsBeyondTheAnnouncedNumberAreLeftAlone)
{
	OneList one({{0, 1}, {0, 2}, {1, 3}});
	ImageBytes image = one.plan.write();
	image.put(image.record_at(one.list), u32{2});
	Map map;
	ASSERT_TRUE(adopt(map, image, plain_table(2)));
	EXPECT_EQ(image.pair_count(one.list), 1u);
	EXPECT_EQ(image.pairs(one.list), (Pairs{{0x100, 0xFFFF0003}, {}, {1, 3}}));
}

TEST(PimRegMerge, PaddingAndSizeOfTheRecordStay)
{
	const OneList one({{0, 1}, {0, 2}});
	ImageBytes image = one.plan.write();
	const u32 size = image.record_size(one.list);
	const u32 offset = image.record_offset(one.list);
	Map map;
	ASSERT_TRUE(adopt(map, image, plain_table(2)));
	EXPECT_EQ(image.record_size(one.list), size);
	EXPECT_EQ(image.record_offset(one.list), offset);
	EXPECT_EQ(image.at<u32>(image.record_at(one.list) + 4), 0u);
}

TEST(PimRegMerge, ListMayStandAtAnyOffset)
{
	for (u32 shift = 0; shift < 8; ++shift) {
		SCOPED_TRACE(shift);
		OneList one({});
		const std::string bytes = PimImage::list_bytes({{0, 1}, {1, 2}}, 2);
		const auto start = static_cast<u32>(one.plan.data_bytes());
		one.plan.add_record(EXTMEM_TAG_DATA, std::string(shift, 'x') + bytes);
		one.plan.record(one.list, static_cast<u32>(bytes.size()), start + shift);
		const Adopted adopted(one.plan, plain_table(2));
		EXPECT_EQ(adopted.image.pairs(one.list),
			  (Pairs{{0x100, 0xFFFF0001}, {0x101, 0xFFFF0002}}));
	}
}

// ---- against the plain rule ----

struct Shape {
	std::size_t pairs;
	u32 rows;      // of the table
	u32 addresses; // few: many pairs join
	bool faulty;   // invalid rows, odd fields, indices outside
};

RegisterTable random_table(std::mt19937 &random, const Shape &shape)
{
	const auto below = [&](u32 limit) { return static_cast<u32>(random() % limit); };
	RegisterTable table;
	for (u32 i = 0; i < shape.rows; ++i) {
		const u32 lsb = below(16);
		ST_PQ_REG_INFO row =
			reg(below(4), below(shape.addresses), lsb, 1 + below(16 - lsb));
		if (shape.faulty && below(4) == 0) {
			row = reg(below(32), random(), below(256), below(70));
			set_valid_byte(&row, static_cast<unsigned char>(below(3)));
		}
		table.push_back(row);
	}
	return table;
}

Pairs random_pairs(std::mt19937 &random, const Shape &shape)
{
	Pairs pairs(shape.pairs);
	for (func_pair &pair : pairs) {
		const u32 range = shape.faulty ? shape.rows + shape.rows / 8 + 1 : shape.rows;
		pair = {static_cast<u32>(random() % range), static_cast<u32>(random())};
	}
	return pairs;
}

void expect_plain_rule(u32 seed, const Shape &shape)
{
	std::mt19937 random(seed);
	const RegisterTable table = random_table(random, shape);
	const Pairs pairs = random_pairs(random, shape);
	const Joined expected = joined(translated(pairs, table));
	const Joined result = after_adoption(pairs, table);
	ASSERT_EQ(result.count, expected.count);
	ASSERT_EQ(result.slots, expected.slots);
}

TEST(PimRegMergeModel, ShortListsFollowThePlainRule)
{
	constexpr u32 kSeeds = 3000;
	for (u32 seed = 1; seed <= kSeeds && !testing::Test::HasFailure(); ++seed) {
		SCOPED_TRACE(testing::Message() << "seed " << seed);
		expect_plain_rule(seed,
				  {1 + seed % 24, 1 + seed % 13, 1 + seed % 7, seed % 2 == 0});
	}
}

TEST(PimRegMergeModel, ListsAroundTheIndexThresholdFollowThePlainRule)
{
	u32 seed = 90000;
	for (const std::size_t pairs : {510u, 511u, 512u, 513u, 514u, 1023u, 1024u, 1025u}) {
		for (const u32 addresses : {1u, 3u, 200u, 100000u}) {
			for (const bool faulty : {false, true}) {
				SCOPED_TRACE(testing::Message()
					     << "seed " << seed << ", " << pairs << " pairs, "
					     << addresses << " addresses");
				expect_plain_rule(seed++, {pairs, 2000, addresses, faulty});
			}
		}
	}
}

TEST(PimRegMergeModel, LongListsFollowThePlainRule)
{
	u32 seed = 70000;
	for (const std::size_t pairs : {2047u, 2048u, 2049u, 4500u}) {
		for (const u32 addresses : {700u, 1000000u}) {
			SCOPED_TRACE(testing::Message()
				     << "seed " << seed << ", " << pairs << " pairs");
			expect_plain_rule(seed++, {pairs, 6000, addresses, true});
		}
	}
}

// ---- the index for long lists ----

// One IP of an image, scanned into an empty map with a table: nothing but the index is allocated,
// because nothing has a name.
class PimRegMergeIndex : public testing::Test {
protected:
	void load(const Pairs &pairs, const RegisterTable &table)
	{
		ip_ = plan_.add(EXTMEM_TAG_IP);
		const u16 setting = plan_.add(EXTMEM_TAG_IP_SETTING);
		const u16 config = plan_.add(EXTMEM_TAG_IP_CONFIG);
		list_ = plan_.list(config, pairs);
		plan_.hold(setting, config);
		plan_.hold(ip_, setting);
		image_ = plan_.write();
		ASSERT_TRUE(pim_init(map_.out(), nullptr, 0, table.data(), table.size()));
		ASSERT_TRUE(extmem_builder_init(&store_, image_.data(), image_.size()));
	}
	bool scan() { return __pim_scan_ipname(map_.get(), {ip_, &store_}); }
	[[nodiscard]] Joined result() const
	{
		return {image_.pairs(list_), image_.pair_count(list_)};
	}

private:
	PimImage plan_;
	ImageBytes image_;
	extmem_builder store_{};
	Map map_;
	u16 ip_ = 0, list_ = 0;
};

TEST_F(PimRegMergeIndex, IsNotWantedForAListOf512)
{
	std::mt19937 random(1);
	const Shape shape{kPlainPairs, 900, 400, true};
	const RegisterTable table = random_table(random, shape);
	load(random_pairs(random, shape), table);
	const std::size_t before = allocations();
	EXPECT_TRUE(scan());
	EXPECT_EQ(allocations(), before);
}

TEST_F(PimRegMergeIndex, IsTakenOnceAndGivenBackForAListOf513)
{
	std::mt19937 random(1);
	const Shape shape{kPlainPairs + 1, 900, 400, true};
	const RegisterTable table = random_table(random, shape);
	load(random_pairs(random, shape), table);
	const std::size_t before = allocations();
	const std::size_t blocks = live_blocks();
	EXPECT_TRUE(scan());
	EXPECT_EQ(allocations(), before + 1);
	EXPECT_EQ(live_blocks(), blocks);
}

TEST_F(PimRegMergeIndex, IsNotNeededForTheResult)
{
	std::mt19937 random(2);
	const Shape shape{3000, 4000, 900, true};
	const RegisterTable table = random_table(random, shape);
	const Pairs pairs = random_pairs(random, shape);
	load(pairs, table);
	const Refuse all = Refuse::from(1);
	EXPECT_TRUE(scan());
	EXPECT_TRUE(all.happened());
	const Joined expected = joined(translated(pairs, table));
	EXPECT_EQ(result().count, expected.count);
	EXPECT_EQ(result().slots, expected.slots);
	EXPECT_EQ(take_log(), "");
}

// Lists that an image can hold and that would take minutes if each pair were compared with all
// before it.
class PimRegMergeHugeList : public testing::Test {
protected:
	static constexpr u32 kPairs = 300000;

	// Words from @word, none of which the table knows, so that they stay as they are.
	template <typename Word>
	void expect_bounded(Word word, const Pairs &slots, u32 count)
	{
		Pairs pairs(kPairs);
		for (u32 i = 0; i < kPairs; ++i)
			pairs[i] = {word(i), i & 0xF};
		const OneList one(pairs);
		ImageBytes image = one.plan.write();
		Map map;
		const auto start = std::chrono::steady_clock::now();
		ASSERT_TRUE(adopt(map, image, {reg(0, 0, 0, 0, false)}));
		EXPECT_LT(std::chrono::steady_clock::now() - start, kBoundedTime);
		EXPECT_EQ(image.pair_count(one.list), count);
		EXPECT_TRUE(image.pairs(one.list) == slots);
	}
};

TEST_F(PimRegMergeHugeList, OfDifferentRegisters)
{
	Pairs slots(kPairs);
	for (u32 i = 0; i < kPairs; ++i)
		slots[i] = {i + 1, i & 0xF};
	expect_bounded([](u32 i) { return i + 1; }, slots, kPairs);
}

TEST_F(PimRegMergeHugeList, OfOneRegister)
{
	Pairs slots(kPairs);
	slots[0] = {5, 0xF};
	expect_bounded([](u32) { return 5u; }, slots, 1);
}

TEST_F(PimRegMergeHugeList, OfHoles)
{
	expect_bounded([](u32) { return 0u; }, Pairs(kPairs), 1);
}

TEST_F(PimRegMergeHugeList, OfHolesBetweenDifferentRegisters)
{
	Pairs slots(kPairs);
	for (u32 i = 0; i < kPairs / 2; ++i)
		slots[i] = {2 * i + 1, (2 * i + 1) & 0xF};
	// The leading hole counts, and every register after it.
	expect_bounded([](u32 i) { return i % 2 ? i : 0u; }, slots, kPairs / 2 + 1);
}

TEST_F(PimRegMergeHugeList, OfWordsThatDifferInTheirUpperBitsOnly)
{
	// Spread by 4096: only the upper 20 bits differ.
	Pairs slots(kPairs);
	for (u32 i = 0; i < kPairs; ++i)
		slots[i] = {(i + 1) << 12, i & 0xF};
	expect_bounded([](u32 i) { return (i + 1) << 12; }, slots, kPairs);
}

// The index may spread words by multiplying with 2^32 divided by the golden ratio and folding the
// upper half down: an image can choose words that all come to lie side by side.
TEST_F(PimRegMergeHugeList, OfWordsChosenAgainstTheIndex)
{
	constexpr u32 kChosen = 40000;
	constexpr u32 kMultiplier = 0x9E3779B1;
	constexpr u32 kInverse = 0x0E8B2F51; // modulo 2^32
	static_assert(kInverse * kMultiplier == 1);
	constexpr u32 kSlotBits = 17; // two slots a pair, rounded up to a power of two
	Pairs chosen, ordinary;
	for (u32 i = 0; chosen.size() < kChosen; ++i) {
		const u32 spread = i << kSlotBits | i >> (32 - kSlotBits);
		const u32 word = (spread ^ spread >> 15 ^ spread >> 30) * kInverse;
		if (word != 0)
			chosen.push_back({word, 0});
	}
	for (u32 i = 1; i <= kChosen; ++i)
		ordinary.push_back({i, 0});
	const auto time_of = [](const Pairs &pairs) {
		const OneList one(pairs);
		ImageBytes image = one.plan.write();
		Map map;
		const auto start = std::chrono::steady_clock::now();
		EXPECT_TRUE(adopt(map, image, {reg(0, 0, 0, 0, false)}));
		const auto taken = std::chrono::steady_clock::now() - start;
		EXPECT_EQ(image.pair_count(one.list), pairs.size());
		return taken;
	};
	// Square cost would be about a thousand times the other.
	constexpr int kMuchMore = 50;
	EXPECT_LT(time_of(chosen), kMuchMore * time_of(ordinary) + std::chrono::milliseconds(500));
}

// ---- which lists, and which tag they get ----

struct LevelTag {
	u32 level;
	int tag;
};

const LevelTag kLevelTags[] = {
	{E_PQLV_INDIVIDUAL, EXTMEM_TAG_REGISTER_ADDR_IND_SETTINGS},
	{E_PQLV_PI_SETTING, EXTMEM_TAG_REGISTER_ADDR_PI_SETTINGS},
	{E_PQLV_OPTION_L1, EXTMEM_TAG_REGISTER_ADDR_L1_SETTINGS},
	{E_PQLV_OPTION_L2, EXTMEM_TAG_REGISTER_ADDR_L2_SETTINGS},
	{E_PQLV_OPTION_L3, EXTMEM_TAG_REGISTER_ADDR_L3_SETTINGS},
	{E_PQLV_DEFAULT, EXTMEM_TAG_REGISTER_ADDR_SETTINGS},
	{E_PQLV_PRESETREGS, EXTMEM_TAG_REGISTER_ADDR_SETTINGS},
	{E_PQLV_SYNC, EXTMEM_TAG_REGISTER_SYNC_SETTINGS},
	{E_PQLV_MAX, EXTMEM_TAG_REGISTER_ADDR_SETTINGS},
	{9, EXTMEM_TAG_REGISTER_ADDR_SETTINGS},
	{0x80000000, EXTMEM_TAG_REGISTER_ADDR_SETTINGS},
	{0xFFFFFFFF, EXTMEM_TAG_REGISTER_ADDR_SETTINGS},
};

TEST(PimRegMergeTag, LevelDecides)
{
	for (const LevelTag &row : kLevelTags) {
		SCOPED_TRACE(row.level);
		const OneList one({{1, 7}}, row.level);
		const Adopted adopted(one.plan, plain_table(2));
		EXPECT_EQ(adopted.image.tag(one.list), row.tag);
		// Synchronised lists are delivered by function position.
		const func_pair as_stored{1, 7};
		const func_pair by_address{0x101, 0xFFFF0007};
		EXPECT_EQ(adopted.image.pairs(one.list),
			  Pairs{row.level == E_PQLV_SYNC ? as_stored : by_address});
	}
}

TEST(PimRegMergeTag, PresetConfigurationsAreRewrittenAtEveryLevel)
{
	for (const LevelTag &row : kLevelTags) {
		SCOPED_TRACE(row.level);
		const OneList one({{1, 7}}, row.level, EXTMEM_TAG_IP_PRESET_REG_CONFIG);
		const Adopted adopted(one.plan, plain_table(2));
		EXPECT_EQ(adopted.image.tag(one.list), row.tag);
		EXPECT_EQ(adopted.image.pairs(one.list), (Pairs{{0x101, 0xFFFF0007}}));
	}
}

TEST(PimRegMergeTag, OtherConfigurationsAreLeftAlone)
{
	for (int tag = 0; tag < EXTMEM_TAG_DATA_TYPE_BEGIN; ++tag) {
		if (tag == EXTMEM_TAG_IP_CONFIG || tag == EXTMEM_TAG_IP_PRESET_REG_CONFIG)
			continue;
		for (const u32 level : {E_PQLV_DEFAULT, E_PQLV_SYNC}) {
			SCOPED_TRACE(testing::Message() << "tag " << tag << " level " << level);
			const OneList one({{1, 7}}, level, tag);
			const std::vector<char> before = one.plan.write().bytes();
			const Adopted adopted(one.plan, plain_table(2));
			EXPECT_EQ(adopted.image.bytes(), before);
			EXPECT_EQ(adopted.total(), 0u);
		}
	}
}

TEST(PimRegMergeTag, OtherItemsAreLeftAlone)
{
	for (int tag = 0; tag <= 0xFF; ++tag) {
		if (tag == EXTMEM_TAG_REGISTER_SETTINGS)
			continue;
		for (const u32 level : {E_PQLV_INDIVIDUAL, E_PQLV_SYNC}) {
			SCOPED_TRACE(testing::Message() << "tag " << tag << " level " << level);
			OneList one({{1, 7}}, level);
			one.plan.tag(one.list, tag);
			const std::vector<char> before = one.plan.write().bytes();
			const Adopted adopted(one.plan, plain_table(2));
			EXPECT_EQ(adopted.image.bytes(), before);
		}
	}
}

TEST(PimRegMergeTag, WithoutATableOnlySynchronisedListsChange)
{
	for (const LevelTag &row : kLevelTags) {
		SCOPED_TRACE(row.level);
		const OneList one({{1, 7}}, row.level);
		const Adopted adopted(one.plan);
		const bool sync = row.level == E_PQLV_SYNC;
		EXPECT_EQ(adopted.image.tag(one.list),
			  sync ? EXTMEM_TAG_REGISTER_SYNC_SETTINGS : EXTMEM_TAG_REGISTER_SETTINGS);
		EXPECT_EQ(adopted.image.pairs(one.list), (Pairs{{1, 7}}));
		EXPECT_EQ(adopted.total(), sync ? 1u : 0u);
	}
}

TEST(PimRegMergeTag, SynchronisedPresetWithoutATableStays)
{
	const OneList one({{1, 7}}, E_PQLV_SYNC, EXTMEM_TAG_IP_PRESET_REG_CONFIG);
	const Adopted adopted(one.plan);
	EXPECT_EQ(adopted.image.tag(one.list), EXTMEM_TAG_REGISTER_SETTINGS);
	EXPECT_EQ(adopted.total(), 0u);
}

TEST(PimRegMergeTag, EveryListOfASettingIsRewritten)
{
	OneList one({{0, 1}}, E_PQLV_OPTION_L2);
	const u16 second = one.plan.list(one.config, {{1, 2}});
	const u16 other = one.plan.config(one.setting, "s#n");
	const u16 third = one.plan.list(other, {{0, 3}, {0, 4}});
	const Adopted adopted(one.plan, plain_table(2));
	for (const u16 list : {one.list, second, third})
		EXPECT_EQ(adopted.image.tag(list), EXTMEM_TAG_REGISTER_ADDR_L2_SETTINGS);
	EXPECT_EQ(adopted.image.pairs(one.list), (Pairs{{0x100, 0xFFFF0001}}));
	EXPECT_EQ(adopted.image.pairs(second), (Pairs{{0x101, 0xFFFF0002}}));
	EXPECT_EQ(adopted.image.pairs(third), (Pairs{{0x100, 0xFFFF0007}, {}}));
	EXPECT_EQ(adopted.image.pair_count(third), 1u);
}

TEST(PimRegMergeTag, EverySynchronisedListIsRetagged)
{
	OneList one({{0, 1}}, E_PQLV_SYNC);
	const u16 second = one.plan.list(one.config, {{1, 2}});
	const u16 third = one.plan.list(one.plan.config(one.setting, "s#n"), {{0, 3}, {0, 4}});
	const Adopted adopted(one.plan);
	for (const u16 list : {one.list, second, third})
		EXPECT_EQ(adopted.image.tag(list), EXTMEM_TAG_REGISTER_SYNC_SETTINGS);
	EXPECT_EQ(adopted.image.pairs(third), (Pairs{{0, 3}, {0, 4}}));
}

TEST(PimRegMergeTag, ConfigurationWithoutALabelIsRewrittenToo)
{
	OneList one({{1, 7}});
	one.plan.next(one.config, kNoId);
	const Adopted adopted(one.plan, plain_table(2));
	EXPECT_EQ(adopted.image.tag(one.list), EXTMEM_TAG_REGISTER_ADDR_SETTINGS);
	EXPECT_EQ(adopted.total(), 1u);
}

TEST(PimRegMergeTag, ListHeldDirectlyByAConfigurationIsNotRead)
{
	OneList one({});
	const u16 list = one.plan.add_list({{1, 7}});
	one.plan.child(one.config, list);
	const Adopted adopted(one.plan, plain_table(2));
	EXPECT_EQ(adopted.image.tag(list), EXTMEM_TAG_REGISTER_SETTINGS);
	EXPECT_EQ(adopted.image.pairs(list), (Pairs{{1, 7}}));
}

TEST(PimRegMergeTag, ListThatTwoConfigurationsShareIsRewrittenOnce)
{
	// Translated twice, index 1 would become register 0x202.
	const RegisterTable table{reg(0, 0, 0, 16, false), reg(0, 2, 0, 16), reg(0, 0x202, 0, 16)};
	OneList one({{1, 7}});
	one.plan.hold(one.plan.config(one.setting, "s#n"), one.list);
	const Adopted adopted(one.plan, table);
	EXPECT_EQ(adopted.image.pairs(one.list), (Pairs{{2, 0xFFFF0007}}));
}

// ---- the level of a setting ----

TEST(PimRegMergeLevel, MissingLevelIsTheDefault)
{
	OneList one({{1, 7}}, E_PQLV_INDIVIDUAL);
	one.plan.next(one.plan.next(one.setting), kNoId);
	const Adopted adopted(one.plan, plain_table(2));
	EXPECT_EQ(adopted.image.tag(one.list), EXTMEM_TAG_REGISTER_ADDR_SETTINGS);
	EXPECT_EQ(adopted.count(0, E_PQLV_DEFAULT), 1u);
	EXPECT_EQ(adopted.total(), 1u);
}

TEST(PimRegMergeLevel, LevelWithoutDataIsTheDefault)
{
	const auto level_node = [](const OneList &one) {
		return one.plan.next(one.plan.next(one.setting));
	};
	const struct {
		const char *what;
		u16 child; // of the level node; 1: its data holder
		u32 size, offset;
	} cases[] = {
		{"no data holder", kNoId, 0, 0},
		{"data holder outside the image", 0x7FFF, 0, 0},
		{"no bytes", 1, 0, 0},
		{"three bytes", 1, 3, 0},
		{"beyond the data", 1, 4, 4096},
		{"end that wraps", 1, 16, 0xFFFFFFF8},
		{"no record", 1, 0xFFFFFFFF, 0xFFFFFFFF},
	};
	for (const auto &row : cases) {
		SCOPED_TRACE(row.what);
		OneList one({{1, 7}}, E_PQLV_INDIVIDUAL);
		const u16 node = level_node(one);
		if (row.child == 1)
			one.plan.record(one.plan.child(node), row.size, row.offset);
		else
			one.plan.child(node, row.child);
		const Adopted adopted(one.plan, plain_table(2));
		EXPECT_EQ(adopted.image.tag(one.list), EXTMEM_TAG_REGISTER_ADDR_SETTINGS);
		EXPECT_EQ(adopted.count(0, E_PQLV_DEFAULT), 1u);
	}
}

TEST(PimRegMergeLevel, FirstFourBytesOfALongerRecordCount)
{
	OneList one({{1, 7}}, E_PQLV_INDIVIDUAL);
	const u32 levels[2] = {E_PQLV_OPTION_L3, E_PQLV_OPTION_L1};
	one.plan.child(one.plan.next(one.plan.next(one.setting)),
		       one.plan.add_value(EXTMEM_TAG_PQLEVEL_HOLDER, levels));
	const Adopted adopted(one.plan, plain_table(2));
	EXPECT_EQ(adopted.image.tag(one.list), EXTMEM_TAG_REGISTER_ADDR_L3_SETTINGS);
}

TEST(PimRegMergeLevel, LevelBeforeTheNameIsFound)
{
	OneList one({{1, 7}}, E_PQLV_INDIVIDUAL);
	const u16 property = one.plan.next(one.setting);
	const u16 level = one.plan.next(property);
	one.plan.next(one.setting, level);
	one.plan.next(level, property);
	one.plan.next(property, kNoId);
	const Adopted adopted(one.plan, plain_table(2));
	EXPECT_EQ(adopted.image.tag(one.list), EXTMEM_TAG_REGISTER_ADDR_IND_SETTINGS);
}

TEST(PimRegMergeLevel, EachSettingHasItsOwn)
{
	OneList one({{1, 7}}, E_PQLV_INDIVIDUAL);
	const u16 other = one.plan.list(
		one.plan.config(one.plan.setting(one.ip, "t", E_PQLV_OPTION_L1), "t#m"), {{1, 7}});
	const Adopted adopted(one.plan, plain_table(2));
	EXPECT_EQ(adopted.image.tag(one.list), EXTMEM_TAG_REGISTER_ADDR_IND_SETTINGS);
	EXPECT_EQ(adopted.image.tag(other), EXTMEM_TAG_REGISTER_ADDR_L1_SETTINGS);
	EXPECT_EQ(adopted.count(0, E_PQLV_INDIVIDUAL), 1u);
	EXPECT_EQ(adopted.count(0, E_PQLV_OPTION_L1), 1u);
	EXPECT_EQ(adopted.total(), 2u);
}

// ---- counters ----

// One register in each domain: row i is in domain i.
RegisterTable one_register_per_domain()
{
	RegisterTable table;
	for (u32 domain = 0; domain < 32; ++domain)
		table.push_back(reg(domain, 0x40, 0, 16));
	return table;
}

Pairs all_indices(u32 count)
{
	Pairs pairs;
	for (u32 i = 0; i < count; ++i)
		pairs.push_back({i, 1});
	return pairs;
}

TEST(PimRegCount, RegistersCountByDomainAndLevel)
{
	for (u32 level = 0; level < E_PQLV_SYNC; ++level) {
		SCOPED_TRACE(level);
		const OneList one(all_indices(32), level);
		const Adopted adopted(one.plan, one_register_per_domain());
		for (u32 domain = 0; domain < kDomains; ++domain)
			EXPECT_EQ(adopted.map->reg_level_num[domain][level], 1) << domain;
		// Domains 16 to 31 have no counter.
		EXPECT_EQ(adopted.total(), kDomains);
		EXPECT_EQ(adopted.map->total_version, (vexil_version{}));
	}
}

TEST(PimRegCount, UnknownLevelIsNotCounted)
{
	for (const u32 level : {8u, 9u, 16u, 0x80000000u, 0xFFFFFFFFu}) {
		SCOPED_TRACE(level);
		const OneList one(all_indices(16), level);
		const Adopted adopted(one.plan, one_register_per_domain());
		EXPECT_EQ(adopted.total(), 0u);
	}
}

TEST(PimRegCount, JoinedPairsCountOnce)
{
	const RegisterTable table{reg(2, 0x40, 0, 8), reg(2, 0x40, 8, 8), reg(2, 0x41, 0, 8)};
	const OneList one({{0, 1}, {1, 2}, {2, 3}});
	const Adopted adopted(one.plan, table);
	EXPECT_EQ(adopted.count(2, E_PQLV_DEFAULT), 2u);
	EXPECT_EQ(adopted.total(), 2u);
}

TEST(PimRegCount, HolesDoNotCount)
{
	RegisterTable table = plain_table(3);
	set_valid_byte(&table[0], 0);
	const OneList one({{0, 1}, {1, 2}});
	const Adopted adopted(one.plan, table);
	EXPECT_EQ(adopted.image.pair_count(one.list), 2u);
	EXPECT_EQ(adopted.total(), 1u);
}

TEST(PimRegCount, UntranslatedIndicesCountInTheDomainOfTheirUpperBits)
{
	const OneList one({{0x00000005, 1},
			   {0x08000005, 1},
			   {0x7FFFFFFF, 1},
			   {0x80000000, 1},
			   {0xFFFFFFFF, 1}});
	const Adopted adopted(one.plan, plain_table(2));
	EXPECT_EQ(adopted.count(0, E_PQLV_DEFAULT), 1u);
	EXPECT_EQ(adopted.count(1, E_PQLV_DEFAULT), 1u);
	EXPECT_EQ(adopted.count(15, E_PQLV_DEFAULT), 1u);
	EXPECT_EQ(adopted.total(), 3u);
}

TEST(PimRegCount, FirstListOfASettingCountsAlone)
{
	OneList one({{0, 1}, {1, 1}}, E_PQLV_PI_SETTING);
	one.plan.list(one.config, {{2, 1}});
	one.plan.list(one.plan.config(one.setting, "s#n"), {{3, 1}});
	const Adopted adopted(one.plan, one_register_per_domain());
	EXPECT_EQ(adopted.map->reg_level_num[0][E_PQLV_PI_SETTING], 1);
	EXPECT_EQ(adopted.map->reg_level_num[1][E_PQLV_PI_SETTING], 1);
	EXPECT_EQ(adopted.total(), 2u);
}

TEST(PimRegCount, SettingsAddUp)
{
	OneList one({{0, 1}, {1, 1}});
	one.plan.list(one.plan.config(one.plan.setting(one.ip, "t", E_PQLV_DEFAULT), "t#m"),
		      {{0, 1}});
	one.plan.list(
		one.plan.config(one.plan.setting(one.plan.ip("b"), "u", E_PQLV_OPTION_L1), "u#m"),
		{{0, 1}});
	const Adopted adopted(one.plan, one_register_per_domain());
	EXPECT_EQ(adopted.count(0, E_PQLV_DEFAULT), 2u);
	EXPECT_EQ(adopted.count(1, E_PQLV_DEFAULT), 1u);
	EXPECT_EQ(adopted.count(0, E_PQLV_OPTION_L1), 1u);
	EXPECT_EQ(adopted.total(), 4u);
}

TEST(PimRegCount, FirstListWithoutRegistersUsesUpTheTurn)
{
	RegisterTable table = plain_table(3);
	set_valid_byte(&table[0], 0);
	OneList one({{0, 1}});
	one.plan.list(one.config, {{1, 1}});
	const Adopted adopted(one.plan, table);
	EXPECT_EQ(adopted.total(), 0u);
}

TEST(PimRegCount, ListsOfOtherKindsLeaveTheTurn)
{
	for (const int tag :
	     {EXTMEM_TAG_VREGISTER_SETTINGS, EXTMEM_TAG_CUS_VREGISTER_SETTINGS,
	      EXTMEM_TAG_REGISTER_RIU_SETTINGS, EXTMEM_TAG_REGISTER_SYNC_SETTINGS,
	      EXTMEM_TAG_PQLEVEL_HOLDER, EXTMEM_TAG_PRESET_HOLDER, EXTMEM_TAG_DATA}) {
		SCOPED_TRACE(tag);
		OneList one({{0, 1}, {1, 1}});
		one.plan.tag(one.list, tag);
		one.plan.list(one.config, {{2, 1}});
		const Adopted adopted(one.plan, one_register_per_domain());
		EXPECT_EQ(adopted.count(2, E_PQLV_DEFAULT), 1u);
		EXPECT_EQ(adopted.total(), 1u);
	}
}

TEST(PimRegCount, CommonConfigurationLeavesTheTurn)
{
	PimImage plan;
	const u16 setting = plan.setting(plan.ip("a"), "s", E_PQLV_DEFAULT);
	plan.list(plan.config(setting, "s#commonReg", EXTMEM_TAG_IP_COMMON_REG_CONFIG),
		  {{0, 1}, {1, 1}}, EXTMEM_TAG_REGISTER_RIU_SETTINGS);
	plan.list(plan.config(setting, "s#m"), {{2, 1}});
	const Adopted adopted(plan, one_register_per_domain());
	EXPECT_EQ(adopted.count(2, E_PQLV_DEFAULT), 1u);
	EXPECT_EQ(adopted.total(), 1u);
}

TEST(PimRegCount, AddressListsCountAtTheLevelOfTheirSetting)
{
	for (const int tag :
	     {EXTMEM_TAG_REGISTER_ADDR_SETTINGS, EXTMEM_TAG_REGISTER_ADDR_IND_SETTINGS,
	      EXTMEM_TAG_REGISTER_ADDR_PI_SETTINGS, EXTMEM_TAG_REGISTER_ADDR_L1_SETTINGS,
	      EXTMEM_TAG_REGISTER_ADDR_L2_SETTINGS, EXTMEM_TAG_REGISTER_ADDR_L3_SETTINGS}) {
		for (u32 level = 0; level < kLevels; ++level) {
			SCOPED_TRACE(testing::Message() << "tag " << tag << " level " << level);
			OneList one({{0x08000040, 1}, {0, 1}, {0x78000040, 1}, {0x80000000, 1}},
				    level);
			one.plan.tag(one.list, tag);
			const Adopted adopted(one.plan, plain_table(2));
			EXPECT_EQ(adopted.count(1, level), 1u);
			EXPECT_EQ(adopted.count(15, level), 1u);
			EXPECT_EQ(adopted.total(), 2u);
			const Adopted without_table(one.plan);
			EXPECT_EQ(without_table.total(), 0u);
		}
	}
}

TEST(PimRegCount, FirstOfRegistersAndAddressesCounts)
{
	OneList one({{3, 1}});
	one.plan.list(one.config, {{0x08000040, 1}}, EXTMEM_TAG_REGISTER_ADDR_SETTINGS);
	const Adopted registers_first(one.plan, one_register_per_domain());
	EXPECT_EQ(registers_first.count(3, E_PQLV_DEFAULT), 1u);
	EXPECT_EQ(registers_first.total(), 1u);

	OneList other({{0x08000040, 1}});
	other.plan.tag(other.list, EXTMEM_TAG_REGISTER_ADDR_SETTINGS);
	other.plan.list(other.config, {{3, 1}});
	const Adopted addresses_first(other.plan, one_register_per_domain());
	EXPECT_EQ(addresses_first.count(1, E_PQLV_DEFAULT), 1u);
	EXPECT_EQ(addresses_first.total(), 1u);
}

TEST(PimRegCount, SynchronisedListsCountByFunctionPosition)
{
	const OneList one({{0, 1}, {1, 1}, {1, 2}, {0x08000001, 1}, {0x80000001, 1}}, E_PQLV_SYNC);
	for (const RegisterTable &table : {RegisterTable{}, one_register_per_domain()}) {
		const Adopted adopted(one.plan, table);
		EXPECT_EQ(adopted.count(0, E_PQLV_SYNC), 2u);
		EXPECT_EQ(adopted.count(1, E_PQLV_SYNC), 1u);
		EXPECT_EQ(adopted.total(), 3u);
	}
}

TEST(PimRegCount, OneSynchronisedListOfASettingCounts)
{
	OneList one({{1, 1}}, E_PQLV_SYNC);
	one.plan.list(one.config, {{2, 1}, {3, 1}});
	one.plan.list(one.config, {{0x08000040, 1}}, EXTMEM_TAG_REGISTER_ADDR_SETTINGS);
	one.plan.list(one.plan.config(one.setting, "s#n"), {{4, 1}, {5, 1}});
	const Adopted adopted(one.plan, plain_table(2));
	EXPECT_EQ(adopted.count(0, E_PQLV_SYNC), 1u);
	EXPECT_EQ(adopted.total(), 1u);
}

TEST(PimRegCount, SynchronisedPresetIsRewrittenButNotCounted)
{
	const OneList one({{1, 7}}, E_PQLV_SYNC, EXTMEM_TAG_IP_PRESET_REG_CONFIG);
	const Adopted adopted(one.plan, plain_table(2));
	EXPECT_EQ(adopted.image.tag(one.list), EXTMEM_TAG_REGISTER_SYNC_SETTINGS);
	EXPECT_EQ(adopted.total(), 0u);
}

TEST(PimRegCount, PresetsCountAtTheirLevel)
{
	const OneList one({{4, 7}}, E_PQLV_PRESETREGS, EXTMEM_TAG_IP_PRESET_REG_CONFIG);
	const Adopted adopted(one.plan, one_register_per_domain());
	EXPECT_EQ(adopted.count(4, E_PQLV_PRESETREGS), 1u);
	EXPECT_EQ(adopted.total(), 1u);
}

TEST(PimRegCount, CountersStopAtTheirLargestValue)
{
	constexpr u32 kRegisters = 70000;
	Pairs pairs;
	for (u32 i = 0; i < kRegisters; ++i) {
		pairs.push_back({0x08000000 + i, 0});
		pairs.push_back({0x10000000 + i, 0});
	}
	const OneList one(pairs, E_PQLV_SYNC);
	const Adopted adopted(one.plan);
	EXPECT_EQ(adopted.map->reg_level_num[1][E_PQLV_SYNC], 0xFFFF);
	EXPECT_EQ(adopted.map->reg_level_num[2][E_PQLV_SYNC], 0xFFFF);
	EXPECT_EQ(adopted.total(), 2u * 0xFFFF);

	OneList by_address(pairs);
	by_address.plan.tag(by_address.list, EXTMEM_TAG_REGISTER_ADDR_SETTINGS);
	const Adopted with_table(by_address.plan, plain_table(1));
	EXPECT_EQ(with_table.map->reg_level_num[1][E_PQLV_DEFAULT], 0xFFFF);
	EXPECT_EQ(with_table.map->reg_level_num[2][E_PQLV_DEFAULT], 0xFFFF);
}

// ---- adopted again ----

TEST(PimRegMergeAgain, AddressFormStaysAndCountsAsBefore)
{
	OneList one({{0, 1}, {0, 2}, {1, 3}}, E_PQLV_OPTION_L3);
	const u16 sync = one.plan.list(
		one.plan.config(one.plan.setting(one.ip, "t", E_PQLV_SYNC), "t#m"), {{1, 7}});
	const RegisterTable table{reg(0, 1, 0, 16), reg(5, 0, 0, 16)};
	ImageBytes image = one.plan.write();
	Map first;
	ASSERT_TRUE(adopt(first, image, table));
	const std::vector<char> rewritten = image.bytes();
	EXPECT_EQ(image.pairs(one.list), (Pairs{{1, 0xFFFF0003}, {0x28000000, 0xFFFF0003}, {}}));
	Map second;
	ASSERT_TRUE(adopt(second, image, table));
	EXPECT_EQ(image.bytes(), rewritten);
	EXPECT_EQ(std::memcmp(first->reg_level_num, second->reg_level_num,
			      sizeof(pim::reg_level_num)),
		  0);
	EXPECT_EQ(second->reg_level_num[0][E_PQLV_OPTION_L3], 1);
	EXPECT_EQ(second->reg_level_num[5][E_PQLV_OPTION_L3], 1);
	EXPECT_EQ(second->reg_level_num[0][E_PQLV_SYNC], 1);
	EXPECT_EQ(image.tag(sync), EXTMEM_TAG_REGISTER_SYNC_SETTINGS);
}

TEST(PimRegMergeAgain, WithoutATableOnlySynchronisedListsCount)
{
	OneList one({{0, 1}}, E_PQLV_OPTION_L3);
	one.plan.list(one.plan.config(one.plan.setting(one.ip, "t", E_PQLV_SYNC), "t#m"), {{1, 7}});
	ImageBytes image = one.plan.write();
	Map first;
	ASSERT_TRUE(adopt(first, image, plain_table(2)));
	Map second;
	ASSERT_TRUE(adopt(second, image));
	EXPECT_EQ(pim_get_reg_num(second.get(), E_PQ_MAX_DOMAIN, E_PQLV_MAX), 1u);
	EXPECT_EQ(second->reg_level_num[0][E_PQLV_SYNC], 1);
}

TEST(PimRegMergeAgain, TableMayComeAtTheSecondTime)
{
	const OneList one({{1, 7}}, E_PQLV_OPTION_L3);
	ImageBytes image = one.plan.write();
	Map first;
	ASSERT_TRUE(adopt(first, image));
	EXPECT_EQ(image.tag(one.list), EXTMEM_TAG_REGISTER_SETTINGS);
	Map second;
	ASSERT_TRUE(adopt(second, image, plain_table(2)));
	EXPECT_EQ(image.tag(one.list), EXTMEM_TAG_REGISTER_ADDR_L3_SETTINGS);
	EXPECT_EQ(image.pairs(one.list), (Pairs{{0x101, 0xFFFF0007}}));
}

// ---- damaged lists ----

struct BadList {
	const char *what;
	u32 announced;
	u32 size; // of the record; 0: as long as its three pairs need
	u32 offset;
};

constexpr u32 kThreePairs = 8 + 3 * 8;
constexpr u32 kInPlace = 0; // the list is the first record

const BadList kBadLists[] = {
	{"announcing none", 0, kThreePairs, kInPlace},
	{"announcing one too many", 4, kThreePairs, kInPlace},
	{"announcing as many as its bytes", kThreePairs, kThreePairs, kInPlace},
	{"whose bytes wrap to none", 0x20000000, kThreePairs, kInPlace},
	{"whose bytes wrap with the head", 0x1FFFFFFF, kThreePairs, kInPlace},
	{"whose bytes wrap to what it has", 0x20000003, kThreePairs, kInPlace},
	{"announcing 2^31", 0x80000000, kThreePairs, kInPlace},
	{"announcing the most", 0xFFFFFFFF, kThreePairs, kInPlace},
	{"one byte short", 3, kThreePairs - 1, kInPlace},
	{"of a head alone", 3, 8, kInPlace},
	{"shorter than its head", 1, 7, kInPlace},
	{"of four bytes", 1, 4, kInPlace},
	{"of no bytes", 3, 0, kInPlace},
	{"beyond the data", 3, kThreePairs, 0x10000},
	{"that ends beyond the data", 3, 0x10000, kInPlace},
	{"whose end wraps", 3, kThreePairs, 0xFFFFFFF8},
	{"of the largest size", 3, 0xFFFFFFFF, kInPlace},
	{"without a record", 3, 0xFFFFFFFF, 0xFFFFFFFF},
};

// The bad list comes first, then a good one.
struct TwoLists {
	explicit TwoLists(const BadList &row, u32 level)
	{
		bad = plan.add_record(
			EXTMEM_TAG_REGISTER_SETTINGS,
			PimImage::list_bytes({{0, 1}, {1, 2}, {0, 4}}, row.announced));
		plan.record(bad, row.size, row.offset);
		const u16 config = plan.config(plan.setting(plan.ip("a"), "s", level), "s#m");
		plan.hold(config, bad);
		good = plan.list(config, {{2, 1}});
	}
	PimImage plan;
	u16 bad, good;
};

TEST(PimRegMergeDamaged, ListIsNeitherRewrittenNorCounted)
{
	for (const BadList &row : kBadLists) {
		SCOPED_TRACE(row.what);
		const TwoLists two(row, E_PQLV_DEFAULT);
		const ImageBytes before = two.plan.write();
		const Adopted adopted(two.plan, one_register_per_domain());
		EXPECT_EQ(adopted.image.tag(two.bad), EXTMEM_TAG_REGISTER_SETTINGS);
		for (std::size_t at = 0; at < kThreePairs; at += 4)
			EXPECT_EQ(adopted.image.at<u32>(before.data_at() + at),
				  before.at<u32>(before.data_at() + at));
		EXPECT_EQ(adopted.image.tag(two.good), EXTMEM_TAG_REGISTER_ADDR_SETTINGS);
		EXPECT_EQ(adopted.count(2, E_PQLV_DEFAULT), 1u);
		EXPECT_EQ(adopted.total(), 1u);
	}
}

TEST(PimRegMergeDamaged, SynchronisedListIsRetaggedButNotCounted)
{
	for (const BadList &row : kBadLists) {
		SCOPED_TRACE(row.what);
		const TwoLists two(row, E_PQLV_SYNC);
		const Adopted adopted(two.plan);
		EXPECT_EQ(adopted.image.tag(two.bad), EXTMEM_TAG_REGISTER_SYNC_SETTINGS);
		EXPECT_EQ(adopted.image.tag(two.good), EXTMEM_TAG_REGISTER_SYNC_SETTINGS);
		EXPECT_EQ(adopted.count(0, E_PQLV_SYNC), 1u);
		EXPECT_EQ(adopted.total(), 1u);
	}
}

TEST(PimRegMergeDamaged, AddressListIsNotCounted)
{
	for (const BadList &row : kBadLists) {
		SCOPED_TRACE(row.what);
		TwoLists two(row, E_PQLV_DEFAULT);
		two.plan.tag(two.bad, EXTMEM_TAG_REGISTER_ADDR_SETTINGS);
		const Adopted adopted(two.plan, one_register_per_domain());
		EXPECT_EQ(adopted.image.tag(two.bad), EXTMEM_TAG_REGISTER_ADDR_SETTINGS);
		EXPECT_EQ(adopted.count(2, E_PQLV_DEFAULT), 1u);
		EXPECT_EQ(adopted.total(), 1u);
	}
}

TEST(PimRegMergeDamaged, TreeNodeAsListIsNotRead)
{
	OneList one({{1, 7}});
	const u16 node = one.plan.add(EXTMEM_TAG_FUNCTION_DATA);
	one.plan.child(one.plan.child(one.config), node);
	const Adopted adopted(one.plan, plain_table(2));
	EXPECT_EQ(adopted.total(), 0u);
	EXPECT_EQ(adopted.image.tag(node), EXTMEM_TAG_FUNCTION_DATA);
}

// ---- pim_get_reg_num ----

class PimRegNum : public testing::Test {
protected:
	void SetUp() override
	{
		ASSERT_TRUE(map.init());
		for (u32 domain = 0; domain < kDomains; ++domain)
			for (u32 level = 0; level < kLevels; ++level)
				map->reg_level_num[domain][level] = counter(domain, level);
	}
	// Different for every domain and level, so that no other sum looks the same.
	static u16 counter(u32 domain, u32 level)
	{
		return static_cast<u16>(domain * 301 + level * 17 + 1);
	}
	[[nodiscard]] u32 number(u32 domain, u32 level) const
	{
		return pim_get_reg_num(map.get(), static_cast<u8>(domain),
				       static_cast<EN_PQ_LEVEL>(level));
	}

	Map map;
};

TEST_F(PimRegNum, OfOneDomainAndLevel)
{
	for (u32 domain = 0; domain < kDomains; ++domain)
		for (u32 level = 0; level < kLevels; ++level)
			EXPECT_EQ(number(domain, level), counter(domain, level));
}

TEST_F(PimRegNum, OfAllLevelsOfADomain)
{
	for (u32 domain = 0; domain < kDomains; ++domain) {
		u32 sum = 0;
		for (u32 level = 0; level < kLevels; ++level)
			sum += counter(domain, level);
		EXPECT_EQ(number(domain, E_PQLV_MAX), sum);
	}
}

TEST_F(PimRegNum, OfAllDomainsAtALevel)
{
	for (u32 level = 0; level < kLevels; ++level) {
		u32 sum = 0;
		for (u32 domain = 0; domain < kDomains; ++domain)
			sum += counter(domain, level);
		EXPECT_EQ(number(E_PQ_MAX_DOMAIN, level), sum);
	}
}

TEST_F(PimRegNum, OfAll128CountersIsA32BitSum)
{
	std::memset(map->reg_level_num, 0xFF, sizeof map->reg_level_num);
	EXPECT_EQ(number(E_PQ_MAX_DOMAIN, E_PQLV_MAX), 128u * 0xFFFF);
}

TEST_F(PimRegNum, BeyondTheLastDomainIsNone)
{
	for (const u32 domain : {17u, 18u, 128u, 255u}) {
		EXPECT_EQ(number(domain, E_PQLV_DEFAULT), 0u);
		EXPECT_EQ(number(domain, E_PQLV_MAX), 0u);
	}
}

TEST_F(PimRegNum, BeyondTheLastLevelIsNone)
{
	for (const u32 level : {9u, 10u, 15u, 16u, 1000u, 0xFFFFFFFFu}) {
		EXPECT_EQ(number(0, level), 0u);
		EXPECT_EQ(number(E_PQ_MAX_DOMAIN, level), 0u);
	}
}

TEST_F(PimRegNum, WithoutAMapIsNone)
{
	EXPECT_EQ(pim_get_reg_num(nullptr, 0, E_PQLV_INDIVIDUAL), 0u);
	EXPECT_EQ(pim_get_reg_num(nullptr, E_PQ_MAX_DOMAIN, E_PQLV_MAX), 0u);
}

TEST(PimRegNumBuilt, OfAMapThatWasNeverAdoptedIsNone)
{
	Map map;
	const RegisterTable table = plain_table(4);
	ASSERT_TRUE(pim_init(map.out(), nullptr, 0, table.data(), table.size()));
	EXPECT_EQ(pim_get_reg_num(map.get(), E_PQ_MAX_DOMAIN, E_PQLV_MAX), 0u);
}

} // namespace
