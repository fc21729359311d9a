// SPDX-License-Identifier: MIT

#include "map.h"

#include <array>
#include <cstring>
#include <exception>
#include <new>
#include <utility>

#include "library.h"

namespace vexil_tool {

namespace {

/** Collects what one loading call delivers. */
class Collector {
public:
	Collector(const pim *map, const std::vector<std::string> &labels)
	    : labels_(labels), bytes_left_(8 * map->builder.data_buffer.buf_used + 64)
	{
		current = this;
	}
	~Collector() { current = nullptr; }
	Collector(const Collector &) = delete;
	Collector &operator=(const Collector &) = delete;

	/** The library's frames cannot be left by an exception: it waits here until they are gone.
	 */
	void add(Delivered::Kind kind, int tag, std::string_view data,
		 std::string_view name) noexcept
	{
		try {
			load_.endless = load_.endless || data.size() > bytes_left_;
			if (load_.endless || error_)
				return;
			bytes_left_ -= data.size();
			load_.blocks.push_back({kind, tag, data, std::string(name)});
		} catch (...) {
			error_ = std::current_exception();
		}
	}

	[[nodiscard]] Load take()
	{
		if (error_)
			std::rethrow_exception(error_);
		return std::move(load_);
	}

	[[nodiscard]] std::string_view label(size_t place) const
	{
		return place < labels_.size() ? std::string_view(labels_[place])
					      : std::string_view();
	}

