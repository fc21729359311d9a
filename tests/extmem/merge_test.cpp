// SPDX-License-Identifier: MIT
//
// Joining two stores in a third.
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

/** Appends a node as it stands, id included. */
void add_raw(Store &store, const Bytes &node)
{
	const node_d made = store.add(EXTMEM_TAG_GENERAL);
	extmem_node record;
	std::memcpy(&record, node.data(), sizeof record);
	ASSERT_TRUE(extmem_set_node(&made, record));
}

class ExtmemMerge : public testing::Test {
protected:
	bool merge() { return extmem_merge_buffer(target_, base_, sub_); }
	/** 3 nodes with 16 bytes of data and 2 nodes with 8. */
	void fill_base_and_sub()
	{
		base_.fill(2);
		base_.holder(EXTMEM_TAG_DATA, Bytes(9, 0xB1));
		ASSERT_TRUE(extmem_append_child(base_.at(0), base_.at(1)));
		ASSERT_TRUE(extmem_append_child(base_.at(1), base_.at(2)));
		sub_.fill(1);
		sub_.holder(EXTMEM_TAG_STRING_HOLDER, text_bytes("sub"));
		ASSERT_TRUE(extmem_append_child(sub_.at(0), sub_.at(1)));
	}

	Store target_;
	Store base_;
	Store sub_;
};

// ---- the result ----

TEST_F(ExtmemMerge, PutsTheSubBehindTheBase)
{
	fill_base_and_sub();
	ASSERT_TRUE(merge());
	EXPECT_EQ(used_bytes(target_->node_buffer),
		  joined({tree_node(0, 1, 1), tree_node(1, 1, 2), data_node(2, 34, 9, 0),
			  tree_node(3, 1, 4), data_node(4, 35, 4, 16)}));
	EXPECT_EQ(used_bytes(target_->data_buffer),
		  joined({Bytes(9, 0xB1), Bytes(7), text_bytes("sub"), Bytes(4)}));
	EXPECT_STREQ(static_cast<const char *>(extmem_fetch_data(extmem_copy_from_node(target_.at(4)))),
		     "sub");
	EXPECT_TRUE(tail_is_zero(target_->node_buffer));
	EXPECT_TRUE(tail_is_zero(target_->data_buffer));
}

TEST_F(ExtmemMerge, LeavesTheBaseAsItWas)
{
	fill_base_and_sub();
	const BufferState nodes(base_->node_buffer);
	const BufferState data(base_->data_buffer);
	ASSERT_TRUE(merge());
	EXPECT_TRUE(BufferState(base_->node_buffer) == nodes);
	EXPECT_TRUE(BufferState(base_->data_buffer) == data);
}

TEST_F(ExtmemMerge, LeavesTheSubRenumberedAndItsDataAlone)
{
	fill_base_and_sub();
	const BufferState data(sub_->data_buffer);
	ASSERT_TRUE(merge());
	EXPECT_EQ(used_bytes(sub_->node_buffer),
		  joined({tree_node(3, 1, 4), data_node(4, 35, 4, 16)}));
	EXPECT_TRUE(BufferState(sub_->data_buffer) == data);
}

TEST_F(ExtmemMerge, LeavesTheHeaderOfTheTarget)
{
	fill_base_and_sub();
	std::memset(static_cast<void *>(&target_->header), 0x5A, sizeof target_->header);
	std::memset(static_cast<void *>(&base_->header), 0x11, sizeof base_->header);
	const extmem_buffer_header before = target_->header;
	ASSERT_TRUE(merge());
	EXPECT_EQ(std::memcmp(&target_->header, &before, sizeof before), 0);
}

TEST_F(ExtmemMerge, OwnsItsBuffers)
{
	fill_base_and_sub();
	ASSERT_TRUE(merge());
	EXPECT_TRUE(target_->malloc_flag);
	EXPECT_NE(target_->node_buffer.buf, base_->node_buffer.buf);
	EXPECT_EQ(target_.add(EXTMEM_TAG_IP), target_.at(5));
}

