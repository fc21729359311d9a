// SPDX-License-Identifier: MIT
//
// A store does what two plain byte vectors would do: after any calls, over stores that own their
// buffers and such that stand in an image, with memory refused and with images whose figures lie,
// both hold the same bytes, and an export says the same bytes. What was refused changes nothing but
// what the call's description says.
//
// Input: a script in bytes; each step begins with one of the letters at Run::step, and a byte that
// is none of them does nothing.
#include <climits>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <optional>

#include "extmem/children.h"
#include "extmem/layout.h"
#include "tests/fuzz/fuzz.h"

namespace {

using vexil_fuzz::Bytes;
using vexil_fuzz::refused;
using vexil_fuzz::require;

constexpr std::size_t kLongestInput = 4096;
constexpr std::size_t kLogKept = 65536;
constexpr std::size_t kMostBytes = std::size_t{1} << 20; // of one buffer; keeps inputs cheap
constexpr std::size_t kMostPrinted = 256;                // nodes
constexpr std::size_t kNode = 16;
constexpr u16 kNone = 0xFFFF;
constexpr u32 kFirstHolder = 33;

template <typename T>
T get(const std::vector<u8> &bytes, std::size_t at)
{
	T value;
	std::memcpy(&value, bytes.data() + at, sizeof value);
	return value;
}

template <typename T>
void put(std::vector<u8> &bytes, std::size_t at, T value)
{
	std::memcpy(bytes.data() + at, &value, sizeof value);
}

/** An image in a block of exactly its size. */
struct Image {
	explicit Image(std::size_t bytes) : size(bytes), at(new char[bytes]) {}
	std::size_t size;
	std::unique_ptr<char[]> at;
};

/** One of the two buffers. */
struct Buffer {
	std::vector<u8> bytes = std::vector<u8>(1024); // its whole capacity
	std::size_t used = 0;
};

/** The model of a store. */
struct Model {
	bool there = true; // it has buffers
	bool owning = true;
	Buffer nodes, data;
	extmem_err_code code = EXTMEM_SUCCESS;
	extmem_buffer_header header{};

	[[nodiscard]] std::size_t slots() const { return nodes.used / kNode; }
	[[nodiscard]] bool valid(u16 id) const
	{
		return there && id != kNone && (std::size_t{id} + 1) * kNode <= nodes.used;
	}
	[[nodiscard]] u32 tag(u16 id) const { return nodes.bytes[id * kNode + 2]; }
	[[nodiscard]] u16 stored_id(u16 id) const { return get<u16>(nodes.bytes, id * kNode); }
	[[nodiscard]] u16 child(u16 id) const { return get<u16>(nodes.bytes, id * kNode + 3); }
	[[nodiscard]] u16 next(u16 id) const { return get<u16>(nodes.bytes, id * kNode + 5); }
	[[nodiscard]] u32 size(u16 id) const { return get<u32>(nodes.bytes, id * kNode + 3); }
	[[nodiscard]] u32 offset(u16 id) const { return get<u32>(nodes.bytes, id * kNode + 7); }
	[[nodiscard]] u16 safe_link(u16 id, u16 link) const
	{
		return valid(id) && tag(id) < kFirstHolder && valid(link) ? link : kNone;
	}
	[[nodiscard]] bool record_inside(u64 at, u64 bytes) const
	{
		return there && bytes != 0 && at <= data.used && bytes <= data.used - at;
	}
	[[nodiscard]] std::vector<u8> record(u64 at, u64 bytes) const
	{
		if (!record_inside(at, bytes))
			return {};
		const auto from = data.bytes.begin() + static_cast<std::ptrdiff_t>(at);
		return {from, from + static_cast<std::ptrdiff_t>(bytes)};
	}

