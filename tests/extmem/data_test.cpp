// SPDX-License-Identifier: MIT
//
// Data descriptors, and the way from a node to its bytes.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "extmem/extmem.h"
#include "tests/support/platform.h"
#include "tests/support/stores.h"

namespace {

using namespace vexil_test;

constexpr size_t kFourGigabytes = size_t{1} << 32;

/** A store with 32 bytes of data in use, byte i being i. */
class ExtmemData : public testing::Test {
protected:
	ExtmemData()
	{
		store_.fill(2);
		const data_d all = extmem_request_data(store_, 32);
		bytes_ = static_cast<u8 *>(extmem_fetch_data(all));
		for (u8 i = 0; i < 32; ++i)
			bytes_[i] = i;
		store_->err_code = EXTMEM_INTERNAL_ERROR;
	}
	~ExtmemData() override
	{
		EXPECT_EQ(store_->err_code, EXTMEM_INTERNAL_ERROR) << "no code is recorded";
	}

	Store store_;
	u8 *bytes_;
};

using ExtmemSetData = ExtmemData;
using ExtmemCopyToNode = ExtmemData;
using ExtmemCopyFromNode = ExtmemData;

// ---- validity, pointer, length ----

TEST_F(ExtmemData, IsValidInsideTheUsedBytes)
{
	struct {
		size_t offset, size;
		bool valid;
	} const rows[] = {
		{0, 32, true},
		{0, 1, true},
		{31, 1, true},
		{8, 24, true},
		{0, 0, false},
		{8, 0, false},
		{0, 33, false},
		{31, 2, false},
		{32, 1, false},
		{32, 0, false},
		{1000, 8, false},
		{SIZE_MAX, 1, false},
		{1, SIZE_MAX, false},
		{8, SIZE_MAX - 7, false},
		{SIZE_MAX - 7, 16, false},
		{0xFFFFFFFF, 1, false},
		{0, 0xFFFFFFFF, false},
	};
	for (const auto &row : rows) {
		const data_d data{row.offset, row.size, store_};
		SCOPED_TRACE(testing::Message() << data);
		EXPECT_EQ(extmem_data_isvalid(data), row.valid);
		EXPECT_EQ(extmem_fetch_data(data), row.valid ? bytes_ + row.offset : nullptr);
		EXPECT_EQ(extmem_fetch_datalen(data), row.valid ? row.size : 0);
	}
}

TEST_F(ExtmemData, IsInvalidWithoutStore)
{
	EXPECT_FALSE(extmem_data_isvalid(data_d{}));
	EXPECT_FALSE(extmem_data_isvalid({0, 8, nullptr}));
	EXPECT_EQ(extmem_fetch_data({0, 8, nullptr}), nullptr);
	EXPECT_EQ(extmem_fetch_datalen({0, 8, nullptr}), 0u);
}

TEST_F(ExtmemData, IsInvalidWithoutBuffer)
{
	extmem_builder empty = blank_builder();
	empty.data_buffer.buf_used = empty.data_buffer.buf_max = 32;
	EXPECT_FALSE(extmem_data_isvalid({0, 8, &empty}));
	EXPECT_EQ(extmem_fetch_data({0, 8, &empty}), nullptr);
	EXPECT_EQ(extmem_fetch_datalen({0, 8, &empty}), 0u);
	EXPECT_EQ(empty.err_code, EXTMEM_SUCCESS);
}

TEST_F(ExtmemData, PointerAlsoNeedsTheCapacity)
{
	const size_t capacity = std::exchange(store_->data_buffer.buf_max, 16);
	EXPECT_EQ(extmem_fetch_data({8, 8, store_}), bytes_ + 8);
	EXPECT_EQ(extmem_fetch_data({8, 9, store_}), nullptr);
	EXPECT_EQ(extmem_fetch_datalen({8, 9, store_}), 9u);
	EXPECT_TRUE(extmem_data_isvalid({8, 9, store_}));
	store_->data_buffer.buf_max = capacity;
}

TEST_F(ExtmemData, UsedBytesAreReported)
{
	EXPECT_EQ(extmem_request_data_buf_used(store_), 32u);
	extmem_request_data(store_, 1);
	EXPECT_EQ(extmem_request_data_buf_used(store_), 40u);
	EXPECT_EQ(extmem_request_data_buf_used(nullptr), 0u);
}

TEST(ExtmemDataUsed, WithoutBufferIsABadPointer)
{
	extmem_builder store = blank_builder();
	store.data_buffer.buf_used = 8;
	EXPECT_EQ(extmem_request_data_buf_used(&store), 0u);
	EXPECT_EQ(store.err_code, EXTMEM_BAD_PTR);
}

// ---- set ----

TEST_F(ExtmemSetData, CopiesToTheStartOfTheRecord)
{
	data_d data{8, 4, store_};
	u8 source[] = {0xA0, 0xA1, 0xA2, 0xA3};
	EXPECT_TRUE(extmem_set_data(&data, source, 4));
	EXPECT_EQ(data, (data_d{8, 4, store_}));
	EXPECT_EQ(Bytes(bytes_ + 7, bytes_ + 13), (Bytes{7, 0xA0, 0xA1, 0xA2, 0xA3, 12}));
}

TEST_F(ExtmemSetData, ShorterSourceShortensTheDescriptorOnly)
{
	u8 source[] = {0xA0, 0xA1, 0xA2, 0xA3, 0xA4};
	const node_d node = extmem_get_data(store_, EXTMEM_TAG_DATA, source, 5);
	data_d data = extmem_copy_from_node(node);
	u8 shorter[] = {0xB0, 0xB1};
	EXPECT_TRUE(extmem_set_data(&data, shorter, 2));
	EXPECT_EQ(data, (data_d{32, 2, store_}));
	EXPECT_EQ(node_bytes(store_, 2), data_node(2, 34, 5, 32));
	EXPECT_EQ(Bytes(store_->data_buffer.buf + 32, store_->data_buffer.buf + 37),
		  (Bytes{0xB0, 0xB1, 0xA2, 0xA3, 0xA4}));
	EXPECT_EQ(store_->data_buffer.buf_used, 40u);
	store_->err_code = EXTMEM_INTERNAL_ERROR; // the node request reset it
}

TEST_F(ExtmemSetData, LongerSourceIsRefused)
{
	const Bytes before = used_bytes(store_->data_buffer);
	data_d data{8, 4, store_};
	u8 source[8] = {0xA0};
	EXPECT_FALSE(extmem_set_data(&data, source, 5));
	EXPECT_FALSE(extmem_set_data(&data, source, SIZE_MAX));
	EXPECT_EQ(data, (data_d{8, 4, store_}));
	EXPECT_EQ(used_bytes(store_->data_buffer), before);
}

TEST_F(ExtmemSetData, OutsideTheUsedBytesIsRefused)
{
	const Bytes before = all_bytes(store_->data_buffer);
	u8 source[8] = {0xA0};
	for (const data_d &bad : {data_d{}, data_d{0, 8, nullptr}, data_d{0, 0, store_},
				  data_d{28, 8, store_}, data_d{32, 8, store_},
				  data_d{SIZE_MAX - 3, 8, store_}}) {
		data_d data = bad;
		EXPECT_FALSE(extmem_set_data(&data, source, 4)) << bad;
		EXPECT_EQ(data, bad);
	}
	EXPECT_EQ(all_bytes(store_->data_buffer), before);
}

TEST_F(ExtmemSetData, NullsGiveFalse)
{
	u8 source[8] = {0xA0};
	data_d data{8, 8, store_};
	EXPECT_FALSE(extmem_set_data(nullptr, source, 8));
	EXPECT_FALSE(extmem_set_data(&data, nullptr, 8));
	EXPECT_EQ(data, (data_d{8, 8, store_}));
	EXPECT_EQ(bytes_[8], 8);
}

// ---- to a node ----

TEST_F(ExtmemCopyToNode, WritesSizeAndOffsetAndNothingElse)
{
	Bytes odd(kNodeSize, 0xEE);
	std::memcpy(store_->node_buffer.buf, odd.data(), kNodeSize);
	EXPECT_TRUE(extmem_copy_to_node(store_.at(0), {8, 7, store_}));
	EXPECT_EQ(node_bytes(store_, 0), (Bytes{0xEE, 0xEE, 0xEE, 7, 0, 0, 0, 8, 0, 0, 0, 0xEE, 0xEE,
						0xEE, 0xEE, 0xEE}));
	EXPECT_EQ(node_bytes(store_, 1), tree_node(1, 1));
}

TEST_F(ExtmemCopyToNode, DoesNotLookAtTheTag)
{
	for (const int tag : {0, 1, 15, 17, 33, 58, 255}) {
		store_->node_buffer.buf[2] = static_cast<u8>(tag);
		EXPECT_TRUE(extmem_copy_to_node(store_.at(0), {16, 8, store_})) << tag;
		EXPECT_EQ(node_bytes(store_, 0), data_node(0, static_cast<u8>(tag), 8, 16)) << tag;
	}
}

TEST_F(ExtmemCopyToNode, EachSideIsLookedUpInItsOwnStore)
{
	Store other;
	ASSERT_EQ(extmem_request_data(other, 100).size, 100u);
	EXPECT_TRUE(extmem_copy_to_node(store_.at(1), {96, 8, other}));
	EXPECT_EQ(node_bytes(store_, 1), data_node(1, 1, 8, 96));
}

TEST_F(ExtmemCopyToNode, RefusesInvalidData)
{
	for (const data_d &bad : {data_d{}, data_d{0, 0, store_}, data_d{0, 33, store_},
				  data_d{32, 1, store_}, data_d{SIZE_MAX, 2, store_},
				  data_d{0, 8, nullptr}}) {
		EXPECT_FALSE(extmem_copy_to_node(store_.at(0), bad)) << bad;
		EXPECT_EQ(node_bytes(store_, 0), tree_node(0, 1));
	}
	EXPECT_EQ(take_log(), "");
}

// A data buffer of 16 GiB is claimed; the record is not touched when a node is made to refer to it.
TEST_F(ExtmemCopyToNode, BeyondThirtyTwoBitsIsReported)
{
	extmem_builder large = blank_builder();
	large.data_buffer = {bytes_, 4 * kFourGigabytes, 4 * kFourGigabytes};
	for (const data_d &data : {data_d{kFourGigabytes, 8, &large}, data_d{0, kFourGigabytes, &large},
				   data_d{kFourGigabytes, kFourGigabytes, &large}}) {
		EXPECT_FALSE(extmem_copy_to_node(store_.at(0), data)) << data;
		EXPECT_EQ(take_log(), "[extmem_copy_to_node][448]vexil lib fail!!\n");
		EXPECT_EQ(node_bytes(store_, 0), tree_node(0, 1));
	}
	EXPECT_EQ(large.err_code, EXTMEM_SUCCESS);
}

TEST_F(ExtmemCopyToNode, TakesTheLargestThirtyTwoBitValues)
{
	extmem_builder large = blank_builder();
	large.data_buffer = {bytes_, 4 * kFourGigabytes, 4 * kFourGigabytes};
	EXPECT_TRUE(extmem_copy_to_node(store_.at(0), {0xFFFFFFFF, 0xFFFFFFFF, &large}));
	EXPECT_EQ(node_bytes(store_, 0), data_node(0, 1, 0xFFFFFFFF, 0xFFFFFFFF));
	EXPECT_EQ(take_log(), "");
}

// ---- from a node ----

TEST_F(ExtmemCopyFromNode, ReadsNodesFromTagSixteenOn)
{
	const Bytes reference = data_node(0, 0, 0x01020304, 0x05060708);
	std::memcpy(store_->node_buffer.buf, reference.data(), kNodeSize);
	for (int tag = 0; tag < 256; ++tag) {
		store_->node_buffer.buf[2] = static_cast<u8>(tag);
		EXPECT_EQ(extmem_copy_from_node(store_.at(0)),
			  tag < 16 ? data_d{} : (data_d{0x05060708, 0x01020304, store_}))
			<< tag;
	}
}

TEST_F(ExtmemCopyFromNode, ReadsTheLinksOfATreeNodeAsTheyStand)
{
	ASSERT_TRUE(extmem_set_tag(store_.at(0), EXTMEM_TAG_IP));
	ASSERT_TRUE(extmem_append_child(store_.at(0), store_.at(1)));
	EXPECT_EQ(extmem_copy_from_node(store_.at(0)), (data_d{0, 0xFFFF0001, store_}));
	EXPECT_EQ(extmem_fetch_data(extmem_copy_from_node(store_.at(0))), nullptr);
}

TEST_F(ExtmemCopyFromNode, DoesNotLookAtTheData)
{
	const Bytes reference = data_node(0, 34, 64, 24);
	std::memcpy(store_->node_buffer.buf, reference.data(), kNodeSize);
	const data_d data = extmem_copy_from_node(store_.at(0));
	EXPECT_EQ(data, (data_d{24, 64, store_}));
	EXPECT_FALSE(extmem_data_isvalid(data));
	EXPECT_EQ(extmem_fetch_data(data), nullptr);
}

// ---- references of damaged images ----

TEST(ExtmemDamagedReference, LeadsToNoData)
{
	struct {
		const char *name;
		u32 size, offset;
	} const rows[] = {
		{"data_offset_wraps", 16, 0xFFFFFFF8},
		{"data_size_wraps", 0xFFFFFFFF, 8},
		{"data_both_largest", 0xFFFFFFFF, 0xFFFFFFFF},
		{"data_one_byte_too_long", 17, 8},
		{"data_behind_the_end", 1, 24},
		{"data_empty", 0, 8},
	};
	for (const auto &row : rows) {
		Bytes image = HandImage(joined({tree_node(0, 1, 1), data_node(1, 35, row.size, row.offset)}),
					Bytes(24, 'x'))
				      .bytes();
		extmem_builder store = blank_builder();
		ASSERT_TRUE(extmem_builder_init(&store, image_of(image),
						static_cast<u32>(image.size())));
		const data_d data = extmem_copy_from_node({1, &store});
		EXPECT_EQ(data, (data_d{row.offset, row.size, &store})) << row.name;
		EXPECT_FALSE(extmem_data_isvalid(data)) << row.name;
		EXPECT_EQ(extmem_fetch_data(data), nullptr) << row.name;
		EXPECT_EQ(extmem_fetch_datalen(data), 0u) << row.name;
		extmem_builder_destroy(&store);
	}
}

} // namespace
