// SPDX-License-Identifier: MIT

#include "pim/regmerge.h"

#include "core/scratch.h"

namespace {

using vexil::Bytes;
using vexil::Span;

constexpr u32 kAddressMask = 0x07FFFFFF;
constexpr u32 kDomainShift = 27; // an address-form word is domain, address
constexpr u32 kFieldBits = 16;   // width of a hardware register
constexpr u32 kFieldMask = 0xFFFF;

/** Lists of more pairs are sorted to find equal registers, so that cost stays linear. */
constexpr u32 kPlainSearchPairs = 512;

constexpr int kLevelTags[vexil::kPqLevels] = {
	EXTMEM_TAG_REGISTER_ADDR_IND_SETTINGS, // E_PQLV_INDIVIDUAL
	EXTMEM_TAG_REGISTER_ADDR_PI_SETTINGS,  // E_PQLV_PI_SETTING
	EXTMEM_TAG_REGISTER_ADDR_L1_SETTINGS,  // E_PQLV_OPTION_L1
	EXTMEM_TAG_REGISTER_ADDR_L2_SETTINGS,  // E_PQLV_OPTION_L2
	EXTMEM_TAG_REGISTER_ADDR_L3_SETTINGS,  // E_PQLV_OPTION_L3
	EXTMEM_TAG_REGISTER_ADDR_SETTINGS,     // E_PQLV_DEFAULT
	EXTMEM_TAG_REGISTER_ADDR_SETTINGS,     // E_PQLV_PRESETREGS
	EXTMEM_TAG_REGISTER_SYNC_SETTINGS,     // E_PQLV_SYNC
};

extmem_tag tag_for_level(u32 level)
{
	return static_cast<extmem_tag>(level < vexil::kPqLevels ? kLevelTags[level]
								: EXTMEM_TAG_REGISTER_ADDR_SETTINGS);
}

func_pair pair_at(Bytes list, u32 index)
{
	return vexil::load<func_pair>(list.data() + vexil::reg_list_bytes(index));
}

void set_pair(Bytes list, u32 index, func_pair pair)
{
	vexil::store(list.data() + vexil::reg_list_bytes(index), pair);
}

/** Index and field value become domain and address, write mask and register value. */
func_pair address_form(const ST_PQ_REG_INFO &reg, u32 value)
{
	const u32 lsb = (reg.u32Mask >> 8) & 0xFF;
	const u32 width = reg.u32Mask >> 16;
	const bool inside = width >= 1 && lsb + width <= kFieldBits;
	const u64 write_mask = inside ? ((u64{1} << width) - 1) << lsb : 0;
	const u64 value_mask = (u64{1} << (width % 32)) - 1;
	const u64 placed = lsb < kFieldBits ? (value & value_mask) << lsb : 0;
	// Read as a number: the table is the caller's, and may hold what is no domain.
	const u64 domain = u64{vexil::load<u32>(&reg.e_pq_time_domain)} << kDomainShift;
	return {.fn_idx = static_cast<u32>(domain) | (reg.u32Addr & kAddressMask),
		.fn_para = static_cast<u32>(placed & kFieldMask) |
			   static_cast<u32>(write_mask) << kFieldBits};
}

/** The flag is a byte of the caller's and may hold anything. */
bool usable(const ST_PQ_REG_INFO &reg)
{
	return vexil::load<u8>(&reg.b_valid) == 1;
}

/** Rewrites each pair whose register the table knows; unusable ones become holes. */
void translate_pairs(const pim *map, Bytes list)
{
	const u32 pairs = vexil::pair_count(list);
	for (u32 i = 0; i < pairs; ++i) {
		const func_pair pair = pair_at(list, i);
		if (pair.fn_idx >= map->reg_info_table_size)
			continue;
		const ST_PQ_REG_INFO &reg = map->reg_info_table[pair.fn_idx];
		set_pair(list, i, usable(reg) ? address_form(reg, pair.fn_para) : func_pair{});
	}
}

constexpr size_t kByteValues = 256;

/** Stable, by one byte of each pair's word: @from in the order of that byte into @to. */
void sort_by_byte(Bytes list, u32 shift, Span<const u32> from, u32 *to, u32 *starts)
{
	memset(starts, 0, kByteValues * sizeof *starts);
	const auto byte_of = [&](u32 i) { return (pair_at(list, i).fn_idx >> shift) & 0xFF; };
	for (const u32 i : from)
		++starts[byte_of(i)];
	u32 sum = 0;
	for (u32 value = 0; value < kByteValues; ++value) {
		const u32 count = starts[value];
		starts[value] = sum;
		sum += count;
	}
	for (const u32 i : from)
		to[starts[byte_of(i)]++] = i;
}

/**
 * For each pair of a long list, the first one of the same register. Sorted rather than hashed: an
 * image chooses the words, and could choose those that collide.
 */
class FirstOf {
public:
	FirstOf(const extmem_builder &store, Bytes list, u32 pairs)
	    : list_(list),
	      block_(store, pairs > kPlainSearchPairs ? kByteValues + 2 * size_t{pairs} : 0)
	{
		if (!block_)
			return;
		order_ = block_.get() + kByteValues;
		first_ = order_ + pairs;
		u32 *sorted = order_;
		u32 *spare = first_;
		for (u32 i = 0; i < pairs; ++i)
			sorted[i] = i;
		for (u32 shift = 0; shift < 32; shift += 8) {
			sort_by_byte(list, shift, {sorted, pairs}, spare, block_.get());
			u32 *const swap = sorted;
			sorted = spare;
			spare = swap;
		}
		// Four passes: the order is back in order_, and first_ is free.
		u32 first = order_[0];
		for (u32 i = 0; i < pairs; ++i) {
			const u32 pair = order_[i];
			if (pair_at(list, pair).fn_idx != pair_at(list, first).fn_idx)
				first = pair;
			first_[pair] = first;
		}
	}

