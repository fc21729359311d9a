// SPDX-License-Identifier: MIT
//
// JSON documents that free themselves.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "core/json.h"

namespace vexil_test {

struct DeleteDocument {
	void operator()(cJSON *document) const { vexil_json_delete(document); }
};
using Document = std::unique_ptr<cJSON, DeleteDocument>;

/** The parsed document; a text that does not parse fails the test and gives NULL. */
inline Document parse(const std::string &text)
{
	Document document(static_cast<cJSON *>(vexil_json_parse(text.c_str())));
	EXPECT_TRUE(document) << text;
	return document;
}

} // namespace vexil_test