TEST_F(ExtmemMerge, ReplacesTheRootOfTheTarget)
{
	fill_base_and_sub();
	target_.add(EXTMEM_TAG_IP);
	ASSERT_TRUE(merge());
	EXPECT_EQ(target_->node_buffer.buf_used, 5 * kNodeSize);
	EXPECT_EQ(node_bytes(target_, 0), tree_node(0, 1, 1));
}

// ---- renumbering ----

TEST_F(ExtmemMerge, RenumbersByTheKindOfEachNode)
{
	base_.fill(5);
	extmem_request_data(base_, 24);
	struct {
		const char *what;
		Bytes before, after;
	} const rows[] = {
		{"links move", tree_node(0, 1, 1, 2), tree_node(5, 1, 6, 7)},
		{"missing links stay", tree_node(1, 17), tree_node(6, 17)},
		{"one missing link stays", tree_node(2, 22, 0), tree_node(7, 22, 5)},
		{"the other missing link stays", tree_node(3, 0, kNone, 0), tree_node(8, 0, kNone, 5)},
		{"last tag with links", tree_node(4, 32, 1, 2), tree_node(9, 32, 6, 7)},
		{"first tag with data", data_node(5, 33, 0x00020001, 8),
		 data_node(10, 33, 0x00020001, 32)},
		{"any tag with data", data_node(6, 255, 7, 0), data_node(11, 255, 7, 24)},
		{"holder without data", tree_node(7, 35), data_node(12, 35, 0xFFFFFFFF, 24)},
		{"without id", tree_node(kNone, 1, 1, 2), tree_node(kNone, 1, 1, 2)},
		{"holder without id", data_node(kNone, 35, 4, 8), data_node(kNone, 35, 4, 8)},
		{"ids wrap", tree_node(0xFFFE, 1, 0xFFFD, 0xFFFC), tree_node(3, 1, 2, 1)},
		{"offset wraps", data_node(11, 34, 4, 0xFFFFFFF8), data_node(16, 34, 4, 16)},
	};
	Bytes expected;
	for (const auto &row : rows) {
		add_raw(sub_, row.before);
		expected.insert(expected.end(), row.after.begin(), row.after.end());
	}
	ASSERT_TRUE(merge());
	for (size_t i = 0; i < std::size(rows); ++i) {
		EXPECT_EQ(node_bytes(sub_, i), rows[i].after) << rows[i].what;
		EXPECT_EQ(node_bytes(target_, 5 + i), rows[i].after) << rows[i].what;
	}
}

TEST_F(ExtmemMerge, MovesOffsetsByTheUsedBytesOfTheBase)
{
	base_.fill(1);
	extmem_request_data(base_, 1);
	extmem_request_data(base_, 3001);
	sub_.holder(EXTMEM_TAG_DATA, Bytes(4, 7));
	ASSERT_TRUE(merge());
	EXPECT_EQ(extmem_copy_from_node(target_.at(1)), (data_d{3016, 4, target_}));
	EXPECT_EQ(extmem_request_data_buf_used(target_), 3024u);
	EXPECT_EQ(target_->data_buffer.buf_max, 4096u);
}

// ---- empty stores ----

TEST_F(ExtmemMerge, EmptySubGivesTheBaseAlone)
{
	fill_base_and_sub();
	extmem_builder empty = blank_builder();
	ASSERT_TRUE(extmem_builder_init(&empty, nullptr, 0));
	EXPECT_TRUE(extmem_merge_buffer(target_, base_, &empty));
	EXPECT_EQ(used_bytes(target_->node_buffer), used_bytes(base_->node_buffer));
	EXPECT_EQ(used_bytes(target_->data_buffer), used_bytes(base_->data_buffer));
	extmem_builder_destroy(&empty);
}

TEST_F(ExtmemMerge, EmptyBaseGivesTheSubAlone)
{
	sub_.fill(1);
	sub_.holder(EXTMEM_TAG_STRING_HOLDER, text_bytes("sub"));
	const Bytes nodes = used_bytes(sub_->node_buffer);
	EXPECT_TRUE(merge());
	EXPECT_EQ(used_bytes(target_->node_buffer), nodes);
	EXPECT_EQ(used_bytes(target_->data_buffer), used_bytes(sub_->data_buffer));
}

