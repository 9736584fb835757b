// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/Hello.h"
#include "tests/unit/xpc/CoderSupport.h"

using namespace codertest;

namespace {

Bytes header(std::uint32_t length, std::uint8_t kind, std::uint8_t reserved, std::uint16_t method) {
  WireWriter writer;
  writer.u32(length);
  writer.u8(kind);
  writer.u8(reserved);
  writer.u16(method);
  return {writer.bytes().begin(), writer.bytes().end()};
}

HeaderVerdict verdict(const Bytes& bytes) {
  FrameHeader ignored;
  return readFrameHeader(bytes.data(), ignored);
}

Bytes helloBody(const Hello& hello) {
  WireWriter writer;
  writeHello(writer, hello);
  return {writer.bytes().begin() + kFrameHeaderSize, writer.bytes().end()};
}

}  // namespace

TEST(Frame, AHeaderReadsBack) {
  FrameHeader read;
  ASSERT_EQ(readFrameHeader(header(0x123456, 3, 0, 0xABCD).data(), read), HeaderVerdict::Valid);
  EXPECT_EQ(read.length, 0x123456U);
  EXPECT_EQ(read.kind, FrameKind::Request);
  EXPECT_EQ(read.method, 0xABCD);
}

TEST(Frame, TheLengthHasALimit) {
  EXPECT_EQ(verdict(header(kMaxFrameBody - 1, 2, 0, 0)), HeaderVerdict::Valid);
  EXPECT_EQ(verdict(header(kMaxFrameBody, 2, 0, 0)), HeaderVerdict::Valid);
  EXPECT_EQ(verdict(header(kMaxFrameBody + 1, 2, 0, 0)), HeaderVerdict::TooLong);
  EXPECT_EQ(verdict(header(0xFFFFFFFF, 2, 0, 0)), HeaderVerdict::TooLong);
}

TEST(Frame, KindsAreOneToSix) {
  EXPECT_EQ(verdict(header(0, 0, 0, 0)), HeaderVerdict::UnknownKind);
  for (std::uint8_t kind = 1; kind <= 6; ++kind)
    EXPECT_EQ(verdict(header(0, kind, 0, 0)), HeaderVerdict::Valid);
  EXPECT_EQ(verdict(header(0, 7, 0, 0)), HeaderVerdict::UnknownKind);
}

TEST(Frame, TheReservedByteIsZero) {
  EXPECT_EQ(verdict(header(0, 2, 1, 0)), HeaderVerdict::ReservedNotZero);
}

TEST(Frame, SizesHaveOneFormEach) {
  for (const std::size_t size : {0U, 254U, 255U, 256U, 70000U}) {
    WireWriter writer;
    writer.size(size);
    EXPECT_EQ(writer.size(), size < 255 ? 1U : 5U);
    WireReader reader(writer.bytes());
    EXPECT_EQ(reader.size(), size);
    EXPECT_FALSE(reader.failed());
  }
  const Bytes longForm{0xFF, 254, 0, 0, 0};
  WireReader reader(longForm);
  reader.size();
  EXPECT_TRUE(reader.failed());
}

TEST(Frame, AWriterGrowsBeyondItsInlineBytes) {
  WireWriter writer;
  Bytes expected;
  for (std::uint32_t i = 0; i < 5000; ++i) {
    writer.u8(static_cast<std::uint8_t>(i));
    expected.push_back(static_cast<std::uint8_t>(i));
  }
  EXPECT_EQ(Bytes(writer.bytes().begin(), writer.bytes().end()), expected);
}

TEST(Frame, AReaderThatFailedStaysFailedAndYieldsZeros) {
  const Bytes bytes{1, 2, 3};
  WireReader reader(bytes);
  EXPECT_EQ(reader.u32(), 0U);
  EXPECT_TRUE(reader.failed());
  EXPECT_EQ(reader.u8(), 0U);
  EXPECT_TRUE(reader.block().empty());
}

TEST(HelloFrame, ReadsBack) {
  const auto read = readHello(helloBody({kWireVersion, "One", ""}));
  ASSERT_TRUE(read.has_value());
  EXPECT_EQ(read->exported, "One");
  EXPECT_EQ(read->remote, "");
}

TEST(HelloFrame, EveryTruncationAndATrailingByteAreNone) {
  const Bytes body = helloBody({kWireVersion, "One", "Two"});
  for (std::size_t length = 0; length < body.size(); ++length) {
    EXPECT_FALSE(readHello(std::span(body).first(length)).has_value()) << length;
  }
  Bytes longer(body);
  longer.push_back(0);
  EXPECT_FALSE(readHello(longer).has_value());
}

TEST(HelloFrame, AnotherMagicIsNone) {
  Bytes body = helloBody({kWireVersion, "One", "Two"});
  body[3] = 'Y';
  EXPECT_FALSE(readHello(body).has_value());
}

TEST(HelloFrame, NamesHaveALimit) {
  EXPECT_TRUE(readHello(helloBody({kWireVersion, std::string(254, 'a'), ""})).has_value());
  EXPECT_THROW(helloBody({kWireVersion, std::string(255, 'a'), ""}), std::invalid_argument);
}

TEST(HelloFrame, NamesThatBothEndsGiveMustAgree) {
  const Hello ours{kWireVersion, "Client", "Router"};
  EXPECT_EQ(mismatch(ours, {kWireVersion, "Router", "Client"}), "");
  EXPECT_EQ(mismatch(ours, {kWireVersion, "", ""}), "");
  EXPECT_EQ(mismatch(ours, {kWireVersion, "Other", "Client"}),
            "the peer exports Other, not Router");
  EXPECT_EQ(mismatch(ours, {kWireVersion, "Router", "Other"}),
            "the peer expects Other, not Client");
  EXPECT_EQ(mismatch(ours, {1, "", ""}), "the peer speaks version 1");
}
