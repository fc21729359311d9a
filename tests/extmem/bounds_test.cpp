// SPDX-License-Identifier: MIT
//
// Stores at their ends: no record, no buffers, data that no offset reaches, records printed again
// and again.

#include "tests/support/stores.h"

#include "tests/support/platform.h"

namespace {

using namespace vexil_test;

TEST(ExtmemBounds, NoStoreHasNoLastNodeAndGivesNoRoom)
{
	EXPECT_EQ(extmem_request_max_node_id(nullptr), kNone);
	Store store;
	EXPECT_EQ(__extmem_buffer_request(nullptr, &store->data_buffer, 8), nullptr);
	EXPECT_EQ(__extmem_buffer_request(store, nullptr, 8), nullptr);
	EXPECT_EQ(store->data_buffer.buf_used, 0u);
	EXPECT_EQ(store->err_code, EXTMEM_SUCCESS);
}

TEST(ExtmemBounds, ExportOfAStoreWithoutBuffersIsItsHeadAndItsFigures)
{
	extmem_builder blank = blank_builder();
	blank.header.binType = 7;
	Bytes image(104, 0xEE);
	ASSERT_EQ(extmem_builder_get_export_size(&blank), image.size());
	EXPECT_EQ(extmem_builder_export(&blank, image_of(image)), image.size());
	EXPECT_EQ(blank.header.binSize, image.size());
	EXPECT_EQ(std::memcmp(image.data(), &blank.header, sizeof blank.header), 0);
	EXPECT_EQ(Bytes(image.begin() + sizeof blank.header, image.end()), Bytes(16, 0));
}

TEST(ExtmemBounds, RecordBehind4GiBIsGivenToNoNode)
{
	constexpr size_t kReach = size_t{1} << 32;
	Store store;
	const extmem_buffer_ctx own = store->data_buffer;
	alignas(8) u8 there[64] = {};
	// Only the end of these 4 GiB exists; nothing before it is touched.
	auto *const claimed = reinterpret_cast<u8 *>(reinterpret_cast<uintptr_t>(there) - kReach);
	store->data_buffer = {claimed, kReach - 8, kReach + sizeof there};
	u64 value = 0x0123456789ABCDEF;
	store->data_buffer.buf_used = kReach;
	EXPECT_EQ(extmem_get_data(store, EXTMEM_TAG_SIZE_HOLDER, &value, sizeof value), kInvalid);
	EXPECT_EQ(take_log(), "[extmem_copy_to_node][448]vexil lib fail!!\n");
	store->data_buffer = own;
	EXPECT_EQ(extmem_request_max_node_id(store), 0u); // the slot stays used
}

/** @count holders below the root, each with a record of its own over the same @size bytes. */
Bytes shared_record(u16 count, u32 size)
{
	Bytes nodes = tree_node(0, EXTMEM_TAG_GENERAL, 1);
	for (u16 i = 0; i < count; ++i) {
		const auto id = static_cast<u16>(1 + 2 * i);
		const auto next = i + 1 < count ? static_cast<u16>(id + 2) : kNone;
		nodes = joined(
			{nodes, tree_node(id, EXTMEM_TAG_GENERAL, static_cast<u16>(id + 1), next),
			 data_node(static_cast<u16>(id + 1), EXTMEM_TAG_VALUE_HOLDER, size, 0)});
	}
	return HandImage(nodes, Bytes(size, 1)).bytes();
}

TEST(ExtmemBounds, DumpEndsWhenRecordsAreSharedTooOften)
{
	constexpr u16 kHolders = 60;
	Bytes image = shared_record(kHolders, 256);
	extmem_builder store = blank_builder();
	ASSERT_TRUE(extmem_builder_init(&store, image_of(image), static_cast<u32>(image.size())));
	const Printed printed;
	store.print = Printed::print;
	extmem_print(&store, {0, &store}, 0);
	EXPECT_EQ(take_log(), "[extmem_print][612]vexil lib fail!!\n");
	const std::string text = Printed::take();
	size_t records = 0;
	for (size_t at = text.find("Values:["); at != std::string::npos;
	     at = text.find("Values:[", at + 1))
		++records;
	EXPECT_GT(records, 0u);
	EXPECT_LT(records, kHolders);
	extmem_builder_destroy(&store);
}

} // namespace
