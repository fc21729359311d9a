// SPDX-License-Identifier: MIT
//
// The limits below maps and rules, one group each: documents, stores, images, memory. Sizes that no
// test should take are only claimed, or lie in address space without memory behind it.
#include <sys/mman.h>

#include <climits>

#include "core/number.h"
#include "tests/limits/limits.h"
#include "tests/support/stores.h"
#include <vexil/presetdb.h>

namespace {

using namespace vexil_test;

constexpr size_t kFourGigabytes = size_t{1} << 32;

// ---- documents ----

std::string nested(size_t levels, const char *open, const char *close)
{
	std::string text;
	for (size_t i = 0; i < levels; ++i)
		text += open;
	text += "7";
	for (size_t i = 0; i < levels; ++i)
		text += close;
	return text;
}

constexpr size_t kNowhere = SIZE_MAX;

/** How many brackets are around the 7; kNowhere without one. */
size_t level_of_seven(const cJSON *item)
{
	for (; item; item = item->next) {
		if (item->type == cJSON_Number && item->valuelong == 7)
			return 0;
		const size_t below = level_of_seven(item->child);
		if (below != kNowhere)
			return below + 1;
	}
	return kNowhere;
}

TEST(LimitNesting, OfDocumentsIs48Levels)
{
	constexpr size_t kMost = 48;
	const std::pair<const char *, const char *> kinds[] = {
		{"[", "]"}, {"{\"a\":", "}"}, {"[1,[],", "]"}, {"{\"b\":[],\"a\":", ",\"c\":{}}"}};
	for (size_t kind = 0; kind < std::size(kinds); ++kind) {
		const auto [open, close] = kinds[kind];
		const size_t empty_ones = kind < 2 ? 0 : 1; // beside the innermost, one level more
		for (const size_t levels : {kMost - 1, kMost, kMost + 1, size_t{100000}}) {
			SCOPED_TRACE(std::to_string(levels) + " of " + open);
			const Json document = json(nested(levels, open, close));
			const bool fits = levels + empty_ones <= kMost;
			EXPECT_EQ(document != nullptr, fits);
			EXPECT_EQ(level_of_seven(document.get()), fits ? levels : kNowhere);
		}
	}
}

TEST(LimitNesting, LeavesRoomForTheDeepestMap)
{
	// Eight folders with array forms in the innermost take 20 levels; 28 more may surround a
	// value that nothing reads.
	for (const size_t more : {27u, 28u, 29u}) {
		Map map;
		ASSERT_TRUE(map.init());
		ASSERT_TRUE(pim_insert_regmap(map.get(), "R0", 3));
		std::string folders;
		for (int i = 0; i < 8; ++i)
			folders += "'F" + std::to_string(i) + "': {";
		const Json document =
			json("{'PqFuncGroups': {" + folders +
			     "'A': {'settings': {'S': {'group': [{'M': {'hwreg': [{'R0': 7}], "
			     "'unread': [{'x': " +
			     nested(more + 3, "[", "]") + "}]}}]}}}" + std::string(10, '}'));
		const size_t levels = 2 + 8 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + more + 3;
		EXPECT_EQ(document != nullptr, levels <= 48) << levels;
		if (!document)
			continue;
		EXPECT_TRUE(pim_insert(map.get(), document.get()));
		EXPECT_EQ(load(map.get(), std::string("S#M")), Lines{"REGISTER {3=7}"});
	}
}

TEST(LimitNumbers, Have63Characters)
{
	for (const size_t length : {62u, 63u, 64u}) {
		const std::string digits = "0x" + std::string(length - 3, '0') + "7";
		const Json alone = json(digits), member = json("{'a': " + digits + ", 'b': 1}");
		if (length <= 63) {
			ASSERT_TRUE(alone && member) << length;
			EXPECT_EQ(alone->valuelong, 7);
			EXPECT_EQ(member->child->valuelong, 7);
			continue;
		}
		// Cut, the rest is text behind the root, which may stand there, and behind a
		// member, which may not.
		ASSERT_TRUE(alone);
		EXPECT_EQ(alone->valuelong, 0);
		EXPECT_FALSE(member);
	}
}

TEST(LimitNumbers, Have64Bits)
{
	const struct {
		const char *text;
		bool parses;
		long long number;
	} rows[] = {
		{"9223372036854775806", true, LLONG_MAX - 1},
		{"9223372036854775807", true, LLONG_MAX},
		{"9223372036854775808", false, 0},
		{"-9223372036854775807", true, LLONG_MIN + 1},
		{"-9223372036854775808", true, LLONG_MIN},
		{"-9223372036854775809", false, 0},
		{"0x7FFFFFFFFFFFFFFF", true, LLONG_MAX},
		{"0x8000000000000000", false, 0},
		{"0777777777777777777777", true, LLONG_MAX},
		{"01000000000000000000000", false, 0},
	};
	for (const auto &row : rows) {
		const Json document = json("{'a': " + std::string(row.text) + "}");
		ASSERT_EQ(document != nullptr, row.parses) << row.text;
		EXPECT_EQ(document ? document->child->valuelong : 0, row.number) << row.text;
	}
}

TEST(LimitNumbers, OfTextsStayTextsBeyond64Bits)
{
	const struct {
		const char *text;
		bool number;
	} rows[] = {{"0x7ffffffffffffffe", true},
		    {"0x7fffffffffffffff", true},
		    {"0x8000000000000000", false}};
	for (const auto &row : rows) {
		const Json document = json("{'a': '" + std::string(row.text) + "'}");
		ASSERT_TRUE(document);
		EXPECT_EQ(cJSON_IsNumber(document->child) != 0, row.number) << row.text;
		EXPECT_EQ(cJSON_IsString(document->child) != 0, !row.number) << row.text;
		EXPECT_STREQ(document->child->valuestring, row.text);
	}
}

TEST(LimitNumbers, AreClampedAsInts)
{
	const struct {
		const char *text;
		int value;
	} rows[] = {
		{"2147483646", INT_MAX - 1}, {"2147483647", INT_MAX},  {"2147483648", INT_MAX},
		{"-2147483647", -INT_MAX},   {"-2147483648", INT_MIN}, {"-2147483649", INT_MIN},
	};
	for (const auto &row : rows) {
		const Json document = json(row.text);
		ASSERT_TRUE(document);
		EXPECT_EQ(document->valueint, row.value) << row.text;
		EXPECT_EQ(document->valuelong, std::stoll(row.text));
	}
}

TEST(LimitNumbers, OfTextHelpersHave64Bits)
{
	const struct {
		const char *text;
		int base;
		u64 number;
	} rows[] = {
		{"18446744073709551614", 10, ~u64{0} - 1},
		{"18446744073709551615", 10, ~u64{0}},
		{"18446744073709551616", 10, 0},
		{"ffffffffffffffff", 16, ~u64{0}},
		{"10000000000000000", 16, 0},
		{"01777777777777777777777", 0, ~u64{0}},
		{"02000000000000000000000", 0, 0},
	};
	for (const auto &row : rows) {
		u64 number = 99;
		vexil_strtoull(row.text, &number, row.base);
		EXPECT_EQ(number, row.number) << row.text;
	}
}

TEST(LimitPresetDb, WordsAndNumbers)
{
	const struct {
		const char *range;
		presetdb_range stored;
	} words[] = {{"Limit", RANGE_AUTO}, {"Limite", RANGE_LIMIT}, {"Limited", RANGE_LIMIT},
		     {"FUL", RANGE_AUTO},   {"FULL", RANGE_FULL},    {"FULLER", RANGE_FULL}};
	const struct {
		const char *text;
		s64 number;
	} numbers[] = {{"9223372036854775807", INT64_MAX},
		       {"-9223372036854775808", INT64_MIN},
		       {"'0x7fffffffffffffff'", INT64_MAX},
		       {"'0x8000000000000000'", 0}}; // a text, whose number is 0
	graphic_presetdb_info info;
	for (const auto &word : words) {
		const Json document = json("{'Preset_PQ_Value': {'Input': {'Range': '" +
					   std::string(word.range) + "'}}}");
		ASSERT_TRUE(graphic_presetdb_parse(document.get(), &info));
		EXPECT_EQ(info.input.range, word.stored) << word.range;
	}
	for (const auto &row : numbers) {
		const Json document = json("{'Preset_PQ_Value': {'Colortuning': {'Hue': " +
					   std::string(row.text) + "}}}");
		ASSERT_TRUE(graphic_presetdb_parse(document.get(), &info));
		EXPECT_EQ(info.hue, row.number) << row.text;
	}
	take_log(); // of all that the documents leave out
}

// ---- nodes and data of stores ----

TEST(LimitStoreNodes, Are65535)
{
	Store store;
	store.fill(kMostNodes - 1);
	EXPECT_EQ(extmem_request_max_node_id(store), kMostNodes - 2);
	const node_d last = store.add(EXTMEM_TAG_GENERAL);
	EXPECT_EQ(last, store.at(kMostNodes - 1));
	ASSERT_TRUE(extmem_append_child(store.at(0), last));
	EXPECT_EQ(store->err_code, EXTMEM_SUCCESS);
	EXPECT_EQ(store.add(EXTMEM_TAG_GENERAL).id, kNone);
	EXPECT_EQ(store->err_code, EXTMEM_OUT_OF_RANGE);
	EXPECT_EQ(extmem_get_child(store.at(0)), last);
	EXPECT_FALSE(extmem_node_isvalid({kNone, store}));
	Bytes image = exported(store);
	extmem_builder adopted = blank_builder();
	ASSERT_TRUE(extmem_builder_init(&adopted, image_of(image), static_cast<u32>(image.size())));
	EXPECT_EQ(extmem_get_child({0, &adopted}).id, kMostNodes - 1);
	EXPECT_EQ(extmem_fetch_id({static_cast<u16>(kMostNodes - 1), &adopted}), kMostNodes - 1);
}

/** Address space; memory only where it is written. */
class Room {
public:
	explicit Room(size_t size)
	    : size_(size), start_(mmap(nullptr, size, PROT_READ | PROT_WRITE,
				       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0))
	{
		EXPECT_NE(start_, MAP_FAILED);
	}
	~Room() { munmap(start_, size_); }
	Room(const Room &) = delete;
	Room &operator=(const Room &) = delete;