	/** The algorithm handler is called without a context of ours. */
	static inline Collector *current = nullptr;

private:
	const std::vector<std::string> &labels_;
	size_t bytes_left_; // sound maps deliver each record once
	Load load_;
	std::exception_ptr error_;
};

bool receive_registers(int tag, const char *data, u32 length, void *context)
{
	static_cast<Collector *>(context)->add(Delivered::Kind::kRegisters, tag, {data, length},
					       {});
	return true;
}

/** A handler is told neither its label nor its place, so each place has a function of its own. */
template <size_t place>
bool receive_table(int tag, const char *data, u32 length, void *context)
{
	auto *collector = static_cast<Collector *>(context);
	collector->add(Delivered::Kind::kTable, tag, {data, length}, collector->label(place));
	return true;
}

template <size_t... places>
constexpr std::array<vexil_callback, sizeof...(places)> table_receivers(
	std::index_sequence<places...>)
{
	return {receive_table<places>...};
}

constexpr auto kTableReceivers = table_receivers(std::make_index_sequence<kMostHandlers>());

bool receive_algorithm(int tag, const char *data, u32 length, const char *entry, u32 entry_length)
{
	const size_t name_length = entry_length > 0 ? entry_length - 1 : 0; // without its NUL
	if (Collector::current)
		Collector::current->add(Delivered::Kind::kAlgorithm, tag, {data, length},
					{entry, name_length});
	return true;
}

} // namespace

Map::Map()
{
	void *context = nullptr;
	if (!library().fp_CB_vexil_pim_init(&context, nullptr, 0))
		throw std::bad_alloc();
	record_ = static_cast<pim *>(context);
}

Map::Map(Map &&other) noexcept
    : image_(std::move(other.image_)), table_(std::move(other.table_)),
      labels_(std::move(other.labels_)), record_(std::exchange(other.record_, nullptr))
{
}

Map::~Map()
{
	void *context = record_;
	library().fp_CB_vexil_pim_destroy(&context);
}

std::optional<Map> Map::adopt(std::vector<char> image, std::vector<ST_PQ_REG_INFO> table,
			      bool *complete)
{
	Map map(static_cast<pim *>(nullptr));
	map.image_ = std::move(image);
	map.table_ = std::move(table);
	void *context = nullptr;
	*complete = library().fp_CB_vexil_pim_init_with_regmerge(
		&context, map.image_.data(), static_cast<u32>(map.image_.size()), map.table_.data(),
		map.table_.size());
	map.record_ = static_cast<pim *>(context); // also of a map that is not complete
	if (!map.record_)
		return std::nullopt;
	return map;
}

std::optional<Map> Map::merge(const Map &base, const Map &sub, extmem_err_code *error)
{
	Map map;
	if (library().fp_CB_vexil_pim_merge(map.record_, base.record_, sub.record_))
		return map;
	*error = map.store_error();
	return std::nullopt;
}

bool Map::insert_hardware(const cJSON *document)
{
	return library().fp_CB_vexil_pim_insert_regmap_json(record_, unlocked(document));
}

bool Map::insert_software(const cJSON *document)
{
	return library().fp_CB_vexil_pim_insert_vregmap_json(record_, unlocked(document));
}

bool Map::insert_customer(const cJSON *document)
{
	return library().fp_CB_vexil_pim_insert_cus_vregmap_json(record_, unlocked(document));
}

bool Map::insert_handler(const std::string &label)
{
	return library().fp_CB_vexil_pim_insert_handler(record_, label.c_str(), nullptr);
}

bool Map::insert_file(const std::string &name, const std::vector<char> &bytes)
{
	return library().fp_CB_vexil_pim_insert_file(record_, name.c_str(), bytes.data(),
						     static_cast<u32>(bytes.size()));
}

bool Map::insert_groups(const cJSON *document)
{
	return library().fp_CB_vexil_pim_insert(record_, unlocked(document));
}

void Map::finish()
{
	library().fp_CB_vexil_pim_finish(record_);
}

std::vector<char> Map::exported()
{
	std::vector<char> image(library().fp_CB_vexil_pim_get_export_size(record_));
	image.resize(library().fp_CB_vexil_pim_export(record_, image.data()));
	return image;
}

u16 Map::setting_id(const std::string &label) const
{
	return pim_query_setting_id(record_, label.c_str());
}

u16 Map::preset_id(const std::string &label) const
{
	return pim_query_preset_id(record_, label.c_str());
}

u16 Map::ip_id(const std::string &name) const
{
	const int id = ctrie_find(&record_->ip_map, name.c_str());
	return id >= 0 && id < static_cast<int>(VEXIL_NO_ID) ? static_cast<u16>(id)
							     : u16{VEXIL_NO_ID};
}

bool Map::is_setting(u16 id) const
{
	const int tag = extmem_fetch_tag(extmem_create_node_d(&record_->builder, id));
	return tag == EXTMEM_TAG_IP_CONFIG || tag == EXTMEM_TAG_IP_COMMON_REG_CONFIG;
}

bool Map::is_preset(u16 id) const
{
	return extmem_fetch_tag(extmem_create_node_d(&record_->builder, id)) ==
	       EXTMEM_TAG_IP_PRESET_REG_CONFIG;
}

std::string Map::label(u16 id) const
{
	char *text = nullptr;
	library().fp_CB_vexil_pim_get_setting(record_, id, &text);
	return text ? text : "";
}

size_t Map::nodes_used() const
{
	return record_->builder.node_buffer.buf_used / sizeof(extmem_node);
}

size_t Map::bytes_used() const
{
	return record_->builder.data_buffer.buf_used;
}

std::string Map::customer_text() const
{
	return {record_->cus_version, strnlen(record_->cus_version, sizeof record_->cus_version)};
}

void Map::print() const
{
	pim_print(record_);
}

void Map::receive_tables(const std::vector<std::string> &labels)
{
	for (const std::string &label : labels) {
		if (labels_.size() == kMostHandlers)
			break;
		labels_.push_back(label);
		library().fp_CB_vexil_pim_insert_handler(record_, label.c_str(),
							 kTableReceivers[labels_.size() - 1]);
	}
	library().fp_CB_vexil_pim_insert_alg_handler(record_, receive_algorithm);
}

Load Map::load(u16 id, u32 budget)
{
	Collector collector(record_, labels_);
	const u32 remaining = library().fp_CB_vexil_pim_load_setting_count(
		record_, id, budget, receive_registers, &collector);
	Load load = collector.take();
	load.remaining = remaining;
	return load;
}

void Map::load_unknown(const std::string &label)
{
	Collector collector(record_, labels_);
	library().fp_CB_vexil_pim_load_setting_by_name(record_, label.c_str(), receive_registers,
						       &collector);
}

Load Map::load_preset(u16 id, const std::string &table)
{
	Collector collector(record_, labels_);
	std::string name = table; // the table's slots take no constants
	library().fp_CB_vexil_pim_load_preset(record_, &id, 1, name.data(), receive_registers,
					      &collector);
	return collector.take();
}

Load Map::load_common()
{
	Collector collector(record_, labels_);
	library().fp_CB_vexil_pim_load_common_reg_setting(record_, receive_registers, &collector);
	return collector.take();
}

} // namespace vexil_tool
