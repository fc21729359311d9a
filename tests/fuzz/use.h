// SPDX-License-Identifier: MIT
//
// Everything that an adopted image can be asked, whether it verified or not. Answers go into a
// digest, so that two contexts that must answer alike can be compared.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include <vexil/verify.h>

#include "pim/pim.h"
#include "rm/rm.h"
#include "tests/fuzz/fuzz.h"

namespace vexil_fuzz {

/** Whether VEXIL_FUZZ_SHOW is in the environment: then verdicts and answers are printed. */
inline bool shown()
{
	static const bool wanted = std::getenv("VEXIL_FUZZ_SHOW") != nullptr;
	return wanted;
}

/**
 * Answers in the order in which they came. When shown, each is a line of its own, so that those of
 * two contexts can be compared.
 */
class Digest {
public:
	void bytes(const void *data, std::size_t size)
	{
		// Address checks look at the copy; the hashing is the standard library's own code.
		copy_.assign(static_cast<const char *>(data), size);
		add_text(copy_);
	}
	void number(std::uint64_t number)
	{
		if (shown())
			std::fprintf(stderr, "  %llu\n", static_cast<unsigned long long>(number));
		value_ = (value_ ^ number) * 0x9E3779B97F4A7C15u + (value_ >> 29);
	}
	void text(const std::string &text) { add_text(text); }
	[[nodiscard]] std::uint64_t value() const { return value_; }

private:
	void add_text(const std::string &text)
	{
		if (shown())
			std::fprintf(stderr, "  \"%s\" (%zu)\n", text.c_str(), text.size());
		value_ = value_ * 0x100000001B3u ^ std::hash<std::string>{}(text);
	}

	std::uint64_t value_ = 0xCBF29CE484222325u;
	std::string copy_;
};

/**
 * Whether questions to the input at hand have taken half a second of the processor. A trigger may
 * visit 2^24 nodes of rules that are made for it, and many are asked; then the rest is left out.
 */
class Patience {
public:
	static void renew() { began() = std::clock(); }
	static bool lost() { return std::clock() - began() > CLOCKS_PER_SEC / 2; }

private:
	static std::clock_t &began()
	{
		static std::clock_t time = std::clock();
		return time;
	}
};

/** A block of exactly its bytes, in which address checks see every step outside. */
class Block {
public:
	explicit Block(const std::vector<std::uint8_t> &bytes) : Block(bytes.size())
	{
		if (!bytes.empty())
			std::memcpy(data_, bytes.data(), bytes.size());
	}
	explicit Block(std::size_t size)
	    : data_(static_cast<char *>(std::malloc(size ? size : 1))), size_(size)
	{
		require(data_ != nullptr, "out of memory");
	}
	~Block() { std::free(data_); }
	Block(const Block &) = delete;
	Block &operator=(const Block &) = delete;

	[[nodiscard]] char *data() const { return data_; }
	[[nodiscard]] u32 size() const { return static_cast<u32>(size_); }
	[[nodiscard]] std::vector<std::uint8_t> bytes() const { return {data_, data_ + size_}; }

private:
	char *data_;
	std::size_t size_;
};

/** A map that is destroyed with its scope; empty ones are made at once. */
class Map {
public:
	Map() = default;
	~Map() { pim_destroy(&map_); }
	Map(const Map &) = delete;
	Map &operator=(const Map &) = delete;

	pim **out() { return &map_; }
	[[nodiscard]] pim *get() const { return map_; }
	[[nodiscard]] bool init() { return pim_init(&map_, nullptr, 0, nullptr, 0); }

private:
	pim *map_ = nullptr;
};

/** A rule context that is destroyed with its scope. */
class Rules {
public:
	Rules() = default;
	~Rules() { rm_destroy(&rules_); }
	Rules(const Rules &) = delete;
	Rules &operator=(const Rules &) = delete;

