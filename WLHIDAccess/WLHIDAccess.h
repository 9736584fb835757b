// All that an application includes: the client object with its delegate and what comes to it, the
// installation of the router and the notification of its changes, the shared logger, the log module
// for diagnostic reports, and the framework's own version.
//
//   #include "WLHIDAccess/WLHIDAccess.h"
//
// Threading, Ownership, Errors, Order: see each header; the whole picture is in docs/threading.md.
#pragma once

#include "WLHIDAccess/KQPrivilegedHelperManager.h"
#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "WLHIDAccess/WLHIDEventRouterClientDelegate.h"
#include "WLHIDAccess/WLHIDEventRouterConstants.h"
#include "WLHIDAccess/WLHIDEventRouterLogFileProvider.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "platform/kit/KQLogger.h"

/// The framework's version as a number: 1.0.
extern "C" const double WLHIDAccessVersionNumber;
/// The framework's version as what(1) and a reader of the binary find it; ends with a line feed.
extern "C" const char WLHIDAccessVersionString[];
