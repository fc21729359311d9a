// SPDX-License-Identifier: MIT
#include "core/ctrie.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/platform.h"
#include "tests/support/small_stack.h"

namespace {

using vexil_test::allocations;
using vexil_test::last_request;
using vexil_test::live_blocks;
using vexil_test::on_small_stack;
using vexil_test::Refuse;
using vexil_test::take_log;

constexpr int kAbsent = INT_MIN;
constexpr size_t kStartCapacity = 1024;
constexpr size_t kNodeSize = 384;

class Trie {
public:
	Trie() { EXPECT_TRUE(ctrie_init(&trie_)); }
	~Trie() { ctrie_destroy(&trie_); }
	Trie(const Trie &) = delete;
	Trie &operator=(const Trie &) = delete;

	operator ctrie *() { return &trie_; }
	ctrie *operator->() { return &trie_; }
	bool insert(const std::string &key, int value)
	{
		return ctrie_insert(&trie_, key.c_str(), value);
	}
	int find(const std::string &key) const { return ctrie_find(&trie_, key.c_str()); }
	std::string text() const { return {trie_.buf, trie_.buf_used}; }
	/** Puts characters where only checked keys come, and returns the range they have. */
	std::pair<u32, u32> place(const std::string &raw)
	{
		const size_t begin = trie_.buf_used;
		std::memcpy(trie_.buf + begin, raw.data(), raw.size());
		trie_.buf_used += raw.size();
		return {static_cast<u32>(begin), static_cast<u32>(begin + raw.size())};
	}
	std::string dump()
	{
		take_log();
		ctrie_print(&trie_);
		return take_log();
	}
	ctrie_node *child(char c) { return trie_.root->child[slot(c)]; }
	static size_t slot(char c) { return ctrie_char_remap[static_cast<unsigned char>(c)]; }

private:
	ctrie trie_;
};

size_t children_of(const ctrie_node *node)
{
	return static_cast<size_t>(std::count_if(node->child, node->child + CT_CH_IDX_MAX,
						 [](const ctrie_node *below) { return below; }));
}

// What holds for every trie whose keys all have values.
void expect_sound(ctrie *trie)
{
	EXPECT_EQ(trie->root->begin, 0u);
	EXPECT_EQ(trie->root->end, 0u);
	std::vector<const ctrie_node *> open{trie->root};
	while (!open.empty()) {
		const ctrie_node *node = open.back();
		open.pop_back();
		ASSERT_EQ(node->owner, trie);
		ASSERT_EQ(node->child[0], nullptr);
		if (node != trie->root) {
			ASSERT_TRUE(node->value != kAbsent || children_of(node) >= 2)
				<< "a node without value that could be joined with its child";
		}
		for (size_t i = 1; i < CT_CH_IDX_MAX; ++i) {
			const ctrie_node *below = node->child[i];
			if (!below)
				continue;
			ASSERT_LT(below->begin, below->end);
			ASSERT_LE(below->end, trie->buf_used);
			ASSERT_EQ(Trie::slot(trie->buf[below->begin]), i);
			open.push_back(below);
		}
	}
}

// ---- the alphabet and the records ----

TEST(CtrieAlphabet, MapsFortyThreeCharactersAndNothingElse)
{
	std::vector<int> expected(128, 0);
	expected[' '] = 1;
	expected['#'] = 2;
	expected['.'] = 3;
	expected['/'] = 4;
	for (int i = 0; i < 10; ++i)
		expected[static_cast<size_t>(48 + i)] = 5 + i;
	expected[':'] = 15;
	expected['\\'] = 16;
	expected['_'] = 17;
	for (int i = 0; i < 26; ++i)
		expected[static_cast<size_t>(97 + i)] = 18 + i;
	static_assert(sizeof ctrie_char_remap == 128);
	for (size_t code = 0; code < 128; ++code)
		EXPECT_EQ(ctrie_char_remap[code], expected[code]) << "code " << code;
}

TEST(CtrieAlphabet, NamesItsIndices)
{
	struct {
		ctrie_char_child_idx index;
		int value;
		char c;
	} const rows[] = {
		{CT_CH_SPACE, 1, ' '},  {CT_CH_NUMBER, 2, '#'},     {CT_CH_DOT, 3, '.'},
		{CT_CH_SLASH, 4, '/'},  {CT_CH_0, 5, '0'},          {CT_CH_9, 14, '9'},
		{CT_CH_COLON, 15, ':'}, {CT_CH_BACKSLASH, 16, '\\'}, {CT_CH_UNDERLINE, 17, '_'},
		{CT_CH_a, 18, 'a'},     {CT_CH_z, 43, 'z'},
	};
	for (const auto &row : rows) {
		EXPECT_EQ(row.index, row.value) << row.c;
		EXPECT_EQ(Trie::slot(row.c), static_cast<size_t>(row.value)) << row.c;
	}
	EXPECT_EQ(CT_CH_NV, 0);
	EXPECT_EQ(CT_CH_IDX_MAX, 44);
}

TEST(CtrieErrors, HaveTheirNumbers)
{
	EXPECT_EQ(CTRIE_SUCCESS, 0);
	EXPECT_EQ(CTRIE_BAD_PTR, 1);
	EXPECT_EQ(CTRIE_NOMEM, 2);
	EXPECT_EQ(CTRIE_DUPLICATED_STRING, 3);
	EXPECT_EQ(CTRIE_NOT_FOUND, 4);
	EXPECT_EQ(CTRIE_OUT_OF_RANGE, 5);
	EXPECT_EQ(CTRIE_INTERNAL_ERROR, 6);
	EXPECT_EQ(CTRIE_INVALID_CHAR, 7);
}

TEST(CtrieRecords, HaveTheirLayout)
{
	EXPECT_EQ(sizeof(ctrie), 64u);
	EXPECT_EQ(offsetof(ctrie, allocate), 0u);
	EXPECT_EQ(offsetof(ctrie, deallocate), 8u);
	EXPECT_EQ(offsetof(ctrie, reallocate), 16u);
	EXPECT_EQ(offsetof(ctrie, root), 24u);
	EXPECT_EQ(offsetof(ctrie, buf), 32u);
	EXPECT_EQ(offsetof(ctrie, buf_used), 40u);
	EXPECT_EQ(offsetof(ctrie, buf_max), 48u);
	EXPECT_EQ(offsetof(ctrie, err_code), 56u);
	EXPECT_EQ(sizeof(ctrie_node), kNodeSize);
	EXPECT_EQ(offsetof(ctrie_node, begin), 0u);
	EXPECT_EQ(offsetof(ctrie_node, end), 8u);
	EXPECT_EQ(offsetof(ctrie_node, owner), 16u);
	EXPECT_EQ(offsetof(ctrie_node, child), 24u);
	EXPECT_EQ(offsetof(ctrie_node, value), 376u);
}

// ---- init ----

TEST(CtrieInit, SetsEveryFieldOfARecordThatHeldAnything)
{
	ctrie trie;
	std::memset(static_cast<void *>(&trie), 0xA5, sizeof trie);
	ASSERT_TRUE(ctrie_init(&trie));
	EXPECT_EQ(trie.allocate, &ALLOC);
	EXPECT_EQ(trie.deallocate, &DEALLOC);
	EXPECT_EQ(trie.reallocate, &REALLOC);
	EXPECT_NE(trie.buf, nullptr);
	EXPECT_EQ(trie.buf_used, 0u);
	EXPECT_EQ(trie.buf_max, kStartCapacity);
	EXPECT_EQ(trie.err_code, CTRIE_SUCCESS);
	ctrie_destroy(&trie);
}

TEST(CtrieInit, TakesARootAndATextBuffer)
{
	ctrie trie;
	ASSERT_TRUE(ctrie_init(&trie));
	EXPECT_EQ(allocations(), 2u);
	EXPECT_EQ(live_blocks(), 2u);
	EXPECT_EQ(last_request().size, kStartCapacity);
	ctrie_destroy(&trie);
}

TEST(CtrieInit, RootIsEmpty)
{
	Trie trie;
	ASSERT_NE(trie->root, nullptr);
	EXPECT_EQ(trie->root->begin, 0u);
	EXPECT_EQ(trie->root->end, 0u);
	EXPECT_EQ(trie->root->owner, static_cast<ctrie *>(trie));
	EXPECT_EQ(trie->root->value, kAbsent);
	EXPECT_EQ(children_of(trie->root), 0u);
}

TEST(CtrieInit, WithoutMemoryForTheRootHasNone)
{
	ctrie trie;
	std::memset(static_cast<void *>(&trie), 0xA5, sizeof trie);
	const Refuse refuse = Refuse::only(1);
	EXPECT_FALSE(ctrie_init(&trie));
	EXPECT_EQ(last_request().size, kNodeSize);
	EXPECT_EQ(trie.root, nullptr);
	EXPECT_EQ(trie.err_code, CTRIE_NOMEM);
	EXPECT_EQ(live_blocks(), 0u);
	ctrie_destroy(&trie);
}

TEST(CtrieInit, WithoutMemoryForTheTextGivesTheRootBack)
{
	ctrie trie;
	std::memset(static_cast<void *>(&trie), 0xA5, sizeof trie);
	const Refuse refuse = Refuse::only(2);
	EXPECT_FALSE(ctrie_init(&trie));
	EXPECT_TRUE(refuse.happened());
	EXPECT_EQ(trie.buf, nullptr);
	EXPECT_EQ(trie.err_code, CTRIE_NOMEM);
	EXPECT_EQ(live_blocks(), 0u);
	ctrie_destroy(&trie);
}

TEST(CtrieInit, NullGivesFalse)
{
	EXPECT_FALSE(ctrie_init(nullptr));
	EXPECT_EQ(allocations(), 0u);
}

// ---- insert and find ----

TEST(CtrieInsert, KeepsKeysLowerCased)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("Color", 7));
	EXPECT_EQ(trie.text(), "color");
	for (const char *spelling : {"color", "COLOR", "Color", "cOLOR"})
		EXPECT_EQ(trie.find(spelling), 7) << spelling;
}

