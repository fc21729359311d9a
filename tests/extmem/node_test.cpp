// SPDX-License-Identifier: MIT
//
// Validity, access to nodes, links and searches along them.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <new>
#include <string>

#include "extmem/extmem.h"
#include "tests/support/platform.h"
#include "tests/support/stores.h"

namespace {

using namespace vexil_test;

/** Adopts an image of these nodes, as they stand. */
class Adopted {
public:
	explicit Adopted(Bytes nodes)
	    : image_(HandImage(std::move(nodes), Bytes(8)).bytes()), store_(blank_builder())
	{
		EXPECT_TRUE(extmem_builder_init(&store_, image_of(image_),
						static_cast<u32>(image_.size())));
	}
	~Adopted() { extmem_builder_destroy(&store_); }
	Adopted(const Adopted &) = delete;
	Adopted &operator=(const Adopted &) = delete;

	operator extmem_builder *() { return &store_; }
	extmem_builder *operator->() { return &store_; }
	node_d at(size_t id) { return {static_cast<u16>(id), &store_}; }

private:
	Bytes image_;
	extmem_builder store_;
};

// ---- the tags ----

TEST(ExtmemTags, HaveTheirNumbers)
{
	const std::map<int, extmem_tag> tags = {
		{-1, EXTMEM_TAG_INVALID},
		{0, EXTMEM_TAG_UNSPECIFIED},
		{1, EXTMEM_TAG_GENERAL},
		{16, EXTMEM_TAG_CUSTOM_BEGIN},
		{17, EXTMEM_TAG_IP},
		{18, EXTMEM_TAG_IP_SETTING},
		{19, EXTMEM_TAG_IP_CONFIG},
		{20, EXTMEM_TAG_IP_PRESET_REG_CONFIG},
		{21, EXTMEM_TAG_IP_COMMON_REG_CONFIG},
		{22, EXTMEM_TAG_PROPERTY},
		{23, EXTMEM_TAG_RULE},
		{24, EXTMEM_TAG_SOURCE_LABEL},
		{25, EXTMEM_TAG_SOURCE_REDEFINE},
		{26, EXTMEM_TAG_FILE},
		{27, EXTMEM_TAG_FUNCTION_DATA},
		{28, EXTMEM_TAG_ALGORITHM_DATA},
		{29, EXTMEM_TAG_KEY_DESCRIPTION},
		{30, EXTMEM_TAG_KEY_RANGE},
		{31, EXTMEM_TAG_PQLEVEL},
		{32, EXTMEM_TAG_VERSION},
		{33, EXTMEM_TAG_DATA_TYPE_BEGIN},
		{34, EXTMEM_TAG_DATA},
		{35, EXTMEM_TAG_STRING_HOLDER},
		{36, EXTMEM_TAG_REGISTER_SETTINGS},
		{37, EXTMEM_TAG_VREGISTER_SETTINGS},
		{38, EXTMEM_TAG_SOURCE_DESCRIPTION},
		{39, EXTMEM_TAG_KEY_HOLDER},
		{40, EXTMEM_TAG_VALUE_HOLDER},
		{41, EXTMEM_TAG_NODE_HOLDER},
		{42, EXTMEM_TAG_RULE_USEDBITS},
		{43, EXTMEM_TAG_SIZE_HOLDER},
		{44, EXTMEM_TAG_RANGE_HOLDER},
		{45, EXTMEM_TAG_REGISTER_ADDR_SETTINGS},
		{46, EXTMEM_TAG_REGISTER_RIU_SETTINGS},
		{47, EXTMEM_TAG_PQLEVEL_HOLDER},
		{48, EXTMEM_TAG_REGISTER_ADDR_IND_SETTINGS},
		{49, EXTMEM_TAG_REGISTER_ADDR_PI_SETTINGS},
		{50, EXTMEM_TAG_REGISTER_ADDR_L1_SETTINGS},
		{51, EXTMEM_TAG_REGISTER_ADDR_L2_SETTINGS},
		{52, EXTMEM_TAG_REGISTER_ADDR_L3_SETTINGS},
		{53, EXTMEM_TAG_PRESET_HOLDER},
		{54, EXTMEM_TAG_VERSION_HOLDER},
		{55, EXTMEM_TAG_CUS_VREGISTER_SETTINGS},
		{56, EXTMEM_TAG_RES_NUM},
		{57, EXTMEM_TAG_REGISTER_SYNC_SETTINGS},
		{58, EXTMEM_TAG_UNUSED_BEGIN},
	};
	EXPECT_EQ(tags.size(), 46u);
	for (const auto &[number, tag] : tags)
		EXPECT_EQ(tag, number);
	EXPECT_EQ(sizeof(extmem_tag), 4u);
}

// ---- descriptors ----

TEST(ExtmemCreateNode, IsIdAndStoreUnchecked)
{
	Store store;
	EXPECT_EQ(extmem_create_node_d(store, 5), store.at(5));
	EXPECT_EQ(extmem_create_node_d(store, kNone), store.at(kNone));
	EXPECT_EQ(extmem_create_node_d(nullptr, 7), (node_d{7, nullptr}));
}

TEST(ExtmemNodeValid, MeansInsideTheUsedNodes)
{
	Store store;
	EXPECT_FALSE(extmem_node_isvalid(store.at(0))) << "empty store";
	store.fill(3);
	EXPECT_TRUE(extmem_node_isvalid(store.at(0)));
	EXPECT_TRUE(extmem_node_isvalid(store.at(2)));
	EXPECT_FALSE(extmem_node_isvalid(store.at(3)));
	EXPECT_FALSE(extmem_node_isvalid(store.at(kNone)));
	EXPECT_FALSE(extmem_node_isvalid({0, nullptr}));
	EXPECT_FALSE(extmem_node_isvalid(kInvalid));
}

TEST(ExtmemNodeValid, IdAllOnesIsNeverANode)
{
	Store store;
	store.fill(kMostNodes);
	store.add(EXTMEM_TAG_GENERAL);
	ASSERT_EQ(store->node_buffer.buf_used, (kMostNodes + 1) * kNodeSize);
	EXPECT_TRUE(extmem_node_isvalid(store.at(kMostNodes - 1)));
	EXPECT_FALSE(extmem_node_isvalid(store.at(kNone)));
}

TEST(ExtmemNodeValid, NeedsTheWholeNodeToBeUsed)
{
	Store store;
	store.fill(3);
	for (const size_t short_by : {1u, 8u, 15u}) {
		store->node_buffer.buf_used = 3 * kNodeSize - short_by;
		EXPECT_TRUE(extmem_node_isvalid(store.at(1))) << short_by;
		EXPECT_FALSE(extmem_node_isvalid(store.at(2))) << short_by;
	}
}

TEST(ExtmemNodeValid, NeedsABuffer)
{
	extmem_builder store = blank_builder();
	store.node_buffer.buf_used = kNodeSize;
	EXPECT_FALSE(extmem_node_isvalid({0, &store}));
}

// Every way in which a node can be invalid, for every operation.
class ExtmemInvalidNode : public testing::Test {
protected:
	ExtmemInvalidNode() : no_buffer_(blank_builder())
	{
		store_.fill(2);
		no_buffer_.node_buffer.buf_used = 64;
		data_ = extmem_request_data(store_, 8);
		store_->err_code = EXTMEM_INTERNAL_ERROR;
	}

