// SPDX-License-Identifier: MIT
//
// Stores for tests: empty ones that clean up after themselves, images written by hand, stores that
// only claim sizes, and hooks that remember how they were called.
#pragma once

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "extmem/extmem.h"

/** Compared and printed in tests only, so beside the record itself. */
inline bool operator==(const node_d &a, const node_d &b)
{
	return a.id == b.id && a.owner == b.owner;
}
inline bool operator==(const data_d &a, const data_d &b)
{
	return a.offset == b.offset && a.size == b.size && a.owner == b.owner;
}
inline std::ostream &operator<<(std::ostream &out, const node_d &node)
{
	return out << "node " << node.id << " of " << static_cast<const void *>(node.owner);
}
inline std::ostream &operator<<(std::ostream &out, const data_d &data)
{
	return out << data.size << " bytes at " << data.offset << " of "
		   << static_cast<const void *>(data.owner);
}

namespace vexil_test {

using Bytes = std::vector<u8>;

constexpr u16 kNone = 0xFFFF;
constexpr node_d kInvalid{kNone, nullptr};
constexpr std::size_t kNodeSize = 16;
constexpr std::size_t kStartCapacity = 1024;
constexpr std::size_t kMostNodes = 65535;

/** A store that was made empty; destroyed with its scope. */
class Store {
public:
	Store()
	{
		std::memset(static_cast<void *>(&builder_), 0, sizeof builder_);
		EXPECT_TRUE(extmem_builder_init(&builder_, nullptr, 0));
	}
	~Store() { extmem_builder_destroy(&builder_); }
	Store(const Store &) = delete;
	Store &operator=(const Store &) = delete;

	operator extmem_builder *() { return &builder_; }
	extmem_builder *operator->() { return &builder_; }
	node_d at(std::size_t id) { return {static_cast<u16>(id), &builder_}; }
	node_d add(int tag) { return extmem_request_node(&builder_, static_cast<extmem_tag>(tag)); }
	/** @count nodes of tag GENERAL. */
	void fill(std::size_t count)
	{
		for (std::size_t i = 0; i < count; ++i)
			ASSERT_TRUE(extmem_node_isvalid(add(EXTMEM_TAG_GENERAL))) << "node " << i;
	}
	/** A data holder with a copy of @payload. */
	node_d holder(int tag, Bytes payload)
	{
		return extmem_get_data(&builder_, static_cast<extmem_tag>(tag), payload.data(),
				       static_cast<u32>(payload.size()));
	}

private:
	extmem_builder builder_;
};

/** A record whose every byte is zero, as a caller keeps it before an image is adopted. */
inline extmem_builder blank_builder()
{
	extmem_builder builder;
	std::memset(static_cast<void *>(&builder), 0, sizeof builder);
	return builder;
}

template <typename T>
void append(Bytes &to, T value)
{
	for (std::size_t i = 0; i < sizeof value; ++i)
		to.push_back(static_cast<u8>(static_cast<u64>(value) >> (8 * i)));
}

template <typename T>
Bytes little_endian(std::initializer_list<T> values)
{
	Bytes bytes;
	for (const T value : values)
		append(bytes, value);
	return bytes;
}

inline Bytes text_bytes(const std::string &text)
{
	return {text.c_str(), text.c_str() + text.size() + 1};
}

/** The 16 bytes of a tree node. */
inline Bytes tree_node(u16 id, u8 tag, u16 child = kNone, u16 next = kNone)
{
	Bytes bytes;
	append(bytes, id);
	bytes.push_back(tag);
	append(bytes, child);
	append(bytes, next);
	bytes.resize(kNodeSize);
	return bytes;
}

/** The 16 bytes of a data holder. */
inline Bytes data_node(u16 id, u8 tag, u32 size, u32 offset)
{
	Bytes bytes;
	append(bytes, id);
	bytes.push_back(tag);
	append(bytes, size);
	append(bytes, offset);
	bytes.resize(kNodeSize);
	return bytes;
}

inline Bytes used_bytes(const extmem_buffer_ctx &buffer)
{
	return {buffer.buf, buffer.buf + buffer.buf_used};
}

inline Bytes all_bytes(const extmem_buffer_ctx &buffer)
{
	return {buffer.buf, buffer.buf + buffer.buf_max};
}

inline Bytes node_bytes(const extmem_builder *store, std::size_t id)
{
	const u8 *node = store->node_buffer.buf + id * kNodeSize;
	return {node, node + kNodeSize};
}

/** True when nothing is left behind the used part. */
inline bool tail_is_zero(const extmem_buffer_ctx &buffer)
{
	for (std::size_t i = buffer.buf_used; i < buffer.buf_max; ++i) {
		if (buffer.buf[i] != 0)
			return false;
	}
	return true;
}

/** What a failed request must leave alone. */
struct BufferState {
	explicit BufferState(const extmem_buffer_ctx &buffer)
	    : buf(buffer.buf), used(buffer.buf_used), max(buffer.buf_max), bytes(all_bytes(buffer))
	{
	}
	bool operator==(const BufferState &) const = default;

