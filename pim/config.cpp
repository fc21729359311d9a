// SPDX-License-Identifier: MIT
//
// One group member into a configuration: six sections, one table.

#include "core/bytes.h"
#include "core/fail.h"
#include "core/scratch.h"
#include "extmem/tree.h"
#include "pim/common.h"
#include "pim/entries.h"
#include "pim/layout.h"

namespace {

using vexil::Entries;
using vexil::kInvalidNode;
using vexil::kNoValue;
using vexil::RegisterNames;

/** A configuration being made. */
struct Config {
	pim *map;
	node_d node;
	node_d last_block;      // invalid before the first
	const reg_func *common; // pairs that the common configuration delivers; may be null
};

/** A kind of block: its key in documents, and how its entries are stored. */
struct Section {
	const char *key;
	/** False when the store has no room; bad entries are logged and skipped. */
	bool (*store)(Config &config, const Section &section, const cJSON *entries);
	extmem_tag tag;
	RegisterNames names;
};

/** The node that will hold the next block. */
node_d new_holder(const Config &config)
{
	return extmem_request_node(&config.map->builder, EXTMEM_TAG_GENERAL);
}

/** Puts a holder at the end of the configuration. */
void append_holder(Config &config, node_d holder)
{
	config.last_block = extmem_append_child_cond(config.node, config.last_block, holder);
}

/**
 * Stores the pairs of all entries that @resolve accepts as one register list; none at all when the
 * list would be empty.
 */
template <typename Resolve>
bool store_list(Config &config, const Section &section, const cJSON *list, Resolve resolve)
{
	const Entries entries(list);
	if (entries.empty())
		return true;
	vexil::Scratch<u8> scratch(config.map->builder,
				   vexil::reg_list_bytes(entries.count()));
	if (!scratch)
		return false;
	auto *regs = reinterpret_cast<reg_func *>(scratch.get());
	for (const cJSON *entry : entries) {
		func_pair pair;
		if (resolve(entry, &pair))
			regs->fn_tbl[regs->fn_num++] = pair;
	}
	if (regs->fn_num == 0)
		return true;
	const node_d holder = new_holder(config);
	const node_d item = vexil::add_record(holder, section.tag, regs,
					      vexil::reg_list_bytes(regs->fn_num));
	if (!extmem_node_isvalid(item))
		return false;
	append_holder(config, holder);
	return true;
}

bool store_hardware(Config &config, const Section &section, const cJSON *list)
{
	return store_list(config, section, list, [&](const cJSON *entry, func_pair *pair) {
		return vexil::resolve_register(config.map, section.names, entry, pair) &&
		       !(config.common && vexil::contains(config.common, *pair));
	});
}

bool store_registers(Config &config, const Section &section, const cJSON *list)
{
	return store_list(config, section, list, [&](const cJSON *entry, func_pair *pair) {
		return vexil::resolve_register(config.map, section.names, entry, pair);
	});
}

bool store_addresses(Config &config, const Section &section, const cJSON *list)
{
	constexpr unsigned int kDetectBase = 0;
	return store_list(config, section, list, [&](const cJSON *entry, func_pair *pair) {
		const char *text = vexil::name_of(entry);
		unsigned long long address = 0;
		if (!text || kstrtoull(text, kDetectBase, &address) != 0 || address == 0) {
			config.map->builder.print_error("[VEXIL][PIM][%s] Error hw_addr %s\n",
							section.names.function,
							entry ? vexil::shown(text) : "");
			return false;
		}
		*pair = {static_cast<u32>(address), static_cast<u32>(vexil::number_of(entry))};
		return true;
	});
}

/** A block that binds @entry's name to a file: the file's name below, the entry's beside it. */
bool store_binding(Config &config, extmem_tag tag, const char *file, const char *entry)
{
	const node_d holder = new_holder(config);
	const node_d block = vexil::add_child(holder, tag);
	if (!extmem_node_isvalid(vexil::add_text(block, file)) ||
	    !extmem_append_next(block, vexil::new_text(block.owner, entry)))
		return false;
	append_holder(config, holder);
	return true;
}

bool is_file(const pim *map, const char *name)
{
	return ctrie_find(&map->file_map, name) != kNoValue;
}

bool store_tables(Config &config, const Section &section, const cJSON *list)
{
	pim *map = config.map;
	for (const cJSON *entry : Entries(list)) {
		const char *label = vexil::name_of(entry);
		const bool known = ctrie_find(&map->fn_map, label) != kNoValue;
		const char *file = known ? vexil::text_of(entry) : nullptr;
		if (!is_file(map, file)) {
			map->builder.print_error(section.names.unknown, section.names.function,
						 vexil::shown(file));
			continue;
		}
		if (!store_binding(config, section.tag, file, label))
			return false;
	}
	return true;
}

bool store_algorithms(Config &config, const Section &section, const cJSON *list)
{
	pim *map = config.map;
	for (const cJSON *entry : Entries(list)) {
		const char *file = vexil::text_of(entry);
		const char *name = vexil::name_of(entry);
		if (!name || !is_file(map, file)) {
			map->builder.print_error(section.names.unknown, section.names.function,
						 vexil::shown(file));
			continue;
		}
		if (!store_binding(config, section.tag, file, name))
			return false;
	}
	return true;
}

constexpr const char *kUnknownSoftware = "[VEXIL][PIM][%s] Cannot find sw_register %s\n";

/** In the order of the blocks. */
constexpr Section kSections[] = {
	{"hwreg", store_hardware, EXTMEM_TAG_REGISTER_SETTINGS,
	 vexil::hardware_names("__pim_get_hwregister")},
	{"swreg", store_registers, EXTMEM_TAG_VREGISTER_SETTINGS,
	 {&pim::vregname_to_func, "__pim_get_swregister", kUnknownSoftware}},
	{"lut", store_tables, EXTMEM_TAG_FUNCTION_DATA,
	 {&pim::file_map, "__pim_get_lut", "[VEXIL][PIM][%s] Cannot find lut file %s\n"}},
	{"alg", store_algorithms, EXTMEM_TAG_ALGORITHM_DATA,
	 {&pim::file_map, "__pim_get_alg", "[VEXIL][PIM][%s] Cannot find alg file %s\n"}},
	{"hwaddr", store_addresses, EXTMEM_TAG_REGISTER_ADDR_SETTINGS,
	 {nullptr, "__pim_get_hwaddr", nullptr}},
	{"cus_swreg", store_registers, EXTMEM_TAG_CUS_VREGISTER_SETTINGS,
	 {&pim::cus_vregname_to_func, "__pim_get_cus_swregister", kUnknownSoftware}},
};
constexpr size_t kSectionCount = sizeof kSections / sizeof kSections[0];

struct SectionKeys {
	const char *key[kSectionCount];
};

constexpr SectionKeys section_keys()
{
	SectionKeys keys{};
	for (size_t i = 0; i < kSectionCount; ++i)
		keys.key[i] = kSections[i].key;
	return keys;
}

constexpr SectionKeys kSectionKeys = section_keys();

} // namespace

