// SPDX-License-Identifier: MIT
/*
 * Where the pipeline's register fields live, in the order of product/registers/hardware.json.
 */
#include "pq_core.h"

/* u32Mask is no mask: bits 8..15 are the lowest bit, bits 16..31 the width. */
#define FIELD(domain, address, lsb, width) {domain, address, (width) << 16 | (lsb) << 8, true}

const ST_PQ_REG_INFO pq_registers[] = {
	FIELD(E_PQ_IP_DOMAIN, 0x100, 0, 1), /* NR_ENABLE */
	FIELD(E_PQ_IP_DOMAIN, 0x100, 4, 5), /* NR_LUMA */
	FIELD(E_PQ_IP_DOMAIN, 0x100, 9, 5), /* NR_CHROMA */
	FIELD(E_PQ_IP_DOMAIN, 0x101, 0, 3), /* NR_RADIUS */
	FIELD(E_PQ_IP_DOMAIN, 0x101, 8, 8), /* NR_EDGE */
	FIELD(E_PQ_OPF_DOMAIN, 0x110, 0, 14), /* CSC_00 */
	FIELD(E_PQ_OPF_DOMAIN, 0x111, 0, 14), /* CSC_01 */
	FIELD(E_PQ_OPF_DOMAIN, 0x112, 0, 14), /* CSC_02 */
	FIELD(E_PQ_OPF_DOMAIN, 0x113, 0, 14), /* CSC_10 */
	FIELD(E_PQ_OPF_DOMAIN, 0x114, 0, 14), /* CSC_11 */
	FIELD(E_PQ_OPF_DOMAIN, 0x115, 0, 14), /* CSC_12 */
	FIELD(E_PQ_OPF_DOMAIN, 0x116, 0, 14), /* CSC_20 */
	FIELD(E_PQ_OPF_DOMAIN, 0x117, 0, 14), /* CSC_21 */
	FIELD(E_PQ_OPF_DOMAIN, 0x118, 0, 14), /* CSC_22 */
	FIELD(E_PQ_OPF_DOMAIN, 0x119, 0, 12), /* CSC_OFFSET_R */
	FIELD(E_PQ_OPF_DOMAIN, 0x11A, 0, 12), /* CSC_OFFSET_G */
	FIELD(E_PQ_OPF_DOMAIN, 0x11B, 0, 12), /* CSC_OFFSET_B */
	FIELD(E_PQ_HDR_DOMAIN, 0x120, 0, 1), /* TONE_ENABLE */
	FIELD(E_PQ_HDR_DOMAIN, 0x120, 8, 4), /* TONE_STEPS */
	FIELD(E_PQ_OPB_DOMAIN, 0x130, 0, 6), /* SHARP_GAIN */
	FIELD(E_PQ_OPB_DOMAIN, 0x130, 8, 5), /* SHARP_CORING */
	FIELD(E_PQ_DISP_DOMAIN, 0x140, 0, 11), /* GAIN_R */
	FIELD(E_PQ_DISP_DOMAIN, 0x141, 0, 11), /* GAIN_G */
	FIELD(E_PQ_DISP_DOMAIN, 0x142, 0, 11), /* GAIN_B */
	FIELD(E_PQ_DISP_DOMAIN, 0x150, 0, 12), /* LIGHT_DUTY */
	FIELD(E_PQ_DISP_DOMAIN, 0x150, 15, 1), /* LIGHT_LOCK */
};
const size_t pq_num_registers = sizeof(pq_registers) / sizeof(pq_registers[0]);
