// SPDX-License-Identifier: Apache-2.0

#include "tool/picture/Html.h"

#include "tool/picture/Page.h"
#include "tool/picture/Svg.h"

namespace tool {

std::string documentHead(std::string_view title, std::string_view scriptHash) {
  const std::string script =
      scriptHash.empty() ? std::string() : " script-src '" + std::string(scriptHash) + "';";
  return "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
         "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
         "'unsafe-inline';" +
         script + " base-uri 'none'; form-action 'none'\">\n<title>" + escaped(title) +
         "</title>\n<style>" + std::string(kChartStyle) + std::string(kPageStyle) +
         "</style>\n</head>\n";
}

}  // namespace tool
