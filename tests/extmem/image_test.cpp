// SPDX-License-Identifier: MIT
//
// Export of images and their adoption in place.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "extmem/extmem.h"
#include "extmem/layout.h"
#include "tests/support/platform.h"
#include "tests/support/stores.h"

namespace {

using namespace vexil_test;

constexpr size_t kHeaderSize = 88;
constexpr size_t kNodesAt = 96;
constexpr size_t kOverhead = 104;
constexpr size_t kFreshImageSize = 2152; // two buffers of 1024 bytes

u32 word_at(const Bytes &bytes, size_t at)
{
	return static_cast<u32>(bytes[at]) | static_cast<u32>(bytes[at + 1]) << 8 |
	       static_cast<u32>(bytes[at + 2]) << 16 | static_cast<u32>(bytes[at + 3]) << 24;
}

extmem_buffer_header some_header()
{
	extmem_buffer_header header{};
	header.total_version = {0x0101, 0x0202, 0x03030303};
	header.rl_json_version = {0x0404, 0x0505, 0x06060606};
	header.hw_json_version = {0x0707, 0x0808, 0x09090909};
	header.sw_json_version = {0x0A0A, 0x0B0B, 0x0C0C0C0C};
	header.cus_sw_json_version = {0x0D0D, 0x0E0E, 0x0F0F0F0F};
	for (size_t i = 0; i < sizeof header.cus_version; ++i)
		header.cus_version[i] = static_cast<char>(0x40 + i);
	header.codeVersion = {0x1111, 0x2222, 0x33333333};
	header.binType = 0x4444;
	header.chipID = 0x5555;
	header.binSize = 0x66666666;
	return header;
}

bool same(const extmem_buffer_header &a, const extmem_buffer_header &b)
{
	return std::memcmp(&a, &b, sizeof a) == 0;
}

// ---- layout ----

TEST(ExtmemHeader, HasTheLayoutOfImages)
{
	EXPECT_EQ(sizeof(extmem_buffer_header), kHeaderSize);
	EXPECT_EQ(alignof(extmem_buffer_header), 4u);
	EXPECT_EQ(offsetof(extmem_buffer_header, total_version), 0u);
	EXPECT_EQ(offsetof(extmem_buffer_header, rl_json_version), 8u);
	EXPECT_EQ(offsetof(extmem_buffer_header, hw_json_version), 16u);
	EXPECT_EQ(offsetof(extmem_buffer_header, sw_json_version), 24u);
	EXPECT_EQ(offsetof(extmem_buffer_header, cus_sw_json_version), 32u);
	EXPECT_EQ(offsetof(extmem_buffer_header, cus_version), 40u);
	EXPECT_EQ(sizeof(extmem_buffer_header::cus_version), 32u);
	EXPECT_EQ(offsetof(extmem_buffer_header, codeVersion), 72u);
	EXPECT_EQ(offsetof(extmem_buffer_header, binType), 80u);
	EXPECT_EQ(offsetof(extmem_buffer_header, chipID), 82u);
	EXPECT_EQ(offsetof(extmem_buffer_header, binSize), 84u);
	EXPECT_EQ(sizeof(extmem_buffer_ctx_compact), 8u);
	EXPECT_EQ(offsetof(extmem_buffer_ctx_compact, buf_used), 0u);
	EXPECT_EQ(offsetof(extmem_buffer_ctx_compact, buf_max), 4u);
	EXPECT_EQ(sizeof(vexil_version), 8u);
}

// ---- export ----

TEST(ExtmemExport, SizeIsBothCapacitiesAndOneHundredFour)
{
	Store store;
	EXPECT_EQ(extmem_builder_get_export_size(store), kFreshImageSize);
	store.fill(65);
	EXPECT_EQ(extmem_builder_get_export_size(store), kOverhead + 2048 + 1024);
	extmem_request_data(store, 5000);
	EXPECT_EQ(extmem_builder_get_export_size(store), kOverhead + 2048 + 8192);
	EXPECT_EQ(extmem_builder_get_export_size(nullptr), 0u);
}

TEST(ExtmemExport, FreshStoreGivesExactlyItsSize)
{
	Store store;
	Bytes image(kFreshImageSize + 8, 0xEE);
	EXPECT_EQ(extmem_builder_export(store, image_of(image)), kFreshImageSize);
	EXPECT_EQ(word_at(image, 84), kFreshImageSize);
	EXPECT_EQ(store->header.binSize, kFreshImageSize);
	EXPECT_EQ(Bytes(image.end() - 8, image.end()), Bytes(8, 0xEE)) << "written past the image";
}

TEST(ExtmemExport, WritesHeaderNodesAndDataWithTheirFreeParts)
{
	Store store;
	store->header = some_header();
	store.add(EXTMEM_TAG_GENERAL);
	store.holder(EXTMEM_TAG_STRING_HOLDER, text_bytes("name"));
	ASSERT_TRUE(extmem_append_child(store.at(0), store.at(1)));

	extmem_buffer_header header = some_header();
	header.binSize = kFreshImageSize;
	Bytes expected(sizeof header);
	std::memcpy(expected.data(), &header, sizeof header);
	append<u32>(expected, 32);
	append<u32>(expected, 1024);
	expected = joined({expected, tree_node(0, 1, 1), data_node(1, 35, 5, 0), Bytes(1024 - 32)});
	append<u32>(expected, 8);
	append<u32>(expected, 1024);
	expected = joined({expected, text_bytes("name"), Bytes(1024 - 5)});

	EXPECT_EQ(exported(store), expected);
}

TEST(ExtmemExport, HeaderIsLittleEndian)
{
	Store store;
	store->header.total_version = {0x0102, 0x0304, 0x05060708};
	store->header.chipID = 0x0A0B;
	store->header.binType = 2;
	const Bytes image = exported(store);
	EXPECT_EQ(Bytes(image.begin(), image.begin() + 8), (Bytes{2, 1, 4, 3, 8, 7, 6, 5}));
	EXPECT_EQ(Bytes(image.begin() + 80, image.begin() + 84), (Bytes{2, 0, 0x0B, 0x0A}));
}

TEST(ExtmemExport, TwiceGivesTheSameBytes)
{
	Store store;
	store.fill(70);
	store.holder(EXTMEM_TAG_DATA, Bytes(2000, 3));
	const Bytes first = exported(store);
	EXPECT_EQ(exported(store), first);
}

TEST(ExtmemExport, FreshStoreHoldsNothingOfTheMemoryItCameFrom)
{
	extmem_builder store;
	std::memset(static_cast<void *>(&store), 0x01, sizeof store);
	ASSERT_TRUE(extmem_builder_init(&store, nullptr, 0));
	const Bytes image = exported(&store);
	extmem_builder_destroy(&store);
	Bytes expected(kFreshImageSize);
	const Bytes size = little_endian<u32>({kFreshImageSize});
	const Bytes capacity = little_endian<u32>({0, 1024});
	std::copy(size.begin(), size.end(), expected.begin() + 84);
	std::copy(capacity.begin(), capacity.end(), expected.begin() + kHeaderSize);
	std::copy(capacity.begin(), capacity.end(), expected.begin() + kNodesAt + 1024);
	EXPECT_EQ(image, expected);
}

TEST(ExtmemExport, WithoutTargetIsNoMemory)
{
	Store store;
	store->header.binSize = 77;
	EXPECT_EQ(extmem_builder_export(store, nullptr), 0u);
	EXPECT_EQ(store->err_code, EXTMEM_NOMEM);
	EXPECT_EQ(store->header.binSize, 77u);
}

TEST(ExtmemExport, WithoutStoreIsNothing)
{
	Bytes image(kFreshImageSize, 0xEE);
	EXPECT_EQ(extmem_builder_export(nullptr, image_of(image)), 0u);
	EXPECT_EQ(extmem_builder_export(nullptr, nullptr), 0u);
	EXPECT_EQ(image, Bytes(kFreshImageSize, 0xEE));
}

// Only claims such capacities: nothing may be copied.
TEST(ExtmemExport, BeyondFourGigabytesIsRefused)
{
	constexpr size_t kFourGigabytes = size_t{1} << 32;
	struct {
		size_t nodes, data;
	} const rows[] = {
		{1024, kFourGigabytes - kOverhead - 1024},
		{kFourGigabytes - kOverhead - 1024, 1024},
		{kFourGigabytes, 1024},
		{1024, 8 * kFourGigabytes},
		{kFourGigabytes / 2, kFourGigabytes / 2},
	};
	for (const auto &row : rows) {
		Store store;
		const extmem_buffer_ctx nodes = store->node_buffer;
		const extmem_buffer_ctx data = store->data_buffer;
		store->node_buffer.buf_max = row.nodes;
		store->data_buffer.buf_max = row.data;
		Bytes image(kFreshImageSize, 0xEE);
		EXPECT_EQ(extmem_builder_get_export_size(store), row.nodes + row.data + kOverhead);
		EXPECT_EQ(extmem_builder_export(store, image_of(image)), 0u);
		EXPECT_EQ(store->err_code, EXTMEM_INTERNAL_ERROR);
		EXPECT_EQ(image, Bytes(kFreshImageSize, 0xEE));
		store->node_buffer = nodes;
		store->data_buffer = data;
	}
}

// ---- adoption ----

/** Two nodes in a buffer of three, one record in a buffer of 24 bytes. */
HandImage sound_image()
{
	HandImage image(joined({tree_node(0, 1, 1), data_node(1, 35, 5, 0), Bytes(16)}),
			joined({text_bytes("name"), Bytes(19)}));
	image.header = some_header();
	image.nodes_used = 32;
	image.data_used = 8;
	return image;
}

class ExtmemAdopt : public testing::Test {
protected:
	ExtmemAdopt() : store_(blank_builder()) {}
	~ExtmemAdopt() override { extmem_builder_destroy(&store_); }

