// SPDX-License-Identifier: MIT
//
// Map images written by hand, node by node and byte by byte, without the library's own writer:
// sound ones by shape, damaged ones by any link, tag, size or offset that is to be wrong.
//
//	PimImage plan;
//	const u16 ip = plan.ip("scaler");
//	const u16 setting = plan.setting(ip, "mode", E_PQLV_DEFAULT);
//	const u16 config = plan.config(setting, "mode#soft");
//	const u16 list = plan.list(config, {{3, 0x12}});
//	ImageBytes image = plan.write();
//	Map map;
//	EXPECT_TRUE(adopt(map, image));
//	EXPECT_EQ(image.tag(list), EXTMEM_TAG_REGISTER_SETTINGS);
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <ostream>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "pim/pim.h"

inline bool operator==(const func_pair &a, const func_pair &b)
{
	return a.fn_idx == b.fn_idx && a.fn_para == b.fn_para;
}

inline void PrintTo(const func_pair &pair, std::ostream *to)
{
	const auto flags = to->flags();
	*to << std::hex << "{0x" << pair.fn_idx << ", 0x" << pair.fn_para << "}";
	to->flags(flags);
}

inline bool operator==(const vexil_version &a, const vexil_version &b)
{
	return a.u16MajorNumber == b.u16MajorNumber && a.u16MinorNumber == b.u16MinorNumber &&
	       a.u32Revision == b.u32Revision;
}

inline void PrintTo(const vexil_version &version, std::ostream *to)
{
	*to << version.u16MajorNumber << "." << version.u16MinorNumber << "."
	    << version.u32Revision;
}

namespace vexil_test {

using Pairs = std::vector<func_pair>;
using RegisterTable = std::vector<ST_PQ_REG_INFO>;

inline constexpr u16 kNoId = 0xFFFF;
inline constexpr std::size_t kImageNodesAt = 96;
inline constexpr std::size_t kImageNodeBytes = 16;
inline constexpr std::size_t kImageFixedBytes = 104; // beside the two capacities
inline constexpr std::size_t kImageFirstCapacity = 1024;

/** A row of the caller's register table: a field of @width bits from bit @lsb up. */
inline ST_PQ_REG_INFO reg(u32 domain, u32 address, u32 lsb, u32 width, bool valid = true)
{
	return {static_cast<EN_PQ_TIME_DOMAIN>(domain), address, width << 16 | lsb << 8, valid};
}

/** A map that is destroyed with its scope. */
class Map {
public:
	Map() = default;
	~Map() { pim_destroy(&map_); }
	Map(const Map &) = delete;
	Map &operator=(const Map &) = delete;

	/** A new empty map; null without memory. */
	pim *init()
	{
		pim_destroy(&map_);
		pim_init(&map_, nullptr, 0, nullptr, 0);
		return map_;
	}
	/** For calls that store a map or take one away. */
	pim **out() { return &map_; }
	[[nodiscard]] pim *get() const { return map_; }
	pim *operator->() const { return map_; }

private:
	pim *map_ = nullptr;
};

/** The bytes of an image as a caller holds them, read without the library. */
class ImageBytes {
public:
	ImageBytes() = default;
	explicit ImageBytes(std::vector<char> bytes) : bytes_(std::move(bytes)) {}

	char *data() { return bytes_.data(); }
	[[nodiscard]] const std::vector<char> &bytes() const { return bytes_; }
	[[nodiscard]] u32 size() const { return static_cast<u32>(bytes_.size()); }
	/** Cuts the image off, as a caller with a short buffer would. */
	void resize(std::size_t size)
	{
		bytes_.resize(size);
		bytes_.shrink_to_fit();
	}

	template <typename T>
	[[nodiscard]] T at(std::size_t offset) const
	{
		T value{};
		std::copy_n(inside(offset, sizeof value), sizeof value,
			    reinterpret_cast<char *>(&value));
		return value;
	}
	template <typename T>
	void put(std::size_t offset, const T &value)
	{
		const auto *from = reinterpret_cast<const char *>(&value);
		std::copy_n(from, sizeof value,
			    bytes_.begin() + (inside(offset, sizeof value) - bytes_.cbegin()));
	}

	[[nodiscard]] extmem_buffer_header header() const { return at<extmem_buffer_header>(0); }
	[[nodiscard]] u32 nodes_used() const { return at<u32>(88); }
	[[nodiscard]] u32 node_capacity() const { return at<u32>(92); }
	[[nodiscard]] u32 data_used() const { return at<u32>(kImageNodesAt + node_capacity()); }
	[[nodiscard]] u32 data_capacity() const
	{
		return at<u32>(kImageNodesAt + node_capacity() + 4);
	}
	[[nodiscard]] std::size_t data_at() const { return kImageFixedBytes + node_capacity(); }

