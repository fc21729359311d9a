/* SPDX-License-Identifier: MIT */
/*
 * Node tags and the register-block payload, as callbacks receive them.
 *
 * The numbers are part of the image format.
 */
#ifndef VEXIL_TAGS_H
#define VEXIL_TAGS_H

#include <vexil/types.h>

/**
 * extmem_tag - kind of a node
 *
 * Below EXTMEM_TAG_DATA_TYPE_BEGIN a node has a first child and a next sibling; from there on it
 * refers to a data record instead and has neither. 2 to 15 are unassigned. Images store one byte,
 * so EXTMEM_TAG_INVALID only ever appears as a result.
 */
typedef enum extmem_tag {
	EXTMEM_TAG_INVALID = -1,
	EXTMEM_TAG_UNSPECIFIED = 0,
	EXTMEM_TAG_GENERAL = 1,
	EXTMEM_TAG_CUSTOM_BEGIN = 16,
	EXTMEM_TAG_IP = 17,
	EXTMEM_TAG_IP_SETTING = 18,
	EXTMEM_TAG_IP_CONFIG = 19,
	EXTMEM_TAG_IP_PRESET_REG_CONFIG = 20,
	EXTMEM_TAG_IP_COMMON_REG_CONFIG = 21,
	EXTMEM_TAG_PROPERTY = 22,
	EXTMEM_TAG_RULE = 23,
	EXTMEM_TAG_SOURCE_LABEL = 24,
	EXTMEM_TAG_SOURCE_REDEFINE = 25,
	EXTMEM_TAG_FILE = 26,
	EXTMEM_TAG_FUNCTION_DATA = 27,
	EXTMEM_TAG_ALGORITHM_DATA = 28,
	EXTMEM_TAG_KEY_DESCRIPTION = 29,
	EXTMEM_TAG_KEY_RANGE = 30,
	EXTMEM_TAG_PQLEVEL = 31,
	EXTMEM_TAG_VERSION = 32,
	EXTMEM_TAG_DATA_TYPE_BEGIN = 33,
	EXTMEM_TAG_DATA = 34,
	EXTMEM_TAG_STRING_HOLDER = 35,
	EXTMEM_TAG_REGISTER_SETTINGS = 36,
	EXTMEM_TAG_VREGISTER_SETTINGS = 37,
	EXTMEM_TAG_SOURCE_DESCRIPTION = 38,
	EXTMEM_TAG_KEY_HOLDER = 39,
	EXTMEM_TAG_VALUE_HOLDER = 40,
	EXTMEM_TAG_NODE_HOLDER = 41,
	EXTMEM_TAG_RULE_USEDBITS = 42,
	EXTMEM_TAG_SIZE_HOLDER = 43,
	EXTMEM_TAG_RANGE_HOLDER = 44,
	EXTMEM_TAG_REGISTER_ADDR_SETTINGS = 45,
	EXTMEM_TAG_REGISTER_RIU_SETTINGS = 46,
	EXTMEM_TAG_PQLEVEL_HOLDER = 47,
	EXTMEM_TAG_REGISTER_ADDR_IND_SETTINGS = 48,
	EXTMEM_TAG_REGISTER_ADDR_PI_SETTINGS = 49,
	EXTMEM_TAG_REGISTER_ADDR_L1_SETTINGS = 50,
	EXTMEM_TAG_REGISTER_ADDR_L2_SETTINGS = 51,
	EXTMEM_TAG_REGISTER_ADDR_L3_SETTINGS = 52,
	EXTMEM_TAG_PRESET_HOLDER = 53,
	EXTMEM_TAG_VERSION_HOLDER = 54,
	EXTMEM_TAG_CUS_VREGISTER_SETTINGS = 55,
	EXTMEM_TAG_RES_NUM = 56,
	EXTMEM_TAG_REGISTER_SYNC_SETTINGS = 57,
	EXTMEM_TAG_UNUSED_BEGIN = 58
} extmem_tag;

/**
 * func_pair - one register write
 * @fn_idx: for lists by name, the register's function position (hardware) or listed value
 *          (software, customer). In address form: time domain in bits 27..31, address in bits
 *          0..26; 0 is an empty slot.
 * @fn_para: the field value; in address form the 16-bit write mask in bits 16..31 and the 16-bit
 *           register value in bits 0..15.
 */
typedef struct func_pair {
	u32 fn_idx;
	u32 fn_para;
} func_pair;

/**
 * reg_func - payload of a register block, as stored and as delivered
 * @fn_num: number of pairs; at most what the payload holds
 * @zero:   always 0
 * @fn_tbl: the pairs, in the order in which they are to be written
 *
 * Little-endian. Inside an image a payload may stand at any address: copy before reading wider
 * than a byte where the processor minds.
 */
typedef struct reg_func {
	u32 fn_num;
	u32 zero;
	__extension__ func_pair fn_tbl[];
} reg_func;

#endif /* VEXIL_TAGS_H */