	bool adopt(Bytes bytes) { return adopt(std::move(bytes), std::string::npos); }
	/** @size: what the store is told, of an image that may be longer or shorter. */
	bool adopt(Bytes bytes, size_t size)
	{
		image_ = std::move(bytes);
		return extmem_builder_init(
			&store_, image_of(image_),
			static_cast<u32>(size == std::string::npos ? image_.size() : size));
	}
	void expect_empty_buffers() const
	{
		for (const extmem_buffer_ctx *buffer : {&store_.node_buffer, &store_.data_buffer}) {
			EXPECT_EQ(buffer->buf, nullptr);
			EXPECT_EQ(buffer->buf_used, 0u);
			EXPECT_EQ(buffer->buf_max, 0u);
		}
	}

	extmem_builder store_;
	Bytes image_;
};

using ExtmemRefusedImage = ExtmemAdopt;

TEST_F(ExtmemAdopt, PointsIntoTheImage)
{
	store_.err_code = EXTMEM_NOMEM;
	ASSERT_TRUE(adopt(sound_image().bytes()));
	EXPECT_EQ(store_.node_buffer.buf, image_.data() + kNodesAt);
	EXPECT_EQ(store_.node_buffer.buf_used, 32u);
	EXPECT_EQ(store_.node_buffer.buf_max, 48u);
	EXPECT_EQ(store_.data_buffer.buf, image_.data() + kOverhead + 48);
	EXPECT_EQ(store_.data_buffer.buf_used, 8u);
	EXPECT_EQ(store_.data_buffer.buf_max, 24u);
	EXPECT_FALSE(store_.malloc_flag);
	EXPECT_EQ(store_.err_code, EXTMEM_SUCCESS);
	EXPECT_EQ(allocations(), 0u);
}

TEST_F(ExtmemAdopt, TakesOverTheHeaderUnchecked)
{
	ASSERT_TRUE(adopt(sound_image().bytes()));
	EXPECT_TRUE(same(store_.header, some_header())) << "sizes, versions, chip and kind are any";
}

TEST_F(ExtmemAdopt, SetsTheHooks)
{
	ASSERT_TRUE(adopt(sound_image().bytes()));
	EXPECT_EQ(store_.allocate, &ALLOC);
	EXPECT_EQ(store_.deallocate, &DEALLOC);
	EXPECT_EQ(store_.reallocate, &REALLOC);
	EXPECT_EQ(store_.print, &_printk);
	EXPECT_EQ(store_.print_error, &_printk);
}

TEST_F(ExtmemAdopt, LeavesTheImageAsItIs)
{
	const Bytes before = sound_image().bytes();
	ASSERT_TRUE(adopt(before));
	EXPECT_EQ(extmem_builder_destroy(&store_), true);
	EXPECT_EQ(image_, before);
}

TEST_F(ExtmemAdopt, GivesTheNodesAndDataOfTheExportedStore)
{
	Store original;
	for (int tag = 0; tag < 100; ++tag)
		original.add(tag % 33);
	for (size_t i = 1; i < 100; ++i)
		ASSERT_TRUE(extmem_append_next(original.at(i - 1), original.at(i)));
	ASSERT_TRUE(extmem_append_child(original.at(0), original.at(50)));
	const node_d text = original.holder(EXTMEM_TAG_STRING_HOLDER, text_bytes("some name"));
	original.holder(EXTMEM_TAG_DATA, Bytes(3000, 9));
	original->header = some_header();

	ASSERT_TRUE(adopt(exported(original)));
	EXPECT_EQ(used_bytes(store_.node_buffer), used_bytes(original->node_buffer));
	EXPECT_EQ(used_bytes(store_.data_buffer), used_bytes(original->data_buffer));
	EXPECT_EQ(store_.node_buffer.buf_max, original->node_buffer.buf_max);
	EXPECT_EQ(store_.data_buffer.buf_max, original->data_buffer.buf_max);
	EXPECT_TRUE(same(store_.header, original->header));
	EXPECT_STREQ(static_cast<const char *>(
			     extmem_fetch_data(extmem_copy_from_node({text.id, &store_}))),
		     "some name");
}

TEST_F(ExtmemAdopt, ExportsTheSameBytesAgain)
{
	Store original;
	original.fill(80);
	original.holder(EXTMEM_TAG_DATA, Bytes(1500, 9));
	original->header = some_header();
	const Bytes image = exported(original);
	ASSERT_TRUE(adopt(image));
	EXPECT_EQ(exported(&store_), image);
}

TEST_F(ExtmemAdopt, WorksAtAnyAddress)
{
	for (size_t shift = 1; shift < 8; ++shift) {
		Bytes bytes = sound_image().bytes();
		const auto size = static_cast<u32>(bytes.size());
		bytes.insert(bytes.begin(), shift, 0x99);
		extmem_builder store = blank_builder();
		ASSERT_TRUE(extmem_builder_init(&store, image_of(bytes) + shift, size)) << shift;
		EXPECT_EQ(extmem_get_child({0, &store}), (node_d{1, &store}));
		EXPECT_STREQ(static_cast<const char *>(
				     extmem_fetch_data(extmem_copy_from_node({1, &store}))),
			     "name");
		extmem_builder_destroy(&store);
	}
}

TEST_F(ExtmemAdopt, FullBuffersAreSound)
{
	HandImage image = sound_image();
	image.nodes_used = 48;
	image.data_used = 24;
	EXPECT_TRUE(adopt(image.bytes()));
	EXPECT_EQ(store_.node_buffer.buf_used, 48u);
	EXPECT_EQ(store_.data_buffer.buf_used, 24u);
}

TEST_F(ExtmemAdopt, EmptyBuffersAreSound)
{
	HandImage image = sound_image();
	image.nodes_used = 0;
	image.data_used = 0;
	EXPECT_TRUE(adopt(image.bytes()));
	EXPECT_FALSE(extmem_node_isvalid({0, &store_}));
}

TEST_F(ExtmemAdopt, DeclaredDataMayBeMoreThanTheImageHolds)
{
	HandImage image = sound_image();
	image.data_max = 0xFFFFFFFF;
	EXPECT_TRUE(adopt(image.bytes(), kOverhead + 48));
	EXPECT_EQ(store_.data_buffer.buf, image_.data() + kOverhead + 48);
	EXPECT_EQ(store_.data_buffer.buf_used, 8u);
	EXPECT_EQ(store_.data_buffer.buf_max, 0xFFFFFFFFu);
}

TEST_F(ExtmemAdopt, DataThatIsNotThereIsClampedAway)
{
	struct {
		const char *name;
		u32 declared_used, declared_max;
		size_t there;
		size_t used, max;
	} const rows[] = {
		{"all there", 8, 24, 24, 8, 24},
		{"free bytes missing", 8, 24, 8, 8, 8},
		{"used bytes missing", 8, 24, 7, 7, 7},
		{"nothing there", 8, 24, 0, 0, 0},
		{"four gigabytes declared", 0xFFFFFFFF, 0xFFFFFFFF, 24, 24, 24},
		{"more there than declared", 8, 16, 24, 8, 16},
	};
	for (const auto &row : rows) {
		HandImage image = sound_image();
		image.data_used = row.declared_used;
		image.data_max = row.declared_max;
		const size_t size = kOverhead + 48 + row.there;
		ASSERT_TRUE(adopt(image.bytes(), size)) << row.name;
		vexil::clamp_data(&store_, static_cast<u32>(size));
		EXPECT_EQ(store_.data_buffer.buf_used, row.used) << row.name;
		EXPECT_EQ(store_.data_buffer.buf_max, row.max) << row.name;
		EXPECT_EQ(store_.data_buffer.buf, image_.data() + kOverhead + 48);
		EXPECT_EQ(store_.node_buffer.buf_used, 32u);
		EXPECT_EQ(extmem_fetch_data({0, 8, &store_}) != nullptr, row.used >= 8) << row.name;
		store_ = blank_builder();
	}
}

// ---- heads of images ----

TEST(ExtmemHeader, IsOfItsKindAndOfAVersionThatCanBeRead)
{
	struct {
		u16 kind, major, minor;
		bool map;
	} const rows[] = {
		{1, 2, 0, true},  {1, 2, 1, true},      {1, 2, 2, true},  {1, 2, 3, false},
		{1, 3, 0, false}, {1, 1, 2, false},     {1, 0, 0, false}, {2, 2, 2, false},
		{0, 2, 2, false}, {1, 2, 65535, false}, {257, 2, 2, false},
	};
	for (const auto &row : rows) {
		extmem_buffer_header header{};
		header.binType = row.kind;
		header.codeVersion = {row.major, row.minor, 0xFFFFFFFF};
		EXPECT_EQ(vexil::is_image_of(&header, vexil::kPimImageKind), row.map)
			<< row.kind << ", " << row.major << '.' << row.minor;
	}
	extmem_buffer_header rules{};
	rules.binType = 2;
	rules.codeVersion = {2, 2, 2};
	EXPECT_TRUE(vexil::is_image_of(&rules, vexil::kRuleImageKind));
	EXPECT_FALSE(vexil::is_image_of(nullptr, vexil::kPimImageKind));
}

TEST(ExtmemHeader, IsFilledAnewExceptForTheChip)
{
	extmem_buffer_header header = some_header();
	char text[32] = "customer";
	vexil::fill_header(&header, vexil::kRuleImageKind, {1, 2, 3}, text);
	extmem_buffer_header expected{};
	expected.total_version = {1, 2, 3};
	std::strcpy(expected.cus_version, "customer");
	expected.codeVersion = {2, 2, 2};
	expected.binType = 2;
	expected.chipID = 0x5555;
	EXPECT_TRUE(same(header, expected));
}

// ---- adoption by a store that was used before ----

TEST_F(ExtmemAdopt, OwnedBuffersAreGivenBack)
{
	ASSERT_TRUE(extmem_builder_init(&store_, nullptr, 0));
	extmem_request_node(&store_, EXTMEM_TAG_GENERAL);
	Store original;
	original.fill(64);
	ASSERT_TRUE(adopt(exported(original)));
	EXPECT_EQ(live_blocks(), 2u) << "those of the other store";
	EXPECT_FALSE(store_.malloc_flag);
	EXPECT_EQ(store_.node_buffer.buf, image_.data() + kNodesAt);
}

TEST_F(ExtmemAdopt, OneImageAfterAnother)
{
	ASSERT_TRUE(adopt(sound_image().bytes()));
	Bytes second = sound_image().bytes();
	ASSERT_TRUE(extmem_builder_init(&store_, image_of(second), static_cast<u32>(second.size())));
	EXPECT_EQ(store_.node_buffer.buf, second.data() + kNodesAt);
}

TEST_F(ExtmemAdopt, NodeCapacityHeldBeforeMustFitTheImage)
{
	const Bytes image = sound_image().bytes();
	const size_t limit = image.size() - kNodesAt;
	for (const size_t held : {limit, limit + 1}) {
		store_ = blank_builder();
		store_.node_buffer.buf_max = held;
		EXPECT_EQ(adopt(image), held == limit) << held;
		EXPECT_EQ(store_.err_code, held == limit ? EXTMEM_SUCCESS : EXTMEM_INTERNAL_ERROR);
	}
	expect_empty_buffers();
}

TEST_F(ExtmemAdopt, DataCapacityHeldBeforeMustFitTheImage)
{
	const Bytes image = sound_image().bytes();
	const size_t limit = image.size() - kOverhead - 48;
	for (const size_t held : {limit, limit + 1}) {
		store_ = blank_builder();
		store_.data_buffer.buf_max = held;
		EXPECT_EQ(adopt(image), held == limit) << held;
		EXPECT_EQ(store_.err_code, held == limit ? EXTMEM_SUCCESS : EXTMEM_INTERNAL_ERROR);
	}
	expect_empty_buffers();
}

TEST_F(ExtmemAdopt, SmallImageIsRefusedByAStoreThatHeldLargeBuffers)
{
	ASSERT_TRUE(extmem_builder_init(&store_, nullptr, 0));
	EXPECT_FALSE(adopt(sound_image().bytes()));
	EXPECT_EQ(store_.err_code, EXTMEM_INTERNAL_ERROR);
	EXPECT_EQ(live_blocks(), 0u);
	expect_empty_buffers();
}

// ---- refused images ----

TEST_F(ExtmemRefusedImage, ShorterThanTheHeaderHasNoCode)
{
	const Bytes image = sound_image().bytes();
	for (const size_t size : {1u, 8u, 87u}) {
		store_ = blank_builder();
		store_.header = extmem_buffer_header{};
		store_.err_code = EXTMEM_OUT_OF_RANGE;
		EXPECT_FALSE(adopt(Bytes(image.begin(), image.begin() + static_cast<long>(size))))
			<< size;
		EXPECT_EQ(store_.err_code, EXTMEM_OUT_OF_RANGE) << size;
		EXPECT_TRUE(same(store_.header, extmem_buffer_header{})) << "header is not read";
		expect_empty_buffers();
	}
}

TEST_F(ExtmemRefusedImage, ShorterThanTheFiguresOfTheNodesHasNoCode)
{
	const Bytes image = sound_image().bytes();
	for (const size_t size : {88u, 95u}) {
		store_ = blank_builder();
		store_.err_code = EXTMEM_OUT_OF_RANGE;
		EXPECT_FALSE(adopt(Bytes(image.begin(), image.begin() + static_cast<long>(size))))
			<< size;
		EXPECT_EQ(store_.err_code, EXTMEM_OUT_OF_RANGE) << size;
		EXPECT_TRUE(same(store_.header, some_header())) << "header stays";
		expect_empty_buffers();
	}
}

TEST_F(ExtmemRefusedImage, ShorterThanItsNodesHasNoCode)
{
	const Bytes image = sound_image().bytes();
	for (const size_t size : {kNodesAt, kOverhead + 47}) {
		store_ = blank_builder();
		EXPECT_FALSE(adopt(Bytes(image.begin(), image.begin() + static_cast<long>(size))))
			<< size;
		EXPECT_EQ(store_.err_code, EXTMEM_SUCCESS) << size;
		expect_empty_buffers();
	}
}

TEST_F(ExtmemRefusedImage, node_capacity_wraps)
{
	for (const u32 capacity : {0xFFFFFFFFu, 0xFFFFFFF8u, 0xFFFFFF98u, 0xFFFFFFA0u, 0x80000000u}) {
		HandImage image = sound_image();
		image.nodes_max = capacity;
		store_ = blank_builder();
		EXPECT_FALSE(adopt(image.bytes())) << capacity;
		EXPECT_EQ(store_.err_code, EXTMEM_SUCCESS) << capacity;
		expect_empty_buffers();
	}
}

TEST_F(ExtmemRefusedImage, node_capacity_zero)
{
	HandImage image = sound_image();
	image.nodes_used = image.nodes_max = 0;
	EXPECT_FALSE(adopt(image.bytes()));
	EXPECT_EQ(store_.err_code, EXTMEM_INTERNAL_ERROR);
	EXPECT_TRUE(same(store_.header, some_header())) << "header stays";
	expect_empty_buffers();
}

TEST_F(ExtmemRefusedImage, nodes_used_beyond_their_capacity)
{
	for (const u32 used : {49u, 64u, 0xFFFFFFFFu}) {
		HandImage image = sound_image();
		image.nodes_used = used;
		store_ = blank_builder();
		EXPECT_FALSE(adopt(image.bytes())) << used;
		EXPECT_EQ(store_.err_code, EXTMEM_INTERNAL_ERROR) << used;
		expect_empty_buffers();
	}
}

TEST_F(ExtmemRefusedImage, data_capacity_zero)
{
	HandImage image = sound_image();
	image.data_used = image.data_max = 0;
	EXPECT_FALSE(adopt(image.bytes()));
	EXPECT_EQ(store_.err_code, EXTMEM_INTERNAL_ERROR);
	expect_empty_buffers();
}

TEST_F(ExtmemRefusedImage, data_used_beyond_its_capacity)
{
	for (const u32 used : {25u, 32u, 0xFFFFFFFFu}) {
		HandImage image = sound_image();
		image.data_used = used;
		store_ = blank_builder();
		EXPECT_FALSE(adopt(image.bytes())) << used;
		EXPECT_EQ(store_.err_code, EXTMEM_INTERNAL_ERROR) << used;
		expect_empty_buffers();
	}
}

TEST_F(ExtmemRefusedImage, ExactlyTheFiguresOfTheDataSuffice)
{
	const Bytes image = sound_image().bytes();
	EXPECT_TRUE(adopt(image, kOverhead + 48));
	EXPECT_FALSE(adopt(image, kOverhead + 47));
}

TEST_F(ExtmemRefusedImage, OwnedBuffersAreFreedAndImageMemoryIsNot)
{
	HandImage bad_data = sound_image();
	bad_data.nodes.resize(2048);
	bad_data.nodes_max = 2048;
	bad_data.data_used = bad_data.data_max + 1;
	HandImage short_of_nodes = sound_image();
	short_of_nodes.nodes.resize(4096);
	short_of_nodes.nodes_max = 8192;
	HandImage bad_nodes = sound_image();
	bad_nodes.nodes_used = bad_nodes.nodes_max + 1;
	for (const HandImage &image : {bad_data, short_of_nodes, bad_nodes}) {
		store_ = blank_builder();
		ASSERT_TRUE(extmem_builder_init(&store_, nullptr, 0));
		ASSERT_EQ(live_blocks(), 2u);
		EXPECT_FALSE(adopt(image.bytes()));
		EXPECT_EQ(live_blocks(), 0u);
		expect_empty_buffers();
		EXPECT_TRUE(extmem_builder_destroy(&store_));
	}
}

TEST_F(ExtmemRefusedImage, ShortImageAlsoFreesWhatTheStoreOwned)
{
	ASSERT_TRUE(extmem_builder_init(&store_, nullptr, 0));
	EXPECT_FALSE(adopt(Bytes(87)));
	EXPECT_EQ(live_blocks(), 0u);
	expect_empty_buffers();
}

TEST_F(ExtmemRefusedImage, NothingIsLogged)
{
	HandImage image = sound_image();
	image.nodes_used = 49;
	EXPECT_FALSE(adopt(image.bytes()));
	EXPECT_FALSE(adopt(Bytes(95)));
	EXPECT_EQ(take_log(), "");
}

} // namespace
