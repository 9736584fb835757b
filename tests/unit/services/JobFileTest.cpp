// SPDX-License-Identifier: Apache-2.0

#include "platform/services/JobFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/foundation/NSString.h"
#include "platform/services/ServiceError.h"

namespace {

using platform::JobDescription;
using platform::parseJobFile;
using testing::ElementsAre;

std::span<const std::uint8_t> bytes(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

std::string document(const std::string& entries) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>" + entries +
         "</dict></plist>";
}
const std::string kLabel = "<key>Label</key><string>com.x</string>";
const std::string kProgram =
    "<key>ProgramArguments</key><array><string>/p/com.x</string><string>-v</string></array>";
const std::string kServices = "<key>MachServices</key><dict><key>com.x</key><true/></dict>";

/// Why a document is refused; empty when it is not.
std::string refusal(const std::string& text) {
  std::string reason;
  return parseJobFile(bytes(text), "com.x", &reason) ? "" : reason;
}

TEST(JobFile, DescribesTheJob) {
  const auto job = parseJobFile(bytes(document(kLabel + kProgram + kServices)), "com.x", nullptr);
  ASSERT_TRUE(job);
  EXPECT_EQ(job->label, "com.x");
  EXPECT_THAT(job->arguments, ElementsAre("/p/com.x", "-v"));
  EXPECT_THAT(job->services, ElementsAre("com.x"));
}

TEST(JobFile, WhatIsEncodedIsReadBack) {
  const JobDescription job{"com.x", {"/root with <odd> & names/com.x"}, {"com.x", "com.x.second"}};
  const auto read = parseJobFile(platform::encodeJobFile(job), "com.x", nullptr);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->arguments, job.arguments);
  EXPECT_EQ(read->services, job.services);
}

TEST(JobFile, OfAnotherLabelIsNoJob) {
  EXPECT_EQ(refusal(document("<key>Label</key><string>com.y</string>" + kProgram + kServices)),
            "its Label is not \"com.x\"");
  EXPECT_EQ(refusal(document(kProgram + kServices)), "its Label is not \"com.x\"");
  EXPECT_EQ(refusal(document("<key>Label</key><integer>3</integer>" + kProgram + kServices)),
            "its Label is not \"com.x\"");
}

TEST(JobFile, ThatIsNoPropertyListIsNoJob) {
  EXPECT_EQ(refusal(""), "it is not a property list with a dictionary");
  EXPECT_EQ(refusal("garbage"), "it is not a property list with a dictionary");
  EXPECT_EQ(refusal("<plist version=\"1.0\"><array/></plist>"),
            "it is not a property list with a dictionary");
}

TEST(JobFile, NeedsAnAbsoluteProgram) {
  EXPECT_EQ(refusal(document(kLabel + kServices)), "it has no ProgramArguments");
  EXPECT_EQ(refusal(document(kLabel + kServices + "<key>ProgramArguments</key><array/>")),
            "it has no ProgramArguments");
  EXPECT_EQ(refusal(document(kLabel + kServices +
                             "<key>ProgramArguments</key><array><string>x</string></array>")),
            "its program is not an absolute path");
  EXPECT_EQ(refusal(document(kLabel + kServices +
                             "<key>ProgramArguments</key><array><integer>1</integer></array>")),
            "one of its ProgramArguments is not a string");
}

TEST(JobFile, NeedsAValidServiceThatIsOffered) {
  const auto with = [](const std::string& entries) {
    return refusal(
        document(kLabel + kProgram + "<key>MachServices</key><dict>" + entries + "</dict>"));
  };
  EXPECT_EQ(with(""), "none of its MachServices is enabled");
  EXPECT_EQ(with("<key>com.x</key><false/>"), "none of its MachServices is enabled");
  EXPECT_EQ(with("<key>../x</key><true/>"), "one of its MachServices has an invalid name");
  EXPECT_EQ(with("<key>jobd</key><true/>"), "the service name \"jobd\" is taken");
  EXPECT_EQ(with("<key>com.x</key><dict/>"), "");
  std::string many;
  for (int i = 0; i < 17; ++i) many += "<key>com.x.s" + std::to_string(i) + "</key><true/>";
  EXPECT_EQ(with(many), "it has too many MachServices");
}