	/** Room for @needed bytes in all; false when there is none or memory was refused. */
	bool grow(Buffer &buffer, std::size_t needed)
	{
		std::size_t capacity = buffer.bytes.size();
		if (needed < capacity || (!owning && needed == capacity))
			return true;
		while (owning && capacity < needed && capacity <= SIZE_MAX / 2)
			capacity *= 2;
		if (!owning || capacity < needed || capacity > INT_MAX || refused()) {
			code = EXTMEM_NOMEM;
			return false;
		}
		buffer.bytes.resize(capacity);
		return true;
	}
	u16 request_node(u32 tag)
	{
		if (!there) {
			code = EXTMEM_BAD_PTR;
			return kNone;
		}
		const std::size_t slot = nodes.used;
		if (!grow(nodes, slot + kNode))
			return kNone;
		nodes.used += kNode;
		if (slot % kNode != 0)
			return kNone;
		if (slot / kNode >= kNone) {
			code = EXTMEM_OUT_OF_RANGE;
			return kNone;
		}
		std::memset(nodes.bytes.data() + slot, 0, kNode);
		const auto id = static_cast<u16>(slot / kNode);
		put<u16>(nodes.bytes, slot, id);
		nodes.bytes[slot + 2] = static_cast<u8>(tag);
		put<u16>(nodes.bytes, slot + 3, kNone);
		put<u16>(nodes.bytes, slot + 5, kNone);
		code = EXTMEM_SUCCESS;
		return id;
	}
	bool request(Buffer &buffer, std::size_t bytes)
	{
		if (!there) {
			code = EXTMEM_BAD_PTR;
			return false;
		}
		if (bytes > SIZE_MAX - 7 ||
		    ((bytes + 7) & ~std::size_t{7}) > SIZE_MAX - buffer.used) {
			code = EXTMEM_NOMEM;
			return false;
		}
		const std::size_t rounded = (bytes + 7) & ~std::size_t{7};
		if (!grow(buffer, buffer.used + rounded))
			return false;
		std::memset(buffer.bytes.data() + buffer.used, 0, rounded);
		buffer.used += rounded;
		return true;
	}
	[[nodiscard]] std::vector<u8> image() const
	{
		std::vector<u8> all(104 + nodes.bytes.size() + data.bytes.size());
		std::memcpy(all.data(), &header, sizeof header);
		put<u32>(all, 84, static_cast<u32>(all.size()));
		put<u32>(all, 88, static_cast<u32>(nodes.used));
		put<u32>(all, 92, static_cast<u32>(nodes.bytes.size()));
		std::memcpy(all.data() + 96, nodes.bytes.data(), nodes.bytes.size());
		const std::size_t at = 96 + nodes.bytes.size();
		put<u32>(all, at, static_cast<u32>(data.used));
		put<u32>(all, at + 4, static_cast<u32>(data.bytes.size()));
		std::memcpy(all.data() + at + 8, data.bytes.data(), data.bytes.size());
		return all;
	}
	/** As adoption of an image of @size bytes leaves it. */
	bool adopt(const std::vector<u8> &image, std::size_t size)
	{
		const std::size_t old_nodes = there ? nodes.bytes.size() : 0;
		const std::size_t old_data = there ? data.bytes.size() : 0;
		there = false;
		if (size >= 88)
			std::memcpy(&header, image.data(), sizeof header);
		if (size < 96)
			return false;
		const std::size_t nodes_used = get<u32>(image, 88), room = get<u32>(image, 92);
		if (nodes_used > room || room == 0 || 96 + old_nodes > size) {
			code = EXTMEM_INTERNAL_ERROR;
			return false;
		}
		if (104 + room > size)
			return false;
		std::size_t data_used = get<u32>(image, 96 + room);
		std::size_t data_room = get<u32>(image, 100 + room);
		if (data_used > data_room || data_room == 0 || 104 + room + old_data > size) {
			code = EXTMEM_INTERNAL_ERROR;
			return false;
		}
		data_room = std::min(data_room, size - 104 - room); // what is not there is no data
		data_used = std::min(data_used, data_room);
		const auto first = image.begin();
		const auto at = static_cast<std::ptrdiff_t>(room);
		nodes.bytes.assign(first + 96, first + 96 + at);
		nodes.used = nodes_used;
		data.bytes.assign(first + 104 + at,
				  first + 104 + at + static_cast<std::ptrdiff_t>(data_room));
		data.used = data_used;
		there = true;
		owning = false;
		code = EXTMEM_SUCCESS;
		return true;
	}
	/** Ids move up by @ids, offsets by @bytes. */
	void renumber(u16 ids, u32 bytes)
	{
		const auto shift = [&](std::size_t at) {
			if (get<u16>(nodes.bytes, at) != kNone)
				put(nodes.bytes, at,
				    static_cast<u16>(get<u16>(nodes.bytes, at) + ids));
		};
		for (std::size_t at = 0; at + kNode <= nodes.used; at += kNode) {
			if (get<u16>(nodes.bytes, at) == kNone)
				continue;
			shift(at);
			if (nodes.bytes[at + 2] < kFirstHolder) {
				shift(at + 3);
				shift(at + 5);
			} else {
				put(nodes.bytes, at + 7, get<u32>(nodes.bytes, at + 7) + bytes);
			}
		}
	}
	/** What a dump from @id on says; none when it is cut short. */
	[[nodiscard]] std::optional<std::string> dump(u16 id, int depth) const
	{
		std::string text;
		std::vector<std::pair<u16, int>> pending{{id, depth}};
		std::size_t lines = 0, bytes = 0;
		while (!pending.empty()) {
			const auto [at, level] = pending.back();
			pending.pop_back();
			const bool holder = tag(at) >= kFirstHolder;
			const auto held = holder ? record(offset(at), size(at)) : std::vector<u8>{};
			bytes += held.size();
			if (++lines > 2 * slots() || bytes > 16 * data.used + 64 * slots())
				return std::nullopt;
			for (int i = 0; i < level; ++i)
				text += "---";
			text += holder ? holder_text(at, held)
				       : "[" + std::to_string(stored_id(at)) + "] tag=" + name(at) +
						 "\n";
			if (safe_link(at, next(at)) != kNone)
				pending.emplace_back(next(at), level);
			if (safe_link(at, child(at)) != kNone)
				pending.emplace_back(child(at), level + 1);
		}
		return text;
	}

private:
	[[nodiscard]] std::string name(u16 id) const
	{
		return tag(id) <= EXTMEM_TAG_UNUSED_BEGIN ? extmem_tag_name[tag(id)] : "???";
	}
	template <typename Value>
	static std::string values(const std::vector<u8> &held, const char *format)
	{
		std::string text;
		for (std::size_t at = 0; at + sizeof(Value) <= held.size(); at += sizeof(Value)) {
			char shown[40];
			std::snprintf(shown, sizeof shown, format,
				      static_cast<unsigned long long>(get<Value>(held, at)));
			text += shown;
		}
		return text + "]\n";
	}
	[[nodiscard]] std::string holder_text(u16 id, const std::vector<u8> &held) const
	{
		const std::string size = std::to_string(held.size());
		switch (tag(id)) {
		case EXTMEM_TAG_DATA_TYPE_BEGIN:
			return "";
		case EXTMEM_TAG_STRING_HOLDER: {
			const bool ends = !held.empty() && std::memchr(held.data(), 0, held.size());
			return std::string("PROP:") +
			       (ends ? reinterpret_cast<const char *>(held.data()) : "(null)") +
			       "\n";
		}
		case EXTMEM_TAG_KEY_HOLDER:
			return "SourceMask(sz=" + size + "):[" + values<u64>(held, "0x%llx ");
		case EXTMEM_TAG_RANGE_HOLDER:
			return "RANGE INFO(sz=" + size + "):[" + values<u64>(held, "0x%llx ");
		case EXTMEM_TAG_VALUE_HOLDER:
			return "Values:[" + values<u16>(held, "ID=%llu ");
		case EXTMEM_TAG_NODE_HOLDER:
			return "NODEID:" +
			       std::to_string(held.size() < 2 ? kNone : get<u16>(held, 0)) + "\n";
		case EXTMEM_TAG_SIZE_HOLDER:
			return "SIZE:" +
			       std::to_string(
				       held.size() < 8 ? 0 : static_cast<u32>(get<u64>(held, 0))) +
			       "\n";
		default:
			return "[" + std::to_string(stored_id(id)) + "] Data tag=" + name(id) +
			       "\n";
		}
	}
};

/** A store, its model, and the image that it stands in. */
struct Pair {
	extmem_builder store{};
	Model model;
	std::unique_ptr<Image> image;
	std::size_t image_bytes = 0; // that its owner was told of
};

class Run {
public:
	explicit Run(Bytes &script) : script_(script)
	{
		for (Pair &pair : pairs_)
			begin(pair);
	}
	~Run()
	{
		for (Pair &pair : pairs_)
			extmem_builder_destroy(&pair.store);
	}
	Run(const Run &) = delete;
	Run &operator=(const Run &) = delete;