TEST(CtrieInsert, KeepsKeysBackToBackWithoutNul)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("One", 1));
	ASSERT_TRUE(trie.insert("two", 2));
	ASSERT_TRUE(trie.insert("ONES", 3));
	EXPECT_EQ(trie.text(), "onetwoones");
}

TEST(CtrieInsert, TakesEveryCharacterOfTheAlphabet)
{
	Trie trie;
	const std::string all = " #./0123456789:\\_abcdefghijklmnopqrstuvwxyz";
	ASSERT_EQ(all.size(), 43u);
	ASSERT_TRUE(trie.insert(all, 1));
	for (size_t i = 0; i < all.size(); ++i)
		ASSERT_TRUE(trie.insert(all.substr(i, 1), static_cast<int>(100 + i))) << all[i];
	EXPECT_EQ(trie.find(all), 1);
	for (size_t i = 0; i < all.size(); ++i)
		EXPECT_EQ(trie.find(all.substr(i, 1)), static_cast<int>(100 + i)) << all[i];
	EXPECT_EQ(children_of(trie->root), 43u);
	expect_sound(trie);
}

TEST(CtrieInsert, TakesAnyValue)
{
	Trie trie;
	const std::map<std::string, int> values = {
		{"zero", 0}, {"minus", -1}, {"largest", INT_MAX}, {"smallest", INT_MIN + 1}};
	for (const auto &[key, value] : values)
		ASSERT_TRUE(trie.insert(key, value)) << key;
	for (const auto &[key, value] : values)
		EXPECT_EQ(trie.find(key), value) << key;
}

TEST(CtrieInsert, NullsGiveFalseAndRecordNothing)
{
	Trie trie;
	EXPECT_FALSE(ctrie_insert(nullptr, "a", 1));
	EXPECT_FALSE(ctrie_insert(trie, nullptr, 1));
	EXPECT_FALSE(ctrie_insert(nullptr, nullptr, 1));
	EXPECT_EQ(trie->err_code, CTRIE_SUCCESS);
	EXPECT_EQ(trie->buf_used, 0u);
	EXPECT_EQ(take_log(), "");
}

TEST(CtrieInsert, EmptyKeyIsOutOfRange)
{
	Trie trie;
	EXPECT_FALSE(trie.insert("", 1));
	EXPECT_EQ(trie->err_code, CTRIE_OUT_OF_RANGE);
	EXPECT_EQ(trie->buf_used, 0u);
	EXPECT_EQ(trie.find(""), kAbsent);
	EXPECT_EQ(take_log(), "");
}