	rm **out() { return &rules_; }
	[[nodiscard]] rm *get() const { return rules_; }
	[[nodiscard]] bool init() { return rm_init(&rules_, nullptr, 0); }

private:
	rm *rules_ = nullptr;
};

/** What the verifier says, which must go with what it returns. */
inline vexil_image_code verdict(const void *image, std::size_t size)
{
	vexil_image_fault fault;
	std::memset(&fault, 0xA5, sizeof fault);
	const std::size_t blocks = live_blocks();
	const std::size_t requests = allocations();
	const bool sound = vexil_image_verify(image, static_cast<u32>(size), &fault);
	require(sound == (fault.code == VEXIL_IMAGE_SOUND), "a verdict that contradicts its code");
	require(fault.code < VEXIL_IMAGE_CODES, "a code that is none");
	require(live_blocks() == blocks && allocations() <= requests + 1,
		"the verifier takes more than one block, or keeps it");
	require(vexil_image_code_text(fault.code)[0] != '\0', "a code without a text");
	if (shown())
		std::fprintf(stderr, "verdict: %s, byte %u, node %u, other %u\n",
			     vexil_image_code_text(fault.code), fault.offset, fault.node,
			     fault.other);
	return fault.code;
}

inline vexil_image_code verdict(const Block &image)
{
	return verdict(image.data(), image.size());
}

/** Demands a verdict; says the one that there is. */
inline void require_verdict(vexil_image_code wanted, const Block &image, const char *what)
{
	const vexil_image_code code = verdict(image);
	if (code == wanted)
		return;
	std::fprintf(stderr, "fuzz: %s\n", vexil_image_code_text(code));
	require(false, what);
}

/** Sound, but that rules may lead back to themselves. */
inline bool is_usable(vexil_image_code code)
{
	return code == VEXIL_IMAGE_SOUND || code == VEXIL_IMAGE_RULE_RING;
}

inline std::vector<std::uint8_t> exported(pim *map)
{
	Block image(pim_get_export_size(map));
	require(pim_export(map, image.data()) == image.size(), "an export of another size");
	return image.bytes();
}

inline std::vector<std::uint8_t> exported(rm *rules)
{
	Block image(rm_get_export_size(rules));
	require(rm_export(rules, image.data()) == image.size(), "an export of another size");
	return image.bytes();
}

/** A register table that knows positions 0 to 5, one of them unusable. */
inline const std::vector<ST_PQ_REG_INFO> &register_table()
{
	static const std::vector<ST_PQ_REG_INFO> table = {
		{E_PQ_SRC1_DOMAIN, 0x10, 4u << 16 | 0u << 8, true},
		{E_PQ_SRC1_DOMAIN, 0x10, 4u << 16 | 4u << 8, true},
		{E_PQ_IP_DOMAIN, 0x20, 8u << 16 | 0u << 8, true},
		{E_PQ_OPF_DOMAIN, 0x30, 16u << 16 | 0u << 8, true},
		{E_PQ_OPB_DOMAIN, 0x40, 1u << 16 | 0u << 8, false},
		{E_PQ_DIP_DOMAIN, 0x7FFFFFF, 3u << 16 | 13u << 8, true},
	};
	return table;
}

// ---- maps ----

/** What arrives during one load. */
struct Deliveries {
	Digest *digest;
	std::size_t blocks = 0;
};

/** Algorithm handlers get no context. */
inline Deliveries *&algorithm_deliveries()
{
	static Deliveries *current = nullptr;
	return current;
}

inline bool take_block(int tag, const char *data, u32 length, void *context)
{
	auto *to = static_cast<Deliveries *>(context);
	++to->blocks;
	// Adoption gives lists of the synchronised level a tag of their own.
	const bool synchronised = tag == EXTMEM_TAG_REGISTER_SYNC_SETTINGS;
	to->digest->number(
		static_cast<u64>(synchronised ? int{EXTMEM_TAG_REGISTER_SETTINGS} : tag));
	to->digest->number(length);
	to->digest->bytes(data, length);
	return false;
}

inline bool take_algorithm(int tag, const char *data, u32 length, const char *entry,
			   u32 entry_length)
{
	require(entry_length == std::strlen(entry) + 1, "an entry of another length than its name");
	take_block(tag, data, length, algorithm_deliveries());
	algorithm_deliveries()->digest->bytes(entry, entry_length);
	return true;
}

inline std::size_t node_count(const extmem_builder &store)
{
	return store.node_buffer.buf_used / 16;
}

/** The texts of a store, at most @most, read as any program could that has the bytes. */
inline std::vector<std::string> texts_of(extmem_builder *store, std::size_t most)
{
	std::vector<std::string> texts;
	const std::size_t nodes = std::min<std::size_t>(node_count(*store), 0xFFFF);
	for (std::size_t id = 0; id < nodes && texts.size() < most; ++id) {
		const node_d node = extmem_create_node_d(store, static_cast<u16>(id));
		if (extmem_fetch_tag(node) != EXTMEM_TAG_STRING_HOLDER)
			continue;
		const data_d record = extmem_copy_from_node(node);
		const auto *text = static_cast<const char *>(extmem_fetch_data(record));
		if (text)
			texts.emplace_back(text, strnlen(text, extmem_fetch_datalen(record)));
	}
	return texts;
}

constexpr std::size_t kNodesAsked = 512;

/** How much is asked. */
enum class Thoroughness { kAll, kLittle };

inline std::size_t texts_asked(Thoroughness how)
{
	return how == Thoroughness::kAll ? 16 : 4;
}

/** A context's dump. Those of sound images: a few lines for each node, none deep, each value once.
 */
template <typename Print>
void dump(const extmem_builder &store, bool sound, Print print)
{
	constexpr std::size_t kMostPerNode = 32;
	take_log();
	const std::size_t before = messages();
	print();
	if (sound && !refused()) {
		require(messages() - before <=
				kMostPerNode * node_count(store) + store.data_buffer.buf_used,
			"a dump without end");
		require(!was_logged("vexil lib fail"), "a dump that ended early");
	}
	take_log();
}

inline void dump(pim *map, bool sound)
{
	dump(map->builder, sound, [map] { pim_print(map); });
}

inline void dump(rm *rules, bool sound)
{
	dump(rules->builder, sound, [rules] { rm_print(rules); });
}

/**
 * Asks a map everything.
 * @sound: its image verified
 *
 * Return: what it answered, without what only adoption counts.
 */
inline std::uint64_t use_map(pim *map, bool sound, Thoroughness how = Thoroughness::kAll)
{
	Digest digest;
	Deliveries deliveries{&digest};
	algorithm_deliveries() = &deliveries;
	digest.text("map");
	take_log();
	const std::size_t nodes = node_count(map->builder);
	const std::size_t asked = std::min(nodes + 2, kNodesAsked);
	for (const char *label : {"gamma", "lut", "curve"})
		digest.number(pim_insert_handler(map, label, take_block));
	pim_insert_alg_handler(map, take_algorithm);

	std::size_t known_blocks = 0; // of what can be found by its name
	std::vector<u16> presets;     // and a few that are none
	for (std::size_t id = 0; id < asked; ++id) {
		const auto node = static_cast<u16>(id);
		const int tag = extmem_fetch_tag(extmem_create_node_d(&map->builder, node));
		if (tag == EXTMEM_TAG_IP_PRESET_REG_CONFIG || (id % 16 == 0 && id < nodes))
			presets.push_back(node);
		char *label = nullptr;
		pim_get_setting(map, node, &label);
		digest.text(label ? label : "");
		const std::size_t before = deliveries.blocks;
		pim_load_setting(map, node, false, take_block, &deliveries);
		const std::size_t blocks = deliveries.blocks - before;
		require(blocks <= 16 * nodes + 128, "a load without end");
		if (label && (pim_query_setting_id(map, label) == node ||
			      pim_query_preset_id(map, label) == node))
			known_blocks += blocks;
	}
	// What nothing leads to may still be loaded by its id, and need only end.
	require(!sound || known_blocks <= nodes, "more blocks than nodes");
	for (std::size_t id = 0; id < asked && how == Thoroughness::kAll; ++id) {
		const u32 left = pim_load_setting_count(map, static_cast<u16>(id), 3, take_block,
							&deliveries);
		digest.number(left);
		require(static_cast<s32>(left) <= 3, "a budget that grew");
	}
	pim_load_common_reg_setting(map, take_block, &deliveries);
	for (const std::string &text : texts_of(&map->builder, texts_asked(how))) {
		vexil_version version{};
		digest.number(pim_query_setting_id(map, text.c_str()));
		digest.number(pim_query_preset_id(map, text.c_str()));
		digest.number(pim_get_pim_version(map, &version, text.c_str()));
		digest.bytes(&version, sizeof version);
		pim_load_setting_by_name(map, text.c_str(), take_block, &deliveries);
		pim_load_preset(map, presets.data(), presets.size(), text.c_str(), take_block,
				&deliveries);
	}
	for (const auto get : {pim_get_version, pim_get_hwreg_version, pim_get_swreg_version}) {
		vexil_version version{};
		digest.number(get(map, &version));
		digest.bytes(&version, sizeof version);
	}
	char *customer = nullptr;
	pim_get_cus_version(map, &customer);
	digest.text(customer ? customer : "");
	digest.text(take_log());

	require(pim_get_reg_num(map, E_PQ_MAX_DOMAIN, E_PQLV_MAX) <= 16 * 8 * 0xFFFF,
		"more registers than counters");
	algorithm_deliveries() = nullptr;
	return digest.value();
}

// ---- rules ----

/** Ids that @get, one of the library's four, gives out. */
template <typename From, typename Get>
void digest_ids(Digest &digest, From *from, Get get)
{
	u16 *ids = nullptr;
	const std::size_t count = get(from, &ids);
	digest.number(count);
	if (count != 0)
		digest.bytes(ids, count * sizeof *ids);
}

/** Sources to state and rules to ask for. */
struct Questions {
	std::vector<std::string> filters;
	std::vector<std::string> rules;
};

/** What a context's own names suggest, and @more. */
inline Questions questions_for(rm *rules, const Questions &more, Thoroughness how)
{
	Questions questions = more;
	const std::vector<std::string> texts = texts_of(&rules->builder, texts_asked(how));
	questions.filters.insert(questions.filters.end(), {"", ";:;-"});
	for (std::size_t i = 0; i < texts.size(); ++i) {
		questions.filters.push_back(texts[i] + ":5;" + texts[texts.size() - 1 - i]);
		questions.rules.push_back(texts[i]);
	}
	for (std::size_t i = 0; i + 1 < texts.size(); i += 2) {
		questions.rules.push_back(texts[i] + " ; " + texts[i + 1]);
		questions.rules.push_back("-" + texts[i]);
	}
	return questions;
}

/** Asks a context everything. Return: what it answered. */
inline std::uint64_t use_rules(rm *rules, bool sound, const Questions &more = {},
			       Thoroughness how = Thoroughness::kAll)
{
	Digest digest;
	digest.text("rules");
	take_log();
	const Questions questions = questions_for(rules, more, how);
	rm_handler *handler = nullptr;
	digest.number(rm_create_handler(rules, &handler));
	u64 number = 0;
	for (const std::string &filter : questions.filters) {
		if (Patience::lost())
			break;
		digest.number(rm_clear(rules));
		digest.number(rm_set(rules, filter.c_str(), number));
		digest.number(rm_trigger(rules, nullptr));
		digest_ids(digest, rules, rm_get_result);
		digest_ids(digest, rules, rm_get_preset);
		digest.number(rm_get_num_result(rules));
		if (handler) {
			rm_handler_set(handler, filter.c_str(), number);
			digest.number(rm_handler_trigger(handler, nullptr));
			digest_ids(digest, handler, rm_handler_get_result);
			digest_ids(digest, handler, rm_handler_get_preset);
			digest.number(rm_handler_get_num_result(handler));
		}
		number = number * 3 + 1;
	}
	for (const std::string &name : questions.rules) {
		if (Patience::lost())
			break;
		vexil_version version{};
		digest.number(rm_get_rm_version(rules, &version, name.c_str()));
		digest.bytes(&version, sizeof version);
		digest.number(rm_trigger(rules, name.c_str()));
		digest_ids(digest, rules, rm_get_result);
		digest.number(rm_find(rules, nullptr, name.c_str()));
		digest.number(rm_find(rules, questions.filters.front().c_str(), name.c_str()));
		digest_ids(digest, rules, rm_get_preset);
		if (handler) {
			digest.number(rm_handler_find(handler, "", name.c_str()));
			digest.number(rm_handler_trigger(handler, name.c_str()));
			digest_ids(digest, handler, rm_handler_get_result);
		}
	}
	if (handler) {
		digest.number(rm_handler_clear(handler));
		digest.number(rm_handler_destroy(&handler));
	}
	for (const auto get : {rm_get_version, rm_get_rl_version}) {
		vexil_version version{};
		digest.number(get(rules, &version));
		digest.bytes(&version, sizeof version);
	}
	char *customer = nullptr;
	rm_get_cus_version(rules, &customer);
	digest.text(customer ? customer : "");
	if (sound && rules->rmInd.keyBuffer) { // finished: the key's size is in the image
		require(!was_logged("Data length check failed"),
			"a key of another length in a sound image");
		require(!was_logged("Invalid tag tag"), "a strange node in a sound image");
	}
	digest.text(take_log());
	return digest.value();
}

} // namespace vexil_fuzz
