// SPDX-License-Identifier: MIT
//
// Named entries of a document: members of an object, or the first members of an array's elements.
#pragma once

#include "core/json.h"
#include "pim/pim.h"

namespace vexil {

/**
 * for (const cJSON *entry : Entries(list)): each entry in document order; NULL for an array element
 * that has no member. Other items than objects and arrays have none.
 */
class Entries {
public:
	explicit Entries(const cJSON *list)
	    : first_(list ? list->child : nullptr), in_elements_(is_array(list))
	{
	}

	class Iterator {
	public:
		Iterator(const cJSON *item, bool in_elements) : item_(item), in_elements_(in_elements) {}
		const cJSON *operator*() const { return in_elements_ ? item_->child : item_; }
		Iterator &operator++()
		{
			item_ = item_->next;
			return *this;
		}
		bool operator!=(const Iterator &other) const { return item_ != other.item_; }

	private:
		const cJSON *item_;
		bool in_elements_;
	};

	[[nodiscard]] Iterator begin() const { return {first_, in_elements_}; }
	[[nodiscard]] Iterator end() const { return {nullptr, in_elements_}; }
	[[nodiscard]] bool empty() const { return first_ == nullptr; }
	/** Entries, those without a member included. Walks them. */
	[[nodiscard]] size_t count() const
	{
		size_t entries = 0;
		for (const cJSON *item = first_; item; item = item->next)
			++entries;
		return entries;
	}

private:
	const cJSON *first_;
	bool in_elements_;
};

/** How a section's register names are resolved, and what is logged when they are not. */
struct RegisterNames {
	ctrie pim::*names;
	const char *function; // as log lines name it
	const char *unknown;  // log format: function, name
};

/** The registers of "hwreg" sections, looked up by @function. */
constexpr RegisterNames hardware_names(const char *function)
{
	return {&pim::regname_to_func, function,
		"[VEXIL][PIM][%s] Cannot find hw_register %s\n"};
}

/** Position and value of an entry. Logged and false for unknown registers and no numbers. */
[[nodiscard]] bool resolve_register(pim *map, const RegisterNames &names, const cJSON *entry,
				    func_pair *pair);

} // namespace vexil