	void for_each(const std::function<void(node_d)> &check)
	{
		const Bytes before = used_bytes(store_->node_buffer);
		struct {
			const char *name;
			node_d node;
		} const rows[] = {
			{"no store", {0, nullptr}},
			{"invalid id", store_.at(kNone)},
			{"no store and invalid id", kInvalid},
			{"first id behind the nodes", store_.at(2)},
			{"far behind the nodes", store_.at(0xFFFE)},
			{"no buffer", {0, &no_buffer_}},
		};
		for (const auto &row : rows) {
			SCOPED_TRACE(row.name);
			check(row.node);
			EXPECT_EQ(used_bytes(store_->node_buffer), before);
			EXPECT_EQ(store_->err_code, EXTMEM_INTERNAL_ERROR) << "no code is recorded";
			EXPECT_EQ(no_buffer_.err_code, EXTMEM_SUCCESS) << "no code is recorded";
			EXPECT_EQ(take_log(), "");
		}
	}

	Store store_;
	extmem_builder no_buffer_;
	data_d data_;
};

extmem_node record_of(const Bytes &bytes)
{
	extmem_node record;
	std::memcpy(&record, bytes.data(), sizeof record);
	return record;
}

Bytes bytes_of(const extmem_node &record)
{
	Bytes bytes(sizeof record);
	std::memcpy(bytes.data(), &record, sizeof record);
	return bytes;
}

TEST_F(ExtmemInvalidNode, FetchesZeros)
{
	for_each([](node_d node) { EXPECT_EQ(bytes_of(extmem_fetch_node(node)), Bytes(16)); });
}

TEST_F(ExtmemInvalidNode, FetchesZerosById)
{
	for_each([](node_d node) {
		EXPECT_EQ(bytes_of(extmem_fetch_node_by_id(node.owner, node.id)), Bytes(16));
	});
}

// Compilers differ in what empty braces leave of a union's longer member.
TEST(ExtmemNode, IsZeroInEveryByteAfterEmptyBraces)
{
	alignas(extmem_node) unsigned char dirty[sizeof(extmem_node)];
	std::memset(dirty, 0xA5, sizeof dirty);
	EXPECT_EQ(bytes_of(*new (dirty) extmem_node{}), Bytes(16));
}

TEST_F(ExtmemInvalidNode, CannotBeSet)
{
	const extmem_node record = record_of(tree_node(9, 17, 1, 1));
	for_each([&](node_d node) { EXPECT_FALSE(extmem_set_node(&node, record)); });
}

TEST_F(ExtmemInvalidNode, HasTheInvalidTag)
{
	for_each([](node_d node) {
		EXPECT_EQ(extmem_fetch_tag(node), -1);
		EXPECT_FALSE(extmem_set_tag(node, EXTMEM_TAG_IP));
	});
}

TEST_F(ExtmemInvalidNode, HasTheInvalidId)
{
	for_each([](node_d node) { EXPECT_EQ(extmem_fetch_id(node), kNone); });
}

TEST_F(ExtmemInvalidNode, CannotBeLinkedAtEitherEnd)
{
	for_each([&](node_d node) {
		EXPECT_FALSE(extmem_append_next(node, store_.at(1)));
		EXPECT_FALSE(extmem_append_next(store_.at(0), node));
		EXPECT_FALSE(extmem_append_child(node, store_.at(1)));
		EXPECT_FALSE(extmem_append_child(store_.at(0), node));
		EXPECT_FALSE(extmem_break_next(node));
	});
}

TEST_F(ExtmemInvalidNode, LeavesAnOrderedAppendWhereItWas)
{
	for_each([&](node_d node) {
		EXPECT_EQ(extmem_append_child_cond(node, kInvalid, store_.at(1)), kInvalid);
		EXPECT_EQ(extmem_append_child_cond(node, store_.at(1), store_.at(1)), store_.at(1));
		EXPECT_EQ(extmem_append_child_cond(store_.at(0), kInvalid, node), kInvalid);
		EXPECT_EQ(extmem_append_child_cond(store_.at(0), store_.at(1), node), store_.at(1));
	});
}

TEST_F(ExtmemInvalidNode, HasNoLinks)
{
	for_each([](node_d node) {
		EXPECT_EQ(extmem_get_next(node), kInvalid);
		EXPECT_EQ(extmem_get_child(node), kInvalid);
	});
}

TEST_F(ExtmemInvalidNode, EndsSearches)
{
	for_each([](node_d node) {
		EXPECT_EQ(extmem_find_tail(node), node);
		EXPECT_EQ(extmem_find_next(node, EXTMEM_TAG_GENERAL).id, kNone);
	});
}

TEST_F(ExtmemInvalidNode, HasNoData)
{
	for_each([&](node_d node) {
		EXPECT_EQ(extmem_copy_from_node(node), data_d{});
		EXPECT_FALSE(extmem_copy_to_node(node, data_));
	});
}

// ---- access ----

TEST(ExtmemFetchNode, GivesAllSixteenBytes)
{
	Bytes odd = tree_node(0x0201, 0x13, 0x0504, 0x0706);
	for (size_t i = 7; i < kNodeSize; ++i)
		odd[i] = static_cast<u8>(0xA0 + i);
	Adopted store(joined({tree_node(0, 1), odd}));
	EXPECT_EQ(bytes_of(extmem_fetch_node(store.at(1))), odd);
	EXPECT_EQ(bytes_of(extmem_fetch_node_by_id(store, 1)), odd);
	const extmem_node record = extmem_fetch_node(store.at(1));
	EXPECT_EQ(record.id, 0x0201);
	EXPECT_EQ(record.tag, 0x13);
	EXPECT_EQ(record.u.link.childId, 0x0504);
	EXPECT_EQ(record.u.link.nextId, 0x0706);
	EXPECT_EQ(record.u.data.size, 0x07060504u);
	EXPECT_EQ(record.u.data.offset, 0xAAA9A8A7u);
}

TEST(ExtmemSetNode, OverwritesAllSixteenBytes)
{
	Store store;
	store.fill(3);
	Bytes odd(kNodeSize);
	for (size_t i = 0; i < kNodeSize; ++i)
		odd[i] = static_cast<u8>(0xF0 - i);
	const node_d node = store.at(1);
	EXPECT_TRUE(extmem_set_node(&node, record_of(odd)));
	EXPECT_EQ(node_bytes(store, 0), tree_node(0, 1));
	EXPECT_EQ(node_bytes(store, 1), odd);
	EXPECT_EQ(node_bytes(store, 2), tree_node(2, 1));
}

TEST(ExtmemSetNode, NullGivesFalse)
{
	EXPECT_FALSE(extmem_set_node(nullptr, extmem_node{}));
}

TEST(ExtmemTag, IsTheWholeByte)
{
	Adopted store(joined({tree_node(0, 200), tree_node(1, 255), tree_node(2, 0)}));
	EXPECT_EQ(extmem_fetch_tag(store.at(0)), 200);
	EXPECT_EQ(extmem_fetch_tag(store.at(1)), 255);
	EXPECT_EQ(extmem_fetch_tag(store.at(2)), 0);
}

TEST(ExtmemTag, IsWrittenAlone)
{
	Store store;
	store.fill(2);
	EXPECT_TRUE(extmem_append_child(store.at(0), store.at(1)));
	EXPECT_TRUE(extmem_set_tag(store.at(0), EXTMEM_TAG_VERSION_HOLDER));
	EXPECT_EQ(node_bytes(store, 0), tree_node(0, 54, 1));
	EXPECT_EQ(node_bytes(store, 1), tree_node(1, 1));
}

TEST(ExtmemTag, OnlyItsLowByteIsStored)
{
	Store store;
	store.fill(1);
	EXPECT_TRUE(extmem_set_tag(store.at(0), EXTMEM_TAG_INVALID));
	EXPECT_EQ(extmem_fetch_tag(store.at(0)), 255);
	EXPECT_EQ(node_bytes(store, 0), tree_node(0, 255));
}

TEST(ExtmemId, IsTheStoredOne)
{
	Adopted store(joined({tree_node(0, 1), tree_node(0x1234, 1)}));
	EXPECT_EQ(extmem_fetch_id(store.at(1)), 0x1234);
}

TEST(ExtmemMaxNodeId, IsTheLastIndex)
{
	Store store;
	EXPECT_EQ(extmem_request_max_node_id(store), kNone) << "empty store";
	EXPECT_EQ(store->err_code, EXTMEM_SUCCESS);
	store.fill(1);
	EXPECT_EQ(extmem_request_max_node_id(store), 0);
	store.fill(9);
	EXPECT_EQ(extmem_request_max_node_id(store), 9);
}

TEST(ExtmemMaxNodeId, IsTruncatedToSixteenBits)
{
	struct {
		size_t slots;
		u16 id;
	} const rows[] = {{65535, 65534}, {65536, 65535}, {65537, 0}, {65540, 3}};
	Store store;
	for (const auto &row : rows) {
		store->node_buffer.buf_used = row.slots * kNodeSize;
		EXPECT_EQ(extmem_request_max_node_id(store), row.id) << row.slots;
	}
}

TEST(ExtmemMaxNodeId, WithoutBufferIsABadPointer)
{
	extmem_builder store = blank_builder();
	EXPECT_EQ(extmem_request_max_node_id(&store), kNone);
	EXPECT_EQ(store.err_code, EXTMEM_BAD_PTR);
}

// ---- links ----

TEST(ExtmemAppendNext, OverwritesTheLink)
{
	Store store;
	store.fill(4);
	EXPECT_TRUE(extmem_append_next(store.at(0), store.at(1)));
	EXPECT_TRUE(extmem_append_next(store.at(1), store.at(2)));
	EXPECT_TRUE(extmem_append_next(store.at(0), store.at(3)));
	EXPECT_EQ(node_bytes(store, 0), tree_node(0, 1, kNone, 3));
	EXPECT_EQ(node_bytes(store, 1), tree_node(1, 1, kNone, 2));
	EXPECT_EQ(node_bytes(store, 3), tree_node(3, 1));
	EXPECT_EQ(extmem_get_next(store.at(0)), store.at(3));
}

TEST(ExtmemAppendChild, OverwritesTheLink)
{
	Store store;
	store.fill(3);
	EXPECT_TRUE(extmem_append_child(store.at(0), store.at(1)));
	EXPECT_TRUE(extmem_append_child(store.at(0), store.at(2)));
	EXPECT_EQ(node_bytes(store, 0), tree_node(0, 1, 2));
	EXPECT_EQ(node_bytes(store, 1), tree_node(1, 1));
	EXPECT_EQ(extmem_get_child(store.at(0)), store.at(2));
}

TEST(ExtmemLinks, EachEndIsLookedUpInItsOwnStore)
{
	Store store;
	Store other;
	store.fill(1);
	other.fill(6);
	EXPECT_TRUE(extmem_append_next(store.at(0), other.at(5)));
	EXPECT_TRUE(extmem_append_child(store.at(0), other.at(4)));
	EXPECT_EQ(node_bytes(store, 0), tree_node(0, 1, 4, 5));
	EXPECT_FALSE(extmem_append_next(other.at(5), store.at(1)));
	EXPECT_EQ(extmem_get_next(store.at(0)), store.at(5)) << "the link as it stands";
}

TEST(ExtmemLinks, AreReadAsTheyStand)
{
	Adopted store(joined({tree_node(0, 1, 900, 901), data_node(1, 35, 0x00070003, 0)}));
	EXPECT_EQ(extmem_get_child(store.at(0)), store.at(900));
	EXPECT_EQ(extmem_get_next(store.at(0)), store.at(901));
	EXPECT_EQ(extmem_get_child(store.at(1)), store.at(3));
	EXPECT_EQ(extmem_get_next(store.at(1)), store.at(7));
}

TEST(ExtmemLinks, OfANewNodeLeadNowhere)
{
	Store store;
	store.fill(1);
	EXPECT_EQ(extmem_get_child(store.at(0)), store.at(kNone));
	EXPECT_EQ(extmem_get_next(store.at(0)), store.at(kNone));
}

TEST(ExtmemBreakNext, EndsTheChainThere)
{
	Store store;
	store.fill(3);
	ASSERT_TRUE(extmem_append_child(store.at(0), store.at(2)));
	ASSERT_TRUE(extmem_append_next(store.at(0), store.at(1)));
	EXPECT_TRUE(extmem_break_next(store.at(0)));
	EXPECT_EQ(node_bytes(store, 0), tree_node(0, 1, 2));
	EXPECT_TRUE(extmem_break_next(store.at(0))) << "nothing to break";
}

TEST(ExtmemAppendChildCond, KeepsChildrenInOrder)
{
	Store store;
	store.fill(4);
	node_d last = kInvalid;
	for (const u16 id : {3, 1, 2}) {
		last = extmem_append_child_cond(store.at(0), last, store.at(id));
		EXPECT_EQ(last, store.at(id));
	}
	EXPECT_EQ(node_bytes(store, 0), tree_node(0, 1, 3));
	EXPECT_EQ(node_bytes(store, 3), tree_node(3, 1, kNone, 1));
	EXPECT_EQ(node_bytes(store, 1), tree_node(1, 1, kNone, 2));
	EXPECT_EQ(node_bytes(store, 2), tree_node(2, 1));
}

TEST(ExtmemAppendChildCond, WithoutPreviousChildReplacesTheFirst)
{
	Store store;
	store.fill(3);
	ASSERT_TRUE(extmem_append_child(store.at(0), store.at(1)));
	for (const node_d none : {kInvalid, store.at(kNone), store.at(3), node_d{1, nullptr}}) {
		ASSERT_TRUE(extmem_append_child(store.at(0), store.at(1)));
		EXPECT_EQ(extmem_append_child_cond(store.at(0), none, store.at(2)), store.at(2));
		EXPECT_EQ(extmem_get_child(store.at(0)), store.at(2));
	}
}

// ---- searches ----

// 0 -> 1 -> 2 -> 3, tags 17, 22, 17, 22.
void chain_of_four(Store &store)
{
	for (const int tag : {17, 22, 17, 22})
		store.add(tag);
	for (size_t i = 0; i < 3; ++i)
		ASSERT_TRUE(extmem_append_next(store.at(i), store.at(i + 1)));
}

TEST(ExtmemFindTail, IsTheLastOfTheChain)
{
	Store store;
	chain_of_four(store);
	for (size_t from = 0; from < 4; ++from)
		EXPECT_EQ(extmem_find_tail(store.at(from)), store.at(3)) << from;
}

TEST(ExtmemFindTail, StopsBeforeAnIdOutsideTheStore)
{
	Adopted store(joined({tree_node(0, 1, kNone, 1), tree_node(1, 1, kNone, 2)}));
	EXPECT_EQ(extmem_find_tail(store.at(0)), store.at(1));
}

TEST(ExtmemFindTail, DataHolderEndsTheChain)
{
	// Bytes 5 and 6 of a holder are a part of its size; here they read as node 1.
	Adopted store(joined({tree_node(0, 1, kNone, 2), tree_node(1, 1),
			      data_node(2, 35, 0x00010004, 0)}));
	EXPECT_EQ(extmem_find_tail(store.at(0)), store.at(2));
	EXPECT_EQ(extmem_find_tail(store.at(2)), store.at(2));
}

TEST(ExtmemFindTail, ShortDataHolderDoesNotLeadToTheRoot)
{
	Adopted store(joined({tree_node(0, 1), tree_node(1, 1, kNone, 2), data_node(2, 53, 4, 0)}));
	EXPECT_EQ(extmem_find_tail(store.at(1)), store.at(2));
}

TEST(ExtmemFindTail, CyclicSiblingsEnd)
{
	Adopted store(joined({tree_node(0, 1, kNone, 1), tree_node(1, 1, kNone, 2),
			      tree_node(2, 1, kNone, 0)}));
	EXPECT_TRUE(extmem_node_isvalid(extmem_find_tail(store.at(0))));
}

TEST(ExtmemFindTail, SiblingOfItselfEnds)
{
	Adopted store(joined({tree_node(0, 1), tree_node(1, 1, kNone, 1)}));
	EXPECT_EQ(extmem_find_tail(store.at(1)), store.at(1));
}

TEST(ExtmemFindNext, FindsTheFirstOfATag)
{
	Store store;
	chain_of_four(store);
	EXPECT_EQ(extmem_find_next(store.at(0), 22), store.at(1));
	EXPECT_EQ(extmem_find_next(store.at(1), 22), store.at(3));
}

TEST(ExtmemFindNext, DoesNotLookAtTheNodeItself)
{
	Store store;
	chain_of_four(store);
	EXPECT_EQ(extmem_find_next(store.at(0), 17), store.at(2));
	EXPECT_EQ(extmem_find_next(store.at(2), 17).id, kNone);
}

TEST(ExtmemFindNext, IsInvalidAtTheEndOfTheChain)
{
	Store store;
	chain_of_four(store);
	for (const int tag : {18, -1, 17 + 256, 0xFFFF}) {
		const node_d found = extmem_find_next(store.at(0), tag);
		EXPECT_EQ(found.id, kNone) << tag;
		EXPECT_FALSE(extmem_node_isvalid(found)) << tag;
	}
	EXPECT_EQ(extmem_find_next(store.at(3), 22).id, kNone);
}

TEST(ExtmemFindNext, IsInvalidBehindAnIdOutsideTheStore)
{
	Adopted store(joined({tree_node(0, 1, kNone, 1), tree_node(1, 17, kNone, 2)}));
	EXPECT_EQ(extmem_find_next(store.at(0), 17), store.at(1));
	EXPECT_EQ(extmem_find_next(store.at(0), 22).id, kNone);
}

TEST(ExtmemFindNext, FindsADataHolderAtTheEndOfTheChain)
{
	Adopted store(joined({tree_node(0, 1), tree_node(1, 22, kNone, 2), data_node(2, 53, 4, 0)}));
	EXPECT_EQ(extmem_find_next(store.at(1), 53), store.at(2));
}

TEST(ExtmemFindNext, DoesNotGoOnBehindADataHolder)
{
	Adopted store(joined({tree_node(0, 17), tree_node(1, 22, kNone, 2), data_node(2, 53, 4, 0)}));
	EXPECT_EQ(extmem_find_next(store.at(1), 17).id, kNone) << "size bytes read as node 0";
	EXPECT_EQ(extmem_find_next(store.at(2), 17).id, kNone);
}

TEST(ExtmemFindNext, CyclicSiblingsEnd)
{
	Adopted store(joined({tree_node(0, 1, kNone, 1), tree_node(1, 1, kNone, 2),
			      tree_node(2, 1, kNone, 1)}));
	EXPECT_EQ(extmem_find_next(store.at(0), 22).id, kNone);
	EXPECT_EQ(extmem_find_next(store.at(2), 22).id, kNone);
}

TEST(ExtmemFindNext, SiblingOfItselfEnds)
{
	Adopted store(tree_node(0, 1, kNone, 0));
	EXPECT_EQ(extmem_find_next(store.at(0), 22).id, kNone);
}

// ---- images at any address ----

TEST(ExtmemNodes, WorkAtAnOddAddress)
{
	Bytes image = HandImage(joined({tree_node(0, 1, 1), tree_node(1, 17), tree_node(2, 22)}),
				Bytes(8))
			      .bytes();
	image.insert(image.begin(), 0x99);
	extmem_builder store = blank_builder();
	ASSERT_TRUE(extmem_builder_init(&store, image_of(image) + 1,
					static_cast<u32>(image.size() - 1)));
	EXPECT_EQ(extmem_get_child({0, &store}), (node_d{1, &store}));
	EXPECT_TRUE(extmem_append_next({1, &store}, {2, &store}));
	EXPECT_EQ(extmem_find_next({1, &store}, 22), (node_d{2, &store}));
	EXPECT_EQ(extmem_fetch_id({2, &store}), 2);
	const node_d node{2, &store};
	EXPECT_TRUE(extmem_set_node(&node, extmem_fetch_node({1, &store})));
	extmem_builder_destroy(&store);
}

} // namespace
