// SPDX-License-Identifier: MIT
//
// Life of a store, and requests for nodes and data.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>

#include "extmem/extmem.h"
#include "tests/support/platform.h"
#include "tests/support/stores.h"

namespace {

using namespace vexil_test;

constexpr u32 kLargestU32 = 0xFFFFFFFF;

// ---- records and numbers ----

TEST(ExtmemRecords, HaveTheirLayout)
{
	EXPECT_EQ(sizeof(extmem_builder), 184u);
	EXPECT_EQ(offsetof(extmem_builder, allocate), 0u);
	EXPECT_EQ(offsetof(extmem_builder, deallocate), 8u);
	EXPECT_EQ(offsetof(extmem_builder, reallocate), 16u);
	EXPECT_EQ(offsetof(extmem_builder, print), 24u);
	EXPECT_EQ(offsetof(extmem_builder, print_error), 32u);
	EXPECT_EQ(offsetof(extmem_builder, header), 40u);
	EXPECT_EQ(offsetof(extmem_builder, node_buffer), 128u);
	EXPECT_EQ(offsetof(extmem_builder, data_buffer), 152u);
	EXPECT_EQ(offsetof(extmem_builder, malloc_flag), 176u);
	EXPECT_EQ(offsetof(extmem_builder, err_code), 180u);
	EXPECT_EQ(sizeof(extmem_buffer_ctx), 24u);
	EXPECT_EQ(offsetof(extmem_buffer_ctx, buf), 0u);
	EXPECT_EQ(offsetof(extmem_buffer_ctx, buf_used), 8u);
	EXPECT_EQ(offsetof(extmem_buffer_ctx, buf_max), 16u);
	EXPECT_EQ(sizeof(node_d), 16u);
	EXPECT_EQ(offsetof(node_d, id), 0u);
	EXPECT_EQ(offsetof(node_d, owner), 8u);
	EXPECT_EQ(sizeof(data_d), 24u);
	EXPECT_EQ(offsetof(data_d, offset), 0u);
	EXPECT_EQ(offsetof(data_d, size), 8u);
	EXPECT_EQ(offsetof(data_d, owner), 16u);
	EXPECT_EQ(sizeof(extmem_node), 16u);
	EXPECT_EQ(alignof(extmem_node), 1u);
	EXPECT_EQ(sizeof(extmem_err_code), 4u);
	EXPECT_EQ(sizeof(extmem_builder::malloc_flag), 1u);
}

TEST(ExtmemErrors, HaveTheirNumbers)
{
	EXPECT_EQ(EXTMEM_SUCCESS, 0);
	EXPECT_EQ(EXTMEM_BAD_PTR, 1);
	EXPECT_EQ(EXTMEM_NOMEM, 2);
	EXPECT_EQ(EXTMEM_OUT_OF_RANGE, 3);
	EXPECT_EQ(EXTMEM_INTERNAL_ERROR, 4);
}

// ---- init ----

TEST(ExtmemInit, EmptyStoreHasTwoZeroedBuffersAndNoNode)
{
	Store store;
	for (const extmem_buffer_ctx *buffer : {&store->node_buffer, &store->data_buffer}) {
		ASSERT_NE(buffer->buf, nullptr);
		EXPECT_EQ(buffer->buf_used, 0u);
		EXPECT_EQ(buffer->buf_max, kStartCapacity);
		EXPECT_EQ(all_bytes(*buffer), Bytes(kStartCapacity));
	}
	EXPECT_TRUE(store->malloc_flag);
	EXPECT_EQ(store->err_code, EXTMEM_SUCCESS);
	EXPECT_EQ(allocations(), 2u);
	EXPECT_EQ(live_blocks(), 2u);
	EXPECT_FALSE(extmem_node_isvalid(store.at(0)));
}

TEST(ExtmemInit, SetsTheHooks)
{
	Store store;
	EXPECT_EQ(store->allocate, &ALLOC);
	EXPECT_EQ(store->deallocate, &DEALLOC);
	EXPECT_EQ(store->reallocate, &REALLOC);
	EXPECT_EQ(store->print, &_printk);
	EXPECT_EQ(store->print_error, &_printk);
}

TEST(ExtmemInit, EmptyStoreKeepsNothingOfARecordThatHeldAnything)
{
	extmem_builder store;
	std::memset(static_cast<void *>(&store), 0x01, sizeof store);
	ASSERT_TRUE(extmem_builder_init(&store, nullptr, 0));
	const extmem_buffer_header zero{};
	EXPECT_EQ(std::memcmp(&store.header, &zero, sizeof zero), 0);
	EXPECT_EQ(store.node_buffer.buf_used, 0u);
	EXPECT_EQ(store.data_buffer.buf_used, 0u);
	EXPECT_TRUE(store.malloc_flag);
	EXPECT_EQ(store.err_code, EXTMEM_SUCCESS);
	EXPECT_EQ(store.print, &_printk);
	EXPECT_TRUE(extmem_builder_destroy(&store));
}

TEST(ExtmemInit, ImageOfNoBytesMeansAnEmptyStore)
{
	char image[1] = {'x'};
	extmem_builder store = blank_builder();
	ASSERT_TRUE(extmem_builder_init(&store, image, 0));
	EXPECT_TRUE(store.malloc_flag);
	EXPECT_EQ(store.node_buffer.buf_max, kStartCapacity);
	EXPECT_TRUE(extmem_builder_destroy(&store));
}

TEST(ExtmemInit, SizeWithoutImageMeansAnEmptyStore)
{
	extmem_builder store = blank_builder();
	ASSERT_TRUE(extmem_builder_init(&store, nullptr, 4096));
	EXPECT_TRUE(store.malloc_flag);
	EXPECT_EQ(store.node_buffer.buf_max, kStartCapacity);
	EXPECT_TRUE(extmem_builder_destroy(&store));
}

TEST(ExtmemInit, WithoutMemoryForEitherBufferHasNeither)
{
	for (const size_t nth : {1u, 2u}) {
		extmem_builder store;
		std::memset(static_cast<void *>(&store), 0x01, sizeof store);
		{
			const Refuse refuse = Refuse::only(nth);
			EXPECT_FALSE(extmem_builder_init(&store, nullptr, 0)) << nth;
			EXPECT_TRUE(refuse.happened()) << nth;
		}
		EXPECT_EQ(store.err_code, EXTMEM_NOMEM) << nth;
		EXPECT_EQ(store.node_buffer.buf, nullptr) << nth;
		EXPECT_EQ(store.data_buffer.buf, nullptr) << nth;
		EXPECT_EQ(live_blocks(), 0u) << nth;
		EXPECT_TRUE(extmem_builder_destroy(&store));
	}
}

TEST(ExtmemInit, NullGivesFalse)
{
	char image[1] = {'x'};
	EXPECT_FALSE(extmem_builder_init(nullptr, nullptr, 0));
	EXPECT_FALSE(extmem_builder_init(nullptr, image, 1));
	EXPECT_EQ(allocations(), 0u);
}

// ---- destroy ----

TEST(ExtmemDestroy, FreesBothBuffersThroughTheHook)
{
	static size_t freed;
	freed = 0;
	extmem_builder store = blank_builder();
	ASSERT_TRUE(extmem_builder_init(&store, nullptr, 0));
	ASSERT_TRUE(extmem_node_isvalid(extmem_request_node(&store, EXTMEM_TAG_GENERAL)));
	store.err_code = EXTMEM_OUT_OF_RANGE;
	store.deallocate = [](void *block) {
		++freed;
		DEALLOC(block);
	};
	EXPECT_TRUE(extmem_builder_destroy(&store));
	EXPECT_EQ(freed, 2u);
	EXPECT_EQ(live_blocks(), 0u);
	for (const extmem_buffer_ctx *buffer : {&store.node_buffer, &store.data_buffer}) {
		EXPECT_EQ(buffer->buf, nullptr);
		EXPECT_EQ(buffer->buf_used, 0u);
		EXPECT_EQ(buffer->buf_max, 0u);
	}
	EXPECT_EQ(store.err_code, EXTMEM_SUCCESS);
}

TEST(ExtmemDestroy, ForgetsAnImageWithoutFreeingIt)
{
	Bytes image = HandImage(tree_node(0, EXTMEM_TAG_GENERAL), Bytes(8, 0x77)).bytes();
	const Bytes before = image;
	extmem_builder store = blank_builder();
	ASSERT_TRUE(extmem_builder_init(&store, image_of(image), static_cast<u32>(image.size())));
	store.err_code = EXTMEM_NOMEM;
	EXPECT_TRUE(extmem_builder_destroy(&store));
	EXPECT_EQ(store.node_buffer.buf, nullptr);
	EXPECT_EQ(store.node_buffer.buf_used, 0u);
	EXPECT_EQ(store.node_buffer.buf_max, 0u);
	EXPECT_EQ(store.data_buffer.buf, nullptr);
	EXPECT_EQ(store.data_buffer.buf_used, 0u);
	EXPECT_EQ(store.data_buffer.buf_max, 0u);
	EXPECT_EQ(store.err_code, EXTMEM_SUCCESS);
	EXPECT_EQ(image, before);
}

TEST(ExtmemDestroy, IsHarmlessTwice)
{
	extmem_builder store = blank_builder();
	ASSERT_TRUE(extmem_builder_init(&store, nullptr, 0));
	EXPECT_TRUE(extmem_builder_destroy(&store));
	EXPECT_TRUE(extmem_builder_destroy(&store));
}

TEST(ExtmemDestroy, NullGivesFalse)
{
	EXPECT_FALSE(extmem_builder_destroy(nullptr));
}

// ---- node requests ----

TEST(ExtmemRequestNode, FirstNodeHasIdZero)
{
	Store store;
	const node_d node = extmem_request_node(store, EXTMEM_TAG_IP);
	EXPECT_EQ(node, store.at(0));
	EXPECT_TRUE(extmem_node_isvalid(node));
	EXPECT_EQ(store->node_buffer.buf_used, kNodeSize);
	EXPECT_EQ(store->data_buffer.buf_used, 0u);
}

TEST(ExtmemRequestNode, WritesSixteenBytes)
{
	Store store;
	store.fill(0x102);
	store.add(EXTMEM_TAG_RULE);
	EXPECT_EQ(node_bytes(store, 0x102), (Bytes{0x02, 0x01, 23, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0,
						   0, 0, 0, 0, 0}));
}

TEST(ExtmemRequestNode, IdsFollowTheOrderOfRequests)
{
	Store store;
	for (u16 i = 0; i < 300; ++i) {
		ASSERT_EQ(store.add(EXTMEM_TAG_GENERAL), store.at(i));
		ASSERT_EQ(extmem_fetch_id(store.at(i)), i);
	}
	EXPECT_EQ(store->node_buffer.buf_used, 300 * kNodeSize);
}

TEST(ExtmemRequestNode, KeepsTheLowByteOfTheTag)
{
	Store store;
	EXPECT_EQ(extmem_fetch_tag(store.add(EXTMEM_TAG_UNUSED_BEGIN)), 58);
	EXPECT_EQ(extmem_fetch_tag(store.add(EXTMEM_TAG_UNSPECIFIED)), 0);
	EXPECT_EQ(extmem_fetch_tag(store.add(EXTMEM_TAG_INVALID)), 0xFF);
}

TEST(ExtmemRequestNode, SixtyThreeNodesGrowNothing)
{
	Store store;
	Growths growths;
	store->reallocate = Growths::reallocate;
	store.fill(63);
	EXPECT_TRUE(growths.calls().empty());
}

TEST(ExtmemRequestNode, SixtyFourthNodeFitsAfterAReallocationOfTheSameSize)
{
	Store store;
	store.fill(63);
	Growths growths;
	store->reallocate = Growths::reallocate;
	const u8 *old = store->node_buffer.buf;
	EXPECT_EQ(store.add(EXTMEM_TAG_GENERAL), store.at(63));
	EXPECT_EQ(growths.calls(), (std::vector<Growths::Call>{{old, 1024, 1024}}));
	EXPECT_EQ(store->node_buffer.buf_max, 1024u);
	EXPECT_EQ(store->node_buffer.buf_used, 1024u);
}

TEST(ExtmemRequestNode, SixtyFifthNodeDoublesTheBuffer)
{
	Store store;
	store.fill(64);
	Growths growths;
	store->reallocate = Growths::reallocate;
	const u8 *old = store->node_buffer.buf;
	EXPECT_EQ(store.add(EXTMEM_TAG_GENERAL), store.at(64));
	EXPECT_EQ(growths.calls(), (std::vector<Growths::Call>{{old, 1024, 2048}}));
	EXPECT_EQ(store->node_buffer.buf_max, 2048u);
	EXPECT_EQ(store->node_buffer.buf_used, 65 * kNodeSize);
	EXPECT_TRUE(tail_is_zero(store->node_buffer));
	EXPECT_EQ(store->data_buffer.buf_max, 1024u);
}

TEST(ExtmemRequestNode, GrowthKeepsTheNodes)
{
	Store store;
	for (int i = 0; i < 200; ++i)
		store.add(i % 59);
	for (size_t i = 0; i < 200; ++i)
		ASSERT_EQ(node_bytes(store, i), tree_node(static_cast<u16>(i), static_cast<u8>(i % 59)));
	EXPECT_EQ(store->node_buffer.buf_max, 4096u);
}

TEST(ExtmemRequestNode, FailedGrowthLeavesTheBufferAsItWas)
{
	for (const size_t filled : {63u, 64u}) {
		Store store;
		store.fill(filled);
		const BufferState before(store->node_buffer);
		{
			const Refuse refuse = Refuse::only(1);
			EXPECT_EQ(store.add(EXTMEM_TAG_IP).id, kNone) << filled;
			EXPECT_TRUE(refuse.happened()) << filled;
		}
		EXPECT_EQ(store->err_code, EXTMEM_NOMEM);
		EXPECT_TRUE(BufferState(store->node_buffer) == before) << filled;
		EXPECT_EQ(store.add(EXTMEM_TAG_IP), store.at(filled));
		EXPECT_EQ(store->err_code, EXTMEM_SUCCESS);
	}
}

TEST(ExtmemRequestNode, SuccessResetsTheErrorCode)
{
	Store store;
	store->err_code = EXTMEM_INTERNAL_ERROR;
	store.add(EXTMEM_TAG_GENERAL);
	EXPECT_EQ(store->err_code, EXTMEM_SUCCESS);
}

TEST(ExtmemRequestNode, WithoutStoreIsInvalid)
{
	const node_d node = extmem_request_node(nullptr, EXTMEM_TAG_GENERAL);
	EXPECT_EQ(node.id, kNone);
	EXPECT_FALSE(extmem_node_isvalid(node));
	EXPECT_EQ(take_log(), "");
}

TEST(ExtmemRequestNode, WithoutBufferIsABadPointer)
{
	extmem_builder store = blank_builder();
	EXPECT_EQ(extmem_request_node(&store, EXTMEM_TAG_GENERAL).id, kNone);
	EXPECT_EQ(store.err_code, EXTMEM_BAD_PTR);
	EXPECT_EQ(store.node_buffer.buf_used, 0u);
	EXPECT_EQ(take_log(), "");
}

TEST(ExtmemRequestNode, MisalignedSlotIsReportedAndStaysCounted)
{
	for (const size_t used : {1u, 8u, 15u, 17u}) {
		Store store;
		store.fill(2);
		store->node_buffer.buf_used = used;
		store->err_code = EXTMEM_INTERNAL_ERROR;
		EXPECT_EQ(store.add(EXTMEM_TAG_GENERAL).id, kNone) << used;
		EXPECT_EQ(take_log(), "[extmem_request_node][254]vexil lib fail!!\n");
		EXPECT_EQ(store->node_buffer.buf_used, used + kNodeSize);
		EXPECT_EQ(store->err_code, EXTMEM_INTERNAL_ERROR) << "no code is recorded";
	}
}

TEST(ExtmemRequestNode, SixtyFiveThousandFiveHundredThirtyFiveNodesExhaustTheIds)
{
	Store store;
	store.fill(kMostNodes);
	EXPECT_EQ(extmem_request_max_node_id(store), kMostNodes - 1);
	EXPECT_EQ(extmem_fetch_id(store.at(kMostNodes - 1)), kMostNodes - 1);
	EXPECT_EQ(store->node_buffer.buf_used, kMostNodes * kNodeSize);
	const Bytes before = used_bytes(store->node_buffer);

	EXPECT_EQ(store.add(EXTMEM_TAG_GENERAL).id, kNone);
	EXPECT_EQ(store->err_code, EXTMEM_OUT_OF_RANGE);
	EXPECT_EQ(store->node_buffer.buf_used, (kMostNodes + 1) * kNodeSize);
	EXPECT_EQ(store.add(EXTMEM_TAG_GENERAL).id, kNone);
	EXPECT_EQ(store->node_buffer.buf_used, (kMostNodes + 2) * kNodeSize);
	EXPECT_EQ(take_log(), "");
	EXPECT_TRUE(std::memcmp(store->node_buffer.buf, before.data(), before.size()) == 0);
	EXPECT_TRUE(std::memcmp(store->node_buffer.buf + before.size(), Bytes(32).data(), 32) == 0)
		<< "slots without id are not written";
}

TEST(ExtmemRequestNode, MisalignmentIsNoticedBeforeExhaustion)
{
	Store store;
	store.fill(kMostNodes);
	store->node_buffer.buf_used += 8;
	store->err_code = EXTMEM_SUCCESS;
	EXPECT_EQ(store.add(EXTMEM_TAG_GENERAL).id, kNone);
	EXPECT_EQ(take_log(), "[extmem_request_node][254]vexil lib fail!!\n");
	EXPECT_EQ(store->err_code, EXTMEM_SUCCESS);
}

// ---- data requests ----

TEST(ExtmemRequestData, ReservesStepsOfEightBytes)
{
	struct {
		u32 size;
		size_t reserved;
	} const rows[] = {{1, 8}, {7, 8}, {8, 8}, {9, 16}, {16, 16}, {17, 24}, {0, 0}};
	Store store;
	size_t used = 0;
	for (const auto &row : rows) {
		const data_d data = extmem_request_data(store, row.size);
		EXPECT_EQ(data, (data_d{used, row.size, store})) << row.size;
		used += row.reserved;
		EXPECT_EQ(store->data_buffer.buf_used, used) << row.size;
	}
	EXPECT_EQ(store->node_buffer.buf_used, 0u);
}

TEST(ExtmemRequestData, IsZero)
{
	Store store;
	const data_d data = extmem_request_data(store, 3000);
	const auto *bytes = static_cast<const u8 *>(extmem_fetch_data(data));
	ASSERT_NE(bytes, nullptr);
	EXPECT_EQ(Bytes(bytes, bytes + 3000), Bytes(3000));
	EXPECT_TRUE(tail_is_zero(store->data_buffer));
}

TEST(ExtmemRequestData, GrowsByDoublingOnceTheCapacityIsReached)
{
	struct {
		u32 size;
		size_t capacity;
		size_t growths;
	} const rows[] = {
		{1016, 1024, 0}, {1017, 1024, 1}, {1024, 1024, 1}, {1025, 2048, 1},
		{2048, 2048, 1}, {2049, 4096, 1}, {5000, 8192, 1},
	};
	for (const auto &row : rows) {
		Store store;
		Growths growths;
		store->reallocate = Growths::reallocate;
		const u8 *old = store->data_buffer.buf;
		EXPECT_EQ(extmem_request_data(store, row.size), (data_d{0, row.size, store}));
		EXPECT_EQ(store->data_buffer.buf_max, row.capacity) << row.size;
		ASSERT_EQ(growths.calls().size(), row.growths) << row.size;
		for (const Growths::Call &call : growths.calls())
			EXPECT_EQ(call, (Growths::Call{old, 1024, row.capacity}));
		EXPECT_TRUE(tail_is_zero(store->data_buffer));
	}
}

TEST(ExtmemRequestData, FailedGrowthLeavesTheBufferAsItWas)
{
	Store store;
	extmem_request_data(store, 1000);
	const BufferState before(store->data_buffer);
	{
		const Refuse refuse = Refuse::only(1);
		EXPECT_EQ(extmem_request_data(store, 100), data_d{});
		EXPECT_TRUE(refuse.happened());
	}
	EXPECT_EQ(store->err_code, EXTMEM_NOMEM);
	EXPECT_TRUE(BufferState(store->data_buffer) == before);
	EXPECT_EQ(extmem_request_data(store, 100), (data_d{1000, 100, store}));
}

TEST(ExtmemRequestData, SuccessLeavesTheErrorCode)
{
	Store store;
	store->err_code = EXTMEM_OUT_OF_RANGE;
	EXPECT_EQ(extmem_request_data(store, 8).size, 8u);
	EXPECT_EQ(store->err_code, EXTMEM_OUT_OF_RANGE);
}

TEST(ExtmemRequestData, WithoutStoreIsTheZeroDescriptor)
{
	EXPECT_EQ(extmem_request_data(nullptr, 8), data_d{});
}

TEST(ExtmemRequestData, WithoutBufferIsABadPointer)
{
	extmem_builder store = blank_builder();
	EXPECT_EQ(extmem_request_data(&store, 8), data_d{});
	EXPECT_EQ(store.err_code, EXTMEM_BAD_PTR);
}

TEST(ExtmemRequestData, LargestSizeIsRoundedWithoutWrapping)
{
	Store store;
	Growths growths;
	store->reallocate = Growths::reallocate;
	const BufferState before(store->data_buffer);
	const size_t blocks = allocations();
	EXPECT_EQ(extmem_request_data(store, kLargestU32), data_d{});
	EXPECT_EQ(growths.calls(), (std::vector<Growths::Call>{
					   {before.buf, 1024, size_t{kLargestU32} + 1}}));
	EXPECT_EQ(store->err_code, EXTMEM_NOMEM);
	EXPECT_TRUE(BufferState(store->data_buffer) == before);
	EXPECT_EQ(allocations(), blocks) << "no block of 4 GiB is asked for";
}

// ---- the same for either buffer, without a descriptor ----

TEST(ExtmemBufferRequest, GivesTheRoomBehindTheUsedBytes)
{
	Store store;
	for (extmem_buffer_ctx *buffer : {&store->node_buffer, &store->data_buffer}) {
		EXPECT_EQ(__extmem_buffer_request(store, buffer, 5), buffer->buf);
		EXPECT_EQ(buffer->buf_used, 8u);
		EXPECT_EQ(__extmem_buffer_request(store, buffer, 8), buffer->buf + 8);
		EXPECT_EQ(buffer->buf_used, 16u);
		void *moved = __extmem_buffer_request(store, buffer, 3000);
		EXPECT_EQ(moved, buffer->buf + 16);
		EXPECT_EQ(buffer->buf_used, 3016u);
		EXPECT_EQ(buffer->buf_max, 4096u);
		EXPECT_EQ(all_bytes(*buffer), Bytes(4096));
	}
}

TEST(ExtmemBufferRequest, WithoutMemoryIsNullAndChangesNothing)
{
	Store store;
	const BufferState before(store->data_buffer);
	{
		const Refuse refuse = Refuse::only(1);
		EXPECT_EQ(__extmem_buffer_request(store, &store->data_buffer, 1024), nullptr);
		EXPECT_TRUE(refuse.happened());
	}
	EXPECT_EQ(store->err_code, EXTMEM_NOMEM);
	EXPECT_TRUE(BufferState(store->data_buffer) == before);
}

TEST(ExtmemBufferRequest, SizesThatWrapAreNoMemory)
{
	for (const size_t size : {SIZE_MAX, SIZE_MAX - 6, SIZE_MAX - 7, SIZE_MAX - 16, SIZE_MAX / 2 + 2}) {
		Store store;
		extmem_request_data(store, 24);
		const BufferState before(store->data_buffer);
		const size_t blocks = allocations();
		EXPECT_EQ(__extmem_buffer_request(store, &store->data_buffer, size), nullptr) << size;
		EXPECT_EQ(store->err_code, EXTMEM_NOMEM) << size;
		EXPECT_TRUE(BufferState(store->data_buffer) == before) << size;
		EXPECT_EQ(allocations(), blocks) << size;
	}
}

TEST(ExtmemBufferRequest, CapacityOfZeroEndsWithoutMemory)
{
	Store store;
	store->data_buffer.buf_max = 0;
	EXPECT_EQ(__extmem_buffer_request(store, &store->data_buffer, 8), nullptr);
	EXPECT_EQ(store->err_code, EXTMEM_NOMEM);
	store->node_buffer.buf_max = 0;
	store->err_code = EXTMEM_SUCCESS;
	EXPECT_EQ(store.add(EXTMEM_TAG_GENERAL).id, kNone);
	EXPECT_EQ(store->err_code, EXTMEM_NOMEM);
	EXPECT_EQ(store->node_buffer.buf_used, 0u);
}

// ---- nodes with data ----

TEST(ExtmemGetData, StoresACopyUnderANewNode)
{
	Store store;
	extmem_request_data(store, 8);
	store.fill(3);
	char payload[] = "payload12";
	const node_d node = extmem_get_data(store, EXTMEM_TAG_STRING_HOLDER, payload, sizeof payload);
	EXPECT_EQ(node, store.at(3));
	EXPECT_EQ(node_bytes(store, 3), data_node(3, 35, 10, 8));
	EXPECT_EQ(store->data_buffer.buf_used, 24u);
	payload[0] = 'X';
	const data_d data = extmem_copy_from_node(node);
	EXPECT_STREQ(static_cast<const char *>(extmem_fetch_data(data)), "payload12");
	EXPECT_TRUE(tail_is_zero({store->data_buffer.buf, 18, 24})) << "padding";
}

TEST(ExtmemGetData, DoesNotLookAtTheTag)
{
	Store store;
	u8 payload[] = {1, 2, 3};
	const node_d node = extmem_get_data(store, EXTMEM_TAG_IP, payload, 3);
	EXPECT_EQ(node_bytes(store, 0), data_node(0, 17, 3, 0));
	EXPECT_EQ(extmem_copy_from_node(node), (data_d{0, 3, store}));
}

TEST(ExtmemGetData, OfNoBytesIsANodeWithoutData)
{
	Store store;
	u8 payload[] = {1};
	for (void *data : {static_cast<void *>(payload), static_cast<void *>(nullptr)}) {
		const node_d node = extmem_get_data(store, EXTMEM_TAG_KEY_HOLDER, data, 0);
		ASSERT_TRUE(extmem_node_isvalid(node));
		EXPECT_EQ(node_bytes(store, node.id), tree_node(node.id, 39));
		EXPECT_EQ(extmem_copy_from_node(node), (data_d{0, kLargestU32, store}));
		EXPECT_EQ(extmem_fetch_data(extmem_copy_from_node(node)), nullptr);
	}
	EXPECT_EQ(store->data_buffer.buf_used, 0u);
}

TEST(ExtmemGetData, WithoutDataReservesNothing)
{
	Store store;
	EXPECT_EQ(extmem_get_data(store, EXTMEM_TAG_DATA, nullptr, 4).id, kNone);
	EXPECT_EQ(store->node_buffer.buf_used, 0u);
	EXPECT_EQ(store->data_buffer.buf_used, 0u);
}

TEST(ExtmemGetData, WithoutStoreIsInvalid)
{
	u8 payload[] = {1};
	EXPECT_EQ(extmem_get_data(nullptr, EXTMEM_TAG_DATA, payload, 1).id, kNone);
	EXPECT_EQ(extmem_get_data(nullptr, EXTMEM_TAG_DATA, payload, 0).id, kNone);
}

TEST(ExtmemGetData, WithoutNodeReservesNoData)
{
	Store store;
	store.fill(63);
	u8 payload[] = {1};
	{
		const Refuse refuse = Refuse::only(1);
		EXPECT_EQ(extmem_get_data(store, EXTMEM_TAG_DATA, payload, 1).id, kNone);
		EXPECT_TRUE(refuse.happened());
	}
	EXPECT_EQ(store->err_code, EXTMEM_NOMEM);
	EXPECT_EQ(store->data_buffer.buf_used, 0u);
	EXPECT_EQ(store->node_buffer.buf_used, 63 * kNodeSize);
}

TEST(ExtmemGetData, WithoutRoomForTheDataIsInvalidAndUsesTheNode)
{
	Store store;
	Bytes payload(2000, 7);
	const BufferState before(store->data_buffer);
	{
		const Refuse refuse = Refuse::only(1);
		EXPECT_EQ(extmem_get_data(store, EXTMEM_TAG_DATA, payload.data(), 2000).id, kNone);
		EXPECT_TRUE(refuse.happened());
	}
	EXPECT_EQ(store->err_code, EXTMEM_NOMEM);
	EXPECT_EQ(store->node_buffer.buf_used, kNodeSize);
	EXPECT_TRUE(BufferState(store->data_buffer) == before);
}

TEST(ExtmemGetData, WithoutDataBufferIsInvalid)
{
	Store store;
	u8 payload[] = {1};
	const extmem_buffer_ctx data = std::exchange(store->data_buffer, {});
	EXPECT_EQ(extmem_get_data(store, EXTMEM_TAG_DATA, payload, 1).id, kNone);
	EXPECT_EQ(store->err_code, EXTMEM_BAD_PTR);
	store->data_buffer = data;
}

TEST(ExtmemGetData, TakesASourceInsideItsOwnDataWhenTheBufferMoves)
{
	Store store;
	Bytes original(600);
	for (size_t i = 0; i < original.size(); ++i)
		original[i] = static_cast<u8>(i * 7 + 1);
	const node_d first = store.holder(EXTMEM_TAG_DATA, original);
	void *inside = extmem_fetch_data(extmem_copy_from_node(first));
	const node_d second = extmem_get_data(store, EXTMEM_TAG_DATA, inside, 600);
	EXPECT_EQ(store->data_buffer.buf_max, 2048u);
	ASSERT_TRUE(extmem_node_isvalid(second));
	for (const node_d node : {first, second}) {
		const auto *bytes =
			static_cast<const u8 *>(extmem_fetch_data(extmem_copy_from_node(node)));
		ASSERT_NE(bytes, nullptr);
		EXPECT_EQ(Bytes(bytes, bytes + 600), original);
	}
}

TEST(ExtmemGetData, TakesAPartOfARecordInsideItsOwnData)
{
	Store store;
	store.holder(EXTMEM_TAG_DATA, Bytes(1000, 1));
	const node_d text = store.holder(EXTMEM_TAG_STRING_HOLDER, text_bytes("name#member"));
	auto *inside = static_cast<char *>(extmem_fetch_data(extmem_copy_from_node(text)));
	const node_d part = extmem_get_data(store, EXTMEM_TAG_STRING_HOLDER, inside + 5, 7);
	EXPECT_STREQ(static_cast<const char *>(extmem_fetch_data(extmem_copy_from_node(part))),
		     "member");
}

// ---- in place ----

// Three free slots of 16 bytes behind one node, 24 free bytes behind one record.
HandImage roomy_image()
{
	HandImage image(tree_node(0, EXTMEM_TAG_GENERAL), Bytes(8, 0x11));
	image.nodes.resize(4 * kNodeSize);
	image.nodes_max = 4 * kNodeSize;
	image.data.resize(32);
	image.data_max = 32;
	return image;
}

class ExtmemInPlace : public testing::Test {
protected:
	ExtmemInPlace() : image_(roomy_image().bytes()), store_(blank_builder())
	{
		EXPECT_TRUE(extmem_builder_init(&store_, image_of(image_),
						static_cast<u32>(image_.size())));
		store_.reallocate = Growths::reallocate;
	}
	~ExtmemInPlace() override
	{
		EXPECT_TRUE(growths_.calls().empty()) << "image memory reached the allocator";
		EXPECT_EQ(allocations(), 0u);
		extmem_builder_destroy(&store_);
	}