	[[nodiscard]] static std::size_t node_at(u16 id)
	{
		return kImageNodesAt + id * kImageNodeBytes;
	}
	[[nodiscard]] int tag(u16 id) const { return at<u8>(node_at(id) + 2); }
	[[nodiscard]] u16 child(u16 id) const { return at<u16>(node_at(id) + 3); }
	[[nodiscard]] u16 next(u16 id) const { return at<u16>(node_at(id) + 5); }
	[[nodiscard]] u32 record_size(u16 id) const { return at<u32>(node_at(id) + 3); }
	[[nodiscard]] u32 record_offset(u16 id) const { return at<u32>(node_at(id) + 7); }
	[[nodiscard]] std::size_t record_at(u16 id) const { return data_at() + record_offset(id); }
	[[nodiscard]] std::string record(u16 id) const
	{
		const auto begin = inside(record_at(id), record_size(id));
		return {begin, begin + record_size(id)};
	}

	/** Number of pairs that a register list announces. */
	[[nodiscard]] u32 pair_count(u16 id) const { return at<u32>(record_at(id)); }
	/** Every pair that the record has room for, whatever the list announces. */
	[[nodiscard]] Pairs pairs(u16 id) const
	{
		Pairs result((record_size(id) - sizeof(reg_func)) / sizeof(func_pair));
		for (std::size_t i = 0; i < result.size(); ++i)
			result[i] = at<func_pair>(record_at(id) + sizeof(reg_func) +
						  i * sizeof(func_pair));
		return result;
	}

private:
	[[nodiscard]] std::vector<char>::const_iterator inside(std::size_t offset,
							       std::size_t length) const
	{
		if (offset > bytes_.size() || length > bytes_.size() - offset)
			throw std::out_of_range("bytes beyond the image");
		return bytes_.begin() + static_cast<std::ptrdiff_t>(offset);
	}

	std::vector<char> bytes_;
};

/** An image in the making. Ids follow the order of requests; the root has id 0. */
class PimImage {
public:
	PimImage() { add(EXTMEM_TAG_GENERAL); }

	/** What the image says of itself; binSize is filled in by write(). */
	extmem_buffer_header header = sound_header();
	/** Capacities in bytes; 0: the first of 1024, 2048, 4096 ... that holds what is used. */
	std::size_t node_capacity = 0;
	std::size_t data_capacity = 0;

	// ---- any node ----

	/** A tree node without links. */
	u16 add(int tag)
	{
		const auto id = static_cast<u16>(nodes_.size());
		nodes_.push_back({});
		put<u16>(id, 0, id);
		put<u8>(id, 2, static_cast<u8>(tag));
		child(id, kNoId);
		next(id, kNoId);
		return id;
	}
	/** A data holder and its record, exactly these bytes. */
	u16 add_record(int tag, const std::string &bytes)
	{
		const u16 id = add(tag);
		record(id, static_cast<u32>(bytes.size()), static_cast<u32>(data_.size()));
		data_ += bytes;
		data_.resize((data_.size() + 7) / 8 * 8);
		return id;
	}
	template <typename T>
	u16 add_value(int tag, const T &value)
	{
		return add_record(tag, {reinterpret_cast<const char *>(&value), sizeof value});
	}
	/** A string item with its NUL. */
	u16 add_text(const std::string &text)
	{
		return add_record(EXTMEM_TAG_STRING_HOLDER, text + '\0');
	}
	/** A register list that announces as many pairs as it has. */
	u16 add_list(const Pairs &pairs, int tag = EXTMEM_TAG_REGISTER_SETTINGS)
	{
		return add_record(tag, list_bytes(pairs, static_cast<u32>(pairs.size())));
	}
	/** A register list's bytes with any announced number of pairs. */
	static std::string list_bytes(const Pairs &pairs, u32 announced)
	{
		const u32 head[2] = {announced, 0};
		std::string bytes(reinterpret_cast<const char *>(head), sizeof head);
		bytes.append(reinterpret_cast<const char *>(pairs.data()),
			     pairs.size() * sizeof(func_pair));
		return bytes;
	}

	void stored_id(u16 node, u16 id) { put(node, 0, id); }
	void tag(u16 node, int tag) { put<u8>(node, 2, static_cast<u8>(tag)); }
	void child(u16 node, u16 id)
	{
		put(node, 3, id);
		tails_.erase(node);
	}
	void next(u16 node, u16 id) { put(node, 5, id); }
	/** What a data holder refers to. */
	void record(u16 node, u32 size, u32 offset)
	{
		put(node, 3, size);
		put(node, 7, offset);
	}
	[[nodiscard]] u16 child(u16 node) const { return get<u16>(node, 3); }
	[[nodiscard]] u16 next(u16 node) const { return get<u16>(node, 5); }
	[[nodiscard]] u32 record_size(u16 node) const { return get<u32>(node, 3); }
	[[nodiscard]] u32 record_offset(u16 node) const { return get<u32>(node, 7); }
	[[nodiscard]] std::size_t nodes() const { return nodes_.size(); }
	[[nodiscard]] std::size_t data_bytes() const { return data_.size(); }

