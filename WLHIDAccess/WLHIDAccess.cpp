// SPDX-License-Identifier: Apache-2.0

#include "WLHIDAccess/WLHIDAccess.h"

extern "C" const double WLHIDAccessVersionNumber = WLHID_VERSION_NUMBER;
extern "C" const char WLHIDAccessVersionString[] =
    "@(#)PROGRAM:WLHIDAccess  PROJECT:WLHIDAccess-" WLHID_VERSION_MAJOR "\n";
