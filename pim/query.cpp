// SPDX-License-Identifier: MIT
//
// Versions, and the dump.

#include "pim/layout.h"

namespace {

bool copy_version(const pim *map, vexil_version pim::*version, vexil_version *to)
{
	if (!map || !to)
		return false;
	*to = map->*version;
	return true;
}

} // namespace

extern "C" {

bool pim_get_version(pim *pPim, vexil_version *ver_in)
{
	return copy_version(pPim, &pim::total_version, ver_in);
}

bool pim_get_hwreg_version(pim *pPim, vexil_version *ver_in)
{
	return copy_version(pPim, &pim::hwreg_json_version, ver_in);
}

bool pim_get_swreg_version(pim *pPim, vexil_version *ver_in)
{
	return copy_version(pPim, &pim::swreg_json_version, ver_in);
}

bool pim_get_cus_swreg_version(pim *pPim, vexil_version *ver_in)
{
	return copy_version(pPim, &pim::cus_swreg_json_version, ver_in);
}

bool pim_get_cus_version(pim *pPim, char **ver_cus)
{
	if (!pPim || !ver_cus)
		return false;
	*ver_cus = pPim->cus_version;
	return true;
}

bool pim_get_pim_version(pim *pPim, vexil_version *ver_in, const char *ipName)
{
	if (!pPim || !ver_in || !ipName)
		return false;
	return vexil::find_version(pPim->root, EXTMEM_TAG_IP, ipName, ver_in);
}

void pim_print(pim *pPim)
{
	if (pPim)
		extmem_print(&pPim->builder, pPim->root, 0);
}

} // extern "C"