namespace vexil {

bool resolve_register(pim *map, const RegisterNames &names, const cJSON *entry, func_pair *pair)
{
	const char *name = name_of(entry);
	const int position = ctrie_find(&(map->*names.names), name);
	if (entry && position == kNoValue) {
		map->builder.print_error(names.unknown, names.function, shown(name));
		return false;
	}
	if (!is_number(entry)) {
		map->builder.print_error("[VEXIL][PIM][%s] Invalid entry found at %s\n",
					 names.function, entry ? shown(name) : "");
		return false;
	}
	*pair = {static_cast<u32>(position), static_cast<u32>(entry->valuelong)};
	return true;
}

} // namespace vexil

extern "C" node_d __pim_get_ipconfig(pim *pPim, cJSON *ipconfig_node, const char *ipconfig,
				     reg_func *common_reg_list, node_d presetRegsd,
				     bool isCommonGroup, bool isPresetRegs)
{
	static_cast<void>(isCommonGroup); // the common list is empty for other groups
	if (!pPim || !ipconfig)
		return kInvalidNode;
	const extmem_tag tag =
		isPresetRegs ? EXTMEM_TAG_IP_PRESET_REG_CONFIG : EXTMEM_TAG_IP_CONFIG;
	Config config{pPim, extmem_request_node(&pPim->builder, tag), kInvalidNode, common_reg_list};
	const node_d property = vexil::add_property(config.node, ipconfig);
	if (!extmem_node_isvalid(property))
		return kInvalidNode;
	if (isPresetRegs)
		extmem_append_next(property, presetRegsd);

	const cJSON *lists[kSectionCount];
	vexil::find_members(ipconfig_node, kSectionKeys.key, lists);
	for (size_t i = 0; i < kSectionCount; ++i) {
		if (lists[i] && !kSections[i].store(config, kSections[i], lists[i]))
			return kInvalidNode;
	}
	return config.node;
}
