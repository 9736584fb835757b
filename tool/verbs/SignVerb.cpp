// SPDX-License-Identifier: Apache-2.0

// wlhid sign: signs a helper image, or makes the keys for it.
#include <CLI/CLI.hpp>
#include <span>

#include "WLHIDAccess/KQPrivilegedHelperManager.h"
#include "platform/signing/ImageSignature.h"
#include "tool/command/Command.h"
#include "tool/files/Files.h"
#include "tool/files/NewFile.h"

namespace tool {

namespace {

namespace signing = platform::signing;

constexpr std::size_t kMaximumKeyBytes = 4096;

struct SignOptions {
  std::string image;
  std::string key;
  std::string output;
  std::string newKey;
};

std::span<const std::uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

void writeNewFile(const std::string& path, std::span<const std::uint8_t> first,
                  std::span<const std::uint8_t> second = {}) {
  NewFile file(path);
  file.write(first);
  file.write(second);
  file.keep();
}

int makeKeys(const std::string& name) {
  const auto pair = signing::newKeyPair();
  writeNewFile(name + ".key", bytesOf(signing::textOf(pair.secretKey)));
  writeNewFile(name + ".pub", bytesOf(signing::textOf(pair.publicKey)));
  print(oneLine(name + ".key signs; " + name + ".pub is for /etc/wlhid/trusted.d.") + "\n");
  return ExitDone;
}

signing::SecretKey readSecretKey(const std::string& path) {
  const auto data = readWholeFile(path, kMaximumKeyBytes);
  const auto key = signing::secretKeyIn(
      {reinterpret_cast<const char*>(data->bytes()), static_cast<std::size_t>(data->length())});
  if (!key) throw Failure(path + ": not a secret key (make one with wlhid sign --new-key NAME)");
  return *key;
}

int signImage(const SignOptions& options) {
  const auto data = readWholeFile(options.image);
  if (!KQPrivilegedHelperManager::extractInfoPlistFromData(data))
    throw Failure(options.image + ": not a helper image (it has no embedded property list)");
  const auto image = signing::withoutTrailer(data->span());
  const auto trailer = signing::trailerFor(image, readSecretKey(options.key));
  writeNewFile(options.output, image, trailer);
  print(oneLine("Signed: " + options.output + ".") + "\n");
  return ExitDone;
}

int sign(const SignOptions& options) {
  if (!options.newKey.empty()) return makeKeys(options.newKey);
  if (options.image.empty() || options.key.empty() || options.output.empty())
    throw UsageFailure("an image, --key and -o are required, or --new-key");
  return signImage(options);
}

}  // namespace

void addSignVerb(CLI::App& app, Action& chosen) {
  auto options = std::make_shared<SignOptions>();
  CLI::App* verb = app.add_subcommand("sign", "Signs a helper image, or makes the keys for it");
  verb->add_option("IMAGE", options->image, "A helper image, signed or not");
  verb->add_option("--key", options->key, "The file with the secret key")->type_name("FILE");
  verb->add_option("-o,--output", options->output, "Where the signed image goes")
      ->type_name("FILE");
  verb->add_option("--new-key", options->newKey, "Make a pair of keys, NAME.key and NAME.pub")
      ->type_name("NAME")
      ->excludes("IMAGE", "--key", "--output");
  verb->footer(
      "A system that holds keys in /etc/wlhid/trusted.d installs only images signed with one of\n"
      "them.\n"
      "\n"
      "Example:\n"
      "  wlhid sign --new-key release\n"
      "  wlhid sign com.quillmar.hideventrouter --key release.key -o signed");
  verb->callback([options, &chosen] { chosen = [options] { return sign(*options); }; });
}

}  // namespace tool
