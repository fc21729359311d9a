// SPDX-License-Identifier: MIT
//
// The call, the head, and nodes one by one: images with one defect each, and the exact answer.
#include "tests/support/verify.h"

namespace {

using namespace vexil_test;

class ImageVerify : public testing::Test {
protected:
	void TearDown() override { EXPECT_EQ(take_log(), ""); }
	SmallMap map;
	SmallRules rules;
};

TEST_F(ImageVerify, SoundImagesOfBothKinds)
{
	EXPECT_EQ(fault_of(map.plan), kSound);
	EXPECT_EQ(fault_of(rules.plan), kSound);
}

TEST_F(ImageVerify, AnEmptyImageOfEachKind)
{
	EXPECT_EQ(fault_of(PimImage()), kSound);
	EXPECT_EQ(fault_of(RuleImage()), kSound);
}

TEST_F(ImageVerify, TheFaultMayBeLeftOut)
{
	const ImageBytes image = map.plan.write();
	EXPECT_TRUE(vexil_image_verify(image.bytes().data(), image.size(), nullptr));
	map.plan.stored_id(3, 4);
	const ImageBytes damaged = map.plan.write();
	EXPECT_FALSE(vexil_image_verify(damaged.bytes().data(), damaged.size(), nullptr));
}

TEST_F(ImageVerify, NoBuffer)
{
	Fault fault{};
	EXPECT_FALSE(vexil_image_verify(nullptr, 2048, &fault));
	EXPECT_EQ(fault, (Fault{VEXIL_IMAGE_TOO_SHORT, 0, kNoId, kNoId}));
}

TEST_F(ImageVerify, EveryShorterBuffer)
{
	const std::vector<char> whole = map.plan.write().bytes();
	for (std::size_t size = 0; size < whole.size(); size += size < 128 ? 1 : 97) {
		const std::vector<char> part(whole.begin(),
					     whole.begin() + static_cast<std::ptrdiff_t>(size));
		const auto code = size < 104 ? VEXIL_IMAGE_TOO_SHORT : VEXIL_IMAGE_TRUNCATED;
		EXPECT_EQ(fault_of(part), (Fault{code, static_cast<u32>(size), kNoId, kNoId}));
	}
}

TEST_F(ImageVerify, ALongerBuffer)
{
	ImageBytes image = map.plan.write();
	image.resize(image.size() + 4096);
	EXPECT_EQ(fault_of(image), kSound);
}

TEST_F(ImageVerify, AnImageAtAnyAddress)
{
	const std::vector<char> whole = rules.plan.write().bytes();
	std::vector<char> room(whole.size() + 1);
	std::copy(whole.begin(), whole.end(), room.begin() + 1);
	EXPECT_TRUE(vexil_image_verify(room.data() + 1, static_cast<u32>(whole.size()), nullptr));
}

TEST_F(ImageVerify, WithoutMemory)
{
	const ImageBytes image = map.plan.write();
	Fault fault{};
	const Refuse refusal = Refuse::only(1);
	EXPECT_FALSE(vexil_image_verify(image.bytes().data(), image.size(), &fault));
	EXPECT_TRUE(refusal.happened());
	EXPECT_EQ(fault, (Fault{VEXIL_IMAGE_NO_MEMORY, 0, kNoId, kNoId}));
}

TEST_F(ImageVerify, UnknownKind)
{
	map.plan.header.binType = 3;
	EXPECT_EQ(fault_of(map.plan), (Fault{VEXIL_IMAGE_UNKNOWN_KIND, 80, kNoId, kNoId}));
}

TEST_F(ImageVerify, UnknownVersion)
{
	map.plan.header.codeVersion = {2, 3, 0};
	EXPECT_EQ(fault_of(map.plan), (Fault{VEXIL_IMAGE_UNKNOWN_VERSION, 72, kNoId, kNoId}));
	map.plan.header.codeVersion = {1, 2, 2};
	EXPECT_EQ(fault_of(map.plan), (Fault{VEXIL_IMAGE_UNKNOWN_VERSION, 72, kNoId, kNoId}));
	map.plan.header.codeVersion = {2, 0, 7};
	EXPECT_EQ(fault_of(map.plan), kSound);
}

TEST_F(ImageVerify, MoreNodesInUseThanThereIsRoomFor)
{
	ImageBytes image = map.plan.write();
	image.put(88, image.node_capacity() + 16);
	EXPECT_EQ(fault_of(image), (Fault{VEXIL_IMAGE_NODE_FIGURES, 88, kNoId, kNoId}));
}

TEST_F(ImageVerify, NoWholeNumberOfNodes)
{
	ImageBytes image = map.plan.write();
	image.put(88, image.nodes_used() - 8);
	EXPECT_EQ(fault_of(image), (Fault{VEXIL_IMAGE_NODE_FIGURES, 88, kNoId, kNoId}));
}

TEST_F(ImageVerify, NoRoomForNodesAtAll)
{
	ImageBytes image = map.plan.write();
	image.put(88, u64{0});
	EXPECT_EQ(fault_of(image), (Fault{VEXIL_IMAGE_NODE_FIGURES, 88, kNoId, kNoId}));
}

TEST_F(ImageVerify, NodeCapacityThatWraps)
{
	ImageBytes image = map.plan.write();
	image.put(92, 0xFFFFFFF0u);
	EXPECT_EQ(fault_of(image), (Fault{VEXIL_IMAGE_TRUNCATED, image.size(), kNoId, kNoId}));
}

TEST_F(ImageVerify, MoreDataInUseThanThereIsRoomFor)
{
	ImageBytes image = map.plan.write();
	const auto at = static_cast<u32>(image.data_at() - 8);
	image.put(at, image.data_capacity() + 8);
	EXPECT_EQ(fault_of(image), (Fault{VEXIL_IMAGE_DATA_FIGURES, at, kNoId, kNoId}));
}

TEST_F(ImageVerify, NoWholeStepsOfData)
{
	ImageBytes image = map.plan.write();
	const auto at = static_cast<u32>(image.data_at() - 8);
	image.put(at, image.data_used() - 1);
	EXPECT_EQ(fault_of(image), (Fault{VEXIL_IMAGE_DATA_FIGURES, at, kNoId, kNoId}));
}

TEST_F(ImageVerify, DataCapacityThatWraps)
{
	ImageBytes image = map.plan.write();
	image.put(image.data_at() - 4, 0xFFFFFFF8u);
	EXPECT_EQ(fault_of(image), (Fault{VEXIL_IMAGE_TRUNCATED, image.size(), kNoId, kNoId}));
}

TEST_F(ImageVerify, HeadThatSaysAnotherSize)
{
	ImageBytes image = map.plan.write();
	image.put(84, image.size() - 8);
	EXPECT_EQ(fault_of(image), (Fault{VEXIL_IMAGE_SIZE, 84, kNoId, kNoId}));
}

TEST_F(ImageVerify, NoNodeAtAll)
{
	ImageBytes image = map.plan.write();
	image.put(88, u32{0});
	EXPECT_EQ(fault_of(image), (Fault{VEXIL_IMAGE_NO_ROOT, 88, kNoId, kNoId}));
}

TEST_F(ImageVerify, RootOfAnotherTag)
{
	map.plan.tag(0, EXTMEM_TAG_IP);
	EXPECT_EQ(fault_of(map.plan),
		  (Fault{VEXIL_IMAGE_NO_ROOT, field_at(0, kTagField), 0, kNoId}));
}

TEST_F(ImageVerify, RootWithASibling)
{
	const u16 lost = map.plan.add(EXTMEM_TAG_GENERAL);
	map.plan.next(0, lost);
	EXPECT_EQ(fault_of(map.plan),
		  (Fault{VEXIL_IMAGE_MISPLACED, field_at(lost, kTagField), lost, 0}));
}

/** A map of @nodes nodes, all but the root reached by nothing. */
ImageBytes full_image(std::size_t nodes)
{
	PimImage plan;
	while (plan.nodes() < (nodes < 65535 ? nodes : 65535))
		plan.add(EXTMEM_TAG_GENERAL);
	plan.node_capacity = 0x200000;
	ImageBytes image = plan.write();
	image.put(88, static_cast<u32>(16 * nodes));
	return image;
}

TEST_F(ImageVerify, AsManyNodesAsThereAreIds)
{
	EXPECT_EQ(fault_of(full_image(65535)), kSound);
}

TEST_F(ImageVerify, SlotsOfRequestsBeyondTheLastIdAreEmpty)
{
	EXPECT_EQ(fault_of(full_image(65537)), kSound);
}

TEST_F(ImageVerify, ANodeThatNoIdCanName)
{
	ImageBytes image = full_image(65536);
	image.put(96 + 65535 * 16 + 2, u8{EXTMEM_TAG_GENERAL});
	EXPECT_EQ(fault_of(image),
		  (Fault{VEXIL_IMAGE_TOO_MANY_NODES, 96 + 65535 * 16 + 2, kNoId, kNoId}));
}

TEST_F(ImageVerify, NodeThatStoresTheIdOfAnother)
{
	map.plan.stored_id(map.config, 0);
	EXPECT_EQ(fault_of(map.plan),
		  (Fault{VEXIL_IMAGE_NODE_ID, field_at(map.config, 0), map.config, kNoId}));
}

TEST_F(ImageVerify, TagsThatNothingHas)
{
	const u16 spare = map.plan.add(EXTMEM_TAG_GENERAL);
	for (const int tag : {0, 2, 15, 16, 33, 58, 59, 255}) {
		map.plan.tag(spare, tag);
		EXPECT_EQ(fault_of(map.plan),
			  (Fault{VEXIL_IMAGE_NODE_TAG, field_at(spare, kTagField), spare, kNoId}))
			<< tag;
	}
}

TEST_F(ImageVerify, ChildOutsideOfTheNodes)
{
	const auto nodes = static_cast<u16>(map.plan.nodes());
	map.plan.child(map.bare, nodes);
	EXPECT_EQ(fault_of(map.plan),
		  (Fault{VEXIL_IMAGE_LINK, field_at(map.bare, kChildField), map.bare, nodes}));
}

TEST_F(ImageVerify, SiblingOutsideOfTheNodes)
{
	map.plan.next(map.third(map.bare), 0xFFFE);
	const u16 version = map.third(map.bare);
	EXPECT_EQ(fault_of(map.plan),
		  (Fault{VEXIL_IMAGE_LINK, field_at(version, kNextField), version, 0xFFFE}));
}

TEST_F(ImageVerify, LinkOfANodeThatNothingLeadsTo)
{
	const u16 spare = map.plan.add(EXTMEM_TAG_IP);
	map.plan.child(spare, static_cast<u16>(spare + 1));
	EXPECT_EQ(fault_of(map.plan), (Fault{VEXIL_IMAGE_LINK, field_at(spare, kChildField), spare,
					     static_cast<u16>(spare + 1)}));
}

TEST_F(ImageVerify, RecordThatEndsOutsideOfTheData)
{
	const u16 text = map.text(map.bare);
	const auto used = static_cast<u32>(map.plan.data_bytes());
	map.plan.record(text, used - map.plan.record_offset(text) + 1,
			map.plan.record_offset(text));
	EXPECT_EQ(fault_of(map.plan),
		  (Fault{VEXIL_IMAGE_RECORD_BOUNDS, field_at(text, kSizeField), text, kNoId}));
}

TEST_F(ImageVerify, RecordWhoseEndWraps)
{
	const u16 text = map.text(map.bare);
	map.plan.record(text, 16, 0xFFFFFFF8);
	EXPECT_EQ(fault_of(map.plan),
		  (Fault{VEXIL_IMAGE_RECORD_BOUNDS, field_at(text, kSizeField), text, kNoId}));
}

TEST_F(ImageVerify, EmptyRecord)
{
	const u16 text = map.text(map.bare);
	map.plan.record(text, 0, map.plan.record_offset(text));
	EXPECT_EQ(fault_of(map.plan),
		  (Fault{VEXIL_IMAGE_RECORD_BOUNDS, field_at(text, kSizeField), text, kNoId}));
}

TEST_F(ImageVerify, RecordAtNoMultipleOfEight)
{
	const u16 text = map.text(map.bare);
	map.plan.record(text, 2, map.plan.record_offset(text) + 4);
	EXPECT_EQ(fault_of(map.plan),
		  (Fault{VEXIL_IMAGE_RECORD_ALIGNMENT, field_at(text, kOffsetField), text, kNoId}));
}

TEST_F(ImageVerify, RecordOfTwoNodes)
{
	const u16 first = map.text(map.file);
	const u16 second = map.text(map.bare);
	map.plan.record(second, map.plan.record_size(first), map.plan.record_offset(first));
	EXPECT_EQ(fault_of(map.plan),
		  (Fault{VEXIL_IMAGE_RECORD_ORDER, field_at(second, kOffsetField), second, kNoId}));
}

TEST_F(ImageVerify, RecordThatRunsIntoTheNext)
{
	const u16 first = map.text(map.file);
	const u16 second = map.text(map.bare);
	map.plan.record(first, map.plan.record_size(first) + 8, map.plan.record_offset(first));
	EXPECT_EQ(fault_of(map.plan),
		  (Fault{VEXIL_IMAGE_RECORD_ORDER, field_at(second, kOffsetField), second, kNoId}));
}

TEST_F(ImageVerify, NodesOfFailedInsertionsMayStay)
{
	map.plan.add(EXTMEM_TAG_STRING_HOLDER); // requested, but never given a record
	const u16 holder = map.plan.add(EXTMEM_TAG_GENERAL);
	map.plan.child(holder, map.plan.add(EXTMEM_TAG_IP));
	EXPECT_EQ(fault_of(map.plan), kSound);
}

TEST_F(ImageVerify, EveryCodeHasATextOfItsOwn)
{
	std::vector<std::string> texts;
	for (u32 code = 0; code < VEXIL_IMAGE_CODES; ++code) {
		texts.emplace_back(vexil_image_code_text(code));
		EXPECT_EQ(texts.back().find('\n'), std::string::npos);
	}
	const std::string unknown = "a fault of an unknown kind";
	EXPECT_EQ(vexil_image_code_text(VEXIL_IMAGE_CODES), unknown);
	EXPECT_EQ(vexil_image_code_text(0xFFFFFFFF), unknown);
	texts.push_back(unknown);
	std::sort(texts.begin(), texts.end());
	EXPECT_EQ(std::adjacent_find(texts.begin(), texts.end()), texts.end());
	EXPECT_EQ(std::string(vexil_image_code_text(VEXIL_IMAGE_SOUND)), "the image is sound");
	EXPECT_EQ(std::string(vexil_image_code_text(VEXIL_IMAGE_RULE_RING)),
		  "a rule leads back to itself");
}

} // namespace
