// SPDX-License-Identifier: MIT
//
// Register lists: hardware, software and customer, one reader with three rows.

#include "core/fail.h"
#include "core/json.h"
#include "pim/pim.h"

namespace {

constexpr u64 kLastFuncPos = 0x7FFFFFFE;
constexpr u64 kAnyValue = ~u64{0};

struct RegisterList {
	const char *key; // of the list in the document's root
	const char *version_key;
	vexil_version pim::*version;
	ctrie pim::*names;
	u64 last_value;             // larger numbers, negative ones too, are skipped
	bool version_needs_entries; // without entries the version is not read either
};

constexpr RegisterList kHardware = {
	"PqHWRegList", "0.version",  &pim::hwreg_json_version, &pim::regname_to_func,
	kLastFuncPos,  true,
};
constexpr RegisterList kSoftware = {
	"PqSWRegList", "0.version", &pim::swreg_json_version, &pim::vregname_to_func,
	kAnyValue,     false,
};
constexpr RegisterList kCustomer = {
	"PqCusSWRegList", "#version", &pim::cus_swreg_json_version, &pim::cus_vregname_to_func,
	kAnyValue,        false,
};

/** Each entry's first member; repeated and unacceptable names are dropped without a word. */
void insert_entries(ctrie *names, const cJSON *entries, u64 last_value, const char *function)
{
	for (const cJSON *entry : vexil::items(entries)) {
		const cJSON *reg = entry->child;
		if (!vexil::is_number(reg)) {
			_printk("[VEXIL][PIM][%s] Invalid entry found at %s\n", function,
				reg ? vexil::shown(reg->string) : "");
			continue;
		}
		if (static_cast<u64>(reg->valuelong) <= last_value)
			ctrie_insert(names, reg->string, static_cast<int>(reg->valuelong));
	}
}

void insert_list(pim *map, const cJSON *document, const RegisterList &row, const char *function)
{
	const cJSON *list = vexil::member(document, row.key);
	enum { kVersion, kRegister, kKeys };
	const char *const keys[kKeys] = {row.version_key, "register"};
	const cJSON *found[kKeys];
	vexil::find_members(list, keys, found);

	const cJSON *entries = vexil::is_array(found[kRegister]) ? found[kRegister] : nullptr;
	if (!row.version_needs_entries || (entries && entries->child))
		__pim_get_version(const_cast<cJSON *>(found[kVersion]), &(map->*row.version), nullptr);
	insert_entries(&(map->*row.names), entries, row.last_value, function);
}

} // namespace

extern "C" {

bool pim_insert_regmap(pim *pPim, const char *regname, u32 func_pos)
{
	if (!pPim || !regname || func_pos > kLastFuncPos)
		return false;
	return ctrie_insert(&pPim->regname_to_func, regname, static_cast<int>(func_pos));
}

bool pim_insert_vregmap(pim *pPim, const char *vregname, u32 value)
{
	return pPim && ctrie_insert(&pPim->vregname_to_func, vregname, static_cast<int>(value));
}

bool pim_insert_cus_vregmap(pim *pPim, const char *vregname, u32 value)
{
	return pPim && ctrie_insert(&pPim->cus_vregname_to_func, vregname, static_cast<int>(value));
}

bool pim_insert_regmap_json(pim *pPim, cJSON *json_node)
{
	if (!pPim || !json_node)
		return false;
	insert_list(pPim, json_node, kHardware, "pim_insert_regmap_json");
	return true;
}

bool pim_insert_vregmap_json(pim *pPim, cJSON *json_node)
{
	if (!pPim || !json_node)
		return false;
	insert_list(pPim, json_node, kSoftware, "pim_insert_vregmap_json");
	insert_list(pPim, json_node, kCustomer, "pim_insert_vregmap_json");
	return true;
}

bool pim_insert_cus_vregmap_json(pim *pPim, cJSON *json_node)
{
	if (!pPim || !json_node)
		return false;
	insert_list(pPim, json_node, kCustomer, "pim_insert_cus_vregmap_json");
	return true;
}

} // extern "C"
