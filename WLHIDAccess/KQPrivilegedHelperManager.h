// Checking, installing and removing a privileged helper.
//
// Threading: any thread. Every function is synchronous; bless and remove block while the
//   authorization question is open.
// Ownership: nothing is kept between calls. Each bless or remove leaves one authorization reference
//   allocated for the life of the process.
// Errors: a false result, with an error where one is known; see each function.
#pragma once

#include <memory>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSString.h"

class KQPrivilegedHelperManager {
 public:
  /// The bytes of section __TEXT,__info_plist of a Mach-O executable, thin or fat, unparsed; null
  /// where there is none, for null data and for anything malformed.
  static std::shared_ptr<platform::NSData> extractInfoPlistFromData(
      const std::shared_ptr<platform::NSData>& data);

  /// Whether a job with `label` is there and its executable has the bundle version of the main
  /// bundle's own copy.
  static bool isPriviledgedHelperInstalledWithLabel(
      const std::shared_ptr<platform::NSString>& label);

  /// Asks for authorization with `prompt` (null: the system's own text), removes a current copy,
  /// installs the bundle's. `returnError`, where not null, always receives the final error (null on
  /// success).
  static bool blessPriviledgedXCPHelperWithLabel_prompt_returnError(
      const std::shared_ptr<platform::NSString>& label,
      const std::shared_ptr<platform::NSString>& prompt,
      std::shared_ptr<platform::NSError>* returnError);

  /// Asks for authorization, then removes the helper if it is installed in the bundle's version.
  /// False with a null error when there was nothing to remove or the removal failed.
  static bool removePriviledgedXCPHelperWithLabel_prompt_returnError(
      const std::shared_ptr<platform::NSString>& label,
      const std::shared_ptr<platform::NSString>& prompt,
      std::shared_ptr<platform::NSError>* returnError);

 private:
  static bool _blessPriviledgedXCPHelperWithLabel_prompt_removeOnly_returnError(
      const std::shared_ptr<platform::NSString>& label,
      const std::shared_ptr<platform::NSString>& prompt, bool removeOnly,
      std::shared_ptr<platform::NSError>* returnError);
};
