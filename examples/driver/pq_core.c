// SPDX-License-Identifier: MIT
#ifdef __KERNEL__
#include <linux/errno.h>
#include <linux/string.h>
#else
#include <errno.h>
#include <string.h>
#endif

#include "pq_core.h"

/* What is on the screen before anybody has stated a source. */
#define PQ_FIRST_SETTING "Csc_Matrix#Rgb"
#define PQ_RULES "Picture;Light"

static char pq_preset_table[] = "COLOR_TEMP_REGS";

/* Algorithm files come without a context: there is one pipeline. */
static struct pq *pq_of_filters;

/* ---- blocks ---- */

/* Images are little-endian, and may lie at any address. */
static u32 pq_word(const char *bytes)
{
	const u8 *byte = (const u8 *)bytes;

	return (u32)byte[0] | (u32)byte[1] << 8 | (u32)byte[2] << 16 | (u32)byte[3] << 24;
}

/* A pair in address form. */
static void pq_write_word(const struct pq_output *to, u32 word, u32 bits)
{
	if (word) /* 0 is an empty slot */
		to->hardware(to->context, word >> 27, word & 0x07FFFFFF, bits >> 16, bits & 0xFFFF);
}

/* A pair that names a position: not all lists are rewritten. */
static void pq_write_position(const struct pq_output *to, u32 position, u32 value)
{
	const ST_PQ_REG_INFO *field;
	u32 lsb, mask;

	if (position >= pq_num_registers || !pq_registers[position].b_valid)
		return;
	field = &pq_registers[position];
	lsb = field->u32Mask >> 8 & 0xFF;
	mask = ((1u << (field->u32Mask >> 16)) - 1) << lsb;
	to->hardware(to->context, field->e_pq_time_domain, field->u32Addr, mask, value << lsb & mask);
}

static bool pq_block(int tag, const char *data, u32 length, void *context)
{
	const struct pq_output *to = ((struct pq *)context)->output;
	const char *pair = data + sizeof(reg_func);
	const u32 num_pairs = pq_word(data); /* no more than length has room for */
	u32 i;

	(void)length; /* once fields were joined, longer than the pairs that are left */
	for (i = 0; i < num_pairs; i++, pair += sizeof(func_pair)) {
		const u32 target = pq_word(pair);
		const u32 value = pq_word(pair + sizeof(u32));

		switch (tag) {
		case EXTMEM_TAG_REGISTER_ADDR_SETTINGS:
		case EXTMEM_TAG_REGISTER_ADDR_IND_SETTINGS:
		case EXTMEM_TAG_REGISTER_ADDR_PI_SETTINGS:
		case EXTMEM_TAG_REGISTER_ADDR_L1_SETTINGS:
		case EXTMEM_TAG_REGISTER_ADDR_L2_SETTINGS:
		case EXTMEM_TAG_REGISTER_ADDR_L3_SETTINGS:
			pq_write_word(to, target, value);
			break;
		case EXTMEM_TAG_REGISTER_RIU_SETTINGS: /* shared by the members of a setting */
		case EXTMEM_TAG_REGISTER_SYNC_SETTINGS:
		case EXTMEM_TAG_REGISTER_SETTINGS: /* of an IP that a merge has replaced */
			pq_write_position(to, target, value);
			break;
		case EXTMEM_TAG_VREGISTER_SETTINGS:
		case EXTMEM_TAG_CUS_VREGISTER_SETTINGS:
			to->software(to->context, target, value);
			break;
		}
	}
	return true;
}

static bool pq_table(int tag, const char *data, u32 length, void *context)
{
	const struct pq_output *to = ((struct pq *)context)->output;

	(void)tag;
	to->table(to->context, data, length);
	return true;
}

static bool pq_filter(int tag, const char *data, u32 length, const char *entry, u32 entry_length)
{
	const struct pq_output *to = pq_of_filters->output;

	(void)tag;
	(void)entry_length;
	to->filter(to->context, entry, data, length);
	return true;
}

/* ---- life ---- */

