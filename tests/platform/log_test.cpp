// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/host/host.h"
#include "platform/platform.h"

namespace {

struct Piece {
	std::string text;
	bool ended; // a NUL stands where the length says
	bool operator==(const Piece &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Piece &piece)
{
	return out << piece.text.size() << " characters \"" << piece.text << '"'
		   << (piece.ended ? "" : " without NUL");
}

void collect(const char *text, size_t length, void *context)
{
	static_cast<std::vector<Piece> *>(context)->push_back(
		{std::string(text, length), text[length] == '\0'});
}

class HostLog : public testing::Test {
protected:
	HostLog() { vexil_host_set_log_sink(collect, &pieces_); }
	~HostLog() override { vexil_host_set_log_sink(nullptr, nullptr); }

	std::vector<Piece> pieces_;
};

// First of all that is registered here, but not dependent on it: no test leaves a sink behind.
TEST(HostLogDefault, IsStandardError)
{
	testing::internal::CaptureStderr();
	testing::internal::CaptureStdout();
	const int length = _printk("[%s][%d]vexil lib fail!!\n", "pim_init", 123);
	EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
	EXPECT_EQ(testing::internal::GetCapturedStderr(), "[pim_init][123]vexil lib fail!!\n");
	EXPECT_EQ(length, 32);
}

TEST(HostLogDefault, TakesLongLines)
{
	const std::string text(5000, 'x');
	testing::internal::CaptureStderr();
	EXPECT_EQ(_printk("%s\n", text.c_str()), 5001);
	EXPECT_EQ(testing::internal::GetCapturedStderr(), text + "\n");
}

TEST_F(HostLog, SinkReceivesTheFormattedLine)
{
	EXPECT_EQ(_printk("%s %u 0x%zx %c%%\n", "tag", 42u, size_t{255}, '!'), 15);
	EXPECT_EQ(pieces_, (std::vector<Piece>{{"tag 42 0xff !%\n", true}}));
}

TEST_F(HostLog, LineOfPiecesArrivesPieceByPiece)
{
	_printk("---");
	_printk("%c", 'a');
	_printk("[%d]", -1);
	_printk("\n");
	EXPECT_EQ(pieces_, (std::vector<Piece>{{"---", true}, {"a", true}, {"[-1]", true}, {"\n", true}}));
}

TEST_F(HostLog, LinesOfAnyLengthArriveWhole)
{
	for (const size_t length : {0u, 1u, 510u, 511u, 512u, 513u, 1023u, 1024u, 70000u}) {
		std::string text;
		for (size_t i = 0; i < length; ++i)
			text += static_cast<char>('a' + i % 26);
		pieces_.clear();
		EXPECT_EQ(_printk("%s", text.c_str()), static_cast<int>(length));
		ASSERT_EQ(pieces_.size(), 1u) << length;
		EXPECT_TRUE(pieces_[0] == (Piece{text, true})) << length;
	}
}

TEST_F(HostLog, LongLinesKeepAllTheirArguments)
{
	const std::string text(600, 'x');
	EXPECT_EQ(_printk("%d %s %d\n", 1, text.c_str(), 2), 605);
	EXPECT_EQ(pieces_, (std::vector<Piece>{{"1 " + text + " 2\n", true}}));
}

TEST_F(HostLog, NothingElseReachesStandardError)
{
	testing::internal::CaptureStderr();
	_printk("short\n");
	_printk("%s\n", std::string(600, 'x').c_str());
	EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
	EXPECT_EQ(pieces_.size(), 2u);
}

TEST_F(HostLog, LaterSinkReplacesTheFirst)
{
	std::vector<Piece> others;
	vexil_host_set_log_sink(collect, &others);
	_printk("one\n");
	EXPECT_TRUE(pieces_.empty());
	EXPECT_EQ(others, (std::vector<Piece>{{"one\n", true}}));
}

TEST_F(HostLog, NoSinkMeansStandardErrorAgain)
{
	vexil_host_set_log_sink(nullptr, &pieces_);
	testing::internal::CaptureStderr();
	_printk("back\n");
	EXPECT_EQ(testing::internal::GetCapturedStderr(), "back\n");
	EXPECT_TRUE(pieces_.empty());
}

} // namespace
