// SPDX-License-Identifier: MIT
//
// The tree dump.

#include "core/bytes.h"
#include "core/fail.h"
#include "core/pending.h"
#include "extmem/children.h"
#include "extmem/layout.h"

namespace {

constexpr int kMaxNamedTag = EXTMEM_TAG_UNUSED_BEGIN;
/** Indentation pieces that one dump may print: bounds what a chain of children can cost. */
constexpr size_t kMaxIndents = size_t{1} << 26;
/**
 * Bytes of records that one dump may print: the data many times over, and some for each node. The
 * members of a preset setting share their table's name, a damaged image shares anything.
 */
constexpr size_t kBytesPerByte = 16;
constexpr size_t kBytesPerNode = 64;

/** A node that is still to be printed. */
struct PendingNode {
	u16 id;
	int depth;
};

/** One dump, and what it may still print of an image whose links may be damaged. */
struct Dump {
	extmem_builder *out;
	size_t lines_left;
	size_t indents_left;
	size_t bytes_left; // of records
};

/** Indents a line; false when the dump has printed all that it may. */
bool begin_line(Dump &dump, int depth)
{
	const size_t indents = depth > 0 ? static_cast<size_t>(depth) : 0;
	if (dump.lines_left == 0 || indents > dump.indents_left)
		return false;
	--dump.lines_left;
	dump.indents_left -= indents;
	for (size_t i = 0; i < indents; ++i)
		dump.out->print("---");
	return true;
}

const char *tag_name(int tag)
{
	return tag >= 0 && tag <= kMaxNamedTag ? extmem_tag_name[tag] : "???";
}

/** The first value of a record, or @missing when it is too short for one. */
template <typename T>
T first_value(vexil::Bytes record, T missing)
{
	return record.size() >= sizeof(T) ? vexil::load<T>(record.data()) : missing;
}

/** Each whole value of a record through @format. */
template <typename Value, typename Shown>
void print_values(extmem_builder *out, const char *format, vexil::Bytes record)
{
	for (size_t at = 0; at + sizeof(Value) <= record.size(); at += sizeof(Value))
		out->print(format, static_cast<Shown>(vexil::load<Value>(record.data() + at)));
	out->print("]\n");
}

/** False, with nothing printed, when a damaged image has had enough of its records printed. */
bool afford(Dump &dump, size_t bytes)
{
	if (bytes > dump.bytes_left)
		return false;
	dump.bytes_left -= bytes;
	return true;
}

void print_holder(extmem_builder *out, node_d node, vexil::Bytes record, int tag)
{
	switch (tag) {
	case EXTMEM_TAG_DATA_TYPE_BEGIN:
		return;
	case EXTMEM_TAG_STRING_HOLDER:
		out->print("PROP:%s\n", vexil::shown(vexil::text_of(node)));
		return;
	case EXTMEM_TAG_KEY_HOLDER:
		out->print("SourceMask(sz=%d):[", static_cast<int>(record.size()));
		print_values<u64, size_t>(out, "0x%zx ", record);
		return;
	case EXTMEM_TAG_VALUE_HOLDER:
		out->print("Values:[");
		print_values<u16, unsigned int>(out, "ID=%u ", record);
		return;
	case EXTMEM_TAG_NODE_HOLDER:
		out->print("NODEID:%u\n", unsigned{first_value<u16>(record, vexil::kNoNode)});
		return;
	case EXTMEM_TAG_SIZE_HOLDER:
		out->print("SIZE:%u\n", static_cast<unsigned int>(first_value<u64>(record, 0)));
		return;
	case EXTMEM_TAG_RANGE_HOLDER:
		out->print("RANGE INFO(sz=%d):[", static_cast<int>(record.size()));
		print_values<u64, size_t>(out, "0x%zx ", record);
		return;
	default:
		out->print("[%u] Data tag=%s\n", unsigned{extmem_fetch_id(node)}, tag_name(tag));
		return;
	}
}

} // namespace

extern "C" {

// clang-format off
const char *const extmem_tag_name[59] = {
	/*  0 */ "UNSPECIFIED", "GENERAL", "???", "???", "???", "???", "???", "???",
	/*  8 */ "???", "???", "???", "???", "???", "???", "???", "???",
	/* 16 */ "CUSTOM_BEGIN", "IP", "???", "IP_CONFIG", "???", "???", "PROPERTY", "RULE",
	/* 24 */ "SOURCE", "???", "FILE", "FUNCTION", "???", "KEY DESC", "KEY RANGE", "???",
	/* 32 */ "???", "DATA_BEGIN", "DATA", "STRING", "REGISTER", "VREGISTER", "SOURCE", "KEY",
	/* 40 */ "VALUE", "NODE", "USEDBITS", "SIZE", "RANGE", "???", "???", "???",
	/* 48 */ "???", "???", "???", "???", "???", "???", "???", "???",
	/* 56 */ "???", "???", "UNUSED_BEGIN",
};
// clang-format on

void extmem_print(extmem_builder *pBuilder, node_d node, int depth)
{
	constexpr int kDamagedReport = 612;
	constexpr int kNoMemoryReport = 613;
	if (!pBuilder || !extmem_node_isvalid(node))
		return;
	// Links come from the image: the walk keeps its own stack, and counts.
	const size_t slots = vexil::node_slots(*node.owner);
	Dump dump{pBuilder, 2 * slots, kMaxIndents,
		  kBytesPerByte * node.owner->data_buffer.buf_used + kBytesPerNode * slots};
	vexil::Pending<PendingNode> pending(*pBuilder);
	for (;;) {
		const vexil::Bytes record = vexil::payload(node);
		if (!afford(dump, record.size()) || !begin_line(dump, depth)) {
			vexil::lib_fail("extmem_print", kDamagedReport);
			return;
		}
		const int tag = extmem_fetch_tag(node);
		if (tag < EXTMEM_TAG_DATA_TYPE_BEGIN)
			pBuilder->print("[%u] tag=%s\n", unsigned{extmem_fetch_id(node)}, tag_name(tag));
		else
			print_holder(pBuilder, node, record, tag);

		const node_d child = vexil::child_of(node);
		const node_d next = vexil::next_of(node);
		const bool has_next = next.id != vexil::kNoNode;
		if (child.id != vexil::kNoNode) {
			if (has_next && !pending.push({next.id, depth})) {
				vexil::lib_fail("extmem_print", kNoMemoryReport);
				return;
			}
			node = child;
			++depth;
		} else if (has_next) {
			node = next;
		} else if (!pending.empty()) {
			const PendingNode following = pending.pop();
			node.id = following.id;
			depth = following.depth;
		} else {
			return;
		}
	}
}

} // extern "C"
