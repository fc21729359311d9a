/* SPDX-License-Identifier: MIT */
#ifndef VEXIL_PUBIF_MODULE_H
#define VEXIL_PUBIF_MODULE_H

#include <vexil/pubif.h>

/**
 * vexil_pubif_table - the callback table, for drivers
 *
 * The table stays where it is until vexil_pubif.ko is unloaded, but what it points to is in vexil.ko.
 *
 * Return: NULL before vexil.ko was loaded.
 */
const _PUBIF_VEXIL *vexil_pubif_table(void);

#endif /* VEXIL_PUBIF_MODULE_H */