	void step()
	{
		pair_ = &pairs_[active_];
		switch (script_.u8()) {
		case 'n':
			return request_node();
		case 'N':
			return request_nodes();
		case 'd':
			return request_data();
		case 'b':
			return request_bytes();
		case 'g':
			return get_data();
		case 'c':
			return link(extmem_append_child, 3);
		case 'x':
			return link(extmem_append_next, 5);
		case 'o':
			return append_cond();
		case '/':
			return break_next();
		case 't':
			return set_tag();
		case 'w':
			return set_node();
		case 'r':
			return copy_to_node();
		case 's':
			return set_data();
		case 'f':
			return fetch();
		case 'l':
			return find();
		case 'p':
			return print();
		case 'h':
			return head();
		case 'e':
			return export_image();
		case 'a':
			return adopt();
		case 'm':
			return merge();
		case 'z':
			extmem_builder_destroy(&pair_->store);
			return begin(*pair_);
		case '2':
			active_ = 1 - active_;
			return;
		case '!':
			refuse_nth_ = script_.range(0, 3);
			refuse_all_ = refuse_nth_ == 3;
			return;
		default:
			return;
		}
	}
	void compare()
	{
		for (Pair &pair : pairs_) {
			pair_ = &pair;
			agree(true);
		}
	}

private:
	[[nodiscard]] extmem_builder *store() { return &pair_->store; }
	[[nodiscard]] Model &model() { return pair_->model; }
	[[nodiscard]] node_d at(u16 id) { return {id, store()}; }

