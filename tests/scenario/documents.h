/* SPDX-License-Identifier: MIT */
/*
 * The example products, inside the program.
 */
#ifndef VEXIL_SCENARIO_DOCUMENTS_H
#define VEXIL_SCENARIO_DOCUMENTS_H

#include <vexil/reg_info.h>

/** Kinds, in the order in which a product is built. */
enum document_kind {
	DOCUMENT_HARDWARE,
	DOCUMENT_SOFTWARE,
	DOCUMENT_CUSTOMER,
	DOCUMENT_HANDLER, /* a label; no bytes */
	DOCUMENT_FILE,
	DOCUMENT_GROUPS,
	DOCUMENT_SOURCES,
	DOCUMENT_RULES,
	DOCUMENT_PRESETDB
};

/** One document or file; a NUL follows its last byte. */
struct document {
	const char *product; /* folder under examples/ */
	enum document_kind kind;
	const char *name; /* a file's or handler's name in the map; else the path in the product */
	const char *begin;
	const char *end;
};

extern const struct document vexil_documents[];
extern const unsigned int vexil_documents_count;

/** Register table of the television, by function position. */
extern const ST_PQ_REG_INFO vexil_register_table[];
extern const unsigned int vexil_register_table_count;

#endif /* VEXIL_SCENARIO_DOCUMENTS_H */
