/* SPDX-License-Identifier: MIT */
/*
 * The public records as a driver in C uses them: sizes and offsets, then a few calls.
 */
#include <stdio.h>
#include <string.h>

#include <vexil/callbacks.h>
#include <vexil/mem.h>
#include <vexil/presetdb.h>
#include <vexil/pubif.h>
#include <vexil/reg_info.h>
#include <vexil/tags.h>
#include <vexil/types.h>

#define AT(record, field, offset)                                                                  \
	_Static_assert(offsetof(record, field) == (offset), #record "." #field " is not at " #offset)
#define SIZE(type, size) _Static_assert(sizeof(type) == (size), #type " is not " #size " bytes")
#define VALUE(name, number) _Static_assert((name) == (number), #name " is not " #number)

SIZE(u8, 1);
SIZE(u16, 2);
SIZE(u32, 4);
SIZE(u64, 8);
SIZE(s8, 1);
SIZE(s16, 2);
SIZE(s32, 4);
SIZE(s64, 8);
SIZE(bool, 1);
_Static_assert((u8)-1 > 0 && (u16)-1 > 0 && (u32)-1 > 0 && (u64)-1 > 0, "unsigned");
_Static_assert((s8)-1 < 0 && (s16)-1 < 0 && (s32)-1 < 0 && (s64)-1 < 0, "signed");

SIZE(vexil_version, 8);
AT(vexil_version, u16MajorNumber, 0);
AT(vexil_version, u16MinorNumber, 2);
AT(vexil_version, u32Revision, 4);

SIZE(vexil_mem_info, 72);
AT(vexil_mem_info, base_addr, 0);
AT(vexil_mem_info, base_ptr, 8);
AT(vexil_mem_info, buf_max, 16);
AT(vexil_mem_info, ctrie_offset, 24);
AT(vexil_mem_info, ctrie_used, 32);
AT(vexil_mem_info, pim_offset, 40);
AT(vexil_mem_info, pim_used, 48);
AT(vexil_mem_info, rm_offset, 56);
AT(vexil_mem_info, rm_used, 64);

SIZE(ST_PQ_REG_INFO, 16);
AT(ST_PQ_REG_INFO, e_pq_time_domain, 0);
AT(ST_PQ_REG_INFO, u32Addr, 4);
AT(ST_PQ_REG_INFO, u32Mask, 8);
AT(ST_PQ_REG_INFO, b_valid, 12);

SIZE(func_pair, 8);
AT(func_pair, fn_idx, 0);
AT(func_pair, fn_para, 4);
SIZE(reg_func, 8);
AT(reg_func, fn_num, 0);
AT(reg_func, zero, 4);
AT(reg_func, fn_tbl, 8);

SIZE(presetdb_io, 12);
AT(presetdb_io, range, 0);
AT(presetdb_io, colorspace, 4);
AT(presetdb_io, format, 8);
SIZE(presetdb_hdr_mode, 16);
AT(presetdb_hdr_mode, xvycc_manual_mode, 0);
AT(presetdb_hdr_mode, gamut_enable, 6);
AT(presetdb_hdr_mode, user_gain, 8);
SIZE(presetdb_rgb_offset, 2);
AT(presetdb_rgb_offset, manual_mode, 0);
AT(presetdb_rgb_offset, enable, 1);
SIZE(presetdb_rgb_clipping, 2);
AT(presetdb_rgb_clipping, manual_mode, 0);
AT(presetdb_rgb_clipping, enable, 1);
SIZE(presetdb_rgb_gain, 24);
SIZE(presetdb_brightness, 24);
SIZE(graphic_presetdb_info, 152);
AT(graphic_presetdb_info, input, 0);
AT(graphic_presetdb_info, output, 12);
AT(graphic_presetdb_info, hue, 24);
AT(graphic_presetdb_info, sat, 32);
AT(graphic_presetdb_info, contrast, 40);
AT(graphic_presetdb_info, sdr, 48);
AT(graphic_presetdb_info, hdr10, 64);
AT(graphic_presetdb_info, hlg, 80);
AT(graphic_presetdb_info, rgb_offset, 96);
AT(graphic_presetdb_info, rgb_clipping, 98);
AT(graphic_presetdb_info, rgb_gain, 104);
AT(graphic_presetdb_info, brightness, 128);

SIZE(_PUBIF_VEXIL, 57 * 8);
AT(_PUBIF_VEXIL, fp_CB_vexil_graphic_presetdb_parse, 56 * 8);

SIZE(EN_PQ_TIME_DOMAIN, 4);
VALUE(E_PQ_SRC0_DOMAIN, 0);
VALUE(E_PQ_SRC1_DOMAIN, 1);
VALUE(E_PQ_IP_DOMAIN, 2);
VALUE(E_PQ_OPF_DOMAIN, 3);
VALUE(E_PQ_OPB_DOMAIN, 4);
VALUE(E_PQ_OP2_DOMAIN, 5);
VALUE(E_PQ_DISP_DOMAIN, 6);
VALUE(E_PQ_HDR_DOMAIN, 7);
VALUE(E_PQ_METER_YHSL_DOMAIN, 8);
VALUE(E_PQ_METER_HDR_DOMAIN, 9);
VALUE(E_PQ_METER_OBJ_DOMAIN, 10);
VALUE(E_PQ_UCD_DOMAIN, 11);
VALUE(E_PQ_SRC_DOMAIN, 12);
VALUE(E_PQ_GOP_DOMAIN, 13);
VALUE(E_PQ_VD_DOMAIN, 14);
VALUE(E_PQ_DIP_DOMAIN, 15);
VALUE(E_PQ_MAX_DOMAIN, 16);

SIZE(EN_PQ_LEVEL, 4);
VALUE(E_PQLV_INDIVIDUAL, 0);
VALUE(E_PQLV_PI_SETTING, 1);
VALUE(E_PQLV_OPTION_L1, 2);
VALUE(E_PQLV_OPTION_L2, 3);
VALUE(E_PQLV_OPTION_L3, 4);
VALUE(E_PQLV_DEFAULT, 5);
VALUE(E_PQLV_PRESETREGS, 6);
VALUE(E_PQLV_SYNC, 7);
VALUE(E_PQLV_MAX, 8);

SIZE(extmem_tag, 4);
_Static_assert((extmem_tag)-1 < 0, "tags are signed");
VALUE(EXTMEM_TAG_INVALID, -1);
VALUE(EXTMEM_TAG_UNSPECIFIED, 0);
VALUE(EXTMEM_TAG_GENERAL, 1);
VALUE(EXTMEM_TAG_CUSTOM_BEGIN, 16);
VALUE(EXTMEM_TAG_IP, 17);
VALUE(EXTMEM_TAG_IP_SETTING, 18);
VALUE(EXTMEM_TAG_IP_CONFIG, 19);
VALUE(EXTMEM_TAG_IP_PRESET_REG_CONFIG, 20);
VALUE(EXTMEM_TAG_IP_COMMON_REG_CONFIG, 21);
VALUE(EXTMEM_TAG_PROPERTY, 22);
VALUE(EXTMEM_TAG_RULE, 23);
VALUE(EXTMEM_TAG_SOURCE_LABEL, 24);
VALUE(EXTMEM_TAG_SOURCE_REDEFINE, 25);
VALUE(EXTMEM_TAG_FILE, 26);
VALUE(EXTMEM_TAG_FUNCTION_DATA, 27);
VALUE(EXTMEM_TAG_ALGORITHM_DATA, 28);
VALUE(EXTMEM_TAG_KEY_DESCRIPTION, 29);
VALUE(EXTMEM_TAG_KEY_RANGE, 30);
VALUE(EXTMEM_TAG_PQLEVEL, 31);
VALUE(EXTMEM_TAG_VERSION, 32);
VALUE(EXTMEM_TAG_DATA_TYPE_BEGIN, 33);
VALUE(EXTMEM_TAG_DATA, 34);
VALUE(EXTMEM_TAG_STRING_HOLDER, 35);
VALUE(EXTMEM_TAG_REGISTER_SETTINGS, 36);
VALUE(EXTMEM_TAG_VREGISTER_SETTINGS, 37);
VALUE(EXTMEM_TAG_SOURCE_DESCRIPTION, 38);
VALUE(EXTMEM_TAG_KEY_HOLDER, 39);
VALUE(EXTMEM_TAG_VALUE_HOLDER, 40);
VALUE(EXTMEM_TAG_NODE_HOLDER, 41);
VALUE(EXTMEM_TAG_RULE_USEDBITS, 42);
VALUE(EXTMEM_TAG_SIZE_HOLDER, 43);
VALUE(EXTMEM_TAG_RANGE_HOLDER, 44);
VALUE(EXTMEM_TAG_REGISTER_ADDR_SETTINGS, 45);
VALUE(EXTMEM_TAG_REGISTER_RIU_SETTINGS, 46);
VALUE(EXTMEM_TAG_PQLEVEL_HOLDER, 47);
VALUE(EXTMEM_TAG_REGISTER_ADDR_IND_SETTINGS, 48);
VALUE(EXTMEM_TAG_REGISTER_ADDR_PI_SETTINGS, 49);
VALUE(EXTMEM_TAG_REGISTER_ADDR_L1_SETTINGS, 50);
VALUE(EXTMEM_TAG_REGISTER_ADDR_L2_SETTINGS, 51);
VALUE(EXTMEM_TAG_REGISTER_ADDR_L3_SETTINGS, 52);
VALUE(EXTMEM_TAG_PRESET_HOLDER, 53);
VALUE(EXTMEM_TAG_VERSION_HOLDER, 54);
VALUE(EXTMEM_TAG_CUS_VREGISTER_SETTINGS, 55);
VALUE(EXTMEM_TAG_RES_NUM, 56);
VALUE(EXTMEM_TAG_REGISTER_SYNC_SETTINGS, 57);
VALUE(EXTMEM_TAG_UNUSED_BEGIN, 58);

VALUE(VEXIL_LOAD_UNLIMITED, 0xFFFFFF);
VALUE(VEXIL_NO_ID, 65535);

static int failures;

static void expect(bool holds, const char *what)
{
	if (holds)
		return;
	printf("failed: %s\n", what);
	++failures;
}

static bool take_block(int tag, const char *data, u32 length, void *pCtx)
{
	reg_func head;
	func_pair first;

	memcpy(&head, data, sizeof(head));
	memcpy(&first, data + offsetof(reg_func, fn_tbl), sizeof(first));
	*(u32 *)pCtx = tag == EXTMEM_TAG_REGISTER_SETTINGS && length == 16 ? head.fn_num + first.fn_para : 0;
	return true;
}

static bool take_file(int tag, const char *data, u32 length, const char *entry, u32 entry_length)
{
	return tag == EXTMEM_TAG_DATA && data && length == 1 && entry && entry_length == 5;
}

int main(void)
{
	static const char block[] = { 1, 0, 0, 0, 0, 0, 0, 0, 7, 0, 0, 0, 41, 0, 0, 0 };
	vexil_callback deliver = take_block;
	vexil_alg_callback deliver_file = take_file;
	alg_callback same_type = deliver_file;
	vexil_mem_info info;
	vexil_mem_info read_back;
	u64 number = 5;
	u32 sum = 0;
	void *document;

	expect(deliver(EXTMEM_TAG_REGISTER_SETTINGS, block, sizeof(block), &sum) && sum == 42,
	       "a block is read through its record");
	expect(same_type(EXTMEM_TAG_DATA, "x", 1, "name", 5), "an algorithm file is received");

	memset(&read_back, 0xA5, sizeof(read_back));
	memset(&info, 0, sizeof(info));
	expect(vexil_mem_status(&read_back) && memcmp(&read_back, &info, sizeof(info)) == 0,
	       "the memory record is zero at first");
	info.base_addr = 1;
	info.rm_used = 9;
	expect(vexil_mem_init(&info) && vexil_mem_status(&read_back) &&
		       memcmp(&read_back, &info, sizeof(info)) == 0,
	       "the memory record is given back");
	expect(vexil_mem_alloc(), "vexil_mem_alloc");

	vexil_strtoull("0x1f", &number, 0);
	expect(number == 31, "a hexadecimal text is converted");
	vexil_strtoull("12abc", &number, 10);
	expect(number == 0, "a text that is no number gives 0");

	document = vexil_json_parse("{\"a\": [1, 0x10, \"text\"]}");
	expect(document != NULL, "a document is parsed");
	vexil_json_delete(document);
	expect(vexil_json_parse("{\"a\": 1.5}") == NULL, "a fraction is refused");
	expect(vexil_json_parse(NULL) == NULL, "no text is no document");
	vexil_json_delete(NULL);

	return failures != 0;
}