TEST(CtrieInsert, ForeignCharacterIsNamedByItsCode)
{
	Trie trie;
	EXPECT_FALSE(trie.insert("a-b", 1));
	EXPECT_EQ(take_log(), "[ctrie_insert][176]insert wrong string member = 45\n");
	EXPECT_EQ(trie->err_code, CTRIE_INVALID_CHAR);
	EXPECT_EQ(trie->buf_used, 0u);
	EXPECT_EQ(children_of(trie->root), 0u);
}

TEST(CtrieInsert, FirstForeignCharacterIsTheOneReported)
{
	Trie trie;
	EXPECT_FALSE(trie.insert("ab*c-d", 1));
	EXPECT_EQ(take_log(), "[ctrie_insert][176]insert wrong string member = 42\n");
}

TEST(CtrieInsert, EveryOtherCodeIsForeign)
{
	Trie trie;
	const std::string alphabet =
		" #./0123456789:\\_abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
	for (int code = 1; code < 256; ++code) {
		const char c = static_cast<char>(code);
		if (alphabet.find(c) != std::string::npos)
			continue;
		trie->err_code = CTRIE_SUCCESS;
		EXPECT_FALSE(trie.insert(std::string("x") + c, 1)) << "code " << code;
		EXPECT_EQ(take_log(), "[ctrie_insert][176]insert wrong string member = " +
					      std::to_string(code) + "\n");
		EXPECT_EQ(trie->err_code, CTRIE_INVALID_CHAR) << "code " << code;
	}
	EXPECT_EQ(trie->buf_used, 0u);
	EXPECT_EQ(children_of(trie->root), 0u);
}

TEST(CtrieInsert, RepeatedKeyKeepsItsValueAndStillTakesText)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("color", 7));
	EXPECT_FALSE(trie.insert("COLOR", 8));
	EXPECT_EQ(trie->err_code, CTRIE_DUPLICATED_STRING);
	EXPECT_EQ(trie.find("color"), 7);
	EXPECT_EQ(trie.text(), "colorcolor");
	EXPECT_EQ(take_log(), "");
}

TEST(CtrieInsert, ErrorCodeOutlivesLaterSuccess)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("a", 1));
	ASSERT_FALSE(trie.insert("a", 2));
	ASSERT_TRUE(trie.insert("b", 3));
	EXPECT_EQ(trie->err_code, CTRIE_DUPLICATED_STRING);
}

TEST(CtrieInsert, ValueIntMinStoresNone)
{
	Trie trie;
	EXPECT_TRUE(trie.insert("later", INT_MIN));
	EXPECT_EQ(trie.find("later"), kAbsent);
	EXPECT_TRUE(trie.insert("later", 4));
	EXPECT_EQ(trie.find("later"), 4);
	EXPECT_EQ(trie.text(), "laterlater");
}

TEST(CtrieInsert, SplitsWhereKeysPart)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("abc", 1));
	ASSERT_TRUE(trie.insert("abd", 2));
	EXPECT_EQ(trie.dump(), "[-1]\n"
			       "---ab[-1]\n"
			       "------c[1]\n"
			       "------d[2]\n");
	EXPECT_EQ(trie.find("abc"), 1);
	EXPECT_EQ(trie.find("abd"), 2);
	EXPECT_EQ(trie.find("ab"), kAbsent);
}

TEST(CtrieInsert, FillsANodeThatASplitLeftWithoutValue)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("abc", 1));
	ASSERT_TRUE(trie.insert("abd", 2));
	const size_t blocks = live_blocks();
	ASSERT_TRUE(trie.insert("ab", 3));
	EXPECT_EQ(live_blocks(), blocks) << "no further split";
	EXPECT_EQ(trie.dump(), "[-1]\n"
			       "---ab[3]\n"
			       "------c[1]\n"
			       "------d[2]\n");
}

TEST(CtrieInsert, PrefixOfAKeySplitsOnceAndHasTheValue)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("abc", 1));
	const size_t blocks = live_blocks();
	ASSERT_TRUE(trie.insert("ab", 2));
	EXPECT_EQ(live_blocks(), blocks + 1);
	EXPECT_EQ(trie.dump(), "[-1]\n"
			       "---ab[2]\n"
			       "------c[1]\n");
	EXPECT_EQ(trie.find("abc"), 1);
	EXPECT_EQ(trie.find("ab"), 2);
}

TEST(CtrieInsert, LongerKeyHangsBelowItsPrefix)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("ab", 1));
	ASSERT_TRUE(trie.insert("abcd", 2));
	EXPECT_EQ(trie.dump(), "[-1]\n"
			       "---ab[1]\n"
			       "------cd[2]\n");
}

TEST(CtrieInsert, SplitHandsItsChildrenDown)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("abcx", 1));
	ASSERT_TRUE(trie.insert("abcy", 2));
	ASSERT_TRUE(trie.insert("abz", 3));
	EXPECT_EQ(trie.dump(), "[-1]\n"
			       "---ab[-1]\n"
			       "------c[-1]\n"
			       "---------x[1]\n"
			       "---------y[2]\n"
			       "------z[3]\n");
}

TEST(CtrieInsert, FirstCharactersPartAtTheRoot)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("b", 1));
	ASSERT_TRUE(trie.insert("a", 2));
	EXPECT_EQ(trie.dump(), "[-1]\n"
			       "---a[2]\n"
			       "---b[1]\n");
}

TEST(CtrieInsert, NodesComeFromTheAllocateHook)
{
	static size_t taken;
	taken = 0;
	Trie trie;
	trie->allocate = [](size_t size) {
		EXPECT_EQ(size, kNodeSize);
		++taken;
		return ALLOC(size);
	};
	ASSERT_TRUE(trie.insert("abc", 1));
	EXPECT_EQ(taken, 1u);
	ASSERT_TRUE(trie.insert("abd", 2));
	EXPECT_EQ(taken, 3u);
}

// ---- growth of the text ----

struct TextGrowth {
	const void *block;
	size_t old_size, new_size;
	bool operator==(const TextGrowth &) const = default;
};
std::vector<TextGrowth> text_growths;

void *recorded_growth(void *block, size_t old_size, size_t new_size)
{
	text_growths.push_back({block, old_size, new_size});
	return REALLOC(block, old_size, new_size);
}

