// SPDX-License-Identifier: MIT
//
// What the verifier says of an image, in a form that tests compare, and the two sound images from
// which those with one defect are made.
#pragma once

#include <gtest/gtest.h>

#include <vexil/verify.h>

#include <cstring>
#include <ostream>
#include <vector>

#include "tests/support/platform.h"
#include "tests/support/rm_images.h"

inline bool operator==(const vexil_image_fault &a, const vexil_image_fault &b)
{
	return a.code == b.code && a.offset == b.offset && a.node == b.node && a.other == b.other;
}

inline void PrintTo(const vexil_image_fault &fault, std::ostream *to)
{
	*to << "{" << static_cast<int>(fault.code) << " (" << vexil_image_code_text(fault.code)
	    << "), byte " << fault.offset << ", node " << fault.node << ", other " << fault.other
	    << "}";
}

namespace vexil_test {

using Fault = vexil_image_fault;

inline const Fault kSound{VEXIL_IMAGE_SOUND, 0, kNoId, kNoId};

/**
 * The verifier's answer for a buffer of exactly these bytes, which it must leave as they are. It
 * may take one block of one bit per node, and gives it back.
 */
inline Fault fault_of(const std::vector<char> &bytes)
{
	const std::vector<char> buffer(bytes);
	const std::size_t blocks = live_blocks();
	const std::size_t requests = allocations();
	Fault fault;
	std::memset(&fault, 0xA5, sizeof fault);
	const bool sound =
		vexil_image_verify(buffer.data(), static_cast<u32>(buffer.size()), &fault);
	EXPECT_EQ(sound, fault.code == VEXIL_IMAGE_SOUND);
	EXPECT_EQ(live_blocks(), blocks);
	EXPECT_LE(allocations(), requests + 1);
	if (allocations() > requests) {
		u32 nodes;
		std::memcpy(&nodes, bytes.data() + 88, sizeof nodes);
		EXPECT_LE(last_request().size, (nodes / 16 + 7) / 8);
	}
	EXPECT_EQ(buffer, bytes) << "the verifier wrote into the image";
	return fault;
}

inline Fault fault_of(const ImageBytes &image)
{
	return fault_of(image.bytes());
}

inline Fault fault_of(const PimImage &plan)
{
	return fault_of(plan.write());
}

/** Where a field of a node stands in the image. */
inline u32 field_at(u16 node, std::size_t field)
{
	return static_cast<u32>(ImageBytes::node_at(node) + field);
}

inline constexpr std::size_t kTagField = 2;
inline constexpr std::size_t kChildField = 3;
inline constexpr std::size_t kNextField = 5;
inline constexpr std::size_t kSizeField = 3;
inline constexpr std::size_t kOffsetField = 7;

/** A map with one of everything. */
struct SmallMap {
	PimImage plan;
	u16 ip = plan.ip("scaler");
	u16 setting = plan.setting(ip, "mode", E_PQLV_DEFAULT);
	u16 config = plan.config(setting, "mode#soft");
	u16 list = plan.list(config, {{3, 0x12}, {4, 0x13}});
	u16 software = plan.list(config, {{1, 1}}, EXTMEM_TAG_VREGISTER_SETTINGS);
	u16 table = plan.file_block(config, EXTMEM_TAG_FUNCTION_DATA, "curve.bin", "gamma");
	u16 algorithm = plan.file_block(config, EXTMEM_TAG_ALGORITHM_DATA, "curve.bin", "steps");
	u16 common = plan.config(setting, "mode#commonReg", EXTMEM_TAG_IP_COMMON_REG_CONFIG);
	u16 common_list = plan.list(common, {}, EXTMEM_TAG_REGISTER_RIU_SETTINGS);
	u16 presets = plan.setting(ip, "tint", E_PQLV_PRESETREGS);
	u16 table_name = plan.add_text("panel");
	u16 warm = plan.preset(presets, "tint#warm", table_name);
	u16 cold = plan.preset(presets, "tint#cold", table_name);
	u16 address_list = plan.list(cold, {{0x08000010, 0xFF0012}, {0, 0}},
				     EXTMEM_TAG_REGISTER_ADDR_SETTINGS);
	u16 file = plan.file("curve.bin", "bytes");
	u16 bare = plan.ip("empty");

	[[nodiscard]] u16 property(u16 node) const { return plan.next(node); }
	[[nodiscard]] u16 text(u16 node) const { return plan.child(plan.next(node)); }
	/** The VERSION or PQLEVEL behind a property. */
	[[nodiscard]] u16 third(u16 node) const { return plan.next(plan.next(node)); }
	/** The node whose first child is @node. */
	[[nodiscard]] u16 parent(u16 node) const
	{
		for (std::size_t i = 0; i < plan.nodes(); ++i) {
			const auto id = static_cast<u16>(i);
			const ImageBytes image = plan.write();
			if (image.tag(id) < EXTMEM_TAG_DATA_TYPE_BEGIN && plan.child(id) == node)
				return id;
		}
		return kNoId;
	}
};

/** A rule image with one of everything: a key of three bits, one slot. */
struct SmallRules {
	RuleImage plan;
	u16 hdmi = plan.source("Input:HDMI", {0, 2, 1, 0});
	u16 tuner = plan.source("Input:Tuner", {0, 2, 2, 0});
	u16 slot = plan.value_source("Luma", {2, 1, 1, 0}, 0);
	u16 luma = static_cast<u16>(slot - 5); // label, field, name with its text, holder, slot
	u16 dark = plan.redefined("Scene:Dark");
	u16 dark_range = plan.redefinition(dark, {slot, {}, 0, 10});
	u16 unset = plan.redefined("Scene:Any");
	u16 rule = plan.rule("Picture");
	u16 body = plan.add_case(rule);
	u16 key = plan.alternative(body, {1}, {3});
	u16 range = plan.condition(key, {slot, {}, 3, 9});
	u16 values = plan.outcome(body, EXTMEM_TAG_VALUE_HOLDER, {100, 101});
	u16 presets = plan.outcome(body, EXTMEM_TAG_PRESET_HOLDER, {200});
	u16 second = plan.add_case(rule);
	u16 second_key = plan.alternative(second, {2}, {3});
	u16 leaf = plan.rule("Detail");
	u16 leaf_body = plan.add_case(leaf);
	u16 leaf_key = plan.alternative(leaf_body, {0}, {0});
	u16 child = plan.outcome(second, EXTMEM_TAG_NODE_HOLDER, {leaf});
	u16 never = plan.outcome(second, EXTMEM_TAG_NODE_HOLDER, {kNoId});
	u16 bits = plan.used_bits(3);
	u16 slots = plan.res_num(1);

	[[nodiscard]] u16 text(u16 node) const { return plan.child(plan.next(node)); }
};

} // namespace vexil_test
