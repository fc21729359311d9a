// SPDX-License-Identifier: MIT
//
// The platform for ordinary programs: what a program that links libvexil_host.a may set.
#pragma once

#include <vexil/pubif.h>

VEXIL_BEGIN_C

/**
 * vexil_host_log_sink - receives log text
 * @text:    one formatted piece, NUL-terminated; a line may come in several pieces, its last one
 *           ends with a newline (a few messages have none)
 * @length:  its length without the NUL
 * @context: as given to vexil_host_set_log_sink
 */
typedef void (*vexil_host_log_sink)(const char *text, size_t length, void *context);

/**
 * vexil_host_set_log_sink - where log text goes
 * @sink: NULL for standard error, where it goes at first
 *
 * Calls: not while another thread may log.
 */
void vexil_host_set_log_sink(vexil_host_log_sink sink, void *context);

/**
 * init_module - load the library: registers the callback table
 *
 * What the kernel calls when it loads the module; a program calls it once. Return: 0.
 */
int init_module(void);

/** The registered table, good until the program ends; NULL before init_module. */
const _PUBIF_VEXIL *vexil_host_table(void);

VEXIL_END_C
