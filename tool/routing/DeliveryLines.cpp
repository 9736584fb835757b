// SPDX-License-Identifier: Apache-2.0

#include "tool/routing/DeliveryLines.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <functional>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "input/UsageNames.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "tool/command/Command.h"

namespace tool {

namespace {

void appendHexadecimal(std::string& out, std::span<const std::uint8_t> bytes,
                       std::string_view separator) {
  constexpr std::string_view digits = "0123456789abcdef";
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i != 0) out += separator;
    out += digits[bytes[i] >> 4];
    out += digits[bytes[i] & 0xf];
  }
}

template <class Number>
void appendNumber(std::string& out, Number number) {
  std::array<char, 24> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  out.append(digits.data(), end);
}

std::string_view text(const std::shared_ptr<platform::NSString>& string) {
  return string ? std::string_view(string->UTF8String()) : std::string_view("(null)");
}

/// Calls `body` with each member that is an element value.
void forEachValue(const platform::NSArray& array,
                  const std::function<void(const platform::HIDElementValueRecord&)>& body) {
  for (std::size_t i = 0; i < array.count(); ++i) {
    const auto object = array.objectAtIndex(i);
    const auto* value = dynamic_cast<const platform::KQHIDDeviceElementValue*>(object.get());
    if (value != nullptr) body(value->record());
  }
}

class JsonLines final : public DeliveryLines {
 public:
  void appendStatus(std::string& out, WLHIDEventRouterClientStatus status) override {
    out += R"({"status":)";
    appendNumber(out, static_cast<std::uint64_t>(status));
    out += "}\n";
  }

  void appendError(std::string& out, const platform::NSError& error) override {
    nlohmann::ordered_json fields = {{"domain", text(error.domain())}, {"code", error.code()}};
    const auto description =
        error.userInfo() ? error.userInfo()->objectForKey(platform::NSLocalizedDescriptionKey)
                         : nullptr;
    if (description) fields["description"] = description->description();
    const nlohmann::ordered_json line = {{"error", fields}};
    out += line.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
    out += '\n';
  }

  void appendEnd(std::string& out, const std::string& reason) override {
    const nlohmann::ordered_json line = {{"ended", reason}};
    out += line.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
    out += '\n';
  }

  void appendReport(std::string& out, std::span<const std::uint8_t> bytes,
                    std::uint32_t reportID) override {
    out += R"({"report":{"id":)";
    appendNumber(out, reportID);
    out += R"(,"data":")";
    appendHexadecimal(out, bytes, "");
    out += "\"}}\n";
  }

  void appendElementValues(std::string& out, const platform::NSArray& elementValues) override {
    out += R"({"elements":[)";
    bool first = true;
    forEachValue(elementValues, [&](const platform::HIDElementValueRecord& value) {
      if (!first) out += ',';
      first = false;
      appendValue(out, value);
    });
    out += "]}\n";
  }

 private:
  static void appendValue(std::string& out, const platform::HIDElementValueRecord& value) {
    out += R"({"reportID":)";
    appendNumber(out, value.reportID);
    out += R"(,"usagePage":)";
    appendNumber(out, value.usagePage);
    out += R"(,"usage":)";
    appendNumber(out, value.usage);
    out += R"(,"cookie":)";
    appendNumber(out, value.cookie);
    out += R"(,"integerValue":)";
    appendNumber(out, value.integerValue);
    out += R"(,"bytes":")";
    appendHexadecimal(out, value.bytes, "");
    out += "\"}";
  }
};

/// A key or button that is not pressed: devices report all of them every time.
bool isUp(const platform::HIDElementValueRecord& value) {
  if (value.usagePage == wlhid::kButtonPage) return value.integerValue == 0;
  return value.usagePage == wlhid::kKeyboardPage && (value.usage == 0 || value.integerValue == 0);
}

constexpr std::size_t kIndent = 24;  // the column where bytes and values begin
/// From this many on, vendor-defined values are counted instead of shown: the report has their
/// bytes, and nobody knows their meaning.
constexpr std::size_t kLongRun = 4;

bool isVendorDefined(const platform::HIDElementValueRecord& value) {
  return value.usagePage >= 0xff00 && value.usagePage <= 0xffff;
}

std::string shownValue(const platform::HIDElementValueRecord& value) {
  std::string shown = wlhid::usageName(value.usagePage, value.usage) + "=";
  if (value.bytes.size() > sizeof value.integerValue) {
    appendHexadecimal(shown, value.bytes, "");
  } else {
    appendNumber(shown, value.integerValue);
  }
  return shown;
}

