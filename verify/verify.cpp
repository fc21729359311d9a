// SPDX-License-Identifier: MIT
//
// The head of an image, its nodes one by one, then its tree.

#include <vexil/verify.h>

#include "core/memory.h"
#include "core/scratch.h"
#include "core/version.h"
#include "verify/walk.h"

namespace {

using vexil::ImageParts;
using vexil::ImageWalk;
using vexil::kImageOverhead;
using vexil::kMaxNodes;
using vexil::kNodeBytes;
using vexil::kNodesAt;
using vexil::load;
using vexil::report_fault;
using Compact = extmem_buffer_ctx_compact;
using Header = extmem_buffer_header;

constexpr size_t kNodeFiguresAt = vexil::kHeaderBytes;

bool plausible(const Compact &figures, size_t step)
{
	return figures.buf_max != 0 && figures.buf_used <= figures.buf_max &&
	       figures.buf_used % step == 0;
}

bool check_header(const u8 *image, vexil_image_fault *fault)
{
	const auto header = load<Header>(image);
	if (header.binType != vexil::kPimImageKind && header.binType != vexil::kRuleImageKind)
		return report_fault(fault, VEXIL_IMAGE_UNKNOWN_KIND,
				    __builtin_offsetof(Header, binType));
	return vexil::supported(header.codeVersion) ||
	       report_fault(fault, VEXIL_IMAGE_UNKNOWN_VERSION,
			    __builtin_offsetof(Header, codeVersion));
}

/** Ids cannot name more nodes; slots of requests that failed for it are counted, but empty. */
bool check_surplus(const u8 *image, size_t slots, vexil_image_fault *fault)
{
	for (size_t at = kNodesAt + kMaxNodes * kNodeBytes; at < kNodesAt + slots * kNodeBytes;
	     ++at) {
		if (image[at] != 0)
			return report_fault(fault, VEXIL_IMAGE_TOO_MANY_NODES, at);
	}
	return true;
}

bool read_parts(const u8 *image, u32 size, ImageParts *parts, vexil_image_fault *fault)
{
	const auto nodes = load<Compact>(image + kNodeFiguresAt);
	if (!plausible(nodes, kNodeBytes))
		return report_fault(fault, VEXIL_IMAGE_NODE_FIGURES, kNodeFiguresAt);
	const u64 data_at = u64{kImageOverhead} + nodes.buf_max;
	if (data_at > size)
		return report_fault(fault, VEXIL_IMAGE_TRUNCATED, size);
	const size_t data_figures_at = static_cast<size_t>(data_at) - vexil::kCompactBytes;
	const auto data = load<Compact>(image + data_figures_at);
	if (!plausible(data, vexil::kRecordAlignment))
		return report_fault(fault, VEXIL_IMAGE_DATA_FIGURES, data_figures_at);
	const u64 end = data_at + data.buf_max;
	if (end > size)
		return report_fault(fault, VEXIL_IMAGE_TRUNCATED, size);
	if (load<Header>(image).binSize != end)
		return report_fault(fault, VEXIL_IMAGE_SIZE, __builtin_offsetof(Header, binSize));
	if (nodes.buf_used == 0)
		return report_fault(fault, VEXIL_IMAGE_NO_ROOT, kNodeFiguresAt);
	const size_t slots = nodes.buf_used / kNodeBytes;
	if (!check_surplus(image, slots, fault))
		return false;
	*parts = {image, slots < kMaxNodes ? slots : kMaxNodes, static_cast<size_t>(data_at),
		  data.buf_used};
	return true;
}

bool is_known(int tag)
{
	return tag == EXTMEM_TAG_GENERAL ||
	       (tag > EXTMEM_TAG_CUSTOM_BEGIN && tag < EXTMEM_TAG_UNUSED_BEGIN &&
		tag != EXTMEM_TAG_DATA_TYPE_BEGIN);
}

/**
 * One node's record. Records lie in the order of their nodes, so none needs to be remembered but
 * the end of the last one.
 */
bool check_record(const ImageParts &parts, u16 id, size_t *end, vexil_image_fault *fault)
{
	const u8 *node = parts.image + ImageWalk::node_at(id);
	const auto size = load<u32>(node + vexil::kSizeAt);
	const auto offset = load<u32>(node + vexil::kOffsetAt);
	const size_t at = ImageWalk::node_at(id, vexil::kOffsetAt);
	if (size == vexil::kMaxU32)
		return true; // as it was requested: it has no record; a merge moves the offset all the same
	if (size == 0 || !vexil::fits(offset, size, parts.data_used))
		return report_fault(fault, VEXIL_IMAGE_RECORD_BOUNDS,
				    ImageWalk::node_at(id, vexil::kSizeAt), id);
	if (offset % vexil::kRecordAlignment != 0)
		return report_fault(fault, VEXIL_IMAGE_RECORD_ALIGNMENT, at, id);
	if (offset < *end)
		return report_fault(fault, VEXIL_IMAGE_RECORD_ORDER, at, id);
	*end = size_t{offset} + size;
	return true;
}

bool check_link(const ImageParts &parts, u16 id, vexil::Link link, vexil_image_fault *fault)
{
	const size_t at = ImageWalk::link_at(id, link);
	const auto to = load<u16>(parts.image + at);
	return to == vexil::kNoNode || to < parts.slots ||
	       report_fault(fault, VEXIL_IMAGE_LINK, at, id, to);
}

/** Every node by itself, whether anything leads to it or not. */
bool check_nodes(const ImageParts &parts, vexil_image_fault *fault)
{
	size_t end_of_records = 0;
	for (size_t i = 0; i < parts.slots; ++i) {
		const auto id = static_cast<u16>(i);
		const u8 *node = parts.image + ImageWalk::node_at(id);
		const int tag = node[vexil::kTagAt];
		if (load<u16>(node) != id)
			return report_fault(fault, VEXIL_IMAGE_NODE_ID, ImageWalk::node_at(id), id);
		if (!is_known(tag))
			return report_fault(fault, VEXIL_IMAGE_NODE_TAG,
					    ImageWalk::node_at(id, vexil::kTagAt), id);
		const bool sound =
			tag < EXTMEM_TAG_DATA_TYPE_BEGIN
				? check_link(parts, id, vexil::Link::kChild, fault) &&
					  check_link(parts, id, vexil::Link::kNext, fault)
				: check_record(parts, id, &end_of_records, fault);
		if (!sound)
			return false;
	}
	return true;
}

bool check_tree(const ImageParts &parts, vexil_image_fault *fault)
{
	constexpr u16 kRoot = 0;
	struct {
		vexil::AllocateFn allocate = ALLOC;
		vexil::DeallocateFn deallocate = DEALLOC;
	} const kernel;
	const vexil::Scratch<u8> reached(kernel, vexil::NodeBits::bytes(parts.slots));
	if (!reached)
		return report_fault(fault, VEXIL_IMAGE_NO_MEMORY, 0);
	ImageWalk walk(parts, reached.get(), fault);
	walk.reached().set(kRoot);
	if (walk.tag(kRoot) != EXTMEM_TAG_GENERAL)
		return walk.fail(VEXIL_IMAGE_NO_ROOT, ImageWalk::node_at(kRoot, vexil::kTagAt),
				 kRoot);
	if (!walk.ends(kRoot, vexil::Link::kNext))
		return false;
	if (load<Header>(parts.image).binType == vexil::kPimImageKind)
		return vexil::verify_map(walk);
	return vexil::verify_rules(walk) && vexil::verify_rings(walk);
}

constexpr const char *kTexts[VEXIL_IMAGE_CODES] = {
	"the image is sound",
	"there was no memory to examine the image with",
	"there are fewer bytes than an image's head and figures",
	"the image is neither a map nor rules",
	"the image was not written by code of version 2.0 to 2.2",
	"the figures of the nodes contradict each other",
	"the figures of the data contradict each other",
	"the image goes on behind the end of the buffer",
	"the head says another size than the image has",
	"there is no root",
	"there are more nodes than ids",
	"a node stores the id of another",
	"a node has a tag that nothing has",
	"a link leads out of the nodes",
	"a record lies outside of the data",
	"a record does not begin at a multiple of 8",
	"a record lies in or before the record of an earlier node",
	"a node is reached twice",
	"a node stands where it cannot be",
	"a node is missing",
	"a record has the wrong size for its kind",
	"a text has no end",
	"a name cannot be indexed",
	"a setting has a level that is none",
	"a register list's count does not go with its length",
	"there are more key bits or value slots than there can be",
	"the number of key bits or of value slots is there twice",
	"a source's field or code does not fit",
	"a key record is not of the key's size",
	"there is no such value slot",
	"a range is over a node that is no value slot",
	"an outcome has no id",
	"an outcome leads to no rule",
	"a rule leads back to itself",
};

} // namespace

extern "C" {

bool vexil_image_verify(const void *buf, u32 size, vexil_image_fault *fault)
{
	const auto *const image = static_cast<const u8 *>(buf);
	static_cast<void>(report_fault(fault, VEXIL_IMAGE_SOUND, 0));
	if (!image || size < kImageOverhead)
		return report_fault(fault, VEXIL_IMAGE_TOO_SHORT, image ? size : 0);
	ImageParts parts;
	return check_header(image, fault) && read_parts(image, size, &parts, fault) &&
	       check_nodes(parts, fault) && check_tree(parts, fault);
}

const char *vexil_image_code_text(u32 code)
{
	return code < VEXIL_IMAGE_CODES ? kTexts[code] : "a fault of an unknown kind";
}

} // extern "C"