	/** From here to the end of the step, the allocation that the script chose is refused. */
	void arm()
	{
		vexil_fuzz::refuse(refuse_nth_ == 3 ? 1 : refuse_nth_, refuse_all_);
		refuse_nth_ = 0;
		refuse_all_ = false;
	}
	/** Store and model say the same; ends a refusal. */
	void agree(bool all = false)
	{
		vexil_fuzz::refuse(0, false);
		const extmem_builder &real = pair_->store;
		const Model &plain = model();
		require(real.err_code == plain.code, "the code of a store");
		require((real.node_buffer.buf != nullptr) == plain.there &&
				(real.data_buffer.buf != nullptr) == plain.there,
			"a store has buffers, or not");
		if (!plain.there)
			return;
		require(real.malloc_flag == plain.owning, "who owns the buffers");
		require(real.node_buffer.buf_used == plain.nodes.used &&
				real.node_buffer.buf_max == plain.nodes.bytes.size(),
			"figures of the nodes");
		require(real.data_buffer.buf_used == plain.data.used &&
				real.data_buffer.buf_max == plain.data.bytes.size(),
			"figures of the data");
		if (!all && plain.nodes.bytes.size() + plain.data.bytes.size() > 65536)
			return;
		require(std::memcmp(real.node_buffer.buf, plain.nodes.bytes.data(),
				    plain.nodes.bytes.size()) == 0,
			"bytes of the nodes");
		require(std::memcmp(real.data_buffer.buf, plain.data.bytes.data(),
				    plain.data.bytes.size()) == 0,
			"bytes of the data");
		require(std::memcmp(&real.header, &plain.header, sizeof real.header) == 0,
			"the head of a store");
	}
	void begin(Pair &pair)
	{
		std::memset(static_cast<void *>(&pair.store), 0x5A, sizeof pair.store);
		pair.model = Model();
		pair.image.reset();
		arm();
		if (!extmem_builder_init(&pair.store, nullptr, 0)) {
			require(refused() && pair.store.err_code == EXTMEM_NOMEM, "no empty store");
			require(!pair.store.node_buffer.buf && !pair.store.data_buffer.buf,
				"what a failed beginning leaves");
			vexil_fuzz::refuse(0, false);
			require(extmem_builder_init(&pair.store, nullptr, 0), "no empty store");
		}
		vexil_fuzz::refuse(0, false);
	}

	u16 pick()
	{
		const u8 choice = script_.u8();
		const std::size_t slots = model().slots();
		if (choice == 0xFF)
			return kNone;
		if (choice == 0xFE)
			return script_.u16();
		return static_cast<u16>(choice % (slots + 1));
	}
	/** Others than an enumeration can hold come into nodes byte by byte. */
	u8 tag() { return script_.u8() & 63; }
	u32 size()
	{
		constexpr u32 kOdd[] = {0xFFFFFFFF, 0xFFFFFFF8, 0xFFFFFFF9, 0x80000000,
					1016,       1017,       1024,       0};
		const u8 choice = script_.u8();
		if (choice >= 0xF8)
			return kOdd[choice - 0xF8];
		return choice >= 0xF0 ? script_.u16() : choice;
	}
	[[nodiscard]] bool large() { return model().data.bytes.size() >= kMostBytes; }