using Records = std::vector<platform::HIDElementValueRecord>;

/// The number of consecutive vendor-defined values of one page from `at` on.
std::size_t vendorRun(const Records& records, std::size_t at) {
  std::size_t end = at;
  while (end < records.size() && isVendorDefined(records[end]) &&
         records[end].usagePage == records[at].usagePage)
    ++end;
  return end - at;
}

/// The values as pieces of text that are never broken across lines.
std::vector<std::string> shownValues(const Records& records) {
  std::vector<std::string> pieces;
  for (std::size_t at = 0; at < records.size();) {
    const std::size_t run = vendorRun(records, at);
    if (run >= kLongRun) {
      const std::string name = wlhid::usageName(records[at].usagePage, records[at].usage);
      pieces.push_back(name.substr(0, name.find('/')) + "=(" + std::to_string(run) +
                       " vendor-defined values)");
      at += run;
    } else {
      if (!isUp(records[at])) pieces.push_back(shownValue(records[at]));
      ++at;
    }
  }
  return pieces;
}

std::vector<std::string> shownBytes(std::span<const std::uint8_t> bytes) {
  std::vector<std::string> pieces(bytes.size());
  for (std::size_t i = 0; i < bytes.size(); ++i) appendHexadecimal(pieces[i], {&bytes[i], 1}, "");
  return pieces;
}

class TextLines final : public DeliveryLines {
 public:
  TextLines(std::function<std::chrono::microseconds()> clock, std::function<std::size_t()> columns)
      : clock_(std::move(clock)), columns_(std::move(columns)), start_(clock_()) {}

  void appendStatus(std::string& out, WLHIDEventRouterClientStatus status) override {
    appendHead(out, "status");
    out += wlhid::statusName(status);
    out += '\n';
  }

  void appendError(std::string& out, const platform::NSError& error) override {
    appendHead(out, "error");
    const auto description =
        error.userInfo() ? error.userInfo()->objectForKey(platform::NSLocalizedDescriptionKey)
                         : nullptr;
    if (description) out += oneLine(description->description()) + "  ";
    out += oneLine(text(error.domain()));
    out += ' ';
    appendNumber(out, error.code());
    out += '\n';
  }

  void appendEnd(std::string& out, const std::string& reason) override {
    appendHead(out, "ended");
    out += oneLine(reason) + "\n";
  }

  void appendReport(std::string& out, std::span<const std::uint8_t> bytes,
                    std::uint32_t reportID) override {
    appendHead(out, "report");
    std::array<char, 16> number;
    std::snprintf(number.data(), number.size(), "%3u ", reportID);
    out += number.data();
    appendPieces(out, shownBytes(bytes));
  }

  void appendElementValues(std::string& out, const platform::NSArray& elementValues) override {
    appendHead(out, "values");
    out += "    ";
    Records records;
    forEachValue(elementValues, [&](const auto& value) { records.push_back(value); });
    auto pieces = shownValues(records);
    if (pieces.empty()) pieces.emplace_back("nothing pressed");
    appendPieces(out, pieces);
  }

 private:
  void appendHead(std::string& out, const char* what) {
    const double seconds = static_cast<double>((clock_() - start_).count()) / 1e6;
    std::array<char, 64> head;
    std::snprintf(head.data(), head.size(), "%9.3f  %-6s  ", seconds, what);
    out += head.data();
  }

  /// Ends the line with the pieces, each after a blank, wrapped if they don't fit.
  void appendPieces(std::string& out, const std::vector<std::string>& pieces) const {
    const std::size_t columns = columns_();
    std::size_t column = kIndent - 1;
    for (const std::string& piece : pieces) {
      const bool fits = columns == 0 || column + 1 + piece.size() <= columns;
      if (!fits && column > kIndent) {
        out += '\n';
        out.append(kIndent - 1, ' ');
        column = kIndent - 1;
      }
      out += ' ';
      out += piece;
      column += 1 + piece.size();
    }
    out += '\n';
  }

  const std::function<std::chrono::microseconds()> clock_;
  const std::function<std::size_t()> columns_;
  const std::chrono::microseconds start_;
};

}  // namespace

std::unique_ptr<DeliveryLines> jsonDeliveryLines() {
  return std::make_unique<JsonLines>();
}

std::unique_ptr<DeliveryLines> textDeliveryLines(std::function<std::chrono::microseconds()> clock,
                                                 std::function<std::size_t()> columns) {
  return std::make_unique<TextLines>(std::move(clock), std::move(columns));
}

}  // namespace tool
