/* SPDX-License-Identifier: MIT */
/*
 * The graphics plane's preset: colour formats, tuning, dynamic-range modes, gains.
 */
#ifndef VEXIL_PRESETDB_H
#define VEXIL_PRESETDB_H

#include <vexil/types.h>

VEXIL_BEGIN_C

struct cJSON;

typedef enum presetdb_range {
	RANGE_AUTO = 0,
	RANGE_LIMIT = 1,
	RANGE_FULL = 2,
	RANGE_MAX = 255
} presetdb_range;

typedef enum presetdb_colorspace {
	COLORSPACE_AUTO = 0,
	COLORSPACE_BT601 = 1,
	COLORSPACE_BT709 = 2,
	COLORSPACE_BT2020 = 3,
	COLORSPACE_ADOBE_RGB = 4,
	COLORSPACE_DCI_P3 = 5,
	COLORSPACE_MAX = 255
} presetdb_colorspace;

typedef enum presetdb_format {
	FORMAT_AUTO = 0,
	FORMAT_RGB = 1,
	FORMAT_YUV = 2,
	FORMAT_MAX = 255
} presetdb_format;

/** Format at one end of the plane; full range, BT.709, RGB unless said otherwise. */
typedef struct presetdb_io {
	presetdb_range range;
	presetdb_colorspace colorspace;
	presetdb_format format;
} presetdb_io;

/** One dynamic-range mode; flags are false and the gain 1024 unless said otherwise. */
typedef struct presetdb_hdr_mode {
	bool xvycc_manual_mode;
	bool eotf_enable;
	bool oetf_enable;
	bool eotf_ext_mode;
	bool oetf_ext_mode;
	bool gamut_manual_mode;
	bool gamut_enable;
	s64 user_gain; /* 1024 is 1.0 */
} presetdb_hdr_mode;

typedef struct presetdb_rgb_offset {
	bool manual_mode;
	bool enable;
} presetdb_rgb_offset;

typedef struct presetdb_rgb_clipping {
	bool manual_mode;
	bool enable;
} presetdb_rgb_clipping;

/** 1024 each unless said otherwise. */
typedef struct presetdb_rgb_gain {
	s64 rgb_gain_r;
	s64 rgb_gain_g;
	s64 rgb_gain_b;
} presetdb_rgb_gain;

/** 1024 each unless said otherwise. */
typedef struct presetdb_brightness {
	s64 brightness_r;
	s64 brightness_g;
	s64 brightness_b;
} presetdb_brightness;

/** The whole preset. Integers are taken from the document as they are, 64 bits, without limits. */
typedef struct graphic_presetdb_info {
	presetdb_io input;
	presetdb_io output;
	s64 hue;      /* default 50 */
	s64 sat;      /* default 128 */
	s64 contrast; /* default 1024 */
	presetdb_hdr_mode sdr;
	presetdb_hdr_mode hdr10;
	presetdb_hdr_mode hlg;
	presetdb_rgb_offset rgb_offset;
	presetdb_rgb_clipping rgb_clipping;
	presetdb_rgb_gain rgb_gain;
	presetdb_brightness brightness;
} graphic_presetdb_info;

/**
 * graphic_presetdb_parse - read a preset document
 * @json_node: root object with "Preset_PQ_Value"; from vexil_json_parse, stays the caller's
 * @info:      filled with the defaults first, then with what the document holds
 *
 * Groups and members that are missing or of the wrong kind are logged, each with its own number, and
 * keep their defaults. Return: false without a document or "Preset_PQ_Value" (logged with 380), and
 * for a NULL @info. Keeps no state: any number of callers may run it at once.
 */
bool graphic_presetdb_parse(struct cJSON *json_node, graphic_presetdb_info *info);

VEXIL_END_C

#endif /* VEXIL_PRESETDB_H */