	void request_node()
	{
		const u8 tag = this->tag();
		arm();
		const node_d node = extmem_request_node(store(), static_cast<extmem_tag>(tag));
		require(node.id == model().request_node(tag), "the id of a new node");
		require(node.owner == (node.id == kNone ? nullptr : store()),
			"the store of a new node");
		agree();
	}
	void request_nodes()
	{
		for (u32 left = script_.u16(); left > 0 && most_ > 0; --left, --most_) {
			const u16 id = extmem_request_node(store(), EXTMEM_TAG_GENERAL).id;
			require(id == model().request_node(EXTMEM_TAG_GENERAL),
				"the id of a new node");
		}
		agree();
	}
	void request_data()
	{
		if (large())
			return;
		const u32 bytes = size();
		arm();
		const std::size_t at = model().data.used;
		const data_d data = extmem_request_data(store(), bytes);
		if (model().request(model().data, bytes)) {
			require(data.owner == store() && data.offset == at && data.size == bytes,
				"a new record");
			record_ = data;
		} else {
			require(!data.owner && data.offset == 0 && data.size == 0, "no record");
		}
		agree();
	}
	/** Room in either buffer, whatever becomes of the nodes. */
	void request_bytes()
	{
		if (large())
			return;
		const bool nodes = script_.u8() & 1;
		const u8 choice = script_.u8();
		const std::size_t bytes =
			choice >= 0xF0 ? ~std::size_t{0} - (choice & 0xF) : choice;
		arm();
		Buffer &buffer = nodes ? model().nodes : model().data;
		extmem_buffer_ctx *real = nodes ? &store()->node_buffer : &store()->data_buffer;
		const std::size_t at = buffer.used;
		const void *room = __extmem_buffer_request(store(), real, bytes);
		const bool granted = model().request(buffer, bytes);
		require(room == (granted ? real->buf + at : nullptr), "room in a buffer");
		agree();
	}
	void get_data()
	{
		if (large())
			return;
		const u8 tag = this->tag();
		const u8 kind = script_.u8();
		Model &plain = model();
		std::vector<u8> bytes;
		void *from = nullptr;
		u32 count = script_.u8();
		if (kind == 0) { // no source
			count &= 1;
		} else if (kind < 0x40 && plain.there &&
			   plain.data.used > 0) { // out of the store itself
			const u64 offset = script_.u16() % plain.data.used;
			count = static_cast<u32>(std::min<u64>(count, plain.data.used - offset));
			bytes = plain.record(offset, count);
			from = store()->data_buffer.buf + offset;
		} else {
			const std::string text = script_.text(count);
			bytes.assign(text.begin(), text.end());
			count = static_cast<u32>(bytes.size());
			bytes.push_back(0);
			from = bytes.data();
		}
		arm();
		const node_d node =
			extmem_get_data(store(), static_cast<extmem_tag>(tag), from, count);
		u16 expected = kNone;
		if (from || count == 0) {
			expected = plain.request_node(tag);
			const std::size_t offset = plain.data.used;
			if (expected != kNone && count > 0) {
				if (plain.request(plain.data, count)) {
					std::memcpy(plain.data.bytes.data() + offset, bytes.data(),
						    count);
					put<u32>(plain.nodes.bytes, expected * kNode + 3, count);
					put<u32>(plain.nodes.bytes, expected * kNode + 7,
						 static_cast<u32>(offset));
				} else {
					expected = kNone;
				}
			}
		}
		require(node.id == expected, "the node of a record");
		agree();
	}
	void link(bool (*append)(node_d, node_d), std::size_t field)
	{
		const u16 from = pick(), to = pick();
		const bool both = model().valid(from) && model().valid(to);
		require(append(at(from), at(to)) == both, "a link is made, or not");
		if (both)
			put<u16>(model().nodes.bytes, from * kNode + field, to);
		agree();
	}
	void append_cond()
	{
		const u16 parent = pick(), before = pick(), child = pick();
		const node_d last = extmem_append_child_cond(at(parent), at(before), at(child));
		const bool made = model().valid(parent) && model().valid(child);
		require(last.id == (made ? child : before), "the last child");
		if (made && model().valid(before))
			put<u16>(model().nodes.bytes, before * kNode + 5, child);
		else if (made)
			put<u16>(model().nodes.bytes, parent * kNode + 3, child);
		agree();
	}
	void break_next()
	{
		const u16 id = pick();
		require(extmem_break_next(at(id)) == model().valid(id), "a chain is ended, or not");
		if (model().valid(id))
			put<u16>(model().nodes.bytes, id * kNode + 5, kNone);
		agree();
	}
	void set_tag()
	{
		const u16 id = pick();
		const u8 tag = this->tag();
		require(extmem_set_tag(at(id), static_cast<extmem_tag>(tag)) == model().valid(id),
			"a tag is set, or not");
		if (model().valid(id))
			model().nodes.bytes[id * kNode + 2] = tag;
		agree();
	}
	void set_node()
	{
		const u16 id = pick();
		extmem_node value;
		std::memset(static_cast<void *>(&value), 0, sizeof value);
		const std::string text = script_.text(sizeof value);
		std::memcpy(static_cast<void *>(&value), text.data(), text.size());
		const node_d node = at(id);
		require(extmem_set_node(&node, value) == model().valid(id),
			"a node is set, or not");
		if (model().valid(id))
			std::memcpy(model().nodes.bytes.data() + id * kNode, &value, sizeof value);
		agree();
	}
	/** The record that was made last, or any other. */
	data_d pick_record()
	{
		const u8 choice = script_.u8();
		if (choice < 0x80)
			return {record_.offset, record_.size, store()};
		if (choice < 0xF0)
			return {script_.u16(), script_.u8(), store()};
		return {script_.u64(), script_.u64(), choice == 0xFF ? nullptr : store()};
	}
	void copy_to_node()
	{
		const u16 id = pick();
		const data_d data = pick_record();
		const bool good = model().valid(id) && data.owner &&
				  model().record_inside(data.offset, data.size);
		require(extmem_copy_to_node(at(id), data) == good,
			"a node refers to a record, or not");
		if (good) {
			put<u32>(model().nodes.bytes, id * kNode + 3, static_cast<u32>(data.size));
			put<u32>(model().nodes.bytes, id * kNode + 7,
				 static_cast<u32>(data.offset));
		}
		agree();
	}
	void set_data()
	{
		data_d data = pick_record();
		const std::string text = script_.text(script_.u8());
		std::vector<char> source(text.begin(), text.end()); // of exactly this size
		const bool good = data.owner && !source.empty() && source.size() <= data.size &&
				  model().record_inside(data.offset, data.size);
		const data_d before = data;
		const bool done = extmem_set_data(&data, source.data(), source.size());
		if (source.empty() && done)
			require(model().record_inside(before.offset, before.size),
				"no bytes into no record");
		else
			require(done == good, "a record is filled, or not");
		require(data.size == (done ? source.size() : before.size),
			"the length of a record");
		if (good)
			std::memcpy(model().data.bytes.data() + data.offset, source.data(),
				    source.size());
		agree();
	}
	void fetch()
	{
		const u16 id = pick();
		const Model &plain = model();
		const bool valid = plain.valid(id);
		const extmem_node node = extmem_fetch_node(at(id));
		const u8 none[kNode] = {};
		require(extmem_node_isvalid(at(id)) == valid, "a node is there, or not");
		require(std::memcmp(&node, valid ? plain.nodes.bytes.data() + id * kNode : none,
				    kNode) == 0,
			"the bytes of a node");
		require(extmem_fetch_tag(at(id)) == (valid ? static_cast<int>(plain.tag(id)) : -1),
			"a tag");
		require(extmem_fetch_id(at(id)) == (valid ? plain.stored_id(id) : kNone),
			"a stored id");
		require(extmem_get_child(at(id)).id == (valid ? plain.child(id) : kNone),
			"a child");
		require(extmem_get_next(at(id)).id == (valid ? plain.next(id) : kNone), "a next");
		require(extmem_request_data_buf_used(store()) ==
					(plain.there ? plain.data.used : 0) &&
				extmem_request_max_node_id(store()) ==
					(plain.there ? static_cast<u16>(plain.slots() - 1) : kNone),
			"the figures of a store");
		if (!plain.there)
			model().code = EXTMEM_BAD_PTR;
		const data_d data = extmem_copy_from_node(at(id));
		if (!valid || plain.tag(id) < 16) {
			require(!data.owner && data.size == 0 && data.offset == 0,
				"no record of a node");
		} else {
			require(data.size == plain.size(id) && data.offset == plain.offset(id),
				"the record of a node");
			const std::vector<u8> held = plain.record(data.offset, data.size);
			require(extmem_fetch_datalen(data) == held.size() &&
					extmem_data_isvalid(data) == !held.empty(),
				"the length of a node's record");
			const void *bytes = extmem_fetch_data(data);
			require((bytes != nullptr) == !held.empty() &&
					(!bytes ||
					 std::memcmp(bytes, held.data(), held.size()) == 0),
				"the bytes of a node's record");
		}
		agree();
	}
	/** Along the chain from @id, as many steps as there are nodes. */
	void find()
	{
		const u16 id = pick();
		const u8 tag = script_.u8();
		const Model &plain = model();
		u16 tail = id, found = kNone, walker = id;
		for (std::size_t steps = plain.valid(id) ? plain.slots() : 0; steps > 0; --steps) {
			if (plain.safe_link(tail, plain.next(tail)) == kNone)
				break;
			tail = plain.next(tail);
		}
		for (std::size_t steps = plain.valid(id) ? plain.slots() : 0; steps > 0; --steps) {
			walker = plain.safe_link(walker, plain.next(walker));
			if (walker == kNone || plain.tag(walker) == tag) {
				found = walker;
				break;
			}
		}
		require(extmem_find_tail(at(id)).id == tail, "the end of a chain");
		require(extmem_find_next(at(id), tag).id == found, "the next of a kind");
		agree();
	}
	void print()
	{
		const u16 id = pick();
		const int depth = static_cast<int>(script_.range(0, 3));
		if (model().slots() > kMostPrinted)
			return; // a chain of children is as deep as it is long
		vexil_fuzz::take_log();
		arm();
		extmem_print(store(), at(id), depth);
		const bool starved = refused();
		const std::string said = vexil_fuzz::take_log();
		if (model().valid(id) && !starved && said.size() < kLogKept) {
			const auto expected = model().dump(id, depth);
			const std::string cut = "[extmem_print][612]vexil lib fail!!\n";
			if (expected)
				require(said == *expected, "a dump");
			else
				require(said.size() >= cut.size() &&
						said.compare(said.size() - cut.size(), cut.size(),
							     cut) == 0,
					"the end of a dump that has none");
		} else if (!model().valid(id)) {
			require(said.empty(), "a dump of nothing");
		}
		agree();
	}
	void head()
	{
		extmem_buffer_header &header = store()->header;
		header.chipID = script_.u16();
		header.total_version = {script_.u8(), script_.u8(), script_.u8()};
		const std::string note = script_.text(script_.range(0, 31));
		std::memcpy(header.cus_version, note.data(), note.size());
		model().header = header;
	}
	void export_image()
	{
		const std::vector<u8> expected =
			model().there ? model().image() : std::vector<u8>(104);
		require(extmem_builder_get_export_size(store()) == expected.size(),
			"the size of an export");
		require(extmem_builder_export(store(), nullptr) == 0, "an export to nowhere");
		model().code = EXTMEM_NOMEM;
		agree();
		auto image = std::make_unique<Image>(expected.size());
		require(extmem_builder_export(store(), image->at.get()) == expected.size(),
			"the bytes of an export");
		model().header.binSize = static_cast<u32>(expected.size());
		if (model().there)
			require(std::memcmp(image->at.get(), expected.data(), expected.size()) == 0,
				"an export");
		agree();
		exported_ = std::move(image);
	}
	/** Adopts what was exported last, whole or damaged in its figures. */
	void adopt()
	{
		if (!exported_ || exported_->size < 104)
			return;
		std::unique_ptr<Image> image = std::move(exported_);
		for (u8 patches = script_.range(0, 3); patches > 0; --patches) {
			u32 nodes;
			std::memcpy(&nodes, image->at.get() + 92, sizeof nodes);
			const std::size_t data_at = 96 + std::size_t{nodes};
			const std::size_t fields[] = {88, 92, data_at, data_at + 4, 96, 100};
			const std::size_t field = fields[script_.range(0, 5)];
			const u32 value = script_.u8() & 1 ? script_.u16() : script_.u32();
			if (field + 4 <= image->size)
				std::memcpy(image->at.get() + field, &value, sizeof value);
		}
		// A shorter buffer, as its owner says, and as address checks see it.
		const u8 cut = script_.u8();
		const std::size_t bytes =
			cut == 0     ? image->size
			: cut < 0x80 ? image->size - std::min<std::size_t>(cut, image->size)
				     : script_.u16() % image->size;
		auto copy = std::make_unique<Image>(bytes ? bytes : 1);
		std::memcpy(copy->at.get(), image->at.get(), bytes);
		const std::vector<u8> plain(copy->at.get(), copy->at.get() + bytes);
		if (bytes == 0)
			return; // that would ask for an empty store
		if (script_.u8() & 1) {
			extmem_builder_destroy(store());
			model().there = false;
			model().code = EXTMEM_SUCCESS;
		}
		const bool adopted =
			extmem_builder_init(store(), copy->at.get(), static_cast<u32>(bytes));
		require(adopted == model().adopt(plain, bytes), "an image is adopted, or not");
		if (adopted)
			vexil::clamp_data(store(), static_cast<u32>(bytes));
		pair_->image = std::move(copy);
		pair_->image_bytes = bytes;
		agree();
	}
	/** The active store with the other one behind it takes the place of the active store. */
	void merge()
	{
		Pair &sub = pairs_[1 - active_];
		const u8 way = script_.u8();
		const bool shadow = way & 1;
		if (model().nodes.used > kMostBytes ||
		    model().data.used + sub.model.data.used > kMostBytes)
			return;
		extmem_builder target{};
		Model expected;
		require(extmem_builder_init(&target, nullptr, 0), "no target");
		if (way & 2) {
			require(extmem_request_node(&target, EXTMEM_TAG_GENERAL).id == 0,
				"no root");
			expected.request_node(EXTMEM_TAG_GENERAL);
		}
		if (way & 4) { // a target in use
			extmem_request_data(&target, 8);
			expected.request(expected.data, 8);
		}
		extmem_builder *second = way & 8 ? store() : &sub.store;
		Model &second_model = way & 8 ? model() : sub.model;
		arm();
		const bool merged = shadow ? vexil::merge_stores(&target, store(), second)
					   : extmem_merge_buffer(&target, store(), second);
		const bool starved = refused();
		vexil_fuzz::refuse(0, false);
		const bool done = !starved && expect_merged(expected, model(), second_model, shadow,
							    second == store());
		require(merged == done, "two stores are joined, or not");
		if (done) {
			extmem_builder_destroy(store());
			pair_->image.reset();
			pair_->store = target;
			model() = expected;
		} else {
			if (starved) {
				require(target.err_code == EXTMEM_NOMEM, "the code of no memory");
				expect_starved(target, sub, shadow, second == store());
			} else {
				require(target.err_code == expected.code, "the code of a target");
			}
			extmem_builder_destroy(&target);
		}
		agree(true);
		pair_ = &sub;
		agree(true);
	}
	/** The joined stores in @target; false, with its code, when they cannot be. */
	static bool expect_merged(Model &target, const Model &base, Model &sub, bool shadow,
				  bool same)
	{
		if (!base.there || !sub.there) {
			target.code = EXTMEM_BAD_PTR;
			return false;
		}
		if (target.data.used != 0 || (same && !shadow)) {
			target.code = EXTMEM_INTERNAL_ERROR;
			return false;
		}
		if (base.slots() + sub.slots() > kNone) {
			target.code = EXTMEM_OUT_OF_RANGE;
			return false;
		}
		Model moved = sub;
		moved.renumber(static_cast<u16>(base.slots()), static_cast<u32>(base.data.used));
		const std::size_t first = base.slots() * kNode, second = sub.slots() * kNode;
		require(target.request(target.nodes, first + second) &&
				target.request(target.data, base.data.used + sub.data.used),
			"the model has memory");
		std::memset(target.nodes.bytes.data(), 0, target.nodes.bytes.size());
		std::memcpy(target.nodes.bytes.data(), base.nodes.bytes.data(), first);
		std::memcpy(target.nodes.bytes.data() + first, moved.nodes.bytes.data(), second);
		target.nodes.used = first + second;
		std::memcpy(target.data.bytes.data(), base.data.bytes.data(), base.data.used);
		std::memcpy(target.data.bytes.data() + base.data.used, moved.data.bytes.data(),
			    sub.data.used);
		if (!shadow)
			sub = moved;
		return true;
	}
	/** What a merge without memory leaves of its two parts. */
	void expect_starved(const extmem_builder &target, Pair &sub, bool shadow, bool same)
	{
		if (!shadow && !same)
			sub.model.renumber(static_cast<u16>(model().slots()),
					   static_cast<u32>(model().data.used));
		// The nodes went through: the data did not, and the base says so, too.
		if (target.node_buffer.buf_used > kNode || store()->err_code == EXTMEM_NOMEM)
			model().code = store()->err_code;
		if (same)
			sub.model.code = sub.store.err_code;
	}

	Bytes &script_;
	Pair pairs_[2];
	Pair *pair_ = &pairs_[0];
	u8 active_ = 0;
	data_d record_{};
	std::unique_ptr<Image> exported_;
	std::size_t refuse_nth_ = 0;
	bool refuse_all_ = false;
	std::size_t most_ = 70000; // nodes requested by the thousand
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
	const vexil_fuzz::Blocks blocks;
	Bytes script(data, size < kLongestInput ? size : kLongestInput);
	Run run(script);
	while (!script.empty())
		run.step();
	run.compare();
	return 0;
}
