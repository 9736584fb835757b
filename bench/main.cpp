// SPDX-License-Identifier: Apache-2.0

// wlhid-bench: measures the project against bare baselines of the same run and prints a table.
//
//   wlhid-bench [--only PREFIX] [--json FILE] [--strict]
//
// Exit status 0 if everything was measured, and with --strict only if each target was met too; 1
// otherwise; 2 for wrong usage.
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>

#include "bench/Bench.h"
#include "bench/DeviceRouter.h"
#include "bench/Roles.h"
#include "bench/Router.h"

namespace {

struct Options {
  std::string only;
  std::string json;
  bool strict = false;
  bool valid = true;
};

Options parse(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    const bool hasValue = i + 1 < argc;
    if (argument == "--only" && hasValue) {
      options.only = argv[++i];
    } else if (argument == "--json" && hasValue) {
      options.json = argv[++i];
    } else if (argument == "--strict") {
      options.strict = true;
    } else {
      options.valid = false;
    }
  }
  return options;
}

void printTable(const bench::Report& report) {
  std::printf("%-28s %9s %9s  %-4s  %s\n", "figure", "value", "target", "met",
              "measured / baseline");
  for (const auto& figure : report.figures()) {
    std::printf("%-28s %9.3f %s%7.3f  %-4s  %s %.4g / %s %.4g\n", figure.key().c_str(),
                figure.value, figure.atLeast ? ">=" : "<=", figure.target,
                figure.met() ? "yes" : "NO", figure.measured.name.c_str(), figure.measured.value,
                figure.baseline.name.c_str(), figure.baseline.value);
  }
}

/// Says on standard error which targets were missed. Whether all were met.
bool checkTargets(const bench::Report& report) {
  std::string missed;
  for (const auto& figure : report.figures()) {
    if (!figure.met()) missed += " " + figure.key();
  }
  if (!missed.empty()) std::cerr << "wlhid-bench: targets missed:" << missed << '\n';
  return missed.empty();
}

bool writeJSON(const bench::Report& report, const std::string& path) {
  nlohmann::ordered_json object;
  for (const auto& figure : report.figures()) {
    object[figure.key()] = figure.value;
    object[figure.group + "." + figure.measured.name] = figure.measured.value;
    object[figure.group + "." + figure.baseline.name] = figure.baseline.value;
  }
  std::ofstream out(path);
  out << object.dump(2) << '\n';
  return out.good();
}

void measure(const Options& options, bench::Report& report) {
  static constexpr struct {
    const char* prefix;
    void (*section)(bench::Report&);
  } sections[] = {{"delivery", bench::measureDelivery},
                  {"latency", bench::measureLatency},
                  {"presence", bench::measurePresence},
                  {"cpu", bench::measureProcessorTime},
                  {"clients", bench::measureClients},
                  {"recording", bench::measureRecordings},
                  {"log", bench::measureLog}};
  for (const auto& [prefix, section] : sections) {
    if (options.only.empty() || std::string_view(prefix).starts_with(options.only)) section(report);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--role=router") == 0) return bench::runRouterRole();
  if (argc == 3 && std::strcmp(argv[1], "--role=device-router") == 0)
    return bench::runDeviceRouterRole(argv[2]);
  if (argc == 3 && std::strcmp(argv[1], "--role=clients") == 0)
    return bench::runClientsRole(argv[2]);
  if (argc == 3 && std::strcmp(argv[1], "--role=recordings") == 0)
    return bench::runRecordingsRole(argv[2]);
  const Options options = parse(argc, argv);
  if (!options.valid) {
    std::cerr << "wlhid-bench: usage: wlhid-bench [--only PREFIX] [--json FILE] [--strict]\n";
    return 2;
  }
  try {
    bench::Report report;
    measure(options, report);
    printTable(report);
    if (!options.json.empty() && !writeJSON(report, options.json)) {
      std::cerr << "wlhid-bench: cannot write " << options.json << '\n';
      return 1;
    }
    if (options.strict && !checkTargets(report)) return 1;
  } catch (const std::exception& exception) {
    std::cerr << "wlhid-bench: " << exception.what() << '\n';
    return 1;
  }
  return 0;
}
