// SPDX-License-Identifier: MIT
//
// Images for fuzzers: sound ones to start from, made by the library from small documents, and edits
// of their nodes, records and figures.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "core/json.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/use.h"

namespace vexil_fuzz {

/** The bytes of an image, which may be anything: places outside are 0, and stay as they are. */
class Image {
public:
	static constexpr std::size_t kVersionAt = 72, kKindAt = 80, kSizeAt = 84, kNodesUsedAt = 88,
				     kNodeRoomAt = 92, kNodesAt = 96, kFixedBytes = 104,
				     kNodeBytes = 16;
	static constexpr u16 kNone = 0xFFFF;
	static constexpr unsigned kFirstHolderTag = 33;

	Image() = default;
	explicit Image(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}

	[[nodiscard]] const std::vector<std::uint8_t> &bytes() const { return bytes_; }
	[[nodiscard]] std::size_t size() const { return bytes_.size(); }
	void resize(std::size_t size) { bytes_.resize(size); }

	template <typename T>
	[[nodiscard]] T at(std::size_t offset) const
	{
		T value{};
		if (holds(offset, sizeof value))
			std::memcpy(&value, bytes_.data() + offset, sizeof value);
		return value;
	}
	template <typename T>
	void put(std::size_t offset, T value)
	{
		if (holds(offset, sizeof value))
			std::memcpy(bytes_.data() + offset, &value, sizeof value);
	}

	[[nodiscard]] u32 nodes_used() const { return at<u32>(kNodesUsedAt); }
	[[nodiscard]] u32 node_room() const { return at<u32>(kNodeRoomAt); }
	[[nodiscard]] std::size_t data_head() const { return kNodesAt + std::size_t{node_room()}; }
	[[nodiscard]] std::size_t data_at() const { return data_head() + 8; }
	[[nodiscard]] u32 data_used() const { return at<u32>(data_head()); }
	[[nodiscard]] u32 data_room() const { return at<u32>(data_head() + 4); }
	/** Nodes in use that the buffer holds. */
	[[nodiscard]] u16 nodes() const
	{
		const std::size_t held =
			size() < kFixedBytes ? 0 : (size() - kFixedBytes) / kNodeBytes;
		return static_cast<u16>(
			std::min<std::size_t>({held, nodes_used() / kNodeBytes, 0xFFFE}));
	}

	[[nodiscard]] static std::size_t node_at(u16 id) { return kNodesAt + id * kNodeBytes; }
	[[nodiscard]] unsigned tag(u16 id) const { return at<u8>(node_at(id) + 2); }
	[[nodiscard]] u16 child(u16 id) const { return at<u16>(node_at(id) + 3); }
	[[nodiscard]] u16 next(u16 id) const { return at<u16>(node_at(id) + 5); }
	[[nodiscard]] u32 record_size(u16 id) const { return at<u32>(node_at(id) + 3); }
	[[nodiscard]] u32 record_offset(u16 id) const { return at<u32>(node_at(id) + 7); }
	void set_tag(u16 id, unsigned tag) { put(node_at(id) + 2, static_cast<u8>(tag)); }
	void set_child(u16 id, u16 to) { put(node_at(id) + 3, to); }
	void set_next(u16 id, u16 to) { put(node_at(id) + 5, to); }
	void set_record_size(u16 id, u32 size) { put(node_at(id) + 3, size); }
	void set_record_offset(u16 id, u32 offset) { put(node_at(id) + 7, offset); }

