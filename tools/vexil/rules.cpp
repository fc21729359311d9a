// SPDX-License-Identifier: MIT

#include "rules.h"

#include <cstring>
#include <new>
#include <utility>

#include "library.h"

namespace vexil_tool {

namespace {

std::vector<PendingName> names_in(const unres_item_list &list)
{
	std::vector<PendingName> names;
	for (size_t i = 0; i < list.count; ++i)
		names.push_back({list.items[i].itemname, list.items[i].id});
	return names;
}

u16 id_in(const ctrie &names, const std::string &name)
{
	const int id = ctrie_find(&names, name.c_str());
	return id >= 0 && id < static_cast<int>(VEXIL_NO_ID) ? static_cast<u16>(id)
							     : u16{VEXIL_NO_ID};
}

} // namespace

Rules::Rules()
{
	void *context = nullptr;
	if (!library().fp_CB_vexil_rm_init(&context, nullptr, 0))
		throw std::bad_alloc();
	record_ = static_cast<rm *>(context);
}

Rules::Rules(Rules &&other) noexcept
    : image_(std::move(other.image_)), record_(std::exchange(other.record_, nullptr))
{
}

Rules::~Rules()
{
	void *context = record_;
	library().fp_CB_vexil_rm_destroy(&context);
}

std::optional<Rules> Rules::adopt(std::vector<char> image)
{
	Rules rules(static_cast<rm *>(nullptr));
	rules.image_ = std::move(image);
	void *context = nullptr;
	if (!library().fp_CB_vexil_rm_init(&context, rules.image_.data(),
					   static_cast<u32>(rules.image_.size())))
		return std::nullopt;
	rules.record_ = static_cast<rm *>(context);
	return rules;
}

std::optional<Rules> Rules::merge(const Rules &base, const Rules &sub, const Map &map,
				  extmem_err_code *error)
{
	Rules rules;
	if (library().fp_CB_vexil_rm_merge(rules.record_, base.record_, sub.record_, map.record()))
		return rules;
	*error = rules.store_error();
	return std::nullopt;
}

bool Rules::insert_sources(const cJSON *document)
{
	return library().fp_CB_vexil_rm_insert_source_json(record_, unlocked(document));
}

void Rules::insert_rules(const cJSON *document, const Map &map)
{
	library().fp_CB_vexil_rm_insert(record_, unlocked(document), map.record());
}

bool Rules::finish()
{
	return library().fp_CB_vexil_rm_finish(record_);
}

std::vector<PendingName> Rules::pending_rules() const
{
	return names_in(record_->unres_rule);
}

std::vector<PendingName> Rules::pending_sources() const
{
	return names_in(record_->unres_source);
}

std::vector<char> Rules::exported()
{
	std::vector<char> image(library().fp_CB_vexil_rm_get_export_size(record_));
	image.resize(library().fp_CB_vexil_rm_export(record_, image.data()));
	return image;
}

u16 Rules::label_id(const std::string &label) const
{
	return id_in(record_->source_map, label);
}

u16 Rules::rule_id(const std::string &name) const
{
	return id_in(record_->rulename_map, name);
}

size_t Rules::nodes_used() const
{
	return record_->builder.node_buffer.buf_used / sizeof(extmem_node);
}

std::string Rules::map_customer_text() const
{
	return {record_->cus_version, strnlen(record_->cus_version, sizeof record_->cus_version)};
}

bool Rules::are_merged() const
{
	size_t counts = 0;
	for (size_t id = 0; id < nodes_used(); ++id) {
		const node_d node = extmem_create_node_d(&record_->builder, static_cast<u16>(id));
		counts += extmem_fetch_tag(node) == EXTMEM_TAG_RULE_USEDBITS;
	}
	return counts > 1;
}

void Rules::print() const
{
	rm_print(record_);
}

Evaluation::Evaluation(const Rules &rules)
{
	void *handler = nullptr;
	if (!library().fp_CB_vexil_rm_create_handler(rules.record(), &handler))
		throw std::bad_alloc();
	handler_ = static_cast<rm_handler *>(handler);
}

Evaluation::~Evaluation()
{
	void *handler = handler_;
	library().fp_CB_vexil_rm_handler_destroy(&handler);
}

bool Evaluation::set(const std::string &filter)
{
	return library().fp_CB_vexil_rm_handler_set(handler_, filter.c_str(), 0);
}

bool Evaluation::trigger(const std::string *rules)
{
	return library().fp_CB_vexil_rm_handler_trigger(handler_, rules ? rules->c_str() : nullptr);
}

std::vector<u16> Evaluation::settings() const
{
	u16 *list = nullptr;
	const size_t count = library().fp_CB_vexil_rm_handler_get_result(handler_, &list);
	return {list, list + count};
}

std::vector<u16> Evaluation::presets() const
{
	u16 *list = nullptr;
	const size_t count = library().fp_CB_vexil_rm_handler_get_preset(handler_, &list);
	return {list, list + count};
}

} // namespace vexil_tool