	Bytes image_;
	extmem_builder store_;
	Growths growths_;
};

TEST_F(ExtmemInPlace, NodesThatFitAreMadeInTheImage)
{
	for (u16 id = 1; id <= 3; ++id) {
		EXPECT_EQ(extmem_request_node(&store_, EXTMEM_TAG_IP), (node_d{id, &store_}));
		EXPECT_EQ(node_bytes(&store_, id), tree_node(id, EXTMEM_TAG_IP));
	}
	EXPECT_EQ(store_.node_buffer.buf_used, 4 * kNodeSize);
	EXPECT_EQ(store_.node_buffer.buf, reinterpret_cast<u8 *>(image_.data()) + 96);
}

TEST_F(ExtmemInPlace, NodeBeyondTheCapacityIsRefused)
{
	for (int i = 0; i < 3; ++i)
		extmem_request_node(&store_, EXTMEM_TAG_IP);
	const BufferState before(store_.node_buffer);
	EXPECT_EQ(extmem_request_node(&store_, EXTMEM_TAG_IP).id, kNone);
	EXPECT_EQ(store_.err_code, EXTMEM_NOMEM);
	EXPECT_TRUE(BufferState(store_.node_buffer) == before);
}

TEST_F(ExtmemInPlace, DataThatFitsIsReservedInTheImage)
{
	EXPECT_EQ(extmem_request_data(&store_, 7), (data_d{8, 7, &store_}));
	EXPECT_EQ(extmem_request_data(&store_, 16), (data_d{16, 16, &store_}));
	EXPECT_EQ(store_.data_buffer.buf_used, 32u);
}

TEST_F(ExtmemInPlace, DataBeyondTheCapacityIsRefused)
{
	const BufferState before(store_.data_buffer);
	EXPECT_EQ(extmem_request_data(&store_, 25), data_d{});
	EXPECT_EQ(store_.err_code, EXTMEM_NOMEM);
	EXPECT_TRUE(BufferState(store_.data_buffer) == before);
	EXPECT_EQ(__extmem_buffer_request(&store_, &store_.data_buffer, 25), nullptr);
	EXPECT_TRUE(BufferState(store_.data_buffer) == before);
}

TEST_F(ExtmemInPlace, PayloadBeyondTheCapacityUsesTheNodeOnly)
{
	Bytes payload(25, 9);
	const BufferState before(store_.data_buffer);
	EXPECT_EQ(extmem_get_data(&store_, EXTMEM_TAG_DATA, payload.data(), 25).id, kNone);
	EXPECT_EQ(store_.err_code, EXTMEM_NOMEM);
	EXPECT_EQ(store_.node_buffer.buf_used, 2 * kNodeSize);
	EXPECT_TRUE(BufferState(store_.data_buffer) == before);
}

TEST_F(ExtmemInPlace, PayloadThatFitsIsStoredInTheImage)
{
	Bytes payload(24, 9);
	const node_d node = extmem_get_data(&store_, EXTMEM_TAG_DATA, payload.data(), 24);
	EXPECT_EQ(node, (node_d{1, &store_}));
	EXPECT_EQ(node_bytes(&store_, 1), data_node(1, EXTMEM_TAG_DATA, 24, 8));
	EXPECT_EQ(used_bytes(store_.data_buffer), joined({Bytes(8, 0x11), payload}));
}

// ---- against plain vectors ----

class ExtmemModel : public testing::TestWithParam<unsigned int> {};

// The store as an array of 16-byte records and an array of bytes: every request and link is made in
// both, and they must stay the same bytes.
TEST_P(ExtmemModel, AgreesWithPlainVectors)
{
	const unsigned int seed = GetParam();
	SCOPED_TRACE("seed " + std::to_string(seed));
	constexpr size_t kSteps = 4001;
	constexpr size_t kStepsBetweenComparisons = 20;
	std::mt19937 random(seed);
	const auto below = [&](size_t limit) { return static_cast<size_t>(random() % limit); };

	Store store;
	std::vector<Bytes> nodes;
	Bytes data;
	std::vector<data_d> records;
	const auto put16 = [](Bytes &node, size_t at, size_t value) {
		node[at] = static_cast<u8>(value);
		node[at + 1] = static_cast<u8>(value >> 8);
	};
	const auto put32 = [&](Bytes &node, size_t at, size_t value) {
		put16(node, at, value & 0xFFFF);
		put16(node, at + 2, value >> 16);
	};
	const auto get16 = [](const Bytes &node, size_t at) {
		return static_cast<u16>(node[at] | node[at + 1] << 8);
	};
	// Now and then an id that is not there.
	const auto any_id = [&] { return below(nodes.size() + 2); };
	const auto exists = [&](size_t id) { return id < nodes.size(); };
	const auto reserve = [&](size_t size) { data.resize(data.size() + (size + 7) / 8 * 8); };
	const auto random_bytes = [&](size_t size) {
		Bytes bytes(size);
		for (u8 &byte : bytes)
			byte = static_cast<u8>(random());
		return bytes;
	};

	for (size_t step = 0; step < kSteps; ++step) {
		SCOPED_TRACE("step " + std::to_string(step));
		const size_t a = any_id();
		const size_t b = any_id();
		const u8 tag = static_cast<u8>(below(59));
		switch (below(12)) {
		case 0:
		case 1:
			ASSERT_EQ(store.add(tag), store.at(nodes.size()));
			nodes.push_back(tree_node(static_cast<u16>(nodes.size()), tag));
			break;
		case 2: {
			const size_t size = below(40);
			const data_d record = extmem_request_data(store, static_cast<u32>(size));
			ASSERT_EQ(record, (data_d{data.size(), size, store}));
			records.push_back(record);
			reserve(size);
			break;
		}
		case 3: {
			const Bytes payload = random_bytes(1 + below(60));
			ASSERT_EQ(store.holder(tag, payload), store.at(nodes.size()));
			nodes.push_back(data_node(static_cast<u16>(nodes.size()), tag,
						  static_cast<u32>(payload.size()),
						  static_cast<u32>(data.size())));
			const size_t at = data.size();
			reserve(payload.size());
			std::copy(payload.begin(), payload.end(),
				  data.begin() + static_cast<std::ptrdiff_t>(at));
			break;
		}
		case 4:
			ASSERT_EQ(extmem_append_next(store.at(a), store.at(b)), exists(a) && exists(b));
			if (exists(a) && exists(b))
				put16(nodes[a], 5, b);
			break;
		case 5:
			ASSERT_EQ(extmem_append_child(store.at(a), store.at(b)),
				  exists(a) && exists(b));
			if (exists(a) && exists(b))
				put16(nodes[a], 3, b);
			break;
		case 6: {
			const size_t previous = below(2) ? any_id() : kNone;
			const node_d expected = exists(a) && exists(b) ? store.at(b)
								       : store.at(previous);
			ASSERT_EQ(extmem_append_child_cond(store.at(a), store.at(previous), store.at(b)),
				  expected);
			if (exists(a) && exists(b))
				exists(previous) ? put16(nodes[previous], 5, b)
						 : put16(nodes[a], 3, b);
			break;
		}
		case 7:
			ASSERT_EQ(extmem_break_next(store.at(a)), exists(a));
			if (exists(a))
				put16(nodes[a], 5, kNone);
			break;
		case 8:
			ASSERT_EQ(extmem_set_tag(store.at(a), static_cast<extmem_tag>(tag)), exists(a));
			if (exists(a))
				nodes[a][2] = tag;
			break;
		case 9: {
			if (records.empty())
				break;
			data_d &record = records[below(records.size())];
			Bytes payload = random_bytes(1 + below(40));
			const bool fits = record.size >= payload.size();
			ASSERT_EQ(extmem_set_data(&record, payload.data(), payload.size()), fits);
			if (fits) {
				ASSERT_EQ(record.size, payload.size());
				std::copy(payload.begin(), payload.end(),
					  data.begin() + static_cast<std::ptrdiff_t>(record.offset));
			}
			break;
		}
		case 10: {
			if (records.empty())
				break;
			const data_d &record = records[below(records.size())];
			ASSERT_EQ(extmem_copy_to_node(store.at(a), record),
				  exists(a) && record.size > 0);
			if (exists(a) && record.size > 0) {
				put32(nodes[a], 3, record.size);
				put32(nodes[a], 7, record.offset);
			}
			break;
		}
		default:
			ASSERT_EQ(extmem_get_next(store.at(a)).id,
				  exists(a) ? get16(nodes[a], 5) : kNone);
			ASSERT_EQ(extmem_get_child(store.at(a)).id,
				  exists(a) ? get16(nodes[a], 3) : kNone);
			ASSERT_EQ(extmem_fetch_tag(store.at(a)), exists(a) ? nodes[a][2] : -1);
			ASSERT_EQ(extmem_fetch_id(store.at(a)), exists(a) ? a : kNone);
			break;
		}
		if (step % kStepsBetweenComparisons != 0)
			continue;
		Bytes all;
		for (const Bytes &node : nodes)
			all.insert(all.end(), node.begin(), node.end());
		ASSERT_TRUE(used_bytes(store->node_buffer) == all);
		ASSERT_TRUE(used_bytes(store->data_buffer) == data);
		ASSERT_TRUE(tail_is_zero(store->node_buffer));
		ASSERT_TRUE(tail_is_zero(store->data_buffer));
	}
	EXPECT_EQ(take_log(), "");

	// The same bytes again from an image.
	Bytes image = exported(store);
	extmem_builder adopted = blank_builder();
	ASSERT_TRUE(extmem_builder_init(&adopted, image_of(image), static_cast<u32>(image.size())));
	EXPECT_EQ(all_bytes(adopted.node_buffer), all_bytes(store->node_buffer));
	EXPECT_EQ(all_bytes(adopted.data_buffer), all_bytes(store->data_buffer));
	extmem_builder_destroy(&adopted);
}

INSTANTIATE_TEST_SUITE_P(Seeds, ExtmemModel, testing::Values(11u, 12u, 13u));

} // namespace