	/** Where pair @j's register stands among the first @filled, or @filled. */
	u32 find(u32 j, u32 filled) const
	{
		if (block_)
			return first_[j] == j ? filled : order_[first_[j]];
		// A short list, or no memory: the plain way, with the same result.
		const u32 word = pair_at(list_, j).fn_idx;
		u32 at = 0;
		while (at < filled && pair_at(list_, at).fn_idx != word)
			++at;
		return at;
	}
	/** Pair @j, the first of its register, stands at @position now. */
	void placed(u32 j, u32 position)
	{
		if (block_)
			order_[j] = position;
	}

private:
	Bytes list_;
	vexil::Scratch<u32> block_; // counts for sorting, then the two below; null for short lists
	u32 *order_ = nullptr;      // once sorted: by first pair, where it was placed
	u32 *first_ = nullptr;
};

/**
 * Joins pairs of one register in place, first-seen order kept; a pair of word 0 is a hole that the
 * next new register fills. Filled pairs always stand before holes. A first hole counts as kept, also
 * when a later pair fills it: readers of existing images expect that count.
 */
void join_pairs(const extmem_builder &store, Bytes list)
{
	const u32 pairs = vexil::pair_count(list);
	FirstOf first_of(store, list, pairs);
	u32 filled = 0;
	u32 kept = 0;
	for (u32 j = 0; j < pairs; ++j) {
		const func_pair pair = pair_at(list, j);
		const bool hole_before = filled < j;
		const u32 same = pair.fn_idx != 0 ? first_of.find(j, filled) : filled;
		const bool joins = pair.fn_idx != 0 ? same < filled : hole_before;
		if (joins) {
			func_pair first = pair_at(list, same);
			first.fn_para |= pair.fn_para;
			set_pair(list, same, first);
			set_pair(list, j, {});
			continue;
		}
		++kept;
		if (pair.fn_idx == 0)
			continue; // the first hole
		if (hole_before) {
			set_pair(list, filled, pair);
			set_pair(list, j, {});
		}
		first_of.placed(j, filled);
		++filled;
	}
	vexil::store(list.data(), kept);
}

/** A register list with at least one pair and room for all that it announces. */
bool has_pairs(Bytes list)
{
	return vexil::holds_its_pairs(list) && vexil::pair_count(list) >= 1;
}

bool is_address_tag(int tag)
{
	return tag == EXTMEM_TAG_REGISTER_ADDR_SETTINGS || vexil::is_hardware_level_tag(tag);
}

} // namespace

namespace vexil {

void RegMerge::config(node_d config)
{
	const int tag = extmem_fetch_tag(config);
	if (tag == EXTMEM_TAG_IP_CONFIG && level_ == E_PQLV_SYNC) {
		for (const node_d holder : Children(config, budget_))
			synchronise(child_of(holder));
	}
	if (tag != EXTMEM_TAG_IP_COMMON_REG_CONFIG && map_->reg_info_table) {
		for (const node_d holder : Children(config, budget_))
			translate(child_of(holder));
	}
}

void RegMerge::synchronise(node_d item)
{
	if (extmem_fetch_tag(item) == EXTMEM_TAG_REGISTER_SETTINGS)
		extmem_set_tag(item, EXTMEM_TAG_REGISTER_SYNC_SETTINGS);
	if (extmem_fetch_tag(item) == EXTMEM_TAG_REGISTER_SYNC_SETTINGS)
		count(payload(item));
}

void RegMerge::translate(node_d item)
{
	const Bytes list = payload(item);
	if (!has_pairs(list))
		return;
	if (extmem_fetch_tag(item) == EXTMEM_TAG_REGISTER_SETTINGS) {
		if (!budget_.spend_bytes(list.size()))
			return;
		translate_pairs(map_, list);
		join_pairs(map_->builder, list);
		extmem_set_tag(item, tag_for_level(level_));
	}
	if (is_address_tag(extmem_fetch_tag(item)))
		count(list);
}

void RegMerge::count(Bytes list)
{
	constexpr u16 kMost = 0xFFFF;
	if (counted_ || !has_pairs(list) || !budget_.spend_bytes(list.size()))
		return;
	counted_ = true;
	if (level_ >= kPqLevels)
		return;
	const u32 pairs = pair_count(list);
	for (u32 i = 0; i < pairs; ++i) {
		const u32 word = pair_at(list, i).fn_idx;
		const u32 domain = word >> kDomainShift;
		if (word == 0 || domain >= kTimeDomains)
			continue;
		u16 &registers = map_->reg_level_num[domain][level_];
		if (registers < kMost)
			++registers;
	}
}

} // namespace vexil

extern "C" u32 pim_get_reg_num(pim *pPim, u8 eDomain, EN_PQ_LEVEL ePqLevel)
{
	const u32 level = static_cast<u32>(ePqLevel);
	if (!pPim || eDomain > E_PQ_MAX_DOMAIN || level > E_PQLV_MAX)
		return 0;
	const size_t first_domain = eDomain == E_PQ_MAX_DOMAIN ? 0 : eDomain;
	const size_t end_domain = eDomain == E_PQ_MAX_DOMAIN ? vexil::kTimeDomains : eDomain + 1u;
	const size_t first_level = level == E_PQLV_MAX ? 0 : level;
	const size_t end_level = level == E_PQLV_MAX ? vexil::kPqLevels : level + 1u;
	u32 sum = 0;
	for (size_t domain = first_domain; domain < end_domain; ++domain) {
		for (size_t l = first_level; l < end_level; ++l)
			sum += pPim->reg_level_num[domain][l];
	}
	return sum;
}
