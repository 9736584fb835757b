// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/PendingRequests.h"

#include <gtest/gtest.h>

namespace {

using platform::NSError;
using platform::XPCReplyHandler;
using platform::XPCValues;
using platform::xpc::PendingRequests;
using platform::xpc::SharedErrorHandler;

SharedErrorHandler anyHandler() {
  return std::make_shared<platform::XPCErrorHandler>([](const std::shared_ptr<NSError>&) {});
}

TEST(PendingRequests, IDsBeginWithOneAndGrow) {
  PendingRequests requests;
  EXPECT_EQ(requests.newID(), 1U);
  EXPECT_EQ(requests.newID(), 2U);
}

TEST(PendingRequests, AreTakenOnceAndCanBePutBack) {
  PendingRequests requests;
  requests.add(7, {nullptr, 3, {}, anyHandler()});
  EXPECT_TRUE(requests.take(8).empty());
  auto taken = requests.take(7);
  ASSERT_FALSE(taken.empty());
  EXPECT_EQ(taken.mapped().method, 3U);
  EXPECT_TRUE(requests.take(7).empty());
  EXPECT_TRUE(requests.empty());
  requests.putBack(std::move(taken));
  EXPECT_FALSE(requests.take(7).empty());
}

TEST(PendingRequests, AreTakenWholeInTheOrderOfSending) {
  PendingRequests requests;
  for (const std::uint64_t id : {3, 1, 2}) requests.add(id, {nullptr, id, {}, {}});
  std::vector<std::size_t> order;
  for (const auto& [id, request] : requests.takeAll()) order.push_back(request.method);
  EXPECT_EQ(order, (std::vector<std::size_t>{1, 2, 3}));
  EXPECT_TRUE(requests.empty());
}

TEST(PendingRequests, FailInTheOrderOfFailing) {
  PendingRequests requests;
  const auto first = anyHandler();
  const auto second = anyHandler();
  XPCReplyHandler reply = [](const XPCValues&) {};
  EXPECT_TRUE(requests.fail(reply, first, nullptr));
  EXPECT_FALSE(reply) << "it is released with its error handler";
  EXPECT_TRUE(requests.fail(reply, second, nullptr));
  EXPECT_FALSE(requests.empty());
  EXPECT_TRUE(requests.hasFailures());
  const auto due = requests.takeFailures();
  ASSERT_EQ(due.size(), 2U);
  EXPECT_EQ(due[0].errorHandler, first);
  EXPECT_TRUE(due[0].reply);
  EXPECT_EQ(due[1].errorHandler, second);
  EXPECT_FALSE(requests.hasFailures());
}

TEST(PendingRequests, WhatNobodyWantsToHearOfIsNotKept) {
  PendingRequests requests;
  XPCReplyHandler reply = [](const XPCValues&) {};
  EXPECT_FALSE(requests.fail(reply, nullptr, nullptr));
  EXPECT_FALSE(requests.fail(reply, std::make_shared<platform::XPCErrorHandler>(), nullptr));
  EXPECT_TRUE(reply);
  EXPECT_TRUE(requests.empty());
}

}  // namespace