TEST(CtrieText, DoublesWhenAKeyReachesTheCapacity)
{
	Trie trie;
	trie->reallocate = recorded_growth;
	text_growths.clear();
	ASSERT_TRUE(trie.insert(std::string(1000, 'a'), 1));
	ASSERT_TRUE(trie.insert(std::string(23, 'b'), 2));
	EXPECT_EQ(trie->buf_used, 1023u);
	EXPECT_EQ(trie->buf_max, 1024u);
	EXPECT_TRUE(text_growths.empty());
	const char *old = trie->buf;
	ASSERT_TRUE(trie.insert("c", 3));
	EXPECT_EQ(trie->buf_used, 1024u);
	EXPECT_EQ(trie->buf_max, 2048u);
	EXPECT_EQ(text_growths, (std::vector<TextGrowth>{{old, 1024, 2048}}));
	EXPECT_EQ(trie.text(), std::string(1000, 'a') + std::string(23, 'b') + "c");
	EXPECT_EQ(trie.find(std::string(1000, 'a')), 1);
}

TEST(CtrieText, DoublesAsOftenAsOneKeyNeeds)
{
	struct {
		size_t length, capacity;
	} const rows[] = {{1023, 1024}, {1024, 2048}, {2047, 2048}, {2048, 4096}, {5000, 8192}};
	for (const auto &row : rows) {
		Trie trie;
		ASSERT_TRUE(trie.insert(std::string(row.length, 'k'), 1)) << row.length;
		EXPECT_EQ(trie->buf_max, row.capacity) << row.length;
		EXPECT_EQ(trie->buf_used, row.length);
		EXPECT_EQ(trie.find(std::string(row.length, 'K')), 1) << row.length;
	}
}

TEST(CtrieText, FailedGrowthLeavesTheTrieAsItWas)
{
	Trie trie;
	ASSERT_TRUE(trie.insert(std::string(1000, 'a'), 1));
	const char *old = trie->buf;
	{
		const Refuse refuse = Refuse::only(1);
		EXPECT_FALSE(trie.insert(std::string(24, 'b'), 2));
		EXPECT_TRUE(refuse.happened());
	}
	EXPECT_EQ(trie->err_code, CTRIE_NOMEM);
	EXPECT_EQ(trie->buf, old);
	EXPECT_EQ(trie->buf_used, 1000u);
	EXPECT_EQ(trie->buf_max, 1024u);
	EXPECT_EQ(trie.find(std::string(1000, 'a')), 1);
	EXPECT_EQ(trie.find(std::string(24, 'b')), kAbsent);
	EXPECT_TRUE(trie.insert(std::string(24, 'b'), 2));
}

// Only claims to hold that much text: nothing behind the real buffer may be touched.
TEST(CtrieText, PastFourGigabytesIsNoMemory)
{
	constexpr size_t kFourGigabytes = size_t{1} << 32;
	struct {
		size_t used, max;
		const char *key;
	} const rows[] = {
		{kFourGigabytes - 1, 2 * kFourGigabytes, "a"},
		{kFourGigabytes - 4, 2 * kFourGigabytes, "abcd"},
		{kFourGigabytes - 1, kFourGigabytes, "ab"},
		{kFourGigabytes, 2 * kFourGigabytes, "a"},
		{SIZE_MAX - 1, SIZE_MAX, "ab"},
		{SIZE_MAX - 1, SIZE_MAX, "abcd"},
	};
	for (const auto &row : rows) {
		Trie trie;
		trie->buf_used = row.used;
		trie->buf_max = row.max;
		const size_t before = allocations();
		EXPECT_FALSE(trie.insert(row.key, 1)) << row.used;
		EXPECT_EQ(trie->err_code, CTRIE_NOMEM) << row.used;
		EXPECT_EQ(trie->buf_used, row.used);
		EXPECT_EQ(trie->buf_max, row.max);
		EXPECT_EQ(allocations(), before) << "no growth is tried";
		trie->buf_used = 0;
	}
}

TEST(CtrieText, CapacityOfZeroEndsWithoutMemory)
{
	Trie trie;
	trie->buf_max = 0;
	EXPECT_FALSE(trie.insert("a", 1));
	EXPECT_EQ(trie->err_code, CTRIE_NOMEM);
	EXPECT_EQ(trie->buf_used, 0u);
}

// ---- failed nodes ----

TEST(CtrieNoMemory, ForALeafKeepsTheTextOnly)
{
	Trie trie;
	{
		const Refuse refuse = Refuse::only(1);
		EXPECT_FALSE(trie.insert("abc", 1));
		EXPECT_TRUE(refuse.happened());
	}
	EXPECT_EQ(trie->err_code, CTRIE_NOMEM);
	EXPECT_EQ(trie.text(), "abc");
	EXPECT_EQ(trie.dump(), "[-1]\n");
	EXPECT_TRUE(trie.insert("abc", 1));
	EXPECT_EQ(trie.text(), "abcabc");
	EXPECT_EQ(trie.find("abc"), 1);
}

TEST(CtrieNoMemory, ForEitherNodeOfASplitLeavesTheTreeAsItWas)
{
	for (const size_t nth : {1u, 2u}) {
		Trie trie;
		ASSERT_TRUE(trie.insert("abc", 1));
		const std::string before = trie.dump();
		const size_t blocks = live_blocks();
		{
			const Refuse refuse = Refuse::only(nth);
			EXPECT_FALSE(trie.insert("abd", 2)) << nth;
			EXPECT_TRUE(refuse.happened()) << nth;
		}
		EXPECT_EQ(trie->err_code, CTRIE_NOMEM);
		EXPECT_EQ(trie.dump(), before) << nth;
		EXPECT_EQ(live_blocks(), blocks) << nth;
		expect_sound(trie);
		EXPECT_TRUE(trie.insert("abd", 2));
		EXPECT_EQ(trie.find("abc"), 1);
		EXPECT_EQ(trie.find("abd"), 2);
	}
}

TEST(CtrieNoMemory, ForASplitAtAPrefixLeavesTheTreeAsItWas)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("abc", 1));
	const std::string before = trie.dump();
	{
		const Refuse refuse = Refuse::only(1);
		EXPECT_FALSE(trie.insert("ab", 2));
		EXPECT_TRUE(refuse.happened());
	}
	EXPECT_EQ(trie->err_code, CTRIE_NOMEM);
	EXPECT_EQ(trie.dump(), before);
	EXPECT_EQ(trie.find("ab"), kAbsent);
}

