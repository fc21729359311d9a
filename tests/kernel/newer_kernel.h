/* SPDX-License-Identifier: MIT */
/* How kernels since 6.10 declare what glue.c has to give a name to. */
#include <linux/slab.h>

void *kvmalloc_node_noprof(size_t size, gfp_t flags, int node);
#define kvmalloc_node(...) kvmalloc_node_noprof(__VA_ARGS__)
