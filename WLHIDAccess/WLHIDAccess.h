// SPDX-License-Identifier: Apache-2.0

// The one header that an application includes: the client object, its delegate and the input it
// receives; installing the router and the notification when that changes; the shared logger; the
// log module for diagnostic reports; and the framework's version.
//
//   #include "WLHIDAccess/WLHIDAccess.h"
//
// Threading, Ownership, Errors, Order: see each header; docs/threading.md has the overview.
#pragma once

#include "WLHIDAccess/KQPrivilegedHelperManager.h"
#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "WLHIDAccess/WLHIDEventRouterClientDelegate.h"
#include "WLHIDAccess/WLHIDEventRouterConstants.h"
#include "WLHIDAccess/WLHIDEventRouterLogFileProvider.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "platform/kit/KQLogger.h"

/// The framework's major version as a number: 1.0.
extern "C" WLHID_EXPORT const double WLHIDAccessVersionNumber;
/// The same in the form that what(1) finds in the binary; ends with a line feed.
extern "C" WLHID_EXPORT const char WLHIDAccessVersionString[];