	/** A version that readers accept, one of both kinds, and figures that go with the buffer.
	 */
	void repair_head()
	{
		if (size() < kFixedBytes + kNodeBytes + 8)
			resize(kFixedBytes + kNodeBytes + 8);
		if (at<u16>(kVersionAt) != 2 || at<u16>(kVersionAt + 2) > 2) {
			put<u16>(kVersionAt, 2);
			put<u16>(kVersionAt + 2, 2);
		}
		if (at<u16>(kKindAt) != 1 && at<u16>(kKindAt) != 2)
			put<u16>(kKindAt, static_cast<u16>(1 + at<u16>(kKindAt) % 2));
		put(kSizeAt, static_cast<u32>(size()));
		const std::size_t room = size() - kFixedBytes;
		const std::size_t node_bytes =
			std::clamp<std::size_t>(node_room(), kNodeBytes, room - 8) / 16 * 16;
		put(kNodeRoomAt, static_cast<u32>(node_bytes));
		put(kNodesUsedAt,
		    static_cast<u32>(std::min<std::size_t>(nodes_used(), node_bytes) / 16 * 16));
		const std::size_t data_bytes = room - node_bytes;
		put(data_head() + 4, static_cast<u32>(data_bytes));
		put(data_head(),
		    static_cast<u32>(std::min<std::size_t>(data_used(), data_bytes) / 8 * 8));
	}
	/** Nodes store their own ids. */
	void repair_ids()
	{
		for (u16 id = 0; id < nodes(); ++id)
			put(node_at(id), id);
	}
	/** Takes the room away that nothing uses. For sound images. */
	void trim()
	{
		const std::size_t nodes_end = kNodesAt + nodes_used();
		const std::size_t data_end = data_at() + data_used();
		std::vector<std::uint8_t> trimmed(bytes_.begin(), place(nodes_end));
		trimmed.insert(trimmed.end(), place(data_head()), place(data_end));
		if (data_end == data_at())
			trimmed.resize(trimmed.size() + 8); // data without room is none
		bytes_ = std::move(trimmed);
		put(kNodeRoomAt, nodes_used());
		put(data_head() + 4, static_cast<u32>(size() - data_at()));
		put(kSizeAt, static_cast<u32>(size()));
	}

	/** Room behind the nodes and the data, in bytes. For sound images. */
	void add_room(std::size_t node_bytes, std::size_t data_bytes)
	{
		bytes_.insert(place(data_head()), node_bytes, 0);
		put(kNodeRoomAt, static_cast<u32>(node_room() + node_bytes));
		bytes_.resize(bytes_.size() + data_bytes);
		put(data_head() + 4, static_cast<u32>(data_room() + data_bytes));
		put(kSizeAt, static_cast<u32>(size()));
	}

	/** A node behind the last one; moves the data when there is no room. */
	u16 add_node(unsigned tag)
	{
		const u16 id = nodes();
		const std::size_t at = node_at(id);
		if (!holds(at, 8))
			return 0;
		if (nodes_used() + kNodeBytes > node_room()) {
			bytes_.insert(place(at), kNodeBytes, 0);
			put(kNodeRoomAt, static_cast<u32>(nodes_used() + kNodeBytes));
		}
		put(kNodesUsedAt, static_cast<u32>(nodes_used() + kNodeBytes));
		put(at, id);
		set_tag(id, tag);
		put<u32>(at + 3, 0xFFFFFFFFu);
		put<u64>(at + 7, 0);
		return id;
	}
	/** A data holder and its record behind the last ones. */
	u16 add_record(unsigned tag, const std::string &record)
	{
		const u16 id = add_node(tag);
		const std::size_t bytes = (record.size() + 7) / 8 * 8;
		const u32 offset = data_used();
		if (!holds(data_at(), offset))
			return id;
		const std::size_t at = data_at() + offset;
		bytes_.insert(place(at), bytes, 0);
		std::copy(record.begin(), record.end(), place(at));
		put(data_head(), static_cast<u32>(offset + bytes));
		put(data_head() + 4, static_cast<u32>(data_room() + bytes));
		set_record_size(id, static_cast<u32>(record.size()));
		set_record_offset(id, offset);
		return id;
	}

private:
	[[nodiscard]] bool holds(std::size_t offset, std::size_t length) const
	{
		return offset <= size() && length <= size() - offset;
	}
	std::vector<std::uint8_t>::iterator place(std::size_t offset)
	{
		return bytes_.begin() + static_cast<std::ptrdiff_t>(std::min(offset, size()));
	}