// ---- find ----

TEST(CtrieFind, AbsentKeysGiveIntMin)
{
	Trie trie;
	EXPECT_EQ(trie.find("abc"), kAbsent);
	ASSERT_TRUE(trie.insert("abc", 1));
	ASSERT_TRUE(trie.insert("abx", 2));
	for (const char *key : {"", "a", "ab", "abcd", "abd", "b", "abcabc", "xabc"})
		EXPECT_EQ(trie.find(key), kAbsent) << key;
}

TEST(CtrieFind, ForeignCharactersAreAbsentAndSilent)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("ab", 1));
	ASSERT_TRUE(trie.insert("abc", 2));
	for (int code = 1; code < 256; ++code) {
		const char c = static_cast<char>(code);
		if (c == 'c' || c == 'C')
			continue;
		EXPECT_EQ(trie.find(std::string("ab") + c), kAbsent) << "code " << code;
		EXPECT_EQ(trie.find(std::string(1, c) + "b"), code == 'a' || code == 'A' ? 1 : kAbsent)
			<< "code " << code;
	}
	EXPECT_EQ(trie->err_code, CTRIE_SUCCESS);
	EXPECT_EQ(take_log(), "");
}

TEST(CtrieFind, NullsGiveIntMin)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("a", 1));
	EXPECT_EQ(ctrie_find(nullptr, "a"), kAbsent);
	EXPECT_EQ(ctrie_find(trie, nullptr), kAbsent);
}

TEST(CtrieFind, WithoutTextOrRootGivesIntMin)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("a", 1));
	ctrie without_text = *static_cast<ctrie *>(trie);
	without_text.buf = nullptr;
	EXPECT_EQ(ctrie_find(&without_text, "a"), kAbsent);
	ctrie without_root = *static_cast<ctrie *>(trie);
	without_root.root = nullptr;
	EXPECT_EQ(ctrie_find(&without_root, "a"), kAbsent);
}

TEST(CtrieFind, AllocatesNothing)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("a", 1));
	const size_t before = allocations();
	EXPECT_EQ(trie.find("a"), 1);
	EXPECT_EQ(trie.find("b"), kAbsent);
	EXPECT_EQ(allocations(), before);
}

// ---- the recursive step, called from outside ----

TEST(CtrieInsertString, WithoutNodeIsReported)
{
	EXPECT_FALSE(__ctrie_insert_string(nullptr, 0, 1, 5));
	EXPECT_EQ(take_log(), "[__ctrie_insert_string][399]vexil lib fail!!\n");
}

TEST(CtrieInsertString, EntersARangeOfTheText)
{
	Trie trie;
	const auto [begin, end] = trie.place("abcdef");
	EXPECT_TRUE(__ctrie_insert_string(trie->root, begin + 1, end - 1, 5));
	EXPECT_EQ(trie.find("bcde"), 5);
	ASSERT_NE(trie.child('b'), nullptr);
	EXPECT_EQ(trie.child('b')->begin, begin + 1);
	EXPECT_EQ(trie.child('b')->end, end - 1);
	EXPECT_EQ(trie.child('b')->owner, static_cast<ctrie *>(trie));
	EXPECT_EQ(children_of(trie.child('b')), 0u);
}

TEST(CtrieInsertString, StartsAtTheNodeGiven)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("ab", 1));
	const auto [begin, end] = trie.place("abz");
	EXPECT_TRUE(__ctrie_insert_string(trie.child('a'), begin, end, 2));
	EXPECT_EQ(trie.find("abz"), 2);
}

TEST(CtrieInsertString, ForeignCharacterBelowALabelIsReported)
{
	for (const char *raw : {"-", "\x80", "\xFF", "A"}) {
		Trie trie;
		const auto [begin, end] = trie.place(raw);
		EXPECT_FALSE(__ctrie_insert_string(trie->root, begin, end, 5));
		EXPECT_EQ(take_log(), "[__ctrie_insert_string][478]vexil lib fail!!\n");
		EXPECT_EQ(trie->err_code, CTRIE_SUCCESS);
		EXPECT_EQ(trie.dump(), "[-1]\n");
	}
}

TEST(CtrieInsertString, ForeignCharacterInsideALabelIsReported)
{
	for (const char *raw : {"ab-", "ab\x80", "ab\xFF", "abD"}) {
		Trie trie;
		ASSERT_TRUE(trie.insert("abc", 1));
		const auto [begin, end] = trie.place(raw);
		const size_t blocks = live_blocks();
		EXPECT_FALSE(__ctrie_insert_string(trie->root, begin, end, 5));
		EXPECT_EQ(take_log(), "[__ctrie_insert_string][513]vexil lib fail!!\n");
		EXPECT_EQ(trie->err_code, CTRIE_SUCCESS);
		EXPECT_EQ(live_blocks(), blocks);
		EXPECT_EQ(trie.dump(), "[-1]\n---abc[1]\n");
	}
}

// ---- where only memory matters ----

TEST(EnterName, TakenAndRefusedNamesGoWithoutTheValue)
{
	Trie trie;
	EXPECT_TRUE(vexil::enter_name(trie, "abc", 1));
	EXPECT_EQ(trie->err_code, CTRIE_SUCCESS);
	EXPECT_TRUE(vexil::enter_name(trie, "ABC", 2));
	EXPECT_EQ(trie->err_code, CTRIE_DUPLICATED_STRING);
	EXPECT_TRUE(vexil::enter_name(trie, "a-c", 3));
	EXPECT_EQ(trie->err_code, CTRIE_INVALID_CHAR);
	EXPECT_TRUE(vexil::enter_name(trie, "", 4));
	EXPECT_EQ(trie->err_code, CTRIE_OUT_OF_RANGE);
	EXPECT_EQ(trie.dump(), "[-1]\n---abc[1]\n");
}

TEST(EnterName, MissingMemoryIsFalse)
{
	Trie trie;
	const Refuse refuse = Refuse::only(1);
	EXPECT_FALSE(vexil::enter_name(trie, "abc", 1));
	EXPECT_TRUE(refuse.happened());
	EXPECT_EQ(trie->err_code, CTRIE_NOMEM);
}