	/** Appends @node to the children of @parent. */
	void append(u16 parent, u16 node)
	{
		const auto known = tails_.find(parent);
		u16 tail = known != tails_.end() ? known->second : child(parent);
		if (tail == kNoId) {
			put(parent, 3, node);
		} else {
			while (next(tail) != kNoId)
				tail = next(tail);
			next(tail, node);
		}
		tails_[parent] = node;
	}
	/** Appends a new holder of @held to the children of @parent. Returns the holder. */
	u16 hold(u16 parent, u16 held)
	{
		const u16 holder = add(EXTMEM_TAG_GENERAL);
		child(holder, held);
		append(parent, holder);
		return holder;
	}
	/** A property with @name behind @node. Returns the property. */
	u16 name(u16 node, const std::string &name)
	{
		const u16 property = add(EXTMEM_TAG_PROPERTY);
		child(property, add_text(name));
		next(node, property);
		return property;
	}

	// ---- shapes; each returns the node that is named, its holder being linked ----

	u16 ip(const std::string &label, vexil_version version = {2, 2, 2})
	{
		const u16 node = add(EXTMEM_TAG_IP);
		const u16 property = name(node, label);
		const u16 versions = add(EXTMEM_TAG_VERSION);
		child(versions, add_value(EXTMEM_TAG_VERSION_HOLDER, version));
		next(property, versions);
		hold(0, node);
		return node;
	}
	u16 setting(u16 ip, const std::string &label, u32 level)
	{
		const u16 node = add(EXTMEM_TAG_IP_SETTING);
		const u16 property = name(node, label);
		const u16 pq_level = add(EXTMEM_TAG_PQLEVEL);
		child(pq_level, add_value(EXTMEM_TAG_PQLEVEL_HOLDER, level));
		next(property, pq_level);
		hold(ip, node);
		return node;
	}
	u16 config(u16 setting, const std::string &label, int tag = EXTMEM_TAG_IP_CONFIG)
	{
		const u16 node = add(tag);
		name(node, label);
		hold(setting, node);
		return node;
	}
	/** A preset configuration; members of a setting share the string item @table_item. */
	u16 preset(u16 setting, const std::string &label, u16 table_item)
	{
		const u16 node = config(setting, label, EXTMEM_TAG_IP_PRESET_REG_CONFIG);
		next(next(node), table_item);
		return node;
	}
	u16 list(u16 config, const Pairs &pairs, int tag = EXTMEM_TAG_REGISTER_SETTINGS)
	{
		const u16 item = add_list(pairs, tag);
		hold(config, item);
		return item;
	}
	/** A lookup-table or algorithm block: @entry is the handler label or the entry's name. */
	u16 file_block(u16 config, int tag, const std::string &file, const std::string &entry)
	{
		const u16 block = add(tag);
		child(block, add_text(file));
		next(block, add_text(entry));
		hold(config, block);
		return block;
	}
	u16 file(const std::string &label, const std::string &bytes)
	{
		const u16 node = add(EXTMEM_TAG_FILE);
		child(node, add_record(EXTMEM_TAG_DATA, bytes));
		name(node, label);
		hold(0, node);
		return node;
	}

	// ---- the bytes ----

	[[nodiscard]] ImageBytes write() const
	{
		const std::size_t used = nodes_.size() * kImageNodeBytes;
		const std::size_t node_room = node_capacity ? node_capacity : capacity_for(used);
		const std::size_t data_room =
			data_capacity ? data_capacity : capacity_for(data_.size());
		ImageBytes image(std::vector<char>(kImageFixedBytes + node_room +
						   std::max(data_room, data_.size())));
		extmem_buffer_header head = header;
		head.binSize = image.size();
		image.put(0, head);
		image.put(88, static_cast<u32>(used));
		image.put(92, static_cast<u32>(node_room));
		for (std::size_t i = 0; i < nodes_.size(); ++i)
			image.put(ImageBytes::node_at(static_cast<u16>(i)), nodes_[i]);
		image.put(kImageNodesAt + node_room, static_cast<u32>(data_.size()));
		image.put(kImageNodesAt + node_room + 4, static_cast<u32>(data_room));
		std::copy(data_.begin(), data_.end(), image.data() + kImageFixedBytes + node_room);
		return image;
	}

	static extmem_buffer_header sound_header()
	{
		extmem_buffer_header head{};
		head.codeVersion = {2, 2, 2};
		head.binType = 1;
		return head;
	}

private:
	using Node = std::array<u8, kImageNodeBytes>;

	template <typename T>
	void put(u16 node, std::size_t at, T value)
	{
		std::memcpy(nodes_.at(node).data() + at, &value, sizeof value);
	}
	template <typename T>
	[[nodiscard]] T get(u16 node, std::size_t at) const
	{
		T value{};
		std::memcpy(&value, nodes_.at(node).data() + at, sizeof value);
		return value;
	}
	static std::size_t capacity_for(std::size_t used)
	{
		std::size_t capacity = kImageFirstCapacity;
		while (capacity < used)
			capacity *= 2;
		return capacity;
	}

	std::vector<Node> nodes_;
	std::string data_;
	std::unordered_map<u16, u16> tails_; // last child that append() linked, by parent
};

/** pim_init over an image, with a register table unless @table is empty. */
inline bool adopt(Map &map, ImageBytes &image, const RegisterTable &table = {})
{
	return pim_init(map.out(), image.data(), image.size(),
			table.empty() ? nullptr : table.data(), table.size());
}

} // namespace vexil_test
