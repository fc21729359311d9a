// SPDX-License-Identifier: MIT
//
// What the core answers callers that have nothing to give, and requests that nothing can hold.

#include <gtest/gtest.h>

#include "core/ctrie.h"
#include "core/json.h"
#include "core/scratch.h"
#include "tests/support/platform.h"

namespace {

using vexil_test::take_log;

class TrieArguments : public testing::Test {
protected:
	TrieArguments() { EXPECT_TRUE(ctrie_init(&trie)); }
	~TrieArguments() override { ctrie_destroy(&trie); }

	ctrie trie;
};

TEST_F(TrieArguments, TrieWithoutARootTakesNoName)
{
	ctrie_node *const root = trie.root;
	trie.root = nullptr;
	EXPECT_FALSE(ctrie_insert(&trie, "a", 1));
	EXPECT_EQ(trie.err_code, CTRIE_INTERNAL_ERROR);
	EXPECT_EQ(trie.buf_used, 0u);
	trie.root = root;
	EXPECT_TRUE(ctrie_insert(&trie, "a", 1));
	EXPECT_EQ(ctrie_find(&trie, "a"), 1);
}

TEST_F(TrieArguments, NoNodeIsNeitherSplitNorPrintedNorDeleted)
{
	EXPECT_FALSE(__ctrie_split_node(nullptr, 1));
	__ctrie_print_node(nullptr, 3);
	__ctrie_delete_node(nullptr);
	EXPECT_EQ(take_log(), "");
}

TEST(FindMembers, MembersBehindTheLastKeyAreNotLookedAt)
{
	void *const document = vexil_json_parse(R"({"b": 2, "a": 1, "a": 3, "c": 4})");
	ASSERT_NE(document, nullptr);
	static constexpr const char *kNames[] = {"a", "b"};
	const cJSON *found[2];
	vexil::find_members(static_cast<cJSON *>(document), kNames, found);
	EXPECT_EQ(vexil::number_of(found[0]), 1);
	EXPECT_EQ(vexil::number_of(found[1]), 2);
	vexil_json_delete(document);
}

TEST_F(TrieArguments, BlockBeyondTheAddressSpaceIsNotAskedFor)
{
	const size_t before = vexil_test::allocations();
	const vexil::Scratch<u64> most(trie, ~size_t{0} / sizeof(u64));
	EXPECT_FALSE(most); // the allocator's own limit
	const vexil::Scratch<u64> more(trie, ~size_t{0} / sizeof(u64) + 1);
	EXPECT_FALSE(more); // would wrap to a block of no bytes
	EXPECT_EQ(vexil_test::allocations(), before);
}

} // namespace
