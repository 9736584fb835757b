// SPDX-License-Identifier: Apache-2.0

// Checking, installing and removing a privileged helper.
//
// Threading: any thread. Every function is synchronous; bless and remove block while the user is
//   asked for authorization.
// Ownership: nothing is kept between calls. Each bless or remove leaves one authorization reference
//   allocated for the life of the process.
// Errors: a false result, with an error if one is known; see each function.
#pragma once

#include <memory>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSString.h"

class WLHID_EXPORT KQPrivilegedHelperManager {
 public:
  /// The unparsed bytes of section __TEXT,__info_plist of a Mach-O executable, thin or fat. Null if
  /// the section is missing, the data is null or anything is malformed.
  static std::shared_ptr<platform::NSData> extractInfoPlistFromData(
      const std::shared_ptr<platform::NSData>& data);

  /// Whether a job with `label` exists and its executable has the same bundle version as the main
  /// bundle's copy.
  static bool isPriviledgedHelperInstalledWithLabel(
      const std::shared_ptr<platform::NSString>& label);

  /// Asks for authorization with `prompt` (null: the system's own text), removes an installed copy
  /// of the same version, then installs the bundle's copy. `returnError`, if not null, always
  /// receives the final error (null on success).
  static bool blessPriviledgedXCPHelperWithLabel_prompt_returnError(
      const std::shared_ptr<platform::NSString>& label,
      const std::shared_ptr<platform::NSString>& prompt,
      std::shared_ptr<platform::NSError>* returnError);

  /// Asks for authorization, then removes the helper if the installed version is the bundle's.
  /// False with a null error if there was nothing to remove or the removal failed.
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