TEST_F(ExtmemMerge, TwoEmptyStoresLeaveNothingOfTheTargetsRoot)
{
	target_.add(EXTMEM_TAG_IP);
	EXPECT_TRUE(merge());
	EXPECT_EQ(target_->node_buffer.buf_used, 0u);
	EXPECT_TRUE(tail_is_zero(target_->node_buffer));
}

// ---- capacity ----

TEST_F(ExtmemMerge, CapacityDoublesUntilTheNodesFit)
{
	struct {
		size_t base, sub;
		bool target_has_root;
		size_t capacity;
		size_t growths;
	} const rows[] = {
		{32, 31, false, 1024, 0}, {32, 32, false, 1024, 1}, {32, 33, false, 2048, 1},
		{31, 31, true, 1024, 0},  {32, 31, true, 1024, 1},  {32, 32, true, 2048, 1},
		{100, 100, true, 4096, 1},
	};
	for (const auto &row : rows) {
		Store target;
		Store base;
		Store sub;
		base.fill(row.base);
		sub.fill(row.sub);
		if (row.target_has_root)
			target.add(EXTMEM_TAG_GENERAL);
		Growths growths;
		target->reallocate = Growths::reallocate;
		ASSERT_TRUE(extmem_merge_buffer(target, base, sub));
		SCOPED_TRACE(testing::Message() << row.base << " + " << row.sub << " nodes, root "
						<< row.target_has_root);
		EXPECT_EQ(target->node_buffer.buf_max, row.capacity);
		EXPECT_EQ(target->node_buffer.buf_used, (row.base + row.sub) * kNodeSize);
		EXPECT_EQ(growths.calls().size(), row.growths);
		EXPECT_EQ(extmem_builder_get_export_size(target), row.capacity + 1024 + 104);
		EXPECT_TRUE(tail_is_zero(target->node_buffer));
	}
}

TEST_F(ExtmemMerge, CapacityDoublesUntilTheDataFits)
{
	struct {
		u32 base, sub;
		size_t capacity;
	} const rows[] = {{512, 504, 1024}, {512, 512, 1024}, {512, 513, 2048}, {1000, 5000, 8192}};
	for (const auto &row : rows) {
		Store target;
		Store base;
		Store sub;
		base.fill(1);
		sub.fill(1);
		extmem_request_data(base, row.base);
		extmem_request_data(sub, row.sub);
		ASSERT_TRUE(extmem_merge_buffer(target, base, sub));
		EXPECT_EQ(target->data_buffer.buf_max, row.capacity) << row.base << " + " << row.sub;
		EXPECT_TRUE(tail_is_zero(target->data_buffer));
	}
}

// ---- the limits of ids and offsets ----

TEST_F(ExtmemMerge, SixtyFiveThousandFiveHundredThirtyFiveNodesFit)
{
	base_.fill(40000);
	sub_.fill(25535);
	ASSERT_TRUE(extmem_append_next(sub_.at(0), sub_.at(25534)));
	ASSERT_TRUE(merge());
	EXPECT_EQ(extmem_request_max_node_id(target_), kMostNodes - 1);
	EXPECT_EQ(extmem_get_next(target_.at(40000)), target_.at(kMostNodes - 1));
}

TEST_F(ExtmemMerge, OneNodeMoreIsOutOfRangeBeforeAnythingIsChanged)
{
	base_.fill(40000);
	sub_.fill(25536);
	const BufferState sub(sub_->node_buffer);
	const BufferState target(target_->node_buffer);
	EXPECT_FALSE(merge());
	EXPECT_EQ(target_->err_code, EXTMEM_OUT_OF_RANGE);
	EXPECT_TRUE(BufferState(sub_->node_buffer) == sub);
	EXPECT_TRUE(BufferState(target_->node_buffer) == target);
	EXPECT_EQ(target_->data_buffer.buf_used, 0u);
}

