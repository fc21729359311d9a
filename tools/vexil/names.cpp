// SPDX-License-Identifier: MIT

#include "names.h"

#include <fmt/format.h>

#include <vexil/reg_info.h>
#include <vexil/tags.h>

namespace vexil_tool {

namespace {

struct NamedTag {
	int tag;
	const char *name;
};

/** Those that maps use. */
constexpr NamedTag kTags[] = {
	{EXTMEM_TAG_UNSPECIFIED, "UNSPECIFIED"},
	{EXTMEM_TAG_GENERAL, "GENERAL"},
	{EXTMEM_TAG_CUSTOM_BEGIN, "CUSTOM_BEGIN"},
	{EXTMEM_TAG_IP, "IP"},
	{EXTMEM_TAG_IP_SETTING, "IP_SETTING"},
	{EXTMEM_TAG_IP_CONFIG, "IP_CONFIG"},
	{EXTMEM_TAG_IP_PRESET_REG_CONFIG, "IP_PRESET_REG_CONFIG"},
	{EXTMEM_TAG_IP_COMMON_REG_CONFIG, "IP_COMMON_REG_CONFIG"},
	{EXTMEM_TAG_PROPERTY, "PROPERTY"},
	{EXTMEM_TAG_FILE, "FILE"},
	{EXTMEM_TAG_FUNCTION_DATA, "FUNCTION_DATA"},
	{EXTMEM_TAG_ALGORITHM_DATA, "ALGORITHM_DATA"},
	{EXTMEM_TAG_PQLEVEL, "PQLEVEL"},
	{EXTMEM_TAG_VERSION, "VERSION"},
	{EXTMEM_TAG_DATA, "DATA"},
	{EXTMEM_TAG_STRING_HOLDER, "STRING_HOLDER"},
	{EXTMEM_TAG_REGISTER_SETTINGS, "REGISTER_SETTINGS"},
	{EXTMEM_TAG_VREGISTER_SETTINGS, "VREGISTER_SETTINGS"},
	{EXTMEM_TAG_REGISTER_ADDR_SETTINGS, "REGISTER_ADDR_SETTINGS"},
	{EXTMEM_TAG_REGISTER_RIU_SETTINGS, "REGISTER_RIU_SETTINGS"},
	{EXTMEM_TAG_PQLEVEL_HOLDER, "PQLEVEL_HOLDER"},
	{EXTMEM_TAG_REGISTER_ADDR_IND_SETTINGS, "REGISTER_ADDR_IND_SETTINGS"},
	{EXTMEM_TAG_REGISTER_ADDR_PI_SETTINGS, "REGISTER_ADDR_PI_SETTINGS"},
	{EXTMEM_TAG_REGISTER_ADDR_L1_SETTINGS, "REGISTER_ADDR_L1_SETTINGS"},
	{EXTMEM_TAG_REGISTER_ADDR_L2_SETTINGS, "REGISTER_ADDR_L2_SETTINGS"},
	{EXTMEM_TAG_REGISTER_ADDR_L3_SETTINGS, "REGISTER_ADDR_L3_SETTINGS"},
	{EXTMEM_TAG_VERSION_HOLDER, "VERSION_HOLDER"},
	{EXTMEM_TAG_CUS_VREGISTER_SETTINGS, "CUS_VREGISTER_SETTINGS"},
	{EXTMEM_TAG_REGISTER_SYNC_SETTINGS, "REGISTER_SYNC_SETTINGS"},
};

} // namespace

std::string tag_name(int tag)
{
	for (const NamedTag &row : kTags) {
		if (row.tag == tag)
			return row.name;
	}
	return fmt::format("TAG_{}", tag);
}

std::string level_name(u32 level)
{
	switch (level) {
	case E_PQLV_INDIVIDUAL:
		return "IND";
	case E_PQLV_PI_SETTING:
		return "PI";
	case E_PQLV_OPTION_L1:
		return "L1";
	case E_PQLV_OPTION_L2:
		return "L2";
	case E_PQLV_OPTION_L3:
		return "L3";
	case E_PQLV_DEFAULT:
		return "default";
	case E_PQLV_PRESETREGS:
		return "preset";
	case E_PQLV_SYNC:
		return "SYNC";
	default:
		return fmt::format("level {}", level);
	}
}

std::string version_text(const vexil_version &version)
{
	return fmt::format("{}.{}.{}", version.u16MajorNumber, version.u16MinorNumber,
			   version.u32Revision);
}

} // namespace vexil_tool
