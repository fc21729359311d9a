// SPDX-License-Identifier: MIT
//
// Reading parsed JSON documents. Parsing and freeing them is declared in vexil/mem.h.
//
// A document belongs to the caller of the library and is only read here; texts and items found in
// it are borrowed for the call. Any item may be NULL, and may be of another kind than hoped for:
// every function below answers that with "none".
//
// Threads: any number of callers may read one document at once.
#pragma once

#include <cJSON.h>

#include <vexil/mem.h>

namespace vexil {

/** Whether @item is there and of one kind, a cJSON_Array, cJSON_String ... */
[[nodiscard]] inline bool is_kind(const cJSON *item, int kind)
{
	return item && (item->type & 0xFF) == kind;
}

[[nodiscard]] inline bool is_object(const cJSON *item)
{
	return is_kind(item, cJSON_Object);
}

[[nodiscard]] inline bool is_array(const cJSON *item)
{
	return is_kind(item, cJSON_Array);
}

[[nodiscard]] inline bool is_string(const cJSON *item)
{
	return is_kind(item, cJSON_String);
}

/** Also true for a string that begins with "0x" and is a hexadecimal number. */
[[nodiscard]] inline bool is_number(const cJSON *item)
{
	return is_kind(item, cJSON_Number);
}

/** The text of a string item; NULL for every other item. */
[[nodiscard]] inline const char *text_of(const cJSON *item)
{
	return is_string(item) ? item->valuestring : nullptr;
}

/** The value of a number item; 0 for every other item. */
[[nodiscard]] inline s64 number_of(const cJSON *item)
{
	return item ? item->valuelong : 0;
}

/** The name of an object's member; NULL for array elements and roots. */
[[nodiscard]] inline const char *name_of(const cJSON *item)
{
	return item ? item->string : nullptr;
}

/**
 * Items of an array or members of an object, in document order; none for NULL:
 * for (const cJSON *entry : items(list)).
 */
class Items {
public:
	class Iterator {
	public:
		explicit Iterator(const cJSON *item) : item_(item) {}
		const cJSON *operator*() const { return item_; }
		Iterator &operator++()
		{
			item_ = item_->next;
			return *this;
		}
		bool operator==(const Iterator &other) const { return item_ == other.item_; }

	private:
		const cJSON *item_;
	};

	explicit Items(const cJSON *holder) : first_(holder ? holder->child : nullptr) {}
	[[nodiscard]] Iterator begin() const { return Iterator(first_); }
	[[nodiscard]] Iterator end() const { return Iterator(nullptr); }

private:
	const cJSON *first_;
};

[[nodiscard]] inline Items items(const cJSON *holder)
{
	return Items(holder);
}

/**
 * The members that several keys name, found in one pass.
 * @object: an object; NULL and anything else has no members
 * @keys:   @count different names; ASCII letter case does not matter
 * @found:  per key its first member in document order, NULL when there is none
 *
 * Cheapest when @keys stand in the order that documents use.
 */
void find_members(const cJSON *object, const char *const *keys, const cJSON **found, size_t count);

template <size_t N>
inline void find_members(const cJSON *object, const char *const (&keys)[N],
			 const cJSON *(&found)[N])
{
	find_members(object, keys, found, N);
}

/** The first member of @object that @key names, NULL when there is none or @key is NULL. */
[[nodiscard]] const cJSON *member(const cJSON *object, const char *key);

} // namespace vexil
