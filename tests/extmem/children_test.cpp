// SPDX-License-Identifier: MIT
//
// Walks that always end, and reads that look before they trust.
#include "extmem/children.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "extmem/reader.h"
#include "tests/support/platform.h"
#include "tests/support/stores.h"

namespace {

using namespace vexil_test;
using vexil::Children;
using vexil::WalkBudget;

/** Adopts an image of these nodes over these data bytes. */
class Adopted {
public:
	explicit Adopted(Bytes nodes, Bytes data = Bytes(8))
	    : image_(HandImage(std::move(nodes), std::move(data)).bytes()), store_(blank_builder())
	{
		EXPECT_TRUE(extmem_builder_init(&store_, image_of(image_),
						static_cast<u32>(image_.size())));
	}
	~Adopted() { extmem_builder_destroy(&store_); }
	Adopted(const Adopted &) = delete;
	Adopted &operator=(const Adopted &) = delete;

	operator extmem_builder &() { return store_; }
	node_d at(size_t id) { return {static_cast<u16>(id), &store_}; }

private:
	Bytes image_;
	extmem_builder store_;
};

std::vector<u16> ids_of(Children children)
{
	std::vector<u16> ids;
	for (const node_d child : children)
		ids.push_back(child.id);
	return ids;
}

TEST(ExtmemChildren, ComeInOrder)
{
	Adopted store(joined({tree_node(0, 1, 2), tree_node(1, 1), tree_node(2, 17, kNone, 3),
			      tree_node(3, 22, kNone, 1)}));
	WalkBudget budget(store);
	EXPECT_EQ(ids_of(Children(store.at(0), budget)), (std::vector<u16>{2, 3, 1}));
	EXPECT_EQ(ids_of(Children(store.at(1), budget)), (std::vector<u16>{}));
	EXPECT_EQ(ids_of(Children(store.at(9), budget)), (std::vector<u16>{}));
	EXPECT_EQ(ids_of(Children(kInvalid, budget)), (std::vector<u16>{}));
	EXPECT_FALSE(budget.spent());
}

TEST(ExtmemChildren, EndAtAnIdOutsideTheStore)
{
	Adopted store(joined({tree_node(0, 1, 1), tree_node(1, 1, kNone, 7), tree_node(2, 1, 9)}));
	WalkBudget budget(store);
	EXPECT_EQ(ids_of(Children(store.at(0), budget)), (std::vector<u16>{1}));
	EXPECT_EQ(ids_of(Children(store.at(2), budget)), (std::vector<u16>{}));
}

TEST(ExtmemChildren, EndAtADataHolder)
{
	// The upper half of the holder's size reads as node 1, its lower half as node 2.
	Adopted store(joined({tree_node(0, 1, 2), tree_node(1, 1), data_node(2, 35, 0x00010002, 0)}));
	WalkBudget budget(store);
	EXPECT_EQ(ids_of(Children(store.at(0), budget)), (std::vector<u16>{2}));
	EXPECT_EQ(ids_of(Children(store.at(2), budget)), (std::vector<u16>{}));
}

TEST(ExtmemChildren, cyclic_siblings)
{
	Adopted store(joined({tree_node(0, 1, 1), tree_node(1, 1, kNone, 2), tree_node(2, 1, kNone, 1)}));
	WalkBudget budget(store);
	EXPECT_EQ(ids_of(Children(store.at(0), budget)).size(), 3u) << "as many steps as there are nodes";
	EXPECT_TRUE(budget.spent());
	EXPECT_EQ(ids_of(Children(store.at(0), budget)), (std::vector<u16>{})) << "for all that follows";
}

TEST(ExtmemWalkBudget, IsEightNodesForEachAndSixtyFour)
{
	Store store;
	store.fill(10);
	WalkBudget budget(*static_cast<extmem_builder *>(store));
	for (size_t i = 0; i < 8 * 10 + 64; ++i)
		ASSERT_TRUE(budget.spend()) << i;
	EXPECT_FALSE(budget.spent());
	EXPECT_FALSE(budget.spend());
	EXPECT_TRUE(budget.spent());
}

TEST(ExtmemFindNextWithin, IsTheSameSearch)
{
	Adopted store(joined({tree_node(0, 17, kNone, 1), tree_node(1, 22, kNone, 2),
			      tree_node(2, 31, kNone, 3), data_node(3, 53, 4, 0)}));
	WalkBudget budget(store);
	for (const int tag : {17, 22, 31, 53, 18})
		EXPECT_EQ(vexil::find_next(store.at(0), tag, budget).id,
			  extmem_find_next(store.at(0), tag).id)
			<< tag;
	EXPECT_EQ(vexil::find_next(kInvalid, 22, budget).id, kNone);
}

TEST(ExtmemFindNextWithin, cyclic_siblings)
{
	Adopted store(joined({tree_node(0, 1, kNone, 1), tree_node(1, 1, kNone, 0)}));
	WalkBudget budget(store);
	EXPECT_EQ(vexil::find_next(store.at(0), 22, budget).id, kNone);
	EXPECT_TRUE(budget.spent());
}

TEST(ExtmemPayload, IsTheRecordOfADataHolder)
{
	Adopted store(joined({data_node(0, 35, 3, 8), data_node(1, 34, 8, 8), data_node(2, 34, 9, 8),
			      data_node(3, 34, 0, 8), data_node(4, 22, 8, 0)}),
		      joined({Bytes(8, 1), Bytes(8, 2)}));
	const vexil::Bytes text = vexil::payload(store.at(0));
	ASSERT_TRUE(text);
	EXPECT_EQ(Bytes(text.begin(), text.end()), Bytes(3, 2));
	EXPECT_EQ(vexil::payload(store.at(1)).size(), 8u);
	for (const size_t id : {2u, 3u, 4u, 5u}) {
		EXPECT_FALSE(vexil::payload(store.at(id))) << id;
		EXPECT_EQ(vexil::payload(store.at(id)).size(), 0u) << id;
	}
}

TEST(ExtmemText, NeedsANulInsideItsRecord)
{
	Adopted store(joined({data_node(0, 35, 5, 0), data_node(1, 35, 4, 0), data_node(2, 35, 8, 0),
			      data_node(3, 34, 5, 0), data_node(4, 35, 99, 0)}),
		      joined({text_bytes("name"), Bytes(3, 'x')}));
	EXPECT_STREQ(vexil::text_of(store.at(0)), "name");
	EXPECT_EQ(vexil::text_of(store.at(1)), nullptr);
	EXPECT_STREQ(vexil::text_of(store.at(2)), "name");
	EXPECT_EQ(vexil::text_of(store.at(3)), nullptr) << "no string holder";
	EXPECT_EQ(vexil::text_of(store.at(4)), nullptr);
	EXPECT_EQ(vexil::text_of(kInvalid), nullptr);
}

TEST(ExtmemName, IsUnderTheFirstPropertyThatFollows)
{
	Adopted store(joined({tree_node(0, 17, kNone, 1), tree_node(1, 1, kNone, 2),
			      tree_node(2, 22, 4, 3), tree_node(3, 22, 5), data_node(4, 35, 4, 0),
			      data_node(5, 35, 4, 8), tree_node(6, 17)}),
		      joined({text_bytes("one"), Bytes(4), text_bytes("two"), Bytes(4)}));
	WalkBudget budget(store);
	EXPECT_STREQ(vexil::name_of(store.at(0), budget), "one");
	EXPECT_STREQ(vexil::name_of(store.at(2), budget), "two");
	EXPECT_EQ(vexil::name_of(store.at(3), budget), nullptr);
	EXPECT_EQ(vexil::name_of(store.at(6), budget), nullptr);
}

// The reader makes the store's checks a second time; both must see the same in any bytes.
TEST(ExtmemReader, SeesWhatTheStoresOwnCallsSee)
{
	constexpr unsigned int kSeed = 21;
	constexpr size_t kImages = 300;
	SCOPED_TRACE("seed " + std::to_string(kSeed));
	std::mt19937 random(kSeed);
	for (size_t image = 0; image < kImages; ++image) {
		SCOPED_TRACE("image " + std::to_string(image));
		const size_t slots = 1 + random() % 12;
		Bytes nodes(slots * kNodeSize);
		for (u8 &byte : nodes)
			byte = random() % 3 == 0 ? static_cast<u8>(random()) : 0;
		for (size_t id = 0; id < slots; ++id) {
			nodes[id * kNodeSize + 2] = static_cast<u8>(random() % 60);
			nodes[id * kNodeSize + 3] = static_cast<u8>(random() % 16);
			nodes[id * kNodeSize + 5] = static_cast<u8>(random() % 16);
		}
		nodes.resize(nodes.size() + random() % kNodeSize); // a part of a node behind the last
		Adopted store(nodes, Bytes(8 * (1 + random() % 4)));
		const vexil::Reader reader(store);
		for (size_t id = 0; id < slots + 3; ++id) {
			SCOPED_TRACE("node " + std::to_string(id));
			const node_d node = store.at(id);
			const u16 small_id = node.id;
			EXPECT_EQ(reader.holds(small_id), extmem_node_isvalid(node));
			EXPECT_EQ(reader.tag(small_id), extmem_fetch_tag(node));
			EXPECT_EQ(reader.child(small_id), vexil::child_of(node).id);
			EXPECT_EQ(reader.next(small_id), vexil::next_of(node).id);
			const vexil::Bytes theirs = vexil::payload(node);
			EXPECT_EQ(reader.record(small_id).size(), theirs.size());
			if (theirs) {
				EXPECT_EQ(reader.record(small_id).data(), theirs.data());
			}
		}
		EXPECT_FALSE(reader.holds(kNone));
		EXPECT_EQ(reader.tag(kNone), -1);
	}
}

TEST(ExtmemReader, OfAStoreWithoutBuffersHoldsNothing)
{
	extmem_builder store = blank_builder();
	store.node_buffer.buf_used = 160;
	const vexil::Reader reader(store);
	EXPECT_FALSE(reader.holds(0));
	EXPECT_EQ(reader.child(0), kNone);
	EXPECT_FALSE(reader.record(0));
}

TEST(ExtmemReader, NeverHoldsTheInvalidId)
{
	Store store;
	store.fill(kMostNodes);
	store.add(EXTMEM_TAG_GENERAL);
	const vexil::Reader reader(*static_cast<extmem_builder *>(store));
	EXPECT_TRUE(reader.holds(kMostNodes - 1));
	EXPECT_FALSE(reader.holds(kNone));
}

} // namespace
