// SPDX-License-Identifier: MIT
//
// The version object of JSON documents, and the customer version text that goes with it.
#pragma once

#include <vexil/types.h>

struct cJSON;

namespace vexil {

/** The version that this code writes into images. */
inline constexpr vexil_version kCodeVersion{2, 2, 2};

/** Documents, their parts and the code that wrote an image: 2.0 to 2.2. */
[[nodiscard]] constexpr bool supported(const vexil_version &version)
{
	return version.u16MajorNumber == kCodeVersion.u16MajorNumber &&
	       version.u16MinorNumber <= kCodeVersion.u16MinorNumber;
}

/** Size of a customer version text; the last byte is always NUL. */
inline constexpr size_t kCusVersionBytes = 32;

/** Copies a customer version text, at most 31 bytes of it, and fills the rest with zeros. */
void set_cus_version(char (&to)[kCusVersionBytes], const char *from);

} // namespace vexil

VEXIL_BEGIN_C

/**
 * __pim_get_version - read a version object
 * @ver_node:    "JsonVersionFormat", "MajorVersion", "MinorVersion", "Revision", "Note"; members
 *               that are missing or of another type leave their field as it was
 * @ver_in:      filled; nothing happens when it or @ver_node is NULL
 * @cus_version: 32 bytes that receive the note, or NULL
 *
 * "JsonVersionFormat" is hexadecimal major.minor text: "1.10" is 1.16.
 */
void __pim_get_version(cJSON *ver_node, vexil_version *ver_in, char *cus_version);

VEXIL_END_C