TEST(EnterName, EarlierFailureIsNotTakenForThisOne)
{
	Trie trie;
	trie->err_code = CTRIE_NOMEM;
	EXPECT_TRUE(vexil::enter_name(trie, "abc", 1));
	EXPECT_EQ(trie->err_code, CTRIE_NOMEM) << "codes are set on failure only";
	EXPECT_TRUE(vexil::enter_name(trie, "abc", 2));
	EXPECT_EQ(trie->err_code, CTRIE_DUPLICATED_STRING);
}

TEST(ForgetName, NameCanBeEnteredAgainAndOthersStay)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("abc", 1));
	ASSERT_TRUE(trie.insert("abcd", 2));
	ASSERT_TRUE(trie.insert("ax", 3));
	vexil::forget_name(trie, "ABC");
	EXPECT_EQ(trie.find("abc"), kAbsent);
	EXPECT_EQ(trie.find("abcd"), 2);
	EXPECT_EQ(trie.find("ax"), 3);
	EXPECT_TRUE(trie.insert("abc", 4));
	EXPECT_EQ(trie.find("abc"), 4);
	EXPECT_EQ(trie.find("abcd"), 2);
}

TEST(ForgetName, NamesThatAreNotThereChangeNothing)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("abc", 1));
	for (const char *name : {"", "a", "ab", "abcd", "x", "a-c"})
		vexil::forget_name(trie, name);
	EXPECT_EQ(trie.dump(), "[-1]\n---abc[1]\n");
}

// ---- splits ----

TEST(CtrieSplit, GivesTheTailToANewChild)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("abcx", 1));
	ASSERT_TRUE(trie.insert("abcy", 2));
	ASSERT_TRUE(trie.insert("abc", 3));
	ctrie_node *node = trie.child('a');
	ASSERT_TRUE(__ctrie_split_node(node, 1));
	EXPECT_EQ(node->begin, 0u);
	EXPECT_EQ(node->end, 1u);
	EXPECT_EQ(node->value, kAbsent);
	EXPECT_EQ(children_of(node), 1u);
	const ctrie_node *tail = node->child[CT_CH_b];
	ASSERT_NE(tail, nullptr);
	EXPECT_EQ(tail->begin, 1u);
	EXPECT_EQ(tail->end, 3u);
	EXPECT_EQ(tail->owner, static_cast<ctrie *>(trie));
	EXPECT_EQ(tail->value, 3);
	EXPECT_EQ(children_of(tail), 2u);
	EXPECT_EQ(trie.find("abc"), 3);
	EXPECT_EQ(trie.find("abcx"), 1);
	EXPECT_EQ(trie.find("abcy"), 2);
}

TEST(CtrieSplit, OutsideTheLabelIsReported)
{
	struct {
		u32 pos;
		const char *line;
	} const rows[] = {
		{3, "3 not in range (3, 7)\n"},
		{7, "7 not in range (3, 7)\n"},
		{0, "0 not in range (3, 7)\n"},
		{900, "900 not in range (3, 7)\n"},
	};
	for (const auto &row : rows) {
		Trie trie;
		ASSERT_TRUE(trie.insert("xyz", 1));
		ASSERT_TRUE(trie.insert("abcd", 2));
		EXPECT_FALSE(__ctrie_split_node(trie.child('a'), row.pos));
		EXPECT_EQ(take_log(), row.line);
		EXPECT_EQ(trie->err_code, CTRIE_OUT_OF_RANGE) << row.pos;
		EXPECT_EQ(trie.dump(), "[-1]\n---abcd[2]\n---xyz[1]\n");
	}
}

TEST(CtrieSplit, RootIsNeverSplit)
{
	Trie trie;
	EXPECT_FALSE(__ctrie_split_node(trie->root, 0));
	EXPECT_EQ(take_log(), "0 not in range (0, 0)\n");
	EXPECT_EQ(trie->err_code, CTRIE_OUT_OF_RANGE);
}

TEST(CtrieSplit, AtAForeignCharacterIsReported)
{
	for (const char raw : {'-', '\x80', '\xFF', '\0', 'C'}) {
		Trie trie;
		ASSERT_TRUE(trie.insert("abcd", 2));
		trie->buf[2] = raw;
		const size_t blocks = live_blocks();
		EXPECT_FALSE(__ctrie_split_node(trie.child('a'), 2));
		EXPECT_EQ(take_log(), "[__ctrie_split_node][360]vexil lib fail!!\n");
		EXPECT_EQ(trie->err_code, CTRIE_SUCCESS);
		EXPECT_EQ(live_blocks(), blocks);
		EXPECT_EQ(trie.child('a')->end, 4u);
	}
}

TEST(CtrieSplit, WithoutMemoryChangesNothing)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("abcd", 2));
	{
		const Refuse refuse = Refuse::only(1);
		EXPECT_FALSE(__ctrie_split_node(trie.child('a'), 2));
		EXPECT_TRUE(refuse.happened());
	}
	EXPECT_EQ(trie->err_code, CTRIE_NOMEM);
	EXPECT_EQ(trie.dump(), "[-1]\n---abcd[2]\n");
}

// ---- destroy ----

TEST(CtrieDestroy, FreesEverythingAndClearsTheRecord)
{
	ctrie trie;
	ASSERT_TRUE(ctrie_init(&trie));
	for (const char *key : {"abc", "abd", "ab", "x", "xyz", "x#1"})
		ASSERT_TRUE(ctrie_insert(&trie, key, 1));
	ctrie_destroy(&trie);
	EXPECT_EQ(live_blocks(), 0u);
	EXPECT_EQ(trie.buf, nullptr);
	EXPECT_EQ(trie.buf_used, 0u);
	EXPECT_EQ(trie.buf_max, 0u);
	EXPECT_EQ(trie.root, nullptr);
}

TEST(CtrieDestroy, IsHarmlessTwiceAndForNull)
{
	ctrie trie;
	ASSERT_TRUE(ctrie_init(&trie));
	ctrie_destroy(&trie);
	ctrie_destroy(&trie);
	ctrie_destroy(nullptr);
	EXPECT_EQ(live_blocks(), 0u);
}

std::vector<const void *> freed_blocks;