	std::vector<std::uint8_t> bytes_;
};

// ---- edits ----

/** One number of those on which counts, sizes and offsets break, or any. */
inline u32 number_from(Bytes &script)
{
	static constexpr u32 kNumbers[] = {0,      1,       2,          3,         7,    8,
					   9,      16,      24,         64,        0x7F, 0xFFFE,
					   0xFFFF, 0x10000, 0x7FFFFFFF, 0xFFFFFFFF};
	const u8 which = script.u8();
	return which < 2 * std::size(kNumbers) ? kNumbers[which / 2]
	       : which < 128                   ? which - 64u
					       : script.u32();
}

/** A node of the image: often the one that was edited last, or one beside it. */
class Editor {
public:
	Editor(Image &image, Bytes &script) : image_(image), script_(script) {}

	/** One edit. */
	void edit()
	{
		static constexpr void (Editor::*kEdits[])() = {
			&Editor::child,  &Editor::next,   &Editor::tag,    &Editor::size,
			&Editor::offset, &Editor::swap,   &Editor::copy,   &Editor::byte,
			&Editor::word,   &Editor::number, &Editor::node,   &Editor::record,
			&Editor::move,   &Editor::wide,   &Editor::figure, &Editor::stored_id,
		};
		(this->*kEdits[script_.u8() % std::size(kEdits)])();
	}

private:
	u16 pick()
	{
		const u16 nodes = image_.nodes();
		if (nodes == 0)
			return 0;
		const u8 how = script_.u8();
		if (how >= 0xF0) // from the end
			last_ = static_cast<u16>((nodes - 1 - (how & 0xF) % nodes) % nodes);
		else if (how >= 0xE0) // beside the last one
			last_ = static_cast<u16>((last_ + nodes + (how & 0xF) - 8u) % nodes);
		else
			last_ = static_cast<u16>((how + 0xE0u * (nodes > 0xE0 ? script_.u8() : 0)) %
						 nodes);
		return last_;
	}
	/** A node that has a record, or that has none, from the one that was picked on. */
	u16 pick(bool holder)
	{
		u16 id = pick();
		for (u16 i = 0; i < image_.nodes(); ++i) {
			if ((image_.tag(id) >= Image::kFirstHolderTag) == holder)
				return last_ = id;
			id = static_cast<u16>((id + 1) % image_.nodes());
		}
		return id;
	}
	u16 link()
	{
		const u8 how = script_.u8();
		if (how < 32)
			return Image::kNone;
		if (how < 40)
			return static_cast<u16>(image_.nodes() + how - 32);
		if (how < 104)
			return static_cast<u16>(last_ + how - 72);
		return pick();
	}
	/** Mostly one that there is. */
	unsigned any_tag()
	{
		const unsigned tag = script_.u8();
		if (tag >= 224)
			return script_.u8();
		const unsigned known = tag % 42;
		return known == 0 ? 1 : known + 16 == 33 ? 34 : known + 16;
	}
	std::size_t place(std::size_t width)
	{
		const u16 id = pick(true);
		return image_.data_at() + image_.record_offset(id) + width * script_.u8();
	}

