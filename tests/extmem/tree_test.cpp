// SPDX-License-Identifier: MIT
//
// Growing the tree node by node.
#include "extmem/tree.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/platform.h"
#include "tests/support/stores.h"

namespace {

using namespace vexil_test;

TEST(ExtmemTree, EachStepRequestsOneNodeAndLinksIt)
{
	Store store;
	store.fill(1);
	const node_d ip = vexil::add_child(store.at(0), EXTMEM_TAG_IP);
	EXPECT_EQ(ip, store.at(1));
	const node_d version = vexil::add_next(ip, EXTMEM_TAG_VERSION);
	EXPECT_EQ(version, store.at(2));
	const u8 bytes[] = {1, 2, 3};
	EXPECT_EQ(vexil::add_record(version, EXTMEM_TAG_VERSION_HOLDER, bytes, 3), store.at(3));
	EXPECT_EQ(used_bytes(store->node_buffer),
		  joined({tree_node(0, 1, 1), tree_node(1, 17, kNone, 2), tree_node(2, 32, 3),
			  data_node(3, 54, 3, 0)}));
	EXPECT_EQ(used_bytes(store->data_buffer), (Bytes{1, 2, 3, 0, 0, 0, 0, 0}));
}

TEST(ExtmemTree, PropertyIsANodeWithItsNameBelow)
{
	Store store;
	store.fill(1);
	EXPECT_EQ(vexil::add_property(store.at(0), "name"), store.at(1));
	EXPECT_EQ(used_bytes(store->node_buffer),
		  joined({tree_node(0, 1, kNone, 1), tree_node(1, 22, 2), data_node(2, 35, 5, 0)}));
	EXPECT_EQ(used_bytes(store->data_buffer), joined({text_bytes("name"), Bytes(3)}));
}

TEST(ExtmemTree, TextOnItsOwnIsNotLinked)
{
	Store store;
	store.fill(1);
	EXPECT_EQ(vexil::new_text(store, "abc"), store.at(1));
	EXPECT_EQ(node_bytes(store, 0), tree_node(0, 1));
	EXPECT_EQ(node_bytes(store, 1), data_node(1, 35, 4, 0));
}

TEST(ExtmemTree, MissingTextIsInvalidAndRequestsNothing)
{
	Store store;
	store.fill(1);
	EXPECT_EQ(vexil::new_text(store, nullptr).id, kNone);
	EXPECT_EQ(vexil::add_text(store.at(0), nullptr).id, kNone);
	EXPECT_EQ(store->node_buffer.buf_used, kNodeSize);
	EXPECT_EQ(vexil::add_property(store.at(0), nullptr).id, kNone);
}

TEST(ExtmemTree, NothingIsRequestedBelowAnInvalidNode)
{
	Store store;
	store.fill(1);
	const u8 byte = 1;
	for (const node_d bad : {kInvalid, store.at(5), store.at(kNone), node_d{0, nullptr}}) {
		EXPECT_EQ(vexil::add_child(bad, EXTMEM_TAG_IP).id, kNone);
		EXPECT_EQ(vexil::add_next(bad, EXTMEM_TAG_IP).id, kNone);
		EXPECT_EQ(vexil::add_record(bad, EXTMEM_TAG_DATA, &byte, 1).id, kNone);
		EXPECT_EQ(vexil::add_text(bad, "x").id, kNone);
		EXPECT_EQ(vexil::add_property(bad, "x").id, kNone);
	}
	EXPECT_EQ(store->node_buffer.buf_used, kNodeSize);
	EXPECT_EQ(store->data_buffer.buf_used, 0u);
}

TEST(ExtmemTree, RecordBeyondThirtyTwoBitsIsRefused)
{
	Store store;
	store.fill(1);
	const u8 byte = 1;
	EXPECT_EQ(vexil::add_record(store.at(0), EXTMEM_TAG_DATA, &byte, size_t{1} << 32).id, kNone);
	EXPECT_EQ(store->node_buffer.buf_used, kNodeSize);
}

TEST(ExtmemTree, FailedStepLinksNothing)
{
	Store store;
	store.fill(63);
	const Bytes before = used_bytes(store->node_buffer);
	const Refuse refuse = Refuse::only(1);
	EXPECT_EQ(vexil::add_child(store.at(0), EXTMEM_TAG_IP).id, kNone);
	EXPECT_TRUE(refuse.happened());
	EXPECT_EQ(used_bytes(store->node_buffer), before);
}

std::string children(Store &store)
{
	std::string ids;
	for (node_d child = extmem_get_child(store.at(0)); child.id != kNone;
	     child = extmem_get_next(child))
		ids += std::to_string(child.id) + " ";
	return ids;
}

TEST(ExtmemAppendToRoot, KeepsTheOrderAndRemembersTheLast)
{
	Store store;
	store.fill(6);
	u16 hint = 0;
	for (const size_t id : {3u, 1u, 5u}) {
		vexil::append_to_root(store.at(0), &hint, store.at(id));
		EXPECT_EQ(hint, id);
	}
	EXPECT_EQ(children(store), "3 1 5 ");
}

TEST(ExtmemAppendToRoot, FindsTheEndFromAnyHint)
{
	for (const u16 start : {0, 1, 2, 3}) {
		Store store;
		store.fill(5);
		u16 hint = 0;
		for (const size_t id : {1u, 2u, 3u})
			vexil::append_to_root(store.at(0), &hint, store.at(id));
		hint = start;
		vexil::append_to_root(store.at(0), &hint, store.at(4));
		EXPECT_EQ(children(store), "1 2 3 4 ") << start;
		EXPECT_EQ(hint, 4) << start;
	}
}

TEST(ExtmemAppendToRoot, HintOfARootWithoutChildrenIsNotFollowed)
{
	Store store;
	store.fill(4);
	u16 hint = 2;
	vexil::append_to_root(store.at(0), &hint, store.at(3));
	EXPECT_EQ(children(store), "3 ");
}

} // namespace