TEST(CtrieDestroy, FreesChildrenBeforeParentsThroughTheHook)
{
	ctrie trie;
	ASSERT_TRUE(ctrie_init(&trie));
	trie.deallocate = [](void *block) {
		freed_blocks.push_back(block);
		DEALLOC(block);
	};
	for (const char *key : {"abc", "abd", "ab", "x", "xyz", "x#1", "abcde", "abcdf"})
		ASSERT_TRUE(ctrie_insert(&trie, key, 1));
	std::vector<std::pair<const void *, const void *>> child_and_parent;
	std::vector<const ctrie_node *> open{trie.root};
	while (!open.empty()) {
		const ctrie_node *node = open.back();
		open.pop_back();
		for (const ctrie_node *below : node->child) {
			if (!below)
				continue;
			child_and_parent.emplace_back(below, node);
			open.push_back(below);
		}
	}
	const char *text = trie.buf;
	freed_blocks.clear();
	ctrie_destroy(&trie);
	const auto turn = [](const void *block) {
		return std::find(freed_blocks.begin(), freed_blocks.end(), block);
	};
	ASSERT_EQ(freed_blocks.size(), child_and_parent.size() + 2) << "nodes, root and text";
	EXPECT_NE(turn(text), freed_blocks.end());
	for (const auto &[child, parent] : child_and_parent) {
		ASSERT_NE(turn(child), freed_blocks.end());
		ASSERT_NE(turn(parent), freed_blocks.end());
		EXPECT_LT(turn(child), turn(parent));
	}
}

TEST(CtrieDestroyed, RefusesInsertion)
{
	ctrie trie;
	ASSERT_TRUE(ctrie_init(&trie));
	ASSERT_TRUE(ctrie_insert(&trie, "a", 1));
	ctrie_destroy(&trie);
	EXPECT_FALSE(ctrie_insert(&trie, "b", 2));
	EXPECT_EQ(trie.err_code, CTRIE_INTERNAL_ERROR);
	EXPECT_EQ(live_blocks(), 0u);
}

TEST(CtrieDestroyed, FindsAndPrintsNothing)
{
	ctrie trie;
	ASSERT_TRUE(ctrie_init(&trie));
	ASSERT_TRUE(ctrie_insert(&trie, "a", 1));
	ctrie_destroy(&trie);
	EXPECT_EQ(ctrie_find(&trie, "a"), kAbsent);
	ctrie_print(&trie);
	EXPECT_EQ(take_log(), "");
}

TEST(CtrieDestroyed, CanBeMadeAnew)
{
	ctrie trie;
	ASSERT_TRUE(ctrie_init(&trie));
	ctrie_destroy(&trie);
	ASSERT_TRUE(ctrie_init(&trie));
	EXPECT_TRUE(ctrie_insert(&trie, "a", 1));
	EXPECT_EQ(ctrie_find(&trie, "a"), 1);
	ctrie_destroy(&trie);
}

TEST(CtrieDeleteNode, FreesASubtree)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("abc", 1));
	const size_t blocks = live_blocks();
	ASSERT_TRUE(trie.insert("xy ", 2));
	ASSERT_TRUE(trie.insert("xy#", 3));
	ASSERT_TRUE(trie.insert("xyz", 4));
	__ctrie_delete_node(std::exchange(trie->root->child[Trie::slot('x')], nullptr));
	EXPECT_EQ(live_blocks(), blocks);
	EXPECT_EQ(trie.find("abc"), 1);
}

TEST(CtrieDeleteNode, TakesNull)
{
	__ctrie_delete_node(nullptr);
	EXPECT_EQ(take_log(), "");
}

// ---- print ----

TEST(CtriePrint, EmptyTrieIsItsRoot)
{
	Trie trie;
	EXPECT_EQ(trie.dump(), "[-1]\n");
}

TEST(CtriePrint, ChildrenComeInAlphabetOrder)
{
	Trie trie;
	int value = 1;
	for (const char *key : {"z", "a", "_", "\\", ":", "9", "0", "/", ".", "#", " "})
		ASSERT_TRUE(trie.insert(key, value++));
	EXPECT_EQ(trie.dump(), "[-1]\n"
			       "--- [11]\n"
			       "---#[10]\n"
			       "---.[9]\n"
			       "---/[8]\n"
			       "---0[7]\n"
			       "---9[6]\n"
			       "---:[5]\n"
			       "---\\[4]\n"
			       "---_[3]\n"
			       "---a[2]\n"
			       "---z[1]\n");
}

TEST(CtriePrint, GoesDownBeforeItGoesOn)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("ab", 1));
	ASSERT_TRUE(trie.insert("abc", 2));
	ASSERT_TRUE(trie.insert("abcd", 3));
	ASSERT_TRUE(trie.insert("abd", -4));
	ASSERT_TRUE(trie.insert("b", 5));
	EXPECT_EQ(trie.dump(), "[-1]\n"
			       "---ab[1]\n"
			       "------c[2]\n"
			       "---------d[3]\n"
			       "------d[-4]\n"
			       "---b[5]\n");
}

TEST(CtriePrint, ChangesNothingALookupNeeds)
{
	Trie trie;
	for (const char *key : {"abc", "abd", "ab", "x", "xyz"})
		ASSERT_TRUE(trie.insert(key, 1));
	const std::string first = trie.dump();
	EXPECT_EQ(trie.dump(), first);
	expect_sound(trie);
}

TEST(CtriePrint, StartsAtTheDepthGiven)
{
	Trie trie;
	ASSERT_TRUE(trie.insert("ab", 1));
	ASSERT_TRUE(trie.insert("abc", 2));
	__ctrie_print_node(trie.child('a'), 2);
	EXPECT_EQ(take_log(), "------ab[1]\n"
			      "---------c[2]\n");
}

TEST(CtriePrint, TakesNull)
{
	ctrie_print(nullptr);
	EXPECT_EQ(take_log(), "");
}

TEST(CtriePrint, WideTrieIsPrintedWhole)
{
	Trie trie;
	const std::string alphabet = " #./0123456789:\\_abcdefghijklmnopqrstuvwxyz";
	std::string expected = "[-1]\n";
	for (size_t i = 0; i < alphabet.size(); ++i) {
		const std::string outer(1, alphabet[i]);
		ASSERT_TRUE(trie.insert(outer, static_cast<int>(i)));
		expected += "---" + outer + "[" + std::to_string(i) + "]\n";
		for (size_t j = 0; j < alphabet.size(); ++j) {
			ASSERT_TRUE(trie.insert(outer + alphabet[j], static_cast<int>(1000 + j)));
			expected += std::string("------") + alphabet[j] + "[" +
				    std::to_string(1000 + j) + "]\n";
		}
	}
	EXPECT_EQ(trie.dump(), expected);
}

