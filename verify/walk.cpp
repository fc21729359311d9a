// SPDX-License-Identifier: MIT

#include "verify/walk.h"

#include "core/ctrie.h"
#include "core/number.h"

namespace {

/** True for a text that adoption can enter into an index. */
bool can_be_indexed(const char *name)
{
	if (*name == '\0')
		return false;
	for (; *name != '\0'; ++name) {
		const unsigned char c = vexil::lower(*name);
		if (c >= sizeof ctrie_char_remap || ctrie_char_remap[c] == CT_CH_NV)
			return false;
	}
	return true;
}

} // namespace

namespace vexil {

bool report_fault(vexil_image_fault *fault, vexil_image_code code, size_t offset, u16 node,
		  u16 other)
{
	if (fault)
		*fault = {code, static_cast<u32>(offset), node, other};
	return code == VEXIL_IMAGE_SOUND;
}

bool ImageWalk::misplaced(u16 of, Link link)
{
	const u16 id = follow(of, link);
	return id == kNoNode ? fail(VEXIL_IMAGE_MISSING_NODE, link_at(of, link), of)
			     : fail(VEXIL_IMAGE_MISPLACED, node_at(id, kTagAt), id, of);
}

bool ImageWalk::enter(u16 of, Link link, int wanted, u16 *to)
{
	const u16 id = follow(of, link);
	if (id == kNoNode || tag(id) != wanted)
		return misplaced(of, link);
	if (reached_.has(id))
		return fail(VEXIL_IMAGE_NODE_SHARED, link_at(of, link), id, of);
	reached_.set(id);
	*to = id;
	return true;
}

bool ImageWalk::ends(u16 of, Link link)
{
	return follow(of, link) == kNoNode || misplaced(of, link);
}

bool ImageWalk::enter_record(u16 of, Link link, int wanted, size_t size, u16 *to)
{
	if (!enter(of, link, wanted, to))
		return false;
	return record(*to).size() == size ||
	       fail(VEXIL_IMAGE_RECORD_SIZE, node_at(*to, kSizeAt), *to, of);
}

bool ImageWalk::enter_text(u16 of, Link link, u16 *to)
{
	u16 holder;
	if (!enter(of, link, EXTMEM_TAG_STRING_HOLDER, &holder))
		return false;
	if (to)
		*to = holder;
	const Span<const u8> text = record(holder);
	if (text && memchr(text.data(), '\0', text.size()))
		return true;
	return text ? fail_in(holder, VEXIL_IMAGE_STRING)
		    : fail(VEXIL_IMAGE_STRING, node_at(holder, kSizeAt), holder);
}

bool ImageWalk::enter_name(u16 node, u16 *property)
{
	return enter(node, Link::kNext, EXTMEM_TAG_PROPERTY, property) &&
	       enter_text(*property, Link::kChild);
}

bool ImageWalk::enter_indexed_name(u16 node, u16 *property)
{
	if (!enter_name(node, property))
		return false;
	const u16 text = child(*property);
	return can_be_indexed(reinterpret_cast<const char *>(record(text).data())) ||
	       fail_in(text, VEXIL_IMAGE_NAME);
}

bool ImageWalk::enter_version(u16 property)
{
	u16 version;
	u16 holder;
	return enter(property, Link::kNext, EXTMEM_TAG_VERSION, &version) &&
	       enter_record(version, Link::kChild, EXTMEM_TAG_VERSION_HOLDER, sizeof(vexil_version),
			    &holder) &&
	       ends(version, Link::kNext);
}

} // namespace vexil