int pq_start(struct pq *pq, const _PUBIF_VEXIL *vexil, const struct pq_output *output,
	     u32 pairs_per_frame, struct pq_image map, struct pq_image rules)
{
	u16 first;

	memset(pq, 0, sizeof(*pq));
	pq->vexil = vexil;
	pq->output = output;
	pq->pairs_per_frame = pairs_per_frame;

	/* With the register table, hardware lists are rewritten into address form, in the image. */
	if (!vexil->fp_CB_vexil_pim_init_with_regmerge(&pq->map, map.bytes, map.size, pq_registers,
						       pq_num_registers) ||
	    !vexil->fp_CB_vexil_rm_init(&pq->rules, rules.bytes, rules.size)) {
		pq_stop(pq); /* a map can be there although the result is false */
		return -EINVAL;
	}
	/* Handlers are no part of an image. */
	pq_of_filters = pq;
	if (!vexil->fp_CB_vexil_pim_insert_handler(pq->map, "tone_lut", pq_table) ||
	    !vexil->fp_CB_vexil_pim_insert_alg_handler(pq->map, pq_filter) ||
	    !vexil->fp_CB_vexil_rm_create_handler(pq->rules, &pq->state)) {
		pq_stop(pq);
		return -ENOMEM;
	}

	/*
	 * Labels have no slot to look them up. The exported function has another use: a module that
	 * links to one counts as a user of vexil.ko, which then cannot be unloaded under it.
	 */
	first = pim_query_setting_id(pq->map, PQ_FIRST_SETTING);
	if (first != VEXIL_NO_ID)
		pq->settings[pq->num_settings++] = first;
	pq->common = true;
	return 0;
}

void pq_stop(struct pq *pq)
{
	/* Users first. Each call does nothing where there is nothing. */
	pq->vexil->fp_CB_vexil_rm_handler_destroy(&pq->state);
	pq->vexil->fp_CB_vexil_rm_destroy(&pq->rules);
	pq->vexil->fp_CB_vexil_pim_destroy(&pq->map);
	pq_of_filters = NULL;
}

/* ---- work ---- */

/* A list may be NULL when it is empty. */
static void pq_take(u16 *to, const u16 *list, size_t count)
{
	while (count--)
		*to++ = *list++;
}

int pq_evaluate(struct pq *pq, const char *sources)
{
	const _PUBIF_VEXIL *vexil = pq->vexil;
	u16 *settings, *presets;
	size_t num_settings, num_presets;

	if (!vexil->fp_CB_vexil_rm_handler_set(pq->state, sources, 0))
		return -EINVAL;
	if (!vexil->fp_CB_vexil_rm_handler_trigger(pq->state, PQ_RULES))
		return -EIO;
	num_settings = vexil->fp_CB_vexil_rm_handler_get_result(pq->state, &settings);
	num_presets = vexil->fp_CB_vexil_rm_handler_get_preset(pq->state, &presets);
	if (num_settings > PQ_MAX_IDS || num_presets > PQ_MAX_IDS)
		return -E2BIG;

	/* Writing takes several frames, and the lists last until the next trigger only. */
	pq_take(pq->settings, settings, num_settings);
	pq_take(pq->presets, presets, num_presets);
	pq->num_settings = num_settings;
	pq->num_presets = num_presets;
	pq->next = 0;
	return 0;
}

bool pq_frame(struct pq *pq)
{
	const _PUBIF_VEXIL *vexil = pq->vexil;
	const u32 budget = pq->pairs_per_frame;
	u32 left = budget;

	/* These two calls know no budget: each gets a frame to itself. */
	if (pq->common) {
		vexil->fp_CB_vexil_pim_load_common_reg_setting(pq->map, pq_block, pq);
		pq->common = false;
		return pq->num_settings || pq->num_presets;
	}
	if (pq->next == pq->num_settings) {
		vexil->fp_CB_vexil_pim_load_preset(pq->map, pq->presets, pq->num_presets,
						   pq_preset_table, pq_block, pq);
		pq->num_presets = 0;
		return false;
	}

	while (pq->next < pq->num_settings) {
		const u16 id = pq->settings[pq->next];
		const u32 before = left;

		left = vexil->fp_CB_vexil_pim_load_setting_count(pq->map, id, before, pq_block, pq);
		if ((s32)left < 0) {
			/* A block did not fit. The next frame begins with this setting's first block. */
			if (before < budget)
				return true;
			/* Larger than a frame: waiting would not help. */
			vexil->fp_CB_vexil_pim_load_setting_count(pq->map, id, VEXIL_LOAD_UNLIMITED,
								  pq_block, pq);
			left = 0;
		}
		pq->next++;
	}
	return pq->num_presets != 0;
}