	void child()
	{
		const u16 id = pick(false);
		image_.set_child(id, link());
	}
	void next()
	{
		const u16 id = pick(false);
		image_.set_next(id, link());
	}
	void tag()
	{
		const u16 id = pick();
		image_.set_tag(id, any_tag());
	}
	void size()
	{
		const u16 id = pick(true);
		const u8 how = script_.u8();
		image_.set_record_size(id, how < 128 ? image_.record_size(id) + how - 64
						     : number_from(script_));
	}
	void offset()
	{
		const u16 id = pick(true);
		const u8 how = script_.u8();
		image_.set_record_offset(id, how < 64    ? image_.record_offset(id) + 8u * how - 256
					     : how < 128 ? image_.record_offset(pick(true))
							 : number_from(script_));
	}
	void swap()
	{
		const std::size_t a = Image::node_at(pick()), b = Image::node_at(pick());
		for (std::size_t at = 2; at < Image::kNodeBytes; ++at) {
			const u8 byte = image_.at<u8>(a + at);
			image_.put(a + at, image_.at<u8>(b + at));
			image_.put(b + at, byte);
		}
	}
	void copy()
	{
		const std::size_t from = Image::node_at(pick()), to = Image::node_at(pick());
		for (std::size_t at = 2; at < Image::kNodeBytes; ++at)
			image_.put(to + at, image_.at<u8>(from + at));
	}
	void byte()
	{
		const std::size_t at = place(1);
		image_.put(at, script_.u8());
	}
	void word()
	{
		const std::size_t at = place(2);
		image_.put(at, link());
	}
	void number()
	{
		const std::size_t at = place(4);
		image_.put(at, number_from(script_));
	}
	void wide()
	{
		const std::size_t at = place(8);
		const u64 high = number_from(script_);
		image_.put<u64>(at, high << 32 | number_from(script_));
	}
	/** Links a new node behind or below another one, before what was there. */
	void insert(u16 id, bool has_links)
	{
		const u16 at = pick(false);
		const bool below = script_.u8() % 2 == 0;
		const u16 before = below ? image_.child(at) : image_.next(at);
		if (has_links)
			image_.set_next(id, before);
		if (below)
			image_.set_child(at, id);
		else
			image_.set_next(at, id);
	}
	void node()
	{
		const unsigned tag = script_.u8() % Image::kFirstHolderTag;
		insert(image_.add_node(tag), true);
	}
	void record()
	{
		const unsigned tag = any_tag();
		insert(image_.add_record(tag, script_.text(script_.u8() % 65)), false);
	}
	/** A node and what hangs on it leave their place for another one. */
	void move()
	{
		const u16 from = pick(false), to = pick(false);
		const u16 moved = image_.next(from);
		if (moved >= image_.nodes() || image_.tag(moved) >= Image::kFirstHolderTag)
			return;
		image_.set_next(from, image_.next(moved));
		const bool below = script_.u8() % 2 == 0;
		image_.set_next(moved, below ? image_.child(to) : image_.next(to));
		if (below)
			image_.set_child(to, moved);
		else
			image_.set_next(to, moved);
	}
	void figure()
	{
		const std::size_t places[] = {Image::kNodesUsedAt, Image::kNodeRoomAt,
					      image_.data_head(), image_.data_head() + 4};
		const std::size_t at = places[script_.u8() % std::size(places)];
		const u8 how = script_.u8();
		image_.put(at,
			   how < 128 ? image_.at<u32>(at) + 8 * (how - 64u) : number_from(script_));
	}
	void stored_id()
	{
		const u16 id = pick();
		image_.put(Image::node_at(id), link());
	}

