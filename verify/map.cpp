// SPDX-License-Identifier: MIT
//
// The tree of a map: pim/layout.h draws it.

#include "pim/layout.h"
#include "verify/walk.h"

namespace {

using vexil::ImageWalk;
using vexil::kNoNode;
using vexil::Link;

/** How a list's count goes with its length. */
enum class Pairs {
	kAll,    // every pair of the record counts
	kJoined, // pairs of one register were joined: those behind the counted ones are left over
};

struct ListKind {
	int tag;
	Pairs pairs;
};
constexpr ListKind kListKinds[] = {
	{EXTMEM_TAG_REGISTER_SETTINGS, Pairs::kAll},
	{EXTMEM_TAG_VREGISTER_SETTINGS, Pairs::kAll},
	{EXTMEM_TAG_CUS_VREGISTER_SETTINGS, Pairs::kAll},
	{EXTMEM_TAG_REGISTER_ADDR_SETTINGS, Pairs::kJoined},
	{EXTMEM_TAG_REGISTER_ADDR_IND_SETTINGS, Pairs::kJoined},
	{EXTMEM_TAG_REGISTER_ADDR_PI_SETTINGS, Pairs::kJoined},
	{EXTMEM_TAG_REGISTER_ADDR_L1_SETTINGS, Pairs::kJoined},
	{EXTMEM_TAG_REGISTER_ADDR_L2_SETTINGS, Pairs::kJoined},
	{EXTMEM_TAG_REGISTER_ADDR_L3_SETTINGS, Pairs::kJoined},
	// A configuration's list stays as it is at this level; a preset's would be joined.
	{EXTMEM_TAG_REGISTER_SYNC_SETTINGS, Pairs::kJoined},
};

bool check_list(ImageWalk &walk, u16 holder, const ListKind &kind)
{
	u16 list;
	if (!walk.enter(holder, Link::kChild, kind.tag, &list))
		return false;
	const size_t size = walk.record(list).size();
	if (size < vexil::kRegListHeader || (size - vexil::kRegListHeader) % sizeof(func_pair) != 0)
		return walk.fail(VEXIL_IMAGE_RECORD_SIZE, ImageWalk::node_at(list, vexil::kSizeAt),
				 list, holder);
	const size_t room = (size - vexil::kRegListHeader) / sizeof(func_pair);
	const size_t count = walk.value<u32>(list);
	return count == room || (kind.pairs == Pairs::kJoined && count < room) ||
	       walk.fail_in(list, VEXIL_IMAGE_REGISTER_LIST);
}

/** A file's name below the block, the handler's label or the entry's name behind it. */
bool check_binding(ImageWalk &walk, u16 holder, int tag)
{
	u16 block;
	return walk.enter(holder, Link::kChild, tag, &block) &&
	       walk.enter_text(block, Link::kChild) && walk.enter_text(block, Link::kNext);
}

bool check_block(ImageWalk &walk, u16 holder)
{
	const u16 block = walk.child(holder);
	const int tag = block == kNoNode ? int{EXTMEM_TAG_INVALID} : walk.tag(block);
	if (tag == EXTMEM_TAG_FUNCTION_DATA || tag == EXTMEM_TAG_ALGORITHM_DATA)
		return check_binding(walk, holder, tag);
	for (const ListKind &kind : kListKinds) {
		if (kind.tag == tag)
			return check_list(walk, holder, kind);
	}
	return walk.misplaced(holder, Link::kChild);
}

bool check_common_block(ImageWalk &walk, u16 holder)
{
	return check_list(walk, holder, {EXTMEM_TAG_REGISTER_RIU_SETTINGS, Pairs::kAll});
}

/**
 * The name of a preset's register table.
 * @shared: the text that the members of the setting share, kNoNode before the first
 */
bool check_table(ImageWalk &walk, u16 property, u16 *shared)
{
	const u16 table = walk.next(property);
	return (table != kNoNode && table == *shared) ||
	       walk.enter_text(property, Link::kNext, shared);
}

bool check_config(ImageWalk &walk, u16 holder, u16 *table)
{
	const u16 config = walk.child(holder);
	const int tag = config == kNoNode ? int{EXTMEM_TAG_INVALID} : walk.tag(config);
	if (tag != EXTMEM_TAG_IP_CONFIG && tag != EXTMEM_TAG_IP_PRESET_REG_CONFIG &&
	    tag != EXTMEM_TAG_IP_COMMON_REG_CONFIG)
		return walk.misplaced(holder, Link::kChild);
	u16 entered;
	u16 property;
	if (!walk.enter(holder, Link::kChild, tag, &entered) || !walk.enter_name(config, &property))
		return false;
	if (!(tag == EXTMEM_TAG_IP_PRESET_REG_CONFIG ? check_table(walk, property, table)
						     : walk.ends(property, Link::kNext)))
		return false;
	return walk.chain(config, Link::kChild, EXTMEM_TAG_GENERAL, [&](u16 block_holder) {
		return tag == EXTMEM_TAG_IP_COMMON_REG_CONFIG
			       ? check_common_block(walk, block_holder)
			       : check_block(walk, block_holder);
	});
}

bool check_setting(ImageWalk &walk, u16 holder)
{
	u16 setting;
	u16 property;
	u16 level;
	u16 record;
	if (!walk.enter(holder, Link::kChild, EXTMEM_TAG_IP_SETTING, &setting) ||
	    !walk.enter_name(setting, &property) ||
	    !walk.enter(property, Link::kNext, EXTMEM_TAG_PQLEVEL, &level) ||
	    !walk.enter_record(level, Link::kChild, EXTMEM_TAG_PQLEVEL_HOLDER, sizeof(u32),
			       &record) ||
	    !walk.ends(level, Link::kNext))
		return false;
	if (walk.value<u32>(record) >= vexil::kPqLevels)
		return walk.fail_in(record, VEXIL_IMAGE_LEVEL);
	u16 table = kNoNode;
	return walk.chain(setting, Link::kChild, EXTMEM_TAG_GENERAL, [&](u16 config_holder) {
		return check_config(walk, config_holder, &table);
	});
}

bool check_ip(ImageWalk &walk, u16 holder)
{
	u16 ip;
	u16 property;
	return walk.enter(holder, Link::kChild, EXTMEM_TAG_IP, &ip) &&
	       walk.enter_name(ip, &property) && walk.enter_version(property) &&
	       walk.chain(ip, Link::kChild, EXTMEM_TAG_GENERAL,
			  [&](u16 setting_holder) { return check_setting(walk, setting_holder); });
}

bool check_file(ImageWalk &walk, u16 holder)
{
	u16 file;
	u16 data;
	u16 property;
	if (!walk.enter(holder, Link::kChild, EXTMEM_TAG_FILE, &file) ||
	    !walk.enter(file, Link::kChild, EXTMEM_TAG_DATA, &data))
		return false;
	if (walk.record(data).empty())
		return walk.fail(VEXIL_IMAGE_RECORD_SIZE, ImageWalk::node_at(data, vexil::kSizeAt),
				 data, file);
	return walk.enter_indexed_name(file, &property) && walk.ends(property, Link::kNext);
}

} // namespace

namespace vexil {

bool verify_map(ImageWalk &walk)
{
	constexpr u16 kRoot = 0;
	return walk.chain(kRoot, Link::kChild, EXTMEM_TAG_GENERAL, [&](u16 holder) {
		const u16 node = walk.child(holder);
		return node != kNoNode && walk.tag(node) == EXTMEM_TAG_FILE
			       ? check_file(walk, holder)
			       : check_ip(walk, holder);
	});
}

} // namespace vexil