	const u8 *buf;
	std::size_t used;
	std::size_t max;
	Bytes bytes;
};

/** An image, part by part. What is declared may differ from what is there. */
struct HandImage {
	extmem_buffer_header header{};
	Bytes nodes;
	u32 nodes_used = 0;
	u32 nodes_max = 0;
	Bytes data;
	u32 data_used = 0;
	u32 data_max = 0;

	/** Full buffers of these bytes. */
	HandImage(Bytes node_part, Bytes data_part)
	    : nodes(std::move(node_part)), data(std::move(data_part))
	{
		nodes_used = nodes_max = static_cast<u32>(nodes.size());
		data_used = data_max = static_cast<u32>(data.size());
	}

	Bytes bytes() const
	{
		Bytes image(sizeof header);
		std::memcpy(image.data(), &header, sizeof header);
		append(image, nodes_used);
		append(image, nodes_max);
		image.insert(image.end(), nodes.begin(), nodes.end());
		append(image, data_used);
		append(image, data_max);
		image.insert(image.end(), data.begin(), data.end());
		return image;
	}
};

inline char *image_of(Bytes &bytes)
{
	return reinterpret_cast<char *>(bytes.data());
}

inline Bytes exported(extmem_builder *store)
{
	Bytes image(extmem_builder_get_export_size(store));
	EXPECT_EQ(extmem_builder_export(store, image_of(image)), image.size());
	return image;
}

inline Bytes joined(std::initializer_list<Bytes> parts)
{
	Bytes all;
	for (const Bytes &part : parts)
		all.insert(all.end(), part.begin(), part.end());
	return all;
}

/** Remembers the calls of a store's `reallocate` hook and passes them on. */
class Growths {
public:
	struct Call {
		const void *block;
		std::size_t old_size;
		std::size_t new_size;
		bool operator==(const Call &) const = default;
	};
	Growths() { calls().clear(); }
	static void *reallocate(void *block, std::size_t old_size, std::size_t new_size)
	{
		calls().push_back({block, old_size, new_size});
		return REALLOC(block, old_size, new_size);
	}
	static std::vector<Call> &calls()
	{
		static std::vector<Call> all;
		return all;
	}
};

/** Takes what goes through a store's `print` hook; counts the calls. */
class Printed {
public:
	Printed() { state() = {}; }
	[[gnu::format(printf, 1, 2)]] static int print(const char *format, ...)
	{
		char piece[256];
		va_list arguments;
		va_start(arguments, format);
		const int length = std::vsnprintf(piece, sizeof piece, format, arguments);
		va_end(arguments);
		EXPECT_LT(length, static_cast<int>(sizeof piece));
		++state().pieces;
		state().text.append(piece);
		return length;
	}
	static std::string take() { return std::exchange(state().text, {}); }

private:
	struct State {
		std::string text;
		std::size_t pieces = 0;
	};
	static State &state()
	{
		static State one;
		return one;
	}
};

} // namespace vexil_test
