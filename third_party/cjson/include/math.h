/* SPDX-License-Identifier: MIT */
/* Empty: no floating point. */
