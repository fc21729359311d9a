/* SPDX-License-Identifier: MIT */
/*
 * The caller's register table: where each hardware register lives.
 */
#ifndef VEXIL_REG_INFO_H
#define VEXIL_REG_INFO_H

#include <vexil/types.h>

/** Time domain of a register: the moment of the frame at which it is written. */
typedef enum EN_PQ_TIME_DOMAIN {
	E_PQ_SRC0_DOMAIN = 0,
	E_PQ_SRC1_DOMAIN = 1,
	E_PQ_IP_DOMAIN = 2,
	E_PQ_OPF_DOMAIN = 3,
	E_PQ_OPB_DOMAIN = 4,
	E_PQ_OP2_DOMAIN = 5,
	E_PQ_DISP_DOMAIN = 6,
	E_PQ_HDR_DOMAIN = 7,
	E_PQ_METER_YHSL_DOMAIN = 8,
	E_PQ_METER_HDR_DOMAIN = 9,
	E_PQ_METER_OBJ_DOMAIN = 10,
	E_PQ_UCD_DOMAIN = 11,
	E_PQ_SRC_DOMAIN = 12,
	E_PQ_GOP_DOMAIN = 13,
	E_PQ_VD_DOMAIN = 14,
	E_PQ_DIP_DOMAIN = 15,
	E_PQ_MAX_DOMAIN = 16 /* in queries: every domain */
} EN_PQ_TIME_DOMAIN;

/** PQ level of a setting; stored as a u32 in images. */
typedef enum EN_PQ_LEVEL {
	E_PQLV_INDIVIDUAL = 0,
	E_PQLV_PI_SETTING = 1,
	E_PQLV_OPTION_L1 = 2,
	E_PQLV_OPTION_L2 = 3,
	E_PQLV_OPTION_L3 = 4,
	E_PQLV_DEFAULT = 5,    /* no level word, or an unknown one */
	E_PQLV_PRESETREGS = 6, /* settings that are filed as presets */
	E_PQLV_SYNC = 7,
	E_PQLV_MAX = 8 /* in queries: every level */
} EN_PQ_LEVEL;

/**
 * ST_PQ_REG_INFO - one hardware register field
 * @e_pq_time_domain: 0 to 15
 * @u32Addr: register address; only bits 0..26 are used
 * @u32Mask: not a mask: bits 8..15 lowest bit of the field within the 16-bit register,
 *           bits 16..31 its width in bits
 * @b_valid: the entry is used only when this byte is exactly 1
 *
 * The table is indexed by function position. It is never copied: it must outlive the map that was
 * initialised with it.
 */
typedef struct ST_PQ_REG_INFO {
	EN_PQ_TIME_DOMAIN e_pq_time_domain;
	u32 u32Addr;
	u32 u32Mask;
	bool b_valid;
} ST_PQ_REG_INFO;

#endif /* VEXIL_REG_INFO_H */