TEST(CtriePrint, WithoutMemoryForItsStackPrintsAPartOnly)
{
	Trie trie;
	const std::string alphabet = "0123456789abcdefghijklmnopqrstuvwxyz";
	for (const char c : alphabet)
		ASSERT_TRUE(trie.insert(std::string(1, c), 1));
	const std::string whole = trie.dump();
	std::string part;
	{
		const Refuse refuse = Refuse::from(1);
		part = trie.dump();
		EXPECT_TRUE(refuse.happened());
	}
	const std::string report = "]vexil lib fail!!\n";
	ASSERT_GE(part.size(), report.size());
	EXPECT_EQ(part.substr(part.size() - report.size()), report);
	const size_t lines_end = part.rfind('\n', part.size() - 2) + 1;
	EXPECT_EQ(part.substr(0, lines_end), whole.substr(0, lines_end));
	EXPECT_EQ(trie.dump(), whole);
}

// ---- keys that make the trie deep ----

constexpr size_t kDeep = 3000;

TEST(CtrieDepth, EachKeyOneLongerThanTheLastNeedsNoDeepStack)
{
	size_t refused = 0;
	size_t wrong = 0;
	on_small_stack([&] {
		ctrie trie;
		if (!ctrie_init(&trie)) {
			refused = kDeep;
			return;
		}
		const std::string longest(kDeep, 'a');
		for (size_t length = 1; length <= kDeep; ++length)
			refused += !ctrie_insert(&trie, longest.c_str() + kDeep - length,
						 static_cast<int>(length));
		for (size_t length = 1; length <= kDeep; ++length)
			wrong += ctrie_find(&trie, longest.c_str() + kDeep - length) !=
				 static_cast<int>(length);
		ctrie_destroy(&trie);
	});
	EXPECT_EQ(refused, 0u);
	EXPECT_EQ(wrong, 0u);
	EXPECT_EQ(live_blocks(), 0u);
}

TEST(CtrieDepth, EachKeyOneShorterThanTheLastNeedsNoDeepStack)
{
	size_t refused = 0;
	size_t wrong = 0;
	on_small_stack([&] {
		ctrie trie;
		if (!ctrie_init(&trie)) {
			refused = kDeep;
			return;
		}
		const std::string longest(kDeep, 'a');
		for (size_t length = kDeep; length > 0; --length)
			refused += !ctrie_insert(&trie, longest.c_str() + kDeep - length,
						 static_cast<int>(length));
		for (size_t length = 1; length <= kDeep; ++length)
			wrong += ctrie_find(&trie, longest.c_str() + kDeep - length) !=
				 static_cast<int>(length);
		ctrie_destroy(&trie);
	});
	EXPECT_EQ(refused, 0u);
	EXPECT_EQ(wrong, 0u);
	EXPECT_EQ(live_blocks(), 0u);
}

TEST(CtrieDepth, PrintingNeedsNoDeepStack)
{
	constexpr size_t kDeepToPrint = 1500; // each line is as long as its depth
	Trie trie;
	const std::string longest(kDeepToPrint, 'a');
	std::string expected = "[-1]\n";
	for (size_t length = 1; length <= kDeepToPrint; ++length) {
		ASSERT_TRUE(trie.insert(longest.substr(0, length), static_cast<int>(length)));
		for (size_t i = 0; i < length; ++i)
			expected += "---";
		expected += "a[" + std::to_string(length) + "]\n";
	}
	take_log();
	on_small_stack([&] { ctrie_print(trie); });
	EXPECT_TRUE(take_log() == expected);
}

// ---- against a map ----

class CtrieModel : public testing::TestWithParam<std::pair<const char *, unsigned int>> {};

TEST_P(CtrieModel, AgreesWithAMapOfLowerCasedNames)
{
	const auto [letters, seed] = GetParam();
	SCOPED_TRACE("seed " + std::to_string(seed));
	const std::string alphabet = letters;
	constexpr size_t kOperations = 6000;
	constexpr size_t kLongestKey = 9;

	std::mt19937 random(seed);
	const auto below = [&](size_t limit) { return static_cast<size_t>(random() % limit); };
	const auto key = [&] {
		std::string text;
		for (size_t left = 1 + below(kLongestKey); left > 0; --left) {
			const char c = alphabet[below(alphabet.size())];
			text += below(2) && c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
		}
		return text;
	};
	const auto lower_cased = [](std::string text) {
		for (char &c : text)
			c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
		return text;
	};

	Trie trie;
	std::map<std::string, int> model;
	std::string text;
	size_t inserted = 0;
	for (size_t i = 0; i < kOperations; ++i) {
		const std::string name = key();
		const std::string stored = lower_cased(name);
		if (below(3) == 0) {
			const auto known = model.find(stored);
			ASSERT_EQ(trie.find(name), known == model.end() ? kAbsent : known->second)
				<< name << ", operation " << i;
			continue;
		}
		const int value = static_cast<int>(random() >> 1) * (below(2) ? 1 : -1);
		const bool is_new = model.emplace(stored, value).second;
		++inserted;
		text += stored;
		ASSERT_EQ(trie.insert(name, value), is_new) << name << ", operation " << i;
		ASSERT_EQ(trie->err_code,
			  model.size() == inserted ? CTRIE_SUCCESS : CTRIE_DUPLICATED_STRING);
	}
	EXPECT_EQ(trie.text(), text);
	for (const auto &[name, value] : model) {
		ASSERT_EQ(trie.find(name), value) << name;
		for (const std::string &near : {name.substr(1), name + name.front(),
						name.substr(0, name.size() - 1)}) {
			const auto known = model.find(near);
			ASSERT_EQ(trie.find(near), known == model.end() ? kAbsent : known->second)
				<< near;
		}
	}
	expect_sound(trie);
	EXPECT_EQ(take_log(), "");
}

INSTANTIATE_TEST_SUITE_P(Alphabets, CtrieModel,
			 testing::Values(std::pair{"ab", 1u}, std::pair{"abc", 2u},
					 std::pair{"xyz_#0", 3u},
					 std::pair{" #./0123456789:\\_abcdefghijklmnopqrstuvwxyz",
						   4u}));

} // namespace
