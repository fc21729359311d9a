// SPDX-License-Identifier: MIT
//
// Contexts made from documents, for fuzzers that know what must come out. Documents are written
// with ' for ", as they are in other tests.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <vexil/verify.h>

#include "core/json.h"
#include "pim/pim.h"
#include "rm/rm.h"
#include "tests/fuzz/fuzz.h"

namespace vexil_fuzz {

struct DeleteJson {
	void operator()(cJSON *document) const { vexil_json_delete(document); }
};
using Document = std::unique_ptr<cJSON, DeleteJson>;

/** Parses a text in which ' stands for "; null when it does not parse. */
inline Document document(std::string text)
{
	std::replace(text.begin(), text.end(), '\'', '"');
	return Document(static_cast<cJSON *>(vexil_json_parse(text.c_str())));
}

struct DestroyPim {
	void operator()(pim *map) const { pim_destroy(&map); }
};
struct DestroyRm {
	void operator()(rm *rules) const { rm_destroy(&rules); }
};
struct DestroyHandler {
	void operator()(rm_handler *handler) const { rm_handler_destroy(&handler); }
};
using Map = std::unique_ptr<pim, DestroyPim>;
using Rules = std::unique_ptr<rm, DestroyRm>;
using Handler = std::unique_ptr<rm_handler, DestroyHandler>;

using ImageBytes = std::vector<char>;

/** A map over @image, or an empty one; null without memory. */
inline Map make_map(ImageBytes *image = nullptr)
{
	pim *map = nullptr;
	const bool made =
		image ? pim_init(&map, image->data(), static_cast<u32>(image->size()), nullptr, 0)
		      : pim_init(&map, nullptr, 0, nullptr, 0);
	Map owned(map);
	require(made == (map != nullptr) || refused(), "a context whose beginning failed");
	return made ? std::move(owned) : Map();
}

/** The same for rules. */
inline Rules make_rules(ImageBytes *image = nullptr)
{
	rm *rules = nullptr;
	const bool made = image ? rm_init(&rules, image->data(), static_cast<u32>(image->size()))
				: rm_init(&rules, nullptr, 0);
	require(made == (rules != nullptr), "a context whose beginning failed");
	return Rules(rules);
}

inline Handler make_handler(const Rules &rules)
{
	rm_handler *handler = nullptr;
	const bool made = rm_create_handler(rules.get(), &handler);
	require(made == (handler != nullptr), "a handler whose beginning failed");
	return Handler(handler);
}

/** An export, which must be sound; @rings: rules may lead back to themselves. */
inline ImageBytes sound(ImageBytes image, bool rings)
{
	vexil_image_fault fault;
	const bool verified =
		vexil_image_verify(image.data(), static_cast<u32>(image.size()), &fault);
	require(verified || (rings && fault.code == VEXIL_IMAGE_RULE_RING),
		"an export that is not sound");
	return image;
}

inline ImageBytes export_of(const Map &map)
{
	ImageBytes image(pim_get_export_size(map.get()));
	require(pim_export(map.get(), image.data()) == image.size(), "no export");
	return sound(std::move(image), false);
}

inline ImageBytes export_of(const Rules &rules)
{
	ImageBytes image(rm_get_export_size(rules.get()));
	require(rm_export(rules.get(), image.data()) == image.size(), "no export");
	return sound(std::move(image), true);
}

using Ids = std::vector<u16>;

inline Ids settings_of(rm *rules)
{
	u16 *list = nullptr;
	const std::size_t count = rm_get_result(rules, &list);
	return count ? Ids(list, list + count) : Ids{};
}
inline Ids presets_of(rm *rules)
{
	u16 *list = nullptr;
	const std::size_t count = rm_get_preset(rules, &list);
	return count ? Ids(list, list + count) : Ids{};
}
inline Ids settings_of(rm_handler *handler)
{
	u16 *list = nullptr;
	const std::size_t count = rm_handler_get_result(handler, &list);
	return count ? Ids(list, list + count) : Ids{};
}
inline Ids presets_of(rm_handler *handler)
{
	u16 *list = nullptr;
	const std::size_t count = rm_handler_get_preset(handler, &list);
	return count ? Ids(list, list + count) : Ids{};
}

} // namespace vexil_fuzz