	template <typename T>
	T *as()
	{
		return static_cast<T *>(start_);
	}
	[[nodiscard]] size_t size() const { return size_; }

private:
	size_t size_;
	void *start_;
};

TEST(LimitDataOffsets, Have32Bits)
{
	Room room(kFourGigabytes + 4096);
	Store store;
	store.fill(1);
	const extmem_buffer_ctx own = store->data_buffer;
	for (const size_t offset : {kFourGigabytes - 16, kFourGigabytes - 8, kFourGigabytes}) {
		store->data_buffer = {room.as<u8>(), offset, room.size()};
		const size_t nodes = store->node_buffer.buf_used;
		const node_d made = store.holder(EXTMEM_TAG_DATA, Bytes(8, 0x5A));
		EXPECT_EQ(store->data_buffer.buf_used, offset + 8);
		if (offset < kFourGigabytes) {
			EXPECT_EQ(extmem_copy_from_node(made), (data_d{offset, 8, store}));
			const auto *bytes = static_cast<const u8 *>(
				extmem_fetch_data(extmem_copy_from_node(made)));
			EXPECT_EQ(bytes, room.as<u8>() + offset);
			EXPECT_EQ(bytes[7], 0x5A);
			continue;
		}
		EXPECT_EQ(made.id, kNone);
		EXPECT_EQ(take_log(), "[extmem_copy_to_node][448]vexil lib fail!!\n");
		EXPECT_EQ(store->node_buffer.buf_used,
			  nodes + kNodeSize); // stays used, without data
		const auto id = static_cast<u16>(nodes / kNodeSize);
		EXPECT_EQ(node_bytes(store, id), tree_node(id, EXTMEM_TAG_DATA));
	}
	EXPECT_EQ(extmem_fetch_datalen(extmem_copy_from_node(store.at(2))), 8u); // as it was
	store->data_buffer = own;
}

TEST(LimitDataSizes, Have32Bits)
{
	Room room(2 * kFourGigabytes);
	Store store;
	store.fill(1);
	const extmem_buffer_ctx own = store->data_buffer;
	store->data_buffer = {room.as<u8>(), 2 * kFourGigabytes, room.size()};
	for (const size_t size : {kFourGigabytes - 2, kFourGigabytes - 1, kFourGigabytes}) {
		const bool fits = size < kFourGigabytes;
		EXPECT_EQ(extmem_copy_to_node(store.at(0), {0, size, store}), fits);
		EXPECT_EQ(take_log(), fits ? "" : "[extmem_copy_to_node][448]vexil lib fail!!\n");
		EXPECT_EQ(node_bytes(store, 0),
			  data_node(0, 1, static_cast<u32>(std::min(size, kFourGigabytes - 1)), 0));
	}
	// The largest request is rounded up without wrapping, and its record keeps its size.
	store->data_buffer = {room.as<u8>(), 0, room.size()};
	const data_d largest = extmem_request_data(store, 0xFFFFFFFF);
	EXPECT_EQ(largest, (data_d{0, 0xFFFFFFFF, store}));
	EXPECT_EQ(store->data_buffer.buf_used, kFourGigabytes);
	EXPECT_TRUE(extmem_data_isvalid(largest));
	store->data_buffer = own;
}

TEST(LimitExport, Is4GigabytesLessOneByte)
{
	constexpr size_t kOverhead = 104, kNodes = 1024;
	Room from(kFourGigabytes), to(kFourGigabytes);
	for (const size_t total : {kFourGigabytes - 8, kFourGigabytes - 1, kFourGigabytes}) {
		extmem_builder store = blank_builder();
		// Only claimed; what is copied of it is nothing.
		store.node_buffer = {nullptr, 16, kNodes};
		store.data_buffer = {nullptr, 0, total - kOverhead - kNodes};
		EXPECT_EQ(extmem_builder_get_export_size(&store), total);
		const bool fits = total < kFourGigabytes;
		EXPECT_EQ(extmem_builder_export(&store, to.as<char>()), fits ? total : 0) << total;
		EXPECT_EQ(store.err_code, fits ? EXTMEM_SUCCESS : EXTMEM_INTERNAL_ERROR);
		EXPECT_EQ(store.header.binSize, fits ? total : 0);
	}
}

TEST(LimitMergedData, Is4GigabytesLessOneStep)
{
	for (const size_t sum : {kFourGigabytes - 16, kFourGigabytes - 8, kFourGigabytes}) {
		Store base, sub, target;
		base.fill(1);
		sub.fill(1);
		const extmem_buffer_ctx own = base->data_buffer;
		base->data_buffer.buf_used = base->data_buffer.buf_max = sum - 64;
		sub.holder(EXTMEM_TAG_DATA, Bytes(64));
		const BufferState before(sub->node_buffer);
		// A block of that size cannot be had: arithmetic is all that there is to see.
		const Refuse all = Refuse::from(1);
		EXPECT_FALSE(extmem_merge_buffer(target, base, sub));
		const bool fits = sum < kFourGigabytes;
		EXPECT_EQ(target->err_code, fits ? EXTMEM_NOMEM : EXTMEM_OUT_OF_RANGE);
		EXPECT_EQ(base->err_code, fits ? EXTMEM_NOMEM : EXTMEM_SUCCESS);
		EXPECT_EQ(BufferState(sub->node_buffer) == before,
			  !fits); // renumbered, or not begun
		base->data_buffer = own;
	}
}

// ---- memory ----

TEST(LimitBlocks, AreOneByteLessThan2Gigabytes)
{
	constexpr size_t kMost = INT_MAX;
	for (const size_t size : {kMost - 1, kMost, kMost + 1, SIZE_MAX}) {
		const size_t asked = allocations();
		const Refuse all = Refuse::from(1);
		EXPECT_EQ(ALLOC(size), nullptr);
		const bool fits = size <= kMost;
		EXPECT_EQ(allocations(), asked + (fits ? 1 : 0)) << size; // the kernel would warn
		EXPECT_TRUE(!fits || last_request().size == size);
	}
}

TEST(LimitBlocks, LeaveBuffersOf1Gigabyte)
{
	constexpr size_t kMost = size_t{1} << 30;
	Room room(kMost);
	Store store;
	const extmem_buffer_ctx own = store->data_buffer;
	for (const size_t used : {kMost - 24, kMost - 16, kMost - 8}) {
		store->data_buffer = {room.as<u8>(), used, kMost};
		const size_t asked = allocations();
		{
			const Refuse all = Refuse::from(1);
			EXPECT_EQ(extmem_request_data(store, 16).size,
				  used + 16 < kMost ? 16u : 0u);
		}
		// A buffer that fills up is asked for once more; twice the size is never asked for.
		EXPECT_EQ(allocations(), asked + (used + 16 == kMost ? 1 : 0));
		if (used + 16 == kMost) {
			EXPECT_EQ(last_request().size, kMost);
		}
		const bool fits = used + 16 < kMost;
		EXPECT_EQ(store->data_buffer.buf_used, fits ? used + 16 : used);
		EXPECT_EQ(store->data_buffer.buf_max, kMost);
		EXPECT_EQ(store->err_code, fits ? EXTMEM_SUCCESS : EXTMEM_NOMEM);
	}
	store->data_buffer = own;
}

TEST(LimitTrieText, Is4GigabytesLessOneByte)
{
	constexpr size_t kKey = 4;
	Room room(2 * kFourGigabytes);
	ctrie trie;
	ASSERT_TRUE(ctrie_init(&trie));
	ASSERT_TRUE(ctrie_insert(&trie, "before", 1));
	char *const own = trie.buf;
	const size_t own_max = trie.buf_max;
	std::memcpy(room.as<char>(), own, trie.buf_used);
	trie.buf = room.as<char>();
	trie.buf_max = room.size();
	for (const size_t used :
	     {kFourGigabytes - kKey - 2, kFourGigabytes - kKey - 1, kFourGigabytes - kKey}) {
		trie.buf_used = used;
		trie.err_code = CTRIE_SUCCESS;
		const std::string key = "key" + std::to_string(used % 10);
		const bool fits = used + kKey < kFourGigabytes;
		EXPECT_EQ(ctrie_insert(&trie, key.c_str(), 2), fits) << used;
		EXPECT_EQ(trie.err_code, fits ? CTRIE_SUCCESS : CTRIE_NOMEM);
		EXPECT_EQ(ctrie_find(&trie, key.c_str()), fits ? 2 : INT_MIN);
		EXPECT_EQ(ctrie_find(&trie, "before"), 1);
	}
	trie.buf = own;
	trie.buf_used = 0;
	trie.buf_max = own_max;
	ctrie_destroy(&trie);
}

// ---- images ----

class LimitImages : public LimitTest {
protected:
	void SetUp() override
	{
		LimitTest::SetUp();
		add_settings(1);
		ASSERT_TRUE(declare(enumerated("A", {"x"})));
		ASSERT_TRUE(add(rule("R", {rule_case("'A': 'x'", "'S#0'")})));
		ASSERT_TRUE(rm_finish(rules.get()));
	}
	/** The first @size bytes, in a buffer of that size. */
	static bool adopt_map(ImageBytes image, size_t size)
	{
		Map adopted;
		image.resize(size);
		return adopt(adopted, image);
	}
	static bool adopt_rules(ImageBytes image, size_t size)
	{
		Rules adopted;
		image.resize(size);
		return adopt(adopted, image);
	}
	static vexil_image_code code_of(const ImageBytes &image, size_t size)
	{
		return fault_of(std::vector<char>(image.bytes().begin(),
						  image.bytes().begin() +
							  static_cast<std::ptrdiff_t>(size)))
			.code;
	}
};

TEST_F(LimitImages, HaveTheirParts)
{
	for (ImageBytes image : {image_of(map.get()), image_of(rules.get())}) {
		const bool is_map = image.header().binType == 1;
		const auto accepted = [&](size_t size) {
			return is_map ? adopt_map(image, size) : adopt_rules(image, size);
		};
		const size_t data_at = image.data_at();
		// A head, the figures of the nodes, the nodes, the figures of the data.
		for (const size_t end : {size_t{88}, size_t{96}, data_at}) {
			EXPECT_FALSE(accepted(end - 1)) << end;
			EXPECT_NE(code_of(image, end - 1), VEXIL_IMAGE_SOUND);
		}
		EXPECT_EQ(code_of(image, 103), VEXIL_IMAGE_TOO_SHORT);
		EXPECT_EQ(code_of(image, 104), VEXIL_IMAGE_TRUNCATED);
		EXPECT_EQ(code_of(image, data_at), VEXIL_IMAGE_TRUNCATED);
		// Adoption takes the data that is there; the verifier wants all that was declared.
		EXPECT_EQ(code_of(image, image.size() - 1), VEXIL_IMAGE_TRUNCATED);
		EXPECT_TRUE(accepted(image.size() - 1));
		EXPECT_EQ(code_of(image, image.size()), VEXIL_IMAGE_SOUND);
		EXPECT_TRUE(accepted(image.size()));
		ImageBytes longer = image;
		longer.resize(image.size() + 1);
		EXPECT_EQ(fault_of(longer), kSound);
	}
}

TEST_F(LimitImages, HaveTheLargestCounts)
{
	// Capacities that end one byte behind the buffer, and those that would end behind 4 GiB.
	const ImageBytes sound = image_of(map.get());
	const u32 most = sound.size() - 104;
	for (const u32 capacity :
	     {sound.node_capacity(), most + 1, 0xFFFFFF97u, 0xFFFFFF98u, 0xFFFFFFFFu}) {
		ImageBytes image = sound;
		image.put(92, capacity);
		Map adopted;
		const bool same = capacity == sound.node_capacity();
		EXPECT_EQ(adopt(adopted, image), same) << capacity;
		EXPECT_EQ(fault_of(image).code == VEXIL_IMAGE_SOUND, same) << capacity;
	}
	for (const u32 capacity : {sound.data_capacity(), sound.data_capacity() + 1, 0xFFFFFFFFu}) {
		ImageBytes image = sound;
		image.put(96 + sound.node_capacity() + 4, capacity);
		Map adopted;
		EXPECT_TRUE(adopt(adopted, image)) << capacity; // cut to what the buffer holds
		EXPECT_EQ(load(adopted.get(), std::string("S#0")), Lines{"REGISTER {0=0}"});
		EXPECT_EQ(fault_of(image).code == VEXIL_IMAGE_SOUND,
			  capacity == sound.data_capacity());
	}
}

TEST_F(LimitImages, HaveNodesThatIdsCanName)
{
	// A node behind the last id, in an image that is full of them.
	Store store;
	store.fill(kMostNodes);
	store->header.binType = 1;
	store->header.codeVersion = {2, 2, 2};
	for (const size_t more : {0u, 1u}) {
		for (size_t i = 0; i < more; ++i)
			EXPECT_EQ(store.add(EXTMEM_TAG_GENERAL).id, kNone); // leaves an empty slot
		Bytes bytes = exported(store);
		EXPECT_EQ(fault_of({bytes.begin(), bytes.end()}), kSound);
		if (!more)
			continue;
		bytes[96 + kMostNodes * kNodeSize + 2] = EXTMEM_TAG_GENERAL;
		EXPECT_EQ(fault_of({bytes.begin(), bytes.end()}).code, VEXIL_IMAGE_TOO_MANY_NODES);
		Map adopted;
		EXPECT_TRUE(pim_init(adopted.out(), image_of(bytes), static_cast<u32>(bytes.size()),
				     nullptr, 0));
	}
}

} // namespace