TEST(JobFile, ServicesAreItsOwn) {
  for (const std::string own : {"com.x", "com.x.y", "com.x.y.z"})
    EXPECT_TRUE(platform::mayOffer("com.x", own)) << own;
  for (const std::string foreign : {"com.xy", "com", "com.y", "com.x-y", "x", ""}) {
    EXPECT_FALSE(platform::mayOffer("com.x", foreign)) << foreign;
    if (foreign.empty()) continue;
    EXPECT_EQ(
        refusal(document(kLabel + kProgram + "<key>MachServices</key><dict><key>com.x</key>" +
                         "<true/><key>" + foreign + "</key><true/></dict>")),
        "the service " + foreign + " is not its own: it may offer com.x and names below that");
  }
}

TEST(JobFile, DictionaryNeedsTheLabelOnly) {
  const auto dictionary = platform::jobDictionary(bytes(document(kLabel)), "com.x", nullptr);
  ASSERT_TRUE(dictionary);
  EXPECT_EQ(dictionary->count(), 1U);
}

std::string argumentsOf(std::size_t count) {
  std::string array;
  for (std::size_t i = 0; i < count; ++i) array += "<string>/p</string>";
  return "<key>ProgramArguments</key><array>" + array + "</array>";
}

TEST(JobFile, HasSoManyArgumentsAndServicesAtMost) {
  EXPECT_EQ(refusal(document(kLabel + kServices + argumentsOf(64))), "");
  EXPECT_EQ(refusal(document(kLabel + kServices + argumentsOf(65))),
            "it has too many ProgramArguments");
  std::string many;
  for (int i = 0; i < 16; ++i) many += "<key>com.x.s" + std::to_string(i) + "</key><true/>";
  const std::string refused = "<key>com.x.off</key><false/>";  // does not count
  EXPECT_EQ(refusal(document(kLabel + kProgram + "<key>MachServices</key><dict>" + many + refused +
                             "</dict>")),
            "");
}

TEST(JobFile, AnArgumentHoldsNoNul) {
  using namespace platform;
  const auto withArgument = [](std::string_view argument) {
    const auto data = NSPropertyListSerialization::dataWithPropertyList_format_error(
        NSDictionary::dictionaryWithEntries(
            {{str("Label"), str("com.x")},
             {str("ProgramArguments"), NSArray::arrayWithObjects({str("/p"), str(argument)})},
             {str("MachServices"), NSDictionary::dictionaryWithEntries(
                                       {{str("com.x"), NSNumber::numberWithBool(true)}})}}),
        NSPropertyListFormat::Binary, nullptr);
    std::string reason;
    return parseJobFile(data->span(), "com.x", &reason) ? "" : reason;
  };
  EXPECT_EQ(withArgument("plain"), "");
  EXPECT_EQ(withArgument(std::string_view("a\0b", 3)),
            "one of its ProgramArguments is not a string");
}

TEST(JobFile, AnEmptyProgramIsNoPath) {
  EXPECT_EQ(refusal(document(kLabel + kServices +
                             "<key>ProgramArguments</key><array><string></string></array>")),
            "its program is not an absolute path");
}

TEST(JobFile, WhyItIsNoneNeedNotBeAsked) {
  for (const std::string& bad : {std::string(), document(""), document(kLabel),
                                 document(kLabel + kProgram), document(kLabel + kServices)})
    EXPECT_FALSE(parseJobFile(bytes(bad), "com.x", nullptr)) << bad;
}

TEST(JobFile, AServiceOfAnotherKindThanTrueOrOptionsIsNotOffered) {
  EXPECT_EQ(refusal(document(kLabel + kProgram +
                             "<key>MachServices</key><dict><key>com.x</key><string>yes</string>"
                             "</dict>")),
            "none of its MachServices is enabled");
  EXPECT_EQ(refusal(document(kLabel + kProgram)), "it has no MachServices");
}

TEST(JobFile, WhatAPropertyListCannotHoldIsNotWritten) {
  for (const char* argument : {"\xFF", "\x01"}) {
    try {
      (void)platform::encodeJobFile({"com.x", {"/p", argument}, {"com.x"}});
      ADD_FAILURE() << "written";
    } catch (const platform::ServiceError& error) {
      EXPECT_EQ(error.code(), platform::ServiceErrorCode::InvalidArgument);
      EXPECT_STREQ(error.what(),
                   "a path or argument of the job com.x cannot be written to its job file");
    }
  }
}

}  // namespace