TEST_F(ExtmemMerge, FullStoreWithFailedRequestsIsOutOfRange)
{
	base_.fill(kMostNodes);
	sub_.fill(2);
	for (size_t slots = kMostNodes; slots <= kMostNodes + 2; ++slots) {
		const BufferState sub(sub_->node_buffer);
		EXPECT_FALSE(merge()) << slots;
		EXPECT_EQ(target_->err_code, EXTMEM_OUT_OF_RANGE) << slots;
		EXPECT_TRUE(BufferState(sub_->node_buffer) == sub);
		base_.add(EXTMEM_TAG_GENERAL); // fails, and takes its slot
		target_->err_code = EXTMEM_SUCCESS;
	}
}

// Only claim their sizes: the check comes before any byte is looked at.
TEST_F(ExtmemMerge, DataOfFourGigabytesIsOutOfRangeBeforeAnythingIsChanged)
{
	struct {
		size_t base, sub;
	} const rows[] = {
		{kFourGigabytes - 8, 8},
		{8, kFourGigabytes - 8},
		{kFourGigabytes / 2, kFourGigabytes / 2},
		{kFourGigabytes, 0},
		{0, kFourGigabytes},
		{kFourGigabytes + 8, 8},
		{SIZE_MAX - 7, 16},
	};
	base_.fill(1);
	sub_.fill(1);
	for (const auto &row : rows) {
		const Bytes sub = used_bytes(sub_->node_buffer);
		base_->data_buffer.buf_used = row.base;
		sub_->data_buffer.buf_used = row.sub;
		EXPECT_FALSE(merge()) << row.base << " + " << row.sub;
		EXPECT_EQ(target_->err_code, EXTMEM_OUT_OF_RANGE);
		EXPECT_EQ(used_bytes(sub_->node_buffer), sub);
		EXPECT_EQ(target_->node_buffer.buf_used, 0u);
		target_->err_code = EXTMEM_SUCCESS;
	}
	base_->data_buffer.buf_used = 0;
	sub_->data_buffer.buf_used = 0;
}

TEST_F(ExtmemMerge, LargestDataIsInRange)
{
	base_.fill(1);
	sub_.fill(1);
	base_->data_buffer.buf_used = kFourGigabytes - 16;
	sub_->data_buffer.buf_used = 8;
	EXPECT_FALSE(merge()) << "the target cannot be that large";
	EXPECT_EQ(target_->err_code, EXTMEM_NOMEM);
	base_->data_buffer.buf_used = 0;
	sub_->data_buffer.buf_used = 0;
}

// ---- missing buffers ----

TEST_F(ExtmemMerge, WithoutTargetIsFalse)
{
	fill_base_and_sub();
	const BufferState sub(sub_->node_buffer);
	EXPECT_FALSE(extmem_merge_buffer(nullptr, base_, sub_));
	EXPECT_TRUE(BufferState(sub_->node_buffer) == sub);
	EXPECT_EQ(base_->err_code, EXTMEM_SUCCESS);
	EXPECT_EQ(sub_->err_code, EXTMEM_SUCCESS);
}

TEST_F(ExtmemMerge, MissingStoreIsABadPointer)
{
	fill_base_and_sub();
	const BufferState sub(sub_->node_buffer);
	struct {
		extmem_builder *base, *sub;
	} const rows[] = {{nullptr, sub_}, {base_, nullptr}, {nullptr, nullptr}};
	for (const auto &row : rows) {
		target_->err_code = EXTMEM_SUCCESS;
		EXPECT_FALSE(extmem_merge_buffer(target_, row.base, row.sub));
		EXPECT_EQ(target_->err_code, EXTMEM_BAD_PTR);
	}
	EXPECT_TRUE(BufferState(sub_->node_buffer) == sub);
}