	Image &image_;
	Bytes &script_;
	u16 last_ = 0;
};

// ---- sound images ----

/** Documents with ' for ". */
inline cJSON *parsed(std::string text)
{
	std::replace(text.begin(), text.end(), '\'', '"');
	auto *document = static_cast<cJSON *>(vexil_json_parse(text.c_str()));
	require(document != nullptr, "a base document that does not parse");
	return document;
}

template <typename Insert>
void feed(const std::string &text, Insert insert)
{
	cJSON *document = parsed(text);
	require(insert(document), "a base document that is refused");
	vexil_json_delete(document);
}

inline void build_map(pim *map, const std::string &groups)
{
	feed("{'PqHWRegList': {'0.version': {'MajorVersion': 2}, 'register': [{'H0': 0}, {'H1': 1}, "
	     "{'H2': 2}, {'H3': 3}, {'H4': 4}, {'H9': 9}]}, "
	     "'PqSWRegList': {'register': [{'S0': 256}, {'S1': 257}]}, "
	     "'PqCusSWRegList': {'register': [{'C0': 32768}]}}",
	     [&](cJSON *document) {
		     return pim_insert_regmap_json(map, document) &&
			    pim_insert_vregmap_json(map, document);
	     });
	require(pim_insert_handler(map, "gamma", nullptr) &&
			pim_insert_file(map, "g.bin", "curve", 5) &&
			pim_insert_file(map, "a.par", "steps\0of", 8),
		"a base without its files");
	feed("{'VexilVersion': {'#version': {'MajorVersion': 2, 'MinorVersion': 2, 'Note': 'lot C'}}, "
	     "'PqFuncGroups': {" +
		     groups + "}}",
	     [&](cJSON *document) { return pim_insert(map, document); });
}

constexpr const char *kMapGroups =
	"'Pic': {'Scaler': {'#version': {'MajorVersion': 2, 'MinorVersion': 1}, 'settings': {"
	"'mode': {'1.PQlevel': 'L1', 'commonReg': true, 'group': {"
	"'soft': {'hwreg': {'H0': 1, 'H1': 2, 'H2': 7}, 'swreg': {'S0': 4}, 'lut': {'gamma': 'g.bin'}}, "
	"'hard': {'hwreg': {'H0': 1, 'H1': 3, 'H4': 1}, 'alg': {'film': 'a.par'}, 'cus_swreg': {'C0': 9}}}}, "
	"'tint': {'1.PresetRegs': 'panel', 'group': [{'warm': {'hwreg': {'H3': 77}}}, "
	"{'cold': {'hwaddr': {'0x1F0': 5}}}]}, "
	"'beat': {'1.PQlevel': 'SYNC', 'group': {'on': {'hwreg': {'H9': 1, 'H3': 2}}}}}}, "
	"'Bare': {'settings': {}}}";
constexpr const char *kSubGroups =
	"'Pic': {'Scaler': {'settings': {'mode': {'group': {'soft': {'hwreg': {'H2': 9, 'H0': 0}}}}}}}, "
	"'Late': {'settings': {'x': {'1.PQlevel': 'PI', 'group': {'y': {'lut': {'gamma': 'g.bin'}}}}}}";

inline void build_rules(rm *rules, const pim *map, const std::string &sources,
			const std::string &groups, bool finish = true)
{
	feed("{'PqRuleLists': {'#version': {'MajorVersion': 2, 'MinorVersion': 1}, " + sources +
		     "}}",
	     [&](cJSON *document) { return rm_insert_source_json(rules, document); });
	feed("{'PqRuleGroups': {" + groups + "}}",
	     [&](cJSON *document) { return rm_insert(rules, document, map); });
	if (finish)
		rm_finish(rules); // false also while a name is not known, which bases may have
}

constexpr const char *kSources =
	"'Input': {'content': ['HDMI', 'DTV', 'Tuner']}, 'Luma': {'content': 0}, 'Rate': {'content': 0}, "
	"'Scene': {'content': ['Dark', 'Odd'], 'define': {'Dark': {'Luma': '[0,10]', 'Rate': '(1,60)'}}}";
constexpr const char *kRuleGroups =
	"'Leaf': {'rules': [{'comparator': {'Scene': 'Dark'}, 'settings': ['mode#soft'], 'children': []}]}, "
	"'Picture': {'#version': {'MajorVersion': 2}, 'rules': ["
	"{'comparator': {'Input': ['HDMI', 'DTV'], 'Luma': ['[3,10)', '(20,30)']}, "
	"'settings': ['mode#soft', 'tint#warm'], 'children': ['Leaf']}, "
	"{'comparator': {}, 'settings': ['mode#hard'], 'children': ['Never']}]}";
constexpr const char *kRings =
	"'A': {'rules': [{'comparator': {'Input': 'HDMI'}, 'settings': [], 'children': ['B']}]}, "
	"'B': {'rules': [{'comparator': {'Input': 'DTV'}, 'settings': ['mode#soft'], 'children': ['A', 'B']}]}";

struct Base {
	std::string name;
	Image image; // without spare room
};

/** Sound images of every kind that the library makes; the first two are a map and rules. */
inline const std::vector<Base> &bases()
{
	static const std::vector<Base> *const all = [] {
		auto *made = new std::vector<Base>;
		const auto keep = [&](const char *name, const std::vector<std::uint8_t> &bytes) {
			require(is_usable(verdict(bytes.data(), bytes.size())),
				"a base that does not verify");
			Image image(bytes);
			image.trim();
			require(is_usable(verdict(image.bytes().data(), image.size())),
				"a base that trimming broke");
			made->push_back({name, image});
		};
		Map map, sub, empty, merged, unlinked;
		Rules rules, second, ring, wide, open, none, joined;
		require(map.init() && sub.init() && empty.init() && merged.init(), "no map");
		require(rules.init() && second.init() && ring.init() && wide.init() &&
				open.init() && none.init() && joined.init(),
			"no rules");
		build_map(map.get(), kMapGroups);
		build_map(sub.get(), kSubGroups);
		build_rules(rules.get(), map.get(), kSources, kRuleGroups);
		build_rules(second.get(), map.get(), kSources,
			    std::string(kRings) + ", " + kRuleGroups);
		build_rules(ring.get(), map.get(), kSources, kRings);
		build_rules(open.get(), map.get(), kSources, kRuleGroups, false);
		// Names that are there already take their bits all the same: a field over two
		// words.
		std::string many = "'Luma': {'content': 0}";
		for (int i = 0; i < 31; ++i)
			many += ", 'E': {'content': ['x', 'y', 'z']}";
		build_rules(wide.get(), map.get(), many + ", 'F': {'content': ['x', 'y', 'z']}",
			    "'Wide': {'rules': [{'comparator': {'E': ['x', 'z'], 'F': 'y'}, "
			    "'settings': ['mode#soft'], 'children': []}]}");

		keep("map", exported(map.get()));
		keep("rules", exported(rules.get()));
		keep("map-sub", exported(sub.get()));
		keep("map-empty", exported(empty.get()));
		require(pim_merge(merged.get(), map.get(), sub.get()), "bases that do not merge");
		keep("map-merged", exported(merged.get()));
		Block block(exported(map.get()));
		Map addressed;
		require(pim_init(addressed.out(), block.data(), block.size(),
				 register_table().data(), register_table().size()),
			"a base that is not adopted");
		keep("map-addressed", exported(addressed.get()));
		keep("rules-ring", exported(ring.get()));
		keep("rules-wide", exported(wide.get()));
		keep("rules-unfinished", exported(open.get()));
		keep("rules-empty", exported(none.get()));
		require(rm_merge(joined.get(), rules.get(), second.get(), merged.get()),
			"base rules that do not merge");
		keep("rules-merged", exported(joined.get()));
		take_log();
		return made;
	}();
	return *all;
}

inline const Base &base_of_kind(u16 kind)
{
	return bases()[kind == 2 ? 1 : 0];
}

// ---- use ----

/** How an image is adopted. */
struct Adoption {
	bool with_table = false;
	std::size_t refused_allocation = 0; // the nth from there on, and what follows; 0: none
};

/** A map over the image; null when it was refused, which only broken ones and missing memory allow.
 */
inline void adopt_map(Map &map, const Block &image, const Adoption &how, bool sound)
{
	const auto &table = register_table();
	refuse(how.refused_allocation, true);
	const bool whole = pim_init(map.out(), image.data(), image.size(),
				    how.with_table ? table.data() : nullptr, table.size());
	take_log();
	require(!whole || map.get(), "an adoption without a map");
	require(!sound || refused() || map.get(), "a sound map that is refused");
}

inline void use_map_image(const Image &bytes, const Adoption &how, bool sound)
{
	const Block image(bytes.bytes());
	Map map, sub;
	adopt_map(map, image, how, sound);
	if (!map.get())
		return;
	const std::uint64_t answers = use_map(map.get(), sound);
	dump(map.get(), sound);
	const bool starved = refused();
	refuse(0, false);
	if (sound) {
		require_verdict(VEXIL_IMAGE_SOUND, image, "adoption left something else");
		const Block copy(exported(map.get()));
		require_verdict(VEXIL_IMAGE_SOUND, copy, "an export that does not verify");
		if (!starved) {
			Map again;
			adopt_map(again, copy, {.with_table = how.with_table}, sound);
			require(use_map(again.get(), sound) == answers,
				"an export with other answers");
		}
	} else {
		exported(map.get());
	}
	// What is inserted late goes into the image's spare room.
	pim_insert_file(map.get(), "late.bin", "late", 4);
	if (sound)
		require_verdict(VEXIL_IMAGE_SOUND, Block(exported(map.get())),
				"an insertion that broke the map");

	const Block other(base_of_kind(1).image.bytes());
	adopt_map(sub, other, {}, false);
	for (const bool as_base : {false, true}) {
		Map merged;
		if (!sub.get() || !merged.init())
			continue;
		const bool done = pim_merge(merged.get(), as_base ? map.get() : sub.get(),
					    as_base ? sub.get() : map.get());
		if (!sound)
			exported(merged.get());
		else if (done)
			require_verdict(VEXIL_IMAGE_SOUND, Block(exported(merged.get())),
					"a merge that does not verify");
		use_map(merged.get(), sound && done, Thoroughness::kLittle);
		if (as_base)
			dump(merged.get(), sound && done);
	}
	if (map.get())
		pim_finish(map.get());
}

inline void use_rule_image(const Image &bytes, const Adoption &how, vexil_image_code code)
{
	const bool sound = is_usable(code);
	const Block image(bytes.bytes());
	const auto adopt = [&](Rules &rules, const Block &from, std::size_t refused_allocation) {
		refuse(refused_allocation, true);
		const bool done = rm_init(rules.out(), from.data(), from.size());
		require(done == (rules.get() != nullptr), "a refusal with a context");
		// Names that occur twice are not looked for by the verifier.
		require(done || !sound || refused() || was_logged("wrong string"),
			"sound rules that are refused");
	};
	Rules rules, other;
	adopt(rules, image, how.refused_allocation);
	if (!rules.get())
		return;
	const std::uint64_t answers = use_rules(rules.get(), sound);
	dump(rules.get(), sound);
	const bool starved = refused();
	refuse(0, false);
	require(image.bytes() == bytes.bytes(), "adoption of rules wrote into the image");
	const Block copy(exported(rules.get()));
	if (sound)
		require_verdict(code, copy, "an export that does not verify");
	Rules again;
	if (sound && !starved) {
		adopt(again, copy, 0);
		require(again.get() &&
				(use_rules(again.get(), sound) == answers || Patience::lost()),
			"an export with other answers");
	}
	const Block base(base_of_kind(2).image.bytes());
	require(rm_init(other.out(), const_cast<char *>(base.data()), base.size()), "no base");
	Map map;
	require(map.init(), "no map");
	for (int way = 0; way < 3; ++way) {
		rm *first = way == 1 ? other.get() : rules.get();
		rm *second = way == 0 ? other.get() : rules.get();
		if (way == 2 && !(second = again.get()))
			continue;
		Rules merged;
		require(merged.init(), "no context");
		const bool done = rm_merge(merged.get(), first, second, map.get());
		const Block joined(exported(merged.get()));
		// Other images may have other sources: then the parts are sound, and what they say
		// of each other is not.
		const bool alike = way == 2 && done && sound;
		if (alike)
			require_verdict(code, joined, "a merge that does not verify");
		use_rules(merged.get(), alike, {}, Thoroughness::kLittle);
		if (way == 0)
			dump(merged.get(), false);
	}
}

/** Verifies and adopts an image, asks it everything, and merges it with a sound one both ways. */
inline void use_image(const Image &image, const Adoption &how)
{
	Patience::renew();
	vexil_image_code code;
	{
		const Block exact(image.bytes());
		code = verdict(exact);
		require(exact.bytes() == image.bytes(), "the verifier wrote into the image");
	}
	// Whatever its kind, both must answer.
	if (image.at<u16>(Image::kKindAt) == 2) {
		Map map;
		const Block exact(image.bytes());
		require(!pim_init(map.out(), exact.data(), exact.size(), nullptr, 0),
			"rules as a map");
		use_rule_image(image, how, code);
	} else {
		Rules rules;
		const Block exact(image.bytes());
		require(!rm_init(rules.out(), exact.data(), exact.size()), "a map as rules");
		use_map_image(image, how, code == VEXIL_IMAGE_SOUND);
	}
	refuse(0, false);
}

} // namespace vexil_fuzz