TEST_F(ExtmemMerge, MissingBufferIsABadPointer)
{
	fill_base_and_sub();
	const Bytes sub = used_bytes(sub_->node_buffer);
	for (extmem_buffer_ctx *buffer :
	     {&target_->node_buffer, &target_->data_buffer, &base_->node_buffer, &base_->data_buffer,
	      &sub_->node_buffer, &sub_->data_buffer}) {
		u8 *bytes = std::exchange(buffer->buf, nullptr);
		target_->err_code = EXTMEM_SUCCESS;
		EXPECT_FALSE(merge());
		EXPECT_EQ(target_->err_code, EXTMEM_BAD_PTR);
		EXPECT_EQ(base_->err_code, EXTMEM_SUCCESS);
		EXPECT_EQ(sub_->err_code, EXTMEM_SUCCESS);
		buffer->buf = bytes;
	}
	EXPECT_EQ(used_bytes(sub_->node_buffer), sub);
}

// ---- stores that may not be merged ----

class ExtmemMergeRefusal : public ExtmemMerge {
protected:
	ExtmemMergeRefusal() { fill_base_and_sub(); }

	void expect_refusal(extmem_builder *target, extmem_builder *base, extmem_builder *sub)
	{
		const Bytes target_nodes = used_bytes(target->node_buffer);
		const Bytes base_nodes = used_bytes(base->node_buffer);
		const Bytes sub_nodes = used_bytes(sub->node_buffer);
		EXPECT_FALSE(extmem_merge_buffer(target, base, sub));
		EXPECT_EQ(target->err_code, EXTMEM_INTERNAL_ERROR);
		EXPECT_EQ(used_bytes(target->node_buffer), target_nodes);
		EXPECT_EQ(used_bytes(base->node_buffer), base_nodes);
		EXPECT_EQ(used_bytes(sub->node_buffer), sub_nodes);
	}
};

TEST_F(ExtmemMergeRefusal, TargetThatIsTheBase)
{
	expect_refusal(base_, base_, sub_);
	expect_refusal(target_, target_, sub_);
}

TEST_F(ExtmemMergeRefusal, TargetThatIsTheSub)
{
	expect_refusal(sub_, base_, sub_);
	expect_refusal(target_, base_, target_);
}

TEST_F(ExtmemMergeRefusal, BaseThatIsTheSub)
{
	expect_refusal(target_, base_, base_);
}

TEST_F(ExtmemMergeRefusal, TargetWithTwoNodes)
{
	target_.fill(2);
	expect_refusal(target_, base_, sub_);
}

TEST_F(ExtmemMergeRefusal, TargetWithData)
{
	extmem_request_data(target_, 1);
	expect_refusal(target_, base_, sub_);
}

TEST_F(ExtmemMergeRefusal, TargetInPlace)
{
	HandImage hand(Bytes(1600), Bytes(1600));
	hand.nodes_used = 0;
	hand.data_used = 0;
	Bytes image = hand.bytes();
	const Bytes before = image;
	extmem_builder target = blank_builder();
	ASSERT_TRUE(extmem_builder_init(&target, image_of(image), static_cast<u32>(image.size())));
	expect_refusal(&target, base_, sub_);
	EXPECT_EQ(image, before);
	extmem_builder_destroy(&target);
}

// ---- without memory ----

TEST_F(ExtmemMerge, WithoutMemoryForTheNodesTheSubStaysRenumbered)
{
	base_.fill(60);
	sub_.fill(60);
	ASSERT_TRUE(extmem_append_next(sub_.at(0), sub_.at(1)));
	const BufferState target(target_->node_buffer);
	{
		const Refuse refuse = Refuse::only(1);
		EXPECT_FALSE(merge());
		EXPECT_TRUE(refuse.happened());
	}
	EXPECT_EQ(target_->err_code, EXTMEM_NOMEM);
	EXPECT_EQ(base_->err_code, EXTMEM_SUCCESS);
	EXPECT_EQ(node_bytes(sub_, 0), tree_node(60, 1, kNone, 61));
	EXPECT_TRUE(BufferState(target_->node_buffer) == target);
}

TEST_F(ExtmemMerge, WithoutMemoryForTheDataTheBaseHasTheCodeToo)
{
	fill_base_and_sub();
	extmem_request_data(base_, 1000);
	extmem_request_data(sub_, 1000);
	base_->err_code = EXTMEM_SUCCESS;
	{
		const Refuse refuse = Refuse::only(1);
		EXPECT_FALSE(merge());
		EXPECT_TRUE(refuse.happened());
	}
	EXPECT_EQ(target_->err_code, EXTMEM_NOMEM);
	EXPECT_EQ(base_->err_code, EXTMEM_NOMEM);
	EXPECT_EQ(sub_->err_code, EXTMEM_SUCCESS);
	EXPECT_EQ(target_->data_buffer.buf_used, 0u);
	EXPECT_EQ(extmem_fetch_id(sub_.at(0)), 3);
}

// ---- over a copy of the sub ----

class ExtmemMergeStores : public ExtmemMerge {
protected:
	ExtmemMergeStores() { fill_base_and_sub(); }
};

TEST_F(ExtmemMergeStores, GivesTheSameAndLeavesTheSubAsItWas)
{
	const BufferState sub_nodes(sub_->node_buffer);
	const BufferState sub_data(sub_->data_buffer);
	const size_t blocks = live_blocks();
	EXPECT_TRUE(vexil::merge_stores(target_, base_, sub_));
	EXPECT_EQ(used_bytes(target_->node_buffer),
		  joined({tree_node(0, 1, 1), tree_node(1, 1, 2), data_node(2, 34, 9, 0),
			  tree_node(3, 1, 4), data_node(4, 35, 4, 16)}));
	EXPECT_EQ(used_bytes(target_->data_buffer),
		  joined({Bytes(9, 0xB1), Bytes(7), text_bytes("sub"), Bytes(4)}));
	EXPECT_TRUE(BufferState(sub_->node_buffer) == sub_nodes);
	EXPECT_TRUE(BufferState(sub_->data_buffer) == sub_data);
	EXPECT_EQ(live_blocks(), blocks) << "the copy is given back";
}

TEST_F(ExtmemMergeStores, WithoutMemoryForTheCopyNothingIsChanged)
{
	const BufferState target(target_->node_buffer);
	const Refuse refuse = Refuse::only(1);
	EXPECT_FALSE(vexil::merge_stores(target_, base_, sub_));
	EXPECT_TRUE(refuse.happened());
	EXPECT_EQ(target_->err_code, EXTMEM_NOMEM);
	EXPECT_TRUE(BufferState(target_->node_buffer) == target);
}

TEST_F(ExtmemMergeStores, EmptySubGivesTheBaseAlone)
{
	Store empty;
	EXPECT_TRUE(vexil::merge_stores(target_, base_, empty));
	EXPECT_EQ(used_bytes(target_->node_buffer), used_bytes(base_->node_buffer));
}

TEST_F(ExtmemMergeStores, SubWithoutBuffersIsABadPointer)
{
	const extmem_builder blank = blank_builder();
	EXPECT_FALSE(vexil::merge_stores(target_, base_, &blank));
	EXPECT_EQ(target_->err_code, EXTMEM_BAD_PTR);
}

// ---- stores in place ----

TEST_F(ExtmemMerge, TakesAdoptedStores)
{
	fill_base_and_sub();
	Bytes base_image = exported(base_);
	Bytes sub_image = exported(sub_);
	const Bytes base_before = base_image;
	extmem_builder base = blank_builder();
	extmem_builder sub = blank_builder();
	ASSERT_TRUE(extmem_builder_init(&base, image_of(base_image), static_cast<u32>(base_image.size())));
	ASSERT_TRUE(extmem_builder_init(&sub, image_of(sub_image), static_cast<u32>(sub_image.size())));
	ASSERT_TRUE(extmem_merge_buffer(target_, &base, &sub));
	EXPECT_EQ(used_bytes(target_->node_buffer),
		  joined({tree_node(0, 1, 1), tree_node(1, 1, 2), data_node(2, 34, 9, 0),
			  tree_node(3, 1, 4), data_node(4, 35, 4, 16)}));
	EXPECT_EQ(base_image, base_before);
	extmem_builder_destroy(&base);
	extmem_builder_destroy(&sub);
}

} // namespace
